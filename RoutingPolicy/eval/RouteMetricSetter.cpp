#include "RoutingPolicy/eval/RouteMetricSetter.h"

#include <ostream>

namespace Routing::Policy {

void RouteMetricSetter::formatDerivedType(std::ostream& os) const {
   const auto flags = os.flags();
   os << "RouteMetricSetter metric " << metric_.toStrep();
   os.flags(flags);
}

Kel::Ptr<RouteMetricSetter> routeMetricSetterFactory(const Orb::MaybeU63& metric) {
   return Kel::makePtr<RouteMetricSetter>(metric);
}

}  // namespace Routing::Policy
