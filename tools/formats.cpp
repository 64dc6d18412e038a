#include "formats.h"

#include <ctype.h>

#include "vantor.h"

namespace vtool {

const pixel_format all_formats[4] = {pixel_format::nv21, pixel_format::nm21, pixel_format::yuyv,
                                     pixel_format::yuy2};

namespace {

std::string lower(const std::string& s) {
    std::string out = s;
    for (char& c : out)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return out;
}

bool parse_positive(const std::string& s, int* out) {
    if (s.empty() || s.size() > 6)
        return false;
    int v = 0;
    for (char c : s) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (c - '0');
    }
    if (v <= 0)
        return false;
    *out = v;
    return true;
}

}  // namespace

bool parse_format(const std::string& text, pixel_format* out) {
    const std::string t = lower(text);
    if (t == "nv21")
        *out = pixel_format::nv21;
    else if (t == "nm21")
        *out = pixel_format::nm21;
    else if (t == "yuyv" || t == "yuyv422")
        *out = pixel_format::yuyv;
    else if (t == "yuy2")
        *out = pixel_format::yuy2;
    else
        return false;
    return true;
}

const char* format_name(pixel_format f) {
    switch (f) {
        case pixel_format::nv21:
            return "NV21";
        case pixel_format::nm21:
            return "NM21";
        case pixel_format::yuyv:
            return "YUYV";
        case pixel_format::yuy2:
            return "YUY2";
    }
    return "?";
}

int32_t format_code(pixel_format f) {
    switch (f) {
        case pixel_format::nv21:
            return VTR_NV21;
        case pixel_format::nm21:
            return VTR_NV21_M;
        case pixel_format::yuyv:
            return VTR_YUYV;
        case pixel_format::yuy2:
            return VTR_YUY2;
    }
    return 0;
}

bool is_420(pixel_format f) {
    return f == pixel_format::nv21 || f == pixel_format::nm21;
}

bool parse_scenario(const std::string& text, int* out) {
    const std::string t = lower(text);
    if (t == "capture")
        *out = VTR_SCENARIO_CAPTURE;
    else if (t == "preview")
        *out = VTR_SCENARIO_PREVIEW;
    else
        return false;
    return true;
}

const char* scenario_name(int scenario) {
    return scenario == VTR_SCENARIO_PREVIEW ? "preview" : "capture";
}

bool parse_size(const std::string& text, int* width, int* height) {
    const size_t x = lower(text).find('x');
    if (x == std::string::npos)
        return false;
    return parse_positive(text.substr(0, x), width) && parse_positive(text.substr(x + 1), height);
}

size_t frame_bytes(pixel_format f, int width, int height) {
    const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
    return is_420(f) ? luma + luma / 2 : 2 * luma;
}

std::string geometry_problem(pixel_format f, int width, int height, const char* name) {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    if (width % 16 != 0) {
        const int below = width / 16 * 16;
        return "width " + std::to_string(width) +
               " is not a multiple of 16: the library accepts widths that are multiples of 16 "
               "(nearest: " +
               (below >= min_width ? std::to_string(below) + " or " : std::string()) +
               std::to_string(below + 16) + ")";
    }
    if (width > max_side || height > max_side)
        return "frame " + size + " is too large: the tool accepts at most " +
               std::to_string(max_side) + " pixels a side";
    if (width < min_width || height < min_height)
        return "frame " + size + " is too small: the library needs at least " +
               std::to_string(min_width) + "x" + std::to_string(min_height);
    if (is_420(f) && height % 2 != 0)
        return "height " + std::to_string(height) + " is odd: " + (name ? name : format_name(f)) +
               " carries chroma for pairs of rows and needs an even height";
    return std::string();
}

}  // namespace vtool
