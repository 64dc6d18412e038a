// Helpers shared by the fuzz targets.
//
// Inputs are read front to back by fuzz_input, a few bytes per value, so a seed file can be
// written by hand: each value takes as many bytes as its range needs (1, 2 or 4, little
// endian) and a short input reads as zeros.
//
// Buffers are exactly as large as the documented reach of the call under test and are placed
// either at the end of a page followed by an inaccessible page (an access past the end faults
// even in an uninstrumented vector load) or in an exact-size heap block (AddressSanitizer's
// redzones catch both ends). Writes in front of a page-end buffer are caught by its guard
// pattern, checked by expect_intact().
#ifndef VANTOR_FUZZ_SUPPORT_H
#define VANTOR_FUZZ_SUPPORT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <memory>

#include "support/frames.h"

namespace vfuzz {

class fuzz_input {
  public:
    fuzz_input(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
    // A value in [lo, hi], both inclusive.
    int32_t range(int32_t lo, int32_t hi);
    // One of the n values of a table.
    template <typename T, size_t N>
    T pick(const T (&table)[N]) {
        return table[range(0, static_cast<int32_t>(N) - 1)];
    }
    bool flag() { return range(0, 1) == 1; }

  private:
    const uint8_t* p_;
    const uint8_t* end_;
};

enum class placement { page_end, heap };

class buffer {
  public:
    buffer(size_t size, placement where);
    uint8_t* data() { return data_; }
    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    // Aborts with `what` in the message if something wrote in front of a page-end buffer.
    void expect_intact(const char* what) const;

  private:
    std::unique_ptr<vtest::guarded> guarded_;
    std::unique_ptr<uint8_t[]> heap_;
    uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

// Fills `n` bytes with one of the test patterns (noise, flat, ramps, steps around the
// bilateral range cut-off, impulses, extremes), chosen and seeded from the input.
void fill(uint8_t* p, size_t n, fuzz_input& in);

// Aborts with a message naming `what` and the first differing byte if the two differ.
void expect_same(const uint8_t* expected, const uint8_t* actual, size_t n, const char* what);

// Bytes from the first to the last byte a plane of `rows` rows of `row_bytes` bytes with
// `stride` covers; 0 for an empty plane.
inline size_t plane_reach(int32_t rows, int32_t row_bytes, int32_t stride) {
    if (rows < 1 || row_bytes < 1)
        return 0;
    return static_cast<size_t>(rows - 1) * stride + row_bytes;
}

// Two identical output buffers, one per twin, compared byte for byte after both ran.
struct twin_out {
    buffer vec, ref;
    twin_out(size_t n, placement where, fuzz_input& in) : vec(n, where), ref(n, where) {
        fill(vec.data(), n, in);
        memcpy(ref.data(), vec.data(), n);
    }
    void check(const char* what) {
        vec.expect_intact(what);
        ref.expect_intact(what);
        expect_same(ref.data(), vec.data(), vec.size(), what);
    }
};

// The library's log lines are kept here instead of printed: every line is counted and the
// first 64 after a reset are kept (fixed storage, safe from any thread).
void log_reset();
int log_count();
// Kept lines that begin with `prefix`.
int log_count_prefix(const char* prefix);

// Aborts with a formatted message; the fuzzer keeps the input that led here.
[[noreturn]] void fail(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vfuzz

#endif
