// Deinterleave and downsample: splits interleaved chroma (the VU plane of NV21, or packed
// 4:2:2) into two block-resolution planes by point decimation, one sample per 16 x 16 block of
// luma, and for 4:2:2 also copies the luma out into a plane of its own.
//
// Each vector kernel (_neon, exported) has a scalar twin (_c, hidden) that follows the same
// rules and gives the same bytes. Sizes are signed; every loop bound is compared as a signed
// value, so a bound of zero or below writes nothing.
#ifndef VANTOR_RESAMPLE_DEINTERLEAVE_H
#define VANTOR_RESAMPLE_DEINTERLEAVE_H

#include <stdint.h>

#include "vantor_kernels.h"

// NV21 VU plane to two block planes. For each band start r = 0, 16, ... below height_bound,
// VU row r / 2 (at vu_in + (stride / 2) * r) is read in steps of 128 bytes while the byte
// position is below width_bound; pairs 0, 8, ..., 56 of each step go to output row r / 16
// (offset (stride / 16) * (r / 16)): their first byte to first_out, their second to second_out.
// Accepts width_bound a multiple of 128 with width_bound <= stride, height_bound >= 0, stride a
// multiple of 16. Reads bytes [0, width_bound) of every eighth VU row below height_bound
// (rounded up to 16); writes width_bound / 16 values per output row. width_bound <= 0 or
// height_bound <= 0 writes nothing. A width_bound that is not a multiple of 128 is covered in
// whole 128-byte steps, so the row must then hold width_bound rounded up to 128 bytes.
// (deinterleave_yuv420_uv_downsample_neon: declared in vantor_kernels.h)
void deinterleave_yuv420_uv_downsample_c(uint8_t* first_out, uint8_t* second_out,
                                         const uint8_t* vu_in, int32_t width_bound,
                                         int32_t height_bound, int32_t stride);

// Packed 4:2:2 (groups Y0 C1 Y1 C2, row stride 2 * width) to planar luma (stride width) and
// two block planes (stride width / 16). For each band start r = 0, 16, ... below height_bound:
// row r is walked in steps of 128 pixels while the pixel is below width_bound, every luma byte
// goes to y_out and the first group of every 16 pixels gives one value to first_out (its C1)
// and second_out (its C2) at output row r / 16; then rows r + 1 .. r + 15 (always 15 of them)
// copy luma only. Accepts width a positive multiple of 16, width_bound a multiple of 128 with
// width_bound <= width, height_bound >= 0. A height_bound that is not a multiple of 16 still
// runs whole bands: the input and y_out must then hold height_bound rounded up to 16 rows.
// width_bound <= 0 or height_bound <= 0 writes nothing. A width_bound that is not a multiple
// of 128 is covered in whole 128-pixel steps and needs rows that long.
// (deinterleave_yuv422_uv_downsample_neon: declared in vantor_kernels.h)
void deinterleave_yuv422_uv_downsample_c(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out,
                                         const uint8_t* packed_in, int32_t width,
                                         int32_t height_bound, int32_t width_bound);

// As deinterleave_yuv422_uv_downsample_neon, except that the first band (rows 0 .. 15) yields
// only the chroma of row 0: no luma is written for it and rows 1 .. 15 are not read. From the
// second band on the full 4:2:2 walk runs, luma included, so y_out must be a valid luma plane
// whenever height_bound exceeds 16. Same accepted sizes; height_bound <= 0 writes nothing.
// (deinterleave_uv422_uv_downsample_neon: declared in vantor_kernels.h)
void deinterleave_uv422_uv_downsample_c(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out,
                                        const uint8_t* packed_in, int32_t width,
                                        int32_t height_bound, int32_t width_bound);

// Scalar decimator of one plane by 8 along a row and 16 across rows: for k below rows >> 4 and
// j below row_len >> 3, dst[k * (row_len >> 3) + j] = src[16 * row_len * k + 8 * j]. Writes
// nothing when rows < 16 or row_len < 8.
// (uv_downsample: declared in vantor_kernels.h)

// One strip of the deinterleave stage, whole: the vector kernel over the block-aligned part
// (columns below width & ~127, rows below strip_height & ~15), then the ragged edges. Right
// edge: for every band, each 16-column group from width & ~127 gives its first pair (4:2:2: and
// the group's luma of all 16 rows). Bottom edge, when strip_height is not a multiple of 16: the
// band at hb = strip_height & ~15 samples its first row over the whole width into block row
// strip_height / 16, copies luma rows hb .. strip_height - 1 (4:2:0: from y_in, which may equal
// y_out) and fills rows strip_height .. hb + 15 of y_out with copies of row strip_height - 1.
// width is a positive multiple of 16; the VU plane has width bytes per row pair.
void deinterleave_strip_420(uint8_t* first_out, uint8_t* second_out, const uint8_t* vu_in,
                            const uint8_t* y_in, uint8_t* y_out, int32_t width,
                            int32_t strip_height);
void deinterleave_strip_422(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out,
                            const uint8_t* packed_in, int32_t width, int32_t strip_height);

// Point decimation by 16 both ways: dst[r * (width >> 4) + c] = src[16 * r * width + 16 * c]
// for r below height >> 4 and c below width >> 4; nothing when either is below 1.
void decimate_plane_16(const uint8_t* src, int32_t width, int32_t height, uint8_t* dst);

#endif  // VANTOR_RESAMPLE_DEINTERLEAVE_H
