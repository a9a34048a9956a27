// Placeholder: replaced by the full memory primitives.
#include <cstring>

#include "frame/memory.h"
#include "zebcore.h"

ZebStatus ownsZero_8u(Zeb8u* dst, int len) {
    if (dst == nullptr) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    std::memset(dst, 0, static_cast<size_t>(len));
    return zebStatusOk;
}
Zeb8u* ownsZeroStream_8u(Zeb8u* dst, int len) {
    std::memset(dst, 0, static_cast<size_t>(len));
    return dst;
}
void ownsSetStream_32s(Zeb32s value, Zeb32s* dst, int len) {
    for (int i = 0; i < len; ++i) std::memcpy(reinterpret_cast<Zeb8u*>(dst) + 4 * i, &value, 4);
}
Zeb8u* ownsCopyFast_8u(const Zeb8u* src, Zeb8u* dst, int len) {
    std::memcpy(dst, src, static_cast<size_t>(len));
    return dst;
}
void* ownsMalloc(int len) { return len < 1 ? nullptr : zebMalloc(len); }
void ownsFree(void* ptr) { zebFree(ptr); }
