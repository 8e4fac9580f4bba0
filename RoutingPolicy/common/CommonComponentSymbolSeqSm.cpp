#include "RoutingPolicy/common/CommonComponentSymbolSeqSm.h"

#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Machine.h"
#include "Kel/Trace.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"

KEL_TRACE_HANDLE("CommonComponentSymbolSeqSm");

namespace Routing::Policy {

using Routing::RouteMap::IpAccessListSymbol;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::PolicySymbol;
using Routing::RouteMap::PrefixListSymbol;

// --- PolicyMatchSymbolNotifierMap

void PolicyMatchSymbolNotifierMap::policyMatchSymbolNotifierIs(PolicySymbolPtr s) {
   if (!s) Kel::throwNullMutatorArg("PolicyMatchSymbolNotifierMap", "policyMatchSymbolNotifier");
   if (policyMatchSymbolNotifier_.set(s, true)) {
      notify(&Reactor::handlePolicyMatchSymbolNotifier, s);
   }
}

void PolicyMatchSymbolNotifierMap::policyMatchSymbolNotifierDel(const PolicySymbolPtr& s) {
   if (policyMatchSymbolNotifier_.del(s)) notify(&Reactor::handlePolicyMatchSymbolNotifier, s);
}

Kel::Ptr<PolicyMatchSymbolNotifierMap> policyMatchSymbolNotifierMapFactory(MatchOption option) {
   return Kel::makePtr<PolicyMatchSymbolNotifierMap>(option);
}

// --- CommonComponentSymbolSeqSm

CommonComponentSymbolSeqSm::CommonComponentSymbolSeqSm(
    Kel::String rmName, U32 seqno, Kel::Ptr<RouteMapSymbol const> rmSymbol,
    Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
    Kel::Ptr<MatchSymbolSeq const> matchSymbolSeq,
    Kel::Ptr<SubRouteMapSymbolSeq const> subRouteMapSymbolSeq,
    Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier)
    : rmName_(std::move(rmName)),
      seqno_(seqno),
      rmSymbol_(std::move(rmSymbol)),
      rmConfigSymbolReactor_(std::move(rmConfigSymbolReactor)),
      pendingMatchSymbolSeq_(std::move(matchSymbolSeq)),
      pendingSubRouteMapSymbolSeq_(std::move(subRouteMapSymbolSeq)),
      routeMapOpModeNotifier_(std::move(routeMapOpModeNotifier)),
      matchSeqReactor_(this),
      subSeqReactor_(this),
      subRouteMapSymbolNotifier_(this) {}

CommonComponentSymbolSeqSm::~CommonComponentSymbolSeqSm() {
   matchSeqReactor_.notifierIs(nullptr);
   subSeqReactor_.notifierIs(nullptr);
   subRouteMapSymbolNotifierDel();
   matchSymNotifierMapDelAll();
   matchSymbolNotifierCollDelAll();
}

void CommonComponentSymbolSeqSm::handleInitialized() {
   matchSeqReactor_.notifierIs(std::move(pendingMatchSymbolSeq_));
   if (const auto& seq = matchSeqReactor_.notifier()) {
      std::vector<MatchOption> options;
      for (const auto& [option, list] : seq->policySymbolLists()) options.push_back(option);
      for (MatchOption option : options) {
         if (matchRuleSupported(option)) watch(option);
      }
   }
   subSeqReactor_.notifierIs(std::move(pendingSubRouteMapSymbolSeq_));
   if (subSeqReactor_.notifier()) subSeqReactor_.handleSymbol();
}

Kel::Ptr<PolicyMatchSymbolNotifierMap const> CommonComponentSymbolSeqSm::matchSymbolNotifierColl(
    MatchOption option) const {
   auto it = matchSymbolNotifierColl_.find(option);
   return it == matchSymbolNotifierColl_.end() ? nullptr : it->second;
}

size_t CommonComponentSymbolSeqSm::matchSymNotifierCount(MatchOption option) const {
   auto it = matchSymNotifierMap_.find(option);
   return it == matchSymNotifierMap_.end() ? 0 : it->second.size();
}

void CommonComponentSymbolSeqSm::handleMatchSymbolSeq(MatchOption option) {
   KTRACE(8, *this, "match option: " << static_cast<U32>(option));
   if (!matchRuleSupported(option)) return;
   const auto& seq = matchSeqReactor_.notifier();
   if (!seq || !seq->policySymbolListHas(option)) {
      matchSymbolNotifierCollDel(option);
      return;
   }
   watch(option);
}

void CommonComponentSymbolSeqSm::watch(MatchOption option) {
   const Kel::Ptr<PolicyMatchSymbolList const> list =
       matchSeqReactor_.notifier()->policySymbolList(option);
   auto watched = policyMatchSymbolNotifierMapFactory(option);
   for (const auto& [symbol, present] : list->policySymbolColl()) {
      watched->policyMatchSymbolNotifierIs(symbol);
   }
   matchSymbolNotifierColl_[option] = watched;

   NotifierMap& reactors = matchSymNotifierMap_[option];
   for (auto it = reactors.begin(); it != reactors.end();) {
      if (watched->policyMatchSymbolNotifierHas(it->second->notifier())) {
         ++it;
      } else {
         it = reactors.erase(it);
      }
   }
   std::vector<const PolicySymbol*> symbols;
   for (const auto& [symbol, present] : watched->policyMatchSymbolNotifiers()) {
      symbols.push_back(symbol.get());
      auto& slot = reactors[symbol.get()];
      if (slot) continue;
      slot = std::make_unique<MatchSymNotifier>(this, option);
      slot->notifierIs(symbol);
   }
   // The compiled matcher was built when the rule was configured; a list redefined before the
   // sequence was compiled was not watched yet and would otherwise stay behind.
   const Kel::Ptr<RouteMapStatus const>& rmStatus = rmSymbol_->rmStatus();
   const auto seq = rmStatus ? rmStatus->seqStatus(seqno_) : nullptr;
   if (!seq || symbols.size() != 1) return;
   const Kel::Ptr<Matcher const> compiled = seq->matcher(option);
   const Kel::Ptr<Matcher const> current = matcherFor(option, symbols.front());
   bool stale = !compiled;
   if (auto pl = dynamic_cast<const PrefixListMatcherBase*>(compiled.get())) {
      stale = pl->prefixListStatus() !=
              static_cast<const PrefixListMatcherBase*>(current.get())->prefixListStatus();
   } else if (auto acl = dynamic_cast<const IpAccessListMatcher*>(compiled.get())) {
      stale = acl->ipAccessListStatus() !=
              static_cast<const IpAccessListMatcher*>(current.get())->ipAccessListStatus();
   }
   if (stale) handleVersion(option, symbols.front());
}

Kel::Ptr<Matcher const> CommonComponentSymbolSeqSm::matcherFor(MatchOption option,
                                                               const PolicySymbol* symbol) const {
   switch (option) {
      case MatchOption::matchIpAddressPrefixList:
      case MatchOption::matchIpv6AddressPrefixList: {
         auto pl = dynamic_cast<const PrefixListSymbol*>(symbol);
         KEL_ASSERT(pl);
         return prefixListMatcherFactory(pl->name(), pl->status());
      }
      case MatchOption::matchIpAddressAccessList: {
         auto acl = dynamic_cast<const IpAccessListSymbol*>(symbol);
         KEL_ASSERT(acl);
         return ipAccessListMatcherFactory(acl->name(), acl->status());
      }
      default:
         KEL_ASSERT(0 && "Unsupported match option");
         return nullptr;
   }
}

void CommonComponentSymbolSeqSm::handleVersion(MatchOption option, const PolicySymbol* symbol) {
   KTRACE(8, *this,
          "handleVersion"
              << " RouteMapName=" << rmName_ << ", seqNum=" << seqno_
              << ", match option=" << static_cast<U32>(option));
   const CommonComponentSymbolSeqSm* commonComponentSymbolSeqSm = this;
   KEL_ASSERT(commonComponentSymbolSeqSm->matchRuleSupported(option));
   const auto& seq = matchSeqReactor_.notifier();
   const Kel::Ptr<PolicyMatchSymbolList const> policySymbolList =
       seq ? seq->policySymbolList(option) : nullptr;
   KEL_ASSERT(policySymbolList && policySymbolList->policySymbols() == 1);
   Kel::Ptr<Matcher const> matcher = matcherFor(option, symbol);
   const Kel::Ptr<RouteMapStatus const>& rmStatus = rmSymbol_->rmStatus();
   if (!rmStatus || !rmStatus->seqStatus(seqno_)) return;
   rmConfigSymbolReactor_->pendingUpdateIs(seqno_)->matcherChangeIs(option, std::move(matcher));
}

void CommonComponentSymbolSeqSm::SubSeqReactor::handleSymbol() {
   owner->subRouteMapSymbolNotifier_.notifierIs(notifier()->symbol());
   owner->handleSubRouteMapSymbol();
}

void CommonComponentSymbolSeqSm::handleSubRouteMapSymbol() {
   const Kel::Ptr<RouteMapStatus const>& rmStatus = rmSymbol_->rmStatus();
   const auto seq = rmStatus ? rmStatus->seqStatus(seqno_) : nullptr;
   if (!seq) return;
   const auto& subSeq = subSeqReactor_.notifier();
   const Kel::Ptr<RouteMapSymbol const> symbol = subSeq ? subSeq->symbol() : nullptr;
   // Without a call the compiled sequence is rebuilt from the configuration, not from here.
   if (!symbol) return;
   const Kel::Ptr<RouteMapStatus const> status = symbol->rmStatus();
   // A call that would close a cycle is never followed (the compiler gives this machine no
   // symbol for it), and the compiler drops a status for a call it does not make: so route maps
   // cannot rebuild each other in a loop through here.
   // Compared with what the sequence will call once the mailbox is applied: a status already
   // waiting there is newer than the compiled one. A deleted callee's null status would
   // otherwise match a compiled sequence that has no callee yet, and the waiting status, now
   // stale, would be applied after all.
   const Kel::Ptr<PendingSymbolUpdate> waiting = rmConfigSymbolReactor_->pendingUpdate(seqno_);
   const Kel::Ptr<RouteMapStatus const> next = waiting && waiting->hasSubRouteMapUpdate()
                                                   ? waiting->subRouteMapStatus()
                                                   : seq->subRouteMap();
   if (status == next) return;
   KTRACE(8, *this,
          " updating symbol " << rmName_ << " with sub-route-map:" << symbol->name()
                              << " rmsymbol=" << *symbol << " rmStatus=" << textOf(status.get())
                              << " seqno " << seqno_);
   auto pending = rmConfigSymbolReactor_->pendingUpdateIs(seqno_);
   pending->hasSubRouteMapUpdateIs(true);
   pending->subRouteMapStatusIs(status);
}

void CommonComponentSymbolSeqSm::matchSymNotifierMapDel(MatchOption option) {
   matchSymNotifierMap_.erase(option);
}

void CommonComponentSymbolSeqSm::matchSymNotifierMapDelAll() {
   matchSymNotifierMap_.clear();
}

void CommonComponentSymbolSeqSm::matchSymbolNotifierCollDel(MatchOption option) {
   matchSymNotifierMapDel(option);
   matchSymbolNotifierColl_.erase(option);
}

void CommonComponentSymbolSeqSm::matchSymbolNotifierCollDelAll() {
   matchSymNotifierMapDelAll();
   matchSymbolNotifierColl_.clear();
}

void CommonComponentSymbolSeqSm::subRouteMapSymbolNotifierDel() {
   subRouteMapSymbolNotifier_.notifierIs(nullptr);
}

void CommonComponentSymbolSeqSm::formatDerivedType(std::ostream& os) const {
   os << "CommonComponentSymbolSeqSm " << rmName_ << " seq " << seqno_;
}

}  // namespace Routing::Policy
