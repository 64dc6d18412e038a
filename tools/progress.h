// A one-line progress bar on stderr for frame streams, drawn only when stderr is a terminal.
#ifndef VANTOR_TOOLS_PROGRESS_H
#define VANTOR_TOOLS_PROGRESS_H

#include <stdint.h>

#include <chrono>
#include <string>

namespace vtool {

struct progress_bar {
    // total 0: unknown (a pipe); the bar then shows a count only.
    progress_bar(uint64_t total, bool enabled);
    void update(uint64_t done, double ms_per_frame);
    void finish();

    // The text of the line for a given state, without the carriage return.
    static std::string render(uint64_t done, uint64_t total, double ms_per_frame, int width);

  private:
    uint64_t total_;
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point last_;
};

}  // namespace vtool

#endif
