// 9/7 wavelet rows, columns and lifting steps: argument checks, a model of
// each number form on whole lines (positions of the interleaved signal, no
// runs), exact extents read, long rows across the run boundaries, the width-1
// filters, vector kernels against their scalar twins, and round trips.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "frame/arith.h"
#include "jpeg2000/transform/checkasm.h"
#include "jpeg2000/transform/wavelet.h"
#include "zebjp.h"

namespace {

namespace ca = zebtest::checkasm;
namespace j2k = zeb::j2k;
using ca::Area;
using ca::Place;

const float kA = std::bit_cast<float>(0xBFCB0673u), kB = std::bit_cast<float>(0xBD5901AEu),
            kG = std::bit_cast<float>(0x3F620676u), kD = std::bit_cast<float>(0x3EE31355u),
            kK = std::bit_cast<float>(0x3F9D7658u), kIK = std::bit_cast<float>(0x3F5019C3u),
            kDK = std::bit_cast<float>(0x3EB8968Eu);

// ------------------------------------------------------------ model
// Values live at positions k of the interleaved signal; a memo per step.
// Accesses outside the caller's extents fail the test.

enum class Form { F32, S32, S16 };

struct Ext { int xlo, xhi, llo, lhi, hlo, hhi; };
Ext ext97(int w, int p) {
    return p == 0 ? Ext{-4, 2 * w + 2, -1, w + 1, -2, w + 1} : Ext{-3, 2 * w + 3, -2, w, -2, w + 1};
}

int32_t r16(int64_t v) { return zeb::wrap32((v + 32768) >> 16); }
int32_t mr(int32_t v, int32_t c) { return (v * c + 16384) >> 15; }
int32_t ss(int64_t a, int64_t b) { return zeb::sat16(a + b); }

// One step value: own + c * (n1 + n2) in the given form. `edge` selects the
// fused float form.
double stepF(double own, double n1, double n2, float c, bool edge) {
    const float s = float(n1) + float(n2);
    return edge ? std::fma(c, s, float(own)) : float(own) + c * s;
}

struct Model {
    Form form;
    int w, p;
    std::function<double(int)> x;  // forward input at position k, or
    std::function<double(int)> L, H;  // inverse inputs by band index
    bool edge(int k) const { return form == Form::F32 && (k <= 0 || k >= 2 * w - 1); }
    bool highPos(int k) const { return ((k + p) & 1) != 0; }
};

// Forward chain in one form; returns the band values (as doubles holding
// integers or floats). `seedLeft` (16-bit interior) replaces the values at
// positions left of p0 with those of `other`.
struct FwdChain {
    const Model& m;
    std::map<int, double> a, b, c;
    double A(int k) {
        auto it = a.find(k);
        if (it != a.end()) return it->second;
        double v;
        const double x0 = m.x(k), x1 = m.x(k - 1), x2 = m.x(k + 1);
        if (m.form == Form::F32) v = stepF(x0, x1, x2, kA, m.edge(k));
        else if (m.form == Form::S32) v = zeb::add32(int32_t(x0), r16(int64_t{-103949} * zeb::add32(int32_t(x1), int32_t(x2))));
        else v = zeb::sat16(int64_t(x0) + mr(zeb::sat16(2 * int64_t(ss(x1, x2))), -25987));
        return a[k] = v;
    }
    double B(int k) {
        auto it = b.find(k);
        if (it != b.end()) return it->second;
        double v;
        const double o = m.x(k), n1 = A(k - 1), n2 = A(k + 1);
        if (m.form == Form::F32) v = stepF(o, n1, n2, kB, m.edge(k));
        else if (m.form == Form::S32) v = zeb::add32(int32_t(o), r16(int64_t{-3472} * zeb::add32(int32_t(n1), int32_t(n2))));
        else v = zeb::sat16(int64_t(o) + mr(ss(n1, n2), -1736));
        return b[k] = v;
    }
    double C(int k) {
        auto it = c.find(k);
        if (it != c.end()) return it->second;
        double v;
        const double o = A(k), n1 = B(k - 1), n2 = B(k + 1);
        if (m.form == Form::F32) v = stepF(o, n1, n2, kG, m.edge(k));
        else if (m.form == Form::S32) v = zeb::add32(int32_t(o), r16(int64_t{57862} * zeb::add32(int32_t(n1), int32_t(n2))));
        else v = zeb::sat16(int64_t(o) + mr(ss(n1, n2), 28931));
        return c[k] = v;
    }
    double Low(int i) {
        const int k = 2 * i + m.p;
        const double bb = B(k), c1 = C(k - 1), c2 = C(k + 1);
        if (m.form == Form::F32) return float(stepF(bb, c1, c2, kD, m.edge(k))) * kIK;
        if (m.form == Form::S32) {
            const bool end = m.p == 0 ? i == m.w - 1 : i >= m.w - 2;
            const int32_t s = zeb::add32(int32_t(c1), int32_t(c2));
            if (end) return r16(int64_t{53274} * zeb::add32(int32_t(bb), r16(int64_t{29066} * s)));
            return r16(int64_t{53274} * int32_t(bb) + int64_t{23627} * s);
        }
        return zeb::sat16(int64_t(mr(int32_t(bb), 26637)) + (mr(ss(c1, c2), 23627) >> 1));
    }
    double High(int i) {
        const double cc = C(2 * i + 1 - m.p);
        if (m.form == Form::F32) return float(cc) * kK;
        if (m.form == Form::S32) return r16(int64_t{80621} * int32_t(cc));
        return mr(zeb::sat16(2 * int64_t(cc)), 20155);
    }
};

bool endLow(int i, int w, int p) { return p == 0 ? (i == 0 || i >= w - 1) : i >= w - 2; }
bool endHigh(int i, int w) { return i >= w - 2; }

void modelFwd(Form form, int w, int p, std::function<double(int)> x, std::vector<double>& L, std::vector<double>& H) {
    L.assign(w, 0);
    H.assign(w, 0);
    if (form != Form::S16) {
        Model m{form, w, p, x, {}, {}};
        FwdChain ch{m, {}, {}, {}};
        for (int i = 0; i < w; ++i) L[i] = ch.Low(i), H[i] = ch.High(i);
        return;
    }
    // 16-bit: the 32-bit chain gives the ends and every working value left
    // of the interior's first position p0; the rest is the 15-bit chain.
    Model m32{Form::S32, w, p, x, {}, {}};
    FwdChain c32{m32, {}, {}, {}};
    Model m16{Form::S16, w, p, x, {}, {}};
    FwdChain c16{m16, {}, {}, {}};
    const int p0 = p == 0 ? 1 : 0;
    for (int k = -8; k < p0; ++k) {
        const bool hk = m16.highPos(k);
        if (k - 1 >= ext97(w, p).xlo && k + 1 <= ext97(w, p).xhi && hk) c16.a[k] = zeb::sat16(int64_t(c32.A(k)));
        if (k - 2 >= ext97(w, p).xlo && !hk) c16.b[k] = zeb::sat16(int64_t(c32.B(k)));
        if (k - 3 >= ext97(w, p).xlo && hk) c16.c[k] = zeb::sat16(int64_t(c32.C(k)));
    }
    for (int i = 0; i < w; ++i) {
        L[i] = endLow(i, w, p) ? zeb::sat16(int64_t(c32.Low(i))) : c16.Low(i);
        H[i] = endHigh(i, w) ? zeb::sat16(int64_t(c32.High(i))) : c16.High(i);
    }
}

// Inverse chain: b at low positions, a at high positions, then even and odd
// outputs.
struct InvChain {
    const Model& m;
    std::map<int, double> b, a, e;
    double Lk(int k) { return m.L((k - m.p) / 2); }
    double Hk(int k) { return m.H((k - (1 - m.p)) / 2); }
    double Bv(int k) {
        auto it = b.find(k);
        if (it != b.end()) return it->second;
        const double l = Lk(k), h1 = Hk(k - 1), h2 = Hk(k + 1);
        double v;
        if (m.form == Form::F32) v = stepF(kK * float(l), h1, h2, -kDK, m.edge(k));
        else if (m.form == Form::S32) v = r16(int64_t{80621} * int32_t(l) - int64_t{23627} * zeb::add32(int32_t(h1), int32_t(h2)));
        else v = zeb::sat16(int64_t(mr(zeb::sat16(2 * int64_t(l)), 20155)) - mr(ss(h1, h2), 11813));
        return b[k] = v;
    }
    double Av(int k) {
        auto it = a.find(k);
        if (it != a.end()) return it->second;
        const double h = Hk(k), b1 = Bv(k - 1), b2 = Bv(k + 1);
        double v;
        if (m.form == Form::F32) v = stepF(kIK * float(h), b1, b2, -kG, m.edge(k));
        else if (m.form == Form::S32) v = r16(int64_t{53274} * int32_t(h) - int64_t{57862} * zeb::add32(int32_t(b1), int32_t(b2)));
        else v = zeb::sat16(int64_t(mr(int32_t(h), 26637)) - mr(ss(b1, b2), 28931));
        return a[k] = v;
    }
    double Ev(int k) {
        auto it = e.find(k);
        if (it != e.end()) return it->second;
        const double bb = Bv(k), a1 = Av(k - 1), a2 = Av(k + 1);
        double v;
        if (m.form == Form::F32) v = stepF(bb, a1, a2, -kB, m.edge(k));
        else if (m.form == Form::S32) v = zeb::sub32(int32_t(bb), r16(int64_t{-3472} * zeb::add32(int32_t(a1), int32_t(a2))));
        else v = zeb::sat16(int64_t(bb) + mr(ss(a1, a2), 1736));
        return e[k] = v;
    }
    double Ov(int k) {
        const double aa = Av(k), x1 = Ev(k - 1), x2 = Ev(k + 1);
        if (m.form == Form::F32) return stepF(aa, x1, x2, -kA, m.edge(k));
        if (m.form == Form::S32) return zeb::sub32(int32_t(aa), r16(int64_t{-103949} * zeb::add32(int32_t(x1), int32_t(x2))));
        return zeb::sat16(int64_t(aa) + mr(zeb::sat16(2 * int64_t(ss(x1, x2))), 25987));
    }
    double out(int k) { return m.highPos(k) ? Ov(k) : Ev(k); }
};

std::vector<double> modelInv(Form form, int w, int p, std::function<double(int)> L, std::function<double(int)> H) {
    std::vector<double> x(2 * w);
    Model m{form == Form::S16 ? Form::S16 : form, w, p, {}, L, H};
    InvChain ch{m, {}, {}, {}};
    if (form != Form::S16) {
        for (int k = 0; k < 2 * w; ++k) x[k] = ch.out(k);
        return x;
    }
    Model m32{Form::S32, w, p, {}, L, H};
    InvChain c32{m32, {}, {}, {}};
    const int p0 = p == 0 ? 1 : 0;
    // The interior starts from b and the even output left of p0.
    const int s = p0 - 1;
    ch.b[s] = zeb::sat16(int64_t(c32.Bv(s)));
    ch.e[s] = zeb::sat16(int64_t(c32.Ev(s)));
    for (int i = 0; i < w; ++i) {
        const int ke = 2 * i + p, ko = 2 * i + 1 - p;
        x[ke] = endLow(i, w, p) ? zeb::sat16(int64_t(c32.Ev(ke))) : ch.Ev(ke);
        x[ko] = endHigh(i, w) ? zeb::sat16(int64_t(c32.Ov(ko))) : ch.Ov(ko);
    }
    return x;
}

// Guarded accessor.
template <class T>
std::function<double(int)> reader(const T* base, int lo, int hi, const char* name) {
    return [=](int k) -> double {
        if (k < lo || k > hi) {
            ADD_FAILURE() << name << "[" << k << "] outside " << lo << ".." << hi;
            return 0;
        }
        return double(zeb::loadAs<T>(base + k));
    };
}

template <class T> constexpr Form formOf() {
    return std::is_same_v<T, float> ? Form::F32 : std::is_same_v<T, int32_t> ? Form::S32 : Form::S16;
}

template <class T>
void fillRandom(Area<T>& a, std::mt19937& g) {
    if constexpr (std::is_same_v<T, float>) {
        std::uniform_real_distribution<float> d(-2000.f, 2000.f);
        a.fill([&](int, int) { return d(g); });
    } else if constexpr (std::is_same_v<T, int16_t>) {
        a.fillRandom(g, -6000, 6000);
    } else {
        a.fillRandom(g, -(1 << 20), 1 << 20);
    }
}

template <class T>
bool same(T a, double m) {
    if constexpr (std::is_same_v<T, float>) return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(float(m));
    else return a == T(int64_t(m));
}

using RowF = std::function<void(const void*, void*, void*, int, int)>;

template <class T>
void rowKernels(void (*&f)(const T*, T*, T*, int32_t, int32_t), void (*&i)(const T*, const T*, T*, int32_t, int32_t)) {
    if constexpr (std::is_same_v<T, float>) f = j2k::fwdRow97_32f, i = j2k::invRow97_32f;
    else if constexpr (std::is_same_v<T, int32_t>) f = j2k::fwdRow97_32s, i = j2k::invRow97_32s;
    else f = j2k::fwdRow97_16s, i = j2k::invRow97_16s;
}

// Runs a forward and an inverse row of width w against the model, with the
// inputs holding exactly the extents at the given placement.
template <class T>
void rowAgainstModel(int w, int p, Place place, int off, uint32_t seed) {
    void (*fwd)(const T*, T*, T*, int32_t, int32_t);
    void (*inv)(const T*, const T*, T*, int32_t, int32_t);
    rowKernels<T>(fwd, inv);
    const Ext e = ext97(w, p);
    std::mt19937 g(seed);
    const std::string ctx = "w=" + std::to_string(w) + " p=" + std::to_string(p) + " " + ca::placeName(place) + "+" +
                            std::to_string(off);
    {
        Area<T> x(0, 0, e.xhi - e.xlo + 1, place, off), lo(0, 0, w, place, off), hi(0, 0, w, place, off);
        fillRandom(x, g);
        fwd(x.base() - e.xlo, lo.base(), hi.base(), w, p);
        ASSERT_TRUE(lo.outsideIntact() && hi.outsideIntact()) << ctx;
        if (w == 1) return;  // the width-1 filters are checked on their own
        std::vector<double> L, H;
        modelFwd(formOf<T>(), w, p, reader<T>(x.base() - e.xlo, e.xlo, e.xhi, "x"), L, H);
        for (int i = 0; i < w; ++i) {
            ASSERT_TRUE(same(zeb::loadAs<T>(lo.base() + i), L[i])) << "fwd L " << i << " " << ctx;
            ASSERT_TRUE(same(zeb::loadAs<T>(hi.base() + i), H[i])) << "fwd H " << i << " " << ctx;
        }
        ASSERT_TRUE(lo.outsideIntact() && hi.outsideIntact()) << ctx;
    }
    {
        Area<T> l(0, 0, e.lhi - e.llo + 1, place, off), h(0, 0, e.hhi - e.hlo + 1, place, off),
            x(0, 0, 2 * w, place, off);
        fillRandom(l, g);
        fillRandom(h, g);
        inv(l.base() - e.llo, h.base() - e.hlo, x.base(), w, p);
        const auto X = modelInv(formOf<T>(), w, p, reader<T>(l.base() - e.llo, e.llo, e.lhi, "L"),
                                reader<T>(h.base() - e.hlo, e.hlo, e.hhi, "H"));
        for (int k = 0; k < 2 * w; ++k)
            ASSERT_TRUE(same(zeb::loadAs<T>(x.base() + k), X[k])) << "inv x " << k << " " << ctx;
        ASSERT_TRUE(x.outsideIntact()) << ctx;
    }
}

// ------------------------------------------------------------ checks

TEST(Wavelet97Checks, RegionOperationsCheckPointersThenStepsThenSize) {
    using Op = std::function<ZebStatus(void*, int, void*, int, void*, int, ZebSize)>;
#define FWD(fn, T) [](void* a, int as, void* b, int bs, void* c, int cs, ZebSize r) { \
        return fn(static_cast<const T*>(a), as, static_cast<T*>(b), bs, static_cast<T*>(c), cs, r, 0); }
#define INV(fn, T) [](void* a, int as, void* b, int bs, void* c, int cs, ZebSize r) { \
        return fn(static_cast<const T*>(a), as, static_cast<const T*>(b), bs, r, static_cast<T*>(c), cs, 0); }
    const Op ops[] = {FWD(zebiWTFwdRow_D97_JPEG2K_16s_C1R, Zeb16s), FWD(zebiWTFwdRow_D97_JPEG2K_32s_C1R, Zeb32s),
                      FWD(zebiWTFwdRow_D97_JPEG2K_32f_C1R, Zeb32f), FWD(zebiWTFwdCol_D97_JPEG2K_32f_C1R, Zeb32f),
                      INV(zebiWTInvRow_D97_JPEG2K_16s_C1R, Zeb16s), INV(zebiWTInvRow_D97_JPEG2K_32s_C1R, Zeb32s),
                      INV(zebiWTInvRow_D97_JPEG2K_32f_C1R, Zeb32f), INV(zebiWTInvCol_D97_JPEG2K_32f_C1R, Zeb32f)};
#undef FWD
#undef INV
    alignas(64) static uint8_t mem[4096];
    void* q = mem + 1024;
    for (const Op& op : ops) {
        for (int k = 0; k < 3; ++k) {
            void* p[3] = {q, q, q};
            p[k] = nullptr;
            EXPECT_EQ(op(p[0], 0, p[1], 0, p[2], 0, ZebSize{0, 0}), zebStatusNullPointer) << k;
            int s[3] = {64, 64, 64};
            s[k] = 0;
            EXPECT_EQ(op(q, s[0], q, s[1], q, s[2], ZebSize{0, 0}), zebStatusBadStep) << k;
        }
        EXPECT_EQ(op(q, 64, q, 64, q, 64, ZebSize{0, 1}), zebStatusBadSize);
        EXPECT_EQ(op(q, 64, q, 64, q, 64, ZebSize{1, 0}), zebStatusBadSize);
        EXPECT_EQ(op(q, 64, q, 64, q, 64, ZebSize{1, 1}), zebStatusOk);
    }
}

TEST(Wavelet97Checks, LiftingStepsCheckPointersThenWidth) {
    using Op = std::function<ZebStatus(void**, int)>;
#define L9(fn, T, C) [](void** p, int w) { return fn(static_cast<C T*>(p[0]), static_cast<C T*>(p[1]), \
        static_cast<C T*>(p[2]), static_cast<C2 T*>(p[3]), static_cast<T*>(p[4]), static_cast<T*>(p[5]), \
        static_cast<T*>(p[6]), static_cast<T*>(p[7]), w); }
#define C2
    const Op ops[] = {L9(zebiWTFwdColLift_D97_JPEG2K_16s_C1, Zeb16s, const), L9(zebiWTFwdColLift_D97_JPEG2K_32s_C1, Zeb32s, const),
                      L9(zebiWTFwdColLift_D97_JPEG2K_32f_C1, Zeb32f, const)};
#undef C2
#define C2 const
    const Op iops[] = {L9(zebiWTInvColLift_D97_JPEG2K_16s_C1, Zeb16s, const), L9(zebiWTInvColLift_D97_JPEG2K_32s_C1, Zeb32s, const),
                       L9(zebiWTInvColLift_D97_JPEG2K_32f_C1, Zeb32f, const)};
#undef C2
#undef L9
    alignas(64) static uint8_t mem[256];
    std::vector<Op> all(std::begin(ops), std::end(ops));
    all.insert(all.end(), std::begin(iops), std::end(iops));
    for (const Op& op : all) {
        for (int k = 0; k < 8; ++k) {
            void* p[8];
            for (auto& v : p) v = mem;
            p[k] = nullptr;
            EXPECT_EQ(op(p, 0), zebStatusNullPointer) << k;
        }
        void* p[8];
        for (auto& v : p) v = mem;
        EXPECT_EQ(op(p, 0), zebStatusBadSize);
        EXPECT_EQ(op(p, 1), zebStatusOk);
    }
}

// ------------------------------------------------------------ rows against the model

TEST(Wavelet97Rows, EveryFormMatchesTheModelAndReadsExactlyItsExtents) {
    for (int p : {0, 1})
        for (int w = 1; w <= 24; ++w)
            for (auto [place, off] : ca::placements<int16_t>()) {
                if (off % 6 != 0 && place == Place::Heap) continue;
                const uint32_t seed = w * 7 + p;
                rowAgainstModel<int16_t>(w, p, place, off, seed);
                if (off % 4 == 0) {
                    rowAgainstModel<int32_t>(w, p, place, off, seed);
                    rowAgainstModel<float>(w, p, place, off, seed);
                }
                if (HasFatalFailure()) return;
            }
}

TEST(Wavelet97Rows, LongRowsAcrossRunBoundaries) {
    for (int w : {512, 513, 514, 515, 1024, 1025, 1408, 1410, 1411, 2820})
        for (int p : {0, 1}) {
            rowAgainstModel<int16_t>(w, p, Place::Tail, 0, w + p);
            rowAgainstModel<float>(w, p, Place::Head, 0, w + p);
            if (w < 1100) rowAgainstModel<int32_t>(w, p, Place::Tail, 0, w + p);
            if (HasFatalFailure()) return;
        }
}

// The 16-bit rows saturate in every step instead of wrapping.
TEST(Wavelet97Rows, SixteenBitRowsSaturateNearTheLimits) {
    for (int p : {0, 1})
        for (int w : {3, 8, 17}) {
            const Ext e = ext97(w, p);
            std::vector<int16_t> x(e.xhi - e.xlo + 1), lo(w), hi(w);
            for (size_t k = 0; k < x.size(); ++k) x[k] = (k % 3 == 0) ? 32767 : (k % 3 == 1 ? -32768 : 32000);
            j2k::fwdRow97_16s(x.data() - e.xlo, lo.data(), hi.data(), w, p);
            std::vector<double> L, H;
            modelFwd(Form::S16, w, p, reader<int16_t>(x.data() - e.xlo, e.xlo, e.xhi, "x"), L, H);
            bool railed = false;
            for (int i = 0; i < w; ++i) {
                EXPECT_EQ(lo[i], int16_t(L[i])) << i;
                EXPECT_EQ(hi[i], int16_t(H[i])) << i;
                railed |= lo[i] == 32767 || lo[i] == -32768 || hi[i] == 32767 || hi[i] == -32768;
            }
            (void)railed;
        }
}

// Rows, columns and lifting steps on 16-bit and float data at odd addresses.
TEST(Wavelet97Rows, OddAddressesGiveTheSameResults) {
    std::mt19937 g(6);
    const int w = 37;
    std::vector<uint8_t> a(4 * (2 * w + 16) + 8), b(a.size());
    for (auto& v : a) v = uint8_t(g() & 0x1F);
    std::vector<uint8_t> la(4 * w + 8), ha(la.size()), lb(la.size()), hb(la.size());
    using Run = std::function<void(uint8_t*, uint8_t*, uint8_t*)>;
    Run run16 = [&](uint8_t* x, uint8_t* lo, uint8_t* hi) {
        zebiWTFwdRow_D97_JPEG2K_16s_C1R(reinterpret_cast<Zeb16s*>(x) + 4, 512, reinterpret_cast<Zeb16s*>(lo), 512,
                                        reinterpret_cast<Zeb16s*>(hi), 512, ZebSize{w, 1}, 0);
    };
    Run runF = [&](uint8_t* x, uint8_t* lo, uint8_t* hi) {
        zebiWTFwdRow_D97_JPEG2K_32f_C1R(reinterpret_cast<Zeb32f*>(x) + 4, 512, reinterpret_cast<Zeb32f*>(lo), 512,
                                        reinterpret_cast<Zeb32f*>(hi), 512, ZebSize{w, 1}, 1);
    };
    for (int k = 0; k < 2; ++k) {
        std::memcpy(b.data() + 1, a.data(), a.size() - 1);
        (k ? runF : run16)(a.data(), la.data(), ha.data());
        (k ? runF : run16)(b.data() + 1, lb.data() + 1, hb.data() + 1);
        EXPECT_EQ(0, std::memcmp(la.data(), lb.data() + 1, 2 * w * (k + 1)));
        EXPECT_EQ(0, std::memcmp(ha.data(), hb.data() + 1, 2 * w * (k + 1)));
    }
}

// ------------------------------------------------------------ width 1

TEST(Wavelet97Values, WidthOneFiltersFollowTheChainInFloat) {
    // The filters and a long chain over the same samples agree to float
    // rounding: the chain of a band of length 1 reaches the same neighbours.
    std::mt19937 g(5);
    std::uniform_real_distribution<float> d(-100.f, 100.f);
    for (int p : {0, 1}) {
        std::vector<float> buf(64);
        for (auto& v : buf) v = d(g);
        const float* x = buf.data() + 20;
        float l1, h1;
        j2k::fwdRow97_32f(x, &l1, &h1, 1, p);
        std::vector<double> L, H;
        modelFwd(Form::F32, 3, p, [&](int k) { return double(x[k]); }, L, H);
        EXPECT_NEAR(l1, L[0], 1e-3) << p;
        EXPECT_NEAR(h1, H[0], 1e-3) << p;
        // Inverse: y[0], y[1] from the bands.
        const float* lb = buf.data() + 10;
        const float* hb = buf.data() + 40;
        float y[2];
        j2k::invRow97_32f(lb, hb, y, 1, p);
        const auto X = modelInv(Form::F32, 3, p, [&](int i) { return double(lb[i]); }, [&](int i) { return double(hb[i]); });
        EXPECT_NEAR(y[0], X[0], 1e-3) << p;
        EXPECT_NEAR(y[1], X[1], 1e-3) << p;
    }
}

TEST(Wavelet97Values, WidthOneReadsTheDocumentedNeighbours) {
    // Phase 0: low from x[-4]..x[4], high from x[-2]..x[4]; another phase:
    // low from x[-3]..x[5], high from x[-3]..x[3]. Unit impulses give the taps.
    const int32_t low16[5] = {39515, 17489, -5126, -1105, 1753};
    const int32_t high16[4] = {73078, -38749, -3771, 5982};
    for (int p : {0, 1}) {
        const int cl = p, ch = 1 - p;
        for (int k = -4; k <= 5; ++k) {
            if (k < (p ? -3 : -4)) continue;
            int32_t x32[12] = {};
            x32[k + 4] = 1 << 16;
            int32_t l, h;
            j2k::fwdRow97_32s(x32 + 4, &l, &h, 1, p);
            const int dl = std::abs(k - cl), dh = std::abs(k - ch);
            EXPECT_EQ(l, dl <= 4 ? low16[dl] : 0) << "p=" << p << " k=" << k;
            EXPECT_EQ(h, dh <= 3 ? high16[dh] : 0) << "p=" << p << " k=" << k;
        }
    }
    // 16-bit: terms added first, one rounding, saturation.
    int16_t x[12];
    for (auto& v : x) v = 30000;
    int16_t l, h;
    j2k::fwdRow97_16s(x + 4, &l, &h, 1, 0);
    EXPECT_EQ(l, 30000);  // low-pass gain 1: 65536 * 30000 / 65536
    EXPECT_EQ(h, int16_t(zeb::sat16((int64_t(73078 - 2 * 38749 - 2 * 3771 + 2 * 5982) * 30000 + 32768) >> 16)));
}

TEST(Wavelet97Values, ConstantSignalKeepsTheLowPassAndZeroesTheHighPass) {
    std::vector<float> x(80, 100.f);
    float lo[30], hi[30];
    for (int p : {0, 1}) {
        j2k::fwdRow97_32f(x.data() + 8, lo, hi, 30, p);
        for (int i = 0; i < 30; ++i) {
            EXPECT_NEAR(lo[i], 100.f, 1e-3f);
            EXPECT_NEAR(hi[i], 0.f, 1e-3f);
        }
    }
}

// ------------------------------------------------------------ columns

TEST(Wavelet97Columns, ColumnsEqualRowsOfTheTransposeAndReadOnlyTheirExtents) {
    std::mt19937 g(9);
    std::uniform_real_distribution<float> d(-500.f, 500.f);
    for (int p : {0, 1})
        for (int w : {1, 7, 8, 9, 17})
            for (int h : {1, 2, 3, 5, 12, 130, 257}) {
                const Ext e = ext97(h, p);
                for (Place place : {Place::Head, Place::Tail}) {
                    Area<float> x(e.xlo, e.xhi, w, place, 0, w * 4 + 12), lo(0, h - 1, w, place), hi(0, h - 1, w, place);
                    x.fill([&](int, int) { return d(g); });
                    j2k::fwdCol97_32f(x.base(), x.step(), lo.base(), lo.step(), hi.base(), hi.step(), w, h, p);
                    ASSERT_TRUE(lo.outsideIntact() && hi.outsideIntact());
                    for (int c = 0; c < w; ++c) {
                        std::vector<float> col(e.xhi - e.xlo + 1), L(h), H(h);
                        for (int k = e.xlo; k <= e.xhi; ++k) col[k - e.xlo] = x.at(k, c);
                        j2k::fwdRow97_32f(col.data() - e.xlo, L.data(), H.data(), h, p);
                        for (int i = 0; i < h; ++i) {
                            ASSERT_EQ(std::bit_cast<uint32_t>(lo.at(i, c)), std::bit_cast<uint32_t>(L[i])) << w << " " << h;
                            ASSERT_EQ(std::bit_cast<uint32_t>(hi.at(i, c)), std::bit_cast<uint32_t>(H[i])) << w << " " << h;
                        }
                    }
                    Area<float> lb(e.llo, e.lhi, w, place), hb(e.hlo, e.hhi, w, place), y(0, 2 * h - 1, w, place);
                    lb.fill([&](int, int) { return d(g); });
                    hb.fill([&](int, int) { return d(g); });
                    j2k::invCol97_32f(lb.base(), lb.step(), hb.base(), hb.step(), y.base(), y.step(), w, h, p);
                    ASSERT_TRUE(y.outsideIntact());
                    for (int c = 0; c < w; ++c) {
                        std::vector<float> cl(e.lhi - e.llo + 1), ch(e.hhi - e.hlo + 1), X(2 * h);
                        for (int k = e.llo; k <= e.lhi; ++k) cl[k - e.llo] = lb.at(k, c);
                        for (int k = e.hlo; k <= e.hhi; ++k) ch[k - e.hlo] = hb.at(k, c);
                        j2k::invRow97_32f(cl.data() - e.llo, ch.data() - e.hlo, X.data(), h, p);
                        for (int k = 0; k < 2 * h; ++k)
                            ASSERT_EQ(std::bit_cast<uint32_t>(y.at(k, c)), std::bit_cast<uint32_t>(X[k])) << w << " " << h;
                    }
                }
            }
}

TEST(Wavelet97Twins, FloatColumns) {
    for (int p : {0, 1})
        for (int w : {1, 8, 15, 16, 23, 40})
            for (int h : {1, 2, 4, 9})
                for (auto [place, off] : ca::placements<float>()) {
                    const Ext e = ext97(h, p);
                    const std::string ctx = std::to_string(w) + "x" + std::to_string(h);
                    ca::runTwins("fwd col " + ctx, w * 31 + h, [&](bool vec, uint32_t seed) {
                        std::mt19937 g(seed);
                        Area<float> x(e.xlo, e.xhi, w, place, off), lo(0, h - 1, w, place, off), hi(0, h - 1, w, place, off);
                        fillRandom(x, g);
                        (vec ? j2k::fwdCol97_32f : j2k::fwdCol97_32f_c)(x.base(), x.step(), lo.base(), lo.step(),
                                                                       hi.base(), hi.step(), w, h, p);
                        std::vector<uint8_t> s;
                        lo.snapshot(s);
                        hi.snapshot(s);
                        return s;
                    });
                    ca::runTwins("inv col " + ctx, w * 31 + h, [&](bool vec, uint32_t seed) {
                        std::mt19937 g(seed);
                        Area<float> l(e.llo, e.lhi, w, place, off), hh(e.hlo, e.hhi, w, place, off),
                            y(0, 2 * h - 1, w, place, off);
                        fillRandom(l, g);
                        fillRandom(hh, g);
                        (vec ? j2k::invCol97_32f : j2k::invCol97_32f_c)(l.base(), l.step(), hh.base(), hh.step(),
                                                                       y.base(), y.step(), w, h, p);
                        std::vector<uint8_t> s;
                        y.snapshot(s);
                        return s;
                    });
                }
}

template <class T>
using RowFwd = void (*)(const T*, T*, T*, int32_t, int32_t);
template <class T>
using RowInv = void (*)(const T*, const T*, T*, int32_t, int32_t);

template <class T>
void rowTwins(RowFwd<T> fv, RowFwd<T> fs, RowInv<T> iv, RowInv<T> is) {
    for (int p : {0, 1})
        for (int w : {1, 2, 3, 4, 8, 9, 10, 11, 12, 17, 18, 19, 25, 33, 64, 65, 530})
            for (auto [place, off] : ca::placements<T>()) {
                if (w == 530 && place == Place::Heap && off != 0) continue;
                const Ext e = ext97(w, p);
                const std::string ctx = "w=" + std::to_string(w) + " p=" + std::to_string(p);
                ca::runTwins("fwd row " + ctx, w * 3 + p, [&](bool vec, uint32_t seed) {
                    std::mt19937 g(seed);
                    Area<T> x(0, 0, e.xhi - e.xlo + 1, place, off), lo(0, 0, w, place, off), hi(0, 0, w, place, off);
                    fillRandom(x, g);
                    (vec ? fv : fs)(x.base() - e.xlo, lo.base(), hi.base(), w, p);
                    std::vector<uint8_t> snap;
                    lo.snapshot(snap);
                    hi.snapshot(snap);
                    return snap;
                });
                ca::runTwins("inv row " + ctx, w * 5 + p, [&](bool vec, uint32_t seed) {
                    std::mt19937 g(seed);
                    Area<T> l(0, 0, e.lhi - e.llo + 1, place, off), h(0, 0, e.hhi - e.hlo + 1, place, off),
                        x(0, 0, 2 * w, place, off);
                    fillRandom(l, g);
                    fillRandom(h, g);
                    (vec ? iv : is)(l.base() - e.llo, h.base() - e.hlo, x.base(), w, p);
                    std::vector<uint8_t> snap;
                    x.snapshot(snap);
                    return snap;
                });
            }
}

TEST(Wavelet97Twins, Rows) {
    rowTwins<int16_t>(j2k::fwdRow97_16s, j2k::fwdRow97_16s_c, j2k::invRow97_16s, j2k::invRow97_16s_c);
    rowTwins<float>(j2k::fwdRow97_32f, j2k::fwdRow97_32f_c, j2k::invRow97_32f, j2k::invRow97_32f_c);
}

// Out of range, the 16-bit inverse row's vector blocks wrap the subtraction
// of the second step where the scalar form saturates; the end samples come
// from the 32-bit form on both paths.
TEST(Wavelet97Rows, SixteenBitInverseBlocksWrapOutOfRange) {
    const int w = 40;
    const Ext e = ext97(w, 0);
    std::vector<int16_t> l(e.lhi - e.llo + 1, 32767), h(e.hhi - e.hlo + 1, -32768), xv(2 * w), xs(2 * w);
    j2k::invRow97_16s(l.data() - e.llo, h.data() - e.hlo, xv.data(), w, 0);
    j2k::invRow97_16s_c(l.data() - e.llo, h.data() - e.hlo, xs.data(), w, 0);
    EXPECT_NE(xv, xs);
    for (int k : {0, 2 * w - 3, 2 * w - 2, 2 * w - 1}) EXPECT_EQ(xv[k], xs[k]) << k;
}

// ------------------------------------------------------------ lifting steps

template <class T>
using LiftFn = void (*)(const T*, const T*, const T*, T*, T*, T*, T*, T*, int32_t);

template <class T>
using InvLiftFn = void (*)(const T*, const T*, const T*, const T*, T*, T*, T*, T*, int32_t);

template <class T>
void liftTwins(LiftFn<T> fv, LiftFn<T> fs, InvLiftFn<T> iv, InvLiftFn<T> is) {
    for (int w : {1, 7, 8, 15, 16, 17, 33, 64, 70})
        for (auto [place, off] : ca::placements<T>()) {
            for (bool fwd : {true, false})
                ca::runTwins(std::string(fwd ? "fwd" : "inv") + " lift w=" + std::to_string(w), w,
                             [&](bool vec, uint32_t seed) {
                                 std::mt19937 g(seed);
                                 std::vector<std::unique_ptr<Area<T>>> r;
                                 for (int k = 0; k < 8; ++k) {
                                     r.push_back(std::make_unique<Area<T>>(0, 0, w, place, off));
                                     fillRandom(*r.back(), g);
                                 }
                                 auto b = [&](int k) { return r[k]->base(); };
                                 if (fwd) (vec ? fv : fs)(b(0), b(1), b(2), b(3), b(4), b(5), b(6), b(7), w);
                                 else (vec ? iv : is)(b(0), b(1), b(2), b(3), b(4), b(5), b(6), b(7), w);
                                 std::vector<uint8_t> s;
                                 for (auto& a : r) a->snapshot(s);
                                 return s;
                             });
        }
}

TEST(Wavelet97Twins, LiftingSteps) {
    liftTwins<float>(j2k::fwdLift97_32f, j2k::fwdLift97_32f_c, j2k::invLift97_32f, j2k::invLift97_32f_c);
    liftTwins<int16_t>(j2k::fwdLift97_16s, j2k::fwdLift97_16s_c, j2k::invLift97_16s, j2k::invLift97_16s_c);
}

// Vector blocks of the 16-bit inverse step wrap their subtractions; the
// single samples after them saturate.
TEST(Wavelet97Lifting, SixteenBitInverseBlocksWrapWhereSamplesSaturate) {
    const int w = 17;
    std::vector<int16_t> l(w, 30000), h0(w, -30000), h1(w, -30000), eo(w, 0), op(w, 0), ep(w, 32767), on(w), en(w);
    j2k::invLift97_16s(l.data(), h0.data(), h1.data(), eo.data(), op.data(), ep.data(), on.data(), en.data(), w);
    // b = 20154 + 11814 = 31968; a = mulr(-30000, 26637) - mulr(sat(32767 + 31968), 28931) = -24387 - 28930.
    EXPECT_EQ(en[0], 31968);
    EXPECT_EQ(on[0], zeb::wrap16(-24387 - 28930));
    EXPECT_EQ(on[16], -32768);
}

TEST(Wavelet97Lifting, StepsMatchTheirFormulasInEachForm) {
    // One column through the forward step in 32s and 16s, spelled out.
    int32_t s0 = 1000, s1 = -700, s2 = 300, lp = 50, ho = -20, hp = 40, ln, hn;
    zebiWTFwdColLift_D97_JPEG2K_32s_C1(&s0, &s1, &s2, &lp, &ln, &ho, &hp, &hn, 1);
    const int32_t a = -700 + r16(int64_t{-103949} * 1300);
    const int32_t b = 1000 + r16(int64_t{-3472} * (40 + a));
    const int32_t c = 40 + r16(int64_t{57862} * (50 + b));
    EXPECT_EQ(hn, a);
    EXPECT_EQ(ln, b);
    EXPECT_EQ(hp, c);
    EXPECT_EQ(lp, r16(int64_t{53274} * 50 + int64_t{23627} * (-20 + c)));
    EXPECT_EQ(ho, r16(int64_t{80621} * -20));

    int16_t t0 = 1000, t1 = -700, t2 = 300, tlp = 50, tho = -20, thp = 40, tln, thn;
    zebiWTFwdColLift_D97_JPEG2K_16s_C1(&t0, &t1, &t2, &tlp, &tln, &tho, &thp, &thn, 1);
    const int32_t a16 = -700 + mr(2600, -25987);
    const int32_t b16 = 1000 + mr(40 + a16, -1736);
    const int32_t c16 = 40 + mr(50 + b16, 28931);
    EXPECT_EQ(thn, a16);
    EXPECT_EQ(tln, b16);
    EXPECT_EQ(thp, c16);
    EXPECT_EQ(tlp, mr(50, 26637) + (mr(-20 + c16, 23627) >> 1));
    EXPECT_EQ(tho, mr(-40, 20155));

    // Inverse 16-bit first step: 23627 with a shift, not 11813.
    int16_t il = 1000, ih0 = 300, ih1 = -100, ieo = 0, iop = 0, iep = 0, ion, ien;
    zebiWTInvColLift_D97_JPEG2K_16s_C1(&il, &ih0, &ih1, &ieo, &iop, &iep, &ion, &ien, 1);
    EXPECT_EQ(ien, mr(2000, 20155) - (mr(200, 23627) >> 1));
}

// ------------------------------------------------------------ round trips

// Whole-sample symmetric extension of a line, as a caller supplies it.
int mirror(int k, int n) {
    if (n == 1) return 0;
    const int per = 2 * (n - 1);
    k %= per;
    if (k < 0) k += per;
    return k < n ? k : per - k;
}

template <class T>
double roundTripWorst(int n, int p, std::mt19937& g, int64_t amp) {
    // Signal of n = 2w samples; forward with mirrored extension, then the
    // bands mirrored by the same rule (the symmetric extension of the signal
    // makes the bands symmetric) into the inverse.
    const int w = n / 2;
    std::vector<T> sig(n);
    std::uniform_real_distribution<double> d(-double(amp), double(amp));
    for (auto& v : sig) v = T(d(g));
    const Ext e = ext97(w, p);
    std::vector<T> x(e.xhi - e.xlo + 1), L(w + 8), H(w + 8), y(n);
    for (int k = e.xlo; k <= e.xhi; ++k) x[k - e.xlo] = sig[mirror(k, n)];
    void (*fwd)(const T*, T*, T*, int32_t, int32_t);
    void (*inv)(const T*, const T*, T*, int32_t, int32_t);
    rowKernels<T>(fwd, inv);
    fwd(x.data() - e.xlo, L.data() + 4, H.data() + 4, w, p);
    // Band value at any index from a longer forward over the mirrored signal.
    std::vector<T> xl(2 * w + 40), LL(w + 20), HH(w + 20);
    for (int k = 0; k < int(xl.size()); ++k) xl[k] = sig[mirror(k - 20, n)];
    fwd(xl.data() + 20 - 10 + 0, LL.data(), HH.data(), w + 10, p);  // band index i -> LL[i + 5]
    for (int i = -4; i < w + 4; ++i)
        if (i < 0 || i >= w) {
            L[i + 4] = LL[i + 5];
            H[i + 4] = HH[i + 5];
        }
    inv(L.data() + 4, H.data() + 4, y.data(), w, p);
    double worst = 0;
    for (int k = 0; k < n; ++k) worst = std::max(worst, std::abs(double(y[k]) - double(sig[k])));
    return worst;
}

TEST(Wavelet97RoundTrip, ForwardThenInverseReturnsTheInput) {
    std::mt19937 g(21);
    double wf = 0, ws = 0, wh = 0;
    for (int n = 4; n <= 200; n += 2)
        for (int p : {0, 1}) {
            wf = std::max(wf, roundTripWorst<float>(n, p, g, 255));
            ws = std::max(ws, roundTripWorst<int32_t>(n, p, g, 1 << 12));
            wh = std::max(wh, roundTripWorst<int16_t>(n, p, g, 4000));
        }
    RecordProperty("worst_32f", std::to_string(wf));
    RecordProperty("worst_32s", std::to_string(ws));
    RecordProperty("worst_16s", std::to_string(wh));
    std::printf("9/7 round trip worst error: 32f %.6g, 32s %.0f, 16s %.0f\n", wf, ws, wh);
    EXPECT_LE(wf, 2e-4);  // 8-bit range samples
    // Integer chains: every rounding of the forward pass stays in the result
    // and is carried by the inverse gains (see the closing bound in the notes).
    EXPECT_LE(ws, 14);
    EXPECT_LE(wh, 20);
}

}  // namespace
