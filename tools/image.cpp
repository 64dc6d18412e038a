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

std::vector<uint8_t> encode_png(const picture& p) {
    png_image img;
    memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    img.width = static_cast<png_uint_32>(p.width);
    img.height = static_cast<png_uint_32>(p.height);
    img.format = p.channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    png_alloc_size_t size = 0;
    if (!png_image_write_get_memory_size(img, size, 0, p.pixels.data(), 0, nullptr))
        fail(std::string("PNG encoding failed: ") + img.message);
    std::vector<uint8_t> out(size);
    if (!png_image_write_to_memory(&img, out.data(), &size, 0, p.pixels.data(), 0, nullptr))
        fail(std::string("PNG encoding failed: ") + img.message);
    out.resize(size);
    return out;
}

}  // namespace vtool
