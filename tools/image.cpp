#include "image.h"

#include <setjmp.h>
#include <stdio.h>
#include <string.h>

#include <png.h>
#include <jpeglib.h>

#include "errors.h"

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

picture decode_png(const std::vector<uint8_t>& bytes, const std::string& name) {
    png_image img;
    memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&img, bytes.data(), bytes.size()))
        fail(name + ": not a readable PNG file (" + img.message + ")");
    const bool alpha = (img.format & PNG_FORMAT_FLAG_ALPHA) != 0;
    img.format = alpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    if (img.width > 65535 || img.height > 65535) {
        png_image_free(&img);
        fail(name + ": picture of " + std::to_string(img.width) + "x" + std::to_string(img.height) +
             " is too large");
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

void on_jpeg_warning(j_common_ptr, int) {}

// Plain C-style decoding: nothing with a destructor lives between setjmp and a longjmp out
// of libjpeg. Returns false with the library's message on failure.
bool decode_jpeg_into(const std::vector<uint8_t>& bytes, picture* out, char* message) {
    jpeg_decompress_struct cinfo;
    jpeg_failure failure;
    cinfo.err = jpeg_std_error(&failure.mgr);
    failure.mgr.error_exit = on_jpeg_error;
    failure.mgr.emit_message = on_jpeg_warning;
    if (setjmp(failure.env)) {
        strcpy(message, failure.message);
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&cinfo, TRUE);
    if (cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK) {
        strcpy(message, "CMYK JPEG files are not supported");
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
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
    return true;
}

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

picture decode_image(const std::vector<uint8_t>& bytes, const std::string& name) {
    if (bytes.empty())
        fail(name + " is empty");
    switch (sniff_image(bytes.data(), bytes.size())) {
        case image_kind::png:
            return decode_png(bytes, name);
        case image_kind::jpeg: {
            picture p;
            char message[JMSG_LENGTH_MAX] = {0};
            if (!decode_jpeg_into(bytes, &p, message))
                fail(name + ": not a readable JPEG file (" + message + ")");
            return p;
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

}  // namespace

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
