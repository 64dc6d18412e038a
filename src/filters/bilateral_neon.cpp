// 7x7 bilateral filter, NEON form: 8 output pixels per step, bit-identical to
// bilateral_filter_span3_center_c for the plane interior and to the scalar method with the
// mirror rule for the border around it.
//
// Memory: a step reads the 8-byte runs at columns x - 3 .. x + 10 of its 7 window rows and
// writes 8 output bytes. In the interior the window rows are rows y - 3 .. y + 3 of the plane
// and steps run only when all of that lies inside it. At the border the window rows are
// mirrored rows of the plane, and a step that would leave the row at the side reads a 16-byte
// copy of the row's end with mirrored columns and writes its outputs to a copy, of which only
// the band's bytes go to the plane. Nothing outside the plane is read or written.
//
// Lane widths. The sums live in four registers of four 32-bit lanes (value and weight sums of
// lanes 0-3 and 4-7) and are divided lane by lane with the scalar divide. The per-position
// work runs on eight 16-bit lanes, where every quantity is exact: the Horner steps of the range
// polynomial stay within +-8192 for d <= 13, the range weight r is at most 64 and r * n at most
// 64 * 255 = 16320. The positions (+-dy, +-dx) of one class |dy|, |dx| share a spatial weight,
// so their r and r * n are summed in 16 bits (at most 4 * 16320 = 65280) and multiplied by
// that weight once: r * s into a 16-bit row-pair weight (at most 14 * 64 * 64 = 57344, widened
// once per row pair), r * n * s widened straight into the value sums. Integer sums being
// exact, the grouping changes no result. A 16-bit multiply covers twice the lanes of a 32-bit
// one, and the grouping saves two thirds of the widening multiplies.
#include <stddef.h>
#include <string.h>

#include "filters/bilateral.h"
#include "platform/neon.h"

namespace {

// Spatial weights by city-block distance 0..6, the first entries of spatial_weight, kept in
// the lanes of one register and used as by-lane multipliers.
const uint16_t kSpatial[8] = {64, 64, 63, 61, 59, 56, 53, 0};

struct span3_acc {
    uint16x8_t centre;
    uint16x8_t spatial;               // kSpatial
    uint32x4_t value_lo, value_hi;    // sum of s * r * n, starting at 0
    uint32x4_t weight_lo, weight_hi;  // 1 + sum of s * r
    uint16x8_t weight16;              // s * r of the current row pair, at most 57344
};

// Sums over the positions of one class (|dy|, |dx|), which share a spatial weight.
struct class_sums {
    uint16x8_t r;   // range weights, at most 4 * 64
    uint16x8_t rn;  // range weight times sample, at most 4 * 64 * 255 = 65280
};

// The 8 bytes at p, zero-extended to 16 bits.
inline uint16x8_t load_widened(const uint8_t* p) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    return vmovl_u8(vld1_u8(p));
#else
    // The 8 bytes as the low lane of a zeroed vector (one 64-bit load), then the whole vector
    // widened (see vtr_movl_lo).
    uint64_t bytes;
    memcpy(&bytes, p, sizeof bytes);
    return vtr_movl_lo(vreinterpretq_u8_u64(vsetq_lane_u64(bytes, vdupq_n_u64(0), 0)));
#endif
}

// One window position: range weight r of the 8 samples at p against the centres.
inline __attribute__((always_inline)) void position(const span3_acc& a, class_sums& c,
                                                    const uint8_t* p) {
    const uint16x8_t n = load_widened(p);
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
    c.r = vaddq_u16(c.r, w);
    c.rn = vmlaq_u16(c.rn, w, n);
}

// v * (spatial weight of distance D), by lane of the weight register.
template <int D>
inline __attribute__((always_inline)) uint16x8_t scale(uint16x8_t v, uint16x8_t spatial) {
    if (D < 4)
        return vmulq_lane_u16(v, vget_low_u16(spatial), D & 3);
    return vmulq_lane_u16(v, vget_high_u16(spatial), D & 3);
}

// sum + (low or high half of v) * (spatial weight of distance D), widened to 32 bits.
template <int D, bool high>
inline __attribute__((always_inline)) uint32x4_t add_scaled(uint32x4_t sum, uint16x8_t v,
                                                            uint16x8_t spatial) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    const uint16x4_t half = high ? vget_high_u16(v) : vget_low_u16(v);
    if (D < 4)
        return vmlal_lane_u16(sum, half, vget_low_u16(spatial), D & 3);
    return vmlal_lane_u16(sum, half, vget_high_u16(spatial), D & 3);
#else
    // Translated, the half-vector widening converts lane by lane: interleave with zeros.
    const uint16x8_t zero = vdupq_n_u16(0);
    const uint16x8_t wide = high ? vzip2q_u16(v, zero) : vzip1q_u16(v, zero);
    return vmlaq_n_u32(sum, vreinterpretq_u32_u16(wide), kSpatial[D]);
#endif
}

// The positions (-Ady, -Adx), (-Ady, +Adx), (+Ady, -Adx), (+Ady, +Adx), duplicates left out
// where Ady or Adx is 0; then value += s * rn and weight += s * r. `up` and `down` point at
// column x of rows y - Ady and y + Ady.
template <int Ady, int Adx>
inline __attribute__((always_inline)) void window_class(span3_acc& a, const uint8_t* up,
                                                        const uint8_t* down) {
    class_sums c = {vdupq_n_u16(0), vdupq_n_u16(0)};
    position(a, c, up - Adx);
    if (Adx != 0)
        position(a, c, up + Adx);
    if (Ady != 0) {
        position(a, c, down - Adx);
        if (Adx != 0)
            position(a, c, down + Adx);
    }
    a.value_lo = add_scaled<Ady + Adx, false>(a.value_lo, c.rn, a.spatial);
    a.value_hi = add_scaled<Ady + Adx, true>(a.value_hi, c.rn, a.spatial);
    a.weight16 = vaddq_u16(a.weight16, scale<Ady + Adx>(c.r, a.spatial));
}

// The 14 positions of window rows y - Ady and y + Ady, or the 7 of row y.
template <int Ady>
inline __attribute__((always_inline)) void row_pair(span3_acc& a, const uint8_t* up,
                                                    const uint8_t* down) {
    a.weight16 = vdupq_n_u16(0);
    window_class<Ady, 0>(a, up, down);
    window_class<Ady, 1>(a, up, down);
    window_class<Ady, 2>(a, up, down);
    window_class<Ady, 3>(a, up, down);
    a.weight_lo = vaddw_u16(a.weight_lo, vget_low_u16(a.weight16));
    a.weight_hi = vaddw_u16(a.weight_hi, vget_high_u16(a.weight16));
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

// Window rows of the interior: row y + k at centre + k * stride.
struct strided_rows {
    const uint8_t* centre;
    ptrdiff_t stride;
    const uint8_t* row(int k) const { return centre + k * stride; }
};

// Window rows given one by one (mirrored at the border): row y + k at rows[k + 3] + x.
struct listed_rows {
    const uint8_t* const* rows;
    ptrdiff_t x;
    const uint8_t* row(int k) const { return rows[k + VTR_SPAN3] + x; }
};

// Eight outputs from the window rows w.row(-3) .. w.row(3), each pointing at the first output's
// column.
template <typename window_rows>
void span3_step(const window_rows& w, uint8_t* out) {
    span3_acc a;
    a.centre = load_widened(w.row(0));
    a.spatial = vld1q_u16(kSpatial);
    a.value_lo = a.value_hi = vdupq_n_u32(0);
    a.weight_lo = a.weight_hi = vdupq_n_u32(1);  // the deliberate starting weight
    row_pair<3>(a, w.row(-3), w.row(3));
    row_pair<2>(a, w.row(-2), w.row(2));
    row_pair<1>(a, w.row(-1), w.row(1));
    row_pair<0>(a, w.row(0), w.row(0));
    store_lanes(a.value_lo, a.weight_lo, out);
    store_lanes(a.value_hi, a.weight_hi, out + 4);
}

// One step for a row's first 8 columns (left) or its last 8 (otherwise), whose windows leave the
// row: each window row's columns first - 3 .. first + 12 are copied with the mirror rule (a row
// of at least 14 columns needs one reflection), and the outputs of the columns from `begin`
// and below `end` are stored.
void span3_edge_step(const uint8_t* const rows[7], int32_t width, bool left, int32_t begin,
                     int32_t end, uint8_t* out_row) {
    uint8_t copy[7][16];
    const uint8_t* copied[7];
    for (int i = 0; i < 7; ++i) {
        const uint8_t* row = rows[i];
        uint8_t* c = copy[i];
        if (left) {
            // Columns -3 .. -1 mirror to 3 .. 1; 0 .. 12 in two overlapping pieces.
            memcpy(c + 3, row, 8);
            memcpy(c + 8, row + 5, 8);
            c[0] = row[3];
            c[1] = row[2];
            c[2] = row[1];
        } else {
            // Columns width - 11 .. width - 1 in two pieces; width .. width + 4 mirror to
            // width - 2 .. width - 6.
            memcpy(c, row + width - 11, 8);
            memcpy(c + 3, row + width - 8, 8);
            for (int j = 0; j < 5; ++j)
                c[11 + j] = row[width - 2 - j];
        }
        copied[i] = c;
    }
    uint8_t out[VTR_SPAN3_STEP];
    span3_step(listed_rows{copied, VTR_SPAN3}, out);
    const int32_t first = left ? 0 : width - VTR_SPAN3_STEP;
    for (int32_t x = begin; x < end; ++x)
        out_row[x] = out[x - first];
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
            span3_step(strided_rows{in + x, width}, out + x);
    }
}

void bilateral_span3_border_neon(const uint8_t* src, uint8_t* dst, int32_t height, int32_t width,
                                 int32_t left, int32_t right) {
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t* rows[7];
        for (int i = 0; i < 7; ++i) {
            // Rows -3 .. -1 mirror to 3 .. 1, and the rows past the last one likewise.
            const int32_t r = y + i - VTR_SPAN3;
            const int32_t m = r < 0 ? -r : r >= height ? 2 * (height - 1) - r : r;
            rows[i] = src + static_cast<ptrdiff_t>(m) * width;
        }
        uint8_t* out = dst + static_cast<ptrdiff_t>(y) * width;
        // The side bands, corners included: one step each, columns 0 .. 7 and the last 8.
        span3_edge_step(rows, width, true, 0, left, out);
        span3_edge_step(rows, width, false, width - right, width, out);
        // The top and bottom rows between the bands: only the rows are mirrored.
        if (y < VTR_SPAN3 || y >= height - VTR_SPAN3) {
            for (int32_t x = left; x < width - right; x += VTR_SPAN3_STEP)
                span3_step(listed_rows{rows, x}, out + x);
        }
    }
}
