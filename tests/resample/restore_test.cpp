// Restore: the chroma blend and the luma limits on hand-worked values, through all four
// kernels in both their vector and scalar forms; the sizes each kernel refuses.
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "resample/restore.h"

namespace {

// ---- Chroma blend -------------------------------------------------------------------------

struct blend_case {
    const char* name;
    int32_t S;
    uint8_t c1, c2;  // input pair
    uint8_t f1, f2;  // upsampled pair
    uint8_t out1, out2;
};

const blend_case kBlends[] = {
    // S = 12 (capture): sad 12 reaches S, w = (768 + 6) / 12 = 64, the input is kept.
    {"capture_sad12_kept", 12, 120, 140, 126, 134, 120, 140},
    // sad 6: w = (384 + 6) / 12 = 32, out = ((32 * 123 + 32 * 120) >> 6, ...) = (121, 138).
    {"capture_sad6_half", 12, 120, 140, 123, 137, 121, 138},
    // Upsampled equal to the input: w = 6 / 12 = 0, and the output is that same pair.
    {"capture_equal", 12, 77, 201, 77, 201, 77, 201},
    // S = 4 (preview), sad 1: w = (64 + 2) / 4 = 16, out1 = (48 * 41 + 16 * 40) >> 6 = 40.
    {"preview_sad1", 4, 40, 200, 41, 200, 40, 200},
    // sad 3: w = (192 + 2) / 4 = 48: (16 * 13 + 48 * 10) >> 6 = 10, (16 * 200 + 48 * 200) >> 6.
    {"preview_sad3", 4, 10, 200, 13, 200, 10, 200},
    // S = 0: every weight is 0, the upsampled pair is written.
    {"zero_saturation", 0, 10, 250, 200, 20, 200, 20},
    // S = 256, the widest distance: 510 * 64 + 128 wraps to -32768, w clamps to 0 and the
    // upsampled pair is written.
    {"s256_wrapped", 256, 0, 0, 255, 255, 255, 255},
    // Only the low 16 bits of S count: 65536 + 12 acts as 12.
    {"s_low_16_bits", 65536 + 12, 120, 140, 123, 137, 121, 138},
};

// The same blend through the four kernels, each in vector and scalar form. Every kernel gets
// 16 identical pairs (a whole step) and each output pair is checked.
struct blend_kernel {
    const char* name;
    void (*run)(const blend_case& b, std::vector<uint8_t>& out);  // 16 pairs out, c1 c2 order
};

constexpr int kPairs = 16;

template <bool vector>
void blend_yuv420(const blend_case& b, std::vector<uint8_t>& out) {
    // Width 32, height 2: one VU row of 16 pairs; luma is rebuilt too but not looked at here.
    std::vector<uint8_t> y(64, 100), a(64, 100), hi(64, 128), vu(32), up1(16, b.f1), up2(16, b.f2);
    for (int i = 0; i < kPairs; ++i) {
        vu[2 * i] = b.c1;
        vu[2 * i + 1] = b.c2;
    }
    out.assign(32, 0);
    (vector ? restore_interleave_yuv420_neon : restore_interleave_yuv420_c)(
        y.data(), vu.data(), a.data(), hi.data(), up1.data(), up2.data(), 32, 2, b.S, y.data(),
        out.data(), 0);
}

template <bool vector>
void blend_uv420(const blend_case& b, std::vector<uint8_t>& out) {
    // Width 32 covers 16 VU bytes per row: 2 rows give 16 pairs. Luma planes are not read.
    std::vector<uint8_t> vu(32), up1(16, b.f1), up2(16, b.f2);
    for (int i = 0; i < kPairs; ++i) {
        vu[2 * i] = b.c1;
        vu[2 * i + 1] = b.c2;
    }
    out.assign(32, 0);
    (vector ? restore_interleave_uv420_neon : restore_interleave_uv420_c)(
        nullptr, vu.data(), nullptr, nullptr, up1.data(), up2.data(), 32, 2, b.S, out.data());
}

template <bool vector, bool chroma_only>
void blend_422(const blend_case& b, std::vector<uint8_t>& out) {
    // Width 32, one row: 16 groups Y0 C1 Y1 C2.
    std::vector<uint8_t> frame(64), a(32, 100), hi(32, 128), up1(16, b.f1), up2(16, b.f2);
    for (int i = 0; i < kPairs; ++i) {
        frame[4 * i] = 100;
        frame[4 * i + 1] = b.c1;
        frame[4 * i + 2] = 100;
        frame[4 * i + 3] = b.c2;
    }
    auto fn = chroma_only ? (vector ? restore_interleave_uv422_neon : restore_interleave_uv422_c)
                          : (vector ? restore_interleave_yuv422_neon : restore_interleave_yuv422_c);
    fn(frame.data(), a.data(), hi.data(), up1.data(), up2.data(), 32, 1, b.S);
    out.clear();
    for (int i = 0; i < kPairs; ++i) {
        out.push_back(frame[4 * i + 1]);
        out.push_back(frame[4 * i + 3]);
    }
}

const blend_kernel kBlendKernels[] = {
    {"yuv420_neon", blend_yuv420<true>},     {"yuv420_c", blend_yuv420<false>},
    {"uv420_neon", blend_uv420<true>},       {"uv420_c", blend_uv420<false>},
    {"yuv422_neon", blend_422<true, false>}, {"yuv422_c", blend_422<false, false>},
    {"uv422_neon", blend_422<true, true>},   {"uv422_c", blend_422<false, true>},
};

void PrintTo(const blend_kernel& k, std::ostream* os) {
    *os << k.name;
}

void PrintTo(const blend_case& b, std::ostream* os) {
    *os << b.name;
}

class Blend : public testing::TestWithParam<std::tuple<blend_kernel, blend_case>> {};

TEST_P(Blend, PairComesOutAsWorkedByHand) {
    const blend_kernel& k = std::get<0>(GetParam());
    const blend_case& b = std::get<1>(GetParam());
    std::vector<uint8_t> out;
    k.run(b, out);
    ASSERT_EQ(out.size(), 2u * kPairs);
    for (int i = 0; i < kPairs; ++i) {
        EXPECT_EQ(out[2 * i], b.out1) << "pair " << i;
        EXPECT_EQ(out[2 * i + 1], b.out2) << "pair " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Blend, testing::Combine(testing::ValuesIn(kBlendKernels), testing::ValuesIn(kBlends)),
    [](const testing::TestParamInfo<Blend::ParamType>& info) {
        return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
    });

// The weights themselves, where the bytes above cannot show them exactly.
struct weight_case {
    int32_t S;
    int sad;
    int w;
};

const weight_case kWeights[] = {
    {4, 1, 16},
    {4, 3, 48},
    {4, 4, 64},
    {12, 6, 32},
    {12, 12, 64},
    {12, 0, 0},
    {0, 300, 0},
    {256, 510, 0},
    {256, 500, 64},
    {-12, 100, 0},
    {1, 510, 64},
    {600, 4, 0},
    {600, 5, 1},
    {600, 100, 11},
    {32767, 510, 0},
    {-32768, 255, 0},
    // S = -1: the numerator is -1 for sad 0, and -1 / -1 = 1.
    {-1, 0, 1},
};

TEST(BlendWeight, VectorAndScalarMatchHandWorkedWeights) {
    for (const weight_case& c : kWeights) {
        const int16_t s16 = static_cast<int16_t>(c.S);
        // The kernels' numerator: sad * 64 + (S >> 1), wrapped to 16 bits.
        const int16_t n = static_cast<int16_t>(static_cast<uint16_t>(c.sad * 64 + (s16 >> 1)));
        int16_t ns[8];
        for (int16_t& v : ns)
            v = n;
        uint8_t wv[8], wc[8];
        restore_blend_weights_neon(ns, 8, c.S, wv);
        restore_blend_weights_c(ns, 8, c.S, wc);
        EXPECT_EQ(wv[0], c.w) << "S " << c.S << " sad " << c.sad;
        EXPECT_EQ(wc[0], c.w) << "S " << c.S << " sad " << c.sad;
    }
}

// ---- Luma -----------------------------------------------------------------------------------

struct luma_case {
    const char* name;
    bool packed;   // 4:2:2 kernel, else 4:2:0
    int scenario;  // 4:2:0 only
    int yo, t;     // input luma and rebuilt luma
    int want;
};

const luma_case kLuma[] = {
    // 4:2:0 capture: DM 2, shift 1.
    {"capture_equal", false, 0, 90, 90, 90},
    {"capture_one_above", false, 0, 90, 91, 90},  // (91 + 90) >> 1
    {"capture_one_below", false, 0, 90, 89, 89},  // the only change capture makes
    {"capture_two_above", false, 0, 90, 92, 90},
    {"capture_far_below", false, 0, 90, 10, 90},
    {"other_scenario_is_capture", false, 7, 90, 89, 89},
    // 4:2:0 preview: DM 4, shift 2.
    {"preview_one_above", false, 1, 90, 91, 90},    // (3 * 91 + 90) >> 2
    {"preview_one_below", false, 1, 90, 89, 89},    // (3 * 89 + 90) >> 2
    {"preview_two_above", false, 1, 90, 92, 91},    // (2 * 92 + 2 * 90) >> 2
    {"preview_three_below", false, 1, 90, 87, 89},  // (87 + 3 * 90) >> 2
    {"preview_four_above", false, 1, 90, 94, 90},
    // 4:2:2: dead zone of one code, limit 2.
    {"packed_one_above", true, 0, 90, 91, 91},
    {"packed_two_above", true, 0, 90, 92, 91},
    {"packed_two_below", true, 0, 90, 88, 89},
    {"packed_three_above", true, 0, 90, 93, 90},
    {"packed_five_above", true, 0, 90, 95, 90},
};

void PrintTo(const luma_case& c, std::ostream* os) {
    *os << c.name;
}

// Runs one row of 16 pixels (width 16) with component planes a = t, b = 128, so that the
// rebuilt luma is t; returns the 16 output luma values.
std::vector<uint8_t> run_luma(const luma_case& c, bool vector) {
    std::vector<uint8_t> a(16, static_cast<uint8_t>(c.t)), b(16, 128), up(8, 128);
    std::vector<uint8_t> out;
    if (c.packed) {
        std::vector<uint8_t> frame(32, 128);
        for (int i = 0; i < 16; ++i)
            frame[2 * i] = static_cast<uint8_t>(c.yo);
        (vector ? restore_interleave_yuv422_neon : restore_interleave_yuv422_c)(
            frame.data(), a.data(), b.data(), up.data(), up.data(), 16, 1, 12);
        for (int i = 0; i < 16; ++i)
            out.push_back(frame[2 * i]);
    } else {
        std::vector<uint8_t> y(16, static_cast<uint8_t>(c.yo)), vu(16, 128);
        out.assign(16, 0);
        // Height 1: no chroma row (1 / 2 = 0), so the VU planes are not touched.
        (vector ? restore_interleave_yuv420_neon : restore_interleave_yuv420_c)(
            y.data(), vu.data(), a.data(), b.data(), up.data(), up.data(), 16, 1, 12, out.data(),
            vu.data(), c.scenario);
    }
    return out;
}

class Luma : public testing::TestWithParam<luma_case> {};

TEST_P(Luma, LimitedStepTowardsTheRebuiltValue) {
    const luma_case& c = GetParam();
    EXPECT_EQ(run_luma(c, true), std::vector<uint8_t>(16, static_cast<uint8_t>(c.want)));
    EXPECT_EQ(run_luma(c, false), std::vector<uint8_t>(16, static_cast<uint8_t>(c.want)));
}

INSTANTIATE_TEST_SUITE_P(Cases, Luma, testing::ValuesIn(kLuma),
                         [](const testing::TestParamInfo<luma_case>& info) {
                             return info.param.name;
                         });

TEST(LumaRebuild, ComponentSumIsClampedBeforeTheLimit) {
    // a + b - 128 beyond 0 .. 255 clamps: 255 + 255 - 128 gives 255, 0 + 0 - 128 gives 0.
    for (bool vector : {true, false}) {
        std::vector<uint8_t> y = {253, 255, 2, 0}, a = {255, 255, 0, 0}, b = {255, 255, 0, 0};
        y.resize(16, 50);
        a.resize(16, 50);
        b.resize(16, 128);
        std::vector<uint8_t> out(16), vu(16), up(8);
        (vector ? restore_interleave_yuv420_neon : restore_interleave_yuv420_c)(
            y.data(), vu.data(), a.data(), b.data(), up.data(), up.data(), 16, 1, 12, out.data(),
            vu.data(), 1);
        // Preview: t = 255 vs 253 gives (2 * 255 + 2 * 253) >> 2 = 254; t = 0 vs 2 gives 1.
        EXPECT_EQ(out[0], 254);
        EXPECT_EQ(out[1], 255);
        EXPECT_EQ(out[2], 1);
        EXPECT_EQ(out[3], 0);
        EXPECT_EQ(out[4], 50);
    }
}

// ---- Sizes --------------------------------------------------------------------------------

struct refused_size {
    int32_t width, rows;
};

const refused_size kRefused[] = {{0, 4}, {-16, 4}, {24, 4}, {8, 4}, {32, 0}, {32, -2}};

TEST(RestoreSizes, RefusedSizesWriteNothing) {
    std::vector<uint8_t> in(4096, 3), up(4096, 200);
    for (const refused_size& s : kRefused) {
        for (bool vector : {true, false}) {
            std::vector<uint8_t> y_out(4096, 0xEE), vu_out(4096, 0xEE), frame(4096, 3);
            (vector ? restore_interleave_yuv420_neon : restore_interleave_yuv420_c)(
                in.data(), in.data(), in.data(), in.data(), up.data(), up.data(), s.width, s.rows,
                0, y_out.data(), vu_out.data(), 0);
            (vector ? restore_interleave_uv420_neon : restore_interleave_uv420_c)(
                in.data(), in.data(), in.data(), in.data(), up.data(), up.data(), s.width, s.rows,
                0, vu_out.data());
            (vector ? restore_interleave_yuv422_neon : restore_interleave_yuv422_c)(
                frame.data(), in.data(), in.data(), up.data(), up.data(), s.width, s.rows, 0);
            (vector ? restore_interleave_uv422_neon : restore_interleave_uv422_c)(
                frame.data(), in.data(), in.data(), up.data(), up.data(), s.width, s.rows, 0);
            EXPECT_EQ(y_out, std::vector<uint8_t>(4096, 0xEE)) << s.width << "x" << s.rows;
            EXPECT_EQ(vu_out, std::vector<uint8_t>(4096, 0xEE)) << s.width << "x" << s.rows;
            EXPECT_EQ(frame, std::vector<uint8_t>(4096, 3)) << s.width << "x" << s.rows;
        }
    }
}

// The chroma-only 4:2:0 kernel takes the luma height as its row count and then covers exactly
// the VU plane (width x height / 2); the 4:2:2 one writes the luma bytes back as read.
TEST(RestoreSizes, ChromaOnlyKernelsCoverTheirPlanesExactly) {
    for (bool vector : {true, false}) {
        const int width = 64, height = 6;
        const int vu_bytes = width * height / 2;
        std::vector<uint8_t> vu(vu_bytes, 10), up(vu_bytes / 2, 40), out(vu_bytes + 32, 0xEE);
        // S = 0 writes the upsampled value everywhere it reaches.
        (vector ? restore_interleave_uv420_neon : restore_interleave_uv420_c)(
            nullptr, vu.data(), nullptr, nullptr, up.data(), up.data(), width, height, 0,
            out.data());
        for (int i = 0; i < vu_bytes + 32; ++i)
            ASSERT_EQ(out[i], i < vu_bytes ? 40 : 0xEE) << "byte " << i;

        std::vector<uint8_t> frame(2 * width * 2);
        for (size_t i = 0; i < frame.size(); ++i)
            frame[i] = static_cast<uint8_t>(i * 37);
        const std::vector<uint8_t> before = frame;
        (vector ? restore_interleave_uv422_neon : restore_interleave_uv422_c)(
            frame.data(), nullptr, nullptr, up.data(), up.data(), width, 2, 0);
        for (size_t i = 0; i < frame.size(); ++i)
            ASSERT_EQ(frame[i], i % 2 == 0 ? before[i] : 40) << "byte " << i;
    }
}

}  // namespace
