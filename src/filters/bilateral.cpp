// Bilateral filter, scalar forms: the per-pixel method with the mirror border, the 7x7 split
// between the border and the centre routine, the scalar centre twin, the 7x7 and general-span
// entries and the element-wise vector_* helpers with their one-step model
// bilateral_process_block.
//
// Memory: every function reads the source plane only at rows 0 .. height - 1 and columns
// 0 .. width - 1 and writes only the destination pixels it is documented to produce; the
// vector_* helpers touch exactly n elements of each array.
#include "filters/bilateral.h"

#include <stddef.h>

const int32_t range_weight_span3[16] = {64, 62, 57, 50, 41, 33, 25, 18, 13, 8, 5, 3, 2, 0, 0, 0};
const int32_t range_weight_general[16] = {64, 62, 57, 50, 42, 33, 24, 17, 11, 7, 4, 2, 1, 1, 0, 0};
const int32_t spatial_weight[16] = {64, 64, 63, 61, 59, 56, 53, 50, 46, 43, 39, 35, 31, 27, 24, 21};

namespace {

// Index i of a line of n >= 1 samples under the mirror rule, applied until it lies inside:
// the reflections about 0 and n - 1 repeat with period 2 * (n - 1).
int32_t mirror_index(int64_t i, int32_t n) {
    if (n == 1)
        return 0;
    if (i >= 0 && i < n)
        return static_cast<int32_t>(i);
    const int64_t period = 2 * static_cast<int64_t>(n - 1);
    i = (i < 0 ? -i : i) % period;
    return static_cast<int32_t>(i < n ? i : period - i);
}

inline int32_t abs32(int32_t v) {
    return v < 0 ? -v : v;
}

// One output pixel by the scalar method. Sums are unsigned so that oversized windows wrap
// instead of overflowing.
uint8_t bilateral_pixel(const uint8_t* src, int32_t height, int32_t width, int32_t y, int32_t x,
                        int32_t span_y, int32_t span_x, const int32_t* range) {
    const int32_t c = src[static_cast<ptrdiff_t>(y) * width + x];
    uint32_t weight_sum = 1;  // the deliberate starting weight
    uint32_t value_sum = 0;
    for (int64_t dy = -static_cast<int64_t>(span_y); dy <= span_y; ++dy) {
        const uint8_t* row = src + static_cast<ptrdiff_t>(mirror_index(y + dy, height)) * width;
        const int64_t ady = dy < 0 ? -dy : dy;
        for (int64_t dx = -static_cast<int64_t>(span_x); dx <= span_x; ++dx) {
            const int32_t n = row[mirror_index(x + dx, width)];
            const int32_t d = abs32(c - n);
            const int64_t dist = ady + (dx < 0 ? -dx : dx);
            const uint32_t w = static_cast<uint32_t>(range[d < 15 ? d : 15]) *
                               static_cast<uint32_t>(spatial_weight[dist < 15 ? dist : 15]);
            weight_sum += w;
            value_sum += w * static_cast<uint32_t>(n);
        }
    }
    return bilateral_store_value(static_cast<int32_t>(value_sum), static_cast<int32_t>(weight_sum));
}

}  // namespace

void bilateral_filter_rect_c(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                             int32_t span_y, int32_t span_x, const int32_t* range,
                             bilateral_rect rect) {
    const int32_t top = rect.top > 0 ? rect.top : 0;
    const int32_t left = rect.left > 0 ? rect.left : 0;
    const int32_t bottom = rect.bottom < height ? rect.bottom : height;
    const int32_t right = rect.right < width ? rect.right : width;
    for (int32_t y = top; y < bottom; ++y) {
        uint8_t* out = dst + static_cast<ptrdiff_t>(y) * width;
        for (int32_t x = left; x < right; ++x)
            out[x] = bilateral_pixel(src, height, width, y, x, span_y, span_x, range);
    }
}

namespace {

// The 7x7 sums of one pixel with centre value c, given its mirrored window rows and columns.
inline uint8_t span3_window(const uint8_t* const rows[7], const int32_t cols[7], int32_t c) {
    int32_t weight_sum = 1;  // the deliberate starting weight
    int32_t value_sum = 0;
    for (int32_t i = 0; i < 7; ++i) {
        const int32_t ady = abs32(i - VTR_SPAN3);
        for (int32_t j = 0; j < 7; ++j) {
            const int32_t n = rows[i][cols[j]];
            const int32_t d = abs32(c - n);
            const int32_t w =
                range_weight_span3[d < 15 ? d : 15] * spatial_weight[ady + abs32(j - VTR_SPAN3)];
            weight_sum += w;
            value_sum += w * n;
        }
    }
    return bilateral_store_value(value_sum, weight_sum);
}

// The 7x7 scalar method on `rect` of a plane of at least 7 rows and 14 columns, where one
// mirror always lands inside.
void span3_rect_c(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                  bilateral_rect rect) {
    for (int32_t y = rect.top; y < rect.bottom; ++y) {
        const uint8_t* rows[7];
        for (int32_t i = 0; i < 7; ++i)
            rows[i] = src + static_cast<ptrdiff_t>(mirror_index(y + i - VTR_SPAN3, height)) * width;
        for (int32_t x = rect.left; x < rect.right; ++x) {
            int32_t cols[7];
            for (int32_t j = 0; j < 7; ++j)
                cols[j] = mirror_index(x + j - VTR_SPAN3, width);
            dst[static_cast<ptrdiff_t>(y) * width + x] =
                span3_window(rows, cols, rows[VTR_SPAN3][x]);
        }
    }
}

}  // namespace

// The 7x7 window of each pixel lies inside the plane, so no mirror is needed.
void bilateral_filter_span3_center_c(const uint8_t* src, uint8_t* dst, int32_t height,
                                     int32_t width, int32_t top, int32_t bottom, int32_t left,
                                     int32_t right) {
    static constexpr int32_t cols[7] = {-3, -2, -1, 0, 1, 2, 3};
    const span3_steps s = bilateral_span3_steps(height, width, top, bottom, left, right);
    for (int64_t y = s.row_begin; y < s.row_end; ++y) {
        const uint8_t* rows[7];
        for (int32_t i = 0; i < 7; ++i)
            rows[i] = src + (y + i - VTR_SPAN3) * width;
        for (int64_t x0 = s.col_begin; x0 < s.col_end; x0 += VTR_SPAN3_STEP) {
            for (int64_t x = x0; x < x0 + VTR_SPAN3_STEP; ++x) {
                const uint8_t* at[7];
                for (int32_t i = 0; i < 7; ++i)
                    at[i] = rows[i] + x;
                dst[y * width + x] = span3_window(at, cols, at[VTR_SPAN3][0]);
            }
        }
    }
}

void bilateral_filter_span3_with(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                                 bilateral_centre_fn centre) {
    if (height < 1 || width < 1)
        return;
    const int32_t s = VTR_SPAN3;
    if (height < 2 * s + 1 || width < 2 * s + VTR_SPAN3_STEP) {
        bilateral_filter_rect_c(src, dst, height, width, s, s, range_weight_span3,
                                {0, 0, height, width});
        return;
    }
    // Every window of the centre band lies inside the plane.
    const span3_margins m = bilateral_span3_margins(width);
    span3_rect_c(src, dst, height, width, {0, 0, s, width});
    span3_rect_c(src, dst, height, width, {height - s, 0, height, width});
    span3_rect_c(src, dst, height, width, {s, 0, height - s, m.left});
    span3_rect_c(src, dst, height, width, {s, width - m.right, height - s, width});
    centre(src, dst, height, width, s, s, m.left, m.right);
}

// Planes of at least 7 rows and 14 columns go through the vector routines: the centre band and
// the border around it, the latter with mirrored window rows and columns. Smaller planes run
// the scalar method on every pixel with the repeated mirror. Height or width < 1 writes
// nothing.
void bilateral_filter_span3(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width) {
    const int32_t s = VTR_SPAN3;
    if (height < 2 * s + 1 || width < 2 * s + VTR_SPAN3_STEP) {
        bilateral_filter_span3_with(src, dst, height, width, bilateral_filter_span3_center_neon);
        return;
    }
    const span3_margins m = bilateral_span3_margins(width);
    bilateral_span3_border_neon(src, dst, height, width, m.left, m.right);
    bilateral_filter_span3_center_neon(src, dst, height, width, s, s, m.left, m.right);
}

// Spans (3, 3) go to bilateral_filter_span3 before any size check. Otherwise height or
// width < 1 writes nothing, and every pixel takes the scalar method with the general range
// table; spans larger than the plane mirror repeatedly, negative spans give 0 everywhere.
void bilateral_filter(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                      int32_t span_y, int32_t span_x) {
    if (span_y == VTR_SPAN3 && span_x == VTR_SPAN3) {
        bilateral_filter_span3(src, dst, height, width);
        return;
    }
    if (height < 1 || width < 1)
        return;
    bilateral_filter_rect_c(src, dst, height, width, span_y, span_x, range_weight_general,
                            {0, 0, height, width});
}

// ---- element-wise helpers: all wrap modulo 2^32 instead of overflowing -------------------

namespace {

inline int32_t wrap(uint32_t v) {
    return static_cast<int32_t>(v);
}

}  // namespace

void vector_ldr(const uint8_t* src, int32_t* dst, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = src[i];
}

void vector_str(uint8_t* dst, const int32_t* src, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = static_cast<uint8_t>(src[i]);
}

void vector_set(int32_t* dst, int32_t value, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = value;
}

// abs of the wrapped difference; abs(INT32_MIN) stays INT32_MIN.
void vector_sub_abs(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        const uint32_t d = static_cast<uint32_t>(a[i]) - static_cast<uint32_t>(b[i]);
        dst[i] = wrap(wrap(d) < 0 ? 0u - d : d);
    }
}

void vector_min(int32_t* array, int32_t limit, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        if (array[i] > limit)
            array[i] = limit;
}

void vector_max(int32_t* array, int32_t limit, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        if (array[i] < limit)
            array[i] = limit;
}

void vector_add(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = wrap(static_cast<uint32_t>(a[i]) + static_cast<uint32_t>(b[i]));
}

void vector_sub(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = wrap(static_cast<uint32_t>(a[i]) - static_cast<uint32_t>(b[i]));
}

void vector_mul(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = wrap(static_cast<uint32_t>(a[i]) * static_cast<uint32_t>(b[i]));
}

void vector_mul(int32_t* dst, const int32_t* a, int32_t k, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        dst[i] = wrap(static_cast<uint32_t>(a[i]) * static_cast<uint32_t>(k));
}

// Truncating signed division; a zero divisor gives 0 and INT32_MIN / -1 wraps to INT32_MIN,
// the results of the 32-bit divide instruction.
void vector_div(int32_t* dst, const int32_t* a, const int32_t* b, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        if (b[i] == 0)
            dst[i] = 0;
        else if (b[i] == -1)
            dst[i] = wrap(0u - static_cast<uint32_t>(a[i]));
        else
            dst[i] = a[i] / b[i];
    }
}

// Arithmetic shift toward minus infinity. As with a register shift, only the low byte of s
// counts and amounts of 32 or more leave just the sign.
void vector_shr(int32_t* dst, const int32_t* a, int32_t s, int32_t n) {
    const uint32_t amount = static_cast<uint32_t>(s) & 0xFF;
    for (int32_t i = 0; i < n; ++i)
        dst[i] = a[i] >> (amount < 31 ? amount : 31);
}

// One 8-lane step of the vector method, as a sequence of the element-wise helpers.
void bilateral_process_block(const int32_t* centre, int32_t* neighbour, int32_t* value_sum,
                             int32_t* weight_sum, const uint8_t* src, int32_t spatial) {
    constexpr int32_t n = VTR_SPAN3_STEP;
    int32_t d[n] = {0};
    int32_t d2[n] = {0};
    int32_t d3[n] = {0};
    int32_t term[n] = {0};
    int32_t r[n] = {0};
    vector_ldr(src, neighbour, n);
    vector_sub_abs(d, centre, neighbour, n);
    vector_min(d, 13, n);  // differences of 13 and more all get weight 0
    vector_mul(d2, d, d, n);
    vector_mul(d3, d2, d, n);
    // r = 8192 + 36d - 298d^2 + 32d^3 - d^4
    vector_set(r, 8192, n);
    vector_mul(term, d, 36, n);
    vector_add(r, r, term, n);
    vector_mul(term, d2, 298, n);
    vector_sub(r, r, term, n);
    vector_mul(term, d3, 32, n);  // d^3 shifted left by 5
    vector_add(r, r, term, n);
    vector_mul(term, d3, d, n);
    vector_sub(r, r, term, n);
    vector_shr(r, r, 7, n);
    vector_mul(term, r, spatial, n);
    vector_add(weight_sum, weight_sum, term, n);
    vector_mul(term, term, neighbour, n);
    vector_add(value_sum, value_sum, term, n);
}
