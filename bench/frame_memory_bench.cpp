// Fills and copies of the frame against memset and memcpy of the same bytes,
// 64 bytes to 8 MiB; the cache-bypassing fills with the core's cache size set
// below the area; the reverse division on a quantisation table and long rows.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/memory.h"
#include "zebcore.h"

namespace {

struct Area {
    explicit Area(size_t n) : p(static_cast<uint8_t*>(std::aligned_alloc(64, (n + 127) & ~size_t{63}))) {
        std::memset(p, 1, n);
    }
    ~Area() { std::free(p); }
    uint8_t* p;
};

void sizes(benchmark::internal::Benchmark* b) { b->RangeMultiplier(4)->Range(64, 8 << 20); }

void finish(benchmark::State& s, size_t bytes) {
    s.SetBytesProcessed(static_cast<int64_t>(s.iterations()) * static_cast<int64_t>(bytes));
}

// ---------------------------------------------------------------- zero fills

void BM_Zero_8u(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    Area a(n);
    for (auto _ : s) {
        ownsZero_8u(a.p, n);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_Zero_8u)->Apply(sizes);

void BM_memset_zero(benchmark::State& s) {
    const size_t n = s.range(0);
    Area a(n);
    for (auto _ : s) {
        std::memset(a.p, 0, n);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_memset_zero)->Apply(sizes);

// ---------------------------------------------------------------- value fills

void BM_Set_8u(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    Area a(n);
    for (auto _ : s) {
        ownsSet_8u(0x3C, a.p, n);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_Set_8u)->Apply(sizes);

void BM_memset_value(benchmark::State& s) {
    const size_t n = s.range(0);
    Area a(n);
    for (auto _ : s) {
        std::memset(a.p, 0x3C, n);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_memset_value)->Apply(sizes);

void BM_SetStream_32s(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    Area a(n);
    for (auto _ : s) {
        ownsSetStream_32s(0x11223344, reinterpret_cast<Zeb32s*>(a.p), n / 4);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_SetStream_32s)->Apply(sizes);

// The 32-bit fill off a 4-byte boundary goes element by element.
void BM_SetStream_32s_Misaligned(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    Area a(n + 4);
    for (auto _ : s) {
        ownsSetStream_32s(0x11223344, reinterpret_cast<Zeb32s*>(a.p + 1), n / 4);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_SetStream_32s_Misaligned)->Arg(4096)->Arg(1 << 20);

// With the cache reported at 1 MiB the areas above 2 MiB bypass the cache.
void BM_Zero_8u_Streaming(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    Area a(n);
    zebcoreSetCacheSize(0, 1 << 20);
    for (auto _ : s) {
        ownsZero_8u(a.p, n);
        benchmark::ClobberMemory();
    }
    zebcoreResetCacheSize();
    finish(s, n);
}
BENCHMARK(BM_Zero_8u_Streaming)->Arg(4 << 20)->Arg(8 << 20);

// ---------------------------------------------------------------- copies

void BM_Copy_8u(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    Area src(n), dst(n);
    for (auto _ : s) {
        ownsCopy_8u(src.p, dst.p, n);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_Copy_8u)->Apply(sizes);

void BM_memcpy(benchmark::State& s) {
    const size_t n = s.range(0);
    Area src(n), dst(n);
    for (auto _ : s) {
        std::memcpy(dst.p, src.p, n);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_memcpy)->Apply(sizes);

// The two copies on either side of the 32768-byte switch, with dst off its
// boundaries (src 4 bytes on, so the string move goes by dwords).
void BM_CopyVector_8u(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    Area src(n + 64), dst(n + 64);
    for (auto _ : s) {
        ownsCopyVector_8u(src.p + 7, dst.p + 3, n);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_CopyVector_8u)->Arg(8192)->Arg(32768)->Arg(262144);

void BM_CopyString_8u(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    Area src(n + 64), dst(n + 64);
    for (auto _ : s) {
        ownsCopyString_8u(src.p + 7, dst.p + 3, n);
        benchmark::ClobberMemory();
    }
    finish(s, n);
}
BENCHMARK(BM_CopyString_8u)->Arg(8192)->Arg(32768)->Arg(262144);

// ---------------------------------------------------------------- reverse division

void BM_DivCRev_16u_I(benchmark::State& s) {
    const int n = static_cast<int>(s.range(0));
    const int threads = static_cast<int>(s.range(1));
    zebcoreSetNumThreads(threads);
    Area table(2 * n);
    Area work(2 * n);
    Zeb16u* t = reinterpret_cast<Zeb16u*>(table.p);
    for (int i = 0; i < n; ++i) t[i] = static_cast<Zeb16u>(1 + (i * 37) % 255);
    for (auto _ : s) {
        std::memcpy(work.p, table.p, 2 * static_cast<size_t>(n));
        ownzebsDivCRev_16u_I(32768, reinterpret_cast<Zeb16u*>(work.p), n);
        benchmark::ClobberMemory();
    }
    zebcoreSetNumThreads(0);
    s.SetItemsProcessed(static_cast<int64_t>(s.iterations()) * n);
}
BENCHMARK(BM_DivCRev_16u_I)->Args({64, 1})->Args({2047, 1})->Args({65536, 1})->Args({65536, 2});

}  // namespace

BENCHMARK_MAIN();
