// Whole frames through vantor_run, beside one memcpy of a frame of the same size measured in
// the same run. Two regimes: the same frame again and again (input warm in cache) and a
// rotation of 8 distinct frames (input cold).
//
//   vantor_bench_frames --benchmark_min_time=1
#include <benchmark/benchmark.h>
#include <string.h>

#include <vector>

#include "support/frames.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace {

constexpr int kRotation = 8;
const uint32_t kFormats[] = {VTR_NV21, VTR_NV21_M, VTR_YUYV, VTR_YUY2};
const char* const kFormatNames[] = {"NV21", "NM21", "YUYV", "YUY2"};

size_t frame_bytes(uint32_t format, int32_t w, int32_t h) {
    const size_t ha = (h + 15) & ~15;
    if (format == VTR_NV21 || format == VTR_NV21_M)
        return w * ha + w * static_cast<size_t>((h + 1) / 2);
    return 2 * static_cast<size_t>(w) * h;
}

std::vector<std::vector<uint8_t>> make_frames(size_t bytes, int count) {
    std::vector<std::vector<uint8_t>> frames(count, std::vector<uint8_t>(bytes));
    vtest::rng r(42);
    for (auto& f : frames)
        for (size_t i = 0; i < bytes; i += 64)
            memset(f.data() + i, r.byte(), bytes - i < 64 ? bytes - i : 64);
    return frames;
}

void set_counters(benchmark::State& state, size_t bytes) {
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
}

// Args: format index, width, height, rotate (0 or 1).
void bm_frame(benchmark::State& state) {
    const uint32_t format = kFormats[state.range(0)];
    const int32_t w = static_cast<int32_t>(state.range(1));
    const int32_t h = static_cast<int32_t>(state.range(2));
    const int count = state.range(3) != 0 ? kRotation : 1;
    const size_t bytes = frame_bytes(format, w, h);
    auto frames = make_frames(bytes, count);
    const size_t vu = w * static_cast<size_t>((h + 15) & ~15);
    void* handle = vantor_init(w, h, VTR_SCENARIO_PREVIEW);
    if (handle == nullptr || vantor_wait_ready(handle, 10000) != 0) {
        state.SkipWithError("vantor_init failed");
        return;
    }
    int next = 0;
    for (auto _ : state) {
        uint8_t* f = frames[next].data();
        benchmark::DoNotOptimize(vantor_run(handle, reinterpret_cast<uintptr_t>(f),
                                            reinterpret_cast<uintptr_t>(f + vu), w, h,
                                            static_cast<int32_t>(format)));
        next = next + 1 == count ? 0 : next + 1;
    }
    vantor_deinit(handle);
    set_counters(state, bytes);
    state.SetLabel(kFormatNames[state.range(0)]);
}

// The copy of one frame of the same bytes, into a separate buffer. Args as bm_frame.
void bm_memcpy(benchmark::State& state) {
    const uint32_t format = kFormats[state.range(0)];
    const int32_t w = static_cast<int32_t>(state.range(1));
    const int32_t h = static_cast<int32_t>(state.range(2));
    const int count = state.range(3) != 0 ? kRotation : 1;
    const size_t bytes = frame_bytes(format, w, h);
    auto frames = make_frames(bytes, count);
    auto targets = make_frames(bytes, count);
    int next = 0;
    for (auto _ : state) {
        memcpy(targets[next].data(), frames[next].data(), bytes);
        benchmark::ClobberMemory();
        next = next + 1 == count ? 0 : next + 1;
    }
    set_counters(state, bytes);
    state.SetLabel(std::string("memcpy ") + kFormatNames[state.range(0)]);
}

void frame_args(benchmark::internal::Benchmark* b) {
    b->ArgNames({"format", "w", "h", "rotate"});
    for (int64_t size : {0, 1}) {
        const int64_t w = size == 0 ? 1920 : 3840;
        const int64_t h = size == 0 ? 1080 : 2160;
        for (int64_t f = 0; f < 4; ++f)
            for (int64_t rotate : {0, 1})
                b->Args({f, w, h, rotate});
    }
}

}  // namespace

BENCHMARK(bm_frame)->Apply(frame_args)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bm_memcpy)->Apply(frame_args)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
