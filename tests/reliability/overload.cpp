// Overload: several handles, each on a thread of its own, process frames back to back for a
// fixed time on a machine with fewer cores than pipeline threads. Every frame is compared with
// the one-thread model. A stage whose 1000 ms wait runs out lets its frame go on unfinished (the
// library's rule), so such frames are counted and reported apart; a wrong frame without a
// time-out, a refused frame, a crash or a handle that stops making progress fails the run.
//
//   vantor_overload [--seconds S] [--handles N] [--width W] [--height H]
//
// The defaults are the long form: 60 s, four handles at 1920x1080. Handle i takes format
// i mod 4 (NV21, NM21, YUYV, YUY2) and scenario (i / 2) mod 2.
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

#include "entry/test_hooks.h"
#include "reliability/log_tally.h"
#include "reliability/workload.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace {

using clock_type = std::chrono::steady_clock;

struct options {
    double seconds = 60;
    int handles = 4;
    int32_t width = 1920;
    int32_t height = 1080;
};

bool parse(int argc, char** argv, options& o) {
    for (int i = 1; i < argc; ++i) {
        const char* v = i + 1 < argc ? argv[i + 1] : nullptr;
        if (!v)
            return false;
        if (!strcmp(argv[i], "--seconds"))
            o.seconds = atof(v);
        else if (!strcmp(argv[i], "--handles"))
            o.handles = atoi(v);
        else if (!strcmp(argv[i], "--width"))
            o.width = atoi(v);
        else if (!strcmp(argv[i], "--height"))
            o.height = atoi(v);
        else
            return false;
        ++i;
    }
    return o.seconds > 0 && o.handles >= 1 && o.width >= 16 && o.width % 16 == 0 && o.height >= 1;
}

struct lane {
    std::unique_ptr<vrel::frame> f;
    void* handle = nullptr;
    // Written by the lane's thread, read by the watchdog and at the end.
    std::atomic<long> frames{0};
    long correct = 0;          // equal to the model, no time-out in or before the frame
    long timed_out = 0;        // a stage of this frame or of the one before timed out
    long timed_out_wrong = 0;  // ... and the bytes differ from the model
    long wrong = 0;            // differ from the model without any time-out: a defect
    long refused = 0;          // vantor_run returned null, or a stage found a worker not parked
    std::string first_wrong;
    std::atomic<bool> done{false};
};

void run_lane(lane& l, clock_type::time_point end) {
    long timeouts_seen = vrel::thread_stage_timeouts();
    long refusals_seen = vrel::thread_refusals();
    bool previous_timed_out = false;
    while (clock_type::now() < end) {
        l.f->reset();
        const int32_t* r = vantor_run(l.handle, l.f->address_1(), l.f->address_2(), l.f->width,
                                      l.f->height, static_cast<int32_t>(l.f->format));
        const long timeouts = vrel::thread_stage_timeouts();
        const long refusals = vrel::thread_refusals();
        const bool timed_out = timeouts != timeouts_seen;
        const bool refused = refusals != refusals_seen;
        timeouts_seen = timeouts;
        refusals_seen = refusals;
        const std::string m = l.f->mismatch();
        if (timed_out || previous_timed_out) {
            // A worker that reports late counts toward the next stage or is not parked when
            // the next frame starts, so the frame after a time-out may be cut short or refused.
            ++l.timed_out;
            l.timed_out_wrong += !m.empty();
        } else if (!r || refused) {
            ++l.refused;
        } else if (!m.empty()) {
            if (l.wrong++ == 0)
                l.first_wrong = m;
        } else {
            ++l.correct;
        }
        previous_timed_out = timed_out;
        ++l.frames;
    }
    l.done = true;
}

}  // namespace

int main(int argc, char** argv) {
    options o;
    if (!parse(argc, argv, o)) {
        fprintf(stderr, "usage: %s [--seconds S] [--handles N] [--width W] [--height H]\n",
                argv[0]);
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    printf("overload: %d handles on %d threads, %dx%d, %.0f s, %u cores\n", o.handles, o.handles,
           o.width, o.height, o.seconds, std::thread::hardware_concurrency());

    const std::set<pid_t> threads_before = vrel::baseline_threads();
    std::vector<std::unique_ptr<lane>> lanes;
    for (int i = 0; i < o.handles; ++i) {
        lanes.emplace_back(new lane);
        lane& l = *lanes.back();
        l.f.reset(
            new vrel::frame(o.width, o.height, vrel::all_formats[i % 4], (i / 2) % 2, 77 + i));
        l.handle = vantor_init(o.width, o.height, l.f->scenario);
        if (!l.handle || vantor_wait_ready(l.handle, 10000) != 0) {
            printf("overload: handle %d did not come up\n", i);
            return 1;
        }
    }

    const auto start = clock_type::now();
    const auto end = start + std::chrono::milliseconds(static_cast<long>(o.seconds * 1000));
    std::vector<std::thread> threads;
    for (auto& l : lanes)
        threads.emplace_back(run_lane, std::ref(*l), end);

    // Watchdog: every handle must finish a frame now and then, also after the end, until its
    // last frame is out. The longest a frame can take while making progress is four stage
    // waits of 1000 ms plus the work itself.
    const auto stall_limit = std::chrono::seconds(60);
    std::vector<long> last(lanes.size(), 0);
    std::vector<clock_type::time_point> last_change(lanes.size(), start);
    for (bool all_done = false; !all_done;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto now = clock_type::now();
        all_done = true;
        for (size_t i = 0; i < lanes.size(); ++i) {
            const long n = lanes[i]->frames;
            if (n != last[i]) {
                last[i] = n;
                last_change[i] = now;
            }
            if (!lanes[i]->done && now - last_change[i] > stall_limit) {
                printf("overload: handle %zu finished no frame for %lld s: deadlock\n", i,
                       static_cast<long long>(stall_limit.count()));
                abort();
            }
            all_done = all_done && lanes[i]->done;
        }
    }
    for (auto& t : threads)
        t.join();
    const double elapsed = std::chrono::duration<double>(clock_type::now() - start).count();

    long frames = 0, correct = 0, timed_out = 0, timed_out_wrong = 0, wrong = 0, refused = 0;
    for (size_t i = 0; i < lanes.size(); ++i) {
        lane& l = *lanes[i];
        printf(
            "overload: handle %zu %s %s: %ld frames, %ld equal to the model, %ld with a "
            "time-out (%ld of them wrong), %ld wrong, %ld refused\n",
            i, vrel::format_name(l.f->format), l.f->scenario ? "preview" : "capture",
            l.frames.load(), l.correct, l.timed_out, l.timed_out_wrong, l.wrong, l.refused);
        if (!l.first_wrong.empty())
            printf("overload:   first wrong frame: %s\n", l.first_wrong.c_str());
        frames += l.frames;
        correct += l.correct;
        timed_out += l.timed_out;
        timed_out_wrong += l.timed_out_wrong;
        wrong += l.wrong;
        refused += l.refused;
        vantor_deinit(l.handle);
    }
    const size_t threads_left = vtest::wait_threads_since(threads_before, 0, 10000);
    const vrel::log_totals t = vrel::log_now();
    printf("overload: %ld frames in %.1f s (%.2f frames/s), %ld equal to the model\n", frames,
           elapsed, frames / elapsed, correct);
    printf("overload: stage-wait time-outs logged %ld; frames affected %ld, of which wrong %ld\n",
           t.stage_timeouts, timed_out, timed_out_wrong);
    printf(
        "overload: wrong frames without a time-out %ld, refused frames %ld (refusal lines %ld),"
        " lock time-outs %ld, other error lines %ld\n",
        wrong, refused, t.refusals, t.lock_timeouts, t.other_errors);
    vrel::print_other_errors(stdout);
    printf("overload: threads left over %zu\n", threads_left);
    const bool ok = frames > 0 && wrong == 0 && refused == 0 && t.lock_timeouts == 0 &&
                    t.other_errors == 0 && threads_left == 0;
    printf("overload: %s\n", ok ? "passed" : "FAILED");
    return ok ? 0 : 1;
}
