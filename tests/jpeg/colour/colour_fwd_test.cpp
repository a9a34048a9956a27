// Forward colour conversion: argument checks, the worked numbers, which form
// each pixel gets, odd sizes, vector kernels against their scalar twins, and
// the threading threshold.
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

// ---------------------------------------------------------------- operations under test

enum class Src { C3, C4, P3, P4, W555, W565 };
enum class Kind { Y, Ycc, Ycc422, Ycc411, Ycck };

struct Op {
    std::string name;
    Src src;
    Kind kind;
    bool bgr;
    bool stepsTested;
    bool threaded;
    // Calls the operation on planes and steps prepared by the test.
    std::function<ZebStatus(const Zeb8u* s, const Zeb8u* const* sp, int sStep, Zeb8u* const* dp, const int* dSteps,
                            ZebSize roi)>
        call;
};

std::vector<Op> ops() {
    using P = const Zeb8u* const*;
    std::vector<Op> v;
    auto d1 = [](Zeb8u* const* dp) { return dp ? dp[0] : nullptr; };
    v.push_back({"RGBToY_C3C1", Src::C3, Kind::Y, false, true, true, [=](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToY_JPEG_8u_C3C1R(s, ss, d1(dp), ds[0], r); }});
    v.push_back({"BGRToY_C3C1", Src::C3, Kind::Y, true, true, true, [=](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGRToY_JPEG_8u_C3C1R(s, ss, d1(dp), ds[0], r); }});
    v.push_back({"RGBToY_P3C1", Src::P3, Kind::Y, false, true, true, [=](auto, P sp, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToY_JPEG_8u_P3C1R(sp, ss, d1(dp), ds[0], r); }});
    v.push_back({"RGBToYCbCr_C3P3", Src::C3, Kind::Ycc, false, true, true, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToYCbCr_JPEG_8u_C3P3R(s, ss, dp, ds[0], r); }});
    v.push_back({"BGRToYCbCr_C3P3", Src::C3, Kind::Ycc, true, true, true, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGRToYCbCr_JPEG_8u_C3P3R(s, ss, dp, ds[0], r); }});
    v.push_back({"RGBToYCbCr_P3", Src::P3, Kind::Ycc, false, true, true, [](auto, P sp, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToYCbCr_JPEG_8u_P3R(sp, ss, dp, ds[0], r); }});
    v.push_back({"RGBToYCbCr_C4P3", Src::C4, Kind::Ycc, false, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToYCbCr_JPEG_8u_C4P3R(s, ss, dp, ds[0], r); }});
    v.push_back({"BGRToYCbCr_C4P3", Src::C4, Kind::Ycc, true, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGRToYCbCr_JPEG_8u_C4P3R(s, ss, dp, ds[0], r); }});
    auto w16 = [](const Zeb8u* s) { return reinterpret_cast<const Zeb16u*>(s); };
    v.push_back({"RGB555", Src::W555, Kind::Ycc, false, true, false, [=](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGB555ToYCbCr_JPEG_16u8u_C3P3R(w16(s), ss, dp, ds[0], r); }});
    v.push_back({"BGR555", Src::W555, Kind::Ycc, true, true, false, [=](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGR555ToYCbCr_JPEG_16u8u_C3P3R(w16(s), ss, dp, ds[0], r); }});
    v.push_back({"RGB565", Src::W565, Kind::Ycc, false, true, false, [=](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGB565ToYCbCr_JPEG_16u8u_C3P3R(w16(s), ss, dp, ds[0], r); }});
    v.push_back({"BGR565", Src::W565, Kind::Ycc, true, true, false, [=](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGR565ToYCbCr_JPEG_16u8u_C3P3R(w16(s), ss, dp, ds[0], r); }});
    v.push_back({"RGB422_C3", Src::C3, Kind::Ycc422, false, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToYCbCr422_JPEG_8u_C3P3R(s, ss, dp, ds, r); }});
    v.push_back({"BGR422_C3", Src::C3, Kind::Ycc422, true, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGRToYCbCr422_JPEG_8u_C3P3R(s, ss, dp, ds, r); }});
    v.push_back({"RGB422_C4", Src::C4, Kind::Ycc422, false, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToYCbCr422_JPEG_8u_C4P3R(s, ss, dp, ds, r); }});
    v.push_back({"BGR422_C4", Src::C4, Kind::Ycc422, true, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGRToYCbCr422_JPEG_8u_C4P3R(s, ss, dp, ds, r); }});
    v.push_back({"RGB411_C3", Src::C3, Kind::Ycc411, false, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToYCbCr411_JPEG_8u_C3P3R(s, ss, dp, ds, r); }});
    v.push_back({"BGR411_C3", Src::C3, Kind::Ycc411, true, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGRToYCbCr411_JPEG_8u_C3P3R(s, ss, dp, ds, r); }});
    v.push_back({"RGB411_C4", Src::C4, Kind::Ycc411, false, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiRGBToYCbCr411_JPEG_8u_C4P3R(s, ss, dp, ds, r); }});
    v.push_back({"BGR411_C4", Src::C4, Kind::Ycc411, true, false, false, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiBGRToYCbCr411_JPEG_8u_C4P3R(s, ss, dp, ds, r); }});
    v.push_back({"CMYK_C4P4", Src::C4, Kind::Ycck, false, true, true, [](auto s, P, int ss, auto dp, auto ds, ZebSize r) { return zebiCMYKToYCCK_JPEG_8u_C4P4R(s, ss, dp, ds[0], r); }});
    v.push_back({"CMYK_P4", Src::P4, Kind::Ycck, false, true, true, [](auto, P sp, int ss, auto dp, auto ds, ZebSize r) { return zebiCMYKToYCCK_JPEG_8u_P4R(sp, ss, dp, ds[0], r); }});
    return v;
}

int srcPlanes(Src s) { return s == Src::P3 ? 3 : s == Src::P4 ? 4 : 1; }
int srcBytes(Src s) { return s == Src::C3 ? 3 : s == Src::C4 ? 4 : (s == Src::W555 || s == Src::W565) ? 2 : 1; }
int dstPlanes(Kind k) { return k == Kind::Y ? 1 : k == Kind::Ycck ? 4 : 3; }

// ---------------------------------------------------------------- the reference: which form each pixel gets

// Colour of source pixel (x, y), after unpacking and inversion.
struct Image {
    Src src;
    bool bgr, invert;
    std::vector<Plane*> planes;
    void rgb(int x, int y, int& r, int& g, int& b) const {
        if (src == Src::P3 || src == Src::P4) {
            r = planes[0]->row(y)[x];
            g = planes[1]->row(y)[x];
            b = planes[2]->row(y)[x];
        } else if (src == Src::W555 || src == Src::W565) {
            const uint8_t* p = planes[0]->row(y) + 2 * x;
            uint16_t w = static_cast<uint16_t>(p[0] | (p[1] << 8));
            int lo, mid, hi;
            src == Src::W555 ? unpack555(w, lo, mid, hi) : unpack565(w, lo, mid, hi);
            r = bgr ? hi : lo;
            g = mid;
            b = bgr ? lo : hi;
            return;
        } else {
            const uint8_t* p = planes[0]->row(y) + srcBytes(src) * x;
            r = p[bgr ? 2 : 0];
            g = p[1];
            b = p[bgr ? 0 : 2];
        }
        if (invert) {
            r = 255 - r;
            g = 255 - g;
            b = 255 - b;
        }
    }
};

struct Expected {
    int w, h, cw, ch;  // luma and chroma extents written
    std::vector<uint8_t> planes[4];
};

Expected reference(const Op& op, const Image& img, int w, int h) {
    Expected e;
    const bool sub = op.kind == Kind::Ycc422 || op.kind == Kind::Ycc411;
    e.w = sub ? w & ~1 : w;
    e.h = op.kind == Kind::Ycc411 ? h & ~1 : h;
    e.cw = sub ? e.w / 2 : e.w;
    e.ch = op.kind == Kind::Ycc411 ? e.h / 2 : e.h;
    for (int p = 0; p < 4; ++p) e.planes[p].assign(static_cast<size_t>(w) * h, 0);
    const int nb8 = w & ~7, nb4 = w & ~3;
    if (sub) {
        const int rows = op.kind == Kind::Ycc411 ? 2 : 1;
        for (int cy = 0; cy < e.ch; ++cy)
            for (int x = 0; x < e.w; x += 2) {
                int sr = 0, sg = 0, sb = 0;
                for (int k = 0; k < rows; ++k)
                    for (int j = 0; j < 2; ++j) {
                        int r, g, b;
                        img.rgb(x + j, cy * rows + k, r, g, b);
                        e.planes[0][static_cast<size_t>(cy * rows + k) * w + x + j] = x < nb8 ? yHigh(r, g, b) : y14(r, g, b);
                        sr += r;
                        sg += g;
                        sb += b;
                    }
                uint8_t cb, cr;
                if (x < nb8) {
                    cb = cbHigh(sr, sg, sb, rows == 2 ? 11 : 10);
                    cr = crHigh(sr, sg, sb, rows == 2 ? 11 : 10);
                } else if (rows == 2) {
                    cb = cbSum4(sr, sg, sb);
                    cr = crSum4(sr, sg, sb);
                } else {
                    cb = cbSum2(sr, sg, sb);
                    cr = crSum2(sr, sg, sb);
                }
                e.planes[1][static_cast<size_t>(cy) * w + x / 2] = cb;
                e.planes[2][static_cast<size_t>(cy) * w + x / 2] = cr;
            }
        return e;
    }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int r, g, b;
            img.rgb(x, y, r, g, b);
            Ycc c{};
            if (op.name == "RGBToY_C3C1" || op.name == "BGRToY_C3C1") c.y = y15(r, g, b);
            else if (op.name == "RGBToY_P3C1") c.y = x < nb4 ? yFloat(r, g, b) : yTable(r, g, b);
            else if (op.src == Src::C3) c = x < nb8 ? fwd15(r, g, b) : fwd14(r, g, b);
            else if (op.name == "RGBToYCbCr_P3" || op.name == "CMYK_P4") c = x < nb4 ? fwdDiff(r, g, b) : fwdTable(r, g, b);
            else if (op.kind == Kind::Ycck) c = fwd14(r, g, b);
            else if (op.src == Src::C4) c = x < nb8 ? fwdHigh(r, g, b) : fwdC4(r, g, b);
            else c = fwd14(r, g, b);  // packed words
            const size_t i = static_cast<size_t>(y) * w + x;
            e.planes[0][i] = c.y;
            e.planes[1][i] = c.cb;
            e.planes[2][i] = c.cr;
            if (op.kind == Kind::Ycck)
                e.planes[3][i] = op.src == Src::P4 ? img.planes[3]->row(y)[x] : img.planes[0]->row(y)[4 * x + 3];
        }
    return e;
}

// One call of an operation on random (or given) input, checked against the reference.
struct Call {
    const Op& op;
    int w, h;
    std::vector<std::unique_ptr<Plane>> src, dst;
    std::vector<int> dstSteps;

    Call(const Op& o, int w_, int h_, int srcOff, int dstOff) : op(o), w(w_), h(h_) {
        for (int p = 0; p < srcPlanes(op.src); ++p) {
            // Planes of one source share its step.
            src.push_back(std::make_unique<Plane>(w * srcBytes(op.src), h, (srcOff + 5 * p) % 64, 3));
            src.back()->randomise();
        }
        const bool sub = op.kind == Kind::Ycc422 || op.kind == Kind::Ycc411;
        for (int p = 0; p < dstPlanes(op.kind); ++p) {
            int rw = p && sub ? w / 2 : w, rh = p && op.kind == Kind::Ycc411 ? h / 2 : h;
            // Planes with one step share it; the sub-sampled operations get one per plane.
            const int pad = sub ? 2 + 3 * p : p ? dst[0]->step - rw : 4;
            dst.push_back(std::make_unique<Plane>(rw < 1 ? 1 : rw, rh < 1 ? 1 : rh, (dstOff + 7 * p) % 64, pad));
            dstSteps.push_back(dst.back()->step);
        }
    }
    ZebStatus call() {
        const Zeb8u* sp[4] = {};
        Zeb8u* dp[4] = {};
        for (size_t p = 0; p < src.size(); ++p) sp[p] = src[p]->data();
        for (size_t p = 0; p < dst.size(); ++p) dp[p] = dst[p]->data();
        return op.call(sp[0], sp, src[0]->step, dp, dstSteps.data(), ZebSize{w, h});
    }
    Image image() const {
        Image img{op.src, op.bgr, op.kind == Kind::Ycck, {}};
        for (auto& p : src) img.planes.push_back(p.get());
        return img;
    }
    // Compares every written sample and checks that nothing else was touched.
    void check(const std::string& where) {
        Expected e = reference(op, image(), w, h);
        for (size_t p = 0; p < dst.size(); ++p) {
            const int rw = p && p < 3 ? e.cw : e.w, rh = p && p < 3 ? e.ch : e.h;
            Plane& d = *dst[p];
            for (int y = 0; y < d.rows; ++y)
                for (int x = 0; x < d.rowBytes; ++x) {
                    if (x < rw && y < rh)
                        ASSERT_EQ(d.row(y)[x], e.planes[p][static_cast<size_t>(y) * w + x])
                            << op.name << " " << where << " plane " << p << " x " << x << " y " << y;
                    else
                        ASSERT_EQ(d.row(y)[x], zebtest::kSentinel) << op.name << " " << where << " unwritten " << p << " x " << x << " y " << y;
                }
            ASSERT_TRUE(d.onlyRowsWritten()) << op.name << " " << where << " plane " << p;
        }
    }
};

ZebStatus expectedStatus(const Op& op, int w, int h) {
    if (op.kind == Kind::Ycc422 && (w & 1)) return zebStatusOddSize;
    if (op.kind == Kind::Ycc411 && ((w | h) & 1)) return zebStatusOddSize;
    return zebStatusOk;
}

// ---------------------------------------------------------------- argument checks

TEST(ColourFwdChecks, OrderAndMinimumSizesForEveryExport) {
    alignas(64) static uint8_t buf[8][4096];
    for (const Op& op : ops()) {
        SCOPED_TRACE(op.name);
        const int minW = (op.kind == Kind::Ycc422 || op.kind == Kind::Ycc411) ? 2 : 1;
        const int minH = op.kind == Kind::Ycc411 ? 2 : 1;
        std::memset(buf, 0x5A, sizeof buf);
        const Zeb8u* sp[4] = {buf[0], buf[1], buf[2], buf[3]};
        Zeb8u* dp[4] = {buf[4], buf[5], buf[6], buf[7]};
        int steps[3] = {64, 64, 64}, zero[3] = {0, 0, 0};
        const int ns = srcPlanes(op.src), nd = dstPlanes(op.kind);
        auto call = [&](const Zeb8u* s, const Zeb8u* const* spp, int ss, Zeb8u* const* dpp, const int* ds, ZebSize r) {
            return op.call(s, spp, ss, dpp, ds, r);
        };
        // Pointers first, whatever else is wrong.
        EXPECT_EQ(call(ns == 1 ? nullptr : sp[0], ns == 1 ? sp : nullptr, 0, dp, zero, ZebSize{0, 0}), zebStatusNullPointer);
        EXPECT_EQ(call(sp[0], sp, 0, nullptr, zero, ZebSize{0, 0}), zebStatusNullPointer);
        for (int p = 0; p < ns && ns > 1; ++p) {
            const Zeb8u* s2[4] = {sp[0], sp[1], sp[2], sp[3]};
            s2[p] = nullptr;
            EXPECT_EQ(call(sp[0], s2, 0, dp, zero, ZebSize{0, 0}), zebStatusNullPointer) << "src plane " << p;
        }
        for (int p = 0; p < nd; ++p) {
            Zeb8u* d2[4] = {dp[0], dp[1], dp[2], dp[3]};
            d2[p] = nullptr;
            EXPECT_EQ(call(sp[0], sp, 0, d2, zero, ZebSize{0, 0}), zebStatusNullPointer) << "dst plane " << p;
        }
        // Steps next, where they are tested; otherwise the size decides.
        const ZebStatus stepOrSize = op.stepsTested ? zebStatusBadStep : zebStatusBadSize;
        EXPECT_EQ(call(sp[0], sp, 0, dp, steps, ZebSize{0, 0}), stepOrSize);
        EXPECT_EQ(call(sp[0], sp, 64, dp, zero, ZebSize{0, 0}), stepOrSize);
        EXPECT_EQ(call(sp[0], sp, -64, dp, steps, ZebSize{minW - 1, minH}), stepOrSize);
        if (!op.stepsTested && op.kind != Kind::Ycc && op.kind != Kind::Y)  // a null step array is not looked at
            EXPECT_EQ(call(sp[0], sp, 64, dp, nullptr, ZebSize{minW - 1, minH}), zebStatusBadSize);
        EXPECT_EQ(call(sp[0], sp, 64, dp, steps, ZebSize{minW - 1, minH}), zebStatusBadSize);
        EXPECT_EQ(call(sp[0], sp, 64, dp, steps, ZebSize{minW, minH - 1}), zebStatusBadSize);
        EXPECT_EQ(call(sp[0], sp, 64, dp, steps, ZebSize{-5, 3}), zebStatusBadSize);
        for (int i = 4; i < 8; ++i)
            for (int j = 0; j < 4096; ++j) ASSERT_EQ(buf[i][j], 0x5A) << "a failed call wrote";
        EXPECT_EQ(call(sp[0], sp, 64, dp, steps, ZebSize{minW, minH}), zebStatusOk);
        if (!op.stepsTested)  // untested steps: a zero step is used as given
            EXPECT_EQ(call(sp[0], sp, 0, dp, zero, ZebSize{minW, minH}), zebStatusOk);
    }
}

// ---------------------------------------------------------------- worked numbers

TEST(ColourFwdValues, FifteenBitBlocksAndFourteenBitTail) {
    struct Case { uint8_t r, g, b; int plane; uint8_t inBlock, inTail; };
    for (Case c : {Case{255, 255, 5, 0, 227, 226}, Case{255, 92, 254, 1, 181, 182}, Case{255, 254, 131, 2, 139, 138}}) {
        uint8_t src[27];
        for (int x = 0; x < 9; ++x) { src[3 * x] = c.r; src[3 * x + 1] = c.g; src[3 * x + 2] = c.b; }
        uint8_t planes[3][9];
        Zeb8u* dst[3] = {planes[0], planes[1], planes[2]};
        ASSERT_EQ(zebiRGBToYCbCr_JPEG_8u_C3P3R(src, 27, dst, 9, ZebSize{9, 1}), zebStatusOk);
        for (int x = 0; x < 8; ++x) EXPECT_EQ(planes[c.plane][x], c.inBlock) << "column " << x;
        EXPECT_EQ(planes[c.plane][8], c.inTail);
    }
}

TEST(ColourFwdValues, WhiteBlackAndGreyInEveryForm) {
    for (const Op& op : ops()) {
        for (int level : {0, 255}) {
            Call run(op, 29, 3, 0, 0);
            for (auto& p : run.src) p->fill(static_cast<uint8_t>(level));
            // Packed white is all field bits set; CMYK white is zero ink.
            if (op.src == Src::W555 || op.src == Src::W565) continue;
            const int want = op.kind == Kind::Ycck ? 255 - level : level;
            ASSERT_EQ(run.call(), expectedStatus(op, 29, 3));
            for (int y = 0; y < (op.kind == Kind::Ycc411 ? 2 : 3); ++y)
                for (int x = 0; x < (op.kind == Kind::Ycc422 || op.kind == Kind::Ycc411 ? 28 : 29); ++x)
                    ASSERT_EQ(run.dst[0]->row(y)[x], want) << op.name << " level " << level << " x " << x;
            for (size_t p = 1; p < 3 && p < run.dst.size(); ++p)
                for (int x = 0; x < run.dst[p]->rowBytes; ++x) ASSERT_EQ(run.dst[p]->row(0)[x], 128) << op.name << " " << p;
        }
    }
    // Packed white: every field at its top value, widened by a shift alone.
    uint16_t w555[12], w565[12];
    for (int i = 0; i < 12; ++i) { w555[i] = 0x7FFF; w565[i] = 0xFFFF; }
    uint8_t pl[3][12];
    Zeb8u* dst[3] = {pl[0], pl[1], pl[2]};
    ASSERT_EQ(zebiRGB555ToYCbCr_JPEG_16u8u_C3P3R(w555, 24, dst, 12, ZebSize{12, 1}), 0);
    EXPECT_EQ(pl[0][0], fwd14(248, 248, 248).y);
    EXPECT_EQ(pl[0][11], 248);
    ASSERT_EQ(zebiBGR565ToYCbCr_JPEG_16u8u_C3P3R(w565, 24, dst, 12, ZebSize{12, 1}), 0);
    EXPECT_EQ(pl[1][0], fwd14(248, 252, 248).cb);
    EXPECT_EQ(pl[0][5], fwd14(248, 252, 248).y);
}

TEST(ColourFwdValues, BlueAndRedClampAt255) {
    // Pure blue would give Cb 256 and pure red Cr 256 in these forms.
    EXPECT_EQ(fwd15(0, 0, 255).cb, 255);
    EXPECT_EQ(fwd14(0, 0, 255).cb, 255);
    EXPECT_EQ(fwdHigh(0, 0, 255).cb, 255);
    EXPECT_EQ(fwd15(255, 0, 0).cr, 255);
    EXPECT_EQ(fwd14(255, 0, 0).cr, 255);
    EXPECT_EQ(fwdHigh(255, 0, 0).cr, 255);
    EXPECT_EQ(cbSum2(0, 0, 510), 255);
    EXPECT_EQ(crSum4(1020, 0, 0), 255);
    EXPECT_EQ(cbHigh(0, 0, 510, 10), 255);
    EXPECT_EQ(crHigh(1020, 0, 0, 11), 255);
    // The table and four-channel forms reach 255 exactly, unclamped.
    EXPECT_EQ(fwdTable(0, 0, 255).cb, 255);
    EXPECT_EQ(fwdC4(0, 0, 255).cb, 255);
    EXPECT_EQ(fwdC4(255, 0, 0).cr, 255);
    // The difference form clamps both ways.
    EXPECT_EQ(fwdDiff(0, 0, 255).cb, 255);
    EXPECT_EQ(fwdDiff(255, 255, 0).cb, 0);
    // Through the exports: a blue row in blocks and tails of 4:2:2.
    uint8_t src[3 * 10];
    for (int x = 0; x < 10; ++x) { src[3 * x] = 0; src[3 * x + 1] = 0; src[3 * x + 2] = 255; }
    uint8_t y[10], cb[5], cr[5];
    Zeb8u* dst[3] = {y, cb, cr};
    const int steps[3] = {10, 5, 5};
    ASSERT_EQ(zebiRGBToYCbCr422_JPEG_8u_C3P3R(src, 30, dst, steps, ZebSize{10, 1}), 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(cb[i], 255);
}

TEST(ColourFwdValues, FloatYAndTableTail) {
    // Ties go to even: 0.5 -> 0 is not reachable with these constants, so
    // check the known rounding of a few values against the single-precision sum.
    EXPECT_EQ(yFloat(255, 255, 255), 255);
    EXPECT_EQ(yFloat(1, 0, 0), 0);   // 0.299
    EXPECT_EQ(yFloat(2, 0, 0), 1);   // 0.598
    EXPECT_EQ(yFloat(0, 0, 5), 1);   // 0.57
    // Width 7: float form on columns 0-3, table form on 4-6.
    uint8_t r[7], g[7], b[7], y[7];
    for (int x = 0; x < 7; ++x) { r[x] = static_cast<uint8_t>(37 * x + 11); g[x] = static_cast<uint8_t>(91 * x + 3); b[x] = static_cast<uint8_t>(53 * x + 200); }
    const Zeb8u* src[3] = {r, g, b};
    ASSERT_EQ(zebiRGBToY_JPEG_8u_P3C1R(src, 7, y, 7, ZebSize{7, 1}), 0);
    for (int x = 0; x < 7; ++x) EXPECT_EQ(y[x], x < 4 ? yFloat(r[x], g[x], b[x]) : yTable(r[x], g[x], b[x])) << x;
    // Pixels where the two forms differ: each goes in a float column and a table column.
    EXPECT_EQ(yFloat(0, 4, 168), 22);
    EXPECT_EQ(yTable(0, 4, 168), 21);
    EXPECT_EQ(yFloat(0, 22, 49), 18);
    EXPECT_EQ(yTable(0, 22, 49), 19);
    for (int x = 0; x < 7; ++x) { r[x] = 0; g[x] = x & 1 ? 22 : 4; b[x] = x & 1 ? 49 : 168; }
    ASSERT_EQ(zebiRGBToY_JPEG_8u_P3C1R(src, 7, y, 7, ZebSize{7, 1}), 0);
    const uint8_t want[7] = {22, 18, 22, 18, 21, 19, 21};
    for (int x = 0; x < 7; ++x) EXPECT_EQ(y[x], want[x]) << x;
}

TEST(ColourFwdOddSizes, SubsampledDropTheOddColumnAndRow) {
    for (const Op& op : ops()) {
        if (op.kind != Kind::Ycc422 && op.kind != Kind::Ycc411) continue;
        for (auto [w, h] : {std::pair{3, 3}, std::pair{2, 2}, std::pair{17, 5}, std::pair{25, 4}}) {
            Call run(op, w, h, 3, 9);
            ASSERT_EQ(run.call(), expectedStatus(op, w, h)) << op.name << " " << w << "x" << h;
            run.check(std::to_string(w) + "x" + std::to_string(h));  // the odd column/row stays unwritten
        }
    }
}

TEST(ColourFwdOddSizes, CmykPlanesWidthThreeCopiesK) {
    uint8_t c[3] = {0, 100, 255}, m[3] = {0, 50, 255}, yy[3] = {0, 25, 255}, k[3] = {7, 8, 9};
    uint8_t o[4][3];
    const Zeb8u* src[4] = {c, m, yy, k};
    Zeb8u* dst[4] = {o[0], o[1], o[2], o[3]};
    ASSERT_EQ(zebiCMYKToYCCK_JPEG_8u_P4R(src, 3, dst, 3, ZebSize{3, 1}), 0);
    for (int x = 0; x < 3; ++x) {
        Ycc e = fwdTable(255 - c[x], 255 - m[x], 255 - yy[x]);
        EXPECT_EQ(o[0][x], e.y);
        EXPECT_EQ(o[1][x], e.cb);
        EXPECT_EQ(o[2][x], e.cr);
        EXPECT_EQ(o[3][x], k[x]);
    }
    EXPECT_EQ(o[0][0], 255);
    EXPECT_EQ(o[0][2], 0);
}

// ---------------------------------------------------------------- every export against the reference

TEST(ColourFwdRows, EveryWidthAndMisalignedPlanes) {
    for (const Op& op : ops()) {
        for (int w : colourtest::testWidths()) {
            if (w < 2 && (op.kind == Kind::Ycc422 || op.kind == Kind::Ycc411)) continue;
            const int h = op.kind == Kind::Ycc411 ? 4 : 2;
            for (int off : {0, 1, 3, 8}) {
                Call run(op, w, h, off, (off * 5) % 16);
                ASSERT_EQ(run.call(), expectedStatus(op, w, h)) << op.name << " w " << w;
                run.check("w " + std::to_string(w) + " off " + std::to_string(off));
                if (HasFatalFailure()) return;
            }
        }
    }
}

TEST(ColourFwdRows, AlignedFastPathGivesTheSameBytes) {
    // Pointers and steps all multiples of 16 against the same data misaligned.
    for (const Op& op : ops()) {
        if (op.threaded) continue;
        for (int w : {16, 24, 40, 64, 72, 200}) {
            const int h = 4;
            Call a(op, w, h, 0, 0), b(op, w, h, 1, 5);
            // Re-make the aligned run's planes with steps that are multiples of 16.
            for (auto& p : a.src) { p = std::make_unique<Plane>(p->rowBytes, p->rows, 0, ((p->rowBytes + 15) & ~15) - p->rowBytes); p->randomise(); }
            for (size_t i = 0; i < a.dst.size(); ++i) {
                auto& p = a.dst[i];
                p = std::make_unique<Plane>(p->rowBytes, p->rows, 0, ((p->rowBytes + 31) & ~15) - p->rowBytes);
                a.dstSteps[i] = p->step;
            }
            if (op.kind == Kind::Ycc)  // one step for all planes
                for (size_t i = 1; i < a.dst.size(); ++i) ASSERT_EQ(a.dst[i]->step, a.dst[0]->step);
            ASSERT_EQ(a.call(), 0);
            a.check("aligned w " + std::to_string(w));
            ASSERT_EQ(b.call(), 0);
            b.check("misaligned w " + std::to_string(w));
        }
    }
}

// ---------------------------------------------------------------- vector kernels against scalar twins

TEST(ColourFwdKernels, VectorMatchesScalarTwin) {
    alignas(64) uint8_t in[4][64 * 4 + 64], outV[4][128], outS[4][128];
    for (int n = 1; n <= 70; ++n) {
        for (int off = 0; off < 4; ++off) {
            for (auto& p : in) zebtest::fillRandom(p, sizeof p, 0, 255);
            std::memset(outV, 1, sizeof outV);
            std::memset(outS, 1, sizeof outS);
            uint8_t* dv[3] = {outV[0] + off, outV[1] + off, outV[2] + off};
            uint8_t* ds[3] = {outS[0] + off, outS[1] + off, outS[2] + off};
            const uint8_t* s = in[0] + off;
            auto same = [&](const char* what) {
                ASSERT_EQ(0, std::memcmp(outV, outS, sizeof outV)) << what << " n " << n << " off " << off;
            };
            for (Order o : {kRGB, kBGR}) {
                rowY15Vec(s, dv[0], n, o); rowY15Scalar(s, ds[0], n, o); same("y15");
                rowYcc15Vec(s, dv, n, o); rowYcc15Scalar(s, ds, n, o); same("ycc15");
                rowHighC4Vec(s, dv, n, o, false); rowHighC4Scalar(s, ds, n, o); same("high c4");
                row14Vec(s, dv, n, 4, o, true); row14Scalar(s, ds, n, 4, o, true); same("14 inverted");
                rowFourthVec(s, dv[0], n); rowFourthScalar(s, ds[0], n); same("fourth byte");
                row14Vec(s, dv, n, 3, o, false); row14Scalar(s, ds, n, 3, o, false); same("14");
                for (bool is565 : {false, true}) {
                    const uint16_t* w = reinterpret_cast<const uint16_t*>(in[1] + 2 * off);
                    rowPacked14Vec(w, dv, n, is565, o); rowPacked14Scalar(w, ds, n, is565, o); same("packed");
                }
                if (n % 2 == 0) {
                    for (int P : {3, 4}) {
                        rowHighSubVec(s, nullptr, P, dv[0], nullptr, dv[1], dv[2], n, o, false);
                        rowHighSubScalar(s, nullptr, P, ds[0], nullptr, ds[1], ds[2], n, o); same("high 422");
                        rowHighSubVec(s, in[3], P, dv[0], outV[3], dv[1], dv[2], n, o, false);
                        rowHighSubScalar(s, in[3], P, ds[0], outS[3], ds[1], ds[2], n, o); same("high 411");
                    }
                }
            }
            rowYFloatVec(in[0] + off, in[1], in[2] + 3, dv[0], n); rowYFloatScalar(in[0] + off, in[1], in[2] + 3, ds[0], n); same("float");
            for (bool inv : {false, true}) {
                rowDiffVec(in[0] + off, in[1], in[2] + 3, dv, n, inv); rowDiffScalar(in[0] + off, in[1], in[2] + 3, ds, n, inv); same("diff");
            }
        }
    }
}

// Every colour through the 32-pixel steps of the 15-bit form (a row of all
// (R, G) pairs per blue value), in both byte orders (BGR on every 15th blue),
// and of the difference form on planes (inverted on every 15th blue).
TEST(ColourFwdKernels, EveryColourMatchesScalar) {
    const int n = 65536;
    std::vector<uint8_t> src(3 * n), pr(n), pg(n), pb(n), v[3], sc[3];
    for (int i = 0; i < n; ++i) {
        pr[i] = static_cast<uint8_t>(i);
        pg[i] = static_cast<uint8_t>(i >> 8);
    }
    for (int c = 0; c < 3; ++c) v[c].assign(n, 0), sc[c].assign(n, 0);
    uint8_t* const dv[3] = {v[0].data(), v[1].data(), v[2].data()};
    uint8_t* const ds[3] = {sc[0].data(), sc[1].data(), sc[2].data()};
    for (int b = 0; b < 256; ++b) {
        for (int i = 0; i < n; ++i) {
            src[3 * i] = static_cast<uint8_t>(i);
            src[3 * i + 1] = static_cast<uint8_t>(i >> 8);
            src[3 * i + 2] = static_cast<uint8_t>(b);
        }
        for (Order o : {kRGB, kBGR}) {
            if (o == kBGR && b % 15) continue;
            rowYcc15Vec(src.data(), dv, n, o);
            rowYcc15Scalar(src.data(), ds, n, o);
            for (int c = 0; c < 3; ++c) ASSERT_EQ(v[c], sc[c]) << "plane " << c << ", third byte " << b;
            rowY15Vec(src.data(), dv[0], n, o);
            ASSERT_EQ(v[0], sc[0]) << "Y only, third byte " << b;
        }
        std::fill(pb.begin(), pb.end(), static_cast<uint8_t>(b));
        for (bool inv : {false, true}) {
            if (inv && b % 15) continue;
            rowDiffVec(pr.data(), pg.data(), pb.data(), dv, n, inv);
            rowDiffScalar(pr.data(), pg.data(), pb.data(), ds, n, inv);
            for (int c = 0; c < 3; ++c) ASSERT_EQ(v[c], sc[c]) << "difference form, plane " << c << ", blue " << b;
        }
    }
}

// ---------------------------------------------------------------- threading

TEST(ColourFwdThreads, ThresholdWithOneAndSeveralThreads) {
    for (const Op& op : ops()) {
        if (!op.threaded) continue;
        for (auto [w, h] : {std::pair{8192, 1}, std::pair{8193, 1}, std::pair{128, 64}, std::pair{43, 191}}) {
            for (int threads : {1, 4}) {
                zebtest::ThreadCount tc(threads);
                Call run(op, w, h, 1, 3);
                ASSERT_EQ(run.call(), 0);
                run.check(std::to_string(w) + "x" + std::to_string(h) + " threads " + std::to_string(threads));
                if (HasFatalFailure()) return;
            }
        }
    }
}

}  // namespace
