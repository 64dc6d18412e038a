// Thread-creation failures that the entry tests (CreateFailure, which picks the first and last
// worker of each kind) leave out: the middle deinterleave, box-filter and interleave workers.
// With these every one of the fifteen creations is made to fail once across the two files.
// Each must log its worker's line, give a null result, end every worker already started and
// give back every block, the handle included (freed by the last worker if the teardown could
// not wait for it).
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>

#include "entry/test_hooks.h"
#include "reliability/workload.h"
#include "support/log_capture.h"
#include "vantor.h"

namespace {

struct create_case {
    int n;  // failing creation, in start order
    const char* worker;
};

class MiddleWorkerCreateFailure : public ::testing::TestWithParam<create_case> {};

TEST_P(MiddleWorkerCreateFailure, LogsTheWorkerEndsTheOthersAndGivesEveryBlockBack) {
    const create_case c = GetParam();
    const std::set<pid_t> baseline = vrel::baseline_threads();
    vtest::log_clear();
    vtest::hook_guard hooks(0, c.n);
    EXPECT_EQ(vantor_init(640, 360, c.n % 2), nullptr);
    EXPECT_EQ(hooks.creations(), c.n - 1);
    EXPECT_EQ(vtest::log_count(6, std::string("thread create fail to ") + c.worker), 1);
    EXPECT_EQ(vtest::wait_threads_since(baseline, 0, 2000), 0u) << "workers left running";
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (hooks.frees() < 12 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(hooks.allocations(), 12);
    EXPECT_EQ(hooks.frees(), 12) << "blocks never given back";
}

INSTANTIATE_TEST_SUITE_P(Workers, MiddleWorkerCreateFailure,
                         ::testing::Values(create_case{2, "vantor_deinterleave_thread_func"},
                                           create_case{3, "vantor_deinterleave_thread_func"},
                                           create_case{6, "deinterleave_yuv420_uv_downsample"},
                                           create_case{7, "deinterleave_yuv420_uv_downsample"},
                                           create_case{13, "restore_interleave_yuv420"},
                                           create_case{14, "restore_interleave_yuv420"}),
                         [](const ::testing::TestParamInfo<create_case>& i) {
                             return "Creation" + std::to_string(i.param.n);
                         });

}  // namespace
