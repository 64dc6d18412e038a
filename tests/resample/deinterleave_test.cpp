// Deinterleave: the first-band asymmetry of the chroma-only kernel, the whole band a ragged
// bound runs and the bounds that write nothing, each for the vector and the scalar form; the
// strip wrappers (which run the vector kernels on their aligned part) and the decimation
// against their definition, which shows which input byte lands in which output sample.
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "resample/deinterleave.h"

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

void PrintTo(const kernels& k, std::ostream* os) {
    *os << k.name;
}

// A byte that differs between nearby positions, so a sample taken from the wrong place shows.
uint8_t mark(size_t i) {
    return static_cast<uint8_t>((i * 2654435761u) >> 13);
}

std::vector<uint8_t> marked(size_t n) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = mark(i);
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

}  // namespace
