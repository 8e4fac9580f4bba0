#include "RoutingPolicy/status/RouteMapSymbolDedupTable.h"

namespace Routing::Policy {

Kel::Ptr<RouteMapSymbolDedupTable> routeMapSymbolDedupTableFactory() {
   return Kel::makePtr<RouteMapSymbolDedupTable>();
}

}  // namespace Routing::Policy
