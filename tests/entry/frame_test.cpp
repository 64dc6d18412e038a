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

class WholeFrame : public ::testing::TestWithParam<frame_case> {};

TEST_P(WholeFrame, MatchesTheOneThreadModel) {
    const frame_case c = GetParam();
    const uint32_t seed =
        static_cast<uint32_t>(c.size.width * 7919 + c.size.height * 31 + static_cast<int>(c.kind));
    // Planes 512 bytes into the buffer, so that a write in front of them shows.
    vtest::model_case f(c.size.width, c.size.height, c.format, c.scenario, seed,
                        c.kind == content::scene, 512);
    void* h = vantor_init(c.size.width, c.size.height, c.scenario);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
    vtest::log_clear();
    int32_t* result = f.run(h);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(*result, 0);
    for (const vtest::log_line& line : vtest::log_lines())
        EXPECT_NE(line.prio, 6) << line.text;
    EXPECT_EQ(vantor_deinit(h), 0);
    EXPECT_EQ(f.mismatch(), "");
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
