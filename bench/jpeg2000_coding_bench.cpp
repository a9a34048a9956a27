// Code-block encoder: load and store of every 64 x 64 code-block of a
// five-level reversible 5/3 decomposition of a photograph-like 8-bit image,
// single-threaded, against OpenJPEG's whole lossless encode of the same image
// with one thread (its block coder is most of that time). Also one typical
// 64 x 64 block on its own.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "zebcore.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_OPENJPEG
#include <openjpeg.h>
#endif

namespace {

// A smooth scene with edges, texture and sensor noise, as a photograph has.
std::vector<uint8_t> makeImage(int w, int h) {
    std::vector<uint8_t> img(static_cast<size_t>(w) * h);
    std::mt19937 g(1234);
    std::normal_distribution<double> noise(0.0, 2.0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double u = static_cast<double>(x) / w, v = static_cast<double>(y) / h;
            double s = 110 + 60 * std::sin(3.1 * u + 1.7 * v) + 35 * std::cos(7.3 * v * u + 2 * u);
            if ((u - 0.6) * (u - 0.6) + (v - 0.4) * (v - 0.4) < 0.04) s += 50;   // a bright disc
            if (u > 0.2 && u < 0.35 && v > 0.55) s -= 70;                         // a dark post
            s += 12 * std::sin(x * 0.9) * std::sin(y * 0.7) * (v > 0.7 ? 1 : 0.2);  // fine texture
            s += noise(g);
            img[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(std::lround(std::clamp(s, 0.0, 255.0)));
        }
    return img;
}

void fwd53(int32_t* x, int n, int stride, std::vector<int32_t>& tmp) {
    if (n < 2) return;
    tmp.resize(n);
    for (int i = 0; i < n; ++i) tmp[i] = x[i * stride];
    auto at = [&](int i) { return tmp[i < 0 ? -i : (i >= n ? 2 * (n - 1) - i : i)]; };
    for (int i = 1; i < n; i += 2) tmp[i] -= (at(i - 1) + at(i + 1)) >> 1;
    for (int i = 0; i < n; i += 2) tmp[i] += (at(i - 1) + at(i + 1) + 2) >> 2;
    // Deinterleave: low half first.
    const int nl = (n + 1) / 2;
    for (int i = 0; i < n; ++i) x[(i & 1 ? nl + i / 2 : i / 2) * stride] = tmp[i];
}

struct CodeBlock {
    const int32_t* src;
    int w, h, subband;
};

// The subbands of the whole image in sign-magnitude form, cut into 64 x 64
// code-blocks.
struct Decomposition {
    int w, h;
    std::vector<uint8_t> image;
    std::vector<int32_t> coef;
    std::vector<CodeBlock> blocks;
    int64_t symbols = 0, samples = 0;

    Decomposition(int width, int height) : w(width), h(height), image(makeImage(width, height)), coef(image.size()) {
        for (size_t i = 0; i < image.size(); ++i) coef[i] = image[i] - 128;
        std::vector<int32_t> tmp;
        int cw = w, ch = h;
        struct Band {
            int x0, y0, bw, bh, subband;
        };
        std::vector<Band> bands;
        for (int level = 0; level < 5; ++level) {
            for (int y = 0; y < ch; ++y) fwd53(&coef[static_cast<size_t>(y) * w], cw, 1, tmp);
            for (int x = 0; x < cw; ++x) fwd53(&coef[x], ch, w, tmp);
            const int lw = (cw + 1) / 2, lh = (ch + 1) / 2;
            bands.push_back({lw, 0, cw - lw, lh, zebJ2kSubbandHL});
            bands.push_back({0, lh, lw, ch - lh, 0});
            bands.push_back({lw, lh, cw - lw, ch - lh, zebJ2kSubbandHH});
            cw = lw;
            ch = lh;
        }
        bands.push_back({0, 0, cw, ch, 0});
        for (auto& v : coef) v = v < 0 ? static_cast<int32_t>(0x80000000u | static_cast<uint32_t>(-v)) : v;
        for (const Band& b : bands)
            for (int y = 0; y < b.bh; y += 64)
                for (int x = 0; x < b.bw; x += 64)
                    blocks.push_back({&coef[static_cast<size_t>(b.y0 + y) * w + b.x0 + x], std::min(64, b.bw - x),
                                      std::min(64, b.bh - y), b.subband});
        ZebJ2kEncodeState* st = nullptr;
        zebiEncodeInitAlloc_JPEG2K(&st, {64, 64});
        for (const CodeBlock& cb : blocks) {
            int S, P, G;
            zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(cb.src, 4 * w, {cb.w, cb.h}, st, cb.subband, 31, 0, 0, 0, &S, &P,
                                                   &G);
            symbols += st->coder->symbolsWritten;
            samples += int64_t{cb.w} * cb.h;
        }
        zebiEncodeFree_JPEG2K(st);
    }
};

Decomposition& decomposition(int size) {
    static Decomposition d1024(1024, 1024);
    if (size == 1024) return d1024;
    static Decomposition d4096(4096, 4096);
    return d4096;
}

void report(benchmark::State& s, int64_t blocks, int64_t symbols, int64_t samples) {
    const double it = static_cast<double>(s.iterations());
    s.counters["blocks/s"] = benchmark::Counter(blocks * it, benchmark::Counter::kIsRate);
    s.counters["symbols/s"] = benchmark::Counter(symbols * it, benchmark::Counter::kIsRate);
    s.counters["samples/s"] = benchmark::Counter(samples * it, benchmark::Counter::kIsRate);
}

void BM_EncodeAllCodeBlocks(benchmark::State& s) {
    Decomposition& d = decomposition(static_cast<int>(s.range(0)));
    ZebJ2kEncodeState* st = nullptr;
    zebiEncodeInitAlloc_JPEG2K(&st, {64, 64});
    std::vector<uint8_t> out(64 * 64 * 8);
    int64_t bytes = 0;
    for (auto _ : s) {
        bytes = 0;
        for (const CodeBlock& cb : d.blocks) {
            int S, P, G, more = 1;
            zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(cb.src, 4 * d.w, {cb.w, cb.h}, st, cb.subband, 31, 0, 0, 0, &S, &P,
                                                   &G);
            while (more) {
                int len = static_cast<int>(out.size());
                zebiEncodeStoreBits_JPEG2K_1u(out.data(), &len, st, &more);
                bytes += len;
            }
        }
        benchmark::DoNotOptimize(bytes);
    }
    s.counters["bytes"] = static_cast<double>(bytes);
    report(s, static_cast<int64_t>(d.blocks.size()), d.symbols, d.samples);
    zebiEncodeFree_JPEG2K(st);
}
BENCHMARK(BM_EncodeAllCodeBlocks)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond);

// Load only, and store only, of every block: where the time goes.
void BM_LoadAllCodeBlocks(benchmark::State& s) {
    Decomposition& d = decomposition(static_cast<int>(s.range(0)));
    ZebJ2kEncodeState* st = nullptr;
    zebiEncodeInitAlloc_JPEG2K(&st, {64, 64});
    for (auto _ : s) {
        for (const CodeBlock& cb : d.blocks) {
            int S, P, G;
            zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(cb.src, 4 * d.w, {cb.w, cb.h}, st, cb.subband, 31, 0, 0, 0, &S, &P,
                                                   &G);
            benchmark::DoNotOptimize(P);
        }
    }
    report(s, static_cast<int64_t>(d.blocks.size()), d.symbols, d.samples);
    zebiEncodeFree_JPEG2K(st);
}
BENCHMARK(BM_LoadAllCodeBlocks)->Arg(1024)->Unit(benchmark::kMillisecond);

// One typical 64 x 64 block: the first full block of the finest HL band.
void BM_EncodeBlock64(benchmark::State& s) {
    Decomposition& d = decomposition(1024);
    const CodeBlock* pick = nullptr;
    for (const CodeBlock& cb : d.blocks)
        if (cb.w == 64 && cb.h == 64 && cb.subband == zebJ2kSubbandHL) {
            pick = &cb;
            break;
        }
    ZebJ2kEncodeState* st = nullptr;
    zebiEncodeInitAlloc_JPEG2K(&st, {64, 64});
    std::vector<uint8_t> out(64 * 64 * 8);
    const int style = static_cast<int>(s.range(0));
    int64_t symbols = 0;
    for (auto _ : s) {
        int S, P, G, more = 1;
        zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(pick->src, 4 * d.w, {64, 64}, st, pick->subband, 31, 0, 0, style, &S,
                                               &P, &G);
        while (more) {
            int len = static_cast<int>(out.size());
            zebiEncodeStoreBits_JPEG2K_1u(out.data(), &len, st, &more);
        }
        symbols = st->coder->symbolsWritten;
    }
    report(s, 1, symbols, 64 * 64);
    zebiEncodeFree_JPEG2K(st);
}
BENCHMARK(BM_EncodeBlock64)->Arg(0)->Arg(zebJ2kBypass)->Arg(zebJ2kTermAll);

#ifdef ZEB_HAVE_OPENJPEG
// OpenJPEG: whole lossless encode (5/3, six resolutions, 64 x 64 blocks, one
// layer) into memory on the calling thread (OpenJPEG starts no worker
// threads unless asked to).
struct MemStream {
    std::vector<uint8_t> data;
    size_t pos = 0;
};
OPJ_SIZE_T memWrite(void* buf, OPJ_SIZE_T n, void* user) {
    auto* m = static_cast<MemStream*>(user);
    if (m->pos + n > m->data.size()) m->data.resize(m->pos + n);
    std::memcpy(m->data.data() + m->pos, buf, n);
    m->pos += n;
    return n;
}
OPJ_OFF_T memSkip(OPJ_OFF_T n, void* user) {
    auto* m = static_cast<MemStream*>(user);
    m->pos += static_cast<size_t>(n);
    if (m->pos > m->data.size()) m->data.resize(m->pos);
    return n;
}
OPJ_BOOL memSeek(OPJ_OFF_T n, void* user) {
    auto* m = static_cast<MemStream*>(user);
    m->pos = static_cast<size_t>(n);
    if (m->pos > m->data.size()) m->data.resize(m->pos);
    return OPJ_TRUE;
}

void BM_OpenJPEG_LosslessEncode(benchmark::State& s) {
    Decomposition& d = decomposition(static_cast<int>(s.range(0)));
    size_t bytes = 0;
    for (auto _ : s) {
        // The encoder may take over the image's sample buffer, so every
        // round gets a fresh image, made outside the timing.
        s.PauseTiming();
        opj_image_cmptparm_t cp{};
        cp.dx = cp.dy = 1;
        cp.w = static_cast<OPJ_UINT32>(d.w);
        cp.h = static_cast<OPJ_UINT32>(d.h);
        cp.prec = 8;
        cp.sgnd = 0;
        opj_image_t* image = opj_image_create(1, &cp, OPJ_CLRSPC_GRAY);
        image->x1 = static_cast<OPJ_UINT32>(d.w);
        image->y1 = static_cast<OPJ_UINT32>(d.h);
        for (size_t i = 0; i < d.image.size(); ++i) image->comps[0].data[i] = d.image[i];
        s.ResumeTiming();
        opj_cparameters_t p;
        opj_set_default_encoder_parameters(&p);
        p.tcp_numlayers = 1;
        p.tcp_rates[0] = 0;
        p.cp_disto_alloc = 1;
        p.numresolution = 6;
        p.cblockw_init = 64;
        p.cblockh_init = 64;
        opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
        opj_set_error_handler(codec, [](const char* msg, void*) { fprintf(stderr, "openjpeg: %s", msg); }, nullptr);
        if (!opj_setup_encoder(codec, &p, image)) {
            s.SkipWithError("encoder setup failed");
            opj_destroy_codec(codec);
            opj_image_destroy(image);
            break;
        }
        MemStream ms;
        opj_stream_t* stream = opj_stream_create(1 << 20, OPJ_FALSE);
        opj_stream_set_user_data(stream, &ms, nullptr);
        opj_stream_set_write_function(stream, memWrite);
        opj_stream_set_skip_function(stream, memSkip);
        opj_stream_set_seek_function(stream, memSeek);
        if (!opj_start_compress(codec, image, stream) || !opj_encode(codec, stream) ||
            !opj_end_compress(codec, stream))
            s.SkipWithError("encode failed");
        opj_stream_destroy(stream);
        opj_destroy_codec(codec);
        bytes = ms.data.size();
        benchmark::DoNotOptimize(bytes);
        s.PauseTiming();
        opj_image_destroy(image);
        s.ResumeTiming();
    }
    s.counters["bytes"] = static_cast<double>(bytes);
    report(s, static_cast<int64_t>(d.blocks.size()), d.symbols, d.samples);
}
BENCHMARK(BM_OpenJPEG_LosslessEncode)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
