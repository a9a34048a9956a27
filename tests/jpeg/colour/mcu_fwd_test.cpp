// MCU block encoders: check order, the worked numbers, which form each plane
// alignment selects, the block geometry of each sampling, overlapping source
// rows, and the vector kernels against their scalar twins.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jpeg/colour/mcu.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using namespace zeb::mcu;
using zebtest::GuardedBuffer;

// Which form an operation takes, given its planes' alignment.
enum class Rule { Block, Plane0, Planes03, All4, Shift, Split };

struct FwdOp {
    std::string name;
    Px px;
    Sampling s;
    Rule rule;
    std::function<ZebStatus(const uint8_t*, int, Zeb16s* const*)> call;
};

std::vector<FwdOp> ops() {
    using D = Zeb16s* const*;
    auto w = [](const uint8_t* p) { return reinterpret_cast<const Zeb16u*>(p); };
    std::vector<FwdOp> v = {
        {"RGB444", Px::RGB, k444, Rule::Block, [](const uint8_t* s, int st, D d) { return zebiRGBToYCbCr444LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"BGR444", Px::BGR, k444, Rule::Block, [](const uint8_t* s, int st, D d) { return zebiBGRToYCbCr444LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"RGB422", Px::RGB, k422, Rule::Block, [](const uint8_t* s, int st, D d) { return zebiRGBToYCbCr422LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"BGR422", Px::BGR, k422, Rule::Block, [](const uint8_t* s, int st, D d) { return zebiBGRToYCbCr422LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"RGB411", Px::RGB, k411, Rule::Plane0, [](const uint8_t* s, int st, D d) { return zebiRGBToYCbCr411LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"BGR411", Px::BGR, k411, Rule::Plane0, [](const uint8_t* s, int st, D d) { return zebiBGRToYCbCr411LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"555_444", Px::P555, k444, Rule::Block, [=](const uint8_t* s, int st, D d) { return zebiBGR555ToYCbCr444LS_MCU_16u16s_C3P3R(w(s), st, d); }},
        {"565_444", Px::P565, k444, Rule::Block, [=](const uint8_t* s, int st, D d) { return zebiBGR565ToYCbCr444LS_MCU_16u16s_C3P3R(w(s), st, d); }},
        {"555_422", Px::P555, k422, Rule::Block, [=](const uint8_t* s, int st, D d) { return zebiBGR555ToYCbCr422LS_MCU_16u16s_C3P3R(w(s), st, d); }},
        {"565_422", Px::P565, k422, Rule::Block, [=](const uint8_t* s, int st, D d) { return zebiBGR565ToYCbCr422LS_MCU_16u16s_C3P3R(w(s), st, d); }},
        {"555_411", Px::P555, k411, Rule::Block, [=](const uint8_t* s, int st, D d) { return zebiBGR555ToYCbCr411LS_MCU_16u16s_C3P3R(w(s), st, d); }},
        {"565_411", Px::P565, k411, Rule::Block, [=](const uint8_t* s, int st, D d) { return zebiBGR565ToYCbCr411LS_MCU_16u16s_C3P3R(w(s), st, d); }},
        {"CMYK444", Px::CMYK, k444, Rule::All4, [](const uint8_t* s, int st, D d) { return zebiCMYKToYCCK444LS_MCU_8u16s_C4P4R(s, st, d); }},
        {"CMYK422", Px::CMYK, k422, Rule::Planes03, [](const uint8_t* s, int st, D d) { return zebiCMYKToYCCK422LS_MCU_8u16s_C4P4R(s, st, d); }},
        {"CMYK411", Px::CMYK, k411, Rule::Planes03, [](const uint8_t* s, int st, D d) { return zebiCMYKToYCCK411LS_MCU_8u16s_C4P4R(s, st, d); }},
        {"Down444", Px::YCC, k444, Rule::Shift, [](const uint8_t* s, int st, D d) { return zebiSampleDown444LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"Down422", Px::YCC, k422, Rule::Shift, [](const uint8_t* s, int st, D d) { return zebiSampleDown422LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"Down411", Px::YCC, k411, Rule::Shift, [](const uint8_t* s, int st, D d) { return zebiSampleDown411LS_MCU_8u16s_C3P3R(s, st, d); }},
        {"Split422", Px::YCC, k422, Rule::Split, [](const uint8_t* s, int st, D d) { return zebiSplit422LS_MCU_8u16s_C2P3R(s, st, d); }},
    };
    return v;
}

bool a16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15) == 0; }

FwdForm formFor(const FwdOp& op, Zeb16s* const* d) {
    switch (op.rule) {
        case Rule::Plane0: return a16(d[0]) ? FwdForm::Block : FwdForm::Plain;
        case Rule::Planes03: return a16(d[0]) && a16(d[3]) ? FwdForm::Block : FwdForm::Plain;
        case Rule::All4: return a16(d[0]) && a16(d[1]) && a16(d[2]) && a16(d[3]) ? FwdForm::Block : FwdForm::Plain;
        case Rule::Shift:
        case Rule::Split: return FwdForm::Shift;
        default: return FwdForm::Block;
    }
}

int srcBytesPerPixel(const FwdOp& op) { return op.rule == Rule::Split ? 2 : pixelBytes(op.px); }

// ---------------------------------------------------------------- the model, straight from the formulas

struct Pix {
    int r, g, b, k;
};

Pix pixelAt(const FwdOp& op, const uint8_t* src, int step, int x, int y) {
    const uint8_t* row = src + static_cast<ptrdiff_t>(y) * step;
    if (op.rule == Rule::Split) {  // Y0 Cb Y1 Cr: the pixel's Y and its pair's chroma
        const uint8_t* q = row + 4 * (x / 2);
        return {q[2 * (x & 1)], q[1], q[3], 0};
    }
    const uint8_t* p = row + srcBytesPerPixel(op) * x;
    switch (op.px) {
        case Px::BGR: return {p[2], p[1], p[0], 0};
        case Px::CMYK: return {255 - p[0], 255 - p[1], 255 - p[2], p[3]};
        case Px::P555: {
            const int v = p[0] | (p[1] << 8);
            return {((v >> 10) & 31) << 3, ((v >> 5) & 31) << 3, (v & 31) << 3, 0};
        }
        case Px::P565: {
            const int v = p[0] | (p[1] << 8);
            return {((v >> 11) & 31) << 3, ((v >> 5) & 63) << 2, (v & 31) << 3, 0};
        }
        default: return {p[0], p[1], p[2], 0};
    }
}

struct Blocks {
    std::vector<int16_t> p[4];
};

Blocks model(const FwdOp& op, FwdForm f, const uint8_t* src, int step) {
    const int nY = lumaBlocks(op.s), W = mcuWidth(op.s);
    const int hs = op.s == k444 ? 1 : 2, vs = op.s == k411 ? 2 : 1, n = hs * vs, l = chromaLog2(op.s);
    Blocks e;
    e.p[0].resize(64 * nY);
    e.p[3].resize(64 * nY);
    e.p[1].resize(64);
    e.p[2].resize(64);
    for (int b = 0; b < nY; ++b)
        for (int i = 0; i < 64; ++i) {
            const int x = (b % (W / 8)) * 8 + i % 8, y = (b / (W / 8)) * 8 + i / 8;
            const Pix q = pixelAt(op, src, step, x, y);
            int yv;
            if (f == FwdForm::Block) yv = (4899 * q.r + 9617 * q.g + 1868 * q.b - 2088960) >> 14;
            else if (f == FwdForm::Plain) yv = ((19595 * q.r + 38470 * q.g + 7471 * q.b) >> 16) - 128;
            else yv = q.r - 128;
            e.p[0][64 * b + i] = static_cast<int16_t>(yv);
            e.p[3][64 * b + i] = static_cast<int16_t>(q.k - 128);
        }
    for (int i = 0; i < 64; ++i) {
        int sr = 0, sg = 0, sb = 0;
        for (int dy = 0; dy < vs; ++dy)
            for (int dx = 0; dx < hs; ++dx) {
                const Pix q = pixelAt(op, src, step, (i % 8) * hs + dx, (i / 8) * vs + dy);
                sr += q.r, sg += q.g, sb += q.b;
            }
        int cb, cr;
        if (f == FwdForm::Block) {
            const int bias = (op.px == Px::CMYK && op.s == k444) ? 8133 : 8192 * n;
            cb = (-2764 * sr - 5428 * sg + 8192 * sb + bias) >> (14 + l);
            cr = (8192 * sr - 6860 * sg - 1332 * sb + bias) >> (14 + l);
        } else if (f == FwdForm::Plain) {
            cb = (-11059 * sr - 21709 * sg + 32768 * sb) >> (16 + l);
            cr = (32768 * sr - 27439 * sg - 5329 * sb) >> (16 + l);
        } else {
            cb = (sg - 128 * n) >> l;
            cr = (sb - 128 * n) >> l;
        }
        e.p[1][i] = static_cast<int16_t>(cb);
        e.p[2][i] = static_cast<int16_t>(cr);
    }
    return e;
}

// ---------------------------------------------------------------- buffers

struct Mcu {
    int step, planes, nY;
    std::unique_ptr<GuardedBuffer> src;
    std::unique_ptr<GuardedBuffer> plane[4];
    Zeb16s* d[4] = {};
    Mcu(const FwdOp& op, const int (&offsets)[4], int srcOffset = 1, int pad = 3) {
        planes = op.px == Px::CMYK ? 4 : 3;
        nY = lumaBlocks(op.s);
        step = mcuWidth(op.s) * srcBytesPerPixel(op) + pad;
        src = std::make_unique<GuardedBuffer>(static_cast<size_t>(step) * mcuHeight(op.s), srcOffset);
        zebtest::fillRandom(src->data(), src->size(), 0, 255);
        for (int i = 0; i < planes; ++i) {
            const int blocks = (i == 1 || i == 2) ? 1 : nY;
            plane[i] = std::make_unique<GuardedBuffer>(128 * blocks, offsets[i]);
            d[i] = plane[i]->as<Zeb16s>();
        }
    }
    int16_t at(int p, int i) const {
        int16_t v;
        std::memcpy(&v, reinterpret_cast<const uint8_t*>(d[p]) + 2 * i, 2);
        return v;
    }
    bool guardsIntact() const {
        for (int i = 0; i < planes; ++i)
            if (!plane[i]->guardsIntact()) return false;
        return true;
    }
    bool untouched() const {
        for (int i = 0; i < planes; ++i)
            if (!plane[i]->untouched()) return false;
        return true;
    }
};

void expectMatches(const Mcu& m, const Blocks& e, const std::string& what) {
    for (int p = 0; p < m.planes; ++p)
        for (size_t i = 0; i < e.p[p].size(); ++i)
            ASSERT_EQ(m.at(p, static_cast<int>(i)), e.p[p][i]) << what << " plane " << p << " element " << i;
    EXPECT_TRUE(m.guardsIntact()) << what;
}

// ---------------------------------------------------------------- checks

TEST(McuFwdChecks, OrderIsSourceAndArrayThenStepThenPlanes) {
    for (const FwdOp& op : ops()) {
        SCOPED_TRACE(op.name);
        const int zero[4] = {0, 0, 0, 0};
        Mcu m(op, zero);
        const uint8_t* s = m.src->data();
        Zeb16s* withNull[4] = {m.d[0], m.d[1], m.d[2], m.d[3]};
        withNull[m.planes - 1] = nullptr;
        EXPECT_EQ(op.call(nullptr, 0, nullptr), zebStatusNullPointer);
        EXPECT_EQ(op.call(nullptr, m.step, m.d), zebStatusNullPointer);
        EXPECT_EQ(op.call(s, 0, nullptr), zebStatusNullPointer);  // the array before the step
        EXPECT_EQ(op.call(s, 0, withNull), zebStatusBadStep);      // the step before a plane
        EXPECT_EQ(op.call(s, -5, m.d), zebStatusBadStep);
        for (int p = 0; p < m.planes; ++p) {
            Zeb16s* d[4] = {m.d[0], m.d[1], m.d[2], m.d[3]};
            d[p] = nullptr;
            EXPECT_EQ(op.call(s, m.step, d), zebStatusNullPointer) << "plane " << p;
        }
        EXPECT_TRUE(m.untouched());
        EXPECT_EQ(op.call(s, m.step, m.d), zebStatusOk);
    }
}

// ---------------------------------------------------------------- forms, alignment and geometry

TEST(McuFwdForms, EveryOperationAtEveryPlaneAlignment) {
    for (const FwdOp& op : ops()) {
        const int planes = op.px == Px::CMYK ? 4 : 3;
        std::vector<std::array<int, 4>> cases = {{0, 0, 0, 0}, {32, 16, 48, 16}, {8, 0, 0, 0}, {1, 0, 0, 0}};
        for (int p = 0; p < planes; ++p) {
            std::array<int, 4> c = {0, 0, 0, 0};
            c[p] = 2;
            cases.push_back(c);
            c[p] = 8;
            cases.push_back(c);
        }
        for (const auto& c : cases) {
            const int off[4] = {c[0], c[1], c[2], c[3]};
            for (int rep = 0; rep < 3; ++rep) {
                Mcu m(op, off, rep);
                const FwdForm f = formFor(op, m.d);
                ASSERT_EQ(op.call(m.src->data(), m.step, m.d), zebStatusOk);
                expectMatches(m, model(op, f, m.src->data(), m.step),
                              op.name + " offsets " + std::to_string(off[0]) + "," + std::to_string(off[1]) + "," +
                                  std::to_string(off[2]) + "," + std::to_string(off[3]));
            }
        }
    }
}

TEST(McuFwdForms, SelectionFollowsTheNamedPlanesOnly) {
    // Guard the model's selection rule itself with a pixel whose two forms differ.
    const FwdOp* cmyk422 = nullptr;
    auto all = ops();
    for (auto& op : all)
        if (op.name == "CMYK422") cmyk422 = &op;
    ASSERT_NE(cmyk422, nullptr);
    const int chromaOff[4] = {0, 2, 2, 0}, kOff[4] = {0, 0, 0, 2};
    Mcu a(*cmyk422, chromaOff), b(*cmyk422, kOff);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x) {
            uint8_t px[4] = {155, 105, 55, 9};  // RGB (100, 150, 200)
            std::memcpy(a.src->data() + y * a.step + 4 * x, px, 4);
            std::memcpy(b.src->data() + y * b.step + 4 * x, px, 4);
        }
    ASSERT_EQ(cmyk422->call(a.src->data(), a.step, a.d), zebStatusOk);
    ASSERT_EQ(cmyk422->call(b.src->data(), b.step, b.d), zebStatusOk);
    EXPECT_EQ(a.at(0, 0), 13);  // misaligned chroma planes do not decide
    EXPECT_EQ(b.at(0, 0), 12);  // a misaligned K plane does
    EXPECT_EQ(a.at(3, 5), 9 - 128);
    EXPECT_EQ(b.at(3, 5), 9 - 128);
}

// ---------------------------------------------------------------- worked numbers

Mcu flat(const FwdOp& op, const int (&off)[4], std::initializer_list<int> pixel) {
    Mcu m(op, off);
    const int bpp = srcBytesPerPixel(op);
    for (int y = 0; y < mcuHeight(op.s); ++y)
        for (int x = 0; x < mcuWidth(op.s); ++x) {
            int i = 0;
            for (int v : pixel) m.src->data()[y * m.step + bpp * x + i++] = static_cast<uint8_t>(v);
        }
    EXPECT_EQ(op.call(m.src->data(), m.step, m.d), zebStatusOk);
    return m;
}

void expectPlane(const Mcu& m, int p, int value, const std::string& what) {
    const int n = (p == 1 || p == 2) ? 64 : 64 * m.nY;
    for (int i = 0; i < n; ++i) ASSERT_EQ(m.at(p, i), value) << what << " plane " << p << " element " << i;
}

TEST(McuFwdValues, WhiteBlackAndPrimaries) {
    const int zero[4] = {0, 0, 0, 0};
    for (const FwdOp& op : ops()) {
        if (op.px != Px::RGB && op.px != Px::BGR) continue;
        Mcu w = flat(op, zero, {255, 255, 255});
        expectPlane(w, 0, 127, op.name + " white");
        expectPlane(w, 1, 0, op.name + " white");
        expectPlane(w, 2, 0, op.name + " white");
        Mcu k = flat(op, zero, {0, 0, 0});
        expectPlane(k, 0, -128, op.name + " black");
        expectPlane(k, 1, 0, op.name + " black");
        // Pure blue reaches Cb 128 and pure red Cr 128; nothing clamps them.
        const bool bgr = op.px == Px::BGR;
        Mcu blue = flat(op, zero, {bgr ? 255 : 0, 0, bgr ? 0 : 255});
        expectPlane(blue, 1, 128, op.name + " blue");
        Mcu red = flat(op, zero, {bgr ? 0 : 255, 0, bgr ? 255 : 0});
        expectPlane(red, 2, 128, op.name + " red");
    }
}

TEST(McuFwdValues, BlockAndPlainFormsOf411) {
    auto all = ops();
    const int aligned[4] = {0, 0, 0, 0}, mis[4] = {8, 0, 0, 0};
    for (const FwdOp& op : all) {
        if (op.rule != Rule::Plane0) continue;
        const bool bgr = op.px == Px::BGR;
        Mcu w = flat(op, mis, {255, 255, 255});
        expectPlane(w, 0, 127, op.name + " white, plain");
        Mcu a = flat(op, aligned, {bgr ? 200 : 100, 150, bgr ? 100 : 200});
        expectPlane(a, 0, 13, op.name + " block");
        Mcu b = flat(op, mis, {bgr ? 200 : 100, 150, bgr ? 100 : 200});
        expectPlane(b, 0, 12, op.name + " plain");
    }
}

TEST(McuFwdValues, CmykZerosAndKShift) {
    auto all = ops();
    const int aligned[4] = {0, 0, 0, 0}, mis[4] = {0, 0, 2, 0};
    for (const FwdOp& op : all) {
        if (op.px != Px::CMYK) continue;
        for (const auto* off : {&aligned, &mis}) {
            Mcu m = flat(op, *off, {0, 0, 0, 0});
            expectPlane(m, 0, 127, op.name);
            expectPlane(m, 1, 0, op.name);
            expectPlane(m, 2, 0, op.name);
            expectPlane(m, 3, -128, op.name);
            Mcu k = flat(op, *off, {0, 0, 0, 255});
            expectPlane(k, 3, 127, op.name);
        }
    }
    // The 8133 bias of the 444 block form: Cb of pure blue is (2097152 - 59) >> 14 = 127, not 128.
    for (const FwdOp& op : all)
        if (op.name == "CMYK444") {
            Mcu blue = flat(op, aligned, {255, 255, 0, 0});
            expectPlane(blue, 1, 127, "CMYK444 blue");
        }
}

TEST(McuFwdValues, ShiftOperationsRoundDown) {
    auto all = ops();
    const int zero[4] = {0, 0, 0, 0};
    for (const FwdOp& op : all) {
        if (op.name == "Down422") {
            Mcu m(op, zero);
            for (int y = 0; y < 8; ++y)
                for (int x = 0; x < 16; ++x) {
                    uint8_t* p = m.src->data() + y * m.step + 3 * x;
                    p[0] = 0, p[1] = static_cast<uint8_t>(x & 1 ? 2 : 1), p[2] = static_cast<uint8_t>(x & 1 ? 255 : 0);
                }
            ASSERT_EQ(op.call(m.src->data(), m.step, m.d), zebStatusOk);
            expectPlane(m, 0, -128, "Y");
            expectPlane(m, 1, (1 + 2 - 256) >> 1, "Cb");  // -127 by the arithmetic shift (-126.5 rounds down)
            expectPlane(m, 2, -1, "Cr");                  // (0 + 255 - 256) >> 1
        }
        if (op.name == "Down411") {
            Mcu m = flat(op, zero, {255, 1, 0});
            expectPlane(m, 0, 127, "Y");
            expectPlane(m, 1, -127, "Cb");
            expectPlane(m, 2, -128, "Cr");
        }
    }
}

TEST(McuFwdValues, OverlappingSourceRowsAreAccepted) {
    // A step of 1 byte: every row starts one byte after the previous one.
    for (const FwdOp& op : ops()) {
        const int zero[4] = {0, 0, 0, 0};
        Mcu m(op, zero);
        ASSERT_EQ(op.call(m.src->data(), 1, m.d), zebStatusOk) << op.name;
        expectMatches(m, model(op, formFor(op, m.d), m.src->data(), 1), op.name + " step 1");
    }
}

// ---------------------------------------------------------------- vector kernels against their scalar twins

TEST(McuFwdKernels, VectorMatchesScalar) {
    struct K {
        Px px;
        FwdForm f;
    };
    const K kinds[] = {{Px::RGB, FwdForm::Block}, {Px::BGR, FwdForm::Block}, {Px::P555, FwdForm::Block},
                       {Px::P565, FwdForm::Block}, {Px::CMYK, FwdForm::Block}, {Px::YCC, FwdForm::Shift},
                       {Px::RGB, FwdForm::Plain}, {Px::BGR, FwdForm::Plain}, {Px::CMYK, FwdForm::Plain}};
    for (const K& k : kinds)
        for (Sampling s : {k444, k422, k411})
            for (int rep = 0; rep < 20; ++rep) {
                const int W = mcuWidth(s), H = mcuHeight(s), step = W * pixelBytes(k.px) + rep;
                GuardedBuffer src(static_cast<size_t>(step) * H, rep & 7);
                zebtest::fillRandom(src.data(), src.size(), 0, 255);
                if (rep == 1) std::memset(src.data(), 255, src.size());
                alignas(32) int16_t a[4][256], b[4][256];
                std::memset(a, 0x5A, sizeof a);
                std::memset(b, 0x5A, sizeof b);
                int16_t* const da[4] = {a[0], a[1], a[2], a[3]};
                int16_t* const db[4] = {b[0], b[1], b[2], b[3]};
                fwdVec(src.data(), step, da, s, k.px, k.f);
                fwdScalar(src.data(), step, db, s, k.px, k.f);
                ASSERT_EQ(std::memcmp(a, b, sizeof a), 0)
                    << "layout " << static_cast<int>(k.px) << " form " << static_cast<int>(k.f) << " sampling " << s;
            }
    for (int rep = 0; rep < 20; ++rep) {
        GuardedBuffer src(32 * 8 + 8 * rep, rep & 3);
        zebtest::fillRandom(src.data(), src.size(), 0, 255);
        alignas(32) int16_t a[3][128], b[3][128];
        std::memset(a, 0x5A, sizeof a);
        std::memset(b, 0x5A, sizeof b);
        int16_t* const da[3] = {a[0], a[1], a[2]};
        int16_t* const db[3] = {b[0], b[1], b[2]};
        split422Vec(src.data(), 32 + rep, da);
        split422Scalar(src.data(), 32 + rep, db);
        ASSERT_EQ(std::memcmp(a, b, sizeof a), 0);
    }
}

}  // namespace
