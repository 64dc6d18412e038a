// Scalar upsampling: the twins of the vector cores in upsample_neon.cpp, the wrappers with
// their scalar edge block for an odd source width, and the scalar reference uv_upsample.
//
// Memory: the cores read source rows sy and sy + 1 (clamped to h - 1), columns up to
// max(sx + 2 clamped to w - 1, sx + 1) of each block, so within the w x h source when cols <= w;
// they write 8 * cols columns of each destination row and nothing else. The edge block reads
// source column w - 1 and writes destination columns 8w - 8 .. 8w - 1. uv_upsample reads the
// rows x cols source and writes 16 * rows rows of 8 * cols bytes.
#include "resample/upsample.h"

#include <stddef.h>

#include "platform/log.h"

namespace {

// Weighted sum of a 2 x 2 neighbourhood: vertical weights (wa, wb), horizontal (wl, wr), each
// pair summing to 16, so the total weight is 256 and the result fits 8 bits after the shift.
inline uint8_t bilinear(int32_t wa, int32_t wb, int32_t wl, int32_t wr, int32_t a0, int32_t a1,
                        int32_t b0, int32_t b1) {
    return static_cast<uint8_t>((wa * (wl * a0 + wr * a1) + wb * (wl * b0 + wr * b1)) >> 8);
}

// Chroma core for `vf` destination rows per source row (8 for 4:2:0, 16 for 4:2:2); rows k of
// an interval weigh the next source row by k * 16 / vf sixteenths.
template <int32_t vf>
void upsample_chroma_c(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h, int32_t cols) {
    const ptrdiff_t dst_stride = static_cast<ptrdiff_t>(8) * w;
    for (int32_t y0 = 0; y0 < vf * h; y0 += vf) {
        const int32_t sy = y0 / vf;
        const int32_t sy1 = sy + 1 < h ? sy + 1 : sy;
        const uint8_t* top = src + static_cast<ptrdiff_t>(sy) * w;
        const uint8_t* bottom = src + static_cast<ptrdiff_t>(sy1) * w;
        for (int32_t x0 = 0; x0 < 8 * cols; x0 += 16) {
            const int32_t sx = x0 / 8;
            const int32_t sx2 = sx + 2 < w ? sx + 2 : sx + 1;
            for (int32_t k = 0; k < vf; ++k) {
                const int32_t wb = k * (16 / vf);
                uint8_t* out = dst + (y0 + k) * dst_stride + x0;
                for (int32_t j = 0; j < 8; ++j) {
                    out[j] = bilinear(16 - wb, wb, 16 - 2 * j, 2 * j, top[sx], top[sx + 1],
                                      bottom[sx], bottom[sx + 1]);
                    out[8 + j] = bilinear(16 - wb, wb, 16 - 2 * j, 2 * j, top[sx + 1], top[sx2],
                                          bottom[sx + 1], bottom[sx2]);
                }
            }
        }
    }
}

// The wrappers: the scalar edge block for an odd w first, then the core on w rounded down to
// even.
template <int32_t vf>
void upsample_chroma_with(const upsample_args* rec, upsample_core core) {
    const int32_t w = rec->width;
    const int32_t h = rec->height;
    const uint8_t* src = rec->chroma_src;
    uint8_t* dst = rec->chroma_dst;
    const int32_t full = 8 * w;
    const int32_t main = full & ~15;
    const int32_t cols = main / 8;
    if (vf * h >= 1 && (w & 1)) {
        const int32_t x = main;
        const int32_t sx = x / 8;
        const int32_t sx1 = sx + 1 < w ? sx + 1 : sx;
        for (int32_t y = 0; y < vf * h; ++y) {
            const int32_t sy = y / vf;
            const int32_t sy1 = sy + 1 < h ? sy + 1 : sy;
            const int32_t wb = (y * (16 / vf)) % 16;
            const int32_t wa = 16 - wb;
            const uint8_t* top = src + static_cast<ptrdiff_t>(sy) * w;
            const uint8_t* bottom = src + static_cast<ptrdiff_t>(sy1) * w;
            uint8_t* out = dst + static_cast<ptrdiff_t>(y) * full + x;
            int32_t j = 0;
            if (vf == 16) {
                // Vertical interpolation only, in sixteenths: the j = 0 case of the general
                // formula with its horizontal factor 16 taken out.
                out[0] = static_cast<uint8_t>((wa * top[sx] + wb * bottom[sx]) >> 4);
                j = 1;
            }
            for (; j < 8; ++j)
                out[j] =
                    bilinear(wa, wb, 16 - 2 * j, 2 * j, top[sx], top[sx1], bottom[sx], bottom[sx1]);
        }
    }
    core(dst, src, w, h, cols);
}

}  // namespace

void upsample_uv420_c(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h, int32_t cols) {
    upsample_chroma_c<8>(dst, src, w, h, cols);
}

void upsample_uv_c(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h, int32_t cols) {
    upsample_chroma_c<16>(dst, src, w, h, cols);
}

void upsample_uv420_with(const upsample_args* rec, upsample_core core) {
    upsample_chroma_with<8>(rec, core);
}

void upsample_uv422_with(const upsample_args* rec, upsample_core core) {
    upsample_chroma_with<16>(rec, core);
}

void* upsample_uv420(void* rec) {
    upsample_uv420_with(static_cast<const upsample_args*>(rec), upsample_uv420_neon);
    return rec;
}

void* upsample_uv422(void* rec) {
    upsample_uv422_with(static_cast<const upsample_args*>(rec), upsample_uv_neon);
    return rec;
}

void upsample_y_c(uint8_t* dst, const uint8_t* src, int32_t w, int32_t h) {
    const ptrdiff_t dst_stride = static_cast<ptrdiff_t>(16) * w;
    for (int32_t y0 = 0; y0 < 16 * h; y0 += 16) {
        const int32_t sy = y0 / 16;
        const int32_t sy1 = sy + 1 < h ? sy + 1 : sy;
        const uint8_t* top = src + static_cast<ptrdiff_t>(sy) * w;
        const uint8_t* bottom = src + static_cast<ptrdiff_t>(sy1) * w;
        for (int32_t x0 = 0; x0 < 16 * w; x0 += 16) {
            const int32_t sx = x0 / 16;
            const int32_t sx1 = sx + 1 < w ? sx + 1 : sx;
            for (int32_t k = 0; k < 16; ++k) {
                uint8_t* out = dst + (y0 + k) * dst_stride + x0;
                for (int32_t j = 0; j < 16; ++j)
                    out[j] =
                        bilinear(16 - k, k, 16 - j, j, top[sx], top[sx1], bottom[sx], bottom[sx1]);
            }
        }
    }
}

void* upsample_y(void* rec) {
    const upsample_args* a = static_cast<const upsample_args*>(rec);
    upsample_y_neon(a->luma_dst, a->luma_src, a->width, a->height);
    return rec;
}

void uv_upsample_report(int32_t a, int32_t b, int32_t i, int32_t j, int32_t x, int32_t x1,
                        int32_t y, int32_t y1, int32_t v1, int32_t v2, int32_t v3, int32_t v4,
                        int32_t value) {
    VTR_LOGE("uv_upsample, a %d, b %d, i %d, j %d, x %d, x1 %d, y %d, y1 %d", a, b, i, j, x, x1, y,
             y1);
    VTR_LOGE("uv_upsample, value1 0x%x, value2 0x%x, value3 0x%x, value4 0x%x, tmp 0x%x", v1, v2,
             v3, v4, value);
}

int32_t uv_upsample(const uint8_t* src, uint8_t* dst, int32_t rows, int32_t cols) {
    const int32_t out_rows = 16 * rows;
    if (out_rows < 1)
        return out_rows;
    const int32_t out_cols = 8 * cols;
    for (int32_t i = 0; i < out_rows; ++i) {
        const int32_t x = i / 16;
        // Mirror about the last row; at the last row it gives that row itself.
        const int32_t x1 = x + 1 < rows ? x + 1 : 2 * rows - 2 - x;
        const int32_t a = 16 - i % 16;
        for (int32_t j = 0; j < out_cols; ++j) {
            const int32_t y = j / 8;
            const int32_t y1 = y + 1 < cols ? y + 1 : 2 * cols - 2 - y;
            const int32_t b = 16 - (2 * j) % 16;
            const int32_t v1 = src[x * cols + y];
            const int32_t v2 = src[x * cols + y1];
            const int32_t v3 = src[x1 * cols + y];
            const int32_t v4 = src[x1 * cols + y1];
            const int32_t value =
                (a * (b * v1 + (16 - b) * v2) + (16 - a) * (b * v3 + (16 - b) * v4)) >> 8;
            if (value < 0)
                uv_upsample_report(a, b, i, j, x, x1, y, y1, v1, v2, v3, v4, value);
            dst[static_cast<ptrdiff_t>(i) * out_cols + j] = static_cast<uint8_t>(value);
        }
    }
    return out_rows;
}
