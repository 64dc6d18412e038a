// NEON intrinsics: native on 32- and 64-bit Arm, translated by SIMDe elsewhere so that the
// vector kernels are built and tested on every host.
#ifndef VANTOR_PLATFORM_NEON_H
#define VANTOR_PLATFORM_NEON_H

#if defined(__ARM_NEON) || defined(__ARM_NEON__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

#define VTR_PREFETCH(p) __builtin_prefetch(p)

// Widening operations on the low (_lo) or high (_hi) 8 bytes of a 16-byte vector, giving 16-bit
// lanes: zero extension, sum, product, and product added to an accumulator. Natively each is
// one instruction on a half vector. SIMDe translates those half-vector forms with a lane-by-lane
// conversion of each half (several SSE2 instructions); interleaving the whole vector with zeros
// widens in one unpack instead, after which the 16-bit operation is one instruction. The results
// are the same on every target.
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
inline uint16x8_t vtr_movl_lo(uint8x16_t a) {
    return vmovl_u8(vget_low_u8(a));
}
inline uint16x8_t vtr_movl_hi(uint8x16_t a) {
    return vmovl_u8(vget_high_u8(a));
}
inline uint16x8_t vtr_addl_lo(uint8x16_t a, uint8x16_t b) {
    return vaddl_u8(vget_low_u8(a), vget_low_u8(b));
}
inline uint16x8_t vtr_addl_hi(uint8x16_t a, uint8x16_t b) {
    return vaddl_u8(vget_high_u8(a), vget_high_u8(b));
}
inline uint16x8_t vtr_mull_lo(uint8x16_t a, uint8x16_t b) {
    return vmull_u8(vget_low_u8(a), vget_low_u8(b));
}
inline uint16x8_t vtr_mull_hi(uint8x16_t a, uint8x16_t b) {
    return vmull_u8(vget_high_u8(a), vget_high_u8(b));
}
inline uint16x8_t vtr_mlal_lo(uint16x8_t acc, uint8x16_t a, uint8x16_t b) {
    return vmlal_u8(acc, vget_low_u8(a), vget_low_u8(b));
}
inline uint16x8_t vtr_mlal_hi(uint16x8_t acc, uint8x16_t a, uint8x16_t b) {
    return vmlal_u8(acc, vget_high_u8(a), vget_high_u8(b));
}
#else
inline uint16x8_t vtr_movl_lo(uint8x16_t a) {
    return vreinterpretq_u16_u8(vzip1q_u8(a, vdupq_n_u8(0)));
}
inline uint16x8_t vtr_movl_hi(uint8x16_t a) {
    return vreinterpretq_u16_u8(vzip2q_u8(a, vdupq_n_u8(0)));
}
inline uint16x8_t vtr_addl_lo(uint8x16_t a, uint8x16_t b) {
    return vaddq_u16(vtr_movl_lo(a), vtr_movl_lo(b));
}
inline uint16x8_t vtr_addl_hi(uint8x16_t a, uint8x16_t b) {
    return vaddq_u16(vtr_movl_hi(a), vtr_movl_hi(b));
}
inline uint16x8_t vtr_mull_lo(uint8x16_t a, uint8x16_t b) {
    return vmulq_u16(vtr_movl_lo(a), vtr_movl_lo(b));
}
inline uint16x8_t vtr_mull_hi(uint8x16_t a, uint8x16_t b) {
    return vmulq_u16(vtr_movl_hi(a), vtr_movl_hi(b));
}
inline uint16x8_t vtr_mlal_lo(uint16x8_t acc, uint8x16_t a, uint8x16_t b) {
    return vmlaq_u16(acc, vtr_movl_lo(a), vtr_movl_lo(b));
}
inline uint16x8_t vtr_mlal_hi(uint16x8_t acc, uint8x16_t a, uint8x16_t b) {
    return vmlaq_u16(acc, vtr_movl_hi(a), vtr_movl_hi(b));
}
#endif

// The 16 lanes of lo then hi, each shifted right by n (1 .. 8) and narrowed to its low byte.
// Natively two narrowing shifts; translated, the narrowing of half vectors and their combining
// cost more than shifting whole vectors and unzipping the bytes kept.
template <int n>
inline uint8x16_t vtr_shrn_n(uint16x8_t lo, uint16x8_t hi) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    return vcombine_u8(vshrn_n_u16(lo, n), vshrn_n_u16(hi, n));
#else
    if (n == 8)  // the high bytes: the odd ones
        return vuzp2q_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi));
    return vuzp1q_u8(vreinterpretq_u8_u16(vshrq_n_u16(lo, n)),
                     vreinterpretq_u8_u16(vshrq_n_u16(hi, n)));
#endif
}

// The 16 lanes of lo then hi narrowed to their low bytes. Translated, a byte unzip.
inline uint8x16_t vtr_movn(uint16x8_t lo, uint16x8_t hi) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    return vcombine_u8(vmovn_u16(lo), vmovn_u16(hi));
#else
    return vuzp1q_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi));
#endif
}

// The 16 lanes of lo then hi, each rounded and shifted right by n (1 .. 8): (x + 2^(n - 1)) >> n,
// narrowed to a byte, for lanes where x + 2^(n - 1) fits 16 bits and the result fits 8. Natively
// two rounding narrowing shifts; translated, whole-vector adds and shifts and a byte unzip.
template <int n>
inline uint8x16_t vtr_rshrn_n(uint16x8_t lo, uint16x8_t hi) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
    return vcombine_u8(vrshrn_n_u16(lo, n), vrshrn_n_u16(hi, n));
#else
    const uint16x8_t half = vdupq_n_u16(1 << (n - 1));
    return vuzp1q_u8(vreinterpretq_u8_u16(vshrq_n_u16(vaddq_u16(lo, half), n)),
                     vreinterpretq_u8_u16(vshrq_n_u16(vaddq_u16(hi, half), n)));
#endif
}

#endif  // VANTOR_PLATFORM_NEON_H
