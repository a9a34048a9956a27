// Placeholder: replaced by the full memory primitives.
#include <cstring>
#include "frame/memory.h"
ZebStatus ownsCopy_8u(const Zeb8u* src, Zeb8u* dst, int len) { if (!src || !dst) return -8; if (len < 1) return -6; std::memcpy(dst, src, len); return 0; }
ZebStatus ownsSet_8u(Zeb8u v, Zeb8u* dst, int len) { if (!dst) return -8; if (len < 1) return -6; std::memset(dst, v, len); return 0; }
