// Internal memory primitives shared by the families: fills, copies,
// allocation through the core, and the reverse division behind the
// quantisation tables. None is exported.
//
// The tested primitives return ZebStatus and check, in order: pointers (-8),
// then a length below 1 (-6). The untested ones assume valid arguments.
// Lengths are signed 32-bit, in bytes unless named elements.
#pragma once

#include "zebjp.h"

namespace zeb {
// Fills above this many bytes may bypass the cache (when also above the
// largest cache of the machine).
inline constexpr int kStreamThreshold = 2097152;
}  // namespace zeb

// Tested zero fills: bytes, 16-bit elements, 32-bit float elements.
ZebStatus ownsZero_8u(Zeb8u* dst, int len);
ZebStatus ownsZero_16s(Zeb16s* dst, int len);
ZebStatus ownsZero_32f(Zeb32f* dst, int len);
// Untested zero fills: the cache-aware one and the ordinary-store one.
Zeb8u* ownsZeroStream_8u(Zeb8u* dst, int len);
Zeb8u* ownsZeroStore_8u(Zeb8u* dst, int len);

// Tested and untested 8-bit value fills.
ZebStatus ownsSet_8u(Zeb8u value, Zeb8u* dst, int len);
void ownsSetStream_8u(Zeb8u value, Zeb8u* dst, int len);
void ownsSetStore_8u(Zeb8u value, Zeb8u* dst, int len);
// Untested 32-bit value fills; len in elements.
void ownsSetStream_32s(Zeb32s value, Zeb32s* dst, int len);
void ownsSetStore_32s(Zeb32s value, Zeb32s* dst, int len);

// Copies (no overlap). ownsCopy_8u is tested; ownsCopyFast_8u is not.
ZebStatus ownsCopy_8u(const Zeb8u* src, Zeb8u* dst, int len);
Zeb8u* ownsCopyFast_8u(const Zeb8u* src, Zeb8u* dst, int len);
void ownsCopyVector_8u(const Zeb8u* src, Zeb8u* dst, int len);
void ownsCopyString_8u(const Zeb8u* src, Zeb8u* dst, int len);

// Allocation through the core: null for len below 1.
void* ownsMalloc(int len);
void ownsFree(void* ptr);

// Reverse division: dst[i] = value / src[i] rounded to nearest, in single
// precision. Status 6 when a divisor was 0 (that entry holds 65535).
ZebStatus ownzebsDivCRev_16u_I(Zeb16u value, Zeb16u* srcDst, int len);
ZebStatus ownzebsDivCRev_16u(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len);
int ownzebsDivCRev_16u_omp(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len);
int ownsDivCRevBlock_16u(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len);

// Internal pieces of the primitives above, declared for the kernels that use
// them and for the tests that check them.
#include <cstddef>

namespace zeb {
// True when a fill of `bytes` bytes bypasses the cache: above kStreamThreshold,
// the core reports status 0 and a positive cache size, and `bytes` is above it.
bool fillStreams(size_t bytes);

// One element of the reverse division in its single form: value / x in one
// single-precision division, rounded to nearest with ties to even; 65535 for x 0.
Zeb16u divRevOne(Zeb16u value, Zeb16u x);
// Eight elements in the reciprocal form; dst must be 16-byte aligned. Returns 1
// when one of the eight divisors was 0 (that entry holds 65535), else 0.
int divRevEight(const Zeb16u* src, Zeb16u value, Zeb16u* dst);

// The share of thread `thread` out of `threads` in the parallel reverse
// division: `len / threads` elements each, the last thread also the remainder.
struct DivRevShare {
    int start;
    int count;
};
DivRevShare divRevShare(int len, int threads, int thread);
}  // namespace zeb
