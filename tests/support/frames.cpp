#include "support/frames.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace vtest {

namespace {
constexpr uint8_t kFrontPattern = 0xA5;
}

bool guarded_on_heap = false;

guarded::guarded(size_t size) : size_(size) {
    if (guarded_on_heap) {
        heap_ = new uint8_t[size > 0 ? size : 1];
        data_ = heap_;
        return;
    }
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t body = (size + page - 1) / page * page;
    map_size_ = body + page;
    void* m = mmap(nullptr, map_size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED)
        throw std::runtime_error("mmap failed");
    map_ = static_cast<uint8_t*>(m);
    if (mprotect(map_ + body, page, PROT_NONE) != 0)
        throw std::runtime_error("mprotect failed");
    data_ = map_ + body - size;
    memset(map_, kFrontPattern, body - size);
}

guarded::~guarded() {
    delete[] heap_;
    if (map_)
        munmap(map_, map_size_);
}

bool guarded::front_intact() const {
    for (const uint8_t* p = map_; map_ && p < data_; ++p)
        if (*p != kFrontPattern)
            return false;
    return true;
}

const pattern all_patterns[9] = {pattern::random,  pattern::flat,       pattern::ramp,
                                 pattern::step12,  pattern::step13,     pattern::step14,
                                 pattern::impulse, pattern::noise_full, pattern::extremes};

const char* pattern_name(pattern p) {
    static const char* const names[] = {"random", "flat",    "ramp",       "step12",  "step13",
                                        "step14", "impulse", "noise_full", "extremes"};
    return names[static_cast<int>(p)];
}

void fill_plane(uint8_t* p, int width, int height, int stride, pattern kind, rng& r) {
    const int base = r.range(0, 255);
    const int low = r.range(0, 241);
    const int step = kind == pattern::step12 ? 12 : kind == pattern::step13 ? 13 : 14;
    const int edge_x = width > 0 ? r.range(0, width - 1) : 0;
    const bool vertical = r.range(0, 1) == 1;
    const int imp_x = width > 0 ? r.range(0, width - 1) : 0;
    const int imp_y = height > 0 ? r.range(0, height - 1) : 0;
    for (int y = 0; y < height; ++y) {
        uint8_t* row = p + static_cast<size_t>(y) * stride;
        for (int x = 0; x < width; ++x) {
            const bool left = (vertical ? y * width / (height ? height : 1) : x) < edge_x;
            const bool at_impulse = x == imp_x && y == imp_y;
            row[x] = static_cast<uint8_t>(
                kind == pattern::random       ? r.range(low, low + 14)  // mild local noise
                : kind == pattern::flat       ? base
                : kind == pattern::ramp       ? (base + x + y) & 255
                : kind == pattern::impulse    ? (at_impulse != ((base & 1) != 0) ? 255 : 0)
                : kind == pattern::noise_full ? r.byte()
                : kind == pattern::extremes   ? ((r.next() & 1) ? 255 : 0)
                                              : (left ? low : low + step));  // the steps
        }
    }
}

std::string first_difference(const uint8_t* expected, const uint8_t* actual, int width, int height,
                             int stride, const char* what) {
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const size_t i = static_cast<size_t>(y) * stride + x;
            if (expected[i] == actual[i])
                continue;
            char head[160];
            snprintf(head, sizeof head, "%s differs first at (x %d, y %d): expected %d, got %d\n",
                     what, x, y, expected[i], actual[i]);
            std::string out = head;
            for (int my = y > 4 ? y - 4 : 0; my < height && my < y + 5; ++my) {
                for (int mx = x > 16 ? x - 16 : 0; mx < width && mx < x + 17; ++mx) {
                    const size_t j = static_cast<size_t>(my) * stride + mx;
                    out += expected[j] == actual[j] ? '.' : 'x';
                }
                out += '\n';
            }
            return out;
        }
    }
    return std::string();
}

namespace {

uint8_t clamp_byte(double v) {
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : std::lround(v));
}

}  // namespace

scene make_scene(int width, int height, uint32_t seed, int amplitude) {
    scene s;
    s.width = width;
    s.height = height;
    const int cw = width / 2;
    s.y.resize(static_cast<size_t>(width) * height);
    s.u.resize(static_cast<size_t>(cw) * height);
    s.v.resize(s.u.size());
    s.clean_u.resize(s.u.size());
    s.clean_v.resize(s.u.size());
    rng r(seed);
    // Blotches: random chroma offsets on a coarse grid, smoothly interpolated, so that colour
    // drifts by up to +-amplitude codes over patches a few blocks wide, as chroma noise left by
    // a camera's own processing does.
    constexpr int kGrid = 24;
    const int gw = width / kGrid + 2;
    const int gh = height / kGrid + 2;
    std::vector<double> grid_u(static_cast<size_t>(gw) * gh), grid_v(grid_u.size());
    for (size_t i = 0; i < grid_u.size(); ++i) {
        grid_u[i] = r.range(-amplitude, amplitude);
        grid_v[i] = r.range(-amplitude, amplitude);
    }
    auto blotch = [&](const std::vector<double>& g, int x, int y) {
        const int gx = x / kGrid, gy = y / kGrid;
        double fx = (x % kGrid) / double(kGrid), fy = (y % kGrid) / double(kGrid);
        fx = fx * fx * (3 - 2 * fx);
        fy = fy * fy * (3 - 2 * fy);
        const size_t i = static_cast<size_t>(gy) * gw + gx;
        const double top = g[i] + (g[i + 1] - g[i]) * fx;
        const double bottom = g[i + gw] + (g[i + gw + 1] - g[i + gw]) * fx;
        return top + (bottom - top) * fy;
    };
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double fine = ((x * 7 + y * 13) % 5) - 2;  // fine luma detail
            s.y[static_cast<size_t>(y) * width + x] = clamp_byte(
                60 + 120.0 * x / (width ? width : 1) + 30.0 * y / (height ? height : 1) + fine);
        }
        for (int cx = 0; cx < cw; ++cx) {
            const int x = cx * 2;
            const bool left = x < width / 2;
            const double cu = left ? 90 + 10.0 * y / (height ? height : 1) : 170;
            const double cv = left ? 160 : 80 + 10.0 * x / (width ? width : 1);
            const double bu = blotch(grid_u, x, y);
            const double bv = blotch(grid_v, x, y);
            const size_t i = static_cast<size_t>(y) * cw + cx;
            s.clean_u[i] = clamp_byte(cu);
            s.clean_v[i] = clamp_byte(cv);
            s.u[i] = clamp_byte(cu + bu);
            s.v[i] = clamp_byte(cv + bv);
        }
    }
    return s;
}

void pack_nv21(const scene& s, uint8_t* y_plane, uint8_t* vu_plane) {
    memcpy(y_plane, s.y.data(), s.y.size());
    const int cw = s.width / 2;
    for (int r = 0; r < s.height / 2; ++r) {
        for (int c = 0; c < cw; ++c) {
            const size_t src = static_cast<size_t>(2 * r) * cw + c;
            vu_plane[static_cast<size_t>(r) * s.width + 2 * c] = s.v[src];
            vu_plane[static_cast<size_t>(r) * s.width + 2 * c + 1] = s.u[src];
        }
    }
}

void pack_yuyv(const scene& s, uint8_t* frame) {
    const int cw = s.width / 2;
    for (int r = 0; r < s.height; ++r) {
        for (int c = 0; c < cw; ++c) {
            uint8_t* g = frame + static_cast<size_t>(r) * 2 * s.width + 4 * c;
            const size_t ci = static_cast<size_t>(r) * cw + c;
            g[0] = s.y[static_cast<size_t>(r) * s.width + 2 * c];
            g[1] = s.u[ci];
            g[2] = s.y[static_cast<size_t>(r) * s.width + 2 * c + 1];
            g[3] = s.v[ci];
        }
    }
}

}  // namespace vtest
