#include "scene.h"

#include <math.h>
#include <stdlib.h>

#include <algorithm>

namespace vtool {

namespace {

struct rgb {
    uint8_t r, g, b;
};

// Twelve muted and saturated surface colours of everyday scenes (skin, sky, foliage, fabric),
// where chroma blotches are most visible.
constexpr rgb palette[12] = {{118, 84, 70},   {196, 152, 128}, {96, 124, 160}, {88, 110, 66},
                             {136, 126, 178}, {100, 186, 168}, {212, 124, 46}, {78, 92, 164},
                             {190, 88, 98},   {96, 62, 106},   {158, 186, 66}, {222, 160, 48}};

constexpr rgb stripes[6] = {{220, 30, 30},  {30, 190, 40},  {30, 50, 220},
                            {235, 215, 30}, {210, 40, 200}, {40, 200, 210}};

int even(double v) {
    return static_cast<int>(v) & ~1;
}

uint8_t clamp_byte(double v) {
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : lround(v));
}

void put(picture& p, int x, int y, rgb c) {
    uint8_t* px = p.row(y) + 3 * x;
    px[0] = c.r;
    px[1] = c.g;
    px[2] = c.b;
}

// Smooth random field: random values on a grid of `cell` pixels, joined by smoothstep
// interpolation, in -1 .. 1.
struct value_noise {
    value_noise(int width, int height, int cell, rng& r)
        : cell(cell), cols(width / cell + 2), rows(height / cell + 2) {
        grid.resize(static_cast<size_t>(cols) * rows);
        for (double& g : grid)
            g = 2 * r.uniform() - 1;
    }
    double at(double x, double y) const {
        const double gx = x / cell;
        const double gy = y / cell;
        const int ix = static_cast<int>(gx);
        const int iy = static_cast<int>(gy);
        double fx = gx - ix;
        double fy = gy - iy;
        fx = fx * fx * (3 - 2 * fx);
        fy = fy * fy * (3 - 2 * fy);
        const double a = grid[static_cast<size_t>(iy) * cols + ix];
        const double b = grid[static_cast<size_t>(iy) * cols + ix + 1];
        const double c = grid[static_cast<size_t>(iy + 1) * cols + ix];
        const double d = grid[static_cast<size_t>(iy + 1) * cols + ix + 1];
        return (a * (1 - fx) + b * fx) * (1 - fy) + (c * (1 - fx) + d * fx) * fy;
    }
    int cell, cols, rows;
    std::vector<double> grid;
};

picture render_clean(int w, int h, std::vector<rect>* flat, std::vector<rect>* edges) {
    picture p = make_picture(w, h, 3);
    // Neutral background with a gentle diagonal gradient.
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint8_t g = static_cast<uint8_t>(96 + 48 * (x + y) / (w + h));
            put(p, x, y, {g, g, g});
        }

    // Two rows of six flat patches.
    const int gap = std::max(4, even(w * 0.02));
    const int left = even(w * 0.03);
    const int pw = even((w - 2 * left - 5 * gap) / 6.0);
    const int top = even(h * 0.04);
    const int ph = even((h * 0.40 - gap) / 2);
    const int margin = std::max(4, even(std::min(pw, ph) * 0.12));
    for (int i = 0; i < 12; ++i) {
        const int x0 = left + (i % 6) * (pw + gap);
        const int y0 = top + (i / 6) * (ph + gap);
        for (int y = y0; y < y0 + ph; ++y)
            for (int x = x0; x < x0 + pw; ++x)
                put(p, x, y, palette[i]);
        flat->push_back({x0 + margin, y0 + margin, x0 + pw - margin, y0 + ph - margin});
    }

    // A hue sweep whose brightness rises from left to right.
    const int gy0 = even(h * 0.48);
    const int gy1 = even(h * 0.58);
    for (int y = gy0; y < gy1; ++y)
        for (int x = left; x < w - left; ++x) {
            const double t = static_cast<double>(x - left) / (w - 2 * left);
            const double a = 2 * M_PI * t;
            const double l = 70 + 120 * t;
            put(p, x, y,
                {clamp_byte(l + 40 * cos(a)), clamp_byte(l + 40 * cos(a - 2.094)),
                 clamp_byte(l + 40 * cos(a + 2.094))});
        }

    // Fine grey detail: a zone plate, whose rings get finer towards the edge, and hairlines.
    const int dy0 = even(h * 0.62);
    const int dy1 = even(h * 0.96);
    const int dx1 = even(w * 0.48);
    const double cx = (left + dx1) / 2.0;
    const double cy = (dy0 + dy1) / 2.0;
    const double k = M_PI / (2.0 * std::max(dx1 - left, dy1 - dy0));
    for (int y = dy0; y < dy1; ++y)
        for (int x = left; x < dx1; ++x) {
            const double r2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
            uint8_t g = clamp_byte(128 + 70 * cos(k * r2));
            if ((x - left) % 24 == 0 || (y - dy0) % 24 == 0)
                g = 230;
            put(p, x, y, {g, g, g});
        }

    // Saturated stripes meeting at sharp vertical edges.
    const int sx0 = even(w * 0.52);
    const int sw = even((w - left - sx0) / 6.0);
    for (int y = dy0; y < dy1; ++y)
        for (int x = sx0; x < sx0 + 6 * sw; ++x)
            put(p, x, y, stripes[(x - sx0) / sw]);
    const int band = 6;
    for (int i = 1; i < 6; ++i) {
        const int x = sx0 + i * sw;
        edges->push_back({x - band, dy0 + band, x + band, dy1 - band});
    }
    return p;
}

}  // namespace

double rng::gaussian() {
    // Box-Muller; the 1 - uniform() keeps the logarithm finite.
    const double a = 1.0 - uniform();
    const double b = uniform();
    return sqrt(-2.0 * log(a)) * cos(2 * M_PI * b);
}

demo_scene make_demo_scene(int width, int height, uint32_t seed, const noise_settings& noise) {
    demo_scene s;
    s.clean = picture_to_nv21(render_clean(width, height, &s.flat_patches, &s.edge_bands));
    s.noisy = s.clean;

    rng r(seed);
    // Two octaves per chroma channel: broad blotches and half as strong ones of a third the size.
    const int big = std::max(32, width / 12);
    const int small = std::max(16, width / 30);
    const value_noise u1(width, height, big, r), u2(width, height, small, r);
    const value_noise v1(width, height, big, r), v2(width, height, small, r);

    const size_t luma = static_cast<size_t>(width) * height;
    uint8_t* y = s.noisy.bytes.data();
    for (size_t i = 0; i < luma; ++i)
        y[i] = clamp_byte(y[i] + noise.luma_sigma * r.gaussian());
    uint8_t* vu = y + luma;
    const double a = noise.blotch_amplitude / 1.5;  // the two octaves peak at 1.5 together
    for (int cy = 0; cy < height / 2; ++cy)
        for (int cx = 0; cx < width / 2; ++cx) {
            const double px = 2.0 * cx;
            const double py = 2.0 * cy;
            const double du = a * (u1.at(px, py) + 0.5 * u2.at(px, py));
            const double dv = a * (v1.at(px, py) + 0.5 * v2.at(px, py));
            uint8_t* pair = vu + static_cast<size_t>(cy) * width + 2 * cx;
            pair[0] = clamp_byte(pair[0] + dv + noise.chroma_sigma * r.gaussian());
            pair[1] = clamp_byte(pair[1] + du + noise.chroma_sigma * r.gaussian());
        }
    return s;
}

scene_metrics measure_scene(const demo_scene& s, const frame& f) {
    const chroma_planes c = chroma_of(f);
    const chroma_planes clean = chroma_of(s.clean);
    scene_metrics m;
    double var_u = 0, var_v = 0;
    for (const rect& q : s.flat_patches) {
        double su = 0, sv = 0, su2 = 0, sv2 = 0;
        size_t n = 0;
        for (int cy = q.y0 / 2; cy < q.y1 / 2; ++cy)
            for (int cx = q.x0 / 2; cx < q.x1 / 2; ++cx) {
                const size_t i = static_cast<size_t>(cy) * c.cw + cx;
                su += c.u[i];
                sv += c.v[i];
                su2 += static_cast<double>(c.u[i]) * c.u[i];
                sv2 += static_cast<double>(c.v[i]) * c.v[i];
                ++n;
            }
        if (n == 0)
            continue;
        var_u += su2 / n - (su / n) * (su / n);
        var_v += sv2 / n - (sv / n) * (sv / n);
    }
    const double patches = static_cast<double>(std::max<size_t>(1, s.flat_patches.size()));
    m.noise_u = sqrt(std::max(0.0, var_u / patches));
    m.noise_v = sqrt(std::max(0.0, var_v / patches));

    double err = 0;
    size_t n = 0;
    for (const rect& q : s.edge_bands)
        for (int cy = q.y0 / 2; cy < q.y1 / 2; ++cy)
            for (int cx = q.x0 / 2; cx < q.x1 / 2; ++cx) {
                const size_t i = static_cast<size_t>(cy) * c.cw + cx;
                err += abs(c.u[i] - clean.u[i]) + abs(c.v[i] - clean.v[i]);
                ++n;
            }
    m.edge_error = n ? err / (2.0 * n) : 0;
    return m;
}

double mean_luma_change(const frame& a, const frame& b) {
    const size_t luma = static_cast<size_t>(a.width) * a.height;
    const int step = is_420(a.format) ? 1 : 2;  // packed formats interleave luma and chroma
    double sum = 0;
    for (size_t i = 0; i < luma; ++i)
        sum += abs(a.bytes[i * step] - b.bytes[i * step]);
    return luma ? sum / luma : 0;
}

}  // namespace vtool
