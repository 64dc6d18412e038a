// Replaces the library's log stand-in inside a test program: every line the library logs is
// kept, formatted exactly as the library formats it, so tests can assert the exact text.
// VANTOR_TEST_LOG=1 also prints every line to stderr.
#ifndef VANTOR_TESTS_LOG_CAPTURE_H
#define VANTOR_TESTS_LOG_CAPTURE_H

#include <string>
#include <utility>
#include <vector>

namespace vtest {

struct log_line {
    int prio;
    std::string text;
};
using log_rows = std::vector<std::pair<int, std::string>>;

std::vector<log_line> log_lines();
// The captured lines as (priority, text), to compare the whole log with a table.
log_rows log_table();
void log_clear();
// Number of captured lines with this priority and exactly this text.
int log_count(int prio, const std::string& text);

}  // namespace vtest

#endif
