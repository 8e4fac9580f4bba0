#include "RoutingPolicy/config/Policy.h"

#include <ostream>
#include <sstream>

#include "Kel/ValueText.h"

namespace Routing::Policy {

using Routing::RouteMap::MatchOption;
using Routing::RouteMap::SetOption;

Kel::Ptr<MatcherChange> matcherChangeFactory(MatchOption option) {
   return Kel::makePtr<MatcherChange>(option);
}

Kel::Ptr<SetterChange> setterChangeFactory(SetOption option) {
   return Kel::makePtr<SetterChange>(option);
}

Kel::Ptr<ContinueChange> continueChangeFactory(bool hasContinue) {
   return Kel::makePtr<ContinueChange>(hasContinue);
}

// --- SequenceChange

Kel::Ptr<MatcherChange> SequenceChange::matcherChangeIs(MatchOption o) {
   if (Kel::Ptr<MatcherChange> existing = matcherChange_.get(o)) return existing;
   Kel::Ptr<MatcherChange> c = matcherChangeFactory(o);
   matcherChange_.set(o, c);
   notify(&Reactor::handleMatcherChange, o);
   return c;
}

void SequenceChange::matcherChangeDel(MatchOption o) {
   if (matcherChange_.del(o)) notify(&Reactor::handleMatcherChange, o);
}

void SequenceChange::matcherChangeDelAll() {
   matcherChange_.delAll([this](MatchOption o) { notify(&Reactor::handleMatcherChange, o); });
}

Kel::Ptr<SetterChange> SequenceChange::setterChangeIs(SetOption o) {
   if (Kel::Ptr<SetterChange> existing = setterChange_.get(o)) return existing;
   Kel::Ptr<SetterChange> c = setterChangeFactory(o);
   setterChange_.set(o, c);
   notify(&Reactor::handleSetterChange, o);
   return c;
}

void SequenceChange::setterChangeDel(SetOption o) {
   if (setterChange_.del(o)) notify(&Reactor::handleSetterChange, o);
}

void SequenceChange::setterChangeDelAll() {
   setterChange_.delAll([this](SetOption o) { notify(&Reactor::handleSetterChange, o); });
}

Kel::Ptr<SequenceChange> sequenceChangeFactory(U32 seqno) {
   return Kel::makePtr<SequenceChange>(seqno);
}

// --- Symbol-side changes

void MatcherChangeSymbol::matchSymbolIs(PolicySymbolPtr s) {
   if (!s) Kel::throwNullMutatorArg("Routing::Policy::MatcherChangeSymbol", "matchSymbol");
   if (matchSymbol_.set(s, true)) notify(&Reactor::handleMatchSymbol, s);
}

void MatcherChangeSymbol::matchSymbolDel(const PolicySymbolPtr& s) {
   if (matchSymbol_.del(s)) notify(&Reactor::handleMatchSymbol, s);
}

void MatcherChangeSymbol::matchSymbolDelAll() {
   matchSymbol_.delAll(
       [this](const PolicySymbolPtr& s) { notify(&Reactor::handleMatchSymbol, s); });
}

Kel::Ptr<MatcherChangeSymbol> matcherChangeSymbolFactory(MatchOption option) {
   return Kel::makePtr<MatcherChangeSymbol>(option);
}

void SetterChangeSymbol::setSymbolIs(PolicySymbolPtr s) {
   if (!s) Kel::throwNullMutatorArg("Routing::Policy::SetterChangeSymbol", "setSymbol");
   if (setSymbol_.set(s, true)) notify(&Reactor::handleSetSymbol, s);
}

void SetterChangeSymbol::setSymbolDel(const PolicySymbolPtr& s) {
   if (setSymbol_.del(s)) notify(&Reactor::handleSetSymbol, s);
}

void SetterChangeSymbol::setSymbolDelAll() {
   setSymbol_.delAll([this](const PolicySymbolPtr& s) { notify(&Reactor::handleSetSymbol, s); });
}

Kel::Ptr<SetterChangeSymbol> setterChangeSymbolFactory(SetOption option) {
   return Kel::makePtr<SetterChangeSymbol>(option);
}

Kel::Ptr<SubRouteMapChangeSymbol> subRouteMapChangeSymbolFactory(
    Kel::Ptr<RouteMapSymbol const> symbol) {
   return Kel::makePtr<SubRouteMapChangeSymbol>(std::move(symbol));
}

Kel::Ptr<MatcherChangeSymbol> SequenceChangeSymbol::matcherChangeSymbolIs(MatchOption o) {
   if (Kel::Ptr<MatcherChangeSymbol> existing = matcherChangeSymbol_.get(o)) return existing;
   Kel::Ptr<MatcherChangeSymbol> c = matcherChangeSymbolFactory(o);
   matcherChangeSymbol_.set(o, c);
   notify(&Reactor::handleMatcherChangeSymbol, o);
   return c;
}

void SequenceChangeSymbol::matcherChangeSymbolDel(MatchOption o) {
   if (matcherChangeSymbol_.del(o)) notify(&Reactor::handleMatcherChangeSymbol, o);
}

void SequenceChangeSymbol::matcherChangeSymbolDelAll() {
   matcherChangeSymbol_.delAll(
       [this](MatchOption o) { notify(&Reactor::handleMatcherChangeSymbol, o); });
}

Kel::Ptr<SetterChangeSymbol> SequenceChangeSymbol::setterChangeSymbolIs(SetOption o) {
   if (Kel::Ptr<SetterChangeSymbol> existing = setterChangeSymbol_.get(o)) return existing;
   Kel::Ptr<SetterChangeSymbol> c = setterChangeSymbolFactory(o);
   setterChangeSymbol_.set(o, c);
   notify(&Reactor::handleSetterChangeSymbol, o);
   return c;
}

void SequenceChangeSymbol::setterChangeSymbolDel(SetOption o) {
   if (setterChangeSymbol_.del(o)) notify(&Reactor::handleSetterChangeSymbol, o);
}

void SequenceChangeSymbol::setterChangeSymbolDelAll() {
   setterChangeSymbol_.delAll(
       [this](SetOption o) { notify(&Reactor::handleSetterChangeSymbol, o); });
}

Kel::Ptr<SequenceChangeSymbol> sequenceChangeSymbolFactory(U32 seqno) {
   return Kel::makePtr<SequenceChangeSymbol>(seqno);
}

// --- PendingSymbolUpdate

void PendingSymbolUpdate::matcherChangeIs(MatchOption o, Kel::Ptr<Matcher const> m) {
   if (!m) {
      matcherChangeDel(o);
      return;
   }
   if (matcherChange_.set(o, std::move(m))) notify(&Reactor::handleMatcherChange, o);
}

void PendingSymbolUpdate::matcherChangeDel(MatchOption o) {
   if (matcherChange_.del(o)) notify(&Reactor::handleMatcherChange, o);
}

void PendingSymbolUpdate::matcherChangeDelAll() {
   matcherChange_.delAll([this](MatchOption o) { notify(&Reactor::handleMatcherChange, o); });
}

void PendingSymbolUpdate::setterChangeIs(SetOption o, Kel::Ptr<Setter const> s) {
   if (!s) {
      setterChangeDel(o);
      return;
   }
   if (setterChange_.set(o, std::move(s))) notify(&Reactor::handleSetterChange, o);
}

void PendingSymbolUpdate::setterChangeDel(SetOption o) {
   if (setterChange_.del(o)) notify(&Reactor::handleSetterChange, o);
}

void PendingSymbolUpdate::setterChangeDelAll() {
   setterChange_.delAll([this](SetOption o) { notify(&Reactor::handleSetterChange, o); });
}

Kel::Ptr<PendingSymbolUpdate> pendingSymbolUpdateFactory(U32 seqno) {
   return Kel::makePtr<PendingSymbolUpdate>(seqno);
}

// --- DescendingSeqnoKey, ModifiedRouteMapSeqStatus and its list

DescendingSeqnoKey DescendingSeqnoKey::fromStrep(std::string_view s) {
   return DescendingSeqnoKey(Kel::ValueText<U32>::parse(s));
}

std::ostream& operator<<(std::ostream& os, const DescendingSeqnoKey& k) {
   return os << k.seqno();
}

void ModifiedRouteMapSeqStatus::setSubRouteMap(bool undefined) {
   referenceUpdateMask_ |= subRouteMapSet;
   if (undefined) {
      undefinedReferences_ |= subRouteMapUndefined;
   } else {
      undefinedReferences_ &= static_cast<U8>(~subRouteMapUndefined);
   }
}

void ModifiedRouteMapSeqStatus::setUndefinedFromSubRouteMap(
    const Kel::Ptr<RouteMapStatus const>& subRouteMapStatus) {
   if (subRouteMapStatus && subRouteMapStatus->undefinedReferences() != 0) {
      referenceUpdateMask_ |= subRouteMapStatus->undefinedReferences();
      undefinedReferences_ |= subRouteMapStatus->undefinedReferences();
      return;
   }
   setSubRouteMap(!subRouteMapStatus);
}

std::string ModifiedRouteMapSeqStatus::toStrep() const {
   std::string status = "None";
   if (seqStatus_) {
      std::ostringstream os;
      os << seqStatus_;
      status = os.str();
   }
   return Kel::ValueWriter("Routing::Policy::ModifiedRouteMapSeqStatus")
       .field("key", key_)
       .rawField("seqStatus", status)
       .field("undefinedReferences", undefinedReferences_)
       .field("referenceUpdateMask", referenceUpdateMask_)
       .str();
}

std::ostream& operator<<(std::ostream& os, const ModifiedRouteMapSeqStatus& m) {
   return os << m.toStrep();
}

void ModifiedRouteMapSeqStatusList::seqStatusIs(const ModifiedRouteMapSeqStatus& value) {
   if (seqStatus_.set(value.key(), value)) notify(&Reactor::handleSeqStatus, value.key());
}

void ModifiedRouteMapSeqStatusList::seqStatusDel(const DescendingSeqnoKey& key) {
   if (seqStatus_.del(key)) notify(&Reactor::handleSeqStatus, key);
}

void ModifiedRouteMapSeqStatusList::seqStatusDelAll() {
   seqStatus_.delAll([this](const DescendingSeqnoKey& k) { notify(&Reactor::handleSeqStatus, k); });
}

Kel::Ptr<ModifiedRouteMapSeqStatusList> modifiedRouteMapSeqStatusListFactory() {
   return Kel::makePtr<ModifiedRouteMapSeqStatusList>();
}

// --- Symbol sequences

Kel::Ptr<PolicyMatchSymbolList> policyMatchSymbolListFactory(MatchOption option) {
   return Kel::makePtr<PolicyMatchSymbolList>(option);
}

Kel::Ptr<PolicySetSymbolList> policySetSymbolListFactory(SetOption option) {
   return Kel::makePtr<PolicySetSymbolList>(option);
}

Kel::Ptr<MatchSymbolSeq> matchSymbolSeqFactory(U32 seqno) {
   return Kel::makePtr<MatchSymbolSeq>(seqno);
}

Kel::Ptr<SetSymbolSeq> setSymbolSeqFactory(U32 seqno) {
   return Kel::makePtr<SetSymbolSeq>(seqno);
}

Kel::Ptr<SubRouteMapSymbolSeq> subRouteMapSymbolSeqFactory(U32 seqno) {
   return Kel::makePtr<SubRouteMapSymbolSeq>(seqno);
}

// --- RmConfigSymbolReactor and its collection

Kel::Ptr<PendingSymbolUpdate> RmConfigSymbolReactor::pendingUpdateIs(U32 seqno) {
   if (Kel::Ptr<PendingSymbolUpdate> existing = pendingUpdate_.get(seqno)) return existing;
   Kel::Ptr<PendingSymbolUpdate> p = pendingSymbolUpdateFactory(seqno);
   pendingUpdate_.set(seqno, p);
   notify(&Reactor::handlePendingUpdate, seqno);
   return p;
}

void RmConfigSymbolReactor::pendingUpdateDel(U32 seqno) {
   if (pendingUpdate_.del(seqno)) notify(&Reactor::handlePendingUpdate, seqno);
}

void RmConfigSymbolReactor::pendingUpdateDelAll() {
   pendingUpdate_.delAll([this](U32 seqno) { notify(&Reactor::handlePendingUpdate, seqno); });
}

void RmConfigSymbolReactor::removePendingMatcherForSeq(U32 seqno, MatchOption o) {
   if (Kel::Ptr<PendingSymbolUpdate> p = pendingUpdate_.get(seqno)) p->matcherChangeDel(o);
}

void RmConfigSymbolReactor::removePendingSetterForSeq(U32 seqno, SetOption o) {
   if (Kel::Ptr<PendingSymbolUpdate> p = pendingUpdate_.get(seqno)) p->setterChangeDel(o);
}

Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactorFactory(Kel::String name) {
   return Kel::makePtr<RmConfigSymbolReactor>(std::move(name));
}

Kel::Ptr<RmConfigSymbolReactor> RmConfigSymbolReactorColl::reactorIs(const Kel::String& name) {
   if (Kel::Ptr<RmConfigSymbolReactor> existing = reactor_.get(name)) return existing;
   Kel::Ptr<RmConfigSymbolReactor> r = rmConfigSymbolReactorFactory(name);
   reactor_.set(name, r);
   notify(&Reactor::handleReactor, name);
   return r;
}

void RmConfigSymbolReactorColl::reactorDel(const Kel::String& name) {
   if (reactor_.del(name)) notify(&Reactor::handleReactor, name);
}

void RmConfigSymbolReactorColl::reactorDelAll() {
   reactor_.delAll([this](const Kel::String& name) { notify(&Reactor::handleReactor, name); });
}

Kel::Ptr<RmConfigSymbolReactorColl> rmConfigSymbolReactorCollFactory() {
   return Kel::makePtr<RmConfigSymbolReactorColl>();
}

}  // namespace Routing::Policy
