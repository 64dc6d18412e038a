// A one-thread model of a whole frame, built from the scalar twins of the kernels and its own
// reading of the stage geometry: the strips, the ragged-edge sampling, the luma padding rows
// and the NV21 chroma move are written here again, not taken from the library. And one frame
// laid out as a caller lays it out, with the bytes the model makes of it.
#ifndef VANTOR_TESTS_FRAME_MODEL_H
#define VANTOR_TESTS_FRAME_MODEL_H

#include <stdint.h>

#include <string>
#include <vector>

#include "support/frames.h"

namespace vtest {

// Processes a frame in place as vantor_run does. For NV21 and NM21 `y` holds aligned-height
// rows and `vu` the V/U plane; for YUYV and YUY2 `y` is the packed frame and `vu` is unused.
void model_frame(uint8_t* y, uint8_t* vu, int32_t width, int32_t height, uint32_t format,
                 int32_t scenario);

// One frame in one page-end buffer: `margin` bytes, then NV21: luma of aligned rows with the
// V/U plane right after it; NM21: the same two planes with a gap between them; YUYV and YUY2:
// height rows of 2 * width bytes. The last plane ends the buffer. The content is random, or the
// test scene over random padding.
struct model_case {
    model_case(int32_t width, int32_t height, uint32_t format, int32_t scenario, uint32_t seed,
               bool scene, size_t margin = 0);
    // Runs the frame from its input again; vantor_run's result.
    int32_t* run(void* handle);
    // Empty when the buffer holds the model's bytes and nothing wrote in front of it; else a
    // map of the first difference.
    std::string mismatch() const;
    std::vector<uint8_t> bytes() const { return {buf.data(), buf.data() + buf.size()}; }

    int32_t width, height;
    uint32_t format;
    int32_t scenario;
    size_t y = 0, vu = 0;
    std::vector<uint8_t> input, expected;
    guarded buf;
};

}  // namespace vtest

#endif
