// Twin cases of the resample kernels: deinterleave, upsampling and restore, each vector kernel
// against its scalar twin on random sizes and contents in page-end guarded buffers, plus a
// sweep of the blend divisor over every signed 16-bit value.
#include <string.h>

#include <string>
#include <vector>

#include "resample/deinterleave.h"
#include "resample/restore.h"
#include "resample/upsample.h"
#include "twin/twin.h"

namespace {

using vtest::guarded;
using vtest::pattern;

// Fill value of output buffers, so that a write outside the expected area shows as a
// difference from the scalar twin, which leaves it alone.
constexpr uint8_t kUnwritten = 0x5A;

// 1080p geometry for the bench functions: width, luma rows (aligned to 16) and block planes.
constexpr int kBenchW = 1920;
constexpr int kBenchH = 1088;

pattern any_pattern(vtest::rng& r) {
    return vtest::all_patterns[r.range(0, 8)];
}

// A guarded buffer of at least one byte (a zero-sized plane still gets a valid pointer).
size_t at_least_one(size_t n) {
    return n > 0 ? n : 1;
}

void fill(guarded& g, int width, int height, int stride, pattern p, vtest::rng& r) {
    memset(g.data(), 0, g.size());
    vtest::fill_plane(g.data(), width, height, stride, p, r);
}

void fill_random(guarded& g, vtest::rng& r) {
    fill(g, static_cast<int>(g.size()), 1, static_cast<int>(g.size()), any_pattern(r), r);
}

std::string dims(const char* what, int width, int height) {
    return std::string(what) + " " + std::to_string(width) + "x" + std::to_string(height);
}

// Two output buffers of the same size, both prefilled, for the scalar and the vector run.
struct out_pair {
    guarded c, v;
    explicit out_pair(size_t n) : c(at_least_one(n)), v(at_least_one(n)) {
        memset(c.data(), kUnwritten, c.size());
        memset(v.data(), kUnwritten, v.size());
    }
    bool check(twin::context& ctx, const std::string& what) {
        return ctx.same(c.data(), v.data(), static_cast<int>(c.size()), 1,
                        static_cast<int>(c.size()), what) &&
               ctx.intact(v, what);
    }
};

// ---- Deinterleave -------------------------------------------------------------------------

// Frame sizes as the deinterleave worker sees them: a width (multiple of 16) and a strip
// height, from which it derives the kernel's bounds.
struct strip {
    int width, height, width_bound, height_bound;
};

strip random_strip(vtest::rng& r) {
    strip s;
    s.width = 16 * r.range(1, 90);
    s.height = r.range(0, 4) == 0 ? r.range(1, 40) : r.range(1, 200);
    s.width_bound = s.width & ~127;
    s.height_bound = s.height & ~15;
    return s;
}

bool deinterleave_yuv420_trial(twin::context& ctx) {
    const strip s = random_strip(ctx.r);
    const pattern p = any_pattern(ctx.r);
    // VU plane of height / 2 rows; the kernel reads rows 0, 8, ... below height_bound / 2.
    guarded vu(at_least_one(static_cast<size_t>(s.height / 2) * s.width));
    fill(vu, s.width, s.height / 2, s.width, p, ctx.r);
    const size_t blocks = static_cast<size_t>(s.height_bound / 16) * (s.width / 16);
    out_pair first(blocks), second(blocks);
    deinterleave_yuv420_uv_downsample_c(first.c.data(), second.c.data(), vu.data(), s.width_bound,
                                        s.height_bound, s.width);
    deinterleave_yuv420_uv_downsample_neon(first.v.data(), second.v.data(), vu.data(),
                                           s.width_bound, s.height_bound, s.width);
    const std::string what =
        dims("deinterleave_yuv420", s.width, s.height) + " " + vtest::pattern_name(p);
    return first.check(ctx, what + " first_out") && second.check(ctx, what + " second_out");
}

using deinterleave422_fn = void (*)(uint8_t*, uint8_t*, uint8_t*, const uint8_t*, int32_t, int32_t,
                                    int32_t);

// Both 4:2:2 kernels; one trial in four gives a height_bound that is not a multiple of 16,
// with planes that hold the whole last band the kernels then run.
bool deinterleave_422_trial(twin::context& ctx, const char* name, deinterleave422_fn scalar,
                            deinterleave422_fn vector) {
    strip s = random_strip(ctx.r);
    if (ctx.r.range(0, 3) == 0)
        s.height_bound = s.height;
    const int rows = (s.height_bound + 15) & ~15;
    const int plane_rows = rows > s.height ? rows : s.height;
    const pattern p = any_pattern(ctx.r);
    guarded packed(at_least_one(static_cast<size_t>(plane_rows) * 2 * s.width));
    fill(packed, 2 * s.width, plane_rows, 2 * s.width, p, ctx.r);
    out_pair y(static_cast<size_t>(plane_rows) * s.width);
    const size_t blocks = static_cast<size_t>(rows / 16) * (s.width / 16);
    out_pair first(blocks), second(blocks);
    scalar(y.c.data(), first.c.data(), second.c.data(), packed.data(), s.width, s.height_bound,
           s.width_bound);
    vector(y.v.data(), first.v.data(), second.v.data(), packed.data(), s.width, s.height_bound,
           s.width_bound);
    const std::string what = dims(name, s.width, s.height) + " height_bound " +
                             std::to_string(s.height_bound) + " " + vtest::pattern_name(p);
    return y.check(ctx, what + " y_out") && first.check(ctx, what + " first_out") &&
           second.check(ctx, what + " second_out");
}

bool deinterleave_yuv422_trial(twin::context& ctx) {
    return deinterleave_422_trial(ctx, "deinterleave_yuv422", deinterleave_yuv422_uv_downsample_c,
                                  deinterleave_yuv422_uv_downsample_neon);
}

bool deinterleave_uv422_trial(twin::context& ctx) {
    return deinterleave_422_trial(ctx, "deinterleave_uv422", deinterleave_uv422_uv_downsample_c,
                                  deinterleave_uv422_uv_downsample_neon);
}

void deinterleave_yuv420_bench(twin::bench_timer& timer) {
    std::vector<uint8_t> vu(kBenchW * kBenchH / 2, 77), first(kBenchW * kBenchH / 256),
        second(first.size());
    timer.pair(
        "deinterleave_yuv420 1080p (VU plane)", vu.size(),
        [&] {
            deinterleave_yuv420_uv_downsample_c(first.data(), second.data(), vu.data(), kBenchW,
                                                kBenchH, kBenchW);
        },
        [&] {
            deinterleave_yuv420_uv_downsample_neon(first.data(), second.data(), vu.data(), kBenchW,
                                                   kBenchH, kBenchW);
        });
}

void deinterleave_422_bench(twin::bench_timer& timer, const char* label, deinterleave422_fn scalar,
                            deinterleave422_fn vector) {
    std::vector<uint8_t> packed(2 * kBenchW * kBenchH, 77), y(kBenchW * kBenchH),
        first(kBenchW * kBenchH / 256), second(first.size());
    timer.pair(
        label, packed.size(),
        [&] {
            scalar(y.data(), first.data(), second.data(), packed.data(), kBenchW, kBenchH, kBenchW);
        },
        [&] {
            vector(y.data(), first.data(), second.data(), packed.data(), kBenchW, kBenchH, kBenchW);
        });
}

void deinterleave_yuv422_bench(twin::bench_timer& timer) {
    deinterleave_422_bench(timer, "deinterleave_yuv422 1080p (packed frame)",
                           deinterleave_yuv422_uv_downsample_c,
                           deinterleave_yuv422_uv_downsample_neon);
}

void deinterleave_uv422_bench(twin::bench_timer& timer) {
    deinterleave_422_bench(timer, "deinterleave_uv422 1080p (packed frame)",
                           deinterleave_uv422_uv_downsample_c,
                           deinterleave_uv422_uv_downsample_neon);
}

// ---- Upsampling -------------------------------------------------------------------------

// Block-plane sizes: mostly odd widths, small planes often, down to 1 x 1.
void random_block_plane(vtest::rng& r, int& w, int& h) {
    w = r.range(0, 2) == 0 ? r.range(1, 6) : r.range(1, 130);
    if (r.range(0, 2) != 0)
        w |= 1;
    h = r.range(0, 3) == 0 ? r.range(0, 3) : r.range(1, 70);
}

using chroma_core = void (*)(uint8_t*, const uint8_t*, int32_t, int32_t, int32_t);

bool upsample_core_trial(twin::context& ctx, const char* name, int vf, chroma_core scalar,
                         chroma_core vector) {
    int w, h;
    random_block_plane(ctx.r, w, h);
    const pattern p = any_pattern(ctx.r);
    guarded src(at_least_one(static_cast<size_t>(w) * h));
    fill(src, w, h, w, p, ctx.r);
    out_pair dst(static_cast<size_t>(8) * w * vf * h);
    const int cols = w & ~1;
    scalar(dst.c.data(), src.data(), w, h, cols);
    vector(dst.v.data(), src.data(), w, h, cols);
    return dst.check(ctx, dims(name, w, h) + " " + vtest::pattern_name(p));
}

bool upsample_uv420_core_trial(twin::context& ctx) {
    return upsample_core_trial(ctx, "upsample_uv420_neon", 8, upsample_uv420_c,
                               upsample_uv420_neon);
}

bool upsample_uv_core_trial(twin::context& ctx) {
    return upsample_core_trial(ctx, "upsample_uv_neon", 16, upsample_uv_c, upsample_uv_neon);
}

using chroma_wrapper = void* (*)(void*);
using chroma_wrapper_with = void (*)(const upsample_args*, upsample_core);

// The whole wrapper (scalar edge block, then the core) with the vector core against the same
// wrapper with the scalar core.
bool upsample_wrapper_trial(twin::context& ctx, const char* name, int vf, chroma_wrapper vector,
                            chroma_wrapper_with with, upsample_core scalar_core) {
    int w, h;
    random_block_plane(ctx.r, w, h);
    const pattern p = any_pattern(ctx.r);
    guarded src(at_least_one(static_cast<size_t>(w) * h));
    fill(src, w, h, w, p, ctx.r);
    out_pair dst(static_cast<size_t>(8) * w * vf * h);
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = src.data();
    rec.chroma_dst = dst.c.data();
    with(&rec, scalar_core);
    rec.chroma_dst = dst.v.data();
    if (vector(&rec) != &rec)
        return ctx.fail(std::string(name) + " did not return its record");
    return dst.check(ctx, dims(name, w, h) + " " + vtest::pattern_name(p));
}

bool upsample_uv420_trial(twin::context& ctx) {
    return upsample_wrapper_trial(ctx, "upsample_uv420", 8, upsample_uv420, upsample_uv420_with,
                                  upsample_uv420_c);
}

bool upsample_uv422_trial(twin::context& ctx) {
    return upsample_wrapper_trial(ctx, "upsample_uv422", 16, upsample_uv422, upsample_uv422_with,
                                  upsample_uv_c);
}

bool upsample_y_trial(twin::context& ctx) {
    int w, h;
    random_block_plane(ctx.r, w, h);
    const pattern p = any_pattern(ctx.r);
    guarded src(at_least_one(static_cast<size_t>(w) * h));
    fill(src, w, h, w, p, ctx.r);
    out_pair dst(static_cast<size_t>(256) * w * h);
    upsample_y_c(dst.c.data(), src.data(), w, h);
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.luma_src = src.data();
    rec.luma_dst = dst.v.data();
    if (upsample_y(&rec) != &rec)
        return ctx.fail("upsample_y did not return its record");
    return dst.check(ctx, dims("upsample_y_neon", w, h) + " " + vtest::pattern_name(p));
}

void upsample_chroma_bench(twin::bench_timer& timer, const char* label, int vf, chroma_core scalar,
                           chroma_core vector) {
    const int w = kBenchW / 16, h = kBenchH / 16;
    std::vector<uint8_t> src(w * h, 90), dst(static_cast<size_t>(8) * w * vf * h);
    timer.pair(
        label, dst.size(), [&] { scalar(dst.data(), src.data(), w, h, w); },
        [&] { vector(dst.data(), src.data(), w, h, w); });
}

void upsample_uv420_bench(twin::bench_timer& timer) {
    upsample_chroma_bench(timer, "upsample_uv420_neon 1080p (output plane)", 8, upsample_uv420_c,
                          upsample_uv420_neon);
}

void upsample_uv_bench(twin::bench_timer& timer) {
    upsample_chroma_bench(timer, "upsample_uv_neon 1080p (output plane)", 16, upsample_uv_c,
                          upsample_uv_neon);
}

void upsample_y_bench(twin::bench_timer& timer) {
    const int w = kBenchW / 16, h = kBenchH / 16;
    std::vector<uint8_t> src(w * h, 90), dst(static_cast<size_t>(kBenchW) * kBenchH);
    timer.pair(
        "upsample_y_neon 1080p (output plane)", dst.size(),
        [&] { upsample_y_c(dst.data(), src.data(), w, h); },
        [&] { upsample_y_neon(dst.data(), src.data(), w, h); });
}

// Odd-width wrappers time the edge block as well: 1080p is 120 blocks wide, so 1928 (121).
void upsample_wrapper_bench(twin::bench_timer& timer, const char* label, int vf,
                            chroma_wrapper vector, chroma_wrapper_with with,
                            upsample_core scalar_core) {
    const int w = kBenchW / 16 + 1, h = kBenchH / 16;
    std::vector<uint8_t> src(w * h, 90), dst(static_cast<size_t>(8) * w * vf * h);
    upsample_args rec{};
    rec.width = w;
    rec.height = h;
    rec.chroma_src = src.data();
    rec.chroma_dst = dst.data();
    timer.pair(
        label, dst.size(), [&] { with(&rec, scalar_core); }, [&] { vector(&rec); });
}

void upsample_uv420_bench_wrapper(twin::bench_timer& timer) {
    upsample_wrapper_bench(timer, "upsample_uv420 121 blocks wide (output plane)", 8,
                           upsample_uv420, upsample_uv420_with, upsample_uv420_c);
}

void upsample_uv422_bench_wrapper(twin::bench_timer& timer) {
    upsample_wrapper_bench(timer, "upsample_uv422 121 blocks wide (output plane)", 16,
                           upsample_uv422, upsample_uv422_with, upsample_uv_c);
}

// ---- Restore ------------------------------------------------------------------------------

// Saturation values: the two scenario values, zero, the wrapping 256, and anything else a
// caller could pass, including values outside 16 bits (only their low 16 bits count).
int32_t random_saturation(vtest::rng& r) {
    switch (r.range(0, 7)) {
        case 0:
            return 12;
        case 1:
            return 4;
        case 2:
            return 0;
        case 3:
            return 256;
        case 4:
            return r.range(-64, 64);
        case 5:
            return r.range(-32768, 32767);
        case 6:
            return static_cast<int32_t>(r.next());
        default:
            return r.range(1, 600);
    }
}

// Upsampled chroma: either an independent pattern or the input chroma plus small noise, so
// that pair distances land around the saturation value as they do in real frames.
// `pairs` values are taken from chroma[0], chroma[step], ...
void fill_upsampled(guarded& up, size_t pairs, const uint8_t* chroma, int chroma_step,
                    vtest::rng& r) {
    if (pairs == 0 || r.range(0, 1) == 0) {
        fill_random(up, r);
        return;
    }
    const int spread = r.range(0, 12);
    for (size_t i = 0; i < pairs; ++i) {
        const int v = chroma[i * chroma_step] + r.range(-spread, spread);
        up.data()[i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
}

std::string restore_what(const char* name, int width, int height, int32_t S) {
    return dims(name, width, height) + " S " + std::to_string(S);
}

bool restore_yuv420_trial(twin::context& ctx) {
    vtest::rng& r = ctx.r;
    const int width = 16 * r.range(1, 60);
    const int height = r.range(1, 80);
    const int32_t S = random_saturation(r);
    const int scenario = r.range(0, 3) == 3 ? r.range(-5, 5) : r.range(0, 1);
    const size_t luma = static_cast<size_t>(width) * height;
    const size_t vu_bytes = static_cast<size_t>(height / 2) * width;
    const size_t up_bytes = vu_bytes / 2;
    guarded y_in(luma), a(luma), b(luma), vu_in(at_least_one(vu_bytes));
    guarded up1(at_least_one(up_bytes)), up2(at_least_one(up_bytes));
    for (guarded* g : {&y_in, &a, &b, &vu_in})
        fill_random(*g, r);
    fill_upsampled(up1, up_bytes, vu_in.data(), 2, r);
    fill_upsampled(up2, up_bytes, vu_in.data() + 1, 2, r);
    out_pair y_out(luma), vu_out(vu_bytes);
    restore_interleave_yuv420_c(y_in.data(), vu_in.data(), a.data(), b.data(), up1.data(),
                                up2.data(), width, height, S, y_out.c.data(), vu_out.c.data(),
                                scenario);
    restore_interleave_yuv420_neon(y_in.data(), vu_in.data(), a.data(), b.data(), up1.data(),
                                   up2.data(), width, height, S, y_out.v.data(), vu_out.v.data(),
                                   scenario);
    const std::string what = restore_what("restore_interleave_yuv420", width, height, S) +
                             " scenario " + std::to_string(scenario);
    if (!y_out.check(ctx, what + " y_out") || !vu_out.check(ctx, what + " vu_out"))
        return false;
    // In place, as the pipeline calls it: the input planes become the output.
    guarded y_io(luma), vu_io(at_least_one(vu_bytes));
    memcpy(y_io.data(), y_in.data(), luma);
    memcpy(vu_io.data(), vu_in.data(), vu_io.size());
    restore_interleave_yuv420_neon(y_io.data(), vu_io.data(), a.data(), b.data(), up1.data(),
                                   up2.data(), width, height, S, y_io.data(), vu_io.data(),
                                   scenario);
    return ctx.same(y_out.c.data(), y_io.data(), width, height, width, what + " in place y") &&
           ctx.same(vu_out.c.data(), vu_io.data(), width, height / 2, width, what + " in place vu");
}

using restore422_fn = void (*)(uint8_t*, const uint8_t*, const uint8_t*, const uint8_t*,
                               const uint8_t*, int32_t, int32_t, int32_t);

bool restore_422_trial(twin::context& ctx, const char* name, restore422_fn scalar,
                       restore422_fn vector) {
    vtest::rng& r = ctx.r;
    const int width = 16 * r.range(1, 60);
    const int height = r.range(1, 60);
    const int32_t S = random_saturation(r);
    const size_t luma = static_cast<size_t>(width) * height;
    guarded frame(2 * luma), a(luma), b(luma), up1(luma / 2), up2(luma / 2);
    for (guarded* g : {&frame, &a, &b})
        fill_random(*g, r);
    fill_upsampled(up1, luma / 2, frame.data() + 1, 4, r);
    fill_upsampled(up2, luma / 2, frame.data() + 3, 4, r);
    guarded frame_c(2 * luma), frame_v(2 * luma);
    memcpy(frame_c.data(), frame.data(), 2 * luma);
    memcpy(frame_v.data(), frame.data(), 2 * luma);
    scalar(frame_c.data(), a.data(), b.data(), up1.data(), up2.data(), width, height, S);
    vector(frame_v.data(), a.data(), b.data(), up1.data(), up2.data(), width, height, S);
    const std::string what = restore_what(name, width, height, S);
    return ctx.same(frame_c.data(), frame_v.data(), 2 * width, height, 2 * width, what) &&
           ctx.intact(frame_v, what);
}

bool restore_yuv422_trial(twin::context& ctx) {
    return restore_422_trial(ctx, "restore_interleave_yuv422", restore_interleave_yuv422_c,
                             restore_interleave_yuv422_neon);
}

bool restore_uv422_trial(twin::context& ctx) {
    return restore_422_trial(ctx, "restore_interleave_uv422", restore_interleave_uv422_c,
                             restore_interleave_uv422_neon);
}

bool restore_uv420_trial(twin::context& ctx) {
    vtest::rng& r = ctx.r;
    const int width = 16 * r.range(1, 60);
    const int rows = r.range(1, 80);
    const int32_t S = random_saturation(r);
    // 16 VU bytes per row for every 32 of width (rounded up).
    const size_t vu_bytes = static_cast<size_t>(rows) * 16 * ((width + 31) / 32);
    guarded vu_in(vu_bytes), up1(vu_bytes / 2), up2(vu_bytes / 2);
    fill_random(vu_in, r);
    fill_upsampled(up1, vu_bytes / 2, vu_in.data(), 2, r);
    fill_upsampled(up2, vu_bytes / 2, vu_in.data() + 1, 2, r);
    out_pair vu_out(vu_bytes);
    // The luma arguments are not read: null pointers prove it.
    restore_interleave_uv420_c(nullptr, vu_in.data(), nullptr, nullptr, up1.data(), up2.data(),
                               width, rows, S, vu_out.c.data());
    restore_interleave_uv420_neon(nullptr, vu_in.data(), nullptr, nullptr, up1.data(), up2.data(),
                                  width, rows, S, vu_out.v.data());
    const std::string what = restore_what("restore_interleave_uv420", width, rows, S);
    if (!vu_out.check(ctx, what))
        return false;
    guarded vu_io(vu_bytes);
    memcpy(vu_io.data(), vu_in.data(), vu_bytes);
    restore_interleave_uv420_neon(nullptr, vu_io.data(), nullptr, nullptr, up1.data(), up2.data(),
                                  width, rows, S, vu_io.data());
    return ctx.same(vu_out.c.data(), vu_io.data(), static_cast<int>(vu_bytes), 1,
                    static_cast<int>(vu_bytes), what + " in place");
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
    guarded vu(kWidth), up1(kPairs), up2(kPairs);
    out_pair out(kWidth);
    for (int i = 0; i < kPairs; ++i) {
        const int sad = i < 511 ? i : r.range(0, 510);
        const int d1 = r.range(sad > 255 ? sad - 255 : 0, sad < 255 ? sad : 255);
        const int d2 = sad - d1;
        const int c1 = r.range(0, 255 - d1), c2 = r.range(0, 255 - d2);
        // Either byte may be the larger one.
        const bool swap1 = r.range(0, 1), swap2 = r.range(0, 1);
        vu.data()[2 * i] = static_cast<uint8_t>(swap1 ? c1 + d1 : c1);
        up1.data()[i] = static_cast<uint8_t>(swap1 ? c1 : c1 + d1);
        vu.data()[2 * i + 1] = static_cast<uint8_t>(swap2 ? c2 + d2 : c2);
        up2.data()[i] = static_cast<uint8_t>(swap2 ? c2 : c2 + d2);
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
                                   kWidth, 1, S, out.c.data());
        restore_interleave_uv420_neon(nullptr, vu.data(), nullptr, nullptr, up1.data(), up2.data(),
                                      kWidth, 1, S, out.v.data());
        if (memcmp(out.c.data(), out.v.data(), kWidth) != 0)
            return out.check(ctx, "blend with S " + std::to_string(S));
    }
    swept = true;
    return true;
}

void restore_yuv420_bench(twin::bench_timer& timer) {
    const size_t luma = static_cast<size_t>(kBenchW) * kBenchH;
    std::vector<uint8_t> y(luma, 100), a(luma, 90), b(luma, 140), vu(luma / 2, 120),
        up1(luma / 4, 126), up2(luma / 4, 131);
    timer.pair(
        "restore_interleave_yuv420 1080p (frame, in place)", luma * 3 / 2,
        [&] {
            restore_interleave_yuv420_c(y.data(), vu.data(), a.data(), b.data(), up1.data(),
                                        up2.data(), kBenchW, kBenchH, 12, y.data(), vu.data(), 0);
        },
        [&] {
            restore_interleave_yuv420_neon(y.data(), vu.data(), a.data(), b.data(), up1.data(),
                                           up2.data(), kBenchW, kBenchH, 12, y.data(), vu.data(),
                                           0);
        });
}

void restore_uv420_bench(twin::bench_timer& timer) {
    const size_t luma = static_cast<size_t>(kBenchW) * kBenchH;
    std::vector<uint8_t> vu(luma / 2, 120), up1(luma / 4, 126), up2(luma / 4, 131);
    timer.pair(
        "restore_interleave_uv420 1080p (VU plane)", vu.size(),
        [&] {
            restore_interleave_uv420_c(nullptr, vu.data(), nullptr, nullptr, up1.data(), up2.data(),
                                       kBenchW, kBenchH, 12, vu.data());
        },
        [&] {
            restore_interleave_uv420_neon(nullptr, vu.data(), nullptr, nullptr, up1.data(),
                                          up2.data(), kBenchW, kBenchH, 12, vu.data());
        });
}

void restore_422_bench(twin::bench_timer& timer, const char* label, restore422_fn scalar,
                       restore422_fn vector) {
    const size_t luma = static_cast<size_t>(kBenchW) * kBenchH;
    std::vector<uint8_t> frame(2 * luma, 110), a(luma, 90), b(luma, 140), up1(luma / 2, 126),
        up2(luma / 2, 131);
    timer.pair(
        label, frame.size(),
        [&] {
            scalar(frame.data(), a.data(), b.data(), up1.data(), up2.data(), kBenchW, kBenchH, 12);
        },
        [&] {
            vector(frame.data(), a.data(), b.data(), up1.data(), up2.data(), kBenchW, kBenchH, 12);
        });
}

void restore_yuv422_bench(twin::bench_timer& timer) {
    restore_422_bench(timer, "restore_interleave_yuv422 1080p (packed frame)",
                      restore_interleave_yuv422_c, restore_interleave_yuv422_neon);
}

void restore_uv422_bench(twin::bench_timer& timer) {
    restore_422_bench(timer, "restore_interleave_uv422 1080p (packed frame)",
                      restore_interleave_uv422_c, restore_interleave_uv422_neon);
}

// The sweep's bench: the blend alone with the preview value S = 4, on chroma whose distances
// from the upsampled plane vary from pair to pair.
void restore_divide_bench(twin::bench_timer& timer) {
    const size_t pairs = static_cast<size_t>(kBenchW) * kBenchH / 4;
    std::vector<uint8_t> vu(2 * pairs), out(2 * pairs), up1(pairs), up2(pairs);
    for (size_t i = 0; i < pairs; ++i) {
        vu[2 * i] = static_cast<uint8_t>(i * 7);
        vu[2 * i + 1] = static_cast<uint8_t>(i * 3);
        up1[i] = static_cast<uint8_t>(i * 7 + (i >> 5) % 5);
        up2[i] = static_cast<uint8_t>(i * 3 + (i >> 7) % 3);
    }
    timer.pair(
        "restore blend, S 4, 1080p (VU plane)", vu.size(),
        [&] {
            restore_interleave_uv420_c(nullptr, vu.data(), nullptr, nullptr, up1.data(), up2.data(),
                                       kBenchW, kBenchH, 4, out.data());
        },
        [&] {
            restore_interleave_uv420_neon(nullptr, vu.data(), nullptr, nullptr, up1.data(),
                                          up2.data(), kBenchW, kBenchH, 4, out.data());
        });
}

const twin::registrar reg_deint420({"deinterleave_yuv420_uv_downsample", deinterleave_yuv420_trial,
                                    deinterleave_yuv420_bench});
const twin::registrar reg_deint422({"deinterleave_yuv422_uv_downsample", deinterleave_yuv422_trial,
                                    deinterleave_yuv422_bench});
const twin::registrar reg_deintuv422({"deinterleave_uv422_uv_downsample", deinterleave_uv422_trial,
                                      deinterleave_uv422_bench});
const twin::registrar reg_up420_core({"upsample_uv420_neon", upsample_uv420_core_trial,
                                      upsample_uv420_bench});
const twin::registrar reg_up422_core({"upsample_uv_neon", upsample_uv_core_trial,
                                      upsample_uv_bench});
const twin::registrar reg_up420({"upsample_uv420", upsample_uv420_trial,
                                 upsample_uv420_bench_wrapper});
const twin::registrar reg_up422({"upsample_uv422", upsample_uv422_trial,
                                 upsample_uv422_bench_wrapper});
const twin::registrar reg_up_y({"upsample_y_neon", upsample_y_trial, upsample_y_bench});
const twin::registrar reg_restore420({"restore_interleave_yuv420", restore_yuv420_trial,
                                      restore_yuv420_bench});
const twin::registrar reg_restore422({"restore_interleave_yuv422", restore_yuv422_trial,
                                      restore_yuv422_bench});
const twin::registrar reg_restore_uv420({"restore_interleave_uv420", restore_uv420_trial,
                                         restore_uv420_bench});
const twin::registrar reg_restore_uv422({"restore_interleave_uv422", restore_uv422_trial,
                                         restore_uv422_bench});
const twin::registrar reg_divide({"restore_blend_divide_sweep", restore_divide_sweep_trial,
                                  restore_divide_bench});

}  // namespace
