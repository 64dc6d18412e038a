// Unit tests of the tool's parts that do not need the library: command-line parsing, frame
// geometry, files, pictures, colour conversion, the comparison picture and the demo scene.
#include <fcntl.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <jpeglib.h>
#include <png.h>

#include <algorithm>
#include <string>
#include <vector>

#include "args.h"
#include "color.h"
#include "compare.h"
#include "errors.h"
#include "files.h"
#include "formats.h"
#include "image.h"
#include "progress.h"
#include "raw_reader.h"
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

// A fresh directory under the test's temporary area, removed with its files at the end.
struct temp_dir {
    temp_dir() {
        char templ[] = "/tmp/vantor_tool_test.XXXXXX";
        path = mkdtemp(templ);
    }
    ~temp_dir() {
        std::string cmd = "rm -rf '" + path + "'";
        if (system(cmd.c_str()) != 0)
            perror("cleanup");
    }
    std::vector<std::string> entries() const {
        std::vector<std::string> out;
        std::string cmd = "ls -A '" + path + "'";
        FILE* p = popen(cmd.c_str(), "r");
        char line[512];
        while (fgets(line, sizeof line, p)) {
            line[strcspn(line, "\n")] = 0;
            out.push_back(line);
        }
        pclose(p);
        return out;
    }
    std::string path;
};

void write_bytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    FILE* f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    if (!bytes.empty())
        fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
}

// Full-range BT.601, the reference the libyuv path is held to.
void reference_yuv(int r, int g, int b, double* y, double* u, double* v) {
    *y = 0.299 * r + 0.587 * g + 0.114 * b;
    *u = 128 + (b - *y) / 1.772;
    *v = 128 + (r - *y) / 1.402;
}

std::vector<uint8_t> encode_jpeg(int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr err;
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_compress(&cinfo);
    unsigned char* mem = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &mem, &size);
    cinfo.image_width = static_cast<JDIMENSION>(width);
    cinfo.image_height = static_cast<JDIMENSION>(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 95, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    std::vector<uint8_t> row(static_cast<size_t>(width) * 3);
    for (int x = 0; x < width; ++x) {
        row[3 * x] = r;
        row[3 * x + 1] = g;
        row[3 * x + 2] = b;
    }
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW p = row.data();
        jpeg_write_scanlines(&cinfo, &p, 1);
    }
    jpeg_finish_compress(&cinfo);
    std::vector<uint8_t> out(mem, mem + size);
    free(mem);
    jpeg_destroy_compress(&cinfo);
    return out;
}

picture random_picture(int width, int height, int channels, uint64_t seed) {
    picture p = make_picture(width, height, channels);
    rng r(seed);
    for (uint8_t& b : p.pixels)
        b = static_cast<uint8_t>(r.next() >> 24);
    return p;
}

}  // namespace

// ---- command line -----------------------------------------------------------------------

TEST(Formats, NamesAndFfmpegSpellings) {
    const struct {
        const char* text;
        bool ok;
        pixel_format f;
    } cases[] = {{"nv21", true, pixel_format::nv21},
                 {"NV21", true, pixel_format::nv21},
                 {"nm21", true, pixel_format::nm21},
                 {"yuyv", true, pixel_format::yuyv},
                 {"yuyv422", true, pixel_format::yuyv},
                 {"YUY2", true, pixel_format::yuy2},
                 {"nv12", false, {}},
                 {"yuv420p", false, {}},
                 {"", false, {}},
                 {"nv21 ", false, {}}};
    for (const auto& c : cases) {
        pixel_format f = pixel_format::nm21;
        EXPECT_EQ(parse_format(c.text, &f), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(f, c.f) << c.text;
        }
    }
    int s = -1;
    EXPECT_TRUE(parse_scenario("Preview", &s));
    EXPECT_EQ(s, 1);
    EXPECT_TRUE(parse_scenario("capture", &s));
    EXPECT_EQ(s, 0);
    EXPECT_FALSE(parse_scenario("video", &s));
    EXPECT_FALSE(parse_scenario("0", &s));
}

TEST(Formats, Sizes) {
    const struct {
        const char* text;
        bool ok;
        int w, h;
    } cases[] = {{"1920x1080", true, 1920, 1080}, {"256X144", true, 256, 144},
                 {"1920", false, 0, 0},           {"x1080", false, 0, 0},
                 {"1920x", false, 0, 0},          {"-16x16", false, 0, 0},
                 {"0x16", false, 0, 0},           {"19a0x10", false, 0, 0},
                 {"1920x1080x2", false, 0, 0},    {"99999999x16", false, 0, 0}};
    for (const auto& c : cases) {
        int w = 0, h = 0;
        EXPECT_EQ(parse_size(c.text, &w, &h), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(w, c.w) << c.text;
            EXPECT_EQ(h, c.h) << c.text;
        }
    }
}

TEST(Formats, GeometryTheLibraryAccepts) {
    const struct {
        pixel_format f;
        int w, h;
        const char* expect;  // substring of the problem, or "" when accepted
    } cases[] = {
        {pixel_format::nv21, 1920, 1080, ""},
        {pixel_format::nv21, 1928, 1080, "not a multiple of 16"},
        {pixel_format::nv21, 1928, 1080, "1920 or 1936"},
        {pixel_format::yuyv, 250, 144, "(nearest: 240 or 256)"},
        {pixel_format::nv21, 210, 144, "(nearest: 208 or 224)"},
        {pixel_format::nv21, 10, 144, "(nearest: 16)"},
        {pixel_format::nv21, 256, 145, "odd"},
        {pixel_format::nm21, 256, 145, "NM21"},
        {pixel_format::yuyv, 256, 145, ""},
        {pixel_format::yuy2, 224, 97, ""},
        {pixel_format::nv21, 16, 2, ""},
        {pixel_format::yuyv, 16, 1, ""},
        {pixel_format::nv21, 0, 144, "too small: the library needs at least 16x1"},
        {pixel_format::yuyv, 16, 0, "too small"},
        {pixel_format::nv21, 16400, 1080, "too large"},
    };
    for (const auto& c : cases) {
        const std::string p = geometry_problem(c.f, c.w, c.h);
        if (c.expect[0] == '\0')
            EXPECT_EQ(p, "") << c.w << "x" << c.h;
        else
            EXPECT_NE(p.find(c.expect), std::string::npos) << p;
    }
    EXPECT_EQ(frame_bytes(pixel_format::nv21, 1920, 1080), 3110400u);
    EXPECT_EQ(frame_bytes(pixel_format::yuy2, 1920, 1080), 4147200u);
}

TEST(Args, OptionsFlagsAndPositionals) {
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
    } bad[] = {{{"vantor", "denoise", "--bogus"},
                "unknown option --bogus for 'vantor denoise' (see vantor help)"},
               {{"vantor", "denoise", "-s"}, "--size needs a value"},
               {{"vantor", "denoise", "--quiet=1"}, "--quiet takes no value"}};
    for (const auto& c : bad) {
        EXPECT_EQ(error_of([&] {
                      parse_args(static_cast<int>(c.argv.size()), const_cast<char**>(c.argv.data()),
                                 2, defs, "denoise");
                  }),
                  c.error);
    }
}

TEST(Progress, BarWithAndWithoutKnownTotal) {
    EXPECT_EQ(progress_bar::render(5, 10, 2.5, 10), "[#####.....] 5/10 frames  2.50 ms/frame");
    EXPECT_EQ(progress_bar::render(10, 10, 1, 4), "[####] 10/10 frames  1.00 ms/frame");
    EXPECT_EQ(progress_bar::render(7, 0, 3.25, 10), "7 frames  3.25 ms/frame");
}

// ---- files ------------------------------------------------------------------------------

TEST(Files, OutputAppearsOnlyWhenComplete) {
    temp_dir dir;
    const std::string target = dir.path + "/out.raw";
    {
        output_file out(target);
        const uint8_t data[3] = {1, 2, 3};
        out.write(data, 3);
        EXPECT_EQ(dir.entries().size(), 1u);  // the temporary name only
        EXPECT_NE(access(target.c_str(), F_OK), 0);
    }
    EXPECT_TRUE(dir.entries().empty()) << "an uncommitted output left a file behind";

    write_whole_file(target, {7, 8, 9});
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"out.raw"}));
    input_file in(target);
    EXPECT_EQ(in.read_all(), (std::vector<uint8_t>{7, 8, 9}));
}

TEST(Files, UnwritableAndUnreadablePaths) {
    temp_dir dir;
    EXPECT_NE(error_of([&] {
                  output_file o(dir.path + "/missing/out.png");
              }).find("cannot write " + dir.path + "/missing/out.png: No such file"),
              std::string::npos);
    EXPECT_EQ(error_of([&] { output_file o(dir.path); }),
              "cannot write " + dir.path + ": it is a directory");
    EXPECT_EQ(error_of([&] { input_file i(dir.path + "/none.nv21"); }),
              "cannot read " + dir.path + "/none.nv21: No such file or directory");
    EXPECT_EQ(error_of([&] { input_file i(dir.path); }),
              "cannot read " + dir.path + ": it is a directory");
}

TEST(RawReader, WholeFramesOnly) {
    temp_dir dir;
    const size_t frame = frame_bytes(pixel_format::nv21, 256, 144);  // 55296
    const struct {
        size_t bytes;
        const char* error;
    } cases[] = {
        {0, "is empty: expected a multiple of 55296 bytes (one 256x144 NV21 frame)"},
        {frame * 2 + 1000,
         "has 111592 bytes, not a whole number of frames: expected a multiple of 55296 bytes"},
        {frame - 1, "has 55295 bytes, not a whole number of frames"},
    };
    for (const auto& c : cases) {
        const std::string path = dir.path + "/in.nv21";
        write_bytes(path, std::vector<uint8_t>(c.bytes, 1));
        input_file in(path);
        const std::string e = error_of([&] { raw_reader r(in, pixel_format::nv21, 256, 144); });
        EXPECT_NE(e.find(c.error), std::string::npos) << e;
    }

    const std::string path = dir.path + "/three.yuyv";
    std::vector<uint8_t> bytes(frame_bytes(pixel_format::yuyv, 256, 144) * 3);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i / frame_bytes(pixel_format::yuyv, 256, 144));
    write_bytes(path, bytes);
    input_file in(path);
    raw_reader r(in, pixel_format::yuyv, 256, 144);
    EXPECT_EQ(r.total, 3u);
    std::vector<uint8_t> buf(r.frame_size);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(r.next({{buf.data(), 100}, {buf.data() + 100, buf.size() - 100}}));
        EXPECT_EQ(buf.front(), i);
        EXPECT_EQ(buf.back(), i);
    }
    EXPECT_FALSE(r.next({{buf.data(), buf.size()}}));
}

TEST(RawReader, StreamCutInsideAFrame) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const size_t frame = frame_bytes(pixel_format::nv21, 256, 144);
    std::vector<uint8_t> data(frame + 1000, 9);
    ASSERT_EQ(write(fds[1], data.data(), data.size()), static_cast<ssize_t>(data.size()));
    close(fds[1]);
    input_file in("/proc/self/fd/" + std::to_string(fds[0]));
    close(fds[0]);
    EXPECT_FALSE(in.regular);
    raw_reader r(in, pixel_format::nv21, 256, 144);
    std::vector<uint8_t> buf(frame);
    EXPECT_TRUE(r.next({{buf.data(), buf.size()}}));
    const std::string e = error_of([&] { r.next({{buf.data(), buf.size()}}); });
    EXPECT_NE(e.find("ends inside frame 2: got 1000 of the 55296 bytes of a 256x144 NV21 frame"),
              std::string::npos)
        << e;
}

// ---- pictures -----------------------------------------------------------------------------

TEST(Image, KindByContentAndName) {
    const uint8_t png_head[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    const uint8_t jpeg_head[4] = {0xFF, 0xD8, 0xFF, 0xE0};
    const uint8_t raw_head[8] = {16, 16, 16, 16, 128, 128, 128, 128};
    EXPECT_EQ(sniff_image(png_head, 8), image_kind::png);
    EXPECT_EQ(sniff_image(png_head, 7), image_kind::none);
    EXPECT_EQ(sniff_image(jpeg_head, 4), image_kind::jpeg);
    EXPECT_EQ(sniff_image(raw_head, 8), image_kind::none);
    EXPECT_EQ(image_kind_of_name("a/b.PNG"), image_kind::png);
    EXPECT_EQ(image_kind_of_name("photo.jpeg"), image_kind::jpeg);
    EXPECT_EQ(image_kind_of_name("photo.JPG"), image_kind::jpeg);
    EXPECT_EQ(image_kind_of_name("frames.nv21"), image_kind::none);
    EXPECT_EQ(image_kind_of_name("png"), image_kind::none);
}

TEST(Image, PngRoundTripKeepsEveryByte) {
    for (int channels : {3, 4}) {
        for (auto size : {std::make_pair(1, 1), std::make_pair(37, 5), std::make_pair(64, 48)}) {
            const picture p = random_picture(size.first, size.second, channels, 11 + channels);
            const picture q = decode_image(encode_png(p), "test");
            EXPECT_EQ(q.width, p.width);
            EXPECT_EQ(q.height, p.height);
            EXPECT_EQ(q.channels, channels);
            EXPECT_EQ(q.pixels, p.pixels) << channels << " channels " << size.first;
        }
    }
}

TEST(Image, GreyPngComesOutAsRgb) {
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
    const picture p = decode_image(bytes, "grey.png");
    ASSERT_EQ(p.channels, 3);
    for (int i = 0; i < 8; ++i)
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(p.pixels[3 * i + k], grey[i]) << i;
}

TEST(Image, JpegDecodes) {
    const picture p = decode_image(encode_jpeg(40, 24, 200, 60, 30), "photo.jpg");
    EXPECT_EQ(p.width, 40);
    EXPECT_EQ(p.height, 24);
    ASSERT_EQ(p.channels, 3);
    for (size_t i = 0; i < p.pixels.size(); i += 3) {
        EXPECT_NEAR(p.pixels[i], 200, 3);
        EXPECT_NEAR(p.pixels[i + 1], 60, 3);
        EXPECT_NEAR(p.pixels[i + 2], 30, 3);
    }
}

TEST(Image, BrokenFilesAreErrors) {
    std::vector<uint8_t> png = encode_png(random_picture(32, 32, 3, 5));
    png.resize(png.size() / 2);
    std::vector<uint8_t> jpeg = {0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 1, 2, 3, 4, 5, 6, 7};
    const struct {
        std::vector<uint8_t> bytes;
        const char* error;
    } cases[] = {{{}, "x is empty"},
                 {{'h', 'e', 'l', 'l', 'o'}, "x: not a PNG or JPEG file"},
                 {png, "x: damaged PNG file"},
                 {jpeg, "x: not a readable JPEG file"}};
    for (const auto& c : cases) {
        const std::string e = error_of([&] { decode_image(c.bytes, "x"); });
        EXPECT_EQ(e.rfind(c.error, 0), 0u) << e;
    }
}

// ---- colour conversion ----------------------------------------------------------------------

TEST(Color, FullRangeBt601ForKnownColours) {
    const int colours[][3] = {{255, 255, 255}, {0, 0, 0},       {255, 0, 0},     {0, 255, 0},
                              {0, 0, 255},     {128, 128, 128}, {196, 152, 128}, {30, 200, 210}};
    for (const auto& c : colours) {
        picture p = make_picture(2, 2, 3);
        for (int i = 0; i < 4; ++i)
            for (int k = 0; k < 3; ++k)
                p.pixels[3 * i + k] = static_cast<uint8_t>(c[k]);
        const frame f = picture_to_nv21(p);
        double y, u, v;
        reference_yuv(c[0], c[1], c[2], &y, &u, &v);
        EXPECT_NEAR(f.bytes[0], y, 1.01) << c[0] << "," << c[1] << "," << c[2];
        EXPECT_NEAR(f.bytes[4], std::min(255.0, v), 1.01) << "V of " << c[0] << "," << c[1];
        EXPECT_NEAR(f.bytes[5], std::min(255.0, u), 1.01) << "U of " << c[0] << "," << c[1];
        // And back: flat colours survive the round trip closely.
        const picture q = frame_to_picture(f);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(q.pixels[k], c[k], 3) << c[0] << "," << c[1] << "," << c[2];
    }
}

TEST(Color, PackedFormatsShowTheSameColours) {
    // One colour per 2-pixel pair, written as YUYV and as NV21, must display identically.
    const int w = 8, h = 4;
    frame yuyv{pixel_format::yuyv, w, h,
               std::vector<uint8_t>(frame_bytes(pixel_format::yuyv, w, h))};
    frame nv21{pixel_format::nv21, w, h,
               std::vector<uint8_t>(frame_bytes(pixel_format::nv21, w, h))};
    const uint8_t pairs[4][3] = {{80, 90, 200}, {150, 200, 60}, {30, 128, 128}, {220, 100, 140}};
    for (int y = 0; y < h; ++y)
        for (int c = 0; c < w / 2; ++c) {
            const uint8_t* yuv = pairs[c];
            uint8_t* g = &yuyv.bytes[static_cast<size_t>(y) * 2 * w + 4 * c];
            g[0] = g[2] = yuv[0];
            g[1] = yuv[1];
            g[3] = yuv[2];
            nv21.bytes[static_cast<size_t>(y) * w + 2 * c] = yuv[0];
            nv21.bytes[static_cast<size_t>(y) * w + 2 * c + 1] = yuv[0];
            uint8_t* vu = &nv21.bytes[static_cast<size_t>(w) * h + (y / 2) * w + 2 * c];
            vu[0] = yuv[2];
            vu[1] = yuv[1];
        }
    const picture a = frame_to_picture(yuyv);
    const picture b = frame_to_picture(nv21);
    for (size_t i = 0; i < a.pixels.size(); ++i)
        EXPECT_NEAR(a.pixels[i], b.pixels[i], 1) << i;
    const chroma_planes ca = chroma_of(yuyv);
    const chroma_planes cb = chroma_of(nv21);
    EXPECT_EQ(ca.ch, h);
    EXPECT_EQ(cb.ch, h / 2);
    EXPECT_EQ(ca.u[1], 200);
    EXPECT_EQ(cb.u[1], 200);
    EXPECT_EQ(ca.v[3], 140);
    EXPECT_EQ(cb.v[w / 2 + 3], 140);
}

TEST(Color, PadRepeatsEdgesAndCropUndoesIt) {
    const picture p = random_picture(5, 3, 4, 3);
    const picture q = pad_picture(p, 16, 6);
    ASSERT_EQ(q.width, 16);
    ASSERT_EQ(q.height, 6);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 16; ++x)
            for (int k = 0; k < 4; ++k)
                EXPECT_EQ(q.row(y)[4 * x + k], p.row(std::min(y, 2))[4 * std::min(x, 4) + k]);
    EXPECT_EQ(crop_picture(q, 5, 3).pixels, p.pixels);
}

// ---- comparison ---------------------------------------------------------------------------

TEST(Compare, HeatMapMarksOnlyWhereChromaChanged) {
    const demo_scene s = make_demo_scene(256, 144, 3, noise_settings());
    frame after = s.noisy;
    // Change the chroma of one 16 x 16 block at (64, 32) by 3 + 2 codes.
    for (int cy = 16; cy < 24; ++cy)
        for (int cx = 32; cx < 40; ++cx) {
            uint8_t* vu = &after.bytes[256 * 144 + cy * 256 + 2 * cx];
            vu[0] = static_cast<uint8_t>(vu[0] < 128 ? vu[0] + 3 : vu[0] - 3);
            vu[1] = static_cast<uint8_t>(vu[1] < 128 ? vu[1] + 2 : vu[1] - 2);
        }
    const compare_side before = side_of(s.noisy);
    const picture out = compose_comparison(before, side_of(after), 16);
    ASSERT_EQ(out.width, 3 * 256 + 2 * panel_gap);
    ASSERT_EQ(out.height, 144);
    const int heat_x0 = 2 * (256 + panel_gap);
    for (int y = 0; y < 144; ++y)
        for (int x = 0; x < 256; ++x) {
            const uint8_t* px = out.row(y) + 3 * (heat_x0 + x);
            const bool inside = x >= 64 && x < 80 && y >= 32 && y < 48;
            const bool grey = px[0] == px[1] && px[1] == px[2];
            EXPECT_EQ(!grey, inside) << "at " << x << "," << y;
            if (y == 40 && x == 70) {
                uint8_t expected[3];
                const uint8_t* src = before.rgb.row(y) + 3 * x;
                heat_colour(5, 16, ((77 * src[0] + 150 * src[1] + 29 * src[2]) >> 8) / 4, expected);
                EXPECT_EQ(memcmp(px, expected, 3), 0);
            }
        }
    // The left and middle panels are the two pictures themselves.
    EXPECT_EQ(memcmp(out.row(40), before.rgb.row(40), 256 * 3), 0);
    EXPECT_EQ(memcmp(out.row(40) + 3 * (256 + panel_gap), frame_to_picture(after).row(40), 256 * 3),
              0);
    EXPECT_EQ(
        error_of([&] { compose_comparison(before, side_of(random_picture(8, 8, 3, 1)), 16); }),
        "cannot compare pictures of different sizes: 256x144 and 8x8");
}

TEST(Compare, HeatColoursGrowWithTheChange) {
    uint8_t c[3];
    heat_colour(0, 16, 40, c);
    EXPECT_TRUE(c[0] == 40 && c[1] == 40 && c[2] == 40);
    int last = -1;
    for (int d = 1; d <= 16; ++d) {
        heat_colour(d, 16, 0, c);
        const int brightness = c[0] + c[1] + c[2];
        EXPECT_GT(brightness, last) << d;
        last = brightness;
    }
    uint8_t top[3], beyond[3];
    heat_colour(16, 16, 0, top);
    heat_colour(200, 16, 0, beyond);
    EXPECT_EQ(memcmp(top, beyond, 3), 0);
}

TEST(Compare, ChangeStatistics) {
    std::vector<int> change(1000, 0);
    for (int i = 0; i < 20; ++i)
        change[static_cast<size_t>(i)] = 4;
    change[999] = 30;
    const change_stats s = summarize_change(change);
    EXPECT_DOUBLE_EQ(s.mean, (20 * 4 + 30) / 1000.0);
    EXPECT_EQ(s.p99, 4);
    EXPECT_EQ(s.max, 30);
    EXPECT_DOUBLE_EQ(s.changed, 0.021);
}

// ---- demo scene -----------------------------------------------------------------------------

TEST(Scene, RepeatableAndSeeded) {
    const demo_scene a = make_demo_scene(320, 240, 5, noise_settings());
    const demo_scene b = make_demo_scene(320, 240, 5, noise_settings());
    const demo_scene c = make_demo_scene(320, 240, 6, noise_settings());
    EXPECT_EQ(a.noisy.bytes, b.noisy.bytes);
    EXPECT_NE(a.noisy.bytes, c.noisy.bytes);
    EXPECT_EQ(a.clean.bytes, c.clean.bytes);
    EXPECT_EQ(a.flat_patches.size(), 12u);
    EXPECT_EQ(a.edge_bands.size(), 5u);
}

TEST(Scene, MeasuringAreasAreFlatPatchesAndRealEdges) {
    for (auto size : {std::make_pair(320, 240), std::make_pair(1920, 1080)}) {
        const demo_scene s = make_demo_scene(size.first, size.second, 1, noise_settings());
        const chroma_planes c = chroma_of(s.clean);
        for (const rect& q : s.flat_patches) {
            ASSERT_TRUE(q.x0 >= 0 && q.y0 >= 0 && q.x1 <= size.first && q.y1 <= size.second);
            ASSERT_GT(q.x1 - q.x0, 8);
            ASSERT_GT(q.y1 - q.y0, 8);
        }
        const scene_metrics clean = measure_scene(s, s.clean);
        EXPECT_EQ(clean.noise_u, 0.0);
        EXPECT_EQ(clean.noise_v, 0.0);
        EXPECT_EQ(clean.edge_error, 0.0);
        for (const rect& q : s.edge_bands) {
            // Somewhere across each band the clean chroma jumps by a large step.
            const int cy = (q.y0 + q.y1) / 4;
            int jump = 0;
            for (int cx = q.x0 / 2; cx + 1 < q.x1 / 2; ++cx) {
                const size_t i = static_cast<size_t>(cy) * c.cw + cx;
                jump = std::max(jump, abs(c.u[i + 1] - c.u[i]) + abs(c.v[i + 1] - c.v[i]));
            }
            EXPECT_GT(jump, 60) << "band at x " << q.x0;
        }
    }
}

TEST(Scene, MeasuredNoiseFollowsTheNoiseSettings) {
    noise_settings quiet;
    quiet.blotch_amplitude = 2;
    quiet.chroma_sigma = 0.5;
    noise_settings loud;
    loud.blotch_amplitude = 10;
    loud.chroma_sigma = 3;
    const demo_scene a = make_demo_scene(640, 360, 2, quiet);
    const demo_scene b = make_demo_scene(640, 360, 2, loud);
    const scene_metrics ma = measure_scene(a, a.noisy);
    const scene_metrics mb = measure_scene(b, b.noisy);
    EXPECT_GT(ma.noise_u, 0.4);
    EXPECT_LT(ma.noise_u, 2.0);
    EXPECT_GT(mb.noise_u, 3.0);
    EXPECT_LT(mb.noise_u, 8.0);
    EXPECT_GT(mb.noise_v, 2 * ma.noise_v);
    EXPECT_GT(mb.edge_error, 2 * ma.edge_error);
    EXPECT_NEAR(mean_luma_change(a.clean, a.noisy), 1.5 * sqrt(2 / M_PI), 0.1);
}
