// zebjp_demo: prints the library's version record and runs the level shift
// pair over a 4096x4096 region, on one thread and on all cores, next to
// memcpy of the same bytes.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zebcore.h"
#include "zebjp.h"

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

}  // namespace

int main(int argc, char** argv) {
    const ZebLibraryVersion* v = zebjGetLibVersion();
    std::printf("%s  version %s  (%d.%d.%d build %d, target \"%.4s\", built %s)\n", v->name, v->version, v->major,
                v->minor, v->majorBuild, v->build, v->targetCpu, v->buildDate);

    const int side = argc > 1 ? std::atoi(argv[1]) : 4096;
    if (side < 1) {
        std::fprintf(stderr, "usage: %s [side]\n", argv[0]);
        return 2;
    }
    const size_t n = size_t(side) * side;
    std::vector<Zeb8u> pixels(n), back(n);
    std::vector<Zeb16s> shifted(n);
    for (size_t i = 0; i < n; ++i) pixels[i] = static_cast<Zeb8u>((i * 7 + i / side * 3) & 0xFF);
    const ZebSize roi{side, side};
    const double bytes = double(n) * 3;  // read plus written, per direction

    std::vector<Zeb8u> a(n * 3 / 2, 1), b(n * 3 / 2);
    double tCopy = bestSeconds([&] { std::memcpy(b.data(), a.data(), a.size()); }, 7);

    std::printf("\nlevel shift of a %dx%d region (%.1f MB moved per call)\n", side, side, bytes / 1e6);
    std::printf("  %-34s %10s %10s\n", "", "Mpixel/s", "GB/s");
    std::printf("  %-34s %10.0f %10.2f\n", "memcpy of the same bytes", n / tCopy / 1e6, bytes / tCopy / 1e9);
    const int machine = zebcoreGetMachineNumThreads();
    for (int threads : {1, machine}) {
        zebcoreSetNumThreads(threads);
        ZebStatus s1 = 0, s2 = 0;
        double tSub = bestSeconds([&] { s1 = zebiSub128_JPEG_8u16s_C1R(pixels.data(), side, shifted.data(), 2 * side, roi); }, 7);
        double tAdd = bestSeconds([&] { s2 = zebiAdd128_JPEG_16s8u_C1R(shifted.data(), 2 * side, back.data(), side, roi); }, 7);
        if (s1 != zebStatusOk || s2 != zebStatusOk) {
            std::fprintf(stderr, "level shift failed: %d %d\n", s1, s2);
            return 1;
        }
        char label[64];
        std::snprintf(label, sizeof label, "Sub128, %d thread%s", threads, threads == 1 ? "" : "s");
        std::printf("  %-34s %10.0f %10.2f\n", label, n / tSub / 1e6, bytes / tSub / 1e9);
        std::snprintf(label, sizeof label, "Add128, %d thread%s", threads, threads == 1 ? "" : "s");
        std::printf("  %-34s %10.0f %10.2f\n", label, n / tAdd / 1e6, bytes / tAdd / 1e9);
        if (threads == machine) break;
    }
    zebcoreSetNumThreads(0);
    bool same = std::memcmp(pixels.data(), back.data(), n) == 0;
    std::printf("\nround trip Sub128 then Add128: %s\n", same ? "identical" : "DIFFERENT");
    return same ? 0 : 1;
}
