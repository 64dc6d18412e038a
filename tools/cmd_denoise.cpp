// vantor denoise: raw frames or YUV4MPEG2 (a single frame or a stream, through one handle) or a
// picture; one input to one output, or several inputs into a directory.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "args.h"
#include "color.h"
#include "commands.h"
#include "denoiser.h"
#include "errors.h"
#include "files.h"
#include "image.h"
#include "progress.h"
#include "raw_reader.h"
#include "y4m.h"

namespace vtool {

namespace {

const std::vector<option_def> options = {
    {"--size", "-s", true},        {"--format", "-f", true, "-pix_fmt"},
    {"--scenario", nullptr, true}, {"--quality", nullptr, true},
    {"--out-dir", "-o", true},     {"--quiet", "-q", false}};

struct settings {
    bool raw = false;
    file_layout layout = file_layout::nv21;
    int width = 0;
    int height = 0;
    int scenario = 0;
    int quality = default_jpeg_quality;
    bool quality_given = false;  // and not a batch, where it is for the JPEG inputs only
    bool quiet = false;
};

enum class input_kind { raw, y4m, picture };

// What one input gave, for its summary line.
struct run_report {
    uint64_t frames = 0;
    std::string what;  // "256x144 NV21 frame"
    std::string rate;  // "25 fps", or empty
    double ms = 0;     // inside the library, all frames
};

bool has_ending(const std::string& path, const char* ending) {
    const size_t n = strlen(ending);
    return path.size() > n && strcasecmp(path.c_str() + path.size() - n, ending) == 0;
}

settings parse_settings(const parsed_args& a) {
    settings s;
    if (a.has("--format")) {
        const std::string f = a.value("--format", "");
        if (!parse_layout(f, &s.layout))
            usage_error("unknown format '" + f + "': use " + layout_names);
    }
    if (a.has("--size")) {
        const std::string size = a.value("--size", "");
        if (!parse_size(size, &s.width, &s.height))
            usage_error("bad frame size '" + size + "': give it as WIDTHxHEIGHT, e.g. 1920x1080");
        s.raw = true;
        const std::string problem =
            geometry_problem(library_format(s.layout), s.width, s.height, layout_name(s.layout));
        if (!problem.empty())
            usage_error(problem);
    } else if (a.has("--format")) {
        usage_error("raw frames need their size: add -s WIDTHxHEIGHT");
    }
    const std::string scenario = a.value("--scenario", "capture");
    if (!parse_scenario(scenario, &s.scenario))
        usage_error("unknown scenario '" + scenario + "': use capture or preview");
    s.quiet = a.has("--quiet");
    s.quality = int_value(a, "--quality", default_jpeg_quality, 1, 100);
    s.quality_given = a.has("--quality") && !a.has("--out-dir");
    if (a.has("--quality") && s.raw)
        usage_error("--quality is for pictures written as JPEG (an output named .jpg or .jpeg)");
    return s;
}

std::string summary_text(const run_report& r, int scenario) {
    const double per = r.frames ? r.ms / r.frames : 0;
    char times[96];
    snprintf(times, sizeof times, "%s: %.2f ms per frame (%.1f frames/s)", scenario_name(scenario),
             per, per > 0 ? 1000.0 / per : 0.0);
    return std::to_string(r.frames) + " " + r.what + (r.frames == 1 ? "" : "s") +
           (r.rate.empty() ? "" : " (" + r.rate + ")") + ", " + times;
}

// YUV4MPEG2 by its signature or its name; raw frames when -s was given; else a picture.
input_kind classify(input_file& in, const std::string& path, const settings& s) {
    const std::vector<uint8_t>& head = in.peek(strlen(y4m_signature));
    if (!is_y4m(head) && !has_ending(path, ".y4m"))
        return s.raw ? input_kind::raw : input_kind::picture;
    if (s.raw)
        usage_error(in.name +
                    " is a YUV4MPEG2 stream, which carries its own size and format: "
                    "drop -s and --format");
    if (head.empty())
        fail(in.name + " is empty");
    if (!is_y4m(head))
        fail(in.name + " is not a YUV4MPEG2 stream: it does not start with 'YUV4MPEG2 '");
    return input_kind::y4m;
}

run_report denoise_stream(input_file& in, const std::string& out_path, input_kind kind,
                          const settings& s) {
    std::unique_ptr<y4m_reader> y4m;
    std::unique_ptr<raw_reader> raw;
    file_layout layout = s.layout;
    int w = s.width, h = s.height;
    if (kind == input_kind::y4m) {
        y4m.reset(new y4m_reader(in));
        layout = y4m->header.layout;
        w = y4m->header.width;
        h = y4m->header.height;
    } else {
        raw.reset(new raw_reader(in, layout, w, h));
    }
    const bool convert = is_converted(layout);
    frame_buffer buffer = make_frame_buffer(library_format(layout), w, h);
    std::vector<uint8_t> packed(convert ? layout_frame_bytes(layout, w, h) : 0);
    // Frames of the library's own formats are read straight into its buffer.
    const auto next = [&]() {
        if (!convert)
            return raw->next(buffer.input_spans());
        if (y4m ? !y4m->next(packed.data()) : !raw->next({{packed.data(), packed.size()}}))
            return false;
        layout_to_library(layout, w, h, packed.data(), buffer.plane1, buffer.plane2);
        return true;
    };
    const auto frames_read = [&]() { return y4m ? y4m->read : raw->read; };

    // The first frame is read before the output is created, so that an empty, short or
    // malformed input leaves nothing behind.
    if (!next())
        fail(in.name + " has no frames");
    output_file out(out_path);
    if (y4m) {
        const std::string header = y4m->header.line + "\n";
        out.write(reinterpret_cast<const uint8_t*>(header.data()), header.size());
    }
    denoiser d(library_format(layout), w, h, s.scenario);
    progress_bar bar(y4m ? y4m->total : raw->total, !s.quiet && isatty(STDERR_FILENO));
    run_report report;
    do {
        report.ms += d.run(buffer, frames_read());
        if (y4m)
            out.write(reinterpret_cast<const uint8_t*>("FRAME\n"), 6);
        if (convert) {
            // After the run an NV21 frame is packed at the start of its block.
            library_to_layout(layout, w, h, buffer.plane1,
                              buffer.plane1 + static_cast<size_t>(w) * h, packed.data());
            out.write(packed.data(), packed.size());
        } else {
            for (const byte_span& span : buffer.output_spans())
                out.write(span.data, span.size);
        }
        bar.update(frames_read(), report.ms / frames_read());
    } while (next());
    bar.finish();
    out.commit();
    report.frames = frames_read();
    if (y4m) {
        report.what = std::to_string(w) + "x" + std::to_string(h) + " YUV4MPEG2 " +
                      (layout == file_layout::i420 ? "4:2:0" : "4:2:2") + " frame";
        report.rate = y4m_rate_text(y4m->header);
    } else {
        report.what = frame_label(layout, w, h);
    }
    return report;
}

run_report denoise_picture(input_file& in, const std::string& out_path, const settings& s) {
    const picture original = decode_image(in.read_all(), in.name);
    output_file out(out_path);
    // The library takes widths in multiples of 16, even heights for NV21 and a minimum size;
    // the picture is extended by repeating its edges and cut back afterwards.
    const int w = std::max(min_width, align16(original.width));
    const int h = std::max(min_height + 1, (original.height + 1) & ~1);
    const frame yuv = picture_to_nv21(pad_picture(original, w, h));
    frame_buffer buffer = make_frame_buffer(pixel_format::nv21, w, h);
    buffer.load(yuv.bytes.data());
    denoiser d(pixel_format::nv21, w, h, s.scenario);
    run_report report;
    report.ms = d.run(buffer, 1);
    frame result = yuv;
    buffer.store(result.bytes.data());
    picture rgb = crop_picture(frame_to_picture(result), original.width, original.height);
    if (original.channels == 4) {
        picture rgba = original;
        for (size_t i = 0, n = static_cast<size_t>(rgb.width) * rgb.height; i < n; ++i)
            memcpy(&rgba.pixels[4 * i], &rgb.pixels[3 * i], 3);
        rgb = std::move(rgba);
    }
    const std::vector<uint8_t> encoded = encode_picture(rgb, out_path, s.quality);
    out.write(encoded.data(), encoded.size());
    out.commit();
    report.frames = 1;
    report.what =
        std::to_string(original.width) + "x" + std::to_string(original.height) + " picture";
    return report;
}

// Checks that `out_path` suits what the input is written as, then denoises.
run_report denoise_input(input_file& in, const std::string& in_path, const std::string& out_path,
                         const settings& s) {
    const input_kind kind = classify(in, in_path, s);
    if (kind == input_kind::raw && has_ending(out_path, ".y4m"))
        usage_error("raw frames are written raw: a .y4m output needs a YUV4MPEG2 input");
    if (kind == input_kind::y4m && !has_ending(out_path, ".y4m") && !is_stream_output(out_path))
        usage_error(in.name +
                    " is YUV4MPEG2 and is written as YUV4MPEG2: name the output .y4m "
                    "(or - for standard output)");
    if (kind != input_kind::picture && s.quality_given)
        usage_error("--quality is for pictures written as JPEG (an output named .jpg or .jpeg)");
    if (kind != input_kind::picture)
        return denoise_stream(in, out_path, kind, s);
    if (picture_output_kind(out_path) != image_kind::jpeg && s.quality_given)
        usage_error("--quality is for pictures written as JPEG (an output named .jpg or .jpeg)");
    const std::vector<uint8_t>& head = in.peek(8);
    if (head.empty())
        fail(in.name + " is empty");
    if (sniff_image(head.data(), head.size()) == image_kind::none &&
        image_kind_of_name(in_path) == image_kind::none)
        usage_error(in.name +
                    " is not a PNG or JPEG picture; for raw frames give -s WIDTHxHEIGHT "
                    "and --format");
    return denoise_picture(in, out_path, s);
}

// Every input into `dir` under its own name with the ending of what it is written as. A failed
// input is reported and the others go on.
int denoise_batch(const std::vector<std::string>& inputs, const std::string& dir,
                  const settings& s) {
    for (const std::string& path : inputs)
        if (is_stdio(path))
            usage_error("a batch (-o DIR) takes files, not standard input");
    make_dirs(dir);
    std::vector<std::string> written;
    size_t failed = 0;
    for (const std::string& path : inputs) {
        try {
            input_file in(path);
            const input_kind kind = classify(in, path, s);
            std::string ending = ".y4m";
            if (kind == input_kind::raw) {
                ending = layout_extension(s.layout);
            } else if (kind == input_kind::picture) {
                const std::vector<uint8_t>& head = in.peek(8);
                image_kind k = sniff_image(head.data(), head.size());
                if (k == image_kind::none)
                    k = image_kind_of_name(path);
                ending = k == image_kind::jpeg ? ".jpg" : ".png";
            }
            const std::string out = dir + "/" + stem_of(path) + ending;
            if (std::find(written.begin(), written.end(), out) != written.end())
                fail("its output " + out + " was already written for another input");
            if (same_file(path, out))
                fail("its output " + out + " would replace it");
            const run_report r = denoise_input(in, path, out, s);
            written.push_back(out);
            if (!s.quiet)
                fprintf(stderr, "vantor: %s -> %s: %s\n", path.c_str(), out.c_str(),
                        summary_text(r, s.scenario).c_str());
        } catch (const tool_error& e) {
            ++failed;
            fprintf(stderr, "vantor: %s failed: %s\n", path.c_str(), e.what());
        }
    }
    if (!s.quiet || failed)
        fprintf(stderr, "vantor: %zu of %zu files denoised into %s, %zu failed\n",
                inputs.size() - failed, inputs.size(), dir.c_str(), failed);
    return failed ? exit_failure : exit_ok;
}

}  // namespace

int cmd_denoise(int argc, char** argv) {
    const parsed_args a = parse_args(argc, argv, 2, options, "denoise");
    const settings s = parse_settings(a);
    if (a.has("--out-dir")) {
        if (a.positionals.empty())
            usage_error("a batch needs inputs: vantor denoise IN... -o DIR");
        return denoise_batch(a.positionals, a.value("--out-dir", ""), s);
    }
    if (a.positionals.size() != 2)
        usage_error(
            "denoise needs an input and an output: vantor denoise IN OUT "
            "(or IN... -o DIR)");
    input_file in(a.positionals[0]);
    const run_report r = denoise_input(in, a.positionals[0], a.positionals[1], s);
    if (!s.quiet)
        fprintf(stderr, "vantor: %s\n", summary_text(r, s.scenario).c_str());
    return exit_ok;
}

}  // namespace vtool
