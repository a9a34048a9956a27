// Declarations of the implementations behind the export stubs. Each family
// defines its operations as zebimpl::<exported name> with exactly the
// parameters of the export list; the stubs reach them through the slot table.
#pragma once

#include "zebjp.h"

namespace zebimpl {
#define ZEB_EXPORT(name, ret, params, args) ret name params;
#include "frame/exports.inc"
#undef ZEB_EXPORT
}  // namespace zebimpl
