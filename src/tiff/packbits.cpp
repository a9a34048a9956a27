// TIFF rows: PackBits packing and unpacking, and the split of 16-bit samples
// into two byte planes and back.
#include <immintrin.h>

#include <algorithm>
#include <cstring>
#include <cstdint>

#include "frame/arith.h"
#include "frame/impl.h"
#include "frame/memory.h"
#include "tiff/packbits.h"

namespace zeb::tiff {

namespace {

// Length of the run of bytes equal to s[i], at most `limit` (limit >= 1).
inline int runLength(const uint8_t* s, int i, int limit) {
    const uint8_t v = s[i];
    const uint64_t pattern = 0x0101010101010101ull * v;
    int r = 1;
    while (r + 8 <= limit) {
        uint64_t diff = loadAs<uint64_t>(s + i + r) ^ pattern;
        if (diff) return r + (__builtin_ctzll(diff) >> 3);
        r += 8;
    }
    while (r < limit && s[i + r] == v) ++r;
    return r;
}

// The first k in [j, hi) with s[k] == s[k + 1], or hi; hi is at most n - 1.
inline int nextEqualPair(const uint8_t* s, int j, int hi, int n) {
    int k = j;
    while (k < hi && k + 17 <= n) {
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k));
        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k + 1));
        unsigned m = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)));
        if (m) return std::min(k + __builtin_ctz(m), hi);
        k += 16;
    }
    for (; k < hi; ++k)
        if (s[k] == s[k + 1]) return k;
    return hi;
}

// Number of bytes of the literal packet that starts at `start`.
inline int literalLength(const uint8_t* s, int start, int n) {
    int j = start + 1;
    int len = 1;
    while (j < n) {
        if (len == 127) return 128;  // the 128th byte is taken whatever follows
        // Bytes that differ from their successor are always taken.
        const int k = nextEqualPair(s, j, std::min(n - 1, start + 127), n);
        len += k - j;
        j = k;
        if (len == 127) continue;
        if (j == n - 1) return len + 1;  // a last byte has no successor: taken
        if (s[j] == s[j + 1] && (len == 126 || j + 1 == n - 1 || s[j + 2] == s[j + 1])) return len;
        ++len;
        ++j;
    }
    return len;
}

// Short packets dominate noisy rows; they are copied and filled in line with
// overlapping stores that stay inside the packet, longer ones through the
// shared copy and fill.
inline void copyShort(const uint8_t* s, uint8_t* d, int n) {
    if (n >= 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + n - 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), a);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n - 16), b);
    } else if (n >= 8) {
        const uint64_t a = loadAs<uint64_t>(s), b = loadAs<uint64_t>(s + n - 8);
        storeAs(d, a);
        storeAs(d + n - 8, b);
    } else if (n >= 4) {
        const uint32_t a = loadAs<uint32_t>(s), b = loadAs<uint32_t>(s + n - 4);
        storeAs(d, a);
        storeAs(d + n - 4, b);
    } else {
        for (int i = 0; i < n; ++i) d[i] = s[i];
    }
}

inline void fillShort(uint8_t v, uint8_t* d, int n) {
    if (n >= 16) {
        const __m128i x = _mm_set1_epi8(static_cast<char>(v));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), x);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n - 16), x);
    } else if (n >= 8) {
        const uint64_t x = 0x0101010101010101ull * v;
        storeAs(d, x);
        storeAs(d + n - 8, x);
    } else {
        for (int i = 0; i < n; ++i) d[i] = v;
    }
}

}  // namespace

ZebStatus packBitsRow(const uint8_t* src, int srcLen, uint8_t* dst, int* dstPos, int dstLen) {
    uint8_t* out = dst + *dstPos;
    int written = 0;
    int i = 0;
    ZebStatus status = zebStatusOk;
    while (i < srcLen) {
        if (dstLen - written < 2) { status = zebStatusBufferLimit; break; }
        if (i + 1 < srcLen && src[i] == src[i + 1]) {
            const int r = runLength(src, i, std::min(128, srcLen - i));
            out[written] = static_cast<uint8_t>(1 - r);
            out[written + 1] = src[i];
            written += 2;
            i += r;
        } else {
            const int len = literalLength(src, i, srcLen);
            if (len + 1 > dstLen - written) { status = zebStatusBufferLimit; break; }
            out[written] = static_cast<uint8_t>(len - 1);
            std::memcpy(out + written + 1, src + i, static_cast<size_t>(len));
            written += len + 1;
            i += len;
        }
    }
    *dstPos += written;
    return status;
}

ZebStatus unpackBitsRow(const uint8_t* src, int* srcPos, int srcLen, uint8_t* dst, int dstLen) {
    int pos = *srcPos;
    int produced = 0;
    for (;;) {
        if (pos >= srcLen) { *srcPos = pos; return zebStatusBufferLimit; }
        const int n = static_cast<int8_t>(src[pos++]);
        if (n >= 0) {
            const int count = n + 1;
            if (count > srcLen - pos || count > dstLen - produced) { *srcPos = pos; return zebStatusBufferLimit; }
            if (count <= 32) copyShort(src + pos, dst + produced, count);
            else ownsCopy_8u(src + pos, dst + produced, count);
            pos += count;
            produced += count;
        } else if (n != -128) {
            const int count = 1 - n;
            if (pos >= srcLen || count > dstLen - produced) { *srcPos = pos; return zebStatusBufferLimit; }
            if (count <= 32) fillShort(src[pos], dst + produced, count);
            else ownsSet_8u(src[pos], dst + produced, count);
            ++pos;
            produced += count;
        }
        if (produced == dstLen) { *srcPos = pos; return zebStatusOk; }
    }
}

// High bytes to hi[i], low bytes to lo[i]; samples are little-endian.
void splitRow(const uint16_t* src, uint8_t* hi, uint8_t* lo, int len) {
    const auto* s = reinterpret_cast<const uint8_t*>(src);
    const __m128i evenOdd = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
    int i = 0;
    for (; i + 16 <= len; i += 16) {
        __m128i a = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i)), evenOdd);
        __m128i b = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i + 16)), evenOdd);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(lo + i), _mm_unpacklo_epi64(a, b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(hi + i), _mm_unpackhi_epi64(a, b));
    }
    for (; i < len; ++i) {
        lo[i] = s[2 * i];
        hi[i] = s[2 * i + 1];
    }
}

void joinRow(const uint8_t* hi, const uint8_t* lo, uint16_t* dst, int len) {
    auto* d = reinterpret_cast<uint8_t*>(dst);
    int i = 0;
    for (; i + 16 <= len; i += 16) {
        __m128i h = _mm_loadu_si128(reinterpret_cast<const __m128i*>(hi + i));
        __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lo + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 2 * i), _mm_unpacklo_epi8(l, h));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 2 * i + 16), _mm_unpackhi_epi8(l, h));
    }
    for (; i < len; ++i) {
        d[2 * i] = lo[i];
        d[2 * i + 1] = hi[i];
    }
}

}  // namespace zeb::tiff

ZebStatus zebimpl::zebiPackBitsRow_TIFF_8u_C1(const Zeb8u* src, int srcLen, Zeb8u* dst, int* dstPos, int dstLen) {
    if (!src || !dstPos || !dst) return zebStatusNullPointer;
    if (srcLen < 1 || dstLen < 1) return zebStatusBadSize;
    return zeb::tiff::packBitsRow(src, srcLen, dst, dstPos, dstLen);
}

ZebStatus zebimpl::zebiUnpackBitsRow_TIFF_8u_C1(const Zeb8u* src, int* srcPos, int srcLen, Zeb8u* dst, int dstLen) {
    if (!src || !srcPos || !dst) return zebStatusNullPointer;
    if (srcLen < 1 || dstLen < 1) return zebStatusBadSize;
    return zeb::tiff::unpackBitsRow(src, srcPos, srcLen, dst, dstLen);
}

ZebStatus zebimpl::zebiSplitRow_TIFF_16u8u_C1(const Zeb16u* src, Zeb8u* dst[2], int len) {
    if (!src || !dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadStep;
    zeb::tiff::splitRow(src, dst[0], dst[1], len);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiJoinRow_TIFF_8u16u_C1(const Zeb8u* const src[2], Zeb16u* dst, int len) {
    if (!src || !dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadStep;
    zeb::tiff::joinRow(src[0], src[1], dst, len);
    return zebStatusOk;
}
