// Image files for the example tools: PNM (P5 grey, P6 RGB, 8 or 16 bits) and
// PNG (grey or RGB, 8 or 16 bits; palettes expand to RGB, alpha is dropped).
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace zebex {

struct Image {
    int width = 0, height = 0;
    int channels = 0;  // 1 grey, 3 RGB
    int bits = 8;      // 8 or 16
    // Samples in row order, interleaved; 16-bit samples in host order.
    std::vector<uint8_t> data8;
    std::vector<uint16_t> data16;
    size_t samplesPerRow() const { return size_t(width) * channels; }
};

struct FileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Reads a .pgm/.ppm/.pnm or .png file (chosen by content). Throws FileError.
Image readImage(const std::string& path);
// Writes by extension: .png, otherwise PNM (P5 for grey, P6 for RGB).
void writeImage(const std::string& path, const Image& img);

std::vector<uint8_t> readFile(const std::string& path);
void writeFile(const std::string& path, const std::vector<uint8_t>& bytes);
bool endsWith(const std::string& s, const std::string& suffix);

}  // namespace zebex
