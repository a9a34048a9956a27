// Inverse colour conversion of whole regions: Y/Cb/Cr planes (full, 4:2:2 or
// 4:1:1 chroma, or interleaved 4:2:2) to RGB/BGR pixels, planes or packed
// 16-bit words, and YCCK to CMYK.
#include <cstring>

#include "frame/impl.h"
#include "frame/parallel.h"
#include "frame/simd.h"
#include "jpeg/colour/colour.h"

namespace zeb::colour {

namespace {

// Runs a 16-pixel block over n pixels; the last partial block goes through
// local buffers, so nothing outside the rows is read or written. The byte
// counts are per 16 pixels: a plane of one byte per pixel passes 16, a chroma
// plane with one sample per pair 8, three-byte pixels 48.
template <int NI, int NO, class Block>
inline void blocks16(const uint8_t* const (&in)[NI], const int (&inBytes)[NI], uint8_t* const (&out)[NO],
                     const int (&outBytes)[NO], int n, Block&& block) {
    int x = 0;
    for (; x + 16 <= n; x += 16) {
        const uint8_t* i2[NI];
        uint8_t* o2[NO];
        for (int k = 0; k < NI; ++k) i2[k] = in[k] + x / 16 * inBytes[k];
        for (int k = 0; k < NO; ++k) o2[k] = out[k] + x / 16 * outBytes[k];
        block(i2, o2);
    }
    if (x < n) {
        const int m = n - x;
        alignas(32) uint8_t ib[NI][64];
        alignas(32) uint8_t ob[NO][64];
        const uint8_t* i2[NI];
        uint8_t* o2[NO];
        for (int k = 0; k < NI; ++k) {
            std::memset(ib[k], 0, sizeof ib[k]);
            std::memcpy(ib[k], in[k] + x / 16 * inBytes[k], static_cast<size_t>((m * inBytes[k] + 15) / 16));
            i2[k] = ib[k];
        }
        for (int k = 0; k < NO; ++k) o2[k] = ob[k];
        block(i2, o2);
        for (int k = 0; k < NO; ++k)
            std::memcpy(out[k] + x / 16 * outBytes[k], ob[k], static_cast<size_t>((m * outBytes[k] + 15) / 16));
    }
}

// 32 pixels of the plane (PlaneForm) or pixel form. The bytes are widened to
// 16-bit lanes in two halves, pixels 0-7 with 16-23 and 8-15 with 24-31, so
// that the final unsigned pack (the clamp to 0..255) puts them back in order.
// Red and blue take one high-half multiply each; green sums both chroma
// samples with a pair multiply-add in 32 bits.
template <bool PlaneForm>
inline void inv32(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, __m256i& r, __m256i& g, __m256i& b) {
    const __m256i z = _mm256_setzero_si256();
    const __m256i cG = PlaneForm ? v::pair16(5638, 11700) : v::pair16(-5638, -11700);
    const __m256i kG = v::k32(PlaneForm ? -2211182 : 2227566);
    const __m256i vy = simd::loadu256(y), vb = simd::loadu256(cb), vr = simd::loadu256(cr);
    __m256i rr[2], gg[2], bb[2];
#pragma GCC unroll 2
    for (int h = 0; h < 2; ++h) {
        const __m256i y16 = h ? _mm256_unpackhi_epi8(vy, z) : _mm256_unpacklo_epi8(vy, z);
        const __m256i b16 = h ? _mm256_unpackhi_epi8(vb, z) : _mm256_unpacklo_epi8(vb, z);
        const __m256i r16 = h ? _mm256_unpackhi_epi8(vr, z) : _mm256_unpacklo_epi8(vr, z);
        rr[h] = _mm256_add_epi16(y16, v::redOffset(r16));
        bb[h] = _mm256_add_epi16(y16, PlaneForm ? v::bluePlaneOffset(b16) : v::bluePixelOffset(b16));
        const __m256i lo = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(b16, r16), cG), kG), 14);
        const __m256i hi = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(b16, r16), cG), kG), 14);
        const __m256i t = _mm256_packs_epi32(lo, hi);
        gg[h] = PlaneForm ? _mm256_sub_epi16(y16, t) : _mm256_add_epi16(y16, t);
    }
    r = _mm256_packus_epi16(rr[0], rr[1]);
    g = _mm256_packus_epi16(gg[0], gg[1]);
    b = _mm256_packus_epi16(bb[0], bb[1]);
}

template <bool Inv>
void rowInvPlaneVecT(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* const dst[3], int n) {
    int x = 0;
    for (; x + 32 <= n; x += 32) {
        __m256i r, g, b;
        inv32<true>(y + x, cb + x, cr + x, r, g, b);
        if (Inv) {
            const __m256i ff = _mm256_set1_epi8(-1);
            r = _mm256_xor_si256(r, ff);
            g = _mm256_xor_si256(g, ff);
            b = _mm256_xor_si256(b, ff);
        }
        simd::storeu256(dst[0] + x, r);
        simd::storeu256(dst[1] + x, g);
        simd::storeu256(dst[2] + x, b);
    }
    blocks16<3, 3>({y + x, cb + x, cr + x}, {16, 16, 16}, {dst[0] + x, dst[1] + x, dst[2] + x}, {16, 16, 16}, n - x,
                   [](const uint8_t* const* i, uint8_t* const* o) {
                       __m256i r, g, b;
                       v::invPlane(v::load16(i[0]), v::load16(i[1]), v::load16(i[2]), r, g, b);
                       __m128i r8 = v::toBytes(r), g8 = v::toBytes(g), b8 = v::toBytes(b);
                       if (Inv) {
                           const __m128i ff = _mm_set1_epi8(-1);
                           r8 = _mm_xor_si128(r8, ff);
                           g8 = _mm_xor_si128(g8, ff);
                           b8 = _mm_xor_si128(b8, ff);
                       }
                       simd::storeu128(o[0], r8);
                       simd::storeu128(o[1], g8);
                       simd::storeu128(o[2], b8);
                   });
}

template <Order O>
void rowInvPixelVecT(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n) {
    int x = 0;
    for (; x + 32 <= n; x += 32) {
        __m256i r, g, b;
        inv32<false>(y + x, cb + x, cr + x, r, g, b);
        if (O == kRGB) v::storeWeave3x32(dst + 3 * x, r, g, b);
        else v::storeWeave3x32(dst + 3 * x, b, g, r);
    }
    blocks16<3, 1>({y + x, cb + x, cr + x}, {16, 16, 16}, {dst + 3 * x}, {48}, n - x,
                   [](const uint8_t* const* i, uint8_t* const* o) {
        __m256i r, g, b;
        v::invPixel(v::load16(i[0]), v::load16(i[1]), v::load16(i[2]), r, g, b);
        if (O == kRGB) v::storePix16<3, 0, 1, 2>(o[0], r, g, b, r);
        else v::storePix16<3, 0, 1, 2>(o[0], b, g, r, r);
    });
}

// Clamps 16-bit lanes to 0..255.
inline __m256i clampLanes(__m256i x) { return _mm256_min_epi16(_mm256_max_epi16(x, _mm256_setzero_si256()), v::k16(255)); }

// 32 pixels of the plane form packed into 16-bit words. The colours are
// clamped bytes, so each half of a word is built with byte-wise shifts (a
// 16-bit shift and a mask) and the two halves are then interleaved.
template <bool Is565, Order O>
int invPackedSteps32(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint16_t* dst, int n) {
    auto b8 = [](int v) { return _mm256_set1_epi8(static_cast<char>(v)); };
    int x = 0;
    for (; x + 32 <= n; x += 32) {
        __m256i r, g, b;
        inv32<true>(y + x, cb + x, cr + x, r, g, b);
        const __m256i lo = O == kRGB ? r : b, hi = O == kRGB ? b : r;
        const __m256i low5 = _mm256_and_si256(_mm256_srli_epi16(lo, 3), b8(0x1F));
        __m256i wl, wh;
        if (Is565) {
            wl = _mm256_or_si256(low5, _mm256_and_si256(_mm256_slli_epi16(g, 3), b8(0xE0)));
            wh = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(g, 5), b8(0x07)), _mm256_and_si256(hi, b8(0xF8)));
        } else {
            wl = _mm256_or_si256(low5, _mm256_and_si256(_mm256_slli_epi16(g, 2), b8(0xE0)));
            wh = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(g, 6), b8(0x03)),
                                 _mm256_and_si256(_mm256_srli_epi16(hi, 1), b8(0x7C)));
        }
        const __m256i a = _mm256_unpacklo_epi8(wl, wh), c = _mm256_unpackhi_epi8(wl, wh);  // [0-7 | 16-23], [8-15 | 24-31]
        simd::storeu256(dst + x, _mm256_permute2x128_si256(a, c, 0x20));
        simd::storeu256(dst + x + 16, _mm256_permute2x128_si256(a, c, 0x31));
    }
    return x;
}

template <bool Is565, Order O>
void rowInvPackedVecT(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint16_t* dst, int n) {
    const int x = invPackedSteps32<Is565, O>(y, cb, cr, dst, n);
    y += x, cb += x, cr += x, dst += x, n -= x;
    blocks16<3, 1>({y, cb, cr}, {16, 16, 16}, {reinterpret_cast<uint8_t*>(dst)}, {32}, n,
                   [](const uint8_t* const* i, uint8_t* const* o) {
                       __m256i r, g, b;
                       v::invPlane(v::load16(i[0]), v::load16(i[1]), v::load16(i[2]), r, g, b);
                       r = clampLanes(r);
                       g = clampLanes(g);
                       b = clampLanes(b);
                       __m256i lo = O == kRGB ? r : b, hi = O == kRGB ? b : r, w;
                       if (Is565)
                           w = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(lo, 3), _mm256_slli_epi16(_mm256_srli_epi16(g, 2), 5)),
                                               _mm256_slli_epi16(_mm256_srli_epi16(hi, 3), 11));
                       else
                           w = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(lo, 3), _mm256_slli_epi16(_mm256_srli_epi16(g, 3), 5)),
                                               _mm256_slli_epi16(_mm256_srli_epi16(hi, 3), 10));
                       simd::storeu256(o[0], w);
                   });
}

// High-half form to three- or four-byte pixels, 32 per step. With one chroma sample
// per pair (Sub 2) the 16 samples are doubled as bytes first, so that every
// pixel computes the terms of its own sample.
template <int Sub, int P, Order O>
int invHighSteps32(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, uint8_t alpha) {
    const __m256i z = _mm256_setzero_si256(), al = _mm256_set1_epi8(static_cast<char>(alpha));
    int x = 0;
    for (; x + 32 <= n; x += 32) {
        const __m256i vy = simd::loadu256(y + x);
        __m256i vb, vr;
        if (Sub == 1) {
            vb = simd::loadu256(cb + x);
            vr = simd::loadu256(cr + x);
        } else {
            const __m128i b = simd::loadu128(cb + x / 2), r = simd::loadu128(cr + x / 2);
            vb = _mm256_set_m128i(_mm_unpackhi_epi8(b, b), _mm_unpacklo_epi8(b, b));
            vr = _mm256_set_m128i(_mm_unpackhi_epi8(r, r), _mm_unpacklo_epi8(r, r));
        }
        __m256i rr[2], gg[2], bb[2];
#pragma GCC unroll 2
        for (int h = 0; h < 2; ++h) {
            const __m256i y16 = _mm256_slli_epi16(h ? _mm256_unpackhi_epi8(vy, z) : _mm256_unpacklo_epi8(vy, z), 4);
            __m256i tr, tg, tb;
            v::invHighTerms(h ? _mm256_unpackhi_epi8(vb, z) : _mm256_unpacklo_epi8(vb, z),
                            h ? _mm256_unpackhi_epi8(vr, z) : _mm256_unpacklo_epi8(vr, z), tr, tg, tb);
            rr[h] = v::invHighApply(y16, tr);
            gg[h] = v::invHighApply(y16, tg);
            bb[h] = v::invHighApply(y16, tb);
        }
        const __m256i r = _mm256_packus_epi16(rr[0], rr[1]), g = _mm256_packus_epi16(gg[0], gg[1]),
                      b = _mm256_packus_epi16(bb[0], bb[1]);
        if (P == 3) {
            if (O == kRGB) v::storeWeave3x32(dst + 3 * x, r, g, b);
            else v::storeWeave3x32(dst + 3 * x, b, g, r);
        } else {
            if (O == kRGB) v::storeWeave4x32(dst + 4 * x, r, g, b, al);
            else v::storeWeave4x32(dst + 4 * x, b, g, r, al);
        }
    }
    return x;
}

// High-half form: Sub 1 full chroma, 2 one chroma sample per pixel pair.
template <int Sub, int P, Order O, bool A>
void rowInvHighVecT(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, uint8_t alpha) {
    {
        const int x = invHighSteps32<Sub, P, O>(y, cb, cr, dst, n, alpha);
        y += x, cb += x / Sub, cr += x / Sub, dst += P * x, n -= x;
    }
    const __m256i al = v::k16(alpha);
    auto block = [al](const uint8_t* const* i, uint8_t* const* o) {
        __m256i y16 = _mm256_slli_epi16(v::load16(i[0]), 4), vcb, vcr;
        if (Sub == 1) {
            vcb = v::load16(i[1]);
            vcr = v::load16(i[2]);
        } else {  // each chroma sample serves two pixels
            __m128i c = simd::load64(i[1]), d = simd::load64(i[2]);
            vcb = v::fromBytes(_mm_unpacklo_epi8(c, c));
            vcr = v::fromBytes(_mm_unpacklo_epi8(d, d));
        }
        __m256i tr, tg, tb;
        v::invHighTerms(vcb, vcr, tr, tg, tb);
        __m256i r = v::invHighApply(y16, tr), g = v::invHighApply(y16, tg), b = v::invHighApply(y16, tb);
        if (O == kRGB) v::storePix16<P, 0, 1, 2>(o[0], r, g, b, al);
        else v::storePix16<P, 0, 1, 2>(o[0], b, g, r, al);
        (void)A;
    };
    blocks16<3, 1>({y, cb, cr}, {16, 16 / Sub, 16 / Sub}, {dst}, {16 * P}, n, block);
}

void rowYcckPixVecImpl(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, const uint8_t* k, uint8_t* dst, int n) {
    int x = 0;
    for (; x + 32 <= n; x += 32) {  // 32 pixels of the plane form, complemented as clamped bytes
        __m256i r, g, b;
        inv32<true>(y + x, cb + x, cr + x, r, g, b);
        const __m256i ff = _mm256_set1_epi8(-1);
        v::storeWeave4x32(dst + 4 * x, _mm256_xor_si256(r, ff), _mm256_xor_si256(g, ff), _mm256_xor_si256(b, ff),
                          simd::loadu256(k + x));
    }
    y += x, cb += x, cr += x, k += x, dst += 4 * x, n -= x;
    blocks16<4, 1>({y, cb, cr, k}, {16, 16, 16, 16}, {dst}, {64}, n, [](const uint8_t* const* i, uint8_t* const* o) {
        __m256i r, g, b;
        v::invPlane(v::load16(i[0]), v::load16(i[1]), v::load16(i[2]), r, g, b);
        const __m256i full = v::k16(255);
        v::storePix16<4, 0, 1, 2>(o[0], _mm256_sub_epi16(full, clampLanes(r)), _mm256_sub_epi16(full, clampLanes(g)),
                                  _mm256_sub_epi16(full, clampLanes(b)), v::load16(i[3]));
    });
}

void rowPairVecImpl(const uint8_t* src, uint8_t* dst, int n) {
    alignas(32) static constexpr int8_t kY[32] = {0, -128, 2, -128, 4, -128, 6, -128, 8, -128, 10, -128, 12, -128, 14, -128,
                                                  0, -128, 2, -128, 4, -128, 6, -128, 8, -128, 10, -128, 12, -128, 14, -128};
    alignas(32) static constexpr int8_t kCb[32] = {1, -128, 1, -128, 5, -128, 5, -128, 9, -128, 9, -128, 13, -128, 13, -128,
                                                   1, -128, 1, -128, 5, -128, 5, -128, 9, -128, 9, -128, 13, -128, 13, -128};
    alignas(32) static constexpr int8_t kCr[32] = {3, -128, 3, -128, 7, -128, 7, -128, 11, -128, 11, -128, 15, -128, 15, -128,
                                                   3, -128, 3, -128, 7, -128, 7, -128, 11, -128, 11, -128, 15, -128, 15, -128};
    blocks16<1, 1>({src}, {32}, {dst}, {48}, n, [](const uint8_t* const* i, uint8_t* const* o) {
        auto ld = [](const int8_t* m) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(m)); };
        __m256i x = simd::loadu256(i[0]);
        __m256i y = _mm256_shuffle_epi8(x, ld(kY));
        __m256i cb7 = _mm256_slli_epi16(_mm256_shuffle_epi8(x, ld(kCb)), 7);
        __m256i cr7 = _mm256_slli_epi16(_mm256_shuffle_epi8(x, ld(kCr)), 7);
        // The high halves of the products with the sample << 7 are the products >> 9.
        __m256i r = _mm256_sub_epi16(_mm256_srli_epi16(_mm256_mulhi_epu16(cr7, v::k16(22970)), 5), v::k16(179));
        __m256i g = _mm256_add_epi16(_mm256_srai_epi16(_mm256_add_epi16(_mm256_mulhi_epi16(cr7, v::k16(-11700)),
                                                                          _mm256_mulhi_epi16(cb7, v::k16(-5638))), 5),
                                     v::k16(135));
        __m256i b = _mm256_sub_epi16(_mm256_srli_epi16(_mm256_mulhi_epu16(cb7, v::k16(29032)), 5), v::k16(226));
        v::storePix16<3, 0, 1, 2>(o[0], _mm256_add_epi16(y, r), _mm256_add_epi16(y, g), _mm256_add_epi16(y, b), y);
    });
}

}  // namespace

void rowInvPlaneVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* const dst[3], int n, bool invert) {
    invert ? rowInvPlaneVecT<true>(y, cb, cr, dst, n) : rowInvPlaneVecT<false>(y, cb, cr, dst, n);
}
void rowInvPlaneScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* const dst[3], int n, bool invert) {
    const uint8_t k = invert ? 255 : 0;
    for (int x = 0; x < n; ++x) {
        Rgb c = invPlane(y[x], cb[x], cr[x]);
        dst[0][x] = c.r ^ k;
        dst[1][x] = c.g ^ k;
        dst[2][x] = c.b ^ k;
    }
}

void rowInvPixelVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, Order o) {
    o == kRGB ? rowInvPixelVecT<kRGB>(y, cb, cr, dst, n) : rowInvPixelVecT<kBGR>(y, cb, cr, dst, n);
}
void rowInvPixelScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, Order o) {
    for (int x = 0; x < n; ++x) {
        Rgb c = invPixel(y[x], cb[x], cr[x]);
        dst[3 * x + (o == kRGB ? 0 : 2)] = c.r;
        dst[3 * x + 1] = c.g;
        dst[3 * x + (o == kRGB ? 2 : 0)] = c.b;
    }
}

void rowInvPackedVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint16_t* dst, int n, bool is565, Order o) {
    if (is565) o == kRGB ? rowInvPackedVecT<true, kRGB>(y, cb, cr, dst, n) : rowInvPackedVecT<true, kBGR>(y, cb, cr, dst, n);
    else o == kRGB ? rowInvPackedVecT<false, kRGB>(y, cb, cr, dst, n) : rowInvPackedVecT<false, kBGR>(y, cb, cr, dst, n);
}
static inline uint16_t packRgb(Rgb c, bool is565, Order o) {
    const int lo = o == kRGB ? c.r : c.b, hi = o == kRGB ? c.b : c.r;
    return is565 ? pack565(lo, c.g, hi) : pack555(lo, c.g, hi);
}
void rowInvPackedScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint16_t* dst, int n, bool is565, Order o) {
    for (int x = 0; x < n; ++x) {
        uint16_t w = packRgb(invPlane(y[x], cb[x], cr[x]), is565, o);
        std::memcpy(dst + x, &w, 2);
    }
}

void rowInvHighVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, int sub, int P, Order o,
                   uint8_t alpha, bool aligned) {
    (void)aligned;  // unaligned loads and stores cost the same on aligned rows
#define ZEB_HIGH_CASE(SS, PP, OO)                                                          \
    if (sub == SS && P == PP && o == OO) {                                                 \
        rowInvHighVecT<SS, PP, OO, false>(y, cb, cr, dst, n, alpha);                       \
        return;                                                                            \
    }
    ZEB_HIGH_CASE(1, 3, kRGB) ZEB_HIGH_CASE(1, 3, kBGR) ZEB_HIGH_CASE(1, 4, kRGB) ZEB_HIGH_CASE(1, 4, kBGR)
    ZEB_HIGH_CASE(2, 3, kRGB) ZEB_HIGH_CASE(2, 3, kBGR) ZEB_HIGH_CASE(2, 4, kRGB) ZEB_HIGH_CASE(2, 4, kBGR)
#undef ZEB_HIGH_CASE
}
void rowInvHighScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst, int n, int sub, int P,
                      Order o, uint8_t alpha) {
    for (int x = 0; x < n; ++x) {
        Rgb c = invHighApply(y[x], invHighTerms(cb[x / sub], cr[x / sub]));
        uint8_t* p = dst + P * x;
        p[o == kRGB ? 0 : 2] = c.r;
        p[1] = c.g;
        p[o == kRGB ? 2 : 0] = c.b;
        if (P == 4) p[3] = alpha;
    }
}

void rowYcckPixVec(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, const uint8_t* k, uint8_t* dst, int n) {
    rowYcckPixVecImpl(y, cb, cr, k, dst, n);
}
void rowYcckPixScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, const uint8_t* k, uint8_t* dst, int n) {
    for (int x = 0; x < n; ++x) {
        Rgb c = invPlane(y[x], cb[x], cr[x]);
        dst[4 * x] = 255 - c.r;
        dst[4 * x + 1] = 255 - c.g;
        dst[4 * x + 2] = 255 - c.b;
        dst[4 * x + 3] = k[x];
    }
}

void rowPairVec(const uint8_t* src, uint8_t* dst, int n) { rowPairVecImpl(src, dst, n); }
void rowPairScalar(const uint8_t* src, uint8_t* dst, int n) {
    for (int x = 0; x < n; x += 2) {
        const uint8_t* p = src + 2 * x;
        HighTerms t = pairTerms(p[1], p[3]);
        for (int k = 0; k < 2 && x + k < n; ++k) {
            Rgb c = pairApply(p[2 * k], t);
            dst[3 * (x + k)] = c.r;
            dst[3 * (x + k) + 1] = c.g;
            dst[3 * (x + k) + 2] = c.b;
        }
    }
}

}  // namespace zeb::colour

// ---------------------------------------------------------------- whole-image drivers

namespace {

using namespace zeb::colour;
using zeb::rowPtr;

inline int down4(int w) { return w & ~3; }
inline int down8(int w) { return w & ~7; }
template <class T>
inline bool a16(T p) { return (reinterpret_cast<uintptr_t>(p) & 15) == 0; }

inline bool nullPlanes(const Zeb8u* const* p, int n) {
    if (!p) return true;
    for (int i = 0; i < n; ++i)
        if (!p[i]) return true;
    return false;
}

inline void putPixel(uint8_t* p, Rgb c, Order o) {
    p[o == kRGB ? 0 : 2] = c.r;
    p[1] = c.g;
    p[o == kRGB ? 2 : 0] = c.b;
}

ZebStatus toPixelsP3C3(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep, ZebSize roi, Order o) {
    if (nullPlanes(src, 3) || !dst) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    const Zeb8u* const s[3] = {src[0], src[1], src[2]};
    const int w = roi.width, nb = down4(w);
    zeb::parallel_rows(w, roi.height, [=, &s](int32_t y) {
        const uint8_t *py = rowPtr(s[0], srcStep, y), *pb = rowPtr(s[1], srcStep, y), *pr = rowPtr(s[2], srcStep, y);
        uint8_t* d = rowPtr(dst, dstStep, y);
        rowInvPixelVec(py, pb, pr, d, nb, o);
        for (int x = nb; x < w; ++x) putPixel(d + 3 * x, invTable(py[x], pb[x], pr[x]), o);
    });
    return zebStatusOk;
}

ZebStatus toPixelsP3C4(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep, ZebSize roi, Zeb8u alpha,
                       Order o) {
    if (nullPlanes(src, 3) || !dst) return zebStatusNullPointer;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    const bool aligned = a16(src[0]) && a16(src[1]) && a16(src[2]) && a16(dst) && srcStep % 16 == 0 && dstStep % 16 == 0;
    for (int y = 0; y < roi.height; ++y)
        rowInvHighVec(rowPtr(src[0], srcStep, y), rowPtr(src[1], srcStep, y), rowPtr(src[2], srcStep, y),
                      rowPtr(dst, dstStep, y), roi.width, 1, 4, o, alpha, aligned);
    return zebStatusOk;
}

ZebStatus toPacked(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep, ZebSize roi, bool is565, Order o) {
    if (nullPlanes(src, 3) || !dst) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    const int w = roi.width, nb = down4(w);
    for (int y = 0; y < roi.height; ++y) {
        const uint8_t *py = rowPtr(src[0], srcStep, y), *pb = rowPtr(src[1], srcStep, y), *pr = rowPtr(src[2], srcStep, y);
        uint16_t* d = rowPtr(dst, dstStep, y);
        rowInvPackedVec(py, pb, pr, d, nb, is565, o);
        for (int x = nb; x < w; ++x) {
            Rgb c = invTable(py[x], pb[x], pr[x]);
            const int lo = o == kRGB ? c.r : c.b, hi = o == kRGB ? c.b : c.r;
            uint16_t word = is565 ? pack565(lo, c.g, hi) : pack555(lo, c.g, hi);
            std::memcpy(d + x, &word, 2);
        }
    }
    return zebStatusOk;
}

// 4:2:2 (rows 1) and 4:1:1 (rows 2) planes to three- or four-byte pixels.
ZebStatus fromSub(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roi, int P,
                  Zeb8u alpha, Order o, int rows) {
    if (nullPlanes(src, 3) || !dst) return zebStatusNullPointer;
    if (roi.width < 2 || roi.height < rows) return zebStatusBadSize;
    const int w = roi.width & ~1, h = rows == 2 ? roi.height & ~1 : roi.height;
    const bool aligned = a16(src[0]) && a16(src[1]) && a16(src[2]) && a16(dst) && srcStep[0] % 16 == 0 &&
                         srcStep[1] % 16 == 0 && srcStep[2] % 16 == 0 && dstStep % 16 == 0;
    for (int y = 0; y < h; ++y) {
        const int cy = y / rows;
        rowInvHighVec(rowPtr(src[0], srcStep[0], y), rowPtr(src[1], srcStep[1], cy), rowPtr(src[2], srcStep[2], cy),
                      rowPtr(dst, dstStep, y), w, 2, P, o, alpha, aligned);
    }
    const bool odd = (roi.width & 1) || (rows == 2 && (roi.height & 1));
    return odd ? zebStatusOddSize : zebStatusOk;
}

// YCCK planes to CMYK, as four planes or as four-byte pixels.
template <bool Pixels>
ZebStatus fromYcck(const Zeb8u* const src[4], int srcStep, Zeb8u* const* dstPlanes, Zeb8u* dstPix, int dstStep,
                   ZebSize roi) {
    const int w = roi.width, nb = down4(w);
    const Zeb8u* const s[4] = {src[0], src[1], src[2], src[3]};
    Zeb8u* const d[4] = {Pixels ? nullptr : dstPlanes[0], Pixels ? nullptr : dstPlanes[1],
                         Pixels ? nullptr : dstPlanes[2], Pixels ? nullptr : dstPlanes[3]};
    zeb::parallel_rows(w, roi.height, [=, &s, &d](int32_t y) {
        const uint8_t *py = rowPtr(s[0], srcStep, y), *pb = rowPtr(s[1], srcStep, y), *pr = rowPtr(s[2], srcStep, y);
        const uint8_t* pk = rowPtr(s[3], srcStep, y);
        if (Pixels) {
            uint8_t* row = rowPtr(dstPix, dstStep, y);
            rowYcckPixVec(py, pb, pr, pk, row, nb);
            for (int x = nb; x < w; ++x) {
                Rgb v = invTable(py[x], pb[x], pr[x]);
                uint8_t* p = row + 4 * x;
                p[0] = 255 - v.r;
                p[1] = 255 - v.g;
                p[2] = 255 - v.b;
                p[3] = pk[x];
            }
        } else {
            uint8_t* const row[3] = {rowPtr(d[0], dstStep, y), rowPtr(d[1], dstStep, y), rowPtr(d[2], dstStep, y)};
            rowInvPlaneVec(py, pb, pr, row, nb, true);
            for (int x = nb; x < w; ++x) {
                Rgb v = invTable(py[x], pb[x], pr[x]);
                row[0][x] = 255 - v.r;
                row[1][x] = 255 - v.g;
                row[2][x] = 255 - v.b;
            }
            std::memcpy(rowPtr(d[3], dstStep, y), pk, static_cast<size_t>(w));
        }
    });
    return zebStatusOk;
}

}  // namespace

// ---------------------------------------------------------------- exported entries

ZebStatus zebimpl::zebiYCbCrToRGB_JPEG_8u_P3R(const Zeb8u* const src[3], int srcStep, Zeb8u* const dst[3], int dstStep,
                                              ZebSize roiSize) {
    if (nullPlanes(src, 3) || nullPlanes(dst, 3)) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    const Zeb8u* const s[3] = {src[0], src[1], src[2]};
    Zeb8u* const d[3] = {dst[0], dst[1], dst[2]};
    const int w = roiSize.width, nb = down4(w);
    zeb::parallel_rows(w, roiSize.height, [=, &s, &d](int32_t y) {
        const uint8_t *py = rowPtr(s[0], srcStep, y), *pb = rowPtr(s[1], srcStep, y), *pr = rowPtr(s[2], srcStep, y);
        uint8_t* const row[3] = {rowPtr(d[0], dstStep, y), rowPtr(d[1], dstStep, y), rowPtr(d[2], dstStep, y)};
        rowInvPlaneVec(py, pb, pr, row, nb, false);
        for (int x = nb; x < w; ++x) {
            Rgb c = invTable(py[x], pb[x], pr[x]);
            row[0][x] = c.r;
            row[1][x] = c.g;
            row[2][x] = c.b;
        }
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiYCbCrToRGB_JPEG_8u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep,
                                                ZebSize roiSize) {
    return toPixelsP3C3(src, srcStep, dst, dstStep, roiSize, kRGB);
}
ZebStatus zebimpl::zebiYCbCrToBGR_JPEG_8u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep,
                                                ZebSize roiSize) {
    return toPixelsP3C3(src, srcStep, dst, dstStep, roiSize, kBGR);
}
ZebStatus zebimpl::zebiYCbCrToRGB_JPEG_8u_P3C4R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep,
                                                ZebSize roiSize, Zeb8u alpha) {
    return toPixelsP3C4(src, srcStep, dst, dstStep, roiSize, alpha, kRGB);
}
ZebStatus zebimpl::zebiYCbCrToBGR_JPEG_8u_P3C4R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep,
                                                ZebSize roiSize, Zeb8u alpha) {
    return toPixelsP3C4(src, srcStep, dst, dstStep, roiSize, alpha, kBGR);
}

ZebStatus zebimpl::zebiYCbCrToRGB555_JPEG_8u16u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep,
                                                      ZebSize roiSize) {
    return toPacked(src, srcStep, dst, dstStep, roiSize, false, kRGB);
}
ZebStatus zebimpl::zebiYCbCrToBGR555_JPEG_8u16u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep,
                                                      ZebSize roiSize) {
    return toPacked(src, srcStep, dst, dstStep, roiSize, false, kBGR);
}
ZebStatus zebimpl::zebiYCbCrToRGB565_JPEG_8u16u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep,
                                                      ZebSize roiSize) {
    return toPacked(src, srcStep, dst, dstStep, roiSize, true, kRGB);
}
ZebStatus zebimpl::zebiYCbCrToBGR565_JPEG_8u16u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep,
                                                      ZebSize roiSize) {
    return toPacked(src, srcStep, dst, dstStep, roiSize, true, kBGR);
}

ZebStatus zebimpl::zebiYCbCr422ToRGB_JPEG_8u_P3C3R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst,
                                                   int dstStep, ZebSize roiSize) {
    return fromSub(src, srcStep, dst, dstStep, roiSize, 3, 0, kRGB, 1);
}
ZebStatus zebimpl::zebiYCbCr422ToBGR_JPEG_8u_P3C3R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst,
                                                   int dstStep, ZebSize roiSize) {
    return fromSub(src, srcStep, dst, dstStep, roiSize, 3, 0, kBGR, 1);
}
ZebStatus zebimpl::zebiYCbCr422ToRGB_JPEG_8u_P3C4R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst,
                                                   int dstStep, ZebSize roiSize, Zeb8u alpha) {
    return fromSub(src, srcStep, dst, dstStep, roiSize, 4, alpha, kRGB, 1);
}
ZebStatus zebimpl::zebiYCbCr422ToBGR_JPEG_8u_P3C4R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst,
                                                   int dstStep, ZebSize roiSize, Zeb8u alpha) {
    return fromSub(src, srcStep, dst, dstStep, roiSize, 4, alpha, kBGR, 1);
}
ZebStatus zebimpl::zebiYCbCr411ToRGB_JPEG_8u_P3C3R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst,
                                                   int dstStep, ZebSize roiSize) {
    return fromSub(src, srcStep, dst, dstStep, roiSize, 3, 0, kRGB, 2);
}
ZebStatus zebimpl::zebiYCbCr411ToBGR_JPEG_8u_P3C3R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst,
                                                   int dstStep, ZebSize roiSize) {
    return fromSub(src, srcStep, dst, dstStep, roiSize, 3, 0, kBGR, 2);
}
ZebStatus zebimpl::zebiYCbCr411ToRGB_JPEG_8u_P3C4R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst,
                                                   int dstStep, ZebSize roiSize, Zeb8u alpha) {
    return fromSub(src, srcStep, dst, dstStep, roiSize, 4, alpha, kRGB, 2);
}
ZebStatus zebimpl::zebiYCbCr411ToBGR_JPEG_8u_P3C4R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst,
                                                   int dstStep, ZebSize roiSize, Zeb8u alpha) {
    return fromSub(src, srcStep, dst, dstStep, roiSize, 4, alpha, kBGR, 2);
}

ZebStatus zebimpl::zebiYCbCr422ToRGB_JPEG_8u_C2C3R(const Zeb8u* src, int srcStep, Zeb8u* dst, int dstStep,
                                                   ZebSize roiSize) {
    if (!src || !dst) return zebStatusNullPointer;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    const int w = roiSize.width, nb = down8(w), we = (w + 1) & ~1;
    zeb::parallel_rows(w, roiSize.height, [=](int32_t y) {
        const uint8_t* s = rowPtr(src, srcStep, y);
        uint8_t* d = rowPtr(dst, dstStep, y);
        rowPairVec(s, d, nb);
        // The rest in pairs by the table form; an odd last pixel's pair is done whole.
        for (int x = nb; x < we; x += 2) {
            const uint8_t* p = s + 2 * x;
            putPixel(d + 3 * x, invTable(p[0], p[1], p[3]), kRGB);
            putPixel(d + 3 * x + 3, invTable(p[2], p[1], p[3]), kRGB);
        }
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiYCCKToCMYK_JPEG_8u_P4C4R(const Zeb8u* const src[4], int srcStep, Zeb8u* dst, int dstStep,
                                                ZebSize roiSize) {
    if (nullPlanes(src, 4) || !dst) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    return fromYcck<true>(src, srcStep, nullptr, dst, dstStep, roiSize);
}
ZebStatus zebimpl::zebiYCCKToCMYK_JPEG_8u_P4R(const Zeb8u* const src[4], int srcStep, Zeb8u* const dst[4], int dstStep,
                                              ZebSize roiSize) {
    if (nullPlanes(src, 4) || nullPlanes(dst, 4)) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    return fromYcck<false>(src, srcStep, dst, nullptr, dstStep, roiSize);
}
