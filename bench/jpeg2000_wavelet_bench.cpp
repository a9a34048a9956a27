// 9/7 wavelet levels and whole-tile wavelet drivers, single-threaded, with
// the scalar twins and memcpy of the same bytes in the same run; where
// OpenJPEG is linked, its whole-image decode of a 2048 x 2048 picture
// (reversible and irreversible) for scale.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "jpeg2000/transform/wavelet.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_OPENJPEG
#include <openjpeg.h>
#endif

namespace {

namespace j2k = zeb::j2k;

void samples(benchmark::State& st, double n) {
    st.counters["samples/s"] = benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate);
}

template <class T>
std::vector<T> randomPlane(size_t n, int amp) {
    std::vector<T> v(n);
    std::mt19937 g(7);
    for (auto& x : v) x = static_cast<T>(int(g() % (2 * amp + 1)) - amp);
    return v;
}

void BM_Memcpy(benchmark::State& st) {
    const size_t bytes = size_t(st.range(0));
    std::vector<uint8_t> a(bytes, 1), b(bytes);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), bytes);
        benchmark::DoNotOptimize(b.data());
    }
    st.SetBytesProcessed(int64_t(st.iterations()) * int64_t(bytes));
}
BENCHMARK(BM_Memcpy)->Arg(4096 * 4096 * 2)->Arg(4096 * 4096 * 4)->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ one 9/7 level, 32f
// Columns into two half-height planes, then rows of each into the quadrants.
// The planes carry margins so that every operation reads what it needs.
template <bool Vec, bool Fwd>
void BM_Level97_32f(benchmark::State& st) {
    const int n = int(st.range(0)), half = n / 2, m = 8;
    const int stride = n + 2 * m;
    std::vector<float> x = randomPlane<float>(size_t(stride) * (n + 2 * m), 255);
    std::vector<float> lo(size_t(stride) * (half + 2 * m)), hi(lo.size()), out(x.size());
    float* x0 = x.data() + size_t(m) * stride + m;
    float* l0 = lo.data() + size_t(m) * stride + m;
    float* h0 = hi.data() + size_t(m) * stride + m;
    const int bs = stride * 4;
    for (auto _ : st) {
        if (Fwd) {
            (Vec ? j2k::fwdCol97_32f : j2k::fwdCol97_32f_c)(x0, bs, l0, bs, h0, bs, n, half, 0);
            zebiWTFwdRow_D97_JPEG2K_32f_C1R(l0, bs, x0, bs, x0 + half, bs, ZebSize{half, half}, 0);
            zebiWTFwdRow_D97_JPEG2K_32f_C1R(h0, bs, x0 + size_t(half) * stride, bs, x0 + size_t(half) * stride + half,
                                            bs, ZebSize{half, half}, 0);
        } else {
            zebiWTInvRow_D97_JPEG2K_32f_C1R(x0, bs, x0 + half, bs, ZebSize{half, half}, l0, bs, 0);
            zebiWTInvRow_D97_JPEG2K_32f_C1R(x0 + size_t(half) * stride, bs, x0 + size_t(half) * stride + half, bs,
                                            ZebSize{half, half}, h0, bs, 0);
            (Vec ? j2k::invCol97_32f : j2k::invCol97_32f_c)(l0, bs, h0, bs, out.data() + size_t(m) * stride + m, bs, n,
                                                           half, 0);
        }
        benchmark::ClobberMemory();
    }
    samples(st, double(n) * n);
    st.SetBytesProcessed(int64_t(st.iterations()) * int64_t(n) * n * 4);
}
BENCHMARK(BM_Level97_32f<true, true>)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Level97_32f<false, true>)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Level97_32f<true, false>)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Level97_32f<false, false>)->Arg(4096)->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ one 9/7 level, 16s
// Rows through the row operation, columns through the lifting steps in a
// ring of rows (pointers rotate; the first and last rows are not mirrored,
// which does not change the work).
template <bool Vec>
void BM_Level97_16s(benchmark::State& st) {
    const int n = int(st.range(0)), half = n / 2, m = 8;
    const int stride = n + 2 * m;
    std::vector<int16_t> x = randomPlane<int16_t>(size_t(stride) * (n + 2 * m), 255);
    std::vector<int16_t> t(x.size());
    const int bs = stride * 2;
    auto row = [&](std::vector<int16_t>& v, int r) { return v.data() + size_t(m + r) * stride + m; };
    auto lift = Vec ? j2k::fwdLift97_16s : j2k::fwdLift97_16s_c;
    for (auto _ : st) {
        // Columns: row pair i reads x rows 2i..2i+2, keeps bands in t.
        for (int i = 0; i + 1 < half; ++i)
            lift(row(x, 2 * i), row(x, 2 * i + 1), row(x, 2 * i + 2), row(t, i), row(t, i + 1), row(t, half + i),
                 row(t, half + i + 1), row(t, half + i + 2), n);
        zebiWTFwdRow_D97_JPEG2K_16s_C1R(row(t, 0), bs, row(x, 0), bs, row(x, 0) + half, bs, ZebSize{half, n}, 0);
        benchmark::ClobberMemory();
    }
    samples(st, double(n) * n);
    st.SetBytesProcessed(int64_t(st.iterations()) * int64_t(n) * n * 2);
}
BENCHMARK(BM_Level97_16s<true>)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Level97_16s<false>)->Arg(4096)->Unit(benchmark::kMillisecond);

void BM_InvRows97_16s(benchmark::State& st) {
    const int n = int(st.range(0)), half = n / 2, m = 8;
    const int stride = n + 2 * m;
    std::vector<int16_t> x = randomPlane<int16_t>(size_t(stride) * (n + 2 * m), 255), y(x.size());
    const int bs = stride * 2;
    int16_t* x0 = x.data() + size_t(m) * stride + m;
    for (auto _ : st) {
        zebiWTInvRow_D97_JPEG2K_16s_C1R(x0, bs, x0 + half, bs, ZebSize{half, n}, y.data() + size_t(m) * stride + m, bs,
                                        0);
        benchmark::ClobberMemory();
    }
    samples(st, double(n) * n);
}
BENCHMARK(BM_InvRows97_16s)->Arg(4096)->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ rows and columns alone

template <class T, bool Vec, bool Fwd>
void BM_Rows97(benchmark::State& st) {
    const int n = int(st.range(0)), half = n / 2, m = 8, rows = 256;
    std::vector<T> x = randomPlane<T>(size_t(n + 2 * m) * rows, 255), y(x.size());
    for (auto _ : st) {
        for (int r = 0; r < rows; ++r) {
            T* xr = x.data() + size_t(r) * (n + 2 * m) + m;
            T* yr = y.data() + size_t(r) * (n + 2 * m) + m;
            if constexpr (std::is_same_v<T, float>) {
                if (Fwd) (Vec ? j2k::fwdRow97_32f : j2k::fwdRow97_32f_c)(xr, yr, yr + half, half, 0);
                else (Vec ? j2k::invRow97_32f : j2k::invRow97_32f_c)(xr, xr + half, yr, half, 0);
            } else {
                if (Fwd) (Vec ? j2k::fwdRow97_16s : j2k::fwdRow97_16s_c)(xr, yr, yr + half, half, 0);
                else (Vec ? j2k::invRow97_16s : j2k::invRow97_16s_c)(xr, xr + half, yr, half, 0);
            }
        }
        benchmark::ClobberMemory();
    }
    samples(st, double(n) * rows);
}
BENCHMARK(BM_Rows97<float, true, true>)->Arg(4096);
BENCHMARK(BM_Rows97<float, false, true>)->Arg(4096);
BENCHMARK(BM_Rows97<float, true, false>)->Arg(4096);
BENCHMARK(BM_Rows97<float, false, false>)->Arg(4096);
BENCHMARK(BM_Rows97<int16_t, true, true>)->Arg(4096);
BENCHMARK(BM_Rows97<int16_t, false, true>)->Arg(4096);
BENCHMARK(BM_Rows97<int16_t, true, false>)->Arg(4096);
BENCHMARK(BM_Rows97<int16_t, false, false>)->Arg(4096);

template <bool Vec, bool Fwd>
void BM_Cols97(benchmark::State& st) {
    const int n = int(st.range(0)), half = n / 2, m = 8;
    const int stride = n + 2 * m, bs = stride * 4;
    std::vector<float> x = randomPlane<float>(size_t(stride) * (n + 2 * m), 255), y(x.size());
    float* x0 = x.data() + size_t(m) * stride + m;
    float* y0 = y.data() + size_t(m) * stride + m;
    for (auto _ : st) {
        if (Fwd) (Vec ? j2k::fwdCol97_32f : j2k::fwdCol97_32f_c)(x0, bs, y0, bs, y0 + size_t(half) * stride, bs, n, half, 0);
        else (Vec ? j2k::invCol97_32f : j2k::invCol97_32f_c)(x0, bs, x0 + size_t(half) * stride, bs, y0, bs, n, half, 0);
        benchmark::ClobberMemory();
    }
    samples(st, double(n) * n);
}
BENCHMARK(BM_Cols97<true, true>)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Cols97<false, true>)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Cols97<true, false>)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Cols97<false, false>)->Arg(2048)->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ lifting steps

template <class T, bool Vec>
void BM_Lift97(benchmark::State& st) {
    const int w = int(st.range(0));
    std::vector<std::vector<T>> r(8, randomPlane<T>(size_t(w), 200));
    using F = void (*)(const T*, const T*, const T*, T*, T*, T*, T*, T*, int32_t);
    F f;
    if constexpr (std::is_same_v<T, float>) f = Vec ? j2k::fwdLift97_32f : j2k::fwdLift97_32f_c;
    else f = Vec ? j2k::fwdLift97_16s : j2k::fwdLift97_16s_c;
    for (auto _ : st) {
        for (int k = 0; k < 64; ++k)
            f(r[0].data(), r[1].data(), r[2].data(), r[3].data(), r[4].data(), r[5].data(), r[6].data(), r[7].data(), w);
        benchmark::ClobberMemory();
    }
    samples(st, 64.0 * w * 2);
}
BENCHMARK(BM_Lift97<float, true>)->Arg(4096);
BENCHMARK(BM_Lift97<float, false>)->Arg(4096);
BENCHMARK(BM_Lift97<int16_t, true>)->Arg(4096);
BENCHMARK(BM_Lift97<int16_t, false>)->Arg(4096);

// ------------------------------------------------------------ whole-tile drivers
// Levels in place, LL fed into the next level, then the inverse levels.
template <class T>
using DrvFn = ZebStatus (*)(T*, int, const ZebTileRect*, Zeb8u*);

template <class T>
void tile(benchmark::State& st, DrvFn<T> fwd, DrvFn<T> inv, ZebStatus (*size)(const ZebTileRect*, int*), bool forward) {
    const int n = int(st.range(0)), levels = int(st.range(1));
    std::vector<T> img = randomPlane<T>(size_t(n) * n, 128), work(img.size());
    ZebTileRect full{0, 0, n, n};
    int bsz = 0;
    size(&full, &bsz);
    std::vector<uint8_t> buf(size_t(bsz) + 64);
    double count = 0;
    for (int l = 0, w = n; l < levels; ++l, w = (w + 1) / 2) count += double(w) * w;
    if (!forward) {
        work = img;
        for (int l = 0, w = n; l < levels; ++l, w = (w + 1) / 2) {
            ZebTileRect r{0, 0, w, w};
            fwd(work.data(), n * int(sizeof(T)), &r, buf.data());
        }
        img = work;
    }
    for (auto _ : st) {
        st.PauseTiming();
        work = img;
        st.ResumeTiming();
        if (forward) {
            for (int l = 0, w = n; l < levels; ++l, w = (w + 1) / 2) {
                ZebTileRect r{0, 0, w, w};
                fwd(work.data(), n * int(sizeof(T)), &r, buf.data());
            }
        } else {
            std::vector<int> sizes;
            for (int l = 0, w = n; l < levels; ++l, w = (w + 1) / 2) sizes.push_back(w);
            for (int l = levels - 1; l >= 0; --l) {
                ZebTileRect r{0, 0, sizes[l], sizes[l]};
                inv(work.data(), n * int(sizeof(T)), &r, buf.data());
            }
        }
        benchmark::ClobberMemory();
    }
    samples(st, count);
}

void BM_Tile53_16s_Fwd(benchmark::State& st) {
    tile<Zeb16s>(st, zebiWTFwd_B53_JPEG2K_16s_C1IR, zebiWTInv_B53_JPEG2K_16s_C1IR, zebiWTGetBufSize_B53_JPEG2K_16s_C1IR, true);
}
void BM_Tile53_32s_Fwd(benchmark::State& st) {
    tile<Zeb32s>(st, zebiWTFwd_B53_JPEG2K_32s_C1IR, zebiWTInv_B53_JPEG2K_32s_C1IR, zebiWTGetBufSize_B53_JPEG2K_32s_C1IR, true);
}
void BM_Tile53_32s_Inv(benchmark::State& st) {
    tile<Zeb32s>(st, zebiWTFwd_B53_JPEG2K_32s_C1IR, zebiWTInv_B53_JPEG2K_32s_C1IR, zebiWTGetBufSize_B53_JPEG2K_32s_C1IR, false);
}
void BM_Tile97_16s_Fwd(benchmark::State& st) {
    tile<Zeb16s>(st, zebiWTFwd_D97_JPEG2K_16s_C1IR, zebiWTInv_D97_JPEG2K_16s_C1IR, zebiWTGetBufSize_D97_JPEG2K_16s_C1IR, true);
}
void BM_Tile97_32s_Fwd(benchmark::State& st) {
    tile<Zeb32s>(st, zebiWTFwd_D97_JPEG2K_32s_C1IR, zebiWTInv_D97_JPEG2K_32s_C1IR, zebiWTGetBufSize_D97_JPEG2K_32s_C1IR, true);
}
void BM_Tile97_32s_Inv(benchmark::State& st) {
    tile<Zeb32s>(st, zebiWTFwd_D97_JPEG2K_32s_C1IR, zebiWTInv_D97_JPEG2K_32s_C1IR, zebiWTGetBufSize_D97_JPEG2K_32s_C1IR, false);
}
BENCHMARK(BM_Tile53_16s_Fwd)->Args({2048, 5})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tile53_32s_Fwd)->Args({2048, 5})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tile53_32s_Inv)->Args({2048, 5})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tile97_16s_Fwd)->Args({2048, 5})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tile97_32s_Fwd)->Args({2048, 5})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tile97_32s_Inv)->Args({2048, 5})->Unit(benchmark::kMillisecond);

// ------------------------------------------------------------ OpenJPEG anchor

#ifdef ZEB_HAVE_OPENJPEG
void quiet(const char*, void*) {}

opj_image_t* makeImage(int n) {
    opj_image_cmptparm_t p{};
    p.dx = p.dy = 1;
    p.w = p.h = static_cast<OPJ_UINT32>(n);
    p.prec = 8;
    opj_image_t* img = opj_image_create(1, &p, OPJ_CLRSPC_GRAY);
    img->x1 = img->y1 = static_cast<OPJ_UINT32>(n);
    std::mt19937 g(12);
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
            img->comps[0].data[size_t(y) * n + x] = ((x + y) / 16 + static_cast<int>(g() % 16)) & 255;
    return img;
}

bool encodeToFile(opj_image_t* img, const std::string& path, bool irreversible) {
    opj_cparameters_t par;
    opj_set_default_encoder_parameters(&par);
    par.tcp_numlayers = 1;
    par.tcp_rates[0] = irreversible ? 10 : 0;
    par.cp_disto_alloc = 1;
    par.irreversible = irreversible ? 1 : 0;
    par.numresolution = 6;
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

// Whole-image decode (entropy decoding, 5 levels of inverse wavelet, level
// shift) of a 2048 x 2048 grey picture, one thread.
void BM_OpenJPEGDecode(benchmark::State& st) {
    const int n = int(st.range(0));
    const bool irr = st.range(1) != 0;
    opj_image_t* img = makeImage(n);
    const std::string path = std::string("/tmp/zebjp_wavelet_anchor_") + (irr ? "97" : "53") + ".j2k";
    encodeToFile(img, path, irr);
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
    samples(st, double(n) * n);
}
BENCHMARK(BM_OpenJPEGDecode)->Args({2048, 0})->Args({2048, 1})->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
