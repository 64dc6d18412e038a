// The deinterleave stage's whole strip: the block-aligned part through the vector kernel, then
// the ragged right columns, the ragged bottom rows and the luma padding rows that the kernel
// does not cover; and the point decimation of a full-size plane to block resolution.
#include <stddef.h>
#include <string.h>

#include "resample/deinterleave.h"

namespace {

constexpr int32_t VTR_BLOCK = 16;        // luma block edge of the reduced planes
constexpr int32_t VTR_WIDTH_STEP = 128;  // the kernels' column step

// Block-plane position of the block at luma row r (a band start) and column x.
ptrdiff_t block_at(int32_t width, int32_t r, int32_t x) {
    return static_cast<ptrdiff_t>(r / VTR_BLOCK) * (width / VTR_BLOCK) + x / VTR_BLOCK;
}

// Rows strip_height .. hb + 15 of y_out repeat row strip_height - 1 (the padding rows below a
// ragged strip).
void pad_rows(uint8_t* y_out, int32_t width, int32_t strip_height, int32_t hb) {
    const uint8_t* last = y_out + static_cast<ptrdiff_t>(strip_height - 1) * width;
    for (int32_t r = strip_height; r < hb + VTR_BLOCK; ++r)
        memcpy(y_out + static_cast<ptrdiff_t>(r) * width, last, width);
}

// Luma of pixels [x0, x1) of packed row r into row r of y_out.
void copy_packed_luma(uint8_t* y_out, const uint8_t* packed_in, int32_t width, int32_t r,
                      int32_t x0, int32_t x1) {
    const ptrdiff_t w = width;
    const uint8_t* in = packed_in + 2 * (r * w);
    uint8_t* out = y_out + r * w;
    for (int32_t x = x0; x < x1; ++x)
        out[x] = in[2 * x];
}

// Chroma of the first pair of each 16-pixel group in [x0, x1) of packed row r, stored at the
// block position of band row `band_row`.
void sample_packed_chroma(uint8_t* first_out, uint8_t* second_out, const uint8_t* packed_in,
                          int32_t width, int32_t r, int32_t band_row, int32_t x0, int32_t x1) {
    const uint8_t* in = packed_in + 2 * (r * static_cast<ptrdiff_t>(width));
    for (int32_t x = x0; x < x1; x += VTR_BLOCK) {
        first_out[block_at(width, band_row, x)] = in[2 * x + 1];
        second_out[block_at(width, band_row, x)] = in[2 * x + 3];
    }
}

}  // namespace

void deinterleave_strip_420(uint8_t* first_out, uint8_t* second_out, const uint8_t* vu_in,
                            const uint8_t* y_in, uint8_t* y_out, int32_t width,
                            int32_t strip_height) {
    const int32_t w = width;
    const int32_t sh = strip_height;
    const int32_t wb = w & ~(VTR_WIDTH_STEP - 1);
    const int32_t hb = sh & ~(VTR_BLOCK - 1);
    deinterleave_yuv420_uv_downsample_neon(first_out, second_out, vu_in, wb, hb, w);
    if (hb >= 1 && wb < w) {
        for (int32_t r = 0; r < hb; r += VTR_BLOCK) {
            for (int32_t x = wb; x < w; x += VTR_BLOCK) {
                const uint8_t* pair = vu_in + static_cast<ptrdiff_t>(r / 2) * w + x;
                first_out[block_at(w, r, x)] = pair[0];
                second_out[block_at(w, r, x)] = pair[1];
            }
        }
    }
    if (sh % VTR_BLOCK != 0 && w >= 1) {
        for (int32_t x = 0; x < w; x += VTR_BLOCK) {
            const uint8_t* pair = vu_in + static_cast<ptrdiff_t>(hb) * (w / 2) + x;
            first_out[block_at(w, sh, x)] = pair[0];
            second_out[block_at(w, sh, x)] = pair[1];
        }
        for (int32_t r = hb; r < sh; ++r)
            memmove(y_out + static_cast<ptrdiff_t>(r) * w, y_in + static_cast<ptrdiff_t>(r) * w, w);
        pad_rows(y_out, w, sh, hb);
    }
}

void deinterleave_strip_422(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out,
                            const uint8_t* packed_in, int32_t width, int32_t strip_height) {
    const int32_t w = width;
    const int32_t sh = strip_height;
    const int32_t wb = w & ~(VTR_WIDTH_STEP - 1);
    const int32_t hb = sh & ~(VTR_BLOCK - 1);
    deinterleave_yuv422_uv_downsample_neon(y_out, first_out, second_out, packed_in, w, hb, wb);
    if (hb >= 1 && wb < w) {
        for (int32_t r = 0; r < hb; r += VTR_BLOCK) {
            copy_packed_luma(y_out, packed_in, w, r, wb, w);
            sample_packed_chroma(first_out, second_out, packed_in, w, r, r, wb, w);
            for (int32_t k = 1; k < VTR_BLOCK; ++k)
                copy_packed_luma(y_out, packed_in, w, r + k, wb, w);
        }
    }
    if (sh % VTR_BLOCK != 0 && w >= 1) {
        copy_packed_luma(y_out, packed_in, w, hb, 0, w);
        sample_packed_chroma(first_out, second_out, packed_in, w, hb, sh, 0, w);
        for (int32_t r = hb + 1; r < sh; ++r)
            copy_packed_luma(y_out, packed_in, w, r, 0, w);
        pad_rows(y_out, w, sh, hb);
    }
}

void decimate_plane_16(const uint8_t* src, int32_t width, int32_t height, uint8_t* dst) {
    const int32_t block_rows = height >> 4;
    const int32_t block_cols = width >> 4;
    const ptrdiff_t w = width;
    for (int32_t r = 0; r < block_rows; ++r)
        for (int32_t c = 0; c < block_cols; ++c)
            dst[r * block_cols + c] = src[16 * r * w + 16 * c];
}
