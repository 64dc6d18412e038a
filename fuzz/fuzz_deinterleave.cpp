// Fuzz target of the deinterleave kernels: NV21 chroma decimation, packed 4:2:2 luma copy and
// chroma decimation (full and chroma-only first band) and the scalar decimator. Bounds go from
// nothing (zero or negative) through ragged heights to whole planes; every buffer ends where the
// kernel's documented reach ends, so one byte too far faults. Vector and scalar twins run on
// copies and must agree on every byte.
#include <string.h>

#include "fuzz_support.h"
#include "resample/deinterleave.h"

using vfuzz::buffer;
using vfuzz::fuzz_input;

namespace {

using vfuzz::plane_reach;
using vfuzz::twin_out;

int32_t round_up(int32_t v, int32_t m) {
    return (v + m - 1) / m * m;
}

// A width bound: mostly whole 128-column steps, sometimes a ragged one (covered in whole steps,
// so the row must hold it rounded up), sometimes nothing at all.
int32_t width_bound(fuzz_input& in, int32_t width) {
    switch (in.range(0, 3)) {
        case 0:
            return in.range(-1, 0) * 128;
        case 1:
            return round_up(in.range(1, width), 16) & (width >= 128 ? ~0 : 0);
        default:
            return width / 128 * 128 - in.range(0, width / 128 > 1 ? 1 : 0) * 128;
    }
}

void nv21(fuzz_input& in, vfuzz::placement where) {
    const int32_t stride = 16 * in.range(1, 80);
    int32_t wb = width_bound(in, stride);
    if (round_up(wb, 128) > stride)
        wb = stride / 128 * 128;
    const int32_t hb = in.range(-16, 160);
    const int32_t covered = wb > 0 ? round_up(wb, 128) : 0;
    const int32_t bands = hb > 0 ? round_up(hb, 16) / 16 : 0;
    // VU rows 0, 8, 16, ... are read: the last one is row 8 * (bands - 1).
    const size_t vu_reach = bands ? plane_reach(8 * (bands - 1) + 1, covered, stride) : 0;
    buffer vu(vu_reach, where);
    vfuzz::fill(vu.data(), vu_reach, in);
    const size_t out_reach = plane_reach(bands, covered / 16, stride / 16);
    twin_out first(out_reach, where, in), second(out_reach, where, in);
    deinterleave_yuv420_uv_downsample_neon(first.vec.data(), second.vec.data(), vu.data(), wb, hb,
                                           stride);
    deinterleave_yuv420_uv_downsample_c(first.ref.data(), second.ref.data(), vu.data(), wb, hb,
                                        stride);
    first.check("deinterleave_yuv420_uv_downsample_neon first_out");
    second.check("deinterleave_yuv420_uv_downsample_neon second_out");
    vu.expect_intact("deinterleave_yuv420_uv_downsample_neon vu_in");
}

// The full 4:2:2 kernel, or the chroma-only one that skips the luma of its first band.
void packed(fuzz_input& in, vfuzz::placement where, bool chroma_first_band) {
    const int32_t width = 16 * in.range(1, 80);
    int32_t wb = width_bound(in, width);
    if (round_up(wb, 128) > width)
        wb = width / 128 * 128;
    const int32_t hb = in.range(-16, 100);
    const int32_t covered = wb > 0 ? round_up(wb, 128) : 0;
    const int32_t rows = hb > 0 ? round_up(hb, 16) : 0;
    // The chroma-only kernel reads row 0 alone from the first band and writes no luma there.
    const bool one_row = chroma_first_band && rows == 16;
    const size_t in_reach =
        one_row ? static_cast<size_t>(2 * covered) : plane_reach(rows, 2 * covered, 2 * width);
    const size_t y_reach = chroma_first_band && rows <= 16 ? 0 : plane_reach(rows, covered, width);
    buffer src(in_reach, where);
    vfuzz::fill(src.data(), in_reach, in);
    const size_t c_reach = plane_reach(rows / 16, covered / 16, width / 16);
    twin_out y(y_reach, where, in), first(c_reach, where, in), second(c_reach, where, in);
    if (chroma_first_band) {
        deinterleave_uv422_uv_downsample_neon(y.vec.data(), first.vec.data(), second.vec.data(),
                                              src.data(), width, hb, wb);
        deinterleave_uv422_uv_downsample_c(y.ref.data(), first.ref.data(), second.ref.data(),
                                           src.data(), width, hb, wb);
    } else {
        deinterleave_yuv422_uv_downsample_neon(y.vec.data(), first.vec.data(), second.vec.data(),
                                               src.data(), width, hb, wb);
        deinterleave_yuv422_uv_downsample_c(y.ref.data(), first.ref.data(), second.ref.data(),
                                            src.data(), width, hb, wb);
    }
    y.check("deinterleave 4:2:2 y_out");
    first.check("deinterleave 4:2:2 first_out");
    second.check("deinterleave 4:2:2 second_out");
    src.expect_intact("deinterleave 4:2:2 packed_in");
}

// No twin: the decimator must stay inside both planes for any size.
void decimator(fuzz_input& in, vfuzz::placement where) {
    const int32_t rows = in.range(-16, 80);
    const int32_t row_len = in.range(-8, 300);
    const int32_t k = rows >> 4, j = row_len >> 3;
    const size_t src_reach =
        k >= 1 && j >= 1 ? static_cast<size_t>(16) * row_len * (k - 1) + 8 * (j - 1) + 1 : 0;
    buffer src(src_reach, where);
    vfuzz::fill(src.data(), src_reach, in);
    buffer dst(k >= 1 && j >= 1 ? static_cast<size_t>(k) * j : 0, where);
    uv_downsample(src.data(), dst.data(), rows, row_len);
    dst.expect_intact("uv_downsample dst");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_input in(data, size);
    const int which = in.range(0, 3);
    const vfuzz::placement where = in.flag() ? vfuzz::placement::heap : vfuzz::placement::page_end;
    switch (which) {
        case 0:
            nv21(in, where);
            break;
        case 1:
            packed(in, where, false);
            break;
        case 2:
            packed(in, where, true);
            break;
        case 3:
            decimator(in, where);
            break;
    }
    return 0;
}
