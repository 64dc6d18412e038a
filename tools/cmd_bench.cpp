// vantor bench: time per frame for each format and size, in two cache regimes, beside a memcpy
// of the same frame measured in the same run.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>

#include <libyuv.h>

#include "args.h"
#include "commands.h"
#include "denoiser.h"
#include "errors.h"
#include "scene.h"
#include "vantor.h"

namespace vtool {

namespace {

const std::vector<option_def> options = {
    {"--sizes", nullptr, true}, {"--formats", nullptr, true}, {"--seconds", nullptr, true}};

// Enough distinct frames that, at 1080p and above, a frame has left the caches by the time it
// comes round again.
constexpr int rotation = 8;

std::vector<std::string> split(const std::string& s) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= s.size()) {
        const size_t comma = s.find(',', start);
        const size_t end = comma == std::string::npos ? s.size() : comma;
        if (end > start)
            out.push_back(s.substr(start, end - start));
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return out;
}

// Milliseconds per call of `fn(i)`, i counting up from 0: the median of five batches of at
// least seconds / 5 each, after two warm-up calls. The median keeps a batch disturbed by other
// work on the machine from deciding the result.
double time_per_call(const std::function<void(int)>& fn, double seconds) {
    constexpr int batches = 5;
    fn(0);
    fn(1);
    using clock = std::chrono::steady_clock;
    std::vector<double> per_call;
    int i = 0;
    for (int b = 0; b < batches; ++b) {
        const auto start = clock::now();
        int n = 0;
        double elapsed = 0;
        do {
            fn(i++);
            ++n;
            elapsed = std::chrono::duration<double>(clock::now() - start).count();
        } while (elapsed < seconds / batches);
        per_call.push_back(elapsed * 1000.0 / n);
    }
    std::sort(per_call.begin(), per_call.end());
    return per_call[batches / 2];
}

// The scene's NV21 frame in another packed format.
std::vector<uint8_t> convert_packed(const frame& nv21, pixel_format f) {
    if (is_420(f))
        return nv21.bytes;
    const int w = nv21.width, h = nv21.height;
    std::vector<uint8_t> i420(static_cast<size_t>(w) * h * 3 / 2);
    uint8_t* y = i420.data();
    uint8_t* u = y + static_cast<size_t>(w) * h;
    uint8_t* v = u + static_cast<size_t>(w / 2) * (h / 2);
    const uint8_t* src = nv21.bytes.data();
    libyuv::NV21ToI420(src, w, src + static_cast<size_t>(w) * h, w, y, w, u, w / 2, v, w / 2, w, h);
    std::vector<uint8_t> out(frame_bytes(f, w, h));
    libyuv::I420ToYUY2(y, w, u, w / 2, v, w / 2, out.data(), 2 * w, w, h);
    return out;
}

}  // namespace

int cmd_bench(int argc, char** argv) {
    const parsed_args a = parse_args(argc, argv, 2, options, "bench");
    if (!a.positionals.empty())
        usage_error("bench takes no input file");
    const double seconds = real_value(a, "--seconds", 0.5, 0.01, 60);
    std::vector<std::pair<int, int>> sizes;
    for (const std::string& s : split(a.value("--sizes", "1920x1080,3840x2160"))) {
        int w = 0, h = 0;
        if (!parse_size(s, &w, &h))
            usage_error("bad frame size '" + s + "' in --sizes: give WIDTHxHEIGHT,...");
        sizes.emplace_back(w, h);
    }
    std::vector<pixel_format> formats;
    for (const std::string& s : split(a.value("--formats", "nv21,nm21,yuyv,yuy2"))) {
        pixel_format f;
        if (!parse_format(s, &f))
            usage_error("unknown format '" + s + "' in --formats: use nv21, nm21, yuyv, yuy2");
        formats.push_back(f);
    }
    for (const auto& size : sizes)
        for (pixel_format f : formats) {
            const std::string problem = geometry_problem(f, size.first, size.second);
            if (!problem.empty())
                usage_error(problem);
        }

    printf(
        "vantor bench: capture scenario, %ld CPUs online, %.2f s per cell (median of 5 batches)\n",
        sysconf(_SC_NPROCESSORS_ONLN), seconds);
    printf("  same = one frame again and again; rotate%d = %d distinct frames in turn\n\n",
           rotation, rotation);
    printf("%-6s %-10s %-8s %10s %10s %11s %9s\n", "format", "size", "regime", "ms/frame",
           "frames/s", "memcpy ms", "x memcpy");
    char rotate_label[16];
    snprintf(rotate_label, sizeof rotate_label, "rotate%d", rotation);
    volatile uint8_t sink = 0;
    int failed_total = 0;
    for (const auto& size : sizes) {
        const int w = size.first, h = size.second;
        const demo_scene scene = make_demo_scene(w, h, 7, noise_settings());
        for (pixel_format f : formats) {
            const std::vector<uint8_t> base = convert_packed(scene.noisy, f);
            std::vector<std::vector<uint8_t>> packed(rotation, base);
            std::vector<frame_buffer> buffers;
            for (int k = 0; k < rotation; ++k) {
                // Distinct contents, so that no two frames share pages or cache lines.
                for (size_t i = static_cast<size_t>(k); i < packed[k].size(); i += 61)
                    packed[k][i] ^= 1;
                buffers.push_back(make_frame_buffer(f, w, h));
                buffers.back().load(packed[k].data());
            }
            std::vector<uint8_t> copy(base.size());
            denoiser d(f, w, h, VTR_SCENARIO_CAPTURE);
            for (int regime = 0; regime < 2; ++regime) {
                const int n = regime == 0 ? 1 : rotation;
                // A failed frame is not run again here (the copy that needs would be timed
                // too); it is counted and reported.
                int calls = 0, failed = 0;
                const double ms = time_per_call(
                    [&](int i) {
                        ++calls;
                        if (!d.run_once(buffers[static_cast<size_t>(i % n)],
                                        static_cast<uint64_t>(i) + 1))
                            ++failed;
                    },
                    seconds);
                const double copy_ms = time_per_call(
                    [&](int i) {
                        memcpy(copy.data(), packed[static_cast<size_t>(i % n)].data(), copy.size());
                        sink = sink + copy[static_cast<size_t>(i) % copy.size()];
                    },
                    seconds / 2);
                char label[24];
                snprintf(label, sizeof label, "%dx%d", w, h);
                printf("%-6s %-10s %-8s %10.2f %10.1f %11.3f %9.1f\n", format_name(f), label,
                       regime == 0 ? "same" : rotate_label, ms, 1000.0 / ms, copy_ms, ms / copy_ms);
                fflush(stdout);
                if (failed)
                    fprintf(stderr,
                            "vantor: %s %s %s: %d of %d frames failed in the library (a stage "
                            "late or refused); their times are in the figures\n",
                            format_name(f), label, regime == 0 ? "same" : rotate_label, failed,
                            calls);
                failed_total += failed;
            }
        }
    }
    return failed_total ? exit_failure : exit_ok;
}

}  // namespace vtool
