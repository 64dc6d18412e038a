// Soak: many frames through one handle, the four formats in turn at one size, every frame
// compared with the one-thread model; then many vantor_init / vantor_deinit cycles, each with a
// frame. Afterwards the process must have its original thread count, every block the library
// took must have been given back (counted through its allocation hooks, in bytes), the process
// heap must be back where it was (LeakSanitizer also checks in AddressSanitizer builds), and no
// time-out may have been logged. Nothing here allocates while the library runs, so the heap
// figures are exact.
//
//   vantor_soak [--frames N] [--cycles N] [--width W] [--height H]
//
// The defaults are the long form: 10000 frames and 200 cycles at 640x360 (a height that is not
// a multiple of 16, so every NV21 frame also moves its V/U plane).
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <malloc.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "platform/hooks.h"
#include "entry/test_hooks.h"
#include "reliability/log_tally.h"
#include "reliability/workload.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace {

struct options {
    long frames = 10000;
    long cycles = 200;
    int32_t width = 640;
    int32_t height = 360;
};

bool parse(int argc, char** argv, options& o) {
    for (int i = 1; i < argc; ++i) {
        const char* v = i + 1 < argc ? argv[i + 1] : nullptr;
        if (!v)
            return false;
        if (!strcmp(argv[i], "--frames"))
            o.frames = atol(v);
        else if (!strcmp(argv[i], "--cycles"))
            o.cycles = atol(v);
        else if (!strcmp(argv[i], "--width"))
            o.width = atoi(v);
        else if (!strcmp(argv[i], "--height"))
            o.height = atoi(v);
        else
            return false;
        ++i;
    }
    return o.frames >= 0 && o.cycles >= 0 && o.width >= 16 && o.width % 16 == 0 && o.height >= 1;
}

bool run_checked(void* h, vrel::frame& f, long n);

// The library's own blocks, counted without allocating.
std::atomic<long> lib_blocks{0}, lib_freed{0};
std::atomic<long long> lib_live_bytes{0};

void* counting_alloc(size_t size) {
    void* p = malloc(size);
    if (p) {
        ++lib_blocks;
        lib_live_bytes += static_cast<long long>(malloc_usable_size(p));
    }
    return p;
}

void counting_free(void* p) {
    if (p) {
        ++lib_freed;
        lib_live_bytes -= static_cast<long long>(malloc_usable_size(p));
    }
    free(p);
}

// One handle through its whole life with a frame.
bool cycle(vrel::frame& f, int32_t scenario, long n) {
    void* h = vantor_init(f.width, f.height, scenario);
    if (!h || vantor_wait_ready(h, 10000) != 0) {
        printf("soak: cycle %ld: the handle did not come up\n", n);
        return false;
    }
    bool ok = run_checked(h, f, n);
    if (vantor_deinit(h) != 0) {
        printf("soak: cycle %ld: vantor_deinit failed\n", n);
        ok = false;
    }
    return ok;
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Runs one frame; false, with the reason printed, if it is not the model's.
bool run_checked(void* h, vrel::frame& f, long n) {
    f.reset();
    if (!vantor_run(h, f.address_1(), f.address_2(), f.width, f.height,
                    static_cast<int32_t>(f.format))) {
        printf("soak: frame %ld: vantor_run returned null\n", n);
        return false;
    }
    const std::string m = f.mismatch();
    if (!m.empty()) {
        printf("soak: frame %ld: %s\n", n, m.c_str());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    options o;
    if (!parse(argc, argv, o)) {
        fprintf(stderr, "usage: %s [--frames N] [--cycles N] [--width W] [--height H]\n", argv[0]);
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    printf("soak: %dx%d, %ld frames through one handle, then %ld init/deinit cycles\n", o.width,
           o.height, o.frames, o.cycles);

    // Capture scenario for the long run; the cycles alternate both scenarios.
    std::vector<std::unique_ptr<vrel::frame>> frames;
    for (int i = 0; i < 8; ++i) {
        frames.emplace_back(
            new vrel::frame(o.width, o.height, vrel::all_formats[i % 4], i / 4, 1234 + i));
        // A frame the model leaves as it is would not tell a working library from one that
        // does nothing.
        if (frames.back()->expected[0] == frames.back()->input[0]) {
            printf("soak: the model leaves the %s frame unchanged\n",
                   vrel::format_name(frames.back()->format));
            return 1;
        }
    }

    vtr_alloc_hook = counting_alloc;
    vtr_free_hook = counting_free;
    // One cycle first: the C library keeps some thread stacks (and their bookkeeping) for
    // reuse, and the baseline is taken with that cache already filled.
    const std::set<pid_t> threads_before = vrel::baseline_threads();
    bool ok = cycle(*frames[0], VTR_SCENARIO_CAPTURE, -1);
    vtest::wait_threads_since(threads_before, 0, 10000);
    const size_t heap_before = vrel::live_heap_bytes();
    const long blocks_before = lib_blocks;
    long frames_done = 0, cycles_done = 0;
    {
        const auto t0 = std::chrono::steady_clock::now();
        void* h = vantor_init(o.width, o.height, VTR_SCENARIO_CAPTURE);
        if (!h || vantor_wait_ready(h, 10000) != 0) {
            printf("soak: the handle did not come up\n");
            return 1;
        }
        for (long n = 0; n < o.frames && ok; ++n, ++frames_done)
            ok = run_checked(h, *frames[n % 4], n);
        vantor_deinit(h);
        const double frame_s = seconds_since(t0);
        printf("soak: %ld frames in %.1f s (%.1f frames/s), %s\n", frames_done, frame_s,
               frames_done / (frame_s > 0 ? frame_s : 1),
               ok ? "every one equal to the one-thread model" : "STOPPED at a wrong frame");

        const auto t1 = std::chrono::steady_clock::now();
        for (long c = 0; c < o.cycles && ok; ++c, ++cycles_done) {
            const int32_t scenario = static_cast<int32_t>(c % 2);
            ok = cycle(*frames[4 * scenario + c / 2 % 4], scenario, c);
        }
        printf("soak: %ld init/deinit cycles with a frame each in %.1f s\n", cycles_done,
               seconds_since(t1));

        // The last worker of a handle may still be on its way out when vantor_deinit returns.
        const size_t threads_left = vtest::wait_threads_since(threads_before, 0, 10000);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (lib_freed < lib_blocks && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        printf("soak: threads left over %zu (of %zu started)\n", threads_left,
               static_cast<size_t>(15 * (1 + o.cycles + 1)));
        printf("soak: library blocks %ld allocated during the soak, %ld not freed (%lld bytes)\n",
               lib_blocks - blocks_before, lib_blocks - lib_freed, lib_live_bytes.load());
        ok = ok && threads_left == 0 && lib_freed == lib_blocks && lib_live_bytes == 0;
    }

    const size_t heap_after = vrel::live_heap_bytes();
    const bool leaks = vrel::leak_check_found_leaks();
    const bool exact = vrel::live_heap_is_exact();
    printf("soak: process heap %zu bytes before, %zu after%s%s\n", heap_before, heap_after,
           exact ? "" : " (not compared: the allocator's thread cache is on)",
           leaks ? "; LeakSanitizer found leaks" : "");
    const vrel::log_totals t = vrel::log_now();
    printf(
        "soak: log lines %ld; stage time-outs %ld, teardown time-outs %ld, lock time-outs %ld,"
        " refusals %ld, other error lines %ld\n",
        t.lines, t.stage_timeouts, t.deinit_timeouts, t.lock_timeouts, t.refusals, t.other_errors);
    vrel::print_other_errors(stdout);
    ok = ok && (!exact || heap_after == heap_before) && !leaks && t.stage_timeouts == 0 &&
         t.deinit_timeouts == 0 && t.lock_timeouts == 0 && t.refusals == 0 && t.other_errors == 0;
    printf("soak: %s\n", ok ? "passed" : "FAILED");
    return ok ? 0 : 1;
}
