// Twin cases of the resample kernels: deinterleave, upsampling and restore, each vector kernel
// against its scalar twin on random sizes and contents in page-end guarded buffers, plus a
// sweep of the blend divisor over every signed 16-bit value.
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "resample/deinterleave.h"
#include "resample/restore.h"
#include "resample/upsample.h"
#include "twin/twin.h"

namespace {

using twin::input;

// 1080p geometry for the bench functions: width and luma rows (aligned to 16).
constexpr int kBenchW = 1920;
constexpr int kBenchH = 1088;

// ---- Deinterleave -------------------------------------------------------------------------

// Frame sizes as the deinterleave worker sees them: a width (multiple of 16) and a strip
// height, from which it derives the kernel's bounds.
struct strip {
    int width, height, width_bound, height_bound;
};

strip random_strip(vtest::rng& r) {
    const int width = 16 * r.range(1, 90);
    const int height = r.range(0, 4) == 0 ? r.range(1, 40) : r.range(1, 200);
    return {width, height, width & ~127, height & ~15};
}

bool deinterleave_yuv420_trial(twin::context& ctx) {
    const strip s = random_strip(ctx.r);
    // VU plane of height / 2 rows; the kernel reads rows 0, 8, ... below height_bound / 2.
    const input vu(s.width, s.height / 2, ctx.r);
    const size_t blocks = static_cast<size_t>(s.height_bound / 16) * (s.width / 16);
    return twin::twins(
        ctx, vu.label(s.width, s.height), {blocks, blocks}, [&](bool v, uint8_t** o) {
            (v ? deinterleave_yuv420_uv_downsample_neon : deinterleave_yuv420_uv_downsample_c)(
                o[0], o[1], vu.data(), s.width_bound, s.height_bound, s.width);
        });
}

void deinterleave_yuv420_bench(twin::bench_timer& timer) {
    std::vector<uint8_t> vu(kBenchW * kBenchH / 2, 77), out(kBenchW * kBenchH / 128);
    timer.pair("1080p (VU plane)", vu.size(), [&](bool v) {
        (v ? deinterleave_yuv420_uv_downsample_neon : deinterleave_yuv420_uv_downsample_c)(
            out.data(), out.data() + out.size() / 2, vu.data(), kBenchW, kBenchH, kBenchW);
    });
}

using deinterleave422_fn = void (*)(uint8_t*, uint8_t*, uint8_t*, const uint8_t*, int32_t, int32_t,
                                    int32_t);

// Both 4:2:2 kernels; one trial in four gives a height_bound that is not a multiple of 16,
// with planes that hold the whole last band the kernels then run.
template <deinterleave422_fn Scalar, deinterleave422_fn Vector>
bool deinterleave_422_trial(twin::context& ctx) {
    strip s = random_strip(ctx.r);
    if (ctx.r.range(0, 3) == 0)
        s.height_bound = s.height;
    const int bands = (s.height_bound + 15) / 16;
    const int rows = std::max(16 * bands, s.height);
    const input packed(2 * s.width, rows, ctx.r);
    const size_t blocks = static_cast<size_t>(bands) * (s.width / 16);
    return twin::twins(
        ctx, packed.label(s.width, s.height) + " height_bound " + std::to_string(s.height_bound),
        {static_cast<size_t>(rows) * s.width, blocks, blocks}, [&](bool v, uint8_t** o) {
            (v ? Vector : Scalar)(o[0], o[1], o[2], packed.data(), s.width, s.height_bound,
                                  s.width_bound);
        });
}

template <deinterleave422_fn Scalar, deinterleave422_fn Vector>
void deinterleave_422_bench(twin::bench_timer& timer) {
    std::vector<uint8_t> packed(2 * kBenchW * kBenchH, 77), y(kBenchW * kBenchH),
        out(kBenchW * kBenchH / 128);
    timer.pair("1080p (packed frame)", packed.size(), [&](bool v) {
        (v ? Vector : Scalar)(y.data(), out.data(), out.data() + out.size() / 2, packed.data(),
                              kBenchW, kBenchH, kBenchW);
    });
}

// ---- Upsampling -------------------------------------------------------------------------

upsample_args record(uint8_t* dst, const uint8_t* src, int w, int h) {
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = rec.luma_src = src;
    rec.chroma_dst = rec.luma_dst = dst;
    return rec;
}

// The chroma wrappers (scalar edge block, then the core on the even part; the scalar side runs
// the same wrapper with the scalar core, so the cores are compared on every column they cover)
// and the luma upsampler, all from a w x h block plane.
struct upsampler {
    size_t out_per_sample;
    int bench_w;  // blocks across; odd for the chroma, so that the edge block is timed too
    void (*run)(bool vector, uint8_t* dst, const uint8_t* src, int w, int h);
};

const upsampler kUpsamplers[] = {
    {64, 121,
     [](bool v, uint8_t* d, const uint8_t* s, int w, int h) {
         upsample_args rec = record(d, s, w, h);
         v ? (void)upsample_uv420(&rec) : upsample_uv420_with(&rec, upsample_uv420_c);
     }},
    {128, 121,
     [](bool v, uint8_t* d, const uint8_t* s, int w, int h) {
         upsample_args rec = record(d, s, w, h);
         v ? (void)upsample_uv422(&rec) : upsample_uv422_with(&rec, upsample_uv_c);
     }},
    {256, 120,
     [](bool v, uint8_t* d, const uint8_t* s, int w, int h) {
         upsample_args rec = record(d, s, w, h);
         v ? (void)upsample_y(&rec) : upsample_y_c(d, s, w, h);
     }},
};

// Block planes of mostly odd widths, small ones often, down to 1 x 1 and 0 rows.
template <int I>
bool upsample_trial(twin::context& ctx) {
    int w = ctx.r.range(0, 2) == 0 ? ctx.r.range(1, 6) : ctx.r.range(1, 130);
    if (ctx.r.range(0, 2) != 0)
        w |= 1;
    const int h = ctx.r.range(0, 3) == 0 ? ctx.r.range(0, 3) : ctx.r.range(1, 70);
    const input src(w, h, ctx.r);
    return twin::twins(ctx, src.label(w, h), {kUpsamplers[I].out_per_sample * w * h},
                       [&](bool v, uint8_t** o) { kUpsamplers[I].run(v, o[0], src.data(), w, h); });
}

template <int I>
void upsample_bench(twin::bench_timer& timer) {
    const int w = kUpsamplers[I].bench_w, h = kBenchH / 16;
    std::vector<uint8_t> src(w * h, 90), dst(kUpsamplers[I].out_per_sample * w * h);
    timer.pair(std::to_string(w) + " blocks by 68 (output plane)", dst.size(),
               [&](bool v) { kUpsamplers[I].run(v, dst.data(), src.data(), w, h); });
}

// The reference upsampler has the 4:2:2 geometry and weights, and its mirror rule picks the
// border sample, so it matches the 4:2:2 wrapper everywhere; it returns 16 * rows.
bool uv_upsample_trial(twin::context& ctx) {
    const int w = ctx.r.range(1, 20), h = ctx.r.range(-1, 20);
    const input src(w, h, ctx.r);
    int32_t returned = 0;
    return twin::twins(ctx, src.label(w, h), {static_cast<size_t>(128) * w * std::max(h, 0)},
                       [&](bool v, uint8_t** o) {
                           upsample_args rec = record(o[0], src.data(), w, h);
                           if (v)
                               returned = uv_upsample(src.data(), o[0], h, w);
                           else
                               upsample_uv422_with(&rec, upsample_uv_c);
                       }) &&
           (returned == 16 * h || ctx.fail("uv_upsample returned " + std::to_string(returned)));
}

// Every 16th row and 8th column of a source that ends at the last sample taken.
bool uv_downsample_trial(twin::context& ctx) {
    const int rows = ctx.r.range(-16, 80), len = ctx.r.range(-8, 300);
    const int k = rows >> 4, j = len >> 3;
    const bool any = k >= 1 && j >= 1;
    const input src(any ? 16 * len * (k - 1) + 8 * (j - 1) + 1 : 0, 1, ctx.r);
    const std::string what = std::to_string(rows) + " rows of " + std::to_string(len);
    return twin::twins(ctx, what, {any ? static_cast<size_t>(k) * j : 0}, [&](bool v, uint8_t** o) {
        for (int a = 0; a < k && !v; ++a)
            for (int b = 0; b < j; ++b)
                o[0][a * j + b] = src.data()[16 * len * a + 8 * b];
        if (v)
            uv_downsample(src.data(), o[0], rows, len);
    });
}

// ---- Restore ------------------------------------------------------------------------------

// Saturation values: the two scenario values, zero, the wrapping 256, and anything else a
// caller could pass, including values outside 16 bits (only their low 16 bits count).
int32_t random_saturation(vtest::rng& r) {
    const int32_t fixed[] = {12, 4, 0, 256};
    const int k = r.range(0, 7);
    return k < 4    ? fixed[k]
           : k == 4 ? r.range(-64, 64)
           : k == 5 ? r.range(-32768, 32767)
           : k == 6 ? static_cast<int32_t>(r.next())
                    : r.range(1, 600);
}

// Upsampled chroma of `count` bytes: an independent pattern, or the input chroma (taken from
// chroma[0], chroma[step], ...) plus small noise, so that pair distances land around the
// saturation value as they do in real frames.
struct upsampled : input {
    upsampled(size_t count, const uint8_t* chroma, int step, vtest::rng& r)
        : input(static_cast<int>(count), 1, r) {
        if (count == 0 || r.range(0, 1) == 0)
            return;
        const int spread = r.range(0, 12);
        for (size_t i = 0; i < count; ++i)
            data()[i] = static_cast<uint8_t>(
                std::min(255, std::max(0, chroma[i * step] + r.range(-spread, spread))));
    }
};

std::string restore_what(int width, int height, int32_t S, bool in_place) {
    return std::to_string(width) + "x" + std::to_string(height) + " S " + std::to_string(S) +
           (in_place ? " in place" : "");
}

// Half of the trials run the vector kernel in place, as the pipeline calls it, the other half
// into separate outputs, so that reading an output instead of an input shows either way.
bool restore_yuv420_trial(twin::context& ctx) {
    vtest::rng& r = ctx.r;
    const int width = 16 * r.range(1, 60), height = r.range(1, 80);
    const int32_t S = random_saturation(r);
    const int scenario = r.range(0, 3) == 3 ? r.range(-5, 5) : r.range(0, 1);
    const bool in_place = r.range(0, 1);
    const size_t luma = static_cast<size_t>(width) * height;
    const size_t vu_bytes = static_cast<size_t>(height / 2) * width;
    const input y(width, height, r), a(width, height, r), b(width, height, r),
        vu(width, height / 2, r);
    const upsampled up1(vu_bytes / 2, vu.data(), 2, r), up2(vu_bytes / 2, vu.data() + 1, 2, r);
    return twin::twins(
        ctx, restore_what(width, height, S, in_place) + " scenario " + std::to_string(scenario),
        {luma, vu_bytes}, [&](bool v, uint8_t** o) {
            const uint8_t* y_in = y.data();
            const uint8_t* vu_in = vu.data();
            if (v && in_place) {
                memcpy(o[0], y_in, luma);
                memcpy(o[1], vu_in, vu_bytes);
                y_in = o[0];
                vu_in = o[1];
            }
            (v ? restore_interleave_yuv420_neon : restore_interleave_yuv420_c)(
                y_in, vu_in, a.data(), b.data(), up1.data(), up2.data(), width, height, S, o[0],
                o[1], scenario);
        });
}

bool restore_uv420_trial(twin::context& ctx) {
    vtest::rng& r = ctx.r;
    const int width = 16 * r.range(1, 60), rows = r.range(1, 80);
    const int32_t S = random_saturation(r);
    const bool in_place = r.range(0, 1);
    // 16 VU bytes per row for every 32 of width (rounded up).
    const size_t vu_bytes = static_cast<size_t>(rows) * 16 * ((width + 31) / 32);
    const input vu(static_cast<int>(vu_bytes), 1, r);
    const upsampled up1(vu_bytes / 2, vu.data(), 2, r), up2(vu_bytes / 2, vu.data() + 1, 2, r);
    return twin::twins(
        ctx, restore_what(width, rows, S, in_place), {vu_bytes}, [&](bool v, uint8_t** o) {
            const uint8_t* in = vu.data();
            if (v && in_place) {
                memcpy(o[0], in, vu_bytes);
                in = o[0];
            }
            // The luma arguments are not read: null pointers prove it.
            (v ? restore_interleave_uv420_neon : restore_interleave_uv420_c)(
                nullptr, in, nullptr, nullptr, up1.data(), up2.data(), width, rows, S, o[0]);
        });
}

using restore422_fn = void (*)(uint8_t*, const uint8_t*, const uint8_t*, const uint8_t*,
                               const uint8_t*, int32_t, int32_t, int32_t);

template <restore422_fn Scalar, restore422_fn Vector>
bool restore_422_trial(twin::context& ctx) {
    vtest::rng& r = ctx.r;
    const int width = 16 * r.range(1, 60), height = r.range(1, 60);
    const int32_t S = random_saturation(r);
    const size_t luma = static_cast<size_t>(width) * height;
    const input frame(2 * width, height, r), a(width, height, r), b(width, height, r);
    const upsampled up1(luma / 2, frame.data() + 1, 4, r), up2(luma / 2, frame.data() + 3, 4, r);
    return twin::twins(ctx, restore_what(width, height, S, true), {2 * luma},
                       [&](bool v, uint8_t** o) {
                           memcpy(o[0], frame.data(), 2 * luma);
                           (v ? Vector : Scalar)(o[0], a.data(), b.data(), up1.data(), up2.data(),
                                                 width, height, S);
                       });
}

// Every saturation value a kernel can be given, against every pair distance: the vector
// division must agree with the plain division of the scalar twin, both in the weights
// themselves and in the blended bytes. The first trial sweeps all 65536 values of S (the
// kernels use S as a signed 16-bit value); later trials take 256 random values with fresh
// contents.
bool restore_divide_sweep_trial(twin::context& ctx) {
    static bool swept = false;
    vtest::rng& r = ctx.r;
    // One row of 512 pairs: distances 0 .. 510 split over the two bytes in random ways, and
    // one more random pair.
    constexpr int kPairs = 512;
    constexpr int kWidth = 2 * kPairs;
    std::vector<uint8_t> vu(kWidth), up1(kPairs), up2(kPairs), out_c(kWidth), out_v(kWidth);
    // One byte of a pair and its upsampled value d apart, either of them the larger.
    auto put = [&](uint8_t& in, uint8_t& upsampled, int d) {
        const int c = r.range(0, 255 - d);
        const bool swap = r.range(0, 1);
        in = static_cast<uint8_t>(swap ? c + d : c);
        upsampled = static_cast<uint8_t>(swap ? c : c + d);
    };
    for (int i = 0; i < kPairs; ++i) {
        const int sad = i < 511 ? i : r.range(0, 510);
        const int d1 = r.range(sad > 255 ? sad - 255 : 0, sad < 255 ? sad : 255);
        put(vu[2 * i], up1[i], d1);
        put(vu[2 * i + 1], up2[i], sad - d1);
    }
    // Numerators: the 511 a kernel can form for S, then -32768 and 64 random ones.
    constexpr int kNumerators = 576;
    std::vector<int16_t> n(kNumerators);
    std::vector<uint8_t> w_c(kNumerators), w_v(kNumerators);
    const int count = swept ? 256 : 65536;
    for (int k = 0; k < count; ++k) {
        const int32_t S = swept ? r.range(-32768, 32767) : k - 32768;
        const int16_t s16 = static_cast<int16_t>(S);
        for (int i = 0; i < 511; ++i)
            n[i] = static_cast<int16_t>(static_cast<uint16_t>(i * 64 + (s16 >> 1)));
        n[511] = -32768;
        for (int i = 512; i < kNumerators; ++i)
            n[i] = static_cast<int16_t>(r.next());
        restore_blend_weights_c(n.data(), kNumerators, S, w_c.data());
        restore_blend_weights_neon(n.data(), kNumerators, S, w_v.data());
        for (int i = 0; i < kNumerators; ++i) {
            if (w_c[i] != w_v[i])
                return ctx.fail("blend weight of numerator " + std::to_string(n[i]) + " with S " +
                                std::to_string(S) + ": expected " + std::to_string(w_c[i]) +
                                ", got " + std::to_string(w_v[i]));
        }
        restore_interleave_uv420_c(nullptr, vu.data(), nullptr, nullptr, up1.data(), up2.data(),
                                   kWidth, 1, S, out_c.data());
        restore_interleave_uv420_neon(nullptr, vu.data(), nullptr, nullptr, up1.data(), up2.data(),
                                      kWidth, 1, S, out_v.data());
        if (memcmp(out_c.data(), out_v.data(), kWidth) != 0)
            return ctx.same(out_c.data(), out_v.data(), kWidth, 1, kWidth,
                            "blend with S " + std::to_string(S));
    }
    swept = true;
    return true;
}

// 1080p planes for the restore benches, with luma components and chroma near each other.
struct bench_planes {
    static constexpr size_t luma = static_cast<size_t>(kBenchW) * kBenchH;
    std::vector<uint8_t> y = std::vector<uint8_t>(2 * luma, 100),
                         a = std::vector<uint8_t>(luma, 90), b = std::vector<uint8_t>(luma, 140),
                         vu = std::vector<uint8_t>(luma, 120),
                         up1 = std::vector<uint8_t>(luma / 2, 126),
                         up2 = std::vector<uint8_t>(luma / 2, 131);
};

void restore_yuv420_bench(twin::bench_timer& timer) {
    bench_planes p;
    timer.pair("1080p (frame, in place)", p.luma * 3 / 2, [&](bool v) {
        (v ? restore_interleave_yuv420_neon : restore_interleave_yuv420_c)(
            p.y.data(), p.vu.data(), p.a.data(), p.b.data(), p.up1.data(), p.up2.data(), kBenchW,
            kBenchH, 12, p.y.data(), p.vu.data(), 0);
    });
}

template <restore422_fn Scalar, restore422_fn Vector>
void restore_422_bench(twin::bench_timer& timer) {
    bench_planes p;
    timer.pair("1080p (packed frame)", 2 * p.luma, [&](bool v) {
        (v ? Vector : Scalar)(p.y.data(), p.a.data(), p.b.data(), p.up1.data(), p.up2.data(),
                              kBenchW, kBenchH, 12);
    });
}

// The blend alone with the preview value S = 4, on chroma whose distances from the upsampled
// plane vary from pair to pair.
void restore_uv420_bench(twin::bench_timer& timer) {
    bench_planes p;
    const size_t pairs = p.luma / 4;
    for (size_t i = 0; i < pairs; ++i) {
        p.vu[2 * i] = static_cast<uint8_t>(i * 7);
        p.vu[2 * i + 1] = static_cast<uint8_t>(i * 3);
        p.up1[i] = static_cast<uint8_t>(i * 7 + (i >> 5) % 5);
        p.up2[i] = static_cast<uint8_t>(i * 3 + (i >> 7) % 3);
    }
    timer.pair("S 4, 1080p (VU plane)", 2 * pairs, [&](bool v) {
        (v ? restore_interleave_uv420_neon : restore_interleave_uv420_c)(
            nullptr, p.vu.data(), nullptr, nullptr, p.up1.data(), p.up2.data(), kBenchW, kBenchH, 4,
            p.y.data());
    });
}

const twin::twin_case kCases[] = {
    {"deinterleave_yuv420_uv_downsample", deinterleave_yuv420_trial, deinterleave_yuv420_bench},
    {"deinterleave_yuv422_uv_downsample",
     deinterleave_422_trial<deinterleave_yuv422_uv_downsample_c,
                            deinterleave_yuv422_uv_downsample_neon>,
     deinterleave_422_bench<deinterleave_yuv422_uv_downsample_c,
                            deinterleave_yuv422_uv_downsample_neon>},
    {"deinterleave_uv422_uv_downsample",
     deinterleave_422_trial<deinterleave_uv422_uv_downsample_c,
                            deinterleave_uv422_uv_downsample_neon>,
     deinterleave_422_bench<deinterleave_uv422_uv_downsample_c,
                            deinterleave_uv422_uv_downsample_neon>},
    {"upsample_uv420", upsample_trial<0>, upsample_bench<0>},
    {"upsample_uv422", upsample_trial<1>, upsample_bench<1>},
    {"upsample_y_neon", upsample_trial<2>, upsample_bench<2>},
    {"uv_upsample", uv_upsample_trial, nullptr},
    {"uv_downsample", uv_downsample_trial, nullptr},
    {"restore_interleave_yuv420", restore_yuv420_trial, restore_yuv420_bench},
    {"restore_interleave_uv420", restore_uv420_trial, restore_uv420_bench},
    {"restore_interleave_yuv422",
     restore_422_trial<restore_interleave_yuv422_c, restore_interleave_yuv422_neon>,
     restore_422_bench<restore_interleave_yuv422_c, restore_interleave_yuv422_neon>},
    {"restore_interleave_uv422",
     restore_422_trial<restore_interleave_uv422_c, restore_interleave_uv422_neon>,
     restore_422_bench<restore_interleave_uv422_c, restore_interleave_uv422_neon>},
    {"restore_blend_divide_sweep", restore_divide_sweep_trial, nullptr},
};

const twin::registrar reg(kCases);

}  // namespace
