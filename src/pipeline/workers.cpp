// The worker loop and the five worker bodies.
//
// Loop: apply the scenario's niceness, then under the stage lock: park (count into the stage's
// readiness counter and wait for its start condition), do the strip unlocked, report into
// done_count (the worker that reaches the stage's target signals the driver), park again. The
// stop flag is tested before parking as well as on waking, so a worker that starts, or ends a
// late strip, after the teardown set the flags leaves instead of parking on memory that is
// about to be freed. Leaving workers count into done_count towards the total of fifteen.
#include "pipeline/workers.h"

#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include "entry/formats.h"
#include "pipeline/signal.h"
#include "platform/log.h"
#include "resample/deinterleave.h"
#include "resample/restore.h"
#include "resample/upsample.h"

namespace {

constexpr int32_t VTR_BLOCK = 16;        // luma block edge of the reduced planes
constexpr int32_t VTR_WIDTH_STEP = 128;  // the deinterleave kernels' column step

struct worker_spec {
    void* arg;
    int32_t priority;
    int32_t* done_count;
    int32_t* ready;
    pthread_cond_t* start_cond;
    pthread_mutex_t* mutex;
    pthread_cond_t* done_cond;
    int32_t target;  // workers of this stage
    const char* name;
    bool (*quit)(const void* arg);  // called with the mutex held
    bool (*work)(void* arg);        // false: unknown format, the thread ends unreported
};

// Called with the mutex held; releases it. Frees the handle when the teardown has already
// returned without it and this was the last worker.
void leave(vantor_handle* h, pthread_mutex_t* mutex) {
    h->live_workers -= 1;
    const bool release = h->orphaned != 0 && h->live_workers == 0;
    pthread_mutex_unlock(mutex);
    if (release)
        vtr_release_handle(h);
}

// Returns true when the worker gave up on an unknown format, false when it was told to stop.
bool run_worker(const worker_spec& s) {
    vantor_handle* h = vtr_handle_of_mutex(s.mutex);
    setpriority(PRIO_PROCESS, gettid(), s.priority);
    pthread_mutex_lock(s.mutex);
    for (;;) {
        if (s.quit(s.arg))
            break;
        pthread_cond_broadcast(&h->ready_cond);
        // Any wake-up is a start: there is no predicate to re-check.
        vantor_wait_signal(s.start_cond, s.mutex, s.ready, s.name);
        if (s.quit(s.arg))
            break;
        h->busy_workers += 1;
        pthread_mutex_unlock(s.mutex);
        const bool done = s.work(s.arg);
        pthread_mutex_lock(s.mutex);
        h->busy_workers -= 1;
        if (!done) {
            leave(h, s.mutex);
            return true;
        }
        vantor_run_signal(s.done_cond, s.done_count, s.target);
    }
    vantor_run_signal(s.done_cond, s.done_count, VTR_WORKER_COUNT);
    leave(h, s.mutex);
    return false;
}

// ---- deinterleave ----------------------------------------------------------------------

bool job_quit(uint32_t word) {
    return static_cast<uint8_t>(word) != 0;
}

bool deinterleave_quit(const void* arg) {
    return job_quit(static_cast<const deinterleave_job*>(arg)->quit);
}

// Block-plane position of the block at luma row r (a band start) and column x.
ptrdiff_t block_at(int32_t width, int32_t r, int32_t x) {
    return static_cast<ptrdiff_t>(r / VTR_BLOCK) * (width / VTR_BLOCK) + x / VTR_BLOCK;
}

void edges_420(const deinterleave_job* job, int32_t wb, int32_t hb) {
    const int32_t w = job->width;
    const int32_t sh = job->strip_height;
    if (hb >= 1 && wb < w) {
        for (int32_t r = 0; r < hb; r += VTR_BLOCK) {
            for (int32_t x = wb; x < w; x += VTR_BLOCK) {
                const uint8_t* pair = job->vu_in + static_cast<ptrdiff_t>(r / 2) * w + x;
                job->first_out[block_at(w, r, x)] = pair[0];
                job->second_out[block_at(w, r, x)] = pair[1];
            }
        }
    }
    if (sh % VTR_BLOCK != 0 && w >= 1) {
        for (int32_t x = 0; x < w; x += VTR_BLOCK) {
            const uint8_t* pair = job->vu_in + static_cast<ptrdiff_t>(hb) * (w / 2) + x;
            job->first_out[block_at(w, sh, x)] = pair[0];
            job->second_out[block_at(w, sh, x)] = pair[1];
        }
        for (int32_t r = hb; r < sh; ++r)
            memmove(job->y_out + static_cast<ptrdiff_t>(r) * w,
                    job->y_in + static_cast<ptrdiff_t>(r) * w, w);
        const uint8_t* last = job->y_out + static_cast<ptrdiff_t>(sh - 1) * w;
        for (int32_t r = sh; r < hb + VTR_BLOCK; ++r)
            memcpy(job->y_out + static_cast<ptrdiff_t>(r) * w, last, w);
    }
}

// Luma of pixels [x0, x1) of packed row r into row r of y_out.
void copy_packed_luma(const deinterleave_job* job, int32_t r, int32_t x0, int32_t x1) {
    const ptrdiff_t w = job->width;
    const uint8_t* in = job->packed_in + 2 * (r * w);
    uint8_t* out = job->y_out + r * w;
    for (int32_t x = x0; x < x1; ++x)
        out[x] = in[2 * x];
}

// Chroma of the first pair of each 16-pixel group in [x0, x1) of packed row r, stored at the
// block position of band row `band_row`.
void sample_packed_chroma(const deinterleave_job* job, int32_t r, int32_t band_row, int32_t x0,
                          int32_t x1) {
    const ptrdiff_t w = job->width;
    const uint8_t* in = job->packed_in + 2 * (r * w);
    for (int32_t x = x0; x < x1; x += VTR_BLOCK) {
        job->first_out[block_at(job->width, band_row, x)] = in[2 * x + 1];
        job->second_out[block_at(job->width, band_row, x)] = in[2 * x + 3];
    }
}

void edges_422(const deinterleave_job* job, int32_t wb, int32_t hb) {
    const int32_t w = job->width;
    const int32_t sh = job->strip_height;
    if (hb >= 1 && wb < w) {
        for (int32_t r = 0; r < hb; r += VTR_BLOCK) {
            copy_packed_luma(job, r, wb, w);
            sample_packed_chroma(job, r, r, wb, w);
            for (int32_t k = 1; k < VTR_BLOCK; ++k)
                copy_packed_luma(job, r + k, wb, w);
        }
    }
    if (sh % VTR_BLOCK != 0 && w >= 1) {
        copy_packed_luma(job, hb, 0, w);
        sample_packed_chroma(job, hb, sh, 0, w);
        for (int32_t r = hb + 1; r < sh; ++r)
            copy_packed_luma(job, r, 0, w);
        const uint8_t* last = job->y_out + static_cast<ptrdiff_t>(sh - 1) * w;
        for (int32_t r = sh; r < hb + VTR_BLOCK; ++r)
            memcpy(job->y_out + static_cast<ptrdiff_t>(r) * w, last, w);
    }
}

bool deinterleave_work(void* arg) {
    const deinterleave_job* job = static_cast<const deinterleave_job*>(arg);
    if (!vtr_is_420(job->format) && !vtr_is_422(job->format)) {
        VTR_LOGE("vantor_deinterleave_thread_func, Not supported format");
        return false;
    }
    vtr_deinterleave_strip(job);
    return true;
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
    box_filter_run_job(static_cast<const box_filter_job*>(arg));
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

worker_spec plane_spec(vantor_thread* t, bool (*work)(void*)) {
    return {t,         t->priority,   &t->done_count,    &t->yuv_ready, &t->yuv_cond,
            &t->mutex, &t->done_cond, VTR_PLANE_WORKERS, "vantor_yuv",  plane_quit,
            work};
}

}  // namespace

void vtr_deinterleave_strip(const deinterleave_job* job) {
    const int32_t wb = job->width & ~(VTR_WIDTH_STEP - 1);
    const int32_t hb = job->strip_height & ~(VTR_BLOCK - 1);
    if (vtr_is_420(job->format)) {
        deinterleave_yuv420_uv_downsample_neon(job->first_out, job->second_out, job->vu_in, wb, hb,
                                               job->width);
        edges_420(job, wb, hb);
    } else {
        deinterleave_yuv422_uv_downsample_neon(job->y_out, job->first_out, job->second_out,
                                               job->packed_in, job->width, hb, wb);
        edges_422(job, wb, hb);
    }
}

void* vantor_deinterleave_thread_func(void* arg) {
    deinterleave_job* job = static_cast<deinterleave_job*>(arg);
    run_worker({job, job->priority, job->done_count, job->ready, job->start_cond, job->mutex,
                job->done_cond, VTR_STRIP_COUNT, "vantor_deinterleave_thread_func",
                deinterleave_quit, deinterleave_work});
    return nullptr;
}

void* vantor_interleave_thread_func(void* arg) {
    interleave_job* job = static_cast<interleave_job*>(arg);
    run_worker({job, job->priority, job->done_count, job->ready, job->start_cond, job->mutex,
                job->done_cond, VTR_STRIP_COUNT, "vantor_interleave_thread_func", interleave_quit,
                interleave_work});
    return nullptr;
}

void* box_filter_col(void* arg) {
    box_filter_job* job = static_cast<box_filter_job*>(arg);
    run_worker({job, job->priority, job->done_count, job->ready, job->start_cond, job->mutex,
                job->done_cond, VTR_STRIP_COUNT, "box_filter_col", box_filter_quit,
                box_filter_work});
    return arg;
}

// The chroma workers hand back their argument when they gave up on an unknown format.
void* vantor_u(void* arg) {
    return run_worker(plane_spec(static_cast<vantor_thread*>(arg), u_work)) ? arg : nullptr;
}

void* vantor_v(void* arg) {
    return run_worker(plane_spec(static_cast<vantor_thread*>(arg), v_work)) ? arg : nullptr;
}

void* vantor_y(void* arg) {
    run_worker(plane_spec(static_cast<vantor_thread*>(arg), y_work));
    return nullptr;
}
