// Upsampling: known ramps, truncation, border replication and the odd-width edge block, each
// run through the vector and the scalar path; whole outputs against a per-pixel bilinear
// formula; uv_upsample and its error lines.
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "resample/upsample.h"
#include "support/frames.h"
#include "support/log_capture.h"

namespace {

// One upsampler seen the same way whatever its kind: source w x h in, destination out.
struct upsampler {
    const char* name;
    int fx, fy;  // destination samples per source sample, across and down
    void (*run)(uint8_t* dst, const uint8_t* src, int w, int h);
};

void run_uv420_neon(uint8_t* dst, const uint8_t* src, int w, int h) {
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = src;
    rec.chroma_dst = dst;
    upsample_uv420(&rec);
}

void run_uv420_c(uint8_t* dst, const uint8_t* src, int w, int h) {
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = src;
    rec.chroma_dst = dst;
    upsample_uv420_with(&rec, upsample_uv420_c);
}

void run_uv422_neon(uint8_t* dst, const uint8_t* src, int w, int h) {
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = src;
    rec.chroma_dst = dst;
    upsample_uv422(&rec);
}

void run_uv422_c(uint8_t* dst, const uint8_t* src, int w, int h) {
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = src;
    rec.chroma_dst = dst;
    upsample_uv422_with(&rec, upsample_uv_c);
}

void run_y_neon(uint8_t* dst, const uint8_t* src, int w, int h) {
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.luma_src = src;
    rec.luma_dst = dst;
    upsample_y(&rec);
}

void run_y_c(uint8_t* dst, const uint8_t* src, int w, int h) {
    upsample_y_c(dst, src, w, h);
}

const upsampler kChroma420[] = {{"uv420_neon", 8, 8, run_uv420_neon},
                                {"uv420_c", 8, 8, run_uv420_c}};
const upsampler kAll[] = {{"uv420_neon", 8, 8, run_uv420_neon},  {"uv420_c", 8, 8, run_uv420_c},
                          {"uv422_neon", 8, 16, run_uv422_neon}, {"uv422_c", 8, 16, run_uv422_c},
                          {"y_neon", 16, 16, run_y_neon},        {"y_c", 16, 16, run_y_c}};

std::string upsampler_name(const testing::TestParamInfo<upsampler>& info) {
    return info.param.name;
}

void PrintTo(const upsampler& u, std::ostream* os) {
    *os << u.name;
}

// Destination of an upsampler for a w x h source, prefilled so that unwritten samples show.
std::vector<uint8_t> upsample(const upsampler& u, const std::vector<uint8_t>& src, int w, int h) {
    std::vector<uint8_t> dst(static_cast<size_t>(u.fx) * w * u.fy * h, 0xEE);
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

class UpsampleAll : public testing::TestWithParam<upsampler> {};
class Upsample420 : public testing::TestWithParam<upsampler> {};

TEST_P(Upsample420, DiagonalRampFromTheDefinition) {
    // [[0, 160], [160, 0]]: along row 0 the value climbs by 20 per column to 140, then the right
    // border interval is flat at 160; halfway down (row 4) the two rows average to 80.
    const upsampler& u = GetParam();
    const std::vector<uint8_t> dst = upsample(u, {0, 160, 160, 0}, 2, 2);
    const std::vector<uint8_t> row0(dst.begin(), dst.begin() + 16);
    const std::vector<uint8_t> want0 = {0,   20,  40,  60,  80,  100, 120, 140,
                                        160, 160, 160, 160, 160, 160, 160, 160};
    EXPECT_EQ(row0, want0);
    for (int x = 0; x < 16; ++x)
        EXPECT_EQ(dst[4 * 16 + x], 80) << "row 4, column " << x;
    // Rows 8 .. 15 repeat source row 1 (bottom replication): 160 falling to 20, then 0.
    for (int y = 8; y < 16; ++y) {
        for (int x = 0; x < 16; ++x)
            EXPECT_EQ(dst[y * 16 + x], x < 8 ? 160 - 20 * x : 0) << "row " << y << " col " << x;
    }
}

TEST_P(UpsampleAll, StepOfOneTruncatesToTheLowerValue) {
    // Between 0 and 1 every intermediate sample is below 1 and truncates to 0, across and down.
    const upsampler& u = GetParam();
    const std::vector<uint8_t> across = upsample(u, {0, 1}, 2, 1);
    for (int x = 0; x < u.fx; ++x)
        EXPECT_EQ(across[x], 0) << "column " << x;
    EXPECT_EQ(across[u.fx], 1);
    const std::vector<uint8_t> down = upsample(u, {0, 1}, 1, 2);
    for (int y = 0; y < u.fy; ++y)
        EXPECT_EQ(down[y * u.fx], 0) << "row " << y;
    EXPECT_EQ(down[u.fy * u.fx], 1);
}

TEST_P(UpsampleAll, SingleRowIsRepeatedDownward) {
    // h = 1: no row below, so every destination row equals row 0.
    const upsampler& u = GetParam();
    vtest::rng r(7);
    for (int w : {1, 2, 3, 6, 7}) {
        std::vector<uint8_t> src(w);
        for (uint8_t& v : src)
            v = r.byte();
        const std::vector<uint8_t> dst = upsample(u, src, w, 1);
        const int stride = u.fx * w;
        for (int y = 1; y < u.fy; ++y)
            ASSERT_EQ(0, memcmp(dst.data(), dst.data() + y * stride, stride)) << "w " << w;
        // The last source interval is flat: its samples all equal the border sample.
        for (int x = stride - u.fx; x < stride; ++x)
            EXPECT_EQ(dst[x], src[w - 1]) << "w " << w << " column " << x;
    }
}

TEST_P(UpsampleAll, ConstantPlaneStaysConstant) {
    const upsampler& u = GetParam();
    for (int v : {0, 1, 77, 254, 255}) {
        for (int w : {1, 2, 5, 8}) {
            const std::vector<uint8_t> src(static_cast<size_t>(w) * 3, static_cast<uint8_t>(v));
            const std::vector<uint8_t> dst = upsample(u, src, w, 3);
            for (size_t i = 0; i < dst.size(); ++i)
                ASSERT_EQ(dst[i], v) << "value " << v << " w " << w << " at " << i;
        }
    }
}

TEST_P(UpsampleAll, MatchesThePerPixelFormula) {
    const upsampler& u = GetParam();
    vtest::rng r(11);
    const int sizes[][2] = {{1, 1}, {2, 1}, {3, 2}, {4, 4}, {5, 3}, {9, 7}, {16, 2}};
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
}

TEST_P(UpsampleAll, EmptySourceWritesNothing) {
    const upsampler& u = GetParam();
    std::vector<uint8_t> dst(64, 0xEE);
    const uint8_t src[1] = {9};
    u.run(dst.data(), src, 3, 0);
    u.run(dst.data(), src, 3, -2);
    EXPECT_EQ(dst, std::vector<uint8_t>(64, 0xEE));
}

INSTANTIATE_TEST_SUITE_P(Kinds, Upsample420, testing::ValuesIn(kChroma420), upsampler_name);
INSTANTIATE_TEST_SUITE_P(Kinds, UpsampleAll, testing::ValuesIn(kAll), upsampler_name);

// An odd width of 3: the vector core covers columns 0 .. 15 (w rounded down to 2), the wrapper's
// scalar edge block columns 16 .. 23, which interpolate the border sample only vertically.
TEST(UpsampleOddWidth, EdgeBlockCoversTheLastEightColumns) {
    const std::vector<uint8_t> src = {10, 50, 90, 30, 70, 250};  // 3 x 2
    struct kind {
        const char* name;
        int fy;
        void (*core)(uint8_t*, const uint8_t*, int32_t, int32_t, int32_t);
        void* (*wrapper)(void*);
    };
    const kind kinds[] = {{"4:2:0", 8, upsample_uv420_neon, upsample_uv420},
                          {"4:2:2", 16, upsample_uv_neon, upsample_uv422}};
    for (const kind& k : kinds) {
        const int rows = 2 * k.fy;
        std::vector<uint8_t> core_only(24 * rows, 0xEE), full(24 * rows, 0xEE);
        k.core(core_only.data(), src.data(), 3, 2, 2);
        upsample_args rec{};
        rec.width = 3;
        rec.height = 2;
        rec.chroma_src = src.data();
        rec.chroma_dst = full.data();
        EXPECT_EQ(k.wrapper(&rec), &rec);
        for (int y = 0; y < rows; ++y) {
            const int sy = y / k.fy, sy1 = sy + 1 < 2 ? sy + 1 : sy;
            const int wb = (y % k.fy) * 16 / k.fy;
            const int edge = ((16 - wb) * src[sy * 3 + 2] + wb * src[sy1 * 3 + 2]) >> 4;
            for (int x = 0; x < 24; ++x) {
                const uint8_t got = full[y * 24 + x];
                if (x < 16) {
                    ASSERT_EQ(got, core_only[y * 24 + x]) << k.name << " row " << y << " x " << x;
                } else {
                    ASSERT_EQ(core_only[y * 24 + x], 0xEE) << k.name << ": core wrote column " << x;
                    ASSERT_EQ(got, edge) << k.name << " row " << y << " column " << x;
                }
            }
        }
    }
}

// uv_upsample has the 4:2:2 geometry and weights; its mirror rule picks the border sample at
// the right and bottom border, so it matches upsample_uv422 everywhere.
TEST(UvUpsample, AgreesWithThe422WrapperAndReturnsItsRowCount) {
    vtest::rng r(5);
    const int sizes[][2] = {{1, 1}, {1, 3}, {2, 2}, {3, 1}, {5, 4}, {8, 6}};
    for (const auto& size : sizes) {
        const int w = size[0], h = size[1];
        std::vector<uint8_t> src(static_cast<size_t>(w) * h);
        for (uint8_t& v : src)
            v = r.byte();
        const std::vector<uint8_t> want = upsample(kAll[2], src, w, h);
        std::vector<uint8_t> got(want.size(), 0xEE);
        EXPECT_EQ(uv_upsample(src.data(), got.data(), h, w), 16 * h);
        EXPECT_EQ(got, want) << w << "x" << h;
    }
}

TEST(UvUpsample, NothingBelowOneRow) {
    std::vector<uint8_t> dst(32, 0xEE);
    const uint8_t src[2] = {1, 2};
    EXPECT_EQ(uv_upsample(src, dst.data(), 0, 2), 0);
    EXPECT_EQ(uv_upsample(src, dst.data(), -3, 2), -48);
    EXPECT_EQ(dst, std::vector<uint8_t>(32, 0xEE));
}

// With unsigned 8-bit samples and non-negative weights no value can be negative, so the error
// lines never come from real input; extremes at the mirrored borders log nothing, and the two
// lines themselves carry their fields in the documented text.
TEST(UvUpsample, ErrorLinesOnlyForNegativeValues) {
    vtest::log_clear();
    const std::vector<uint8_t> src = {255, 0, 255, 0, 255, 0};  // 3 x 2
    std::vector<uint8_t> dst(16 * 2 * 8 * 3);
    uv_upsample(src.data(), dst.data(), 2, 3);
    EXPECT_TRUE(vtest::log_starting_with("uv_upsample").empty());

    uv_upsample_report(16, 14, 3, 1, 0, 1, 0, 1, 0xff, 0x10, 0, 7, -2);
    EXPECT_EQ(vtest::log_count(6, "uv_upsample, a 16, b 14, i 3, j 1, x 0, x1 1, y 0, y1 1"), 1);
    EXPECT_EQ(vtest::log_count(6,
                               "uv_upsample, value1 0xff, value2 0x10, value3 0x0, value4 0x7, "
                               "tmp 0xfffffffe"),
              1);
    EXPECT_EQ(vtest::log_lines().size(), 2u);
}

}  // namespace
