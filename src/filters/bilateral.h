// Bilateral filter of the block-resolution planes: weight tables, the scalar per-pixel method
// and the twins of the 7x7 centre routine.
//
// Planes are 8-bit samples with row stride = width. Every output pixel is
// (sum of w * n) / (1 + sum of w) over its window, w = range weight(|c - n|) * spatial weight
// (|dx| + |dy|), truncated, then saturated on its low 16 bits. Window positions outside the
// plane are mirrored about the edge row or column (which is not repeated); where the window is
// larger than the plane the mirror is applied repeatedly until the index lies inside, and a
// plane one sample high or wide reads index 0.
#ifndef VANTOR_FILTERS_BILATERAL_H
#define VANTOR_FILTERS_BILATERAL_H

#include <stdint.h>

#include "vantor_kernels.h"

// Range weights of the 7x7 path, by min(|c - n|, 15): (8192 + 36d - 298d^2 + 32d^3 - d^4) >> 7
// with d = min(|c - n|, 13), the polynomial the vector routine evaluates in its lanes.
extern const int32_t range_weight_span3[16];
// Range weights of the general path, by min(|c - n|, 15): a slightly different curve that
// still gives weight 1 to a difference of 13.
extern const int32_t range_weight_general[16];
// Spatial weights by city-block distance min(|dx| + |dy|, 15).
extern const int32_t spatial_weight[16];

// Half size of the 7x7 window.
constexpr int32_t VTR_SPAN3 = 3;
// Output pixels per step of the centre routine.
constexpr int32_t VTR_SPAN3_STEP = 8;

// Rows top .. bottom - 1 and columns left .. right - 1 of a plane.
struct bilateral_rect {
    int32_t top, left, bottom, right;
};

// The scalar method for every pixel of `rect` (clipped to the plane), with window rows
// -span_y..span_y, columns -span_x..span_x and the mirror rule above. A negative span gives an
// empty window and the value 0. The 32-bit sums wrap like hardware registers for windows of
// more than 2056 positions (4096 * 255 per position); the result is then defined but
// meaningless. Writes only inside `rect`.
void bilateral_filter_rect_c(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                             int32_t span_y, int32_t span_x, const int32_t* range,
                             bilateral_rect rect);

// Scalar twin of bilateral_filter_span3_center_neon, same arguments and rules: steps of 8
// output pixels from (top, left), rows while below height - bottom, columns while below
// width - right; a step runs only if its 8 outputs and all their 7x7 windows lie inside the
// plane (rows 3 .. height - 4, columns 3 .. width - 4), so an empty band writes nothing.
void bilateral_filter_span3_center_c(const uint8_t* src, uint8_t* dst, int32_t height,
                                     int32_t width, int32_t top, int32_t bottom, int32_t left,
                                     int32_t right);

// The steps both centre twins run: rows row_begin .. row_end - 1, and in each row the step
// columns col_begin, col_begin + 8, ... below col_end. The requested grid (from top and left,
// below height - bottom and width - right) is cut to the steps whose outputs and windows lie
// inside the plane; steps left of column 3 are skipped, keeping the grid's alignment.
struct span3_steps {
    int64_t row_begin, row_end, col_begin, col_end;
};

inline span3_steps bilateral_span3_steps(int32_t height, int32_t width, int32_t top, int32_t bottom,
                                         int32_t left, int32_t right) {
    span3_steps s;
    s.row_begin = top > VTR_SPAN3 ? top : VTR_SPAN3;
    s.row_end = static_cast<int64_t>(height) - (bottom > VTR_SPAN3 ? bottom : VTR_SPAN3);
    s.col_begin = left;
    if (s.col_begin < VTR_SPAN3)
        s.col_begin +=
            (VTR_SPAN3 - s.col_begin + VTR_SPAN3_STEP - 1) / VTR_SPAN3_STEP * VTR_SPAN3_STEP;
    // The last output of a step, x + 7, needs columns up to x + 10 <= width - 1.
    const int64_t fit_end = static_cast<int64_t>(width) - VTR_SPAN3 - VTR_SPAN3_STEP + 1;
    const int64_t band_end = static_cast<int64_t>(width) - right;
    s.col_end = band_end < fit_end ? band_end : fit_end;
    return s;
}

// The 7x7 split of a plane of at least 7 rows and 14 columns: the centre band is
// C = (width - 6) rounded down to a multiple of 8 columns, with the M = width - C columns left
// over split left = M / 2 (3 .. 6) and right = M - left (3 .. 7).
struct span3_margins {
    int32_t left, right;
};

inline span3_margins bilateral_span3_margins(int32_t width) {
    const int32_t m = width - ((width - 2 * VTR_SPAN3) & ~(VTR_SPAN3_STEP - 1));
    return {m / 2, m - m / 2};
}

// The pixels of a plane of at least 7 rows and 14 columns that the centre routine with margins
// 3, 3, left, right leaves out: rows 0 .. 2 and height - 3 .. height - 1, and the first `left`
// and last `right` columns of every row; the mirror rule where windows leave the plane, 8
// pixels per vector step. Needs 3 <= left, right <= 8 and width - left - right a multiple of 8.
// Reads only inside the plane and writes only those pixels.
void bilateral_span3_border_neon(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                                 int32_t left, int32_t right);

using bilateral_centre_fn = void (*)(const uint8_t* src, uint8_t* dst, int32_t height,
                                     int32_t width, int32_t top, int32_t bottom, int32_t left,
                                     int32_t right);

// The 7x7 filter with the border in scalar code and the centre band handed to `centre`; with
// bilateral_filter_span3_center_c it is the scalar twin of bilateral_filter_span3.
void bilateral_filter_span3_with(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                                 bilateral_centre_fn centre);

// Quotient of the two sums stored as a sample: truncating division, then the low 16 bits read
// as a signed number, above 255 stored as 255 and below 0 as 0. A zero divisor gives 0 and
// INT32_MIN / -1 wraps, as the 32-bit divide instruction does.
inline uint8_t bilateral_store_value(int32_t value_sum, int32_t weight_sum) {
    int32_t q = 0;
    if (weight_sum == -1)
        q = static_cast<int32_t>(0u - static_cast<uint32_t>(value_sum));
    else if (weight_sum != 0)
        q = value_sum / weight_sum;
    const int16_t low16 = static_cast<int16_t>(static_cast<uint16_t>(q));
    return static_cast<uint8_t>(low16 > 255 ? 255 : low16 < 0 ? 0 : low16);
}

#endif  // VANTOR_FILTERS_BILATERAL_H
