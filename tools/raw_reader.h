// Reading raw frames back to back from a file or a pipe, with the size checks that keep a
// wrong -s or --format from producing output.
#ifndef VANTOR_TOOLS_RAW_READER_H
#define VANTOR_TOOLS_RAW_READER_H

#include <stdint.h>

#include <string>
#include <vector>

#include "files.h"
#include "frame_buffer.h"
#include "layouts.h"

namespace vtool {

struct raw_reader {
    // For a regular file, checks at once that it holds a whole number of frames.
    raw_reader(input_file& in, file_layout l, int width, int height);

    // Reads the next frame into the spans (which add up to one packed frame). False at the end
    // of the input; a frame cut short fails.
    bool next(const std::vector<byte_span>& spans);
    // Skips n frames.
    void skip(uint64_t n);

    uint64_t total = 0;  // frames in a regular file; 0 when unknown
    uint64_t read = 0;   // frames read so far
    size_t frame_size;

  private:
    input_file& in_;
    std::string what_;
};

// "256x144 NV21 frame"
std::string frame_label(file_layout l, int width, int height);

}  // namespace vtool

#endif
