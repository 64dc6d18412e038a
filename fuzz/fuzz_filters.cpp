// Fuzz target of the smoothing filters: the box filter (vector blocks, scalar columns, a whole
// strip job) and the bilateral filter (7x7 path with either centre twin, the centre routine on
// its own with any margins, the general path). Plane sizes go below every kernel's minimum
// (box filter 65 rows and 32 columns, bilateral 7 rows and 14 columns); buffers end where the
// call's documented reach ends. Vector and scalar twins run on copies and must agree on every
// byte of their buffers, including the bytes they must not touch.
#include <string.h>

#include <vector>

#include "filters/bilateral.h"
#include "filters/box_filter.h"
#include "fuzz_support.h"

using vfuzz::buffer;
using vfuzz::fuzz_input;

namespace {

using vfuzz::plane_reach;
using vfuzz::twin_out;

void box_blocks(fuzz_input& in, vfuzz::placement where) {
    const int32_t height = in.range(-2, 300);
    const int32_t width = in.range(-2, 160);
    const int32_t stride = (width > 0 ? width : 0) + in.range(0, 40);
    const size_t reach = plane_reach(height, width & ~31, stride);
    buffer src(reach, where);
    vfuzz::fill(src.data(), reach, in);
    twin_out low(reach, where, in), high(reach, where, in);
    box_filter_col_neon(src.data(), low.vec.data(), high.vec.data(), stride, height, width);
    box_filter_col_c(src.data(), low.ref.data(), high.ref.data(), stride, height, width);
    low.check("box_filter_col_neon low");
    high.check("box_filter_col_neon high");
    src.expect_intact("box_filter_col_neon source");
}

// A whole strip job: vector blocks plus scalar columns, compared with scalar columns only.
void box_job(fuzz_input& in, vfuzz::placement where) {
    const int32_t height = in.range(-1, 300);
    const int32_t width = in.range(-1, 100);
    const int32_t stride = (width > 0 ? width : 0) + in.range(0, 40);
    const size_t reach = plane_reach(height, width, stride);
    buffer src(reach, where);
    vfuzz::fill(src.data(), reach, in);
    twin_out low(reach, where, in), high(reach, where, in);
    box_filter_band(src.data(), low.vec.data(), high.vec.data(), stride, height, width);
    if (height >= 1) {
        for (int32_t x = 0; x < width; ++x)
            box_filter_column_c(src.data() + x, low.ref.data() + x, high.ref.data() + x, stride,
                                height);
    }
    low.check("box_filter_band low");
    high.check("box_filter_band high");
}

void bilateral_span3(fuzz_input& in, vfuzz::placement where) {
    const int32_t height = in.range(0, 48);
    const int32_t width = in.range(0, 72);
    const size_t n = static_cast<size_t>(height) * width;
    buffer src(n, where);
    vfuzz::fill(src.data(), n, in);
    twin_out dst(n, where, in);
    bilateral_filter_span3(src.data(), dst.vec.data(), height, width);
    bilateral_filter_span3_with(src.data(), dst.ref.data(), height, width,
                                bilateral_filter_span3_center_c);
    dst.check("bilateral_filter_span3");
    src.expect_intact("bilateral_filter_span3 source");
}

// The centre routine alone, with margins that leave the band empty, cut it short or reach the
// border.
void bilateral_centre(fuzz_input& in, vfuzz::placement where) {
    const int32_t height = in.range(0, 40);
    const int32_t width = in.range(0, 64);
    const int32_t top = in.range(-4, 12), bottom = in.range(-4, 12);
    const int32_t left = in.range(-4, 20), right = in.range(-4, 20);
    const size_t n = static_cast<size_t>(height) * width;
    buffer src(n, where);
    vfuzz::fill(src.data(), n, in);
    twin_out dst(n, where, in);
    bilateral_filter_span3_center_neon(src.data(), dst.vec.data(), height, width, top, bottom, left,
                                       right);
    bilateral_filter_span3_center_c(src.data(), dst.ref.data(), height, width, top, bottom, left,
                                    right);
    dst.check("bilateral_filter_span3_center_neon");
}

// The general path has no vector twin; with spans (3, 3) it must be the 7x7 path.
void bilateral_general(fuzz_input& in, vfuzz::placement where) {
    const int32_t height = in.range(-1, 24);
    const int32_t width = in.range(0, 24);
    const int32_t span_y = in.range(-1, 5), span_x = in.range(-1, 5);
    const size_t n = height > 0 ? static_cast<size_t>(height) * width : 0;
    buffer src(n, where);
    vfuzz::fill(src.data(), n, in);
    twin_out dst(n, where, in);
    bilateral_filter(src.data(), dst.vec.data(), height, width, span_y, span_x);
    dst.vec.expect_intact("bilateral_filter");
    if (span_y == 3 && span_x == 3) {
        bilateral_filter_span3(src.data(), dst.ref.data(), height, width);
        dst.check("bilateral_filter (3, 3)");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_input in(data, size);
    const int which = in.range(0, 4);
    const vfuzz::placement where = in.flag() ? vfuzz::placement::heap : vfuzz::placement::page_end;
    switch (which) {
        case 0:
            box_blocks(in, where);
            break;
        case 1:
            box_job(in, where);
            break;
        case 2:
            bilateral_span3(in, where);
            break;
        case 3:
            bilateral_centre(in, where);
            break;
        case 4:
            bilateral_general(in, where);
            break;
    }
    return 0;
}
