// Lossless coding: the seven predictors forward and back (vector rows where
// no recurrence and no overlap stand in the way), the first-row rules, and
// the Huffman coding of differences one at a time or a row of up to four
// interleaved components at a time, each coder in a fast and a careful form.
#include "jpeg/huffman/lossless.h"

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/memory.h"
#include "jpeg/huffman/bitio.h"
#include "jpeg/huffman/huffman.h"

namespace zeb::jpeg::huff {

namespace {

inline int16_t ld(const Zeb16s* p, int i) { return loadAs<int16_t>(p + i); }
inline void st16(Zeb16s* p, int i, int32_t v) { storeAs<int16_t>(p + i, wrap16(v)); }

// True when the byte ranges [a, a + an) and [b, b + bn) meet.
inline bool meets(const void* a, size_t an, const void* b, size_t bn) {
    uintptr_t x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
    return x < y + bn && y < x + an;
}
// dst against a row that is also read one element to the left.
inline bool overlapsRow(const Zeb16s* dst, const Zeb16s* in, int width) {
    return meets(dst, 2 * size_t(width), reinterpret_cast<const uint8_t*>(in) - 2, 2 * size_t(width) + 2);
}

// (x - y) >> 1 and (x + y) >> 1 in 16-bit lanes, exact for the 17-bit
// intermediate: the halves of both operands and a carry from their low bits.
inline __m256i halfDiff(__m256i x, __m256i y) {
    const __m256i one = _mm256_set1_epi16(1);
    return _mm256_sub_epi16(_mm256_sub_epi16(_mm256_srai_epi16(x, 1), _mm256_srai_epi16(y, 1)),
                            _mm256_and_si256(_mm256_andnot_si256(x, y), one));
}
inline __m256i halfSum(__m256i x, __m256i y) {
    const __m256i one = _mm256_set1_epi16(1);
    return _mm256_add_epi16(_mm256_add_epi16(_mm256_srai_epi16(x, 1), _mm256_srai_epi16(y, 1)),
                            _mm256_and_si256(_mm256_and_si256(x, y), one));
}
inline __m256i predictV(int p, __m256i ra, __m256i rb, __m256i rc) {
    switch (p) {
        case 1: return ra;
        case 2: return rb;
        case 3: return rc;
        case 4: return _mm256_sub_epi16(_mm256_add_epi16(ra, rb), rc);
        case 5: return _mm256_add_epi16(ra, halfDiff(rb, rc));
        case 6: return _mm256_add_epi16(rb, halfDiff(ra, rc));
        default: return halfSum(ra, rb);
    }
}
inline __m256i load16(const Zeb16s* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void store16(Zeb16s* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

template <int P>
void diffRowV(const Zeb16s* src, const Zeb16s* prev, Zeb16s* dst, int width) {
    st16(dst, 0, int32_t{ld(src, 0)} - ld(prev, 0));
    int i = 1;
    for (; i + 16 <= width; i += 16) {
        __m256i pr = predictV(P, load16(src + i - 1), load16(prev + i), load16(prev + i - 1));
        store16(dst + i, _mm256_sub_epi16(load16(src + i), pr));
    }
    for (; i < width; ++i) st16(dst, i, int32_t{ld(src, i)} - predict(P, ld(src, i - 1), ld(prev, i), ld(prev, i - 1)));
}

// Inclusive prefix sum of the 16 lanes, plus the carry in every lane.
inline __m256i prefix16(__m256i x, __m256i carry) {
    x = _mm256_add_epi16(x, _mm256_slli_si256(x, 2));
    x = _mm256_add_epi16(x, _mm256_slli_si256(x, 4));
    x = _mm256_add_epi16(x, _mm256_slli_si256(x, 8));
    const __m128i lo = _mm256_castsi256_si128(x);
    const __m256i lowLast = _mm256_inserti128_si256(_mm256_setzero_si256(), _mm_set1_epi16(static_cast<int16_t>(_mm_extract_epi16(lo, 7))), 1);
    return _mm256_add_epi16(_mm256_add_epi16(x, lowLast), carry);
}

// Predictors 1, 4 and 5 back: the prediction is the left neighbour plus a
// term of the row above, so a row is a running sum of src plus that term,
// 16 lanes at a time.
template <int P>
void runningSumRow(const Zeb16s* src, const Zeb16s* prev, Zeb16s* dst, int width) {
    int32_t last = wrap16(int32_t{ld(src, 0)} + ld(prev, 0));
    st16(dst, 0, last);
    auto term = [&](int i) -> int32_t {
        if constexpr (P == 1) return 0;
        else if constexpr (P == 4) return int32_t{ld(prev, i)} - ld(prev, i - 1);
        else return (int32_t{ld(prev, i)} - ld(prev, i - 1)) >> 1;
    };
    int i = 1;
    if (width >= 17) {
        __m256i carry = _mm256_set1_epi16(static_cast<int16_t>(last));
        for (; i + 16 <= width; i += 16) {
            __m256i t = load16(src + i);
            if constexpr (P == 4) t = _mm256_add_epi16(t, _mm256_sub_epi16(load16(prev + i), load16(prev + i - 1)));
            if constexpr (P == 5) t = _mm256_add_epi16(t, halfDiff(load16(prev + i), load16(prev + i - 1)));
            const __m256i r = prefix16(t, carry);
            store16(dst + i, r);
            carry = _mm256_permutevar8x32_epi32(_mm256_shufflehi_epi16(r, 0xFF), _mm256_set1_epi32(7));
        }
        last = ld(dst, i - 1);
    }
    for (; i < width; ++i) {
        last = wrap16(last + ld(src, i) + term(i));
        st16(dst, i, last);
    }
}

// A running sum of src[1..] from a given first value (the first row back).
void runningSumFrom(const Zeb16s* src, Zeb16s* dst, int width, int16_t first) {
    int32_t last = first;
    st16(dst, 0, last);
    int i = 1;
    if (width >= 17) {
        __m256i carry = _mm256_set1_epi16(first);
        for (; i + 16 <= width; i += 16) {
            const __m256i r = prefix16(load16(src + i), carry);
            store16(dst + i, r);
            carry = _mm256_permutevar8x32_epi32(_mm256_shufflehi_epi16(r, 0xFF), _mm256_set1_epi32(7));
        }
        last = ld(dst, i - 1);
    }
    for (; i < width; ++i) {
        last = wrap16(last + ld(src, i));
        st16(dst, i, last);
    }
}

template <int P>
void recurrenceRow(const Zeb16s* src, const Zeb16s* prev, Zeb16s* dst, int width) {
    int16_t ra = wrap16(int32_t{ld(src, 0)} + ld(prev, 0));
    storeAs<int16_t>(dst, ra);
    for (int i = 1; i < width; ++i) {
        ra = wrap16(int32_t{ld(src, i)} + predict(P, ra, ld(prev, i), ld(prev, i - 1)));
        storeAs<int16_t>(dst + i, ra);
    }
}

}  // namespace

int16_t predict(int p, int16_t ra, int16_t rb, int16_t rc) {
    const int32_t a = ra, b = rb, c = rc;
    int32_t r;
    switch (p) {
        case 1: r = a; break;
        case 2: r = b; break;
        case 3: r = c; break;
        case 4: r = a + b - c; break;
        case 5: r = a + ((b - c) >> 1); break;
        case 6: r = b + ((a - c) >> 1); break;
        default: r = (a + b) >> 1; break;
    }
    return wrap16(r);
}

// Plain element-by-element loops: every input is read from memory at its
// step, so overlapping rows behave as the element order makes them.
void diffRowScalar(const Zeb16s* src, const Zeb16s* prev, Zeb16s* dst, int width, int p) {
    st16(dst, 0, int32_t{ld(src, 0)} - ld(prev, 0));
    for (int i = 1; i < width; ++i) {
        const int16_t pr = predict(p, ld(src, i - 1), ld(prev, i), ld(prev, i - 1));
        st16(dst, i, int32_t{ld(src, i)} - pr);
    }
}
void reconstructRowScalar(const Zeb16s* src, const Zeb16s* prev, Zeb16s* dst, int width, int p) {
    st16(dst, 0, int32_t{ld(src, 0)} + ld(prev, 0));
    for (int i = 1; i < width; ++i) {
        const int16_t pr = predict(p, ld(dst, i - 1), ld(prev, i), ld(prev, i - 1));
        st16(dst, i, int32_t{ld(src, i)} + pr);
    }
}

void diffRowVector(const Zeb16s* src, const Zeb16s* prev, Zeb16s* dst, int width, int p) {
    switch (p) {
        case 1: diffRowV<1>(src, prev, dst, width); break;
        case 2: diffRowV<2>(src, prev, dst, width); break;
        case 3: diffRowV<3>(src, prev, dst, width); break;
        case 4: diffRowV<4>(src, prev, dst, width); break;
        case 5: diffRowV<5>(src, prev, dst, width); break;
        case 6: diffRowV<6>(src, prev, dst, width); break;
        default: diffRowV<7>(src, prev, dst, width); break;
    }
}

void reconstructRowVector(const Zeb16s* src, const Zeb16s* prev, Zeb16s* dst, int width, int p) {
    if (p == 2 || p == 3) {  // element-wise: no recurrence
        st16(dst, 0, int32_t{ld(src, 0)} + ld(prev, 0));
        const Zeb16s* up = p == 2 ? prev : prev - 1;
        int i = 1;
        for (; i + 16 <= width; i += 16) store16(dst + i, _mm256_add_epi16(load16(src + i), load16(up + i)));
        for (; i < width; ++i) st16(dst, i, int32_t{ld(src, i)} + ld(up, i));
        return;
    }
    switch (p) {
        case 1: runningSumRow<1>(src, prev, dst, width); break;
        case 4: runningSumRow<4>(src, prev, dst, width); break;
        case 5: runningSumRow<5>(src, prev, dst, width); break;
        case 6: recurrenceRow<6>(src, prev, dst, width); break;
        default: recurrenceRow<7>(src, prev, dst, width); break;
    }
}

// ------------------------------------------------------------ coders

namespace {

// Category of a difference; -32768 has category 16.
inline int diffCategory(int16_t v) { return category(v); }
inline int valueLength(int c) { return c == 16 ? 0 : c; }

template <class W>
ZEB_HUFF_INLINE int putDiff(W& w, EncSpec spec, int16_t v) {
    const int c = diffCategory(v);
    int st = w.putCode(spec.entry(static_cast<unsigned>(c)));
    if (st != kOk) return st;
    const int n = valueLength(c);
    if (n != 0) st = w.put(valueBits(v, n), n);
    return st;
}

template <class R>
ZEB_HUFF_INLINE int getDiff(R& r, DecSpec spec, int16_t& out) {
    int s;
    int st = decodeSymbol(r, spec, s);
    if (st != kOk) return st;
    if (s == 0) {
        out = 0;
    } else if (s < 16) {
        int32_t v;
        if ((st = receiveExtend(r, s, v)) != kOk) return st;
        out = wrap16(v);
    } else {
        out = static_cast<int16_t>(-32768);
    }
    return kOk;
}

inline EncSpec encSpecAt(const EncodeHuffmanSpec* const* specs, int c) {
    return EncSpec{reinterpret_cast<const uint8_t*>(loadAs<const EncodeHuffmanSpec*>(specs + c))};
}
inline DecSpec decSpecAt(const DecodeHuffmanSpec* const* specs, int c) {
    return DecSpec{reinterpret_cast<const uint8_t*>(loadAs<const DecodeHuffmanSpec*>(specs + c))};
}

}  // namespace

int encodeOneFast(int16_t v, Zeb8u* dst, int dstLen, int* dstPos, const EncodeHuffmanSpec* spec,
                  EncodeHuffmanState* state) {
    const int pos = loadAs<int>(dstPos);
    if (pos < 0 || dstLen - pos < 9) return kGiveUp;
    EncSpec sp{reinterpret_cast<const uint8_t*>(spec)};
    const int c = diffCategory(v);
    const uint32_t e = sp.entry(static_cast<unsigned>(c));
    if (static_cast<unsigned>((e >> 16) - 1) >= 16u) return kGiveUp;
    // At most 7 + 16 + 15 bits: four bytes, each perhaps stuffed, fit in 9.
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Writer24<false> w{dst, dstLen, pos, 0, 0};
    loadEncState(stb, w.acc, w.cnt);
    w.putCode(e);
    const int n = valueLength(c);
    if (n != 0) w.put(valueBits(v, n), n);
    storeAs<int>(dstPos, w.pos);
    storeEncState(stb, w.acc, w.cnt);
    return kOk;
}

int encodeOneCareful(int16_t v, Zeb8u* dst, int dstLen, int* dstPos, const EncodeHuffmanSpec* spec,
                     EncodeHuffmanState* state) {
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
    loadEncState(stb, w.acc, w.cnt);
    int st = putDiff(w, EncSpec{reinterpret_cast<const uint8_t*>(spec)}, v);
    storeAs<int>(dstPos, w.pos);
    storeEncState(stb, w.acc, w.cnt);
    return st;
}

int decodeOneFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, const DecodeHuffmanSpec* spec,
                  DecodeHuffmanState* state) {
    const int pos = loadAs<int>(srcPos);
    if (pos < 0 || srcLen - pos < 8 || loadAs<int>(marker) != 0) return kGiveUp;
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    FastReader r{src, srcLen, pos, 0, 0, 0};
    loadDecState(stb, r.acc, r.cnt);
    r.sync();
    int16_t v;
    if (getDiff(r, DecSpec{reinterpret_cast<const uint8_t*>(spec)}, v) != kOk) return kGiveUp;
    storeAs<int16_t>(dst, v);
    storeAs<int>(srcPos, r.position());
    storeAs<uint64_t>(stb, r.acc);
    storeAs<int32_t>(stb + offsetof(DecodeHuffmanState, bitCount), r.cnt);
    return kOk;
}

int decodeOneCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker,
                     const DecodeHuffmanSpec* spec, DecodeHuffmanState* state) {
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Reader<true> r{src, srcLen, loadAs<int>(srcPos), 0, 0, loadAs<int>(marker)};
    loadDecState(stb, r.acc, r.cnt);
    int16_t v;
    int st = getDiff(r, DecSpec{reinterpret_cast<const uint8_t*>(spec)}, v);
    if (st == kOk) storeAs<int16_t>(dst, v);
    if (st == kMarkerStop) st = zebStatusJpegCoefficientRange;
    storeAs<int>(srcPos, r.pos);
    storeAs<int>(marker, r.marker);
    storeAs<uint64_t>(stb, r.acc);
    storeAs<int32_t>(stb + offsetof(DecodeHuffmanState, bitCount), r.cnt);
    return st;
}

int encodeRowFast(const Zeb16s* const* src, int width, int comps, Zeb8u* dst, int dstLen, int* dstPos,
                  const EncodeHuffmanSpec* const* specs, EncodeHuffmanState* state) {
    const int pos = loadAs<int>(dstPos);
    if (pos < 0 || pos >= dstLen) return kGiveUp;
    const Zeb16s* rows[4];
    EncSpec sp[4];
    for (int c = 0; c < comps; ++c) {
        rows[c] = loadAs<const Zeb16s*>(src + c);
        sp[c] = encSpecAt(specs, c);
    }
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    uint32_t acc;
    int cnt;
    loadEncState(stb, acc, cnt);
    FastWriter w{dst, dstLen, pos, acc >> (24 - cnt), cnt};
    for (int i = 0; i < width; ++i) {
        for (int c = 0; c < comps; ++c) {
            const int16_t v = ld(rows[c], i);
            const int cat = diffCategory(v);
            const int n = valueLength(cat);
            const uint32_t e = sp[c].entry(static_cast<unsigned>(cat));
            const int len = static_cast<int>(e >> 16);
            if (static_cast<unsigned>(len - 1) >= 16u) return kGiveUp;
            const uint32_t bits = ((e & 0xFFFFu) << n) | (n != 0 ? valueBits(v, n) : 0u);
            if (!w.put(bits, len + n)) return kGiveUp;
        }
    }
    if (!w.finish(acc, cnt)) return kGiveUp;
    storeAs<int>(dstPos, w.pos);
    storeEncState(stb, acc, cnt);
    return kOk;
}

int encodeRowCareful(const Zeb16s* const* src, int width, int comps, Zeb8u* dst, int dstLen, int* dstPos,
                     const EncodeHuffmanSpec* const* specs, EncodeHuffmanState* state) {
    const Zeb16s* rows[4];
    EncSpec sp[4];
    for (int c = 0; c < comps; ++c) {
        rows[c] = loadAs<const Zeb16s*>(src + c);
        sp[c] = encSpecAt(specs, c);
    }
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
    loadEncState(stb, w.acc, w.cnt);
    int st = kOk;
    for (int i = 0; i < width && st == kOk; ++i)
        for (int c = 0; c < comps && st == kOk; ++c) st = putDiff(w, sp[c], ld(rows[c], i));
    storeAs<int>(dstPos, w.pos);
    storeEncState(stb, w.acc, w.cnt);
    return st;
}

int decodeRowFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* const* dst, int width, int comps, int* marker,
                  const DecodeHuffmanSpec* const* specs, DecodeHuffmanState* state) {
    const int pos = loadAs<int>(srcPos);
    if (pos < 0 || srcLen - pos < 8 || loadAs<int>(marker) != 0) return kGiveUp;
    Zeb16s* rows[4];
    DecSpec sp[4];
    for (int c = 0; c < comps; ++c) {
        rows[c] = loadAs<Zeb16s*>(dst + c);
        sp[c] = decSpecAt(specs, c);
    }
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    FastReader r{src, srcLen, pos, 0, 0, 0};
    loadDecState(stb, r.acc, r.cnt);
    r.sync();
    for (int i = 0; i < width; ++i) {
        for (int c = 0; c < comps; ++c) {
            int16_t v;
            if (getDiff(r, sp[c], v) != kOk) return kGiveUp;
            storeAs<int16_t>(rows[c] + i, v);
        }
    }
    storeAs<int>(srcPos, r.position());
    storeAs<uint64_t>(stb, r.acc);
    storeAs<int32_t>(stb + offsetof(DecodeHuffmanState, bitCount), r.cnt);
    return kOk;
}

int decodeRowCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* const* dst, int width, int comps,
                     int* marker, const DecodeHuffmanSpec* const* specs, DecodeHuffmanState* state) {
    Zeb16s* rows[4];
    DecSpec sp[4];
    for (int c = 0; c < comps; ++c) {
        rows[c] = loadAs<Zeb16s*>(dst + c);
        sp[c] = decSpecAt(specs, c);
    }
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Reader<true> r{src, srcLen, loadAs<int>(srcPos), 0, 0, loadAs<int>(marker)};
    loadDecState(stb, r.acc, r.cnt);
    int st = kOk;
    for (int i = 0; i < width && st == kOk; ++i) {
        for (int c = 0; c < comps; ++c) {
            int16_t v;
            if ((st = getDiff(r, sp[c], v)) != kOk) break;
            storeAs<int16_t>(rows[c] + i, v);
        }
    }
    if (st == kMarkerStop) st = zebStatusJpegCoefficientRange;
    storeAs<int>(srcPos, r.pos);
    storeAs<int>(marker, r.marker);
    storeAs<uint64_t>(stb, r.acc);
    storeAs<int32_t>(stb + offsetof(DecodeHuffmanState, bitCount), r.cnt);
    return st;
}

}  // namespace zeb::jpeg::huff

// ------------------------------------------------------------ exports

using namespace zeb::jpeg::huff;
using zeb::loadAs;
using zeb::storeAs;

namespace {

// The prediction of the first sample of a scan. A point transform at or
// above the precision gives a shift count outside 0..15; it is taken modulo
// 32, as the processor's shift does, and the result cut to 16 bits.
inline int32_t firstPrediction(int precision, int pointTransform) {
    const unsigned sh = static_cast<unsigned>(precision - pointTransform - 1) & 31u;
    return static_cast<int32_t>(static_cast<uint16_t>(1u << sh));
}

ZebStatus checkFirstRow(const Zeb16s* src, const Zeb16s* dst, int width, int precision, int pointTransform) {
    if (src == nullptr || dst == nullptr) return zebStatusNullPointer;
    if (width < 1) return zebStatusBadSize;
    if (precision < 2 || precision > 16 || pointTransform < 0) return zebStatusBadArgument;
    return zebStatusOk;
}
ZebStatus checkRow(const Zeb16s* src, const Zeb16s* prev, const Zeb16s* dst, int width, int predictor) {
    if (src == nullptr || prev == nullptr || dst == nullptr) return zebStatusNullPointer;
    if (width < 1) return zebStatusBadSize;
    if (predictor < 1 || predictor > 7) return zebStatusBadArgument;
    return zebStatusOk;
}

}  // namespace

ZebStatus zebimpl::zebiDiffPredFirstRow_JPEG_16s_C1(const Zeb16s* src, Zeb16s* dst, int width, int precision,
                                                    int pointTransform) {
    ZebStatus s = checkFirstRow(src, dst, width, precision, pointTransform);
    if (s != zebStatusOk) return s;
    storeAs<int16_t>(dst, zeb::wrap16(int32_t{loadAs<int16_t>(src)} - firstPrediction(precision, pointTransform)));
    int i = 1;
    if (!overlapsRow(dst, src, width)) {
        for (; i + 16 <= width; i += 16) {
            __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
            __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i - 1));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), _mm256_sub_epi16(a, b));
        }
    }
    for (; i < width; ++i)
        storeAs<int16_t>(dst + i, zeb::wrap16(int32_t{loadAs<int16_t>(src + i)} - loadAs<int16_t>(src + i - 1)));
    return zebStatusOk;
}

ZebStatus zebimpl::zebiReconstructPredFirstRow_JPEG_16s_C1(const Zeb16s* src, Zeb16s* dst, int width, int precision,
                                                           int pointTransform) {
    ZebStatus s = checkFirstRow(src, dst, width, precision, pointTransform);
    if (s != zebStatusOk) return s;
    const int16_t first = zeb::wrap16(int32_t{loadAs<int16_t>(src)} + firstPrediction(precision, pointTransform));
    if (overlapsRow(dst, src, width)) {
        // Element by element: each difference is read before its place is written.
        int32_t last = first;
        storeAs<int16_t>(dst, first);
        for (int i = 1; i < width; ++i) {
            last = zeb::wrap16(last + loadAs<int16_t>(src + i));
            storeAs<int16_t>(dst + i, static_cast<int16_t>(last));
        }
    } else {
        runningSumFrom(src, dst, width, first);
    }
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDiffPredRow_JPEG_16s_C1(const Zeb16s* src, const Zeb16s* prevRow, Zeb16s* dst, int width,
                                               int predictor) {
    ZebStatus s = checkRow(src, prevRow, dst, width, predictor);
    if (s != zebStatusOk) return s;
    if (overlapsRow(dst, src, width) || overlapsRow(dst, prevRow, width))
        diffRowScalar(src, prevRow, dst, width, predictor);
    else
        diffRowVector(src, prevRow, dst, width, predictor);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiReconstructPredRow_JPEG_16s_C1(const Zeb16s* src, const Zeb16s* prevRow, Zeb16s* dst,
                                                      int width, int predictor) {
    ZebStatus s = checkRow(src, prevRow, dst, width, predictor);
    if (s != zebStatusOk) return s;
    if (overlapsRow(dst, src, width) || overlapsRow(dst, prevRow, width))
        reconstructRowScalar(src, prevRow, dst, width, predictor);
    else
        reconstructRowVector(src, prevRow, dst, width, predictor);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiEncodeHuffmanOne_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                      const EncodeHuffmanSpec* spec, EncodeHuffmanState* state,
                                                      int flush) {
    if (dst == nullptr) return zebStatusNullPointer;
    if (dstLen < 1) return zebStatusBadSize;
    if (dstPos == nullptr || state == nullptr) return zebStatusNullPointer;
    if (flush != 0) {
        uint8_t* stb = reinterpret_cast<uint8_t*>(state);
        Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
        loadEncState(stb, w.acc, w.cnt);
        int st = w.put(127, 7);
        storeAs<int>(dstPos, w.pos);
        ownsZero_8u(stb, kEncodeStateSize);
        return st;
    }
    if (src == nullptr || spec == nullptr) return zebStatusNullPointer;
    const int16_t v = loadAs<int16_t>(src);
    int st = encodeOneFast(v, dst, dstLen, dstPos, spec, state);
    if (st != kGiveUp) return st;
    return encodeOneCareful(v, dst, dstLen, dstPos, spec, state);
}

ZebStatus zebimpl::zebiDecodeHuffmanOne_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                      int* marker, const DecodeHuffmanSpec* spec,
                                                      DecodeHuffmanState* state) {
    if (src == nullptr) return zebStatusNullPointer;
    if (srcLen < 1) return zebStatusBadSize;
    if (srcPos == nullptr || dst == nullptr || marker == nullptr || spec == nullptr || state == nullptr)
        return zebStatusNullPointer;
    int st = decodeOneFast(src, srcLen, srcPos, dst, marker, spec, state);
    if (st != kGiveUp) return st;
    return decodeOneCareful(src, srcLen, srcPos, dst, marker, spec, state);
}

ZebStatus zebimpl::zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(const Zeb16s* const* src, int width, int components,
                                                        Zeb8u* dst, int dstLen, int* dstPos,
                                                        const EncodeHuffmanSpec* const* specs,
                                                        EncodeHuffmanState* state, int flush) {
    if (dst == nullptr) return zebStatusNullPointer;
    if (dstLen < 1) return zebStatusBadSize;
    if (dstPos == nullptr || state == nullptr) return zebStatusNullPointer;
    if (flush != 0) {
        uint8_t* stb = reinterpret_cast<uint8_t*>(state);
        Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
        loadEncState(stb, w.acc, w.cnt);
        int st = w.put(127, 7);
        storeAs<int>(dstPos, w.pos);
        ownsZero_8u(stb, kEncodeStateSize);
        return st;
    }
    if (src == nullptr) return zebStatusNullPointer;
    if (width < 1 || components < 1) return zebStatusBadSize;
    if (specs == nullptr) return zebStatusNullPointer;
    const int comps = components > 4 ? 4 : components;
    for (int c = 0; c < comps; ++c)
        if (loadAs<const Zeb16s*>(src + c) == nullptr) return zebStatusNullPointer;
    for (int c = 0; c < comps; ++c)
        if (loadAs<const EncodeHuffmanSpec*>(specs + c) == nullptr) return zebStatusNullPointer;
    int st = encodeRowFast(src, width, comps, dst, dstLen, dstPos, specs, state);
    if (st != kGiveUp) return st;
    return encodeRowCareful(src, width, comps, dst, dstLen, dstPos, specs, state);
}

ZebStatus zebimpl::zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* const* dst,
                                                        int width, int components, int* marker,
                                                        const DecodeHuffmanSpec* const* specs,
                                                        DecodeHuffmanState* state) {
    if (src == nullptr) return zebStatusNullPointer;
    if (srcLen < 1) return zebStatusBadSize;
    if (srcPos == nullptr || dst == nullptr) return zebStatusNullPointer;
    if (width < 1 || components < 1) return zebStatusBadSize;
    if (marker == nullptr || specs == nullptr || state == nullptr) return zebStatusNullPointer;
    const int comps = components > 4 ? 4 : components;
    for (int c = 0; c < comps; ++c)
        if (loadAs<Zeb16s*>(dst + c) == nullptr) return zebStatusNullPointer;
    for (int c = 0; c < comps; ++c)
        if (loadAs<const DecodeHuffmanSpec*>(specs + c) == nullptr) return zebStatusNullPointer;
    int st = decodeRowFast(src, srcLen, srcPos, dst, width, comps, marker, specs, state);
    if (st != kGiveUp) return st;
    return decodeRowCareful(src, srcLen, srcPos, dst, width, comps, marker, specs, state);
}

ZebStatus zebimpl::zebiGetHuffmanStatisticsOne_JPEG_16s_C1(const Zeb16s* src, Zeb32s* statistics) {
    if (src == nullptr || statistics == nullptr) return zebStatusNullPointer;
    const int c = category(loadAs<int16_t>(src));
    Zeb32s* p = statistics + c;
    storeAs<int32_t>(p, zeb::add32(loadAs<int32_t>(p), 1));
    return zebStatusOk;
}
