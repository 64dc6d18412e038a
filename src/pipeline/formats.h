// Frame formats as the pipeline tells them apart. Every test compares whole 32-bit codes;
// anything but the four known codes is unsupported.
#ifndef VANTOR_PIPELINE_FORMATS_H
#define VANTOR_PIPELINE_FORMATS_H

#include <stdint.h>

#include "vantor.h"

// NV21 and NM21: a luma plane and an interleaved V/U plane at half resolution both ways.
inline bool vtr_is_420(int32_t format) {
    return format == static_cast<int32_t>(VTR_NV21) || format == static_cast<int32_t>(VTR_NV21_M);
}

// YUYV and YUY2: one packed 4:2:2 plane.
inline bool vtr_is_422(int32_t format) {
    return format == static_cast<int32_t>(VTR_YUYV) || format == static_cast<int32_t>(VTR_YUY2);
}

#endif  // VANTOR_PIPELINE_FORMATS_H
