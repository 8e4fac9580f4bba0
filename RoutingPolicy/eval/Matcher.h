#pragma once
// The base of match clauses. A matcher is immutable once made and may be shared by many
// sequences and route maps; the evaluator calls it through a raw pointer for every route.

#include <iosfwd>
#include <string>

#include "Kel/Entity.h"
#include "RoutingPolicy/eval/Result.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"

namespace Routing::Policy {

class PolicyEvalContext;

class Matcher : public Kel::Entity {
public:
   // The context is only handed through, by reference so that no count is taken per call.
   virtual bool match(const MatchInput_* input,
                      const Kel::Ptr<PolicyEvalContext>& context) const = 0;
   virtual bool matchForTest(const MatchInput_& input,
                             const Kel::Ptr<PolicyEvalContext>& context) const;
   virtual RouteMapFeatures getFeatures() const;
   void formatDerivedType(std::ostream& os) const override = 0;

   std::string toStrep() const;
};

}  // namespace Routing::Policy
