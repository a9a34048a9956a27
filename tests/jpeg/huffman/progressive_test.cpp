// Progressive block coding: check order, the worked bit patterns of runs and
// correction bits, the 0x7FFF and 937 limits, full scan scripts through
// statistics, optimal tables, encoders and decoders back to the input, the
// fast and careful AC decoders at every stream length, and random streams
// that must never write outside the block.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "jpeg/huffman/bitio.h"
#include "jpeg/huffman/progressive.h"
#include "jpeg/zigzag.h"
#include "std_tables.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using namespace hufftest;
using zeb::jpeg::kZigzag;
using zebtest::GuardedBuffer;
namespace huff = zeb::jpeg::huff;

struct Block {
    int16_t c[64];
};

// Tables with a code for every symbol: 254 of 8 bits and 2 of 9 bits.
std::unique_ptr<Tables> fullTables() {
    uint8_t bits[16] = {};
    bits[7] = 254;
    bits[8] = 2;
    uint8_t vals[256];
    for (int i = 0; i < 256; ++i) vals[i] = static_cast<uint8_t>(i);
    auto t = std::make_unique<Tables>();
    EXPECT_TRUE(t->build(bits, vals));
    return t;
}

struct AcEnc {
    EncodeHuffmanState st;
    int pos = 0;
    std::vector<uint8_t> buf = std::vector<uint8_t>(1 << 16);
    AcEnc() { zebiEncodeHuffmanStateInit_JPEG_8u(&st); }
    ZebStatus first(const Block& b, int ss, int se, int al, const Tables& t) {
        return zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(b.c, buf.data(), static_cast<int>(buf.size()), &pos, ss, se, al, &t.enc, &st, 0);
    }
    ZebStatus refine(const Block& b, int ss, int se, int al, const Tables& t) {
        return zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(b.c, buf.data(), static_cast<int>(buf.size()), &pos, ss, se, al, &t.enc, &st, 0);
    }
    ZebStatus flush(const Tables& t) {
        return zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(nullptr, buf.data(), static_cast<int>(buf.size()), &pos, 0, 0, 99, &t.enc, &st, 1);
    }
    std::vector<uint8_t> bytes() const { return {buf.begin(), buf.begin() + pos}; }
};

TEST(ProgressiveChecks, OrderPerExport) {
    auto t = fullTables();
    Block b{};
    uint8_t buf[64] = {};
    int pos = 0, marker = 0;
    int16_t dc = 0;
    EncodeHuffmanState es;
    DecodeHuffmanState ds;
    zebiEncodeHuffmanStateInit_JPEG_8u(&es);
    zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
    int32_t s1[256] = {}, s2[256] = {};
    const EncodeHuffmanSpec* E = &t->enc;
    const DecodeHuffmanSpec* D = &t->dec;
    struct Row {
        const char* what;
        std::function<ZebStatus()> call;
        ZebStatus want;
    };
    const Row rows[] = {
        {"DCFirst enc dst", [&] { return zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(b.c, nullptr, 0, nullptr, &dc, 99, E, &es, 0); }, -8},
        {"DCFirst enc dstLen", [&] { return zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(b.c, buf, 0, nullptr, &dc, 99, E, &es, 0); }, -6},
        {"DCFirst enc state", [&] { return zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(b.c, buf, 64, &pos, &dc, 99, E, nullptr, 0); }, -8},
        {"DCFirst enc flush skips the rest", [&] { return zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(nullptr, buf, 64, &pos, nullptr, 99, nullptr, &es, 1); }, 0},
        {"DCFirst enc lastDC beats Al", [&] { return zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(b.c, buf, 64, &pos, nullptr, 99, nullptr, &es, 0); }, -8},
        {"DCFirst enc Al beats spec", [&] { return zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(b.c, buf, 64, &pos, &dc, 14, nullptr, &es, 0); }, -5},
        {"DCFirst enc spec", [&] { return zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(b.c, buf, 64, &pos, &dc, 13, nullptr, &es, 0); }, -8},
        {"DCRefine enc src", [&] { return zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(nullptr, buf, 64, &pos, 14, &es, 0); }, -8},
        {"DCRefine enc Al", [&] { return zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(b.c, buf, 64, &pos, 14, &es, 0); }, -5},
        {"ACFirst enc spec before flush", [&] { return zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(nullptr, buf, 64, &pos, 0, 0, 0, nullptr, &es, 1); }, -8},
        {"ACFirst enc flush ignores band", [&] { return zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(nullptr, buf, 64, &pos, 0, 0, 99, E, &es, 1); }, 0},
        {"ACFirst enc src", [&] { return zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(nullptr, buf, 64, &pos, 0, 0, 99, E, &es, 0); }, -8},
        {"ACFirst enc Ss 0", [&] { return zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(b.c, buf, 64, &pos, 0, 5, 0, E, &es, 0); }, -5},
        {"ACRefine enc Se below Ss", [&] { return zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(b.c, buf, 64, &pos, 6, 5, 0, E, &es, 0); }, -5},
        {"ACRefine enc Se 64", [&] { return zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(b.c, buf, 64, &pos, 1, 64, 0, E, &es, 0); }, -5},
        {"ACRefine enc Al 14", [&] { return zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(b.c, buf, 64, &pos, 1, 63, 14, E, &es, 0); }, -5},
        {"DCFirst dec srcLen", [&] { return zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(buf, 0, nullptr, b.c, &dc, &marker, 99, D, &ds); }, -6},
        {"DCFirst dec lastDC", [&] { return zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(buf, 64, &pos, b.c, nullptr, &marker, 99, D, &ds); }, -8},
        {"DCFirst dec Al beats spec", [&] { return zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(buf, 64, &pos, b.c, &dc, &marker, 14, nullptr, &ds); }, -5},
        {"DCFirst dec state", [&] { return zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(buf, 64, &pos, b.c, &dc, &marker, 0, D, nullptr); }, -8},
        {"DCRefine dec marker", [&] { return zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(buf, 64, &pos, b.c, nullptr, 14, nullptr); }, -8},
        {"DCRefine dec Al beats state", [&] { return zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(buf, 64, &pos, b.c, &marker, 14, nullptr); }, -5},
        {"ACFirst dec src", [&] { return zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(nullptr, 0, &pos, b.c, &marker, 0, 0, 0, D, &ds); }, -8},
        {"ACFirst dec band beats spec", [&] { return zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(buf, 64, &pos, b.c, &marker, 0, 63, 0, nullptr, &ds); }, -5},
        {"ACRefine dec spec", [&] { return zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(buf, 64, &pos, b.c, &marker, 1, 63, 0, nullptr, &ds); }, -8},
        {"ACRefine dec dst", [&] { return zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(buf, 64, &pos, nullptr, &marker, 0, 0, 0, D, &ds); }, -8},
        {"stats baseline null", [&] { return zebiGetHuffmanStatistics8x8_JPEG_16s_C1(b.c, s1, nullptr, &dc); }, -8},
        {"stats DCFirst Al", [&] { return zebiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(b.c, s1, &dc, 14); }, -5},
        {"stats ACFirst state", [&] { return zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(nullptr, s2, 0, 0, 0, nullptr, 1); }, -8},
        {"stats ACFirst flush", [&] { return zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(nullptr, s2, 0, 0, 0, &es, 1); }, 0},
        {"stats ACRefine src", [&] { return zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(nullptr, s2, 0, 0, 0, &es, 0); }, -8},
        {"stats ACRefine band", [&] { return zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(b.c, s2, 0, 0, 0, &es, 0); }, -5},
    };
    for (const auto& r : rows) {
        pos = 0;
        marker = 0;
        EXPECT_EQ(r.call(), r.want) << r.what;
    }
}

TEST(ProgressiveEncode, RunSymbolsAndFlush) {
    auto t = fullTables();
    const Block zero{};
    for (int run = 1; run <= 3; ++run) {
        AcEnc e;
        for (int i = 0; i < run; ++i) {
            ASSERT_EQ(e.first(zero, 1, 63, 0, *t), 0);
            EXPECT_EQ(e.pos, 0);
            EXPECT_EQ(e.st.bitCount, 0);
            EXPECT_EQ(e.st.eobRun, i + 1);
        }
        ASSERT_EQ(e.flush(*t), 0);
        BitSink s;
        if (run == 1) {
            s.code(t->enc, 0x00);
        } else {
            s.code(t->enc, 0x10);
            s.put(run - 2, 1);
        }
        s.pad();
        EXPECT_EQ(e.bytes(), s.out) << run;
        EXPECT_EQ(e.st.eobRun, 0);
    }
    // A flush with nothing pending stores nothing.
    AcEnc e;
    ASSERT_EQ(e.flush(*t), 0);
    EXPECT_EQ(e.pos, 0);
    EncodeHuffmanState dcs;
    zebiEncodeHuffmanStateInit_JPEG_8u(&dcs);
    int pos = 0;
    uint8_t b[4];
    ASSERT_EQ(zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(nullptr, b, 4, &pos, 0, &dcs, 1), 0);
    EXPECT_EQ(pos, 0);
}

TEST(ProgressiveEncode, RunLimitEmitsWithinTheCall) {
    auto t = fullTables();
    const Block zero{};
    AcEnc e;
    for (int i = 0; i < 0x7FFE; ++i) ASSERT_EQ(e.first(zero, 3, 9, 0, *t), 0);
    EXPECT_EQ(e.st.eobRun, 0x7FFE);
    EXPECT_EQ(e.pos, 0);
    ASSERT_EQ(e.first(zero, 3, 9, 0, *t), 0);
    EXPECT_EQ(e.st.eobRun, 0);
    const int len = static_cast<int>(t->enc.entry[0xE0] >> 16);
    EXPECT_EQ(e.st.bitCount, len + 14);
    EXPECT_EQ(e.st.accumulator, (uint64_t{t->enc.entry[0xE0] & 0xFFFF} << 14) | 0x3FFF);
}

TEST(ProgressiveEncode, MissingRunSymbolFailsWhenTheRunIsWritten) {
    auto ac = stdTables(false);  // has 0x00 but no 0x10
    const Block zero{};
    Block one{};
    one.c[1] = 5;
    AcEnc e;
    ASSERT_EQ(e.first(zero, 1, 63, 0, *ac), 0);
    ASSERT_EQ(e.first(zero, 1, 63, 0, *ac), 0);
    EXPECT_EQ(e.first(one, 1, 63, 0, *ac), zebStatusJpegHuffmanTable);
    // Magnitude 2048 after the shift: category 12, refused.
    Block big{};
    big.c[1] = 2048;
    AcEnc f;
    EXPECT_EQ(f.first(big, 1, 63, 0, *fullTables()), zebStatusJpegCoefficientRange);
    EXPECT_EQ(f.first(big, 1, 63, 1, *fullTables()), 0);
}

TEST(ProgressiveEncode, RefinementBitsAndTheirLimit) {
    auto t = fullTables();
    // 1 is newly significant; 2 and 3 give correction bits 0 and 1.
    Block b{};
    b.c[kZigzag[1]] = 2;
    b.c[kZigzag[2]] = -1;
    b.c[kZigzag[3]] = 3;
    AcEnc e;
    ASSERT_EQ(e.refine(b, 1, 63, 0, *t), 0);
    EXPECT_EQ(e.st.eobRun, 1);
    EXPECT_EQ(e.st.correctionCount, 1);
    EXPECT_EQ(e.st.correctionBits[0], 1);
    ASSERT_EQ(e.flush(*t), 0);
    BitSink s;
    s.code(t->enc, 0x01);  // run 0 before k 2, size 1
    s.put(0, 1);           // negative
    s.put(0, 1);           // correction bit of k 1 (2 -> 0)
    s.code(t->enc, 0x00);  // end of band with the pending correction of k 3
    s.put(1, 1);
    s.pad();
    EXPECT_EQ(e.bytes(), s.out);

    // 63 correction bits per block: 14 blocks give 882; 55 more make 937
    // (kept); one more makes 938 and the run is written.
    Block full{};
    for (int i = 1; i < 64; ++i) full.c[kZigzag[i]] = 2;
    AcEnc f;
    for (int i = 0; i < 14; ++i) ASSERT_EQ(f.refine(full, 1, 63, 0, *t), 0);
    EXPECT_EQ(f.st.correctionCount, 882);
    Block part{};
    for (int i = 1; i <= 55; ++i) part.c[kZigzag[i]] = 3;
    ASSERT_EQ(f.refine(part, 1, 63, 0, *t), 0);
    EXPECT_EQ(f.st.correctionCount, 937);
    EXPECT_EQ(f.st.eobRun, 15);
    Block single{};
    single.c[kZigzag[7]] = 2;
    ASSERT_EQ(f.refine(single, 1, 63, 0, *t), 0);
    EXPECT_EQ(f.st.correctionCount, 0);
    EXPECT_EQ(f.st.eobRun, 0);
    EXPECT_GT(f.pos, 100);
    // The statistics twin follows the same decisions.
    EncodeHuffmanState ss;
    zebiEncodeHuffmanStateInit_JPEG_8u(&ss);
    int32_t stats[256] = {};
    for (int i = 0; i < 14; ++i) ASSERT_EQ(zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(full.c, stats, 1, 63, 0, &ss, 0), 0);
    ASSERT_EQ(zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(part.c, stats, 1, 63, 0, &ss, 0), 0);
    EXPECT_EQ(ss.correctionCount, 937);
    ASSERT_EQ(zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(single.c, stats, 1, 63, 0, &ss, 0), 0);
    EXPECT_EQ(ss.eobRun, 0);
    EXPECT_EQ(stats[0x40], 1);  // a run of 16 blocks: 0x40 with 4 extra bits
}

// The symbols a scan emits, from its statistics: code and extra bits per
// symbol under the given table, plus the correction bits.
long expectedBits(const int32_t* stats, const EncodeHuffmanSpec& enc, bool refine) {
    long bits = 0;
    for (int s = 0; s < 256; ++s) {
        if (stats[s] == 0) continue;
        int extra = (s & 15) != 0 ? (refine ? 1 : (s & 15)) : (s == 0xF0 ? 0 : s >> 4);
        bits += static_cast<long>(stats[s]) * ((enc.entry[s] >> 16) + extra);
    }
    return bits;
}

// Payload bits of a finished scan: stuffed zero bytes removed.
long payloadBits(const std::vector<uint8_t>& v) {
    long n = 0;
    for (size_t i = 0; i < v.size(); ++i) {
        ++n;
        if (v[i] == 0xFF) ++i;
    }
    return 8 * n;
}

struct Scan {
    int ss, se, ah, al;
};

// A full scan script over realistic blocks: statistics, optimal tables,
// encoding (with a restart in the middle), decoding into accumulated blocks.
void runScript(const std::vector<Block>& in, const std::vector<Scan>& script, unsigned seed) {
    std::vector<Block> out(in.size(), Block{});
    std::mt19937 g(seed);
    const int n = static_cast<int>(in.size());
    const int restartAt = n / 2 + 1;
    for (const Scan& sc : script) {
        const bool dc = sc.ss == 0, refine = sc.ah != 0;
        // Statistics.
        int32_t stats[256] = {};
        EncodeHuffmanState ss;
        zebiEncodeHuffmanStateInit_JPEG_8u(&ss);
        int16_t last = 0;
        long corrections = 0;
        for (int i = 0; i < n; ++i) {
            if (i == restartAt) {
                if (!dc) ASSERT_EQ((refine ? zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1 : zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1)(nullptr, stats, 0, 0, 0, &ss, 1), 0);
                last = 0;
            }
            if (dc && !refine) ASSERT_EQ(zebiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(in[i].c, stats, &last, sc.al), 0);
            if (!dc && refine)
                for (int k = sc.ss; k <= sc.se; ++k) corrections += (std::abs(in[i].c[kZigzag[k]]) >> sc.al) > 1;
            if (!dc) ASSERT_EQ((refine ? zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1 : zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1)(in[i].c, stats, sc.ss, sc.se, sc.al, &ss, 0), 0);
        }
        if (!dc) ASSERT_EQ((refine ? zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1 : zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1)(nullptr, stats, 0, 0, 0, &ss, 1), 0);
        Tables tab;
        if (!(dc && refine)) {
            uint8_t bits[16], vals[256];
            ASSERT_EQ(zebiEncodeHuffmanRawTableInit_JPEG_8u(stats, bits, vals), 0);
            ASSERT_TRUE(tab.build(bits, vals));
        }
        // Encoding in two restart intervals.
        std::vector<uint8_t> seg[2];
        EncodeHuffmanState es;
        zebiEncodeHuffmanStateInit_JPEG_8u(&es);
        std::vector<uint8_t> buf(64 * 1024);
        const int len = static_cast<int>(buf.size());
        int pos = 0;
        last = 0;
        auto flush = [&]() {
            if (dc) ASSERT_EQ(zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(nullptr, buf.data(), len, &pos, nullptr, 0, nullptr, &es, 1), 0);
            else if (refine) ASSERT_EQ(zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(nullptr, buf.data(), len, &pos, 0, 0, 0, &tab.enc, &es, 1), 0);
            else ASSERT_EQ(zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(nullptr, buf.data(), len, &pos, 0, 0, 0, &tab.enc, &es, 1), 0);
        };
        int part = 0;
        for (int i = 0; i < n; ++i) {
            if (i == restartAt) {
                flush();
                seg[part++].assign(buf.begin(), buf.begin() + pos);
                pos = 0;
                last = 0;
            }
            ZebStatus st;
            if (dc && !refine) st = zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(in[i].c, buf.data(), len, &pos, &last, sc.al, &tab.enc, &es, 0);
            else if (dc) st = zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(in[i].c, buf.data(), len, &pos, sc.al, &es, 0);
            else if (refine) st = zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(in[i].c, buf.data(), len, &pos, sc.ss, sc.se, sc.al, &tab.enc, &es, 0);
            else st = zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(in[i].c, buf.data(), len, &pos, sc.ss, sc.se, sc.al, &tab.enc, &es, 0);
            ASSERT_EQ(st, 0) << "scan " << sc.ss << "-" << sc.se << " block " << i;
        }
        flush();
        seg[part].assign(buf.begin(), buf.begin() + pos);
        if (!dc) {
            // The statistics counted exactly what was written: the payload is
            // their bits plus at most 7 bits of padding per interval.
            const long want = expectedBits(stats, tab.enc, refine) + corrections;
            const long got = payloadBits(seg[0]) + payloadBits(seg[1]);
            EXPECT_GE(got - want, 0);
            EXPECT_LE(got - want, 14);
        }
        // Decoding: each interval followed by a restart marker, read with a
        // random amount of slack behind it.
        for (int p = 0; p < 2; ++p) {
            std::vector<uint8_t> s = seg[p];
            s.push_back(0xFF);
            s.push_back(static_cast<uint8_t>(0xD0 + p));
            for (int i = 0; i < static_cast<int>(g() % 30); ++i) s.push_back(static_cast<uint8_t>(g()));
            DecodeHuffmanState ds;
            zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
            int rpos = 0, marker = 0;
            int16_t dlast = 0;
            const int from = p == 0 ? 0 : restartAt, to = p == 0 ? restartAt : n;
            for (int i = from; i < to; ++i) {
                ZebStatus st;
                const int sl = static_cast<int>(s.size());
                if (dc && !refine) st = zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(s.data(), sl, &rpos, out[i].c, &dlast, &marker, sc.al, &tab.dec, &ds);
                else if (dc) st = zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(s.data(), sl, &rpos, out[i].c, &marker, sc.al, &ds);
                else if (refine) st = zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(s.data(), sl, &rpos, out[i].c, &marker, sc.ss, sc.se, sc.al, &tab.dec, &ds);
                else st = zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(s.data(), sl, &rpos, out[i].c, &marker, sc.ss, sc.se, sc.al, &tab.dec, &ds);
                ASSERT_EQ(st, 0) << "decode scan " << sc.ss << "-" << sc.se << " block " << i;
            }
            EXPECT_EQ(ds.eobRun, 0);
        }
    }
    for (int i = 0; i < n; ++i) ASSERT_EQ(std::memcmp(in[i].c, out[i].c, 128), 0) << "block " << i;
}

std::vector<Block> realisticBlocks(unsigned seed, int n, double scale) {
    std::mt19937 g(seed);
    std::vector<Block> v(n);
    for (int i = 0; i < n; ++i) {
        if (i % 7 == 3 || (i > 40 && i < 90)) {  // empty bands: long runs
            v[i].c[0] = static_cast<int16_t>(g() % 200);
            continue;
        }
        realisticBlock(g, v[i].c, scale, 1000);
    }
    v[5].c[kZigzag[63]] = -1;  // a coefficient at the very end
    v[6].c[kZigzag[1]] = -1;
    return v;
}

TEST(ProgressiveRoundTrip, SuccessiveApproximationScript) {
    auto blocks = realisticBlocks(1, 300, 30.0);
    runScript(blocks, {{0, 0, 0, 1}, {1, 5, 0, 2}, {6, 63, 0, 2}, {1, 63, 2, 1}, {0, 0, 1, 0}, {1, 63, 1, 0}}, 3);
}

TEST(ProgressiveRoundTrip, SpectralSelectionOnlyAndDeepRefinement) {
    auto blocks = realisticBlocks(2, 200, 120.0);
    runScript(blocks, {{0, 0, 0, 0}, {1, 1, 0, 0}, {2, 9, 0, 0}, {10, 63, 0, 0}}, 4);
    runScript(blocks, {{0, 0, 0, 3}, {0, 0, 3, 2}, {0, 0, 2, 1}, {0, 0, 1, 0}, {1, 63, 0, 4}, {1, 63, 4, 3},
                       {1, 63, 3, 2}, {1, 63, 2, 1}, {1, 63, 1, 0}},
              5);
}

// Encodes one AC scan of random blocks; the stream for decoder tests.
std::vector<uint8_t> acStream(const std::vector<Block>& in, int ss, int se, int al, bool refine, const Tables& t) {
    AcEnc e;
    for (const Block& b : in) EXPECT_EQ(refine ? e.refine(b, ss, se, al, t) : e.first(b, ss, se, al, t), 0);
    EXPECT_EQ(e.flush(t), 0);
    return e.bytes();
}

// The export (fast form first) against the careful form at every stream
// length, with a marker behind the data: same status, block, position,
// marker and state; a shortened stream fails and never touches more.
TEST(ProgressiveDecode, FastAndCarefulAgreeAtEveryLength) {
    auto t = fullTables();
    auto blocks = realisticBlocks(8, 40, 60.0);
    for (int refine = 0; refine < 2; ++refine) {
        // Refinement decodes on top of the first scan's values.
        std::vector<Block> base(blocks.size());
        for (size_t i = 0; i < blocks.size(); ++i)
            for (int k = 0; k < 64; ++k) base[i].c[k] = static_cast<int16_t>(refine ? (blocks[i].c[k] / 2) * 2 : 0);
        auto s = acStream(blocks, 1, 63, 0, refine, *t);
        s.push_back(0xFF);
        s.push_back(0xD3);
        for (int len = 1; len <= static_cast<int>(s.size()); len += (len < 40 ? 1 : 7)) {
            DecodeHuffmanState d1, d2;
            zebiDecodeHuffmanStateInit_JPEG_8u(&d1);
            zebiDecodeHuffmanStateInit_JPEG_8u(&d2);
            int p1 = 0, p2 = 0, m1 = 0, m2 = 0;
            for (size_t i = 0; i < blocks.size(); ++i) {
                Block a = base[i], b = base[i];
                ZebStatus s1 = refine ? zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(s.data(), len, &p1, a.c, &m1, 1, 63, 0, &t->dec, &d1)
                                      : zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(s.data(), len, &p1, a.c, &m1, 1, 63, 0, &t->dec, &d1);
                ZebStatus s2 = refine ? huff::decodeACRefineCareful(s.data(), len, &p2, b.c, &m2, 1, 63, 0, &t->dec, &d2)
                                      : huff::decodeACFirstCareful(s.data(), len, &p2, b.c, &m2, 1, 63, 0, &t->dec, &d2);
                ASSERT_EQ(s1, s2) << len << " " << i << " refine " << refine;
                ASSERT_EQ(p1, p2);
                ASSERT_EQ(m1, m2);
                ASSERT_EQ(std::memcmp(a.c, b.c, 128), 0);
                ASSERT_EQ(std::memcmp(&d1, &d2, 24), 0);
                if (len == static_cast<int>(s.size())) {
                    ASSERT_EQ(s1, 0);
                    Block want = blocks[i];
                    want.c[0] = base[i].c[0];
                    ASSERT_EQ(std::memcmp(a.c, want.c, 128), 0) << "block " << i;
                }
                if (s1 != 0) break;
            }
        }
    }
}

TEST(ProgressiveDecode, EobRunSkipsReadingButRefinementReadsCorrections) {
    auto t = fullTables();
    std::vector<Block> in(3);
    in[2].c[kZigzag[4]] = 1;
    // First scan: a run of two blocks, then the block with a value.
    auto s = acStream(in, 1, 63, 0, false, *t);
    DecodeHuffmanState ds;
    zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
    int pos = 0, marker = 0;
    Block b{};
    ASSERT_EQ(zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(s.data(), static_cast<int>(s.size()), &pos, b.c, &marker, 1, 63, 0, &t->dec, &ds), 0);
    EXPECT_EQ(ds.eobRun, 1);
    const int after = pos;
    const int bits = ds.bitCount;
    ASSERT_EQ(zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(s.data(), static_cast<int>(s.size()), &pos, b.c, &marker, 1, 63, 0, &t->dec, &ds), 0);
    EXPECT_EQ(pos, after);
    EXPECT_EQ(ds.bitCount, bits);
    EXPECT_EQ(ds.eobRun, 0);
    // Refinement with a pending run: one correction bit per non-zero
    // coefficient of the band is still read.
    uint8_t one[2] = {0x80, 0x00};  // bits: 1 then zeros
    DecodeHuffmanState rs;
    zebiDecodeHuffmanStateInit_JPEG_8u(&rs);
    rs.eobRun = 2;
    pos = 0;
    Block c{};
    c.c[kZigzag[5]] = 4;
    c.c[kZigzag[9]] = -4;
    ASSERT_EQ(zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(one, 2, &pos, c.c, &marker, 1, 63, 1, &t->dec, &rs), 0);
    EXPECT_EQ(c.c[kZigzag[5]], 6);
    EXPECT_EQ(c.c[kZigzag[9]], -4);
    EXPECT_EQ(rs.eobRun, 1);
    EXPECT_EQ(rs.bitCount, 16 - 2);
}

TEST(ProgressiveDecode, DcScansWorkedNumbers) {
    auto dct = stdTables(true);
    EncodeHuffmanState es;
    zebiEncodeHuffmanStateInit_JPEG_8u(&es);
    uint8_t buf[32];
    int pos = 0;
    int16_t last = 0;
    const int16_t vals[3] = {-7, 100, -32768};
    for (int16_t v : vals) ASSERT_EQ(zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(&v, buf, 32, &pos, &last, 5, &dct->enc, &es, 0), 0);
    EXPECT_EQ(last, -32768 >> 5);
    ASSERT_EQ(zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(nullptr, buf, 32, &pos, nullptr, 0, nullptr, &es, 1), 0);
    DecodeHuffmanState ds;
    zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
    int rpos = 0, marker = 0;
    int16_t dl = 0;
    for (int16_t v : vals) {
        int16_t d = 0x1F;  // the low bits are the refinement's: the first scan overwrites them
        ASSERT_EQ(zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(buf, pos, &rpos, &d, &dl, &marker, 5, &dct->dec, &ds), 0);
        EXPECT_EQ(d, static_cast<int16_t>((v >> 5) * 32));
    }
    // A category of 12 after the shift is refused.
    int16_t big = 4096;
    last = 0;
    EXPECT_EQ(zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(&big, buf, 32, &pos, &last, 2, &dct->enc, &es, 0), 0);
    last = 0;
    EXPECT_EQ(zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(&big, buf, 32, &pos, &last, 1, &dct->enc, &es, 0),
              zebStatusJpegCoefficientRange);
    EXPECT_EQ(last, 2048);  // taken before the refusal
    EXPECT_EQ(zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(&big, buf, 32, &pos, &(last = -2048), 0, &dct->enc, &es, 0),
              zebStatusJpegCoefficientRange);
    // Bit Al of the two's-complement value.
    int16_t neg = -3;  // ...11111101
    pos = 0;
    zebiEncodeHuffmanStateInit_JPEG_8u(&es);
    for (int al = 0; al < 4; ++al) ASSERT_EQ(zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(&neg, buf, 32, &pos, al, &es, 0), 0);
    EXPECT_EQ(es.bitCount, 4);
    EXPECT_EQ(es.accumulator >> 20, 0xBu);  // 1, 0, 1, 1
}

// Random and damaged streams: statuses from the decoders' set, blocks with
// guard bytes around them never written outside, positions in the buffer.
TEST(ProgressiveDecode, RandomStreamsNeverLeaveTheBlock) {
    auto t = fullTables();
    auto dct = stdTables(true);
    std::mt19937 g(99);
    for (int iter = 0; iter < 600; ++iter) {
        const int len = 1 + static_cast<int>(g() % 80);
        std::vector<uint8_t> s(len);
        for (auto& b : s) b = static_cast<uint8_t>(g() % 6 == 0 ? 0xFF : g() % 3 == 0 ? 0 : g());
        GuardedBuffer blk(128, 1 + 2 * (iter % 4));
        for (int i = 0; i < 64; ++i) zeb::storeAs<int16_t>(blk.data() + 2 * i, static_cast<int16_t>(g() % 3 == 0 ? (g() % 9) - 4 : 0));
        auto* dst = reinterpret_cast<Zeb16s*>(blk.data());
        DecodeHuffmanState ds;
        zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
        int pos = 0, marker = 0;
        int16_t last = 0;
        const int ss = 1 + static_cast<int>(g() % 63);
        const int se = ss + static_cast<int>(g() % (64 - ss));
        const int al = static_cast<int>(g() % 14);
        for (int k = 0; k < 8; ++k) {
            ZebStatus st;
            switch ((iter + k) % 4) {
                case 0: st = zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(s.data(), len, &pos, dst, &marker, ss, se, al, &t->dec, &ds); break;
                case 1: st = zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(s.data(), len, &pos, dst, &marker, ss, se, al, &t->dec, &ds); break;
                case 2: st = zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(s.data(), len, &pos, dst, &last, &marker, al, &dct->dec, &ds); break;
                default: st = zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(s.data(), len, &pos, dst, &marker, al, &ds); break;
            }
            ASSERT_TRUE(st == 0 || st == -62 || st == -63 || st == -2) << st;
            ASSERT_GE(pos, 0);
            ASSERT_LE(pos, len);
            ASSERT_TRUE(blk.guardsIntact()) << iter;
            if (st != 0) break;
        }
    }
}

// A run symbol that carries k far behind the band is stopped at the guard.
TEST(ProgressiveDecode, CorruptRunIsClamped) {
    auto t = fullTables();
    BitSink s;
    for (int i = 0; i < 3; ++i) s.code(t->enc, 0xF0);  // k from 1 to 49
    s.code(t->enc, 0xC1);  // k 61
    s.put(1, 1);
    s.code(t->enc, 0xF1);  // k 62 + 15: beyond the guard
    s.put(1, 1);
    s.pad();
    s.out.push_back(0xFF);
    s.out.push_back(0xD9);
    GuardedBuffer blk(128);
    std::memset(blk.data(), 0, 128);
    DecodeHuffmanState ds;
    zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
    int pos = 0, marker = 0;
    EXPECT_EQ(zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(s.out.data(), static_cast<int>(s.out.size()), &pos, blk.as<Zeb16s>(), &marker, 1, 63, 0, &t->dec, &ds),
              zebStatusUnspecified);
    EXPECT_TRUE(blk.guardsIntact());
    EXPECT_EQ(blk.as<Zeb16s>()[kZigzag[61]], 1);
}

// Blocks, positions and state objects at odd addresses give the same bytes
// and blocks as aligned ones; a short buffer ends with -62 and nothing is
// written beyond its length.
TEST(ProgressiveEncode, OddAddressesAndShortBuffers) {
    auto t = fullTables();
    auto blocks = realisticBlocks(12, 30, 80.0);
    const auto ref = acStream(blocks, 1, 63, 1, false, *t);
    const auto refR = acStream(blocks, 1, 63, 0, true, *t);
    std::vector<uint8_t> raw(128 + 1 + sizeof(EncodeHuffmanState) + 8 + 1);
    uint8_t* blk = raw.data() + 1;
    auto* st = reinterpret_cast<EncodeHuffmanState*>(raw.data() + 129 + 2);
    for (int refine = 0; refine < 2; ++refine) {
        const auto& want = refine ? refR : ref;
        for (int len = 1; len <= static_cast<int>(want.size()) + 2; len += (len < 60 ? 1 : 5)) {
            GuardedBuffer out(len, 3);
            std::memset(st, 0, sizeof(EncodeHuffmanState));
            int pos = 0;
            ZebStatus r = 0;
            for (const Block& b : blocks) {
                std::memcpy(blk, b.c, 128);
                auto* src = reinterpret_cast<const Zeb16s*>(blk);
                r = refine ? zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(src, out.data(), len, &pos, 1, 63, 0, &t->enc, st, 0)
                           : zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(src, out.data(), len, &pos, 1, 63, 1, &t->enc, st, 0);
                if (r != 0) break;
            }
            if (r == 0) r = zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(nullptr, out.data(), len, &pos, 0, 0, 0, &t->enc, st, 1);
            ASSERT_TRUE(out.guardsIntact()) << len;
            ASSERT_LE(pos, len);
            if (len >= static_cast<int>(want.size())) {
                ASSERT_EQ(r, 0) << len;
                ASSERT_EQ(pos, static_cast<int>(want.size()));
            } else {
                ASSERT_EQ(r, zebStatusJpegBufferEnd) << len;
            }
            ASSERT_EQ(std::memcmp(out.data(), want.data(), pos), 0) << len;
        }
    }
    // Decoding into a block at an odd address.
    DecodeHuffmanState ds;
    zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
    int pos = 0, marker = 0;
    for (const Block& b : blocks) {
        std::memset(blk, 0, 128);
        ASSERT_EQ(zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(ref.data(), static_cast<int>(ref.size()), &pos, reinterpret_cast<Zeb16s*>(blk), &marker, 1, 63, 1, &t->dec, &ds), 0);
        for (int k = 1; k < 64; ++k) {
            const int16_t v = b.c[kZigzag[k]];
            const int16_t want = static_cast<int16_t>(v < 0 ? -((-v) >> 1) * 2 : (v >> 1) * 2);
            ASSERT_EQ(zeb::loadAs<int16_t>(blk + 2 * kZigzag[k]), want);
        }
    }
}

// Baseline statistics: the counts of a run of blocks build a table with which
// the baseline encoder succeeds, and the payload is exactly the counted codes
// plus the value bits.
TEST(Statistics, BaselineCountsWhatTheEncoderWrites) {
    std::mt19937 g(31);
    std::vector<Block> blocks(120);
    for (auto& b : blocks) realisticBlock(g, b.c, 90.0, 1500);
    blocks[3].c[kZigzag[63]] = 7;  // long zero runs
    int32_t dcs[256] = {}, acs[256] = {};
    int16_t last = 0;
    for (const auto& b : blocks) {
        ASSERT_EQ(zebiGetHuffmanStatistics8x8_JPEG_16s_C1(b.c, dcs, acs, &last), 0);
    }
    EXPECT_EQ(last, blocks.back().c[0]);
    Tables dc, ac;
    uint8_t bits[16], vals[256];
    ASSERT_EQ(zebiEncodeHuffmanRawTableInit_JPEG_8u(dcs, bits, vals), 0);
    ASSERT_TRUE(dc.build(bits, vals));
    ASSERT_EQ(zebiEncodeHuffmanRawTableInit_JPEG_8u(acs, bits, vals), 0);
    ASSERT_TRUE(ac.build(bits, vals));
    std::vector<uint8_t> buf(1 << 16);
    EncodeHuffmanState st;
    zebiEncodeHuffmanStateInit_JPEG_8u(&st);
    int pos = 0;
    last = 0;
    for (const auto& b : blocks)
        ASSERT_EQ(zebiEncodeHuffman8x8_JPEG_16s1u_C1(b.c, buf.data(), static_cast<int>(buf.size()), &pos, &last, &dc.enc, &ac.enc, &st, 0), 0);
    ASSERT_EQ(zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, buf.data(), static_cast<int>(buf.size()), &pos, nullptr, nullptr, nullptr, &st, 1), 0);
    long want = 0;
    for (int s = 0; s < 256; ++s) {
        want += static_cast<long>(dcs[s]) * ((dc.enc.entry[s] >> 16) + s);
        want += static_cast<long>(acs[s]) * ((ac.enc.entry[s] >> 16) + (s & 15));
    }
    const long got = payloadBits({buf.begin(), buf.begin() + pos});
    EXPECT_GE(got - want, 0);
    EXPECT_LE(got - want, 7);
}

// Limits of the statistics: zero runs are counted before a category fails.
TEST(Statistics, CategoryLimitsAndCountsBeforeFailure) {
    Block b{};
    b.c[kZigzag[20]] = 16384;  // category 15: above 14
    int32_t dcs[256] = {}, acs[256] = {};
    int16_t last = 0;
    EXPECT_EQ(zebiGetHuffmanStatistics8x8_JPEG_16s_C1(b.c, dcs, acs, &last), zebStatusJpegCoefficientRange);
    EXPECT_EQ(dcs[0], 1);
    EXPECT_EQ(acs[0xF0], 1);
    b.c[kZigzag[20]] = 16383;
    EXPECT_EQ(zebiGetHuffmanStatistics8x8_JPEG_16s_C1(b.c, dcs, acs, &last), 0);
    EXPECT_EQ(acs[0x3E], 1);
    Block d{};
    d.c[0] = -32768;
    last = 32767;  // difference -65535: category 16
    EXPECT_EQ(zebiGetHuffmanStatistics8x8_JPEG_16s_C1(d.c, dcs, acs, &last), zebStatusJpegCoefficientRange);
    EXPECT_EQ(last, -32768);
    // DC first: category above 11 after the shift.
    int32_t s[256] = {};
    last = 0;
    d.c[0] = 4095;
    EXPECT_EQ(zebiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(d.c, s, &last, 1), 0);
    EXPECT_EQ(s[11], 1);
    last = -1;
    d.c[0] = 4094;
    EXPECT_EQ(zebiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(d.c, s, &last, 0), zebStatusJpegCoefficientRange);
    // AC first: category above 10 refused (one less than the encoder), with
    // the pending run and zero runs counted first.
    EncodeHuffmanState st;
    zebiEncodeHuffmanStateInit_JPEG_8u(&st);
    int32_t a[256] = {};
    const Block zero{};
    ASSERT_EQ(zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(zero.c, a, 1, 63, 0, &st, 0), 0);
    Block big{};
    big.c[kZigzag[30]] = 1024;
    EXPECT_EQ(zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(big.c, a, 1, 63, 0, &st, 0), zebStatusJpegCoefficientRange);
    EXPECT_EQ(a[0x00], 1);
    EXPECT_EQ(a[0xF0], 1);
    EXPECT_EQ(zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(big.c, a, 1, 63, 1, &st, 0), 0);
    EXPECT_EQ(a[0xDA], 1);  // run 13 after a zero run of 16, category 10
}

}  // namespace
