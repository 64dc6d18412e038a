// vantor demo: the built-in scene denoised in both scenarios, with pictures and a table.
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "args.h"
#include "color.h"
#include "commands.h"
#include "demo_figures.h"
#include "denoiser.h"
#include "errors.h"
#include "files.h"
#include "scene.h"
#include "vantor.h"

namespace vtool {

namespace {

const std::vector<option_def> options = {
    {"--out", "-o", true}, {"--size", "-s", true}, {"--seed", nullptr, true}};

constexpr int timed_runs = 9;
constexpr int heat_scale = 8;  // codes of |dU| + |dV| shown in the heat map's top colour

struct scenario_result {
    frame out;
    double ms = 0;  // median over the timed runs
};

scenario_result run_scenario(const frame& noisy, int scenario) {
    denoiser d(pixel_format::nv21, noisy.width, noisy.height, scenario);
    frame_buffer buffer = make_frame_buffer(pixel_format::nv21, noisy.width, noisy.height);
    std::vector<double> times;
    scenario_result r;
    r.out = noisy;
    for (int i = 0; i < timed_runs; ++i) {
        buffer.load(noisy.bytes.data());
        times.push_back(d.run(buffer, static_cast<uint64_t>(i) + 1));
    }
    buffer.store(r.out.bytes.data());
    std::sort(times.begin(), times.end());
    r.ms = times[times.size() / 2];
    return r;
}

void write_png(const std::string& path, const picture& p) {
    write_whole_file(path, encode_png(p));
}

}  // namespace

int cmd_demo(int argc, char** argv) {
    const parsed_args a = parse_args(argc, argv, 2, options, "demo");
    if (!a.positionals.empty())
        usage_error("demo takes no input file: vantor demo [--out DIR]");
    int width = 1920, height = 1080;
    if (a.has("--size")) {
        const std::string s = a.value("--size", "");
        if (!parse_size(s, &width, &height))
            usage_error("bad frame size '" + s + "': give it as WIDTHxHEIGHT, e.g. 1920x1080");
        const std::string problem = geometry_problem(pixel_format::nv21, width, height);
        if (!problem.empty())
            usage_error(problem);
    }
    const int seed = int_value(a, "--seed", 1, 0, 1 << 30);
    const std::string dir = a.value("--out", "out/demo");
    make_dirs(dir);

    const demo_scene scene =
        make_demo_scene(width, height, static_cast<uint32_t>(seed), noise_settings());
    const scenario_result capture = run_scenario(scene.noisy, VTR_SCENARIO_CAPTURE);
    const scenario_result preview = run_scenario(scene.noisy, VTR_SCENARIO_PREVIEW);

    // A 1:1 crop of the blotchiest flat patch with its chroma contrast enlarged around the
    // patch's mean before denoising shows what the full frames, at normal viewing, do not.
    const rect patch = blotchiest_patch(scene);
    double mean_u = 0, mean_v = 0;
    mean_chroma(scene.noisy, patch, &mean_u, &mean_v);
    const auto crop = [&](const char* label, const frame& f) {
        return labelled_crop{label, amplified_crop(f, patch, mean_u, mean_v, crop_gain)};
    };
    const labelled_crop crop_before = crop("BEFORE", scene.noisy);
    const labelled_crop crop_capture = crop("AFTER CAPTURE", capture.out);
    const labelled_crop crop_preview = crop("AFTER PREVIEW", preview.out);

    write_png(dir + "/clean.png", frame_to_picture(scene.clean));
    write_png(dir + "/before.png", frame_to_picture(scene.noisy));
    write_png(dir + "/after_capture.png", frame_to_picture(capture.out));
    write_png(dir + "/after_preview.png", frame_to_picture(preview.out));
    write_png(dir + "/blotches_x6.png",
              crops_figure("FLAT PATCH 1:1, CHROMA CONTRAST X" + std::to_string(crop_gain) +
                               " AROUND ITS MEAN",
                           {crop_before, crop_capture, crop_preview}));
    const scene_metrics m0 = measure_scene(scene, scene.noisy);
    const scene_metrics m1 = measure_scene(scene, capture.out);
    const scene_metrics m2 = measure_scene(scene, preview.out);
    const auto noise_line = [](const char* label, const scene_metrics& m) {
        char line[64];
        snprintf(line, sizeof line, "%-14s %5.2f %5.2f", label, m.noise_u, m.noise_v);
        return std::string(line);
    };
    const std::string noise_title = "CHROMA NOISE, FLAT PATCHES:";
    const std::string noise_head =
        noise_line("STD DEV OF", scene_metrics()).substr(0, 15) + "    U     V";
    write_png(dir + "/compare_capture.png",
              demo_comparison(scene.noisy, capture.out, "AFTER CAPTURE", heat_scale, patch,
                              {crop_before, crop_capture},
                              {noise_title, noise_head, noise_line("BEFORE", m0),
                               noise_line("AFTER CAPTURE", m1)}));
    write_png(dir + "/compare_preview.png",
              demo_comparison(scene.noisy, preview.out, "AFTER PREVIEW", heat_scale, patch,
                              {crop_before, crop_preview},
                              {noise_title, noise_head, noise_line("BEFORE", m0),
                               noise_line("AFTER PREVIEW", m2)}));

    printf(
        "vantor demo: %dx%d NV21 synthetic scene, seed %d: low-frequency colour blotches "
        "(peak %.0f codes) and fine noise (sigma %.1f)\n\n",
        width, height, seed, noise_settings().blotch_amplitude, noise_settings().chroma_sigma);
    printf("%-46s %8s %8s %8s\n", "", "before", "capture", "preview");
    printf("%-46s %8.2f %8.2f %8.2f\n", "chroma noise in flat patches, U std dev", m0.noise_u,
           m1.noise_u, m2.noise_u);
    printf("%-46s %8.2f %8.2f %8.2f\n", "chroma noise in flat patches, V std dev", m0.noise_v,
           m1.noise_v, m2.noise_v);
    printf("%-46s %8.2f %8.2f %8.2f\n", "colour error at sharp edges vs clean, codes",
           m0.edge_error, m1.edge_error, m2.edge_error);
    printf("%-46s %8s %8.2f %8.2f\n", "luma change from input, mean |dY| codes", "",
           mean_luma_change(scene.noisy, capture.out), mean_luma_change(scene.noisy, preview.out));
    printf("%-46s %8s %8.2f %8.2f\n", "ms per frame (median of 9 runs)", "", capture.ms,
           preview.ms);
    printf(
        "\nwrote %s/: clean.png before.png after_capture.png after_preview.png "
        "blotches_x6.png compare_capture.png compare_preview.png\n",
        dir.c_str());
    return exit_ok;
}

}  // namespace vtool
