// The row-parallel pattern shared by every threaded operation.
#pragma once

#include <omp.h>

#include <cstdint>
#include <type_traits>

#include "zebcore.h"

namespace zeb {

// Regions of at most this many pixels run on the calling thread.
inline constexpr int32_t kParallelThreshold = 8192;

// Runs row(y) for y = 0 .. height-1. The thread count is asked of the core on
// every call. Up to kParallelThreshold pixels (width * height, a wrapping
// 32-bit product) the rows run in order on the calling thread; above it an
// OpenMP region of that many threads shares the rows with a static schedule,
// so each thread takes one contiguous range. A thread count of 1 or less still
// opens a region, of one thread.
template <class Row>
inline void parallel_rows(int32_t width, int32_t height, Row&& row) {
    const int n = ownGetNumThreads();
    const int32_t pixels = static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
    if (pixels <= kParallelThreshold) {
        for (int32_t y = 0; y < height; ++y) row(y);
        return;
    }
    const int threads = n > 1 ? n : 1;
#pragma omp parallel num_threads(threads)
    {
#pragma omp for schedule(static)
        for (int32_t y = 0; y < height; ++y) row(y);
    }
}

// Byte-offset helper for row pointers.
template <class T>
inline T* rowPtr(T* base, int32_t step, int32_t y) {
    using B = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
    return reinterpret_cast<T*>(reinterpret_cast<B*>(base) + static_cast<intptr_t>(step) * y);
}

}  // namespace zeb
