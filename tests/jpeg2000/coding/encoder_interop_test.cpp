// Code-blocks of the encoder wrapped by test code into the smallest valid
// JPEG 2000 codestream (one tile, one component, 8-bit, no wavelet level or
// one reversible 5/3 level, one code-block per band, one layer) and decoded
// by OpenJPEG's opj_decompress: the image must come back exactly.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "zebjp.h"

namespace {

const char* kDecoder = "/usr/bin/opj_decompress";

// Packet-header bit writer with the stuffed bit after 0xFF.
struct BitWriter {
    std::vector<uint8_t> out;
    uint32_t cur = 0;
    int room = 8;
    void bit(int b) {
        cur = (cur << 1) | (b & 1);
        if (--room == 0) {
            out.push_back(static_cast<uint8_t>(cur));
            room = cur == 0xFF ? 7 : 8;
            cur = 0;
        }
    }
    void bits(uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) bit((v >> i) & 1);
    }
    // Pads the last byte with zeros; a header that ends on 0xFF gets one more
    // byte, which the reader skips.
    void flush() {
        const int start = !out.empty() && out.back() == 0xFF ? 7 : 8;
        if (room != start) bits(0, room);
        if (!out.empty() && out.back() == 0xFF) out.push_back(0);
    }
};

void putPasses(BitWriter& bw, int n) {
    if (n == 1) bw.bit(0);
    else if (n == 2) bw.bits(2, 2);
    else if (n <= 5) bw.bits(3, 2), bw.bits(n - 3, 2);
    else if (n <= 36) bw.bits(15, 4), bw.bits(n - 6, 5);
    else bw.bits(511, 9), bw.bits(n - 37, 7);
}

int floorLog2(int v) {
    int r = 0;
    while (v > 1) v >>= 1, ++r;
    return r;
}

struct Block {
    int passes = 0, zeroPlanes = 0;
    std::vector<uint8_t> data;
    std::vector<int> segLens, segPasses;
};

// Codes one band as one code-block with our encoder.
Block codeBand(ZebJ2kEncodeState* st, const std::vector<int32_t>& coef, int w, int h, int subband, int style,
               int flush, int mb) {
    std::vector<int32_t> sm(coef.size());
    for (size_t i = 0; i < coef.size(); ++i)
        sm[i] = coef[i] < 0 ? static_cast<int32_t>(0x80000000u | static_cast<uint32_t>(-coef[i])) : coef[i];
    Block b;
    int S = 0, segs = 0;
    EXPECT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(sm.data(), 4 * w, {w, h}, st, subband, 31, flush, 0, style, &S,
                                                     &b.passes, &segs),
              zebStatusOk);
    EXPECT_LE(S, mb);
    b.zeroPlanes = mb - S;
    int more = 1;
    while (more) {
        uint8_t buf[97];
        int len = sizeof buf;
        EXPECT_EQ(zebiEncodeStoreBits_JPEG2K_1u(buf, &len, st, &more), zebStatusOk);
        b.data.insert(b.data.end(), buf, buf + len);
    }
    if (b.passes == 0) return b;
    for (int s = 0; s < segs; ++s) {
        int len = 0;
        EXPECT_EQ(zebiEncodeGetTermPassLen_JPEG2K(st, s, &len), zebStatusOk);
        b.segLens.push_back(len);
    }
    // Passes per segment, by the same rule the decoder follows.
    int p = 0;
    for (int s = 0; s < segs; ++s) {
        int n;
        if (style & zebJ2kTermAll) n = 1;
        else if (!(style & zebJ2kBypass)) n = b.passes;
        else n = s == 0 ? 10 : ((s % 2) ? 2 : 1);
        n = std::min(n, b.passes - p);
        b.segPasses.push_back(n);
        p += n;
    }
    EXPECT_EQ(p, b.passes);
    return b;
}

// One packet holding the given code-blocks (one per band, in band order).
std::vector<uint8_t> packet(const std::vector<Block*>& blocks) {
    BitWriter bw;
    bool any = false;
    for (auto* b : blocks) any |= b->passes > 0;
    bw.bit(any ? 1 : 0);
    if (any) {
        for (auto* b : blocks) {
            bw.bit(b->passes > 0 ? 1 : 0);  // inclusion tag tree of one node, layer 0
            if (!b->passes) continue;
            for (int i = 0; i < b->zeroPlanes; ++i) bw.bit(0);
            bw.bit(1);
            putPasses(bw, b->passes);
            int lblock = 3, inc = 0;
            for (size_t s = 0; s < b->segLens.size(); ++s) {
                const int need = floorLog2(std::max(1, b->segLens[s])) + 1;
                inc = std::max(inc, need - lblock - floorLog2(b->segPasses[s]));
            }
            for (int i = 0; i < inc; ++i) bw.bit(1);
            bw.bit(0);
            lblock += inc;
            for (size_t s = 0; s < b->segLens.size(); ++s)
                bw.bits(static_cast<uint32_t>(b->segLens[s]), lblock + floorLog2(b->segPasses[s]));
        }
    }
    bw.flush();
    std::vector<uint8_t> out = bw.out;
    for (auto* b : blocks) out.insert(out.end(), b->data.begin(), b->data.end());
    return out;
}

void put16(std::vector<uint8_t>& v, int x) { v.push_back(static_cast<uint8_t>(x >> 8)), v.push_back(static_cast<uint8_t>(x)); }
void put32(std::vector<uint8_t>& v, uint32_t x) { put16(v, x >> 16), put16(v, x & 0xFFFF); }

std::vector<uint8_t> codestream(int w, int h, int levels, int style, int guard, const std::vector<uint8_t>& body) {
    std::vector<uint8_t> c;
    put16(c, 0xFF4F);
    put16(c, 0xFF51);  // SIZ
    put16(c, 41);
    put16(c, 0);
    put32(c, w), put32(c, h), put32(c, 0), put32(c, 0);
    put32(c, w), put32(c, h), put32(c, 0), put32(c, 0);
    put16(c, 1);
    c.push_back(7), c.push_back(1), c.push_back(1);
    put16(c, 0xFF52);  // COD
    put16(c, 12);
    c.push_back(0);                // no precincts, no SOP/EPH
    c.push_back(0), put16(c, 1);   // LRCP, one layer
    c.push_back(0);                // no component transform
    c.push_back(static_cast<uint8_t>(levels));
    c.push_back(4), c.push_back(4);  // 64 x 64 code-blocks
    uint8_t cbs = 0;
    if (style & zebJ2kBypass) cbs |= 0x01;
    if (style & zebJ2kResetContexts) cbs |= 0x02;
    if (style & zebJ2kTermAll) cbs |= 0x04;
    if (style & zebJ2kCausal) cbs |= 0x08;
    if (style & zebJ2kSegmentationSymbols) cbs |= 0x20;
    c.push_back(cbs);
    c.push_back(1);  // reversible 5/3
    put16(c, 0xFF5C);  // QCD, no quantisation
    const int bands = 1 + 3 * levels;
    put16(c, 3 + bands);
    c.push_back(static_cast<uint8_t>(guard << 5));
    const int gains[4] = {0, 1, 1, 2};
    c.push_back(static_cast<uint8_t>((8 + 0) << 3));
    for (int b = 1; b < bands; ++b) c.push_back(static_cast<uint8_t>((8 + gains[b]) << 3));
    put16(c, 0xFF90);  // SOT
    put16(c, 10);
    put16(c, 0);
    put32(c, static_cast<uint32_t>(12 + 2 + body.size()));
    c.push_back(0), c.push_back(1);
    put16(c, 0xFF93);
    c.insert(c.end(), body.begin(), body.end());
    put16(c, 0xFFD9);
    return c;
}

// Reversible 5/3 analysis of one signal with symmetric extension.
void fwd53(std::vector<int32_t>& x) {
    const int n = static_cast<int>(x.size());
    if (n < 2) return;
    auto at = [&](int i) { return x[i < 0 ? -i : (i >= n ? 2 * (n - 1) - i : i)]; };
    for (int i = 1; i < n; i += 2) x[i] -= (at(i - 1) + at(i + 1)) >> 1;
    for (int i = 0; i < n; i += 2) x[i] += (at(i - 1) + at(i + 1) + 2) >> 2;
}

struct Image {
    int w, h;
    std::vector<uint8_t> px;
};

bool readPgm(const std::string& path, Image& img) {
    std::ifstream f(path, std::ios::binary);
    std::string magic;
    if (!(f >> magic) || magic != "P5") return false;
    int fields[3], n = 0;
    while (n < 3 && f) {
        f >> std::ws;
        if (f.peek() == '#') {
            std::string comment;
            std::getline(f, comment);
            continue;
        }
        f >> fields[n++];
    }
    if (n < 3 || fields[2] != 255) return false;
    img.w = fields[0];
    img.h = fields[1];
    f.get();
    img.px.resize(static_cast<size_t>(img.w) * img.h);
    f.read(reinterpret_cast<char*>(img.px.data()), static_cast<std::streamsize>(img.px.size()));
    return static_cast<bool>(f);
}

class Interop : public ::testing::Test {
protected:
    void SetUp() override {
        if (access(kDecoder, X_OK) != 0) GTEST_SKIP() << "opj_decompress not installed";
        dir_ = std::string(ZEB_BINARY_DIR) + "/j2k_interop_" + std::to_string(getpid());
        std::string mk = "mkdir -p '" + dir_ + "'";
        ASSERT_EQ(std::system(mk.c_str()), 0);
        ASSERT_EQ(zebiEncodeInitAlloc_JPEG2K(&st_, {64, 64}), zebStatusOk);
    }
    void TearDown() override {
        if (st_) zebiEncodeFree_JPEG2K(st_);
        if (!dir_.empty() && !HasFailure()) std::system(("rm -rf '" + dir_ + "'").c_str());
    }

    // Encodes the image with `levels` (0 or 1) and decodes it with OpenJPEG.
    void roundTrip(const Image& img, int levels, int style, int flush, const std::string& what) {
        const int w = img.w, h = img.h;
        std::vector<int32_t> plane(static_cast<size_t>(w) * h);
        for (int i = 0; i < w * h; ++i) plane[i] = img.px[i] - 128;
        std::vector<uint8_t> body;
        const int guard = 2;
        if (levels == 0) {
            Block b = codeBand(st_, plane, w, h, 0, style, flush, guard + 8 - 1);
            body = packet({&b});
        } else {
            // Columns, then rows, as the inverse undoes rows first.
            for (int x = 0; x < w; ++x) {
                std::vector<int32_t> col(h);
                for (int y = 0; y < h; ++y) col[y] = plane[y * w + x];
                fwd53(col);
                for (int y = 0; y < h; ++y) plane[y * w + x] = col[y];
            }
            for (int y = 0; y < h; ++y) {
                std::vector<int32_t> row(plane.begin() + y * w, plane.begin() + (y + 1) * w);
                fwd53(row);
                std::copy(row.begin(), row.end(), plane.begin() + y * w);
            }
            auto band = [&](int ox, int oy, int& bw, int& bh) {
                bw = (w - ox + 1) / 2;
                bh = (h - oy + 1) / 2;
                std::vector<int32_t> b(static_cast<size_t>(bw) * bh);
                for (int y = 0; y < bh; ++y)
                    for (int x = 0; x < bw; ++x) b[y * bw + x] = plane[(2 * y + oy) * w + 2 * x + ox];
                return b;
            };
            int bw, bh;
            auto ll = band(0, 0, bw, bh);
            Block bll = codeBand(st_, ll, bw, bh, 0, style, flush, guard + 8 - 1);
            auto hl = band(1, 0, bw, bh);
            Block bhl = codeBand(st_, hl, bw, bh, zebJ2kSubbandHL, style, flush, guard + 9 - 1);
            auto lh = band(0, 1, bw, bh);
            Block blh = codeBand(st_, lh, bw, bh, 0, style, flush, guard + 9 - 1);
            auto hh = band(1, 1, bw, bh);
            Block bhh = codeBand(st_, hh, bw, bh, zebJ2kSubbandHH, style, flush, guard + 10 - 1);
            body = packet({&bll});
            auto p1 = packet({&bhl, &blh, &bhh});
            body.insert(body.end(), p1.begin(), p1.end());
        }
        auto cs = codestream(w, h, levels, style, guard, body);
        const std::string in = dir_ + "/t.j2k", out = dir_ + "/t.pgm";
        {
            std::ofstream f(in, std::ios::binary);
            f.write(reinterpret_cast<const char*>(cs.data()), static_cast<std::streamsize>(cs.size()));
        }
        std::remove(out.c_str());
        const std::string cmd = std::string(kDecoder) + " -i '" + in + "' -o '" + out + "' >/dev/null 2>&1";
        ASSERT_EQ(std::system(cmd.c_str()), 0) << what;
        Image got;
        ASSERT_TRUE(readPgm(out, got)) << what;
        ASSERT_EQ(got.w, w);
        ASSERT_EQ(got.h, h);
        int bad = 0;
        for (int i = 0; i < w * h; ++i) bad += got.px[i] != img.px[i];
        EXPECT_EQ(bad, 0) << what;
    }

    Image makeImage(int w, int h, int kind, std::mt19937& g) {
        Image img{w, h, std::vector<uint8_t>(static_cast<size_t>(w) * h)};
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                uint8_t v;
                if (kind == 0) v = static_cast<uint8_t>(g());                         // noise
                else if (kind == 1) v = (g() % 23 == 0) ? static_cast<uint8_t>(g()) : 128;  // sparse
                else v = static_cast<uint8_t>((x * 7 + y * 3 + (g() % 9)) & 255);     // smooth ramp
                img.px[y * w + x] = v;
            }
        return img;
    }

    ZebJ2kEncodeState* st_ = nullptr;
    std::string dir_;
};

const int kInteropStyles[] = {
    0,
    zebJ2kBypass,
    zebJ2kResetContexts,
    zebJ2kTermAll,
    zebJ2kCausal,
    zebJ2kSegmentationSymbols,
    zebJ2kBypass | zebJ2kTermAll,
    zebJ2kBypass | zebJ2kResetContexts | zebJ2kCausal,
    zebJ2kTermAll | zebJ2kSegmentationSymbols | zebJ2kCausal | zebJ2kResetContexts,
    zebJ2kBypass | zebJ2kTermAll | zebJ2kResetContexts | zebJ2kCausal | zebJ2kSegmentationSymbols,
};

TEST_F(Interop, OneBandEveryStyleAndSize) {
    std::mt19937 g(42);
    const ZebSize sizes[] = {{1, 1}, {4, 4}, {64, 64}, {32, 8}, {13, 7}, {5, 3}};
    for (int style : kInteropStyles) {
        for (const ZebSize& s : sizes) {
            const int kind = static_cast<int>(g() % 3);
            Image img = makeImage(s.width, s.height, kind, g);
            roundTrip(img, 0, style, 0,
                      "style " + std::to_string(style) + " " + std::to_string(s.width) + "x" +
                          std::to_string(s.height) + " kind " + std::to_string(kind));
            if (HasFatalFailure()) return;
        }
    }
}

TEST_F(Interop, FourBandsWithEveryZeroCodingTable) {
    std::mt19937 g(7);
    const ZebSize sizes[] = {{128, 128}, {64, 16}, {37, 23}, {6, 10}};
    for (int style : kInteropStyles) {
        for (const ZebSize& s : sizes) {
            const int kind = static_cast<int>(g() % 3);
            Image img = makeImage(s.width, s.height, kind, g);
            roundTrip(img, 1, style, 0,
                      "style " + std::to_string(style) + " " + std::to_string(s.width) + "x" +
                          std::to_string(s.height) + " kind " + std::to_string(kind));
            if (HasFatalFailure()) return;
        }
    }
}

TEST_F(Interop, EveryFlushMethod) {
    std::mt19937 g(9);
    for (int flush : {0, 1, 2}) {
        for (int style : {0, int{zebJ2kTermAll}, zebJ2kBypass | zebJ2kTermAll, int{zebJ2kBypass}}) {
            for (int kind = 0; kind < 3; ++kind) {
                Image img = makeImage(48, 40, kind, g);
                roundTrip(img, 1, style, flush,
                          "flush " + std::to_string(flush) + " style " + std::to_string(style) + " kind " +
                              std::to_string(kind));
                if (HasFatalFailure()) return;
            }
        }
    }
}

}  // namespace
