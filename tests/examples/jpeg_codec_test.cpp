// The JPEG tool's codec (examples/jpeg): our decoder gives our encoder's
// reconstruction exactly, MCU padding replicates the image's edges, the
// file-format paths (skipped segments, fill bytes, restart order, table and
// process checks) and damaged files that must fail cleanly, never crash.
// Agreement with libjpeg-turbo is tests/examples/zebjpeg_interop.sh.
#include <gtest/gtest.h>

#ifdef ZEB_HAVE_CODEC
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "codec.h"

namespace {

using zebjpeg::EncodeOptions;
using zebjpeg::Sampling;

// Smooth gradients with noise and a hard edge, like a small photograph.
std::vector<uint8_t> picture(int w, int h, int channels, unsigned seed) {
    std::mt19937 g(seed);
    std::vector<uint8_t> p(size_t(w) * h * channels);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < channels; ++c) {
                int v = (x * (60 + 40 * c)) / (w + 1) + (y * 150) / (h + 1) + int(g() % 24);
                if (x > w / 2 && y > h / 3) v = 230 - 90 * c;
                p[(size_t(y) * w + x) * channels + c] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
            }
    return p;
}

std::vector<uint8_t> encode(const std::vector<uint8_t>& px, int w, int h, int ch, EncodeOptions o = {},
                            zebjpeg::Raster* rec = nullptr) {
    return zebjpeg::encode(px.data(), size_t(w) * ch, w, h, ch, o, rec);
}

size_t find(const std::vector<uint8_t>& f, std::initializer_list<uint8_t> pattern, size_t from = 0) {
    std::vector<uint8_t> pat(pattern);
    for (size_t i = from; i + pat.size() <= f.size(); ++i)
        if (std::memcmp(&f[i], pat.data(), pat.size()) == 0) return i;
    return std::string::npos;
}

// What decoding gives: "ok", or the kind of failure with its message.
std::string outcome(const std::vector<uint8_t>& f) {
    try {
        zebjpeg::decode(f.data(), f.size());
        return "ok";
    } catch (const zebjpeg::Unsupported& e) {
        return std::string("unsupported: ") + e.what();
    } catch (const zebjpeg::Error& e) {
        return std::string("error: ") + e.what();
    }
}

TEST(JpegCodecRoundTrip, DecoderGivesTheEncodersReconstruction) {
    struct Size {
        int w, h;
    };
    const Size sizes[] = {{1, 1}, {9, 7}, {17, 33}, {40, 24}, {100, 3}};
    unsigned seed = 1;
    for (Size s : sizes)
        for (int ch : {1, 3})
            for (Sampling samp : {Sampling::s444, Sampling::s422, Sampling::s420})
                for (int ri : {0, 1, 3})
                    for (bool opt : {false, true}) {
                        if (ch == 1 && samp != Sampling::s444) continue;
                        auto px = picture(s.w, s.h, ch, seed++);
                        EncodeOptions o;
                        o.quality = 30 + 13 * (seed % 6);
                        o.sampling = samp;
                        o.restartInterval = ri;
                        o.optimize = opt;
                        zebjpeg::Raster rec;
                        auto file = encode(px, s.w, s.h, ch, o, &rec);
                        auto back = zebjpeg::decode(file.data(), file.size());
                        SCOPED_TRACE(std::to_string(s.w) + "x" + std::to_string(s.h) + " ch " + std::to_string(ch) +
                                     " ri " + std::to_string(ri) + " opt " + std::to_string(opt));
                        ASSERT_EQ(back.width, s.w);
                        ASSERT_EQ(back.height, s.h);
                        ASSERT_EQ(back.channels, ch);
                        ASSERT_EQ(back.pixels, rec.pixels);
                    }
}

TEST(JpegCodecRoundTrip, OptimalTablesCodeTheSameBlocksInFewerBytes) {
    auto px = picture(64, 48, 3, 5);
    EncodeOptions o;
    zebjpeg::Raster rec1, rec2;
    auto plain = encode(px, 64, 48, 3, o, &rec1);
    o.optimize = true;
    auto opt = encode(px, 64, 48, 3, o, &rec2);
    EXPECT_LT(opt.size(), plain.size());
    EXPECT_EQ(rec1.pixels, rec2.pixels);
}

TEST(JpegCodecFormat, PartialMcusReplicateTheLastColumnAndRow) {
    // A 9x7 grey image codes the same blocks as the 16x8 image made by
    // repeating its last column and row: the scans are byte for byte equal.
    auto small = picture(9, 7, 1, 3);
    std::vector<uint8_t> big(16 * 8);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x) big[size_t(y) * 16 + x] = small[size_t(std::min(y, 6)) * 9 + std::min(x, 8)];
    auto a = encode(small, 9, 7, 1), b = encode(big, 16, 8, 1);
    size_t sa = find(a, {0xFF, 0xDA}), sb = find(b, {0xFF, 0xDA});
    ASSERT_NE(sa, std::string::npos);
    ASSERT_NE(sb, std::string::npos);
    EXPECT_EQ(std::vector<uint8_t>(a.begin() + long(sa), a.end()), std::vector<uint8_t>(b.begin() + long(sb), b.end()));
}

TEST(JpegCodecFormat, QualityFiftyWritesTheExampleTablesInZigzagOrder) {
    auto px = picture(8, 8, 3, 1);
    EncodeOptions o;
    o.quality = 50;
    auto f = encode(px, 8, 8, 3, o);
    size_t dqt = find(f, {0xFF, 0xDB, 0x00, 0x43, 0x00});
    ASSERT_NE(dqt, std::string::npos);
    const uint8_t* t = &f[dqt + 5];
    // Zigzag positions 0..5 are natural 0, 1, 8, 16, 9, 2; the last is 63.
    EXPECT_EQ(std::vector<int>(t, t + 6), (std::vector<int>{16, 11, 12, 14, 12, 10}));
    EXPECT_EQ(t[63], 99);
    size_t dqt1 = find(f, {0xFF, 0xDB, 0x00, 0x43, 0x01});
    ASSERT_NE(dqt1, std::string::npos);
    EXPECT_EQ(f[dqt1 + 5], 17);
    EXPECT_EQ(f[dqt1 + 5 + 3], 24);  // zigzag 3 is natural 16 (vertical frequency 2)
}

TEST(JpegCodecFormat, SegmentsAndFillBytesThatCarryNoPixelsAreSkipped) {
    auto px = picture(24, 17, 3, 9);
    EncodeOptions o;
    o.restartInterval = 1;
    auto f = encode(px, 24, 17, 3, o);
    auto ref = zebjpeg::decode(f.data(), f.size()).pixels;
    std::vector<uint8_t> g(f.begin(), f.begin() + 2);
    const uint8_t app1[] = {0xFF, 0xE1, 0x00, 0x06, 'E', 'x', 0, 0};
    const uint8_t com[] = {0xFF, 0xFE, 0x00, 0x05, 'h', 'i', '!'};
    g.insert(g.end(), app1, app1 + sizeof app1);
    g.insert(g.end(), com, com + sizeof com);
    g.insert(g.end(), {0x00, 0x17, 0xFF, 0xFF, 0xFF});  // stray bytes, then fill before the next marker
    g.insert(g.end(), f.begin() + 2, f.end());
    EXPECT_EQ(outcome(g), "ok");
    EXPECT_EQ(zebjpeg::decode(g.data(), g.size()).pixels, ref);
}

TEST(JpegCodecFormat, BrokenStructureGivesAClearError) {
    auto px = picture(32, 16, 3, 4);
    EncodeOptions o;
    o.restartInterval = 1;
    auto f = encode(px, 32, 16, 3, o);
    size_t sof = find(f, {0xFF, 0xC0}), sos = find(f, {0xFF, 0xDA}), rst = find(f, {0xFF, 0xD0}, sos);
    ASSERT_NE(rst, std::string::npos);

    auto g = f;
    g[rst + 1] = 0xD1;  // the first interval ends with RST1
    EXPECT_NE(outcome(g).find("error: restart marker"), std::string::npos) << outcome(g);
    g = f;
    g[sos + 6] = 0x33;  // first component: DC and AC tables 3, never defined
    EXPECT_NE(outcome(g).find("undefined Huffman table"), std::string::npos) << outcome(g);
    g = f;
    g[sos + 5 + 2 * 3] = 62;  // spectral start 62: not a sequential scan
    EXPECT_NE(outcome(g).find("sequential"), std::string::npos) << outcome(g);
    g = f;
    g[sof + 10] = 0x12;  // the frame's first component id, which the scan then does not name
    EXPECT_NE(outcome(g).find("unknown component"), std::string::npos) << outcome(g);
    g = f;
    g[0] = 0x00;
    EXPECT_NE(outcome(g).find("not a JPEG file"), std::string::npos);
    g.assign(f.begin(), f.end() - 2);  // no end-of-image marker
    EXPECT_NE(outcome(g).find("error: "), std::string::npos);
}

TEST(JpegCodecFormat, ProcessesNotHandledYetAreNamed) {
    auto px = picture(16, 16, 1, 2);
    auto f = encode(px, 16, 16, 1);
    size_t sof = find(f, {0xFF, 0xC0});
    const std::pair<uint8_t, const char*> cases[] = {
        {0xC6, "progressive JPEG is not supported yet"}, {0xC7, "lossless JPEG is not supported yet"},
        {0xC9, "arithmetic-coded"}, {0xC5, "hierarchical"}};
    for (auto [code, text] : cases) {
        auto g = f;
        g[sof + 1] = code;
        EXPECT_NE(outcome(g).find(std::string("unsupported: ") + text), std::string::npos) << outcome(g);
    }
    // A sequential scan (0..63, no approximation) under a progressive or a
    // lossless frame header is a bad scan of that process.
    auto g2 = f;
    g2[sof + 1] = 0xC2;
    EXPECT_NE(outcome(g2).find("error: bad spectral selection"), std::string::npos) << outcome(g2);
    g2[sof + 1] = 0xC3;
    EXPECT_NE(outcome(g2).find("error: bad predictor"), std::string::npos) << outcome(g2);
    auto g = f;
    g[sof + 4] = 12;  // precision
    EXPECT_NE(outcome(g).find("unsupported: 12-bit"), std::string::npos) << outcome(g);
    g = f;
    g[sof + 1] = 0xC1;  // extended sequential with 8-bit samples decodes as baseline
    EXPECT_EQ(outcome(g), "ok");
}

TEST(JpegCodecFormat, EncoderRejectsBadArguments) {
    auto px = picture(8, 8, 3, 1);
    EncodeOptions o;
    o.quality = 0;
    EXPECT_THROW(encode(px, 8, 8, 3, o), zebjpeg::Error);
    o.quality = 101;
    EXPECT_THROW(encode(px, 8, 8, 3, o), zebjpeg::Error);
    EXPECT_THROW(encode(px, 0, 8, 3), zebjpeg::Error);
    EXPECT_THROW(encode(px, 8, 8, 2), zebjpeg::Error);
    EXPECT_THROW(zebjpeg::encode(px.data(), 24, 70000, 1, 3, EncodeOptions{}), zebjpeg::Error);
}

TEST(JpegCodecDamage, EveryTruncationFailsWithAnError) {
    auto px = picture(24, 16, 3, 6);
    EncodeOptions o;
    o.restartInterval = 2;
    auto f = encode(px, 24, 16, 3, o);
    for (size_t n = 0; n < f.size(); ++n) {
        std::vector<uint8_t> g(f.begin(), f.begin() + long(n));
        ASSERT_EQ(outcome(g).rfind("error: ", 0), 0u) << "length " << n << ": " << outcome(g);
    }
}

TEST(JpegCodecDamage, AnyByteChangedDecodesOrFailsCleanly) {
    for (Sampling samp : {Sampling::s420, Sampling::s444}) {
        auto px = picture(24, 16, 3, 8);
        EncodeOptions o;
        o.sampling = samp;
        o.restartInterval = 1;
        o.optimize = samp == Sampling::s420;
        auto f = encode(px, 24, 16, 3, o);
        int failed = 0;
        for (size_t i = 2; i < f.size(); ++i)
            for (uint8_t v : {uint8_t(0x00), uint8_t(0xFF), uint8_t(f[i] ^ 0x5A), uint8_t(f[i] + 1)}) {
                auto g = f;
                g[i] = v;
                std::string r = outcome(g);  // must return, never crash
                failed += r != "ok";
            }
        EXPECT_GT(failed, 0);
    }
}


// ---------------------------------------------------------------- progressive

std::vector<uint8_t> encodeProgressive(const std::vector<uint8_t>& px, int w, int h, int ch, EncodeOptions o,
                                       zebjpeg::Raster* rec = nullptr) {
    o.progressive = true;
    return encode(px, w, h, ch, o, rec);
}

TEST(JpegCodecProgressive, DecoderGivesTheSequentialReconstruction) {
    // The scans end at full precision, so the progressive file decodes to the
    // pixels of the sequential file with the same quantised blocks.
    struct Size {
        int w, h;
    };
    const Size sizes[] = {{1, 1}, {9, 7}, {17, 33}, {40, 24}};
    unsigned seed = 40;
    for (Size s : sizes)
        for (int ch : {1, 3})
            for (Sampling samp : {Sampling::s444, Sampling::s422, Sampling::s420})
                for (int ri : {0, 1, 3}) {
                    if (ch == 1 && samp != Sampling::s444) continue;
                    auto px = picture(s.w, s.h, ch, seed++);
                    EncodeOptions o;
                    o.quality = 20 + 16 * int(seed % 6);
                    o.sampling = samp;
                    o.restartInterval = ri;
                    zebjpeg::Raster seq, rec;
                    encode(px, s.w, s.h, ch, o, &seq);
                    auto file = encodeProgressive(px, s.w, s.h, ch, o, &rec);
                    auto back = zebjpeg::decode(file.data(), file.size());
                    SCOPED_TRACE(std::to_string(s.w) + "x" + std::to_string(s.h) + " ch " + std::to_string(ch) +
                                 " ri " + std::to_string(ri) + " q " + std::to_string(o.quality));
                    ASSERT_EQ(rec.pixels, seq.pixels);
                    ASSERT_EQ(back.width, s.w);
                    ASSERT_EQ(back.channels, ch);
                    ASSERT_EQ(back.pixels, rec.pixels);
                }
}

TEST(JpegCodecProgressive, ScriptHasTheUsualScans) {
    auto px = picture(32, 16, 3, 9);
    auto f = encodeProgressive(px, 32, 16, 3, EncodeOptions{});
    ASSERT_NE(find(f, {0xFF, 0xC2}), std::string::npos);
    // (Ns, Ss, Se, Ah/Al) of each scan header.
    std::vector<std::vector<int>> scans;
    for (size_t at = find(f, {0xFF, 0xDA}); at != std::string::npos; at = find(f, {0xFF, 0xDA}, at + 2)) {
        const int ns = f[at + 4];
        const size_t p = at + 5 + 2 * size_t(ns);
        scans.push_back({ns, f[p], f[p + 1], f[p + 2]});
    }
    const std::vector<std::vector<int>> want = {{3, 0, 0, 0x01},  {1, 1, 5, 0x02},  {1, 1, 63, 0x01}, {1, 1, 63, 0x01},
                                                {1, 6, 63, 0x02}, {1, 1, 63, 0x21}, {3, 0, 0, 0x10},  {1, 1, 63, 0x10},
                                                {1, 1, 63, 0x10}, {1, 1, 63, 0x10}};
    EXPECT_EQ(scans, want);
    // Grey: the same without chroma.
    auto g = encodeProgressive(picture(16, 16, 1, 2), 16, 16, 1, EncodeOptions{});
    int n = 0;
    for (size_t at = find(g, {0xFF, 0xDA}); at != std::string::npos; at = find(g, {0xFF, 0xDA}, at + 2)) ++n;
    EXPECT_EQ(n, 6);
}

TEST(JpegCodecProgressive, ExtremeCoefficientsSurviveEveryScan) {
    // Hard black/white checks at quality 100 give the largest coefficients
    // the scans must carry (DC differences of category 11 before the shift).
    std::vector<uint8_t> px(64 * 16 * 3);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 64; ++x)
            for (int c = 0; c < 3; ++c) px[(size_t(y) * 64 + x) * 3 + c] = ((x / 8 + (x + y) % 2 * (c == 1)) % 2) ? 255 : 0;
    EncodeOptions o;
    o.quality = 100;
    o.sampling = Sampling::s444;
    zebjpeg::Raster rec;
    auto f = encodeProgressive(px, 64, 16, 3, o, &rec);
    EXPECT_EQ(zebjpeg::decode(f.data(), f.size()).pixels, rec.pixels);
}

TEST(JpegCodecProgressive, DamagedFilesFailCleanly) {
    auto px = picture(24, 16, 3, 12);
    EncodeOptions o;
    o.restartInterval = 2;
    auto f = encodeProgressive(px, 24, 16, 3, o);
    for (size_t n = 0; n < f.size(); ++n) {
        std::vector<uint8_t> g(f.begin(), f.begin() + long(n));
        ASSERT_EQ(outcome(g).rfind("error: ", 0), 0u) << "length " << n << ": " << outcome(g);
    }
    int failed = 0;
    for (size_t i = 2; i < f.size(); ++i)
        for (uint8_t v : {uint8_t(0x00), uint8_t(0xFF), uint8_t(f[i] ^ 0x5A)}) {
            auto g = f;
            g[i] = v;
            failed += outcome(g) != "ok";  // must return, never crash
        }
    EXPECT_GT(failed, 0);
}

// ---------------------------------------------------------------- lossless

std::vector<uint16_t> randomSamples(int w, int h, int ch, int bits, unsigned seed) {
    std::mt19937 g(seed);
    std::vector<uint16_t> v(size_t(w) * size_t(h) * size_t(ch));
    const uint32_t mask = (1u << bits) - 1;
    // A smooth ramp with noise, and every tenth sample anything at all (the
    // top bit set included, where the predictors read samples as signed).
    for (size_t i = 0; i < v.size(); ++i)
        v[i] = uint16_t(i % 10 == 0 ? g() & mask : ((i * 37) / 5 + g() % 16) & mask);
    return v;
}

std::vector<uint16_t> decodeSamples(const std::vector<uint8_t>& f, int& bits) {
    auto r = zebjpeg::decode(f.data(), f.size());
    bits = r.bits;
    if (r.bits > 8) return r.samples16;
    return std::vector<uint16_t>(r.pixels.begin(), r.pixels.end());
}

TEST(JpegCodecLossless, EveryPredictorAndPrecisionGivesTheInputBack) {
    unsigned seed = 100;
    for (int precision : {2, 8, 12, 16})
        for (int ch : {1, 3})
            for (int predictor = 1; predictor <= 7; ++predictor)
                for (int pt : {0, 1}) {
                    const int w = 13 + predictor, h = 9;
                    auto in = randomSamples(w, h, ch, precision, seed++);
                    zebjpeg::LosslessOptions o;
                    o.precision = precision;
                    o.predictor = predictor;
                    o.pointTransform = pt;
                    o.restartRows = predictor % 3;  // none, every row, every two rows
                    auto f = zebjpeg::encodeLossless(in.data(), size_t(w) * ch, w, h, ch, o);
                    int bits = 0;
                    auto out = decodeSamples(f, bits);
                    SCOPED_TRACE("precision " + std::to_string(precision) + " ch " + std::to_string(ch) +
                                 " predictor " + std::to_string(predictor) + " pt " + std::to_string(pt));
                    EXPECT_EQ(bits, precision <= 8 ? 8 : precision);
                    for (auto& v : in) v = uint16_t(v >> pt << pt);
                    ASSERT_EQ(out, in);
                }
}

TEST(JpegCodecLossless, SingleRowsAndColumns) {
    // Width 1 predicts every sample from above; height 1 only from the left.
    unsigned seed = 300;
    for (auto [w, h] : {std::pair{1, 1}, {1, 6}, {6, 1}})
        for (int ch : {1, 3})
            for (int predictor = 1; predictor <= 7; ++predictor) {
                auto in = randomSamples(w, h, ch, 16, seed++);
                zebjpeg::LosslessOptions o;
                o.precision = 16;
                o.predictor = predictor;
                auto f = zebjpeg::encodeLossless(in.data(), size_t(w) * ch, w, h, ch, o);
                int bits = 0;
                ASSERT_EQ(decodeSamples(f, bits), in) << w << "x" << h << " ch " << ch << " predictor " << predictor;
            }
}

TEST(JpegCodecLossless, HeadersCarryPrecisionPredictorAndPointTransform) {
    auto in = randomSamples(5, 4, 3, 12, 7);
    zebjpeg::LosslessOptions o;
    o.precision = 12;
    o.predictor = 5;
    o.pointTransform = 3;
    auto f = zebjpeg::encodeLossless(in.data(), 15, 5, 4, 3, o);
    size_t sof = find(f, {0xFF, 0xC3});
    ASSERT_NE(sof, std::string::npos);
    EXPECT_EQ(f[sof + 4], 12);
    EXPECT_EQ(f[sof + 9], 3);
    size_t sos = find(f, {0xFF, 0xDA});
    ASSERT_NE(sos, std::string::npos);
    EXPECT_EQ(f[sos + 4], 3);               // one interleaved scan
    EXPECT_EQ(f[sos + 11], 5);              // predictor
    EXPECT_EQ(f[sos + 13], 3);              // Ah 0, Al 3
    EXPECT_EQ(find(f, {0xFF, 0xDB}), std::string::npos);  // no quantisation tables
}

TEST(JpegCodecLossless, EncoderRejectsBadArguments) {
    std::vector<uint16_t> in(16, 4095);
    zebjpeg::LosslessOptions o;
    o.precision = 12;
    EXPECT_NO_THROW(zebjpeg::encodeLossless(in.data(), 4, 4, 4, 1, o));
    in[5] = 4096;  // does not fit 12 bits
    EXPECT_THROW(zebjpeg::encodeLossless(in.data(), 4, 4, 4, 1, o), zebjpeg::Error);
    in[5] = 0;
    for (auto [p, pred, pt] : {std::tuple{1, 1, 0}, {17, 1, 0}, {12, 0, 0}, {12, 8, 0}, {12, 1, 12}, {12, 1, -1}}) {
        o.precision = p;
        o.predictor = pred;
        o.pointTransform = pt;
        EXPECT_THROW(zebjpeg::encodeLossless(in.data(), 4, 4, 4, 1, o), zebjpeg::Error) << p << " " << pred << " " << pt;
    }
}

TEST(JpegCodecLossless, DamagedFilesFailCleanly) {
    auto in = randomSamples(12, 8, 3, 16, 21);
    zebjpeg::LosslessOptions o;
    o.precision = 16;
    o.predictor = 4;
    o.restartRows = 2;
    auto f = zebjpeg::encodeLossless(in.data(), 36, 12, 8, 3, o);
    for (size_t n = 0; n < f.size(); ++n) {
        std::vector<uint8_t> g(f.begin(), f.begin() + long(n));
        ASSERT_EQ(outcome(g).rfind("error: ", 0), 0u) << "length " << n << ": " << outcome(g);
    }
    for (size_t i = 2; i < f.size(); ++i)
        for (uint8_t v : {uint8_t(0x00), uint8_t(0xFF), uint8_t(f[i] ^ 0x5A)}) {
            auto g = f;
            g[i] = v;
            outcome(g);  // must return, never crash
        }
}

}  // namespace
#endif
