// Whole-image baseline JPEG encode and decode through the JPEG tool's codec
// (examples/jpeg), single-threaded, on the bundled astronaut photograph and
// on a 4096x4096 image made of mirrored tiles of it, at quality 75 and 90,
// 4:2:0 and 4:4:4. Anchor in the same run: libjpeg-turbo's in-memory
// compress and decompress of the same pixels at the same quality and
// sampling (its default integer DCT and standard Huffman tables, as ours).
// Progressive: both decoders read the same file, libjpeg-turbo's in-memory
// progressive encode (its default scan script, optimal tables); our
// progressive encode is timed beside it.
// Throughput is in pixels per second; "bytes" is the compressed size.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "zebcore.h"

#ifdef ZEB_HAVE_CODEC
#include "codec.h"
#include "image_io.h"
#endif
#ifdef ZEB_HAVE_JPEG
#include <jpeglib.h>
#endif

namespace {

#ifdef ZEB_HAVE_CODEC

struct Picture {
    int w = 0, h = 0;
    std::vector<uint8_t> rgb;
};

const Picture& picture(int which) {
    static Picture photo, large;
    if (photo.w == 0) {
        zebex::Image img = zebex::readImage(std::string(ZEB_SOURCE_DIR) + "/data/astronaut.png");
        photo.w = img.width;
        photo.h = img.height;
        photo.rgb.resize(size_t(img.width) * img.height * 3);
        for (size_t i = 0; i < size_t(img.width) * img.height; ++i)
            for (int c = 0; c < 3; ++c) photo.rgb[3 * i + c] = img.data8[i * img.channels + (img.channels == 3 ? c : 0)];
        // Mirrored tiles keep the content continuous at the seams.
        large.w = large.h = 4096;
        large.rgb.resize(size_t(4096) * 4096 * 3);
        for (int y = 0; y < 4096; ++y) {
            int sy = y % (2 * photo.h);
            if (sy >= photo.h) sy = 2 * photo.h - 1 - sy;
            for (int x = 0; x < 4096; ++x) {
                int sx = x % (2 * photo.w);
                if (sx >= photo.w) sx = 2 * photo.w - 1 - sx;
                std::memcpy(&large.rgb[(size_t(y) * 4096 + x) * 3], &photo.rgb[(size_t(sy) * photo.w + sx) * 3], 3);
            }
        }
    }
    return which ? large : photo;
}

zebjpeg::Sampling sampling(int s) { return s == 444 ? zebjpeg::Sampling::s444 : zebjpeg::Sampling::s420; }

void setLabel(benchmark::State& st, const Picture& p, size_t bytes) {
    st.SetItemsProcessed(int64_t(st.iterations()) * p.w * p.h);
    st.counters["bytes"] = double(bytes);
}

// Arguments: picture (0 photo, 1 4096x4096), quality, sampling (420/444).
void BM_Zeb_Encode(benchmark::State& st) {
    zebcoreSetNumThreads(1);
    const Picture& p = picture(int(st.range(0)));
    zebjpeg::EncodeOptions opt;
    opt.quality = int(st.range(1));
    opt.sampling = sampling(int(st.range(2)));
    size_t bytes = 0;
    for (auto _ : st) {
        auto out = zebjpeg::encode(p.rgb.data(), size_t(p.w) * 3, p.w, p.h, 3, opt);
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    setLabel(st, p, bytes);
    zebcoreSetNumThreads(0);
}

void BM_Zeb_Decode(benchmark::State& st) {
    zebcoreSetNumThreads(1);
    const Picture& p = picture(int(st.range(0)));
    zebjpeg::EncodeOptions opt;
    opt.quality = int(st.range(1));
    opt.sampling = sampling(int(st.range(2)));
    auto file = zebjpeg::encode(p.rgb.data(), size_t(p.w) * 3, p.w, p.h, 3, opt);
    zebjpeg::Raster r;  // pixel storage reused, as libjpeg-turbo's below
    for (auto _ : st) {
        zebjpeg::decode(file.data(), file.size(), r);
        benchmark::DoNotOptimize(r.pixels.data());
    }
    setLabel(st, p, file.size());
    zebcoreSetNumThreads(0);
}

#ifdef ZEB_HAVE_JPEG
std::vector<uint8_t> turboEncode(const Picture& p, int quality, int samp, bool progressive = false) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* mem = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &mem, &size);
    c.image_width = JDIMENSION(p.w);
    c.image_height = JDIMENSION(p.h);
    c.input_components = 3;
    c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    c.comp_info[0].h_samp_factor = c.comp_info[0].v_samp_factor = samp == 444 ? 1 : 2;
    if (progressive) jpeg_simple_progression(&c);
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(&p.rgb[size_t(c.next_scanline) * p.w * 3]);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::vector<uint8_t> out(mem, mem + size);
    free(mem);
    return out;
}

void BM_Turbo_Encode(benchmark::State& st) {
    const Picture& p = picture(int(st.range(0)));
    size_t bytes = 0;
    for (auto _ : st) {
        auto out = turboEncode(p, int(st.range(1)), int(st.range(2)));
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    setLabel(st, p, bytes);
}

void turboDecode(benchmark::State& st, bool progressive) {
    const Picture& p = picture(int(st.range(0)));
    auto file = turboEncode(p, int(st.range(1)), int(st.range(2)), progressive);
    std::vector<uint8_t> pixels(size_t(p.w) * p.h * 3);
    for (auto _ : st) {
        jpeg_decompress_struct d;
        jpeg_error_mgr err;
        d.err = jpeg_std_error(&err);
        jpeg_create_decompress(&d);
        jpeg_mem_src(&d, file.data(), (unsigned long)file.size());
        jpeg_read_header(&d, TRUE);
        d.out_color_space = JCS_RGB;
        jpeg_start_decompress(&d);
        while (d.output_scanline < d.output_height) {
            JSAMPROW row = &pixels[size_t(d.output_scanline) * p.w * 3];
            jpeg_read_scanlines(&d, &row, 1);
        }
        jpeg_finish_decompress(&d);
        jpeg_destroy_decompress(&d);
        benchmark::DoNotOptimize(pixels.data());
    }
    setLabel(st, p, file.size());
}

void BM_Turbo_Decode(benchmark::State& st) { turboDecode(st, false); }
void BM_Turbo_DecodeProgressive(benchmark::State& st) { turboDecode(st, true); }

// Our decode of libjpeg-turbo's progressive file.
void BM_Zeb_DecodeProgressive(benchmark::State& st) {
    zebcoreSetNumThreads(1);
    const Picture& p = picture(int(st.range(0)));
    auto file = turboEncode(p, int(st.range(1)), int(st.range(2)), true);
    zebjpeg::Raster r;
    for (auto _ : st) {
        zebjpeg::decode(file.data(), file.size(), r);
        benchmark::DoNotOptimize(r.pixels.data());
    }
    setLabel(st, p, file.size());
    zebcoreSetNumThreads(0);
}

void BM_Turbo_EncodeProgressive(benchmark::State& st) {
    const Picture& p = picture(int(st.range(0)));
    size_t bytes = 0;
    for (auto _ : st) {
        auto out = turboEncode(p, int(st.range(1)), int(st.range(2)), true);
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    setLabel(st, p, bytes);
}
#endif

void BM_Zeb_EncodeProgressive(benchmark::State& st) {
    zebcoreSetNumThreads(1);
    const Picture& p = picture(int(st.range(0)));
    zebjpeg::EncodeOptions opt;
    opt.quality = int(st.range(1));
    opt.sampling = sampling(int(st.range(2)));
    opt.progressive = true;
    size_t bytes = 0;
    for (auto _ : st) {
        auto out = zebjpeg::encode(p.rgb.data(), size_t(p.w) * 3, p.w, p.h, 3, opt);
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    setLabel(st, p, bytes);
    zebcoreSetNumThreads(0);
}

void progressiveCases(benchmark::internal::Benchmark* b) {
    b->ArgNames({"img", "q", "samp"});
    for (int img : {0, 1})
        for (int q : {75, 90}) b->Args({img, q, 420});
    b->Unit(benchmark::kMillisecond);
}

void cases(benchmark::internal::Benchmark* b) {
    b->ArgNames({"img", "q", "samp"});
    for (int img : {0, 1})
        for (int q : {75, 90})
            for (int s : {420, 444}) b->Args({img, q, s});
    b->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_Zeb_Encode)->Apply(cases);
#ifdef ZEB_HAVE_JPEG
BENCHMARK(BM_Turbo_Encode)->Apply(cases);
#endif
BENCHMARK(BM_Zeb_Decode)->Apply(cases);
#ifdef ZEB_HAVE_JPEG
BENCHMARK(BM_Turbo_Decode)->Apply(cases);
#endif
#ifdef ZEB_HAVE_JPEG
BENCHMARK(BM_Zeb_DecodeProgressive)->Apply(progressiveCases);
BENCHMARK(BM_Turbo_DecodeProgressive)->Apply(progressiveCases);
BENCHMARK(BM_Turbo_EncodeProgressive)->Apply(progressiveCases);
#endif
BENCHMARK(BM_Zeb_EncodeProgressive)->Apply(progressiveCases);

#endif  // ZEB_HAVE_CODEC

}  // namespace

BENCHMARK_MAIN();
