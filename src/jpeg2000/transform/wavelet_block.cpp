// Whole-block wavelet drivers: one level of the 5/3 or 9/7 transform on a
// region, with symmetric extension, the parity of the region's origin and
// lines of one and two samples. Every line, column or row, is gathered into
// the caller's work buffer behind room for its left extension, extended,
// lifted in place and scattered back with the low band first.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "frame/impl.h"
#include "frame/memory.h"
#include "jpeg2000/transform/wavelet.h"

namespace zeb::j2k {

namespace {

constexpr float kAlpha = std::bit_cast<float>(0xBFCB0673u);
constexpr float kBeta = std::bit_cast<float>(0xBD5901AEu);
constexpr float kGamma = std::bit_cast<float>(0x3F620676u);
constexpr float kDelta = std::bit_cast<float>(0x3EE31355u);
constexpr float kK = std::bit_cast<float>(0x3F9D7658u);
constexpr float kInvK = std::bit_cast<float>(0x3F5019C3u);

// ------------------------------------------------------------ line access
// A line of n samples of type T in caller memory, `stride` bytes apart.
template <class T>
struct Strided {
    uint8_t* base;
    intptr_t stride;
    T get(int32_t k) const { return loadAs<T>(base + stride * k); }
    void set(int32_t k, T v) const { storeAs<T>(base + stride * k, v); }
};

// The work line: sample k at byte offset k * sizeof(W) from sample 0.
template <class W>
struct Line {
    uint8_t* p;
    W get(int32_t k) const { return loadAs<W>(p + intptr_t{k} * int(sizeof(W))); }
    void set(int32_t k, W v) const { storeAs<W>(p + intptr_t{k} * int(sizeof(W)), v); }
};

// Whole-sample symmetric extension: x[-i] = x[i], x[n-1+i] = x[n-1-i]. For
// short lines the index keeps bouncing between 0 and n-1 (period 2(n-1)).
inline int32_t bounce(int32_t k, int32_t n) {
    const int32_t per = 2 * (n - 1);
    k %= per;
    if (k < 0) k += per;
    return k < n ? k : per - k;
}
template <class W>
void extend(const Line<W>& ln, int32_t n, int32_t left, int32_t right) {
    for (int32_t i = 1; i <= left; ++i) ln.set(-i, ln.get(bounce(-i, n)));
    for (int32_t i = 1; i <= right; ++i) ln.set(n - 1 + i, ln.get(bounce(n - 1 + i, n)));
}

inline bool isHigh(int32_t k, int p) { return ((k + p) & 1) != 0; }
// First position of the given class (high or not) at or after k.
inline int32_t firstOf(int32_t k, bool high, int p) { return isHigh(k, p) == high ? k : k + 1; }

// One lifting step over positions of one class in [lo, hi]: f(k).
template <class F>
inline void stepOver(int32_t lo, int32_t hi, bool high, int p, F&& f) {
    for (int32_t k = firstOf(lo, high, p); k <= hi; k += 2) f(k);
}

// Gathers a line into the work line / scatters bands back, low first.
template <class T, class W>
void gather(const Strided<T>& s, const Line<W>& ln, int32_t n) {
    for (int32_t k = 0; k < n; ++k) ln.set(k, static_cast<W>(s.get(k)));
}
template <class T, class W, class Cvt>
void scatterBands(const Line<W>& ln, const Strided<T>& s, int32_t n, int p, Cvt&& cvt) {
    const int32_t nL = (n + 1 - p) >> 1;
    int32_t il = 0, ih = nL;
    for (int32_t k = 0; k < n; ++k) {
        const T v = cvt(ln.get(k), k);
        if (isHigh(k, p)) s.set(ih++, v);
        else s.set(il++, v);
    }
}
template <class T, class W, class Cvt>
void gatherBands(const Strided<T>& s, const Line<W>& ln, int32_t n, int p, Cvt&& cvt) {
    const int32_t nL = (n + 1 - p) >> 1;
    int32_t il = 0, ih = nL;
    for (int32_t k = 0; k < n; ++k) ln.set(k, cvt(isHigh(k, p) ? s.get(ih++) : s.get(il++), k));
}

// ------------------------------------------------------------ 5/3 lines

template <class T>
struct Arith53;
template <>
struct Arith53<int16_t> : Sum32of16 {
    static int16_t keep(int64_t v) { return wrap16(wrap32(v)); }
};
template <>
struct Arith53<int32_t> : Sum32 {
    static int32_t keep(int64_t v) { return wrap32(v); }
};

template <class T>
void fwdLine53(const Strided<T>& s, const Line<T>& ln, int32_t n, int p) {
    using S = Arith53<T>;
    if (n == 1) {
        s.set(0, S::keep(int64_t{s.get(0)} * (p + 1)));
        return;
    }
    if (n == 2) {
        const int32_t e = s.get(p), o = s.get(1 - p);
        const int32_t d = sub32(o, e);
        s.set(0, S::keep(add32(e, add32(d, 1) >> 1)));
        s.set(1, S::keep(d));
        return;
    }
    const int32_t left = 2 - p, right = ((p + n) & 1) + 1;
    gather(s, ln, n);
    extend(ln, n, left, right);
    stepOver(-left + 1, n - 2 + right, true, p, [&](int32_t k) { ln.set(k, S::fp(ln.get(k), ln.get(k - 1), ln.get(k + 1))); });
    stepOver(-left + 2, n - 3 + right, false, p, [&](int32_t k) { ln.set(k, S::fu(ln.get(k), ln.get(k - 1), ln.get(k + 1))); });
    scatterBands(ln, s, n, p, [](T v, int32_t) { return v; });
}

template <class T>
void invLine53(const Strided<T>& s, const Line<T>& ln, int32_t n, int p) {
    using S = Arith53<T>;
    if (n == 1) {
        s.set(0, S::keep(int64_t{s.get(0)} / (p + 1)));
        return;
    }
    if (n == 2) {
        const int32_t l = s.get(0), h = s.get(1);
        const int32_t e = sub32(l, add32(h, 1) >> 1);
        s.set(p, S::keep(e));
        s.set(1 - p, S::keep(add32(h, e)));
        return;
    }
    const int32_t left = p + 1, right = 2 - ((p + n) & 1);
    gatherBands(s, ln, n, p, [](T v, int32_t) { return v; });
    extend(ln, n, left, right);
    stepOver(-left + 1, n - 2 + right, false, p, [&](int32_t k) { ln.set(k, S::iu(ln.get(k), ln.get(k - 1), ln.get(k + 1))); });
    stepOver(-left + 2, n - 3 + right, true, p, [&](int32_t k) { ln.set(k, S::ip(ln.get(k), ln.get(k - 1), ln.get(k + 1))); });
    for (int32_t k = 0; k < n; ++k) s.set(k, ln.get(k));
}

// ------------------------------------------------------------ 9/7 lines, 16-bit
// 14 fraction bits, products in 32 bits, each step truncated to 16 bits.

inline int16_t r14(int32_t own, int32_t sum, int32_t c) { return wrap16(own + ((sum * c + 8192) >> 14)); }
inline int16_t m14(int32_t v, int32_t c) { return wrap16((v * c + 8192) >> 14); }

inline void extents97(int32_t n, int p, bool fwd, int32_t& left, int32_t& right) {
    if (n <= 4) {
        left = right = 4;
    } else if (fwd) {
        left = 4 - p;
        right = ((p + n) & 1) + 3;
    } else {
        left = p + 3;
        right = 4 - ((p + n) & 1);
    }
}

void fwdLine97_16s(const Strided<int16_t>& s, const Line<int16_t>& ln, int32_t n, int p) {
    if (n == 1) {
        s.set(0, wrap16(int32_t{s.get(0)} * (p + 1)));
        return;
    }
    int32_t left, right;
    extents97(n, p, true, left, right);
    gather(s, ln, n);
    extend(ln, n, left, right);
    auto step = [&](int j, bool high, int32_t c) {
        stepOver(-left + j, n - 1 + right - j, high, p, [&](int32_t k) {
            ln.set(k, r14(ln.get(k), int32_t{ln.get(k - 1)} + ln.get(k + 1), c));
        });
    };
    step(1, true, -25987);
    step(2, false, -868);
    step(3, true, 14466);
    step(4, false, 7266);
    scatterBands(ln, s, n, p, [&](int16_t v, int32_t k) { return m14(v, isHigh(k, p) ? 20155 : 13318); });
}

void invLine97_16s(const Strided<int16_t>& s, const Line<int16_t>& ln, int32_t n, int p) {
    if (n == 1) {
        s.set(0, static_cast<int16_t>(int32_t{s.get(0)} / (p + 1)));
        return;
    }
    int32_t left, right;
    extents97(n, p, false, left, right);
    gatherBands(s, ln, n, p, [&](int16_t v, int32_t k) { return m14(v, isHigh(k, p) ? 13318 : 20155); });
    extend(ln, n, left, right);
    auto step = [&](int j, bool high, int32_t c) {
        stepOver(-left + j, n - 1 + right - j, high, p, [&](int32_t k) {
            const int32_t sum = int32_t{ln.get(k - 1)} + ln.get(k + 1);
            ln.set(k, wrap16(ln.get(k) - ((sum * c + 8192) >> 14)));
        });
    };
    step(1, false, 7266);
    step(2, true, 14466);
    step(3, false, -868);
    step(4, true, -25987);
    for (int32_t k = 0; k < n; ++k) s.set(k, ln.get(k));
}

// ------------------------------------------------------------ 9/7 lines, 32-bit
// Single-precision lifting with fused multiply-adds; the first step adds the
// integer neighbours in 32 bits before converting. The work line holds the
// integers first and each position's float once a step has reached it.

inline int32_t toInt(float f) {
    if (f > 2147483648.0f) return INT32_MAX;
    if (f < -2147483648.0f) return INT32_MIN;
    if (f >= 2147483648.0f) return INT32_MIN;  // 2^31 itself: the converter's out-of-range value
    return static_cast<int32_t>(f);
}

void fwdLine97_32s(const Strided<int32_t>& s, const Line<int32_t>& ln, int32_t n, int p) {
    if (n == 1) {
        s.set(0, wrap32(int64_t{s.get(0)} * (p + 1)));
        return;
    }
    int32_t left, right;
    extents97(n, p, true, left, right);
    gather(s, ln, n);
    extend(ln, n, left, right);
    const Line<float> lf{ln.p};
    stepOver(-left + 1, n - 2 + right, true, p, [&](int32_t k) {
        const float sum = static_cast<float>(add32(ln.get(k - 1), ln.get(k + 1)));
        lf.set(k, std::fma(kAlpha, sum, static_cast<float>(ln.get(k))));
    });
    stepOver(-left + 2, n - 3 + right, false, p, [&](int32_t k) {
        lf.set(k, std::fma(kBeta, lf.get(k - 1) + lf.get(k + 1), static_cast<float>(ln.get(k))));
    });
    stepOver(-left + 3, n - 4 + right, true, p,
             [&](int32_t k) { lf.set(k, std::fma(kGamma, lf.get(k - 1) + lf.get(k + 1), lf.get(k))); });
    stepOver(-left + 4, n - 5 + right, false, p,
             [&](int32_t k) { lf.set(k, std::fma(kDelta, lf.get(k - 1) + lf.get(k + 1), lf.get(k))); });
    scatterBands(lf, s, n, p, [&](float v, int32_t k) { return toInt(v * (isHigh(k, p) ? kK : kInvK)); });
}

void invLine97_32s(const Strided<int32_t>& s, const Line<int32_t>& ln, int32_t n, int p) {
    if (n == 1) {
        s.set(0, static_cast<int32_t>(int64_t{s.get(0)} / (p + 1)));
        return;
    }
    int32_t left, right;
    extents97(n, p, false, left, right);
    const Line<float> lf{ln.p};
    gatherBands(s, lf, n, p, [&](int32_t v, int32_t k) { return (isHigh(k, p) ? kInvK : kK) * static_cast<float>(v); });
    extend(lf, n, left, right);
    auto step = [&](int j, bool high, float c) {
        stepOver(-left + j, n - 1 + right - j, high, p,
                 [&](int32_t k) { lf.set(k, std::fma(-c, lf.get(k - 1) + lf.get(k + 1), lf.get(k))); });
    };
    step(1, false, kDelta);
    step(2, true, kGamma);
    step(3, false, kBeta);
    step(4, true, kAlpha);
    for (int32_t k = 0; k < n; ++k) s.set(k, toInt(lf.get(k)));
}

// ------------------------------------------------------------ whole region

template <class T>
using LineFn = void (*)(const Strided<T>&, const Line<T>&, int32_t, int);

// In place on a region at `base` with row step `step`: forward does every
// column, then every row; inverse every row, then every column.
template <class T>
void region(uint8_t* base, int32_t step, int32_t w, int32_t h, int px, int py, uint8_t* line, int room, bool fwd,
            LineFn<T> fn) {
    if (w < 1 || h < 1) return;  // an empty region has nothing to transform
    const Line<T> ln{line + room * int(sizeof(T))};
    auto cols = [&] {
        for (int32_t c = 0; c < w; ++c) fn(Strided<T>{base + intptr_t{c} * int(sizeof(T)), step}, ln, h, py);
    };
    auto rows = [&] {
        for (int32_t r = 0; r < h; ++r) fn(Strided<T>{base + intptr_t{step} * r, int(sizeof(T))}, ln, w, px);
    };
    if (fwd) {
        cols();
        rows();
    } else {
        rows();
        cols();
    }
}

inline int32_t lowCount(int32_t n, int p) { return (n + 1 - p) >> 1; }

struct Family {
    int room;      // samples of room before the line
    int minLine;   // buffer size 0 if both sides are below this
    int extra;     // samples of extension room in the size formula
};

template <class T>
int64_t lineBytes(const Family& f, int32_t w, int32_t h) {
    if (w < f.minLine && h < f.minLine) return 0;
    const int64_t e = sizeof(T);
    return std::max(e * w + e * f.extra, e * h + e * f.extra);
}
template <class T>
int32_t copyStride(int32_t w) { return static_cast<int32_t>((int64_t{w} * int(sizeof(T)) + 31) & ~int64_t{31}); }

constexpr Family kB53{2, 3, 4};
constexpr Family kD97{4, 2, 8};

// Band rectangles in the region: origin (column, row) and size, in the
// order LL, LH, HL, HH.
struct Bands {
    int32_t x[4], y[4], w[4], h[4];
};
inline Bands bandsOf(int32_t w, int32_t h, int px, int py) {
    const int32_t lw = lowCount(w, px), lh = lowCount(h, py);
    return Bands{{0, 0, lw, lw}, {0, lh, 0, lh}, {lw, lw, w - lw, w - lw}, {lh, h - lh, lh, h - lh}};
}

template <class T>
void copyRows(const uint8_t* src, int32_t ss, uint8_t* dst, int32_t ds, int32_t w, int32_t h) {
    const int len = w * int(sizeof(T));
    if (len <= 0) return;
    for (int32_t r = 0; r < h; ++r) ownsCopy_8u(src + intptr_t{ss} * r, dst + intptr_t{ds} * r, len);
}

template <class T>
ZebStatus fwdC1R(const T* src, int srcStep, const ZebTileRect* rect, T* const dst[4], const int dstStep[4],
                 Zeb8u* buffer, const Family& f, LineFn<T> fn) {
    if (!src || !dst || !dstStep || !rect || !buffer) return zebStatusNullPointer;
    if (srcStep < 1) return zebStatusBadStep;
    for (int b = 0; b < 4; ++b)
        if (!dst[b]) return zebStatusNullPointer;
    for (int b = 0; b < 4; ++b)
        if (dstStep[b] < 1) return zebStatusBadStep;
    const int32_t w = rect->width, h = rect->height;
    if (w < 1 || h < 1) return zebStatusBadSize;
    const int px = rect->x & 1, py = rect->y & 1;
    const int32_t S = copyStride<T>(w);
    copyRows<T>(reinterpret_cast<const uint8_t*>(src), srcStep, buffer, S, w, h);
    region<T>(buffer, S, w, h, px, py, buffer + intptr_t{S} * h, f.room, true, fn);
    const Bands bd = bandsOf(w, h, px, py);
    for (int b = 0; b < 4; ++b)
        copyRows<T>(buffer + intptr_t{S} * bd.y[b] + intptr_t{bd.x[b]} * int(sizeof(T)), S,
                    reinterpret_cast<uint8_t*>(dst[b]), dstStep[b], bd.w[b], bd.h[b]);
    return zebStatusOk;
}

template <class T>
ZebStatus invC1R(const T* const src[4], const int srcStep[4], T* dst, int dstStep, const ZebTileRect* rect,
                 Zeb8u* buffer, const Family& f, LineFn<T> fn) {
    if (!src || !dst || !srcStep || !rect || !buffer) return zebStatusNullPointer;
    if (dstStep < 1) return zebStatusBadStep;
    for (int b = 0; b < 4; ++b)
        if (!src[b]) return zebStatusNullPointer;
    for (int b = 0; b < 4; ++b)
        if (srcStep[b] < 1) return zebStatusBadStep;
    const int32_t w = rect->width, h = rect->height;
    if (w < 1 || h < 1) return zebStatusBadSize;
    const int px = rect->x & 1, py = rect->y & 1;
    const int32_t S = copyStride<T>(w);
    const Bands bd = bandsOf(w, h, px, py);
    for (int b = 0; b < 4; ++b)
        copyRows<T>(reinterpret_cast<const uint8_t*>(src[b]), srcStep[b],
                    buffer + intptr_t{S} * bd.y[b] + intptr_t{bd.x[b]} * int(sizeof(T)), S, bd.w[b], bd.h[b]);
    region<T>(buffer, S, w, h, px, py, buffer + intptr_t{S} * h, f.room, false, fn);
    copyRows<T>(buffer, S, reinterpret_cast<uint8_t*>(dst), dstStep, w, h);
    return zebStatusOk;
}

template <class T>
ZebStatus inPlace(T* srcDst, int step, const ZebTileRect* rect, Zeb8u* buffer, const Family& f, bool fwd,
                  LineFn<T> fn) {
    if (!srcDst) return zebStatusNullPointer;
    if (step < 1) return zebStatusBadStep;
    if (!rect || !buffer) return zebStatusNullPointer;
    region<T>(reinterpret_cast<uint8_t*>(srcDst), step, rect->width, rect->height, rect->x & 1, rect->y & 1, buffer,
              f.room, fwd, fn);
    return zebStatusOk;
}

template <class T>
ZebStatus bufSize(const ZebTileRect* rect, int* size, const Family& f, bool copy) {
    if (!rect || !size) return zebStatusNullPointer;
    int64_t n = lineBytes<T>(f, rect->width, rect->height);
    if (copy) n += int64_t{copyStride<T>(rect->width)} * rect->height;
    *size = wrap32(n);
    return zebStatusOk;
}

}  // namespace

}  // namespace zeb::j2k

namespace j = zeb::j2k;

#define ZEB_DRIVERS(ALG, T, TAG, FAM, FWD, INV)                                                                      \
    ZebStatus zebimpl::zebiWTFwd_##ALG##_JPEG2K_##TAG##_C1R(const T* src, int srcStep, const ZebTileRect* rect,     \
                                                             T* const dst[4], const int dstStep[4], Zeb8u* buffer) { \
        return j::fwdC1R<T>(src, srcStep, rect, dst, dstStep, buffer, j::FAM, FWD);                                 \
    }                                                                                                                \
    ZebStatus zebimpl::zebiWTInv_##ALG##_JPEG2K_##TAG##_C1R(const T* const src[4], const int srcStep[4], T* dst,     \
                                                             int dstStep, const ZebTileRect* rect, Zeb8u* buffer) {  \
        return j::invC1R<T>(src, srcStep, dst, dstStep, rect, buffer, j::FAM, INV);                                 \
    }                                                                                                                \
    ZebStatus zebimpl::zebiWTFwd_##ALG##_JPEG2K_##TAG##_C1IR(T* srcDst, int srcDstStep, const ZebTileRect* rect,    \
                                                              Zeb8u* buffer) {                                       \
        return j::inPlace<T>(srcDst, srcDstStep, rect, buffer, j::FAM, true, FWD);                                  \
    }                                                                                                                \
    ZebStatus zebimpl::zebiWTInv_##ALG##_JPEG2K_##TAG##_C1IR(T* srcDst, int srcDstStep, const ZebTileRect* rect,    \
                                                              Zeb8u* buffer) {                                       \
        return j::inPlace<T>(srcDst, srcDstStep, rect, buffer, j::FAM, false, INV);                                 \
    }                                                                                                                \
    ZebStatus zebimpl::zebiWTGetBufSize_##ALG##_JPEG2K_##TAG##_C1IR(const ZebTileRect* rect, int* size) {           \
        return j::bufSize<T>(rect, size, j::FAM, false);                                                            \
    }                                                                                                                \
    ZebStatus zebimpl::zebiWTGetBufSize_##ALG##_JPEG2K_##TAG##_C1R(const ZebTileRect* rect, int* size) {            \
        return j::bufSize<T>(rect, size, j::FAM, true);                                                             \
    }

ZEB_DRIVERS(B53, Zeb16s, 16s, kB53, j::fwdLine53<int16_t>, j::invLine53<int16_t>)
ZEB_DRIVERS(B53, Zeb32s, 32s, kB53, j::fwdLine53<int32_t>, j::invLine53<int32_t>)
ZEB_DRIVERS(D97, Zeb16s, 16s, kD97, j::fwdLine97_16s, j::invLine97_16s)
ZEB_DRIVERS(D97, Zeb32s, 32s, kD97, j::fwdLine97_32s, j::invLine97_32s)
