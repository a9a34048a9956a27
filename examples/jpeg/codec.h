// Baseline JPEG encoding and decoding of whole images, built on the block,
// row and region operations of zebjp.h. The file format (markers, tables,
// restart intervals, MCU padding) is handled here; the library does the
// colour conversion, sampling, transforms and entropy coding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace zebjpeg {

// A clear message for a bad file or a bad argument.
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};
// A valid file that uses a coding process this codec does not handle yet.
struct Unsupported : Error {
    using Error::Error;
};

// Interleaved 8-bit pixels, one (grey) or three (RGB) channels.
struct Raster {
    int width = 0, height = 0, channels = 0;
    std::vector<uint8_t> pixels;
};

enum class Sampling { s444, s422, s420 };

struct EncodeOptions {
    int quality = 75;          // 1..100
    Sampling sampling = Sampling::s420;
    int restartInterval = 0;   // in MCUs, 0: none
    bool optimize = false;     // optimal Huffman tables from the image's statistics
};

// Encodes width x height pixels (channels 1 or 3, rows `stride` bytes apart)
// into a baseline JFIF file. With `reconstruction` set, also gives the pixels
// a decoder of the file produces (the same inverse path as decode()).
std::vector<uint8_t> encode(const uint8_t* pixels, size_t stride, int width, int height, int channels,
                            const EncodeOptions& options, Raster* reconstruction = nullptr);

// Decodes a baseline or extended 8-bit sequential Huffman file.
Raster decode(const uint8_t* data, size_t size);
// The same into `out`, whose pixel storage is reused when it is large enough.
void decode(const uint8_t* data, size_t size, Raster& out);

}  // namespace zebjpeg
