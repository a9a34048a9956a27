// PackBits rows: packing and unpacking in MB/s of raw row bytes, against
// libtiff's PackBits codec through its API on the same rows (an in-memory
// TIFF, one scanline per call), in the same run.
#include <benchmark/benchmark.h>
#include <tiffio.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "zebjp.h"

namespace {

constexpr int kWidth = 1536 * 3, kHeight = 256;  // RGB rows of 1536 pixels

// Two kinds of rows: a noisy photograph-like scene (mostly literals) and a
// graphic with flat areas (mostly runs).
std::vector<uint8_t> makeImage(bool graphic) {
    std::vector<uint8_t> img(size_t(kWidth) * kHeight);
    std::mt19937 g(5);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            double v = 128 + 90 * std::sin(x * 0.004 + y * 0.01) * std::cos(y * 0.02);
            if (graphic) v = (x / 300 + y / 40) % 3 == 0 ? 255 : (x / 300) * 40;
            else v += int(g() % 9) - 4;
            img[size_t(y) * kWidth + x] = uint8_t(std::min(255.0, std::max(0.0, v)));
        }
    return img;
}

// ---- an in-memory file for libtiff
struct MemFile {
    std::vector<uint8_t> data;
    toff_t pos = 0;
};
tsize_t memRead(thandle_t h, tdata_t buf, tsize_t n) {
    auto* f = static_cast<MemFile*>(h);
    tsize_t avail = f->pos < f->data.size() ? tsize_t(f->data.size() - f->pos) : 0;
    if (n > avail) n = avail;
    std::memcpy(buf, f->data.data() + f->pos, size_t(n));
    f->pos += n;
    return n;
}
tsize_t memWrite(thandle_t h, tdata_t buf, tsize_t n) {
    auto* f = static_cast<MemFile*>(h);
    if (f->pos + n > f->data.size()) f->data.resize(f->pos + n);
    std::memcpy(f->data.data() + f->pos, buf, size_t(n));
    f->pos += n;
    return n;
}
toff_t memSeek(thandle_t h, toff_t off, int whence) {
    auto* f = static_cast<MemFile*>(h);
    if (whence == SEEK_SET) f->pos = off;
    else if (whence == SEEK_CUR) f->pos += off;
    else f->pos = f->data.size() + off;
    return f->pos;
}
int memClose(thandle_t) { return 0; }
toff_t memSize(thandle_t h) { return static_cast<MemFile*>(h)->data.size(); }
int memMap(thandle_t, tdata_t*, toff_t*) { return 0; }
void memUnmap(thandle_t, tdata_t, toff_t) {}

void libtiffWrite(MemFile& f, const std::vector<uint8_t>& img) {
    f.data.clear();
    f.pos = 0;
    TIFF* t = TIFFClientOpen("mem", "w", &f, memRead, memWrite, memSeek, memClose, memSize, memMap, memUnmap);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, kWidth / 3);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, kHeight);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, kHeight);
    for (int y = 0; y < kHeight; ++y)
        TIFFWriteScanline(t, const_cast<uint8_t*>(img.data() + size_t(y) * kWidth), y, 0);
    TIFFClose(t);
}

void report(benchmark::State& st) {
    st.SetBytesProcessed(int64_t(st.iterations()) * kWidth * kHeight);
}

void BM_PackOurs(benchmark::State& st) {
    auto img = makeImage(st.range(0));
    std::vector<uint8_t> out(size_t(kWidth + kWidth / 128 + 2) * kHeight);
    for (auto _ : st) {
        int pos = 0;
        for (int y = 0; y < kHeight; ++y)
            zebiPackBitsRow_TIFF_8u_C1(img.data() + size_t(y) * kWidth, kWidth, out.data(), &pos,
                                       int(out.size()) - pos);
        benchmark::DoNotOptimize(pos);
    }
    report(st);
}

void BM_PackLibtiff(benchmark::State& st) {
    auto img = makeImage(st.range(0));
    MemFile f;
    for (auto _ : st) {
        libtiffWrite(f, img);
        benchmark::DoNotOptimize(f.data.data());
    }
    report(st);
}

void BM_UnpackOurs(benchmark::State& st) {
    auto img = makeImage(st.range(0));
    std::vector<uint8_t> packed(size_t(kWidth + kWidth / 128 + 2) * kHeight), row(kWidth);
    int len = 0;
    for (int y = 0; y < kHeight; ++y)
        zebiPackBitsRow_TIFF_8u_C1(img.data() + size_t(y) * kWidth, kWidth, packed.data(), &len,
                                   int(packed.size()) - len);
    for (auto _ : st) {
        int pos = 0;
        for (int y = 0; y < kHeight; ++y) zebiUnpackBitsRow_TIFF_8u_C1(packed.data(), &pos, len, row.data(), kWidth);
        benchmark::DoNotOptimize(row.data());
    }
    report(st);
}

void BM_UnpackLibtiff(benchmark::State& st) {
    auto img = makeImage(st.range(0));
    MemFile f;
    libtiffWrite(f, img);
    std::vector<uint8_t> row(kWidth);
    for (auto _ : st) {
        f.pos = 0;
        TIFF* t = TIFFClientOpen("mem", "r", &f, memRead, memWrite, memSeek, memClose, memSize, memMap, memUnmap);
        for (int y = 0; y < kHeight; ++y) TIFFReadScanline(t, row.data(), y, 0);
        TIFFClose(t);
        benchmark::DoNotOptimize(row.data());
    }
    report(st);
}

void kinds(benchmark::internal::Benchmark* b) { b->ArgName("graphic")->Arg(0)->Arg(1); }

BENCHMARK(BM_PackOurs)->Apply(kinds);
BENCHMARK(BM_PackLibtiff)->Apply(kinds);
BENCHMARK(BM_UnpackOurs)->Apply(kinds);
BENCHMARK(BM_UnpackLibtiff)->Apply(kinds);

}  // namespace

BENCHMARK_MAIN();
