// Scalar arithmetic helpers for the fixed-point forms: wrapping and
// saturating conversions and products, written without signed overflow.
#pragma once

#include <cstdint>
#include <cstring>

namespace zeb {

// Wrapping 32-bit arithmetic: two's-complement results, no undefined behaviour.
constexpr int32_t wrap32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }
constexpr int32_t add32(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b)); }
constexpr int32_t sub32(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b)); }
constexpr int32_t mul32(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b)); }
constexpr int32_t shl32(int32_t a, int s) { return static_cast<int32_t>(static_cast<uint32_t>(a) << s); }

// The low 16 bits of a value, as a signed 16-bit number (a wrapping store).
constexpr int16_t wrap16(int32_t v) { return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(v))); }
constexpr int16_t add16(int16_t a, int16_t b) { return wrap16(int32_t{a} + b); }
constexpr int16_t sub16(int16_t a, int16_t b) { return wrap16(int32_t{a} - b); }

// Saturating conversions.
constexpr int16_t sat16(int64_t v) { return static_cast<int16_t>(v < -32768 ? -32768 : (v > 32767 ? 32767 : v)); }
constexpr uint16_t satu16(int64_t v) { return static_cast<uint16_t>(v < 0 ? 0 : (v > 65535 ? 65535 : v)); }
constexpr uint8_t satu8(int64_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }
constexpr int8_t sat8(int64_t v) { return static_cast<int8_t>(v < -128 ? -128 : (v > 127 ? 127 : v)); }
constexpr int32_t sat32(int64_t v) { return static_cast<int32_t>(v < INT32_MIN ? INT32_MIN : (v > INT32_MAX ? INT32_MAX : v)); }

// Saturating 16-bit lane arithmetic, as the vector instructions do it.
constexpr int16_t adds16(int16_t a, int16_t b) { return sat16(int32_t{a} + b); }
constexpr int16_t subs16(int16_t a, int16_t b) { return sat16(int32_t{a} - b); }

// The high half of a 16x16-bit signed product (pmulhw).
constexpr int16_t hi16(int16_t a, int16_t b) { return static_cast<int16_t>((int32_t{a} * b) >> 16); }
// The rounded high half with 15 fraction bits (pmulhrsw).
constexpr int16_t mulhrs16(int16_t a, int16_t b) { return wrap16(((int32_t{a} * b >> 14) + 1) >> 1); }
// The high half of a 16x16-bit unsigned product (pmulhuw).
constexpr uint16_t hiu16(uint16_t a, uint16_t b) { return static_cast<uint16_t>((uint32_t{a} * b) >> 16); }

// Sum of two 16-bit pair products, wrapping in 32 bits (pmaddwd).
constexpr int32_t madd16(int16_t a0, int16_t b0, int16_t a1, int16_t b1) {
    return add32(int32_t{a0} * b0, int32_t{a1} * b1);
}

// Loads and stores of one element at any address. Callers may pass 16- and
// 32-bit data at odd addresses; such elements go through these.
template <class T>
inline T loadAs(const void* p) { T v; std::memcpy(&v, p, sizeof v); return v; }
template <class T>
inline void storeAs(void* p, T v) { std::memcpy(p, &v, sizeof v); }

// Bit-exact float/int reinterpretation.
inline uint32_t bits(float f) { uint32_t u; std::memcpy(&u, &f, 4); return u; }
inline float fromBits(uint32_t u) { float f; std::memcpy(&f, &u, 4); return f; }

}  // namespace zeb
