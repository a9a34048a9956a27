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

// Interleaved pixels, one (grey) or three (RGB) channels: 8-bit in `pixels`,
// or, for a lossless file of more than 8 bits, `bits`-bit samples in
// `samples16` (and `pixels` empty).
struct Raster {
    int width = 0, height = 0, channels = 0;
    std::vector<uint8_t> pixels;
    int bits = 8;
    std::vector<uint16_t> samples16;
};

enum class Sampling { s444, s422, s420 };

struct EncodeOptions {
    int quality = 75;          // 1..100
    Sampling sampling = Sampling::s420;
    int restartInterval = 0;   // in MCUs, 0: none
    bool optimize = false;     // optimal Huffman tables from the image's statistics
    bool progressive = false;  // progressive file: a standard scan script, optimal tables per scan
};

// Encodes width x height pixels (channels 1 or 3, rows `stride` bytes apart)
// into a baseline JFIF file. With `reconstruction` set, also gives the pixels
// a decoder of the file produces (the same inverse path as decode()).
std::vector<uint8_t> encode(const uint8_t* pixels, size_t stride, int width, int height, int channels,
                            const EncodeOptions& options, Raster* reconstruction = nullptr);

struct LosslessOptions {
    int precision = 8;       // bits per sample, 2..16
    int predictor = 1;       // 1..7
    int pointTransform = 0;  // low bits dropped before coding, 0..precision-1
    int restartRows = 0;     // rows per restart interval (width * rows at most 65535), 0: none
};

// Encodes width x height samples below 1 << precision (channels 1 or 3,
// rows `stride` samples apart) into a lossless Huffman-coded file: one
// interleaved scan, an optimal table per component.
std::vector<uint8_t> encodeLossless(const uint16_t* samples, size_t stride, int width, int height, int channels,
                                    const LosslessOptions& options);

// Decodes a baseline, extended 8-bit sequential, progressive or lossless
// Huffman file.
Raster decode(const uint8_t* data, size_t size);
// The same into `out`, whose pixel storage is reused when it is large enough.
void decode(const uint8_t* data, size_t size, Raster& out);

}  // namespace zebjpeg
