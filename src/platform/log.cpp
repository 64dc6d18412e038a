// Stand-in for Android's __android_log_print on other hosts: prints logcat-style lines
//   MM-DD HH:MM:SS.mmm   PID   TID E vantor  : message
// to stderr. Error lines are shown by default; VANTOR_LOG selects the lowest priority shown,
// by logcat's letters (V, D, I, W, E, F, S = silent) or words (info, error, silent).
//
// The definition is weak so that a test program can define its own __android_log_print and
// see every line exactly as the library formats it.
#if !defined(__ANDROID__) && !defined(VTR_ANDROID_LOG)

#include "platform/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

int priority_from_env() {
    const char* v = getenv("VANTOR_LOG");
    if (v == nullptr || v[0] == '\0')
        return 6;
    switch (v[0]) {
        case 'V':
        case 'v':
            return 2;
        case 'D':
        case 'd':
            return 3;
        case 'I':
        case 'i':
            return 4;
        case 'W':
        case 'w':
            return 5;
        case 'E':
        case 'e':
            return 6;
        case 'F':
        case 'f':
            return 7;
        case 'S':
        case 's':
            return 8;
        default:
            return 6;
    }
}

char priority_letter(int prio) {
    static const char letters[] = "??VDIWEF";
    return prio >= 2 && prio <= 7 ? letters[prio] : '?';
}

}  // namespace

extern "C" __attribute__((weak)) int __android_log_print(int prio, const char* tag, const char* fmt,
                                                         ...) {
    static const int threshold = priority_from_env();
    if (prio < threshold)
        return 0;

    char msg[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(msg, sizeof msg, fmt, ap);
    va_end(ap);
    size_t len = strlen(msg);
    while (len > 0 && msg[len - 1] == '\n')
        msg[--len] = '\0';

    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm tm;
    localtime_r(&tv.tv_sec, &tm);
    // One fprintf per line keeps lines from different threads whole.
    return fprintf(stderr, "%02d-%02d %02d:%02d:%02d.%03d %5d %5d %c %-8s: %s\n", tm.tm_mon + 1,
                   tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                   static_cast<int>(tv.tv_usec / 1000), static_cast<int>(getpid()),
                   static_cast<int>(syscall(SYS_gettid)), priority_letter(prio), tag, msg);
}

#endif
