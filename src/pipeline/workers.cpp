// The worker loop and the five worker bodies.
//
// Loop: apply the scenario's niceness, then under the stage lock: park (count into the stage's
// readiness counter and wait for its start condition), do the strip unlocked, report into
// done_count (the worker that reaches the stage's target signals the driver), park again. The
// stop flag is tested before parking as well as on waking, so a worker that starts, or ends a
// late strip, after the teardown set the flags leaves instead of parking on memory that is
// about to be freed. Leaving workers count into done_count towards the total of fifteen.
#include "pipeline/workers.h"

#include <errno.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include "filters/box_filter.h"
#include "pipeline/formats.h"
#include "pipeline/signal.h"
#include "platform/hooks.h"
#include "platform/log.h"
#include "resample/deinterleave.h"
#include "resample/restore.h"
#include "resample/upsample.h"

void (*vtr_work_hook)(int32_t stage, const void* job) = nullptr;

namespace {

struct worker_spec {
    void* arg;
    int32_t priority;
    int32_t* done_count;
    int32_t* ready;
    pthread_cond_t* start_cond;
    pthread_mutex_t* mutex;
    pthread_cond_t* done_cond;
    int32_t target;  // workers of this stage
    vtr_stage stage;
    const char* name;
    bool (*quit)(const void* arg);  // called with the mutex held
    bool (*work)(void* arg);        // false: unknown format, the thread ends unreported
    int32_t index;                  // the worker's place within its stage
};

// Called with the mutex held; releases it. Releases the record's block when the teardown has
// already returned without it and this was the last worker.
void leave(vantor_thread* t) {
    t->live_workers -= 1;
    const bool release = t->orphaned != 0 && t->live_workers == 0;
    pthread_mutex_unlock(&t->mutex);
    if (release)
        t->release(t);
}

// Returns true when the worker gave up on an unknown format, false when it was told to stop.
bool run_worker(const worker_spec& s) {
    vantor_thread* t = vtr_record_of_mutex(s.mutex);
    setpriority(PRIO_PROCESS, gettid(), s.priority);
    pthread_mutex_lock(s.mutex);
    for (;;) {
        if (s.quit(s.arg))
            break;
        pthread_cond_broadcast(&t->ready_cond);
        // Any wake-up is a start: there is no predicate to re-check.
        vantor_wait_signal(s.start_cond, s.mutex, s.ready, s.name);
        if (s.quit(s.arg))
            break;
        pthread_mutex_unlock(s.mutex);
        if (vtr_work_hook != nullptr)
            vtr_work_hook(s.stage, s.arg);
        VTR_PROFILE_STAMP(t->profile.start[s.stage][s.index]);
        const bool done = s.work(s.arg);
        VTR_PROFILE_STAMP(t->profile.finish[s.stage][s.index]);
        pthread_mutex_lock(s.mutex);
        VTR_PROFILE_STAMP(t->profile.report[s.stage][s.index]);
        // A spurious wake-up between frames finds nothing outstanding.
        if (t->pending[s.stage] > 0)
            t->pending[s.stage] -= 1;
        if (!done) {
            leave(t);
            return true;
        }
        vantor_run_signal(s.done_cond, s.done_count, s.target);
    }
    vantor_run_signal(s.done_cond, s.done_count, VTR_WORKER_COUNT);
    leave(t);
    return false;
}

bool job_quit(uint32_t word) {
    return static_cast<uint8_t>(word) != 0;
}

// ---- deinterleave ----------------------------------------------------------------------

bool deinterleave_quit(const void* arg) {
    return job_quit(static_cast<const deinterleave_job*>(arg)->quit);
}

bool deinterleave_work(void* arg) {
    const deinterleave_job* job = static_cast<const deinterleave_job*>(arg);
    if (vtr_is_420(job->format)) {
        deinterleave_strip_420(job->first_out, job->second_out, job->vu_in, job->y_in, job->y_out,
                               job->width, job->strip_height);
        return true;
    }
    if (vtr_is_422(job->format)) {
        deinterleave_strip_422(job->y_out, job->first_out, job->second_out, job->packed_in,
                               job->width, job->strip_height);
        return true;
    }
    VTR_LOGE("vantor_deinterleave_thread_func, Not supported format");
    return false;
}

// ---- interleave ------------------------------------------------------------------------

bool interleave_quit(const void* arg) {
    return job_quit(static_cast<const interleave_job*>(arg)->quit);
}

bool interleave_work(void* arg) {
    const interleave_job* job = static_cast<const interleave_job*>(arg);
    if (vtr_is_420(job->format)) {
        restore_interleave_yuv420_neon(job->y_in, job->vu_in, job->y_comp_a, job->y_comp_b,
                                       job->up_first, job->up_second, job->width, job->strip_height,
                                       job->saturation, job->y_out, job->vu_out, job->scenario);
        return true;
    }
    if (vtr_is_422(job->format)) {
        restore_interleave_yuv422_neon(job->frame, job->y_comp_a, job->y_comp_b, job->up_first,
                                       job->up_second, job->width, job->strip_height,
                                       job->saturation);
        return true;
    }
    VTR_LOGE("vantor_interleave_thread_func, Not supported format");
    return false;
}

// ---- box filter ------------------------------------------------------------------------

bool box_filter_quit(const void* arg) {
    return job_quit(static_cast<const box_filter_job*>(arg)->quit);
}

bool box_filter_work(void* arg) {
    const box_filter_job* job = static_cast<const box_filter_job*>(arg);
    box_filter_band(job->source, job->low, job->high, job->stride, job->height, job->width);
    return true;
}

// ---- u, v, y ---------------------------------------------------------------------------

bool plane_quit(const void* arg) {
    return static_cast<const vantor_thread*>(arg)->quit != 0;
}

// Filters one chroma plane, then brings it back to chroma resolution for the frame's format.
bool chroma_work(const vantor_thread* t, const uint8_t* down, uint8_t* filtered, uint8_t* up,
                 const char* unsupported) {
    bilateral_filter_span3(down, filtered, t->aligned_height >> 4, t->width >> 4);
    upsample_args args = {};
    args.width = t->width >> 4;
    args.height = t->aligned_height >> 4;
    args.chroma_src = filtered;
    args.chroma_dst = up;
    if (vtr_is_420(t->format)) {
        upsample_uv420(&args);
        return true;
    }
    if (vtr_is_422(t->format)) {
        upsample_uv422(&args);
        return true;
    }
    VTR_LOGE("%s", unsupported);
    return false;
}

bool u_work(void* arg) {
    const vantor_thread* t = static_cast<const vantor_thread*>(arg);
    return chroma_work(t, t->downsampled_u, t->filtered_u, t->upsampled_u,
                       "vantor_u, Not supported format");
}

bool v_work(void* arg) {
    const vantor_thread* t = static_cast<const vantor_thread*>(arg);
    return chroma_work(t, t->downsampled_v, t->filtered_v, t->upsampled_v,
                       "vantor_v, Not supported format");
}

bool y_work(void* arg) {
    const vantor_thread* t = static_cast<const vantor_thread*>(arg);
    bilateral_filter_span3(t->downsampled_y, t->filtered_y, t->aligned_height >> 4, t->width >> 4);
    upsample_y_neon(t->y_low, t->filtered_y, t->width >> 4, t->aligned_height >> 4);
    return true;
}

worker_spec plane_spec(vantor_thread* t, bool (*work)(void*), int32_t index) {
    return {t,
            t->priority,
            &t->done_count,
            &t->yuv_ready,
            &t->yuv_cond,
            &t->mutex,
            &t->done_cond,
            VTR_PLANE_WORKERS,
            VTR_STAGE_YUV,
            "vantor_yuv",
            plane_quit,
            work,
            index};
}

}  // namespace

void* vantor_deinterleave_thread_func(void* arg) {
    deinterleave_job* job = static_cast<deinterleave_job*>(arg);
    run_worker({job, job->priority, job->done_count, job->ready, job->start_cond, job->mutex,
                job->done_cond, VTR_STRIP_COUNT, VTR_STAGE_DEINTERLEAVE,
                "vantor_deinterleave_thread_func", deinterleave_quit, deinterleave_work,
                static_cast<int32_t>(job - vtr_record_of_mutex(job->mutex)->deinterleave_job)});
    return nullptr;
}

void* vantor_interleave_thread_func(void* arg) {
    interleave_job* job = static_cast<interleave_job*>(arg);
    run_worker({job, job->priority, job->done_count, job->ready, job->start_cond, job->mutex,
                job->done_cond, VTR_STRIP_COUNT, VTR_STAGE_INTERLEAVE,
                "vantor_interleave_thread_func", interleave_quit, interleave_work,
                static_cast<int32_t>(job - vtr_record_of_mutex(job->mutex)->interleave_job)});
    return nullptr;
}

void* box_filter_col(void* arg) {
    box_filter_job* job = static_cast<box_filter_job*>(arg);
    run_worker({job, job->priority, job->done_count, job->ready, job->start_cond, job->mutex,
                job->done_cond, VTR_STRIP_COUNT, VTR_STAGE_BOX_FILTER, "box_filter_col",
                box_filter_quit, box_filter_work,
                static_cast<int32_t>(job - vtr_record_of_mutex(job->mutex)->box_filter_job)});
    return arg;
}

// The chroma workers hand back their argument when they gave up on an unknown format.
void* vantor_u(void* arg) {
    return run_worker(plane_spec(static_cast<vantor_thread*>(arg), u_work, 0)) ? arg : nullptr;
}

void* vantor_v(void* arg) {
    return run_worker(plane_spec(static_cast<vantor_thread*>(arg), v_work, 1)) ? arg : nullptr;
}

void* vantor_y(void* arg) {
    run_worker(plane_spec(static_cast<vantor_thread*>(arg), y_work, 2));
    return nullptr;
}

// ---- lifetime ------------------------------------------------------------------------------

bool vtr_start_worker(vantor_thread* t, pthread_t* tid, void* (*body)(void*), void* arg) {
    pthread_mutex_lock(&t->mutex);
    t->live_workers += 1;
    pthread_mutex_unlock(&t->mutex);

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    const int ret = vtr_thread_create_hook(tid, &attr, body, arg);
    pthread_attr_destroy(&attr);
    if (ret == 0)
        return true;
    pthread_mutex_lock(&t->mutex);
    t->live_workers -= 1;
    pthread_mutex_unlock(&t->mutex);
    return false;
}

bool vtr_workers_idle(const vantor_thread* t) {
    for (int32_t pending : t->pending)
        if (pending != 0)
            return false;
    return true;
}

bool vtr_workers_parked(const vantor_thread* t) {
    return t->deinterleave_ready >= VTR_STRIP_COUNT && t->box_filter_ready >= VTR_STRIP_COUNT &&
           t->yuv_ready >= VTR_PLANE_WORKERS && t->interleave_ready >= VTR_STRIP_COUNT &&
           vtr_workers_idle(t);
}

bool vtr_stop_workers(vantor_thread* t, int32_t ms) {
    t->quit = 1;
    t->done_count = 0;
    for (deinterleave_job& job : t->deinterleave_job)
        job.quit = 1;
    for (interleave_job& job : t->interleave_job)
        job.quit = 1;
    for (box_filter_job& job : t->box_filter_job)
        job.quit = 1;
    pthread_cond_broadcast(&t->deinterleave_cond);
    pthread_cond_broadcast(&t->yuv_cond);
    pthread_cond_broadcast(&t->interleave_cond);
    pthread_cond_broadcast(&t->box_filter_cond);
    // One bounded wait, no predicate: teardown goes on after it whatever has been reported.
    vantor_timedwait_signal(&t->done_cond, &t->mutex, ms, "vantor_deinit");
    if (t->live_workers == 0)
        return true;
    t->orphaned = 1;
    return false;
}

namespace {

// Waiting for the workers to park reads the monotonic clock where the platform has the call for
// it (bionic from API 30): a wall-clock step must not cut it short.
#if defined(__ANDROID__) && __ANDROID_API__ < 30
constexpr clockid_t VTR_PARK_CLOCK = CLOCK_REALTIME;
int park_wait(pthread_cond_t* c, pthread_mutex_t* m, const timespec* deadline) {
    return pthread_cond_timedwait(c, m, deadline);
}
#else
constexpr clockid_t VTR_PARK_CLOCK = CLOCK_MONOTONIC;
int park_wait(pthread_cond_t* c, pthread_mutex_t* m, const timespec* deadline) {
    return pthread_cond_clockwait(c, m, VTR_PARK_CLOCK, deadline);
}
#endif

timespec deadline_in(clockid_t clock, int32_t ms) {
    timespec deadline;
    clock_gettime(clock, &deadline);
    const int64_t ns = deadline.tv_nsec + static_cast<int64_t>(ms < 0 ? 0 : ms) * 1000000;
    deadline.tv_sec += static_cast<time_t>(ns / 1000000000);
    deadline.tv_nsec = static_cast<long>(ns % 1000000000);
    return deadline;
}

}  // namespace

int32_t vtr_wait_parked(vantor_thread* t, int32_t timeout_ms) {
    // The lock is held between frames only for moments; the wall clock suits it.
    const timespec lock_deadline = deadline_in(CLOCK_REALTIME, timeout_ms);
    if (pthread_mutex_timedlock(&t->mutex, &lock_deadline) != 0)
        return ETIMEDOUT;
    const timespec deadline = deadline_in(VTR_PARK_CLOCK, timeout_ms);
    int32_t ret = 0;
    while (!vtr_workers_parked(t)) {
        if (park_wait(&t->ready_cond, &t->mutex, &deadline) == ETIMEDOUT) {
            ret = vtr_workers_parked(t) ? 0 : ETIMEDOUT;
            break;
        }
    }
    pthread_mutex_unlock(&t->mutex);
    return ret;
}
