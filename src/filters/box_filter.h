// Vertical box filter: splits a luma plane into a low-pass plane and a detail plane.
//
// For every pixel the low plane gets the rounded average of a 64-weight vertical window (rows
// y - 31 .. y + 31, the centre row counted twice) and the high plane gets
// source + 128 - low, clamped to 0..255. Rows outside the plane are mirrored about the edge
// row, which is not repeated.
//
// Small planes: below 64 rows a single mirror no longer lands inside the plane, so the mirror
// is applied repeatedly until the row lies inside (a plane of one row reads row 0 everywhere).
// The scalar twin runs the four running-sum phases from 64 rows, the vector twin from 65 (its
// main phase wants a row); below that both take the repeated mirror, and the two give
// identical bytes for every height >= 1. A height < 1 writes nothing.
#ifndef VANTOR_FILTERS_BOX_FILTER_H
#define VANTOR_FILTERS_BOX_FILTER_H

#include <stdint.h>

#include "vantor_kernels.h"

// Window rows above and below the centre; the window has 2 * 31 + 1 rows plus the doubled
// centre, 64 weights in all.
constexpr int32_t VTR_BOX_REACH = 31;
// Smallest height at which the running sum needs one mirror only: rows 1..32 read up to row 63.
constexpr int32_t VTR_BOX_MIN_HEIGHT = 64;
// Columns per vector block.
constexpr int32_t VTR_BOX_BLOCK = 32;

// Row r of a plane of `height` >= 1 rows under the mirror rule, applied until r lies inside:
// the reflections about rows 0 and height - 1 repeat with period 2 * (height - 1).
inline int32_t box_mirror_row(int32_t r, int32_t height) {
    if (height == 1)
        return 0;
    const int32_t period = 2 * (height - 1);
    r = (r < 0 ? -r : r) % period;
    return r < height ? r : period - r;
}

// box_filter_col_neon (declared in vantor_kernels.h) filters the whole 32-column blocks below
// `width`; fewer than 32 columns or a height < 1 writes nothing. From 65 rows it runs the
// four-phase running sum; shorter planes take the repeated-mirror rule above.

// Scalar twin of box_filter_col_neon, same arguments and rules: filters the whole 32-column
// blocks below `width` (columns 0 .. (width & ~31) - 1), one column at a time; fewer than 32
// columns or a height < 1 writes nothing.
void box_filter_col_c(const uint8_t* source, uint8_t* low, uint8_t* high, int32_t stride,
                      int32_t height, int32_t width);

// Filters the single column at `source` (one byte per row, rows `stride` apart) into `low` and
// `high`. Height >= 64 runs the four-phase running sum; shorter columns use the repeated mirror.
// A height < 1 writes nothing.
void box_filter_column_c(const uint8_t* source, uint8_t* low, uint8_t* high, int32_t stride,
                         int32_t height);

// Filters every column of one band: the whole 32-column blocks with box_filter_col_neon, the
// remaining width % 32 columns one by one with box_filter_column_c. Reads and writes only
// columns 0 .. width - 1 of rows 0 .. height - 1; a width or height < 1 writes nothing.
void box_filter_band(const uint8_t* source, uint8_t* low, uint8_t* high, int32_t stride,
                     int32_t height, int32_t width);

#endif  // VANTOR_FILTERS_BOX_FILTER_H
