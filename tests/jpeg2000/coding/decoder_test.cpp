// Code-block decoders: argument checks, the state's size and layout, the
// worked numbers of the half-bit reconstruction, round trips with the
// library's encoder checked against an independent reference decoder (pass
// by pass, every code style, flush method, subband and many sizes), the
// termination tests, damage and truncation, and the final masking.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "jpeg2000/coding/decoder.h"
#include "jpeg2000/coding/t1_reference.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using zebtest::GuardedBuffer;

// ---------------------------------------------------------------- helpers
struct Coded {
    int S = 0, passes = 0, segments = 0;
    std::vector<uint8_t> bytes;
    std::vector<int> segLens;
};

struct Encoder {
    ZebJ2kEncodeState* st = nullptr;
    explicit Encoder(ZebSize max = {64, 64}) { EXPECT_EQ(zebiEncodeInitAlloc_JPEG2K(&st, max), zebStatusOk); }
    ~Encoder() { zebiEncodeFree_JPEG2K(st); }

    Coded encode(const std::vector<int32_t>& block, int w, int h, int style, int subband = 0, int flush = 0) {
        Coded r;
        EXPECT_EQ(zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(block.data(), 4 * w, {w, h}, st, subband, 31, flush, 0,
                                                         style & 63, &r.S, &r.passes, &r.segments),
                  zebStatusOk);
        std::vector<uint8_t> buf(4096);
        for (int more = 1; more;) {
            int len = static_cast<int>(buf.size());
            EXPECT_EQ(zebiEncodeStoreBits_JPEG2K_1u(buf.data(), &len, st, &more), zebStatusOk);
            r.bytes.insert(r.bytes.end(), buf.begin(), buf.begin() + len);
        }
        for (int s = 0; s < r.segments; ++s) {
            int len = 0;
            EXPECT_EQ(zebiEncodeGetTermPassLen_JPEG2K(st, s, &len), zebStatusOk);
            r.segLens.push_back(len);
        }
        return r;
    }
};

// A decoder state in caller memory, placed `offset` bytes past an 8-byte
// boundary (a multiple of 8).
struct StateMemory {
    std::vector<uint64_t> mem;
    ZebJ2kDecodeState* st = nullptr;
    int size = 0;
    explicit StateMemory(ZebSize max = {64, 64}, int offset = 0) {
        EXPECT_EQ(zebiDecodeCBProgrGetStateSize_JPEG2K(max, &size), zebStatusOk);
        mem.assign(static_cast<size_t>(size + offset) / 8 + 1, 0x5A5A5A5A5A5A5A5Aull);
        st = reinterpret_cast<ZebJ2kDecodeState*>(reinterpret_cast<uint8_t*>(mem.data()) + offset);
        EXPECT_EQ(zebiDecodeCBProgrInit_JPEG2K(st), zebStatusOk);
    }
};

// Sign-magnitude samples below 2^bits, many zeros and small values, as
// wavelet subbands look. No negative zero.
std::vector<int32_t> randomBlock(int w, int h, int bits, std::mt19937& g, double zeroShare = 0.4) {
    std::vector<int32_t> b(static_cast<size_t>(w) * h);
    std::uniform_real_distribution<double> u(0, 1);
    for (auto& v : b) {
        if (u(g) < zeroShare) {
            v = 0;
            continue;
        }
        const uint32_t m = static_cast<uint32_t>(std::pow(u(g), 3.0) * ((1u << bits) - 1)) + 1;
        v = static_cast<int32_t>(((g() & 1) ? 0x80000000u : 0u) | std::min(m, (1u << bits) - 1));
    }
    return b;
}

// The words the decoder should hold after `k` passes, half-bits included,
// from the reference decoder, which is written independently of the library.
// Also checks the reference against the source: the decoded planes of every
// sample are the source's.
std::vector<uint32_t> expectedWords(const Coded& c, const std::vector<int32_t>& src, int w, int h, int subband,
                                    int style, int k) {
    t1ref::Decoder ref(w, h, subband, style & 31);
    ref.run(c.bytes.data(), c.segLens, c.S, k);
    std::vector<uint32_t> out(static_cast<size_t>(w) * h, 0);
    for (int i = 0; i < w * h; ++i) {
        if (!ref.sig[i]) continue;
        const uint32_t s = static_cast<uint32_t>(src[i]);
        const int p = ref.last[i];
        EXPECT_EQ(ref.mag[i] >> p, (s & 0x7FFFFFFFu) >> p) << "reference model, sample " << i;
        EXPECT_EQ(static_cast<uint32_t>(ref.neg[i]), s >> 31) << "reference model, sample " << i;
        out[i] = (static_cast<uint32_t>(ref.neg[i]) << 31) | ref.mag[i] | ((1u << p) >> 1);
    }
    return out;
}

// The plane the decoder stands on after k of the block's passes.
int planeAfter(int S, int k, int style) {
    if (k == 0) return S - 1;
    const int last = k - 1;
    const int p = S - 1 - (last + 2) / 3;
    const bool cleanup = last == 0 || (last - 1) % 3 == 2;
    return (cleanup && (style & zebJ2kTermAll)) ? p - 1 : p;
}

std::vector<uint32_t> readBlock(const uint8_t* base, int step, int w, int h) {
    std::vector<uint32_t> v(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y) std::memcpy(&v[static_cast<size_t>(y) * w], base + static_cast<size_t>(y) * step, 4 * w);
    return v;
}

int firstMismatch(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i]) return static_cast<int>(i);
    return -1;
}

std::string describe(int w, int h, int style, int subband, int flush, int k) {
    return std::to_string(w) + "x" + std::to_string(h) + " style " + std::to_string(style) + " subband " +
           std::to_string(subband) + " flush " + std::to_string(flush) + " passes " + std::to_string(k);
}

// Decodes with the one-call decoder into a block with sentinels between
// rows and around it; checks the sentinels.
std::vector<uint32_t> decodeOneCall(const Coded& c, int w, int h, int subband, int flags, int passCount,
                                    ZebStatus expect = zebStatusOk, int* errorPlane = nullptr, size_t offset = 0) {
    const int step = 4 * w + 12;
    GuardedBuffer dst(static_cast<size_t>(step) * h, offset);
    StateMemory sm({w, h});
    // The segments in memory of exactly their size, so that a read past the
    // end is caught by the address sanitizer.
    std::unique_ptr<uint8_t[]> data(new uint8_t[std::max<size_t>(c.bytes.size(), 1)]);
    if (!c.bytes.empty()) std::memcpy(data.get(), c.bytes.data(), c.bytes.size());
    const int noLengths[1] = {0};
    EXPECT_EQ(zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(data.get(), dst.as<Zeb32s>(), step, {w, h}, subband, c.S,
                                                   passCount, c.segLens.empty() ? noLengths : c.segLens.data(),
                                                   static_cast<int>(c.segLens.size()), flags, errorPlane, sm.st),
              expect);
    EXPECT_TRUE(dst.guardsIntact());
    for (int y = 0; y < h; ++y)
        for (int x = 4 * w; x < step; ++x)
            if (y + 1 < h) EXPECT_EQ(dst.data()[static_cast<size_t>(y) * step + x], zebtest::kSentinel);
    return readBlock(dst.data(), step, w, h);
}

// ---------------------------------------------------------------- argument checks
TEST(J2kDecodeChecks, OrderPerExport) {
    StateMemory sm;
    ZebJ2kDecodeState* st = sm.st;
    std::vector<uint64_t> badMem(sm.mem.size(), 0);
    auto* bad = reinterpret_cast<ZebJ2kDecodeState*>(badMem.data());  // no mark
    std::vector<int32_t> blk(64 * 64);
    Zeb32s* d = blk.data();
    const uint8_t src[4] = {0, 0, 0, 0};
    const int lens[1] = {4};
    int out = 0;
    ZebJ2kDecodeState* handle = nullptr;
    struct Row {
        const char* what;
        ZebStatus got, want;
    };
    const Row rows[] = {
        {"size: height", zebiDecodeCBProgrGetStateSize_JPEG2K({4, 0}, nullptr), zebStatusBadSize},
        {"size: width", zebiDecodeCBProgrGetStateSize_JPEG2K({0, 4}, &out), zebStatusBadSize},
        {"size: out", zebiDecodeCBProgrGetStateSize_JPEG2K({4, 4}, nullptr), zebStatusNullPointer},
        {"bufsize: width", zebiDecodeGetBufSize_JPEG2K({-1, 4}, nullptr), zebStatusBadSize},
        {"bufsize: out", zebiDecodeGetBufSize_JPEG2K({4, 4}, nullptr), zebStatusNullPointer},
        {"init: null", zebiDecodeCBProgrInit_JPEG2K(nullptr), zebStatusNullPointer},
        {"initalloc: null", zebiDecodeCBProgrInitAlloc_JPEG2K(nullptr, {0, 0}), zebStatusNullPointer},
        {"initalloc: size", zebiDecodeCBProgrInitAlloc_JPEG2K(&handle, {4, 0}), zebStatusBadSize},
        {"free: null", zebiDecodeCBProgrFree_JPEG2K(nullptr), zebStatusNullPointer},
        {"free: mark", zebiDecodeCBProgrFree_JPEG2K(bad), zebStatusBadContext},
        {"attach: state", zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, nullptr, 0, 1, 0),
         zebStatusNullPointer},
        {"attach: mark", zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, bad, 0, 1, 0), zebStatusBadContext},
        {"attach: dst", zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(nullptr, 0, {0, 0}, st, 0, 1, 0), zebStatusNullPointer},
        {"attach: step", zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(d, 0, {0, 0}, st, 0, 1, 0), zebStatusBadStep},
        {"attach: height", zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(d, 4, {4, 0}, st, 0, 1, 0), zebStatusBadSize},
        {"attach: width", zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(d, 4, {0, 4}, st, 0, 1, 0), zebStatusBadSize},
        {"setpass: state", zebiDecodeCBProgrSetPassCounter_JPEG2K(1, nullptr), zebStatusNullPointer},
        {"setpass: mark", zebiDecodeCBProgrSetPassCounter_JPEG2K(1, bad), zebStatusBadContext},
        {"getpass: state", zebiDecodeCBProgrGetPassCounter_JPEG2K(nullptr, &out), zebStatusNullPointer},
        {"getpass: out before mark", zebiDecodeCBProgrGetPassCounter_JPEG2K(bad, nullptr), zebStatusNullPointer},
        {"getpass: mark", zebiDecodeCBProgrGetPassCounter_JPEG2K(bad, &out), zebStatusBadContext},
        {"plane: state", zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(nullptr, nullptr), zebStatusNullPointer},
        {"plane: mark before out", zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(bad, nullptr), zebStatusBadContext},
        {"plane: out", zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(st, nullptr), zebStatusNullPointer},
        {"step: src", zebiDecodeCBProgrStep_JPEG2K(nullptr, 4, bad), zebStatusNullPointer},
        {"step: state", zebiDecodeCBProgrStep_JPEG2K(src, 4, nullptr), zebStatusNullPointer},
        {"step: mark", zebiDecodeCBProgrStep_JPEG2K(src, 4, bad), zebStatusBadContext},
        {"step: not attached", zebiDecodeCBProgrStep_JPEG2K(src, 4, st), zebStatusJ2kNotAttached},
        {"block: src", zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(nullptr, nullptr, 0, {0, 0}, 0, 1, 1, nullptr, 1, 0,
                                                            nullptr, st),
         zebStatusNullPointer},
        {"block: state", zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(src, nullptr, 0, {0, 0}, 0, 1, 1, nullptr, 1, 0,
                                                              nullptr, nullptr),
         zebStatusNullPointer},
        {"block: size before pointers", zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(src, nullptr, 0, {4, 0}, 0, 1, 1,
                                                                             nullptr, 1, 0, nullptr, st),
         zebStatusBadSize},
        {"block: width", zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(src, nullptr, 0, {0, 4}, 0, 1, 1, nullptr, 1, 0,
                                                              nullptr, st),
         zebStatusBadSize},
        {"block: lengths", zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(src, d, 0, {4, 4}, 0, 1, 1, nullptr, 1, 0, nullptr,
                                                                st),
         zebStatusNullPointer},
        {"block: dst", zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(src, nullptr, 0, {4, 4}, 0, 1, 1, lens, 1, 0, nullptr,
                                                            st),
         zebStatusNullPointer},
        {"block: step", zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(src, d, 0, {4, 4}, 0, 1, 1, lens, 1, 0, nullptr, st),
         zebStatusBadStep},
    };
    for (const Row& r : rows) EXPECT_EQ(r.got, r.want) << r.what;
    EXPECT_EQ(handle, nullptr);
    // The one-call decoder does not look at the mark: it initialises the state.
    EXPECT_EQ(zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(src, d, 16, {4, 4}, 0, 1, 1, lens, 1, 0, nullptr, bad), zebStatusOk);
}

TEST(J2kDecodeChecks, FailedCallsWriteNothing) {
    StateMemory sm({8, 8});
    std::vector<uint64_t> copy = sm.mem;
    GuardedBuffer dst(8 * 32);
    const uint8_t src[2] = {0x12, 0x34};
    const int lens[1] = {2};
    EXPECT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(dst.as<Zeb32s>(), 0, {8, 8}, sm.st, 0, 3, 0), zebStatusBadStep);
    EXPECT_EQ(zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(src, dst.as<Zeb32s>(), 0, {8, 8}, 0, 3, 5, lens, 1, 0, nullptr,
                                                   sm.st),
              zebStatusBadStep);
    EXPECT_TRUE(dst.untouched());
    EXPECT_EQ(sm.mem, copy);
}

// ---------------------------------------------------------------- state
TEST(J2kDecodeState, SizeIsFlagRowsPlus388) {
    int size = 0;
    ASSERT_EQ(zebiDecodeCBProgrGetStateSize_JPEG2K({64, 64}, &size), zebStatusOk);
    EXPECT_EQ(size, 34 * 288 + 388);
    ASSERT_EQ(zebiDecodeGetBufSize_JPEG2K({1, 1}, &size), zebStatusOk);
    EXPECT_EQ(size, 3 * 32 + 388);
    ASSERT_EQ(zebiDecodeGetBufSize_JPEG2K({6, 5}, &size), zebStatusOk);
    EXPECT_EQ(size, 5 * 32 + 388);
    ASSERT_EQ(zebiDecodeGetBufSize_JPEG2K({7, 5}, &size), zebStatusOk);
    EXPECT_EQ(size, 5 * 64 + 388);
}

TEST(J2kDecodeState, FlagRowsAtFirst32ByteBoundaryWithinTheSize) {
    for (int offset = 0; offset < 64; offset += 8) {
        StateMemory sm({13, 9}, offset);
        const uintptr_t base = reinterpret_cast<uintptr_t>(sm.st);
        const uintptr_t rows = reinterpret_cast<uintptr_t>(sm.st->flagRows);
        EXPECT_EQ(rows % 32, 0u);
        EXPECT_GE(rows, base + sizeof(ZebJ2kDecodeState));
        EXPECT_LT(rows, base + sizeof(ZebJ2kDecodeState) + 32);
        EXPECT_LE(rows + 6 * 64, base + static_cast<uintptr_t>(sm.size));
        EXPECT_EQ(sm.st->mark, 0x434D4150u);
    }
}

TEST(J2kDecodeState, InitAllocFreeAndAllocationFailure) {
    ZebJ2kDecodeState* st = nullptr;
    ASSERT_EQ(zebiDecodeCBProgrInitAlloc_JPEG2K(&st, {32, 32}), zebStatusOk);
    ASSERT_NE(st, nullptr);
    int v = 5;
    EXPECT_EQ(zebiDecodeCBProgrGetPassCounter_JPEG2K(st, &v), zebStatusOk);
    EXPECT_EQ(zebiDecodeCBProgrStep_JPEG2K(reinterpret_cast<const Zeb8u*>("x"), 1, st), zebStatusJ2kNotAttached);
    EXPECT_EQ(zebiDecodeCBProgrFree_JPEG2K(st), zebStatusOk);
    const int live = zebcoreLiveAllocations();
    {
        zebtest::FailAllocation fail(1);
        st = reinterpret_cast<ZebJ2kDecodeState*>(&v);
        EXPECT_EQ(zebiDecodeCBProgrInitAlloc_JPEG2K(&st, {32, 32}), zebStatusNoMemory);
        EXPECT_EQ(st, nullptr);
    }
    EXPECT_EQ(zebcoreLiveAllocations(), live);
}

TEST(J2kDecodeState, AttachSetsPlanesCountersAndClears) {
    StateMemory sm({16, 16});
    std::vector<uint32_t> blk(16 * 16, 0xDEADBEEF);
    auto* d = reinterpret_cast<Zeb32s*>(blk.data());
    int plane = 0, passes = 0;
    ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(d, 64, {10, 3}, sm.st, 0, 7, zebJ2kKeepBlock), zebStatusOk);
    EXPECT_EQ(blk[0], 0xDEADBEEF);
    ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(d, 64, {10, 3}, sm.st, 0, 7, zebJ2kBypass), zebStatusOk);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) EXPECT_EQ(blk[y * 16 + x], (y < 3 && x < 10) ? 0u : 0xDEADBEEFu);
    EXPECT_EQ(zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane), zebStatusOk);
    EXPECT_EQ(plane, 6);
    EXPECT_EQ(sm.st->bypassPlane, 3);
    EXPECT_EQ(zebiDecodeCBProgrGetPassCounter_JPEG2K(sm.st, &passes), zebStatusOk);
    EXPECT_EQ(passes, 0);
    ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(19, sm.st), zebStatusOk);
    EXPECT_EQ(zebiDecodeCBProgrGetPassCounter_JPEG2K(sm.st, &passes), zebStatusOk);
    EXPECT_EQ(passes, 19);
    // Up to four planes bypass changes nothing.
    ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(d, 64, {10, 3}, sm.st, 0, 4, zebJ2kBypass), zebStatusOk);
    EXPECT_EQ(sm.st->bypassPlane, 0);
    // planeCount 0: nothing to decode.
    ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(d, 64, {10, 3}, sm.st, 0, 0, 0), zebStatusOk);
    ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(5, sm.st), zebStatusOk);
    const uint8_t seg[3] = {1, 2, 3};
    EXPECT_EQ(zebiDecodeCBProgrStep_JPEG2K(seg, 3, sm.st), zebStatusOk);
    EXPECT_EQ(zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane), zebStatusOk);
    EXPECT_EQ(plane, -1);
    EXPECT_EQ(zebiDecodeCBProgrGetPassCounter_JPEG2K(sm.st, &passes), zebStatusOk);
    EXPECT_EQ(passes, 5);
}

// ---------------------------------------------------------------- worked numbers
// 12 on plane 3, then 14 or 10 after the refinement on plane 2.
TEST(J2kDecodeWorked, HalfBitMagnitudes12And14And10) {
    Encoder enc;
    for (int32_t v : {12, 13, 9, 8}) {
        const std::vector<int32_t> blk = {v};
        const Coded c = enc.encode(blk, 1, 1, zebJ2kTermAll);
        ASSERT_EQ(c.S, 4);
        StateMemory sm({1, 1});
        uint32_t word = 0;
        ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(&word), 4, {1, 1}, sm.st, 0, 4,
                                                         zebJ2kTermAll),
                  zebStatusOk);
        ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(100, sm.st), zebStatusOk);
        const uint8_t* p = c.bytes.data();
        ASSERT_EQ(zebiDecodeCBProgrStep_JPEG2K(p, c.segLens[0], sm.st), zebStatusOk);
        EXPECT_EQ(word, 12u);
        int plane = 0;
        zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane);
        EXPECT_EQ(plane, 2);  // a term-all cleanup lowers the plane
        p += c.segLens[0];
        ASSERT_EQ(zebiDecodeCBProgrStep_JPEG2K(p, c.segLens[1], sm.st), zebStatusOk);  // significance
        p += c.segLens[1];
        ASSERT_EQ(zebiDecodeCBProgrStep_JPEG2K(p, c.segLens[2], sm.st), zebStatusOk);  // refinement
        EXPECT_EQ(word, (v & 4) ? 14u : 10u) << v;
        int passes = 0;
        zebiDecodeCBProgrGetPassCounter_JPEG2K(sm.st, &passes);
        EXPECT_EQ(passes, 97);
    }
}

TEST(J2kDecodeWorked, PlaneZeroAndSingleTermAllPass) {
    Encoder enc;
    const std::vector<int32_t> blk = {static_cast<int32_t>(0x80000001u)};
    const Coded c = enc.encode(blk, 1, 1, zebJ2kTermAll);
    ASSERT_EQ(c.S, 1);
    ASSERT_EQ(c.passes, 1);
    StateMemory sm({1, 1});
    uint32_t word = 7;
    ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(&word), 4, {1, 1}, sm.st, 0, 1,
                                                     zebJ2kTermAll),
              zebStatusOk);
    ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(1, sm.st), zebStatusOk);
    ASSERT_EQ(zebiDecodeCBProgrStep_JPEG2K(c.bytes.data(), c.segLens[0], sm.st), zebStatusOk);
    EXPECT_EQ(word, 0x80000001u);  // magnitude 1 on plane 0, no half-bit
    int plane = 0;
    zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane);
    EXPECT_EQ(plane, -1);
    // Further steps do nothing.
    ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(3, sm.st), zebStatusOk);
    const uint8_t junk[2] = {0x00, 0xFF};
    EXPECT_EQ(zebiDecodeCBProgrStep_JPEG2K(junk, 2, sm.st), zebStatusOk);
    EXPECT_EQ(word, 0x80000001u);
}

TEST(J2kDecodeWorked, PassCounterZeroDoesNothing) {
    StateMemory sm({4, 4});
    std::vector<uint32_t> blk(16, 0);
    ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(blk.data()), 16, {4, 4}, sm.st, 0, 5,
                                                     0),
              zebStatusOk);
    const uint8_t seg[4] = {0x00, 0x00, 0x00, 0x00};  // would make samples significant
    EXPECT_EQ(zebiDecodeCBProgrStep_JPEG2K(seg, 4, sm.st), zebStatusOk);
    for (uint32_t v : blk) EXPECT_EQ(v, 0u);
    int plane = 0;
    zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane);
    EXPECT_EQ(plane, 4);
}

// An empty segment decodes a whole pass from the 0xFF fill; only a test
// that is asked for can report it.
TEST(J2kDecodeWorked, EmptySegment) {
    const uint8_t none[1] = {0};
    for (int flags : {0, int{zebJ2kTermAll}, zebJ2kTermAll | zebJ2kResetContexts | zebJ2kCausal}) {
        for (int length : {0, -5}) {
            StateMemory sm({8, 8});
            std::vector<uint32_t> blk(64, 0);
            ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(blk.data()), 32, {8, 8}, sm.st,
                                                             0, 6, flags),
                      zebStatusOk);
            ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(1, sm.st), zebStatusOk);
            EXPECT_EQ(zebiDecodeCBProgrStep_JPEG2K(none, length, sm.st), zebStatusOk);
            int passes = 9, plane = 0;
            zebiDecodeCBProgrGetPassCounter_JPEG2K(sm.st, &passes);
            zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane);
            EXPECT_EQ(passes, 0);
            EXPECT_EQ(plane, (flags & zebJ2kTermAll) ? 4 : 5);
            EXPECT_EQ(sm.st->mqEnded, 1);
        }
    }
    // With the segmentation symbols, the fill decodes all ones after the
    // first symbols: the test fails.
    StateMemory sm({8, 8});
    std::vector<uint32_t> blk(64, 0);
    ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(blk.data()), 32, {8, 8}, sm.st, 0, 6,
                                                     zebJ2kSegmentationSymbols),
              zebStatusOk);
    ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(1, sm.st), zebStatusOk);
    EXPECT_EQ(zebiDecodeCBProgrStep_JPEG2K(none, 0, sm.st), zebStatusJ2kCodeBlockError);
    EXPECT_EQ(sm.st->errorSeen, 1);
}

// ---------------------------------------------------------------- MQ and raw decoders
// A segment must never be read past its length: a segment at the very end
// of an allocation, with random bytes, under every pass kind.
TEST(J2kDecodeMq, FillAndMarkerEndTheSegment) {
    // 0xFF then a byte above 0x8F ends the data like a marker; what follows
    // is not read: the results equal those of the segment cut before it.
    Encoder enc;
    std::mt19937 g(5);
    for (int round = 0; round < 40; ++round) {
        const auto blk = randomBlock(16, 16, 9, g);
        const Coded c = enc.encode(blk, 16, 16, 0);
        ASSERT_EQ(c.segLens.size(), 1u);
        std::vector<uint8_t> a = c.bytes, b = c.bytes;
        const uint8_t marker = static_cast<uint8_t>(0x90 + g() % 0x70);
        a.push_back(0xFF);
        a.push_back(marker);
        a.push_back(static_cast<uint8_t>(g()));
        a.push_back(static_cast<uint8_t>(g()));
        Coded ca = c, cb = c;
        ca.bytes = a;
        ca.segLens = {static_cast<int>(a.size())};
        cb.bytes = b;
        const auto wa = decodeOneCall(ca, 16, 16, 0, zebJ2kKeepHalfBit, c.passes);
        const auto wb = decodeOneCall(cb, 16, 16, 0, zebJ2kKeepHalfBit, c.passes);
        EXPECT_EQ(firstMismatch(wa, wb), -1) << round;
    }
}

TEST(J2kDecodeMq, RawBitsUndoTheStuffing) {
    // A raw significance pass over two 4-sample columns in which every sample
    // has a significant neighbour: decisions and signs come straight from the
    // bits, and the top bit of the byte after 0xFF is skipped, whatever it is.
    for (uint8_t second : {uint8_t{0x5B}, uint8_t{0xDB}}) {
        StateMemory sm({2, 4});
        std::vector<uint32_t> blk(8, 0);
        ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(blk.data()), 8, {2, 4}, sm.st, 0,
                                                         6, zebJ2kBypass | zebJ2kTermAll),
                  zebStatusOk);
        uint32_t* rows = sm.st->flagRows;
        const int fs = sm.st->flagStride / 4;
        for (int x = 1; x <= 2; ++x) rows[fs + x] = rows[2 * fs + x] = 0x20002000u;
        sm.st->nextPass = 5;  // raw significance on plane 5
        sm.st->plane = 5;
        ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(1, sm.st), zebStatusOk);
        // Column 0: 1 1, 1 1, 1 1, 1 1 (0xFF). Column 1 from bit 6 of the
        // next byte: 1 0, 1 1, 0, 1 1.
        const uint8_t seg[2] = {0xFF, second};
        EXPECT_EQ(zebiDecodeCBProgrStep_JPEG2K(seg, 2, sm.st), zebStatusOk);
        const uint32_t neg = 0x80000000u, mag = 0x30;
        const uint32_t want[8] = {neg | mag, mag, neg | mag, neg | mag, neg | mag, 0, neg | mag, neg | mag};
        for (int i = 0; i < 8; ++i) EXPECT_EQ(blk[i], want[i]) << i;
        EXPECT_EQ(sm.st->rawBitIndex, -1);
        EXPECT_EQ(sm.st->rawPosition, 2);
        EXPECT_EQ(sm.st->nextPass, 4);
    }
}

TEST(J2kDecodeMq, RawTestAcceptsPaddingOnly) {
    // One raw refinement pass over one significant sample: one bit read,
    // then the other seven bits must be 1010101.
    for (int byte = 0; byte < 256; ++byte) {
        StateMemory sm({1, 1});
        uint32_t word = 0x30;
        ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(&word), 4, {1, 1}, sm.st, 0, 6,
                                                         int{zebJ2kBypass} | zebJ2kTermAll | zebJ2kKeepBlock |
                                                             zebJ2kKeepFlagRows),
                  zebStatusOk);
        sm.st->flagRows[sm.st->flagStride / 4 + 1] = 0x8000u;
        sm.st->nextPass = 4;
        sm.st->plane = 4;
        ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(1, sm.st), zebStatusOk);
        const uint8_t seg[1] = {static_cast<uint8_t>(byte)};
        const ZebStatus r = zebiDecodeCBProgrStep_JPEG2K(seg, 1, sm.st);
        EXPECT_EQ(r, (byte & 0x7F) == 0x2A ? zebStatusOk : zebStatusJ2kCodeBlockError) << byte;
        EXPECT_EQ(word, (byte & 0x80) ? 0x38u : 0x28u);
        EXPECT_EQ(sm.st->nextPass, 3);
    }
}

// ---------------------------------------------------------------- round trips
struct Case {
    int w, h, style, subband, flush;
};

void roundTrip(Encoder& enc, const Case& k, std::mt19937& g, int bits) {
    const auto blk = randomBlock(k.w, k.h, bits, g, 0.3 + 0.1 * (g() % 5));
    const Coded c = enc.encode(blk, k.w, k.h, k.style, k.subband, k.flush);
    // Every pass count for small blocks, a spread for larger ones.
    std::vector<int> counts = {c.passes};
    if (c.passes > 0) {
        const int n = k.w * k.h <= 64 ? c.passes : 2;
        for (int i = 0; i < n; ++i) counts.push_back(static_cast<int>(g() % c.passes));
    }
    for (int passes : counts) {
        const std::string what = describe(k.w, k.h, k.style, k.subband, k.flush, passes);
        const auto want = expectedWords(c, blk, k.w, k.h, k.subband, k.style, passes);
        // The half-bits kept.
        const auto kept = decodeOneCall(c, k.w, k.h, k.subband, k.style | zebJ2kKeepHalfBit, passes);
        ASSERT_EQ(firstMismatch(kept, want), -1) << what;
        // The final mask.
        const int q = planeAfter(c.S, passes, k.style);
        std::vector<uint32_t> masked = want;
        if (q >= 1)
            for (auto& v : masked) v &= ~0u << q;
        const auto got = decodeOneCall(c, k.w, k.h, k.subband, k.style, passes);
        ASSERT_EQ(firstMismatch(got, masked), -1) << what;
        if (passes == c.passes)
            for (int i = 0; i < k.w * k.h; ++i) ASSERT_EQ(got[i], static_cast<uint32_t>(blk[i])) << what;
    }
}

TEST(J2kDecodeRoundTrip, EveryStyleFlushAndSubband) {
    Encoder enc;
    std::mt19937 g(11);
    const ZebSize sizes[] = {{64, 64}, {17, 9}, {4, 4}, {1, 7}, {33, 5}};
    for (int style = 0; style < 32; ++style)
        for (int flush = 0; flush < 3; ++flush)
            for (const ZebSize& s : sizes) {
                if (s.width == 64 && flush != 0) continue;  // the full size once per style
                roundTrip(enc, {s.width, s.height, style, static_cast<int>(g() % 4), flush}, g, 10);
                if (HasFatalFailure()) return;
            }
}

TEST(J2kDecodeRoundTrip, EveryBlockSizeUpTo64AndLarger) {
    std::mt19937 g(12);
    {
        Encoder enc;
        for (int w = 1; w <= 64; ++w)
            for (int h = 1 + w % 3; h <= 64; h += (w % 7) + 6) {
                roundTrip(enc, {w, h, static_cast<int>(g() % 32), static_cast<int>(g() % 4), static_cast<int>(g() % 3)},
                          g, 1 + static_cast<int>(g() % 14));
                if (HasFatalFailure()) return;
            }
    }
    Encoder big({256, 128});
    for (const ZebSize s : {ZebSize{128, 128}, ZebSize{256, 16}, ZebSize{65, 127}, ZebSize{200, 3}}) {
        roundTrip(big, {s.width, s.height, static_cast<int>(g() % 32), static_cast<int>(g() % 4), 0}, g, 8);
        if (HasFatalFailure()) return;
    }
}

// Every size from 1 x 1 to 64 x 64, all passes: the source comes back.
TEST(J2kDecodeRoundTrip, EverySizeFullDecode) {
    Encoder enc;
    std::mt19937 g(23);
    StateMemory sm({64, 64});
    std::vector<uint32_t> out(64 * 64);
    for (int w = 1; w <= 64; ++w)
        for (int h = 1; h <= 64; ++h) {
            const int style = static_cast<int>(g() % 32), subband = static_cast<int>(g() % 4);
            const auto blk = randomBlock(w, h, 3, g, 0.7);
            const Coded c = enc.encode(blk, w, h, style, subband, static_cast<int>(g() % 3));
            const int none[1] = {0};
            ASSERT_EQ(zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(c.bytes.empty() ? reinterpret_cast<const Zeb8u*>(none)
                                                                           : c.bytes.data(),
                                                           reinterpret_cast<Zeb32s*>(out.data()), 4 * w, {w, h},
                                                           subband, c.S, c.passes,
                                                           c.segLens.empty() ? none : c.segLens.data(),
                                                           static_cast<int>(c.segLens.size()), style, nullptr, sm.st),
                      zebStatusOk);
            for (int i = 0; i < w * h; ++i)
                ASSERT_EQ(out[(i / w) * w + i % w], static_cast<uint32_t>(blk[i])) << w << "x" << h << " style " << style;
        }
}

TEST(J2kDecodeRoundTrip, WideMagnitudes) {
    Encoder enc;
    std::mt19937 g(13);
    for (int bits : {20, 28, 30, 31})
        for (int style : {0, int{zebJ2kBypass}, zebJ2kTermAll | zebJ2kBypass}) {
            roundTrip(enc, {24, 12, style, 0, 0}, g, bits);
            if (HasFatalFailure()) return;
        }
}

// Under term-all a block resumes pass by pass: one Step per segment, with the
// counter set to 1 before each, holds the reference words after every pass.
TEST(J2kDecodeRoundTrip, ResumePassByPassUnderTermAll) {
    Encoder enc;
    std::mt19937 g(14);
    for (int style : {int{zebJ2kTermAll}, zebJ2kTermAll | zebJ2kBypass, zebJ2kTermAll | zebJ2kBypass | zebJ2kCausal,
                      zebJ2kTermAll | zebJ2kResetContexts | zebJ2kSegmentationSymbols}) {
        const int w = 19, h = 11;
        const auto blk = randomBlock(w, h, 11, g);
        const Coded c = enc.encode(blk, w, h, style, 3);
        ASSERT_EQ(static_cast<int>(c.segLens.size()), c.passes);
        StateMemory sm({w, h});
        std::vector<uint32_t> out(static_cast<size_t>(w) * h);
        ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(out.data()), 4 * w, {w, h}, sm.st,
                                                         3, c.S, style | zebJ2kCheckTermination),
                  zebStatusOk);
        size_t at = 0;
        for (int p = 0; p < c.passes; ++p) {
            ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(1, sm.st), zebStatusOk);
            std::unique_ptr<uint8_t[]> seg(new uint8_t[std::max(c.segLens[p], 1)]);
            if (c.segLens[p] > 0) std::memcpy(seg.get(), c.bytes.data() + at, c.segLens[p]);
            at += c.segLens[p];
            const ZebStatus r = zebiDecodeCBProgrStep_JPEG2K(seg.get(), c.segLens[p], sm.st);
            EXPECT_TRUE(r == zebStatusOk || r == zebStatusJ2kCodeBlockError);
            int plane = 0;
            zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane);
            EXPECT_EQ(plane, planeAfter(c.S, p + 1, style));
            ASSERT_EQ(firstMismatch(out, expectedWords(c, blk, w, h, 3, style, p + 1)), -1) << style << " pass " << p;
        }
    }
}

// Without term-all a Step decodes a whole segment; a smaller counter stops
// inside it and leaves the plane where the last pass ran.
TEST(J2kDecodeRoundTrip, CounterStopsInsideASegment) {
    Encoder enc;
    std::mt19937 g(15);
    const int w = 32, h = 32;
    const auto blk = randomBlock(w, h, 12, g);
    for (int style : {0, int{zebJ2kBypass}}) {
        const Coded c = enc.encode(blk, w, h, style);
        for (int k = 1; k < c.passes; k += 2) {
            StateMemory sm({w, h});
            std::vector<uint32_t> out(static_cast<size_t>(w) * h);
            ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(out.data()), 4 * w, {w, h},
                                                             sm.st, 0, c.S, style),
                      zebStatusOk);
            ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(k, sm.st), zebStatusOk);
            size_t at = 0;
            for (int len : c.segLens) {
                EXPECT_EQ(zebiDecodeCBProgrStep_JPEG2K(c.bytes.data() + at, len, sm.st), zebStatusOk);
                at += len;
            }
            int plane = 0, left = 0;
            zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane);
            zebiDecodeCBProgrGetPassCounter_JPEG2K(sm.st, &left);
            EXPECT_EQ(left, 0);
            EXPECT_EQ(plane, planeAfter(c.S, k, style)) << k;
            ASSERT_EQ(firstMismatch(out, expectedWords(c, blk, w, h, 0, style, k)), -1) << style << " passes " << k;
        }
    }
}

TEST(J2kDecodeRoundTrip, MisalignedBlockAndKeepFlags) {
    Encoder enc;
    std::mt19937 g(16);
    const int w = 21, h = 13;
    const auto blk = randomBlock(w, h, 9, g);
    const Coded c = enc.encode(blk, w, h, zebJ2kBypass);
    for (size_t offset : {1u, 2u, 3u, 5u}) {
        const auto got = decodeOneCall(c, w, h, 0, zebJ2kBypass, c.passes, zebStatusOk, nullptr, offset);
        for (int i = 0; i < w * h; ++i) ASSERT_EQ(got[i], static_cast<uint32_t>(blk[i])) << offset;
    }
    // Keep-block and keep-flag-rows on memory that is already clear decode
    // the same; on dirty samples keep-block keeps the dirt where nothing is
    // decoded.
    StateMemory sm({w, h});
    std::memset(sm.st->flagRows, 0, 8 * 96);  // (13 + 1) / 2 + 2 rows of 96 bytes
    std::vector<uint32_t> out(static_cast<size_t>(w) * h, 0);
    ASSERT_EQ(zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(c.bytes.data(), reinterpret_cast<Zeb32s*>(out.data()), 4 * w,
                                                   {w, h}, 0, c.S, c.passes, c.segLens.data(),
                                                   static_cast<int>(c.segLens.size()),
                                                   int{zebJ2kBypass} | zebJ2kKeepBlock | zebJ2kKeepFlagRows, nullptr,
                                                   sm.st),
              zebStatusOk);
    for (int i = 0; i < w * h; ++i) ASSERT_EQ(out[i], static_cast<uint32_t>(blk[i]));
    std::vector<uint32_t> dirty(static_cast<size_t>(w) * h, 0x40000000u);
    ASSERT_EQ(zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(c.bytes.data(), reinterpret_cast<Zeb32s*>(dirty.data()), 4 * w,
                                                   {w, h}, 0, c.S, 0, c.segLens.data(),
                                                   static_cast<int>(c.segLens.size()), zebJ2kKeepBlock, nullptr,
                                                   sm.st),
              zebStatusOk);
    for (uint32_t v : dirty) EXPECT_EQ(v, 0x40000000u & (~0u << (c.S - 1)));
}

// ---------------------------------------------------------------- termination tests
// Which flush methods of the encoder pass the MQ end test on clean data.
// The test passes only where the decoder has run into the end of the data (or
// stands on a byte boundary): the fixed flush always gets there; the full
// flush leaves bytes the decoder never needs and fails on most segments, the
// shortest flush on some. Raw segments always pass their padding test.
TEST(J2kDecodeTermination, CleanSegmentsByFlushMethod) {
    Encoder enc;
    std::mt19937 g(17);
    int fails[3] = {0, 0, 0}, segs[3] = {0, 0, 0};
    for (int round = 0; round < 60; ++round) {
        const int w = 1 + static_cast<int>(g() % 40), h = 1 + static_cast<int>(g() % 40);
        const auto blk = randomBlock(w, h, 1 + static_cast<int>(g() % 12), g);
        for (int flush = 0; flush < 3; ++flush) {
            const int style = zebJ2kTermAll | ((round & 1) ? zebJ2kBypass : 0);
            const Coded c = enc.encode(blk, w, h, style, 0, flush);
            StateMemory sm({w, h});
            std::vector<uint32_t> out(static_cast<size_t>(w) * h);
            ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(out.data()), 4 * w, {w, h},
                                                             sm.st, 0, c.S, style | zebJ2kCheckTermination),
                      zebStatusOk);
            ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(c.passes, sm.st), zebStatusOk);
            size_t at = 0;
            for (int p = 0; p < c.passes; ++p) {
                const bool raw = (style & zebJ2kBypass) && p >= 10 && (p % 3) != 0;
                const ZebStatus r = zebiDecodeCBProgrStep_JPEG2K(c.bytes.data() + at, c.segLens[p], sm.st);
                at += c.segLens[p];
                if (raw) {
                    EXPECT_EQ(r, zebStatusOk) << "raw segments always pass";
                    continue;
                }
                ++segs[flush];
                fails[flush] += r != zebStatusOk;
            }
            for (int i = 0; i < w * h; ++i) ASSERT_EQ(out[i], static_cast<uint32_t>(blk[i]));
        }
    }
    RecordProperty("full_failures", fails[0]);
    RecordProperty("shortest_failures", fails[1]);
    RecordProperty("fixed_failures", fails[2]);
    std::printf("MQ end test on clean segments: full %d/%d, shortest %d/%d, fixed %d/%d failed\n", fails[0], segs[0],
                fails[1], segs[1], fails[2], segs[2]);
    EXPECT_EQ(fails[2], 0);
    EXPECT_GT(fails[0], segs[0] / 2);
    EXPECT_GT(fails[1], 0);
    EXPECT_LT(fails[1], segs[1] / 2);
}

// ---------------------------------------------------------------- damage
// Random bit flips, random bytes and truncation under every flag: no crash,
// no read past a segment (the address sanitizer watches the exact-size
// copies), no write outside the block, results 0 or -112, -112 only where a
// test was asked for, and the one-call decoder's cut as written.
TEST(J2kDecodeDamage, FuzzEveryFlag) {
    Encoder enc;
    std::mt19937 g(18);
    for (int round = 0; round < 1500; ++round) {
        const int w = 1 + static_cast<int>(g() % 40), h = 1 + static_cast<int>(g() % 40);
        const int style = static_cast<int>(g() % 32);
        const auto blk = randomBlock(w, h, 1 + static_cast<int>(g() % 14), g);
        Coded c = enc.encode(blk, w, h, style, static_cast<int>(g() % 4), static_cast<int>(g() % 3));
        const int kind = round % 3;
        if (kind == 0) {
            for (int i = 0, n = 1 + static_cast<int>(g() % 4); i < n && !c.bytes.empty(); ++i)
                c.bytes[g() % c.bytes.size()] ^= static_cast<uint8_t>(1u << (g() % 8));
        } else if (kind == 1) {
            for (auto& b : c.bytes) b = static_cast<uint8_t>(g());
        } else if (!c.segLens.empty()) {
            // Truncate one segment (the bytes after it shift down).
            const size_t s = g() % c.segLens.size();
            size_t at = 0;
            for (size_t i = 0; i < s; ++i) at += c.segLens[i];
            const int cut = c.segLens[s] > 0 ? static_cast<int>(g() % (c.segLens[s] + 1)) : 0;
            c.bytes.erase(c.bytes.begin() + at + cut, c.bytes.begin() + at + c.segLens[s]);
            c.segLens[s] = cut;
        }
        const int flags = style | (static_cast<int>(g() % 2) ? zebJ2kCheckTermination : 0) |
                          (static_cast<int>(g() % 2) ? zebJ2kTruncateAtError : 0) |
                          (static_cast<int>(g() % 3) == 0 ? zebJ2kKeepHalfBit : 0);
        const bool testsAsked = (flags & (int{zebJ2kCheckTermination} | zebJ2kSegmentationSymbols)) ||
                                ((style & zebJ2kBypass) && c.passes > 10);
        // The progressive decoder, segment by segment, with exact-size copies.
        StateMemory sm({w, h});
        std::vector<uint32_t> prog(static_cast<size_t>(w) * h);
        ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(prog.data()), 4 * w, {w, h},
                                                         sm.st, 0, c.S, flags),
                  zebStatusOk);
        ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(c.passes, sm.st), zebStatusOk);
        size_t at = 0;
        int firstError = -1, errorPlaneProg = 0;
        for (size_t s = 0; s < c.segLens.size(); ++s) {
            std::unique_ptr<uint8_t[]> seg(new uint8_t[std::max(c.segLens[s], 1)]);
            if (c.segLens[s] > 0) std::memcpy(seg.get(), c.bytes.data() + at, c.segLens[s]);
            at += c.segLens[s];
            const ZebStatus r = zebiDecodeCBProgrStep_JPEG2K(seg.get(), c.segLens[s], sm.st);
            ASSERT_TRUE(r == zebStatusOk || r == zebStatusJ2kCodeBlockError);
            if (r != zebStatusOk && firstError < 0) {
                firstError = static_cast<int>(s);
                zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &errorPlaneProg);
                break;
            }
        }
        if (!testsAsked) EXPECT_EQ(firstError, -1);
        // The one-call decoder stops at the same segment and cuts there.
        int errorPlane = 12345;
        const auto got = decodeOneCall(c, w, h, 0, flags, c.passes,
                                       firstError >= 0 ? zebStatusJ2kCodeBlockError : zebStatusOk, &errorPlane);
        int plane = errorPlaneProg;
        if (firstError >= 0) {
            EXPECT_EQ(errorPlane, errorPlaneProg);
            if ((flags & zebJ2kTruncateAtError) && plane >= 0)
                for (auto& v : prog) {
                    const uint32_t cut = v & (~0u << plane);
                    v = (cut & 0x7FFFFFFFu) ? (cut | (1u << plane)) : 0;
                }
        } else {
            EXPECT_EQ(errorPlane, 12345);
            zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(sm.st, &plane);
        }
        if (!(flags & zebJ2kKeepHalfBit) && plane >= 1)
            for (auto& v : prog) v &= ~0u << plane;
        ASSERT_EQ(firstMismatch(got, prog), -1) << "round " << round;
        if (HasFatalFailure()) return;
    }
}

// Random bytes, random segment lengths (empty and negative ones too), pass
// and plane counts beyond what a block can have, every flag bit: the
// decoders stay inside their data and the block.
TEST(J2kDecodeDamage, FuzzRandomArguments) {
    std::mt19937 g(22);
    for (int round = 0; round < 1500; ++round) {
        const int w = 1 + static_cast<int>(g() % 24), h = 1 + static_cast<int>(g() % 24);
        const int segments = static_cast<int>(g() % 6);
        std::vector<int> lens(std::max(segments, 1));
        int total = 0;
        for (int& l : lens) {
            const int k = static_cast<int>(g() % 8);
            l = k == 0 ? -static_cast<int>(g() % 5) : (k == 1 ? 0 : static_cast<int>(g() % 40));
            if (l > 0) total += l;
        }
        std::unique_ptr<uint8_t[]> data(new uint8_t[std::max(total, 1)]);
        for (int i = 0; i < total; ++i) data[i] = static_cast<uint8_t>((g() % 4 == 0) ? 0xFF : g());
        const int planes = static_cast<int>(g() % 40);
        const int passes = static_cast<int>(g() % 130) - 5;
        const int flags = static_cast<int>(g() & 0x1F003F);
        const int step = 4 * w + 4 * static_cast<int>(g() % 3);
        GuardedBuffer dst(static_cast<size_t>(step) * h, g() % 4);
        StateMemory sm({w, h});
        int errorPlane = 0;
        const ZebStatus r = zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(data.get(), dst.as<Zeb32s>(), step, {w, h},
                                                                 static_cast<int>(g() % 5), planes, passes,
                                                                 lens.data(), segments, flags, &errorPlane, sm.st);
        ASSERT_TRUE(r == zebStatusOk || r == zebStatusJ2kCodeBlockError) << round;
        EXPECT_TRUE(dst.guardsIntact()) << round;
        // The progressive decoder on the same segments, one Step each.
        std::vector<uint32_t> blk(static_cast<size_t>(w) * h);
        ASSERT_EQ(zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(reinterpret_cast<Zeb32s*>(blk.data()), 4 * w, {w, h}, sm.st,
                                                         0, planes, flags),
                  zebStatusOk);
        ASSERT_EQ(zebiDecodeCBProgrSetPassCounter_JPEG2K(passes, sm.st), zebStatusOk);
        const uint8_t* at = data.get();
        for (int s = 0; s < segments; ++s) {
            const ZebStatus rs = zebiDecodeCBProgrStep_JPEG2K(at, lens[s], sm.st);
            ASSERT_TRUE(rs == zebStatusOk || rs == zebStatusJ2kCodeBlockError);
            if (lens[s] > 0) at += lens[s];
        }
    }
}

TEST(J2kDecodeDamage, SegmentationFailureStopsTheOneCallDecoder) {
    Encoder enc;
    std::mt19937 g(19);
    const int w = 16, h = 16;
    const int style = zebJ2kTermAll | zebJ2kSegmentationSymbols;
    int seen = 0;
    for (int round = 0; round < 20; ++round) {
        const auto blk = randomBlock(w, h, 8, g);
        Coded c = enc.encode(blk, w, h, style);
        ASSERT_GE(c.passes, 4);
        // Garble the first cleanup pass's segment: its symbols come out wrong.
        for (int i = 0; i < c.segLens[0]; ++i) c.bytes[i] = static_cast<uint8_t>(g() & 0x7F);
        int errorPlane = 99;
        StateMemory sm({w, h});
        std::vector<uint32_t> out(static_cast<size_t>(w) * h);
        const ZebStatus r = zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(
            c.bytes.data(), reinterpret_cast<Zeb32s*>(out.data()), 4 * w, {w, h}, 0, c.S, c.passes,
            c.segLens.data(), static_cast<int>(c.segLens.size()), style | zebJ2kKeepHalfBit, &errorPlane, sm.st);
        if (r == zebStatusOk) continue;
        ++seen;
        EXPECT_EQ(r, zebStatusJ2kCodeBlockError);
        // The cleanup pass ran on plane S - 1 and lowered it; nothing after.
        EXPECT_EQ(errorPlane, c.S - 2);
        int left = 0;
        zebiDecodeCBProgrGetPassCounter_JPEG2K(sm.st, &left);
        EXPECT_EQ(left, c.passes - 1);
        EXPECT_EQ(sm.st->errorSeen, 1);
    }
    EXPECT_GT(seen, 10);
}

TEST(J2kDecodeDamage, SegmentCountZeroAndPassCountZero) {
    Encoder enc;
    std::mt19937 g(20);
    const auto blk = randomBlock(8, 8, 6, g);
    Coded c = enc.encode(blk, 8, 8, 0);
    // No segment: the block comes out clear and nothing is read.
    Coded none = c;
    none.segLens.clear();
    none.bytes.clear();
    for (uint32_t v : decodeOneCall(none, 8, 8, 0, 0, c.passes)) EXPECT_EQ(v, 0u);
    // No pass: every Step does nothing.
    for (uint32_t v : decodeOneCall(c, 8, 8, 0, zebJ2kCheckTermination, 0)) EXPECT_EQ(v, 0u);
    // Under keep-block with no segment the mask still runs.
    StateMemory sm({8, 8});
    std::vector<uint32_t> out(64, 0x8000FFFFu);
    ASSERT_EQ(zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(c.bytes.data(), reinterpret_cast<Zeb32s*>(out.data()), 32, {8, 8},
                                                   0, 6, 3, c.segLens.data(), 0, zebJ2kKeepBlock, nullptr, sm.st),
              zebStatusOk);
    for (uint32_t v : out) EXPECT_EQ(v, 0x8000FFE0u);
}

// ---------------------------------------------------------------- block kernels
TEST(J2kDecodeKernels, MaskVectorMatchesScalar) {
    std::mt19937 g(21);
    for (int width : {1, 7, 8, 9, 15, 16, 17, 31, 33, 64}) {
        for (int offset : {0, 1, 4, 6}) {
            const int h = 3, step = 4 * width + 4 + offset;
            GuardedBuffer a(static_cast<size_t>(step) * h, offset), b(static_cast<size_t>(step) * h, offset);
            for (size_t i = 0; i < a.size(); ++i) a.data()[i] = b.data()[i] = static_cast<uint8_t>(g());
            const uint32_t mask = ~0u << (g() % 31);
            zeb::j2k::maskBlock(a.data(), step, width, h, mask);
            zeb::j2k::maskBlockScalar(b.data(), step, width, h, mask);
            EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size()), 0) << width << " " << offset;
            EXPECT_TRUE(a.guardsIntact());
        }
    }
}

TEST(J2kDecodeKernels, TruncationKeepsMidpointOrClears) {
    uint32_t v[6] = {0x8000000Fu, 0x80000003u, 0x00000004u, 0x00000000u, 0x80000000u, 0x7FFFFFFFu};
    zeb::j2k::truncateBlock(reinterpret_cast<uint8_t*>(v), 24, 6, 1, 2);
    EXPECT_EQ(v[0], 0x8000000Cu);
    EXPECT_EQ(v[1], 0u);  // no magnitude at or above plane 2: no sign either
    EXPECT_EQ(v[2], 4u);
    EXPECT_EQ(v[3], 0u);
    EXPECT_EQ(v[4], 0u);
    EXPECT_EQ(v[5], 0x7FFFFFFCu);
    uint32_t w[1] = {0x80000005u};
    zeb::j2k::truncateBlock(reinterpret_cast<uint8_t*>(w), 4, 1, 1, -1);
    EXPECT_EQ(w[0], 0x80000005u);
}

}  // namespace
