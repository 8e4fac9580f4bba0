#pragma once
// The sequence machines of an agent that evaluates every clause the configuration language has
// (the `full` profile). They are the common component's machines with the translation widened:
//
// - FullRmSeqConfigSymbolSm also builds the metric, interface and next-hop matchers, the
//   next-hop, resolved-next-hop and router-id prefix-list matchers, and the metric setter;
// - FullRmSeqConfigFilterSm copies every match rule and the metric into the filtered route map;
// - FullSymbolSeqSm also rebuilds next-hop, resolved-next-hop and router-id prefix-list matchers
//   when their lists change, so a redefined list reaches the compiled sequence as a pending
//   update, as a route's own prefix list does.
//
// Everything else (permit, tag, distance, continue, the sub-route-map and its cycle handling,
// the following of lists and called route maps) is the common component's, unchanged.

#include "Kel/Ptr.h"
#include "RoutingPolicy/common/CommonComponent.h"
#include "RoutingPolicy/common/CommonComponentRouteMapSeqConfigSm.h"
#include "RoutingPolicy/common/CommonComponentSymbolSeqSm.h"

namespace Routing::Policy::agent {

class FullRmSeqConfigSymbolSm : public CommonComponentRmSeqConfigSymbolSm {
public:
   FullRmSeqConfigSymbolSm(Kel::String rmName,
                           Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
                           Kel::Ptr<SequenceChange> sequenceChange,
                           Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym,
                           Kel::Ptr<PolicyRoot const> policyRoot,
                           Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier);

   bool matchRuleSupported(Routing::RouteMap::MatchOption option) const override;
   // The common machine follows the tag and continue flags; the metric flag is followed here.
   void handleSetFlags() override;
   void handleMetric() override;
   void formatDerivedType(std::ostream& os) const override;

protected:
   Kel::Ptr<Matcher const> matcherFor(
       const Routing::RouteMap::MatchRule& rule,
       Kel::Ptr<Routing::RouteMap::PolicySymbol const>* symbol) override;

private:
   Kel::Ptr<PolicyRoot const> policyRoot_;
};

class FullRmSeqConfigFilterSm : public CommonComponentRmSeqConfigFilterSm {
public:
   using CommonComponentRmSeqConfigFilterSm::CommonComponentRmSeqConfigFilterSm;

   bool matchRuleSupported(Routing::RouteMap::MatchOption option) const override;
   void handleMetric() override;
   void formatDerivedType(std::ostream& os) const override;
};

class FullSymbolSeqSm : public CommonComponentSymbolSeqSm {
public:
   using CommonComponentSymbolSeqSm::CommonComponentSymbolSeqSm;

   bool matchRuleSupported(Routing::RouteMap::MatchOption option) const override;
   void formatDerivedType(std::ostream& os) const override;

protected:
   Kel::Ptr<Matcher const> matcherFor(Routing::RouteMap::MatchOption option,
                                      const Routing::RouteMap::PolicySymbol* symbol) const override;
};

// Makes the three machines above for every sequence; hand it to the common component's helpers.
class FullProfileSeqSmFactory : public CommonComponentSeqSmFactory {
public:
   bool matchRuleSupported(Routing::RouteMap::MatchOption option) const override;
   Kel::Ptr<CommonComponentRmSeqConfigSymbolSm> symbolSm(
       const Kel::String& rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<SequenceChange> sequenceChange, Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym,
       Kel::Ptr<PolicyRoot const> policyRoot,
       Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) const override;
   Kel::Ptr<CommonComponentSymbolSeqSm> symbolSeqSm(
       const Kel::String& rmName, U32 seqno, Kel::Ptr<RouteMapSymbol const> rmSymbol,
       Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
       Kel::Ptr<MatchSymbolSeq const> matchSymbolSeq,
       Kel::Ptr<SubRouteMapSymbolSeq const> subRouteMapSymbolSeq,
       Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) const override;
   Kel::Ptr<CommonComponentRmSeqConfigFilterSm> filterSm(
       const Kel::String& rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<Routing::RouteMap::MapEntry> filteredSeqConfig,
       Routing::RouteMap::Config* filteredRmConfig,
       Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
       Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier) const override;
};

Kel::Ptr<FullProfileSeqSmFactory const> fullProfileSeqSmFactory();

}  // namespace Routing::Policy::agent
