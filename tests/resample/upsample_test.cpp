// Upsampling: whole outputs of the vector and the scalar paths against a per-pixel bilinear
// formula, odd widths included: there the wrappers' scalar edge block, which both twins share,
// writes the last eight columns.
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "resample/upsample.h"
#include "support/frames.h"

namespace {

upsample_args record(uint8_t* dst, const uint8_t* src, int w, int h) {
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = rec.luma_src = src;
    rec.chroma_dst = rec.luma_dst = dst;
    return rec;
}

// One upsampler seen the same way whatever its kind: source w x h in, destination out.
struct upsampler {
    const char* name;
    int fx, fy;  // destination samples per source sample, across and down
    void (*run)(uint8_t* dst, const uint8_t* src, int w, int h);
};

const upsampler kAll[] = {
    {"uv420_neon", 8, 8,
     [](uint8_t* d, const uint8_t* s, int w, int h) {
         upsample_args rec = record(d, s, w, h);
         EXPECT_EQ(upsample_uv420(&rec), &rec);
     }},
    {"uv420_c", 8, 8,
     [](uint8_t* d, const uint8_t* s, int w, int h) {
         upsample_args rec = record(d, s, w, h);
         upsample_uv420_with(&rec, upsample_uv420_c);
     }},
    {"uv422_neon", 8, 16,
     [](uint8_t* d, const uint8_t* s, int w, int h) {
         upsample_args rec = record(d, s, w, h);
         EXPECT_EQ(upsample_uv422(&rec), &rec);
     }},
    {"uv422_c", 8, 16,
     [](uint8_t* d, const uint8_t* s, int w, int h) {
         upsample_args rec = record(d, s, w, h);
         upsample_uv422_with(&rec, upsample_uv_c);
     }},
    {"y_neon", 16, 16,
     [](uint8_t* d, const uint8_t* s, int w, int h) {
         upsample_args rec = record(d, s, w, h);
         EXPECT_EQ(upsample_y(&rec), &rec);
     }},
    {"y_c", 16, 16, upsample_y_c},
};

void PrintTo(const upsampler& u, std::ostream* os) {
    *os << u.name;
}

// Destination of an upsampler for a w x h source, prefilled so that unwritten samples show.
std::vector<uint8_t> upsample(const upsampler& u, const std::vector<uint8_t>& src, int w, int h) {
    std::vector<uint8_t> dst(static_cast<size_t>(u.fx) * w * u.fy * (h > 0 ? h : 1), 0xEE);
    u.run(dst.data(), src.data(), w, h);
    return dst;
}

// The bilinear value at destination (y, x), written straight from the definition: weights in
// sixteenths, next sample clamped to the border, sum shifted right by 8.
int reference(const std::vector<uint8_t>& s, int w, int h, int fx, int fy, int y, int x) {
    const int sy = y / fy, sx = x / fx;
    const int sy1 = sy + 1 < h ? sy + 1 : sy;
    const int sx1 = sx + 1 < w ? sx + 1 : sx;
    const int wb = (y % fy) * 16 / fy, wr = (x % fx) * 16 / fx;
    const int top = (16 - wr) * s[sy * w + sx] + wr * s[sy * w + sx1];
    const int bottom = (16 - wr) * s[sy1 * w + sx] + wr * s[sy1 * w + sx1];
    return ((16 - wb) * top + wb * bottom) >> 8;
}

class Upsample : public testing::TestWithParam<upsampler> {};

// Every size class down to 1 x 1 against the formula; an empty source writes nothing.
TEST_P(Upsample, MatchesThePerPixelFormula) {
    const upsampler& u = GetParam();
    vtest::rng r(11);
    const int sizes[][2] = {{1, 1}, {2, 1}, {3, 2}, {4, 4}, {5, 3}, {9, 7}, {16, 2}, {7, 1}};
    for (const auto& size : sizes) {
        const int w = size[0], h = size[1];
        std::vector<uint8_t> src(static_cast<size_t>(w) * h);
        for (uint8_t& v : src)
            v = r.byte();
        const std::vector<uint8_t> dst = upsample(u, src, w, h);
        for (int y = 0; y < u.fy * h; ++y) {
            for (int x = 0; x < u.fx * w; ++x) {
                ASSERT_EQ(dst[static_cast<size_t>(y) * u.fx * w + x],
                          reference(src, w, h, u.fx, u.fy, y, x))
                    << w << "x" << h << " at row " << y << " column " << x;
            }
        }
    }
    for (int h : {0, -2}) {
        const std::vector<uint8_t> dst = upsample(u, {9, 9, 9}, 3, h);
        EXPECT_EQ(dst, std::vector<uint8_t>(dst.size(), 0xEE)) << "height " << h;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Upsample, testing::ValuesIn(kAll),
                         [](const testing::TestParamInfo<upsampler>& info) {
                             return info.param.name;
                         });

}  // namespace
