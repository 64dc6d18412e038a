// Scalar restore interleave: the readable truth of restore_neon.cpp, pixel by pixel, with the
// plain signed division for the blend weight.
//
// Memory: reads and writes exactly the runs the kernels' comments in restore.h give (for the
// 4:2:0 chroma-only kernel 16 * ceil(width / 32) VU bytes per row); each output byte is
// written after its own input byte was read, so in-place calls are safe.
#include "resample/restore.h"

#include <stddef.h>

namespace {

// Blend weights are in 64ths.
constexpr int32_t VTR_BLEND_ONE = 64;

inline int32_t clamp(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

inline bool size_ok(int32_t width, int32_t rows) {
    return width > 0 && (width & 15) == 0 && rows > 0;
}

// The weight of the input pair, 0 .. 64, for the numerator n; the division is C's, on the
// promoted values.
inline int32_t weight_of(int16_t n, int16_t s) {
    const int32_t w = s != 0 ? n / s : 0;
    return clamp(w, 0, VTR_BLEND_ONE);
}

// The weight for a pair distance sad (0 .. 510); the numerator is kept to 16 bits as in the
// vector lanes.
inline int32_t blend_weight(int32_t sad, int16_t s) {
    return weight_of(static_cast<int16_t>(static_cast<uint16_t>(sad * VTR_BLEND_ONE + (s >> 1))),
                     s);
}

inline uint8_t blend(int32_t w, int32_t f, int32_t c) {
    return static_cast<uint8_t>(clamp(((VTR_BLEND_ONE - w) * f + w * c) >> 6, 0, 255));
}

// Blends one pair in place in out[0], out[1], reading the input pair from in[0], in[1].
inline void blend_pair(const uint8_t* in, uint8_t f1, uint8_t f2, int16_t s, uint8_t* out) {
    const int32_t c1 = in[0], c2 = in[1];
    const int32_t sad = (c1 > f1 ? c1 - f1 : f1 - c1) + (c2 > f2 ? c2 - f2 : f2 - c2);
    const int32_t w = blend_weight(sad, s);
    out[0] = blend(w, f1, c1);
    out[1] = blend(w, f2, c2);
}

inline int32_t rebuilt_luma(int32_t a, int32_t b) {
    // The detail plane carries the luma detail biased by 128.
    return clamp(a + b - 128, 0, 255);
}

// 4:2:0 luma, step limit dm = 1 << shift.
inline uint8_t luma420(int32_t a, int32_t b, int32_t yo, int32_t dm, int32_t shift) {
    const int32_t t = rebuilt_luma(a, b);
    const int32_t d = clamp(t > yo ? t - yo : yo - t, 0, dm);
    return static_cast<uint8_t>(((dm - d) * t + d * yo) >> shift);
}

// 4:2:2 luma: a dead zone of one code, then a limit of 2.
inline uint8_t luma422(int32_t a, int32_t b, int32_t yo) {
    const int32_t t = rebuilt_luma(a, b);
    const int32_t d = clamp((t > yo ? t - yo : yo - t) - 1, 0, 2);
    return static_cast<uint8_t>(((2 - d) * t + d * yo) >> 1);
}

void yuv422_walk(uint8_t* frame, const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                 const uint8_t* up_first, const uint8_t* up_second, int32_t width, int32_t height,
                 int32_t S, bool with_luma) {
    if (!size_ok(width, height))
        return;
    const int16_t s = static_cast<int16_t>(S);
    const ptrdiff_t pairs = static_cast<ptrdiff_t>(height) * (width / 2);
    for (ptrdiff_t i = 0; i < pairs; ++i) {
        uint8_t* g = frame + 4 * i;
        if (with_luma) {
            g[0] = luma422(y_comp_a[2 * i], y_comp_b[2 * i], g[0]);
            g[2] = luma422(y_comp_a[2 * i + 1], y_comp_b[2 * i + 1], g[2]);
        }
        // C1 and C2 sit at offsets 1 and 3: blend them as one pair.
        uint8_t in[2] = {g[1], g[3]};
        uint8_t out[2];
        blend_pair(in, up_first[i], up_second[i], s, out);
        g[1] = out[0];
        g[3] = out[1];
    }
}

}  // namespace

void restore_interleave_yuv420_c(const uint8_t* y_in, const uint8_t* vu_in, const uint8_t* y_comp_a,
                                 const uint8_t* y_comp_b, const uint8_t* up_first,
                                 const uint8_t* up_second, int32_t width, int32_t height, int32_t S,
                                 uint8_t* y_out, uint8_t* vu_out, int32_t scenario) {
    if (!size_ok(width, height))
        return;
    const int32_t shift = scenario == 1 ? 2 : 1;
    const int32_t dm = 1 << shift;
    const ptrdiff_t pixels = static_cast<ptrdiff_t>(height) * width;
    for (ptrdiff_t i = 0; i < pixels; ++i)
        y_out[i] = luma420(y_comp_a[i], y_comp_b[i], y_in[i], dm, shift);

    const int16_t s = static_cast<int16_t>(S);
    const ptrdiff_t pairs =
        static_cast<ptrdiff_t>(static_cast<uint32_t>(height) >> 1) * (width / 2);
    for (ptrdiff_t i = 0; i < pairs; ++i)
        blend_pair(vu_in + 2 * i, up_first[i], up_second[i], s, vu_out + 2 * i);
}

void restore_interleave_yuv422_c(uint8_t* frame, const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                 const uint8_t* up_first, const uint8_t* up_second, int32_t width,
                                 int32_t height, int32_t S) {
    yuv422_walk(frame, y_comp_a, y_comp_b, up_first, up_second, width, height, S, true);
}

void restore_interleave_uv420_c(const uint8_t* y_in, const uint8_t* vu_in, const uint8_t* y_comp_a,
                                const uint8_t* y_comp_b, const uint8_t* up_first,
                                const uint8_t* up_second, int32_t width, int32_t rows, int32_t S,
                                uint8_t* vu_out) {
    if (!size_ok(width, rows))
        return;
    const int16_t s = static_cast<int16_t>(S);
    // The column counter advances by 32 per 8-pair step.
    const ptrdiff_t steps = static_cast<ptrdiff_t>(rows) * ((width + 31) / 32);
    for (ptrdiff_t i = 0; i < 8 * steps; ++i)
        blend_pair(vu_in + 2 * i, up_first[i], up_second[i], s, vu_out + 2 * i);
}

void restore_interleave_uv422_c(uint8_t* frame, const uint8_t* y_comp_a, const uint8_t* y_comp_b,
                                const uint8_t* up_first, const uint8_t* up_second, int32_t width,
                                int32_t height, int32_t S) {
    yuv422_walk(frame, y_comp_a, y_comp_b, up_first, up_second, width, height, S, false);
}

void restore_blend_weights_c(const int16_t* n, int32_t count, int32_t S, uint8_t* weights) {
    const int16_t s = static_cast<int16_t>(S);
    for (int32_t i = 0; i < count; ++i)
        weights[i] = static_cast<uint8_t>(weight_of(n[i], s));
}
