// Constants shared by the forward and inverse transforms.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace zeb::jpeg {

// Row constants K0, K1, K2, K3, K5, K6, K7 of the 8-point row passes,
// round(2^14 * a(r) * a(j)), by block row.
struct RowK { int16_t k0, k1, k2, k3, k5, k6, k7; };
inline constexpr RowK kRowK[8] = {
    {16384, 22725, 21407, 19266, 12873, 8867, 4520},
    {22725, 31521, 29692, 26722, 17855, 12299, 6270},
    {21407, 29692, 27969, 25172, 16819, 11585, 5906},
    {19266, 26722, 25172, 22654, 15137, 10426, 5315},
    {16384, 22725, 21407, 19266, 12873, 8867, 4520},
    {19266, 26722, 25172, 22654, 15137, 10426, 5315},
    {21407, 29692, 27969, 25172, 16819, 11585, 5906},
    {22725, 31521, 29692, 26722, 17855, 12299, 6270},
};

// Column constants of the 16-bit passes.
inline constexpr int16_t kCos4 = 23170;     // 2^15 cos(pi/4)
inline constexpr int16_t kTan2 = 27146;     // 2^16 tan(pi/8)
inline constexpr int16_t kTan1 = 13036;     // 2^16 tan(pi/16)
inline constexpr int16_t kTan3m1 = -21746;  // 2^16 (tan(3pi/16) - 1)
inline constexpr int16_t kCos4m1 = -19195;  // x + hi(x, -19195) = x cos(pi/4)

// Float constants of the 12-bit transforms.
inline constexpr float kFc = 0.70710677f;
inline constexpr float kFt1 = 0.19891237f;
inline constexpr float kFt2 = 0.41421357f;
inline constexpr float kFt3 = 0.6681786f;

// 8x8 transpose of floats held in eight 256-bit registers.
inline void transpose8x8Ps(__m256 r[8]) {
    __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
    __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
    __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]), t5 = _mm256_unpackhi_ps(r[4], r[5]);
    __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]), t7 = _mm256_unpackhi_ps(r[6], r[7]);
    __m256 u0 = _mm256_shuffle_ps(t0, t2, 0x44), u1 = _mm256_shuffle_ps(t0, t2, 0xEE);
    __m256 u2 = _mm256_shuffle_ps(t1, t3, 0x44), u3 = _mm256_shuffle_ps(t1, t3, 0xEE);
    __m256 u4 = _mm256_shuffle_ps(t4, t6, 0x44), u5 = _mm256_shuffle_ps(t4, t6, 0xEE);
    __m256 u6 = _mm256_shuffle_ps(t5, t7, 0x44), u7 = _mm256_shuffle_ps(t5, t7, 0xEE);
    r[0] = _mm256_permute2f128_ps(u0, u4, 0x20); r[1] = _mm256_permute2f128_ps(u1, u5, 0x20);
    r[2] = _mm256_permute2f128_ps(u2, u6, 0x20); r[3] = _mm256_permute2f128_ps(u3, u7, 0x20);
    r[4] = _mm256_permute2f128_ps(u0, u4, 0x31); r[5] = _mm256_permute2f128_ps(u1, u5, 0x31);
    r[6] = _mm256_permute2f128_ps(u2, u6, 0x31); r[7] = _mm256_permute2f128_ps(u3, u7, 0x31);
}

}  // namespace zeb::jpeg
