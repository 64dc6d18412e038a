#include "denoiser.h"

#include <chrono>

#include "errors.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace vtool {

namespace {
constexpr int ready_timeout_ms = 5000;
}

denoiser::denoiser(pixel_format f, int width, int height, int scenario)
    : format(f), width(width), height(height), scenario(scenario) {
    const std::string problem = geometry_problem(f, width, height);
    if (!problem.empty())
        usage_error(problem);
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

double denoiser::run(frame_buffer& b) {
    const auto start = std::chrono::steady_clock::now();
    vantor_run(handle_, reinterpret_cast<uintptr_t>(b.plane1),
               reinterpret_cast<uintptr_t>(b.plane2), width, height, format_code(format));
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

}  // namespace vtool
