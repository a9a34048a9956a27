// Colour conversion and sampling: the per-pixel fixed-point forms, the
// 16-lane vector forms that compute exactly the same integers, and the row
// kernels of the whole-image operations.
//
// Every form here is a small inline function so that the MCU operations can
// reuse it. A scalar form and its vector form give identical results for every
// input; which form a pixel gets is decided by the row drivers.
#pragma once

#include <immintrin.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/simd.h"

namespace zeb::colour {

// ---------------------------------------------------------------- scalar forms

inline uint8_t clamp8(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }
inline uint8_t clampHi(int32_t v) { return static_cast<uint8_t>(v > 255 ? 255 : v); }

struct Ycc {
    uint8_t y, cb, cr;
};
struct Rgb {
    uint8_t r, g, b;
};

// Forward, 15 fraction bits (the pair multiply-add blocks).
inline uint8_t y15(int r, int g, int b) { return static_cast<uint8_t>((9798 * r + 19235 * g + 3736 * b + 16266) >> 15); }
inline Ycc fwd15(int r, int g, int b) {
    return {y15(r, g, b), clampHi((-5529 * r - 10855 * g + 16384 * b + 4210688) >> 15),
            clampHi((16384 * r - 13720 * g - 2664 * b + 4210704) >> 15)};
}

// Forward, 14 fraction bits.
inline uint8_t y14(int r, int g, int b) { return static_cast<uint8_t>((4899 * r + 9617 * g + 1868 * b + 8192) >> 14); }
inline Ycc fwd14(int r, int g, int b) {
    return {y14(r, g, b), clampHi((-2764 * r - 5428 * g + 8192 * b + 2105344) >> 14),
            clampHi((8192 * r - 6860 * g - 1332 * b + 2105344) >> 14)};
}

// The four-channel tail form: 14-bit Y, its own chroma coefficients and bias.
inline Ycc fwdC4(int r, int g, int b) {
    return {y14(r, g, b), static_cast<uint8_t>((8192 * b - 5427 * g - 2765 * r + 2101248) >> 14),
            static_cast<uint8_t>((8192 * r - 6860 * g - 1332 * b + 2101248) >> 14)};
}

// Forward table form (16 fraction bits; reaches 0..255 by itself).
inline uint8_t yTable(int r, int g, int b) { return static_cast<uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16); }
inline Ycc fwdTable(int r, int g, int b) {
    return {yTable(r, g, b), static_cast<uint8_t>((-11059 * r - 21709 * g + 32768 * b + 8421375) >> 16),
            static_cast<uint8_t>((32768 * r - 27439 * g - 5329 * b + 8421375) >> 16)};
}

// Difference form: table-form Y, chroma from the colour differences.
inline Ycc fwdDiff(int r, int g, int b) {
    const int y = yTable(r, g, b);
    return {static_cast<uint8_t>(y), clamp8((18491 * (b - y) + 4210688) >> 15), clamp8((23373 * (r - y) + 4210688) >> 15)};
}

// Float form, Y only: single-precision products and sums, rounded to nearest even.
inline uint8_t yFloat(int r, int g, int b) {
    float s = (0.299f * static_cast<float>(r) + 0.587f * static_cast<float>(g)) + 0.114f * static_cast<float>(b);
    return clamp8(static_cast<int32_t>(std::nearbyint(s)));
}

// High-half form: every product truncated on its own. `cs` is the shift of
// the chroma products: 9 for single pixels, 10 for sums of 2, 11 for sums of 4.
inline uint8_t yHigh(int r, int g, int b) { return static_cast<uint8_t>((((r * 4899) >> 8) + ((g * 9617) >> 8) + ((b * 1868) >> 8) + 32) >> 6); }
inline uint8_t cbHigh(int r, int g, int b, int cs) {
    return clampHi((((b * 8192) >> cs) - (((r * 2765) >> cs) + ((g * 5427) >> cs)) + 4112) >> 5);
}
inline uint8_t crHigh(int r, int g, int b, int cs) {
    return clampHi((((r * 8192) >> cs) - (((g * 6860) >> cs) + ((b * 1332) >> cs)) + 4112) >> 5);
}
inline Ycc fwdHigh(int r, int g, int b) { return {yHigh(r, g, b), cbHigh(r, g, b, 9), crHigh(r, g, b, 9)}; }

// Chroma of the reduced-resolution tails from sums of 2 (422) or 4 (411) pixels.
inline uint8_t cbSum2(int sr, int sg, int sb) { return clampHi((8192 * sb - 5427 * sg - 2765 * sr + 4210688) >> 15); }
inline uint8_t crSum2(int sr, int sg, int sb) { return clampHi((8192 * sr - 6860 * sg - 1332 * sb + 4210688) >> 15); }
inline uint8_t cbSum4(int sr, int sg, int sb) { return clampHi((8192 * sb - 5427 * sg - 2765 * sr + 8421376) >> 16); }
inline uint8_t crSum4(int sr, int sg, int sb) { return clampHi((8192 * sr - 6860 * sg - 1332 * sb + 8421376) >> 16); }

// Inverse plane form (blocks of the planar outputs).
inline Rgb invPlane(int y, int cb, int cr) {
    return {clamp8(y + ((22970 * cr - 2932015) >> 14)), clamp8(y - ((5638 * cb + 11700 * cr - 2211182) >> 14)),
            clamp8(y + ((29032 * cb - 3708561) >> 14))};
}
// Inverse pixel form (blocks of the interleaved three-channel outputs).
inline Rgb invPixel(int y, int cb, int cr) {
    return {clamp8(y + ((22970 * cr - 2932015) >> 14)), clamp8(y + ((2227566 - 5638 * cb - 11700 * cr) >> 14)),
            clamp8(y + ((29032 * cb - 3707961) >> 14))};
}
// Inverse table form (row tails): the red and blue offsets are shifted on
// their own, the two green terms are summed and shifted once.
inline Rgb invTable(int y, int cb, int cr) {
    return {clamp8(y + ((91881 * (cr - 128) + 32768) >> 16)),
            clamp8(y + ((-22554 * (cb - 128) + 32768 - 46802 * (cr - 128)) >> 16)),
            clamp8(y + ((116130 * (cb - 128) + 32768) >> 16))};
}

// Inverse high-half form. The chroma terms (with the rounding 8 folded in)
// are computed once per chroma sample and then applied to each pixel.
struct HighTerms {
    int r, g, b;
};
inline HighTerms invHighTerms(int cb, int cr) {
    return {((cr * 11485) >> 9) - 2871 + 8, 2167 - (((cb * 2819) >> 9) + ((cr * 5850) >> 9)) + 8,
            ((cb * 14516) >> 9) - 3629 + 8};
}
inline Rgb invHighApply(int y, HighTerms t) {
    return {clamp8((16 * y + t.r) >> 4), clamp8((16 * y + t.g) >> 4), clamp8((16 * y + t.b) >> 4)};
}
inline Rgb invHigh(int y, int cb, int cr) { return invHighApply(y, invHighTerms(cb, cr)); }

// Pair form of the interleaved 4:2:2 input: offsets per pair, added to each Y.
inline HighTerms pairTerms(int cb, int cr) {
    return {(((cr * 22970) >> 9) >> 5) - 179, ((((cr * -11700) >> 9) + ((cb * -5638) >> 9)) >> 5) + 135,
            (((cb * 29032) >> 9) >> 5) - 226};
}
inline Rgb pairApply(int y, HighTerms t) { return {clamp8(y + t.r), clamp8(y + t.g), clamp8(y + t.b)}; }

// Packing into 16-bit words; the first colour of the name sits in the low bits.
inline uint16_t pack555(int lo, int mid, int hi) { return static_cast<uint16_t>((lo >> 3) | ((mid >> 3) << 5) | ((hi >> 3) << 10)); }
inline uint16_t pack565(int lo, int mid, int hi) { return static_cast<uint16_t>((lo >> 3) | ((mid >> 2) << 5) | ((hi >> 3) << 11)); }
// Unpacking widens each field by a left shift alone.
inline void unpack555(uint16_t x, int& lo, int& mid, int& hi) { lo = (x & 31) << 3; mid = (x & 992) >> 2; hi = (x & 31744) >> 7; }
inline void unpack565(uint16_t x, int& lo, int& mid, int& hi) { lo = (x & 31) << 3; mid = (x & 2016) >> 3; hi = (x & 63488) >> 8; }

// ---------------------------------------------------------------- vector forms
// 16 pixels per step: samples as 16-bit lanes of a 256-bit register, pixels
// 0-7 in the low 128-bit half and 8-15 in the high half.

namespace v {

inline __m256i k16(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
inline __m256i k32(int v) { return _mm256_set1_epi32(v); }
inline __m256i pair16(int lo, int hi) { return _mm256_set1_epi32(static_cast<int32_t>((static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16) | static_cast<uint16_t>(lo))); }

// (ca * a + cb * b + bias) >> shift, exact in 32 bits, packed back to 16-bit
// lanes with signed saturation (all results here fit).
inline __m256i lin2(__m256i a, __m256i b, int ca, int cb, int bias, int shift) {
    const __m256i c = pair16(ca, cb), k = k32(bias);
    const __m128i sh = _mm_cvtsi32_si128(shift);
    __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), c), k);
    __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), c), k);
    return _mm256_packs_epi32(_mm256_sra_epi32(lo, sh), _mm256_sra_epi32(hi, sh));
}
inline __m256i lin3(__m256i a, __m256i b, __m256i c, int ca, int cb, int cc, int bias, int shift) {
    const __m256i cab = pair16(ca, cb), ccz = pair16(cc, 0), k = k32(bias);
    const __m256i z = _mm256_setzero_si256();
    const __m128i sh = _mm_cvtsi32_si128(shift);
    __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), cab),
                                  _mm256_madd_epi16(_mm256_unpacklo_epi16(c, z), ccz));
    __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), cab),
                                  _mm256_madd_epi16(_mm256_unpackhi_epi16(c, z), ccz));
    lo = _mm256_sra_epi32(_mm256_add_epi32(lo, k), sh);
    hi = _mm256_sra_epi32(_mm256_add_epi32(hi, k), sh);
    return _mm256_packs_epi32(lo, hi);
}

// 16-bit lanes to bytes, clamped to 0..255: lanes 0-15 in order in 128 bits.
inline __m128i toBytes(__m256i x) {
    __m256i p = _mm256_packus_epi16(x, x);
    return _mm256_castsi256_si128(_mm256_permute4x64_epi64(p, 0x08));
}
inline __m256i fromBytes(__m128i x) { return _mm256_cvtepu8_epi16(x); }

inline void fwd15(__m256i r, __m256i g, __m256i b, __m256i& y, __m256i& cb, __m256i& cr) {
    y = lin3(r, g, b, 9798, 19235, 3736, 16266, 15);
    cb = lin3(r, g, b, -5529, -10855, 16384, 4210688, 15);
    cr = lin3(r, g, b, 16384, -13720, -2664, 4210704, 15);
}
inline __m256i y15(__m256i r, __m256i g, __m256i b) { return lin3(r, g, b, 9798, 19235, 3736, 16266, 15); }
inline void fwd14(__m256i r, __m256i g, __m256i b, __m256i& y, __m256i& cb, __m256i& cr) {
    y = lin3(r, g, b, 4899, 9617, 1868, 8192, 14);
    cb = lin3(r, g, b, -2764, -5428, 8192, 2105344, 14);
    cr = lin3(r, g, b, 8192, -6860, -1332, 2105344, 14);
}
// Table-form Y: 38470 G does not fit a 16-bit coefficient, so it is split
// into two halves of 19235, paired once with R and once with B.
inline __m256i yTable(__m256i r, __m256i g, __m256i b) {
    const __m256i c1 = pair16(19595, 19235), c2 = pair16(19235, 7471), k = k32(32768);
    __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(r, g), c1),
                                  _mm256_madd_epi16(_mm256_unpacklo_epi16(g, b), c2));
    __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(r, g), c1),
                                  _mm256_madd_epi16(_mm256_unpackhi_epi16(g, b), c2));
    return _mm256_packs_epi32(_mm256_srai_epi32(_mm256_add_epi32(lo, k), 16), _mm256_srai_epi32(_mm256_add_epi32(hi, k), 16));
}
inline void fwdDiff(__m256i r, __m256i g, __m256i b, __m256i& y, __m256i& cb, __m256i& cr) {
    y = yTable(r, g, b);
    // 18491 d + 4210688 as the pair (d, 257) times (18491, 16384).
    const __m256i one = k16(257);
    cb = lin2(_mm256_sub_epi16(b, y), one, 18491, 16384, 0, 15);
    cr = lin2(_mm256_sub_epi16(r, y), one, 23373, 16384, 0, 15);
}
inline __m256i yFloat(__m256i r, __m256i g, __m256i b) {
    const __m256 cr = _mm256_set1_ps(0.299f), cg = _mm256_set1_ps(0.587f), cb = _mm256_set1_ps(0.114f);
    auto half = [&](__m128i r8, __m128i g8, __m128i b8) {
        __m256 fr = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(r8));
        __m256 fg = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(g8));
        __m256 fb = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(b8));
        __m256 s = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(fr, cr), _mm256_mul_ps(fg, cg)), _mm256_mul_ps(fb, cb));
        return _mm256_cvtps_epi32(s);  // nearest, ties to even
    };
    __m256i lo = half(_mm256_castsi256_si128(r), _mm256_castsi256_si128(g), _mm256_castsi256_si128(b));
    __m256i hi = half(_mm256_extracti128_si256(r, 1), _mm256_extracti128_si256(g, 1), _mm256_extracti128_si256(b, 1));
    return _mm256_permute4x64_epi64(_mm256_packs_epi32(lo, hi), 0xD8);
}

// High-half products: the sample scaled into the upper bits of an unsigned
// 16-bit lane, times the coefficient, high half kept. hmul(x << 8, c) is
// (x c) >> 8 and hmul(x << 7, c) is (x c) >> 9.
inline __m256i hmul(__m256i xs, int c) { return _mm256_mulhi_epu16(xs, k16(c)); }
inline __m256i yHigh(__m256i r8, __m256i g8, __m256i b8) {  // inputs already << 8
    __m256i s = _mm256_add_epi16(_mm256_add_epi16(hmul(r8, 4899), hmul(g8, 9617)), _mm256_add_epi16(hmul(b8, 1868), k16(32)));
    return _mm256_srli_epi16(s, 6);
}
// Chroma of the high-half form; the inputs are pre-scaled so that hmul gives
// the product shifted by 9 (pixels << 7, sums of 2 << 6, sums of 4 << 5).
inline void chromaHigh(__m256i rs, __m256i gs, __m256i bs, __m256i& cb, __m256i& cr) {
    const __m256i k = k16(4112);
    cb = _mm256_srli_epi16(_mm256_add_epi16(_mm256_sub_epi16(hmul(bs, 8192), _mm256_add_epi16(hmul(rs, 2765), hmul(gs, 5427))), k), 5);
    cr = _mm256_srli_epi16(_mm256_add_epi16(_mm256_sub_epi16(hmul(rs, 8192), _mm256_add_epi16(hmul(gs, 6860), hmul(bs, 1332))), k), 5);
}

// Inverse plane and pixel forms.
inline void invPlane(__m256i y, __m256i cb, __m256i cr, __m256i& r, __m256i& g, __m256i& b) {
    const __m256i z = _mm256_setzero_si256();
    r = _mm256_add_epi16(y, lin2(cr, z, 22970, 0, -2932015, 14));
    g = _mm256_sub_epi16(y, lin2(cb, cr, 5638, 11700, -2211182, 14));
    b = _mm256_add_epi16(y, lin2(cb, z, 29032, 0, -3708561, 14));
}
inline void invPixel(__m256i y, __m256i cb, __m256i cr, __m256i& r, __m256i& g, __m256i& b) {
    const __m256i z = _mm256_setzero_si256();
    r = _mm256_add_epi16(y, lin2(cr, z, 22970, 0, -2932015, 14));
    g = _mm256_add_epi16(y, lin2(cb, cr, -5638, -11700, 2227566, 14));
    b = _mm256_add_epi16(y, lin2(cb, z, 29032, 0, -3707961, 14));
}
// Inverse high-half terms from chroma samples (16-bit lanes, not scaled).
inline void invHighTerms(__m256i cb, __m256i cr, __m256i& tr, __m256i& tg, __m256i& tb) {
    __m256i cb7 = _mm256_slli_epi16(cb, 7), cr7 = _mm256_slli_epi16(cr, 7);
    tr = _mm256_add_epi16(hmul(cr7, 11485), k16(-2871 + 8));
    tg = _mm256_sub_epi16(k16(2167 + 8), _mm256_add_epi16(hmul(cb7, 2819), hmul(cr7, 5850)));
    tb = _mm256_add_epi16(hmul(cb7, 14516), k16(-3629 + 8));
}
inline __m256i invHighApply(__m256i y16, __m256i t) { return _mm256_srai_epi16(_mm256_add_epi16(y16, t), 4); }

// ---------------------------------------------------------------- pixel layouts

// Shuffle masks that gather channel C of 8 interleaved pixels of P bytes into
// 16-bit lanes (in the low byte, or the high byte when Hi). The 8P bytes of a
// group sit in two registers: bytes 0-15 in the first, the rest in the second.
struct GatherMasks {
    alignas(32) int8_t a[32];
    alignas(32) int8_t b[32];
};
constexpr GatherMasks makeGather(int P, int C, bool hi) {
    GatherMasks m{};
    for (int i = 0; i < 32; ++i) m.a[i] = m.b[i] = -128;
    for (int lane = 0; lane < 2; ++lane)
        for (int k = 0; k < 8; ++k) {
            int pos = k * P + C, at = lane * 16 + 2 * k + (hi ? 1 : 0);
            if (pos < 16) m.a[at] = static_cast<int8_t>(pos);
            else m.b[at] = static_cast<int8_t>(pos - 16);
        }
    return m;
}
template <int P, int C, bool Hi>
inline constexpr GatherMasks kGather = makeGather(P, C, Hi);

template <int P>
struct Pix16 {
    __m256i a, b;
};
template <int P>
inline Pix16<P> loadPix16(const uint8_t* p) {
    static_assert(P == 3 || P == 4);
    if constexpr (P == 3)
        return {_mm256_set_m128i(simd::loadu128(p + 24), simd::loadu128(p)),
                _mm256_set_m128i(simd::load64(p + 40), simd::load64(p + 16))};
    else
        return {_mm256_set_m128i(simd::loadu128(p + 32), simd::loadu128(p)),
                _mm256_set_m128i(simd::loadu128(p + 48), simd::loadu128(p + 16))};
}
template <int P>
inline Pix16<P> loadPix16Aligned(const uint8_t* p) {
    if constexpr (P == 4)
        return {_mm256_set_m128i(_mm_load_si128(reinterpret_cast<const __m128i*>(p + 32)), _mm_load_si128(reinterpret_cast<const __m128i*>(p))),
                _mm256_set_m128i(_mm_load_si128(reinterpret_cast<const __m128i*>(p + 48)), _mm_load_si128(reinterpret_cast<const __m128i*>(p + 16)))};
    else
        return loadPix16<P>(p);
}
template <int P, int C, bool Hi = false>
inline __m256i chan(const Pix16<P>& px) {
    const GatherMasks& m = kGather<P, C, Hi>;
    return _mm256_or_si256(_mm256_shuffle_epi8(px.a, _mm256_load_si256(reinterpret_cast<const __m256i*>(m.a))),
                           _mm256_shuffle_epi8(px.b, _mm256_load_si256(reinterpret_cast<const __m256i*>(m.b))));
}

// Masks that scatter bytes into 8 interleaved pixels of P bytes. The sources
// are two registers per 128-bit half: x holds colours 0 and 1 (bytes 0-7 and
// 8-15), y holds colour 2 and the fourth byte. Order[c] names the colour
// (0, 1, 2, or 3 for the fourth byte) written at byte c of a pixel.
struct ScatterMasks {
    alignas(32) int8_t x0[32], y0[32], x1[32], y1[32];
};
constexpr ScatterMasks makeScatter(int P, int o0, int o1, int o2) {
    ScatterMasks m{};
    const int order[4] = {o0, o1, o2, 3};
    for (int lane = 0; lane < 2; ++lane)
        for (int j = 0; j < 16; ++j) {
            for (int part = 0; part < 2; ++part) {
                int pos = part * 16 + j;
                int8_t xs = -128, ys = -128;
                if (pos < 8 * P) {
                    int k = pos / P, colour = order[pos % P];
                    if (colour == 0) xs = static_cast<int8_t>(k);
                    else if (colour == 1) xs = static_cast<int8_t>(8 + k);
                    else if (colour == 2) ys = static_cast<int8_t>(k);
                    else ys = static_cast<int8_t>(8 + k);
                }
                int at = lane * 16 + j;
                if (part == 0) { m.x0[at] = xs; m.y0[at] = ys; }
                else { m.x1[at] = xs; m.y1[at] = ys; }
            }
        }
    return m;
}
template <int P, int O0, int O1, int O2>
inline constexpr ScatterMasks kScatter = makeScatter(P, O0, O1, O2);

// Stores 16 pixels. c0, c1, c2 are the colours (16-bit lanes, clamped by the
// pack), c3 the fourth byte; Order places them in the pixel.
template <int P, int O0, int O1, int O2>
inline void storePix16(uint8_t* p, __m256i c0, __m256i c1, __m256i c2, __m256i c3) {
    const ScatterMasks& m = kScatter<P, O0, O1, O2>;
    const __m256i x = _mm256_packus_epi16(c0, c1), y = _mm256_packus_epi16(c2, c3);
    auto ld = [](const int8_t* q) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(q)); };
    __m256i o0 = _mm256_or_si256(_mm256_shuffle_epi8(x, ld(m.x0)), _mm256_shuffle_epi8(y, ld(m.y0)));
    __m256i o1 = _mm256_or_si256(_mm256_shuffle_epi8(x, ld(m.x1)), _mm256_shuffle_epi8(y, ld(m.y1)));
    simd::storeu128(p, _mm256_castsi256_si128(o0));
    simd::storeu128(p + 8 * P, _mm256_extracti128_si256(o0, 1));
    if constexpr (P == 3) {
        simd::store64(p + 16, _mm256_castsi256_si128(o1));
        simd::store64(p + 8 * P + 16, _mm256_extracti128_si256(o1, 1));
    } else {
        simd::storeu128(p + 16, _mm256_castsi256_si128(o1));
        simd::storeu128(p + 8 * P + 16, _mm256_extracti128_si256(o1, 1));
    }
}


// ---------------------------------------------------------------- 32-pixel layouts
// Three-byte pixels straight into 32-bit lanes for the pair multiply-add: each
// 128-bit lane of a register takes four pixels (12 bytes). The low lane's
// pixels start at byte 0 of its 16 loaded bytes, the high lane's at byte 4, so
// that a group of 32 pixels is read as [12j | 44 + 12j] for j = 0..3 and no
// byte past the group's 96 is touched.
struct Mask32 {
    alignas(32) int8_t b[32];
};
inline __m256i ldMask(const Mask32& m) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(m.b)); }

// Each 32-bit lane gets (byte c0, byte c1) of its pixel as two 16-bit words;
// c1 < 0 leaves the upper word zero.
constexpr Mask32 makeSpread3(int c0, int c1) {
    Mask32 m{};
    for (int lane = 0; lane < 2; ++lane)
        for (int k = 0; k < 4; ++k) {
            const int at = lane * 16 + 4 * k, base = lane * 4 + 3 * k;
            m.b[at] = static_cast<int8_t>(base + c0);
            m.b[at + 1] = -128;
            m.b[at + 2] = static_cast<int8_t>(c1 < 0 ? -128 : base + c1);
            m.b[at + 3] = -128;
        }
    return m;
}
template <int C0, int C1>
inline constexpr Mask32 kSpread3 = makeSpread3(C0, C1);

// Register j (0..3) of a 32-pixel group: pixels 4j..4j+3 in the low lane and
// 16+4j..16+4j+3 in the high lane. Packing the results of registers 0,1 and
// 2,3 and then the two packs gives the 32 samples in order.
inline __m256i loadQuad3(const uint8_t* group, int j) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(simd::loadu128(group + 12 * j)),
                                   simd::loadu128(group + 44 + 12 * j), 1);
}

// Weaving three byte planes into three-byte pixels, 16 pixels per 128-bit
// lane: each plane is first permuted so that every byte sits where one of the
// three output parts needs it, then each part is two blends.
constexpr Mask32 makeWeaveShuffle(int c) {
    Mask32 m{};
    for (int lane = 0; lane < 2; ++lane)
        for (int i = 0; i < 16; ++i) {
            const int k = ((c - i) % 3 + 3) % 3;  // the part whose byte i is colour c
            m.b[lane * 16 + i] = static_cast<int8_t>((16 * k + i) / 3);
        }
    return m;
}
constexpr Mask32 makeWeaveSelect(int c) {  // bytes i with i % 3 == c
    Mask32 m{};
    for (int i = 0; i < 32; ++i) m.b[i] = static_cast<int8_t>((i % 16) % 3 == c ? -128 : 0);
    return m;
}
template <int C>
inline constexpr Mask32 kWeaveShuffle = makeWeaveShuffle(C);
template <int C>
inline constexpr Mask32 kWeaveSelect = makeWeaveSelect(C);

// Stores 32 three-byte pixels from three registers of 32 bytes (in pixel
// order); c0 lands at byte 0 of each pixel.
inline void storeWeave3x32(uint8_t* p, __m256i c0, __m256i c1, __m256i c2) {
    const __m256i a = _mm256_shuffle_epi8(c0, ldMask(kWeaveShuffle<0>));
    const __m256i b = _mm256_shuffle_epi8(c1, ldMask(kWeaveShuffle<1>));
    const __m256i c = _mm256_shuffle_epi8(c2, ldMask(kWeaveShuffle<2>));
    const __m256i s0 = ldMask(kWeaveSelect<0>), s1 = ldMask(kWeaveSelect<1>), s2 = ldMask(kWeaveSelect<2>);
    // Part k, byte i, holds colour (k + i) % 3.
    const __m256i p0 = _mm256_blendv_epi8(_mm256_blendv_epi8(a, b, s1), c, s2);
    const __m256i p1 = _mm256_blendv_epi8(_mm256_blendv_epi8(a, b, s0), c, s1);
    const __m256i p2 = _mm256_blendv_epi8(_mm256_blendv_epi8(a, b, s2), c, s0);
    simd::storeu128(p, _mm256_castsi256_si128(p0));
    simd::storeu128(p + 16, _mm256_castsi256_si128(p1));
    simd::storeu128(p + 32, _mm256_castsi256_si128(p2));
    simd::storeu128(p + 48, _mm256_extracti128_si256(p0, 1));
    simd::storeu128(p + 64, _mm256_extracti128_si256(p1, 1));
    simd::storeu128(p + 80, _mm256_extracti128_si256(p2, 1));
}

// Stores 32 four-byte pixels from four registers of 32 bytes (in pixel
// order); c0 lands at byte 0 of each pixel.
inline void storeWeave4x32(uint8_t* p, __m256i c0, __m256i c1, __m256i c2, __m256i c3) {
    const __m256i a = _mm256_unpacklo_epi8(c0, c1), b = _mm256_unpackhi_epi8(c0, c1);
    const __m256i c = _mm256_unpacklo_epi8(c2, c3), d = _mm256_unpackhi_epi8(c2, c3);
    const __m256i q0 = _mm256_unpacklo_epi16(a, c), q1 = _mm256_unpackhi_epi16(a, c);  // 0-3|16-19, 4-7|20-23
    const __m256i q2 = _mm256_unpacklo_epi16(b, d), q3 = _mm256_unpackhi_epi16(b, d);  // 8-11|24-27, 12-15|28-31
    simd::storeu256(p, _mm256_permute2x128_si256(q0, q1, 0x20));
    simd::storeu256(p + 32, _mm256_permute2x128_si256(q2, q3, 0x20));
    simd::storeu256(p + 64, _mm256_permute2x128_si256(q0, q1, 0x31));
    simd::storeu256(p + 96, _mm256_permute2x128_si256(q2, q3, 0x31));
}

// The red and blue offsets of the inverse plane and pixel forms from one
// chroma sample (16-bit lanes, 0..255) by one high-half multiply:
// hi16((4c + e) * k) + d equals ((k c + bias) >> 14) for every c in 0..255.
template <int E, int K, int D>
inline __m256i chromaOffset(__m256i c16) {
    return _mm256_add_epi16(_mm256_mulhi_epu16(_mm256_add_epi16(_mm256_slli_epi16(c16, 2), k16(E)), k16(K)), k16(D));
}
inline __m256i redOffset(__m256i cr16) { return chromaOffset<80, 22970, -207>(cr16); }            // (22970 cr - 2932015) >> 14
inline __m256i bluePixelOffset(__m256i cb16) { return chromaOffset<295, 29032, -357>(cb16); }     // (29032 cb - 3707961) >> 14
inline __m256i bluePlaneOffset(__m256i cb16) { return chromaOffset<243, 29032, -334>(cb16); }     // (29032 cb - 3708561) >> 14

inline __m256i load16(const uint8_t* p) { return fromBytes(simd::loadu128(p)); }
inline void store16(uint8_t* p, __m256i x) { simd::storeu128(p, toBytes(x)); }

}  // namespace v

// ---------------------------------------------------------------- row kernels
// Each vector row kernel has a scalar twin with the same arguments and the
// same results. `n` is the number of pixels the form covers.

enum Order { kRGB = 0, kBGR = 1 };

// Forward.
void rowY15Vec(const uint8_t* src, uint8_t* y, int n, Order o);
void rowY15Scalar(const uint8_t* src, uint8_t* y, int n, Order o);
void rowYFloatVec(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* y, int n);
void rowYFloatScalar(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* y, int n);
void rowYcc15Vec(const uint8_t* src, uint8_t* const dst[3], int n, Order o);
void rowYcc15Scalar(const uint8_t* src, uint8_t* const dst[3], int n, Order o);
void rowDiffVec(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* const dst[3], int n, bool invert);
void rowDiffScalar(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* const dst[3], int n, bool invert);
void rowHighC4Vec(const uint8_t* src, uint8_t* const dst[3], int n, Order o, bool aligned);
void rowHighC4Scalar(const uint8_t* src, uint8_t* const dst[3], int n, Order o);
void row14Vec(const uint8_t* src, uint8_t* const dst[3], int n, int pixelBytes, Order o, bool invert);
void row14Scalar(const uint8_t* src, uint8_t* const dst[3], int n, int pixelBytes, Order o, bool invert);
// The fourth byte of four-byte pixels (the K of CMYK).
void rowFourthVec(const uint8_t* src, uint8_t* k, int n);
void rowFourthScalar(const uint8_t* src, uint8_t* k, int n);
void rowPacked14Vec(const uint16_t* src, uint8_t* const dst[3], int n, bool is565, Order o);
void rowPacked14Scalar(const uint16_t* src, uint8_t* const dst[3], int n, bool is565, Order o);
// Sums of 2 (rows == 1) or 2 by 2 (rows == 2); `n` even; one chroma per pair.
void rowHighSubVec(const uint8_t* s0, const uint8_t* s1, int pixelBytes, uint8_t* y0, uint8_t* y1, uint8_t* cb,
                   uint8_t* cr, int n, Order o, bool aligned);
void rowHighSubScalar(const uint8_t* s0, const uint8_t* s1, int pixelBytes, uint8_t* y0, uint8_t* y1, uint8_t* cb,
                      uint8_t* cr, int n, Order o);

// Inverse.
void rowInvPlaneVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* const dst[3], int n, bool invert);
void rowInvPlaneScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* const dst[3], int n, bool invert);
void rowInvPixelVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, Order o);
void rowInvPixelScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, Order o);
void rowInvPackedVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint16_t* dst, int n, bool is565, Order o);
void rowInvPackedScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint16_t* dst, int n, bool is565, Order o);
// High-half form. `sub` is 1 (full chroma) or 2 (one chroma sample per pair);
// P is 3 or 4 bytes per output pixel; alpha goes to the fourth byte.
void rowInvHighVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, int sub, int P,
                   Order o, uint8_t alpha, bool aligned);
void rowInvHighScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, int sub, int P,
                      Order o, uint8_t alpha);
// Plane form, complemented, interleaved with K into four-byte pixels.
void rowYcckPixVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, const uint8_t* k, uint8_t* dst, int n);
void rowYcckPixScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, const uint8_t* k, uint8_t* dst, int n);
void rowPairVec(const uint8_t* src, uint8_t* dst, int n);
void rowPairScalar(const uint8_t* src, uint8_t* dst, int n);

// Sampling.
void rowDownH2V1Vec(const uint8_t* s, uint8_t* d, int n);
void rowDownH2V1Scalar(const uint8_t* s, uint8_t* d, int n);
void rowDownH2V2Vec(const uint8_t* s0, const uint8_t* s1, uint8_t* d, int n);
void rowDownH2V2Scalar(const uint8_t* s0, const uint8_t* s1, uint8_t* d, int n);
void rowUpH2V1Vec(const uint8_t* s, uint8_t* d, int n);
void rowUpH2V1Scalar(const uint8_t* s, uint8_t* d, int n);
void rowUpH2V2Vec(const uint8_t* near, const uint8_t* far, uint8_t* d, int n);
void rowUpH2V2Scalar(const uint8_t* near, const uint8_t* far, uint8_t* d, int n);
// Box down-sampling with the alternating bias: output i gets bias[(i + phase) & 1].
void rowBoxH2V1Vec(const uint8_t* s, uint8_t* d, int outputs, int phase);
void rowBoxH2V1Scalar(const uint8_t* s, uint8_t* d, int outputs, int phase);
void rowBoxH2V2Vec(const uint8_t* s0, const uint8_t* s1, uint8_t* d, int outputs);
void rowBoxH2V2Scalar(const uint8_t* s0, const uint8_t* s1, uint8_t* d, int outputs);

}  // namespace zeb::colour
