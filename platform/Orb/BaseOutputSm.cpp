#include "Orb/BaseOutputSm.h"

namespace Orb {

void BaseOutputSm::dumpState(DumpContext& ctx, U32 indent) const {
   objDumpPrintf(ctx, "%*c%s\n", static_cast<int>(indent), ' ', printed().c_str());
}

}  // namespace Orb
