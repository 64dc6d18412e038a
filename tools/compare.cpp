#include "compare.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "errors.h"

namespace vtool {

namespace {

picture rgb_only(const picture& p) {
    if (p.channels == 3)
        return p;
    picture out = make_picture(p.width, p.height, 3);
    for (size_t i = 0, n = static_cast<size_t>(p.width) * p.height; i < n; ++i)
        memcpy(&out.pixels[3 * i], &p.pixels[4 * i], 3);
    return out;
}

// Stops of the heat ramp: black through purple and red to pale yellow, so that small changes
// stay dark and large ones stand out on any screen.
struct stop {
    int at;  // in 256ths of the scale
    uint8_t r, g, b;
};
constexpr stop ramp[] = {
    {0, 0, 0, 0}, {64, 87, 16, 110}, {128, 188, 55, 84}, {192, 249, 142, 9}, {256, 252, 255, 164}};

}  // namespace

compare_side side_of(const frame& f) {
    compare_side s;
    s.rgb = frame_to_picture(f);
    s.chroma = chroma_of(f);
    return s;
}

compare_side side_of(const picture& p) {
    compare_side s;
    s.rgb = rgb_only(p);
    // The 4:2:0 conversion needs even sides; the extra row or column is a copy of the last.
    const picture even = pad_picture(p, (p.width + 1) & ~1, (p.height + 1) & ~1);
    s.chroma = chroma_of(picture_to_nv21(even));
    return s;
}

std::vector<int> chroma_change(const chroma_planes& before, const chroma_planes& after) {
    if (before.cw != after.cw || before.ch != after.ch)
        fail("the two sides have different chroma sizes");
    std::vector<int> d(before.u.size());
    for (size_t i = 0; i < d.size(); ++i)
        d[i] = abs(before.u[i] - after.u[i]) + abs(before.v[i] - after.v[i]);
    return d;
}

change_stats summarize_change(const std::vector<int>& change) {
    change_stats s;
    if (change.empty())
        return s;
    std::vector<size_t> histogram(511, 0);
    double sum = 0;
    size_t changed = 0;
    for (int d : change) {
        ++histogram[static_cast<size_t>(d)];
        sum += d;
        changed += d != 0;
        s.max = std::max(s.max, d);
    }
    s.mean = sum / static_cast<double>(change.size());
    s.changed = static_cast<double>(changed) / static_cast<double>(change.size());
    const size_t target = (change.size() * 99 + 99) / 100;
    size_t seen = 0;
    for (int d = 0; d < 511; ++d) {
        seen += histogram[static_cast<size_t>(d)];
        if (seen >= target) {
            s.p99 = d;
            break;
        }
    }
    return s;
}

void heat_colour(int d, int scale, int background, uint8_t rgb[3]) {
    if (d <= 0) {
        rgb[0] = rgb[1] = rgb[2] = static_cast<uint8_t>(background);
        return;
    }
    const int t = std::min(256, d * 256 / std::max(1, scale));
    size_t i = 1;
    while (i + 1 < sizeof ramp / sizeof ramp[0] && ramp[i].at < t)
        ++i;
    const stop& a = ramp[i - 1];
    const stop& b = ramp[i];
    const int f = (t - a.at) * 256 / (b.at - a.at);
    const int c[3] = {a.r + ((b.r - a.r) * f >> 8), a.g + ((b.g - a.g) * f >> 8),
                      a.b + ((b.b - a.b) * f >> 8)};
    for (int k = 0; k < 3; ++k)
        rgb[k] = static_cast<uint8_t>(std::max(c[k], background));
}

picture heat_map(const compare_side& before, const compare_side& after, int scale) {
    const int w = before.rgb.width;
    const int h = before.rgb.height;
    if (after.rgb.width != w || after.rgb.height != h)
        fail("cannot compare pictures of different sizes: " + std::to_string(w) + "x" +
             std::to_string(h) + " and " + std::to_string(after.rgb.width) + "x" +
             std::to_string(after.rgb.height));
    const std::vector<int> change = chroma_change(before.chroma, after.chroma);
    picture out = make_picture(w, h, 3);
    const chroma_planes& c = before.chroma;
    for (int y = 0; y < h; ++y) {
        uint8_t* heat = out.row(y);
        const uint8_t* src = before.rgb.row(y);
        const int cy = std::min(y / c.rows_per_sample, c.ch - 1);
        for (int x = 0; x < w; ++x) {
            const int luma = (77 * src[3 * x] + 150 * src[3 * x + 1] + 29 * src[3 * x + 2]) >> 8;
            const int cx = std::min(x / 2, c.cw - 1);
            heat_colour(change[static_cast<size_t>(cy) * c.cw + cx], scale, luma / 4, heat + 3 * x);
        }
    }
    return out;
}

picture compose_comparison(const compare_side& before, const compare_side& after, int scale) {
    const picture heat = heat_map(before, after, scale);
    const int w = before.rgb.width;
    const int h = before.rgb.height;
    picture out = make_picture(3 * w + 2 * panel_gap, h, 3);
    memset(out.pixels.data(), 32, out.pixels.size());
    const size_t row_bytes = static_cast<size_t>(w) * 3;
    for (int y = 0; y < h; ++y) {
        uint8_t* row = out.row(y);
        memcpy(row, before.rgb.row(y), row_bytes);
        memcpy(row + 3 * (w + panel_gap), after.rgb.row(y), row_bytes);
        memcpy(row + 3 * (2 * w + 2 * panel_gap), heat.row(y), row_bytes);
    }
    return out;
}

}  // namespace vtool
