// Whole frames through vantor_run, every format and scenario, compared byte for byte with the
// one-thread model: the planes, the luma padding rows, the moved NV21 chroma plane and the
// bytes around the planes. Each plane buffer ends at a page guard.
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "frame_model.h"
#include "support/frames.h"
#include "support/log_capture.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace {

struct frame_size {
    int32_t width, height;
};

#if defined(VANTOR_SMALL_FRAMES)
// Emulated and sanitizer runs: fewer and smaller frames.
const frame_size kSizes[] = {{16, 1}, {224, 97}, {640, 480}, {1936, 1090}};
#else
const frame_size kSizes[] = {{1920, 1080}, {1920, 1088}, {1280, 720}, {1936, 1090},
                             {640, 480},   {4096, 2160}, {16, 1},     {224, 97}};
#endif
const uint32_t kFormats[] = {VTR_NV21, VTR_NV21_M, VTR_YUYV, VTR_YUY2};

enum class content { random, scene };

struct frame_case {
    frame_size size;
    uint32_t format;
    int32_t scenario;
    content kind;
};

std::string format_name(uint32_t f) {
    return f == VTR_NV21 ? "NV21" : f == VTR_NV21_M ? "NM21" : f == VTR_YUYV ? "YUYV" : "YUY2";
}

// Where the planes sit in one test buffer: a front margin, then the planes, the last plane
// ending at the buffer's end.
struct layout {
    size_t y = 0, vu = 0, total = 0;
};

constexpr size_t kMargin = 512;

layout layout_for(const frame_case& c) {
    const size_t w = c.size.width;
    const size_t h = c.size.height;
    const size_t ha = (h + 15) & ~size_t{15};
    layout l;
    l.y = kMargin;
    switch (c.format) {
        case VTR_NV21:  // V/U directly after a luma plane of aligned rows
            l.vu = l.y + w * ha;
            l.total = l.vu + w * ((h + 1) / 2);
            break;
        case VTR_NV21_M:  // planes apart, with a gap between them
            l.vu = l.y + w * ha + 4096 + 48;
            l.total = l.vu + w * ((h + 1) / 2);
            break;
        default:
            l.total = l.y + 2 * w * h;
            break;
    }
    return l;
}

void fill(uint8_t* buf, const layout& l, const frame_case& c, uint32_t seed) {
    vtest::rng r(seed);
    for (size_t i = 0; i < l.total; ++i)
        buf[i] = r.byte();
    if (c.kind == content::random)
        return;
    const vtest::scene s = vtest::make_scene(c.size.width, c.size.height, seed, 12);
    if (c.format == VTR_NV21 || c.format == VTR_NV21_M)
        vtest::pack_nv21(s, buf + l.y, buf + l.vu);
    else
        vtest::pack_yuyv(s, buf + l.y);
}

class WholeFrame : public ::testing::TestWithParam<frame_case> {};

TEST_P(WholeFrame, MatchesTheOneThreadModel) {
    const frame_case c = GetParam();
    const layout l = layout_for(c);
    vtest::guarded buf(l.total);
    const uint32_t seed =
        static_cast<uint32_t>(c.size.width * 7919 + c.size.height * 31 + static_cast<int>(c.kind));
    fill(buf.data(), l, c, seed);
    std::vector<uint8_t> want(buf.data(), buf.data() + l.total);
    vtest::model_frame(want.data() + l.y, want.data() + l.vu, c.size.width, c.size.height, c.format,
                       c.scenario);

    void* h = vantor_init(c.size.width, c.size.height, c.scenario);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
    vtest::log_clear();
    const uintptr_t a1 = reinterpret_cast<uintptr_t>(buf.data() + l.y);
    const uintptr_t a2 = reinterpret_cast<uintptr_t>(buf.data() + l.vu);
    int32_t* result =
        vantor_run(h, a1, a2, c.size.width, c.size.height, static_cast<int32_t>(c.format));
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(*result, 0);
    for (const vtest::log_line& line : vtest::log_lines())
        EXPECT_NE(line.prio, 6) << line.text;
    EXPECT_EQ(vantor_deinit(h), 0);

    EXPECT_TRUE(buf.front_intact());
    if (memcmp(buf.data(), want.data(), l.total) != 0) {
        const size_t w = c.size.width;
        const size_t rows = (l.total + w - 1) / w;
        std::vector<uint8_t> got(buf.data(), buf.data() + l.total);
        got.resize(rows * w);
        want.resize(rows * w);
        ADD_FAILURE() << vtest::first_difference(want.data(), got.data(), static_cast<int>(w),
                                                 static_cast<int>(rows), static_cast<int>(w),
                                                 "buffer (rows of width bytes)");
    }
}

std::vector<frame_case> all_cases() {
    std::vector<frame_case> out;
    for (const frame_size& s : kSizes)
        for (uint32_t f : kFormats)
            for (int32_t scenario : {VTR_SCENARIO_CAPTURE, VTR_SCENARIO_PREVIEW})
                for (content k : {content::random, content::scene})
                    out.push_back({s, f, scenario, k});
    return out;
}

INSTANTIATE_TEST_SUITE_P(Frames, WholeFrame, ::testing::ValuesIn(all_cases()),
                         [](const ::testing::TestParamInfo<frame_case>& info) {
                             const frame_case& c = info.param;
                             return std::to_string(c.size.width) + "x" +
                                    std::to_string(c.size.height) + "_" + format_name(c.format) +
                                    (c.scenario == 0 ? "_capture" : "_preview") +
                                    (c.kind == content::random ? "_random" : "_scene");
                         });

}  // namespace
