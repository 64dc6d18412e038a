#include "layouts.h"

#include <ctype.h>

#include <libyuv.h>

namespace vtool {

namespace {

struct layout_info {
    file_layout layout;
    const char* name;
    const char* extension;
    pixel_format library;
};

constexpr layout_info infos[] = {
    {file_layout::nv21, "NV21", ".nv21", pixel_format::nv21},
    // NM21 is written out like NV21.
    {file_layout::nm21, "NM21", ".nv21", pixel_format::nm21},
    {file_layout::yuyv, "YUYV", ".yuyv", pixel_format::yuyv},
    {file_layout::yuy2, "YUY2", ".yuy2", pixel_format::yuy2},
    {file_layout::nv12, "NV12", ".nv12", pixel_format::nv21},
    {file_layout::i420, "I420", ".i420", pixel_format::nv21},
    {file_layout::i422, "I422", ".i422", pixel_format::yuy2},
};

const layout_info& info(file_layout l) {
    return infos[static_cast<int>(l)];
}

struct spelling {
    const char* text;
    file_layout layout;
};

constexpr spelling spellings[] = {
    {"nv21", file_layout::nv21},    {"nm21", file_layout::nm21},    {"yuyv", file_layout::yuyv},
    {"yuyv422", file_layout::yuyv}, {"yuy2", file_layout::yuy2},    {"nv12", file_layout::nv12},
    {"i420", file_layout::i420},    {"yuv420p", file_layout::i420}, {"i422", file_layout::i422},
    {"yuv422p", file_layout::i422},
};

// Planes of a packed planar frame: Y, then U, then V at half width.
struct planar {
    const uint8_t *y, *u, *v;
};
planar planes_of(const uint8_t* frame, int width, int height, int chroma_rows) {
    const size_t luma = static_cast<size_t>(width) * height;
    const size_t chroma = static_cast<size_t>(width / 2) * chroma_rows;
    return {frame, frame + luma, frame + luma + chroma};
}

}  // namespace

const char layout_names[] =
    "nv21, nm21, yuyv, yuy2, nv12, i420, i422 or FFmpeg's yuyv422, "
    "yuv420p, yuv422p";

bool parse_layout(const std::string& text, file_layout* out) {
    std::string t = text;
    for (char& c : t)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    for (const spelling& s : spellings)
        if (t == s.text) {
            *out = s.layout;
            return true;
        }
    return false;
}

const char* layout_name(file_layout l) {
    return info(l).name;
}

pixel_format library_format(file_layout l) {
    return info(l).library;
}

bool is_converted(file_layout l) {
    return l == file_layout::nv12 || l == file_layout::i420 || l == file_layout::i422;
}

size_t layout_frame_bytes(file_layout l, int width, int height) {
    return frame_bytes(library_format(l), width, height);
}

const char* layout_extension(file_layout l) {
    return info(l).extension;
}

void layout_to_library(file_layout l, int width, int height, const uint8_t* src, uint8_t* y,
                       uint8_t* vu) {
    const int cw = width / 2;
    switch (l) {
        case file_layout::nv21:
        case file_layout::nm21:
            libyuv::CopyPlane(src, width, y, width, width, height);
            libyuv::CopyPlane(src + static_cast<size_t>(width) * height, width, vu, width, width,
                              height / 2);
            break;
        case file_layout::yuyv:
        case file_layout::yuy2:
            libyuv::CopyPlane(src, 2 * width, y, 2 * width, 2 * width, height);
            break;
        case file_layout::nv12:
            // Swapping the chroma bytes is its own inverse: the same call turns NV12 into NV21.
            libyuv::NV21ToNV12(src, width, src + static_cast<size_t>(width) * height, width, y,
                               width, vu, width, width, height);
            break;
        case file_layout::i420: {
            const planar p = planes_of(src, width, height, height / 2);
            libyuv::I420ToNV21(p.y, width, p.u, cw, p.v, cw, y, width, vu, width, width, height);
            break;
        }
        case file_layout::i422: {
            const planar p = planes_of(src, width, height, height);
            libyuv::I422ToYUY2(p.y, width, p.u, cw, p.v, cw, y, 2 * width, width, height);
            break;
        }
    }
}

void library_to_layout(file_layout l, int width, int height, const uint8_t* y, const uint8_t* vu,
                       uint8_t* dst) {
    const int cw = width / 2;
    const size_t luma = static_cast<size_t>(width) * height;
    uint8_t* u = dst + luma;
    switch (l) {
        case file_layout::nv21:
        case file_layout::nm21:
            libyuv::CopyPlane(y, width, dst, width, width, height);
            libyuv::CopyPlane(vu, width, dst + luma, width, width, height / 2);
            break;
        case file_layout::yuyv:
        case file_layout::yuy2:
            libyuv::CopyPlane(y, 2 * width, dst, 2 * width, 2 * width, height);
            break;
        case file_layout::nv12:
            libyuv::NV21ToNV12(y, width, vu, width, dst, width, dst + luma, width, width, height);
            break;
        case file_layout::i420:
            libyuv::NV21ToI420(y, width, vu, width, dst, width, u, cw,
                               u + static_cast<size_t>(cw) * (height / 2), cw, width, height);
            break;
        case file_layout::i422:
            libyuv::YUY2ToI422(y, 2 * width, dst, width, u, cw,
                               u + static_cast<size_t>(cw) * height, cw, width, height);
            break;
    }
}

}  // namespace vtool
