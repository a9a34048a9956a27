// Level shift pair: 8-bit samples to signed 16-bit values around zero and back.
#include <immintrin.h>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/level_shift.h"
#include "frame/parallel.h"
#include "frame/simd.h"

namespace zeb {

namespace {

inline uint8_t add128(int16_t v) { return satu8(int32_t{v} + 128); }
inline int16_t sub128(uint8_t v) { return static_cast<int16_t>(int32_t{v} - 128); }

}  // namespace

// Row phases: an odd 16-bit pointer runs the whole row element by element;
// otherwise single elements up to the 16-byte boundary of the 16-bit side
// (only when the row is longer than that), blocks of 32, then at most one
// block each of 16, 8 and 4, then single elements.
void add128Row(const int16_t* src, uint8_t* dst, int width) {
    int x = 0;
    if (reinterpret_cast<uintptr_t>(src) & 1) {
        for (; x < width; ++x) dst[x] = add128(loadAs<int16_t>(src + x));
        return;
    }
    const int pro = simd::toBoundary(src, 16, 2);
    if (pro != 0 && width > pro)
        for (; x < pro; ++x) dst[x] = add128(src[x]);

    const __m256i k256 = _mm256_set1_epi16(128);
    const __m128i k128 = _mm_set1_epi16(128);
    if (simd::aligned(src + x, 32)) {
        for (; x + 32 <= width; x += 32) {
            __m256i a = _mm256_adds_epi16(simd::loadu256(src + x), k256);
            __m256i b = _mm256_adds_epi16(simd::loadu256(src + x + 16), k256);
            simd::storeu256(dst + x, _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
        }
    } else {
        // 16-byte aligned only: 16-byte loads never straddle a cache line.
        for (; x + 32 <= width; x += 32) {
            const __m128i* s = reinterpret_cast<const __m128i*>(src + x);
            __m128i a = _mm_adds_epi16(_mm_load_si128(s), k128);
            __m128i b = _mm_adds_epi16(_mm_load_si128(s + 1), k128);
            __m128i c = _mm_adds_epi16(_mm_load_si128(s + 2), k128);
            __m128i d = _mm_adds_epi16(_mm_load_si128(s + 3), k128);
            simd::storeu128(dst + x, _mm_packus_epi16(a, b));
            simd::storeu128(dst + x + 16, _mm_packus_epi16(c, d));
        }
    }
    if (x + 16 <= width) {
        __m128i a = _mm_adds_epi16(simd::loadu128(src + x), k128);
        __m128i b = _mm_adds_epi16(simd::loadu128(src + x + 8), k128);
        simd::storeu128(dst + x, _mm_packus_epi16(a, b));
        x += 16;
    }
    if (x + 8 <= width) {
        __m128i a = _mm_adds_epi16(simd::loadu128(src + x), k128);
        simd::store64(dst + x, _mm_packus_epi16(a, a));
        x += 8;
    }
    if (x + 4 <= width) {
        __m128i a = _mm_adds_epi16(simd::load64(src + x), k128);
        simd::store32(dst + x, _mm_packus_epi16(a, a));
        x += 4;
    }
    for (; x < width; ++x) dst[x] = add128(src[x]);
}

void sub128Row(const uint8_t* src, int16_t* dst, int width) {
    int x = 0;
    if (reinterpret_cast<uintptr_t>(dst) & 1) {
        for (; x < width; ++x) storeAs<int16_t>(dst + x, sub128(src[x]));
        return;
    }
    const int pro = simd::toBoundary(dst, 16, 2);
    if (pro != 0 && width > pro)
        for (; x < pro; ++x) dst[x] = sub128(src[x]);

    const __m256i k256 = _mm256_set1_epi16(128);
    const __m128i k128 = _mm_set1_epi16(128);
    if (simd::aligned(dst + x, 32)) {
        for (; x + 32 <= width; x += 32) {
            __m128i lo = simd::loadu128(src + x), hi = simd::loadu128(src + x + 16);
            _mm256_store_si256(reinterpret_cast<__m256i*>(dst + x), _mm256_sub_epi16(_mm256_cvtepu8_epi16(lo), k256));
            _mm256_store_si256(reinterpret_cast<__m256i*>(dst + x + 16),
                               _mm256_sub_epi16(_mm256_cvtepu8_epi16(hi), k256));
        }
    } else {
        // 16-byte aligned only: 16-byte stores never straddle a cache line.
        for (; x + 32 <= width; x += 32) {
            __m128i* d = reinterpret_cast<__m128i*>(dst + x);
            __m256i lo = _mm256_sub_epi16(_mm256_cvtepu8_epi16(simd::loadu128(src + x)), k256);
            __m256i hi = _mm256_sub_epi16(_mm256_cvtepu8_epi16(simd::loadu128(src + x + 16)), k256);
            _mm_store_si128(d, _mm256_castsi256_si128(lo));
            _mm_store_si128(d + 1, _mm256_extracti128_si256(lo, 1));
            _mm_store_si128(d + 2, _mm256_castsi256_si128(hi));
            _mm_store_si128(d + 3, _mm256_extracti128_si256(hi, 1));
        }
    }
    if (x + 16 <= width) {
        __m128i v = simd::loadu128(src + x);
        simd::storeu128(dst + x, _mm_sub_epi16(_mm_cvtepu8_epi16(v), k128));
        simd::storeu128(dst + x + 8, _mm_sub_epi16(_mm_cvtepu8_epi16(_mm_srli_si128(v, 8)), k128));
        x += 16;
    }
    if (x + 8 <= width) {
        simd::storeu128(dst + x, _mm_sub_epi16(_mm_cvtepu8_epi16(simd::load64(src + x)), k128));
        x += 8;
    }
    if (x + 4 <= width) {
        simd::store64(dst + x, _mm_sub_epi16(_mm_cvtepu8_epi16(simd::load32(src + x)), k128));
        x += 4;
    }
    for (; x < width; ++x) dst[x] = sub128(src[x]);
}

}  // namespace zeb

// Threaded masters behind the exported entries; the arguments are tested.
// Rows that follow each other without a gap on both sides form one long row;
// every phase of the row kernel gives the same element results, so a small
// region can run as one row and skip the per-row start-up.
static bool contiguous(int srcStep, int srcElem, int dstStep, int dstElem, ZebSize roi) {
    return roi.height > 1 && int64_t(roi.width) * roi.height <= zeb::kParallelThreshold &&
           int64_t(srcStep) == int64_t(roi.width) * srcElem && int64_t(dstStep) == int64_t(roi.width) * dstElem;
}

ZebStatus ownzj_Add128_JPEG_16s8u_C1R(const Zeb16s* src, int srcStep, Zeb8u* dst, int dstStep, ZebSize roi) {
    if (contiguous(srcStep, 2, dstStep, 1, roi)) {
        ownGetNumThreads();  // asked on every call, as by every threaded operation
        zeb::add128Row(src, dst, roi.width * roi.height);
        return zebStatusOk;
    }
    zeb::parallel_rows(roi.width, roi.height, [=](int32_t y) {
        zeb::add128Row(zeb::rowPtr(src, srcStep, y), zeb::rowPtr(dst, dstStep, y), roi.width);
    });
    return zebStatusOk;
}

ZebStatus ownzj_Sub128_JPEG_8u16s_C1R(const Zeb8u* src, int srcStep, Zeb16s* dst, int dstStep, ZebSize roi) {
    if (contiguous(srcStep, 1, dstStep, 2, roi)) {
        ownGetNumThreads();
        zeb::sub128Row(src, dst, roi.width * roi.height);
        return zebStatusOk;
    }
    zeb::parallel_rows(roi.width, roi.height, [=](int32_t y) {
        zeb::sub128Row(zeb::rowPtr(src, srcStep, y), zeb::rowPtr(dst, dstStep, y), roi.width);
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiAdd128_JPEG_16s8u_C1R(const Zeb16s* src, int srcStep, Zeb8u* dst, int dstStep,
                                             ZebSize roiSize) {
    if (!src) return zebStatusNullPointer;
    if (srcStep < 1) return zebStatusBadStep;
    if (!dst) return zebStatusNullPointer;
    if (dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    return ownzj_Add128_JPEG_16s8u_C1R(src, srcStep, dst, dstStep, roiSize);
}

ZebStatus zebimpl::zebiSub128_JPEG_8u16s_C1R(const Zeb8u* src, int srcStep, Zeb16s* dst, int dstStep,
                                             ZebSize roiSize) {
    if (!src) return zebStatusNullPointer;
    if (srcStep < 1) return zebStatusBadStep;
    if (!dst) return zebStatusNullPointer;
    if (dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    return ownzj_Sub128_JPEG_8u16s_C1R(src, srcStep, dst, dstStep, roiSize);
}
