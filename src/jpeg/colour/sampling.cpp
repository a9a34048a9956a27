// Up- and down-sampling of one 8-bit plane by two: region forms that read the
// border the caller provides, and row forms with their own end rules.
#include <cstring>

#include "frame/impl.h"
#include "frame/parallel.h"
#include "frame/simd.h"
#include "jpeg/colour/colour.h"

namespace zeb::colour {

namespace {

// 16-bit sums of adjacent byte pairs of 32 bytes: lanes 0-7 from bytes 0-15,
// lanes 8-15 from bytes 16-31.
inline __m256i pairSums(const uint8_t* p) { return _mm256_maddubs_epi16(simd::loadu256(p), _mm256_set1_epi8(1)); }
inline void store16Bytes(uint8_t* p, __m256i x) { simd::storeu128(p, v::toBytes(x)); }

// Horizontal halving with a bias per output parity: even outputs get b0,
// odd ones b1; `shift` is 1 for one row, 2 for two rows.
inline __m256i biasVec(int b0, int b1) { return _mm256_set1_epi32((b1 << 16) | b0); }

// Triangle filter on 16 source samples at s (reads s[-1] .. s[16]): 32 outputs.
inline void up16(const uint8_t* s, uint8_t* d) {
    __m256i l = v::load16(s - 1), c = v::load16(s), r = v::load16(s + 1);
    __m256i c3 = _mm256_add_epi16(c, _mm256_add_epi16(c, c));
    __m256i even = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(c3, l), v::k16(1)), 2);
    __m256i odd = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(c3, r), v::k16(2)), 2);
    simd::storeu256(d, _mm256_packus_epi16(_mm256_unpacklo_epi16(even, odd), _mm256_unpackhi_epi16(even, odd)));
}
inline __m256i vsum(const uint8_t* nr, const uint8_t* fr) {
    __m256i n = v::load16(nr);
    return _mm256_add_epi16(_mm256_add_epi16(n, _mm256_add_epi16(n, n)), v::load16(fr));
}
inline void up16v(const uint8_t* nr, const uint8_t* fr, uint8_t* d) {
    __m256i l = vsum(nr - 1, fr - 1), c = vsum(nr, fr), r = vsum(nr + 1, fr + 1);
    __m256i c3 = _mm256_add_epi16(c, _mm256_add_epi16(c, c));
    __m256i even = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(c3, l), v::k16(8)), 4);
    __m256i odd = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(c3, r), v::k16(7)), 4);
    simd::storeu256(d, _mm256_packus_epi16(_mm256_unpacklo_epi16(even, odd), _mm256_unpackhi_epi16(even, odd)));
}

inline int vAt(const uint8_t* nr, const uint8_t* fr, int i) { return 3 * nr[i] + fr[i]; }

}  // namespace

// ---------------------------------------------------------------- row kernels and scalar twins

void rowDownH2V1Scalar(const uint8_t* s, uint8_t* d, int n) {
    for (int i = 0; i < n; ++i) d[i] = static_cast<uint8_t>((s[2 * i] + s[2 * i + 1] + 1) >> 1);
}
void rowDownH2V1Vec(const uint8_t* s, uint8_t* d, int n) {
    int i = 0;
    for (; i + 16 <= n; i += 16) store16Bytes(d + i, _mm256_srli_epi16(_mm256_add_epi16(pairSums(s + 2 * i), v::k16(1)), 1));
    rowDownH2V1Scalar(s + 2 * i, d + i, n - i);
}

void rowDownH2V2Scalar(const uint8_t* s0, const uint8_t* s1, uint8_t* d, int n) {
    for (int i = 0; i < n; ++i)
        d[i] = static_cast<uint8_t>((s0[2 * i] + s0[2 * i + 1] + s1[2 * i] + s1[2 * i + 1] + 3) >> 2);
}
void rowDownH2V2Vec(const uint8_t* s0, const uint8_t* s1, uint8_t* d, int n) {
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        __m256i s = _mm256_add_epi16(pairSums(s0 + 2 * i), pairSums(s1 + 2 * i));
        store16Bytes(d + i, _mm256_srli_epi16(_mm256_add_epi16(s, v::k16(3)), 2));
    }
    rowDownH2V2Scalar(s0 + 2 * i, s1 + 2 * i, d + i, n - i);
}

void rowUpH2V1Scalar(const uint8_t* s, uint8_t* d, int n) {
    for (int x = 0; x < n; ++x) {
        const int i = x >> 1;
        d[x] = static_cast<uint8_t>((x & 1) ? (3 * s[i] + s[i + 1] + 2) >> 2 : (3 * s[i] + s[i - 1] + 1) >> 2);
    }
}
void rowUpH2V1Vec(const uint8_t* s, uint8_t* d, int n) {
    int i = 0;
    for (; 2 * (i + 16) <= n; i += 16) up16(s + i, d + 2 * i);
    rowUpH2V1Scalar(s + i, d + 2 * i, n - 2 * i);
}

void rowUpH2V2Scalar(const uint8_t* nr, const uint8_t* fr, uint8_t* d, int n) {
    for (int x = 0; x < n; ++x) {
        const int i = x >> 1, c = 3 * vAt(nr, fr, i);
        d[x] = static_cast<uint8_t>((x & 1) ? (c + vAt(nr, fr, i + 1) + 7) >> 4 : (c + vAt(nr, fr, i - 1) + 8) >> 4);
    }
}
void rowUpH2V2Vec(const uint8_t* nr, const uint8_t* fr, uint8_t* d, int n) {
    int i = 0;
    for (; 2 * (i + 16) <= n; i += 16) up16v(nr + i, fr + i, d + 2 * i);
    rowUpH2V2Scalar(nr + i, fr + i, d + 2 * i, n - 2 * i);
}

void rowBoxH2V1Scalar(const uint8_t* s, uint8_t* d, int outputs, int phase) {
    for (int i = 0; i < outputs; ++i) d[i] = static_cast<uint8_t>((s[2 * i] + s[2 * i + 1] + ((i + phase) & 1)) >> 1);
}
void rowBoxH2V1Vec(const uint8_t* s, uint8_t* d, int outputs, int phase) {
    // Blocks start at even outputs, so one constant of the right phase serves all.
    const __m256i bias = phase & 1 ? biasVec(1, 0) : biasVec(0, 1);
    int i = 0;
    for (; i + 16 <= outputs; i += 16) store16Bytes(d + i, _mm256_srli_epi16(_mm256_add_epi16(pairSums(s + 2 * i), bias), 1));
    rowBoxH2V1Scalar(s + 2 * i, d + i, outputs - i, phase);
}

void rowBoxH2V2Scalar(const uint8_t* s0, const uint8_t* s1, uint8_t* d, int outputs) {
    for (int i = 0; i < outputs; ++i)
        d[i] = static_cast<uint8_t>((s0[2 * i] + s0[2 * i + 1] + s1[2 * i] + s1[2 * i + 1] + 1 + (i & 1)) >> 2);
}
void rowBoxH2V2Vec(const uint8_t* s0, const uint8_t* s1, uint8_t* d, int outputs) {
    const __m256i bias = biasVec(1, 2);
    int i = 0;
    for (; i + 16 <= outputs; i += 16) {
        __m256i s = _mm256_add_epi16(pairSums(s0 + 2 * i), pairSums(s1 + 2 * i));
        store16Bytes(d + i, _mm256_srli_epi16(_mm256_add_epi16(s, bias), 2));
    }
    rowBoxH2V2Scalar(s0 + 2 * i, s1 + 2 * i, d + i, outputs - i);
}

}  // namespace zeb::colour

// ---------------------------------------------------------------- exported entries

namespace {

using namespace zeb::colour;
using zeb::rowPtr;

// Per-operand checks of the region forms.
inline ZebStatus checkRegion(const Zeb8u* src, int srcStep, ZebSize srcRoi, const Zeb8u* dst, int dstStep, ZebSize dstRoi) {
    if (!src) return zebStatusNullPointer;
    if (srcStep < 1) return zebStatusBadStep;
    if (srcRoi.width < 1 || srcRoi.height < 1) return zebStatusBadSize;
    if (!dst) return zebStatusNullPointer;
    if (dstStep < 1) return zebStatusBadStep;
    if (dstRoi.width < 1 || dstRoi.height < 1) return zebStatusBadSize;
    return zebStatusOk;
}

}  // namespace

ZebStatus zebimpl::zebiSampleDownH2V1_JPEG_8u_C1R(const Zeb8u* src, int srcStep, ZebSize srcRoiSize, Zeb8u* dst,
                                                  int dstStep, ZebSize dstRoiSize) {
    if (ZebStatus st = checkRegion(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize)) return st;
    const int w = dstRoiSize.width;
    zeb::parallel_rows(w, dstRoiSize.height, [=](int32_t y) {
        rowDownH2V1Vec(rowPtr(src, srcStep, y), rowPtr(dst, dstStep, y), w);
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiSampleDownH2V2_JPEG_8u_C1R(const Zeb8u* src, int srcStep, ZebSize srcRoiSize, Zeb8u* dst,
                                                  int dstStep, ZebSize dstRoiSize) {
    if (ZebStatus st = checkRegion(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize)) return st;
    const int w = dstRoiSize.width;
    zeb::parallel_rows(w, dstRoiSize.height, [=](int32_t y) {
        rowDownH2V2Vec(rowPtr(src, srcStep, 2 * y), rowPtr(src, srcStep, 2 * y + 1), rowPtr(dst, dstStep, y), w);
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiSampleUpH2V1_JPEG_8u_C1R(const Zeb8u* src, int srcStep, ZebSize srcRoiSize, Zeb8u* dst,
                                                int dstStep, ZebSize dstRoiSize) {
    if (ZebStatus st = checkRegion(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize)) return st;
    for (int y = 0; y < dstRoiSize.height; ++y)
        rowUpH2V1Vec(rowPtr(src, srcStep, y), rowPtr(dst, dstStep, y), dstRoiSize.width);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiSampleUpH2V2_JPEG_8u_C1R(const Zeb8u* src, int srcStep, ZebSize srcRoiSize, Zeb8u* dst,
                                                int dstStep, ZebSize dstRoiSize) {
    if (ZebStatus st = checkRegion(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize)) return st;
    const int w = dstRoiSize.width;
    zeb::parallel_rows(w, dstRoiSize.height, [=](int32_t y) {
        const int near = y >> 1, far = (y & 1) ? near + 1 : near - 1;
        rowUpH2V2Vec(rowPtr(src, srcStep, near), rowPtr(src, srcStep, far), rowPtr(dst, dstStep, y), w);
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiSampleDownRowH2V1_Box_JPEG_8u_C1(const Zeb8u* src, int srcWidth, Zeb8u* dst) {
    if (!src || !dst) return zebStatusNullPointer;
    if (srcWidth < 1) return zebStatusBadSize;
    // The bias alternates 0, 1 from the first output, except for source
    // widths 4, 8 and 12, where it starts with 1.
    const int phase = (srcWidth == 4 || srcWidth == 8 || srcWidth == 12) ? 1 : 0;
    rowBoxH2V1Vec(src, dst, srcWidth / 2, phase);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiSampleDownRowH2V2_Box_JPEG_8u_C1(const Zeb8u* src1, const Zeb8u* src2, int srcWidth, Zeb8u* dst) {
    if (!src1 || !src2 || !dst) return zebStatusNullPointer;
    if (srcWidth < 1) return zebStatusBadSize;
    if (srcWidth >= 32) {
        rowBoxH2V2Vec(src1, src2, dst, srcWidth / 2);
        return zebStatusOk;
    }
    // Narrow rows run element by element. An odd width gives one output more;
    // the missing right-hand sample of each row is taken as the row's last.
    const int n = srcWidth / 2;
    rowBoxH2V2Scalar(src1, src2, dst, n);
    if (srcWidth & 1) {
        const int last = srcWidth - 1;
        dst[n] = static_cast<uint8_t>((2 * src1[last] + 2 * src2[last] + 1 + (n & 1)) >> 2);
    }
    return zebStatusOk;
}

ZebStatus zebimpl::zebiSampleUpRowH2V1_Triangle_JPEG_8u_C1(const Zeb8u* src, int srcWidth, Zeb8u* dst) {
    if (!src || !dst) return zebStatusNullPointer;
    if (srcWidth < 1) return zebStatusBadSize;
    const int n = srcWidth;
    dst[0] = src[0];
    if (n == 1) {  // one sample is both ends
        dst[1] = src[0];
        return zebStatusOk;
    }
    dst[1] = static_cast<uint8_t>((3 * src[0] + src[1] + 2) >> 2);
    // Positions 2 .. 2n-2 are inner ones whose neighbours all lie in the row.
    rowUpH2V1Vec(src + 1, dst + 2, 2 * n - 3);
    dst[2 * n - 1] = src[n - 1];
    return zebStatusOk;
}

ZebStatus zebimpl::zebiSampleUpRowH2V2_Triangle_JPEG_8u_C1(const Zeb8u* src1, const Zeb8u* src2, int srcWidth,
                                                           Zeb8u* dst) {
    if (!src1 || !src2 || !dst) return zebStatusNullPointer;
    if (srcWidth < 1) return zebStatusBadSize;
    const int n = srcWidth;
    dst[0] = static_cast<uint8_t>((4 * vAt(src1, src2, 0) + 8) >> 4);
    if (n > 1) {
        dst[1] = static_cast<uint8_t>((3 * vAt(src1, src2, 0) + vAt(src1, src2, 1) + 7) >> 4);
        rowUpH2V2Vec(src1 + 1, src2 + 1, dst + 2, 2 * n - 3);
    }
    dst[2 * n - 1] = static_cast<uint8_t>((4 * vAt(src1, src2, n - 1) + 7) >> 4);
    return zebStatusOk;
}
