#pragma once
// A small agent for the compiler tests: sequence machines that translate permit, "match tag",
// "set tag", continue and the sub-route-map into change records, follow the called route map's
// symbol into the mailbox, and copy entries into the filtered configuration. The library's full
// translation is not needed to exercise the compiler, only something that fills its records the
// way a real machine does.

#include <string>
#include <utility>
#include <vector>

#include "Kel/Machine.h"
#include "Kel/Trace.h"
#include "Orb/Task.h"
#include "RoutingPolicy/config/RouteMapConfigSm.h"
#include "RoutingPolicy/eval/Policy.h"
#include "../RouteMapEdits.h"

namespace compiler_test {

using namespace rm_edit;

using namespace Routing::Policy;
using Routing::RouteMap::Config;
using Routing::RouteMap::Map;
using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::MatchRule;
using Routing::RouteMap::SetOption;

class TestSymbolSeqSm : public RmSeqConfigSymbolSmBase {
public:
   TestSymbolSeqSm(const Kel::String& rmName, Kel::Ptr<MapEntry const> entry,
                   Kel::Ptr<RouteMapSymbol> rmSymbol, Kel::Ptr<PolicyRoot const> policyRoot,
                   Kel::Ptr<RmConfigSymbolReactor> mailbox)
       : RmSeqConfigSymbolSmBase(rmName, entry, std::move(rmSymbol), std::move(mailbox)),
         entry_(std::move(entry)),
         policyRoot_(std::move(policyRoot)),
         subSeqReactor_(this),
         calleeReactor_(this) {}

   bool matchRuleSupported(MatchOption o) const override { return o == MatchOption::matchTag; }

   void handlePermit() override { sequenceChange()->permitChangeIs(true); }
   void handleMatchRule(MatchOption o) override {
      if (o != MatchOption::matchTag) return;
      Kel::Ptr<Matcher const> m;
      if (entry_->matchRuleHas(o))
         m = tagMatcherFactory(Routing::RouteTag(entry_->matchRule(o).tag()));
      sequenceChange()->matcherChangeIs(o)->matcherIs(std::move(m));
   }
   void handleSetFlags() override {
      handleTag();
      handleContinueSeq();
   }
   void handleTag() override {
      Kel::Ptr<Setter const> s;
      if (entry_->setFlags() & MapEntry::tagFlag) s = tagSetterFactory(entry_->tag());
      sequenceChange()->setterChangeIs(SetOption::setTag)->setterIs(std::move(s));
   }
   void handleContinueSeq() override {
      const bool has = (entry_->setFlags() & MapEntry::continueFlag) != 0;
      auto c = continueChangeFactory(has);
      c->continueSeqIs(has ? entry_->continueSeq() : 0);
      sequenceChange()->continueChangeIs(std::move(c));
   }
   void handleSubRouteMap() override {
      Kel::Ptr<RouteMapSymbol const> sym;
      if (!entry_->subRouteMap().empty()) {
         sym = routeMapSymbolFactory(entry_->subRouteMap())->dedup(policyRoot_->routeMapTable());
      }
      sequenceChangeSym()->subRouteMapChangeSymbolIs(subRouteMapChangeSymbolFactory(sym));
   }

protected:
   void handleInitialized() override {
      RmSeqConfigSymbolSmBase::handleInitialized();
      handlePermit();
      for (const auto& [o, rule] : entry_->matchRules()) handleMatchRule(o);
      if (entry_->setFlags() & MapEntry::tagFlag) handleTag();
      if (entry_->setFlags() & MapEntry::continueFlag) handleContinueSeq();
      if (!entry_->subRouteMap().empty()) handleSubRouteMap();
      subSeqReactor_.notifierIs(subRmSymSeq());
   }

private:
   // Follows which route map the sequence calls, as the compiler records it.
   struct SubSeqReactor : SubRouteMapSymbolSeq::Reactor {
      explicit SubSeqReactor(TestSymbolSeqSm* o) : owner(o) {}
      void handleSymbol() override { owner->calleeReactor_.notifierIs(notifier()->symbol()); }
      TestSymbolSeqSm* owner;
   };
   // Leaves every new status of the called route map in the mailbox.
   struct CalleeReactor : Routing::RouteMap::PolicySymbol::Reactor {
      explicit CalleeReactor(TestSymbolSeqSm* o) : owner(o) {}
      void handleVersion() override {
         auto callee = static_cast<const RouteMapSymbol*>(notifier().get());
         auto pending = owner->rmConfigSymbolReactor()->pendingUpdateIs(owner->entry_->seqno());
         pending->hasSubRouteMapUpdateIs(true);
         pending->subRouteMapStatusIs(callee->rmStatus());
      }
      TestSymbolSeqSm* owner;
   };

   Kel::Ptr<MapEntry const> entry_;
   Kel::Ptr<PolicyRoot const> policyRoot_;
   SubSeqReactor subSeqReactor_;
   CalleeReactor calleeReactor_;
};

class TestFilterSeqSm : public RmSeqConfigFilterSmBase {
public:
   using RmSeqConfigFilterSmBase::RmSeqConfigFilterSmBase;

   bool matchRuleSupported(MatchOption o) const override { return o == MatchOption::matchTag; }
   void handlePermit() override { copy(); }
   void handleMatchRule(MatchOption) override { copy(); }
   void handleSetFlags() override { copy(); }
   void handleTag() override { copy(); }
   void handleContinueSeq() override { copy(); }
   void handleSubRouteMap() override { copy(); }

protected:
   void handleInitialized() override { copy(); }

private:
   void copy() {
      const auto in = seqConfig();
      const auto& out = filteredSeqConfig();
      out->permitIs(in->permit());
      out->matchRuleDelAll();
      for (const auto& [o, rule] : in->matchRules()) out->matchRuleIs(rule);
      out->tagIs(in->tag());
      out->continueSeqIs(in->continueSeq());
      out->setFlagsIs(in->setFlags());
      out->subRouteMapIs(in->subRouteMap(), in->subRouteMapInvert());
   }
};

class TestSymbolHelper : public RmConfigSymbolSmHelperBase {
public:
   Kel::Ptr<RmSeqConfigSymbolSmBase> createSeqConfigSm(
       const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
       Kel::Ptr<RouteMapSymbol> rmSymbol, Kel::Ptr<PolicyRoot const> policyRoot,
       Kel::Ptr<RmConfigSymbolReactor> mailbox, Kel::Ptr<RouteMapOpModeNotifier const>) override {
      return Kel::create<TestSymbolSeqSm>(rmName, std::move(seqConfig), std::move(rmSymbol),
                                          std::move(policyRoot), std::move(mailbox));
   }
};

class TestFilterHelper : public RmConfigFilterSmHelperBase {
public:
   Kel::Ptr<RmSeqConfigFilterSmBase> createSeqConfigSm(
       const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
       Kel::Ptr<MapEntry> filteredSeqConfig, Config* filteredRmConfig,
       Kel::Ptr<RouteMapBlockedSequenceList> blocked,
       Kel::Ptr<RouteMapUpdateNotifier const> notifier) override {
      return Kel::create<TestFilterSeqSm>(rmName, std::move(seqConfig),
                                          std::move(filteredSeqConfig), filteredRmConfig,
                                          std::move(blocked), std::move(notifier));
   }
};

// One agent: input configuration, filtered output, symbols and the reactor over them.
struct World {
   Kel::Ptr<PolicyRoot> root = policyRootFactory();
   Kel::Ptr<Config> config = Routing::RouteMap::configFactory();
   Kel::Ptr<Config> filtered = Routing::RouteMap::configFactory();
   Kel::Ptr<AllRouteMapSymbol> symbols = allRouteMapSymbolFactory();
   Kel::Ptr<Orb::TaskScheduler> scheduler = Orb::taskSchedulerFactory();
   Kel::Ptr<RouteMapConfigSm> sm;

   void start() {
      sm =
          routeMapConfigSmFactory(config, filtered, symbols, root, Kel::makePtr<TestFilterHelper>(),
                                  Kel::makePtr<TestSymbolHelper>(), scheduler);
   }
   void run() { scheduler->runUntilIdle(); }
   // Configuration changes reach the compiled route map at the next version, as an agent
   // commits a batch of edits.
   void commit(const Kel::Name& name) {
      if (auto m = config->routeMap(name)) m->versionIs(m->version() + 1);
   }
   Kel::Ptr<RouteMapSymbol> symbol(const Kel::Name& name) const {
      return routeMapSymbolFactory(name)->dedup(root->routeMapTable());
   }
   Kel::Ptr<RouteMapStatus const> status(const Kel::Name& name) const {
      return symbol(name)->rmStatus();
   }
};

struct Outcome {
   bool permit;
   U32 tag;
   bool operator==(const Outcome&) const = default;
};

inline Outcome evaluate(const Kel::Ptr<RouteMapStatus const>& rm, U32 routeTag) {
   static const Kel::Ptr<PolicyEval> eval = policyEvalFactory();
   MatchInput_ in;
   in.tagIs(Routing::RouteTag(routeTag));
   MatchedRouteMapSequences matched;
   Result_ result;
   const bool permit = eval->evalRouteMapMatchers(&in, rm.get(), &matched);
   if (permit) eval->applyPolicySetters(&matched, &result);
   return {permit, permit ? static_cast<U32>(result.tag().value()) : 0};
}

// Collects the lines of one trace handle for the life of the object.
class TraceCapture {
public:
   explicit TraceCapture(const char* handle) : handle_(handle) {
      Kel::Trace::levelIs(handle_, 8);
      Kel::Trace::sinkIs([this](std::string_view line) { lines.emplace_back(line); });
   }
   ~TraceCapture() {
      Kel::Trace::sinkIs({});
      Kel::Trace::levelIs(handle_, -1);
   }
   // Index of the first line at or after `from` that contains `text`, or -1.
   int find(const std::string& text, int from = 0) const {
      for (int i = from; i < static_cast<int>(lines.size()); ++i) {
         if (lines[i].find(text) != std::string::npos) return i;
      }
      return -1;
   }
   std::vector<std::string> lines;

private:
   const char* handle_;
};

}  // namespace compiler_test
