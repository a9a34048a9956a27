// A small reference decoder for JPEG 2000 code-blocks: the MQ decoder with
// its plain (not inverted) code register, the raw bit reader and the
// coefficient bit modelling, with its own neighbourhood logic computed from
// sample states, independent of the library's flag words and tables. Used to
// check that coded blocks decode back.
#pragma once

#include <cstdint>
#include <vector>

namespace t1ref {

// MQ probability rows: Qe, next on MPS, next on LPS, switch.
struct Row {
    uint32_t qe;
    int nmps, nlps, sw;
};
inline const Row kQe[47] = {
    {0x5601, 1, 1, 1},   {0x3401, 2, 6, 0},   {0x1801, 3, 9, 0},   {0x0AC1, 4, 12, 0},  {0x0521, 5, 29, 0},
    {0x0221, 38, 33, 0}, {0x5601, 7, 6, 1},   {0x5401, 8, 14, 0},  {0x4801, 9, 14, 0},  {0x3801, 10, 14, 0},
    {0x3001, 11, 17, 0}, {0x2401, 12, 18, 0}, {0x1C01, 13, 20, 0}, {0x1601, 29, 21, 0}, {0x5601, 15, 14, 1},
    {0x5401, 16, 14, 0}, {0x5101, 17, 15, 0}, {0x4801, 18, 16, 0}, {0x3801, 19, 17, 0}, {0x3401, 20, 18, 0},
    {0x3001, 21, 19, 0}, {0x2801, 22, 19, 0}, {0x2401, 23, 20, 0}, {0x2201, 24, 21, 0}, {0x1C01, 25, 22, 0},
    {0x1801, 26, 23, 0}, {0x1601, 27, 24, 0}, {0x1401, 28, 25, 0}, {0x1201, 29, 26, 0}, {0x1101, 30, 27, 0},
    {0x0AC1, 31, 28, 0}, {0x09C1, 32, 29, 0}, {0x08A1, 33, 30, 0}, {0x0521, 34, 31, 0}, {0x0441, 35, 32, 0},
    {0x02A1, 36, 33, 0}, {0x0221, 37, 34, 0}, {0x0141, 38, 35, 0}, {0x0111, 39, 36, 0}, {0x0085, 40, 37, 0},
    {0x0049, 41, 38, 0}, {0x0025, 42, 39, 0}, {0x0015, 43, 40, 0}, {0x0009, 44, 41, 0}, {0x0005, 45, 42, 0},
    {0x0001, 45, 43, 0}, {0x5601, 46, 46, 0},
};

// Standard context numbers: 0-8 zero coding, 9-13 sign, 14-16 refinement,
// 17 run-length, 18 uniform.
enum { kRL = 17, kUni = 18 };

struct Mq {
    const uint8_t* d = nullptr;
    int len = 0, bp = 0;
    uint32_t a = 0, c = 0;
    int ct = 0;
    int idx[19], mps[19];

    uint32_t byteAt(int i) const { return i < len ? d[i] : 0xFFu; }
    void resetContexts() {
        for (int i = 0; i < 19; ++i) idx[i] = 0, mps[i] = 0;
        idx[0] = 4;
        idx[kRL] = 3;
        idx[kUni] = 46;
    }
    void byteIn() {
        if (byteAt(bp) == 0xFF) {
            if (byteAt(bp + 1) > 0x8F) {
                c += 0xFF00;
                ct = 8;
            } else {
                ++bp;
                c += byteAt(bp) << 9;
                ct = 7;
            }
        } else {
            ++bp;
            c += byteAt(bp) << 8;
            ct = 8;
        }
    }
    void init(const uint8_t* data, int n) {
        d = data;
        len = n;
        bp = 0;
        c = byteAt(0) << 16;
        byteIn();
        c <<= 7;
        ct -= 7;
        a = 0x8000;
    }
    void renorm() {
        do {
            if (ct == 0) byteIn();
            a <<= 1;
            c <<= 1;
            --ct;
        } while ((a & 0x8000) == 0);
    }
    int decode(int cx) {
        const Row& r = kQe[idx[cx]];
        int dd;
        a -= r.qe;
        if ((c >> 16) < r.qe) {
            // Conditional exchange on the LPS side.
            if (a < r.qe) {
                dd = mps[cx];
                idx[cx] = r.nmps;
            } else {
                dd = 1 - mps[cx];
                if (r.sw) mps[cx] = 1 - mps[cx];
                idx[cx] = r.nlps;
            }
            a = r.qe;
            renorm();
            return dd;
        }
        c -= r.qe << 16;
        if (a & 0x8000) return mps[cx];
        if (a < r.qe) {
            dd = 1 - mps[cx];
            if (r.sw) mps[cx] = 1 - mps[cx];
            idx[cx] = r.nlps;
        } else {
            dd = mps[cx];
            idx[cx] = r.nmps;
        }
        renorm();
        return dd;
    }
};

struct Raw {
    const uint8_t* d = nullptr;
    int len = 0, pos = 0, bit = -1;
    uint32_t cur = 0;
    void init(const uint8_t* data, int n) { d = data, len = n, pos = 0, bit = -1, cur = 0; }
    int get() {
        if (bit < 0) {
            bit = cur == 0xFF ? 6 : 7;
            cur = pos < len ? d[pos] : 0xFF;
            ++pos;
        }
        return (cur >> bit--) & 1;
    }
};

// Decodes a block. style: bit set 1 causal, 2 bypass, 4 term-all, 8 reset, 16
// segmentation symbols. subband 2 HL, 3 HH, else LL/LH. planes: number of
// coded planes (S - L); passes: how many passes to decode. Segment lengths
// as the encoder reports them. Output: magnitudes (at plane 0 for the lowest
// coded plane) and signs. Returns false on a segmentation-symbol mismatch.
struct Decoder {
    int w, h, subband, style;
    std::vector<int> sig, neg, visit, refined;
    std::vector<uint32_t> mag;
    std::vector<int> last;  // plane of each sample's last decoded bit, -1 before it is significant

    Decoder(int width, int height, int sb, int st)
        : w(width), h(height), subband(sb), style(st), sig(w * h), neg(w * h), visit(w * h), refined(w * h),
          mag(w * h), last(w * h, -1) {}

    // Significance and sign of a neighbour, seen from (x, y).
    bool nsig(int x, int y, int nx, int ny) const {
        if (nx < 0 || ny < 0 || nx >= w || ny >= h) return false;
        if ((style & 1) && ny > y && (ny / 4) != (y / 4)) return false;  // causal: next stripe unseen
        return sig[ny * w + nx] != 0;
    }
    int contrib(int x, int y, int nx, int ny) const {
        if (!nsig(x, y, nx, ny)) return 0;
        return neg[ny * w + nx] ? -1 : 1;
    }
    int zcContext(int x, int y) const {
        int hh = nsig(x, y, x - 1, y) + nsig(x, y, x + 1, y);
        int vv = nsig(x, y, x, y - 1) + nsig(x, y, x, y + 1);
        int dd = nsig(x, y, x - 1, y - 1) + nsig(x, y, x + 1, y - 1) + nsig(x, y, x - 1, y + 1) +
                 nsig(x, y, x + 1, y + 1);
        if (subband == 3) {
            int hv = hh + vv;
            if (dd >= 3) return 8;
            if (dd == 2) return hv >= 1 ? 7 : 6;
            if (dd == 1) return hv >= 2 ? 5 : (hv == 1 ? 4 : 3);
            return hv >= 2 ? 2 : (hv == 1 ? 1 : 0);
        }
        if (subband == 2) std::swap(hh, vv);
        if (hh == 2) return 8;
        if (hh == 1) return vv >= 1 ? 7 : (dd >= 1 ? 6 : 5);
        if (vv == 2) return 4;
        if (vv == 1) return 3;
        return dd >= 2 ? 2 : (dd == 1 ? 1 : 0);
    }
    bool anyNeighbour(int x, int y) const {
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx)
                if ((dx || dy) && nsig(x, y, x + dx, y + dy)) return true;
        return false;
    }
    int decodeSign(Mq& mq, int x, int y) {
        int hc = contrib(x, y, x - 1, y) + contrib(x, y, x + 1, y);
        int vc = contrib(x, y, x, y - 1) + contrib(x, y, x, y + 1);
        hc = hc < -1 ? -1 : (hc > 1 ? 1 : hc);
        vc = vc < -1 ? -1 : (vc > 1 ? 1 : vc);
        int cx, x0r;
        if (hc == 1) cx = vc == 1 ? 13 : (vc == 0 ? 12 : 11), x0r = 0;
        else if (hc == 0) cx = vc == 0 ? 9 : 10, x0r = vc == -1;
        else cx = vc == 1 ? 11 : (vc == 0 ? 12 : 13), x0r = 1;
        return mq.decode(cx) ^ x0r;
    }

    void sigPass(int p, bool raw, Mq& mq, Raw& rw) {
        for (int y0 = 0; y0 < h; y0 += 4)
            for (int x = 0; x < w; ++x)
                for (int y = y0; y < y0 + 4 && y < h; ++y) {
                    int i = y * w + x;
                    if (sig[i] || !anyNeighbour(x, y)) continue;
                    int bit = raw ? rw.get() : mq.decode(zcContext(x, y));
                    visit[i] = 1;
                    if (bit) {
                        neg[i] = raw ? rw.get() : decodeSign(mq, x, y);
                        sig[i] = 1;
                        mag[i] |= 1u << p;
                        last[i] = p;
                    }
                }
    }
    void refPass(int p, bool raw, Mq& mq, Raw& rw) {
        for (int y0 = 0; y0 < h; y0 += 4)
            for (int x = 0; x < w; ++x)
                for (int y = y0; y < y0 + 4 && y < h; ++y) {
                    int i = y * w + x;
                    if (!sig[i] || visit[i]) continue;
                    int bit;
                    if (raw) {
                        bit = rw.get();
                    } else {
                        int cx = refined[i] ? 16 : (anyNeighbour(x, y) ? 15 : 14);
                        bit = mq.decode(cx);
                    }
                    refined[i] = 1;
                    mag[i] |= static_cast<uint32_t>(bit) << p;
                    last[i] = p;
                }
    }
    bool cleanPass(int p, Mq& mq) {
        for (int y0 = 0; y0 < h; y0 += 4)
            for (int x = 0; x < w; ++x) {
                int y = y0;
                if (y0 + 4 <= h) {
                    bool rl = true;
                    for (int k = 0; k < 4; ++k) {
                        int i = (y0 + k) * w + x;
                        if (sig[i] || visit[i] || anyNeighbour(x, y0 + k)) rl = false;
                    }
                    if (rl) {
                        if (!mq.decode(kRL)) {
                            y = y0 + 4;
                        } else {
                            int r = mq.decode(kUni) << 1;
                            r |= mq.decode(kUni);
                            int i = (y0 + r) * w + x;
                            neg[i] = decodeSign(mq, x, y0 + r);
                            sig[i] = 1;
                            mag[i] |= 1u << p;
                            last[i] = p;
                            y = y0 + r + 1;
                        }
                    }
                }
                for (; y < y0 + 4 && y < h; ++y) {
                    int i = y * w + x;
                    if (sig[i] || visit[i]) continue;
                    if (mq.decode(zcContext(x, y))) {
                        neg[i] = decodeSign(mq, x, y);
                        sig[i] = 1;
                        mag[i] |= 1u << p;
                        last[i] = p;
                    }
                }
            }
        for (auto& v : visit) v = 0;
        if (style & 16) {
            int s = 0;
            for (int k = 0; k < 4; ++k) s = (s << 1) | mq.decode(kUni);
            return s == 0xA;
        }
        return true;
    }

    // Decodes `passes` passes of a block with `planes` coded planes.
    bool run(const uint8_t* data, const std::vector<int>& segLens, int planes, int passes) {
        Mq mq;
        Raw rw;
        mq.resetContexts();
        int total = planes > 0 ? 3 * planes - 2 : 0;
        if (passes > total) passes = total;
        auto isRaw = [&](int k) { return (style & 2) && k >= 10 && (k % 3) != 0; };
        size_t seg = 0;
        int offset = 0;
        bool needStart = true, ok = true;
        for (int k = 0; k < passes; ++k) {
            const bool raw = isRaw(k);
            if (needStart) {
                int len = seg < segLens.size() ? segLens[seg] : 0;
                if (raw) rw.init(data + offset, len);
                else mq.init(data + offset, len);
                offset += len;
                ++seg;
                needStart = false;
            }
            int p = planes - 1 - (k + 2) / 3;
            int kind = k == 0 ? 2 : (k - 1) % 3;  // 0 sig, 1 ref, 2 cleanup
            if (kind == 0) sigPass(p, raw, mq, rw);
            else if (kind == 1) refPass(p, raw, mq, rw);
            else ok = cleanPass(p, mq) && ok;
            if (style & 8) mq.resetContexts();
            const bool term = (style & 4) || k == total - 1 || isRaw(k) != isRaw(k + 1);
            if (term) needStart = true;
        }
        return ok;
    }
};

}  // namespace t1ref
