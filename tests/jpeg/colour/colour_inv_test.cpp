// Inverse colour conversion: argument checks, the worked numbers, which form
// each pixel gets, odd sizes, alpha, packing, vector kernels against their
// scalar twins, and the threading threshold.
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

enum class In { P3, P4, Sub422, Sub411, C2 };
enum class Out { Planes3, Planes4, Pix3, Pix4, W555, W565 };

struct Op {
    std::string name;
    In in;
    Out out;
    bool bgr;
    bool stepsTested;
    bool threaded;
    std::function<ZebStatus(const Zeb8u* const* sp, const int* sSteps, Zeb8u* const* dp, int dStep, ZebSize roi, Zeb8u alpha)> call;
};

std::vector<Op> ops() {
    using SP = const Zeb8u* const*;
    using DP = Zeb8u* const*;
    auto s0 = [](SP sp) { return sp ? sp[0] : nullptr; };
    auto d0 = [](DP dp) { return dp ? dp[0] : nullptr; };
    auto w16 = [](DP dp) { return dp && dp[0] ? reinterpret_cast<Zeb16u*>(dp[0]) : nullptr; };
    auto st0 = [](const int* s) { return s ? s[0] : 0; };
    std::vector<Op> v;
    v.push_back({"ToRGB_P3R", In::P3, Out::Planes3, false, true, true, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCrToRGB_JPEG_8u_P3R(sp, st0(ss), dp, ds, r); }});
    v.push_back({"ToRGB_P3C3R", In::P3, Out::Pix3, false, true, true, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCrToRGB_JPEG_8u_P3C3R(sp, st0(ss), d0(dp), ds, r); }});
    v.push_back({"ToBGR_P3C3R", In::P3, Out::Pix3, true, true, true, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCrToBGR_JPEG_8u_P3C3R(sp, st0(ss), d0(dp), ds, r); }});
    v.push_back({"ToRGB_P3C4R", In::P3, Out::Pix4, false, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u a) { return zebiYCbCrToRGB_JPEG_8u_P3C4R(sp, st0(ss), d0(dp), ds, r, a); }});
    v.push_back({"ToBGR_P3C4R", In::P3, Out::Pix4, true, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u a) { return zebiYCbCrToBGR_JPEG_8u_P3C4R(sp, st0(ss), d0(dp), ds, r, a); }});
    v.push_back({"ToRGB555", In::P3, Out::W555, false, true, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCrToRGB555_JPEG_8u16u_P3C3R(sp, st0(ss), w16(dp), ds, r); }});
    v.push_back({"ToBGR555", In::P3, Out::W555, true, true, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCrToBGR555_JPEG_8u16u_P3C3R(sp, st0(ss), w16(dp), ds, r); }});
    v.push_back({"ToRGB565", In::P3, Out::W565, false, true, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCrToRGB565_JPEG_8u16u_P3C3R(sp, st0(ss), w16(dp), ds, r); }});
    v.push_back({"ToBGR565", In::P3, Out::W565, true, true, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCrToBGR565_JPEG_8u16u_P3C3R(sp, st0(ss), w16(dp), ds, r); }});
    v.push_back({"422ToRGB_P3C3R", In::Sub422, Out::Pix3, false, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCr422ToRGB_JPEG_8u_P3C3R(sp, ss, d0(dp), ds, r); }});
    v.push_back({"422ToBGR_P3C3R", In::Sub422, Out::Pix3, true, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCr422ToBGR_JPEG_8u_P3C3R(sp, ss, d0(dp), ds, r); }});
    v.push_back({"422ToRGB_P3C4R", In::Sub422, Out::Pix4, false, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u a) { return zebiYCbCr422ToRGB_JPEG_8u_P3C4R(sp, ss, d0(dp), ds, r, a); }});
    v.push_back({"422ToBGR_P3C4R", In::Sub422, Out::Pix4, true, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u a) { return zebiYCbCr422ToBGR_JPEG_8u_P3C4R(sp, ss, d0(dp), ds, r, a); }});
    v.push_back({"411ToRGB_P3C3R", In::Sub411, Out::Pix3, false, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCr411ToRGB_JPEG_8u_P3C3R(sp, ss, d0(dp), ds, r); }});
    v.push_back({"411ToBGR_P3C3R", In::Sub411, Out::Pix3, true, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCr411ToBGR_JPEG_8u_P3C3R(sp, ss, d0(dp), ds, r); }});
    v.push_back({"411ToRGB_P3C4R", In::Sub411, Out::Pix4, false, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u a) { return zebiYCbCr411ToRGB_JPEG_8u_P3C4R(sp, ss, d0(dp), ds, r, a); }});
    v.push_back({"411ToBGR_P3C4R", In::Sub411, Out::Pix4, true, false, false, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u a) { return zebiYCbCr411ToBGR_JPEG_8u_P3C4R(sp, ss, d0(dp), ds, r, a); }});
    v.push_back({"422ToRGB_C2C3R", In::C2, Out::Pix3, false, false, true, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCbCr422ToRGB_JPEG_8u_C2C3R(s0(sp), st0(ss), d0(dp), ds, r); }});
    v.push_back({"YCCK_P4C4R", In::P4, Out::Pix4, false, true, true, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCCKToCMYK_JPEG_8u_P4C4R(sp, st0(ss), d0(dp), ds, r); }});
    v.push_back({"YCCK_P4R", In::P4, Out::Planes4, false, true, true, [=](SP sp, const int* ss, DP dp, int ds, ZebSize r, Zeb8u) { return zebiYCCKToCMYK_JPEG_8u_P4R(sp, st0(ss), dp, ds, r); }});
    return v;
}

bool isSub(In i) { return i == In::Sub422 || i == In::Sub411; }
int inPlanes(In i) { return i == In::C2 ? 1 : i == In::P4 ? 4 : 3; }
int outPlanes(Out o) { return o == Out::Planes3 ? 3 : o == Out::Planes4 ? 4 : 1; }
int outBytes(Out o) { return o == Out::Pix3 ? 3 : o == Out::Pix4 ? 4 : (o == Out::W555 || o == Out::W565) ? 2 : 1; }

ZebStatus expectedStatus(const Op& op, int w, int h) {
    if (op.in == In::Sub422 && (w & 1)) return zebStatusOddSize;
    if (op.in == In::Sub411 && ((w | h) & 1)) return zebStatusOddSize;
    return zebStatusOk;
}

struct Call {
    const Op& op;
    int w, h, ow, oh;  // region, and the extent that is written
    uint8_t alpha;
    std::vector<std::unique_ptr<Plane>> src, dst;
    std::vector<int> srcSteps;

    Call(const Op& o, int w_, int h_, int srcOff, int dstOff, uint8_t a = 0x3C) : op(o), w(w_), h(h_), alpha(a) {
        ow = isSub(op.in) ? w & ~1 : op.in == In::C2 ? (w + 1) & ~1 : w;
        oh = op.in == In::Sub411 ? h & ~1 : h;
        for (int p = 0; p < inPlanes(op.in); ++p) {
            int rw = w, rh = h, pad = 3;
            if (op.in == In::C2) rw = 2 * ow;
            if (isSub(op.in) && p) {
                rw = w / 2;
                if (op.in == In::Sub411) rh = h / 2;
                pad = 1 + 2 * p;  // planes of their own step
            }
            if (!isSub(op.in) && p) pad = src[0]->step - rw;
            src.push_back(std::make_unique<Plane>(rw, rh, (srcOff + 3 * p) % 64, pad));
            src.back()->randomise();
            srcSteps.push_back(src.back()->step);
        }
        for (int p = 0; p < outPlanes(op.out); ++p)
            dst.push_back(std::make_unique<Plane>(ow * outBytes(op.out), oh < 1 ? 1 : h, (dstOff + 9 * p) % 64, 6));
    }
    ZebStatus call() {
        const Zeb8u* sp[4] = {};
        Zeb8u* dp[4] = {};
        for (size_t p = 0; p < src.size(); ++p) sp[p] = src[p]->data();
        for (size_t p = 0; p < dst.size(); ++p) dp[p] = dst[p]->data();
        return op.call(sp, srcSteps.data(), dp, dst[0]->step, ZebSize{w, h}, alpha);
    }
    // The expected output bytes of pixel (x, y), by the form the pixel gets.
    void expected(int x, int y, uint8_t out[4]) {
        auto s = [&](int p, int xx, int yy) { return static_cast<int>(src[p]->row(yy)[xx]); };
        const int nb4 = w & ~3, nb8 = w & ~7;
        Rgb c{};
        if (op.in == In::C2) {
            const int px = x & ~1;
            const int yv = s(0, 2 * px + 2 * (x & 1), y), cb = s(0, 2 * px + 1, y), cr = s(0, 2 * px + 3, y);
            c = x < nb8 ? pairApply(yv, pairTerms(cb, cr)) : invTable(yv, cb, cr);
        } else if (isSub(op.in)) {
            const int cy = op.in == In::Sub411 ? y / 2 : y;
            c = invHigh(s(0, x, y), s(1, x / 2, cy), s(2, x / 2, cy));
        } else if (op.out == Out::Pix4 && op.in == In::P3) {
            c = invHigh(s(0, x, y), s(1, x, y), s(2, x, y));
        } else if (op.out == Out::Pix3) {
            c = x < nb4 ? invPixel(s(0, x, y), s(1, x, y), s(2, x, y)) : invTable(s(0, x, y), s(1, x, y), s(2, x, y));
        } else {
            c = x < nb4 ? invPlane(s(0, x, y), s(1, x, y), s(2, x, y)) : invTable(s(0, x, y), s(1, x, y), s(2, x, y));
        }
        if (op.in == In::P4) {
            out[0] = 255 - c.r;
            out[1] = 255 - c.g;
            out[2] = 255 - c.b;
            out[3] = static_cast<uint8_t>(s(3, x, y));
            return;
        }
        const int lo = op.bgr ? c.b : c.r, hi = op.bgr ? c.r : c.b;
        if (op.out == Out::W555 || op.out == Out::W565) {
            uint16_t word = op.out == Out::W555 ? pack555(lo, c.g, hi) : pack565(lo, c.g, hi);
            out[0] = static_cast<uint8_t>(word);
            out[1] = static_cast<uint8_t>(word >> 8);
            return;
        }
        out[0] = static_cast<uint8_t>(lo);
        out[1] = c.g;
        out[2] = static_cast<uint8_t>(hi);
        out[3] = alpha;
    }
    void check(const std::string& where) {
        for (int y = 0; y < dst[0]->rows; ++y)
            for (int x = 0; x < ow; ++x) {
                uint8_t e[4];
                const bool written = y < oh;
                if (written) expected(x, y, e);
                for (size_t p = 0; p < dst.size(); ++p)
                    for (int k = 0; k < outBytes(op.out); ++k) {
                        const uint8_t got = dst[p]->row(y)[x * outBytes(op.out) + k];
                        const uint8_t want = !written ? zebtest::kSentinel : dst.size() > 1 ? e[p] : e[k];
                        ASSERT_EQ(got, want) << op.name << " " << where << " x " << x << " y " << y << " byte " << k << " plane " << p;
                    }
            }
        for (auto& d : dst) ASSERT_TRUE(d->onlyRowsWritten()) << op.name << " " << where;
    }
};

// ---------------------------------------------------------------- argument checks

TEST(ColourInvChecks, OrderAndMinimumSizesForEveryExport) {
    alignas(64) static uint8_t buf[8][4096];
    for (const Op& op : ops()) {
        SCOPED_TRACE(op.name);
        const int minW = isSub(op.in) ? 2 : 1, minH = op.in == In::Sub411 ? 2 : 1;
        std::memset(buf, 0x5A, sizeof buf);
        const Zeb8u* sp[4] = {buf[0], buf[1], buf[2], buf[3]};
        Zeb8u* dp[4] = {buf[4], buf[5], buf[6], buf[7]};
        int steps[3] = {64, 64, 64}, zero[3] = {0, 0, 0};
        const int ns = inPlanes(op.in), nd = outPlanes(op.out);
        EXPECT_EQ(op.call(nullptr, zero, dp, 0, ZebSize{0, 0}, 0), zebStatusNullPointer);
        EXPECT_EQ(op.call(sp, zero, nullptr, 0, ZebSize{0, 0}, 0), zebStatusNullPointer);
        for (int p = 0; p < ns; ++p) {
            const Zeb8u* s2[4] = {sp[0], sp[1], sp[2], sp[3]};
            s2[p] = nullptr;
            EXPECT_EQ(op.call(s2, zero, dp, 0, ZebSize{0, 0}, 0), zebStatusNullPointer) << "src plane " << p;
        }
        for (int p = 0; p < nd; ++p) {
            Zeb8u* d2[4] = {dp[0], dp[1], dp[2], dp[3]};
            d2[p] = nullptr;
            EXPECT_EQ(op.call(sp, zero, d2, 0, ZebSize{0, 0}, 0), zebStatusNullPointer) << "dst plane " << p;
        }
        const ZebStatus stepOrSize = op.stepsTested ? zebStatusBadStep : zebStatusBadSize;
        EXPECT_EQ(op.call(sp, zero, dp, 64, ZebSize{0, 0}, 0), stepOrSize);
        EXPECT_EQ(op.call(sp, steps, dp, 0, ZebSize{0, 0}, 0), stepOrSize);
        if (op.stepsTested) EXPECT_EQ(op.call(sp, steps, dp, -1, ZebSize{minW, minH}, 0), zebStatusBadStep);
        if (isSub(op.in)) EXPECT_EQ(op.call(sp, nullptr, dp, 64, ZebSize{minW - 1, minH}, 0), zebStatusBadSize);
        EXPECT_EQ(op.call(sp, steps, dp, 64, ZebSize{minW - 1, minH}, 0), zebStatusBadSize);
        EXPECT_EQ(op.call(sp, steps, dp, 64, ZebSize{minW, minH - 1}, 0), zebStatusBadSize);
        EXPECT_EQ(op.call(sp, steps, dp, 64, ZebSize{3, -1}, 0), zebStatusBadSize);
        for (int i = 4; i < 8; ++i)
            for (int j = 0; j < 4096; ++j) ASSERT_EQ(buf[i][j], 0x5A) << "a failed call wrote";
        EXPECT_EQ(op.call(sp, steps, dp, 64, ZebSize{minW, minH}, 0), zebStatusOk);
    }
}

// ---------------------------------------------------------------- worked numbers

TEST(ColourInvValues, GreyIsGreyInEveryFormButThePairForm) {
    for (auto f : {invPlane, invPixel, invTable, invHigh}) {
        Rgb c = f(128, 128, 128);
        EXPECT_EQ(c.r, 128);
        EXPECT_EQ(c.g, 128);
        EXPECT_EQ(c.b, 128);
    }
    Rgb p = pairApply(128, pairTerms(128, 128));
    EXPECT_EQ(p.r, 128);
    EXPECT_EQ(p.g, 127);
    EXPECT_EQ(p.b, 128);
    // Every export on a grey image.
    for (const Op& op : ops()) {
        Call c(op, 21, 3, 0, 0);
        for (auto& s : c.src) s->fill(128);
        ASSERT_EQ(c.call(), expectedStatus(op, 21, 3));
        for (int x = 0; x < c.ow; ++x) {
            const uint8_t* px = c.dst[0]->row(0) + x * outBytes(op.out);
            if (op.out == Out::Pix3 || op.out == Out::Pix4 || op.out == Out::Planes3) {
                const int want = op.in == In::C2 && x < 16 ? 127 : 128;
                if (op.out == Out::Planes3) {
                    EXPECT_EQ(c.dst[1]->row(0)[x], 128) << op.name;
                } else if (op.in != In::P4) {
                    EXPECT_EQ(px[0], 128) << op.name << " x " << x;
                    EXPECT_EQ(px[1], want) << op.name << " x " << x;
                    EXPECT_EQ(px[2], 128) << op.name << " x " << x;
                }
            }
        }
    }
}

TEST(ColourInvValues, ClampAtBothEnds) {
    for (auto f : {invPlane, invPixel, invTable, invHigh}) {
        EXPECT_EQ(f(255, 128, 255).r, 255);
        EXPECT_EQ(f(0, 128, 0).r, 0);
        EXPECT_EQ(f(255, 255, 128).b, 255);
        EXPECT_EQ(f(0, 0, 128).b, 0);
    }
    EXPECT_EQ(pairApply(255, pairTerms(128, 255)).r, 255);
    EXPECT_EQ(pairApply(0, pairTerms(128, 0)).r, 0);
}

TEST(ColourInvValues, FiveWidePixelRowTakesTheTableFormLast) {
    // Find inputs where the pixel and table forms differ, then place them in
    // columns 0-3 and 4.
    int fy = -1, fb = 0, fr = 0;
    for (int yv = 0; yv < 256 && fy < 0; ++yv)
        for (int cb = 0; cb < 256 && fy < 0; cb += 3)
            for (int cr = 0; cr < 256; cr += 5) {
                Rgb a = invPixel(yv, cb, cr), b = invTable(yv, cb, cr);
                if (a.r != b.r || a.g != b.g || a.b != b.b) { fy = yv; fb = cb; fr = cr; break; }
            }
    ASSERT_GE(fy, 0);
    uint8_t py[5], pb[5], pr[5], out[15];
    std::memset(py, fy, 5); std::memset(pb, fb, 5); std::memset(pr, fr, 5);
    const Zeb8u* src[3] = {py, pb, pr};
    ASSERT_EQ(zebiYCbCrToRGB_JPEG_8u_P3C3R(src, 5, out, 15, ZebSize{5, 1}), 0);
    Rgb a = invPixel(fy, fb, fr), b = invTable(fy, fb, fr);
    for (int x = 0; x < 4; ++x) { EXPECT_EQ(out[3 * x], a.r); EXPECT_EQ(out[3 * x + 1], a.g); EXPECT_EQ(out[3 * x + 2], a.b); }
    EXPECT_EQ(out[12], b.r); EXPECT_EQ(out[13], b.g); EXPECT_EQ(out[14], b.b);
}

TEST(ColourInvValues, YcckWhiteGivesNoInkAndKeepsK) {
    uint8_t y[6], cb[6], cr[6], k[6], planes[4][6], pix[24];
    std::memset(y, 255, 6); std::memset(cb, 128, 6); std::memset(cr, 128, 6); std::memset(k, 7, 6);
    const Zeb8u* src[4] = {y, cb, cr, k};
    Zeb8u* dst[4] = {planes[0], planes[1], planes[2], planes[3]};
    ASSERT_EQ(zebiYCCKToCMYK_JPEG_8u_P4R(src, 6, dst, 6, ZebSize{6, 1}), 0);
    ASSERT_EQ(zebiYCCKToCMYK_JPEG_8u_P4C4R(src, 6, pix, 24, ZebSize{6, 1}), 0);
    for (int x = 0; x < 6; ++x) {
        EXPECT_EQ(planes[0][x], 0); EXPECT_EQ(planes[1][x], 0); EXPECT_EQ(planes[2][x], 0); EXPECT_EQ(planes[3][x], 7);
        EXPECT_EQ(pix[4 * x], 0); EXPECT_EQ(pix[4 * x + 1], 0); EXPECT_EQ(pix[4 * x + 2], 0); EXPECT_EQ(pix[4 * x + 3], 7);
    }
}

TEST(ColourInvValues, PackedLayouts) {
    // Pure colours through the 565 and 555 layouts.
    uint8_t y[4] = {76, 150, 29, 255}, cb[4] = {85, 44, 255, 128}, cr[4] = {255, 21, 107, 128};
    const Zeb8u* src[3] = {y, cb, cr};
    uint16_t w[4];
    ASSERT_EQ(zebiYCbCrToRGB565_JPEG_8u16u_P3C3R(src, 4, w, 8, ZebSize{4, 1}), 0);
    for (int x = 0; x < 4; ++x) {
        Rgb c = invPlane(y[x], cb[x], cr[x]);
        EXPECT_EQ(w[x], (c.r >> 3) | ((c.g >> 2) << 5) | ((c.b >> 3) << 11));
    }
    EXPECT_EQ(w[3], 0xFFFF);
    ASSERT_EQ(zebiYCbCrToBGR555_JPEG_8u16u_P3C3R(src, 4, w, 8, ZebSize{4, 1}), 0);
    for (int x = 0; x < 4; ++x) {
        Rgb c = invPlane(y[x], cb[x], cr[x]);
        EXPECT_EQ(w[x], (c.b >> 3) | ((c.g >> 3) << 5) | ((c.r >> 3) << 10));
    }
    EXPECT_EQ(w[3], 0x7FFF);  // bit 15 stays 0
}

TEST(ColourInvOddSizes, SubsampledAndInterleaved) {
    for (const Op& op : ops()) {
        if (!isSub(op.in) && op.in != In::C2) continue;
        for (auto [w, h] : {std::pair{3, 3}, std::pair{2, 2}, std::pair{17, 5}, std::pair{25, 4}, std::pair{9, 1}}) {
            if (op.in == In::Sub411 && h < 2) continue;
            Call c(op, w, h, 2, 7);
            ASSERT_EQ(c.call(), expectedStatus(op, w, h)) << op.name << " " << w << "x" << h;
            c.check(std::to_string(w) + "x" + std::to_string(h));
        }
    }
}

TEST(ColourInvOddSizes, AlphaInEveryFourthByte) {
    for (const Op& op : ops()) {
        if (op.out != Out::Pix4 || op.in == In::P4) continue;
        Call c(op, 19, 2, 1, 3, 0xE7);
        ASSERT_EQ(c.call(), expectedStatus(op, 19, 2));
        for (int x = 0; x < c.ow; ++x) EXPECT_EQ(c.dst[0]->row(1)[4 * x + 3], 0xE7) << op.name << " x " << x;
    }
}

// ---------------------------------------------------------------- every export against the reference

TEST(ColourInvRows, EveryWidthAndMisalignedPlanes) {
    for (const Op& op : ops()) {
        for (int w : colourtest::testWidths()) {
            if (w < 2 && isSub(op.in)) continue;
            const int h = op.in == In::Sub411 ? 4 : 2;
            for (int off : {0, 1, 6, 8}) {
                Call c(op, w, h, off, (off * 3 + 5) % 16);
                ASSERT_EQ(c.call(), expectedStatus(op, w, h)) << op.name << " w " << w;
                c.check("w " + std::to_string(w) + " off " + std::to_string(off));
                if (HasFatalFailure()) return;
            }
        }
    }
}

TEST(ColourInvRows, AlignedPlanesAndStepsGiveTheSameBytes) {
    for (const Op& op : ops()) {
        if (op.threaded) continue;
        for (int w : {16, 32, 48, 72, 200}) {
            const int h = 4;
            Call a(op, w, h, 0, 0);
            for (size_t p = 0; p < a.src.size(); ++p) {
                auto& s = a.src[p];
                int step16 = ((isSub(op.in) ? s->rowBytes : a.src[0]->rowBytes) + 15) & ~15;
                s = std::make_unique<Plane>(s->rowBytes, s->rows, 0, step16 - s->rowBytes);
                s->randomise();
                a.srcSteps[p] = s->step;
            }
            for (auto& d : a.dst) d = std::make_unique<Plane>(d->rowBytes, d->rows, 0, ((d->rowBytes + 15) & ~15) - d->rowBytes + 16);
            ASSERT_EQ(a.call(), 0);
            a.check("aligned w " + std::to_string(w));
        }
    }
}

// ---------------------------------------------------------------- vector kernels against scalar twins

TEST(ColourInvKernels, VectorMatchesScalarTwin) {
    alignas(64) uint8_t in[3][200], outV[4][400], outS[4][400];
    for (int n = 1; n <= 80; ++n) {
        for (int off = 0; off < 4; ++off) {
            for (auto& p : in) zebtest::fillRandom(p, sizeof p, 0, 255);
            const uint8_t *y = in[0] + off, *cb = in[1] + (off ^ 1), *cr = in[2] + 3;
            auto run = [&](const char* what, auto&& vec, auto&& sca) {
                std::memset(outV, 1, sizeof outV);
                std::memset(outS, 1, sizeof outS);
                vec(outV);
                sca(outS);
                ASSERT_EQ(0, std::memcmp(outV, outS, sizeof outV)) << what << " n " << n << " off " << off;
            };
            auto planes = [&](uint8_t (&o)[4][400]) { return std::array<uint8_t*, 3>{o[0] + off, o[1] + off, o[2] + off}; };
            for (bool inv : {false, true})
                run("plane", [&](auto& o) { rowInvPlaneVec(y, cb, cr, planes(o).data(), n, inv); },
                    [&](auto& o) { rowInvPlaneScalar(y, cb, cr, planes(o).data(), n, inv); });
            for (Order ord : {kRGB, kBGR}) {
                run("pixel", [&](auto& o) { rowInvPixelVec(y, cb, cr, o[0] + off, n, ord); },
                    [&](auto& o) { rowInvPixelScalar(y, cb, cr, o[0] + off, n, ord); });
                for (bool is565 : {false, true})
                    run("packed", [&](auto& o) { rowInvPackedVec(y, cb, cr, reinterpret_cast<uint16_t*>(o[0] + 2 * off), n, is565, ord); },
                        [&](auto& o) { rowInvPackedScalar(y, cb, cr, reinterpret_cast<uint16_t*>(o[0] + 2 * off), n, is565, ord); });
                for (int sub : {1, 2})
                    for (int P : {3, 4}) {
                        if (sub == 2 && (n & 1)) continue;
                        run("high", [&](auto& o) { rowInvHighVec(y, cb, cr, o[0] + off, n, sub, P, ord, 0x99, false); },
                            [&](auto& o) { rowInvHighScalar(y, cb, cr, o[0] + off, n, sub, P, ord, 0x99); });
                    }
            }
            run("ycck pixels", [&](auto& o) { rowYcckPixVec(y, cb, cr, in[0] + 7, o[0] + off, n); },
                [&](auto& o) { rowYcckPixScalar(y, cb, cr, in[0] + 7, o[0] + off, n); });
            if (n % 8 == 0)
                run("pair", [&](auto& o) { rowPairVec(in[0] + off, o[0] + off, n); },
                    [&](auto& o) { rowPairScalar(in[0] + off, o[0] + off, n); });
        }
    }
}

// Every (Cb, Cr) pair, each with a few luma values, through the 32-pixel
// steps: the one-multiply red and blue offsets must hold for every sample.
TEST(ColourInvKernels, EveryChromaPairMatchesScalar) {
    const int n = 65536;
    std::vector<uint8_t> y(n), cb(n), cr(n), v3(3 * n), s3(3 * n), vp[3], sp[3];
    for (auto* p : {vp, sp})
        for (int c = 0; c < 3; ++c) p[c].assign(n, 0);
    for (int i = 0; i < n; ++i) {
        cb[i] = static_cast<uint8_t>(i);
        cr[i] = static_cast<uint8_t>(i >> 8);
    }
    for (int luma : {0, 1, 16, 128, 235, 254, 255, -1}) {
        if (luma < 0) zebtest::fillRandom(y.data(), n, 0, 255);
        else std::fill(y.begin(), y.end(), static_cast<uint8_t>(luma));
        for (Order ord : {kRGB, kBGR}) {
            rowInvPixelVec(y.data(), cb.data(), cr.data(), v3.data(), n, ord);
            rowInvPixelScalar(y.data(), cb.data(), cr.data(), s3.data(), n, ord);
            ASSERT_EQ(v3, s3) << "pixel, luma " << luma;
            for (bool is565 : {false, true}) {
                uint16_t* wv = reinterpret_cast<uint16_t*>(v3.data());
                uint16_t* ws = reinterpret_cast<uint16_t*>(s3.data());
                rowInvPackedVec(y.data(), cb.data(), cr.data(), wv, n, is565, ord);
                rowInvPackedScalar(y.data(), cb.data(), cr.data(), ws, n, is565, ord);
                ASSERT_EQ(v3, s3) << (is565 ? "565" : "555") << ", luma " << luma;
            }
        }
        for (bool inv : {false, true}) {
            uint8_t* const dv[3] = {vp[0].data(), vp[1].data(), vp[2].data()};
            uint8_t* const ds[3] = {sp[0].data(), sp[1].data(), sp[2].data()};
            rowInvPlaneVec(y.data(), cb.data(), cr.data(), dv, n, inv);
            rowInvPlaneScalar(y.data(), cb.data(), cr.data(), ds, n, inv);
            for (int c = 0; c < 3; ++c) ASSERT_EQ(vp[c], sp[c]) << "plane " << c << ", luma " << luma;
        }
    }
}

// ---------------------------------------------------------------- threading

TEST(ColourInvThreads, ThresholdWithOneAndSeveralThreads) {
    for (const Op& op : ops()) {
        if (!op.threaded) continue;
        for (auto [w, h] : {std::pair{8192, 1}, std::pair{8193, 1}, std::pair{128, 64}, std::pair{37, 223}}) {
            for (int threads : {1, 4}) {
                zebtest::ThreadCount tc(threads);
                Call c(op, w, h, 2, 1);
                ASSERT_EQ(c.call(), 0);
                c.check(std::to_string(w) + "x" + std::to_string(h) + " threads " + std::to_string(threads));
                if (HasFatalFailure()) return;
            }
        }
    }
}

}  // namespace
