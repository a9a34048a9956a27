// Huffman tables and objects: checks, sizes, both table builders and their
// validity rules, the lookup and slow-search fields, the optimal table
// builder with its tie-breaks, reserved code and length limiting.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "jpeg/huffman/huffman.h"
#include "std_tables.h"
#include "support/test_util.h"
#include "zebcore.h"
#include "zebjp.h"

namespace {

using namespace hufftest;
using PairII = std::pair<int, int>;

TEST(HuffmanObjects, SizesAndLayouts) {
    EXPECT_EQ(sizeof(EncodeHuffmanSpec), 1024u);
    EXPECT_EQ(sizeof(DecodeHuffmanSpec), 1644u);
    EXPECT_EQ(sizeof(EncodeHuffmanState), 1048u);
    EXPECT_EQ(sizeof(DecodeHuffmanState), 24u);
    EXPECT_EQ(offsetof(DecodeHuffmanSpec, lookup), 512u);
    EXPECT_EQ(offsetof(DecodeHuffmanSpec, symbolIndex), 1608u);
    EXPECT_EQ(offsetof(EncodeHuffmanState, correctionBits), 20u);
    EXPECT_EQ(offsetof(DecodeHuffmanState, blockEnd), 16u);

    using Query = ZebStatus (*)(int*);
    const std::pair<Query, int> q[] = {{zebiEncodeHuffmanSpecGetBufSize_JPEG_8u, 1024},
                                       {zebiDecodeHuffmanSpecGetBufSize_JPEG_8u, 1644},
                                       {zebiEncodeHuffmanStateGetBufSize_JPEG_8u, 1048},
                                       {zebiDecodeHuffmanStateGetBufSize_JPEG_8u, 24}};
    for (auto [f, want] : q) {
        int size = -12345;
        EXPECT_EQ(f(&size), zebStatusOk);
        EXPECT_EQ(size, want);
        EXPECT_EQ(f(nullptr), zebStatusNullPointer);
        // Any address: the size lands in an odd-placed int too.
        alignas(8) uint8_t raw[8] = {};
        EXPECT_EQ(f(reinterpret_cast<int*>(raw + 1)), zebStatusOk);
        int got;
        std::memcpy(&got, raw + 1, 4);
        EXPECT_EQ(got, want);
    }
}

// One row per export: each call breaks the arguments from the first on, so
// the first failing check decides.
TEST(HuffmanObjects, ArgumentChecks) {
    uint8_t bits[16] = {}, vals[256] = {};
    int32_t stats[256] = {};
    EncodeHuffmanSpec es;
    DecodeHuffmanSpec ds;
    EncodeHuffmanSpec* esp;
    DecodeHuffmanSpec* dsp;
    EncodeHuffmanState* est;
    DecodeHuffmanState* dst;
    const std::vector<std::function<ZebStatus()>> nulls = {
        [&] { return zebiEncodeHuffmanSpecInit_JPEG_8u(nullptr, vals, &es); },
        [&] { return zebiEncodeHuffmanSpecInit_JPEG_8u(bits, nullptr, &es); },
        [&] { return zebiEncodeHuffmanSpecInit_JPEG_8u(bits, vals, nullptr); },
        [&] { return zebiEncodeHuffmanSpecInitAlloc_JPEG_8u(nullptr, vals, &esp); },
        [&] { return zebiEncodeHuffmanSpecInitAlloc_JPEG_8u(bits, nullptr, &esp); },
        [&] { return zebiEncodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, nullptr); },
        [&] { return zebiEncodeHuffmanSpecFree_JPEG_8u(nullptr); },
        [&] { return zebiDecodeHuffmanSpecInit_JPEG_8u(nullptr, vals, &ds); },
        [&] { return zebiDecodeHuffmanSpecInit_JPEG_8u(bits, nullptr, &ds); },
        [&] { return zebiDecodeHuffmanSpecInit_JPEG_8u(bits, vals, nullptr); },
        [&] { return zebiDecodeHuffmanSpecInitAlloc_JPEG_8u(nullptr, vals, &dsp); },
        [&] { return zebiDecodeHuffmanSpecInitAlloc_JPEG_8u(bits, nullptr, &dsp); },
        [&] { return zebiDecodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, nullptr); },
        [&] { return zebiDecodeHuffmanSpecFree_JPEG_8u(nullptr); },
        [&] { return zebiEncodeHuffmanStateInit_JPEG_8u(nullptr); },
        [&] { return zebiEncodeHuffmanStateInitAlloc_JPEG_8u(nullptr); },
        [&] { return zebiEncodeHuffmanStateFree_JPEG_8u(nullptr); },
        [&] { return zebiDecodeHuffmanStateInit_JPEG_8u(nullptr); },
        [&] { return zebiDecodeHuffmanStateInitAlloc_JPEG_8u(nullptr); },
        [&] { return zebiDecodeHuffmanStateFree_JPEG_8u(nullptr); },
        [&] { return zebiEncodeHuffmanRawTableInit_JPEG_8u(nullptr, bits, vals); },
        [&] { return zebiEncodeHuffmanRawTableInit_JPEG_8u(stats, nullptr, vals); },
        [&] { return zebiEncodeHuffmanRawTableInit_JPEG_8u(stats, bits, nullptr); },
    };
    const int live = zebcoreLiveAllocations();
    for (size_t i = 0; i < nulls.size(); ++i) EXPECT_EQ(nulls[i](), zebStatusNullPointer) << "row " << i;
    EXPECT_EQ(zebcoreLiveAllocations(), live);
    (void)est;
    (void)dst;
}

TEST(HuffmanObjects, InitAllocFreeAndAllocationFailure) {
    const int live = zebcoreLiveAllocations();
    EncodeHuffmanSpec* es = nullptr;
    DecodeHuffmanSpec* ds = nullptr;
    EncodeHuffmanState* est = nullptr;
    DecodeHuffmanState* dst = nullptr;
    {
        zebtest::FailAllocation fail(1);
        EXPECT_EQ(zebiEncodeHuffmanSpecInitAlloc_JPEG_8u(kDcLumBits, kDcVals, &es), zebStatusNullPointer);
    }
    {
        zebtest::FailAllocation fail(1);
        EXPECT_EQ(zebiDecodeHuffmanSpecInitAlloc_JPEG_8u(kDcLumBits, kDcVals, &ds), zebStatusNullPointer);
    }
    {
        zebtest::FailAllocation fail(1);
        EXPECT_EQ(zebiEncodeHuffmanStateInitAlloc_JPEG_8u(&est), zebStatusNullPointer);
    }
    {
        zebtest::FailAllocation fail(1);
        EXPECT_EQ(zebiDecodeHuffmanStateInitAlloc_JPEG_8u(&dst), zebStatusNullPointer);
    }
    EXPECT_EQ(zebcoreLiveAllocations(), live);

    ASSERT_EQ(zebiEncodeHuffmanSpecInitAlloc_JPEG_8u(kDcLumBits, kDcVals, &es), zebStatusOk);
    ASSERT_EQ(zebiDecodeHuffmanSpecInitAlloc_JPEG_8u(kAcLumBits, kAcLumVals, &ds), zebStatusOk);
    ASSERT_EQ(zebiEncodeHuffmanStateInitAlloc_JPEG_8u(&est), zebStatusOk);
    ASSERT_EQ(zebiDecodeHuffmanStateInitAlloc_JPEG_8u(&dst), zebStatusOk);
    EXPECT_EQ(zebcoreLiveAllocations(), live + 4);
    EXPECT_EQ(es->entry[0], 2u << 16 | 0u);
    EXPECT_EQ(est->bitCount, 0);
    EXPECT_EQ(est->correctionBits[1023], 0);
    EXPECT_EQ(dst->accumulator, 0u);
    EXPECT_EQ(zebiEncodeHuffmanSpecFree_JPEG_8u(es), zebStatusOk);
    EXPECT_EQ(zebiDecodeHuffmanSpecFree_JPEG_8u(ds), zebStatusOk);
    EXPECT_EQ(zebiEncodeHuffmanStateFree_JPEG_8u(est), zebStatusOk);
    EXPECT_EQ(zebiDecodeHuffmanStateFree_JPEG_8u(dst), zebStatusOk);
    EXPECT_EQ(zebcoreLiveAllocations(), live);

    // A failed build still hands out the object, which the caller frees.
    const uint8_t twoOfOne[16] = {2};
    const uint8_t three[3] = {0, 1, 2};
    es = nullptr;
    EXPECT_EQ(zebiEncodeHuffmanSpecInitAlloc_JPEG_8u(twoOfOne, three, &es), zebStatusJpegHuffmanTable);
    ASSERT_NE(es, nullptr);
    EXPECT_EQ(zebiEncodeHuffmanSpecFree_JPEG_8u(es), zebStatusOk);
    const uint8_t threeOfOne[16] = {3};
    ds = nullptr;
    EXPECT_EQ(zebiDecodeHuffmanSpecInitAlloc_JPEG_8u(threeOfOne, three, &ds), zebStatusJpegHuffmanTable);
    ASSERT_NE(ds, nullptr);
    EXPECT_EQ(zebiDecodeHuffmanSpecFree_JPEG_8u(ds), zebStatusOk);
    EXPECT_EQ(zebcoreLiveAllocations(), live);
}

TEST(HuffmanObjects, InitClearsWholeState) {
    EncodeHuffmanState es;
    DecodeHuffmanState ds;
    std::memset(&es, 0x5A, sizeof es);
    std::memset(&ds, 0x5A, sizeof ds);
    EXPECT_EQ(zebiEncodeHuffmanStateInit_JPEG_8u(&es), zebStatusOk);
    EXPECT_EQ(zebiDecodeHuffmanStateInit_JPEG_8u(&ds), zebStatusOk);
    EXPECT_EQ(es.accumulator, 0u);
    EXPECT_EQ(es.bitCount | es.eobRun | es.correctionCount, 0);
    for (uint8_t b : es.correctionBits) ASSERT_EQ(b, 0);
    EXPECT_EQ(ds.accumulator, 0u);
    EXPECT_EQ(ds.bitCount | ds.eobRun | ds.blockEnd, 0);
}

// Codes of the standard luminance tables as T.81 lists them.
TEST(HuffmanSpecBuild, StandardTableCodes) {
    EncodeHuffmanSpec dc, ac;
    ASSERT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(kDcLumBits, kDcVals, &dc), zebStatusOk);
    ASSERT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(kAcLumBits, kAcLumVals, &ac), zebStatusOk);
    EXPECT_EQ(dc.entry[0], 2u << 16 | 0b00);
    EXPECT_EQ(dc.entry[1], 3u << 16 | 0b010);
    EXPECT_EQ(dc.entry[5], 3u << 16 | 0b110);
    EXPECT_EQ(dc.entry[6], 4u << 16 | 0b1110);
    EXPECT_EQ(dc.entry[11], 9u << 16 | 0b111111110);
    EXPECT_EQ(dc.entry[12], 0u);
    EXPECT_EQ(ac.entry[0x01], 2u << 16 | 0b00);
    EXPECT_EQ(ac.entry[0x00], 4u << 16 | 0b1010);
    EXPECT_EQ(ac.entry[0xF0], 11u << 16 | 0b11111111001);
    EXPECT_EQ(ac.entry[0x11], 4u << 16 | 0b1100);
    EXPECT_EQ(ac.entry[0xFA], 16u << 16 | 0xFFFE);
    EXPECT_EQ(ac.entry[0x0B], 0u);  // no category 11 in AC tables

    DecodeHuffmanSpec d;
    ASSERT_EQ(zebiDecodeHuffmanSpecInit_JPEG_8u(kAcLumBits, kAcLumVals, &d), zebStatusOk);
    EXPECT_EQ(d.symbols[0], 0x01);
    EXPECT_EQ(d.symbols[161], 0xFA);
    EXPECT_EQ(d.symbols[162], 0);
    EXPECT_EQ(d.lookup[0x00], 2u << 16 | 0x01);    // 00......
    EXPECT_EQ(d.lookup[0x7F], 2u << 16 | 0x02);    // 01......
    EXPECT_EQ(d.lookup[0xA0], 4u << 16 | 0x00);    // 1010....
    EXPECT_EQ(d.lookup[0xFF], 0u);                 // longer than 8 bits
    EXPECT_EQ(d.maxCode[1], 0xFFFF);
    EXPECT_EQ(d.minCode[2], 0);
    EXPECT_EQ(d.maxCode[2], 1);
    EXPECT_EQ(d.symbolIndex[3], 2);
    EXPECT_EQ(d.maxCode[13], 0xFFFF);
    EXPECT_EQ(d.minCode[15], 0x7FC0);
    EXPECT_EQ(d.maxCode[16], 0xFFFE);
    EXPECT_EQ(d.symbolIndex[16], 162 - 125);
    EXPECT_EQ(d.maxCode[17], 0xFFFF);
    // Every code of length up to 8 fills exactly its slice of the lookup.
    EncodeHuffmanSpec e;
    ASSERT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(kAcLumBits, kAcLumVals, &e), zebStatusOk);
    int filled = 0;
    for (int s = 0; s < 256; ++s) {
        uint32_t len = e.entry[s] >> 16, code = e.entry[s] & 0xFFFF;
        if (len == 0 || len > 8) continue;
        for (uint32_t j = 0; j < (1u << (8 - len)); ++j, ++filled)
            ASSERT_EQ(d.lookup[(code << (8 - len)) + j], len << 16 | static_cast<uint32_t>(s));
    }
    int nonzero = 0;
    for (uint32_t v : d.lookup) nonzero += v != 0;
    EXPECT_EQ(nonzero, filled);
}

TEST(HuffmanSpecBuild, ValidityRulesDifferBetweenBuilders) {
    std::vector<uint8_t> vals(256);
    for (int i = 0; i < 256; ++i) vals[i] = static_cast<uint8_t>(i);
    EncodeHuffmanSpec e;
    DecodeHuffmanSpec d;
    auto both = [&](const uint8_t* bits, const uint8_t* v) {
        return std::make_pair(zebiEncodeHuffmanSpecInit_JPEG_8u(bits, v, &e), zebiDecodeHuffmanSpecInit_JPEG_8u(bits, v, &d));
    };
    uint8_t bits[16] = {};
    bits[0] = 2;  // two codes of length 1: the last one is all ones
    EXPECT_EQ(both(bits, vals.data()), PairII(zebStatusJpegHuffmanTable, zebStatusOk));
    EXPECT_EQ(d.lookup[0x00], 1u << 16 | 0u);
    EXPECT_EQ(d.lookup[0xFF], 1u << 16 | 1u);
    bits[0] = 3;
    EXPECT_EQ(both(bits, vals.data()), PairII(zebStatusJpegHuffmanTable, zebStatusJpegHuffmanTable));
    // 255 codes of length 8 fit both; 256 fit only the decoder.
    std::memset(bits, 0, 16);
    bits[7] = 255;
    EXPECT_EQ(both(bits, vals.data()), PairII(zebStatusOk, zebStatusOk));
    EXPECT_EQ(e.entry[254], 8u << 16 | 254u);
    EXPECT_EQ(d.lookup[255], 0u);
    bits[7] = 0;
    bits[8] = 255;
    bits[15] = 2;  // 257 in total: refused before vals is read
    std::vector<uint8_t> one(1, 7);
    EXPECT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(bits, one.data(), &e), zebStatusJpegHuffmanTable);
    EXPECT_EQ(zebiDecodeHuffmanSpecInit_JPEG_8u(bits, one.data(), &d), zebStatusJpegHuffmanTable);
    // Overflow beyond 8 bits: the encoder refuses, the decoder does not look.
    std::memset(bits, 0, 16);
    bits[0] = 1;
    bits[1] = 1;
    bits[8] = 128;  // the last code of length 9 is all ones
    EXPECT_EQ(both(bits, vals.data()), PairII(zebStatusJpegHuffmanTable, zebStatusOk));
    // Empty table: every entry 0.
    std::memset(bits, 0, 16);
    std::memset(&e, 0x77, sizeof e);
    EXPECT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(bits, vals.data(), &e), zebStatusOk);
    for (uint32_t v : e.entry) ASSERT_EQ(v, 0u);
    // A symbol listed twice: the later code wins.
    bits[1] = 3;
    const uint8_t dup[3] = {5, 6, 5};
    EXPECT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(bits, dup, &e), zebStatusOk);
    EXPECT_EQ(e.entry[5], 2u << 16 | 2u);
    EXPECT_EQ(e.entry[6], 2u << 16 | 1u);
}

// ------------------------------------------------------------ optimal tables

struct Optimal {
    uint8_t bits[16];
    uint8_t vals[256];
    int n() const {
        int s = 0;
        for (uint8_t b : bits) s += b;
        return s;
    }
};

Optimal optimal(const std::vector<int32_t>& counts) {
    Optimal o;
    std::memset(o.vals, 0xEE, 256);
    std::vector<int32_t> stats(256, 0);
    std::copy(counts.begin(), counts.end(), stats.begin());
    EXPECT_EQ(zebiEncodeHuffmanRawTableInit_JPEG_8u(stats.data(), o.bits, o.vals), zebStatusOk);
    return o;
}

TEST(HuffmanOptimalTable, WorkedCases) {
    // One used symbol: a single code of length 1.
    std::vector<int32_t> c(256, 0);
    c[77] = 5;
    Optimal o = optimal(c);
    EXPECT_EQ(o.bits[0], 1);
    EXPECT_EQ(o.n(), 1);
    EXPECT_EQ(o.vals[0], 77);
    EXPECT_EQ(o.vals[1], 0xEE);

    // 100, 100, 1: lengths 1, 2, 3, the rare symbol longest.
    c.assign(256, 0);
    c[0] = 100;
    c[1] = 100;
    c[2] = 1;
    o = optimal(c);
    EXPECT_EQ(o.bits[0], 1);
    EXPECT_EQ(o.bits[1], 1);
    EXPECT_EQ(o.bits[2], 1);
    EXPECT_EQ(o.vals[2], 2);

    // 256 symbols of count 1: 255 codes of length 8 and one of 9.
    c.assign(256, 1);
    o = optimal(c);
    EXPECT_EQ(o.bits[7], 255);
    EXPECT_EQ(o.bits[8], 1);
    EXPECT_EQ(o.n(), 256);

    // No counts: empty table, vals untouched.
    c.assign(256, 0);
    o = optimal(c);
    EXPECT_EQ(o.n(), 0);
    EXPECT_EQ(o.vals[0], 0xEE);
}

// Equal counts: the search keeps the larger index, so of two equal symbols
// the larger one is merged first and ends deeper.
TEST(HuffmanOptimalTable, TiesGoToLargerIndex) {
    std::vector<int32_t> c(256, 0);
    c[0] = 5;
    c[1] = 5;
    c[2] = 10;
    Optimal o = optimal(c);
    EXPECT_EQ(o.bits[0], 1);
    EXPECT_EQ(o.bits[1], 1);
    EXPECT_EQ(o.bits[2], 1);
    EXPECT_EQ(o.vals[0], 2);
    EXPECT_EQ(o.vals[1], 0);
    EXPECT_EQ(o.vals[2], 1);
}

// Counts rising by 1.6 build a tree deeper than 16; the limited table keeps
// every symbol, stays within 16 bits and is accepted by the encoder builder.
TEST(HuffmanOptimalTable, LengthsLimitedTo16) {
    for (int used : {20, 30, 40}) {
        std::vector<int32_t> c(256, 0);
        double v = 1;
        for (int i = 0; i < used; ++i, v *= 1.6) c[i * 3] = static_cast<int32_t>(v);
        Optimal o = optimal(c);
        EXPECT_EQ(o.n(), used);
        EncodeHuffmanSpec e;
        EXPECT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(o.bits, o.vals, &e), zebStatusOk);
        // Kraft sum below 1: the all-ones code of the longest length stays free.
        double kraft = 0;
        for (int l = 1; l <= 16; ++l) kraft += o.bits[l - 1] / double(1 << l);
        EXPECT_LT(kraft, 1.0);
        // The most frequent symbol has the shortest length.
        int shortest = 1;
        while (o.bits[shortest - 1] == 0) ++shortest;
        EXPECT_EQ(static_cast<int>(e.entry[(used - 1) * 3] >> 16), shortest);
    }
}

// Random statistics: valid tables whose code lengths never exceed what the
// counts justify (a more frequent symbol is never longer).
TEST(HuffmanOptimalTable, RandomStatisticsGiveMonotoneValidTables) {
    std::mt19937 g(7);
    for (int t = 0; t < 200; ++t) {
        std::vector<int32_t> c(256, 0);
        int used = 1 + g() % 256;
        for (int i = 0; i < used; ++i) c[g() % 256] = 1 + static_cast<int32_t>(g() % (t % 2 ? 1000000 : 50));
        Optimal o = optimal(c);
        int nz = 0;
        for (int32_t x : c) nz += x != 0;
        ASSERT_EQ(o.n(), nz);
        EncodeHuffmanSpec e;
        ASSERT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(o.bits, o.vals, &e), zebStatusOk);
        for (int a = 0; a < 256; ++a)
            for (int b = 0; b < 256; ++b)
                if (c[a] > c[b] && c[b] > 0) ASSERT_LE(e.entry[a] >> 16, e.entry[b] >> 16) << a << " " << b;
    }
}

TEST(HuffmanOptimalTable, NegativeCountsCountAsUnused) {
    std::vector<int32_t> c(256, 0);
    c[3] = -50;
    c[4] = 10;
    c[5] = 20;
    Optimal o = optimal(c);
    EXPECT_EQ(o.n(), 2);
}

}  // namespace
