// The demo's figures: before, after, the chroma change with its colour scale and a crop of a
// blotchy flat patch with its chroma contrast amplified, all labelled; and the crops alone.
#ifndef VANTOR_TOOLS_DEMO_FIGURES_H
#define VANTOR_TOOLS_DEMO_FIGURES_H

#include <string>
#include <vector>

#include "color.h"
#include "image.h"
#include "scene.h"

namespace vtool {

// How many times the crops' chroma deviation from the patch's mean is enlarged.
constexpr int crop_gain = 6;

// The flat patch whose chroma varies most in the scene's noisy frame, corners made even.
rect blotchiest_patch(const demo_scene& s);

// Mean U and V of an NV21 frame inside `r` (even corners).
void mean_chroma(const frame& f, const rect& r, double* u, double* v);

// `r` of an NV21 frame (even corners) at 1:1, as RGB, with each chroma sample moved `gain` times
// as far from (mean_u, mean_v) as it is; luma as it is.
picture amplified_crop(const frame& f, const rect& r, double mean_u, double mean_v, int gain);

struct labelled_crop {
    std::string label;
    picture rgb;
};

// The crops side by side in equal columns under a title, each with its label.
picture crops_figure(const std::string& title, const std::vector<labelled_crop>& crops);

// Two rows of labelled panels, each at most 960 pixels wide (scaled down to fit): before and
// after; the heat map of the chroma change (full colour at `heat_scale` codes, with its scale)
// and the crops, with lines of `notes` under them. `patch` (outlined on the before panel) is
// where the crops come from.
picture demo_comparison(const frame& before, const frame& after, const std::string& after_label,
                        int heat_scale, const rect& patch, const std::vector<labelled_crop>& crops,
                        const std::vector<std::string>& notes);

}  // namespace vtool

#endif
