// Code-block decoders: every 64 x 64 code-block of a five-level reversible
// 5/3 decomposition of a photograph (the bundled astronaut, as grey), and of
// a 4096 x 4096 image tiled from it, decoded single-threaded with the
// one-call decoder. Anchor in the same run: OpenJPEG's whole lossless decode
// on the calling thread (no worker threads) of its own codestream of the same
// image with the same parameters (5/3, six resolutions, 64 x 64 blocks, one
// layer), whose block decoding is most of its time. Also one typical block
// per code style.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "zebcore.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_PNG
#include <png.h>
#endif
#ifdef ZEB_HAVE_OPENJPEG
#include <openjpeg.h>
#endif

namespace {

struct Grey {
    int w = 0, h = 0;
    std::vector<uint8_t> px;
};

// The bundled photograph as grey; a synthetic scene if it cannot be read.
Grey loadPhoto() {
    Grey g;
#ifdef ZEB_HAVE_PNG
    png_image img;
    std::memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    const std::string path = std::string(ZEB_SOURCE_DIR) + "/data/astronaut.png";
    if (png_image_begin_read_from_file(&img, path.c_str())) {
        img.format = PNG_FORMAT_GRAY;
        g.w = static_cast<int>(img.width);
        g.h = static_cast<int>(img.height);
        g.px.resize(PNG_IMAGE_SIZE(img));
        if (png_image_finish_read(&img, nullptr, g.px.data(), 0, nullptr)) return g;
        png_image_free(&img);
    }
#endif
    std::fprintf(stderr, "photograph not read; using a synthetic scene\n");
    g.w = g.h = 512;
    g.px.resize(512 * 512);
    std::mt19937 r(1);
    std::normal_distribution<double> noise(0.0, 2.0);
    for (int y = 0; y < 512; ++y)
        for (int x = 0; x < 512; ++x) {
            const double u = x / 512.0, v = y / 512.0;
            const double s = 110 + 60 * std::sin(3.1 * u + 1.7 * v) + 35 * std::cos(7.3 * v * u + 2 * u) +
                             12 * std::sin(x * 0.9) * std::sin(y * 0.7) + noise(r);
            g.px[static_cast<size_t>(y) * 512 + x] = static_cast<uint8_t>(std::lround(std::clamp(s, 0.0, 255.0)));
        }
    return g;
}

// The photograph mirrored out to size x size.
Grey tiled(const Grey& p, int size) {
    Grey g{size, size, std::vector<uint8_t>(static_cast<size_t>(size) * size)};
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            int sx = x % (2 * p.w), sy = y % (2 * p.h);
            if (sx >= p.w) sx = 2 * p.w - 1 - sx;
            if (sy >= p.h) sy = 2 * p.h - 1 - sy;
            g.px[static_cast<size_t>(y) * size + x] = p.px[static_cast<size_t>(sy) * p.w + sx];
        }
    return g;
}

void fwd53(int32_t* x, int n, int stride, std::vector<int32_t>& tmp) {
    if (n < 2) return;
    tmp.resize(n);
    for (int i = 0; i < n; ++i) tmp[i] = x[i * stride];
    auto at = [&](int i) { return tmp[i < 0 ? -i : (i >= n ? 2 * (n - 1) - i : i)]; };
    for (int i = 1; i < n; i += 2) tmp[i] -= (at(i - 1) + at(i + 1)) >> 1;
    for (int i = 0; i < n; i += 2) tmp[i] += (at(i - 1) + at(i + 1) + 2) >> 2;
    const int nl = (n + 1) / 2;
    for (int i = 0; i < n; ++i) x[(i & 1 ? nl + i / 2 : i / 2) * stride] = tmp[i];
}

struct CodedBlock {
    int w, h, subband, S, passes;
    int64_t symbols;
    size_t offset;
    std::vector<int> segLens;
};

// The image's code-blocks, coded by the library's encoder with one style.
struct Coded {
    Grey image;
    std::vector<CodedBlock> blocks;
    std::vector<uint8_t> bytes;
    int64_t symbols = 0, samples = 0;

    Coded(Grey img, int style) : image(std::move(img)) {
        const int w = image.w, h = image.h;
        std::vector<int32_t> coef(image.px.size());
        for (size_t i = 0; i < coef.size(); ++i) coef[i] = image.px[i] - 128;
        std::vector<int32_t> tmp;
        struct Band {
            int x0, y0, bw, bh, subband;
        };
        std::vector<Band> bands;
        int cw = w, ch = h;
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
        ZebJ2kEncodeState* st = nullptr;
        zebiEncodeInitAlloc_JPEG2K(&st, {64, 64});
        std::vector<uint8_t> buf(64 * 64 * 8);
        for (const Band& b : bands)
            for (int y = 0; y < b.bh; y += 64)
                for (int x = 0; x < b.bw; x += 64) {
                    CodedBlock cb{std::min(64, b.bw - x), std::min(64, b.bh - y), b.subband, 0, 0, 0, bytes.size(), {}};
                    int segs = 0;
                    zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(&coef[static_cast<size_t>(b.y0 + y) * w + b.x0 + x], 4 * w,
                                                           {cb.w, cb.h}, st, cb.subband, 31, 0, 0, style, &cb.S,
                                                           &cb.passes, &segs);
                    cb.symbols = st->coder->symbolsWritten;
                    symbols += cb.symbols;
                    samples += int64_t{cb.w} * cb.h;
                    for (int more = 1; more;) {
                        int len = static_cast<int>(buf.size());
                        zebiEncodeStoreBits_JPEG2K_1u(buf.data(), &len, st, &more);
                        bytes.insert(bytes.end(), buf.begin(), buf.begin() + len);
                    }
                    for (int s = 0; s < segs && cb.passes > 0; ++s) {
                        int len = 0;
                        zebiEncodeGetTermPassLen_JPEG2K(st, s, &len);
                        cb.segLens.push_back(len);
                    }
                    if (cb.segLens.empty()) cb.segLens.push_back(0);
                    blocks.push_back(std::move(cb));
                }
        zebiEncodeFree_JPEG2K(st);
    }
};

const Grey& photo() {
    static Grey p = loadPhoto();
    return p;
}

Coded& coded(int size, int style = 0) {
    static Coded photo0(photo(), 0);
    static Coded big(tiled(photo(), 4096), 0);
    static Coded photoBypass(photo(), zebJ2kBypass);
    static Coded photoTermAll(photo(), zebJ2kTermAll);
    if (size != 4096 && style == zebJ2kBypass) return photoBypass;
    if (size != 4096 && style == zebJ2kTermAll) return photoTermAll;
    return size == 4096 ? big : photo0;
}

void report(benchmark::State& s, int64_t blocks, int64_t symbols, int64_t samples) {
    const double it = static_cast<double>(s.iterations());
    s.counters["blocks/s"] = benchmark::Counter(blocks * it, benchmark::Counter::kIsRate);
    s.counters["symbols/s"] = benchmark::Counter(symbols * it, benchmark::Counter::kIsRate);
    s.counters["samples/s"] = benchmark::Counter(samples * it, benchmark::Counter::kIsRate);
}

// Every code-block of the image, one call each, into one 64 x 64 buffer.
void BM_DecodeAllCodeBlocks(benchmark::State& s) {
    const int style = static_cast<int>(s.range(1));
    Coded& c = coded(static_cast<int>(s.range(0)), style);
    int size = 0;
    zebiDecodeGetBufSize_JPEG2K({64, 64}, &size);
    std::vector<uint64_t> mem(static_cast<size_t>(size) / 8 + 1);
    auto* st = reinterpret_cast<ZebJ2kDecodeState*>(mem.data());
    std::vector<int32_t> out(64 * 64);
    for (auto _ : s) {
        for (const CodedBlock& b : c.blocks) {
            zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(c.bytes.data() + b.offset, out.data(), 4 * b.w, {b.w, b.h},
                                                 b.subband, b.S, b.passes, b.segLens.data(),
                                                 static_cast<int>(b.segLens.size()), style, nullptr, st);
            benchmark::DoNotOptimize(out.data());
        }
    }
    report(s, static_cast<int64_t>(c.blocks.size()), c.symbols, c.samples);
}
BENCHMARK(BM_DecodeAllCodeBlocks)
    ->Args({512, 0})
    ->Args({512, zebJ2kBypass})
    ->Args({512, zebJ2kTermAll})
    ->Args({4096, 0})
    ->Unit(benchmark::kMillisecond);

// One typical block: the first full 64 x 64 block of the finest HL band.
void BM_DecodeBlock64(benchmark::State& s) {
    const int style = static_cast<int>(s.range(0));
    Coded& c = coded(512, style);
    const CodedBlock* pick = nullptr;
    for (const CodedBlock& b : c.blocks)
        if (b.w == 64 && b.h == 64 && b.subband == zebJ2kSubbandHL) {
            pick = &b;
            break;
        }
    int size = 0;
    zebiDecodeGetBufSize_JPEG2K({64, 64}, &size);
    std::vector<uint64_t> mem(static_cast<size_t>(size) / 8 + 1);
    auto* st = reinterpret_cast<ZebJ2kDecodeState*>(mem.data());
    std::vector<int32_t> out(64 * 64);
    for (auto _ : s) {
        zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(c.bytes.data() + pick->offset, out.data(), 256, {64, 64},
                                             pick->subband, pick->S, pick->passes, pick->segLens.data(),
                                             static_cast<int>(pick->segLens.size()), style, nullptr, st);
        benchmark::DoNotOptimize(out.data());
    }
    report(s, 1, pick->symbols, 64 * 64);
}
BENCHMARK(BM_DecodeBlock64)->Arg(0)->Arg(zebJ2kBypass)->Arg(zebJ2kTermAll);

#ifdef ZEB_HAVE_OPENJPEG
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
OPJ_SIZE_T memRead(void* buf, OPJ_SIZE_T n, void* user) {
    auto* m = static_cast<MemStream*>(user);
    if (m->pos >= m->data.size()) return static_cast<OPJ_SIZE_T>(-1);
    n = std::min<OPJ_SIZE_T>(n, m->data.size() - m->pos);
    std::memcpy(buf, m->data.data() + m->pos, n);
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
    return OPJ_TRUE;
}

// OpenJPEG's lossless codestream of the image: 5/3, six resolutions, 64 x 64
// blocks, one layer.
std::vector<uint8_t> openJpegCodestream(const Grey& g) {
    opj_image_cmptparm_t cp{};
    cp.dx = cp.dy = 1;
    cp.w = static_cast<OPJ_UINT32>(g.w);
    cp.h = static_cast<OPJ_UINT32>(g.h);
    cp.prec = 8;
    opj_image_t* image = opj_image_create(1, &cp, OPJ_CLRSPC_GRAY);
    image->x1 = cp.w;
    image->y1 = cp.h;
    for (size_t i = 0; i < g.px.size(); ++i) image->comps[0].data[i] = g.px[i];
    opj_cparameters_t p;
    opj_set_default_encoder_parameters(&p);
    p.tcp_numlayers = 1;
    p.tcp_rates[0] = 0;
    p.cp_disto_alloc = 1;
    p.numresolution = 6;
    p.cblockw_init = 64;
    p.cblockh_init = 64;
    opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
    MemStream ms;
    if (opj_setup_encoder(codec, &p, image)) {
        opj_stream_t* stream = opj_stream_create(1 << 20, OPJ_FALSE);
        opj_stream_set_user_data(stream, &ms, nullptr);
        opj_stream_set_write_function(stream, memWrite);
        opj_stream_set_skip_function(stream, memSkip);
        opj_stream_set_seek_function(stream, memSeek);
        if (!opj_start_compress(codec, image, stream) || !opj_encode(codec, stream) ||
            !opj_end_compress(codec, stream))
            ms.data.clear();
        opj_stream_destroy(stream);
    }
    opj_destroy_codec(codec);
    opj_image_destroy(image);
    return ms.data;
}

void BM_OpenJPEG_LosslessDecode(benchmark::State& s) {
    Coded& c = coded(static_cast<int>(s.range(0)));
    static std::vector<uint8_t> cs512, cs4096;
    std::vector<uint8_t>& cs = s.range(0) == 4096 ? cs4096 : cs512;
    if (cs.empty()) cs = openJpegCodestream(c.image);
    if (cs.empty()) {
        s.SkipWithError("OpenJPEG encode failed");
        return;
    }
    for (auto _ : s) {
        MemStream ms{cs, 0};
        opj_dparameters_t p;
        opj_set_default_decoder_parameters(&p);
        opj_codec_t* codec = opj_create_decompress(OPJ_CODEC_J2K);
        opj_setup_decoder(codec, &p);
        opj_stream_t* stream = opj_stream_create(1 << 20, OPJ_TRUE);
        opj_stream_set_user_data(stream, &ms, nullptr);
        opj_stream_set_user_data_length(stream, ms.data.size());
        opj_stream_set_read_function(stream, memRead);
        opj_stream_set_skip_function(stream, memSkip);
        opj_stream_set_seek_function(stream, memSeek);
        opj_image_t* image = nullptr;
        if (!opj_read_header(stream, codec, &image) || !opj_decode(codec, stream, image) ||
            !opj_end_decompress(codec, stream))
            s.SkipWithError("OpenJPEG decode failed");
        benchmark::DoNotOptimize(image);
        opj_image_destroy(image);
        opj_stream_destroy(stream);
        opj_destroy_codec(codec);
    }
    s.counters["bytes"] = static_cast<double>(cs.size());
    report(s, static_cast<int64_t>(c.blocks.size()), c.symbols, c.samples);
}
BENCHMARK(BM_OpenJPEG_LosslessDecode)->Arg(512)->Arg(4096)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
