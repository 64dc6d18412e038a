// How raw frames are laid out in files and pipes: the library's own formats, and the ones FFmpeg
// writes by default (NV12, planar 4:2:0 and 4:2:2), which the tool converts on the way in and
// back on the way out.
#ifndef VANTOR_TOOLS_LAYOUTS_H
#define VANTOR_TOOLS_LAYOUTS_H

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "formats.h"

namespace vtool {

enum class file_layout { nv21, nm21, yuyv, yuy2, nv12, i420, i422 };

// The tool's names (nv21, nm21, yuyv, yuy2, nv12, i420, i422) and FFmpeg's (yuyv422, yuv420p,
// yuv422p), in any case.
bool parse_layout(const std::string& text, file_layout* out);
// What parse_layout takes, for messages.
extern const char layout_names[];

// "NV21", "NM21", "YUYV", "YUY2", "NV12", "I420", "I422".
const char* layout_name(file_layout l);
// The format the library processes frames of this layout in: NV21 for 4:2:0, YUY2 for the
// planar 4:2:2, the layout itself for the library's own formats.
pixel_format library_format(file_layout l);
// True when frames are converted to and from library_format(l).
bool is_converted(file_layout l);
// Bytes of one tightly packed frame.
size_t layout_frame_bytes(file_layout l, int width, int height);
// The file name ending a batch run gives outputs of this layout (".nv21", ".yuv" for I420...).
const char* layout_extension(file_layout l);

// Converts one packed frame `src` of layout `l` into the planes of library_format(l): for 4:2:0
// the Y plane at `y` and the V/U plane at `vu`, both of stride `width`; for 4:2:2 the packed
// frame at `y` (`vu` unused). Sizes as geometry_problem() accepts them.
void layout_to_library(file_layout l, int width, int height, const uint8_t* src, uint8_t* y,
                       uint8_t* vu);
// The reverse: the planes of library_format(l) to one packed frame of layout `l` at `dst`.
void library_to_layout(file_layout l, int width, int height, const uint8_t* y, const uint8_t* vu,
                       uint8_t* dst);

}  // namespace vtool

#endif
