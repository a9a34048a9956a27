// Whole-image baseline JPEG coding on top of the zebjp block operations.
//
// Encoder: pixels -> colour stage (component planes at their sampled size,
// padded to whole MCUs by replicating the last column and row) -> per block
// the level-shifted forward DCT with quantisation -> Huffman block coder.
// Decoder: Huffman block decoder -> the narrowest inverse DCT member that
// covers the decoded coefficients -> component planes -> colour stage.
// The encoder's optional reconstruction runs the decoder's back half on its
// own quantised blocks, so both give the same pixels for the same file.
#include "codec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "zebjp.h"

namespace zebjpeg {
namespace {

// Natural index of each zigzag position.
constexpr int kZigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                             12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                             35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                             58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// The example quantisation tables of the JPEG standard, natural order.
constexpr uint8_t kLumQuant[64] = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                                   14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                                   18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                                   49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr uint8_t kChromQuant[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                     24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                     99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                     99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// The example Huffman tables of the JPEG standard.
constexpr uint8_t kDcLumBits[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
constexpr uint8_t kDcChromBits[16] = {0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0};
constexpr uint8_t kDcVals[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr uint8_t kAcLumBits[16] = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d};
constexpr uint8_t kAcLumVals[162] = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22, 0x71,
    0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72,
    0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37,
    0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59,
    0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83,
    0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3,
    0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3,
    0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2,
    0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};
constexpr uint8_t kAcChromBits[16] = {0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77};
constexpr uint8_t kAcChromVals[162] = {
    0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13, 0x22,
    0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1,
    0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18, 0x19, 0x1a, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x35, 0x36,
    0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58,
    0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a,
    0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a,
    0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba,
    0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda,
    0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

void check(ZebStatus s, const char* what) {
    if (s < 0) throw Error(std::string(what) + " failed with status " + std::to_string(s));
}

// ---------------------------------------------------------------- planes

// Plane storage is kept per thread between calls: a program that codes one
// image after another then reuses warm pages instead of faulting in fresh
// ones for every image.
class StoragePool {
public:
    ~StoragePool() {
        for (auto& e : free_) std::free(e.p);
    }
    uint8_t* take(size_t& bytes) {
        for (size_t i = 0; i < free_.size(); ++i)
            if (free_[i].size >= bytes && free_[i].size <= bytes * 2) {
                Entry e = free_[i];
                free_.erase(free_.begin() + ptrdiff_t(i));
                bytes = e.size;
                return e.p;
            }
        bytes = (bytes + 63) / 64 * 64;
        return static_cast<uint8_t*>(std::aligned_alloc(64, bytes));
    }
    void give(uint8_t* p, size_t bytes) {
        if (!p) return;
        if (free_.size() >= 8) {
            std::free(free_.front().p);
            free_.erase(free_.begin());
        }
        free_.push_back({p, bytes});
    }

private:
    struct Entry {
        uint8_t* p;
        size_t size;
    };
    std::vector<Entry> free_;
};

StoragePool& pool() {
    thread_local StoragePool p;
    return p;
}

// An 8-bit plane with one row above, one row below and 32 columns on either
// side, so that the region up-samplers can read a replicated border.
struct Plane {
    uint8_t* storage = nullptr;
    size_t bytes = 0;
    uint8_t* origin = nullptr;
    int step = 0, width = 0, height = 0;

    Plane() = default;
    Plane(Plane&& o) noexcept { swap(o); }
    Plane& operator=(Plane&& o) noexcept {
        swap(o);
        return *this;
    }
    void swap(Plane& o) noexcept {
        std::swap(storage, o.storage);
        std::swap(bytes, o.bytes);
        std::swap(origin, o.origin);
        std::swap(step, o.step);
        std::swap(width, o.width);
        std::swap(height, o.height);
    }
    ~Plane() { pool().give(storage, bytes); }

    void allocate(int w, int h, int rowStep) {
        pool().give(storage, bytes);
        width = w;
        height = h;
        step = rowStep;
        bytes = size_t(step) * size_t(h + 2);
        storage = pool().take(bytes);
        if (!storage) throw Error("out of memory");
        origin = storage + step + 32;
    }
    uint8_t* row(int y) const { return origin + ptrdiff_t(y) * step; }

    // Fills columns [validW, toW) and rows [validH, toH) from the last valid
    // column and row, and the left column and top row from the first ones.
    void replicate(int validW, int validH, int toW, int toH) const {
        for (int y = 0; y < validH; ++y) {
            uint8_t* r = row(y);
            if (toW > validW) std::memset(r + validW, r[validW - 1], size_t(toW - validW));
            r[-1] = r[0];
        }
        for (int y = validH; y < toH; ++y) std::memcpy(row(y) - 1, row(validH - 1) - 1, size_t(toW + 1));
        std::memcpy(row(-1) - 1, row(0) - 1, size_t(toW + 1));
    }
};

// Zeroed coefficient blocks of one component, from the same per-thread pool
// as the planes (a large progressive image would otherwise fault in fresh
// pages on every decode).
struct CoefficientStore {
    uint8_t* storage = nullptr;
    size_t bytes = 0;

    CoefficientStore() = default;
    CoefficientStore(CoefficientStore&& o) noexcept { std::swap(storage, o.storage), std::swap(bytes, o.bytes); }
    CoefficientStore& operator=(CoefficientStore&& o) noexcept {
        std::swap(storage, o.storage), std::swap(bytes, o.bytes);
        return *this;
    }
    ~CoefficientStore() { pool().give(storage, bytes); }
    void allocate(size_t count) {
        pool().give(storage, bytes);
        bytes = count * sizeof(Zeb16s);
        storage = pool().take(bytes);
        if (!storage) throw Error("out of memory");
        std::memset(storage, 0, count * sizeof(Zeb16s));
    }
    Zeb16s* data() const { return reinterpret_cast<Zeb16s*>(storage); }
};

// ---------------------------------------------------------------- frame geometry

struct Component {
    int id = 0, h = 1, v = 1, tq = 0;
    int validW = 0, validH = 0;    // samples that belong to the image
    int blocksW = 0, blocksH = 0;  // blocks of the padded plane (whole MCUs)
    Plane plane;
};

struct Frame {
    int width = 0, height = 0;
    int hmax = 1, vmax = 1, mcusX = 0, mcusY = 0, step = 0;
    std::vector<Component> comps;

    // Sizes every component from the sampling factors and allocates planes:
    // whole-image planes, or strips of one MCU row.
    void layout(bool strips = false) {
        hmax = vmax = 1;
        for (auto& c : comps) hmax = std::max(hmax, c.h), vmax = std::max(vmax, c.v);
        mcusX = (width + 8 * hmax - 1) / (8 * hmax);
        mcusY = (height + 8 * vmax - 1) / (8 * vmax);
        step = (mcusX * hmax * 8 + 64 + 63) / 64 * 64;
        for (auto& c : comps) {
            c.validW = int((int64_t(width) * c.h + hmax - 1) / hmax);
            c.validH = int((int64_t(height) * c.v + vmax - 1) / vmax);
            c.blocksW = mcusX * c.h;
            c.blocksH = mcusY * c.v;
            c.plane.allocate(c.blocksW * 8, strips ? c.v * 8 : c.blocksH * 8, step);
        }
    }
    int fullWidth() const { return mcusX * hmax * 8; }
    int fullHeight() const { return mcusY * vmax * 8; }
};

// ---------------------------------------------------------------- colour stage

// Moves between interleaved pixels and the component planes of a frame, at
// the components' own sampling. The form below runs the library's
// whole-region conversions and resamplers on strips of rows; an
// MCU-at-a-time form can stand in its place behind the same two calls.
class ColourStage {
public:
    virtual ~ColourStage() = default;
    // Fills the strip planes of the frame (one MCU row: v * 8 rows of each
    // component) with MCU row `mcuRow`, padded by replicating the last column
    // and row of the image.
    virtual void forward(const uint8_t* pixels, size_t stride, int mcuRow, Frame& frame) = 0;
    // Writes pixel rows [y0, y1) (y0 even) from the whole-image planes, which
    // must hold every decoded row that those rows read (for vertically
    // halved chroma, one row beyond them). The planes' borders are
    // overwritten.
    virtual void inverse(Frame& frame, int y0, int y1, uint8_t* pixels, size_t stride) = 0;
};

class PlaneColourStage final : public ColourStage {
public:
    void forward(const uint8_t* pixels, size_t stride, int mcuRow, Frame& f) override {
        const int W = f.width, mcuH = f.vmax * 8, y0 = mcuRow * mcuH;
        const int rows = std::min(mcuH, f.height - y0);
        const uint8_t* src = pixels + size_t(y0) * stride;
        if (f.comps.size() == 1) {
            Component& c = f.comps[0];
            for (int y = 0; y < rows; ++y) std::memcpy(c.plane.row(y), src + size_t(y) * stride, size_t(W));
            c.plane.replicate(W, rows, c.blocksW * 8, 8);
            return;
        }
        // Y at full resolution with both chroma halved, on an even region:
        // one pass converts and averages.
        const bool fused = (f.comps[0].h == 2 && f.comps[1].h == 1 && f.comps[2].h == 1) &&
                           f.comps[1].v == 1 && f.comps[2].v == 1 && (W % 2) == 0 && (rows % 2) == 0;
        if (fused) {
            uint8_t* planes[3] = {f.comps[0].plane.origin, f.comps[1].plane.origin, f.comps[2].plane.origin};
            const int steps[3] = {f.step, f.step, f.step};
            const int vy = f.comps[0].v;
            const ZebStatus st = vy == 2 ? zebiRGBToYCbCr411_JPEG_8u_C3P3R(src, int(stride), planes, steps, ZebSize{W, rows})
                                         : zebiRGBToYCbCr422_JPEG_8u_C3P3R(src, int(stride), planes, steps, ZebSize{W, rows});
            check(st, "colour conversion");
            f.comps[0].plane.replicate(W, rows, f.comps[0].blocksW * 8, vy * 8);
            for (int i = 1; i < 3; ++i) f.comps[size_t(i)].plane.replicate(W / 2, rows / vy, f.comps[size_t(i)].blocksW * 8, 8);
            return;
        }
        // Full-resolution components straight into their planes; the others
        // through a full-resolution strip that is sampled down.
        uint8_t* dst[3];
        for (int i = 0; i < 3; ++i) {
            Component& c = f.comps[size_t(i)];
            if (c.h == f.hmax && c.v == f.vmax) {
                dst[i] = c.plane.origin;
            } else {
                if (!full_[i].origin) full_[i].allocate(f.fullWidth(), mcuH, f.step);
                dst[i] = full_[i].origin;
            }
        }
        check(zebiRGBToYCbCr_JPEG_8u_C3P3R(src, int(stride), dst, f.step, ZebSize{W, rows}), "colour conversion");
        for (int i = 0; i < 3; ++i) {
            Component& c = f.comps[size_t(i)];
            if (dst[i] == c.plane.origin) {
                c.plane.replicate(W, rows, c.blocksW * 8, c.v * 8);
                continue;
            }
            full_[i].replicate(W, rows, f.fullWidth(), mcuH);
            const ZebSize srcSize{f.fullWidth(), mcuH};
            const ZebSize dstSize{c.blocksW * 8, c.v * 8};
            const int hf = f.hmax / c.h, vf = f.vmax / c.v;
            if (hf == 2 && vf == 2)
                check(zebiSampleDownH2V2_JPEG_8u_C1R(full_[i].origin, f.step, srcSize, c.plane.origin, f.step, dstSize),
                      "down-sampling");
            else if (hf == 2 && vf == 1)
                check(zebiSampleDownH2V1_JPEG_8u_C1R(full_[i].origin, f.step, srcSize, c.plane.origin, f.step, dstSize),
                      "down-sampling");
            else
                throw Unsupported("this chroma sampling is not supported by the encoder");
        }
    }

    void inverse(Frame& f, int y0, int y1, uint8_t* pixels, size_t stride) override {
        const int W = f.width;
        if (f.comps.size() == 1) {
            const Component& c = f.comps[0];
            for (int y = y0; y < y1; ++y) std::memcpy(pixels + size_t(y) * stride, c.plane.row(y), size_t(W));
            return;
        }
        // The up-samplers read one sample around the region: replicate the
        // columns of the rows these output rows read, and the rows above and
        // below the image.
        for (auto& c : f.comps) {
            const int vf = f.vmax / c.v;
            if (c.h == f.hmax && vf == 1) continue;
            const int lo = y0 / vf - (vf == 2), hi = (y1 - 1) / vf + (vf == 2);
            for (int r = std::max(lo, 0); r <= std::min(hi, c.validH - 1); ++r) {
                uint8_t* row = c.plane.row(r);
                row[c.validW] = row[c.validW - 1];
                row[-1] = row[0];
            }
            if (lo < 0) std::memcpy(c.plane.row(-1) - 1, c.plane.row(0) - 1, size_t(c.validW + 2));
            if (hi >= c.validH) std::memcpy(c.plane.row(c.validH) - 1, c.plane.row(c.validH - 1) - 1, size_t(c.validW + 2));
        }
        // Strips of rows keep the up-sampled chroma in cache until the
        // conversion reads it.
        constexpr int kStrip = 16;
        for (int y = y0; y < y1; y += kStrip) {
            const int n = std::min(kStrip, y1 - y);
            const uint8_t* src[3];
            for (int i = 0; i < 3; ++i) {
                Component& c = f.comps[size_t(i)];
                const int hf = f.hmax / c.h, vf = f.vmax / c.v;
                if (hf == 1 && vf == 1) {
                    src[i] = c.plane.row(y);
                    continue;
                }
                if (!full_[i].origin) full_[i].allocate(f.fullWidth(), kStrip, f.step);
                const ZebSize srcSize{c.validW, c.validH};
                const ZebSize dstSize{W, n};
                const uint8_t* in = c.plane.row(y / vf);
                if (hf == 2 && vf == 2)
                    check(zebiSampleUpH2V2_JPEG_8u_C1R(in, f.step, srcSize, full_[i].origin, f.step, dstSize),
                          "up-sampling");
                else if (hf == 2 && vf == 1)
                    check(zebiSampleUpH2V1_JPEG_8u_C1R(in, f.step, srcSize, full_[i].origin, f.step, dstSize),
                          "up-sampling");
                else
                    upsampleVertical(c.plane, y, n, full_[i], W);
                src[i] = full_[i].origin;
            }
            check(zebiYCbCrToRGB_JPEG_8u_P3C3R(src, f.step, pixels + size_t(y) * stride, int(stride), ZebSize{W, n}),
                  "colour conversion");
        }
    }

private:
    // Doubles the rows with the 3:1 filter (no library operation covers the
    // vertical-only case); reads the replicated rows above and below.
    static void upsampleVertical(const Plane& in, int y0, int n, Plane& out, int W) {
        for (int j = 0; j < n; ++j) {
            const int y = y0 + j;
            const uint8_t* nearRow = in.row(y >> 1);
            const uint8_t* farRow = in.row((y & 1) ? (y >> 1) + 1 : (y >> 1) - 1);
            const int bias = (y & 1) ? 2 : 1;
            uint8_t* d = out.row(j);
            for (int x = 0; x < W; ++x) d[x] = uint8_t((3 * nearRow[x] + farRow[x] + bias) >> 2);
        }
    }

    Plane full_[3];
};

// ---------------------------------------------------------------- block stage

// Inverse DCT into 8x8 samples with the narrowest member that covers the
// coefficients up to zigzag position blockEnd - 1.
inline void inverseBlock(const Zeb16s* blk, int blockEnd, uint8_t* dst, int step, const Zeb16u* inv) {
    ZebStatus s;
    if (blockEnd <= 1)
        s = zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R(blk, dst, step, inv);
    else if (blockEnd <= 3)
        s = zebiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R(blk, dst, step, inv);
    else if (blockEnd <= 10)
        s = zebiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R(blk, dst, step, inv);
    else
        s = zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R(blk, dst, step, inv);
    check(s, "inverse DCT");
}

// One past the zigzag position of the last non-zero coefficient (at least 1).
inline int blockEndOf(const Zeb16s* blk) {
    for (int k = 63; k > 0; --k)
        if (blk[kZigzag[k]] != 0) return k + 1;
    return 1;
}

inline int category(int v) {
    unsigned a = unsigned(v < 0 ? -v : v);
    return a == 0 ? 0 : 32 - __builtin_clz(a);
}

// The member choice of blockEndOf() from a scan of the block in natural
// order, eight bytes at a time: 1 (DC only), 3, 10 or 64.
inline int blockEndClass(const Zeb16s* blk) {
    uint64_t w[16];
    std::memcpy(w, blk, sizeof w);
    // Anything outside the top-left 4x4 (words 1, 3, 5, 7: columns 4..7 of
    // rows 0..3; words 8..15: rows 4..7) or at zigzag 10 and above inside it.
    uint64_t far = w[1] | w[3] | w[5] | w[7];
    for (int i = 8; i < 16; ++i) far |= w[i];
    if (far | uint64_t(blk[11] | blk[18] | blk[19] | blk[25] | blk[26] | blk[27])) return 64;
    if (blk[2] | blk[3] | blk[9] | blk[10] | blk[16] | blk[17] | blk[24]) return 10;
    if (blk[1] | blk[8]) return 3;
    return 1;
}

// Symbol counts of one block, as the block coder will emit them.
void countBlock(const Zeb16s* blk, int& lastDC, int32_t* dcCounts, int32_t* acCounts) {
    int diff = blk[0] - lastDC;
    lastDC = blk[0];
    ++dcCounts[category(diff)];
    int run = 0;
    for (int k = 1; k < 64; ++k) {
        int v = blk[kZigzag[k]];
        if (v == 0) {
            ++run;
            continue;
        }
        while (run > 15) ++acCounts[0xF0], run -= 16;
        ++acCounts[run * 16 + category(v)];
        run = 0;
    }
    if (run > 0) ++acCounts[0x00];
}

// ---------------------------------------------------------------- output

class ByteSink {
public:
    explicit ByteSink(size_t initial) { grow(std::max<size_t>(initial, 4096)); }
    void put(uint8_t b) {
        reserve(1);
        data_[size_++] = b;
    }
    void put16(int v) {
        put(uint8_t(v >> 8));
        put(uint8_t(v));
    }
    void put(const uint8_t* p, size_t n) {
        reserve(n);
        std::memcpy(data_.get() + size_, p, n);
        size_ += n;
    }
    void reserve(size_t n) {
        if (size_ + n > cap_) grow(std::max(cap_ * 2, size_ + n));
    }
    uint8_t* data() { return data_.get(); }
    size_t size() const { return size_; }
    size_t capacity() const { return cap_; }
    void setSize(size_t n) { size_ = n; }

private:
    void grow(size_t n) {
        std::unique_ptr<uint8_t[]> next(new uint8_t[n]);
        if (size_) std::memcpy(next.get(), data_.get(), size_);
        data_ = std::move(next);
        cap_ = n;
    }
    std::unique_ptr<uint8_t[]> data_;
    size_t size_ = 0, cap_ = 0;
};

struct alignas(64) QuantTables {
    Zeb16u fwd[2][64];
    Zeb16u inv[2][64];
    uint8_t raw[2][64];  // zigzag order, as stored in the file
};

struct HuffTable {
    uint8_t bits[16] = {};
    uint8_t vals[256] = {};
    int count() const {
        int n = 0;
        for (uint8_t b : bits) n += b;
        return n;
    }
};

void writeHuffman(ByteSink& out, int tableClass, int id, const HuffTable& t) {
    out.put16(0xFFC4);
    out.put16(2 + 1 + 16 + t.count());
    out.put(uint8_t(tableClass << 4 | id));
    out.put(t.bits, 16);
    out.put(t.vals, size_t(t.count()));
}


// ---------------------------------------------------------------- progressive encoder

// One scan of the script: components (frame indices), band and point
// transform; ah 0 for a first scan, else the previous scan's al.
struct ScanSpec {
    int n;
    int comp[3];
    int ss, se, ah, al;
};

// The usual script: DC at half precision for all components, low luma
// bands and the chroma at reduced precision, then the refinements.
std::vector<ScanSpec> scanScript(int nc) {
    if (nc == 1)
        return {{1, {0}, 0, 0, 0, 1},  {1, {0}, 1, 5, 0, 2}, {1, {0}, 6, 63, 0, 2},
                {1, {0}, 1, 63, 2, 1}, {1, {0}, 0, 0, 1, 0}, {1, {0}, 1, 63, 1, 0}};
    return {{3, {0, 1, 2}, 0, 0, 0, 1}, {1, {0}, 1, 5, 0, 2},  {1, {2}, 1, 63, 0, 1}, {1, {1}, 1, 63, 0, 1},
            {1, {0}, 6, 63, 0, 2},       {1, {0}, 1, 63, 2, 1}, {3, {0, 1, 2}, 0, 0, 1, 0},
            {1, {2}, 1, 63, 1, 0},       {1, {1}, 1, 63, 1, 0}, {1, {0}, 1, 63, 1, 0}};
}

template <class ForEachBlock>
std::vector<uint8_t> encodeProgressive(Frame& f, const QuantTables& q, int nTables, int ri, ForEachBlock& forEachBlock,
                                       Raster* reconstruction) {
    const size_t nc = f.comps.size();
    // Every quantised block of the image, kept for all scans.
    std::vector<std::vector<Zeb16s>> coefs(nc);
    for (size_t i = 0; i < nc; ++i) coefs[i].assign(size_t(f.comps[i].blocksW) * size_t(f.comps[i].blocksH) * 64, 0);
    forEachBlock([&](int, size_t ci, int px, int py, const Zeb16s* blk) {
        const Component& c = f.comps[ci];
        std::memcpy(&coefs[ci][(size_t(py / 8) * size_t(c.blocksW) + size_t(px / 8)) * 64], blk, 64 * sizeof(Zeb16s));
    });

    // Calls fn(mcu, index in scan, block) in the scan's block order.
    auto walk = [&](const ScanSpec& sc, auto&& fn) {
        if (sc.n == 1) {
            const size_t ci = size_t(sc.comp[0]);
            const Component& c = f.comps[ci];
            const int bw = (c.validW + 7) / 8, bh = (c.validH + 7) / 8;
            for (int by = 0; by < bh; ++by)
                for (int bx = 0; bx < bw; ++bx)
                    fn(by * bw + bx, 0, &coefs[ci][(size_t(by) * size_t(c.blocksW) + size_t(bx)) * 64]);
            return;
        }
        for (int my = 0; my < f.mcusY; ++my)
            for (int mx = 0; mx < f.mcusX; ++mx)
                for (int i = 0; i < sc.n; ++i) {
                    const size_t ci = size_t(sc.comp[i]);
                    const Component& c = f.comps[ci];
                    for (int by = 0; by < c.v; ++by)
                        for (int bx = 0; bx < c.h; ++bx) {
                            const size_t X = size_t(mx * c.h + bx), Y = size_t(my * c.v + by);
                            fn(my * f.mcusX + mx, i, &coefs[ci][(Y * size_t(c.blocksW) + X) * 64]);
                        }
                }
    };

    ByteSink out(size_t(f.width) * size_t(f.height) / 2 + 1024);
    out.put16(0xFFD8);
    static const uint8_t jfif[] = {0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0x00, 0x01,
                                   0x01, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00};
    out.put(jfif, sizeof jfif);
    for (int t = 0; t < nTables; ++t) {
        out.put16(0xFFDB);
        out.put16(2 + 65);
        out.put(uint8_t(t));
        out.put(q.raw[t], 64);
    }
    out.put16(0xFFC2);
    out.put16(int(8 + 3 * nc));
    out.put(8);
    out.put16(f.height);
    out.put16(f.width);
    out.put(uint8_t(nc));
    for (auto& c : f.comps) {
        out.put(uint8_t(c.id));
        out.put(uint8_t(c.h << 4 | c.v));
        out.put(uint8_t(c.tq));
    }
    if (ri) {
        out.put16(0xFFDD);
        out.put16(4);
        out.put16(ri);
    }

    auto state = std::unique_ptr<EncodeHuffmanState>(new EncodeHuffmanState);
    auto specs = std::unique_ptr<EncodeHuffmanSpec[]>(new EncodeHuffmanSpec[2]);
    constexpr size_t kWorstBlock = 2 * (16 + 11) * 64 / 8 + 32;
    constexpr size_t kWorstRun = 16 + (937 + 64 + 7) / 8 * 2;  // a run's code and its correction bits, stuffed
    for (const ScanSpec& sc : scanScript(int(nc))) {
        const bool dc = sc.ss == 0, first = sc.ah == 0;
        const int mcuBlocks = [&] {
            int n = 0;
            for (int i = 0; i < sc.n; ++i) n += sc.n == 1 ? 1 : f.comps[size_t(sc.comp[i])].h * f.comps[size_t(sc.comp[i])].v;
            return n;
        }();
        // Optimal tables for the scan from a statistics pass that makes the
        // encoder's decisions, restarts included. DC refinement needs none.
        bool used[2] = {};
        HuffTable tables[2];
        if (!(dc && !first)) {
            int32_t counts[2][256] = {};
            Zeb16s lastDC[3] = {};
            check(zebiEncodeHuffmanStateInit_JPEG_8u(state.get()), "Huffman state");
            int prev = -1;
            const int t0 = f.comps[size_t(sc.comp[0])].tq;
            auto flushStats = [&] {
                if (dc) return;
                auto fn = first ? zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1
                                : zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1;
                check(fn(nullptr, counts[t0], sc.ss, sc.se, sc.al, state.get(), 1), "statistics");
            };
            walk(sc, [&](int mcu, int i, const Zeb16s* blk) {
                if (mcu != prev && ri && mcu > 0 && mcu % ri == 0) {
                    flushStats();
                    lastDC[0] = lastDC[1] = lastDC[2] = 0;
                }
                prev = mcu;
                const int t = f.comps[size_t(sc.comp[i])].tq;
                used[t] = true;
                if (dc)
                    check(zebiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(blk, counts[t], &lastDC[i], sc.al),
                          "statistics");
                else if (first)
                    check(zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(blk, counts[t], sc.ss, sc.se, sc.al,
                                                                          state.get(), 0),
                          "statistics");
                else
                    check(zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(blk, counts[t], sc.ss, sc.se, sc.al,
                                                                           state.get(), 0),
                          "statistics");
            });
            flushStats();
            for (int t = 0; t < 2; ++t) {
                if (!used[t]) continue;
                check(zebiEncodeHuffmanRawTableInit_JPEG_8u(counts[t], tables[t].bits, tables[t].vals), "Huffman table");
                check(zebiEncodeHuffmanSpecInit_JPEG_8u(tables[t].bits, tables[t].vals, &specs[size_t(t)]),
                      "Huffman table");
                writeHuffman(out, dc ? 0 : 1, t, tables[t]);
            }
        }
        out.put16(0xFFDA);
        out.put16(6 + 2 * sc.n);
        out.put(uint8_t(sc.n));
        for (int i = 0; i < sc.n; ++i) {
            const Component& c = f.comps[size_t(sc.comp[i])];
            out.put(uint8_t(c.id));
            out.put(uint8_t(dc ? c.tq << 4 : c.tq));
        }
        out.put(uint8_t(sc.ss));
        out.put(uint8_t(sc.se));
        out.put(uint8_t(sc.ah << 4 | sc.al));

        check(zebiEncodeHuffmanStateInit_JPEG_8u(state.get()), "Huffman state");
        Zeb16s lastDC[3] = {};
        int pos = int(out.size()), prev = -1, restarts = 0;
        const EncodeHuffmanSpec* acSpec = &specs[size_t(f.comps[size_t(sc.comp[0])].tq)];
        auto flush = [&] {
            out.setSize(size_t(pos));
            out.reserve(kWorstRun + 64);
            Zeb8u* d = out.data();
            const int len = int(out.capacity());
            ZebStatus st;
            if (dc && first)
                st = zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(nullptr, d, len, &pos, nullptr, 0, nullptr, state.get(), 1);
            else if (dc)
                st = zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(nullptr, d, len, &pos, 0, state.get(), 1);
            else if (first)
                st = zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(nullptr, d, len, &pos, 0, 0, 0, acSpec, state.get(), 1);
            else
                st = zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(nullptr, d, len, &pos, 0, 0, 0, acSpec, state.get(), 1);
            check(st, "flush");
            out.setSize(size_t(pos));
        };
        walk(sc, [&](int mcu, int i, const Zeb16s* blk) {
            if (mcu != prev) {
                if (ri && mcu > 0 && mcu % ri == 0) {
                    flush();
                    out.put16(0xFFD0 + (restarts++ & 7));
                    pos = int(out.size());
                    lastDC[0] = lastDC[1] = lastDC[2] = 0;
                }
                prev = mcu;
                out.setSize(size_t(pos));
                out.reserve(kWorstBlock * size_t(mcuBlocks) + kWorstRun);
                if (out.capacity() > size_t(INT32_MAX)) throw Error("output too large");
            }
            Zeb8u* d = out.data();
            const int len = int(out.capacity());
            const int t = f.comps[size_t(sc.comp[i])].tq;
            ZebStatus st;
            if (dc && first)
                st = zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(blk, d, len, &pos, &lastDC[i], sc.al, &specs[size_t(t)],
                                                                state.get(), 0);
            else if (dc)
                st = zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(blk, d, len, &pos, sc.al, state.get(), 0);
            else if (first)
                st = zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(blk, d, len, &pos, sc.ss, sc.se, sc.al, acSpec,
                                                                state.get(), 0);
            else
                st = zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(blk, d, len, &pos, sc.ss, sc.se, sc.al, acSpec,
                                                                 state.get(), 0);
            check(st, "Huffman encoding");
        });
        flush();
    }
    out.put16(0xFFD9);

    if (reconstruction) {
        // The last scans leave every coefficient at full precision: the
        // decoder's pixels are those of the quantised blocks.
        Frame rec;
        rec.width = f.width;
        rec.height = f.height;
        rec.comps.resize(nc);
        for (size_t i = 0; i < nc; ++i) {
            rec.comps[i].id = f.comps[i].id;
            rec.comps[i].h = f.comps[i].h;
            rec.comps[i].v = f.comps[i].v;
            rec.comps[i].tq = f.comps[i].tq;
        }
        rec.layout();
        alignas(64) Zeb16s blk[64];
        for (size_t i = 0; i < nc; ++i) {
            Component& c = rec.comps[i];
            for (int by = 0; by < c.blocksH; ++by)
                for (int bx = 0; bx < c.blocksW; ++bx) {
                    std::memcpy(blk, &coefs[i][(size_t(by) * size_t(c.blocksW) + size_t(bx)) * 64], sizeof blk);
                    inverseBlock(blk, blockEndOf(blk), c.plane.row(by * 8) + bx * 8, rec.step, q.inv[c.tq]);
                }
        }
        const int channels = int(nc);
        reconstruction->width = f.width;
        reconstruction->height = f.height;
        reconstruction->channels = channels;
        reconstruction->bits = 8;
        reconstruction->samples16.clear();
        reconstruction->pixels.assign(size_t(f.width) * size_t(f.height) * size_t(channels), 0);
        PlaneColourStage back;
        back.inverse(rec, 0, f.height, reconstruction->pixels.data(), size_t(f.width) * size_t(channels));
    }
    return std::vector<uint8_t>(out.data(), out.data() + out.size());
}

}  // namespace

// ================================================================ encoder

std::vector<uint8_t> encode(const uint8_t* pixels, size_t stride, int width, int height, int channels,
                            const EncodeOptions& opt, Raster* reconstruction) {
    if (!pixels || width < 1 || height < 1 || width > 65535 || height > 65535)
        throw Error("image size must be 1..65535 on each side");
    if (channels != 1 && channels != 3) throw Error("only grey and RGB images can be encoded");
    if (opt.quality < 1 || opt.quality > 100) throw Error("quality must be 1..100");
    if (opt.restartInterval < 0 || opt.restartInterval > 65535) throw Error("restart interval must be 0..65535");
    if (stride > size_t(INT32_MAX)) throw Error("image rows too long");

    Frame f;
    f.width = width;
    f.height = height;
    if (channels == 1) {
        f.comps.resize(1);
        f.comps[0].id = 1;
    } else {
        f.comps.resize(3);
        const int ly = opt.sampling == Sampling::s444 ? 1 : 2;
        const int lv = opt.sampling == Sampling::s420 ? 2 : 1;
        for (int i = 0; i < 3; ++i) {
            f.comps[size_t(i)].id = i + 1;
            f.comps[size_t(i)].h = i == 0 ? ly : 1;
            f.comps[size_t(i)].v = i == 0 ? lv : 1;
            f.comps[size_t(i)].tq = i == 0 ? 0 : 1;
        }
    }
    f.layout(true);
    PlaneColourStage colour;

    // Quantisation tables scaled by quality.
    auto q = std::unique_ptr<QuantTables>(new QuantTables);
    const int nTables = channels == 1 ? 1 : 2;
    for (int t = 0; t < nTables; ++t) {
        const uint8_t* base = t == 0 ? kLumQuant : kChromQuant;
        for (int k = 0; k < 64; ++k) q->raw[t][k] = base[kZigzag[k]];
        check(zebiQuantFwdRawTableInit_JPEG_8u(q->raw[t], opt.quality), "quality scaling");
        check(zebiQuantFwdTableInit_JPEG_8u16u(q->raw[t], q->fwd[t]), "forward table");
        check(zebiQuantInvTableInit_JPEG_8u16u(q->raw[t], q->inv[t]), "inverse table");
    }

    // Block order of the interleaved scan (one block per MCU for grey).
    const size_t nc = f.comps.size();
    const int mcuBlocks = [&] {
        int n = 0;
        for (auto& c : f.comps) n += c.h * c.v;
        return n;
    }();
    // A grey scan is not interleaved: each MCU is one block.
    const int walkX = nc == 1 ? f.comps[0].blocksW : f.mcusX;
    const int walkY = nc == 1 ? f.comps[0].blocksH : f.mcusY;

    auto forEachBlock = [&](auto&& fn) {
        alignas(64) Zeb16s blk[64];
        for (int my = 0; my < walkY; ++my) {
            colour.forward(pixels, stride, my, f);
            for (int mx = 0; mx < walkX; ++mx)
                for (size_t ci = 0; ci < nc; ++ci) {
                    Component& c = f.comps[ci];
                    for (int by = 0; by < c.v; ++by)
                        for (int bx = 0; bx < c.h; ++bx) {
                            const int px = (mx * c.h + bx) * 8;
                            check(zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(c.plane.row(by * 8) + px, f.step, blk,
                                                                      q->fwd[c.tq]),
                                  "forward DCT");
                            fn(my * walkX + mx, ci, px, (my * c.v + by) * 8, blk);
                        }
                }
        }
    };

    if (opt.progressive) return encodeProgressive(f, *q, nTables, opt.restartInterval, forEachBlock, reconstruction);

    // Huffman tables: the standard ones, or optimal ones from the counts.
    HuffTable dcT[2], acT[2];
    for (int t = 0; t < nTables; ++t) {
        if (opt.optimize) continue;
        std::memcpy(dcT[t].bits, t == 0 ? kDcLumBits : kDcChromBits, 16);
        std::memcpy(dcT[t].vals, kDcVals, 12);
        std::memcpy(acT[t].bits, t == 0 ? kAcLumBits : kAcChromBits, 16);
        std::memcpy(acT[t].vals, t == 0 ? kAcLumVals : kAcChromVals, 162);
    }
    if (opt.optimize) {
        int32_t dcCounts[2][256] = {}, acCounts[2][256] = {};
        int lastDC[3] = {};
        const int ri = opt.restartInterval;
        int prevMcu = -1;
        forEachBlock([&](int mcu, size_t ci, int, int, const Zeb16s* blk) {
            if (mcu != prevMcu && ri && mcu % ri == 0) lastDC[0] = lastDC[1] = lastDC[2] = 0;
            prevMcu = mcu;
            const int t = f.comps[ci].tq;
            countBlock(blk, lastDC[ci], dcCounts[t], acCounts[t]);
        });
        for (int t = 0; t < nTables; ++t) {
            check(zebiEncodeHuffmanRawTableInit_JPEG_8u(dcCounts[t], dcT[t].bits, dcT[t].vals), "Huffman table");
            check(zebiEncodeHuffmanRawTableInit_JPEG_8u(acCounts[t], acT[t].bits, acT[t].vals), "Huffman table");
        }
    }
    auto encSpec = std::unique_ptr<EncodeHuffmanSpec[]>(new EncodeHuffmanSpec[4]);
    for (int t = 0; t < nTables; ++t) {
        check(zebiEncodeHuffmanSpecInit_JPEG_8u(dcT[t].bits, dcT[t].vals, &encSpec[size_t(2 * t)]), "Huffman table");
        check(zebiEncodeHuffmanSpecInit_JPEG_8u(acT[t].bits, acT[t].vals, &encSpec[size_t(2 * t + 1)]),
              "Huffman table");
    }

    // Headers.
    ByteSink out(size_t(width) * size_t(height) / 2 + 1024);
    out.put16(0xFFD8);
    static const uint8_t jfif[] = {0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0x00, 0x01,
                                   0x01, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00};
    out.put(jfif, sizeof jfif);
    for (int t = 0; t < nTables; ++t) {
        out.put16(0xFFDB);
        out.put16(2 + 65);
        out.put(uint8_t(t));
        out.put(q->raw[t], 64);
    }
    out.put16(0xFFC0);
    out.put16(int(8 + 3 * nc));
    out.put(8);
    out.put16(height);
    out.put16(width);
    out.put(uint8_t(nc));
    for (auto& c : f.comps) {
        out.put(uint8_t(c.id));
        out.put(uint8_t(c.h << 4 | c.v));
        out.put(uint8_t(c.tq));
    }
    for (int t = 0; t < nTables; ++t) {
        writeHuffman(out, 0, t, dcT[t]);
        writeHuffman(out, 1, t, acT[t]);
    }
    if (opt.restartInterval) {
        out.put16(0xFFDD);
        out.put16(4);
        out.put16(opt.restartInterval);
    }
    out.put16(0xFFDA);
    out.put16(int(6 + 2 * nc));
    out.put(uint8_t(nc));
    for (auto& c : f.comps) {
        out.put(uint8_t(c.id));
        out.put(uint8_t(c.tq << 4 | c.tq));
    }
    out.put(0);
    out.put(63);
    out.put(0);

    // Reconstruction planes, the decoder's back half.
    Frame rec;
    if (reconstruction) {
        rec.width = width;
        rec.height = height;
        rec.comps.resize(nc);
        for (size_t i = 0; i < nc; ++i) {
            rec.comps[i].id = f.comps[i].id;
            rec.comps[i].h = f.comps[i].h;
            rec.comps[i].v = f.comps[i].v;
            rec.comps[i].tq = f.comps[i].tq;
        }
        rec.layout();
    }

    // The scan.
    EncodeHuffmanState state;
    check(zebiEncodeHuffmanStateInit_JPEG_8u(&state), "Huffman state");
    Zeb16s lastDC[3] = {};
    const int ri = opt.restartInterval;
    int restartCount = 0, prevMcu = -1;
    constexpr size_t kWorstBlock = 2 * (16 + 11) * 64 / 8 + 32;  // every code and value at its longest, stuffed
    int pos = int(out.size());
    forEachBlock([&](int mcu, size_t ci, int px, int py, const Zeb16s* blk) {
        if (mcu != prevMcu) {
            out.setSize(size_t(pos));
            if (ri && mcu > 0 && mcu % ri == 0) {
                out.reserve(64);
                check(zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, out.data(), int(out.capacity()), &pos, nullptr,
                                                         nullptr, nullptr, &state, 1),
                      "flush");
                out.setSize(size_t(pos));
                out.put16(0xFFD0 + (restartCount++ & 7));
                pos = int(out.size());
                lastDC[0] = lastDC[1] = lastDC[2] = 0;
            }
            prevMcu = mcu;
            out.reserve(kWorstBlock * size_t(mcuBlocks));
            if (out.capacity() > size_t(INT32_MAX)) throw Error("output too large");
        }
        const int t = f.comps[ci].tq;
        check(zebiEncodeHuffman8x8_JPEG_16s1u_C1(blk, out.data(), int(out.capacity()), &pos, &lastDC[ci],
                                                 &encSpec[size_t(2 * t)], &encSpec[size_t(2 * t + 1)], &state, 0),
              "Huffman encoding");
        if (reconstruction) {
            Component& rc = rec.comps[ci];
            inverseBlock(blk, blockEndOf(blk), rc.plane.row(py) + px, rec.step, q->inv[t]);
        }
    });
    out.setSize(size_t(pos));
    out.reserve(64);
    check(zebiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, out.data(), int(out.capacity()), &pos, nullptr, nullptr,
                                             nullptr, &state, 1),
          "flush");
    out.setSize(size_t(pos));
    out.put16(0xFFD9);

    if (reconstruction) {
        reconstruction->width = width;
        reconstruction->height = height;
        reconstruction->channels = channels;
        reconstruction->pixels.assign(size_t(width) * size_t(height) * size_t(channels), 0);
        PlaneColourStage back;
        back.inverse(rec, 0, height, reconstruction->pixels.data(), size_t(width) * size_t(channels));
    }
    return std::vector<uint8_t>(out.data(), out.data() + out.size());
}

// ================================================================ lossless encoder

std::vector<uint8_t> encodeLossless(const uint16_t* samples, size_t stride, int width, int height, int channels,
                                    const LosslessOptions& opt) {
    if (!samples || width < 1 || height < 1 || width > 65535 || height > 65535)
        throw Error("image size must be 1..65535 on each side");
    if (channels != 1 && channels != 3) throw Error("only grey and RGB images can be encoded");
    if (opt.precision < 2 || opt.precision > 16) throw Error("precision must be 2..16 bits");
    if (opt.predictor < 1 || opt.predictor > 7) throw Error("predictor must be 1..7");
    if (opt.pointTransform < 0 || opt.pointTransform >= opt.precision)
        throw Error("point transform must be 0..precision-1");
    if (opt.restartRows < 0 || int64_t(opt.restartRows) * width > 65535)
        throw Error("a restart interval holds at most 65535 samples");
    const int nc = channels, W = width, Pt = opt.pointTransform;
    const int rr = opt.restartRows ? opt.restartRows : height;  // a restart starts over with the first-row rule
    const uint32_t limit = 1u << opt.precision;

    // Differences of the whole image, component by component, row by row:
    // the table of each component is built from them before coding.
    std::vector<Zeb16s> diff(size_t(nc) * size_t(W) * size_t(height));
    std::vector<Zeb16s> cur(static_cast<size_t>(W)), prev(static_cast<size_t>(W));
    for (int c = 0; c < nc; ++c)
        for (int y = 0; y < height; ++y) {
            const uint16_t* src = samples + size_t(y) * stride + size_t(c);
            for (int x = 0; x < W; ++x) {
                const uint16_t v = src[size_t(x) * size_t(nc)];
                if (v >= limit) throw Error("sample " + std::to_string(v) + " does not fit the precision");
                cur[size_t(x)] = Zeb16s(v >> Pt);
            }
            Zeb16s* d = &diff[(size_t(c) * size_t(height) + size_t(y)) * size_t(W)];
            if (y % rr == 0)
                check(zebiDiffPredFirstRow_JPEG_16s_C1(cur.data(), d, W, opt.precision, Pt), "prediction");
            else
                check(zebiDiffPredRow_JPEG_16s_C1(cur.data(), prev.data(), d, W, opt.predictor), "prediction");
            std::swap(cur, prev);
        }
    HuffTable tables[3];
    auto specs = std::unique_ptr<EncodeHuffmanSpec[]>(new EncodeHuffmanSpec[3]);
    for (int c = 0; c < nc; ++c) {
        int32_t counts[256] = {};
        const Zeb16s* d = &diff[size_t(c) * size_t(height) * size_t(W)];
        for (size_t i = 0, n = size_t(W) * size_t(height); i < n; ++i)
            check(zebiGetHuffmanStatisticsOne_JPEG_16s_C1(d + i, counts), "statistics");
        check(zebiEncodeHuffmanRawTableInit_JPEG_8u(counts, tables[c].bits, tables[c].vals), "Huffman table");
        check(zebiEncodeHuffmanSpecInit_JPEG_8u(tables[c].bits, tables[c].vals, &specs[size_t(c)]), "Huffman table");
    }

    ByteSink out(size_t(W) * size_t(height) * size_t(nc) + 1024);
    out.put16(0xFFD8);
    out.put16(0xFFC3);
    out.put16(8 + 3 * nc);
    out.put(uint8_t(opt.precision));
    out.put16(height);
    out.put16(W);
    out.put(uint8_t(nc));
    for (int c = 0; c < nc; ++c) {
        out.put(uint8_t(c + 1));
        out.put(0x11);
        out.put(0);
    }
    for (int c = 0; c < nc; ++c) writeHuffman(out, 0, c, tables[c]);
    if (opt.restartRows) {
        out.put16(0xFFDD);
        out.put16(4);
        out.put16(opt.restartRows * W);
    }
    out.put16(0xFFDA);
    out.put16(6 + 2 * nc);
    out.put(uint8_t(nc));
    for (int c = 0; c < nc; ++c) {
        out.put(uint8_t(c + 1));
        out.put(uint8_t(c << 4));
    }
    out.put(uint8_t(opt.predictor));
    out.put(0);
    out.put(uint8_t(Pt));

    EncodeHuffmanState state;
    check(zebiEncodeHuffmanStateInit_JPEG_8u(&state), "Huffman state");
    const EncodeHuffmanSpec* sp[4] = {&specs[0], &specs[size_t(nc > 1)], &specs[size_t(nc > 2 ? 2 : 0)], &specs[0]};
    const size_t worstRow = size_t(W) * size_t(nc) * 8 + 64;  // 31 bits a sample, every byte stuffed
    int pos = int(out.size()), restarts = 0;
    for (int y = 0; y < height; ++y) {
        if (y > 0 && y % rr == 0) {
            out.setSize(size_t(pos));
            out.reserve(64);
            check(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, out.data(), int(out.capacity()), &pos, nullptr,
                                                       &state, 1),
                  "flush");
            out.setSize(size_t(pos));
            out.put16(0xFFD0 + (restarts++ & 7));
            pos = int(out.size());
        }
        const Zeb16s* rows[4];
        for (int c = 0; c < 4; ++c)
            rows[c] = &diff[(size_t(c < nc ? c : 0) * size_t(height) + size_t(y)) * size_t(W)];
        out.setSize(size_t(pos));
        out.reserve(worstRow);
        if (out.capacity() > size_t(INT32_MAX)) throw Error("output too large");
        check(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, W, nc, out.data(), int(out.capacity()), &pos, sp, &state, 0),
              "Huffman encoding");
    }
    out.setSize(size_t(pos));
    out.reserve(64);
    check(zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, out.data(), int(out.capacity()), &pos, nullptr, &state, 1),
          "flush");
    out.setSize(size_t(pos));
    out.put16(0xFFD9);
    return std::vector<uint8_t>(out.data(), out.data() + out.size());
}

// ================================================================ decoder

namespace {

class Decoder {
public:
    Decoder(const uint8_t* data, size_t size) : d_(data), n_(size) {
        if (size > size_t(INT32_MAX)) throw Error("file too large");
    }

    void run(Raster& out) {
        out_ = &out;
        if (n_ < 2 || d_[0] != 0xFF || d_[1] != 0xD8) throw Error("not a JPEG file (no start-of-image marker)");
        pos_ = 2;
        int marker = nextMarker();
        for (;;) {
            if (marker == 0xD9) break;
            if (marker >= 0xD0 && marker <= 0xD7) throw Error("restart marker outside a scan");
            switch (marker) {
            case 0xC0:
            case 0xC1: frameHeader(marker); break;
            case 0xC2: frameHeader(marker); break;
            case 0xC6:
            case 0xCA:
            case 0xCE: throw Unsupported("progressive JPEG is not supported yet");
            case 0xC3: frameHeader(marker); break;
            case 0xC7:
            case 0xCB:
            case 0xCF: throw Unsupported("lossless JPEG is not supported yet");
            case 0xC5: throw Unsupported("hierarchical JPEG is not supported");
            case 0xC9:
            case 0xCD: throw Unsupported("arithmetic-coded JPEG is not supported");
            case 0xC4: huffmanTables(); break;
            case 0xDB: quantTables(); break;
            case 0xDD: restartDefinition(); break;
            case 0xDA:
                marker = scan();
                continue;
            case 0xDC: throw Unsupported("a DNL marker (height given after the scan) is not supported");
            case 0xCC: throw Unsupported("arithmetic-coded JPEG is not supported");
            default:
                if ((marker >= 0xE0 && marker <= 0xEF) || marker == 0xFE || (marker >= 0xF0 && marker <= 0xFD)) {
                    skipSegment();  // APPn, COM and extensions: not needed for the pixels
                    break;
                }
                throw Error("unexpected marker 0xFF" + hex(marker));
            }
            marker = nextMarker();
        }
        if (!frameSeen_) throw Error("no frame header before the end of the image");
        for (size_t i = 0; i < frame_.comps.size(); ++i)
            if (!decoded_[i]) throw Error("a component has no scan");
        if (lossless_) {
            losslessOutput(out);
            return;
        }
        if (progressive_) inverseAll();
        if (rowsDone_ < frame_.height) colour_.inverse(frame_, rowsDone_, frame_.height, out.pixels.data(), rowStride());
    }

private:
    static std::string hex(int v) {
        static const char* digits = "0123456789ABCDEF";
        return std::string{digits[(v >> 4) & 15], digits[v & 15]};
    }

    // The next marker code. Stray bytes between segments are passed over,
    // as other decoders do; fill bytes 0xFF before a marker too.
    int nextMarker() {
        while (pos_ < n_ && d_[pos_] != 0xFF) ++pos_;
        if (pos_ >= n_) throw Error("file ends before the end-of-image marker");
        while (pos_ < n_ && d_[pos_] == 0xFF) ++pos_;
        if (pos_ >= n_) throw Error("file ends inside a marker");
        return d_[pos_++];
    }
    int u8() {
        if (pos_ >= segEnd_) throw Error("segment too short");
        return d_[pos_++];
    }
    int u16() {
        int hi = u8();
        return hi << 8 | u8();
    }
    // Reads a segment length and sets the segment's end.
    void beginSegment() {
        segEnd_ = n_;
        size_t start = pos_;
        int len = u16();
        if (len < 2 || start + size_t(len) > n_) throw Error("segment length runs past the end of the file");
        segEnd_ = start + size_t(len);
    }
    void endSegment() {
        if (pos_ != segEnd_) throw Error("segment length does not match its contents");
    }
    void skipSegment() {
        beginSegment();
        pos_ = segEnd_;
    }

    void quantTables() {
        beginSegment();
        while (pos_ < segEnd_) {
            int pq = u8(), tq = pq & 15;
            pq >>= 4;
            if (pq > 1 || tq > 3) throw Error("bad quantisation table header");
            if (pq == 0) {
                uint8_t raw[64];
                for (auto& b : raw) b = uint8_t(u8());
                check(zebiQuantInvTableInit_JPEG_8u16u(raw, inv_[tq]), "inverse table");
            } else {
                for (int k = 0; k < 64; ++k) inv_[tq][kZigzag[k]] = Zeb16u(u16());
            }
            quantSeen_[tq] = true;
        }
        endSegment();
    }

    void huffmanTables() {
        beginSegment();
        while (pos_ < segEnd_) {
            int tc = u8(), th = tc & 15;
            tc >>= 4;
            if (tc > 1 || th > 3) throw Error("bad Huffman table header");
            uint8_t bits[16], vals[256] = {};
            int total = 0;
            for (auto& b : bits) total += (b = uint8_t(u8()));
            if (total > 256) throw Error("Huffman table with more than 256 codes");
            for (int i = 0; i < total; ++i) vals[i] = uint8_t(u8());
            DecodeHuffmanSpec& spec = tc == 0 ? dcSpec_[th] : acSpec_[th];
            if (zebiDecodeHuffmanSpecInit_JPEG_8u(bits, vals, &spec) != zebStatusOk)
                throw Error("invalid Huffman table");
            (tc == 0 ? dcSeen_ : acSeen_)[th] = true;
        }
        endSegment();
    }

    void restartDefinition() {
        beginSegment();
        restartInterval_ = u16();
        endSegment();
    }

    void frameHeader(int sof) {
        if (frameSeen_) throw Error("more than one frame header");
        progressive_ = sof == 0xC2;
        lossless_ = sof == 0xC3;
        beginSegment();
        int precision = u8();
        frame_.height = u16();
        frame_.width = u16();
        int nc = u8();
        if (lossless_ ? (precision < 2 || precision > 16) : precision != 8)
            throw Unsupported(std::to_string(precision) + "-bit samples are not supported");
        precision_ = precision;
        if (frame_.height == 0) throw Unsupported("a height defined after the scan (DNL) is not supported");
        if (frame_.width == 0) throw Error("image width is 0");
        if (nc != 1 && nc != 3) throw Unsupported(std::to_string(nc) + "-component images are not supported");
        frame_.comps.resize(size_t(nc));
        for (auto& c : frame_.comps) {
            c.id = u8();
            int hv = u8();
            c.h = hv >> 4;
            c.v = hv & 15;
            c.tq = u8();
            if (c.h < 1 || c.h > 4 || c.v < 1 || c.v > 4 || c.tq > 3) throw Error("bad component in frame header");
            if (nc == 1) c.h = c.v = 1;  // a single component is never interleaved
            if (lossless_ && (c.h != 1 || c.v != 1)) throw Unsupported("sampled lossless components are not supported");
            if (c.h > 2 || c.v > 2) throw Unsupported("sampling factors above 2 are not supported");
        }
        endSegment();
        for (size_t i = 0; i < frame_.comps.size(); ++i)
            for (size_t j = 0; j < i; ++j)
                if (frame_.comps[i].id == frame_.comps[j].id) throw Error("two components with the same id");
        // Every coded block takes at least two bits: refuse sizes that the
        // file cannot possibly hold before allocating planes for them.
        int hmax = 1, vmax = 1;
        for (auto& c : frame_.comps) hmax = std::max(hmax, c.h), vmax = std::max(vmax, c.v);
        uint64_t blocks = 0;
        for (auto& c : frame_.comps)
            blocks += uint64_t((frame_.width * c.h / hmax + 7) / 8 + 1) * uint64_t((frame_.height * c.v / vmax + 7) / 8 + 1);
        if (lossless_) blocks = uint64_t(frame_.width) * uint64_t(frame_.height) * uint64_t(nc);  // a bit a sample
        if (blocks > uint64_t(n_) * 8 + 4096) throw Error("image size does not fit the file's length");
        if (lossless_) {
            samples_.assign(size_t(nc), {});
            for (auto& p : samples_) p.assign(size_t(frame_.width) * size_t(frame_.height), 0);
            pointTransform_.assign(size_t(nc), 0);
            decoded_.assign(size_t(nc), false);
            out_->width = frame_.width;
            out_->height = frame_.height;
            out_->channels = nc;
            frameSeen_ = true;
            return;
        }
        frame_.layout();
        decoded_.assign(frame_.comps.size(), false);
        if (progressive_) {
            coefs_.resize(frame_.comps.size());
            for (size_t i = 0; i < frame_.comps.size(); ++i)
                coefs_[i].allocate(size_t(frame_.comps[i].blocksW) * size_t(frame_.comps[i].blocksH) * 64);
        }
        out_->width = frame_.width;
        out_->height = frame_.height;
        out_->channels = nc;
        out_->pixels.resize(size_t(frame_.width) * size_t(frame_.height) * size_t(nc));
        out_->bits = 8;
        out_->samples16.clear();
        frameSeen_ = true;
    }

    // Decodes one scan; returns the marker that follows it.
    int scan() {
        if (!frameSeen_) throw Error("scan before the frame header");
        beginSegment();
        int ns = u8();
        if (ns < 1 || ns > int(frame_.comps.size())) throw Error("bad component count in scan header");
        Component* sc[4] = {};
        int td[4], ta[4], ci[4];
        for (int i = 0; i < ns; ++i) {
            int id = u8(), t = u8();
            td[i] = t >> 4;
            ta[i] = t & 15;
            ci[i] = -1;
            for (size_t k = 0; k < frame_.comps.size(); ++k)
                if (frame_.comps[k].id == id) ci[i] = int(k);
            if (ci[i] < 0) throw Error("scan names an unknown component");
            for (int j = 0; j < i; ++j)
                if (ci[j] == ci[i]) throw Error("scan names a component twice");
            if (td[i] > 3 || ta[i] > 3) throw Error("bad Huffman table number in scan header");
            if (lossless_ && !dcSeen_[td[i]]) throw Error("scan uses an undefined Huffman table");
            if (lossless_) continue;
            if (!progressive_ && (!dcSeen_[td[i]] || !acSeen_[ta[i]]))
                throw Error("scan uses an undefined Huffman table");
            sc[i] = &frame_.comps[size_t(ci[i])];
            if (!quantSeen_[sc[i]->tq]) throw Error("component uses an undefined quantisation table");
        }
        int ss = u8(), se = u8(), a = u8();
        endSegment();
        if (lossless_) return losslessScan(ns, ci, td, ss, a >> 4, a & 15);
        if (progressive_) return progressiveScan(ns, sc, ci, td, ta, ss, se, a >> 4, a & 15);
        if (ss != 0 || se != 63 || a != 0) throw Error("scan parameters are not those of a sequential scan");

        int mcusX, mcusY, mcuBlocks = 0;
        if (ns == 1) {
            mcusX = (sc[0]->validW + 7) / 8;
            mcusY = (sc[0]->validH + 7) / 8;
            mcuBlocks = 1;
        } else {
            mcusX = frame_.mcusX;
            mcusY = frame_.mcusY;
            for (int i = 0; i < ns; ++i) mcuBlocks += sc[i]->h * sc[i]->v;
            if (mcuBlocks > 10) throw Error("too many blocks in an MCU");
        }

        DecodeHuffmanState state;
        zebiDecodeHuffmanStateInit_JPEG_8u(&state);
        int marker = 0, srcPos = int(pos_), restarts = 0;
        Zeb16s lastDC[4] = {};
        alignas(64) Zeb16s blk[64];
        const int total = mcusX * mcusY;
        const int step = frame_.step;
        // A scan of every component gives whole MCU rows: turn each into
        // pixels one MCU row later, while its samples are still in cache
        // (chroma halved vertically reads one row of the next MCU row).
        const bool convertAlong = ns == int(frame_.comps.size()) && rowsDone_ == 0;
        const int mcuH = ns == 1 ? 8 : frame_.vmax * 8;
        for (int m = 0; m < total; ++m) {
            if (convertAlong && m > mcusX && m % mcusX == 0) {
                const int end = (m / mcusX - 1) * mcuH;
                colour_.inverse(frame_, rowsDone_, end, out_->pixels.data(), rowStride());
                rowsDone_ = end;
            }
            if (restartInterval_ && m > 0 && m % restartInterval_ == 0) {
                if (marker == 0) marker = findMarker(srcPos);
                if (marker != 0xD0 + (restarts & 7)) throw Error("restart marker missing or out of order");
                ++restarts;
                marker = 0;
                zebiDecodeHuffmanStateInit_JPEG_8u(&state);
                lastDC[0] = lastDC[1] = lastDC[2] = lastDC[3] = 0;
            }
            const int mx = m % mcusX, my = m / mcusX;
            for (int i = 0; i < ns; ++i) {
                Component& c = *sc[i];
                const int bw = ns == 1 ? 1 : c.h, bh = ns == 1 ? 1 : c.v;
                for (int by = 0; by < bh; ++by)
                    for (int bx = 0; bx < bw; ++bx) {
                        ZebStatus s = zebiDecodeHuffman8x8_JPEG_1u16s_C1(d_, int(n_), &srcPos, blk, &lastDC[i], &marker,
                                                                         &dcSpec_[td[i]], &acSpec_[ta[i]], &state);
                        if (s != zebStatusOk) {
                            if (s == zebStatusJpegBufferEnd) throw Error("file ends inside the image data");
                            throw Error("corrupt image data (block decoder status " + std::to_string(s) + ")");
                        }
                        const int px = (mx * bw + bx) * 8, py = (my * bh + by) * 8;
                        inverseBlock(blk, state.blockEnd, c.plane.row(py) + px, step, inv_[c.tq]);
                    }
            }
        }
        for (int i = 0; i < ns; ++i) decoded_[size_t(ci[i])] = true;
        if (marker == 0) marker = findMarker(srcPos);
        pos_ = size_t(srcPos);
        if (marker >= 0xD0 && marker <= 0xD7) throw Error("restart marker after the last MCU");
        return marker;
    }

    // One scan of a progressive frame: its coefficients are added to the
    // component's stored blocks; the pixels are made after the last scan.
    int progressiveScan(int ns, Component* const* sc, const int* ci, const int* td, const int* ta, int ss, int se,
                        int ah, int al) {
        const bool dc = ss == 0;
        if (dc ? se != 0 : (se < ss || se > 63 || ns != 1))
            throw Error("bad spectral selection in a progressive scan");
        if (al > 13 || ah > 13 || (ah != 0 && al != ah - 1))
            throw Error("bad successive approximation in a progressive scan");
        for (int i = 0; i < ns; ++i) {
            if (dc && ah == 0 && !dcSeen_[td[i]]) throw Error("scan uses an undefined Huffman table");
            if (!dc && !acSeen_[ta[i]]) throw Error("scan uses an undefined Huffman table");
            if (!dc && !decoded_[size_t(ci[i])]) throw Error("AC scan before the component's DC scan");
            if (!quantSeen_[sc[i]->tq]) throw Error("component uses an undefined quantisation table");
        }
        int mcusX, mcusY;
        if (ns == 1) {
            mcusX = (sc[0]->validW + 7) / 8;
            mcusY = (sc[0]->validH + 7) / 8;
        } else {
            mcusX = frame_.mcusX;
            mcusY = frame_.mcusY;
            int mcuBlocks = 0;
            for (int i = 0; i < ns; ++i) mcuBlocks += sc[i]->h * sc[i]->v;
            if (mcuBlocks > 10) throw Error("too many blocks in an MCU");
        }
        DecodeHuffmanState state;
        zebiDecodeHuffmanStateInit_JPEG_8u(&state);
        int marker = 0, srcPos = int(pos_), restarts = 0;
        Zeb16s lastDC[4] = {};
        auto restart = [&] {
            if (marker == 0) marker = findMarker(srcPos);
            if (marker != 0xD0 + (restarts & 7)) throw Error("restart marker missing or out of order");
            ++restarts;
            marker = 0;
            zebiDecodeHuffmanStateInit_JPEG_8u(&state);
            lastDC[0] = lastDC[1] = lastDC[2] = lastDC[3] = 0;
        };
        auto fail = [](ZebStatus s) {
            if (s == zebStatusJpegBufferEnd) throw Error("file ends inside the image data");
            throw Error("corrupt image data (block decoder status " + std::to_string(s) + ")");
        };
        if (!dc) {
            // An AC scan has one component and one block per MCU: a tight
            // walk over its block rows, the restart found by a countdown.
            Zeb16s* base = coefs_[size_t(ci[0])].data();
            const DecodeHuffmanSpec* spec = &acSpec_[ta[0]];
            const size_t rowBlocks = size_t(sc[0]->blocksW);
            int untilRestart = restartInterval_;
            for (int by = 0; by < mcusY; ++by) {
                Zeb16s* blk = base + size_t(by) * rowBlocks * 64;
                for (int bx = 0; bx < mcusX; ++bx, blk += 64) {
                    if (restartInterval_) {
                        if (untilRestart == 0) {
                            restart();
                            untilRestart = restartInterval_;
                        }
                        --untilRestart;
                    }
                    const ZebStatus s =
                        ah == 0 ? zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(d_, int(n_), &srcPos, blk, &marker, ss,
                                                                             se, al, spec, &state)
                                : zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(d_, int(n_), &srcPos, blk, &marker, ss,
                                                                              se, al, spec, &state);
                    if (s != zebStatusOk) fail(s);
                }
            }
        }
        const int total = dc ? mcusX * mcusY : 0;
        for (int m = 0; m < total; ++m) {
            if (restartInterval_ && m > 0 && m % restartInterval_ == 0) restart();
            const int mx = m % mcusX, my = m / mcusX;
            for (int i = 0; i < ns; ++i) {
                Component& c = *sc[i];
                Zeb16s* base = coefs_[size_t(ci[i])].data();
                const int bw = ns == 1 ? 1 : c.h, bh = ns == 1 ? 1 : c.v;
                for (int by = 0; by < bh; ++by)
                    for (int bx = 0; bx < bw; ++bx) {
                        const int bX = mx * bw + bx, bY = my * bh + by;
                        Zeb16s* blk = base + (size_t(bY) * size_t(c.blocksW) + size_t(bX)) * 64;
                        ZebStatus s;
                        if (ah == 0)
                            s = zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(d_, int(n_), &srcPos, blk, &lastDC[i],
                                                                           &marker, al, &dcSpec_[td[i]], &state);
                        else
                            s = zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(d_, int(n_), &srcPos, blk, &marker, al,
                                                                            &state);
                        if (s != zebStatusOk) fail(s);
                    }
            }
        }
        if (dc)
            for (int i = 0; i < ns; ++i) decoded_[size_t(ci[i])] = true;
        if (marker == 0) marker = findMarker(srcPos);
        pos_ = size_t(srcPos);
        if (marker >= 0xD0 && marker <= 0xD7) throw Error("restart marker after the last MCU");
        return marker;
    }

    // One scan of a lossless frame: rows of differences of the scan's
    // components, interleaved sample by sample, then the predictor undone.
    int losslessScan(int ns, const int* ci, const int* td, int predictor, int ah, int pt) {
        if (predictor < 1 || predictor > 7) throw Error("bad predictor in a lossless scan");
        if (ah != 0 || pt >= precision_) throw Error("bad point transform in a lossless scan");
        const int W = frame_.width, H = frame_.height;
        if (restartInterval_ && restartInterval_ % W != 0)
            throw Unsupported("lossless restart intervals that are not whole rows are not supported");
        const int rowsPerInterval = restartInterval_ ? restartInterval_ / W : H;
        std::vector<Zeb16s> diffs(size_t(ns) * size_t(W));
        Zeb16s* rows[4];
        const DecodeHuffmanSpec* specs[4];
        for (int i = 0; i < 4; ++i) {
            rows[i] = &diffs[size_t(i < ns ? i : 0) * size_t(W)];
            specs[i] = &dcSpec_[td[i < ns ? i : 0]];
        }
        DecodeHuffmanState state;
        zebiDecodeHuffmanStateInit_JPEG_8u(&state);
        int marker = 0, srcPos = int(pos_), restarts = 0;
        for (int y = 0; y < H; ++y) {
            const bool first = y % rowsPerInterval == 0;
            if (first && y > 0) {
                if (marker == 0) marker = findMarker(srcPos);
                if (marker != 0xD0 + (restarts & 7)) throw Error("restart marker missing or out of order");
                ++restarts;
                marker = 0;
                zebiDecodeHuffmanStateInit_JPEG_8u(&state);
            }
            ZebStatus s = zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(d_, int(n_), &srcPos, rows, W, ns, &marker, specs, &state);
            if (s != zebStatusOk) {
                if (s == zebStatusJpegBufferEnd) throw Error("file ends inside the image data");
                throw Error("corrupt image data (row decoder status " + std::to_string(s) + ")");
            }
            for (int i = 0; i < ns; ++i) {
                Zeb16s* plane = samples_[size_t(ci[i])].data();
                Zeb16s* dst = plane + size_t(y) * size_t(W);
                if (first)
                    check(zebiReconstructPredFirstRow_JPEG_16s_C1(rows[i], dst, W, precision_, pt), "prediction");
                else
                    check(zebiReconstructPredRow_JPEG_16s_C1(rows[i], dst - W, dst, W, predictor), "prediction");
            }
        }
        for (int i = 0; i < ns; ++i) {
            decoded_[size_t(ci[i])] = true;
            pointTransform_[size_t(ci[i])] = pt;
        }
        if (marker == 0) marker = findMarker(srcPos);
        pos_ = size_t(srcPos);
        if (marker >= 0xD0 && marker <= 0xD7) throw Error("restart marker after the last row");
        return marker;
    }

    // Lossless samples to pixels: the point transform undone and the value
    // kept to the frame's precision (a corrupt stream can leave any word).
    void losslessOutput(Raster& out) {
        const size_t nc = frame_.comps.size(), n = size_t(frame_.width) * size_t(frame_.height);
        const uint32_t mask = (1u << precision_) - 1;
        out.bits = precision_ <= 8 ? 8 : precision_;
        if (precision_ <= 8) {
            out.pixels.resize(n * nc);
            out.samples16.clear();
        } else {
            out.pixels.clear();
            out.samples16.resize(n * nc);
        }
        for (size_t c = 0; c < nc; ++c) {
            const Zeb16s* src = samples_[c].data();
            const int pt = pointTransform_[c];
            if (precision_ <= 8)
                for (size_t i = 0; i < n; ++i) out.pixels[i * nc + c] = uint8_t((uint32_t(uint16_t(src[i])) << pt) & mask);
            else
                for (size_t i = 0; i < n; ++i)
                    out.samples16[i * nc + c] = uint16_t((uint32_t(uint16_t(src[i])) << pt) & mask);
        }
    }

    // The inverse transform of every stored block of a progressive frame,
    // one MCU row at a time, each row turned into pixels one MCU row later
    // (chroma halved vertically reads one row of the next) while its
    // samples are still in cache.
    void inverseAll() {
        const int mcuH = frame_.vmax * 8;
        for (int my = 0; my < frame_.mcusY; ++my) {
            for (size_t i = 0; i < frame_.comps.size(); ++i) {
                Component& c = frame_.comps[i];
                for (int by = my * c.v; by < (my + 1) * c.v; ++by) {
                    const Zeb16s* src = coefs_[i].data() + size_t(by) * size_t(c.blocksW) * 64;
                    uint8_t* row = c.plane.row(by * 8);
                    for (int bx = 0; bx < c.blocksW; ++bx, src += 64)
                        inverseBlock(src, blockEndClass(src), row + bx * 8, frame_.step, inv_[c.tq]);
                }
            }
            if (my > 0) {
                const int end = std::min(my * mcuH, frame_.height);
                colour_.inverse(frame_, rowsDone_, end, out_->pixels.data(), rowStride());
                rowsDone_ = end;
            }
        }
    }

    // Skips the rest of an interval's data up to the next marker.
    int findMarker(int& srcPos) {
        size_t p = size_t(srcPos);
        while (p + 1 < n_) {
            if (d_[p] == 0xFF && d_[p + 1] != 0x00 && d_[p + 1] != 0xFF) {
                srcPos = int(p + 2);
                return d_[p + 1];
            }
            ++p;
        }
        throw Error("file ends inside the image data");
    }

    size_t rowStride() const { return size_t(frame_.width) * frame_.comps.size(); }

    const uint8_t* d_;
    size_t n_, pos_ = 0, segEnd_ = 0;
    Raster* out_ = nullptr;
    PlaneColourStage colour_;
    int rowsDone_ = 0;
    Frame frame_;
    bool frameSeen_ = false, progressive_ = false, lossless_ = false;
    int precision_ = 8;
    std::vector<std::vector<Zeb16s>> samples_;  // lossless: samples per component, before the point transform
    std::vector<int> pointTransform_;
    std::vector<CoefficientStore> coefs_;  // progressive: quantised blocks per component, row by row
    std::vector<bool> decoded_;
    int restartInterval_ = 0;
    alignas(64) Zeb16u inv_[4][64] = {};
    bool quantSeen_[4] = {}, dcSeen_[4] = {}, acSeen_[4] = {};
    DecodeHuffmanSpec dcSpec_[4], acSpec_[4];
};

}  // namespace

void decode(const uint8_t* data, size_t size, Raster& out) {
    if (!data || size < 2) throw Error("not a JPEG file (too short)");
    auto dec = std::make_unique<Decoder>(data, size);
    dec->run(out);
}

Raster decode(const uint8_t* data, size_t size) {
    Raster r;
    decode(data, size, r);
    return r;
}

}  // namespace zebjpeg
