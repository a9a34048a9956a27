// Level shift pair: checks, clamping, every row phase, steps and threading.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "frame/level_shift.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using zebtest::GuardedBuffer;

uint8_t refAdd(int16_t v) { int s = v + 128; return static_cast<uint8_t>(s < 0 ? 0 : s > 255 ? 255 : s); }

TEST(LevelShiftChecks, OrderIsPerOperand) {
    int16_t s16[4] = {};
    uint8_t s8[4] = {};
    ZebSize ok{1, 1}, bad{0, 1};
    // Each call breaks one or more arguments; the first check in order decides.
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(nullptr, 0, nullptr, 0, bad), zebStatusNullPointer);
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16, 0, nullptr, 0, bad), zebStatusBadStep);
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16, 8, nullptr, 0, bad), zebStatusNullPointer);
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16, 8, s8, 0, bad), zebStatusBadStep);
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16, 8, s8, -4, ok), zebStatusBadStep);
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16, 8, s8, 4, bad), zebStatusBadSize);
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16, 8, s8, 4, ZebSize{1, 0}), zebStatusBadSize);
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16, 8, s8, 4, ok), zebStatusOk);

    EXPECT_EQ(zebiSub128_JPEG_8u16s_C1R(nullptr, 0, nullptr, 0, bad), zebStatusNullPointer);
    EXPECT_EQ(zebiSub128_JPEG_8u16s_C1R(s8, 0, nullptr, 0, bad), zebStatusBadStep);
    EXPECT_EQ(zebiSub128_JPEG_8u16s_C1R(s8, 4, nullptr, 0, bad), zebStatusNullPointer);
    EXPECT_EQ(zebiSub128_JPEG_8u16s_C1R(s8, 4, s16, 0, bad), zebStatusBadStep);
    EXPECT_EQ(zebiSub128_JPEG_8u16s_C1R(s8, 4, s16, 8, bad), zebStatusBadSize);
    EXPECT_EQ(zebiSub128_JPEG_8u16s_C1R(s8, 4, s16, 8, ZebSize{-3, 5}), zebStatusBadSize);
    EXPECT_EQ(zebiSub128_JPEG_8u16s_C1R(s8, 4, s16, 8, ok), zebStatusOk);
}

TEST(LevelShiftChecks, FailedCheckLeavesDestinationUntouched) {
    GuardedBuffer src(64), dst(64);
    std::memset(src.data(), 0, 64);
    EXPECT_EQ(zebiAdd128_JPEG_16s8u_C1R(src.as<int16_t>(), 64, dst.data(), 0, ZebSize{8, 1}), zebStatusBadStep);
    EXPECT_EQ(zebiSub128_JPEG_8u16s_C1R(src.data(), 64, dst.as<int16_t>(), 64, ZebSize{8, 0}), zebStatusBadSize);
    EXPECT_TRUE(dst.untouched());
}

TEST(LevelShiftValues, ClampsAndOffsets) {
    const int16_t in[] = {-32768, -129, -128, -127, -1, 0, 1, 126, 127, 128, 32767};
    const uint8_t want[] = {0, 0, 0, 1, 127, 128, 129, 254, 255, 255, 255};
    // Repeat so that every value passes through the vector blocks as well as the tail.
    const int n = 11 * 9;
    alignas(32) int16_t src[n];
    alignas(32) uint8_t dst[n];
    for (int i = 0; i < n; ++i) src[i] = in[i % 11];
    ASSERT_EQ(zebiAdd128_JPEG_16s8u_C1R(src, n * 2, dst, n, ZebSize{n, 1}), zebStatusOk);
    for (int i = 0; i < n; ++i) EXPECT_EQ(dst[i], want[i % 11]) << "value " << src[i];

    alignas(32) uint8_t s8[256];
    alignas(32) int16_t d16[256];
    for (int i = 0; i < 256; ++i) s8[i] = static_cast<uint8_t>(i);
    ASSERT_EQ(zebiSub128_JPEG_8u16s_C1R(s8, 256, d16, 512, ZebSize{256, 1}), zebStatusOk);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(d16[i], i - 128);
}

// Widths 1 to 40 (and a few long ones) at every 16-byte alignment of both
// pointers, including odd 16-bit pointers: every phase of the row kernel.
TEST(LevelShiftRows, EveryWidthAndAlignment) {
    std::vector<int> widths;
    for (int w = 1; w <= 40; ++w) widths.push_back(w);
    for (int w : {63, 64, 65, 95, 127, 200, 1001}) widths.push_back(w);
    for (int w : widths) {
        for (int so = 0; so < 16; ++so) {
            for (int d = 0; d < 16; ++d) {
                GuardedBuffer s16(w * 2, so), d8(w, d), s8(w, so), d16(w * 2, d);
                std::vector<int16_t> in16(w);
                std::vector<uint8_t> in8(w);
                zebtest::fillRandom(in16.data(), w, -400, 400);
                zebtest::fillRandom(in8.data(), w, 0, 255);
                std::memcpy(s16.data(), in16.data(), w * 2);
                std::memcpy(s8.data(), in8.data(), w);
                ASSERT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16.as<int16_t>(), 2 * w, d8.data(), w, ZebSize{w, 1}), 0);
                ASSERT_EQ(zebiSub128_JPEG_8u16s_C1R(s8.data(), w, d16.as<int16_t>(), 2 * w, ZebSize{w, 1}), 0);
                for (int x = 0; x < w; ++x) {
                    ASSERT_EQ(d8.data()[x], refAdd(in16[x])) << "w=" << w << " so=" << so << " d=" << d << " x=" << x;
                    int16_t got;
                    std::memcpy(&got, d16.data() + 2 * x, 2);
                    ASSERT_EQ(got, in8[x] - 128) << "w=" << w << " so=" << so << " d=" << d << " x=" << x;
                }
                ASSERT_TRUE(d8.guardsIntact() && d16.guardsIntact()) << "w=" << w << " so=" << so << " d=" << d;
            }
        }
    }
}

TEST(LevelShiftRows, StepLargerThanRowLeavesGapUntouched) {
    const int w = 37, h = 5, dstStep = 53, srcStep = 2 * w + 6;
    std::vector<uint8_t> srcBytes(srcStep * h);
    zebtest::fillRandom(srcBytes.data(), srcBytes.size(), 0, 255);
    GuardedBuffer d8(dstStep * h), d16(2 * dstStep * h);
    ASSERT_EQ(zebiAdd128_JPEG_16s8u_C1R(reinterpret_cast<const int16_t*>(srcBytes.data()), srcStep, d8.data(),
                                        dstStep, ZebSize{w, h}), 0);
    ASSERT_EQ(zebiSub128_JPEG_8u16s_C1R(srcBytes.data(), srcStep, d16.as<int16_t>(), 2 * dstStep, ZebSize{w, h}), 0);
    for (int y = 0; y < h; ++y) {
        for (int x = w; x < dstStep; ++x) EXPECT_EQ(d8.data()[y * dstStep + x], zebtest::kSentinel);
        for (int x = 2 * w; x < 2 * dstStep; ++x) EXPECT_EQ(d16.data()[y * 2 * dstStep + x], zebtest::kSentinel);
    }
    EXPECT_TRUE(d8.guardsIntact());
}

// Rows packed without a gap may run as one long row; odd widths and odd
// 16-bit pointers must give the same elements as row by row.
TEST(LevelShiftRows, GaplessRowsAtOddWidthsAndPointers) {
    for (int w = 1; w <= 21; w += 2) {
        for (int h = 2; h <= 5; ++h) {
            for (int off = 0; off < 4; ++off) {
                const int n = w * h;
                GuardedBuffer s16(2 * n, off), d8(n, off), d16(2 * n, off);
                std::vector<int16_t> in(n);
                zebtest::fillRandom(in.data(), n, -300, 300);
                std::memcpy(s16.data(), in.data(), 2 * n);
                ASSERT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16.as<int16_t>(), 2 * w, d8.data(), w, ZebSize{w, h}), 0);
                ASSERT_EQ(zebiSub128_JPEG_8u16s_C1R(d8.data(), w, d16.as<int16_t>(), 2 * w, ZebSize{w, h}), 0);
                for (int i = 0; i < n; ++i) {
                    ASSERT_EQ(d8.data()[i], refAdd(in[i])) << w << "x" << h << " off " << off;
                    int16_t back;
                    std::memcpy(&back, d16.data() + 2 * i, 2);
                    ASSERT_EQ(back, refAdd(in[i]) - 128);
                }
                ASSERT_TRUE(d8.guardsIntact() && d16.guardsIntact());
            }
        }
    }
}

// The serial path (8192 pixels) and the parallel one (8193) give the same
// rows, with the core set to one and to several threads, and with more
// threads than rows.
TEST(LevelShiftThreads, ThresholdAndThreadCounts) {
    struct Case { int w, h; };
    for (Case c : {Case{8192, 1}, Case{8193, 1}, Case{64, 128}, Case{8193, 1}, Case{1, 8193}, Case{100000, 1},
                   Case{301, 77}}) {
        const int n = c.w * c.h;
        std::vector<int16_t> s16(n);
        std::vector<uint8_t> s8(n);
        zebtest::fillRandom(s16.data(), n, -300, 300);
        zebtest::fillRandom(s8.data(), n, 0, 255);
        std::vector<uint8_t> ref8(n);
        for (int i = 0; i < n; ++i) ref8[i] = refAdd(s16[i]);
        for (int threads : {1, 2, 4, 7, 0, -1}) {
            zebtest::ThreadCount tc(threads);
            std::vector<uint8_t> d8(n, 1);
            std::vector<int16_t> d16(n, 1);
            ASSERT_EQ(zebiAdd128_JPEG_16s8u_C1R(s16.data(), 2 * c.w, d8.data(), c.w, ZebSize{c.w, c.h}), 0);
            ASSERT_EQ(zebiSub128_JPEG_8u16s_C1R(s8.data(), c.w, d16.data(), 2 * c.w, ZebSize{c.w, c.h}), 0);
            ASSERT_EQ(d8, ref8) << c.w << "x" << c.h << " threads " << threads;
            for (int i = 0; i < n; ++i) ASSERT_EQ(d16[i], s8[i] - 128);
        }
    }
}

// The row kernels on their own, with an odd 16-bit pointer.
TEST(LevelShiftRows, OddSixteenBitPointerRunsElementwise) {
    alignas(32) uint8_t raw16[2 * 50 + 2];
    alignas(32) uint8_t raw8[64];
    int16_t* odd = reinterpret_cast<int16_t*>(raw16 + 1);
    std::vector<int16_t> vals(50);
    zebtest::fillRandom(vals.data(), 50, -200, 200);
    std::memcpy(raw16 + 1, vals.data(), 100);
    zeb::add128Row(odd, raw8, 50);
    for (int x = 0; x < 50; ++x) EXPECT_EQ(raw8[x], refAdd(vals[x]));
    zeb::sub128Row(raw8, odd, 50);
    for (int x = 0; x < 50; ++x) {
        int16_t v;
        std::memcpy(&v, raw16 + 1 + 2 * x, 2);
        EXPECT_EQ(v, raw8[x] - 128);
    }
}

}  // namespace
