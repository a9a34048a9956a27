// Quantisation tables and the stand-alone quantisers.
#include <immintrin.h>

#include <cstdint>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/memory.h"
#include "frame/simd.h"
#include "jpeg/transform/transform.h"

namespace zeb::jpeg {

namespace {

inline int16_t quantFwdOne(int16_t x, uint16_t r) {
    const int16_t t = wrap16(int32_t{x} * 8);
    const int16_t h = static_cast<int16_t>(r >> 1);
    return static_cast<int16_t>((hi16(t, h) + 1) >> 1);
}

// Widen the zigzag-ordered bytes into natural order.
void naturalFromRaw(const uint8_t* raw, uint16_t* table) {
    uint16_t tmp[64];
    for (int k = 0; k < 64; ++k) tmp[k] = raw[k];
    for (int k = 0; k < 64; ++k) table[kZigzag[k]] = tmp[k];
}

}  // namespace

void quantFwdScalar(int16_t* blk, const uint16_t* fwd) {
    for (int i = 0; i < 64; ++i) blk[i] = quantFwdOne(blk[i], fwd[i]);
}

// Sixteen elements per step: shift in 16 bits, halve the reciprocal so that
// it fits a signed word, take the high half, round.
void quantFwdAvx2(int16_t* blk, const uint16_t* fwd) {
    const __m256i one = _mm256_set1_epi16(1);
    for (int i = 0; i < 64; i += 16) {
        __m256i t = _mm256_slli_epi16(simd::loadu256(blk + i), 3);
        __m256i h = _mm256_srli_epi16(simd::loadu256(fwd + i), 1);
        __m256i m = _mm256_mulhi_epi16(t, h);
        simd::storeu256(blk + i, _mm256_srai_epi16(_mm256_add_epi16(m, one), 1));
    }
}

void quantInvScalar(int16_t* blk, const uint16_t* inv) {
    for (int i = 0; i < 64; ++i) blk[i] = wrap16(int32_t{blk[i]} * int32_t{inv[i]});
}

// Single elements up to the block's 16-byte boundary, then 16 at a time, then
// the rest singly; the low half of the product does not depend on the sign
// reading of either operand.
void quantInvAvx2(int16_t* blk, const uint16_t* inv) {
    int i = 0;
    if ((reinterpret_cast<uintptr_t>(blk) & 1) == 0) {
        const int pro = simd::toBoundary(blk, 16, 2);
        for (; i < pro; ++i) blk[i] = wrap16(int32_t{blk[i]} * int32_t{inv[i]});
    }
    for (; i + 16 <= 64; i += 16)
        simd::storeu256(blk + i, _mm256_mullo_epi16(simd::loadu256(blk + i), simd::loadu256(inv + i)));
    for (; i < 64; ++i) blk[i] = wrap16(int32_t{blk[i]} * int32_t{inv[i]});
}

}  // namespace zeb::jpeg

using namespace zeb::jpeg;

ZebStatus zebimpl::zebiQuantFwdRawTableInit_JPEG_8u(Zeb8u* rawTable, int quality) {
    if (!rawTable) return zebStatusNullPointer;
    if (quality < 1) return zebStatusBadArgument;
    // From 100 upward the scale is zero or negative and every entry clamps to
    // 1; 64-bit products keep that true for any quality.
    const int64_t scale = quality < 50 ? 5000 / quality : 200 - 2 * int64_t{quality};
    for (int i = 0; i < 64; ++i) {
        int64_t v = (int64_t{rawTable[i]} * scale + 50) / 100;
        rawTable[i] = static_cast<Zeb8u>(v < 1 ? 1 : (v > 255 ? 255 : v));
    }
    return zebStatusOk;
}

ZebStatus zebimpl::zebiQuantFwdTableInit_JPEG_8u16u(const Zeb8u* rawTable, Zeb16u* fwdTable) {
    if (!rawTable || !fwdTable) return zebStatusNullPointer;
    naturalFromRaw(rawTable, fwdTable);
    return ownzebsDivCRev_16u_I(32768, fwdTable, 64);
}

ZebStatus zebimpl::zebiQuantInvTableInit_JPEG_8u16u(const Zeb8u* rawTable, Zeb16u* invTable) {
    if (!rawTable || !invTable) return zebStatusNullPointer;
    naturalFromRaw(rawTable, invTable);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiQuantFwd8x8_JPEG_16s_C1I(Zeb16s* srcDst, const Zeb16u* fwdTable) {
    if (!srcDst || !fwdTable) return zebStatusNullPointer;
    quantFwdAvx2(srcDst, fwdTable);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiQuantInv8x8_JPEG_16s_C1I(Zeb16s* srcDst, const Zeb16u* invTable) {
    if (!srcDst || !invTable) return zebStatusNullPointer;
    quantInvAvx2(srcDst, invTable);
    return zebStatusOk;
}
