// The stage driver's refusals and results: a stage short of one parked worker, unknown formats,
// a held stage lock and a null record (a stage whose workers report late is the concurrency
// test's part). What the stages
// compute (job tables, strips, the luma decimation, the NV21 chroma move) is checked byte for
// byte by the whole-frame tests against the one-thread model.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "entry/handle.h"
#include "support/log_capture.h"
#include "vantor.h"
#include "vantor_ext.h"
#include "vantor_kernels.h"

namespace {

struct stage {
    const char* name;
    int32_t (*run)(vantor_thread*);
    int32_t vantor_thread::*counter;
};

const stage kStages[] = {
    {"vantor_deinterleave", vantor_deinterleave, &vantor_thread::deinterleave_ready},
    {"vantor_box_filter", vantor_box_filter, &vantor_thread::box_filter_ready},
    {"vantor_yuv", vantor_yuv, &vantor_thread::yuv_ready},
    {"vantor_interleave", vantor_interleave, &vantor_thread::interleave_ready},
};

// A real handle with one worker of a stage taken out of its count: the frame runs the stages
// before it, then that stage fails at once and keeps the count, the driver returns -22 and
// releases the stage lock, and nothing later runs.
TEST(Driver, StageShortOfOneWorkerStopsTheFrameWithMinus22) {
    for (const stage& s : kStages) {
        SCOPED_TRACE(s.name);
        void* h = vantor_init(224, 112, VTR_SCENARIO_PREVIEW);
        ASSERT_NE(h, nullptr);
        ASSERT_EQ(vantor_wait_ready(h, 10000), 0);
        vantor_thread* t = &static_cast<vantor_handle*>(h)->thread[0];
        pthread_mutex_lock(&t->mutex);
        const int32_t parked = t->*s.counter - 1;
        t->*s.counter = parked;
        pthread_mutex_unlock(&t->mutex);
        std::vector<uint8_t> frame(224 * 112 * 3 / 2, 77);
        vtest::log_clear();
        vantor_run(h, reinterpret_cast<uintptr_t>(frame.data()),
                   reinterpret_cast<uintptr_t>(frame.data() + 224 * 112), 224, 112, VTR_NV21);
        EXPECT_EQ(vtest::log_count(6, std::string(s.name) + ", ready sub thread wait"), 1);
        EXPECT_EQ(vtest::log_count(6, std::string(s.name) + " is fail.. ret = -1"), 1);
        char line[128];
        snprintf(line, sizeof line, "fail to vantor_run_thread, handle(%p), ret(-22)", h);
        EXPECT_EQ(vtest::log_count(6, line), 1);
        EXPECT_EQ(frame, std::vector<uint8_t>(frame.size(), 77)) << "nothing written";
        EXPECT_EQ(vantor_frame_status(h), VANTOR_FRAME_REFUSED_DEINTERLEAVE << (&s - kStages));
        ASSERT_EQ(pthread_mutex_trylock(&t->mutex), 0) << "the stage lock was released";
        EXPECT_EQ(t->*s.counter, parked);
        pthread_mutex_unlock(&t->mutex);
        EXPECT_EQ(vantor_deinit(h), 0);
    }
}

// The deinterleave stage reports an unknown format under vantor_run's name, the interleave
// stage under its own; both clear the readiness count.
TEST(Driver, UnknownFormatClearsTheCountAndIsLogged) {
    const stage stages[] = {
        {"vantor_run", vantor_deinterleave, &vantor_thread::deinterleave_ready},
        {"vantor_interleave", vantor_interleave, &vantor_thread::interleave_ready}};
    for (const stage& s : stages) {
        vtest::log_clear();
        vantor_thread t = {};
        t.*s.counter = 4;
        t.format = 0x4E563231;  // "NV21" in the other byte order
        EXPECT_EQ(s.run(&t), -1);
        EXPECT_EQ(t.*s.counter, 0);
        EXPECT_EQ(vtest::log_count(6, std::string(s.name) + ", Not supported format"), 1);
    }
}

TEST(Driver, HeldStageLockTimesOutAndFailsWithMinus38) {
    vantor_handle* h = static_cast<vantor_handle*>(calloc(1, sizeof(vantor_handle)));
    vantor_thread* t = &h->thread[0];
    std::atomic<bool> held{false}, done{false};
    std::thread holder([&] {
        pthread_mutex_lock(&t->mutex);
        held = true;
        while (!done)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    });
    while (!held)
        std::this_thread::yield();
    vtest::log_clear();
    EXPECT_EQ(vantor_run_thread(t), -38);
    done = true;
    holder.join();
    // The timed lock reports ETIMEDOUT, which the driver's EBUSY test does not catch.
    EXPECT_EQ(vtest::log_count(6, "vantor_run_thread, mutex lock time out(1000 ms)"), 1);
    EXPECT_EQ(vtest::log_count(6, "vantor_deinterleave, mutex lock fail"), 1);
    EXPECT_EQ(vtest::log_lines().size(), 2u);
    free(h);
}

TEST(Driver, NullRecordIsRefused) {
    vtest::log_clear();
    EXPECT_EQ(vantor_run_thread(nullptr), -22);
    EXPECT_EQ(vtest::log_count(6, "vantor_run_thread, vtr_thread is null"), 1);
}

}  // namespace
