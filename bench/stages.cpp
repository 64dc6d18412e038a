// Per-stage profile of whole frames: where the time of vantor_run goes, stage by stage, on one
// core and on two, beside the bytes each stage moves and a copy bandwidth measured in the same
// run. Needs a profiling build (VANTOR_PROFILE=ON), whose driver and workers stamp the frame
// record; a normal build has no clock call in the frame path.
//
//   scripts/build.sh profile && build/profile/bench/vantor_bench_stages [--runs 3] [--frames N]
//                                                                      [--only 4K]
//
// Every figure is the median over the frames of one run; a cell shows the lowest and highest
// of those medians over the runs. Frames rotate through 8 distinct inputs, so the input is cold.
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <vector>

#include "entry/handle.h"
#include "vantor.h"
#include "vantor_ext.h"

#if !VTR_PROFILE
#error "vantor_bench_stages needs a build with VANTOR_PROFILE=ON"
#endif

namespace {

constexpr int kRotation = 8;
constexpr int kWarmup = 5;
constexpr size_t kCopyBytes = size_t{256} << 20;  // per buffer: far beyond the caches

struct config {
    const char* name;
    uint32_t format;
    int32_t width, height;
};

const config kConfigs[] = {
    {"1080p NV21", VTR_NV21, 1920, 1080},
    {"1080p YUYV", VTR_YUYV, 1920, 1080},
    {"4K NV21", VTR_NV21, 3840, 2160},
};

// Rows of the table: the six pieces of a frame, then the whole.
enum row_id { DEINT, BOX, DECIMATE, PLANES, INTERLEAVE, MOVE, FRAME, RUN, ROWS };
const char* const kRowNames[ROWS] = {"deinterleave",   "box filter", "luma decimation",
                                     "three planes",   "interleave", "chroma move",
                                     "frame (driver)", "vantor_run"};
// The stage of each worker stage row; -1 for work on the driver's thread.
const int kStageOf[ROWS] = {VTR_STAGE_DEINTERLEAVE,
                            VTR_STAGE_BOX_FILTER,
                            -1,
                            VTR_STAGE_YUV,
                            VTR_STAGE_INTERLEAVE,
                            -1,
                            -1,
                            -1};

int64_t now_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

void pin_to(int cores) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int c = 0; c < cores; ++c)
        CPU_SET(c, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) {
        perror("sched_setaffinity");
        exit(1);
    }
}

// ---- bytes each stage reads and writes, from the geometry -------------------------------

struct traffic {
    double read[ROWS] = {};
    double written[ROWS] = {};
};

traffic traffic_of(const config& c) {
    const double w = c.width, h = c.height;
    const int32_t ha_i = (c.height + 15) & ~15;
    const double ha = ha_i;
    const double blocks = (w / 16) * (ha_i / 16);
    const bool nv21 = c.format == VTR_NV21;
    const int32_t strip = (ha_i / 4) & ~15;
    const int32_t last = c.height - 3 * strip;
    const double ragged = last % 16;  // bottom rows of the last strip beside the kernel
    const double padding = last % 16 ? 16 - ragged : 0;  // luma rows filled below the frame
    traffic t;
    if (nv21) {
        // One VU row in eight is sampled, whole; the ragged rows are copied onto themselves.
        t.read[DEINT] = (ha_i / 16) * w + ragged * w + (last % 16 ? w : 0);
        t.written[DEINT] = 2 * blocks + (ragged + padding) * w;
    } else {
        t.read[DEINT] = 2 * w * h;
        t.written[DEINT] = w * ha + 2 * blocks;
    }
    t.read[BOX] = w * ha;
    t.written[BOX] = 2 * w * ha;
    t.read[DECIMATE] = (ha_i / 16) * w;  // every sixteenth row of y_low, a line per 4 samples
    t.written[DECIMATE] = blocks;
    t.read[PLANES] = 3 * blocks;
    t.written[PLANES] = w * ha + (nv21 ? w * ha / 2 : w * ha);  // y_low again, two chroma planes
    if (nv21) {
        t.read[INTERLEAVE] = 3 * w * h + w * h / 2 + w * h / 2;
        t.written[INTERLEAVE] = w * h + w * h / 2;
        if (c.height % 16 != 0) {
            t.read[MOVE] = w * h / 2;
            t.written[MOVE] = w * h / 2;
        }
    } else {
        t.read[INTERLEAVE] = 2 * w * h + 2 * w * h + w * h;
        t.written[INTERLEAVE] = 2 * w * h;
    }
    for (int r = DEINT; r <= MOVE; ++r) {
        t.read[FRAME] += t.read[r];
        t.written[FRAME] += t.written[r];
    }
    t.read[RUN] = t.read[FRAME];
    t.written[RUN] = t.written[FRAME];
    return t;
}

// ---- copy bandwidth ------------------------------------------------------------------------

struct copy_job {
    uint8_t* dst;
    const uint8_t* src;
    size_t bytes;
};

void* copy_body(void* arg) {
    const copy_job* j = static_cast<copy_job*>(arg);
    memcpy(j->dst, j->src, j->bytes);
    return nullptr;
}

// Bytes read plus bytes written per second by `threads` threads copying halves of a buffer far
// larger than the caches; the best of five.
double copy_bandwidth(int threads) {
    static std::vector<uint8_t> src(kCopyBytes, 1), dst(kCopyBytes, 2);
    double best = 0;
    for (int rep = 0; rep < 5; ++rep) {
        std::vector<pthread_t> tids(threads);
        std::vector<copy_job> jobs(threads);
        const size_t part = kCopyBytes / threads;
        const int64_t t0 = now_ns();
        for (int i = 0; i < threads; ++i) {
            jobs[i] = {dst.data() + i * part, src.data() + i * part, part};
            pthread_create(&tids[i], nullptr, copy_body, &jobs[i]);
        }
        for (pthread_t t : tids)
            pthread_join(t, nullptr);
        const double seconds = (now_ns() - t0) * 1e-9;
        best = std::max(best, 2.0 * kCopyBytes / seconds);
    }
    return best;
}

// ---- one run of frames ---------------------------------------------------------------------

// Per row: wall time, and for worker stages the delay from the broadcast to the first worker's
// start and to the last worker's report; all in microseconds.
struct sample {
    double wall[ROWS];
    double first[ROWS];
    double last[ROWS];
};

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

size_t frame_bytes(const config& c) {
    const size_t ha = (c.height + 15) & ~15;
    if (c.format == VTR_NV21)
        return c.width * ha + c.width * static_cast<size_t>(c.height / 2);
    return 2 * static_cast<size_t>(c.width) * c.height;
}

// The medians of `frames` frames on `cores` cores.
bool run_frames(const config& c, int cores, int frames, sample* out) {
    pin_to(cores);  // the workers inherit the mask of the thread that starts them
    const size_t bytes = frame_bytes(c);
    std::vector<std::vector<uint8_t>> inputs(kRotation, std::vector<uint8_t>(bytes));
    uint32_t seed = 42;
    for (auto& f : inputs)
        for (size_t i = 0; i < bytes; i += 64) {
            seed = seed * 1664525u + 1013904223u;
            memset(f.data() + i, seed >> 24, std::min<size_t>(64, bytes - i));
        }
    void* handle = vantor_init(c.width, c.height, VTR_SCENARIO_PREVIEW);
    if (handle == nullptr || vantor_wait_ready(handle, 10000) != 0) {
        fprintf(stderr, "vantor_init failed for %s\n", c.name);
        return false;
    }
    const vtr_profile& p = static_cast<vantor_handle*>(handle)->thread[0].profile;
    const size_t vu = c.width * static_cast<size_t>((c.height + 15) & ~15);
    std::vector<double> wall[ROWS], first[ROWS], last[ROWS];
    for (int n = 0; n < kWarmup + frames; ++n) {
        uint8_t* f = inputs[n % kRotation].data();
        const int64_t t0 = now_ns();
        vantor_run(handle, reinterpret_cast<uintptr_t>(f), reinterpret_cast<uintptr_t>(f + vu),
                   c.width, c.height, static_cast<int32_t>(c.format));
        const int64_t t1 = now_ns();
        if (n < kWarmup)
            continue;
        if (vantor_frame_status(handle) != VANTOR_FRAME_OK) {
            fprintf(stderr, "%s: frame %d did not complete cleanly\n", c.name, n);
            vantor_deinit(handle);
            return false;
        }
        for (int r = 0; r < ROWS; ++r) {
            const int s = kStageOf[r];
            double wall_ns = 0, first_ns = 0, last_ns = 0;
            if (s >= 0) {
                const int workers = s == VTR_STAGE_YUV ? VTR_PLANE_WORKERS : VTR_STRIP_COUNT;
                int64_t lo = INT64_MAX, hi = 0;
                for (int i = 0; i < workers; ++i) {
                    lo = std::min(lo, p.start[s][i]);
                    hi = std::max(hi, p.report[s][i]);
                }
                wall_ns = p.woken[s] - p.broadcast[s];
                first_ns = lo - p.broadcast[s];
                last_ns = hi - p.broadcast[s];
            } else if (r == DECIMATE) {
                wall_ns = p.decimate[1] - p.decimate[0];
            } else if (r == MOVE) {
                wall_ns = p.move[1] - p.move[0];
            } else if (r == FRAME) {
                wall_ns = p.frame_end - p.frame_begin;
            } else {
                wall_ns = t1 - t0;
            }
            wall[r].push_back(wall_ns * 1e-3);
            first[r].push_back(first_ns * 1e-3);
            last[r].push_back(last_ns * 1e-3);
        }
    }
    vantor_deinit(handle);
    for (int r = 0; r < ROWS; ++r) {
        out->wall[r] = median(wall[r]);
        out->first[r] = median(first[r]);
        out->last[r] = median(last[r]);
    }
    return true;
}

// ---- printing -------------------------------------------------------------------------------

struct range {
    double lo = 1e300, hi = -1e300;
    void add(double v) {
        lo = std::min(lo, v);
        hi = std::max(hi, v);
    }
};

std::string cell(const range& r, int decimals) {
    char buf[48];
    if (r.hi - r.lo < 0.5 * (decimals == 0 ? 1 : decimals == 1 ? 0.1 : 0.01))
        snprintf(buf, sizeof buf, "%.*f", decimals, r.lo);
    else
        snprintf(buf, sizeof buf, "%.*f-%.*f", decimals, r.lo, decimals, r.hi);
    return buf;
}

int usage() {
    fprintf(stderr, "usage: vantor_bench_stages [--runs N] [--frames N] [--only NAME]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 3, frames_1080 = 60;
    const char* only = nullptr;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (i + 1 >= argc)
            return usage();
        if (a == "--runs")
            runs = atoi(argv[++i]);
        else if (a == "--frames")
            frames_1080 = atoi(argv[++i]);
        else if (a == "--only")
            only = argv[++i];
        else
            return usage();
    }
    if (runs < 1 || frames_1080 < 1)
        return usage();

    constexpr int kCoreCounts[2] = {1, 2};
    const int nconfigs = sizeof kConfigs / sizeof kConfigs[0];
    std::vector<sample> results[sizeof kConfigs / sizeof kConfigs[0]][2];
    range bandwidth[2];
    for (int run = 0; run < runs; ++run) {
        for (int k = 0; k < 2; ++k) {
            pin_to(kCoreCounts[k]);
            bandwidth[k].add(copy_bandwidth(kCoreCounts[k]) * 1e-9);
        }
        for (int ci = 0; ci < nconfigs; ++ci) {
            const config& c = kConfigs[ci];
            if (only != nullptr && strstr(c.name, only) == nullptr)
                continue;
            const int frames = std::max(10, static_cast<int>(static_cast<int64_t>(frames_1080) *
                                                             1920 * 1080 / (c.width * c.height)));
            for (int k = 0; k < 2; ++k) {
                sample s;
                if (!run_frames(c, kCoreCounts[k], frames, &s))
                    return 1;
                results[ci][k].push_back(s);
            }
        }
    }

    printf(
        "Copy bandwidth (bytes read + written, memcpy of %zu MiB): 1 core %s GB/s, "
        "2 cores %s GB/s\n",
        kCopyBytes >> 20, cell(bandwidth[0], 1).c_str(), cell(bandwidth[1], 1).c_str());
    printf(
        "Times in us, medians per frame; a-b is the range over %d runs. first/last: from the "
        "stage's broadcast to its first worker's start / last worker's report.\n",
        runs);
    for (int ci = 0; ci < nconfigs; ++ci) {
        const config& c = kConfigs[ci];
        if (results[ci][0].empty())
            continue;
        const traffic t = traffic_of(c);
        printf("\n%s (%dx%d)\n", c.name, c.width, c.height);
        printf("%-16s %7s %7s | %13s %9s %9s %11s | %13s %9s %9s %11s\n", "", "MB rd", "MB wr",
               "1 core wall", "first", "last", "floor", "2 cores wall", "first", "last", "floor");
        for (int r = 0; r < ROWS; ++r) {
            printf("%-16s %7.2f %7.2f", kRowNames[r], t.read[r] * 1e-6, t.written[r] * 1e-6);
            for (int k = 0; k < 2; ++k) {
                range wall, first, last, floor;
                for (const sample& s : results[ci][k]) {
                    wall.add(s.wall[r]);
                    first.add(s.first[r]);
                    last.add(s.last[r]);
                }
                floor.lo = (t.read[r] + t.written[r]) / (bandwidth[k].hi * 1e9) * 1e6;
                floor.hi = (t.read[r] + t.written[r]) / (bandwidth[k].lo * 1e9) * 1e6;
                const bool stage = kStageOf[r] >= 0;
                printf(" | %13s %9s %9s %11s", cell(wall, 0).c_str(),
                       stage ? cell(first, 0).c_str() : "", stage ? cell(last, 0).c_str() : "",
                       cell(floor, 0).c_str());
            }
            printf("\n");
        }
        for (int k = 0; k < 2; ++k) {
            range ratio;
            for (const sample& s : results[ci][k])
                for (double bw : {bandwidth[k].lo, bandwidth[k].hi})
                    ratio.add(s.wall[RUN] /
                              ((t.read[FRAME] + t.written[FRAME]) / (bw * 1e9) * 1e6));
            printf("  %d core%s: vantor_run / traffic floor = %s\n", kCoreCounts[k], k ? "s" : "",
                   cell(ratio, 2).c_str());
        }
        range speedup;
        for (size_t i = 0; i < results[ci][0].size(); ++i)
            speedup.add(results[ci][0][i].wall[RUN] / results[ci][1][i].wall[RUN]);
        printf("  two cores over one: %s times\n", cell(speedup, 2).c_str());
    }
    return 0;
}
