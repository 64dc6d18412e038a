// vantor_init, vantor_deinit and vantor_wait_ready: the handle's buffers and its fifteen
// detached workers.
#include <errno.h>
#include <string.h>

#include "entry/handle.h"
#include "pipeline/workers.h"
#include "platform/hooks.h"
#include "platform/log.h"
#include "vantor_ext.h"
#include "vantor_kernels.h"

namespace {

constexpr int32_t VTR_TEARDOWN_WAIT_MS = 100;

struct scenario_info {
    const char* name;
    int32_t saturation;
    int32_t priority;
};

// The eleven working buffers in allocation (and field) order. The "%d" of the per-slot
// messages is the slot number.
struct buffer_entry {
    uint8_t* vantor_handle::*single;
    uint8_t* (vantor_handle::*per_slot)[VTR_SLOT_COUNT];
    const char* failure;
};

const buffer_entry VTR_BUFFERS[] = {
    {&vantor_handle::y_old, nullptr, "vantor_init, vtr->y_old alloc is fail"},
    {nullptr, &vantor_handle::y_low, "vantor_init, vtr->y_low[%d] alloc is fail"},
    {nullptr, &vantor_handle::y_high, "vantor_init, vtr->y_high[%d] alloc is fail"},
    {nullptr, &vantor_handle::downsampled_y, "vantor_init, vtr->downsampled_y[%d] alloc is fail"},
    {nullptr, &vantor_handle::downsampled_u, "vantor_init, vtr->downsampled_u[%d] alloc is fail"},
    {nullptr, &vantor_handle::downsampled_v, "vantor_init, vtr->downsampled_v[%d] alloc is fail"},
    {&vantor_handle::filtered_y, nullptr, "vantor_init, vtr->filtered_y alloc is fail"},
    {&vantor_handle::filtered_u, nullptr, "vantor_init, vtr->filtered_u alloc is fail"},
    {&vantor_handle::filtered_v, nullptr, "vantor_init, vtr->filtered_v alloc is fail"},
    {&vantor_handle::upsampled_u, nullptr, "vantor_init, vtr->upsampled_u alloc is fail"},
    {&vantor_handle::upsampled_v, nullptr, "vantor_init, vtr->upsampled_v alloc is fail"},
};

// Products of signed 32-bit sizes wrap as on the 32-bit target; a negative product becomes a
// size the allocator refuses.
size_t product(int32_t a, int32_t b) {
    return static_cast<size_t>(
        static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b)));
}

size_t buffer_bytes(int32_t index, int32_t w, int32_t h16) {
    if (index < 3)
        return product(w, h16);  // y_old, y_low, y_high
    if (index < 6)
        return product(w >> 4, h16 >> 4);  // downsampled_*
    if (index < 9)
        return product(h16 >> 4, w >> 4);  // filtered_*
    return product(h16, w >> 1);           // upsampled_*
}

uint8_t** buffer_field(vantor_handle* h, const buffer_entry& b, int32_t slot) {
    return b.single != nullptr ? &(h->*b.single) : &(h->*b.per_slot)[slot];
}

bool allocate_buffers(vantor_handle* h) {
    const int32_t count = static_cast<int32_t>(sizeof VTR_BUFFERS / sizeof VTR_BUFFERS[0]);
    for (int32_t i = 0; i < count; ++i) {
        const buffer_entry& b = VTR_BUFFERS[i];
        const int32_t slots = b.single != nullptr ? 1 : VTR_SLOT_COUNT;
        for (int32_t slot = 0; slot < slots; ++slot) {
            uint8_t** field = buffer_field(h, b, slot);
            *field =
                static_cast<uint8_t*>(vtr_alloc_hook(buffer_bytes(i, h->width, h->aligned_height)));
            if (*field == nullptr) {
                // Messages without a slot number ignore the extra argument.
                VTR_LOGE(b.failure, slot);
                return false;
            }
        }
    }
    return true;
}

void free_buffers(vantor_handle* h) {
    for (const buffer_entry& b : VTR_BUFFERS) {
        const int32_t slots = b.single != nullptr ? 1 : VTR_SLOT_COUNT;
        for (int32_t slot = 0; slot < slots; ++slot) {
            uint8_t** field = buffer_field(h, b, slot);
            if (*field != nullptr) {
                vtr_free_hook(*field);
                *field = nullptr;
            }
        }
    }
}

template <typename Job>
void link_job(Job* job, vantor_thread* t, int32_t priority, int32_t* ready, pthread_cond_t* start) {
    job->quit = 0;
    job->priority = priority;
    job->done_count = &t->done_count;
    job->ready = ready;
    job->start_cond = start;
    job->mutex = &t->mutex;
    job->done_cond = &t->done_cond;
}

bool start_workers(vantor_handle* h, const scenario_info& s) {
    vantor_thread* t = &h->thread[0];
    for (int32_t i = 0; i < VTR_STRIP_COUNT; ++i) {
        link_job(&t->deinterleave_job[i], t, s.priority, &t->deinterleave_ready,
                 &t->deinterleave_cond);
        if (!vtr_start_worker(t, &t->deinterleave_tid[i], vantor_deinterleave_thread_func,
                              &t->deinterleave_job[i])) {
            VTR_LOGE("thread create fail to vantor_deinterleave_thread_func");
            return false;
        }
    }
    t->box_filter_cond = PTHREAD_COND_INITIALIZER;
    for (int32_t i = 0; i < VTR_STRIP_COUNT; ++i) {
        link_job(&t->box_filter_job[i], t, s.priority, &t->box_filter_ready, &t->box_filter_cond);
        if (!vtr_start_worker(t, &t->box_filter_tid[i], box_filter_col, &t->box_filter_job[i])) {
            // Names another kernel; this is the line operators know.
            VTR_LOGE("thread create fail to deinterleave_yuv420_uv_downsample");
            return false;
        }
    }
    t->yuv_cond = PTHREAD_COND_INITIALIZER;
    if (!vtr_start_worker(t, &t->u_tid, vantor_u, t)) {
        VTR_LOGE("thread create fail to vantor_u");
        return false;
    }
    if (!vtr_start_worker(t, &t->v_tid, vantor_v, t)) {
        VTR_LOGE("thread create fail to vantor_v");
        return false;
    }
    if (!vtr_start_worker(t, &t->y_tid, vantor_y, t)) {
        VTR_LOGE("thread create fail to vantor_y");
        return false;
    }
    t->interleave_cond = PTHREAD_COND_INITIALIZER;
    for (int32_t i = 0; i < VTR_STRIP_COUNT; ++i) {
        interleave_job* job = &t->interleave_job[i];
        link_job(job, t, s.priority, &t->interleave_ready, &t->interleave_cond);
        job->scenario = h->scenario;
        job->saturation = s.saturation;
        if (!vtr_start_worker(t, &t->interleave_tid[i], vantor_interleave_thread_func, job)) {
            VTR_LOGE("thread create fail to restore_interleave_yuv420");
            return false;
        }
    }
    return true;
}

void release_record(vantor_thread* record) {
    vtr_release_handle(vtr_handle_of(record));
}

}  // namespace

void vtr_release_handle(vantor_handle* h) {
    free_buffers(h);
    vtr_free_hook(h);
}

void* vantor_init(int32_t width, int32_t height, int32_t scenario) {
    if ((width & 15) != 0) {
        VTR_LOGE("unsupported width");
        return nullptr;
    }
    // Buffer sizes are 32-bit products: a frame whose luma plane would not fit in 32 bits would
    // get buffers far smaller than its planes, so it is refused before anything is allocated.
    const int64_t aligned = (static_cast<int64_t>(height) + 15) & ~static_cast<int64_t>(15);
    if (aligned > INT32_MAX || static_cast<int64_t>(width) * aligned > INT32_MAX) {
        VTR_LOGE("vantor_init, unsupported size %dx%d", width, height);
        return nullptr;
    }
    vantor_handle* h = static_cast<vantor_handle*>(vtr_alloc_hook(sizeof(vantor_handle)));
    if (h == nullptr) {
        VTR_LOGE("vantor_init, fail: handle %p", static_cast<void*>(h));
        return nullptr;
    }
    VTR_LOGI("vantor_init, handle %p", static_cast<void*>(h));

    scenario_info s;
    if (scenario == VTR_SCENARIO_CAPTURE) {
        s = {"VTR_SCENARIO_CAPTURE", VTR_CAPTURE_SATURATION, VTR_CAPTURE_PRIORITY};
    } else if (scenario == VTR_SCENARIO_PREVIEW) {
        s = {"VTR_SCENARIO_PREVIEW", VTR_PREVIEW_SATURATION, VTR_PREVIEW_PRIORITY};
    } else {
        // The block is handed back unfilled: no buffers, no workers. Callers must not use it.
        VTR_LOGE("vantor_init, not support scenario(%d)", scenario);
        return h;
    }
    VTR_LOGE("Android-%.1f Build Date is (%s) (%s)", 0.0, __DATE__, __TIME__);
    VTR_LOGI(
        "vantor_init, width(%d), height(%d), scenario(%s), interleaving color saturation(%d), "
        "priority(%d)",
        width, height, s.name, s.saturation, s.priority);

    memset(static_cast<void*>(h), 0, sizeof *h);
    h->scenario = scenario;
    h->cropped_height = height & ~15;
    h->aligned_height = (height & 15) != 0 ? h->cropped_height + 16 : h->cropped_height;
    h->width = width;
    h->height = height;
    h->init_width = width;
    h->init_height = height;
    h->init_aligned_height = h->aligned_height;

    vantor_thread* t = &h->thread[0];
    t->mutex = PTHREAD_MUTEX_INITIALIZER;
    t->done_cond = PTHREAD_COND_INITIALIZER;
    t->ready_cond = PTHREAD_COND_INITIALIZER;
    t->release = release_record;

    if (!allocate_buffers(h)) {
        vantor_deinit(h);
        return nullptr;
    }

    t->quit = 0;
    h->run_mutex[0] = PTHREAD_MUTEX_INITIALIZER;
    h->index = -1;
    t->priority = s.priority;
    t->deinterleave_ready = 0;
    t->box_filter_ready = 0;
    t->yuv_ready = 0;
    t->interleave_ready = 0;
    t->done_count = 0;
    t->deinterleave_cond = PTHREAD_COND_INITIALIZER;
    if (!start_workers(h, s)) {
        vantor_deinit(h);
        return nullptr;
    }
    return h;
}

int32_t vantor_deinit(void* handle) {
    VTR_LOGI("vantor_deinit, handle %p", handle);
    if (handle == nullptr) {
        VTR_LOGE("vantor_deinit, vtr in NULL~!!");
        return -1;
    }
    vantor_handle* h = static_cast<vantor_handle*>(handle);
    vantor_thread* t = &h->thread[0];
    pthread_mutex_lock(&h->run_mutex[0]);

    // The stage lock is taken before the buffers go, so that no worker can be between a
    // stage it was woken for and its report: one still out after a timed-out stage keeps the
    // buffers until the handle itself is released.
    pthread_mutex_lock(&t->mutex);
    if (vtr_workers_idle(t))
        free_buffers(h);
    if (vtr_stop_workers(t, VTR_TEARDOWN_WAIT_MS)) {
        pthread_mutex_unlock(&t->mutex);
        pthread_mutex_unlock(&h->run_mutex[0]);
        vtr_release_handle(h);
        return 0;
    }
    // Some worker has not left yet: the last one to leave frees the handle. The stage lock is
    // released last, since from then on the handle may be gone.
    pthread_mutex_unlock(&h->run_mutex[0]);
    pthread_mutex_unlock(&t->mutex);
    return 0;
}

int32_t vantor_wait_ready(void* handle, int32_t timeout_ms) {
    if (handle == nullptr)
        return EINVAL;
    return vtr_wait_parked(&static_cast<vantor_handle*>(handle)->thread[0], timeout_ms);
}

int32_t vantor_frame_status(void* handle) {
    if (handle == nullptr)
        return -1;
    return vtr_status_of(&static_cast<vantor_handle*>(handle)->thread[0]);
}
