// The library's constant version record.
#include "frame/impl.h"

namespace {
constexpr ZebLibraryVersion kVersion = {
    7, 1, 1, 37466, {'h', '9', '\0', '\0'}, "zebJP AVX2 (h9)", "7.1.1 (r37466)", "Sep 28 2012",
};
}  // namespace

const ZebLibraryVersion* zebimpl::zebjGetLibVersion() { return &kVersion; }
