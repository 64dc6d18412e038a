// Runs every registered twin case for a number of seeded random trials, or times them.
//   vantor_twins [--seed N] [--trials N] [--filter SUBSTRING] [--bench]
//   vantor_twins --replay FILE_OR_DIR...     (the fuzz target on its corpus)
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
