// 5/3 wavelet rows, columns and lifting steps: argument checks, worked
// numbers, exact extents read, vector kernels against their scalar twins,
// overlapping outputs, round trips and agreement with an independent decoder.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "jpeg2000/transform/checkasm.h"
#include "jpeg2000/transform/opj_tools.h"
#include "jpeg2000/transform/wavelet.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using zebtest::checkasm::Area;
using zebtest::checkasm::Place;
namespace ca = zebtest::checkasm;
namespace j2k = zeb::j2k;

// ------------------------------------------------------------ reference model
// The lifting formulas with explicit indices. Sums are formed in 32 bits
// (wrapping), results kept to the sample type. Every access goes through an
// accessor that fails the test outside the extents a caller must supply.

template <class T>
T keep(int64_t v) { return static_cast<T>(static_cast<std::make_unsigned_t<T>>(static_cast<uint64_t>(v))); }
inline int32_t sum32(int64_t a, int64_t b) { return zeb::wrap32(a + b); }

template <class T> T fp(T c, T a, T b) { return keep<T>(int64_t{c} - (sum32(a, b) >> 1)); }
template <class T> T fu(T c, T a, T b) { return keep<T>(int64_t{c} + (sum32(sum32(a, b), 2) >> 2)); }
template <class T> T iu(T c, T a, T b) { return keep<T>(int64_t{c} - (sum32(sum32(a, b), 2) >> 2)); }
template <class T> T ip(T c, T a, T b) { return keep<T>(int64_t{c} + (sum32(a, b) >> 1)); }

template <class T>
using Get = std::function<T(int)>;

// Accessor over a signal that fails on indices outside [lo, hi].
template <class T>
Get<T> bounded(std::function<T(int)> f, int lo, int hi, const char* name) {
    return [=](int k) {
        if (k < lo || k > hi) {
            ADD_FAILURE() << name << "[" << k << "] read outside " << lo << ".." << hi;
            return T{};
        }
        return f(k);
    };
}

template <class T>
void modelFwd(Get<T> x, int w, int phase, std::vector<T>& L, std::vector<T>& H) {
    const int p = phase != 0;
    auto hx = [&](int k) { return fp<T>(x(k), x(k - 1), x(k + 1)); };
    L.resize(w);
    H.resize(w);
    for (int i = 0; i < w; ++i) {
        const int e = 2 * i + p, o = 2 * i + 1 - p;
        H[i] = hx(o);
        L[i] = fu<T>(x(e), hx(e - 1), hx(e + 1));
    }
}

template <class T>
std::vector<T> modelInv(Get<T> L, Get<T> H, int w, int phase) {
    const int p = phase != 0;
    auto hAt = [&](int k) { return H((k - (1 - p)) / 2); };  // k is a high-pass position
    auto xe = [&](int k) { return iu<T>(L((k - p) / 2), hAt(k - 1), hAt(k + 1)); };
    std::vector<T> x(2 * w);
    for (int i = 0; i < w; ++i) {
        const int e = 2 * i + p, o = 2 * i + 1 - p;
        x[e] = xe(e);
        x[o] = ip<T>(H(i), xe(o - 1), xe(o + 1));
    }
    return x;
}

// Extents the caller supplies, as [first, last] index pairs.
struct Extents { int xlo, xhi, llo, lhi, hlo, hhi; };
Extents extents(int w, int phase) {
    return phase == 0 ? Extents{-2, 2 * w, 0, w, -1, w} : Extents{-1, 2 * w + 1, -1, w - 1, -1, w};
}

// ------------------------------------------------------------ export table

template <class T> struct Ops;
template <> struct Ops<int16_t> {
    static constexpr auto fwdRow = zebiWTFwdRow_B53_JPEG2K_16s_C1R;
    static constexpr auto fwdCol = zebiWTFwdCol_B53_JPEG2K_16s_C1R;
    static constexpr auto invRow = zebiWTInvRow_B53_JPEG2K_16s_C1R;
    static constexpr auto invCol = zebiWTInvCol_B53_JPEG2K_16s_C1R;
};
template <> struct Ops<int32_t> {
    static constexpr auto fwdRow = zebiWTFwdRow_B53_JPEG2K_32s_C1R;
    static constexpr auto fwdCol = zebiWTFwdCol_B53_JPEG2K_32s_C1R;
    static constexpr auto invRow = zebiWTInvRow_B53_JPEG2K_32s_C1R;
    static constexpr auto invCol = zebiWTInvCol_B53_JPEG2K_32s_C1R;
};

template <class T>
struct RegionOp {
    const char* name;
    bool forward;
    ZebStatus (*fwd)(const T*, int, T*, int, T*, int, ZebSize, int);
    ZebStatus (*inv)(const T*, int, const T*, int, ZebSize, T*, int, int);
    bool column;
};

const RegionOp<Zeb16s> kOps16[] = {
    {"FwdRow16s", true, zebiWTFwdRow_B53_JPEG2K_16s_C1R, nullptr, false},
    {"FwdCol16s", true, zebiWTFwdCol_B53_JPEG2K_16s_C1R, nullptr, true},
    {"InvRow16s", false, nullptr, zebiWTInvRow_B53_JPEG2K_16s_C1R, false},
    {"InvCol16s", false, nullptr, zebiWTInvCol_B53_JPEG2K_16s_C1R, true},
};
const RegionOp<Zeb32s> kOps32[] = {
    {"FwdRow32s", true, zebiWTFwdRow_B53_JPEG2K_32s_C1R, nullptr, false},
    {"FwdCol32s", true, zebiWTFwdCol_B53_JPEG2K_32s_C1R, nullptr, true},
    {"InvRow32s", false, nullptr, zebiWTInvRow_B53_JPEG2K_32s_C1R, false},
    {"InvCol32s", false, nullptr, zebiWTInvCol_B53_JPEG2K_32s_C1R, true},
};

// Calls a region operation with pointers a, b, c (in argument order) and steps.
template <class T>
ZebStatus callOp(const RegionOp<T>& op, T* a, int as, T* b, int bs, T* c, int cs, ZebSize roi, int phase) {
    return op.forward ? op.fwd(a, as, b, bs, c, cs, roi, phase) : op.inv(a, as, b, bs, roi, c, cs, phase);
}

template <class T>
void checkOrder(const RegionOp<T>& op) {
    SCOPED_TRACE(op.name);
    T buf[64] = {};
    T* p = buf + 16;
    const ZebSize ok{1, 1};
    // Pointers before steps before sizes, whichever operand is broken.
    for (int k = 0; k < 3; ++k) {
        T* q[3] = {p, p, p};
        q[k] = nullptr;
        EXPECT_EQ(callOp(op, q[0], 0, q[1], 0, q[2], 0, ZebSize{0, 0}, 0), zebStatusNullPointer);
        int s[3] = {8, 8, 8};
        s[k] = k == 1 ? -1 : 0;
        EXPECT_EQ(callOp(op, p, s[0], p, s[1], p, s[2], ZebSize{0, 0}, 0), zebStatusBadStep);
    }
    EXPECT_EQ(callOp(op, p, 8, p, 8, p, 8, ZebSize{0, 1}, 0), zebStatusBadSize);
    EXPECT_EQ(callOp(op, p, 8, p, 8, p, 8, ZebSize{1, 0}, 0), zebStatusBadSize);
    EXPECT_EQ(callOp(op, p, 8, p, 8, p, 8, ZebSize{-5, 3}, 0), zebStatusBadSize);
    EXPECT_EQ(callOp(op, p, 8, p, 8, p, 8, ok, 0), zebStatusOk);

    // A failed check writes nothing.
    zebtest::GuardedBuffer g(256);
    T* d = g.as<T>() + 32;
    EXPECT_EQ(callOp(op, d, 8, d, 8, d, 0, ZebSize{4, 4}, 1), zebStatusBadStep);
    EXPECT_EQ(callOp(op, d, 8, d, 8, d, 8, ZebSize{4, 0}, 1), zebStatusBadSize);
    EXPECT_TRUE(g.untouched());
}

TEST(Wavelet53Checks, RegionOperationsCheckPointersThenStepsThenSize) {
    for (const auto& op : kOps16) checkOrder(op);
    for (const auto& op : kOps32) checkOrder(op);
}

TEST(Wavelet53Checks, LiftingStepsCheckPointersThenWidth) {
    int16_t a16[4] = {};
    int32_t a32[4] = {};
    using F16 = std::function<ZebStatus(int16_t**, int)>;
    using F32 = std::function<ZebStatus(int32_t**, int)>;
    const F16 f16[] = {
        [](int16_t** p, int w) { return zebiWTFwdColLift_B53_JPEG2K_16s_C1(p[0], p[1], p[2], p[3], p[4], p[5], w); },
        [](int16_t** p, int w) { return zebiWTInvColLift_B53_JPEG2K_16s_C1(p[0], p[1], p[2], p[3], p[4], p[5], w); }};
    const F32 f32[] = {
        [](int32_t** p, int w) { return zebiWTFwdColLift_B53_JPEG2K_32s_C1(p[0], p[1], p[2], p[3], p[4], p[5], w); },
        [](int32_t** p, int w) { return zebiWTInvColLift_B53_JPEG2K_32s_C1(p[0], p[1], p[2], p[3], p[4], p[5], w); }};
    for (int k = 0; k < 6; ++k) {
        int16_t* p16[6] = {a16, a16, a16, a16, a16, a16};
        int32_t* p32[6] = {a32, a32, a32, a32, a32, a32};
        p16[k] = nullptr;
        p32[k] = nullptr;
        for (auto& f : f16) EXPECT_EQ(f(p16, 0), zebStatusNullPointer) << k;
        for (auto& f : f32) EXPECT_EQ(f(p32, 0), zebStatusNullPointer) << k;
    }
    int16_t* p16[6] = {a16, a16, a16, a16, a16, a16};
    int32_t* p32[6] = {a32, a32, a32, a32, a32, a32};
    for (auto& f : f16) {
        EXPECT_EQ(f(p16, 0), zebStatusBadSize);
        EXPECT_EQ(f(p16, -1), zebStatusBadSize);
        EXPECT_EQ(f(p16, 1), zebStatusOk);
    }
    for (auto& f : f32) {
        EXPECT_EQ(f(p32, 0), zebStatusBadSize);
        EXPECT_EQ(f(p32, 1), zebStatusOk);
    }
}

// ------------------------------------------------------------ worked numbers

TEST(Wavelet53Values, WidthOneReadsTheDocumentedNeighbours) {
    // phase 0: H[-1] = 9 - ((5 + 2) >> 1) = 6, H[0] = 7 - ((2 + 4) >> 1) = 4,
    // L[0] = 2 + ((6 + 4 + 2) >> 2) = 5.
    int16_t x0[] = {5, 9, 2, 7, 4};
    int16_t lo = 0, hi = 0;
    ASSERT_EQ(zebiWTFwdRow_B53_JPEG2K_16s_C1R(x0 + 2, 10, &lo, 2, &hi, 2, ZebSize{1, 1}, 0), 0);
    EXPECT_EQ(hi, 4);
    EXPECT_EQ(lo, 5);
    // Another phase, x[-1..3] = 5 9 2 7 4: H[0] = 9 - ((5 + 2) >> 1) = 6, the
    // unstored H[1] = 7 - ((2 + 4) >> 1) = 4, L[0] = x[1] + ((6 + 4 + 2) >> 2) = 5.
    int32_t x1[] = {5, 9, 2, 7, 4};
    int32_t l32 = 0, h32 = 0;
    ASSERT_EQ(zebiWTFwdRow_B53_JPEG2K_32s_C1R(x1 + 1, 20, &l32, 4, &h32, 4, ZebSize{1, 1}, 7), 0);
    EXPECT_EQ(h32, 6);
    EXPECT_EQ(l32, 5);
    // Shifts round down: H = 0 - ((-3 + 0) >> 1) = 2, L = -3 + ((2 + 2 + 2) >> 2)...
    int16_t xn[] = {0, 2, -3, 0, 0};
    ASSERT_EQ(zebiWTFwdRow_B53_JPEG2K_16s_C1R(xn + 2, 10, &lo, 2, &hi, 2, ZebSize{1, 1}, 0), 0);
    EXPECT_EQ(hi, 0 - ((-3 + 0) >> 1));  // 2
    EXPECT_EQ(lo, -3 + ((fp<int16_t>(2, 0, -3) + 2 + 2) >> 2));
}

TEST(Wavelet53Values, ConstantSignalGivesZeroHighAndTheConstant) {
    for (int phase : {0, 1})
        for (int w : {1, 2, 7, 8, 9, 17, 33}) {
            std::vector<int16_t> x(2 * w + 8, -1234);
            std::vector<int16_t> lo(w), hi(w);
            ASSERT_EQ(zebiWTFwdRow_B53_JPEG2K_16s_C1R(x.data() + 4, 2 * w, lo.data(), 2, hi.data(), 2,
                                                      ZebSize{w, 1}, phase), 0);
            for (int i = 0; i < w; ++i) ASSERT_TRUE(lo[i] == -1234 && hi[i] == 0) << w << " " << phase;
            std::vector<int32_t> c(static_cast<size_t>(w) * (2 * 1 + 4), 99999);
            std::vector<int32_t> l32(w), h32(w);
            ASSERT_EQ(zebiWTFwdCol_B53_JPEG2K_32s_C1R(c.data() + 2 * w, 4 * w, l32.data(), 4 * w, h32.data(), 4 * w,
                                                      ZebSize{w, 1}, phase), 0);
            for (int i = 0; i < w; ++i) ASSERT_TRUE(l32[i] == 99999 && h32[i] == 0) << w << " " << phase;
        }
}

// The 16-bit lifting steps add, shift and store in 16 bits on every path.
TEST(Wavelet53Values, SixteenBitLiftingWrapsItsSums) {
    auto& g = zebtest::rng();
    for (int w = 1; w <= 40; ++w) {
        std::vector<int16_t> r[4];
        for (auto& v : r) { v.resize(w); zebtest::fillRandom(v.data(), w, -32768, 32767); }
        std::vector<int16_t> lo(w), hi(w), ev(w), od(w);
        ASSERT_EQ(zebiWTFwdColLift_B53_JPEG2K_16s_C1(r[0].data(), r[1].data(), r[2].data(), lo.data(), r[3].data(),
                                                     hi.data(), w), 0);
        ASSERT_EQ(zebiWTInvColLift_B53_JPEG2K_16s_C1(r[0].data(), r[1].data(), r[2].data(), r[3].data(), od.data(),
                                                     ev.data(), w), 0);
        for (int j = 0; j < w; ++j) {
            const int16_t h = zeb::wrap16(r[1][j] - (zeb::wrap16(r[0][j] + r[2][j]) >> 1));
            ASSERT_EQ(hi[j], h) << w << " " << j;
            ASSERT_EQ(lo[j], zeb::wrap16(r[0][j] + (zeb::wrap16(r[3][j] + h + 2) >> 2))) << w << " " << j;
            const int16_t e = zeb::wrap16(r[0][j] - (zeb::wrap16(r[1][j] + r[2][j] + 2) >> 2));
            ASSERT_EQ(ev[j], e) << w << " " << j;
            ASSERT_EQ(od[j], zeb::wrap16(r[1][j] + (zeb::wrap16(e + r[3][j]) >> 1))) << w << " " << j;
        }
    }
    (void)g;
}

// Out of the caller's range, the two 16-bit forms part: vector blocks add two
// samples in 16 bits (30000 + 30000 wraps, and H comes out as -32768), the
// single samples add in 32 bits (H is 0). Rows run blocks of 8 outputs from
// the start; columns take the vector path from 16 samples of width on.
TEST(Wavelet53Values, SixteenBitVectorBlocksWrapTheirSums) {
    const int16_t big = 30000, wrapped = zeb::wrap16(big - (zeb::wrap16(2 * big) >> 1));
    ASSERT_EQ(wrapped, -32768);
    for (int w : {7, 8, 9, 16, 17}) {
        std::vector<int16_t> x(2 * w + 4, big), lo(w), hi(w);
        ASSERT_EQ(zebiWTFwdRow_B53_JPEG2K_16s_C1R(x.data() + 2, 4 * w, lo.data(), 2 * w, hi.data(), 2 * w,
                                                  ZebSize{w, 1}, 0), 0);
        for (int i = 0; i < w; ++i) EXPECT_EQ(hi[i], i < w / 8 * 8 ? wrapped : 0) << "row w=" << w << " i=" << i;
    }
    for (int w : {15, 16}) {
        std::vector<int16_t> x(size_t(w) * 5, big), lo(w), hi(w);
        ASSERT_EQ(zebiWTFwdCol_B53_JPEG2K_16s_C1R(x.data() + 2 * w, 2 * w, lo.data(), 2 * w, hi.data(), 2 * w,
                                                  ZebSize{w, 1}, 0), 0);
        for (int j = 0; j < w; ++j) EXPECT_EQ(hi[j], w >= 16 ? wrapped : 0) << "column w=" << w << " j=" << j;
    }
}

// ------------------------------------------------------------ extents and model
// The exported operations, run with every source placed page-exact at both
// ends of its extents and on the heap, give the model's values, read nothing
// beyond the extents and write nothing beyond their outputs.

template <class T>
struct Range { int64_t lo, hi; };
template <class T>
Range<T> dataRange() {
    // 16-bit data small enough that every sum of neighbours fits in 16 bits.
    if constexpr (sizeof(T) == 2) return {-8000, 8000};
    else return {INT32_MIN, INT32_MAX};
}

template <class T>
void rowsAgainstModel(bool forward, int w, int h, int phase, Place place, int off) {
    const Extents ex = extents(w, phase);
    auto& g = zebtest::rng();
    const Range<T> r = dataRange<T>();
    SCOPED_TRACE(testing::Message() << (forward ? "fwd" : "inv") << " w=" << w << " h=" << h << " phase=" << phase
                                    << " " << ca::placeName(place) << "+" << off);
    if (forward) {
        Area<T> x(0, h - 1, ex.xhi - ex.xlo + 1, place, off), lo(0, h - 1, w, place, off), hi(0, h - 1, w, place, off);
        x.fillRandom(g, r.lo, r.hi);
        constexpr auto f = Ops<T>::fwdRow;
        ASSERT_EQ(f(x.base() - ex.xlo, x.step(), lo.base(), lo.step(), hi.base(), hi.step(),
                                          ZebSize{w, h}, phase), 0);
        for (int y = 0; y < h; ++y) {
            std::vector<T> L, H;
            T* xr = x.row(y) - ex.xlo;
            modelFwd<T>(bounded<T>([=](int k) { return xr[k]; }, ex.xlo, ex.xhi, "x"), w, phase, L, H);
            for (int i = 0; i < w; ++i) ASSERT_TRUE(lo.row(y)[i] == L[i] && hi.row(y)[i] == H[i]) << y << " " << i;
        }
        EXPECT_TRUE(lo.outsideIntact() && hi.outsideIntact());
    } else {
        Area<T> l(0, h - 1, ex.lhi - ex.llo + 1, place, off), hh(0, h - 1, ex.hhi - ex.hlo + 1, place, off),
            x(0, h - 1, 2 * w, place, off);
        l.fillRandom(g, r.lo, r.hi);
        hh.fillRandom(g, r.lo, r.hi);
        constexpr auto f = Ops<T>::invRow;
        ASSERT_EQ(f(l.base() - ex.llo, l.step(), hh.base() - ex.hlo, hh.step(), ZebSize{w, h},
                                          x.base(), x.step(), phase), 0);
        for (int y = 0; y < h; ++y) {
            T* lr = l.row(y) - ex.llo;
            T* hr = hh.row(y) - ex.hlo;
            auto X = modelInv<T>(bounded<T>([=](int k) { return lr[k]; }, ex.llo, ex.lhi, "L"),
                                 bounded<T>([=](int k) { return hr[k]; }, ex.hlo, ex.hhi, "H"), w, phase);
            for (int i = 0; i < 2 * w; ++i) ASSERT_EQ(x.row(y)[i], X[i]) << y << " " << i;
        }
        EXPECT_TRUE(x.outsideIntact());
    }
}

template <class T>
void colsAgainstModel(bool forward, int w, int h, int phase, Place place, int off) {
    const Extents ex = extents(h, phase);
    auto& g = zebtest::rng();
    const Range<T> r = dataRange<T>();
    SCOPED_TRACE(testing::Message() << (forward ? "fwd" : "inv") << " w=" << w << " h=" << h << " phase=" << phase
                                    << " " << ca::placeName(place) << "+" << off);
    // A step with a gap after each row, so stray column reads meet poison.
    const int gap = place == Place::Heap ? 2 * int(sizeof(T)) : 0;
    const int step = w * int(sizeof(T)) + gap;
    if (forward) {
        Area<T> x(ex.xlo, ex.xhi, w, place, off, step), lo(0, h - 1, w, place, off, step),
            hi(0, h - 1, w, place, off, step);
        x.fillRandom(g, r.lo, r.hi);
        constexpr auto f = Ops<T>::fwdCol;
        ASSERT_EQ(f(x.base(), step, lo.base(), step, hi.base(), step, ZebSize{w, h}, phase), 0);
        for (int c = 0; c < w; ++c) {
            std::vector<T> L, H;
            modelFwd<T>(bounded<T>([&x, c](int k) { return x.at(k, c); }, ex.xlo, ex.xhi, "x"), h, phase, L, H);
            for (int i = 0; i < h; ++i) ASSERT_TRUE(lo.at(i, c) == L[i] && hi.at(i, c) == H[i]) << c << " " << i;
        }
        EXPECT_TRUE(lo.outsideIntact() && hi.outsideIntact());
    } else {
        Area<T> l(ex.llo, ex.lhi, w, place, off, step), hh(ex.hlo, ex.hhi, w, place, off, step),
            x(0, 2 * h - 1, w, place, off, step);
        l.fillRandom(g, r.lo, r.hi);
        hh.fillRandom(g, r.lo, r.hi);
        constexpr auto f = Ops<T>::invCol;
        ASSERT_EQ(f(l.base(), step, hh.base(), step, ZebSize{w, h}, x.base(), step, phase), 0);
        for (int c = 0; c < w; ++c) {
            auto X = modelInv<T>(bounded<T>([&l, c](int k) { return l.at(k, c); }, ex.llo, ex.lhi, "L"),
                                 bounded<T>([&hh, c](int k) { return hh.at(k, c); }, ex.hlo, ex.hhi, "H"), h, phase);
            for (int i = 0; i < 2 * h; ++i) ASSERT_EQ(x.at(i, c), X[i]) << c << " " << i;
        }
        EXPECT_TRUE(x.outsideIntact());
    }
}

TEST(Wavelet53Extents, RowsReadExactlyTheirExtents) {
    std::vector<int> widths;
    for (int w = 1; w <= 20; ++w) widths.push_back(w);
    for (int w : {31, 32, 33, 64, 65}) widths.push_back(w);
    for (bool fwd : {true, false})
        for (int phase : {0, 1})
            for (int w : widths)
                for (auto [place, off] : ca::placements<int16_t>()) {
                    rowsAgainstModel<int16_t>(fwd, w, 2, phase, place, off);
                    if (off % 4 == 0) rowsAgainstModel<int32_t>(fwd, w, 2, phase, place, off);
                    if (HasFatalFailure()) return;
                }
}

TEST(Wavelet53Extents, ColumnsReadExactlyTheirExtents) {
    for (bool fwd : {true, false})
        for (int phase : {0, 1})
            for (int w : {1, 3, 15, 16, 17, 31, 33, 40})
                for (int h : {1, 2, 3, 4, 7})
                    for (auto [place, off] : ca::placements<int32_t>()) {
                        colsAgainstModel<int16_t>(fwd, w, h, phase, place, off);
                        colsAgainstModel<int32_t>(fwd, w, h, phase, place, off);
                        if (HasFatalFailure()) return;
                    }
}

// ------------------------------------------------------------ vector against scalar twin

template <class T>
using RowFwd = void (*)(const T*, T*, T*, int32_t, int32_t);
template <class T>
using RowInv = void (*)(const T*, const T*, T*, int32_t, int32_t);

template <class T>
void rowTwins(RowFwd<T> fv, RowFwd<T> fs, RowInv<T> iv, RowInv<T> is) {
    const Range<T> r = dataRange<T>();
    for (int phase : {0, 1})
        for (int w = 1; w <= 70; ++w)
            for (auto [place, off] : ca::placements<T>()) {
                const Extents ex = extents(w, phase);
                const std::string ctx = "w=" + std::to_string(w) + " phase=" + std::to_string(phase) + " " +
                                        ca::placeName(place) + "+" + std::to_string(off);
                ca::runTwins("fwd row " + ctx, w * 131 + phase, [&](bool vec, uint32_t seed) {
                    std::mt19937 g(seed);
                    Area<T> x(0, 0, ex.xhi - ex.xlo + 1, place, off), lo(0, 0, w, place, off), hi(0, 0, w, place, off);
                    x.fillRandom(g, r.lo, r.hi);
                    (vec ? fv : fs)(x.base() - ex.xlo, lo.base(), hi.base(), w, phase);
                    std::vector<uint8_t> snap;
                    lo.snapshot(snap);
                    hi.snapshot(snap);
                    return snap;
                });
                ca::runTwins("inv row " + ctx, w * 131 + phase, [&](bool vec, uint32_t seed) {
                    std::mt19937 g(seed);
                    Area<T> l(0, 0, ex.lhi - ex.llo + 1, place, off), h(0, 0, ex.hhi - ex.hlo + 1, place, off),
                        x(0, 0, 2 * w, place, off);
                    l.fillRandom(g, r.lo, r.hi);
                    h.fillRandom(g, r.lo, r.hi);
                    (vec ? iv : is)(l.base() - ex.llo, h.base() - ex.hlo, x.base(), w, phase);
                    std::vector<uint8_t> snap;
                    x.snapshot(snap);
                    return snap;
                });
            }
}

TEST(Wavelet53Twins, Rows16s) { rowTwins<int16_t>(j2k::fwdRow53_16s, j2k::fwdRow53_16s_c, j2k::invRow53_16s, j2k::invRow53_16s_c); }
TEST(Wavelet53Twins, Rows32s) { rowTwins<int32_t>(j2k::fwdRow53_32s, j2k::fwdRow53_32s_c, j2k::invRow53_32s, j2k::invRow53_32s_c); }

template <class T>
using ColFwd = void (*)(const T*, int32_t, T*, int32_t, T*, int32_t, int32_t, int32_t, int32_t);
template <class T>
using ColInv = void (*)(const T*, int32_t, const T*, int32_t, T*, int32_t, int32_t, int32_t, int32_t);

template <class T>
void colTwins(ColFwd<T> fv, ColFwd<T> fs, ColInv<T> iv, ColInv<T> is) {
    const Range<T> r = dataRange<T>();
    for (int phase : {0, 1})
        for (int w : {1, 2, 7, 15, 16, 17, 23, 31, 32, 33, 47, 64, 71})
            for (int h : {1, 2, 3, 5})
                for (auto [place, off] : ca::placements<T>()) {
                    const Extents ex = extents(h, phase);
                    const int step = w * int(sizeof(T)) + (place == Place::Heap ? 6 * int(sizeof(T)) : 0);
                    const std::string ctx = "w=" + std::to_string(w) + " h=" + std::to_string(h) + " phase=" +
                                            std::to_string(phase) + " " + ca::placeName(place) + "+" +
                                            std::to_string(off);
                    ca::runTwins("fwd col " + ctx, w * 7 + h, [&](bool vec, uint32_t seed) {
                        std::mt19937 g(seed);
                        Area<T> x(ex.xlo, ex.xhi, w, place, off, step), lo(0, h - 1, w, place, off, step),
                            hi(0, h - 1, w, place, off, step);
                        x.fillRandom(g, r.lo, r.hi);
                        (vec ? fv : fs)(x.base(), step, lo.base(), step, hi.base(), step, w, h, phase);
                        std::vector<uint8_t> snap;
                        lo.snapshot(snap);
                        hi.snapshot(snap);
                        return snap;
                    });
                    ca::runTwins("inv col " + ctx, w * 7 + h, [&](bool vec, uint32_t seed) {
                        std::mt19937 g(seed);
                        Area<T> l(ex.llo, ex.lhi, w, place, off, step), hh(ex.hlo, ex.hhi, w, place, off, step),
                            x(0, 2 * h - 1, w, place, off, step);
                        l.fillRandom(g, r.lo, r.hi);
                        hh.fillRandom(g, r.lo, r.hi);
                        (vec ? iv : is)(l.base(), step, hh.base(), step, x.base(), step, w, h, phase);
                        std::vector<uint8_t> snap;
                        x.snapshot(snap);
                        return snap;
                    });
                }
}

TEST(Wavelet53Twins, Columns16s) { colTwins<int16_t>(j2k::fwdCol53_16s, j2k::fwdCol53_16s_c, j2k::invCol53_16s, j2k::invCol53_16s_c); }
TEST(Wavelet53Twins, Columns32s) { colTwins<int32_t>(j2k::fwdCol53_32s, j2k::fwdCol53_32s_c, j2k::invCol53_32s, j2k::invCol53_32s_c); }

template <class T>
using Lift = void (*)(const T*, const T*, const T*, const T*, T*, T*, int32_t);

// Both lifting steps have four input rows and two output rows; the forward
// step's argument order is mapped onto that shape.
template <class T>
void liftTwins(Lift<T> fv, Lift<T> fs, Lift<T> iv, Lift<T> is) {
    for (int w = 1; w <= 70; ++w)
        for (auto [place, off] : ca::placements<T>())
            for (int which = 0; which < 2; ++which) {
                const std::string ctx = std::string(which ? "inv" : "fwd") + " lift w=" + std::to_string(w) + " " +
                                        ca::placeName(place) + "+" + std::to_string(off);
                ca::runTwins(ctx, w, [&](bool vec, uint32_t seed) {
                    std::mt19937 g(seed);
                    Area<T> a(0, 0, w, place, off), b(0, 0, w, place, off), c(0, 0, w, place, off),
                        d(0, 0, w, place, off), o1(0, 0, w, place, off), o2(0, 0, w, place, off);
                    for (Area<T>* p : {&a, &b, &c, &d}) p->fillRandom(g, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
                    Lift<T> f = which ? (vec ? iv : is) : (vec ? fv : fs);
                    f(a.base(), b.base(), c.base(), d.base(), o1.base(), o2.base(), w);
                    std::vector<uint8_t> snap;
                    o1.snapshot(snap);
                    o2.snapshot(snap);
                    return snap;
                });
            }
}

// Adapters giving the forward step the (in, in, in, in, out, out) shape.
template <class T, void (*F)(const T*, const T*, const T*, T*, const T*, T*, int32_t)>
void fwdShape(const T* s0, const T* s1, const T* s2, const T* hp, T* lo, T* hi, int32_t w) { F(s0, s1, s2, lo, hp, hi, w); }

TEST(Wavelet53Twins, LiftingSteps) {
    liftTwins<int16_t>(fwdShape<int16_t, j2k::fwdLift53_16s>, fwdShape<int16_t, j2k::fwdLift53_16s_c>,
                       j2k::invLift53_16s, j2k::invLift53_16s_c);
    liftTwins<int32_t>(fwdShape<int32_t, j2k::fwdLift53_32s>, fwdShape<int32_t, j2k::fwdLift53_32s_c>,
                       j2k::invLift53_32s, j2k::invLift53_32s_c);
}

// ------------------------------------------------------------ overlapping outputs
// A high-pass output that overlaps the input rows, shifted by one sample, so
// that writing it changes samples still to be read: the exported column
// forms must give the scalar form's result, which differs from what the
// vector kernel would give.

TEST(Wavelet53Columns, OverlappingHighPassTakesTheScalarPath) {
    const int w = 48, h = 4, phase = 0;
    const int step = w * 2 + 16;
    const int rows = 2 * h + 5;
    auto run = [&](int how) {  // 0 exported, 1 scalar twin, 2 vector kernel
        std::mt19937 g(77);
        std::vector<int16_t> buf(static_cast<size_t>(rows) * step / 2 + 64);
        std::uniform_int_distribution<int> d(-4000, 4000);
        for (auto& v : buf) v = static_cast<int16_t>(d(g));
        int16_t* x = buf.data() + 2 * step / 2;  // row 0, with rows -2 and -1 above
        std::vector<int16_t> low(static_cast<size_t>(w) * h);
        int16_t* hi = zeb::j2k::atRow(x, step, 2) + 1;  // high row i over input row 2i+2, one sample on
        if (how == 0)
            EXPECT_EQ(zebiWTFwdCol_B53_JPEG2K_16s_C1R(x, step, low.data(), 2 * w, hi, 2 * step, ZebSize{w, h}, phase), 0);
        else if (how == 1)
            j2k::fwdCol53_16s_c(x, step, low.data(), 2 * w, hi, 2 * step, w, h, phase);
        else
            j2k::fwdCol53_16s(x, step, low.data(), 2 * w, hi, 2 * step, w, h, phase);
        buf.insert(buf.end(), low.begin(), low.end());
        return buf;
    };
    const auto exported = run(0), scalar = run(1), vector = run(2);
    EXPECT_EQ(exported, scalar);
    EXPECT_NE(vector, scalar) << "the case does not tell the two paths apart";

    // Inverse: the output overlaps the high-pass input rows, one sample on.
    auto runInv = [&](int how) {
        std::mt19937 g(78);
        const int xs = w * 4 + 16;  // output step; the high-pass rows are two output rows apart
        std::vector<int32_t> buf(static_cast<size_t>(xs) * (2 * h + 6) / 4);
        std::uniform_int_distribution<int> d(-4000, 4000);
        for (auto& v : buf) v = d(g);
        std::vector<int32_t> low(static_cast<size_t>(w) * (h + 2));
        for (auto& v : low) v = d(g);
        int32_t* hi = buf.data() + 2 * xs / 4;  // rows -1..h
        int32_t* x = hi + 1;                    // output row 2k over high-pass row k, one sample on
        if (how == 0)
            EXPECT_EQ(zebiWTInvCol_B53_JPEG2K_32s_C1R(low.data() + w, 4 * w, hi, 2 * xs, ZebSize{w, h}, x, xs, 1), 0);
        else if (how == 1)
            j2k::invCol53_32s_c(low.data() + w, 4 * w, hi, 2 * xs, x, xs, w, h, 1);
        else
            j2k::invCol53_32s(low.data() + w, 4 * w, hi, 2 * xs, x, xs, w, h, 1);
        return buf;
    };
    const auto ie = runInv(0), is = runInv(1), iv = runInv(2);
    EXPECT_EQ(ie, is);
    EXPECT_NE(iv, is) << "the case does not tell the two paths apart";
}

// ------------------------------------------------------------ round trips
// One level of the 2-D transform built from the column and row operations,
// with the whole-sample symmetric extension made here, then undone.

int mirror(int k, int n) {
    if (n == 1) return 0;
    const int period = 2 * (n - 1);
    k %= period;
    if (k < 0) k += period;
    return k < n ? k : period - k;
}

// A plane with `pad` spare rows and columns on each side.
template <class T>
struct Plane {
    int w, h, pad, stride;
    std::vector<T> v;
    Plane(int w_, int h_, int pad_) : w(w_), h(h_), pad(pad_), stride(w_ + 2 * pad_), v(size_t(stride) * (h_ + 2 * pad_)) {}
    T* at(int y, int x) { return v.data() + size_t(y + pad) * stride + (x + pad); }
    int step() const { return stride * int(sizeof(T)); }
};

// Band extension: the value at x index k of a band of a signal of length n
// is that at mirror(k); band index i sits at x index 2i + parity.
inline int bandIndex(int i, int parity, int n) { return (mirror(2 * i + parity, n) - parity) / 2; }

template <class T>
void roundTrip(int W, int Hh, int px, int py, std::mt19937& g) {
    const int bw = (W + 1) / 2, bh = (Hh + 1) / 2;  // band sizes passed to the operations
    Plane<T> x(2 * bw, 2 * bh, 3);
    const Range<T> r = dataRange<T>();
    std::uniform_int_distribution<int64_t> d(sizeof(T) == 2 ? -4000 : -(int64_t{1} << 29), sizeof(T) == 2 ? 4000 : (int64_t{1} << 29));
    std::vector<T> orig(size_t(W) * Hh);
    for (auto& v : orig) v = static_cast<T>(d(g));
    (void)r;
    // Columns: extend vertically, split into L (rows) and H (rows).
    for (int y = -2; y < 2 * bh + 2; ++y)
        for (int c = 0; c < W; ++c) *x.at(y, c) = orig[size_t(mirror(y, Hh)) * W + c];
    Plane<T> lo(W, bh, 3), hi(W, bh, 3);
    ASSERT_EQ(Ops<T>::fwdCol(x.at(0, 0), x.step(), lo.at(0, 0), lo.step(), hi.at(0, 0), hi.step(),
                                          ZebSize{W, bh}, py), 0);
    // Rows of both vertical bands: extend horizontally, split.
    Plane<T>* vb[2] = {&lo, &hi};
    Plane<T> band[2][2] = {{Plane<T>(bw, bh, 3), Plane<T>(bw, bh, 3)}, {Plane<T>(bw, bh, 3), Plane<T>(bw, bh, 3)}};
    for (int v = 0; v < 2; ++v) {
        Plane<T> ext(2 * bw, bh, 3);
        for (int y = 0; y < bh; ++y)
            for (int k = -2; k < 2 * bw + 2; ++k) *ext.at(y, k) = *vb[v]->at(y, mirror(k, W));
        ASSERT_EQ(Ops<T>::fwdRow(ext.at(0, 0), ext.step(), band[v][0].at(0, 0), band[v][0].step(),
                                              band[v][1].at(0, 0), band[v][1].step(), ZebSize{bw, bh}, px), 0);
    }
    // Inverse rows: extend each band horizontally from its meaningful part.
    Plane<T> back[2] = {Plane<T>(2 * bw, bh + 2, 3), Plane<T>(2 * bw, bh + 2, 3)};
    for (int v = 0; v < 2; ++v) {
        Plane<T> le(bw, bh, 3), he(bw, bh, 3);
        for (int y = 0; y < bh; ++y)
            for (int i = -2; i < bw + 2; ++i) {
                *le.at(y, i) = *band[v][0].at(y, bandIndex(i, px, W));
                *he.at(y, i) = *band[v][1].at(y, bandIndex(i, 1 - px, W));
            }
        ASSERT_EQ(Ops<T>::invRow(le.at(0, 0), le.step(), he.at(0, 0), he.step(), ZebSize{bw, bh},
                                              back[v].at(0, 0), back[v].step(), px), 0);
        for (int y = 0; y < bh; ++y)
            for (int c = 0; c < W; ++c) ASSERT_EQ(*back[v].at(y, c), *vb[v]->at(y, c)) << "row band " << v;
    }
    // Inverse columns: extend the vertical bands from their meaningful rows.
    Plane<T> le(W, bh, 3), he(W, bh, 3), out(W, 2 * bh, 3);
    for (int i = -2; i < bh + 2; ++i)
        for (int c = 0; c < W; ++c) {
            *le.at(i, c) = *back[0].at(bandIndex(i, py, Hh), c);
            *he.at(i, c) = *back[1].at(bandIndex(i, 1 - py, Hh), c);
        }
    ASSERT_EQ(Ops<T>::invCol(le.at(0, 0), le.step(), he.at(0, 0), he.step(), ZebSize{W, bh},
                                          out.at(0, 0), out.step(), py), 0);
    for (int y = 0; y < Hh; ++y)
        for (int c = 0; c < W; ++c) ASSERT_EQ(*out.at(y, c), orig[size_t(y) * W + c]) << "y=" << y << " x=" << c;
}

TEST(Wavelet53RoundTrip, EveryWidthHeightAndPhase) {
    std::mt19937 g(2024);
    for (int phase : {0, 1})
        for (int H = 1; H <= 70; ++H)
            for (int W = 1; W <= 70; ++W) {
                SCOPED_TRACE(testing::Message() << "W=" << W << " H=" << H << " phase=" << phase);
                if ((W + H) % 2 == 0) roundTrip<int16_t>(W, H, phase, phase, g);
                else roundTrip<int32_t>(W, H, phase, phase, g);
                if (HasFatalFailure()) return;
            }
    // Different phases across and down.
    for (int H = 1; H <= 20; ++H)
        for (int W = 1; W <= 20; ++W) {
            SCOPED_TRACE(testing::Message() << "W=" << W << " H=" << H << " mixed phases");
            roundTrip<int16_t>(W, H, 1, 0, g);
            roundTrip<int32_t>(W, H, 0, 1, g);
            if (HasFatalFailure()) return;
        }
}

// ------------------------------------------------------------ independent check
// The low band of one level, built from these operations, against the
// reduced-resolution image that an independent decoder reconstructs from a
// lossless codestream with one decomposition level.

using zebtest::opj::haveTool;
using zebtest::opj::readPgm;

TEST(Wavelet53Interop, LowBandMatchesIndependentDecoder) {
    if (!haveTool("opj_compress") || !haveTool("opj_decompress")) GTEST_SKIP() << "OpenJPEG tools not installed";
    struct Case { int W, H, ox, oy; };
    const std::string dir = std::string(ZEB_BINARY_DIR) + "/";
    std::mt19937 g(5);
    for (Case c : {Case{64, 48, 0, 0}, Case{37, 29, 0, 0}, Case{38, 27, 1, 1}, Case{33, 40, 1, 0}}) {
        SCOPED_TRACE(testing::Message() << c.W << "x" << c.H << " origin " << c.ox << "," << c.oy);
        const std::string tag = dir + "w53_" + std::to_string(c.W) + "_" + std::to_string(c.ox) + std::to_string(c.oy);
        std::vector<int> img(size_t(c.W) * c.H);
        std::uniform_int_distribution<int> d(80, 176);  // keeps the low band inside 0..255
        for (auto& v : img) v = d(g);
        {
            std::ofstream f(tag + ".pgm", std::ios::binary);
            f << "P5\n" << c.W << " " << c.H << "\n255\n";
            for (int v : img) f.put(static_cast<char>(v));
        }
        const std::string enc = "opj_compress -i " + tag + ".pgm -o " + tag + ".j2k -n 2 -d " +
                                std::to_string(c.ox) + "," + std::to_string(c.oy) + " > /dev/null 2>&1";
        const std::string dec = "opj_decompress -i " + tag + ".j2k -o " + tag + "_ll.pgm -r 1 > /dev/null 2>&1";
        ASSERT_EQ(std::system(enc.c_str()), 0) << enc;
        ASSERT_EQ(std::system(dec.c_str()), 0) << dec;
        int lw = 0, lh = 0;
        const std::vector<int> ll = readPgm(tag + "_ll.pgm", lw, lh);

        // Our LL band of the level-shifted image, from the column then row operations.
        const int px = c.ox & 1, py = c.oy & 1;
        const int nLx = (c.W + 1 - px) >> 1, nLy = (c.H + 1 - py) >> 1;
        ASSERT_EQ(lw, nLx);
        ASSERT_EQ(lh, nLy);
        const int bw = (c.W + 1) / 2, bh = (c.H + 1) / 2;
        Plane<int32_t> x(c.W, 2 * bh, 3), lo(c.W, bh, 3), hi(c.W, bh, 3);
        for (int y = -2; y < 2 * bh + 2; ++y)
            for (int k = 0; k < c.W; ++k) *x.at(y, k) = img[size_t(mirror(y, c.H)) * c.W + k] - 128;
        ASSERT_EQ(zebiWTFwdCol_B53_JPEG2K_32s_C1R(x.at(0, 0), x.step(), lo.at(0, 0), lo.step(), hi.at(0, 0), hi.step(),
                                                  ZebSize{c.W, bh}, py), 0);
        Plane<int32_t> ext(2 * bw, bh, 3), LL(bw, bh, 3), LH(bw, bh, 3);
        for (int y = 0; y < bh; ++y)
            for (int k = -2; k < 2 * bw + 2; ++k) *ext.at(y, k) = *lo.at(y, mirror(k, c.W));
        ASSERT_EQ(zebiWTFwdRow_B53_JPEG2K_32s_C1R(ext.at(0, 0), ext.step(), LL.at(0, 0), LL.step(), LH.at(0, 0),
                                                  LH.step(), ZebSize{bw, bh}, px), 0);
        for (int y = 0; y < nLy; ++y)
            for (int k = 0; k < nLx; ++k)
                ASSERT_EQ(*LL.at(y, k) + 128, ll[size_t(y) * lw + k]) << "y=" << y << " x=" << k;
        for (const char* s : {".pgm", ".j2k", "_ll.pgm"}) std::remove((tag + s).c_str());
    }
}

}  // namespace
