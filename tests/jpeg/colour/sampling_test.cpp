// Up- and down-sampling: argument checks, the worked numbers, the region
// forms reading the border around the region, the row forms with their end
// rules and alternating biases, vector kernels against scalar twins, threads.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "colour_testing.h"
#include "jpeg/colour/colour.h"
#include "zebjp.h"

namespace {

using namespace zeb::colour;
using colourtest::Plane;

using RegionFn = ZebStatus (*)(const Zeb8u*, int, ZebSize, Zeb8u*, int, ZebSize);
struct RegionOp {
    const char* name;
    RegionFn fn;
};
const RegionOp kRegionOps[] = {
    {"DownH2V1", zebiSampleDownH2V1_JPEG_8u_C1R},
    {"DownH2V2", zebiSampleDownH2V2_JPEG_8u_C1R},
    {"UpH2V1", zebiSampleUpH2V1_JPEG_8u_C1R},
    {"UpH2V2", zebiSampleUpH2V2_JPEG_8u_C1R},
};

// ---------------------------------------------------------------- argument checks

TEST(SamplingChecks, RegionOrderIsPerOperand) {
    alignas(16) static uint8_t s[256], d[256];
    const ZebSize ok{2, 2}, bad{0, 2}, badH{2, 0};
    for (const RegionOp& op : kRegionOps) {
        SCOPED_TRACE(op.name);
        std::memset(d, 0x5A, sizeof d);
        EXPECT_EQ(op.fn(nullptr, 0, bad, nullptr, 0, bad), zebStatusNullPointer);
        EXPECT_EQ(op.fn(s + 16, 0, bad, nullptr, 0, bad), zebStatusBadStep);
        EXPECT_EQ(op.fn(s + 32, 16, bad, nullptr, 0, bad), zebStatusBadSize);
        EXPECT_EQ(op.fn(s + 32, 16, badH, nullptr, 0, bad), zebStatusBadSize);
        EXPECT_EQ(op.fn(s + 32, 16, ok, nullptr, 0, bad), zebStatusNullPointer);
        EXPECT_EQ(op.fn(s + 32, 16, ok, d, -16, bad), zebStatusBadStep);
        EXPECT_EQ(op.fn(s + 32, 16, ok, d, 16, bad), zebStatusBadSize);
        EXPECT_EQ(op.fn(s + 32, 16, ok, d, 16, badH), zebStatusBadSize);
        for (uint8_t b : d) ASSERT_EQ(b, 0x5A);
        // The sizes are not compared with each other.
        EXPECT_EQ(op.fn(s + 32, 16, ZebSize{1, 1}, d, 16, ZebSize{3, 2}), zebStatusOk);
    }
}

TEST(SamplingChecks, RowOperations) {
    uint8_t a[8] = {}, b[8] = {}, d[16];
    std::memset(d, 0x5A, sizeof d);
    EXPECT_EQ(zebiSampleDownRowH2V1_Box_JPEG_8u_C1(nullptr, 0, d), zebStatusNullPointer);
    EXPECT_EQ(zebiSampleDownRowH2V1_Box_JPEG_8u_C1(a, 4, nullptr), zebStatusNullPointer);
    EXPECT_EQ(zebiSampleDownRowH2V1_Box_JPEG_8u_C1(a, 0, d), zebStatusBadSize);
    EXPECT_EQ(zebiSampleDownRowH2V2_Box_JPEG_8u_C1(a, nullptr, 0, d), zebStatusNullPointer);
    EXPECT_EQ(zebiSampleDownRowH2V2_Box_JPEG_8u_C1(nullptr, b, 4, d), zebStatusNullPointer);
    EXPECT_EQ(zebiSampleDownRowH2V2_Box_JPEG_8u_C1(a, b, -1, d), zebStatusBadSize);
    EXPECT_EQ(zebiSampleUpRowH2V1_Triangle_JPEG_8u_C1(a, 0, nullptr), zebStatusNullPointer);
    EXPECT_EQ(zebiSampleUpRowH2V1_Triangle_JPEG_8u_C1(a, 0, d), zebStatusBadSize);
    EXPECT_EQ(zebiSampleUpRowH2V2_Triangle_JPEG_8u_C1(a, b, 2, nullptr), zebStatusNullPointer);
    EXPECT_EQ(zebiSampleUpRowH2V2_Triangle_JPEG_8u_C1(a, b, 0, d), zebStatusBadSize);
    for (uint8_t v : d) EXPECT_EQ(v, 0x5A);
}

// ---------------------------------------------------------------- worked numbers

TEST(SamplingValues, WorkedNumbers) {
    uint8_t d[8];
    {
        const uint8_t s[4] = {1, 2, 255, 255};
        ASSERT_EQ(zebiSampleDownH2V1_JPEG_8u_C1R(s, 4, ZebSize{4, 1}, d, 2, ZebSize{2, 1}), 0);
        EXPECT_EQ(d[0], 2);
        EXPECT_EQ(d[1], 255);
    }
    {
        const uint8_t s[8] = {1, 1, 1, 1, 1, 1, 1, 2};  // rows of 4: (1,1 / 1,1) and (1,1 / 1,2)
        ASSERT_EQ(zebiSampleDownH2V2_JPEG_8u_C1R(s, 4, ZebSize{4, 2}, d, 2, ZebSize{2, 1}), 0);
        EXPECT_EQ(d[0], 1);
        EXPECT_EQ(d[1], 2);
    }
    {
        const uint8_t s[6] = {1, 2, 1, 2, 1, 2};
        ASSERT_EQ(zebiSampleDownRowH2V1_Box_JPEG_8u_C1(s, 6, d), 0);
        EXPECT_EQ(d[0], 1); EXPECT_EQ(d[1], 2); EXPECT_EQ(d[2], 1);
        ASSERT_EQ(zebiSampleDownRowH2V1_Box_JPEG_8u_C1(s, 4, d), 0);
        EXPECT_EQ(d[0], 2); EXPECT_EQ(d[1], 1);
        ASSERT_EQ(zebiSampleDownRowH2V2_Box_JPEG_8u_C1(s, s, 4, d), 0);
        EXPECT_EQ(d[0], 1); EXPECT_EQ(d[1], 2);
    }
    {
        const uint8_t s[2] = {10, 20};
        ASSERT_EQ(zebiSampleUpRowH2V1_Triangle_JPEG_8u_C1(s, 2, d), 0);
        EXPECT_EQ(d[0], 10); EXPECT_EQ(d[1], 13); EXPECT_EQ(d[2], 17); EXPECT_EQ(d[3], 20);
        ASSERT_EQ(zebiSampleUpRowH2V2_Triangle_JPEG_8u_C1(s, s, 2, d), 0);
        EXPECT_EQ(d[0], 10); EXPECT_EQ(d[1], 12); EXPECT_EQ(d[2], 18); EXPECT_EQ(d[3], 20);
    }
}

TEST(SamplingValues, BoxBiasPhaseByWidth) {
    // Pairs summing to an odd number expose the bias: (1 + 2 + b) >> 1 is 1 + b.
    uint8_t s[64], d[40];
    for (int i = 0; i < 64; ++i) s[i] = static_cast<uint8_t>(1 + (i & 1));
    for (int w = 1; w <= 64; ++w) {
        std::memset(d, 0xEE, sizeof d);
        ASSERT_EQ(zebiSampleDownRowH2V1_Box_JPEG_8u_C1(s, w, d), 0);
        const int first = (w == 4 || w == 8 || w == 12) ? 1 : 0;
        for (int i = 0; i < w / 2; ++i) ASSERT_EQ(d[i], 1 + ((i + first) & 1)) << "width " << w << " i " << i;
        ASSERT_EQ(d[w / 2], 0xEE) << "width " << w;  // the odd last sample gives nothing
        if (w % 2 == 0 && w <= 14) ASSERT_EQ(d[w / 2 - 1], 1) << "last output has bias 0 at width " << w;
    }
}

TEST(SamplingValues, BoxTwoRowsOddWidths) {
    uint8_t a[40], b[40], d[24];
    zebtest::fillRandom(a, 40, 0, 255);
    zebtest::fillRandom(b, 40, 0, 255);
    for (int w = 1; w <= 40; ++w) {
        std::memset(d, 0xEE, sizeof d);
        ASSERT_EQ(zebiSampleDownRowH2V2_Box_JPEG_8u_C1(a, b, w, d), 0);
        for (int i = 0; i < w / 2; ++i)
            ASSERT_EQ(d[i], (a[2 * i] + a[2 * i + 1] + b[2 * i] + b[2 * i + 1] + 1 + (i & 1)) >> 2) << w << " " << i;
        if ((w & 1) && w < 32)  // one output more, from the last sample of each row taken twice
            EXPECT_EQ(d[w / 2], (2 * a[w - 1] + 2 * b[w - 1] + 1 + ((w / 2) & 1)) >> 2) << w;
        else
            EXPECT_EQ(d[w / 2], 0xEE) << w;
        EXPECT_EQ(d[w / 2 + 1], 0xEE) << w;
    }
}

// ---------------------------------------------------------------- scalar models of the region forms

// A region with a one-sample border all round, taken from a larger random plane.
struct Bordered {
    Plane plane;
    int x0 = 1, y0 = 1;
    Bordered(int w, int h, int off) : plane(w + 2, h + 2, off, 3) { plane.randomise(); }
    const uint8_t* at(int x, int y) { return plane.row(y0 + y) + x0 + x; }
};

TEST(SamplingRegions, EveryWidthAgainstTheFormulas) {
    for (int dw = 1; dw <= 80; ++dw) {
        for (int off : {0, 1, 7}) {
            const int dh = 3;
            // Down-sampling sources: 2 dw by 2 dh.
            Bordered sd(2 * dw, 2 * dh, off);
            Plane d1(dw, dh, (off * 3) % 16), d2(dw, dh, (off * 5) % 16);
            ASSERT_EQ(zebiSampleDownH2V1_JPEG_8u_C1R(sd.at(0, 0), sd.plane.step, ZebSize{2 * dw, dh}, d1.data(), d1.step, ZebSize{dw, dh}), 0);
            ASSERT_EQ(zebiSampleDownH2V2_JPEG_8u_C1R(sd.at(0, 0), sd.plane.step, ZebSize{2 * dw, 2 * dh}, d2.data(), d2.step, ZebSize{dw, dh}), 0);
            for (int y = 0; y < dh; ++y)
                for (int i = 0; i < dw; ++i) {
                    ASSERT_EQ(d1.row(y)[i], (sd.at(2 * i, y)[0] + sd.at(2 * i + 1, y)[0] + 1) >> 1) << dw;
                    ASSERT_EQ(d2.row(y)[i], (sd.at(2 * i, 2 * y)[0] + sd.at(2 * i + 1, 2 * y)[0] + sd.at(2 * i, 2 * y + 1)[0] +
                                             sd.at(2 * i + 1, 2 * y + 1)[0] + 3) >> 2) << dw;
                }
            ASSERT_TRUE(d1.onlyRowsWritten() && d2.onlyRowsWritten()) << dw;
            // Up-sampling sources: (dw + 1) / 2 by (dh + 1) / 2, with the border read.
            const int sw = (dw + 1) / 2, sh = (dh + 1) / 2 + 1;
            Bordered su(sw, sh, off);
            Plane u1(dw, dh, (off * 7) % 16), u2(dw, dh, (off * 11) % 16);
            ASSERT_EQ(zebiSampleUpH2V1_JPEG_8u_C1R(su.at(0, 0), su.plane.step, ZebSize{sw, sh}, u1.data(), u1.step, ZebSize{dw, dh}), 0);
            ASSERT_EQ(zebiSampleUpH2V2_JPEG_8u_C1R(su.at(0, 0), su.plane.step, ZebSize{sw, sh}, u2.data(), u2.step, ZebSize{dw, dh}), 0);
            for (int y = 0; y < dh; ++y)
                for (int x = 0; x < dw; ++x) {
                    const int i = x / 2;
                    const uint8_t* r = su.at(0, y);
                    const int e1 = (x & 1) ? (3 * r[i] + r[i + 1] + 2) >> 2 : (3 * r[i] + r[i - 1] + 1) >> 2;
                    ASSERT_EQ(u1.row(y)[x], e1) << "up h2v1 dw " << dw << " x " << x;
                    const uint8_t* nr = su.at(0, y / 2);
                    const uint8_t* fr = su.at(0, (y & 1) ? y / 2 + 1 : y / 2 - 1);
                    auto v = [&](int k) { return 3 * nr[k] + fr[k]; };
                    const int e2 = (x & 1) ? (3 * v(i) + v(i + 1) + 7) >> 4 : (3 * v(i) + v(i - 1) + 8) >> 4;
                    ASSERT_EQ(u2.row(y)[x], e2) << "up h2v2 dw " << dw << " x " << x << " y " << y;
                }
            ASSERT_TRUE(u1.onlyRowsWritten() && u2.onlyRowsWritten()) << dw;
        }
    }
}

TEST(SamplingRows, TriangleEndsAndInnerPositions) {
    for (int n = 1; n <= 70; ++n) {
        for (int off : {0, 1, 5}) {
            // Exact-size source rows: reading past either end trips the guards under ASan.
            std::vector<uint8_t> a(n), b(n);
            zebtest::fillRandom(a.data(), n, 0, 255);
            zebtest::fillRandom(b.data(), n, 0, 255);
            Plane d1(2 * n, 1, off), d2(2 * n, 1, off + 3);
            ASSERT_EQ(zebiSampleUpRowH2V1_Triangle_JPEG_8u_C1(a.data(), n, d1.data()), 0);
            ASSERT_EQ(zebiSampleUpRowH2V2_Triangle_JPEG_8u_C1(a.data(), b.data(), n, d2.data()), 0);
            auto v = [&](int k) { return 3 * a[k] + b[k]; };
            for (int x = 0; x < 2 * n; ++x) {
                const int i = x / 2;
                int e1, e2;
                if (x == 0) { e1 = a[0]; e2 = (4 * v(0) + 8) >> 4; }
                else if (x == 2 * n - 1) { e1 = a[n - 1]; e2 = (4 * v(n - 1) + 7) >> 4; }
                else if (x & 1) { e1 = (3 * a[i] + a[i + 1] + 2) >> 2; e2 = (3 * v(i) + v(i + 1) + 7) >> 4; }
                else { e1 = (3 * a[i] + a[i - 1] + 1) >> 2; e2 = (3 * v(i) + v(i - 1) + 8) >> 4; }
                ASSERT_EQ(d1.row(0)[x], e1) << "n " << n << " x " << x;
                ASSERT_EQ(d2.row(0)[x], e2) << "n " << n << " x " << x;
            }
            ASSERT_TRUE(d1.onlyRowsWritten() && d2.onlyRowsWritten());
        }
    }
}

TEST(SamplingRows, BoxRowsMisalignedDestination) {
    alignas(64) uint8_t s1[200], s2[200];
    zebtest::fillRandom(s1, 200, 0, 255);
    zebtest::fillRandom(s2, 200, 0, 255);
    for (int w : {30, 31, 32, 33, 64, 65, 100, 130, 199}) {
        std::vector<uint8_t> ref1, ref2;
        for (int off = 0; off < 16; ++off) {
            Plane d1(w / 2, 1, off), d2(w / 2, 1, off);
            ASSERT_EQ(zebiSampleDownRowH2V1_Box_JPEG_8u_C1(s1 + (off & 1), w, d1.data()), 0);
            ASSERT_EQ(zebiSampleDownRowH2V2_Box_JPEG_8u_C1(s1, s2, w, d2.data()), 0);
            if (w >= 32) ASSERT_TRUE(d2.onlyRowsWritten());
            ASSERT_TRUE(d1.onlyRowsWritten());
            for (int i = 0; i < w / 2; ++i) {
                const int a = s1[(off & 1) + 2 * i] + s1[(off & 1) + 2 * i + 1];
                ASSERT_EQ(d1.row(0)[i], (a + (i & 1)) >> 1) << w << " " << off;
                ASSERT_EQ(d2.row(0)[i], (s1[2 * i] + s1[2 * i + 1] + s2[2 * i] + s2[2 * i + 1] + 1 + (i & 1)) >> 2);
            }
        }
    }
}

// ---------------------------------------------------------------- vector kernels against scalar twins

TEST(SamplingKernels, VectorMatchesScalarTwin) {
    alignas(64) uint8_t a[320], b[320], dv[320], ds[320];
    for (int n = 1; n <= 140; ++n)
        for (int off = 0; off < 4; ++off) {
            zebtest::fillRandom(a, sizeof a, 0, 255);
            zebtest::fillRandom(b, sizeof b, 0, 255);
            auto same = [&](const char* what, auto&& vec, auto&& sca) {
                std::memset(dv, 1, sizeof dv);
                std::memset(ds, 1, sizeof ds);
                vec();
                sca();
                ASSERT_EQ(0, std::memcmp(dv, ds, sizeof dv)) << what << " n " << n << " off " << off;
            };
            const uint8_t *s = a + 1 + off, *t = b + 1 + (off ^ 2);
            same("down h2v1", [&] { rowDownH2V1Vec(s, dv + off, n); }, [&] { rowDownH2V1Scalar(s, ds + off, n); });
            same("down h2v2", [&] { rowDownH2V2Vec(s, t, dv + off, n); }, [&] { rowDownH2V2Scalar(s, t, ds + off, n); });
            same("up h2v1", [&] { rowUpH2V1Vec(s, dv + off, n); }, [&] { rowUpH2V1Scalar(s, ds + off, n); });
            same("up h2v2", [&] { rowUpH2V2Vec(s, t, dv + off, n); }, [&] { rowUpH2V2Scalar(s, t, ds + off, n); });
            for (int phase : {0, 1})
                same("box h2v1", [&] { rowBoxH2V1Vec(s, dv + off, n, phase); }, [&] { rowBoxH2V1Scalar(s, ds + off, n, phase); });
            same("box h2v2", [&] { rowBoxH2V2Vec(s, t, dv + off, n); }, [&] { rowBoxH2V2Scalar(s, t, ds + off, n); });
        }
}

// ---------------------------------------------------------------- threading

TEST(SamplingThreads, ThresholdWithOneAndSeveralThreads) {
    for (auto [dw, dh] : {std::pair{8192, 1}, std::pair{8193, 1}, std::pair{64, 128}, std::pair{65, 127}}) {
        Bordered down(2 * dw, 2 * dh, 1), up1((dw + 1) / 2, dh, 2), up((dw + 1) / 2, (dh + 1) / 2 + 1, 3);
        for (int threads : {1, 4}) {
            zebtest::ThreadCount tc(threads);
            Plane d[4] = {Plane(dw, dh, 0), Plane(dw, dh, 1), Plane(dw, dh, 2), Plane(dw, dh, 3)};
            ASSERT_EQ(zebiSampleDownH2V1_JPEG_8u_C1R(down.at(0, 0), down.plane.step, ZebSize{2 * dw, dh}, d[0].data(), d[0].step, ZebSize{dw, dh}), 0);
            ASSERT_EQ(zebiSampleDownH2V2_JPEG_8u_C1R(down.at(0, 0), down.plane.step, ZebSize{2 * dw, 2 * dh}, d[1].data(), d[1].step, ZebSize{dw, dh}), 0);
            ASSERT_EQ(zebiSampleUpH2V1_JPEG_8u_C1R(up1.at(0, 0), up1.plane.step, ZebSize{dw, dh}, d[2].data(), d[2].step, ZebSize{dw, dh}), 0);
            ASSERT_EQ(zebiSampleUpH2V2_JPEG_8u_C1R(up.at(0, 0), up.plane.step, ZebSize{dw, dh}, d[3].data(), d[3].step, ZebSize{dw, dh}), 0);
            for (int k = 0; k < 4; ++k) {
                ASSERT_TRUE(d[k].onlyRowsWritten());
                // The serial single-row model of each operation.
                std::vector<uint8_t> model(static_cast<size_t>(dw) * dh), got(model.size());
                for (int y = 0; y < dh; ++y) {
                    uint8_t* m = model.data() + static_cast<size_t>(y) * dw;
                    if (k == 0) rowDownH2V1Scalar(down.at(0, y), m, dw);
                    if (k == 1) rowDownH2V2Scalar(down.at(0, 2 * y), down.at(0, 2 * y + 1), m, dw);
                    if (k == 2) rowUpH2V1Scalar(up1.at(0, y), m, dw);
                    if (k == 3) rowUpH2V2Scalar(up.at(0, y / 2), up.at(0, (y & 1) ? y / 2 + 1 : y / 2 - 1), m, dw);
                    std::memcpy(got.data() + static_cast<size_t>(y) * dw, d[k].row(y), dw);
                }
                ASSERT_EQ(got, model) << "op " << k << " " << dw << "x" << dh << " threads " << threads;
            }
        }
    }
}

}  // namespace
