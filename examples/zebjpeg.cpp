// zebjpeg: baseline JPEG files written and read with the zebjp block
// operations; the file format is handled in jpeg/codec.cpp.
//
//   zebjpeg encode [-q quality] [-s 444|422|420] [-r restart_mcus] [--optimize]
//                  [--reconstruction recon.(pgm|ppm|png)] in.(pgm|ppm|png) out.jpg
//   zebjpeg encode --progressive [-q quality] [-s 444|422|420] [-r restart_mcus] in out.jpg
//   zebjpeg encode --lossless [-p predictor] [-t point_transform] [-P precision] [-r restart_rows] in out.jpg
//   zebjpeg decode in.jpg out.(pgm|ppm|png)
//
// Grey input gives a one-component file. 16-bit input is rounded to 8 bits.
// Lossless files take 8-bit or 16-bit grey or RGB input; the precision is 8
// for 8-bit input and by default the bits of the PNM maxval (16 for PNG) for
// 16-bit input. A lossless file of 9 to 15 bits decodes to a PNM with maxval
// 2^bits - 1 (PNG: 16-bit samples holding the values unscaled).
// --reconstruction also writes the pixels that a decoder of the new file
// produces, computed by the encoder from its own quantised blocks.
#include <cctype>
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
                 "       zebjpeg encode --progressive [-q quality] [-s 444|422|420] [-r restart_interval]\n"
                 "                      [--reconstruction recon.ppm] in out.jpg\n"
                 "       zebjpeg encode --lossless [-p 1..7] [-t point_transform] [-P precision]\n"
                 "                      [-r restart_rows] in out.jpg\n"
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
    img.bits = r.bits > 8 ? 16 : 8;
    img.data8 = r.pixels;
    img.data16 = r.samples16;
    return img;
}

bool hasPnmSuffix(const std::string& path) {
    const auto dot = path.rfind('.');
    if (dot == std::string::npos) return false;
    const std::string ext = path.substr(dot);
    return ext == ".pgm" || ext == ".ppm" || ext == ".pnm";
}

// A PNM whose maxval is 2^bits - 1, for lossless samples of 9 to 15 bits.
void writePnm(const std::string& path, const zebjpeg::Raster& r) {
    std::string head = std::string(r.channels == 1 ? "P5" : "P6") + "\n" + std::to_string(r.width) + " " +
                       std::to_string(r.height) + "\n" + std::to_string((1 << r.bits) - 1) + "\n";
    std::vector<uint8_t> bytes(head.begin(), head.end());
    for (uint16_t v : r.samples16) {
        bytes.push_back(uint8_t(v >> 8));
        bytes.push_back(uint8_t(v));
    }
    zebex::writeFile(path, bytes);
}

// The bits of a PNM file's maxval (0 if the file is not a PNM).
int pnmMaxvalBits(const std::string& path) {
    std::vector<uint8_t> d = zebex::readFile(path);
    if (d.size() < 2 || d[0] != 'P' || (d[1] != '5' && d[1] != '6')) return 0;
    size_t p = 2;
    long fields[3] = {};
    for (long& f : fields) {
        for (;;) {
            while (p < d.size() && std::isspace(d[p])) ++p;
            if (p < d.size() && d[p] == '#')
                while (p < d.size() && d[p] != '\n') ++p;
            else
                break;
        }
        while (p < d.size() && std::isdigit(d[p])) f = f * 10 + (d[p++] - '0');
    }
    int bits = 1;
    while (bits < 16 && (1L << bits) - 1 < fields[2]) ++bits;
    return bits;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    const std::string cmd = argv[1];
    try {
        if (cmd == "encode") {
            zebjpeg::EncodeOptions opt;
            zebjpeg::LosslessOptions lopt;
            bool lossless = false, progressive = false;
            int precision = 0;
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
                } else if (a == "--lossless") {
                    lossless = true;
                } else if (a == "--progressive") {
                    progressive = true;
                } else if (a == "-p" && hasValue) {
                    if (!parseInt(argv[++i], 1, 7, lopt.predictor)) return usage();
                } else if (a == "-t" && hasValue) {
                    if (!parseInt(argv[++i], 0, 15, lopt.pointTransform)) return usage();
                } else if (a == "-P" && hasValue) {
                    if (!parseInt(argv[++i], 2, 16, precision)) return usage();
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
            if (lossless) {
                if (progressive || !recon.empty()) return usage();
                lopt.restartRows = opt.restartInterval;
                std::vector<uint16_t> wide;
                if (img.bits == 8) {
                    wide.assign(img.data8.begin(), img.data8.end());
                    lopt.precision = precision ? precision : 8;
                } else {
                    wide = std::move(img.data16);
                    const int fileBits = pnmMaxvalBits(files[0]);
                    lopt.precision = precision ? precision : fileBits ? fileBits : 16;
                }
                std::vector<uint8_t> jpg = zebjpeg::encodeLossless(wide.data(), img.samplesPerRow(), img.width,
                                                                   img.height, img.channels, lopt);
                zebex::writeFile(files[1], jpg);
                return 0;
            }
            opt.progressive = progressive;
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
            zebjpeg::Raster r = zebjpeg::decode(data.data(), data.size());
            if (r.bits > 8 && r.bits < 16 && hasPnmSuffix(argv[3]))
                writePnm(argv[3], r);
            else
                zebex::writeImage(argv[3], toImage(r));
        } else {
            return usage();
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zebjpeg: %s\n", e.what());
        return 1;
    }
    return 0;
}
