// The built-in test scene of `vantor demo`: colour patches, gradients, fine luma detail and
// sharp colour edges, with low-frequency colour blotches and fine noise laid over it, plus the
// measurements the demo reports.
#ifndef VANTOR_TOOLS_SCENE_H
#define VANTOR_TOOLS_SCENE_H

#include <stdint.h>

#include <vector>

#include "color.h"

namespace vtool {

// Rectangle in luma pixels: columns x0 .. x1 - 1, rows y0 .. y1 - 1.
struct rect {
    int x0, y0, x1, y1;
};

struct noise_settings {
    double blotch_amplitude = 6.0;  // peak of the low-frequency chroma deviation, codes
    double chroma_sigma = 1.5;      // fine chroma noise, codes
    double luma_sigma = 1.5;        // fine luma noise, codes
};

struct demo_scene {
    frame clean;                     // NV21, full-range BT.601
    frame noisy;                     // the same with blotches and fine noise
    std::vector<rect> flat_patches;  // interiors of the flat colour patches
    std::vector<rect> edge_bands;    // narrow bands across the sharp colour edges
};

// width a multiple of 16 and both sides at least 64; the same seed gives the same scene.
demo_scene make_demo_scene(int width, int height, uint32_t seed, const noise_settings& noise);

struct scene_metrics {
    double noise_u = 0;     // standard deviation of U inside the flat patches (RMS over patches)
    double noise_v = 0;     // same for V
    double edge_error = 0;  // mean |U - U clean| + |V - V clean|, halved, across the sharp edges
};
// Measures an NV21 frame of the scene's size against the scene's clean frame.
scene_metrics measure_scene(const demo_scene& s, const frame& f);

// Mean absolute difference of the luma planes of two frames of one size and format family.
double mean_luma_change(const frame& a, const frame& b);

// Small seedable generator (xorshift64*), so that scenes and benchmarks are repeatable.
struct rng {
    explicit rng(uint64_t seed) : s(seed ? seed : 0x9E3779B97F4A7C15ull) {}
    uint32_t next() {
        s ^= s >> 12;
        s ^= s << 25;
        s ^= s >> 27;
        return static_cast<uint32_t>((s * 0x2545F4914F6CDD1Dull) >> 32);
    }
    double uniform() { return next() / 4294967296.0; }  // [0, 1)
    double gaussian();
    uint64_t s;
};

}  // namespace vtool

#endif
