// Helpers shared by the colour and sampling tests: guarded planes with a step
// larger than the row, so that stray writes into the gaps and the guards show.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "support/test_util.h"

namespace colourtest {

using zebtest::GuardedBuffer;
using zebtest::kSentinel;

// A plane of `rows` rows of `rowBytes` bytes, `step` apart, starting at a
// chosen offset from a 64-byte boundary. Sentinels fill it until written.
struct Plane {
    int rowBytes, rows, step;
    std::unique_ptr<GuardedBuffer> buf;
    Plane(int rowBytes_, int rows_, int offset = 0, int pad = 5)
        : rowBytes(rowBytes_), rows(rows_), step(rowBytes_ + pad),
          buf(std::make_unique<GuardedBuffer>(static_cast<size_t>(step) * rows_, offset)) {}
    uint8_t* data() { return buf->data(); }
    uint8_t* row(int y) { return data() + static_cast<size_t>(step) * y; }
    void randomise(int lo = 0, int hi = 255) { zebtest::fillRandom(data(), buf->size(), lo, hi); }
    void fill(uint8_t v) { std::memset(data(), v, buf->size()); }
    // Gaps between rows and the guards still hold the sentinel.
    bool onlyRowsWritten() const {
        if (!buf->guardsIntact()) return false;
        const uint8_t* d = const_cast<GuardedBuffer&>(*buf).data();
        for (int y = 0; y < rows; ++y)
            for (int x = rowBytes; x < step; ++x)
                if (d[static_cast<size_t>(y) * step + x] != kSentinel) return false;
        return true;
    }
    bool untouched() const { return buf->untouched(); }
};

inline std::vector<int> testWidths() {
    std::vector<int> w;
    for (int i = 1; i <= 40; ++i) w.push_back(i);
    for (int i : {47, 48, 49, 63, 64, 65, 97, 130}) w.push_back(i);
    return w;
}

}  // namespace colourtest
