// Placeholder: replaced by the full memory primitives.
#include "frame/memory.h"

#include <cstring>

#include "zebcore.h"

ZebStatus ownsZero_8u(Zeb8u* dst, int len) {
    if (!dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    std::memset(dst, 0, static_cast<size_t>(len));
    return zebStatusOk;
}

void* ownsMalloc(int len) { return len < 1 ? nullptr : zebMalloc(len); }

void ownsFree(void* ptr) { zebFree(ptr); }
