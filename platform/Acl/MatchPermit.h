#pragma once
// The action of an access-list rule or route-map sequence. Only 0 means deny; the evaluator
// treats every other value as permit.

#include <string>

#include "Kel/Types.h"

namespace Acl {

enum class MatchPermit : U32 {
   deny = 0,
   permit = 1,
};

// "permit" or "deny" (any non-zero value reads as permit).
inline std::string stringValue(MatchPermit m) { return m == MatchPermit::deny ? "deny" : "permit"; }

}  // namespace Acl
