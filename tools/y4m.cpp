#include "y4m.h"

#include <stdio.h>
#include <string.h>

#include "errors.h"

namespace vtool {

namespace {

constexpr size_t max_header = 1024;
constexpr size_t max_frame_line = 1024;
constexpr char frame_tag[] = "FRAME";

bool parse_number(const std::string& s, int* out) {
    if (s.empty() || s.size() > 9 || s.find_first_not_of("0123456789") != std::string::npos)
        return false;
    *out = std::stoi(s);
    return true;
}

// "N:D" with both parts whole numbers.
bool parse_ratio(const std::string& s, int* num, int* den) {
    const size_t colon = s.find(':');
    return colon != std::string::npos && parse_number(s.substr(0, colon), num) &&
           parse_number(s.substr(colon + 1), den);
}

}  // namespace

bool is_y4m(const std::vector<uint8_t>& head) {
    const size_t n = strlen(y4m_signature);
    return head.size() >= n && memcmp(head.data(), y4m_signature, n) == 0;
}

std::string parse_y4m_header(const std::string& line, y4m_header* out) {
    y4m_header h;
    h.line = line;
    const size_t n = strlen(y4m_signature);
    if (line.compare(0, n, y4m_signature) != 0)
        return "it does not start with 'YUV4MPEG2 '";
    bool has_w = false, has_h = false;
    size_t pos = n;
    while (pos <= line.size()) {
        size_t end = line.find(' ', pos);
        if (end == std::string::npos)
            end = line.size();
        const std::string tag = line.substr(pos, end - pos);
        pos = end + 1;
        if (tag.empty())
            continue;
        const std::string value = tag.substr(1);
        switch (tag[0]) {
            case 'W':
                if (!parse_number(value, &h.width) || h.width == 0)
                    return "bad width '" + tag + "'";
                has_w = true;
                break;
            case 'H':
                if (!parse_number(value, &h.height) || h.height == 0)
                    return "bad height '" + tag + "'";
                has_h = true;
                break;
            case 'F':
                if (!parse_ratio(value, &h.rate_num, &h.rate_den) || h.rate_num == 0 ||
                    h.rate_den == 0)
                    return "bad frame rate '" + tag + "'";
                break;
            case 'A': {
                int an = 0, ad = 0;
                if (!parse_ratio(value, &an, &ad))
                    return "bad aspect ratio '" + tag + "'";
                break;
            }
            case 'I':
                if (value == "p" || value == "?")
                    break;
                if (value == "t" || value == "b" || value == "m")
                    return "interlaced (I" + value + "): the library takes progressive frames (Ip)";
                return "bad interlacing tag '" + tag + "'";
            case 'C':
                h.chroma = value;
                if (value == "420" || value == "420jpeg" || value == "420paldv" ||
                    value == "420mpeg2")
                    h.layout = file_layout::i420;
                else if (value == "422")
                    h.layout = file_layout::i422;
                else
                    return "chroma C" + value +
                           " is not supported: the tool takes 8-bit 4:2:0 (C420, C420jpeg, "
                           "C420paldv, C420mpeg2) and 4:2:2 (C422)";
                break;
            case 'X':
                break;
            default:
                return "unknown tag '" + tag + "'";
        }
    }
    if (!has_w || !has_h)
        return "no W (width) or H (height) tag";
    *out = h;
    return std::string();
}

std::string y4m_rate_text(const y4m_header& h) {
    if (h.rate_den == 0)
        return std::string();
    char text[32];
    snprintf(text, sizeof text, "%.5g fps", static_cast<double>(h.rate_num) / h.rate_den);
    return text;
}

bool y4m_reader::read_line(std::string* line, size_t max, bool* complete) {
    line->clear();
    *complete = false;
    uint8_t c = 0;
    while (line->size() < max && in_.read(&c, 1) == 1) {
        if (c == '\n') {
            *complete = true;
            return true;
        }
        line->push_back(static_cast<char>(c));
    }
    return !line->empty();
}

y4m_reader::y4m_reader(input_file& in) : in_(in) {
    std::string line;
    bool complete = false;
    read_line(&line, max_header, &complete);
    const std::string bad = in.name + ": malformed YUV4MPEG2 header: ";
    if (!complete)
        fail(bad + (line.size() >= max_header
                        ? "no end of line in its first " + std::to_string(max_header) + " bytes"
                        : "the input ends inside it"));
    const std::string problem = parse_y4m_header(line, &header);
    if (problem.rfind("interlaced", 0) == 0 || problem.rfind("chroma", 0) == 0)
        fail(in.name + ": YUV4MPEG2 " + problem);
    if (!problem.empty())
        fail(bad + problem);
    const std::string geometry =
        geometry_problem(library_format(header.layout), header.width, header.height,
                         header.layout == file_layout::i420 ? "4:2:0" : nullptr);
    if (!geometry.empty())
        fail(in.name + ": " + geometry);
    frame_size = layout_frame_bytes(header.layout, header.width, header.height);
    // Frames of plain FRAME lines, so the count is known when the size divides evenly.
    const uint64_t per_frame = frame_size + strlen(frame_tag) + 1;
    if (in.regular && in.size > line.size() + 1 && (in.size - line.size() - 1) % per_frame == 0)
        total = (in.size - line.size() - 1) / per_frame;
}

bool y4m_reader::next(uint8_t* dst) {
    std::string line;
    bool complete = false;
    const std::string where =
        in_.name + ": malformed YUV4MPEG2 stream: frame " + std::to_string(read + 1) + " ";
    if (!read_line(&line, max_frame_line, &complete)) {
        if (read == 0)
            fail(in_.name + " has a YUV4MPEG2 header but no frames");
        return false;
    }
    if (line.compare(0, strlen(frame_tag), frame_tag) != 0 ||
        (line.size() > strlen(frame_tag) && line[strlen(frame_tag)] != ' '))
        fail(where + "does not start with a FRAME line");
    if (!complete)
        fail(where + (line.size() >= max_frame_line
                          ? "has a FRAME line of over " + std::to_string(max_frame_line) + " bytes"
                          : "ends inside its FRAME line"));
    const size_t got = in_.read(dst, frame_size);
    if (got != frame_size)
        fail(in_.name + " ends inside frame " + std::to_string(read + 1) + ": got " +
             std::to_string(got) + " of the " + std::to_string(frame_size) + " bytes of a " +
             std::to_string(header.width) + "x" + std::to_string(header.height) + " " +
             layout_name(header.layout) + " frame");
    ++read;
    return true;
}

}  // namespace vtool
