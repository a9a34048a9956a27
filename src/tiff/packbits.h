// Internal entry points of the TIFF row operations (arguments already tested).
#pragma once

#include <cstdint>

#include "zebjp.h"

namespace zeb::tiff {
ZebStatus packBitsRow(const uint8_t* src, int srcLen, uint8_t* dst, int* dstPos, int dstLen);
ZebStatus unpackBitsRow(const uint8_t* src, int* srcPos, int srcLen, uint8_t* dst, int dstLen);
void splitRow(const uint16_t* src, uint8_t* hi, uint8_t* lo, int len);
void joinRow(const uint8_t* hi, const uint8_t* lo, uint16_t* dst, int len);
}  // namespace zeb::tiff
