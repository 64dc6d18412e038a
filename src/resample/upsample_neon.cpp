// Vector upsampling cores; upsample.cpp holds their scalar twins and the wrappers.
//
// Memory: each block gathers its source samples with scalar loads from rows sy and sy + 1
// (clamped to h - 1) and columns sx .. sx + 2 (chroma, the last clamped to sx + 1) or sx, sx + 1
// (luma, clamped to w - 1), so the cores read nothing outside the w x h source when
// cols <= w. Stores are whole 16-byte rows of a block: columns 0 .. 8 * cols - 1 (chroma) or
// 0 .. 16w - 1 (luma) of each destination row, never past them.
//
// Arithmetic: every destination sample is (wa * top + wb * bottom) >> 8, where top and bottom
// are horizontal mixes weighted in sixteenths. Its exact value lies in 0 .. 65280 and fits an
// unsigned 16-bit lane. Row k of an interval is formed as 16 * top + k * (bottom - top) step by
// step: the additions wrap modulo 65536, and because the true value fits 16 bits, the wrapped
// lane equals it exactly.
#include "platform/neon.h"
#include "resample/upsample.h"

#include <stddef.h>

const uint16_t upsample_uv_neon_table1[8] = {16, 14, 12, 10, 8, 6, 4, 2};
const uint16_t upsample_uv_neon_table2[8] = {0, 2, 4, 6, 8, 10, 12, 14};
const uint16_t upsample_uv420_neon_table1[8] = {16, 14, 12, 10, 8, 6, 4, 2};
const uint16_t upsample_uv420_neon_table2[8] = {0, 2, 4, 6, 8, 10, 12, 14};
const uint16_t upsample_y_neon_table1[8] = {16, 15, 14, 13, 12, 11, 10, 9};
const uint16_t upsample_y_neon_table2[8] = {8, 7, 6, 5, 4, 3, 2, 1};
const uint16_t upsample_y_neon_table3[8] = {0, 1, 2, 3, 4, 5, 6, 7};
const uint16_t upsample_y_neon_table4[8] = {8, 9, 10, 11, 12, 13, 14, 15};

namespace {

// left * p + right * q per lane.
inline uint16x8_t mix(uint16x8_t left, uint16x8_t right, uint8_t p, uint8_t q) {
    return vmlaq_n_u16(vmulq_n_u16(left, p), right, q);
}

// Writes `rows` destination rows of 16 samples, row k = (top * (16 - k * step) + bottom * k *
// step) >> 8 for each half.
inline void block_rows(uint8_t* out, ptrdiff_t stride, int32_t rows, uint16_t step,
                       uint16x8_t top_lo, uint16x8_t top_hi, uint16x8_t bottom_lo,
                       uint16x8_t bottom_hi) {
    uint16x8_t acc_lo = vshlq_n_u16(top_lo, 4);
    uint16x8_t acc_hi = vshlq_n_u16(top_hi, 4);
    const uint16x8_t d_lo = vmulq_n_u16(vsubq_u16(bottom_lo, top_lo), step);
    const uint16x8_t d_hi = vmulq_n_u16(vsubq_u16(bottom_hi, top_hi), step);
    for (int32_t k = 0; k < rows; ++k) {
        vst1q_u8(out, vtr_shrn_n<8>(acc_lo, acc_hi));
        acc_lo = vaddq_u16(acc_lo, d_lo);
        acc_hi = vaddq_u16(acc_hi, d_hi);
        out += stride;
    }
}

template <int32_t vf>
void upsample_chroma_neon(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h, int32_t cols,
                          const uint16_t* table_left, const uint16_t* table_right) {
    const uint16x8_t left = vld1q_u16(table_left);
    const uint16x8_t right = vld1q_u16(table_right);
    const ptrdiff_t dst_stride = static_cast<ptrdiff_t>(8) * w;
    for (int32_t y0 = 0; y0 < vf * h; y0 += vf) {
        const int32_t sy = y0 / vf;
        const int32_t sy1 = sy + 1 < h ? sy + 1 : sy;
        const uint8_t* top = src + static_cast<ptrdiff_t>(sy) * w;
        const uint8_t* bottom = src + static_cast<ptrdiff_t>(sy1) * w;
        uint8_t* row = dst + y0 * dst_stride;
        for (int32_t x0 = 0; x0 < 8 * cols; x0 += 16) {
            const int32_t sx = x0 / 8;
            const int32_t sx2 = sx + 2 < w ? sx + 2 : sx + 1;
            const uint8_t a0 = top[sx], a1 = top[sx + 1], a2 = top[sx2];
            const uint8_t b0 = bottom[sx], b1 = bottom[sx + 1], b2 = bottom[sx2];
            block_rows(row + x0, dst_stride, vf, 16 / vf, mix(left, right, a0, a1),
                       mix(left, right, a1, a2), mix(left, right, b0, b1),
                       mix(left, right, b1, b2));
        }
    }
}

}  // namespace

void upsample_uv420_neon(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h, int32_t cols) {
    upsample_chroma_neon<8>(dst, src, w, h, cols, upsample_uv420_neon_table1,
                            upsample_uv420_neon_table2);
}

void upsample_uv_neon(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h, int32_t cols) {
    upsample_chroma_neon<16>(dst, src, w, h, cols, upsample_uv_neon_table1,
                             upsample_uv_neon_table2);
}

void upsample_y_neon(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h) {
    const uint16x8_t left_lo = vld1q_u16(upsample_y_neon_table1);
    const uint16x8_t left_hi = vld1q_u16(upsample_y_neon_table2);
    const uint16x8_t right_lo = vld1q_u16(upsample_y_neon_table3);
    const uint16x8_t right_hi = vld1q_u16(upsample_y_neon_table4);
    const ptrdiff_t dst_stride = static_cast<ptrdiff_t>(16) * w;
    for (int32_t y0 = 0; y0 < 16 * h; y0 += 16) {
        const int32_t sy = y0 / 16;
        const int32_t sy1 = sy + 1 < h ? sy + 1 : sy;
        const uint8_t* top = src + static_cast<ptrdiff_t>(sy) * w;
        const uint8_t* bottom = src + static_cast<ptrdiff_t>(sy1) * w;
        uint8_t* row = dst + y0 * dst_stride;
        for (int32_t sx = 0; sx < w; ++sx) {
            const int32_t sx1 = sx + 1 < w ? sx + 1 : sx;
            const uint8_t a = top[sx], b = top[sx1];
            const uint8_t c = bottom[sx], d = bottom[sx1];
            block_rows(row + 16 * sx, dst_stride, 16, 1, mix(left_lo, right_lo, a, b),
                       mix(left_hi, right_hi, a, b), mix(left_lo, right_lo, c, d),
                       mix(left_hi, right_hi, c, d));
        }
    }
}
