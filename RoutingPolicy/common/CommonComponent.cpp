#include "RoutingPolicy/common/CommonComponent.h"

#include <ostream>

#include "Kel/Machine.h"
#include "Kel/Trace.h"
#include "RoutingPolicy/acl/RoutingPolicyAcl.h"
#include "RoutingPolicy/common/CommonComponentRouteMapSeqConfigSm.h"
#include "RoutingPolicy/common/CommonComponentSymbolSeqSm.h"

KEL_TRACE_HANDLE("CommonComponent");

namespace Routing::Policy {

using Routing::RouteMap::Config;
using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;

namespace {

bool supported(MatchOption option, const std::string& who) {
   KTRACE(8, who, "option: " << static_cast<U32>(option));
   switch (option) {
      case MatchOption::matchIpAddressPrefixList:
      case MatchOption::matchSourceProtocol:
      case MatchOption::matchTag:
      case MatchOption::matchIpv6AddressPrefixList:
         return true;
      case MatchOption::matchIpAddressAccessList:
         if (ipAclToggleEnabled()) return true;
         KTRACE(8, who, "option toggle not enabled: " << static_cast<U32>(option));
         return false;
      default:
         return false;
   }
}

}  // namespace

bool commonComponentMatchRuleSupported(MatchOption option) {
   return supported(option, "CommonComponent");
}

// --- CommonComponentRmSeqConfigSmInterface

bool CommonComponentRmSeqConfigSmInterface::matchRuleSupported(MatchOption option) const {
   return supported(option, Kel::detail::traceMachineText(*this));
}

void CommonComponentRmSeqConfigSmInterface::dumpState(Orb::DumpContext& ctx, U32 indent) const {
   dumpCtx(ctx, indent);
}

void CommonComponentRmSeqConfigSmInterface::dumpCtx(Orb::DumpContext& ctx, U32 indent) const {
   Orb::BaseOutputSm::dumpState(ctx, indent);
}

// --- CommonComponentRmSeqConfigSmBase

CommonComponentRmSeqConfigSmBase::CommonComponentRmSeqConfigSmBase(
    Kel::Ptr<MapEntry const> seqConfig)
    : seqConfig_(std::move(seqConfig)) {}

CommonComponentRmSeqConfigSmBase::~CommonComponentRmSeqConfigSmBase() {
   reactor_.reset();
}

void CommonComponentRmSeqConfigSmBase::handleInitialized() {
   if (!seqConfig_) return;
   handlePermit();
   handleSetFlags();
   for (const auto& [index, text] : seqConfig_->descriptions()) handleDescription(index);
   handleDistance();
   handleMetric();
   handleContinueSeq();
   handleTag();
   handleSubRouteMap();
   for (const auto& [option, rule] : seqConfig_->matchRules()) {
      if (matchRuleSupported(option)) handleMatchRule(option);
   }
   // Bound last, so nothing is heard before the entry has been read once.
   reactor_ = std::make_unique<RmSeqConfigReactor>(*this, *this);
   reactor_->notifierIs(seqConfig_);
}

// --- the agent's machines

namespace {

// The compiler's records stay with the base; the common-component machines fill and follow them.
// Match rules of options the common component cannot evaluate stop here, so they never reach the
// translating machine, for which they would be a programming error.
// The agent's machines hear the entry and hand each change to the common-component machine they
// wrap (`sm_`), which has dropped its own entry reactor. Match rules are forwarded by each class,
// since the symbol side filters them and the filter side does not.
template <class Base, class Sm>
class EntryForwarder : public Base {
public:
   using Base::Base;

   void handlePermit() override {
      if (sm_) sm_->handlePermit();
   }
   void handleSetFlags() override {
      if (sm_) sm_->handleSetFlags();
   }
   void handleTag() override {
      if (sm_) sm_->handleTag();
   }
   void handleDistance() override {
      if (sm_) sm_->handleDistance();
   }
   void handleMetric() override {
      if (sm_) sm_->handleMetric();
   }
   void handleContinueSeq() override {
      if (sm_) sm_->handleContinueSeq();
   }
   void handleSubRouteMap() override {
      if (sm_) sm_->handleSubRouteMap();
   }
   void handleDescription(U32 index) override {
      if (sm_) sm_->handleDescription(index);
   }

protected:
   Kel::Ptr<Sm> sm_;
};

class CommonComponentSeqSymbolSm
    : public EntryForwarder<RmSeqConfigSymbolSmBase, CommonComponentRmSeqConfigSymbolSm> {
public:
   CommonComponentSeqSymbolSm(const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
                              Kel::Ptr<RouteMapSymbol> rmSymbol,
                              Kel::Ptr<PolicyRoot const> policyRoot,
                              Kel::Ptr<RmConfigSymbolReactor> mailbox,
                              Kel::Ptr<RouteMapOpModeNotifier const> opMode,
                              Kel::Ptr<CommonComponentSeqSmFactory const> factory)
       : EntryForwarder(rmName, std::move(seqConfig), std::move(rmSymbol), std::move(mailbox)),
         policyRoot_(std::move(policyRoot)),
         opMode_(std::move(opMode)),
         factory_(std::move(factory)) {}
   ~CommonComponentSeqSymbolSm() override {
      symbolSeqSm_ = nullptr;
      sm_ = nullptr;
   }

   bool matchRuleSupported(MatchOption o) const override { return factory_->matchRuleSupported(o); }
   void seqConfigIs(Kel::Ptr<MapEntry const> entry) override {
      RmSeqConfigSymbolSmBase::seqConfigIs(std::move(entry));
      if (initialized()) build();
   }
   void seqConfigDel() override {
      RmSeqConfigSymbolSmBase::seqConfigDel();
      symbolSeqSm_ = nullptr;
      sm_ = nullptr;
   }

   void handleMatchRule(MatchOption o) override {
      if (sm_ && matchRuleSupported(o)) sm_->handleMatchRule(o);
   }

protected:
   void handleInitialized() override {
      RmSeqConfigSymbolSmBase::handleInitialized();
      build();
   }

private:
   void build() {
      symbolSeqSm_ = nullptr;
      sm_ = nullptr;
      const Kel::Ptr<MapEntry const> entry = seqConfig();
      if (!entry) return;
      sm_ = factory_->symbolSm(rmName(), entry, sequenceChange(), sequenceChangeSym(), policyRoot_,
                               opMode_);
      // This machine hears the entry and filters what reaches the translating one.
      sm_->seqConfigDel();
      symbolSeqSm_ =
          factory_->symbolSeqSm(rmName(), entry->seqno(), rmSymbol(), rmConfigSymbolReactor(),
                                matchSymSeq(), subRmSymSeq(), opMode_);
   }

   Kel::Ptr<PolicyRoot const> policyRoot_;
   Kel::Ptr<RouteMapOpModeNotifier const> opMode_;
   Kel::Ptr<CommonComponentSeqSmFactory const> factory_;
   Kel::Ptr<CommonComponentSymbolSeqSm> symbolSeqSm_;
};

class CommonComponentSeqFilterSm
    : public EntryForwarder<RmSeqConfigFilterSmBase, CommonComponentRmSeqConfigFilterSm> {
public:
   CommonComponentSeqFilterSm(const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
                              Kel::Ptr<MapEntry> filteredSeqConfig, Config* filteredRmConfig,
                              Kel::Ptr<RouteMapBlockedSequenceList> blocked,
                              Kel::Ptr<RouteMapUpdateNotifier const> updateNotifier,
                              Kel::Ptr<CommonComponentSeqSmFactory const> factory)
       : EntryForwarder(rmName, std::move(seqConfig), std::move(filteredSeqConfig),
                        filteredRmConfig, std::move(blocked), std::move(updateNotifier)),
         factory_(std::move(factory)) {}
   ~CommonComponentSeqFilterSm() override { sm_ = nullptr; }

   bool matchRuleSupported(MatchOption o) const override { return factory_->matchRuleSupported(o); }
   void seqConfigIs(Kel::Ptr<MapEntry const> entry) override {
      RmSeqConfigFilterSmBase::seqConfigIs(std::move(entry));
      if (initialized()) build();
   }
   void seqConfigDel() override {
      RmSeqConfigFilterSmBase::seqConfigDel();
      sm_ = nullptr;
   }

   // The filtering machine removes what it may not copy, so it hears every option.
   void handleMatchRule(MatchOption o) override {
      if (sm_) sm_->handleMatchRule(o);
   }

protected:
   void handleInitialized() override { build(); }

private:
   void build() {
      sm_ = nullptr;
      const Kel::Ptr<MapEntry const> entry = seqConfig();
      if (!entry) return;
      sm_ = factory_->filterSm(rmName(), entry, filteredSeqConfig(), filteredRmConfig(),
                               routeMapBlockedSequenceList(), routeMapUpdateNotifier());
      sm_->seqConfigDel();
   }

   Kel::Ptr<CommonComponentSeqSmFactory const> factory_;
};

// The machines made for every agent that does not bring its own.
const Kel::Ptr<CommonComponentSeqSmFactory const>& defaultFactory() {
   static const Kel::Ptr<CommonComponentSeqSmFactory const> factory =
       Kel::makePtr<CommonComponentSeqSmFactory>();
   return factory;
}

}  // namespace

// --- CommonComponentSeqSmFactory

bool CommonComponentSeqSmFactory::matchRuleSupported(MatchOption option) const {
   return commonComponentMatchRuleSupported(option);
}

Kel::Ptr<CommonComponentRmSeqConfigSymbolSm> CommonComponentSeqSmFactory::symbolSm(
    const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
    Kel::Ptr<SequenceChange> sequenceChange, Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym,
    Kel::Ptr<PolicyRoot const> policyRoot,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) const {
   return Kel::create<CommonComponentRmSeqConfigSymbolSm>(
       rmName, std::move(seqConfig), std::move(sequenceChange), std::move(sequenceChangeSym),
       std::move(policyRoot), std::move(routeMapOpModeNotifier));
}

Kel::Ptr<CommonComponentSymbolSeqSm> CommonComponentSeqSmFactory::symbolSeqSm(
    const Kel::String& rmName, U32 seqno, Kel::Ptr<RouteMapSymbol const> rmSymbol,
    Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
    Kel::Ptr<MatchSymbolSeq const> matchSymbolSeq,
    Kel::Ptr<SubRouteMapSymbolSeq const> subRouteMapSymbolSeq,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) const {
   return Kel::create<CommonComponentSymbolSeqSm>(
       rmName, seqno, std::move(rmSymbol), std::move(rmConfigSymbolReactor),
       std::move(matchSymbolSeq), std::move(subRouteMapSymbolSeq),
       std::move(routeMapOpModeNotifier));
}

Kel::Ptr<CommonComponentRmSeqConfigFilterSm> CommonComponentSeqSmFactory::filterSm(
    const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
    Kel::Ptr<MapEntry> filteredSeqConfig, Config* filteredRmConfig,
    Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
    Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier) const {
   return Kel::create<CommonComponentRmSeqConfigFilterSm>(
       rmName, std::move(seqConfig), std::move(filteredSeqConfig), filteredRmConfig,
       std::move(routeMapBlockedSequenceList), std::move(routeMapUpdateNotifier));
}

// --- the helpers

CommonComponentRmConfigSymbolSmHelper::CommonComponentRmConfigSymbolSmHelper(
    Kel::Ptr<CommonComponentSeqSmFactory const> factory)
    : factory_(factory ? std::move(factory) : defaultFactory()) {}

CommonComponentRmConfigFilterSmHelper::CommonComponentRmConfigFilterSmHelper(
    Kel::Ptr<CommonComponentSeqSmFactory const> factory)
    : factory_(factory ? std::move(factory) : defaultFactory()) {}

Kel::Ptr<RmSeqConfigSymbolSmBase> CommonComponentRmConfigSymbolSmHelper::createSeqConfigSm(
    const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
    Kel::Ptr<RouteMapSymbol> rmSymbol, Kel::Ptr<PolicyRoot const> policyRoot,
    Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) {
   return Kel::create<CommonComponentSeqSymbolSm>(
       rmName, std::move(seqConfig), std::move(rmSymbol), std::move(policyRoot),
       std::move(rmConfigSymbolReactor), std::move(routeMapOpModeNotifier), factory_);
}

Kel::Ptr<RmSeqConfigFilterSmBase> CommonComponentRmConfigFilterSmHelper::createSeqConfigSm(
    const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
    Kel::Ptr<MapEntry> filteredSeqConfig, Config* filteredRmConfig,
    Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
    Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier) {
   return Kel::create<CommonComponentSeqFilterSm>(
       rmName, std::move(seqConfig), std::move(filteredSeqConfig), filteredRmConfig,
       std::move(routeMapBlockedSequenceList), std::move(routeMapUpdateNotifier), factory_);
}

Kel::Ptr<CommonComponentRmConfigSymbolSmHelper> commonComponentRmConfigSymbolSmHelperFactory(
    Kel::Ptr<CommonComponentSeqSmFactory const> factory) {
   return Kel::makePtr<CommonComponentRmConfigSymbolSmHelper>(std::move(factory));
}

Kel::Ptr<CommonComponentRmConfigFilterSmHelper> commonComponentRmConfigFilterSmHelperFactory(
    Kel::Ptr<CommonComponentSeqSmFactory const> factory) {
   return Kel::makePtr<CommonComponentRmConfigFilterSmHelper>(std::move(factory));
}

}  // namespace Routing::Policy
