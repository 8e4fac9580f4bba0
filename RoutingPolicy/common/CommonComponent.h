#pragma once
// What the common component can evaluate, and the helpers through which an agent that evaluates
// route maps with the common component plugs its sequence machines into the compiler.
//
// The common component understands only a few match rules; matchRuleSupported is the one place
// that says which, so the compiling and the filtering machines can never disagree about it.

#include <sstream>
#include <string>

#include <iosfwd>
#include <memory>

#include "Orb/Dump.h"
#include "Routing/RouteMap/Config.h"
#include "Routing/RouteMap/Options.h"
#include "RoutingPolicy/config/RouteMapConfigSmBase.h"
#include "RoutingPolicy/config/RouteMapSeqConfigSmBase.h"

namespace Routing::Policy {

// Printed form of an optional object for traces: "None" when absent.
template <class T>
std::string textOf(const T* p) {
   if (!p) return "None";
   std::ostringstream os;
   os << *p;
   return os.str();
}

class CommonComponentRmSeqConfigSmInterface : public RmSeqConfigSmInterface {
public:
   // Access lists only while "RoutingPolicyIpAclToggle" is on; prefix lists of both families,
   // source protocol and tag always.
   bool matchRuleSupported(Routing::RouteMap::MatchOption option) const override;
   void dumpState(Orb::DumpContext& ctx, U32 indent) const override;
   virtual void dumpCtx(Orb::DumpContext& ctx, U32 indent) const;
};

// The answer of CommonComponentRmSeqConfigSmInterface::matchRuleSupported, for machines that
// cannot derive from the interface (the agent's machines derive from the compiler's bases).
bool commonComponentMatchRuleSupported(Routing::RouteMap::MatchOption option);

// Follows one configured entry and hands its changes to the derived machine's handlers.
class CommonComponentRmSeqConfigSmBase : public CommonComponentRmSeqConfigSmInterface,
                                         public RmSeqConfigHandlers {
public:
   explicit CommonComponentRmSeqConfigSmBase(Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig);
   ~CommonComponentRmSeqConfigSmBase() override;

   // The entry stays readable after seqConfigDel; only the reactions stop.
   const Kel::Ptr<Routing::RouteMap::MapEntry const>& seqConfig() const { return seqConfig_; }
   U32 seqno() const { return seqConfig_ ? seqConfig_->seqno() : 0; }
   bool seqConfigFollowed() const { return reactor_ != nullptr; }
   void seqConfigDel() { reactor_.reset(); }

protected:
   // Runs every handler once, so the output reflects the whole entry. Match rules the common
   // component cannot evaluate are left alone: at start there is nothing of theirs to remove.
   void handleInitialized() override;

private:
   Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig_;
   std::unique_ptr<RmSeqConfigReactor> reactor_;
};

class CommonComponentRmSeqConfigSymbolSm;
class CommonComponentRmSeqConfigFilterSm;
class CommonComponentSymbolSeqSm;

// Which match rules the agent's sequence machines pass on, and the machines that translate,
// follow and filter one sequence. As it stands it is the common component; an agent that
// evaluates more options derives from it (and from the three machines) and hands its own to the
// helpers below, so the forwarding, the sub-route-map handling and the list following stay here.
class CommonComponentSeqSmFactory : public Kel::RefCounted {
public:
   virtual bool matchRuleSupported(Routing::RouteMap::MatchOption option) const;
   virtual Kel::Ptr<CommonComponentRmSeqConfigSymbolSm> symbolSm(
       const Kel::String& rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<SequenceChange> sequenceChange, Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym,
       Kel::Ptr<PolicyRoot const> policyRoot,
       Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) const;
   virtual Kel::Ptr<CommonComponentSymbolSeqSm> symbolSeqSm(
       const Kel::String& rmName, U32 seqno, Kel::Ptr<RouteMapSymbol const> rmSymbol,
       Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
       Kel::Ptr<MatchSymbolSeq const> matchSymbolSeq,
       Kel::Ptr<SubRouteMapSymbolSeq const> subRouteMapSymbolSeq,
       Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) const;
   virtual Kel::Ptr<CommonComponentRmSeqConfigFilterSm> filterSm(
       const Kel::String& rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<Routing::RouteMap::MapEntry> filteredSeqConfig,
       Routing::RouteMap::Config* filteredRmConfig,
       Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
       Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier) const;
};

// Builds the compiling machine of each sequence on the compiler's base, delegating the
// translation to CommonComponentRmSeqConfigSymbolSm and the following of referenced lists and
// route maps to CommonComponentSymbolSeqSm (or to what `factory` makes instead).
class CommonComponentRmConfigSymbolSmHelper : public RmConfigSymbolSmHelperBase {
public:
   // Null: the common component's own machines.
   explicit CommonComponentRmConfigSymbolSmHelper(
       Kel::Ptr<CommonComponentSeqSmFactory const> factory = nullptr);
   Kel::Ptr<RmSeqConfigSymbolSmBase> createSeqConfigSm(
       const Kel::String& rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<RouteMapSymbol> rmSymbol, Kel::Ptr<PolicyRoot const> policyRoot,
       Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
       Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) override;

private:
   Kel::Ptr<CommonComponentSeqSmFactory const> factory_;
};

// Builds the filtering machine of each sequence, delegating to CommonComponentRmSeqConfigFilterSm
// (or to what `factory` makes instead).
class CommonComponentRmConfigFilterSmHelper : public RmConfigFilterSmHelperBase {
public:
   // Null: the common component's own machines.
   explicit CommonComponentRmConfigFilterSmHelper(
       Kel::Ptr<CommonComponentSeqSmFactory const> factory = nullptr);
   Kel::Ptr<RmSeqConfigFilterSmBase> createSeqConfigSm(
       const Kel::String& rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<Routing::RouteMap::MapEntry> filteredSeqConfig,
       Routing::RouteMap::Config* filteredRmConfig,
       Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
       Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier) override;

private:
   Kel::Ptr<CommonComponentSeqSmFactory const> factory_;
};

Kel::Ptr<CommonComponentRmConfigSymbolSmHelper> commonComponentRmConfigSymbolSmHelperFactory(
    Kel::Ptr<CommonComponentSeqSmFactory const> factory = nullptr);
Kel::Ptr<CommonComponentRmConfigFilterSmHelper> commonComponentRmConfigFilterSmHelperFactory(
    Kel::Ptr<CommonComponentSeqSmFactory const> factory = nullptr);

}  // namespace Routing::Policy
