// JPEG 2000 transforms: colour transforms and one 5/3 level (columns then
// rows) on an N x N region, single-threaded, each with its scalar twin and
// with memcpy of the same bytes in the same run. Where OpenJPEG is linked,
// its whole-image lossless encode and decode of a 2048 x 2048 image serve as
// a scale anchor.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "jpeg2000/transform/component.h"
#include "jpeg2000/transform/wavelet.h"
#include "zebcore.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_OPENJPEG
#include <openjpeg.h>
#endif

namespace {

namespace j2k = zeb::j2k;

template <class T>
std::vector<T> randomPlane(size_t n, int lo, int hi, uint32_t seed) {
    std::mt19937 g(seed);
    std::uniform_int_distribution<int> d(lo, hi);
    std::vector<T> v(n);
    for (auto& x : v) x = static_cast<T>(d(g));
    return v;
}

void setBytes(benchmark::State& st, double samples, double bytes) {
    st.SetItemsProcessed(static_cast<int64_t>(samples * st.iterations()));
    st.SetBytesProcessed(static_cast<int64_t>(bytes * st.iterations()));
}

// ------------------------------------------------------------ memcpy anchors

void BM_Memcpy(benchmark::State& st) {
    const size_t bytes = static_cast<size_t>(st.range(0));
    std::vector<uint8_t> a(bytes, 1), b(bytes);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), bytes);
        benchmark::ClobberMemory();
    }
    setBytes(st, static_cast<double>(bytes), static_cast<double>(bytes));
}

// ------------------------------------------------------------ colour transforms
// Bytes counted: the input once (three components) as memcpy would move it.

template <class T, class K>
void colourPlanar(benchmark::State& st, K kernel) {
    const int n = static_cast<int>(st.range(0));
    const size_t px = size_t(n) * n;
    auto p0 = randomPlane<T>(px, -2000, 2000, 1), p1 = randomPlane<T>(px, -2000, 2000, 2),
         p2 = randomPlane<T>(px, -2000, 2000, 3);
    for (auto _ : st) {
        for (int y = 0; y < n; ++y) {
            const size_t o = size_t(y) * n;
            kernel(p0.data() + o, p1.data() + o, p2.data() + o, p0.data() + o, p1.data() + o, p2.data() + o, n);
        }
        benchmark::ClobberMemory();
    }
    setBytes(st, double(px), double(px) * 3 * sizeof(T));
}

template <class T, class K>
void colourC3P3(benchmark::State& st, K kernel) {
    const int n = static_cast<int>(st.range(0));
    const size_t px = size_t(n) * n;
    auto src = randomPlane<T>(3 * px, -2000, 2000, 4);
    std::vector<T> d0(px), d1(px), d2(px);
    for (auto _ : st) {
        for (int y = 0; y < n; ++y) {
            const size_t o = size_t(y) * n;
            kernel(src.data() + 3 * o, d0.data() + o, d1.data() + o, d2.data() + o, n);
        }
        benchmark::ClobberMemory();
    }
    setBytes(st, double(px), double(px) * 3 * sizeof(T));
}

template <class T, class K>
void colourP3C3(benchmark::State& st, K kernel) {
    const int n = static_cast<int>(st.range(0));
    const size_t px = size_t(n) * n;
    auto s0 = randomPlane<T>(px, -2000, 2000, 5), s1 = randomPlane<T>(px, -2000, 2000, 6),
         s2 = randomPlane<T>(px, -2000, 2000, 7);
    std::vector<T> dst(3 * px);
    for (auto _ : st) {
        for (int y = 0; y < n; ++y) {
            const size_t o = size_t(y) * n;
            kernel(s0.data() + o, s1.data() + o, s2.data() + o, dst.data() + 3 * o, n);
        }
        benchmark::ClobberMemory();
    }
    setBytes(st, double(px), double(px) * 3 * sizeof(T));
}

#define COLOUR(name, how, T, k)                                                          \
    void BM_##name(benchmark::State& st) { how<T>(st, j2k::k); }                        \
    BENCHMARK(BM_##name)->Arg(4096)->Unit(benchmark::kMillisecond);

COLOUR(RCTFwd16s_C3P3, colourC3P3, int16_t, rctFwd16s_C3P3)
COLOUR(RCTFwd16s_C3P3_scalar, colourC3P3, int16_t, rctFwd16s_C3P3_c)
COLOUR(RCTInv16s_P3C3, colourP3C3, int16_t, rctInv16s_P3C3)
COLOUR(RCTInv16s_P3C3_scalar, colourP3C3, int16_t, rctInv16s_P3C3_c)
COLOUR(RCTFwd16s_P3I, colourPlanar, int16_t, rctFwd16s_P3P3)
COLOUR(RCTFwd16s_P3I_scalar, colourPlanar, int16_t, rctFwd16s_P3P3_c)
COLOUR(ICTFwd16s_P3I, colourPlanar, int16_t, ictFwd16s_P3P3)
COLOUR(ICTFwd16s_P3I_scalar, colourPlanar, int16_t, ictFwd16s_P3P3_c)
COLOUR(ICTInv16s_P3I, colourPlanar, int16_t, ictInv16s_P3P3)
COLOUR(ICTInv16s_P3I_scalar, colourPlanar, int16_t, ictInv16s_P3P3_c)
COLOUR(RCTFwd32s_C3P3, colourC3P3, int32_t, rctFwd32s_C3P3)
COLOUR(RCTFwd32s_C3P3_scalar, colourC3P3, int32_t, rctFwd32s_C3P3_c)
COLOUR(RCTInv32s_P3C3, colourP3C3, int32_t, rctInv32s_P3C3)
COLOUR(RCTInv32s_P3C3_scalar, colourP3C3, int32_t, rctInv32s_P3C3_c)
COLOUR(ICTFwd32s_P3I, colourPlanar, int32_t, ictFwd32s_P3P3)
COLOUR(ICTFwd32s_P3I_scalar, colourPlanar, int32_t, ictFwd32s_P3P3_c)
COLOUR(ICTInv32s_P3I, colourPlanar, int32_t, ictInv32s_P3P3)
COLOUR(ICTInv32s_P3I_scalar, colourPlanar, int32_t, ictInv32s_P3P3_c)
COLOUR(ICTFwd32f_C3P3, colourC3P3, float, ictFwd32f_C3P3)
COLOUR(ICTFwd32f_C3P3_scalar, colourC3P3, float, ictFwd32f_C3P3_c)
COLOUR(ICTInv32f_P3C3, colourP3C3, float, ictInv32f_P3C3)
COLOUR(ICTInv32f_P3C3_scalar, colourP3C3, float, ictInv32f_P3C3_c)

BENCHMARK(BM_Memcpy)->Arg(4096 * 4096 * 3 * 2)->Arg(4096 * 4096 * 3 * 4)->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ 5/3 level
// An N x N region with two spare rows and columns on each side (their
// contents stand in for the extension), split by columns into two N x N/2
// bands and then by rows into four N/2 x N/2 bands; the inverse goes back.

template <class T>
struct Level {
    int n, pad = 4, stride;
    std::vector<T> x, lo, hi, q[4];
    explicit Level(int n_) : n(n_), stride(n_ + 2 * pad) {
        x = randomPlane<T>(size_t(stride) * (n + 2 * pad), -1000, 1000, 9);
        lo.assign(size_t(stride) * (n / 2 + 2 * pad), 0);
        hi = lo;
        for (auto& b : q) b.assign(size_t(stride) * (n / 2 + 2 * pad), 0);
    }
    T* at(std::vector<T>& v, int y, int c) { return v.data() + size_t(y + pad) * stride + c + pad; }
    int step() const { return stride * int(sizeof(T)); }
};

template <class T, bool Vec>
struct Kernels;
template <bool Vec>
struct Kernels<int16_t, Vec> {
    static constexpr auto fc = Vec ? j2k::fwdCol53_16s : j2k::fwdCol53_16s_c;
    static constexpr auto fr = Vec ? j2k::fwdRow53_16s : j2k::fwdRow53_16s_c;
    static constexpr auto ic = Vec ? j2k::invCol53_16s : j2k::invCol53_16s_c;
    static constexpr auto ir = Vec ? j2k::invRow53_16s : j2k::invRow53_16s_c;
};
template <bool Vec>
struct Kernels<int32_t, Vec> {
    static constexpr auto fc = Vec ? j2k::fwdCol53_32s : j2k::fwdCol53_32s_c;
    static constexpr auto fr = Vec ? j2k::fwdRow53_32s : j2k::fwdRow53_32s_c;
    static constexpr auto ic = Vec ? j2k::invCol53_32s : j2k::invCol53_32s_c;
    static constexpr auto ir = Vec ? j2k::invRow53_32s : j2k::invRow53_32s_c;
};

// part: 0 whole level, 1 columns only, 2 rows only.
template <class T, bool Vec, bool Forward>
void BM_Level53(benchmark::State& st) {
    using K = Kernels<T, Vec>;
    const int n = static_cast<int>(st.range(0)), part = static_cast<int>(st.range(1)), b = n / 2;
    Level<T> L(n);
    const int s = L.step();
    for (auto _ : st) {
        if (Forward) {
            if (part != 2) K::fc(L.at(L.x, 0, 0), s, L.at(L.lo, 0, 0), s, L.at(L.hi, 0, 0), s, n, b, 0);
            if (part != 1)
                for (int y = 0; y < b; ++y) {
                    K::fr(L.at(L.lo, y, 0), L.at(L.q[0], y, 0), L.at(L.q[2], y, 0), b, 0);
                    K::fr(L.at(L.hi, y, 0), L.at(L.q[1], y, 0), L.at(L.q[3], y, 0), b, 0);
                }
        } else {
            if (part != 1)
                for (int y = 0; y < b; ++y) {
                    K::ir(L.at(L.q[0], y, 0), L.at(L.q[2], y, 0), L.at(L.lo, y, 0), b, 0);
                    K::ir(L.at(L.q[1], y, 0), L.at(L.q[3], y, 0), L.at(L.hi, y, 0), b, 0);
                }
            if (part != 2) K::ic(L.at(L.lo, 0, 0), s, L.at(L.hi, 0, 0), s, L.at(L.x, 0, 0), s, n, b, 0);
        }
        benchmark::ClobberMemory();
    }
    setBytes(st, double(n) * n, double(n) * n * sizeof(T));
}

#define LEVEL(T, V, F)                                                                                  \
    BENCHMARK(BM_Level53<T, V, F>)->Args({4096, 0})->Args({4096, 1})->Args({4096, 2})->Unit(benchmark::kMillisecond);
LEVEL(int16_t, true, true)
LEVEL(int16_t, false, true)
LEVEL(int16_t, true, false)
LEVEL(int16_t, false, false)
LEVEL(int32_t, true, true)
LEVEL(int32_t, false, true)
LEVEL(int32_t, true, false)
LEVEL(int32_t, false, false)

BENCHMARK(BM_Memcpy)->Arg(4096 * 4096 * 2)->Arg(4096 * 4096 * 4)->Unit(benchmark::kMillisecond);

// Lifting steps over the rows of an N x N region.
template <class T, bool Vec>
void BM_Lift53(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    auto x = randomPlane<T>(size_t(n) * (n + 2), -1000, 1000, 10);
    std::vector<T> lo(size_t(n) * (n / 2)), hi(size_t(n) * (n / 2 + 1));
    for (auto _ : st) {
        for (int r = 0; r < n / 2; ++r) {
            const T* s0 = x.data() + size_t(2 * r) * n;
            T* h = hi.data() + size_t(r + 1) * n;
            if constexpr (sizeof(T) == 2)
                (Vec ? j2k::fwdLift53_16s : j2k::fwdLift53_16s_c)(s0, s0 + n, s0 + 2 * n, lo.data() + size_t(r) * n,
                                                                 h - n, h, n);
            else
                (Vec ? j2k::fwdLift53_32s : j2k::fwdLift53_32s_c)(s0, s0 + n, s0 + 2 * n, lo.data() + size_t(r) * n,
                                                                 h - n, h, n);
        }
        benchmark::ClobberMemory();
    }
    setBytes(st, double(n) * n, double(n) * n * sizeof(T));
}
BENCHMARK(BM_Lift53<int16_t, true>)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Lift53<int16_t, false>)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Lift53<int32_t, true>)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Lift53<int32_t, false>)->Arg(4096)->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ OpenJPEG anchor

#ifdef ZEB_HAVE_OPENJPEG
void quiet(const char*, void*) {}

opj_image_t* makeImage(int n) {
    opj_image_cmptparm_t p{};
    p.dx = p.dy = 1;
    p.w = p.h = static_cast<OPJ_UINT32>(n);
    p.prec = 8;
    p.sgnd = 0;
    opj_image_t* img = opj_image_create(1, &p, OPJ_CLRSPC_GRAY);
    img->x1 = img->y1 = static_cast<OPJ_UINT32>(n);
    std::mt19937 g(12);
    // A smooth picture with noise, so that coding does real work.
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
            img->comps[0].data[size_t(y) * n + x] = ((x + y) / 16 + static_cast<int>(g() % 16)) & 255;
    return img;
}

bool encodeToFile(opj_image_t* img, const std::string& path) {
    opj_cparameters_t par;
    opj_set_default_encoder_parameters(&par);
    par.tcp_numlayers = 1;
    par.tcp_rates[0] = 0;  // lossless
    par.cp_disto_alloc = 1;
    par.irreversible = 0;
    opj_codec_t* c = opj_create_compress(OPJ_CODEC_J2K);
    opj_set_info_handler(c, quiet, nullptr);
    opj_set_warning_handler(c, quiet, nullptr);
    opj_setup_encoder(c, &par, img);
    opj_stream_t* s = opj_stream_create_default_file_stream(path.c_str(), OPJ_FALSE);
    bool ok = opj_start_compress(c, img, s) && opj_encode(c, s) && opj_end_compress(c, s);
    opj_stream_destroy(s);
    opj_destroy_codec(c);
    return ok;
}

void BM_OpenJPEGLosslessEncode(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    opj_image_t* img = makeImage(n);
    const std::string path = "/tmp/zebjp_bench_anchor_enc.j2k";
    for (auto _ : st)
        if (!encodeToFile(img, path)) st.SkipWithError("encode failed");
    opj_image_destroy(img);
    std::remove(path.c_str());
    setBytes(st, double(n) * n, double(n) * n);
}
BENCHMARK(BM_OpenJPEGLosslessEncode)->Arg(2048)->Unit(benchmark::kMillisecond);

void BM_OpenJPEGLosslessDecode(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    opj_image_t* img = makeImage(n);
    const std::string path = "/tmp/zebjp_bench_anchor_dec.j2k";
    encodeToFile(img, path);
    opj_image_destroy(img);
    for (auto _ : st) {
        opj_dparameters_t par;
        opj_set_default_decoder_parameters(&par);
        opj_codec_t* c = opj_create_decompress(OPJ_CODEC_J2K);
        opj_set_info_handler(c, quiet, nullptr);
        opj_set_warning_handler(c, quiet, nullptr);
        opj_setup_decoder(c, &par);
        opj_stream_t* s = opj_stream_create_default_file_stream(path.c_str(), OPJ_TRUE);
        opj_image_t* out = nullptr;
        if (!opj_read_header(s, c, &out) || !opj_decode(c, s, out) || !opj_end_decompress(c, s))
            st.SkipWithError("decode failed");
        opj_image_destroy(out);
        opj_stream_destroy(s);
        opj_destroy_codec(c);
    }
    std::remove(path.c_str());
    setBytes(st, double(n) * n, double(n) * n);
}
BENCHMARK(BM_OpenJPEGLosslessDecode)->Arg(2048)->Unit(benchmark::kMillisecond);

// Our share of the same job: one 5/3 level of a 2048 x 2048 16-bit region.
BENCHMARK(BM_Level53<int16_t, true, true>)->Args({2048, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Level53<int32_t, true, true>)->Args({2048, 0})->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
