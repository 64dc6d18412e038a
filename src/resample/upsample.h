// Upsampling: bilinear enlargement of a block-resolution plane back to chroma (8 x 8 for
// 4:2:0, 8 x 16 for 4:2:2) or luma (16 x 16) resolution.
//
// Phase: source sample (r, c) lands on destination (f_y * r, f_x * c); the samples between two
// source samples use integer weights in sixteenths, and every result is the weighted sum
// shifted right by 8 (truncating, no rounding term). At the right and bottom border the next
// sample is the border sample itself, so the last source interval is flat.
//
// Each vector core (_neon, exported) has a scalar twin (_c, hidden) giving the same bytes.
#ifndef VANTOR_RESAMPLE_UPSAMPLE_H
#define VANTOR_RESAMPLE_UPSAMPLE_H

#include <stdint.h>

#include "vantor_kernels.h"

// Horizontal weights of the left and right sample for destination column j = 0 .. 7 of a
// source interval, (16 - 2j, 2j). The 4:2:0 and 4:2:2 tables hold the same values.
extern const uint16_t upsample_uv_neon_table1[8];
extern const uint16_t upsample_uv_neon_table2[8];
extern const uint16_t upsample_uv420_neon_table1[8];
extern const uint16_t upsample_uv420_neon_table2[8];
// Luma weights (16 - j, j) for j = 0 .. 15: table1 and table2 the left weights of columns
// 0 .. 7 and 8 .. 15, table3 and table4 the right weights.
extern const uint16_t upsample_y_neon_table1[8];
extern const uint16_t upsample_y_neon_table2[8];
extern const uint16_t upsample_y_neon_table3[8];
extern const uint16_t upsample_y_neon_table4[8];

// 4:2:0 chroma core: source w x h (stride w), destination stride 8 * w. Fills destination
// rows 0 .. 8h - 1, columns 0 .. 8 * cols - 1, in blocks of 8 rows by 16 columns; each block
// reads source columns sx, sx + 1 and sx + 2 (clamped to sx + 1) of rows sy and sy + 1 (clamped
// to h - 1). Accepts w >= 1, cols even with 0 <= cols <= w. h <= 0 or cols <= 0 writes
// nothing. An odd cols is covered in whole 16-column blocks (8 * (cols + 1) columns), which
// only stays inside the row while cols < w.
// (upsample_uv420_neon: declared in vantor_kernels.h)
void upsample_uv420_c(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h, int32_t cols);

// 4:2:2 chroma core: as upsample_uv420_neon with 16 destination rows per source row (vertical
// weights (16 - k, k)), so rows 0 .. 16h - 1. Same accepted sizes.
// (upsample_uv_neon: declared in vantor_kernels.h)
void upsample_uv_c(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h, int32_t cols);

// Wrappers on an upsample_args record: chroma_src (w x h) into chroma_dst (8w x 8h for 4:2:0,
// 8w x 16h for 4:2:2). The core covers w rounded down to even; for an odd w the last 8
// destination columns come from scalar code, run first. Accept w >= 1, h >= 0; h <= 0 writes
// nothing. Return rec.
// (upsample_uv420: declared in vantor_kernels.h)
// (upsample_uv422: declared in vantor_kernels.h)

// The same wrappers with a chosen core, so that the scalar twins can run the full path.
using upsample_core = void (*)(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h,
                               int32_t cols);
void upsample_uv420_with(const upsample_args* rec, upsample_core core);
void upsample_uv422_with(const upsample_args* rec, upsample_core core);

// Luma core: source w x h (stride w) to destination 16w x 16h (stride 16 * w), in 16 x 16
// blocks. Accepts w >= 1, h >= 0; w <= 0 or h <= 0 writes nothing.
// (upsample_y_neon: declared in vantor_kernels.h)
void upsample_y_c(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h);

// upsample_y_neon(rec->luma_dst, rec->luma_src, rec->width, rec->height); returns rec.
// (upsample_y: declared in vantor_kernels.h)

// Scalar 8 x 16 chroma upsampler with a mirror rule at the right and bottom border (which
// there picks the border sample itself): src is rows x cols, dst 16 rows x 8 cols per source
// sample, stride 8 * cols. Logs two error lines for any negative intermediate value and stores
// its low 8 bits. Returns 16 * rows; writes nothing when that is below 1 or cols < 1.
// (uv_upsample: declared in vantor_kernels.h)

// The two error lines uv_upsample logs for a negative value at destination (i, j).
void uv_upsample_report(int32_t a, int32_t b, int32_t i, int32_t j, int32_t x, int32_t x1,
                        int32_t y, int32_t y1, int32_t v1, int32_t v2, int32_t v3, int32_t v4,
                        int32_t value);

#endif  // VANTOR_RESAMPLE_UPSAMPLE_H
