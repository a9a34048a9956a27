// Reverse division: dst[i] = value / src[i], rounded to the nearest integer,
// in single precision. The quantisation tables use it to turn divisors into
// reciprocals. A zero divisor stores 65535 and is reported, the rest go on.
//
// Two forms with different last bits for some values: single elements use one
// float division; blocks of eight use the reciprocal estimate with two
// refinement steps and saturate to 32767. With value 32768 both give the
// nearest integer for every divisor.
#include <immintrin.h>
#include <omp.h>

#include <atomic>
#include <cstdint>
#include <cstring>

#include "frame/memory.h"
#include "frame/simd.h"
#include "zebcore.h"

namespace zeb {

Zeb16u divRevOne(Zeb16u value, Zeb16u x) {
    if (x == 0) return 65535;
    const float q = static_cast<float>(value) / static_cast<float>(x);
    const __m128 r = _mm_round_ss(_mm_setzero_ps(), _mm_set_ss(q), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    // The quotient lies in 0 .. 65535, so it fits the 16-bit store.
    return static_cast<Zeb16u>(_mm_cvttss_si32(r));
}

int divRevEight(const Zeb16u* src, Zeb16u value, Zeb16u* dst) {
    const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    const __m128i zero = _mm_cmpeq_epi16(s, _mm_setzero_si128());
    // A zero divisor counts as 1 here (s - (-1)) and gets 65535 at the end.
    const __m128i x16 = _mm_sub_epi16(s, zero);
    const __m256 x = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(x16));

    const __m256 r = _mm256_rcp_ps(x);
    const __m256 e = _mm256_sub_ps(_mm256_set1_ps(1.0f), _mm256_mul_ps(x, r));
    const __m256 q = _mm256_mul_ps(_mm256_set1_ps(static_cast<float>(value)), r);
    const __m256 q1 = _mm256_add_ps(q, _mm256_mul_ps(e, q));
    const __m256 q2 = _mm256_add_ps(q1, _mm256_mul_ps(_mm256_mul_ps(e, e), q1));

    // Round to nearest, ties to even, then pack with signed saturation: at most 32767.
    const __m256i qi = _mm256_cvttps_epi32(_mm256_round_ps(q2, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC));
    __m128i out = _mm_packs_epi32(_mm256_castsi256_si128(qi), _mm256_extracti128_si256(qi, 1));
    if (value > 32767) {
        // The saturation would lose value / 1: store the value itself.
        const __m128i isOne = _mm_cmpeq_epi16(x16, _mm_set1_epi16(1));
        out = _mm_blendv_epi8(out, _mm_set1_epi16(static_cast<short>(value)), isOne);
    }
    out = _mm_or_si128(out, zero);
    _mm_store_si128(reinterpret_cast<__m128i*>(dst), out);
    return _mm_movemask_epi8(zero) != 0 ? 1 : 0;
}

DivRevShare divRevShare(int len, int threads, int thread) {
    const int chunk = len / threads;
    const int rest = len % threads;
    return DivRevShare{chunk * thread, chunk + (thread == threads - 1 ? rest : 0)};
}

namespace {

// Single elements through unaligned-safe 16-bit accesses: the kernel accepts
// any address, also odd ones.
inline int divRevSingles(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int n) {
    int zero = 0;
    for (int i = 0; i < n; ++i) {
        Zeb16u x;
        std::memcpy(&x, src + i, 2);
        zero |= x == 0;
        const Zeb16u q = divRevOne(value, x);
        std::memcpy(dst + i, &q, 2);
    }
    return zero;
}

}  // namespace

}  // namespace zeb

// Single elements until dst is 16-byte aligned (all of them when dst is odd
// and never gets there), then eight at a time, then single elements.
int ownsDivCRevBlock_16u(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len) {
    if (len < 1) return 0;
    int pro = (reinterpret_cast<uintptr_t>(dst) & 1) ? len : zeb::simd::toBoundary(dst, 16, 2);
    if (pro > len) pro = len;
    int zero = zeb::divRevSingles(src, value, dst, pro);
    int i = pro;
    for (; i + 8 <= len; i += 8) zero |= zeb::divRevEight(src + i, value, dst + i);
    zero |= zeb::divRevSingles(src + i, value, dst + i, len - i);
    return zero;
}

// Up to two threads share the elements; the counter of threads that met a
// zero divisor is the result.
int ownzebsDivCRev_16u_omp(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len) {
    const int n = ownGetNumThreads();
    if (n <= 1 || len < n) return ownsDivCRevBlock_16u(src, value, dst, len);

    std::atomic<int> zeros{0};
    int team = 1;
#pragma omp parallel num_threads(n < 2 ? n : 2)
    {
#pragma omp master
        team = omp_get_num_threads();
#pragma omp barrier
        const zeb::DivRevShare share = zeb::divRevShare(len, team, omp_get_thread_num());
        if (ownsDivCRevBlock_16u(src + share.start, value, dst + share.start, share.count) != 0)
            zeros.fetch_add(1, std::memory_order_relaxed);
    }
    return zeros.load(std::memory_order_relaxed);
}

ZebStatus ownzebsDivCRev_16u(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len) {
    if (!src || !dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    if (value == 0) {
        // Look at the divisors before the fill: in place, the fill overwrites them.
        int zero = 0;
        for (int i = 0; i < len; ++i) {
            Zeb16u x;
            std::memcpy(&x, src + i, 2);
            zero |= x == 0;
        }
        ownsZero_16s(reinterpret_cast<Zeb16s*>(dst), len);
        return zero ? zebStatusDivideByZero : zebStatusOk;
    }
    const int r = len >= 2048 ? ownzebsDivCRev_16u_omp(src, value, dst, len)
                              : ownsDivCRevBlock_16u(src, value, dst, len);
    return r != 0 ? zebStatusDivideByZero : zebStatusOk;
}

ZebStatus ownzebsDivCRev_16u_I(Zeb16u value, Zeb16u* srcDst, int len) {
    return ownzebsDivCRev_16u(srcDst, value, srcDst, len);
}
