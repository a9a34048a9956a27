// Fills, copies and allocation shared by the families.
//
// Fills come in two flavours. The ordinary one writes with 32-byte vector
// stores and keeps the area in the cache for the code that follows. The
// cache-aware one bypasses the cache with non-temporal stores, but only when
// the area would evict all of it: more than 2 MiB and more than the largest
// cache the core reports. Both write exactly the bytes they are given.
#include "frame/memory.h"

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zebcore.h"

namespace zeb {

namespace {

inline uintptr_t addr(const void* p) { return reinterpret_cast<uintptr_t>(p); }

inline void storeu32B(uint8_t* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
inline void storea32B(uint8_t* p, __m256i v) { _mm256_store_si256(reinterpret_cast<__m256i*>(p), v); }

// Stores of 16 bytes and less take the low bytes of the pattern. Every store
// of a fill lands at a multiple of 4 bytes from the start of the area when the
// pattern is a 32-bit value, so the pattern's phase is always right.
inline void storeSmall(uint8_t* p, size_t n, __m256i v) {
    const uint64_t lo = static_cast<uint64_t>(_mm_cvtsi128_si64(_mm256_castsi256_si128(v)));
    switch (n) {
        case 16: _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(v)); break;
        case 8: std::memcpy(p, &lo, 8); break;
        case 4: std::memcpy(p, &lo, 4); break;
        case 2: std::memcpy(p, &lo, 2); break;
        case 1: std::memcpy(p, &lo, 1); break;
        default: break;
    }
}

// The bits of a length below 256, high to low, stored upward from p.
inline void fillBits(uint8_t* p, size_t n, __m256i v) {
    if (n & 128) {
        storeu32B(p, v); storeu32B(p + 32, v); storeu32B(p + 64, v); storeu32B(p + 96, v);
        p += 128;
    }
    if (n & 64) { storeu32B(p, v); storeu32B(p + 32, v); p += 64; }
    if (n & 32) { storeu32B(p, v); p += 32; }
    if (n & 16) { storeSmall(p, 16, v); p += 16; }
    if (n & 8) { storeSmall(p, 8, v); p += 8; }
    if (n & 4) { storeSmall(p, 4, v); p += 4; }
    if (n & 2) { storeSmall(p, 2, v); p += 2; }
    if (n & 1) storeSmall(p, 1, v);
}

// Ordinary store fill of `bytes` bytes with the 32-byte pattern v.
void storeFill(uint8_t* dst, size_t bytes, __m256i v) {
    const size_t total = bytes;
    if (bytes < 256) {
        fillBits(dst, bytes, v);
        return;
    }
    if (const uintptr_t mis = addr(dst) & 31) {
        storeu32B(dst, v);
        dst += 32 - mis;
        bytes -= 32 - mis;
    }
    if (total < 32768) {
        // Upward in 256-byte groups of aligned stores, then the bits of the rest.
        for (; bytes >= 256; bytes -= 256, dst += 256) {
            storea32B(dst, v); storea32B(dst + 32, v); storea32B(dst + 64, v); storea32B(dst + 96, v);
            storea32B(dst + 128, v); storea32B(dst + 160, v); storea32B(dst + 192, v); storea32B(dst + 224, v);
        }
        fillBits(dst, bytes, v);
        return;
    }
    // Large areas: the last 64 bytes first, which covers the part that is not a
    // whole 64-byte group, then the groups from the end downward.
    uint8_t* end = dst + bytes;
    storeu32B(end - 64, v);
    storeu32B(end - 32, v);
    for (uint8_t* p = dst + (bytes & ~size_t{63}); p != dst;) {
        p -= 64;
        storea32B(p, v);
        storea32B(p + 32, v);
    }
}

// Cache-bypassing fill; the caller has decided that the area streams.
void streamFillBody(uint8_t* dst, size_t bytes, __m256i v) {
    if (const uintptr_t mis = addr(dst) & 63) {
        storeu32B(dst, v);
        storeu32B(dst + 32, v);
        dst += 64 - mis;
        bytes -= 64 - mis;
    }
    for (; bytes >= 64; bytes -= 64, dst += 64) {
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst), v);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + 32), v);
    }
    if (bytes & 32) { storeu32B(dst, v); dst += 32; }
    if (bytes & 16) { storeSmall(dst, 16, v); dst += 16; }
    if (bytes & 8) { storeSmall(dst, 8, v); dst += 8; }
    if (bytes & 4) { storeSmall(dst, 4, v); dst += 4; }
    if (bytes & 2) { storeSmall(dst, 2, v); dst += 2; }
    if (bytes & 1) storeSmall(dst, 1, v);
    // The non-temporal stores are weakly ordered: make them visible before
    // the caller goes on.
    _mm_sfence();
}

// The fill by the streaming rule.
void ruleFill(uint8_t* dst, size_t bytes, __m256i v) {
    if (fillStreams(bytes))
        streamFillBody(dst, bytes, v);
    else
        storeFill(dst, bytes, v);
}

inline size_t count(int len, size_t unit) { return len > 0 ? static_cast<size_t>(len) * unit : 0; }

// A 32-bit fill on an address that is not a multiple of 4: one element at a time.
void setElements32(Zeb32s value, Zeb32s* dst, int len) {
    uint8_t* p = reinterpret_cast<uint8_t*>(dst);
    for (int i = 0; i < len; ++i, p += 4) std::memcpy(p, &value, 4);
}

// A tested zero fill of `bytes` bytes (the checks are done).
void zeroBytes(void* dst, size_t bytes) {
    uint8_t* p = static_cast<uint8_t*>(dst);
    if (bytes > static_cast<size_t>(kStreamThreshold))
        ruleFill(p, bytes, _mm256_setzero_si256());
    else
        storeFill(p, bytes, _mm256_setzero_si256());
}

// ---------------------------------------------------------------- copies

inline void copy32B(const uint8_t* s, uint8_t* d) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)));
}
inline void copy16B(const uint8_t* s, uint8_t* d) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)));
}

// The bits of a length below 128, high to low.
inline void copyBits(const uint8_t* s, uint8_t* d, size_t n) {
    if (n & 64) { copy32B(s, d); copy32B(s + 32, d + 32); s += 64; d += 64; }
    if (n & 32) { copy32B(s, d); s += 32; d += 32; }
    if (n & 16) { copy16B(s, d); s += 16; d += 16; }
    if (n & 8) { std::memcpy(d, s, 8); s += 8; d += 8; }
    if (n & 4) { std::memcpy(d, s, 4); s += 4; d += 4; }
    if (n & 2) { std::memcpy(d, s, 2); s += 2; d += 2; }
    if (n & 1) *d = *s;
}

// The processor's string move, in one asm block: `head` bytes, then `units`
// moves of the given width, then `tail` bytes. The string instructions go the
// way the direction flag says; the block clears it for itself and puts the
// caller's flags back afterwards. pushfq writes below the stack pointer, so
// the block first steps over the red zone that the compiler may be using.
#define ZEB_STRING_MOVE(INSN)                                                            \
    asm volatile("lea -128(%%rsp), %%rsp\n\t"                                            \
                 "pushfq\n\t"                                                            \
                 "cld\n\t"                                                               \
                 "mov %[h], %%rcx\n\t"                                                   \
                 "rep movsb\n\t"                                                         \
                 "mov %[u], %%rcx\n\t"                                                   \
                 "rep " INSN "\n\t"                                                      \
                 "mov %[t], %%rcx\n\t"                                                   \
                 "rep movsb\n\t"                                                         \
                 "popfq\n\t"                                                             \
                 "lea 128(%%rsp), %%rsp"                                                 \
                 : "+S"(s), "+D"(d), "=&c"(scratch)                                      \
                 : [h] "r"(head), [u] "r"(units), [t] "r"(tail)                          \
                 : "memory", "cc")

void stringMove(const uint8_t* s, uint8_t* d, size_t head, size_t units, size_t tail, int width) {
    size_t scratch;
    switch (width) {
        case 4: ZEB_STRING_MOVE("movsl"); break;
        case 2: ZEB_STRING_MOVE("movsw"); break;
        default: ZEB_STRING_MOVE("movsb"); break;
    }
    (void)scratch;
}

#undef ZEB_STRING_MOVE

}  // namespace

bool fillStreams(size_t bytes) {
    if (bytes <= static_cast<size_t>(kStreamThreshold)) return false;
    int size = 0;
    if (zebGetMaxCacheSizeB(&size) != 0 || size <= 0) return false;
    return bytes > static_cast<size_t>(size);
}

}  // namespace zeb

// ---------------------------------------------------------------- fills

Zeb8u* ownsZeroStore_8u(Zeb8u* dst, int len) {
    zeb::storeFill(dst, zeb::count(len, 1), _mm256_setzero_si256());
    return dst;
}

Zeb8u* ownsZeroStream_8u(Zeb8u* dst, int len) {
    zeb::ruleFill(dst, zeb::count(len, 1), _mm256_setzero_si256());
    return dst;
}

ZebStatus ownsZero_8u(Zeb8u* dst, int len) {
    if (!dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    if (len > zeb::kStreamThreshold)
        ownsZeroStream_8u(dst, len);
    else
        ownsZeroStore_8u(dst, len);
    return zebStatusOk;
}

ZebStatus ownsZero_16s(Zeb16s* dst, int len) {
    if (!dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    zeb::zeroBytes(dst, zeb::count(len, 2));
    return zebStatusOk;
}

ZebStatus ownsZero_32f(Zeb32f* dst, int len) {
    if (!dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    zeb::zeroBytes(dst, zeb::count(len, 4));
    return zebStatusOk;
}

void ownsSetStore_8u(Zeb8u value, Zeb8u* dst, int len) {
    zeb::storeFill(dst, zeb::count(len, 1), _mm256_set1_epi8(static_cast<char>(value)));
}

void ownsSetStream_8u(Zeb8u value, Zeb8u* dst, int len) {
    zeb::ruleFill(dst, zeb::count(len, 1), _mm256_set1_epi8(static_cast<char>(value)));
}

ZebStatus ownsSet_8u(Zeb8u value, Zeb8u* dst, int len) {
    if (!dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    if (len > zeb::kStreamThreshold)
        ownsSetStream_8u(value, dst, len);
    else
        ownsSetStore_8u(value, dst, len);
    return zebStatusOk;
}

void ownsSetStore_32s(Zeb32s value, Zeb32s* dst, int len) {
    if (zeb::addr(dst) & 3) {
        zeb::setElements32(value, dst, len);
        return;
    }
    zeb::storeFill(reinterpret_cast<uint8_t*>(dst), zeb::count(len, 4), _mm256_set1_epi32(value));
}

void ownsSetStream_32s(Zeb32s value, Zeb32s* dst, int len) {
    const size_t bytes = zeb::count(len, 4);
    if ((zeb::addr(dst) & 3) == 0 && zeb::fillStreams(bytes))
        zeb::streamFillBody(reinterpret_cast<uint8_t*>(dst), bytes, _mm256_set1_epi32(value));
    else
        ownsSetStore_32s(value, dst, len);
}

// ---------------------------------------------------------------- copies

// Below 128 bytes by the bits of the length; up to 224 bytes whole 64-byte
// groups and the bits of the rest; from 225 bytes single bytes up to a
// 32-byte boundary of dst, then 64-byte groups with aligned stores, 16-byte
// groups and single bytes.
void ownsCopyVector_8u(const Zeb8u* src, Zeb8u* dst, int len) {
    size_t n = zeb::count(len, 1);
    if (n < 128) {
        zeb::copyBits(src, dst, n);
        return;
    }
    if (n < 225) {
        for (; n >= 64; n -= 64, src += 64, dst += 64) {
            zeb::copy32B(src, dst);
            zeb::copy32B(src + 32, dst + 32);
        }
        zeb::copyBits(src, dst, n);
        return;
    }
    const size_t pro = (32 - (zeb::addr(dst) & 31)) & 31;
    if (n - pro >= 64) {
        for (size_t i = 0; i < pro; ++i) dst[i] = src[i];
        src += pro;
        dst += pro;
        n -= pro;
    }
    for (; n >= 64; n -= 64, src += 64, dst += 64) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 32));
        if ((zeb::addr(dst) & 31) == 0) {
            _mm256_store_si256(reinterpret_cast<__m256i*>(dst), a);
            _mm256_store_si256(reinterpret_cast<__m256i*>(dst + 32), b);
        } else {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), a);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 32), b);
        }
    }
    for (; n >= 16; n -= 16, src += 16, dst += 16) zeb::copy16B(src, dst);
    for (size_t i = 0; i < n; ++i) dst[i] = src[i];
}

// The string move: by bytes when the two addresses differ in bit 0, by 16-bit
// words (after one byte that makes dst even) when they differ only in bit 1,
// otherwise up to 3 bytes to a 4-byte boundary of dst, 32-bit words, and up to
// 3 bytes at the end.
void ownsCopyString_8u(const Zeb8u* src, Zeb8u* dst, int len) {
    const size_t n = zeb::count(len, 1);
    if (n == 0) return;
    const uintptr_t diff = (zeb::addr(src) ^ zeb::addr(dst)) & 3;
    if (diff & 1) {
        zeb::stringMove(src, dst, 0, n, 0, 1);
    } else if (diff == 2) {
        const size_t head = (zeb::addr(dst) & 1) ? 1 : 0;
        zeb::stringMove(src, dst, head, (n - head) / 2, (n - head) & 1, 2);
    } else {
        size_t head = (4 - (zeb::addr(dst) & 3)) & 3;
        if (head > n) head = n;
        zeb::stringMove(src, dst, head, (n - head) / 4, (n - head) & 3, 4);
    }
}

Zeb8u* ownsCopyFast_8u(const Zeb8u* src, Zeb8u* dst, int len) {
    if (len >= 32768)
        ownsCopyString_8u(src, dst, len);
    else
        ownsCopyVector_8u(src, dst, len);
    return dst;
}

ZebStatus ownsCopy_8u(const Zeb8u* src, Zeb8u* dst, int len) {
    if (!src || !dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    ownsCopyFast_8u(src, dst, len);
    return zebStatusOk;
}

// ---------------------------------------------------------------- allocation

void* ownsMalloc(int len) { return len < 1 ? nullptr : zebMalloc(len); }

void ownsFree(void* ptr) { zebFree(ptr); }
