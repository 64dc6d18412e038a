// Vertical box filter, NEON form: 32 columns per block, bit-identical to box_filter.cpp.
//
// Memory: for each whole 32-column block below `width` it reads source rows 0 .. height - 1 of
// exactly those 32 columns and writes the same rows and columns of low and high. Columns from
// (width & ~31) on are neither read nor written. Prefetches stay inside the plane.
//
// The running sums are four 8-lane 16-bit registers per block; the largest sum, 64 * 255 =
// 16320, fits, and all arithmetic wraps modulo 2^16 exactly as the scalar sums do.
#include <stddef.h>

#include "filters/box_filter.h"
#include "platform/neon.h"

namespace {

// Rows ahead of the incoming window row that are prefetched.
constexpr int32_t kPrefetchRows = 4;

struct box_block {
    uint16x8_t sum[4];  // running sums of columns 0-7, 8-15, 16-23, 24-31
};

struct row32 {
    uint8x16_t lo, hi;  // columns 0-15 and 16-31
};

inline row32 load_row(const uint8_t* p) {
    return {vld1q_u8(p), vld1q_u8(p + 16)};
}

// sum += 2 * row, widened to 16 bits.
inline void add_doubled(box_block& b, row32 r) {
    b.sum[0] = vaddq_u16(b.sum[0], vtr_addl_lo(r.lo, r.lo));
    b.sum[1] = vaddq_u16(b.sum[1], vtr_addl_hi(r.lo, r.lo));
    b.sum[2] = vaddq_u16(b.sum[2], vtr_addl_lo(r.hi, r.hi));
    b.sum[3] = vaddq_u16(b.sum[3], vtr_addl_hi(r.hi, r.hi));
}

// Moves the window down one row: + entering row + new centre - leaving row - old centre.
inline void step(box_block& b, row32 in, row32 cur, row32 out, row32 prev) {
    b.sum[0] =
        vaddq_u16(b.sum[0], vsubq_u16(vtr_addl_lo(in.lo, cur.lo), vtr_addl_lo(out.lo, prev.lo)));
    b.sum[1] =
        vaddq_u16(b.sum[1], vsubq_u16(vtr_addl_hi(in.lo, cur.lo), vtr_addl_hi(out.lo, prev.lo)));
    b.sum[2] =
        vaddq_u16(b.sum[2], vsubq_u16(vtr_addl_lo(in.hi, cur.hi), vtr_addl_lo(out.hi, prev.hi)));
    b.sum[3] =
        vaddq_u16(b.sum[3], vsubq_u16(vtr_addl_hi(in.hi, cur.hi), vtr_addl_hi(out.hi, prev.hi)));
}

// src + 128 - low clamped to 0..255 in bytes: one of the two saturating differences is zero,
// so 128 + (src - low) saturates up and 128 - (low - src) saturates down as required.
inline uint8x16_t detail(uint8x16_t src, uint8x16_t low) {
    const uint8x16_t up = vqsubq_u8(src, low);
    const uint8x16_t down = vqsubq_u8(low, src);
    return vqsubq_u8(vqaddq_u8(vdupq_n_u8(128), up), down);
}

// low = (sum + 32) >> 6, the rounding narrowing shift: a sum of 64 weights is at most
// 64 * 255, so low is at most 255 and the scalar clamp never applies.
inline void store_row(const box_block& b, row32 src, uint8_t* low, uint8_t* high) {
    const uint8x16_t l0 = vtr_rshrn_n<6>(b.sum[0], b.sum[1]);
    const uint8x16_t l1 = vtr_rshrn_n<6>(b.sum[2], b.sum[3]);
    vst1q_u8(low, l0);
    vst1q_u8(low + 16, l1);
    vst1q_u8(high, detail(src.lo, l0));
    vst1q_u8(high + 16, detail(src.hi, l1));
}

struct box_column_block {
    const uint8_t* src;
    uint8_t* low;
    uint8_t* high;
    ptrdiff_t stride;
    int32_t height;

    row32 row(int32_t r) const { return load_row(src + r * stride); }
    void out(const box_block& b, int32_t y, row32 cur) const {
        store_row(b, cur, low + y * stride, high + y * stride);
    }
    // Forced inline: as a separate call GCC would find it free of side effects and drop it.
    __attribute__((always_inline)) void prefetch(int32_t r) const {
        if (r < height)
            VTR_PREFETCH(src + r * stride);
    }
};

// Row 0: row 0 and rows 1..31 each doubled (the mirrored window plus the doubled centre).
inline row32 box_filter_col_neon_height_init(const box_column_block& c, box_block& b) {
    const row32 r0 = c.row(0);
    for (int i = 0; i < 4; ++i)
        b.sum[i] = vdupq_n_u16(0);
    add_doubled(b, r0);
    for (int32_t r = 1; r <= VTR_BOX_REACH; ++r) {
        c.prefetch(r + kPrefetchRows);
        add_doubled(b, c.row(r));
    }
    c.out(b, 0, r0);
    return r0;
}

// Rows 1..32: the leaving row y - 32 is mirrored to 32 - y.
inline row32 box_filter_col_neon_height_mirroring_under(const box_column_block& c, box_block& b,
                                                        row32 prev) {
    for (int32_t y = 1; y <= 32; ++y) {
        c.prefetch(y + VTR_BOX_REACH + kPrefetchRows);
        const row32 cur = c.row(y);
        step(b, c.row(y + 31), cur, c.row(32 - y), prev);
        c.out(b, y, cur);
        prev = cur;
    }
    return prev;
}

// Rows 33..height - 32: the whole window lies inside the plane.
inline row32 box_filter_col_neon_height_main(const box_column_block& c, box_block& b, row32 prev) {
    for (int32_t y = 33; y <= c.height - 32; ++y) {
        c.prefetch(y + VTR_BOX_REACH + kPrefetchRows);
        const row32 cur = c.row(y);
        step(b, c.row(y + 31), cur, c.row(y - 32), prev);
        c.out(b, y, cur);
        prev = cur;
    }
    return prev;
}

// Rows height - 31 .. height - 1: the entering row y + 31 is mirrored about the last row.
inline void box_filter_col_neon_height_mirroring_over(const box_column_block& c, box_block& b,
                                                      row32 prev) {
    for (int32_t y = c.height - 31; y < c.height; ++y) {
        const row32 cur = c.row(y);
        step(b, c.row(2 * c.height - 2 - (y + 31)), cur, c.row(y - 32), prev);
        c.out(b, y, cur);
        prev = cur;
    }
}

// Planes of 1 to 64 rows: the running sum with every row index mirrored until it lies inside.
void box_filter_col_neon_height_short(const box_column_block& c) {
    auto row = [&](int32_t r) { return c.row(box_mirror_row(r, c.height)); };
    box_block b;
    const row32 r0 = c.row(0);
    for (int i = 0; i < 4; ++i)
        b.sum[i] = vdupq_n_u16(0);
    // The doubled centre and the 63 window rows: the centre paired with row -31, then rows
    // -30..31 in pairs, through the widening step with nothing leaving.
    const row32 zero = {vdupq_n_u8(0), vdupq_n_u8(0)};
    step(b, r0, row(-VTR_BOX_REACH), zero, zero);
    for (int32_t k = -VTR_BOX_REACH + 1; k <= VTR_BOX_REACH; k += 2)
        step(b, row(k), row(k + 1), zero, zero);
    c.out(b, 0, r0);
    row32 prev = r0;
    for (int32_t y = 1; y < c.height; ++y) {
        const row32 cur = c.row(y);
        step(b, row(y + VTR_BOX_REACH), cur, row(y - VTR_BOX_REACH - 1), prev);
        c.out(b, y, cur);
        prev = cur;
    }
}

void box_filter_col_neon_width(const uint8_t* source, uint8_t* low, uint8_t* high, ptrdiff_t stride,
                               int32_t height, int32_t width) {
    for (int32_t x = 0; x + VTR_BOX_BLOCK <= width; x += VTR_BOX_BLOCK) {
        const box_column_block c{source + x, low + x, high + x, stride, height};
        if (height <= VTR_BOX_MIN_HEIGHT) {
            box_filter_col_neon_height_short(c);
            continue;
        }
        box_block b;
        row32 prev = box_filter_col_neon_height_init(c, b);
        prev = box_filter_col_neon_height_mirroring_under(c, b, prev);
        prev = box_filter_col_neon_height_main(c, b, prev);
        box_filter_col_neon_height_mirroring_over(c, b, prev);
    }
}

}  // namespace

// Whole 32-column blocks below `width`; a height < 1 or fewer than 32 columns writes nothing.
// Heights of 65 and more take the four row phases; shorter planes (where the phases would read
// outside the plane) mirror every row index repeatedly, giving the scalar twin's bytes.
void box_filter_col_neon(const uint8_t* source, uint8_t* low, uint8_t* high, int32_t stride,
                         int32_t height, int32_t width) {
    if (height < 1)
        return;
    box_filter_col_neon_width(source, low, high, stride, height, width);
}
