#pragma once
// Counts heap allocations in a benchmark binary, so that a path claimed to allocate nothing is
// checked, not assumed. Linking AllocCounter.cpp into a program replaces its global operator
// new and delete.

#include <cstdint>

#include "Kel/Types.h"

namespace bench {
// Allocations made so far by the whole program.
U64 allocationCount();
// Bytes allocated through operator new and not yet freed (as the allocator sized the blocks).
std::int64_t heapInUse();
}  // namespace bench
