// Code-block encoder: argument checks, allocation, the worked numbers of the
// modelling, round trips through an independent reference decoder for every
// code style, stores in pieces of every size, rates and distortion.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <cstring>
#include <random>
#include <vector>

#include "jpeg2000/coding/encoder.h"
#include "jpeg2000/coding/t1_reference.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using zebtest::GuardedBuffer;

struct Handle {
    ZebJ2kEncodeState* st = nullptr;
    explicit Handle(ZebSize max = {64, 64}) { EXPECT_EQ(zebiEncodeInitAlloc_JPEG2K(&st, max), zebStatusOk); }
    ~Handle() { zebiEncodeFree_JPEG2K(st); }
};

struct Coded {
    int S = 0, passes = 0, segments = 0;
    std::vector<uint8_t> bytes;
    std::vector<int> segLens, rates, calls;  // calls: bytes of each store call
    std::vector<double> dist;
};

// Loads a block and stores it in pieces of `chunk` bytes.
Coded encode(ZebJ2kEncodeState* st, const std::vector<int32_t>& block, int w, int h, int style, int subband = 0,
             int magnitudeBits = 31, int flush = 0, int chunk = 1 << 20, int stepExtra = 0) {
    Coded r;
    const int step = w * 4 + stepExtra;
    std::vector<uint8_t> src(static_cast<size_t>(step) * h + 4);
    for (int y = 0; y < h; ++y) std::memcpy(src.data() + static_cast<size_t>(y) * step, &block[y * w], 4 * w);
    EXPECT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(reinterpret_cast<const Zeb32s*>(src.data()), step, {w, h}, st,
                                                     subband, magnitudeBits, flush, 0, style, &r.S, &r.passes,
                                                     &r.segments),
              zebStatusOk);
    std::vector<uint8_t> buf(chunk);
    int more = 1;
    for (int guard = 0; more && guard < 1000000; ++guard) {
        int len = chunk;
        EXPECT_EQ(zebiEncodeStoreBits_JPEG2K_1u(buf.data(), &len, st, &more), zebStatusOk);
        r.bytes.insert(r.bytes.end(), buf.begin(), buf.begin() + len);
        r.calls.push_back(len);
    }
    for (int s = 0; s < r.segments; ++s) {
        int len = -1;
        EXPECT_EQ(zebiEncodeGetTermPassLen_JPEG2K(st, s, &len), zebStatusOk);
        r.segLens.push_back(len);
    }
    for (int p = 0; p < r.passes; ++p) {
        int rate = -1;
        double d = 0;
        EXPECT_EQ(zebiEncodeGetRate_JPEG2K(st, p, &rate), zebStatusOk);
        EXPECT_EQ(zebiEncodeGetDist_JPEG2K(st, p, &d), zebStatusOk);
        r.rates.push_back(rate);
        r.dist.push_back(d);
    }
    return r;
}

// Samples in sign-magnitude form with magnitudes below 2^bits, many zeros,
// as wavelet subbands look.
std::vector<int32_t> randomBlock(int w, int h, int bits, std::mt19937& g, double zeroShare = 0.4) {
    std::vector<int32_t> b(w * h);
    std::uniform_real_distribution<double> u(0, 1);
    for (auto& v : b) {
        if (u(g) < zeroShare) {
            v = 0;
            continue;
        }
        const double e = std::pow(u(g), 3.0);  // small magnitudes dominate
        uint32_t m = static_cast<uint32_t>(e * std::ldexp(1.0, bits));
        if (m >= (1u << bits)) m = (1u << bits) - 1;
        v = static_cast<int32_t>(m | ((g() & 1) && m ? 0x80000000u : 0));
    }
    return b;
}

// Decodes with the reference decoder and compares the magnitude bits from the
// lowest coded plane up, and the signs of the samples that have any.
void expectRoundTrip(const Coded& c, const std::vector<int32_t>& block, int w, int h, int style, int subband,
                     int magnitudeBits, const char* what) {
    const int L = 31 - magnitudeBits;
    const int planes = c.S - L > 0 ? c.S - L : 0;
    ASSERT_EQ(c.passes, planes ? 3 * planes - 2 : 0) << what;
    t1ref::Decoder d(w, h, subband, style);
    EXPECT_TRUE(d.run(c.bytes.data(), c.segLens, planes, c.passes)) << what;
    for (int i = 0; i < w * h; ++i) {
        const uint32_t v = static_cast<uint32_t>(block[i]);
        const uint32_t m = (v & 0x7FFFFFFFu) >> L;
        ASSERT_EQ(d.mag[i], m) << what << " sample " << i;
        if (m) ASSERT_EQ(d.neg[i], static_cast<int>(v >> 31)) << what << " sample " << i;
    }
}

// ------------------------------------------------------------------ checks

TEST(J2kEncodeChecks, OrderPerExport) {
    Handle h;
    ZebJ2kEncodeState* st = h.st;
    ZebJ2kEncodeState bad{};  // mark 0
    int32_t src[16] = {};
    int S, P, G, len = 8, more, rate;
    double dist;
    uint8_t dst[8];
    ZebJ2kEncodeState* out = reinterpret_cast<ZebJ2kEncodeState*>(1);

    struct Row {
        const char* what;
        ZebStatus got, want;
    };
    const Row rows[] = {
        {"alloc null", zebiEncodeInitAlloc_JPEG2K(nullptr, {0, 0}), zebStatusNullPointer},
        {"alloc height", zebiEncodeInitAlloc_JPEG2K(&out, {4, 0}), zebStatusBadSize},
        {"alloc width", zebiEncodeInitAlloc_JPEG2K(&out, {0, 4}), zebStatusBadSize},
        {"free null", zebiEncodeFree_JPEG2K(nullptr), zebStatusNullPointer},
        {"load state", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, nullptr, 0, 0, 0, 0, 0, nullptr, nullptr, nullptr), zebStatusNullPointer},
        {"load mark", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, &bad, 0, 0, 0, 0, 0, nullptr, nullptr, nullptr), zebStatusBadContext},
        {"load S", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, st, 0, 0, 0, 0, 0, nullptr, &P, &G), zebStatusNullPointer},
        {"load P", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, st, 0, 0, 0, 0, 0, &S, nullptr, &G), zebStatusNullPointer},
        {"load G", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, st, 0, 0, 0, 0, 0, &S, &P, nullptr), zebStatusNullPointer},
        {"load height", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, st, 0, 0, 0, 0, 0, &S, &P, &G), zebStatusBadSize},
        {"load width", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(nullptr, 0, {0, 1}, st, 0, 0, 0, 0, 0, &S, &P, &G), zebStatusBadSize},
        {"load src", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(nullptr, 0, {1, 1}, st, 0, 0, 0, 0, 0, &S, &P, &G), zebStatusNullPointer},
        {"load step", zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(src, 0, {1, 1}, st, 0, 0, 0, 0, 0, &S, &P, &G), zebStatusBadStep},
        {"store state", zebiEncodeStoreBits_JPEG2K_1u(nullptr, nullptr, nullptr, nullptr), zebStatusNullPointer},
        {"store mark", zebiEncodeStoreBits_JPEG2K_1u(nullptr, nullptr, &bad, nullptr), zebStatusBadContext},
        {"store dst", zebiEncodeStoreBits_JPEG2K_1u(nullptr, &len, st, &more), zebStatusNullPointer},
        {"store length", zebiEncodeStoreBits_JPEG2K_1u(dst, nullptr, st, &more), zebStatusNullPointer},
        {"store more", zebiEncodeStoreBits_JPEG2K_1u(dst, &len, st, nullptr), zebStatusNullPointer},
        {"rate state", zebiEncodeGetRate_JPEG2K(nullptr, -1, nullptr), zebStatusNullPointer},
        {"rate mark", zebiEncodeGetRate_JPEG2K(&bad, -1, nullptr), zebStatusBadContext},
        {"rate out", zebiEncodeGetRate_JPEG2K(st, -1, nullptr), zebStatusNullPointer},
        {"rate pass", zebiEncodeGetRate_JPEG2K(st, 0, &rate), zebStatusJ2kBadPass},
        {"dist state", zebiEncodeGetDist_JPEG2K(nullptr, -1, nullptr), zebStatusNullPointer},
        {"dist mark", zebiEncodeGetDist_JPEG2K(&bad, -1, nullptr), zebStatusBadContext},
        {"dist out", zebiEncodeGetDist_JPEG2K(st, -1, nullptr), zebStatusNullPointer},
        {"dist pass", zebiEncodeGetDist_JPEG2K(st, 0, &dist), zebStatusJ2kBadPass},
        {"len state", zebiEncodeGetTermPassLen_JPEG2K(nullptr, -1, nullptr), zebStatusNullPointer},
        {"len mark", zebiEncodeGetTermPassLen_JPEG2K(&bad, -1, nullptr), zebStatusBadContext},
        {"len out", zebiEncodeGetTermPassLen_JPEG2K(st, -1, nullptr), zebStatusNullPointer},
        {"len no block", zebiEncodeGetTermPassLen_JPEG2K(st, 0, &len), zebStatusJ2kBadPass},
    };
    for (const Row& r : rows) EXPECT_EQ(r.got, r.want) << r.what;
    // The handle of a failed size check is left alone.
    EXPECT_EQ(out, reinterpret_cast<ZebJ2kEncodeState*>(1));

    len = 0;
    EXPECT_EQ(zebiEncodeStoreBits_JPEG2K_1u(dst, &len, st, &more), zebStatusBadSize);
    len = -3;
    EXPECT_EQ(zebiEncodeStoreBits_JPEG2K_1u(dst, &len, st, &more), zebStatusBadSize);
    // With no block loaded a store gives nothing and asks for no more.
    len = 8;
    more = 7;
    EXPECT_EQ(zebiEncodeStoreBits_JPEG2K_1u(dst, &len, st, &more), zebStatusOk);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(more, 0);
}

TEST(J2kEncodeChecks, FailedLoadLeavesStateAlone) {
    Handle h;
    std::mt19937 g(7);
    auto block = randomBlock(16, 16, 9, g);
    Coded a = encode(h.st, block, 16, 16, 0);
    int S = 0, P = 0, G = 0;
    EXPECT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(block.data(), 0, {16, 16}, h.st, 0, 31, 0, 0, 0, &S, &P, &G),
              zebStatusBadStep);
    EXPECT_EQ(S, 0);
    for (int p = 0; p < a.passes; ++p) {
        int rate;
        ASSERT_EQ(zebiEncodeGetRate_JPEG2K(h.st, p, &rate), zebStatusOk);
        EXPECT_EQ(rate, a.rates[p]);
    }
}

TEST(J2kEncodeAlloc, EveryRequestCanFail) {
    const int live = zebcoreLiveAllocations();
    for (int n = 1; n <= 4; ++n) {
        ZebJ2kEncodeState* st = reinterpret_cast<ZebJ2kEncodeState*>(1);
        {
            zebtest::FailAllocation fail(n);
            EXPECT_EQ(zebiEncodeInitAlloc_JPEG2K(&st, {64, 64}), zebStatusNoMemory) << "request " << n;
        }
        EXPECT_EQ(st, nullptr);
        EXPECT_EQ(zebcoreLiveAllocations(), live) << "request " << n;
    }
    {
        // A fifth request does not exist: failing it changes nothing.
        zebtest::FailAllocation fail(5);
        ZebJ2kEncodeState* st = nullptr;
        ASSERT_EQ(zebiEncodeInitAlloc_JPEG2K(&st, {33, 7}), zebStatusOk);
        EXPECT_EQ(st->mark, 0x4C4D5344u);
        EXPECT_EQ(zebcoreLiveAllocations(), live + 4);
        EXPECT_EQ(zebiEncodeFree_JPEG2K(st), zebStatusOk);
    }
    EXPECT_EQ(zebcoreLiveAllocations(), live);
    // A symbol store too large for one request fails cleanly.
    ZebJ2kEncodeState* st = nullptr;
    EXPECT_EQ(zebiEncodeInitAlloc_JPEG2K(&st, {4096, 4096}), zebStatusNoMemory);
    EXPECT_EQ(st, nullptr);
    EXPECT_EQ(zebcoreLiveAllocations(), live);
}

// ------------------------------------------------------------------ worked numbers

TEST(J2kEncodeModel, SingleNegativeSampleInRowThree) {
    Handle h;
    std::vector<int32_t> block(4 * 4, 0);
    block[3 * 4 + 0] = static_cast<int32_t>(0x80000001u);  // -1 at row 3, column 0
    int S, P, G;
    ASSERT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(block.data(), 16, {4, 4}, h.st, 0, 31, 0, 0, 0, &S, &P, &G),
              zebStatusOk);
    EXPECT_EQ(S, 1);
    EXPECT_EQ(P, 1);
    EXPECT_EQ(G, 1);
    const ZebJ2kCoderState* c = h.st->coder;
    // Column 0: run-length 1, position 3 as 1 and 1, sign 1 with label 11.
    // Column 1 now has a significant neighbour: four zero-coding decisions,
    // rows 2 and 3 seeing it diagonally and to the west. Columns 2 and 3: one
    // run-length 0 each.
    const uint8_t wantD[] = {1, 1, 1, 1, 0, 0, 0, 0, 0, 0};
    const uint8_t wantC[] = {1, 0, 0, 11, 2, 2, 3, 7, 1, 1};
    ASSERT_EQ(c->passSymbols[0], 10);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(c->decisionBuffer[i], wantD[i]) << i;
        EXPECT_EQ(c->contextBuffer[i], wantC[i]) << i;
    }
    double d;
    ASSERT_EQ(zebiEncodeGetDist_JPEG2K(h.st, 0, &d), zebStatusOk);
    EXPECT_EQ(d, 0.75);  // 6144 / 8192 on plane L
    ASSERT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(block.data(), 16, {4, 4}, h.st, 0, 31, 0, 0,
                                                     zebJ2kExactLastPlane, &S, &P, &G),
              zebStatusOk);
    ASSERT_EQ(zebiEncodeGetDist_JPEG2K(h.st, 0, &d), zebStatusOk);
    EXPECT_EQ(d, 1.0);
}

TEST(J2kEncodeModel, PassCountsAndSegments) {
    Handle h;
    std::vector<int32_t> block(8 * 8, 0);
    int S, P, G;
    auto load = [&](int mb, int style) {
        return zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(block.data(), 32, {8, 8}, h.st, 0, mb, 0, 0, style, &S, &P, &G);
    };
    // All zero: no passes; one segment, or none under term-all.
    ASSERT_EQ(load(31, 0), zebStatusOk);
    EXPECT_EQ(S, 0);
    EXPECT_EQ(P, 0);
    EXPECT_EQ(G, 1);
    ASSERT_EQ(load(31, zebJ2kTermAll), zebStatusOk);
    EXPECT_EQ(G, 0);
    uint8_t buf[4];
    int len = 4, more = 1;
    EXPECT_EQ(zebiEncodeStoreBits_JPEG2K_1u(buf, &len, h.st, &more), zebStatusOk);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(more, 0);
    int rate;
    EXPECT_EQ(zebiEncodeGetRate_JPEG2K(h.st, 0, &rate), zebStatusJ2kBadPass);

    // Highest bit below the lowest plane: S reported, no passes.
    block[9] = 0x7F;  // S = 7
    ASSERT_EQ(load(24, 0), zebStatusOk);  // L = 7
    EXPECT_EQ(S, 7);
    EXPECT_EQ(P, 0);
    ASSERT_EQ(load(0, 0), zebStatusOk);  // L = 31
    EXPECT_EQ(P, 0);
    ASSERT_EQ(load(25, 0), zebStatusOk);  // L = 6: one plane
    EXPECT_EQ(P, 1);
    EXPECT_EQ(G, 1);
    EXPECT_EQ(zebiEncodeGetRate_JPEG2K(h.st, 1, &rate), zebStatusJ2kBadPass);

    // 3 (S - L) - 2 passes; bypass changes nothing with 4 planes.
    block[9] = 0x3F;  // S = 6
    for (int mb = 26; mb <= 31; ++mb) {
        ASSERT_EQ(load(mb, zebJ2kBypass), zebStatusOk);
        const int planes = 6 - (31 - mb);
        EXPECT_EQ(P, 3 * planes - 2);
        if (planes <= 4) {
            EXPECT_EQ(G, 1);
            for (int p = 0; p < P; ++p) EXPECT_EQ(h.st->coder->passRaw[p], 0);
        }
    }
    // Six planes under bypass: raw flags 0 x10, then 1 1 0 1 1 0; 5 segments.
    ASSERT_EQ(load(31, zebJ2kBypass), zebStatusOk);
    ASSERT_EQ(P, 16);
    EXPECT_EQ(G, 5);
    const int want[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 0, 1, 1, 0};
    for (int p = 0; p < 16; ++p) EXPECT_EQ(h.st->coder->passRaw[p], want[p]) << p;
    ASSERT_EQ(load(31, zebJ2kBypass | zebJ2kTermAll), zebStatusOk);
    EXPECT_EQ(G, 16);
    // Distortion exponents: 2 (p - L) - 13, plane 5 down to 0.
    EXPECT_EQ(h.st->passShift[0], -3);
    EXPECT_EQ(h.st->passShift[15], -13);
}

TEST(J2kEncodeModel, ShortStripesHaveNoRunLength) {
    Handle h;
    for (int height = 1; height <= 3; ++height) {
        std::vector<int32_t> block(5 * height, 0);
        block[0] = 1;
        int S, P, G;
        ASSERT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(block.data(), 20, {5, height}, h.st, 0, 31, 0, 0, 0, &S,
                                                         &P, &G),
                  zebStatusOk);
        const ZebJ2kCoderState* c = h.st->coder;
        ASSERT_EQ(c->passSymbols[0], 5 * height + 1);  // every sample plus one sign
        for (int i = 0; i < c->passSymbols[0]; ++i) EXPECT_NE(c->contextBuffer[i], 1);
    }
}

// ------------------------------------------------------------------ round trips

struct Style {
    int bits;
    const char* name;
};
const Style kStyles[] = {
    {0, "plain"},
    {zebJ2kCausal, "causal"},
    {zebJ2kBypass, "bypass"},
    {zebJ2kTermAll, "termall"},
    {zebJ2kResetContexts, "reset"},
    {zebJ2kSegmentationSymbols, "segsym"},
    {zebJ2kBypass | zebJ2kTermAll, "bypass+termall"},
    {zebJ2kBypass | zebJ2kResetContexts | zebJ2kCausal, "bypass+reset+causal"},
    {zebJ2kCausal | zebJ2kTermAll | zebJ2kSegmentationSymbols | zebJ2kResetContexts, "causal+termall+segsym+reset"},
    {63, "all"},
};

TEST(J2kEncodeRoundTrip, EveryStyleSizeAndSubband) {
    Handle h({64, 64});
    std::mt19937 g(2024);
    const ZebSize sizes[] = {{1, 1}, {4, 4}, {64, 64}, {32, 8}, {8, 32}, {1, 5}, {5, 1}, {3, 2}, {7, 5}, {13, 11},
                             {17, 6}, {64, 1}, {1, 64}, {2, 3}, {31, 33}};
    for (const Style& s : kStyles) {
        for (const ZebSize& sz : sizes) {
            for (int subband = 0; subband < 4; ++subband) {
                const int bits = 1 + static_cast<int>(g() % 12);
                auto block = randomBlock(sz.width, sz.height, bits, g, (g() % 3) * 0.3);
                for (int flush : {0, 1, 2}) {
                    const int mb = 31 - static_cast<int>(g() % 3);  // L = 0 to 2
                    Coded c = encode(h.st, block, sz.width, sz.height, s.bits, subband, mb, flush);
                    std::string what = std::string(s.name) + " " + std::to_string(sz.width) + "x" +
                                       std::to_string(sz.height) + " sb" + std::to_string(subband) + " flush" +
                                       std::to_string(flush);
                    int total = 0;
                    for (int v : c.segLens) total += v;
                    EXPECT_EQ(total, static_cast<int>(c.bytes.size())) << what;
                    expectRoundTrip(c, block, sz.width, sz.height, s.bits, subband, mb, what.c_str());
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}

// The eight-column forms of the modelling against the per-sample forms: the
// same symbols, pass tables and distortion, on widths with and without a
// tail of fewer than eight columns, heights with a short last stripe, the
// exact last plane, and blocks from nearly empty to dense. The modelling is
// called directly, with the per-sample forms asked for by its last argument.
TEST(J2kEncodeModel, VectorColumnsMatchPerSampleColumns) {
    Handle h({64, 64});
    std::mt19937 g(77);
    const ZebSize sizes[] = {{8, 4}, {16, 8}, {17, 12}, {64, 64}, {40, 7}, {23, 64}, {64, 5}};
    const int styles[] = {0, zebJ2kCausal, zebJ2kExactLastPlane, zebJ2kBypass | zebJ2kSegmentationSymbols, 63};
    struct Model {
        int S = 0;
        std::vector<uint8_t> dec, ctx;
        std::vector<int> symbols, raw, dist, shift;
    };
    for (const ZebSize& sz : sizes)
        for (int style : styles)
            for (double zeros : {0.0, 0.5, 0.95}) {
                const int bits = 2 + static_cast<int>(g() % 14);
                const int subband = static_cast<int>(g() % 4);
                const int mb = 31 - static_cast<int>(g() % 3);
                auto block = randomBlock(sz.width, sz.height, bits, g, zeros);
                Model m[2];
                for (int v = 0; v < 2; ++v) {
                    m[v].S = zeb::j2k::modelCodeBlock(block.data(), 4 * sz.width, sz.width, sz.height, h.st, subband,
                                                      mb, 0, style, v == 1);
                    const ZebJ2kCoderState* cs = h.st->coder;
                    m[v].dec.assign(cs->decisionBuffer, cs->decisionBuffer + cs->symbolsWritten);
                    m[v].ctx.assign(cs->contextBuffer, cs->contextBuffer + cs->symbolsWritten);
                    int at = 0;
                    for (int i = 0; i < cs->passCount; ++i) {
                        // Raw symbols leave their context byte unwritten.
                        if (cs->passRaw[i]) std::fill(m[v].ctx.begin() + at, m[v].ctx.begin() + at + cs->passSymbols[i], 0);
                        at += cs->passSymbols[i];
                        m[v].symbols.push_back(cs->passSymbols[i]);
                        m[v].raw.push_back(cs->passRaw[i]);
                        m[v].dist.push_back(h.st->passDistortion[i]);
                        m[v].shift.push_back(h.st->passShift[i]);
                    }
                }
                const std::string what = std::to_string(sz.width) + "x" + std::to_string(sz.height) + " style " +
                                         std::to_string(style) + " zeros " + std::to_string(zeros);
                EXPECT_EQ(m[0].S, m[1].S) << what;
                EXPECT_EQ(m[0].dec, m[1].dec) << what;
                EXPECT_EQ(m[0].ctx, m[1].ctx) << what;
                EXPECT_EQ(m[0].symbols, m[1].symbols) << what;
                EXPECT_EQ(m[0].raw, m[1].raw) << what;
                EXPECT_EQ(m[0].dist, m[1].dist) << what;
                EXPECT_EQ(m[0].shift, m[1].shift) << what;
                if (HasFailure()) return;
            }
}

TEST(J2kEncodeRoundTrip, WideMagnitudesAndMisalignedRows) {
    Handle h({40, 12});
    std::mt19937 g(99);
    for (int bits : {20, 28, 31}) {
        auto block = randomBlock(40, 12, bits, g, 0.1);
        for (int extra : {1, 2, 3, 7}) {
            for (int style : {0, int{zebJ2kBypass}, zebJ2kTermAll | zebJ2kBypass}) {
                Coded c = encode(h.st, block, 40, 12, style, 1, 31, 0, 1 << 20, extra);
                expectRoundTrip(c, block, 40, 12, style, 1, 31, "wide");
            }
        }
    }
}

TEST(J2kEncodeRoundTrip, LoadReplacesUnfinishedBlock) {
    Handle h;
    std::mt19937 g(5);
    auto first = randomBlock(32, 32, 10, g);
    auto second = randomBlock(20, 9, 6, g);
    int S, P, G;
    ASSERT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(first.data(), 128, {32, 32}, h.st, 0, 31, 0, 0, zebJ2kBypass,
                                                     &S, &P, &G),
              zebStatusOk);
    uint8_t buf[37];
    int len = 37, more;
    ASSERT_EQ(zebiEncodeStoreBits_JPEG2K_1u(buf, &len, h.st, &more), zebStatusOk);
    ASSERT_EQ(more, 1);
    Coded again = encode(h.st, second, 20, 9, 0);
    Handle fresh;
    Coded ref = encode(fresh.st, second, 20, 9, 0);
    EXPECT_EQ(again.bytes, ref.bytes);
    EXPECT_EQ(again.rates, ref.rates);
    expectRoundTrip(again, second, 20, 9, 0, 0, 31, "second block");
}

// ------------------------------------------------------------------ storing in pieces

TEST(J2kEncodeStore, PiecesOfEverySizeGiveTheSameCodeword) {
    Handle h;
    std::mt19937 g(77);
    const int styles[] = {0, zebJ2kBypass, zebJ2kTermAll, zebJ2kBypass | zebJ2kTermAll | zebJ2kSegmentationSymbols};
    for (int style : styles) {
        for (int flush : {0, 1, 2}) {
            auto block = randomBlock(24, 13, 11, g, 0.3);
            Coded whole = encode(h.st, block, 24, 13, style, 3, 31, flush);
            ASSERT_GT(whole.bytes.size(), 40u);
            EXPECT_EQ(whole.calls.size(), 1u);
            for (int chunk = 1; chunk <= 40; ++chunk) {
                Coded parts = encode(h.st, block, 24, 13, style, 3, 31, flush, chunk);
                ASSERT_EQ(parts.bytes, whole.bytes) << "style " << style << " flush " << flush << " chunk " << chunk;
                EXPECT_EQ(parts.segLens, whole.segLens) << "chunk " << chunk;
                EXPECT_EQ(parts.dist, whole.dist);
                // Terminated full flushes leave no pass with bytes in the
                // queue, and never end on 0xFF: the rates agree exactly.
                if ((style & zebJ2kTermAll) && !(style & zebJ2kBypass) && flush == 0)
                    EXPECT_EQ(parts.rates, whole.rates) << "chunk " << chunk;
                for (size_t i = 0; i + 1 < parts.calls.size(); ++i) EXPECT_LE(parts.calls[i], chunk);
                // Rates never exceed the bytes plus the five-byte estimate, and
                // never fall from one pass to the next.
                for (int p = 0; p < parts.passes; ++p) {
                    EXPECT_LE(parts.rates[p], static_cast<int>(parts.bytes.size()) + 5);
                    if (p) EXPECT_GE(parts.rates[p], parts.rates[p - 1]);
                }
            }
        }
    }
}

TEST(J2kEncodeStore, BuffersKeepTheirBounds) {
    Handle h;
    std::mt19937 g(3);
    auto block = randomBlock(16, 16, 8, g);
    Coded whole = encode(h.st, block, 16, 16, zebJ2kBypass);
    int S, P, G;
    ASSERT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(block.data(), 64, {16, 16}, h.st, 0, 31, 0, 0, zebJ2kBypass, &S,
                                                     &P, &G),
              zebStatusOk);
    std::vector<uint8_t> got;
    int more = 1;
    for (int k = 0; more; ++k) {
        const int cap = 1 + k % 5;
        GuardedBuffer buf(cap, k % 3);
        int len = cap;
        ASSERT_EQ(zebiEncodeStoreBits_JPEG2K_1u(buf.data(), &len, h.st, &more), zebStatusOk);
        EXPECT_TRUE(buf.guardsIntact());
        got.insert(got.end(), buf.data(), buf.data() + len);
    }
    EXPECT_EQ(got, whole.bytes);
    // After the end a call stores nothing.
    uint8_t b[4];
    int len = 4;
    ASSERT_EQ(zebiEncodeStoreBits_JPEG2K_1u(b, &len, h.st, &more), zebStatusOk);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(more, 0);
}

TEST(J2kEncodeStore, TerminatedSegmentsEndCleanly) {
    Handle h;
    std::mt19937 g(11);
    int emptyPasses = 0, rawChecked = 0;
    for (int trial = 0; trial < 30; ++trial) {
        auto block = randomBlock(16, 16, 10, g, 0.5);
        Coded c = encode(h.st, block, 16, 16, zebJ2kTermAll | zebJ2kBypass, 0, 31, 0);
        const ZebJ2kCoderState* cs = h.st->coder;
        int offset = 0;
        for (int p = 0; p < c.passes; ++p) {
            const int len = c.segLens[p];
            EXPECT_EQ(len, cs->passBytes[p]);
            if (cs->passSymbols[p] == 0) {
                // An empty pass codes nothing and costs nothing.
                EXPECT_EQ(len, 0);
                if (p) EXPECT_EQ(c.rates[p], c.rates[p - 1]);
                ++emptyPasses;
            } else if (cs->passRaw[p]) {
                // Raw: the bits of the pass, then the 0,1,0,1 padding.
                t1ref::Raw r;
                r.init(c.bytes.data() + offset, len);
                for (int k = 0; k < cs->passSymbols[p]; ++k) r.get();
                EXPECT_EQ(r.pos, len);
                if (r.bit >= 0) {
                    const uint32_t mask = (2u << r.bit) - 1;
                    EXPECT_EQ(r.cur & mask, (85u >> (7 - r.bit)) & mask) << "pass " << p;
                }
                ++rawChecked;
            } else {
                // A full flush never leaves 0xFF last.
                ASSERT_GT(len, 0);
                EXPECT_NE(c.bytes[offset + len - 1], 0xFF);
            }
            offset += len;
        }
    }
    EXPECT_GT(emptyPasses, 0);
    EXPECT_GT(rawChecked, 0);
}

// Raw refinement passes of all-ones decisions: 4 ones pad to 1111 0101; 8
// ones fill 0xFF with no padding byte; 12 ones give 0xFF, then a byte whose
// top bit is stuffed: 0 1111 then the padding 010.
TEST(J2kEncodeStore, RawPaddingAndStuffing) {
    Handle h;
    const struct {
        int samples;
        std::vector<uint8_t> want;
    } cases[] = {{4, {0xF5}}, {8, {0xFF}}, {12, {0xFF, 0x7A}}};
    for (const auto& k : cases) {
        std::vector<int32_t> block(k.samples, 0x1FF);  // nine planes, all ones
        for (int chunk : {1, 2, 1000}) {
            Coded c = encode(h.st, block, k.samples, 1, zebJ2kBypass | zebJ2kTermAll, 0, 31, 0, chunk);
            ASSERT_EQ(c.passes, 25);
            const ZebJ2kCoderState* cs = h.st->coder;
            // Pass 10 is the first raw significance pass (nothing left to
            // code), pass 11 the first raw refinement pass.
            ASSERT_EQ(cs->passRaw[11], 1);
            EXPECT_EQ(cs->passSymbols[10], 0);
            EXPECT_EQ(c.segLens[10], 0);
            int offset = 0;
            for (int p = 0; p < 11; ++p) offset += c.segLens[p];
            ASSERT_EQ(c.segLens[11], static_cast<int>(k.want.size())) << k.samples;
            EXPECT_EQ(std::vector<uint8_t>(c.bytes.begin() + offset, c.bytes.begin() + offset + c.segLens[11]), k.want)
                << k.samples;
            // The rate of a pass whose last byte is 0xFF stops before it, when
            // the pass completes in the call that stored that byte. With
            // one-byte calls the full last byte leaves no room, the pass
            // completes in the next call, and its rate keeps the 0xFF.
            const int end = offset + c.segLens[11];
            const bool lowered = k.want.back() == 0xFF && !(chunk == 1 && k.samples == 8);
            EXPECT_EQ(c.rates[11], lowered ? end - 1 : end) << k.samples << " chunk " << chunk;
        }
    }
}

// The rate of a pass is enough to decode through it: the reference decoder
// fed the truncated codeword reaches the same state as with all of it.
TEST(J2kEncodeStore, RatesSufficeForDecoding) {
    Handle h;
    std::mt19937 g(8);
    for (int trial = 0; trial < 12; ++trial) {
        const int w = 8 + trial * 3, ht = 5 + trial * 2;
        auto block = randomBlock(w, ht, 12, g, 0.35);
        for (int flush : {0, 1, 2}) {
            Coded c = encode(h.st, block, w, ht, trial % 2 ? zebJ2kSegmentationSymbols : 0, 0, 31, flush);
            const int planes = c.S;
            for (int p = 0; p < c.passes; ++p) {
                t1ref::Decoder full(w, ht, 0, 0), cut(w, ht, 0, 0);
                full.style = cut.style = trial % 2 ? zebJ2kSegmentationSymbols : 0;
                full.run(c.bytes.data(), c.segLens, planes, p + 1);
                ASSERT_LE(c.rates[p], static_cast<int>(c.bytes.size()) + 5);
                const int n = std::min<int>(c.rates[p], static_cast<int>(c.bytes.size()));
                cut.run(c.bytes.data(), {n}, planes, p + 1);
                ASSERT_EQ(cut.mag, full.mag) << "trial " << trial << " flush " << flush << " pass " << p;
                ASSERT_EQ(cut.neg, full.neg);
            }
            EXPECT_LE(c.rates.back(), static_cast<int>(c.bytes.size()));
        }
    }
}

// ------------------------------------------------------------------ distortion

// Each pass's figure against the table formulas applied to the samples that
// the reference decoder finds changed in that pass.
TEST(J2kEncodeDistortion, MatchesTheFormulasPerPass) {
    Handle h;
    std::mt19937 g(31);
    for (int style : {0, int{zebJ2kExactLastPlane}, zebJ2kBypass | zebJ2kExactLastPlane}) {
        for (int mb : {31, 29, 24}) {
            auto block = randomBlock(12, 9, 14, g, 0.2);
            Coded c = encode(h.st, block, 12, 9, style, 0, mb, 0);
            const int L = 31 - mb;
            const int planes = c.S - L;
            t1ref::Decoder prev(12, 9, 0, style & 31);
            double sum = 0;
            for (int p = 0; p < c.passes; ++p) {
                t1ref::Decoder cur(12, 9, 0, style & 31);
                cur.run(c.bytes.data(), c.segLens, planes, p + 1);
                const int plane = planes - 1 - (p + 2) / 3;
                const bool exact = (style & zebJ2kExactLastPlane) && plane == 0;
                const int kind = p == 0 ? 2 : (p - 1) % 3;
                double d = 0;
                for (int i = 0; i < 12 * 9; ++i) {
                    const uint32_t m = static_cast<uint32_t>(block[i]) & 0x7FFFFFFF;
                    const int absPlane = plane + L;
                    const double frac = std::ldexp(static_cast<double>(m & ((1u << absPlane) - 1)), -absPlane);
                    const double below = std::floor(frac * 64) / 64;  // six bits below the plane
                    if (!prev.sig[i] && cur.sig[i]) {
                        const double x = 1 + below;
                        d += exact ? x * x : x * x - (x - 1.5) * (x - 1.5);
                    } else if (kind == 1 && prev.sig[i] && !prev.visit[i]) {
                        const double mm = ((m >> absPlane) & 1) + below;
                        const double r = mm < 1 ? 0.5 : 1.5;
                        d += exact ? (mm - 1) * (mm - 1) : (mm - 1) * (mm - 1) - (mm - r) * (mm - r);
                    }
                }
                sum += std::ldexp(d, 2 * plane);
                ASSERT_EQ(c.dist[p], sum) << "style " << style << " mb " << mb << " pass " << p;
                prev = cur;
            }
        }
    }
}

}  // namespace
