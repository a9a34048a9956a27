// zebjpeg: baseline JPEG files written and read with the zebjp block
// operations; the file format is handled in jpeg/codec.cpp.
//
//   zebjpeg encode [-q quality] [-s 444|422|420] [-r restart_mcus] [--optimize]
//                  [--reconstruction recon.(pgm|ppm|png)] in.(pgm|ppm|png) out.jpg
//   zebjpeg decode in.jpg out.(pgm|ppm|png)
//
// Grey input gives a one-component file. 16-bit input is rounded to 8 bits.
// --reconstruction also writes the pixels that a decoder of the new file
// produces, computed by the encoder from its own quantised blocks.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "codec.h"
#include "image_io.h"

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: zebjpeg encode [-q quality] [-s 444|422|420] [-r restart_interval] [--optimize]\n"
                 "                      [--reconstruction recon.ppm] in.(ppm|pgm|png) out.jpg\n"
                 "       zebjpeg decode in.jpg out.(ppm|pgm|png)\n");
    return 2;
}

bool parseInt(const char* s, int lo, int hi, int& out) {
    char* end = nullptr;
    long v = std::strtol(s, &end, 10);
    if (!*s || *end || v < lo || v > hi) return false;
    out = int(v);
    return true;
}

zebex::Image toImage(const zebjpeg::Raster& r) {
    zebex::Image img;
    img.width = r.width;
    img.height = r.height;
    img.channels = r.channels;
    img.bits = 8;
    img.data8 = r.pixels;
    return img;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    const std::string cmd = argv[1];
    try {
        if (cmd == "encode") {
            zebjpeg::EncodeOptions opt;
            std::string recon;
            std::vector<std::string> files;
            for (int i = 2; i < argc; ++i) {
                std::string a = argv[i];
                const bool hasValue = i + 1 < argc;
                if (a == "-q" && hasValue) {
                    if (!parseInt(argv[++i], 1, 100, opt.quality)) return usage();
                } else if (a == "-s" && hasValue) {
                    std::string s = argv[++i];
                    if (s == "444") opt.sampling = zebjpeg::Sampling::s444;
                    else if (s == "422") opt.sampling = zebjpeg::Sampling::s422;
                    else if (s == "420") opt.sampling = zebjpeg::Sampling::s420;
                    else return usage();
                } else if (a == "-r" && hasValue) {
                    if (!parseInt(argv[++i], 0, 65535, opt.restartInterval)) return usage();
                } else if (a == "--optimize") {
                    opt.optimize = true;
                } else if (a == "--reconstruction" && hasValue) {
                    recon = argv[++i];
                } else if (a.size() > 1 && a[0] == '-') {
                    return usage();
                } else {
                    files.push_back(a);
                }
            }
            if (files.size() != 2) return usage();
            zebex::Image img = zebex::readImage(files[0]);
            if (img.bits == 16) {
                img.data8.resize(img.data16.size());
                for (size_t i = 0; i < img.data16.size(); ++i) img.data8[i] = uint8_t((img.data16[i] * 255u + 32767u) / 65535u);
                img.bits = 8;
            }
            zebjpeg::Raster rec;
            std::vector<uint8_t> jpg = zebjpeg::encode(img.data8.data(), img.samplesPerRow(), img.width, img.height,
                                                       img.channels, opt, recon.empty() ? nullptr : &rec);
            zebex::writeFile(files[1], jpg);
            if (!recon.empty()) zebex::writeImage(recon, toImage(rec));
        } else if (cmd == "decode") {
            if (argc != 4) return usage();
            std::vector<uint8_t> data = zebex::readFile(argv[2]);
            zebex::writeImage(argv[3], toImage(zebjpeg::decode(data.data(), data.size())));
        } else {
            return usage();
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zebjpeg: %s\n", e.what());
        return 1;
    }
    return 0;
}
