#pragma once
// Counts heap allocations in a benchmark binary, so that a path claimed to allocate nothing is
// checked, not assumed. Linking AllocCounter.cpp into a program replaces its global operator
// new and delete.

#include "Kel/Types.h"

namespace bench {
// Allocations made so far by the whole program.
U64 allocationCount();
}  // namespace bench
