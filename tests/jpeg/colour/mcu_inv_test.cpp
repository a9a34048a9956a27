// MCU block decoders: check order, the worked numbers, which form each plane
// alignment selects, geometry and chroma replication, clamping, packed
// layouts, destination sentinels and overlapping rows, the vector kernels
// against their scalar twins, and round trips through the encoders.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
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
using zebtest::kSentinel;

enum class Rule { Bits14OrPlain, SplitOrPlain, Split, Shift, Join };

struct InvOp {
    std::string name;
    Px px;
    Sampling s;
    Rule rule;
    std::function<ZebStatus(const Zeb16s* const*, uint8_t*, int)> call;
};

std::vector<InvOp> ops() {
    using S = const Zeb16s* const*;
    auto w = [](uint8_t* p) { return reinterpret_cast<Zeb16u*>(p); };
    return {
        {"444RGB", Px::RGB, k444, Rule::Bits14OrPlain, [](S s, uint8_t* d, int st) { return zebiYCbCr444ToRGBLS_MCU_16s8u_P3C3R(s, d, st); }},
        {"444BGR", Px::BGR, k444, Rule::Bits14OrPlain, [](S s, uint8_t* d, int st) { return zebiYCbCr444ToBGRLS_MCU_16s8u_P3C3R(s, d, st); }},
        {"422RGB", Px::RGB, k422, Rule::SplitOrPlain, [](S s, uint8_t* d, int st) { return zebiYCbCr422ToRGBLS_MCU_16s8u_P3C3R(s, d, st); }},
        {"422BGR", Px::BGR, k422, Rule::SplitOrPlain, [](S s, uint8_t* d, int st) { return zebiYCbCr422ToBGRLS_MCU_16s8u_P3C3R(s, d, st); }},
        {"411RGB", Px::RGB, k411, Rule::SplitOrPlain, [](S s, uint8_t* d, int st) { return zebiYCbCr411ToRGBLS_MCU_16s8u_P3C3R(s, d, st); }},
        {"411BGR", Px::BGR, k411, Rule::SplitOrPlain, [](S s, uint8_t* d, int st) { return zebiYCbCr411ToBGRLS_MCU_16s8u_P3C3R(s, d, st); }},
        {"444_555", Px::P555, k444, Rule::Split, [=](S s, uint8_t* d, int st) { return zebiYCbCr444ToBGR555LS_MCU_16s16u_P3C3R(s, w(d), st); }},
        {"444_565", Px::P565, k444, Rule::Split, [=](S s, uint8_t* d, int st) { return zebiYCbCr444ToBGR565LS_MCU_16s16u_P3C3R(s, w(d), st); }},
        {"422_555", Px::P555, k422, Rule::Split, [=](S s, uint8_t* d, int st) { return zebiYCbCr422ToBGR555LS_MCU_16s16u_P3C3R(s, w(d), st); }},
        {"422_565", Px::P565, k422, Rule::Split, [=](S s, uint8_t* d, int st) { return zebiYCbCr422ToBGR565LS_MCU_16s16u_P3C3R(s, w(d), st); }},
        {"411_555", Px::P555, k411, Rule::Split, [=](S s, uint8_t* d, int st) { return zebiYCbCr411ToBGR555LS_MCU_16s16u_P3C3R(s, w(d), st); }},
        {"411_565", Px::P565, k411, Rule::Split, [=](S s, uint8_t* d, int st) { return zebiYCbCr411ToBGR565LS_MCU_16s16u_P3C3R(s, w(d), st); }},
        {"YCCK444", Px::CMYK, k444, Rule::SplitOrPlain, [](S s, uint8_t* d, int st) { return zebiYCCK444ToCMYKLS_MCU_16s8u_P4C4R(s, d, st); }},
        {"YCCK422", Px::CMYK, k422, Rule::SplitOrPlain, [](S s, uint8_t* d, int st) { return zebiYCCK422ToCMYKLS_MCU_16s8u_P4C4R(s, d, st); }},
        {"YCCK411", Px::CMYK, k411, Rule::SplitOrPlain, [](S s, uint8_t* d, int st) { return zebiYCCK411ToCMYKLS_MCU_16s8u_P4C4R(s, d, st); }},
        {"Up444", Px::YCC, k444, Rule::Shift, [](S s, uint8_t* d, int st) { return zebiSampleUp444LS_MCU_16s8u_P3C3R(s, d, st); }},
        {"Up422", Px::YCC, k422, Rule::Shift, [](S s, uint8_t* d, int st) { return zebiSampleUp422LS_MCU_16s8u_P3C3R(s, d, st); }},
        {"Up411", Px::YCC, k411, Rule::Shift, [](S s, uint8_t* d, int st) { return zebiSampleUp411LS_MCU_16s8u_P3C3R(s, d, st); }},
        {"Join422", Px::YCC, k422, Rule::Join, [](S s, uint8_t* d, int st) { return zebiJoin422LS_MCU_16s8u_P3C2R(s, d, st); }},
    };
}

int planesOf(const InvOp& op) { return op.px == Px::CMYK ? 4 : 3; }
int outBytes(const InvOp& op) {
    if (op.rule == Rule::Join) return 2;
    return op.px == Px::CMYK ? 4 : (op.px == Px::P555 || op.px == Px::P565) ? 2 : 3;
}
int rowBytes(const InvOp& op) { return mcuWidth(op.s) * outBytes(op); }

bool a16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15) == 0; }

InvForm formFor(const InvOp& op, const Zeb16s* const* p) {
    bool all = true;
    for (int i = 0; i < planesOf(op); ++i) all = all && a16(p[i]);
    switch (op.rule) {
        case Rule::Bits14OrPlain: return all ? InvForm::Bits14 : InvForm::Plain;
        case Rule::SplitOrPlain: return all ? InvForm::Split : InvForm::Plain;
        case Rule::Split: return InvForm::Split;
        default: return InvForm::Shift;
    }
}

// ---------------------------------------------------------------- the model, straight from the formulas

int clampByte(int64_t v) { return v < 0 ? 0 : v > 255 ? 255 : static_cast<int>(v); }
int32_t wrapped(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); }

struct Blocks {
    int nY;
    std::unique_ptr<GuardedBuffer> plane[4];
    const Zeb16s* p[4] = {};
    Blocks(const InvOp& op, const int (&off)[4]) : nY(lumaBlocks(op.s)) {
        for (int i = 0; i < planesOf(op); ++i) {
            plane[i] = std::make_unique<GuardedBuffer>((i == 1 || i == 2) ? 128 : 128 * nY, off[i]);
            p[i] = plane[i]->as<Zeb16s>();
        }
    }
    int16_t at(int pl, int i) const {
        int16_t v;
        std::memcpy(&v, reinterpret_cast<const uint8_t*>(p[pl]) + 2 * i, 2);
        return v;
    }
    void set(int pl, int i, int v) {
        int16_t x = static_cast<int16_t>(v);
        std::memcpy(plane[pl]->data() + 2 * i, &x, 2);
    }
    // Mostly values an inverse DCT gives, with some far outside 0..255.
    void randomise(const InvOp& op) {
        for (int pl = 0; pl < planesOf(op); ++pl) {
            const int n = (pl == 1 || pl == 2) ? 64 : 64 * nY;
            for (int i = 0; i < n; ++i) {
                const int r = static_cast<int>(zebtest::rng()() % 16);
                set(pl, i, r == 0 ? static_cast<int>(zebtest::rng()() % 65536) - 32768
                                  : static_cast<int>(zebtest::rng()() % 601) - 300);
            }
        }
    }
};

// Writes the pixels the model expects into `img` at `dst`, top row first.
void model(const InvOp& op, InvForm f, const Blocks& b, uint8_t* dst, int step) {
    const int W = mcuWidth(op.s), H = mcuHeight(op.s);
    const int hs = op.s == k444 ? 1 : 2, vs = op.s == k411 ? 2 : 1;
    for (int y = 0; y < H; ++y) {
        uint8_t* row = dst + static_cast<ptrdiff_t>(y) * step;
        for (int x = 0; x < W; ++x) {
            const int li = ((y / 8) * (W / 8) + x / 8) * 64 + (y % 8) * 8 + x % 8, ci = (y / vs) * 8 + x / hs;
            const int64_t Y = b.at(0, li), Cb = b.at(1, ci), Cr = b.at(2, ci);
            int r, g, bl;
            int k = 0;
            if (f == InvForm::Bits14) {
                r = clampByte(Y + ((22970 * Cr + 2105344) >> 14));
                g = clampByte(Y + ((-5638 * Cb - 11700 * Cr + 2105344) >> 14));
                bl = clampByte(Y + ((29032 * Cb + 2105344) >> 14));
            } else if (f == InvForm::Split) {
                r = clampByte(Y + ((11485 * Cr + 1052672) >> 13));
                g = clampByte(Y - ((5638 * Cb + 11700 * Cr - 2088960) >> 14));
                bl = clampByte(Y + ((14516 * Cb + 1052672) >> 13));
            } else if (f == InvForm::Plain) {
                r = clampByte(Y + (wrapped(91881 * Cr) >> 16) + 128);
                g = clampByte(Y + (wrapped(-22554 * Cb - 46802 * Cr) >> 16) + 128);
                bl = clampByte(Y + (wrapped(116130 * Cb) >> 16) + 128);
            } else {
                r = clampByte(Y + 128), g = clampByte(Cb + 128), bl = clampByte(Cr + 128);
            }
            if (op.px == Px::CMYK) {
                const int K = b.at(3, li);
                k = f == InvForm::Plain ? ((K + 128) & 255) : clampByte(K + 128);
            }
            if (op.rule == Rule::Join) {
                row[2 * x] = static_cast<uint8_t>(r);
                row[2 * x + 1] = static_cast<uint8_t>(x & 1 ? bl : g);
                continue;
            }
            uint8_t* p = row + x * outBytes(op);
            switch (op.px) {
                case Px::P555: {
                    const int v = (r >> 3) << 10 | (g >> 3) << 5 | (bl >> 3);
                    p[0] = static_cast<uint8_t>(v), p[1] = static_cast<uint8_t>(v >> 8);
                    break;
                }
                case Px::P565: {
                    const int v = (r >> 3) << 11 | (g >> 2) << 5 | (bl >> 3);
                    p[0] = static_cast<uint8_t>(v), p[1] = static_cast<uint8_t>(v >> 8);
                    break;
                }
                case Px::BGR: p[0] = static_cast<uint8_t>(bl), p[1] = static_cast<uint8_t>(g), p[2] = static_cast<uint8_t>(r); break;
                case Px::CMYK:
                    p[0] = static_cast<uint8_t>(255 - r), p[1] = static_cast<uint8_t>(255 - g);
                    p[2] = static_cast<uint8_t>(255 - bl), p[3] = static_cast<uint8_t>(k);
                    break;
                default: p[0] = static_cast<uint8_t>(r), p[1] = static_cast<uint8_t>(g), p[2] = static_cast<uint8_t>(bl); break;
            }
        }
    }
}

// A destination with sentinels before, between and after its rows.
struct Dest {
    static constexpr int kGuard = 64;
    std::vector<uint8_t> bytes;
    int step, offset;
    Dest(const InvOp& op, int step_, int offset_) : step(step_), offset(offset_) {
        const int H = mcuHeight(op.s);
        bytes.assign(static_cast<size_t>(kGuard * 2 + offset + std::max(step, 1) * (H - 1) + rowBytes(op)), kSentinel);
    }
    uint8_t* data() { return bytes.data() + kGuard + offset; }
};

void expectDecodes(const InvOp& op, const Blocks& b, int step, int dstOffset, const std::string& what) {
    Dest got(op, step, dstOffset), want(op, step, dstOffset);
    ASSERT_EQ(op.call(b.p, got.data(), step), zebStatusOk) << what;
    model(op, formFor(op, b.p), b, want.data(), step);
    for (size_t i = 0; i < got.bytes.size(); ++i)
        ASSERT_EQ(got.bytes[i], want.bytes[i]) << what << " at byte " << static_cast<long>(i) - Dest::kGuard - dstOffset;
}

// ---------------------------------------------------------------- checks

TEST(McuInvChecks, AllPointersBeforeTheStep) {
    for (const InvOp& op : ops()) {
        SCOPED_TRACE(op.name);
        const int zero[4] = {0, 0, 0, 0};
        Blocks b(op, zero);
        Dest d(op, rowBytes(op), 0);
        const std::vector<uint8_t> before = d.bytes;
        EXPECT_EQ(op.call(nullptr, d.data(), 0), zebStatusNullPointer);
        EXPECT_EQ(op.call(b.p, nullptr, 0), zebStatusNullPointer);  // a null destination before the step
        for (int p = 0; p < planesOf(op); ++p) {
            const Zeb16s* s[4] = {b.p[0], b.p[1], b.p[2], b.p[3]};
            s[p] = nullptr;
            EXPECT_EQ(op.call(s, d.data(), 0), zebStatusNullPointer) << "plane " << p;  // not -14
            EXPECT_EQ(op.call(s, d.data(), rowBytes(op)), zebStatusNullPointer) << "plane " << p;
        }
        EXPECT_EQ(op.call(b.p, d.data(), 0), zebStatusBadStep);
        EXPECT_EQ(op.call(b.p, d.data(), -3), zebStatusBadStep);
        EXPECT_EQ(d.bytes, before);
        EXPECT_EQ(op.call(b.p, d.data(), rowBytes(op)), zebStatusOk);
    }
}

// ---------------------------------------------------------------- forms, alignment, geometry

TEST(McuInvForms, EveryOperationAtEveryPlaneAlignment) {
    for (const InvOp& op : ops()) {
        std::vector<std::array<int, 4>> cases = {{0, 0, 0, 0}, {32, 16, 48, 16}, {1, 0, 0, 0}};
        for (int p = 0; p < planesOf(op); ++p) {
            std::array<int, 4> c = {0, 0, 0, 0};
            c[p] = 2;
            cases.push_back(c);
            c[p] = 8;
            cases.push_back(c);
        }
        for (const auto& c : cases) {
            const int off[4] = {c[0], c[1], c[2], c[3]};
            for (int rep = 0; rep < 3; ++rep) {
                Blocks b(op, off);
                b.randomise(op);
                expectDecodes(op, b, rowBytes(op) + 5 * rep, rep,
                              op.name + " offsets " + std::to_string(off[0]) + "," + std::to_string(off[1]) + "," +
                                  std::to_string(off[2]) + "," + std::to_string(off[3]));
            }
        }
    }
}

TEST(McuInvForms, LaterRowsWinWhereRowsOverlap) {
    for (const InvOp& op : ops())
        for (int step : {1, 7, rowBytes(op) - 1})
            for (int aligned = 0; aligned < 2; ++aligned) {
                const int off[4] = {aligned ? 0 : 2, 0, 0, 0};
                Blocks b(op, off);
                b.randomise(op);
                expectDecodes(op, b, step, 3, op.name + " step " + std::to_string(step));
            }
}

TEST(McuInvForms, ChromaCoversItsPixelsAlike) {
    // One chroma sample set apart from the rest: its pixels show it and only they do.
    const int zero[4] = {0, 0, 0, 0};
    for (const InvOp& op : ops()) {
        if (op.rule != Rule::Shift) continue;
        Blocks b(op, zero);
        for (int i = 0; i < 64 * b.nY; ++i) b.set(0, i, 0);
        for (int i = 0; i < 64; ++i) b.set(1, i, 0), b.set(2, i, 0);
        b.set(1, 8 * 3 + 5, 100);  // Cb row 3, column 5
        Dest d(op, rowBytes(op), 0);
        ASSERT_EQ(op.call(b.p, d.data(), d.step), zebStatusOk);
        const int hs = op.s == k444 ? 1 : 2, vs = op.s == k411 ? 2 : 1;
        int marked = 0;
        for (int y = 0; y < mcuHeight(op.s); ++y)
            for (int x = 0; x < mcuWidth(op.s); ++x) {
                const int cb = d.data()[y * d.step + 3 * x + 1];
                const bool inside = y / vs == 3 && x / hs == 5;
                EXPECT_EQ(cb, inside ? 228 : 128) << op.name << " pixel " << x << "," << y;
                marked += inside;
            }
        EXPECT_EQ(marked, hs * vs) << op.name;
    }
}

// ---------------------------------------------------------------- worked numbers

std::vector<uint8_t> decodeFlat(const InvOp& op, const int (&off)[4], int y, int c, int k) {
    Blocks b(op, off);
    for (int i = 0; i < 64 * b.nY; ++i) b.set(0, i, y);
    for (int i = 0; i < 64; ++i) b.set(1, i, c), b.set(2, i, c);
    if (op.px == Px::CMYK)
        for (int i = 0; i < 64 * b.nY; ++i) b.set(3, i, k);
    Dest d(op, rowBytes(op), 0);
    EXPECT_EQ(op.call(b.p, d.data(), d.step), zebStatusOk);
    return std::vector<uint8_t>(d.data(), d.data() + d.step * mcuHeight(op.s));
}

void expectAll(const std::vector<uint8_t>& px, int bytes, std::initializer_list<int> want, const std::string& what) {
    for (size_t i = 0; i < px.size(); i += bytes) {
        int j = 0;
        for (int v : want) {
            ASSERT_EQ(px[i + j], v) << what << " byte " << i + j;
            ++j;
        }
    }
}

TEST(McuInvValues, GreyWhiteBlackAndClamps) {
    const int aligned[4] = {0, 0, 0, 0}, mis[4] = {0, 2, 0, 0};
    for (const InvOp& op : ops()) {
        if (op.px != Px::RGB && op.px != Px::BGR && op.px != Px::CMYK) continue;
        const int n = outBytes(op);
        for (const auto* off : {&aligned, &mis}) {
            const std::string what = op.name + (off == &mis ? " plain" : " aligned");
            if (op.px == Px::CMYK) {
                expectAll(decodeFlat(op, *off, 0, 0, 0), n, {127, 127, 127, 128}, what + " grey");
                expectAll(decodeFlat(op, *off, 127, 0, -128), n, {0, 0, 0, 0}, what + " white");
                expectAll(decodeFlat(op, *off, 1000, 0, 0), n, {0, 0, 0, 128}, what + " clamp");
            } else {
                expectAll(decodeFlat(op, *off, 0, 0, 0), n, {128, 128, 128}, what + " grey");
                expectAll(decodeFlat(op, *off, 127, 0, 0), n, {255, 255, 255}, what + " white");
                expectAll(decodeFlat(op, *off, -128, 0, 0), n, {0, 0, 0}, what + " black");
                expectAll(decodeFlat(op, *off, 1000, 0, 0), n, {255, 255, 255}, what + " clamp");
                expectAll(decodeFlat(op, *off, -1000, 0, 0), n, {0, 0, 0}, what + " clamp");
            }
        }
    }
}

TEST(McuInvValues, KOfYcckClampsInTheSplitFormAndWrapsInThePlainForm) {
    const int aligned[4] = {0, 0, 0, 0}, mis[4] = {0, 0, 0, 8};
    for (const InvOp& op : ops()) {
        if (op.px != Px::CMYK) continue;
        expectAll(decodeFlat(op, aligned, 0, 0, 1000), 4, {127, 127, 127, 255}, op.name + " split");
        expectAll(decodeFlat(op, mis, 0, 0, 1000), 4, {127, 127, 127, 104}, op.name + " plain");
        expectAll(decodeFlat(op, mis, 0, 0, -129), 4, {127, 127, 127, 255}, op.name + " plain");
    }
}

TEST(McuInvValues, PackedLayouts) {
    const int zero[4] = {0, 0, 0, 0};
    for (const InvOp& op : ops()) {
        if (op.px != Px::P555 && op.px != Px::P565) continue;
        // Pure blue from Cb 127: R 0, B 255 -> B in the low five bits.
        auto blue = decodeFlat(op, zero, -128, 0, 0);
        expectAll(blue, 2, {0, 0}, op.name + " black");
        auto white = decodeFlat(op, zero, 127, 0, 0);
        expectAll(white, 2, {255, op.px == Px::P555 ? 0x7F : 0xFF}, op.name + " white");
        Blocks b(op, zero);
        for (int i = 0; i < 64 * b.nY; ++i) b.set(0, i, -128);
        for (int i = 0; i < 64; ++i) b.set(1, i, 0), b.set(2, i, 200);  // red only
        Dest d(op, rowBytes(op), 0);
        ASSERT_EQ(op.call(b.p, d.data(), d.step), zebStatusOk);
        const int v = d.data()[0] | (d.data()[1] << 8);
        EXPECT_EQ(v, op.px == Px::P555 ? 31 << 10 : 31 << 11) << op.name;
    }
}

// ---------------------------------------------------------------- vector kernels against their scalar twins

TEST(McuInvKernels, VectorMatchesScalar) {
    struct K {
        Px px;
        InvForm f;
    };
    const K kinds[] = {{Px::RGB, InvForm::Bits14}, {Px::RGB, InvForm::Split},  {Px::BGR, InvForm::Bits14},
                       {Px::BGR, InvForm::Split},  {Px::P555, InvForm::Split}, {Px::P565, InvForm::Split},
                       {Px::P555, InvForm::Bits14}, {Px::CMYK, InvForm::Split}, {Px::YCC, InvForm::Shift},
                       {Px::RGB, InvForm::Plain},  {Px::BGR, InvForm::Plain},  {Px::CMYK, InvForm::Plain},
                       {Px::P565, InvForm::Plain}};
    for (const K& k : kinds)
        for (Sampling s : {k444, k422, k411})
            for (int rep = 0; rep < 20; ++rep) {
                alignas(32) int16_t blocks[4][256];
                for (auto& pl : blocks)
                    for (int16_t& v : pl)
                        v = static_cast<int16_t>(rep < 10 ? static_cast<int>(zebtest::rng()() % 65536) - 32768
                                                          : static_cast<int>(zebtest::rng()() % 801) - 400);
                const int16_t* const src[4] = {blocks[0], blocks[1], blocks[2], blocks[3]};
                const int ob = k.px == Px::CMYK ? 4 : (k.px == Px::P555 || k.px == Px::P565) ? 2 : 3;
                const int step = mcuWidth(s) * ob + rep, size = step * mcuHeight(s);
                std::vector<uint8_t> a(size, kSentinel), b(size, kSentinel);
                invVec(src, a.data(), step, s, k.px, k.f);
                invScalar(src, b.data(), step, s, k.px, k.f);
                ASSERT_EQ(a, b) << "layout " << static_cast<int>(k.px) << " form " << static_cast<int>(k.f) << " sampling "
                                << s;
            }
    for (int rep = 0; rep < 20; ++rep) {
        alignas(32) int16_t blocks[3][128];
        for (auto& pl : blocks)
            for (int16_t& v : pl) v = static_cast<int16_t>(static_cast<int>(zebtest::rng()() % 1024) - 512);
        const int16_t* const src[3] = {blocks[0], blocks[1], blocks[2]};
        std::vector<uint8_t> a(40 * 8, kSentinel), b(40 * 8, kSentinel);
        join422Vec(src, a.data(), 32 + rep % 8);
        join422Scalar(src, b.data(), 32 + rep % 8);
        ASSERT_EQ(a, b);
    }
}

// ---------------------------------------------------------------- round trips through the encoders

TEST(McuRoundTrip, ShiftOperationsAreExactInverses) {
    alignas(16) int16_t blocks[3][256];
    Zeb16s* const d[3] = {blocks[0], blocks[1], blocks[2]};
    const Zeb16s* const s[3] = {blocks[0], blocks[1], blocks[2]};
    uint8_t in[16 * 16 * 3], out[16 * 16 * 3];
    // Chroma equal over the pixels that share a sample, so that averaging loses nothing.
    for (Sampling smp : {k444, k422, k411}) {
        const int W = mcuWidth(smp), H = mcuHeight(smp), hs = smp == k444 ? 1 : 2, vs = smp == k411 ? 2 : 1;
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                uint8_t* p = in + 3 * (y * W + x);
                p[0] = static_cast<uint8_t>(zebtest::rng()());
                p[1] = static_cast<uint8_t>((x / hs) * 31 + (y / vs) * 7);
                p[2] = static_cast<uint8_t>(255 - p[1]);
            }
        std::memset(out, 0, sizeof out);
        if (smp == k444) {
            ASSERT_EQ(zebiSampleDown444LS_MCU_8u16s_C3P3R(in, 3 * W, d), zebStatusOk);
            ASSERT_EQ(zebiSampleUp444LS_MCU_16s8u_P3C3R(s, out, 3 * W), zebStatusOk);
        } else if (smp == k422) {
            ASSERT_EQ(zebiSampleDown422LS_MCU_8u16s_C3P3R(in, 3 * W, d), zebStatusOk);
            ASSERT_EQ(zebiSampleUp422LS_MCU_16s8u_P3C3R(s, out, 3 * W), zebStatusOk);
        } else {
            ASSERT_EQ(zebiSampleDown411LS_MCU_8u16s_C3P3R(in, 3 * W, d), zebStatusOk);
            ASSERT_EQ(zebiSampleUp411LS_MCU_16s8u_P3C3R(s, out, 3 * W), zebStatusOk);
        }
        ASSERT_EQ(std::memcmp(in, out, static_cast<size_t>(3 * W * H)), 0) << "sampling " << smp;
    }
    uint8_t pairs[32 * 8], back[32 * 8];
    zebtest::fillRandom(pairs, sizeof pairs, 0, 255);
    ASSERT_EQ(zebiSplit422LS_MCU_8u16s_C2P3R(pairs, 32, d), zebStatusOk);
    ASSERT_EQ(zebiJoin422LS_MCU_16s8u_P3C2R(s, back, 32), zebStatusOk);
    EXPECT_EQ(std::memcmp(pairs, back, sizeof pairs), 0);
}

TEST(McuRoundTrip, ColourEncodeThenDecodeStaysClose) {
    alignas(16) int16_t blocks[4][256];
    Zeb16s* const d[4] = {blocks[0], blocks[1], blocks[2], blocks[3]};
    const Zeb16s* const s[4] = {blocks[0], blocks[1], blocks[2], blocks[3]};
    uint8_t in[16 * 16 * 4], out[16 * 16 * 4];
    int worst = 0;
    for (int rep = 0; rep < 50; ++rep) {
        zebtest::fillRandom(in, sizeof in, 0, 255);
        ASSERT_EQ(zebiRGBToYCbCr444LS_MCU_8u16s_C3P3R(in, 24, d), zebStatusOk);
        ASSERT_EQ(zebiYCbCr444ToRGBLS_MCU_16s8u_P3C3R(s, out, 24), zebStatusOk);
        for (int i = 0; i < 8 * 8 * 3; ++i) worst = std::max(worst, std::abs(in[i] - out[i]));
        ASSERT_EQ(zebiCMYKToYCCK444LS_MCU_8u16s_C4P4R(in, 32, d), zebStatusOk);
        ASSERT_EQ(zebiYCCK444ToCMYKLS_MCU_16s8u_P4C4R(s, out, 32), zebStatusOk);
        for (int i = 0; i < 8 * 8 * 4; ++i) worst = std::max(worst, std::abs(in[i] - out[i]));
    }
    EXPECT_LE(worst, 2);
    // With one colour per 2x2 square, 4:1:1 and 4:2:2 come back as closely.
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            for (int c = 0; c < 3; ++c) in[3 * (16 * y + x) + c] = static_cast<uint8_t>(((x / 2) * 37 + (y / 2) * 11 + c * 80) & 255);
    ASSERT_EQ(zebiBGRToYCbCr411LS_MCU_8u16s_C3P3R(in, 48, d), zebStatusOk);
    ASSERT_EQ(zebiYCbCr411ToBGRLS_MCU_16s8u_P3C3R(s, out, 48), zebStatusOk);
    for (int i = 0; i < 16 * 16 * 3; ++i) ASSERT_LE(std::abs(in[i] - out[i]), 2) << i;
    ASSERT_EQ(zebiRGBToYCbCr422LS_MCU_8u16s_C3P3R(in, 48, d), zebStatusOk);
    ASSERT_EQ(zebiYCbCr422ToRGBLS_MCU_16s8u_P3C3R(s, out, 48), zebStatusOk);
    for (int y = 0; y < 8; ++y)
        for (int i = 0; i < 48; ++i) ASSERT_LE(std::abs(in[48 * y + i] - out[48 * y + i]), 2) << y << "," << i;
}

}  // namespace
