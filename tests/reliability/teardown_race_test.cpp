// vantor_deinit racing the start-up of the workers: right after vantor_init, after a random
// short delay, from several threads at once, and right after a frame. Whatever phase the
// fifteen workers are in, every worker must end (the thread count comes back to where it was),
// every block the library took must be given back (by the teardown or by the last worker), and
// nothing but the teardown's own time-out line may be logged. Run under AddressSanitizer and
// ThreadSanitizer, these also catch a use after free of the handle and races on its fields.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "entry/test_hooks.h"
#include "reliability/workload.h"
#include "support/frames.h"
#include "support/log_capture.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace {

struct plan {
    const char* name;
    int threads;       // callers running cycles at the same time
    int cycles;        // per caller
    int max_delay_us;  // random pause between vantor_init and vantor_deinit (0: none)
    bool with_frame;   // wait for the workers, run one frame, then tear down at once
};

std::ostream& operator<<(std::ostream& os, const plan& p) {
    return os << p.name;
}

// Sizes from the smallest frame to VGA, heights on and off the 16-row grid.
const int32_t kSizes[][2] = {{16, 1}, {32, 17}, {224, 112}, {640, 360}, {640, 480}};

void cycles(const plan& p, uint32_t seed, int* failures) {
    vtest::rng r(seed);
    for (int c = 0; c < p.cycles; ++c) {
        const int32_t* s = kSizes[r.range(0, 4)];
        void* h = vantor_init(s[0], s[1], c % 2);
        if (!h) {
            ++*failures;
            return;
        }
        if (p.max_delay_us > 0)
            std::this_thread::sleep_for(std::chrono::microseconds(r.range(0, p.max_delay_us)));
        if (p.with_frame) {
            const int32_t aligned = (s[1] + 15) & ~15;
            std::vector<uint8_t> frame(static_cast<size_t>(s[0]) * aligned * 3 / 2);
            for (auto& b : frame)
                b = r.byte();
            uint8_t* y = frame.data();
            if (vantor_wait_ready(h, 10000) != 0 ||
                !vantor_run(h, reinterpret_cast<uintptr_t>(y),
                            reinterpret_cast<uintptr_t>(y + static_cast<size_t>(s[0]) * aligned),
                            s[0], s[1], VTR_NV21))
                ++*failures;
        }
        if (vantor_deinit(h) != 0)
            ++*failures;
    }
}

class TeardownRace : public ::testing::TestWithParam<plan> {};

TEST_P(TeardownRace, EveryWorkerEndsAndEveryBlockIsGivenBack) {
    const plan p = GetParam();
    const std::set<pid_t> baseline = vrel::baseline_threads();
    vtest::log_clear();
    vtest::hook_guard hooks;
    std::vector<int> failures(p.threads, 0);
    std::vector<std::thread> callers;
    for (int t = 0; t < p.threads; ++t)
        callers.emplace_back(cycles, std::cref(p), 1000 + t, &failures[t]);
    for (auto& c : callers)
        c.join();
    for (int t = 0; t < p.threads; ++t)
        EXPECT_EQ(failures[t], 0) << "caller " << t;

    // Workers that had not parked leave after the teardown returned; give them time to go.
    EXPECT_EQ(vtest::wait_threads_since(baseline, 0, 20000), 0u) << "threads left running";
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (hooks.frees() < hooks.allocations() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(hooks.allocations(), 12 * p.threads * p.cycles);
    EXPECT_EQ(hooks.frees(), hooks.allocations()) << "blocks never given back";
    EXPECT_EQ(hooks.creations(), 15 * p.threads * p.cycles);

    for (const auto& l : vtest::log_lines()) {
        if (l.prio < 6 || l.text.rfind("Android-", 0) == 0)
            continue;
        // The only error a race may cause: the teardown's 100 ms wait ran out because some
        // workers had not parked yet.
        EXPECT_EQ(l.text,
                  "vantor_timedwait_signal: limited time(100)ms, return(110), from vantor_deinit");
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
