#pragma once
// The base of the library's reactor machines: a Kel::Machine (handleInitialized runs once after
// construction, through Kel::create) that can describe itself in traces and dumps.

#include "Kel/Machine.h"
#include "Orb/Dump.h"

namespace Orb {

class BaseOutputSm : public Kel::Machine {
public:
   // Diagnostic dump of the machine's state; the default writes its printed form.
   virtual void dumpState(DumpContext& ctx, U32 indent) const;
};

}  // namespace Orb
