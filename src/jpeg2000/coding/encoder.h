// Internal interface of the code-block encoder: the state mark, the
// distortion tables, the coder start values, and the modelling and storing
// kernels behind the exports.
#pragma once

#include <array>
#include <cstdint>

#include "jpeg2000/coding/t1_common.h"
#include "zebjp.h"

namespace zeb::j2k {

inline constexpr uint32_t kEncodeMark = 0x4C4D5344u;

// Symbol store per stripe column and pass table room.
inline constexpr int kSymbolsPerStripeColumn = 1090;

// Distortion reductions times 8192, in units of the squared step of the
// plane being coded. Significance tables are indexed by the six magnitude
// bits below the plane, refinement tables by those six with the plane's bit
// on top.
namespace detail {
constexpr std::array<int32_t, 64> makeDistSignificance() {
    std::array<int32_t, 64> t{};
    for (int i = 0; i < 64; ++i) t[i] = 6144 + 384 * i;
    return t;
}
constexpr std::array<int32_t, 64> makeDistSignificanceExact() {
    std::array<int32_t, 64> t{};
    for (int i = 0; i < 64; ++i) t[i] = 8192 + 256 * i + 2 * i * i;
    return t;
}
constexpr std::array<int32_t, 128> makeDistRefinement() {
    std::array<int32_t, 128> t{};
    for (int i = 0; i < 128; ++i) t[i] = i < 64 ? 6144 - 128 * i : 128 * i - 10240;
    return t;
}
constexpr std::array<int32_t, 128> makeDistRefinementExact() {
    std::array<int32_t, 128> t{};
    for (int i = 0; i < 128; ++i) t[i] = (64 - i) * (64 - i) * 2;
    return t;
}
}  // namespace detail

inline constexpr auto kDistSignificance = detail::makeDistSignificance();
inline constexpr auto kDistSignificanceExact = detail::makeDistSignificanceExact();
inline constexpr auto kDistRefinement = detail::makeDistRefinement();
inline constexpr auto kDistRefinementExact = detail::makeDistRefinementExact();

// Contexts to their initial states.
void resetContexts(ZebJ2kCoderState* c);
// MQ registers, queue and first-byte flag to their start values.
void restartMq(ZebJ2kCoderState* c);

// Models one block into the state (arguments already checked). Returns S.
// vectorPaths false takes the per-sample paths only, so that tests can check
// the eight-column forms against them.
int modelCodeBlock(const Zeb32s* src, int srcStep, int width, int height, ZebJ2kEncodeState* st, int subband,
                   int magnitudeBits, int flushMethod, int codeStyle, bool vectorPaths = true);

// Number of terminated segments of the loaded block.
int segmentCountOf(const ZebJ2kCoderState* c);

// One store call: fills up to *length bytes of dst; arguments checked.
void storeBits(ZebJ2kEncodeState* st, uint8_t* dst, int* length, int* more);

}  // namespace zeb::j2k
