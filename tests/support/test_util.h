// Shared test helpers: guarded buffers at chosen alignments, core settings
// that restore themselves, and a seeded random source.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "zebcore.h"

namespace zebtest {

inline constexpr uint8_t kSentinel = 0xA5;

// A byte area whose payload starts at a chosen offset from a 64-byte
// boundary, with sentinel bytes before and after it to catch stray writes.
class GuardedBuffer {
public:
    GuardedBuffer(size_t bytes, size_t offset = 0, size_t guard = 64)
        : bytes_(bytes), guard_(guard), offset_(offset) {
        size_t total = ((guard * 2 + offset + bytes + 64) + 63) & ~size_t{63};
        raw_ = static_cast<uint8_t*>(std::aligned_alloc(64, total));
        total_ = total;
        std::memset(raw_, kSentinel, total_);
    }
    ~GuardedBuffer() { std::free(raw_); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    uint8_t* data() { return raw_ + guard_ + offset_; }
    template <class T> T* as() { return reinterpret_cast<T*>(data()); }
    size_t size() const { return bytes_; }

    // True when every byte outside [data, data + size) still holds the sentinel.
    bool guardsIntact() const {
        const uint8_t* start = raw_ + guard_ + offset_;
        for (const uint8_t* p = raw_; p < start; ++p) if (*p != kSentinel) return false;
        for (const uint8_t* p = start + bytes_; p < raw_ + total_; ++p) if (*p != kSentinel) return false;
        return true;
    }
    // True when the whole area, payload included, still holds the sentinel.
    bool untouched() const {
        for (size_t i = 0; i < total_; ++i) if (raw_[i] != kSentinel) return false;
        return true;
    }

private:
    uint8_t* raw_ = nullptr;
    size_t total_ = 0, bytes_, guard_, offset_;
};

// Sets the core's thread count for a scope.
class ThreadCount {
public:
    explicit ThreadCount(int n) { zebcoreSetNumThreads(n); }
    ~ThreadCount() { zebcoreSetNumThreads(0); }
};

// Sets the core's cache report for a scope.
class CacheSize {
public:
    CacheSize(int status, int size) { zebcoreSetCacheSize(status, size); }
    ~CacheSize() { zebcoreResetCacheSize(); }
};

// Makes the n-th allocation from now fail, for a scope.
class FailAllocation {
public:
    explicit FailAllocation(int n) { zebcoreFailAllocation(n); }
    ~FailAllocation() { zebcoreFailAllocation(0); }
};

inline std::mt19937& rng() {
    static std::mt19937 g(12345);
    return g;
}

template <class T>
inline void fillRandom(T* p, size_t n, int64_t lo, int64_t hi) {
    std::uniform_int_distribution<int64_t> d(lo, hi);
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<T>(d(rng()));
}

}  // namespace zebtest
