// Test buffers and test pictures shared by the test programs.
#ifndef VANTOR_TESTS_FRAMES_H
#define VANTOR_TESTS_FRAMES_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace vtest {

// Small, fast, seedable generator (xorshift64*), so that a failing case can be replayed. Given
// bytes (a fuzzer's input), it hands those out first, four to a draw, so that the fuzzer steers
// every choice a test makes from it; the generator takes over when they run out.
class rng {
  public:
    explicit rng(uint64_t seed) : s_(seed ? seed : 0x9E3779B97F4A7C15ull) {}
    rng(const uint8_t* data, size_t size) : s_(0x9E3779B97F4A7C15ull ^ size), p_(data), n_(size) {}
    uint32_t next() {
        if (n_ >= 4) {
            const uint32_t v =
                p_[0] | p_[1] << 8 | p_[2] << 16 | static_cast<uint32_t>(p_[3]) << 24;
            p_ += 4;
            n_ -= 4;
            return v;
        }
        s_ ^= s_ >> 12;
        s_ ^= s_ << 25;
        s_ ^= s_ >> 27;
        return static_cast<uint32_t>((s_ * 0x2545F4914F6CDD1Dull) >> 32);
    }
    // Uniform in [lo, hi], both inclusive.
    int range(int lo, int hi) {
        return lo + static_cast<int>(next() % static_cast<uint32_t>(hi - lo + 1));
    }
    uint8_t byte() { return static_cast<uint8_t>(next() >> 24); }

  private:
    uint64_t s_;
    const uint8_t* p_ = nullptr;
    size_t n_ = 0;
};

// A buffer of `size` bytes whose last byte is the last byte of a page followed by an
// inaccessible page, so a read or write past the end faults at once. The bytes in front of
// it, up to the start of its first page, hold a known pattern: front_intact() tells whether
// something wrote there. While guarded_on_heap is set, buffers are exact heap blocks instead,
// whose both ends AddressSanitizer watches.
extern bool guarded_on_heap;
class guarded {
  public:
    explicit guarded(size_t size);
    ~guarded();
    guarded(const guarded&) = delete;
    guarded& operator=(const guarded&) = delete;
    uint8_t* data() { return data_; }
    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    bool front_intact() const;

  private:
    uint8_t* map_ = nullptr;
    size_t map_size_ = 0;
    uint8_t* heap_ = nullptr;
    uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

enum class pattern { random, flat, ramp, step12, step13, step14, impulse, noise_full, extremes };
extern const pattern all_patterns[9];
const char* pattern_name(pattern p);

// Fills a width x height plane with row stride `stride`.
void fill_plane(uint8_t* p, int width, int height, int stride, pattern kind, rng& r);

// Empty when the planes are equal; otherwise the first differing sample and a map of the
// differences around it ('.' equal, 'x' different).
std::string first_difference(const uint8_t* expected, const uint8_t* actual, int width, int height,
                             int stride, const char* what);

// A natural-looking test picture: smooth luma with fine texture, two colour regions meeting at
// a sharp vertical edge at width / 2, and low-frequency colour blotches of +-amplitude codes
// added to the chroma. Chroma planes are width / 2 x height (4:2:2 sampling); the 4:2:0 formats
// use every other row.
struct scene {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> y;
    std::vector<uint8_t> u, v;              // with blotches
    std::vector<uint8_t> clean_u, clean_v;  // the same without blotches
};
scene make_scene(int width, int height, uint32_t seed, int amplitude);

// Writes the scene as NV21: `y_plane` of height rows of width bytes and `vu_plane` of
// height / 2 rows of width bytes (V first).
void pack_nv21(const scene& s, uint8_t* y_plane, uint8_t* vu_plane);
// Writes the scene as packed YUYV: height rows of 2 * width bytes (Y0 U Y1 V).
void pack_yuyv(const scene& s, uint8_t* frame);

}  // namespace vtest

#endif
