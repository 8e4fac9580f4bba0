#include "RoutingPolicy/common/CommonComponentRouteMapSeqConfigSm.h"

#include <ostream>
#include <sstream>
#include <string>

#include "Kel/Assert.h"
#include "Kel/Trace.h"
#include "RoutingPolicy/config/RouteMapLoopDetect.h"
#include "RoutingPolicy/eval/Policy.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"

KEL_TRACE_HANDLE("CommonComponentRouteMapSeqConfigSm");

namespace Routing::Policy {

using Routing::RouteMap::Config;
using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::MatchRule;
using Routing::RouteMap::PolicySymbol;
using Routing::RouteMap::SetOption;

// --- CommonComponentRmSeqConfigSymbolSm

CommonComponentRmSeqConfigSymbolSm::CommonComponentRmSeqConfigSymbolSm(
    Kel::String rmName, Kel::Ptr<MapEntry const> seqConfig, Kel::Ptr<SequenceChange> sequenceChange,
    Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym, Kel::Ptr<PolicyRoot const> policyRoot,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier)
    : CommonComponentRmSeqConfigSmBase(std::move(seqConfig)),
      rmName_(std::move(rmName)),
      sequenceChange_(std::move(sequenceChange)),
      sequenceChangeSym_(std::move(sequenceChangeSym)),
      policyRoot_(std::move(policyRoot)),
      pendingOpModeNotifier_(std::move(routeMapOpModeNotifier)),
      opModeReactor_(this) {}

CommonComponentRmSeqConfigSymbolSm::~CommonComponentRmSeqConfigSymbolSm() {
   opModeReactor_.notifierIs(nullptr);
   seqConfigDel();
}

void CommonComponentRmSeqConfigSymbolSm::handleInitialized() {
   CommonComponentRmSeqConfigSmBase::handleInitialized();
   opModeReactor_.notifierIs(std::move(pendingOpModeNotifier_));
}

void CommonComponentRmSeqConfigSymbolSm::handlePermit() {
   sequenceChange_->permitChangeIs(true);
}

void CommonComponentRmSeqConfigSymbolSm::handleSetFlags() {
   const MapEntry::SetFlags flags = seqConfig()->setFlags();
   const MapEntry::SetFlags changed = flags ^ currentSetFlags_;
   // The distance flag is left to handleDistance, which the distance attribute itself drives.
   if (changed & MapEntry::continueFlag) handleContinueSeq();
   if (changed & MapEntry::tagFlag) handleTag();
   currentSetFlags_ = flags;
}

void CommonComponentRmSeqConfigSymbolSm::handleTag() {
   const auto& entry = seqConfig();
   sequenceChange_->setterChangeIs(SetOption::setTag)->setterIs(nullptr);
   if (entry->setFlags() & MapEntry::tagFlag) {
      KTRACE(8, *this, "Instantiating TagSetter with " << entry->tag().value());
      sequenceChange_->setterChangeIs(SetOption::setTag)->setterIs(tagSetterFactory(entry->tag()));
   }
}

void CommonComponentRmSeqConfigSymbolSm::handleDistance() {
   const auto& entry = seqConfig();
   sequenceChange_->setterChangeIs(SetOption::setDistance)->setterIs(nullptr);
   // "no set distance" resets the value, and that reset is what brings the setter's removal
   // here: a distance of 0 is never a configured one.
   if ((entry->setFlags() & MapEntry::distanceFlag) && entry->distance().value() != 0) {
      KTRACE(8, *this, "Instantiating distanceSetter with " << entry->distance().value());
      sequenceChange_->setterChangeIs(SetOption::setDistance)
          ->setterIs(distanceSetterFactory(entry->distance()));
   }
}

void CommonComponentRmSeqConfigSymbolSm::handleContinueSeq() {
   const auto& entry = seqConfig();
   const bool has = (entry->setFlags() & MapEntry::continueFlag) != 0;
   auto change = continueChangeFactory(has);
   change->continueSeqIs(has ? entry->continueSeq() : 0);
   sequenceChange_->continueChangeIs(std::move(change));
}

void CommonComponentRmSeqConfigSymbolSm::handleSubRouteMap() {
   const auto& entry = seqConfig();
   KTRACE(8, *this,
          "sub-route-map: '" << entry->subRouteMap()
                             << (entry->subRouteMapInvert() ? " invert-result" : "") << "'");
   Kel::Ptr<RouteMapSymbol const> symbol;
   if (!entry->subRouteMap().empty()) {
      symbol = routeMapSymbolFactory(entry->subRouteMap())->dedup(policyRoot_->routeMapTable());
      const Kel::Ptr<RouteMapStatus const> status = symbol->rmStatus();
      KTRACE(8, *this,
             "setting subRouteMapSymbol= " << *symbol
                                           << " subRouteMap:rmStatus=" << textOf(status.get()));
   }
   subRouteMapSymbol_ = symbol;
   sequenceChangeSym_->subRouteMapChangeSymbolIs(subRouteMapChangeSymbolFactory(std::move(symbol)));
}

Kel::Ptr<Matcher const> CommonComponentRmSeqConfigSymbolSm::matcherFor(
    const MatchRule& rule, Kel::Ptr<PolicySymbol const>* symbol) {
   switch (rule.option()) {
      case MatchOption::matchIpAddressAccessList: {
         auto acl = getIpAccessListSymbol(rule.listName(), policyRoot_->ipAclListTable());
         *symbol = acl;
         return ipAccessListMatcherFactory(rule.listName(), acl->status());
      }
      case MatchOption::matchIpAddressPrefixList:
      case MatchOption::matchIpv6AddressPrefixList: {
         // The option alone says which family's lists the name lives among.
         const auto& table = rule.option() == MatchOption::matchIpAddressPrefixList
                                 ? policyRoot_->ipv4PrefixListTable()
                                 : policyRoot_->ipv6PrefixListTable();
         auto pl = getPrefixListSymbol(rule.listName(), table);
         *symbol = pl;
         return prefixListMatcherFactory(rule.listName(), pl->status());
      }
      case MatchOption::matchSourceProtocol:
         return sourceProtoMatcherFactory(routeMapProtocolToRouteProto(rule.protocol()));
      case MatchOption::matchTag:
         return tagMatcherFactory(Routing::RouteTag(rule.tag()));
      default:
         KEL_ASSERT(false && "option not supported");
         return nullptr;
   }
}

void CommonComponentRmSeqConfigSymbolSm::handleMatchRule(MatchOption option) {
   const auto& entry = seqConfig();
   Kel::Ptr<MatcherChangeSymbol> symbols = sequenceChangeSym_->matcherChangeSymbolIs(option);
   symbols->matchSymbolDelAll();
   Kel::Ptr<Matcher const> matcher;
   if (entry->matchRuleHas(option)) {
      if (!matchRuleSupported(option)) KEL_ASSERT(false && "option not supported");
      Kel::Ptr<PolicySymbol const> symbol;
      matcher = matcherFor(entry->matchRule(option), &symbol);
      if (symbol) symbols->matchSymbolIs(std::move(symbol));
   }
   sequenceChange_->matcherChangeIs(option)->matcherIs(std::move(matcher));
}

void CommonComponentRmSeqConfigSymbolSm::handleRouteMapOpMode() {
   // The common component evaluates the same way in every mode; the mode is only followed so
   // a trace shows when it changed under a sequence.
   KTRACE(8, *this, "handleRouteMapOpMode");
}

void CommonComponentRmSeqConfigSymbolSm::formatDerivedType(std::ostream& os) const {
   os << "CommonComponentRmSeqConfigSymbolSm " << rmName_ << " seq " << seqno();
}

// --- CommonComponentRmSeqConfigFilterSm

CommonComponentRmSeqConfigFilterSm::CommonComponentRmSeqConfigFilterSm(
    Kel::String rmName, Kel::Ptr<MapEntry const> seqConfig, Kel::Ptr<MapEntry> filteredSeqConfig,
    Config* filteredRmConfig, Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
    Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier)
    : CommonComponentRmSeqConfigSmBase(std::move(seqConfig)),
      rmName_(std::move(rmName)),
      filteredSeqConfig_(std::move(filteredSeqConfig)),
      filteredRmConfig_(filteredRmConfig),
      routeMapBlockedSequenceList_(std::move(routeMapBlockedSequenceList)),
      routeMapUpdateNotifier_(std::move(routeMapUpdateNotifier)),
      updateReactor_(this) {}

CommonComponentRmSeqConfigFilterSm::~CommonComponentRmSeqConfigFilterSm() {
   updateReactor_.notifierIs(nullptr);
   seqConfigDel();
}

void CommonComponentRmSeqConfigFilterSm::handlePermit() {
   filteredSeqConfig_->permitIs(seqConfig()->permit());
}

void CommonComponentRmSeqConfigFilterSm::handleSetFlags() {
   filteredSeqConfig_->setFlagsIs(seqConfig()->setFlags());
}

void CommonComponentRmSeqConfigFilterSm::handleDescription(U32 index) {
   const auto& entry = seqConfig();
   if (entry->descriptionHas(index)) {
      filteredSeqConfig_->descriptionIs(index, entry->description(index));
   } else {
      filteredSeqConfig_->descriptionDel(index);
   }
}

void CommonComponentRmSeqConfigFilterSm::handleDistance() {
   filteredSeqConfig_->distanceIs(seqConfig()->distance());
   handleSetFlags();
}

void CommonComponentRmSeqConfigFilterSm::handleContinueSeq() {
   filteredSeqConfig_->continueSeqIs(seqConfig()->continueSeq());
   handleSetFlags();
}

void CommonComponentRmSeqConfigFilterSm::handleTag() {
   filteredSeqConfig_->tagIs(seqConfig()->tag());
   handleSetFlags();
}

void CommonComponentRmSeqConfigFilterSm::handleMatchRule(MatchOption option) {
   KTRACE(8, *this, "option: " << static_cast<U32>(option));
   const auto& entry = seqConfig();
   if (entry->matchRuleHas(option) && matchRuleSupported(option)) {
      filteredSeqConfig_->matchRuleIs(entry->matchRule(option));
   } else {
      filteredSeqConfig_->matchRuleDel(option);
   }
}

void CommonComponentRmSeqConfigFilterSm::handleSubRouteMap() {
   evalSubRouteMap();
}

bool CommonComponentRmSeqConfigFilterSm::evalSubRouteMap() {
   const auto& entry = seqConfig();
   const Kel::Name& sub = entry->subRouteMap();
   // Asked of the filtered configuration: what the common component will run is what must not
   // go round.
   if (!sub.empty() && RouteMapLoopDetect(filteredRmConfig_).hasLoops(rmName_, sub)) {
      if (!routeMapUpdateSubscribed()) {
         KTRACE(8, *this, "subscribe to the global route map update");
         updateReactor_.notifierIs(routeMapUpdateNotifier_);
      }
      KTRACE(8, *this, "marking sequence as blocking");
      // The call is withheld, not left as it was: a call the sequence made before would go on
      // answering for a configuration that no longer holds it. The compiled sequence follows
      // this entry, so it calls nothing either until the cycle is gone.
      filteredCallIs("", false);
      routeMapBlockedSequenceList_->sequenceIs(seqno(), true);
      return false;
   }
   filteredCallIs(sub, entry->subRouteMapInvert());
   routeMapBlockedSequenceList_->sequenceDel(seqno());
   updateReactor_.notifierIs(nullptr);
   return true;
}

void CommonComponentRmSeqConfigFilterSm::filteredCallIs(const Kel::Name& sub, bool invert) {
   if (filteredSeqConfig_->subRouteMap() == sub &&
       filteredSeqConfig_->subRouteMapInvert() == invert) {
      return;
   }
   KTRACE(8, *this,
          "changing sub-route-map from:" << filteredSeqConfig_->subRouteMap() << " to " << sub);
   filteredSeqConfig_->subRouteMapIs(sub, invert);
}

void CommonComponentRmSeqConfigFilterSm::handleRouteMapUpdateNotifier() {
   if (!routeMapBlockedSequenceList_->sequenceHas(seqno())) return;
   KTRACE(8, *this, "previous sync was deferred due to cycle. Re-evaluating.");
   evalSubRouteMap();
}

void CommonComponentRmSeqConfigFilterSm::formatDerivedType(std::ostream& os) const {
   os << "CommonComponentRmSeqConfigFilterSm " << rmName_ << " seq " << seqno();
}

}  // namespace Routing::Policy
