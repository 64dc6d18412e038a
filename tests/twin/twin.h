// The twin harness: every vector kernel against its scalar twin on seeded random sizes and
// contents, with guarded buffers; in bench mode the same pairs are timed side by side.
//
// A kernel family registers its cases from its own file:
//   const twin::twin_case cases[] = {{"box_filter_col", trial_fn, bench_fn}, ...};
//   const twin::registrar reg(cases);
#ifndef VANTOR_TESTS_TWIN_H
#define VANTOR_TESTS_TWIN_H

#include <string.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/frames.h"

namespace twin {

struct context {
    vtest::rng& r;
    std::string failure;  // set by fail(); the trial should return false after it

    bool fail(const std::string& message) {
        failure = message;
        return false;
    }
    // Compares two planes; on a difference records the first differing sample and a map.
    bool same(const uint8_t* expected, const uint8_t* actual, int width, int height, int stride,
              const std::string& what);
    // Checks the front guard of a guarded output buffer.
    bool intact(const vtest::guarded& out, const std::string& what);
};

// Outputs start with this value, so that a write outside the expected area shows as a
// difference from the scalar twin, which leaves it alone.
constexpr uint8_t kUnwritten = 0x5A;

// A guarded input plane of width x height samples, row stride `stride` (0: width), ending
// right after its last sample (at least one byte), in test pattern `kind` (-1: a random one).
struct input : vtest::guarded {
    input(int width, int height, vtest::rng& r, int stride = 0, int kind = -1);
    // "WxH pattern" for failure messages.
    std::string label(int width, int height) const;
    vtest::pattern pattern;
};

// Runs call(false, outputs) for the scalar twin and call(true, outputs) for the vector kernel,
// each into its own guarded outputs of the given sizes, prefilled with kUnwritten, and
// compares them byte for byte together with the guard in front of each vector output.
bool same_outputs(context& ctx, const std::string& what,
                  const std::vector<std::unique_ptr<vtest::guarded>> (&out)[2]);
template <typename Call>
bool twins(context& ctx, const std::string& what, const std::vector<size_t>& sizes, Call call) {
    std::vector<std::unique_ptr<vtest::guarded>> out[2];
    for (int v = 0; v < 2; ++v) {
        std::vector<uint8_t*> ptr;
        for (size_t n : sizes) {
            out[v].emplace_back(new vtest::guarded(n > 0 ? n : 1));
            ptr.push_back(out[v].back()->data());
            memset(ptr.back(), kUnwritten, out[v].back()->size());
        }
        call(v == 1, ptr.data());
    }
    return same_outputs(ctx, what, out);
}

class bench_timer {
  public:
    std::string name;  // of the case being timed, printed before each label
    // Times the scalar form of one workload, call(false), and the vector form, call(true), and
    // prints both rates, the speed-up and the rate of a copy of as many bytes. `bytes` is the
    // amount of plane data one call processes.
    void pair(const std::string& label, double bytes, const std::function<void(bool)>& call);
};

struct twin_case {
    const char* name;
    // One random trial: picks sizes and contents from ctx.r, runs both twins, compares.
    bool (*trial)(context& ctx);
    // Optional: times both twins on a fixed, realistic workload.
    void (*bench)(bench_timer& timer);
};

struct registrar {
    template <size_t N>
    explicit registrar(const twin_case (&cases)[N]) {
        for (const twin_case& c : cases)
            add(c);
    }
    static void add(const twin_case& c);
};

// Every registered case, sorted by name.
const std::vector<twin_case>& sorted_cases();

}  // namespace twin

#endif
