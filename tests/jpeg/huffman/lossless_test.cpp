// Lossless coding: argument checks, the predictor formulas with their signed
// reading, vector rows against the scalar form at odd addresses and widths,
// overlap, round trips through predictors and Huffman coding for every
// predictor and precision, the fast and careful coder forms at every buffer
// length, markers and random streams.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "jpeg/huffman/bitio.h"
#include "jpeg/huffman/lossless.h"
#include "std_tables.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using namespace hufftest;
using zebtest::GuardedBuffer;
namespace huff = zeb::jpeg::huff;

// Tables with a code for every symbol 0..16 (the lossless categories).
std::unique_ptr<Tables> diffTables() {
    static const uint8_t bits[16] = {0, 0, 2, 3, 5, 6, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    static const uint8_t vals[17] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    auto t = std::make_unique<Tables>();
    EXPECT_TRUE(t->build(bits, vals));
    return t;
}

std::vector<int16_t> randomRow(std::mt19937& g, int n, int bitsOfRange = 16) {
    std::vector<int16_t> v(n);
    for (auto& x : v) x = static_cast<int16_t>(g() & ((1u << bitsOfRange) - 1u));
    return v;
}

TEST(LosslessChecks, OrderPerExport) {
    int16_t s[4] = {}, d[4] = {}, p[4] = {};
    uint8_t buf[16] = {};
    int pos = 0, marker = 0;
    auto t = diffTables();
    EncodeHuffmanState es;
    DecodeHuffmanState ds;
    zebiEncodeHuffmanStateInit_JPEG_8u(&es);
    zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
    const int16_t* rows[4] = {s, s, s, s};
    int16_t* orows[4] = {d, d, d, d};
    const EncodeHuffmanSpec* es4[4] = {&t->enc, &t->enc, &t->enc, &t->enc};
    const DecodeHuffmanSpec* ds4[4] = {&t->dec, &t->dec, &t->dec, &t->dec};
    const int16_t* rowsNull[4] = {s, s, nullptr, s};
    int32_t stats[256] = {};
    struct Row {
        const char* what;
        std::function<ZebStatus()> call;
        ZebStatus want;
    };
    const Row rows_[] = {
        {"first null src beats width", [&] { return zebiDiffPredFirstRow_JPEG_16s_C1(nullptr, d, 0, 1, -1); }, -8},
        {"first width beats precision", [&] { return zebiDiffPredFirstRow_JPEG_16s_C1(s, d, 0, 1, 0); }, -6},
        {"first precision 1", [&] { return zebiDiffPredFirstRow_JPEG_16s_C1(s, d, 1, 1, 0); }, -5},
        {"first precision 17", [&] { return zebiReconstructPredFirstRow_JPEG_16s_C1(s, d, 1, 17, 0); }, -5},
        {"first negative Pt", [&] { return zebiReconstructPredFirstRow_JPEG_16s_C1(s, d, 1, 8, -1); }, -5},
        {"first Pt above precision accepted", [&] { return zebiReconstructPredFirstRow_JPEG_16s_C1(s, d, 1, 8, 9); }, 0},
        {"row null prev", [&] { return zebiDiffPredRow_JPEG_16s_C1(s, nullptr, d, 0, 0); }, -8},
        {"row width", [&] { return zebiReconstructPredRow_JPEG_16s_C1(s, p, d, 0, 0); }, -6},
        {"row predictor 0", [&] { return zebiDiffPredRow_JPEG_16s_C1(s, p, d, 1, 0); }, -5},
        {"row predictor 8", [&] { return zebiReconstructPredRow_JPEG_16s_C1(s, p, d, 1, 8); }, -5},
        {"one enc null dst", [&] { return zebiEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, nullptr, 0, nullptr, nullptr, nullptr, 0); }, -8},
        {"one enc dstLen", [&] { return zebiEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, buf, 0, nullptr, nullptr, nullptr, 0); }, -6},
        {"one enc state", [&] { return zebiEncodeHuffmanOne_JPEG_16s1u_C1(s, buf, 16, &pos, &t->enc, nullptr, 0); }, -8},
        {"one enc flush ignores src", [&] { return zebiEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, buf, 16, &pos, nullptr, &es, 1); }, 0},
        {"one enc spec", [&] { return zebiEncodeHuffmanOne_JPEG_16s1u_C1(s, buf, 16, &pos, nullptr, &es, 0); }, -8},
        {"one dec srcLen 0", [&] { return zebiDecodeHuffmanOne_JPEG_1u16s_C1(buf, 0, nullptr, d, &marker, &t->dec, &ds); }, -6},
        {"one dec marker", [&] { return zebiDecodeHuffmanOne_JPEG_1u16s_C1(buf, 16, &pos, d, nullptr, &t->dec, &ds); }, -8},
        {"row enc src after flush test", [&] { return zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, buf, 16, &pos, nullptr, &es, 0); }, -8},
        {"row enc width", [&] { return zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 0, 1, buf, 16, &pos, nullptr, &es, 0); }, -6},
        {"row enc components", [&] { return zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 1, 0, buf, 16, &pos, nullptr, &es, 0); }, -6},
        {"row enc specs", [&] { return zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 1, 1, buf, 16, &pos, nullptr, &es, 0); }, -8},
        {"row enc third row", [&] { return zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rowsNull, 1, 3, buf, 16, &pos, es4, &es, 0); }, -8},
        {"row enc third row unused", [&] { return zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rowsNull, 1, 2, buf, 16, &pos, es4, &es, 0); }, 0},
        {"row dec srcLen", [&] { return zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(buf, 0, nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr); }, -6},
        {"row dec dst", [&] { return zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(buf, 16, &pos, nullptr, 0, 0, nullptr, nullptr, nullptr); }, -8},
        {"row dec width beats marker", [&] { return zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(buf, 16, &pos, orows, 0, 1, nullptr, nullptr, nullptr); }, -6},
        {"row dec marker", [&] { return zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(buf, 16, &pos, orows, 1, 1, nullptr, ds4, &ds); }, -8},
        {"stats null", [&] { return zebiGetHuffmanStatisticsOne_JPEG_16s_C1(s, nullptr); }, -8},
        {"stats ok", [&] { return zebiGetHuffmanStatisticsOne_JPEG_16s_C1(s, stats); }, 0},
    };
    for (const auto& r : rows_) {
        pos = 0;
        marker = 0;
        EXPECT_EQ(r.call(), r.want) << r.what;
    }
}

TEST(LosslessPredictors, WorkedNumbers) {
    EXPECT_EQ(huff::predict(7, 0x7FFF, 0x7FFF, 0), 0x7FFF);
    EXPECT_EQ(huff::predict(7, -1, -1, 0), -1);
    // Signed reading: 0x8000 and 0x0000 average to 0xC000, not 0x4000.
    EXPECT_EQ(static_cast<uint16_t>(huff::predict(7, -32768, 0, 0)), 0xC000);
    EXPECT_EQ(static_cast<uint16_t>(huff::predict(5, 0, -32768, 0x7FFF)), static_cast<uint16_t>((-32768 - 32767) >> 1));
    EXPECT_EQ(huff::predict(6, 5, 100, 2), 100 + 1);
    EXPECT_EQ(huff::predict(4, 10, 20, 5), 25);

    std::vector<int16_t> one{128}, out(1);
    ASSERT_EQ(zebiDiffPredFirstRow_JPEG_16s_C1(one.data(), out.data(), 1, 8, 0), 0);
    EXPECT_EQ(out[0], 0);
    ASSERT_EQ(zebiDiffPredFirstRow_JPEG_16s_C1(one.data(), out.data(), 1, 8, 2), 0);
    EXPECT_EQ(out[0], 128 - 32);
    one[0] = 0;
    ASSERT_EQ(zebiDiffPredFirstRow_JPEG_16s_C1(one.data(), out.data(), 1, 16, 0), 0);
    EXPECT_EQ(static_cast<uint16_t>(out[0]), 0x8000);
    ASSERT_EQ(zebiReconstructPredFirstRow_JPEG_16s_C1(out.data(), one.data(), 1, 16, 0), 0);
    EXPECT_EQ(one[0], 0);
    // The first sample of other rows comes from above, whatever the predictor.
    std::vector<int16_t> src{50, 60}, prev{40, 7}, d(2);
    for (int p = 1; p <= 7; ++p) {
        ASSERT_EQ(zebiDiffPredRow_JPEG_16s_C1(src.data(), prev.data(), d.data(), 2, p), 0);
        EXPECT_EQ(d[0], 10) << p;
    }
}

// Vector rows equal the scalar form at odd addresses and every width
// around the blocks of 16, for all 16-bit input.
TEST(LosslessPredictors, VectorEqualsScalarMisalignedAndOddWidths) {
    std::mt19937 g(5);
    for (int width = 1; width <= 70; ++width) {
        for (int off : {0, 1, 2, 6}) {
            for (int p = 1; p <= 7; ++p) {
                std::vector<uint8_t> a(2 * width + 16), b(2 * width + 16), o1(2 * width + 16), o2(2 * width + 16);
                for (auto& x : a) x = static_cast<uint8_t>(g());
                for (auto& x : b) x = static_cast<uint8_t>(g());
                auto* src = reinterpret_cast<Zeb16s*>(a.data() + off);
                auto* prev = reinterpret_cast<Zeb16s*>(b.data() + off + 2);
                auto* d1 = reinterpret_cast<Zeb16s*>(o1.data() + off);
                auto* d2 = reinterpret_cast<Zeb16s*>(o2.data() + off);
                huff::diffRowScalar(src, prev, d1, width, p);
                ASSERT_EQ(zebiDiffPredRow_JPEG_16s_C1(src, prev, d2, width, p), 0);
                ASSERT_EQ(o1, o2) << "diff w " << width << " p " << p << " off " << off;
                huff::reconstructRowScalar(src, prev, d1, width, p);
                ASSERT_EQ(zebiReconstructPredRow_JPEG_16s_C1(src, prev, d2, width, p), 0);
                ASSERT_EQ(o1, o2) << "recon w " << width << " p " << p << " off " << off;
            }
        }
    }
}

// The first row back: a running sum from the first prediction, the same at
// every width, at odd addresses and in place.
TEST(LosslessPredictors, FirstRowReconstructionFormsAgree) {
    std::mt19937 g(17);
    for (int width = 1; width <= 70; ++width) {
        std::vector<uint8_t> a(2 * width + 4), o(2 * width + 4);
        for (auto& x : a) x = static_cast<uint8_t>(g());
        auto* src = reinterpret_cast<Zeb16s*>(a.data() + 1);
        auto* dst = reinterpret_cast<Zeb16s*>(o.data() + 3);
        std::vector<int16_t> want(width);
        uint32_t acc = 1u << 11;
        for (int i = 0; i < width; ++i) {
            acc += static_cast<uint16_t>(zeb::loadAs<int16_t>(src + i));
            want[i] = static_cast<int16_t>(static_cast<uint16_t>(acc));
        }
        ASSERT_EQ(zebiReconstructPredFirstRow_JPEG_16s_C1(src, dst, width, 14, 2), 0);
        for (int i = 0; i < width; ++i) ASSERT_EQ(zeb::loadAs<int16_t>(dst + i), want[i]) << width << " " << i;
        ASSERT_EQ(zebiReconstructPredFirstRow_JPEG_16s_C1(src, src, width, 14, 2), 0);
        for (int i = 0; i < width; ++i) ASSERT_EQ(zeb::loadAs<int16_t>(src + i), want[i]) << "in place " << width;
    }
}

TEST(LosslessPredictors, RoundTripAllPredictorsAllInput) {
    std::mt19937 g(9);
    for (int width : {1, 2, 15, 16, 17, 33, 100, 257}) {
        for (int p = 1; p <= 7; ++p) {
            auto src = randomRow(g, width), prev = randomRow(g, width);
            std::vector<int16_t> diff(width), back(width, 0x5A5A);
            ASSERT_EQ(zebiDiffPredRow_JPEG_16s_C1(src.data(), prev.data(), diff.data(), width, p), 0);
            ASSERT_EQ(zebiReconstructPredRow_JPEG_16s_C1(diff.data(), prev.data(), back.data(), width, p), 0);
            ASSERT_EQ(src, back) << width << " " << p;
            // In place: reconstruction reads each difference before it is replaced.
            ASSERT_EQ(zebiReconstructPredRow_JPEG_16s_C1(diff.data(), prev.data(), diff.data(), width, p), 0);
            ASSERT_EQ(src, diff) << "in place " << width << " " << p;
        }
        for (int prec = 2; prec <= 16; ++prec) {
            auto src = randomRow(g, width, prec);
            std::vector<int16_t> diff(width), back(width);
            ASSERT_EQ(zebiDiffPredFirstRow_JPEG_16s_C1(src.data(), diff.data(), width, prec, 1 % prec), 0);
            ASSERT_EQ(zebiReconstructPredFirstRow_JPEG_16s_C1(diff.data(), back.data(), width, prec, 1 % prec), 0);
            ASSERT_EQ(src, back);
        }
    }
}

// Forward in place takes the element-by-element route: the left neighbour is
// read after it was replaced by its difference.
TEST(LosslessPredictors, ForwardInPlaceFollowsElementOrder) {
    std::mt19937 g(3);
    for (int p = 1; p <= 7; ++p) {
        auto src = randomRow(g, 40), prev = randomRow(g, 40);
        std::vector<int16_t> want = src;
        for (int i = 0; i < 40; ++i)
            want[i] = zeb::wrap16(int32_t{want[i]} - (i == 0 ? prev[0] : huff::predict(p, want[i - 1], prev[i], prev[i - 1])));
        ASSERT_EQ(zebiDiffPredRow_JPEG_16s_C1(src.data(), prev.data(), src.data(), 40, p), 0);
        EXPECT_EQ(src, want) << p;
    }
}

TEST(LosslessCoding, CategoryWorkedNumbers) {
    auto t = diffTables();
    int32_t stats[256] = {};
    for (int16_t v : {int16_t{0}, int16_t{32767}, int16_t{-32767}, int16_t{-32768}, int16_t{-1}})
        ASSERT_EQ(zebiGetHuffmanStatisticsOne_JPEG_16s_C1(&v, stats), 0);
    EXPECT_EQ(stats[0], 1);
    EXPECT_EQ(stats[15], 2);
    EXPECT_EQ(stats[16], 1);
    EXPECT_EQ(stats[1], 1);
    // -32768: symbol 16 and no value bits; decodes to 0x8000.
    uint8_t buf[16];
    int pos = 0;
    EncodeHuffmanState es;
    zebiEncodeHuffmanStateInit_JPEG_8u(&es);
    int16_t v = -32768;
    ASSERT_EQ(zebiEncodeHuffmanOne_JPEG_16s1u_C1(&v, buf, 16, &pos, &t->enc, &es, 0), 0);
    EXPECT_EQ(es.bitCount + 8 * pos, static_cast<int>(t->enc.entry[16] >> 16));
    ASSERT_EQ(zebiEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, buf, 16, &pos, nullptr, &es, 1), 0);
    DecodeHuffmanState ds;
    zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
    int rpos = 0, marker = 0;
    int16_t out = 0;
    ASSERT_EQ(zebiDecodeHuffmanOne_JPEG_1u16s_C1(buf, pos, &rpos, &out, &marker, &t->dec, &ds), 0);
    EXPECT_EQ(static_cast<uint16_t>(out), 0x8000);
}

// A whole image through predictors, statistics, optimal tables, the row coder
// and back, for every predictor and precision with point transforms.
TEST(LosslessCoding, ImageRoundTripEveryPredictorAndPrecision) {
    std::mt19937 g(21);
    const int w = 23, h = 5;
    for (int prec = 2; prec <= 16; ++prec) {
        for (int pred = 1; pred <= 7; ++pred) {
            const int pt = (prec + pred) % 3 < prec - 1 ? (prec + pred) % 3 : 0;
            const int comps = 1 + (prec + pred) % 4;
            // Smooth-ish samples of prec - pt bits.
            std::vector<std::vector<int16_t>> img(comps * h, std::vector<int16_t>(w));
            const int range = 1 << (prec - pt);
            for (auto& row : img) {
                int v = static_cast<int>(g() % range);
                for (auto& x : row) {
                    v = (v + static_cast<int>(g() % 9) - 4 + range) % range;
                    x = static_cast<int16_t>(v);
                }
            }
            std::vector<std::vector<int16_t>> diff(comps * h, std::vector<int16_t>(w));
            for (int c = 0; c < comps; ++c)
                for (int y = 0; y < h; ++y) {
                    auto& s = img[c * h + y];
                    auto& d = diff[c * h + y];
                    if (y == 0) ASSERT_EQ(zebiDiffPredFirstRow_JPEG_16s_C1(s.data(), d.data(), w, prec, pt), 0);
                    else ASSERT_EQ(zebiDiffPredRow_JPEG_16s_C1(s.data(), img[c * h + y - 1].data(), d.data(), w, pred), 0);
                }
            std::vector<int32_t> stats(256 * comps, 0);
            for (int c = 0; c < comps; ++c)
                for (int y = 0; y < h; ++y)
                    for (int16_t v : diff[c * h + y]) ASSERT_EQ(zebiGetHuffmanStatisticsOne_JPEG_16s_C1(&v, &stats[256 * c]), 0);
            std::vector<Tables> tabs(comps);
            for (int c = 0; c < comps; ++c) {
                uint8_t bits[16], vals[256];
                ASSERT_EQ(zebiEncodeHuffmanRawTableInit_JPEG_8u(&stats[256 * c], bits, vals), 0);
                ASSERT_TRUE(tabs[c].build(bits, vals));
            }
            std::vector<uint8_t> stream(w * h * comps * 5 + 16);
            int pos = 0;
            EncodeHuffmanState es;
            zebiEncodeHuffmanStateInit_JPEG_8u(&es);
            const EncodeHuffmanSpec* especs[4];
            const DecodeHuffmanSpec* dspecs[4];
            for (int c = 0; c < 4; ++c) {
                especs[c] = &tabs[c % comps].enc;
                dspecs[c] = &tabs[c % comps].dec;
            }
            for (int y = 0; y < h; ++y) {
                const Zeb16s* rows[4];
                for (int c = 0; c < 4; ++c) rows[c] = diff[(c % comps) * h + y].data();
                if (comps == 1 && (y & 1)) {  // the single-value coder interleaves with the row coder
                    for (int x = 0; x < w; ++x)
                        ASSERT_EQ(zebiEncodeHuffmanOne_JPEG_16s1u_C1(&rows[0][x], stream.data(), static_cast<int>(stream.size()), &pos, especs[0], &es, 0), 0);
                } else {
                    ASSERT_EQ(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, w, comps, stream.data(), static_cast<int>(stream.size()), &pos, especs, &es, 0), 0);
                }
            }
            ASSERT_EQ(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, stream.data(), static_cast<int>(stream.size()), &pos, nullptr, &es, 1), 0);
            const int len = pos;
            DecodeHuffmanState ds;
            zebiDecodeHuffmanStateInit_JPEG_8u(&ds);
            int rpos = 0, marker = 0;
            std::vector<std::vector<int16_t>> dec(comps * h, std::vector<int16_t>(w));
            std::vector<std::vector<int16_t>> rec(comps * h, std::vector<int16_t>(w));
            for (int y = 0; y < h; ++y) {
                Zeb16s* rows[4];
                for (int c = 0; c < comps; ++c) rows[c] = dec[c * h + y].data();
                if (comps == 1 && (y & 1)) {
                    for (int x = 0; x < w; ++x)
                        ASSERT_EQ(zebiDecodeHuffmanOne_JPEG_1u16s_C1(stream.data(), len, &rpos, &rows[0][x], &marker, dspecs[0], &ds), 0);
                } else {
                    ASSERT_EQ(zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(stream.data(), len, &rpos, rows, w, comps, &marker, dspecs, &ds), 0);
                }
                for (int c = 0; c < comps; ++c) {
                    auto& d = dec[c * h + y];
                    auto& r = rec[c * h + y];
                    if (y == 0) ASSERT_EQ(zebiReconstructPredFirstRow_JPEG_16s_C1(d.data(), r.data(), w, prec, pt), 0);
                    else ASSERT_EQ(zebiReconstructPredRow_JPEG_16s_C1(d.data(), rec[c * h + y - 1].data(), r.data(), w, pred), 0);
                }
            }
            ASSERT_EQ(rec, img) << "precision " << prec << " predictor " << pred;
        }
    }
}

TEST(LosslessCoding, FiveComponentsCodeFour) {
    auto t = diffTables();
    std::vector<int16_t> r(8, 3);
    const Zeb16s* rows[5] = {r.data(), r.data(), r.data(), r.data(), nullptr};
    const EncodeHuffmanSpec* specs[5] = {&t->enc, &t->enc, &t->enc, &t->enc, nullptr};
    uint8_t a[64], b[64];
    EncodeHuffmanState s1, s2;
    zebiEncodeHuffmanStateInit_JPEG_8u(&s1);
    zebiEncodeHuffmanStateInit_JPEG_8u(&s2);
    int p1 = 0, p2 = 0;
    ASSERT_EQ(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 8, 5, a, 64, &p1, specs, &s1, 0), 0);
    ASSERT_EQ(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 8, 4, b, 64, &p2, specs, &s2, 0), 0);
    EXPECT_EQ(p1, p2);
    EXPECT_EQ(std::memcmp(a, b, p1), 0);
    EXPECT_EQ(s1.bitCount, s2.bitCount);
}

// The exports (fast form first) against the careful forms at every buffer
// length: same status, bytes, position and state. Includes 0xFF stuffing.
TEST(LosslessCoding, FastAndCarefulAgreeAtEveryLength) {
    auto t = diffTables();
    std::mt19937 g(77);
    std::vector<int16_t> row(40);
    for (auto& x : row) x = static_cast<int16_t>(static_cast<int>(g() % 2001) - 1000);
    row[3] = -32768;
    row[4] = -1;  // a run of one bits towards 0xFF bytes
    for (int len = 1; len <= 80; ++len) {
        std::vector<uint8_t> a(len, 0xEE), b(len, 0xEE);
        EncodeHuffmanState s1, s2;
        zebiEncodeHuffmanStateInit_JPEG_8u(&s1);
        zebiEncodeHuffmanStateInit_JPEG_8u(&s2);
        int p1 = 0, p2 = 0;
        const Zeb16s* rows[1] = {row.data()};
        const EncodeHuffmanSpec* specs[1] = {&t->enc};
        int st1 = zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 40, 1, a.data(), len, &p1, specs, &s1, 0);
        int st2 = huff::encodeRowCareful(rows, 40, 1, b.data(), len, &p2, specs, &s2);
        ASSERT_EQ(st1, st2) << len;
        ASSERT_EQ(p1, p2) << len;
        ASSERT_EQ(a, b) << len;
        ASSERT_EQ(std::memcmp(&s1, &s2, 16), 0);
        // Single values, one after another into the same short buffer.
        std::fill(a.begin(), a.end(), 0xEE);
        std::fill(b.begin(), b.end(), 0xEE);
        zebiEncodeHuffmanStateInit_JPEG_8u(&s1);
        zebiEncodeHuffmanStateInit_JPEG_8u(&s2);
        p1 = p2 = 0;
        for (int i = 0; i < 40; ++i) {
            st1 = zebiEncodeHuffmanOne_JPEG_16s1u_C1(&row[i], a.data(), len, &p1, &t->enc, &s1, 0);
            st2 = huff::encodeOneCareful(row[i], b.data(), len, &p2, &t->enc, &s2);
            ASSERT_EQ(st1, st2);
            ASSERT_EQ(p1, p2);
            if (st1 != 0) break;
        }
        ASSERT_EQ(a, b) << len;
    }
    // Decode: a complete stream read with every srcLen, fast and careful.
    std::vector<uint8_t> s(300);
    int pos = 0;
    EncodeHuffmanState es;
    zebiEncodeHuffmanStateInit_JPEG_8u(&es);
    const Zeb16s* rows[1] = {row.data()};
    const EncodeHuffmanSpec* specs[1] = {&t->enc};
    for (int k = 0; k < 3; ++k) ASSERT_EQ(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 40, 1, s.data(), 300, &pos, specs, &es, 0), 0);
    ASSERT_EQ(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, s.data(), 300, &pos, nullptr, &es, 1), 0);
    s[pos] = 0xFF;
    s[pos + 1] = 0xD9;
    for (int len = 1; len <= pos + 2; ++len) {
        DecodeHuffmanState d1, d2;
        zebiDecodeHuffmanStateInit_JPEG_8u(&d1);
        zebiDecodeHuffmanStateInit_JPEG_8u(&d2);
        int r1 = 0, r2 = 0, m1 = 0, m2 = 0;
        const DecodeHuffmanSpec* ds[1] = {&t->dec};
        for (int k = 0; k < 4; ++k) {
            std::vector<int16_t> o1(40, 7), o2(40, 7);
            Zeb16s* q1[1] = {o1.data()};
            Zeb16s* q2[1] = {o2.data()};
            int st1 = zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(s.data(), len, &r1, q1, 40, 1, &m1, ds, &d1);
            int st2 = huff::decodeRowCareful(s.data(), len, &r2, q2, 40, 1, &m2, ds, &d2);
            ASSERT_EQ(st1, st2) << len << " row " << k;
            ASSERT_EQ(r1, r2);
            ASSERT_EQ(m1, m2);
            ASSERT_EQ(o1, o2);
            if (k < 3 && len == pos + 2) {
                ASSERT_EQ(st1, 0);
                ASSERT_EQ(o1, row);
            }
            if (k == 3 && len == pos + 2) {
                EXPECT_EQ(st1, zebStatusJpegCoefficientRange);  // behind the marker
                EXPECT_EQ(m1, 0xD9);
            }
            if (st1 != 0) break;
        }
    }
}

TEST(LosslessCoding, RandomStreamsStayInside) {
    auto t = diffTables();
    std::mt19937 g(1234);
    const DecodeHuffmanSpec* ds[4] = {&t->dec, &t->dec, &t->dec, &t->dec};
    for (int iter = 0; iter < 400; ++iter) {
        const int len = 1 + static_cast<int>(g() % 60);
        std::vector<uint8_t> s(len);
        for (auto& b : s) b = static_cast<uint8_t>(g() % 5 == 0 ? 0xFF : g());
        GuardedBuffer out(2 * 4 * 9, 1);
        Zeb16s* rows[4];
        for (int c = 0; c < 4; ++c) rows[c] = reinterpret_cast<Zeb16s*>(out.data() + 18 * c);
        DecodeHuffmanState st;
        zebiDecodeHuffmanStateInit_JPEG_8u(&st);
        int pos = 0, marker = 0;
        for (int k = 0; k < 6; ++k) {
            int r = zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(s.data(), len, &pos, rows, 9, 4, &marker, ds, &st);
            ASSERT_TRUE(r == 0 || r == -62 || r == -63) << r;
            ASSERT_LE(pos, len);
            if (r != 0) break;
        }
        ASSERT_TRUE(out.guardsIntact());
    }
}

}  // namespace
