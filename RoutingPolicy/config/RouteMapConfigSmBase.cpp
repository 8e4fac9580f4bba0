#include "RoutingPolicy/config/RouteMapConfigSmBase.h"

namespace Routing::Policy {

void RouteMapBlockedSequenceList::sequenceIs(U32 seqno, bool blocked) {
   if (sequence_.set(seqno, blocked)) notify(&Reactor::handleSequence, seqno);
}

void RouteMapBlockedSequenceList::sequenceDel(U32 seqno) {
   if (sequence_.del(seqno)) notify(&Reactor::handleSequence, seqno);
}

void RouteMapBlockedSequenceList::sequenceDelAll() {
   sequence_.delAll([this](U32 seqno) { notify(&Reactor::handleSequence, seqno); });
}

Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceListFactory(Kel::String rmName) {
   return Kel::makePtr<RouteMapBlockedSequenceList>(std::move(rmName));
}

Kel::Ptr<RouteMapUpdateNotifier> routeMapUpdateNotifierFactory() {
   return Kel::makePtr<RouteMapUpdateNotifier>();
}

Kel::Ptr<RouteMapOpModeNotifier> routeMapOpModeNotifierFactory() {
   return Kel::makePtr<RouteMapOpModeNotifier>();
}

}  // namespace Routing::Policy
