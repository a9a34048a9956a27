// Forward DCT members: checks, worked numbers, the vector kernels against
// their scalar twins, closeness to the exact transform, guards and steps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "jpeg/transform/transform.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using zebtest::GuardedBuffer;
namespace zj = zeb::jpeg;

// The exact 8x8 DCT with the JPEG scale (a flat block c gives DC 8c).
void exactDct(const double* x, double* out) {
    const double pi = std::acos(-1.0);
    for (int v = 0; v < 8; ++v)
        for (int u = 0; u < 8; ++u) {
            double s = 0;
            for (int y = 0; y < 8; ++y)
                for (int xx = 0; xx < 8; ++xx)
                    s += x[8 * y + xx] * std::cos((2 * xx + 1) * u * pi / 16) * std::cos((2 * y + 1) * v * pi / 16);
            out[8 * v + u] = s * (u ? 1 : std::sqrt(0.5)) * (v ? 1 : std::sqrt(0.5)) / 4;
        }
}

TEST(DctFwdChecks, OrderAndUntouchedMemory) {
    GuardedBuffer dst(128);
    alignas(16) int16_t blk[64] = {};
    uint8_t px[64] = {};
    uint16_t px16[64] = {};
    uint16_t fwd[64] = {};
    float ftab[64] = {};
    int16_t* d = dst.as<int16_t>();
    struct Row { const char* name; ZebStatus got; ZebStatus want; };
    const Row rows[] = {
        {"16s src", zebiDCTQuantFwd8x8_JPEG_16s_C1(nullptr, d, fwd), zebStatusNullPointer},
        {"16s dst", zebiDCTQuantFwd8x8_JPEG_16s_C1(blk, nullptr, fwd), zebStatusNullPointer},
        {"16s table", zebiDCTQuantFwd8x8_JPEG_16s_C1(blk, d, nullptr), zebStatusNullPointer},
        {"16s I block", zebiDCTQuantFwd8x8_JPEG_16s_C1I(nullptr, fwd), zebStatusNullPointer},
        {"16s I table", zebiDCTQuantFwd8x8_JPEG_16s_C1I(d, nullptr), zebStatusNullPointer},
        {"8u src before step", zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(nullptr, 0, d, fwd), zebStatusNullPointer},
        {"8u dst before step", zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 0, nullptr, fwd), zebStatusNullPointer},
        {"8u step before table", zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 0, d, nullptr), zebStatusBadStep},
        {"8u negative step", zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, -8, d, fwd), zebStatusBadStep},
        {"8u table", zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 8, d, nullptr), zebStatusNullPointer},
        {"16u src before step", zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(nullptr, 0, d, ftab), zebStatusNullPointer},
        {"16u dst before step", zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(px16, 0, nullptr, ftab), zebStatusNullPointer},
        {"16u step before table", zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(px16, 0, d, nullptr), zebStatusBadStep},
        {"16u table", zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(px16, 16, d, nullptr), zebStatusNullPointer},
    };
    for (const Row& r : rows) EXPECT_EQ(r.got, r.want) << r.name;
    EXPECT_TRUE(dst.untouched());
}

TEST(DctFwdValues, FlatBlocksAndRounding) {
    uint8_t px[64];
    alignas(16) uint16_t ones[64], any[64];
    for (int i = 0; i < 64; ++i) { ones[i] = 32768; any[i] = static_cast<uint16_t>(100 + 900 * i); }
    int16_t out[64];
    std::memset(px, 200, 64);
    ASSERT_EQ(zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 8, out, ones), zebStatusOk);
    EXPECT_EQ(out[0], 576);
    for (int i = 1; i < 64; ++i) EXPECT_EQ(out[i], 0) << i;
    std::memset(px, 128, 64);
    ASSERT_EQ(zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 8, out, any), zebStatusOk);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(out[i], 0) << i;

    // The fused quantisation rounds ties to even.
    EXPECT_EQ(zj::quantRoundEven(3, 16384), 2);
    EXPECT_EQ(zj::quantRoundEven(5, 16384), 2);
    EXPECT_EQ(zj::quantRoundEven(-3, 16384), -2);
    EXPECT_EQ(zj::quantRoundEven(-5, 16384), -2);
    EXPECT_EQ(zj::quantRoundEven(7, 16384), 4);
    EXPECT_EQ(zj::quantRoundEven(1000, 65535), 2000);  // a zero step scales by almost 2
    EXPECT_EQ(zj::quantRoundEven(32767, 65535), 32767);
    EXPECT_EQ(zj::quantRoundEven(-32768, 65535), -32768);

    // A flat 16-bit block of 3 (DC 24) with step 16 (entry 2048): 24 / 16 = 1.5 -> 2;
    // of 5 (DC 40): 2.5 -> 2; of -3: -1.5 -> -2.
    const int16_t flats[] = {3, 5, -3};
    const int16_t dcs[] = {2, 2, -2};
    for (int f = 0; f < 3; ++f) {
        alignas(16) int16_t b[64];
        alignas(16) uint16_t t[64];
        for (int i = 0; i < 64; ++i) { b[i] = flats[f]; t[i] = 2048; }
        ASSERT_EQ(zebiDCTQuantFwd8x8_JPEG_16s_C1I(b, t), zebStatusOk);
        EXPECT_EQ(b[0], dcs[f]) << flats[f];
        for (int i = 1; i < 64; ++i) EXPECT_EQ(b[i], 0);
    }

    // 12-bit: 2048 throughout gives zero; 4095 throughout a DC near 8 * 2047.
    uint16_t s12[64];
    float ft[64];
    for (int i = 0; i < 64; ++i) { s12[i] = 2048; ft[i] = 1.0f; }
    ASSERT_EQ(zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(s12, 16, out, ft), zebStatusOk);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(out[i], 0);
    for (int i = 0; i < 64; ++i) s12[i] = 4095;
    ASSERT_EQ(zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(s12, 16, out, ft), zebStatusOk);
    EXPECT_EQ(out[0], 8 * 2047);
    EXPECT_FLOAT_EQ(zj::kFloatScale[1], 0.17337999f);
    EXPECT_FLOAT_EQ(zj::kFloatScale[2], 0.16332038f);
    EXPECT_FLOAT_EQ(zj::kFloatScale[3], 0.14698444f);
}

// Both the fixed-point and the float transform stay close to the exact DCT.
TEST(DctFwdValues, CloseToExactTransform) {
    alignas(16) uint16_t ones[64];
    float fones[64];
    for (int i = 0; i < 64; ++i) { ones[i] = 32768; fones[i] = 1.0f; }
    int maxErr8 = 0, maxErr12 = 0;
    for (int trial = 0; trial < 300; ++trial) {
        uint8_t px[64];
        uint16_t s12[64];
        zebtest::fillRandom(px, 64, 0, 255);
        zebtest::fillRandom(s12, 64, 0, 4095);
        double x[64], ref[64];
        int16_t out[64];
        for (int i = 0; i < 64; ++i) x[i] = px[i] - 128.0;
        exactDct(x, ref);
        zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 8, out, ones);
        for (int i = 0; i < 64; ++i) maxErr8 = std::max(maxErr8, static_cast<int>(std::lround(std::fabs(out[i] - ref[i]))));
        for (int i = 0; i < 64; ++i) x[i] = s12[i] - 2048.0;
        exactDct(x, ref);
        zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(s12, 16, out, fones);
        for (int i = 0; i < 64; ++i) maxErr12 = std::max(maxErr12, static_cast<int>(std::lround(std::fabs(out[i] - ref[i]))));
    }
    EXPECT_LE(maxErr8, 2);
    EXPECT_LE(maxErr12, 1);
}

// The vector form of the fused quantisation against the scalar one for every
// coefficient, with steps that hit ties, large reciprocals and saturation.
TEST(DctFwdKernels, FusedQuantisationEveryCoefficient) {
    std::vector<uint16_t> recips = {0, 1, 2, 3, 129, 2048, 10923, 16384, 16385, 32767, 32768, 32769, 40000, 65534, 65535};
    for (int i = 0; i < 20; ++i) recips.push_back(static_cast<uint16_t>(zebtest::rng()()));
    for (uint16_t r : recips) {
        uint16_t tab[64];
        for (auto& t : tab) t = r;
        for (int base = -32768; base < 32768; base += 64) {
            int16_t f[64], a[64];
            for (int i = 0; i < 64; ++i) f[i] = static_cast<int16_t>(base + i);
            zj::quantRoundEvenAvx2(f, tab, a);
            for (int i = 0; i < 64; ++i) {
                // Exact rational rounding, ties to even, saturated.
                const int64_t p = int64_t{f[i]} * r;
                int64_t q = p >= 0 ? p / 32768 : -((-p + 32767) / 32768);
                const int64_t rem = p - q * 32768;
                if (rem > 16384 || (rem == 16384 && (q & 1))) ++q;
                q = std::clamp<int64_t>(q, -32768, 32767);
                ASSERT_EQ(zj::quantRoundEven(f[i], r), q) << f[i] << " " << r;
                ASSERT_EQ(a[i], q) << f[i] << " " << r;
            }
        }
    }
}

// Vector kernels against scalar twins: ordinary and extreme inputs (the
// saturating and wrapping steps), random tables, odd steps, guarded output.
TEST(DctFwdKernels, VectorMatchesScalar) {
    for (int trial = 0; trial < 3000; ++trial) {
        const int kind = trial % 4;
        int16_t in[64];
        if (kind == 0) zebtest::fillRandom(in, 64, -128, 127);
        else if (kind == 1) zebtest::fillRandom(in, 64, -32768, 32767);
        else if (kind == 2) { for (auto& v : in) v = (zebtest::rng()() & 1) ? 32767 : -32768; }
        else zebtest::fillRandom(in, 64, -2100, 2100);
        uint16_t tab[64];
        zebtest::fillRandom(tab, 64, trial % 3 ? 128 : 0, 65535);
        const int off = 2 * (trial % 16);
        GuardedBuffer a(128, off), b(128, off);
        zj::fdctQuantScalar(in, a.as<int16_t>(), tab);
        zj::fdctQuantAvx2(in, b.as<int16_t>(), tab);
        ASSERT_EQ(0, std::memcmp(a.data(), b.data(), 128)) << trial;
        ASSERT_TRUE(b.guardsIntact());

        const int step = 8 + trial % 13;
        std::vector<uint8_t> px(7 * step + 8);
        zebtest::fillRandom(px.data(), px.size(), 0, 255);
        zj::fdctQuantLSScalar(px.data(), step, a.as<int16_t>(), tab);
        zj::fdctQuantLSAvx2(px.data(), step, b.as<int16_t>(), tab);
        ASSERT_EQ(0, std::memcmp(a.data(), b.data(), 128)) << trial;

        const int step16 = 16 + 2 * (trial % 5);
        std::vector<uint16_t> s12(7 * step16 / 2 + 8);
        zebtest::fillRandom(s12.data(), s12.size(), 0, kind == 1 ? 65535 : 4095);
        float ft[64];
        for (auto& f : ft) f = kind == 1 ? 1e3f : 1.0f / static_cast<float>(1 + zebtest::rng()() % 255);
        if (kind == 2) ft[5] = std::nanf("");
        zj::fdctFloatScalar(s12.data(), step16, a.as<int16_t>(), ft);
        zj::fdctFloatAvx2(s12.data(), step16, b.as<int16_t>(), ft);
        ASSERT_EQ(0, std::memcmp(a.data(), b.data(), 128)) << trial;
        ASSERT_TRUE(a.guardsIntact());
        ASSERT_TRUE(b.guardsIntact());
    }
}

// The out-of-place and in-place members agree; the 8-bit member equals the
// 16-bit one on the level-shifted samples; the rows are read through the step.
TEST(DctFwdMembers, InPlaceStepsAndLevelShiftAgree) {
    alignas(16) uint16_t tab[64];
    for (int i = 0; i < 64; ++i) tab[i] = static_cast<uint16_t>(32768 / (1 + i % 20));
    for (int trial = 0; trial < 50; ++trial) {
        const int step = 9 + trial;
        std::vector<uint8_t> px(8 * step, 0xEE);
        alignas(16) int16_t shifted[64], a[64], b[64];
        for (int r = 0; r < 8; ++r)
            for (int c = 0; c < 8; ++c) {
                uint8_t v = static_cast<uint8_t>(zebtest::rng()());
                px[r * step + c] = v;
                shifted[8 * r + c] = static_cast<int16_t>(v - 128);
            }
        ASSERT_EQ(zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px.data(), step, a, tab), zebStatusOk);
        ASSERT_EQ(zebiDCTQuantFwd8x8_JPEG_16s_C1(shifted, b, tab), zebStatusOk);
        ASSERT_EQ(0, std::memcmp(a, b, 128));
        ASSERT_EQ(zebiDCTQuantFwd8x8_JPEG_16s_C1I(shifted, tab), zebStatusOk);
        ASSERT_EQ(0, std::memcmp(a, shifted, 128));
    }
}

}  // namespace
