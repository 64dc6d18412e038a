// Restore interleave and saturation: writes the rebuilt luma and the blended chroma back in the
// frame's own layout.
//
// Chroma blend, per pair with input bytes c1, c2 and upsampled f1, f2, and S taken as a signed
// 16-bit value (its low 16 bits):
//   sad = |c1 - f1| + |c2 - f2|;
//   n = sad * 64 + (S >> 1), wrapped to 16 bits and read as signed;
//   w = n / S truncating toward zero (0 when S is 0), clamped to 0 .. 64;
//   out = ((64 - w) * f + w * c) >> 6 for both bytes of the pair.
// So a pair whose distance from the smoothed colour is S or more keeps its input colour.
//
// Luma: t = clamp(a + b - 128, 0, 255) from the two component planes, pulled towards the input
// luma yo. 4:2:0: d = min(|t - yo|, DM), result ((DM - d) * t + d * yo) >> log2(DM), with DM 4
// for preview (scenario 1) and 2 otherwise. 4:2:2: d = clamp(|t - yo| - 1, 0, 2), result
// ((2 - d) * t + d * yo) >> 1.
//
// Every plane is walked as one continuous run of bytes: each row stride equals what a row
// consumes. Each vector kernel (_neon, exported) has a scalar twin (_c, hidden) giving the same
// bytes.
#ifndef VANTOR_RESAMPLE_RESTORE_H
#define VANTOR_RESAMPLE_RESTORE_H

#include <stdint.h>

#include "vantor_kernels.h"

// 4:2:0: height rows of width luma bytes from y_in, y_comp_a, y_comp_b to y_out; then
// (unsigned) height / 2 rows of width VU bytes from vu_in, with width / 2 bytes per row from
// up_first (first byte of each pair) and up_second, to vu_out. y_out may equal y_in and vu_out
// may equal vu_in (each 16-byte block is read before it is written); other overlaps are not
// allowed. Accepts width a positive multiple of 16 and height >= 1; any other width or a
// height <= 0 writes nothing.
// (restore_interleave_yuv420_neon: declared in vantor_kernels.h)
void restore_interleave_yuv420_c(const uint8_t* y_in, const uint8_t* vu_in, const uint8_t* y_comp_a,
                                 const uint8_t* y_comp_b, const uint8_t* up_first,
                                 const uint8_t* up_second, int32_t width, int32_t height, int32_t S,
                                 uint8_t* y_out, uint8_t* vu_out, int32_t scenario);

// Packed 4:2:2 in place: height rows of 2 * width bytes (Y0 C1 Y1 C2); width luma bytes per row
// from each component plane, width / 2 bytes per row from each upsampled plane (up_first with
// C1). Accepts width a positive multiple of 16 and height >= 1; otherwise writes nothing.
// (restore_interleave_yuv422_neon: declared in vantor_kernels.h)
void restore_interleave_yuv422_c(uint8_t* frame, const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                 const uint8_t* up_first, const uint8_t* up_second, int32_t width,
                                 int32_t height, int32_t S);

// 4:2:0 chroma only: y_in, y_comp_a and y_comp_b are not read. Each of `rows` rows takes one
// 16-byte step (8 pairs) for every 32 of width, i.e. 16 * ceil(width / 32) VU bytes and half as
// many bytes of each upsampled plane: width / 2 bytes when width is a multiple of 32, so the
// luma height as `rows` covers a whole VU plane. vu_out may equal vu_in. Accepts width a
// positive multiple of 16 and rows >= 1; otherwise writes nothing.
// (restore_interleave_uv420_neon: declared in vantor_kernels.h)
void restore_interleave_uv420_c(const uint8_t* y_in, const uint8_t* vu_in, const uint8_t* y_comp_a,
                                const uint8_t* y_comp_b, const uint8_t* up_first,
                                const uint8_t* up_second, int32_t width, int32_t rows, int32_t S,
                                uint8_t* vu_out);

// Packed 4:2:2 chroma only, in place: y_comp_a and y_comp_b are not read and the luma bytes
// are written back as read. Same accepted sizes as restore_interleave_yuv422_neon.
// (restore_interleave_uv422_neon: declared in vantor_kernels.h)
void restore_interleave_uv422_c(uint8_t* frame, const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                const uint8_t* up_first, const uint8_t* up_second, int32_t width,
                                int32_t height, int32_t S);

// The blend weights of `count` numerators n (each sad * 64 + (S >> 1), wrapped to 16 bits) for
// one saturation value: clamp(n / S, 0, 64), 0 when S is 0. The vector form runs the kernels'
// multiply-and-shift division and takes count a multiple of 8; the scalar form divides.
void restore_blend_weights_neon(const int16_t* n, int32_t count, int32_t S, uint8_t* weights);
void restore_blend_weights_c(const int16_t* n, int32_t count, int32_t S, uint8_t* weights);

#endif  // VANTOR_RESAMPLE_RESTORE_H
