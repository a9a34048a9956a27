// Progressive 8x8 block coding: DC first and refinement scans in the 24-bit
// writer layout, AC first and refinement scans in the 64-bit writer layout
// with end-of-band runs and correction bits carried across calls in the
// state object; the matching decoders (AC decoders in a fast and a careful
// form) and the statistics operations that count what the encoders emit.
#include "jpeg/huffman/progressive.h"

#include <cstddef>
#include <cstdint>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/memory.h"
#include "jpeg/huffman/bitio.h"
#include "jpeg/huffman/huffman.h"
#include "jpeg/zigzag.h"

namespace zeb::jpeg::huff {

namespace {

constexpr size_t kOffBitCount = offsetof(EncodeHuffmanState, bitCount);
constexpr size_t kOffEobRun = offsetof(EncodeHuffmanState, eobRun);
constexpr size_t kOffCorrCount = offsetof(EncodeHuffmanState, correctionCount);
constexpr size_t kOffCorrBits = offsetof(EncodeHuffmanState, correctionBits);
constexpr size_t kOffDecEobRun = offsetof(DecodeHuffmanState, eobRun);

inline int16_t coef(const uint8_t* block, int natural) { return loadAs<int16_t>(block + 2 * natural); }
inline void setCoef(uint8_t* block, int natural, int32_t v) { storeAs<int16_t>(block + 2 * natural, wrap16(v)); }

bool badBand(int Ss, int Se, int Al) {
    return Ss < 1 || Ss > 63 || Se < Ss || Se > 63 || Al < 0 || Al > 13;
}

// ------------------------------------------------------------ AC encoder state

// Everything an AC scan carries between calls. A state that these coders did
// not produce is clamped into the ranges they rely on.
struct AcState {
    uint8_t* st;
    uint64_t acc;
    int cnt;
    int eobRun;
    int corrCount;

    explicit AcState(EncodeHuffmanState* s) : st(reinterpret_cast<uint8_t*>(s)) {
        int c = loadAs<int32_t>(st + kOffBitCount);
        cnt = c < 0 ? 0 : (c > 63 ? 63 : c);
        acc = loadAs<uint64_t>(st);
        int e = loadAs<int32_t>(st + kOffEobRun);
        eobRun = e < 0 ? 0 : e;
        int n = loadAs<int32_t>(st + kOffCorrCount);
        corrCount = n < 0 ? 0 : (n > 1024 - 64 ? 1024 - 64 : n);
    }
    uint8_t* corrBits() { return st + kOffCorrBits; }
    void storeBits(uint64_t a, int c) {
        storeAs<uint64_t>(st, c == 0 ? 0 : a & (~uint64_t{0} >> (64 - c)));
        storeAs<int32_t>(st + kOffBitCount, c);
    }
    void storeRuns() {
        storeAs<int32_t>(st + kOffEobRun, eobRun);
        storeAs<int32_t>(st + kOffCorrCount, corrCount);
    }
};

// Writes the pending end-of-band run (if any) and then the pending correction
// bits. A run of 2^15 or more has no symbol (-63).
int emitRun(Writer64& w, AcState& s, EncSpec ac) {
    if (s.eobRun > 0) {
        int st;
        if (s.eobRun == 1) {
            st = w.putCode(ac.entry(0x00));
        } else {
            int n = 31 - __builtin_clz(static_cast<uint32_t>(s.eobRun));
            if (n > 14) return kNoCode;
            st = w.putCode(ac.entry(static_cast<unsigned>(n << 4)));
            if (st == kOk) st = w.put(static_cast<uint32_t>(s.eobRun) & ((1u << n) - 1u), n);
        }
        if (st != kOk) return st;
        s.eobRun = 0;
    }
    const uint8_t* cb = s.corrBits();
    for (int i = 0; i < s.corrCount; ++i) {
        int st = w.put(cb[i] & 1u, 1);
        if (st != kOk) {
            // The bits already written leave the backlog.
            uint8_t* m = s.corrBits();
            for (int j = i; j < s.corrCount; ++j) m[j - i] = m[j];
            s.corrCount -= i;
            return st;
        }
    }
    s.corrCount = 0;
    return kOk;
}

// The shared flush of the AC scans: run and correction bits, padding with one
// bits to a byte boundary, all whole bytes out, then the bits and the
// correction backlog cleared. eobRun keeps what the first step left.
int flushAc(uint8_t* dst, int dstLen, int* dstPos, EncodeHuffmanState* state, EncSpec ac) {
    AcState s(state);
    Writer64 w{dst, dstLen, loadAs<int>(dstPos), s.acc, s.cnt};
    int st = emitRun(w, s, ac);
    int pad = (8 - (w.cnt & 7)) & 7;
    int st2 = pad != 0 ? w.put((1u << pad) - 1u, pad) : kOk;
    if (st2 == kOk) st2 = w.drain();
    storeAs<int>(dstPos, w.pos);
    s.corrCount = 0;
    s.storeBits(0, 0);
    s.storeRuns();
    ownsZero_8u(s.corrBits(), 1024);
    return st != kOk ? st : st2;
}

// ------------------------------------------------------------ AC encoders

int encodeACFirst(const uint8_t* block, Writer64& w, AcState& s, int Ss, int Se, int Al, EncSpec ac) {
    int run = 0;
    for (int k = Ss; k <= Se; ++k) {
        const int32_t v = coef(block, kZigzag[k]);
        const uint32_t a = magnitude(v) >> Al;
        if (a == 0) {
            ++run;
            continue;
        }
        int st;
        if (s.eobRun > 0 && (st = emitRun(w, s, ac)) != kOk) return st;
        for (; run > 15; run -= 16)
            if ((st = w.putCode(ac.entry(0xF0))) != kOk) return st;
        const int n = 32 - __builtin_clz(a);
        if (n > 11) return kNoCode;
        if ((st = w.putCode(ac.entry(static_cast<unsigned>(run * 16 + n)))) != kOk) return st;
        const uint32_t bits = (v < 0 ? ~a : a) & ((1u << n) - 1u);
        if ((st = w.put(bits, n)) != kOk) return st;
        run = 0;
    }
    if (run > 0) {
        ++s.eobRun;
        if (s.eobRun >= kMaxEobRun) return emitRun(w, s, ac);
    }
    return kOk;
}

int encodeACRefine(const uint8_t* block, Writer64& w, AcState& s, int Ss, int Se, int Al, EncSpec ac) {
    uint16_t a[64];
    int last = -1;
    for (int k = Ss; k <= Se; ++k) {
        a[k] = static_cast<uint16_t>(magnitude(coef(block, kZigzag[k])) >> Al);
        if (a[k] == 1) last = k;
    }
    uint8_t pending[64];
    int np = 0, run = 0, st;
    auto writePending = [&]() {
        for (int i = 0; i < np; ++i) {
            int r = w.put(pending[i], 1);
            if (r != kOk) return r;
        }
        np = 0;
        return kOk;
    };
    for (int k = Ss; k <= Se; ++k) {
        if (a[k] == 0) {
            ++run;
            continue;
        }
        while (run > 15 && k <= last) {
            if ((st = emitRun(w, s, ac)) != kOk) return st;
            if ((st = w.putCode(ac.entry(0xF0))) != kOk) return st;
            run -= 16;
            if ((st = writePending()) != kOk) return st;
        }
        if (a[k] > 1) {
            pending[np++] = static_cast<uint8_t>(a[k] & 1u);
            continue;
        }
        if ((st = emitRun(w, s, ac)) != kOk) return st;
        if ((st = w.putCode(ac.entry(static_cast<unsigned>(run * 16 + 1)))) != kOk) return st;
        if ((st = w.put(coef(block, kZigzag[k]) > 0 ? 1u : 0u, 1)) != kOk) return st;
        if ((st = writePending()) != kOk) return st;
        run = 0;
    }
    if (run > 0 || np > 0) {
        ++s.eobRun;
        uint8_t* cb = s.corrBits();
        for (int i = 0; i < np; ++i) cb[s.corrCount + i] = pending[i];
        s.corrCount += np;
        if (s.corrCount > kMaxCorrections || s.eobRun >= kMaxEobRun) return emitRun(w, s, ac);
    }
    return kOk;
}

template <bool Refine>
int encodeAC(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos, int Ss, int Se, int Al,
             const EncodeHuffmanSpec* acSpec, EncodeHuffmanState* state) {
    AcState s(state);
    Writer64 w{dst, dstLen, loadAs<int>(dstPos), s.acc, s.cnt};
    EncSpec ac{reinterpret_cast<const uint8_t*>(acSpec)};
    const uint8_t* block = reinterpret_cast<const uint8_t*>(src);
    int st = Refine ? encodeACRefine(block, w, s, Ss, Se, Al, ac) : encodeACFirst(block, w, s, Ss, Se, Al, ac);
    storeAs<int>(dstPos, w.pos);
    s.storeBits(w.acc, w.cnt);
    s.storeRuns();
    return st;
}

// ------------------------------------------------------------ statistics

// The AC statistics keep eobRun and correctionCount in the state, no bits.
struct StatRun {
    uint8_t* st;
    int eobRun;
    int corrCount;
    explicit StatRun(EncodeHuffmanState* s) : st(reinterpret_cast<uint8_t*>(s)) {
        int e = loadAs<int32_t>(st + kOffEobRun);
        eobRun = e < 0 ? 0 : e;
        int n = loadAs<int32_t>(st + kOffCorrCount);
        corrCount = n < 0 ? 0 : n;
    }
    void store() {
        storeAs<int32_t>(st + kOffEobRun, eobRun);
        storeAs<int32_t>(st + kOffCorrCount, corrCount);
    }
};

inline void count(uint8_t* stats, unsigned sym) {
    uint8_t* p = stats + 4 * size_t{sym & 0xFFu};
    storeAs<int32_t>(p, add32(loadAs<int32_t>(p), 1));
}

int countRun(StatRun& s, uint8_t* stats) {
    if (s.eobRun > 0) {
        if (s.eobRun == 1) {
            count(stats, 0x00);
        } else {
            int n = 31 - __builtin_clz(static_cast<uint32_t>(s.eobRun));
            if (n > 14) return kNoCode;
            count(stats, static_cast<unsigned>(n << 4));
        }
        s.eobRun = 0;
    }
    s.corrCount = 0;
    return kOk;
}

int statsACFirst(const uint8_t* block, uint8_t* stats, StatRun& s, int Ss, int Se, int Al) {
    int run = 0, st;
    for (int k = Ss; k <= Se; ++k) {
        const uint32_t a = magnitude(coef(block, kZigzag[k])) >> Al;
        if (a == 0) {
            ++run;
            continue;
        }
        if (s.eobRun > 0 && (st = countRun(s, stats)) != kOk) return st;
        for (; run > 15; run -= 16) count(stats, 0xF0);
        const int n = 32 - __builtin_clz(a);
        if (n > 10) return kNoCode;
        count(stats, static_cast<unsigned>(run * 16 + n));
        run = 0;
    }
    if (run > 0) {
        ++s.eobRun;
        if (s.eobRun >= kMaxEobRun) return countRun(s, stats);
    }
    return kOk;
}

int statsACRefine(const uint8_t* block, uint8_t* stats, StatRun& s, int Ss, int Se, int Al) {
    uint16_t a[64];
    int last = -1;
    for (int k = Ss; k <= Se; ++k) {
        a[k] = static_cast<uint16_t>(magnitude(coef(block, kZigzag[k])) >> Al);
        if (a[k] == 1) last = k;
    }
    int np = 0, run = 0, st;
    for (int k = Ss; k <= Se; ++k) {
        if (a[k] == 0) {
            ++run;
            continue;
        }
        while (run > 15 && k <= last) {
            if ((st = countRun(s, stats)) != kOk) return st;
            count(stats, 0xF0);
            run -= 16;
            np = 0;
        }
        if (a[k] > 1) {
            ++np;
            continue;
        }
        if ((st = countRun(s, stats)) != kOk) return st;
        count(stats, static_cast<unsigned>(run * 16 + 1));
        np = 0;
        run = 0;
    }
    if (run > 0 || np > 0) {
        ++s.eobRun;
        s.corrCount += np;
        if (s.corrCount > kMaxCorrections || s.eobRun >= kMaxEobRun) return countRun(s, stats);
    }
    return kOk;
}

// ------------------------------------------------------------ decoders

// Reader state of a scan: acc/cnt as in the baseline decoder, plus eobRun.
template <class R>
ZEB_HUFF_INLINE int readBits(R& r, int n, uint32_t& v) {
    if (r.cnt < n) {
        int st = r.fill(n);
        if (st != kOk) return st;
    }
    v = r.peek(n);
    r.skip(n);
    return kOk;
}

template <class R>
ZEB_HUFF_INLINE int acFirstSteps(R& r, DecSpec acs, uint8_t* out, int Ss, int Se, int Al, int& eobRun) {
    for (int k = Ss; k <= Se;) {
        int sym, st;
        if ((st = decodeSymbol(r, acs, sym)) != kOk) return st;
        const int rr = (sym >> 4) & 15, s = sym & 15;
        if (s != 0) {
            k += rr;
            int32_t v;
            if ((st = receiveExtend(r, s, v)) != kOk) return st;
            if (k >= 72) return kRunPastBlock;
            setCoef(out, kZext.z[k], shl32(v, Al));
            ++k;
        } else if (rr == 15) {
            k += 16;
        } else {
            uint32_t extra = 0;
            if (rr != 0 && (st = readBits(r, rr, extra)) != kOk) return st;
            eobRun = static_cast<int>((1u << rr) - 1u + extra);
            break;
        }
    }
    return kOk;
}

// Zigzag positions a..b as a bit mask (empty when a > b).
inline uint64_t band(int a, int b) {
    if (a > b || a > 63) return 0;
    return (~uint64_t{0} >> (63 - b)) & (~uint64_t{0} << a);
}

// One correction bit for each non-zero coefficient of the mask, in zigzag
// order: a set bit adds p1 (away from zero) where bit Al is still clear.
// The bits already in the accumulator are taken up to 16 at a time; the
// reader is asked for more exactly when a bit-by-bit reading would ask (no
// bit left), so that buffer ends and markers act at the same coefficient.
template <class R>
ZEB_HUFF_INLINE int correct(R& r, uint8_t* out, uint64_t m, int32_t p1) {
    while (m != 0) {
        if (r.cnt < 1) {
            int st = r.fill(1);
            if (st != kOk) return st;
        }
        int n = __builtin_popcountll(m);
        if (n > 16) n = 16;
        if (n > r.cnt) n = r.cnt;
        const uint32_t bits = r.peek(n);
        r.skip(n);
        for (int i = n - 1; i >= 0; --i) {
            const int k = __builtin_ctzll(m);
            m &= m - 1;
            if ((bits >> i) & 1u) {
                const int pos = kZigzag[k];
                const int32_t c = coef(out, pos);
                if ((c & p1) == 0) setCoef(out, pos, c >= 0 ? c + p1 : c - p1);
            }
        }
    }
    return kOk;
}

// The walk of the refinement decoder works on a mask of the non-zero
// coefficients in zigzag order: a run of r zeros ends at the (r + 1)-th zero
// from k (or behind Se), and the non-zero coefficients it passes take one
// correction bit each.
template <class R>
ZEB_HUFF_INLINE int acRefineSteps(R& r, DecSpec acs, uint8_t* out, int Ss, int Se, int Al, int& eobRun) {
    const int32_t p1 = int32_t{1} << Al;
    uint64_t nz = nonZeroMask(out);
    int k = Ss, st;
    if (eobRun == 0) {
        for (; k <= Se; ++k) {
            int sym;
            if ((st = decodeSymbol(r, acs, sym)) != kOk) return st;
            const int rr = (sym >> 4) & 15;
            const int s = sym & 15;
            int32_t nw = 0;
            if (s != 0) {
                uint32_t bit;
                if ((st = readBits(r, 1, bit)) != kOk) return st;
                nw = bit != 0 ? p1 : -p1;
            } else if (rr != 15) {
                uint32_t extra = 0;
                if (rr != 0 && (st = readBits(r, rr, extra)) != kOk) return st;
                eobRun = static_cast<int>((1u << rr) + extra);
                break;
            }
            const uint64_t zeros = ~nz & band(k, Se);
            int stop = Se + 1;
            if (__builtin_popcountll(zeros) > rr) stop = __builtin_ctzll(_pdep_u64(uint64_t{1} << rr, zeros));
            if ((st = correct(r, out, nz & band(k, stop - 1), p1)) != kOk) return st;
            k = stop;
            if (nw != 0) {
                setCoef(out, kZext.z[k], nw);
                nz |= uint64_t{1} << (k > 63 ? 63 : k);
            }
        }
    }
    if (eobRun > 0) {
        if ((st = correct(r, out, nz & band(k, Se), p1)) != kOk) return st;
        --eobRun;
    }
    return kOk;
}

inline int loadDecEob(const uint8_t* stb) {
    int e = loadAs<int32_t>(stb + kOffDecEobRun);
    return e < 0 ? 0 : e;
}
inline void storeDecBits(uint8_t* stb, uint32_t acc, int cnt) {
    storeAs<uint64_t>(stb, acc);
    storeAs<int32_t>(stb + offsetof(DecodeHuffmanState, bitCount), cnt);
}

template <bool Refine>
ZEB_HUFF_INLINE int decodeACFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se,
                                 int Al, const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    const int pos = loadAs<int>(srcPos);
    if (pos < 0 || srcLen - pos < 8 || loadAs<int>(marker) != 0) return kGiveUp;
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    int eobRun = loadDecEob(stb);
    if (!Refine && eobRun > 0) {
        storeAs<int32_t>(stb + kOffDecEobRun, eobRun - 1);
        return kOk;
    }
    FastReader r{src, srcLen, pos, 0, 0, 0};
    loadDecState(stb, r.acc, r.cnt);
    r.sync();
    DecSpec acs{reinterpret_cast<const uint8_t*>(acSpec)};
    uint8_t* o = reinterpret_cast<uint8_t*>(dst);
    if constexpr (Refine) {
        // Refinement adds to the block, so it works on a copy: giving up
        // leaves the block as it was for the careful form.
        alignas(32) uint8_t blk[128];
        __m256i* b = reinterpret_cast<__m256i*>(blk);
        for (int i = 0; i < 4; ++i) _mm256_store_si256(b + i, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(o + 32 * i)));
        if (acRefineSteps(r, acs, blk, Ss, Se, Al, eobRun) != kOk) return kGiveUp;
        for (int i = 0; i < 4; ++i) _mm256_storeu_si256(reinterpret_cast<__m256i*>(o + 32 * i), _mm256_load_si256(b + i));
    } else {
        // A first scan only stores decoded values: if it gives up, the careful
        // form reads the same bits and stores the same values again.
        if (acFirstSteps(r, acs, o, Ss, Se, Al, eobRun) != kOk) return kGiveUp;
    }
    storeAs<int>(srcPos, r.position());
    storeDecBits(stb, r.acc, r.cnt);
    storeAs<int32_t>(stb + kOffDecEobRun, eobRun);
    return kOk;
}

template <bool Refine>
int decodeACCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se, int Al,
                    const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    int eobRun = loadDecEob(stb);
    if (!Refine && eobRun > 0) {
        storeAs<int32_t>(stb + kOffDecEobRun, eobRun - 1);
        return kOk;
    }
    Reader<true> r{src, srcLen, loadAs<int>(srcPos), 0, 0, loadAs<int>(marker)};
    loadDecState(stb, r.acc, r.cnt);
    DecSpec acs{reinterpret_cast<const uint8_t*>(acSpec)};
    uint8_t* out = reinterpret_cast<uint8_t*>(dst);
    int st = Refine ? acRefineSteps(r, acs, out, Ss, Se, Al, eobRun) : acFirstSteps(r, acs, out, Ss, Se, Al, eobRun);
    if (st == kMarkerStop) st = zebStatusJpegCoefficientRange;
    storeAs<int>(srcPos, r.pos);
    storeAs<int>(marker, r.marker);
    storeDecBits(stb, r.acc, r.cnt);
    storeAs<int32_t>(stb + kOffDecEobRun, eobRun);
    return st;
}

}  // namespace

int decodeACFirstFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se, int Al,
                      const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    return decodeACFast<false>(src, srcLen, srcPos, dst, marker, Ss, Se, Al, acSpec, state);
}
int decodeACFirstCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se, int Al,
                         const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    return decodeACCareful<false>(src, srcLen, srcPos, dst, marker, Ss, Se, Al, acSpec, state);
}
int decodeACRefineFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se, int Al,
                       const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    return decodeACFast<true>(src, srcLen, srcPos, dst, marker, Ss, Se, Al, acSpec, state);
}
int decodeACRefineCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se,
                          int Al, const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    return decodeACCareful<true>(src, srcLen, srcPos, dst, marker, Ss, Se, Al, acSpec, state);
}

}  // namespace zeb::jpeg::huff

// ------------------------------------------------------------ exports

using namespace zeb::jpeg::huff;
using zeb::loadAs;
using zeb::storeAs;
using zeb::jpeg::kZigzag;

namespace {

// The flush of the DC scans: seven one bits, then the state is reset.
int flushDc(Zeb8u* dst, int dstLen, int* dstPos, EncodeHuffmanState* state) {
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
    loadEncState(stb, w.acc, w.cnt);
    int st = w.put(127, 7);
    storeAs<int>(dstPos, w.pos);
    ownsZero_8u(stb, kEncodeStateSize);
    return st;
}

}  // namespace

ZebStatus zebimpl::zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                              Zeb16s* lastDC, int Al, const EncodeHuffmanSpec* dcSpec,
                                                              EncodeHuffmanState* state, int flush) {
    if (dst == nullptr) return zebStatusNullPointer;
    if (dstLen < 1) return zebStatusBadSize;
    if (dstPos == nullptr || state == nullptr) return zebStatusNullPointer;
    if (flush != 0) return flushDc(dst, dstLen, dstPos, state);
    if (src == nullptr || lastDC == nullptr) return zebStatusNullPointer;
    if (Al < 0 || Al > 13) return zebStatusBadArgument;
    if (dcSpec == nullptr) return zebStatusNullPointer;
    const int32_t t = int32_t{loadAs<int16_t>(src)} >> Al;
    const int32_t diff = t - loadAs<int16_t>(lastDC);
    storeAs<int16_t>(lastDC, static_cast<int16_t>(t));
    const int c = category(diff);
    if (c >= 12) return zebStatusJpegCoefficientRange;
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
    loadEncState(stb, w.acc, w.cnt);
    int st = w.putCode(EncSpec{reinterpret_cast<const uint8_t*>(dcSpec)}.entry(static_cast<unsigned>(c)));
    if (st == kOk && c != 0) st = w.put(valueBits(diff, c), c);
    storeAs<int>(dstPos, w.pos);
    storeEncState(stb, w.acc, w.cnt);
    return st;
}

ZebStatus zebimpl::zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen,
                                                               int* dstPos, int Al, EncodeHuffmanState* state,
                                                               int flush) {
    if (dst == nullptr) return zebStatusNullPointer;
    if (dstLen < 1) return zebStatusBadSize;
    if (dstPos == nullptr || state == nullptr) return zebStatusNullPointer;
    if (flush != 0) return flushDc(dst, dstLen, dstPos, state);
    if (src == nullptr) return zebStatusNullPointer;
    if (Al < 0 || Al > 13) return zebStatusBadArgument;
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
    loadEncState(stb, w.acc, w.cnt);
    int st = w.put((static_cast<uint32_t>(static_cast<uint16_t>(loadAs<int16_t>(src))) >> Al) & 1u, 1);
    storeAs<int>(dstPos, w.pos);
    storeEncState(stb, w.acc, w.cnt);
    return st;
}

ZebStatus zebimpl::zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                              int Ss, int Se, int Al, const EncodeHuffmanSpec* acSpec,
                                                              EncodeHuffmanState* state, int flush) {
    if (dst == nullptr) return zebStatusNullPointer;
    if (dstLen < 1) return zebStatusBadSize;
    if (dstPos == nullptr || state == nullptr || acSpec == nullptr) return zebStatusNullPointer;
    EncSpec ac{reinterpret_cast<const uint8_t*>(acSpec)};
    if (flush != 0) return flushAc(dst, dstLen, dstPos, state, ac);
    if (src == nullptr) return zebStatusNullPointer;
    if (badBand(Ss, Se, Al)) return zebStatusBadArgument;
    return encodeAC<false>(src, dst, dstLen, dstPos, Ss, Se, Al, acSpec, state);
}

ZebStatus zebimpl::zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen,
                                                               int* dstPos, int Ss, int Se, int Al,
                                                               const EncodeHuffmanSpec* acSpec,
                                                               EncodeHuffmanState* state, int flush) {
    if (dst == nullptr) return zebStatusNullPointer;
    if (dstLen < 1) return zebStatusBadSize;
    if (dstPos == nullptr || state == nullptr || acSpec == nullptr) return zebStatusNullPointer;
    EncSpec ac{reinterpret_cast<const uint8_t*>(acSpec)};
    if (flush != 0) return flushAc(dst, dstLen, dstPos, state, ac);
    if (src == nullptr) return zebStatusNullPointer;
    if (badBand(Ss, Se, Al)) return zebStatusBadArgument;
    return encodeAC<true>(src, dst, dstLen, dstPos, Ss, Se, Al, acSpec, state);
}

ZebStatus zebimpl::zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                              Zeb16s* lastDC, int* marker, int Al,
                                                              const DecodeHuffmanSpec* dcSpec,
                                                              DecodeHuffmanState* state) {
    if (src == nullptr) return zebStatusNullPointer;
    if (srcLen < 1) return zebStatusBadSize;
    if (srcPos == nullptr || dst == nullptr || lastDC == nullptr || marker == nullptr) return zebStatusNullPointer;
    if (Al < 0 || Al > 13) return zebStatusBadArgument;
    if (dcSpec == nullptr || state == nullptr) return zebStatusNullPointer;
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Reader<true> r{src, srcLen, loadAs<int>(srcPos), 0, 0, loadAs<int>(marker)};
    loadDecState(stb, r.acc, r.cnt);
    int sym;
    int st = decodeSymbol(r, DecSpec{reinterpret_cast<const uint8_t*>(dcSpec)}, sym);
    if (st == kOk) {
        int16_t dc = loadAs<int16_t>(lastDC);
        const int s = sym & 15;
        int32_t v = 0;
        if (s != 0) st = receiveExtend(r, s, v);
        if (st == kOk) {
            dc = zeb::wrap16(int32_t{dc} + v);
            storeAs<int16_t>(lastDC, dc);
            storeAs<int16_t>(dst, zeb::wrap16(zeb::shl32(dc, Al)));
        }
    }
    if (st == kMarkerStop) st = zebStatusJpegCoefficientRange;
    storeAs<int>(srcPos, r.pos);
    storeAs<int>(marker, r.marker);
    storeDecBits(stb, r.acc, r.cnt);
    return st;
}

ZebStatus zebimpl::zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                               int* marker, int Al, DecodeHuffmanState* state) {
    if (src == nullptr) return zebStatusNullPointer;
    if (srcLen < 1) return zebStatusBadSize;
    if (srcPos == nullptr || dst == nullptr || marker == nullptr) return zebStatusNullPointer;
    if (Al < 0 || Al > 13) return zebStatusBadArgument;
    if (state == nullptr) return zebStatusNullPointer;
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Reader<true> r{src, srcLen, loadAs<int>(srcPos), 0, 0, loadAs<int>(marker)};
    loadDecState(stb, r.acc, r.cnt);
    uint32_t bit;
    int st = readBits(r, 1, bit);
    if (st == kOk && bit != 0)
        storeAs<int16_t>(dst, static_cast<int16_t>(static_cast<uint16_t>(loadAs<int16_t>(dst)) | (1u << Al)));
    if (st == kMarkerStop) st = zebStatusJpegCoefficientRange;
    storeAs<int>(srcPos, r.pos);
    storeAs<int>(marker, r.marker);
    storeDecBits(stb, r.acc, r.cnt);
    return st;
}

ZebStatus zebimpl::zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                              int* marker, int Ss, int Se, int Al,
                                                              const DecodeHuffmanSpec* acSpec,
                                                              DecodeHuffmanState* state) {
    if (src == nullptr) return zebStatusNullPointer;
    if (srcLen < 1) return zebStatusBadSize;
    if (srcPos == nullptr || dst == nullptr || marker == nullptr) return zebStatusNullPointer;
    if (badBand(Ss, Se, Al)) return zebStatusBadArgument;
    if (acSpec == nullptr || state == nullptr) return zebStatusNullPointer;
    int st = decodeACFast<false>(src, srcLen, srcPos, dst, marker, Ss, Se, Al, acSpec, state);
    if (st != kGiveUp) return st;
    return decodeACCareful<false>(src, srcLen, srcPos, dst, marker, Ss, Se, Al, acSpec, state);
}

ZebStatus zebimpl::zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                               int* marker, int Ss, int Se, int Al,
                                                               const DecodeHuffmanSpec* acSpec,
                                                               DecodeHuffmanState* state) {
    if (src == nullptr) return zebStatusNullPointer;
    if (srcLen < 1) return zebStatusBadSize;
    if (srcPos == nullptr || dst == nullptr || marker == nullptr) return zebStatusNullPointer;
    if (badBand(Ss, Se, Al)) return zebStatusBadArgument;
    if (acSpec == nullptr || state == nullptr) return zebStatusNullPointer;
    int st = decodeACFast<true>(src, srcLen, srcPos, dst, marker, Ss, Se, Al, acSpec, state);
    if (st != kGiveUp) return st;
    return decodeACCareful<true>(src, srcLen, srcPos, dst, marker, Ss, Se, Al, acSpec, state);
}

ZebStatus zebimpl::zebiGetHuffmanStatistics8x8_JPEG_16s_C1(const Zeb16s* src, Zeb32s* dcStatistics,
                                                           Zeb32s* acStatistics, Zeb16s* lastDC) {
    if (src == nullptr || dcStatistics == nullptr || acStatistics == nullptr || lastDC == nullptr)
        return zebStatusNullPointer;
    const uint8_t* block = reinterpret_cast<const uint8_t*>(src);
    uint8_t* dcs = reinterpret_cast<uint8_t*>(dcStatistics);
    uint8_t* acs = reinterpret_cast<uint8_t*>(acStatistics);
    const int16_t s0 = loadAs<int16_t>(block);
    const int32_t diff = int32_t{s0} - loadAs<int16_t>(lastDC);
    storeAs<int16_t>(lastDC, s0);
    int c = category(diff);
    if (c > 15) return zebStatusJpegCoefficientRange;
    count(dcs, static_cast<unsigned>(c));
    int run = 0;
    for (int k = 1; k < 64; ++k) {
        const int32_t v = loadAs<int16_t>(block + 2 * kZigzag[k]);
        if (v == 0) {
            ++run;
            continue;
        }
        for (; run > 15; run -= 16) count(acs, 0xF0);
        c = category(v);
        if (c > 14) return zebStatusJpegCoefficientRange;
        count(acs, static_cast<unsigned>(run * 16 + c));
        run = 0;
    }
    if (run > 0) count(acs, 0x00);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(const Zeb16s* src, Zeb32s* dcStatistics,
                                                                   Zeb16s* lastDC, int Al) {
    if (src == nullptr || dcStatistics == nullptr || lastDC == nullptr) return zebStatusNullPointer;
    if (Al < 0 || Al > 13) return zebStatusBadArgument;
    const int32_t t = int32_t{loadAs<int16_t>(src)} >> Al;
    const int32_t diff = t - loadAs<int16_t>(lastDC);
    storeAs<int16_t>(lastDC, static_cast<int16_t>(t));
    const int c = category(diff);
    if (c > 11) return zebStatusJpegCoefficientRange;
    count(reinterpret_cast<uint8_t*>(dcStatistics), static_cast<unsigned>(c));
    return zebStatusOk;
}

namespace {

template <bool Refine>
ZebStatus statsAC(const Zeb16s* src, Zeb32s* acStatistics, int Ss, int Se, int Al, EncodeHuffmanState* state,
                  int flush) {
    if (acStatistics == nullptr || state == nullptr) return zebStatusNullPointer;
    uint8_t* stats = reinterpret_cast<uint8_t*>(acStatistics);
    StatRun s(state);
    if (flush != 0) {
        int st = countRun(s, stats);
        ownsZero_8u(reinterpret_cast<uint8_t*>(state), kEncodeStateSize);
        return st;
    }
    if (src == nullptr) return zebStatusNullPointer;
    if (badBand(Ss, Se, Al)) return zebStatusBadArgument;
    const uint8_t* block = reinterpret_cast<const uint8_t*>(src);
    int st = Refine ? statsACRefine(block, stats, s, Ss, Se, Al) : statsACFirst(block, stats, s, Ss, Se, Al);
    s.store();
    return st;
}

}  // namespace

ZebStatus zebimpl::zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(const Zeb16s* src, Zeb32s* acStatistics, int Ss,
                                                                   int Se, int Al, EncodeHuffmanState* state,
                                                                   int flush) {
    return statsAC<false>(src, acStatistics, Ss, Se, Al, state, flush);
}

ZebStatus zebimpl::zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(const Zeb16s* src, Zeb32s* acStatistics, int Ss,
                                                                    int Se, int Al, EncodeHuffmanState* state,
                                                                    int flush) {
    return statsAC<true>(src, acStatistics, Ss, Se, Al, state, flush);
}
