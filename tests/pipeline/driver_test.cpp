// The stage driver and its four stages against stand-in workers that only park and report:
// readiness checks, job tables and strip geometry, the luma decimation, the NV21 chroma move,
// and the driver's failure results.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "entry/handle.h"
#include "support/frames.h"
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

uintptr_t addr(const void* p) {
    return reinterpret_cast<uintptr_t>(p);
}

// Fake plane addresses: the stages only compute pointers from them.
constexpr uintptr_t kY = 0x10000000;
constexpr uintptr_t kVU = 0x20000000;
constexpr uintptr_t kPacked = 0x30000000;
uint8_t* const kYOld = reinterpret_cast<uint8_t*>(0x40000000);
uint8_t* const kLow = reinterpret_cast<uint8_t*>(0x50000000);
uint8_t* const kHigh = reinterpret_cast<uint8_t*>(0x60000000);
uint8_t* const kDsU = reinterpret_cast<uint8_t*>(0x70000000);
uint8_t* const kDsV = reinterpret_cast<uint8_t*>(0x78000000);
uint8_t* const kUpU = reinterpret_cast<uint8_t*>(0x80000000u);
uint8_t* const kUpV = reinterpret_cast<uint8_t*>(0x88000000u);

void set_frame(vantor_thread* t, int32_t format, int32_t w, int32_t h) {
    t->format = format;
    t->width = w;
    t->height = h;
    t->cropped_height = h & ~15;
    t->aligned_height = (h + 15) & ~15;
    t->in_address_1 = kY;
    t->in_address_2 = kVU;
    t->out_address_2 = kVU;
    t->yuyv_address = kPacked;
    t->y_old = kYOld;
    t->y_low = kLow;
    t->y_high = kHigh;
    t->downsampled_u = kDsU;
    t->downsampled_v = kDsV;
    t->upsampled_u = kUpU;
    t->upsampled_v = kUpV;
}

struct geometry_case {
    uint32_t format;
    int32_t width, height;
    int32_t strip;      // S, written out by hand
    int32_t remainder;  // rows of the last strip
};

class StripGeometry : public ::testing::TestWithParam<geometry_case> {};

TEST_P(StripGeometry, DeinterleaveAndInterleaveJobsCoverTheFrameInFourStrips) {
    const geometry_case c = GetParam();
    stage_rig rig;
    vantor_thread* t = rig.record();
    rig.start_workers();
    set_frame(t, static_cast<int32_t>(c.format), c.width, c.height);
    const bool planar = c.format == VTR_NV21 || c.format == VTR_NV21_M;
    const ptrdiff_t w = c.width;
    const ptrdiff_t s = c.strip;

    ASSERT_EQ(rig.run_stage(vantor_deinterleave), 0);
    EXPECT_EQ(t->deinterleave_ready, 4) << "workers parked again after the stage";
    EXPECT_EQ(t->y_old, planar ? reinterpret_cast<uint8_t*>(kY) : kYOld);
    for (int i = 0; i < 4; ++i) {
        const deinterleave_job& j = t->deinterleave_job[i];
        SCOPED_TRACE("strip " + std::to_string(i));
        EXPECT_EQ(j.width, c.width);
        EXPECT_EQ(j.strip_height, i < 3 ? c.strip : c.remainder);
        EXPECT_EQ(j.format, static_cast<int32_t>(c.format));
        EXPECT_EQ(j.first_out, kDsU + i * (w / 16) * (s / 16));
        EXPECT_EQ(j.second_out, kDsV + i * (w / 16) * (s / 16));
        if (planar) {
            EXPECT_EQ(addr(j.y_out), kY + i * s * w);
            EXPECT_EQ(j.y_in, j.y_out);
            EXPECT_EQ(addr(j.vu_in), kVU + i * s * (w / 2));
            EXPECT_EQ(j.packed_in, nullptr) << "left as it was";
        } else {
            EXPECT_EQ(j.y_out, kYOld + i * s * w);
            EXPECT_EQ(addr(j.packed_in), kPacked + 2 * i * s * w);
            EXPECT_EQ(j.vu_in, nullptr) << "left as it was";
        }
    }

    ASSERT_EQ(rig.run_stage(vantor_interleave), 0);
    for (int i = 0; i < 4; ++i) {
        const interleave_job& j = t->interleave_job[i];
        SCOPED_TRACE("strip " + std::to_string(i));
        EXPECT_EQ(j.width, c.width);
        EXPECT_EQ(j.strip_height, i < 3 ? c.strip : c.remainder);
        EXPECT_EQ(j.y_comp_a, kLow + i * s * w);
        EXPECT_EQ(j.y_comp_b, kHigh + i * s * w);
        const ptrdiff_t up = planar ? i * (s / 2) * (w / 2) : i * s * (w / 2);
        EXPECT_EQ(j.up_first, kUpU + up);
        EXPECT_EQ(j.up_second, kUpV + up);
        EXPECT_EQ(j.format, static_cast<int32_t>(c.format));
        if (planar) {
            EXPECT_EQ(addr(j.y_in), kY + i * s * w);
            EXPECT_EQ(addr(j.vu_in), kVU + i * s * (w / 2));
            EXPECT_EQ(j.y_out, j.y_in);
            EXPECT_EQ(j.vu_out, j.vu_in);
            EXPECT_EQ(j.frame, nullptr);
        } else {
            EXPECT_EQ(addr(j.frame), kPacked + 2 * i * s * w);
            EXPECT_EQ(j.y_in, nullptr);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Frames, StripGeometry,
                         ::testing::Values(geometry_case{VTR_NV21, 1920, 1080, 272, 264},
                                           geometry_case{VTR_NV21_M, 1920, 1088, 272, 272},
                                           geometry_case{VTR_NV21, 1280, 720, 176, 192},
                                           geometry_case{VTR_YUYV, 1280, 720, 176, 192},
                                           geometry_case{VTR_YUY2, 1936, 1090, 272, 274},
                                           geometry_case{VTR_NV21, 224, 112, 16, 64},
                                           geometry_case{VTR_YUYV, 224, 97, 16, 49},
                                           geometry_case{VTR_NV21, 64, 16, 0, 16}));

TEST(BoxFilterStage, FourEqualColumnBandsOverAllAlignedRowsThenDecimatesLowLuma) {
    stage_rig rig;
    vantor_thread* t = rig.record();
    rig.start_workers();
    const int32_t w = 96, h = 70, ha = 80;
    std::vector<uint8_t> y_old(w * ha), low(w * ha), high(w * ha), ds((w / 16) * (ha / 16), 0xEE);
    vtest::rng r(7);
    for (uint8_t& v : low)
        v = r.byte();
    set_frame(t, VTR_YUYV, w, h);
    t->y_old = y_old.data();
    t->y_low = low.data();
    t->y_high = high.data();
    t->downsampled_y = ds.data();
    ASSERT_EQ(rig.run_stage(vantor_box_filter), 0);
    for (int i = 0; i < 4; ++i) {
        const box_filter_job& j = t->box_filter_job[i];
        EXPECT_EQ(j.stride, w);
        EXPECT_EQ(j.height, ha);
        EXPECT_EQ(j.width, 24);
        EXPECT_EQ(j.source, y_old.data() + 24 * i);
        EXPECT_EQ(j.low, low.data() + 24 * i);
        EXPECT_EQ(j.high, high.data() + 24 * i);
    }
    for (int br = 0; br < ha / 16; ++br)
        for (int bc = 0; bc < w / 16; ++bc)
            EXPECT_EQ(ds[br * (w / 16) + bc], low[16 * br * w + 16 * bc]) << br << "," << bc;
}

TEST(LowDownsample, NothingWrittenBelowOneBlockRow) {
    vantor_thread t = {};
    std::vector<uint8_t> low(64 * 16, 9), ds(4, 0xEE);
    t.width = 64;
    t.aligned_height = 0;
    t.y_low = low.data();
    t.downsampled_y = ds.data();
    y_low_downsample(&t);
    EXPECT_EQ(ds, std::vector<uint8_t>(4, 0xEE));
}

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

TEST(UnknownFormat, DeinterleaveClearsTheCountAndNamesVantorRun) {
    vtest::log_clear();
    vantor_thread t = {};
    t.deinterleave_ready = 4;
    t.format = 0x3132564E + 1;
    EXPECT_EQ(vantor_deinterleave(&t), -1);
    EXPECT_EQ(t.deinterleave_ready, 0);
    EXPECT_EQ(vtest::log_count(6, "vantor_run, Not supported format"), 1);
}

TEST(UnknownFormat, InterleaveClearsTheCountAndNamesItself) {
    vtest::log_clear();
    vantor_thread t = {};
    t.interleave_ready = 4;
    t.format = 0x4E563231;  // "NV21" in the other byte order
    EXPECT_EQ(vantor_interleave(&t), -1);
    EXPECT_EQ(t.interleave_ready, 0);
    EXPECT_EQ(vtest::log_count(6, "vantor_interleave, Not supported format"), 1);
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

// ---- chroma move -----------------------------------------------------------------------------

struct move_case {
    uint32_t format;
    int32_t height;
    bool moves;
};

class ChromaMove : public ::testing::TestWithParam<move_case> {};

TEST_P(ChromaMove, OnlyNv21WithPaddingRowsMovesTheChromaPlaneDown) {
    const move_case c = GetParam();
    const int32_t w = 64;
    const int32_t ha = (c.height + 15) & ~15;
    // Y plane of aligned rows, then the V/U plane, as a caller lays out NV21 for the library.
    std::vector<uint8_t> buf(w * ha + w * ((c.height + 1) / 2) + 64);
    vtest::rng r(c.height);
    for (uint8_t& v : buf)
        v = r.byte();
    const std::vector<uint8_t> before = buf;
    uint8_t* y = buf.data();
    uint8_t* vu = y + w * ha;

    stage_rig rig;
    vantor_thread* t = rig.record();
    rig.start_workers();
    set_frame(t, static_cast<int32_t>(c.format), w, c.height);
    t->in_address_1 = addr(y);
    t->in_address_2 = addr(vu);
    // vantor_run moves the output address back by the padding rows for NV21 only; a YUYV
    // frame finds whatever stale addresses the record holds.
    t->out_address_2 = addr(vu - w * (ha - c.height));
    if (c.format == VTR_NV21_M)
        t->out_address_2 = addr(vu);
    vtest::log_clear();
    ASSERT_EQ(rig.run_stage(vantor_interleave), 0);

    const size_t moved = static_cast<size_t>(c.height) * (w / 2);
    std::vector<uint8_t> want = before;
    if (c.moves)
        memmove(want.data() + w * c.height, before.data() + w * ha, moved);
    EXPECT_EQ(buf, want);
    char line[160];
    snprintf(line, sizeof line,
             "vantor_interleave, copy to padding data, out uv (%p), width(%d), height(%d)",
             static_cast<void*>(y + w * c.height), w / 2, c.height);
    EXPECT_EQ(vtest::log_count(4, line), c.moves ? 1 : 0);
    if (c.moves) {
        // The V/U plane now follows the first `height` luma rows directly.
        EXPECT_EQ(0, memcmp(y + w * c.height, before.data() + w * ha, moved));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ChromaMove,
    ::testing::Values(move_case{VTR_NV21, 1080, true}, move_case{VTR_NV21, 1088, false},
                      move_case{VTR_NV21, 17, true}, move_case{VTR_NV21, 100, true},
                      move_case{VTR_NV21_M, 1080, false}, move_case{VTR_YUYV, 1080, false},
                      move_case{VTR_YUY2, 100, false}));

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
        std::vector<uint8_t> low(64 * 16), ds(4);
        set_frame(t, VTR_YUYV, 64, 16);
        t->y_low = low.data();
        t->downsampled_y = ds.data();
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
