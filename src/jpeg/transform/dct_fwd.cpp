// Forward 8x8 DCT with fused quantisation: the 16-bit fixed-point transform
// (column pass on whole rows, row pass on two rows per 256-bit register) and
// the single-precision transform of 12-bit samples.
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

// ---------------------------------------------------------------- scalar forms

inline int16_t shl16(int16_t v, int n) { return wrap16(int32_t{v} * (1 << n)); }
inline int16_t lsb1(int16_t v) { return static_cast<int16_t>(v | 1); }

// One column of the 16-bit pass, x[0..7] from rows 0..7, in place.
void fdctColumn(int16_t x[8]) {
    const int16_t s07 = shl16(adds16(x[0], x[7]), 3), s16 = shl16(adds16(x[1], x[6]), 3);
    const int16_t s25 = shl16(adds16(x[2], x[5]), 3), s34 = shl16(adds16(x[3], x[4]), 3);
    const int16_t d07 = shl16(subs16(x[0], x[7]), 3), d34 = shl16(subs16(x[3], x[4]), 3);
    const int16_t d16 = shl16(subs16(x[1], x[6]), 4), d25 = shl16(subs16(x[2], x[5]), 4);
    const int16_t a0 = adds16(s07, s34), a3 = subs16(s07, s34);
    const int16_t a1 = adds16(s16, s25), a2 = subs16(s16, s25);
    const int16_t m = lsb1(hi16(adds16(d16, d25), kCos4));
    const int16_t n = hi16(subs16(d16, d25), kCos4);
    const int16_t p = adds16(d07, m), q = subs16(d07, m);
    const int16_t u = adds16(d34, n), v = subs16(d34, n);
    x[0] = adds16(a0, a1);
    x[4] = subs16(a0, a1);
    x[2] = lsb1(adds16(a3, hi16(a2, kTan2)));
    x[6] = lsb1(subs16(hi16(a3, kTan2), a2));
    x[1] = lsb1(adds16(p, hi16(u, kTan1)));
    x[7] = subs16(hi16(p, kTan1), u);
    x[5] = adds16(adds16(hi16(q, kTan3m1), q), v);
    x[3] = subs16(q, adds16(hi16(v, kTan3m1), v));
}

// One row of the 16-bit pass, in place, with the constants of block row i.
void fdctRow(int16_t w[8], int i) {
    const RowK& k = kRowK[i];
    int32_t s[4], d[4];
    for (int j = 0; j < 4; ++j) {
        s[j] = adds16(w[j], w[7 - j]);
        d[j] = subs16(w[j], w[7 - j]);
    }
    auto dot = [](int32_t c0, int32_t v0, int32_t c1, int32_t v1, int32_t c2, int32_t v2, int32_t c3, int32_t v3) {
        return add32(add32(mul32(c0, v0), mul32(c1, v1)), add32(mul32(c2, v2), mul32(c3, v3)));
    };
    int32_t X[8];
    X[0] = dot(k.k0, s[0], k.k0, s[1], k.k0, s[2], k.k0, s[3]);
    X[4] = dot(k.k0, s[0], -k.k0, s[1], -k.k0, s[2], k.k0, s[3]);
    X[2] = dot(k.k2, s[0], k.k6, s[1], -k.k6, s[2], -k.k2, s[3]);
    X[6] = dot(k.k6, s[0], -k.k2, s[1], k.k2, s[2], -k.k6, s[3]);
    X[1] = dot(k.k1, d[0], k.k3, d[1], k.k5, d[2], k.k7, d[3]);
    X[3] = dot(k.k3, d[0], -k.k7, d[1], -k.k1, d[2], -k.k5, d[3]);
    X[5] = dot(k.k5, d[0], -k.k1, d[1], k.k7, d[2], k.k3, d[3]);
    X[7] = dot(k.k7, d[0], -k.k5, d[1], k.k3, d[2], -k.k1, d[3]);
    for (int j = 0; j < 8; ++j) w[j] = sat16(add32(X[j], 524288) >> 20);
}

// ---------------------------------------------------------------- vector forms

// pmaddwd constants of the row pass, per pair of block rows: the even outputs
// [X0 X2 X4 X6] from (s0,s1) and (s2,s3), the odd [X1 X3 X5 X7] from (d0,d1)
// and (d2,d3). The low 128 bits serve the first row of the pair.
struct RowPairConsts { alignas(32) int16_t v[4][16]; };

constexpr std::array<RowPairConsts, 4> makeRowConsts() {
    std::array<RowPairConsts, 4> t{};
    for (int p = 0; p < 4; ++p) {
        for (int h = 0; h < 2; ++h) {
            const RowK& k = kRowK[2 * p + h];
            const int16_t c[4][8] = {
                {k.k0, k.k0, k.k2, k.k6, k.k0, static_cast<int16_t>(-k.k0), k.k6, static_cast<int16_t>(-k.k2)},
                {k.k0, k.k0, static_cast<int16_t>(-k.k6), static_cast<int16_t>(-k.k2),
                 static_cast<int16_t>(-k.k0), k.k0, k.k2, static_cast<int16_t>(-k.k6)},
                {k.k1, k.k3, k.k3, static_cast<int16_t>(-k.k7), k.k5, static_cast<int16_t>(-k.k1), k.k7,
                 static_cast<int16_t>(-k.k5)},
                {k.k5, k.k7, static_cast<int16_t>(-k.k1), static_cast<int16_t>(-k.k5), k.k7, k.k3, k.k3,
                 static_cast<int16_t>(-k.k1)},
            };
            for (int n = 0; n < 4; ++n)
                for (int j = 0; j < 8; ++j) t[p].v[n][8 * h + j] = c[n][j];
        }
    }
    return t;
}
constexpr std::array<RowPairConsts, 4> kFwdRow = makeRowConsts();

inline __m128i orLsb(__m128i v) { return _mm_or_si128(v, _mm_set1_epi16(1)); }

// Column pass on eight rows of eight words; each lane is one column.
inline void fdctColumnsAvx2(__m128i r[8]) {
    const __m128i cos4 = _mm_set1_epi16(kCos4), tan2 = _mm_set1_epi16(kTan2);
    const __m128i tan1 = _mm_set1_epi16(kTan1), tan3 = _mm_set1_epi16(kTan3m1);
    const __m128i s07 = _mm_slli_epi16(_mm_adds_epi16(r[0], r[7]), 3);
    const __m128i s16 = _mm_slli_epi16(_mm_adds_epi16(r[1], r[6]), 3);
    const __m128i s25 = _mm_slli_epi16(_mm_adds_epi16(r[2], r[5]), 3);
    const __m128i s34 = _mm_slli_epi16(_mm_adds_epi16(r[3], r[4]), 3);
    const __m128i d07 = _mm_slli_epi16(_mm_subs_epi16(r[0], r[7]), 3);
    const __m128i d34 = _mm_slli_epi16(_mm_subs_epi16(r[3], r[4]), 3);
    const __m128i d16 = _mm_slli_epi16(_mm_subs_epi16(r[1], r[6]), 4);
    const __m128i d25 = _mm_slli_epi16(_mm_subs_epi16(r[2], r[5]), 4);
    const __m128i a0 = _mm_adds_epi16(s07, s34), a3 = _mm_subs_epi16(s07, s34);
    const __m128i a1 = _mm_adds_epi16(s16, s25), a2 = _mm_subs_epi16(s16, s25);
    const __m128i m = orLsb(_mm_mulhi_epi16(_mm_adds_epi16(d16, d25), cos4));
    const __m128i n = _mm_mulhi_epi16(_mm_subs_epi16(d16, d25), cos4);
    const __m128i p = _mm_adds_epi16(d07, m), q = _mm_subs_epi16(d07, m);
    const __m128i u = _mm_adds_epi16(d34, n), v = _mm_subs_epi16(d34, n);
    r[0] = _mm_adds_epi16(a0, a1);
    r[4] = _mm_subs_epi16(a0, a1);
    r[2] = orLsb(_mm_adds_epi16(a3, _mm_mulhi_epi16(a2, tan2)));
    r[6] = orLsb(_mm_subs_epi16(_mm_mulhi_epi16(a3, tan2), a2));
    r[1] = orLsb(_mm_adds_epi16(p, _mm_mulhi_epi16(u, tan1)));
    r[7] = _mm_subs_epi16(_mm_mulhi_epi16(p, tan1), u);
    r[5] = _mm_adds_epi16(_mm_adds_epi16(_mm_mulhi_epi16(q, tan3), q), v);
    r[3] = _mm_subs_epi16(q, _mm_adds_epi16(_mm_mulhi_epi16(v, tan3), v));
}

// Row pass on two block rows (one per 128-bit half), constants of pair p.
inline __m256i fdctRowPairAvx2(__m256i w, int p) {
    const __m256i rev = _mm256_setr_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1,
                                         14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1);
    const __m256i order = _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15,
                                           0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
    const __m256i round = _mm256_set1_epi32(524288);
    const int16_t(*c)[16] = kFwdRow[p].v;
    const __m256i wr = _mm256_shuffle_epi8(w, rev);
    const __m256i s = _mm256_adds_epi16(w, wr), d = _mm256_subs_epi16(w, wr);  // s0..s3, d0..d3 in lanes 0..3
    __m256i even = _mm256_add_epi32(
        _mm256_madd_epi16(_mm256_shuffle_epi32(s, 0x00), _mm256_load_si256(reinterpret_cast<const __m256i*>(c[0]))),
        _mm256_madd_epi16(_mm256_shuffle_epi32(s, 0x55), _mm256_load_si256(reinterpret_cast<const __m256i*>(c[1]))));
    __m256i odd = _mm256_add_epi32(
        _mm256_madd_epi16(_mm256_shuffle_epi32(d, 0x00), _mm256_load_si256(reinterpret_cast<const __m256i*>(c[2]))),
        _mm256_madd_epi16(_mm256_shuffle_epi32(d, 0x55), _mm256_load_si256(reinterpret_cast<const __m256i*>(c[3]))));
    even = _mm256_srai_epi32(_mm256_add_epi32(even, round), 20);
    odd = _mm256_srai_epi32(_mm256_add_epi32(odd, round), 20);
    return _mm256_shuffle_epi8(_mm256_packs_epi32(even, odd), order);
}

// round(f * r / 32768), ties to even, saturated; r unsigned. Worked in 16-bit
// lanes: the product's high word h and low word l give floor(P / 32768) =
// 2h + (l >> 15), whose parity is l >> 15; the remainder l & 0x7fff decides
// the carry. 2h + carry is then summed with saturation, h last, so that the
// result saturates exactly where the true quotient leaves 16 bits.
inline __m256i quantRoundEven16(__m256i f, __m256i r) {
    const __m256i lo = _mm256_mullo_epi16(f, r);
    const __m256i hi = _mm256_sub_epi16(_mm256_mulhi_epu16(f, r), _mm256_and_si256(_mm256_srai_epi16(f, 15), r));
    const __m256i odd = _mm256_srli_epi16(lo, 15);
    const __m256i rem = _mm256_and_si256(lo, _mm256_set1_epi16(0x7FFF));
    const __m256i carry = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(rem, _mm256_set1_epi16(16383)), odd), 15);
    const __m256i low = _mm256_add_epi16(odd, carry);  // 0, 1 or 2
    return _mm256_adds_epi16(_mm256_adds_epi16(hi, low), hi);
}

// Row pass and fused quantisation of the column-pass output, stored to dst.
inline void fdctRowsQuantStore(const __m128i r[8], int16_t* dst, const uint16_t* fwd) {
    #pragma GCC unroll 8
    for (int p = 0; p < 4; ++p) {
        __m256i w = _mm256_set_m128i(r[2 * p + 1], r[2 * p]);
        __m256i x = fdctRowPairAvx2(w, p);
        simd::storeu256(dst + 16 * p, quantRoundEven16(x, simd::loadu256(fwd + 16 * p)));
    }
}

// ---------------------------------------------------------------- float forms

inline void fdctLineScalar(float x[8]) {
    const float s07 = x[0] + x[7], s16 = x[1] + x[6], s25 = x[2] + x[5], s34 = x[3] + x[4];
    const float d07 = x[0] - x[7], d16 = x[1] - x[6], d25 = x[2] - x[5], d34 = x[3] - x[4];
    const float a0 = s07 + s34, a3 = s07 - s34, a1 = s16 + s25, a2 = s16 - s25;
    const float e0 = std::fma(d16 + d25, kFc, d07), e1 = std::fma(-(d16 + d25), kFc, d07);
    const float e2 = std::fma(d16 - d25, kFc, d34), e3 = std::fma(-(d16 - d25), kFc, d34);
    x[0] = a0 + a1;
    x[4] = a0 - a1;
    x[2] = std::fma(a2, kFt2, a3);
    x[6] = std::fma(a3, kFt2, -a2);
    x[1] = std::fma(e2, kFt1, e0);
    x[7] = std::fma(e0, kFt1, -e2);
    x[5] = std::fma(e1, kFt3, e3);
    x[3] = std::fma(-e3, kFt3, e1);
}

inline void fdctLineAvx2(__m256 x[8]) {
    const __m256 c = _mm256_set1_ps(kFc), t1 = _mm256_set1_ps(kFt1);
    const __m256 t2 = _mm256_set1_ps(kFt2), t3 = _mm256_set1_ps(kFt3);
    const __m256 s07 = _mm256_add_ps(x[0], x[7]), s16 = _mm256_add_ps(x[1], x[6]);
    const __m256 s25 = _mm256_add_ps(x[2], x[5]), s34 = _mm256_add_ps(x[3], x[4]);
    const __m256 d07 = _mm256_sub_ps(x[0], x[7]), d16 = _mm256_sub_ps(x[1], x[6]);
    const __m256 d25 = _mm256_sub_ps(x[2], x[5]), d34 = _mm256_sub_ps(x[3], x[4]);
    const __m256 a0 = _mm256_add_ps(s07, s34), a3 = _mm256_sub_ps(s07, s34);
    const __m256 a1 = _mm256_add_ps(s16, s25), a2 = _mm256_sub_ps(s16, s25);
    const __m256 sp = _mm256_add_ps(d16, d25), sm = _mm256_sub_ps(d16, d25);
    const __m256 e0 = _mm256_fmadd_ps(sp, c, d07), e1 = _mm256_fnmadd_ps(sp, c, d07);
    const __m256 e2 = _mm256_fmadd_ps(sm, c, d34), e3 = _mm256_fnmadd_ps(sm, c, d34);
    x[0] = _mm256_add_ps(a0, a1);
    x[4] = _mm256_sub_ps(a0, a1);
    x[2] = _mm256_fmadd_ps(a2, t2, a3);
    x[6] = _mm256_fmsub_ps(a3, t2, a2);
    x[1] = _mm256_fmadd_ps(e2, t1, e0);
    x[7] = _mm256_fmsub_ps(e0, t1, e2);
    x[5] = _mm256_fmadd_ps(e1, t3, e3);
    x[3] = _mm256_fnmadd_ps(e3, t3, e1);
}

// Clamp to the 16-bit range (a NaN takes the upper bound, as minps does),
// then round to nearest even.
inline int16_t floatToSat16(float v) {
    v = v < 32767.0f ? v : 32767.0f;
    v = v > -32768.0f ? v : -32768.0f;
    return static_cast<int16_t>(std::nearbyint(v));
}

}  // namespace

// k(v) * k(u) / 8 with k = 1, 1.3870399, 1.3065630, 1.1758756, 1, 1.1758756,
// 1.3065630, 1.3870399 as floats, each product rounded to float.
alignas(32) const float kFloatScale[64] = {
    0.125f, 0.173379987f, 0.163320377f, 0.146984443f, 0.125f, 0.146984443f, 0.163320377f, 0.173379987f,
    0.173379987f, 0.240484968f, 0.226531878f, 0.203873292f, 0.173379987f, 0.203873292f, 0.226531878f, 0.240484968f,
    0.163320377f, 0.226531878f, 0.213388368f, 0.192044437f, 0.163320377f, 0.192044437f, 0.213388368f, 0.226531878f,
    0.146984443f, 0.203873292f, 0.192044437f, 0.17283541f, 0.146984443f, 0.17283541f, 0.192044437f, 0.203873292f,
    0.125f, 0.173379987f, 0.163320377f, 0.146984443f, 0.125f, 0.146984443f, 0.163320377f, 0.173379987f,
    0.146984443f, 0.203873292f, 0.192044437f, 0.17283541f, 0.146984443f, 0.17283541f, 0.192044437f, 0.203873292f,
    0.163320377f, 0.226531878f, 0.213388368f, 0.192044437f, 0.163320377f, 0.192044437f, 0.213388368f, 0.226531878f,
    0.173379987f, 0.240484968f, 0.226531878f, 0.203873292f, 0.173379987f, 0.203873292f, 0.226531878f, 0.240484968f,
};

int16_t quantRoundEven(int16_t f, uint16_t r) {
    const int32_t p = int32_t{f} * int32_t{r};
    int32_t q = p >> 15;
    const int32_t rem = p & 32767;
    if (rem > 16384 || (rem == 16384 && (q & 1))) ++q;
    return sat16(q);
}

void quantRoundEvenAvx2(const int16_t* f, const uint16_t* r, int16_t* out) {
    for (int i = 0; i < 64; i += 16)
        simd::storeu256(out + i, quantRoundEven16(simd::loadu256(f + i), simd::loadu256(r + i)));
}

void fdctScalar(const int16_t* src, int16_t* dst) {
    int16_t b[64];
    std::memcpy(b, src, sizeof b);
    for (int c = 0; c < 8; ++c) {
        int16_t x[8];
        for (int r = 0; r < 8; ++r) x[r] = b[8 * r + c];
        fdctColumn(x);
        for (int r = 0; r < 8; ++r) b[8 * r + c] = x[r];
    }
    for (int r = 0; r < 8; ++r) fdctRow(b + 8 * r, r);
    std::memcpy(dst, b, sizeof b);
}

void fdctQuantScalar(const int16_t* src, int16_t* dst, const uint16_t* fwd) {
    int16_t b[64];
    fdctScalar(src, b);
    for (int i = 0; i < 64; ++i) dst[i] = quantRoundEven(b[i], fwd[i]);
}

void fdctQuantAvx2(const int16_t* src, int16_t* dst, const uint16_t* fwd) {
    __m128i r[8];
    #pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) r[i] = simd::loadu128(src + 8 * i);
    fdctColumnsAvx2(r);
    fdctRowsQuantStore(r, dst, fwd);
}

void fdctQuantLSScalar(const uint8_t* src, int srcStep, int16_t* dst, const uint16_t* fwd) {
    int16_t b[64];
    for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) b[8 * r + c] = static_cast<int16_t>(src[static_cast<ptrdiff_t>(r) * srcStep + c] - 128);
    fdctQuantScalar(b, dst, fwd);
}

void fdctQuantLSAvx2(const uint8_t* src, int srcStep, int16_t* dst, const uint16_t* fwd) {
    const __m128i k128 = _mm_set1_epi16(128);
    __m128i r[8];
    #pragma GCC unroll 8
    for (int i = 0; i < 8; ++i)
        r[i] = _mm_sub_epi16(_mm_cvtepu8_epi16(simd::load64(src + static_cast<ptrdiff_t>(i) * srcStep)), k128);
    fdctColumnsAvx2(r);
    fdctRowsQuantStore(r, dst, fwd);
}

void fdctFloatScalar(const uint16_t* src, int srcStep, int16_t* dst, const float* tbl) {
    float b[64];
    for (int r = 0; r < 8; ++r) {
        const uint16_t* row = reinterpret_cast<const uint16_t*>(reinterpret_cast<const uint8_t*>(src) +
                                                                static_cast<ptrdiff_t>(r) * srcStep);
        for (int c = 0; c < 8; ++c) b[8 * r + c] = static_cast<float>(static_cast<int16_t>(row[c])) - 2048.0f;
    }
    for (int r = 0; r < 8; ++r) fdctLineScalar(b + 8 * r);
    for (int c = 0; c < 8; ++c) {
        float x[8];
        for (int r = 0; r < 8; ++r) x[r] = b[8 * r + c];
        fdctLineScalar(x);
        for (int r = 0; r < 8; ++r) b[8 * r + c] = x[r];
    }
    for (int i = 0; i < 64; ++i) dst[i] = floatToSat16((b[i] * kFloatScale[i]) * tbl[i]);
}

void fdctFloatAvx2(const uint16_t* src, int srcStep, int16_t* dst, const float* tbl) {
    const __m256 k2048 = _mm256_set1_ps(2048.0f);
    __m256 x[8];
    #pragma GCC unroll 8
    for (int r = 0; r < 8; ++r) {
        const __m128i row = simd::loadu128(reinterpret_cast<const uint8_t*>(src) + static_cast<ptrdiff_t>(r) * srcStep);
        x[r] = _mm256_sub_ps(_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(row)), k2048);
    }
    transpose8x8Ps(x);  // registers hold columns: the pass runs along the rows
    fdctLineAvx2(x);
    transpose8x8Ps(x);  // registers hold rows again: the pass runs down the columns
    fdctLineAvx2(x);
    const __m256 hiC = _mm256_set1_ps(32767.0f), loC = _mm256_set1_ps(-32768.0f);
    #pragma GCC unroll 8
    for (int r = 0; r < 8; r += 2) {
        __m256i q[2];
        #pragma GCC unroll 8
        for (int h = 0; h < 2; ++h) {
            __m256 v = _mm256_mul_ps(x[r + h], _mm256_load_ps(kFloatScale + 8 * (r + h)));
            v = _mm256_mul_ps(v, _mm256_loadu_ps(tbl + 8 * (r + h)));
            v = _mm256_max_ps(_mm256_min_ps(v, hiC), loC);
            q[h] = _mm256_cvtps_epi32(v);
        }
        __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(q[0], q[1]), 0xD8);
        simd::storeu256(dst + 8 * r, packed);
    }
}

}  // namespace zeb::jpeg

using namespace zeb::jpeg;

ZebStatus zebimpl::zebiDCTQuantFwd8x8_JPEG_16s_C1(const Zeb16s* src, Zeb16s* dst, const Zeb16u* fwdTable) {
    if (!src || !dst || !fwdTable) return zebStatusNullPointer;
    fdctQuantAvx2(src, dst, fwdTable);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantFwd8x8_JPEG_16s_C1I(Zeb16s* srcDst, const Zeb16u* fwdTable) {
    if (!srcDst || !fwdTable) return zebStatusNullPointer;
    fdctQuantAvx2(srcDst, srcDst, fwdTable);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(const Zeb8u* src, int srcStep, Zeb16s* dst,
                                                       const Zeb16u* fwdTable) {
    if (!src || !dst) return zebStatusNullPointer;
    if (srcStep < 1) return zebStatusBadStep;
    if (!fwdTable) return zebStatusNullPointer;
    fdctQuantLSAvx2(src, srcStep, dst, fwdTable);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(const Zeb16u* src, int srcStep, Zeb16s* dst,
                                                        const Zeb32f* fwdTable) {
    if (!src || !dst) return zebStatusNullPointer;
    if (srcStep < 1) return zebStatusBadStep;
    if (!fwdTable) return zebStatusNullPointer;
    fdctFloatAvx2(src, srcStep, dst, fwdTable);
    return zebStatusOk;
}
