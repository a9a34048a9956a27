// Code-block decoders: the progressive decoder, which decodes one codeword
// segment per call into a caller-held state and block, and the one-call
// decoder that drives it over a block's segment list and then cleans up
// after damage and takes the half-bits out.
//
// The coefficient model mirrors the encoder's exactly: the same stripe scan,
// flag words, marks and context tables. The MQ decoder keeps its code
// register inverted (the complement of the usual one), which lets a byte-in
// add the complement of the incoming byte.
#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/memory.h"
#include "jpeg2000/coding/decoder.h"

namespace zeb::j2k {

namespace {

inline constexpr int kPassMqCleanup = 0;
inline constexpr int kPassMqRefinement = 1;
inline constexpr int kPassMqSignificance = 2;
inline constexpr int kPassMqCleanupAfterRaw = 3;
inline constexpr int kPassRawRefinement = 4;
inline constexpr int kPassRawSignificance = 5;

// The MQ decoder's registers. Passes work on a local copy, so that stores to
// the block and the flag rows (which may alias anything) do not force the
// registers back to memory after every sample.
struct MqDecoder {
    const uint8_t* data;
    int len, pos;
    uint32_t a, c, ct;
    uint32_t ended;
    uint8_t cx[kContextCount];  // packed states: row * 2 + more probable symbol

    void resetContexts() {
        for (int i = 0; i < kContextCount; ++i) cx[i] = static_cast<uint8_t>(2 * kInitialState[i]);
    }

    [[gnu::always_inline]] uint32_t byteAt(int i) const { return i < len ? data[i] : 0xFFu; }

    void start(const uint8_t* src, int n) {
        data = src;
        len = n;
        const uint32_t b0 = n >= 1 ? src[0] : 0xFFu;
        const uint32_t b1 = n >= 2 ? src[1] : 0xFFu;
        c = (255 - b0) << 16;
        pos = 0;
        ended = 0;
        uint32_t t;
        if (n > 0 && b0 < 255) {
            pos = 1;
            c += 0xFF00u - (b1 << 8);
            t = 8;
        } else if (b1 < 144) {
            pos = 1;
            c += 0xFE00u - (b1 << 9);
            t = 7;
        } else {
            ended = 1;
            t = 8;
        }
        c <<= 7;
        ct = t - 7;
        a = 0x8000;
    }

    [[gnu::always_inline]] void byteIn() {
        if (ended) {
            ct = 8;
            return;
        }
        uint32_t b, b1;
        if (pos + 1 < len) {
            b = data[pos];
            b1 = data[pos + 1];
        } else {
            b = byteAt(pos);
            b1 = byteAt(pos + 1);
        }
        if (b < 255) {
            ++pos;
            c += 0xFF00u - (b1 << 8);
            ct = 8;
        } else if (b1 > 143) {
            ended = 1;
            ct = 8;
        } else {
            ++pos;
            c += 0xFE00u - (b1 << 9);
            ct = 7;
        }
    }

    // Doubles A and C until bit 15 of A is set, taking a byte in whenever
    // the counter has run out; the doublings between two byte-ins are done
    // as one shift.
    [[gnu::always_inline]] void renormalise() {
        do {
            if (ct == 0) byteIn();
            const uint32_t s = std::min<uint32_t>(static_cast<uint32_t>(__builtin_clz(a)) - 16, ct);
            a <<= s;
            c <<= s;
            ct -= s;
        } while ((a & 0x8000) == 0);
    }

    // One decision. The three outcomes (lower sub-interval, upper one with
    // and without renormalisation) and the conditional exchange are selected
    // without branches: which symbol comes out is rarely predictable.
    //   upper sub-interval (d <= C >> 16): C -= d << 16, A = Q, the MPS when
    //     d < Q, else the LPS;
    //   lower one: A = d; with bit 15 of d set the MPS and nothing else,
    //     otherwise the LPS when d < Q, else the MPS.
    // The result is the MPS flipped by (upper XOR d < Q); a renormalising
    // decision moves the state on by that result.
    [[gnu::always_inline]] uint32_t decode(uint32_t label) {
        const uint32_t s = cx[label];
        const MqPackedRow& r = kMqPackedRows[s];
        const uint32_t q = r.qe;
        const uint32_t d = a - q;
        const uint32_t upper = d <= (c >> 16) ? 1u : 0u;
        const uint32_t lps = upper ^ (d < q ? 1u : 0u);
        c -= (d << 16) & (0u - upper);
        const uint32_t na = upper ? q : d;
        a = na;
        if (na & 0x8000) return s & 1;
        cx[label] = lps ? r.nextLps : r.nextMps;
        renormalise();
        return (s & 1) ^ lps;
    }

    // The end test of a terminated MQ segment; true when it finds damage.
    bool testDamaged() {
        // Bytes left over.
        if (pos < len && data[pos] != 0xFF && !ended) return true;
        if (ct != 0) {
            if (!ended) return true;
            if (ct == 1) return false;
        } else {
            if (!ended && byteAt(pos + 1) < 144) return true;
            ct = 8;
        }
        const uint32_t q = 0x8000u >> (ct - 1);
        return a - q > (c >> 16);
    }
};

// The raw decoder.
struct RawDecoder {
    const uint8_t* data;
    int len, pos, bit;
    uint32_t byte;

    void start(const uint8_t* src, int n) {
        data = src;
        len = n;
        pos = 0;
        byte = 0;
        bit = -1;
    }

    // A byte after 0xFF gives 7 bits: its top bit is a stuffed 0.
    [[gnu::always_inline]] uint32_t read() {
        if (bit < 0) {
            bit = byte == 255 ? 6 : 7;
            byte = pos < len ? data[pos] : 0xFFu;
            ++pos;
        }
        return (byte >> bit--) & 1;
    }

    // The rest of the current byte must be the padding 0, 1, 0, 1, ...
    bool testDamaged() const {
        if (bit < 0) return false;
        const uint32_t mask = (2u << bit) - 1;
        return (byte & mask) != ((85u >> (7 - bit)) & mask);
    }
};

// The working set of one Step call: the block, the flag rows, both
// decoders, and the sample values of the current plane. The state is read
// into it at the start of the call and written back at the end.
struct Engine {
    uint8_t* dst;
    std::ptrdiff_t step;
    int width, height;
    uint32_t* flags;  // word of column 0, rows 0 and 1
    int fs;           // flag row stride in words
    const uint8_t* zc;
    bool causal;

    MqDecoder mq;
    RawDecoder raw;

    // Sample values for the plane of the pass in progress.
    uint32_t sigValue;   // bit p and the half-bit below it
    uint32_t keepMask;   // bits above p
    uint32_t refOne;     // bit p
    uint32_t refHalf;    // the half-bit below p

    void setPlane(int p) {
        const int q = std::min(p, 62);
        sigValue = static_cast<uint32_t>((uint64_t{3} << q) >> 1);
        keepMask = static_cast<uint32_t>(~uint64_t{0} << (q + 1));
        refOne = static_cast<uint32_t>(uint64_t{1} << q);
        refHalf = static_cast<uint32_t>((uint64_t{1} << q) >> 1);
    }
};

// One pass over the block: a copy of the working set whose decoder registers
// stay in registers for the whole pass.
struct Pass {
    uint8_t* dst;
    std::ptrdiff_t step;
    int width, height;
    uint32_t* flags;
    int fs;
    const uint8_t* zc;
    bool causal;
    uint32_t sigValue, keepMask, refOne, refHalf;
    MqDecoder mq;
    RawDecoder raw;

    explicit Pass(const Engine& e)
        : dst(e.dst), step(e.step), width(e.width), height(e.height), flags(e.flags), fs(e.fs), zc(e.zc),
          causal(e.causal), sigValue(e.sigValue), keepMask(e.keepMask), refOne(e.refOne), refHalf(e.refHalf),
          mq(e.mq), raw(e.raw) {}
    void finish(Engine& e) const {
        e.mq = mq;
        e.raw = raw;
    }

    [[gnu::always_inline]] uint32_t decode(uint32_t label) { return mq.decode(label); }
    [[gnu::always_inline]] uint32_t rawBit() { return raw.read(); }

    // ------------------------------------------------------------ passes
    [[gnu::always_inline]] void mark(uint32_t* w, int r, uint32_t negative) {
        if (r & 1)
            markOdd(w, fs, negative);
        else
            markEven(w, fs, negative, !(causal && r == 0));
    }

    // Stripe loop: column(w0, w1, sp, rows) for every column of every stripe;
    // w0 is the flag word of rows 0 and 1, w1 that of rows 2 and 3, sp the
    // column's first sample. Runs of eight columns whose words hold no sample
    // the pass codes (none where work(word) has a bit set) are passed over
    // with one vector test, and handed to skip(first word, second word) so
    // that a pass can still update their flags.
    template <class Work, class Skip, class Column>
    [[gnu::always_inline]] void stripes(Work&& work, Skip&& skip, Column&& column) {
        uint8_t* sp = dst;
        uint32_t* f0 = flags;
        for (int y0 = 0; y0 < height; y0 += 4) {
            const int rows = std::min(4, height - y0);
            uint32_t* f1 = f0 + fs;
            int x = 0;
            for (; x + 8 <= width; x += 8) {
                __m256i* p0 = reinterpret_cast<__m256i*>(f0 + x);
                __m256i* p1 = reinterpret_cast<__m256i*>(f1 + x);
                __m256i v = work(_mm256_loadu_si256(p0));
                if (rows > 2) v = _mm256_or_si256(v, work(_mm256_loadu_si256(p1)));
                if (_mm256_testz_si256(v, v)) {
                    skip(p0, rows > 2 ? p1 : nullptr);
                    continue;
                }
                for (int k = x; k < x + 8; ++k) column(f0 + k, f1 + k, sp + 4 * k, rows);
            }
            for (; x < width; ++x) column(f0 + x, f1 + x, sp + 4 * x, rows);
            sp += 4 * step;
            f0 += 2 * fs;
        }
    }
    static void noSkip(__m256i*, __m256i*) {}

    template <bool Raw>
    [[gnu::always_inline]] void significanceSample(uint32_t* w, uint8_t* sp, int r) {
        const int shift = 16 * (r & 1);
        const uint32_t half = (*w >> shift) & 0xFFFF;
        if ((half & 0xA000u) != 0x2000u) return;
        const uint32_t bit = Raw ? rawBit() : decode(zc[half & 0xFF]);
        if (bit) {
            uint32_t negative;
            if (Raw) {
                negative = rawBit();
            } else {
                const uint32_t e = signEntryOf(half);
                negative = decode(e & 15) ^ (e >> 31);
            }
            storeAs<uint32_t>(sp, (negative << 31) | sigValue);
            mark(w, r, negative);
        } else {
            *w |= kFlagVisited << shift;
        }
    }

    template <bool Raw>
    void significancePass() {
        const std::ptrdiff_t st = step;
        // Samples with a significant neighbour that are not significant.
        const __m256i nb = _mm256_set1_epi32(static_cast<int>(kPairNeighbour));
        auto work = [nb](__m256i w) { return _mm256_andnot_si256(_mm256_srli_epi32(w, 2), _mm256_and_si256(w, nb)); };
        stripes(work, noSkip, [&](uint32_t* w0, uint32_t* w1, uint8_t* sp, int rows) __attribute__((always_inline)) {
            if (*w0 & kPairNeighbour & ~(*w0 >> 2)) {
                significanceSample<Raw>(w0, sp, 0);
                if (rows > 1) significanceSample<Raw>(w0, sp + st, 1);
            }
            if (rows > 2 && (*w1 & kPairNeighbour & ~(*w1 >> 2))) {
                significanceSample<Raw>(w1, sp + 2 * st, 2);
                if (rows > 3) significanceSample<Raw>(w1, sp + 3 * st, 3);
            }
        });
    }

    template <bool Raw>
    [[gnu::always_inline]] void refineSample(uint32_t* w, uint8_t* sp, int k) {
        const int shift = 16 * k;
        const uint32_t half = (*w >> shift) & 0xFFFF;
        if ((half & 0xC000u) != 0x8000u) return;
        uint32_t bit;
        if (Raw) {
            bit = rawBit();
        } else {
            bit = decode(refinementLabelOf(half));
            *w |= kFlagRefined << shift;
        }
        const uint32_t v = loadAs<uint32_t>(sp);
        storeAs<uint32_t>(sp, (v & keepMask) | (refOne & (0u - bit)) | refHalf);
    }

    template <bool Raw>
    void refinementPass() {
        const std::ptrdiff_t st = step;
        // Significant samples not visited on this plane.
        const __m256i sg = _mm256_set1_epi32(static_cast<int>(kPairSig));
        auto work = [sg](__m256i w) { return _mm256_andnot_si256(_mm256_slli_epi32(w, 1), _mm256_and_si256(w, sg)); };
        stripes(work, noSkip, [&](uint32_t* w0, uint32_t* w1, uint8_t* sp, int rows) __attribute__((always_inline)) {
            if (*w0 & kPairSig & ~(*w0 << 1)) {
                refineSample<Raw>(w0, sp, 0);
                if (rows > 1) refineSample<Raw>(w0, sp + st, 1);
            }
            if (rows > 2 && (*w1 & kPairSig & ~(*w1 << 1))) {
                refineSample<Raw>(w1, sp + 2 * st, 0);
                if (rows > 3) refineSample<Raw>(w1, sp + 3 * st, 1);
            }
        });
    }

    [[gnu::always_inline]] void decodeSign(uint32_t* w, uint8_t* sp, int r) {
        const uint32_t half = (*w >> (16 * (r & 1))) & 0xFFFF;
        const uint32_t e = signEntryOf(half);
        const uint32_t negative = decode(e & 15) ^ (e >> 31);
        storeAs<uint32_t>(sp, (negative << 31) | sigValue);
        mark(w, r, negative);
    }

    [[gnu::always_inline]] void cleanupSample(uint32_t* w, uint8_t* sp, int r) {
        const uint32_t half = (*w >> (16 * (r & 1))) & 0xFFFF;
        if (half & 0xC000u) return;
        if (decode(zc[half & 0xFF])) decodeSign(w, sp, r);
    }

    // Returns true when the segmentation symbols came out wrong.
    bool cleanupPass(bool segmentation) {
        const std::ptrdiff_t st = step;
        // Samples neither significant nor visited; passed-over columns still
        // lose their visited bits.
        const __m256i sg = _mm256_set1_epi32(static_cast<int>(kPairSig));
        const __m256i vis = _mm256_set1_epi32(static_cast<int>(kPairVisited));
        auto work = [sg](__m256i w) { return _mm256_andnot_si256(_mm256_or_si256(w, _mm256_slli_epi32(w, 1)), sg); };
        auto skip = [vis](__m256i* p0, __m256i* p1) {
            _mm256_storeu_si256(p0, _mm256_andnot_si256(vis, _mm256_loadu_si256(p0)));
            if (p1) _mm256_storeu_si256(p1, _mm256_andnot_si256(vis, _mm256_loadu_si256(p1)));
        };
        stripes(work, skip, [&](uint32_t* w0, uint32_t* w1, uint8_t* sp, int rows) __attribute__((always_inline)) {
            int r = 0;
            if (rows == 4 && (*w0 | *w1) == 0) {
                if (!decode(kLabelRunLength)) return;
                r = static_cast<int>(decode(kLabelUniform) << 1);
                r |= static_cast<int>(decode(kLabelUniform));
                decodeSign(r < 2 ? w0 : w1, sp + r * st, r);
                ++r;
            }
            // A word whose samples are all significant or visited has
            // nothing to code; coding its neighbours cannot change that.
            auto open = [](uint32_t w) { return (~(w | (w << 1)) & kPairSig) != 0; };
            if (r == 0 && open(*w0)) {
                cleanupSample(w0, sp, 0);
                if (rows > 1) cleanupSample(w0, sp + st, 1);
            } else if (r == 1 && rows > 1) {
                cleanupSample(w0, sp + st, 1);
            }
            if (r <= 2 && rows > 2 && open(*w1)) {
                cleanupSample(w1, sp + 2 * st, 2);
                if (rows > 3) cleanupSample(w1, sp + 3 * st, 3);
            } else if (r == 3 && rows > 3) {
                cleanupSample(w1, sp + 3 * st, 3);
            }
            *w0 &= ~kPairVisited;
            if (rows > 2) *w1 &= ~kPairVisited;
        });
        if (!segmentation) return false;
        uint32_t s = decode(kLabelUniform) << 3;
        s |= decode(kLabelUniform) << 2;
        s |= decode(kLabelUniform) << 1;
        s |= decode(kLabelUniform);
        return s != 0xA;
    }
};

template <bool Raw>
void runSignificance(Engine& e) {
    Pass p(e);
    p.significancePass<Raw>();
    p.finish(e);
}
template <bool Raw>
void runRefinement(Engine& e) {
    Pass p(e);
    p.refinementPass<Raw>();
    p.finish(e);
}
bool runCleanup(Engine& e, bool segmentation) {
    Pass p(e);
    const bool damaged = p.cleanupPass(segmentation);
    p.finish(e);
    return damaged;
}

// ---------------------------------------------------------------- Step
void loadEngine(const ZebJ2kDecodeState* st, Engine& e) {
    e.dst = reinterpret_cast<uint8_t*>(st->dst);
    e.step = st->dstStep;
    e.width = st->width;
    e.height = st->height;
    e.fs = st->flagStride / 4;
    e.flags = st->flagRows + e.fs + 1;
    e.zc = st->zeroCodingTable;
    e.causal = (st->flags & kStyleCausal) != 0;
    for (int i = 0; i < kContextCount; ++i)
        e.mq.cx[i] = static_cast<uint8_t>(2 * st->contextIndex[i] + (st->contextMps[i] & 1));
    e.mq.data = st->mqData;
    e.mq.len = st->mqLength;
    e.mq.pos = st->mqPosition;
    e.mq.a = st->regA;
    e.mq.c = st->regC;
    e.mq.ct = st->regCT;
    e.mq.ended = static_cast<uint32_t>(st->mqEnded);
    e.raw.data = st->rawData;
    e.raw.len = st->rawLength;
    e.raw.pos = st->rawPosition;
    e.raw.bit = st->rawBitIndex;
    e.raw.byte = st->rawByte;
}

void storeEngine(const Engine& e, ZebJ2kDecodeState* st) {
    for (int i = 0; i < kContextCount; ++i) {
        st->contextIndex[i] = e.mq.cx[i] >> 1;
        st->contextMps[i] = e.mq.cx[i] & 1;
    }
    st->scanSamples = e.dst;
    st->scanFlags = e.flags;
    st->mqData = e.mq.data;
    st->mqLength = e.mq.len;
    st->mqPosition = e.mq.pos;
    st->regA = e.mq.a;
    st->regC = e.mq.c;
    st->regCT = e.mq.ct;
    st->mqEnded = static_cast<int32_t>(e.mq.ended);
    st->rawData = e.raw.data;
    st->rawLength = e.raw.len;
    st->rawPosition = e.raw.pos;
    st->rawBitIndex = e.raw.bit;
    st->rawByte = static_cast<uint8_t>(e.raw.byte);
}

void initialContexts(ZebJ2kDecodeState* st) {
    for (int i = 0; i < kContextCount; ++i) {
        st->contextIndex[i] = kInitialState[i];
        st->contextMps[i] = 0;
    }
}

// One Step on a checked, attached state.
ZebStatus stepState(ZebJ2kDecodeState* st, const uint8_t* src, int length) {
    if (st->passCounter < 1 || st->plane < 0) return zebStatusOk;
    Engine e;
    loadEngine(st, e);
    const int flags = st->flags;
    const bool check = (flags & zebJ2kCheckTermination) != 0;
    const bool reset = (flags & kStyleResetContexts) != 0;
    const bool segmentation = (flags & kStyleSegmentationSymbols) != 0;
    int plane = st->plane;
    int counter = st->passCounter;
    int next = st->nextPass;
    const int bypassPlane = st->bypassPlane;
    bool damage = false;

    // Contexts return to their start after every MQ pass under reset.
    auto afterMq = [&] {
        if (reset) e.mq.resetContexts();
    };

    if (flags & kStyleTermAll) {
        e.setPlane(plane);
        switch (next) {
            case kPassMqCleanup:
            case kPassMqCleanupAfterRaw: {
                e.mq.start(src, length);
                bool d = runCleanup(e, segmentation);
                if (check) d = e.mq.testDamaged() || d;
                damage = d;
                afterMq();
                --plane;
                next = (next == kPassMqCleanup && plane >= bypassPlane) ? kPassMqSignificance : kPassRawSignificance;
                break;
            }
            case kPassMqRefinement:
                e.mq.start(src, length);
                runRefinement<false>(e);
                if (check) damage = e.mq.testDamaged();
                afterMq();
                next = kPassMqCleanup;
                break;
            case kPassMqSignificance:
                e.mq.start(src, length);
                runSignificance<false>(e);
                if (check) damage = e.mq.testDamaged();
                afterMq();
                next = kPassMqRefinement;
                break;
            case kPassRawRefinement:
                e.raw.start(src, length);
                runRefinement<true>(e);
                damage = e.raw.testDamaged();
                next = kPassMqCleanupAfterRaw;
                break;
            default:  // kPassRawSignificance
                e.raw.start(src, length);
                runSignificance<true>(e);
                damage = e.raw.testDamaged();
                next = kPassRawRefinement;
                break;
        }
        --counter;
    } else if (next == kPassMqCleanupAfterRaw) {
        e.setPlane(plane);
        e.mq.start(src, length);
        bool d = runCleanup(e, segmentation);
        if (check) d = e.mq.testDamaged() || d;
        damage = d;
        afterMq();
        if (--counter > 0) {
            --plane;
            next = kPassRawSignificance;
        }
    } else if (next == kPassRawSignificance) {
        e.setPlane(plane);
        e.raw.start(src, length);
        runSignificance<true>(e);
        if (--counter > 0) {
            runRefinement<true>(e);
            damage = e.raw.testDamaged();
            --counter;
            next = kPassMqCleanupAfterRaw;
        }
    } else {
        e.mq.start(src, length);
        for (;;) {
            e.setPlane(plane);
            bool d = runCleanup(e, segmentation);
            if (check && plane == bypassPlane) d = e.mq.testDamaged() || d;
            damage = damage || d;
            afterMq();
            if (--counter < 1) break;
            const int old = plane--;
            if (old <= bypassPlane) {
                next = kPassRawSignificance;
                break;
            }
            e.setPlane(plane);
            runSignificance<false>(e);
            afterMq();
            if (--counter < 1) break;
            runRefinement<false>(e);
            afterMq();
            if (--counter < 1) break;
        }
    }

    storeEngine(e, st);
    st->plane = plane;
    st->passCounter = counter;
    st->nextPass = next;
    if (damage) {
        st->errorSeen = 1;
        return zebStatusJ2kCodeBlockError;
    }
    return zebStatusOk;
}

void initState(ZebJ2kDecodeState* st) {
    st->mark = kDecodeMark;
    st->attached = 0;
    st->flagRows = decodeFlagRows(st);
    // Queries before the first attach find an empty decoder.
    st->plane = -1;
    st->passCounter = 0;
}

void attachBlock(Zeb32s* dst, int dstStep, int width, int height, ZebJ2kDecodeState* st, int subband, int planeCount,
                 int flags) {
    st->flags = flags;
    st->dst = dst;
    st->width = width;
    st->height = height;
    st->dstStep = dstStep;
    uint8_t* d = reinterpret_cast<uint8_t*>(dst);
    if (!(flags & zebJ2kKeepBlock))
        for (int y = 0; y < height; ++y) ownsZero_8u(d + static_cast<std::ptrdiff_t>(y) * dstStep, 4 * width);
    st->flagStride = flagStrideBytes(width);
    if (!(flags & zebJ2kKeepFlagRows)) {
        uint8_t* f = reinterpret_cast<uint8_t*>(st->flagRows);
        const int rows = flagRowCount(height);
        for (int r = 0; r < rows; ++r) ownsZero_8u(f + static_cast<std::ptrdiff_t>(r) * st->flagStride, 4 * width + 8);
    }
    initialContexts(st);
    st->zeroCodingTable = zeroCodingTable(subband);
    st->bypassPlane = (flags & kStyleBypass) ? static_cast<int>(std::max<int64_t>(int64_t{planeCount} - 4, 0)) : 0;
    st->plane = static_cast<int>(std::max<int64_t>(int64_t{planeCount} - 1, INT32_MIN));
    st->passCounter = 0;
    st->nextPass = 0;
    st->errorSeen = 0;
    st->attached = 1;
}

inline bool badMark(const ZebJ2kDecodeState* st) { return st->mark != kDecodeMark; }

}  // namespace

// ---------------------------------------------------------------- block-wide kernels
void maskBlockScalar(uint8_t* dst, int dstStep, int width, int height, uint32_t mask) {
    for (int y = 0; y < height; ++y) {
        uint8_t* row = dst + static_cast<std::ptrdiff_t>(y) * dstStep;
        for (int x = 0; x < width; ++x) storeAs<uint32_t>(row + 4 * x, loadAs<uint32_t>(row + 4 * x) & mask);
    }
}

void maskBlock(uint8_t* dst, int dstStep, int width, int height, uint32_t mask) {
    const __m256i m = _mm256_set1_epi32(static_cast<int>(mask));
    for (int y = 0; y < height; ++y) {
        uint8_t* row = dst + static_cast<std::ptrdiff_t>(y) * dstStep;
        int x = 0;
        for (; x + 16 <= width; x += 16) {
            __m256i* p = reinterpret_cast<__m256i*>(row + 4 * x);
            const __m256i v0 = _mm256_loadu_si256(p);
            const __m256i v1 = _mm256_loadu_si256(p + 1);
            _mm256_storeu_si256(p, _mm256_and_si256(v0, m));
            _mm256_storeu_si256(p + 1, _mm256_and_si256(v1, m));
        }
        for (; x + 8 <= width; x += 8) {
            __m256i* p = reinterpret_cast<__m256i*>(row + 4 * x);
            _mm256_storeu_si256(p, _mm256_and_si256(_mm256_loadu_si256(p), m));
        }
        for (; x < width; ++x) storeAs<uint32_t>(row + 4 * x, loadAs<uint32_t>(row + 4 * x) & mask);
    }
}

void truncateBlock(uint8_t* dst, int dstStep, int width, int height, int q) {
    if (q < 0) return;
    q = std::min(q, 31);
    const uint32_t keep = ~0u << q, bit = 1u << q;
    for (int y = 0; y < height; ++y) {
        uint8_t* row = dst + static_cast<std::ptrdiff_t>(y) * dstStep;
        for (int x = 0; x < width; ++x) {
            const uint32_t v = loadAs<uint32_t>(row + 4 * x) & keep;
            storeAs<uint32_t>(row + 4 * x, (v & 0x7FFFFFFFu) ? (v | bit) : 0u);
        }
    }
}

}  // namespace zeb::j2k

using namespace zeb::j2k;

ZebStatus zebimpl::zebiDecodeCBProgrGetStateSize_JPEG2K(ZebSize maxBlockSize, int* size) {
    if (maxBlockSize.height < 1 || maxBlockSize.width < 1) return zebStatusBadSize;
    if (!size) return zebStatusNullPointer;
    const int64_t bytes = decodeStateBytes(maxBlockSize.width, maxBlockSize.height);
    *size = static_cast<int>(std::min<int64_t>(bytes, INT32_MAX));
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeCBProgrInit_JPEG2K(ZebJ2kDecodeState* state) {
    if (!state) return zebStatusNullPointer;
    initState(state);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeCBProgrInitAlloc_JPEG2K(ZebJ2kDecodeState** state, ZebSize maxBlockSize) {
    if (!state) return zebStatusNullPointer;
    if (maxBlockSize.height < 1 || maxBlockSize.width < 1) return zebStatusBadSize;
    *state = nullptr;
    const int64_t bytes = decodeStateBytes(maxBlockSize.width, maxBlockSize.height);
    if (bytes > INT32_MAX) return zebStatusNoMemory;
    auto* st = static_cast<ZebJ2kDecodeState*>(ownsMalloc(static_cast<int>(bytes)));
    if (!st) return zebStatusNoMemory;
    initState(st);
    *state = st;
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeCBProgrFree_JPEG2K(ZebJ2kDecodeState* state) {
    if (!state) return zebStatusNullPointer;
    if (badMark(state)) return zebStatusBadContext;
    state->mark = 0;
    ownsFree(state);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(Zeb32s* dst, int dstStep, ZebSize blockSize,
                                                         ZebJ2kDecodeState* state, int subband, int planeCount,
                                                         int flags) {
    if (!state) return zebStatusNullPointer;
    if (badMark(state)) return zebStatusBadContext;
    if (!dst) return zebStatusNullPointer;
    if (dstStep < 1) return zebStatusBadStep;
    if (blockSize.height < 1 || blockSize.width < 1) return zebStatusBadSize;
    attachBlock(dst, dstStep, blockSize.width, blockSize.height, state, subband, planeCount, flags);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeCBProgrSetPassCounter_JPEG2K(int passes, ZebJ2kDecodeState* state) {
    if (!state) return zebStatusNullPointer;
    if (badMark(state)) return zebStatusBadContext;
    state->passCounter = passes;
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeCBProgrGetPassCounter_JPEG2K(const ZebJ2kDecodeState* state, int* passes) {
    if (!state || !passes) return zebStatusNullPointer;
    if (badMark(state)) return zebStatusBadContext;
    *passes = state->passCounter;
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(const ZebJ2kDecodeState* state, int* plane) {
    if (!state) return zebStatusNullPointer;
    if (badMark(state)) return zebStatusBadContext;
    if (!plane) return zebStatusNullPointer;
    *plane = state->plane;
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeCBProgrStep_JPEG2K(const Zeb8u* src, int length, ZebJ2kDecodeState* state) {
    if (!src || !state) return zebStatusNullPointer;
    if (badMark(state)) return zebStatusBadContext;
    if (!state->attached) return zebStatusJ2kNotAttached;
    return stepState(state, src, length);
}

ZebStatus zebimpl::zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(const Zeb8u* src, Zeb32s* dst, int dstStep,
                                                       ZebSize blockSize, int subband, int planeCount, int passCount,
                                                       const int* segmentLengths, int segmentCount, int flags,
                                                       int* errorPlane, ZebJ2kDecodeState* state) {
    if (!src || !state) return zebStatusNullPointer;
    if (blockSize.height < 1 || blockSize.width < 1) return zebStatusBadSize;
    if (!segmentLengths || !dst) return zebStatusNullPointer;
    if (dstStep < 1) return zebStatusBadStep;

    const int width = blockSize.width, height = blockSize.height;
    initState(state);
    attachBlock(dst, dstStep, width, height, state, subband, planeCount, flags);
    state->passCounter = passCount;

    ZebStatus result = zebStatusOk;
    // The segments stand back to back; their lengths are trusted. A negative
    // length reads as an empty segment and moves nothing.
    const uint8_t* at = src;
    for (int i = 0; i < segmentCount; ++i) {
        const int n = segmentLengths[i];
        result = stepState(state, at, n);
        if (n > 0) at += n;
        if (result != zebStatusOk) break;
    }

    uint8_t* block = reinterpret_cast<uint8_t*>(dst);
    if (result == zebStatusJ2kCodeBlockError) {
        if (errorPlane) *errorPlane = state->plane;
        if (flags & zebJ2kTruncateAtError) truncateBlock(block, dstStep, width, height, state->plane);
    }
    if (!(flags & zebJ2kKeepHalfBit)) {
        const int q = state->plane;
        if (q >= 1) maskBlock(block, dstStep, width, height, ~0u << std::min(q, 31));
    }
    return result;
}

ZebStatus zebimpl::zebiDecodeGetBufSize_JPEG2K(ZebSize maxBlockSize, int* size) {
    return zebimpl::zebiDecodeCBProgrGetStateSize_JPEG2K(maxBlockSize, size);
}
