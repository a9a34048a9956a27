// Interoperation: baseline JPEG files written by the cjpeg tool of
// libjpeg-turbo decode through our baseline decoder to exactly the
// coefficients that libjpeg-turbo's jpeg_read_coefficients gives, with and
// without optimised tables and restart intervals, colour and grey.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "jpeg/huffman/cjpeg_files.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_LIBJPEG
#include <jpeglib.h>
#endif

namespace {

using hufftest::Coeffs;
using hufftest::readAll;
using hufftest::toolPath;
using hufftest::writeScene;

// The parts of a baseline file that the entropy decoder needs.
struct JpegFile {
    struct Comp {
        int id, h, v, td = 0, ta = 0;
    };
    int width = 0, height = 0, restart = 0;
    std::vector<Comp> comps;
    struct Table {
        bool present = false;
        uint8_t bits[16];
        uint8_t vals[256];
    } dcTables[4], acTables[4];
    std::vector<int> scanComps;  // indices into comps
    size_t scanStart = 0;        // first byte of entropy-coded data
};

bool parseJpeg(const std::vector<uint8_t>& d, JpegFile& f) {
    size_t p = 2;
    if (d.size() < 4 || d[0] != 0xFF || d[1] != 0xD8) return false;
    while (p + 4 <= d.size()) {
        if (d[p] != 0xFF) return false;
        int m = d[p + 1];
        size_t len = static_cast<size_t>(d[p + 2]) << 8 | d[p + 3];
        const uint8_t* s = &d[p + 4];
        if (m == 0xC4) {
            size_t q = 0;
            while (q + 17 <= len - 2) {
                int tc = s[q] >> 4, th = s[q] & 15;
                JpegFile::Table& t = tc ? f.acTables[th] : f.dcTables[th];
                std::memcpy(t.bits, s + q + 1, 16);
                int n = 0;
                for (int i = 0; i < 16; ++i) n += t.bits[i];
                std::memcpy(t.vals, s + q + 17, n);
                t.present = true;
                q += 17 + n;
            }
        } else if (m == 0xC0) {
            f.height = s[1] << 8 | s[2];
            f.width = s[3] << 8 | s[4];
            for (int i = 0; i < s[5]; ++i) f.comps.push_back({s[6 + 3 * i], s[7 + 3 * i] >> 4, s[7 + 3 * i] & 15});
        } else if (m == 0xDD) {
            f.restart = s[0] << 8 | s[1];
        } else if (m == 0xDA) {
            for (int i = 0; i < s[0]; ++i) {
                for (size_t c = 0; c < f.comps.size(); ++c) {
                    if (f.comps[c].id == s[1 + 2 * i]) {
                        f.comps[c].td = s[2 + 2 * i] >> 4;
                        f.comps[c].ta = s[2 + 2 * i] & 15;
                        f.scanComps.push_back(static_cast<int>(c));
                    }
                }
            }
            f.scanStart = p + 2 + len;
            return true;
        } else if (m >= 0xC1 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC) {
            return false;  // not baseline
        }
        p += 2 + len;
    }
    return false;
}

struct CompGeometry {
    int wBlocks, hBlocks;  // real blocks
    int stride;            // blocks per row in the array (MCU-padded)
};

// Decodes the single scan of a baseline file with our decoder.
bool decodeWithUs(const std::vector<uint8_t>& d, const JpegFile& f, Coeffs& out, std::vector<CompGeometry>& geo) {
    int hmax = 1, vmax = 1;
    for (auto& c : f.comps) {
        hmax = std::max(hmax, c.h);
        vmax = std::max(vmax, c.v);
    }
    const int mcuX = (f.width + 8 * hmax - 1) / (8 * hmax), mcuY = (f.height + 8 * vmax - 1) / (8 * vmax);
    const bool interleaved = f.scanComps.size() > 1;
    geo.clear();
    out.assign(f.comps.size(), {});
    for (auto& c : f.comps) {
        int cw = (f.width * c.h + hmax - 1) / hmax, ch = (f.height * c.v + vmax - 1) / vmax;
        CompGeometry g{(cw + 7) / 8, (ch + 7) / 8, mcuX * c.h};
        geo.push_back(g);
    }
    for (size_t c = 0; c < f.comps.size(); ++c) out[c].assign(static_cast<size_t>(geo[c].stride) * mcuY * f.comps[c].v * 64, 0);

    std::vector<DecodeHuffmanSpec> dcs(4), acs(4);
    for (int i = 0; i < 4; ++i) {
        if (f.dcTables[i].present && zebiDecodeHuffmanSpecInit_JPEG_8u(f.dcTables[i].bits, f.dcTables[i].vals, &dcs[i]) != 0) return false;
        if (f.acTables[i].present && zebiDecodeHuffmanSpecInit_JPEG_8u(f.acTables[i].bits, f.acTables[i].vals, &acs[i]) != 0) return false;
    }
    const uint8_t* src = d.data();
    const int srcLen = static_cast<int>(d.size());
    int pos = static_cast<int>(f.scanStart), marker = 0;
    DecodeHuffmanState st;
    zebiDecodeHuffmanStateInit_JPEG_8u(&st);
    std::vector<int16_t> lastDC(f.comps.size(), 0);

    const int units = interleaved ? mcuX * mcuY : geo[f.scanComps[0]].wBlocks * geo[f.scanComps[0]].hBlocks;
    for (int m = 0; m < units; ++m) {
        if (f.restart && m > 0 && m % f.restart == 0) {
            if (marker == 0) {  // the read-ahead stopped short of the marker: find it
                while (pos + 1 < srcLen && !(src[pos] == 0xFF && src[pos + 1] != 0 && src[pos + 1] != 0xFF)) ++pos;
                if (pos + 1 >= srcLen) return false;
                marker = src[pos + 1];
                pos += 2;
            }
            if (marker < 0xD0 || marker > 0xD7) return false;
            zebiDecodeHuffmanStateInit_JPEG_8u(&st);
            std::fill(lastDC.begin(), lastDC.end(), 0);
            marker = 0;
        }
        for (int ci : f.scanComps) {
            const auto& c = f.comps[ci];
            const int hn = interleaved ? c.h : 1, vn = interleaved ? c.v : 1;
            for (int v = 0; v < vn; ++v) {
                for (int h = 0; h < hn; ++h) {
                    int bx, by;
                    if (interleaved) {
                        bx = (m % mcuX) * c.h + h;
                        by = (m / mcuX) * c.v + v;
                    } else {
                        bx = m % geo[ci].wBlocks;
                        by = m / geo[ci].wBlocks;
                    }
                    int16_t* blk = &out[ci][(static_cast<size_t>(by) * geo[ci].stride + bx) * 64];
                    ZebStatus s = zebiDecodeHuffman8x8_JPEG_1u16s_C1(src, srcLen, &pos, blk, &lastDC[ci], &marker,
                                                                     &dcs[c.td], &acs[c.ta], &st);
                    if (s != 0) {
                        ADD_FAILURE() << "status " << s << " at unit " << m;
                        return false;
                    }
                }
            }
        }
    }
    return true;
}

#ifdef ZEB_HAVE_LIBJPEG
bool decodeWithLibjpeg(const std::vector<uint8_t>& d, Coeffs& out, std::vector<CompGeometry>& geo) {
    std::vector<hufftest::LibjpegComp> lg;
    if (!hufftest::readLibjpegCoefficients(d, out, lg)) return false;
    geo.clear();
    for (const auto& g : lg) geo.push_back({g.wBlocks, g.hBlocks, g.wBlocks});
    return true;
}
#endif


class CjpegFiles : public ::testing::TestWithParam<const char*> {};

TEST_P(CjpegFiles, SameCoefficientsAsLibjpeg) {
#ifndef ZEB_HAVE_LIBJPEG
    GTEST_SKIP() << "libjpeg not found at build time";
#else
    const std::string tool = toolPath();
    if (tool.empty()) GTEST_SKIP() << "cjpeg not installed";
    char dirTemplate[] = "/tmp/zebhuffXXXXXX";
    ASSERT_NE(mkdtemp(dirTemplate), nullptr);
    const std::string dir = dirTemplate;
    const std::string ppm = dir + "/scene.ppm", jpg = dir + "/scene.jpg";
    writeScene(ppm, 237, 155, 17);
    const std::string cmd = tool + " " + GetParam() + " -outfile " + jpg + " " + ppm;
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    std::vector<uint8_t> data = readAll(jpg);
    std::remove(ppm.c_str());
    std::remove(jpg.c_str());
    std::remove(dir.c_str());

    JpegFile f;
    ASSERT_TRUE(parseJpeg(data, f)) << GetParam();
    Coeffs ours, theirs;
    std::vector<CompGeometry> og, tg;
    ASSERT_TRUE(decodeWithUs(data, f, ours, og)) << GetParam();
    ASSERT_TRUE(decodeWithLibjpeg(data, theirs, tg));
    ASSERT_EQ(ours.size(), theirs.size());
    long compared = 0;
    for (size_t c = 0; c < ours.size(); ++c) {
        ASSERT_EQ(og[c].wBlocks, tg[c].wBlocks);
        ASSERT_EQ(og[c].hBlocks, tg[c].hBlocks);
        for (int by = 0; by < tg[c].hBlocks; ++by) {
            for (int bx = 0; bx < tg[c].wBlocks; ++bx) {
                const int16_t* a = &ours[c][(static_cast<size_t>(by) * og[c].stride + bx) * 64];
                const int16_t* b = &theirs[c][(static_cast<size_t>(by) * tg[c].stride + bx) * 64];
                ASSERT_EQ(std::memcmp(a, b, 128), 0) << GetParam() << " component " << c << " block " << bx << "," << by;
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 500);
    if (std::string(GetParam()).find("-restart") != std::string::npos) EXPECT_GT(f.restart, 0);
#endif
}

INSTANTIATE_TEST_SUITE_P(Variants, CjpegFiles,
                         ::testing::Values("-quality 75", "-quality 95 -optimize", "-quality 30 -restart 1",
                                           "-quality 85 -optimize -restart 5B", "-quality 100 -sample 1x1",
                                           "-quality 60 -grayscale -restart 3B", "-quality 90 -sample 2x1 -optimize"));

}  // namespace
