// A one-thread model of a whole frame, built from the scalar twins of the kernels and its own
// reading of the stage geometry: the strips, the ragged-edge sampling, the luma padding rows
// and the NV21 chroma move are written here again, not taken from the library.
#ifndef VANTOR_TESTS_FRAME_MODEL_H
#define VANTOR_TESTS_FRAME_MODEL_H

#include <stdint.h>

namespace vtest {

// Processes a frame in place as vantor_run does. For NV21 and NM21 `y` holds aligned-height
// rows and `vu` the V/U plane; for YUYV and YUY2 `y` is the packed frame and `vu` is unused.
void model_frame(uint8_t* y, uint8_t* vu, int32_t width, int32_t height, uint32_t format,
                 int32_t scenario);

}  // namespace vtest

#endif
