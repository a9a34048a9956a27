// Irreversible 9/7 wavelet building blocks: forward and inverse rows (16-bit,
// 32-bit and float), float columns and single lifting steps in all three
// number forms. Nothing is extended here: the caller supplies the samples
// beyond the region.
//
// Rows and columns run one chain engine. It works a run of band indices
// [i0, i1) at a time through stack arrays, recomputing the few values of
// working state it needs beyond the run on each side, so that a long line goes
// through the first-level cache in pieces and gives exactly what one piece
// over the whole line gives: every value depends only on its position.
#include <algorithm>
#include <bit>
#include <cmath>

#include "frame/impl.h"
#include "jpeg2000/transform/wavelet.h"

// The float chain runs on __m256 lanes as a template argument.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace zeb::j2k {

namespace {

// ------------------------------------------------------------ constants

constexpr float kAlpha = std::bit_cast<float>(0xBFCB0673u);
constexpr float kBeta = std::bit_cast<float>(0xBD5901AEu);
constexpr float kGamma = std::bit_cast<float>(0x3F620676u);
constexpr float kDelta = std::bit_cast<float>(0x3EE31355u);
constexpr float kK = std::bit_cast<float>(0x3F9D7658u);
constexpr float kInvK = std::bit_cast<float>(0x3F5019C3u);
constexpr float kDeltaK = std::bit_cast<float>(0x3EB8968Eu);

// ------------------------------------------------------------ float lanes
// The float form on one value or on eight columns at once.

inline float vadd(float a, float b) { return a + b; }
inline float vmul(float a, float b) { return a * b; }
inline float vfma(float a, float b, float c) { return std::fma(a, b, c); }
inline float vset(float c, float) { return c; }
inline __m256 vadd(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
inline __m256 vmul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
inline __m256 vfma(__m256 a, __m256 b, __m256 c) { return _mm256_fmadd_ps(a, b, c); }
inline __m256 vset(float c, __m256) { return _mm256_set1_ps(c); }

// own + c * (n1 + n2): fused on the edges, rounded twice elsewhere.
template <class V>
inline V fstep(V own, V n1, V n2, float c, bool fused) {
    const V s = vadd(n1, n2);
    const V k = vset(c, own);
    return fused ? vfma(k, s, own) : vadd(own, vmul(k, s));
}

template <class V>
struct Float97 {
    using W = V;
    static V A(V x, V n1, V n2, bool f) { return fstep(x, n1, n2, kAlpha, f); }
    static V B(V x, V n1, V n2, bool f) { return fstep(x, n1, n2, kBeta, f); }
    static V C(V a, V n1, V n2, bool f) { return fstep(a, n1, n2, kGamma, f); }
    static V Lo(V b, V c1, V c2, bool f, bool) { return vmul(fstep(b, c1, c2, kDelta, f), vset(kInvK, b)); }
    static V Hi(V c) { return vmul(c, vset(kK, c)); }
    static V iB(V l, V h1, V h2, bool f) { return fstep(vmul(vset(kK, l), l), h1, h2, -kDeltaK, f); }
    static V iA(V h, V b1, V b2, bool f) { return fstep(vmul(vset(kInvK, h), h), b1, b2, -kGamma, f); }
    static V iXE(V b, V a1, V a2, bool f) { return fstep(b, a1, a2, -kBeta, f); }
    static V iXO(V a, V x1, V x2, bool f) { return fstep(a, x1, x2, -kAlpha, f); }
};

// ------------------------------------------------------------ 16 fraction bits
// Sums of two neighbours wrap at 32 bits; products are exact 64-bit values.

inline int32_t r16(int64_t p) { return wrap32((p + 32768) >> 16); }

struct Fixed16 {
    using W = int32_t;
    static W A(W x, W n1, W n2, bool) { return add32(x, r16(int64_t{-103949} * add32(n1, n2))); }
    static W B(W x, W n1, W n2, bool) { return add32(x, r16(int64_t{-3472} * add32(n1, n2))); }
    static W C(W a, W n1, W n2, bool) { return add32(a, r16(int64_t{57862} * add32(n1, n2))); }
    static W Lo(W b, W c1, W c2, bool, bool rowEnd) {
        if (rowEnd) return r16(int64_t{53274} * add32(b, r16(int64_t{29066} * add32(c1, c2))));
        return r16(int64_t{53274} * b + int64_t{23627} * add32(c1, c2));
    }
    static W Hi(W c) { return r16(int64_t{80621} * c); }
    static W iB(W l, W h1, W h2, bool) { return r16(int64_t{80621} * l - int64_t{23627} * add32(h1, h2)); }
    static W iA(W h, W b1, W b2, bool) { return r16(int64_t{53274} * h - int64_t{57862} * add32(b1, b2)); }
    static W iXE(W b, W a1, W a2, bool) { return sub32(b, r16(int64_t{-3472} * add32(a1, a2))); }
    static W iXO(W a, W x1, W x2, bool) { return sub32(a, r16(int64_t{-103949} * add32(x1, x2))); }
};

// ------------------------------------------------------------ 15 fraction bits
// 16-bit values held in 32-bit lanes; saturating sums, rounding multiplies.

inline int32_t mulr(int32_t v, int32_t c) { return (v * c + 16384) >> 15; }
inline int32_t sats(int32_t a, int32_t b) { return sat16(int64_t{a} + b); }
inline int32_t dbl(int32_t s) { return sat16(int64_t{s} * 2); }

struct Fixed15 {
    using W = int32_t;
    static W A(W x, W n1, W n2, bool) { return sat16(int64_t{x} + mulr(dbl(sats(n1, n2)), -25987)); }
    static W B(W x, W n1, W n2, bool) { return sat16(int64_t{x} + mulr(sats(n1, n2), -1736)); }
    static W C(W a, W n1, W n2, bool) { return sat16(int64_t{a} + mulr(sats(n1, n2), 28931)); }
    static W Lo(W b, W c1, W c2, bool, bool) {
        return sat16(int64_t{mulr(b, 26637)} + (mulr(sats(c1, c2), 23627) >> 1));
    }
    static W Hi(W c) { return mulr(dbl(c), 20155); }
    static W iB(W l, W h1, W h2, bool) {
        return sat16(int64_t{mulr(dbl(l), 20155)} - mulr(sats(h1, h2), 11813));
    }
    static W iA(W h, W b1, W b2, bool) { return sat16(int64_t{mulr(h, 26637)} - mulr(sats(b1, b2), 28931)); }
    static W iXE(W b, W a1, W a2, bool) { return sat16(int64_t{b} + mulr(sats(a1, a2), 1736)); }
    static W iXO(W a, W x1, W x2, bool) { return sat16(int64_t{a} + mulr(dbl(sats(x1, x2)), 25987)); }
};

// ------------------------------------------------------------ chain engine

constexpr int kRun = 512;   // band samples per run of a row
constexpr int kRunCol = 64;   // rows per run of the column kernels
constexpr int kPad = 3;       // array slots before index i0

// Positions in the interleaved signal of band index i.
inline int32_t posL(int32_t i, int p) { return 2 * i + p; }
inline int32_t posH(int32_t i, int p) { return 2 * i + 1 - p; }
// The fused form falls on the first and last sample of the line and beyond.
inline bool edgeAt(int32_t pos, int32_t w) { return pos <= 0 || pos >= 2 * w - 1; }
// Low-pass values that take the two-rounding end form of the 32-bit rows.
inline bool lowEnd(int32_t i, int32_t w, int p) { return p == 0 ? i == w - 1 : i >= w - 2; }

// Vector forms of the chain on eight band indices at once. VecF: the float
// form (only positions off the edges reach it). VecH: the 15-fraction-bit
// form in 32-bit lanes, saturating like the single samples, except that the
// subtractions of the first two inverse steps wrap at 16 bits.
struct VecF : Float97<__m256> {
    using V = __m256;
    using W = float;
    static __m256 ld(const float* p) { return _mm256_loadu_ps(p); }
    static void st(float* p, __m256 v) { _mm256_storeu_ps(p, v); }
};

struct VecH {
    using W = int32_t;
    using V = __m256i;
    static V ld(const int32_t* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
    static void st(int32_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
    static V clamp(V v) { return _mm256_min_epi32(_mm256_max_epi32(v, _mm256_set1_epi32(-32768)), _mm256_set1_epi32(32767)); }
    static V wrap(V v) { return _mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16); }
    static V sats(V a, V b) { return clamp(_mm256_add_epi32(a, b)); }
    static V dbl(V s) { return clamp(_mm256_add_epi32(s, s)); }
    static V mulr(V v, int32_t c) {
        return _mm256_srai_epi32(_mm256_add_epi32(_mm256_mullo_epi32(v, _mm256_set1_epi32(c)), _mm256_set1_epi32(16384)), 15);
    }
    static V A(V x, V n1, V n2, bool) { return clamp(_mm256_add_epi32(x, mulr(dbl(sats(n1, n2)), -25987))); }
    static V B(V x, V n1, V n2, bool) { return clamp(_mm256_add_epi32(x, mulr(sats(n1, n2), -1736))); }
    static V C(V a, V n1, V n2, bool) { return clamp(_mm256_add_epi32(a, mulr(sats(n1, n2), 28931))); }
    static V Lo(V b, V c1, V c2, bool, bool) {
        return clamp(_mm256_add_epi32(mulr(b, 26637), _mm256_srai_epi32(mulr(sats(c1, c2), 23627), 1)));
    }
    static V Hi(V c) { return mulr(dbl(c), 20155); }
    static V iB(V l, V h1, V h2, bool) { return wrap(_mm256_sub_epi32(mulr(dbl(l), 20155), mulr(sats(h1, h2), 11813))); }
    static V iA(V h, V b1, V b2, bool) { return wrap(_mm256_sub_epi32(mulr(h, 26637), mulr(sats(b1, b2), 28931))); }
    static V iXE(V b, V a1, V a2, bool) { return clamp(_mm256_add_epi32(b, mulr(sats(a1, a2), 1736))); }
    static V iXO(V a, V x1, V x2, bool) { return clamp(_mm256_add_epi32(a, mulr(dbl(sats(x1, x2)), 25987))); }
};

// No vector form: the scalar twins.
struct NoVec {
    using V = int;
    template <class T>
    static V ld(const T*) { return 0; }
    template <class T>
    static void st(T*, V) {}
    static V A(V, V, V, bool) { return 0; }
    static V B(V, V, V, bool) { return 0; }
    static V C(V, V, V, bool) { return 0; }
    static V Lo(V, V, V, bool, bool) { return 0; }
    static V Hi(V) { return 0; }
    static V iB(V, V, V, bool) { return 0; }
    static V iA(V, V, V, bool) { return 0; }
    static V iXE(V, V, V, bool) { return 0; }
    static V iXO(V, V, V, bool) { return 0; }
};
template <class VP>
constexpr bool kVec = !std::is_same_v<VP, NoVec>;

// Sources and sinks of a run: element by element, or in bulk where the
// vector kernels give them a fill() or a bulk() member.
template <class VP, class G, class W>
inline void gatherInto(G& g, W* d, int32_t first, int32_t count) {
    if constexpr (kVec<VP> && requires { g.fill(d, first, count); }) g.fill(d, first, count);
    else
        for (int32_t k = 0; k < count; ++k) d[k] = g(first + k);
}
template <class VP, class O, class W>
inline void emit(O& out, const W* a, const W* b, int32_t i0, int32_t n) {
    if constexpr (kVec<VP> && requires { out.bulk(a, b, i0, n); }) out.bulk(a, b, i0, n);
    else
        for (int32_t k = 0; k < n; ++k) out(i0 + k, a[k], b[k]);
}

// One pass over band indices [lo, hi]: single samples on the edges, blocks
// of eight in between when a vector form is given (VP not void).
template <class VP, class Pos, class One, class Vec>
inline void pass(int32_t lo, int32_t hi, int32_t w, Pos&& pos, One&& one, Vec&& vec) {
    int32_t i = lo;
    if constexpr (kVec<VP>) {
        for (; i <= hi && edgeAt(pos(i), w); ++i) one(i);
        for (; i + 7 <= hi && !edgeAt(pos(i + 7), w); i += 8) vec(i);
    }
    for (; i <= hi; ++i) one(i);
}


// Forward run: reads xl(i) = x[2i+p] for i in [i0-2, i1+1] and xh(i) =
// x[2i+1-p] for i in [i0-2+p, i1+p]; calls out(i, L, H) for i in [i0, i1).
// seed(stage, ref, lo, hi) may replace working values left of the interior
// (16-bit rows).
template <class P, int RUN, class VP = NoVec, class XL, class XH, class Seed, class Out>
void fwdRun(int32_t i0, int32_t i1, int32_t w, int p, XL&& xl, XH&& xh, Seed&& seed, Out&& out) {
    using W = typename P::W;
    W bl[RUN + 16], bh[RUN + 16], a[RUN + 16], b[RUN + 16], c[RUN + 16], lo[RUN + 16], hi[RUN + 16];
    auto at = [&](W* arr, int32_t i) -> W& { return arr[i - i0 + kPad]; };
    auto ph = [&](int32_t i) { return posH(i, p); };
    auto pl = [&](int32_t i) { return posL(i, p); };
    gatherInto<VP>(xl, &at(bl, i0 - 2), i0 - 2, i1 - i0 + 4);
    gatherInto<VP>(xh, &at(bh, i0 - 2 + p), i0 - 2 + p, i1 - i0 + 3);
    [[maybe_unused]] auto L3 = [&](W* d, W* s0, int32_t o0, W* s1, int32_t o1, W* s2, int32_t o2, auto f, int32_t i) {
        if constexpr (kVec<VP>) VP::st(&at(d, i), f(VP::ld(&at(s0, i + o0)), VP::ld(&at(s1, i + o1)), VP::ld(&at(s2, i + o2))));
    };
    using V = typename VP::V;
    pass<VP>(i0 - 2 + p, i1 + p, w, ph,
             [&](int32_t i) { at(a, i) = P::A(at(bh, i), at(bl, i - p), at(bl, i - p + 1), edgeAt(ph(i), w)); },
             [&](int32_t i) { L3(a, bh, 0, bl, -p, bl, 1 - p, [](V x, V y, V z) { return VP::A(x, y, z, false); }, i); });
    pass<VP>(i0 - 1, i1, w, pl,
             [&](int32_t i) { at(b, i) = P::B(at(bl, i), at(a, i - 1 + p), at(a, i + p), edgeAt(pl(i), w)); },
             [&](int32_t i) { L3(b, bl, 0, a, p - 1, a, p, [](V x, V y, V z) { return VP::B(x, y, z, false); }, i); });
    seed(0, [&](int32_t i) -> W& { return at(b, i); }, i0 - 1, i1);
    pass<VP>(i0 - 1 + p, i1 - 1 + p, w, ph,
             [&](int32_t i) { at(c, i) = P::C(at(a, i), at(b, i - p), at(b, i - p + 1), edgeAt(ph(i), w)); },
             [&](int32_t i) { L3(c, a, 0, b, -p, b, 1 - p, [](V x, V y, V z) { return VP::C(x, y, z, false); }, i); });
    pass<VP>(i0, i1 - 1, w, pl,
             [&](int32_t i) {
                 at(lo, i) = P::Lo(at(b, i), at(c, i - 1 + p), at(c, i + p), edgeAt(pl(i), w), lowEnd(i, w, p));
                 at(hi, i) = P::Hi(at(c, i));
             },
             [&](int32_t i) {
                 if constexpr (kVec<VP>) {
                     // The two-rounding end form of the 32-bit rows never reaches
                     // a vector block: only the float and 16-bit forms have one.
                     L3(lo, b, 0, c, p - 1, c, p, [](V x, V y, V z) { return VP::Lo(x, y, z, false, false); }, i);
                     VP::st(&at(hi, i), VP::Hi(VP::ld(&at(c, i))));
                 }
             });
    emit<VP>(out, &at(lo, i0), &at(hi, i0), i0, i1 - i0);
}

// Inverse run: reads lv(i) for i in [i0-1-p, i1+1-p] and hv(i) for i in
// [i0-2, i1+1]; calls out(i, even, odd) for i in [i0, i1), where even is
// x[2i+p] and odd is x[2i+1-p].
template <class P, int RUN, class VP = NoVec, class LV, class HV, class Seed, class Out>
void invRun(int32_t i0, int32_t i1, int32_t w, int p, LV&& lv, HV&& hv, Seed&& seed, Out&& out) {
    using W = typename P::W;
    W bl[RUN + 16], bh[RUN + 16], b[RUN + 16], a[RUN + 16], xe[RUN + 16], xo[RUN + 16];
    auto at = [&](W* arr, int32_t i) -> W& { return arr[i - i0 + kPad]; };
    auto ph = [&](int32_t i) { return posH(i, p); };
    auto pl = [&](int32_t i) { return posL(i, p); };
    gatherInto<VP>(lv, &at(bl, i0 - 1 - p), i0 - 1 - p, i1 - i0 + 3);
    gatherInto<VP>(hv, &at(bh, i0 - 2), i0 - 2, i1 - i0 + 4);
    [[maybe_unused]] auto L3 = [&](W* d, W* s0, int32_t o0, W* s1, int32_t o1, W* s2, int32_t o2, auto f, int32_t i) {
        if constexpr (kVec<VP>) VP::st(&at(d, i), f(VP::ld(&at(s0, i + o0)), VP::ld(&at(s1, i + o1)), VP::ld(&at(s2, i + o2))));
    };
    using V = typename VP::V;
    pass<VP>(i0 - 1 - p, i1 + 1 - p, w, pl,
             [&](int32_t i) { at(b, i) = P::iB(at(bl, i), at(bh, i - 1 + p), at(bh, i + p), edgeAt(pl(i), w)); },
             [&](int32_t i) { L3(b, bl, 0, bh, p - 1, bh, p, [](V x, V y, V z) { return VP::iB(x, y, z, false); }, i); });
    seed(0, [&](int32_t i) -> W& { return at(b, i); }, i0 - 1 - p, i1 + 1 - p);
    pass<VP>(i0 - 1, i1, w, ph,
             [&](int32_t i) { at(a, i) = P::iA(at(bh, i), at(b, i - p), at(b, i - p + 1), edgeAt(ph(i), w)); },
             [&](int32_t i) { L3(a, bh, 0, b, -p, b, 1 - p, [](V x, V y, V z) { return VP::iA(x, y, z, false); }, i); });
    pass<VP>(i0 - p, i1 - p, w, pl,
             [&](int32_t i) { at(xe, i) = P::iXE(at(b, i), at(a, i - 1 + p), at(a, i + p), edgeAt(pl(i), w)); },
             [&](int32_t i) { L3(xe, b, 0, a, p - 1, a, p, [](V x, V y, V z) { return VP::iXE(x, y, z, false); }, i); });
    seed(1, [&](int32_t i) -> W& { return at(xe, i); }, i0 - p, i1 - p);
    pass<VP>(i0, i1 - 1, w, ph,
             [&](int32_t i) { at(xo, i) = P::iXO(at(a, i), at(xe, i - p), at(xe, i - p + 1), edgeAt(ph(i), w)); },
             [&](int32_t i) { L3(xo, a, 0, xe, -p, xe, 1 - p, [](V x, V y, V z) { return VP::iXO(x, y, z, false); }, i); });
    emit<VP>(out, &at(xe, i0), &at(xo, i0), i0, i1 - i0);
}

struct NoSeed {
    template <class Ref>
    void operator()(int, Ref&&, int32_t, int32_t) const {}
};

template <class P, int RUN, class VP = NoVec, class XL, class XH, class Seed, class Out>
void fwdLine(int32_t w, int p, XL&& xl, XH&& xh, Seed&& seed, Out&& out) {
    for (int32_t i0 = 0; i0 < w; i0 += RUN) fwdRun<P, RUN, VP>(i0, std::min(w, i0 + RUN), w, p, xl, xh, seed, out);
}

template <class P, int RUN, class VP = NoVec, class LV, class HV, class Seed, class Out>
void invLine(int32_t w, int p, LV&& lv, HV&& hv, Seed&& seed, Out&& out) {
    for (int32_t i0 = 0; i0 < w; i0 += RUN) invRun<P, RUN, VP>(i0, std::min(w, i0 + RUN), w, p, lv, hv, seed, out);
}

// ------------------------------------------------------------ width 1
// A band of length 1 goes through the equivalent filters directly. The
// centre and the pair sums are handed over as the filters' terms.

struct Taps {
    int n;
    float f[5];
    int32_t q[5];
};
constexpr Taps kFwdLow{5, {0.602949f, 0.26686412f, -0.078223266f, -0.01686412f, 0.026748758f},
                       {39515, 17489, -5126, -1105, 1753}};
constexpr Taps kFwdHigh{4, {1.115087f, -0.59127176f, -0.057543527f, 0.091271766f, 0.f}, {73078, -38749, -3771, 5982, 0}};
constexpr Taps kInvEven{4, {1.115087f, -0.057543527f, -0.26686412f, 0.01686412f, 0.f}, {73078, -3771, -17489, 1105, 0}};
constexpr Taps kInvOdd{5, {0.602949f, -0.078223266f, 0.026748758f, 0.59127176f, -0.091271766f},
                       {39515, -5126, 1753, 38750, -5981}};

// t[0] is the centre sample, t[1..] the pair sums.
inline float sum2(float a, float b) { return a + b; }
inline int32_t sum2(int32_t a, int32_t b) { return add32(a, b); }

inline float tapsF(const Taps& k, const float* t) {
    float r = k.f[0] * t[0];
    for (int j = 1; j < k.n; ++j) r = std::fma(k.f[j], t[j], r);
    return r;
}
inline int32_t tapsS(const Taps& k, const int32_t* t) {
    int32_t r = 0;
    for (int j = 0; j < k.n; ++j) r = add32(r, r16(int64_t{k.q[j]} * t[j]));
    return r;
}
inline int32_t tapsH(const Taps& k, const int32_t* t) {
    int64_t r = 32768;
    for (int j = 0; j < k.n; ++j) r += int64_t{k.q[j]} * t[j];
    return sat16(r >> 16);
}

// The forward filters' terms around centre c: the centre sample, then the
// sums of the pairs at distance 1, 2, ...
template <class W, class X>
void centreTerms(X&& x, int32_t c, int n, W* t) {
    t[0] = x(c);
    for (int d = 1; d < n; ++d) t[d] = sum2(x(c - d), x(c + d));
}

// The inverse filters' terms: even output centred on L[0], odd on H[0].
template <class W, class LV, class HV>
void invTerms(LV&& l, HV&& h, int p, W* te, W* to) {
    te[0] = l(0);
    te[1] = sum2(l(-1), l(1));
    te[2] = sum2(h(-1 + p), h(p));
    te[3] = sum2(h(-2 + p), h(1 + p));
    to[0] = h(0);
    to[1] = sum2(h(-1), h(1));
    to[2] = sum2(h(-2), h(2));
    to[3] = sum2(l(-p), l(1 - p));
    to[4] = sum2(l(-1 - p), l(2 - p));
}

// ------------------------------------------------------------ loads, stores

template <class T>
inline auto ldw(const T* p, intptr_t k) {
    if constexpr (std::is_same_v<T, float>) return loadAs<float>(p + k);
    else return int32_t{loadAs<T>(p + k)};
}
template <class T, class W>
inline void stw(T* p, intptr_t k, W v) {
    if constexpr (std::is_same_v<T, int16_t>) storeAs<int16_t>(p + k, static_cast<int16_t>(v));
    else storeAs<T>(p + k, v);
}

// ------------------------------------------------------------ row sources and sinks

// Every other sample of an interleaved row: sample 2i + off.
template <class T>
struct Split {
    const T* x;
    int off;
    auto operator()(int32_t i) const { return ldw(x, 2 * intptr_t{i} + off); }
    // Blocks read the 16 samples from 2(first + k) + off; the last of them
    // is one that a later block needs (k + 8 < n), so nothing beyond the
    // extent is read.
    template <class W>
    void fill(W* d, int32_t first, int32_t n) const {
        int32_t k = 0;
        const T* b = x + 2 * intptr_t{first} + off;
        if constexpr (std::is_same_v<T, int16_t>) {
            for (; k + 8 < n; k += 8) {
                const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b + 2 * k));
                const __m256i r = _mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16);
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k), r);
            }
        } else if constexpr (std::is_same_v<T, float>) {
            for (; k + 8 < n; k += 8) {
                const __m256 a = _mm256_loadu_ps(b + 2 * k), c = _mm256_loadu_ps(b + 2 * k + 8);
                const __m256 r = _mm256_shuffle_ps(a, c, _MM_SHUFFLE(2, 0, 2, 0));
                _mm256_storeu_ps(d + k, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(r), 0xD8)));
            }
        }
        for (; k < n; ++k) d[k] = (*this)(first + k);
    }
};

// A band row: sample i.
template <class T>
struct Band {
    const T* b;
    auto operator()(int32_t i) const { return ldw(b, i); }
    template <class W>
    void fill(W* d, int32_t first, int32_t n) const {
        int32_t k = 0;
        if constexpr (std::is_same_v<T, int16_t>) {
            for (; k + 8 <= n; k += 8)
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k),
                                    _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(b + first + k))));
        } else if constexpr (std::is_same_v<T, float>) {
            for (; k + 8 <= n; k += 8) _mm256_storeu_ps(d + k, _mm256_loadu_ps(b + first + k));
        }
        for (; k < n; ++k) d[k] = (*this)(first + k);
    }
};

// Stores W values (16-bit values in 32-bit lanes, or floats) to dst[a..b).
template <class T, class W>
void putRange(T* dst, const W* src, int32_t i0, int32_t n, int32_t a, int32_t b) {
    const int32_t e = std::min(i0 + n, b);
    int32_t i = std::max(i0, a);
    if constexpr (std::is_same_v<T, int16_t>) {
        for (; i + 8 <= e; i += 8) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + (i - i0)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i),
                             _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)));
        }
    } else if constexpr (std::is_same_v<T, float>) {
        for (; i + 8 <= e; i += 8) _mm256_storeu_ps(dst + i, _mm256_loadu_ps(src + (i - i0)));
    }
    for (; i < e; ++i) stw(dst, i, src[i - i0]);
}

// The two bands of a forward row; writes L[l0..l1) and H[h0..h1).
template <class T>
struct BandsOut {
    T* lo;
    T* hi;
    int32_t l0, l1, h0, h1;
    template <class W>
    void operator()(int32_t i, W l, W h) const {
        if (i >= l0 && i < l1) stw(lo, i, l);
        if (i >= h0 && i < h1) stw(hi, i, h);
    }
    template <class W>
    void bulk(const W* L, const W* H, int32_t i0, int32_t n) const {
        putRange(lo, L, i0, n, l0, l1);
        putRange(hi, H, i0, n, h0, h1);
    }
};

// The interleaved output of an inverse row; writes the even outputs of band
// indices [e0, e1) and the odd outputs of [o0, o1).
template <class T>
struct InterOut {
    T* x;
    int p;
    int32_t e0, e1, o0, o1;
    template <class W>
    void operator()(int32_t i, W e, W o) const {
        if (i >= e0 && i < e1) stw(x, posL(i, p), e);
        if (i >= o0 && i < o1) stw(x, posH(i, p), o);
    }
    template <class W>
    void bulk(const W* E, const W* O, int32_t i0, int32_t n) const {
        const int32_t end = i0 + n;
        const int32_t s = std::min(end, std::max({i0, e0, o0})), t = std::min({end, e1, o1});
        int32_t i = i0;
        for (; i < s; ++i) (*this)(i, E[i - i0], O[i - i0]);
        const W* first = p ? O : E;  // x[2i]
        const W* second = p ? E : O;  // x[2i + 1]
        if constexpr (std::is_same_v<T, int16_t>) {
            for (; i + 8 <= t; i += 8) {
                const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(first + (i - i0)));
                const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(second + (i - i0)));
                const __m256i v = _mm256_or_si256(_mm256_and_si256(a, _mm256_set1_epi32(0xFFFF)), _mm256_slli_epi32(b, 16));
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(x + 2 * intptr_t{i}), v);
            }
        } else if constexpr (std::is_same_v<T, float>) {
            for (; i + 8 <= t; i += 8) {
                const __m256 a = _mm256_loadu_ps(first + (i - i0)), b = _mm256_loadu_ps(second + (i - i0));
                const __m256 l = _mm256_unpacklo_ps(a, b), h = _mm256_unpackhi_ps(a, b);
                _mm256_storeu_ps(x + 2 * intptr_t{i}, _mm256_permute2f128_ps(l, h, 0x20));
                _mm256_storeu_ps(x + 2 * intptr_t{i} + 8, _mm256_permute2f128_ps(l, h, 0x31));
            }
        }
        for (; i < end; ++i) (*this)(i, E[i - i0], O[i - i0]);
    }
};

// ------------------------------------------------------------ 16-bit seeds
// The 16-bit rows start their interior from working values of the 32-bit
// chain, saturated: b left of the first interior position (and, going back,
// the output sample there as well).

template <class XL, class XH>
int32_t fwdSeedB(XL&& xl, XH&& xh, int32_t i, int p) {
    auto a = [&](int32_t j) { return Fixed16::A(xh(j), xl(j - p), xl(j - p + 1), false); };
    return sat16(Fixed16::B(xl(i), a(i - 1 + p), a(i + p), false));
}

template <class LV, class HV>
void invSeed(LV&& lv, HV&& hv, int32_t i, int p, int32_t& b, int32_t& xe) {
    auto bb = [&](int32_t j) { return Fixed16::iB(lv(j), hv(j - 1 + p), hv(j + p), false); };
    auto aa = [&](int32_t j) { return Fixed16::iA(hv(j), bb(j - p), bb(j - p + 1), false); };
    const int32_t b32 = bb(i);
    b = sat16(b32);
    xe = sat16(Fixed16::iXE(b32, aa(i - 1 + p), aa(i + p), false));
}

// Which outputs of a 16-bit row take the end form: low-pass index i (or the
// even output from it), high-pass index i (or the odd output).
inline bool endLow(int32_t i, int32_t w, int p) { return p == 0 ? (i == 0 || i >= w - 1) : i >= w - 2; }
inline bool endHigh(int32_t i, int32_t w) { return i >= w - 2; }

}  // namespace

// ------------------------------------------------------------ rows

template <class T, class P, class VP = NoVec>
static void fwdRowT(const T* x, T* lo, T* hi, int32_t w, int32_t phase) {
    const int p = phase != 0;
    auto X = [&](int32_t k) { return ldw(x, k); };
    using W = typename P::W;
    if (w == 1) {
        W tl[5], th[5];
        centreTerms<W>(X, p, kFwdLow.n, tl);
        centreTerms<W>(X, 1 - p, kFwdHigh.n, th);
        if constexpr (std::is_same_v<W, float>) {
            stw(lo, 0, tapsF(kFwdLow, tl));
            stw(hi, 0, tapsF(kFwdHigh, th));
        } else {
            stw(lo, 0, tapsS(kFwdLow, tl));
            stw(hi, 0, tapsS(kFwdHigh, th));
        }
        return;
    }
    fwdLine<P, kRun, VP>(w, p, Split<T>{x, p}, Split<T>{x, 1 - p}, NoSeed{}, BandsOut<T>{lo, hi, 0, w, 0, w});
}

template <class T, class P, class VP = NoVec>
static void invRowT(const T* lo, const T* hi, T* x, int32_t w, int32_t phase) {
    const int p = phase != 0;
    auto LV = [&](int32_t i) { return ldw(lo, i); };
    auto HV = [&](int32_t i) { return ldw(hi, i); };
    using W = typename P::W;
    if (w == 1) {
        W te[5], to[5];
        invTerms<W>(LV, HV, p, te, to);
        if constexpr (std::is_same_v<W, float>) {
            stw(x, p, tapsF(kInvEven, te));
            stw(x, 1 - p, tapsF(kInvOdd, to));
        } else {
            stw(x, p, tapsS(kInvEven, te));
            stw(x, 1 - p, tapsS(kInvOdd, to));
        }
        return;
    }
    invLine<P, kRun, VP>(w, p, Band<T>{lo}, Band<T>{hi}, NoSeed{}, InterOut<T>{x, p, 0, w, 0, w});
}

void fwdRow97_32f(const float* x, float* lo, float* hi, int32_t w, int32_t phase) {
    fwdRowT<float, Float97<float>, VecF>(x, lo, hi, w, phase);
}
void fwdRow97_32f_c(const float* x, float* lo, float* hi, int32_t w, int32_t phase) {
    fwdRowT<float, Float97<float>>(x, lo, hi, w, phase);
}
void fwdRow97_32s(const int32_t* x, int32_t* lo, int32_t* hi, int32_t w, int32_t phase) {
    fwdRowT<int32_t, Fixed16>(x, lo, hi, w, phase);
}
void invRow97_32f(const float* lo, const float* hi, float* x, int32_t w, int32_t phase) {
    invRowT<float, Float97<float>, VecF>(lo, hi, x, w, phase);
}
void invRow97_32f_c(const float* lo, const float* hi, float* x, int32_t w, int32_t phase) {
    invRowT<float, Float97<float>>(lo, hi, x, w, phase);
}
void invRow97_32s(const int32_t* lo, const int32_t* hi, int32_t* x, int32_t w, int32_t phase) {
    invRowT<int32_t, Fixed16>(lo, hi, x, w, phase);
}

// 16-bit rows: the interior in the 15-fraction-bit form, the ends from the
// 32-bit chain saturated to 16 bits.
template <class VP>
static void fwdRow97_16sT(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase) {
    const int p = phase != 0;
    auto X = [&](int32_t k) { return ldw(x, k); };
    auto xl = [&](int32_t i) { return X(posL(i, p)); };
    auto xh = [&](int32_t i) { return X(posH(i, p)); };
    if (w == 1) {
        int32_t tl[5], th[5];
        centreTerms<int32_t>(X, p, kFwdLow.n, tl);
        centreTerms<int32_t>(X, 1 - p, kFwdHigh.n, th);
        stw(lo, 0, tapsH(kFwdLow, tl));
        stw(hi, 0, tapsH(kFwdHigh, th));
        return;
    }
    if (w >= 3) {
        const int32_t s = p == 0 ? 0 : -1;
        const int32_t bs = fwdSeedB(xl, xh, s, p);
        auto seed = [&](int, auto&& ref, int32_t a, int32_t b) {
            if (s >= a && s <= b) ref(s) = bs;
        };
        const int32_t l0 = p == 0 ? 1 : 0, l1 = p == 0 ? w - 1 : w - 2;
        fwdLine<Fixed15, kRun, VP>(w, p, Split<int16_t>{x, p}, Split<int16_t>{x, 1 - p}, seed,
                                   BandsOut<int16_t>{lo, hi, l0, l1, 0, w - 2});
    }
    auto ends = [&](int32_t i, int32_t l, int32_t h) {
        if (endLow(i, w, p)) stw(lo, i, sat16(l));
        if (endHigh(i, w)) stw(hi, i, sat16(h));
    };
    if (p == 0 && w > 2) fwdRun<Fixed16, 8>(0, 1, w, p, xl, xh, NoSeed{}, ends);
    fwdRun<Fixed16, 8>(w - 2, w, w, p, xl, xh, NoSeed{}, ends);
}

template <class VP>
static void invRow97_16sT(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase) {
    const int p = phase != 0;
    auto LV = [&](int32_t i) { return ldw(lo, i); };
    auto HV = [&](int32_t i) { return ldw(hi, i); };
    if (w == 1) {
        int32_t te[5], to[5];
        invTerms<int32_t>(LV, HV, p, te, to);
        stw(x, p, tapsH(kInvEven, te));
        stw(x, 1 - p, tapsH(kInvOdd, to));
        return;
    }
    if (w >= 3) {
        const int32_t s = p == 0 ? 0 : -1;
        int32_t bs = 0, xs = 0;
        invSeed(LV, HV, s, p, bs, xs);
        auto seed = [&](int stage, auto&& ref, int32_t a, int32_t b) {
            if (s >= a && s <= b) ref(s) = stage == 0 ? bs : xs;
        };
        const int32_t e0 = p == 0 ? 1 : 0, e1 = p == 0 ? w - 1 : w - 2;
        invLine<Fixed15, kRun, VP>(w, p, Band<int16_t>{lo}, Band<int16_t>{hi}, seed,
                                   InterOut<int16_t>{x, p, e0, e1, 0, w - 2});
    }
    auto ends = [&](int32_t i, int32_t e, int32_t o) {
        if (endLow(i, w, p)) stw(x, posL(i, p), sat16(e));
        if (endHigh(i, w)) stw(x, posH(i, p), sat16(o));
    };
    if (p == 0 && w > 2) invRun<Fixed16, 8>(0, 1, w, p, LV, HV, NoSeed{}, ends);
    invRun<Fixed16, 8>(w - 2, w, w, p, LV, HV, NoSeed{}, ends);
}

void fwdRow97_16s(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase) {
    fwdRow97_16sT<VecH>(x, lo, hi, w, phase);
}
void fwdRow97_16s_c(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase) {
    fwdRow97_16sT<NoVec>(x, lo, hi, w, phase);
}
void invRow97_16s(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase) {
    invRow97_16sT<VecH>(lo, hi, x, w, phase);
}
void invRow97_16s_c(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase) {
    invRow97_16sT<NoVec>(lo, hi, x, w, phase);
}

// ------------------------------------------------------------ float columns
// Eight columns at a time through the chain engine on vector lanes, then the
// remaining columns one by one; the fused positions are the first and last
// rows and beyond, so both give the same values.

namespace {

// Width-1 columns (a band of one row) through the filters.
template <bool Vec>
void fwdColOne(const float* x, int32_t xs, float* lo, float* hi, int32_t w, int p) {
    int32_t j = 0;
    if constexpr (Vec) {
        for (; j + 8 <= w; j += 8) {
            auto X = [&](int32_t k) { return _mm256_loadu_ps(atRow(x, xs, k) + j); };
            __m256 tl[5], th[4];
            tl[0] = X(p);
            th[0] = X(1 - p);
            for (int d = 1; d < 5; ++d) tl[d] = _mm256_add_ps(X(p - d), X(p + d));
            for (int d = 1; d < 4; ++d) th[d] = _mm256_add_ps(X(1 - p - d), X(1 - p + d));
            __m256 l = _mm256_mul_ps(_mm256_set1_ps(kFwdLow.f[0]), tl[0]);
            for (int d = 1; d < 5; ++d) l = _mm256_fmadd_ps(_mm256_set1_ps(kFwdLow.f[d]), tl[d], l);
            __m256 hh = _mm256_mul_ps(_mm256_set1_ps(kFwdHigh.f[0]), th[0]);
            for (int d = 1; d < 4; ++d) hh = _mm256_fmadd_ps(_mm256_set1_ps(kFwdHigh.f[d]), th[d], hh);
            _mm256_storeu_ps(lo + j, l);
            _mm256_storeu_ps(hi + j, hh);
        }
    }
    for (; j < w; ++j) {
        auto X = [&](int32_t k) { return loadAs<float>(atRow(x, xs, k) + j); };
        float tl[5], th[5];
        centreTerms<float>(X, p, kFwdLow.n, tl);
        centreTerms<float>(X, 1 - p, kFwdHigh.n, th);
        storeAs<float>(lo + j, tapsF(kFwdLow, tl));
        storeAs<float>(hi + j, tapsF(kFwdHigh, th));
    }
}

template <bool Vec>
void invColOne(const float* lo, int32_t ls, const float* hi, int32_t hs, float* x, int32_t xs, int32_t w, int p) {
    int32_t j = 0;
    if constexpr (Vec) {
        for (; j + 8 <= w; j += 8) {
            auto LV = [&](int32_t i) { return _mm256_loadu_ps(atRow(lo, ls, i) + j); };
            auto HV = [&](int32_t i) { return _mm256_loadu_ps(atRow(hi, hs, i) + j); };
            __m256 te[4], to[5];
            te[0] = LV(0);
            te[1] = _mm256_add_ps(LV(-1), LV(1));
            te[2] = _mm256_add_ps(HV(-1 + p), HV(p));
            te[3] = _mm256_add_ps(HV(-2 + p), HV(1 + p));
            to[0] = HV(0);
            to[1] = _mm256_add_ps(HV(-1), HV(1));
            to[2] = _mm256_add_ps(HV(-2), HV(2));
            to[3] = _mm256_add_ps(LV(-p), LV(1 - p));
            to[4] = _mm256_add_ps(LV(-1 - p), LV(2 - p));
            __m256 e = _mm256_mul_ps(_mm256_set1_ps(kInvEven.f[0]), te[0]);
            for (int d = 1; d < 4; ++d) e = _mm256_fmadd_ps(_mm256_set1_ps(kInvEven.f[d]), te[d], e);
            __m256 o = _mm256_mul_ps(_mm256_set1_ps(kInvOdd.f[0]), to[0]);
            for (int d = 1; d < 5; ++d) o = _mm256_fmadd_ps(_mm256_set1_ps(kInvOdd.f[d]), to[d], o);
            _mm256_storeu_ps(atRow(x, xs, p) + j, e);
            _mm256_storeu_ps(atRow(x, xs, 1 - p) + j, o);
        }
    }
    for (; j < w; ++j) {
        auto LV = [&](int32_t i) { return loadAs<float>(atRow(lo, ls, i) + j); };
        auto HV = [&](int32_t i) { return loadAs<float>(atRow(hi, hs, i) + j); };
        float te[5], to[5];
        invTerms<float>(LV, HV, p, te, to);
        storeAs<float>(atRow(x, xs, p) + j, tapsF(kInvEven, te));
        storeAs<float>(atRow(x, xs, 1 - p) + j, tapsF(kInvOdd, to));
    }
}

// A run of rows goes across all columns before the next run starts, so
// that the rows of a run stay in the cache while the groups walk along them.
template <bool Vec>
void fwdColF(const float* x, int32_t xs, float* lo, int32_t ls, float* hi, int32_t hs, int32_t w, int32_t h,
             int32_t phase) {
    const int p = phase != 0;
    if (h == 1) return fwdColOne<Vec>(x, xs, lo, hi, w, p);
    const int32_t jv = Vec ? (w & ~7) : 0;
    for (int32_t i0 = 0; i0 < h; i0 += kRunCol) {
        const int32_t i1 = std::min(h, i0 + kRunCol);
        for (int32_t j = 0; j < jv; j += 8) {
            auto X = [&](int32_t k) { return _mm256_loadu_ps(atRow(x, xs, k) + j); };
            fwdRun<Float97<__m256>, kRunCol>(
                i0, i1, h, p, [&](int32_t i) { return X(posL(i, p)); }, [&](int32_t i) { return X(posH(i, p)); },
                NoSeed{}, [&](int32_t i, __m256 l, __m256 hh) {
                    _mm256_storeu_ps(atRow(lo, ls, i) + j, l);
                    _mm256_storeu_ps(atRow(hi, hs, i) + j, hh);
                });
        }
        for (int32_t j = jv; j < w; ++j) {
            auto X = [&](int32_t k) { return loadAs<float>(atRow(x, xs, k) + j); };
            fwdRun<Float97<float>, kRunCol>(
                i0, i1, h, p, [&](int32_t i) { return X(posL(i, p)); }, [&](int32_t i) { return X(posH(i, p)); },
                NoSeed{}, [&](int32_t i, float l, float hh) {
                    storeAs<float>(atRow(lo, ls, i) + j, l);
                    storeAs<float>(atRow(hi, hs, i) + j, hh);
                });
        }
    }
}

template <bool Vec>
void invColF(const float* lo, int32_t ls, const float* hi, int32_t hs, float* x, int32_t xs, int32_t w, int32_t h,
             int32_t phase) {
    const int p = phase != 0;
    if (h == 1) return invColOne<Vec>(lo, ls, hi, hs, x, xs, w, p);
    const int32_t jv = Vec ? (w & ~7) : 0;
    for (int32_t i0 = 0; i0 < h; i0 += kRunCol) {
        const int32_t i1 = std::min(h, i0 + kRunCol);
        for (int32_t j = 0; j < jv; j += 8) {
            auto LV = [&](int32_t i) { return _mm256_loadu_ps(atRow(lo, ls, i) + j); };
            auto HV = [&](int32_t i) { return _mm256_loadu_ps(atRow(hi, hs, i) + j); };
            invRun<Float97<__m256>, kRunCol>(i0, i1, h, p, LV, HV, NoSeed{}, [&](int32_t i, __m256 e, __m256 o) {
                _mm256_storeu_ps(atRow(x, xs, posL(i, p)) + j, e);
                _mm256_storeu_ps(atRow(x, xs, posH(i, p)) + j, o);
            });
        }
        for (int32_t j = jv; j < w; ++j) {
            auto LV = [&](int32_t i) { return loadAs<float>(atRow(lo, ls, i) + j); };
            auto HV = [&](int32_t i) { return loadAs<float>(atRow(hi, hs, i) + j); };
            invRun<Float97<float>, kRunCol>(i0, i1, h, p, LV, HV, NoSeed{}, [&](int32_t i, float e, float o) {
                storeAs<float>(atRow(x, xs, posL(i, p)) + j, e);
                storeAs<float>(atRow(x, xs, posH(i, p)) + j, o);
            });
        }
    }
}

}  // namespace

void fwdCol97_32f(const float* x, int32_t xs, float* lo, int32_t ls, float* hi, int32_t hs, int32_t w, int32_t h,
                  int32_t phase) {
    fwdColF<true>(x, xs, lo, ls, hi, hs, w, h, phase);
}
void fwdCol97_32f_c(const float* x, int32_t xs, float* lo, int32_t ls, float* hi, int32_t hs, int32_t w, int32_t h,
                    int32_t phase) {
    fwdColF<false>(x, xs, lo, ls, hi, hs, w, h, phase);
}
void invCol97_32f(const float* lo, int32_t ls, const float* hi, int32_t hs, float* x, int32_t xs, int32_t w,
                  int32_t h, int32_t phase) {
    invColF<true>(lo, ls, hi, hs, x, xs, w, h, phase);
}
void invCol97_32f_c(const float* lo, int32_t ls, const float* hi, int32_t hs, float* x, int32_t xs, int32_t w,
                    int32_t h, int32_t phase) {
    invColF<false>(lo, ls, hi, hs, x, xs, w, h, phase);
}

// ------------------------------------------------------------ lifting steps
// Per column: all inputs read, then the five (four) results written in the
// order of the steps, so that the rows may be shared with the previous call's.

namespace {

struct LiftF {
    static void fwd(float s0, float s1, float s2, float& lp, float& ln, float& ho, float& hp, float& hn) {
        hn = std::fma(kAlpha, s0 + s2, s1);
        ln = std::fma(kBeta, hp + hn, s0);
        hp = std::fma(kGamma, lp + ln, hp);
        lp = kInvK * std::fma(kDelta, ho + hp, lp);
        ho = kK * ho;
    }
    static void inv(float l, float h0, float h1, float eo, float& op, float& ep, float& on, float& en) {
        en = std::fma(-kDeltaK, h0 + h1, kK * l);
        on = std::fma(-kGamma, ep + en, kInvK * h0);
        ep = std::fma(-kBeta, op + on, ep);
        op = std::fma(-kAlpha, eo + ep, op);
    }
};

struct LiftS {
    using F = Fixed16;
    static void fwd(int32_t s0, int32_t s1, int32_t s2, int32_t& lp, int32_t& ln, int32_t& ho, int32_t& hp,
                    int32_t& hn) {
        hn = F::A(s1, s0, s2, false);
        ln = F::B(s0, hp, hn, false);
        hp = F::C(hp, lp, ln, false);
        lp = F::Lo(lp, ho, hp, false, false);
        ho = F::Hi(ho);
    }
    static void inv(int32_t l, int32_t h0, int32_t h1, int32_t eo, int32_t& op, int32_t& ep, int32_t& on,
                    int32_t& en) {
        en = F::iB(l, h0, h1, false);
        on = F::iA(h0, ep, en, false);
        ep = F::iXE(ep, op, on, false);
        op = F::iXO(op, eo, ep, false);
    }
};

struct LiftH {
    using F = Fixed15;
    static void fwd(int32_t s0, int32_t s1, int32_t s2, int32_t& lp, int32_t& ln, int32_t& ho, int32_t& hp,
                    int32_t& hn) {
        hn = F::A(s1, s0, s2, false);
        ln = F::B(s0, hp, hn, false);
        hp = F::C(hp, lp, ln, false);
        lp = F::Lo(lp, ho, hp, false, false);
        ho = F::Hi(ho);
    }
    static void inv(int32_t l, int32_t h0, int32_t h1, int32_t eo, int32_t& op, int32_t& ep, int32_t& on,
                    int32_t& en) {
        en = sat16(int64_t{mulr(dbl(l), 20155)} - (mulr(sats(h0, h1), 23627) >> 1));
        on = F::iA(h0, ep, en, false);
        ep = F::iXE(ep, op, on, false);
        op = F::iXO(op, eo, ep, false);
    }
};

template <class S, class T>
void fwdLiftOne(const T* s0, const T* s1, const T* s2, T* lp, T* ln, T* ho, T* hp, T* hn, int32_t j) {
    auto a = ldw(s0, j), b = ldw(s1, j), c = ldw(s2, j);
    auto vlp = ldw(lp, j), vho = ldw(ho, j), vhp = ldw(hp, j);
    decltype(a) vln, vhn;
    S::fwd(a, b, c, vlp, vln, vho, vhp, vhn);
    stw(hn, j, vhn);
    stw(ln, j, vln);
    stw(hp, j, vhp);
    stw(lp, j, vlp);
    stw(ho, j, vho);
}

template <class S, class T>
void invLiftOne(const T* l, const T* h0, const T* h1, const T* eo, T* op, T* ep, T* on, T* en, int32_t j) {
    auto vl = ldw(l, j), a = ldw(h0, j), b = ldw(h1, j), ve = ldw(eo, j);
    auto vop = ldw(op, j), vep = ldw(ep, j);
    decltype(vl) von, ven;
    S::inv(vl, a, b, ve, vop, vep, von, ven);
    stw(en, j, ven);
    stw(on, j, von);
    stw(ep, j, vep);
    stw(op, j, vop);
}

inline __m256i ld16(const int16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void st16(int16_t* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
inline __m256i k16(int16_t c) { return _mm256_set1_epi16(c); }

}  // namespace

void fwdLift97_32f(const float* s0, const float* s1, const float* s2, float* lp, float* ln, float* ho, float* hp,
                   float* hn, int32_t w) {
    walkRow<8>(
        w, 0,
        [&](int32_t j) {
            const __m256 a = _mm256_loadu_ps(s0 + j), b = _mm256_loadu_ps(s1 + j), c = _mm256_loadu_ps(s2 + j);
            const __m256 vlp = _mm256_loadu_ps(lp + j), vho = _mm256_loadu_ps(ho + j), vhp = _mm256_loadu_ps(hp + j);
            const __m256 vhn = _mm256_fmadd_ps(_mm256_set1_ps(kAlpha), _mm256_add_ps(a, c), b);
            const __m256 vln = _mm256_fmadd_ps(_mm256_set1_ps(kBeta), _mm256_add_ps(vhp, vhn), a);
            const __m256 nhp = _mm256_fmadd_ps(_mm256_set1_ps(kGamma), _mm256_add_ps(vlp, vln), vhp);
            const __m256 nlp = _mm256_mul_ps(_mm256_set1_ps(kInvK),
                                             _mm256_fmadd_ps(_mm256_set1_ps(kDelta), _mm256_add_ps(vho, nhp), vlp));
            const __m256 nho = _mm256_mul_ps(_mm256_set1_ps(kK), vho);
            _mm256_storeu_ps(hn + j, vhn);
            _mm256_storeu_ps(ln + j, vln);
            _mm256_storeu_ps(hp + j, nhp);
            _mm256_storeu_ps(lp + j, nlp);
            _mm256_storeu_ps(ho + j, nho);
        },
        [&](int32_t j) { fwdLiftOne<LiftF>(s0, s1, s2, lp, ln, ho, hp, hn, j); });
}
void fwdLift97_32f_c(const float* s0, const float* s1, const float* s2, float* lp, float* ln, float* ho, float* hp,
                     float* hn, int32_t w) {
    for (int32_t j = 0; j < w; ++j) fwdLiftOne<LiftF>(s0, s1, s2, lp, ln, ho, hp, hn, j);
}

void invLift97_32f(const float* l, const float* h0, const float* h1, const float* eo, float* op, float* ep,
                   float* on, float* en, int32_t w) {
    walkRow<8>(
        w, 0,
        [&](int32_t j) {
            const __m256 vl = _mm256_loadu_ps(l + j), a = _mm256_loadu_ps(h0 + j), b = _mm256_loadu_ps(h1 + j);
            const __m256 ve = _mm256_loadu_ps(eo + j), vop = _mm256_loadu_ps(op + j), vep = _mm256_loadu_ps(ep + j);
            const __m256 ven = _mm256_fmadd_ps(_mm256_set1_ps(-kDeltaK), _mm256_add_ps(a, b),
                                               _mm256_mul_ps(_mm256_set1_ps(kK), vl));
            const __m256 von = _mm256_fmadd_ps(_mm256_set1_ps(-kGamma), _mm256_add_ps(vep, ven),
                                               _mm256_mul_ps(_mm256_set1_ps(kInvK), a));
            const __m256 nep = _mm256_fmadd_ps(_mm256_set1_ps(-kBeta), _mm256_add_ps(vop, von), vep);
            const __m256 nop = _mm256_fmadd_ps(_mm256_set1_ps(-kAlpha), _mm256_add_ps(ve, nep), vop);
            _mm256_storeu_ps(en + j, ven);
            _mm256_storeu_ps(on + j, von);
            _mm256_storeu_ps(ep + j, nep);
            _mm256_storeu_ps(op + j, nop);
        },
        [&](int32_t j) { invLiftOne<LiftF>(l, h0, h1, eo, op, ep, on, en, j); });
}
void invLift97_32f_c(const float* l, const float* h0, const float* h1, const float* eo, float* op, float* ep,
                     float* on, float* en, int32_t w) {
    for (int32_t j = 0; j < w; ++j) invLiftOne<LiftF>(l, h0, h1, eo, op, ep, on, en, j);
}

void fwdLift97_32s(const int32_t* s0, const int32_t* s1, const int32_t* s2, int32_t* lp, int32_t* ln, int32_t* ho,
                   int32_t* hp, int32_t* hn, int32_t w) {
    for (int32_t j = 0; j < w; ++j) fwdLiftOne<LiftS>(s0, s1, s2, lp, ln, ho, hp, hn, j);
}
void invLift97_32s(const int32_t* l, const int32_t* h0, const int32_t* h1, const int32_t* eo, int32_t* op,
                   int32_t* ep, int32_t* on, int32_t* en, int32_t w) {
    for (int32_t j = 0; j < w; ++j) invLiftOne<LiftS>(l, h0, h1, eo, op, ep, on, en, j);
}

void fwdLift97_16s(const int16_t* s0, const int16_t* s1, const int16_t* s2, int16_t* lp, int16_t* ln, int16_t* ho,
                   int16_t* hp, int16_t* hn, int32_t w) {
    walkRow<16>(
        w, 0,
        [&](int32_t j) {
            const __m256i a = ld16(s0 + j), b = ld16(s1 + j), c = ld16(s2 + j);
            const __m256i vlp = ld16(lp + j), vho = ld16(ho + j), vhp = ld16(hp + j);
            const __m256i t = _mm256_adds_epi16(a, c);
            const __m256i vhn = _mm256_adds_epi16(b, _mm256_mulhrs_epi16(_mm256_adds_epi16(t, t), k16(-25987)));
            const __m256i vln = _mm256_adds_epi16(a, _mm256_mulhrs_epi16(_mm256_adds_epi16(vhp, vhn), k16(-1736)));
            const __m256i nhp = _mm256_adds_epi16(vhp, _mm256_mulhrs_epi16(_mm256_adds_epi16(vlp, vln), k16(28931)));
            const __m256i nlp = _mm256_adds_epi16(
                _mm256_mulhrs_epi16(vlp, k16(26637)),
                _mm256_srai_epi16(_mm256_mulhrs_epi16(_mm256_adds_epi16(vho, nhp), k16(23627)), 1));
            const __m256i nho = _mm256_mulhrs_epi16(_mm256_adds_epi16(vho, vho), k16(20155));
            st16(hn + j, vhn);
            st16(ln + j, vln);
            st16(hp + j, nhp);
            st16(lp + j, nlp);
            st16(ho + j, nho);
        },
        [&](int32_t j) { fwdLiftOne<LiftH>(s0, s1, s2, lp, ln, ho, hp, hn, j); });
}
void fwdLift97_16s_c(const int16_t* s0, const int16_t* s1, const int16_t* s2, int16_t* lp, int16_t* ln, int16_t* ho,
                     int16_t* hp, int16_t* hn, int32_t w) {
    for (int32_t j = 0; j < w; ++j) fwdLiftOne<LiftH>(s0, s1, s2, lp, ln, ho, hp, hn, j);
}

// The vector blocks subtract with wrapping in the first two steps; single
// samples saturate there.
void invLift97_16s(const int16_t* l, const int16_t* h0, const int16_t* h1, const int16_t* eo, int16_t* op,
                   int16_t* ep, int16_t* on, int16_t* en, int32_t w) {
    walkRow<16>(
        w, 0,
        [&](int32_t j) {
            const __m256i vl = ld16(l + j), a = ld16(h0 + j), b = ld16(h1 + j);
            const __m256i ve = ld16(eo + j), vop = ld16(op + j), vep = ld16(ep + j);
            const __m256i ven = _mm256_sub_epi16(
                _mm256_mulhrs_epi16(_mm256_adds_epi16(vl, vl), k16(20155)),
                _mm256_srai_epi16(_mm256_mulhrs_epi16(_mm256_adds_epi16(a, b), k16(23627)), 1));
            const __m256i von = _mm256_sub_epi16(_mm256_mulhrs_epi16(a, k16(26637)),
                                                 _mm256_mulhrs_epi16(_mm256_adds_epi16(vep, ven), k16(28931)));
            const __m256i nep = _mm256_adds_epi16(vep, _mm256_mulhrs_epi16(_mm256_adds_epi16(vop, von), k16(1736)));
            const __m256i t = _mm256_adds_epi16(ve, nep);
            const __m256i nop = _mm256_adds_epi16(vop, _mm256_mulhrs_epi16(_mm256_adds_epi16(t, t), k16(25987)));
            st16(en + j, ven);
            st16(on + j, von);
            st16(ep + j, nep);
            st16(op + j, nop);
        },
        [&](int32_t j) { invLiftOne<LiftH>(l, h0, h1, eo, op, ep, on, en, j); });
}
void invLift97_16s_c(const int16_t* l, const int16_t* h0, const int16_t* h1, const int16_t* eo, int16_t* op,
                     int16_t* ep, int16_t* on, int16_t* en, int32_t w) {
    for (int32_t j = 0; j < w; ++j) invLiftOne<LiftH>(l, h0, h1, eo, op, ep, on, en, j);
}

}  // namespace zeb::j2k

// ------------------------------------------------------------ exports

namespace {

template <class A, class B, class C>
ZebStatus check97(const A* a, int as, const B* b, int bs, const C* c, int cs, ZebSize roi) {
    if (!a || !b || !c) return zebStatusNullPointer;
    if (as < 1 || bs < 1 || cs < 1) return zebStatusBadStep;
    if (roi.height < 1 || roi.width < 1) return zebStatusBadSize;
    return zebStatusOk;
}

template <class... P>
ZebStatus checkLift97(int width, const P*... ptrs) {
    if (((ptrs == nullptr) || ...)) return zebStatusNullPointer;
    if (width < 1) return zebStatusBadSize;
    return zebStatusOk;
}

template <class T, class K>
ZebStatus fwdRows97(const T* src, int ss, T* lo, int ls, T* hi, int hs, ZebSize roi, int phase, K kernel) {
    if (ZebStatus s = check97(src, ss, lo, ls, hi, hs, roi)) return s;
    for (int32_t y = 0; y < roi.height; ++y)
        kernel(zeb::j2k::atRow(src, ss, y), zeb::j2k::atRow(lo, ls, y), zeb::j2k::atRow(hi, hs, y), roi.width, phase);
    return zebStatusOk;
}

template <class T, class K>
ZebStatus invRows97(const T* lo, int ls, const T* hi, int hs, ZebSize roi, T* dst, int ds, int phase, K kernel) {
    if (ZebStatus s = check97(lo, ls, hi, hs, dst, ds, roi)) return s;
    for (int32_t y = 0; y < roi.height; ++y)
        kernel(zeb::j2k::atRow(lo, ls, y), zeb::j2k::atRow(hi, hs, y), zeb::j2k::atRow(dst, ds, y), roi.width, phase);
    return zebStatusOk;
}

}  // namespace

namespace j = zeb::j2k;

ZebStatus zebimpl::zebiWTFwdRow_D97_JPEG2K_16s_C1R(const Zeb16s* src, int srcStep, Zeb16s* dstLow, int dstLowStep,
                                                   Zeb16s* dstHigh, int dstHighStep, ZebSize roiSize, int phase) {
    return fwdRows97(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize, phase, j::fwdRow97_16s);
}
ZebStatus zebimpl::zebiWTFwdRow_D97_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, Zeb32s* dstLow, int dstLowStep,
                                                   Zeb32s* dstHigh, int dstHighStep, ZebSize roiSize, int phase) {
    return fwdRows97(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize, phase, j::fwdRow97_32s);
}
ZebStatus zebimpl::zebiWTFwdRow_D97_JPEG2K_32f_C1R(const Zeb32f* src, int srcStep, Zeb32f* dstLow, int dstLowStep,
                                                   Zeb32f* dstHigh, int dstHighStep, ZebSize roiSize, int phase) {
    return fwdRows97(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize, phase, j::fwdRow97_32f);
}
ZebStatus zebimpl::zebiWTInvRow_D97_JPEG2K_16s_C1R(const Zeb16s* srcLow, int srcLowStep, const Zeb16s* srcHigh,
                                                   int srcHighStep, ZebSize roiSize, Zeb16s* dst, int dstStep,
                                                   int phase) {
    return invRows97(srcLow, srcLowStep, srcHigh, srcHighStep, roiSize, dst, dstStep, phase, j::invRow97_16s);
}
ZebStatus zebimpl::zebiWTInvRow_D97_JPEG2K_32s_C1R(const Zeb32s* srcLow, int srcLowStep, const Zeb32s* srcHigh,
                                                   int srcHighStep, ZebSize roiSize, Zeb32s* dst, int dstStep,
                                                   int phase) {
    return invRows97(srcLow, srcLowStep, srcHigh, srcHighStep, roiSize, dst, dstStep, phase, j::invRow97_32s);
}
ZebStatus zebimpl::zebiWTInvRow_D97_JPEG2K_32f_C1R(const Zeb32f* srcLow, int srcLowStep, const Zeb32f* srcHigh,
                                                   int srcHighStep, ZebSize roiSize, Zeb32f* dst, int dstStep,
                                                   int phase) {
    return invRows97(srcLow, srcLowStep, srcHigh, srcHighStep, roiSize, dst, dstStep, phase, j::invRow97_32f);
}

ZebStatus zebimpl::zebiWTFwdCol_D97_JPEG2K_32f_C1R(const Zeb32f* src, int srcStep, Zeb32f* dstLow, int dstLowStep,
                                                   Zeb32f* dstHigh, int dstHighStep, ZebSize roiSize, int phase) {
    if (ZebStatus s = check97(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize)) return s;
    j::fwdCol97_32f(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize.width, roiSize.height, phase);
    return zebStatusOk;
}
ZebStatus zebimpl::zebiWTInvCol_D97_JPEG2K_32f_C1R(const Zeb32f* srcLow, int srcLowStep, const Zeb32f* srcHigh,
                                                   int srcHighStep, ZebSize roiSize, Zeb32f* dst, int dstStep,
                                                   int phase) {
    if (ZebStatus s = check97(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize)) return s;
    j::invCol97_32f(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize.width, roiSize.height, phase);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiWTFwdColLift_D97_JPEG2K_16s_C1(const Zeb16s* src0, const Zeb16s* src1, const Zeb16s* src2,
                                                      Zeb16s* lowPrev, Zeb16s* lowNew, Zeb16s* highOld,
                                                      Zeb16s* highPrev, Zeb16s* highNew, int width) {
    if (ZebStatus s = checkLift97(width, src0, src1, src2, lowPrev, lowNew, highOld, highPrev, highNew)) return s;
    j::fwdLift97_16s(src0, src1, src2, lowPrev, lowNew, highOld, highPrev, highNew, width);
    return zebStatusOk;
}
ZebStatus zebimpl::zebiWTFwdColLift_D97_JPEG2K_32s_C1(const Zeb32s* src0, const Zeb32s* src1, const Zeb32s* src2,
                                                      Zeb32s* lowPrev, Zeb32s* lowNew, Zeb32s* highOld,
                                                      Zeb32s* highPrev, Zeb32s* highNew, int width) {
    if (ZebStatus s = checkLift97(width, src0, src1, src2, lowPrev, lowNew, highOld, highPrev, highNew)) return s;
    j::fwdLift97_32s(src0, src1, src2, lowPrev, lowNew, highOld, highPrev, highNew, width);
    return zebStatusOk;
}
ZebStatus zebimpl::zebiWTFwdColLift_D97_JPEG2K_32f_C1(const Zeb32f* src0, const Zeb32f* src1, const Zeb32f* src2,
                                                      Zeb32f* lowPrev, Zeb32f* lowNew, Zeb32f* highOld,
                                                      Zeb32f* highPrev, Zeb32f* highNew, int width) {
    if (ZebStatus s = checkLift97(width, src0, src1, src2, lowPrev, lowNew, highOld, highPrev, highNew)) return s;
    j::fwdLift97_32f(src0, src1, src2, lowPrev, lowNew, highOld, highPrev, highNew, width);
    return zebStatusOk;
}
ZebStatus zebimpl::zebiWTInvColLift_D97_JPEG2K_16s_C1(const Zeb16s* srcLow, const Zeb16s* srcHigh0,
                                                      const Zeb16s* srcHigh1, const Zeb16s* evenOld, Zeb16s* oddPrev,
                                                      Zeb16s* evenPrev, Zeb16s* oddNew, Zeb16s* evenNew, int width) {
    if (ZebStatus s = checkLift97(width, srcLow, srcHigh0, srcHigh1, evenOld, oddPrev, evenPrev, oddNew, evenNew))
        return s;
    j::invLift97_16s(srcLow, srcHigh0, srcHigh1, evenOld, oddPrev, evenPrev, oddNew, evenNew, width);
    return zebStatusOk;
}
ZebStatus zebimpl::zebiWTInvColLift_D97_JPEG2K_32s_C1(const Zeb32s* srcLow, const Zeb32s* srcHigh0,
                                                      const Zeb32s* srcHigh1, const Zeb32s* evenOld, Zeb32s* oddPrev,
                                                      Zeb32s* evenPrev, Zeb32s* oddNew, Zeb32s* evenNew, int width) {
    if (ZebStatus s = checkLift97(width, srcLow, srcHigh0, srcHigh1, evenOld, oddPrev, evenPrev, oddNew, evenNew))
        return s;
    j::invLift97_32s(srcLow, srcHigh0, srcHigh1, evenOld, oddPrev, evenPrev, oddNew, evenNew, width);
    return zebStatusOk;
}
ZebStatus zebimpl::zebiWTInvColLift_D97_JPEG2K_32f_C1(const Zeb32f* srcLow, const Zeb32f* srcHigh0,
                                                      const Zeb32f* srcHigh1, const Zeb32f* evenOld, Zeb32f* oddPrev,
                                                      Zeb32f* evenPrev, Zeb32f* oddNew, Zeb32f* evenNew, int width) {
    if (ZebStatus s = checkLift97(width, srcLow, srcHigh0, srcHigh1, evenOld, oddPrev, evenPrev, oddNew, evenNew))
        return s;
    j::invLift97_32f(srcLow, srcHigh0, srcHigh1, evenOld, oddPrev, evenPrev, oddNew, evenNew, width);
    return zebStatusOk;
}
