#include "denoiser.h"

#include <stdio.h>
#include <string.h>

#include <chrono>

#include "errors.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace vtool {

namespace {

constexpr int ready_timeout_ms = 5000;
// A failed frame's workers may still be busy; they get this long to finish before the handle
// is given up.
constexpr int drain_timeout_ms = 30000;

using clock_type = std::chrono::steady_clock;

void copy_spans(const std::vector<byte_span>& spans, uint8_t* to) {
    for (const byte_span& s : spans) {
        memcpy(to, s.data, s.size);
        to += s.size;
    }
}

void restore_spans(const std::vector<byte_span>& spans, const uint8_t* from) {
    for (const byte_span& s : spans) {
        memcpy(s.data, from, s.size);
        from += s.size;
    }
}

}  // namespace

std::string frame_status_text(int32_t status) {
    static const char* const stages[4] = {"deinterleave", "box filter", "plane filter",
                                          "interleave"};
    std::string text;
    const auto add = [&](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
    for (int i = 0; i < 4; ++i) {
        if (status & (VANTOR_FRAME_LATE_DEINTERLEAVE << i))
            add(std::string(stages[i]) + " stage late");
        if (status & (VANTOR_FRAME_REFUSED_DEINTERLEAVE << i))
            add(std::string(stages[i]) + " stage refused to start");
    }
    if (status & VANTOR_FRAME_NOT_RUN)
        add("not run by the library");
    if (text.empty())
        add("status " + std::to_string(status));
    return text;
}

denoiser::denoiser(pixel_format f, int width, int height, int scenario)
    : format(f), width(width), height(height), scenario(scenario) {
    const std::string problem = geometry_problem(f, width, height);
    if (!problem.empty())
        usage_error(problem);
    input_copy_.resize(frame_bytes(f, width, height));
    handle_ = vantor_init(width, height, scenario);
    if (!handle_)
        fail("the library refused frames of " + std::to_string(width) + "x" +
             std::to_string(height));
    if (vantor_wait_ready(handle_, ready_timeout_ms) != 0) {
        vantor_deinit(handle_);
        handle_ = nullptr;
        fail("the library's worker threads did not start within " +
             std::to_string(ready_timeout_ms / 1000) + " s");
    }
}

denoiser::~denoiser() {
    if (handle_)
        vantor_deinit(handle_);
}

int32_t denoiser::finish_frame(uint64_t frame_number) {
    const int32_t status = vantor_frame_status(handle_);
    if (status == VANTOR_FRAME_OK)
        return status;
    // Until every worker has parked again, a late one may still write into the frame.
    const auto deadline = clock_type::now() + std::chrono::milliseconds(drain_timeout_ms);
    while (vantor_wait_ready(handle_, 1000) != 0)
        if (clock_type::now() > deadline)
            fail("frame " + std::to_string(frame_number) + " failed (" + frame_status_text(status) +
                 ") and the library's workers did not finish it " + "within " +
                 std::to_string(drain_timeout_ms / 1000) + " s");
    return status;
}

double denoiser::run(frame_buffer& b, uint64_t frame_number) {
    copy_spans(b.input_spans(), input_copy_.data());
    double ms = 0;
    for (int attempt = 1;; ++attempt) {
        const auto start = clock_type::now();
        vantor_run(handle_, reinterpret_cast<uintptr_t>(b.plane1),
                   reinterpret_cast<uintptr_t>(b.plane2), width, height, format_code(format));
        ms += std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
        const int32_t status = finish_frame(frame_number);
        if (status == VANTOR_FRAME_OK)
            return ms;
        if (attempt == frame_tries)
            fail("frame " + std::to_string(frame_number) + " failed " +
                 std::to_string(frame_tries) + " times (" + frame_status_text(status) +
                 "); giving up");
        fprintf(stderr, "vantor: frame %llu: %s, retrying (try %d of %d)\n",
                static_cast<unsigned long long>(frame_number), frame_status_text(status).c_str(),
                attempt + 1, frame_tries);
        restore_spans(b.input_spans(), input_copy_.data());
    }
}

bool denoiser::run_once(frame_buffer& b, uint64_t frame_number) {
    vantor_run(handle_, reinterpret_cast<uintptr_t>(b.plane1),
               reinterpret_cast<uintptr_t>(b.plane2), width, height, format_code(format));
    return finish_frame(frame_number) == VANTOR_FRAME_OK;
}

}  // namespace vtool
