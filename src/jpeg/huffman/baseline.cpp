// Baseline (sequential) 8x8 block coding: the encoder and decoder with a
// state object and a buffer limit, each in a fast form and a careful form with
// identical results, and the stateless pair that counts positions in bits.
#include <immintrin.h>

#include <cstdint>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/memory.h"
#include "jpeg/huffman/bitio.h"
#include "jpeg/huffman/huffman.h"
#include "jpeg/zigzag.h"

namespace zeb::jpeg::huff {

namespace {

inline int16_t coef(const uint8_t* block, int natural) { return loadAs<int16_t>(block + 2 * natural); }

// ------------------------------------------------------------ encoding

// The coding steps after the DC prediction, through any careful writer.
// Symbols past 255 (run 15 with a 16-bit magnitude) have no code.
template <class W>
int encodeSteps(W& w, const uint8_t* block, int32_t diff, EncSpec dc, EncSpec ac) {
    int c = category(diff);
    int st = w.putCode(dc.entry(c));
    if (st != kOk) return st;
    if (c != 0 && (st = w.put(valueBits(diff, c), c)) != kOk) return st;
    int run = 0;
    for (int k = 1; k < 64; ++k) {
        int32_t v = coef(block, kZigzag[k]);
        if (v == 0) {
            ++run;
            continue;
        }
        for (; run > 15; run -= 16)
            if ((st = w.putCode(ac.entry(0xF0))) != kOk) return st;
        c = category(v);
        int sym = run * 16 + c;
        if ((st = w.putCode(sym > 255 ? 0u : ac.entry(sym))) != kOk) return st;
        if ((st = w.put(valueBits(v, c), c)) != kOk) return st;
        run = 0;
    }
    if (run > 0) return w.putCode(ac.entry(0x00));
    return kOk;
}

// Per coefficient, one 32-bit word: the magnitude in the high half, the value
// bits (v, or v - 1 when negative) in the low half. The category is then
// the top set bit's index minus 15, and the value bits its low
// `category` bits. The words are stored interleaved as the vector unpacks
// leave them: within each group of 16 coefficients, bits 2 and 3 of the
// index are swapped.
inline void coefficientWords(const uint8_t* block, uint32_t* words) {
    for (int i = 0; i < 4; ++i) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(block + 32 * i));
        const __m256i vb = _mm256_add_epi16(v, _mm256_srai_epi16(v, 15));
        const __m256i a = _mm256_abs_epi16(v);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(words + 16 * i), _mm256_unpacklo_epi16(vb, a));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(words + 16 * i + 8), _mm256_unpackhi_epi16(vb, a));
    }
}
// Zigzag position -> slot of its coefficient's word.
struct ZigzagWords {
    uint8_t z[64];
    constexpr ZigzagWords() : z{} {
        for (int k = 0; k < 64; ++k) {
            const int n = kZigzag[k];
            z[k] = static_cast<uint8_t>((n & ~12) | ((n & 4) << 1) | ((n & 8) >> 1));
        }
    }
};
constexpr ZigzagWords kZw;

// Code and value bits of one symbol as one item of at most 32 bits; false
// when the symbol has no usable code.
inline bool item(uint32_t entry, uint32_t value, int c, uint32_t& bits, int& n) {
    int len = static_cast<int>(entry >> 16);
    if (static_cast<unsigned>(len - 1) >= 16u) return false;
    bits = ((entry & 0xFFFFu) << c) | value;
    n = len + c;
    return true;
}

// The fast writer with a finish that moves the last whole bytes in one
// eight-byte read-modify-write when the room allows and none is 0xFF: the
// bytes past the new position are stored back as they were.
struct BlockWriter : FastWriter {
    ZEB_HUFF_INLINE bool finishBlock(uint32_t& acc24, int& count) {
        const int nbytes = nbits >> 3;
        const uint64_t top = buf << ((64 - nbits) & 63);  // nbits 0: no byte taken below
        const uint64_t le = __builtin_bswap64(top);
        const uint64_t keep = _bzhi_u64(~uint64_t{0}, static_cast<unsigned>(8 * nbytes));
        if (__builtin_expect(len - pos >= 8 && (maskFF(le) & keep) == 0, 1)) {
            uint64_t old = loadAs<uint64_t>(dst + pos);
            storeAs<uint64_t>(dst + pos, (old & ~keep) | (le & keep));
            pos += nbytes;
            nbits &= 7;
        }
        return finish(acc24, count);
    }
};

}  // namespace

ZEB_HUFF_INLINE int encodeBlockFastImpl(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos, Zeb16s* lastDC,
                    const EncodeHuffmanSpec* dcSpec, const EncodeHuffmanSpec* acSpec, EncodeHuffmanState* state) {
    int pos = loadAs<int>(dstPos);
    if (pos < 0 || dstLen - pos < 24) return kGiveUp;
    const uint8_t* block = reinterpret_cast<const uint8_t*>(src);
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    EncSpec dc{reinterpret_cast<const uint8_t*>(dcSpec)}, ac{reinterpret_cast<const uint8_t*>(acSpec)};
    uint32_t acc;
    int cnt;
    loadEncState(stb, acc, cnt);
    BlockWriter w{{dst, dstLen, pos, acc >> (24 - cnt), cnt}};

    const int16_t s0 = coef(block, 0);
    const int32_t diff = int32_t{s0} - loadAs<int16_t>(lastDC);
    uint32_t bits;
    int n;
    int c = category(diff);
    if (!item(dc.entry(c), valueBits(diff, c), c, bits, n) || !w.put(bits, n)) return kGiveUp;

    uint64_t nz = nonZeroMask(block) & ~uint64_t{1};
    int prev = 0;
    // The coefficients one by one; `coefficient(k)` gives the word of zigzag
    // position k (see coefficientWords).
    auto walk = [&](auto coefficient) __attribute__((always_inline)) {
        while (nz != 0) {
            int k = __builtin_ctzll(nz);
            nz &= nz - 1;
            int run = k - prev - 1;
            if (__builtin_expect(run > 15, 0)) {
                uint32_t zrl = ac.entry(0xF0);
                int zlen = static_cast<int>(zrl >> 16);
                if (static_cast<unsigned>(zlen - 1) >= 16u) return false;
                for (; run > 15; run -= 16)
                    if (!w.put(zrl & 0xFFFFu, zlen)) return false;
            }
            const uint32_t word = coefficient(k);
            const int cat = _bit_scan_reverse(static_cast<int>(word)) - 15;  // the magnitude is not 0
            unsigned sym = static_cast<unsigned>(run * 16 + cat);
            if (sym > 255 || !item(ac.entry(sym), _bzhi_u32(word, static_cast<unsigned>(cat)), cat, bits, n) ||
                !w.put(bits, n))
                return false;
            prev = k;
        }
        return true;
    };
    // Busy blocks prepare all the words with vector operations; sparse ones
    // make the few they need.
    if (__builtin_popcountll(nz) > 12) {
        alignas(32) uint32_t words[64];
        coefficientWords(block, words);
        if (!walk([&](int k) { return words[kZw.z[k]]; })) return kGiveUp;
    } else {
        auto one = [&](int k) {
            const int32_t v = loadAs<int16_t>(block + 2 * size_t{kZigzag[k]});
            return magnitude(v) << 16 | (static_cast<uint32_t>(v + (v >> 31)) & 0xFFFFu);
        };
        if (!walk(one)) return kGiveUp;
    }
    if (prev < 63) {
        uint32_t eob = ac.entry(0x00);
        if (!item(eob, 0, 0, bits, n) || !w.put(bits, n)) return kGiveUp;
    }
    if (!w.finishBlock(acc, cnt)) return kGiveUp;
    storeAs<int>(dstPos, w.pos);
    storeEncState(stb, acc, cnt);
    storeAs<int16_t>(lastDC, s0);
    return kOk;
}

int encodeBlockCareful(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos, Zeb16s* lastDC,
                       const EncodeHuffmanSpec* dcSpec, const EncodeHuffmanSpec* acSpec, EncodeHuffmanState* state) {
    const uint8_t* block = reinterpret_cast<const uint8_t*>(src);
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
    loadEncState(stb, w.acc, w.cnt);
    const int16_t s0 = coef(block, 0);
    const int32_t diff = int32_t{s0} - loadAs<int16_t>(lastDC);
    storeAs<int16_t>(lastDC, s0);
    int st = encodeSteps(w, block, diff, EncSpec{reinterpret_cast<const uint8_t*>(dcSpec)},
                         EncSpec{reinterpret_cast<const uint8_t*>(acSpec)});
    storeAs<int>(dstPos, w.pos);
    storeEncState(stb, w.acc, w.cnt);
    return st;
}

// ------------------------------------------------------------ decoding

namespace {

// Where a block decode stopped on failure.
enum Phase { kDcSymbol, kDcValue, kAcSymbol, kAcValue };

// Decoding steps of one block into a cleared block. Stateless: a coefficient
// at k of 64 or more ends the block instead of the guard test.
template <bool Stateless, class R>
ZEB_HUFF_INLINE int decodeSteps(R& r, DecSpec dcs, DecSpec acs, uint8_t* out, int16_t& dc, int& blockEnd, Phase& phase) {
    int sym;
    int st = decodeSymbol(r, dcs, sym);
    if (st != kOk) {
        blockEnd = 0;
        phase = kDcSymbol;
        return st;
    }
    int s = sym & 15;
    int32_t v;
    if (s != 0) {
        if ((st = receiveExtend(r, s, v)) != kOk) {
            blockEnd = 0;
            phase = kDcValue;
            return st;
        }
        dc = wrap16(int32_t{dc} + v);
    }
    storeAs<int16_t>(out, dc);
    int k = 1;
    for (;;) {
        if ((st = decodeSymbol(r, acs, sym)) != kOk) {
            blockEnd = k;
            phase = kAcSymbol;
            return st;
        }
        int run = (sym >> 4) & 15;
        s = sym & 15;
        if (s == 0) {
            if (run < 15) break;
            k += 16;
        } else {
            k += run;
            if ((st = receiveExtend(r, s, v)) != kOk) {
                blockEnd = k;
                phase = kAcValue;
                return st;
            }
            if constexpr (Stateless) {
                if (k >= 64) break;
            } else {
                if (k >= 72) {
                    blockEnd = k;
                    return kRunPastBlock;
                }
            }
            storeAs<int16_t>(out + 2 * kZext.z[k], static_cast<int16_t>(v));
            ++k;
        }
        if (k >= 64) break;
    }
    blockEnd = k;
    return kOk;
}

}  // namespace

ZEB_HUFF_INLINE int decodeBlockFastImpl(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, Zeb16s* lastDC, int* marker,
                    const DecodeHuffmanSpec* dcSpec, const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    int pos = loadAs<int>(srcPos);
    if (pos < 0 || srcLen - pos < 24 || loadAs<int>(marker) != 0) return kGiveUp;
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    FastReader r{src, srcLen, pos, 0, 0, 0};
    loadDecState(stb, r.acc, r.cnt);
    r.sync();
    uint8_t* out = reinterpret_cast<uint8_t*>(dst);
    const __m256i zero = _mm256_setzero_si256();
    for (int i = 0; i < 128; i += 32) _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), zero);
    int16_t dc = loadAs<int16_t>(lastDC);
    int blockEnd;
    Phase phase;
    if (decodeSteps<false>(r, DecSpec{reinterpret_cast<const uint8_t*>(dcSpec)},
                           DecSpec{reinterpret_cast<const uint8_t*>(acSpec)}, out, dc, blockEnd, phase) != kOk)
        return kGiveUp;
    storeAs<int>(srcPos, r.position());
    storeDecState(stb, r.acc, r.cnt, blockEnd);
    storeAs<int16_t>(lastDC, dc);
    return kOk;
}

int decodeBlockCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, Zeb16s* lastDC, int* marker,
                       const DecodeHuffmanSpec* dcSpec, const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    uint8_t* stb = reinterpret_cast<uint8_t*>(state);
    Reader<true> r{src, srcLen, loadAs<int>(srcPos), 0, 0, loadAs<int>(marker)};
    loadDecState(stb, r.acc, r.cnt);
    uint8_t* out = reinterpret_cast<uint8_t*>(dst);
    ownsZeroStream_8u(out, 128);
    int16_t dc = loadAs<int16_t>(lastDC);
    int blockEnd;
    Phase phase;
    int st = decodeSteps<false>(r, DecSpec{reinterpret_cast<const uint8_t*>(dcSpec)},
                                DecSpec{reinterpret_cast<const uint8_t*>(acSpec)}, out, dc, blockEnd, phase);
    if (st == kMarkerStop) st = zebStatusJpegCoefficientRange;
    storeAs<int>(srcPos, r.pos);
    storeAs<int>(marker, r.marker);
    storeDecState(stb, r.acc, r.cnt, blockEnd);
    storeAs<int16_t>(lastDC, dc);
    return st;
}

int encodeBlockFast(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos, Zeb16s* lastDC,
                    const EncodeHuffmanSpec* dcSpec, const EncodeHuffmanSpec* acSpec, EncodeHuffmanState* state) {
    return encodeBlockFastImpl(src, dst, dstLen, dstPos, lastDC, dcSpec, acSpec, state);
}

int decodeBlockFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, Zeb16s* lastDC, int* marker,
                    const DecodeHuffmanSpec* dcSpec, const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    return decodeBlockFastImpl(src, srcLen, srcPos, dst, lastDC, marker, dcSpec, acSpec, state);
}

}  // namespace zeb::jpeg::huff

// ------------------------------------------------------------ exports

using namespace zeb::jpeg::huff;
using zeb::loadAs;
using zeb::storeAs;

ZebStatus zebimpl::zebiEncodeHuffman8x8_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                      Zeb16s* lastDC, const EncodeHuffmanSpec* dcSpec,
                                                      const EncodeHuffmanSpec* acSpec, EncodeHuffmanState* state,
                                                      int flush) {
    if (dst == nullptr) return zebStatusNullPointer;
    if (dstLen < 1) return zebStatusBadSize;
    if (dstPos == nullptr || state == nullptr) return zebStatusNullPointer;
    if (flush != 0) {
        // Seven one bits complete a partial byte; the rest vanish with the reset.
        uint8_t* stb = reinterpret_cast<uint8_t*>(state);
        Writer24<true> w{dst, dstLen, loadAs<int>(dstPos), 0, 0};
        loadEncState(stb, w.acc, w.cnt);
        int st = w.put(127, 7);
        storeAs<int>(dstPos, w.pos);
        ownsZero_8u(stb, kEncodeStateSize);
        return st;
    }
    if (src == nullptr || lastDC == nullptr || dcSpec == nullptr || acSpec == nullptr) return zebStatusNullPointer;
    int st = encodeBlockFastImpl(src, dst, dstLen, dstPos, lastDC, dcSpec, acSpec, state);
    if (st != kGiveUp) return st;
    return encodeBlockCareful(src, dst, dstLen, dstPos, lastDC, dcSpec, acSpec, state);
}

ZebStatus zebimpl::zebiDecodeHuffman8x8_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                      Zeb16s* lastDC, int* marker, const DecodeHuffmanSpec* dcSpec,
                                                      const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state) {
    if (src == nullptr) return zebStatusNullPointer;
    if (srcLen < 0) return zebStatusBadArgument;
    if (srcPos == nullptr || dst == nullptr || lastDC == nullptr || marker == nullptr || dcSpec == nullptr ||
        acSpec == nullptr || state == nullptr)
        return zebStatusNullPointer;
    int st = decodeBlockFastImpl(src, srcLen, srcPos, dst, lastDC, marker, dcSpec, acSpec, state);
    if (st != kGiveUp) return st;
    return decodeBlockCareful(src, srcLen, srcPos, dst, lastDC, marker, dcSpec, acSpec, state);
}

ZebStatus zebimpl::zebiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int* dstBitsLen,
                                                             Zeb16s* lastDC, const EncodeHuffmanSpec* dcSpec,
                                                             const EncodeHuffmanSpec* acSpec) {
    if (src == nullptr || dst == nullptr || dstBitsLen == nullptr || lastDC == nullptr || dcSpec == nullptr ||
        acSpec == nullptr)
        return zebStatusNullPointer;
    const int bitsLen = loadAs<int>(dstBitsLen);
    const int cnt = bitsLen & 7;
    Writer24<false> w{dst, 0, bitsLen >> 3, 0, cnt};
    if (cnt != 0) w.acc = (static_cast<uint32_t>(dst[w.pos]) << 16) & (0xFFFFFFu << (24 - cnt)) & 0xFFFFFFu;
    const uint8_t* block = reinterpret_cast<const uint8_t*>(src);
    const int16_t s0 = loadAs<int16_t>(block);
    const int32_t diff = int32_t{s0} - loadAs<int16_t>(lastDC);
    storeAs<int16_t>(lastDC, s0);
    encodeSteps(w, block, diff, EncSpec{reinterpret_cast<const uint8_t*>(dcSpec)},
                EncSpec{reinterpret_cast<const uint8_t*>(acSpec)});
    if (w.cnt != 0) dst[w.pos] = static_cast<uint8_t>(w.acc >> 16);
    storeAs<int>(dstBitsLen, w.pos * 8 + w.cnt);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(const Zeb8u* src, int* srcBitsLen, Zeb16s* dst,
                                                             Zeb16s* lastDC, int* marker, Zeb32u* prefetchedBits,
                                                             int* prefetchedBitCount, const DecodeHuffmanSpec* dcSpec,
                                                             const DecodeHuffmanSpec* acSpec) {
    if (src == nullptr || srcBitsLen == nullptr) return zebStatusNullPointer;
    const int bitsLen = loadAs<int>(srcBitsLen);
    if (bitsLen < 0) return zebStatusBadArgument;
    if (dst == nullptr || lastDC == nullptr || marker == nullptr || prefetchedBits == nullptr ||
        prefetchedBitCount == nullptr)
        return zebStatusNullPointer;
    const int pcount = loadAs<int>(prefetchedBitCount);
    if (pcount < 0) return zebStatusBadArgument;
    if (dcSpec == nullptr || acSpec == nullptr) return zebStatusNullPointer;

    Reader<false> r{src, 0, bitsLen >> 3, loadAs<uint32_t>(prefetchedBits), pcount > 32 ? 32 : pcount,
                    loadAs<int>(marker)};
    uint8_t* out = reinterpret_cast<uint8_t*>(dst);
    ownsZeroStream_8u(out, 128);
    int16_t dc = loadAs<int16_t>(lastDC);
    int blockEnd;
    Phase phase = kDcSymbol;
    int st = decodeSteps<true>(r, DecSpec{reinterpret_cast<const uint8_t*>(dcSpec)},
                               DecSpec{reinterpret_cast<const uint8_t*>(acSpec)}, out, dc, blockEnd, phase);
    storeAs<int>(marker, r.marker);
    if (st == kMarkerStop) {
        if (phase == kDcSymbol) return zebStatusOk;  // block cleared, nothing else moves
        if (phase == kAcSymbol) {
            r.cnt = 0;
            st = zebStatusOk;
        } else {
            st = zebStatusJpegBufferEnd;  // no bits left for a value
        }
    }
    storeAs<int>(srcBitsLen, r.pos * 8);
    storeAs<uint32_t>(prefetchedBits, r.acc);
    storeAs<int>(prefetchedBitCount, r.cnt);
    storeAs<int16_t>(lastDC, dc);
    return st;
}
