// Vector restore interleave; restore.cpp is the scalar truth.
//
// Memory: every read and write is a whole step of the runs given in restore.h: 16 luma bytes;
// 32 VU bytes with 16 bytes of each upsampled plane; or 64 packed bytes with 32 bytes of each
// component and 16 of each upsampled plane. Width a multiple of 16 makes the luma steps end
// exactly at the end of each run; a chroma or packed run may end with half a step, which goes
// through a zeroed copy on the stack, so nothing past a run is read or written. Each step loads
// all of its input before it stores, which makes in-place calls safe. Prefetches run 128 bytes
// ahead of each read pointer and may point past the plane; a prefetch never faults.
//
// Division: the weight n / S (n the signed 16-bit numerator) is found from m = |n| and
// b = |S| (1 .. 32768) with one multiply-high and one correction step, then given the
// quotient's sign. With R = min(floor(2^16 / b), 2^16 - 1), chosen once per call:
//   2^16 / b - 1 <= R <= 2^16 / b, so m / b - m / 2^16 <= m * R / 2^16 <= m / b;
// m <= 2^15 makes m / 2^16 at most 1/2, so q0 = floor(m * R / 2^16), the high half of the
// 16 x 16-bit product, is q or q - 1 for q = floor(m / b). Then r = m - q0 * b is exact in 16
// bits (0 <= r < 2b <= 2^16) and r >= b exactly when q0 = q - 1, which adds the missing 1. The
// product m * R stays below 2^31; the shift of 16 is the same for every divisor. S = 0 takes
// R = 0 and b = 2^16 - 1, which no remainder reaches: weight 0, like the scalar twin's test. A
// quotient of negative sign is clamped to 0 by the blend anyway; q, up to 2^15, is clamped to
// 64 after a saturating narrowing.
#include "platform/neon.h"
#include "resample/restore.h"

#include <stddef.h>
#include <string.h>

namespace {

constexpr int32_t VTR_RESTORE_PREFETCH = 128;

struct divisor {
    uint16x8_t recip;    // R
    uint32x4_t recip32;  // R in 32-bit lanes
    uint16x8_t b;        // |S|, or 2^16 - 1 for S = 0
    int16x8_t sign;      // all ones when S < 0
    uint16x8_t half;     // S >> 1, the rounding term of the numerator
    // The short way (below), when `small` is set: M = ceil(2^15 / S) in `magic`.
    bool small;
    int16x8_t magic;
    uint16x8_t magic2;  // 2M, for a multiply-high of 16 bits
};

// The short way for a saturation S of 2 .. 255, which the pipeline always has. There n never
// wraps (at most 510 * 64 + 127), and a distance sad >= S gives n / S >= 64, so the weight is
// that of min(sad, S): a numerator n of at most 64S + S / 2, whose quotient is then at most 64
// and needs no clamp. Within that range n / S is floor(n * M / 2^15) when n * (M * S - 2^15)
// stays below 2^15; rather than bound that, every numerator of the range is checked once per
// call, and a divisor that fails takes the general way.
constexpr int32_t VTR_SMALL_S_MAX = 255;

bool small_divisor_exact(int32_t S, int32_t M) {
    for (int32_t sad = 0; sad <= S; ++sad) {
        const int32_t n = sad * 64 + (S >> 1);
        if ((n * M) >> 15 != n / S)
            return false;
    }
    return true;
}

divisor make_divisor(int32_t S) {
    const int16_t s = static_cast<int16_t>(S);
    const uint32_t b =
        s < 0 ? static_cast<uint32_t>(-static_cast<int32_t>(s)) : static_cast<uint32_t>(s);
    uint32_t r = 0;
    if (b != 0)
        r = b == 1 ? 0xFFFFu : 0x10000u / b;
    divisor d;
    d.recip = vdupq_n_u16(static_cast<uint16_t>(r));
    d.recip32 = vdupq_n_u32(r);
    d.b = vdupq_n_u16(static_cast<uint16_t>(b != 0 ? b : 0xFFFFu));
    d.sign = vdupq_n_s16(s < 0 ? -1 : 0);
    d.half = vdupq_n_u16(static_cast<uint16_t>(s >> 1));
    const int32_t M = S >= 2 && S <= VTR_SMALL_S_MAX ? (32768 + S - 1) / S : 0;
    d.small = M != 0 && small_divisor_exact(S, M);
    d.magic = vdupq_n_s16(static_cast<int16_t>(M));
    d.magic2 = vdupq_n_u16(static_cast<uint16_t>(2 * M));
    return d;
}

// floor(n * M / 2^15) per lane, for n and M below 2^15: natively the doubling multiply-high.
inline uint16x8_t mul_q15(uint16x8_t n, const divisor& d) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    return vreinterpretq_u16_s16(vqdmulhq_s16(vreinterpretq_s16_u16(n), d.magic));
#elif defined(SIMDE_X86_SSE2_NATIVE)
    return simde_uint16x8_from_m128i(
        _mm_mulhi_epu16(simde_uint16x8_to_m128i(n), simde_uint16x8_to_m128i(d.magic2)));
#else
    return vcombine_u16(vshrn_n_u32(vmull_u16(vget_low_u16(n), vget_low_u16(d.magic2)), 16),
                        vshrn_n_u32(vmull_u16(vget_high_u16(n), vget_high_u16(d.magic2)), 16));
#endif
}

// Weights, 0 .. 64, of 16 pairs with distances d1 + d2, the short way (d.small).
inline uint8x16_t small_weights(uint8x16_t d1, uint8x16_t d2, const divisor& d) {
    const uint16x8_t lo = vminq_u16(vtr_addl_lo(d1, d2), d.b);
    const uint16x8_t hi = vminq_u16(vtr_addl_hi(d1, d2), d.b);
    const uint16x8_t q_lo = mul_q15(vaddq_u16(vshlq_n_u16(lo, 6), d.half), d);
    const uint16x8_t q_hi = mul_q15(vaddq_u16(vshlq_n_u16(hi, 6), d.half), d);
    return vtr_movn(q_lo, q_hi);
}

// floor(m * R / 2^16) per lane.
inline uint16x8_t mul_high(uint16x8_t m, const divisor& d) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    return vcombine_u16(vshrn_n_u32(vmull_u16(vget_low_u16(m), vget_low_u16(d.recip)), 16),
                        vshrn_n_u32(vmull_u16(vget_high_u16(m), vget_high_u16(d.recip)), 16));
#elif defined(SIMDE_X86_SSE2_NATIVE)
    return simde_uint16x8_from_m128i(
        _mm_mulhi_epu16(simde_uint16x8_to_m128i(m), simde_uint16x8_to_m128i(d.recip)));
#else
    // Translated, widening a half vector costs more than the multiply itself: the even and the
    // odd 16-bit lanes are multiplied where they stand, as 32-bit lanes, and the high halves
    // merged.
    const uint32x4_t m32 = vreinterpretq_u32_u16(m);
    const uint32x4_t even = vmulq_u32(vandq_u32(m32, vdupq_n_u32(0xFFFF)), d.recip32);
    const uint32x4_t odd = vmulq_u32(vshrq_n_u32(m32, 16), d.recip32);
    return vreinterpretq_u16_u32(
        vorrq_u32(vshrq_n_u32(even, 16), vandq_u32(odd, vdupq_n_u32(0xFFFF0000))));
#endif
}

// n / S of 8 numerators where n and S have the same sign, 0 elsewhere; up to 2^15.
inline uint16x8_t quotient(int16x8_t n, const divisor& d) {
    // |-32768| wraps to 0x8000, which read unsigned is the right magnitude.
    const uint16x8_t m = vreinterpretq_u16_s16(vabsq_s16(n));
    const uint16x8_t q0 = mul_high(m, d);
    const uint16x8_t r = vmlsq_u16(m, q0, d.b);
    // The compare is all ones (minus one) where q0 is one short.
    const uint16x8_t q = vsubq_u16(q0, vcgeq_u16(r, d.b));
    const uint16x8_t negative = vcltq_s16(veorq_s16(n, d.sign), vdupq_n_s16(0));
    return vbicq_u16(q, negative);
}

// Weights, 0 .. 64, of 8 numerators.
inline uint8x8_t weight_of(int16x8_t n, const divisor& d) {
    return vmin_u8(vqmovn_u16(quotient(n, d)), vdup_n_u8(64));
}

// sad * 64 + S / 2 of 8 pair distances, wrapping in 16 bits, read as signed.
inline int16x8_t numerator(uint16x8_t sad, const divisor& d) {
    return vreinterpretq_s16_u16(vaddq_u16(vshlq_n_u16(sad, 6), d.half));
}

// clamp(a + b - 128, 0, 255) for 16 pixels in bytes: of b - 128 and 128 - b, saturated at 0,
// one is zero, so adding the first and subtracting the second, both saturating, clamps as
// required.
inline uint8x16_t rebuilt_luma(uint8x16_t a, uint8x16_t b) {
    const uint8x16_t bias = vdupq_n_u8(128);
    return vqsubq_u8(vqaddq_u8(a, vqsubq_u8(b, bias)), vqsubq_u8(bias, b));
}

// Truncating mean (a + b) >> 1 of 16 bytes. Native NEON has it as one instruction; where the
// intrinsics are translated, (a & b) + ((a ^ b) >> 1), the same value, maps to plain vector
// operations while the halving add does not.
inline uint8x16_t mean_down(uint8x16_t a, uint8x16_t b) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    return vhaddq_u8(a, b);
#else
    return vaddq_u8(vandq_u8(a, b), vshrq_n_u8(veorq_u8(a, b), 1));
#endif
}

// The luma blends have few outcomes, each a truncating mean, so they are selects and halving
// adds in bytes, with no widening. With m = mean_down(t, yo):
//   mean_down(t, m) = (3t + yo) >> 2: for s = t + yo, t + m = (2t + s - (s & 1)) / 2, and when s
//   is odd 3t + yo = 2t + s is odd too, so dropping (s & 1) does not change the quarter;
//   mean_down(yo, m) = (t + 3yo) >> 2 likewise.

// 4:2:0 capture luma (limit 2): ((2 - d) * t + d * yo) >> 1 is t for d = 0, the mean for
// d = 1 (which is also t for d = 0), yo for d = 2.
inline uint8x16_t luma420_capture(uint8x16_t a, uint8x16_t b, uint8x16_t yo) {
    const uint8x16_t t = rebuilt_luma(a, b);
    const uint8x16_t far = vcgeq_u8(vabdq_u8(t, yo), vdupq_n_u8(2));
    return vbslq_u8(far, yo, mean_down(t, yo));
}

// 4:2:0 preview luma (limit 4): ((4 - d) * t + d * yo) >> 2 for the difference d is
//   d 0: t = mean_down(t, t)     d 1: mean_down(t, m)     d 2: m = mean_down(t, yo)
//   d 3: mean_down(yo, m)        d 4 or more: yo = mean_down(yo, yo)
// so it is mean_down(p, q) with p = t for d <= 2, else yo, and q = m for d of 1 or 3, else yo.
inline uint8x16_t luma420_preview(uint8x16_t a, uint8x16_t b, uint8x16_t yo) {
    const uint8x16_t t = rebuilt_luma(a, b);
    const uint8x16_t d = vabdq_u8(t, yo);
    const uint8x16_t p = vbslq_u8(vcleq_u8(d, vdupq_n_u8(2)), t, yo);
    // d | 2 is 3 exactly for d of 1 and 3.
    const uint8x16_t odd = vceqq_u8(vorrq_u8(d, vdupq_n_u8(2)), vdupq_n_u8(3));
    return mean_down(p, vbslq_u8(odd, mean_down(t, yo), yo));
}

// 4:2:2 luma: the dead zone makes a difference of 0 or 1 write t, 2 the mean, 3 or more yo.
inline uint8x16_t luma422(uint8x16_t a, uint8x16_t b, uint8x16_t yo) {
    const uint8x16_t t = rebuilt_luma(a, b);
    const uint8x16_t diff = vabdq_u8(t, yo);
    const uint8x16_t mean_or_input = vbslq_u8(vceqq_u8(diff, vdupq_n_u8(2)), mean_down(t, yo), yo);
    return vbslq_u8(vcleq_u8(diff, vdupq_n_u8(1)), t, mean_or_input);
}

template <uint8x16_t (*luma)(uint8x16_t, uint8x16_t, uint8x16_t)>
void luma420_pass(const uint8_t* y_in, const uint8_t* a, const uint8_t* b, uint8_t* y_out,
                  int32_t width, int32_t height) {
    for (int32_t row = 0; row < height; ++row) {
        for (int32_t x = 0; x < width; x += 16) {
            VTR_PREFETCH(y_in + VTR_RESTORE_PREFETCH);
            VTR_PREFETCH(a + VTR_RESTORE_PREFETCH);
            VTR_PREFETCH(b + VTR_RESTORE_PREFETCH);
            const uint8x16_t yo = vld1q_u8(y_in);
            vst1q_u8(y_out, luma(vld1q_u8(a), vld1q_u8(b), yo));
            y_in += 16;
            a += 16;
            b += 16;
            y_out += 16;
        }
    }
}

// ((64 - w) * f + w * c) >> 6 for 16 bytes: at most 64 * 255 before the shift, so no lane
// overflows and the result is already within 0 .. 255.
inline uint8x16_t mix16(uint8x16_t iw, uint8x16_t w, uint8x16_t f, uint8x16_t c) {
    const uint16x8_t lo = vtr_mlal_lo(vtr_mull_lo(iw, f), w, c);
    const uint16x8_t hi = vtr_mlal_hi(vtr_mull_hi(iw, f), w, c);
    return vtr_shrn_n<6>(lo, hi);
}

// Blends 16 pairs: inputs c1, c2, upsampled f1, f2; `small` takes the short way to the weights.
template <bool small>
inline uint8x16x2_t blend16(uint8x16_t c1, uint8x16_t c2, uint8x16_t f1, uint8x16_t f2,
                            const divisor& d) {
    const uint8x16_t d1 = vabdq_u8(c1, f1);
    const uint8x16_t d2 = vabdq_u8(c2, f2);
    uint8x16_t w;
    if (small) {
        w = small_weights(d1, d2, d);
    } else {
        const uint16x8_t q_lo = quotient(numerator(vtr_addl_lo(d1, d2), d), d);
        const uint16x8_t q_hi = quotient(numerator(vtr_addl_hi(d1, d2), d), d);
        w = vminq_u8(vcombine_u8(vqmovn_u16(q_lo), vqmovn_u16(q_hi)), vdupq_n_u8(64));
    }
    const uint8x16_t iw = vsubq_u8(vdupq_n_u8(64), w);
    uint8x16x2_t out;
    out.val[0] = mix16(iw, w, f1, c1);
    out.val[1] = mix16(iw, w, f2, c2);
    return out;
}

// One 4:2:0 chroma step: 16 pairs of VU and 16 bytes of each upsampled plane.
template <bool small>
inline void chroma420_step(const uint8_t* vu_in, const uint8_t* up_first, const uint8_t* up_second,
                           uint8_t* vu_out, const divisor& d) {
    const uint8x16x2_t c = vld2q_u8(vu_in);
    vst2q_u8(vu_out,
             blend16<small>(c.val[0], c.val[1], vld1q_u8(up_first), vld1q_u8(up_second), d));
}

// The 4:2:0 chroma walk: `rows` rows of `steps` 16-byte steps each. Rows follow each other
// without gaps, so the walk is one run of rows * steps * 16 VU bytes (and half as many bytes
// of each upsampled plane), taken 32 bytes at a time; an odd last 16 go through a zeroed copy.
template <bool small>
void chroma420_walk(const uint8_t* vu_in, const uint8_t* up_first, const uint8_t* up_second,
                    uint8_t* vu_out, int32_t rows, int32_t steps, const divisor& d) {
    const ptrdiff_t total = static_cast<ptrdiff_t>(rows) * steps;
    ptrdiff_t i = 0;
    for (; i + 2 <= total; i += 2) {
        VTR_PREFETCH(vu_in + VTR_RESTORE_PREFETCH);
        VTR_PREFETCH(up_first + VTR_RESTORE_PREFETCH);
        VTR_PREFETCH(up_second + VTR_RESTORE_PREFETCH);
        chroma420_step<small>(vu_in, up_first, up_second, vu_out, d);
        vu_in += 32;
        vu_out += 32;
        up_first += 16;
        up_second += 16;
    }
    if (i < total) {
        uint8_t vu[32] = {}, u1[16] = {}, u2[16] = {};
        memcpy(vu, vu_in, 16);
        memcpy(u1, up_first, 8);
        memcpy(u2, up_second, 8);
        chroma420_step<small>(vu, u1, u2, vu, d);
        memcpy(vu_out, vu, 16);
    }
}

void chroma420_pass(const uint8_t* vu_in, const uint8_t* up_first, const uint8_t* up_second,
                    uint8_t* vu_out, int32_t rows, int32_t steps, const divisor d) {
    if (d.small)
        chroma420_walk<true>(vu_in, up_first, up_second, vu_out, rows, steps, d);
    else
        chroma420_walk<false>(vu_in, up_first, up_second, vu_out, rows, steps, d);
}

// 16 packed groups Y0 C1 Y1 C2 (32 pixels, 64 bytes), one field per vector.
inline uint8x16x4_t load_groups(const uint8_t* p) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    return vld4q_u8(p);
#else
    // Translated structure loads go byte by byte; two rounds of unzipping do the same.
    const uint8x16x2_t lo = vuzpq_u8(vld1q_u8(p), vld1q_u8(p + 16));  // groups 0-7: Y, C
    const uint8x16x2_t hi = vuzpq_u8(vld1q_u8(p + 32), vld1q_u8(p + 48));
    const uint8x16x2_t y = vuzpq_u8(lo.val[0], hi.val[0]);
    const uint8x16x2_t c = vuzpq_u8(lo.val[1], hi.val[1]);
    uint8x16x4_t g;
    g.val[0] = y.val[0];
    g.val[1] = c.val[0];
    g.val[2] = y.val[1];
    g.val[3] = c.val[1];
    return g;
#endif
}

// Stores 16 groups from one vector per field, the reverse of load_groups.
inline void store_groups(uint8_t* p, uint8x16x4_t g) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    vst4q_u8(p, g);
#else
    const uint8x16x2_t y = vzipq_u8(g.val[0], g.val[2]);  // Y0 Y1 of groups 0-7, 8-15
    const uint8x16x2_t c = vzipq_u8(g.val[1], g.val[3]);
    const uint8x16x2_t lo = vzipq_u8(y.val[0], c.val[0]);
    const uint8x16x2_t hi = vzipq_u8(y.val[1], c.val[1]);
    vst1q_u8(p, lo.val[0]);
    vst1q_u8(p + 16, lo.val[1]);
    vst1q_u8(p + 32, hi.val[0]);
    vst1q_u8(p + 48, hi.val[1]);
#endif
}

// One 4:2:2 step in place: 16 groups of the frame, 32 bytes of each component plane (even
// bytes with Y0, odd ones with Y1) and 16 of each upsampled plane.
template <bool with_luma, bool small>
inline void yuv422_step(uint8_t* frame, const uint8_t* a, const uint8_t* b, const uint8_t* up_first,
                        const uint8_t* up_second, const divisor& d) {
    uint8x16x4_t g = load_groups(frame);
    if (with_luma) {
        const uint8x16x2_t va = vld2q_u8(a);
        const uint8x16x2_t vb = vld2q_u8(b);
        g.val[0] = luma422(va.val[0], vb.val[0], g.val[0]);
        g.val[2] = luma422(va.val[1], vb.val[1], g.val[2]);
    }
    const uint8x16x2_t c =
        blend16<small>(g.val[1], g.val[3], vld1q_u8(up_first), vld1q_u8(up_second), d);
    g.val[1] = c.val[0];
    g.val[3] = c.val[1];
    store_groups(frame, g);
}

// The 4:2:2 walk. Rows follow each other without gaps in every plane, so it is one run of
// height * width / 2 groups, taken 16 at a time; a last 8 (width / 2 is a multiple of 8) go
// through a zeroed copy so that nothing past the planes is read or written.
template <bool with_luma, bool small>
void yuv422_run(uint8_t* frame, const uint8_t* a, const uint8_t* b, const uint8_t* up_first,
                const uint8_t* up_second, int32_t width, int32_t height, const divisor& d) {
    const ptrdiff_t groups = static_cast<ptrdiff_t>(height) * (width / 2);
    ptrdiff_t i = 0;
    for (; i + 16 <= groups; i += 16) {
        VTR_PREFETCH(frame + VTR_RESTORE_PREFETCH);
        VTR_PREFETCH(up_first + VTR_RESTORE_PREFETCH);
        VTR_PREFETCH(up_second + VTR_RESTORE_PREFETCH);
        if (with_luma) {
            VTR_PREFETCH(a + VTR_RESTORE_PREFETCH);
            VTR_PREFETCH(b + VTR_RESTORE_PREFETCH);
        }
        yuv422_step<with_luma, small>(frame, a, b, up_first, up_second, d);
        frame += 64;
        up_first += 16;
        up_second += 16;
        if (with_luma) {
            a += 32;
            b += 32;
        }
    }
    if (i < groups) {
        uint8_t packed[64] = {}, ca[32] = {}, cb[32] = {}, u1[16] = {}, u2[16] = {};
        memcpy(packed, frame, 32);
        memcpy(u1, up_first, 8);
        memcpy(u2, up_second, 8);
        if (with_luma) {
            memcpy(ca, a, 16);
            memcpy(cb, b, 16);
        }
        yuv422_step<with_luma, small>(packed, ca, cb, u1, u2, d);
        memcpy(frame, packed, 32);
    }
}

template <bool with_luma>
void yuv422_walk(uint8_t* frame, const uint8_t* a, const uint8_t* b, const uint8_t* up_first,
                 const uint8_t* up_second, int32_t width, int32_t height, int32_t S) {
    if (width <= 0 || (width & 15) != 0 || height <= 0)
        return;
    const divisor d = make_divisor(S);
    if (d.small)
        yuv422_run<with_luma, true>(frame, a, b, up_first, up_second, width, height, d);
    else
        yuv422_run<with_luma, false>(frame, a, b, up_first, up_second, width, height, d);
}

}  // namespace

void restore_interleave_yuv420_neon(const uint8_t* y_in, const uint8_t* vu_in,
                                    const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                    const uint8_t* up_first, const uint8_t* up_second,
                                    int32_t width, int32_t height, int32_t S, uint8_t* y_out,
                                    uint8_t* vu_out, int32_t scenario) {
    if (width <= 0 || (width & 15) != 0 || height <= 0)
        return;
    if (scenario == 1)
        luma420_pass<luma420_preview>(y_in, y_comp_a, y_comp_b, y_out, width, height);
    else
        luma420_pass<luma420_capture>(y_in, y_comp_a, y_comp_b, y_out, width, height);
    const int32_t chroma_rows = static_cast<int32_t>(static_cast<uint32_t>(height) >> 1);
    chroma420_pass(vu_in, up_first, up_second, vu_out, chroma_rows, width / 16, make_divisor(S));
}

void restore_interleave_yuv422_neon(uint8_t* frame, const uint8_t* y_comp_a,
                                    const uint8_t* y_comp_b, const uint8_t* up_first,
                                    const uint8_t* up_second, int32_t width, int32_t height,
                                    int32_t S) {
    yuv422_walk<true>(frame, y_comp_a, y_comp_b, up_first, up_second, width, height, S);
}

void restore_interleave_uv420_neon(const uint8_t* y_in, const uint8_t* vu_in,
                                   const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                   const uint8_t* up_first, const uint8_t* up_second, int32_t width,
                                   int32_t rows, int32_t S, uint8_t* vu_out) {
    if (width <= 0 || (width & 15) != 0 || rows <= 0)
        return;
    // The column counter advances by 32 per 16-byte step: one step per 32 of width, rounded
    // up, so each row covers width / 2 bytes of VU when width is a multiple of 32.
    chroma420_pass(vu_in, up_first, up_second, vu_out, rows, (width + 31) / 32, make_divisor(S));
}

void restore_interleave_uv422_neon(uint8_t* frame, const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                   const uint8_t* up_first, const uint8_t* up_second, int32_t width,
                                   int32_t height, int32_t S) {
    yuv422_walk<false>(frame, y_comp_a, y_comp_b, up_first, up_second, width, height, S);
}

void restore_blend_weights_neon(const int16_t* n, int32_t count, int32_t S, uint8_t* weights) {
    const divisor d = make_divisor(S);
    for (int32_t i = 0; i + 8 <= count; i += 8)
        vst1_u8(weights + i, weight_of(vld1q_s16(n + i), d));
}
