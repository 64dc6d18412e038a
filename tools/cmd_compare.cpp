// vantor compare: before, after and where the chroma changed, as one picture.
#include <stdio.h>
#include <unistd.h>

#include "args.h"
#include "color.h"
#include "commands.h"
#include "compare.h"
#include "errors.h"
#include "files.h"
#include "raw_reader.h"

namespace vtool {

namespace {

const std::vector<option_def> options = {
    {"--out", "-o", true},      {"--size", "-s", true},     {"--format", "-f", true, "-pix_fmt"},
    {"--frame", nullptr, true}, {"--scale", nullptr, true}, {"--quality", nullptr, true}};

struct raw_frames {
    bool given = false;
    file_layout layout = file_layout::nv21;
    int width = 0, height = 0;
    int frame_index = 0;
};

compare_side load_side(const std::string& path, const raw_frames& raw) {
    input_file in(path);
    const std::vector<uint8_t>& head = in.peek(8);
    if (sniff_image(head.data(), head.size()) != image_kind::none)
        return side_of(decode_image(in.read_all(), in.name));
    if (!raw.given) {
        if (image_kind_of_name(path) != image_kind::none)
            return side_of(decode_image(in.read_all(), in.name));
        usage_error(in.name +
                    " is not a PNG or JPEG picture; for raw frames give -s WIDTHxHEIGHT "
                    "and --format");
    }
    raw_reader reader(in, raw.layout, raw.width, raw.height);
    reader.skip(static_cast<uint64_t>(raw.frame_index));
    std::vector<uint8_t> packed(reader.frame_size);
    if (!reader.next({{packed.data(), packed.size()}}))
        fail(in.name + " has only " + std::to_string(reader.read) + " frames");
    // Shown and measured in the format the library would have processed it in.
    frame f;
    f.format = library_format(raw.layout);
    f.width = raw.width;
    f.height = raw.height;
    f.bytes.resize(frame_bytes(f.format, f.width, f.height));
    layout_to_library(raw.layout, f.width, f.height, packed.data(), f.bytes.data(),
                      f.bytes.data() + static_cast<size_t>(f.width) * f.height);
    return side_of(f);
}

}  // namespace

int cmd_compare(int argc, char** argv) {
    const parsed_args a = parse_args(argc, argv, 2, options, "compare");
    if (a.positionals.size() != 2 || !a.has("--out"))
        usage_error(
            "compare needs two inputs and an output: vantor compare BEFORE AFTER --out "
            "PICTURE");
    const std::string out = a.value("--out", "");
    const int quality = int_value(a, "--quality", default_jpeg_quality, 1, 100);
    if (a.has("--quality") && picture_output_kind(out) != image_kind::jpeg)
        usage_error("--quality is for pictures written as JPEG (an output named .jpg or .jpeg)");
    picture_output_kind(out);
    raw_frames raw;
    if (a.has("--format")) {
        const std::string f = a.value("--format", "");
        if (!parse_layout(f, &raw.layout))
            usage_error("unknown format '" + f + "': use " + layout_names);
    }
    if (a.has("--size")) {
        const std::string s = a.value("--size", "");
        if (!parse_size(s, &raw.width, &raw.height))
            usage_error("bad frame size '" + s + "': give it as WIDTHxHEIGHT, e.g. 1920x1080");
        const char* name = layout_name(raw.layout);
        if (is_420(library_format(raw.layout)) && (raw.width % 2 || raw.height % 2))
            usage_error(std::string(name) + " frames need an even width and height");
        if (raw.width % 2)
            usage_error(std::string(name) + " frames need an even width");
        raw.given = true;
    }
    raw.frame_index = int_value(a, "--frame", 0, 0, 1 << 30);
    const int scale = int_value(a, "--scale", 8, 1, 510);

    const compare_side before = load_side(a.positionals[0], raw);
    const compare_side after = load_side(a.positionals[1], raw);
    const picture panels = compose_comparison(before, after, scale);
    write_whole_file(out, encode_picture(panels, out, quality));

    // The figures go where the picture does not.
    FILE* report = named_descriptor(out) == STDOUT_FILENO ? stderr : stdout;
    const change_stats s = summarize_change(chroma_change(before.chroma, after.chroma));
    fprintf(report,
            "chroma change |dU|+|dV|: mean %.2f, 99th percentile %d, max %d, %.1f%% of samples "
            "changed\n",
            s.mean, s.p99, s.max, 100.0 * s.changed);
    fprintf(report, "wrote %s: before | after | chroma change (full colour at %d codes)\n",
            is_stdio(out) ? "standard output" : out.c_str(), scale);
    return exit_ok;
}

}  // namespace vtool
