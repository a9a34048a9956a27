// Colour conversion and sampling throughput, in pixels per second, for every
// operation of the family on a 1920x1080 and a 4096x4096 image, with one
// thread and with all cores. Each operation is paired with memcpy of the same
// bytes (read plus written) at the same size and thread count, in the same
// run, and a summary at the end gives each operation's rate as a share of
// that memcpy. Where libjpeg-turbo is present, its decoder and encoder run on
// the same image with and without their colour step (raw data in and out),
// so that the difference is the time its own colour conversion takes.
//
// The summary uses wall-clock time (what a caller waits for). On a machine
// shared with other work the single-threaded figures are also given by CPU
// time, which other processes disturb less.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "zebcore.h"
#include "zebjp.h"

#ifdef ZEB_HAVE_JPEG
#include <jpeglib.h>
#endif

namespace {

struct Image {
    int w, h;
    // Sources: interleaved pixels (3 and 4 bytes), packed 16-bit words, full
    // planes Y/Cb/Cr/K, and half-width chroma planes (w/2 by h).
    std::vector<uint8_t> rgb, rgba, y, cb, cr, k, cbHalf, crHalf;
    // Destinations: four-byte pixels and four planes, plus two half-width planes.
    std::vector<uint8_t> pix, o0, o1, o2, o3, oh1, oh2;
    Image(int w_, int h_) : w(w_), h(h_) {
        const size_t n = static_cast<size_t>(w) * h;
        rgb.resize(n * 3);
        rgba.resize(n * 4);
        std::mt19937 g(7);
        // A smooth picture with some noise, like camera content.
        for (int yy = 0; yy < h; ++yy)
            for (int x = 0; x < w; ++x) {
                const size_t i = static_cast<size_t>(yy) * w + x;
                const uint32_t noise = g();
                uint8_t r = static_cast<uint8_t>((x * 255 / w + (noise & 15)) & 255);
                uint8_t gg = static_cast<uint8_t>((yy * 255 / h + ((noise >> 4) & 15)) & 255);
                uint8_t b = static_cast<uint8_t>(((x + yy) * 127 / (w + h) + 64 + ((noise >> 8) & 7)) & 255);
                rgb[3 * i] = rgba[4 * i] = r;
                rgb[3 * i + 1] = rgba[4 * i + 1] = gg;
                rgb[3 * i + 2] = rgba[4 * i + 2] = b;
                rgba[4 * i + 3] = static_cast<uint8_t>(noise >> 24);
            }
        for (auto* v : {&y, &cb, &cr, &k, &o0, &o1, &o2, &o3}) v->resize(n);
        for (auto* v : {&cbHalf, &crHalf, &oh1, &oh2}) v->resize(n / 2 + w);
        pix.resize(n * 4);
        Zeb8u* d[3] = {y.data(), cb.data(), cr.data()};
        zebiRGBToYCbCr_JPEG_8u_C3P3R(rgb.data(), 3 * w, d, w, ZebSize{w, h});
        std::memcpy(k.data(), cr.data(), n);
        Zeb8u* dh[3] = {o0.data(), cbHalf.data(), crHalf.data()};
        const int steps[3] = {w, w / 2, w / 2};
        zebiRGBToYCbCr422_JPEG_8u_C3P3R(rgb.data(), 3 * w, dh, steps, ZebSize{w, h});
    }
    ZebSize size() const { return ZebSize{w, h}; }
    const Zeb16u* words() const { return reinterpret_cast<const Zeb16u*>(rgba.data()); }
    Zeb16u* outWords() { return reinterpret_cast<Zeb16u*>(pix.data()); }
};

Image& image(int which) {
    static Image small(1920, 1080), large(4096, 4096);
    return which ? large : small;
}

void finish(benchmark::State& st, const Image& im, double bytesPerPixel) {
    const double px = static_cast<double>(im.w) * im.h;
    st.counters["px/s"] = benchmark::Counter(px, benchmark::Counter::kIsIterationInvariantRate);
    st.counters["B/s"] = benchmark::Counter(px * bytesPerPixel, benchmark::Counter::kIsIterationInvariantRate);
}

// ---------------------------------------------------------------- the operations

struct Op {
    const char* name;
    double bytes;  // read plus written per pixel of the image
    double goal;     // share of memcpy aimed at: 0.5 for RGB <-> planar YCbCr, 0.6 for samplers, 0 none
    std::function<void(Image&)> run;
};

std::vector<Op> makeOps() {
    std::vector<Op> v;
    auto add = [&](const char* name, double bytes, double goal, std::function<void(Image&)> f) {
        v.push_back(Op{name, bytes, goal, std::move(f)});
    };
    const double conv = 0.5, samp = 0.6;
    // Forward.
    add("RGBToY_C3C1R", 4, 0, [](Image& m) { zebiRGBToY_JPEG_8u_C3C1R(m.rgb.data(), 3 * m.w, m.o0.data(), m.w, m.size()); });
    add("BGRToY_C3C1R", 4, 0, [](Image& m) { zebiBGRToY_JPEG_8u_C3C1R(m.rgb.data(), 3 * m.w, m.o0.data(), m.w, m.size()); });
    add("RGBToY_P3C1R", 4, 0, [](Image& m) {
        const Zeb8u* s[3] = {m.y.data(), m.cb.data(), m.cr.data()};
        zebiRGBToY_JPEG_8u_P3C1R(s, m.w, m.o0.data(), m.w, m.size());
    });
    add("RGBToYCbCr_C3P3R", 6, conv, [](Image& m) {
        Zeb8u* d[3] = {m.o0.data(), m.o1.data(), m.o2.data()};
        zebiRGBToYCbCr_JPEG_8u_C3P3R(m.rgb.data(), 3 * m.w, d, m.w, m.size());
    });
    add("BGRToYCbCr_C3P3R", 6, conv, [](Image& m) {
        Zeb8u* d[3] = {m.o0.data(), m.o1.data(), m.o2.data()};
        zebiBGRToYCbCr_JPEG_8u_C3P3R(m.rgb.data(), 3 * m.w, d, m.w, m.size());
    });
    add("RGBToYCbCr_P3R", 6, conv, [](Image& m) {
        const Zeb8u* s[3] = {m.y.data(), m.cb.data(), m.cr.data()};
        Zeb8u* d[3] = {m.o0.data(), m.o1.data(), m.o2.data()};
        zebiRGBToYCbCr_JPEG_8u_P3R(s, m.w, d, m.w, m.size());
    });
    add("RGBToYCbCr_C4P3R", 7, 0, [](Image& m) {
        Zeb8u* d[3] = {m.o0.data(), m.o1.data(), m.o2.data()};
        zebiRGBToYCbCr_JPEG_8u_C4P3R(m.rgba.data(), 4 * m.w, d, m.w, m.size());
    });
    add("BGRToYCbCr_C4P3R", 7, 0, [](Image& m) {
        Zeb8u* d[3] = {m.o0.data(), m.o1.data(), m.o2.data()};
        zebiBGRToYCbCr_JPEG_8u_C4P3R(m.rgba.data(), 4 * m.w, d, m.w, m.size());
    });
#define ZEB_PACKED_FWD(NAME)                                                           \
    add(#NAME "_16u8u_C3P3R", 5, 0, [](Image& m) {                                     \
        Zeb8u* d[3] = {m.o0.data(), m.o1.data(), m.o2.data()};                         \
        zebi##NAME##_JPEG_16u8u_C3P3R(m.words(), 2 * m.w, d, m.w, m.size());           \
    });
    ZEB_PACKED_FWD(RGB555ToYCbCr) ZEB_PACKED_FWD(BGR555ToYCbCr) ZEB_PACKED_FWD(RGB565ToYCbCr) ZEB_PACKED_FWD(BGR565ToYCbCr)
#undef ZEB_PACKED_FWD
#define ZEB_SUB_FWD(NAME, P, BYTES)                                                    \
    add(#NAME "_C" #P "P3R", BYTES, 0, [](Image& m) {                                  \
        Zeb8u* d[3] = {m.o0.data(), m.oh1.data(), m.oh2.data()};                       \
        const int steps[3] = {m.w, m.w / 2, m.w / 2};                                  \
        zebi##NAME##_JPEG_8u_C##P##P3R(P == 3 ? m.rgb.data() : m.rgba.data(), P * m.w, d, steps, m.size()); \
    });
    ZEB_SUB_FWD(RGBToYCbCr422, 3, 5) ZEB_SUB_FWD(BGRToYCbCr422, 3, 5) ZEB_SUB_FWD(RGBToYCbCr422, 4, 6)
    ZEB_SUB_FWD(BGRToYCbCr422, 4, 6) ZEB_SUB_FWD(RGBToYCbCr411, 3, 4.5) ZEB_SUB_FWD(BGRToYCbCr411, 3, 4.5)
    ZEB_SUB_FWD(RGBToYCbCr411, 4, 5.5) ZEB_SUB_FWD(BGRToYCbCr411, 4, 5.5)
#undef ZEB_SUB_FWD
    add("CMYKToYCCK_C4P4R", 8, 0, [](Image& m) {
        Zeb8u* d[4] = {m.o0.data(), m.o1.data(), m.o2.data(), m.o3.data()};
        zebiCMYKToYCCK_JPEG_8u_C4P4R(m.rgba.data(), 4 * m.w, d, m.w, m.size());
    });
    add("CMYKToYCCK_P4R", 8, 0, [](Image& m) {
        const Zeb8u* s[4] = {m.y.data(), m.cb.data(), m.cr.data(), m.k.data()};
        Zeb8u* d[4] = {m.o0.data(), m.o1.data(), m.o2.data(), m.o3.data()};
        zebiCMYKToYCCK_JPEG_8u_P4R(s, m.w, d, m.w, m.size());
    });
    // Inverse.
    add("YCbCrToRGB_P3R", 6, conv, [](Image& m) {
        const Zeb8u* s[3] = {m.y.data(), m.cb.data(), m.cr.data()};
        Zeb8u* d[3] = {m.o0.data(), m.o1.data(), m.o2.data()};
        zebiYCbCrToRGB_JPEG_8u_P3R(s, m.w, d, m.w, m.size());
    });
    add("YCbCrToRGB_P3C3R", 6, conv, [](Image& m) {
        const Zeb8u* s[3] = {m.y.data(), m.cb.data(), m.cr.data()};
        zebiYCbCrToRGB_JPEG_8u_P3C3R(s, m.w, m.pix.data(), 3 * m.w, m.size());
    });
    add("YCbCrToBGR_P3C3R", 6, conv, [](Image& m) {
        const Zeb8u* s[3] = {m.y.data(), m.cb.data(), m.cr.data()};
        zebiYCbCrToBGR_JPEG_8u_P3C3R(s, m.w, m.pix.data(), 3 * m.w, m.size());
    });
    add("YCbCrToRGB_P3C4R", 7, 0, [](Image& m) {
        const Zeb8u* s[3] = {m.y.data(), m.cb.data(), m.cr.data()};
        zebiYCbCrToRGB_JPEG_8u_P3C4R(s, m.w, m.pix.data(), 4 * m.w, m.size(), 255);
    });
    add("YCbCrToBGR_P3C4R", 7, 0, [](Image& m) {
        const Zeb8u* s[3] = {m.y.data(), m.cb.data(), m.cr.data()};
        zebiYCbCrToBGR_JPEG_8u_P3C4R(s, m.w, m.pix.data(), 4 * m.w, m.size(), 255);
    });
#define ZEB_PACKED_INV(NAME)                                                           \
    add(#NAME "_8u16u_P3C3R", 5, 0, [](Image& m) {                                     \
        const Zeb8u* s[3] = {m.y.data(), m.cb.data(), m.cr.data()};                    \
        zebi##NAME##_JPEG_8u16u_P3C3R(s, m.w, m.outWords(), 2 * m.w, m.size());        \
    });
    ZEB_PACKED_INV(YCbCrToRGB555) ZEB_PACKED_INV(YCbCrToBGR555) ZEB_PACKED_INV(YCbCrToRGB565) ZEB_PACKED_INV(YCbCrToBGR565)
#undef ZEB_PACKED_INV
#define ZEB_SUB_INV3(NAME, BYTES)                                                      \
    add(#NAME "_P3C3R", BYTES, 0, [](Image& m) {                                       \
        const Zeb8u* s[3] = {m.y.data(), m.cbHalf.data(), m.crHalf.data()};            \
        const int steps[3] = {m.w, m.w / 2, m.w / 2};                                  \
        zebi##NAME##_JPEG_8u_P3C3R(s, steps, m.pix.data(), 3 * m.w, m.size());         \
    });
#define ZEB_SUB_INV4(NAME, BYTES)                                                      \
    add(#NAME "_P3C4R", BYTES, 0, [](Image& m) {                                       \
        const Zeb8u* s[3] = {m.y.data(), m.cbHalf.data(), m.crHalf.data()};            \
        const int steps[3] = {m.w, m.w / 2, m.w / 2};                                  \
        zebi##NAME##_JPEG_8u_P3C4R(s, steps, m.pix.data(), 4 * m.w, m.size(), 255);    \
    });
    ZEB_SUB_INV3(YCbCr422ToRGB, 5) ZEB_SUB_INV3(YCbCr422ToBGR, 5) ZEB_SUB_INV4(YCbCr422ToRGB, 6)
    ZEB_SUB_INV4(YCbCr422ToBGR, 6) ZEB_SUB_INV3(YCbCr411ToRGB, 4.5) ZEB_SUB_INV3(YCbCr411ToBGR, 4.5)
    ZEB_SUB_INV4(YCbCr411ToRGB, 5.5) ZEB_SUB_INV4(YCbCr411ToBGR, 5.5)
#undef ZEB_SUB_INV3
#undef ZEB_SUB_INV4
    add("YCbCr422ToRGB_C2C3R", 5, 0, [](Image& m) {
        zebiYCbCr422ToRGB_JPEG_8u_C2C3R(m.rgba.data(), 2 * m.w, m.pix.data(), 3 * m.w, m.size());
    });
    add("YCCKToCMYK_P4C4R", 8, 0, [](Image& m) {
        const Zeb8u* s[4] = {m.y.data(), m.cb.data(), m.cr.data(), m.k.data()};
        zebiYCCKToCMYK_JPEG_8u_P4C4R(s, m.w, m.pix.data(), 4 * m.w, m.size());
    });
    add("YCCKToCMYK_P4R", 8, 0, [](Image& m) {
        const Zeb8u* s[4] = {m.y.data(), m.cb.data(), m.cr.data(), m.k.data()};
        Zeb8u* d[4] = {m.o0.data(), m.o1.data(), m.o2.data(), m.o3.data()};
        zebiYCCKToCMYK_JPEG_8u_P4R(s, m.w, d, m.w, m.size());
    });
    // Sampling: the image size is the full-resolution side.
    add("SampleDownH2V1", 1.5, samp, [](Image& m) {
        zebiSampleDownH2V1_JPEG_8u_C1R(m.cb.data(), m.w, m.size(), m.oh1.data(), m.w / 2, ZebSize{m.w / 2, m.h});
    });
    add("SampleDownH2V2", 1.25, samp, [](Image& m) {
        zebiSampleDownH2V2_JPEG_8u_C1R(m.cb.data(), m.w, m.size(), m.oh1.data(), m.w / 2, ZebSize{m.w / 2, m.h / 2});
    });
    add("SampleUpH2V1", 1.5, samp, [](Image& m) {
        // Source: the half-width plane inside a border of one sample.
        const int sw = m.w / 2, step = sw + 2;
        zebiSampleUpH2V1_JPEG_8u_C1R(m.cb.data() + 1, step, ZebSize{sw, m.h}, m.o0.data(), m.w, m.size());
    });
    add("SampleUpH2V2", 1.25, samp, [](Image& m) {
        const int sw = m.w / 2, step = sw + 2;
        zebiSampleUpH2V2_JPEG_8u_C1R(m.cb.data() + step + 1, step, ZebSize{sw, m.h / 2}, m.o0.data(), m.w,
                                     ZebSize{m.w, m.h - 2});
    });
    add("SampleDownRowH2V1_Box", 1.5, samp, [](Image& m) {
        for (int y = 0; y < m.h; ++y)
            zebiSampleDownRowH2V1_Box_JPEG_8u_C1(m.cb.data() + static_cast<size_t>(y) * m.w, m.w,
                                                 m.oh1.data() + static_cast<size_t>(y) * (m.w / 2));
    });
    add("SampleDownRowH2V2_Box", 1.25, samp, [](Image& m) {
        for (int y = 0; y < m.h / 2; ++y)
            zebiSampleDownRowH2V2_Box_JPEG_8u_C1(m.cb.data() + static_cast<size_t>(2 * y) * m.w,
                                                 m.cb.data() + static_cast<size_t>(2 * y + 1) * m.w, m.w,
                                                 m.oh1.data() + static_cast<size_t>(y) * (m.w / 2));
    });
    add("SampleUpRowH2V1_Triangle", 1.5, samp, [](Image& m) {
        const int sw = m.w / 2;
        for (int y = 0; y < m.h; ++y)
            zebiSampleUpRowH2V1_Triangle_JPEG_8u_C1(m.cbHalf.data() + static_cast<size_t>(y) * sw, sw,
                                                    m.o0.data() + static_cast<size_t>(y) * m.w);
    });
    add("SampleUpRowH2V2_Triangle", 1.25, samp, [](Image& m) {
        const int sw = m.w / 2;
        for (int y = 0; y < m.h; ++y)
            zebiSampleUpRowH2V2_Triangle_JPEG_8u_C1(m.cbHalf.data() + static_cast<size_t>(y / 2) * sw,
                                                    m.crHalf.data() + static_cast<size_t>(y / 2) * sw, sw,
                                                    m.o0.data() + static_cast<size_t>(y) * m.w);
    });
    return v;
}

const std::vector<Op>& ops() {
    static const std::vector<Op> v = makeOps();
    return v;
}

const char* kSizeName[2] = {"1920x1080", "4096x4096"};
const char* kThreadName[2] = {"1t", "all"};

// memcpy of `bytes` per pixel (half read, half written), split over the
// cores in the all-cores form.
struct MemcpyBuffers {
    std::vector<uint8_t> a, b;
};
MemcpyBuffers& memcpyBuffers() {
    static MemcpyBuffers m;
    return m;
}
void runMemcpy(benchmark::State& st, int size, int all, double bytes) {
    Image& im = image(size);
    const size_t n = static_cast<size_t>(static_cast<double>(im.w) * im.h * bytes / 2);
    MemcpyBuffers& m = memcpyBuffers();
    if (m.a.size() < n) {
        m.a.assign(n, 1);
        m.b.assign(n, 2);
    }
    const unsigned threads = all ? std::max(1u, std::thread::hardware_concurrency()) : 1u;
    for (auto _ : st) {
        if (threads == 1) {
            std::memcpy(m.b.data(), m.a.data(), n);
        } else {
            std::vector<std::thread> pool;
            const size_t part = (n + threads - 1) / threads;
            for (unsigned t = 0; t < threads; ++t)
                pool.emplace_back([&, t] {
                    const size_t from = std::min(n, t * part), to = std::min(n, from + part);
                    std::memcpy(m.b.data() + from, m.a.data() + from, to - from);
                });
            for (auto& th : pool) th.join();
        }
        benchmark::DoNotOptimize(m.b.data());
        benchmark::ClobberMemory();
    }
    finish(st, im, bytes);
}

void runOp(benchmark::State& st, const Op& op, int size, int all) {
    Image& im = image(size);
    zebcoreSetNumThreads(all ? 0 : 1);
    for (auto _ : st) op.run(im);
    zebcoreSetNumThreads(0);
    finish(st, im, op.bytes);
}

// ---------------------------------------------------------------- summary

struct Timing {
    double real = 0, cpu = 0;  // seconds per iteration
};
std::map<std::string, Timing>& timings() {
    static std::map<std::string, Timing> t;
    return t;
}

class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration || r.iterations == 0) continue;
            Timing t;
            t.real = r.real_accumulated_time / static_cast<double>(r.iterations);
            t.cpu = r.cpu_accumulated_time / static_cast<double>(r.iterations);
            timings()[r.run_name.function_name] = t;
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

std::string opKey(const std::string& op, int size, int all) {
    return op + "/" + kSizeName[size] + "/" + kThreadName[all];
}
std::string memcpyKey(double bytes, int size, int all) {
    char b[64];
    std::snprintf(b, sizeof b, "memcpy_%gBpp/%s/%s", bytes, kSizeName[size], kThreadName[all]);
    return b;
}

void printSummary() {
    auto& t = timings();
    if (t.empty()) return;
    std::printf("\nRate as a share of memcpy of the same bytes (wall clock; cpu = one thread by CPU time)\n");
    std::printf("%-34s %5s | %-27s | %-27s\n", "", "", kSizeName[0], kSizeName[1]);
    std::printf("%-34s %5s | %7s %6s %5s %6s | %7s %6s %5s %6s\n", "operation", "goal", "Mpx/s", "1t", "cpu", "all",
                "Mpx/s", "1t", "cpu", "all");
    for (const Op& op : ops()) {
        bool any = false;
        char line[256];
        int at = std::snprintf(line, sizeof line, "%-34s %5s |", op.name,
                               op.goal == 0.5 ? "50%" : op.goal == 0.6 ? "60%" : "");
        for (int size = 0; size < 2; ++size) {
            const double px = size ? 4096.0 * 4096 : 1920.0 * 1080;
            auto ratio = [&](int all, bool cpu) -> double {
                auto a = t.find(opKey(op.name, size, all));
                auto m = t.find(memcpyKey(op.bytes, size, all));
                if (a == t.end() || m == t.end()) return -1;
                const double oa = cpu ? a->second.cpu : a->second.real, om = cpu ? m->second.cpu : m->second.real;
                return oa > 0 ? om / oa : -1;
            };
            auto fmt = [](double r, char* out) {
                if (r < 0) std::snprintf(out, 16, "%6s", "-");
                else std::snprintf(out, 16, "%5.0f%%", 100 * r);
            };
            auto one = t.find(opKey(op.name, size, 0));
            char mpx[16], r1[16], rc[16], ra[16];
            if (one == t.end()) std::snprintf(mpx, sizeof mpx, "%7s", "-");
            else {
                std::snprintf(mpx, sizeof mpx, "%7.0f", px / one->second.real / 1e6);
                any = true;
            }
            fmt(ratio(0, false), r1);
            fmt(ratio(0, true), rc);
            fmt(ratio(1, false), ra);
            at += std::snprintf(line + at, sizeof line - at, " %s %s %5s %s |", mpx, r1, rc, ra);
        }
        if (any) std::printf("%s\n", line);
    }
}

}  // namespace

namespace {
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
                        uint8_t* plane = c == 0 ? im.pix.data() : c == 1 ? im.o1.data() : im.o2.data();
                        int y = static_cast<int>(d.output_scanline) + k;
                        rows[c][k] = plane + static_cast<size_t>(y < im.h ? y : im.h - 1) * im.w;
                    }
                JSAMPARRAY planes[3] = {rows[0], rows[1], rows[2]};
                jpeg_read_raw_data(&d, planes, 8);
            }
        } else {
            while (d.output_scanline < d.output_height) {
                JSAMPROW row = im.pix.data() + static_cast<size_t>(d.output_scanline) * 3 * im.w;
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
#endif

}  // namespace

int main(int argc, char** argv) {
    // Every operation at both sizes, one thread and all cores, each after the
    // memcpy of its own byte count at the same size and thread count.
    std::map<std::string, bool> registered;
    for (const Op& op : ops())
        for (int size = 0; size < 2; ++size)
            for (int all = 0; all < 2; ++all) {
                const std::string mk = memcpyKey(op.bytes, size, all);
                if (!registered[mk]) {
                    registered[mk] = true;
                    const double bytes = op.bytes;
                    benchmark::RegisterBenchmark(mk.c_str(), [=](benchmark::State& st) { runMemcpy(st, size, all, bytes); })
                        ->Unit(benchmark::kMillisecond)
                        ->UseRealTime();
                }
                benchmark::RegisterBenchmark(opKey(op.name, size, all).c_str(),
                                             [&op, size, all](benchmark::State& st) { runOp(st, op, size, all); })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
            }
#ifdef ZEB_HAVE_JPEG
    for (int size = 0; size < 2; ++size) {
        auto reg = [&](const char* name, void (*f)(benchmark::State&, bool), bool raw) {
            benchmark::RegisterBenchmark((std::string(name) + "/" + kSizeName[size]).c_str(),
                                         [=](benchmark::State& st) { f(st, raw); })
                ->Arg(size)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
        };
        reg("Turbo_Decode444_ToRGB", turboDecode, false);
        reg("Turbo_Decode444_Raw", turboDecode, true);
        reg("Turbo_Encode444_FromRGB", turboEncode, false);
        reg("Turbo_Encode444_Raw", turboEncode, true);
    }
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printSummary();
    benchmark::Shutdown();
    return 0;
}
