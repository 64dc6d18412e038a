// The handle that vantor_init returns and the per-slot pipeline record that the stage driver
// and every worker share.
#ifndef VANTOR_ENTRY_HANDLE_H
#define VANTOR_ENTRY_HANDLE_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "filters/box_filter.h"
#include "pipeline/jobs.h"
#include "vantor.h"

// Pipeline slots per handle. The per-slot arrays and the slot index are kept although there
// is one slot; y_old, filtered_* and upsampled_* would be shared by further slots.
constexpr int32_t VTR_SLOT_COUNT = 1;
constexpr int32_t VTR_STRIP_COUNT = 4;    // workers of each strip or band stage
constexpr int32_t VTR_PLANE_WORKERS = 3;  // vantor_u, vantor_v, vantor_y
constexpr int32_t VTR_WORKER_COUNT = 3 * VTR_STRIP_COUNT + VTR_PLANE_WORKERS;

constexpr int32_t VTR_CAPTURE_SATURATION = 12;
constexpr int32_t VTR_PREVIEW_SATURATION = 4;
constexpr int32_t VTR_CAPTURE_PRIORITY = -8;
constexpr int32_t VTR_PREVIEW_PRIORITY = 0;

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
};

struct vantor_handle {
    vantor_thread thread[VTR_SLOT_COUNT];
    int32_t index;  // updated by vantor_run without a lock
    int32_t result[VTR_SLOT_COUNT];
    pthread_mutex_t run_mutex[VTR_SLOT_COUNT];
    int32_t width;
    int32_t height;
    int32_t aligned_height;
    int32_t cropped_height;
    int32_t format;
    int32_t scenario;
    uintptr_t in_address_1[VTR_SLOT_COUNT];
    uintptr_t in_address_2[VTR_SLOT_COUNT];
    uintptr_t yuyv_address[VTR_SLOT_COUNT];
    uintptr_t out_address_1[VTR_SLOT_COUNT];
    uintptr_t out_address_2[VTR_SLOT_COUNT];
    uint8_t* y_old;
    uint8_t* y_low[VTR_SLOT_COUNT];
    uint8_t* y_high[VTR_SLOT_COUNT];
    uint8_t* downsampled_y[VTR_SLOT_COUNT];
    uint8_t* downsampled_u[VTR_SLOT_COUNT];
    uint8_t* downsampled_v[VTR_SLOT_COUNT];
    uint8_t* filtered_y;
    uint8_t* filtered_u;
    uint8_t* filtered_v;
    uint8_t* upsampled_u;
    uint8_t* upsampled_v;

    // The geometry the buffers were sized for; width and height above follow each frame.
    int32_t init_width;
    int32_t init_height;
    int32_t init_aligned_height;
    // Worker bookkeeping, guarded by thread[0].mutex. A teardown that cannot wait for every
    // worker leaves the handle `orphaned`, and the last worker to leave frees it.
    int32_t live_workers;  // created and not yet left
    int32_t busy_workers;  // woken for a stage and not yet reported
    int32_t orphaned;
    pthread_cond_t ready_cond;  // broadcast by each worker as it parks
};

static_assert(offsetof(vantor_handle, thread) == 0, "slot 0's record is the handle's address");

// The handle that holds a slot record, from the record or from its stage lock. With one slot
// the record is slot 0.
static_assert(VTR_SLOT_COUNT == 1, "vtr_handle_of assumes slot 0");
inline vantor_handle* vtr_handle_of(vantor_thread* record) {
    return reinterpret_cast<vantor_handle*>(record);
}
inline vantor_handle* vtr_handle_of_mutex(pthread_mutex_t* mutex) {
    return vtr_handle_of(reinterpret_cast<vantor_thread*>(reinterpret_cast<char*>(mutex) -
                                                          offsetof(vantor_thread, mutex)));
}

// Frees every working buffer still held and the handle block itself.
void vtr_release_handle(vantor_handle* h);

#endif  // VANTOR_ENTRY_HANDLE_H
