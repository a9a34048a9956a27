// MCU block decoders: the level-shifted 8x8 blocks of one MCU straight to
// display pixels, with chroma replicated over the 2 or 2x2 pixels that share
// it.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/simd.h"
#include "jpeg/colour/colour.h"
#include "jpeg/colour/mcu.h"

namespace zeb::mcu {

namespace {

using colour::clamp8;
using colour::v::k16;
using colour::v::k32;
using colour::v::pair16;

constexpr bool isPacked(Px px) { return px == Px::P555 || px == Px::P565; }
constexpr int outBytes(Px px) { return px == Px::CMYK ? 4 : isPacked(px) ? 2 : 3; }

// ---------------------------------------------------------------- scalar forms

struct Rgb {
    int r, g, b;
};

inline Rgb rgbOf(int y, int cb, int cr, InvForm f) {
    switch (f) {
        case InvForm::Bits14:
            return {clamp8(y + ((22970 * cr + 2105344) >> 14)), clamp8(y + ((-5638 * cb - 11700 * cr + 2105344) >> 14)),
                    clamp8(y + ((29032 * cb + 2105344) >> 14))};
        case InvForm::Split:
            return {clamp8(y + ((11485 * cr + 1052672) >> 13)), clamp8(y - ((5638 * cb + 11700 * cr - 2088960) >> 14)),
                    clamp8(y + ((14516 * cb + 1052672) >> 13))};
        case InvForm::Plain:  // 32-bit products that wrap
            return {clamp8(y + (mul32(91881, cr) >> 16) + 128),
                    clamp8(y + (add32(mul32(-22554, cb), mul32(-46802, cr)) >> 16) + 128),
                    clamp8(y + (mul32(116130, cb) >> 16) + 128)};
        default: return {clamp8(y + 128), clamp8(cb + 128), clamp8(cr + 128)};
    }
}

// ---------------------------------------------------------------- vector forms

// The 16-bit lanes of x, sign-extended to 32 bits in unpack order.
inline __m256i wideLo(__m256i x) { return _mm256_srai_epi32(_mm256_unpacklo_epi16(x, x), 16); }
inline __m256i wideHi(__m256i x) { return _mm256_srai_epi32(_mm256_unpackhi_epi16(x, x), 16); }

// Colours of 16 pixels from one Y, Cb, Cr sample each. The sums are taken in
// 32 bits (any 16-bit input gives the exact clamp), then narrowed with
// saturation, which keeps the clamp to 0..255 exact.
template <InvForm F>
inline void rgbVec(__m256i y, __m256i cb, __m256i cr, __m256i& R, __m256i& G, __m256i& B) {
    if constexpr (F == InvForm::Shift) {
        const __m256i k = k16(128);
        R = _mm256_adds_epi16(y, k);
        G = _mm256_adds_epi16(cb, k);
        B = _mm256_adds_epi16(cr, k);
    } else if constexpr (F == InvForm::Plain) {
        // Products and their sum wrap in 32 bits, as the scalar form does.
        const __m256i k = k32(128);
        __m256i out[3][2];
        for (int h = 0; h < 2; ++h) {
            const __m256i yw = _mm256_add_epi32(h ? wideHi(y) : wideLo(y), k);
            const __m256i cbw = h ? wideHi(cb) : wideLo(cb), crw = h ? wideHi(cr) : wideLo(cr);
            const __m256i g = _mm256_add_epi32(_mm256_mullo_epi32(cbw, k32(-22554)), _mm256_mullo_epi32(crw, k32(-46802)));
            out[0][h] = _mm256_add_epi32(yw, _mm256_srai_epi32(_mm256_mullo_epi32(crw, k32(91881)), 16));
            out[1][h] = _mm256_add_epi32(yw, _mm256_srai_epi32(g, 16));
            out[2][h] = _mm256_add_epi32(yw, _mm256_srai_epi32(_mm256_mullo_epi32(cbw, k32(116130)), 16));
        }
        R = _mm256_packs_epi32(out[0][0], out[0][1]);
        G = _mm256_packs_epi32(out[1][0], out[1][1]);
        B = _mm256_packs_epi32(out[2][0], out[2][1]);
    } else {
        // A constant 4096 in the second word of a pair carries the bias.
        const __m256i bias = k16(4096);
        constexpr bool b14 = F == InvForm::Bits14;
        const __m256i cR = b14 ? pair16(22970, 514) : pair16(11485, 257);
        const __m256i cB = b14 ? pair16(29032, 514) : pair16(14516, 257);
        const __m256i cG = b14 ? pair16(-5638, -11700) : pair16(5638, 11700);
        const __m256i kG = b14 ? k32(2105344) : k32(-2088960);
        constexpr int sRB = b14 ? 14 : 13;
        __m256i out[3][2];
        for (int h = 0; h < 2; ++h) {
            const __m256i yw = h ? wideHi(y) : wideLo(y);
            const __m256i crk = h ? _mm256_unpackhi_epi16(cr, bias) : _mm256_unpacklo_epi16(cr, bias);
            const __m256i cbk = h ? _mm256_unpackhi_epi16(cb, bias) : _mm256_unpacklo_epi16(cb, bias);
            const __m256i cbcr = h ? _mm256_unpackhi_epi16(cb, cr) : _mm256_unpacklo_epi16(cb, cr);
            const __m256i g = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(cbcr, cG), kG), 14);
            out[0][h] = _mm256_add_epi32(yw, _mm256_srai_epi32(_mm256_madd_epi16(crk, cR), sRB));
            out[1][h] = b14 ? _mm256_add_epi32(yw, g) : _mm256_sub_epi32(yw, g);
            out[2][h] = _mm256_add_epi32(yw, _mm256_srai_epi32(_mm256_madd_epi16(cbk, cB), sRB));
        }
        R = _mm256_packs_epi32(out[0][0], out[0][1]);
        G = _mm256_packs_epi32(out[1][0], out[1][1]);
        B = _mm256_packs_epi32(out[2][0], out[2][1]);
    }
}

// 16 pixels of P bytes: pixels 0-7 to p0, then pixels 8-15 to p1. Each row
// is written whole before the next, so that overlapping rows end with the
// later one.
template <int P, int O0, int O1, int O2>
inline void storeRows(uint8_t* p0, uint8_t* p1, __m256i c0, __m256i c1, __m256i c2, __m256i c3) {
    const colour::v::ScatterMasks& m = colour::v::kScatter<P, O0, O1, O2>;
    auto ld = [](const int8_t* q) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(q)); };
    const __m256i x = _mm256_packus_epi16(c0, c1), y = _mm256_packus_epi16(c2, c3);
    const __m256i o0 = _mm256_or_si256(_mm256_shuffle_epi8(x, ld(m.x0)), _mm256_shuffle_epi8(y, ld(m.y0)));
    const __m256i o1 = _mm256_or_si256(_mm256_shuffle_epi8(x, ld(m.x1)), _mm256_shuffle_epi8(y, ld(m.y1)));
    for (int h = 0; h < 2; ++h) {
        uint8_t* p = h ? p1 : p0;
        const __m128i a = h ? _mm256_extracti128_si256(o0, 1) : _mm256_castsi256_si128(o0);
        const __m128i b = h ? _mm256_extracti128_si256(o1, 1) : _mm256_castsi256_si128(o1);
        simd::storeu128(p, a);
        if constexpr (P == 3) simd::store64(p + 16, b);
        else simd::storeu128(p + 16, b);
    }
}

template <Px PX, InvForm F>
inline void emit(uint8_t* p0, uint8_t* p1, __m256i y, __m256i cb, __m256i cr, __m256i k) {
    __m256i R, G, B;
    rgbVec<F>(y, cb, cr, R, G, B);
    if constexpr (isPacked(PX)) {
        const __m256i z = _mm256_setzero_si256(), top = k16(255);
        R = _mm256_min_epi16(_mm256_max_epi16(R, z), top);
        G = _mm256_min_epi16(_mm256_max_epi16(G, z), top);
        B = _mm256_min_epi16(_mm256_max_epi16(B, z), top);
        __m256i w;
        if constexpr (PX == Px::P555)
            w = _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(_mm256_srli_epi16(R, 3), 10),
                                                _mm256_slli_epi16(_mm256_srli_epi16(G, 3), 5)),
                                _mm256_srli_epi16(B, 3));
        else
            w = _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(_mm256_srli_epi16(R, 3), 11),
                                                _mm256_slli_epi16(_mm256_srli_epi16(G, 2), 5)),
                                _mm256_srli_epi16(B, 3));
        simd::storeu128(p0, _mm256_castsi256_si128(w));
        simd::storeu128(p1, _mm256_extracti128_si256(w, 1));
    } else if constexpr (PX == Px::CMYK) {
        // The complement saturates, so it equals the complement of the clamp.
        // K: clamped in the split form, its low byte in the plain form.
        const __m256i full = k16(255);
        const __m256i kk = F == InvForm::Plain ? _mm256_and_si256(_mm256_add_epi16(k, k16(128)), k16(255))
                                               : _mm256_adds_epi16(k, k16(128));
        storeRows<4, 0, 1, 2>(p0, p1, _mm256_subs_epi16(full, R), _mm256_subs_epi16(full, G),
                              _mm256_subs_epi16(full, B), kk);
    } else if constexpr (PX == Px::BGR) {
        storeRows<3, 2, 1, 0>(p0, p1, R, G, B, R);
    } else {
        storeRows<3, 0, 1, 2>(p0, p1, R, G, B, R);
    }
}

// One MCU by the vector forms: two rows of 8 pixels per step in 444, one row
// of 16 pixels per step otherwise; chroma lanes doubled for 422 and 411.
template <Px PX, Sampling S, InvForm F>
void invVecT(const int16_t* const src[4], uint8_t* dst, int dstStep) {
    constexpr int ob = outBytes(PX);
    constexpr bool hasK = PX == Px::CMYK;
    auto drow = [&](int y) { return dst + static_cast<ptrdiff_t>(y) * dstStep; };
    __m256i k = _mm256_setzero_si256();
    if constexpr (S == k444) {
        for (int y = 0; y < 8; y += 2) {
            if constexpr (hasK) k = simd::loadu256(src[3] + 8 * y);
            emit<PX, F>(drow(y), drow(y + 1), simd::loadu256(src[0] + 8 * y), simd::loadu256(src[1] + 8 * y),
                        simd::loadu256(src[2] + 8 * y), k);
        }
    } else {
        for (int y = 0; y < mcuHeight(S); ++y) {
            const int off = (y >> 3) * 128 + (y & 7) * 8, crow = S == k411 ? y >> 1 : y;
            const __m256i yy = _mm256_set_m128i(simd::loadu128(src[0] + off + 64), simd::loadu128(src[0] + off));
            if constexpr (hasK) k = _mm256_set_m128i(simd::loadu128(src[3] + off + 64), simd::loadu128(src[3] + off));
            const __m128i cb = simd::loadu128(src[1] + 8 * crow), cr = simd::loadu128(src[2] + 8 * crow);
            uint8_t* p = drow(y);
            emit<PX, F>(p, p + 8 * ob, yy, _mm256_set_m128i(_mm_unpackhi_epi16(cb, cb), _mm_unpacklo_epi16(cb, cb)),
                        _mm256_set_m128i(_mm_unpackhi_epi16(cr, cr), _mm_unpacklo_epi16(cr, cr)), k);
        }
    }
}

template <Px PX, InvForm F>
void invVecS(const int16_t* const src[4], uint8_t* dst, int dstStep, Sampling s) {
    switch (s) {
        case k444: invVecT<PX, k444, F>(src, dst, dstStep); break;
        case k422: invVecT<PX, k422, F>(src, dst, dstStep); break;
        case k411: invVecT<PX, k411, F>(src, dst, dstStep); break;
    }
}

template <InvForm F>
void invVecF(const int16_t* const src[4], uint8_t* dst, int dstStep, Sampling s, Px px) {
    switch (px) {
        case Px::RGB: invVecS<Px::RGB, F>(src, dst, dstStep, s); break;
        case Px::BGR: invVecS<Px::BGR, F>(src, dst, dstStep, s); break;
        case Px::P555: invVecS<Px::P555, F>(src, dst, dstStep, s); break;
        case Px::P565: invVecS<Px::P565, F>(src, dst, dstStep, s); break;
        case Px::CMYK: invVecS<Px::CMYK, F>(src, dst, dstStep, s); break;
        case Px::YCC: invVecS<Px::YCC, F>(src, dst, dstStep, s); break;
    }
}

}  // namespace

void invScalar(const int16_t* const src[4], uint8_t* dst, int dstStep, Sampling s, Px px, InvForm f) {
    const int W = mcuWidth(s), H = mcuHeight(s), ob = outBytes(px);
    const int hsh = s == k444 ? 0 : 1, vsh = s == k411 ? 1 : 0;
    for (int y = 0; y < H; ++y) {
        uint8_t* row = dst + static_cast<ptrdiff_t>(y) * dstStep;
        for (int x = 0; x < W; ++x) {
            const int idx = ((y >> 3) * (W >> 3) + (x >> 3)) * 64 + (y & 7) * 8 + (x & 7);
            const int cidx = (y >> vsh) * 8 + (x >> hsh);
            const int yv = loadAs<int16_t>(src[0] + idx);
            const Rgb c = rgbOf(yv, loadAs<int16_t>(src[1] + cidx), loadAs<int16_t>(src[2] + cidx), f);
            uint8_t* p = row + x * ob;
            switch (px) {
                case Px::P555: storeAs<uint16_t>(p, colour::pack555(c.b, c.g, c.r)); break;
                case Px::P565: storeAs<uint16_t>(p, colour::pack565(c.b, c.g, c.r)); break;
                case Px::BGR:
                    p[0] = static_cast<uint8_t>(c.b), p[1] = static_cast<uint8_t>(c.g), p[2] = static_cast<uint8_t>(c.r);
                    break;
                case Px::CMYK: {
                    const int kv = loadAs<int16_t>(src[3] + idx);
                    p[0] = static_cast<uint8_t>(255 - c.r), p[1] = static_cast<uint8_t>(255 - c.g);
                    p[2] = static_cast<uint8_t>(255 - c.b);
                    // The split form clamps K; the plain form keeps its low byte.
                    p[3] = f == InvForm::Plain ? static_cast<uint8_t>(kv + 128) : clamp8(kv + 128);
                    break;
                }
                default:
                    p[0] = static_cast<uint8_t>(c.r), p[1] = static_cast<uint8_t>(c.g), p[2] = static_cast<uint8_t>(c.b);
                    break;
            }
        }
    }
}

void invVec(const int16_t* const src[4], uint8_t* dst, int dstStep, Sampling s, Px px, InvForm f) {
    switch (f) {
        case InvForm::Bits14: invVecF<InvForm::Bits14>(src, dst, dstStep, s, px); break;
        case InvForm::Split: invVecF<InvForm::Split>(src, dst, dstStep, s, px); break;
        case InvForm::Shift: invVecF<InvForm::Shift>(src, dst, dstStep, s, px); break;
        case InvForm::Plain: invVecF<InvForm::Plain>(src, dst, dstStep, s, px); break;
    }
}

void join422Scalar(const int16_t* const src[3], uint8_t* dst, int dstStep) {
    for (int y = 0; y < 8; ++y) {
        uint8_t* p = dst + static_cast<ptrdiff_t>(y) * dstStep;
        for (int i = 0; i < 8; ++i) {
            const int x = 2 * i, idx = (x >> 3) * 64 + y * 8 + (x & 7);
            p[4 * i] = clamp8(loadAs<int16_t>(src[0] + idx) + 128);
            p[4 * i + 1] = clamp8(loadAs<int16_t>(src[1] + y * 8 + i) + 128);
            p[4 * i + 2] = clamp8(loadAs<int16_t>(src[0] + idx + 1) + 128);
            p[4 * i + 3] = clamp8(loadAs<int16_t>(src[2] + y * 8 + i) + 128);
        }
    }
}

void join422Vec(const int16_t* const src[3], uint8_t* dst, int dstStep) {
    const __m128i k = _mm_set1_epi16(128);
    for (int y = 0; y < 8; ++y) {
        const __m128i y0 = _mm_adds_epi16(simd::loadu128(src[0] + 8 * y), k);
        const __m128i y1 = _mm_adds_epi16(simd::loadu128(src[0] + 64 + 8 * y), k);
        const __m128i cb = _mm_adds_epi16(simd::loadu128(src[1] + 8 * y), k);
        const __m128i cr = _mm_adds_epi16(simd::loadu128(src[2] + 8 * y), k);
        const __m128i yb = _mm_packus_epi16(y0, y1);
        const __m128i cc = _mm_packus_epi16(cb, cr);               // Cb 0-7, Cr 0-7
        const __m128i pairs = _mm_unpacklo_epi8(cc, _mm_srli_si128(cc, 8));  // Cb0 Cr0 Cb1 Cr1 ...
        uint8_t* p = dst + static_cast<ptrdiff_t>(y) * dstStep;
        simd::storeu128(p, _mm_unpacklo_epi8(yb, pairs));
        simd::storeu128(p + 16, _mm_unpackhi_epi8(yb, pairs));
    }
}

}  // namespace zeb::mcu

// ---------------------------------------------------------------- exported operations

namespace {

using zeb::mcu::InvForm;
using zeb::mcu::Px;
using zeb::mcu::Sampling;

// Checks in the order of the MCU decoders: every pointer, then the step.
inline ZebStatus checkInv(const Zeb16s* const* src, int planes, const void* dst, int dstStep) {
    if (!src) return zebStatusNullPointer;
    for (int i = 0; i < planes; ++i)
        if (!src[i]) return zebStatusNullPointer;
    if (!dst) return zebStatusNullPointer;
    if (dstStep < 1) return zebStatusBadStep;
    return zebStatusOk;
}

inline bool allAligned(const Zeb16s* const* src, int planes) {
    uintptr_t bits = 0;
    for (int i = 0; i < planes; ++i) bits |= reinterpret_cast<uintptr_t>(src[i]);
    return (bits & 15) == 0;
}

// `fast` is the form taken when every plane is 16-byte aligned; `slow` the
// one taken otherwise (the same form where alignment does not matter).
ZebStatus decode(const Zeb16s* const* src, void* dst, int dstStep, Sampling s, Px px, InvForm fast, InvForm slow) {
    const int planes = zeb::mcu::planesOf(px);
    if (ZebStatus st = checkInv(src, planes, dst, dstStep); st != zebStatusOk) return st;
    const int16_t* const p[4] = {src[0], src[1], src[2], planes == 4 ? src[3] : nullptr};
    zeb::mcu::invVec(p, static_cast<uint8_t*>(dst), dstStep, s, px, allAligned(src, planes) ? fast : slow);
    return zebStatusOk;
}

constexpr Sampling k444 = zeb::mcu::k444, k422 = zeb::mcu::k422, k411 = zeb::mcu::k411;

}  // namespace

ZebStatus zebimpl::zebiYCbCr444ToRGBLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k444, Px::RGB, InvForm::Bits14, InvForm::Plain);
}
ZebStatus zebimpl::zebiYCbCr444ToBGRLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k444, Px::BGR, InvForm::Bits14, InvForm::Plain);
}
ZebStatus zebimpl::zebiYCbCr422ToRGBLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k422, Px::RGB, InvForm::Split, InvForm::Plain);
}
ZebStatus zebimpl::zebiYCbCr422ToBGRLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k422, Px::BGR, InvForm::Split, InvForm::Plain);
}
ZebStatus zebimpl::zebiYCbCr411ToRGBLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k411, Px::RGB, InvForm::Split, InvForm::Plain);
}
ZebStatus zebimpl::zebiYCbCr411ToBGRLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k411, Px::BGR, InvForm::Split, InvForm::Plain);
}

ZebStatus zebimpl::zebiYCbCr444ToBGR555LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep) {
    return decode(src, dst, dstStep, k444, Px::P555, InvForm::Split, InvForm::Split);
}
ZebStatus zebimpl::zebiYCbCr444ToBGR565LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep) {
    return decode(src, dst, dstStep, k444, Px::P565, InvForm::Split, InvForm::Split);
}
ZebStatus zebimpl::zebiYCbCr422ToBGR555LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep) {
    return decode(src, dst, dstStep, k422, Px::P555, InvForm::Split, InvForm::Split);
}
ZebStatus zebimpl::zebiYCbCr422ToBGR565LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep) {
    return decode(src, dst, dstStep, k422, Px::P565, InvForm::Split, InvForm::Split);
}
ZebStatus zebimpl::zebiYCbCr411ToBGR555LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep) {
    return decode(src, dst, dstStep, k411, Px::P555, InvForm::Split, InvForm::Split);
}
ZebStatus zebimpl::zebiYCbCr411ToBGR565LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep) {
    return decode(src, dst, dstStep, k411, Px::P565, InvForm::Split, InvForm::Split);
}

ZebStatus zebimpl::zebiYCCK444ToCMYKLS_MCU_16s8u_P4C4R(const Zeb16s* const src[4], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k444, Px::CMYK, InvForm::Split, InvForm::Plain);
}
ZebStatus zebimpl::zebiYCCK422ToCMYKLS_MCU_16s8u_P4C4R(const Zeb16s* const src[4], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k422, Px::CMYK, InvForm::Split, InvForm::Plain);
}
ZebStatus zebimpl::zebiYCCK411ToCMYKLS_MCU_16s8u_P4C4R(const Zeb16s* const src[4], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k411, Px::CMYK, InvForm::Split, InvForm::Plain);
}

ZebStatus zebimpl::zebiSampleUp444LS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k444, Px::YCC, InvForm::Shift, InvForm::Shift);
}
ZebStatus zebimpl::zebiSampleUp422LS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k422, Px::YCC, InvForm::Shift, InvForm::Shift);
}
ZebStatus zebimpl::zebiSampleUp411LS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    return decode(src, dst, dstStep, k411, Px::YCC, InvForm::Shift, InvForm::Shift);
}
ZebStatus zebimpl::zebiJoin422LS_MCU_16s8u_P3C2R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep) {
    if (ZebStatus st = checkInv(src, 3, dst, dstStep); st != zebStatusOk) return st;
    const int16_t* const p[3] = {src[0], src[1], src[2]};
    zeb::mcu::join422Vec(p, dst, dstStep);
    return zebStatusOk;
}
