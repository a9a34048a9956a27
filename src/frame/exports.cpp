// The slot table and the exported stubs. The table holds one implementation
// pointer per export, in the order of the export list; it is constant data,
// never patched. Each exported name is a stub that jumps through its own slot.
#include "frame/impl.h"

namespace {

struct SlotTable {
#define ZEB_EXPORT(name, ret, params, args) ret(*name) params;
#include "frame/exports.inc"
#undef ZEB_EXPORT
};

constexpr SlotTable kSlots = {
#define ZEB_EXPORT(name, ret, params, args) &zebimpl::name,
#include "frame/exports.inc"
#undef ZEB_EXPORT
};

// Hide the table's contents from the optimiser so that every stub really loads
// its slot and jumps, rather than being folded into a direct call.
inline const SlotTable* slots() {
    const SlotTable* t = &kSlots;
    asm("" : "+r"(t));
    return t;
}

}  // namespace

extern "C" {
#define ZEB_EXPORT(name, ret, params, args) \
    ZEBAPI ret name params { return slots()->name args; }
#include "frame/exports.inc"
#undef ZEB_EXPORT
}
