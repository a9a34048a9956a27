// Shared SIMD helpers for the AVX2 kernels.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <cstring>

namespace zeb::simd {

template <class T>
inline bool aligned(const T* p, uintptr_t n) { return (reinterpret_cast<uintptr_t>(p) & (n - 1)) == 0; }

// Elements of size `elem` from p to the next n-byte boundary (0 if aligned).
inline int toBoundary(const void* p, uintptr_t n, int elem) {
    uintptr_t a = reinterpret_cast<uintptr_t>(p);
    return static_cast<int>(((n - (a & (n - 1))) & (n - 1)) / static_cast<uintptr_t>(elem));
}

// Partial loads and stores that touch exactly the bytes named.
inline __m128i load32(const void* p) { int32_t v; std::memcpy(&v, p, 4); return _mm_cvtsi32_si128(v); }
inline __m128i load64(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline void store32(void* p, __m128i v) { int32_t x = _mm_cvtsi128_si32(v); std::memcpy(p, &x, 4); }
inline void store64(void* p, __m128i v) { _mm_storel_epi64(static_cast<__m128i*>(p), v); }
inline __m128i loadu128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void storeu128(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
inline __m256i loadu256(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void storeu256(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// Transpose of an 8x8 block of 16-bit lanes held in eight 128-bit registers.
inline void transpose8x8_16(__m128i r[8]) {
    __m128i a0 = _mm_unpacklo_epi16(r[0], r[1]), a1 = _mm_unpackhi_epi16(r[0], r[1]);
    __m128i a2 = _mm_unpacklo_epi16(r[2], r[3]), a3 = _mm_unpackhi_epi16(r[2], r[3]);
    __m128i a4 = _mm_unpacklo_epi16(r[4], r[5]), a5 = _mm_unpackhi_epi16(r[4], r[5]);
    __m128i a6 = _mm_unpacklo_epi16(r[6], r[7]), a7 = _mm_unpackhi_epi16(r[6], r[7]);
    __m128i b0 = _mm_unpacklo_epi32(a0, a2), b1 = _mm_unpackhi_epi32(a0, a2);
    __m128i b2 = _mm_unpacklo_epi32(a1, a3), b3 = _mm_unpackhi_epi32(a1, a3);
    __m128i b4 = _mm_unpacklo_epi32(a4, a6), b5 = _mm_unpackhi_epi32(a4, a6);
    __m128i b6 = _mm_unpacklo_epi32(a5, a7), b7 = _mm_unpackhi_epi32(a5, a7);
    r[0] = _mm_unpacklo_epi64(b0, b4); r[1] = _mm_unpackhi_epi64(b0, b4);
    r[2] = _mm_unpacklo_epi64(b1, b5); r[3] = _mm_unpackhi_epi64(b1, b5);
    r[4] = _mm_unpacklo_epi64(b2, b6); r[5] = _mm_unpackhi_epi64(b2, b6);
    r[6] = _mm_unpacklo_epi64(b3, b7); r[7] = _mm_unpackhi_epi64(b3, b7);
}

}  // namespace zeb::simd
