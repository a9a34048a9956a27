// Forward colour conversion of whole regions: RGB/BGR pixels or planes to Y,
// to Y/Cb/Cr at full, 4:2:2 or 4:1:1 chroma resolution, and CMYK to YCCK.
#include <cstring>

#include "frame/impl.h"
#include "frame/parallel.h"
#include "frame/simd.h"
#include "jpeg/colour/colour.h"

namespace zeb::colour {

namespace {

// Byte offsets of R, G, B in a pixel of the given order.
constexpr int offR(Order o) { return o == kRGB ? 0 : 2; }
constexpr int offB(Order o) { return o == kRGB ? 2 : 0; }

template <int P, Order O, bool Hi = false>
inline void gatherRGB(const v::Pix16<P>& px, __m256i& r, __m256i& g, __m256i& b) {
    r = v::chan<P, offR(O), Hi>(px);
    g = v::chan<P, 1, Hi>(px);
    b = v::chan<P, offB(O), Hi>(px);
}

// Runs a 16-pixel block function over n pixels; the last partial block goes
// through zero-filled local buffers so that no byte outside the row is read
// or written. `inBytes`/`outBytes` give the bytes per pixel of each stream.
template <int NI, int NO, class Block>
inline void blocks16(const uint8_t* const (&in)[NI], const int (&inBytes)[NI], uint8_t* const (&out)[NO],
                     const int (&outBytes)[NO], int n, Block&& block) {
    int x = 0;
    for (; x + 16 <= n; x += 16) {
        const uint8_t* i2[NI];
        uint8_t* o2[NO];
        for (int k = 0; k < NI; ++k) i2[k] = in[k] + x * inBytes[k];
        for (int k = 0; k < NO; ++k) o2[k] = out[k] + x * outBytes[k];
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
            std::memcpy(ib[k], in[k] + x * inBytes[k], static_cast<size_t>(m * inBytes[k]));
            i2[k] = ib[k];
        }
        for (int k = 0; k < NO; ++k) o2[k] = ob[k];
        block(i2, o2);
        for (int k = 0; k < NO; ++k) std::memcpy(out[k] + x * outBytes[k], ob[k], static_cast<size_t>(m * outBytes[k]));
    }
}

// The 15-bit form on 32 three-byte pixels per step. Each register holds
// eight pixels as the pairs (R, G) and (B, 1), so that two multiply-adds give
// a whole sum: the bias rides on the 1. The chroma biases are split as
// 128 * 2^15 plus a remainder that fits a 16-bit coefficient, and the 128 is
// added back on the bytes: a signed pack saturates t to -128..127 and
// flipping the top bit gives 128 + t clamped to 0..255, as clampHi does for
// sums that are never negative.
template <Order O, bool Chroma>
int ycc15Steps32(const uint8_t* src, uint8_t* y, uint8_t* cb, uint8_t* cr, int n) {
    const __m256i mRG = v::ldMask(v::kSpread3<offR(O), 1>), mB = v::ldMask(v::kSpread3<offB(O), -1>);
    const __m256i one = _mm256_set1_epi32(1 << 16), flip = _mm256_set1_epi8(-128);
    const __m256i yRG = v::pair16(9798, 19235), yB = v::pair16(3736, 16266);
    const __m256i cbRG = v::pair16(-5529, -10855), cbB = v::pair16(16384, 16384);
    const __m256i crRG = v::pair16(16384, -13720), crB = v::pair16(-2664, 16400);
    auto plane = [](const __m256i (&rg)[4], const __m256i (&b1)[4], __m256i cRG, __m256i cB, __m256i& lo, __m256i& hi) {
        __m256i s[4];
#pragma GCC unroll 4
        for (int j = 0; j < 4; ++j)
            s[j] = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(rg[j], cRG), _mm256_madd_epi16(b1[j], cB)), 15);
        lo = _mm256_packs_epi32(s[0], s[1]);
        hi = _mm256_packs_epi32(s[2], s[3]);
    };
    int x = 0;
    for (; x + 32 <= n; x += 32) {
        const uint8_t* p = src + 3 * x;
        _mm_prefetch(reinterpret_cast<const char*>(p + 768), _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char*>(p + 768 + 64), _MM_HINT_T0);
        __m256i rg[4], b1[4];
#pragma GCC unroll 4
        for (int j = 0; j < 4; ++j) {
            const __m256i raw = v::loadQuad3(p, j);
            rg[j] = _mm256_shuffle_epi8(raw, mRG);
            b1[j] = _mm256_or_si256(_mm256_shuffle_epi8(raw, mB), one);
        }
        __m256i lo, hi;
        plane(rg, b1, yRG, yB, lo, hi);
        simd::storeu256(y + x, _mm256_packus_epi16(lo, hi));
        if (Chroma) {
            plane(rg, b1, cbRG, cbB, lo, hi);
            simd::storeu256(cb + x, _mm256_xor_si256(_mm256_packs_epi16(lo, hi), flip));
            plane(rg, b1, crRG, crB, lo, hi);
            simd::storeu256(cr + x, _mm256_xor_si256(_mm256_packs_epi16(lo, hi), flip));
        }
    }
    return x;
}

template <Order O>
void rowY15VecT(const uint8_t* src, uint8_t* y, int n) {
    const int x = ycc15Steps32<O, false>(src, y, nullptr, nullptr, n);
    blocks16<1, 1>({src + 3 * x}, {3}, {y + x}, {1}, n - x, [](const uint8_t* const* i, uint8_t* const* o) {
        __m256i r, g, b;
        gatherRGB<3, O>(v::loadPix16<3>(i[0]), r, g, b);
        v::store16(o[0], v::y15(r, g, b));
    });
}

template <Order O>
void rowYcc15VecT(const uint8_t* src, uint8_t* const dst[3], int n) {
    const int x = ycc15Steps32<O, true>(src, dst[0], dst[1], dst[2], n);
    blocks16<1, 3>({src + 3 * x}, {3}, {dst[0] + x, dst[1] + x, dst[2] + x}, {1, 1, 1}, n - x,
                   [](const uint8_t* const* i, uint8_t* const* o) {
        __m256i r, g, b, y, cb, cr;
        gatherRGB<3, O>(v::loadPix16<3>(i[0]), r, g, b);
        v::fwd15(r, g, b, y, cb, cr);
        v::store16(o[0], y);
        v::store16(o[1], cb);
        v::store16(o[2], cr);
    });
}

// High-half form on four-byte pixels.
template <Order O, bool A>
void rowHighC4VecT(const uint8_t* src, uint8_t* const dst[3], int n) {
    blocks16<1, 3>({src}, {4}, {dst[0], dst[1], dst[2]}, {1, 1, 1}, n, [](const uint8_t* const* i, uint8_t* const* o) {
        v::Pix16<4> px = A ? v::loadPix16Aligned<4>(i[0]) : v::loadPix16<4>(i[0]);
        __m256i r8, g8, b8;
        gatherRGB<4, O, true>(px, r8, g8, b8);
        __m256i cb, cr;
        v::chromaHigh(_mm256_srli_epi16(r8, 1), _mm256_srli_epi16(g8, 1), _mm256_srli_epi16(b8, 1), cb, cr);
        v::store16(o[0], v::yHigh(r8, g8, b8));
        v::store16(o[1], cb);
        v::store16(o[2], cr);
    });
}

// 14-bit form on four-byte pixels (used by CMYK with inversion).
template <int P, Order O, bool Inv>
void row14VecT(const uint8_t* src, uint8_t* const dst[3], int n) {
    blocks16<1, 3>({src}, {P}, {dst[0], dst[1], dst[2]}, {1, 1, 1}, n, [](const uint8_t* const* i, uint8_t* const* o) {
        __m256i r, g, b, y, cb, cr;
        gatherRGB<P, O>(v::loadPix16<P>(i[0]), r, g, b);
        if (Inv) {
            const __m256i k = v::k16(255);
            r = _mm256_sub_epi16(k, r);
            g = _mm256_sub_epi16(k, g);
            b = _mm256_sub_epi16(k, b);
        }
        v::fwd14(r, g, b, y, cb, cr);
        v::store16(o[0], y);
        v::store16(o[1], cb);
        v::store16(o[2], cr);
    });
}

template <bool Is565, Order O>
void rowPacked14VecT(const uint16_t* src, uint8_t* const dst[3], int n) {
    const uint8_t* s = reinterpret_cast<const uint8_t*>(src);
    blocks16<1, 3>({s}, {2}, {dst[0], dst[1], dst[2]}, {1, 1, 1}, n, [](const uint8_t* const* i, uint8_t* const* o) {
        __m256i x = simd::loadu256(i[0]), lo, mid, hi;
        lo = _mm256_slli_epi16(_mm256_and_si256(x, v::k16(31)), 3);
        if (Is565) {
            mid = _mm256_srli_epi16(_mm256_and_si256(x, v::k16(2016)), 3);
            hi = _mm256_srli_epi16(_mm256_and_si256(x, v::k16(63488)), 8);
        } else {
            mid = _mm256_srli_epi16(_mm256_and_si256(x, v::k16(992)), 2);
            hi = _mm256_srli_epi16(_mm256_and_si256(x, v::k16(31744)), 7);
        }
        __m256i y, cb, cr;
        if (O == kRGB) v::fwd14(lo, mid, hi, y, cb, cr);
        else v::fwd14(hi, mid, lo, y, cb, cr);
        v::store16(o[0], y);
        v::store16(o[1], cb);
        v::store16(o[2], cr);
    });
}

// Pair sums of 16 pixels (16-bit lanes) into 8 sums, in 32-bit lanes.
inline __m256i pairSums(__m256i x) { return _mm256_madd_epi16(x, v::k16(1)); }
// 8 results from 32-bit lanes [0-3 | 4-7] stored as 8 bytes.
inline void storeHalf8(uint8_t* p, __m256i x16) {
    __m256i b = _mm256_packus_epi16(x16, x16);  // each half: its 4 results repeated
    __m128i lo = _mm256_castsi256_si128(b), hi = _mm256_extracti128_si256(b, 1);
    simd::store64(p, _mm_unpacklo_epi32(lo, hi));
}

// High-half form with chroma from sums of 2 (one row) or 2 by 2 (two rows).
template <int P, Order O, int Rows, bool A>
void rowHighSubVecT(const uint8_t* s0, const uint8_t* s1, uint8_t* y0, uint8_t* y1, uint8_t* cb, uint8_t* cr, int n) {
    // Blocks of 16 pixels give 8 chroma samples; n is a multiple of 8.
    auto block = [](const uint8_t* a0, const uint8_t* a1, uint8_t* oy0, uint8_t* oy1, uint8_t* ocb, uint8_t* ocr) {
        __m256i r, g, b;
        gatherRGB<P, O>(A ? v::loadPix16Aligned<P>(a0) : v::loadPix16<P>(a0), r, g, b);
        v::store16(oy0, v::yHigh(_mm256_slli_epi16(r, 8), _mm256_slli_epi16(g, 8), _mm256_slli_epi16(b, 8)));
        __m256i sr = pairSums(r), sg = pairSums(g), sb = pairSums(b);
        if (Rows == 2) {
            __m256i r1, g1, b1;
            gatherRGB<P, O>(A ? v::loadPix16Aligned<P>(a1) : v::loadPix16<P>(a1), r1, g1, b1);
            v::store16(oy1, v::yHigh(_mm256_slli_epi16(r1, 8), _mm256_slli_epi16(g1, 8), _mm256_slli_epi16(b1, 8)));
            sr = _mm256_add_epi32(sr, pairSums(r1));
            sg = _mm256_add_epi32(sg, pairSums(g1));
            sb = _mm256_add_epi32(sb, pairSums(b1));
        }
        constexpr int scale = Rows == 2 ? 5 : 6;  // so that the high half is the product >> 9 of the pixel scale
        __m256i qr = _mm256_slli_epi16(_mm256_packs_epi32(sr, sr), scale);
        __m256i qg = _mm256_slli_epi16(_mm256_packs_epi32(sg, sg), scale);
        __m256i qb = _mm256_slli_epi16(_mm256_packs_epi32(sb, sb), scale);
        __m256i vcb, vcr;
        v::chromaHigh(qr, qg, qb, vcb, vcr);
        storeHalf8(ocb, vcb);
        storeHalf8(ocr, vcr);
    };
    int x = 0;
    for (; x + 16 <= n; x += 16)
        block(s0 + x * P, Rows == 2 ? s1 + x * P : nullptr, y0 + x, Rows == 2 ? y1 + x : nullptr, cb + x / 2, cr + x / 2);
    if (x < n) {  // the block of 8, through local buffers
        const int m = n - x;
        alignas(32) uint8_t a0[64] = {}, a1[64] = {}, oy0[16], oy1[16], ocb[8], ocr[8];
        std::memcpy(a0, s0 + x * P, static_cast<size_t>(m * P));
        if (Rows == 2) std::memcpy(a1, s1 + x * P, static_cast<size_t>(m * P));
        block(a0, a1, oy0, oy1, ocb, ocr);
        std::memcpy(y0 + x, oy0, static_cast<size_t>(m));
        if (Rows == 2) std::memcpy(y1 + x, oy1, static_cast<size_t>(m));
        std::memcpy(cb + x / 2, ocb, static_cast<size_t>(m / 2));
        std::memcpy(cr + x / 2, ocr, static_cast<size_t>(m / 2));
    }
}

// The difference form on 32 pixels of three planes per step. The bytes are
// interleaved into the pairs (R, G) and (G, B) of 32-bit lanes for the table
// Y; the chroma (k d + 4210688) >> 15 is 128 plus the rounded high-half
// product of d and k, which a signed byte pack saturates and a flip of the
// top bit moves to 0..255, as the clamp does.
template <bool Inv>
int diffSteps32(const uint8_t* r0, const uint8_t* g0, const uint8_t* b0, uint8_t* const dst[3], int n) {
    const __m256i z = _mm256_setzero_si256(), flip = _mm256_set1_epi8(-128);
    const __m256i ones = _mm256_set1_epi8(static_cast<char>(Inv ? -1 : 0));
    const __m256i cRG = v::pair16(19595, 19235), cGB = v::pair16(19235, 7471), half = v::k32(32768);
    const __m256i kb = v::k16(18491), kr = v::k16(23373);
    int x = 0;
    for (; x + 32 <= n; x += 32) {
        const __m256i r = _mm256_xor_si256(simd::loadu256(r0 + x), ones);
        const __m256i g = _mm256_xor_si256(simd::loadu256(g0 + x), ones);
        const __m256i b = _mm256_xor_si256(simd::loadu256(b0 + x), ones);
        __m256i y16[2], cb16[2], cr16[2];
#pragma GCC unroll 2
        for (int h = 0; h < 2; ++h) {
            const __m256i rg = h ? _mm256_unpackhi_epi8(r, g) : _mm256_unpacklo_epi8(r, g);
            const __m256i gb = h ? _mm256_unpackhi_epi8(g, b) : _mm256_unpacklo_epi8(g, b);
            auto sum = [&](__m256i a, __m256i c) {
                return _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(a, cRG), _mm256_madd_epi16(c, cGB)), half), 16);
            };
            const __m256i lo = sum(_mm256_unpacklo_epi8(rg, z), _mm256_unpacklo_epi8(gb, z));
            const __m256i hi = sum(_mm256_unpackhi_epi8(rg, z), _mm256_unpackhi_epi8(gb, z));
            y16[h] = _mm256_packs_epi32(lo, hi);
            const __m256i b16 = h ? _mm256_unpackhi_epi8(b, z) : _mm256_unpacklo_epi8(b, z);
            const __m256i r16 = h ? _mm256_unpackhi_epi8(r, z) : _mm256_unpacklo_epi8(r, z);
            cb16[h] = _mm256_mulhrs_epi16(_mm256_sub_epi16(b16, y16[h]), kb);
            cr16[h] = _mm256_mulhrs_epi16(_mm256_sub_epi16(r16, y16[h]), kr);
        }
        simd::storeu256(dst[0] + x, _mm256_packus_epi16(y16[0], y16[1]));
        simd::storeu256(dst[1] + x, _mm256_xor_si256(_mm256_packs_epi16(cb16[0], cb16[1]), flip));
        simd::storeu256(dst[2] + x, _mm256_xor_si256(_mm256_packs_epi16(cr16[0], cr16[1]), flip));
    }
    return x;
}

template <bool Inv>
void rowDiffVecT(const uint8_t* r0, const uint8_t* g0, const uint8_t* b0, uint8_t* const dst[3], int n) {
    const int x = diffSteps32<Inv>(r0, g0, b0, dst, n);
    r0 += x, g0 += x, b0 += x, n -= x;
    blocks16<3, 3>({r0, g0, b0}, {1, 1, 1}, {dst[0] + x, dst[1] + x, dst[2] + x}, {1, 1, 1}, n,
                   [](const uint8_t* const* i, uint8_t* const* o) {
                       __m256i r = v::load16(i[0]), g = v::load16(i[1]), b = v::load16(i[2]);
                       if (Inv) {
                           const __m256i k = v::k16(255);
                           r = _mm256_sub_epi16(k, r);
                           g = _mm256_sub_epi16(k, g);
                           b = _mm256_sub_epi16(k, b);
                       }
                       __m256i y, cb, cr;
                       v::fwdDiff(r, g, b, y, cb, cr);
                       v::store16(o[0], y);
                       v::store16(o[1], cb);
                       v::store16(o[2], cr);
                   });
}

inline void px(const uint8_t* p, int P, Order o, int& r, int& g, int& b) {
    (void)P;
    r = p[offR(o)];
    g = p[1];
    b = p[offB(o)];
}
inline void put(uint8_t* const dst[3], int x, Ycc c) {
    dst[0][x] = c.y;
    dst[1][x] = c.cb;
    dst[2][x] = c.cr;
}

}  // namespace

// ---------------------------------------------------------------- row kernels and their scalar twins

void rowY15Vec(const uint8_t* src, uint8_t* y, int n, Order o) {
    o == kRGB ? rowY15VecT<kRGB>(src, y, n) : rowY15VecT<kBGR>(src, y, n);
}
void rowY15Scalar(const uint8_t* src, uint8_t* y, int n, Order o) {
    for (int x = 0; x < n; ++x) y[x] = y15(src[3 * x + offR(o)], src[3 * x + 1], src[3 * x + offB(o)]);
}

void rowYFloatVec(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* y, int n) {
    blocks16<3, 1>({r, g, b}, {1, 1, 1}, {y}, {1}, n, [](const uint8_t* const* i, uint8_t* const* o) {
        v::store16(o[0], v::yFloat(v::load16(i[0]), v::load16(i[1]), v::load16(i[2])));
    });
}
void rowYFloatScalar(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* y, int n) {
    for (int x = 0; x < n; ++x) y[x] = yFloat(r[x], g[x], b[x]);
}

void rowYcc15Vec(const uint8_t* src, uint8_t* const dst[3], int n, Order o) {
    o == kRGB ? rowYcc15VecT<kRGB>(src, dst, n) : rowYcc15VecT<kBGR>(src, dst, n);
}
void rowYcc15Scalar(const uint8_t* src, uint8_t* const dst[3], int n, Order o) {
    for (int x = 0; x < n; ++x) {
        int r, g, b;
        px(src + 3 * x, 3, o, r, g, b);
        put(dst, x, fwd15(r, g, b));
    }
}

void rowDiffVec(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* const dst[3], int n, bool invert) {
    invert ? rowDiffVecT<true>(r, g, b, dst, n) : rowDiffVecT<false>(r, g, b, dst, n);
}
void rowDiffScalar(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* const dst[3], int n, bool invert) {
    const int k = invert ? 255 : 0;
    for (int x = 0; x < n; ++x) put(dst, x, fwdDiff(k ^ r[x], k ^ g[x], k ^ b[x]));
}

void rowHighC4Vec(const uint8_t* src, uint8_t* const dst[3], int n, Order o, bool aligned) {
    if (o == kRGB) aligned ? rowHighC4VecT<kRGB, true>(src, dst, n) : rowHighC4VecT<kRGB, false>(src, dst, n);
    else aligned ? rowHighC4VecT<kBGR, true>(src, dst, n) : rowHighC4VecT<kBGR, false>(src, dst, n);
}
void rowHighC4Scalar(const uint8_t* src, uint8_t* const dst[3], int n, Order o) {
    for (int x = 0; x < n; ++x) {
        int r, g, b;
        px(src + 4 * x, 4, o, r, g, b);
        put(dst, x, fwdHigh(r, g, b));
    }
}

void row14Vec(const uint8_t* src, uint8_t* const dst[3], int n, int pixelBytes, Order o, bool invert) {
    if (pixelBytes == 4) {
        if (invert) o == kRGB ? row14VecT<4, kRGB, true>(src, dst, n) : row14VecT<4, kBGR, true>(src, dst, n);
        else o == kRGB ? row14VecT<4, kRGB, false>(src, dst, n) : row14VecT<4, kBGR, false>(src, dst, n);
    } else {
        if (invert) o == kRGB ? row14VecT<3, kRGB, true>(src, dst, n) : row14VecT<3, kBGR, true>(src, dst, n);
        else o == kRGB ? row14VecT<3, kRGB, false>(src, dst, n) : row14VecT<3, kBGR, false>(src, dst, n);
    }
}
void row14Scalar(const uint8_t* src, uint8_t* const dst[3], int n, int pixelBytes, Order o, bool invert) {
    const int k = invert ? 255 : 0;
    for (int x = 0; x < n; ++x) {
        int r, g, b;
        px(src + pixelBytes * x, pixelBytes, o, r, g, b);
        put(dst, x, fwd14(k ^ r, k ^ g, k ^ b));
    }
}

void rowFourthVec(const uint8_t* src, uint8_t* k, int n) {
    blocks16<1, 1>({src}, {4}, {k}, {1}, n, [](const uint8_t* const* i, uint8_t* const* o) {
        v::store16(o[0], v::chan<4, 3>(v::loadPix16<4>(i[0])));
    });
}
void rowFourthScalar(const uint8_t* src, uint8_t* k, int n) {
    for (int x = 0; x < n; ++x) k[x] = src[4 * x + 3];
}

void rowPacked14Vec(const uint16_t* src, uint8_t* const dst[3], int n, bool is565, Order o) {
    if (is565) o == kRGB ? rowPacked14VecT<true, kRGB>(src, dst, n) : rowPacked14VecT<true, kBGR>(src, dst, n);
    else o == kRGB ? rowPacked14VecT<false, kRGB>(src, dst, n) : rowPacked14VecT<false, kBGR>(src, dst, n);
}
void rowPacked14Scalar(const uint16_t* src, uint8_t* const dst[3], int n, bool is565, Order o) {
    for (int x = 0; x < n; ++x) {
        uint16_t w;
        std::memcpy(&w, src + x, 2);
        int lo, mid, hi;
        is565 ? unpack565(w, lo, mid, hi) : unpack555(w, lo, mid, hi);
        put(dst, x, o == kRGB ? fwd14(lo, mid, hi) : fwd14(hi, mid, lo));
    }
}

void rowHighSubVec(const uint8_t* s0, const uint8_t* s1, int P, uint8_t* y0, uint8_t* y1, uint8_t* cb, uint8_t* cr,
                   int n, Order o, bool aligned) {
#define ZEB_SUB_CASE(PP, OO, RR)                                                                   \
    if (P == PP && o == OO && (s1 != nullptr) == (RR == 2)) {                                      \
        if (aligned) rowHighSubVecT<PP, OO, RR, true>(s0, s1, y0, y1, cb, cr, n);                  \
        else rowHighSubVecT<PP, OO, RR, false>(s0, s1, y0, y1, cb, cr, n);                         \
        return;                                                                                    \
    }
    ZEB_SUB_CASE(3, kRGB, 1) ZEB_SUB_CASE(3, kBGR, 1) ZEB_SUB_CASE(4, kRGB, 1) ZEB_SUB_CASE(4, kBGR, 1)
    ZEB_SUB_CASE(3, kRGB, 2) ZEB_SUB_CASE(3, kBGR, 2) ZEB_SUB_CASE(4, kRGB, 2) ZEB_SUB_CASE(4, kBGR, 2)
#undef ZEB_SUB_CASE
}
void rowHighSubScalar(const uint8_t* s0, const uint8_t* s1, int P, uint8_t* y0, uint8_t* y1, uint8_t* cb, uint8_t* cr,
                      int n, Order o) {
    const int cs = s1 ? 11 : 10;
    for (int x = 0; x < n; x += 2) {
        int sr = 0, sg = 0, sb = 0;
        for (int row = 0; row < (s1 ? 2 : 1); ++row) {
            const uint8_t* s = row ? s1 : s0;
            uint8_t* yd = row ? y1 : y0;
            for (int k = 0; k < 2; ++k) {
                int r, g, b;
                px(s + P * (x + k), P, o, r, g, b);
                yd[x + k] = yHigh(r, g, b);
                sr += r;
                sg += g;
                sb += b;
            }
        }
        cb[x / 2] = cbHigh(sr, sg, sb, cs);
        cr[x / 2] = crHigh(sr, sg, sb, cs);
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

ZebStatus toY_C3C1(const Zeb8u* src, int srcStep, Zeb8u* dst, int dstStep, ZebSize roi, Order o) {
    if (!src || !dst) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    zeb::parallel_rows(roi.width, roi.height, [=](int32_t y) {
        rowY15Vec(rowPtr(src, srcStep, y), rowPtr(dst, dstStep, y), roi.width, o);
    });
    return zebStatusOk;
}

ZebStatus toYcc_C3P3(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roi, Order o) {
    if (!src || !dst || !dst[0] || !dst[1] || !dst[2]) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    Zeb8u* const d[3] = {dst[0], dst[1], dst[2]};
    zeb::parallel_rows(roi.width, roi.height, [=, &d](int32_t y) {
        const uint8_t* s = rowPtr(src, srcStep, y);
        uint8_t* const row[3] = {rowPtr(d[0], dstStep, y), rowPtr(d[1], dstStep, y), rowPtr(d[2], dstStep, y)};
        const int nb = down8(roi.width);
        rowYcc15Vec(s, row, nb, o);
        for (int x = nb; x < roi.width; ++x) {
            const uint8_t* p = s + 3 * x;
            Ycc c = o == kRGB ? fwd14(p[0], p[1], p[2]) : fwd14(p[2], p[1], p[0]);
            row[0][x] = c.y;
            row[1][x] = c.cb;
            row[2][x] = c.cr;
        }
    });
    return zebStatusOk;
}

ZebStatus toYcc_C4P3(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roi, Order o) {
    if (!src || !dst || !dst[0] || !dst[1] || !dst[2]) return zebStatusNullPointer;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    const bool aligned = a16(src) && a16(dst[0]) && a16(dst[1]) && a16(dst[2]) && srcStep % 16 == 0 && dstStep % 16 == 0;
    const int nb = down8(roi.width);
    for (int y = 0; y < roi.height; ++y) {
        const uint8_t* s = rowPtr(src, srcStep, y);
        uint8_t* const row[3] = {rowPtr(dst[0], dstStep, y), rowPtr(dst[1], dstStep, y), rowPtr(dst[2], dstStep, y)};
        rowHighC4Vec(s, row, nb, o, aligned);
        for (int x = nb; x < roi.width; ++x) {
            const uint8_t* p = s + 4 * x;
            Ycc c = o == kRGB ? fwdC4(p[0], p[1], p[2]) : fwdC4(p[2], p[1], p[0]);
            row[0][x] = c.y;
            row[1][x] = c.cb;
            row[2][x] = c.cr;
        }
    }
    return zebStatusOk;
}

ZebStatus packedToYcc(const Zeb16u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roi, bool is565,
                      Order o) {
    if (!src || !dst || !dst[0] || !dst[1] || !dst[2]) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    for (int y = 0; y < roi.height; ++y) {
        uint8_t* const row[3] = {rowPtr(dst[0], dstStep, y), rowPtr(dst[1], dstStep, y), rowPtr(dst[2], dstStep, y)};
        rowPacked14Vec(rowPtr(src, srcStep, y), row, roi.width, is565, o);
    }
    return zebStatusOk;
}

// 4:2:2 (rows == 1) and 4:1:1 (rows == 2) from three- or four-byte pixels.
ZebStatus toYccSub(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roi, int P,
                   Order o, int rows) {
    if (!src || !dst || !dst[0] || !dst[1] || !dst[2]) return zebStatusNullPointer;
    if (roi.width < 2 || roi.height < rows) return zebStatusBadSize;
    const int w = roi.width & ~1, h = rows == 2 ? roi.height & ~1 : roi.height;
    const bool aligned = a16(src) && a16(dst[0]) && a16(dst[1]) && a16(dst[2]) && srcStep % 16 == 0 &&
                         dstStep[0] % 16 == 0 && dstStep[1] % 16 == 0 && dstStep[2] % 16 == 0;
    const int nb = down8(w);
    for (int cy = 0; cy < h / rows; ++cy) {
        const uint8_t* s0 = rowPtr(src, srcStep, cy * rows);
        const uint8_t* s1 = rows == 2 ? rowPtr(src, srcStep, cy * 2 + 1) : nullptr;
        uint8_t* y0 = rowPtr(dst[0], dstStep[0], cy * rows);
        uint8_t* y1 = rows == 2 ? rowPtr(dst[0], dstStep[0], cy * 2 + 1) : nullptr;
        uint8_t* cb = rowPtr(dst[1], dstStep[1], cy);
        uint8_t* cr = rowPtr(dst[2], dstStep[2], cy);
        rowHighSubVec(s0, s1, P, y0, y1, cb, cr, nb, o, aligned);
        for (int x = nb; x < w; x += 2) {
            int sr = 0, sg = 0, sb = 0;
            for (int r = 0; r < rows; ++r) {
                const uint8_t* s = r ? s1 : s0;
                uint8_t* yd = r ? y1 : y0;
                for (int k = 0; k < 2; ++k) {
                    const uint8_t* p = s + P * (x + k);
                    const int R = p[o == kRGB ? 0 : 2], G = p[1], B = p[o == kRGB ? 2 : 0];
                    yd[x + k] = y14(R, G, B);
                    sr += R;
                    sg += G;
                    sb += B;
                }
            }
            cb[x / 2] = rows == 2 ? cbSum4(sr, sg, sb) : cbSum2(sr, sg, sb);
            cr[x / 2] = rows == 2 ? crSum4(sr, sg, sb) : crSum2(sr, sg, sb);
        }
    }
    const bool odd = (roi.width & 1) || (rows == 2 && (roi.height & 1));
    return odd ? zebStatusOddSize : zebStatusOk;
}

}  // namespace

// ---------------------------------------------------------------- exported entries

ZebStatus zebimpl::zebiRGBToY_JPEG_8u_C3C1R(const Zeb8u* src, int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize) {
    return toY_C3C1(src, srcStep, dst, dstStep, roiSize, kRGB);
}
ZebStatus zebimpl::zebiBGRToY_JPEG_8u_C3C1R(const Zeb8u* src, int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize) {
    return toY_C3C1(src, srcStep, dst, dstStep, roiSize, kBGR);
}

ZebStatus zebimpl::zebiRGBToY_JPEG_8u_P3C1R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep,
                                            ZebSize roiSize) {
    if (!src || !src[0] || !src[1] || !src[2] || !dst) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    const Zeb8u* const s[3] = {src[0], src[1], src[2]};
    const int w = roiSize.width, nb = down4(w);
    zeb::parallel_rows(w, roiSize.height, [=, &s](int32_t y) {
        const uint8_t *r = rowPtr(s[0], srcStep, y), *g = rowPtr(s[1], srcStep, y), *b = rowPtr(s[2], srcStep, y);
        uint8_t* d = rowPtr(dst, dstStep, y);
        rowYFloatVec(r, g, b, d, nb);
        for (int x = nb; x < w; ++x) d[x] = yTable(r[x], g[x], b[x]);
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiRGBToYCbCr_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep,
                                                ZebSize roiSize) {
    return toYcc_C3P3(src, srcStep, dst, dstStep, roiSize, kRGB);
}
ZebStatus zebimpl::zebiBGRToYCbCr_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep,
                                                ZebSize roiSize) {
    return toYcc_C3P3(src, srcStep, dst, dstStep, roiSize, kBGR);
}

ZebStatus zebimpl::zebiRGBToYCbCr_JPEG_8u_P3R(const Zeb8u* const src[3], int srcStep, Zeb8u* const dst[3],
                                              int dstStep, ZebSize roiSize) {
    if (!src || !src[0] || !src[1] || !src[2] || !dst || !dst[0] || !dst[1] || !dst[2]) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    const Zeb8u* const s[3] = {src[0], src[1], src[2]};
    Zeb8u* const d[3] = {dst[0], dst[1], dst[2]};
    const int w = roiSize.width, nb = down4(w);
    zeb::parallel_rows(w, roiSize.height, [=, &s, &d](int32_t y) {
        const uint8_t *r = rowPtr(s[0], srcStep, y), *g = rowPtr(s[1], srcStep, y), *b = rowPtr(s[2], srcStep, y);
        uint8_t* const row[3] = {rowPtr(d[0], dstStep, y), rowPtr(d[1], dstStep, y), rowPtr(d[2], dstStep, y)};
        rowDiffVec(r, g, b, row, nb, false);
        for (int x = nb; x < w; ++x) {
            Ycc c = fwdTable(r[x], g[x], b[x]);
            row[0][x] = c.y;
            row[1][x] = c.cb;
            row[2][x] = c.cr;
        }
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiRGBToYCbCr_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep,
                                                ZebSize roiSize) {
    return toYcc_C4P3(src, srcStep, dst, dstStep, roiSize, kRGB);
}
ZebStatus zebimpl::zebiBGRToYCbCr_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep,
                                                ZebSize roiSize) {
    return toYcc_C4P3(src, srcStep, dst, dstStep, roiSize, kBGR);
}

ZebStatus zebimpl::zebiRGB555ToYCbCr_JPEG_16u8u_C3P3R(const Zeb16u* src, int srcStep, Zeb8u* const dst[3],
                                                      int dstStep, ZebSize roiSize) {
    return packedToYcc(src, srcStep, dst, dstStep, roiSize, false, kRGB);
}
ZebStatus zebimpl::zebiBGR555ToYCbCr_JPEG_16u8u_C3P3R(const Zeb16u* src, int srcStep, Zeb8u* const dst[3],
                                                      int dstStep, ZebSize roiSize) {
    return packedToYcc(src, srcStep, dst, dstStep, roiSize, false, kBGR);
}
ZebStatus zebimpl::zebiRGB565ToYCbCr_JPEG_16u8u_C3P3R(const Zeb16u* src, int srcStep, Zeb8u* const dst[3],
                                                      int dstStep, ZebSize roiSize) {
    return packedToYcc(src, srcStep, dst, dstStep, roiSize, true, kRGB);
}
ZebStatus zebimpl::zebiBGR565ToYCbCr_JPEG_16u8u_C3P3R(const Zeb16u* src, int srcStep, Zeb8u* const dst[3],
                                                      int dstStep, ZebSize roiSize) {
    return packedToYcc(src, srcStep, dst, dstStep, roiSize, true, kBGR);
}

ZebStatus zebimpl::zebiRGBToYCbCr422_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3],
                                                   const int dstStep[3], ZebSize roiSize) {
    return toYccSub(src, srcStep, dst, dstStep, roiSize, 3, kRGB, 1);
}
ZebStatus zebimpl::zebiBGRToYCbCr422_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3],
                                                   const int dstStep[3], ZebSize roiSize) {
    return toYccSub(src, srcStep, dst, dstStep, roiSize, 3, kBGR, 1);
}
ZebStatus zebimpl::zebiRGBToYCbCr422_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3],
                                                   const int dstStep[3], ZebSize roiSize) {
    return toYccSub(src, srcStep, dst, dstStep, roiSize, 4, kRGB, 1);
}
ZebStatus zebimpl::zebiBGRToYCbCr422_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3],
                                                   const int dstStep[3], ZebSize roiSize) {
    return toYccSub(src, srcStep, dst, dstStep, roiSize, 4, kBGR, 1);
}
ZebStatus zebimpl::zebiRGBToYCbCr411_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3],
                                                   const int dstStep[3], ZebSize roiSize) {
    return toYccSub(src, srcStep, dst, dstStep, roiSize, 3, kRGB, 2);
}
ZebStatus zebimpl::zebiBGRToYCbCr411_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3],
                                                   const int dstStep[3], ZebSize roiSize) {
    return toYccSub(src, srcStep, dst, dstStep, roiSize, 3, kBGR, 2);
}
ZebStatus zebimpl::zebiRGBToYCbCr411_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3],
                                                   const int dstStep[3], ZebSize roiSize) {
    return toYccSub(src, srcStep, dst, dstStep, roiSize, 4, kRGB, 2);
}
ZebStatus zebimpl::zebiBGRToYCbCr411_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3],
                                                   const int dstStep[3], ZebSize roiSize) {
    return toYccSub(src, srcStep, dst, dstStep, roiSize, 4, kBGR, 2);
}

ZebStatus zebimpl::zebiCMYKToYCCK_JPEG_8u_C4P4R(const Zeb8u* src, int srcStep, Zeb8u* const dst[4], int dstStep,
                                                ZebSize roiSize) {
    if (!src || !dst || !dst[0] || !dst[1] || !dst[2] || !dst[3]) return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    Zeb8u* const d[4] = {dst[0], dst[1], dst[2], dst[3]};
    const int w = roiSize.width;
    zeb::parallel_rows(w, roiSize.height, [=, &d](int32_t y) {
        const uint8_t* s = rowPtr(src, srcStep, y);
        uint8_t* const row[3] = {rowPtr(d[0], dstStep, y), rowPtr(d[1], dstStep, y), rowPtr(d[2], dstStep, y)};
        row14Vec(s, row, w, 4, kRGB, true);
        rowFourthVec(s, rowPtr(d[3], dstStep, y), w);
    });
    return zebStatusOk;
}

ZebStatus zebimpl::zebiCMYKToYCCK_JPEG_8u_P4R(const Zeb8u* const src[4], int srcStep, Zeb8u* const dst[4],
                                              int dstStep, ZebSize roiSize) {
    if (!src || !src[0] || !src[1] || !src[2] || !src[3] || !dst || !dst[0] || !dst[1] || !dst[2] || !dst[3])
        return zebStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return zebStatusBadStep;
    if (roiSize.width < 1 || roiSize.height < 1) return zebStatusBadSize;
    const Zeb8u* const s[4] = {src[0], src[1], src[2], src[3]};
    Zeb8u* const d[4] = {dst[0], dst[1], dst[2], dst[3]};
    const int w = roiSize.width, nb = down4(w);
    zeb::parallel_rows(w, roiSize.height, [=, &s, &d](int32_t y) {
        const uint8_t *c = rowPtr(s[0], srcStep, y), *m = rowPtr(s[1], srcStep, y), *ye = rowPtr(s[2], srcStep, y);
        uint8_t* const row[3] = {rowPtr(d[0], dstStep, y), rowPtr(d[1], dstStep, y), rowPtr(d[2], dstStep, y)};
        rowDiffVec(c, m, ye, row, nb, true);
        for (int x = nb; x < w; ++x) {
            Ycc v = fwdTable(255 - c[x], 255 - m[x], 255 - ye[x]);
            row[0][x] = v.y;
            row[1][x] = v.cb;
            row[2][x] = v.cr;
        }
        std::memcpy(rowPtr(d[3], dstStep, y), rowPtr(s[3], srcStep, y), static_cast<size_t>(w));
    });
    return zebStatusOk;
}
