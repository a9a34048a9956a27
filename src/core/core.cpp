// Core services: allocation, thread count and cache size, read from the
// machine once and overridable through the settings in zebcore.h.
#include "zebcore.h"

#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace {

int machineThreads() {
    static const int n = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        if (sched_getaffinity(0, sizeof set, &set) == 0) {
            int c = CPU_COUNT(&set);
            if (c > 0) return c;
        }
        long c = sysconf(_SC_NPROCESSORS_ONLN);
        return c > 0 ? static_cast<int>(c) : 1;
    }();
    return n;
}

int machineLargestCache() {
    static const int size = [] {
        long best = 0;
        for (int name : {_SC_LEVEL1_DCACHE_SIZE, _SC_LEVEL2_CACHE_SIZE, _SC_LEVEL3_CACHE_SIZE,
                         _SC_LEVEL4_CACHE_SIZE}) {
            long v = sysconf(name);
            if (v > best) best = v;
        }
        if (best > 0x7fffffffL) best = 0x7fffffffL;
        return static_cast<int>(best);
    }();
    return size;
}

std::atomic<int> gThreads{0};            // 0: the machine's count
std::atomic<bool> gCacheOverridden{false};
std::atomic<int> gCacheStatus{0};
std::atomic<int> gCacheSize{0};
std::atomic<int> gFailCountdown{0};      // 0: never fail
std::atomic<int> gLive{0};

}  // namespace

extern "C" {

ZEBCOREAPI void* zebMalloc(int len) {
    if (len < 1) return nullptr;
    int c = gFailCountdown.load();
    while (c > 0) {
        if (gFailCountdown.compare_exchange_weak(c, c - 1)) {
            if (c == 1) return nullptr;
            break;
        }
    }
    // 64-byte alignment suits every vector width the library uses.
    size_t bytes = (static_cast<size_t>(len) + 63) & ~static_cast<size_t>(63);
    void* p = std::aligned_alloc(64, bytes);
    if (p) gLive.fetch_add(1);
    return p;
}

ZEBCOREAPI void zebFree(void* ptr) {
    if (!ptr) return;
    gLive.fetch_sub(1);
    std::free(ptr);
}

ZEBCOREAPI int ownGetNumThreads(void) {
    int n = gThreads.load(std::memory_order_relaxed);
    return n != 0 ? n : machineThreads();
}

ZEBCOREAPI int zebGetMaxCacheSizeB(int* pSize) {
    if (!pSize) return -8;
    if (gCacheOverridden.load()) {
        *pSize = gCacheSize.load();
        return gCacheStatus.load();
    }
    *pSize = machineLargestCache();
    return 0;
}

ZEBCOREAPI void zebcoreSetNumThreads(int n) { gThreads.store(n); }
ZEBCOREAPI int zebcoreGetMachineNumThreads(void) { return machineThreads(); }

ZEBCOREAPI void zebcoreSetCacheSize(int status, int size) {
    gCacheStatus.store(status);
    gCacheSize.store(size);
    gCacheOverridden.store(true);
}

ZEBCOREAPI void zebcoreResetCacheSize(void) { gCacheOverridden.store(false); }
ZEBCOREAPI void zebcoreFailAllocation(int n) { gFailCountdown.store(n > 0 ? n : 0); }
ZEBCOREAPI int zebcoreLiveAllocations(void) { return gLive.load(); }

}  // extern "C"
