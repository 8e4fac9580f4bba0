#pragma once
// Route-map compilation, per route map and for the whole configuration:
//
// - RouteMapConfigSymbolSm compiles one route map into the RouteMapStatus its symbol publishes.
//   Configuration changes wait in the sequence machines' change records until the map's version
//   moves on; rebuilt clauses of referenced symbols wait in the route map's RmConfigSymbolReactor
//   until the "RouteMapSymbolUpdate" task runs. Either way only the touched sequences are copied
//   and the new route map shares every other sequence with the old one.
// - RouteMapConfigFilterSm writes the route map into the filtered configuration, holding back
//   its version while a sequence is blocked.
// - RouteMapConfigSm follows the configuration and keeps one of each, plus the symbol and the
//   mailbox, per route map. Deletions run later in the "RouteMapDelete" task.

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

#include "Orb/BaseOutputSm.h"
#include "Orb/Task.h"
#include "Routing/RouteMap/Config.h"
#include "RoutingPolicy/config/Policy.h"
#include "RoutingPolicy/config/RouteMapConfigSmBase.h"
#include "RoutingPolicy/config/RouteMapSeqConfigSmBase.h"
#include "RoutingPolicy/status/RouteMapSymbol.h"

namespace Routing::Policy {

// Applies what a symbol change rebuilt for one sequence.
void addPendingUpdatesToSeqStatus(const Kel::Ptr<RouteMapSeqStatus>& seqStatus,
                                  const Kel::Ptr<PendingSymbolUpdate const>& pending);

class RouteMapConfigSymbolSm : public RouteMapConfigSmBase {
public:
   using SeqConfigSmColl = Kel::Collection<U32, Kel::Ptr<RmSeqConfigSymbolSmBase>>;
   using UndefinedReferenceSeqColl = Kel::Collection<U32, U8>;

   RouteMapConfigSymbolSm(Kel::Ptr<Routing::RouteMap::Map const> routeMap,
                          Kel::Ptr<RouteMapSymbol> rmSymbol, Kel::Ptr<PolicyRoot const> policyRoot,
                          Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
                          Kel::Ptr<RmConfigSymbolSmHelperBase> rmConfigSymbolHelper,
                          Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier,
                          Kel::Ptr<Orb::TaskScheduler> rmUpdateTaskScheduler,
                          Kel::Ptr<RouteMapBlockedSequenceList const> blockedSequences = nullptr);
   ~RouteMapConfigSymbolSm() override;

   // The sequences the filtered copy of this route map holds back because their call would close
   // a cycle. Such a sequence is compiled without its call, as the filtered configuration has it,
   // and gets the call when it is released.
   const Kel::Ptr<RouteMapBlockedSequenceList const>& blockedSequences() const {
      return blockedReactor_.notifier();
   }
   bool sequenceBlocked(U32 seqno) const;

   // The compilers of the other route maps, by name, so that a rebuild can bring the route maps
   // it calls up to date first (see handleRouteMapSymbolUpdateTask).
   using PeerLookup = std::function<RouteMapConfigSymbolSm*(const Kel::Name&)>;
   void peerLookupIs(PeerLookup lookup) { peerLookup_ = std::move(lookup); }
   // Whether rebuilt clauses wait in the mailbox.
   bool hasPendingSymbolUpdates() const {
      return !rmConfigSymbolReactor_->pendingUpdates().empty();
   }

   const Kel::Ptr<RouteMapSymbol>& rmSymbol() const { return rmSymbol_; }
   const Kel::Ptr<PolicyRoot const>& policyRoot() const { return policyRoot_; }
   const Kel::Ptr<RmConfigSymbolReactor>& rmConfigSymbolReactor() const {
      return rmConfigSymbolReactor_;
   }
   const Kel::Ptr<Orb::Task>& routeMapSymbolUpdateTask() const { return routeMapSymbolUpdateTask_; }

   Kel::Ptr<RmSeqConfigSymbolSmBase> seqConfigSm(U32 seqno) const {
      return seqConfigSm_.get(seqno);
   }
   const SeqConfigSmColl& seqConfigSms() const { return seqConfigSm_; }
   void seqConfigSmIs(U32 seqno, Kel::Ptr<RmSeqConfigSymbolSmBase> sm);
   void seqConfigSmDel(U32 seqno);
   void seqConfigSmDelAll();

   U8 undefinedReferenceSeq(U32 seqno) const { return undefinedReferenceSeq_.get(seqno); }
   const UndefinedReferenceSeqColl& undefinedReferenceSeqs() const {
      return undefinedReferenceSeq_;
   }
   void undefinedReferenceSeqIs(U32 seqno, U8 mask) { undefinedReferenceSeq_.set(seqno, mask); }
   void undefinedReferenceSeqDel(U32 seqno) { undefinedReferenceSeq_.del(seqno); }
   void undefinedReferenceSeqDelAll() {
      undefinedReferenceSeq_.delAll([](U32) {});
   }

   using RouteMapConfigSmBase::handleRouteMapSeq;
   void handleRouteMapSeq(U32 seqno) override;
   void handleVersion() override;
   // Applies what waits in the mailbox. The route maps this one calls go first when they have
   // rebuilds waiting too, deepest first, so that one change travels up a chain of calls once
   // instead of once per route map it passes.
   void handleRouteMapSymbolUpdateTask();
   // The mailbox of this route map alone, published as one rebuild.
   void applyPendingSymbolUpdates();

   bool hasModifiedSequence() const;
   void updateRmStatusAndSymbol(const Kel::Ptr<ModifiedRouteMapSeqStatusList>& list);
   U32 targetSeqnoForOrigin(U32 originSeqno,
                            const Kel::Ptr<ModifiedRouteMapSeqStatusList const>& list) const;
   void maybeCloneSeqStatusToModifiedList(U32 seqno, U32 targetSeqno,
                                          const Kel::Ptr<ModifiedRouteMapSeqStatusList>& list);
   void updateUndefinedReferenceSeq(U32 seqno,
                                    const Kel::Ptr<ModifiedRouteMapSeqStatusList const>& list);

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;

private:
   class PendingReactor : public RmConfigSymbolReactor::Reactor {
   public:
      explicit PendingReactor(RouteMapConfigSymbolSm* owner) : owner_(owner) {}
      void handlePendingUpdate(U32) override;

   private:
      RouteMapConfigSymbolSm* owner_;
   };

   class BlockedReactor : public RouteMapBlockedSequenceList::Reactor {
   public:
      explicit BlockedReactor(RouteMapConfigSymbolSm* owner) : owner_(owner) {}
      void handleSequence(U32 seqno) override { owner_->handleBlockedSequence(seqno); }

   private:
      RouteMapConfigSymbolSm* owner_;
   };
   void handleBlockedSequence(U32 seqno);
   // Whether a sub-route-map status that a follower left in the mailbox is still the call the
   // sequence makes: the call it follows is the one configured, and it is not held back.
   bool subRouteMapUpdateApplies(U32 seqno) const;
   // The compilers of the route maps this one calls that have rebuilds waiting.
   std::vector<RouteMapConfigSymbolSm*> pendingCallees() const;

   // Hears every change a sequence machine records, so that a version change visits the
   // sequences that recorded something instead of every sequence of the map.
   class ChangeWatch : public SequenceChange::Reactor, public SequenceChangeSymbol::Reactor {
   public:
      ChangeWatch(RouteMapConfigSymbolSm* owner, U32 seqno) : owner_(owner), seqno_(seqno) {}
      void handleMatcherChange(Routing::RouteMap::MatchOption) override { mark(); }
      void handleSetterChange(Routing::RouteMap::SetOption) override { mark(); }
      void handleContinueChange() override { mark(); }
      void handlePermitChange() override { mark(); }
      void handleMatcherChangeSymbol(Routing::RouteMap::MatchOption) override { mark(); }
      void handleSetterChangeSymbol(Routing::RouteMap::SetOption) override { mark(); }
      void handleSubRouteMapChangeSymbol() override { mark(); }

   private:
      void mark() {
         if (!owner_->folding_) owner_->dirtySeqs_.insert(seqno_);
      }
      RouteMapConfigSymbolSm* owner_;
      U32 seqno_;
   };

   // Per feature, how many compiled sequences have it, so that a rebuild recomputes the route
   // map's features from the sequences it touched rather than from all of them.
   void countFeatures(const RouteMapFeatures& f, int delta);
   void seqFeaturesIs(U32 seqno, const Kel::Ptr<RouteMapSeqStatus const>& seq);
   RouteMapFeatures countedFeatures() const;

   // The status a sequence will have once `list` is published; null when it will have none.
   Kel::Ptr<RouteMapSeqStatus const> seqStatusAfter(
       U32 seqno, const Kel::Ptr<ModifiedRouteMapSeqStatusList const>& list) const;
   void updateSymbolSeqs(const std::vector<U32>& seqnos);

   Kel::Ptr<RouteMapSymbol> rmSymbol_;
   Kel::Ptr<PolicyRoot const> policyRoot_;
   Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor_;
   Kel::Ptr<RmConfigSymbolSmHelperBase> rmConfigSymbolHelper_;
   Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier_;
   Kel::Ptr<Orb::TaskScheduler> rmUpdateTaskScheduler_;
   SeqConfigSmColl seqConfigSm_;
   UndefinedReferenceSeqColl undefinedReferenceSeq_;
   std::unordered_map<U32, std::unique_ptr<ChangeWatch>> changeWatch_;
   std::unordered_map<U32, RouteMapFeatures> seqFeatures_;
   std::array<U32, 7> featureCount_{};
   // Sequences that recorded a change since they were last folded in.
   std::set<U32> dirtySeqs_;
   // Set while the compiler clears records itself, which is no new change.
   bool folding_ = false;
   Kel::Ptr<Orb::Task> routeMapSymbolUpdateTask_;
   PendingReactor pendingReactor_;
   BlockedReactor blockedReactor_;
   Kel::Ptr<RouteMapBlockedSequenceList const> pendingBlocked_;
   PeerLookup peerLookup_;
   // The sequences that follow a called route map's symbol, for pendingCallees.
   std::set<U32> callingSeqs_;
};

Kel::Ptr<RouteMapConfigSymbolSm> routeMapConfigSymbolSmFactory(
    Kel::Ptr<Routing::RouteMap::Map const> routeMap, Kel::Ptr<RouteMapSymbol> rmSymbol,
    Kel::Ptr<PolicyRoot const> policyRoot, Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
    Kel::Ptr<RmConfigSymbolSmHelperBase> rmConfigSymbolHelper,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier,
    Kel::Ptr<Orb::TaskScheduler> rmUpdateTaskScheduler,
    Kel::Ptr<RouteMapBlockedSequenceList const> blockedSequences = nullptr);

class RouteMapConfigFilterSm : public RouteMapConfigSmBase {
public:
   using SeqConfigSmColl = Kel::Collection<U32, Kel::Ptr<RmSeqConfigFilterSmBase>>;

   // filteredRmConfig is not held: its owner outlives the machine.
   RouteMapConfigFilterSm(Kel::Ptr<Routing::RouteMap::Map const> routeMap,
                          Kel::Ptr<Routing::RouteMap::Map> filteredRouteMap,
                          Routing::RouteMap::Config* filteredRmConfig,
                          Kel::Ptr<RouteMapUpdateNotifier> routeMapUpdateNotifier,
                          Kel::Ptr<RmConfigFilterSmHelperBase> filterHelper);
   ~RouteMapConfigFilterSm() override;

   const Kel::Ptr<Routing::RouteMap::Map>& filteredRouteMap() const { return filteredRouteMap_; }
   const Kel::Ptr<RouteMapBlockedSequenceList>& routeMapBlockedSequenceList() const {
      return routeMapBlockedSequenceList_;
   }
   void routeMapBlockedSequenceListIs(Kel::Ptr<RouteMapBlockedSequenceList> list);

   Kel::Ptr<RmSeqConfigFilterSmBase> seqConfigSm(U32 seqno) const {
      return seqConfigSm_.get(seqno);
   }
   const SeqConfigSmColl& seqConfigSms() const { return seqConfigSm_; }
   void seqConfigSmIs(U32 seqno, Kel::Ptr<RmSeqConfigFilterSmBase> sm);
   void seqConfigSmDel(U32 seqno) { seqConfigSm_.del(seqno); }

   // Whether any sequence currently holds the filtered version back.
   bool sequenceBlocked() const;

   using RouteMapConfigSmBase::handleRouteMapSeq;
   void handleRouteMapSeq(U32 seqno) override;
   void handleVersion() override;

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;

private:
   // The last unblocked sequence releases a deferred version.
   class BlockedReactor : public RouteMapBlockedSequenceList::Reactor {
   public:
      explicit BlockedReactor(RouteMapConfigFilterSm* owner) : owner_(owner) {}
      void handleSequence(U32) override;

   private:
      RouteMapConfigFilterSm* owner_;
   };

   Kel::Ptr<Routing::RouteMap::Map> filteredRouteMap_;
   Routing::RouteMap::Config* filteredRmConfig_;
   Kel::Ptr<RouteMapUpdateNotifier> routeMapUpdateNotifier_;
   Kel::Ptr<RmConfigFilterSmHelperBase> filterHelper_;
   Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList_;
   bool seqnosVisited_ = false;
   SeqConfigSmColl seqConfigSm_;
   BlockedReactor blockedReactor_;
};

class RouteMapConfigSm : public Orb::BaseOutputSm {
public:
   using SymbolSmColl =
       Kel::Collection<Kel::Name, Kel::Ptr<RouteMapConfigSymbolSm>,
                       std::unordered_map<Kel::Name, Kel::Ptr<RouteMapConfigSymbolSm>>>;
   using FilterSmColl =
       Kel::Collection<Kel::Name, Kel::Ptr<RouteMapConfigFilterSm>,
                       std::unordered_map<Kel::Name, Kel::Ptr<RouteMapConfigFilterSm>>>;
   using NameSet = Kel::Collection<Kel::Name, bool, std::unordered_map<Kel::Name, bool>>;

   RouteMapConfigSm(Kel::Ptr<Routing::RouteMap::Config const> rmConfig,
                    Kel::Ptr<Routing::RouteMap::Config> filteredConfig,
                    Kel::Ptr<AllRouteMapSymbol> allRmSymbol, Kel::Ptr<PolicyRoot const> policyRoot,
                    Kel::Ptr<RmConfigFilterSmHelperBase> filterHelper,
                    Kel::Ptr<RmConfigSymbolSmHelperBase> symbolHelper,
                    Kel::Ptr<Orb::TaskScheduler> taskScheduler);
   ~RouteMapConfigSm() override;

   const Kel::Ptr<Routing::RouteMap::Config const>& rmConfig() const {
      return configReactor_.notifier();
   }
   const Kel::Ptr<Routing::RouteMap::Config>& filteredConfig() const { return filteredConfig_; }
   const Kel::Ptr<AllRouteMapSymbol>& allRmSymbol() const { return allRmSymbol_; }
   const Kel::Ptr<PolicyRoot const>& policyRoot() const { return policyRoot_; }
   const Kel::Ptr<RouteMapOpModeNotifier>& routeMapOpModeNotifier() const {
      return routeMapOpModeNotifier_;
   }
   const Kel::Ptr<RouteMapUpdateNotifier>& routeMapUpdateNotifier() const {
      return routeMapUpdateNotifier_;
   }
   const Kel::Ptr<RmConfigSymbolReactorColl>& rmConfigSymbolReactorColl() const {
      return rmConfigSymbolReactorColl_;
   }
   const Kel::Ptr<Orb::Task>& routeMapDeleteTask() const { return routeMapDeleteTask_; }

   Kel::Ptr<RouteMapConfigSymbolSm> routeMapConfigSymbolSm(const Kel::Name& name) const {
      return routeMapConfigSymbolSm_.get(name);
   }
   const SymbolSmColl& routeMapConfigSymbolSms() const { return routeMapConfigSymbolSm_; }
   Kel::Ptr<RouteMapConfigSymbolSm> routeMapConfigSymbolSmIs(
       Kel::Ptr<Routing::RouteMap::Map const> routeMap, Kel::Ptr<RouteMapSymbol> rmSymbol,
       Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor);
   void routeMapConfigSymbolSmDel(const Kel::Name& name) { routeMapConfigSymbolSm_.del(name); }
   void routeMapConfigSymbolSmDelAll() {
      routeMapConfigSymbolSm_.delAll([](const Kel::Name&) {});
   }

   Kel::Ptr<RouteMapConfigFilterSm> routeMapConfigFilterSm(const Kel::Name& name) const {
      return routeMapConfigFilterSm_.get(name);
   }
   const FilterSmColl& routeMapConfigFilterSms() const { return routeMapConfigFilterSm_; }
   Kel::Ptr<RouteMapConfigFilterSm> routeMapConfigFilterSmIs(
       Kel::Ptr<Routing::RouteMap::Map const> routeMap,
       Kel::Ptr<Routing::RouteMap::Map> filteredRouteMap);
   void routeMapConfigFilterSmDel(const Kel::Name& name) { routeMapConfigFilterSm_.del(name); }
   void routeMapConfigFilterSmDelAll() {
      routeMapConfigFilterSm_.delAll([](const Kel::Name&) {});
   }

   bool pendingDelete(const Kel::Name& name) const { return pendingDelete_.get(name); }
   const NameSet& pendingDeletes() const { return pendingDelete_; }
   // Every change schedules the delete task.
   void pendingDeleteIs(const Kel::Name& name, bool v);
   void pendingDeleteDel(const Kel::Name& name);
   void pendingDeleteDelAll();

   bool deferredCreates(const Kel::Name& name) const { return deferredCreates_.get(name); }
   const NameSet& deferredCreatesColl() const { return deferredCreates_; }
   void deferredCreatesIs(const Kel::Name& name, bool v) { deferredCreates_.set(name, v); }
   void deferredCreatesDel(const Kel::Name& name) { deferredCreates_.del(name); }
   void deferredCreatesDelAll() {
      deferredCreates_.delAll([](const Kel::Name&) {});
   }

   void handleRouteMap(const Kel::Name& name);
   void handleRouteMapOpMode();
   void handleRouteMapDeleteTask();

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;

private:
   class ConfigReactor : public Routing::RouteMap::Config::Reactor {
   public:
      explicit ConfigReactor(RouteMapConfigSm* owner) : owner_(owner) {}
      void handleRouteMap(const Kel::Name& name) override { owner_->handleRouteMap(name); }
      void handleRouteMapOpMode() override { owner_->handleRouteMapOpMode(); }

   private:
      RouteMapConfigSm* owner_;
   };

   void deleteRouteMap(const Kel::Name& name);

   Kel::Ptr<Routing::RouteMap::Config const> pendingConfig_;
   Kel::Ptr<Routing::RouteMap::Config> filteredConfig_;
   Kel::Ptr<AllRouteMapSymbol> allRmSymbol_;
   Kel::Ptr<PolicyRoot const> policyRoot_;
   Kel::Ptr<RmConfigFilterSmHelperBase> filterHelper_;
   Kel::Ptr<RmConfigSymbolSmHelperBase> symbolHelper_;
   Kel::Ptr<Orb::TaskScheduler> taskScheduler_;
   Kel::Ptr<RouteMapOpModeNotifier> routeMapOpModeNotifier_;
   Kel::Ptr<RouteMapUpdateNotifier> routeMapUpdateNotifier_;
   Kel::Ptr<RmConfigSymbolReactorColl> rmConfigSymbolReactorColl_;
   SymbolSmColl routeMapConfigSymbolSm_;
   FilterSmColl routeMapConfigFilterSm_;
   NameSet pendingDelete_;
   NameSet deferredCreates_;
   Kel::Ptr<Orb::Task> routeMapDeleteTask_;
   ConfigReactor configReactor_;
};

Kel::Ptr<RouteMapConfigSm> routeMapConfigSmFactory(
    Kel::Ptr<Routing::RouteMap::Config const> rmConfig,
    Kel::Ptr<Routing::RouteMap::Config> filteredConfig, Kel::Ptr<AllRouteMapSymbol> allRmSymbol,
    Kel::Ptr<PolicyRoot const> policyRoot, Kel::Ptr<RmConfigFilterSmHelperBase> filterHelper,
    Kel::Ptr<RmConfigSymbolSmHelperBase> symbolHelper, Kel::Ptr<Orb::TaskScheduler> taskScheduler);

}  // namespace Routing::Policy
