// Twin cases of the filters kernels: the box filter and the 7x7 bilateral centre against their
// scalar twins, on random sizes across and below the sizes the fast paths need, every content
// pattern per size, inputs and outputs in page-end buffers.
#include <string.h>

#include <string>
#include <utility>
#include <vector>

#include "filters/bilateral.h"
#include "filters/box_filter.h"
#include "twin/twin.h"

namespace {

// Heights: a third below the 64-row running-sum minimum, a third around it, the rest up to
// 400 rows. The job runs on a strip at column `offset` of a wider plane (nothing else may
// change) against box_filter_column_c on every strip column. box_filter_col_neon runs against
// box_filter_col_c on a plane that ends right after its last whole block, the last byte it may
// touch.
template <bool job>
bool box_trial(twin::context& ctx) {
    vtest::rng& r = ctx.r;
    const int width = r.range(0, 4) == 0 ? r.range(0, 40) : r.range(32, 260);
    const int band = r.range(0, 2);
    const int height = band == 0 ? r.range(1, 63) : band == 1 ? r.range(61, 67) : r.range(68, 400);
    const int offset = job && r.range(0, 1) ? r.range(1, 48) : 0;
    const int stride = offset + width + (r.range(0, 1) ? 0 : r.range(1, 40)) + (width == 0);
    const int last_row = job ? stride : (width & ~31) > 0 ? width & ~31 : 1;
    for (int kind = 0; kind < 9; ++kind) {
        const twin::input src(last_row, height, r, stride, kind);
        const std::string what = src.label(width, height) + " stride " + std::to_string(stride) +
                                 " offset " + std::to_string(offset);
        if (!twin::twins(ctx, what, {src.size(), src.size()}, [&](bool v, uint8_t** o) {
                if (!job) {
                    (v ? box_filter_col_neon : box_filter_col_c)(src.data(), o[0], o[1], stride,
                                                                 height, width);
                } else if (v) {
                    box_filter_band(src.data() + offset, o[0] + offset, o[1] + offset, stride,
                                    height, width);
                }
                for (int x = offset; job && !v && x < offset + width; ++x)
                    box_filter_column_c(src.data() + x, o[0] + x, o[1] + x, stride, height);
            }))
            return false;
    }
    return true;
}

// `run(vector, src, dst)` on the same plane in every pattern.
template <typename Run>
bool bilateral_pair(twin::context& ctx, const std::string& what, int height, int width, Run run) {
    for (int kind = 0; kind < 9; ++kind) {
        const twin::input src(width, height, ctx.r, 0, kind);
        if (!twin::twins(ctx, what + " " + src.label(width, height), {src.size()},
                         [&](bool v, uint8_t** o) { run(v, src.data(), o[0]); }))
            return false;
    }
    return true;
}

// A quarter of the planes below 7 rows or 14 columns, where the split does not apply.
int plane_size(vtest::rng& r, int small, int large) {
    return r.range(0, 3) == 0 ? r.range(1, small) : r.range(1, large);
}

// Mostly the margins bilateral_filter_span3 passes, otherwise arbitrary ones, including some
// that would put windows outside the plane.
bool span3_center_trial(twin::context& ctx) {
    vtest::rng& r = ctx.r;
    const int height = plane_size(r, 8, 60), width = plane_size(r, 16, 140);
    const int m = width - ((width - 6) & ~7);
    int t = 3, b = 3, left = m / 2, right = m - m / 2;
    if (r.range(0, 2) == 0 || width < 6) {
        t = r.range(-4, 12);
        b = r.range(-4, 12);
        left = r.range(-12, 20);
        right = r.range(-4, 20);
    }
    const std::string what = "margins " + std::to_string(t) + "," + std::to_string(b) + "," +
                             std::to_string(left) + "," + std::to_string(right);
    return bilateral_pair(ctx, what, height, width, [&](bool v, const uint8_t* s, uint8_t* d) {
        (v ? bilateral_filter_span3_center_neon : bilateral_filter_span3_center_c)(
            s, d, height, width, t, b, left, right);
    });
}

// The whole 7x7 filter with the vector centre against the scalar method on every pixel.
bool span3_plane_trial(twin::context& ctx) {
    const int height = plane_size(ctx.r, 9, 80), width = plane_size(ctx.r, 16, 160);
    return bilateral_pair(ctx, "plane", height, width, [&](bool v, const uint8_t* s, uint8_t* d) {
        if (v)
            bilateral_filter_span3(s, d, height, width);
        else
            bilateral_filter_rect_c(s, d, height, width, 3, 3, range_weight_span3,
                                    {0, 0, height, width});
    });
}

// The general entry against the scalar method with the general table, any spans; spans (3, 3)
// must take the 7x7 path.
bool general_trial(twin::context& ctx) {
    const int height = ctx.r.range(-1, 24), width = ctx.r.range(-1, 24);
    const int sy = ctx.r.range(-1, 5), sx = ctx.r.range(-1, 5);
    const int32_t* table = sy == 3 && sx == 3 ? range_weight_span3 : range_weight_general;
    const std::string what = "spans " + std::to_string(sy) + "," + std::to_string(sx);
    return bilateral_pair(ctx, what, height, width, [&](bool v, const uint8_t* s, uint8_t* d) {
        if (v)
            bilateral_filter(s, d, height, width, sy, sx);
        else if (height > 0 && width > 0)
            bilateral_filter_rect_c(s, d, height, width, sy, sx, table, {0, 0, height, width});
    });
}

// ---- bench: the sizes of a 1920x1088 frame
// ---------------------------------------------------

struct planes {
    std::vector<uint8_t> src, a, b;
    planes(int w, int h) : src(w * h), a(w * h), b(w * h) {
        vtest::rng r(7);
        vtest::fill_plane(src.data(), w, h, w, vtest::pattern::random, r);
    }
};

// One of the four 480-column bands of the luma plane.
void box_filter_col_bench(twin::bench_timer& timer) {
    planes p(1920, 1088);
    timer.pair("480x1088 band of 1920", 480 * 1088, [&](bool v) {
        (v ? box_filter_col_neon : box_filter_col_c)(p.src.data(), p.a.data(), p.b.data(), 1920,
                                                     1088, 480);
    });
}

// A 1440-wide frame: bands of 360 columns, 11 vector blocks and an 8-column scalar tail.
void box_filter_band_bench(twin::bench_timer& timer) {
    planes p(1440, 1088);
    timer.pair("360x1088 band of 1440", 360 * 1088, [&](bool v) {
        if (v)
            box_filter_band(p.src.data(), p.a.data(), p.b.data(), 1440, 1088, 360);
        for (int x = 0; x < 360 && !v; ++x)
            box_filter_column_c(p.src.data() + x, p.a.data() + x, p.b.data() + x, 1440, 1088);
    });
}

void span3_center_bench(twin::bench_timer& timer) {
    planes p(120, 68);
    timer.pair("120x68", 120 * 68, [&](bool v) {
        (v ? bilateral_filter_span3_center_neon : bilateral_filter_span3_center_c)(
            p.src.data(), p.a.data(), 68, 120, 3, 3, 4, 4);  // the margins of width 120
    });
}

// Whole planes of 1920x1088 and 3840x2160: the scalar side is the scalar border with the
// scalar centre.
void span3_plane_bench(twin::bench_timer& timer) {
    const int sizes[2][2] = {{120, 68}, {240, 135}};
    for (const auto& size : sizes) {
        const int w = size[0], h = size[1];
        planes p(w, h);
        timer.pair(std::to_string(w) + "x" + std::to_string(h), w * h, [&](bool v) {
            if (v)
                bilateral_filter_span3(p.src.data(), p.a.data(), h, w);
            else
                bilateral_filter_span3_with(p.src.data(), p.a.data(), h, w,
                                            bilateral_filter_span3_center_c);
        });
    }
}

const twin::twin_case kCases[] = {
    {"box_filter_col", box_trial<false>, box_filter_col_bench},
    {"box_filter_band", box_trial<true>, box_filter_band_bench},
    {"bilateral_filter_span3_center", span3_center_trial, span3_center_bench},
    {"bilateral_filter_span3_plane", span3_plane_trial, span3_plane_bench},
    {"bilateral_filter", general_trial, nullptr},
};
const twin::registrar reg(kCases);

}  // namespace
