#include "demo_figures.h"

#include <string.h>

#include <algorithm>

#include "compare.h"
#include "draw.h"

namespace vtool {

namespace {

constexpr colour backdrop{32, 32, 32};
constexpr colour ink{235, 235, 235};
constexpr colour marker{255, 255, 255};
constexpr int gap = 8;
constexpr int max_panel = 960;

// A line of text at `scale` with a margin of two font pixels above and below.
int line_height(int scale) {
    return (glyph_height + 4) * scale;
}

int text_scale_for(int panel_width) {
    return panel_width >= 640 ? 3 : panel_width >= 320 ? 2 : 1;
}

picture blank(int width, int height) {
    picture p = make_picture(width, height, 3);
    fill_rect(p, 0, 0, width, height, backdrop);
    return p;
}

uint8_t clamp_byte(double v) {
    return static_cast<uint8_t>(std::min(255.0, std::max(0.0, v + 0.5)));
}

void outline(picture& p, int x, int y, int w, int h, int t, colour c) {
    fill_rect(p, x - t, y - t, w + 2 * t, t, c);
    fill_rect(p, x - t, y + h, w + 2 * t, t, c);
    fill_rect(p, x - t, y, t, h, c);
    fill_rect(p, x + w, y, t, h, c);
}

// "0 [colour ramp] 8+ CODES" at (x, y), one text line high.
void draw_heat_scale(picture& p, int x, int y, int heat_scale, int ts) {
    draw_text(p, x, y, "0", ts, ink);
    const int bar_x = x + text_width("0", ts) + 3 * ts;
    const int bar_w = 80 * ts;
    for (int i = 0; i < bar_w; ++i) {
        uint8_t rgb[3];
        heat_colour((i * heat_scale + bar_w / 2) / (bar_w - 1), heat_scale, 0, rgb);
        fill_rect(p, bar_x + i, y, 1, glyph_height * ts, {rgb[0], rgb[1], rgb[2]});
    }
    draw_text(p, bar_x + bar_w + 3 * ts, y, std::to_string(heat_scale) + "+ CODES", ts, ink);
}

// The crops in equal columns, labels above them, drawn with their top left at (x, y).
int crop_column_width(const std::vector<labelled_crop>& crops, int ts) {
    int w = 0;
    for (const labelled_crop& c : crops)
        w = std::max({w, c.rgb.width, text_width(c.label, ts)});
    return w;
}

int crop_column_gap(int ts) {
    return gap + 3 * ts;
}

void draw_crops(picture& p, int x, int y, const std::vector<labelled_crop>& crops, int ts) {
    const int column = crop_column_width(crops, ts);
    for (size_t i = 0; i < crops.size(); ++i) {
        const int cx = x + static_cast<int>(i) * (column + crop_column_gap(ts));
        draw_text(p, cx, y + 2 * ts, crops[i].label, ts, ink);
        paste(p, crops[i].rgb, cx, y + line_height(ts));
    }
}

}  // namespace

rect blotchiest_patch(const demo_scene& s) {
    const chroma_planes c = chroma_of(s.noisy);
    rect best = s.flat_patches.front();
    double best_var = -1;
    for (const rect& q : s.flat_patches) {
        double sum[2] = {0, 0}, sum2[2] = {0, 0};
        size_t n = 0;
        for (int cy = q.y0 / 2; cy < q.y1 / 2; ++cy)
            for (int cx = q.x0 / 2; cx < q.x1 / 2; ++cx, ++n) {
                const size_t i = static_cast<size_t>(cy) * c.cw + cx;
                const double uv[2] = {static_cast<double>(c.u[i]), static_cast<double>(c.v[i])};
                for (int k = 0; k < 2; ++k) {
                    sum[k] += uv[k];
                    sum2[k] += uv[k] * uv[k];
                }
            }
        if (n == 0)
            continue;
        const double var =
            sum2[0] / n - (sum[0] / n) * (sum[0] / n) + sum2[1] / n - (sum[1] / n) * (sum[1] / n);
        if (var > best_var) {
            best_var = var;
            best = q;
        }
    }
    return {best.x0 & ~1, best.y0 & ~1, best.x1 & ~1, best.y1 & ~1};
}

void mean_chroma(const frame& f, const rect& r, double* u, double* v) {
    const uint8_t* vu = f.bytes.data() + static_cast<size_t>(f.width) * f.height;
    double su = 0, sv = 0;
    size_t n = 0;
    for (int cy = r.y0 / 2; cy < r.y1 / 2; ++cy)
        for (int x = r.x0; x < r.x1; x += 2, ++n) {
            sv += vu[static_cast<size_t>(cy) * f.width + x];
            su += vu[static_cast<size_t>(cy) * f.width + x + 1];
        }
    *u = n ? su / n : 128;
    *v = n ? sv / n : 128;
}

picture amplified_crop(const frame& f, const rect& r, double mean_u, double mean_v, int gain) {
    frame c;
    c.format = pixel_format::nv21;
    c.width = r.x1 - r.x0;
    c.height = r.y1 - r.y0;
    c.bytes.resize(frame_bytes(c.format, c.width, c.height));
    const size_t fw = static_cast<size_t>(f.width);
    const uint8_t* src_vu = f.bytes.data() + fw * f.height;
    uint8_t* dst_vu = c.bytes.data() + static_cast<size_t>(c.width) * c.height;
    for (int y = 0; y < c.height; ++y)
        memcpy(&c.bytes[static_cast<size_t>(y) * c.width], &f.bytes[(r.y0 + y) * fw + r.x0],
               static_cast<size_t>(c.width));
    for (int cy = 0; cy < c.height / 2; ++cy) {
        const uint8_t* s = src_vu + (r.y0 / 2 + cy) * fw + r.x0;
        uint8_t* d = dst_vu + static_cast<size_t>(cy) * c.width;
        for (int x = 0; x < c.width; x += 2) {
            d[x] = clamp_byte(mean_v + gain * (s[x] - mean_v));
            d[x + 1] = clamp_byte(mean_u + gain * (s[x + 1] - mean_u));
        }
    }
    return frame_to_picture(c);
}

picture crops_figure(const std::string& title, const std::vector<labelled_crop>& crops) {
    const int ts = text_scale_for(crops.front().rgb.width * 2);
    const int column = crop_column_width(crops, ts);
    const int n = static_cast<int>(crops.size());
    int crop_h = 0;
    for (const labelled_crop& c : crops)
        crop_h = std::max(crop_h, c.rgb.height);
    const int width = std::max(n * column + (n - 1) * crop_column_gap(ts) + 2 * gap,
                               text_width(title, ts) + 2 * gap);
    picture p = blank(width, line_height(ts) * 2 + crop_h + gap);
    draw_text(p, gap, 2 * ts, title, ts, ink);
    draw_crops(p, gap, line_height(ts), crops, ts);
    return p;
}

picture demo_comparison(const frame& before, const frame& after, const std::string& after_label,
                        int heat_scale, const rect& patch, const std::vector<labelled_crop>& crops,
                        const std::vector<std::string>& notes) {
    const compare_side b = side_of(before);
    const compare_side a = side_of(after);
    const int pw = std::min(before.width, max_panel);
    const int ph = std::max(1, (before.height * pw + before.width / 2) / before.width);
    const int ts = text_scale_for(pw);
    const int line = line_height(ts);
    picture shown_before = scale_picture(b.rgb, pw, ph);
    // Where the crops come from, so that they can be found in the scene.
    const double k = static_cast<double>(pw) / before.width;
    outline(shown_before, static_cast<int>(patch.x0 * k), static_cast<int>(patch.y0 * k),
            static_cast<int>((patch.x1 - patch.x0) * k),
            static_cast<int>((patch.y1 - patch.y0) * k), std::max(1, ts - 1), marker);

    const int right = 2 * gap + pw;
    const int row2 = gap + line + ph + gap;
    picture p = blank(2 * pw + 3 * gap, row2 + 2 * line + ph + gap);
    draw_text(p, gap, gap + 2 * ts, "BEFORE", ts, ink);
    draw_text(p, right, gap + 2 * ts, after_label, ts, ink);
    paste(p, shown_before, gap, gap + line);
    paste(p, scale_picture(a.rgb, pw, ph), right, gap + line);

    draw_text(p, gap, row2 + 2 * ts, "CHROMA CHANGE |DU|+|DV|", ts, ink);
    draw_heat_scale(p, gap, row2 + line + 2 * ts, heat_scale, ts);
    paste(p, scale_picture(heat_map(b, a, heat_scale), pw, ph), gap, row2 + 2 * line);

    draw_text(p, right, row2 + 2 * ts, "FLAT PATCH 1:1, CHROMA X" + std::to_string(crop_gain), ts,
              ink);
    draw_crops(p, right, row2 + line, crops, ts);
    int crop_h = 0;
    for (const labelled_crop& c : crops)
        crop_h = std::max(crop_h, c.rgb.height);
    for (size_t i = 0; i < notes.size(); ++i)
        draw_text(p, right, row2 + 2 * line + crop_h + (static_cast<int>(i) + 1) * line, notes[i],
                  ts, ink);
    return p;
}

}  // namespace vtool
