#include "agent/FullProfile.h"

#include <ostream>

#include "Kel/Assert.h"
#include "Kel/Machine.h"
#include "Kel/Trace.h"
#include "RoutingPolicy/eval/Policy.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"
#include "RoutingPolicy/eval/RouteMetricSetter.h"
#include "agent/Clauses.h"

KEL_TRACE_HANDLE("FullProfile");

namespace Routing::Policy::agent {

using Routing::RouteMap::Config;
using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::MatchRule;
using Routing::RouteMap::PolicySymbol;
using Routing::RouteMap::PrefixListSymbol;
using Routing::RouteMap::SetOption;

namespace {

bool fullSupports(MatchOption option) {
   return evaluates(Profile::full, option);
}

// The prefix-list matcher that looks up the address the option names.
Kel::Ptr<Matcher const> addressListMatcher(MatchOption option, const Kel::String& name,
                                           Kel::Ptr<Routing::RouteMap::PrefixListStatus const> pl) {
   switch (option) {
      case MatchOption::matchIpNexthopPrefixList:
         return nexthopPrefixListMatcherFactory(name, std::move(pl));
      case MatchOption::matchIpResolvedNexthopPrefixList:
         return resolvedNexthopPfxListMatcherFactory(name, std::move(pl));
      case MatchOption::matchRouterIdPrefixList:
         return routerIdMatcherFactory(name, std::move(pl));
      default:
         return nullptr;
   }
}

}  // namespace

// --- FullRmSeqConfigSymbolSm

FullRmSeqConfigSymbolSm::FullRmSeqConfigSymbolSm(
    Kel::String rmName, Kel::Ptr<MapEntry const> seqConfig, Kel::Ptr<SequenceChange> sequenceChange,
    Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym, Kel::Ptr<PolicyRoot const> policyRoot,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier)
    : CommonComponentRmSeqConfigSymbolSm(std::move(rmName), std::move(seqConfig),
                                         std::move(sequenceChange), std::move(sequenceChangeSym),
                                         policyRoot, std::move(routeMapOpModeNotifier)),
      policyRoot_(std::move(policyRoot)) {}

bool FullRmSeqConfigSymbolSm::matchRuleSupported(MatchOption option) const {
   return fullSupports(option);
}

void FullRmSeqConfigSymbolSm::handleSetFlags() {
   const MapEntry::SetFlags changed = seqConfig()->setFlags() ^ currentSetFlags();
   CommonComponentRmSeqConfigSymbolSm::handleSetFlags();
   if (changed & MapEntry::metricFlag) handleMetric();
}

void FullRmSeqConfigSymbolSm::handleMetric() {
   const auto& entry = seqConfig();
   sequenceChange()->setterChangeIs(SetOption::setMetric)->setterIs(nullptr);
   // A flag without a value is no clause: the configuration text cannot write one, and the agent
   // reads such an entry back without "set metric".
   if ((entry->setFlags() & MapEntry::metricFlag) && entry->metric().hasValue()) {
      KTRACE(8, *this, "Instantiating RouteMetricSetter with " << entry->metric().value());
      sequenceChange()
          ->setterChangeIs(SetOption::setMetric)
          ->setterIs(routeMetricSetterFactory(entry->metric()));
   }
}

Kel::Ptr<Matcher const> FullRmSeqConfigSymbolSm::matcherFor(const MatchRule& rule,
                                                            Kel::Ptr<PolicySymbol const>* symbol) {
   switch (rule.option()) {
      case MatchOption::matchMetric:
         return routeMetricMatcherFactory(rule.metric());
      case MatchOption::matchInterface:
         return interfaceMatcherFactory(rule.intf());
      case MatchOption::matchIpNexthop:
         return nexthopMatcherFactory(rule.nexthop());
      case MatchOption::matchIpNexthopPrefixList:
      case MatchOption::matchIpResolvedNexthopPrefixList:
      case MatchOption::matchRouterIdPrefixList: {
         auto pl = getPrefixListSymbol(rule.listName(), policyRoot_->ipv4PrefixListTable());
         *symbol = pl;
         return addressListMatcher(rule.option(), rule.listName(), pl->status());
      }
      default:
         return CommonComponentRmSeqConfigSymbolSm::matcherFor(rule, symbol);
   }
}

void FullRmSeqConfigSymbolSm::formatDerivedType(std::ostream& os) const {
   os << "FullRmSeqConfigSymbolSm " << rmName() << " seq " << seqno();
}

// --- FullRmSeqConfigFilterSm

bool FullRmSeqConfigFilterSm::matchRuleSupported(MatchOption option) const {
   return fullSupports(option);
}

void FullRmSeqConfigFilterSm::handleMetric() {
   filteredSeqConfig()->metricIs(seqConfig()->metric());
   handleSetFlags();
}

void FullRmSeqConfigFilterSm::formatDerivedType(std::ostream& os) const {
   os << "FullRmSeqConfigFilterSm " << rmName() << " seq " << seqno();
}

// --- FullSymbolSeqSm

bool FullSymbolSeqSm::matchRuleSupported(MatchOption option) const {
   return fullSupports(option);
}

Kel::Ptr<Matcher const> FullSymbolSeqSm::matcherFor(MatchOption option,
                                                    const PolicySymbol* symbol) const {
   switch (option) {
      case MatchOption::matchIpNexthopPrefixList:
      case MatchOption::matchIpResolvedNexthopPrefixList:
      case MatchOption::matchRouterIdPrefixList: {
         auto pl = dynamic_cast<const PrefixListSymbol*>(symbol);
         KEL_ASSERT(pl);
         return addressListMatcher(option, pl->name(), pl->status());
      }
      default:
         return CommonComponentSymbolSeqSm::matcherFor(option, symbol);
   }
}

void FullSymbolSeqSm::formatDerivedType(std::ostream& os) const {
   os << "FullSymbolSeqSm " << rmName() << " seq " << seqno();
}

// --- FullProfileSeqSmFactory

bool FullProfileSeqSmFactory::matchRuleSupported(MatchOption option) const {
   return fullSupports(option);
}

Kel::Ptr<CommonComponentRmSeqConfigSymbolSm> FullProfileSeqSmFactory::symbolSm(
    const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
    Kel::Ptr<SequenceChange> sequenceChange, Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym,
    Kel::Ptr<PolicyRoot const> policyRoot,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) const {
   return Kel::create<FullRmSeqConfigSymbolSm>(
       rmName, std::move(seqConfig), std::move(sequenceChange), std::move(sequenceChangeSym),
       std::move(policyRoot), std::move(routeMapOpModeNotifier));
}

Kel::Ptr<CommonComponentSymbolSeqSm> FullProfileSeqSmFactory::symbolSeqSm(
    const Kel::String& rmName, U32 seqno, Kel::Ptr<RouteMapSymbol const> rmSymbol,
    Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
    Kel::Ptr<MatchSymbolSeq const> matchSymbolSeq,
    Kel::Ptr<SubRouteMapSymbolSeq const> subRouteMapSymbolSeq,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) const {
   return Kel::create<FullSymbolSeqSm>(rmName, seqno, std::move(rmSymbol),
                                       std::move(rmConfigSymbolReactor), std::move(matchSymbolSeq),
                                       std::move(subRouteMapSymbolSeq),
                                       std::move(routeMapOpModeNotifier));
}

Kel::Ptr<CommonComponentRmSeqConfigFilterSm> FullProfileSeqSmFactory::filterSm(
    const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
    Kel::Ptr<MapEntry> filteredSeqConfig, Config* filteredRmConfig,
    Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
    Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier) const {
   return Kel::create<FullRmSeqConfigFilterSm>(
       rmName, std::move(seqConfig), std::move(filteredSeqConfig), filteredRmConfig,
       std::move(routeMapBlockedSequenceList), std::move(routeMapUpdateNotifier));
}

Kel::Ptr<FullProfileSeqSmFactory const> fullProfileSeqSmFactory() {
   static const Kel::Ptr<FullProfileSeqSmFactory const> factory =
       Kel::makePtr<FullProfileSeqSmFactory>();
   return factory;
}

}  // namespace Routing::Policy::agent
