// Internal interface of the code-block decoders: the state mark, the state
// geometry, and the block-wide kernels that the one-call decoder runs after
// its segments (declared here so that tests can run them side by side).
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg2000/coding/t1_common.h"
#include "zebjp.h"

namespace zeb::j2k {

inline constexpr uint32_t kDecodeMark = 0x434D4150u;

// The fixed fields of the state, then up to 32 bytes of slack before the
// 32-byte aligned flag rows.
inline constexpr int kDecodeStateExtra = 388;
static_assert(sizeof(ZebJ2kDecodeState) + 31 <= kDecodeStateExtra, "decoder state fields outgrew their room");

// Bytes of a state for blocks up to width x height (at least 1 x 1); 64-bit
// so that huge sizes are seen as such.
inline int64_t decodeStateBytes(int width, int height) {
    return int64_t{flagRowCount(height)} * ((4 * int64_t{width} + 8 + 31) & ~int64_t{31}) + kDecodeStateExtra;
}

// The flag rows of a state: the first 32-byte boundary behind the fixed fields.
inline uint32_t* decodeFlagRows(ZebJ2kDecodeState* st) {
    const uintptr_t end = reinterpret_cast<uintptr_t>(st) + sizeof(ZebJ2kDecodeState);
    return reinterpret_cast<uint32_t*>((end + 31) & ~uintptr_t{31});
}

// Every sample of the block ANDed with `mask`: the vector form (eight samples
// per 256-bit lane pair step, any alignment) and its scalar twin.
void maskBlock(uint8_t* dst, int dstStep, int width, int height, uint32_t mask);
void maskBlockScalar(uint8_t* dst, int dstStep, int width, int height, uint32_t mask);

// The cut after damage: each sample keeps its bits at and above plane q and
// gets bit q set, or becomes 0 when no magnitude bit at or above q is left.
// q below 0 leaves the block alone.
void truncateBlock(uint8_t* dst, int dstStep, int width, int height, int q);

}  // namespace zeb::j2k
