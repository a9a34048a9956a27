// MCU operations: pixels of one minimum coded unit to 8x8 blocks of level-
// shifted 16-bit samples and back. Each vector kernel has a scalar twin with
// the same arguments and the same results; the exported operations choose the
// arithmetic form from the alignment of the block planes.
#pragma once

#include <cstdint>

namespace zeb::mcu {

// Chroma sampling of the MCU: 8x8 pixels (444), 16x8 (422), 16x16 (411).
enum Sampling { k444 = 0, k422 = 1, k411 = 2 };

constexpr int mcuWidth(Sampling s) { return s == k444 ? 8 : 16; }
constexpr int mcuHeight(Sampling s) { return s == k411 ? 16 : 8; }
constexpr int lumaBlocks(Sampling s) { return s == k444 ? 1 : s == k422 ? 2 : 4; }
// log2 of the pixels under one chroma sample.
constexpr int chromaLog2(Sampling s) { return s == k444 ? 0 : s == k422 ? 1 : 2; }

// Pixel layouts on the pixel side of the operations.
//   RGB, BGR: three bytes; P555, P565: packed 16-bit words, B in the low
//   bits; CMYK: four bytes C, M, Y, K; YCC: three bytes Y, Cb, Cr already
//   converted (the shift-only operations).
enum class Px { RGB, BGR, P555, P565, CMYK, YCC };

constexpr int pixelBytes(Px p) {
    return p == Px::CMYK ? 4 : (p == Px::P555 || p == Px::P565) ? 2 : 3;
}
constexpr int planesOf(Px p) { return p == Px::CMYK ? 4 : 3; }

// Forward forms.
//   Block: 14-bit pair multiply-adds with rounding biases (CMYK: 8133 as the
//          444 chroma bias).
//   Plain: 16-bit coefficients, truncating.
//   Shift: samples minus 128, chroma averages by an arithmetic shift.
enum class FwdForm { Block, Plain, Shift };

// Inverse forms.
//   Bits14: 14 fraction bits, all terms per pixel.
//   Split:  13-bit red and blue terms, 14-bit green; K clamped.
//   Plain:  16-bit coefficients with wrapping products; K wraps to a byte.
//   Shift:  samples plus 128, clamped.
enum class InvForm { Bits14, Split, Plain, Shift };

// Encoders: `src` is the MCU's first pixel (bytes), rows `srcStep` apart;
// dst[0..2] (and dst[3] for CMYK) are runs of consecutive blocks. Both take
// every form (Shift with the YCC layout only).
void fwdVec(const uint8_t* src, int srcStep, int16_t* const dst[4], Sampling s, Px px, FwdForm f);
void fwdScalar(const uint8_t* src, int srcStep, int16_t* const dst[4], Sampling s, Px px, FwdForm f);

// Y, Cb, Y, Cr pairs of a 16x8 MCU to blocks, minus 128.
void split422Vec(const uint8_t* src, int srcStep, int16_t* const dst[3]);
void split422Scalar(const uint8_t* src, int srcStep, int16_t* const dst[3]);

// Decoders: blocks to pixels at `dst`, rows `dstStep` apart, written from the
// top row down. Both take every form (Shift with the YCC layout only).
void invVec(const int16_t* const src[4], uint8_t* dst, int dstStep, Sampling s, Px px, InvForm f);
void invScalar(const int16_t* const src[4], uint8_t* dst, int dstStep, Sampling s, Px px, InvForm f);

// Blocks of a 16x8 MCU to Y, Cb, Y, Cr pairs, plus 128, clamped.
void join422Vec(const int16_t* const src[3], uint8_t* dst, int dstStep);
void join422Scalar(const int16_t* const src[3], uint8_t* dst, int dstStep);

}  // namespace zeb::mcu
