// Vertical box filter, scalar form: the reference for box_filter_neon.cpp.
//
// Memory: reads source rows 0 .. height - 1 of the columns it filters and nothing else; writes
// the same rows and columns of low and high, never past them.
#include "filters/box_filter.h"

#include <stddef.h>

namespace {

// Stores low and high for one row from the running sum of 64 weights.
inline void store_row(int32_t sum, int32_t src, uint8_t* low, uint8_t* high) {
    int32_t l = (sum + 32) >> 6;  // divide by the 64 weights, rounding half up
    l = l > 255 ? 255 : l < 0 ? 0 : l;
    int32_t h = src + 128 - l;
    h = h > 255 ? 255 : h < 0 ? 0 : h;
    *low = static_cast<uint8_t>(l);
    *high = static_cast<uint8_t>(h);
}

// One column of a plane of 1 to 63 rows: the same running sum with every row index passed
// through box_mirror_row.
void box_filter_column_short(const uint8_t* source, uint8_t* low, uint8_t* high, ptrdiff_t stride,
                             int32_t height) {
    auto src = [&](int32_t r) {
        return static_cast<int32_t>(source[box_mirror_row(r, height) * stride]);
    };
    int32_t sum = src(0);
    for (int32_t k = -VTR_BOX_REACH; k <= VTR_BOX_REACH; ++k)
        sum += src(k);
    store_row(sum, src(0), low, high);
    for (int32_t y = 1; y < height; ++y) {
        sum += -src(y - VTR_BOX_REACH - 1) + src(y + VTR_BOX_REACH) - src(y - 1) + src(y);
        store_row(sum, src(y), low + y * stride, high + y * stride);
    }
}

}  // namespace

void box_filter_column_c(const uint8_t* source, uint8_t* low, uint8_t* high, int32_t stride_,
                         int32_t height) {
    const ptrdiff_t stride = stride_;
    if (height < VTR_BOX_MIN_HEIGHT) {
        if (height >= 1)
            box_filter_column_short(source, low, high, stride, height);
        return;
    }
    auto src = [&](int32_t r) { return static_cast<int32_t>(source[r * stride]); };
    // Row 0: rows -31..31 mirrored, so rows 1..31 twice and row 0 once, plus the centre again.
    int32_t sum = 2 * src(0);
    for (int32_t r = 1; r <= VTR_BOX_REACH; ++r)
        sum += 2 * src(r);
    store_row(sum, src(0), low, high);
    int32_t y = 1;
    // Top: the row leaving the window, y - 32, is mirrored to 32 - y.
    for (; y <= 32; ++y) {
        sum += -src(32 - y) + src(y + 31) - src(y - 1) + src(y);
        store_row(sum, src(y), low + y * stride, high + y * stride);
    }
    for (; y <= height - 32; ++y) {
        sum += -src(y - 32) + src(y + 31) - src(y - 1) + src(y);
        store_row(sum, src(y), low + y * stride, high + y * stride);
    }
    // Bottom: the row entering the window, y + 31, is mirrored about the last row.
    for (; y < height; ++y) {
        sum += -src(y - 32) + src(2 * height - 2 - (y + 31)) - src(y - 1) + src(y);
        store_row(sum, src(y), low + y * stride, high + y * stride);
    }
}

void box_filter_col_c(const uint8_t* source, uint8_t* low, uint8_t* high, int32_t stride,
                      int32_t height, int32_t width) {
    const int32_t w32 = width & ~(VTR_BOX_BLOCK - 1);
    for (int32_t x = 0; x < w32; ++x)
        box_filter_column_c(source + x, low + x, high + x, stride, height);
}

void box_filter_band(const uint8_t* source, uint8_t* low, uint8_t* high, int32_t stride,
                     int32_t height, int32_t width) {
    if (width < 1 || height < 1)
        return;
    const int32_t w32 = width & ~(VTR_BOX_BLOCK - 1);
    box_filter_col_neon(source, low, high, stride, height, w32);
    for (int32_t x = w32; x < width; ++x)
        box_filter_column_c(source + x, low + x, high + x, stride, height);
}
