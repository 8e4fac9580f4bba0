#pragma once
// Follows the lists and the route map that one compiled common-component sequence references.
// A new version of a prefix list or access list becomes a rebuilt matcher, a newly published
// called route map a new sub-route-map status; both reach the compiled sequence as pending
// updates of the route map's RmConfigSymbolReactor, without recompiling the sequence.

#include <map>
#include <memory>
#include <unordered_map>

#include "Orb/BaseOutputSm.h"
#include "Routing/RouteMap/Options.h"
#include "Routing/RouteMap/PolicySymbol.h"
#include "RoutingPolicy/common/CommonComponent.h"
#include "RoutingPolicy/config/Policy.h"
#include "RoutingPolicy/config/RouteMapConfigSmBase.h"
#include "RoutingPolicy/status/RouteMapSymbol.h"

namespace Routing::Policy {

// The symbols one match option of a sequence is watched through.
class PolicyMatchSymbolNotifierMap : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<PolicyMatchSymbolNotifierMap> {
   public:
      virtual void handlePolicyMatchSymbolNotifier(const PolicySymbolPtr&) {}
   };
   using SymbolColl = PolicySymbolColl;

   explicit PolicyMatchSymbolNotifierMap(Routing::RouteMap::MatchOption option) : option_(option) {}
   Routing::RouteMap::MatchOption option() const { return option_; }
   const SymbolColl& policyMatchSymbolNotifiers() const { return policyMatchSymbolNotifier_; }
   bool policyMatchSymbolNotifierHas(const PolicySymbolPtr& s) const {
      return policyMatchSymbolNotifier_.has(s);
   }
   void policyMatchSymbolNotifierIs(PolicySymbolPtr s);
   void policyMatchSymbolNotifierDel(const PolicySymbolPtr& s);

private:
   const Routing::RouteMap::MatchOption option_;
   SymbolColl policyMatchSymbolNotifier_;
};

Kel::Ptr<PolicyMatchSymbolNotifierMap> policyMatchSymbolNotifierMapFactory(
    Routing::RouteMap::MatchOption option);

class CommonComponentSymbolSeqSm : public Orb::BaseOutputSm {
public:
   CommonComponentSymbolSeqSm(Kel::String rmName, U32 seqno,
                              Kel::Ptr<RouteMapSymbol const> rmSymbol,
                              Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
                              Kel::Ptr<MatchSymbolSeq const> matchSymbolSeq,
                              Kel::Ptr<SubRouteMapSymbolSeq const> subRouteMapSymbolSeq,
                              Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier);
   ~CommonComponentSymbolSeqSm() override;

   const Kel::String& rmName() const { return rmName_; }
   U32 seqno() const { return seqno_; }
   // Only options this answers yes for are watched; an agent that translates more says so.
   virtual bool matchRuleSupported(Routing::RouteMap::MatchOption option) const {
      return commonComponentMatchRuleSupported(option);
   }
   Kel::Ptr<PolicyMatchSymbolNotifierMap const> matchSymbolNotifierColl(
       Routing::RouteMap::MatchOption option) const;
   // How many symbols of the option currently have a version reactor.
   size_t matchSymNotifierCount(Routing::RouteMap::MatchOption option) const;

   void handleMatchSymbolSeq(Routing::RouteMap::MatchOption option);
   void handleVersion(Routing::RouteMap::MatchOption option,
                      const Routing::RouteMap::PolicySymbol* symbol);
   void handleSubRouteMapSymbol();

   void matchSymNotifierMapDel(Routing::RouteMap::MatchOption option);
   void matchSymNotifierMapDelAll();
   void matchSymbolNotifierCollDel(Routing::RouteMap::MatchOption option);
   void matchSymbolNotifierCollDelAll();
   void subRouteMapSymbolNotifierDel();

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;
   // A matcher on the list's status as it is now, for an option whose rule names a list. An agent
   // that follows more kinds of list builds their matchers and hands the others back here.
   virtual Kel::Ptr<Matcher const> matcherFor(Routing::RouteMap::MatchOption option,
                                              const Routing::RouteMap::PolicySymbol* symbol) const;

private:
   struct MatchSymNotifier : Routing::RouteMap::PolicySymbol::Reactor {
      MatchSymNotifier(CommonComponentSymbolSeqSm* o, Routing::RouteMap::MatchOption opt)
          : owner(o), option(opt) {}
      void handleVersion() override { owner->handleVersion(option, notifier().get()); }
      CommonComponentSymbolSeqSm* owner;
      Routing::RouteMap::MatchOption option;
   };
   struct MatchSeqReactor : MatchSymbolSeq::Reactor {
      explicit MatchSeqReactor(CommonComponentSymbolSeqSm* o) : owner(o) {}
      void handlePolicySymbolList(Routing::RouteMap::MatchOption option) override {
         owner->handleMatchSymbolSeq(option);
      }
      CommonComponentSymbolSeqSm* owner;
   };
   struct SubSeqReactor : SubRouteMapSymbolSeq::Reactor {
      explicit SubSeqReactor(CommonComponentSymbolSeqSm* o) : owner(o) {}
      void handleSymbol() override;
      CommonComponentSymbolSeqSm* owner;
   };
   struct SubSymbolReactor : Routing::RouteMap::PolicySymbol::Reactor {
      explicit SubSymbolReactor(CommonComponentSymbolSeqSm* o) : owner(o) {}
      void handleVersion() override { owner->handleSubRouteMapSymbol(); }
      CommonComponentSymbolSeqSm* owner;
   };
   using NotifierMap =
       std::map<const Routing::RouteMap::PolicySymbol*, std::unique_ptr<MatchSymNotifier>>;

   void watch(Routing::RouteMap::MatchOption option);

   Kel::String rmName_;
   U32 seqno_;
   Kel::Ptr<RouteMapSymbol const> rmSymbol_;
   Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor_;
   Kel::Ptr<MatchSymbolSeq const> pendingMatchSymbolSeq_;
   Kel::Ptr<SubRouteMapSymbolSeq const> pendingSubRouteMapSymbolSeq_;
   Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier_;
   std::unordered_map<Routing::RouteMap::MatchOption, Kel::Ptr<PolicyMatchSymbolNotifierMap>>
       matchSymbolNotifierColl_;
   std::unordered_map<Routing::RouteMap::MatchOption, NotifierMap> matchSymNotifierMap_;
   MatchSeqReactor matchSeqReactor_;
   SubSeqReactor subSeqReactor_;
   SubSymbolReactor subRouteMapSymbolNotifier_;
};

}  // namespace Routing::Policy
