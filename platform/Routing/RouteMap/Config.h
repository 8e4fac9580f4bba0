#pragma once
// Route-map configuration as the agent writes it and the policy library follows it:
// Config (route maps by name) -> Map (sequences by number) -> MapEntry (one sequence).
//
// These are notifying entities. Every setter compares first, so a reactor hears exactly the real
// changes, one notification per changed attribute or collection key. A Map's `version` is the
// agent's "this batch of edits is complete" signal: compilers rebuild on it rather than on each
// attribute, so they never publish a half-edited route map.
//
// Values that come from configuration text are checked here and refused with a
// Kel::RangeException, so nothing downstream has to defend against them.

#include <map>
#include <unordered_map>

#include "Kel/Entity.h"
#include "Orb/MaybeU63.h"
#include "Routing/RouteMap/MatchRule.h"
#include "Routing/RouteMap/Options.h"
#include "Routing/RouteTypes.h"

namespace Routing::RouteMap {

// How many sequences of one configuration call each route map as their sub-route-map. Kept up to
// date by the entities themselves, so that the question "does anything call X" is a lookup: loop
// detection asks it before it searches, and most calls into a fresh or chain-shaped configuration
// need no search at all.
class SubRouteMapCalls : public Kel::RefCounted {
public:
   U32 callers(const Kel::Name& name) const {
      const auto it = count_.find(name);
      return it == count_.end() ? 0 : it->second;
   }
   void add(const Kel::Name& name) {
      if (!name.empty()) ++count_[name];
   }
   void remove(const Kel::Name& name);

private:
   std::unordered_map<Kel::Name, U32> count_;
};

class MapEntry : public Kel::Entity {
public:
   // Which set clauses and which continue clause are configured. The values beside them (tag,
   // distance, metric, continueSeq) keep their last setting when a flag is cleared, so turning a
   // clause off and on again restores it without the agent re-sending the value.
   using SetFlags = U32;
   static constexpr SetFlags metricFlag = 0x1;
   static constexpr SetFlags distanceFlag = 0x2;
   static constexpr SetFlags tagFlag = 0x8000;
   static constexpr SetFlags continueFlag = 0x10000;
   static constexpr SetFlags allFlags = metricFlag | distanceFlag | tagFlag | continueFlag;

   class Reactor : public Kel::ReactorFor<MapEntry> {
   public:
      virtual void handlePermit() {}
      virtual void handleMatchRule(MatchOption) {}
      virtual void handleSetFlags() {}
      virtual void handleTag() {}
      virtual void handleDistance() {}
      virtual void handleMetric() {}
      virtual void handleContinueSeq() {}
      // The sub-route-map's name and its inversion change together.
      virtual void handleSubRouteMap() {}
      virtual void handleDescription(U32) {}
   };

   using MatchRuleColl = Kel::Collection<MatchOption, MatchRule>;
   using DescriptionColl = Kel::Collection<U32, Kel::String>;

   explicit MapEntry(U32 seqno) : seqno_(seqno) {}

   U32 seqno() const { return seqno_; }

   bool permit() const { return permit_; }
   void permitIs(bool v) { setAttr(permit_, v, &Reactor::handlePermit); }

   // Ordered by option, the order in which compiled matchers run.
   MatchRule matchRule(MatchOption o) const { return matchRule_.get(o); }
   bool matchRuleHas(MatchOption o) const { return matchRule_.has(o); }
   const MatchRuleColl& matchRules() const { return matchRule_; }
   // Keyed by the rule's own option; a rule without one (matchInvalid) is refused.
   void matchRuleIs(const MatchRule& rule);
   void matchRuleDel(MatchOption o);
   void matchRuleDelAll();

   SetFlags setFlags() const { return setFlags_; }
   // Bits outside allFlags are refused.
   void setFlagsIs(SetFlags v);

   RouteTag tag() const { return tag_; }
   void tagIs(RouteTag v) { setAttr(tag_, v, &Reactor::handleTag); }

   RoutePreference distance() const { return distance_; }
   void distanceIs(RoutePreference v) { setAttr(distance_, v, &Reactor::handleDistance); }

   const Orb::MaybeU63& metric() const { return metric_; }
   void metricIs(const Orb::MaybeU63& v) { setAttr(metric_, v, &Reactor::handleMetric); }

   // 0 continues at the next sequence; an explicit target must lie after this sequence, since
   // evaluation only ever moves forward.
   U32 continueSeq() const { return continueSeq_; }
   void continueSeqIs(U32 target);

   // Empty: no sub-route-map. Inverting the result of no route map is refused.
   const Kel::Name& subRouteMap() const { return subRouteMap_; }
   bool subRouteMapInvert() const { return subRouteMapInvert_; }
   void subRouteMapIs(const Kel::Name& name, bool invert = false);

   // Description lines by index; an absent line reads as empty.
   Kel::String description(U32 index) const { return description_.get(index); }
   bool descriptionHas(U32 index) const { return description_.has(index); }
   const DescriptionColl& descriptions() const { return description_; }
   void descriptionIs(U32 index, const Kel::String& text);
   void descriptionDel(U32 index);
   void descriptionDelAll();

   void formatDerivedType(std::ostream& os) const override;

   // The count this entry's call belongs to while its route map is part of a configuration;
   // null otherwise. Moves the entry's current call from the old count to the new one.
   void subRouteMapCallsIs(const Kel::Ptr<SubRouteMapCalls>& calls);

private:
   const U32 seqno_;
   bool permit_ = true;
   MatchRuleColl matchRule_;
   SetFlags setFlags_ = 0;
   RouteTag tag_;
   RoutePreference distance_;
   Orb::MaybeU63 metric_;
   U32 continueSeq_ = 0;
   Kel::Name subRouteMap_;
   bool subRouteMapInvert_ = false;
   DescriptionColl description_;
   Kel::Ptr<SubRouteMapCalls> calls_;
};

Kel::Ptr<MapEntry> mapEntryFactory(U32 seqno);

class Map : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Map> {
   public:
      virtual void handleMapEntry(U32) {}
      virtual void handleVersion() {}
   };

   // Ascending sequence number, the order of evaluation.
   using MapEntryColl = Kel::Collection<U32, Kel::Ptr<MapEntry>>;

   explicit Map(Kel::Name name) : name_(std::move(name)) {}

   const Kel::Name& name() const { return name_; }

   Kel::Ptr<MapEntry const> mapEntry(U32 seqno) const { return mapEntry_.get(seqno); }
   Kel::Ptr<MapEntry> mapEntry(U32 seqno) { return mapEntry_.get(seqno); }
   bool mapEntryHas(U32 seqno) const { return mapEntry_.has(seqno); }
   const MapEntryColl& mapEntries() const { return mapEntry_; }
   // The entry of that number, made (and notified) only when absent.
   Kel::Ptr<MapEntry> mapEntryIs(U32 seqno);
   void mapEntryDel(U32 seqno);
   void mapEntryDelAll();

   U32 version() const { return version_; }
   void versionIs(U32 v) { setAttr(version_, v, &Reactor::handleVersion); }

   void formatDerivedType(std::ostream& os) const override;

   // Set by the configuration that holds the map, cleared when it lets the map go; every entry
   // follows.
   void subRouteMapCallsIs(const Kel::Ptr<SubRouteMapCalls>& calls);

private:
   const Kel::Name name_;
   MapEntryColl mapEntry_;
   U32 version_ = 0;
   Kel::Ptr<SubRouteMapCalls> calls_;
};

Kel::Ptr<Map> mapFactory(Kel::Name name);

class Config : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Config> {
   public:
      virtual void handleRouteMap(const Kel::Name&) {}
      virtual void handleRouteMapOpMode() {}
   };

   // Ordered by name so that start-up walks, dumps and tests see one order.
   using RouteMapColl = Kel::Collection<Kel::Name, Kel::Ptr<Map>>;

   Kel::Ptr<Map const> routeMap(const Kel::Name& name) const { return routeMap_.get(name); }
   Kel::Ptr<Map> routeMap(const Kel::Name& name) { return routeMap_.get(name); }
   bool routeMapHas(const Kel::Name& name) const { return routeMap_.has(name); }
   const RouteMapColl& routeMaps() const { return routeMap_; }
   // The route map of that name, made (and notified) only when absent. An empty name is refused.
   Kel::Ptr<Map> routeMapIs(const Kel::Name& name);
   void routeMapDel(const Kel::Name& name);
   void routeMapDelAll();

   RouteMapOpModeType routeMapOpMode() const { return routeMapOpMode_; }
   // Values outside the enumeration are refused.
   void routeMapOpModeIs(RouteMapOpModeType mode);

   // How many sequences of this configuration's route maps call `name` as their sub-route-map.
   U32 subRouteMapCallers(const Kel::Name& name) const { return calls_->callers(name); }

   ~Config() override;

private:
   RouteMapColl routeMap_;
   Kel::Ptr<SubRouteMapCalls> calls_ = Kel::makePtr<SubRouteMapCalls>();
   RouteMapOpModeType routeMapOpMode_ = RouteMapOpModeType::opModeDefault;
};

Kel::Ptr<Config> configFactory();

}  // namespace Routing::RouteMap
