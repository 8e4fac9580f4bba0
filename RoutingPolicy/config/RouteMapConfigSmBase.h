#pragma once
// What the per-route-map machines share: the entities through which the filtered route maps hold
// back and release sequences, the notifier of the configured op mode, and the two factories
// through which an agent supplies its sequence machines.

#include <unordered_map>

#include "Kel/Entity.h"
#include "Orb/BaseOutputSm.h"
#include "Routing/RouteMap/Config.h"
#include "Routing/RouteMap/Options.h"
#include "RoutingPolicy/config/RouteMapLoopDetect.h"

namespace Routing::Policy {

class PolicyRoot;
class RmConfigSymbolReactor;
class RmSeqConfigFilterSmBase;
class RmSeqConfigSymbolSmBase;
class RouteMapSymbol;

// The sequences of one route map whose sub-route-map is withheld from the filtered copy because
// it would close a cycle. While any is listed, the filtered route map keeps its old version, so
// the agent never takes a half-applied route map for current.
class RouteMapBlockedSequenceList : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<RouteMapBlockedSequenceList> {
   public:
      virtual void handleSequence(U32) {}
   };

   using SequenceColl = Kel::Collection<U32, bool, std::unordered_map<U32, bool>>;

   explicit RouteMapBlockedSequenceList(Kel::String rmName) : rmName_(std::move(rmName)) {}

   const Kel::String& rmName() const { return rmName_; }

   bool sequence(U32 seqno) const { return sequence_.get(seqno); }
   bool sequenceHas(U32 seqno) const { return sequence_.has(seqno); }
   const SequenceColl& sequences() const { return sequence_; }
   void sequenceIs(U32 seqno, bool blocked);
   void sequenceDel(U32 seqno);
   void sequenceDelAll();

private:
   const Kel::String rmName_;
   SequenceColl sequence_;
};

Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceListFactory(Kel::String rmName);

// Moves on whenever a filtered route map is updated or a route map is deleted, so that blocked
// sequences of other route maps look again at whether their cycle is gone.
class RouteMapUpdateNotifier : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<RouteMapUpdateNotifier> {
   public:
      virtual void handleVersion() {}
   };

   U32 version() const { return version_; }
   void versionIs(U32 v) { setAttr(version_, v, &Reactor::handleVersion); }
   // Wraps modulo 2^32; only the change matters to followers, not the value.
   void versionInc(U32 n = 1) { versionIs(version_ + n); }

private:
   U32 version_ = 0;
};

Kel::Ptr<RouteMapUpdateNotifier> routeMapUpdateNotifierFactory();

// Carries the configured op mode to the sequence machines, which follow this one entity rather
// than the whole configuration.
class RouteMapOpModeNotifier : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<RouteMapOpModeNotifier> {
   public:
      virtual void handleRouteMapOpMode() {}
   };

   Routing::RouteMap::RouteMapOpModeType routeMapOpMode() const { return routeMapOpMode_; }
   void routeMapOpModeIs(Routing::RouteMap::RouteMapOpModeType mode) {
      setAttr(routeMapOpMode_, mode, &Reactor::handleRouteMapOpMode);
   }

private:
   Routing::RouteMap::RouteMapOpModeType routeMapOpMode_ =
       Routing::RouteMap::RouteMapOpModeType::opModeDefault;
};

Kel::Ptr<RouteMapOpModeNotifier> routeMapOpModeNotifierFactory();

// The agent's factory of the machines that compile one sequence. What they translate is the
// agent's choice; they must build on RmSeqConfigSymbolSmBase so the compiler can read their
// change records.
class RmConfigSymbolSmHelperBase : public Kel::RefCounted {
public:
   virtual Kel::Ptr<RmSeqConfigSymbolSmBase> createSeqConfigSm(
       const Kel::String& rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<RouteMapSymbol> rmSymbol, Kel::Ptr<PolicyRoot const> policyRoot,
       Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor,
       Kel::Ptr<RouteMapOpModeNotifier const> routeMapOpModeNotifier) = 0;
};

// The agent's factory of the machines that copy one sequence into the filtered configuration.
class RmConfigFilterSmHelperBase : public Kel::RefCounted {
public:
   virtual Kel::Ptr<RmSeqConfigFilterSmBase> createSeqConfigSm(
       const Kel::String& rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
       Kel::Ptr<Routing::RouteMap::MapEntry> filteredSeqConfig,
       Routing::RouteMap::Config* filteredRmConfig,
       Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
       Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier) = 0;
};

// The common base of the machines that follow one configured route map. It delivers the map's
// sequence and version changes to the derived machine's handlers. The name is kept apart from
// the map so that a machine whose map was dropped still knows what it was.
class RouteMapConfigSmBase : public Orb::BaseOutputSm {
public:
   explicit RouteMapConfigSmBase(Kel::Ptr<Routing::RouteMap::Map const> routeMap);
   ~RouteMapConfigSmBase() override;

   const Kel::Ptr<Routing::RouteMap::Map const>& routeMap() const { return mapReactor_.notifier(); }
   const Kel::Name& name() const { return name_; }
   virtual void routeMapIs(Kel::Ptr<Routing::RouteMap::Map const> routeMap);
   virtual void routeMapDel();

   const Kel::Ptr<ContinueSeqMap>& continueSeqMap() const { return continueSeqMap_; }
   void continueSeqMapIs(Kel::Ptr<ContinueSeqMap> m) { continueSeqMap_ = std::move(m); }

   // One sequence added or removed.
   virtual void handleRouteMapSeq(U32 seqno) = 0;
   // Every sequence of the map.
   virtual void handleRouteMapSeq();
   virtual void handleVersion() {}

protected:
   // Follows the map and visits its sequences; derived machines set up what the visit needs
   // first and then call this.
   void handleInitialized() override;

private:
   class MapReactor : public Routing::RouteMap::Map::Reactor {
   public:
      explicit MapReactor(RouteMapConfigSmBase* owner) : owner_(owner) {}
      void handleMapEntry(U32 seqno) override { owner_->handleRouteMapSeq(seqno); }
      void handleVersion() override { owner_->handleVersion(); }

   private:
      RouteMapConfigSmBase* owner_;
   };

   Kel::Name name_;
   // Bound only at initialisation, so no handler runs on a machine still being built.
   Kel::Ptr<Routing::RouteMap::Map const> pendingMap_;
   MapReactor mapReactor_;
   Kel::Ptr<ContinueSeqMap> continueSeqMap_;
};

}  // namespace Routing::Policy
