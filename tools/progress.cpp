#include "progress.h"

#include <stdio.h>

namespace vtool {

namespace {
constexpr int bar_width = 30;
constexpr auto redraw_interval = std::chrono::milliseconds(100);
}  // namespace

progress_bar::progress_bar(uint64_t total, bool enabled)
    : total_(total), enabled_(enabled), last_(std::chrono::steady_clock::now() - redraw_interval) {}

std::string progress_bar::render(uint64_t done, uint64_t total, double ms_per_frame, int width) {
    char tail[96];
    snprintf(tail, sizeof tail, " %llu%s%s frames  %.2f ms/frame",
             static_cast<unsigned long long>(done), total ? "/" : "",
             total ? std::to_string(total).c_str() : "", ms_per_frame);
    if (!total)
        return tail + 1;
    const uint64_t filled = done >= total ? width : done * width / total;
    std::string bar = "[";
    bar.append(filled, '#');
    bar.append(width - filled, '.');
    bar += "]";
    return bar + tail;
}

void progress_bar::update(uint64_t done, double ms_per_frame) {
    if (!enabled_)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (now - last_ < redraw_interval && done != total_)
        return;
    last_ = now;
    fprintf(stderr, "\r%s\033[K", render(done, total_, ms_per_frame, bar_width).c_str());
    fflush(stderr);
    drawn_ = true;
}

void progress_bar::finish() {
    if (drawn_)
        fprintf(stderr, "\r\033[K");
    drawn_ = false;
}

}  // namespace vtool
