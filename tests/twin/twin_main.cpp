// Runs every registered twin case for a number of seeded random trials, or times them.
//   vantor_twins [--seed N] [--trials N] [--filter SUBSTRING] [--bench]
//   vantor_twins --replay FILE_OR_DIR...     (the fuzz target on its corpus)
// Built with VANTOR_TWIN_NO_MAIN, the cases serve the libFuzzer build of the fuzz target.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "twin/twin.h"

namespace twin {
namespace {

std::vector<twin_case>& registry() {
    static std::vector<twin_case> cases;
    return cases;
}

}  // namespace

void registrar::add(const twin_case& c) {
    registry().push_back(c);
}

const std::vector<twin_case>& sorted_cases() {
    static const std::vector<twin_case> cases = [] {
        std::vector<twin_case> v = registry();
        std::sort(v.begin(), v.end(), [](const twin_case& a, const twin_case& b) {
            return strcmp(a.name, b.name) < 0;
        });
        return v;
    }();
    return cases;
}

bool context::same(const uint8_t* expected, const uint8_t* actual, int width, int height,
                   int stride, const std::string& what) {
    std::string d = vtest::first_difference(expected, actual, width, height, stride, what.c_str());
    if (d.empty())
        return true;
    return fail(d);
}

bool context::intact(const vtest::guarded& out, const std::string& what) {
    if (out.front_intact())
        return true;
    return fail(what + ": overwrite in front of the buffer");
}

input::input(int width, int height, vtest::rng& r, int stride, int kind)
    : guarded(width > 0 && height > 0
                  ? static_cast<size_t>(stride ? stride : width) * (height - 1) + width
                  : 1),
      pattern(vtest::all_patterns[kind < 0 ? r.range(0, 8) : kind]) {
    memset(data(), 0, size());
    vtest::fill_plane(data(), width, height, stride ? stride : width, pattern, r);
}

std::string input::label(int width, int height) const {
    return std::to_string(width) + "x" + std::to_string(height) + " " +
           vtest::pattern_name(pattern);
}

bool same_outputs(context& ctx, const std::string& what,
                  const std::vector<std::unique_ptr<vtest::guarded>> (&out)[2]) {
    for (size_t i = 0; i < out[0].size(); ++i) {
        const int n = static_cast<int>(out[0][i]->size());
        const std::string where = what + " output " + std::to_string(i);
        if (!ctx.same(out[0][i]->data(), out[1][i]->data(), n, 1, n, where) ||
            !ctx.intact(*out[1][i], where))
            return false;
    }
    return true;
}

void bench_timer::pair(const std::string& label, double bytes,
                       const std::function<void(bool)>& call) {
    auto best_ns = [](const std::function<void()>& f) {
        using clock = std::chrono::steady_clock;
        f();  // warm caches and pages
        double best = 1e30;
        const auto end = clock::now() + std::chrono::milliseconds(300);
        int runs = 0;
        while (runs < 3 || (clock::now() < end && runs < 2000)) {
            const auto t0 = clock::now();
            f();
            const double ns = std::chrono::duration<double, std::nano>(clock::now() - t0).count();
            best = std::min(best, ns);
            ++runs;
        }
        return best;
    };
    std::vector<uint8_t> from(static_cast<size_t>(bytes), 1), to(from.size());
    const double c = best_ns([&] { call(false); });
    const double v = best_ns([&] { call(true); });
    const double m = best_ns([&] { memcpy(to.data(), from.data(), from.size()); });
    printf("%-56s scalar %8.1f MB/s  vector %8.1f MB/s  speed-up %5.2fx  memcpy %8.1f MB/s\n",
           (name + " " + label).c_str(), bytes / c * 1e3, bytes / v * 1e3, c / v, bytes / m * 1e3);
    fflush(stdout);
}

}  // namespace twin

#ifndef VANTOR_TWIN_NO_MAIN
// The fuzz target (fuzz/fuzz_vantor.cpp), run once on every file under the given directories or
// on the given files: the seed corpus and the reproducers kept there become a regression test of
// every build, the emulated Arm ones included. An input that finds something aborts, its file
// named first.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int replay(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for (int i = 0; i < argc; ++i) {
        if (!fs::exists(argv[i])) {
            fprintf(stderr, "replay: no such file or directory: %s\n", argv[i]);
            return 2;
        }
        if (!fs::is_directory(argv[i]))
            files.push_back(argv[i]);
        for (const auto& e :
             fs::is_directory(argv[i]) ? fs::directory_iterator(argv[i]) : fs::directory_iterator())
            files.push_back(e.path().string());
    }
    std::sort(files.begin(), files.end());
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        const std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                                        std::istreambuf_iterator<char>());
        fprintf(stderr, "replay: %s\n", f.c_str());
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
    printf("replay: %zu inputs ran without a finding\n", files.size());
    return files.empty() ? 1 : 0;
}

int main(int argc, char** argv) {
    uint64_t seed = 0;
    int trials = 200;
    const char* filter = "";
    bool bench = false;
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "--seed") && i + 1 < argc) {
            seed = strtoull(argv[++i], nullptr, 0);
        } else if (!strcmp(argv[i], "--trials") && i + 1 < argc) {
            trials = atoi(argv[++i]);
        } else if (!strcmp(argv[i], "--filter") && i + 1 < argc) {
            filter = argv[++i];
        } else if (!strcmp(argv[i], "--bench")) {
            bench = true;
        } else if (!strcmp(argv[i], "--replay")) {
            return replay(argc - i - 1, argv + i + 1);
        } else {
            fprintf(stderr,
                    "usage: %s [--seed N] [--trials N] [--filter SUBSTRING] [--bench]\n"
                    "       %s --replay FILE_OR_DIR...\n",
                    argv[0], argv[0]);
            return 2;
        }
    }
    if (seed == 0) {
        seed = static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    }

    const std::vector<twin::twin_case>& cases = twin::sorted_cases();

    if (bench) {
        twin::bench_timer timer;
        for (const auto& c : cases)
            if (strstr(c.name, filter) && c.bench) {
                timer.name = c.name;
                c.bench(timer);
            }
        return 0;
    }

    printf("twin: seed %llu (replay with --seed %llu)\n", static_cast<unsigned long long>(seed),
           static_cast<unsigned long long>(seed));
    int passed = 0, failed = 0;
    long long compared = 0;
    for (const auto& c : cases) {
        if (!strstr(c.name, filter))
            continue;
        vtest::rng r(seed ^ std::hash<std::string>()(c.name));
        twin::context ctx{r, {}};
        int t = 0;
        for (; t < trials; ++t) {
            if (!c.trial(ctx))
                break;
        }
        compared += t;
        if (t == trials) {
            printf("twin: %-44s %6d random trials, no difference\n", c.name, trials);
            ++passed;
        } else {
            printf("twin: %-44s FAILED in trial %d (seed %llu)\n%s\n", c.name, t,
                   static_cast<unsigned long long>(seed), ctx.failure.c_str());
            ++failed;
        }
    }
    printf("twin: %lld trials compared\n", compared);
    printf("twin: %d passed, %d failed\n", passed, failed);
    return failed == 0 && passed > 0 ? 0 : 1;
}
#endif
