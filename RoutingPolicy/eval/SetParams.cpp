#include "RoutingPolicy/eval/SetParams.h"

namespace Routing::Policy {

Kel::Ptr<SetParams> setParamsFactory() {
   return Kel::makePtr<SetParams>();
}

}  // namespace Routing::Policy
