#pragma once
// What a compiled policy needs from a route (RouteMapFeatures), and the set of route maps that
// one consumer applies, ordered by the role each plays (RouteMapStatusList).

#include <string>
#include <string_view>

#include <boost/container/flat_map.hpp>

#include "Kel/Entity.h"
#include "Kel/ValueText.h"
#include "Orb/Dump.h"
#include "RoutingPolicy/status/RmPrecedence.h"

namespace Vpl {
class FunctionStatusBase;
}

namespace Routing::Policy {

// Agents use this to decide what to supply to the evaluator and which route changes call for a
// new evaluation. Flags are only ever added by updateFrom, so a union is built by merging.
struct RouteMapFeatures {
   bool matchPrefixDependent = false;
   bool matchInterface = false;
   bool matchRouterId = false;
   bool matchOriginAsValidity = false;
   bool setMetricIgpNhCost = false;
   bool setOriginAsValidity = false;
   bool hasAggLinkBandwidthSetter = false;

   void updateFrom(const RouteMapFeatures& other) noexcept {
      matchPrefixDependent |= other.matchPrefixDependent;
      matchInterface |= other.matchInterface;
      matchRouterId |= other.matchRouterId;
      matchOriginAsValidity |= other.matchOriginAsValidity;
      setMetricIgpNhCost |= other.setMetricIgpNhCost;
      setOriginAsValidity |= other.setOriginAsValidity;
      hasAggLinkBandwidthSetter |= other.hasAggLinkBandwidthSetter;
   }
   bool operator==(const RouteMapFeatures&) const noexcept = default;

   // The readable text of dumps: "matchPrefixDependent=no; matchInterface=yes; ...".
   std::string toStrep() const;
   // The serialised Value(...) form and its parser.
   std::string valueToStrep() const;
   static RouteMapFeatures valueFromStrep(std::string_view text);
};

class RouteMapStatus;

class RouteMapStatusList : public Kel::Entity {
public:
   using RmStatusMap = boost::container::flat_map<RmPrecedence, Kel::Ptr<RouteMapStatus const>>;

   class Reactor : public Kel::ReactorFor<RouteMapStatusList> {
   public:
      virtual void handleRmStatus(RmPrecedence) {}
      virtual void handleFeatures() {}
      virtual void handleMatchPrefixDependent() {}
      virtual void handleVplStatus() {}
   };

   RouteMapStatusList();
   ~RouteMapStatusList() override;

   Kel::Ptr<RouteMapStatus const> rmStatus(RmPrecedence p) const;
   bool rmStatusHas(RmPrecedence p) const { return rmStatus_.has(p); }
   // A null status removes the precedence.
   void rmStatusIs(RmPrecedence p, Kel::Ptr<RouteMapStatus const> status);
   void rmStatusDel(RmPrecedence p);
   void rmStatusDelAll();
   // Ascending precedence: the evaluation order.
   const RmStatusMap& rmStatusMap() const { return rmStatus_.container(); }
   std::size_t rmStatusSize() const { return rmStatus_.size(); }

   const RouteMapFeatures& features() const { return features_; }
   void featuresIs(const RouteMapFeatures& f) { setAttr(features_, f, &Reactor::handleFeatures); }

   bool matchPrefixDependent() const { return matchPrefixDependent_; }
   void matchPrefixDependentIs(bool v) {
      setAttr(matchPrefixDependent_, v, &Reactor::handleMatchPrefixDependent);
   }

   // A policy function applied beside the route maps; its features join the list's.
   const Kel::Ptr<Vpl::FunctionStatusBase const>& vplStatus() const { return vplStatus_; }
   void vplStatusIs(Kel::Ptr<Vpl::FunctionStatusBase const> status);

   // Recomputes features from the route maps held now. Changes inside a held route map are not
   // followed; the owner calls this again (or re-inserts the route map) when they happen.
   void updateFeatures();

   // A new list with the same route maps, policy function and flags, and no reactors: what an
   // owner publishes to other threads while it goes on changing this one.
   Kel::Ptr<RouteMapStatusList> copy() const;

   void dumpState(Orb::DumpContext& ctx, U32 indent) const;

private:
   Kel::Collection<RmPrecedence, Kel::Ptr<RouteMapStatus const>, RmStatusMap> rmStatus_;
   RouteMapFeatures features_;
   bool matchPrefixDependent_ = false;
   Kel::Ptr<Vpl::FunctionStatusBase const> vplStatus_;
};

Kel::Ptr<RouteMapStatusList> routeMapStatusListFactory();

}  // namespace Routing::Policy

template <>
struct Kel::ValueText<Routing::Policy::RouteMapFeatures> {
   static void print(std::string& out, const Routing::Policy::RouteMapFeatures& v) {
      out += v.valueToStrep();
   }
   static Routing::Policy::RouteMapFeatures parse(std::string_view s) {
      return Routing::Policy::RouteMapFeatures::valueFromStrep(s);
   }
};
