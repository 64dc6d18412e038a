// vantor_run allocates nothing: malloc, calloc, realloc and free are wrapped at link time for
// this program and counted while frames run. The log is replaced by one that does not
// allocate either.
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <vector>

#include "vantor.h"
#include "vantor_ext.h"

namespace {

std::atomic<bool> counting{false};
std::atomic<int> calls{0};
std::atomic<int> error_lines{0};

void count() {
    if (counting.load())
        calls.fetch_add(1);
}

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t n, size_t size);
void* __real_realloc(void* p, size_t size);
void __real_free(void* p);

void* __wrap_malloc(size_t size) {
    count();
    return __real_malloc(size);
}
void* __wrap_calloc(size_t n, size_t size) {
    count();
    return __real_calloc(n, size);
}
void* __wrap_realloc(void* p, size_t size) {
    count();
    return __real_realloc(p, size);
}
void __wrap_free(void* p) {
    count();
    __real_free(p);
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    if (prio >= 6 && buf[0] != 'A')  // all but the build banner
        error_lines.fetch_add(1);
    return 0;
}
}

namespace {

TEST(NoAllocation, FramesOfEveryFormatAllocateAndFreeNothing) {
    const int32_t w = 640, h = 470, ha = 480;
    std::vector<uint8_t> frame(2 * w * ha + w * ha);
    for (size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<uint8_t>(i * 131 + 7);
    // The counter must see the library's allocations: init allocates through malloc.
    counting = true;
    void* handle = vantor_init(w, h, VTR_SCENARIO_PREVIEW);
    counting = false;
    ASSERT_NE(handle, nullptr);
    EXPECT_GE(calls.load(), 12) << "the wrapping does not reach the library";
    ASSERT_EQ(vantor_wait_ready(handle, 10000), 0);

    calls = 0;
    counting = true;
    const uintptr_t y = reinterpret_cast<uintptr_t>(frame.data());
    const uintptr_t vu = reinterpret_cast<uintptr_t>(frame.data() + w * ha);
    for (int32_t format : {VTR_NV21, VTR_NV21_M, VTR_YUYV, VTR_YUY2})
        for (int i = 0; i < 3; ++i)
            vantor_run(handle, y, vu, w, h, format);
    counting = false;
    EXPECT_EQ(calls.load(), 0);
    EXPECT_EQ(error_lines.load(), 0);
    EXPECT_EQ(vantor_deinit(handle), 0);
}

}  // namespace
