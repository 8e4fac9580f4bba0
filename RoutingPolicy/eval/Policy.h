#pragma once
// The attribute match and set clauses, the map from FIB route types to route protocols, and the
// evaluator that walks compiled route maps for a route.

#include <iosfwd>

#include <boost/container/small_vector.hpp>

#include "Nx/IntfId.h"
#include "Nx/IpAddr.h"
#include "Orb/MaybeU63.h"
#include "Routing/RouteTypes.h"
#include "RoutingPolicy/eval/Matcher.h"
#include "RoutingPolicy/eval/RouteMetricSetter.h"
#include "RoutingPolicy/eval/Setter.h"
#include "RoutingPolicy/status/PolicyEvalContext.h"
#include "RoutingPolicy/status/RouteMapSeqStatus.h"
#include "RoutingPolicy/status/RouteMapStatus.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"

namespace Routing::Policy {

// ---- Matchers ----------------------------------------------------------------------------

class TagMatcher : public Matcher {
public:
   explicit TagMatcher(RouteTag tag) : tag_(tag) {}
   RouteTag tag() const { return tag_; }
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override {
      return input->getTag() == tag_;
   }
   void formatDerivedType(std::ostream& os) const override;

private:
   RouteTag tag_;
};

// Optional against optional: a configured metric never matches a route without one.
class RouteMetricMatcher : public Matcher {
public:
   explicit RouteMetricMatcher(const Orb::MaybeU63& metric) : metric_(metric) {}
   const Orb::MaybeU63& metric() const { return metric_; }
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override {
      return input->getMetric() == metric_;
   }
   void formatDerivedType(std::ostream& os) const override;

private:
   Orb::MaybeU63 metric_;
};

// Folds the specific protocols of a route into the family that configuration names (an OSPF
// area route matches "ospf", an iBGP route matches "bgp"), never the other way round.
class SourceProtoMatcher : public Matcher {
public:
   explicit SourceProtoMatcher(RouteProto protocol) : protocol_(protocol) {}
   RouteProto protocol() const { return protocol_; }
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override;
   void formatDerivedType(std::ostream& os) const override;

private:
   RouteProto protocol_;
};

class NexthopMatcher : public Matcher {
public:
   explicit NexthopMatcher(const Nx::IpGenAddr& nexthop) : nexthop_(nexthop) {}
   const Nx::IpGenAddr& nexthop() const { return nexthop_; }
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override {
      return input->getNexthop() == nexthop_;
   }
   void formatDerivedType(std::ostream& os) const override;

private:
   Nx::IpGenAddr nexthop_;
};

// Passes without looking when the input says interfaces are not to be matched.
class InterfaceMatcher : public Matcher {
public:
   explicit InterfaceMatcher(const Nx::IntfId& intf) : intf_(intf) {}
   const Nx::IntfId& intf() const { return intf_; }
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override;
   RouteMapFeatures getFeatures() const override;
   void formatDerivedType(std::ostream& os) const override;

private:
   Nx::IntfId intf_;
};

// Stands in for gateway matching, which is not supported: it never matches.
class GwMatcher : public Matcher {
public:
   bool match(const MatchInput_*, const Kel::Ptr<PolicyEvalContext>&) const override {
      return false;
   }
   void formatDerivedType(std::ostream& os) const override;
};

Kel::Ptr<TagMatcher> tagMatcherFactory(RouteTag tag);
Kel::Ptr<RouteMetricMatcher> routeMetricMatcherFactory(const Orb::MaybeU63& metric);
Kel::Ptr<SourceProtoMatcher> sourceProtoMatcherFactory(RouteProto protocol);
Kel::Ptr<NexthopMatcher> nexthopMatcherFactory(const Nx::IpGenAddr& address);
Kel::Ptr<InterfaceMatcher> interfaceMatcherFactory(const Nx::IntfId& intfId);

// ---- Setters -----------------------------------------------------------------------------

class TagSetter : public Setter {
public:
   explicit TagSetter(RouteTag tag) : tag_(tag) {}
   RouteTag tag() const { return tag_; }
   void setValue(Result_* result) const override { result->tagIs(tag_); }
   void formatDerivedType(std::ostream& os) const override;

private:
   RouteTag tag_;
};

class DistanceSetter : public Setter {
public:
   explicit DistanceSetter(RoutePreference distance) : distance_(distance) {}
   RoutePreference distance() const { return distance_; }
   void setValue(Result_* result) const override { result->preferenceIs(distance_); }
   void formatDerivedType(std::ostream& os) const override;

private:
   RoutePreference distance_;
};

Kel::Ptr<TagSetter> tagSetterFactory(RouteTag tag);
Kel::Ptr<DistanceSetter> distanceSetterFactory(RoutePreference preference);

// ---- Route types to protocols ------------------------------------------------------------

class RouteProtoHelper : public Kel::Entity {
public:
   // The protocol that match clauses use for a FIB route type; 0 for types without one.
   static RouteProto routeProto(Fib::RouteType type);
   static RouteProto routeProto6(Routing6::Fib::RouteType type);
};

// ---- Evaluator ---------------------------------------------------------------------------

// The sequences whose setters are to be applied, in match order. Four entries live inline, so
// that a route matching a few sequences through continue, or several route maps of a list,
// costs no allocation (a pointer each on the caller's stack). The entries are raw pointers: the
// route maps that the caller holds for the evaluation keep their sequences alive, and a counted
// reference costs an atomic increment and decrement per matched sequence, as much as the rest
// of a short evaluation. Callers that keep the list beyond one call take a snapshot.
using MatchedRouteMapSequences = boost::container::small_vector<const RouteMapSeqStatus*, 4>;

// The matched list for callers that keep it beyond one call (scripts, tests); it keeps the
// sequences alive even if their route map is recompiled meanwhile.
class MatchedRouteMapSequencesSnapshot : public Kel::Entity {
public:
   using SeqStatusMap = boost::container::flat_map<U32, Kel::Ptr<RouteMapSeqStatus const>>;

   class Reactor : public Kel::ReactorFor<MatchedRouteMapSequencesSnapshot> {
   public:
      virtual void handleSeqStatus(U32) {}
   };

   Kel::Ptr<RouteMapSeqStatus const> seqStatus(U32 index) const { return seqStatus_.get(index); }
   // A null sequence removes the index.
   void seqStatusIs(U32 index, Kel::Ptr<RouteMapSeqStatus const> seq);
   void seqStatusDel(U32 index);
   void seqStatusDelAll();
   const SeqStatusMap& seqStatusMap() const { return seqStatus_.container(); }
   std::size_t seqStatusSize() const { return seqStatus_.size(); }

private:
   Kel::Collection<U32, Kel::Ptr<RouteMapSeqStatus const>, SeqStatusMap> seqStatus_;
};

Kel::Ptr<MatchedRouteMapSequencesSnapshot> matchedRouteMapSequencesSnapshotFactory();

class PolicyEval : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<PolicyEval> {
   public:
      virtual void handleContext() {}
   };

   const Kel::Ptr<PolicyEvalContext>& context() const { return context_; }
   void contextIs(Kel::Ptr<PolicyEvalContext> c) {
      setAttr(context_, std::move(c), &Reactor::handleContext);
   }

   // Matches against every route map of the list, then, on permit, applies the matched
   // sequences' setters. On deny `result` is left untouched.
   bool eval(const MatchInput_* input, const Kel::Ptr<RouteMapStatusList const>& list,
             Result_* result) const;
   // A conjunction of the list's route maps in precedence order; an empty route map is skipped.
   bool evalPolicyMatchers(const MatchInput_* input, const Kel::Ptr<RouteMapStatusList const>& list,
                           MatchedRouteMapSequences* matched) const;
   bool evalRouteMapMatchers(const MatchInput_* input, const RouteMapStatus* rm,
                             MatchedRouteMapSequences* matched) const;
   void applyPolicySetters(const MatchedRouteMapSequences* matched, Result_* result) const;

   // Null on deny.
   Kel::Ptr<MatchedRouteMapSequencesSnapshot const> evalRouteMapMatchersSnapshot(
       const MatchInput_& input, const Kel::Ptr<RouteMapStatus const>& rm) const;
   // Writes into `result` although it is passed as const, for callers that hold only values.
   void applyPolicySettersSnapshot(const Kel::Ptr<MatchedRouteMapSequencesSnapshot const>& snapshot,
                                   const Result_& result) const;

private:
   Kel::Ptr<PolicyEvalContext> context_;
};

Kel::Ptr<PolicyEval> policyEvalFactory();

// Evaluates the sub route map `subRouteMap` called by `callingSeq`, keeping the log's call stack
// in step when `logging` is set. The sub route map comes as a raw pointer: the calling sequence
// holds it for the whole call.
bool evalSubRouteMapMatchers(const PolicyEval* policyEval,
                             const Kel::Ptr<PolicyEvalContext>& context, bool logging,
                             const MatchInput_* input,
                             const Kel::Ptr<RouteMapSeqStatus const>& callingSeq,
                             const RouteMapStatus* subRouteMap, MatchedRouteMapSequences* matched);

}  // namespace Routing::Policy
