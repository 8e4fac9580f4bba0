#include "RoutingPolicy/status/RouteMapStatus.h"

#include "Kel/Exception.h"

namespace Routing::Policy {

RouteMapStatus::RouteMapStatus(Kel::String name) : name_(std::move(name)) {}

RouteMapStatus::~RouteMapStatus() = default;

Kel::Ptr<RouteMapStatus> RouteMapStatus::newFrom(const Kel::Ptr<RouteMapStatus const>& source,
                                                 Kel::String name) {
   Kel::Ptr<RouteMapStatus> rm = routeMapStatusFactory(std::move(name));
   rm->hasNotificationActiveIs(true);
   rm->updateFeaturesOnSeqStatusChangeIs(false);
   clone(*rm, *source);
   rm->updateFeatures();
   return rm;
}

Kel::Ptr<RouteMapStatus> RouteMapStatus::deepCopy() const {
   Kel::Ptr<RouteMapStatus> copy = routeMapStatusFactory(name_);
   copy->hasNotificationActiveIs(true);
   copy->updateFeaturesOnSeqStatusChangeIs(false);
   for (const auto& [seqno, seq] : attr_.seqStatus) {
      Kel::Ptr<RouteMapSeqStatus> s = routeMapSeqStatusFactory(seqno);
      s->hasNotificationActiveIs(true);
      s->matchActionIs(seq->matchAction());
      s->subRouteMapIs(seq->subRouteMap());
      s->subInvertIs(seq->subInvert());
      for (const auto& [option, m] : seq->matcherMap()) s->matcherIs(option, m);
      for (const auto& [option, st] : seq->setterMap()) s->setterIs(option, st);
      copy->seqStatusIs(std::move(s));
   }
   copy->updateFeatures();
   return copy;
}

void RouteMapStatus::seqStatusIs(Kel::Ptr<RouteMapSeqStatus const> seq) {
   if (!seq) Kel::throwNullMutatorArg("Routing::Policy::RouteMapStatus", "seqStatus");
   const U32 seqno = seq->seqno();
   if (!attr_.seqStatus.set(seqno, std::move(seq))) return;
   handleSeqStatus();
   notify(&Reactor::handleSeqStatus, seqno);
}

void RouteMapStatus::seqStatusDel(U32 seqno) {
   if (!attr_.seqStatus.del(seqno)) return;
   handleSeqStatus();
   notify(&Reactor::handleSeqStatus, seqno);
}

void RouteMapStatus::seqStatusDelAll() {
   attr_.seqStatus.delAll([this](U32 seqno) {
      handleSeqStatus();
      notify(&Reactor::handleSeqStatus, seqno);
   });
}

void RouteMapStatus::updateFeatures() {
   // In place and silent: whoever changed the sequences notifies for that change.
   attr_.features = RouteMapFeatures{};
   for (const auto& [seqno, seq] : attr_.seqStatus) attr_.features.updateFrom(seq->getFeatures());
   updateFeaturesOnSeqStatusChangeIs(true);
}

void RouteMapStatus::handleSeqStatus() {
   if (attr_.updateFeaturesOnSeqStatusChange) updateFeatures();
}

void RouteMapStatus::dumpState(Orb::DumpContext& ctx, U32 indent) const {
   Orb::objDumpPrintf(ctx, "%*cRouteMapStatus %s features=<%s>\n", static_cast<int>(indent), ' ',
                      name_.c_str(), attr_.features.toStrep().c_str());
   for (const auto& [seqno, seq] : attr_.seqStatus) {
      Orb::dumpChild(ctx, indent + 2, seq.get(), "RouteMapSeqStatus");
   }
}

Kel::Ptr<RouteMapStatus> routeMapStatusFactory(Kel::String name) {
   return Kel::makePtr<RouteMapStatus>(std::move(name));
}

}  // namespace Routing::Policy
