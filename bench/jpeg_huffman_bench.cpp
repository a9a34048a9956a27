// Baseline Huffman coding of a photograph's coefficient blocks, against
// libjpeg-turbo moving the same blocks through its Huffman coder
// (jpeg_write_coefficients / jpeg_read_coefficients) in the same run.
//
// The photograph is a synthetic 1024x768 scene (gradients, a shaded ball,
// stripes, a checkerboard and sensor noise), compressed 4:2:0 at several
// qualities; its blocks and Huffman tables come from the compressed file.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "zebjp.h"

#ifdef ZEB_HAVE_LIBJPEG
#include <jpeglib.h>

namespace {

constexpr int kW = 1024, kH = 768;

std::vector<uint8_t> scene() {
    std::mt19937 g(3);
    std::normal_distribution<double> noise(0.0, 3.0);
    std::vector<uint8_t> px(static_cast<size_t>(kW) * kH * 3);
    for (int y = 0; y < kH; ++y) {
        for (int x = 0; x < kW; ++x) {
            double r = 90 + 120.0 * y / kH, gg = 140 + 60.0 * x / kW, b = 220 - 80.0 * y / kH;
            double dx = x - kW * 0.35, dy = y - kH * 0.45, rad = std::sqrt(dx * dx + dy * dy);
            if (rad < kH * 0.25) {
                double shade = 1.0 - rad / (kH * 0.3);
                r = 200 * shade + 40;
                gg = 60 * shade + 20;
                b = 30 + 20 * std::sin(x * 0.05);
            }
            if (y > kH * 0.7) {
                double s = std::sin(x * 0.13 + y * 0.05) * std::cos(y * 0.07);
                r = 100 + 40 * s;
                gg = 120 + 50 * s;
                b = 60 + 10 * s;
            }
            if (x > kW * 0.75 && y < kH * 0.5) r = gg = b = (x / 12 + y / 12) % 2 ? 235 : 25;
            uint8_t* p = &px[(static_cast<size_t>(y) * kW + x) * 3];
            double c[3] = {r, gg, b};
            for (int i = 0; i < 3; ++i) {
                double v = c[i] + noise(g);
                p[i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
            }
        }
    }
    return px;
}

std::vector<uint8_t> compress(const std::vector<uint8_t>& px, int quality) {
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
    jpeg_set_quality(&c, quality, TRUE);
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<uint8_t*>(&px[static_cast<size_t>(c.next_scanline) * kW * 3]);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    std::vector<uint8_t> out(mem, mem + size);
    jpeg_destroy_compress(&c);
    free(mem);
    return out;
}

// One quality: the file, its coefficients held open in libjpeg, the blocks
// in scan order and our tables built from the file's tables.
struct Case {
    std::vector<uint8_t> file;
    jpeg_decompress_struct src;
    jpeg_error_mgr err;
    jvirt_barray_ptr* arrays = nullptr;
    std::vector<const int16_t*> blocks;  // scan order
    std::vector<int> comp;               // component of each block
    std::vector<EncodeHuffmanSpec> encDc, encAc;
    std::vector<DecodeHuffmanSpec> decDc, decAc;
    std::vector<int> dcIdx, acIdx;
    std::vector<int16_t> storage;
    std::vector<uint8_t> stream;
    int streamLen = 0;

    explicit Case(int quality) {
        static const std::vector<uint8_t> px = scene();
        file = compress(px, quality);
        src.err = jpeg_std_error(&err);
        jpeg_create_decompress(&src);
        jpeg_mem_src(&src, file.data(), static_cast<unsigned long>(file.size()));
        jpeg_read_header(&src, TRUE);
        arrays = jpeg_read_coefficients(&src);
        const int nc = src.num_components;
        encDc.resize(nc);
        encAc.resize(nc);
        decDc.resize(nc);
        decAc.resize(nc);
        int mcuX = static_cast<int>(src.MCUs_per_row), mcuY = static_cast<int>(src.MCU_rows_in_scan);
        // Copy every block once, in scan order, into contiguous storage.
        size_t total = 0;
        for (int c = 0; c < nc; ++c) total += static_cast<size_t>(mcuX * src.comp_info[c].h_samp_factor) * mcuY * src.comp_info[c].v_samp_factor;
        storage.resize(total * 64);
        size_t n = 0;
        for (int c = 0; c < nc; ++c) {
            jpeg_component_info* ci = &src.comp_info[c];
            JHUFF_TBL* d = src.dc_huff_tbl_ptrs[ci->dc_tbl_no];
            JHUFF_TBL* a = src.ac_huff_tbl_ptrs[ci->ac_tbl_no];
            zebiEncodeHuffmanSpecInit_JPEG_8u(d->bits + 1, d->huffval, &encDc[c]);
            zebiEncodeHuffmanSpecInit_JPEG_8u(a->bits + 1, a->huffval, &encAc[c]);
            zebiDecodeHuffmanSpecInit_JPEG_8u(d->bits + 1, d->huffval, &decDc[c]);
            zebiDecodeHuffmanSpecInit_JPEG_8u(a->bits + 1, a->huffval, &decAc[c]);
        }
        for (int my = 0; my < mcuY; ++my) {
            for (int mx = 0; mx < mcuX; ++mx) {
                for (int c = 0; c < nc; ++c) {
                    jpeg_component_info* ci = &src.comp_info[c];
                    for (int v = 0; v < ci->v_samp_factor; ++v) {
                        int by = my * ci->v_samp_factor + v;
                        JBLOCKARRAY row = (*src.mem->access_virt_barray)(reinterpret_cast<j_common_ptr>(&src), arrays[c], by, 1, FALSE);
                        for (int h = 0; h < ci->h_samp_factor; ++h) {
                            int bx = mx * ci->h_samp_factor + h;
                            for (int i = 0; i < 64; ++i) storage[n * 64 + i] = row[0][bx][i];
                            comp.push_back(c);
                            ++n;
                        }
                    }
                }
            }
        }
        for (size_t i = 0; i < n; ++i) blocks.push_back(&storage[i * 64]);
        stream.resize(n * 400 + 1024);
        streamLen = encode();
    }
    ~Case() { jpeg_destroy_decompress(&src); }

    int encode() {
        EncodeHuffmanState st;
        zebiEncodeHuffmanStateInit_JPEG_8u(&st);
        int pos = 0;
        int16_t last[4] = {};
        const int len = static_cast<int>(stream.size());
        for (size_t i = 0; i < blocks.size(); ++i) {
            int c = comp[i];
            zebiEncodeHuffman8x8_JPEG_16s1u_C1(blocks[i], stream.data(), len, &pos, &last[c], &encDc[c], &encAc[c], &st, 0);
        }
        zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, stream.data(), len, &pos, nullptr, nullptr, nullptr, &st, 1);
        return pos;
    }
};

Case& getCase(int quality) {
    static std::map<int, std::unique_ptr<Case>> cases;
    auto& p = cases[quality];
    if (!p) p = std::make_unique<Case>(quality);
    return *p;
}

void BM_EncodeZeb(benchmark::State& state) {
    Case& c = getCase(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(c.encode());
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(c.blocks.size()));
    state.counters["bytes"] = c.streamLen;
}

void BM_EncodeLibjpeg(benchmark::State& state) {
    Case& c = getCase(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        jpeg_compress_struct d;
        jpeg_error_mgr e;
        d.err = jpeg_std_error(&e);
        jpeg_create_compress(&d);
        unsigned char* mem = nullptr;
        unsigned long size = 0;
        jpeg_mem_dest(&d, &mem, &size);
        jpeg_copy_critical_parameters(&c.src, &d);
        d.optimize_coding = FALSE;
        jpeg_write_coefficients(&d, c.arrays);
        jpeg_finish_compress(&d);
        jpeg_destroy_compress(&d);
        benchmark::DoNotOptimize(size);
        free(mem);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(c.blocks.size()));
}

void BM_DecodeZeb(benchmark::State& state) {
    Case& c = getCase(static_cast<int>(state.range(0)));
    std::vector<int16_t> out(c.blocks.size() * 64);
    for (auto _ : state) {
        DecodeHuffmanState st;
        zebiDecodeHuffmanStateInit_JPEG_8u(&st);
        int pos = 0, marker = 0;
        int16_t last[4] = {};
        for (size_t i = 0; i < c.blocks.size(); ++i) {
            int k = c.comp[i];
            zebiDecodeHuffman8x8_JPEG_1u16s_C1(c.stream.data(), c.streamLen, &pos, &out[i * 64], &last[k], &marker,
                                               &c.decDc[k], &c.decAc[k], &st);
        }
        benchmark::DoNotOptimize(out.data());
    }
    if (std::memcmp(out.data(), c.storage.data(), out.size() * 2) != 0) state.SkipWithError("decoded blocks differ");
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(c.blocks.size()));
}

void BM_DecodeLibjpeg(benchmark::State& state) {
    Case& c = getCase(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        jpeg_decompress_struct d;
        jpeg_error_mgr e;
        d.err = jpeg_std_error(&e);
        jpeg_create_decompress(&d);
        jpeg_mem_src(&d, c.file.data(), static_cast<unsigned long>(c.file.size()));
        jpeg_read_header(&d, TRUE);
        benchmark::DoNotOptimize(jpeg_read_coefficients(&d));
        jpeg_finish_decompress(&d);
        jpeg_destroy_decompress(&d);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(c.blocks.size()));
}

#define QUALITIES Arg(50)->Arg(75)->Arg(90)->Arg(98)
BENCHMARK(BM_EncodeZeb)->QUALITIES;
BENCHMARK(BM_EncodeLibjpeg)->QUALITIES;
BENCHMARK(BM_DecodeZeb)->QUALITIES;
BENCHMARK(BM_DecodeLibjpeg)->QUALITIES;

}  // namespace
#endif

BENCHMARK_MAIN();
