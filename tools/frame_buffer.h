// Frame memory laid out as the library needs it, and the mapping between that layout and a
// tightly packed frame.
//
// NV21: one block; the Y plane has aligned_height rows (height rounded up to 16), because the
// library fills rows height .. aligned_height - 1, and the V/U plane follows it with room for
// aligned_height / 2 rows. When height is not a multiple of 16 the library finally moves the
// V/U plane down to follow row height - 1, so the output is a packed NV21 frame at the start of
// the block.
// NM21: two blocks of the same sizes; nothing moves, so Y rows 0 .. height - 1 and the V/U plane
// are written out as NV21.
// YUYV and YUY2: the packed frame itself, processed in place.
#ifndef VANTOR_TOOLS_FRAME_BUFFER_H
#define VANTOR_TOOLS_FRAME_BUFFER_H

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <vector>

#include "formats.h"

namespace vtool {

struct byte_span {
    uint8_t* data;
    size_t size;
};

struct frame_buffer {
    pixel_format format = pixel_format::nv21;
    int width = 0;
    int height = 0;
    int aligned_height = 0;
    uint8_t* plane1 = nullptr;  // Y plane, or the packed frame
    uint8_t* plane2 = nullptr;  // V/U plane of NV21 and NM21, else null

    // Where the bytes of a packed input frame go, in order.
    std::vector<byte_span> input_spans() const;
    // Where the packed output frame is found after the library has run, in order.
    std::vector<byte_span> output_spans() const;

    // Copies a packed frame in, or the processed frame out.
    void load(const uint8_t* packed);
    void store(uint8_t* packed) const;

    std::shared_ptr<uint8_t> block1, block2;
};

// Zero-filled and 64-byte aligned.
frame_buffer make_frame_buffer(pixel_format f, int width, int height);

inline int align16(int v) {
    return (v + 15) & ~15;
}

}  // namespace vtool

#endif
