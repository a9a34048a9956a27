// Internal pieces of the progressive coders that tests reach directly: the
// 64-bit writer of the AC scans and the two forms of the AC decoders.
#pragma once

#include <cstdint>

#include "jpeg/huffman/bitio.h"
#include "zebjp.h"

namespace zeb::jpeg::huff {

// Longest pending run and correction backlog of a refinement scan.
inline constexpr int kMaxEobRun = 0x7FFF;
inline constexpr int kMaxCorrections = 937;

// The AC scans' writer: pending bits right-justified in 64 bits, at most 63
// of them. An item that would not fit first sends all whole bytes out, each
// checked against len (-62) and stuffed.
struct Writer64 {
    uint8_t* dst;
    int len;
    int pos;
    uint64_t acc;
    int cnt;  // 0..63

    int drain() {
        while (cnt >= 8) {
            if (pos < 0 || pos >= len) return kBufferEnd;
            uint8_t b = static_cast<uint8_t>(acc >> (cnt - 8));
            dst[pos++] = b;
            cnt -= 8;
            if (b == 0xFF) {
                if (pos >= len) return kBufferEnd;
                dst[pos++] = 0;
            }
        }
        return kOk;
    }
    // n from 1 to 32 bits of value (no bits above n).
    ZEB_HUFF_INLINE int put(uint32_t value, int n) {
        if (cnt + n > 63) {
            int st = drain();
            if (st != kOk) return st;
        }
        acc = (acc << n) | value;
        cnt += n;
        return kOk;
    }
    ZEB_HUFF_INLINE int putCode(uint32_t entry) {
        int len16 = static_cast<int>(entry >> 16);
        if (static_cast<unsigned>(len16 - 1) >= 16u) return kMissingCode;
        return put(entry & 0xFFFFu, len16);
    }
    uint64_t pending() const { return cnt == 0 ? 0 : acc & (~uint64_t{0} >> (64 - cnt)); }
};

// AC decoders after the argument checks. The fast forms return kGiveUp
// without touching anything but their own locals; the careful forms finish.
int decodeACFirstFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se, int Al,
                      const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state);
int decodeACFirstCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se, int Al,
                         const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state);
int decodeACRefineFast(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se, int Al,
                       const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state);
int decodeACRefineCareful(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst, int* marker, int Ss, int Se,
                          int Al, const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state);

}  // namespace zeb::jpeg::huff
