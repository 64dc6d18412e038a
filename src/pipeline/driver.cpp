// The stage driver: runs one frame through the four stages on the caller's thread, holding the
// slot's stage lock except while it waits for a stage.
//
// Geometry (W width, H height, HA aligned height): four row strips of S = (HA / 4) & ~15 rows,
// the last one taking the remaining H - 3S rows (the only strip whose height may not be a
// multiple of 16); four column bands of W / 4 columns over all HA rows for the box filter.
#include <errno.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include "pipeline/formats.h"
#include "pipeline/record.h"
#include "pipeline/signal.h"
#include "platform/log.h"
#include "resample/deinterleave.h"
#include "vantor_ext.h"

namespace {

constexpr int32_t VTR_STAGE_WAIT_MS = 1000;
constexpr int32_t VTR_LOCK_WAIT_MS = 1000;

int32_t strip_rows(const vantor_thread* t) {
    return (t->aligned_height / 4) & ~15;
}

int32_t strip_height(const vantor_thread* t, int32_t strip, int32_t rows) {
    return strip < VTR_STRIP_COUNT - 1 ? rows : t->height - (VTR_STRIP_COUNT - 1) * rows;
}

uint8_t* address(uintptr_t a) {
    return reinterpret_cast<uint8_t*>(a);
}

// Byte offsets of strip `strip` in each kind of plane.
struct strip_offsets {
    ptrdiff_t luma;
    ptrdiff_t packed;
    ptrdiff_t vu;
    ptrdiff_t block;
    ptrdiff_t upsampled;
};

strip_offsets offsets_of(const vantor_thread* t, int32_t strip, int32_t rows) {
    const ptrdiff_t i = strip;
    const ptrdiff_t w = t->width;
    strip_offsets o;
    o.luma = i * rows * w;
    o.packed = 2 * i * rows * w;
    o.vu = i * rows * (w / 2);
    o.block = i * (w / 16) * (rows / 16);
    // 4:2:0 chroma has half the rows of luma, 4:2:2 chroma all of them.
    o.upsampled = vtr_is_420(t->format) ? i * (rows / 2) * (w / 2) : i * rows * (w / 2);
    return o;
}

// Wakes the stage's workers and waits once for the last one's report. Workers still out when
// the wait ends (time-out or early wake-up) mark the frame late for this stage.
void run_stage(vantor_thread* t, vtr_stage stage, pthread_cond_t* start, int32_t workers,
               const char* name) {
    t->pending[stage] = workers;
    VTR_PROFILE_STAMP(t->profile.broadcast[stage]);
    pthread_cond_broadcast(start);
    vantor_timedwait_signal(&t->done_cond, &t->mutex, VTR_STAGE_WAIT_MS, name);
    VTR_PROFILE_STAMP(t->profile.woken[stage]);
    if (t->pending[stage] != 0)
        vtr_status_add(t, VANTOR_FRAME_LATE_DEINTERLEAVE << stage);
}

}  // namespace

int32_t vantor_deinterleave(vantor_thread* t) {
    if (!(t->deinterleave_ready > VTR_STRIP_COUNT - 1)) {
        VTR_LOGE("vantor_deinterleave, ready sub thread wait");
        return -1;
    }
    t->deinterleave_ready = 0;
    const bool nv21_family = vtr_is_420(t->format);
    if (!nv21_family && !vtr_is_422(t->format)) {
        // Names vantor_run on purpose: that is the line callers know.
        VTR_LOGE("vantor_run, Not supported format");
        return -1;
    }
    // Later stages of a 4:2:0 frame read the frame's own luma plane, not a copy.
    if (nv21_family)
        t->y_old = address(t->in_address_1);
    const int32_t rows = strip_rows(t);
    for (int32_t i = 0; i < VTR_STRIP_COUNT; ++i) {
        deinterleave_job* job = &t->deinterleave_job[i];
        const strip_offsets o = offsets_of(t, i, rows);
        job->width = t->width;
        job->strip_height = strip_height(t, i, rows);
        job->first_out = t->downsampled_u + o.block;
        job->second_out = t->downsampled_v + o.block;
        job->format = t->format;
        if (nv21_family) {
            job->y_out = address(t->in_address_1) + o.luma;
            job->y_in = address(t->in_address_1) + o.luma;
            job->vu_in = address(t->in_address_2) + o.vu;
        } else {
            job->y_out = t->y_old + o.luma;
            job->packed_in = address(t->yuyv_address) + o.packed;
        }
    }
    run_stage(t, VTR_STAGE_DEINTERLEAVE, &t->deinterleave_cond, VTR_STRIP_COUNT,
              "vantor_deinterleave");
    return 0;
}

void y_low_downsample(vantor_thread* t) {
    decimate_plane_16(t->y_low, t->width, t->aligned_height, t->downsampled_y);
}

int32_t vantor_box_filter(vantor_thread* t) {
    if (t->box_filter_ready < VTR_STRIP_COUNT) {
        VTR_LOGE("vantor_box_filter, ready sub thread wait");
        return -1;
    }
    t->box_filter_ready = 0;
    const int32_t band = t->width / VTR_STRIP_COUNT;
    for (int32_t i = 0; i < VTR_STRIP_COUNT; ++i) {
        box_filter_job* job = &t->box_filter_job[i];
        job->stride = t->width;
        job->height = t->aligned_height;
        job->width = band;
        job->source = t->y_old + i * band;
        job->low = t->y_low + i * band;
        job->high = t->y_high + i * band;
    }
    run_stage(t, VTR_STAGE_BOX_FILTER, &t->box_filter_cond, VTR_STRIP_COUNT, "vantor_box_filter");
    VTR_PROFILE_STAMP(t->profile.decimate[0]);
    y_low_downsample(t);
    VTR_PROFILE_STAMP(t->profile.decimate[1]);
    return 0;
}

int32_t vantor_yuv(vantor_thread* t) {
    if (!(t->yuv_ready > VTR_PLANE_WORKERS - 1)) {
        VTR_LOGE("vantor_yuv, ready sub thread wait");
        return -1;
    }
    t->yuv_ready = 0;
    run_stage(t, VTR_STAGE_YUV, &t->yuv_cond, VTR_PLANE_WORKERS, "vantor_yuv");
    return 0;
}

int32_t vantor_interleave(vantor_thread* t) {
    if (!(t->interleave_ready > VTR_STRIP_COUNT - 1)) {
        VTR_LOGE("vantor_interleave, ready sub thread wait");
        return -1;
    }
    t->interleave_ready = 0;
    const bool nv21_family = vtr_is_420(t->format);
    if (!nv21_family && !vtr_is_422(t->format)) {
        VTR_LOGE("vantor_interleave, Not supported format");
        return -1;
    }
    const int32_t rows = strip_rows(t);
    for (int32_t i = 0; i < VTR_STRIP_COUNT; ++i) {
        interleave_job* job = &t->interleave_job[i];
        const strip_offsets o = offsets_of(t, i, rows);
        job->width = t->width;
        job->strip_height = strip_height(t, i, rows);
        job->y_comp_a = t->y_low + o.luma;
        job->y_comp_b = t->y_high + o.luma;
        job->up_first = t->upsampled_u + o.upsampled;
        job->up_second = t->upsampled_v + o.upsampled;
        job->format = t->format;
        if (nv21_family) {
            // Rebuilt in place: the outputs are the inputs.
            job->y_in = address(t->in_address_1) + o.luma;
            job->vu_in = address(t->in_address_2) + o.vu;
            job->y_out = job->y_in;
            job->vu_out = job->vu_in;
        } else {
            job->frame = address(t->yuyv_address) + o.packed;
        }
    }
    run_stage(t, VTR_STAGE_INTERLEAVE, &t->interleave_cond, VTR_STRIP_COUNT, "vantor_interleave");

    // NV21 whose height is not a multiple of 16: close the gap that the luma padding rows left
    // in front of the V/U plane. The ranges overlap, the destination lying lower.
    if (t->out_address_2 != t->in_address_2 && t->format == static_cast<int32_t>(VTR_NV21)) {
        VTR_LOGI("vantor_interleave, copy to padding data, out uv (%p), width(%d), height(%d)",
                 address(t->out_address_2), t->width / 2, t->height);
        VTR_PROFILE_STAMP(t->profile.move[0]);
        memmove(address(t->out_address_2), address(t->in_address_2),
                static_cast<size_t>(t->height) * static_cast<size_t>(t->width / 2));
        VTR_PROFILE_STAMP(t->profile.move[1]);
    }
    return 0;
}

int32_t vantor_run_thread(void* record) {
    if (record == nullptr) {
        VTR_LOGE("vantor_run_thread, vtr_thread is null");
        return -EINVAL;
    }
    vantor_thread* t = static_cast<vantor_thread*>(record);
#if VTR_PROFILE
    t->profile = vtr_profile{};
    VTR_PROFILE_STAMP(t->profile.frame_begin);
#endif
    vtr_status_set(t, VANTOR_FRAME_OK);
    // Left as it is after the frame: the caller keeps the scenario's niceness.
    setpriority(PRIO_PROCESS, gettid(), t->priority);

    const int lock = vantor_timedlock(&t->mutex, VTR_LOCK_WAIT_MS, "vantor_run_thread");
    if (lock != 0) {
        vtr_status_set(t, VANTOR_FRAME_NOT_RUN);
        // The timed lock reports a time-out as ETIMEDOUT, so a time-out takes the second
        // branch; both lines name the first stage.
        if (lock == EBUSY) {
            VTR_LOGE("vantor_deinterleave, mutex lock time out(%d ms)", VTR_LOCK_WAIT_MS);
            pthread_mutex_unlock(&t->mutex);
        } else {
            VTR_LOGE("vantor_deinterleave, mutex lock fail");
        }
        return -ENOSYS;
    }

    struct stage_entry {
        int32_t (*run)(vantor_thread*);
        const char* failure;
    };
    static const stage_entry stages[VTR_STAGE_COUNT] = {
        {vantor_deinterleave, "vantor_deinterleave is fail.. ret = %d"},
        {vantor_box_filter, "vantor_box_filter is fail.. ret = %d"},
        {vantor_yuv, "vantor_yuv is fail.. ret = %d"},
        {vantor_interleave, "vantor_interleave is fail.. ret = %d"},
    };
    for (int32_t stage = 0; stage < VTR_STAGE_COUNT; ++stage) {
        const int32_t ret = stages[stage].run(t);
        if (ret != 0) {
            vtr_status_add(t, VANTOR_FRAME_REFUSED_DEINTERLEAVE << stage);
            pthread_mutex_unlock(&t->mutex);
            VTR_LOGE(stages[stage].failure, ret);
            return -EINVAL;
        }
    }
    VTR_PROFILE_STAMP(t->profile.frame_end);
    pthread_mutex_unlock(&t->mutex);
    return 0;
}
