// Vector restore interleave; restore.cpp is the scalar truth.
//
// Memory: every read and write is a whole step of the runs given in restore.h (16 luma bytes,
// 16 VU bytes with 8 bytes of each upsampled plane, or 32 packed bytes with 16 bytes of each
// component and 8 of each upsampled plane); width a multiple of 16 makes the steps end exactly
// at the end of each run, so nothing past it is read or written. Each step loads all of its
// input before it stores, which makes in-place calls safe. Prefetches run 128 bytes ahead of
// each read pointer and may point past the plane; a prefetch never faults.
//
// Division: the weight n / S (n the signed 16-bit numerator) is computed as (|n| * m) >> k with
// m and k chosen once per call, then given the quotient's sign. With b = |S| (1 .. 32768),
// c = ceil(log2 b), k = 15 + c and m = ceil(2^k / b) = (2^k + e) / b where 0 <= e < b <= 2^c:
//   |n| * m / 2^k = |n| / b + |n| * e / (b * 2^k),
// and for |n| <= 2^15 the second term is below 2^15 * 2^c / (b * 2^(15 + c)) = 1 / b. The
// fraction of |n| / b is at most (b - 1) / b, so the sum never reaches the next integer and the
// shift gives floor(|n| / b) exactly. m is 2^15 for a power of two and at most 65533 otherwise,
// so |n| * m fits 32 bits unsigned. A quotient of negative sign is clamped to 0 by the blend
// anyway, and S = 0 takes m = 0, giving 0 like the scalar twin's explicit test.
#include "platform/neon.h"
#include "resample/restore.h"

#include <stddef.h>

namespace {

constexpr int32_t VTR_RESTORE_PREFETCH = 128;

struct divisor {
    uint16x4_t magic;  // m
    int32x4_t shift;   // -k, for a right shift by vshlq
    int16x8_t sign;    // all ones when S < 0
    uint16x8_t half;   // S >> 1, the rounding term of the numerator
};

divisor make_divisor(int32_t S) {
    const int16_t s = static_cast<int16_t>(S);
    uint32_t m = 0;
    int32_t k = 0;
    if (s != 0) {
        const uint32_t b =
            s < 0 ? static_cast<uint32_t>(-static_cast<int32_t>(s)) : static_cast<uint32_t>(s);
        int32_t c = 0;
        while ((1u << c) < b)
            ++c;
        k = 15 + c;
        m = ((1u << k) + b - 1) / b;
    }
    divisor d;
    d.magic = vdup_n_u16(static_cast<uint16_t>(m));
    d.shift = vdupq_n_s32(-k);
    d.sign = vdupq_n_s16(s < 0 ? -1 : 0);
    d.half = vdupq_n_u16(static_cast<uint16_t>(s >> 1));
    return d;
}

// Weights, 0 .. 64, of 8 numerators.
inline uint8x8_t weight_of(int16x8_t n, const divisor& d) {
    // |-32768| wraps to 0x8000, which read unsigned is the right magnitude.
    const uint16x8_t mag = vreinterpretq_u16_s16(vabsq_s16(n));
    const uint32x4_t lo = vshlq_u32(vmull_u16(vget_low_u16(mag), d.magic), d.shift);
    const uint32x4_t hi = vshlq_u32(vmull_u16(vget_high_u16(mag), d.magic), d.shift);
    const uint16x8_t q = vminq_u16(vcombine_u16(vmovn_u32(lo), vmovn_u32(hi)), vdupq_n_u16(64));
    // The quotient is negative (or zero) where n and S differ in sign: weight 0.
    const uint16x8_t negative = vcltq_s16(veorq_s16(n, d.sign), vdupq_n_s16(0));
    return vmovn_u16(vbicq_u16(q, negative));
}

// Weights of 8 pairs from their distances sad (0 .. 510).
inline uint8x8_t blend_weight(uint16x8_t sad, const divisor& d) {
    // sad * 64 + S / 2, wrapping in 16 bits, read as signed.
    return weight_of(vreinterpretq_s16_u16(vaddq_u16(vshlq_n_u16(sad, 6), d.half)), d);
}

// Blends 8 pairs: inputs c1, c2, upsampled f1, f2.
inline uint8x8x2_t blend8(uint8x8_t c1, uint8x8_t c2, uint8x8_t f1, uint8x8_t f2,
                          const divisor& d) {
    const uint16x8_t sad = vaddl_u8(vabd_u8(c1, f1), vabd_u8(c2, f2));
    const uint8x8_t w = blend_weight(sad, d);
    const uint8x8_t iw = vsub_u8(vdup_n_u8(64), w);
    uint8x8x2_t out;
    // At most 64 * 255: no lane overflows, and the result is already within 0 .. 255.
    out.val[0] = vshrn_n_u16(vmlal_u8(vmull_u8(iw, f1), w, c1), 6);
    out.val[1] = vshrn_n_u16(vmlal_u8(vmull_u8(iw, f2), w, c2), 6);
    return out;
}

// clamp(a + b - 128, 0, 255) for 16 pixels: subtraction saturating at 0, narrowing
// saturating at 255.
inline uint8x16_t rebuilt_luma(uint8x16_t a, uint8x16_t b) {
    const uint16x8_t bias = vdupq_n_u16(128);
    return vcombine_u8(vqmovn_u16(vqsubq_u16(vaddl_u8(vget_low_u8(a), vget_low_u8(b)), bias)),
                       vqmovn_u16(vqsubq_u16(vaddl_u8(vget_high_u8(a), vget_high_u8(b)), bias)));
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

// With a limit of 2 the blend ((2 - d) * t + d * yo) >> 1 has three outcomes: t for d = 0,
// the truncating mean (t + yo) >> 1 for d = 1 (which is also t for d = 0), yo for d = 2. So it
// is a halving add and a select, with no widening.

// 4:2:0 capture luma (limit 2) for 16 pixels.
inline uint8x16_t luma420_capture(uint8x16_t a, uint8x16_t b, uint8x16_t yo) {
    const uint8x16_t t = rebuilt_luma(a, b);
    const uint8x16_t far = vcgeq_u8(vabdq_u8(t, yo), vdupq_n_u8(2));
    return vbslq_u8(far, yo, mean_down(t, yo));
}

// 4:2:0 preview luma (limit 4): ((4 - d) * t + d * yo) >> 2 in 16-bit halves.
inline uint8x16_t luma420_preview(uint8x16_t a, uint8x16_t b, uint8x16_t yo) {
    const uint8x16_t dm = vdupq_n_u8(4);
    const uint8x16_t t = rebuilt_luma(a, b);
    const uint8x16_t d = vminq_u8(vabdq_u8(t, yo), dm);
    const uint8x16_t keep = vsubq_u8(dm, d);
    const uint16x8_t lo =
        vmlal_u8(vmull_u8(vget_low_u8(keep), vget_low_u8(t)), vget_low_u8(d), vget_low_u8(yo));
    const uint16x8_t hi =
        vmlal_u8(vmull_u8(vget_high_u8(keep), vget_high_u8(t)), vget_high_u8(d), vget_high_u8(yo));
    return vcombine_u8(vshrn_n_u16(lo, 2), vshrn_n_u16(hi, 2));
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

// Blends 16 pairs: inputs c1, c2, upsampled f1, f2.
inline uint8x16x2_t blend16(uint8x16_t c1, uint8x16_t c2, uint8x16_t f1, uint8x16_t f2,
                            const divisor& d) {
    const uint8x16_t d1 = vabdq_u8(c1, f1);
    const uint8x16_t d2 = vabdq_u8(c2, f2);
    const uint8x16_t w = vcombine_u8(blend_weight(vaddl_u8(vget_low_u8(d1), vget_low_u8(d2)), d),
                                     blend_weight(vaddl_u8(vget_high_u8(d1), vget_high_u8(d2)), d));
    const uint8x16_t iw = vsubq_u8(vdupq_n_u8(64), w);
    uint8x16x2_t out;
    out.val[0] = vcombine_u8(vshrn_n_u16(vmlal_u8(vmull_u8(vget_low_u8(iw), vget_low_u8(f1)),
                                                  vget_low_u8(w), vget_low_u8(c1)),
                                         6),
                             vshrn_n_u16(vmlal_u8(vmull_u8(vget_high_u8(iw), vget_high_u8(f1)),
                                                  vget_high_u8(w), vget_high_u8(c1)),
                                         6));
    out.val[1] = vcombine_u8(vshrn_n_u16(vmlal_u8(vmull_u8(vget_low_u8(iw), vget_low_u8(f2)),
                                                  vget_low_u8(w), vget_low_u8(c2)),
                                         6),
                             vshrn_n_u16(vmlal_u8(vmull_u8(vget_high_u8(iw), vget_high_u8(f2)),
                                                  vget_high_u8(w), vget_high_u8(c2)),
                                         6));
    return out;
}

// The 4:2:0 chroma walk: `rows` rows of `steps` 16-byte steps each. Rows follow each other
// without gaps, so the walk is one run of rows * steps * 16 VU bytes (and half as many bytes
// of each upsampled plane), taken 32 bytes at a time with one 16-byte step at the end when
// the count of steps is odd.
void chroma420_pass(const uint8_t* vu_in, const uint8_t* up_first, const uint8_t* up_second,
                    uint8_t* vu_out, int32_t rows, int32_t steps, const divisor& d) {
    const ptrdiff_t total = static_cast<ptrdiff_t>(rows) * steps;
    ptrdiff_t i = 0;
    for (; i + 2 <= total; i += 2) {
        VTR_PREFETCH(vu_in + VTR_RESTORE_PREFETCH);
        VTR_PREFETCH(up_first + VTR_RESTORE_PREFETCH);
        VTR_PREFETCH(up_second + VTR_RESTORE_PREFETCH);
        const uint8x16x2_t c = vld2q_u8(vu_in);
        vst2q_u8(vu_out, blend16(c.val[0], c.val[1], vld1q_u8(up_first), vld1q_u8(up_second), d));
        vu_in += 32;
        vu_out += 32;
        up_first += 16;
        up_second += 16;
    }
    if (i < total) {
        const uint8x8x2_t c = vld2_u8(vu_in);
        vst2_u8(vu_out, blend8(c.val[0], c.val[1], vld1_u8(up_first), vld1_u8(up_second), d));
    }
}

template <bool with_luma>
void yuv422_walk(uint8_t* frame, const uint8_t* a, const uint8_t* b, const uint8_t* up_first,
                 const uint8_t* up_second, int32_t width, int32_t height, int32_t S) {
    if (width <= 0 || (width & 15) != 0 || height <= 0)
        return;
    const divisor d = make_divisor(S);
    for (int32_t row = 0; row < height; ++row) {
        for (int32_t left = width; left != 0; left -= 16) {
            VTR_PREFETCH(frame + VTR_RESTORE_PREFETCH);
            VTR_PREFETCH(up_first + VTR_RESTORE_PREFETCH);
            VTR_PREFETCH(up_second + VTR_RESTORE_PREFETCH);
            // 8 groups Y0 C1 Y1 C2: 16 pixels.
            uint8x8x4_t g = vld4_u8(frame);
            if (with_luma) {
                VTR_PREFETCH(a + VTR_RESTORE_PREFETCH);
                VTR_PREFETCH(b + VTR_RESTORE_PREFETCH);
                // Even component bytes go with Y0, odd ones with Y1.
                const uint8x8x2_t va = vld2_u8(a);
                const uint8x8x2_t vb = vld2_u8(b);
                const uint8x16_t y =
                    luma422(vcombine_u8(va.val[0], va.val[1]), vcombine_u8(vb.val[0], vb.val[1]),
                            vcombine_u8(g.val[0], g.val[2]));
                g.val[0] = vget_low_u8(y);
                g.val[2] = vget_high_u8(y);
                a += 16;
                b += 16;
            }
            const uint8x8x2_t c =
                blend8(g.val[1], g.val[3], vld1_u8(up_first), vld1_u8(up_second), d);
            g.val[1] = c.val[0];
            g.val[3] = c.val[1];
            vst4_u8(frame, g);
            frame += 32;
            up_first += 8;
            up_second += 8;
        }
    }
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
