// The handle that vantor_init returns: the slot records first, then the frame, the plane
// addresses and the eleven working buffers.
#ifndef VANTOR_ENTRY_HANDLE_H
#define VANTOR_ENTRY_HANDLE_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "pipeline/record.h"
#include "vantor.h"

// Pipeline slots per handle. The per-slot arrays and the slot index are kept although there
// is one slot; y_old, filtered_* and upsampled_* would be shared by further slots.
constexpr int32_t VTR_SLOT_COUNT = 1;

constexpr int32_t VTR_CAPTURE_SATURATION = 12;
constexpr int32_t VTR_PREVIEW_SATURATION = 4;
constexpr int32_t VTR_CAPTURE_PRIORITY = -8;
constexpr int32_t VTR_PREVIEW_PRIORITY = 0;

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
};

static_assert(offsetof(vantor_handle, thread) == 0, "slot 0's record is the handle's address");

// The handle that holds a slot record. With one slot the record is slot 0.
static_assert(VTR_SLOT_COUNT == 1, "vtr_handle_of assumes slot 0");
inline vantor_handle* vtr_handle_of(vantor_thread* record) {
    return reinterpret_cast<vantor_handle*>(record);
}

// Frees every working buffer still held and the handle block itself.
void vtr_release_handle(vantor_handle* h);

#endif  // VANTOR_ENTRY_HANDLE_H
