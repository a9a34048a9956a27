// Huffman tables: encoder and decoder tables from bits/vals lists, optimal
// lists from symbol counts, and the size queries, init, allocation and release
// of the four objects.
#include <cstddef>
#include <cstdint>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/memory.h"
#include "jpeg/huffman/huffman.h"

namespace zeb::jpeg::huff {

static_assert(sizeof(EncodeHuffmanSpec) == kEncodeSpecSize);
static_assert(sizeof(DecodeHuffmanSpec) == kDecodeSpecSize);
static_assert(sizeof(EncodeHuffmanState) == kEncodeStateSize);
static_assert(sizeof(DecodeHuffmanState) == kDecodeStateSize);
static_assert(offsetof(DecodeHuffmanSpec, lookup) == 512 && offsetof(DecodeHuffmanSpec, minCode) == 1536 &&
              offsetof(DecodeHuffmanSpec, maxCode) == 1572 && offsetof(DecodeHuffmanSpec, symbolIndex) == 1608);
static_assert(offsetof(EncodeHuffmanState, bitCount) == 8 && offsetof(EncodeHuffmanState, correctionBits) == 20);
static_assert(offsetof(DecodeHuffmanState, bitCount) == 8 && offsetof(DecodeHuffmanState, blockEnd) == 16);

namespace {

constexpr int kHuffmanTable = zebStatusJpegHuffmanTable;

// The code lengths in order, bits[l-1] times l, ended by 0. Fails when the
// running total would pass 256.
int codeLengths(const uint8_t* bits, uint8_t sizes[257], int& n) {
    n = 0;
    for (int l = 1; l <= 16; ++l) {
        for (int i = 0; i < bits[l - 1]; ++i) {
            if (n == 256) return kHuffmanTable;
            sizes[n++] = static_cast<uint8_t>(l);
        }
    }
    sizes[n] = 0;
    return zebStatusOk;
}

// Canonical numbering: consecutive within a length, doubled at each longer
// length. With `checked`, a length whose codes reach 1 << length (an
// overflowing set, or an all-ones last code) fails.
int numberCodes(const uint8_t* sizes, uint32_t* codes, bool checked) {
    uint32_t code = 0;
    int k = 0;
    int si = sizes[0];
    while (sizes[k] != 0) {
        while (sizes[k] == si) codes[k++] = code++;
        if (checked && code >= (1u << si)) return kHuffmanTable;
        code <<= 1;
        ++si;
    }
    return zebStatusOk;
}

void put16(uint8_t* base, size_t off, int i, uint32_t v) { storeAs<uint16_t>(base + off + 2 * i, static_cast<uint16_t>(v)); }

}  // namespace

int buildEncodeSpec(const uint8_t* bits, const uint8_t* vals, uint8_t* spec) {
    ownsZeroStream_8u(spec, kEncodeSpecSize);
    uint8_t sizes[257];
    uint32_t codes[256];
    int n;
    if (codeLengths(bits, sizes, n) != zebStatusOk) return kHuffmanTable;
    if (numberCodes(sizes, codes, true) != zebStatusOk) return kHuffmanTable;
    for (int i = 0; i < n; ++i)
        storeAs<uint32_t>(spec + 4 * vals[i], static_cast<uint32_t>(sizes[i]) << 16 | codes[i]);
    return zebStatusOk;
}

int buildDecodeSpec(const uint8_t* bits, const uint8_t* vals, uint8_t* spec) {
    ownsZeroStream_8u(spec, kDecodeSpecSize);
    uint8_t sizes[257];
    uint32_t codes[256];
    int n;
    if (codeLengths(bits, sizes, n) != zebStatusOk) return kHuffmanTable;
    numberCodes(sizes, codes, false);

    constexpr size_t kMin = offsetof(DecodeHuffmanSpec, minCode);
    constexpr size_t kMax = offsetof(DecodeHuffmanSpec, maxCode);
    constexpr size_t kIdx = offsetof(DecodeHuffmanSpec, symbolIndex);
    constexpr size_t kLookup = offsetof(DecodeHuffmanSpec, lookup);
    int p = 0;
    for (int l = 1; l <= 16; ++l) {
        if (bits[l - 1] != 0) {
            put16(spec, kIdx, l, static_cast<uint32_t>(p));
            put16(spec, kMin, l, codes[p]);
            for (int i = 0; i < bits[l - 1]; ++i) {
                if (p >= 256) return kHuffmanTable;
                put16(spec, 0, p, vals[p]);
                ++p;
            }
            put16(spec, kMax, l, codes[p - 1]);
        } else {
            put16(spec, kMax, l, 0xFFFF);
        }
    }
    put16(spec, kMax, 17, 0xFFFF);

    p = 0;
    for (int l = 1; l <= 8; ++l) {
        for (int i = 0; i < bits[l - 1]; ++i, ++p) {
            uint32_t start = codes[p] << (8 - l);
            uint32_t count = 1u << (8 - l);
            if (start + count > 256) return kHuffmanTable;
            uint32_t e = static_cast<uint32_t>(l) << 16 | vals[p];
            for (uint32_t j = 0; j < count; ++j) storeAs<uint32_t>(spec + kLookup + 4 * (start + j), e);
        }
    }
    return zebStatusOk;
}

// Optimal code lengths by repeated merging of the two rarest symbols, with a
// reserved 257th symbol of count 1 that keeps the all-ones code free. Ties go
// to the larger symbol index. Lengths above 16 are folded back, then the
// reserved code is removed.
int buildOptimalTable(const uint8_t* statistics, uint8_t* bits, uint8_t* vals) {
    int32_t freq[257];
    int32_t codesize[257];
    int32_t others[257];
    ownsCopyFast_8u(statistics, reinterpret_cast<uint8_t*>(freq), 256 * 4);
    freq[256] = 1;
    for (int i = 0; i < 256; ++i)
        if (freq[i] < 0) freq[i] = 0;  // counts are meant to be >= 0; a negative one counts as unused
    ownsZeroStream_8u(reinterpret_cast<uint8_t*>(codesize), 257 * 4);
    ownsSetStream_32s(-1, others, 257);

    for (;;) {
        int c1 = -1, c2 = -1;
        int32_t best = 1000000000;
        for (int i = 0; i <= 256; ++i)
            if (freq[i] != 0 && freq[i] <= best) { best = freq[i]; c1 = i; }
        best = 1000000000;
        for (int i = 0; i <= 256; ++i)
            if (freq[i] != 0 && freq[i] <= best && i != c1) { best = freq[i]; c2 = i; }
        if (c2 < 0) break;
        freq[c1] += freq[c2];
        freq[c2] = 0;
        ++codesize[c1];
        while (others[c1] >= 0) { c1 = others[c1]; ++codesize[c1]; }
        others[c1] = c2;
        ++codesize[c2];
        while (others[c2] >= 0) { c2 = others[c2]; ++codesize[c2]; }
    }

    int count[33] = {};
    for (int i = 0; i <= 256; ++i) {
        if (codesize[i] != 0) {
            if (codesize[i] > 32) return kHuffmanTable;
            ++count[codesize[i]];
        }
    }
    for (int i = 32; i > 16; --i) {
        while (count[i] > 0) {
            int j = i - 2;
            while (j > 0 && count[j] == 0) --j;
            if (j == 0) return kHuffmanTable;  // not a tree; cannot happen for counts >= 0
            count[i] -= 2;
            count[i - 1] += 1;
            count[j + 1] += 2;
            count[j] -= 1;
        }
    }
    int longest = 16;
    while (longest > 0 && count[longest] == 0) --longest;
    if (longest > 0) --count[longest];

    uint8_t outBits[16];
    uint8_t outVals[256];
    for (int l = 1; l <= 16; ++l) outBits[l - 1] = static_cast<uint8_t>(count[l]);
    int p = 0;
    for (int size = 1; size <= 32; ++size)
        for (int s = 0; s < 256; ++s)
            if (codesize[s] == size) outVals[p++] = static_cast<uint8_t>(s);
    ownsCopyFast_8u(outBits, bits, 16);
    if (p > 0) ownsCopyFast_8u(outVals, vals, p);
    return zebStatusOk;
}

}  // namespace zeb::jpeg::huff

// ------------------------------------------------------------ exports

using namespace zeb::jpeg::huff;

namespace {

ZebStatus sizeQuery(int* size, int bytes) {
    if (size == nullptr) return zebStatusNullPointer;
    zeb::storeAs<int>(size, bytes);
    return zebStatusOk;
}

template <class Obj>
ZebStatus allocObject(Obj** out, int bytes, Obj*& obj) {
    void* p = ownsMalloc(bytes);
    if (p == nullptr) return zebStatusNullPointer;
    obj = static_cast<Obj*>(p);
    zeb::storeAs<Obj*>(out, obj);
    return zebStatusOk;
}

ZebStatus freeObject(void* p) {
    if (p == nullptr) return zebStatusNullPointer;
    ownsFree(p);
    return zebStatusOk;
}

}  // namespace

ZebStatus zebimpl::zebiEncodeHuffmanSpecGetBufSize_JPEG_8u(int* size) { return sizeQuery(size, kEncodeSpecSize); }
ZebStatus zebimpl::zebiDecodeHuffmanSpecGetBufSize_JPEG_8u(int* size) { return sizeQuery(size, kDecodeSpecSize); }
ZebStatus zebimpl::zebiEncodeHuffmanStateGetBufSize_JPEG_8u(int* size) { return sizeQuery(size, kEncodeStateSize); }
ZebStatus zebimpl::zebiDecodeHuffmanStateGetBufSize_JPEG_8u(int* size) { return sizeQuery(size, kDecodeStateSize); }

ZebStatus zebimpl::zebiEncodeHuffmanSpecInit_JPEG_8u(const Zeb8u* bits, const Zeb8u* vals, EncodeHuffmanSpec* spec) {
    if (bits == nullptr || vals == nullptr || spec == nullptr) return zebStatusNullPointer;
    return buildEncodeSpec(bits, vals, reinterpret_cast<uint8_t*>(spec));
}

ZebStatus zebimpl::zebiEncodeHuffmanSpecInitAlloc_JPEG_8u(const Zeb8u* bits, const Zeb8u* vals,
                                                          EncodeHuffmanSpec** specOut) {
    if (bits == nullptr || vals == nullptr || specOut == nullptr) return zebStatusNullPointer;
    EncodeHuffmanSpec* spec;
    if (allocObject(specOut, kEncodeSpecSize, spec) != zebStatusOk) return zebStatusNullPointer;
    return buildEncodeSpec(bits, vals, reinterpret_cast<uint8_t*>(spec));
}

ZebStatus zebimpl::zebiEncodeHuffmanSpecFree_JPEG_8u(EncodeHuffmanSpec* spec) { return freeObject(spec); }

ZebStatus zebimpl::zebiDecodeHuffmanSpecInit_JPEG_8u(const Zeb8u* bits, const Zeb8u* vals, DecodeHuffmanSpec* spec) {
    if (bits == nullptr || vals == nullptr || spec == nullptr) return zebStatusNullPointer;
    return buildDecodeSpec(bits, vals, reinterpret_cast<uint8_t*>(spec));
}

ZebStatus zebimpl::zebiDecodeHuffmanSpecInitAlloc_JPEG_8u(const Zeb8u* bits, const Zeb8u* vals,
                                                          DecodeHuffmanSpec** specOut) {
    if (bits == nullptr || vals == nullptr || specOut == nullptr) return zebStatusNullPointer;
    DecodeHuffmanSpec* spec;
    if (allocObject(specOut, kDecodeSpecSize, spec) != zebStatusOk) return zebStatusNullPointer;
    return buildDecodeSpec(bits, vals, reinterpret_cast<uint8_t*>(spec));
}

ZebStatus zebimpl::zebiDecodeHuffmanSpecFree_JPEG_8u(DecodeHuffmanSpec* spec) { return freeObject(spec); }

ZebStatus zebimpl::zebiEncodeHuffmanStateInit_JPEG_8u(EncodeHuffmanState* state) {
    if (state == nullptr) return zebStatusNullPointer;
    return ownsZero_8u(reinterpret_cast<Zeb8u*>(state), kEncodeStateSize);
}

ZebStatus zebimpl::zebiEncodeHuffmanStateInitAlloc_JPEG_8u(EncodeHuffmanState** stateOut) {
    if (stateOut == nullptr) return zebStatusNullPointer;
    EncodeHuffmanState* state;
    if (allocObject(stateOut, kEncodeStateSize, state) != zebStatusOk) return zebStatusNullPointer;
    return ownsZero_8u(reinterpret_cast<Zeb8u*>(state), kEncodeStateSize);
}

ZebStatus zebimpl::zebiEncodeHuffmanStateFree_JPEG_8u(EncodeHuffmanState* state) { return freeObject(state); }

ZebStatus zebimpl::zebiDecodeHuffmanStateInit_JPEG_8u(DecodeHuffmanState* state) {
    if (state == nullptr) return zebStatusNullPointer;
    return ownsZero_8u(reinterpret_cast<Zeb8u*>(state), kDecodeStateSize);
}

ZebStatus zebimpl::zebiDecodeHuffmanStateInitAlloc_JPEG_8u(DecodeHuffmanState** stateOut) {
    if (stateOut == nullptr) return zebStatusNullPointer;
    DecodeHuffmanState* state;
    if (allocObject(stateOut, kDecodeStateSize, state) != zebStatusOk) return zebStatusNullPointer;
    return ownsZero_8u(reinterpret_cast<Zeb8u*>(state), kDecodeStateSize);
}

ZebStatus zebimpl::zebiDecodeHuffmanStateFree_JPEG_8u(DecodeHuffmanState* state) { return freeObject(state); }

ZebStatus zebimpl::zebiEncodeHuffmanRawTableInit_JPEG_8u(const Zeb32s* statistics, Zeb8u* bits, Zeb8u* vals) {
    if (statistics == nullptr || bits == nullptr || vals == nullptr) return zebStatusNullPointer;
    return buildOptimalTable(reinterpret_cast<const uint8_t*>(statistics), bits, vals);
}
