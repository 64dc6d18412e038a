#include "reliability/log_tally.h"

#include <stdarg.h>
#include <string.h>

#include <atomic>
#include <mutex>

namespace vrel {
namespace {

std::atomic<long> lines{0}, stage_timeouts{0}, deinit_timeouts{0}, lock_timeouts{0}, refusals{0},
    banners{0}, other_errors{0};
thread_local long my_stage_timeouts = 0;
thread_local long my_refusals = 0;

constexpr int kKept = 8;
std::mutex kept_mutex;
char kept[kKept][512];
int kept_count = 0;

bool starts_with(const char* s, const char* prefix) {
    return strncmp(s, prefix, strlen(prefix)) == 0;
}

void tally(int prio, const char* text) {
    ++lines;
    if (prio < 6)
        return;
    if (starts_with(text, "vantor_timedwait_signal: ")) {
        if (strstr(text, "from vantor_deinit")) {
            ++deinit_timeouts;
        } else {
            ++stage_timeouts;
            ++my_stage_timeouts;
        }
    } else if (strstr(text, ", mutex lock time out(") || strstr(text, ", mutex lock fail")) {
        ++lock_timeouts;
    } else if (strstr(text, ", ready sub thread wait")) {
        ++refusals;
        ++my_refusals;
    } else if (strstr(text, " is fail.. ret = ") ||
               starts_with(text, "fail to vantor_run_thread")) {
        // Follows a refusal or another error line, which is counted.
    } else if (starts_with(text, "Android-")) {
        ++banners;
    } else {
        ++other_errors;
        std::lock_guard<std::mutex> g(kept_mutex);
        if (kept_count < kKept)
            snprintf(kept[kept_count++], sizeof kept[0], "%s", text);
    }
}

}  // namespace

log_totals log_now() {
    return {lines.load(),    stage_timeouts.load(), deinit_timeouts.load(), lock_timeouts.load(),
            refusals.load(), banners.load(),        other_errors.load()};
}

long thread_stage_timeouts() {
    return my_stage_timeouts;
}

long thread_refusals() {
    return my_refusals;
}

void print_other_errors(FILE* out) {
    std::lock_guard<std::mutex> g(kept_mutex);
    for (int i = 0; i < kept_count; ++i)
        fprintf(out, "  error line: %s\n", kept[i]);
}

}  // namespace vrel

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    vrel::tally(prio, text);
    return 0;
}
