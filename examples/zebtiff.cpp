// zebtiff: writes and reads PackBits-compressed TIFF images, one library call
// per row.
//
//   zebtiff encode [--big-endian] [--rows-per-strip N] in.(pgm|ppm|png) out.tif
//   zebtiff decode in.tif out.(pgm|ppm|png)
//
// Images are 8-bit grey or RGB, or 16-bit grey or RGB. Decoding reads
// PackBits and uncompressed strips, either byte order, chunky samples.
// 16-bit rows in the byte order opposite to the machine's are swapped by
// splitting the samples into byte planes and joining them the other way round.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "image_io.h"
#include "zebjp.h"

using zebex::FileError;
using zebex::Image;

namespace {

enum : uint16_t {
    kImageWidth = 256, kImageLength = 257, kBitsPerSample = 258, kCompression = 259, kPhotometric = 262,
    kStripOffsets = 273, kSamplesPerPixel = 277, kRowsPerStrip = 278, kStripByteCounts = 279,
    kXResolution = 282, kYResolution = 283, kPlanarConfig = 284, kResolutionUnit = 296, kPredictor = 317,
};
enum : uint16_t { kShort = 3, kLong = 4, kRational = 5 };
constexpr uint16_t kPackBits = 32773;

void check(ZebStatus st, const char* what) {
    if (st != zebStatusOk) throw FileError(std::string(what) + " failed with status " + std::to_string(st));
}

// Swaps the two bytes of each 16-bit sample with the library's split and join.
void swapRow16(const uint16_t* src, uint16_t* dst, int samples, std::vector<uint8_t>& hi, std::vector<uint8_t>& lo) {
    hi.resize(samples);
    lo.resize(samples);
    Zeb8u* planes[2] = {hi.data(), lo.data()};
    check(zebiSplitRow_TIFF_16u8u_C1(src, planes, samples), "split");
    const Zeb8u* swapped[2] = {lo.data(), hi.data()};
    check(zebiJoinRow_TIFF_8u16u_C1(swapped, dst, samples), "join");
}

// ---------------------------------------------------------------- writing
class Writer {
public:
    explicit Writer(bool big) : big_(big) {}
    void u8(uint8_t v) { out.push_back(v); }
    void u16(uint16_t v) { if (big_) { u8(v >> 8); u8(v & 0xFF); } else { u8(v & 0xFF); u8(v >> 8); } }
    void u32(uint32_t v) { if (big_) { u16(v >> 16); u16(v & 0xFFFF); } else { u16(v & 0xFFFF); u16(v >> 16); } }
    void put32(size_t at, uint32_t v) {
        for (int i = 0; i < 4; ++i) out[at + i] = uint8_t(big_ ? v >> (24 - 8 * i) : v >> (8 * i));
    }
    std::vector<uint8_t> out;

private:
    bool big_;
};

std::vector<uint8_t> encodeTiff(const Image& img, bool bigEndian, int rowsPerStrip) {
    const bool host16 = img.bits == 16 && !bigEndian;  // little-endian host, little-endian file
    const int samples = int(img.samplesPerRow());
    const int rowBytes = samples * img.bits / 8;
    if (rowsPerStrip < 1) rowsPerStrip = std::max(1, 8192 / rowBytes);
    const int strips = (img.height + rowsPerStrip - 1) / rowsPerStrip;

    Writer w(bigEndian);
    w.u8(bigEndian ? 'M' : 'I');
    w.u8(bigEndian ? 'M' : 'I');
    w.u16(42);
    w.u32(0);  // IFD offset, filled in below

    std::vector<uint32_t> offsets, counts;
    std::vector<uint8_t> packed(size_t(rowBytes) + rowBytes / 128 + 2);
    std::vector<uint16_t> swapped;
    std::vector<uint8_t> hi, lo;
    for (int s = 0; s < strips; ++s) {
        offsets.push_back(uint32_t(w.out.size()));
        const int y0 = s * rowsPerStrip, y1 = std::min(img.height, y0 + rowsPerStrip);
        for (int y = y0; y < y1; ++y) {
            const uint8_t* row;
            if (img.bits == 8) {
                row = img.data8.data() + size_t(y) * samples;
            } else if (host16) {
                row = reinterpret_cast<const uint8_t*>(img.data16.data() + size_t(y) * samples);
            } else {
                swapped.resize(samples);
                swapRow16(img.data16.data() + size_t(y) * samples, swapped.data(), samples, hi, lo);
                row = reinterpret_cast<const uint8_t*>(swapped.data());
            }
            int pos = 0;
            check(zebiPackBitsRow_TIFF_8u_C1(row, rowBytes, packed.data(), &pos, int(packed.size())), "PackBits");
            w.out.insert(w.out.end(), packed.begin(), packed.begin() + pos);
        }
        counts.push_back(uint32_t(w.out.size() - offsets.back()));
        if (w.out.size() & 1) w.u8(0);  // keep the next offset even
    }

    // The IFD, then the values that do not fit into an entry.
    const uint32_t ifd = uint32_t(w.out.size());
    w.put32(4, ifd);
    struct Entry { uint16_t tag, type; uint32_t count; std::vector<uint32_t> values; };
    std::vector<Entry> e = {
        {kImageWidth, kLong, 1, {uint32_t(img.width)}},
        {kImageLength, kLong, 1, {uint32_t(img.height)}},
        {kBitsPerSample, kShort, uint32_t(img.channels), std::vector<uint32_t>(img.channels, img.bits)},
        {kCompression, kShort, 1, {kPackBits}},
        {kPhotometric, kShort, 1, {img.channels == 1 ? 1u : 2u}},
        {kStripOffsets, kLong, uint32_t(strips), offsets},
        {kSamplesPerPixel, kShort, 1, {uint32_t(img.channels)}},
        {kRowsPerStrip, kLong, 1, {uint32_t(rowsPerStrip)}},
        {kStripByteCounts, kLong, uint32_t(strips), counts},
        {kXResolution, kRational, 1, {72, 1}},
        {kYResolution, kRational, 1, {72, 1}},
        {kPlanarConfig, kShort, 1, {1}},
        {kResolutionUnit, kShort, 1, {2}},
    };
    w.u16(uint16_t(e.size()));
    uint32_t extra = ifd + 2 + 12 * uint32_t(e.size()) + 4;
    std::vector<std::pair<size_t, const Entry*>> deferred;
    for (const Entry& en : e) {
        w.u16(en.tag);
        w.u16(en.type);
        w.u32(en.count);
        const uint32_t bytes = en.type == kShort ? 2 * en.count : en.type == kLong ? 4 * en.count : 8 * en.count;
        if (bytes <= 4) {
            if (en.type == kShort) {
                w.u16(uint16_t(en.values[0]));
                w.u16(en.count > 1 ? uint16_t(en.values[1]) : 0);
            } else {
                w.u32(en.values[0]);
            }
        } else {
            w.u32(extra);
            deferred.emplace_back(extra, &en);
            extra += (bytes + 1) & ~1u;
        }
    }
    w.u32(0);  // no next IFD
    for (auto& [at, en] : deferred) {
        (void)at;
        for (uint32_t v : en->values) {
            if (en->type == kShort) w.u16(uint16_t(v)); else w.u32(v);
        }
        if (w.out.size() & 1) w.u8(0);
    }
    return w.out;
}

// ---------------------------------------------------------------- reading
class Reader {
public:
    Reader(const std::vector<uint8_t>& b, const std::string& path) : b_(b), path_(path) {
        if (b.size() < 8) fail("too short for a TIFF file");
        if (b[0] == 'I' && b[1] == 'I') big_ = false;
        else if (b[0] == 'M' && b[1] == 'M') big_ = true;
        else fail("not a TIFF file");
        if (u16(2) != 42) fail("not a classic TIFF file");
    }
    uint16_t u16(size_t at) const {
        need(at, 2);
        return big_ ? uint16_t(b_[at] << 8 | b_[at + 1]) : uint16_t(b_[at + 1] << 8 | b_[at]);
    }
    uint32_t u32(size_t at) const {
        need(at, 4);
        return big_ ? uint32_t(u16(at)) << 16 | u16(at + 2) : uint32_t(u16(at + 2)) << 16 | u16(at);
    }
    void need(size_t at, size_t n) const {
        if (at > b_.size() || b_.size() - at < n) fail("truncated file");
    }
    [[noreturn]] void fail(const std::string& why) const { throw FileError(path_ + ": " + why); }
    bool big() const { return big_; }

    // Values of one IFD entry as unsigned numbers (SHORT or LONG).
    std::vector<uint32_t> values(size_t entry) const {
        const uint16_t type = u16(entry + 2);
        const uint32_t count = u32(entry + 4);
        if (type != kShort && type != kLong) fail("unexpected field type " + std::to_string(type));
        if (count > (1u << 24)) fail("field too large");
        const size_t size = type == kShort ? 2 : 4;
        size_t at = entry + 8;
        if (size * count > 4) at = u32(entry + 8);
        need(at, size * count);
        std::vector<uint32_t> v(count);
        for (uint32_t i = 0; i < count; ++i) v[i] = type == kShort ? u16(at + 2 * i) : u32(at + 4 * i);
        return v;
    }

private:
    const std::vector<uint8_t>& b_;
    std::string path_;
    bool big_ = false;
};

Image decodeTiff(const std::vector<uint8_t>& bytes, const std::string& path) {
    Reader r(bytes, path);
    const size_t ifd = r.u32(4);
    const uint16_t n = r.u16(ifd);
    uint32_t width = 0, height = 0, spp = 1, compression = 1, photometric = 1, rowsPerStrip = 0xFFFFFFFF;
    uint32_t planar = 1, predictor = 1;
    std::vector<uint32_t> bps{1}, offsets, counts;
    for (uint16_t i = 0; i < n; ++i) {
        const size_t e = ifd + 2 + 12 * size_t(i);
        const uint16_t tag = r.u16(e);
        auto first = [&] {
            auto v = r.values(e);
            if (v.empty()) r.fail("empty field " + std::to_string(tag));
            return v[0];
        };
        switch (tag) {
            case kImageWidth: width = first(); break;
            case kImageLength: height = first(); break;
            case kBitsPerSample: bps = r.values(e); break;
            case kCompression: compression = first(); break;
            case kPhotometric: photometric = first(); break;
            case kStripOffsets: offsets = r.values(e); break;
            case kSamplesPerPixel: spp = first(); break;
            case kRowsPerStrip: rowsPerStrip = first(); break;
            case kStripByteCounts: counts = r.values(e); break;
            case kPlanarConfig: planar = first(); break;
            case kPredictor: predictor = first(); break;
            default: break;
        }
    }
    if (width < 1 || height < 1 || width > 65535 || height > 65535) r.fail("unsupported image size");
    if (spp != 1 && spp != 3) r.fail("only grey and RGB images are supported");
    if (bps.empty() || (bps[0] != 8 && bps[0] != 16)) r.fail("only 8- and 16-bit samples are supported");
    for (uint32_t b : bps)
        if (b != bps[0]) r.fail("mixed sample widths are not supported");
    if (compression != 1 && compression != kPackBits) r.fail("only PackBits and uncompressed strips are supported");
    if (planar != 1 && spp > 1) r.fail("planar sample layout is not supported");
    if (predictor != 1) r.fail("predictors are not supported");
    if (photometric > 2 || (spp == 3) != (photometric == 2)) r.fail("unsupported photometric interpretation");
    if (rowsPerStrip == 0) r.fail("zero rows per strip");
    const uint32_t strips = uint32_t((uint64_t(height) + rowsPerStrip - 1) / rowsPerStrip);
    if (offsets.size() < strips || counts.size() < strips) r.fail("missing strips");

    Image img;
    img.width = int(width);
    img.height = int(height);
    img.channels = int(spp);
    img.bits = int(bps[0]);
    const int samples = int(img.samplesPerRow());
    const int rowBytes = samples * img.bits / 8;
    std::vector<uint8_t> pixels(size_t(rowBytes) * height);
    for (uint32_t s = 0; s < strips; ++s) {
        r.need(offsets[s], counts[s]);
        if (counts[s] > 0x7FFFFFFF) r.fail("strip too large");
        const uint8_t* strip = bytes.data() + offsets[s];
        const uint32_t y0 = s * rowsPerStrip, y1 = std::min<uint64_t>(height, uint64_t(y0) + rowsPerStrip);
        int pos = 0;
        for (uint32_t y = y0; y < y1; ++y) {
            uint8_t* row = pixels.data() + size_t(y) * rowBytes;
            if (compression == kPackBits) {
                if (counts[s] == 0) r.fail("empty strip");
                ZebStatus st = zebiUnpackBitsRow_TIFF_8u_C1(strip, &pos, int(counts[s]), row, rowBytes);
                if (st != zebStatusOk) r.fail("corrupt PackBits data in row " + std::to_string(y));
            } else {
                if (size_t(pos) + rowBytes > counts[s]) r.fail("strip shorter than its rows");
                std::memcpy(row, strip + pos, rowBytes);
                pos += rowBytes;
            }
        }
    }
    if (img.bits == 8) {
        if (photometric == 0)
            for (auto& v : pixels) v = uint8_t(255 - v);
        img.data8 = std::move(pixels);
    } else {
        img.data16.resize(pixels.size() / 2);
        std::memcpy(img.data16.data(), pixels.data(), pixels.size());
        if (r.big()) {
            std::vector<uint8_t> hi, lo;
            std::vector<uint16_t> row(samples);
            for (int y = 0; y < img.height; ++y) {
                uint16_t* p = img.data16.data() + size_t(y) * samples;
                swapRow16(p, row.data(), samples, hi, lo);
                std::memcpy(p, row.data(), size_t(samples) * 2);
            }
        }
        if (photometric == 0)
            for (auto& v : img.data16) v = uint16_t(65535 - v);
    }
    return img;
}

int usage() {
    std::fprintf(stderr,
                 "usage: zebtiff encode [--big-endian] [--rows-per-strip N] in.(pgm|ppm|png) out.tif\n"
                 "       zebtiff decode in.tif out.(pgm|ppm|png)\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    const std::string cmd = argv[1];
    try {
        if (cmd == "encode") {
            bool big = false;
            int rps = 0;
            std::vector<std::string> files;
            for (int i = 2; i < argc; ++i) {
                std::string a = argv[i];
                if (a == "--big-endian") big = true;
                else if (a == "--rows-per-strip" && i + 1 < argc) rps = std::atoi(argv[++i]);
                else if (a.rfind("--", 0) == 0) return usage();
                else files.push_back(a);
            }
            if (files.size() != 2) return usage();
            Image img = zebex::readImage(files[0]);
            zebex::writeFile(files[1], encodeTiff(img, big, rps));
        } else if (cmd == "decode") {
            if (argc != 4) return usage();
            Image img = decodeTiff(zebex::readFile(argv[2]), argv[2]);
            zebex::writeImage(argv[3], img);
        } else {
            return usage();
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zebtiff: %s\n", e.what());
        return 1;
    }
    return 0;
}
