// Component transforms of three components: the reversible RCT and the
// irreversible ICT, forward and inverse, between three planes (also in place)
// and between interleaved R, G, B and three planes.
#include "jpeg2000/transform/component.h"

#include <immintrin.h>

#include <type_traits>

#include "frame/arith.h"
#include "frame/impl.h"

namespace zeb::j2k {

namespace {

// ------------------------------------------------------------ interleaving
// Eight R, G, B triples of 16 or 32 bits occupy three groups of eight
// elements, a0 = R0 G0 B0 R1 G1 B1 R2 G2, a1 = B2 R3 G3 B3 R4 G4 B4 R5,
// a2 = G5 B5 R6 G6 B6 R7 G7 B7. Each component sits at positions {0,3,6},
// {1,4,7} or {2,5} of a group, different ones in each group, so two blends
// gather a component and one permutation puts it in order (and back).

constexpr int kBlend147 = 0x92, kBlend25 = 0x24, kBlend036 = 0x49;

// Word permutations (as byte shuffles) from the blended order to pixel order
// and back, per 128-bit lane.
inline __m256i wordShuffle(int a, int b, int c, int d, int e, int f, int g, int h) {
    return _mm256_setr_epi8(2 * a, 2 * a + 1, 2 * b, 2 * b + 1, 2 * c, 2 * c + 1, 2 * d, 2 * d + 1, 2 * e, 2 * e + 1,
                            2 * f, 2 * f + 1, 2 * g, 2 * g + 1, 2 * h, 2 * h + 1, 2 * a, 2 * a + 1, 2 * b, 2 * b + 1,
                            2 * c, 2 * c + 1, 2 * d, 2 * d + 1, 2 * e, 2 * e + 1, 2 * f, 2 * f + 1, 2 * g, 2 * g + 1,
                            2 * h, 2 * h + 1);
}

// Sixteen 16-bit triples: the six 128-bit groups are paired {0,3}, {1,4},
// {2,5} so that each 256-bit register holds two groups of the same pattern.
struct C3x16 {
    static void load(const int16_t* p, __m256i& r, __m256i& g, __m256i& b) {
        const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
        const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 16));
        const __m256i v2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32));
        const __m256i a0 = _mm256_permute2x128_si256(v0, v1, 0x30);
        const __m256i a1 = _mm256_permute2x128_si256(v0, v2, 0x21);
        const __m256i a2 = _mm256_permute2x128_si256(v1, v2, 0x30);
        r = _mm256_blend_epi16(_mm256_blend_epi16(a0, a1, kBlend147), a2, kBlend25);
        g = _mm256_blend_epi16(_mm256_blend_epi16(a0, a1, kBlend25), a2, kBlend036);
        b = _mm256_blend_epi16(_mm256_blend_epi16(a0, a1, kBlend036), a2, kBlend147);
        r = _mm256_shuffle_epi8(r, wordShuffle(0, 3, 6, 1, 4, 7, 2, 5));
        g = _mm256_shuffle_epi8(g, wordShuffle(1, 4, 7, 2, 5, 0, 3, 6));
        b = _mm256_shuffle_epi8(b, wordShuffle(2, 5, 0, 3, 6, 1, 4, 7));
    }
    static void store(int16_t* p, __m256i r, __m256i g, __m256i b) {
        r = _mm256_shuffle_epi8(r, wordShuffle(0, 3, 6, 1, 4, 7, 2, 5));
        g = _mm256_shuffle_epi8(g, wordShuffle(5, 0, 3, 6, 1, 4, 7, 2));
        b = _mm256_shuffle_epi8(b, wordShuffle(2, 5, 0, 3, 6, 1, 4, 7));
        const __m256i a0 = _mm256_blend_epi16(_mm256_blend_epi16(r, g, kBlend147), b, kBlend25);
        const __m256i a1 = _mm256_blend_epi16(_mm256_blend_epi16(b, r, kBlend147), g, kBlend25);
        const __m256i a2 = _mm256_blend_epi16(_mm256_blend_epi16(g, b, kBlend147), r, kBlend25);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm256_permute2x128_si256(a0, a1, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + 16), _mm256_permute2x128_si256(a2, a0, 0x30));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + 32), _mm256_permute2x128_si256(a1, a2, 0x31));
    }
};

// Eight 32-bit triples: one group per register.
struct C3x8 {
    static void load(const void* p, __m256i& r, __m256i& g, __m256i& b) {
        const __m256i a0 = _mm256_loadu_si256(static_cast<const __m256i*>(p));
        const __m256i a1 = _mm256_loadu_si256(static_cast<const __m256i*>(p) + 1);
        const __m256i a2 = _mm256_loadu_si256(static_cast<const __m256i*>(p) + 2);
        r = _mm256_blend_epi32(_mm256_blend_epi32(a0, a1, kBlend147), a2, kBlend25);
        g = _mm256_blend_epi32(_mm256_blend_epi32(a0, a1, kBlend25), a2, kBlend036);
        b = _mm256_blend_epi32(_mm256_blend_epi32(a0, a1, kBlend036), a2, kBlend147);
        r = _mm256_permutevar8x32_epi32(r, _mm256_setr_epi32(0, 3, 6, 1, 4, 7, 2, 5));
        g = _mm256_permutevar8x32_epi32(g, _mm256_setr_epi32(1, 4, 7, 2, 5, 0, 3, 6));
        b = _mm256_permutevar8x32_epi32(b, _mm256_setr_epi32(2, 5, 0, 3, 6, 1, 4, 7));
    }
    static void store(void* p, __m256i r, __m256i g, __m256i b) {
        r = _mm256_permutevar8x32_epi32(r, _mm256_setr_epi32(0, 3, 6, 1, 4, 7, 2, 5));
        g = _mm256_permutevar8x32_epi32(g, _mm256_setr_epi32(5, 0, 3, 6, 1, 4, 7, 2));
        b = _mm256_permutevar8x32_epi32(b, _mm256_setr_epi32(2, 5, 0, 3, 6, 1, 4, 7));
        _mm256_storeu_si256(static_cast<__m256i*>(p),
                            _mm256_blend_epi32(_mm256_blend_epi32(r, g, kBlend147), b, kBlend25));
        _mm256_storeu_si256(static_cast<__m256i*>(p) + 1,
                            _mm256_blend_epi32(_mm256_blend_epi32(b, r, kBlend147), g, kBlend25));
        _mm256_storeu_si256(static_cast<__m256i*>(p) + 2,
                            _mm256_blend_epi32(_mm256_blend_epi32(g, b, kBlend147), r, kBlend25));
    }
};

// ------------------------------------------------------------ pixel forms
// Each form gives the per-pixel arithmetic (one) and the same arithmetic on a
// vector of N pixels (vec), with its plane and interleaved loads.

struct Int16Io {
    using T = int16_t;
    using V = __m256i;
    static constexpr int N = 16;
    static V load(const T* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void store(T* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static void loadC3(const T* p, V& a, V& b, V& c) { C3x16::load(p, a, b, c); }
    static void storeC3(T* p, V a, V b, V c) { C3x16::store(p, a, b, c); }
};

struct Int32Io {
    using T = int32_t;
    using V = __m256i;
    static constexpr int N = 8;
    static V load(const T* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void store(T* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static void loadC3(const T* p, V& a, V& b, V& c) { C3x8::load(p, a, b, c); }
    static void storeC3(T* p, V a, V b, V c) { C3x8::store(p, a, b, c); }
};

struct FloatIo {
    using T = float;
    using V = __m256;
    static constexpr int N = 8;
    static V load(const T* p) { return _mm256_loadu_ps(p); }
    static void store(T* p, V v) { _mm256_storeu_ps(p, v); }
    static void loadC3(const T* p, V& a, V& b, V& c) {
        __m256i x, y, z;
        C3x8::load(p, x, y, z);
        a = _mm256_castsi256_ps(x);
        b = _mm256_castsi256_ps(y);
        c = _mm256_castsi256_ps(z);
    }
    static void storeC3(T* p, V a, V b, V c) {
        C3x8::store(p, _mm256_castps_si256(a), _mm256_castps_si256(b), _mm256_castps_si256(c));
    }
};

// Pairs of 16-bit lanes for the multiply-adds: lo holds pixels 0-3 and 8-11,
// hi pixels 4-7 and 12-15; packing lo and hi back restores the order.
inline __m256i pairLo(__m256i a, __m256i b) { return _mm256_unpacklo_epi16(a, b); }
inline __m256i pairHi(__m256i a, __m256i b) { return _mm256_unpackhi_epi16(a, b); }
inline __m256i coef(int16_t a, int16_t b) {
    return _mm256_set1_epi32(static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16) |
                                                  static_cast<uint16_t>(a)));
}

// RCT, 16 bits: sums in 32 bits, results kept to 16 bits.
struct Rct16Fwd : Int16Io {
    static void one(T i0, T i1, T i2, T& y0, T& y1, T& y2) {
        y0 = wrap16((int32_t{i0} + 2 * int32_t{i1} + i2) >> 2);
        y1 = wrap16(int32_t{i2} - i1);
        y2 = wrap16(int32_t{i0} - i1);
    }
    static void vec(V i0, V i1, V i2, V& y0, V& y1, V& y2) {
        const V k = coef(1, 1);
        // (i0 + i2) + (i1 + i1), as two pair sums per 32-bit lane.
        const V lo = _mm256_add_epi32(_mm256_madd_epi16(pairLo(i0, i2), k), _mm256_madd_epi16(pairLo(i1, i1), k));
        const V hi = _mm256_add_epi32(_mm256_madd_epi16(pairHi(i0, i2), k), _mm256_madd_epi16(pairHi(i1, i1), k));
        // The quarter of such a sum always fits in 16 bits.
        y0 = _mm256_packs_epi32(_mm256_srai_epi32(lo, 2), _mm256_srai_epi32(hi, 2));
        y1 = _mm256_sub_epi16(i2, i1);
        y2 = _mm256_sub_epi16(i0, i1);
    }
};

struct Rct16Inv : Int16Io {
    static void one(T y0, T y1, T y2, T& r, T& g, T& b) {
        const int32_t gg = int32_t{y0} - ((int32_t{y1} + y2) >> 2);
        r = wrap16(y2 + gg);
        g = wrap16(gg);
        b = wrap16(y1 + gg);
    }
    static void vec(V y0, V y1, V y2, V& r, V& g, V& b) {
        const V k = coef(1, 1);
        const V lo = _mm256_srai_epi32(_mm256_madd_epi16(pairLo(y1, y2), k), 2);
        const V hi = _mm256_srai_epi32(_mm256_madd_epi16(pairHi(y1, y2), k), 2);
        g = _mm256_sub_epi16(y0, _mm256_packs_epi32(lo, hi));
        r = _mm256_add_epi16(y2, g);
        b = _mm256_add_epi16(y1, g);
    }
};

// ICT, 16 bits: 14 fraction bits, 32-bit intermediates, saturated results.
// The forward form goes through the colour differences.
struct Ict16Fwd : Int16Io {
    static void one(T i0, T i1, T i2, T& y0, T& y1, T& y2) {
        const int32_t s = int32_t{i0} * 4899 + int32_t{i1} * 9617 + int32_t{i2} * 1868;
        y0 = sat16((s + 8192) >> 14);
        const int32_t d1 = wrap16((int32_t{i2} * 16384 - s + 8192) >> 14);
        y1 = sat16((d1 * 9246 + 8192) >> 14);
        const int32_t d2 = wrap16((int32_t{i0} * 16384 - s + 8192) >> 14);
        y2 = sat16((d2 * 11686 + 8192) >> 14);
    }
    // One half (8 pixels as 32-bit lanes) of the forward form.
    static void half(V p01, V p2r, V i0hi, V i2hi, V& y0, V& y1, V& y2) {
        // s + 8192 from the pairs (i0, i1) and (i2, 1).
        const V s = _mm256_add_epi32(_mm256_madd_epi16(p01, coef(4899, 9617)), _mm256_madd_epi16(p2r, coef(1868, 8192)));
        y0 = _mm256_srai_epi32(s, 14);
        // (i << 14) - s + 8192 = (i << 14) - (s + 8192) + 16384; i << 16 arrives
        // as the high half of a lane and is shifted down by two.
        const V r = _mm256_set1_epi32(16384);
        const V d1 = _mm256_srai_epi32(_mm256_add_epi32(_mm256_sub_epi32(_mm256_srai_epi32(i2hi, 2), s), r), 14);
        const V d2 = _mm256_srai_epi32(_mm256_add_epi32(_mm256_sub_epi32(_mm256_srai_epi32(i0hi, 2), s), r), 14);
        // Pair each difference's low 16 bits with a 1 for the rounding term.
        const V one = _mm256_set1_epi32(0x00010000);
        y1 = _mm256_srai_epi32(_mm256_madd_epi16(_mm256_blend_epi16(d1, one, 0xAA), coef(9246, 8192)), 14);
        y2 = _mm256_srai_epi32(_mm256_madd_epi16(_mm256_blend_epi16(d2, one, 0xAA), coef(11686, 8192)), 14);
    }
    static void vec(V i0, V i1, V i2, V& y0, V& y1, V& y2) {
        const V z = _mm256_setzero_si256(), ones = _mm256_set1_epi16(1);
        V a0, a1, a2, b0, b1, b2;
        half(pairLo(i0, i1), pairLo(i2, ones), pairLo(z, i0), pairLo(z, i2), a0, a1, a2);
        half(pairHi(i0, i1), pairHi(i2, ones), pairHi(z, i0), pairHi(z, i2), b0, b1, b2);
        y0 = _mm256_packs_epi32(a0, b0);
        y1 = _mm256_packs_epi32(a1, b1);
        y2 = _mm256_packs_epi32(a2, b2);
    }
};

struct Ict16Inv : Int16Io {
    static void one(T y0, T y1, T y2, T& r, T& g, T& b) {
        r = sat16(((int32_t{y2} * 22970 + 8192) >> 14) + y0);
        g = sat16(y0 - ((int32_t{y1} * 5638 + int32_t{y2} * 11700 + 8192) >> 14));
        b = sat16(((int32_t{y1} * 29032 + 8192) >> 14) + y0);
    }
    static void half(V p20, V p12, V p10, V y0w, V& r, V& g, V& b) {
        // ((y * c + 8192) >> 14) + y0 == (y * c + y0 * 16384 + 8192) >> 14.
        const V k = _mm256_set1_epi32(8192);
        r = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(p20, coef(22970, 16384)), k), 14);
        b = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(p10, coef(29032, 16384)), k), 14);
        const V q = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(p12, coef(5638, 11700)), k), 14);
        g = _mm256_sub_epi32(_mm256_srai_epi32(y0w, 16), q);
    }
    static void vec(V y0, V y1, V y2, V& r, V& g, V& b) {
        const V z = _mm256_setzero_si256();
        V r0, g0, b0, r1, g1, b1;
        half(pairLo(y2, y0), pairLo(y1, y2), pairLo(y1, y0), pairLo(z, y0), r0, g0, b0);
        half(pairHi(y2, y0), pairHi(y1, y2), pairHi(y1, y0), pairHi(z, y0), r1, g1, b1);
        r = _mm256_packs_epi32(r0, r1);
        g = _mm256_packs_epi32(g0, g1);
        b = _mm256_packs_epi32(b0, b1);
    }
};

// RCT, 32 bits: everything wraps at 32 bits.
struct Rct32Fwd : Int32Io {
    static void one(T i0, T i1, T i2, T& y0, T& y1, T& y2) {
        y0 = add32(add32(i0, shl32(i1, 1)), i2) >> 2;
        y1 = sub32(i2, i1);
        y2 = sub32(i0, i1);
    }
    static void vec(V i0, V i1, V i2, V& y0, V& y1, V& y2) {
        y0 = _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(i0, _mm256_slli_epi32(i1, 1)), i2), 2);
        y1 = _mm256_sub_epi32(i2, i1);
        y2 = _mm256_sub_epi32(i0, i1);
    }
};

struct Rct32Inv : Int32Io {
    static void one(T y0, T y1, T y2, T& r, T& g, T& b) {
        const int32_t gg = sub32(y0, add32(y1, y2) >> 2);
        r = add32(y2, gg);
        g = gg;
        b = add32(y1, gg);
    }
    static void vec(V y0, V y1, V y2, V& r, V& g, V& b) {
        g = _mm256_sub_epi32(y0, _mm256_srai_epi32(_mm256_add_epi32(y1, y2), 2));
        r = _mm256_add_epi32(y2, g);
        b = _mm256_add_epi32(y1, g);
    }
};

// ICT, float: each product rounded before its addition, left to right.
struct IctFFwd : FloatIo {
    static void one(T i0, T i1, T i2, T& y0, T& y1, T& y2) {
        y0 = i0 * 0.299f + i1 * 0.587f + i2 * 0.114f;
        y1 = i0 * -0.16875f + i1 * -0.33126f + i2 * 0.5f;
        y2 = i0 * 0.5f + i1 * -0.41869f + i2 * -0.08131f;
    }
    static V lin(V a, V b, V c, float ka, float kb, float kc) {
        const V s = _mm256_add_ps(_mm256_mul_ps(a, _mm256_set1_ps(ka)), _mm256_mul_ps(b, _mm256_set1_ps(kb)));
        return _mm256_add_ps(s, _mm256_mul_ps(c, _mm256_set1_ps(kc)));
    }
    static void vec(V i0, V i1, V i2, V& y0, V& y1, V& y2) {
        y0 = lin(i0, i1, i2, 0.299f, 0.587f, 0.114f);
        y1 = lin(i0, i1, i2, -0.16875f, -0.33126f, 0.5f);
        y2 = lin(i0, i1, i2, 0.5f, -0.41869f, -0.08131f);
    }
};

struct IctFInv : FloatIo {
    static void one(T y0, T y1, T y2, T& r, T& g, T& b) {
        r = y2 * 1.402f + y0;
        g = y1 * -0.34413f + y2 * -0.71414f + y0;
        b = y1 * 1.772f + y0;
    }
    static void vec(V y0, V y1, V y2, V& r, V& g, V& b) {
        r = _mm256_add_ps(_mm256_mul_ps(y2, _mm256_set1_ps(1.402f)), y0);
        const V s = _mm256_add_ps(_mm256_mul_ps(y1, _mm256_set1_ps(-0.34413f)), _mm256_mul_ps(y2, _mm256_set1_ps(-0.71414f)));
        g = _mm256_add_ps(s, y0);
        b = _mm256_add_ps(_mm256_mul_ps(y1, _mm256_set1_ps(1.772f)), y0);
    }
};

// ICT, 32 bits: 14 fraction bits, products and sums wrapping at 32 bits
// (the low 32 bits of each product, as the 32-bit lane multiply gives them).
struct Ict32Fwd : Int32Io {
    static void one(T i0, T i1, T i2, T& y0, T& y1, T& y2) {
        y0 = add32(add32(add32(mul32(i0, 4899), mul32(i1, 9617)), mul32(i2, 1868)), 8192) >> 14;
        y1 = add32(add32(add32(mul32(i0, -2765), mul32(i1, -5427)), shl32(i2, 13)), 8192) >> 14;
        y2 = add32(add32(add32(shl32(i0, 13), mul32(i1, -6860)), mul32(i2, -1332)), 8192) >> 14;
    }
    static V mul(V a, int32_t k) { return _mm256_mullo_epi32(a, _mm256_set1_epi32(k)); }
    static V sum(V a, V b, V c) {
        return _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(_mm256_add_epi32(a, b), c), _mm256_set1_epi32(8192)), 14);
    }
    static void vec(V i0, V i1, V i2, V& y0, V& y1, V& y2) {
        y0 = sum(mul(i0, 4899), mul(i1, 9617), mul(i2, 1868));
        y1 = sum(mul(i0, -2765), mul(i1, -5427), _mm256_slli_epi32(i2, 13));
        y2 = sum(_mm256_slli_epi32(i0, 13), mul(i1, -6860), mul(i2, -1332));
    }
};

struct Ict32Inv : Int32Io {
    static void one(T y0, T y1, T y2, T& r, T& g, T& b) {
        r = add32(add32(mul32(y2, 22970), 8192) >> 14, y0);
        g = add32(add32(add32(mul32(y2, -11700), mul32(y1, -5638)), 8192) >> 14, y0);
        b = add32(add32(mul32(y1, 29032), 8192) >> 14, y0);
    }
    static void vec(V y0, V y1, V y2, V& r, V& g, V& b) {
        const V k = _mm256_set1_epi32(8192);
        auto m = [](V a, int32_t c) { return _mm256_mullo_epi32(a, _mm256_set1_epi32(c)); };
        r = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(m(y2, 22970), k), 14), y0);
        g = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(m(y2, -11700), m(y1, -5638)), k), 14), y0);
        b = _mm256_add_epi32(_mm256_srai_epi32(_mm256_add_epi32(m(y1, 29032), k), 14), y0);
    }
};

// ------------------------------------------------------------ row drivers
// Vector blocks of N pixels, then single pixels. Every pixel reads its three
// inputs before writing its three outputs, so the planar form works in place.

template <class Op>
void rowP3P3(const typename Op::T* s0, const typename Op::T* s1, const typename Op::T* s2, typename Op::T* d0,
             typename Op::T* d1, typename Op::T* d2, int32_t w, bool vec) {
    int32_t j = 0;
    if (vec)
        for (; j + Op::N <= w; j += Op::N) {
            typename Op::V a, b, c;
            Op::vec(Op::load(s0 + j), Op::load(s1 + j), Op::load(s2 + j), a, b, c);
            Op::store(d0 + j, a);
            Op::store(d1 + j, b);
            Op::store(d2 + j, c);
        }
    for (; j < w; ++j) {
        const typename Op::T a = s0[j], b = s1[j], c = s2[j];
        Op::one(a, b, c, d0[j], d1[j], d2[j]);
    }
}

template <class Op>
void rowC3P3(const typename Op::T* src, typename Op::T* d0, typename Op::T* d1, typename Op::T* d2, int32_t w,
             bool vec) {
    int32_t j = 0;
    if (vec)
        for (; j + Op::N <= w; j += Op::N) {
            typename Op::V r, g, b, a0, a1, a2;
            Op::loadC3(src + 3 * j, r, g, b);
            Op::vec(r, g, b, a0, a1, a2);
            Op::store(d0 + j, a0);
            Op::store(d1 + j, a1);
            Op::store(d2 + j, a2);
        }
    for (; j < w; ++j) Op::one(src[3 * j], src[3 * j + 1], src[3 * j + 2], d0[j], d1[j], d2[j]);
}

template <class Op>
void rowP3C3(const typename Op::T* s0, const typename Op::T* s1, const typename Op::T* s2, typename Op::T* dst,
             int32_t w, bool vec) {
    int32_t j = 0;
    if (vec)
        for (; j + Op::N <= w; j += Op::N) {
            typename Op::V r, g, b;
            Op::vec(Op::load(s0 + j), Op::load(s1 + j), Op::load(s2 + j), r, g, b);
            Op::storeC3(dst + 3 * j, r, g, b);
        }
    for (; j < w; ++j) Op::one(s0[j], s1[j], s2[j], dst[3 * j], dst[3 * j + 1], dst[3 * j + 2]);
}

}  // namespace

bool planesAlike(const void* p0, const void* p1, const void* p2) {
    const uintptr_t a = reinterpret_cast<uintptr_t>(p0) & 15;
    return a == (reinterpret_cast<uintptr_t>(p1) & 15) && a == (reinterpret_cast<uintptr_t>(p2) & 15);
}

// 16-bit rows take the vector path only where the three planes are aligned alike.
#define ZEB_CT_DEFINE(name, Op, vecP3)                                                         \
    void name##_P3P3(const Op::T* s0, const Op::T* s1, const Op::T* s2, Op::T* d0, Op::T* d1, Op::T* d2,      \
                     int32_t w) {                                                                            \
        rowP3P3<Op>(s0, s1, s2, d0, d1, d2, w, vecP3);                                                       \
    }                                                                                                        \
    void name##_P3P3_c(const Op::T* s0, const Op::T* s1, const Op::T* s2, Op::T* d0, Op::T* d1, Op::T* d2,    \
                       int32_t w) {                                                                          \
        rowP3P3<Op>(s0, s1, s2, d0, d1, d2, w, false);                                                       \
    }

ZEB_CT_DEFINE(rctFwd16s, Rct16Fwd, planesAlike(d0, d1, d2) && planesAlike(s0, s1, s2))
ZEB_CT_DEFINE(rctInv16s, Rct16Inv, planesAlike(d0, d1, d2) && planesAlike(s0, s1, s2))
ZEB_CT_DEFINE(ictFwd16s, Ict16Fwd, planesAlike(d0, d1, d2) && planesAlike(s0, s1, s2))
ZEB_CT_DEFINE(ictInv16s, Ict16Inv, planesAlike(d0, d1, d2) && planesAlike(s0, s1, s2))
ZEB_CT_DEFINE(rctFwd32s, Rct32Fwd, true)
ZEB_CT_DEFINE(rctInv32s, Rct32Inv, true)
ZEB_CT_DEFINE(ictFwd32f, IctFFwd, true)
ZEB_CT_DEFINE(ictInv32f, IctFInv, true)
#undef ZEB_CT_DEFINE

#define ZEB_CT_TWINS(name, Op)                                                                               \
    void name##_P3P3(const Op::T* s0, const Op::T* s1, const Op::T* s2, Op::T* d0, Op::T* d1, Op::T* d2,      \
                     int32_t w) {                                                                            \
        rowP3P3<Op>(s0, s1, s2, d0, d1, d2, w, true);                                                        \
    }                                                                                                        \
    void name##_P3P3_c(const Op::T* s0, const Op::T* s1, const Op::T* s2, Op::T* d0, Op::T* d1, Op::T* d2,    \
                       int32_t w) {                                                                          \
        rowP3P3<Op>(s0, s1, s2, d0, d1, d2, w, false);                                                       \
    }

void rctFwd16s_C3P3(const int16_t* src, int16_t* d0, int16_t* d1, int16_t* d2, int32_t w) {
    rowC3P3<Rct16Fwd>(src, d0, d1, d2, w, planesAlike(d0, d1, d2));
}
void rctFwd16s_C3P3_c(const int16_t* src, int16_t* d0, int16_t* d1, int16_t* d2, int32_t w) {
    rowC3P3<Rct16Fwd>(src, d0, d1, d2, w, false);
}
void rctFwd32s_C3P3(const int32_t* src, int32_t* d0, int32_t* d1, int32_t* d2, int32_t w) {
    rowC3P3<Rct32Fwd>(src, d0, d1, d2, w, true);
}
void rctFwd32s_C3P3_c(const int32_t* src, int32_t* d0, int32_t* d1, int32_t* d2, int32_t w) {
    rowC3P3<Rct32Fwd>(src, d0, d1, d2, w, false);
}
void ictFwd32f_C3P3(const float* src, float* d0, float* d1, float* d2, int32_t w) {
    rowC3P3<IctFFwd>(src, d0, d1, d2, w, true);
}
void ictFwd32f_C3P3_c(const float* src, float* d0, float* d1, float* d2, int32_t w) {
    rowC3P3<IctFFwd>(src, d0, d1, d2, w, false);
}
void rctInv16s_P3C3(const int16_t* s0, const int16_t* s1, const int16_t* s2, int16_t* dst, int32_t w) {
    rowP3C3<Rct16Inv>(s0, s1, s2, dst, w, planesAlike(s0, s1, s2));
}
void rctInv16s_P3C3_c(const int16_t* s0, const int16_t* s1, const int16_t* s2, int16_t* dst, int32_t w) {
    rowP3C3<Rct16Inv>(s0, s1, s2, dst, w, false);
}
void rctInv32s_P3C3(const int32_t* s0, const int32_t* s1, const int32_t* s2, int32_t* dst, int32_t w) {
    rowP3C3<Rct32Inv>(s0, s1, s2, dst, w, true);
}
void rctInv32s_P3C3_c(const int32_t* s0, const int32_t* s1, const int32_t* s2, int32_t* dst, int32_t w) {
    rowP3C3<Rct32Inv>(s0, s1, s2, dst, w, false);
}
void ictInv32f_P3C3(const float* s0, const float* s1, const float* s2, float* dst, int32_t w) {
    rowP3C3<IctFInv>(s0, s1, s2, dst, w, true);
}
void ictInv32f_P3C3_c(const float* s0, const float* s1, const float* s2, float* dst, int32_t w) {
    rowP3C3<IctFInv>(s0, s1, s2, dst, w, false);
}

ZEB_CT_TWINS(ictFwd32s, Ict32Fwd)
ZEB_CT_TWINS(ictInv32s, Ict32Inv)

}  // namespace zeb::j2k

// ------------------------------------------------------------ exported operations

namespace {

template <class T>
inline T* row(T* base, int32_t step, int32_t y) {
    using B = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
    return reinterpret_cast<T*>(reinterpret_cast<B*>(base) + static_cast<intptr_t>(step) * y);
}

template <class T>
ZebStatus checkC3P3(const void* src, int srcStep, T* const dst[3], int dstStep, ZebSize roi) {
    if (!src || !dst || !dst[0] || !dst[1] || !dst[2]) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    return zebStatusOk;
}

template <class T>
ZebStatus checkP3C3(const T* const src[3], int srcStep, const void* dst, int dstStep, ZebSize roi) {
    if (!src || !src[0] || !src[1] || !src[2] || !dst) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    return zebStatusOk;
}

template <class T>
ZebStatus checkP3(T* const p[3], int step, ZebSize roi) {
    if (!p || !p[0] || !p[1] || !p[2]) return zebStatusNullPointer;
    if (step < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    return zebStatusOk;
}

template <class T, class K>
ZebStatus c3p3(const T* src, int srcStep, T* const dst[3], int dstStep, ZebSize roi, K kernel) {
    if (ZebStatus s = checkC3P3(src, srcStep, dst, dstStep, roi)) return s;
    for (int32_t y = 0; y < roi.height; ++y)
        kernel(row(src, srcStep, y), row(dst[0], dstStep, y), row(dst[1], dstStep, y), row(dst[2], dstStep, y),
               roi.width);
    return zebStatusOk;
}

template <class T, class K>
ZebStatus p3c3(const T* const src[3], int srcStep, T* dst, int dstStep, ZebSize roi, K kernel) {
    if (ZebStatus s = checkP3C3(src, srcStep, dst, dstStep, roi)) return s;
    for (int32_t y = 0; y < roi.height; ++y)
        kernel(row(src[0], srcStep, y), row(src[1], srcStep, y), row(src[2], srcStep, y), row(dst, dstStep, y),
               roi.width);
    return zebStatusOk;
}

template <class T, class K>
ZebStatus p3i(T* const p[3], int step, ZebSize roi, K kernel) {
    if (ZebStatus s = checkP3(p, step, roi)) return s;
    for (int32_t y = 0; y < roi.height; ++y) {
        T* a = row(p[0], step, y);
        T* b = row(p[1], step, y);
        T* c = row(p[2], step, y);
        kernel(a, b, c, a, b, c, roi.width);
    }
    return zebStatusOk;
}

}  // namespace

namespace j = zeb::j2k;

ZebStatus zebimpl::zebiRCTFwd_JPEG2K_16s_C3P3R(const Zeb16s* src, int srcStep, Zeb16s* dst[3], int dstStep,
                                               ZebSize roiSize) {
    return c3p3(src, srcStep, dst, dstStep, roiSize, j::rctFwd16s_C3P3);
}
ZebStatus zebimpl::zebiRCTFwd_JPEG2K_32s_C3P3R(const Zeb32s* src, int srcStep, Zeb32s* dst[3], int dstStep,
                                               ZebSize roiSize) {
    return c3p3(src, srcStep, dst, dstStep, roiSize, j::rctFwd32s_C3P3);
}
ZebStatus zebimpl::zebiICTFwd_JPEG2K_32f_C3P3R(const Zeb32f* src, int srcStep, Zeb32f* dst[3], int dstStep,
                                               ZebSize roiSize) {
    return c3p3(src, srcStep, dst, dstStep, roiSize, j::ictFwd32f_C3P3);
}
ZebStatus zebimpl::zebiRCTInv_JPEG2K_16s_P3C3R(const Zeb16s* const src[3], int srcStep, Zeb16s* dst, int dstStep,
                                               ZebSize roiSize) {
    return p3c3(src, srcStep, dst, dstStep, roiSize, j::rctInv16s_P3C3);
}
ZebStatus zebimpl::zebiRCTInv_JPEG2K_32s_P3C3R(const Zeb32s* const src[3], int srcStep, Zeb32s* dst, int dstStep,
                                               ZebSize roiSize) {
    return p3c3(src, srcStep, dst, dstStep, roiSize, j::rctInv32s_P3C3);
}
ZebStatus zebimpl::zebiICTInv_JPEG2K_32f_P3C3R(const Zeb32f* const src[3], int srcStep, Zeb32f* dst, int dstStep,
                                               ZebSize roiSize) {
    return p3c3(src, srcStep, dst, dstStep, roiSize, j::ictInv32f_P3C3);
}
ZebStatus zebimpl::zebiRCTFwd_JPEG2K_16s_P3IR(Zeb16s* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::rctFwd16s_P3P3);
}
ZebStatus zebimpl::zebiRCTFwd_JPEG2K_32s_P3IR(Zeb32s* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::rctFwd32s_P3P3);
}
ZebStatus zebimpl::zebiRCTInv_JPEG2K_16s_P3IR(Zeb16s* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::rctInv16s_P3P3);
}
ZebStatus zebimpl::zebiRCTInv_JPEG2K_32s_P3IR(Zeb32s* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::rctInv32s_P3P3);
}
ZebStatus zebimpl::zebiICTFwd_JPEG2K_16s_P3IR(Zeb16s* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::ictFwd16s_P3P3);
}
ZebStatus zebimpl::zebiICTFwd_JPEG2K_32s_P3IR(Zeb32s* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::ictFwd32s_P3P3);
}
ZebStatus zebimpl::zebiICTFwd_JPEG2K_32f_P3IR(Zeb32f* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::ictFwd32f_P3P3);
}
ZebStatus zebimpl::zebiICTInv_JPEG2K_16s_P3IR(Zeb16s* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::ictInv16s_P3P3);
}
ZebStatus zebimpl::zebiICTInv_JPEG2K_32s_P3IR(Zeb32s* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::ictInv32s_P3P3);
}
ZebStatus zebimpl::zebiICTInv_JPEG2K_32f_P3IR(Zeb32f* srcDst[3], int srcDstStep, ZebSize roiSize) {
    return p3i(srcDst, srcDstStep, roiSize, j::ictInv32f_P3P3);
}
