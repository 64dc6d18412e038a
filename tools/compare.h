// Before and after side by side, with a third panel that maps where and how much the chroma
// changed.
#ifndef VANTOR_TOOLS_COMPARE_H
#define VANTOR_TOOLS_COMPARE_H

#include "color.h"
#include "image.h"

namespace vtool {

// One side of a comparison: what is shown and the chroma that is measured.
struct compare_side {
    picture rgb;  // 3 channels
    chroma_planes chroma;
};
compare_side side_of(const frame& f);
compare_side side_of(const picture& p);

struct change_stats {
    double mean = 0;  // mean of |dU| + |dV| over all chroma samples
    int p99 = 0;      // 99th percentile of the same
    int max = 0;
    double changed = 0;  // fraction of chroma samples with any change
};

// Chroma change per sample, |dU| + |dV|, at the chroma resolution of `before`.
std::vector<int> chroma_change(const chroma_planes& before, const chroma_planes& after);
change_stats summarize_change(const std::vector<int>& change);

// Colour of a change of `d` codes on a heat map whose top colour is reached at `scale`, over a
// background grey level (the dimmed luma of the picture).
void heat_colour(int d, int scale, int background, uint8_t rgb[3]);

// The chroma change from `before` to `after` as colours over the dimmed luma of `before`, at
// the pictures' size. Both sides must have the same size.
picture heat_map(const compare_side& before, const compare_side& after, int scale);

// Three panels, left to right: before, after, heat map of the chroma change over the dimmed
// luma of `before`. Both sides must have the same size.
picture compose_comparison(const compare_side& before, const compare_side& after, int scale);

constexpr int panel_gap = 8;

}  // namespace vtool

#endif
