#include "RoutingPolicy/status/RouteMapSeqStatus.h"

#include "RoutingPolicy/status/RouteMapStatus.h"

namespace Routing::Policy {

RouteMapSeqStatus::RouteMapSeqStatus(U32 seqno) : seqno_(seqno) {}

RouteMapSeqStatus::~RouteMapSeqStatus() = default;

Kel::Ptr<RouteMapSeqStatus> RouteMapSeqStatus::newFrom(
    const Kel::Ptr<RouteMapSeqStatus const>& source, U32 seqno) {
   Kel::Ptr<RouteMapSeqStatus> seq = routeMapSeqStatusFactory(seqno);
   seq->hasNotificationActiveIs(true);
   clone(*seq, *source);
   return seq;
}

void RouteMapSeqStatus::matcherIs(RouteMap::MatchOption o, Kel::Ptr<Matcher const> m) {
   if (!m) return matcherDel(o);
   if (attr_.matcher.set(o, std::move(m))) notify(&Reactor::handleMatcher, o);
}

void RouteMapSeqStatus::matcherDel(RouteMap::MatchOption o) {
   if (attr_.matcher.del(o)) notify(&Reactor::handleMatcher, o);
}

void RouteMapSeqStatus::matcherDelAll() {
   attr_.matcher.delAll([this](RouteMap::MatchOption o) { notify(&Reactor::handleMatcher, o); });
}

void RouteMapSeqStatus::setterIs(RouteMap::SetOption o, Kel::Ptr<Setter const> s) {
   if (!s) return setterDel(o);
   if (attr_.setter.set(o, std::move(s))) notify(&Reactor::handleSetter, o);
}

void RouteMapSeqStatus::setterDel(RouteMap::SetOption o) {
   if (attr_.setter.del(o)) notify(&Reactor::handleSetter, o);
}

void RouteMapSeqStatus::setterDelAll() {
   attr_.setter.delAll([this](RouteMap::SetOption o) { notify(&Reactor::handleSetter, o); });
}

Kel::Ptr<RouteMapStatus const> RouteMapSeqStatus::subRouteMap() const {
   return attr_.subRouteMap;
}

void RouteMapSeqStatus::subRouteMapIs(Kel::Ptr<RouteMapStatus const> rm) {
   setAttr(attr_.subRouteMap, std::move(rm), &Reactor::handleSubRouteMap);
}

void RouteMapSeqStatus::continueSeqIs(Kel::Ptr<RouteMapSeqStatus const> target) {
   setAttr(attr_.continueSeq, std::move(target), &Reactor::handleContinueSeq);
}

RouteMapFeatures RouteMapSeqStatus::getFeatures() const {
   RouteMapFeatures f;
   for (const auto& [option, m] : attr_.matcher) f.updateFrom(m->getFeatures());
   for (const auto& [option, s] : attr_.setter) f.updateFrom(s->getFeatures());
   if (attr_.subRouteMap) f.updateFrom(attr_.subRouteMap->features());
   return f;
}

void RouteMapSeqStatus::dumpState(Orb::DumpContext& ctx, U32 indent) const {
   const int in = static_cast<int>(indent);
   Orb::objDumpPrintf(ctx, "%*cRouteMapSeqStatus %s %u\n", in, ' ',
                      Acl::stringValue(attr_.matchAction).c_str(), seqno_);
   if (attr_.subRouteMap) {
      Orb::objDumpPrintf(ctx, "%*c  subRouteMap=%s\n", in, ' ', attr_.subRouteMap->name().c_str());
      // Written out in full at every caller, not through the child rule: a reader of one
      // sequence sees what it calls without hunting for an earlier line.
      attr_.subRouteMap->dumpState(ctx, indent + 4);
   }
   for (const auto& [option, m] : attr_.matcher) {
      Orb::objDumpPrintf(ctx, "%*c  matchOption=%s %s\n", in, ' ',
                         RouteMap::stringValue(option).c_str(), m->toStrep().c_str());
   }
   for (const auto& [option, s] : attr_.setter) {
      Orb::objDumpPrintf(ctx, "%*c  setOption=%s %s\n", in, ' ',
                         RouteMap::stringValue(option).c_str(), s->toStrep().c_str());
   }
   if (attr_.continueSeq) {
      Orb::objDumpPrintf(ctx, "%*c  continueSeq=%u\n", in, ' ', attr_.continueSeq->seqno());
   }
}

Kel::Ptr<RouteMapSeqStatus> routeMapSeqStatusFactory(U32 seqno) {
   return Kel::makePtr<RouteMapSeqStatus>(seqno);
}

}  // namespace Routing::Policy
