// vantor_init, vantor_run and vantor_deinit: every refusal with its exact lines and result,
// allocation and thread-creation failures, lock behaviour, teardown and niceness.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "entry/handle.h"
#include "support/frames.h"
#include "support/log_capture.h"
#include "support/frame_model.h"
#include "test_hooks.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace {

using clock_type = std::chrono::steady_clock;

double ms_since(clock_type::time_point start) {
    return std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
}

std::string fmt(const char* format, const void* p) {
    char buf[256];
    snprintf(buf, sizeof buf, format, p);
    return buf;
}

const char* const kDeinitTimeout =
    "vantor_timedwait_signal: limited time(100)ms, return(110), from vantor_deinit";

// An NV21 frame of random bytes as the library wants it laid out.
struct nv21_frame : vtest::model_case {
    nv21_frame(int32_t w, int32_t h, uint32_t seed) : model_case(w, h, VTR_NV21, 0, seed, false) {}
    uintptr_t y() { return reinterpret_cast<uintptr_t>(buf.data()); }
    uintptr_t vu() { return reinterpret_cast<uintptr_t>(buf.data() + model_case::vu); }
};

class Entry : public ::testing::Test {
  protected:
    void SetUp() override {
        // Runtimes that start a helper thread with the first thread (sanitizers) do so here.
        std::thread([] {}).join();
        baseline_ = vtest::thread_ids();
        vtest::log_clear();
    }
    void TearDown() override {
        EXPECT_EQ(vtest::wait_threads_since(baseline_, 0, 2000), 0u) << "threads left running";
    }
    std::set<pid_t> baseline_;
};

// ---- vantor_init ---------------------------------------------------------------------------

// A width off the 16-column grid, or a luma plane beyond 32 bits (which would wrap the buffer
// sizes): refused with one line before any allocation.
TEST_F(Entry, SizesOffTheGridOrBeyond32BitBuffersAreRefusedBeforeAnyAllocation) {
    vtest::hook_guard hooks;
    const struct {
        int32_t w, h;
        const char* line;
    } cases[] = {{1928, 1080, "unsupported width"},
                 {8, 1080, "unsupported width"},
                 {-8, 1080, "unsupported width"},
                 {131072, 65552, "vantor_init, unsupported size 131072x65552"},
                 {16, 2147483647, "vantor_init, unsupported size 16x2147483647"},
                 {0, 2147483647, "vantor_init, unsupported size 0x2147483647"},
                 {65536, 32769, "vantor_init, unsupported size 65536x32769"}};
    for (const auto& c : cases) {
        vtest::log_clear();
        EXPECT_EQ(vantor_init(c.w, c.h, VTR_SCENARIO_CAPTURE), nullptr) << c.w << "x" << c.h;
        EXPECT_EQ(vtest::log_count(6, c.line), 1);
        EXPECT_EQ(vtest::log_lines().size(), 1u);
    }
    EXPECT_EQ(hooks.allocations(), 0);
}

TEST_F(Entry, UnknownScenarioYieldsTheUnfilledBlockWithoutThreads) {
    vtest::hook_guard hooks;
    void* h = vantor_init(1920, 1080, 2);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(hooks.allocations(), 1) << "the handle block only";
    EXPECT_EQ(hooks.creations(), 0);
    EXPECT_EQ(vtest::log_table(), (vtest::log_rows{{4, fmt("vantor_init, handle %p", h)},
                                                   {6, "vantor_init, not support scenario(2)"}}));
    free(h);  // not to be passed to the library
}

struct alloc_case {
    int n;  // failing allocation, 1 = the handle block
    const char* line;
};

class AllocFailure : public Entry, public ::testing::WithParamInterface<alloc_case> {};

TEST_P(AllocFailure, LogsTheBufferFreesEverythingAndStartsNoThread) {
    const alloc_case c = GetParam();
    vtest::hook_guard hooks(c.n);
    EXPECT_EQ(vantor_init(1920, 1080, VTR_SCENARIO_CAPTURE), nullptr);
    EXPECT_EQ(hooks.allocations(), c.n) << "stops at the failure";
    EXPECT_EQ(hooks.creations(), 0);
    EXPECT_EQ(vtest::log_count(6, c.line), 1);
    EXPECT_EQ(hooks.frees(), c.n - 1) << "everything taken is given back";
    if (c.n > 1) {
        // The teardown of a handle without workers waits its full 100 ms.
        EXPECT_EQ(vtest::log_count(6, kDeinitTimeout), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Buffers, AllocFailure,
    ::testing::Values(alloc_case{1, "vantor_init, fail: handle (nil)"},
                      alloc_case{2, "vantor_init, vtr->y_old alloc is fail"},
                      alloc_case{3, "vantor_init, vtr->y_low[0] alloc is fail"},
                      alloc_case{4, "vantor_init, vtr->y_high[0] alloc is fail"},
                      alloc_case{5, "vantor_init, vtr->downsampled_y[0] alloc is fail"},
                      alloc_case{6, "vantor_init, vtr->downsampled_u[0] alloc is fail"},
                      alloc_case{7, "vantor_init, vtr->downsampled_v[0] alloc is fail"},
                      alloc_case{8, "vantor_init, vtr->filtered_y alloc is fail"},
                      alloc_case{9, "vantor_init, vtr->filtered_u alloc is fail"},
                      alloc_case{10, "vantor_init, vtr->filtered_v alloc is fail"},
                      alloc_case{11, "vantor_init, vtr->upsampled_u alloc is fail"},
                      alloc_case{12, "vantor_init, vtr->upsampled_v alloc is fail"}));

// Workers start in this order: four deinterleave, four box filter (logged under a kernel's
// name), the U, V and Y plane workers, four interleave.
const char* worker_line(int n) {
    return n <= 4    ? "vantor_deinterleave_thread_func"
           : n <= 8  ? "deinterleave_yuv420_uv_downsample"
           : n == 9  ? "vantor_u"
           : n == 10 ? "vantor_v"
           : n == 11 ? "vantor_y"
                     : "restore_interleave_yuv420";
}

class CreateFailure : public Entry, public ::testing::WithParamInterface<int> {};

// Creation n of the fifteen fails: its line, a null result, every worker already started ends
// and every block is given back, the handle by the last worker if the teardown could not wait.
TEST_P(CreateFailure, LogsTheWorkerTearsDownAndLeavesNoThreadRunning) {
    const int n = GetParam();
    vtest::hook_guard hooks(0, n);
    const auto start = clock_type::now();
    EXPECT_EQ(vantor_init(640, 480, n % 2), nullptr);
    EXPECT_LT(ms_since(start), 1000.0);
    EXPECT_EQ(hooks.creations(), n - 1);
    EXPECT_EQ(vtest::log_count(6, std::string("thread create fail to ") + worker_line(n)), 1);
    EXPECT_EQ(vtest::log_count(6, kDeinitTimeout), 1) << "fewer than 15 can report";
    EXPECT_EQ(vtest::wait_threads_since(baseline_, 0, 2000), 0u);
    const auto end = clock_type::now() + std::chrono::seconds(2);
    while (hooks.frees() < 12 && clock_type::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(hooks.frees(), 12);
}

INSTANTIATE_TEST_SUITE_P(Workers, CreateFailure, ::testing::Range(1, 16));

// ---- null handles ----------------------------------------------------------------------------

TEST_F(Entry, NullHandleIsRefusedByRunAndDeinit) {
    EXPECT_EQ(vantor_run(nullptr, 0x1000, 0x2000, 1920, 1080, VTR_NV21), nullptr);
    EXPECT_EQ(vantor_deinit(nullptr), -1);
    EXPECT_EQ(vtest::log_table(), (vtest::log_rows{{6, "vantor_run, VTR handler is NULL~!!!!!\n"},
                                                   {4, "vantor_deinit, handle (nil)"},
                                                   {6, "vantor_deinit, vtr in NULL~!!"}}));
    EXPECT_EQ(vantor_wait_ready(nullptr, 10), EINVAL);
}

// ---- vantor_run --------------------------------------------------------------------------

TEST_F(Entry, UnknownFormatLeavesTheSlotLockedSoTheNextCallerBlocks) {
    void* h = vantor_init(640, 480, VTR_SCENARIO_PREVIEW);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
    nv21_frame f(640, 480, 9);
    const std::vector<uint8_t>& before = f.input;
    vtest::log_clear();
    int32_t* result = vantor_run(h, f.y(), f.vu(), 640, 480, 0);
    EXPECT_EQ(result, &static_cast<vantor_handle*>(h)->result[0]);
    const std::vector<vtest::log_line> lines = vtest::log_lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].prio, 6);
    EXPECT_EQ(lines[1].text, "vantor_run, Not supported format");
    EXPECT_EQ(vantor_frame_status(h), VANTOR_FRAME_NOT_RUN);
    EXPECT_EQ(f.bytes(), before);

    std::atomic<bool> returned{false};
    std::thread second([&] {
        vantor_run(h, f.y(), f.vu(), 640, 480, VTR_NV21);
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(returned) << "the second caller must wait for the slot";
    // The slot stays locked until someone releases it; this thread holds it.
    pthread_mutex_unlock(&static_cast<vantor_handle*>(h)->run_mutex[0]);
    second.join();
    EXPECT_TRUE(returned);
    EXPECT_NE(f.bytes(), before) << "the second frame was processed";
    EXPECT_EQ(vantor_deinit(h), 0);
}

TEST_F(Entry, FrameBeforeTheWorkersParkIsRefusedAndNothingWritten) {
    vtest::hook_guard hooks(0, 0, true);
    void* h = vantor_init(640, 480, VTR_SCENARIO_PREVIEW);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(vantor_wait_ready(h, 50), ETIMEDOUT);
    nv21_frame f(640, 470, 3);
    const std::vector<uint8_t>& before = f.input;
    vtest::log_clear();
    EXPECT_NE(vantor_run(h, f.y(), f.vu(), 640, 470, VTR_NV21), nullptr);
    EXPECT_EQ(f.bytes(), before);
    EXPECT_EQ(vtest::log_count(6, "vantor_deinterleave, ready sub thread wait"), 1);
    hooks.open_gate();
    ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
    EXPECT_NE(vantor_run(h, f.y(), f.vu(), 640, 470, VTR_NV21), nullptr);
    EXPECT_NE(f.bytes(), before) << "served once the workers park";
    EXPECT_EQ(vantor_deinit(h), 0);
}

struct fit_case {
    int32_t width, height;
    bool fits;
};

class FrameFit : public Entry, public ::testing::WithParamInterface<fit_case> {};

// A frame wider than the handle, with more aligned rows, or malformed is refused with the slot
// released, so that the next fitting frame goes through; a smaller one is processed.
TEST_P(FrameFit, OnlyFramesWithinTheHandleAreProcessed) {
    const fit_case c = GetParam();
    void* h = vantor_init(640, 470, VTR_SCENARIO_CAPTURE);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
    nv21_frame f(656, 496, 4);
    const std::vector<uint8_t>& before = f.input;
    vtest::log_clear();
    int32_t* result = vantor_run(h, f.y(), f.vu(), c.width, c.height, VTR_NV21);
    EXPECT_EQ(result, &static_cast<vantor_handle*>(h)->result[0]);
    char line[128];
    snprintf(line, sizeof line, "vantor_run, frame %dx%d does not fit handle 640x470", c.width,
             c.height);
    EXPECT_EQ(vtest::log_count(6, line), c.fits ? 0 : 1);
    EXPECT_EQ(vantor_frame_status(h), c.fits ? VANTOR_FRAME_OK : VANTOR_FRAME_NOT_RUN);
    EXPECT_EQ(f.bytes() != before, c.fits);
    if (!c.fits) {
        EXPECT_EQ(vtest::log_lines().size(), 1u);
        EXPECT_EQ(static_cast<vantor_handle*>(h)->width, 640) << "geometry untouched";
        EXPECT_NE(vantor_run(h, f.y(), f.vu(), 640, 470, VTR_NV21), nullptr);
        EXPECT_NE(f.bytes(), before) << "the slot was released";
    }
    EXPECT_EQ(vantor_deinit(h), 0);
}

INSTANTIATE_TEST_SUITE_P(Frames, FrameFit,
                         ::testing::Values(fit_case{656, 470, false},  // wider
                                           fit_case{640, 481, false},  // 496 aligned rows > 480
                                           fit_case{632, 470, false},  // not a multiple of 16
                                           fit_case{0, 470, false}, fit_case{-16, 470, false},
                                           fit_case{640, 0, false}, fit_case{640, -3, false},
                                           fit_case{320, 480, true}));  // 480 aligned rows

// ---- teardown --------------------------------------------------------------------------------

// Init logs the handle, the build banner and the settings, allocates the handle and eleven
// buffers sized from the width and the aligned height, and starts fifteen workers; an idle
// teardown ends them all at once and frees everything itself.
TEST_F(Entry, InitStartsFifteenWorkersAndIdleTeardownEndsThemQuickly) {
    vtest::hook_guard hooks;
    void* h = vantor_init(1920, 1080, VTR_SCENARIO_CAPTURE);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
    const std::vector<vtest::log_line> lines = vtest::log_lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ((std::vector<int>{lines[0].prio, lines[1].prio, lines[2].prio}),
              (std::vector<int>{4, 6, 4}));
    EXPECT_EQ(lines[0].text, fmt("vantor_init, handle %p", h));
    EXPECT_TRUE(std::regex_match(
        lines[1].text,
        std::regex(
            R"(Android-0\.0 Build Date is \([A-Z][a-z]{2} [ 0-9]\d \d{4}\) \(\d\d:\d\d:\d\d\))")))
        << lines[1].text;
    EXPECT_EQ(lines[2].text,
              "vantor_init, width(1920), height(1080), scenario(VTR_SCENARIO_CAPTURE), "
              "interleaving color saturation(12), priority(-8)");
    const size_t want[] = {2088960, 2088960, 2088960, 8160,    8160,   8160,
                           8160,    8160,    8160,    1044480, 1044480};
    ASSERT_EQ(hooks.allocations(), 12);
    for (int i = 0; i < 11; ++i)
        EXPECT_EQ(hooks.size_of(i + 2), want[i]) << "buffer " << i + 1;
    EXPECT_EQ(hooks.creations(), 15);
    EXPECT_EQ(vtest::threads_since(baseline_), 15u);
    vtest::log_clear();
    const auto start = clock_type::now();
    EXPECT_EQ(vantor_deinit(h), 0);
    EXPECT_LT(ms_since(start), 150.0);
    EXPECT_EQ(vtest::log_count(6, kDeinitTimeout), 0) << "all fifteen reported";
    EXPECT_EQ(vtest::log_count(4, fmt("vantor_deinit, handle %p", h)), 1);
    EXPECT_EQ(hooks.frees(), 12) << "handle and buffers freed by the teardown itself";
    EXPECT_EQ(vtest::wait_threads_since(baseline_, 0, 1000), 0u);
}

TEST_F(Entry, TeardownBeforeAnyWorkerStartsLeavesTheHandleToTheLastWorker) {
    vtest::hook_guard hooks(0, 0, true);
    void* h = vantor_init(224, 112, VTR_SCENARIO_PREVIEW);
    ASSERT_NE(h, nullptr);
    const auto start = clock_type::now();
    EXPECT_EQ(vantor_deinit(h), 0);
    EXPECT_LT(ms_since(start), 1000.0);
    EXPECT_EQ(vtest::log_count(6, kDeinitTimeout), 1);
    EXPECT_EQ(hooks.frees(), 11) << "buffers freed, the handle kept for the workers";
    hooks.open_gate();
    EXPECT_EQ(vtest::wait_threads_since(baseline_, 0, 2000), 0u);
    const auto end = clock_type::now() + std::chrono::seconds(2);
    while (hooks.frees() < 12 && clock_type::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(hooks.frees(), 12);
}

// ---- niceness ------------------------------------------------------------------------------

TEST_F(Entry, WorkersAndCallerTakeTheScenarioNiceness) {
    // Raising priority (a negative niceness) needs privilege; find out whether we have it.
    int probe = 0;
    std::thread([&] { probe = setpriority(PRIO_PROCESS, gettid(), -8); }).join();
    const bool privileged = probe == 0;
    for (int32_t scenario : {VTR_SCENARIO_CAPTURE, VTR_SCENARIO_PREVIEW}) {
        SCOPED_TRACE(scenario);
        const int want = scenario == VTR_SCENARIO_CAPTURE ? -8 : 0;
        const std::set<pid_t> before = vtest::thread_ids();
        void* h = vantor_init(224, 112, scenario);
        ASSERT_NE(h, nullptr);
        ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
        int workers = 0;
        for (pid_t tid : vtest::thread_ids()) {
            if (before.count(tid) != 0)
                continue;
            ++workers;
            EXPECT_EQ(vtest::thread_nice(tid), privileged || want >= 0 ? want : 0) << tid;
        }
        EXPECT_EQ(workers, 15);
        int caller_nice = 1000;
        std::thread([&] {
            // Start from 3 so that both scenarios change it observably.
            setpriority(PRIO_PROCESS, gettid(), 3);
            nv21_frame f(224, 112, 1);
            vantor_run(h, f.y(), f.vu(), 224, 112, VTR_NV21);
            caller_nice = vtest::thread_nice(gettid());
        }).join();
        // Lowering the niceness below the start needs privilege too.
        EXPECT_EQ(caller_nice, privileged ? want : 3) << "left changed after the frame";
        EXPECT_EQ(vantor_deinit(h), 0);
    }
    if (!privileged)
        printf("[ note     ] setpriority below the current niceness refused: unprivileged run\n");
}

// ---- teardown races ---------------------------------------------------------------------------

// vantor_deinit racing the start-up of the workers: right after vantor_init, after a random
// pause, from several callers at once, and right after a frame. Whatever phase the workers are
// in, every one must end, every block must be given back (by the teardown or by the last
// worker), and nothing but the teardown's own time-out may be logged. Under the sanitizers
// these also catch a use after free of the handle and races on its fields.
struct plan {
    const char* name;
    int threads;       // callers running cycles at the same time
    int cycles;        // per caller
    int max_delay_us;  // random pause between vantor_init and vantor_deinit (0: none)
    bool with_frame;   // wait for the workers, run one frame, then tear down at once
};

void race_cycles(const plan& p, uint32_t seed, int* failures) {
    // Sizes from the smallest frame to VGA, heights on and off the 16-row grid.
    const int32_t sizes[][2] = {{16, 1}, {32, 17}, {224, 112}, {640, 360}, {640, 480}};
    vtest::rng r(seed);
    for (int c = 0; c < p.cycles; ++c) {
        const int32_t* s = sizes[r.range(0, 4)];
        void* h = vantor_init(s[0], s[1], c % 2);
        if (!h) {
            ++*failures;
            return;
        }
        if (p.max_delay_us > 0)
            std::this_thread::sleep_for(std::chrono::microseconds(r.range(0, p.max_delay_us)));
        if (p.with_frame) {
            nv21_frame f(s[0], s[1], seed + c);
            if (vantor_wait_ready(h, 10000) != 0 ||
                !vantor_run(h, f.y(), f.vu(), s[0], s[1], VTR_NV21))
                ++*failures;
        }
        *failures += vantor_deinit(h) != 0;
    }
}

class TeardownRace : public Entry, public ::testing::WithParamInterface<plan> {};

TEST_P(TeardownRace, EveryWorkerEndsAndEveryBlockIsGivenBack) {
    const plan p = GetParam();
    vtest::hook_guard hooks;
    std::vector<int> failures(p.threads, 0);
    std::vector<std::thread> callers;
    for (int t = 0; t < p.threads; ++t)
        callers.emplace_back(race_cycles, std::cref(p), 1000 + t, &failures[t]);
    for (auto& c : callers)
        c.join();
    EXPECT_EQ(failures, std::vector<int>(p.threads, 0));
    // Workers that had not parked leave after the teardown returned; give them time to go.
    EXPECT_EQ(vtest::wait_threads_since(baseline_, 0, 20000), 0u) << "threads left running";
    const auto end = clock_type::now() + std::chrono::seconds(20);
    while (hooks.frees() < hooks.allocations() && clock_type::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(hooks.allocations(), 12 * p.threads * p.cycles);
    EXPECT_EQ(hooks.frees(), hooks.allocations()) << "blocks never given back";
    EXPECT_EQ(hooks.creations(), 15 * p.threads * p.cycles);
    for (const auto& l : vtest::log_lines()) {
        if (l.prio >= 6 && l.text.rfind("Android-", 0) != 0) {
            EXPECT_EQ(l.text, kDeinitTimeout);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Phases, TeardownRace,
                         ::testing::Values(plan{"RightAfterInit", 1, 60, 0, false},
                                           plan{"AfterARandomPause", 1, 40, 3000, false},
                                           plan{"FourCallersAtOnce", 4, 15, 500, false},
                                           plan{"RightAfterAFrame", 2, 15, 0, true}),
                         [](const ::testing::TestParamInfo<plan>& i) {
                             return std::string(i.param.name);
                         });

}  // namespace
