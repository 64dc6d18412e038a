// Logging through the platform log under the tag "vantor". On Android this is liblog; on other
// hosts the library carries a stand-in (log.cpp) with the same signature, unless VTR_ANDROID_LOG
// asks for a liblog there too (Debian's android-liblog-dev).
#ifndef VANTOR_PLATFORM_LOG_H
#define VANTOR_PLATFORM_LOG_H

#if defined(__ANDROID__) || defined(VTR_ANDROID_LOG)
#include <android/log.h>
#else
extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
enum { ANDROID_LOG_INFO = 4, ANDROID_LOG_ERROR = 6 };
#endif

#define VTR_LOG_TAG "vantor"
#define VTR_LOGI(...) __android_log_print(ANDROID_LOG_INFO, VTR_LOG_TAG, __VA_ARGS__)
#define VTR_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, VTR_LOG_TAG, __VA_ARGS__)

#endif  // VANTOR_PLATFORM_LOG_H
