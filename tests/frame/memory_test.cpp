// Fills, copies and allocation: argument checks, every length below 300 at
// every alignment, the large-area paths, the cache-size rule and the core's
// allocation hooks.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "frame/memory.h"
#include "support/test_util.h"

namespace {

using zebtest::CacheSize;
using zebtest::GuardedBuffer;

// Index of the first byte of [p, p + n) that differs from the pattern, or -1.
// The pattern is `bytes` repeated from p (1 or 4 bytes, little-endian).
long firstMismatch(const uint8_t* p, size_t n, uint32_t pattern, int patBytes) {
    for (size_t i = 0; i < n; ++i) {
        uint8_t want = static_cast<uint8_t>(pattern >> (8 * (i % patBytes)));
        if (p[i] != want) return static_cast<long>(i);
    }
    return -1;
}

// A fill under test: the area's start, its length in the fill's own unit.
using Fill = std::function<void(uint8_t*, int)>;
struct FillCase {
    const char* name;
    int unit;          // bytes per element
    uint32_t pattern;  // what the area must hold afterwards
    int patBytes;
    Fill fill;
};

std::vector<FillCase> allFills() {
    const Zeb8u v8 = 0x3C;
    const Zeb32s v32 = 0x11223344;
    return {
        {"ownsZero_8u", 1, 0, 1, [](uint8_t* p, int n) { ASSERT_EQ(ownsZero_8u(p, n), zebStatusOk); }},
        {"ownsZeroStore_8u", 1, 0, 1, [](uint8_t* p, int n) { ASSERT_EQ(ownsZeroStore_8u(p, n), p); }},
        {"ownsZeroStream_8u", 1, 0, 1, [](uint8_t* p, int n) { ASSERT_EQ(ownsZeroStream_8u(p, n), p); }},
        {"ownsZero_16s", 2, 0, 1,
         [](uint8_t* p, int n) { ASSERT_EQ(ownsZero_16s(reinterpret_cast<Zeb16s*>(p), n), zebStatusOk); }},
        {"ownsZero_32f", 4, 0, 1,
         [](uint8_t* p, int n) { ASSERT_EQ(ownsZero_32f(reinterpret_cast<Zeb32f*>(p), n), zebStatusOk); }},
        {"ownsSet_8u", 1, v8, 1, [=](uint8_t* p, int n) { ASSERT_EQ(ownsSet_8u(v8, p, n), zebStatusOk); }},
        {"ownsSetStore_8u", 1, v8, 1, [=](uint8_t* p, int n) { ownsSetStore_8u(v8, p, n); }},
        {"ownsSetStream_8u", 1, v8, 1, [=](uint8_t* p, int n) { ownsSetStream_8u(v8, p, n); }},
        {"ownsSetStore_32s", 4, static_cast<uint32_t>(v32), 4,
         [=](uint8_t* p, int n) { ownsSetStore_32s(v32, reinterpret_cast<Zeb32s*>(p), n); }},
        {"ownsSetStream_32s", 4, static_cast<uint32_t>(v32), 4,
         [=](uint8_t* p, int n) { ownsSetStream_32s(v32, reinterpret_cast<Zeb32s*>(p), n); }},
    };
}

// Runs one fill of `len` elements at `offset` bytes from a 64-byte boundary
// and checks the area and the sentinels around it.
void checkFill(const FillCase& c, int len, size_t offset) {
    const size_t bytes = static_cast<size_t>(len) * c.unit;
    GuardedBuffer buf(bytes, offset);
    c.fill(buf.data(), len);
    const long bad = firstMismatch(buf.data(), bytes, c.pattern, c.patBytes);
    ASSERT_EQ(bad, -1) << c.name << " len " << len << " offset " << offset;
    ASSERT_TRUE(buf.guardsIntact()) << c.name << " len " << len << " offset " << offset;
}

// ---------------------------------------------------------------- checks

TEST(MemoryChecks, PointersThenLength) {
    uint8_t a[8] = {}, b[8] = {};
    struct Row {
        const char* name;
        std::function<ZebStatus(uint8_t*, const uint8_t*, int)> call;  // (dst, src, len)
        bool hasSrc;
    };
    const Row rows[] = {
        {"ownsZero_8u", [](uint8_t* d, const uint8_t*, int n) { return ownsZero_8u(d, n); }, false},
        {"ownsZero_16s",
         [](uint8_t* d, const uint8_t*, int n) { return ownsZero_16s(reinterpret_cast<Zeb16s*>(d), n); }, false},
        {"ownsZero_32f",
         [](uint8_t* d, const uint8_t*, int n) { return ownsZero_32f(reinterpret_cast<Zeb32f*>(d), n); }, false},
        {"ownsSet_8u", [](uint8_t* d, const uint8_t*, int n) { return ownsSet_8u(7, d, n); }, false},
        {"ownsCopy_8u", [](uint8_t* d, const uint8_t* s, int n) { return ownsCopy_8u(s, d, n); }, true},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(r.call(nullptr, a, 0), zebStatusNullPointer);
        EXPECT_EQ(r.call(nullptr, a, 1), zebStatusNullPointer);
        if (r.hasSrc) {
            EXPECT_EQ(r.call(b, nullptr, 0), zebStatusNullPointer);
            EXPECT_EQ(r.call(nullptr, nullptr, -1), zebStatusNullPointer);
        }
        EXPECT_EQ(r.call(b, a, 0), zebStatusBadSize);
        EXPECT_EQ(r.call(b, a, -5), zebStatusBadSize);
        EXPECT_EQ(r.call(b, a, INT32_MIN), zebStatusBadSize);
        EXPECT_EQ(r.call(b, a, 1), zebStatusOk);
    }
}

TEST(MemoryChecks, FailedCheckWritesNothing) {
    GuardedBuffer dst(64), src(64);
    EXPECT_EQ(ownsZero_8u(dst.data(), 0), zebStatusBadSize);
    EXPECT_EQ(ownsZero_16s(dst.as<Zeb16s>(), -1), zebStatusBadSize);
    EXPECT_EQ(ownsZero_32f(dst.as<Zeb32f>(), 0), zebStatusBadSize);
    EXPECT_EQ(ownsSet_8u(1, dst.data(), 0), zebStatusBadSize);
    EXPECT_EQ(ownsCopy_8u(nullptr, dst.data(), 64), zebStatusNullPointer);
    EXPECT_EQ(ownsCopy_8u(src.data(), dst.data(), 0), zebStatusBadSize);
    EXPECT_TRUE(dst.untouched());
}

// ---------------------------------------------------------------- fills

// Every length from 1 to 300 elements at every offset from a 32-byte
// boundary: all bit groups below 256 bytes, the 32-byte alignment store and
// the 256-byte groups, for each fill; the 32-bit fills also at offsets that
// are not multiples of 4, where they go element by element.
TEST(MemoryFill, EveryShortLengthAtEveryAlignment) {
    for (const FillCase& c : allFills())
        for (int len = 1; len <= 300; ++len)
            for (size_t off = 0; off < 32; ++off) {
                checkFill(c, len, off);
                if (HasFatalFailure()) return;
            }
}

// From 32768 bytes up the ordinary fill stores the end first and runs
// downward; lengths around that switch and with every low bit set.
TEST(MemoryFill, LongOrdinaryAreas) {
    const std::vector<int> lengths = {32767, 32768, 32769, 32800, 32831, 32895, 40013, 65599};
    for (const FillCase& c : allFills()) {
        for (int bytes : lengths) {
            const int len = (bytes + c.unit - 1) / c.unit;
            for (size_t off : {0, 1, 2, 4, 17, 31, 32, 63}) {
                checkFill(c, len, off);
                if (HasFatalFailure()) return;
            }
        }
    }
}

// The cache-size rule: only above 2 MiB, only with status 0 and a positive
// size, and only when the area is larger than that size.
TEST(MemoryStreaming, DecisionFollowsCacheReport) {
    struct Row { int status, size; size_t bytes; bool streams; };
    const Row rows[] = {
        {0, 1 << 20, 2097152, false},  // at the threshold: ordinary whatever the cache
        {0, 1 << 20, 2097153, true},
        {0, 1, 2097152, false},
        {0, 2097153, 2097153, false},  // not above the cache
        {0, 2097153, 2097154, true},
        {-1, 1 << 20, 2097153, false},  // failing status
        {3, 1 << 20, 1u << 30, false},
        {0, 0, 2097153, false},         // no size
        {0, -4096, 2097153, false},
    };
    for (const Row& r : rows) {
        CacheSize cs(r.status, r.size);
        EXPECT_EQ(zeb::fillStreams(r.bytes), r.streams)
            << "status " << r.status << " size " << r.size << " bytes " << r.bytes;
    }
}

// Areas just above 2 MiB, filled with and without streaming, give the same
// bytes: the leading ordinary block for a dst off a 64-byte boundary, the
// non-temporal blocks and the tail of 32..1 bytes.
TEST(MemoryStreaming, StreamingAndOrdinaryFillsAgree) {
    const std::vector<FillCase> fills = allFills();
    const std::pair<int, int> reports[] = {{0, 1 << 20}, {-1, 1 << 20}, {0, 0}};
    for (const auto& [status, size] : reports) {
        CacheSize cs(status, size);
        ASSERT_EQ(zeb::fillStreams(2097153), status == 0 && size > 0);
        for (const FillCase& c : fills) {
            for (int bytes : {2097152, 2097153, 2097152 + 127}) {
                const int len = (bytes + c.unit - 1) / c.unit;
                for (size_t off : {0, 1, 36, 63}) {
                    checkFill(c, len, off);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}

// ---------------------------------------------------------------- copies

using Copy = std::function<void(const uint8_t*, uint8_t*, int)>;

// A source of exactly `len` bytes at `offset` from a 64-byte boundary, in an
// allocation of exactly that size, so that a sanitizer build sees any read
// beyond it.
struct Source {
    Source(size_t len, size_t offset) : raw(nullptr, std::free), p(nullptr) {
        void* m = nullptr;
        if (posix_memalign(&m, 64, offset + len) != 0) std::abort();
        raw.reset(static_cast<uint8_t*>(m));
        p = raw.get() + offset;
        zebtest::fillRandom(p, len, 0, 255);
    }
    std::unique_ptr<uint8_t, void (*)(void*)> raw;
    uint8_t* p;
};

void checkCopies(const char* name, const Copy& copy, int len, size_t soff, size_t doff) {
    Source src(len, soff);
    GuardedBuffer dst(len, doff);
    copy(src.p, dst.data(), len);
    ASSERT_EQ(std::memcmp(src.p, dst.data(), len), 0) << name << " len " << len << " src " << soff << " dst " << doff;
    ASSERT_TRUE(dst.guardsIntact()) << name << " len " << len << " src " << soff << " dst " << doff;
}

// Every length 1..300 at every pair of offsets (0..31) of src and dst: the
// bit groups below 128, the 64-byte groups up to 224, the byte prologue to a
// 32-byte boundary of dst, and for the string move bytes, words and dwords.
TEST(MemoryCopy, EveryShortLengthAtEveryAlignmentPair) {
    const std::pair<const char*, Copy> copies[] = {
        {"ownsCopyVector_8u", [](const uint8_t* s, uint8_t* d, int n) { ownsCopyVector_8u(s, d, n); }},
        {"ownsCopyString_8u", [](const uint8_t* s, uint8_t* d, int n) { ownsCopyString_8u(s, d, n); }},
    };
    for (const auto& [name, copy] : copies)
        for (int len = 1; len <= 300; ++len)
            for (size_t soff = 0; soff < 32; ++soff) {
                Source src(len, soff);
                for (size_t doff = 0; doff < 32; ++doff) {
                    GuardedBuffer dst(len, doff);
                    copy(src.p, dst.data(), len);
                    ASSERT_EQ(std::memcmp(src.p, dst.data(), len), 0)
                        << name << " len " << len << " src " << soff << " dst " << doff;
                    ASSERT_TRUE(dst.guardsIntact()) << name << " len " << len << " src " << soff << " dst " << doff;
                }
            }
}

// Around the switch to the string move at 32768 bytes, with src and dst equal
// and different in their low two address bits (bytes, words, dwords).
TEST(MemoryCopy, LongCopiesAcrossTheStringSwitch) {
    const Copy tested = [](const uint8_t* s, uint8_t* d, int n) { ASSERT_EQ(ownsCopy_8u(s, d, n), zebStatusOk); };
    const Copy fast = [](const uint8_t* s, uint8_t* d, int n) { ASSERT_EQ(ownsCopyFast_8u(s, d, n), d); };
    for (int len : {32767, 32768, 32769, 32771, 100003})
        for (size_t soff = 0; soff < 4; ++soff)
            for (size_t doff = 0; doff < 4; ++doff) {
                checkCopies("ownsCopy_8u", tested, len, soff, doff);
                checkCopies("ownsCopyFast_8u", fast, len, soff + 32, doff + 5);
                if (HasFatalFailure()) return;
            }
}

// The string move runs forward even when the caller has left the direction
// flag set, and hands the flag back as it found it.
TEST(MemoryCopy, StringMoveKeepsCallersDirectionFlag) {
    Source src(1000, 3);
    GuardedBuffer dst(1000, 3);
    uint64_t flags = 0;
    asm volatile("std" ::: "cc");
    ownsCopyString_8u(src.p, dst.data(), 1000);
    asm volatile("pushfq\n\tpopq %0\n\tcld" : "=r"(flags)::"cc");
    EXPECT_NE(flags & 0x400, 0u) << "direction flag cleared";
    EXPECT_EQ(std::memcmp(src.p, dst.data(), 1000), 0);
    EXPECT_TRUE(dst.guardsIntact());
}

// ---------------------------------------------------------------- allocation

// Lengths below 1 give null without asking the core; others go through
// zebMalloc and zebFree, and a failing core allocation gives null.
TEST(MemoryAlloc, ThroughTheCore) {
    const int live = zebcoreLiveAllocations();
    EXPECT_EQ(ownsMalloc(0), nullptr);
    EXPECT_EQ(ownsMalloc(-1), nullptr);
    EXPECT_EQ(ownsMalloc(INT32_MIN), nullptr);
    EXPECT_EQ(zebcoreLiveAllocations(), live);

    void* p = ownsMalloc(1);
    void* q = ownsMalloc(100000);
    ASSERT_TRUE(p && q);
    EXPECT_EQ(zebcoreLiveAllocations(), live + 2);
    std::memset(q, 0x5A, 100000);
    ownsFree(p);
    ownsFree(q);
    ownsFree(nullptr);
    EXPECT_EQ(zebcoreLiveAllocations(), live);
    {
        zebtest::FailAllocation fail(2);
        void* first = ownsMalloc(64);
        EXPECT_NE(first, nullptr);
        EXPECT_EQ(ownsMalloc(64), nullptr);
        void* third = ownsMalloc(64);
        EXPECT_NE(third, nullptr);
        ownsFree(first);
        ownsFree(third);
    }
    EXPECT_EQ(zebcoreLiveAllocations(), live);
}

}  // namespace
