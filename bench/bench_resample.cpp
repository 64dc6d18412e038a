// Resample kernels at 1080p geometry (1920 x 1088, the aligned height), vector and scalar, with
// a memcpy of the same bytes for the kernels that touch whole planes. After the usual table a
// summary gives each pair's MB/s and speed-up, and the whole-plane kernels beside memcpy.
//
//   vantor_bench_resample [--benchmark_filter=REGEX] [--benchmark_min_time=SECONDS]
#include <stdio.h>
#include <string.h>

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "resample/deinterleave.h"
#include "resample/restore.h"
#include "resample/upsample.h"
#include "support/frames.h"

namespace {

constexpr int kW = 1920;
constexpr int kH = 1088;
constexpr size_t kLuma = static_cast<size_t>(kW) * kH;
constexpr int kBlocksW = kW / 16;
constexpr int kBlocksH = kH / 16;

// The planes of one frame as the pipeline holds them, filled from the test scene.
struct planes {
    std::vector<uint8_t> y, vu, packed;         // frame: NV21 luma and VU, YUYV
    std::vector<uint8_t> y_old, y_low, y_high;  // full-size luma work planes
    std::vector<uint8_t> block_u, block_v;      // block resolution
    std::vector<uint8_t> up_u420, up_v420;      // upsampled, 4:2:0
    std::vector<uint8_t> up_u422, up_v422;      // upsampled, 4:2:2
    std::vector<uint8_t> work_a, work_b;        // in-place copies and memcpy targets

    planes()
        : y(kLuma),
          vu(kLuma / 2),
          packed(2 * kLuma),
          y_old(kLuma),
          y_low(kLuma),
          y_high(kLuma),
          block_u(kBlocksW * kBlocksH),
          block_v(kBlocksW * kBlocksH),
          up_u420(kLuma / 4),
          up_v420(kLuma / 4),
          up_u422(kLuma / 2),
          up_v422(kLuma / 2),
          work_a(2 * kLuma),
          work_b(2 * kLuma) {
        const vtest::scene s = vtest::make_scene(kW, kH, 2024, 6);
        vtest::pack_nv21(s, y.data(), vu.data());
        vtest::pack_yuyv(s, packed.data());
        // Smooth luma and a detail plane around 128; the clean chroma stands for the smoothed
        // one, so that pair distances are the blotch amplitudes.
        for (size_t i = 0; i < kLuma; ++i) {
            y_low[i] = static_cast<uint8_t>(s.y[i] & ~3);
            y_high[i] = static_cast<uint8_t>(128 + (s.y[i] & 3));
        }
        for (int r = 0; r < kH; ++r) {
            for (int c = 0; c < kW / 2; ++c) {
                const size_t i = static_cast<size_t>(r) * (kW / 2) + c;
                up_u422[i] = s.clean_u[i];
                up_v422[i] = s.clean_v[i];
            }
        }
        for (int r = 0; r < kH / 2; ++r) {
            for (int c = 0; c < kW / 2; ++c) {
                // NV21 pairs are V first: the first upsampled plane follows V.
                up_u420[static_cast<size_t>(r) * (kW / 2) + c] =
                    s.clean_v[static_cast<size_t>(2 * r) * (kW / 2) + c];
                up_v420[static_cast<size_t>(r) * (kW / 2) + c] =
                    s.clean_u[static_cast<size_t>(2 * r) * (kW / 2) + c];
            }
        }
        for (size_t i = 0; i < block_u.size(); ++i) {
            block_u[i] = static_cast<uint8_t>(100 + i % 37);
            block_v[i] = static_cast<uint8_t>(140 - i % 29);
        }
    }
};

planes& P() {
    static planes p;
    return p;
}

// One kernel in both forms, on a fixed workload of `bytes` plane bytes.
struct pair_case {
    const char* name;
    double bytes;
    void (*scalar)(planes&);
    void (*vector)(planes&);
    bool whole_plane;  // also timed against memcpy of the same bytes
};

const pair_case kCases[] = {
    {"deinterleave_yuv420 (VU plane)", kLuma / 2,
     [](planes& p) {
         deinterleave_yuv420_uv_downsample_c(p.block_u.data(), p.block_v.data(), p.vu.data(), kW,
                                             kH, kW);
     },
     [](planes& p) {
         deinterleave_yuv420_uv_downsample_neon(p.block_u.data(), p.block_v.data(), p.vu.data(), kW,
                                                kH, kW);
     },
     false},
    {"deinterleave_yuv422 (packed frame)", 2.0 * kLuma,
     [](planes& p) {
         deinterleave_yuv422_uv_downsample_c(p.y_old.data(), p.block_u.data(), p.block_v.data(),
                                             p.packed.data(), kW, kH, kW);
     },
     [](planes& p) {
         deinterleave_yuv422_uv_downsample_neon(p.y_old.data(), p.block_u.data(), p.block_v.data(),
                                                p.packed.data(), kW, kH, kW);
     },
     false},
    {"deinterleave_uv422 (packed frame)", 2.0 * kLuma,
     [](planes& p) {
         deinterleave_uv422_uv_downsample_c(p.y_old.data(), p.block_u.data(), p.block_v.data(),
                                            p.packed.data(), kW, kH, kW);
     },
     [](planes& p) {
         deinterleave_uv422_uv_downsample_neon(p.y_old.data(), p.block_u.data(), p.block_v.data(),
                                               p.packed.data(), kW, kH, kW);
     },
     false},
    {"upsample_uv420 (output plane)", kLuma / 4,
     [](planes& p) {
         upsample_args rec{kBlocksW, kBlocksH,         0,       0,
                           nullptr,  p.block_u.data(), nullptr, p.up_u420.data()};
         upsample_uv420_with(&rec, upsample_uv420_c);
     },
     [](planes& p) {
         upsample_args rec{kBlocksW, kBlocksH,         0,       0,
                           nullptr,  p.block_u.data(), nullptr, p.up_u420.data()};
         upsample_uv420(&rec);
     },
     false},
    {"upsample_uv422 (output plane)", kLuma / 2,
     [](planes& p) {
         upsample_args rec{kBlocksW, kBlocksH,         0,       0,
                           nullptr,  p.block_u.data(), nullptr, p.up_u422.data()};
         upsample_uv422_with(&rec, upsample_uv_c);
     },
     [](planes& p) {
         upsample_args rec{kBlocksW, kBlocksH,         0,       0,
                           nullptr,  p.block_u.data(), nullptr, p.up_u422.data()};
         upsample_uv422(&rec);
     },
     false},
    {"upsample_y (output plane)", kLuma,
     [](planes& p) { upsample_y_c(p.work_a.data(), p.block_u.data(), kBlocksW, kBlocksH); },
     [](planes& p) { upsample_y_neon(p.work_a.data(), p.block_u.data(), kBlocksW, kBlocksH); },
     true},
    // The 4:2:0 restore writes to work planes rather than in place, so that every run blends
    // the same distances; the memory traffic is the same.
    {"restore_interleave_yuv420 (frame)", 1.5 * kLuma,
     [](planes& p) {
         restore_interleave_yuv420_c(p.y.data(), p.vu.data(), p.y_low.data(), p.y_high.data(),
                                     p.up_u420.data(), p.up_v420.data(), kW, kH, 12,
                                     p.work_a.data(), p.work_b.data(), 0);
     },
     [](planes& p) {
         restore_interleave_yuv420_neon(p.y.data(), p.vu.data(), p.y_low.data(), p.y_high.data(),
                                        p.up_u420.data(), p.up_v420.data(), kW, kH, 12,
                                        p.work_a.data(), p.work_b.data(), 0);
     },
     true},
    {"restore_interleave_uv420 (VU plane)", kLuma / 2,
     [](planes& p) {
         restore_interleave_uv420_c(nullptr, p.vu.data(), nullptr, nullptr, p.up_u420.data(),
                                    p.up_v420.data(), kW, kH, 12, p.work_b.data());
     },
     [](planes& p) {
         restore_interleave_uv420_neon(nullptr, p.vu.data(), nullptr, nullptr, p.up_u420.data(),
                                       p.up_v420.data(), kW, kH, 12, p.work_b.data());
     },
     false},
    // The packed kernels work in place on the frame: repeated runs keep blending the same
    // frame, which changes its values a little but not the work done.
    {"restore_interleave_yuv422 (packed frame)", 2.0 * kLuma,
     [](planes& p) {
         restore_interleave_yuv422_c(p.packed.data(), p.y_low.data(), p.y_high.data(),
                                     p.up_u422.data(), p.up_v422.data(), kW, kH, 12);
     },
     [](planes& p) {
         restore_interleave_yuv422_neon(p.packed.data(), p.y_low.data(), p.y_high.data(),
                                        p.up_u422.data(), p.up_v422.data(), kW, kH, 12);
     },
     true},
    {"restore_interleave_uv422 (packed frame)", 2.0 * kLuma,
     [](planes& p) {
         restore_interleave_uv422_c(p.packed.data(), nullptr, nullptr, p.up_u422.data(),
                                    p.up_v422.data(), kW, kH, 12);
     },
     [](planes& p) {
         restore_interleave_uv422_neon(p.packed.data(), nullptr, nullptr, p.up_u422.data(),
                                       p.up_v422.data(), kW, kH, 12);
     },
     false},
};

// Scalar-only members of the family, for completeness.
const pair_case kScalarOnly[] = {
    {"uv_downsample (input plane)", kLuma / 2,
     [](planes& p) { uv_downsample(p.vu.data(), p.block_u.data(), kH / 2, kW); }, nullptr, false},
    {"uv_upsample (output plane)", kLuma / 2,
     [](planes& p) { uv_upsample(p.block_u.data(), p.up_u422.data(), kBlocksH, kBlocksW); },
     nullptr, false},
};

void run_kernel(benchmark::State& state, void (*fn)(planes&), double bytes) {
    planes& p = P();
    for (auto _ : state) {
        fn(p);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes * state.iterations()));
}

void run_memcpy(benchmark::State& state, double bytes) {
    planes& p = P();
    const size_t n = static_cast<size_t>(bytes);
    for (auto _ : state) {
        memcpy(p.work_b.data(), p.work_a.data(), n);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes * state.iterations()));
}

// Keeps the console output and collects each run's rate for the summary.
class summary_reporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            const auto it = r.counters.find("bytes_per_second");
            if (it != r.counters.end() && !r.error_occurred)
                rate_[r.benchmark_name()] = it->second.value / 1e6;
        }
    }

    void print_summary() const {
        printf("\n%-44s %10s %10s %9s\n", "kernel, 1920x1088", "scalar", "vector", "speed-up");
        printf("%-44s %10s %10s %9s\n", "", "MB/s", "MB/s", "");
        for (const pair_case& c : kCases) {
            const double s = rate(std::string(c.name) + "/scalar");
            const double v = rate(std::string(c.name) + "/vector");
            if (s > 0 && v > 0)
                printf("%-44s %10.0f %10.0f %8.2fx\n", c.name, s, v, v / s);
        }
        for (const pair_case& c : kScalarOnly) {
            const double s = rate(std::string(c.name) + "/scalar");
            if (s > 0)
                printf("%-44s %10.0f %10s %9s\n", c.name, s, "-", "-");
        }
        printf("\n%-44s %10s %10s %9s\n", "whole-plane kernel", "vector", "memcpy", "ratio");
        printf("%-44s %10s %10s %9s\n", "", "MB/s", "MB/s", "");
        for (const pair_case& c : kCases) {
            if (!c.whole_plane)
                continue;
            const double v = rate(std::string(c.name) + "/vector");
            const double m = rate(std::string(c.name) + "/memcpy");
            if (v > 0 && m > 0)
                printf("%-44s %10.0f %10.0f %8.2f\n", c.name, v, m, v / m);
        }
    }

  private:
    double rate(const std::string& name) const {
        const auto it = rate_.find(name);
        return it == rate_.end() ? 0 : it->second;
    }
    std::map<std::string, double> rate_;
};

}  // namespace

int main(int argc, char** argv) {
    for (const pair_case& c : kCases) {
        benchmark::RegisterBenchmark((std::string(c.name) + "/scalar").c_str(), run_kernel,
                                     c.scalar, c.bytes)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((std::string(c.name) + "/vector").c_str(), run_kernel,
                                     c.vector, c.bytes)
            ->Unit(benchmark::kMicrosecond);
        if (c.whole_plane) {
            benchmark::RegisterBenchmark((std::string(c.name) + "/memcpy").c_str(), run_memcpy,
                                         c.bytes)
                ->Unit(benchmark::kMicrosecond);
        }
    }
    for (const pair_case& c : kScalarOnly) {
        benchmark::RegisterBenchmark((std::string(c.name) + "/scalar").c_str(), run_kernel,
                                     c.scalar, c.bytes)
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    summary_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_summary();
    benchmark::Shutdown();
    return 0;
}
