#include "image_io.h"

#include <png.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>

namespace zebex {

bool endsWith(const std::string& s, const std::string& suffix) {
    if (s.size() < suffix.size()) return false;
    return std::equal(suffix.rbegin(), suffix.rend(), s.rbegin(),
                      [](char a, char b) { return std::tolower(a) == std::tolower(b); });
}

std::vector<uint8_t> readFile(const std::string& path) {
    std::unique_ptr<FILE, int (*)(FILE*)> f(std::fopen(path.c_str(), "rb"), std::fclose);
    if (!f) throw FileError("cannot open " + path);
    std::vector<uint8_t> bytes;
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f.get())) > 0) bytes.insert(bytes.end(), buf, buf + n);
    if (std::ferror(f.get())) throw FileError("cannot read " + path);
    return bytes;
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::unique_ptr<FILE, int (*)(FILE*)> f(std::fopen(path.c_str(), "wb"), std::fclose);
    if (!f) throw FileError("cannot create " + path);
    if (std::fwrite(bytes.data(), 1, bytes.size(), f.get()) != bytes.size()) throw FileError("cannot write " + path);
}

namespace {

// ---------------------------------------------------------------- PNM
Image readPnm(const std::vector<uint8_t>& b, const std::string& path) {
    size_t p = 2;
    auto skipSpace = [&] {
        for (;;) {
            while (p < b.size() && std::isspace(b[p])) ++p;
            if (p < b.size() && b[p] == '#') {
                while (p < b.size() && b[p] != '\n') ++p;
            } else {
                return;
            }
        }
    };
    auto number = [&] {
        skipSpace();
        if (p >= b.size() || !std::isdigit(b[p])) throw FileError(path + ": malformed PNM header");
        long v = 0;
        while (p < b.size() && std::isdigit(b[p])) {
            v = v * 10 + (b[p++] - '0');
            if (v > 1000000000) throw FileError(path + ": PNM header value too large");
        }
        return v;
    };
    Image img;
    img.channels = b[1] == '5' ? 1 : 3;
    long w = number(), h = number(), maxval = number();
    if (p >= b.size() || !std::isspace(b[p])) throw FileError(path + ": malformed PNM header");
    ++p;
    if (w < 1 || h < 1 || w > 65535 || h > 65535) throw FileError(path + ": unsupported image size");
    if (maxval < 1 || maxval > 65535) throw FileError(path + ": bad PNM maxval");
    img.width = int(w);
    img.height = int(h);
    img.bits = maxval > 255 ? 16 : 8;
    const size_t samples = img.samplesPerRow() * size_t(h);
    const size_t need = samples * (img.bits / 8);
    if (b.size() - p < need) throw FileError(path + ": truncated PNM data");
    if (img.bits == 8) {
        img.data8.assign(b.begin() + p, b.begin() + p + samples);
    } else {
        img.data16.resize(samples);
        for (size_t i = 0; i < samples; ++i) img.data16[i] = uint16_t(b[p + 2 * i] << 8 | b[p + 2 * i + 1]);
    }
    return img;
}

std::vector<uint8_t> writePnm(const Image& img) {
    std::string head = std::string(img.channels == 1 ? "P5" : "P6") + "\n" + std::to_string(img.width) + " " +
                       std::to_string(img.height) + "\n" + (img.bits == 16 ? "65535" : "255") + "\n";
    std::vector<uint8_t> out(head.begin(), head.end());
    if (img.bits == 8) {
        out.insert(out.end(), img.data8.begin(), img.data8.end());
    } else {
        for (uint16_t v : img.data16) {
            out.push_back(uint8_t(v >> 8));
            out.push_back(uint8_t(v));
        }
    }
    return out;
}

// ---------------------------------------------------------------- PNG
struct PngReadSource {
    const std::vector<uint8_t>* bytes;
    size_t pos;
};

void pngRead(png_structp png, png_bytep out, png_size_t n) {
    auto* s = static_cast<PngReadSource*>(png_get_io_ptr(png));
    if (s->bytes->size() - s->pos < n) png_error(png, "truncated PNG data");
    std::memcpy(out, s->bytes->data() + s->pos, n);
    s->pos += n;
}

void pngError(png_structp png, png_const_charp msg) {
    auto* text = static_cast<std::string*>(png_get_error_ptr(png));
    *text = msg;
    png_longjmp(png, 1);
}

void pngWarning(png_structp, png_const_charp) {}

Image readPng(const std::vector<uint8_t>& b, const std::string& path) {
    std::string err;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &err, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) throw FileError("out of memory reading " + path);
    PngReadSource src{&b, 0};
    Image img;
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        throw FileError(path + ": " + err);
    }
    png_set_read_fn(png, &src, pngRead);
    png_read_info(png, info);
    png_uint_32 w = png_get_image_width(png, info), h = png_get_image_height(png, info);
    int depth = png_get_bit_depth(png, info), type = png_get_color_type(png, info);
    if (w > 65535 || h > 65535) png_error(png, "unsupported image size");
    if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (depth < 8) png_set_expand(png);
    if (type & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(png);
    png_set_tRNS_to_alpha(png);
    png_set_strip_alpha(png);
    if (depth == 16) png_set_swap(png);  // host (little-endian) order
    png_read_update_info(png, info);
    img.width = int(w);
    img.height = int(h);
    img.channels = png_get_channels(png, info);
    img.bits = png_get_bit_depth(png, info);
    if ((img.channels != 1 && img.channels != 3) || (img.bits != 8 && img.bits != 16))
        png_error(png, "unsupported PNG layout");
    const size_t rowBytes = png_get_rowbytes(png, info);
    std::vector<uint8_t> pixels(rowBytes * h);
    rows.resize(h);
    for (png_uint_32 y = 0; y < h; ++y) rows[y] = pixels.data() + y * rowBytes;
    png_read_image(png, rows.data());
    png_destroy_read_struct(&png, &info, nullptr);
    if (img.bits == 8) {
        img.data8 = std::move(pixels);
    } else {
        img.data16.resize(pixels.size() / 2);
        std::memcpy(img.data16.data(), pixels.data(), pixels.size());
    }
    return img;
}

void pngWrite(png_structp png, png_bytep data, png_size_t n) {
    auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + n);
}

void pngFlush(png_structp) {}

std::vector<uint8_t> writePng(const Image& img) {
    std::string err;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &err, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) throw FileError("out of memory writing PNG");
    std::vector<uint8_t> out;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw FileError("PNG: " + err);
    }
    png_set_write_fn(png, &out, pngWrite, pngFlush);
    png_set_IHDR(png, info, img.width, img.height, img.bits,
                 img.channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (img.bits == 16) png_set_swap(png);
    const size_t rowBytes = img.samplesPerRow() * (img.bits / 8);
    const uint8_t* base = img.bits == 8 ? img.data8.data() : reinterpret_cast<const uint8_t*>(img.data16.data());
    for (int y = 0; y < img.height; ++y) png_write_row(png, const_cast<png_bytep>(base + y * rowBytes));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

}  // namespace

Image readImage(const std::string& path) {
    std::vector<uint8_t> b = readFile(path);
    if (b.size() >= 8 && png_sig_cmp(b.data(), 0, 8) == 0) return readPng(b, path);
    if (b.size() >= 2 && b[0] == 'P' && (b[1] == '5' || b[1] == '6')) return readPnm(b, path);
    throw FileError(path + ": not a PNG, PGM or PPM file");
}

void writeImage(const std::string& path, const Image& img) {
    writeFile(path, endsWith(path, ".png") ? writePng(img) : writePnm(img));
}

}  // namespace zebex
