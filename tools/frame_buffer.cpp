#include "frame_buffer.h"

#include <stdlib.h>
#include <string.h>

#include "errors.h"

namespace vtool {

namespace {

std::shared_ptr<uint8_t> zeroed_block(size_t size) {
    void* p = nullptr;
    if (posix_memalign(&p, 64, size) != 0)
        fail("out of memory for a frame of " + std::to_string(size) + " bytes");
    memset(p, 0, size);
    return std::shared_ptr<uint8_t>(static_cast<uint8_t*>(p), free);
}

}  // namespace

frame_buffer make_frame_buffer(pixel_format f, int width, int height) {
    frame_buffer b;
    b.format = f;
    b.width = width;
    b.height = height;
    b.aligned_height = align16(height);
    const size_t w = static_cast<size_t>(width);
    const size_t luma = w * static_cast<size_t>(b.aligned_height);
    switch (f) {
        case pixel_format::nv21:
            b.block1 = zeroed_block(luma + luma / 2);
            b.plane1 = b.block1.get();
            b.plane2 = b.plane1 + luma;
            break;
        case pixel_format::nm21:
            b.block1 = zeroed_block(luma);
            b.block2 = zeroed_block(luma / 2);
            b.plane1 = b.block1.get();
            b.plane2 = b.block2.get();
            break;
        case pixel_format::yuyv:
        case pixel_format::yuy2:
            b.block1 = zeroed_block(frame_bytes(f, width, height));
            b.plane1 = b.block1.get();
            break;
    }
    return b;
}

std::vector<byte_span> frame_buffer::input_spans() const {
    const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
    if (is_420(format))
        return {{plane1, luma}, {plane2, luma / 2}};
    return {{plane1, 2 * luma}};
}

std::vector<byte_span> frame_buffer::output_spans() const {
    if (format == pixel_format::nv21)
        return {{plane1, frame_bytes(format, width, height)}};
    return input_spans();
}

void frame_buffer::load(const uint8_t* packed) {
    for (const byte_span& s : input_spans()) {
        memcpy(s.data, packed, s.size);
        packed += s.size;
    }
}

void frame_buffer::store(uint8_t* packed) const {
    for (const byte_span& s : output_spans()) {
        memcpy(packed, s.data, s.size);
        packed += s.size;
    }
}

}  // namespace vtool
