// Progressive decoding of a real photograph, scan by scan through our four
// progressive decoders, against libjpeg-turbo's jpeg_read_coefficients on the
// same file in the same run; and the lossless predictors in samples per
// second.
//
// The photograph is data/astronaut.png (512x512 RGB), compressed by
// libjpeg-turbo with its standard progressive script (spectral selection and
// successive approximation), 4:2:0, at several qualities.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "zebjp.h"

#if defined(ZEB_HAVE_LIBJPEG) && defined(ZEB_HAVE_PNG)
#include <jpeglib.h>
#include <png.h>

namespace {

struct Image {
    int w = 0, h = 0;
    std::vector<uint8_t> rgb;
};

const Image& photo() {
    static Image img = [] {
        Image im;
        png_image p;
        std::memset(&p, 0, sizeof p);
        p.version = PNG_IMAGE_VERSION;
        const std::string path = std::string(ZEB_SOURCE_DIR) + "/data/astronaut.png";
        if (png_image_begin_read_from_file(&p, path.c_str())) {
            p.format = PNG_FORMAT_RGB;
            im.rgb.resize(PNG_IMAGE_SIZE(p));
            if (png_image_finish_read(&p, nullptr, im.rgb.data(), 0, nullptr)) {
                im.w = static_cast<int>(p.width);
                im.h = static_cast<int>(p.height);
            }
        }
        return im;
    }();
    return img;
}

std::vector<uint8_t> compressProgressive(int quality) {
    const Image& im = photo();
    jpeg_compress_struct c;
    jpeg_error_mgr e;
    c.err = jpeg_std_error(&e);
    jpeg_create_compress(&c);
    unsigned char* mem = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &mem, &size);
    c.image_width = static_cast<JDIMENSION>(im.w);
    c.image_height = static_cast<JDIMENSION>(im.h);
    c.input_components = 3;
    c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    jpeg_simple_progression(&c);
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<uint8_t*>(&im.rgb[static_cast<size_t>(c.next_scanline) * im.w * 3]);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    std::vector<uint8_t> out(mem, mem + size);
    jpeg_destroy_compress(&c);
    free(mem);
    return out;
}

// The file parsed once: components, tables in force for each scan, and the
// scans' parameters and first bytes. No restart intervals in these files.
struct Parsed {
    struct Comp {
        int id, h, v, wBlocks, hBlocks, stride, rows;
    };
    struct Scan {
        std::vector<int> comps, td, ta;
        int ss, se, ah, al;
        size_t start;
        std::vector<DecodeHuffmanSpec> dc, ac;  // the four slots as the scan sees them
    };
    std::vector<Comp> comps;
    std::vector<Scan> scans;
    int mcuX = 0, mcuY = 0;
    size_t blocks = 0;
};

Parsed parse(const std::vector<uint8_t>& d) {
    Parsed f;
    std::vector<DecodeHuffmanSpec> dc(4), ac(4);
    size_t p = 2;
    int width = 0, height = 0, hmax = 1, vmax = 1;
    while (p + 4 <= d.size()) {
        const int m = d[p + 1];
        if (m == 0xD9) break;
        const size_t len = static_cast<size_t>(d[p + 2]) << 8 | d[p + 3];
        const uint8_t* s = &d[p + 4];
        if (m == 0xC4) {
            size_t q = 0;
            while (q + 17 <= len - 2) {
                int n = 0;
                for (int i = 0; i < 16; ++i) n += s[q + 1 + i];
                zebiDecodeHuffmanSpecInit_JPEG_8u(s + q + 1, s + q + 17, (s[q] >> 4) ? &ac[s[q] & 3] : &dc[s[q] & 3]);
                q += 17 + n;
            }
        } else if (m == 0xC2) {
            height = s[1] << 8 | s[2];
            width = s[3] << 8 | s[4];
            for (int i = 0; i < s[5]; ++i) {
                f.comps.push_back({s[6 + 3 * i], s[7 + 3 * i] >> 4, s[7 + 3 * i] & 15, 0, 0, 0, 0});
                hmax = std::max(hmax, f.comps.back().h);
                vmax = std::max(vmax, f.comps.back().v);
            }
            f.mcuX = (width + 8 * hmax - 1) / (8 * hmax);
            f.mcuY = (height + 8 * vmax - 1) / (8 * vmax);
            for (auto& c : f.comps) {
                c.wBlocks = ((width * c.h + hmax - 1) / hmax + 7) / 8;
                c.hBlocks = ((height * c.v + vmax - 1) / vmax + 7) / 8;
                c.stride = f.mcuX * c.h;
                c.rows = f.mcuY * c.v;
                f.blocks += static_cast<size_t>(c.wBlocks) * c.hBlocks;
            }
        } else if (m == 0xDA) {
            Parsed::Scan sc;
            const int ns = s[0];
            for (int i = 0; i < ns; ++i)
                for (size_t c = 0; c < f.comps.size(); ++c)
                    if (f.comps[c].id == s[1 + 2 * i]) {
                        sc.comps.push_back(static_cast<int>(c));
                        sc.td.push_back(s[2 + 2 * i] >> 4);
                        sc.ta.push_back(s[2 + 2 * i] & 15);
                    }
            sc.ss = s[1 + 2 * ns];
            sc.se = s[2 + 2 * ns];
            sc.ah = s[3 + 2 * ns] >> 4;
            sc.al = s[3 + 2 * ns] & 15;
            sc.start = p + 2 + len;
            sc.dc = dc;
            sc.ac = ac;
            f.scans.push_back(sc);
            // Skip the entropy-coded data to the next marker.
            p = sc.start;
            while (p + 1 < d.size() && !(d[p] == 0xFF && d[p + 1] != 0 && (d[p + 1] < 0xD0 || d[p + 1] > 0xD7))) ++p;
            continue;
        }
        p += 2 + len;
    }
    return f;
}

// All scans of the file into the coefficient arrays; false on any failure.
bool decodeAll(const std::vector<uint8_t>& d, const Parsed& f, std::vector<std::vector<int16_t>>& out) {
    for (size_t c = 0; c < f.comps.size(); ++c) std::fill(out[c].begin(), out[c].end(), 0);
    const int len = static_cast<int>(d.size());
    for (const auto& sc : f.scans) {
        DecodeHuffmanState st;
        zebiDecodeHuffmanStateInit_JPEG_8u(&st);
        int pos = static_cast<int>(sc.start), marker = 0;
        int16_t lastDC[4] = {};
        const bool inter = sc.comps.size() > 1;
        auto one = [&](size_t i, int16_t* blk) {
            if (sc.ss == 0 && sc.ah == 0)
                return zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(d.data(), len, &pos, blk, &lastDC[i], &marker, sc.al, &sc.dc[sc.td[i]], &st);
            if (sc.ss == 0) return zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(d.data(), len, &pos, blk, &marker, sc.al, &st);
            if (sc.ah == 0)
                return zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(d.data(), len, &pos, blk, &marker, sc.ss, sc.se, sc.al, &sc.ac[sc.ta[i]], &st);
            return zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(d.data(), len, &pos, blk, &marker, sc.ss, sc.se, sc.al, &sc.ac[sc.ta[i]], &st);
        };
        if (!inter) {
            // One component: its blocks in raster order, the application's loop.
            const auto& c = f.comps[sc.comps[0]];
            for (int by = 0; by < c.hBlocks; ++by) {
                int16_t* blk = &out[sc.comps[0]][static_cast<size_t>(by) * c.stride * 64];
                for (int bx = 0; bx < c.wBlocks; ++bx, blk += 64)
                    if (one(0, blk) != 0) return false;
            }
            continue;
        }
        for (int my = 0; my < f.mcuY; ++my) {
            for (int mx = 0; mx < f.mcuX; ++mx) {
                for (size_t i = 0; i < sc.comps.size(); ++i) {
                    const auto& c = f.comps[sc.comps[i]];
                    for (int v = 0; v < c.v; ++v) {
                        int16_t* blk = &out[sc.comps[i]][(static_cast<size_t>(my * c.v + v) * c.stride + mx * c.h) * 64];
                        for (int h = 0; h < c.h; ++h, blk += 64)
                            if (one(i, blk) != 0) return false;
                    }
                }
            }
        }
    }
    return true;
}

// libjpeg-turbo's coefficients; with `check`, compared with ours.
bool readCoefficients(const std::vector<uint8_t>& d, const std::vector<std::vector<int16_t>>* check = nullptr,
                      const Parsed* f = nullptr) {
    bool same = true;
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, d.data(), static_cast<unsigned long>(d.size()));
    jpeg_read_header(&cinfo, TRUE);
    jvirt_barray_ptr* arrays = jpeg_read_coefficients(&cinfo);
    benchmark::DoNotOptimize(arrays);
    if (check != nullptr) {
        for (int c = 0; c < cinfo.num_components; ++c) {
            const auto& k = f->comps[c];
            for (int by = 0; by < k.hBlocks; ++by) {
                JBLOCKARRAY row = (*cinfo.mem->access_virt_barray)(reinterpret_cast<j_common_ptr>(&cinfo), arrays[c], by, 1, FALSE);
                for (int bx = 0; bx < k.wBlocks; ++bx)
                    if (std::memcmp(row[0][bx], &(*check)[c][(static_cast<size_t>(by) * k.stride + bx) * 64], 128) != 0) same = false;
            }
        }
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return same;
}

struct Case {
    std::vector<uint8_t> file;
    Parsed parsed;
};
const Case& caseFor(int quality) {
    static std::map<int, Case> cache;
    auto it = cache.find(quality);
    if (it == cache.end()) {
        Case c;
        c.file = compressProgressive(quality);
        c.parsed = parse(c.file);
        it = cache.emplace(quality, std::move(c)).first;
    }
    return it->second;
}

void BM_ZebProgressiveDecode(benchmark::State& state) {
    if (photo().w == 0) {
        state.SkipWithError("data/astronaut.png not readable");
        return;
    }
    const Case& c = caseFor(static_cast<int>(state.range(0)));
    std::vector<std::vector<int16_t>> out(c.parsed.comps.size());
    for (size_t i = 0; i < out.size(); ++i)
        out[i].resize(static_cast<size_t>(c.parsed.comps[i].stride) * c.parsed.comps[i].rows * 64);
    if (!decodeAll(c.file, c.parsed, out) || !readCoefficients(c.file, &out, &c.parsed)) {
        state.SkipWithError("our coefficients differ from libjpeg-turbo's");
        return;
    }
    for (auto _ : state) {
        if (!decodeAll(c.file, c.parsed, out)) {
            state.SkipWithError("decode failed");
            return;
        }
        benchmark::DoNotOptimize(out[0].data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(c.parsed.blocks));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(c.file.size()));
    state.counters["scans"] = static_cast<double>(c.parsed.scans.size());
}

void BM_LibjpegReadCoefficients(benchmark::State& state) {
    if (photo().w == 0) {
        state.SkipWithError("data/astronaut.png not readable");
        return;
    }
    const Case& c = caseFor(static_cast<int>(state.range(0)));
    for (auto _ : state) readCoefficients(c.file);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(c.parsed.blocks));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(c.file.size()));
}

BENCHMARK(BM_ZebProgressiveDecode)->Arg(50)->Arg(75)->Arg(90)->Arg(98);
BENCHMARK(BM_LibjpegReadCoefficients)->Arg(50)->Arg(75)->Arg(90)->Arg(98);

// Predictor rows over the photograph's green channel (rows of 512 samples).
std::vector<int16_t> greenPlane() {
    const Image& im = photo();
    std::vector<int16_t> g(static_cast<size_t>(im.w) * im.h);
    for (size_t i = 0; i < g.size(); ++i) g[i] = im.rgb[3 * i + 1];
    return g;
}

void BM_DiffPredRow(benchmark::State& state) {
    const Image& im = photo();
    if (im.w == 0) {
        state.SkipWithError("data/astronaut.png not readable");
        return;
    }
    static const std::vector<int16_t> plane = greenPlane();
    std::vector<int16_t> out(im.w);
    const int p = static_cast<int>(state.range(0));
    for (auto _ : state) {
        for (int y = 1; y < im.h; ++y)
            zebiDiffPredRow_JPEG_16s_C1(&plane[static_cast<size_t>(y) * im.w], &plane[static_cast<size_t>(y - 1) * im.w], out.data(), im.w, p);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(im.w) * (im.h - 1));
}

void BM_ReconstructPredRow(benchmark::State& state) {
    const Image& im = photo();
    if (im.w == 0) {
        state.SkipWithError("data/astronaut.png not readable");
        return;
    }
    static const std::vector<int16_t> plane = greenPlane();
    const int p = static_cast<int>(state.range(0));
    std::vector<int16_t> diff(plane.size()), rec(plane.size());
    for (int y = 1; y < im.h; ++y)
        zebiDiffPredRow_JPEG_16s_C1(&plane[static_cast<size_t>(y) * im.w], &plane[static_cast<size_t>(y - 1) * im.w], &diff[static_cast<size_t>(y) * im.w], im.w, p);
    std::copy(plane.begin(), plane.begin() + im.w, rec.begin());
    for (auto _ : state) {
        for (int y = 1; y < im.h; ++y)
            zebiReconstructPredRow_JPEG_16s_C1(&diff[static_cast<size_t>(y) * im.w], &rec[static_cast<size_t>(y - 1) * im.w], &rec[static_cast<size_t>(y) * im.w], im.w, p);
        benchmark::DoNotOptimize(rec.data());
    }
    if (rec != plane) state.SkipWithError("reconstruction differs");
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(im.w) * (im.h - 1));
}

BENCHMARK(BM_DiffPredRow)->DenseRange(1, 7);
BENCHMARK(BM_ReconstructPredRow)->DenseRange(1, 7);

}  // namespace

#endif

BENCHMARK_MAIN();
