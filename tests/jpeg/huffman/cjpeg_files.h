// Shared pieces of the tests that compare our JPEG decoders with
// libjpeg-turbo on files written by its cjpeg tool: a photograph-like test
// scene, file reading, the tool's path, and libjpeg-turbo's coefficients.
#pragma once

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#ifdef ZEB_HAVE_LIBJPEG
#include <jpeglib.h>
#endif

namespace hufftest {

using Coeffs = std::vector<std::vector<int16_t>>;  // per component, blocks of 64 in raster order

// A photograph-like scene as a PPM file: gradients, a shaded disc, stripes, a
// checkerboard and noise.
inline void writeScene(const std::string& path, int w, int h, unsigned seed) {
    std::mt19937 g(seed);
    std::normal_distribution<double> noise(0.0, 5.0);
    std::vector<uint8_t> px(static_cast<size_t>(w) * h * 3);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            double c[3] = {70 + 150.0 * y / h, 150 + 70.0 * x / w, 230 - 90.0 * y / h};
            double dx = x - w * 0.4, dy = y - h * 0.5;
            if (dx * dx + dy * dy < h * h * 0.06) {
                double shade = 1.0 - std::sqrt(dx * dx + dy * dy) / (h * 0.3);
                c[0] = 210 * shade + 30, c[1] = 70 * shade + 10, c[2] = 40;
            }
            if (y > h * 0.72) c[0] = c[1] = 110 + 60 * std::sin(x * 0.5 + y * 0.2), c[2] = 50;
            if (x > w * 0.78 && y < h * 0.45) c[0] = c[1] = c[2] = (x / 5 + y / 5) % 2 ? 245 : 12;
            for (int i = 0; i < 3; ++i) {
                double v = c[i] + noise(g);
                px[(static_cast<size_t>(y) * w + x) * 3 + i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
            }
        }
    }
    std::ofstream f(path, std::ios::binary);
    f << "P6\n" << w << " " << h << "\n255\n";
    f.write(reinterpret_cast<const char*>(px.data()), static_cast<std::streamsize>(px.size()));
}

inline std::vector<uint8_t> readAll(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}

// Path of cjpeg, or empty when it is not installed.
inline std::string toolPath() {
    FILE* p = popen("command -v cjpeg 2>/dev/null", "r");
    if (!p) return "";
    char buf[512] = {};
    std::string r = fgets(buf, sizeof buf, p) ? std::string(buf) : "";
    pclose(p);
    while (!r.empty() && (r.back() == '\n' || r.back() == '\r')) r.pop_back();
    return r;
}

struct LibjpegComp {
    int id, h, v, wBlocks, hBlocks;
};

#ifdef ZEB_HAVE_LIBJPEG
// The quantised coefficients of every component, as jpeg_read_coefficients
// gives them.
inline bool readLibjpegCoefficients(const std::vector<uint8_t>& d, Coeffs& out, std::vector<LibjpegComp>& geo) {
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, d.data(), static_cast<unsigned long>(d.size()));
    jpeg_read_header(&cinfo, TRUE);
    jvirt_barray_ptr* arrays = jpeg_read_coefficients(&cinfo);
    out.assign(cinfo.num_components, {});
    geo.clear();
    for (int c = 0; c < cinfo.num_components; ++c) {
        jpeg_component_info* ci = &cinfo.comp_info[c];
        LibjpegComp g{ci->component_id, ci->h_samp_factor, ci->v_samp_factor, static_cast<int>(ci->width_in_blocks),
                      static_cast<int>(ci->height_in_blocks)};
        geo.push_back(g);
        out[c].resize(static_cast<size_t>(g.wBlocks) * g.hBlocks * 64);
        for (int by = 0; by < g.hBlocks; ++by) {
            JBLOCKARRAY row = (*cinfo.mem->access_virt_barray)(reinterpret_cast<j_common_ptr>(&cinfo), arrays[c], by, 1, FALSE);
            for (int bx = 0; bx < g.wBlocks; ++bx)
                for (int i = 0; i < 64; ++i) out[c][(static_cast<size_t>(by) * g.wBlocks + bx) * 64 + i] = row[0][bx][i];
        }
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}
#endif

}  // namespace hufftest
