// TIFF rows: PackBits packets and their run policy, buffer limits and
// positions, split and join of 16-bit samples.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "support/test_util.h"
#include "zebjp.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes pack(const Bytes& row) {
    Bytes out(row.size() * 2 + 8, 0xEE);
    int pos = 0;
    EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(row.data(), int(row.size()), out.data(), &pos, int(out.size())), 0);
    out.resize(pos);
    return out;
}

// A plain decoder of the packet format, independent of the library.
Bytes unpackRef(const Bytes& packed) {
    Bytes out;
    for (size_t i = 0; i < packed.size();) {
        int n = static_cast<int8_t>(packed[i++]);
        if (n >= 0) { out.insert(out.end(), packed.begin() + i, packed.begin() + i + n + 1); i += n + 1; }
        else if (n != -128) { out.insert(out.end(), 1 - n, packed[i]); i += 1; }
    }
    return out;
}

Bytes seq(int n, int start = 0) {
    Bytes b(n);
    for (int i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(start + i);
    return b;
}

Bytes cat(Bytes a, const Bytes& b) { a.insert(a.end(), b.begin(), b.end()); return a; }

TEST(PackBitsChecks, OrderAndStatuses) {
    uint8_t s[4] = {1, 2, 3, 4}, d[8];
    int pos = 0;
    EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(nullptr, 0, nullptr, nullptr, 0), zebStatusNullPointer);
    EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(s, 0, d, nullptr, 0), zebStatusNullPointer);
    EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(s, 0, nullptr, &pos, 0), zebStatusNullPointer);
    EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(s, 0, d, &pos, 8), zebStatusBadSize);
    EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(s, 4, d, &pos, 0), zebStatusBadSize);
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(nullptr, &pos, 0, d, 0), zebStatusNullPointer);
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(s, nullptr, 4, d, 4), zebStatusNullPointer);
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(s, &pos, 4, nullptr, 4), zebStatusNullPointer);
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(s, &pos, 0, d, 4), zebStatusBadSize);
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(s, &pos, 4, d, -1), zebStatusBadSize);
    EXPECT_EQ(pos, 0);

    uint16_t w[2] = {};
    uint8_t* planes[2] = {d, d + 4};
    const uint8_t* cplanes[2] = {d, d + 4};
    EXPECT_EQ(zebiSplitRow_TIFF_16u8u_C1(nullptr, nullptr, 0), zebStatusNullPointer);
    EXPECT_EQ(zebiSplitRow_TIFF_16u8u_C1(w, nullptr, 0), zebStatusNullPointer);
    EXPECT_EQ(zebiSplitRow_TIFF_16u8u_C1(w, planes, 0), zebStatusBadStep);
    EXPECT_EQ(zebiJoinRow_TIFF_8u16u_C1(nullptr, w, 0), zebStatusNullPointer);
    EXPECT_EQ(zebiJoinRow_TIFF_8u16u_C1(cplanes, nullptr, 0), zebStatusNullPointer);
    EXPECT_EQ(zebiJoinRow_TIFF_8u16u_C1(cplanes, w, 0), zebStatusBadStep);
}

TEST(PackBitsPolicy, WorkedRows) {
    EXPECT_EQ(pack({1, 1}), (Bytes{255, 1}));
    EXPECT_EQ(pack({1}), (Bytes{0, 1}));
    EXPECT_EQ(pack({1, 2}), (Bytes{1, 1, 2}));
    EXPECT_EQ(pack({1, 2, 2, 3}), (Bytes{3, 1, 2, 2, 3}));
    EXPECT_EQ(pack({1, 2, 2, 2}), (Bytes{0, 1, 254, 2}));
    EXPECT_EQ(pack({1, 2, 2}), (Bytes{0, 1, 255, 2}));
    EXPECT_EQ(pack(Bytes(129, 7)), (Bytes{129, 7, 0, 7}));
    EXPECT_EQ(pack(Bytes(130, 7)), (Bytes{129, 7, 255, 7}));
    EXPECT_EQ(pack(Bytes(128, 9)), (Bytes{129, 9}));
}

TEST(PackBitsPolicy, LiteralLimits) {
    // 129 different bytes: a literal of 128, then one of 1.
    Bytes r = seq(129);
    Bytes want = cat(cat(Bytes{127}, seq(128)), Bytes{0, 128});
    EXPECT_EQ(pack(r), want);
    // 127 different bytes then three equal: the first of the three is the
    // literal's 128th byte, the other two a repeat of 2.
    r = cat(seq(127, 10), Bytes{3, 3, 3});
    want = cat(cat(Bytes{127}, cat(seq(127, 10), Bytes{3})), Bytes{255, 3});
    EXPECT_EQ(pack(r), want);
    // With 126 bytes in the literal, an equal pair ends it even when a
    // different byte follows.
    r = cat(seq(126, 10), Bytes{3, 3, 4});
    want = cat(cat(Bytes{125}, seq(126, 10)), Bytes{255, 3, 0, 4});
    EXPECT_EQ(pack(r), want);
    // With 125, the pair stays in the literal.
    r = cat(seq(125, 10), Bytes{3, 3, 4});
    want = cat(Bytes{127}, r);
    EXPECT_EQ(pack(r), want);
}

// A plain model of the run policy, position by position.
Bytes packModel(const Bytes& s) {
    Bytes out;
    const int n = int(s.size());
    for (int i = 0; i < n;) {
        if (i + 1 < n && s[i] == s[i + 1]) {
            int r = 1;
            while (r < 128 && i + r < n && s[i + r] == s[i]) ++r;
            out.push_back(uint8_t(1 - r));
            out.push_back(s[i]);
            i += r;
            continue;
        }
        int L = 1, j = i + 1;
        while (j < n) {
            if (L == 127) { ++L; ++j; break; }
            bool pair = j + 1 < n && s[j] == s[j + 1];
            if (pair && (L == 126 || j + 1 == n - 1 || (j + 2 < n && s[j + 2] == s[j + 1]))) break;
            ++L;
            ++j;
        }
        out.push_back(uint8_t(L - 1));
        out.insert(out.end(), s.begin() + i, s.begin() + i + L);
        i += L;
    }
    return out;
}

TEST(PackBitsPolicy, RandomRowsMatchModelAndRoundTrip) {
    for (int trial = 0; trial < 3000; ++trial) {
        int n = 1 + int(zebtest::rng()() % 700);
        int alphabet = 1 + int(zebtest::rng()() % 4) * (trial % 3 == 0 ? 60 : 1);
        Bytes row(n);
        zebtest::fillRandom(row.data(), n, 0, alphabet);
        // Long runs and long literals in some rows.
        if (trial % 5 == 0) std::fill(row.begin() + n / 3, row.begin() + n / 2, 0x42);
        Bytes p = pack(row);
        ASSERT_EQ(p, packModel(row)) << "trial " << trial;
        ASSERT_EQ(unpackRef(p), row);
        Bytes back(n);
        int pos = 0;
        ASSERT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(p.data(), &pos, int(p.size()), back.data(), n), 0);
        ASSERT_EQ(pos, int(p.size()));
        ASSERT_EQ(back, row);
    }
}

TEST(PackBitsLimits, RoomForPackets) {
    uint8_t row[2] = {1, 1};
    uint8_t out[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    int pos = 1;
    EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(row, 2, out, &pos, 1), zebStatusBufferLimit);
    EXPECT_EQ(pos, 1);
    // Every room short of the full encoding fails with the position behind the
    // last complete packet, and never writes past the room.
    Bytes r = cat(cat(seq(40), Bytes(60, 5)), seq(30, 100));
    Bytes full = pack(r);
    for (int room = 1; room < int(full.size()); ++room) {
        zebtest::GuardedBuffer buf(room + 3, 1);
        int p = 3;
        EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(r.data(), int(r.size()), buf.data(), &p, room), zebStatusBufferLimit);
        ASSERT_TRUE(buf.guardsIntact()) << room;
        const int done = p - 3;
        ASSERT_TRUE(done == 0 || done == 41 || done == 43) << room << " " << done;
        ASSERT_EQ(std::memcmp(buf.data() + 3, full.data(), done), 0);
    }
    int p = 0;
    Bytes exact(full.size());
    EXPECT_EQ(zebiPackBitsRow_TIFF_8u_C1(r.data(), int(r.size()), exact.data(), &p, int(full.size())), 0);
    EXPECT_EQ(exact, full);
}

TEST(UnpackBits, RowsInSequenceAndNoOp) {
    // Two rows back to back, with a no-op header between them.
    Bytes a = {1, 2, 3, 3, 3, 3, 9}, b = {7, 7, 7, 8};
    Bytes data = cat(cat(pack(a), Bytes{0x80}), pack(b));
    int pos = 0;
    Bytes out(a.size());
    ASSERT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(data.data(), &pos, int(data.size()), out.data(), int(a.size())), 0);
    EXPECT_EQ(out, a);
    EXPECT_EQ(pos, int(pack(a).size()));
    out.assign(b.size(), 0);
    ASSERT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(data.data(), &pos, int(data.size()), out.data(), int(b.size())), 0);
    EXPECT_EQ(out, b);
    EXPECT_EQ(pos, int(data.size()));
}

TEST(UnpackBits, FailuresAndPositions) {
    zebtest::GuardedBuffer dst(8);
    int pos;
    // Data ends at a packet boundary.
    Bytes d = {255, 1};
    pos = 0;
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(d.data(), &pos, 2, dst.data(), 3), zebStatusBufferLimit);
    EXPECT_EQ(pos, 2);
    // A repeat header in the last byte of the data.
    d = {0, 5, 254};
    pos = 0;
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(d.data(), &pos, 3, dst.data(), 8), zebStatusBufferLimit);
    EXPECT_EQ(pos, 3);
    EXPECT_EQ(dst.data()[0], 5);  // the complete packet before it stands
    // A literal promising more than the data holds: nothing copied.
    zebtest::GuardedBuffer dst2(8);
    d = {4, 1, 2, 3};
    pos = 0;
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(d.data(), &pos, 4, dst2.data(), 8), zebStatusBufferLimit);
    EXPECT_EQ(pos, 1);
    EXPECT_TRUE(dst2.untouched());
    // A packet that would overflow dst is not partly expanded.
    d = {0, 9, 253, 4};
    pos = 0;
    zebtest::GuardedBuffer dst3(3);
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(d.data(), &pos, 4, dst3.data(), 3), zebStatusBufferLimit);
    EXPECT_EQ(pos, 3);
    EXPECT_EQ(dst3.data()[0], 9);
    EXPECT_EQ(dst3.data()[1], zebtest::kSentinel);
    EXPECT_TRUE(dst3.guardsIntact());
    // Starting at or beyond the end.
    pos = 9;
    EXPECT_EQ(zebiUnpackBitsRow_TIFF_8u_C1(d.data(), &pos, 4, dst3.data(), 3), zebStatusBufferLimit);
    EXPECT_EQ(pos, 9);
}

TEST(UnpackBits, RandomStreamsStayInBounds) {
    for (int trial = 0; trial < 2000; ++trial) {
        int n = 1 + int(zebtest::rng()() % 64), m = 1 + int(zebtest::rng()() % 200);
        zebtest::GuardedBuffer src(n), dst(m);
        zebtest::fillRandom(src.data(), n, 0, 255);
        int pos = int(zebtest::rng()() % n);
        ZebStatus st = zebiUnpackBitsRow_TIFF_8u_C1(src.data(), &pos, n, dst.data(), m);
        ASSERT_TRUE(st == 0 || st == zebStatusBufferLimit);
        ASSERT_TRUE(dst.guardsIntact());
        ASSERT_LE(pos, n);
    }
}

TEST(SplitJoin, OddLengthsAndAlignments) {
    for (int len : {1, 2, 3, 15, 16, 17, 33, 100}) {
        for (int off = 0; off < 2; ++off) {
            zebtest::GuardedBuffer src(2 * len, off), hi(len, off), lo(len, 1 - off), back(2 * len, off);
            zebtest::fillRandom(src.data(), 2 * len, 0, 255);
            uint8_t* planes[2] = {hi.data(), lo.data()};
            ASSERT_EQ(zebiSplitRow_TIFF_16u8u_C1(src.as<uint16_t>(), planes, len), 0);
            for (int i = 0; i < len; ++i) {
                ASSERT_EQ(hi.data()[i], src.data()[2 * i + 1]);
                ASSERT_EQ(lo.data()[i], src.data()[2 * i]);
            }
            const uint8_t* cplanes[2] = {hi.data(), lo.data()};
            ASSERT_EQ(zebiJoinRow_TIFF_8u16u_C1(cplanes, back.as<uint16_t>(), len), 0);
            ASSERT_EQ(std::memcmp(back.data(), src.data(), 2 * len), 0);
            ASSERT_TRUE(hi.guardsIntact() && lo.guardsIntact() && back.guardsIntact());
        }
    }
}

}  // namespace
