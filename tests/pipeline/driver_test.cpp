// The stage driver and its four stages against stand-in workers that only park and report:
// readiness checks, unknown formats, the stage wait and the driver's failure results. What the
// stages compute (job tables, strips, the luma decimation, the NV21 chroma move) is checked
// byte for byte by the whole-frame tests against the one-thread model.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "entry/handle.h"
#include "support/log_capture.h"

namespace {

// A zeroed handle whose record is driven by the stage functions, with stand-in workers parked
// on the four start conditions (4, 4, 3 and 4 of them, as in the library).
class stage_rig {
  public:
    stage_rig()
        : h_(static_cast<vantor_handle*>(calloc(1, sizeof(vantor_handle)))), t_(&h_->thread[0]) {}
    ~stage_rig() {
        stop_workers();
        free(h_);
    }
    vantor_thread* record() { return t_; }

    // respond: whether the stand-ins report completion when woken.
    void start_workers(bool respond = true) {
        respond_ = respond;
        add(&t_->deinterleave_cond, &t_->deinterleave_ready, 4);
        add(&t_->box_filter_cond, &t_->box_filter_ready, 4);
        add(&t_->yuv_cond, &t_->yuv_ready, 3);
        add(&t_->interleave_cond, &t_->interleave_ready, 4);
        wait_parked();
    }

    void wait_parked() {
        for (;;) {
            pthread_mutex_lock(&t_->mutex);
            const bool all = t_->deinterleave_ready == 4 && t_->box_filter_ready == 4 &&
                             t_->yuv_ready == 3 && t_->interleave_ready == 4;
            pthread_mutex_unlock(&t_->mutex);
            if (all)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    void stop_workers() {
        pthread_mutex_lock(&t_->mutex);
        stop_ = true;
        pthread_cond_broadcast(&t_->deinterleave_cond);
        pthread_cond_broadcast(&t_->box_filter_cond);
        pthread_cond_broadcast(&t_->yuv_cond);
        pthread_cond_broadcast(&t_->interleave_cond);
        pthread_mutex_unlock(&t_->mutex);
        for (std::thread& w : workers_)
            w.join();
        workers_.clear();
    }

    // Runs one stage function the way the driver does: with the stage lock held.
    int32_t run_stage(int32_t (*stage)(vantor_thread*)) {
        pthread_mutex_lock(&t_->mutex);
        const int32_t ret = stage(t_);
        pthread_mutex_unlock(&t_->mutex);
        return ret;
    }

  private:
    void add(pthread_cond_t* start, int32_t* ready, int32_t target) {
        for (int32_t i = 0; i < target; ++i) {
            workers_.emplace_back([this, start, ready, target] {
                pthread_mutex_lock(&t_->mutex);
                while (!stop_) {
                    vantor_wait_signal(start, &t_->mutex, ready, "stand-in");
                    if (!stop_ && respond_)
                        vantor_run_signal(&t_->done_cond, &t_->done_count, target);
                }
                pthread_mutex_unlock(&t_->mutex);
            });
        }
    }

    vantor_handle* h_;
    vantor_thread* t_;
    std::vector<std::thread> workers_;
    bool stop_ = false;
    bool respond_ = true;
};

// ---- readiness ---------------------------------------------------------------------------

struct readiness_case {
    const char* name;
    int32_t (*stage)(vantor_thread*);
    int32_t vantor_thread::*counter;
    int32_t parked;  // all the stage's workers
};

class Readiness : public ::testing::TestWithParam<readiness_case> {};

TEST_P(Readiness, OneWorkerShortFailsAtOnceAndKeepsTheCount) {
    const readiness_case c = GetParam();
    vtest::log_clear();
    vantor_thread t = {};
    t.*c.counter = c.parked - 1;
    EXPECT_EQ(c.stage(&t), -1);
    EXPECT_EQ(t.*c.counter, c.parked - 1);
    EXPECT_EQ(vtest::log_count(6, std::string(c.name) + ", ready sub thread wait"), 1);
    EXPECT_EQ(vtest::log_lines().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Stages, Readiness,
    ::testing::Values(readiness_case{"vantor_deinterleave", vantor_deinterleave,
                                     &vantor_thread::deinterleave_ready, 4},
                      readiness_case{"vantor_box_filter", vantor_box_filter,
                                     &vantor_thread::box_filter_ready, 4},
                      readiness_case{"vantor_yuv", vantor_yuv, &vantor_thread::yuv_ready, 3},
                      readiness_case{"vantor_interleave", vantor_interleave,
                                     &vantor_thread::interleave_ready, 4}),
    [](const ::testing::TestParamInfo<readiness_case>& info) {
        return std::string(info.param.name);
    });

// The deinterleave stage reports an unknown format under vantor_run's name, the interleave
// stage under its own; both clear the readiness count.
TEST(UnknownFormat, StageClearsTheCountAndLogsIt) {
    const readiness_case stages[] = {
        {"vantor_run", vantor_deinterleave, &vantor_thread::deinterleave_ready, 4},
        {"vantor_interleave", vantor_interleave, &vantor_thread::interleave_ready, 4}};
    for (const readiness_case& c : stages) {
        vtest::log_clear();
        vantor_thread t = {};
        t.*c.counter = c.parked;
        t.format = 0x4E563231;  // "NV21" in the other byte order
        EXPECT_EQ(c.stage(&t), -1);
        EXPECT_EQ(t.*c.counter, 0);
        EXPECT_EQ(vtest::log_count(6, std::string(c.name) + ", Not supported format"), 1);
    }
}

TEST(StageWait, WorkersThatDoNotReportCostOneLoggedTimeoutAndTheStageGoesOn) {
    stage_rig rig;
    vantor_thread* t = rig.record();
    rig.start_workers(false);
    vtest::log_clear();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(rig.run_stage(vantor_yuv), 0);
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(ms, 990.0);
    EXPECT_EQ(vtest::log_count(6,
                               "vantor_timedwait_signal: limited time(1000)ms, return(110), "
                               "from vantor_yuv"),
              1);
    EXPECT_EQ(t->yuv_ready, 3);
}

// ---- the driver --------------------------------------------------------------------------

TEST(Driver, NullRecordIsRefused) {
    vtest::log_clear();
    EXPECT_EQ(vantor_run_thread(nullptr), -22);
    EXPECT_EQ(vtest::log_count(6, "vantor_run_thread, vtr_thread is null"), 1);
}

TEST(Driver, StageFailureStopsTheFrameUnlocksAndReturnsMinus22) {
    struct step {
        int32_t vantor_thread::*counter;
        const char* line;
    };
    const step steps[] = {
        {&vantor_thread::deinterleave_ready, "vantor_deinterleave is fail.. ret = -1"},
        {&vantor_thread::box_filter_ready, "vantor_box_filter is fail.. ret = -1"},
        {&vantor_thread::yuv_ready, "vantor_yuv is fail.. ret = -1"},
        {&vantor_thread::interleave_ready, "vantor_interleave is fail.. ret = -1"},
    };
    for (const step& s : steps) {
        SCOPED_TRACE(s.line);
        stage_rig rig;
        vantor_thread* t = rig.record();
        rig.start_workers();
        std::vector<uint8_t> planes[6];
        for (std::vector<uint8_t>& p : planes)
            p.resize(2 * 64 * 16);
        t->format = VTR_YUYV;
        t->width = 64;
        t->height = t->aligned_height = t->cropped_height = 16;
        t->yuyv_address = reinterpret_cast<uintptr_t>(planes[0].data());
        t->y_old = planes[1].data();
        t->y_low = planes[2].data();
        t->y_high = planes[3].data();
        t->downsampled_y = t->downsampled_u = t->downsampled_v = planes[4].data();
        t->upsampled_u = t->upsampled_v = planes[5].data();
        pthread_mutex_lock(&t->mutex);
        t->*s.counter -= 1;
        pthread_mutex_unlock(&t->mutex);
        vtest::log_clear();
        EXPECT_EQ(vantor_run_thread(t), -22);
        EXPECT_EQ(vtest::log_count(6, s.line), 1);
        EXPECT_EQ(pthread_mutex_trylock(&t->mutex), 0) << "the stage lock was released";
        pthread_mutex_unlock(&t->mutex);
    }
}

TEST(Driver, HeldStageLockTimesOutAndFailsWithMinus38) {
    stage_rig rig;
    vantor_thread* t = rig.record();
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
}

}  // namespace
