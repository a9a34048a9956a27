// Interoperation: progressive JPEG files written by the cjpeg tool of
// libjpeg-turbo (its standard script and hand-written scripts with spectral
// selection, successive approximation and restarts) decode through our four
// progressive decoders, scan by scan, to exactly the coefficients that
// libjpeg-turbo's jpeg_read_coefficients gives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "std_tables.h"
#include "jpeg/huffman/cjpeg_files.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_LIBJPEG
#include <jpeglib.h>
#endif

namespace {

using hufftest::Tables;

using hufftest::Coeffs;
using hufftest::readAll;
using hufftest::toolPath;
using hufftest::writeScene;

struct Comp {
    int id, h, v;
    int wBlocks = 0, hBlocks = 0, stride = 0, rows = 0;
};

// Walks the file: tables as they come, one decode pass per scan.
class ProgressiveReader {
public:
    explicit ProgressiveReader(const std::vector<uint8_t>& d) : d_(d) {}

    bool run(Coeffs& out, std::vector<Comp>& comps, int& scans) {
        if (d_.size() < 4 || d_[0] != 0xFF || d_[1] != 0xD8) return false;
        size_t p = 2;
        scans = 0;
        while (p + 2 <= d_.size()) {
            if (d_[p] != 0xFF) return false;
            const int m = d_[p + 1];
            if (m == 0xD9) return true;
            if (p + 4 > d_.size()) return false;
            const size_t len = static_cast<size_t>(d_[p + 2]) << 8 | d_[p + 3];
            const uint8_t* s = &d_[p + 4];
            if (m == 0xC4) {
                size_t q = 0;
                while (q + 17 <= len - 2) {
                    const int tc = s[q] >> 4, th = s[q] & 3;
                    int n = 0;
                    for (int i = 0; i < 16; ++i) n += s[q + 1 + i];
                    if (zebiDecodeHuffmanSpecInit_JPEG_8u(s + q + 1, s + q + 17, tc ? &ac_[th] : &dc_[th]) != 0) return false;
                    q += 17 + n;
                }
            } else if (m == 0xC2) {
                height_ = s[1] << 8 | s[2];
                width_ = s[3] << 8 | s[4];
                for (int i = 0; i < s[5]; ++i) comps_.push_back({s[6 + 3 * i], s[7 + 3 * i] >> 4, s[7 + 3 * i] & 15});
                layout(out);
            } else if (m == 0xDD) {
                restart_ = s[0] << 8 | s[1];
            } else if (m == 0xDA) {
                size_t next = 0;
                if (!scan(s, p + 2 + len, out, next)) { ADD_FAILURE() << "scan " << scans; return false; }
                ++scans;
                p = next;
                continue;
            } else if (m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC) {
                return false;  // not progressive Huffman
            }
            p += 2 + len;
        }
        comps = comps_;
        return false;
    }
    const std::vector<Comp>& comps() const { return comps_; }
    int width() const { return width_; }
    int height() const { return height_; }
    int mcuX() const { return mcuX_; }
    int mcuY() const { return mcuY_; }

private:
    void layout(Coeffs& out) {
        for (auto& c : comps_) {
            hmax_ = std::max(hmax_, c.h);
            vmax_ = std::max(vmax_, c.v);
        }
        mcuX_ = (width_ + 8 * hmax_ - 1) / (8 * hmax_);
        mcuY_ = (height_ + 8 * vmax_ - 1) / (8 * vmax_);
        out.assign(comps_.size(), {});
        for (size_t i = 0; i < comps_.size(); ++i) {
            Comp& c = comps_[i];
            const int cw = (width_ * c.h + hmax_ - 1) / hmax_, ch = (height_ * c.v + vmax_ - 1) / vmax_;
            c.wBlocks = (cw + 7) / 8;
            c.hBlocks = (ch + 7) / 8;
            c.stride = mcuX_ * c.h;
            c.rows = mcuY_ * c.v;
            out[i].assign(static_cast<size_t>(c.stride) * c.rows * 64, 0);
        }
    }

    // Moves to the restart marker (which the decoder may already have met).
    bool restart(int& pos, int& marker) {
        const int len = static_cast<int>(d_.size());
        if (marker == 0) {
            while (pos + 1 < len && !(d_[pos] == 0xFF && d_[pos + 1] != 0 && d_[pos + 1] != 0xFF)) ++pos;
            if (pos + 1 >= len) return false;
            marker = d_[pos + 1];
            pos += 2;
        }
        if (marker < 0xD0 || marker > 0xD7) return false;
        marker = 0;
        return true;
    }

    bool scan(const uint8_t* s, size_t start, Coeffs& out, size_t& next) {
        const int ns = s[0];
        std::vector<int> idx;
        std::vector<int> td, ta;
        for (int i = 0; i < ns; ++i) {
            for (size_t c = 0; c < comps_.size(); ++c) {
                if (comps_[c].id == s[1 + 2 * i]) {
                    idx.push_back(static_cast<int>(c));
                    td.push_back(s[2 + 2 * i] >> 4);
                    ta.push_back(s[2 + 2 * i] & 15);
                }
            }
        }
        const int ss = s[1 + 2 * ns], se = s[2 + 2 * ns], ah = s[3 + 2 * ns] >> 4, al = s[3 + 2 * ns] & 15;
        const bool interleaved = ns > 1;
        const int units = interleaved ? mcuX_ * mcuY_ : comps_[idx[0]].wBlocks * comps_[idx[0]].hBlocks;
        const uint8_t* src = d_.data();
        const int srcLen = static_cast<int>(d_.size());
        int pos = static_cast<int>(start), marker = 0;
        DecodeHuffmanState st;
        zebiDecodeHuffmanStateInit_JPEG_8u(&st);
        std::vector<int16_t> lastDC(ns, 0);
        for (int u = 0; u < units; ++u) {
            if (restart_ && u > 0 && u % restart_ == 0) {
                if (st.eobRun != 0) {
                    ADD_FAILURE() << "run open at a restart";
                    return false;
                }
                if (!restart(pos, marker)) return false;
                zebiDecodeHuffmanStateInit_JPEG_8u(&st);
                std::fill(lastDC.begin(), lastDC.end(), 0);
            }
            for (int i = 0; i < ns; ++i) {
                const Comp& c = comps_[idx[i]];
                const int hn = interleaved ? c.h : 1, vn = interleaved ? c.v : 1;
                for (int v = 0; v < vn; ++v) {
                    for (int h = 0; h < hn; ++h) {
                        const int bx = interleaved ? (u % mcuX_) * c.h + h : u % c.wBlocks;
                        const int by = interleaved ? (u / mcuX_) * c.v + v : u / c.wBlocks;
                        int16_t* blk = &out[idx[i]][(static_cast<size_t>(by) * c.stride + bx) * 64];
                        ZebStatus r;
                        if (ss == 0 && ah == 0)
                            r = zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(src, srcLen, &pos, blk, &lastDC[i], &marker, al, &dc_[td[i]], &st);
                        else if (ss == 0)
                            r = zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(src, srcLen, &pos, blk, &marker, al, &st);
                        else if (ah == 0)
                            r = zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(src, srcLen, &pos, blk, &marker, ss, se, al, &ac_[ta[i]], &st);
                        else
                            r = zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(src, srcLen, &pos, blk, &marker, ss, se, al, &ac_[ta[i]], &st);
                        if (r != 0) {
                            ADD_FAILURE() << "status " << r << " scan " << ss << "-" << se << " ah " << ah << " unit " << u;
                            return false;
                        }
                    }
                }
            }
        }
        if (st.eobRun != 0) {
            ADD_FAILURE() << "run open at the end of the scan";
            return false;
        }
        // The next segment: the marker the decoder met, or the next one.
        if (marker != 0) {
            next = static_cast<size_t>(pos - 2);
        } else {
            while (pos + 1 < srcLen && !(src[pos] == 0xFF && src[pos + 1] != 0 && src[pos + 1] != 0xFF)) ++pos;
            next = static_cast<size_t>(pos);
        }
        return true;
    }

    const std::vector<uint8_t>& d_;
    DecodeHuffmanSpec dc_[4], ac_[4];
    std::vector<Comp> comps_;
    int width_ = 0, height_ = 0, restart_ = 0, hmax_ = 1, vmax_ = 1, mcuX_ = 0, mcuY_ = 0;
};

#ifdef ZEB_HAVE_LIBJPEG
bool readCoefficients(const std::vector<uint8_t>& d, Coeffs& out, std::vector<Comp>& geo) {
    std::vector<hufftest::LibjpegComp> lg;
    if (!hufftest::readLibjpegCoefficients(d, out, lg)) return false;
    geo.clear();
    for (const auto& g : lg) {
        Comp c{g.id, g.h, g.v};
        c.wBlocks = g.wBlocks;
        c.hBlocks = g.hBlocks;
        geo.push_back(c);
    }
    return true;
}
#endif


// Our encoders write a progressive file from the coefficients: a successive
// approximation script, one optimal table per scan from the statistics
// operations, and a restart interval in the DC scans' units.
struct ScanSpec {
    std::vector<int> comps;
    int ss, se, ah, al;
};

void put16(std::vector<uint8_t>& o, int v) {
    o.push_back(static_cast<uint8_t>(v >> 8));
    o.push_back(static_cast<uint8_t>(v));
}

std::vector<uint8_t> writeProgressive(const Coeffs& c, const std::vector<Comp>& comps, int width, int height, int mcuX,
                                      int mcuY) {
    std::vector<uint8_t> o = {0xFF, 0xD8, 0xFF, 0xDB, 0, 67, 0};
    for (int i = 0; i < 64; ++i) o.push_back(1);
    o.insert(o.end(), {0xFF, 0xC2});
    put16(o, 8 + 3 * static_cast<int>(comps.size()));
    o.push_back(8);
    put16(o, height);
    put16(o, width);
    o.push_back(static_cast<uint8_t>(comps.size()));
    for (const auto& k : comps) o.insert(o.end(), {static_cast<uint8_t>(k.id), static_cast<uint8_t>(k.h << 4 | k.v), 0});
    std::vector<int> all;
    for (size_t i = 0; i < comps.size(); ++i) all.push_back(static_cast<int>(i));
    std::vector<ScanSpec> script = {{all, 0, 0, 0, 1}};
    for (size_t i = 0; i < comps.size(); ++i) script.push_back({{static_cast<int>(i)}, 1, 5, 0, 2});
    for (size_t i = 0; i < comps.size(); ++i) script.push_back({{static_cast<int>(i)}, 6, 63, 0, 2});
    for (size_t i = 0; i < comps.size(); ++i) script.push_back({{static_cast<int>(i)}, 1, 63, 2, 1});
    script.push_back({all, 0, 0, 1, 0});
    for (size_t i = 0; i < comps.size(); ++i) script.push_back({{static_cast<int>(i)}, 1, 63, 1, 0});

    for (const ScanSpec& sc : script) {
        const bool dc = sc.ss == 0, refine = sc.ah != 0;
        const bool inter = sc.comps.size() > 1;
        auto forEach = [&](const std::function<void(int, const int16_t*)>& fn) {
            const Comp& c0 = comps[sc.comps[0]];
            const int units = inter ? mcuX * mcuY : c0.wBlocks * c0.hBlocks;
            for (int u = 0; u < units; ++u)
                for (size_t i = 0; i < sc.comps.size(); ++i) {
                    const Comp& k = comps[sc.comps[i]];
                    const int hn = inter ? k.h : 1, vn = inter ? k.v : 1;
                    for (int v = 0; v < vn; ++v)
                        for (int h = 0; h < hn; ++h) {
                            const int bx = inter ? (u % mcuX) * k.h + h : u % k.wBlocks;
                            const int by = inter ? (u / mcuX) * k.v + v : u / k.wBlocks;
                            fn(static_cast<int>(i), &c[sc.comps[i]][(static_cast<size_t>(by) * k.stride + bx) * 64]);
                        }
                }
        };
        Tables tab;
        if (!(dc && refine)) {
            int32_t stats[256] = {};
            EncodeHuffmanState ss;
            zebiEncodeHuffmanStateInit_JPEG_8u(&ss);
            int16_t last[4] = {};
            forEach([&](int i, const int16_t* b) {
                if (dc) EXPECT_EQ(zebiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(b, stats, &last[i], sc.al), 0);
                else if (refine) EXPECT_EQ(zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(b, stats, sc.ss, sc.se, sc.al, &ss, 0), 0);
                else EXPECT_EQ(zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(b, stats, sc.ss, sc.se, sc.al, &ss, 0), 0);
            });
            if (!dc) EXPECT_EQ(zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(nullptr, stats, 0, 0, 0, &ss, 1), 0);
            uint8_t bits[16], vals[256];
            EXPECT_EQ(zebiEncodeHuffmanRawTableInit_JPEG_8u(stats, bits, vals), 0);
            EXPECT_TRUE(tab.build(bits, vals));
            int n = 0;
            for (int i = 0; i < 16; ++i) n += bits[i];
            o.insert(o.end(), {0xFF, 0xC4});
            put16(o, 2 + 17 + n);
            o.push_back(dc ? 0x00 : 0x10);
            o.insert(o.end(), bits, bits + 16);
            o.insert(o.end(), vals, vals + n);
        }
        o.insert(o.end(), {0xFF, 0xDA});
        put16(o, 6 + 2 * static_cast<int>(sc.comps.size()));
        o.push_back(static_cast<uint8_t>(sc.comps.size()));
        for (int ci : sc.comps) o.insert(o.end(), {static_cast<uint8_t>(comps[ci].id), 0x00});
        o.insert(o.end(), {static_cast<uint8_t>(sc.ss), static_cast<uint8_t>(sc.se), static_cast<uint8_t>(sc.ah << 4 | sc.al)});
        std::vector<uint8_t> buf(4 << 20);
        const int len = static_cast<int>(buf.size());
        int pos = 0;
        EncodeHuffmanState es;
        zebiEncodeHuffmanStateInit_JPEG_8u(&es);
        int16_t last[4] = {};
        forEach([&](int i, const int16_t* b) {
            ZebStatus st;
            if (dc && !refine) st = zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(b, buf.data(), len, &pos, &last[i], sc.al, &tab.enc, &es, 0);
            else if (dc) st = zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(b, buf.data(), len, &pos, sc.al, &es, 0);
            else if (refine) st = zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(b, buf.data(), len, &pos, sc.ss, sc.se, sc.al, &tab.enc, &es, 0);
            else st = zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(b, buf.data(), len, &pos, sc.ss, sc.se, sc.al, &tab.enc, &es, 0);
            EXPECT_EQ(st, 0);
        });
        if (dc) EXPECT_EQ(zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(nullptr, buf.data(), len, &pos, nullptr, 0, nullptr, &es, 1), 0);
        else EXPECT_EQ(zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(nullptr, buf.data(), len, &pos, 0, 0, 0, &tab.enc, &es, 1), 0);
        o.insert(o.end(), buf.begin(), buf.begin() + pos);
    }
    o.insert(o.end(), {0xFF, 0xD9});
    return o;
}


// Scan scripts: successive approximation in depth, and spectral selection
// with non-interleaved DC scans.
const char* kDeepScript =
    "0,1,2: 0-0, 0, 2;\n0: 1-5, 0, 2;\n2: 1-63, 0, 1;\n1: 1-63, 0, 1;\n0: 6-63, 0, 2;\n0: 1-63, 2, 1;\n"
    "0,1,2: 0-0, 2, 1;\n0,1,2: 0-0, 1, 0;\n2: 1-63, 1, 0;\n1: 1-63, 1, 0;\n0: 1-63, 1, 0;\n";
const char* kSpectralScript =
    "0: 0-0, 0, 0;\n1: 0-0, 0, 0;\n2: 0-0, 0, 0;\n0: 1-2, 0, 0;\n0: 3-20, 0, 0;\n0: 21-63, 0, 0;\n"
    "1: 1-63, 0, 0;\n2: 1-63, 0, 0;\n";

class CjpegProgressive : public ::testing::TestWithParam<const char*> {};

TEST_P(CjpegProgressive, SameCoefficientsAsLibjpeg) {
#ifndef ZEB_HAVE_LIBJPEG
    GTEST_SKIP() << "libjpeg not found at build time";
#else
    const std::string tool = toolPath();
    if (tool.empty()) GTEST_SKIP() << "cjpeg not installed";
    char dirTemplate[] = "/tmp/zebprogXXXXXX";
    ASSERT_NE(mkdtemp(dirTemplate), nullptr);
    const std::string dir = dirTemplate;
    const std::string ppm = dir + "/scene.ppm", jpg = dir + "/scene.jpg";
    const std::string deep = dir + "/deep.txt", spectral = dir + "/spectral.txt";
    writeScene(ppm, 229, 163, 23);
    std::ofstream(deep) << kDeepScript;
    std::ofstream(spectral) << kSpectralScript;
    std::string args = GetParam();
    for (auto [key, file] : {std::pair<std::string, std::string>{"@deep", deep}, {"@spectral", spectral}}) {
        size_t at = args.find(key);
        if (at != std::string::npos) args.replace(at, key.size(), file);
    }
    const std::string cmd = tool + " " + args + " -outfile " + jpg + " " + ppm;
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    std::vector<uint8_t> data = readAll(jpg);
    for (const auto& f : {ppm, jpg, deep, spectral}) std::remove(f.c_str());
    std::remove(dir.c_str());

    Coeffs ours, theirs;
    std::vector<Comp> og, tg;
    ProgressiveReader reader(data);
    int scans = 0;
    ASSERT_TRUE(reader.run(ours, og, scans)) << GetParam();
    og = reader.comps();
    EXPECT_GE(scans, 2);
    ASSERT_TRUE(readCoefficients(data, theirs, tg));
    ASSERT_EQ(ours.size(), theirs.size());
    long compared = 0;
    for (size_t c = 0; c < ours.size(); ++c) {
        ASSERT_EQ(og[c].wBlocks, tg[c].wBlocks);
        ASSERT_EQ(og[c].hBlocks, tg[c].hBlocks);
        for (int by = 0; by < tg[c].hBlocks; ++by) {
            for (int bx = 0; bx < tg[c].wBlocks; ++bx) {
                const int16_t* a = &ours[c][(static_cast<size_t>(by) * og[c].stride + bx) * 64];
                const int16_t* b = &theirs[c][(static_cast<size_t>(by) * tg[c].wBlocks + bx) * 64];
                ASSERT_EQ(std::memcmp(a, b, 128), 0) << GetParam() << " component " << c << " block " << bx << "," << by;
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 500);

    // Our encoders write the same coefficients as a progressive file that
    // libjpeg-turbo reads back to the same coefficients.
    std::vector<uint8_t> mine = writeProgressive(ours, og, reader.width(), reader.height(), reader.mcuX(), reader.mcuY());
    Coeffs back;
    std::vector<Comp> bg;
    ASSERT_TRUE(readCoefficients(mine, back, bg));
    ASSERT_EQ(back.size(), theirs.size());
    for (size_t c = 0; c < back.size(); ++c) ASSERT_EQ(back[c], theirs[c]) << GetParam() << " component " << c;
#endif
}

INSTANTIATE_TEST_SUITE_P(Variants, CjpegProgressive,
                         ::testing::Values("-progressive -quality 75", "-progressive -quality 95 -optimize",
                                           "-progressive -quality 40 -restart 1",
                                           "-progressive -quality 85 -restart 3B -sample 1x1",
                                           "-progressive -grayscale -quality 60 -restart 2",
                                           "-quality 90 -scans @deep", "-quality 98 -scans @deep -restart 2B",
                                           "-quality 80 -scans @spectral -sample 2x1 -restart 4B"));

}  // namespace
