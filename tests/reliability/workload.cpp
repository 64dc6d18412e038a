#include "reliability/workload.h"

#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <thread>

#include "entry/frame_model.h"
#include "entry/test_hooks.h"
#include "support/frames.h"
#include "vantor.h"

#if defined(__SANITIZE_ADDRESS__)
#define VREL_ASAN 1
#elif defined(__SANITIZE_THREAD__)
#define VREL_TSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VREL_ASAN 1
#elif __has_feature(thread_sanitizer)
#define VREL_TSAN 1
#endif
#endif

#if defined(VREL_ASAN) || defined(VREL_TSAN)
// From the sanitizer runtime's allocator interface (GCC ships no header for it).
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#endif
#if defined(VREL_ASAN)
#include <sanitizer/lsan_interface.h>
#endif

namespace vrel {

const uint32_t all_formats[4] = {VTR_NV21, VTR_NV21_M, VTR_YUYV, VTR_YUY2};

const char* format_name(uint32_t format) {
    switch (format) {
        case VTR_NV21:
            return "NV21";
        case VTR_NV21_M:
            return "NM21";
        case VTR_YUYV:
            return "YUYV";
        case VTR_YUY2:
            return "YUY2";
    }
    return "unknown";
}

frame::frame(int32_t w, int32_t h, uint32_t f, int32_t s, uint32_t seed)
    : width(w), height(h), aligned_height((h + 15) & ~15), format(f), scenario(s) {
    const vtest::scene sc = vtest::make_scene(w, h, seed, 12);
    const size_t luma = static_cast<size_t>(w) * aligned_height;
    const size_t vu = static_cast<size_t>(w) * (aligned_height / 2);
    vtest::rng r(seed);
    if (format == VTR_YUYV || format == VTR_YUY2) {
        input[0].resize(static_cast<size_t>(2) * w * h);
        vtest::pack_yuyv(sc, input[0].data());
    } else {
        // Padding rows and the unused tail of the V/U plane hold noise: the library must
        // overwrite or ignore them exactly as the model does.
        std::vector<uint8_t> y(luma), c(vu);
        for (auto& b : y)
            b = r.byte();
        for (auto& b : c)
            b = r.byte();
        vtest::pack_nv21(sc, y.data(), c.data());
        if (format == VTR_NV21) {
            input[0] = y;
            input[0].insert(input[0].end(), c.begin(), c.end());
        } else {
            input[0] = y;
            input[1] = c;
        }
    }
    for (int i = 0; i < 2; ++i)
        expected[i] = input[i];
    uint8_t* y0 = expected[0].data();
    uint8_t* vu0 = format == VTR_NV21     ? y0 + luma
                   : format == VTR_NV21_M ? expected[1].data()
                                          : nullptr;
    vtest::model_frame(y0, vu0, w, h, format, scenario);
    reset();
}

void frame::reset() {
    for (int i = 0; i < 2; ++i)
        work[i] = input[i];
}

uintptr_t frame::address_1() {
    return reinterpret_cast<uintptr_t>(work[0].data());
}

uintptr_t frame::address_2() {
    if (format == VTR_NV21)
        return reinterpret_cast<uintptr_t>(work[0].data() +
                                           static_cast<size_t>(width) * aligned_height);
    return reinterpret_cast<uintptr_t>(work[1].data());
}

std::string frame::mismatch() const {
    for (int i = 0; i < 2; ++i) {
        if (work[i] == expected[i])
            continue;
        size_t at = 0;
        while (work[i][at] == expected[i][at])
            ++at;
        char text[160];
        snprintf(text, sizeof text, "%s %dx%d block %d differs from the model first at byte %zu",
                 format_name(format), width, height, i, at);
        return text;
    }
    return std::string();
}

std::set<pid_t> baseline_threads() {
    std::thread([] {}).join();
    return vtest::thread_ids();
}

size_t live_heap_bytes() {
#if defined(VREL_ASAN) || defined(VREL_TSAN)
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
#endif
}

bool live_heap_is_exact() {
#if defined(VREL_ASAN) || defined(VREL_TSAN)
    return true;
#else
    const char* t = getenv("GLIBC_TUNABLES");
    return t && strstr(t, "glibc.malloc.tcache_count=0");
#endif
}

bool leak_check_found_leaks() {
#if defined(VREL_ASAN)
    return __lsan_do_recoverable_leak_check() != 0;
#else
    return false;
#endif
}

}  // namespace vrel
