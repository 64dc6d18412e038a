// The pipeline's per-slot record that the stage driver and every worker share, and the
// bookkeeping of worker lifetime and frame outcome that goes with it.
#ifndef VANTOR_PIPELINE_RECORD_H
#define VANTOR_PIPELINE_RECORD_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "pipeline/jobs.h"

constexpr int32_t VTR_STRIP_COUNT = 4;    // workers of each strip or band stage
constexpr int32_t VTR_PLANE_WORKERS = 3;  // vantor_u, vantor_v, vantor_y
constexpr int32_t VTR_WORKER_COUNT = 3 * VTR_STRIP_COUNT + VTR_PLANE_WORKERS;

// The stages in the order the driver runs them.
enum vtr_stage : int32_t {
    VTR_STAGE_DEINTERLEAVE,
    VTR_STAGE_BOX_FILTER,
    VTR_STAGE_YUV,
    VTR_STAGE_INTERLEAVE,
    VTR_STAGE_COUNT
};

#if VTR_PROFILE
// Stage timestamps of one frame, in nanoseconds of the monotonic clock; a profiling build only.
// Workers write their own slot (index within the stage) outside the lock; the driver reads them
// after the stage's wait, so a late worker leaves a stale or missing stamp.
struct vtr_profile {
    int64_t frame_begin;  // driver entered
    int64_t frame_end;    // last stage returned
    int64_t broadcast[VTR_STAGE_COUNT];
    int64_t woken[VTR_STAGE_COUNT];                    // driver back from the stage's wait
    int64_t start[VTR_STAGE_COUNT][VTR_STRIP_COUNT];   // worker out of the lock, about to work
    int64_t finish[VTR_STAGE_COUNT][VTR_STRIP_COUNT];  // worker's strip done
    int64_t report[VTR_STAGE_COUNT][VTR_STRIP_COUNT];  // worker holding the lock again
    int64_t decimate[2];                               // y_low_downsample, begin and end
    int64_t move[2];  // NV21 chroma move, begin and end; zero when the frame has none
};

inline int64_t vtr_profile_now() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

#define VTR_PROFILE_STAMP(lvalue) ((lvalue) = vtr_profile_now())
#else
#define VTR_PROFILE_STAMP(lvalue) ((void)0)
#endif

struct vantor_thread {
    uint8_t quit;  // stop request for vantor_u, vantor_v and vantor_y
    int32_t priority;
    int32_t width;
    int32_t height;
    int32_t aligned_height;
    int32_t cropped_height;
    int32_t format;
    int32_t scenario;
    uintptr_t in_address_1;
    uintptr_t in_address_2;
    uintptr_t yuyv_address;
    uintptr_t out_address_1;
    uintptr_t out_address_2;
    uint8_t* y_old;  // the frame's own luma plane during a 4:2:0 frame
    uint8_t* y_low;
    uint8_t* y_high;
    uint8_t* downsampled_y;
    uint8_t* downsampled_u;
    uint8_t* downsampled_v;
    uint8_t* filtered_y;
    uint8_t* filtered_u;
    uint8_t* filtered_v;
    uint8_t* upsampled_u;
    uint8_t* upsampled_v;
    pthread_mutex_t* run_mutex;
    // Counters below are guarded by `mutex`.
    int32_t done_count;
    int32_t deinterleave_ready;
    int32_t box_filter_ready;
    int32_t yuv_ready;
    int32_t interleave_ready;
    pthread_mutex_t mutex;
    pthread_cond_t done_cond;
    pthread_cond_t deinterleave_cond;
    pthread_cond_t box_filter_cond;
    pthread_cond_t yuv_cond;
    pthread_cond_t interleave_cond;
    ::deinterleave_job deinterleave_job[VTR_STRIP_COUNT];
    ::box_filter_job box_filter_job[VTR_STRIP_COUNT];
    ::interleave_job interleave_job[VTR_STRIP_COUNT];
    pthread_t deinterleave_tid[VTR_STRIP_COUNT];
    pthread_t box_filter_tid[VTR_STRIP_COUNT];
    pthread_t u_tid;
    pthread_t v_tid;
    pthread_t y_tid;
    pthread_t interleave_tid[VTR_STRIP_COUNT];

    // Bookkeeping beyond the fields above, guarded by `mutex` like the counters.
    int32_t live_workers;  // started and not yet left
    // Set by a teardown that could not wait for every worker: the last worker to leave then
    // calls `release`, which frees the block that holds this record.
    int32_t orphaned;
    void (*release)(vantor_thread* record);
    // Per stage: workers woken for the current frame that have not reported yet.
    int32_t pending[VTR_STAGE_COUNT];
    // VANTOR_FRAME_* bits of the frame in progress, or of the last one. Also read without the
    // lock by vantor_frame_status, hence accessed atomically.
    int32_t frame_status;
    pthread_cond_t ready_cond;  // broadcast by each worker as it parks
#if VTR_PROFILE
    vtr_profile profile;  // timestamps of the last frame
#endif
};

// The record whose stage lock `mutex` is.
inline vantor_thread* vtr_record_of_mutex(pthread_mutex_t* mutex) {
    return reinterpret_cast<vantor_thread*>(reinterpret_cast<char*>(mutex) -
                                            offsetof(vantor_thread, mutex));
}

// Frame outcome: cleared when a frame starts, added to as its stages go.
inline void vtr_status_set(vantor_thread* t, int32_t bits) {
    __atomic_store_n(&t->frame_status, bits, __ATOMIC_RELAXED);
}
inline void vtr_status_add(vantor_thread* t, int32_t bits) {
    __atomic_fetch_or(&t->frame_status, bits, __ATOMIC_RELAXED);
}
inline int32_t vtr_status_of(const vantor_thread* t) {
    return __atomic_load_n(&t->frame_status, __ATOMIC_RELAXED);
}

// ---- Worker lifetime, owned by the pipeline; the owner of the record provides `release`. ----

// Starts one detached worker, counted as live before it can run. False when the thread could
// not be created.
bool vtr_start_worker(vantor_thread* t, pthread_t* tid, void* (*body)(void*), void* arg);

// With `mutex` held: no worker is between a start and its report, so none touches a buffer.
bool vtr_workers_idle(const vantor_thread* t);

// With `mutex` held: every worker is parked and none has work outstanding.
bool vtr_workers_parked(const vantor_thread* t);

// With `mutex` held: sets every stop flag, wakes every stage and waits once, at most `ms`
// milliseconds, for the workers to leave. Returns true when all of them have left; otherwise
// the record is marked orphaned and the last worker to leave calls `release`, so the caller
// must not touch the record after unlocking `mutex`.
bool vtr_stop_workers(vantor_thread* t, int32_t ms);

// Waits, at most timeout_ms, until every worker is parked with nothing outstanding: 0, or
// ETIMEDOUT.
int32_t vtr_wait_parked(vantor_thread* t, int32_t timeout_ms);

#endif  // VANTOR_PIPELINE_RECORD_H
