// Replaces the library's log stand-in inside a test program: every line the library logs is
// kept, formatted exactly as the library formats it, so tests can assert the exact text.
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
// Lines whose text starts with `prefix`, in order.
std::vector<log_line> log_starting_with(const std::string& prefix);
// Also print captured lines to stderr (off by default; VANTOR_TEST_LOG=1 turns it on).
void log_echo(bool on);

}  // namespace vtest

#endif
