// The kernels, pipeline functions and signalling helpers that libvantor exports besides its
// three entry points. C++ linkage: vector_mul has two overloads.
//
// Planes are 8-bit samples with rows back to back; sizes are signed 32-bit. Vector kernels
// end in _neon; each documents which sizes it accepts and what it does outside them.
#ifndef VANTOR_KERNELS_H
#define VANTOR_KERNELS_H

#include <pthread.h>
#include <sched.h>
#include <stdint.h>

#include "vantor.h"

struct vantor_thread;

// ---- Box filter -------------------------------------------------------------------------

// Worker body of the box-filter stage: runs the worker loop on one box_filter_job record.
VTR_EXPORT void* box_filter_col(void* record);

// Splits columns 0 .. (width & ~31) - 1 of `source` into a 64-weight vertical average (`low`)
// and the detail `source + 128 - low` (`high`). All three planes share `stride`.
VTR_EXPORT void box_filter_col_neon(const uint8_t* source, uint8_t* low, uint8_t* high,
                                    int32_t stride, int32_t height, int32_t width);

// ---- Bilateral filter -------------------------------------------------------------------

VTR_EXPORT void bilateral_filter_span3(const uint8_t* src, uint8_t* dst, int32_t height,
                                       int32_t width);
VTR_EXPORT void bilateral_filter(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                                 int32_t span_y, int32_t span_x);
VTR_EXPORT void bilateral_process_block(const int32_t* centre, int32_t* neighbour,
                                        int32_t* value_sum, int32_t* weight_sum, const uint8_t* src,
                                        int32_t spatial);
VTR_EXPORT void bilateral_filter_span3_center_neon(const uint8_t* src, uint8_t* dst, int32_t height,
                                                   int32_t width, int32_t top, int32_t bottom,
                                                   int32_t left, int32_t right);

VTR_EXPORT void vector_ldr(const uint8_t* src, int32_t* dst, int32_t n);
VTR_EXPORT void vector_str(uint8_t* dst, const int32_t* src, int32_t n);
VTR_EXPORT void vector_set(int32_t* dst, int32_t value, int32_t n);
VTR_EXPORT void vector_sub_abs(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n);
VTR_EXPORT void vector_min(int32_t* array, int32_t limit, int32_t n);
VTR_EXPORT void vector_max(int32_t* array, int32_t limit, int32_t n);
VTR_EXPORT void vector_add(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n);
VTR_EXPORT void vector_sub(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n);
VTR_EXPORT void vector_mul(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n);
VTR_EXPORT void vector_mul(int32_t* dst, const int32_t* a, int32_t k, int32_t n);
VTR_EXPORT void vector_div(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n);
VTR_EXPORT void vector_shr(int32_t* dst, const int32_t* a, int32_t s, int32_t n);

// ---- Deinterleave and downsample ----------------------------------------------------------

VTR_EXPORT void deinterleave_yuv420_uv_downsample_neon(uint8_t* first_out, uint8_t* second_out,
                                                       const uint8_t* vu_in, int32_t width_bound,
                                                       int32_t height_bound, int32_t stride);
VTR_EXPORT void deinterleave_yuv422_uv_downsample_neon(uint8_t* y_out, uint8_t* first_out,
                                                       uint8_t* second_out,
                                                       const uint8_t* packed_in, int32_t width,
                                                       int32_t height_bound, int32_t width_bound);
VTR_EXPORT void deinterleave_uv422_uv_downsample_neon(uint8_t* y_out, uint8_t* first_out,
                                                      uint8_t* second_out, const uint8_t* packed_in,
                                                      int32_t width, int32_t height_bound,
                                                      int32_t width_bound);
VTR_EXPORT void uv_downsample(const uint8_t* src, uint8_t* dst, int32_t rows, int32_t row_len);

// ---- Upsampling ---------------------------------------------------------------------------

// Argument record of upsample_uv420, upsample_uv422 and upsample_y: eight slots, which are
// eight 32-bit words on the 32-bit target.
struct upsample_args {
    int32_t width;     // source samples per row, also the source row stride
    int32_t height;    // source rows
    uint32_t unread2;  // not read
    uint32_t unread3;  // not read
    const uint8_t* luma_src;
    const uint8_t* chroma_src;
    uint8_t* luma_dst;
    uint8_t* chroma_dst;
};

VTR_EXPORT void* upsample_uv420(void* rec);
VTR_EXPORT void* upsample_uv422(void* rec);
VTR_EXPORT void upsample_uv420_neon(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h,
                                    int32_t cols);
VTR_EXPORT void upsample_uv_neon(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h,
                                 int32_t cols);
VTR_EXPORT void* upsample_y(void* rec);
VTR_EXPORT void upsample_y_neon(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h);
VTR_EXPORT int32_t uv_upsample(const uint8_t* src, uint8_t* dst, int32_t rows, int32_t cols);

// ---- Restore interleave and saturation ----------------------------------------------------

VTR_EXPORT void restore_interleave_yuv420_neon(const uint8_t* y_in, const uint8_t* vu_in,
                                               const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                               const uint8_t* up_first, const uint8_t* up_second,
                                               int32_t width, int32_t height, int32_t S,
                                               uint8_t* y_out, uint8_t* vu_out, int32_t scenario);
VTR_EXPORT void restore_interleave_yuv422_neon(uint8_t* frame, const uint8_t* y_comp_a,
                                               const uint8_t* y_comp_b, const uint8_t* up_first,
                                               const uint8_t* up_second, int32_t width,
                                               int32_t height, int32_t S);
VTR_EXPORT void restore_interleave_uv420_neon(const uint8_t* y_in, const uint8_t* vu_in,
                                              const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                              const uint8_t* up_first, const uint8_t* up_second,
                                              int32_t width, int32_t rows, int32_t S,
                                              uint8_t* vu_out);
VTR_EXPORT void restore_interleave_uv422_neon(uint8_t* frame, const uint8_t* y_comp_a,
                                              const uint8_t* y_comp_b, const uint8_t* up_first,
                                              const uint8_t* up_second, int32_t width,
                                              int32_t height, int32_t S);

// ---- Stage driver -------------------------------------------------------------------------

VTR_EXPORT int32_t vantor_run_thread(void* thread);
VTR_EXPORT int32_t vantor_deinterleave(vantor_thread* thread);
VTR_EXPORT int32_t vantor_box_filter(vantor_thread* thread);
VTR_EXPORT int32_t vantor_yuv(vantor_thread* thread);
VTR_EXPORT int32_t vantor_interleave(vantor_thread* thread);
VTR_EXPORT void y_low_downsample(vantor_thread* thread);

// ---- Signalling ---------------------------------------------------------------------------

VTR_EXPORT void vantor_run_signal(pthread_cond_t* cond, int32_t* counter, int32_t target);
VTR_EXPORT int vantor_wait_signal(pthread_cond_t* cond, pthread_mutex_t* mutex, int32_t* counter,
                                  const char* name);
VTR_EXPORT void vantor_timedwait_signal(pthread_cond_t* cond, pthread_mutex_t* mutex, int32_t ms,
                                        const char* name);
VTR_EXPORT int vantor_timedlock(pthread_mutex_t* mutex, int32_t ms, const char* name);
VTR_EXPORT void setCurrentThreadAffinityMask(const cpu_set_t* mask);

#endif  // VANTOR_KERNELS_H
