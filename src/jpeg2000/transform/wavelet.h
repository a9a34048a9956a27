// Shared machinery of the wavelet row, column and lifting-step operations:
// the lane helpers that split an interleaved row into its even and odd
// samples and merge them back, single-lane shifts that bring in a neighbour,
// the chunked walk over a row of columns (vector chunks, scalar remainder),
// the overlap test of the column forms, and the internal kernels with their
// scalar twins.
//
// Conventions. x is the interleaved signal, L and H the bands; with phase 0
// L[i] comes from x[2i] and H[i] from x[2i+1], with another phase L[i] comes
// from x[2i+1] and H[i] from x[2i]. The caller supplies the extension beyond
// the region; the kernels read exactly the documented extents.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <type_traits>

#include "frame/arith.h"
#include "frame/simd.h"

namespace zeb::j2k {

// ------------------------------------------------------------ byte addressing

template <class T>
inline T* atRow(T* base, int32_t step, int32_t y) {
    using B = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
    return reinterpret_cast<T*>(reinterpret_cast<B*>(base) + static_cast<intptr_t>(step) * y);
}

// Half-open byte span [lo, hi).
struct Span {
    uintptr_t lo = 0, hi = 0;
    bool overlaps(const Span& o) const { return lo < o.hi && o.lo < hi; }
};

// The bytes touched by rows first..last (inclusive) of `count` elements of
// `elem` bytes each, rows `step` bytes apart.
inline Span rowsSpan(const void* base, int32_t step, int32_t first, int32_t last, int32_t count, int elem) {
    const uintptr_t b = reinterpret_cast<uintptr_t>(base);
    const intptr_t s = step;
    return Span{b + static_cast<uintptr_t>(s * first), b + static_cast<uintptr_t>(s * last + intptr_t{count} * elem)};
}

// ------------------------------------------------------------ 128-bit lanes
// Row kernels compute on one 128-bit register per band: eight 16-bit or four
// 32-bit samples. split() reads 2N interleaved samples; merge() writes them.

struct Lanes16 {
    using T = int16_t;
    static constexpr int N = 8;
    static __m128i add(__m128i a, __m128i b) { return _mm_add_epi16(a, b); }
    static __m128i sub(__m128i a, __m128i b) { return _mm_sub_epi16(a, b); }
    static __m128i sra1(__m128i a) { return _mm_srai_epi16(a, 1); }
    static __m128i sra2(__m128i a) { return _mm_srai_epi16(a, 2); }
    static __m128i set1(T v) { return _mm_set1_epi16(v); }
    static __m128i load(const T* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store(T* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static void split(const T* x, __m128i& even, __m128i& odd) {
        const __m256i k = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15,
                                           0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(x));
        v = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(v, k), 0xD8);
        even = _mm256_castsi256_si128(v);
        odd = _mm256_extracti128_si256(v, 1);
    }
    static void merge(T* x, __m128i even, __m128i odd) {
        store(x, _mm_unpacklo_epi16(even, odd));
        store(x + N, _mm_unpackhi_epi16(even, odd));
    }
    // [a1 .. a(N-1), v]
    static __m128i shiftInLast(__m128i a, T v) { return _mm_insert_epi16(_mm_srli_si128(a, 2), v, 7); }
    // [prev(N-1), a0 .. a(N-2)]
    static __m128i withPrevLast(__m128i a, __m128i prev) { return _mm_alignr_epi8(a, prev, 14); }
};

struct Lanes32 {
    using T = int32_t;
    static constexpr int N = 4;
    static __m128i add(__m128i a, __m128i b) { return _mm_add_epi32(a, b); }
    static __m128i sub(__m128i a, __m128i b) { return _mm_sub_epi32(a, b); }
    static __m128i sra1(__m128i a) { return _mm_srai_epi32(a, 1); }
    static __m128i sra2(__m128i a) { return _mm_srai_epi32(a, 2); }
    static __m128i set1(T v) { return _mm_set1_epi32(v); }
    static __m128i load(const T* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store(T* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static void split(const T* x, __m128i& even, __m128i& odd) {
        const __m256i k = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
        __m256i v = _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(x)), k);
        even = _mm256_castsi256_si128(v);
        odd = _mm256_extracti128_si256(v, 1);
    }
    static void merge(T* x, __m128i even, __m128i odd) {
        store(x, _mm_unpacklo_epi32(even, odd));
        store(x + N, _mm_unpackhi_epi32(even, odd));
    }
    static __m128i shiftInLast(__m128i a, T v) { return _mm_insert_epi32(_mm_srli_si128(a, 4), v, 3); }
    static __m128i withPrevLast(__m128i a, __m128i prev) { return _mm_alignr_epi8(a, prev, 12); }
};

// ------------------------------------------------------------ 256-bit lanes
// Column kernels and lifting steps work on whole rows, one 256-bit register
// per row chunk: sixteen 16-bit or eight 32-bit samples.

struct Wide16 {
    using T = int16_t;
    using V = __m256i;
    static constexpr int N = 16;
    static V load(const T* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void store(T* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static V add(V a, V b) { return _mm256_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V sra1(V a) { return _mm256_srai_epi16(a, 1); }
    static V sra2(V a) { return _mm256_srai_epi16(a, 2); }
    static V two() { return _mm256_set1_epi16(2); }
};

struct Wide32 {
    using T = int32_t;
    using V = __m256i;
    static constexpr int N = 8;
    static V load(const T* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void store(T* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static V add(V a, V b) { return _mm256_add_epi32(a, b); }
    static V sub(V a, V b) { return _mm256_sub_epi32(a, b); }
    static V sra1(V a) { return _mm256_srai_epi32(a, 1); }
    static V sra2(V a) { return _mm256_srai_epi32(a, 2); }
    static V two() { return _mm256_set1_epi32(2); }
};

// Walks j over [0, width): `pro` scalar elements first (an alignment
// prologue, skipped when the row is not longer than it), then vector chunks
// of N, then scalar elements. vec(j) handles N elements, one(j) a single one.
template <int N, class Vec, class One>
inline void walkRow(int32_t width, int pro, Vec&& vec, One&& one) {
    int32_t j = 0;
    if (pro > 0 && width > pro)
        for (; j < pro; ++j) one(j);
    for (; j + N <= width; j += N) vec(j);
    for (; j < width; ++j) one(j);
}

// A row walk that is either vector (16-byte alignment prologue on `align`,
// chunks of N, scalar remainder) or scalar throughout: the column kernels
// share one body between their vector path and their scalar twin.
template <int N, class T>
struct RowWalk {
    bool vec;
    int32_t w;
    template <class Vec, class One>
    void run(const void* align, Vec&& v, One&& one) const {
        if (vec)
            walkRow<N>(w, simd::toBoundary(align, 16, sizeof(T)), v, one);
        else
            for (int32_t j = 0; j < w; ++j) one(j);
    }
};

// ------------------------------------------------------------ 5/3 arithmetic
// The four lifting formulas, per sample, in the number form of each path:
//   fp  forward predict   c - ((a + b) >> 1)
//   fu  forward update    c + ((a + b + 2) >> 2)
//   iu  inverse update    c - ((a + b + 2) >> 2)
//   ip  inverse predict   c + ((a + b) >> 1)

// 16-bit samples, sums formed in 32 bits, results truncated to 16 bits: the
// scalar paths of the 16-bit row and column forms.
struct Sum32of16 {
    using T = int16_t;
    static T fp(T c, T a, T b) { return wrap16(int32_t{c} - ((int32_t{a} + b) >> 1)); }
    static T fu(T c, T a, T b) { return wrap16(int32_t{c} + ((int32_t{a} + b + 2) >> 2)); }
    static T iu(T c, T a, T b) { return wrap16(int32_t{c} - ((int32_t{a} + b + 2) >> 2)); }
    static T ip(T c, T a, T b) { return wrap16(int32_t{c} + ((int32_t{a} + b) >> 1)); }
};

// 16-bit samples, every sum wrapping at 16 bits before the shift: the vector
// lanes of the 16-bit forms, and the 16-bit lifting steps on every path.
struct Sum16 {
    using T = int16_t;
    static T fp(T c, T a, T b) { return wrap16(int32_t{c} - (wrap16(int32_t{a} + b) >> 1)); }
    static T fu(T c, T a, T b) { return wrap16(int32_t{c} + (wrap16(int32_t{a} + b + 2) >> 2)); }
    static T iu(T c, T a, T b) { return wrap16(int32_t{c} - (wrap16(int32_t{a} + b + 2) >> 2)); }
    static T ip(T c, T a, T b) { return wrap16(int32_t{c} + (wrap16(int32_t{a} + b) >> 1)); }
};

// 32-bit samples wrapping at 32 bits: every path of the 32-bit forms.
struct Sum32 {
    using T = int32_t;
    static T fp(T c, T a, T b) { return sub32(c, add32(a, b) >> 1); }
    static T fu(T c, T a, T b) { return add32(c, add32(add32(a, b), 2) >> 2); }
    static T iu(T c, T a, T b) { return sub32(c, add32(add32(a, b), 2) >> 2); }
    static T ip(T c, T a, T b) { return add32(c, add32(a, b) >> 1); }
};

// The same four formulas on vector lanes.
template <class W>
struct Lift53 {
    using V = typename W::V;
    static V fp(V c, V a, V b) { return W::sub(c, W::sra1(W::add(a, b))); }
    static V fu(V c, V a, V b) { return W::add(c, W::sra2(W::add(W::add(a, b), W::two()))); }
    static V iu(V c, V a, V b) { return W::sub(c, W::sra2(W::add(W::add(a, b), W::two()))); }
    static V ip(V c, V a, V b) { return W::add(c, W::sra1(W::add(a, b))); }
};

// ------------------------------------------------------------ 5/3 kernels
// Rows: one row per call; `x` addresses x[0], `lo`/`hi` the bands.
// The vector forms run blocks of 8 (16-bit) or 4 (32-bit) outputs and finish
// with the scalar form; the _c twins are the scalar form throughout.
void fwdRow53_16s(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase);
void fwdRow53_16s_c(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase);
void fwdRow53_32s(const int32_t* x, int32_t* lo, int32_t* hi, int32_t w, int32_t phase);
void fwdRow53_32s_c(const int32_t* x, int32_t* lo, int32_t* hi, int32_t w, int32_t phase);
void invRow53_16s(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase);
void invRow53_16s_c(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase);
void invRow53_32s(const int32_t* lo, const int32_t* hi, int32_t* x, int32_t w, int32_t phase);
void invRow53_32s_c(const int32_t* lo, const int32_t* hi, int32_t* x, int32_t w, int32_t phase);

// Columns: `w` columns, `h` rows per band. The vector forms assume that the
// high-pass output does not overlap the input (the exported operations test
// that and pick the scalar twin otherwise).
void fwdCol53_16s(const int16_t* x, int32_t xStep, int16_t* lo, int32_t loStep, int16_t* hi, int32_t hiStep,
                  int32_t w, int32_t h, int32_t phase);
void fwdCol53_16s_c(const int16_t* x, int32_t xStep, int16_t* lo, int32_t loStep, int16_t* hi, int32_t hiStep,
                    int32_t w, int32_t h, int32_t phase);
void fwdCol53_32s(const int32_t* x, int32_t xStep, int32_t* lo, int32_t loStep, int32_t* hi, int32_t hiStep,
                  int32_t w, int32_t h, int32_t phase);
void fwdCol53_32s_c(const int32_t* x, int32_t xStep, int32_t* lo, int32_t loStep, int32_t* hi, int32_t hiStep,
                    int32_t w, int32_t h, int32_t phase);
void invCol53_16s(const int16_t* lo, int32_t loStep, const int16_t* hi, int32_t hiStep, int16_t* x, int32_t xStep,
                  int32_t w, int32_t h, int32_t phase);
void invCol53_16s_c(const int16_t* lo, int32_t loStep, const int16_t* hi, int32_t hiStep, int16_t* x,
                    int32_t xStep, int32_t w, int32_t h, int32_t phase);
void invCol53_32s(const int32_t* lo, int32_t loStep, const int32_t* hi, int32_t hiStep, int32_t* x, int32_t xStep,
                  int32_t w, int32_t h, int32_t phase);
void invCol53_32s_c(const int32_t* lo, int32_t loStep, const int32_t* hi, int32_t hiStep, int32_t* x,
                    int32_t xStep, int32_t w, int32_t h, int32_t phase);

// Single lifting steps on one row pair.
void fwdLift53_16s(const int16_t* s0, const int16_t* s1, const int16_t* s2, int16_t* lo, const int16_t* hiPrev,
                   int16_t* hi, int32_t w);
void fwdLift53_16s_c(const int16_t* s0, const int16_t* s1, const int16_t* s2, int16_t* lo, const int16_t* hiPrev,
                     int16_t* hi, int32_t w);
void fwdLift53_32s(const int32_t* s0, const int32_t* s1, const int32_t* s2, int32_t* lo, const int32_t* hiPrev,
                   int32_t* hi, int32_t w);
void fwdLift53_32s_c(const int32_t* s0, const int32_t* s1, const int32_t* s2, int32_t* lo, const int32_t* hiPrev,
                     int32_t* hi, int32_t w);
void invLift53_16s(const int16_t* lo, const int16_t* h0, const int16_t* h1, const int16_t* evenPrev, int16_t* odd,
                   int16_t* even, int32_t w);
void invLift53_16s_c(const int16_t* lo, const int16_t* h0, const int16_t* h1, const int16_t* evenPrev,
                     int16_t* odd, int16_t* even, int32_t w);
void invLift53_32s(const int32_t* lo, const int32_t* h0, const int32_t* h1, const int32_t* evenPrev, int32_t* odd,
                   int32_t* even, int32_t w);
void invLift53_32s_c(const int32_t* lo, const int32_t* h0, const int32_t* h1, const int32_t* evenPrev,
                     int32_t* odd, int32_t* even, int32_t w);

// ------------------------------------------------------------ 9/7 kernels
// Rows (one per call) in the float, 16-fraction-bit and 16-bit forms (the
// float and 16-bit ones with vector blocks of eight band samples); float
// columns with a scalar twin; single lifting steps. The float and 16-bit
// lifting steps have vector forms with scalar twins; the 32-bit forms carry
// 64-bit products and are scalar throughout.
void fwdRow97_16s(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase);
void fwdRow97_32s(const int32_t* x, int32_t* lo, int32_t* hi, int32_t w, int32_t phase);
void fwdRow97_32f(const float* x, float* lo, float* hi, int32_t w, int32_t phase);
void invRow97_16s(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase);
void invRow97_32s(const int32_t* lo, const int32_t* hi, int32_t* x, int32_t w, int32_t phase);
void invRow97_32f(const float* lo, const float* hi, float* x, int32_t w, int32_t phase);
// Scalar twins of the 16-bit and float rows. The 16-bit inverse vector blocks
// wrap the subtractions of their first two steps where single samples
// saturate; everything else agrees on all data.
void fwdRow97_16s_c(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase);
void fwdRow97_32f_c(const float* x, float* lo, float* hi, int32_t w, int32_t phase);
void invRow97_16s_c(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase);
void invRow97_32f_c(const float* lo, const float* hi, float* x, int32_t w, int32_t phase);

void fwdCol97_32f(const float* x, int32_t xs, float* lo, int32_t ls, float* hi, int32_t hs, int32_t w, int32_t h,
                  int32_t phase);
void fwdCol97_32f_c(const float* x, int32_t xs, float* lo, int32_t ls, float* hi, int32_t hs, int32_t w, int32_t h,
                    int32_t phase);
void invCol97_32f(const float* lo, int32_t ls, const float* hi, int32_t hs, float* x, int32_t xs, int32_t w,
                  int32_t h, int32_t phase);
void invCol97_32f_c(const float* lo, int32_t ls, const float* hi, int32_t hs, float* x, int32_t xs, int32_t w,
                    int32_t h, int32_t phase);

// Forward: (s0, s1, s2, lowPrev, lowNew, highOld, highPrev, highNew, width).
// Inverse: (srcLow, srcHigh0, srcHigh1, evenOld, oddPrev, evenPrev, oddNew, evenNew, width).
#define ZEB_LIFT97(T, sfx)                                                                                        \
    void fwdLift97_##sfx(const T* s0, const T* s1, const T* s2, T* lp, T* ln, T* ho, T* hp, T* hn, int32_t w); \
    void invLift97_##sfx(const T* l, const T* h0, const T* h1, const T* eo, T* op, T* ep, T* on, T* en, int32_t w);
ZEB_LIFT97(int16_t, 16s)
ZEB_LIFT97(int16_t, 16s_c)
ZEB_LIFT97(int32_t, 32s)
ZEB_LIFT97(float, 32f)
ZEB_LIFT97(float, 32f_c)
#undef ZEB_LIFT97

}  // namespace zeb::j2k
