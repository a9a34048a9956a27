// zebj2k: JPEG 2000 codestreams (.j2k/.j2c) and JP2 files, with the library's
// code-block coders, wavelet drivers and component transforms; the file
// format, packets, tag trees and quantisation are done here.
//
//   zebj2k encode [-n levels] [-b W,H] [-M style] [-I] [-q step] [-r bpp,...] [-p order] [-SOP] [-EPH]
//                 in.(pgm|ppm|png) out.(j2k|j2c|jp2)
//   zebj2k decode [-r reduce] [-l layers] [-v] in.(j2k|j2c|jp2) out.(pgm|ppm|png)
//
// Encoding writes one or more tiles and layers, any progression order and
// precincts of the default size: lossless with the 5/3 wavelet and RCT, or lossy (-I) with the
// 9/7 wavelet and ICT, quantised per subband; -r sets a target rate in bits
// per pixel, reached by discarding coding passes along the convex hull of each
// block's rate and distortion (one slope threshold found by bisection).
// Decoding reads several tiles and layers, every progression order, SOP and
// EPH markers, all code-block styles, image and tile offsets, and 8 to 16 bit
// unsigned components without subsampling, with precincts of the default size.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "image_io.h"
#include "zebjp.h"

using zebex::FileError;
using zebex::Image;

namespace {

// Stage timer for -v: wall time between marks, summed per stage name.
struct StageClock {
    bool on = false;
    std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();
    std::vector<std::pair<std::string, double>> sums;
    void mark(const char* stage) {
        const auto now = std::chrono::steady_clock::now();
        const double ms = std::chrono::duration<double, std::milli>(now - last).count();
        last = now;
        for (auto& s : sums)
            if (s.first == stage) {
                s.second += ms;
                return;
            }
        sums.push_back({stage, ms});
    }
    void print() const {
        if (!on) return;
        for (auto& s : sums) std::fprintf(stderr, "  %-12s %8.1f ms\n", s.first.c_str(), s.second);
    }
};
StageClock gClock;

struct BadStream : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void check(ZebStatus st, const char* what) {
    if (st != zebStatusOk) throw FileError(std::string(what) + " failed with status " + std::to_string(st));
}

int ceilDiv(int a, int b) { return static_cast<int>((static_cast<int64_t>(a) + b - 1) / b); }
int ceilShift(int a, int s) { return static_cast<int>((static_cast<int64_t>(a) + (int64_t{1} << s) - 1) >> s); }
int floorLog2(int v) {
    int r = 0;
    while (v > 1) v >>= 1, ++r;
    return r;
}

// ---------------------------------------------------------------- tag trees
// A quad tree over a grid of leaves; each node keeps its value (the minimum
// of its children) and the lower bound that the bits sent so far establish.
class TagTree {
public:
    TagTree(int w, int h) {
        for (;;) {
            dims_.push_back({w, h, static_cast<int>(value_.size())});
            value_.resize(value_.size() + static_cast<size_t>(w) * h, kUnknown);
            if (w * h <= 1) break;
            w = (w + 1) / 2, h = (h + 1) / 2;
        }
        low_.assign(value_.size(), 0);
        known_.assign(value_.size(), 0);
    }
    // Encoder side: leaf values, then every parent as the minimum.
    void setLeaf(int x, int y, int v) { value_[static_cast<size_t>(y) * dims_[0].w + x] = v; }
    void finish() {
        for (size_t l = 1; l < dims_.size(); ++l) {
            const Dim& c = dims_[l - 1];
            const Dim& p = dims_[l];
            for (int y = 0; y < p.h; ++y)
                for (int x = 0; x < p.w; ++x) {
                    int m = kUnknown;
                    for (int dy = 0; dy < 2; ++dy)
                        for (int dx = 0; dx < 2; ++dx) {
                            const int cx = 2 * x + dx, cy = 2 * y + dy;
                            if (cx < c.w && cy < c.h) m = std::min(m, value_[c.off + cy * c.w + cx]);
                        }
                    value_[p.off + y * p.w + x] = m;
                }
        }
    }
    template <class Out>
    void encode(Out& out, int x, int y, int threshold) {
        int path[32], n = 0;
        for (size_t l = 0; l < dims_.size(); ++l) path[n++] = dims_[l].off + (y >> l) * dims_[l].w + (x >> l);
        int low = 0;
        for (int i = n - 1; i >= 0; --i) {
            const int k = path[i];
            if (low > low_[k]) low_[k] = low;
            else low = low_[k];
            while (low < threshold) {
                if (low >= value_[k]) {
                    if (!known_[k]) out.bit(1), known_[k] = 1;
                    break;
                }
                out.bit(0);
                ++low;
            }
            low_[k] = low;
        }
    }
    // Decoder side: true when the leaf's value is below threshold.
    template <class In>
    bool decode(In& in, int x, int y, int threshold) {
        int path[32], n = 0;
        for (size_t l = 0; l < dims_.size(); ++l) path[n++] = dims_[l].off + (y >> l) * dims_[l].w + (x >> l);
        int low = 0;
        for (int i = n - 1; i >= 0; --i) {
            const int k = path[i];
            if (low > low_[k]) low_[k] = low;
            else low = low_[k];
            while (low < threshold && low < value_[k]) {
                if (in.bit()) value_[k] = low;
                else ++low;
            }
            low_[k] = low;
        }
        return value_[path[0]] < threshold;
    }
    int leafValue(int x, int y) const { return value_[static_cast<size_t>(y) * dims_[0].w + x]; }

private:
    static constexpr int kUnknown = 1 << 30;
    struct Dim {
        int w, h, off;
    };
    std::vector<Dim> dims_;
    std::vector<int> value_, low_;
    std::vector<uint8_t> known_;
};

// ---------------------------------------------------------------- packet-header bits
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
    void flush() {
        const int start = !out.empty() && out.back() == 0xFF ? 7 : 8;
        if (room != start) bits(0, room);
        if (!out.empty() && out.back() == 0xFF) out.push_back(0);
    }
};

struct BitReader {
    const uint8_t* p;
    size_t pos, end;
    uint32_t cur = 0;
    int avail = 0;
    bool lastFF = false;
    int bit() {
        if (avail == 0) {
            if (pos >= end) throw BadStream("packet header runs past the end of the data");
            cur = p[pos++];
            avail = lastFF ? 7 : 8;
            lastFF = cur == 0xFF;
        }
        return static_cast<int>((cur >> --avail) & 1);
    }
    uint32_t bits(int n) {
        uint32_t v = 0;
        for (int i = 0; i < n; ++i) v = (v << 1) | static_cast<uint32_t>(bit());
        return v;
    }
    // Position behind the header: a last byte of 0xFF is followed by a stuffed byte.
    size_t finish() {
        if (lastFF) ++pos;
        return pos;
    }
};

void putPassCount(BitWriter& bw, int n) {
    if (n == 1) bw.bit(0);
    else if (n == 2) bw.bits(2, 2);
    else if (n <= 5) bw.bits(3, 2), bw.bits(static_cast<uint32_t>(n - 3), 2);
    else if (n <= 36) bw.bits(15, 4), bw.bits(static_cast<uint32_t>(n - 6), 5);
    else bw.bits(511, 9), bw.bits(static_cast<uint32_t>(n - 37), 7);
}

int getPassCount(BitReader& br) {
    if (!br.bit()) return 1;
    if (!br.bit()) return 2;
    const int two = static_cast<int>(br.bits(2));
    if (two < 3) return 3 + two;
    const int five = static_cast<int>(br.bits(5));
    if (five < 31) return 6 + five;
    return 37 + static_cast<int>(br.bits(7));
}

// Most passes a codeword segment holds, by its index within the block.
int segmentCapacity(int style, int seg) {
    if (style & zebJ2kTermAll) return 1;
    if (style & zebJ2kBypass) return seg == 0 ? 10 : ((seg % 2) ? 2 : 1);
    return 1 << 20;
}

// ---------------------------------------------------------------- geometry
// Code-style bits of the COD marker to the library's bits.
int styleFromMarker(int cbs) {
    int s = 0;
    if (cbs & 0x01) s |= zebJ2kBypass;
    if (cbs & 0x02) s |= zebJ2kResetContexts;
    if (cbs & 0x04) s |= zebJ2kTermAll;
    if (cbs & 0x08) s |= zebJ2kCausal;
    if (cbs & 0x20) s |= zebJ2kSegmentationSymbols;
    return s;
}
int styleToMarker(int s) {
    int c = 0;
    if (s & zebJ2kBypass) c |= 0x01;
    if (s & zebJ2kResetContexts) c |= 0x02;
    if (s & zebJ2kTermAll) c |= 0x04;
    if (s & zebJ2kCausal) c |= 0x08;
    if (s & zebJ2kSegmentationSymbols) c |= 0x20;
    return c;
}

struct CodeBlock {
    int x0, y0, w, h;  // in band coordinates
    // decoder state
    bool included = false;
    int zeroPlanes = 0, lblock = 3, passes = 0, parsed = 0;
    std::vector<uint8_t> data;
    std::vector<int> segLens, segPasses;
    // encoder state
    std::vector<uint8_t> code;
    std::vector<int> passRate;
    std::vector<double> passDist;
    int codedPasses = 0, significant = 0;
    std::vector<int> layerKeep;  // passes included through each layer
};

struct Band {
    int type;  // 0 LL, 1 HL, 2 LH, 3 HH
    int x0, y0, x1, y1;
    int offX, offY;  // position in the tile-component buffer
    int gw = 0, gh = 0;  // code-block grid
    int mb = 0;          // magnitude bits
    double step = 1.0;   // quantisation step (irreversible)
    double weight = 1.0; // synthesis norm (rate control)
    std::vector<CodeBlock> blocks;
    std::shared_ptr<TagTree> incl, zbp;
};

struct Resolution {
    int x0, y0, x1, y1;
    std::vector<Band> bands;
};

struct TileComp {
    int x0, y0, x1, y1;
    std::vector<Resolution> res;
    std::vector<int32_t> buf;  // whole tile-component, stride x1 - x0
};

struct CodingParams {
    int levels = 5, cbw = 6, cbh = 6, style = 0, reversible = 1, mct = 0, layers = 1, order = 0;
    bool sop = false, eph = false;
    int guard = 2;
    std::vector<int> expn, mant;  // per subband, in band order (LL, then HL LH HH per level)
};

// Builds resolutions, bands and code-blocks of one tile-component. Band b of
// resolution r is the subband index 3 * (r - 1) + b in the quantisation list.
void buildTileComp(TileComp& tc, const CodingParams& cp) {
    const int nl = cp.levels;
    tc.res.assign(nl + 1, Resolution{});
    for (int r = 0; r <= nl; ++r) {
        Resolution& R = tc.res[r];
        const int s = nl - r;
        R.x0 = ceilShift(tc.x0, s), R.y0 = ceilShift(tc.y0, s);
        R.x1 = ceilShift(tc.x1, s), R.y1 = ceilShift(tc.y1, s);
    }
    for (int r = 0; r <= nl; ++r) {
        Resolution& R = tc.res[r];
        const int first = r == 0 ? 0 : 1, last = r == 0 ? 0 : 3;
        for (int b = first; b <= last; ++b) {
            Band B;
            B.type = b;
            if (r == 0) {
                B.x0 = R.x0, B.y0 = R.y0, B.x1 = R.x1, B.y1 = R.y1;
                B.offX = 0, B.offY = 0;
            } else {
                const int nb = nl - r + 1;
                const int xo = b & 1, yo = b >> 1;
                const int64_t hx = xo ? (int64_t{1} << (nb - 1)) : 0, hy = yo ? (int64_t{1} << (nb - 1)) : 0;
                B.x0 = static_cast<int>((tc.x0 - hx + (int64_t{1} << nb) - 1) >> nb);
                B.y0 = static_cast<int>((tc.y0 - hy + (int64_t{1} << nb) - 1) >> nb);
                B.x1 = static_cast<int>((tc.x1 - hx + (int64_t{1} << nb) - 1) >> nb);
                B.y1 = static_cast<int>((tc.y1 - hy + (int64_t{1} << nb) - 1) >> nb);
                const Resolution& L = tc.res[r - 1];
                B.offX = xo ? L.x1 - L.x0 : 0;
                B.offY = yo ? L.y1 - L.y0 : 0;
            }
            const int cw = 1 << cp.cbw, ch = 1 << cp.cbh;
            if (B.x1 > B.x0 && B.y1 > B.y0) {
                const int bx0 = B.x0 >> cp.cbw, by0 = B.y0 >> cp.cbh;
                const int bx1 = ceilShift(B.x1, cp.cbw), by1 = ceilShift(B.y1, cp.cbh);
                B.gw = bx1 - bx0, B.gh = by1 - by0;
                for (int y = by0; y < by1; ++y)
                    for (int x = bx0; x < bx1; ++x) {
                        CodeBlock cb;
                        cb.x0 = std::max(x * cw, B.x0), cb.y0 = std::max(y * ch, B.y0);
                        cb.w = std::min((x + 1) * cw, B.x1) - cb.x0;
                        cb.h = std::min((y + 1) * ch, B.y1) - cb.y0;
                        B.blocks.push_back(std::move(cb));
                    }
                B.incl = std::make_shared<TagTree>(B.gw, B.gh);
                B.zbp = std::make_shared<TagTree>(B.gw, B.gh);
            }
            const int idx = r == 0 ? 0 : 3 * (r - 1) + b;
            const int gain = b == 0 ? 0 : (b == 3 ? 2 : 1);
            (void)gain;
            if (idx >= static_cast<int>(cp.expn.size())) throw BadStream("quantisation marker lists too few subbands");
            B.mb = cp.guard + cp.expn[idx] - 1;
            R.bands.push_back(std::move(B));
        }
    }
    tc.buf.assign(static_cast<size_t>(tc.x1 - tc.x0) * (tc.y1 - tc.y0), 0);
}

int subbandSelector(int type) { return type == 1 ? zebJ2kSubbandHL : (type == 3 ? zebJ2kSubbandHH : 0); }

// Inverse wavelet of resolutions 1..upTo of a tile-component, in place.
void inverseWavelet(TileComp& tc, int upTo, bool reversible) {
    const int stride = tc.x1 - tc.x0;
    std::vector<uint8_t> work;
    for (int r = 1; r <= upTo; ++r) {
        const Resolution& R = tc.res[r];
        if (R.x1 <= R.x0 || R.y1 <= R.y0) continue;
        ZebTileRect rect{R.x0, R.y0, R.x1 - R.x0, R.y1 - R.y0};
        int size = 0;
        if (reversible) check(zebiWTGetBufSize_B53_JPEG2K_32s_C1IR(&rect, &size), "wavelet buffer size");
        else check(zebiWTGetBufSize_D97_JPEG2K_32s_C1IR(&rect, &size), "wavelet buffer size");
        work.resize(static_cast<size_t>(std::max(size, 1)));
        if (reversible) check(zebiWTInv_B53_JPEG2K_32s_C1IR(tc.buf.data(), 4 * stride, &rect, work.data()), "inverse 5/3");
        else check(zebiWTInv_D97_JPEG2K_32s_C1IR(tc.buf.data(), 4 * stride, &rect, work.data()), "inverse 9/7");
    }
}

void forwardWavelet(TileComp& tc, bool reversible) {
    const int stride = tc.x1 - tc.x0;
    std::vector<uint8_t> work;
    for (int r = static_cast<int>(tc.res.size()) - 1; r >= 1; --r) {
        const Resolution& R = tc.res[r];
        if (R.x1 <= R.x0 || R.y1 <= R.y0) continue;
        ZebTileRect rect{R.x0, R.y0, R.x1 - R.x0, R.y1 - R.y0};
        int size = 0;
        if (reversible) check(zebiWTGetBufSize_B53_JPEG2K_32s_C1IR(&rect, &size), "wavelet buffer size");
        else check(zebiWTGetBufSize_D97_JPEG2K_32s_C1IR(&rect, &size), "wavelet buffer size");
        work.resize(static_cast<size_t>(std::max(size, 1)));
        if (reversible) check(zebiWTFwd_B53_JPEG2K_32s_C1IR(tc.buf.data(), 4 * stride, &rect, work.data()), "forward 5/3");
        else check(zebiWTFwd_D97_JPEG2K_32s_C1IR(tc.buf.data(), 4 * stride, &rect, work.data()), "forward 9/7");
    }
}

// Packet order of one tile with one precinct per resolution: the position
// loops of the orders that have them run once.
struct Pk {
    int l, r, c;
};
std::vector<Pk> packetSequence(int order, int L, int NR, int C) {
    std::vector<Pk> seq;
    switch (order) {
    case 0:  // LRCP
        for (int l = 0; l < L; ++l)
            for (int r = 0; r < NR; ++r)
                for (int c = 0; c < C; ++c) seq.push_back({l, r, c});
        break;
    case 1:  // RLCP
        for (int r = 0; r < NR; ++r)
            for (int l = 0; l < L; ++l)
                for (int c = 0; c < C; ++c) seq.push_back({l, r, c});
        break;
    case 2:  // RPCL
        for (int r = 0; r < NR; ++r)
            for (int c = 0; c < C; ++c)
                for (int l = 0; l < L; ++l) seq.push_back({l, r, c});
        break;
    default:  // PCRL and CPRL
        for (int c = 0; c < C; ++c)
            for (int r = 0; r < NR; ++r)
                for (int l = 0; l < L; ++l) seq.push_back({l, r, c});
        break;
    }
    return seq;
}

// Fraction bits of the fixed-point samples on the irreversible path.
constexpr int kFrac = 12;

// ---------------------------------------------------------------- decoder
struct Reader {
    const uint8_t* p;
    size_t n, pos = 0;
    void need(size_t k) const {
        if (pos + k > n) throw BadStream("unexpected end of the codestream");
    }
    int u8() { need(1); return p[pos++]; }
    int u16() { need(2); const int v = (p[pos] << 8) | p[pos + 1]; pos += 2; return v; }
    uint32_t u32() { const uint32_t hi = static_cast<uint32_t>(u16()); return (hi << 16) | static_cast<uint32_t>(u16()); }
};

struct Siz {
    int x1, y1, x0, y0, tw, th, tx0, ty0, comps;
    std::vector<int> prec;
};

struct Decoder {
    Siz siz{};
    CodingParams cp;
    int reduce = 0, maxLayers = 1 << 30;
    bool truncated = false;
    Image out;

    void readCod(Reader& r, int len) {
        const size_t end = r.pos + static_cast<size_t>(len) - 2;
        const int scod = r.u8();
        cp.order = r.u8();
        cp.layers = r.u16();
        cp.mct = r.u8();
        cp.levels = r.u8();
        cp.cbw = r.u8() + 2;
        cp.cbh = r.u8() + 2;
        cp.style = styleFromMarker(r.u8());
        cp.reversible = r.u8();
        cp.sop = scod & 2;
        cp.eph = scod & 4;
        if (cp.levels > 32 || cp.cbw > 10 || cp.cbh > 10 || cp.cbw + cp.cbh > 12 || cp.order > 4 || cp.layers < 1)
            throw BadStream("invalid coding style marker");
        if (scod & 1) {
            for (int i = 0; i <= cp.levels; ++i) {
                const int pp = r.u8();
                if ((pp & 15) != 15 || (pp >> 4) != 15) throw BadStream("precincts other than the default size are not supported");
            }
        }
        r.pos = end;
    }
    void readQcd(Reader& r, int len) {
        const size_t end = r.pos + static_cast<size_t>(len) - 2;
        const int sq = r.u8();
        cp.guard = sq >> 5;
        const int type = sq & 31;
        cp.expn.clear(), cp.mant.clear();
        if (type == 0) {
            while (r.pos < end) cp.expn.push_back(r.u8() >> 3), cp.mant.push_back(0);
        } else if (type == 1) {
            const int v = r.u16();
            const int e0 = v >> 11, m0 = v & 0x7FF;
            for (int i = 0; i < 1 + 3 * 32; ++i) {
                const int lvl = i == 0 ? 0 : (i - 1) / 3;
                cp.expn.push_back(e0 - lvl);  // level counted from the top (decompositions) below
                cp.mant.push_back(m0);
            }
            derived_ = true;
        } else if (type == 2) {
            while (r.pos + 1 < end) {
                const int v = r.u16();
                cp.expn.push_back(v >> 11), cp.mant.push_back(v & 0x7FF);
            }
        } else {
            throw BadStream("invalid quantisation marker");
        }
        r.pos = end;
    }
    bool derived_ = false;

    void run(const std::vector<uint8_t>& file, const std::string& outPath) {
        const uint8_t* p = file.data();
        size_t n = file.size();
        // JP2: find the contiguous codestream box.
        if (n >= 12 && std::memcmp(p, "\0\0\0\x0cjP  ", 8) == 0) {
            size_t pos = 0;
            bool found = false;
            while (pos + 8 <= n) {
                uint64_t len = (uint64_t{p[pos]} << 24) | (p[pos + 1] << 16) | (p[pos + 2] << 8) | p[pos + 3];
                size_t hdr = 8;
                if (len == 1) {
                    if (pos + 16 > n) break;
                    len = 0;
                    for (int i = 0; i < 8; ++i) len = (len << 8) | p[pos + 8 + i];
                    hdr = 16;
                } else if (len == 0) {
                    len = n - pos;
                }
                if (len < hdr || len > n - pos) throw BadStream("bad box length in the JP2 file");
                if (std::memcmp(p + pos + 4, "jp2c", 4) == 0) {
                    p += pos + hdr;
                    n = static_cast<size_t>(len) - hdr;
                    found = true;
                    break;
                }
                pos += static_cast<size_t>(len);
            }
            if (!found) throw BadStream("no codestream box in the JP2 file");
        }
        Reader r{p, n};
        if (r.u16() != 0xFF4F) throw BadStream("not a JPEG 2000 codestream (no SOC marker)");
        if (r.u16() != 0xFF51) throw BadStream("SIZ marker missing");
        {
            const int len = r.u16();
            r.u16();
            siz.x1 = static_cast<int>(r.u32()), siz.y1 = static_cast<int>(r.u32());
            siz.x0 = static_cast<int>(r.u32()), siz.y0 = static_cast<int>(r.u32());
            siz.tw = static_cast<int>(r.u32()), siz.th = static_cast<int>(r.u32());
            siz.tx0 = static_cast<int>(r.u32()), siz.ty0 = static_cast<int>(r.u32());
            siz.comps = r.u16();
            if (len != 38 + 3 * siz.comps) throw BadStream("bad SIZ marker length");
            if (siz.x1 <= siz.x0 || siz.y1 <= siz.y0 || siz.x0 < 0 || siz.y0 < 0 || siz.tw < 1 || siz.th < 1 ||
                siz.tx0 < 0 || siz.ty0 < 0 || siz.tx0 > siz.x0 || siz.ty0 > siz.y0 ||
                static_cast<int64_t>(siz.tx0) + siz.tw <= siz.x0 || static_cast<int64_t>(siz.ty0) + siz.th <= siz.y0)
                throw BadStream("bad image or tile geometry in SIZ");
            if (static_cast<int64_t>(siz.x1 - siz.x0) * (siz.y1 - siz.y0) > (int64_t{1} << 28))
                throw BadStream("image too large");
            if (siz.comps != 1 && siz.comps != 3) throw BadStream("only 1 or 3 components are supported");
            for (int c = 0; c < siz.comps; ++c) {
                const int ss = r.u8();
                const int dx = r.u8(), dy = r.u8();
                if (ss & 0x80) throw BadStream("signed components are not supported");
                if ((ss & 0x7F) + 1 > 16) throw BadStream("components deeper than 16 bits are not supported");
                if (dx != 1 || dy != 1) throw BadStream("subsampled components are not supported");
                siz.prec.push_back((ss & 0x7F) + 1);
            }
        }
        bool haveCod = false, haveQcd = false;
        const int tilesX = ceilDiv(siz.x1 - siz.tx0, siz.tw), tilesY = ceilDiv(siz.y1 - siz.ty0, siz.th);
        if (static_cast<int64_t>(tilesX) * tilesY > 65535) throw BadStream("too many tiles");
        std::vector<std::vector<uint8_t>> tileData(static_cast<size_t>(tilesX) * tilesY);
        // Main header, then tile-parts.
        for (;;) {
            if (r.pos + 2 > r.n) {
                truncated = true;
                break;
            }
            const int m = r.u16();
            if (m == 0xFFD9) break;
            if (m == 0xFF90) {
                if (!haveCod || !haveQcd) throw BadStream("COD or QCD marker missing");
                const size_t start = r.pos - 2;
                const int len = r.u16();
                const int isot = r.u16();
                const uint32_t psot = r.u32();
                r.u8(), r.u8();
                if (len != 10 || isot >= tilesX * tilesY) throw BadStream("bad SOT marker");
                size_t end = psot == 0 ? r.n : start + psot;
                if (psot != 0 && psot < 14) throw BadStream("bad tile-part length");
                if (end > r.n) end = r.n, truncated = true;
                // Tile-part header: only SOD (and harmless markers) expected.
                for (;;) {
                    const int tm = r.u16();
                    if (tm == 0xFF93) break;
                    if (tm == 0xFF52 || tm == 0xFF5C || tm == 0xFF53 || tm == 0xFF5D || tm == 0xFF5F || tm == 0xFF5E ||
                        tm == 0xFF61)
                        throw BadStream("coding parameters in tile-part headers are not supported");
                    if (tm < 0xFF30) throw BadStream("bad marker in a tile-part header");
                    const int l = r.u16();
                    r.need(static_cast<size_t>(l) - 2);
                    if (l < 2) throw BadStream("bad marker length");
                    r.pos += static_cast<size_t>(l) - 2;
                }
                if (r.pos > end) throw BadStream("tile-part header runs past its end");
                auto& td = tileData[isot];
                td.insert(td.end(), r.p + r.pos, r.p + end);
                r.pos = end;
                continue;
            }
            if (m < 0xFF30) throw BadStream("bad marker in the main header");
            const int len = r.u16();
            if (len < 2) throw BadStream("bad marker length");
            r.need(static_cast<size_t>(len) - 2);
            Reader sub{r.p, r.pos + static_cast<size_t>(len) - 2, r.pos};
            if (m == 0xFF52) readCod(sub, len), haveCod = true;
            else if (m == 0xFF5C) readQcd(sub, len), haveQcd = true;
            else if (m == 0xFF53 || m == 0xFF5D || m == 0xFF5F || m == 0xFF5E || m == 0xFF60 || m == 0xFF61)
                throw BadStream("COC, QCC, POC, RGN, PPM and PPT markers are not supported");
            r.pos += static_cast<size_t>(len) - 2;
        }
        if (!haveCod || !haveQcd) throw BadStream("COD or QCD marker missing");
        if (derived_) {
            // Derived quantisation: the exponent falls by one for each level
            // from the LL band: e0 - NL + nb, nb = NL - r + 1 for resolution r.
            const int e0 = cp.expn[0], m0 = cp.mant[0];
            cp.expn.assign(1, e0), cp.mant.assign(1, m0);
            for (int r2 = 1; r2 <= cp.levels; ++r2)
                for (int b = 0; b < 3; ++b) cp.expn.push_back(e0 - r2 + 1), cp.mant.push_back(m0);
        }
        if (cp.mct && siz.comps < 3) throw BadStream("component transform on fewer than three components");
        reduce = std::min(reduce, cp.levels);
        // Output image.
        const int ox0 = ceilShift(siz.x0, reduce), oy0 = ceilShift(siz.y0, reduce);
        out.width = ceilShift(siz.x1, reduce) - ox0;
        out.height = ceilShift(siz.y1, reduce) - oy0;
        out.channels = siz.comps;
        int maxPrec = 0;
        for (int pr : siz.prec) maxPrec = std::max(maxPrec, pr);
        out.bits = maxPrec <= 8 ? 8 : 16;
        const size_t total = static_cast<size_t>(out.width) * out.height * out.channels;
        if (out.bits == 8) out.data8.assign(total, 0);
        else out.data16.assign(total, 0);

        gClock.mark("read");
        for (int t = 0; t < tilesX * tilesY; ++t) {
            decodeTile(t, tilesX, tileData[t], ox0, oy0);
            gClock.mark("colour");
        }
        zebex::writeImage(outPath, out);
        gClock.mark("write");
    }

    // Reads all packets of one tile and reconstructs it into the output image.
    void decodeTile(int t, int tilesX, const std::vector<uint8_t>& data, int ox0, int oy0) {
        const int p = t % tilesX, q = t / tilesX;
        const int tx0 = std::max(siz.tx0 + p * siz.tw, siz.x0), ty0 = std::max(siz.ty0 + q * siz.th, siz.y0);
        const int tx1 = static_cast<int>(std::min<int64_t>(int64_t{siz.tx0} + int64_t{p + 1} * siz.tw, siz.x1));
        const int ty1 = static_cast<int>(std::min<int64_t>(int64_t{siz.ty0} + int64_t{q + 1} * siz.th, siz.y1));
        std::vector<TileComp> tcs(siz.comps);
        for (auto& tc : tcs) {
            tc.x0 = tx0, tc.y0 = ty0, tc.x1 = tx1, tc.y1 = ty1;
            buildTileComp(tc, cp);
        }
        // Packet sequence (one precinct per resolution).
        const int L = cp.layers, NR = cp.levels + 1, C = siz.comps;
        const std::vector<Pk> seq = packetSequence(cp.order, L, NR, C);
        size_t pos = 0;
        const size_t end = data.size();
        try {
            for (const Pk& pk : seq) {
                Resolution& R = tcs[pk.c].res[pk.r];
                if (R.x1 <= R.x0 || R.y1 <= R.y0) continue;  // an empty resolution has no packets
                pos = readPacket(data.data(), pos, end, R, pk.l);
            }
        } catch (const BadStream& e) {
            std::fprintf(stderr, "zebj2k: warning: tile %d: %s; decoding what was read\n", t, e.what());
            truncated = true;
        }
        const int upTo = cp.levels - reduce;
        gClock.mark("packets");
        for (int c = 0; c < C; ++c) decodeBlocks(tcs[c], upTo);
        gClock.mark("blocks");
        bool wtFailed = false;
#pragma omp parallel for schedule(dynamic, 1)
        for (int c = 0; c < C; ++c) {
            try {
                inverseWavelet(tcs[c], upTo, cp.reversible != 0);
            } catch (...) {
#pragma omp atomic write
                wtFailed = true;
            }
        }
        if (wtFailed) throw FileError("inverse wavelet failed");
        gClock.mark("wavelet");
        // Tile of the reduced resolution.
        const Resolution& top = tcs[0].res[upTo];
        const int w = top.x1 - top.x0, h = top.y1 - top.y0;
        if (w <= 0 || h <= 0) return;
        const int stride = tx1 - tx0;
        std::vector<Zeb32s*> planes(C);
        for (int c = 0; c < C; ++c) planes[c] = tcs[c].buf.data();
        if (cp.mct) {
            if (cp.reversible) {
                check(zebiRCTInv_JPEG2K_32s_P3IR(planes.data(), 4 * stride, {w, h}), "inverse RCT");
            } else {
                // Row by row through a small float buffer.
                std::vector<float> f(static_cast<size_t>(3) * w);
                Zeb32f* fp[3] = {f.data(), f.data() + w, f.data() + 2 * static_cast<size_t>(w)};
                const float scale = 1.0f / (1 << kFrac);
                for (int y = 0; y < h; ++y) {
                    for (int c = 0; c < 3; ++c) {
                        const int32_t* src = planes[c] + static_cast<size_t>(y) * stride;
                        for (int x = 0; x < w; ++x) fp[c][x] = static_cast<float>(src[x]) * scale;
                    }
                    check(zebiICTInv_JPEG2K_32f_P3IR(fp, 4 * w, {w, 1}), "inverse ICT");
                    for (int c = 0; c < 3; ++c) {
                        int32_t* dst = planes[c] + static_cast<size_t>(y) * stride;
                        for (int x = 0; x < w; ++x) dst[x] = static_cast<int32_t>(std::lrintf(fp[c][x]));
                    }
                }
            }
        } else if (!cp.reversible) {
            for (int c = 0; c < C; ++c)
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        int32_t& v = planes[c][static_cast<size_t>(y) * stride + x];
                        v = static_cast<int32_t>(std::lrint(static_cast<double>(v) / (1 << kFrac)));
                    }
        }
        for (int c = 0; c < C; ++c) {
            const int maxv = (1 << siz.prec[c]) - 1, shift = 1 << (siz.prec[c] - 1);
            for (int y = 0; y < h; ++y) {
                const size_t row = static_cast<size_t>(top.y0 - oy0 + y) * out.width;
                for (int x = 0; x < w; ++x) {
                    const int v = std::clamp(planes[c][static_cast<size_t>(y) * stride + x] + shift, 0, maxv);
                    const size_t at = (row + static_cast<size_t>(top.x0 - ox0 + x)) * C + c;
                    if (out.bits == 8) out.data8[at] = static_cast<uint8_t>(v);
                    else out.data16[at] = static_cast<uint16_t>(v);
                }
            }
        }
    }

    size_t readPacket(const uint8_t* d, size_t pos, size_t end, Resolution& R, int layer) {
        if (cp.sop && pos + 6 <= end && d[pos] == 0xFF && d[pos + 1] == 0x91) pos += 6;
        BitReader br{d, pos, end};
        struct Contrib {
            CodeBlock* cb;
            int newPasses;
            std::vector<int> lens, passes;
        };
        std::vector<Contrib> list;
        if (br.bit()) {
            for (Band& B : R.bands) {
                for (int i = 0; i < static_cast<int>(B.blocks.size()); ++i) {
                    CodeBlock& cb = B.blocks[i];
                    const int gx = i % B.gw, gy = i / B.gw;
                    bool inc;
                    if (!cb.included) inc = B.incl->decode(br, gx, gy, layer + 1);
                    else inc = br.bit() != 0;
                    if (!inc) continue;
                    if (!cb.included) {
                        int k = 1;
                        while (!B.zbp->decode(br, gx, gy, k)) {
                            if (++k > 64) throw BadStream("bad zero bit-plane count");
                        }
                        cb.zeroPlanes = k - 1;
                        cb.included = true;
                    }
                    const int np = getPassCount(br);
                    while (br.bit()) {
                        if (++cb.lblock > 32) throw BadStream("bad code-block length indicator");
                    }
                    Contrib ct{&cb, np, {}, {}};
                    // Split the new passes at segment ends.
                    int left = np, seg = -1, inSeg = 0;
                    for (int before = 0; before < cb.parsed;) {
                        ++seg;
                        inSeg = std::min(segmentCapacity(cp.style, seg), cb.parsed - before);
                        before += inSeg;
                    }
                    cb.parsed += np;
                    while (left > 0) {
                        if (seg < 0 || inSeg >= segmentCapacity(cp.style, seg)) ++seg, inSeg = 0;
                        const int take = std::min(left, segmentCapacity(cp.style, seg) - inSeg);
                        const int bits = cb.lblock + floorLog2(take);
                        if (bits > 31) throw BadStream("bad code-block length");
                        ct.lens.push_back(static_cast<int>(br.bits(bits)));
                        ct.passes.push_back(take);
                        inSeg += take, left -= take;
                    }
                    list.push_back(std::move(ct));
                }
            }
        }
        pos = br.finish();
        if (cp.eph) {
            if (pos + 2 <= end && d[pos] == 0xFF && d[pos + 1] == 0x92) pos += 2;
        }
        for (Contrib& ct : list) {
            CodeBlock& cb = *ct.cb;
            for (size_t s = 0; s < ct.lens.size(); ++s) {
                const size_t len = static_cast<size_t>(ct.lens[s]);
                if (len > end - pos) throw BadStream("code-block data runs past the end of the tile");
                if (layer < maxLayers) {
                    const int segIdx = static_cast<int>(cb.segPasses.size()) - 1;
                    if (segIdx >= 0 && cb.segPasses[segIdx] < segmentCapacity(cp.style, segIdx)) {
                        cb.segPasses[segIdx] += ct.passes[s];
                        cb.segLens[segIdx] += ct.lens[s];
                    } else {
                        cb.segPasses.push_back(ct.passes[s]);
                        cb.segLens.push_back(ct.lens[s]);
                    }
                    cb.data.insert(cb.data.end(), d + pos, d + pos + len);
                    cb.passes += ct.passes[s];
                }
                pos += len;
            }
        }
        return pos;
    }

    void decodeBlocks(TileComp& tc, int upTo) {
        const int stride = tc.x1 - tc.x0;
        struct Job {
            Band* band;
            CodeBlock* cb;
        };
        std::vector<Job> jobs;
        for (int r = 0; r <= upTo; ++r)
            for (Band& B : tc.res[r].bands)
                for (CodeBlock& cb : B.blocks)
                    if (cb.passes > 0) jobs.push_back({&B, &cb});
        // Step sizes.
        for (int r = 0; r <= upTo; ++r)
            for (Band& B : tc.res[r].bands) {
                const int idx = r == 0 ? 0 : 3 * (r - 1) + B.type;
                const int gain = B.type == 0 ? 0 : (B.type == 3 ? 2 : 1);
                const int prec = siz.prec[0];
                B.step = std::ldexp(1.0 + cp.mant[idx] / 2048.0, prec + gain - cp.expn[idx]);
            }
        const int maxW = 1 << cp.cbw, maxH = 1 << cp.cbh;
        int stateSize = 0;
        check(zebiDecodeGetBufSize_JPEG2K({maxW, maxH}, &stateSize), "decoder buffer size");
        bool damaged = false;
#pragma omp parallel
        {
            std::vector<uint64_t> stateMem((static_cast<size_t>(stateSize) + 7) / 8);
            auto* st = reinterpret_cast<ZebJ2kDecodeState*>(stateMem.data());
            std::vector<int32_t> blk(static_cast<size_t>(maxW) * maxH);
            static const uint8_t kEmpty[1] = {0};
#pragma omp for schedule(dynamic, 4)
            for (int j = 0; j < static_cast<int>(jobs.size()); ++j) {
                Band& B = *jobs[j].band;
                CodeBlock& cb = *jobs[j].cb;
                const int planes = B.mb - cb.zeroPlanes;
                if (planes < 1 || planes > 30) {
#pragma omp atomic write
                    damaged = true;
                    continue;
                }
                const ZebStatus s = zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(
                    cb.data.empty() ? kEmpty : cb.data.data(), blk.data(), 4 * cb.w, {cb.w, cb.h}, subbandSelector(B.type),
                    planes + 1, cb.passes, cb.segLens.data(), static_cast<int>(cb.segLens.size()),
                    cp.style | zebJ2kKeepHalfBit, nullptr, st);
                if (s != zebStatusOk) {
#pragma omp atomic write
                    damaged = true;
                }
                for (int y = 0; y < cb.h; ++y) {
                    int32_t* dst = tc.buf.data() + static_cast<size_t>(B.offY + cb.y0 - B.y0 + y) * stride + (B.offX + cb.x0 - B.x0);
                    const int32_t* src = blk.data() + static_cast<size_t>(y) * cb.w;
                    for (int x = 0; x < cb.w; ++x) {
                        const uint32_t v = static_cast<uint32_t>(src[x]);
                        const int32_t mag = static_cast<int32_t>(v & 0x7FFFFFFF);
                        if (cp.reversible) {
                            const int32_t m = mag >> 1;
                            dst[x] = (v >> 31) ? -m : m;
                        } else {
                            const double val = mag * B.step * 0.5 * (1 << kFrac);
                            const int32_t m = static_cast<int32_t>(std::min(val + 0.5, 2.0e9));
                            dst[x] = (v >> 31) ? -m : m;
                        }
                    }
                }
            }
        }
        if (damaged) {
            std::fprintf(stderr, "zebj2k: warning: damaged code-block data\n");
            truncated = true;
        }
    }
};

// ---------------------------------------------------------------- encoder
void put16(std::vector<uint8_t>& v, int x) { v.push_back(static_cast<uint8_t>(x >> 8)), v.push_back(static_cast<uint8_t>(x)); }
void put32(std::vector<uint8_t>& v, uint32_t x) { put16(v, static_cast<int>(x >> 16)), put16(v, static_cast<int>(x & 0xFFFF)); }

// Norm of the synthesis basis function of one band (type, level counted from
// 1 at the finest), measured on an impulse through the library's inverse 1-D
// transforms (a region one sample high).
double synthesisNorm1d(bool high, int level, bool reversible) {
    const int n = 32 << level;
    std::vector<int32_t> line(n, 0);
    // Position of the impulse: the band sits at the start of the level's region.
    const int lowLen = n >> level;
    const int scale = 1 << 16;
    line[high ? lowLen + lowLen / 2 : lowLen / 2] = scale;
    std::vector<uint8_t> work;
    for (int l = level; l >= 1; --l) {
        ZebTileRect rect{0, 0, n >> (l - 1), 1};
        int size = 0;
        if (reversible) zebiWTGetBufSize_B53_JPEG2K_32s_C1IR(&rect, &size);
        else zebiWTGetBufSize_D97_JPEG2K_32s_C1IR(&rect, &size);
        work.resize(static_cast<size_t>(std::max(size, 1)));
        if (reversible) zebiWTInv_B53_JPEG2K_32s_C1IR(line.data(), 4 * n, &rect, work.data());
        else zebiWTInv_D97_JPEG2K_32s_C1IR(line.data(), 4 * n, &rect, work.data());
    }
    double e = 0;
    for (int v : line) e += static_cast<double>(v) * v;
    return std::sqrt(e) / scale;
}

struct EncodeOptions {
    int levels = 5, cbw = 6, cbh = 6, style = 0, order = 0, tileW = 0, tileH = 0;
    bool irreversible = false, sop = false, eph = false;
    double step = 0;  // base quantisation step (irreversible), 0 for automatic
    std::vector<double> rates;  // target bits per pixel per layer (cumulative), 0 for all passes
};

std::vector<uint8_t> encodeImage(const Image& img, const EncodeOptions& o) {
    if (img.bits != 8) throw FileError("only 8-bit images can be encoded");
    const int W = img.width, H = img.height, C = img.channels;
    CodingParams cp;
    cp.levels = o.levels;
    // Fewer levels than the image allows would leave empty resolutions: fine,
    // but keep every level at least one sample on both sides.
    // Every tile keeps at least one sample per resolution along both axes.
    {
        const int tw = o.tileW > 0 ? std::min(o.tileW, W) : W, th = o.tileH > 0 ? std::min(o.tileH, H) : H;
        const int minW = std::min(tw, W % tw ? W % tw : tw), minH = std::min(th, H % th ? H % th : th);
        while (cp.levels > 0 && ((minW >> cp.levels) < 1 || (minH >> cp.levels) < 1)) --cp.levels;
    }
    cp.cbw = o.cbw, cp.cbh = o.cbh, cp.style = o.style, cp.reversible = o.irreversible ? 0 : 1, cp.order = o.order;
    cp.mct = C == 3 ? 1 : 0;
    cp.guard = 2;
    const int prec = 8;
    const int nb = 1 + 3 * cp.levels;
    // Band norms (for the step sizes and the distortion weights).
    std::vector<double> norm(nb);
    for (int i = 0; i < nb; ++i) {
        const int type = i == 0 ? 0 : 1 + (i - 1) % 3;
        const int r = i == 0 ? 0 : 1 + (i - 1) / 3;
        const int level = i == 0 ? cp.levels : cp.levels - r + 1;
        const double nx = synthesisNorm1d(type & 1, level, !o.irreversible);
        const double ny = synthesisNorm1d((type >> 1) & 1, level, !o.irreversible);
        norm[i] = nx * ny;
    }
    std::vector<double> steps(nb, 1.0);
    for (int i = 0; i < nb; ++i) {
        const int type = i == 0 ? 0 : 1 + (i - 1) % 3;
        const int gain = type == 0 ? 0 : (type == 3 ? 2 : 1);
        if (o.irreversible) {
            const double base = o.step > 0 ? o.step : (!o.rates.empty() ? 0.25 : 1.0);
            const double want = base / norm[i];
            // Step in units of 2^(prec + gain): exponent and 11-bit mantissa.
            const double rel = want / std::ldexp(1.0, prec + gain);
            int e = static_cast<int>(std::floor(-std::log2(rel)));
            e = std::clamp(e, 0, 31);
            int m = static_cast<int>(std::lrint((rel * std::ldexp(1.0, e) - 1.0) * 2048.0));
            m = std::clamp(m, 0, 2047);
            cp.expn.push_back(e), cp.mant.push_back(m);
            steps[i] = std::ldexp(1.0 + m / 2048.0, prec + gain - e);
        } else {
            cp.expn.push_back(prec + gain), cp.mant.push_back(0);
        }
    }
    const int tileW = o.tileW > 0 ? std::min(o.tileW, W) : W, tileH = o.tileH > 0 ? std::min(o.tileH, H) : H;
    const int tilesX = ceilDiv(W, tileW), tilesY = ceilDiv(H, tileH);
    std::vector<std::vector<TileComp>> tiles(static_cast<size_t>(tilesX) * tilesY);
    gClock.mark("setup");
    for (int t = 0; t < tilesX * tilesY; ++t) {
        const int tx0 = (t % tilesX) * tileW, ty0 = (t / tilesX) * tileH;
        const int tx1 = std::min(tx0 + tileW, W), ty1 = std::min(ty0 + tileH, H);
        const int TW = tx1 - tx0, TH = ty1 - ty0;
        std::vector<TileComp>& tcs = tiles[t];
        tcs.resize(C);
        for (int c = 0; c < C; ++c) {
            TileComp& tc = tcs[c];
            tc.x0 = tx0, tc.y0 = ty0, tc.x1 = tx1, tc.y1 = ty1;
            buildTileComp(tc, cp);
            const int shift = o.irreversible ? kFrac : 0;
            for (int y = 0; y < TH; ++y)
                for (int x = 0; x < TW; ++x)
                    tc.buf[static_cast<size_t>(y) * TW + x] = static_cast<int32_t>(
                        static_cast<uint32_t>(img.data8[(static_cast<size_t>(y + ty0) * W + x + tx0) * C + c] - 128) << shift);
        }
        if (C == 3) {
            Zeb32s* planes[3] = {tcs[0].buf.data(), tcs[1].buf.data(), tcs[2].buf.data()};
            if (o.irreversible) {
                // In single precision: the fixed-point form would overflow on
                // samples that already carry fraction bits.
                const size_t n = static_cast<size_t>(TW) * TH;
                std::vector<float> f(3 * n);
                Zeb32f* fp[3] = {f.data(), f.data() + n, f.data() + 2 * n};
                for (int c = 0; c < 3; ++c)
                    for (size_t i = 0; i < n; ++i) fp[c][i] = static_cast<float>(planes[c][i]) * (1.0f / (1 << kFrac));
                check(zebiICTFwd_JPEG2K_32f_P3IR(fp, 4 * TW, {TW, TH}), "forward ICT");
                for (int c = 0; c < 3; ++c)
                    for (size_t i = 0; i < n; ++i) planes[c][i] = static_cast<int32_t>(std::lrint(fp[c][i] * (1 << kFrac)));
            } else {
                check(zebiRCTFwd_JPEG2K_32s_P3IR(planes, 4 * TW, {TW, TH}), "forward RCT");
            }
        }
        gClock.mark("colour");
        bool wtFailed = false;
#pragma omp parallel for schedule(dynamic, 1)
        for (int c = 0; c < C; ++c) {
            try {
                forwardWavelet(tcs[c], !o.irreversible);
            } catch (...) {
#pragma omp atomic write
                wtFailed = true;
            }
        }
        if (wtFailed) throw FileError("forward wavelet failed");
        gClock.mark("wavelet");
    }

    // Code-blocks, in parallel.
    struct Job {
        Band* band;
        CodeBlock* cb;
        TileComp* tc;
        int idx;
    };
    std::vector<Job> jobs;
    for (auto& tcs : tiles)
      for (auto& tc : tcs)
        for (int r = 0; r <= cp.levels; ++r)
            for (Band& B : tc.res[r].bands) {
                const int idx = r == 0 ? 0 : 3 * (r - 1) + B.type;
                B.step = steps[idx];
                B.weight = norm[idx];
                for (CodeBlock& cb : B.blocks) jobs.push_back({&B, &cb, &tc, idx});
            }
    const int maxW = 1 << cp.cbw, maxH = 1 << cp.cbh;
    bool failed = false;
#pragma omp parallel
    {
        ZebJ2kEncodeState* st = nullptr;
        if (zebiEncodeInitAlloc_JPEG2K(&st, {maxW, maxH}) != zebStatusOk) st = nullptr;
        std::vector<int32_t> sm(static_cast<size_t>(maxW) * maxH);
#pragma omp for schedule(dynamic, 4)
        for (int j = 0; j < static_cast<int>(jobs.size()); ++j) {
            if (!st) {
#pragma omp atomic write
                failed = true;
                continue;
            }
            Band& B = *jobs[j].band;
            CodeBlock& cb = *jobs[j].cb;
            const TileComp& tc = *jobs[j].tc;
            const int stride = tc.x1 - tc.x0;
            const double inv = o.irreversible ? 1.0 / (B.step * (1 << kFrac)) : 1.0;
            for (int y = 0; y < cb.h; ++y) {
                const int32_t* src = tc.buf.data() + static_cast<size_t>(B.offY + cb.y0 - B.y0 + y) * stride + (B.offX + cb.x0 - B.x0);
                for (int x = 0; x < cb.w; ++x) {
                    const int32_t v = src[x];
                    uint32_t mag = v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v);
                    if (o.irreversible) mag = static_cast<uint32_t>(std::floor(mag * inv));
                    sm[static_cast<size_t>(y) * cb.w + x] = static_cast<int32_t>((v < 0 && mag ? 0x80000000u : 0u) | mag);
                }
            }
            int segs = 0;
            ZebStatus s = zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(sm.data(), 4 * cb.w, {cb.w, cb.h}, st, subbandSelector(B.type),
                                                                31, zebJ2kFlushFull, 0, cp.style, &cb.significant,
                                                                &cb.codedPasses, &segs);
            if (s != zebStatusOk || cb.significant > B.mb) {
#pragma omp atomic write
                failed = true;
                continue;
            }
            int more = 1;
            while (more) {
                uint8_t buf[4096];
                int len = sizeof buf;
                if (zebiEncodeStoreBits_JPEG2K_1u(buf, &len, st, &more) != zebStatusOk) {
#pragma omp atomic write
                    failed = true;
                    break;
                }
                cb.code.insert(cb.code.end(), buf, buf + len);
            }
            cb.passRate.resize(cb.codedPasses);
            cb.passDist.resize(cb.codedPasses);
            for (int k = 0; k < cb.codedPasses; ++k) {
                zebiEncodeGetRate_JPEG2K(st, k, &cb.passRate[k]);
                zebiEncodeGetDist_JPEG2K(st, k, &cb.passDist[k]);
                cb.passDist[k] *= B.step * B.step * B.weight * B.weight;
            }
            // Under term-all every pass ends a segment: the segment lengths give the rates.
            if (cp.style & (zebJ2kTermAll | zebJ2kBypass)) {
                int acc = 0, p = 0;
                for (int sgi = 0; sgi < segs; ++sgi) {
                    int len = 0;
                    zebiEncodeGetTermPassLen_JPEG2K(st, sgi, &len);
                    acc += len;
                    const int n = std::min(segmentCapacity(cp.style, sgi), cb.codedPasses - p);
                    p += n;
                    if (p > 0) cb.passRate[p - 1] = acc;
                }
            }
        }
        if (st) zebiEncodeFree_JPEG2K(st);
    }
    if (failed) throw FileError("code-block coding failed");
    gClock.mark("blocks");

    // Hull of each block: the passes where the distortion-rate slope falls.
    std::vector<std::vector<std::pair<int, double>>> hulls(jobs.size());
    for (size_t j = 0; j < jobs.size(); ++j) {
        CodeBlock& cb = *jobs[j].cb;
        for (int k = 1; k < cb.codedPasses; ++k) cb.passRate[k] = std::max(cb.passRate[k], cb.passRate[k - 1]);
        auto& hull = hulls[j];  // (pass index, slope)
        for (int k = 0; k < cb.codedPasses; ++k) {
            for (;;) {
                const int prev = hull.empty() ? -1 : hull.back().first;
                const double r0 = prev < 0 ? 0 : cb.passRate[prev], d0 = prev < 0 ? 0 : cb.passDist[prev];
                const double dr = cb.passRate[k] - r0, dd = cb.passDist[k] - d0;
                if (dd <= 0) break;
                const double slope = dr > 0 ? dd / dr : 1e300;
                if (!hull.empty() && slope >= hull.back().second) {
                    hull.pop_back();
                    continue;
                }
                hull.push_back({k, slope});
                break;
            }
        }
    }
    const int layers = std::max<int>(1, static_cast<int>(o.rates.size()));
    for (auto& jb : jobs) jb.cb->layerKeep.assign(layers, jb.cb->codedPasses);

    // Packets of the first numLayers layers in LRCP order.
    auto buildBody = [&](std::vector<TileComp>& tcs, int numLayers) {
        std::vector<uint8_t> body;
        for (auto& tc : tcs)
            for (auto& R : tc.res)
                for (Band& B : R.bands) {
                    if (B.blocks.empty()) continue;
                    B.incl = std::make_shared<TagTree>(B.gw, B.gh);
                    B.zbp = std::make_shared<TagTree>(B.gw, B.gh);
                    for (int i = 0; i < static_cast<int>(B.blocks.size()); ++i) {
                        CodeBlock& cb = B.blocks[i];
                        cb.lblock = 3;
                        int first = 1 << 20;
                        for (int l = numLayers - 1; l >= 0; --l)
                            if (cb.layerKeep[l] > 0) first = l;
                        B.incl->setLeaf(i % B.gw, i / B.gw, first);
                        B.zbp->setLeaf(i % B.gw, i / B.gw, B.mb - cb.significant);
                    }
                    B.incl->finish();
                    B.zbp->finish();
                }
        for (const Pk& pk : packetSequence(cp.order, numLayers, cp.levels + 1, C)) {
                    const int l = pk.l;
                    Resolution& R = tcs[pk.c].res[pk.r];
                    if (R.x1 <= R.x0 || R.y1 <= R.y0) continue;
                    if (o.sop) put16(body, 0xFF91), put16(body, 4), put16(body, 0);
                    BitWriter bw;
                    bool any = false;
                    for (Band& B : R.bands)
                        for (CodeBlock& cb : B.blocks) any |= cb.layerKeep[l] > (l ? cb.layerKeep[l - 1] : 0);
                    bw.bit(any);
                    std::vector<std::pair<CodeBlock*, std::pair<int, int>>> parts;
                    if (any) {
                        for (Band& B : R.bands) {
                            for (int i = 0; i < static_cast<int>(B.blocks.size()); ++i) {
                                CodeBlock& cb = B.blocks[i];
                                const int gx = i % B.gw, gy = i / B.gw;
                                const int before = l ? cb.layerKeep[l - 1] : 0, now = cb.layerKeep[l];
                                if (before == 0) B.incl->encode(bw, gx, gy, l + 1);
                                else bw.bit(now > before);
                                if (now <= before) continue;
                                if (before == 0) B.zbp->encode(bw, gx, gy, B.mb - cb.significant + 1);
                                putPassCount(bw, now - before);
                                // Lengths of the new passes, cut at segment ends.
                                std::vector<int> lens, np;
                                int p = 0, s = 0;
                                while (p + segmentCapacity(cp.style, s) <= before) p += segmentCapacity(cp.style, s), ++s;
                                int at = before, startRate = before ? cb.passRate[before - 1] : 0;
                                const int firstRate = startRate;
                                while (at < now) {
                                    const int segEnd = std::min(p + segmentCapacity(cp.style, s), now);
                                    const int endRate = cb.passRate[segEnd - 1];
                                    lens.push_back(endRate - startRate), np.push_back(segEnd - at);
                                    startRate = endRate;
                                    at = segEnd;
                                    if (segEnd == p + segmentCapacity(cp.style, s)) p = segEnd, ++s;
                                }
                                int inc = 0;
                                for (size_t k = 0; k < lens.size(); ++k) {
                                    const int need = floorLog2(std::max(1, lens[k])) + 1;
                                    inc = std::max(inc, need - cb.lblock - floorLog2(np[k]));
                                }
                                for (int k = 0; k < inc; ++k) bw.bit(1);
                                bw.bit(0);
                                cb.lblock += inc;
                                for (size_t k = 0; k < lens.size(); ++k)
                                    bw.bits(static_cast<uint32_t>(lens[k]), cb.lblock + floorLog2(np[k]));
                                parts.push_back({&cb, {firstRate, startRate}});
                            }
                        }
                    }
                    bw.flush();
                    body.insert(body.end(), bw.out.begin(), bw.out.end());
                    if (o.eph) put16(body, 0xFF92);
                    for (auto& pr : parts)
                        body.insert(body.end(), pr.first->code.begin() + pr.second.first,
                                    pr.first->code.begin() + pr.second.second);
                }
        return body;
    };

    // Rate control: per layer one slope threshold, by bisection on the exact
    // size of the codestream up to that layer.
    const size_t headerBytes = 2 + (2 + 38 + 3 * C) + 14 + (o.irreversible ? 5 + 2 * nb : 5 + nb) + 2;
    for (int l = 0; l < static_cast<int>(o.rates.size()); ++l) {
        if (o.rates[l] <= 0) {
            for (auto& jb : jobs)
                for (int k = l; k < layers; ++k) jb.cb->layerKeep[k] = jb.cb->codedPasses;
            continue;
        }
        const double budget = o.rates[l] * W * H / 8.0;
        auto apply = [&](double lambda) {
            for (size_t j = 0; j < jobs.size(); ++j) {
                CodeBlock& cb = *jobs[j].cb;
                int keep = 0;
                for (auto& h : hulls[j])
                    if (h.second >= lambda) keep = h.first + 1;
                if (l > 0) keep = std::max(keep, cb.layerKeep[l - 1]);
                for (int k = l; k < layers; ++k) cb.layerKeep[k] = keep;
            }
            size_t total = headerBytes;
            for (auto& tcs : tiles) total += buildBody(tcs, l + 1).size() + 14;
            return static_cast<double>(total);
        };
        double lo = 0, hi = 1e300;
        if (apply(0) <= budget) continue;
        double probe = 1e-6;
        while (probe < 1e290 && apply(probe) > budget) lo = probe, probe *= 16;
        hi = probe;
        for (int it = 0; it < 60 && hi / std::max(lo, 1e-300) > 1.000001; ++it) {
            const double mid = lo == 0 ? hi / 16 : std::sqrt(lo * hi);
            if (apply(mid) > budget) lo = mid;
            else hi = mid;
        }
        apply(hi);
    }

    gClock.mark("rate");
    std::vector<uint8_t> cs;
    put16(cs, 0xFF4F);
    put16(cs, 0xFF51);
    put16(cs, 38 + 3 * C);
    put16(cs, 0);
    put32(cs, static_cast<uint32_t>(W)), put32(cs, static_cast<uint32_t>(H)), put32(cs, 0), put32(cs, 0);
    put32(cs, static_cast<uint32_t>(tileW)), put32(cs, static_cast<uint32_t>(tileH)), put32(cs, 0), put32(cs, 0);
    put16(cs, C);
    for (int c = 0; c < C; ++c) cs.push_back(prec - 1), cs.push_back(1), cs.push_back(1);
    put16(cs, 0xFF52);
    put16(cs, 12);
    cs.push_back(static_cast<uint8_t>((o.sop ? 2 : 0) | (o.eph ? 4 : 0)));
    cs.push_back(static_cast<uint8_t>(cp.order)), put16(cs, layers);
    cs.push_back(static_cast<uint8_t>(cp.mct));
    cs.push_back(static_cast<uint8_t>(cp.levels));
    cs.push_back(static_cast<uint8_t>(cp.cbw - 2)), cs.push_back(static_cast<uint8_t>(cp.cbh - 2));
    cs.push_back(static_cast<uint8_t>(styleToMarker(cp.style)));
    cs.push_back(static_cast<uint8_t>(cp.reversible));
    put16(cs, 0xFF5C);
    if (o.irreversible) {
        put16(cs, 3 + 2 * nb);
        cs.push_back(static_cast<uint8_t>((cp.guard << 5) | 2));
        for (int i = 0; i < nb; ++i) put16(cs, (cp.expn[i] << 11) | cp.mant[i]);
    } else {
        put16(cs, 3 + nb);
        cs.push_back(static_cast<uint8_t>(cp.guard << 5));
        for (int i = 0; i < nb; ++i) cs.push_back(static_cast<uint8_t>(cp.expn[i] << 3));
    }
    for (int t = 0; t < tilesX * tilesY; ++t) {
        const std::vector<uint8_t> body = buildBody(tiles[t], layers);
        put16(cs, 0xFF90);
        put16(cs, 10);
        put16(cs, t);
        put32(cs, static_cast<uint32_t>(12 + 2 + body.size()));
        cs.push_back(0), cs.push_back(1);
        put16(cs, 0xFF93);
        cs.insert(cs.end(), body.begin(), body.end());
    }
    gClock.mark("packets");
    put16(cs, 0xFFD9);
    return cs;
}

void box(std::vector<uint8_t>& out, const char* type, const std::vector<uint8_t>& payload) {
    put32(out, static_cast<uint32_t>(8 + payload.size()));
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), payload.begin(), payload.end());
}

std::vector<uint8_t> wrapJp2(const std::vector<uint8_t>& cs, const Image& img) {
    std::vector<uint8_t> out;
    box(out, "jP  ", {0x0D, 0x0A, 0x87, 0x0A});
    std::vector<uint8_t> ftyp = {'j', 'p', '2', ' ', 0, 0, 0, 0, 'j', 'p', '2', ' '};
    box(out, "ftyp", ftyp);
    std::vector<uint8_t> ihdr, colr, jp2h;
    put32(ihdr, static_cast<uint32_t>(img.height)), put32(ihdr, static_cast<uint32_t>(img.width));
    put16(ihdr, img.channels);
    ihdr.push_back(7), ihdr.push_back(7), ihdr.push_back(0), ihdr.push_back(0);
    colr = {1, 0, 0};
    put32(colr, img.channels == 3 ? 16 : 17);
    box(jp2h, "ihdr", ihdr);
    box(jp2h, "colr", colr);
    box(out, "jp2h", jp2h);
    box(out, "jp2c", cs);
    return out;
}

int usage() {
    std::fprintf(stderr,
                 "usage: zebj2k encode [-n levels] [-b W,H] [-M style] [-I] [-q step] [-r bpp[,bpp...]] [-p order] [-t W,H] [-SOP] [-EPH] [-v] in out.(j2k|j2c|jp2)\n"
                 "       zebj2k decode [-r reduce] [-l layers] [-v] in.(j2k|j2c|jp2) out.(pgm|ppm|png)\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    const std::string cmd = argv[1];
    std::vector<std::string> files;
    try {
        if (cmd == "encode") {
            EncodeOptions o;
            for (int i = 2; i < argc; ++i) {
                const std::string a = argv[i];
                auto next = [&]() -> std::string {
                    if (i + 1 >= argc) throw FileError("option " + a + " needs a value");
                    return argv[++i];
                };
                if (a == "-n") o.levels = std::clamp(std::atoi(next().c_str()) - 1, 0, 32);
                else if (a == "-b") {
                    int w = 64, h = 64;
                    if (std::sscanf(next().c_str(), "%d,%d", &w, &h) != 2) throw FileError("-b takes W,H");
                    o.cbw = floorLog2(w), o.cbh = floorLog2(h);
                    if ((1 << o.cbw) != w || (1 << o.cbh) != h || o.cbw < 2 || o.cbh < 2 || o.cbw + o.cbh > 12)
                        throw FileError("bad code-block size");
                } else if (a == "-M") {
                    const int m = std::atoi(next().c_str());
                    o.style = styleFromMarker(((m & 1) ? 1 : 0) | ((m & 2) ? 2 : 0) | ((m & 4) ? 4 : 0) | ((m & 8) ? 8 : 0) |
                                              ((m & 32) ? 32 : 0));
                } else if (a == "-I") o.irreversible = true;
                else if (a == "-v") gClock.on = true;
                else if (a == "-q") o.step = std::atof(next().c_str());
                else if (a == "-r") {
                    const std::string v = next();
                    for (size_t at = 0; at <= v.size();) {
                        size_t comma = v.find(',', at);
                        if (comma == std::string::npos) comma = v.size();
                        o.rates.push_back(std::atof(v.substr(at, comma - at).c_str()));
                        at = comma + 1;
                    }
                    std::sort(o.rates.begin(), o.rates.end(), [](double x, double y) {
                        return (x <= 0 ? 1e300 : x) < (y <= 0 ? 1e300 : y);
                    });
                    if (o.rates.back() > 0) o.irreversible = true;  // a last layer of 0 keeps it lossless
                }
                else if (a == "-SOP") o.sop = true;
                else if (a == "-t") {
                    if (std::sscanf(next().c_str(), "%d,%d", &o.tileW, &o.tileH) != 2 || o.tileW < 1 || o.tileH < 1)
                        throw FileError("-t takes W,H");
                }
                else if (a == "-p") {
                    static const char* const kOrders[] = {"LRCP", "RLCP", "RPCL", "PCRL", "CPRL"};
                    const std::string v = next();
                    o.order = -1;
                    for (int k = 0; k < 5; ++k)
                        if (v == kOrders[k]) o.order = k;
                    if (o.order < 0) throw FileError("unknown progression order " + v);
                }
                else if (a == "-EPH") o.eph = true;
                else if (!a.empty() && a[0] == '-') return usage();
                else files.push_back(a);
            }
            if (files.size() != 2) return usage();
            gClock.mark("start");
            Image img = zebex::readImage(files[0]);
            gClock.mark("read");
            auto cs = encodeImage(img, o);
            if (zebex::endsWith(files[1], ".jp2")) cs = wrapJp2(cs, img);
            zebex::writeFile(files[1], cs);
            gClock.mark("write");
            gClock.print();
            return 0;
        }
        if (cmd == "decode") {
            Decoder d;
            for (int i = 2; i < argc; ++i) {
                const std::string a = argv[i];
                auto next = [&]() -> std::string {
                    if (i + 1 >= argc) throw FileError("option " + a + " needs a value");
                    return argv[++i];
                };
                if (a == "-r") d.reduce = std::max(0, std::atoi(next().c_str()));
                else if (a == "-l") d.maxLayers = std::max(1, std::atoi(next().c_str()));
                else if (a == "-v") gClock.on = true;
                else if (!a.empty() && a[0] == '-') return usage();
                else files.push_back(a);
            }
            if (files.size() != 2) return usage();
            const auto bytes = zebex::readFile(files[0]);
            d.run(bytes, files[1]);
            gClock.print();
            return 0;
        }
        return usage();
    } catch (const BadStream& e) {
        std::fprintf(stderr, "zebj2k: bad codestream: %s\n", e.what());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zebj2k: %s\n", e.what());
        return 1;
    }
}
