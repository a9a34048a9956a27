// Shared pieces of the JPEG 2000 code-block coders: the neighbour-flag word
// and its marks, the flag-row geometry, the context labels with their initial
// MQ states, the MQ probability table and the zero-coding, sign and
// refinement context tables. Encoder and decoders use exactly these.
#pragma once

#include <array>
#include <cstdint>

namespace zeb::j2k {

// ---------------------------------------------------------------- flag word
// One 32-bit word holds two vertically adjacent samples of a column: the low
// half-word the sample in an even row, the high half-word the one below it.
// Bits of each half-word:
inline constexpr uint32_t kFlagSigSE = 0x0001;     // south-east neighbour significant
inline constexpr uint32_t kFlagSigSW = 0x0002;     // south-west
inline constexpr uint32_t kFlagSigNE = 0x0004;     // north-east
inline constexpr uint32_t kFlagSigNW = 0x0008;     // north-west
inline constexpr uint32_t kFlagSigS = 0x0010;      // south
inline constexpr uint32_t kFlagSigN = 0x0020;      // north
inline constexpr uint32_t kFlagSigE = 0x0040;      // east
inline constexpr uint32_t kFlagSigW = 0x0080;      // west
inline constexpr uint32_t kFlagRefined = 0x0100;   // refined by the MQ coder
inline constexpr uint32_t kFlagNegS = 0x0200;      // south neighbour negative
inline constexpr uint32_t kFlagNegN = 0x0400;      // north neighbour negative
inline constexpr uint32_t kFlagNegE = 0x0800;      // east neighbour negative
inline constexpr uint32_t kFlagNegW = 0x1000;      // west neighbour negative
inline constexpr uint32_t kFlagNeighbour = 0x2000; // some neighbour significant
inline constexpr uint32_t kFlagVisited = 0x4000;   // coded in this plane's significance pass
inline constexpr uint32_t kFlagSig = 0x8000;       // this sample is significant

// The same bits for both halves of a word.
inline constexpr uint32_t kPairSig = 0x80008000u;
inline constexpr uint32_t kPairNeighbour = 0x20002000u;
inline constexpr uint32_t kPairVisited = 0x40004000u;

// Marks ORed into the words around a sample that becomes significant. Index 0
// positive, 1 negative.
struct EvenMarks {  // sample in an even row (low half-word)
    uint32_t own[2] = {0x2020C000u, 0x2420C000u};
    uint32_t right[2] = {0x20082080u, 0x20083080u};
    uint32_t left[2] = {0x20042040u, 0x20042840u};
    uint32_t above[2] = {0x20100000u, 0x22100000u};
    uint32_t aboveLeft = 0x20010000u;
    uint32_t aboveRight = 0x20020000u;
};
struct OddMarks {  // sample in an odd row (high half-word)
    uint32_t own[2] = {0xC0002010u, 0xC0002210u};
    uint32_t below[2] = {0x2020u, 0x2420u};
    uint32_t right[2] = {0x20802002u, 0x30802002u};
    uint32_t left[2] = {0x20402001u, 0x28402001u};
    uint32_t belowLeft = 0x2004u;
    uint32_t belowRight = 0x2008u;
};
inline constexpr EvenMarks kEvenMarks{};
inline constexpr OddMarks kOddMarks{};

// Marks of a sample in an even row; w is its word, stride the row stride in
// words. withAbove is false for row 0 of a stripe under causal contexts.
inline void markEven(uint32_t* w, int stride, uint32_t negative, bool withAbove) {
    w[0] |= kEvenMarks.own[negative];
    w[1] |= kEvenMarks.right[negative];
    w[-1] |= kEvenMarks.left[negative];
    if (withAbove) {
        w[-stride] |= kEvenMarks.above[negative];
        w[-stride - 1] |= kEvenMarks.aboveLeft;
        w[-stride + 1] |= kEvenMarks.aboveRight;
    }
}

// Marks of a sample in an odd row.
inline void markOdd(uint32_t* w, int stride, uint32_t negative) {
    w[0] |= kOddMarks.own[negative];
    w[1] |= kOddMarks.right[negative];
    w[-1] |= kOddMarks.left[negative];
    w[stride] |= kOddMarks.below[negative];
    w[stride - 1] |= kOddMarks.belowLeft;
    w[stride + 1] |= kOddMarks.belowRight;
}

// ---------------------------------------------------------------- flag rows
// (h + 1) / 2 + 2 rows; row 0 and word 0 of each row are guards, so the word
// of column x, rows 2k and 2k + 1 is word x + 1 of row k + 1. The stride is
// 4w + 8 bytes rounded up to a multiple of 32.
inline constexpr int flagStrideBytes(int width) { return (4 * width + 8 + 31) & ~31; }
inline constexpr int flagRowCount(int height) { return (height + 1) / 2 + 2; }

// ---------------------------------------------------------------- code style
inline constexpr int kStyleCausal = 1;
inline constexpr int kStyleBypass = 2;
inline constexpr int kStyleTermAll = 4;
inline constexpr int kStyleResetContexts = 8;
inline constexpr int kStyleSegmentationSymbols = 16;
inline constexpr int kStyleExactLastPlane = 32;

inline constexpr int kSubbandHL = 2;
inline constexpr int kSubbandHH = 3;

// ---------------------------------------------------------------- contexts
inline constexpr int kContextCount = 19;
inline constexpr int kLabelUniform = 0;
inline constexpr int kLabelRunLength = 1;
inline constexpr int kLabelZeroFirst = 2;     // 2 to 10
inline constexpr int kLabelSignFirst = 11;    // 11 to 15
inline constexpr int kLabelRefineFirst = 16;  // 16 to 18

inline constexpr std::array<int32_t, kContextCount> kInitialState = {46, 3, 4, 0, 0, 0, 0, 0, 0, 0,
                                                                     0,  0, 0, 0, 0, 0, 0, 0, 0};

// ---------------------------------------------------------------- MQ table
struct MqRow {
    uint32_t qe;
    uint8_t nextMps, nextLps, swap;
};
inline constexpr std::array<MqRow, 47> kMqTable = {{
    {0x5601, 1, 1, 1},   {0x3401, 2, 6, 0},   {0x1801, 3, 9, 0},   {0x0AC1, 4, 12, 0},
    {0x0521, 5, 29, 0},  {0x0221, 38, 33, 0}, {0x5601, 7, 6, 1},   {0x5401, 8, 14, 0},
    {0x4801, 9, 14, 0},  {0x3801, 10, 14, 0}, {0x3001, 11, 17, 0}, {0x2401, 12, 18, 0},
    {0x1C01, 13, 20, 0}, {0x1601, 29, 21, 0}, {0x5601, 15, 14, 1}, {0x5401, 16, 14, 0},
    {0x5101, 17, 15, 0}, {0x4801, 18, 16, 0}, {0x3801, 19, 17, 0}, {0x3401, 20, 18, 0},
    {0x3001, 21, 19, 0}, {0x2801, 22, 19, 0}, {0x2401, 23, 20, 0}, {0x2201, 24, 21, 0},
    {0x1C01, 25, 22, 0}, {0x1801, 26, 23, 0}, {0x1601, 27, 24, 0}, {0x1401, 28, 25, 0},
    {0x1201, 29, 26, 0}, {0x1101, 30, 27, 0}, {0x0AC1, 31, 28, 0}, {0x09C1, 32, 29, 0},
    {0x08A1, 33, 30, 0}, {0x0521, 34, 31, 0}, {0x0441, 35, 32, 0}, {0x02A1, 36, 33, 0},
    {0x0221, 37, 34, 0}, {0x0141, 38, 35, 0}, {0x0111, 39, 36, 0}, {0x0085, 40, 37, 0},
    {0x0049, 41, 38, 0}, {0x0025, 42, 39, 0}, {0x0015, 43, 40, 0}, {0x0009, 44, 41, 0},
    {0x0005, 45, 42, 0}, {0x0001, 45, 43, 0}, {0x5601, 46, 46, 0},
}};

// ---------------------------------------------------------------- context tables
namespace detail {

// Zero-coding label from the low 8 bits of a half-word. orientation 0: LL
// and LH, 1: HL (H and V swapped), 2: HH.
constexpr uint8_t zeroCodingLabel(int orientation, int bits) {
    const int h = ((bits & kFlagSigE) ? 1 : 0) + ((bits & kFlagSigW) ? 1 : 0);
    const int v = ((bits & kFlagSigN) ? 1 : 0) + ((bits & kFlagSigS) ? 1 : 0);
    const int d = ((bits & kFlagSigSE) ? 1 : 0) + ((bits & kFlagSigSW) ? 1 : 0) +
                  ((bits & kFlagSigNE) ? 1 : 0) + ((bits & kFlagSigNW) ? 1 : 0);
    if (orientation == 2) {
        const int hv = h + v;
        if (d >= 3) return 10;
        if (d == 2) return hv >= 1 ? 9 : 8;
        if (d == 1) return hv >= 2 ? 7 : (hv == 1 ? 6 : 5);
        return hv >= 2 ? 4 : (hv == 1 ? 3 : 2);
    }
    const int a = orientation == 1 ? v : h;  // the direction that weighs most
    const int b = orientation == 1 ? h : v;
    if (a == 2) return 10;
    if (a == 1) return b >= 1 ? 9 : (d >= 1 ? 8 : 7);
    if (b == 2) return 6;
    if (b == 1) return 5;
    return d >= 2 ? 4 : (d == 1 ? 3 : 2);
}

constexpr std::array<std::array<uint8_t, 256>, 3> makeZeroCoding() {
    std::array<std::array<uint8_t, 256>, 3> t{};
    for (int o = 0; o < 3; ++o)
        for (int i = 0; i < 256; ++i) t[o][i] = zeroCodingLabel(o, i);
    return t;
}

// Sign entry for bits 4 to 12 of a half-word: label in the low 4 bits, the
// inversion in bit 31.
constexpr uint32_t signEntry(int index) {
    const int bits = index << 4;
    auto contribution = [bits](uint32_t sig, uint32_t neg) { return (bits & sig) ? ((bits & neg) ? -1 : 1) : 0; };
    int h = contribution(kFlagSigE, kFlagNegE) + contribution(kFlagSigW, kFlagNegW);
    int v = contribution(kFlagSigN, kFlagNegN) + contribution(kFlagSigS, kFlagNegS);
    h = h < -1 ? -1 : (h > 1 ? 1 : h);
    v = v < -1 ? -1 : (v > 1 ? 1 : v);
    uint32_t label = 0, invert = 0;
    if (h == 0) {
        label = v == 0 ? 9 : 10;
        invert = v < 0 ? 1 : 0;
    } else {
        label = 12 + h * v;  // same signs 13, zero 12, opposite 11
        invert = h < 0 ? 1 : 0;
    }
    return (label + 2) | (invert << 31);
}

constexpr std::array<uint32_t, 512> makeSign() {
    std::array<uint32_t, 512> t{};
    for (int i = 0; i < 512; ++i) t[i] = signEntry(i);
    return t;
}

constexpr std::array<uint8_t, 512> makeRefinement() {
    std::array<uint8_t, 512> t{};
    for (int i = 0; i < 512; ++i) t[i] = i == 0 ? 16 : (i < 256 ? 17 : 18);
    return t;
}

}  // namespace detail

inline constexpr auto kZeroCodingTables = detail::makeZeroCoding();
inline constexpr auto kSignTable = detail::makeSign();
inline constexpr auto kRefinementTable = detail::makeRefinement();

// The zero-coding table of a subband argument.
inline const uint8_t* zeroCodingTable(int subband) {
    return kZeroCodingTables[subband == kSubbandHL ? 1 : (subband == kSubbandHH ? 2 : 0)].data();
}

inline uint32_t zeroCodingLabelOf(const uint8_t* table, uint32_t half) { return table[half & 0xFF]; }
inline uint32_t signEntryOf(uint32_t half) { return kSignTable[(half >> 4) & 0x1FF]; }
inline uint32_t refinementLabelOf(uint32_t half) { return kRefinementTable[half & 0x1FF]; }

}  // namespace zeb::j2k

namespace zeb::j2k {

// ---------------------------------------------------------------- packed MQ states
// A context's state in one byte, probability row * 2 + more probable symbol,
// with both successors precomputed in the same form: the switch of the LPS
// row is folded into its successor.
struct MqPackedRow {
    uint32_t qe;
    uint8_t nextMps, nextLps;
};
namespace detail {
constexpr std::array<MqPackedRow, 94> makePackedRows() {
    std::array<MqPackedRow, 94> t{};
    for (int i = 0; i < 47; ++i)
        for (int mps = 0; mps < 2; ++mps) {
            const MqRow& r = kMqTable[i];
            t[2 * i + mps] = {r.qe, static_cast<uint8_t>(2 * r.nextMps + mps),
                              static_cast<uint8_t>(2 * r.nextLps + (r.swap ? 1 - mps : mps))};
        }
    return t;
}
}  // namespace detail
inline constexpr auto kMqPackedRows = detail::makePackedRows();

}  // namespace zeb::j2k
