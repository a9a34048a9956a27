// Internal pieces of the lossless coders that tests reach directly: the
// scalar predictor forms and the fast and careful forms of the coders.
#pragma once

#include <cstdint>

#include "zebjp.h"

namespace zeb::jpeg::huff {

// Prediction of predictor p (1..7) from the left, upper and upper-left
// samples, read as signed 16-bit values; the result modulo 2^16.
int16_t predict(int p, int16_t ra, int16_t rb, int16_t rc);

// Scalar forms of the row operations (also the overlap route of the exports).
void diffRowScalar(const Zeb16s* src, const Zeb16s* prevRow, Zeb16s* dst, int width, int predictor);
void reconstructRowScalar(const Zeb16s* src, const Zeb16s* prevRow, Zeb16s* dst, int width, int predictor);
// Vector forms: no overlap between dst and the inputs.
void diffRowVector(const Zeb16s* src, const Zeb16s* prevRow, Zeb16s* dst, int width, int predictor);
void reconstructRowVector(const Zeb16s* src, const Zeb16s* prevRow, Zeb16s* dst, int width, int predictor);

// Coders after the argument checks. Fast forms return kGiveUp (1) having
// committed nothing (stream bytes below the length aside); careful forms
// finish.
int encodeOneFast(int16_t v, Zeb8u* dst, int dstLen, int* dstPos, const EncodeHuffmanSpec* spec,
                  EncodeHuffmanState* state);
int encodeOneCareful(int16_t v, Zeb8u* dst, int dstLen, int* dstPos, const EncodeHuffmanSpec* spec,
                     EncodeHuffmanState* state);
int decodeOneFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, const DecodeHuffmanSpec* spec,
                  DecodeHuffmanState* state);
int decodeOneCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker,
                     const DecodeHuffmanSpec* spec, DecodeHuffmanState* state);
int encodeRowFast(const Zeb16s* const* src, int width, int comps, Zeb8u* dst, int dstLen, int* dstPos,
                  const EncodeHuffmanSpec* const* specs, EncodeHuffmanState* state);
int encodeRowCareful(const Zeb16s* const* src, int width, int comps, Zeb8u* dst, int dstLen, int* dstPos,
                     const EncodeHuffmanSpec* const* specs, EncodeHuffmanState* state);
int decodeRowFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* const* dst, int width, int comps, int* marker,
                  const DecodeHuffmanSpec* const* specs, DecodeHuffmanState* state);
int decodeRowCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* const* dst, int width, int comps,
                     int* marker, const DecodeHuffmanSpec* const* specs, DecodeHuffmanState* state);

}  // namespace zeb::jpeg::huff
