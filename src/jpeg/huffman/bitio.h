// Bit-level machinery of the JPEG entropy coders: byte-stuffing bit writers
// (a careful one that checks every byte, a fast one with a 64-bit register),
// bit readers (a careful one with marker and fill-byte handling, a fast one
// that prefetches eight stuffing-free bytes at a time), Huffman symbol
// decoding and value extension. Shared by the baseline, progressive and
// lossless coders.
//
// Careful writer layout: the pending bits sit at the top of a 24-bit field,
// the first pending bit at bit 23, 0 to 7 of them between writes.
// Reader layout: the next unread bit is at position cnt - 1 of a 32-bit
// accumulator; a refill shifts it left by 8 and adds the byte at the bottom,
// topping up to at least 25 valid bits.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/arith.h"
#include "jpeg/zigzag.h"
#include "zebjp.h"

namespace zeb::jpeg::huff {

// The bit machinery lives in registers only when fully inlined into its
// caller's loop.
#define ZEB_HUFF_INLINE [[gnu::always_inline]] inline

// Internal results beside the public statuses.
inline constexpr int kOk = 0;
inline constexpr int kBufferEnd = zebStatusJpegBufferEnd;       // -62
inline constexpr int kNoCode = zebStatusJpegCoefficientRange;   // -63: no code within 16 bits
inline constexpr int kMissingCode = zebStatusJpegHuffmanTable;  // -64
inline constexpr int kRunPastBlock = zebStatusUnspecified;      // -2
inline constexpr int kMarkerStop = -1063;  // bits ran out behind a marker (public: -63)
inline constexpr int kGiveUp = 1;          // fast form hands the work to the careful form

// ------------------------------------------------------------ value helpers

// Number of significant bits of |v| (0 for 0). Branch-free: the sign of
// coded values is random, a branch on it mispredicts half the time.
inline uint32_t magnitude(int32_t v) {
    uint32_t sgn = static_cast<uint32_t>(v >> 31);
    return (static_cast<uint32_t>(v) ^ sgn) - sgn;
}
inline int category(int32_t v) {
    uint32_t a = magnitude(v);
    return a == 0 ? 0 : 32 - __builtin_clz(a);
}
// The value bits of v in c bits: v, or v - 1 when negative, low c bits.
inline uint32_t valueBits(int32_t v, int c) {
    uint32_t u = static_cast<uint32_t>(v) + static_cast<uint32_t>(v >> 31);
    return u & ((1u << c) - 1u);
}
// Sign extension of s received bits t (s from 1 to 16), branch-free.
inline int32_t extend(uint32_t t, int s) {
    int32_t low = static_cast<int32_t>(t - (1u << (s - 1))) >> 31;  // all ones when the top bit is 0
    return static_cast<int32_t>(t + (static_cast<uint32_t>(low) & (1u - (1u << s))));
}

// Object views: the objects may sit at any address, so every field goes
// through an element load or store.
struct EncSpec {
    const uint8_t* p;
    uint32_t entry(unsigned symbol) const { return loadAs<uint32_t>(p + 4 * size_t{symbol}); }
};
struct DecSpec {
    const uint8_t* p;
    uint32_t lookup(uint32_t i) const { return loadAs<uint32_t>(p + offsetof(DecodeHuffmanSpec, lookup) + 4 * i); }
    uint16_t symbol(int i) const { return loadAs<uint16_t>(p + 2 * i); }
    uint16_t minCode(int l) const { return loadAs<uint16_t>(p + offsetof(DecodeHuffmanSpec, minCode) + 2 * l); }
    uint16_t maxCode(int l) const { return loadAs<uint16_t>(p + offsetof(DecodeHuffmanSpec, maxCode) + 2 * l); }
    uint16_t symbolIndex(int l) const { return loadAs<uint16_t>(p + offsetof(DecodeHuffmanSpec, symbolIndex) + 2 * l); }
};

// True when one of the eight bytes of w is 0xFF.
inline bool hasFF(uint64_t w) {
    uint64_t y = ~w;
    return ((y - 0x0101010101010101ull) & w & 0x8080808080808080ull) != 0;
}
// Exact mask of the 0xFF bytes of w (high bit of each such byte set).
inline uint64_t maskFF(uint64_t w) {
    uint64_t y = ~w;
    return ~(((y & 0x7F7F7F7F7F7F7F7Full) + 0x7F7F7F7F7F7F7F7Full) | y | 0x7F7F7F7F7F7F7F7Full);
}

// ------------------------------------------------------------ careful writer

// Writes 1 to 16 bits per call with byte stuffing. Bounded: checks each byte
// against len (-62); a failed write keeps acc/cnt as before it, while bytes
// already stored and pos stay advanced. Unbounded (stateless coders): no limit,
// and a zero length writes nothing.
template <bool Bounded>
struct Writer24 {
    uint8_t* dst;
    int len;
    int pos;
    uint32_t acc;  // pending bits at the top of a 24-bit field
    int cnt;       // 0..7

    ZEB_HUFF_INLINE int put(uint32_t value, int n) {
        if (static_cast<unsigned>(n - 1) >= 16u) return Bounded ? kMissingCode : kOk;
        int c = cnt + n;
        uint32_t a = acc | ((value & ((1u << n) - 1u)) << (24 - c));
        while (c >= 8) {
            if constexpr (Bounded) {
                if (pos < 0 || pos >= len) return kBufferEnd;
            }
            uint8_t b = static_cast<uint8_t>(a >> 16);
            dst[pos++] = b;
            if (b == 0xFF) {
                if constexpr (Bounded) {
                    if (pos >= len) return kBufferEnd;
                }
                dst[pos++] = 0;
            }
            a = (a << 8) & 0xFFFFFFu;
            c -= 8;
        }
        acc = a;
        cnt = c;
        return kOk;
    }
    // A table entry: length << 16 | code.
    ZEB_HUFF_INLINE int putCode(uint32_t entry) { return put(entry & 0xFFFFu, static_cast<int>(entry >> 16)); }
};

// ------------------------------------------------------------ fast writer

// Stores the eight bytes of `full` (first byte at the top) at pos with byte
// stuffing; the new position, or -1 when the room is short (8 bytes needed,
// 16 when one of them is 0xFF).
ZEB_HUFF_INLINE int emitWord(uint8_t* dst, int len, int pos, uint64_t full) {
    if (!hasFF(full)) {
        if (len - pos < 8) return -1;
        storeAs<uint64_t>(dst + pos, __builtin_bswap64(full));
        return pos + 8;
    }
    if (len - pos < 16) return -1;
    for (int i = 56; i >= 0; i -= 8) {
        uint8_t b = static_cast<uint8_t>(full >> i);
        dst[pos++] = b;
        if (b == 0xFF) dst[pos++] = 0;
    }
    return pos;
}

// A 64-bit register, right-justified, moved to memory eight bytes at a time.
// Any shortage of room makes put/finish return false: the caller gives up and
// the careful writer does the work again from the start.
struct FastWriter {
    uint8_t* dst;
    int len;
    int pos;
    uint64_t buf;  // valid bits: the low nbits (bits above are ignored)
    int nbits;     // 0..64

    // n from 0 to 32 bits; bits holds no more than n bits.
    ZEB_HUFF_INLINE bool put(uint32_t bits, int n) {
        if (__builtin_expect(nbits + n <= 64, 1)) {
            buf = (buf << n) | bits;
            nbits += n;
            return true;
        }
        int fit = 64 - nbits;
        uint64_t full = (buf << fit) | (static_cast<uint64_t>(bits) >> (n - fit));
        buf = bits;
        nbits = n - fit;
        pos = emitWord(dst, len, pos, full);
        return pos >= 0;
    }
    // Moves the whole bytes out; leaves the rest in the careful layout.
    bool finish(uint32_t& acc24, int& cnt) {
        while (nbits >= 8) {
            uint8_t b = static_cast<uint8_t>(buf >> (nbits - 8));
            if (pos >= len) return false;
            dst[pos++] = b;
            if (b == 0xFF) {
                if (pos >= len) return false;
                dst[pos++] = 0;
            }
            nbits -= 8;
        }
        acc24 = static_cast<uint32_t>(buf & ((1u << nbits) - 1u)) << (24 - nbits);
        cnt = nbits;
        return true;
    }
};

// ------------------------------------------------------------ careful reader

// Bounded: reads src[pos .. len), never outside. Unbounded (stateless
// decoder): the stream is promised to end with a marker.
// fill(need) tops the accumulator up to at least 25 bits. While a marker is
// pending nothing is read. Result: kBufferEnd at the buffer's end (need >
// cnt, or always when the end splits a 0xFF from its successor), kMarkerStop
// when a marker leaves fewer than need bits, else kOk.
template <bool Bounded>
struct Reader {
    const uint8_t* src;
    int len;
    int pos;
    uint32_t acc;
    int cnt;
    int marker;

    ZEB_HUFF_INLINE int fill(int need) {
        if (marker != 0) return need > cnt ? kMarkerStop : kOk;
        while (cnt < 25) {
            if constexpr (Bounded) {
                if (pos < 0 || pos >= len) return need > cnt ? kBufferEnd : kOk;
            }
            uint32_t b = src[pos++];
            if (b == 0xFF) {
                for (;;) {
                    if constexpr (Bounded) {
                        if (pos >= len) return kBufferEnd;
                    }
                    uint32_t m = src[pos++];
                    if (m == 0x00) break;
                    if (m == 0xFF) continue;  // fill byte
                    marker = static_cast<int>(m);
                    return need > cnt ? kMarkerStop : kOk;
                }
            }
            acc = (acc << 8) | b;
            cnt += 8;
        }
        return kOk;
    }
    // The next n bits (1 to 16, at most cnt), and their removal.
    ZEB_HUFF_INLINE uint32_t peek(int n) const { return (acc >> (cnt - n)) & ((1u << n) - 1u); }
    ZEB_HUFF_INLINE void skip(int n) { cnt -= n; }
};

// ------------------------------------------------------------ fast reader

// Same accumulator and refill schedule as the careful reader, so that the
// resulting acc/cnt/position are identical; the bytes come from a prefetch
// register loaded eight at a time while none is 0xFF. A 0xFF 0x00 pair is
// taken singly; a marker, a fill byte or fewer than eight bytes left make it
// give up. Bytes still in the prefetch register are stuffing-free, so the
// position moves back over them at the end.
struct FastReader {
    const uint8_t* src;
    int len;
    int pos;  // behind the prefetched bytes
    uint32_t acc;
    int cnt;
    int marker;  // always 0 here
    uint64_t pf = 0;  // prefetched bytes, first one at the top
    int pfn = 0;      // how many
    uint32_t work = 0;  // the valid bits of acc left-aligned: the next bit is bit 31

    // After acc/cnt were set from outside.
    ZEB_HUFF_INLINE void sync() { work = static_cast<uint32_t>(static_cast<uint64_t>(acc) << (32 - cnt)); }
    ZEB_HUFF_INLINE uint32_t peek(int n) const { return work >> (32 - n); }
    ZEB_HUFF_INLINE void skip(int n) {
        work <<= n;
        cnt -= n;
    }

    ZEB_HUFF_INLINE int fill(int /*need*/) {
        while (cnt < 25) {
            if (pfn == 0) {
                if (len - pos < 8) return kGiveUp;
                uint64_t w = __builtin_bswap64(loadAs<uint64_t>(src + pos));
                uint64_t ff = maskFF(w);
                if (ff == 0) {
                    pf = w;
                    pfn = 8;
                    pos += 8;
                } else {
                    int j = __builtin_clzll(ff) >> 3;  // bytes before the first 0xFF
                    if (j == 0) {
                        if (src[pos + 1] != 0) return kGiveUp;
                        acc = (acc << 8) | 0xFFu;
                        cnt += 8;
                        pos += 2;
                        continue;
                    }
                    pf = w;
                    pfn = j;
                    pos += j;
                }
            }
            int want = (32 - cnt) >> 3;
            int take = want < pfn ? want : pfn;
            int sh = 8 * take;
            acc = static_cast<uint32_t>((static_cast<uint64_t>(acc) << sh) | (pf >> (64 - sh)));
            pf <<= sh;
            pfn -= take;
            cnt += sh;
        }
        sync();
        return kOk;
    }
    int position() const { return pos - pfn; }
};

// ------------------------------------------------------------ symbols

// Slow search from `length` bits on, bit by bit up to 16.
template <class R>
ZEB_HUFF_INLINE int decodeSlow(R& r, DecSpec spec, int length, int& sym) {
    if (r.cnt < length) {
        int st = r.fill(length);
        if (st != kOk) return st;
    }
    uint32_t code = r.peek(length);
    r.skip(length);
    for (;;) {
        uint32_t mx = spec.maxCode(length);
        if (mx != 0xFFFFu && code <= mx) break;
        if (r.cnt < 1) {
            int st = r.fill(1);
            if (st != kOk) return st;
        }
        code = (code << 1) | r.peek(1);
        r.skip(1);
        if (++length > 16) {
            sym = 0;
            return kNoCode;
        }
    }
    // A damaged table can give an index outside the symbol list; it stays inside.
    int idx = static_cast<int>(spec.symbolIndex(length)) - static_cast<int>(spec.minCode(length)) +
              static_cast<int>(code);
    sym = spec.symbol(idx & 0xFF);
    return kOk;
}

template <class R>
ZEB_HUFF_INLINE int decodeSymbol(R& r, DecSpec spec, int& sym) {
    if (r.cnt < 8) {
        int st = r.fill(0);
        if (st == kGiveUp) return st;
        if (r.cnt < 8) return decodeSlow(r, spec, 1, sym);
    }
    uint32_t e = spec.lookup(r.peek(8));
    if (e != 0) {
        r.skip(static_cast<int>(e >> 16));
        sym = static_cast<int>(e & 0xFFFFu);
        return kOk;
    }
    return decodeSlow(r, spec, 9, sym);
}

// s value bits (1 to 16), extended; refills when fewer are there.
template <class R>
ZEB_HUFF_INLINE int receiveExtend(R& r, int s, int32_t& v) {
    if (r.cnt < s) {
        int st = r.fill(s);
        if (st != kOk) return st;
    }
    uint32_t t = r.peek(s);
    r.skip(s);
    v = extend(t, s);
    return kOk;
}

// ------------------------------------------------------------ shared tables and state access

// Zigzag order extended by eight guard positions that all mean 63: a run
// may overshoot the block by that much before the decoder refuses it.
struct ZigzagExt {
    uint8_t z[72];
    constexpr ZigzagExt() : z{} {
        for (int k = 0; k < 64; ++k) z[k] = kZigzag[k];
        for (int k = 64; k < 72; ++k) z[k] = 63;
    }
};
constexpr ZigzagExt kZext;

// ------------------------------------------------------------ state access

// The encoder's pending bits: bitCount 0..7 at the top of the 24-bit field.
// A state outside that (never produced by these coders) is clamped.
inline void loadEncState(const uint8_t* st, uint32_t& acc, int& cnt) {
    int c = loadAs<int32_t>(st + offsetof(EncodeHuffmanState, bitCount));
    cnt = c < 0 ? 0 : (c > 7 ? 7 : c);
    uint32_t keep = 0xFFFFFFu & ~((1u << (24 - cnt)) - 1u);
    acc = static_cast<uint32_t>(loadAs<uint64_t>(st)) & keep;
}
inline void storeEncState(uint8_t* st, uint32_t acc, int cnt) {
    storeAs<uint64_t>(st, acc);
    storeAs<int32_t>(st + offsetof(EncodeHuffmanState, bitCount), cnt);
}

// The decoder's read-ahead: at most 32 valid bits.
inline void loadDecState(const uint8_t* st, uint32_t& acc, int& cnt) {
    acc = static_cast<uint32_t>(loadAs<uint64_t>(st));
    int c = loadAs<int32_t>(st + offsetof(DecodeHuffmanState, bitCount));
    cnt = c < 0 ? 0 : (c > 32 ? 32 : c);
}
inline void storeDecState(uint8_t* st, uint32_t acc, int cnt, int blockEnd) {
    storeAs<uint64_t>(st, acc);
    storeAs<int32_t>(st + offsetof(DecodeHuffmanState, bitCount), cnt);
    storeAs<int32_t>(st + offsetof(DecodeHuffmanState, blockEnd), blockEnd);
}

// Byte shuffles that put 64 flags from natural order into zigzag order:
// output half h (positions 32h..32h+31) is the OR of four in-lane shuffles of
// the two natural halves, each as it is and with its lanes swapped.
struct ZigzagShuffles {
    alignas(32) uint8_t m[2][4][32];  // [output half][A, A swapped, B, B swapped][byte]
    constexpr ZigzagShuffles() : m{} {
        for (int h = 0; h < 2; ++h) {
            for (int j = 0; j < 32; ++j) {
                const int k = 32 * h + j, n = kZigzag[k];
                const int lane = j / 16, srcHalf = n / 32, srcLane = (n % 32) / 16;
                for (int src = 0; src < 4; ++src) m[h][src][j] = 0x80;
                m[h][2 * srcHalf + (srcLane == lane ? 0 : 1)][j] = static_cast<uint8_t>(n % 16);
            }
        }
    }
};
constexpr ZigzagShuffles kZzShuf;

// 64-bit mask of the non-zero coefficients of a block, bit k for zigzag
// position k.
inline uint64_t nonZeroMask(const uint8_t* block) {
    const __m256i zero = _mm256_setzero_si256();
    auto ld = [&](int i) { return _mm256_cmpeq_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(block + 32 * i)), zero); };
    // Zero flags, one byte per coefficient, natural order.
    const __m256i a = _mm256_permute4x64_epi64(_mm256_packs_epi16(ld(0), ld(1)), 0xD8);
    const __m256i b = _mm256_permute4x64_epi64(_mm256_packs_epi16(ld(2), ld(3)), 0xD8);
    const __m256i as = _mm256_permute2x128_si256(a, a, 0x01), bs = _mm256_permute2x128_si256(b, b, 0x01);
    uint32_t half[2];
    for (int h = 0; h < 2; ++h) {
        auto sh = [&](__m256i v, int src) {
            return _mm256_shuffle_epi8(v, _mm256_load_si256(reinterpret_cast<const __m256i*>(kZzShuf.m[h][src])));
        };
        __m256i z = _mm256_or_si256(_mm256_or_si256(sh(a, 0), sh(as, 1)), _mm256_or_si256(sh(b, 2), sh(bs, 3)));
        half[h] = static_cast<uint32_t>(_mm256_movemask_epi8(z));
    }
    return ~(static_cast<uint64_t>(half[1]) << 32 | half[0]);
}

}  // namespace zeb::jpeg::huff
