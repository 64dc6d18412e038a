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

enum kernel { yuv420, uv420, yuv422, uv422 };
const char* const kKernelNames[] = {"yuv420", "uv420", "yuv422", "uv422"};

// The blend of 16 identical pairs (a whole step) through one kernel; returns the 16 output
// pairs, c1 c2 order. 4:2:0 gets width 32 and two rows: one VU row of 16 pairs, or for the
// chroma-only kernel 16 VU bytes per row. 4:2:2 gets one row of 16 groups Y0 C1 Y1 C2.
std::vector<uint8_t> blend(kernel k, bool vector, const blend_case& b) {
    std::vector<uint8_t> y(64, 100), a(64, 100), hi(64, 128), up1(16, b.f1), up2(16, b.f2),
        in(64, 100), out(32);
    const bool packed = k == yuv422 || k == uv422;
    for (int i = 0; i < 16; ++i) {
        in[packed ? 4 * i + 1 : 2 * i] = b.c1;
        in[packed ? 4 * i + 3 : 2 * i + 1] = b.c2;
    }
    if (k == yuv420)
        (vector ? restore_interleave_yuv420_neon : restore_interleave_yuv420_c)(
            y.data(), in.data(), a.data(), hi.data(), up1.data(), up2.data(), 32, 2, b.S, y.data(),
            out.data(), 0);
    if (k == uv420)  // the luma planes are not read
        (vector ? restore_interleave_uv420_neon : restore_interleave_uv420_c)(
            nullptr, in.data(), nullptr, nullptr, up1.data(), up2.data(), 32, 2, b.S, out.data());
    if (packed)
        (k == uv422 ? (vector ? restore_interleave_uv422_neon : restore_interleave_uv422_c)
                    : (vector ? restore_interleave_yuv422_neon : restore_interleave_yuv422_c))(
            in.data(), a.data(), hi.data(), up1.data(), up2.data(), 32, 1, b.S);
    for (int i = 0; i < 16 && packed; ++i) {
        out[2 * i] = in[4 * i + 1];
        out[2 * i + 1] = in[4 * i + 3];
    }
    return out;
}

void PrintTo(const blend_case& b, std::ostream* os) {
    *os << b.name;
}

class Blend : public testing::TestWithParam<std::tuple<kernel, bool, blend_case>> {};

TEST_P(Blend, PairComesOutAsWorkedByHand) {
    const blend_case& b = std::get<2>(GetParam());
    std::vector<uint8_t> want(32);
    for (int i = 0; i < 16; ++i) {
        want[2 * i] = b.out1;
        want[2 * i + 1] = b.out2;
    }
    EXPECT_EQ(blend(std::get<0>(GetParam()), std::get<1>(GetParam()), b), want);
}

INSTANTIATE_TEST_SUITE_P(Cases, Blend,
                         testing::Combine(testing::Values(yuv420, uv420, yuv422, uv422),
                                          testing::Bool(), testing::ValuesIn(kBlends)),
                         [](const testing::TestParamInfo<Blend::ParamType>& info) {
                             return std::string(kKernelNames[std::get<0>(info.param)]) +
                                    (std::get<1>(info.param) ? "_neon_" : "_c_") +
                                    std::get<2>(info.param).name;
                         });

// The weights themselves, where the bytes above cannot show them exactly.
struct weight_case {
    int32_t S;
    int sad;
    int w;
};

// S values no scenario uses, each with the rounding, the sign or the wrap it shows.
const weight_case kWeights[] = {
    {600, 4, 0},     {600, 5, 1},      {600, 100, 11}, {1, 510, 64}, {-12, 100, 0},
    {32767, 510, 0}, {-32768, 255, 0}, {-1, 0, 1},  // the numerator is -1 for sad 0, and -1 / -1 =
                                                    // 1
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
    int yo;        // input luma
    int a, b;      // component planes: the rebuilt luma is clamp(a + b - 128)
    int want;
};

const luma_case kLuma[] = {
    // 4:2:0 capture: DM 2, shift 1.
    {"capture_equal", false, 0, 90, 90, 128, 90},
    {"capture_one_above", false, 0, 90, 91, 128, 90},  // (91 + 90) >> 1
    {"capture_one_below", false, 0, 90, 89, 128, 89},  // the only change capture makes
    {"capture_two_above", false, 0, 90, 92, 128, 90},
    {"capture_far_below", false, 0, 90, 10, 128, 90},
    {"other_scenario_is_capture", false, 7, 90, 89, 128, 89},
    // 4:2:0 preview: DM 4, shift 2.
    {"preview_one_above", false, 1, 90, 91, 128, 90},    // (3 * 91 + 90) >> 2
    {"preview_one_below", false, 1, 90, 89, 128, 89},    // (3 * 89 + 90) >> 2
    {"preview_two_above", false, 1, 90, 92, 128, 91},    // (2 * 92 + 2 * 90) >> 2
    {"preview_three_below", false, 1, 90, 87, 128, 89},  // (87 + 3 * 90) >> 2
    {"preview_four_above", false, 1, 90, 94, 128, 90},
    // The component sum is clamped before the limit: 255 + 255 - 128 gives 255, then
    // (2 * 255 + 2 * 253) >> 2 = 254; 0 + 0 - 128 gives 0, then (2 * 0 + 2 * 2) >> 2 = 1.
    {"preview_sum_clamped_high", false, 1, 253, 255, 255, 254},
    {"preview_sum_clamped_low", false, 1, 2, 0, 0, 1},
    // 4:2:2: dead zone of one code, limit 2.
    {"packed_one_above", true, 0, 90, 91, 128, 91},
    {"packed_two_above", true, 0, 90, 92, 128, 91},
    {"packed_two_below", true, 0, 90, 88, 128, 89},
    {"packed_three_above", true, 0, 90, 93, 128, 90},
    {"packed_five_above", true, 0, 90, 95, 128, 90},
};

void PrintTo(const luma_case& c, std::ostream* os) {
    *os << c.name;
}

// Runs one row of 16 pixels (width 16); returns the 16 output luma values.
std::vector<uint8_t> run_luma(const luma_case& c, bool vector) {
    std::vector<uint8_t> a(16, static_cast<uint8_t>(c.a)), b(16, static_cast<uint8_t>(c.b)),
        up(8, 128), out(16);
    if (c.packed) {
        std::vector<uint8_t> frame(32, 128);
        for (int i = 0; i < 16; ++i)
            frame[2 * i] = static_cast<uint8_t>(c.yo);
        (vector ? restore_interleave_yuv422_neon : restore_interleave_yuv422_c)(
            frame.data(), a.data(), b.data(), up.data(), up.data(), 16, 1, 12);
        for (int i = 0; i < 16; ++i)
            out[i] = frame[2 * i];
    } else {
        std::vector<uint8_t> y(16, static_cast<uint8_t>(c.yo)), vu(16, 128);
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

}  // namespace
