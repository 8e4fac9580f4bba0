#include "RoutingPolicy/config/RouteMapConfigSm.h"

#include <array>
#include <ostream>
#include <string>
#include <unordered_set>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Trace.h"

KEL_TRACE_HANDLE("RouteMapConfigSm");

namespace Routing::Policy {

using Routing::RouteMap::Config;
using Routing::RouteMap::Map;
using Routing::RouteMap::MapEntry;

namespace {

constexpr Orb::TaskPriority kRouteMapTaskPriority = 2;

// Traces name what a pointer refers to, or say that it is absent.
template <class T>
std::string nameOrNull(const T* p) {
   if (p == nullptr) return "NULL";
   return p->name();
}

U32 continueTargetOf(const Kel::Ptr<RouteMapSeqStatus const>& seq) {
   return seq && seq->continueSeq() ? seq->continueSeq()->seqno() : 0;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// RouteMapConfigSymbolSm

void addPendingUpdatesToSeqStatus(const Kel::Ptr<RouteMapSeqStatus>& seqStatus,
                                  const Kel::Ptr<PendingSymbolUpdate const>& pending) {
   if (!pending) return;
   for (const auto& [option, matcher] : pending->matcherChanges()) {
      seqStatus->matcherIs(option, matcher);
   }
   for (const auto& [option, setter] : pending->setterChanges()) {
      seqStatus->setterIs(option, setter);
   }
   if (pending->hasSubRouteMapUpdate()) seqStatus->subRouteMapIs(pending->subRouteMapStatus());
}

RouteMapConfigSymbolSm::RouteMapConfigSymbolSm(
    Kel::Ptr<Map const> routeMap, Kel::Ptr<RouteMapSymbol> rmSymbol,
    Kel::Ptr<PolicyRoot const> policyRoot, Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
    Kel::Ptr<RmConfigSymbolSmHelperBase> rmConfigSymbolHelper,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier,
    Kel::Ptr<Orb::TaskScheduler> rmUpdateTaskScheduler,
    Kel::Ptr<RouteMapBlockedSequenceList const> blockedSequences)
    : RouteMapConfigSmBase(std::move(routeMap)),
      rmSymbol_(std::move(rmSymbol)),
      policyRoot_(std::move(policyRoot)),
      rmConfigSymbolReactor_(std::move(rmConfigSymbolReactor)),
      rmConfigSymbolHelper_(std::move(rmConfigSymbolHelper)),
      routeMapOpModeNotifier_(std::move(routeMapOpModeNotifier)),
      rmUpdateTaskScheduler_(std::move(rmUpdateTaskScheduler)),
      pendingReactor_(this),
      blockedReactor_(this),
      pendingBlocked_(std::move(blockedSequences)) {}

RouteMapConfigSymbolSm::~RouteMapConfigSymbolSm() {
   // The machines go first: they still reach the mailbox and the symbol while they leave.
   pendingReactor_.notifierIs(nullptr);
   blockedReactor_.notifierIs(nullptr);
   seqConfigSmDelAll();
   undefinedReferenceSeqDelAll();
   routeMapSymbolUpdateTask_ = nullptr;
}

void RouteMapConfigSymbolSm::PendingReactor::handlePendingUpdate(U32) {
   owner_->routeMapSymbolUpdateTask_->schedule();
}

namespace {

constexpr std::array<bool RouteMapFeatures::*, 7> kFeatureBits = {
    &RouteMapFeatures::matchPrefixDependent,
    &RouteMapFeatures::matchInterface,
    &RouteMapFeatures::matchRouterId,
    &RouteMapFeatures::matchOriginAsValidity,
    &RouteMapFeatures::setMetricIgpNhCost,
    &RouteMapFeatures::setOriginAsValidity,
    &RouteMapFeatures::hasAggLinkBandwidthSetter};
static_assert(sizeof(RouteMapFeatures) == kFeatureBits.size(),
              "a new feature must be counted here too");

}  // namespace

void RouteMapConfigSymbolSm::countFeatures(const RouteMapFeatures& f, int delta) {
   for (std::size_t i = 0; i < kFeatureBits.size(); ++i) {
      if (f.*kFeatureBits[i]) featureCount_[i] += static_cast<U32>(delta);
   }
}

void RouteMapConfigSymbolSm::seqFeaturesIs(U32 seqno,
                                           const Kel::Ptr<RouteMapSeqStatus const>& seq) {
   auto it = seqFeatures_.find(seqno);
   if (it != seqFeatures_.end()) {
      countFeatures(it->second, -1);
      seqFeatures_.erase(it);
   }
   if (!seq) return;
   const RouteMapFeatures f = seq->getFeatures();
   countFeatures(f, 1);
   seqFeatures_.emplace(seqno, f);
}

RouteMapFeatures RouteMapConfigSymbolSm::countedFeatures() const {
   RouteMapFeatures f;
   for (std::size_t i = 0; i < kFeatureBits.size(); ++i) f.*kFeatureBits[i] = featureCount_[i] > 0;
   return f;
}

void RouteMapConfigSymbolSm::handleInitialized() {
   if (const Kel::Ptr<RouteMapStatus const>& rmStatus = rmSymbol_->rmStatus()) {
      for (const auto& [seqno, seq] : rmStatus->seqStatusMap()) seqFeaturesIs(seqno, seq);
   }
   routeMapSymbolUpdateTask_ =
       Orb::taskFactory(rmUpdateTaskScheduler_, "RouteMapSymbolUpdate", kRouteMapTaskPriority,
                        [this] { handleRouteMapSymbolUpdateTask(); });
   pendingReactor_.notifierIs(rmConfigSymbolReactor_);
   // Before the first compile, which must already leave out what the filter holds back.
   blockedReactor_.notifierIs(std::move(pendingBlocked_));
   RouteMapConfigSmBase::handleInitialized();
   // A map configured before its compiler existed sees no version change for what it already
   // holds; compile it now rather than at the map's next edit.
   handleVersion();
}

void RouteMapConfigSymbolSm::seqConfigSmIs(U32 seqno, Kel::Ptr<RmSeqConfigSymbolSmBase> sm) {
   if (!sm) Kel::throwNullMutatorArg("Routing::Policy::RouteMapConfigSymbolSm", "seqConfigSm");
   // What the machine recorded while it was made was heard by nobody.
   auto watch = std::make_unique<ChangeWatch>(this, seqno);
   static_cast<SequenceChange::Reactor&>(*watch).notifierIs(sm->sequenceChange());
   static_cast<SequenceChangeSymbol::Reactor&>(*watch).notifierIs(sm->sequenceChangeSym());
   changeWatch_[seqno] = std::move(watch);
   dirtySeqs_.insert(seqno);
   seqConfigSm_.set(seqno, std::move(sm));
}

bool RouteMapConfigSymbolSm::sequenceBlocked(U32 seqno) const {
   const Kel::Ptr<RouteMapBlockedSequenceList const>& blocked = blockedReactor_.notifier();
   return blocked && blocked->sequence(seqno);
}

void RouteMapConfigSymbolSm::handleBlockedSequence(U32 seqno) {
   // A sequence is only ever blocked by a change of its call, which the next version folds in
   // without the call. Here it is released: the cycle went away elsewhere.
   if (sequenceBlocked(seqno)) return;
   const Kel::Ptr<RmSeqConfigSymbolSmBase> sm = seqConfigSm_.get(seqno);
   const Kel::Ptr<Map const>& map = routeMap();
   const Kel::Ptr<MapEntry const> entry = map ? map->mapEntry(seqno) : nullptr;
   if (!sm || !entry || entry->subRouteMap().empty()) return;
   // Following a call already, or about to be given one by the next version: nothing held back.
   if (sm->subRmSymSeq()->symbol() || sm->sequenceChangeSym()->subRouteMapChangeSymbol()) return;
   const Kel::Ptr<RouteMapSymbol const> symbol =
       routeMapSymbolFactory(entry->subRouteMap())->dedup(policyRoot_->routeMapTable());
   KTRACE(8, *this, "seqno=" << seqno << " released, calling " << symbol->name());
   sm->subRmSymSeq()->symbolIs(symbol);
   callingSeqs_.insert(seqno);
   const Kel::Ptr<RouteMapStatus const>& rmStatus = rmSymbol_->rmStatus();
   if (!rmStatus || !rmStatus->seqStatusHas(seqno)) return;
   // Through the mailbox, so that the call, and whether the callee is defined, reach the compiled
   // sequence the way any later change of the callee does.
   const Kel::Ptr<PendingSymbolUpdate> pending = rmConfigSymbolReactor_->pendingUpdateIs(seqno);
   pending->hasSubRouteMapUpdateIs(true);
   pending->subRouteMapStatusIs(symbol->rmStatus());
}

bool RouteMapConfigSymbolSm::subRouteMapUpdateApplies(U32 seqno) const {
   if (sequenceBlocked(seqno)) return false;
   const Kel::Ptr<RmSeqConfigSymbolSmBase> sm = seqConfigSm_.get(seqno);
   const Kel::Ptr<RouteMapSymbol const> followed = sm ? sm->subRmSymSeq()->symbol() : nullptr;
   const Kel::Ptr<Map const>& map = routeMap();
   const Kel::Ptr<MapEntry const> entry = map ? map->mapEntry(seqno) : nullptr;
   return followed && entry && entry->subRouteMap() == followed->name();
}

std::vector<RouteMapConfigSymbolSm*> RouteMapConfigSymbolSm::pendingCallees() const {
   std::vector<RouteMapConfigSymbolSm*> out;
   if (!peerLookup_) return out;
   for (U32 seqno : callingSeqs_) {
      const Kel::Ptr<RmSeqConfigSymbolSmBase>* sm = seqConfigSm_.find(seqno);
      if (!sm) continue;
      const Kel::Ptr<RouteMapSymbol const>& symbol = (*sm)->subRmSymSeq()->symbol();
      if (!symbol) continue;
      RouteMapConfigSymbolSm* callee = peerLookup_(symbol->name());
      if (callee && callee != this && callee->hasPendingSymbolUpdates()) out.push_back(callee);
   }
   return out;
}

void RouteMapConfigSymbolSm::seqConfigSmDel(U32 seqno) {
   callingSeqs_.erase(seqno);
   changeWatch_.erase(seqno);
   dirtySeqs_.erase(seqno);
   seqConfigSm_.del(seqno);
}

void RouteMapConfigSymbolSm::seqConfigSmDelAll() {
   callingSeqs_.clear();
   changeWatch_.clear();
   dirtySeqs_.clear();
   seqConfigSm_.delAll([](U32) {});
}

void RouteMapConfigSymbolSm::handleRouteMapSeq(U32 seqno) {
   KTRACE(8, *this, "handleRouteMapSeq");
   const Kel::Ptr<Map const>& map = routeMap();
   Kel::Ptr<MapEntry const> entry = map ? map->mapEntry(seqno) : nullptr;
   if (!entry) {
      KTRACE(8, *this, "deleting seqno:" << seqno);
      seqConfigSmDel(seqno);
      rmConfigSymbolReactor_->pendingUpdateDel(seqno);
      const Kel::Ptr<RouteMapStatus const> rmStatus = rmSymbol_->rmStatus();
      KEL_ASSERT(NULL != rmStatus);
      continueSeqMap()->continueSeqDel(seqno);
      if (rmStatus->seqStatusHas(seqno)) {
         auto list = modifiedRouteMapSeqStatusListFactory();
         list->seqStatusIs(ModifiedRouteMapSeqStatus(DescendingSeqnoKey(seqno)));
         updateRmStatusAndSymbol(list);
      }
      return;
   }
   if (seqConfigSm_.has(seqno)) return;
   KTRACE(8, *this, "creating seqno:" << seqno);
   seqConfigSmIs(seqno, rmConfigSymbolHelper_->createSeqConfigSm(
                            name(), entry, rmSymbol_, policyRoot_, rmConfigSymbolReactor_,
                            routeMapOpModeNotifier_));
}

bool RouteMapConfigSymbolSm::hasModifiedSequence() const {
   for (U32 seqno : dirtySeqs_) {
      if (const Kel::Ptr<RmSeqConfigSymbolSmBase>* sm = seqConfigSm_.find(seqno)) {
         if ((*sm)->isModified()) return true;
      }
   }
   return false;
}

void RouteMapConfigSymbolSm::handleVersion() {
   KTRACE(8, *this, "handleVersion");
   if (!hasModifiedSequence()) {
      KTRACE(8, *this, "No modified sequences, skipping symbol update");
      return;
   }
   const Kel::Ptr<RouteMapStatus const> rmStatus = rmSymbol_->rmStatus();
   KEL_ASSERT(NULL != rmStatus);
   auto list = modifiedRouteMapSeqStatusListFactory();
   const Kel::Ptr<Map const>& map = routeMap();
   // Ascending, as the machines are; a sequence that recorded nothing has nothing to fold.
   const std::vector<U32> dirty(dirtySeqs_.begin(), dirtySeqs_.end());
   folding_ = true;

   for (U32 seqno : dirty) {
      const Kel::Ptr<RmSeqConfigSymbolSmBase> sm = seqConfigSm_.get(seqno);
      if (!sm) continue;
      const Kel::Ptr<MapEntry const> seqConfig = map ? map->mapEntry(seqno) : nullptr;
      KEL_ASSERT(seqConfig);
      if (!sm->isModified()) continue;
      const Kel::Ptr<SequenceChange>& change = sm->sequenceChange();
      const Kel::Ptr<SequenceChangeSymbol>& changeSym = sm->sequenceChangeSym();
      const Kel::Ptr<RouteMapSeqStatus const> old = rmStatus->seqStatus(seqno);
      Kel::Ptr<RouteMapSeqStatus> seq =
          old ? RouteMapSeqStatus::newFrom(old, seqno) : routeMapSeqStatusFactory(seqno);
      ModifiedRouteMapSeqStatus modified{DescendingSeqnoKey(seqno)};
      const Kel::Ptr<PendingSymbolUpdate> pending = rmConfigSymbolReactor_->pendingUpdate(seqno);

      for (const auto& [option, matcherChange] : change->matcherChanges()) {
         if (matcherChange->matcher()) {
            seq->matcherIs(option, matcherChange->matcher());
            KTRACE(8, *this,
                   "RouteMapName=" << name() << ", seqNum=" << seqno
                                   << ", match option=" << static_cast<U32>(option) << " modified");
         } else {
            seq->matcherDel(option);
            KTRACE(8, *this,
                   "RouteMapName=" << name() << ", seqNum=" << seqno
                                   << ", match option=" << static_cast<U32>(option) << " deleted");
         }
         if (pending) pending->matcherChangeDel(option);
      }
      for (const auto& [option, setterChange] : change->setterChanges()) {
         if (setterChange->setter()) {
            seq->setterIs(option, setterChange->setter());
            KTRACE(8, *this,
                   "RouteMapName=" << name() << ", seqNum=" << seqno
                                   << ", set option=" << static_cast<U32>(option) << " modified");
         } else {
            seq->setterDel(option);
            KTRACE(8, *this,
                   "RouteMapName=" << name() << ", seqNum=" << seqno
                                   << ", set option=" << static_cast<U32>(option) << " deleted");
         }
         if (pending) pending->setterChangeDel(option);
      }
      if (const Kel::Ptr<ContinueChange>& cont = change->continueChange()) {
         if (cont->hasContinue()) {
            continueSeqMap()->continueSeqIs(seqno, cont->continueSeq());
            KTRACE(8, *this,
                   "RouteMapName=" << name() << ", seqNum=" << seqno << ", continue modified to "
                                   << cont->continueSeq());
         } else {
            continueSeqMap()->continueSeqDel(seqno);
            KTRACE(8, *this,
                   "RouteMapName=" << name() << ", seqNum=" << seqno << ", continue deleted");
         }
         // Resolved against the other sequences in updateRmStatusAndSymbol.
         seq->continueSeqIs(nullptr);
      }

      // The called route map: a changed call brings its new symbol; an unchanged one is looked
      // at again, since the rebuilt copy should carry the callee as it is now.
      const Kel::Ptr<SubRouteMapChangeSymbol>& subChange = changeSym->subRouteMapChangeSymbol();
      const Kel::Ptr<RouteMapSymbol const> subSymbol =
          subChange ? subChange->symbol() : sm->subRmSymSeq()->symbol();
      // A call the filter holds back because it would close a cycle is compiled as the filtered
      // configuration has it: not at all. The inversion is kept, which an absent callee ignores.
      const bool withheld = subSymbol && sequenceBlocked(seqno);
      if (withheld) {
         KTRACE(8, *this,
                "seqno=" << seqno << " sub-route-map " << subSymbol->name()
                         << " withheld: the calls would form a cycle");
         seq->subRouteMapIs(nullptr);
         seq->subInvertIs(seqConfig->subRouteMapInvert());
         modified.setSubRouteMap(false);
      } else if (subSymbol) {
         const Kel::Ptr<RouteMapStatus const> subStatus = subSymbol->rmStatus();
         KTRACE(8, *this,
                "seqno=" << seqno << " rmStatus from=" << nameOrNull(seq->subRouteMapRawPtr())
                         << " to=" << nameOrNull(subStatus.get()));
         seq->subRouteMapIs(subStatus);
         seq->subInvertIs(seqConfig->subRouteMapInvert());
         modified.setSubRouteMap(!subStatus);
         modified.setUndefinedFromSubRouteMap(subStatus);
      } else if (subChange) {
         seq->subRouteMapIs(nullptr);
         seq->subInvertIs(false);
         modified.setSubRouteMap(false);
      }
      if (pending) {
         // What the configuration just said about the call outranks a status the follower of
         // the previous callee left behind.
         if (subSymbol || subChange || !subRouteMapUpdateApplies(seqno)) {
            pending->hasSubRouteMapUpdateIs(false);
         }
         addPendingUpdatesToSeqStatus(seq, pending);
         rmConfigSymbolReactor_->pendingUpdateDel(seqno);
      }
      if (change->permitChange()) {
         seq->matchActionIs(seqConfig->permit() ? Acl::MatchPermit::permit
                                                : Acl::MatchPermit::deny);
      }
      modified.seqStatusIs(std::move(seq));
      list->seqStatusIs(modified);
      change->matcherChangeDelAll();
      change->setterChangeDelAll();
      change->continueChangeIs(nullptr);
      change->permitChangeIs(false);
   }

   folding_ = false;
   updateRmStatusAndSymbol(list);
   folding_ = true;
   updateSymbolSeqs(dirty);
   folding_ = false;
   for (U32 seqno : dirty) dirtySeqs_.erase(seqno);
}

void RouteMapConfigSymbolSm::updateSymbolSeqs(const std::vector<U32>& seqnos) {
   for (U32 seqno : seqnos) {
      const Kel::Ptr<RmSeqConfigSymbolSmBase> sm = seqConfigSm_.get(seqno);
      if (!sm) continue;
      const Kel::Ptr<SequenceChangeSymbol>& changeSym = sm->sequenceChangeSym();
      for (const auto& [option, symbols] : changeSym->matcherChangeSymbols()) {
         if (symbols->matchSymbols().empty()) {
            sm->matchSymSeq()->policySymbolListDel(option);
            continue;
         }
         auto list = policyMatchSymbolListFactory(option);
         for (const auto& [symbol, present] : symbols->matchSymbols()) list->policySymbolIs(symbol);
         sm->matchSymSeq()->policySymbolListIs(option, std::move(list));
      }
      for (const auto& [option, symbols] : changeSym->setterChangeSymbols()) {
         if (symbols->setSymbols().empty()) {
            sm->setSymSeq()->policySymbolListDel(option);
            continue;
         }
         auto list = policySetSymbolListFactory(option);
         for (const auto& [symbol, present] : symbols->setSymbols()) list->policySymbolIs(symbol);
         sm->setSymSeq()->policySymbolListIs(option, std::move(list));
      }
      if (const Kel::Ptr<SubRouteMapChangeSymbol> subChange =
              changeSym->subRouteMapChangeSymbol()) {
         KTRACE(8, *this,
                "changing sub-route-map symbol from="
                    << nameOrNull(sm->subRmSymSeq()->symbol().get())
                    << " to=" << nameOrNull(subChange->symbol().get()));
         // A held-back call is not followed: the compiled sequence makes none, and following it
         // would let the callee's rebuilds come round to this route map again.
         const Kel::Ptr<RouteMapSymbol const> follow =
             sequenceBlocked(seqno) ? nullptr : subChange->symbol();
         sm->subRmSymSeq()->symbolIs(follow);
         if (follow) {
            callingSeqs_.insert(seqno);
         } else {
            callingSeqs_.erase(seqno);
         }
         // Folded in; left standing it would count the sequence as modified forever.
         changeSym->subRouteMapChangeSymbolIs(nullptr);
      }
      changeSym->matcherChangeSymbolDelAll();
      changeSym->setterChangeSymbolDelAll();
   }
}

void RouteMapConfigSymbolSm::handleRouteMapSymbolUpdateTask() {
   KTRACE(8, *this, "handleRouteMapSymbolUpdateTask");
   if (!hasPendingSymbolUpdates()) return;
   // Callees with rebuilds of their own waiting are brought up to date first, deepest first: each
   // one's publication lands in its callers' mailboxes before they are rebuilt, so a change at
   // the bottom of a chain of N route maps costs N rebuilds rather than N * N / 2. Only callees
   // that wait are entered; the calls the compiled route maps follow never go round (a call that
   // would close a cycle is held back), and `seen` guards the search all the same.
   struct Frame {
      RouteMapConfigSymbolSm* sm;
      std::vector<RouteMapConfigSymbolSm*> callees;
      std::size_t next = 0;
   };
   std::vector<Frame> stack;
   std::unordered_set<const RouteMapConfigSymbolSm*> seen{this};
   stack.push_back({this, pendingCallees()});
   while (!stack.empty()) {
      if (stack.back().next < stack.back().callees.size()) {
         RouteMapConfigSymbolSm* callee = stack.back().callees[stack.back().next++];
         if (seen.insert(callee).second && callee->hasPendingSymbolUpdates()) {
            stack.push_back({callee, callee->pendingCallees()});
         }
         continue;
      }
      RouteMapConfigSymbolSm* sm = stack.back().sm;
      stack.pop_back();
      if (sm == this) break;
      sm->applyPendingSymbolUpdates();
      if (rmUpdateTaskScheduler_->taskShouldYield()) {
         routeMapSymbolUpdateTask_->schedule();
         return;
      }
   }
   applyPendingSymbolUpdates();
}

void RouteMapConfigSymbolSm::applyPendingSymbolUpdates() {
   KTRACE(8, *this, "applyPendingSymbolUpdates");
   const Kel::Ptr<RouteMapStatus const> rmStatus = rmSymbol_->rmStatus();
   auto list = modifiedRouteMapSeqStatusListFactory();
   // Collected first: dropping an update notifies, and a reaction may add another.
   std::vector<Kel::Ptr<PendingSymbolUpdate>> pendings;
   for (const auto& [seqno, pending] : rmConfigSymbolReactor_->pendingUpdates()) {
      pendings.push_back(pending);
   }
   for (const Kel::Ptr<PendingSymbolUpdate>& pending : pendings) {
      const U32 seqno = pending->seqno();
      // A callee's status for a call the sequence no longer makes as compiled (held back, or
      // changed in a batch whose version has not come yet) is dropped: the next version compiles
      // the call, and applying it here could let two route maps rebuild each other for ever.
      if (pending->hasSubRouteMapUpdate() && !subRouteMapUpdateApplies(seqno)) {
         pending->hasSubRouteMapUpdateIs(false);
      }
      if (!pending->hasNoPendingChanges() && rmStatus) {
         if (const Kel::Ptr<RouteMapSeqStatus const> old = rmStatus->seqStatus(seqno)) {
            Kel::Ptr<RouteMapSeqStatus> seq = RouteMapSeqStatus::newFrom(old, seqno);
            addPendingUpdatesToSeqStatus(seq, pending);
            ModifiedRouteMapSeqStatus modified(DescendingSeqnoKey(seqno), std::move(seq));
            if (pending->hasSubRouteMapUpdate()) {
               modified.setUndefinedFromSubRouteMap(pending->subRouteMapStatus());
            }
            list->seqStatusIs(modified);
         }
      }
      rmConfigSymbolReactor_->pendingUpdateDel(seqno);
   }
   if (!list->empty()) updateRmStatusAndSymbol(list);
}

Kel::Ptr<RouteMapSeqStatus const> RouteMapConfigSymbolSm::seqStatusAfter(
    U32 seqno, const Kel::Ptr<ModifiedRouteMapSeqStatusList const>& list) const {
   if (const ModifiedRouteMapSeqStatus* m = list->seqStatuses().find(DescendingSeqnoKey(seqno))) {
      return m->seqStatus();
   }
   const Kel::Ptr<RouteMapStatus const>& rmStatus = rmSymbol_->rmStatus();
   return rmStatus ? rmStatus->seqStatus(seqno) : nullptr;
}

U32 RouteMapConfigSymbolSm::targetSeqnoForOrigin(
    U32 originSeqno, const Kel::Ptr<ModifiedRouteMapSeqStatusList const>& list) const {
   KTRACE(8, *this, "targetSeqnoForOrigin originSeqno:" << originSeqno);
   const Kel::Ptr<ContinueSeqMap>& continues = continueSeqMap();
   if (!continues->continueSeqHas(originSeqno)) return 0;
   const U32 explicitTarget = continues->continueSeq(originSeqno);
   if (explicitTarget != 0) {
      if (!seqConfigSm_.has(explicitTarget)) return 0;
      return seqStatusAfter(explicitTarget, list) ? explicitTarget : 0;
   }
   const auto& sms = seqConfigSm_.container();
   for (auto it = sms.upper_bound(originSeqno); it != sms.end(); ++it) {
      if (seqStatusAfter(it->first, list)) return it->first;
   }
   return 0;
}

void RouteMapConfigSymbolSm::maybeCloneSeqStatusToModifiedList(
    U32 seqno, U32 targetSeqno, const Kel::Ptr<ModifiedRouteMapSeqStatusList>& list) {
   KTRACE(8, *this, "seqno" << seqno << ", targetSeqno:" << targetSeqno);
   if (list->seqStatusHas(DescendingSeqnoKey(seqno))) return;
   const Kel::Ptr<RouteMapSeqStatus const> rmSeqStatus = rmSymbol_->rmStatus()->seqStatus(seqno);
   KEL_ASSERT(NULL != rmSeqStatus);
   list->seqStatusIs(ModifiedRouteMapSeqStatus(DescendingSeqnoKey(seqno),
                                               RouteMapSeqStatus::newFrom(rmSeqStatus, seqno)));
}

void RouteMapConfigSymbolSm::updateUndefinedReferenceSeq(
    U32 seqno, const Kel::Ptr<ModifiedRouteMapSeqStatusList const>& list) {
   const U8 mask = list->seqStatus(DescendingSeqnoKey(seqno)).undefinedReferences();
   if (mask != 0) {
      undefinedReferenceSeqIs(seqno, mask);
   } else {
      undefinedReferenceSeqDel(seqno);
   }
}

void RouteMapConfigSymbolSm::updateRmStatusAndSymbol(
    const Kel::Ptr<ModifiedRouteMapSeqStatusList>& list) {
   KTRACE(8, *this, "updateRmStatusAndSymbol");
   const Kel::Ptr<RouteMapStatus const> rmStatus = rmSymbol_->rmStatus();
   KEL_ASSERT(NULL != rmStatus);

   // Step 1: the rebuilt sequences' own continues, highest first, so that a target is final
   // before an origin points at it. The evaluator reads only the target's number, but pointing
   // at the target's newest object keeps no older copy alive.
   for (const auto& [key, modified] : list->seqStatuses()) {
      const Kel::Ptr<RouteMapSeqStatus>& seq = modified.seqStatus();
      const U32 originSeqno = key.seqno();
      if (!seq || !continueSeqMap()->continueSeqHas(originSeqno)) continue;
      const U32 targetSeqno = targetSeqnoForOrigin(originSeqno, list);
      if (targetSeqno == 0) {
         seq->continueSeqIs(nullptr);
         continue;
      }
      KEL_ASSERT(targetSeqno > originSeqno);
      seq->continueSeqIs(seqStatusAfter(targetSeqno, list));
   }

   // Step 2: origins that were not rebuilt but whose resolved target moves because a sequence
   // between them and their old target appeared, or their target disappeared. Only origins
   // below the list's highest number can be affected: targets lie above their origins. An
   // origin whose target number stays is left alone even if the target was rebuilt, since
   // evaluation resumes by number; that keeps one edit from copying every origin pointing at it.
   if (!list->empty()) {
      const U32 highest = list->seqStatuses().begin()->first.seqno();
      std::vector<std::pair<U32, U32>> moved;
      for (const auto& [originSeqno, configured] : continueSeqMap()->continueSeqs()) {
         if (originSeqno >= highest) break;
         if (list->seqStatusHas(DescendingSeqnoKey(originSeqno))) continue;
         const Kel::Ptr<RouteMapSeqStatus const> held = rmStatus->seqStatus(originSeqno);
         if (!held) continue;
         const U32 targetSeqno = targetSeqnoForOrigin(originSeqno, list);
         if (targetSeqno != continueTargetOf(held)) moved.emplace_back(originSeqno, targetSeqno);
      }
      for (const auto& [originSeqno, targetSeqno] : moved) {
         maybeCloneSeqStatusToModifiedList(originSeqno, targetSeqno, list);
         const Kel::Ptr<RouteMapSeqStatus>& seq =
             list->seqStatuses().find(DescendingSeqnoKey(originSeqno))->seqStatus();
         if (targetSeqno == 0) {
            seq->continueSeqIs(nullptr);
            continue;
         }
         KEL_ASSERT(targetSeqno > originSeqno);
         const Kel::Ptr<RouteMapSeqStatus const> targetSeq = seqStatusAfter(targetSeqno, list);
         KEL_ASSERT(NULL != targetSeq);
         seq->continueSeqIs(targetSeq);
      }
   }

   // A copy of the current status with feature bookkeeping off while the sequences go in; the
   // features come from the counts. RouteMapStatus::newFrom and updateFeatures would each visit
   // every sequence, the largest cost of a one-sequence edit of a long route map.
   Kel::Ptr<RouteMapStatus> newStatus = routeMapStatusFactory(rmStatus->name());
   Orb::BaseNotifyingType::clone(*newStatus, *rmStatus);
   newStatus->updateFeaturesOnSeqStatusChangeIs(false);
   for (const auto& [key, modified] : list->seqStatuses()) {
      const U32 seqno = key.seqno();
      seqFeaturesIs(seqno, modified.seqStatus());
      if (modified.seqStatus()) {
         newStatus->seqStatusIs(modified.seqStatus());
         if (modified.undefinedReferenceRequiresUpdate()) updateUndefinedReferenceSeq(seqno, list);
      } else {
         newStatus->seqStatusDel(seqno);
         undefinedReferenceSeqDel(seqno);
      }
   }
   newStatus->featuresIs(countedFeatures());
   newStatus->updateFeaturesOnSeqStatusChangeIs(true);
   U8 undefined = 0;
   for (const auto& [seqno, mask] : undefinedReferenceSeq_) undefined |= mask;
   newStatus->undefinedReferencesIs(undefined);
   rmSymbol_->updateAndNotify(std::move(newStatus));
}

void RouteMapConfigSymbolSm::formatDerivedType(std::ostream& os) const {
   os << "RouteMapConfigSymbolSm(" << name() << ")";
}

Kel::Ptr<RouteMapConfigSymbolSm> routeMapConfigSymbolSmFactory(
    Kel::Ptr<Map const> routeMap, Kel::Ptr<RouteMapSymbol> rmSymbol,
    Kel::Ptr<PolicyRoot const> policyRoot, Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
    Kel::Ptr<RmConfigSymbolSmHelperBase> rmConfigSymbolHelper,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier,
    Kel::Ptr<Orb::TaskScheduler> rmUpdateTaskScheduler,
    Kel::Ptr<RouteMapBlockedSequenceList const> blockedSequences) {
   return Kel::create<RouteMapConfigSymbolSm>(
       std::move(routeMap), std::move(rmSymbol), std::move(policyRoot),
       std::move(rmConfigSymbolReactor), std::move(rmConfigSymbolHelper),
       std::move(routeMapOpModeNotifier), std::move(rmUpdateTaskScheduler),
       std::move(blockedSequences));
}

// ---------------------------------------------------------------------------------------------
// RouteMapConfigFilterSm

RouteMapConfigFilterSm::RouteMapConfigFilterSm(
    Kel::Ptr<Map const> routeMap, Kel::Ptr<Map> filteredRouteMap, Config* filteredRmConfig,
    Kel::Ptr<RouteMapUpdateNotifier> routeMapUpdateNotifier,
    Kel::Ptr<RmConfigFilterSmHelperBase> filterHelper)
    : RouteMapConfigSmBase(std::move(routeMap)),
      filteredRouteMap_(std::move(filteredRouteMap)),
      filteredRmConfig_(filteredRmConfig),
      routeMapUpdateNotifier_(std::move(routeMapUpdateNotifier)),
      filterHelper_(std::move(filterHelper)),
      blockedReactor_(this) {}

RouteMapConfigFilterSm::~RouteMapConfigFilterSm() {
   blockedReactor_.notifierIs(nullptr);
   seqConfigSm_.delAll([](U32) {});
}

void RouteMapConfigFilterSm::BlockedReactor::handleSequence(U32) {
   if (!owner_->sequenceBlocked()) owner_->handleVersion();
}

void RouteMapConfigFilterSm::routeMapBlockedSequenceListIs(
    Kel::Ptr<RouteMapBlockedSequenceList> list) {
   routeMapBlockedSequenceList_ = std::move(list);
   // Followed only once every sequence machine exists: an unblock heard while they are still
   // being made would release the version of a half-built copy.
   if (seqnosVisited_) blockedReactor_.notifierIs(routeMapBlockedSequenceList_);
}

void RouteMapConfigFilterSm::seqConfigSmIs(U32 seqno, Kel::Ptr<RmSeqConfigFilterSmBase> sm) {
   if (!sm) Kel::throwNullMutatorArg("Routing::Policy::RouteMapConfigFilterSm", "seqConfigSm");
   seqConfigSm_.set(seqno, std::move(sm));
}

bool RouteMapConfigFilterSm::sequenceBlocked() const {
   const Kel::Ptr<RouteMapBlockedSequenceList>& list = routeMapBlockedSequenceList();
   if (!list) return false;
   for (const auto& [seqno, blocked] : list->sequences()) {
      if (blocked) return true;
   }
   return false;
}

void RouteMapConfigFilterSm::handleInitialized() {
   routeMapBlockedSequenceListIs(routeMapBlockedSequenceListFactory(name()));
   RouteMapConfigSmBase::handleInitialized();
   seqnosVisited_ = true;
   blockedReactor_.notifierIs(routeMapBlockedSequenceList_);
   // The filtered copy of a map that already had a version starts out current.
   handleVersion();
}

void RouteMapConfigFilterSm::handleRouteMapSeq(U32 seqno) {
   KTRACE(8, *this, "handleRouteMapSeq");
   const Kel::Ptr<Map const>& map = routeMap();
   Kel::Ptr<MapEntry const> entry = map ? map->mapEntry(seqno) : nullptr;
   if (entry) {
      if (seqConfigSm_.has(seqno)) return;
      KTRACE(8, *this, "creating seqno:" << seqno);
      Kel::Ptr<MapEntry> filtered = filteredRouteMap_->mapEntryIs(seqno);
      seqConfigSmIs(seqno, filterHelper_->createSeqConfigSm(
                               name(), entry, filtered, filteredRmConfig_,
                               routeMapBlockedSequenceList(), routeMapUpdateNotifier_));
      return;
   }
   KTRACE(8, *this, "deleting seqno:" << seqno);
   filteredRouteMap_->mapEntryDel(seqno);
   seqConfigSmDel(seqno);
   // A sequence that is gone blocks nothing; left listed it would hold the version back forever.
   routeMapBlockedSequenceList()->sequenceDel(seqno);
}

void RouteMapConfigFilterSm::handleVersion() {
   const Kel::Ptr<Map const>& map = routeMap();
   if (!map || filteredRouteMap_->version() == map->version()) return;
   if (sequenceBlocked()) {
      KTRACE(8, *this, "version update is deferred");
      // The batch may still have removed a call that closed the cycle a sequence of another
      // route map is blocked on; held back with the version, that sequence would stay blocked
      // (and its call withheld) with no cycle left. The global update tells it to look again.
      routeMapUpdateNotifier_->versionInc(1);
      return;
   }
   KTRACE(8, *this,
          "update version from " << filteredRouteMap_->version() << " to " << map->version());
   filteredRouteMap_->versionIs(map->version());
   routeMapUpdateNotifier_->versionInc(1);
}

void RouteMapConfigFilterSm::formatDerivedType(std::ostream& os) const {
   os << "RouteMapConfigFilterSm(" << name() << ")";
}

// ---------------------------------------------------------------------------------------------
// RouteMapConfigSm

RouteMapConfigSm::RouteMapConfigSm(Kel::Ptr<Config const> rmConfig, Kel::Ptr<Config> filteredConfig,
                                   Kel::Ptr<AllRouteMapSymbol> allRmSymbol,
                                   Kel::Ptr<PolicyRoot const> policyRoot,
                                   Kel::Ptr<RmConfigFilterSmHelperBase> filterHelper,
                                   Kel::Ptr<RmConfigSymbolSmHelperBase> symbolHelper,
                                   Kel::Ptr<Orb::TaskScheduler> taskScheduler)
    : pendingConfig_(std::move(rmConfig)),
      filteredConfig_(std::move(filteredConfig)),
      allRmSymbol_(std::move(allRmSymbol)),
      policyRoot_(std::move(policyRoot)),
      filterHelper_(std::move(filterHelper)),
      symbolHelper_(std::move(symbolHelper)),
      taskScheduler_(std::move(taskScheduler)),
      configReactor_(this) {}

RouteMapConfigSm::~RouteMapConfigSm() {
   configReactor_.notifierIs(nullptr);
   routeMapDeleteTask_ = nullptr;
   routeMapConfigFilterSmDelAll();
   routeMapConfigSymbolSmDelAll();
}

void RouteMapConfigSm::handleInitialized() {
   KTRACE(8, *this, "handleInitialized");
   routeMapOpModeNotifier_ = routeMapOpModeNotifierFactory();
   // Bound before the first look at the op mode, which reads the configuration through it.
   configReactor_.notifierIs(std::move(pendingConfig_));
   handleRouteMapOpMode();
   routeMapUpdateNotifier_ = routeMapUpdateNotifierFactory();
   rmConfigSymbolReactorColl_ = rmConfigSymbolReactorCollFactory();
   routeMapDeleteTask_ = Orb::taskFactory(taskScheduler_, "RouteMapDelete", kRouteMapTaskPriority,
                                          [this] { handleRouteMapDeleteTask(); });
   filteredConfig_->routeMapDelAll();
   std::vector<Kel::Name> names;
   for (const auto& [name, map] : rmConfig()->routeMaps()) names.push_back(name);
   for (const Kel::Name& name : names) handleRouteMap(name);
}

Kel::Ptr<RouteMapConfigSymbolSm> RouteMapConfigSm::routeMapConfigSymbolSmIs(
    Kel::Ptr<Map const> routeMap, Kel::Ptr<RouteMapSymbol> rmSymbol,
    Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor) {
   const Kel::Name name = routeMap->name();
   // The filter machine is made first, so the compiler leaves out what it holds back from the
   // start.
   const Kel::Ptr<RouteMapConfigFilterSm> filterSm = routeMapConfigFilterSm_.get(name);
   auto sm = routeMapConfigSymbolSmFactory(
       std::move(routeMap), std::move(rmSymbol), policyRoot_, std::move(rmConfigSymbolReactor),
       symbolHelper_, routeMapOpModeNotifier_, taskScheduler_,
       filterSm ? filterSm->routeMapBlockedSequenceList() : nullptr);
   sm->peerLookupIs([this](const Kel::Name& n) { return routeMapConfigSymbolSm_.get(n).get(); });
   routeMapConfigSymbolSm_.set(name, sm);
   return sm;
}

Kel::Ptr<RouteMapConfigFilterSm> RouteMapConfigSm::routeMapConfigFilterSmIs(
    Kel::Ptr<Map const> routeMap, Kel::Ptr<Map> filteredRouteMap) {
   const Kel::Name name = routeMap->name();
   auto sm = Kel::create<RouteMapConfigFilterSm>(std::move(routeMap), std::move(filteredRouteMap),
                                                 filteredConfig_.get(), routeMapUpdateNotifier_,
                                                 filterHelper_);
   routeMapConfigFilterSm_.set(name, sm);
   return sm;
}

void RouteMapConfigSm::pendingDeleteIs(const Kel::Name& name, bool v) {
   if (pendingDelete_.set(name, v)) routeMapDeleteTask_->schedule();
}

void RouteMapConfigSm::pendingDeleteDel(const Kel::Name& name) {
   if (pendingDelete_.del(name)) routeMapDeleteTask_->schedule();
}

void RouteMapConfigSm::pendingDeleteDelAll() {
   pendingDelete_.delAll([this](const Kel::Name&) { routeMapDeleteTask_->schedule(); });
}

void RouteMapConfigSm::handleRouteMap(const Kel::Name& name) {
   KTRACE(8, *this, "handleRouteMap rmName:" << name);
   const Kel::Ptr<Map const> map = rmConfig()->routeMap(name);
   if (map) {
      if (pendingDelete(name)) {
         KTRACE(8, *this, "deferring creation of rmName:" << name);
         deferredCreatesIs(name, true);
         return;
      }
      if (routeMapConfigSymbolSm_.has(name)) return;
      KTRACE(8, *this, "creating rmName:" << name);
      Kel::Ptr<RouteMapSymbol> rmSymbol =
          routeMapSymbolFactory(name)->dedup(policyRoot_->routeMapTable());
      KTRACE(8, *this, " rmSymbol=" << *rmSymbol);
      KEL_ASSERT(NULL == rmSymbol->rmStatus());
      // Empty, with nothing undefined: a route map without sequences references nothing, and
      // callers would otherwise take every bit until its first compile.
      Kel::Ptr<RouteMapStatus> empty = routeMapStatusFactory(name);
      empty->undefinedReferencesIs(0);
      rmSymbol->updateAndNotify(std::move(empty));
      allRmSymbol_->symbolIs(rmSymbol);
      Kel::Ptr<Map> filteredMap = filteredConfig_->routeMapIs(name);
      routeMapConfigFilterSmIs(map, std::move(filteredMap));
      Kel::Ptr<RmConfigSymbolReactor> reactor = rmConfigSymbolReactorColl_->reactorIs(name);
      KTRACE(8, *this, "creating routeMapConfigSymbolSm");
      routeMapConfigSymbolSmIs(map, std::move(rmSymbol), std::move(reactor));
      return;
   }
   if (routeMapConfigSymbolSm_.has(name)) {
      pendingDeleteIs(name, true);
      KTRACE(8, *this, "deferring deletion of rmName:" << name);
   }
}

void RouteMapConfigSm::deleteRouteMap(const Kel::Name& name) {
   KTRACE(8, *this, "deleting rmName:" << name);
   filteredConfig_->routeMapDel(name);
   routeMapConfigFilterSmDel(name);
   routeMapConfigSymbolSmDel(name);
   rmConfigSymbolReactorColl_->reactorDel(name);
   if (const Kel::Ptr<RouteMapSymbol> rmSymbol = allRmSymbol_->symbol(name)) {
      allRmSymbol_->symbolDel(name);
      rmSymbol->updateAndNotify(nullptr);
   }
   routeMapUpdateNotifier_->versionInc(1);
}

void RouteMapConfigSm::handleRouteMapDeleteTask() {
   KTRACE(8, *this, "handleRouteMapDeleteTask");
   while (!pendingDelete_.empty()) {
      const Kel::Name name = pendingDelete_.begin()->first;
      deleteRouteMap(name);
      pendingDelete_.del(name);
      if (taskScheduler_->taskShouldYield()) {
         routeMapDeleteTask_->schedule();
         return;
      }
   }
   while (!deferredCreates_.empty()) {
      const Kel::Name name = deferredCreates_.begin()->first;
      KTRACE(8, *this, "deferred create rmName:" << name);
      deferredCreatesDel(name);
      handleRouteMap(name);
      if (taskScheduler_->taskShouldYield()) {
         routeMapDeleteTask_->schedule();
         return;
      }
   }
}

void RouteMapConfigSm::handleRouteMapOpMode() {
   KTRACE(8, *this, "handleRouteMapOpMode");
   const auto mode = rmConfig()->routeMapOpMode();
   filteredConfig_->routeMapOpModeIs(mode);
   if (routeMapOpModeNotifier_->routeMapOpMode() != mode) {
      routeMapOpModeNotifier_->routeMapOpModeIs(mode);
      KTRACE(8, *this, "RouteMapOpMode updated to:" << static_cast<int>(mode));
   }
   std::vector<Kel::Ptr<RouteMapConfigSymbolSm>> sms;
   for (const auto& [name, sm] : routeMapConfigSymbolSm_) sms.push_back(sm);
   for (const auto& sm : sms) sm->handleVersion();
}

void RouteMapConfigSm::formatDerivedType(std::ostream& os) const {
   os << "RouteMapConfigSm";
}

Kel::Ptr<RouteMapConfigSm> routeMapConfigSmFactory(
    Kel::Ptr<Config const> rmConfig, Kel::Ptr<Config> filteredConfig,
    Kel::Ptr<AllRouteMapSymbol> allRmSymbol, Kel::Ptr<PolicyRoot const> policyRoot,
    Kel::Ptr<RmConfigFilterSmHelperBase> filterHelper,
    Kel::Ptr<RmConfigSymbolSmHelperBase> symbolHelper, Kel::Ptr<Orb::TaskScheduler> taskScheduler) {
   return Kel::create<RouteMapConfigSm>(std::move(rmConfig), std::move(filteredConfig),
                                        std::move(allRmSymbol), std::move(policyRoot),
                                        std::move(filterHelper), std::move(symbolHelper),
                                        std::move(taskScheduler));
}

}  // namespace Routing::Policy
