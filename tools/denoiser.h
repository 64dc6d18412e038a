// One library handle for a stream of frames of one size, format and scenario.
#ifndef VANTOR_TOOLS_DENOISER_H
#define VANTOR_TOOLS_DENOISER_H

#include <stdint.h>

#include <string>
#include <vector>

#include "frame_buffer.h"

namespace vtool {

// How often a frame is run before the tool gives up on it.
constexpr int frame_tries = 3;

struct denoiser {
    // Creates the handle and waits until its workers are ready; failures throw tool_error.
    denoiser(pixel_format f, int width, int height, int scenario);
    ~denoiser();
    denoiser(const denoiser&) = delete;
    denoiser& operator=(const denoiser&) = delete;

    // Processes the frame in `b` (of this denoiser's size and format) in place and returns the
    // time spent in the library, in milliseconds. A frame the library reports as failed is run
    // again from a copy of its input, each try said on stderr with `frame_number`; after
    // frame_tries failures it throws tool_error naming the frame.
    double run(frame_buffer& b, uint64_t frame_number);

    // One try without the copy, for timing: false when the frame failed (the handle is then
    // ready for the next frame, and `b` holds no valid result).
    bool run_once(frame_buffer& b, uint64_t frame_number);

    pixel_format format;
    int width, height, scenario;

  private:
    // The library's status of the last frame, after waiting for its workers when it failed.
    int32_t finish_frame(uint64_t frame_number);

    void* handle_ = nullptr;
    std::vector<uint8_t> input_copy_;  // the input of the frame in flight
};

// What a frame status says went wrong, e.g. "box filter stage late".
std::string frame_status_text(int32_t status);

}  // namespace vtool

#endif
