// Row kernels and threaded masters of the level shift pair.
#pragma once

#include <cstdint>

#include "zebjp.h"

namespace zeb {
void add128Row(const int16_t* src, uint8_t* dst, int width);
void sub128Row(const uint8_t* src, int16_t* dst, int width);
}  // namespace zeb

ZebStatus ownzj_Add128_JPEG_16s8u_C1R(const Zeb16s* src, int srcStep, Zeb8u* dst, int dstStep, ZebSize roi);
ZebStatus ownzj_Sub128_JPEG_8u16s_C1R(const Zeb8u* src, int srcStep, Zeb16s* dst, int dstStep, ZebSize roi);
