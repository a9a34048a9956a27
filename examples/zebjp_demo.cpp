// zebjp_demo: encodes and decodes a real photograph (data/astronaut.png, or
// the image given) with the zebjpeg tool's pipeline on the library and with
// libjpeg-turbo, at the same quality and sampling, and prints file sizes,
// PSNR against the source and throughput side by side, on one thread. A
// short second part times the level shift pair against memcpy.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "codec.h"
#include "image_io.h"
#include "zebcore.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_JPEG
#include <jpeglib.h>
#endif

namespace {

template <class F>
double bestSeconds(F&& f, int reps) {
    double best = 1e30;
    for (int i = 0; i < reps; ++i) {
        auto t0 = std::chrono::steady_clock::now();
        f();
        double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        if (s < best) best = s;
    }
    return best;
}

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    double se = 0;
    for (size_t i = 0; i < a.size(); ++i) se += double(int(a[i]) - int(b[i])) * double(int(a[i]) - int(b[i]));
    return se == 0 ? INFINITY : 10 * std::log10(255.0 * 255.0 * double(a.size()) / se);
}

#ifdef ZEB_HAVE_JPEG
std::vector<uint8_t> turboEncode(const std::vector<uint8_t>& rgb, int w, int h, int quality, bool s444) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* mem = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &mem, &size);
    c.image_width = JDIMENSION(w);
    c.image_height = JDIMENSION(h);
    c.input_components = 3;
    c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    c.comp_info[0].h_samp_factor = c.comp_info[0].v_samp_factor = s444 ? 1 : 2;
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(&rgb[size_t(c.next_scanline) * w * 3]);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::vector<uint8_t> out(mem, mem + size);
    std::free(mem);
    return out;
}

std::vector<uint8_t> turboDecode(const std::vector<uint8_t>& file) {
    jpeg_decompress_struct d;
    jpeg_error_mgr err;
    d.err = jpeg_std_error(&err);
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, file.data(), (unsigned long)file.size());
    jpeg_read_header(&d, TRUE);
    d.out_color_space = JCS_RGB;
    jpeg_start_decompress(&d);
    std::vector<uint8_t> pixels(size_t(d.output_width) * d.output_height * 3);
    while (d.output_scanline < d.output_height) {
        JSAMPROW row = &pixels[size_t(d.output_scanline) * d.output_width * 3];
        jpeg_read_scanlines(&d, &row, 1);
    }
    jpeg_finish_decompress(&d);
    jpeg_destroy_decompress(&d);
    return pixels;
}
#endif

void levelShift() {
    const int side = 4096;
    const size_t n = size_t(side) * side;
    std::vector<Zeb8u> pixels(n), back(n);
    std::vector<Zeb16s> shifted(n);
    for (size_t i = 0; i < n; ++i) pixels[i] = static_cast<Zeb8u>((i * 7 + i / side * 3) & 0xFF);
    const ZebSize roi{side, side};
    const double bytes = double(n) * 3;
    std::vector<Zeb8u> a(n * 3 / 2, 1), b(n * 3 / 2);
    double tCopy = bestSeconds([&] { std::memcpy(b.data(), a.data(), a.size()); }, 5);
    std::printf("\nlevel shift of a %dx%d region, all cores (%.1f MB moved per call)\n", side, side, bytes / 1e6);
    std::printf("  %-28s %8.2f GB/s\n", "memcpy of the same bytes", bytes / tCopy / 1e9);
    double tSub = bestSeconds([&] { zebiSub128_JPEG_8u16s_C1R(pixels.data(), side, shifted.data(), 2 * side, roi); }, 5);
    double tAdd = bestSeconds([&] { zebiAdd128_JPEG_16s8u_C1R(shifted.data(), 2 * side, back.data(), side, roi); }, 5);
    std::printf("  %-28s %8.2f GB/s\n", "Sub128", bytes / tSub / 1e9);
    std::printf("  %-28s %8.2f GB/s\n", "Add128", bytes / tAdd / 1e9);
    std::printf("  round trip: %s\n", std::memcmp(pixels.data(), back.data(), n) == 0 ? "identical" : "DIFFERENT");
}

}  // namespace

int main(int argc, char** argv) {
    const ZebLibraryVersion* v = zebjGetLibVersion();
    std::printf("%s  version %s  (%d.%d.%d build %d, built %s)\n", v->name, v->version, v->major, v->minor,
                v->majorBuild, v->build, v->buildDate);
    const std::string path = argc > 1 ? argv[1] : std::string(ZEB_SOURCE_DIR) + "/data/astronaut.png";
    zebex::Image img;
    try {
        img = zebex::readImage(path);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zebjp_demo: %s\n", e.what());
        return 1;
    }
    if (img.bits != 8 || img.channels != 3) {
        std::fprintf(stderr, "zebjp_demo: needs an 8-bit RGB image\n");
        return 1;
    }
    const int w = img.width, h = img.height;
    const double mpix = double(w) * h / 1e6;
    std::printf("\n%s: %dx%d RGB, one thread, best of 7 runs\n", path.c_str(), w, h);
    std::printf("  %-24s %9s %9s %12s %12s\n", "", "bytes", "PSNR dB", "enc Mpix/s", "dec Mpix/s");
    zebcoreSetNumThreads(1);
    int status = 0;
    for (bool s444 : {false, true})
        for (int q : {75, 90}) {
            zebjpeg::EncodeOptions opt;
            opt.quality = q;
            opt.sampling = s444 ? zebjpeg::Sampling::s444 : zebjpeg::Sampling::s420;
            std::vector<uint8_t> ours, back;
            try {
                double te = bestSeconds([&] { ours = zebjpeg::encode(img.data8.data(), size_t(w) * 3, w, h, 3, opt); }, 7);
                double td = bestSeconds([&] { back = zebjpeg::decode(ours.data(), ours.size()).pixels; }, 7);
                char label[64];
                std::snprintf(label, sizeof label, "zebjp   q%d %s", q, s444 ? "4:4:4" : "4:2:0");
                std::printf("  %-24s %9zu %9.2f %12.1f %12.1f\n", label, ours.size(), psnr(back, img.data8), mpix / te,
                            mpix / td);
#ifdef ZEB_HAVE_JPEG
                std::vector<uint8_t> theirs, tback;
                double te2 = bestSeconds([&] { theirs = turboEncode(img.data8, w, h, q, s444); }, 7);
                double td2 = bestSeconds([&] { tback = turboDecode(theirs); }, 7);
                std::snprintf(label, sizeof label, "libjpeg-turbo q%d %s", q, s444 ? "4:4:4" : "4:2:0");
                std::printf("  %-24s %9zu %9.2f %12.1f %12.1f\n", label, theirs.size(), psnr(tback, img.data8),
                            mpix / te2, mpix / td2);
                // Each decoder on the other's file.
                std::vector<uint8_t> cross1 = turboDecode(ours);
                std::vector<uint8_t> cross2 = zebjpeg::decode(theirs.data(), theirs.size()).pixels;
                std::printf("  %-24s our file: %.2f dB between the two decoders; theirs: %.2f dB\n", "", psnr(cross1, back),
                            psnr(cross2, tback));
#endif
            } catch (const std::exception& e) {
                std::fprintf(stderr, "zebjp_demo: %s\n", e.what());
                status = 1;
            }
        }
    zebcoreSetNumThreads(0);
    levelShift();
    return status;
}
