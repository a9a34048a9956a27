// Internal row kernels of the reversible (RCT) and irreversible (ICT)
// component transforms. Each converts one row of `w` pixels: between three
// planes (P3P3, also in place), from interleaved R, G, B to three planes
// (C3P3) or back (P3C3). The plain names are the vector forms, which finish
// a row with the scalar form; the _c twins are the scalar form throughout.
#pragma once

#include <cstdint>

namespace zeb::j2k {

#define ZEB_CT_KERNELS(name, T)                                                                         \
    void name##_P3P3(const T* s0, const T* s1, const T* s2, T* d0, T* d1, T* d2, int32_t w);           \
    void name##_P3P3_c(const T* s0, const T* s1, const T* s2, T* d0, T* d1, T* d2, int32_t w);

#define ZEB_CT_FWD_C3(name, T)                                                                          \
    void name##_C3P3(const T* src, T* d0, T* d1, T* d2, int32_t w);                                    \
    void name##_C3P3_c(const T* src, T* d0, T* d1, T* d2, int32_t w);

#define ZEB_CT_INV_C3(name, T)                                                                          \
    void name##_P3C3(const T* s0, const T* s1, const T* s2, T* dst, int32_t w);                        \
    void name##_P3C3_c(const T* s0, const T* s1, const T* s2, T* dst, int32_t w);

ZEB_CT_KERNELS(rctFwd16s, int16_t)
ZEB_CT_KERNELS(rctInv16s, int16_t)
ZEB_CT_KERNELS(ictFwd16s, int16_t)
ZEB_CT_KERNELS(ictInv16s, int16_t)
ZEB_CT_KERNELS(rctFwd32s, int32_t)
ZEB_CT_KERNELS(rctInv32s, int32_t)
ZEB_CT_KERNELS(ictFwd32s, int32_t)
ZEB_CT_KERNELS(ictInv32s, int32_t)
ZEB_CT_KERNELS(ictFwd32f, float)
ZEB_CT_KERNELS(ictInv32f, float)
ZEB_CT_FWD_C3(rctFwd16s, int16_t)
ZEB_CT_FWD_C3(rctFwd32s, int32_t)
ZEB_CT_FWD_C3(ictFwd32f, float)
ZEB_CT_INV_C3(rctInv16s, int16_t)
ZEB_CT_INV_C3(rctInv32s, int32_t)
ZEB_CT_INV_C3(ictInv32f, float)

#undef ZEB_CT_KERNELS
#undef ZEB_CT_FWD_C3
#undef ZEB_CT_INV_C3

// True when the vector path of the 16-bit rows applies: all three planes
// sit at the same offset from a 16-byte boundary.
bool planesAlike(const void* p0, const void* p1, const void* p2);

}  // namespace zeb::j2k
