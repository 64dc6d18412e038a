// Vector deinterleave and downsample; deinterleave.cpp is the scalar truth.
//
// Memory: the NV21 kernel reads within whole 128-byte steps [0, width_bound rounded up to 128)
// of VU rows 0, 8, 16, ...; the 4:2:2 kernels within whole 256-byte steps of each row they
// walk (where the intrinsics are translated, only the bytes kept are read from a step). They
// write exactly width_bound / 16 values per block row (8 per step) and width_bound luma bytes
// per row, never past the covered area. Prefetches run 256 bytes ahead of the read pointer
// and may point past the plane; a prefetch never faults.
#include "platform/neon.h"
#include "resample/deinterleave.h"

#include <stddef.h>
#include <string.h>

namespace {

// Prefetch distance in bytes: two steps of the NV21 walk, one of the 4:2:2 walk.
constexpr int32_t VTR_DEINT_PREFETCH = 256;

#if defined(__ARM_NEON) || defined(__ARM_NEON__)

// Natively the walks use four-way structure loads and narrow the samples kept out of them.

// Lane 0 and lane 8 of each of four vectors, in order: the low byte of each 64-bit half,
// narrowed three times.
inline uint8x8_t lanes_0_8(uint8x16_t a, uint8x16_t b, uint8x16_t c, uint8x16_t d) {
    const uint32x4_t ab =
        vcombine_u32(vmovn_u64(vreinterpretq_u64_u8(a)), vmovn_u64(vreinterpretq_u64_u8(b)));
    const uint32x4_t cd =
        vcombine_u32(vmovn_u64(vreinterpretq_u64_u8(c)), vmovn_u64(vreinterpretq_u64_u8(d)));
    return vmovn_u16(vcombine_u16(vmovn_u32(ab), vmovn_u32(cd)));
}

// Lanes 0, 4, 8 and 12 of each of two vectors, in order.
inline uint8x8_t lanes_0_4_8_12(uint8x16_t a, uint8x16_t b) {
    return vmovn_u16(
        vcombine_u16(vmovn_u32(vreinterpretq_u32_u8(a)), vmovn_u32(vreinterpretq_u32_u8(b))));
}

// Pairs 0, 8, ..., 56 of 128 VU bytes: first bytes in val[0], second bytes in val[1].
inline uint8x8x2_t nv21_step(const uint8_t* in) {
    // Byte 4i of each 64 bytes lands in lane i of val[0], byte 4i + 1 in val[1]; the pairs
    // kept start at bytes 0, 16, 32 and 48, lanes 0, 4, 8 and 12.
    const uint8x16x4_t lo = vld4q_u8(in);
    const uint8x16x4_t hi = vld4q_u8(in + 64);
    uint8x8x2_t out;
    out.val[0] = lanes_0_4_8_12(lo.val[0], hi.val[0]);
    out.val[1] = lanes_0_4_8_12(lo.val[1], hi.val[1]);
    return out;
}

// 128 packed pixels of one row: their luma to y (when with_luma) and, when with_chroma, the
// chroma pair of pixels 0, 16, ..., 112 to first[0..7] and second[0..7].
template <bool with_luma, bool with_chroma>
inline void yuv422_step(const uint8_t* in, uint8_t* y, uint8_t* first, uint8_t* second) {
    uint8x16_t c1[4], c2[4];
    for (int i = 0; i < 4; ++i) {
        VTR_PREFETCH(in + 64 * i + VTR_DEINT_PREFETCH);
        // 64 bytes: 16 groups Y0 C1 Y1 C2, i.e. 32 pixels.
        const uint8x16x4_t g = vld4q_u8(in + 64 * i);
        if (with_luma) {
            uint8x16x2_t luma;
            luma.val[0] = g.val[0];
            luma.val[1] = g.val[2];
            vst2q_u8(y + 32 * i, luma);
        }
        c1[i] = g.val[1];
        c2[i] = g.val[3];
    }
    if (with_chroma) {
        // Groups 0 and 8 of each load are pixels 0 and 16 of its 32.
        vst1_u8(first, lanes_0_8(c1[0], c1[1], c1[2], c1[3]));
        vst1_u8(second, lanes_0_8(c2[0], c2[1], c2[2], c2[3]));
    }
}

#else

// Translated, four-way structure loads go byte by byte. Luma comes from two-way loads, which
// stay vector code, and the chroma samples kept are loaded alone, one 16-bit lane each.

// Eight 16-bit lanes from p, p + stride, ..., p + 7 * stride; on these little-endian targets
// the byte at each address is the low half of its lane.
inline uint16x8_t gather_u16(const uint8_t* p, ptrdiff_t stride) {
    uint16_t v[8];
    for (int i = 0; i < 8; ++i)
        memcpy(&v[i], p + i * stride, 2);
    uint16x8_t g = vdupq_n_u16(0);
    g = vsetq_lane_u16(v[0], g, 0);
    g = vsetq_lane_u16(v[1], g, 1);
    g = vsetq_lane_u16(v[2], g, 2);
    g = vsetq_lane_u16(v[3], g, 3);
    g = vsetq_lane_u16(v[4], g, 4);
    g = vsetq_lane_u16(v[5], g, 5);
    g = vsetq_lane_u16(v[6], g, 6);
    g = vsetq_lane_u16(v[7], g, 7);
    return g;
}

inline uint8x8x2_t nv21_step(const uint8_t* in) {
    // The pairs kept start at bytes 0, 16, ..., 112.
    const uint16x8_t pairs = gather_u16(in, 16);
    uint8x8x2_t out;
    out.val[0] = vmovn_u16(pairs);
    out.val[1] = vshrn_n_u16(pairs, 8);
    return out;
}

template <bool with_luma, bool with_chroma>
inline void yuv422_step(const uint8_t* in, uint8_t* y, uint8_t* first, uint8_t* second) {
    for (int i = 0; i < 4; ++i) {
        VTR_PREFETCH(in + 64 * i + VTR_DEINT_PREFETCH);
        if (with_luma) {
            // 32 bytes, 16 pixels: luma is every even byte.
            vst1q_u8(y + 32 * i, vld2q_u8(in + 64 * i).val[0]);
            vst1q_u8(y + 32 * i + 16, vld2q_u8(in + 64 * i + 32).val[0]);
        }
    }
    if (with_chroma) {
        // Each 16 pixels start with the group Y0 C1 Y1 C2: C1 is the low byte of the lane
        // loaded at offset 1, C2 that of the lane at offset 3.
        vst1_u8(first, vmovn_u16(gather_u16(in + 1, 32)));
        vst1_u8(second, vmovn_u16(gather_u16(in + 3, 32)));
    }
}

#endif

// A plane the row does not write may be null; no pointer into it is formed.
template <bool with_luma, bool with_chroma>
void yuv422_row(uint8_t* y_row, uint8_t* first_row, uint8_t* second_row, const uint8_t* in,
                int32_t width_bound) {
    for (int32_t x = 0; x < width_bound; x += 128)
        yuv422_step<with_luma, with_chroma>(in + 2 * x, with_luma ? y_row + x : nullptr,
                                            with_chroma ? first_row + x / 16 : nullptr,
                                            with_chroma ? second_row + x / 16 : nullptr);
}

// One 16-row band starting at row r: row r with chroma, then the 15 luma-only rows.
void yuv422_band(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out, const uint8_t* packed_in,
                 int32_t width, int32_t r, int32_t width_bound) {
    const ptrdiff_t out_offset = static_cast<ptrdiff_t>(width / 16) * (r / 16);
    yuv422_row<true, true>(y_out + static_cast<ptrdiff_t>(r) * width, first_out + out_offset,
                           second_out + out_offset,
                           packed_in + static_cast<ptrdiff_t>(r) * 2 * width, width_bound);
    // The _height15 rows: always 15, whatever height_bound is.
    for (int32_t k = 1; k < 16; ++k) {
        const ptrdiff_t row = r + k;
        yuv422_row<true, false>(y_out + row * width, nullptr, nullptr, packed_in + row * 2 * width,
                                width_bound);
    }
}

}  // namespace

void deinterleave_yuv420_uv_downsample_neon(uint8_t* first_out, uint8_t* second_out,
                                            const uint8_t* vu_in, int32_t width_bound,
                                            int32_t height_bound, int32_t stride) {
    for (int32_t r = 0; r < height_bound; r += 16) {
        const uint8_t* in = vu_in + static_cast<ptrdiff_t>(stride / 2) * r;
        const ptrdiff_t out_offset = static_cast<ptrdiff_t>(stride / 16) * (r / 16);
        for (int32_t x = 0; x < width_bound; x += 128) {
            VTR_PREFETCH(in + x + VTR_DEINT_PREFETCH);
            VTR_PREFETCH(in + x + 64 + VTR_DEINT_PREFETCH);
            const uint8x8x2_t pairs = nv21_step(in + x);
            vst1_u8(first_out + out_offset + x / 16, pairs.val[0]);
            vst1_u8(second_out + out_offset + x / 16, pairs.val[1]);
        }
    }
}

void deinterleave_yuv422_uv_downsample_neon(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out,
                                            const uint8_t* packed_in, int32_t width,
                                            int32_t height_bound, int32_t width_bound) {
    for (int32_t r = 0; r < height_bound; r += 16)
        yuv422_band(y_out, first_out, second_out, packed_in, width, r, width_bound);
}

void deinterleave_uv422_uv_downsample_neon(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out,
                                           const uint8_t* packed_in, int32_t width,
                                           int32_t height_bound, int32_t width_bound) {
    if (height_bound <= 0)
        return;
    // First band: the chroma of row 0 and nothing else.
    yuv422_row<false, true>(nullptr, first_out, second_out, packed_in, width_bound);
    // Later bands continue in the full 4:2:2 walk, luma included.
    for (int32_t r = 16; r < height_bound; r += 16)
        yuv422_band(y_out, first_out, second_out, packed_in, width, r, width_bound);
}
