// What a viewer sees of a processed frame: the one-thread model (whose bytes every whole-frame
// test demands of vantor_run) on the test scene, a smooth picture with low-frequency colour
// blotches and one sharp colour edge. The blotches must fade, the edge keep its two colours, and
// luma stay undisturbed; swapped chroma bytes or a wrong stride anywhere on the way break these.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <vector>

#include <gtest/gtest.h>

#include "entry/frame_model.h"
#include "support/frames.h"
#include "vantor.h"

namespace {

constexpr int kW = 1024;  // a multiple of 128: the kernels cover the whole width
constexpr int kH = 576;   // a multiple of 16
constexpr int kBH = kH / 16;
constexpr int kCW = kW / 2;     // chroma samples per row
constexpr int kAmplitude = 5;   // blotch amplitude in codes, per chroma byte
constexpr int kEdgeX = kW / 2;  // the scene's colour edge, in luma columns

// A frame's chroma as (U, V) per sample of the scene's chroma grid rows that the format keeps.
struct chroma_view {
    std::vector<uint8_t> u, v;  // kCW per row, `rows` rows
    int rows, row_step;         // scene row of view row r is r * row_step
};

// NV21 chroma rows hold V then U; YUYV rows hold Y0 U Y1 V.
chroma_view view(const std::vector<uint8_t>& bytes, bool packed) {
    chroma_view cv{{}, {}, packed ? kH : kH / 2, packed ? 1 : 2};
    for (int r = 0; r < cv.rows; ++r) {
        for (int c = 0; c < kCW; ++c) {
            const size_t i = packed ? r * 2 * kW + 4 * c + 1 : r * kW + 2 * c;
            cv.u.push_back(bytes[packed ? i : i + 1]);
            cv.v.push_back(bytes[packed ? i + 2 : i]);
        }
    }
    return cv;
}

// Distance of a view's chroma from the scene's clean chroma over the chroma columns whose luma
// column lies in one of the given ranges: the mean absolute distance, the largest one, and
// the blotch contrast, the spread of the signed distance around its mean (a uniform shift of
// all colours is no blotch).
struct distance {
    double mean_abs = 0, contrast = 0;
    int worst = 0;
};

using column_ranges = std::vector<std::pair<int, int>>;

distance measure(const chroma_view& cv, const vtest::scene& s, const column_ranges& ranges) {
    double sum_abs = 0, sum = 0, sum_sq = 0;
    long n = 0;
    distance d;
    for (const auto& range : ranges) {
        for (int r = 0; r < cv.rows; ++r) {
            for (int c = range.first / 2; c < range.second / 2; ++c) {
                const size_t i = static_cast<size_t>(r) * kCW + c;
                const size_t k = static_cast<size_t>(r * cv.row_step) * kCW + c;
                for (const int e : {cv.u[i] - s.clean_u[k], cv.v[i] - s.clean_v[k]}) {
                    sum_abs += abs(e);
                    sum += e;
                    sum_sq += e * e;
                    d.worst = std::max(d.worst, abs(e));
                    ++n;
                }
            }
        }
    }
    d.mean_abs = sum_abs / n;
    d.contrast = std::sqrt(sum_sq / n - (sum / n) * (sum / n));
    return d;
}

void expect_viewer_sees_cleaner_frame(const chroma_view& before, const chroma_view& after,
                                      const vtest::scene& s) {
    // Flat areas: everything at least 96 luma columns from the colour edge, where only the
    // blotches differ from the clean picture.
    const column_ranges flat = {{0, kEdgeX - 96}, {kEdgeX + 96, kW}};
    const distance b = measure(before, s, flat);
    const distance a = measure(after, s, flat);
    printf("flat areas: blotch contrast %.2f -> %.2f, mean distance %.2f -> %.2f\n", b.contrast,
           a.contrast, b.mean_abs, a.mean_abs);
    EXPECT_GT(b.contrast, 1.0) << "the scene should carry visible blotches";
    // The scene's blotches drift over patches of about 24 pixels, smaller than the smoothing
    // window (7 x 7 blocks of 16 x 16 pixels), so the smoothed colour is close to the clean one.
    // The blend does not simply take it, though: it keeps a share of the input that grows with
    // the distance, fully from 12 codes (U and V together) on, so blotches of +-5 codes fade to
    // roughly half their contrast rather than vanish. Where the smoothed colour is not used at
    // all (swapped or misplaced planes make every distance large) the contrast stays as it was.
    EXPECT_LT(a.contrast, 0.75 * b.contrast);
    // The bilateral filter starts its weight sum at 1, which lowers a flat colour by one code;
    // the blend passes that on where it takes the smoothed colour. A uniform shift of up to one
    // code is all the processing may add to the flat colours.
    EXPECT_LT(a.mean_abs, b.mean_abs + 1.0);

    // Near the edge, 4 to 48 luma columns away on either side: each side keeps its own colour.
    // The two colours are about 80 codes apart, far beyond the blend distance, so nothing of
    // the other side may leak in: no sample may end up further from its true colour than the
    // blotches already put it, give or take two codes of rounding and the one-code shift.
    for (const auto& side : column_ranges{{kEdgeX - 48, kEdgeX - 4}, {kEdgeX + 4, kEdgeX + 48}}) {
        const distance eb = measure(before, s, {side});
        const distance ea = measure(after, s, {side});
        printf("edge columns %d..%d: worst distance %d -> %d\n", side.first, side.second, eb.worst,
               ea.worst);
        EXPECT_LE(ea.worst, eb.worst + 2);
    }
}

// Luma: the rebuilt value (smoothed low-pass plus the frame's own detail) may move each pixel
// by one code at most, `down_only` for the capture rule of 4:2:0, either way for 4:2:2. The
// smoothed luma differs from the input's own low-pass somewhere in every band of 16 rows, so
// every band has moved pixels: a band the luma upsampling missed would keep its input exactly.
void expect_luma_kept(const std::vector<uint8_t>& before, const std::vector<uint8_t>& after,
                      bool down_only) {
    std::vector<int> moved(kBH, 0);
    for (size_t i = 0; i < before.size(); ++i) {
        const int d = after[i] - before[i];
        ASSERT_TRUE(d == 0 || d == -1 || (!down_only && d == 1))
            << "luma " << i << ": " << int(before[i]) << " -> " << int(after[i]);
        moved[i / kW / 16] += d != 0;
    }
    for (int band = 0; band < kBH; ++band)
        EXPECT_GT(moved[band], 0) << "no luma changed in rows " << 16 * band << " .. "
                                  << 16 * band + 15;
}

TEST(OneThreadFrame, Nv21CaptureFadesBlotchesAndKeepsTheEdge) {
    const vtest::scene s = vtest::make_scene(kW, kH, 77, kAmplitude);
    std::vector<uint8_t> y(kW * kH), vu(kW * kH / 2);
    vtest::pack_nv21(s, y.data(), vu.data());
    const std::vector<uint8_t> y_in = y;
    const chroma_view before = view(vu, false);

    vtest::model_frame(y.data(), vu.data(), kW, kH, VTR_NV21, VTR_SCENARIO_CAPTURE);
    expect_viewer_sees_cleaner_frame(before, view(vu, false), s);
    expect_luma_kept(y_in, y, true);
}

TEST(OneThreadFrame, YuyvCaptureFadesBlotchesAndKeepsTheEdge) {
    const vtest::scene s = vtest::make_scene(kW, kH, 78, kAmplitude);
    std::vector<uint8_t> frame(2 * kW * kH);
    vtest::pack_yuyv(s, frame.data());
    const chroma_view before = view(frame, true);

    vtest::model_frame(frame.data(), nullptr, kW, kH, VTR_YUYV, VTR_SCENARIO_CAPTURE);
    expect_viewer_sees_cleaner_frame(before, view(frame, true), s);
    std::vector<uint8_t> y_out(kW * kH);
    for (size_t i = 0; i < y_out.size(); ++i)
        y_out[i] = frame[2 * i];
    expect_luma_kept(s.y, y_out, false);
}

}  // namespace
