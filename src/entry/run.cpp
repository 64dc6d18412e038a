// vantor_run: records one frame in the slot and runs the stage driver on the caller's thread.
#include "entry/handle.h"
#include "pipeline/formats.h"
#include "platform/log.h"
#include "vantor_ext.h"
#include "vantor_kernels.h"

namespace {

// The frame must fit the buffers sized at initialisation; checked before anything is written.
bool frame_fits(const vantor_handle* h, int32_t width, int32_t height) {
    if (width <= 0 || (width & 15) != 0 || height < 1)
        return false;
    const int64_t aligned = (static_cast<int64_t>(height) + 15) & ~static_cast<int64_t>(15);
    return width <= h->init_width && aligned <= h->init_aligned_height;
}

void* as_pointer(uintptr_t a) {
    return reinterpret_cast<void*>(a);
}

}  // namespace

// The log lines print addresses with "%#p", which the platform log accepts.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"

int32_t* vantor_run(void* handle, uintptr_t in_address_1, uintptr_t in_address_2, int32_t width,
                    int32_t height, int32_t format) {
    if (handle == nullptr) {
        VTR_LOGE("vantor_run, VTR handler is NULL~!!!!!\n");
        return nullptr;
    }
    vantor_handle* h = static_cast<vantor_handle*>(handle);
    // Taken before the slot lock and without any lock; with one slot it is always 0.
    int32_t index = h->index + 1;
    if (index >= VTR_SLOT_COUNT)
        index = 0;
    h->index = index;
    pthread_mutex_lock(&h->run_mutex[index]);

    if (!frame_fits(h, width, height)) {
        vtr_status_set(&h->thread[index], VANTOR_FRAME_NOT_RUN);
        VTR_LOGE("vantor_run, frame %dx%d does not fit handle %dx%d", width, height, h->init_width,
                 h->init_height);
        pthread_mutex_unlock(&h->run_mutex[index]);
        return &h->result[index];
    }

    h->width = width;
    h->height = height;
    h->cropped_height = height & ~15;
    h->aligned_height = (height & 15) != 0 ? h->cropped_height + 16 : h->cropped_height;

    const char* scenario;
    if (h->scenario == VTR_SCENARIO_CAPTURE) {
        scenario = "VTR_SCENARIO_CAPTURE";
    } else if (h->scenario == VTR_SCENARIO_PREVIEW) {
        scenario = "VTR_SCENARIO_PREVIEW";
    } else {
        // Returns with the slot still locked: later calls on this handle block.
        VTR_LOGE("vantor_run, not support scenario(%d)", h->scenario);
        return nullptr;
    }
    VTR_LOGI("vantor_run[%d][%s] width(%d), height(%d), in_address_1(%#p), in_address_2(%#p)\n",
             index, scenario, width, height, as_pointer(in_address_1), as_pointer(in_address_2));

    vantor_thread* t = &h->thread[index];
    h->format = format;
    if (vtr_is_420(format)) {
        const bool nv21 = format == static_cast<int32_t>(VTR_NV21);
        h->in_address_1[index] = in_address_1;
        h->in_address_2[index] = in_address_2;
        t->in_address_1 = in_address_1;
        t->in_address_2 = in_address_2;
        h->out_address_1[index] = in_address_1;
        // NV21 output: the V/U plane ends up directly after `height` luma rows, moved back by
        // the padding rows (32-bit arithmetic on the 32-bit target).
        const uint32_t padding =
            static_cast<uint32_t>(width) * static_cast<uint32_t>(h->aligned_height - h->height);
        h->out_address_2[index] = nv21 ? in_address_2 - padding : in_address_2;
        t->out_address_1 = h->out_address_1[index];
        t->out_address_2 = h->out_address_2[index];
        VTR_LOGI("vantor_run[%s], format[%s], out_address_1(%#p), out_address_2(%#p)", scenario,
                 nv21 ? "VTR_NV21" : "VTR_NV21_M", as_pointer(t->out_address_1),
                 as_pointer(t->out_address_2));
    } else if (vtr_is_422(format)) {
        h->yuyv_address[index] = in_address_1;
        t->yuyv_address = in_address_1;
        // The log name of YUY2 is "VTR_YUV2".
        VTR_LOGI("vantor_run[%s], format[%s]", scenario,
                 format == static_cast<int32_t>(VTR_YUYV) ? "VTR_YUYV" : "VTR_YUV2");
    } else {
        // Returns with the slot still locked: later calls on this handle block.
        vtr_status_set(t, VANTOR_FRAME_NOT_RUN);
        VTR_LOGE("vantor_run, Not supported format");
        return &h->result[index];
    }

    t->run_mutex = &h->run_mutex[index];
    t->width = h->width;
    t->height = h->height;
    t->aligned_height = h->aligned_height;
    t->cropped_height = h->cropped_height;
    t->format = h->format;
    t->scenario = h->scenario;
    t->y_old = h->y_old;
    t->y_low = h->y_low[index];
    t->y_high = h->y_high[index];
    t->downsampled_y = h->downsampled_y[index];
    t->downsampled_u = h->downsampled_u[index];
    t->downsampled_v = h->downsampled_v[index];
    t->filtered_y = h->filtered_y;
    t->filtered_u = h->filtered_u;
    t->filtered_v = h->filtered_v;
    t->upsampled_u = h->upsampled_u;
    t->upsampled_v = h->upsampled_v;
    t->done_count = 0;

    const int32_t ret = vantor_run_thread(t);
    if (ret < 0)
        VTR_LOGE("fail to vantor_run_thread, handle(%p), ret(%d)", handle, ret);
    pthread_mutex_unlock(&h->run_mutex[index]);
    return &h->result[index];
}

#pragma GCC diagnostic pop
