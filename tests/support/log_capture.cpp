#include "support/log_capture.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <mutex>

namespace vtest {
namespace {

std::mutex& lock() {
    static std::mutex m;
    return m;
}
std::vector<log_line>& lines() {
    static std::vector<log_line> v;
    return v;
}
bool echo() {
    static const bool on = getenv("VANTOR_TEST_LOG") != nullptr;
    return on;
}

}  // namespace

std::vector<log_line> log_lines() {
    std::lock_guard<std::mutex> g(lock());
    return lines();
}

log_rows log_table() {
    log_rows rows;
    for (const log_line& l : log_lines())
        rows.emplace_back(l.prio, l.text);
    return rows;
}

void log_clear() {
    std::lock_guard<std::mutex> g(lock());
    lines().clear();
}

int log_count(int prio, const std::string& text) {
    std::lock_guard<std::mutex> g(lock());
    int n = 0;
    for (const auto& l : lines())
        n += l.prio == prio && l.text == text;
    return n;
}

}  // namespace vtest

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    std::lock_guard<std::mutex> g(vtest::lock());
    vtest::lines().push_back({prio, buf});
    if (vtest::echo())
        fprintf(stderr, "[log %d %s] %s\n", prio, tag, buf);
    return 0;
}
