// Internal interface of the JPEG transform family: the zigzag order shared
// with the entropy coders, and the block kernels behind the quantisation and
// DCT exports. Each vector kernel has a scalar twin of the same arithmetic;
// the tests run both side by side.
//
// Blocks are 64 signed 16-bit values in natural order (element 8*v + u).
#pragma once

#include <cstdint>

#include "jpeg/zigzag.h"

namespace zeb::jpeg {

// ---------------------------------------------------------------- quantisers
// Forward quantiser: ((hi((x << 3), r >> 1)) + 1) >> 1, halves toward +inf.
void quantFwdScalar(int16_t* blk, const uint16_t* fwd);
void quantFwdAvx2(int16_t* blk, const uint16_t* fwd);
// Inverse quantiser: low 16 bits of x * q.
void quantInvScalar(int16_t* blk, const uint16_t* inv);
void quantInvAvx2(int16_t* blk, const uint16_t* inv);

// Quantisation fused into the forward transforms: round(f * r / 32768),
// ties to even, saturated to 16 bits.
int16_t quantRoundEven(int16_t f, uint16_t r);
// The same on 64 elements with the vector kernel of the forward members.
void quantRoundEvenAvx2(const int16_t* f, const uint16_t* r, int16_t* out);

// ---------------------------------------------------------------- forward DCT
// 16-bit fixed-point transform of a level-shifted block, unquantised.
void fdctScalar(const int16_t* src, int16_t* dst);
// Transform and fused quantisation. dst may equal src.
void fdctQuantScalar(const int16_t* src, int16_t* dst, const uint16_t* fwd);
void fdctQuantAvx2(const int16_t* src, int16_t* dst, const uint16_t* fwd);
// 8-bit samples (8 rows, srcStep bytes apart), level shift, transform, quantise.
void fdctQuantLSScalar(const uint8_t* src, int srcStep, int16_t* dst, const uint16_t* fwd);
void fdctQuantLSAvx2(const uint8_t* src, int srcStep, int16_t* dst, const uint16_t* fwd);
// 12-bit samples in single precision, scaled by a float table.
void fdctFloatScalar(const uint16_t* src, int srcStep, int16_t* dst, const float* tbl);
void fdctFloatAvx2(const uint16_t* src, int srcStep, int16_t* dst, const float* tbl);
// The 64 float scale factors k(v) * k(u) / 8 of the float transforms.
alignas(32) extern const float kFloatScale[64];

// ---------------------------------------------------------------- inverse DCT
// Dequantise and transform; the 16-bit output of the column pass (>> 6),
// before the 128 is added. dst may equal src.
void idctScalar(const int16_t* src, const uint16_t* inv, int16_t* dst);
void idctAvx2(const int16_t* src, const uint16_t* inv, int16_t* dst);
// Full member with level shift to bytes. The aligned twin needs src and inv
// 16-byte aligned.
void idctLSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idctLSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idctLSAvx2Aligned(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
// Corner members: only elements 0 (1x1), 0/1/8/9 (2x2), the top-left 4x4.
void idct1x1LS(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idct2x2LSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idct2x2LSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idct4x4LSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idct4x4LSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
// Reduced outputs: 2x2 and 4x4 bytes.
void idctTo2x2LSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idctTo2x2LSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idctTo4x4LSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
void idctTo4x4LSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep);
// 12-bit samples in single precision: truncation, clamp to 0..4095.
void idctFloatScalar(const int16_t* src, const float* tbl, uint16_t* dst, int dstStep);
void idctFloatAvx2(const int16_t* src, const float* tbl, uint16_t* dst, int dstStep);

}  // namespace zeb::jpeg
