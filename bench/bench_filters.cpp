// Smoothing filters, vector against scalar, at the sizes of a 1920x1088 frame:
//   - the box filter over the luma plane cut into four 480-column bands, as the box-filter
//     stage hands them to its workers;
//   - the 7x7 bilateral filter over the block-resolution planes of 1920x1088 (120x68) and
//     3840x2160 (240x135), once with the vector centre and once with the scalar centre.
// Each pair prints MB/s of plane data; a closing summary gives the speed-up of every pair.
#include <stdio.h>
#include <unistd.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "filters/bilateral.h"
#include "filters/box_filter.h"
#include "support/frames.h"

namespace {

constexpr int kLumaWidth = 1920;
constexpr int kLumaHeight = 1088;
constexpr int kBands = 4;

std::vector<uint8_t> test_plane(int width, int height) {
    std::vector<uint8_t> p(static_cast<size_t>(width) * height);
    vtest::rng r(2024);
    vtest::fill_plane(p.data(), width, height, width, vtest::pattern::random, r);
    return p;
}

void box_filter_frame(benchmark::State& state, bool vector) {
    const std::vector<uint8_t> src = test_plane(kLumaWidth, kLumaHeight);
    std::vector<uint8_t> low(src.size()), high(src.size());
    const int band = kLumaWidth / kBands;
    for (auto _ : state) {
        for (int i = 0; i < kBands; ++i) {
            (vector ? box_filter_band : box_filter_col_c)(
                src.data() + i * band, low.data() + i * band, high.data() + i * band, kLumaWidth,
                kLumaHeight, band);
        }
        benchmark::DoNotOptimize(low.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(src.size()));
}

void bilateral_plane(benchmark::State& state, int width, int height, bool vector) {
    const std::vector<uint8_t> src = test_plane(width, height);
    std::vector<uint8_t> dst(src.size());
    for (auto _ : state) {
        if (vector)
            bilateral_filter_span3(src.data(), dst.data(), height, width);
        else
            bilateral_filter_span3_with(src.data(), dst.data(), height, width,
                                        bilateral_filter_span3_center_c);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(src.size()));
}

// Console output as usual, plus per benchmark the CPU time kept for the summary: the median when
// repetitions are aggregated, else the fastest run. (The rates above are per CPU second too,
// which is steadier than wall time on a shared machine.)
class summary_reporter : public benchmark::ConsoleReporter {
  public:
    // Colours only on a terminal, so that saved output stays plain text.
    summary_reporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred)
                continue;
            const std::string name = run.run_name.str();
            const double t = run.GetAdjustedCPUTime();
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median")
                    times_[name] = t;
            } else if (!times_.count(name) || t < times_[name]) {
                times_[name] = t;
            }
        }
    }

    // For every "<name>/scalar" with a "<name>/vector" beside it: scalar time / vector time.
    void print_speedups() const {
        printf("\nspeed-up of the vector form over the scalar form\n");
        for (const auto& entry : times_) {
            const std::string& name = entry.first;
            const size_t cut = name.rfind("/scalar");
            if (cut == std::string::npos)
                continue;
            const auto vector = times_.find(name.substr(0, cut) + "/vector");
            if (vector != times_.end() && vector->second > 0)
                printf("  %-40s %6.2fx\n", name.substr(0, cut).c_str(),
                       entry.second / vector->second);
        }
    }

  private:
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    for (bool vector : {false, true}) {
        const char* side = vector ? "vector" : "scalar";
        benchmark::RegisterBenchmark((std::string("box_filter/1920x1088_4_bands/") + side).c_str(),
                                     [vector](benchmark::State& s) { box_filter_frame(s, vector); })
            ->Unit(benchmark::kMicrosecond);
        for (const auto& size : {std::pair<int, int>{120, 68}, std::pair<int, int>{240, 135}}) {
            const std::string name = "bilateral_filter_span3/" + std::to_string(size.first) + "x" +
                                     std::to_string(size.second) + "/" + side;
            benchmark::RegisterBenchmark(name.c_str(), [vector, size](benchmark::State& s) {
                bilateral_plane(s, size.first, size.second, vector);
            })->Unit(benchmark::kMicrosecond);
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    summary_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_speedups();
    benchmark::Shutdown();
    return 0;
}
