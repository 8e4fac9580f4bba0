#pragma once
// Two facilities the route-map machines share: the configured continue clauses of one route map
// (ContinueSeqMap), from which the compiler resolves compiled continue targets, and the question
// whether one route map may call another as a sub-route-map without the calls going round in a
// loop (RouteMapLoopDetect).

#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Kel/Entity.h"
#include "Routing/RouteMap/Config.h"

namespace Routing::Policy {

// Origin sequence number -> configured target, 0 standing for "continue" without a target. The
// configured value is kept apart from the compiled one because the compiled target depends on
// which sequences exist at the time, and has to be resolved again when they change.
class ContinueSeqMap : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<ContinueSeqMap> {
   public:
      virtual void handleContinueSeq(U32) {}
   };

   // Ascending by origin.
   using ContinueSeqColl = Kel::Collection<U32, U32>;

   explicit ContinueSeqMap(Kel::Name name) : name_(std::move(name)) {}

   const Kel::Name& name() const { return name_; }

   // 0 both for an absent origin and for a plain "continue"; continueSeqHas tells them apart.
   U32 continueSeq(U32 origin) const { return continueSeq_.get(origin); }
   bool continueSeqHas(U32 origin) const { return continueSeq_.has(origin); }
   const ContinueSeqColl& continueSeqs() const { return continueSeq_; }
   void continueSeqIs(U32 origin, U32 target);
   void continueSeqDel(U32 origin);
   void continueSeqDelAll();

private:
   const Kel::Name name_;
   ContinueSeqColl continueSeq_;
};

Kel::Ptr<ContinueSeqMap> continueSeqMapFactory(Kel::Name name);

// A value: the configuration to search. It holds no reference, because the machines that ask it
// are owned by whoever owns the configuration.
class RouteMapLoopDetect {
public:
   explicit RouteMapLoopDetect(const Routing::RouteMap::Config* config = nullptr)
       : config_(config) {}

   const Routing::RouteMap::Config* config() const { return config_; }
   void configIs(const Routing::RouteMap::Config* config) { config_ = config; }

   // Whether `routeMapName` calling `subRouteMapName` would make sub-route-map calls go round.
   // A route map that is not configured calls nothing, so it cannot close a loop.
   bool hasLoops(const Kel::String& routeMapName, const Kel::String& subRouteMapName) const;

   bool operator==(const RouteMapLoopDetect& o) const { return config_ == o.config_; }

   std::string toStrep() const;
   static RouteMapLoopDetect fromStrep(std::string_view s);

private:
   using MapSet = std::unordered_set<const Routing::RouteMap::Map*>;

   // Depth first: `onPath` holds the maps of the call chain being followed, `finished` the maps
   // whose every call has been followed without meeting the chain, which no later chain needs
   // to search again.
   bool _hasCycle(const Routing::RouteMap::Map* start, MapSet& onPath, MapSet& finished) const;

   const Routing::RouteMap::Config* config_;
};

std::ostream& operator<<(std::ostream& os, const RouteMapLoopDetect& d);

}  // namespace Routing::Policy
