// MCU operations: RGB pixels to level-shifted blocks and back, one call per
// MCU over a 1920x1088 image, in MCUs and megapixels per second. The aligned
// calls take the vector forms, the calls with a misaligned plane the plain
// element forms. Anchors in the same run: memcpy of the bytes an MCU call
// reads and writes, and libjpeg-turbo's encoder and decoder with and without
// their colour step (raw data in and out, no fancy up-sampling), whose
// difference is the time its colour conversion and re-sampling take.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "zebjp.h"

#ifdef ZEB_HAVE_JPEG
#include <jpeglib.h>
#endif

namespace {

constexpr int kW = 1920, kH = 1088;

struct Image {
    std::vector<uint8_t> rgb, out, y, cb, cr, y2, cb2, cr2;
    Image() {
        rgb.resize(static_cast<size_t>(kW) * kH * 3);
        out.resize(rgb.size());
        y.resize(static_cast<size_t>(kW) * kH);
        cb.resize(y.size());
        cr.resize(y.size());
        std::mt19937 g(7);
        // A smooth picture with some noise, like camera content.
        for (int yy = 0; yy < kH; ++yy)
            for (int x = 0; x < kW; ++x) {
                uint8_t* p = rgb.data() + (static_cast<size_t>(yy) * kW + x) * 3;
                p[0] = static_cast<uint8_t>((x * 255 / kW + (g() & 15)) & 255);
                p[1] = static_cast<uint8_t>((yy * 255 / kH + (g() & 15)) & 255);
                p[2] = static_cast<uint8_t>(((x + yy) * 127 / (kW + kH) + 64 + (g() & 7)) & 255);
            }
        // Planes for the anchors' raw-data paths: full-resolution and 4:2:0
        // chroma (rows kW apart in both), so that they code the same picture.
        y2.resize(y.size());
        cb2.resize(y.size());
        cr2.resize(y.size());
        Zeb8u* const full[3] = {y.data(), cb.data(), cr.data()};
        zebiRGBToYCbCr_JPEG_8u_C3P3R(rgb.data(), 3 * kW, full, kW, ZebSize{kW, kH});
        Zeb8u* const half[3] = {y2.data(), cb2.data(), cr2.data()};
        const int steps[3] = {kW, kW, kW};
        zebiRGBToYCbCr411_JPEG_8u_C3P3R(rgb.data(), 3 * kW, half, steps, ZebSize{kW, kH});
    }
};

Image& image() {
    static Image im;
    return im;
}

// Block storage for the whole image: each plane 64-byte aligned, plane 0
// optionally moved by a few bytes so that it is misaligned.
struct BlockStore {
    std::vector<int16_t*> owned;
    int16_t *y, *cb, *cr;
    BlockStore(int mcuW, int mcuH, int lumaPerMcu, int misalign) {
        const size_t mcus = static_cast<size_t>(kW / mcuW) * (kH / mcuH);
        auto alloc = [&](size_t blocks) {
            auto* p = static_cast<int16_t*>(std::aligned_alloc(64, blocks * 128 + 64));
            std::memset(p, 0, blocks * 128 + 64);
            owned.push_back(p);
            return p;
        };
        y = reinterpret_cast<int16_t*>(reinterpret_cast<uint8_t*>(alloc(mcus * lumaPerMcu)) + misalign);
        cb = alloc(mcus);
        cr = alloc(mcus);
    }
    ~BlockStore() {
        for (int16_t* p : owned) std::free(p);
    }
};

void counters(benchmark::State& st) {
    const double mcus = static_cast<double>(st.range(0) ? (kW / 16) * (kH / 16) : (kW / 8) * (kH / 8));
    st.counters["MCU/s"] = benchmark::Counter(mcus * static_cast<double>(st.iterations()), benchmark::Counter::kIsRate);
    st.counters["MP/s"] = benchmark::Counter(static_cast<double>(kW) * kH * 1e-6 * static_cast<double>(st.iterations()),
                                             benchmark::Counter::kIsRate);
}

// range(0): 0 for 4:4:4 (8x8 MCUs), 1 for 4:2:0 (16x16 MCUs); range(1): plane 0 offset in bytes.
void BM_Mcu_EncodeRGB(benchmark::State& st) {
    Image& im = image();
    const bool sub = st.range(0) != 0;
    const int mw = sub ? 16 : 8, mh = mw, ny = sub ? 4 : 1;
    BlockStore bs(mw, mh, ny, static_cast<int>(st.range(1)));
    for (auto _ : st) {
        size_t m = 0;
        for (int my = 0; my < kH; my += mh)
            for (int mx = 0; mx < kW; mx += mw, ++m) {
                Zeb16s* const d[3] = {bs.y + m * 64 * ny, bs.cb + m * 64, bs.cr + m * 64};
                const Zeb8u* s = im.rgb.data() + (static_cast<size_t>(my) * kW + mx) * 3;
                if (sub) zebiRGBToYCbCr411LS_MCU_8u16s_C3P3R(s, 3 * kW, d);
                else zebiRGBToYCbCr444LS_MCU_8u16s_C3P3R(s, 3 * kW, d);
            }
        benchmark::ClobberMemory();
    }
    counters(st);
}

void BM_Mcu_DecodeRGB(benchmark::State& st) {
    Image& im = image();
    const bool sub = st.range(0) != 0;
    const int mw = sub ? 16 : 8, mh = mw, ny = sub ? 4 : 1;
    BlockStore bs(mw, mh, ny, static_cast<int>(st.range(1)));
    size_t m = 0;
    for (int my = 0; my < kH; my += mh)
        for (int mx = 0; mx < kW; mx += mw, ++m) {
            Zeb16s* const d[3] = {bs.y + m * 64 * ny, bs.cb + m * 64, bs.cr + m * 64};
            const Zeb8u* px = im.rgb.data() + (static_cast<size_t>(my) * kW + mx) * 3;
            if (sub) zebiRGBToYCbCr411LS_MCU_8u16s_C3P3R(px, 3 * kW, d);
            else zebiRGBToYCbCr444LS_MCU_8u16s_C3P3R(px, 3 * kW, d);
        }
    for (auto _ : st) {
        m = 0;
        for (int my = 0; my < kH; my += mh)
            for (int mx = 0; mx < kW; mx += mw, ++m) {
                const Zeb16s* const s[3] = {bs.y + m * 64 * ny, bs.cb + m * 64, bs.cr + m * 64};
                Zeb8u* d = im.out.data() + (static_cast<size_t>(my) * kW + mx) * 3;
                if (sub) zebiYCbCr411ToRGBLS_MCU_16s8u_P3C3R(s, d, 3 * kW);
                else zebiYCbCr444ToRGBLS_MCU_16s8u_P3C3R(s, d, 3 * kW);
            }
        benchmark::ClobberMemory();
    }
    counters(st);
}

// A copy as large as the block side of one direction: 2 bytes per block
// sample, 3 samples per pixel in 4:4:4 and 1.5 in 4:2:0.
void BM_Memcpy_BlockBytes(benchmark::State& st) {
    const bool sub = st.range(0) != 0;
    const size_t bytes = static_cast<size_t>(static_cast<double>(kW) * kH * 2 * (sub ? 1.5 : 3.0));
    std::vector<uint8_t> a(bytes, 1), b(bytes);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), bytes);
        benchmark::ClobberMemory();
    }
    counters(st);
}

#ifdef ZEB_HAVE_JPEG
void setSampling(jpeg_compress_struct& c, bool sub) {
    c.comp_info[0].h_samp_factor = c.comp_info[0].v_samp_factor = sub ? 2 : 1;
    for (int i = 1; i < 3; ++i) c.comp_info[i].h_samp_factor = c.comp_info[i].v_samp_factor = 1;
}

std::vector<uint8_t>& jpegFile(bool sub) {
    static std::vector<uint8_t> files[2];
    std::vector<uint8_t>& f = files[sub];
    if (f.empty()) {
        Image& im = image();
        jpeg_compress_struct c;
        jpeg_error_mgr e;
        c.err = jpeg_std_error(&e);
        jpeg_create_compress(&c);
        unsigned char* mem = nullptr;
        unsigned long size = 0;
        jpeg_mem_dest(&c, &mem, &size);
        c.image_width = kW;
        c.image_height = kH;
        c.input_components = 3;
        c.in_color_space = JCS_RGB;
        jpeg_set_defaults(&c);
        jpeg_set_quality(&c, 90, TRUE);
        setSampling(c, sub);
        jpeg_start_compress(&c, TRUE);
        while (c.next_scanline < c.image_height) {
            JSAMPROW row = im.rgb.data() + static_cast<size_t>(c.next_scanline) * 3 * kW;
            jpeg_write_scanlines(&c, &row, 1);
        }
        jpeg_finish_compress(&c);
        f.assign(mem, mem + size);
        free(mem);
        jpeg_destroy_compress(&c);
    }
    return f;
}

// range(0): sampling as above; range(1): 1 for raw planes (no colour step).
void BM_Turbo_Encode(benchmark::State& st) {
    Image& im = image();
    const bool sub = st.range(0) != 0, raw = st.range(1) != 0;
    const int vmax = sub ? 16 : 8;
    for (auto _ : st) {
        jpeg_compress_struct c;
        jpeg_error_mgr e;
        c.err = jpeg_std_error(&e);
        jpeg_create_compress(&c);
        unsigned char* mem = nullptr;
        unsigned long size = 0;
        jpeg_mem_dest(&c, &mem, &size);
        c.image_width = kW;
        c.image_height = kH;
        c.input_components = 3;
        c.in_color_space = JCS_RGB;
        jpeg_set_defaults(&c);
        jpeg_set_quality(&c, 90, TRUE);
        setSampling(c, sub);
        c.raw_data_in = raw ? TRUE : FALSE;
        c.dct_method = JDCT_ISLOW;
        jpeg_start_compress(&c, TRUE);
        if (raw) {
            while (c.next_scanline < c.image_height) {
                JSAMPROW rows[3][16];
                for (int p = 0; p < 3; ++p) {
                    const int n = p == 0 ? vmax : 8;
                    for (int k = 0; k < n; ++k) {
                        const uint8_t* plane = p == 0 ? im.y.data() : p == 1 ? (sub ? im.cb2 : im.cb).data() : (sub ? im.cr2 : im.cr).data();
                        const int yy = (p == 0 || !sub ? static_cast<int>(c.next_scanline) : static_cast<int>(c.next_scanline) / 2) + k;
                        rows[p][k] = const_cast<uint8_t*>(plane) + static_cast<size_t>(yy) * kW;
                    }
                }
                JSAMPARRAY planes[3] = {rows[0], rows[1], rows[2]};
                jpeg_write_raw_data(&c, planes, vmax);
            }
        } else {
            while (c.next_scanline < c.image_height) {
                JSAMPROW row = im.rgb.data() + static_cast<size_t>(c.next_scanline) * 3 * kW;
                jpeg_write_scanlines(&c, &row, 1);
            }
        }
        jpeg_finish_compress(&c);
        free(mem);
        jpeg_destroy_compress(&c);
    }
    counters(st);
}

void BM_Turbo_Decode(benchmark::State& st) {
    Image& im = image();
    const bool sub = st.range(0) != 0, raw = st.range(1) != 0;
    const int vmax = sub ? 16 : 8;
    std::vector<uint8_t>& f = jpegFile(sub);
    for (auto _ : st) {
        jpeg_decompress_struct d;
        jpeg_error_mgr e;
        d.err = jpeg_std_error(&e);
        jpeg_create_decompress(&d);
        jpeg_mem_src(&d, f.data(), f.size());
        jpeg_read_header(&d, TRUE);
        d.raw_data_out = raw ? TRUE : FALSE;
        d.dct_method = JDCT_ISLOW;
        d.do_fancy_upsampling = FALSE;
        jpeg_start_decompress(&d);
        if (raw) {
            while (d.output_scanline < d.output_height) {
                JSAMPROW rows[3][16];
                for (int p = 0; p < 3; ++p) {
                    const int n = p == 0 ? vmax : 8;
                    uint8_t* plane = p == 0 ? im.y2.data() : p == 1 ? im.cb2.data() : im.cr2.data();
                    for (int k = 0; k < n; ++k) {
                        const int yy = (p == 0 || !sub ? static_cast<int>(d.output_scanline) : static_cast<int>(d.output_scanline) / 2) + k;
                        rows[p][k] = plane + static_cast<size_t>(yy) * kW;
                    }
                }
                JSAMPARRAY planes[3] = {rows[0], rows[1], rows[2]};
                jpeg_read_raw_data(&d, planes, vmax);
            }
        } else {
            while (d.output_scanline < d.output_height) {
                JSAMPROW row = im.out.data() + static_cast<size_t>(d.output_scanline) * 3 * kW;
                jpeg_read_scanlines(&d, &row, 1);
            }
        }
        jpeg_finish_decompress(&d);
        jpeg_destroy_decompress(&d);
    }
    counters(st);
}
#endif

void forms(benchmark::internal::Benchmark* b) {
    for (int sub : {0, 1})
        for (int misalign : {0, 2}) b->Args({sub, misalign});
    b->ArgNames({"s420", "plane0Offset"})->Unit(benchmark::kMicrosecond)->UseRealTime();
}
void samplings(benchmark::internal::Benchmark* b) {
    b->Args({0})->Args({1})->ArgNames({"s420"})->Unit(benchmark::kMicrosecond)->UseRealTime();
}
void rawOrNot(benchmark::internal::Benchmark* b) {
    for (int sub : {0, 1})
        for (int raw : {0, 1}) b->Args({sub, raw});
    b->ArgNames({"s420", "raw"})->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK(BM_Mcu_EncodeRGB)->Apply(forms);
BENCHMARK(BM_Mcu_DecodeRGB)->Apply(forms);
BENCHMARK(BM_Memcpy_BlockBytes)->Apply(samplings);
#ifdef ZEB_HAVE_JPEG
BENCHMARK(BM_Turbo_Encode)->Apply(rawOrNot);
BENCHMARK(BM_Turbo_Decode)->Apply(rawOrNot);
#endif

}  // namespace

BENCHMARK_MAIN();
