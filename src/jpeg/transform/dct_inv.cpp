// Inverse 8x8 DCT with dequantisation: the full member (row pass on two rows
// per 256-bit register, column pass on whole rows of eight words), the corner
// members that skip empty rows, the reduced-output members with their own row
// constants, and the single-precision member for 12-bit samples.
#include <immintrin.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/simd.h"
#include "jpeg/transform/consts.h"
#include "jpeg/transform/transform.h"

namespace zeb::jpeg {

namespace {

// Rounders of the row pass by block row; they stand in for the rounding of
// the final shift, so the column pass has none.
constexpr int32_t kRounder[8] = {65536, 2901, 2260, 1704, 1024, 455, 512, 373};

// Row constants of the reduced 2x2 output: k, a, b, c, d, rounder.
struct To2Row { int16_t k, a, b, c, d; int32_t r; };
constexpr To2Row kTo2[8] = {
    {16384, 14846, 5213, 3483, 2953, 67072},
    {22725, 20592, 7231, 4832, 4096, 5802},
    {},
    {19266, 17457, 6130, 4096, 3472, 3408},
    {},
    {19266, 17457, 6130, 4096, 3472, 910},
    {},
    {22725, 20592, 7231, 4832, 4096, 746},
};

// Row constants of the reduced 4x4 output: k, a..j, rounder (row 4 unused).
struct To4Row { int16_t k, a, b, c, d, e, f, g, h, i, j; int32_t r; };
constexpr To4Row kTo4[8] = {
    {16384, 15137, 20995, 7373, 8697, 17799, 6270, 4926, 4176, 11893, 1730, 66560},
    {22725, 20995, 29121, 10226, 12063, 24688, 8697, 6833, 5793, 16496, 2399, 5802},
    {21407, 19777, 27432, 9633, 11363, 23256, 8192, 6436, 5457, 15539, 2260, 4520},
    {19266, 17799, 24688, 8669, 10226, 20929, 7373, 5793, 4911, 13985, 2034, 3408},
    {},
    {19266, 17799, 24688, 8669, 10226, 20929, 7373, 5793, 4911, 13985, 2034, 910},
    {21407, 19777, 27432, 9633, 11363, 23256, 8192, 6436, 5457, 15539, 2260, 1024},
    {22725, 20995, 29121, 10226, 12063, 24688, 8697, 6833, 5793, 16496, 2399, 746},
};

inline int16_t deq(int16_t x, uint16_t q) { return wrap16(int32_t{x} * int32_t{q}); }
inline uint8_t toByte(int16_t v) { return satu8(adds16(v, 128)); }
inline uint8_t* rowAt(uint8_t* p, int step, int y) { return p + static_cast<ptrdiff_t>(y) * step; }

// ---------------------------------------------------------------- scalar forms

// Row pass of block row i on dequantised values, in place.
void idctRow(int16_t w[8], int i) {
    const RowK& k = kRowK[i];
    const int32_t r = kRounder[i];
    auto m = [](int32_t c, int16_t v) { return mul32(c, v); };
    int32_t E[4], O[4];
    E[0] = add32(add32(add32(m(k.k0, w[0]), m(k.k2, w[2])), add32(m(k.k0, w[4]), m(k.k6, w[6]))), r);
    E[1] = add32(add32(add32(m(k.k0, w[0]), m(k.k6, w[2])), add32(m(-k.k0, w[4]), m(-k.k2, w[6]))), r);
    E[2] = add32(add32(add32(m(k.k0, w[0]), m(-k.k6, w[2])), add32(m(-k.k0, w[4]), m(k.k2, w[6]))), r);
    E[3] = add32(add32(add32(m(k.k0, w[0]), m(-k.k2, w[2])), add32(m(k.k0, w[4]), m(-k.k6, w[6]))), r);
    O[0] = add32(add32(m(k.k1, w[1]), m(k.k3, w[3])), add32(m(k.k5, w[5]), m(k.k7, w[7])));
    O[1] = add32(add32(m(k.k3, w[1]), m(-k.k7, w[3])), add32(m(-k.k1, w[5]), m(-k.k5, w[7])));
    O[2] = add32(add32(m(k.k5, w[1]), m(-k.k1, w[3])), add32(m(k.k7, w[5]), m(k.k3, w[7])));
    O[3] = add32(add32(m(k.k7, w[1]), m(-k.k5, w[3])), add32(m(k.k3, w[5]), m(-k.k1, w[7])));
    for (int j = 0; j < 4; ++j) {
        w[j] = sat16(add32(E[j], O[j]) >> 11);
        w[7 - j] = sat16(sub32(E[j], O[j]) >> 11);
    }
}

// Column pass on the row pass's values R[0..7], in place, shifted right by 6.
void idctColumn(int16_t R[8]) {
    const int16_t A = adds16(adds16(hi16(R[5], kTan3m1), R[5]), R[3]);
    const int16_t B = subs16(R[5], adds16(hi16(R[3], kTan3m1), R[3]));
    const int16_t C = adds16(R[1], hi16(R[7], kTan1));
    const int16_t D = subs16(hi16(R[1], kTan1), R[7]);
    const int16_t b0 = adds16(C, A), p = subs16(C, A), b3 = adds16(D, B), q = subs16(D, B);
    const int16_t x = subs16(p, q), y = adds16(p, q);
    const int16_t b2 = adds16(hi16(x, kCos4m1), x), b1 = adds16(hi16(y, kCos4m1), y);
    const int16_t E = adds16(R[2], hi16(R[6], kTan2)), F = subs16(hi16(R[2], kTan2), R[6]);
    const int16_t a = adds16(R[0], R[4]), b = subs16(R[0], R[4]);
    const int16_t e0 = adds16(a, E), e3 = subs16(a, E), e1 = adds16(b, F), e2 = subs16(b, F);
    R[0] = static_cast<int16_t>(adds16(e0, b0) >> 6);
    R[1] = static_cast<int16_t>(adds16(e1, b1) >> 6);
    R[2] = static_cast<int16_t>(adds16(e2, b2) >> 6);
    R[3] = static_cast<int16_t>(adds16(e3, b3) >> 6);
    R[4] = static_cast<int16_t>(subs16(e3, b3) >> 6);
    R[5] = static_cast<int16_t>(subs16(e2, b2) >> 6);
    R[6] = static_cast<int16_t>(subs16(e1, b1) >> 6);
    R[7] = static_cast<int16_t>(subs16(e0, b0) >> 6);
}

void columnsScalar(int16_t* b) {
    for (int c = 0; c < 8; ++c) {
        int16_t x[8];
        for (int r = 0; r < 8; ++r) x[r] = b[8 * r + c];
        idctColumn(x);
        for (int r = 0; r < 8; ++r) b[8 * r + c] = x[r];
    }
}

void storeBytes(const int16_t* b, uint8_t* dst, int dstStep) {
    for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) rowAt(dst, dstStep, r)[c] = toByte(b[8 * r + c]);
}

// ---------------------------------------------------------------- vector forms

struct RowPairConsts { alignas(32) int16_t v[4][16]; alignas(32) int32_t r[8]; };

// pmaddwd constants per pair of block rows, for a row rearranged to
// [w0 w2 w4 w6 w1 w3 w5 w7]: even [E0..E3] from (w0,w2) and (w4,w6), odd
// [O0..O3] from (w1,w3) and (w5,w7).
constexpr std::array<RowPairConsts, 4> makeRowConsts() {
    std::array<RowPairConsts, 4> t{};
    for (int p = 0; p < 4; ++p) {
        for (int h = 0; h < 2; ++h) {
            const RowK& k = kRowK[2 * p + h];
            const int16_t k0 = k.k0, k1 = k.k1, k2 = k.k2, k3 = k.k3, k5 = k.k5, k6 = k.k6, k7 = k.k7;
            const int16_t c[4][8] = {
                {k0, k2, k0, k6, k0, static_cast<int16_t>(-k6), k0, static_cast<int16_t>(-k2)},
                {k0, k6, static_cast<int16_t>(-k0), static_cast<int16_t>(-k2), static_cast<int16_t>(-k0), k2, k0,
                 static_cast<int16_t>(-k6)},
                {k1, k3, k3, static_cast<int16_t>(-k7), k5, static_cast<int16_t>(-k1), k7, static_cast<int16_t>(-k5)},
                {k5, k7, static_cast<int16_t>(-k1), static_cast<int16_t>(-k5), k7, k3, k3, static_cast<int16_t>(-k1)},
            };
            for (int n = 0; n < 4; ++n)
                for (int j = 0; j < 8; ++j) t[p].v[n][8 * h + j] = c[n][j];
            for (int j = 0; j < 4; ++j) t[p].r[4 * h + j] = kRounder[2 * p + h];
        }
    }
    return t;
}
constexpr std::array<RowPairConsts, 4> kInvRow = makeRowConsts();

inline __m256i ld(const int16_t* p) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(p)); }
inline __m256i ld(const int32_t* p) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(p)); }

// Row pass on two dequantised block rows (one per 128-bit half), pair p.
inline __m256i idctRowPairAvx2(__m256i w, int p) {
    const __m256i split = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15,
                                           0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
    const __m256i back = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 14, 15, 12, 13, 10, 11, 8, 9,
                                          0, 1, 2, 3, 4, 5, 6, 7, 14, 15, 12, 13, 10, 11, 8, 9);
    const RowPairConsts& c = kInvRow[p];
    const __m256i s = _mm256_shuffle_epi8(w, split);
    const __m256i e = _mm256_add_epi32(
        _mm256_add_epi32(_mm256_madd_epi16(_mm256_shuffle_epi32(s, 0x00), ld(c.v[0])),
                         _mm256_madd_epi16(_mm256_shuffle_epi32(s, 0x55), ld(c.v[1]))),
        ld(c.r));
    const __m256i o = _mm256_add_epi32(_mm256_madd_epi16(_mm256_shuffle_epi32(s, 0xAA), ld(c.v[2])),
                                       _mm256_madd_epi16(_mm256_shuffle_epi32(s, 0xFF), ld(c.v[3])));
    const __m256i sum = _mm256_srai_epi32(_mm256_add_epi32(e, o), 11);
    const __m256i dif = _mm256_srai_epi32(_mm256_sub_epi32(e, o), 11);
    return _mm256_shuffle_epi8(_mm256_packs_epi32(sum, dif), back);
}

inline __m128i adds(__m128i a, __m128i b) { return _mm_adds_epi16(a, b); }
inline __m128i subs(__m128i a, __m128i b) { return _mm_subs_epi16(a, b); }
inline __m128i hi(__m128i a, int16_t c) { return _mm_mulhi_epi16(a, _mm_set1_epi16(c)); }

// Column pass on eight rows of the row pass; each lane one column. Out: >> 6.
inline void idctColumnsAvx2(const __m128i R[8], __m128i out[8]) {
    const __m128i A = adds(adds(hi(R[5], kTan3m1), R[5]), R[3]);
    const __m128i B = subs(R[5], adds(hi(R[3], kTan3m1), R[3]));
    const __m128i C = adds(R[1], hi(R[7], kTan1));
    const __m128i D = subs(hi(R[1], kTan1), R[7]);
    const __m128i b0 = adds(C, A), p = subs(C, A), b3 = adds(D, B), q = subs(D, B);
    const __m128i x = subs(p, q), y = adds(p, q);
    const __m128i b2 = adds(hi(x, kCos4m1), x), b1 = adds(hi(y, kCos4m1), y);
    const __m128i E = adds(R[2], hi(R[6], kTan2)), F = subs(hi(R[2], kTan2), R[6]);
    const __m128i a = adds(R[0], R[4]), b = subs(R[0], R[4]);
    const __m128i e0 = adds(a, E), e3 = subs(a, E), e1 = adds(b, F), e2 = subs(b, F);
    out[0] = _mm_srai_epi16(adds(e0, b0), 6);
    out[1] = _mm_srai_epi16(adds(e1, b1), 6);
    out[2] = _mm_srai_epi16(adds(e2, b2), 6);
    out[3] = _mm_srai_epi16(adds(e3, b3), 6);
    out[4] = _mm_srai_epi16(subs(e3, b3), 6);
    out[5] = _mm_srai_epi16(subs(e2, b2), 6);
    out[6] = _mm_srai_epi16(subs(e1, b1), 6);
    out[7] = _mm_srai_epi16(subs(e0, b0), 6);
}

// Adds 128 with saturation and stores two rows of eight bytes.
inline void storeBytePair(__m128i r0, __m128i r1, uint8_t* d0, uint8_t* d1) {
    const __m128i k128 = _mm_set1_epi16(128);
    const __m128i b = _mm_packus_epi16(adds(r0, k128), adds(r1, k128));
    simd::store64(d0, b);
    simd::store64(d1, _mm_unpackhi_epi64(b, b));
}

template <bool Aligned>
inline __m256i load2Rows(const int16_t* p) {
    if constexpr (Aligned) {
        const __m128i* q = reinterpret_cast<const __m128i*>(p);
        return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_load_si128(q)), _mm_load_si128(q + 1), 1);
    } else {
        return simd::loadu256(p);
    }
}

// Dequantise, row pass and column pass of a whole block.
template <bool Aligned>
inline void idctBlockAvx2(const int16_t* src, const uint16_t* inv, __m128i out[8]) {
    __m128i R[8];
    #pragma GCC unroll 8
    for (int p = 0; p < 4; ++p) {
        const __m256i w = _mm256_mullo_epi16(load2Rows<Aligned>(src + 16 * p),
                                             load2Rows<Aligned>(reinterpret_cast<const int16_t*>(inv) + 16 * p));
        const __m256i y = idctRowPairAvx2(w, p);
        R[2 * p] = _mm256_castsi256_si128(y);
        R[2 * p + 1] = _mm256_extracti128_si256(y, 1);
    }
    idctColumnsAvx2(R, out);
}

template <bool Aligned>
void idctLSAvx2Impl(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    __m128i out[8];
    idctBlockAvx2<Aligned>(src, inv, out);
    #pragma GCC unroll 8
    for (int r = 0; r < 8; r += 2) storeBytePair(out[r], out[r + 1], rowAt(dst, dstStep, r), rowAt(dst, dstStep, r + 1));
}

// ---------------------------------------------------------------- float forms

inline void idctLineScalar(float y[8]) {
    const float A = std::fma(y[5], kFt3, y[3]), B = std::fma(-y[3], kFt3, y[5]);
    const float C = std::fma(y[7], kFt1, y[1]), D = std::fma(y[1], kFt1, -y[7]);
    const float b0 = C + A, p = C - A, b3 = D + B, q = D - B;
    const float a = y[0] + y[4], b = y[0] - y[4];
    const float E = std::fma(y[6], kFt2, y[2]), F = std::fma(y[2], kFt2, -y[6]);
    const float e0 = a + E, e3 = a - E, e1 = b + F, e2 = b - F;
    const float pq = p + q, pmq = p - q;
    y[0] = e0 + b0;
    y[1] = std::fma(pq, kFc, e1);
    y[2] = std::fma(pmq, kFc, e2);
    y[3] = e3 + b3;
    y[4] = e3 - b3;
    y[5] = std::fma(-pmq, kFc, e2);
    y[6] = std::fma(-pq, kFc, e1);
    y[7] = e0 - b0;
}

inline void idctLineAvx2(__m256 y[8]) {
    const __m256 c = _mm256_set1_ps(kFc), t1 = _mm256_set1_ps(kFt1);
    const __m256 t2 = _mm256_set1_ps(kFt2), t3 = _mm256_set1_ps(kFt3);
    const __m256 A = _mm256_fmadd_ps(y[5], t3, y[3]), B = _mm256_fnmadd_ps(y[3], t3, y[5]);
    const __m256 C = _mm256_fmadd_ps(y[7], t1, y[1]), D = _mm256_fmsub_ps(y[1], t1, y[7]);
    const __m256 b0 = _mm256_add_ps(C, A), p = _mm256_sub_ps(C, A);
    const __m256 b3 = _mm256_add_ps(D, B), q = _mm256_sub_ps(D, B);
    const __m256 a = _mm256_add_ps(y[0], y[4]), b = _mm256_sub_ps(y[0], y[4]);
    const __m256 E = _mm256_fmadd_ps(y[6], t2, y[2]), F = _mm256_fmsub_ps(y[2], t2, y[6]);
    const __m256 e0 = _mm256_add_ps(a, E), e3 = _mm256_sub_ps(a, E);
    const __m256 e1 = _mm256_add_ps(b, F), e2 = _mm256_sub_ps(b, F);
    const __m256 pq = _mm256_add_ps(p, q), pmq = _mm256_sub_ps(p, q);
    y[0] = _mm256_add_ps(e0, b0);
    y[1] = _mm256_fmadd_ps(pq, c, e1);
    y[2] = _mm256_fmadd_ps(pmq, c, e2);
    y[3] = _mm256_add_ps(e3, b3);
    y[4] = _mm256_sub_ps(e3, b3);
    y[5] = _mm256_fnmadd_ps(pmq, c, e2);
    y[6] = _mm256_fnmadd_ps(pq, c, e1);
    y[7] = _mm256_sub_ps(e0, b0);
}

// Truncation toward zero, saturation to 16 bits (a NaN takes the upper bound,
// as minps does), clamp to 0..4095.
inline uint16_t floatToSample12(float v) {
    v = v < 32767.0f ? v : 32767.0f;
    v = v > -32768.0f ? v : -32768.0f;
    const int t = static_cast<int>(v);
    return static_cast<uint16_t>(t < 0 ? 0 : (t > 4095 ? 4095 : t));
}

}  // namespace

// ---------------------------------------------------------------- full member

void idctScalar(const int16_t* src, const uint16_t* inv, int16_t* dst) {
    int16_t b[64];
    for (int i = 0; i < 64; ++i) b[i] = deq(src[i], inv[i]);
    for (int r = 0; r < 8; ++r) idctRow(b + 8 * r, r);
    columnsScalar(b);
    std::memcpy(dst, b, sizeof b);
}

void idctAvx2(const int16_t* src, const uint16_t* inv, int16_t* dst) {
    __m128i out[8];
    idctBlockAvx2<false>(src, inv, out);
    #pragma GCC unroll 8
    for (int r = 0; r < 8; ++r) simd::storeu128(dst + 8 * r, out[r]);
}

void idctLSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    int16_t b[64];
    idctScalar(src, inv, b);
    storeBytes(b, dst, dstStep);
}

void idctLSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    idctLSAvx2Impl<false>(src, inv, dst, dstStep);
}

void idctLSAvx2Aligned(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    idctLSAvx2Impl<true>(src, inv, dst, dstStep);
}

// ---------------------------------------------------------------- corner members

void idct1x1LS(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    const int32_t v = (int32_t{src[0]} * int32_t{inv[0]}) >> 3;
    const __m128i b = _mm_set1_epi8(static_cast<char>(satu8(wrap16(v + 128))));
    for (int r = 0; r < 8; ++r) simd::store64(rowAt(dst, dstStep, r), b);
}

// Rows 0 and 1 hold w0 and w1; of the empty rows only row 2's rounder
// survives the shift, as a 1 in every column.
void idct2x2LSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    int16_t R0[8] = {deq(src[0], inv[0]), deq(src[1], inv[1])};
    int16_t R1[8] = {deq(src[8], inv[8]), deq(src[9], inv[9])};
    idctRow(R0, 0);
    idctRow(R1, 1);
    for (int c = 0; c < 8; ++c) {
        const int16_t r0 = R0[c], r1 = R1[c];
        const int16_t D = hi16(r1, kTan1), x = subs16(r1, D), y = adds16(r1, D);
        const int16_t b1 = adds16(hi16(y, kCos4m1), y), b2 = adds16(hi16(x, kCos4m1), x);
        const int16_t up = adds16(r0, 1), dn = subs16(r0, 1);
        const int16_t col[8] = {adds16(up, r1), adds16(r0, b1), adds16(r0, b2), adds16(dn, D),
                                subs16(dn, D),  subs16(r0, b2), subs16(r0, b1), subs16(up, r1)};
        for (int r = 0; r < 8; ++r) rowAt(dst, dstStep, r)[c] = toByte(static_cast<int16_t>(col[r] >> 6));
    }
}

void idct2x2LSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    const __m256i w = _mm256_mullo_epi16(
        _mm256_inserti128_si256(_mm256_castsi128_si256(simd::load32(src)), simd::load32(src + 8), 1),
        _mm256_inserti128_si256(_mm256_castsi128_si256(simd::load32(inv)), simd::load32(inv + 8), 1));
    const __m256i y = idctRowPairAvx2(w, 0);
    const __m128i r0 = _mm256_castsi256_si128(y), r1 = _mm256_extracti128_si256(y, 1);
    const __m128i one = _mm_set1_epi16(1);
    const __m128i D = hi(r1, kTan1), x = subs(r1, D), yy = adds(r1, D);
    const __m128i b1 = adds(hi(yy, kCos4m1), yy), b2 = adds(hi(x, kCos4m1), x);
    const __m128i up = adds(r0, one), dn = subs(r0, one);
    __m128i o[8] = {adds(up, r1), adds(r0, b1), adds(r0, b2), adds(dn, D),
                    subs(dn, D),  subs(r0, b2), subs(r0, b1), subs(up, r1)};
    #pragma GCC unroll 8
    for (int r = 0; r < 8; r += 2)
        storeBytePair(_mm_srai_epi16(o[r], 6), _mm_srai_epi16(o[r + 1], 6), rowAt(dst, dstStep, r),
                      rowAt(dst, dstStep, r + 1));
}

// Rows 0 to 3 through the row pass with w4..w7 zero; rows 4 to 7 vanish.
void idct4x4LSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    int16_t b[64] = {};
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) b[8 * r + c] = deq(src[8 * r + c], inv[8 * r + c]);
        idctRow(b + 8 * r, r);
    }
    columnsScalar(b);
    storeBytes(b, dst, dstStep);
}

void idct4x4LSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    __m128i R[4];
    #pragma GCC unroll 8
    for (int p = 0; p < 2; ++p) {
        const int16_t* s = src + 16 * p;
        const uint16_t* q = inv + 16 * p;
        const __m256i w = _mm256_mullo_epi16(
            _mm256_inserti128_si256(_mm256_castsi128_si256(simd::load64(s)), simd::load64(s + 8), 1),
            _mm256_inserti128_si256(_mm256_castsi128_si256(simd::load64(q)), simd::load64(q + 8), 1));
        const __m256i y = idctRowPairAvx2(w, p);
        R[2 * p] = _mm256_castsi256_si128(y);
        R[2 * p + 1] = _mm256_extracti128_si256(y, 1);
    }
    // The column pass with rows 4 to 7 zero.
    const __m128i zero = _mm_setzero_si128();
    const __m128i A = R[3];
    const __m128i B = subs(zero, adds(hi(R[3], kTan3m1), R[3]));
    const __m128i C = R[1];
    const __m128i D = hi(R[1], kTan1);
    const __m128i b0 = adds(C, A), p = subs(C, A), b3 = adds(D, B), q = subs(D, B);
    const __m128i x = subs(p, q), y = adds(p, q);
    const __m128i b2 = adds(hi(x, kCos4m1), x), b1 = adds(hi(y, kCos4m1), y);
    const __m128i E = R[2], F = hi(R[2], kTan2);
    const __m128i e0 = adds(R[0], E), e3 = subs(R[0], E), e1 = adds(R[0], F), e2 = subs(R[0], F);
    const __m128i o[8] = {adds(e0, b0), adds(e1, b1), adds(e2, b2), adds(e3, b3),
                          subs(e3, b3), subs(e2, b2), subs(e1, b1), subs(e0, b0)};
    #pragma GCC unroll 8
    for (int r = 0; r < 8; r += 2)
        storeBytePair(_mm_srai_epi16(o[r], 6), _mm_srai_epi16(o[r + 1], 6), rowAt(dst, dstStep, r),
                      rowAt(dst, dstStep, r + 1));
}

// ---------------------------------------------------------------- reduced outputs

void idctTo2x2LSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    int16_t Y[8][2] = {};
    for (int row : {0, 1, 3, 5, 7}) {
        const To2Row& t = kTo2[row];
        const int16_t* s = src + 8 * row;
        const uint16_t* q = inv + 8 * row;
        const int16_t w0 = deq(s[0], q[0]), w1 = deq(s[1], q[1]), w3 = deq(s[3], q[3]);
        const int16_t w5 = deq(s[5], q[5]), w7 = deq(s[7], q[7]);
        const int32_t O = add32(sub32(mul32(t.a, w1), mul32(t.b, w3)), sub32(mul32(t.c, w5), mul32(t.d, w7)));
        const int32_t base = add32(mul32(t.k, w0), t.r);
        Y[row][0] = sat16(add32(base, O) >> 12);
        Y[row][1] = sat16(sub32(base, O) >> 12);
    }
    for (int c = 0; c < 2; ++c) {
        const int16_t R0 = Y[0][c], R1 = Y[1][c], R3 = Y[3][c], R5 = Y[5][c], R7 = Y[7][c];
        const int16_t A = adds16(adds16(hi16(R5, kTan3m1), R5), R3);
        const int16_t B = subs16(R5, adds16(hi16(R3, kTan3m1), R3));
        const int16_t C = adds16(R1, hi16(R7, kTan1));
        const int16_t D = subs16(hi16(R1, kTan1), R7);
        const int16_t cma = subs16(C, A);
        const int16_t g = adds16(hi16(cma, kCos4m1), cma);
        const int16_t g2 = adds16(g, g);
        const int16_t z = adds16(adds16(adds16(D, B), adds16(C, A)), g2);
        const int16_t r2 = adds16(R0, R0), f = adds16(r2, r2);
        rowAt(dst, dstStep, 0)[c] = toByte(static_cast<int16_t>(adds16(f, z) >> 7));
        rowAt(dst, dstStep, 1)[c] = toByte(static_cast<int16_t>(subs16(f, z) >> 7));
    }
}

namespace {

// pmaddwd constants of the reduced 2x2 row pass on natural-order rows: the
// first vector gives k*w0 + O as a sum of its four 32-bit lanes, the second
// k*w0 - O. Pairs of rows (0,1), (3,5), (7,7).
struct To2Consts { alignas(32) int16_t v[3][2][16]; alignas(32) int32_t r[3][8]; };
constexpr To2Consts makeTo2() {
    To2Consts t{};
    const int rows[3][2] = {{0, 1}, {3, 5}, {7, 7}};
    for (int p = 0; p < 3; ++p)
        for (int h = 0; h < 2; ++h) {
            const To2Row& k = kTo2[rows[p][h]];
            const int16_t plus[8] = {k.k, k.a, 0, static_cast<int16_t>(-k.b), 0, k.c, 0, static_cast<int16_t>(-k.d)};
            const int16_t minus[8] = {k.k, static_cast<int16_t>(-k.a), 0, k.b, 0, static_cast<int16_t>(-k.c), 0, k.d};
            for (int j = 0; j < 8; ++j) {
                t.v[p][0][8 * h + j] = plus[j];
                t.v[p][1][8 * h + j] = minus[j];
            }
            for (int j = 0; j < 4; ++j) t.r[p][4 * h + j] = k.r;
        }
    return t;
}
constexpr To2Consts kTo2Vec = makeTo2();

// pmaddwd constants of the reduced 4x4 row pass on the natural pairs (w0,w1),
// (w2,w3), (w4,w5), (w6,w7); the four 32-bit lanes are the four outputs
// [E0+O0, E1+O1, E1-O1, E0-O0].
struct To4Consts { alignas(32) int16_t v[4][4][16]; alignas(32) int32_t r[4][8]; };
constexpr To4Consts makeTo4() {
    To4Consts t{};
    for (int p = 0; p < 4; ++p)
        for (int h = 0; h < 2; ++h) {
            const To4Row& k = kTo4[2 * p + h];
            auto n = [](int16_t v) { return static_cast<int16_t>(-v); };
            const int16_t c[4][8] = {
                {k.k, k.b, k.k, k.d, k.k, n(k.d), k.k, n(k.b)},
                {k.a, k.c, n(k.a), n(k.e), n(k.a), k.e, k.a, n(k.c)},
                {0, n(k.g), 0, k.i, 0, n(k.i), 0, k.g},
                {n(k.f), n(k.h), k.f, n(k.j), k.f, k.j, n(k.f), k.h},
            };
            for (int m = 0; m < 4; ++m)
                for (int j = 0; j < 8; ++j) t.v[p][m][8 * h + j] = c[m][j];
            for (int j = 0; j < 4; ++j) t.r[p][4 * h + j] = k.r;
        }
    return t;
}
constexpr To4Consts kTo4Vec = makeTo4();

inline void store16(uint8_t* p, __m128i v) {
    const uint16_t x = static_cast<uint16_t>(_mm_cvtsi128_si32(v));
    std::memcpy(p, &x, 2);
}

}  // namespace

void idctTo2x2LSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    const int rows[3][2] = {{0, 1}, {3, 5}, {7, 7}};
    __m128i Y[3][2];
    #pragma GCC unroll 8
    for (int p = 0; p < 3; ++p) {
        const int16_t* s0 = src + 8 * rows[p][0];
        const int16_t* s1 = src + 8 * rows[p][1];
        const uint16_t* q0 = inv + 8 * rows[p][0];
        const uint16_t* q1 = inv + 8 * rows[p][1];
        const __m256i w = _mm256_mullo_epi16(_mm256_set_m128i(simd::loadu128(s1), simd::loadu128(s0)),
                                             _mm256_set_m128i(simd::loadu128(q1), simd::loadu128(q0)));
        const __m256i m0 = _mm256_madd_epi16(w, ld(kTo2Vec.v[p][0]));
        const __m256i m1 = _mm256_madd_epi16(w, ld(kTo2Vec.v[p][1]));
        const __m256i h = _mm256_hadd_epi32(m0, m1);
        __m256i s = _mm256_add_epi32(_mm256_hadd_epi32(h, h), ld(kTo2Vec.r[p]));  // [Y0 Y1 Y0 Y1] per half
        s = _mm256_srai_epi32(s, 12);
        s = _mm256_packs_epi32(s, s);
        Y[p][0] = _mm256_castsi256_si128(s);
        Y[p][1] = _mm256_extracti128_si256(s, 1);
    }
    const __m128i R0 = Y[0][0], R1 = Y[0][1], R3 = Y[1][0], R5 = Y[1][1], R7 = Y[2][0];
    const __m128i A = adds(adds(hi(R5, kTan3m1), R5), R3);
    const __m128i B = subs(R5, adds(hi(R3, kTan3m1), R3));
    const __m128i C = adds(R1, hi(R7, kTan1));
    const __m128i D = subs(hi(R1, kTan1), R7);
    const __m128i cma = subs(C, A);
    const __m128i g = adds(hi(cma, kCos4m1), cma);
    const __m128i z = adds(adds(adds(D, B), adds(C, A)), adds(g, g));
    const __m128i r2 = adds(R0, R0), f = adds(r2, r2);
    const __m128i k128 = _mm_set1_epi16(128);
    const __m128i o0 = adds(_mm_srai_epi16(adds(f, z), 7), k128);
    const __m128i o1 = adds(_mm_srai_epi16(subs(f, z), 7), k128);
    const __m128i b = _mm_packus_epi16(o0, o1);  // bytes 0,1: row 0; bytes 8,9: row 1
    store16(rowAt(dst, dstStep, 0), b);
    store16(rowAt(dst, dstStep, 1), _mm_srli_si128(b, 8));
}

void idctTo4x4LSScalar(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    int16_t Y[8][4] = {};
    for (int row : {0, 1, 2, 3, 5, 6, 7}) {
        const To4Row& t = kTo4[row];
        int16_t w[8];
        for (int j = 0; j < 8; ++j) w[j] = deq(src[8 * row + j], inv[8 * row + j]);
        const int32_t kw = mul32(t.k, w[0]);
        const int32_t E0 = add32(add32(kw, mul32(t.a, w[2])), mul32(-t.f, w[6]));
        const int32_t E1 = add32(add32(kw, mul32(-t.a, w[2])), mul32(t.f, w[6]));
        const int32_t O0 =
            add32(add32(mul32(t.b, w[1]), mul32(t.c, w[3])), add32(mul32(-t.g, w[5]), mul32(-t.h, w[7])));
        const int32_t O1 =
            add32(add32(mul32(t.d, w[1]), mul32(-t.e, w[3])), add32(mul32(t.i, w[5]), mul32(-t.j, w[7])));
        Y[row][0] = sat16(add32(add32(E0, O0), t.r) >> 12);
        Y[row][1] = sat16(add32(add32(E1, O1), t.r) >> 12);
        Y[row][2] = sat16(add32(sub32(E1, O1), t.r) >> 12);
        Y[row][3] = sat16(add32(sub32(E0, O0), t.r) >> 12);
    }
    for (int c = 0; c < 4; ++c) {
        const int16_t R0 = Y[0][c], R1 = Y[1][c], R2 = Y[2][c], R3 = Y[3][c];
        const int16_t R5 = Y[5][c], R6 = Y[6][c], R7 = Y[7][c];
        const int16_t A = adds16(adds16(hi16(R5, kTan3m1), R5), R3);
        const int16_t B = subs16(R5, adds16(hi16(R3, kTan3m1), R3));
        const int16_t C = adds16(R1, hi16(R7, kTan1));
        const int16_t D = subs16(hi16(R1, kTan1), R7);
        const int16_t E = adds16(R2, hi16(R6, kTan2)), F = subs16(hi16(R2, kTan2), R6);
        const int16_t p = subs16(C, A), q = subs16(D, B), x = subs16(p, q), y = adds16(p, q);
        const int16_t ef = adds16(E, F), r2 = adds16(R0, R0);
        const int16_t a1 = adds16(r2, ef), a2 = subs16(r2, ef);
        const int16_t g = adds16(adds16(hi16(y, kCos4m1), y), adds16(C, A));
        const int16_t h = adds16(adds16(D, B), adds16(hi16(x, kCos4m1), x));
        rowAt(dst, dstStep, 0)[c] = toByte(static_cast<int16_t>(adds16(a1, g) >> 6));
        rowAt(dst, dstStep, 1)[c] = toByte(static_cast<int16_t>(adds16(a2, h) >> 6));
        rowAt(dst, dstStep, 2)[c] = toByte(static_cast<int16_t>(subs16(a2, h) >> 6));
        rowAt(dst, dstStep, 3)[c] = toByte(static_cast<int16_t>(subs16(a1, g) >> 6));
    }
}

void idctTo4x4LSAvx2(const int16_t* src, const uint16_t* inv, uint8_t* dst, int dstStep) {
    __m128i R[8];
    #pragma GCC unroll 8
    for (int p = 0; p < 4; ++p) {
        const __m256i w = _mm256_mullo_epi16(simd::loadu256(src + 16 * p), simd::loadu256(inv + 16 * p));
        const __m256i s = w;
        const auto& c = kTo4Vec.v[p];
        __m256i o = _mm256_add_epi32(_mm256_madd_epi16(_mm256_shuffle_epi32(s, 0x00), ld(c[0])),
                                     _mm256_madd_epi16(_mm256_shuffle_epi32(s, 0x55), ld(c[1])));
        o = _mm256_add_epi32(o, _mm256_madd_epi16(_mm256_shuffle_epi32(s, 0xAA), ld(c[2])));
        o = _mm256_add_epi32(o, _mm256_madd_epi16(_mm256_shuffle_epi32(s, 0xFF), ld(c[3])));
        o = _mm256_srai_epi32(_mm256_add_epi32(o, ld(kTo4Vec.r[p])), 12);
        o = _mm256_packs_epi32(o, o);
        R[2 * p] = _mm256_castsi256_si128(o);
        R[2 * p + 1] = _mm256_extracti128_si256(o, 1);
    }
    const __m128i A = adds(adds(hi(R[5], kTan3m1), R[5]), R[3]);
    const __m128i B = subs(R[5], adds(hi(R[3], kTan3m1), R[3]));
    const __m128i C = adds(R[1], hi(R[7], kTan1));
    const __m128i D = subs(hi(R[1], kTan1), R[7]);
    const __m128i E = adds(R[2], hi(R[6], kTan2)), F = subs(hi(R[2], kTan2), R[6]);
    const __m128i p = subs(C, A), q = subs(D, B), x = subs(p, q), y = adds(p, q);
    const __m128i ef = adds(E, F), r2 = adds(R[0], R[0]);
    const __m128i a1 = adds(r2, ef), a2 = subs(r2, ef);
    const __m128i g = adds(adds(hi(y, kCos4m1), y), adds(C, A));
    const __m128i h = adds(adds(D, B), adds(hi(x, kCos4m1), x));
    const __m128i k128 = _mm_set1_epi16(128);
    const __m128i b01 = _mm_packus_epi16(adds(_mm_srai_epi16(adds(a1, g), 6), k128),
                                         adds(_mm_srai_epi16(adds(a2, h), 6), k128));
    const __m128i b23 = _mm_packus_epi16(adds(_mm_srai_epi16(subs(a2, h), 6), k128),
                                         adds(_mm_srai_epi16(subs(a1, g), 6), k128));
    simd::store32(rowAt(dst, dstStep, 0), b01);
    simd::store32(rowAt(dst, dstStep, 1), _mm_srli_si128(b01, 8));
    simd::store32(rowAt(dst, dstStep, 2), b23);
    simd::store32(rowAt(dst, dstStep, 3), _mm_srli_si128(b23, 8));
}

// ---------------------------------------------------------------- 12-bit member

void idctFloatScalar(const int16_t* src, const float* tbl, uint16_t* dst, int dstStep) {
    float b[64];
    for (int i = 0; i < 64; ++i) b[i] = (static_cast<float>(src[i]) * tbl[i]) * kFloatScale[i];
    for (int r = 0; r < 8; ++r) idctLineScalar(b + 8 * r);
    for (int c = 0; c < 8; ++c) {
        float y[8];
        for (int r = 0; r < 8; ++r) y[r] = b[8 * r + c];
        idctLineScalar(y);
        for (int r = 0; r < 8; ++r) b[8 * r + c] = y[r];
    }
    for (int r = 0; r < 8; ++r) {
        uint16_t* row = reinterpret_cast<uint16_t*>(rowAt(reinterpret_cast<uint8_t*>(dst), dstStep, r));
        for (int c = 0; c < 8; ++c) row[c] = floatToSample12(b[8 * r + c] + 2048.0f);
    }
}

void idctFloatAvx2(const int16_t* src, const float* tbl, uint16_t* dst, int dstStep) {
    __m256 y[8];
    #pragma GCC unroll 8
    for (int r = 0; r < 8; ++r) {
        const __m256 c = _mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(simd::loadu128(src + 8 * r)));
        y[r] = _mm256_mul_ps(_mm256_mul_ps(c, _mm256_loadu_ps(tbl + 8 * r)), _mm256_load_ps(kFloatScale + 8 * r));
    }
    transpose8x8Ps(y);  // registers hold columns: the pass runs along the rows
    idctLineAvx2(y);
    transpose8x8Ps(y);  // registers hold rows again: the pass runs down the columns
    idctLineAvx2(y);
    const __m256 k2048 = _mm256_set1_ps(2048.0f);
    const __m256 hiC = _mm256_set1_ps(32767.0f), loC = _mm256_set1_ps(-32768.0f);
    const __m256i zero = _mm256_setzero_si256(), top = _mm256_set1_epi16(4095);
    #pragma GCC unroll 8
    for (int r = 0; r < 8; r += 2) {
        __m256i t[2];
        #pragma GCC unroll 8
        for (int h = 0; h < 2; ++h) {
            __m256 v = _mm256_add_ps(y[r + h], k2048);
            v = _mm256_max_ps(_mm256_min_ps(v, hiC), loC);
            t[h] = _mm256_cvttps_epi32(v);
        }
        __m256i s = _mm256_permute4x64_epi64(_mm256_packs_epi32(t[0], t[1]), 0xD8);
        s = _mm256_min_epi16(_mm256_max_epi16(s, zero), top);
        simd::storeu128(rowAt(reinterpret_cast<uint8_t*>(dst), dstStep, r), _mm256_castsi256_si128(s));
        simd::storeu128(rowAt(reinterpret_cast<uint8_t*>(dst), dstStep, r + 1), _mm256_extracti128_si256(s, 1));
    }
}

}  // namespace zeb::jpeg

using namespace zeb::jpeg;

namespace {

template <class Out, class Table>
inline ZebStatus checkLS(const Zeb16s* src, Out* dst, int dstStep, const Table* table) {
    if (!src || !dst) return zebStatusNullPointer;
    if (dstStep < 1) return zebStatusBadStep;
    if (!table) return zebStatusNullPointer;
    return zebStatusOk;
}

}  // namespace

ZebStatus zebimpl::zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                       const Zeb16u* invTable) {
    if (ZebStatus s = checkLS(src, dst, dstStep, invTable)) return s;
    if (zeb::simd::aligned(src, 16) && zeb::simd::aligned(invTable, 16))
        idctLSAvx2Aligned(src, invTable, dst, dstStep);
    else
        idctLSAvx2(src, invTable, dst, dstStep);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                           const Zeb16u* invTable) {
    if (ZebStatus s = checkLS(src, dst, dstStep, invTable)) return s;
    idct1x1LS(src, invTable, dst, dstStep);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                           const Zeb16u* invTable) {
    if (ZebStatus s = checkLS(src, dst, dstStep, invTable)) return s;
    idct2x2LSAvx2(src, invTable, dst, dstStep);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                           const Zeb16u* invTable) {
    if (ZebStatus s = checkLS(src, dst, dstStep, invTable)) return s;
    idct4x4LSAvx2(src, invTable, dst, dstStep);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                            const Zeb16u* invTable) {
    if (ZebStatus s = checkLS(src, dst, dstStep, invTable)) return s;
    idctTo2x2LSAvx2(src, invTable, dst, dstStep);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                            const Zeb16u* invTable) {
    if (ZebStatus s = checkLS(src, dst, dstStep, invTable)) return s;
    idctTo4x4LSAvx2(src, invTable, dst, dstStep);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(const Zeb16s* src, Zeb16u* dst, int dstStep,
                                                        const Zeb32f* invTable) {
    if (ZebStatus s = checkLS(src, dst, dstStep, invTable)) return s;
    idctFloatAvx2(src, invTable, dst, dstStep);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantInv8x8_JPEG_16s_C1(const Zeb16s* src, Zeb16s* dst, const Zeb16u* invTable) {
    if (!src || !dst || !invTable) return zebStatusNullPointer;
    idctAvx2(src, invTable, dst);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantInv8x8_JPEG_16s_C1I(Zeb16s* srcDst, const Zeb16u* invTable) {
    if (!srcDst || !invTable) return zebStatusNullPointer;
    idctAvx2(srcDst, invTable, srcDst);
    return zebStatusOk;
}
