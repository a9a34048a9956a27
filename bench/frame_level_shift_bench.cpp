// Level shift pair against memcpy of the same bytes (read plus written), on
// regions from 64x64 to 4096x4096, one thread and all threads.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "zebcore.h"
#include "zebjp.h"

namespace {

struct Region {
    explicit Region(int side) : w(side), h(side), s16(size_t(side) * side), s8(size_t(side) * side) {
        for (size_t i = 0; i < s16.size(); ++i) {
            s16[i] = static_cast<int16_t>((i * 37) % 400) - 200;
            s8[i] = static_cast<uint8_t>(i * 13);
        }
    }
    int w, h;
    std::vector<int16_t> s16;
    std::vector<uint8_t> s8;
};

// Arguments: side, threads (0 = all the machine has).
void setThreads(benchmark::State& st) {
    zebcoreSetNumThreads(st.range(1) == 0 ? 0 : static_cast<int>(st.range(1)));
}

void reportBytes(benchmark::State& st, const Region& r) {
    // Bytes moved per call: 2 read + 1 written per sample.
    st.SetBytesProcessed(int64_t(st.iterations()) * r.w * r.h * 3);
    st.counters["Mpix/s"] = benchmark::Counter(double(st.iterations()) * r.w * r.h / 1e6,
                                               benchmark::Counter::kIsRate);
}

void BM_Add128(benchmark::State& st) {
    Region r(static_cast<int>(st.range(0)));
    std::vector<uint8_t> dst(r.s8.size());
    setThreads(st);
    for (auto _ : st) {
        zebiAdd128_JPEG_16s8u_C1R(r.s16.data(), 2 * r.w, dst.data(), r.w, ZebSize{r.w, r.h});
        benchmark::ClobberMemory();
    }
    zebcoreSetNumThreads(0);
    reportBytes(st, r);
}

void BM_Sub128(benchmark::State& st) {
    Region r(static_cast<int>(st.range(0)));
    std::vector<int16_t> dst(r.s16.size());
    setThreads(st);
    for (auto _ : st) {
        zebiSub128_JPEG_8u16s_C1R(r.s8.data(), r.w, dst.data(), 2 * r.w, ZebSize{r.w, r.h});
        benchmark::ClobberMemory();
    }
    zebcoreSetNumThreads(0);
    reportBytes(st, r);
}

// The anchor: memcpy of the same number of bytes (half of the read+write
// traffic of the level shift each way: 1.5 bytes copied per sample).
void BM_Memcpy(benchmark::State& st) {
    Region r(static_cast<int>(st.range(0)));
    size_t bytes = size_t(r.w) * r.h * 3 / 2;
    std::vector<uint8_t> a(bytes, 1), b(bytes);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), bytes);
        benchmark::ClobberMemory();
    }
    reportBytes(st, r);
}

void sizes(benchmark::internal::Benchmark* b, bool threads) {
    for (int side : {64, 256, 512, 1024, 4096}) {
        b->Args({side, 1});
        if (threads) b->Args({side, 0});
    }
    b->ArgNames({"side", "threads"});
}

BENCHMARK(BM_Add128)->Apply([](auto* b) { sizes(b, true); })->UseRealTime();
BENCHMARK(BM_Sub128)->Apply([](auto* b) { sizes(b, true); })->UseRealTime();
BENCHMARK(BM_Memcpy)->Apply([](auto* b) { sizes(b, false); })->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
