#include "RoutingPolicy/config/RouteMapConfigSmBase.h"

#include <vector>

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

RouteMapConfigSmBase::RouteMapConfigSmBase(Kel::Ptr<Routing::RouteMap::Map const> routeMap)
    : name_(routeMap ? routeMap->name() : Kel::Name()),
      pendingMap_(std::move(routeMap)),
      mapReactor_(this) {}

RouteMapConfigSmBase::~RouteMapConfigSmBase() = default;

void RouteMapConfigSmBase::routeMapIs(Kel::Ptr<Routing::RouteMap::Map const> routeMap) {
   if (routeMap) name_ = routeMap->name();
   if (!initialized()) {
      pendingMap_ = std::move(routeMap);
      return;
   }
   mapReactor_.notifierIs(std::move(routeMap));
}

void RouteMapConfigSmBase::routeMapDel() {
   routeMapIs(nullptr);
}

void RouteMapConfigSmBase::handleRouteMapSeq() {
   const Kel::Ptr<Routing::RouteMap::Map const>& map = routeMap();
   if (!map) return;
   // Collected first: a handler may change the map's entries while we walk them.
   std::vector<U32> seqnos;
   seqnos.reserve(map->mapEntries().size());
   for (const auto& [seqno, entry] : map->mapEntries()) seqnos.push_back(seqno);
   for (U32 seqno : seqnos) handleRouteMapSeq(seqno);
}

void RouteMapConfigSmBase::handleInitialized() {
   continueSeqMapIs(continueSeqMapFactory(name_));
   mapReactor_.notifierIs(std::move(pendingMap_));
   handleRouteMapSeq();
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
