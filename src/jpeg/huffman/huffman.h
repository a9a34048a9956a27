// Internal entry points of the JPEG Huffman family: table builders and the
// two forms (fast and careful) of the baseline block coders, so that tests
// can run each form by itself.
#pragma once

#include <cstdint>

#include "zebjp.h"

namespace zeb::jpeg::huff {

inline constexpr int kEncodeSpecSize = 1024;
inline constexpr int kDecodeSpecSize = 1644;
inline constexpr int kEncodeStateSize = 1048;
inline constexpr int kDecodeStateSize = 24;

// Table builders on an object at any address (cleared first). -64 on an
// invalid code set.
int buildEncodeSpec(const uint8_t* bits, const uint8_t* vals, uint8_t* spec);
int buildDecodeSpec(const uint8_t* bits, const uint8_t* vals, uint8_t* spec);
int buildOptimalTable(const uint8_t* statistics, uint8_t* bits, uint8_t* vals);

// Baseline block coders after the argument checks, with the same arguments
// and results as the exports. The fast forms return kGiveUp (1) without
// touching any output but the stream bytes below dstLen; the careful forms
// always finish.
int encodeBlockFast(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos, Zeb16s* lastDC,
                    const EncodeHuffmanSpec* dcSpec, const EncodeHuffmanSpec* acSpec, EncodeHuffmanState* state);
int encodeBlockCareful(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos, Zeb16s* lastDC,
                       const EncodeHuffmanSpec* dcSpec, const EncodeHuffmanSpec* acSpec, EncodeHuffmanState* state);
int decodeBlockFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, Zeb16s* lastDC, int* marker,
                    const DecodeHuffmanSpec* dcSpec, const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state);
int decodeBlockCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, Zeb16s* lastDC, int* marker,
                       const DecodeHuffmanSpec* dcSpec, const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state);

}  // namespace zeb::jpeg::huff
