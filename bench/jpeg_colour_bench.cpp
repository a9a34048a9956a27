// Colour conversion and sampling throughput, in pixels per second, on a
// 1920x1080 and a 4096x4096 image, with one thread and with all cores.
// Anchors in the same run: memcpy of the same bytes (read plus written), and,
// where libjpeg-turbo is present, its decoder and encoder on the same image
// with and without their colour step (raw data in and out), so that the
// difference is the time its own colour conversion takes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "zebcore.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_JPEG
#include <jpeglib.h>
#endif

namespace {

struct Image {
    int w, h;
    std::vector<uint8_t> rgb, rgba, y, cb, cr, cb2, cr2, out, out2, out3;
    Image(int w_, int h_) : w(w_), h(h_) {
        const size_t n = static_cast<size_t>(w) * h;
        rgb.resize(n * 3);
        rgba.resize(n * 4);
        std::mt19937 g(7);
        // A smooth picture with some noise, like camera content.
        for (int yy = 0; yy < h; ++yy)
            for (int x = 0; x < w; ++x) {
                const size_t i = static_cast<size_t>(yy) * w + x;
                uint8_t r = static_cast<uint8_t>((x * 255 / w + (g() & 15)) & 255);
                uint8_t gg = static_cast<uint8_t>((yy * 255 / h + (g() & 15)) & 255);
                uint8_t b = static_cast<uint8_t>(((x + yy) * 127 / (w + h) + 64 + (g() & 7)) & 255);
                rgb[3 * i] = rgba[4 * i] = r;
                rgb[3 * i + 1] = rgba[4 * i + 1] = gg;
                rgb[3 * i + 2] = rgba[4 * i + 2] = b;
                rgba[4 * i + 3] = 255;
            }
        y.resize(n);
        cb.resize(n);
        cr.resize(n);
        cb2.resize(n + w);
        cr2.resize(n + w);
        out.resize(n * 4);
        out2.resize(n);
        out3.resize(n);
        Zeb8u* d[3] = {y.data(), cb.data(), cr.data()};
        zebiRGBToYCbCr_JPEG_8u_C3P3R(rgb.data(), 3 * w, d, w, ZebSize{w, h});
    }
};

Image& image(int which) {
    static Image small(1920, 1080), large(4096, 4096);
    return which ? large : small;
}

void setThreads(benchmark::State& st) { zebcoreSetNumThreads(st.range(1) ? 0 : 1); }
void finish(benchmark::State& st, const Image& im, double bytesPerPixel) {
    const double px = static_cast<double>(im.w) * im.h;
    st.counters["px/s"] = benchmark::Counter(px, benchmark::Counter::kIsIterationInvariantRate);
    st.counters["B/s"] = benchmark::Counter(px * bytesPerPixel, benchmark::Counter::kIsIterationInvariantRate);
    zebcoreSetNumThreads(0);
}

// memcpy of `bytesPerPixel` per pixel, split as read and written halves.
void memcpyAnchor(benchmark::State& st, double bytesPerPixel) {
    Image& im = image(static_cast<int>(st.range(0)));
    const size_t n = static_cast<size_t>(static_cast<double>(im.w) * im.h * bytesPerPixel / 2);
    std::vector<uint8_t> a(n, 1), b(n);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), n);
        benchmark::DoNotOptimize(b.data());
        benchmark::ClobberMemory();
    }
    finish(st, im, bytesPerPixel);
}
// RGB to planes and back move 3 + 3 bytes a pixel; H2V2 sampling 1 + 1/4.
void BM_Memcpy_6BytesPerPixel(benchmark::State& st) { memcpyAnchor(st, 6); }
void BM_Memcpy_1_25BytesPerPixel(benchmark::State& st) { memcpyAnchor(st, 2.5); }

void BM_RGBToYCbCr_C3P3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    Zeb8u* d[3] = {im.y.data(), im.cb.data(), im.cr.data()};
    for (auto _ : st) zebiRGBToYCbCr_JPEG_8u_C3P3R(im.rgb.data(), 3 * im.w, d, im.w, ZebSize{im.w, im.h});
    finish(st, im, 6);
}
void BM_RGBToYCbCr_C4P3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    Zeb8u* d[3] = {im.y.data(), im.out2.data(), im.out3.data()};
    for (auto _ : st) zebiRGBToYCbCr_JPEG_8u_C4P3R(im.rgba.data(), 4 * im.w, d, im.w, ZebSize{im.w, im.h});
    finish(st, im, 7);
}
void BM_RGBToYCbCr_P3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb.data(), im.cr.data()};
    Zeb8u* d[3] = {im.out.data(), im.out2.data(), im.out3.data()};
    for (auto _ : st) zebiRGBToYCbCr_JPEG_8u_P3R(s, im.w, d, im.w, ZebSize{im.w, im.h});
    finish(st, im, 6);
}
void BM_RGBToY_C3C1R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    for (auto _ : st) zebiRGBToY_JPEG_8u_C3C1R(im.rgb.data(), 3 * im.w, im.out2.data(), im.w, ZebSize{im.w, im.h});
    finish(st, im, 4);
}
void BM_RGBToYCbCr422_C3P3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    Zeb8u* d[3] = {im.out2.data(), im.cb2.data(), im.cr2.data()};
    const int steps[3] = {im.w, im.w / 2, im.w / 2};
    for (auto _ : st) zebiRGBToYCbCr422_JPEG_8u_C3P3R(im.rgb.data(), 3 * im.w, d, steps, ZebSize{im.w, im.h});
    finish(st, im, 5);
}
void BM_RGBToYCbCr411_C3P3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    Zeb8u* d[3] = {im.out2.data(), im.cb2.data(), im.cr2.data()};
    const int steps[3] = {im.w, im.w / 2, im.w / 2};
    for (auto _ : st) zebiRGBToYCbCr411_JPEG_8u_C3P3R(im.rgb.data(), 3 * im.w, d, steps, ZebSize{im.w, im.h});
    finish(st, im, 4.5);
}
void BM_CMYKToYCCK_C4P4R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    Zeb8u* d[4] = {im.y.data(), im.out2.data(), im.out3.data(), im.cb.data()};
    for (auto _ : st) zebiCMYKToYCCK_JPEG_8u_C4P4R(im.rgba.data(), 4 * im.w, d, im.w, ZebSize{im.w, im.h});
    finish(st, im, 8);
}

void BM_YCbCrToRGB_P3C3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb.data(), im.cr.data()};
    for (auto _ : st) zebiYCbCrToRGB_JPEG_8u_P3C3R(s, im.w, im.out.data(), 3 * im.w, ZebSize{im.w, im.h});
    finish(st, im, 6);
}
void BM_YCbCrToRGB_P3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb.data(), im.cr.data()};
    Zeb8u* d[3] = {im.out.data(), im.out2.data(), im.out3.data()};
    for (auto _ : st) zebiYCbCrToRGB_JPEG_8u_P3R(s, im.w, d, im.w, ZebSize{im.w, im.h});
    finish(st, im, 6);
}
void BM_YCbCrToRGB_P3C4R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb.data(), im.cr.data()};
    for (auto _ : st) zebiYCbCrToRGB_JPEG_8u_P3C4R(s, im.w, im.out.data(), 4 * im.w, ZebSize{im.w, im.h}, 255);
    finish(st, im, 7);
}
void BM_YCbCrToRGB565_P3C3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb.data(), im.cr.data()};
    for (auto _ : st)
        zebiYCbCrToRGB565_JPEG_8u16u_P3C3R(s, im.w, reinterpret_cast<Zeb16u*>(im.out.data()), 2 * im.w, ZebSize{im.w, im.h});
    finish(st, im, 5);
}
void BM_YCbCr411ToRGB_P3C3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb2.data(), im.cr2.data()};
    const int steps[3] = {im.w, im.w / 2, im.w / 2};
    for (auto _ : st) zebiYCbCr411ToRGB_JPEG_8u_P3C3R(s, steps, im.out.data(), 3 * im.w, ZebSize{im.w, im.h});
    finish(st, im, 4.5);
}
void BM_YCbCr422ToRGB_C2C3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    for (auto _ : st) zebiYCbCr422ToRGB_JPEG_8u_C2C3R(im.rgba.data(), 2 * im.w, im.out.data(), 3 * im.w, ZebSize{im.w, im.h});
    finish(st, im, 5);
}
void BM_YCCKToCMYK_P4C4R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[4] = {im.y.data(), im.cb.data(), im.cr.data(), im.out2.data()};
    for (auto _ : st) zebiYCCKToCMYK_JPEG_8u_P4C4R(s, im.w, im.out.data(), 4 * im.w, ZebSize{im.w, im.h});
    finish(st, im, 8);
}

// Sampling: the image size is the full-resolution side.
void BM_SampleDownH2V2(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    for (auto _ : st)
        zebiSampleDownH2V2_JPEG_8u_C1R(im.cb.data(), im.w, ZebSize{im.w, im.h}, im.cb2.data(), im.w / 2,
                                       ZebSize{im.w / 2, im.h / 2});
    finish(st, im, 1.25);
}
void BM_SampleDownH2V1(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    for (auto _ : st)
        zebiSampleDownH2V1_JPEG_8u_C1R(im.cb.data(), im.w, ZebSize{im.w, im.h}, im.out2.data(), im.w / 2,
                                       ZebSize{im.w / 2, im.h});
    finish(st, im, 1.5);
}
void BM_SampleUpH2V2(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    // Source: the quarter-size plane inside a border of one sample.
    const int sw = im.w / 2, step = sw + 2;
    for (auto _ : st)
        zebiSampleUpH2V2_JPEG_8u_C1R(im.cb.data() + step + 1, step, ZebSize{sw, im.h / 2}, im.out2.data(), im.w,
                                     ZebSize{im.w, im.h - 2});
    finish(st, im, 1.25);
}
void BM_SampleUpH2V1(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const int sw = im.w / 2, step = sw + 2;
    for (auto _ : st)
        zebiSampleUpH2V1_JPEG_8u_C1R(im.cb.data() + 1, step, ZebSize{sw, im.h}, im.out2.data(), im.w,
                                     ZebSize{im.w, im.h});
    finish(st, im, 1.5);
}
void BM_SampleUpRowH2V2_Triangle(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    const int sw = im.w / 2;
    for (auto _ : st)
        for (int y = 0; y < im.h; ++y)
            zebiSampleUpRowH2V2_Triangle_JPEG_8u_C1(im.cb.data() + (y / 2) * sw, im.cr.data() + (y / 2) * sw, sw,
                                                    im.out2.data() + static_cast<size_t>(y) * im.w);
    finish(st, im, 1.5);
}
void BM_SampleDownRowH2V2_Box(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    for (auto _ : st)
        for (int y = 0; y < im.h / 2; ++y)
            zebiSampleDownRowH2V2_Box_JPEG_8u_C1(im.cb.data() + static_cast<size_t>(2 * y) * im.w,
                                                 im.cb.data() + static_cast<size_t>(2 * y + 1) * im.w, im.w,
                                                 im.cb2.data() + static_cast<size_t>(y) * (im.w / 2));
    finish(st, im, 1.25);
}


void BM_RGBToY_P3C1R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb.data(), im.cr.data()};
    for (auto _ : st) zebiRGBToY_JPEG_8u_P3C1R(s, im.w, im.out2.data(), im.w, ZebSize{im.w, im.h});
    finish(st, im, 4);
}
void BM_RGB565ToYCbCr_C3P3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    Zeb8u* d[3] = {im.out.data(), im.out2.data(), im.out3.data()};
    for (auto _ : st)
        zebiRGB565ToYCbCr_JPEG_16u8u_C3P3R(reinterpret_cast<const Zeb16u*>(im.rgba.data()), 2 * im.w, d, im.w, ZebSize{im.w, im.h});
    finish(st, im, 5);
}
void BM_RGBToYCbCr411_C4P3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    Zeb8u* d[3] = {im.out2.data(), im.cb2.data(), im.cr2.data()};
    const int steps[3] = {im.w, im.w / 2, im.w / 2};
    for (auto _ : st) zebiRGBToYCbCr411_JPEG_8u_C4P3R(im.rgba.data(), 4 * im.w, d, steps, ZebSize{im.w, im.h});
    finish(st, im, 5.5);
}
void BM_CMYKToYCCK_P4R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[4] = {im.y.data(), im.cb.data(), im.cr.data(), im.out3.data()};
    Zeb8u* d[4] = {im.out.data(), im.out2.data(), im.cb2.data(), im.cr2.data()};
    for (auto _ : st) zebiCMYKToYCCK_JPEG_8u_P4R(s, im.w, d, im.w, ZebSize{im.w, im.h});
    finish(st, im, 8);
}
void BM_YCbCr422ToRGB_P3C3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb2.data(), im.cr2.data()};
    const int steps[3] = {im.w, im.w / 2, im.w / 2};
    for (auto _ : st) zebiYCbCr422ToRGB_JPEG_8u_P3C3R(s, steps, im.out.data(), 3 * im.w, ZebSize{im.w, im.h});
    finish(st, im, 5);
}
void BM_YCbCrToRGB555_P3C3R(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    setThreads(st);
    const Zeb8u* s[3] = {im.y.data(), im.cb.data(), im.cr.data()};
    for (auto _ : st)
        zebiYCbCrToRGB555_JPEG_8u16u_P3C3R(s, im.w, reinterpret_cast<Zeb16u*>(im.out.data()), 2 * im.w, ZebSize{im.w, im.h});
    finish(st, im, 5);
}
void BM_SampleDownRowH2V1_Box(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    for (auto _ : st)
        for (int y = 0; y < im.h; ++y)
            zebiSampleDownRowH2V1_Box_JPEG_8u_C1(im.cb.data() + static_cast<size_t>(y) * im.w, im.w,
                                                 im.out2.data() + static_cast<size_t>(y) * (im.w / 2));
    finish(st, im, 1.5);
}
void BM_SampleUpRowH2V1_Triangle(benchmark::State& st) {
    Image& im = image(static_cast<int>(st.range(0)));
    const int sw = im.w / 2;
    for (auto _ : st)
        for (int y = 0; y < im.h; ++y)
            zebiSampleUpRowH2V1_Triangle_JPEG_8u_C1(im.cb.data() + static_cast<size_t>(y) * sw, sw,
                                                    im.out2.data() + static_cast<size_t>(y) * im.w);
    finish(st, im, 1.5);
}

#ifdef ZEB_HAVE_JPEG
// libjpeg-turbo anchors on the 4:4:4 image, so that the colour step is the
// only difference between the scanline and the raw-data forms.
std::vector<uint8_t>& jpegFile(int which) {
    static std::vector<uint8_t> files[2];
    std::vector<uint8_t>& f = files[which];
    if (f.empty()) {
        Image& im = image(which);
        jpeg_compress_struct c;
        jpeg_error_mgr e;
        c.err = jpeg_std_error(&e);
        jpeg_create_compress(&c);
        unsigned char* mem = nullptr;
        unsigned long size = 0;
        jpeg_mem_dest(&c, &mem, &size);
        c.image_width = im.w;
        c.image_height = im.h;
        c.input_components = 3;
        c.in_color_space = JCS_RGB;
        jpeg_set_defaults(&c);
        jpeg_set_quality(&c, 90, TRUE);
        for (int i = 0; i < 3; ++i) c.comp_info[i].h_samp_factor = c.comp_info[i].v_samp_factor = 1;
        jpeg_start_compress(&c, TRUE);
        while (c.next_scanline < c.image_height) {
            JSAMPROW row = im.rgb.data() + static_cast<size_t>(c.next_scanline) * 3 * im.w;
            jpeg_write_scanlines(&c, &row, 1);
        }
        jpeg_finish_compress(&c);
        f.assign(mem, mem + size);
        free(mem);
        jpeg_destroy_compress(&c);
    }
    return f;
}

void turboDecode(benchmark::State& st, bool raw) {
    Image& im = image(static_cast<int>(st.range(0)));
    std::vector<uint8_t>& f = jpegFile(static_cast<int>(st.range(0)));
    for (auto _ : st) {
        jpeg_decompress_struct d;
        jpeg_error_mgr e;
        d.err = jpeg_std_error(&e);
        jpeg_create_decompress(&d);
        jpeg_mem_src(&d, f.data(), f.size());
        jpeg_read_header(&d, TRUE);
        d.raw_data_out = raw ? TRUE : FALSE;
        d.dct_method = JDCT_ISLOW;
        jpeg_start_decompress(&d);
        if (raw) {
            while (d.output_scanline < d.output_height) {
                JSAMPROW rows[3][8];
                for (int c = 0; c < 3; ++c)
                    for (int k = 0; k < 8; ++k) {
                        uint8_t* plane = c == 0 ? im.out.data() : c == 1 ? im.out2.data() : im.out3.data();
                        int y = static_cast<int>(d.output_scanline) + k;
                        rows[c][k] = plane + static_cast<size_t>(y < im.h ? y : im.h - 1) * im.w;
                    }
                JSAMPARRAY planes[3] = {rows[0], rows[1], rows[2]};
                jpeg_read_raw_data(&d, planes, 8);
            }
        } else {
            while (d.output_scanline < d.output_height) {
                JSAMPROW row = im.out.data() + static_cast<size_t>(d.output_scanline) * 3 * im.w;
                jpeg_read_scanlines(&d, &row, 1);
            }
        }
        jpeg_finish_decompress(&d);
        jpeg_destroy_decompress(&d);
    }
    finish(st, im, 6);
}
void turboEncode(benchmark::State& st, bool raw) {
    Image& im = image(static_cast<int>(st.range(0)));
    for (auto _ : st) {
        jpeg_compress_struct c;
        jpeg_error_mgr e;
        c.err = jpeg_std_error(&e);
        jpeg_create_compress(&c);
        unsigned char* mem = nullptr;
        unsigned long size = 0;
        jpeg_mem_dest(&c, &mem, &size);
        c.image_width = im.w;
        c.image_height = im.h;
        c.input_components = 3;
        c.in_color_space = JCS_RGB;
        jpeg_set_defaults(&c);
        jpeg_set_quality(&c, 90, TRUE);
        for (int i = 0; i < 3; ++i) c.comp_info[i].h_samp_factor = c.comp_info[i].v_samp_factor = 1;
        c.raw_data_in = raw ? TRUE : FALSE;
        c.dct_method = JDCT_ISLOW;
        jpeg_start_compress(&c, TRUE);
        if (raw) {
            while (c.next_scanline < c.image_height) {
                JSAMPROW rows[3][8];
                for (int p = 0; p < 3; ++p)
                    for (int k = 0; k < 8; ++k) {
                        const uint8_t* plane = p == 0 ? im.y.data() : p == 1 ? im.cb.data() : im.cr.data();
                        int y = static_cast<int>(c.next_scanline) + k;
                        rows[p][k] = const_cast<uint8_t*>(plane) + static_cast<size_t>(y < im.h ? y : im.h - 1) * im.w;
                    }
                JSAMPARRAY planes[3] = {rows[0], rows[1], rows[2]};
                jpeg_write_raw_data(&c, planes, 8);
            }
        } else {
            while (c.next_scanline < c.image_height) {
                JSAMPROW row = im.rgb.data() + static_cast<size_t>(c.next_scanline) * 3 * im.w;
                jpeg_write_scanlines(&c, &row, 1);
            }
        }
        jpeg_finish_compress(&c);
        free(mem);
        jpeg_destroy_compress(&c);
    }
    finish(st, im, 6);
}
void BM_Turbo_Decode444_ToRGB(benchmark::State& st) { turboDecode(st, false); }
void BM_Turbo_Decode444_Raw(benchmark::State& st) { turboDecode(st, true); }
void BM_Turbo_Encode444_FromRGB(benchmark::State& st) { turboEncode(st, false); }
void BM_Turbo_Encode444_Raw(benchmark::State& st) { turboEncode(st, true); }
#endif

// range(0): 0 for 1920x1080, 1 for 4096x4096; range(1): 0 one thread, 1 all cores.
void sizesAndThreads(benchmark::internal::Benchmark* b) {
    for (int size : {0, 1})
        for (int all : {0, 1}) b->Args({size, all});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
void sizes(benchmark::internal::Benchmark* b) {
    for (int size : {0, 1}) b->Args({size, 0});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_Memcpy_6BytesPerPixel)->Apply(sizes);
BENCHMARK(BM_Memcpy_1_25BytesPerPixel)->Apply(sizes);
BENCHMARK(BM_RGBToYCbCr_C3P3R)->Apply(sizesAndThreads);
BENCHMARK(BM_RGBToYCbCr_C4P3R)->Apply(sizes);
BENCHMARK(BM_RGBToYCbCr_P3R)->Apply(sizesAndThreads);
BENCHMARK(BM_RGBToY_C3C1R)->Apply(sizesAndThreads);
BENCHMARK(BM_RGBToYCbCr422_C3P3R)->Apply(sizes);
BENCHMARK(BM_RGBToYCbCr411_C3P3R)->Apply(sizes);
BENCHMARK(BM_CMYKToYCCK_C4P4R)->Apply(sizesAndThreads);
BENCHMARK(BM_YCbCrToRGB_P3C3R)->Apply(sizesAndThreads);
BENCHMARK(BM_YCbCrToRGB_P3R)->Apply(sizesAndThreads);
BENCHMARK(BM_YCbCrToRGB_P3C4R)->Apply(sizes);
BENCHMARK(BM_YCbCrToRGB565_P3C3R)->Apply(sizes);
BENCHMARK(BM_YCbCr411ToRGB_P3C3R)->Apply(sizes);
BENCHMARK(BM_YCbCr422ToRGB_C2C3R)->Apply(sizesAndThreads);
BENCHMARK(BM_YCCKToCMYK_P4C4R)->Apply(sizesAndThreads);
BENCHMARK(BM_SampleDownH2V2)->Apply(sizesAndThreads);
BENCHMARK(BM_SampleDownH2V1)->Apply(sizesAndThreads);
BENCHMARK(BM_SampleUpH2V2)->Apply(sizesAndThreads);
BENCHMARK(BM_SampleUpH2V1)->Apply(sizes);
BENCHMARK(BM_SampleUpRowH2V2_Triangle)->Apply(sizes);
BENCHMARK(BM_SampleDownRowH2V2_Box)->Apply(sizes);
BENCHMARK(BM_RGBToY_P3C1R)->Apply(sizes);
BENCHMARK(BM_RGB565ToYCbCr_C3P3R)->Apply(sizes);
BENCHMARK(BM_RGBToYCbCr411_C4P3R)->Apply(sizes);
BENCHMARK(BM_CMYKToYCCK_P4R)->Apply(sizes);
BENCHMARK(BM_YCbCr422ToRGB_P3C3R)->Apply(sizes);
BENCHMARK(BM_YCbCrToRGB555_P3C3R)->Apply(sizes);
BENCHMARK(BM_SampleDownRowH2V1_Box)->Apply(sizes);
BENCHMARK(BM_SampleUpRowH2V1_Triangle)->Apply(sizes);
#ifdef ZEB_HAVE_JPEG
BENCHMARK(BM_Turbo_Decode444_ToRGB)->Apply(sizes);
BENCHMARK(BM_Turbo_Decode444_Raw)->Apply(sizes);
BENCHMARK(BM_Turbo_Encode444_FromRGB)->Apply(sizes);
BENCHMARK(BM_Turbo_Encode444_Raw)->Apply(sizes);
#endif

}  // namespace

BENCHMARK_MAIN();
