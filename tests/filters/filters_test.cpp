// Box filter: every height against the definition (64 weights, mirror border), and sizes that
// must write nothing. The vector blocks against their scalar twins, strips at any offset and
// small planes in page-end buffers are the twin harness's part.
// Bilateral filter: the definition on every size class (flat planes, impulses and steps among
// the patterns), the range cut-off of both tables, the centre routine's band and the
// element-wise helpers.
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filters/bilateral.h"
#include "filters/box_filter.h"
#include "support/frames.h"

namespace {

constexpr uint8_t kUnwritten = 0x5A;

// Mirror about the first and last row, repeated until inside; a loop, independent of the
// library's closed form.
int reflect(int r, int n) {
    while (n > 1 && (r < 0 || r >= n))
        r = r < 0 ? -r : 2 * (n - 1) - r;
    return n > 1 ? r : 0;
}

// Rows y - 31 .. y + 31 plus the centre again, rounded half up; then the detail.
void box_reference(const uint8_t* src, uint8_t* low, uint8_t* high, int stride, int height,
                   int width) {
    for (int x = 0; x < width; ++x) {
        for (int y = 0; y < height; ++y) {
            int sum = src[y * stride + x];
            for (int k = -31; k <= 31; ++k)
                sum += src[reflect(y + k, height) * stride + x];
            const int l = (sum + 32) / 64, h = src[y * stride + x] + 128 - l;
            low[y * stride + x] = static_cast<uint8_t>(l);
            high[y * stride + x] = static_cast<uint8_t>(h < 0 ? 0 : h > 255 ? 255 : h);
        }
    }
}

enum entry { vector_blocks, scalar_blocks, job };
const char* const entry_names[] = {"box_filter_col_neon", "box_filter_col_c", "box_filter_band"};

int owned_columns(entry e, int width) {
    return e == job ? width : width & ~31;
}

void run(entry e, const uint8_t* src, uint8_t* low, uint8_t* high, int stride, int height,
         int width) {
    if (e == vector_blocks)
        box_filter_col_neon(src, low, high, stride, height, width);
    if (e == scalar_blocks)
        box_filter_col_c(src, low, high, stride, height, width);
    if (e != job)
        return;
    box_filter_band(src, low, high, stride, height, width);
}

// Heights 1..70 cover the repeated mirror, the 64-row running-sum minimum and the 65 rows of
// the vector phases; widths with and without a scalar tail, and one below a whole block. The
// row padding and the columns an entry does not own must stay untouched; no rows or columns
// (zero or negative) write nothing.
TEST(BoxFilter, MatchesDefinitionForEveryHeight) {
    vtest::rng r(1234);
    for (int h = 1; h <= 130; h += h < 70 ? 1 : 30) {
        for (int w : {31, 32, 45, 71}) {
            const int stride = w + 5;
            std::vector<uint8_t> src(stride * h);
            const vtest::pattern p = vtest::all_patterns[h % 9];
            vtest::fill_plane(src.data(), stride, h, stride, p, r);
            for (entry e : {vector_blocks, scalar_blocks, job}) {
                std::vector<uint8_t> want_low(src.size(), kUnwritten), want_high(want_low);
                std::vector<uint8_t> low(want_low), high(want_low);
                box_reference(src.data(), want_low.data(), want_high.data(), stride, h,
                              owned_columns(e, w));
                run(e, src.data(), low.data(), high.data(), stride, h, w);
                const std::string what = std::string(entry_names[e]) + " " + std::to_string(w) +
                                         "x" + std::to_string(h) + " " + vtest::pattern_name(p);
                ASSERT_EQ("", vtest::first_difference(want_low.data(), low.data(), stride, h,
                                                      stride, (what + " low").c_str()));
                ASSERT_EQ("", vtest::first_difference(want_high.data(), high.data(), stride, h,
                                                      stride, (what + " high").c_str()));
            }
        }
    }
    const int empty[][2] = {{40, 0}, {40, -3}, {0, 70}, {-8, 70}};  // width, height
    const std::vector<uint8_t> src(40 * 100, 9), untouched(src.size(), kUnwritten);
    for (entry e : {vector_blocks, scalar_blocks, job}) {
        for (const auto& size : empty) {
            std::vector<uint8_t> low(untouched), high(untouched);
            run(e, src.data(), low.data(), high.data(), 40, size[1], size[0]);
            EXPECT_TRUE(low == untouched && high == untouched) << entry_names[e] << " " << size[0];
        }
    }
}

using plane = std::vector<uint8_t>;

struct spans {
    int y, x;
};

std::string label(int height, int width, spans s) {
    return std::to_string(width) + "x" + std::to_string(height) + " spans " + std::to_string(s.y) +
           "," + std::to_string(s.x);
}

// bilateral_filter (which hands spans 3, 3 to bilateral_filter_span3) on page-end buffers, so
// that reads or writes past the plane fault and writes before it are caught.
plane filter(const plane& src, int height, int width, spans s) {
    vtest::guarded in(src.size()), out(src.size());
    if (!src.empty()) {  // an empty plane has no buffer to copy from
        memcpy(in.data(), src.data(), src.size());
        memset(out.data(), kUnwritten, src.size());
    }
    bilateral_filter(in.data(), out.data(), height, width, s.y, s.x);
    EXPECT_TRUE(out.front_intact()) << label(height, width, s);
    return plane(out.data(), out.data() + src.size());
}

// The definition pixel by pixel: table weights, starting weight 1, mirror by reflect(),
// truncating division.
plane reference(const plane& src, int height, int width, spans s) {
    const int32_t* range = s.y == 3 && s.x == 3 ? range_weight_span3 : range_weight_general;
    plane out(src.size());
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int c = src[y * width + x];
            int64_t value = 0, weight = 1;
            for (int dy = -s.y; dy <= s.y; ++dy) {
                for (int dx = -s.x; dx <= s.x; ++dx) {
                    const int n = src[reflect(y + dy, height) * width + reflect(x + dx, width)];
                    const int d = c > n ? c - n : n - c, dist = abs(dy) + abs(dx);
                    const int64_t w =
                        range[d < 15 ? d : 15] * spatial_weight[dist < 15 ? dist : 15];
                    weight += w;
                    value += w * n;
                }
            }
            out[y * width + x] = static_cast<uint8_t>(value / weight);
        }
    }
    return out;
}

// Planes below the 7x7 limits (mirror repeated), the split sizes around them, general spans up
// to beyond the spatial cut-off at distance 15, a negative span (an empty window: 0 / 1) and
// empty planes, whose page-end buffers fault on any write.
TEST(Bilateral, MatchesDefinition) {
    const struct {
        int height, width;
        spans s;
    } cases[] = {
        {1, 1, {3, 3}},   {2, 3, {3, 3}},   {3, 16, {3, 3}},  {6, 14, {3, 3}},  {7, 13, {3, 3}},
        {7, 14, {3, 3}},  {9, 17, {3, 3}},  {23, 61, {3, 3}}, {4, 9, {5, 2}},   {2, 5, {6, 6}},
        {3, 40, {1, 18}}, {20, 20, {9, 9}}, {12, 30, {3, 2}}, {12, 30, {2, 3}}, {12, 30, {0, 0}},
        {4, 5, {-1, 2}},  {0, 4, {3, 3}},   {4, 0, {2, 2}},
    };
    vtest::rng r(8);
    for (const auto& c : cases) {
        for (vtest::pattern p : vtest::all_patterns) {
            plane src(c.height * c.width);
            vtest::fill_plane(src.data(), c.width, c.height, c.width, p, r);
            const std::string what = label(c.height, c.width, c.s) + " " + vtest::pattern_name(p);
            ASSERT_EQ("", vtest::first_difference(reference(src, c.height, c.width, c.s).data(),
                                                  filter(src, c.height, c.width, c.s).data(),
                                                  c.width, c.height, c.width, what.c_str()));
        }
    }
}

// 100 left of column 20, 100 + step from it. Unmixed, the 100 side gives 99 (flat plane); with
// any weight W' >= 8 from the other side, (100 W + (100 + step) W') / (1 + W + W') >= 100.
// The 7x7 table gives 13 weight 0, the general one weight 1.
TEST(Bilateral, StepAtTheRangeCutOff) {
    const struct {
        spans s;
        int step, left_of_edge;
    } cases[] = {{{3, 3}, 12, 100}, {{3, 3}, 13, 99}, {{3, 3}, 40, 99}, {{3, 2}, 13, 100},
                 {{2, 3}, 13, 100}, {{3, 2}, 14, 99}, {{2, 3}, 14, 99}};
    const int height = 20, width = 40;
    for (const auto& c : cases) {
        plane src(height * width);
        for (int i = 0; i < height * width; ++i)
            src[i] = static_cast<uint8_t>(i % width < 20 ? 100 : 100 + c.step);
        const plane out = filter(src, height, width, c.s);
        for (int y = 0; y < height; ++y) {
            ASSERT_EQ(c.left_of_edge, out[y * width + 19]) << label(height, width, c.s);
            ASSERT_EQ(99, out[y * width + 15]) << "beyond the window's reach";
            if (c.left_of_edge == 99) {
                ASSERT_EQ(99 + c.step, out[y * width + 20]) << "the right side must not mix";
            }
        }
    }
}

// Width 14 with margins 3: columns 3..10 in one step; widths 6..13 give an empty band; top and
// bottom above 3 shrink the rows but not the window; margins that would put a window outside
// the plane lose only those steps, and the grid keeps its alignment (left -2: 6, 14, 22).
TEST(BilateralCentre, WritesExactlyItsBand) {
    const struct {
        int height, width, top, bottom, left, right;
        int row0, row1, col0, col1;  // written rectangle, inclusive; row0 > row1: nothing
    } cases[] = {
        {20, 14, 3, 3, 3, 3, 3, 16, 3, 10},  {20, 13, 3, 3, 3, 3, 1, 0, 0, 0},
        {6, 30, 3, 3, 3, 3, 1, 0, 0, 0},     {30, 40, 5, 6, 3, 3, 5, 23, 3, 34},
        {30, 40, 3, 3, -2, 3, 3, 26, 6, 29}, {30, 27, 3, 3, 3, 0, 3, 26, 3, 18},
    };
    vtest::rng r(17);
    for (const auto& c : cases) {
        plane src(c.height * c.width), full(src.size());
        vtest::fill_plane(src.data(), c.width, c.height, c.width, vtest::pattern::random, r);
        bilateral_filter_span3(src.data(), full.data(), c.height, c.width);
        plane want(src.size(), kUnwritten);
        for (int y = c.row0; y <= c.row1; ++y)
            for (int x = c.col0; x <= c.col1; ++x)
                want[y * c.width + x] = full[y * c.width + x];
        for (auto centre : {bilateral_filter_span3_center_neon, bilateral_filter_span3_center_c}) {
            plane out(src.size(), kUnwritten);
            centre(src.data(), out.data(), c.height, c.width, c.top, c.bottom, c.left, c.right);
            EXPECT_EQ("", vtest::first_difference(want.data(), out.data(), c.width, c.height,
                                                  c.width, "centre band"))
                << c.width << "x" << c.height << " margins " << c.top << "," << c.bottom << ","
                << c.left << "," << c.right;
        }
    }
}

// ---- element-wise helpers ------------------------------------------------------------------

void mul_arrays(int32_t* d, const int32_t* a, const int32_t* b, int32_t n) {
    vector_mul(d, a, b, n);
}
void mul_scalar(int32_t* d, const int32_t* a, const int32_t* b, int32_t n) {
    vector_mul(d, a, *b, n);
}
void shr(int32_t* d, const int32_t* a, const int32_t* b, int32_t n) {
    vector_shr(d, a, *b, n);
}

TEST(VectorHelpers, Arithmetic) {
    const struct {
        const char* name;
        void (*fn)(int32_t*, const int32_t*, const int32_t*, int32_t);
        int32_t a, b, want;
    } cases[] = {
        {"add wraps", vector_add, INT_MAX, 1, INT_MIN},
        {"mul keeps the low 32 bits", mul_arrays, 65536, 65536, 0},
        {"mul by a scalar wraps", mul_scalar, 0x40000001, 4, 4},
        {"sub_abs of a wrapped difference", vector_sub_abs, INT_MAX, -1, INT_MIN},
        {"div truncates toward zero", vector_div, -7, 2, -3},
        {"div by zero gives zero", vector_div, 12345, 0, 0},
        {"div overflow wraps", vector_div, INT_MIN, -1, INT_MIN},
        {"shr rounds toward minus infinity", shr, -7, 1, -4},
        {"shr by 31", shr, INT_MIN, 31, -1},
        {"shr by 40 leaves the sign", shr, -5, 40, -1},
    };
    for (const auto& c : cases) {
        const int32_t a[3] = {c.a, c.a, c.a}, b[3] = {c.b, c.b, c.b};
        int32_t d[4] = {-77, -77, -77, -77};
        c.fn(d, a, b, 3);
        EXPECT_EQ((std::vector<int32_t>{c.want, c.want, c.want, -77}),
                  std::vector<int32_t>(d, d + 4))
            << c.name;
        d[0] = -77;
        c.fn(d, a, b, 0);  // n < 1: nothing
        c.fn(d, a, b, INT_MIN);
        EXPECT_EQ(-77, d[0]) << c.name;
    }
}

TEST(VectorHelpers, LimitsSetLoadStore) {
    int32_t v[5] = {-3, 0, 13, 14, 1000};
    vector_min(v, 13, 4);
    vector_max(v, 0, 5);
    vector_set(v, -9, 1);
    vector_set(v, 42, -1);
    EXPECT_EQ((std::vector<int32_t>{-9, 0, 13, 13, 1000}), std::vector<int32_t>(v, v + 5));
    const uint8_t bytes[4] = {0, 128, 255, 7};
    vector_ldr(bytes, v, 3);
    EXPECT_EQ((std::vector<int32_t>{0, 128, 255, 13, 1000}), std::vector<int32_t>(v, v + 5));
    const int32_t values[4] = {0x1FF, -1, 256, 77};
    uint8_t out[4] = {9, 9, 9, 9};
    vector_str(out, values, 3);  // the low 8 bits, no saturation
    EXPECT_EQ((plane{255, 255, 0, 9}), plane(out, out + 4));
}

// One vector step against the sums written out directly, accumulating onto earlier sums.
TEST(VectorHelpers, ProcessBlockAccumulatesOneWindowPosition) {
    vtest::rng r(55);
    for (int trial = 0; trial < 200; ++trial) {
        int32_t centre[8], neighbour[8], value[8], weight[8], want_value[8], want_weight[8];
        uint8_t src[8];
        const int32_t spatial = spatial_weight[r.range(0, 15)];
        for (int i = 0; i < 8; ++i) {
            centre[i] = trial % 10 == 0 ? r.range(-1000, 1000) : r.range(0, 255);
            src[i] = static_cast<uint8_t>(trial % 2 ? centre[i] + r.range(-15, 15) : r.byte());
            value[i] = r.range(0, 1 << 20);
            weight[i] = r.range(1, 1 << 16);
            const int d = abs(centre[i] - src[i]);
            const int w = range_weight_span3[d < 15 ? d : 15] * spatial;
            want_weight[i] = weight[i] + w;
            want_value[i] = value[i] + w * src[i];
        }
        bilateral_process_block(centre, neighbour, value, weight, src, spatial);
        for (int i = 0; i < 8; ++i) {
            ASSERT_EQ(src[i], neighbour[i]) << "lane " << i;
            ASSERT_EQ(want_weight[i], weight[i]) << "lane " << i << " centre " << centre[i];
            ASSERT_EQ(want_value[i], value[i]) << "lane " << i << " centre " << centre[i];
        }
    }
}

}  // namespace
