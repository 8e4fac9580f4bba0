#include "RoutingPolicy/eval/Matcher.h"

#include <sstream>

namespace Routing::Policy {

bool Matcher::matchForTest(const MatchInput_& input,
                           const Kel::Ptr<PolicyEvalContext>& context) const {
   return match(&input, context);
}

RouteMapFeatures Matcher::getFeatures() const {
   return {};
}

std::string Matcher::toStrep() const {
   std::ostringstream os;
   formatDerivedType(os);
   return os.str();
}

}  // namespace Routing::Policy
