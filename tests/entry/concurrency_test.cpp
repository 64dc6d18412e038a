// Several callers at once: two threads on one handle are served one after the other, several
// handles on several threads give the same bytes as the one-thread model.
#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <thread>
#include <vector>

#include "frame_model.h"
#include "support/frames.h"
#include "support/log_capture.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace {

#if defined(VANTOR_SMALL_FRAMES)
constexpr int32_t kWidth = 224, kHeight = 97;
constexpr int kFrames = 2;
#else
constexpr int32_t kWidth = 640, kHeight = 470;
constexpr int kFrames = 6;
#endif

// NV21 with aligned luma rows followed by the V/U plane, and its expected result.
struct job {
    job(int32_t w, int32_t h, uint32_t format, int32_t scenario, uint32_t seed)
        : width(w), height(h), format(format), scenario(scenario) {
        const size_t ha = (h + 15) & ~15;
        const bool planar = format == VTR_NV21 || format == VTR_NV21_M;
        vu_offset = planar ? w * ha : 0;
        bytes.resize(planar ? w * ha + w * ((h + 1) / 2) : 2 * static_cast<size_t>(w) * h);
        vtest::rng r(seed);
        for (uint8_t& b : bytes)
            b = r.byte();
        want = bytes;
        vtest::model_frame(want.data(), want.data() + vu_offset, w, h, format, scenario);
    }
    int32_t* run(void* handle) {
        return vantor_run(handle, reinterpret_cast<uintptr_t>(bytes.data()),
                          reinterpret_cast<uintptr_t>(bytes.data() + vu_offset), width, height,
                          static_cast<int32_t>(format));
    }
    int32_t width, height;
    uint32_t format;
    int32_t scenario;
    size_t vu_offset = 0;
    std::vector<uint8_t> bytes, want;
};

TEST(Concurrency, TwoCallersOnOneHandleAreServedOneAfterTheOther) {
    void* h = vantor_init(kWidth, kHeight, VTR_SCENARIO_CAPTURE);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
    std::vector<job> a, b;
    for (int i = 0; i < kFrames; ++i) {
        a.emplace_back(kWidth, kHeight, VTR_NV21, VTR_SCENARIO_CAPTURE, 100 + i);
        b.emplace_back(kWidth, kHeight, VTR_YUYV, VTR_SCENARIO_CAPTURE, 200 + i);
    }
    vtest::log_clear();
    auto caller = [&](std::vector<job>& jobs) {
        for (job& j : jobs) {
            EXPECT_NE(j.run(h), nullptr);
        }
    };
    std::thread t1(caller, std::ref(a));
    std::thread t2(caller, std::ref(b));
    t1.join();
    t2.join();
    for (int i = 0; i < kFrames; ++i) {
        EXPECT_TRUE(a[i].bytes == a[i].want) << "NV21 frame " << i;
        EXPECT_TRUE(b[i].bytes == b[i].want) << "YUYV frame " << i;
    }
    // Every frame ran its four stages without a refusal or a timed-out wait.
    for (const vtest::log_line& line : vtest::log_lines())
        EXPECT_NE(line.prio, 6) << line.text;
    EXPECT_EQ(vantor_deinit(h), 0);
}

TEST(Concurrency, SeveralHandlesOnSeveralThreadsGiveTheBytesOfOneAlone) {
    struct stream {
        uint32_t format;
        int32_t scenario;
    };
    const stream streams[] = {{VTR_NV21, VTR_SCENARIO_CAPTURE},
                              {VTR_NV21_M, VTR_SCENARIO_PREVIEW},
                              {VTR_YUY2, VTR_SCENARIO_PREVIEW}};
    std::vector<std::vector<job>> jobs(3);
    for (int s = 0; s < 3; ++s)
        for (int i = 0; i < kFrames; ++i)
            jobs[s].emplace_back(kWidth, kHeight, streams[s].format, streams[s].scenario,
                                 1000 * s + i);
    vtest::log_clear();
    std::vector<std::thread> threads;
    for (int s = 0; s < 3; ++s) {
        threads.emplace_back([&, s] {
            void* h = vantor_init(kWidth, kHeight, streams[s].scenario);
            ASSERT_NE(h, nullptr);
            ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
            for (job& j : jobs[s])
                EXPECT_NE(j.run(h), nullptr);
            EXPECT_EQ(vantor_deinit(h), 0);
        });
    }
    for (std::thread& t : threads)
        t.join();
    for (int s = 0; s < 3; ++s)
        for (int i = 0; i < kFrames; ++i)
            EXPECT_TRUE(jobs[s][i].bytes == jobs[s][i].want) << "stream " << s << " frame " << i;
    for (const vtest::log_line& line : vtest::log_lines()) {
        if (line.prio == 6) {
            EXPECT_EQ(line.text.rfind("Android-", 0), 0u) << line.text;
        }
    }
}

}  // namespace
