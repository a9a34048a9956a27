// MCU block encoders: the pixels of one MCU straight to level-shifted 8x8
// blocks of Y, Cb, Cr (and K), with the chroma reduced to 4:2:2 or 4:1:1
// by sums over the pixels that share a chroma sample.
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

// ---------------------------------------------------------------- scalar forms

struct Pixel {
    int r, g, b, k;
};

// One pixel of the given layout; CMYK colours are inverted here, K kept.
inline Pixel readPixel(const uint8_t* p, Px px) {
    int lo, mid, hi;
    switch (px) {
        case Px::BGR: return {p[2], p[1], p[0], 0};
        case Px::P555: colour::unpack555(loadAs<uint16_t>(p), lo, mid, hi); return {hi, mid, lo, 0};
        case Px::P565: colour::unpack565(loadAs<uint16_t>(p), lo, mid, hi); return {hi, mid, lo, 0};
        case Px::CMYK: return {255 - p[0], 255 - p[1], 255 - p[2], p[3]};
        default: return {p[0], p[1], p[2], 0};
    }
}

// Y of the block form: 2088960 is the level shift and the rounding in one.
inline int lumaBlock(int r, int g, int b) { return (4899 * r + 9617 * g + 1868 * b - 2088960) >> 14; }
inline int lumaPlain(int r, int g, int b) { return ((19595 * r + 38470 * g + 7471 * b) >> 16) - 128; }

// Chroma bias of the block form for sums over 2^l pixels.
constexpr int blockBias(Sampling s, Px px) { return (s == k444 && px == Px::CMYK) ? 8133 : 8192 << chromaLog2(s); }

// ---------------------------------------------------------------- vector forms

using colour::v::k16;

// 16 pixels as 16-bit lanes: pixels 0-7 from p0, 8-15 from p1.
template <Px PX>
inline void gather16(const uint8_t* p0, const uint8_t* p1, __m256i& r, __m256i& g, __m256i& b, __m256i& k) {
    namespace v = colour::v;
    if constexpr (PX == Px::P555 || PX == Px::P565) {
        const __m256i x = _mm256_set_m128i(simd::loadu128(p1), simd::loadu128(p0));
        b = _mm256_slli_epi16(_mm256_and_si256(x, k16(31)), 3);
        if constexpr (PX == Px::P565) {
            g = _mm256_srli_epi16(_mm256_and_si256(x, k16(2016)), 3);
            r = _mm256_srli_epi16(_mm256_and_si256(x, k16(63488)), 8);
        } else {
            g = _mm256_srli_epi16(_mm256_and_si256(x, k16(992)), 2);
            r = _mm256_srli_epi16(_mm256_and_si256(x, k16(31744)), 7);
        }
    } else if constexpr (PX == Px::CMYK) {
        const v::Pix16<4> px{_mm256_set_m128i(simd::loadu128(p1), simd::loadu128(p0)),
                             _mm256_set_m128i(simd::loadu128(p1 + 16), simd::loadu128(p0 + 16))};
        const __m256i full = k16(255);
        r = _mm256_sub_epi16(full, v::chan<4, 0>(px));
        g = _mm256_sub_epi16(full, v::chan<4, 1>(px));
        b = _mm256_sub_epi16(full, v::chan<4, 2>(px));
        k = v::chan<4, 3>(px);
    } else {
        const v::Pix16<3> px{_mm256_set_m128i(simd::loadu128(p1), simd::loadu128(p0)),
                             _mm256_set_m128i(simd::load64(p1 + 16), simd::load64(p0 + 16))};
        constexpr int ir = PX == Px::BGR ? 2 : 0, ib = PX == Px::BGR ? 0 : 2;
        r = v::chan<3, ir>(px);
        g = v::chan<3, 1>(px);
        b = v::chan<3, ib>(px);
    }
}

// Pair sums of 16 lanes: 8 sums as 32-bit lanes, 4 per 128-bit half.
inline __m256i pairSums(__m256i x) { return _mm256_madd_epi16(x, k16(1)); }
// Two sets of 8 pair sums to 16 lanes in order: a's 8, then b's 8.
inline __m256i joinSums(__m256i a, __m256i b) { return _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8); }

// (a ca + b cb + c cc + d cd) >> shift from two pair multiply-adds, exact in
// 32 bits, packed back to 16-bit lanes in order.
inline __m256i lin4(__m256i a, __m256i b, __m256i c, __m256i d, int ca, int cb, int cc, int cd, int shift) {
    const __m256i ab = colour::v::pair16(ca, cb), cdk = colour::v::pair16(cc, cd);
    const __m128i sh = _mm_cvtsi32_si128(shift);
    const __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), ab),
                                        _mm256_madd_epi16(_mm256_unpacklo_epi16(c, d), cdk));
    const __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), ab),
                                        _mm256_madd_epi16(_mm256_unpackhi_epi16(c, d), cdk));
    return _mm256_packs_epi32(_mm256_sra_epi32(lo, sh), _mm256_sra_epi32(hi, sh));
}

template <FwdForm F>
inline __m256i lumaVec(__m256i r, __m256i g, __m256i b) {
    if constexpr (F == FwdForm::Shift) return _mm256_sub_epi16(r, k16(128));
    else if constexpr (F == FwdForm::Plain)  // 38470 G as two halves of 19235
        return _mm256_sub_epi16(lin4(r, g, g, b, 19595, 19235, 19235, 7471, 16), k16(128));
    else return colour::v::lin3(r, g, b, 4899, 9617, 1868, -2088960, 14);
}

template <FwdForm F, int L, int Bias>
inline void chromaVec(__m256i sr, __m256i sg, __m256i sb, __m256i& cb, __m256i& cr) {
    if constexpr (F == FwdForm::Shift) {
        cb = _mm256_srai_epi16(_mm256_sub_epi16(sg, k16(128 << L)), L);
        cr = _mm256_srai_epi16(_mm256_sub_epi16(sb, k16(128 << L)), L);
    } else if constexpr (F == FwdForm::Plain) {  // 32768 s as two halves of 16384
        cb = lin4(sr, sg, sb, sb, -11059, -21709, 16384, 16384, 16 + L);
        cr = lin4(sr, sr, sg, sb, 16384, 16384, -27439, -5329, 16 + L);
    } else {
        cb = colour::v::lin3(sr, sg, sb, -2764, -5428, 8192, Bias, 14 + L);
        cr = colour::v::lin3(sr, sg, sb, 8192, -6860, -1332, Bias, 14 + L);
    }
}

inline void store8(int16_t* p, __m128i x) { simd::storeu128(p, x); }
inline void store16(int16_t* p, __m256i x) { simd::storeu256(p, x); }

// One MCU by the vector forms. 444 takes two source rows per step; 422 two
// rows and 411 four rows, so that each step ends with two whole chroma rows.
template <Px PX, Sampling S, FwdForm F>
void fwdVecT(const uint8_t* src, int srcStep, int16_t* const dst[4]) {
    constexpr int bpp = pixelBytes(PX), L = chromaLog2(S), bias = blockBias(S, PX);
    constexpr bool hasK = PX == Px::CMYK;
    const __m256i kShift = k16(128);
    auto row = [&](int y) { return src + static_cast<ptrdiff_t>(y) * srcStep; };
    __m256i r, g, b, k = _mm256_setzero_si256(), cb, cr;
    if constexpr (S == k444) {
        for (int y = 0; y < 8; y += 2) {
            gather16<PX>(row(y), row(y + 1), r, g, b, k);
            store16(dst[0] + 8 * y, lumaVec<F>(r, g, b));
            chromaVec<F, 0, bias>(r, g, b, cb, cr);
            store16(dst[1] + 8 * y, cb);
            store16(dst[2] + 8 * y, cr);
            if constexpr (hasK) store16(dst[3] + 8 * y, _mm256_sub_epi16(k, kShift));
        }
    } else {
        constexpr int rowsPerStep = S == k422 ? 2 : 4, perChromaRow = rowsPerStep / 2;
        for (int y = 0; y < mcuHeight(S); y += rowsPerStep) {
            __m256i s[2][3];
            for (int i = 0; i < rowsPerStep; ++i) {
                const int yy = y + i, off = (yy >> 3) * 128 + (yy & 7) * 8;
                const uint8_t* p = row(yy);
                gather16<PX>(p, p + 8 * bpp, r, g, b, k);
                const __m256i yl = lumaVec<F>(r, g, b);
                store8(dst[0] + off, _mm256_castsi256_si128(yl));
                store8(dst[0] + off + 64, _mm256_extracti128_si256(yl, 1));
                if constexpr (hasK) {
                    const __m256i kk = _mm256_sub_epi16(k, kShift);
                    store8(dst[3] + off, _mm256_castsi256_si128(kk));
                    store8(dst[3] + off + 64, _mm256_extracti128_si256(kk, 1));
                }
                const int c = i / perChromaRow;
                const __m256i pr = pairSums(r), pg = pairSums(g), pb = pairSums(b);
                if (i % perChromaRow == 0) {
                    s[c][0] = pr;
                    s[c][1] = pg;
                    s[c][2] = pb;
                } else {
                    s[c][0] = _mm256_add_epi32(s[c][0], pr);
                    s[c][1] = _mm256_add_epi32(s[c][1], pg);
                    s[c][2] = _mm256_add_epi32(s[c][2], pb);
                }
            }
            chromaVec<F, L, bias>(joinSums(s[0][0], s[1][0]), joinSums(s[0][1], s[1][1]), joinSums(s[0][2], s[1][2]), cb,
                                  cr);
            const int crow = S == k411 ? y / 2 : y;
            store16(dst[1] + 8 * crow, cb);
            store16(dst[2] + 8 * crow, cr);
        }
    }
}

template <Px PX, FwdForm F>
void fwdVecS(const uint8_t* src, int srcStep, int16_t* const dst[4], Sampling s) {
    switch (s) {
        case k444: fwdVecT<PX, k444, F>(src, srcStep, dst); break;
        case k422: fwdVecT<PX, k422, F>(src, srcStep, dst); break;
        case k411: fwdVecT<PX, k411, F>(src, srcStep, dst); break;
    }
}

}  // namespace

void fwdScalar(const uint8_t* src, int srcStep, int16_t* const dst[4], Sampling s, Px px, FwdForm f) {
    const int W = mcuWidth(s), H = mcuHeight(s), l = chromaLog2(s), bpp = pixelBytes(px);
    const int hs = s == k444 ? 1 : 2, vs = s == k411 ? 2 : 1;
    auto pix = [&](int x, int y) { return readPixel(src + static_cast<ptrdiff_t>(y) * srcStep + x * bpp, px); };
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const Pixel p = pix(x, y);
            const int idx = ((y >> 3) * (W >> 3) + (x >> 3)) * 64 + (y & 7) * 8 + (x & 7);
            const int luma = f == FwdForm::Block ? lumaBlock(p.r, p.g, p.b)
                             : f == FwdForm::Plain ? lumaPlain(p.r, p.g, p.b)
                                                   : p.r - 128;
            storeAs<int16_t>(dst[0] + idx, static_cast<int16_t>(luma));
            if (px == Px::CMYK) storeAs<int16_t>(dst[3] + idx, static_cast<int16_t>(p.k - 128));
        }
    for (int r = 0; r < 8; ++r)
        for (int c = 0; c < 8; ++c) {
            int sr = 0, sg = 0, sb = 0;
            for (int dy = 0; dy < vs; ++dy)
                for (int dx = 0; dx < hs; ++dx) {
                    const Pixel p = pix(c * hs + dx, r * vs + dy);
                    sr += p.r;
                    sg += p.g;
                    sb += p.b;
                }
            int cb, cr;
            if (f == FwdForm::Block) {
                const int bias = blockBias(s, px);
                cb = (-2764 * sr - 5428 * sg + 8192 * sb + bias) >> (14 + l);
                cr = (8192 * sr - 6860 * sg - 1332 * sb + bias) >> (14 + l);
            } else if (f == FwdForm::Plain) {
                cb = (-11059 * sr - 21709 * sg + 32768 * sb) >> (16 + l);
                cr = (32768 * sr - 27439 * sg - 5329 * sb) >> (16 + l);
            } else {
                cb = (sg - (128 << l)) >> l;
                cr = (sb - (128 << l)) >> l;
            }
            storeAs<int16_t>(dst[1] + r * 8 + c, static_cast<int16_t>(cb));
            storeAs<int16_t>(dst[2] + r * 8 + c, static_cast<int16_t>(cr));
        }
}

void fwdVec(const uint8_t* src, int srcStep, int16_t* const dst[4], Sampling s, Px px, FwdForm f) {
    if (f == FwdForm::Shift) return fwdVecS<Px::YCC, FwdForm::Shift>(src, srcStep, dst, s);
    const bool plain = f == FwdForm::Plain;
    switch (px) {
        case Px::RGB: plain ? fwdVecS<Px::RGB, FwdForm::Plain>(src, srcStep, dst, s) : fwdVecS<Px::RGB, FwdForm::Block>(src, srcStep, dst, s); break;
        case Px::BGR: plain ? fwdVecS<Px::BGR, FwdForm::Plain>(src, srcStep, dst, s) : fwdVecS<Px::BGR, FwdForm::Block>(src, srcStep, dst, s); break;
        case Px::CMYK: plain ? fwdVecS<Px::CMYK, FwdForm::Plain>(src, srcStep, dst, s) : fwdVecS<Px::CMYK, FwdForm::Block>(src, srcStep, dst, s); break;
        case Px::P555: fwdVecS<Px::P555, FwdForm::Block>(src, srcStep, dst, s); break;
        case Px::P565: fwdVecS<Px::P565, FwdForm::Block>(src, srcStep, dst, s); break;
        case Px::YCC: fwdVecS<Px::YCC, FwdForm::Block>(src, srcStep, dst, s); break;
    }
}

void split422Scalar(const uint8_t* src, int srcStep, int16_t* const dst[3]) {
    for (int y = 0; y < 8; ++y) {
        const uint8_t* p = src + static_cast<ptrdiff_t>(y) * srcStep;
        for (int i = 0; i < 8; ++i) {
            const int x = 2 * i;  // first pixel of the pair
            storeAs<int16_t>(dst[0] + (x >> 3) * 64 + y * 8 + (x & 7), static_cast<int16_t>(p[4 * i] - 128));
            storeAs<int16_t>(dst[0] + (x >> 3) * 64 + y * 8 + (x & 7) + 1, static_cast<int16_t>(p[4 * i + 2] - 128));
            storeAs<int16_t>(dst[1] + y * 8 + i, static_cast<int16_t>(p[4 * i + 1] - 128));
            storeAs<int16_t>(dst[2] + y * 8 + i, static_cast<int16_t>(p[4 * i + 3] - 128));
        }
    }
}

// Each 128-bit half of a 32-byte row holds 4 pairs: its Y bytes go to the
// first 8 bytes, its 4 Cb and 4 Cr bytes after them; a cross-lane permute
// then gathers all 16 Y bytes low and the 8 Cb, 8 Cr bytes high.
void split422Vec(const uint8_t* src, int srcStep, int16_t* const dst[3]) {
    const __m256i order = _mm256_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 5, 9, 13, 3, 7, 11, 15,  //
                                           0, 2, 4, 6, 8, 10, 12, 14, 1, 5, 9, 13, 3, 7, 11, 15);
    const __m256i lanes = _mm256_setr_epi32(0, 1, 4, 5, 2, 6, 3, 7);
    const __m256i kShift = k16(128);
    for (int y = 0; y < 8; ++y) {
        const __m256i x = _mm256_permutevar8x32_epi32(
            _mm256_shuffle_epi8(simd::loadu256(src + static_cast<ptrdiff_t>(y) * srcStep), order), lanes);
        const __m256i yy = _mm256_sub_epi16(_mm256_cvtepu8_epi16(_mm256_castsi256_si128(x)), kShift);
        const __m256i cc = _mm256_sub_epi16(_mm256_cvtepu8_epi16(_mm256_extracti128_si256(x, 1)), kShift);
        store8(dst[0] + 8 * y, _mm256_castsi256_si128(yy));
        store8(dst[0] + 64 + 8 * y, _mm256_extracti128_si256(yy, 1));
        store8(dst[1] + 8 * y, _mm256_castsi256_si128(cc));
        store8(dst[2] + 8 * y, _mm256_extracti128_si256(cc, 1));
    }
}

}  // namespace zeb::mcu

// ---------------------------------------------------------------- exported operations

namespace {

using zeb::mcu::FwdForm;
using zeb::mcu::Px;
using zeb::mcu::Sampling;

inline bool aligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15) == 0; }

// Checks in the order of the MCU encoders: the source and the plane array,
// then the step, then each plane.
inline ZebStatus checkFwd(const void* src, int srcStep, Zeb16s* const* dst, int planes) {
    if (!src || !dst) return zebStatusNullPointer;
    if (srcStep < 1) return zebStatusBadStep;
    for (int i = 0; i < planes; ++i)
        if (!dst[i]) return zebStatusNullPointer;
    return zebStatusOk;
}

ZebStatus encode(const void* src, int srcStep, Zeb16s* const* dst, Sampling s, Px px, FwdForm f) {
    const int planes = zeb::mcu::planesOf(px);
    if (ZebStatus st = checkFwd(src, srcStep, dst, planes); st != zebStatusOk) return st;
    int16_t* const d[4] = {dst[0], dst[1], dst[2], planes == 4 ? dst[3] : nullptr};
    zeb::mcu::fwdVec(static_cast<const uint8_t*>(src), srcStep, d, s, px, f);
    return zebStatusOk;
}

// The RGB and BGR 4:1:1 encoders: the block form when plane 0 is 16-byte
// aligned, the plain form otherwise.
ZebStatus encode411(const Zeb8u* src, int srcStep, Zeb16s* const* dst, Px px) {
    if (ZebStatus st = checkFwd(src, srcStep, dst, 3); st != zebStatusOk) return st;
    return encode(src, srcStep, dst, zeb::mcu::k411, px, aligned16(dst[0]) ? FwdForm::Block : FwdForm::Plain);
}

// CMYK: the block form when the planes named by `mask` are all 16-byte
// aligned, the plain form otherwise.
ZebStatus encodeCmyk(const Zeb8u* src, int srcStep, Zeb16s* const* dst, Sampling s) {
    if (ZebStatus st = checkFwd(src, srcStep, dst, 4); st != zebStatusOk) return st;
    bool blockForm = aligned16(dst[0]) && aligned16(dst[3]);
    if (s == zeb::mcu::k444) blockForm = blockForm && aligned16(dst[1]) && aligned16(dst[2]);
    return encode(src, srcStep, dst, s, Px::CMYK, blockForm ? FwdForm::Block : FwdForm::Plain);
}

}  // namespace

ZebStatus zebimpl::zebiRGBToYCbCr444LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k444, Px::RGB, FwdForm::Block);
}
ZebStatus zebimpl::zebiBGRToYCbCr444LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k444, Px::BGR, FwdForm::Block);
}
ZebStatus zebimpl::zebiRGBToYCbCr422LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k422, Px::RGB, FwdForm::Block);
}
ZebStatus zebimpl::zebiBGRToYCbCr422LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k422, Px::BGR, FwdForm::Block);
}
ZebStatus zebimpl::zebiRGBToYCbCr411LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode411(src, srcStep, dst, Px::RGB);
}
ZebStatus zebimpl::zebiBGRToYCbCr411LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode411(src, srcStep, dst, Px::BGR);
}

ZebStatus zebimpl::zebiBGR555ToYCbCr444LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k444, Px::P555, FwdForm::Block);
}
ZebStatus zebimpl::zebiBGR565ToYCbCr444LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k444, Px::P565, FwdForm::Block);
}
ZebStatus zebimpl::zebiBGR555ToYCbCr422LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k422, Px::P555, FwdForm::Block);
}
ZebStatus zebimpl::zebiBGR565ToYCbCr422LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k422, Px::P565, FwdForm::Block);
}
ZebStatus zebimpl::zebiBGR555ToYCbCr411LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k411, Px::P555, FwdForm::Block);
}
ZebStatus zebimpl::zebiBGR565ToYCbCr411LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k411, Px::P565, FwdForm::Block);
}

ZebStatus zebimpl::zebiCMYKToYCCK444LS_MCU_8u16s_C4P4R(const Zeb8u* src, int srcStep, Zeb16s* const dst[4]) {
    return encodeCmyk(src, srcStep, dst, zeb::mcu::k444);
}
ZebStatus zebimpl::zebiCMYKToYCCK422LS_MCU_8u16s_C4P4R(const Zeb8u* src, int srcStep, Zeb16s* const dst[4]) {
    return encodeCmyk(src, srcStep, dst, zeb::mcu::k422);
}
ZebStatus zebimpl::zebiCMYKToYCCK411LS_MCU_8u16s_C4P4R(const Zeb8u* src, int srcStep, Zeb16s* const dst[4]) {
    return encodeCmyk(src, srcStep, dst, zeb::mcu::k411);
}

ZebStatus zebimpl::zebiSampleDown444LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k444, Px::YCC, FwdForm::Shift);
}
ZebStatus zebimpl::zebiSampleDown422LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k422, Px::YCC, FwdForm::Shift);
}
ZebStatus zebimpl::zebiSampleDown411LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    return encode(src, srcStep, dst, zeb::mcu::k411, Px::YCC, FwdForm::Shift);
}
ZebStatus zebimpl::zebiSplit422LS_MCU_8u16s_C2P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]) {
    if (ZebStatus st = checkFwd(src, srcStep, dst, 3); st != zebStatusOk) return st;
    int16_t* const d[3] = {dst[0], dst[1], dst[2]};
    zeb::mcu::split422Vec(src, srcStep, d);
    return zebStatusOk;
}
