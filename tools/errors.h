// Failures the tool reports as one line on stderr and an exit code.
#ifndef VANTOR_TOOLS_ERRORS_H
#define VANTOR_TOOLS_ERRORS_H

#include <stdexcept>
#include <string>

namespace vtool {

enum exit_code { exit_ok = 0, exit_failure = 1, exit_usage = 2 };

// `code` is exit_usage for a malformed command line, exit_failure for everything found later
// (input, output, library).
struct tool_error : std::runtime_error {
    tool_error(int code, const std::string& message) : std::runtime_error(message), code(code) {}
    int code;
};

[[noreturn]] inline void fail(const std::string& message) {
    throw tool_error(exit_failure, message);
}
[[noreturn]] inline void usage_error(const std::string& message) {
    throw tool_error(exit_usage, message);
}

}  // namespace vtool

#endif
