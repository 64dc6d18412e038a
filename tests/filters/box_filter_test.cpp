// Box filter: every height against the definition (64 weights, mirror border), and sizes that
// must write nothing. The vector blocks against their scalar twins, strips at
// any offset and small planes in page-end buffers are the twin harness's part.
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

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
// the vector phases; widths with and without a scalar tail. The row padding and the columns an
// entry does not own must stay untouched.
TEST(BoxFilter, MatchesDefinitionForEveryHeight) {
    vtest::rng r(1234);
    for (int h = 1; h <= 130; h += h < 70 ? 1 : 30) {
        for (int w : {32, 45, 71}) {
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
}

TEST(BoxFilter, EmptyAndPartialSizesWriteNothing) {
    const struct {
        entry e;
        int width, height;
    } cases[] = {{vector_blocks, 31, 100},
                 {vector_blocks, 32, 0},
                 {scalar_blocks, 31, 100},
                 {job, 40, 0},
                 {job, 40, -3},
                 {job, 0, 70},
                 {job, -8, 70}};
    for (const auto& c : cases) {
        const std::vector<uint8_t> src(40 * 100, 9);
        std::vector<uint8_t> low(src.size(), kUnwritten), high(low);
        run(c.e, src.data(), low.data(), high.data(), 40, c.height, c.width);
        EXPECT_EQ(std::vector<uint8_t>(src.size(), kUnwritten), low)
            << entry_names[c.e] << " " << c.width << "x" << c.height;
        EXPECT_EQ(low, high);
    }
}

}  // namespace
