// PNG and JPEG files as 8-bit RGB(A) pictures, through libpng and libjpeg.
#ifndef VANTOR_TOOLS_IMAGE_H
#define VANTOR_TOOLS_IMAGE_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace vtool {

// Rows of width * channels bytes, back to back; channels is 3 (RGB) or 4 (RGBA).
struct picture {
    int width = 0;
    int height = 0;
    int channels = 3;
    std::vector<uint8_t> pixels;

    uint8_t* row(int y) { return pixels.data() + static_cast<size_t>(y) * width * channels; }
    const uint8_t* row(int y) const {
        return pixels.data() + static_cast<size_t>(y) * width * channels;
    }
};

picture make_picture(int width, int height, int channels);

enum class image_kind { none, png, jpeg };

// By the first bytes of the file.
image_kind sniff_image(const uint8_t* head, size_t n);
// By the file name's extension (.png, .jpg, .jpeg, any case).
image_kind image_kind_of_name(const std::string& path);

// Decodes a PNG or JPEG held in memory; `name` is used in error messages. Grey, palette and
// 16-bit PNGs come out as 8-bit RGB, those with transparency as RGBA.
picture decode_image(const std::vector<uint8_t>& bytes, const std::string& name);
std::vector<uint8_t> encode_png(const picture& p);

}  // namespace vtool

#endif
