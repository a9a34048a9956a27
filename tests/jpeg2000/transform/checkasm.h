// Checking harness for vector kernels and their scalar twins.
//
// An Area is a block of rows (a 1-D signal is a column of width 1 whose step
// is one element) that holds exactly the samples a kernel may touch. It is
// placed three ways:
//   Head  the first allowed byte follows an inaccessible page,
//   Tail  the last allowed byte precedes an inaccessible page,
//   Heap  at a chosen offset from a 64-byte boundary, between poisoned margins,
// so that a read before or after the allowed samples faults (Head, Tail) and
// a stray write shows in the margins or in the gaps between rows (all). Every
// byte that is not an allowed sample holds the poison pattern, which is a
// large value in every sample type, so a kernel that uses one shows it.
//
// runTwins() runs a case twice, once with the vector kernel and once with
// its scalar twin, from the same seed, and compares every byte of the areas
// the case reports, margins and gaps included.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace zebtest::checkasm {

inline constexpr uint8_t kPoison = 0x7B;

enum class Place { Head, Tail, Heap };

inline const char* placeName(Place p) { return p == Place::Head ? "head" : p == Place::Tail ? "tail" : "heap"; }

template <class T>
class Area {
public:
    // Rows firstRow..lastRow, `width` samples each, `step` bytes apart
    // (0: tightly packed). `offset` is the byte offset of the first allowed
    // byte from a 64-byte boundary, for Heap placement.
    Area(int firstRow, int lastRow, int width, Place place, int offset = 0, int step = 0)
        : first_(firstRow), last_(lastRow), width_(width),
          step_(step ? step : width * static_cast<int>(sizeof(T))), place_(place) {
        bytes_ = static_cast<size_t>(last_ - first_) * step_ + static_cast<size_t>(width_) * sizeof(T);
        if (place == Place::Heap) {
            total_ = ((kMargin * 2 + offset + bytes_) + 63) & ~size_t{63};
            mem_ = static_cast<uint8_t*>(std::aligned_alloc(64, total_));
            std::memset(mem_, kPoison, total_);
            data_ = mem_ + kMargin + offset;
        } else {
            const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
            const size_t pages = (bytes_ + page - 1) / page;
            total_ = (pages + 2) * page;
            void* m = mmap(nullptr, total_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (m == MAP_FAILED) std::abort();
            mem_ = static_cast<uint8_t*>(m);
            mprotect(mem_, page, PROT_NONE);
            mprotect(mem_ + (pages + 1) * page, page, PROT_NONE);
            std::memset(mem_ + page, kPoison, pages * page);
            data_ = place == Place::Head ? mem_ + page : mem_ + (pages + 1) * page - bytes_;
            page_ = page;
        }
    }
    ~Area() {
        if (place_ == Place::Heap) std::free(mem_);
        else munmap(mem_, total_);
    }
    Area(const Area&) = delete;
    Area& operator=(const Area&) = delete;

    // Sample 0 of row r (row 0 by default).
    T* row(int r = 0) { return reinterpret_cast<T*>(data_ + static_cast<intptr_t>(r - first_) * step_); }
    T* base() { return row(0); }
    int step() const { return step_; }
    T& at(int r, int c) { return row(r)[c]; }

    // Fills every allowed sample with fn(row, column).
    template <class Fn>
    void fill(Fn fn) {
        for (int r = first_; r <= last_; ++r)
            for (int c = 0; c < width_; ++c) row(r)[c] = static_cast<T>(fn(r, c));
    }
    void fillRandom(std::mt19937& g, int64_t lo, int64_t hi) {
        std::uniform_int_distribution<int64_t> d(lo, hi);
        fill([&](int, int) { return d(g); });
    }

    // Appends every byte of the area that a kernel could reach or stray into:
    // allowed samples, gaps between rows and, on the heap, the margins.
    void snapshot(std::vector<uint8_t>& out) const {
        const uint8_t* b = place_ == Place::Heap ? mem_ : data_;
        const uint8_t* e = place_ == Place::Heap ? mem_ + total_ : data_ + bytes_;
        out.insert(out.end(), b, e);
    }
    // True when every byte outside the allowed samples still holds the poison.
    bool outsideIntact() const {
        const uint8_t* lo = place_ == Place::Heap ? mem_ : mem_ + page_;
        const uint8_t* hi = place_ == Place::Heap ? mem_ + total_ : mem_ + total_ - page_;
        const size_t rowBytes = static_cast<size_t>(width_) * sizeof(T);
        for (const uint8_t* p = lo; p < hi; ++p) {
            if (p >= data_ && p < data_ + bytes_) {
                const size_t off = static_cast<size_t>(p - data_) % static_cast<size_t>(step_);
                if (off < rowBytes) continue;
            }
            if (*p != kPoison) return false;
        }
        return true;
    }

private:
    static constexpr size_t kMargin = 128;
    int first_, last_, width_, step_;
    Place place_;
    size_t bytes_ = 0, total_ = 0, page_ = 0;
    uint8_t* mem_ = nullptr;
    uint8_t* data_ = nullptr;
};

// The placements every case runs in: both page-exact ends, then the heap at
// every element-aligned offset within 32 bytes.
template <class T>
inline std::vector<std::pair<Place, int>> placements() {
    std::vector<std::pair<Place, int>> v{{Place::Head, 0}, {Place::Tail, 0}};
    for (int o = 0; o < 32; o += static_cast<int>(sizeof(T))) v.push_back({Place::Heap, o});
    return v;
}

// Runs build(vector, seed) for both forms and compares the snapshots that it
// returns. Returns false (after a test failure naming `what`) on a mismatch.
template <class Build>
inline bool runTwins(const std::string& what, uint32_t seed, Build build) {
    const std::vector<uint8_t> v = build(true, seed);
    const std::vector<uint8_t> s = build(false, seed);
    if (v.size() != s.size()) {
        ADD_FAILURE() << what << ": snapshot sizes differ";
        return false;
    }
    for (size_t i = 0; i < v.size(); ++i)
        if (v[i] != s[i]) {
            ADD_FAILURE() << what << ": vector and scalar differ at snapshot byte " << i << " ("
                          << int(v[i]) << " vs " << int(s[i]) << ")";
            return false;
        }
    return true;
}

}  // namespace zebtest::checkasm
