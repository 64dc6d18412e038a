// Frame formats, sizes and scenarios as the command line names them, and the frame geometry
// that the library accepts.
#ifndef VANTOR_TOOLS_FORMATS_H
#define VANTOR_TOOLS_FORMATS_H

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace vtool {

enum class pixel_format { nv21, nm21, yuyv, yuy2 };

// All four, in the order the tool lists them.
extern const pixel_format all_formats[4];

// Accepts nv21, nm21, yuyv, yuy2 and FFmpeg's yuyv422, in any case.
bool parse_format(const std::string& text, pixel_format* out);
// "NV21", "NM21", "YUYV", "YUY2".
const char* format_name(pixel_format f);
// The FourCC code the library takes.
int32_t format_code(pixel_format f);
// NV21 and NM21 carry chroma at half height; YUYV and YUY2 at full height.
bool is_420(pixel_format f);

// "capture" or "preview" (any case); the library's scenario value.
bool parse_scenario(const std::string& text, int* out);
const char* scenario_name(int scenario);

// "WIDTHxHEIGHT" with positive decimal numbers.
bool parse_size(const std::string& text, int* width, int* height);

// Bytes of one tightly packed frame: NV21 and NM21 as Y followed by the V/U plane of
// height / 2 rows, YUYV and YUY2 as height rows of 2 * width bytes.
size_t frame_bytes(pixel_format f, int width, int height);

// Smallest frame the library takes: every width that is a multiple of 16 from 16 up and every
// height from 1 up (its kernels have rules of their own for planes below their usual minimum).
constexpr int min_width = 16;
constexpr int min_height = 1;
// Largest side the tool accepts, so that every plane size fits the library's 32-bit arithmetic.
constexpr int max_side = 16384;

// Empty when the library can process frames of this size and format, else why not, in one
// sentence that names what it accepts. `name` stands for the format's name in it when given
// (frames converted to the format).
std::string geometry_problem(pixel_format f, int width, int height, const char* name = nullptr);

}  // namespace vtool

#endif
