#pragma once
// The two machines that follow one configured sequence for the common component:
//
// - CommonComponentRmSeqConfigSymbolSm translates the sequence into the change records the
//   route map's compiler folds into the compiled sequence at the next version;
// - CommonComponentRmSeqConfigFilterSm copies what the common component can evaluate into the
//   filtered route map, and withholds a sub-route-map call that would make route maps call each
//   other in a cycle until the cycle is gone.

#include "Routing/RouteMap/Config.h"
#include "RoutingPolicy/common/CommonComponent.h"
#include "RoutingPolicy/config/Policy.h"
#include "RoutingPolicy/config/RouteMapConfigSmBase.h"
#include "RoutingPolicy/status/RouteMapSymbol.h"

namespace Routing::Policy {

class CommonComponentRmSeqConfigSymbolSm : public CommonComponentRmSeqConfigSmBase {
public:
   CommonComponentRmSeqConfigSymbolSm(
       Kel::String rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<SequenceChange> sequenceChange, Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym,
       Kel::Ptr<PolicyRoot const> policyRoot,
       Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier);
   ~CommonComponentRmSeqConfigSymbolSm() override;

   const Kel::String& rmName() const { return rmName_; }
   Routing::RouteMap::MapEntry::SetFlags currentSetFlags() const { return currentSetFlags_; }
   const Kel::Ptr<SequenceChange>& sequenceChange() const { return sequenceChange_; }
   const Kel::Ptr<SequenceChangeSymbol>& sequenceChangeSym() const { return sequenceChangeSym_; }
   // The called route map's symbol as last recorded; null when the sequence calls none.
   const Kel::Ptr<RouteMapSymbol const>& subRouteMapSymbol() const { return subRouteMapSymbol_; }

   void handlePermit() override;
   void handleSetFlags() override;
   void handleDescription(U32) override {}
   void handleDistance() override;
   void handleContinueSeq() override;
   void handleTag() override;
   void handleSubRouteMap() override;
   void handleMatchRule(Routing::RouteMap::MatchOption option) override;
   void handleRouteMapOpMode();

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;
   // The matcher of a rule whose option matchRuleSupported accepts, and the list symbol it
   // follows (left null for a rule that names no list). An agent that supports more options
   // translates them and hands the others back here.
   virtual Kel::Ptr<Matcher const> matcherFor(
       const Routing::RouteMap::MatchRule& rule,
       Kel::Ptr<Routing::RouteMap::PolicySymbol const>* symbol);

private:
   struct OpModeReactor : RouteMapOpModeNotifier::Reactor {
      explicit OpModeReactor(CommonComponentRmSeqConfigSymbolSm* o) : owner(o) {}
      void handleNotifierIs() override {
         if (notifier()) owner->handleRouteMapOpMode();
      }
      void handleRouteMapOpMode() override { owner->handleRouteMapOpMode(); }
      CommonComponentRmSeqConfigSymbolSm* owner;
   };

   Kel::String rmName_;
   Kel::Ptr<SequenceChange> sequenceChange_;
   Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym_;
   Kel::Ptr<PolicyRoot const> policyRoot_;
   Routing::RouteMap::MapEntry::SetFlags currentSetFlags_ = 0;
   Kel::Ptr<RouteMapSymbol const> subRouteMapSymbol_;
   Kel::Ptr<RouteMapOpModeNotifier const> pendingOpModeNotifier_;
   OpModeReactor opModeReactor_;
};

class CommonComponentRmSeqConfigFilterSm : public CommonComponentRmSeqConfigSmBase {
public:
   // filteredRmConfig is not held: the owner of the filtered configuration outlives the machine.
   CommonComponentRmSeqConfigFilterSm(
       Kel::String rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<Routing::RouteMap::MapEntry> filteredSeqConfig,
       Routing::RouteMap::Config* filteredRmConfig,
       Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
       Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier);
   ~CommonComponentRmSeqConfigFilterSm() override;

   const Kel::String& rmName() const { return rmName_; }
   const Kel::Ptr<Routing::RouteMap::MapEntry>& filteredSeqConfig() const {
      return filteredSeqConfig_;
   }
   const Kel::Ptr<RouteMapBlockedSequenceList>& routeMapBlockedSequenceList() const {
      return routeMapBlockedSequenceList_;
   }
   // Whether the machine currently hears every route-map update (only while it is blocked).
   bool routeMapUpdateSubscribed() const { return updateReactor_.notifier() != nullptr; }

   void handlePermit() override;
   void handleSetFlags() override;
   void handleDescription(U32 index) override;
   void handleDistance() override;
   void handleContinueSeq() override;
   void handleTag() override;
   void handleSubRouteMap() override;
   void handleMatchRule(Routing::RouteMap::MatchOption option) override;
   // Whether the configured sub-route-map is now in the filtered entry.
   bool evalSubRouteMap();
   void handleRouteMapUpdateNotifier();

   void formatDerivedType(std::ostream& os) const override;

private:
   struct UpdateReactor : RouteMapUpdateNotifier::Reactor {
      explicit UpdateReactor(CommonComponentRmSeqConfigFilterSm* o) : owner(o) {}
      void handleVersion() override { owner->handleRouteMapUpdateNotifier(); }
      CommonComponentRmSeqConfigFilterSm* owner;
   };

   Kel::String rmName_;
   Kel::Ptr<Routing::RouteMap::MapEntry> filteredSeqConfig_;
   Routing::RouteMap::Config* filteredRmConfig_;
   Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList_;
   Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier_;
   // Writes the filtered entry's call when it differs.
   void filteredCallIs(const Kel::Name& sub, bool invert);

   UpdateReactor updateReactor_;
};

}  // namespace Routing::Policy
