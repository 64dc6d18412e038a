// Resample kernels against their definitions. Deinterleave: the first-band asymmetry of the
// chroma-only kernel, the whole band a ragged bound runs and the bounds that write nothing, each
// for the vector and the scalar form; the strip wrappers (which run the vector kernels on their
// aligned part) and the decimation, which show which input byte lands in which output sample.
// Upsampling: whole outputs of the vector and the scalar paths against a per-pixel bilinear
// formula, odd widths included: there the wrappers' scalar edge block, which both twins share,
// writes the last eight columns. Restore: the chroma blend and the luma limits on hand-worked
// values, through all four kernels in both their forms; the sizes each kernel refuses.
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "resample/deinterleave.h"
#include "resample/restore.h"
#include "resample/upsample.h"
#include "support/frames.h"

namespace {

struct kernels {
    const char* name;
    decltype(&deinterleave_yuv420_uv_downsample_c) nv21;
    decltype(&deinterleave_yuv422_uv_downsample_c) yuv422;
    decltype(&deinterleave_uv422_uv_downsample_c) uv422;
};

const kernels kKinds[] = {
    {"neon", deinterleave_yuv420_uv_downsample_neon, deinterleave_yuv422_uv_downsample_neon,
     deinterleave_uv422_uv_downsample_neon},
    {"c", deinterleave_yuv420_uv_downsample_c, deinterleave_yuv422_uv_downsample_c,
     deinterleave_uv422_uv_downsample_c},
};

// Bytes that differ between nearby positions, so a sample taken from the wrong place shows.
std::vector<uint8_t> marked(size_t n) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = static_cast<uint8_t>((i * 2654435761u) >> 13);
    return v;
}

class Deinterleave : public testing::TestWithParam<kernels> {};

TEST_P(Deinterleave, ChromaOnlyKernelSkipsLumaInTheFirstBandOnly) {
    const int width = 256, height = 48;
    const std::vector<uint8_t> packed = marked(static_cast<size_t>(2) * width * height);
    std::vector<uint8_t> y_full(width * height, 0xEE), y(width * height, 0xEE);
    std::vector<uint8_t> first_full(48, 0xEE), second_full(48, 0xEE), first(48, 0xEE),
        second(48, 0xEE);
    GetParam().yuv422(y_full.data(), first_full.data(), second_full.data(), packed.data(), width,
                      height, width);
    GetParam().uv422(y.data(), first.data(), second.data(), packed.data(), width, height, width);
    EXPECT_EQ(first, first_full);
    EXPECT_EQ(second, second_full);
    for (int i = 0; i < width * height; ++i)
        ASSERT_EQ(y[i], i < 16 * width ? 0xEE : y_full[i]) << "luma byte " << i;
}

TEST_P(Deinterleave, PackedBandIsAlwaysSixteenRows) {
    // A height_bound of 5 still runs one whole band: 16 luma rows.
    const int width = 128;
    const std::vector<uint8_t> packed = marked(static_cast<size_t>(2) * width * 17);
    std::vector<uint8_t> y(width * 17, 0xEE), first(8), second(8);
    GetParam().yuv422(y.data(), first.data(), second.data(), packed.data(), width, 5, width);
    for (int r = 0; r < 17; ++r) {
        EXPECT_EQ(y[r * width + 7], r < 16 ? packed[2 * (r * width + 7)] : 0xEE) << "row " << r;
    }
}

struct bounds {
    int32_t width_bound, height_bound;
};

const bounds kNothing[] = {{0, 32}, {128, 0}, {-128, 32}, {128, -16}, {0, 0}};

TEST_P(Deinterleave, EmptyBoundsWriteNothing) {
    const int width = 256;
    const std::vector<uint8_t> in = marked(static_cast<size_t>(2) * width * 32);
    for (const bounds& b : kNothing) {
        std::vector<uint8_t> y(width * 32, 0xEE), first(64, 0xEE), second(64, 0xEE);
        GetParam().nv21(first.data(), second.data(), in.data(), b.width_bound, b.height_bound,
                        width);
        GetParam().yuv422(y.data(), first.data(), second.data(), in.data(), width, b.height_bound,
                          b.width_bound);
        GetParam().uv422(y.data(), first.data(), second.data(), in.data(), width, b.height_bound,
                         b.width_bound);
        const std::string where =
            std::to_string(b.width_bound) + " x " + std::to_string(b.height_bound);
        EXPECT_EQ(y, std::vector<uint8_t>(width * 32, 0xEE)) << where;
        EXPECT_EQ(first, std::vector<uint8_t>(64, 0xEE)) << where;
        EXPECT_EQ(second, std::vector<uint8_t>(64, 0xEE)) << where;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Deinterleave, testing::ValuesIn(kKinds),
                         [](const testing::TestParamInfo<kernels>& info) {
                             return info.param.name;
                         });

// The strip wrappers and the 16x decimation, which the twins and the pipeline share, against
// their definition pixel by pixel: block (br, bc) takes the pair at luma row 16br, column 16bc
// (4:2:0: VU row 8br); 4:2:2 luma rows below the strip height are copied, 4:2:0 luma rows of a
// ragged last band too; rows from the strip height to the band's end repeat its last row.
TEST(SharedPaths, StripWrappersAndDecimationFollowTheirDefinition) {
    const struct { int width, strip_height; } cases[] = {{144, 21}, {256, 32}, {16, 5}, {400, 47}};
    for (const auto& c : cases) {
        const int w = c.width, sh = c.strip_height, hb = sh & ~15, rows = hb + 16;
        const int blocks = (w / 16) * ((sh + 15) / 16);
        const std::vector<uint8_t> in = marked(static_cast<size_t>(2) * w * rows);
        for (bool packed : {false, true}) {
            std::vector<uint8_t> y(static_cast<size_t>(w) * rows, 0xEE), first(blocks + 1, 0xEE),
                second(blocks + 1, 0xEE);
            if (packed)
                deinterleave_strip_422(y.data(), first.data(), second.data(), in.data(), w, sh);
            else
                deinterleave_strip_420(first.data(), second.data(), in.data(), in.data(), y.data(),
                                       w, sh);
            const std::string what = std::string(packed ? "4:2:2 " : "4:2:0 ") + std::to_string(w) +
                                     "x" + std::to_string(sh);
            for (int i = 0; i <= blocks; ++i) {
                const size_t at =
                    packed
                        ? 2 * (static_cast<size_t>(16 * (i / (w / 16))) * w + 16 * (i % (w / 16))) +
                              1
                        : static_cast<size_t>(8 * (i / (w / 16))) * w + 16 * (i % (w / 16));
                ASSERT_EQ(first[i], i < blocks ? in[at] : 0xEE) << what << " block " << i;
                ASSERT_EQ(second[i], i < blocks ? in[at + (packed ? 2 : 1)] : 0xEE)
                    << what << " block " << i;
            }
            for (int r = 0; r < rows; ++r) {
                const int from = r < sh ? r : sh - 1;
                const bool written = (packed && r < sh) || (sh % 16 != 0 && r >= hb);
                for (int x = 0; x < w; ++x) {
                    const size_t src = packed ? 2 * (static_cast<size_t>(from) * w + x)
                                              : static_cast<size_t>(from) * w + x;
                    ASSERT_EQ(y[r * w + x], written ? in[src] : 0xEE)
                        << what << " luma row " << r << " column " << x;
                }
            }
        }
        std::vector<uint8_t> decimated((w / 16) * (rows / 16) + 1, 0xEE);
        decimate_plane_16(in.data(), w, rows, decimated.data());
        for (int i = 0; i <= (w / 16) * (rows / 16); ++i) {
            const bool written = i < (w / 16) * (rows / 16);
            ASSERT_EQ(decimated[i],
                      written
                          ? in[static_cast<size_t>(16 * (i / (w / 16))) * w + 16 * (i % (w / 16))]
                          : 0xEE)
                << "decimation " << w << "x" << rows << " value " << i;
        }
    }
}

// One upsampler seen the same way whatever its kind: source w x h in, destination out. The
// vector forms are the entry points (which must hand back their record), the scalar forms the
// chroma wrappers with the scalar core, or the luma core itself.
struct upsampler {
    const char* name;
    int fx, fy;  // destination samples per source sample, across and down
    void* (*entry)(void*);
    void (*with)(const upsample_args*, upsample_core);
    upsample_core core;
};

const upsampler kAll[] = {
    {"uv420_neon", 8, 8, upsample_uv420, nullptr, nullptr},
    {"uv420_c", 8, 8, nullptr, upsample_uv420_with, upsample_uv420_c},
    {"uv422_neon", 8, 16, upsample_uv422, nullptr, nullptr},
    {"uv422_c", 8, 16, nullptr, upsample_uv422_with, upsample_uv_c},
    {"y_neon", 16, 16, upsample_y, nullptr, nullptr},
    {"y_c", 16, 16, nullptr, nullptr, nullptr},
};

// Destination of an upsampler for a w x h source, prefilled so that unwritten samples show.
std::vector<uint8_t> upsample(const upsampler& u, const std::vector<uint8_t>& src, int w, int h) {
    std::vector<uint8_t> dst(static_cast<size_t>(u.fx) * w * u.fy * (h > 0 ? h : 1), 0xEE);
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = rec.luma_src = src.data();
    rec.chroma_dst = rec.luma_dst = dst.data();
    if (u.entry)
        EXPECT_EQ(u.entry(&rec), &rec) << u.name;
    else if (u.with)
        u.with(&rec, u.core);
    else
        upsample_y_c(dst.data(), src.data(), w, h);
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
