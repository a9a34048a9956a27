// Quantisation tables and quantisers: checks, table building, both rounding
// rules, wrapping, the vector kernels against their scalar twins.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "jpeg/transform/transform.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using zebtest::GuardedBuffer;
using zeb::jpeg::kZigzag;

TEST(QuantChecks, NullPointersAndQualityLeaveMemoryUntouched) {
    GuardedBuffer raw(64), tab(128), blk(128);
    uint8_t r8[64] = {};
    uint16_t t16[64] = {};
    struct Row { const char* name; ZebStatus got; ZebStatus want; };
    const Row rows[] = {
        {"raw null", zebiQuantFwdRawTableInit_JPEG_8u(nullptr, 0), zebStatusNullPointer},
        {"raw quality 0", zebiQuantFwdRawTableInit_JPEG_8u(raw.data(), 0), zebStatusBadArgument},
        {"raw quality -7", zebiQuantFwdRawTableInit_JPEG_8u(raw.data(), -7), zebStatusBadArgument},
        {"fwd table raw null", zebiQuantFwdTableInit_JPEG_8u16u(nullptr, tab.as<uint16_t>()), zebStatusNullPointer},
        {"fwd table dst null", zebiQuantFwdTableInit_JPEG_8u16u(r8, nullptr), zebStatusNullPointer},
        {"inv table raw null", zebiQuantInvTableInit_JPEG_8u16u(nullptr, tab.as<uint16_t>()), zebStatusNullPointer},
        {"inv table dst null", zebiQuantInvTableInit_JPEG_8u16u(r8, nullptr), zebStatusNullPointer},
        {"quant fwd block null", zebiQuantFwd8x8_JPEG_16s_C1I(nullptr, t16), zebStatusNullPointer},
        {"quant fwd table null", zebiQuantFwd8x8_JPEG_16s_C1I(blk.as<int16_t>(), nullptr), zebStatusNullPointer},
        {"quant inv block null", zebiQuantInv8x8_JPEG_16s_C1I(nullptr, t16), zebStatusNullPointer},
        {"quant inv table null", zebiQuantInv8x8_JPEG_16s_C1I(blk.as<int16_t>(), nullptr), zebStatusNullPointer},
    };
    for (const Row& r : rows) EXPECT_EQ(r.got, r.want) << r.name;
    EXPECT_TRUE(raw.untouched());
    EXPECT_TRUE(tab.untouched());
    EXPECT_TRUE(blk.untouched());
}

std::vector<uint8_t> scaled(uint8_t entry, int quality) {
    std::vector<uint8_t> t(64, entry);
    EXPECT_EQ(zebiQuantFwdRawTableInit_JPEG_8u(t.data(), quality), zebStatusOk);
    return t;
}

TEST(QuantRawTable, QualityScaling) {
    EXPECT_EQ(scaled(16, 1)[0], 255);   // 800 before the clamp
    EXPECT_EQ(scaled(16, 75)[0], 8);
    EXPECT_EQ(scaled(100, 49)[0], 102);  // scale 102
    EXPECT_EQ(scaled(16, 49)[0], 16);    // (16 * 102 + 50) / 100
    EXPECT_EQ(scaled(99, 10)[63], 255);
    EXPECT_EQ(scaled(3, 90)[5], 1);      // (3 * 20 + 50) / 100 = 1
    EXPECT_EQ(scaled(24, 90)[5], 5);     // (24 * 20 + 50) / 100 = 5
    // Quality 50 leaves every entry, 0 becomes 1.
    std::vector<uint8_t> t(64);
    for (int i = 0; i < 64; ++i) t[i] = static_cast<uint8_t>(i * 4);
    std::vector<uint8_t> want = t;
    want[0] = 1;
    ASSERT_EQ(zebiQuantFwdRawTableInit_JPEG_8u(t.data(), 50), zebStatusOk);
    EXPECT_EQ(t, want);
    // From 100 upward every entry is 1, however large the quality.
    for (int q : {100, 101, 1000, 1 << 20, 1073741824, 2147483647}) {
        auto s = scaled(255, q);
        EXPECT_EQ(s, std::vector<uint8_t>(64, 1)) << q;
        EXPECT_EQ(scaled(0, q)[0], 1) << q;
    }
}

TEST(QuantTables, ZigzagToNaturalAndReciprocals) {
    uint8_t raw[64];
    for (int k = 0; k < 64; ++k) raw[k] = static_cast<uint8_t>(k + 1);
    alignas(16) uint16_t inv[64], fwd[64];
    ASSERT_EQ(zebiQuantInvTableInit_JPEG_8u16u(raw, inv), zebStatusOk);
    for (int k = 0; k < 64; ++k) EXPECT_EQ(inv[kZigzag[k]], k + 1);
    EXPECT_EQ(inv[8], 3);  // raw entry 2 lands at natural index 8 (vertical frequency 1)
    EXPECT_EQ(inv[1], 2);
    EXPECT_EQ(inv[63], 64);

    // The zigzag order visits every index once, in anti-diagonals.
    bool seen[64] = {};
    for (int k = 0; k < 64; ++k) seen[kZigzag[k]] = true;
    for (bool s : seen) EXPECT_TRUE(s);
    for (int k = 1; k < 64; ++k) {
        int d0 = kZigzag[k - 1] / 8 + kZigzag[k - 1] % 8, d1 = kZigzag[k] / 8 + kZigzag[k] % 8;
        EXPECT_TRUE(d1 == d0 || d1 == d0 + 1) << k;
    }

    uint8_t steps[64];
    for (int k = 0; k < 64; ++k) steps[k] = static_cast<uint8_t>(1 + (k * 37) % 255);
    steps[0] = 1; steps[1] = 2; steps[2] = 3; steps[3] = 255;
    ASSERT_EQ(zebiQuantFwdTableInit_JPEG_8u16u(steps, fwd), zebStatusOk);
    EXPECT_EQ(fwd[0], 32768);
    EXPECT_EQ(fwd[1], 16384);
    EXPECT_EQ(fwd[8], 10923);
    EXPECT_EQ(fwd[16], 129);
    for (int k = 0; k < 64; ++k) {
        float q = 32768.0f / static_cast<float>(steps[k]);
        EXPECT_EQ(fwd[kZigzag[k]], static_cast<uint16_t>(std::nearbyint(q))) << k;
    }
}

TEST(QuantTables, ZeroStepWarnsOnlyForTheForwardTable) {
    uint8_t raw[64];
    std::memset(raw, 4, 64);
    raw[2] = 0;
    uint16_t fwd[64], inv[64];
    EXPECT_EQ(zebiQuantFwdTableInit_JPEG_8u16u(raw, fwd), zebStatusDivideByZero);
    EXPECT_EQ(fwd[8], 65535);
    for (int i = 0; i < 64; ++i)
        if (i != 8) EXPECT_EQ(fwd[i], 8192);
    EXPECT_EQ(zebiQuantInvTableInit_JPEG_8u16u(raw, inv), zebStatusOk);
    EXPECT_EQ(inv[8], 0);
}

TEST(QuantFwd, HalvesRoundUpward) {
    alignas(16) int16_t b[64] = {};
    alignas(16) uint16_t t[64];
    for (auto& v : t) v = 2048;  // step 16
    b[0] = 24; b[1] = -24; b[2] = 8; b[3] = -8; b[4] = 23; b[5] = -25;
    ASSERT_EQ(zebiQuantFwd8x8_JPEG_16s_C1I(b, t), zebStatusOk);
    EXPECT_EQ(b[0], 2);
    EXPECT_EQ(b[1], -1);
    EXPECT_EQ(b[2], 1);
    EXPECT_EQ(b[3], 0);
    EXPECT_EQ(b[4], 1);
    EXPECT_EQ(b[5], -2);

    // Step 1 leaves every value of magnitude below 4096.
    for (auto& v : t) v = 32768;
    for (int base = -4095; base < 4096; base += 64) {
        for (int i = 0; i < 64; ++i) b[i] = static_cast<int16_t>(std::min(base + i, 4095));
        int16_t want[64];
        std::memcpy(want, b, sizeof b);
        ASSERT_EQ(zebiQuantFwd8x8_JPEG_16s_C1I(b, t), zebStatusOk);
        ASSERT_EQ(0, std::memcmp(b, want, sizeof b)) << base;
    }
}

TEST(QuantInv, WrapsAtSixteenBits) {
    alignas(16) int16_t b[64];
    alignas(16) uint16_t t[64];
    for (int i = 0; i < 64; ++i) { b[i] = static_cast<int16_t>(i - 32); t[i] = static_cast<uint16_t>(i + 1); }
    b[7] = 300; t[7] = 255;
    b[9] = -300; t[9] = 65535;
    ASSERT_EQ(zebiQuantInv8x8_JPEG_16s_C1I(b, t), zebStatusOk);
    EXPECT_EQ(b[7], static_cast<int16_t>(76500 - 65536));
    EXPECT_EQ(b[9], 300);  // -300 * 65535 wraps to +300
    EXPECT_EQ(b[0], -32);
    EXPECT_EQ(b[63], 31 * 64);
}

// The vector kernels against their scalar twins, on random blocks at every
// even offset of the block from a 32-byte boundary, with guards around it.
TEST(QuantKernels, VectorMatchesScalarAtEveryAlignment) {
    for (int trial = 0; trial < 200; ++trial) {
        for (int off = 0; off < 32; off += 2) {
            GuardedBuffer a(128, off), b(128, off);
            std::vector<int16_t> in(64);
            std::vector<uint16_t> tab(64);
            zebtest::fillRandom(in.data(), 64, trial % 2 ? -32768 : -4096, trial % 2 ? 32767 : 4095);
            zebtest::fillRandom(tab.data(), 64, 0, 65535);
            std::memcpy(a.data(), in.data(), 128);
            std::memcpy(b.data(), in.data(), 128);
            zeb::jpeg::quantFwdScalar(a.as<int16_t>(), tab.data());
            zeb::jpeg::quantFwdAvx2(b.as<int16_t>(), tab.data());
            ASSERT_EQ(0, std::memcmp(a.data(), b.data(), 128));
            zeb::jpeg::quantInvScalar(a.as<int16_t>(), tab.data());
            zeb::jpeg::quantInvAvx2(b.as<int16_t>(), tab.data());
            ASSERT_EQ(0, std::memcmp(a.data(), b.data(), 128));
            ASSERT_TRUE(a.guardsIntact());
            ASSERT_TRUE(b.guardsIntact());
        }
    }
}

}  // namespace
