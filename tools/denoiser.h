// One library handle for a stream of frames of one size, format and scenario.
#ifndef VANTOR_TOOLS_DENOISER_H
#define VANTOR_TOOLS_DENOISER_H

#include "frame_buffer.h"

namespace vtool {

struct denoiser {
    // Creates the handle and waits until its workers are ready; failures throw tool_error.
    denoiser(pixel_format f, int width, int height, int scenario);
    ~denoiser();
    denoiser(const denoiser&) = delete;
    denoiser& operator=(const denoiser&) = delete;

    // Processes the frame in `b` (of this denoiser's size and format) in place; returns the
    // time the library took, in milliseconds.
    double run(frame_buffer& b);

    pixel_format format;
    int width, height, scenario;

  private:
    void* handle_ = nullptr;
};

}  // namespace vtool

#endif
