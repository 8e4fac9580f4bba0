#pragma once
// Route-map edits as an agent writes them to the configuration entities, for the compiler's and
// the common component's tests: single clauses, the random edits of the incremental-versus-fresh
// properties, and the copy of a whole configuration that the fresh side loads at once.

#include <string>
#include <vector>

#include "Routing/RouteMap/Config.h"

namespace rm_edit {

using Routing::RouteMap::Config;
using Routing::RouteMap::MapEntry;

inline Kel::Ptr<MapEntry> entry(const Kel::Ptr<Config>& config, const Kel::Name& rm, U32 seqno,
                                bool permit = true) {
   auto e = config->routeMapIs(rm)->mapEntryIs(seqno);
   e->permitIs(permit);
   return e;
}

inline void setTag(const Kel::Ptr<MapEntry>& e, U32 tag) {
   e->tagIs(Routing::RouteTag(tag));
   e->setFlagsIs(e->setFlags() | MapEntry::tagFlag);
}

// The distance flag does not drive the distance setter, the value does: "set distance" writes
// the flag first and then the value.
inline void setDistance(const Kel::Ptr<MapEntry>& e, U32 distance) {
   e->setFlagsIs(e->setFlags() | MapEntry::distanceFlag);
   e->distanceIs(Routing::RoutePreference(distance));
}

// "no set distance": the flag goes and the value returns to unset.
inline void clearDistance(const Kel::Ptr<MapEntry>& e) {
   e->setFlagsIs(e->setFlags() & ~MapEntry::distanceFlag);
   e->distanceIs(Routing::RoutePreference());
}

inline void setContinue(const Kel::Ptr<MapEntry>& e, U32 target) {
   e->continueSeqIs(target);
   e->setFlagsIs(e->setFlags() | MapEntry::continueFlag);
}

// The continue clause removed, aimed at the next sequence, or at a later one.
template <class Pick>
void randomContinue(const Kel::Ptr<MapEntry>& e, Pick&& pick) {
   switch (pick(3)) {
      case 0:
         e->setFlagsIs(e->setFlags() & ~MapEntry::continueFlag);
         break;
      case 1:
         setContinue(e, 0);
         break;
      default:
         setContinue(e, e->seqno() + 10 * (1 + pick(3)));
         break;
   }
}

// A call to a route map of higher index, or none: no cycle is ever configured.
template <class Pick>
void randomSubRouteMap(const Kel::Ptr<MapEntry>& e, const std::vector<std::string>& names,
                       U32 rmIndex, Pick&& pick) {
   if (rmIndex + 1 < names.size() && pick(2)) {
      const U32 callee = rmIndex + 1 + pick(static_cast<U32>(names.size()) - rmIndex - 1);
      e->subRouteMapIs(names[callee], pick(3) == 0);
   } else {
      e->subRouteMapIs("");
   }
}

// The configuration an agent would load from text: the same route maps, built at once.
inline void copyRouteMaps(const Kel::Ptr<Config>& from, const Kel::Ptr<Config>& to) {
   for (const auto& [name, map] : from->routeMaps()) {
      auto copy = to->routeMapIs(name);
      for (const auto& [seqno, in] : map->mapEntries()) {
         auto out = copy->mapEntryIs(seqno);
         out->permitIs(in->permit());
         for (const auto& [o, rule] : in->matchRules()) out->matchRuleIs(rule);
         out->tagIs(in->tag());
         out->distanceIs(in->distance());
         out->continueSeqIs(in->continueSeq());
         out->setFlagsIs(in->setFlags());
         out->subRouteMapIs(in->subRouteMap(), in->subRouteMapInvert());
      }
   }
}

}  // namespace rm_edit
