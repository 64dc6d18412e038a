// Conversions between RGB pictures and the frame formats, full-range BT.601 (the JPEG
// convention), through libyuv; and the chroma planes of a frame in a common form.
#ifndef VANTOR_TOOLS_COLOR_H
#define VANTOR_TOOLS_COLOR_H

#include <stdint.h>

#include <vector>

#include "formats.h"
#include "image.h"

namespace vtool {

// A tightly packed frame (layouts of frame_bytes()).
struct frame {
    pixel_format format = pixel_format::nv21;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> bytes;
};

// RGB(A) to packed NV21; width and height must be even. Alpha is ignored.
frame picture_to_nv21(const picture& p);
// Any packed frame to RGB (no alpha).
picture frame_to_picture(const frame& f);

// U and V of a frame at its own chroma resolution: width / 2 by height / 2 for 4:2:0, by height
// for 4:2:2. Rows of cw samples.
struct chroma_planes {
    int cw = 0;
    int ch = 0;
    int rows_per_sample = 2;  // luma rows per chroma row
    std::vector<uint8_t> u, v;
};
chroma_planes chroma_of(const frame& f);

// The picture enlarged to `width` x `height` (not smaller than it) by repeating its last
// column and row, so that photos of any size can be handed to the library.
picture pad_picture(const picture& p, int width, int height);
// The top-left `width` x `height` of a picture.
picture crop_picture(const picture& p, int width, int height);

}  // namespace vtool

#endif
