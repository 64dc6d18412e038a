// Frames for the reliability programs: a natural-looking scene in one of the four formats, laid
// out as vantor.h asks, together with the bytes the one-thread model gives for it.
#ifndef VANTOR_TESTS_RELIABILITY_WORKLOAD_H
#define VANTOR_TESTS_RELIABILITY_WORKLOAD_H

#include <stddef.h>
#include <stdint.h>

#include <sys/types.h>

#include <set>
#include <string>
#include <vector>

namespace vrel {

extern const uint32_t all_formats[4];
const char* format_name(uint32_t format);

// One frame. NV21: one block, luma of aligned-height rows followed by the V/U plane of
// aligned-height / 2 rows. NM21: the two planes in separate blocks. YUYV and YUY2: one block of
// height rows of 2 * width bytes.
struct frame {
    frame(int32_t width, int32_t height, uint32_t format, int32_t scenario, uint32_t seed);
    // Puts the input back into the working planes.
    void reset();
    // Addresses to pass to vantor_run.
    uintptr_t address_1();
    uintptr_t address_2();
    // Empty when the working planes hold the model's output; else where they first differ.
    std::string mismatch() const;

    int32_t width, height, aligned_height;
    uint32_t format;
    int32_t scenario;
    std::vector<uint8_t> input[2], work[2], expected[2];
};

// The process's threads to come back to: taken after a first thread has come and gone, so that
// a runtime that starts a helper thread of its own with the first one (ThreadSanitizer does)
// has done so. vtest::wait_threads_since(baseline, 0, ms) then waits for the library's to go.
std::set<pid_t> baseline_threads();
// Bytes the process has allocated and not freed: the sanitizer's count in sanitizer builds,
// else the C library's (mallinfo2).
size_t live_heap_bytes();
// Whether live_heap_bytes() is exact: always under a sanitizer; with the C library's allocator
// only when its per-thread cache is off (GLIBC_TUNABLES=glibc.malloc.tcache_count=0), since
// blocks parked in that cache still count as allocated.
bool live_heap_is_exact();
// Runs the sanitizer's leak check now where there is one; true if it found a leak.
bool leak_check_found_leaks();

}  // namespace vrel

#endif
