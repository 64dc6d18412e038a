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

// Decodes a PNG or JPEG held in memory; `name` is used in messages. Grey, palette and 16-bit
// PNGs come out as 8-bit RGB (16-bit with a warning on stderr), those with transparency as RGBA.
// A picture larger than the tool takes is refused from its header, before any pixel is
// decoded; a damaged or truncated file is refused. A JPEG is turned upright as its Exif
// orientation asks, which is said on stderr.
picture decode_image(const std::vector<uint8_t>& bytes, const std::string& name);

// The orientation (1 to 8) in an Exif block's TIFF data; 1 when it has none.
int exif_orientation(const uint8_t* tiff, size_t n);
// The picture as it is meant to be seen when stored with Exif orientation 1 to 8.
picture orient_picture(const picture& p, int orientation);

std::vector<uint8_t> encode_png(const picture& p);
// Quality 1 to 100; an alpha channel is dropped.
std::vector<uint8_t> encode_jpeg(const picture& p, int quality);

// The format a picture output is written in: by its name's ending, PNG for standard output,
// a device or a FIFO; any other name is a usage error that lists the endings.
image_kind picture_output_kind(const std::string& path);
// The picture encoded for `path` (see picture_output_kind), with a warning on stderr when
// JPEG drops an alpha channel.
std::vector<uint8_t> encode_picture(const picture& p, const std::string& path, int quality);

constexpr int default_jpeg_quality = 90;

}  // namespace vtool

#endif
