#include "image.h"

#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <png.h>
#include <jpeglib.h>

#include "errors.h"
#include "files.h"
#include "formats.h"

namespace vtool {

namespace {

bool ends_with(const std::string& s, const char* suffix) {
    const size_t n = strlen(suffix);
    if (s.size() < n)
        return false;
    for (size_t i = 0; i < n; ++i) {
        char c = s[s.size() - n + i];
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        if (c != suffix[i])
            return false;
    }
    return true;
}

uint32_t be32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}

[[noreturn]] void fail_too_large(const std::string& name, uint32_t width, uint32_t height) {
    fail(name + ": picture of " + std::to_string(width) + "x" + std::to_string(height) +
         " is too large: the tool takes at most " + std::to_string(max_side) + " pixels a side");
}

picture decode_png(const std::vector<uint8_t>& bytes, const std::string& name) {
    // The size and depth from the header chunk, before libpng allocates anything for the rows.
    // A file too short for a header is left to libpng to refuse.
    const uint8_t* ihdr = bytes.data() + 8;
    const bool has_header = bytes.size() >= 8 + 8 + 13 && memcmp(ihdr + 4, "IHDR", 4) == 0;
    if (has_header && (be32(ihdr + 8) > max_side || be32(ihdr + 12) > max_side))
        fail_too_large(name, be32(ihdr + 8), be32(ihdr + 12));
    png_image img;
    memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&img, bytes.data(), bytes.size()))
        fail(name + ": not a readable PNG file (" + img.message + ")");
    const bool alpha = (img.format & PNG_FORMAT_FLAG_ALPHA) != 0;
    img.format = alpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    if (img.width > max_side || img.height > max_side) {
        png_image_free(&img);
        fail_too_large(name, img.width, img.height);
    }
    if (has_header && ihdr[16] == 16) {
        // Taken as the sRGB-coded values it almost always holds, not as linear light.
        img.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
        fprintf(stderr, "vantor: warning: %s is a 16-bit PNG: processed at 8 bits per channel\n",
                name.c_str());
    }
    picture p =
        make_picture(static_cast<int>(img.width), static_cast<int>(img.height), alpha ? 4 : 3);
    if (!png_image_finish_read(&img, nullptr, p.pixels.data(), 0, nullptr))
        fail(name + ": damaged PNG file (" + img.message + ")");
    return p;
}

struct jpeg_failure {
    jpeg_error_mgr mgr;
    jmp_buf env;
    char message[JMSG_LENGTH_MAX];
};

void on_jpeg_error(j_common_ptr cinfo) {
    jpeg_failure* f = reinterpret_cast<jpeg_failure*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, f->message);
    longjmp(f->env, 1);
}

// libjpeg only warns about damaged data (a file cut short, a bad Huffman code) and fills in
// grey; a picture that is not all there is refused instead.
void on_jpeg_message(j_common_ptr cinfo, int level) {
    if (level < 0)
        on_jpeg_error(cinfo);
}

enum class jpeg_result { ok, unreadable, too_large };

// Plain C-style decoding: nothing with a destructor lives between setjmp and a longjmp out
// of libjpeg. On failure `message` holds the library's reason; a picture too large to decode
// leaves only its size in `out`. `orientation` receives the Exif orientation (1 without one).
jpeg_result decode_jpeg_into(const std::vector<uint8_t>& bytes, picture* out, int* orientation,
                             char* message) {
    jpeg_decompress_struct cinfo;
    jpeg_failure failure;
    cinfo.err = jpeg_std_error(&failure.mgr);
    failure.mgr.error_exit = on_jpeg_error;
    failure.mgr.emit_message = on_jpeg_message;
    if (setjmp(failure.env)) {
        strcpy(message, failure.message);
        jpeg_destroy_decompress(&cinfo);
        return jpeg_result::unreadable;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_save_markers(&cinfo, JPEG_APP0 + 1, 0xFFFF);
    jpeg_read_header(&cinfo, TRUE);
    if (cinfo.image_width > max_side || cinfo.image_height > max_side) {
        out->width = static_cast<int>(cinfo.image_width);
        out->height = static_cast<int>(cinfo.image_height);
        jpeg_destroy_decompress(&cinfo);
        return jpeg_result::too_large;
    }
    if (cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK) {
        strcpy(message, "CMYK JPEG files are not supported");
        jpeg_destroy_decompress(&cinfo);
        return jpeg_result::unreadable;
    }
    *orientation = 1;
    for (jpeg_saved_marker_ptr m = cinfo.marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 && memcmp(m->data, "Exif\0", 6) == 0)
            *orientation = exif_orientation(m->data + 6, m->data_length - 6);
    cinfo.out_color_space = JCS_RGB;
    jpeg_start_decompress(&cinfo);
    out->width = static_cast<int>(cinfo.output_width);
    out->height = static_cast<int>(cinfo.output_height);
    out->channels = 3;
    out->pixels.resize(static_cast<size_t>(out->width) * out->height * 3);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = out->row(static_cast<int>(cinfo.output_scanline));
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return jpeg_result::ok;
}

const char* const orientation_names[9] = {"",
                                          "",
                                          "mirrored left to right",
                                          "turned 180 degrees",
                                          "mirrored top to bottom",
                                          "mirrored across its diagonal",
                                          "turned 90 degrees clockwise",
                                          "mirrored across its other diagonal",
                                          "turned 90 degrees anticlockwise"};

}  // namespace

picture make_picture(int width, int height, int channels) {
    picture p;
    p.width = width;
    p.height = height;
    p.channels = channels;
    p.pixels.assign(static_cast<size_t>(width) * height * channels, 0);
    return p;
}

image_kind sniff_image(const uint8_t* head, size_t n) {
    static const uint8_t png_sig[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (n >= 8 && memcmp(head, png_sig, 8) == 0)
        return image_kind::png;
    if (n >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF)
        return image_kind::jpeg;
    return image_kind::none;
}

image_kind image_kind_of_name(const std::string& path) {
    if (ends_with(path, ".png"))
        return image_kind::png;
    if (ends_with(path, ".jpg") || ends_with(path, ".jpeg"))
        return image_kind::jpeg;
    return image_kind::none;
}

int exif_orientation(const uint8_t* tiff, size_t n) {
    if (n < 8 || (memcmp(tiff, "II*\0", 4) != 0 && memcmp(tiff, "MM\0*", 4) != 0))
        return 1;
    const bool little = tiff[0] == 'I';
    const auto u16 = [&](size_t at) {
        return little ? tiff[at] | tiff[at + 1] << 8 : tiff[at] << 8 | tiff[at + 1];
    };
    const size_t ifd = little ? static_cast<size_t>(u16(4)) | static_cast<size_t>(u16(6)) << 16
                              : static_cast<size_t>(u16(4)) << 16 | u16(6);
    if (ifd > n - 2)
        return 1;
    const size_t entries = static_cast<size_t>(u16(ifd));
    for (size_t i = 0, at = ifd + 2; i < entries && at + 12 <= n; ++i, at += 12) {
        // Tag 0x0112, type SHORT: the value sits in the entry's first two value bytes.
        if (u16(at) == 0x0112 && u16(at + 2) == 3) {
            const int v = u16(at + 8);
            return v >= 1 && v <= 8 ? v : 1;
        }
    }
    return 1;
}

picture orient_picture(const picture& p, int orientation) {
    if (orientation < 2 || orientation > 8)
        return p;
    // Each orientation as: read the output's x and y swapped, then mirror the source across.
    static const bool swap_xy[9] = {false, false, false, false, false, true, true, true, true};
    static const bool mirror_x[9] = {false, false, true, true, false, false, false, true, true};
    static const bool mirror_y[9] = {false, false, false, true, true, false, true, true, false};
    const bool swap = swap_xy[orientation];
    picture out = make_picture(swap ? p.height : p.width, swap ? p.width : p.height, p.channels);
    const size_t c = static_cast<size_t>(p.channels);
    for (int y = 0; y < out.height; ++y) {
        uint8_t* dst = out.row(y);
        for (int x = 0; x < out.width; ++x, dst += c) {
            int sx = swap ? y : x, sy = swap ? x : y;
            if (mirror_x[orientation])
                sx = p.width - 1 - sx;
            if (mirror_y[orientation])
                sy = p.height - 1 - sy;
            memcpy(dst, p.row(sy) + static_cast<size_t>(sx) * c, c);
        }
    }
    return out;
}

picture decode_image(const std::vector<uint8_t>& bytes, const std::string& name) {
    if (bytes.empty())
        fail(name + " is empty");
    switch (sniff_image(bytes.data(), bytes.size())) {
        case image_kind::png:
            return decode_png(bytes, name);
        case image_kind::jpeg: {
            picture p;
            int orientation = 1;
            char message[JMSG_LENGTH_MAX] = {0};
            switch (decode_jpeg_into(bytes, &p, &orientation, message)) {
                case jpeg_result::unreadable:
                    fail(name + ": not a readable JPEG file (" + message + ")");
                case jpeg_result::too_large:
                    fail_too_large(name, static_cast<uint32_t>(p.width),
                                   static_cast<uint32_t>(p.height));
                case jpeg_result::ok:
                    break;
            }
            if (orientation == 1)
                return p;
            fprintf(stderr, "vantor: %s: %s, as its Exif orientation %d asks\n", name.c_str(),
                    orientation_names[orientation], orientation);
            return orient_picture(p, orientation);
        }
        case image_kind::none:
            break;
    }
    fail(name + ": not a PNG or JPEG file");
}

namespace {

void append_bytes(png_structp png, png_bytep data, png_size_t n) {
    auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + n);
}

void flush_nothing(png_structp) {}

// The classic interface, for its compression settings: camera pictures are noisy and compress
// little, so a fast zlib level loses a few percent of size and saves most of the time. Nothing
// with a destructor is created between setjmp and the libpng calls that may jump back to it.
bool encode_png_into(const picture& p, const std::vector<png_const_bytep>& rows,
                     std::vector<uint8_t>* out) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (!png)
        return false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, out, append_bytes, flush_nothing);
    png_set_IHDR(png, info, static_cast<png_uint_32>(p.width), static_cast<png_uint_32>(p.height),
                 8, p.channels == 4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 2);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB | PNG_FILTER_UP);
    png_write_info(png, info);
    png_write_image(png, const_cast<png_bytepp>(rows.data()));
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

// The same discipline as decoding: plain C between setjmp and the libjpeg calls.
bool encode_jpeg_into(const picture& rgb, int quality, unsigned char** data, unsigned long* size) {
    jpeg_compress_struct cinfo;
    jpeg_failure failure;
    cinfo.err = jpeg_std_error(&failure.mgr);
    failure.mgr.error_exit = on_jpeg_error;
    if (setjmp(failure.env)) {
        jpeg_destroy_compress(&cinfo);
        return false;
    }
    jpeg_create_compress(&cinfo);
    jpeg_mem_dest(&cinfo, data, size);
    cinfo.image_width = static_cast<JDIMENSION>(rgb.width);
    cinfo.image_height = static_cast<JDIMENSION>(rgb.height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(rgb.row(static_cast<int>(cinfo.next_scanline)));
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return true;
}

}  // namespace

std::vector<uint8_t> encode_jpeg(const picture& p, int quality) {
    picture rgb;
    if (p.channels == 4) {
        rgb = make_picture(p.width, p.height, 3);
        for (size_t i = 0, n = static_cast<size_t>(p.width) * p.height; i < n; ++i)
            memcpy(&rgb.pixels[3 * i], &p.pixels[4 * i], 3);
    }
    unsigned char* data = nullptr;
    unsigned long size = 0;
    const bool ok = encode_jpeg_into(p.channels == 4 ? rgb : p, quality, &data, &size);
    std::vector<uint8_t> out;
    if (ok)
        out.assign(data, data + size);
    free(data);
    if (!ok)
        fail("JPEG encoding failed");
    return out;
}

image_kind picture_output_kind(const std::string& path) {
    const image_kind k = image_kind_of_name(path);
    if (k != image_kind::none)
        return k;
    if (is_stream_output(path))
        return image_kind::png;
    usage_error("cannot tell which picture format to write to " + path +
                ": name it .png, .jpg or .jpeg (or give - for PNG on standard output)");
}

std::vector<uint8_t> encode_picture(const picture& p, const std::string& path, int quality) {
    if (picture_output_kind(path) == image_kind::png)
        return encode_png(p);
    if (p.channels == 4)
        fprintf(stderr, "vantor: warning: JPEG has no transparency: %s is written without it\n",
                path.c_str());
    return encode_jpeg(p, quality);
}

std::vector<uint8_t> encode_png(const picture& p) {
    std::vector<png_const_bytep> rows(static_cast<size_t>(p.height));
    for (int y = 0; y < p.height; ++y)
        rows[static_cast<size_t>(y)] = p.row(y);
    std::vector<uint8_t> out;
    out.reserve(p.pixels.size() / 2);
    if (!encode_png_into(p, rows, &out))
        fail("PNG encoding failed");
    return out;
}

}  // namespace vtool
