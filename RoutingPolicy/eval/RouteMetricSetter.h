#pragma once

#include <iosfwd>

#include "Orb/MaybeU63.h"
#include "RoutingPolicy/eval/Setter.h"

namespace Routing::Policy {

// Copies its metric into the result, an absent metric included (which clears the result's).
class RouteMetricSetter : public Setter {
public:
   explicit RouteMetricSetter(const Orb::MaybeU63& metric) : metric_(metric) {}

   const Orb::MaybeU63& metric() const { return metric_; }

   void setValue(Result_* result) const override { result->metricIs(metric_); }
   void formatDerivedType(std::ostream& os) const override;

private:
   Orb::MaybeU63 metric_;
};

Kel::Ptr<RouteMetricSetter> routeMetricSetterFactory(const Orb::MaybeU63& metric);

}  // namespace Routing::Policy
