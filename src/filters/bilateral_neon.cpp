// 7x7 bilateral filter of the plane interior, NEON form: 8 output pixels per step,
// bit-identical to bilateral_filter_span3_center_c.
//
// Memory: a step at (y, x) reads the 8-byte runs at rows y - 3 .. y + 3, columns x - 3 ..
// x + 10, and writes bytes x .. x + 7 of row y. Steps run only when all of that lies inside
// the plane, so nothing outside it is read or written.
//
// Lane widths. The sums live in four registers of four 32-bit lanes (value and weight sums of
// lanes 0-3 and 4-7). The per-position work runs on eight 16-bit lanes, where every quantity
// fits exactly: the Horner steps of the range polynomial stay within +-8192 for d <= 13, the
// range weight r is at most 64 and r * n at most 64 * 255 = 16320. Positions that share a
// spatial weight are summed in 16 bits before one widening multiply by that weight:
//   - the value term s * r * n: the (up to four) positions (+-dy, +-dx) of one |dy|, |dx|
//     class, at most 4 * 16320 = 65280;
//   - the weight term s * r: the 14 positions of a row pair, at most 14 * 64 * 64 = 57344.
// Integer sums being exact, the grouping does not change any result. On 32-bit NEON a 16-bit
// multiply handles twice the lanes of a 32-bit one, which is what makes the step fast.
#include <stddef.h>

#include "filters/bilateral.h"
#include "platform/neon.h"

namespace {

// Spatial weight by city-block distance 0..6, the first entries of spatial_weight, as
// compile-time constants so that every unrolled position multiplies by an immediate.
constexpr int32_t spatial_at(int distance) {
    constexpr int32_t w[7] = {64, 64, 63, 61, 59, 56, 53};
    return w[distance];
}

struct span3_acc {
    uint16x8_t centre;
    uint32x4_t value_lo, value_hi;    // sum of s * r * n, starting at 0
    uint32x4_t weight_lo, weight_hi;  // 1 + sum of s * r
    uint16x8_t weight16;              // s * r of the current row pair
};

// One window position: adds s * r to the row-pair weight and returns r * n.
template <int32_t Spatial>
inline __attribute__((always_inline)) uint16x8_t position(span3_acc& a, const uint8_t* p) {
    const uint16x8_t n = vmovl_u8(vld1_u8(p));
    // d = min(|c - n|, 13); every difference of 13 or more has weight 0.
    const int16x8_t d = vminq_s16(
        vabdq_s16(vreinterpretq_s16_u16(a.centre), vreinterpretq_s16_u16(n)), vdupq_n_s16(13));
    // r = (8192 + 36d - 298d^2 + 32d^3 - d^4) >> 7 in Horner form,
    // 8192 + d(36 + d(-298 + d(32 - d))).
    int16x8_t r = vsubq_s16(vdupq_n_s16(32), d);
    r = vmlaq_s16(vdupq_n_s16(-298), r, d);
    r = vmlaq_s16(vdupq_n_s16(36), r, d);
    r = vmlaq_s16(vdupq_n_s16(8192), r, d);
    // The polynomial is at least 41 for d <= 13, so the logical shift is the arithmetic one.
    const uint16x8_t w = vshrq_n_u16(vreinterpretq_u16_s16(r), 7);
    a.weight16 = vmlaq_n_u16(a.weight16, w, Spatial);
    return vmulq_u16(w, n);
}

// value += s * (sum of r * n over one class).
template <int32_t Spatial>
inline __attribute__((always_inline)) void add_value(span3_acc& a, uint16x8_t rn) {
    a.value_lo = vmlal_n_u16(a.value_lo, vget_low_u16(rn), Spatial);
    a.value_hi = vmlal_n_u16(a.value_hi, vget_high_u16(rn), Spatial);
}

inline __attribute__((always_inline)) void add_weight(span3_acc& a) {
    a.weight_lo = vaddw_u16(a.weight_lo, vget_low_u16(a.weight16));
    a.weight_hi = vaddw_u16(a.weight_hi, vget_high_u16(a.weight16));
    a.weight16 = vdupq_n_u16(0);
}

// The 14 positions of window rows -Ady and +Ady, or the 7 of row 0. `up` and `down` point at
// column x - 3 of those rows.
template <int Ady>
inline __attribute__((always_inline)) void row_pair(span3_acc& a, const uint8_t* up,
                                                    const uint8_t* down) {
    uint16x8_t c3 = position<spatial_at(Ady + 3)>(a, up + 0);
    uint16x8_t c2 = position<spatial_at(Ady + 2)>(a, up + 1);
    uint16x8_t c1 = position<spatial_at(Ady + 1)>(a, up + 2);
    uint16x8_t c0 = position<spatial_at(Ady + 0)>(a, up + 3);
    c1 = vaddq_u16(c1, position<spatial_at(Ady + 1)>(a, up + 4));
    c2 = vaddq_u16(c2, position<spatial_at(Ady + 2)>(a, up + 5));
    c3 = vaddq_u16(c3, position<spatial_at(Ady + 3)>(a, up + 6));
    if (Ady != 0) {
        c3 = vaddq_u16(c3, position<spatial_at(Ady + 3)>(a, down + 0));
        c2 = vaddq_u16(c2, position<spatial_at(Ady + 2)>(a, down + 1));
        c1 = vaddq_u16(c1, position<spatial_at(Ady + 1)>(a, down + 2));
        c0 = vaddq_u16(c0, position<spatial_at(Ady + 0)>(a, down + 3));
        c1 = vaddq_u16(c1, position<spatial_at(Ady + 1)>(a, down + 4));
        c2 = vaddq_u16(c2, position<spatial_at(Ady + 2)>(a, down + 5));
        c3 = vaddq_u16(c3, position<spatial_at(Ady + 3)>(a, down + 6));
    }
    add_value<spatial_at(Ady + 0)>(a, c0);
    add_value<spatial_at(Ady + 1)>(a, c1);
    add_value<spatial_at(Ady + 2)>(a, c2);
    add_value<spatial_at(Ady + 3)>(a, c3);
    add_weight(a);
}

// Per lane: value / weight, truncating, clamped to 0..255. The weight sum is at least 1 and
// the quotient already lies in 0..255, so the clamp never changes a result.
inline void store_lanes(uint32x4_t value_sum, uint32x4_t weight_sum, uint8_t* out) {
    int32_t value[4];
    int32_t weight[4];
    vst1q_s32(value, vreinterpretq_s32_u32(value_sum));
    vst1q_s32(weight, vreinterpretq_s32_u32(weight_sum));
    for (int i = 0; i < 4; ++i) {
        const int32_t q = value[i] / weight[i];
        out[i] = static_cast<uint8_t>(q > 255 ? 255 : q < 0 ? 0 : q);
    }
}

// Eight outputs at (y, x); `centre` points at that pixel, rows are `stride` apart.
void span3_step(const uint8_t* centre, uint8_t* out, ptrdiff_t stride) {
    span3_acc a;
    a.centre = vmovl_u8(vld1_u8(centre));
    a.value_lo = a.value_hi = vdupq_n_u32(0);
    a.weight_lo = a.weight_hi = vdupq_n_u32(1);  // the deliberate starting weight
    a.weight16 = vdupq_n_u16(0);
    const uint8_t* p = centre - VTR_SPAN3;
    row_pair<3>(a, p - 3 * stride, p + 3 * stride);
    row_pair<2>(a, p - 2 * stride, p + 2 * stride);
    row_pair<1>(a, p - stride, p + stride);
    row_pair<0>(a, p, p);
    store_lanes(a.value_lo, a.weight_lo, out);
    store_lanes(a.value_hi, a.weight_hi, out + 4);
}

}  // namespace

// Steps of 8 pixels from (top, left): rows while below height - bottom, columns while below
// width - right, always with the full 7x7 window. A step runs only if its 8 outputs and all
// their windows lie inside the plane (rows 3 .. height - 4, columns 3 .. width - 4); steps
// that would leave it are skipped, so an empty band writes nothing.
void bilateral_filter_span3_center_neon(const uint8_t* src, uint8_t* dst, int32_t height,
                                        int32_t width, int32_t top, int32_t bottom, int32_t left,
                                        int32_t right) {
    const span3_steps s = bilateral_span3_steps(height, width, top, bottom, left, right);
    for (int64_t y = s.row_begin; y < s.row_end; ++y) {
        const uint8_t* in = src + y * width;
        uint8_t* out = dst + y * width;
        for (int64_t x = s.col_begin; x < s.col_end; x += VTR_SPAN3_STEP)
            span3_step(in + x, out + x, width);
    }
}
