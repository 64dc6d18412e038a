// Soak and overload: frames through the public entry points for a long time, every one compared
// with the one-thread model.
//
//   vantor_stress soak [--frames N] [--cycles N] [--width W] [--height H]
//   vantor_stress overload [--seconds S] [--handles N] [--width W] [--height H]
//
// soak (default 10000 frames and 200 cycles at 640x360, a height off the 16-row grid, so every
// NV21 frame also moves its V/U plane): frames through one handle, the four formats in turn;
// then vantor_init / vantor_run / vantor_deinit cycles in both scenarios. It fails unless the
// thread count is back where it was, every block the library took was given back (counted in
// bytes through its allocation hooks), the process heap is back where it was (exact under a
// sanitizer, or with the allocator's thread cache off), LeakSanitizer finds nothing and no
// time-out, refusal or other error line was logged. Nothing here allocates while the library
// runs, and vantor_run itself must not allocate or free (counted through the wrapped C
// library functions).
//
// overload (default 60 s, four handles at 1920x1080; handle i takes format i mod 4 and scenario
// (i / 2) mod 2): each handle on a thread of its own, frames back to back on a machine with fewer
// cores than pipeline threads. A stage whose 1000 ms wait runs out lets its frame go on
// unfinished (the library's rule, seen in vantor_frame_status), so that frame and the next are
// counted apart; a wrong frame without that, a refused frame, a lock time-out, another error
// line, a handle that finishes no frame for 60 s or a thread left over fails the run.
#include <malloc.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/frame_model.h"
#include "entry/test_hooks.h"
#include "platform/hooks.h"
#include "support/frames.h"
#include "vantor.h"
#include "vantor_ext.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VREL_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VREL_SANITIZER 1
#endif
#endif
#if defined(VREL_SANITIZER)
// From the sanitizer runtime's allocator interface (GCC ships no header for it).
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
extern "C" int __lsan_do_recoverable_leak_check(void) __attribute__((weak));
#endif

namespace {

using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point t0) {
    return std::chrono::duration<double>(clock_type::now() - t0).count();
}

// ---- the log, tallied by kind without allocating ------------------------------------------

enum log_kind { stage_timeout, deinit_timeout, lock_timeout, refusal, follow_up, banner, other };
const struct {
    const char* text;  // contained in the line
    log_kind kind;
} kLogKinds[] = {
    {"from vantor_deinit", deinit_timeout},
    {"vantor_timedwait_signal: ", stage_timeout},
    {", mutex lock time out(", lock_timeout},
    {", mutex lock fail", lock_timeout},
    {", ready sub thread wait", refusal},
    // The lines that follow a refusal or another error line, which is counted.
    {" is fail.. ret = ", follow_up},
    {"fail to vantor_run_thread", follow_up},
    {"Android-", banner},
};
std::atomic<long> log_tally[other + 1];
std::mutex kept_mutex;
char kept[8][512];  // the first unexpected error lines
int kept_count = 0;

// Error lines logged by the calling thread (the stage driver logs on the caller's). Having a
// thread-local object also keeps the soak's heap figure exact: without one in the program,
// glibc's bookkeeping of the library's worker threads shows in it at times, 16 bytes either way.
thread_local long thread_errors = 0;

long logged(log_kind k) {
    return log_tally[k];
}

// ---- frames --------------------------------------------------------------------------------

const uint32_t kFormats[4] = {VTR_NV21, VTR_NV21_M, VTR_YUYV, VTR_YUY2};
const char* const kFormatNames[4] = {"NV21", "NM21", "YUYV", "YUY2"};

// One frame of the test scene, as a caller lays it out, with the bytes the model makes of it.
struct frame : vtest::model_case {
    frame(int32_t w, int32_t h, int i, int32_t s, uint32_t seed)
        : model_case(w, h, kFormats[i], s, seed, true), name(kFormatNames[i]) {}
    // The frame status of a run from the input, or -1 for a null result.
    int32_t status(void* handle) { return run(handle) ? vantor_frame_status(handle) : -1; }
    const char* name;
};

std::set<pid_t> baseline_threads() {
    // A runtime that starts a helper thread with the first one (ThreadSanitizer) does so now.
    std::thread([] {}).join();
    return vtest::thread_ids();
}

// ---- soak ------------------------------------------------------------------------------------

// Every allocation and free of the program while `counting` is set (the program is linked with
// malloc, calloc, realloc and free wrapped): the soak's frames must make none.
std::atomic<bool> counting{false};
std::atomic<long> counted{0};

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

size_t live_heap_bytes() {
#if defined(VREL_SANITIZER)
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
#endif
}

// A frame equal to the model, run without an allocation or an error line; prints why not.
bool checked(void* h, frame& f, long n) {
    const long errors = thread_errors;
    counting = true;
    const int32_t status = f.status(h);
    counting = false;
    const std::string m = f.mismatch();
    if (status == VANTOR_FRAME_OK && m.empty() && thread_errors == errors)
        return true;
    printf("soak: frame %ld: status %d, %ld error lines %s\n", n, status, thread_errors - errors,
           m.c_str());
    return false;
}

// One handle through its whole life with a frame.
bool cycle(frame& f, long n) {
    void* h = vantor_init(f.width, f.height, f.scenario);
    bool ok = h && vantor_wait_ready(h, 10000) == 0 && checked(h, f, n);
    ok = vantor_deinit(h) == 0 && ok;
    if (!ok)
        printf("soak: cycle %ld failed\n", n);
    return ok;
}

bool soak(long frames, long cycles, int32_t w, int32_t h) {
    printf("soak: %dx%d, %ld frames through one handle, then %ld init/deinit cycles\n", w, h,
           frames, cycles);
    // The four formats in the capture scenario, then in the preview one.
    std::vector<std::unique_ptr<frame>> f;
    for (int i = 0; i < 8; ++i) {
        f.emplace_back(new frame(w, h, i % 4, i / 4, 1234 + i));
        // A frame the model leaves as it is would not tell a working library from an idle one.
        if (f.back()->expected == f.back()->input) {
            printf("soak: the model leaves the %s frame unchanged\n", f.back()->name);
            return false;
        }
    }
    vtr_alloc_hook = counting_alloc;
    vtr_free_hook = counting_free;
    // A first handle, whose allocations the wrapped functions must see, and a first cycle: the C
    // library keeps some thread stacks for reuse, and the heap baseline is taken with that cache
    // filled and their workers gone.
    const std::set<pid_t> threads_before = baseline_threads();
    counting = true;
    vantor_deinit(vantor_init(w, h, VTR_SCENARIO_PREVIEW));
    counting = false;
    if (counted < 12) {
        printf("soak: the wrapped allocation functions do not reach the library\n");
        return false;
    }
    counted = 0;
    bool ok = cycle(*f[0], -1);
    vtest::wait_threads_since(threads_before, 0, 10000);
    const size_t heap_before = live_heap_bytes();
    const long blocks_before = lib_blocks;

    auto t0 = clock_type::now();
    void* handle = vantor_init(w, h, VTR_SCENARIO_CAPTURE);
    ok = ok && handle && vantor_wait_ready(handle, 10000) == 0;
    long done = 0;
    for (; done < frames && ok; ++done)
        ok = checked(handle, *f[done % 4], done);
    vantor_deinit(handle);
    printf("soak: %ld frames in %.1f s, %s\n", done, seconds_since(t0),
           ok ? "every one equal to the one-thread model" : "STOPPED at a wrong frame");
    t0 = clock_type::now();
    long c = 0;
    for (; c < cycles && ok; ++c)
        ok = cycle(*f[4 * (c % 2) + c / 2 % 4], c);
    printf("soak: %ld init/deinit cycles with a frame each in %.1f s\n", c, seconds_since(t0));

    // The last worker of a handle may still be on its way out when vantor_deinit returns.
    const size_t threads_left = vtest::wait_threads_since(threads_before, 0, 10000);
    const auto end = clock_type::now() + std::chrono::seconds(10);
    while (lib_freed < lib_blocks && clock_type::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    printf(
        "soak: threads left over %zu; library blocks %ld allocated, %ld not freed (%lld bytes)\n",
        threads_left, lib_blocks - blocks_before, lib_blocks - lib_freed, lib_live_bytes.load());
    const size_t heap_after = live_heap_bytes();
#if defined(VREL_SANITIZER)
    const bool exact = true,
               leaks = __lsan_do_recoverable_leak_check && __lsan_do_recoverable_leak_check();
#else
    const char* tunables = getenv("GLIBC_TUNABLES");
    const bool exact = tunables && strstr(tunables, "glibc.malloc.tcache_count=0"), leaks = false;
#endif
    printf("soak: process heap %zu bytes before, %zu after%s%s\n", heap_before, heap_after,
           exact ? "" : " (not compared: the allocator's thread cache is on)",
           leaks ? "; LeakSanitizer found leaks" : "");
    printf("soak: allocations and frees while frames ran %ld\n", counted.load());
    return ok && counted == 0 && threads_left == 0 && lib_freed == lib_blocks &&
           lib_live_bytes == 0 && (!exact || heap_after == heap_before) && !leaks &&
           logged(stage_timeout) == 0 && logged(deinit_timeout) == 0 && logged(lock_timeout) == 0 &&
           logged(refusal) == 0 && logged(other) == 0;
}

// ---- overload --------------------------------------------------------------------------------

struct lane {
    std::unique_ptr<frame> f;
    void* handle = nullptr;
    std::atomic<long> frames{0};  // read by the watchdog
    long correct = 0;             // equal to the model, no time-out in it or the frame before
    long late = 0;                // a stage of this frame or the one before ran out of time
    long wrong = 0;               // differ from the model without any time-out: a defect
    long refused = 0;             // null result or a refused stage
    std::string first_wrong;
    std::atomic<bool> done{false};
};

void run_lane(lane& l, clock_type::time_point end) {
    bool previous_late = false;
    while (clock_type::now() < end) {
        const int32_t status = l.f->status(l.handle);
        const bool late =
            status > 0 && (status & (VANTOR_FRAME_LATE_DEINTERLEAVE | VANTOR_FRAME_LATE_BOX_FILTER |
                                     VANTOR_FRAME_LATE_YUV | VANTOR_FRAME_LATE_INTERLEAVE)) != 0;
        const std::string m = l.f->mismatch();
        if (late || previous_late) {
            // A worker that reports late counts toward the next stage or is not parked when the
            // next frame starts, so the frame after a time-out may be cut short or refused.
            ++l.late;
        } else if (status != VANTOR_FRAME_OK) {
            ++l.refused;
        } else if (!m.empty()) {
            if (l.wrong++ == 0)
                l.first_wrong = m;
        } else {
            ++l.correct;
        }
        previous_late = late;
        ++l.frames;
    }
    l.done = true;
}

bool overload(double seconds, int handles, int32_t w, int32_t h) {
    printf("overload: %d handles on %d threads, %dx%d, %.0f s, %u cores\n", handles, handles, w, h,
           seconds, std::thread::hardware_concurrency());
    const std::set<pid_t> threads_before = baseline_threads();
    std::vector<std::unique_ptr<lane>> lanes;
    for (int i = 0; i < handles; ++i) {
        lanes.emplace_back(new lane);
        lane& l = *lanes.back();
        l.f.reset(new frame(w, h, i % 4, (i / 2) % 2, 77 + i));
        l.handle = vantor_init(w, h, l.f->scenario);
        if (!l.handle || vantor_wait_ready(l.handle, 10000) != 0) {
            printf("overload: handle %d did not come up\n", i);
            return false;
        }
    }
    const auto start = clock_type::now();
    const auto end = start + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    std::vector<std::thread> threads;
    for (auto& l : lanes)
        threads.emplace_back(run_lane, std::ref(*l), end);
    // Watchdog: every handle must finish a frame now and then until its last frame is out. A
    // frame making progress takes at most four stage waits of 1000 ms plus the work.
    std::vector<long> last(lanes.size(), 0);
    std::vector<clock_type::time_point> changed(lanes.size(), start);
    for (bool all_done = false; !all_done;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        all_done = true;
        for (size_t i = 0; i < lanes.size(); ++i) {
            if (lanes[i]->frames != last[i]) {
                last[i] = lanes[i]->frames;
                changed[i] = clock_type::now();
            }
            if (!lanes[i]->done && clock_type::now() - changed[i] > std::chrono::seconds(60)) {
                printf("overload: handle %zu finished no frame for 60 s: deadlock\n", i);
                abort();
            }
            all_done = all_done && lanes[i]->done;
        }
    }
    for (auto& t : threads)
        t.join();
    const double elapsed = seconds_since(start);
    long frames = 0, correct = 0, late = 0, wrong = 0, refused = 0;
    for (size_t i = 0; i < lanes.size(); ++i) {
        lane& l = *lanes[i];
        printf(
            "overload: handle %zu %s %s: %ld frames, %ld equal to the model, %ld late, %ld wrong, "
            "%ld refused %s\n",
            i, l.f->name, l.f->scenario ? "preview" : "capture", l.frames.load(), l.correct, l.late,
            l.wrong, l.refused, l.first_wrong.c_str());
        frames += l.frames;
        correct += l.correct;
        late += l.late;
        wrong += l.wrong;
        refused += l.refused;
        vantor_deinit(l.handle);
    }
    const size_t threads_left = vtest::wait_threads_since(threads_before, 0, 10000);
    printf(
        "overload: %ld frames in %.1f s (%.2f frames/s), %ld equal to the model; %ld late, %ld "
        "wrong otherwise, %ld refused; threads left over %zu\n",
        frames, elapsed, frames / elapsed, correct, late, wrong, refused, threads_left);
    return frames > 0 && wrong == 0 && refused == 0 && logged(lock_timeout) == 0 &&
           logged(other) == 0 && threads_left == 0;
}

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t n, size_t size);
void* __real_realloc(void* p, size_t size);
void __real_free(void* p);
void* __wrap_malloc(size_t size) {
    counted += counting;
    return __real_malloc(size);
}
void* __wrap_calloc(size_t n, size_t size) {
    counted += counting;
    return __real_calloc(n, size);
}
void* __wrap_realloc(void* p, size_t size) {
    counted += counting;
    return __real_realloc(p, size);
}
void __wrap_free(void* p) {
    counted += counting;
    __real_free(p);
}
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    if (prio < 6)
        return 0;
    ++thread_errors;
    log_kind kind = other;
    for (const auto& k : kLogKinds) {
        if (strstr(text, k.text)) {
            kind = k.kind;
            break;
        }
    }
    ++log_tally[kind];
    std::lock_guard<std::mutex> g(kept_mutex);
    if (kind == other && kept_count < 8)
        snprintf(kept[kept_count++], sizeof kept[0], "%s", text);
    return 0;
}

int main(int argc, char** argv) {
    const bool is_soak = argc > 1 && !strcmp(argv[1], "soak");
    double numbers[] = {is_soak ? 10000.0 : 60.0, is_soak ? 200.0 : 4.0, is_soak ? 640.0 : 1920.0,
                        is_soak ? 360.0 : 1080.0};
    const char* const flags[2][4] = {{"--seconds", "--handles", "--width", "--height"},
                                     {"--frames", "--cycles", "--width", "--height"}};
    bool usage = argc < 2 || (!is_soak && strcmp(argv[1], "overload"));
    for (int i = 2; i < argc && !usage; i += 2) {
        int k = 0;
        while (k < 4 && strcmp(argv[i], flags[is_soak][k]))
            ++k;
        usage = k == 4 || i + 1 >= argc;
        if (!usage)
            numbers[k] = atof(argv[i + 1]);
    }
    const int32_t w = static_cast<int32_t>(numbers[2]), h = static_cast<int32_t>(numbers[3]);
    if (usage || numbers[0] < 0 || numbers[1] < (is_soak ? 0 : 1) || w < 16 || w % 16 || h < 1) {
        fprintf(stderr,
                "usage: %s soak [--frames N] [--cycles N] [--width W] [--height H]\n"
                "       %s overload [--seconds S] [--handles N] [--width W] [--height H]\n",
                argv[0], argv[0]);
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const bool ok = is_soak
                        ? soak(static_cast<long>(numbers[0]), static_cast<long>(numbers[1]), w, h)
                        : overload(numbers[0], static_cast<int>(numbers[1]), w, h);
    printf(
        "%s: log: stage time-outs %ld, teardown time-outs %ld, lock time-outs %ld, refusals %ld,"
        " other error lines %ld\n",
        argv[1], logged(stage_timeout), logged(deinit_timeout), logged(lock_timeout),
        logged(refusal), logged(other));
    for (int i = 0; i < kept_count; ++i)
        printf("  error line: %s\n", kept[i]);
    printf("%s: %s\n", argv[1], ok ? "passed" : "FAILED");
    return ok ? 0 : 1;
}
