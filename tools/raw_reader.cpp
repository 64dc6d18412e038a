#include "raw_reader.h"

#include "errors.h"

namespace vtool {

std::string frame_label(file_layout l, int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height) + " " + layout_name(l) + " frame";
}

raw_reader::raw_reader(input_file& in, file_layout l, int width, int height)
    : frame_size(layout_frame_bytes(l, width, height)),
      in_(in),
      what_(frame_label(l, width, height)) {
    if (!in.regular)
        return;
    const std::string expected =
        "expected a multiple of " + std::to_string(frame_size) + " bytes (one " + what_ + ")";
    if (in.size == 0)
        fail(in.name + " is empty: " + expected);
    if (in.size % frame_size != 0)
        fail(in.name + " has " + std::to_string(in.size) +
             " bytes, not a whole number of frames: " + expected);
    total = in.size / frame_size;
}

bool raw_reader::next(const std::vector<byte_span>& spans) {
    size_t got = 0;
    for (const byte_span& s : spans) {
        const size_t n = in_.read(s.data, s.size);
        got += n;
        if (n < s.size)
            break;
    }
    if (got == frame_size) {
        ++read;
        return true;
    }
    if (got == 0 && read > 0)
        return false;
    if (got == 0)
        fail(in_.name + " is empty: expected one or more " + what_ + "s of " +
             std::to_string(frame_size) + " bytes");
    fail(in_.name + " ends inside frame " + std::to_string(read + 1) + ": got " +
         std::to_string(got) + " of the " + std::to_string(frame_size) + " bytes of a " + what_);
}

void raw_reader::skip(uint64_t n) {
    std::vector<uint8_t> scratch(frame_size);
    for (uint64_t i = 0; i < n; ++i)
        if (!next({{scratch.data(), scratch.size()}}))
            fail(in_.name + " has only " + std::to_string(read) + " frames");
}

}  // namespace vtool
