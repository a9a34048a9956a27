// Reverse division: checks, the worked table, zero divisors, value 0, both
// forms against exact integer arithmetic, where each form runs, and the
// two-thread split.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "frame/memory.h"
#include "support/test_util.h"

namespace {

using zebtest::GuardedBuffer;
using zebtest::ThreadCount;

// Nearest integer to v / x with ties to even, in exact integer arithmetic.
uint32_t nearestEven(uint32_t v, uint32_t x) {
    const uint32_t q = v / x, r = v % x;
    if (2 * r > x || (2 * r == x && (q & 1))) return q + 1;
    return q;
}
bool isHalf(uint32_t v, uint32_t x) { return (2 * v) % x == 0 && ((2 * v / x) & 1); }

// What the eight-wide form may store: the nearest integer saturated to 32767,
// either neighbour of an exact half, the value itself for x 1 when the value
// is above 32767, 65535 for x 0.
bool eightWideAllows(uint32_t v, uint32_t x, uint32_t got) {
    if (x == 0) return got == 65535;
    if (x == 1 && v > 32767) return got == v;
    auto sat = [](uint32_t q) { return q > 32767 ? 32767u : q; };
    if (isHalf(v, x)) return got == sat((2 * v / x) / 2) || got == sat((2 * v / x) / 2 + 1);
    return got == sat(nearestEven(v, x));
}

// Which elements of one kernel call take the eight-wide form, for a dst at
// this address: none when dst is odd; else singles up to the 16-byte boundary.
std::vector<bool> eightWideLanes(uintptr_t dstAddr, int len) {
    std::vector<bool> w(len, false);
    if (dstAddr & 1) return w;
    int pro = static_cast<int>(((16 - (dstAddr & 15)) & 15) / 2);
    if (pro > len) pro = len;
    for (int i = pro; i + 8 <= len; i += 8)
        for (int k = 0; k < 8; ++k) w[i + k] = true;
    return w;
}

std::vector<Zeb16u> load16(const uint8_t* p, int n) {
    std::vector<Zeb16u> v(n);
    std::memcpy(v.data(), p, 2 * static_cast<size_t>(n));
    return v;
}

// ---------------------------------------------------------------- checks

TEST(DivRevChecks, PointersThenLength) {
    Zeb16u a[4] = {1, 2, 3, 4}, b[4] = {};
    EXPECT_EQ(ownzebsDivCRev_16u(nullptr, 32768, b, 0), zebStatusNullPointer);
    EXPECT_EQ(ownzebsDivCRev_16u(a, 32768, nullptr, -1), zebStatusNullPointer);
    EXPECT_EQ(ownzebsDivCRev_16u(a, 32768, b, 0), zebStatusBadSize);
    EXPECT_EQ(ownzebsDivCRev_16u(a, 0, b, -7), zebStatusBadSize);
    EXPECT_EQ(ownzebsDivCRev_16u(a, 32768, b, 4), zebStatusOk);
    EXPECT_EQ(ownzebsDivCRev_16u_I(32768, nullptr, 0), zebStatusNullPointer);
    EXPECT_EQ(ownzebsDivCRev_16u_I(32768, a, 0), zebStatusBadSize);
    EXPECT_EQ(ownzebsDivCRev_16u_I(0, a, INT32_MIN), zebStatusBadSize);

    GuardedBuffer src(64), dst(64);
    std::memset(src.data(), 0, 64);  // zero divisors must not matter to a failed check
    EXPECT_EQ(ownzebsDivCRev_16u(src.as<Zeb16u>(), 32768, dst.as<Zeb16u>(), 0), zebStatusBadSize);
    EXPECT_EQ(ownzebsDivCRev_16u(nullptr, 0, dst.as<Zeb16u>(), 32), zebStatusNullPointer);
    EXPECT_TRUE(dst.untouched());
}

// ---------------------------------------------------------------- worked numbers

// 32768 on 1, 2, 3, 255 and with a 0 in the table, in place and not, with the
// table repeated at every even offset so that each entry passes through the
// single form and the eight-wide form.
TEST(DivRevValues, QuantisationTableNumbers) {
    const Zeb16u divisors[4] = {1, 2, 3, 255}, want[4] = {32768, 16384, 10923, 129};
    for (bool withZero : {false, true})
        for (size_t off = 0; off < 16; off += 2) {
            const int n = 36;
            std::vector<Zeb16u> in(n), expect(n);
            for (int i = 0; i < n; ++i) {
                in[i] = divisors[i % 4];
                expect[i] = want[i % 4];
            }
            if (withZero) { in[13] = 0; expect[13] = 65535; }
            const ZebStatus st = withZero ? zebStatusDivideByZero : zebStatusOk;
            SCOPED_TRACE(testing::Message() << "offset " << off << " zero " << withZero);

            GuardedBuffer io(2 * n, off);
            std::memcpy(io.data(), in.data(), 2 * n);
            EXPECT_EQ(ownzebsDivCRev_16u_I(32768, io.as<Zeb16u>(), n), st);
            EXPECT_EQ(load16(io.data(), n), expect);
            EXPECT_TRUE(io.guardsIntact());

            GuardedBuffer dst(2 * n, (off + 6) % 16);
            EXPECT_EQ(ownzebsDivCRev_16u(in.data(), 32768, dst.as<Zeb16u>(), n), st);
            EXPECT_EQ(load16(dst.data(), n), expect);
            EXPECT_TRUE(dst.guardsIntact());
        }
    Zeb16u four[4] = {1, 2, 3, 255};
    EXPECT_EQ(ownzebsDivCRev_16u_I(32768, four, 4), zebStatusOk);
    EXPECT_EQ(std::vector<Zeb16u>(four, four + 4), std::vector<Zeb16u>(want, want + 4));
    Zeb16u withZero[4] = {1, 0, 3, 255};
    EXPECT_EQ(ownzebsDivCRev_16u_I(32768, withZero, 4), zebStatusDivideByZero);
    EXPECT_EQ(std::vector<Zeb16u>(withZero, withZero + 4), (std::vector<Zeb16u>{32768, 65535, 10923, 129}));
}

// Value 0 fills with zeros, zero divisors included; the status still tells
// whether a divisor was 0, also in place where the fill overwrites them.
TEST(DivRevValues, ValueZeroFillsWithZeros) {
    for (int n : {1, 7, 64, 3000}) {
        std::vector<Zeb16u> in(n);
        zebtest::fillRandom(in.data(), n, 1, 65535);
        GuardedBuffer dst(2 * n, 2);
        EXPECT_EQ(ownzebsDivCRev_16u(in.data(), 0, dst.as<Zeb16u>(), n), zebStatusOk);
        EXPECT_EQ(load16(dst.data(), n), std::vector<Zeb16u>(n, 0));
        EXPECT_TRUE(dst.guardsIntact());

        in[n / 2] = 0;
        EXPECT_EQ(ownzebsDivCRev_16u(in.data(), 0, dst.as<Zeb16u>(), n), zebStatusDivideByZero);
        EXPECT_EQ(ownzebsDivCRev_16u_I(0, in.data(), n), zebStatusDivideByZero);
        EXPECT_EQ(in, std::vector<Zeb16u>(n, 0));
        EXPECT_EQ(ownzebsDivCRev_16u_I(0, in.data(), n), zebStatusDivideByZero);
    }
    Zeb16u one[1] = {9};
    EXPECT_EQ(ownzebsDivCRev_16u_I(0, one, 1), zebStatusOk);
    EXPECT_EQ(one[0], 0);
}

// ---------------------------------------------------------------- the two forms

// With value 32768 both forms give the nearest integer for every divisor.
TEST(DivRevForms, Value32768IsExactForEveryDivisorInBothForms) {
    std::vector<Zeb16u> all(65536);
    for (int x = 0; x < 65536; ++x) all[x] = static_cast<Zeb16u>(x);
    alignas(16) static Zeb16u out[65536];
    int zeros = 0;
    for (int i = 0; i < 65536; i += 8) zeros += zeb::divRevEight(&all[i], 32768, &out[i]);
    EXPECT_EQ(zeros, 1);
    for (uint32_t x = 1; x < 65536; ++x) {
        const uint32_t want = nearestEven(32768, x);
        ASSERT_EQ(out[x], want) << "eight-wide, x " << x;
        ASSERT_EQ(zeb::divRevOne(32768, static_cast<Zeb16u>(x)), want) << "single, x " << x;
    }
    EXPECT_EQ(out[0], 65535);
    EXPECT_EQ(zeb::divRevOne(32768, 0), 65535);
}

// Other values, every divisor: the single form is the exact nearest integer
// with ties to even; the eight-wide form may differ only on exact halves and
// by its saturation.
TEST(DivRevForms, SingleIsExactAndEightWideDiffersOnlyWhereAllowed) {
    std::vector<Zeb16u> all(65536);
    for (int x = 0; x < 65536; ++x) all[x] = static_cast<Zeb16u>(x);
    alignas(16) static Zeb16u out[65536];
    for (uint32_t v : {1u, 2u, 3u, 255u, 1000u, 12345u, 32767u, 32769u, 40000u, 65534u, 65535u}) {
        for (int i = 0; i < 65536; i += 8) zeb::divRevEight(&all[i], static_cast<Zeb16u>(v), &out[i]);
        for (uint32_t x = 0; x < 65536; ++x) {
            const Zeb16u one = zeb::divRevOne(static_cast<Zeb16u>(v), static_cast<Zeb16u>(x));
            ASSERT_EQ(one, x == 0 ? 65535u : nearestEven(v, x)) << "single, value " << v << " x " << x;
            ASSERT_TRUE(eightWideAllows(v, x, out[x])) << "eight-wide, value " << v << " x " << x << " got " << out[x];
        }
    }
}

// Random values and divisors: the kernel on misaligned pointers against the
// two forms' rules, element by element, knowing which form each lane takes.
TEST(DivRevForms, KernelOnRandomInputMatchesTheFormOfEachLane) {
    for (int round = 0; round < 200; ++round) {
        const int n = 1 + static_cast<int>(zebtest::rng()() % 90);
        const size_t off = zebtest::rng()() % 32;
        Zeb16u value;
        zebtest::fillRandom(&value, 1, 1, 65535);
        std::vector<Zeb16u> in(n);
        zebtest::fillRandom(in.data(), n, 0, 300);
        GuardedBuffer dst(2 * n, off);
        const int zero = ownsDivCRevBlock_16u(in.data(), value, reinterpret_cast<Zeb16u*>(dst.data()), n);
        bool anyZero = false;
        const std::vector<bool> wide = eightWideLanes(reinterpret_cast<uintptr_t>(dst.data()), n);
        const std::vector<Zeb16u> got = load16(dst.data(), n);
        for (int i = 0; i < n; ++i) {
            anyZero |= in[i] == 0;
            if (wide[i])
                ASSERT_TRUE(eightWideAllows(value, in[i], got[i])) << "lane " << i << " value " << value;
            else
                ASSERT_EQ(got[i], zeb::divRevOne(value, in[i])) << "lane " << i << " value " << value;
        }
        EXPECT_EQ(zero, anyZero ? 1 : 0);
        ASSERT_TRUE(dst.guardsIntact());
    }
}

// Value 65535 over divisor 2 is 32767.5: the single form rounds to 32768, the
// eight-wide form saturates to 32767, so the output shows which lanes took
// which form. Every length 1..40 at every byte offset of dst, odd ones too.
TEST(DivRevForms, SinglesUpToTheBoundaryThenBlocksOfEight) {
    for (int n = 1; n <= 40; ++n)
        for (size_t off = 0; off < 16; ++off) {
            std::vector<Zeb16u> in(n, 2);
            in[n - 1] = 1;  // value / 1 stays 65535 in both forms
            GuardedBuffer dst(2 * n, off);
            ASSERT_EQ(ownzebsDivCRev_16u(in.data(), 65535, reinterpret_cast<Zeb16u*>(dst.data()), n), zebStatusOk);
            const std::vector<bool> wide = eightWideLanes(reinterpret_cast<uintptr_t>(dst.data()), n);
            const std::vector<Zeb16u> got = load16(dst.data(), n);
            for (int i = 0; i + 1 < n; ++i)
                ASSERT_EQ(got[i], wide[i] ? 32767 : 32768) << "n " << n << " offset " << off << " lane " << i;
            ASSERT_EQ(got[n - 1], 65535);
            ASSERT_TRUE(dst.guardsIntact());
        }
}

// ---------------------------------------------------------------- threads

// The counter counts threads that met a zero: zeros on both sides of the
// split count twice, zeros on one side once. With one thread, or more threads
// than elements, the kernel runs once on the calling thread.
TEST(DivRevThreads, SplitSeenThroughTheZeroCounter) {
    struct Row { int threads, len, zeroA, zeroB, counter; };
    const Row rows[] = {
        {2, 2048, 1023, 1024, 2}, {2, 2048, 1024, 2047, 1}, {2, 2048, 0, 1023, 1},
        {4, 2048, 1023, 1024, 2},  // at most two threads
        {2, 2049, 1023, 2048, 2}, {2, 2049, 1024, 2048, 1},
        {1, 2048, 1023, 1024, 1}, {-3, 2048, 1023, 1024, 1},
        {3000, 2048, 1023, 1024, 1},  // fewer elements than threads
    };
    for (const Row& r : rows) {
        ThreadCount tc(r.threads);
        std::vector<Zeb16u> in(r.len, 7), out(r.len);
        in[r.zeroA] = in[r.zeroB] = 0;
        EXPECT_EQ(ownzebsDivCRev_16u_omp(in.data(), 32768, out.data(), r.len), r.counter)
            << "threads " << r.threads << " len " << r.len << " zeros " << r.zeroA << "," << r.zeroB;
        EXPECT_EQ(out[r.zeroA], 65535);
        EXPECT_EQ(out[r.zeroB], 65535);
        EXPECT_EQ(out[5], 4681);
        EXPECT_EQ(out[r.len - 3], 4681);
        EXPECT_EQ(ownzebsDivCRev_16u(in.data(), 32768, out.data(), r.len), zebStatusDivideByZero);
    }
    // The share function behind the split.
    EXPECT_EQ(zeb::divRevShare(2048, 2, 1).start, 1024);
    EXPECT_EQ(zeb::divRevShare(2048, 2, 1).count, 1024);
    EXPECT_EQ(zeb::divRevShare(2049, 2, 0).count, 1024);
    EXPECT_EQ(zeb::divRevShare(2049, 2, 1).count, 1025);
}

// The second thread starts at element len / 2. For 4098 elements that is
// 2049, an address 2 bytes past a 16-byte boundary: seven single elements
// start its share, where one thread would run one long stretch of blocks.
TEST(DivRevThreads, SecondThreadStartsItsOwnPhases) {
    const int n = 4098;
    std::vector<Zeb16u> in(n, 2);
    for (int threads : {1, 2, 4}) {
        ThreadCount tc(threads);
        GuardedBuffer dst(2 * n, 0);
        ASSERT_EQ(ownzebsDivCRev_16u(in.data(), 65535, dst.as<Zeb16u>(), n), zebStatusOk);
        const uintptr_t base = reinterpret_cast<uintptr_t>(dst.data());
        std::vector<bool> wide;
        if (threads == 1) {
            wide = eightWideLanes(base, n);
        } else {
            wide = eightWideLanes(base, 2049);
            const std::vector<bool> second = eightWideLanes(base + 2 * 2049, 2049);
            wide.insert(wide.end(), second.begin(), second.end());
        }
        const std::vector<Zeb16u> got = load16(dst.data(), n);
        for (int i = 0; i < n; ++i) ASSERT_EQ(got[i], wide[i] ? 32767 : 32768) << "threads " << threads << " i " << i;
        EXPECT_TRUE(dst.guardsIntact());
    }
}

// Threaded and serial runs agree at and around the 2048-element switch.
TEST(DivRevThreads, SameResultWithAnyThreadCount) {
    for (int n : {2047, 2048, 2049, 5001}) {
        std::vector<Zeb16u> in(n);
        zebtest::fillRandom(in.data(), n, 1, 65535);
        std::vector<Zeb16u> want(n);
        for (int i = 0; i < n; ++i) want[i] = static_cast<Zeb16u>(nearestEven(32768, in[i]));
        for (int threads : {1, 2, 4}) {
            ThreadCount tc(threads);
            GuardedBuffer dst(2 * n, 6);
            ASSERT_EQ(ownzebsDivCRev_16u(in.data(), 32768, dst.as<Zeb16u>(), n), zebStatusOk);
            EXPECT_EQ(load16(dst.data(), n), want) << "n " << n << " threads " << threads;
            EXPECT_TRUE(dst.guardsIntact());
        }
    }
}

}  // namespace
