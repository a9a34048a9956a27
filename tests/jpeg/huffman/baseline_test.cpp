// Baseline block coding: checks, worked bit patterns, round trips with the
// standard and optimal tables, the fast and careful forms against each other
// at every buffer length, markers, fill bytes and damaged streams, the guard
// of the zigzag extension, the stateless pair, and random streams.
#include <gtest/gtest.h>

#include <algorithm>

#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "jpeg/huffman/bitio.h"
#include "jpeg/huffman/huffman.h"
#include "jpeg/zigzag.h"
#include "std_tables.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using namespace hufftest;
using zeb::jpeg::kZigzag;
namespace huff = zeb::jpeg::huff;

struct Block {
    int16_t c[64];
};

// Encoder run over a sequence of blocks with one state.
struct Encoder {
    EncodeHuffmanState st;
    int pos = 0;
    int16_t lastDC = 0;
    Encoder() { zebiEncodeHuffmanStateInit_JPEG_8u(&st); }
    ZebStatus block(const Block& b, uint8_t* dst, int len, const Tables& dc, const Tables& ac, bool careful = false) {
        if (careful) return huff::encodeBlockCareful(b.c, dst, len, &pos, &lastDC, &dc.enc, &ac.enc, &st);
        return zebiEncodeHuffman8x8_JPEG_16s1u_C1(b.c, dst, len, &pos, &lastDC, &dc.enc, &ac.enc, &st, 0);
    }
    ZebStatus flush(uint8_t* dst, int len) {
        return zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, dst, len, &pos, nullptr, nullptr, nullptr, &st, 1);
    }
};

struct Decoder {
    DecodeHuffmanState st;
    int pos = 0;
    int16_t lastDC = 0;
    int marker = 0;
    Decoder() { zebiDecodeHuffmanStateInit_JPEG_8u(&st); }
    ZebStatus block(const uint8_t* src, int len, Block& b, const Tables& dc, const Tables& ac, bool careful = false) {
        if (careful) return huff::decodeBlockCareful(src, len, &pos, b.c, &lastDC, &marker, &dc.dec, &ac.dec, &st);
        return zebiDecodeHuffman8x8_JPEG_1u16s_C1(src, len, &pos, b.c, &lastDC, &marker, &dc.dec, &ac.dec, &st);
    }
    void restart() {
        zebiDecodeHuffmanStateInit_JPEG_8u(&st);
        lastDC = 0;
        marker = 0;
    }
};

std::vector<uint8_t> encodeAll(const std::vector<Block>& blocks, const Tables& dc, const Tables& ac) {
    std::vector<uint8_t> buf(blocks.size() * 200 + 64);
    Encoder e;
    for (const Block& b : blocks) EXPECT_EQ(e.block(b, buf.data(), static_cast<int>(buf.size()), dc, ac), zebStatusOk);
    EXPECT_EQ(e.flush(buf.data(), static_cast<int>(buf.size())), zebStatusOk);
    buf.resize(e.pos);
    return buf;
}

std::vector<Block> randomBlocks(int n, unsigned seed, double scale = 6.0) {
    std::mt19937 g(seed);
    std::vector<Block> v(n);
    for (Block& b : v) realisticBlock(g, b.c, scale);
    return v;
}

// A few blocks that reach the corners: all zero, DC only, coefficient 63
// alone, all 64 non-zero, extreme values within the standard tables.
std::vector<Block> edgeBlocks() {
    std::vector<Block> v(6);
    std::memset(v.data(), 0, v.size() * sizeof(Block));
    v[1].c[0] = 500;
    v[2].c[63] = -3;
    for (int i = 0; i < 64; ++i) v[3].c[i] = static_cast<int16_t>(i % 2 ? 1023 - i : -1023 + i);
    v[4].c[0] = -1500;
    v[4].c[kZigzag[17]] = 1;
    v[4].c[kZigzag[40]] = -1;
    v[5].c[kZigzag[1]] = 255;  // value bits ...11111111 help make 0xFF bytes
    v[5].c[kZigzag[2]] = -256;
    return v;
}

int expectedBlockEnd(const Block& b) {
    int last = 0;
    for (int k = 1; k < 64; ++k)
        if (b.c[kZigzag[k]] != 0) last = k;
    return last + 1;
}

// ------------------------------------------------------------ checks

TEST(BaselineChecks, OrderPerExport) {
    auto dc = stdTables(true), ac = stdTables(false);
    Block b{};
    uint8_t buf[64];
    int pos = 0, marker = 0, bitsLen = 0, pcount = 0;
    uint32_t pbits = 0;
    int16_t last = 0;
    EncodeHuffmanState es;
    DecodeHuffmanState ds;
    zebiEncodeHuffmanStateInit_JPEG_8u(&es);
    zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
    const EncodeHuffmanSpec *ed = &dc->enc, *ea = &ac->enc;
    const DecodeHuffmanSpec *dd = &dc->dec, *da = &ac->dec;
    struct Row {
        std::function<ZebStatus()> call;
        ZebStatus want;
    };
    const std::vector<Row> rows = {
        // encoder: dst, dstLen, dstPos/state, flush, then src/lastDC/specs
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0); }, -8},
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, buf, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0); }, -6},
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, buf, 64, nullptr, nullptr, nullptr, nullptr, &es, 0); }, -8},
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, buf, 64, &pos, nullptr, nullptr, nullptr, nullptr, 0); }, -8},
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, buf, 64, &pos, nullptr, nullptr, nullptr, &es, 1); }, 0},
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, buf, 64, &pos, &last, ed, ea, &es, 0); }, -8},
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(b.c, buf, 64, &pos, nullptr, ed, ea, &es, 0); }, -8},
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(b.c, buf, 64, &pos, &last, nullptr, ea, &es, 0); }, -8},
        {[&] { return zebiEncodeHuffman8x8_JPEG_16s1u_C1(b.c, buf, 64, &pos, &last, ed, nullptr, &es, 0); }, -8},
        // decoder: src, srcLen (-5), then every other pointer
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(nullptr, -1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }, -8},
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, -1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }, -5},
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, 0, nullptr, b.c, &last, &marker, dd, da, &ds); }, -8},
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, 0, &pos, nullptr, &last, &marker, dd, da, &ds); }, -8},
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, 0, &pos, b.c, nullptr, &marker, dd, da, &ds); }, -8},
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, 0, &pos, b.c, &last, nullptr, dd, da, &ds); }, -8},
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, 0, &pos, b.c, &last, &marker, nullptr, da, &ds); }, -8},
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, 0, &pos, b.c, &last, &marker, dd, nullptr, &ds); }, -8},
        {[&] { return zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, 0, &pos, b.c, &last, &marker, dd, da, nullptr); }, -8},
        // stateless encoder: any null
        {[&] { return zebiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(nullptr, buf, &bitsLen, &last, ed, ea); }, -8},
        {[&] { return zebiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(b.c, buf, &bitsLen, &last, ed, nullptr); }, -8},
        // stateless decoder: src, srcBitsLen, its value, the rest, the count's value, specs
        {[&] { return zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(buf, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }, -8},
        {[&] { bitsLen = -8; return zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(buf, &bitsLen, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }, -5},
        {[&] { bitsLen = 0; return zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(buf, &bitsLen, b.c, &last, &marker, &pbits, nullptr, nullptr, nullptr); }, -8},
        {[&] { pcount = -1; return zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(buf, &bitsLen, b.c, &last, &marker, &pbits, &pcount, nullptr, nullptr); }, -5},
        {[&] { pcount = 0; return zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(buf, &bitsLen, b.c, &last, &marker, &pbits, &pcount, dd, nullptr); }, -8},
    };
    for (size_t i = 0; i < rows.size(); ++i) {
        std::memset(buf, 0xA5, sizeof buf);
        pos = 0;
        EXPECT_EQ(rows[i].call(), rows[i].want) << "row " << i;
        if (rows[i].want != 0)
            for (uint8_t x : buf) ASSERT_EQ(x, 0xA5) << "row " << i;
    }
    // A zero-length stream passes the check and ends at once.
    pos = 0;
    EXPECT_EQ(zebiDecodeHuffman8x8_JPEG_1u16s_C1(buf, 0, &pos, b.c, &last, &marker, dd, da, &ds), zebStatusJpegBufferEnd);
}

// ------------------------------------------------------------ worked bits

TEST(BaselineEncode, WorkedBitPatterns) {
    auto dc = stdTables(true), ac = stdTables(false);
    uint8_t buf[64];
    // A zero block with prediction 0: DC "00", EOB "1010", padding "11".
    {
        Encoder e;
        Block b{};
        ASSERT_EQ(e.block(b, buf, 64, *dc, *ac), 0);
        EXPECT_EQ(e.pos, 0);
        EXPECT_EQ(e.st.bitCount, 6);
        EXPECT_EQ(e.st.accumulator, uint64_t{0b001010} << 18);
        ASSERT_EQ(e.flush(buf, 64), 0);
        EXPECT_EQ(e.pos, 1);
        EXPECT_EQ(buf[0], 0x2B);
        EXPECT_EQ(e.st.bitCount, 0);
        EXPECT_EQ(e.st.accumulator, 0u);
        // Nothing pending: the flush stores nothing.
        std::memset(buf, 0xA5, 64);
        ASSERT_EQ(e.flush(buf, 64), 0);
        EXPECT_EQ(e.pos, 1);
        EXPECT_EQ(buf[1], 0xA5);
    }
    // diff -1: category 1 with bit 0; diff +1: bit 1.
    for (int d : {-1, 1}) {
        Encoder e;
        e.lastDC = 40;
        Block b{};
        b.c[0] = static_cast<int16_t>(40 + d);
        ASSERT_EQ(e.block(b, buf, 64, *dc, *ac), 0);
        EXPECT_EQ(e.pos, 1);
        EXPECT_EQ(buf[0], d < 0 ? 0x4A : 0x5A);  // 010 b 1010
        EXPECT_EQ(e.lastDC, 40 + d);
    }
    // A flush without room: -62, nothing stored, the state reset all the same.
    {
        Encoder e;
        e.st.accumulator = uint64_t{0b101} << 21;
        e.st.bitCount = 3;
        e.pos = 4;
        std::memset(buf, 0xA5, 64);
        EXPECT_EQ(e.flush(buf, 4), zebStatusJpegBufferEnd);
        EXPECT_EQ(e.pos, 4);
        EXPECT_EQ(e.st.bitCount, 0);
        EXPECT_EQ(e.st.accumulator, 0u);
        EXPECT_EQ(buf[4], 0xA5);
    }
    // Three pending bits flush into one byte whose low five bits are ones.
    {
        Encoder e;
        e.st.accumulator = uint64_t{0b101} << 21;
        e.st.bitCount = 3;
        ASSERT_EQ(e.flush(buf, 64), 0);
        EXPECT_EQ(e.pos, 1);
        EXPECT_EQ(buf[0], 0xBF);
    }
}

TEST(BaselineEncode, LastCoefficientRunsAndEob) {
    auto dc = stdTables(true), ac = stdTables(false);
    // Coefficient 63 alone: three zero runs of 16, then run 14; no EOB.
    Block b{};
    b.c[63] = 1;
    BitSink want;
    want.code(dc->enc, 0);
    for (int i = 0; i < 3; ++i) want.code(ac->enc, 0xF0);
    want.code(ac->enc, 0xE1);
    want.put(1, 1);
    want.pad();
    std::vector<uint8_t> got = encodeAll({b}, *dc, *ac);
    EXPECT_EQ(got, want.out);
    // Coefficient 62 only: the EOB follows.
    Block c{};
    c.c[kZigzag[62]] = -2;
    BitSink w2;
    w2.code(dc->enc, 0);
    for (int i = 0; i < 3; ++i) w2.code(ac->enc, 0xF0);
    w2.code(ac->enc, 0xD2);
    w2.put(0b01, 2);
    w2.code(ac->enc, 0x00);
    w2.pad();
    EXPECT_EQ(encodeAll({c}, *dc, *ac), w2.out);
}

// DC difference 2047 begins with eight one bits: 0xFF then a stuffed 0x00.
TEST(BaselineEncode, StuffingAndBufferEnd) {
    auto dc = stdTables(true), ac = stdTables(false);
    Block b{};
    b.c[0] = 2047;
    std::vector<uint8_t> full = encodeAll({b}, *dc, *ac);
    ASSERT_GE(full.size(), 2u);
    EXPECT_EQ(full[0], 0xFF);
    EXPECT_EQ(full[1], 0x00);
    // One byte of room: the 0xFF is stored, the stuffing is not, -62.
    zebtest::GuardedBuffer g(1);
    Encoder e;
    EXPECT_EQ(e.block(b, g.data(), 1, *dc, *ac), zebStatusJpegBufferEnd);
    EXPECT_EQ(g.data()[0], 0xFF);
    EXPECT_EQ(e.pos, 1);
    EXPECT_TRUE(g.guardsIntact());
    EXPECT_EQ(e.lastDC, 2047);  // taken before anything was written
    EXPECT_EQ(e.st.bitCount, 0);  // the failed write left the state as it was

    // Category 12 is not in the standard DC table.
    Encoder e2;
    uint8_t buf[64];
    b.c[0] = 2048;
    EXPECT_EQ(e2.block(b, buf, 64, *dc, *ac), zebStatusJpegHuffmanTable);
    EXPECT_EQ(e2.lastDC, 2048);
    // An AC symbol without a code: a table without 0x11.
    Encoder e3;
    Tables t;
    const uint8_t bits[16] = {0, 3};
    const uint8_t vals[3] = {0x00, 0x01, 0xF0};
    ASSERT_TRUE(t.build(bits, vals));
    Block c{};
    c.c[kZigzag[2]] = 1;
    EXPECT_EQ(e3.block(c, buf, 64, *dc, t), zebStatusJpegHuffmanTable);
}

// ------------------------------------------------------------ round trips

std::vector<uint32_t> symbolCounts(const std::vector<Block>& blocks, bool dcTable) {
    std::vector<uint32_t> cnt(256, 0);
    int16_t last = 0;
    auto cat = [](int v) { int a = v < 0 ? -v : v, c = 0; while (a) { ++c; a >>= 1; } return c; };
    for (const Block& b : blocks) {
        if (dcTable) {
            ++cnt[cat(b.c[0] - last)];
            last = b.c[0];
            continue;
        }
        int run = 0;
        for (int k = 1; k < 64; ++k) {
            int v = b.c[kZigzag[k]];
            if (!v) { ++run; continue; }
            for (; run > 15; run -= 16) ++cnt[0xF0];
            ++cnt[run * 16 + cat(v)];
            run = 0;
        }
        if (run) ++cnt[0];
    }
    return cnt;
}

std::unique_ptr<Tables> optimalTables(const std::vector<Block>& blocks, bool dcTable) {
    std::vector<uint32_t> c = symbolCounts(blocks, dcTable);
    std::vector<int32_t> s(c.begin(), c.end());
    uint8_t bits[16], vals[256];
    EXPECT_EQ(zebiEncodeHuffmanRawTableInit_JPEG_8u(s.data(), bits, vals), zebStatusOk);
    auto t = std::make_unique<Tables>();
    EXPECT_TRUE(t->build(bits, vals));
    return t;
}

void roundTrip(const std::vector<Block>& blocks, const Tables& dc, const Tables& ac) {
    std::vector<uint8_t> s = encodeAll(blocks, dc, ac);
    Decoder d;
    for (size_t i = 0; i < blocks.size(); ++i) {
        Block out;
        ASSERT_EQ(d.block(s.data(), static_cast<int>(s.size()), out, dc, ac), zebStatusOk) << "block " << i;
        ASSERT_EQ(std::memcmp(out.c, blocks[i].c, 128), 0) << "block " << i;
        ASSERT_EQ(d.st.blockEnd, expectedBlockEnd(blocks[i]) == 64 ? 64 : expectedBlockEnd(blocks[i]));
    }
    EXPECT_LE(d.pos, static_cast<int>(s.size()));
}

TEST(BaselineRoundTrip, StandardTables) {
    auto dcl = stdTables(true, true), acl = stdTables(false, true);
    auto dcc = stdTables(true, false), acc = stdTables(false, false);
    for (double scale : {0.5, 3.0, 12.0, 40.0}) {
        auto blocks = randomBlocks(300, 11 + static_cast<unsigned>(scale), scale);
        roundTrip(blocks, *dcl, *acl);
        roundTrip(blocks, *dcc, *acc);
    }
    roundTrip(edgeBlocks(), *dcl, *acl);
}

TEST(BaselineRoundTrip, OptimalTables) {
    for (double scale : {0.3, 5.0, 60.0}) {
        auto blocks = randomBlocks(400, 99, scale);
        // Wider values than the standard tables allow: categories up to 15.
        blocks[7].c[kZigzag[5]] = -32767;
        blocks[8].c[0] = 30000;
        blocks[9].c[0] = -2000;  // difference -32000: category 15
        auto dc = optimalTables(blocks, true), ac = optimalTables(blocks, false);
        roundTrip(blocks, *dc, *ac);
    }
}

TEST(BaselineRoundTrip, BlockEndValues) {
    auto dc = stdTables(true), ac = stdTables(false);
    std::vector<Block> v(2);
    std::memset(v.data(), 0, sizeof(Block) * 2);
    v[0].c[0] = 3;                                  // DC only
    for (int i = 0; i < 64; ++i) v[1].c[i] = 1;     // full block
    std::vector<uint8_t> s = encodeAll(v, *dc, *ac);
    Decoder d;
    Block out;
    ASSERT_EQ(d.block(s.data(), static_cast<int>(s.size()), out, *dc, *ac), 0);
    EXPECT_EQ(d.st.blockEnd, 1);
    ASSERT_EQ(d.block(s.data(), static_cast<int>(s.size()), out, *dc, *ac), 0);
    EXPECT_EQ(d.st.blockEnd, 64);
}

// Blocks, positions, prediction, marker and objects at odd addresses.
TEST(BaselineRoundTrip, MisalignedEverything) {
    auto blocks = randomBlocks(40, 5, 8.0);
    zebtest::GuardedBuffer specs(4 * 1644 + 8, 1), states(1048 + 24 + 64, 3), blk(128, 1), vars(64, 1);
    uint8_t* p = specs.data();
    auto* edc = reinterpret_cast<EncodeHuffmanSpec*>(p);
    auto* eac = reinterpret_cast<EncodeHuffmanSpec*>(p + 1024);
    auto* ddc = reinterpret_cast<DecodeHuffmanSpec*>(p + 2048);
    auto* dac = reinterpret_cast<DecodeHuffmanSpec*>(p + 2048 + 1644);
    ASSERT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(kDcLumBits, kDcVals, edc), 0);
    ASSERT_EQ(zebiEncodeHuffmanSpecInit_JPEG_8u(kAcLumBits, kAcLumVals, eac), 0);
    ASSERT_EQ(zebiDecodeHuffmanSpecInit_JPEG_8u(kDcLumBits, kDcVals, ddc), 0);
    ASSERT_EQ(zebiDecodeHuffmanSpecInit_JPEG_8u(kAcLumBits, kAcLumVals, dac), 0);
    auto* es = reinterpret_cast<EncodeHuffmanState*>(states.data());
    auto* ds = reinterpret_cast<DecodeHuffmanState*>(states.data() + 1048 + 5);
    ASSERT_EQ(zebiEncodeHuffmanStateInit_JPEG_8u(es), 0);
    ASSERT_EQ(zebiDecodeHuffmanStateInit_JPEG_8u(ds), 0);
    auto* pos = reinterpret_cast<int*>(vars.data());
    auto* last = reinterpret_cast<int16_t*>(vars.data() + 8);
    auto* marker = reinterpret_cast<int*>(vars.data() + 16);
    auto* b = reinterpret_cast<int16_t*>(blk.data());
    std::memset(vars.data(), 0, 24);
    std::vector<uint8_t> s(40 * 200);
    for (const Block& x : blocks) {
        std::memcpy(b, x.c, 128);
        ASSERT_EQ(zebiEncodeHuffman8x8_JPEG_16s1u_C1(b, s.data(), static_cast<int>(s.size()), pos, last, edc, eac, es, 0), 0);
    }
    ASSERT_EQ(zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, s.data(), static_cast<int>(s.size()), pos, nullptr, nullptr, nullptr, es, 1), 0);
    int len;
    std::memcpy(&len, pos, 4);
    auto stdDc = stdTables(true), stdAc = stdTables(false);
    EXPECT_EQ(std::vector<uint8_t>(s.begin(), s.begin() + len), encodeAll(blocks, *stdDc, *stdAc));
    std::memset(vars.data(), 0, 24);
    for (const Block& x : blocks) {
        ASSERT_EQ(zebiDecodeHuffman8x8_JPEG_1u16s_C1(s.data(), len, pos, b, last, marker, ddc, dac, ds), 0);
        ASSERT_EQ(std::memcmp(b, x.c, 128), 0);
    }
    EXPECT_TRUE(blk.guardsIntact());
    EXPECT_TRUE(specs.guardsIntact());
}

// ------------------------------------------------------------ fast vs careful

struct EncRun {
    std::vector<uint8_t> buf;
    std::vector<ZebStatus> status;
    std::vector<int> pos;
    std::vector<int16_t> last;
    std::vector<std::vector<uint8_t>> state;
};

EncRun runEncoder(const std::vector<Block>& blocks, const Tables& dc, const Tables& ac, int dstLen, bool careful) {
    EncRun r;
    zebtest::GuardedBuffer g(dstLen, 0, 32);
    Encoder e;
    for (const Block& b : blocks) {
        ZebStatus st = e.block(b, g.data(), dstLen, dc, ac, careful);
        r.status.push_back(st);
        r.pos.push_back(e.pos);
        r.last.push_back(e.lastDC);
        const uint8_t* sp = reinterpret_cast<const uint8_t*>(&e.st);
        r.state.emplace_back(sp, sp + 24);
        if (st != 0) break;
    }
    if (r.status.back() == 0) {
        r.status.push_back(e.flush(g.data(), dstLen));
        r.pos.push_back(e.pos);
    }
    EXPECT_TRUE(g.guardsIntact()) << "dstLen " << dstLen;
    r.buf.assign(g.data() - 32, g.data() + dstLen + 32);
    return r;
}

TEST(BaselineForms, EncoderFormsAgreeAtEveryLength) {
    auto dc = stdTables(true), ac = stdTables(false);
    std::vector<Block> blocks = randomBlocks(6, 3, 10.0);
    for (const Block& b : edgeBlocks()) blocks.push_back(b);
    const int full = static_cast<int>(encodeAll(blocks, *dc, *ac).size());
    for (int len = 1; len <= full + 30; ++len) {
        EncRun a = runEncoder(blocks, *dc, *ac, len, false);
        EncRun b = runEncoder(blocks, *dc, *ac, len, true);
        ASSERT_EQ(a.status, b.status) << "dstLen " << len;
        ASSERT_EQ(a.pos, b.pos) << "dstLen " << len;
        ASSERT_EQ(a.last, b.last) << "dstLen " << len;
        ASSERT_EQ(a.state, b.state) << "dstLen " << len;
        ASSERT_EQ(a.buf, b.buf) << "dstLen " << len;
        if (len >= full) EXPECT_EQ(a.status.back(), 0);
    }
}

// The fast form alone: it finishes ordinary blocks and hands over missing
// codes and short buffers untouched.
TEST(BaselineForms, FastEncoderFinishesOrGivesUpCleanly) {
    auto dc = stdTables(true), ac = stdTables(false);
    auto blocks = randomBlocks(50, 8, 10.0);
    blocks[3].c[0] = 2047;  // 0xFF bytes: stuffing inside the fast form
    blocks[4].c[0] = 1000;
    std::vector<uint8_t> a(50 * 200), b(50 * 200);
    zebtest::fillRandom(a.data(), a.size(), 0, 255);
    b = a;  // bytes behind the position must stay as they were
    Encoder fe, ce;
    int done = 0;
    for (const Block& x : blocks) {
        int st = huff::encodeBlockFast(x.c, a.data(), static_cast<int>(a.size()), &fe.pos, &fe.lastDC, &dc->enc, &ac->enc, &fe.st);
        ASSERT_EQ(st, 0);
        ++done;
        ASSERT_EQ(ce.block(x, b.data(), static_cast<int>(b.size()), *dc, *ac, true), 0);
        ASSERT_EQ(fe.pos, ce.pos);
        ASSERT_EQ(std::memcmp(&fe.st, &ce.st, 24), 0);
        ASSERT_EQ(a, b);
    }
    Block big{};
    big.c[0] = 4000;  // category 12: no code
    int16_t last = fe.lastDC;
    int pos = fe.pos;
    EncodeHuffmanState saved = fe.st;
    EXPECT_EQ(huff::encodeBlockFast(big.c, a.data(), static_cast<int>(a.size()), &fe.pos, &fe.lastDC, &dc->enc, &ac->enc, &fe.st), huff::kGiveUp);
    EXPECT_EQ(fe.lastDC, last);
    EXPECT_EQ(fe.pos, pos);
    EXPECT_EQ(std::memcmp(&saved, &fe.st, 24), 0);
    // A missing AC code after some output: the fast form gives up, and the
    // careful form after it leaves the same bytes as the careful form alone.
    Tables t;
    const uint8_t bits[16] = {0, 2, 3};
    const uint8_t vals[5] = {0x00, 0x01, 0x02, 0x11, 0xF0};
    ASSERT_TRUE(t.build(bits, vals));
    Block m{};
    m.c[kZigzag[1]] = 1;
    m.c[kZigzag[2]] = -2;
    m.c[kZigzag[3]] = 5;  // category 3: no code
    std::vector<uint8_t> x(2000), y(2000);
    zebtest::fillRandom(x.data(), x.size(), 0, 255);
    y = x;
    Encoder f2, c2;
    f2.st.accumulator = uint64_t{0b1011} << 20;
    f2.st.bitCount = 4;
    c2.st = f2.st;
    EXPECT_EQ(huff::encodeBlockFast(m.c, x.data(), 2000, &f2.pos, &f2.lastDC, &dc->enc, &t.enc, &f2.st), huff::kGiveUp);
    EXPECT_EQ(f2.block(m, x.data(), 2000, *dc, t, true), zebStatusJpegHuffmanTable);
    EXPECT_EQ(c2.block(m, y.data(), 2000, *dc, t, true), zebStatusJpegHuffmanTable);
    EXPECT_EQ(x, y);
    EXPECT_EQ(f2.pos, c2.pos);
    EXPECT_GT(c2.pos, 0);
}

// The fast encoder walks sparse blocks coefficient by coefficient and busy
// ones from a vector pass: every count of non-zero coefficients, with values
// of every category (up to the 16-bit extremes, which have no code and make
// both forms fail alike), gives the careful form's bytes, position and state.
TEST(BaselineForms, EncoderFormsAgreeAtEveryDensity) {
    auto dc = stdTables(true), ac = stdTables(false);
    std::mt19937 g(77);
    std::vector<Block> blocks;
    for (int m = 1; m <= 63; ++m) {
        for (int rep = 0; rep < 3; ++rep) {
            Block b{};
            b.c[0] = static_cast<int16_t>(static_cast<int>(g() % 2001) - 1000);
            std::vector<int> ks(63);
            for (int i = 0; i < 63; ++i) ks[i] = i + 1;
            std::shuffle(ks.begin(), ks.end(), g);
            for (int i = 0; i < m; ++i) {
                int cat = 1 + static_cast<int>(g() % 10);
                int mag = (1 << (cat - 1)) + static_cast<int>(g() % (1u << (cat - 1)));
                b.c[kZigzag[ks[i]]] = static_cast<int16_t>(g() % 2 ? mag : -mag);
            }
            blocks.push_back(b);
        }
    }
    Block ext{};
    for (int i = 0; i < 64; i += 3) ext.c[i] = static_cast<int16_t>(i % 2 ? -1 : 1);
    ext.c[kZigzag[50]] = -32768;
    blocks.push_back(ext);
    ext.c[kZigzag[50]] = 32767;
    blocks.push_back(ext);
    std::vector<uint8_t> a(blocks.size() * 200), b(a.size());
    zebtest::fillRandom(a.data(), a.size(), 0, 255);
    b = a;
    Encoder fe, ce;
    for (size_t i = 0; i < blocks.size(); ++i) {
        ZebStatus sa = fe.block(blocks[i], a.data(), static_cast<int>(a.size()), *dc, *ac);
        ZebStatus sb = ce.block(blocks[i], b.data(), static_cast<int>(b.size()), *dc, *ac, true);
        ASSERT_EQ(sa, sb) << "block " << i;
        ASSERT_EQ(sa, i + 2 < blocks.size() ? zebStatusOk : zebStatusJpegHuffmanTable) << "block " << i;
        ASSERT_EQ(fe.pos, ce.pos) << "block " << i;
        ASSERT_EQ(fe.lastDC, ce.lastDC) << "block " << i;
        ASSERT_EQ(std::memcmp(&fe.st, &ce.st, 24), 0) << "block " << i;
        ASSERT_EQ(a, b) << "block " << i;
        if (sa != zebStatusOk) {  // a failed block cannot be continued: start again
            fe = Encoder();
            ce = Encoder();
        }
    }
}

// The fast decoder alone finishes ordinary blocks with the careful form's
// exact position and read-ahead, and gives up untouched near the end.
TEST(BaselineForms, FastDecoderFinishesOrGivesUpCleanly) {
    auto dc = stdTables(true), ac = stdTables(false);
    auto blocks = randomBlocks(60, 9, 10.0);
    blocks[4].c[0] = 0;
    blocks[5].c[0] = 2047;  // 0xFF 0x00 in the stream
    blocks[6].c[0] = 1500;
    std::vector<uint8_t> s = encodeAll(blocks, *dc, *ac);
    const int len = static_cast<int>(s.size());
    Decoder fd, cd;
    int fast = 0;
    for (const Block& b : blocks) {
        Block x, y;
        int st = huff::decodeBlockFast(s.data(), len, &fd.pos, x.c, &fd.lastDC, &fd.marker, &dc->dec, &ac->dec, &fd.st);
        ASSERT_EQ(cd.block(s.data(), len, y, *dc, *ac, true), 0);
        ASSERT_EQ(std::memcmp(y.c, b.c, 128), 0);
        if (st == huff::kGiveUp) {
            ASSERT_GT(fd.pos + 24, len);  // only for want of bytes here
            fd.pos = cd.pos;
            fd.lastDC = cd.lastDC;
            fd.st = cd.st;
            continue;
        }
        ASSERT_EQ(st, 0);
        ++fast;
        ASSERT_EQ(std::memcmp(x.c, b.c, 128), 0);
        ASSERT_EQ(fd.pos, cd.pos);
        ASSERT_EQ(std::memcmp(&fd.st, &cd.st, 24), 0);
        ASSERT_EQ(fd.lastDC, cd.lastDC);
    }
    EXPECT_GT(fast, 40);
}

struct DecRun {
    std::vector<ZebStatus> status;
    std::vector<int> pos, marker, blockEnd;
    std::vector<int16_t> last;
    std::vector<std::vector<uint8_t>> state;
    std::vector<Block> blocks;
};

DecRun runDecoder(const uint8_t* src, int len, int count, const Tables& dc, const Tables& ac, bool careful) {
    DecRun r;
    Decoder d;
    for (int i = 0; i < count; ++i) {
        Block out;
        std::memset(&out, 0x5A, sizeof out);
        ZebStatus st = d.block(src, len, out, dc, ac, careful);
        r.status.push_back(st);
        r.pos.push_back(d.pos);
        r.marker.push_back(d.marker);
        r.blockEnd.push_back(d.st.blockEnd);
        r.last.push_back(d.lastDC);
        const uint8_t* sp = reinterpret_cast<const uint8_t*>(&d.st);
        r.state.emplace_back(sp, sp + 24);
        r.blocks.push_back(out);
        if (st != 0) break;
    }
    return r;
}

void expectSameDecoding(const DecRun& a, const DecRun& b, const std::string& what) {
    ASSERT_EQ(a.status, b.status) << what;
    ASSERT_EQ(a.pos, b.pos) << what;
    ASSERT_EQ(a.marker, b.marker) << what;
    ASSERT_EQ(a.blockEnd, b.blockEnd) << what;
    ASSERT_EQ(a.last, b.last) << what;
    ASSERT_EQ(a.state, b.state) << what;
    for (size_t i = 0; i < a.blocks.size(); ++i)
        ASSERT_EQ(std::memcmp(a.blocks[i].c, b.blocks[i].c, 128), 0) << what << " block " << i;
}

// Every srcLen from 0 to the whole stream, the source in an allocation of
// exactly that size so that any read outside it is caught by the sanitizer.
TEST(BaselineForms, DecoderFormsAgreeAtEveryLength) {
    auto dc = stdTables(true), ac = stdTables(false);
    std::vector<Block> blocks = randomBlocks(8, 21, 10.0);
    for (const Block& b : edgeBlocks()) blocks.push_back(b);
    std::vector<uint8_t> s = encodeAll(blocks, *dc, *ac);
    s.push_back(0xFF);
    s.push_back(0xD9);
    const int count = static_cast<int>(blocks.size()) + 1;
    for (int len = 0; len <= static_cast<int>(s.size()); ++len) {
        std::unique_ptr<uint8_t[]> src(new uint8_t[len > 0 ? len : 1]);
        std::memcpy(src.get(), s.data(), len);
        DecRun a = runDecoder(src.get(), len, count, *dc, *ac, false);
        DecRun b = runDecoder(src.get(), len, count, *dc, *ac, true);
        expectSameDecoding(a, b, "srcLen " + std::to_string(len));
        if (len == static_cast<int>(s.size())) {
            // All blocks, then the EOI marker ends the next one with -63.
            ASSERT_EQ(a.status.size(), blocks.size() + 1);
            EXPECT_EQ(a.status.back(), zebStatusJpegCoefficientRange);
            EXPECT_EQ(a.marker.back(), 0xD9);
            EXPECT_EQ(a.pos.back(), len);
            for (size_t i = 0; i < blocks.size(); ++i) ASSERT_EQ(std::memcmp(a.blocks[i].c, blocks[i].c, 128), 0);
        } else if (a.status.back() != 0) {
            EXPECT_TRUE(a.status.back() == zebStatusJpegBufferEnd || a.status.back() == zebStatusJpegCoefficientRange)
                << a.status.back();
        }
    }
}

// ------------------------------------------------------------ markers

// Two restart intervals with a marker between them, fill bytes before it.
TEST(BaselineMarkers, RestartIntervalsAndFillBytes) {
    auto dc = stdTables(true), ac = stdTables(false);
    auto one = randomBlocks(7, 31, 9.0), two = randomBlocks(5, 32, 9.0);
    std::vector<uint8_t> s = encodeAll(one, *dc, *ac);
    for (uint8_t x : {0xFF, 0xFF, 0xFF, 0xD3}) s.push_back(x);
    std::vector<uint8_t> t = encodeAll(two, *dc, *ac);
    s.insert(s.end(), t.begin(), t.end());
    s.push_back(0xFF);
    s.push_back(0xD9);
    for (bool careful : {false, true}) {
        Decoder d;
        Block out;
        for (const Block& b : one) {
            ASSERT_EQ(d.block(s.data(), static_cast<int>(s.size()), out, *dc, *ac, careful), 0);
            ASSERT_EQ(std::memcmp(out.c, b.c, 128), 0);
        }
        // The read-ahead reached the marker: the position stands behind it.
        ASSERT_EQ(d.marker, 0xD3);
        EXPECT_EQ(d.pos, static_cast<int>(s.size() - t.size() - 2));
        d.restart();
        for (const Block& b : two) {
            ASSERT_EQ(d.block(s.data(), static_cast<int>(s.size()), out, *dc, *ac, careful), 0);
            ASSERT_EQ(std::memcmp(out.c, b.c, 128), 0);
        }
        EXPECT_EQ(d.marker, 0xD9);
        EXPECT_EQ(d.block(s.data(), static_cast<int>(s.size()), out, *dc, *ac, careful), zebStatusJpegCoefficientRange);
        EXPECT_EQ(d.pos, static_cast<int>(s.size()));
    }
}

// A marker in the middle of a block: the decoded part stays, -63.
TEST(BaselineMarkers, EoiInsideBlock) {
    auto dc = stdTables(true), ac = stdTables(false);
    auto blocks = randomBlocks(3, 41, 30.0);
    std::vector<uint8_t> s = encodeAll(blocks, *dc, *ac);
    std::vector<uint8_t> head = encodeAll({blocks[0], blocks[1]}, *dc, *ac);
    // Cut a few bytes into the third block.
    size_t cut = head.size() + 3;
    ASSERT_LT(cut, s.size());
    std::vector<uint8_t> c(s.begin(), s.begin() + cut);
    c.push_back(0xFF);
    c.push_back(0xD9);
    for (bool careful : {false, true}) {
        Decoder d;
        Block out;
        ASSERT_EQ(d.block(c.data(), static_cast<int>(c.size()), out, *dc, *ac, careful), 0);
        ASSERT_EQ(d.block(c.data(), static_cast<int>(c.size()), out, *dc, *ac, careful), 0);
        EXPECT_EQ(d.block(c.data(), static_cast<int>(c.size()), out, *dc, *ac, careful), zebStatusJpegCoefficientRange);
        EXPECT_EQ(d.marker, 0xD9);
        EXPECT_EQ(d.pos, static_cast<int>(c.size()));
        EXPECT_EQ(out.c[0], blocks[2].c[0]);  // the DC was decoded before the bits ran out
        EXPECT_GE(d.st.blockEnd, 1);
        EXPECT_LT(d.st.blockEnd, 64);
        // Whatever was stored matches the block up to blockEnd.
        for (int k = 0; k < d.st.blockEnd - 1; ++k) EXPECT_EQ(out.c[kZigzag[k]], blocks[2].c[kZigzag[k]]);
    }
}

// Hand-made runs: the eight guard positions take the coefficient to 63; a
// run that reaches 72 fails with -2.
TEST(BaselineMarkers, ZigzagGuard) {
    auto dc = stdTables(true), ac = stdTables(false);
    auto make = [&](int lastRun) {
        BitSink s;
        s.code(dc->enc, 0);
        for (int i = 0; i < 3; ++i) s.code(ac->enc, 0xF0);  // k = 49
        s.code(ac->enc, 0x71);                              // k = 56
        s.put(1, 1);
        s.code(ac->enc, lastRun * 16 + 1);                  // k = 57 + lastRun
        s.put(0, 1);
        s.code(ac->enc, 0x00);
        s.pad();
        for (int i = 0; i < 30; ++i) s.out.push_back(0);
        return s.out;
    };
    for (bool careful : {false, true}) {
        std::vector<uint8_t> s = make(14);  // k = 71: stored at 63
        Decoder d;
        Block out;
        ASSERT_EQ(d.block(s.data(), static_cast<int>(s.size()), out, *dc, *ac, careful), 0);
        EXPECT_EQ(out.c[kZigzag[56]], 1);
        EXPECT_EQ(out.c[63], -1);
        EXPECT_EQ(d.st.blockEnd, 72);
        s = make(15);  // k = 72
        Decoder d2;
        EXPECT_EQ(d2.block(s.data(), static_cast<int>(s.size()), out, *dc, *ac, careful), zebStatusUnspecified);
        EXPECT_EQ(out.c[kZigzag[56]], 1);
        EXPECT_EQ(out.c[63], 0);
    }
}

// A code that matches nothing within 16 bits: -63.
TEST(BaselineMarkers, ImpossibleCode) {
    auto dc = stdTables(true), ac = stdTables(false);
    std::vector<uint8_t> s(40, 0xFF);
    for (size_t i = 1; i < s.size(); i += 2) s[i] = 0x00;  // stuffed all-ones data
    for (bool careful : {false, true}) {
        Decoder d;
        Block out;
        EXPECT_EQ(d.block(s.data(), static_cast<int>(s.size()), out, *dc, *ac, careful), zebStatusJpegCoefficientRange);
        EXPECT_EQ(d.st.blockEnd, 0);
    }
}

// ------------------------------------------------------------ stateless pair

TEST(BaselineDirect, EncoderContinuesMidByteAndMatchesStream) {
    auto dc = stdTables(true), ac = stdTables(false);
    auto blocks = randomBlocks(30, 51, 7.0);
    std::vector<uint8_t> ref = encodeAll(blocks, *dc, *ac);
    std::vector<uint8_t> d(30 * 200, 0xEE);
    int bitsLen = 0;
    int16_t last = 0;
    bool sawPartial = false;
    for (const Block& b : blocks) {
        ASSERT_EQ(zebiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(b.c, d.data(), &bitsLen, &last, &dc->enc, &ac->enc), 0);
        if (bitsLen & 7) {
            sawPartial = true;
            int unused = 8 - (bitsLen & 7);
            EXPECT_EQ(d[bitsLen >> 3] & ((1 << unused) - 1), 0);  // unused low bits are zero
            EXPECT_EQ(d[(bitsLen >> 3) + 1], 0xEE);
        }
    }
    EXPECT_TRUE(sawPartial);
    // Padding with ones gives the ordinary encoder's flushed stream.
    int n = bitsLen >> 3;
    std::vector<uint8_t> got(d.begin(), d.begin() + n);
    if (bitsLen & 7) got.push_back(static_cast<uint8_t>(d[n] | ((1 << (8 - (bitsLen & 7))) - 1)));
    EXPECT_EQ(got, ref);
    EXPECT_EQ(last, blocks.back().c[0]);
}

TEST(BaselineDirect, MissingCodeIsEmpty) {
    Tables t;
    const uint8_t bits[16] = {0, 2};
    const uint8_t vals[2] = {0x00, 0x01};  // no DC category 2
    ASSERT_TRUE(t.build(bits, vals));
    Block b{};
    b.c[0] = 2;  // category 2: no code, value bits "10" still written
    uint8_t d[16] = {};
    int bitsLen = 0;
    int16_t last = 0;
    EXPECT_EQ(zebiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(b.c, d, &bitsLen, &last, &t.enc, &t.enc), 0);
    // "10" then EOB "00".
    EXPECT_EQ(bitsLen, 4);
    EXPECT_EQ(d[0], 0x80);
}

TEST(BaselineDirect, DecoderFollowsStreamToMarker) {
    auto dc = stdTables(true), ac = stdTables(false);
    auto blocks = randomBlocks(25, 61, 9.0);
    std::vector<uint8_t> s = encodeAll(blocks, *dc, *ac);
    s.push_back(0xFF);
    s.push_back(0xD0);
    int bitsLen = 0, marker = 0, count = 0;
    uint32_t bits = 0;
    int16_t last = 0;
    Block out;
    for (const Block& b : blocks) {
        ASSERT_EQ(zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(s.data(), &bitsLen, out.c, &last, &marker, &bits, &count,
                                                            &dc->dec, &ac->dec), 0);
        ASSERT_EQ(std::memcmp(out.c, b.c, 128), 0);
        ASSERT_EQ(bitsLen & 7, 0);
        ASSERT_LE(count, 32);
    }
    EXPECT_EQ(marker, 0xD0);
    // Behind the marker the DC code runs dry: status 0, a cleared block and
    // the position unchanged.
    const int before = bitsLen;
    std::memset(out.c, 0x11, 128);
    EXPECT_EQ(zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(s.data(), &bitsLen, out.c, &last, &marker, &bits, &count,
                                                        &dc->dec, &ac->dec), 0);
    EXPECT_EQ(bitsLen, before);
    for (int16_t v : out.c) ASSERT_EQ(v, 0);
    EXPECT_EQ(last, blocks.back().c[0]);
}

TEST(BaselineDirect, MarkerInsideAcCodeEndsBlock) {
    auto dc = stdTables(true), ac = stdTables(false);
    auto blocks = randomBlocks(2, 71, 40.0);
    std::vector<uint8_t> head = encodeAll({blocks[0]}, *dc, *ac);
    std::vector<uint8_t> s = encodeAll(blocks, *dc, *ac);
    std::vector<uint8_t> c(s.begin(), s.begin() + head.size() + 4);
    c.push_back(0xFF);
    c.push_back(0xD7);
    int bitsLen = 0, marker = 0, count = 0;
    uint32_t bits = 0;
    int16_t last = 0;
    Block out;
    ASSERT_EQ(zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(c.data(), &bitsLen, out.c, &last, &marker, &bits, &count, &dc->dec, &ac->dec), 0);
    int st = zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(c.data(), &bitsLen, out.c, &last, &marker, &bits, &count, &dc->dec, &ac->dec);
    EXPECT_EQ(marker, 0xD7);
    EXPECT_EQ(last, blocks[1].c[0]);
    if (st == 0) {
        EXPECT_EQ(count, 0);
        EXPECT_EQ(bitsLen, static_cast<int>(c.size()) * 8);
    } else {
        EXPECT_EQ(st, zebStatusJpegBufferEnd);  // the bits ran out inside a value
    }
}

// ------------------------------------------------------------ random streams

// Random tables accepted by the decoder builder and random bytes: both forms
// agree, nothing is read outside the buffer, nothing is written outside the
// block, and the stateless decoder stops at the closing marker.
TEST(BaselineFuzz, RandomStreamsAndTables) {
    std::mt19937 g(2024);
    int ok = 0;
    for (int iter = 0; iter < 300; ++iter) {
        Tables t[2];
        for (Tables& x : t) {
            uint8_t bits[16] = {};
            uint8_t vals[256];
            int total = 0;
            for (int l = 0; l < 16 && total < 256; ++l) {
                int n = static_cast<int>(g() % (l < 8 ? 4 : 40));
                if (total + n > 256) n = 256 - total;
                bits[l] = static_cast<uint8_t>(n);
                total += n;
            }
            for (uint8_t& v : vals) v = static_cast<uint8_t>(g() % (iter % 3 ? 256 : 24));
            if (zebiDecodeHuffmanSpecInit_JPEG_8u(bits, vals, &x.dec) != 0) {
                const uint8_t b2[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1};
                ASSERT_EQ(zebiDecodeHuffmanSpecInit_JPEG_8u(b2, vals, &x.dec), 0);
            }
        }
        const int len = static_cast<int>(g() % 400);
        std::unique_ptr<uint8_t[]> src(new uint8_t[len + 2]);
        for (int i = 0; i < len; ++i) {
            uint32_t r = g();
            src[i] = static_cast<uint8_t>(r % 7 == 0 ? 0xFF : r >> 8);
        }
        DecRun a = runDecoder(src.get(), len, 40, t[0], t[1], false);
        DecRun b = runDecoder(src.get(), len, 40, t[0], t[1], true);
        expectSameDecoding(a, b, "iteration " + std::to_string(iter));
        ok += a.status.back() == 0;

        src[len] = 0xFF;
        src[len + 1] = 0xD9;
        int bitsLen = 0, marker = 0, count = 0;
        uint32_t bits = 0;
        int16_t last = 0;
        for (int i = 0; i < 40; ++i) {
            zebtest::GuardedBuffer blk(128, 2);
            int st = zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(src.get(), &bitsLen, blk.as<int16_t>(), &last, &marker,
                                                               &bits, &count, &t[0].dec, &t[1].dec);
            ASSERT_TRUE(blk.guardsIntact());
            ASSERT_LE(bitsLen, (len + 2) * 8);
            if (st != 0) break;
        }
    }
    EXPECT_GE(ok, 0);
}

}  // namespace
