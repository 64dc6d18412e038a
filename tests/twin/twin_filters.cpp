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

using vtest::guarded;

// Outputs start with this value, so that writes outside the expected area show as differences.
constexpr uint8_t kUnwritten = 0x5A;

std::string dims(int width, int height, int stride, vtest::pattern p) {
    return std::to_string(width) + "x" + std::to_string(height) + " stride " +
           std::to_string(stride) + " " + vtest::pattern_name(p);
}

box_filter_job job_of(const uint8_t* src, uint8_t* low, uint8_t* high, int stride, int height,
                      int width) {
    box_filter_job j{};
    j.stride = stride;
    j.height = height;
    j.width = width;
    j.source = src;
    j.low = low;
    j.high = high;
    return j;
}

// A third below the 64-row running-sum minimum, a third around it, the rest up to 400 rows.
int box_height(vtest::rng& r) {
    const int band = r.range(0, 2);
    return band == 0 ? r.range(1, 63) : band == 1 ? r.range(61, 67) : r.range(68, 400);
}

// The job runs on a strip at column `offset` of a wider plane (nothing else may change) against
// box_filter_column_c on every strip column. box_filter_col_neon runs against box_filter_col_c
// on a plane that ends right after its last whole block, the last byte it may touch.
bool box_trial(twin::context& ctx, bool job) {
    vtest::rng& r = ctx.r;
    const int width = r.range(0, 4) == 0 ? r.range(0, 40) : r.range(32, 260);
    const int height = box_height(r);
    const int offset = job && r.range(0, 1) ? r.range(1, 48) : 0;
    const int stride = offset + width + (r.range(0, 1) ? 0 : r.range(1, 40)) + (width == 0);
    const int last_row = job ? stride : (width & ~31) > 0 ? width & ~31 : 1;
    const size_t bytes = static_cast<size_t>(stride) * (height - 1) + last_row;
    guarded src(bytes), low_c(bytes), high_c(bytes), low_v(bytes), high_v(bytes);
    for (vtest::pattern p : vtest::all_patterns) {
        memset(src.data(), 0, bytes);
        vtest::fill_plane(src.data(), last_row, height, stride, p, r);
        for (guarded* g : {&low_c, &high_c, &low_v, &high_v})
            memset(g->data(), kUnwritten, bytes);
        if (job) {
            for (int x = offset; x < offset + width; ++x)
                box_filter_column_c(src.data() + x, low_c.data() + x, high_c.data() + x, stride,
                                    height);
            box_filter_job j = job_of(src.data() + offset, low_v.data() + offset,
                                      high_v.data() + offset, stride, height, width);
            box_filter_run_job(&j);
        } else {
            box_filter_col_c(src.data(), low_c.data(), high_c.data(), stride, height, width);
            box_filter_col_neon(src.data(), low_v.data(), high_v.data(), stride, height, width);
        }
        const std::string what =
            dims(width, height, stride, p) + " offset " + std::to_string(offset);
        // All rows but the last at full stride, then the last row's bytes.
        const size_t tail = bytes - last_row;
        for (auto o : {std::make_pair(&low_c, &low_v), std::make_pair(&high_c, &high_v)}) {
            const uint8_t* c = o.first->data();
            const uint8_t* v = o.second->data();
            const std::string plane = what + (o.first == &low_c ? " low" : " high");
            if (!ctx.same(c, v, stride, height - 1, stride, plane) ||
                !ctx.same(c + tail, v + tail, last_row, 1, last_row, plane + ", last row") ||
                !ctx.intact(*o.second, plane))
                return false;
        }
    }
    return true;
}

bool box_filter_col_trial(twin::context& ctx) {
    return box_trial(ctx, false);
}

bool box_filter_run_job_trial(twin::context& ctx) {
    return box_trial(ctx, true);
}

// Runs `scalar` and `vector` on the same plane for every pattern and compares the outputs.
template <typename Scalar, typename Vector>
bool bilateral_pair(twin::context& ctx, const std::string& what, int height, int width,
                    Scalar scalar, Vector vector) {
    const size_t bytes = static_cast<size_t>(width) * height;
    guarded src(bytes), out_c(bytes), out_v(bytes);
    for (vtest::pattern p : vtest::all_patterns) {
        vtest::fill_plane(src.data(), width, height, width, p, ctx.r);
        memset(out_c.data(), kUnwritten, bytes);
        memset(out_v.data(), kUnwritten, bytes);
        scalar(src.data(), out_c.data());
        vector(src.data(), out_v.data());
        const std::string where = what + " " + dims(width, height, width, p);
        if (!ctx.same(out_c.data(), out_v.data(), width, height, width, where) ||
            !ctx.intact(out_v, where))
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
    return bilateral_pair(
        ctx, what, height, width,
        [&](const uint8_t* s, uint8_t* d) {
            bilateral_filter_span3_center_c(s, d, height, width, t, b, left, right);
        },
        [&](const uint8_t* s, uint8_t* d) {
            bilateral_filter_span3_center_neon(s, d, height, width, t, b, left, right);
        });
}

// The whole 7x7 filter with the vector centre against the scalar method on every pixel.
bool span3_plane_trial(twin::context& ctx) {
    const int height = plane_size(ctx.r, 9, 80), width = plane_size(ctx.r, 16, 160);
    return bilateral_pair(
        ctx, "plane", height, width,
        [&](const uint8_t* s, uint8_t* d) {
            bilateral_filter_rect_c(s, d, height, width, 3, 3, range_weight_span3,
                                    {0, 0, height, width});
        },
        [&](const uint8_t* s, uint8_t* d) { bilateral_filter_span3(s, d, height, width); });
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
void box_filter_run_job_bench(twin::bench_timer& timer) {
    planes p(1440, 1088);
    box_filter_job job = job_of(p.src.data(), p.a.data(), p.b.data(), 1440, 1088, 360);
    timer.pair("360x1088 band of 1440", 360 * 1088, [&](bool v) {
        if (v)
            box_filter_run_job(&job);
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

// Whole planes: the scalar side is the same split with the scalar centre.
void span3_plane_bench(twin::bench_timer& timer) {
    planes p(120, 68);
    timer.pair("120x68", 120 * 68, [&](bool v) {
        bilateral_filter_span3_with(
            p.src.data(), p.a.data(), 68, 120,
            v ? bilateral_filter_span3_center_neon : bilateral_filter_span3_center_c);
    });
}

const twin::twin_case kCases[] = {
    {"box_filter_col", box_filter_col_trial, box_filter_col_bench},
    {"box_filter_run_job", box_filter_run_job_trial, box_filter_run_job_bench},
    {"bilateral_filter_span3_center", span3_center_trial, span3_center_bench},
    {"bilateral_filter_span3_plane", span3_plane_trial, span3_plane_bench},
};
const twin::registrar reg(kCases);

}  // namespace
