// JPEG quantisation and DCT members, per 8x8 block, with the C DCTs of the
// system's libjpeg-turbo (jpeg_fdct_islow plus a quantisation step,
// jpeg_idct_islow/4x4/2x2/1x1) as the anchor in the same run on the same
// blocks. Throughput is reported as blocks per second (items).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "zebjp.h"

#if defined(ZEB_HAVE_LIBJPEG)
#include <jpeglib.h>
extern "C" {
// The C transforms exported by libjpeg-turbo; with its SIMD build both the
// transform element and the multiplier are 16-bit.
void jpeg_fdct_islow(short* data);
void jpeg_idct_islow(j_decompress_ptr, jpeg_component_info*, JCOEFPTR, JSAMPARRAY, JDIMENSION);
void jpeg_idct_4x4(j_decompress_ptr, jpeg_component_info*, JCOEFPTR, JSAMPARRAY, JDIMENSION);
void jpeg_idct_2x2(j_decompress_ptr, jpeg_component_info*, JCOEFPTR, JSAMPARRAY, JDIMENSION);
void jpeg_idct_1x1(j_decompress_ptr, jpeg_component_info*, JCOEFPTR, JSAMPARRAY, JDIMENSION);
}
#endif

namespace {

constexpr int kBlocks = 512;

// The usual luminance table, in zigzag order, at quality 75.
const uint8_t kLuma[64] = {16, 11, 12, 14, 12, 10, 16, 14, 13, 14, 18, 17, 16, 19, 24, 40,
                           26, 24, 22, 22, 24, 49, 35, 37, 29, 40, 58, 51, 61, 60, 57, 51,
                           56, 55, 64, 72, 92, 78, 64, 68, 87, 69, 55, 56, 80, 109, 81, 87,
                           95, 98, 103, 104, 103, 62, 68, 112, 100, 83, 101, 113, 92, 120, 121, 101};

struct Data {
    alignas(64) uint8_t px[kBlocks][64];
    alignas(64) int16_t shifted[kBlocks][64];
    alignas(64) uint16_t px12[kBlocks][64];
    alignas(64) int16_t coef[kBlocks][64];
    alignas(64) uint16_t fwd[64], inv[64];
    alignas(64) float ffwd[64], finv[64];
    uint8_t raw[64];
    Data() {
        std::mt19937 g(7);
        std::memcpy(raw, kLuma, 64);
        zebiQuantFwdRawTableInit_JPEG_8u(raw, 75);
        zebiQuantFwdTableInit_JPEG_8u16u(raw, fwd);
        zebiQuantInvTableInit_JPEG_8u16u(raw, inv);
        for (int i = 0; i < 64; ++i) { finv[i] = inv[i]; ffwd[i] = 1.0f / inv[i]; }
        // Smooth-ish sample blocks: a gradient plus noise.
        for (int b = 0; b < kBlocks; ++b) {
            int base = static_cast<int>(g() % 200), gx = static_cast<int>(g() % 9) - 4, gy = static_cast<int>(g() % 9) - 4;
            for (int i = 0; i < 64; ++i) {
                int v = base + gx * (i % 8) + gy * (i / 8) + static_cast<int>(g() % 21) - 10;
                px[b][i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
                shifted[b][i] = static_cast<int16_t>(px[b][i] - 128);
                px12[b][i] = static_cast<uint16_t>(px[b][i] * 16);
            }
            zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px[b], 8, coef[b], fwd);
        }
    }
};
Data& data() { static Data* d = new Data; return *d; }

void setBlocks(benchmark::State& st) { st.SetItemsProcessed(st.iterations()); }

// ---------------------------------------------------------------- forward

void BM_Fwd_16s(benchmark::State& st) {
    Data& d = data();
    alignas(64) int16_t out[64];
    int i = 0;
    for (auto _ : st) {
        zebiDCTQuantFwd8x8_JPEG_16s_C1(d.shifted[i], out, d.fwd);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Fwd_16s);

void BM_Fwd_LS_8u(benchmark::State& st) {
    Data& d = data();
    alignas(64) int16_t out[64];
    int i = 0;
    for (auto _ : st) {
        zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(d.px[i], 8, out, d.fwd);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Fwd_LS_8u);

void BM_Fwd_LS_12bit(benchmark::State& st) {
    Data& d = data();
    alignas(64) int16_t out[64];
    int i = 0;
    for (auto _ : st) {
        zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(d.px12[i], 16, out, d.ffwd);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Fwd_LS_12bit);

void BM_QuantFwd(benchmark::State& st) {
    Data& d = data();
    alignas(64) int16_t blk[64];
    int i = 0;
    for (auto _ : st) {
        std::memcpy(blk, d.shifted[i], 128);
        zebiQuantFwd8x8_JPEG_16s_C1I(blk, d.fwd);
        benchmark::DoNotOptimize(blk);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_QuantFwd);

void BM_QuantInv(benchmark::State& st) {
    Data& d = data();
    alignas(64) int16_t blk[64];
    int i = 0;
    for (auto _ : st) {
        std::memcpy(blk, d.coef[i], 128);
        zebiQuantInv8x8_JPEG_16s_C1I(blk, d.inv);
        benchmark::DoNotOptimize(blk);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_QuantInv);

// ---------------------------------------------------------------- inverse

template <ZebStatus (*Fn)(const Zeb16s*, Zeb8u*, int, const Zeb16u*)>
void BM_Inv8u(benchmark::State& st) {
    Data& d = data();
    alignas(64) uint8_t out[64];
    int i = 0;
    for (auto _ : st) {
        Fn(d.coef[i], out, 8, d.inv);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Inv8u<zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R>)->Name("BM_Inv_LS_full");
BENCHMARK(BM_Inv8u<zebiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R>)->Name("BM_Inv_LS_4x4corner");
BENCHMARK(BM_Inv8u<zebiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R>)->Name("BM_Inv_LS_2x2corner");
BENCHMARK(BM_Inv8u<zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R>)->Name("BM_Inv_LS_1x1corner");
BENCHMARK(BM_Inv8u<zebiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R>)->Name("BM_Inv_To4x4");
BENCHMARK(BM_Inv8u<zebiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R>)->Name("BM_Inv_To2x2");

void BM_Inv_LS_full_unaligned(benchmark::State& st) {
    Data& d = data();
    alignas(64) uint8_t out[64];
    static std::vector<int16_t> mis(kBlocks * 64 + 1);
    std::memcpy(mis.data() + 1, d.coef, sizeof d.coef);
    int i = 0;
    for (auto _ : st) {
        zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R(mis.data() + 1 + 64 * i, out, 8, d.inv);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Inv_LS_full_unaligned);

void BM_Inv_16s(benchmark::State& st) {
    Data& d = data();
    alignas(64) int16_t out[64];
    int i = 0;
    for (auto _ : st) {
        zebiDCTQuantInv8x8_JPEG_16s_C1(d.coef[i], out, d.inv);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Inv_16s);

void BM_Inv_LS_12bit(benchmark::State& st) {
    Data& d = data();
    alignas(64) uint16_t out[64];
    int i = 0;
    for (auto _ : st) {
        zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(d.coef[i], out, 16, d.finv);
        benchmark::DoNotOptimize(out);
        i = (i + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Inv_LS_12bit);

// ---------------------------------------------------------------- anchor

#if defined(ZEB_HAVE_LIBJPEG)

// Level shift, jpeg_fdct_islow, then the quantisation by reciprocal
// multiplication that the library's C path applies (steps scaled by 8, as
// the transform's output is).
void BM_Anchor_fdct_islow_quant(benchmark::State& st) {
    Data& d = data();
    uint16_t recip[64], corr[64];
    for (int i = 0; i < 64; ++i) {
        const uint32_t q = 8u * d.inv[i];
        recip[i] = static_cast<uint16_t>((65536u + q - 1) / q);
        corr[i] = static_cast<uint16_t>(q / 2);
    }
    alignas(64) short ws[64];
    alignas(64) short out[64];
    int b = 0;
    for (auto _ : st) {
        const uint8_t* p = d.px[b];
        for (int i = 0; i < 64; ++i) ws[i] = static_cast<short>(p[i] - 128);
        jpeg_fdct_islow(ws);
        for (int i = 0; i < 64; ++i) {
            int t = ws[i];
            const bool neg = t < 0;
            if (neg) t = -t;
            t = static_cast<int>((static_cast<uint32_t>(t + corr[i]) * recip[i]) >> 16);
            out[i] = static_cast<short>(neg ? -t : t);
        }
        benchmark::DoNotOptimize(out);
        b = (b + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Anchor_fdct_islow_quant);

// A decompressor prepared by reading a tiny image, so that the sample range
// table exists; the component's multiplier table is replaced by ours.
struct Decoder {
    jpeg_decompress_struct cinfo{};
    jpeg_error_mgr err{};
    jpeg_compress_struct cc{};
    unsigned char* mem = nullptr;
    unsigned long memSize = 0;
    alignas(64) short mult[64];
    Decoder() {
        cc.err = jpeg_std_error(&err);
        jpeg_create_compress(&cc);
        jpeg_mem_dest(&cc, &mem, &memSize);
        cc.image_width = 8;
        cc.image_height = 8;
        cc.input_components = 1;
        cc.in_color_space = JCS_GRAYSCALE;
        jpeg_set_defaults(&cc);
        jpeg_start_compress(&cc, TRUE);
        unsigned char row[8] = {1, 2, 3, 4, 5, 6, 7, 8};
        JSAMPROW rp = row;
        for (int y = 0; y < 8; ++y) jpeg_write_scanlines(&cc, &rp, 1);
        jpeg_finish_compress(&cc);
        cinfo.err = jpeg_std_error(&err);
        jpeg_create_decompress(&cinfo);
        jpeg_mem_src(&cinfo, mem, memSize);
        jpeg_read_header(&cinfo, TRUE);
        jpeg_start_decompress(&cinfo);
        for (int i = 0; i < 64; ++i) mult[i] = static_cast<short>(data().inv[i]);
        cinfo.comp_info[0].dct_table = mult;
    }
};
Decoder& decoder() { static Decoder* d = new Decoder; return *d; }

template <void (*Fn)(j_decompress_ptr, jpeg_component_info*, JCOEFPTR, JSAMPARRAY, JDIMENSION)>
void BM_Anchor_idct(benchmark::State& st) {
    Data& d = data();
    Decoder& dec = decoder();
    alignas(64) unsigned char out[64];
    JSAMPROW rows[8];
    for (int r = 0; r < 8; ++r) rows[r] = out + 8 * r;
    int b = 0;
    for (auto _ : st) {
        Fn(&dec.cinfo, &dec.cinfo.comp_info[0], d.coef[b], rows, 0);
        benchmark::DoNotOptimize(out);
        b = (b + 1) & (kBlocks - 1);
    }
    setBlocks(st);
}
BENCHMARK(BM_Anchor_idct<jpeg_idct_islow>)->Name("BM_Anchor_idct_islow");
BENCHMARK(BM_Anchor_idct<jpeg_idct_4x4>)->Name("BM_Anchor_idct_4x4");
BENCHMARK(BM_Anchor_idct<jpeg_idct_2x2>)->Name("BM_Anchor_idct_2x2");
BENCHMARK(BM_Anchor_idct<jpeg_idct_1x1>)->Name("BM_Anchor_idct_1x1");

// The anchor and this library agree on a DC-only block (a sanity check of the
// anchor's set-up, printed once).
struct AnchorCheck {
    AnchorCheck() {
        Decoder& dec = decoder();
        alignas(64) short c[64] = {};
        c[0] = 8;
        short saved[64];
        std::memcpy(saved, dec.mult, sizeof saved);
        for (auto& m : dec.mult) m = 1;
        unsigned char out[64];
        JSAMPROW rows[8];
        for (int r = 0; r < 8; ++r) rows[r] = out + 8 * r;
        jpeg_idct_islow(&dec.cinfo, &dec.cinfo.comp_info[0], c, rows, 0);
        std::memcpy(dec.mult, saved, sizeof saved);
        if (out[0] != 129 || out[63] != 129) std::fprintf(stderr, "anchor set-up check failed: %d %d\n", out[0], out[63]);
        // Both decoders reconstruct the benchmark's blocks alike.
        Data& d = data();
        int worst = 0;
        for (int b = 0; b < kBlocks; ++b) {
            unsigned char ours[64];
            zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R(d.coef[b], ours, 8, d.inv);
            jpeg_idct_islow(&dec.cinfo, &dec.cinfo.comp_info[0], d.coef[b], rows, 0);
            for (int i = 0; i < 64; ++i) worst = std::max(worst, std::abs(ours[i] - out[i]));
        }
        std::fprintf(stderr, "anchor check: largest difference of the inverse transforms %d\n", worst);
    }
} const kAnchorCheck;

#endif

}  // namespace

BENCHMARK_MAIN();
