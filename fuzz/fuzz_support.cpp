#include "fuzz_support.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <mutex>

namespace vfuzz {

int32_t fuzz_input::range(int32_t lo, int32_t hi) {
    const uint32_t span = static_cast<uint32_t>(hi) - static_cast<uint32_t>(lo);
    const int bytes = span < 0x100u ? 1 : span < 0x10000u ? 2 : 4;
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v |= static_cast<uint32_t>(p_ < end_ ? *p_++ : 0) << (8 * i);
    if (span == 0xFFFFFFFFu)
        return static_cast<int32_t>(v);
    return static_cast<int32_t>(static_cast<uint32_t>(lo) + v % (span + 1));
}

buffer::buffer(size_t size, placement where) : size_(size) {
    if (where == placement::page_end) {
        guarded_.reset(new vtest::guarded(size));
        data_ = guarded_->data();
    } else {
        // At least one byte so that the pointer is a real heap block even for size 0.
        heap_.reset(new uint8_t[size ? size : 1]);
        data_ = heap_.get();
    }
}

void buffer::expect_intact(const char* what) const {
    if (guarded_ && !guarded_->front_intact())
        fail("%s: written in front of the buffer", what);
}

void fill(uint8_t* p, size_t n, fuzz_input& in) {
    const vtest::pattern kind = in.pick(vtest::all_patterns);
    vtest::rng r(static_cast<uint32_t>(in.range(INT32_MIN, INT32_MAX)));
    // One long row: the patterns' steps and impulses then fall anywhere in the buffer.
    if (n > 0)
        vtest::fill_plane(p, static_cast<int>(n), 1, static_cast<int>(n), kind, r);
}

void expect_same(const uint8_t* expected, const uint8_t* actual, size_t n, const char* what) {
    for (size_t i = 0; i < n; ++i) {
        if (expected[i] != actual[i])
            fail("%s: vector and scalar differ at byte %zu of %zu: scalar %d, vector %d", what, i,
                 n, expected[i], actual[i]);
    }
}

namespace {

constexpr int kKeptLines = 64;
std::mutex log_mutex;
char kept[kKeptLines][256];
int seen = 0;

}  // namespace

void log_reset() {
    std::lock_guard<std::mutex> g(log_mutex);
    seen = 0;
}

int log_count() {
    std::lock_guard<std::mutex> g(log_mutex);
    return seen;
}

int log_count_prefix(const char* prefix) {
    std::lock_guard<std::mutex> g(log_mutex);
    int n = 0;
    for (int i = 0; i < seen && i < kKeptLines; ++i)
        n += strncmp(kept[i], prefix, strlen(prefix)) == 0;
    return n;
}

void fail(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    fprintf(stderr, "fuzz failure: ");
    vfprintf(stderr, fmt, ap);
    fprintf(stderr, "\n");
    va_end(ap);
    abort();
}

}  // namespace vfuzz

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    std::lock_guard<std::mutex> g(vfuzz::log_mutex);
    if (vfuzz::seen < vfuzz::kKeptLines) {
        va_list ap;
        va_start(ap, fmt);
        vsnprintf(vfuzz::kept[vfuzz::seen], sizeof vfuzz::kept[0], fmt, ap);
        va_end(ap);
    }
    ++vfuzz::seen;
    return 0;
}
