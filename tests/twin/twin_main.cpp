// The twin harness's registry, trial context and bench timer, shared by the twin program
// (twin_run.cpp) and the fuzz target, which both drive the registered cases.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
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
    if (width > 0 && height > 0)
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
