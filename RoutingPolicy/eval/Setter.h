#pragma once
// The base of set clauses. Setters write the Result_ only after the whole policy has permitted
// the route; a setter that must run after every other one defers itself through the result.

#include <iosfwd>
#include <string>

#include "Kel/Entity.h"
#include "RoutingPolicy/eval/Result.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"

namespace Routing::Policy {

class Setter : public Kel::Entity {
public:
   virtual void setValue(Result_* result) const = 0;
   // Only for setters that defer themselves; the base stops the process.
   virtual void deferredSetValue(Result_* result) const;
   void formatDerivedType(std::ostream& os) const override = 0;
   // Only for setters with a variant for routes learned over internal BGP; the base stops the
   // process.
   virtual Kel::Ptr<Setter const> createSkipIbgp() const;
   virtual RouteMapFeatures getFeatures() const;

   std::string toStrep() const;

   // For tests and tools that hold a result by const reference: each writes into `result`.
   // testFullSetValue runs the whole life of the setter, deferral included.
   void testFullSetValue(const Result_& result) const;
   void testSetValue(const Result_& result) const;
   void testDeferredSetValue(const Result_& result) const;
};

}  // namespace Routing::Policy
