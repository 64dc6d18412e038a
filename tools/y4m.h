// YUV4MPEG2 streams (FFmpeg's yuv4mpegpipe, .y4m files): a header line with the size, frame rate
// and chroma layout, then frames, each a FRAME line and the planes.
#ifndef VANTOR_TOOLS_Y4M_H
#define VANTOR_TOOLS_Y4M_H

#include <stdint.h>

#include <string>
#include <vector>

#include "files.h"
#include "frame_buffer.h"
#include "layouts.h"

namespace vtool {

constexpr char y4m_signature[] = "YUV4MPEG2 ";

struct y4m_header {
    int width = 0;
    int height = 0;
    int rate_num = 0;  // frame rate rate_num / rate_den; 0 / 0 when the header has none
    int rate_den = 0;
    file_layout layout = file_layout::i420;  // I420 for every 4:2:0 siting, I422 for 4:2:2
    std::string chroma = "420";              // the C tag's value ("420" when absent)
    std::string line;                        // the header as read, without its newline
};

// Parses a header line (without its newline). Empty on success, else what is wrong with it.
// Progressive (Ip, I? or no I tag) 4:2:0 and 4:2:2 are taken; other tags than W, H, F, I, A, C
// and X make it malformed.
std::string parse_y4m_header(const std::string& line, y4m_header* out);

// True when the first bytes are the signature.
bool is_y4m(const std::vector<uint8_t>& head);

// "25 fps", "29.97 fps", or "" when the rate is unknown.
std::string y4m_rate_text(const y4m_header& h);

// Reads a stream: the header at once (refusing what parse_y4m_header refuses, and sizes the
// library does not take), then frames one by one.
struct y4m_reader {
    explicit y4m_reader(input_file& in);

    // Reads the next frame's planes into `dst` (header.layout, packed). False at the end of the
    // stream; a malformed FRAME line or a frame cut short fails.
    bool next(uint8_t* dst);

    y4m_header header;
    size_t frame_size = 0;
    uint64_t total = 0;  // frames in a regular file whose FRAME lines carry no tags; else 0
    uint64_t read = 0;

  private:
    // One line without its newline; false when the input ended before any byte of it.
    bool read_line(std::string* line, size_t max, bool* complete);
    input_file& in_;
};

}  // namespace vtool

#endif
