// The pipeline's signalling helpers (counter-and-signal, timed wait, timed lock, deadline
// arithmetic, thread placement) and the stage driver's refusals and results (a stage short of
// one parked worker, unknown formats, a held stage lock, a null record). Waits signalled in
// time, free locks and what the stages compute (job tables, strips, the luma decimation, the
// NV21 chroma move) are what every frame of the whole-frame tests goes through, byte for byte
// against the one-thread model; a stage whose workers report late is the concurrency test's
// part.
#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "entry/handle.h"
#include "pipeline/signal.h"
#include "support/log_capture.h"
#include "vantor.h"
#include "vantor_ext.h"
#include "vantor_kernels.h"

namespace {

using clock_type = std::chrono::steady_clock;

double ms_since(clock_type::time_point start) {
    return std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
}

// With a target of 4 the counter goes 1, 2, 3, then the fourth call wakes the one waiter (as
// the stage driver waits) and resets it; the fifth counts 1 again.
TEST(RunSignal, SignalsOnTheTargetCallOnlyAndResets) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
    int32_t counter = 0;
    bool waiting = false;
    std::atomic<bool> woken{false};
    std::thread waiter([&] {
        pthread_mutex_lock(&mutex);
        waiting = true;
        pthread_cond_wait(&cond, &mutex);
        woken = true;
        pthread_mutex_unlock(&mutex);
    });
    for (bool parked = false; !parked; std::this_thread::yield()) {
        pthread_mutex_lock(&mutex);
        parked = waiting;
        pthread_mutex_unlock(&mutex);
    }
    const int32_t counts[] = {1, 2, 3, 0, 1};
    for (int call = 1; call <= 5; ++call) {
        pthread_mutex_lock(&mutex);
        vantor_run_signal(&cond, &counter, 4);
        EXPECT_EQ(counter, counts[call - 1]) << "after call " << call;
        pthread_mutex_unlock(&mutex);
        // Time for a wake-up to land; the fourth call must produce one.
        const auto end = clock_type::now() + std::chrono::milliseconds(call == 4 ? 5000 : 50);
        while (woken != (call >= 4) && clock_type::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(woken, call >= 4) << "after call " << call;
    }
    if (!woken) {
        pthread_mutex_lock(&mutex);
        pthread_cond_signal(&cond);
        pthread_mutex_unlock(&mutex);
    }
    waiter.join();
}

TEST(TimedWait, WithoutSignalReturnsAfterTheLimitAndLogsTheTimeout) {
    vtest::log_clear();
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
    pthread_mutex_lock(&mutex);
    const auto start = clock_type::now();
    vantor_timedwait_signal(&cond, &mutex, 1000, "caller_name");
    const double elapsed = ms_since(start);
    // The mutex is held again on return: a trylock from this thread must fail.
    EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
    pthread_mutex_unlock(&mutex);
    EXPECT_GE(elapsed, 990.0);
    EXPECT_LT(elapsed, 3000.0);
    EXPECT_EQ(vtest::log_count(6,
                               "vantor_timedwait_signal: limited time(1000)ms, return(110), "
                               "from caller_name"),
              1);
}

TEST(TimedLock, HeldMutexTimesOutAndReleasesTheForeignLock) {
    vtest::log_clear();
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<bool> held{false};
    std::atomic<bool> done{false};
    std::thread holder([&] {
        pthread_mutex_lock(&mutex);
        held = true;
        while (!done)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        // Its lock was released by the other thread; it does not unlock again.
    });
    while (!held)
        std::this_thread::yield();
    const auto start = clock_type::now();
    EXPECT_EQ(vantor_timedlock(&mutex, 200, "caller_name"), ETIMEDOUT);
    EXPECT_GE(ms_since(start), 190.0);
    EXPECT_EQ(vtest::log_count(6, "caller_name, mutex lock time out(200 ms)"), 1);
    // The holder has not let go, yet the mutex is free now.
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
    done = true;
    holder.join();
}

// ---- deadlines ---------------------------------------------------------------------------

// Nanoseconds are carried into seconds only above one second's worth: exactly 1000000000
// stays as it is.
TEST(Deadline, AddsMillisecondsWithTheStrictCarry) {
    const struct {
        long nsec;
        int32_t ms;
        time_t want_sec;
        long want_nsec;
    } cases[] = {{0, 1000, 101, 0},
                 {999999999, 1, 101, 999999},
                 {900000000, 2101, 103, 1000000},
                 {999000000, 1, 100, 1000000000},
                 {900000000, 2100, 102, 1000000000},
                 {500000000, 0, 100, 500000000}};
    for (const auto& c : cases) {
        const struct timespec got = vtr_deadline_after({100, c.nsec}, c.ms);
        EXPECT_EQ(got.tv_sec, c.want_sec) << c.nsec << " + " << c.ms << " ms";
        EXPECT_EQ(got.tv_nsec, c.want_nsec) << c.nsec << " + " << c.ms << " ms";
    }
}

// ---- affinity ------------------------------------------------------------------------------

TEST(Affinity, PinsOnlyTheCallingThreadAndRefusesAnEmptyMask) {
    cpu_set_t allowed, one, seen, now;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    CPU_ZERO(&one);
    for (int c = 0; c < 32 && CPU_COUNT(&one) == 0; ++c)
        if (CPU_ISSET(c, &allowed))
            CPU_SET(c, &one);
    ASSERT_EQ(CPU_COUNT(&one), 1) << "no CPU below 32 available";
    vtest::log_clear();
    std::thread([&] {
        setCurrentThreadAffinityMask(&one);
        sched_getaffinity(0, sizeof seen, &seen);
    }).join();
    ASSERT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
    EXPECT_TRUE(CPU_EQUAL(&now, &allowed)) << "the calling thread only is placed";
    // An emulator that wants whole 64-bit mask words refuses the 4-byte mask, and says so.
    const bool refused = vtest::log_count(6, "Error in the syscall setaffinity!") == 1;
    EXPECT_TRUE(CPU_EQUAL(&seen, refused ? &allowed : &one));
    vtest::log_clear();
    CPU_ZERO(&one);
    std::thread([&] { setCurrentThreadAffinityMask(&one); }).join();
    EXPECT_EQ(vtest::log_count(6, "Error in the syscall setaffinity!"), 1) << "empty mask";
}

// ---- the stage driver ------------------------------------------------------------------------

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
