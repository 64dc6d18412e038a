// Unit tests of the tool's parts that the end-to-end tests in test_cli.py do not reach: size and
// option forms the tool's own runs never use, pictures FFmpeg does not write for them (grey,
// damaged JPEG), the colour matrix, where the comparison marks a change, and the demo's
// measurements.
#include <string.h>

#include <gtest/gtest.h>
#include <png.h>

#include <string>
#include <vector>

#include "args.h"
#include "color.h"
#include "compare.h"
#include "errors.h"
#include "formats.h"
#include "image.h"
#include "scene.h"

using namespace vtool;

namespace {

// Message of the tool_error that `fn` throws, or "no error".
template <typename F>
std::string error_of(F fn) {
    try {
        fn();
    } catch (const tool_error& e) {
        return e.what();
    }
    return "no error";
}

picture random_picture(int width, int height, int channels, uint64_t seed) {
    picture p = make_picture(width, height, channels);
    rng r(seed);
    for (uint8_t& b : p.pixels)
        b = static_cast<uint8_t>(r.next() >> 24);
    return p;
}

}  // namespace

// Sizes that overflow or carry trailing text, and the geometry limits below and above what the
// end-to-end runs ask for.
TEST(Formats, SizesAndGeometryLimits) {
    int w = 0, h = 0;
    EXPECT_TRUE(parse_size("256X144", &w, &h));
    EXPECT_EQ(w * 1000 + h, 256144);
    for (const char* bad : {"x1080", "1920x", "-16x16", "0x16", "19a0x10", "1920x1080x2",
                            "99999999x16", "16x99999999999"})
        EXPECT_FALSE(parse_size(bad, &w, &h)) << bad;
    const struct {
        pixel_format f;
        int w, h;
        const char* expect;  // substring of the problem, or "" when accepted
    } cases[] = {
        {pixel_format::nv21, 10, 144, "(nearest: 16)"},
        {pixel_format::nv21, 0, 144, "too small: the library needs at least 16x1"},
        {pixel_format::yuyv, 16, 0, "too small"},
        {pixel_format::nv21, 16400, 1080, "too large"},
        {pixel_format::yuyv, 256, 145, ""},
        {pixel_format::yuy2, 16384, 1, ""},
    };
    for (const auto& c : cases) {
        const std::string p = geometry_problem(c.f, c.w, c.h);
        if (c.expect[0] == '\0')
            EXPECT_EQ(p, "") << c.w << "x" << c.h;
        else
            EXPECT_NE(p.find(c.expect), std::string::npos) << p;
    }
}

TEST(Args, ValueFormsSeparatorAndUsageErrors) {
    const std::vector<option_def> defs = {
        {"--size", "-s", true}, {"--quiet", "-q", false}, {"--format", nullptr, true}};
    const char* argv[] = {"vantor", "denoise", "-s", "32x16", "--format=yuyv",
                          "-",      "-q",      "--", "-x",    "out"};
    const parsed_args a = parse_args(10, const_cast<char**>(argv), 2, defs, "denoise");
    EXPECT_EQ(a.value("--size", ""), "32x16");
    EXPECT_EQ(a.value("--format", ""), "yuyv");
    EXPECT_TRUE(a.has("--quiet"));
    EXPECT_EQ(a.positionals, (std::vector<std::string>{"-", "-x", "out"}));
    const struct {
        std::vector<const char*> argv;
        const char* error;
    } bad[] = {{{"vantor", "denoise", "-s"}, "--size needs a value"},
               {{"vantor", "denoise", "--quiet=1"}, "--quiet takes no value"}};
    for (const auto& c : bad) {
        EXPECT_EQ(error_of([&] {
                      parse_args(static_cast<int>(c.argv.size()), const_cast<char**>(c.argv.data()),
                                 2, defs, "denoise");
                  }),
                  c.error);
    }
}

// RGBA survives a round trip byte for byte; a grey PNG comes out as RGB.
TEST(Image, RgbaRoundTripAndGreyPng) {
    const picture p = random_picture(37, 5, 4, 15);
    const picture q = decode_image(encode_png(p), "test");
    EXPECT_EQ(q.width * 100 + q.height, 3705);
    EXPECT_EQ(q.channels, 4);
    EXPECT_EQ(q.pixels, p.pixels);

    png_image img;
    memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    img.width = 4;
    img.height = 2;
    img.format = PNG_FORMAT_GRAY;
    const uint8_t grey[8] = {0, 50, 100, 150, 200, 250, 255, 1};
    png_alloc_size_t size = 0;
    ASSERT_TRUE(png_image_write_get_memory_size(img, size, 0, grey, 0, nullptr));
    std::vector<uint8_t> bytes(size);
    ASSERT_TRUE(png_image_write_to_memory(&img, bytes.data(), &size, 0, grey, 0, nullptr));
    bytes.resize(size);
    const picture g = decode_image(bytes, "grey.png");
    ASSERT_EQ(g.channels, 3);
    for (int i = 0; i < 24; ++i)
        EXPECT_EQ(g.pixels[i], grey[i / 3]) << i;
}

TEST(Image, BrokenFilesAreErrors) {
    std::vector<uint8_t> png = encode_png(random_picture(32, 32, 3, 5));
    png.resize(png.size() / 2);
    const struct {
        std::vector<uint8_t> bytes;
        const char* error;
    } cases[] = {
        {{}, "x is empty"},
        {png, "x: damaged PNG file"},
        {{0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 1, 2, 3, 4, 5, 6, 7}, "x: not a readable JPEG file"}};
    for (const auto& c : cases) {
        const std::string e = error_of([&] { decode_image(c.bytes, "x"); });
        EXPECT_EQ(e.rfind(c.error, 0), 0u) << e;
    }
}

// Full-range BT.601 from the textbook weights, and back.
TEST(Color, FullRangeBt601ForKnownColours) {
    const int colours[][3] = {{255, 255, 255}, {0, 0, 0},       {255, 0, 0},     {0, 255, 0},
                              {0, 0, 255},     {128, 128, 128}, {196, 152, 128}, {30, 200, 210}};
    for (const auto& c : colours) {
        picture p = make_picture(2, 2, 3);
        for (int i = 0; i < 12; ++i)
            p.pixels[i] = static_cast<uint8_t>(c[i % 3]);
        const frame f = picture_to_nv21(p);
        const double y = 0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2];
        const double u = 128 + (c[2] - y) / 1.772, v = 128 + (c[0] - y) / 1.402;
        EXPECT_NEAR(f.bytes[0], y, 1.01) << c[0] << "," << c[1] << "," << c[2];
        EXPECT_NEAR(f.bytes[4], std::min(255.0, v), 1.01) << "V of " << c[0] << "," << c[1];
        EXPECT_NEAR(f.bytes[5], std::min(255.0, u), 1.01) << "U of " << c[0] << "," << c[1];
        const picture q = frame_to_picture(f);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(q.pixels[k], c[k], 3) << c[0] << "," << c[1] << "," << c[2];
    }
}

// The heat map colours exactly the block whose chroma changed; the statistics count it.
TEST(Compare, HeatMapAndStatisticsFollowTheChange) {
    const demo_scene s = make_demo_scene(256, 144, 3, noise_settings());
    frame after = s.noisy;
    for (int cy = 16; cy < 24; ++cy)
        for (int cx = 32; cx < 40; ++cx) {
            uint8_t* vu = &after.bytes[256 * 144 + cy * 256 + 2 * cx];
            vu[0] = static_cast<uint8_t>(vu[0] < 128 ? vu[0] + 3 : vu[0] - 3);
            vu[1] = static_cast<uint8_t>(vu[1] < 128 ? vu[1] + 2 : vu[1] - 2);
        }
    const compare_side before = side_of(s.noisy);
    const picture out = compose_comparison(before, side_of(after), 16);
    ASSERT_EQ(out.width, 3 * 256 + 2 * panel_gap);
    const int heat_x0 = 2 * (256 + panel_gap);
    for (int y = 0; y < 144; ++y)
        for (int x = 0; x < 256; ++x) {
            const uint8_t* px = out.row(y) + 3 * (heat_x0 + x);
            const bool inside = x >= 64 && x < 80 && y >= 32 && y < 48;
            ASSERT_EQ(px[0] != px[1] || px[1] != px[2], inside) << "at " << x << "," << y;
        }
    EXPECT_EQ(chroma_change(before.chroma, side_of(after).chroma)[20 * 128 + 35], 5);
    std::vector<int> change(1000, 0);
    for (int i = 0; i < 20; ++i)
        change[static_cast<size_t>(i)] = 4;
    change[999] = 30;
    const change_stats st = summarize_change(change);
    EXPECT_DOUBLE_EQ(st.mean, (20 * 4 + 30) / 1000.0);
    EXPECT_EQ(st.p99, 4);
    EXPECT_EQ(st.max, 30);
    EXPECT_DOUBLE_EQ(st.changed, 0.021);
    EXPECT_EQ(
        error_of([&] { compose_comparison(before, side_of(random_picture(8, 8, 3, 1)), 16); }),
        "cannot compare pictures of different sizes: 256x144 and 8x8");
}

// The clean scene measures zero; louder settings measure more noise and edge error.
TEST(Scene, MeasurementsFollowTheNoiseSettings) {
    noise_settings quiet, loud;
    quiet.blotch_amplitude = 2;
    quiet.chroma_sigma = 0.5;
    loud.blotch_amplitude = 10;
    loud.chroma_sigma = 3;
    const demo_scene a = make_demo_scene(640, 360, 2, quiet);
    const demo_scene b = make_demo_scene(640, 360, 2, loud);
    const scene_metrics clean = measure_scene(a, a.clean);
    EXPECT_EQ(clean.noise_u + clean.noise_v + clean.edge_error, 0.0);
    const scene_metrics ma = measure_scene(a, a.noisy);
    const scene_metrics mb = measure_scene(b, b.noisy);
    EXPECT_GT(ma.noise_u, 0.4);
    EXPECT_LT(ma.noise_u, 2.0);
    EXPECT_GT(mb.noise_u, 3.0);
    EXPECT_LT(mb.noise_u, 8.0);
    EXPECT_GT(mb.noise_v, 2 * ma.noise_v);
    EXPECT_GT(mb.edge_error, 2 * ma.edge_error);
}
