// Whole-block wavelet drivers: argument-check order, buffer sizes, the worked
// short lines, a model of each line form with unbounded symmetric extension,
// exact 5/3 round trips at every size and origin parity, work-buffer bounds,
// and several 5/3 levels against an independent decoder.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "frame/arith.h"
#include "jpeg2000/transform/checkasm.h"
#include "jpeg2000/transform/opj_tools.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

namespace ca = zebtest::checkasm;

template <class T>
struct Fam {
    const char* name;
    ZebStatus (*fwd)(const T*, int, const ZebTileRect*, T* const[4], const int[4], Zeb8u*);
    ZebStatus (*inv)(const T* const[4], const int[4], T*, int, const ZebTileRect*, Zeb8u*);
    ZebStatus (*fwdI)(T*, int, const ZebTileRect*, Zeb8u*);
    ZebStatus (*invI)(T*, int, const ZebTileRect*, Zeb8u*);
    ZebStatus (*sizeI)(const ZebTileRect*, int*);
    ZebStatus (*sizeR)(const ZebTileRect*, int*);
    bool d97;
};

const Fam<Zeb16s> kB53_16{"B53 16s", zebiWTFwd_B53_JPEG2K_16s_C1R, zebiWTInv_B53_JPEG2K_16s_C1R,
                          zebiWTFwd_B53_JPEG2K_16s_C1IR, zebiWTInv_B53_JPEG2K_16s_C1IR,
                          zebiWTGetBufSize_B53_JPEG2K_16s_C1IR, zebiWTGetBufSize_B53_JPEG2K_16s_C1R, false};
const Fam<Zeb32s> kB53_32{"B53 32s", zebiWTFwd_B53_JPEG2K_32s_C1R, zebiWTInv_B53_JPEG2K_32s_C1R,
                          zebiWTFwd_B53_JPEG2K_32s_C1IR, zebiWTInv_B53_JPEG2K_32s_C1IR,
                          zebiWTGetBufSize_B53_JPEG2K_32s_C1IR, zebiWTGetBufSize_B53_JPEG2K_32s_C1R, false};
const Fam<Zeb16s> kD97_16{"D97 16s", zebiWTFwd_D97_JPEG2K_16s_C1R, zebiWTInv_D97_JPEG2K_16s_C1R,
                          zebiWTFwd_D97_JPEG2K_16s_C1IR, zebiWTInv_D97_JPEG2K_16s_C1IR,
                          zebiWTGetBufSize_D97_JPEG2K_16s_C1IR, zebiWTGetBufSize_D97_JPEG2K_16s_C1R, true};
const Fam<Zeb32s> kD97_32{"D97 32s", zebiWTFwd_D97_JPEG2K_32s_C1R, zebiWTInv_D97_JPEG2K_32s_C1R,
                          zebiWTFwd_D97_JPEG2K_32s_C1IR, zebiWTInv_D97_JPEG2K_32s_C1IR,
                          zebiWTGetBufSize_D97_JPEG2K_32s_C1IR, zebiWTGetBufSize_D97_JPEG2K_32s_C1R, true};

template <class T>
int bufSize(const Fam<T>& f, int w, int h, bool copy) {
    ZebTileRect r{0, 0, w, h};
    int s = -1;
    EXPECT_EQ((copy ? f.sizeR : f.sizeI)(&r, &s), zebStatusOk);
    return s;
}

int nLow(int n, int p) { return (n + 1 - p) >> 1; }

// ------------------------------------------------------------ checks

template <class T>
void checkOrder(const Fam<T>& f) {
    SCOPED_TRACE(f.name);
    alignas(64) static uint8_t mem[1 << 14];
    T* q = reinterpret_cast<T*>(mem + 4096);
    T* const d4[4] = {q, q, q, q};
    const int s4[4] = {64, 64, 64, 64};
    ZebTileRect r{0, 0, 4, 4}, bad{0, 0, 0, 4};
    Zeb8u* buf = mem + 8192;
    // Forward C1R: src, dst, dstStep, rect, buffer; srcStep; dst[i]; dstStep[i]; size.
    EXPECT_EQ(f.fwd(nullptr, 0, &bad, nullptr, nullptr, nullptr), zebStatusNullPointer);
    EXPECT_EQ(f.fwd(q, 0, &bad, nullptr, s4, buf), zebStatusNullPointer);
    EXPECT_EQ(f.fwd(q, 0, &bad, d4, nullptr, buf), zebStatusNullPointer);
    EXPECT_EQ(f.fwd(q, 0, nullptr, d4, s4, buf), zebStatusNullPointer);
    EXPECT_EQ(f.fwd(q, 0, &bad, d4, s4, nullptr), zebStatusNullPointer);
    T* const dn[4] = {q, q, nullptr, q};
    const int sz[4] = {64, 64, 64, 0};
    EXPECT_EQ(f.fwd(q, 0, &bad, dn, sz, buf), zebStatusBadStep);
    EXPECT_EQ(f.fwd(q, 64, &bad, dn, sz, buf), zebStatusNullPointer);
    EXPECT_EQ(f.fwd(q, 64, &bad, d4, sz, buf), zebStatusBadStep);
    EXPECT_EQ(f.fwd(q, 64, &bad, d4, s4, buf), zebStatusBadSize);
    // Inverse C1R: src, dst, srcStep, rect, buffer; dstStep; src[i]; srcStep[i]; size.
    const T* const c4[4] = {q, q, q, q};
    const T* const cn[4] = {nullptr, q, q, q};
    EXPECT_EQ(f.inv(nullptr, s4, q, 0, &bad, buf), zebStatusNullPointer);
    EXPECT_EQ(f.inv(c4, s4, nullptr, 0, &bad, buf), zebStatusNullPointer);
    EXPECT_EQ(f.inv(c4, nullptr, q, 0, &bad, buf), zebStatusNullPointer);
    EXPECT_EQ(f.inv(c4, s4, q, 0, nullptr, buf), zebStatusNullPointer);
    EXPECT_EQ(f.inv(c4, s4, q, 0, &bad, nullptr), zebStatusNullPointer);
    EXPECT_EQ(f.inv(cn, sz, q, 0, &bad, buf), zebStatusBadStep);
    EXPECT_EQ(f.inv(cn, sz, q, 64, &bad, buf), zebStatusNullPointer);
    EXPECT_EQ(f.inv(c4, sz, q, 64, &bad, buf), zebStatusBadStep);
    EXPECT_EQ(f.inv(c4, s4, q, 64, &bad, buf), zebStatusBadSize);
    ZebTileRect badH{0, 0, 4, 0};
    EXPECT_EQ(f.inv(c4, s4, q, 64, &badH, buf), zebStatusBadSize);
    // In place: srcDst; step; rect or buffer. No size check.
    for (auto fn : {f.fwdI, f.invI}) {
        EXPECT_EQ(fn(nullptr, 0, nullptr, nullptr), zebStatusNullPointer);
        EXPECT_EQ(fn(q, 0, nullptr, nullptr), zebStatusBadStep);
        EXPECT_EQ(fn(q, 64, nullptr, buf), zebStatusNullPointer);
        EXPECT_EQ(fn(q, 64, &r, nullptr), zebStatusNullPointer);
        EXPECT_EQ(fn(q, 64, &bad, buf), zebStatusOk);
    }
    int s = 0;
    for (auto fn : {f.sizeI, f.sizeR}) {
        EXPECT_EQ(fn(nullptr, &s), zebStatusNullPointer);
        EXPECT_EQ(fn(&r, nullptr), zebStatusNullPointer);
    }
    // A failed check writes nothing.
    zebtest::GuardedBuffer g(512);
    T* d = g.as<T>() + 16;
    T* const dd[4] = {d, d, d, d};
    EXPECT_EQ(f.fwd(d, 64, &bad, dd, s4, g.as<Zeb8u>()), zebStatusBadSize);
    EXPECT_TRUE(g.untouched());
}

TEST(WaveletBlockChecks, ArgumentOrderOfEveryExport) {
    checkOrder(kB53_16);
    checkOrder(kB53_32);
    checkOrder(kD97_16);
    checkOrder(kD97_32);
}

TEST(WaveletBlockChecks, BufferSizes) {
    EXPECT_EQ(bufSize(kB53_16, 2, 2, false), 0);
    EXPECT_EQ(bufSize(kB53_16, 3, 1, false), 14);
    EXPECT_EQ(bufSize(kB53_16, 1, 3, false), 14);
    EXPECT_EQ(bufSize(kD97_32, 1, 1, true), 32);
    EXPECT_EQ(bufSize(kD97_32, 1, 1, false), 0);
    EXPECT_EQ(bufSize(kD97_16, 2, 1, false), 2 * 2 + 16);
    EXPECT_EQ(bufSize(kD97_16, 1, 1, false), 0);
    EXPECT_EQ(bufSize(kB53_32, 10, 7, false), 4 * 10 + 16);
    EXPECT_EQ(bufSize(kB53_32, 7, 10, true), 4 * 10 + 16 + 32 * 10);
    EXPECT_EQ(bufSize(kB53_16, 17, 5, true), 2 * 17 + 8 + 64 * 5);
    EXPECT_EQ(bufSize(kD97_32, 9, 33, false), 4 * 33 + 32);
    EXPECT_EQ(bufSize(kD97_32, 9, 33, true), 4 * 33 + 32 + 64 * 33);
    EXPECT_EQ(bufSize(kD97_16, 16, 3, true), 2 * 16 + 16 + 32 * 3);
}

// ------------------------------------------------------------ worked lines

TEST(WaveletBlockValues, OneByOneRegions) {
    for (const auto* f : {&kB53_16, &kD97_16}) {
        int16_t v = -3;
        uint8_t buf[8];
        ZebTileRect even{2, 4, 1, 1}, odd{1, 3, 1, 1};
        ASSERT_EQ(f->fwdI(&v, 2, &even, buf), 0);
        EXPECT_EQ(v, -3);
        ASSERT_EQ(f->invI(&v, 2, &even, buf), 0);
        EXPECT_EQ(v, -3);
        ASSERT_EQ(f->fwdI(&v, 2, &odd, buf), 0);
        EXPECT_EQ(v, -12);
        v = -3;
        ASSERT_EQ(f->invI(&v, 2, &odd, buf), 0);
        EXPECT_EQ(v, 0);  // -3 / 2 = -1, then -1 / 2 = 0
    }
    for (const auto* f : {&kB53_32, &kD97_32}) {
        int32_t v = 7;
        uint8_t buf[8];
        ZebTileRect odd{1, 1, 1, 1};
        ASSERT_EQ(f->fwdI(&v, 4, &odd, buf), 0);
        EXPECT_EQ(v, 28);
        ASSERT_EQ(f->invI(&v, 4, &odd, buf), 0);
        EXPECT_EQ(v, 7);
    }
}

TEST(WaveletBlockValues, ShortFiveThreeLines) {
    uint8_t buf[64];
    // Length 2 at an odd origin: the even sample is index 1.
    int16_t x[2] = {10, 3};
    ZebTileRect r{1, 0, 2, 1};
    ASSERT_EQ(zebiWTFwd_B53_JPEG2K_16s_C1IR(x, 4, &r, buf), 0);
    EXPECT_EQ(x[0], 3 + ((7 + 1) >> 1));  // low from index 1
    EXPECT_EQ(x[1], 7);                   // high: index 0 minus index 1
    ASSERT_EQ(zebiWTInv_B53_JPEG2K_16s_C1IR(x, 4, &r, buf), 0);
    EXPECT_EQ(x[0], 10);
    EXPECT_EQ(x[1], 3);
    // Length 3 at an odd origin: one low value first, then two high values.
    int32_t y[3] = {4, 10, 2};
    ZebTileRect r3{1, 0, 3, 1};
    ASSERT_EQ(zebiWTFwd_B53_JPEG2K_32s_C1IR(y, 12, &r3, buf), 0);
    // Extension x[-1] = x[1] = 10, x[3] = x[1]: H at 0 = 4 - 10 = -6, H at 2 = 2 - 10 = -8, L = 10 + ((-14 + 2) >> 2).
    EXPECT_EQ(y[0], 10 + ((-6 - 8 + 2) >> 2));
    EXPECT_EQ(y[1], -6);
    EXPECT_EQ(y[2], -8);
}

// ------------------------------------------------------------ line model
// One line with the unbounded whole-sample symmetric extension, in each
// driver form; a region is columns then rows (forward).

int bounce(int k, int n) {
    if (n == 1) return 0;
    const int per = 2 * (n - 1);
    k %= per;
    if (k < 0) k += per;
    return k < n ? k : per - k;
}

enum class LF { B53s16, B53s32, D97s16, D97s32 };

std::vector<int64_t> modelLine(LF f, const std::vector<int64_t>& in, int p) {
    const int n = int(in.size());
    std::vector<int64_t> out(n);
    const int nL = nLow(n, p);
    auto keep = [&](int64_t v) -> int64_t {
        return (f == LF::B53s16 || f == LF::D97s16) ? int64_t(zeb::wrap16(zeb::wrap32(v))) : int64_t(zeb::wrap32(v));
    };
    if (n == 1) return {keep(in[0] * (p + 1))};
    if ((f == LF::B53s16 || f == LF::B53s32) && n == 2) {
        const int64_t e = in[p], o = in[1 - p], d = zeb::wrap32(o - e);
        return {keep(e + ((d + 1) >> 1)), keep(d)};
    }
    const int M = 12;
    std::vector<double> x(n + 2 * M);
    auto X = [&](int k) -> double& { return x[k + M]; };
    auto high = [&](int k) { return ((k + p) & 1) != 0; };
    for (int k = -M; k < n + M; ++k) X(k) = double(in[bounce(k, n)]);
    auto pass = [&](int j, bool hi, auto&& fn) {
        std::vector<double> y = x;
        for (int k = -M + j; k < n + M - j; ++k)
            if (high(k) == hi) y[k + M] = fn(X(k), X(k - 1), X(k + 1));
        x = y;
    };
    if (f == LF::B53s16 || f == LF::B53s32) {
        pass(1, true, [&](double c, double a, double b) { return double(keep(int64_t(c) - ((int64_t(a) + int64_t(b)) >> 1))); });
        pass(2, false, [&](double c, double a, double b) { return double(keep(int64_t(c) + ((int64_t(a) + int64_t(b) + 2) >> 2))); });
    } else if (f == LF::D97s16) {
        auto st = [&](int32_t c) {
            return [=](double o, double a, double b) {
                return double(zeb::wrap16(int32_t(o) + (((int32_t(a) + int32_t(b)) * c + 8192) >> 14)));
            };
        };
        pass(1, true, st(-25987));
        pass(2, false, st(-868));
        pass(3, true, st(14466));
        pass(4, false, st(7266));
        for (int k = 0; k < n; ++k) X(k) = zeb::wrap16((int32_t(X(k)) * (high(k) ? 20155 : 13318) + 8192) >> 14);
    } else {
        const float kA = std::bit_cast<float>(0xBFCB0673u), kB = std::bit_cast<float>(0xBD5901AEu),
                    kG = std::bit_cast<float>(0x3F620676u), kD = std::bit_cast<float>(0x3EE31355u),
                    kK = std::bit_cast<float>(0x3F9D7658u), kI = std::bit_cast<float>(0x3F5019C3u);
        pass(1, true, [&](double o, double a, double b) {
            return double(std::fma(kA, float(zeb::add32(int32_t(a), int32_t(b))), float(o)));
        });
        auto st = [&](float c) { return [=](double o, double a, double b) { return double(std::fma(c, float(a) + float(b), float(o))); }; };
        pass(2, false, st(kB));
        pass(3, true, st(kG));
        pass(4, false, st(kD));
        for (int k = 0; k < n; ++k) {
            const float v = float(X(k)) * (high(k) ? kK : kI);
            X(k) = v > 2147483648.0f ? 2147483647.0 : v < -2147483648.0f ? -2147483648.0 : std::trunc(double(v));
        }
    }
    int il = 0, ih = nL;
    for (int k = 0; k < n; ++k) out[high(k) ? ih++ : il++] = int64_t(X(k));
    return out;
}

template <class T>
void regionAgainstModel(const Fam<T>& f, LF lf, int W, int H, int ox, int oy, std::mt19937& g, int64_t amp) {
    std::uniform_int_distribution<int64_t> d(-amp, amp);
    std::vector<int64_t> img(size_t(W) * H);
    for (auto& v : img) v = d(g);
    // Model: columns, then rows.
    std::vector<int64_t> m = img;
    for (int c = 0; c < W; ++c) {
        std::vector<int64_t> line(H);
        for (int r = 0; r < H; ++r) line[r] = m[size_t(r) * W + c];
        line = modelLine(lf, line, oy & 1);
        for (int r = 0; r < H; ++r) m[size_t(r) * W + c] = line[r];
    }
    for (int r = 0; r < H; ++r) {
        std::vector<int64_t> line(m.begin() + size_t(r) * W, m.begin() + size_t(r + 1) * W);
        line = modelLine(lf, line, ox & 1);
        std::copy(line.begin(), line.end(), m.begin() + size_t(r) * W);
    }
    // In place, with the buffer placed against an inaccessible page.
    ZebTileRect rect{ox, oy, W, H};
    const int bsz = bufSize(f, W, H, false);
    ca::Area<uint8_t> buf(0, 0, std::max(bsz, 1), ca::Place::Tail);
    ca::Area<T> a(0, H - 1, W, ca::Place::Heap, 2 * sizeof(T), W * int(sizeof(T)) + 8);
    for (int r = 0; r < H; ++r)
        for (int c = 0; c < W; ++c) a.at(r, c) = T(img[size_t(r) * W + c]);
    ASSERT_EQ(f.fwdI(a.base(), a.step(), &rect, buf.base()), 0);
    ASSERT_TRUE(a.outsideIntact());
    for (int r = 0; r < H; ++r)
        for (int c = 0; c < W; ++c)
            ASSERT_EQ(int64_t(a.at(r, c)), m[size_t(r) * W + c]) << f.name << " " << W << "x" << H << " at " << ox
                                                                   << "," << oy << " r=" << r << " c=" << c;
}

TEST(WaveletBlockModel, EveryFormMatchesTheLineModel) {
    std::mt19937 g(3);
    for (int W : {1, 2, 3, 4, 5, 6, 7, 9, 16})
        for (int H : {1, 2, 3, 4, 5, 8, 11})
            for (int o = 0; o < 4; ++o) {
                regionAgainstModel(kB53_16, LF::B53s16, W, H, o & 1, o >> 1, g, 3000);
                regionAgainstModel(kB53_32, LF::B53s32, W, H, o & 1, o >> 1, g, 1 << 20);
                regionAgainstModel(kD97_16, LF::D97s16, W, H, o & 1, o >> 1, g, 3000);
                regionAgainstModel(kD97_32, LF::D97s32, W, H, o & 1, o >> 1, g, 1 << 20);
                if (HasFatalFailure()) return;
            }
}

TEST(WaveletBlockModel, LargeThirtyTwoBitValuesSaturateOnTheWayBack) {
    // Beyond 2^31 the conversion gives the extremes.
    int32_t v[2] = {INT32_MAX, INT32_MIN};
    uint8_t buf[64];
    ZebTileRect r{0, 0, 2, 1};
    ASSERT_EQ(zebiWTFwd_D97_JPEG2K_32s_C1IR(v, 8, &r, buf), 0);
    std::vector<int64_t> m = modelLine(LF::D97s32, {INT32_MAX, INT32_MIN}, 0);
    EXPECT_EQ(v[0], m[0]);
    EXPECT_EQ(v[1], m[1]);
}

// ------------------------------------------------------------ round trips

int64_t gWorst = 0;  // worst error of the last batch of round trips

template <class T>
void roundTrip(const Fam<T>& f, int W, int H, int ox, int oy, std::mt19937& g, int64_t amp, bool copy,
               int64_t tol) {
    std::uniform_int_distribution<int64_t> d(-amp, amp);
    std::vector<T> img(size_t(W) * H);
    for (auto& v : img) v = T(d(g));
    ZebTileRect rect{ox, oy, W, H};
    // The work buffer ends against an inaccessible page and starts at an odd
    // address.
    ca::Area<uint8_t> buf(0, 0, std::max(bufSize(f, W, H, copy), 1), ca::Place::Tail);
    Zeb8u* b = buf.base();
    std::vector<T> out(img.size());
    if (!copy) {
        out = img;
        ASSERT_EQ(f.fwdI(out.data(), W * int(sizeof(T)), &rect, b), 0);
        ASSERT_EQ(f.invI(out.data(), W * int(sizeof(T)), &rect, b), 0);
    } else {
        const int lw = nLow(W, ox & 1), lh = nLow(H, oy & 1), hw = W - lw, hh = H - lh;
        std::vector<T> bands[4] = {std::vector<T>(size_t(lw) * lh + 1), std::vector<T>(size_t(lw) * hh + 1),
                                   std::vector<T>(size_t(hw) * lh + 1), std::vector<T>(size_t(hw) * hh + 1)};
        T* const dst[4] = {bands[0].data(), bands[1].data(), bands[2].data(), bands[3].data()};
        const int st[4] = {std::max(lw, 1) * int(sizeof(T)), std::max(lw, 1) * int(sizeof(T)),
                           std::max(hw, 1) * int(sizeof(T)), std::max(hw, 1) * int(sizeof(T))};
        ASSERT_EQ(f.fwd(img.data(), W * int(sizeof(T)), &rect, dst, st, b), 0);
        // The bands equal the quadrants of the in-place result.
        std::vector<T> ip = img;
        ASSERT_EQ(f.fwdI(ip.data(), W * int(sizeof(T)), &rect, b), 0);
        const int bx[4] = {0, 0, lw, lw}, by[4] = {0, lh, 0, lh}, bw[4] = {lw, lw, hw, hw}, bh[4] = {lh, hh, lh, hh};
        for (int k = 0; k < 4; ++k)
            for (int r = 0; r < bh[k]; ++r)
                for (int c = 0; c < bw[k]; ++c)
                    ASSERT_EQ(bands[k][size_t(r) * bw[k] + c], ip[size_t(by[k] + r) * W + bx[k] + c]) << "band " << k;
        const T* const src[4] = {dst[0], dst[1], dst[2], dst[3]};
        ASSERT_EQ(f.inv(src, st, out.data(), W * int(sizeof(T)), &rect, b), 0);
    }
    for (size_t i = 0; i < img.size(); ++i) gWorst = std::max(gWorst, std::abs(int64_t(out[i]) - int64_t(img[i])));
    for (size_t i = 0; i < img.size(); ++i)
        ASSERT_LE(std::abs(int64_t(out[i]) - int64_t(img[i])), tol)
            << f.name << " " << W << "x" << H << " at " << ox << "," << oy << " i=" << i << (copy ? " C1R" : " C1IR");
}

TEST(WaveletBlockRoundTrip, FiveThreeIsExactAtEverySizeAndParity) {
    std::mt19937 g(11);
    for (int W = 1; W <= 70; ++W)
        for (int H = 1; H <= 70; ++H)
            for (int o = 0; o < 4; ++o) {
                const bool copy = ((W + H + o) & 1) != 0;
                if (W <= 40 && H <= 40) {
                    roundTrip(kB53_16, W, H, o & 1, o >> 1, g, 4000, copy, 0);
                    roundTrip(kB53_32, W, H, o & 1, o >> 1, g, 1 << 24, !copy, 0);
                } else if (o != ((W + H) & 3)) {
                    continue;  // beyond 40, one origin parity per size, in turn
                } else if (((W * 7 + H) & 1) != 0) {
                    roundTrip(kB53_16, W, H, o & 1, o >> 1, g, 4000, copy, 0);
                } else {
                    roundTrip(kB53_32, W, H, o & 1, o >> 1, g, 1 << 24, copy, 0);
                }
                if (HasFatalFailure()) return;
            }
    roundTrip(kB53_32, 517, 263, 1, 0, g, 1 << 24, true, 0);
    roundTrip(kB53_16, 300, 401, 0, 1, g, 4000, false, 0);
}

// The 32s form truncates after each pass: the four truncations (each below
// one) come back through at most two synthesis passes of gain below 2.18, so
// the error stays below 2.18 + 2.18 * 2.18 + 2.18 + 1 < 11. The 16s form's
// lifting undoes itself exactly; only the two scalings per pass lose, below
// 1.2 per coefficient, which the synthesis passes carry to below 12.
TEST(WaveletBlockRoundTrip, NineSevenReturnsTheInputWithinItsBound) {
    std::mt19937 g(12);
    int64_t w32 = 0, w16 = 0;
    for (int W : {1, 2, 3, 4, 5, 6, 9, 16, 33, 64})
        for (int H : {1, 2, 3, 4, 5, 7, 12, 31, 64})
            for (int o = 0; o < 4; ++o) {
                gWorst = 0;
                roundTrip(kD97_32, W, H, o & 1, o >> 1, g, 1 << 16, (W + H) & 1, 10);
                w32 = std::max(w32, gWorst);
                gWorst = 0;
                roundTrip(kD97_16, W, H, o & 1, o >> 1, g, 1000, !((W + H) & 1), 12);
                w16 = std::max(w16, gWorst);
                if (HasFatalFailure()) return;
            }
    std::printf("9/7 driver round trip worst error: 32s %lld, 16s %lld\n", (long long)w32, (long long)w16);
}

// 16-bit and 32-bit data at odd addresses give the same bands.
TEST(WaveletBlockRoundTrip, OddAddressesGiveTheSameBands) {
    std::mt19937 g(4);
    const int W = 23, H = 19;
    std::vector<uint8_t> raw(W * H * 4 + 64), raw2(raw.size());
    for (auto& v : raw) v = uint8_t(g() & 0x3F);
    ZebTileRect r{1, 0, W, H};
    std::vector<uint8_t> buf(4 * 70 + 64);
    for (int fam = 0; fam < 4; ++fam) {
        const int es = fam < 2 ? 2 : 4;
        raw2 = raw;
        std::vector<uint8_t> al(raw.begin(), raw.begin() + W * H * es);
        uint8_t* odd = raw2.data() + 1;
        std::memmove(odd, raw2.data(), W * H * es);
        const std::vector<uint8_t> before(odd, odd + W * H * es);
        ASSERT_EQ(before, al);
        ZebStatus s1, s2;
        switch (fam) {
            case 0:
                s1 = zebiWTFwd_B53_JPEG2K_16s_C1IR(reinterpret_cast<Zeb16s*>(al.data()), W * es, &r, buf.data() + 1);
                s2 = zebiWTFwd_B53_JPEG2K_16s_C1IR(reinterpret_cast<Zeb16s*>(odd), W * es, &r, buf.data() + 1);
                break;
            case 1:
                s1 = zebiWTFwd_D97_JPEG2K_16s_C1IR(reinterpret_cast<Zeb16s*>(al.data()), W * es, &r, buf.data() + 1);
                s2 = zebiWTFwd_D97_JPEG2K_16s_C1IR(reinterpret_cast<Zeb16s*>(odd), W * es, &r, buf.data() + 1);
                break;
            case 2:
                s1 = zebiWTFwd_B53_JPEG2K_32s_C1IR(reinterpret_cast<Zeb32s*>(al.data()), W * es, &r, buf.data() + 1);
                s2 = zebiWTFwd_B53_JPEG2K_32s_C1IR(reinterpret_cast<Zeb32s*>(odd), W * es, &r, buf.data() + 1);
                break;
            default:
                s1 = zebiWTFwd_D97_JPEG2K_32s_C1IR(reinterpret_cast<Zeb32s*>(al.data()), W * es, &r, buf.data() + 1);
                s2 = zebiWTFwd_D97_JPEG2K_32s_C1IR(reinterpret_cast<Zeb32s*>(odd), W * es, &r, buf.data() + 1);
                break;
        }
        ASSERT_EQ(s1, 0);
        ASSERT_EQ(s2, 0);
        EXPECT_EQ(std::vector<uint8_t>(odd, odd + W * H * es), al) << fam;
    }
}

// ------------------------------------------------------------ independent decoder
// Several 5/3 levels (LL fed into the next level) against the
// reduced-resolution image an independent decoder rebuilds from a lossless
// codestream of the same image.

using zebtest::opj::haveTool;
using zebtest::opj::readPgm;

TEST(WaveletBlockInterop, SeveralFiveThreeLevelsMatchIndependentDecoder) {
    if (!haveTool("opj_compress") || !haveTool("opj_decompress")) GTEST_SKIP() << "OpenJPEG tools not installed";
    struct Case { int W, H, ox, oy; };
    const std::string dir = std::string(ZEB_BINARY_DIR) + "/";
    std::mt19937 g(8);
    for (Case c : {Case{64, 48, 0, 0}, Case{75, 53, 1, 1}, Case{61, 70, 3, 0}, Case{50, 37, 0, 5}}) {
        SCOPED_TRACE(testing::Message() << c.W << "x" << c.H << " origin " << c.ox << "," << c.oy);
        const std::string tag = dir + "wblk_" + std::to_string(c.W) + "_" + std::to_string(c.ox) + std::to_string(c.oy);
        std::vector<int> img(size_t(c.W) * c.H);
        std::uniform_int_distribution<int> d(100, 156);
        for (auto& v : img) v = d(g);
        {
            std::ofstream f(tag + ".pgm", std::ios::binary);
            f << "P5\n" << c.W << " " << c.H << "\n255\n";
            for (int v : img) f.put(static_cast<char>(v));
        }
        const std::string enc = "opj_compress -i " + tag + ".pgm -o " + tag + ".j2k -n 4 -d " +
                                std::to_string(c.ox) + "," + std::to_string(c.oy) + " > /dev/null 2>&1";
        ASSERT_EQ(std::system(enc.c_str()), 0) << enc;
        // Our levels, in place on the level-shifted image.
        std::vector<int32_t> x(img.size());
        for (size_t i = 0; i < img.size(); ++i) x[i] = img[i] - 128;
        int x0 = c.ox, y0 = c.oy, w = c.W, h = c.H;
        std::vector<uint8_t> buf(64 + 4 * 2 * std::max(c.W, c.H));
        for (int level = 1; level <= 3; ++level) {
            ZebTileRect r{x0, y0, w, h};
            ASSERT_EQ(zebiWTFwd_B53_JPEG2K_32s_C1IR(x.data(), c.W * 4, &r, buf.data()), 0);
            w = nLow(w, x0 & 1);
            h = nLow(h, y0 & 1);
            x0 = (x0 + 1) >> 1;
            y0 = (y0 + 1) >> 1;
            const std::string out = tag + "_r" + std::to_string(level) + ".pgm";
            const std::string dec = "opj_decompress -i " + tag + ".j2k -o " + out + " -r " + std::to_string(level) +
                                    " > /dev/null 2>&1";
            ASSERT_EQ(std::system(dec.c_str()), 0) << dec;
            int lw = 0, lh = 0;
            const std::vector<int> ll = readPgm(out, lw, lh);
            std::remove(out.c_str());
            ASSERT_EQ(lw, w) << "level " << level;
            ASSERT_EQ(lh, h) << "level " << level;
            for (int yy = 0; yy < h; ++yy)
                for (int xx = 0; xx < w; ++xx)
                    ASSERT_EQ(x[size_t(yy) * c.W + xx] + 128, ll[size_t(yy) * lw + xx])
                        << "level " << level << " y=" << yy << " x=" << xx;
        }
        // And back: three inverse levels rebuild the source exactly.
        for (int level = 3; level >= 1; --level) {
            int lx = c.ox, ly = c.oy, lw = c.W, lh = c.H;
            for (int k = 1; k < level; ++k) {
                lw = nLow(lw, lx & 1);
                lh = nLow(lh, ly & 1);
                lx = (lx + 1) >> 1;
                ly = (ly + 1) >> 1;
            }
            ZebTileRect r{lx, ly, lw, lh};
            ASSERT_EQ(zebiWTInv_B53_JPEG2K_32s_C1IR(x.data(), c.W * 4, &r, buf.data()), 0);
        }
        for (size_t i = 0; i < img.size(); ++i) ASSERT_EQ(x[i] + 128, img[i]) << i;
        for (const char* s : {".pgm", ".j2k"}) std::remove((tag + s).c_str());
    }
}

}  // namespace
