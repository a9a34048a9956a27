// Component transforms: argument checks, worked numbers, the fixed-point and
// float forms, vector kernels against their scalar twins at every alignment,
// exact extents, in-place forms and round trips.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "jpeg2000/transform/checkasm.h"
#include "frame/arith.h"
#include "jpeg2000/transform/component.h"
#include "support/test_util.h"
#include "zebjp.h"

namespace {

using zebtest::checkasm::Area;
using zebtest::checkasm::Place;
namespace ca = zebtest::checkasm;
namespace j2k = zeb::j2k;

// ------------------------------------------------------------ argument checks
// Each row calls one export with the pointers p (interleaved operand, then
// the array and its three elements, or the array alone for in-place forms),
// steps s and a size.

struct Call {
    const char* name;
    std::function<ZebStatus(void* one, void** arr, int s0, int s1, ZebSize)> fn;
    bool inPlace;
};

template <class T>
T** asArr(void** a) { return reinterpret_cast<T**>(a); }

const std::vector<Call>& calls() {
    static const std::vector<Call> v = {
        {"RCTFwd16s_C3P3R", [](void* o, void** a, int s0, int s1, ZebSize r) { return zebiRCTFwd_JPEG2K_16s_C3P3R(static_cast<Zeb16s*>(o), s0, asArr<Zeb16s>(a), s1, r); }, false},
        {"RCTFwd32s_C3P3R", [](void* o, void** a, int s0, int s1, ZebSize r) { return zebiRCTFwd_JPEG2K_32s_C3P3R(static_cast<Zeb32s*>(o), s0, asArr<Zeb32s>(a), s1, r); }, false},
        {"ICTFwd32f_C3P3R", [](void* o, void** a, int s0, int s1, ZebSize r) { return zebiICTFwd_JPEG2K_32f_C3P3R(static_cast<Zeb32f*>(o), s0, asArr<Zeb32f>(a), s1, r); }, false},
        {"RCTInv16s_P3C3R", [](void* o, void** a, int s0, int s1, ZebSize r) { return zebiRCTInv_JPEG2K_16s_P3C3R(asArr<Zeb16s>(a), s1, static_cast<Zeb16s*>(o), s0, r); }, false},
        {"RCTInv32s_P3C3R", [](void* o, void** a, int s0, int s1, ZebSize r) { return zebiRCTInv_JPEG2K_32s_P3C3R(asArr<Zeb32s>(a), s1, static_cast<Zeb32s*>(o), s0, r); }, false},
        {"ICTInv32f_P3C3R", [](void* o, void** a, int s0, int s1, ZebSize r) { return zebiICTInv_JPEG2K_32f_P3C3R(asArr<Zeb32f>(a), s1, static_cast<Zeb32f*>(o), s0, r); }, false},
        {"RCTFwd16s_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiRCTFwd_JPEG2K_16s_P3IR(asArr<Zeb16s>(a), s, r); }, true},
        {"RCTFwd32s_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiRCTFwd_JPEG2K_32s_P3IR(asArr<Zeb32s>(a), s, r); }, true},
        {"RCTInv16s_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiRCTInv_JPEG2K_16s_P3IR(asArr<Zeb16s>(a), s, r); }, true},
        {"RCTInv32s_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiRCTInv_JPEG2K_32s_P3IR(asArr<Zeb32s>(a), s, r); }, true},
        {"ICTFwd16s_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiICTFwd_JPEG2K_16s_P3IR(asArr<Zeb16s>(a), s, r); }, true},
        {"ICTFwd32s_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiICTFwd_JPEG2K_32s_P3IR(asArr<Zeb32s>(a), s, r); }, true},
        {"ICTFwd32f_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiICTFwd_JPEG2K_32f_P3IR(asArr<Zeb32f>(a), s, r); }, true},
        {"ICTInv16s_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiICTInv_JPEG2K_16s_P3IR(asArr<Zeb16s>(a), s, r); }, true},
        {"ICTInv32s_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiICTInv_JPEG2K_32s_P3IR(asArr<Zeb32s>(a), s, r); }, true},
        {"ICTInv32f_P3IR", [](void*, void** a, int, int s, ZebSize r) { return zebiICTInv_JPEG2K_32f_P3IR(asArr<Zeb32f>(a), s, r); }, true},
    };
    return v;
}

TEST(ComponentChecks, PointersThenStepsThenSizeForEveryExport) {
    ASSERT_EQ(calls().size(), 16u);
    alignas(16) uint8_t mem[4][64] = {};
    const ZebSize bad{0, 0}, ok{1, 1};
    for (const Call& c : calls()) {
        SCOPED_TRACE(c.name);
        void* arr[3] = {mem[1], mem[2], mem[3]};
        // Any null pointer, the array and each element included, wins over
        // bad steps and sizes.
        if (!c.inPlace) EXPECT_EQ(c.fn(nullptr, arr, 0, 0, bad), zebStatusNullPointer);
        EXPECT_EQ(c.fn(mem[0], nullptr, 0, 0, bad), zebStatusNullPointer);
        for (int k = 0; k < 3; ++k) {
            void* a[3] = {mem[1], mem[2], mem[3]};
            a[k] = nullptr;
            EXPECT_EQ(c.fn(mem[0], a, 0, 0, bad), zebStatusNullPointer) << k;
        }
        // Then steps, whichever operand's, over sizes.
        EXPECT_EQ(c.fn(mem[0], arr, 16, 0, bad), zebStatusBadStep);
        EXPECT_EQ(c.fn(mem[0], arr, 16, -3, bad), zebStatusBadStep);
        if (!c.inPlace) EXPECT_EQ(c.fn(mem[0], arr, 0, 16, bad), zebStatusBadStep);
        EXPECT_EQ(c.fn(mem[0], arr, 16, 16, ZebSize{0, 1}), zebStatusBadSize);
        EXPECT_EQ(c.fn(mem[0], arr, 16, 16, ZebSize{1, 0}), zebStatusBadSize);
        EXPECT_EQ(c.fn(mem[0], arr, 16, 16, ZebSize{1, -7}), zebStatusBadSize);
        EXPECT_EQ(c.fn(mem[0], arr, 16, 16, ok), zebStatusOk);
    }
}

TEST(ComponentChecks, FailedCheckWritesNothing) {
    for (const Call& c : calls()) {
        zebtest::GuardedBuffer b0(256), b1(256), b2(256), b3(256);
        void* arr[3] = {b1.data(), b2.data(), b3.data()};
        EXPECT_EQ(c.fn(b0.data(), arr, 48, 0, ZebSize{4, 2}), zebStatusBadStep) << c.name;
        EXPECT_EQ(c.fn(b0.data(), arr, 48, 48, ZebSize{4, 0}), zebStatusBadSize) << c.name;
        EXPECT_TRUE(b0.untouched() && b1.untouched() && b2.untouched() && b3.untouched()) << c.name;
    }
}

// ------------------------------------------------------------ worked numbers

// Runs a forward 16-bit RCT from interleaved pixels, `n` copies of one
// triple, so that both the vector blocks and the single pixels see it.
std::vector<int16_t> rct16(int16_t a, int16_t b, int16_t c, int n) {
    std::vector<int16_t> src(3 * n), out(3 * n);
    for (int i = 0; i < n; ++i) { src[3 * i] = a; src[3 * i + 1] = b; src[3 * i + 2] = c; }
    Zeb16s* dst[3] = {out.data(), out.data() + n, out.data() + 2 * n};
    EXPECT_EQ(zebiRCTFwd_JPEG2K_16s_C3P3R(src.data(), 6 * n, dst, 2 * n, ZebSize{n, 1}), 0);
    return out;
}

TEST(ComponentValues, ReversibleExtremes) {
    for (int n : {1, 16, 21, 37}) {
        auto y = rct16(32767, 32767, 32767, n);
        for (int i = 0; i < n; ++i) ASSERT_TRUE(y[i] == 32767 && y[n + i] == 0 && y[2 * n + i] == 0) << n;
        // The sum stays right in 32 bits; the differences wrap to -1.
        y = rct16(32767, -32768, 32767, n);
        for (int i = 0; i < n; ++i) ASSERT_TRUE(y[i] == -1 && y[n + i] == -1 && y[2 * n + i] == -1) << n;
    }
}

TEST(ComponentValues, IrreversibleGreyIsItsOwnLuminance) {
    // Every 16-bit value as a grey pixel: Y0 = x, both differences 0.
    const int n = 65536;
    std::vector<int16_t> p[3];
    for (auto& v : p) { v.resize(n); for (int i = 0; i < n; ++i) v[i] = static_cast<int16_t>(i - 32768); }
    Zeb16s* pl[3] = {p[0].data(), p[1].data(), p[2].data()};
    ASSERT_EQ(zebiICTFwd_JPEG2K_16s_P3IR(pl, 2 * n, ZebSize{n, 1}), 0);
    for (int i = 0; i < n; ++i) ASSERT_TRUE(p[0][i] == i - 32768 && p[1][i] == 0 && p[2][i] == 0) << i - 32768;
    // The same through the single-pixel path (planes not aligned alike).
    for (int x : {-32768, -1, 0, 1, 12345, 32767}) {
        int16_t a[2] = {int16_t(x), 0}, b[3] = {0, int16_t(x), 0}, c[1] = {int16_t(x)};
        Zeb16s* q[3] = {a, b + 1, c};
        ASSERT_EQ(zebiICTFwd_JPEG2K_16s_P3IR(q, 64, ZebSize{1, 1}), 0);
        EXPECT_TRUE(a[0] == x && b[1] == 0 && c[0] == 0) << x;
    }
}

TEST(ComponentValues, FixedPointForms) {
    // (100, 50, 25): 32s forward gives 62, -21, 27 straight from its formulas;
    // 16s goes through the differences -37 and 38 and gives 62, -21, 27 too.
    int32_t a = 100, b = 50, c = 25;
    Zeb32s* p[3] = {&a, &b, &c};
    ASSERT_EQ(zebiICTFwd_JPEG2K_32s_P3IR(p, 4, ZebSize{1, 1}), 0);
    EXPECT_EQ(a, 62);
    EXPECT_EQ(b, -21);
    EXPECT_EQ(c, 27);
    int16_t a16 = 100, b16 = 50, c16 = 25;
    Zeb16s* q[3] = {&a16, &b16, &c16};
    ASSERT_EQ(zebiICTFwd_JPEG2K_16s_P3IR(q, 2, ZebSize{1, 1}), 0);
    EXPECT_EQ(a16, 62);
    EXPECT_EQ(b16, -21);
    EXPECT_EQ(c16, 27);

    // The 32s form wraps its products: 2^30 * 4899 keeps its low 32 bits.
    a = 1 << 30; b = 0; c = 0;
    ASSERT_EQ(zebiICTFwd_JPEG2K_32s_P3IR(p, 4, ZebSize{1, 1}), 0);
    EXPECT_EQ(a, zeb::wrap32((int64_t{1} << 30) * 4899 + 8192) >> 14);
    // The 16s differences keep their low 16 bits before scaling: with
    // (-32768, -32768, 32767) D1 = 58063 becomes -7473, so Y1 = -4217.
    a16 = -32768; b16 = -32768; c16 = 32767;
    ASSERT_EQ(zebiICTFwd_JPEG2K_16s_P3IR(q, 2, ZebSize{1, 1}), 0);
    EXPECT_EQ(b16, -4217);
    // The 16s inverse saturates where the 32s one runs past 16 bits.
    a16 = 32767; b16 = 0; c16 = 32767;
    ASSERT_EQ(zebiICTInv_JPEG2K_16s_P3IR(q, 2, ZebSize{1, 1}), 0);
    EXPECT_EQ(a16, 32767);
    EXPECT_EQ(b16, 32767 - ((32767 * 11700 + 8192) >> 14));
    EXPECT_EQ(c16, 32767);
    a16 = -32768; b16 = -32768; c16 = -32768;
    ASSERT_EQ(zebiICTInv_JPEG2K_16s_P3IR(q, 2, ZebSize{1, 1}), 0);
    EXPECT_EQ(a16, -32768);
    EXPECT_EQ(b16, 1908);  // -32768 - (-34676)
    EXPECT_EQ(c16, -32768);
    a16 = 32767; b16 = -32768; c16 = -32768;
    ASSERT_EQ(zebiICTInv_JPEG2K_16s_P3IR(q, 2, ZebSize{1, 1}), 0);
    EXPECT_EQ(a16, -13173);
    EXPECT_EQ(b16, 32767);  // 32767 + 34676, saturated
    EXPECT_EQ(c16, -25297);
}

TEST(ComponentValues, InverseGreenRoundsDifferentlyOnATie) {
    // Where Y1 * 5638 + Y2 * 11700 + 8192 is a multiple of 16384 the 16s form
    // (rounds the positive sum, subtracts) gives one less than the 32s form
    // (rounds the negated sum, adds).
    int found = 0;
    for (int y1 = -200; y1 <= 200 && found < 20; ++y1)
        for (int y2 = -200; y2 <= 200 && found < 20; ++y2) {
            if (((y1 * 5638 + y2 * 11700 + 8192) & 16383) != 0) continue;
            ++found;
            int16_t s[3] = {1000, int16_t(y1), int16_t(y2)};
            int32_t l[3] = {1000, y1, y2};
            Zeb16s* ps[3] = {s, s + 1, s + 2};
            Zeb32s* pl[3] = {l, l + 1, l + 2};
            ASSERT_EQ(zebiICTInv_JPEG2K_16s_P3IR(ps, 8, ZebSize{1, 1}), 0);
            ASSERT_EQ(zebiICTInv_JPEG2K_32s_P3IR(pl, 12, ZebSize{1, 1}), 0);
            EXPECT_EQ(s[1] + 1, l[1]) << y1 << " " << y2;
        }
    EXPECT_GT(found, 0);
}

// Single precision, each product rounded before its addition: a fused
// multiply-add would differ in the last place for some of these inputs.
TEST(ComponentValues, FloatFormsRoundEveryProduct) {
    std::mt19937 g(9);
    std::uniform_real_distribution<float> d(-300.0f, 300.0f);
    const int n = 203;
    std::vector<float> src(3 * n), out(3 * n), back(3 * n);
    for (auto& v : src) v = d(g);
    Zeb32f* dst[3] = {out.data(), out.data() + n, out.data() + 2 * n};
    ASSERT_EQ(zebiICTFwd_JPEG2K_32f_C3P3R(src.data(), 12 * n, dst, 4 * n, ZebSize{n, 1}), 0);
    const Zeb32f* cdst[3] = {dst[0], dst[1], dst[2]};
    ASSERT_EQ(zebiICTInv_JPEG2K_32f_P3C3R(cdst, 4 * n, back.data(), 12 * n, ZebSize{n, 1}), 0);
    int fusedDiffers = 0;
    for (int i = 0; i < n; ++i) {
        volatile float r = src[3 * i], gg = src[3 * i + 1], b = src[3 * i + 2];
        volatile float p0 = r * 0.299f, p1 = gg * 0.587f, p2 = b * 0.114f;
        volatile float s01 = p0 + p1;
        const float y0 = s01 + p2;
        ASSERT_EQ(zeb::bits(out[i]), zeb::bits(y0)) << i;
        fusedDiffers += zeb::bits(std::fma(b, 0.114f, std::fma(gg, 0.587f, r * 0.299f))) != zeb::bits(y0);
        volatile float q0 = out[2 * n + i] * 1.402f;
        const float rr = q0 + out[i];
        ASSERT_EQ(zeb::bits(back[3 * i]), zeb::bits(rr)) << i;
        EXPECT_NEAR(back[3 * i + 1], src[3 * i + 1], 0.05f);
    }
    EXPECT_GT(fusedDiffers, 0) << "inputs do not tell fused from rounded products apart";
}

// ------------------------------------------------------------ vector against scalar twin
// Every row kernel against its scalar twin, for widths around the vector
// block, at page-exact and heap placements, with each plane at its own
// offset so that planes aligned alike and not alike both occur.

template <class T>
void fillPlane(Area<T>& a, std::mt19937& g) {
    if constexpr (std::is_floating_point_v<T>) {
        std::uniform_real_distribution<float> d(-2000.0f, 2000.0f);
        a.fill([&](int, int) { return d(g); });
    } else {
        a.fillRandom(g, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    }
}

template <class T>
using P3 = void (*)(const T*, const T*, const T*, T*, T*, T*, int32_t);
template <class T>
using C3P3 = void (*)(const T*, T*, T*, T*, int32_t);
template <class T>
using P3C3 = void (*)(const T*, const T*, const T*, T*, int32_t);

std::vector<int> twinWidths() {
    std::vector<int> v;
    for (int w = 1; w <= 70; ++w) v.push_back(w);
    for (int w : {127, 128, 129, 255}) v.push_back(w);
    return v;
}

// Plane offsets: alike at 0, alike at an odd element, and three different ones.
template <class T>
std::vector<std::array<int, 3>> planeOffsets() {
    const int e = sizeof(T);
    return {{0, 0, 0}, {e, e, e}, {0, e, 2 * e}, {6 * e, 0, 16}, {2 * e, 2 * e, 10 * e}};
}

template <class T>
void planarTwins(const char* name, P3<T> vec, P3<T> ref) {
    for (int w : twinWidths())
        for (Place place : {Place::Head, Place::Tail, Place::Heap})
            for (auto off : planeOffsets<T>())
                for (bool inPlace : {false, true}) {
                    const std::string ctx = std::string(name) + " w=" + std::to_string(w) + " " + ca::placeName(place) +
                                            " " + std::to_string(off[0]) + "/" + std::to_string(off[1]) + "/" +
                                            std::to_string(off[2]) + (inPlace ? " in place" : "");
                    ca::runTwins(ctx, w * 3 + inPlace, [&](bool v, uint32_t seed) {
                        std::mt19937 g(seed);
                        Area<T> s0(0, 0, w, place, off[0]), s1(0, 0, w, place, off[1]), s2(0, 0, w, place, off[2]),
                            d0(0, 0, w, place, off[0]), d1(0, 0, w, place, off[1]), d2(0, 0, w, place, off[2]);
                        fillPlane(s0, g); fillPlane(s1, g); fillPlane(s2, g);
                        std::vector<uint8_t> snap;
                        if (inPlace) {
                            (v ? vec : ref)(s0.base(), s1.base(), s2.base(), s0.base(), s1.base(), s2.base(), w);
                            s0.snapshot(snap); s1.snapshot(snap); s2.snapshot(snap);
                        } else {
                            (v ? vec : ref)(s0.base(), s1.base(), s2.base(), d0.base(), d1.base(), d2.base(), w);
                            d0.snapshot(snap); d1.snapshot(snap); d2.snapshot(snap);
                        }
                        return snap;
                    });
                }
}

template <class T>
void interleavedTwins(const char* name, C3P3<T> fv, C3P3<T> fs, P3C3<T> iv, P3C3<T> is) {
    for (int w : twinWidths())
        for (Place place : {Place::Head, Place::Tail, Place::Heap})
            for (auto off : planeOffsets<T>()) {
                const std::string ctx = std::string(name) + " w=" + std::to_string(w) + " " + ca::placeName(place) +
                                        " " + std::to_string(off[0]) + "/" + std::to_string(off[1]) + "/" +
                                        std::to_string(off[2]);
                ca::runTwins(ctx + " C3P3", w, [&](bool v, uint32_t seed) {
                    std::mt19937 g(seed);
                    Area<T> src(0, 0, 3 * w, place, off[2]), d0(0, 0, w, place, off[0]), d1(0, 0, w, place, off[1]),
                        d2(0, 0, w, place, off[2]);
                    fillPlane(src, g);
                    (v ? fv : fs)(src.base(), d0.base(), d1.base(), d2.base(), w);
                    std::vector<uint8_t> snap;
                    d0.snapshot(snap); d1.snapshot(snap); d2.snapshot(snap);
                    return snap;
                });
                ca::runTwins(ctx + " P3C3", w, [&](bool v, uint32_t seed) {
                    std::mt19937 g(seed);
                    Area<T> s0(0, 0, w, place, off[0]), s1(0, 0, w, place, off[1]), s2(0, 0, w, place, off[2]),
                        dst(0, 0, 3 * w, place, off[1]);
                    fillPlane(s0, g); fillPlane(s1, g); fillPlane(s2, g);
                    (v ? iv : is)(s0.base(), s1.base(), s2.base(), dst.base(), w);
                    std::vector<uint8_t> snap;
                    dst.snapshot(snap);
                    return snap;
                });
            }
}

TEST(ComponentTwins, Planar16s) {
    planarTwins<int16_t>("rctFwd16s", j2k::rctFwd16s_P3P3, j2k::rctFwd16s_P3P3_c);
    planarTwins<int16_t>("rctInv16s", j2k::rctInv16s_P3P3, j2k::rctInv16s_P3P3_c);
    planarTwins<int16_t>("ictFwd16s", j2k::ictFwd16s_P3P3, j2k::ictFwd16s_P3P3_c);
    planarTwins<int16_t>("ictInv16s", j2k::ictInv16s_P3P3, j2k::ictInv16s_P3P3_c);
}

TEST(ComponentTwins, Planar32sAnd32f) {
    planarTwins<int32_t>("rctFwd32s", j2k::rctFwd32s_P3P3, j2k::rctFwd32s_P3P3_c);
    planarTwins<int32_t>("rctInv32s", j2k::rctInv32s_P3P3, j2k::rctInv32s_P3P3_c);
    planarTwins<int32_t>("ictFwd32s", j2k::ictFwd32s_P3P3, j2k::ictFwd32s_P3P3_c);
    planarTwins<int32_t>("ictInv32s", j2k::ictInv32s_P3P3, j2k::ictInv32s_P3P3_c);
    planarTwins<float>("ictFwd32f", j2k::ictFwd32f_P3P3, j2k::ictFwd32f_P3P3_c);
    planarTwins<float>("ictInv32f", j2k::ictInv32f_P3P3, j2k::ictInv32f_P3P3_c);
}

TEST(ComponentTwins, Interleaved) {
    interleavedTwins<int16_t>("rct16s", j2k::rctFwd16s_C3P3, j2k::rctFwd16s_C3P3_c, j2k::rctInv16s_P3C3,
                              j2k::rctInv16s_P3C3_c);
    interleavedTwins<int32_t>("rct32s", j2k::rctFwd32s_C3P3, j2k::rctFwd32s_C3P3_c, j2k::rctInv32s_P3C3,
                              j2k::rctInv32s_P3C3_c);
    interleavedTwins<float>("ict32f", j2k::ictFwd32f_C3P3, j2k::ictFwd32f_C3P3_c, j2k::ictInv32f_P3C3,
                            j2k::ictInv32f_P3C3_c);
}

// The 16-bit scalar form against a per-formula statement, on every input
// class that matters: this pins the arithmetic that both paths share.
TEST(ComponentTwins, SixteenBitScalarFormsFollowTheFormulas) {
    std::mt19937 g(11);
    std::uniform_int_distribution<int> d(-32768, 32767);
    auto sat = [](int64_t v) { return static_cast<int16_t>(v < -32768 ? -32768 : v > 32767 ? 32767 : v); };
    for (int k = 0; k < 20000; ++k) {
        const int16_t i0 = d(g), i1 = d(g), i2 = d(g);
        int16_t y0, y1, y2;
        j2k::ictFwd16s_P3P3_c(&i0, &i1, &i2, &y0, &y1, &y2, 1);
        const int32_t s = i0 * 4899 + i1 * 9617 + i2 * 1868;
        const int16_t d1 = zeb::wrap16(((i2 << 14) - s + 8192) >> 14), d2 = zeb::wrap16(((i0 << 14) - s + 8192) >> 14);
        ASSERT_EQ(y0, sat((s + 8192) >> 14));
        ASSERT_EQ(y1, sat((d1 * 9246 + 8192) >> 14));
        ASSERT_EQ(y2, sat((d2 * 11686 + 8192) >> 14));
        j2k::ictInv16s_P3P3_c(&i0, &i1, &i2, &y0, &y1, &y2, 1);
        ASSERT_EQ(y0, sat(((i2 * 22970 + 8192) >> 14) + i0));
        ASSERT_EQ(y1, sat(i0 - ((i1 * 5638 + i2 * 11700 + 8192) >> 14)));
        ASSERT_EQ(y2, sat(((i1 * 29032 + 8192) >> 14) + i0));
    }
}

// ------------------------------------------------------------ regions through the exports

TEST(ComponentRegions, StepsPlacementsAndGapsThroughTheExports) {
    // A region of several rows whose step leaves a gap: the exported forms
    // give the scalar twin's rows and leave the gaps alone.
    for (int w : {1, 15, 16, 17, 40, 63})
        for (Place place : {Place::Head, Place::Tail, Place::Heap}) {
            const int h = 3, step = 2 * w + 10, cstep = 6 * w + 4;
            std::mt19937 g(w);
            Area<int16_t> src(0, h - 1, 3 * w, place, 2, cstep);
            Area<int16_t> d[3] = {Area<int16_t>(0, h - 1, w, place, 0, step), Area<int16_t>(0, h - 1, w, place, 0, step),
                                  Area<int16_t>(0, h - 1, w, place, 0, step)};
            fillPlane(src, g);
            Zeb16s* dst[3] = {d[0].base(), d[1].base(), d[2].base()};
            ASSERT_EQ(zebiRCTFwd_JPEG2K_16s_C3P3R(src.base(), cstep, dst, step, ZebSize{w, h}), 0);
            for (int y = 0; y < h; ++y) {
                std::vector<int16_t> r0(w), r1(w), r2(w);
                j2k::rctFwd16s_C3P3_c(src.row(y), r0.data(), r1.data(), r2.data(), w);
                for (int x = 0; x < w; ++x)
                    ASSERT_TRUE(d[0].at(y, x) == r0[x] && d[1].at(y, x) == r1[x] && d[2].at(y, x) == r2[x]);
            }
            for (auto& a : d) EXPECT_TRUE(a.outsideIntact()) << w;
            // And back, in place on the planes, then to interleaved.
            ASSERT_EQ(zebiICTFwd_JPEG2K_16s_P3IR(dst, step, ZebSize{w, h}), 0);
            ASSERT_EQ(zebiICTInv_JPEG2K_16s_P3IR(dst, step, ZebSize{w, h}), 0);
            for (auto& a : d) EXPECT_TRUE(a.outsideIntact()) << w;
        }
}

// ------------------------------------------------------------ round trips

TEST(ComponentRoundTrip, ReversibleIsExactAlsoForNegativeValues) {
    std::mt19937 g(3);
    for (int w : {1, 5, 16, 31, 33, 100}) {
        const int h = 4;
        // 16 bits: samples whose differences fit, negative ones included.
        std::vector<int16_t> src(3 * w * h), back(3 * w * h), planes(3 * w * h);
        std::uniform_int_distribution<int> d16(-16384, 16383);
        for (auto& v : src) v = static_cast<int16_t>(d16(g));
        Zeb16s* p[3] = {planes.data(), planes.data() + w * h, planes.data() + 2 * w * h};
        const Zeb16s* cp[3] = {p[0], p[1], p[2]};
        ASSERT_EQ(zebiRCTFwd_JPEG2K_16s_C3P3R(src.data(), 6 * w, p, 2 * w, ZebSize{w, h}), 0);
        ASSERT_EQ(zebiRCTInv_JPEG2K_16s_P3C3R(cp, 2 * w, back.data(), 6 * w, ZebSize{w, h}), 0);
        ASSERT_EQ(src, back) << w;
        // In place: back to R, G, B planes, then forward again.
        ASSERT_EQ(zebiRCTInv_JPEG2K_16s_P3IR(p, 2 * w, ZebSize{w, h}), 0);
        for (int i = 0; i < w * h; ++i)
            ASSERT_TRUE(planes[i] == src[3 * i] && planes[w * h + i] == src[3 * i + 1] && planes[2 * w * h + i] == src[3 * i + 2]);
        ASSERT_EQ(zebiRCTFwd_JPEG2K_16s_P3IR(p, 2 * w, ZebSize{w, h}), 0);
        ASSERT_EQ(zebiRCTInv_JPEG2K_16s_P3C3R(cp, 2 * w, back.data(), 6 * w, ZebSize{w, h}), 0);
        ASSERT_EQ(src, back) << w;

        std::vector<int32_t> s32(3 * w * h), b32(3 * w * h), q32(3 * w * h);
        std::uniform_int_distribution<int32_t> d32(-(1 << 29), (1 << 29) - 1);
        for (auto& v : s32) v = d32(g);
        Zeb32s* q[3] = {q32.data(), q32.data() + w * h, q32.data() + 2 * w * h};
        const Zeb32s* cq[3] = {q[0], q[1], q[2]};
        ASSERT_EQ(zebiRCTFwd_JPEG2K_32s_C3P3R(s32.data(), 12 * w, q, 4 * w, ZebSize{w, h}), 0);
        ASSERT_EQ(zebiRCTInv_JPEG2K_32s_P3C3R(cq, 4 * w, b32.data(), 12 * w, ZebSize{w, h}), 0);
        ASSERT_EQ(s32, b32) << w;
        // In place: back to R, G, B planes, then forward again.
        ASSERT_EQ(zebiRCTInv_JPEG2K_32s_P3IR(q, 4 * w, ZebSize{w, h}), 0);
        for (int i = 0; i < w * h; ++i)
            ASSERT_TRUE(q32[i] == s32[3 * i] && q32[w * h + i] == s32[3 * i + 1] && q32[2 * w * h + i] == s32[3 * i + 2]);
        ASSERT_EQ(zebiRCTFwd_JPEG2K_32s_P3IR(q, 4 * w, ZebSize{w, h}), 0);
        ASSERT_EQ(zebiRCTInv_JPEG2K_32s_P3C3R(cq, 4 * w, b32.data(), 12 * w, ZebSize{w, h}), 0);
        ASSERT_EQ(s32, b32) << w;
    }
}

TEST(ComponentRoundTrip, IrreversibleStaysClose) {
    // The fixed-point forms lose at most a few units on 8-bit-range samples.
    std::mt19937 g(4);
    std::uniform_int_distribution<int> d(-128, 127);
    const int n = 300;
    std::vector<int32_t> a(n), b(n), c(n);
    for (int i = 0; i < n; ++i) { a[i] = d(g); b[i] = d(g); c[i] = d(g); }
    auto a0 = a, b0 = b, c0 = c;
    Zeb32s* p[3] = {a.data(), b.data(), c.data()};
    ASSERT_EQ(zebiICTFwd_JPEG2K_32s_P3IR(p, 4 * n, ZebSize{n, 1}), 0);
    ASSERT_EQ(zebiICTInv_JPEG2K_32s_P3IR(p, 4 * n, ZebSize{n, 1}), 0);
    for (int i = 0; i < n; ++i) ASSERT_TRUE(std::abs(a[i] - a0[i]) <= 2 && std::abs(b[i] - b0[i]) <= 2 && std::abs(c[i] - c0[i]) <= 2) << i;
}

}  // namespace
