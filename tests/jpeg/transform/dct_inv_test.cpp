// Inverse DCT members: checks, worked numbers, corner members against the
// full member, reduced outputs, vector kernels against their scalar twins,
// both alignment paths, round trips, guards around every output.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include "jpeg/transform/transform.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using zebtest::GuardedBuffer;
namespace zj = zeb::jpeg;

using Ls8u = ZebStatus (*)(const Zeb16s*, Zeb8u*, int, const Zeb16u*);
struct Member { const char* name; Ls8u fn; int rows, cols; };
const Member kLs8u[] = {
    {"full", zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R, 8, 8},
    {"1x1", zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, 8, 8},
    {"2x2", zebiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, 8, 8},
    {"4x4", zebiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, 8, 8},
    {"To2x2", zebiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, 2, 2},
    {"To4x4", zebiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, 4, 4},
};

struct Ones {
    alignas(16) uint16_t t[64];
    Ones() { for (auto& v : t) v = 1; }
} const kOnes;

std::vector<uint8_t> run8u(Ls8u fn, const int16_t* src, const uint16_t* tab = kOnes.t) {
    std::vector<uint8_t> out(64, 0);
    EXPECT_EQ(fn(src, out.data(), 8, tab), zebStatusOk);
    return out;
}

TEST(DctInvChecks, OrderForEveryMember) {
    GuardedBuffer dst(128);
    alignas(16) int16_t blk[64] = {};
    float ft[64] = {};
    for (const Member& m : kLs8u) {
        EXPECT_EQ(m.fn(nullptr, dst.data(), 0, nullptr), zebStatusNullPointer) << m.name;
        EXPECT_EQ(m.fn(blk, nullptr, 0, nullptr), zebStatusNullPointer) << m.name;
        EXPECT_EQ(m.fn(blk, dst.data(), 0, nullptr), zebStatusBadStep) << m.name;
        EXPECT_EQ(m.fn(blk, dst.data(), -8, kOnes.t), zebStatusBadStep) << m.name;
        EXPECT_EQ(m.fn(blk, dst.data(), 8, nullptr), zebStatusNullPointer) << m.name;
    }
    Zeb16u* d16 = dst.as<Zeb16u>();
    EXPECT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(nullptr, d16, 0, nullptr), zebStatusNullPointer);
    EXPECT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(blk, nullptr, 0, nullptr), zebStatusNullPointer);
    EXPECT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(blk, d16, 0, nullptr), zebStatusBadStep);
    EXPECT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(blk, d16, 16, nullptr), zebStatusNullPointer);
    EXPECT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(blk, d16, -1, ft), zebStatusBadStep);
    Zeb16s* s16 = dst.as<Zeb16s>();
    EXPECT_EQ(zebiDCTQuantInv8x8_JPEG_16s_C1(nullptr, s16, kOnes.t), zebStatusNullPointer);
    EXPECT_EQ(zebiDCTQuantInv8x8_JPEG_16s_C1(blk, nullptr, kOnes.t), zebStatusNullPointer);
    EXPECT_EQ(zebiDCTQuantInv8x8_JPEG_16s_C1(blk, s16, nullptr), zebStatusNullPointer);
    EXPECT_EQ(zebiDCTQuantInv8x8_JPEG_16s_C1I(nullptr, kOnes.t), zebStatusNullPointer);
    EXPECT_EQ(zebiDCTQuantInv8x8_JPEG_16s_C1I(s16, nullptr), zebStatusNullPointer);
    EXPECT_TRUE(dst.untouched());
}

TEST(DctInvValues, DcOnlyBlocks) {
    alignas(16) int16_t b[64] = {};
    auto full = [&](int dc) { b[0] = static_cast<int16_t>(dc); return run8u(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R, b); };
    auto one = [&](int dc) { b[0] = static_cast<int16_t>(dc); return run8u(zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, b); };
    EXPECT_EQ(full(8), std::vector<uint8_t>(64, 129));
    EXPECT_EQ(one(8), std::vector<uint8_t>(64, 129));
    EXPECT_EQ(full(1024), std::vector<uint8_t>(64, 255));
    EXPECT_EQ(one(1024), std::vector<uint8_t>(64, 255));
    EXPECT_EQ(full(-1024), std::vector<uint8_t>(64, 0));
    EXPECT_EQ(one(-1024), std::vector<uint8_t>(64, 0));
    EXPECT_EQ(full(5), std::vector<uint8_t>(64, 129));
    EXPECT_EQ(one(5), std::vector<uint8_t>(64, 128));
    EXPECT_EQ(full(-1), std::vector<uint8_t>(64, 128));
    EXPECT_EQ(one(-1), std::vector<uint8_t>(64, 127));
    // DC 4: the rounders of rows 1 and 2 reach some samples.
    auto f4 = full(4);
    int n128 = 0, n129 = 0;
    for (uint8_t v : f4) { n128 += v == 128; n129 += v == 129; }
    EXPECT_GT(n128, 0);
    EXPECT_GT(n129, 0);
    EXPECT_EQ(n128 + n129, 64);
    EXPECT_EQ(one(4), std::vector<uint8_t>(64, 128));
    // The 1x1 member uses the exact product: 300 * 255 >> 3 = 9562 -> 255;
    // -300 * 255 -> 0; 7 * 9 >> 3 = 7 -> 135.
    alignas(16) uint16_t t[64];
    for (auto& v : t) v = 255;
    b[0] = 300;
    EXPECT_EQ(run8u(zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, b, t)[17], 255);
    b[0] = -300;
    EXPECT_EQ(run8u(zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, b, t)[17], 0);
    t[0] = 9;
    b[0] = 7;
    EXPECT_EQ(run8u(zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, b, t)[63], 135);
    // The 1x1 member's sum with 128 is read as a 16-bit value: 32704 * 8 >> 3 = 32704,
    // + 128 = 32832 wraps negative -> 0.
    t[0] = 8;
    b[0] = 32704;
    EXPECT_EQ(run8u(zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, b, t)[0], 0);
}

TEST(DctInvValues, ZeroBlocks) {
    alignas(16) int16_t z[64] = {};
    for (const Member& m : kLs8u) {
        auto out = run8u(m.fn, z);
        for (int r = 0; r < m.rows; ++r)
            for (int c = 0; c < m.cols; ++c) EXPECT_EQ(out[8 * r + c], 128) << m.name;
    }
    alignas(16) int16_t o[64];
    std::memset(o, 0x55, sizeof o);
    ASSERT_EQ(zebiDCTQuantInv8x8_JPEG_16s_C1(z, o, kOnes.t), zebStatusOk);
    for (int16_t v : o) EXPECT_EQ(v, 0);
}

TEST(DctInvValues, TwelveBitTruncatesAndClamps) {
    int16_t b[64] = {};
    float t[64];
    for (auto& v : t) v = 1.0f;
    uint16_t out[64];
    // A DC-only block gives DC * step / 8 everywhere before the 2048 is added.
    b[0] = 1;
    t[0] = 9831.8f;  // 1228.975 + 2048 = 3276.975
    ASSERT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(b, out, 16, t), zebStatusOk);
    for (uint16_t v : out) EXPECT_EQ(v, 3276);
    t[0] = -9831.8f;  // 819.025 truncates to 819
    ASSERT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(b, out, 16, t), zebStatusOk);
    for (uint16_t v : out) EXPECT_EQ(v, 819);
    t[0] = 1e9f;
    ASSERT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(b, out, 16, t), zebStatusOk);
    for (uint16_t v : out) EXPECT_EQ(v, 4095);
    t[0] = -1e9f;
    ASSERT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(b, out, 16, t), zebStatusOk);
    for (uint16_t v : out) EXPECT_EQ(v, 0);
    t[0] = -17000.0f;  // -2125 + 2048 = -77 -> 0
    ASSERT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(b, out, 16, t), zebStatusOk);
    for (uint16_t v : out) EXPECT_EQ(v, 0);
}

// Fills the given corner of a block with random values (everything else 0).
void cornerBlock(int16_t* b, int n, int lo, int hi) {
    std::memset(b, 0, 128);
    for (int r = 0; r < n; ++r) zebtest::fillRandom(b + 8 * r, n, lo, hi);
}

TEST(DctInvMembers, CornersEqualFullMember) {
    alignas(16) uint16_t tab[64];
    for (int trial = 0; trial < 2000; ++trial) {
        zebtest::fillRandom(tab, 64, 1, trial % 2 ? 255 : 16);
        const int lo = trial % 5 == 0 ? -32768 : -64, hi = trial % 5 == 0 ? 32767 : 64;
        alignas(16) int16_t b[64];
        cornerBlock(b, 2, lo, hi);
        ASSERT_EQ(run8u(zebiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, b, tab),
                  run8u(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R, b, tab)) << trial;
        cornerBlock(b, 4, lo, hi);
        ASSERT_EQ(run8u(zebiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, b, tab),
                  run8u(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R, b, tab)) << trial;
    }
    // The corner members read only their corner.
    alignas(16) int16_t b[64];
    cornerBlock(b, 4, -50, 50);
    alignas(16) int16_t noisy[64];
    zebtest::fillRandom(noisy, 64, -500, 500);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) noisy[8 * r + c] = b[8 * r + c];
    EXPECT_EQ(run8u(zebiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, noisy), run8u(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R, b));
    b[2] = b[3] = b[10] = b[11] = 0;
    for (int r = 2; r < 4; ++r) std::memset(b + 8 * r, 0, 8);
    noisy[2] = noisy[3] = noisy[10] = noisy[11] = 77;
    EXPECT_EQ(run8u(zebiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, noisy), run8u(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R, b));
}

// Reduced outputs follow the image: a DC-only block gives the full member's
// flat value, and a smooth block about the means of the 4x4 / 2x2 groups.
TEST(DctInvMembers, ReducedOutputsFollowTheFullMember) {
    for (int dc = -1000; dc <= 1000; dc += 37) {
        alignas(16) int16_t b[64] = {};
        b[0] = static_cast<int16_t>(dc);
        const uint8_t flat = run8u(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R, b)[0];
        auto t2 = run8u(zebiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, b);
        auto t4 = run8u(zebiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, b);
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 2; ++c) EXPECT_NEAR(t2[8 * r + c], flat, 1) << dc;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c) EXPECT_NEAR(t4[8 * r + c], flat, 1) << dc;
    }
    for (int trial = 0; trial < 200; ++trial) {
        alignas(16) int16_t b[64];
        cornerBlock(b, 3, -40, 40);
        b[0] = static_cast<int16_t>(zebtest::rng()() % 400) - 200;
        auto full = run8u(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R, b);
        auto t4 = run8u(zebiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, b);
        auto t2 = run8u(zebiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, b);
        for (int n : {2, 4}) {
            const int g = 8 / n;
            for (int r = 0; r < n; ++r)
                for (int c = 0; c < n; ++c) {
                    double s = 0;
                    for (int y = 0; y < g; ++y)
                        for (int x = 0; x < g; ++x) s += full[8 * (r * g + y) + c * g + x];
                    const int got = n == 2 ? t2[8 * r + c] : t4[8 * r + c];
                    EXPECT_NEAR(got, s / (g * g), 3) << trial;
                }
        }
    }
}

// Every vector kernel against its scalar twin on random and extreme blocks,
// with random tables, outputs guarded and rows apart by odd steps.
TEST(DctInvKernels, VectorMatchesScalar) {
    using K8 = void (*)(const int16_t*, const uint16_t*, uint8_t*, int);
    struct Pair { const char* name; K8 scalar, vec; };
    const Pair pairs[] = {
        {"full", zj::idctLSScalar, zj::idctLSAvx2},
        {"full aligned", zj::idctLSScalar, zj::idctLSAvx2Aligned},
        {"2x2", zj::idct2x2LSScalar, zj::idct2x2LSAvx2},
        {"4x4", zj::idct4x4LSScalar, zj::idct4x4LSAvx2},
        {"To2x2", zj::idctTo2x2LSScalar, zj::idctTo2x2LSAvx2},
        {"To4x4", zj::idctTo4x4LSScalar, zj::idctTo4x4LSAvx2},
    };
    for (int trial = 0; trial < 1500; ++trial) {
        const int kind = trial % 4;
        alignas(16) int16_t src[64];
        alignas(16) uint16_t tab[64];
        if (kind == 0) { zebtest::fillRandom(src, 64, -64, 64); zebtest::fillRandom(tab, 64, 1, 64); }
        else if (kind == 1) { zebtest::fillRandom(src, 64, -32768, 32767); zebtest::fillRandom(tab, 64, 0, 65535); }
        else if (kind == 2) { for (auto& v : src) v = (zebtest::rng()() & 1) ? 32767 : -32768; for (auto& v : tab) v = 1; }
        else { zebtest::fillRandom(src, 64, -1024, 1023); zebtest::fillRandom(tab, 64, 1, 255); }
        const int step = 8 + trial % 11;
        for (const Pair& p : pairs) {
            GuardedBuffer a(7 * step + 8, trial % 32), b(7 * step + 8, trial % 32);
            std::memset(a.data(), 0x5A, a.size());
            std::memset(b.data(), 0x5A, b.size());
            p.scalar(src, tab, a.data(), step);
            p.vec(src, tab, b.data(), step);
            ASSERT_EQ(0, std::memcmp(a.data(), b.data(), a.size())) << p.name << " " << trial;
            ASSERT_TRUE(b.guardsIntact()) << p.name;
        }
        alignas(16) int16_t s16[64], v16[64];
        zj::idctScalar(src, tab, s16);
        zj::idctAvx2(src, tab, v16);
        ASSERT_EQ(0, std::memcmp(s16, v16, 128)) << trial;

        float ft[64];
        for (auto& f : ft) f = kind == 1 ? 1e4f * static_cast<float>(zebtest::rng()() % 100) : static_cast<float>(1 + zebtest::rng()() % 255);
        if (kind == 2) ft[9] = std::nanf("");
        const int step16 = 16 + 2 * (trial % 4);
        GuardedBuffer fa(7 * step16 + 16, 2 * (trial % 16)), fb(7 * step16 + 16, 2 * (trial % 16));
        std::memset(fa.data(), 0, fa.size());
        std::memset(fb.data(), 0, fb.size());
        zj::idctFloatScalar(src, ft, fa.as<uint16_t>(), step16);
        zj::idctFloatAvx2(src, ft, fb.as<uint16_t>(), step16);
        ASSERT_EQ(0, std::memcmp(fa.data(), fb.data(), fa.size())) << trial;
        ASSERT_TRUE(fb.guardsIntact());
    }
}

// The full member's aligned and unaligned paths through the export, and the
// 16-bit members (out of place, in place) against the level-shifted one.
TEST(DctInvMembers, AlignmentPathsAndSixteenBitMembers) {
    for (int trial = 0; trial < 300; ++trial) {
        std::vector<int16_t> coef(64);
        std::vector<uint16_t> tab(64);
        zebtest::fillRandom(coef.data(), 64, -300, 300);
        zebtest::fillRandom(tab.data(), 64, 1, 40);
        std::vector<uint8_t> ref;
        for (int so = 0; so < 32; so += 2) {
            const int to = (so * 7) % 32 & ~1;
            GuardedBuffer s(128, so), t(128, to), d(64, (so * 3) % 32);
            std::memcpy(s.data(), coef.data(), 128);
            std::memcpy(t.data(), tab.data(), 128);
            ASSERT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R(s.as<int16_t>(), d.data(), 8, t.as<uint16_t>()), zebStatusOk);
            std::vector<uint8_t> got(d.data(), d.data() + 64);
            if (ref.empty()) ref = got;
            ASSERT_EQ(got, ref) << so << " " << to;
            ASSERT_TRUE(d.guardsIntact());
        }
        alignas(16) int16_t o[64], io[64];
        std::memcpy(io, coef.data(), 128);
        ASSERT_EQ(zebiDCTQuantInv8x8_JPEG_16s_C1(coef.data(), o, tab.data()), zebStatusOk);
        ASSERT_EQ(zebiDCTQuantInv8x8_JPEG_16s_C1I(io, tab.data()), zebStatusOk);
        ASSERT_EQ(0, std::memcmp(o, io, 128));
        for (int i = 0; i < 64; ++i) {
            int v = o[i] + 128;
            ASSERT_EQ(ref[i], v < 0 ? 0 : v > 255 ? 255 : v);
        }
    }
}

// The reduced members write their 2x2 / 4x4 bytes and nothing else of dst.
TEST(DctInvMembers, ReducedOutputsWriteOnlyTheirBytes) {
    alignas(16) int16_t b[64];
    zebtest::fillRandom(b, 64, -200, 200);
    for (const Member& m : kLs8u) {
        for (int step : {8, 13, 32}) {
            std::vector<uint8_t> d(8 * step + 16, 0xA5);
            ASSERT_EQ(m.fn(b, d.data() + 8, step, kOnes.t), zebStatusOk);
            for (size_t i = 0; i < d.size(); ++i) {
                const long off = static_cast<long>(i) - 8;
                const bool inside = off >= 0 && off / step < m.rows && off % step < m.cols;
                if (!inside) ASSERT_EQ(d[i], 0xA5) << m.name << " step " << step << " byte " << off;
            }
        }
    }
}

// Forward then inverse reconstructs the samples closely, 8-bit and 12-bit.
TEST(DctInvRoundTrip, ForwardThenInverse) {
    alignas(16) uint16_t fwd[64], inv[64];
    uint8_t raw[64];
    std::memset(raw, 1, 64);
    ASSERT_EQ(zebiQuantFwdTableInit_JPEG_8u16u(raw, fwd), zebStatusOk);
    ASSERT_EQ(zebiQuantInvTableInit_JPEG_8u16u(raw, inv), zebStatusOk);
    float ff[64], fi[64];
    for (int i = 0; i < 64; ++i) { ff[i] = 1.0f; fi[i] = 1.0f; }
    int worst8 = 0, worst12 = 0;
    for (int trial = 0; trial < 500; ++trial) {
        uint8_t px[64], back[64];
        zebtest::fillRandom(px, 64, 0, 255);
        alignas(16) int16_t c[64];
        ASSERT_EQ(zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 8, c, fwd), zebStatusOk);
        ASSERT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R(c, back, 8, inv), zebStatusOk);
        for (int i = 0; i < 64; ++i) worst8 = std::max(worst8, std::abs(px[i] - back[i]));
        uint16_t s12[64], b12[64];
        zebtest::fillRandom(s12, 64, 0, 4095);
        ASSERT_EQ(zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(s12, 16, c, ff), zebStatusOk);
        ASSERT_EQ(zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(c, b12, 16, fi), zebStatusOk);
        for (int i = 0; i < 64; ++i) worst12 = std::max(worst12, std::abs(s12[i] - b12[i]));
    }
    EXPECT_LE(worst8, 2);
    EXPECT_LE(worst12, 2);
}

}  // namespace
