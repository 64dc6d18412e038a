// Scalar deinterleave and downsample: the readable truth of deinterleave_neon.cpp, walking the
// planes in the same bands and steps and producing the same bytes.
//
// Memory: the NV21 kernel reads bytes [0, width_bound) (whole 128-byte steps) of VU rows 0, 8,
// 16, ... below height_bound / 2 rounded up to 8; the 4:2:2 kernels read 2 * width_bound bytes
// (whole 256-byte steps) of every row of every band they run. Nothing is written outside the
// covered part of each output: width_bound / 16 values per block row, width_bound luma bytes
// per row.
#include "resample/deinterleave.h"

#include <stddef.h>

namespace {

// Units per vector step: 128 bytes of a VU row (64 pairs, 8 output values) or 128 pixels of a
// packed 4:2:2 row (256 bytes, 8 output values). One output value per 16 luma pixels, which
// is 16 bytes of a VU row and 16 pixels of a packed row.
constexpr int32_t VTR_DEINT_STEP = 128;

// Row r of a 4:2:2 band: luma of the covered pixels (when with_luma) and, on the first row of
// a band (when with_chroma), the chroma pair of the first group of every 16 pixels.
void yuv422_row(uint8_t* y_row, uint8_t* first_row, uint8_t* second_row, const uint8_t* in,
                int32_t width_bound, bool with_luma, bool with_chroma) {
    for (int32_t x = 0; x < width_bound; x += VTR_DEINT_STEP) {
        for (int32_t p = x; p < x + VTR_DEINT_STEP; p += 16) {
            const uint8_t* g = in + 2 * p;
            if (with_luma) {
                for (int32_t i = 0; i < 16; ++i)
                    y_row[p + i] = g[2 * i];
            }
            if (with_chroma) {
                first_row[p / 16] = g[1];
                second_row[p / 16] = g[3];
            }
        }
    }
}

// One 16-row band of the full 4:2:2 walk starting at row r.
void yuv422_band(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out, const uint8_t* packed_in,
                 int32_t width, int32_t r, int32_t width_bound) {
    const ptrdiff_t out_offset = static_cast<ptrdiff_t>(width / 16) * (r / 16);
    for (int32_t k = 0; k < 16; ++k) {
        const ptrdiff_t row = r + k;
        yuv422_row(y_out + row * width, first_out + out_offset, second_out + out_offset,
                   packed_in + row * 2 * width, width_bound, true, k == 0);
    }
}

}  // namespace

void deinterleave_yuv420_uv_downsample_c(uint8_t* first_out, uint8_t* second_out,
                                         const uint8_t* vu_in, int32_t width_bound,
                                         int32_t height_bound, int32_t stride) {
    for (int32_t r = 0; r < height_bound; r += 16) {
        const uint8_t* in = vu_in + static_cast<ptrdiff_t>(stride / 2) * r;
        const ptrdiff_t out_offset = static_cast<ptrdiff_t>(stride / 16) * (r / 16);
        for (int32_t x = 0; x < width_bound; x += VTR_DEINT_STEP) {
            for (int32_t b = x; b < x + VTR_DEINT_STEP; b += 16) {
                first_out[out_offset + b / 16] = in[b];
                second_out[out_offset + b / 16] = in[b + 1];
            }
        }
    }
}

void deinterleave_yuv422_uv_downsample_c(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out,
                                         const uint8_t* packed_in, int32_t width,
                                         int32_t height_bound, int32_t width_bound) {
    for (int32_t r = 0; r < height_bound; r += 16)
        yuv422_band(y_out, first_out, second_out, packed_in, width, r, width_bound);
}

void deinterleave_uv422_uv_downsample_c(uint8_t* y_out, uint8_t* first_out, uint8_t* second_out,
                                        const uint8_t* packed_in, int32_t width,
                                        int32_t height_bound, int32_t width_bound) {
    if (height_bound <= 0)
        return;
    // First band: chroma of row 0 only.
    yuv422_row(nullptr, first_out, second_out, packed_in, width_bound, false, true);
    for (int32_t r = 16; r < height_bound; r += 16)
        yuv422_band(y_out, first_out, second_out, packed_in, width, r, width_bound);
}

void uv_downsample(const uint8_t* src, uint8_t* dst, int32_t rows, int32_t row_len) {
    const int32_t out_rows = rows >> 4;
    const int32_t out_cols = row_len >> 3;
    if (out_rows < 1)
        return;
    for (int32_t k = 0; k < out_rows; ++k) {
        const uint8_t* in = src + static_cast<ptrdiff_t>(16) * row_len * k;
        for (int32_t j = 0; j < out_cols; ++j)
            *dst++ = in[8 * j];
    }
}
