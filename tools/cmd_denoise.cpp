// vantor denoise: raw frames (a single frame or a stream, through one handle) or a picture.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "args.h"
#include "color.h"
#include "commands.h"
#include "denoiser.h"
#include "errors.h"
#include "files.h"
#include "image.h"
#include "progress.h"
#include "raw_reader.h"

namespace vtool {

namespace {

const std::vector<option_def> options = {{"--size", "-s", true},
                                         {"--format", "-f", true},
                                         {"--scenario", nullptr, true},
                                         {"--quality", nullptr, true},
                                         {"--quiet", "-q", false}};

struct raw_settings {
    bool raw = false;
    pixel_format format = pixel_format::nv21;
    int width = 0;
    int height = 0;
};

raw_settings parse_raw_settings(const parsed_args& a) {
    raw_settings r;
    if (a.has("--format")) {
        const std::string f = a.value("--format", "");
        if (!parse_format(f, &r.format))
            usage_error("unknown format '" + f + "': use nv21, nm21, yuyv, yuy2 or yuyv422");
    }
    if (a.has("--size")) {
        const std::string s = a.value("--size", "");
        if (!parse_size(s, &r.width, &r.height))
            usage_error("bad frame size '" + s + "': give it as WIDTHxHEIGHT, e.g. 1920x1080");
        r.raw = true;
        const std::string problem = geometry_problem(r.format, r.width, r.height);
        if (!problem.empty())
            usage_error(problem);
    } else if (a.has("--format")) {
        usage_error("raw frames need their size: add -s WIDTHxHEIGHT");
    }
    return r;
}

int parse_scenario_option(const parsed_args& a) {
    int scenario = 0;
    const std::string s = a.value("--scenario", "capture");
    if (!parse_scenario(s, &scenario))
        usage_error("unknown scenario '" + s + "': use capture or preview");
    return scenario;
}

void print_summary(uint64_t frames, const std::string& what, int scenario, double total_ms) {
    const double per = frames ? total_ms / frames : 0;
    fprintf(stderr, "vantor: %llu %s%s, %s: %.2f ms per frame (%.1f frames/s)\n",
            static_cast<unsigned long long>(frames), what.c_str(), frames == 1 ? "" : "s",
            scenario_name(scenario), per, per > 0 ? 1000.0 / per : 0.0);
}

int denoise_raw(input_file& in, const std::string& out_path, const raw_settings& r, int scenario,
                bool quiet) {
    raw_reader reader(in, r.format, r.width, r.height);
    frame_buffer buffer = make_frame_buffer(r.format, r.width, r.height);
    // The first frame is read before the output is created, so that an empty or short input
    // leaves nothing behind.
    if (!reader.next(buffer.input_spans()))
        fail(in.name + " has no frames");
    output_file out(out_path);
    denoiser d(r.format, r.width, r.height, scenario);
    progress_bar bar(reader.total, !quiet && isatty(STDERR_FILENO));
    double total_ms = 0;
    do {
        total_ms += d.run(buffer, reader.read);
        for (const byte_span& s : buffer.output_spans())
            out.write(s.data, s.size);
        bar.update(reader.read, total_ms / reader.read);
    } while (reader.next(buffer.input_spans()));
    bar.finish();
    out.commit();
    if (!quiet)
        print_summary(reader.read, frame_label(r.format, r.width, r.height), scenario, total_ms);
    return exit_ok;
}

int denoise_picture(input_file& in, const std::string& out_path, int scenario, int quality,
                    bool quiet) {
    const picture original = decode_image(in.read_all(), in.name);
    output_file out(out_path);
    // The library takes widths in multiples of 16, even heights for NV21 and a minimum size;
    // the picture is extended by repeating its edges and cut back afterwards.
    const int w = std::max(min_width, align16(original.width));
    const int h = std::max(min_height + 1, (original.height + 1) & ~1);
    const frame yuv = picture_to_nv21(pad_picture(original, w, h));
    frame_buffer buffer = make_frame_buffer(pixel_format::nv21, w, h);
    buffer.load(yuv.bytes.data());
    denoiser d(pixel_format::nv21, w, h, scenario);
    const double ms = d.run(buffer, 1);
    frame result = yuv;
    buffer.store(result.bytes.data());
    picture rgb = crop_picture(frame_to_picture(result), original.width, original.height);
    if (original.channels == 4) {
        picture rgba = original;
        for (size_t i = 0, n = static_cast<size_t>(rgb.width) * rgb.height; i < n; ++i)
            memcpy(&rgba.pixels[4 * i], &rgb.pixels[3 * i], 3);
        rgb = std::move(rgba);
    }
    const std::vector<uint8_t> encoded = encode_picture(rgb, out_path, quality);
    out.write(encoded.data(), encoded.size());
    out.commit();
    if (!quiet)
        print_summary(
            1, std::to_string(original.width) + "x" + std::to_string(original.height) + " picture",
            scenario, ms);
    return exit_ok;
}

}  // namespace

int cmd_denoise(int argc, char** argv) {
    const parsed_args a = parse_args(argc, argv, 2, options, "denoise");
    if (a.positionals.size() != 2)
        usage_error("denoise needs an input and an output: vantor denoise IN OUT");
    const raw_settings r = parse_raw_settings(a);
    const int scenario = parse_scenario_option(a);
    const bool quiet = a.has("--quiet");
    const int quality = int_value(a, "--quality", default_jpeg_quality, 1, 100);
    // A picture's output format comes from its name: settled before any input is read.
    if (a.has("--quality") && (r.raw || picture_output_kind(a.positionals[1]) != image_kind::jpeg))
        usage_error("--quality is for pictures written as JPEG (an output named .jpg or .jpeg)");
    if (!r.raw)
        picture_output_kind(a.positionals[1]);
    input_file in(a.positionals[0]);
    if (r.raw)
        return denoise_raw(in, a.positionals[1], r, scenario, quiet);
    const std::vector<uint8_t>& head = in.peek(8);
    if (head.empty())
        fail(in.name + " is empty");
    if (sniff_image(head.data(), head.size()) == image_kind::none &&
        image_kind_of_name(a.positionals[0]) == image_kind::none)
        usage_error(in.name +
                    " is not a PNG or JPEG picture; for raw frames give -s WIDTHxHEIGHT "
                    "and --format");
    return denoise_picture(in, a.positionals[1], scenario, quality, quiet);
}

}  // namespace vtool
