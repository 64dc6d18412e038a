#include "color.h"

#include <string.h>

#include <libyuv.h>

namespace vtool {

frame picture_to_nv21(const picture& p) {
    frame f;
    f.format = pixel_format::nv21;
    f.width = p.width;
    f.height = p.height;
    f.bytes.resize(frame_bytes(f.format, p.width, p.height));
    uint8_t* y = f.bytes.data();
    uint8_t* vu = y + static_cast<size_t>(p.width) * p.height;
    if (p.channels == 3) {
        libyuv::RAWToJNV21(p.pixels.data(), p.width * 3, y, p.width, vu, p.width, p.width,
                           p.height);
        return f;
    }
    std::vector<uint8_t> rgb(static_cast<size_t>(p.width) * p.height * 3);
    for (size_t i = 0, n = static_cast<size_t>(p.width) * p.height; i < n; ++i)
        memcpy(&rgb[3 * i], &p.pixels[4 * i], 3);
    libyuv::RAWToJNV21(rgb.data(), p.width * 3, y, p.width, vu, p.width, p.width, p.height);
    return f;
}

picture frame_to_picture(const frame& f) {
    picture p = make_picture(f.width, f.height, 3);
    const uint8_t* y = f.bytes.data();
    if (is_420(f.format)) {
        // libyuv's NV12 reader with the V/U-swapped matrix yields R, G, B byte order.
        const uint8_t* vu = y + static_cast<size_t>(f.width) * f.height;
        libyuv::NV12ToRGB24Matrix(y, f.width, vu, f.width, p.pixels.data(), f.width * 3,
                                  &libyuv::kYvuJPEGConstants, f.width, f.height);
        return p;
    }
    const int cw = f.width / 2;
    std::vector<uint8_t> planes(static_cast<size_t>(f.width) * f.height * 2);
    uint8_t* py = planes.data();
    uint8_t* pu = py + static_cast<size_t>(f.width) * f.height;
    uint8_t* pv = pu + static_cast<size_t>(cw) * f.height;
    libyuv::YUY2ToI422(y, f.width * 2, py, f.width, pu, cw, pv, cw, f.width, f.height);
    libyuv::I422ToRGB24Matrix(py, f.width, pv, cw, pu, cw, p.pixels.data(), f.width * 3,
                              &libyuv::kYvuJPEGConstants, f.width, f.height);
    return p;
}

chroma_planes chroma_of(const frame& f) {
    chroma_planes c;
    c.cw = f.width / 2;
    const size_t luma = static_cast<size_t>(f.width) * f.height;
    if (is_420(f.format)) {
        c.ch = f.height / 2;
        c.rows_per_sample = 2;
        c.u.resize(static_cast<size_t>(c.cw) * c.ch);
        c.v.resize(c.u.size());
        libyuv::SplitUVPlane(f.bytes.data() + luma, f.width, c.v.data(), c.cw, c.u.data(), c.cw,
                             c.cw, c.ch);
        return c;
    }
    c.ch = f.height;
    c.rows_per_sample = 1;
    c.u.resize(static_cast<size_t>(c.cw) * c.ch);
    c.v.resize(c.u.size());
    std::vector<uint8_t> y(luma);
    libyuv::YUY2ToI422(f.bytes.data(), f.width * 2, y.data(), f.width, c.u.data(), c.cw, c.v.data(),
                       c.cw, f.width, f.height);
    return c;
}

picture pad_picture(const picture& p, int width, int height) {
    if (width < p.width)
        width = p.width;
    if (height < p.height)
        height = p.height;
    picture out = make_picture(width, height, p.channels);
    const size_t px = static_cast<size_t>(p.channels);
    for (int y = 0; y < height; ++y) {
        const uint8_t* src = p.row(y < p.height ? y : p.height - 1);
        uint8_t* dst = out.row(y);
        memcpy(dst, src, px * p.width);
        for (int x = p.width; x < width; ++x)
            memcpy(dst + px * x, src + px * (p.width - 1), px);
    }
    return out;
}

picture crop_picture(const picture& p, int width, int height) {
    picture out = make_picture(width, height, p.channels);
    for (int y = 0; y < height; ++y)
        memcpy(out.row(y), p.row(y), static_cast<size_t>(width) * p.channels);
    return out;
}

}  // namespace vtool
