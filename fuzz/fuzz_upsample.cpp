// Fuzz target of the upsamplers: the 4:2:0 and 4:2:2 chroma cores with any column count they
// accept, the two wrappers with their scalar edge for odd widths, the luma core and wrapper,
// and the scalar reference upsampler. Source planes go down to one sample; buffers end where
// the call's documented reach ends. Vector and scalar twins run on copies and must agree on
// every byte.
#include <string.h>

#include "fuzz_support.h"
#include "resample/upsample.h"

using vfuzz::buffer;
using vfuzz::fuzz_input;

namespace {

using vfuzz::plane_reach;
using vfuzz::twin_out;

// A chroma core on a w x h source, `cols` source columns covered in 16-column blocks.
void chroma_core(fuzz_input& in, vfuzz::placement where, bool is_420) {
    const int32_t w = in.range(1, 40);
    const int32_t h = in.range(-1, 20);
    // Even counts up to w; an odd count only below w, where its last block still fits the row.
    int32_t cols = in.range(-2, w);
    if (cols & 1 && cols >= w)
        cols -= 1;
    const int32_t rows_per = is_420 ? 8 : 16;
    size_t src_reach = 0, dst_reach = 0;
    if (h >= 1 && cols >= 1) {
        const int32_t last_sx = (cols - 1) / 2 * 2;
        const int32_t last_col = last_sx + 2 < w ? last_sx + 2 : last_sx + 1;
        src_reach = static_cast<size_t>(h - 1) * w + last_col + 1;
        dst_reach = static_cast<size_t>(rows_per * h - 1) * 8 * w + 8 * last_sx + 16;
    }
    buffer src(src_reach, where);
    vfuzz::fill(src.data(), src_reach, in);
    twin_out dst(dst_reach, where, in);
    if (is_420) {
        upsample_uv420_neon(dst.vec.data(), src.data(), w, h, cols);
        upsample_uv420_c(dst.ref.data(), src.data(), w, h, cols);
        dst.check("upsample_uv420_neon");
    } else {
        upsample_uv_neon(dst.vec.data(), src.data(), w, h, cols);
        upsample_uv_c(dst.ref.data(), src.data(), w, h, cols);
        dst.check("upsample_uv_neon");
    }
    src.expect_intact("upsample chroma core source");
}

void chroma_wrapper(fuzz_input& in, vfuzz::placement where, bool is_420) {
    const int32_t w = in.range(1, 40);
    const int32_t h = in.range(-1, 20);
    const int32_t rows = h > 0 ? (is_420 ? 8 : 16) * h : 0;
    const size_t src_n = h > 0 ? static_cast<size_t>(w) * h : 0;
    buffer src(src_n, where);
    vfuzz::fill(src.data(), src_n, in);
    twin_out dst(static_cast<size_t>(rows) * 8 * w, where, in);
    upsample_args rec = {};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = src.data();
    rec.chroma_dst = dst.vec.data();
    upsample_args ref = rec;
    ref.chroma_dst = dst.ref.data();
    if (is_420) {
        if (upsample_uv420(&rec) != &rec)
            vfuzz::fail("upsample_uv420 did not return its record");
        upsample_uv420_with(&ref, upsample_uv420_c);
        dst.check("upsample_uv420");
    } else {
        if (upsample_uv422(&rec) != &rec)
            vfuzz::fail("upsample_uv422 did not return its record");
        upsample_uv422_with(&ref, upsample_uv_c);
        dst.check("upsample_uv422");
    }
}

void luma(fuzz_input& in, vfuzz::placement where) {
    const int32_t w = in.range(-1, 24);
    const int32_t h = in.range(-1, 16);
    const bool empty = w < 1 || h < 1;
    const size_t src_n = empty ? 0 : static_cast<size_t>(w) * h;
    buffer src(src_n, where);
    vfuzz::fill(src.data(), src_n, in);
    twin_out dst(src_n * 256, where, in);
    if (in.flag()) {
        upsample_y_neon(dst.vec.data(), src.data(), w, h);
    } else {
        upsample_args rec = {};
        rec.width = w;
        rec.height = h;
        rec.luma_src = src.data();
        rec.luma_dst = dst.vec.data();
        if (upsample_y(&rec) != &rec)
            vfuzz::fail("upsample_y did not return its record");
    }
    upsample_y_c(dst.ref.data(), src.data(), w, h);
    dst.check("upsample_y_neon");
}

// The scalar reference has no twin. Its weights are never negative, so it must log nothing.
void reference(fuzz_input& in, vfuzz::placement where) {
    const int32_t rows = in.range(-1, 20);
    const int32_t cols = in.range(-1, 20);
    const size_t n = rows > 0 && cols > 0 ? static_cast<size_t>(rows) * cols : 0;
    buffer src(n, where);
    vfuzz::fill(src.data(), n, in);
    buffer dst(n * 128, where);
    vfuzz::log_reset();
    const int32_t r = uv_upsample(src.data(), dst.data(), rows, cols);
    dst.expect_intact("uv_upsample");
    if (r != 16 * rows)
        vfuzz::fail("uv_upsample(%d, %d) returned %d", rows, cols, r);
    if (vfuzz::log_count() != 0)
        vfuzz::fail("uv_upsample logged %d lines for byte samples", vfuzz::log_count());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_input in(data, size);
    const int which = in.range(0, 5);
    const vfuzz::placement where = in.flag() ? vfuzz::placement::heap : vfuzz::placement::page_end;
    switch (which) {
        case 0:
        case 1:
            chroma_core(in, where, which == 0);
            break;
        case 2:
        case 3:
            chroma_wrapper(in, where, which == 2);
            break;
        case 4:
            luma(in, where);
            break;
        case 5:
            reference(in, where);
            break;
    }
    return 0;
}
