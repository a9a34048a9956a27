// Code-block encoder, modelling half: scans a block of sign-magnitude samples
// plane by plane and pass by pass, writes every decision with its context
// label into the symbol buffers and sums the distortion of each pass. The
// codeword bytes come later, from the store calls.
#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "frame/impl.h"
#include "frame/memory.h"
#include "jpeg2000/coding/encoder.h"

namespace zeb::j2k {

namespace {

inline uint32_t loadWord(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

// Working set of one block's modelling.
struct Modeller {
    const uint8_t* src;
    int step, width, height;
    uint32_t* flags;  // word of column 0, rows 0 and 1
    int fs;           // flag row stride in words
    uint8_t* dec;
    uint8_t* ctx;
    int n;         // symbols written
    int capacity;  // room of each symbol buffer
    bool vectorPaths;
    const uint8_t* zc;
    bool causal;
    bool segmentation;
    bool exactLast;
    int lowest;
    // Distortion of the pass in progress.
    uint32_t dist;
    const int32_t* dtab;
    uint32_t dmask;
    int rshift, lshift;

    [[gnu::always_inline]] void emit(uint32_t d, uint32_t label) {
        dec[n] = static_cast<uint8_t>(d);
        ctx[n] = static_cast<uint8_t>(label);
        ++n;
    }
    [[gnu::always_inline]] void emitRaw(uint32_t d) { dec[n++] = static_cast<uint8_t>(d); }

    void selectTable(int p, bool refinement, ZebJ2kEncodeState* st) {
        const bool exact = exactLast && p == lowest;
        if (refinement) {
            dtab = exact ? kDistRefinementExact.data() : kDistRefinement.data();
            dmask = 127;
        } else {
            dtab = exact ? kDistSignificanceExact.data() : kDistSignificance.data();
            dmask = 63;
        }
        rshift = p >= 6 ? p - 6 : 0;
        lshift = p >= 6 ? 0 : 6 - p;
        st->distortionTable = dtab;
        st->distortionMask = static_cast<int32_t>(dmask);
        st->tableRightShift = rshift;
        st->tableLeftShift = lshift;
    }
    [[gnu::always_inline]] void addDistortion(uint32_t s) {
        const uint32_t i = (static_cast<uint32_t>(static_cast<int32_t>(s) >> rshift) << lshift) & dmask;
        dist += static_cast<uint32_t>(dtab[i]);
    }

    // A sample in row r (0 to 3) of its stripe, with word w, has become
    // significant: code its sign, count its distortion, mark its neighbours.
    template <bool Raw>
    [[gnu::always_inline]] void becomeSignificant(uint32_t* w, int r, uint32_t s) {
        const uint32_t neg = s >> 31;
        const uint32_t half = (r & 1) ? (*w >> 16) : (*w & 0xFFFF);
        if (Raw) {
            emitRaw(neg);
        } else {
            const uint32_t e = signEntryOf(half);
            emit(neg ^ (e >> 31), e & 15);
        }
        addDistortion(s);
        if (r & 1)
            markOdd(w, fs, neg);
        else
            markEven(w, fs, neg, !(causal && r == 0));
    }

    // The symbol of a sample is written whatever happens and kept only when
    // the sample is to be coded: the count moves on by the condition, which
    // spares a hard-to-predict branch per sample.
    [[gnu::always_inline]] void emitIf(uint32_t take, uint32_t d, uint32_t label) {
        dec[n] = static_cast<uint8_t>(d);
        ctx[n] = static_cast<uint8_t>(label);
        n += static_cast<int>(take);
    }
    [[gnu::always_inline]] void emitRawIf(uint32_t take, uint32_t d) {
        dec[n] = static_cast<uint8_t>(d);
        n += static_cast<int>(take);
    }

    // One sample of the significance pass: row r of its stripe, sample at sp;
    // coded when its half-word has a significant neighbour and is not
    // significant itself.
    template <bool Raw>
    [[gnu::always_inline]] void significanceSample(uint32_t* w, const uint8_t* sp, int r, int p) {
        const uint32_t half = (*w >> (16 * (r & 1))) & 0xFFFF;
        const uint32_t take = (half & 0xA000u) == 0x2000u ? 1u : 0u;
        const uint32_t s = loadWord(sp);
        const uint32_t bit = (s >> p) & 1;
        if (Raw)
            emitRawIf(take, bit);
        else
            emitIf(take, bit, zc[half & 0xFF]);
        if (take & bit)
            becomeSignificant<Raw>(w, r, s);
        else
            *w |= (take << 14) << (16 * (r & 1));
    }

    // Stripe loop: f0 the first flag word of the stripe's column 0 (rows 0
    // and 1), f1 the one below it (rows 2 and 3), sp the stripe's first
    // sample. With a skip mask, runs of eight columns whose words have none
    // of its bits are passed over with one vector test.
    template <uint32_t SkipMask = 0, class Column>
    [[gnu::always_inline]] void stripes(Column&& column) {
        const uint8_t* sp = src;
        uint32_t* f0 = flags;
        const __m256i mask = _mm256_set1_epi32(static_cast<int>(SkipMask));
        for (int y0 = 0; y0 < height; y0 += 4) {
            const int rows = std::min(4, height - y0);
            uint32_t* f1 = f0 + fs;
            int x = 0;
            while (x < width) {
                if (SkipMask != 0 && x + 8 <= width) {
                    __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f0 + x));
                    if (rows > 2) v = _mm256_or_si256(v, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f1 + x)));
                    if (_mm256_testz_si256(v, mask)) {
                        x += 8;
                        continue;
                    }
                    for (const int end = x + 8; x < end; ++x) column(f0 + x, f1 + x, sp + 4 * x, rows);
                    continue;
                }
                column(f0 + x, f1 + x, sp + 4 * x, rows);
                ++x;
            }
            sp += 4 * static_cast<std::ptrdiff_t>(step);
            f0 += 2 * fs;
        }
    }

    template <bool Raw>
    [[gnu::always_inline]] void significanceBody(int p) {
        const std::ptrdiff_t st = step;
        stripes<kPairNeighbour>([&](uint32_t* w0, uint32_t* w1, const uint8_t* sp, int rows) __attribute__((always_inline)) {
            if (*w0 & kPairNeighbour) {
                significanceSample<Raw>(w0, sp, 0, p);
                if (rows > 1) significanceSample<Raw>(w0, sp + st, 1, p);
            }
            if (rows > 2 && (*w1 & kPairNeighbour)) {
                significanceSample<Raw>(w1, sp + 2 * st, 2, p);
                if (rows > 3) significanceSample<Raw>(w1, sp + 3 * st, 3, p);
            }
        });
    }

    template <bool Raw>
    [[gnu::always_inline]] void refineSample(uint32_t* w, const uint8_t* sp, int k, int p) {
        const uint32_t half = (*w >> (16 * k)) & 0xFFFF;
        const uint32_t take = (half & 0xC000u) == 0x8000u ? 1u : 0u;
        const uint32_t s = loadWord(sp);
        const uint32_t bit = (s >> p) & 1;
        if (Raw) {
            emitRawIf(take, bit);
        } else {
            emitIf(take, bit, refinementLabelOf(half));
            *w |= (take << 8) << (16 * k);
        }
        const uint32_t i = (static_cast<uint32_t>(static_cast<int32_t>(s) >> rshift) << lshift) & dmask;
        dist += static_cast<uint32_t>(dtab[i]) & (0u - take);
    }

    template <bool Raw>
    [[gnu::always_inline]] void refinementBody(int p) {
        const std::ptrdiff_t st = step;
        auto column = [&](uint32_t* w0, uint32_t* w1, const uint8_t* sp, int rows) __attribute__((always_inline)) {
            if (*w0 & kPairSig) {
                refineSample<Raw>(w0, sp, 0, p);
                if (rows > 1) refineSample<Raw>(w0, sp + st, 1, p);
            }
            if (rows > 2 && (*w1 & kPairSig)) {
                refineSample<Raw>(w1, sp + 2 * st, 0, p);
                if (rows > 3) refineSample<Raw>(w1, sp + 3 * st, 1, p);
            }
        };
        if (Raw || !vectorPaths) {
            stripes<kPairSig>(column);
            return;
        }
        // Full stripes go eight columns at a time: the 32 samples' decisions,
        // labels and conditions are formed in vectors in coding order (the
        // four rows of a column are the four bytes of a 32-bit lane) and the
        // coded ones are packed together eight bytes at a time.
        const __m256i sigVisited = _mm256_set1_epi16(static_cast<int16_t>(0xC000));
        const __m256i sigOnly = _mm256_set1_epi16(static_cast<int16_t>(0x8000));
        const __m256i refined = _mm256_set1_epi16(0x0100);
        const __m256i low8 = _mm256_set1_epi16(0x00FF);
        const __m256i zero = _mm256_setzero_si256();
        const __m256i one = _mm256_set1_epi32(1);
        const __m256i idxMask = _mm256_set1_epi32(127);
        const __m128i rs = _mm_cvtsi32_si128(rshift), ls = _mm_cvtsi32_si128(lshift), ps = _mm_cvtsi32_si128(p);
        const bool exact = dtab == kDistRefinementExact.data();
        __m256i acc = zero;
        auto labels = [&](__m256i f) __attribute__((always_inline)) {
            const __m256i notRefined = _mm256_cmpeq_epi16(_mm256_and_si256(f, refined), zero);
            const __m256i lowZero = _mm256_cmpeq_epi16(_mm256_and_si256(f, low8), zero);
            return _mm256_add_epi16(_mm256_set1_epi16(kLabelRefineFirst + 2),
                                    _mm256_add_epi16(notRefined, _mm256_and_si256(notRefined, lowZero)));
        };
        // Two vectors of half-words holding byte values (rows 0 and 1, rows 2
        // and 3) to one vector of the four bytes of each column.
        auto columnBytes = [](__m256i h01, __m256i h23) __attribute__((always_inline)) {
            const __m256i x0 = _mm256_or_si256(h01, _mm256_srli_epi32(h01, 8));
            const __m256i x1 = _mm256_or_si256(h23, _mm256_srli_epi32(h23, 8));
            return _mm256_blend_epi16(x0, _mm256_slli_epi32(x1, 16), 0xAA);
        };
        auto distortion = [&](__m256i s, __m256i take) __attribute__((always_inline)) {
            const __m256i i = _mm256_and_si256(_mm256_sll_epi32(_mm256_sra_epi32(s, rs), ls), idxMask);
            __m256i v;
            if (exact) {
                const __m256i d = _mm256_sub_epi32(_mm256_set1_epi32(64), i);
                v = _mm256_slli_epi32(_mm256_mullo_epi32(d, d), 1);
            } else {
                const __m256i i128 = _mm256_slli_epi32(i, 7);
                v = _mm256_blendv_epi8(_mm256_sub_epi32(_mm256_set1_epi32(6144), i128),
                                       _mm256_sub_epi32(i128, _mm256_set1_epi32(10240)),
                                       _mm256_cmpgt_epi32(i, _mm256_set1_epi32(63)));
            }
            acc = _mm256_add_epi32(acc, _mm256_and_si256(v, take));
        };
        const uint8_t* sp = src;
        uint32_t* f0 = flags;
        for (int y0 = 0; y0 < height; y0 += 4) {
            const int rows = std::min(4, height - y0);
            uint32_t* f1 = f0 + fs;
            int x = 0;
            if (rows == 4) {
                while (x + 8 <= width && n + 32 <= capacity) {
                    const __m256i F0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f0 + x));
                    const __m256i F1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f1 + x));
                    const __m256i T0 = _mm256_cmpeq_epi16(_mm256_and_si256(F0, sigVisited), sigOnly);
                    const __m256i T1 = _mm256_cmpeq_epi16(_mm256_and_si256(F1, sigVisited), sigOnly);
                    if (_mm256_testz_si256(_mm256_or_si256(T0, T1), _mm256_or_si256(T0, T1))) {
                        x += 8;
                        continue;
                    }
                    const __m256i C = columnBytes(labels(F0), labels(F1));
                    const __m256i K = columnBytes(_mm256_and_si256(T0, low8), _mm256_and_si256(T1, low8));
                    _mm256_storeu_si256(reinterpret_cast<__m256i*>(f0 + x),
                                        _mm256_or_si256(F0, _mm256_and_si256(T0, refined)));
                    _mm256_storeu_si256(reinterpret_cast<__m256i*>(f1 + x),
                                        _mm256_or_si256(F1, _mm256_and_si256(T1, refined)));
                    const uint8_t* q = sp + 4 * x;
                    const __m256i S0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q));
                    const __m256i S1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + st));
                    const __m256i S2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + 2 * st));
                    const __m256i S3 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + 3 * st));
                    const __m256i D = _mm256_or_si256(
                        _mm256_or_si256(_mm256_and_si256(_mm256_srl_epi32(S0, ps), one),
                                        _mm256_slli_epi32(_mm256_and_si256(_mm256_srl_epi32(S1, ps), one), 8)),
                        _mm256_or_si256(_mm256_slli_epi32(_mm256_and_si256(_mm256_srl_epi32(S2, ps), one), 16),
                                        _mm256_slli_epi32(_mm256_and_si256(_mm256_srl_epi32(S3, ps), one), 24)));
                    distortion(S0, _mm256_srai_epi32(_mm256_slli_epi32(T0, 16), 31));
                    distortion(S1, _mm256_srai_epi32(T0, 31));
                    distortion(S2, _mm256_srai_epi32(_mm256_slli_epi32(T1, 16), 31));
                    distortion(S3, _mm256_srai_epi32(T1, 31));
                    alignas(32) uint64_t d[4], c[4], k[4];
                    _mm256_store_si256(reinterpret_cast<__m256i*>(d), D);
                    _mm256_store_si256(reinterpret_cast<__m256i*>(c), C);
                    _mm256_store_si256(reinterpret_cast<__m256i*>(k), K);
                    for (int j = 0; j < 4; ++j) {
                        const uint64_t pd = _pext_u64(d[j], k[j]);
                        const uint64_t pc = _pext_u64(c[j], k[j]);
                        std::memcpy(dec + n, &pd, 8);
                        std::memcpy(ctx + n, &pc, 8);
                        n += static_cast<int>(((k[j] & 0x0101010101010101ull) * 0x0101010101010101ull) >> 56);
                    }
                    x += 8;
                }
            }
            for (; x < width; ++x) column(f0 + x, f1 + x, sp + 4 * x, rows);
            sp += 4 * st;
            f0 += 2 * fs;
        }
        __m128i a4 = _mm_add_epi32(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
        a4 = _mm_add_epi32(a4, _mm_unpackhi_epi64(a4, a4));
        a4 = _mm_add_epi32(a4, _mm_srli_epi64(a4, 32));
        dist += static_cast<uint32_t>(_mm_cvtsi128_si32(a4));
    }

    // A sample of the cleanup pass outside run-length mode: coded unless it
    // is significant or was coded in this plane's significance pass.
    [[gnu::always_inline]] void cleanupSample(uint32_t* w, const uint8_t* sp, int r, int p) {
        const uint32_t half = (*w >> (16 * (r & 1))) & 0xFFFF;
        const uint32_t take = (half & 0xC000u) == 0 ? 1u : 0u;
        const uint32_t s = loadWord(sp);
        const uint32_t bit = (s >> p) & 1;
        emitIf(take, bit, zc[half & 0xFF]);
        if (take & bit) becomeSignificant<false>(w, r, s);
    }

    [[gnu::always_inline]] void cleanupBody(int p) {
        const std::ptrdiff_t st = step;
        auto column = [&](uint32_t* w0, uint32_t* w1, const uint8_t* sp, int rows) __attribute__((always_inline)) {
            int r = 0;
            if (rows == 4 && (*w0 | *w1) == 0) {
                // Run-length mode: the first row with a 1 on this plane.
                const uint32_t bits = ((loadWord(sp) >> p) & 1) | (((loadWord(sp + st) >> p) & 1) << 1) |
                                      (((loadWord(sp + 2 * st) >> p) & 1) << 2) |
                                      (((loadWord(sp + 3 * st) >> p) & 1) << 3);
                if (bits == 0) {
                    emit(0, kLabelRunLength);
                    return;
                }
                r = __builtin_ctz(bits);
                emit(1, kLabelRunLength);
                emit(static_cast<uint32_t>(r >> 1), kLabelUniform);
                emit(static_cast<uint32_t>(r & 1), kLabelUniform);
                becomeSignificant<false>(r < 2 ? w0 : w1, r, loadWord(sp + r * st));
                ++r;
            }
            // The remaining rows, unrolled so that each row's half-word
            // position is a constant.
            switch (r) {
                case 0:
                    cleanupSample(w0, sp, 0, p);
                    [[fallthrough]];
                case 1:
                    if (rows > 1) cleanupSample(w0, sp + st, 1, p);
                    [[fallthrough]];
                case 2:
                    if (rows > 2) cleanupSample(w1, sp + 2 * st, 2, p);
                    [[fallthrough]];
                case 3:
                    if (rows > 3) cleanupSample(w1, sp + 3 * st, 3, p);
                    break;
                default:
                    break;
            }
            *w0 &= ~kPairVisited;
            if (rows > 2) *w1 &= ~kPairVisited;
        };
        // Full stripes take eight columns at once while all their flag words
        // are clear and none of their samples has a 1 on this plane: each
        // column is then one run-length 0.
        const __m256i planeBit = _mm256_set1_epi32(static_cast<int>(1u << p));
        const __m256i sigVisited = _mm256_set1_epi16(static_cast<int16_t>(0xC000));
        const __m256i visited = _mm256_set1_epi32(static_cast<int>(kPairVisited));
        const __m256i zero = _mm256_setzero_si256();
        const uint8_t* sp = src;
        uint32_t* f0 = flags;
        for (int y0 = 0; y0 < height; y0 += 4) {
            const int rows = std::min(4, height - y0);
            uint32_t* f1 = f0 + fs;
            int x = 0;
            if (rows == 4 && vectorPaths) {
                while (x + 8 <= width) {
                    const __m256i f = _mm256_or_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(f0 + x)),
                                                      _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f1 + x)));
                    const uint8_t* q = sp + 4 * x;
                    const __m256i v = _mm256_or_si256(
                        _mm256_or_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(q)),
                                        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + st))),
                        _mm256_or_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + 2 * st)),
                                        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + 3 * st))));
                    // Columns whose samples are all significant or visited
                    // code nothing; their visited marks are cleared.
                    const __m256i F0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f0 + x));
                    const __m256i F1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f1 + x));
                    const __m256i open = _mm256_or_si256(_mm256_cmpeq_epi16(_mm256_and_si256(F0, sigVisited), zero),
                                                         _mm256_cmpeq_epi16(_mm256_and_si256(F1, sigVisited), zero));
                    if (_mm256_testz_si256(open, open)) {
                        _mm256_storeu_si256(reinterpret_cast<__m256i*>(f0 + x), _mm256_andnot_si256(visited, F0));
                        _mm256_storeu_si256(reinterpret_cast<__m256i*>(f1 + x), _mm256_andnot_si256(visited, F1));
                        x += 8;
                        continue;
                    }
                    if (_mm256_testz_si256(f, f) && _mm256_testz_si256(v, planeBit)) {
                        const uint64_t zeros = 0, runLabels = 0x0101010101010101ull * kLabelRunLength;
                        std::memcpy(dec + n, &zeros, 8);
                        std::memcpy(ctx + n, &runLabels, 8);
                        n += 8;
                        x += 8;
                        continue;
                    }
                    for (const int end = x + 8; x < end; ++x) column(f0 + x, f1 + x, sp + 4 * x, rows);
                }
            }
            for (; x < width; ++x) column(f0 + x, f1 + x, sp + 4 * x, rows);
            sp += 4 * st;
            f0 += 2 * fs;
        }
        if (segmentation) {
            emit(1, kLabelUniform);
            emit(0, kLabelUniform);
            emit(1, kLabelUniform);
            emit(0, kLabelUniform);
        }
    }

    // The passes run on a local copy of the working set, so that the symbol
    // and flag stores, which may alias any field in memory, do not force the
    // fields to be reloaded after every store.
    template <bool Raw>
    void significancePass(int p) {
        Modeller m = *this;
        m.significanceBody<Raw>(p);
        n = m.n;
        dist = m.dist;
    }
    template <bool Raw>
    void refinementPass(int p) {
        Modeller m = *this;
        m.refinementBody<Raw>(p);
        n = m.n;
        dist = m.dist;
    }
    void cleanupPass(int p) {
        Modeller m = *this;
        m.cleanupBody(p);
        n = m.n;
        dist = m.dist;
    }
};

}  // namespace

void resetContexts(ZebJ2kCoderState* c) {
    for (int i = 0; i < kContextCount; ++i) {
        c->contextIndex[i] = kInitialState[i];
        c->contextMps[i] = 0;
    }
}

void restartMq(ZebJ2kCoderState* c) {
    c->regA = 0x8000;
    c->regC = 0;
    c->regCT = 12;
    c->pendingByte = 0;
    c->queueHead = 0;
    c->queueTail = 0;
    c->byteOutCount = 0;
    c->skipFirstByte = 1;
}

int segmentCountOf(const ZebJ2kCoderState* c) {
    if (c->termAll) return c->passCount;
    int count = 1;
    for (int i = 0; i + 1 < c->passCount; ++i) count += c->passRaw[i] != c->passRaw[i + 1];
    return count;
}

int modelCodeBlock(const Zeb32s* src, int srcStep, int width, int height, ZebJ2kEncodeState* st, int subband,
                   int magnitudeBits, int flushMethod, int codeStyle, bool vectorPaths) {
    ZebJ2kCoderState* c = st->coder;
    const int strideBytes = flagStrideBytes(width);
    const int flagRows = flagRowCount(height);

    // 1. Clear the flag rows at this block's stride.
    uint8_t* fbase = reinterpret_cast<uint8_t*>(st->flagRows);
    for (int r = 0; r < flagRows; ++r) ownsZero_8u(fbase + static_cast<std::ptrdiff_t>(r) * strideBytes, 4 * width + 8);

    Modeller m;
    m.src = reinterpret_cast<const uint8_t*>(src);
    m.step = srcStep;
    m.width = width;
    m.height = height;
    m.fs = strideBytes / 4;
    m.flags = st->flagRows + m.fs + 1;
    // 2. The zero-coding table.
    m.zc = zeroCodingTable(subband);
    m.causal = (codeStyle & kStyleCausal) != 0;
    m.segmentation = (codeStyle & kStyleSegmentationSymbols) != 0;
    m.exactLast = (codeStyle & kStyleExactLastPlane) != 0;

    // 3. A fresh coder record.
    c->passCount = 0;
    c->symbolsWritten = 0;
    c->passStart = 0;
    c->storePass = 0;
    c->resetContexts = (codeStyle & kStyleResetContexts) ? 1 : 0;
    c->termAll = (codeStyle & kStyleTermAll) ? 1 : 0;
    resetContexts(c);
    restartMq(c);
    c->rawLastWasFF = 0;
    c->rawPartial = 0;
    c->rawBitPosition = 7;
    c->mqActive = 0;
    c->flushMethod = static_cast<uint32_t>(flushMethod);

    // Magnitude bits outside 0 to 31 act as the nearest end of that range.
    const int mb = std::clamp(magnitudeBits, 0, 31);
    const int lowest = 31 - mb;
    st->lowestPlane = lowest;
    st->exactLastPlane = m.exactLast ? 1 : 0;
    m.lowest = lowest;

    // 4. Significant bits over all samples.
    uint32_t any = 0;
    __m256i acc8 = _mm256_setzero_si256();
    for (int y = 0; y < height; ++y) {
        const uint8_t* row = m.src + static_cast<std::ptrdiff_t>(y) * srcStep;
        int x = 0;
        for (; x + 8 <= width; x += 8)
            acc8 = _mm256_or_si256(acc8, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + 4 * x)));
        for (; x < width; ++x) any |= loadWord(row + 4 * x);
    }
    __m128i acc4 = _mm_or_si128(_mm256_castsi256_si128(acc8), _mm256_extracti128_si256(acc8, 1));
    acc4 = _mm_or_si128(acc4, _mm_unpackhi_epi64(acc4, acc4));
    acc4 = _mm_or_si128(acc4, _mm_srli_epi64(acc4, 32));
    any |= static_cast<uint32_t>(_mm_cvtsi128_si32(acc4));
    any &= 0x7FFFFFFFu;
    const int S = any ? 32 - __builtin_clz(any) : 0;

    // 5. Distortion bookkeeping. distortionTable also tells the queries that
    // a block has been loaded.
    st->planeShift = 2 * (S - 1 - lowest) - 13;
    st->modelPass = 0;
    st->passDistortion[0] = 0;
    st->distortionTable = kDistSignificance.data();
    st->distortionMask = 63;

    m.dec = c->decisionBuffer;
    m.ctx = c->contextBuffer;
    m.n = 0;
    m.capacity = static_cast<int>(c->contextBuffer - c->decisionBuffer);
    m.vectorPaths = vectorPaths;

    auto endPass = [&](int raw) {
        c->passRaw[c->passCount] = raw;
        c->passSymbols[c->passCount] = m.n - c->passStart;
        c->passStart = m.n;
        c->symbolsWritten = m.n;
        ++c->passCount;
        st->passDistortion[st->modelPass] = static_cast<int32_t>(m.dist);
        st->passShift[st->modelPass] = st->planeShift;
        ++st->modelPass;
        st->passDistortion[st->modelPass] = 0;
    };

    // 6. Cleanup pass on the top plane.
    if (S - 1 >= lowest) {
        m.dist = 0;
        m.selectTable(S - 1, false, st);
        m.cleanupPass(S - 1);
        endPass(0);
        st->planeShift -= 2;
    }
    // 7. Three passes on each plane below.
    const bool bypass = (codeStyle & kStyleBypass) != 0;
    for (int p = S - 2; p >= lowest; --p) {
        const bool raw = bypass && p < S - 4;
        m.dist = 0;
        m.selectTable(p, false, st);
        if (raw)
            m.significancePass<true>(p);
        else
            m.significancePass<false>(p);
        endPass(raw ? 1 : 0);
        m.dist = 0;
        m.selectTable(p, true, st);
        if (raw)
            m.refinementPass<true>(p);
        else
            m.refinementPass<false>(p);
        endPass(raw ? 1 : 0);
        m.dist = 0;
        m.selectTable(p, false, st);
        m.cleanupPass(p);
        endPass(0);
        st->planeShift -= 2;
    }

    // 8. Ready to store from pass 0.
    c->bytesDelivered = 0;
    c->passStart = 0;
    c->storePass = 0;
    c->passDecisions = c->decisionBuffer;
    c->passContexts = c->contextBuffer;
    c->passSymbolIndex = 0;
    c->passBytesOut = 0;
    if (c->passCount > 0) {
        c->passSymbolCount = c->passSymbols[0];
        c->passIsRaw = c->passRaw[0];
    } else {
        c->passSymbolCount = 0;
        c->passIsRaw = 0;
    }
    return S;
}

}  // namespace zeb::j2k

using namespace zeb::j2k;

ZebStatus zebimpl::zebiEncodeInitAlloc_JPEG2K(ZebJ2kEncodeState** state, ZebSize maxBlockSize) {
    if (!state) return zebStatusNullPointer;
    if (maxBlockSize.height < 1 || maxBlockSize.width < 1) return zebStatusBadSize;
    const int64_t w = maxBlockSize.width, h = maxBlockSize.height;
    const int64_t symbolBytes = int64_t{kSymbolsPerStripeColumn} * w * ((h + 3) / 4);
    const int64_t flagBytes = int64_t{flagRowCount(maxBlockSize.height)} * ((4 * w + 8 + 31) & ~int64_t{31});
    *state = nullptr;

    auto* st = static_cast<ZebJ2kEncodeState*>(ownsMalloc(static_cast<int>(sizeof(ZebJ2kEncodeState))));
    if (!st) return zebStatusNoMemory;
    ownsZero_8u(reinterpret_cast<Zeb8u*>(st), static_cast<int>(sizeof(ZebJ2kEncodeState)));
    auto* c = static_cast<ZebJ2kCoderState*>(ownsMalloc(static_cast<int>(sizeof(ZebJ2kCoderState))));
    if (!c) {
        ownsFree(st);
        return zebStatusNoMemory;
    }
    ownsZero_8u(reinterpret_cast<Zeb8u*>(c), static_cast<int>(sizeof(ZebJ2kCoderState)));
    // Both symbol buffers come from one request, decisions first.
    uint8_t* symbols = nullptr;
    if (2 * symbolBytes <= INT32_MAX) symbols = static_cast<uint8_t*>(ownsMalloc(static_cast<int>(2 * symbolBytes)));
    if (!symbols) {
        ownsFree(c);
        ownsFree(st);
        return zebStatusNoMemory;
    }
    uint32_t* flags = nullptr;
    if (flagBytes <= INT32_MAX) flags = static_cast<uint32_t*>(ownsMalloc(static_cast<int>(flagBytes)));
    if (!flags) {
        ownsFree(symbols);
        ownsFree(c);
        ownsFree(st);
        return zebStatusNoMemory;
    }
    c->decisionBuffer = symbols;
    c->contextBuffer = symbols + symbolBytes;
    st->coder = c;
    st->flagRows = flags;
    st->mark = kEncodeMark;
    *state = st;
    return zebStatusOk;
}

ZebStatus zebimpl::zebiEncodeFree_JPEG2K(ZebJ2kEncodeState* state) {
    if (!state) return zebStatusNullPointer;
    ZebJ2kCoderState* c = state->coder;
    ownsFree(state->flagRows);
    if (c) {
        ownsFree(c->decisionBuffer);
        ownsFree(c);
    }
    state->mark = 0;
    ownsFree(state);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, ZebSize blockSize,
                                                         ZebJ2kEncodeState* state, int subband, int magnitudeBits,
                                                         int flushMethod, int reserved, int codeStyle,
                                                         int* significantBits, int* passCount, int* segmentCount) {
    if (!state) return zebStatusNullPointer;
    if (state->mark != kEncodeMark) return zebStatusBadContext;
    if (!significantBits || !passCount || !segmentCount) return zebStatusNullPointer;
    if (blockSize.height < 1) return zebStatusBadSize;
    if (blockSize.width < 1) return zebStatusBadSize;
    if (!src) return zebStatusNullPointer;
    if (srcStep < 1) return zebStatusBadStep;

    const int S = modelCodeBlock(src, srcStep, blockSize.width, blockSize.height, state, subband, magnitudeBits,
                                 flushMethod, codeStyle);
    *significantBits = S;
    *passCount = state->coder->passCount;
    *segmentCount = segmentCountOf(state->coder);
    return zebStatusOk;
}
