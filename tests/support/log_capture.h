// Replaces the library's log stand-in inside a test program: every line the library logs is
// kept, formatted exactly as the library formats it, so tests can assert the exact text.
// VANTOR_TEST_LOG=1 also prints every line to stderr.
#ifndef VANTOR_TESTS_LOG_CAPTURE_H
#define VANTOR_TESTS_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace vtest {

struct log_line {
    int prio;
    std::string tag;
    std::string text;
};

std::vector<log_line> log_lines();
void log_clear();
// Number of captured lines with this priority and exactly this text.
int log_count(int prio, const std::string& text);

}  // namespace vtest

#endif
