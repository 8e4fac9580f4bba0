#include "Routing/RouteMap/Config.h"

#include <ostream>

#include <fmt/format.h>

#include "Kel/Exception.h"

namespace Routing::RouteMap {

void SubRouteMapCalls::remove(const Kel::Name& name) {
   if (name.empty()) return;
   const auto it = count_.find(name);
   if (it == count_.end()) return;
   if (--it->second == 0) count_.erase(it);
}

void MapEntry::matchRuleIs(const MatchRule& rule) {
   if (rule.option() == MatchOption::matchInvalid) {
      throw Kel::RangeException("seq " + std::to_string(seqno_) +
                                ": a match rule needs a match option");
   }
   if (matchRule_.set(rule.option(), rule)) notify(&Reactor::handleMatchRule, rule.option());
}

void MapEntry::matchRuleDel(MatchOption o) {
   if (matchRule_.del(o)) notify(&Reactor::handleMatchRule, o);
}

void MapEntry::matchRuleDelAll() {
   matchRule_.delAll([this](MatchOption o) { notify(&Reactor::handleMatchRule, o); });
}

void MapEntry::setFlagsIs(SetFlags v) {
   if (v & ~allFlags) {
      throw Kel::RangeException(
          fmt::format("seq {}: set flags {:#x} hold unknown bits {:#x} (known: {:#x})", seqno_, v,
                      v & ~allFlags, allFlags));
   }
   setAttr(setFlags_, v, &Reactor::handleSetFlags);
}

void MapEntry::continueSeqIs(U32 target) {
   if (target != 0 && target <= seqno_) {
      throw Kel::RangeException("seq " + std::to_string(seqno_) + ": continue target " +
                                std::to_string(target) + " must be above " +
                                std::to_string(seqno_) + ", or 0 for the next sequence");
   }
   setAttr(continueSeq_, target, &Reactor::handleContinueSeq);
}

void MapEntry::subRouteMapIs(const Kel::Name& name, bool invert) {
   if (name.empty() && invert) {
      throw Kel::RangeException("seq " + std::to_string(seqno_) +
                                ": sub-route-map inversion needs a sub-route-map name");
   }
   if (name == subRouteMap_ && invert == subRouteMapInvert_) return;
   if (calls_ && name != subRouteMap_) {
      calls_->remove(subRouteMap_);
      calls_->add(name);
   }
   subRouteMap_ = name;
   subRouteMapInvert_ = invert;
   notify(&Reactor::handleSubRouteMap);
}

void MapEntry::descriptionIs(U32 index, const Kel::String& text) {
   if (description_.set(index, text)) notify(&Reactor::handleDescription, index);
}

void MapEntry::descriptionDel(U32 index) {
   if (description_.del(index)) notify(&Reactor::handleDescription, index);
}

void MapEntry::descriptionDelAll() {
   description_.delAll([this](U32 index) { notify(&Reactor::handleDescription, index); });
}

void MapEntry::formatDerivedType(std::ostream& os) const {
   os << "MapEntry " << seqno_;
}

void MapEntry::subRouteMapCallsIs(const Kel::Ptr<SubRouteMapCalls>& calls) {
   if (calls == calls_) return;
   if (calls_) calls_->remove(subRouteMap_);
   calls_ = calls;
   if (calls_) calls_->add(subRouteMap_);
}

Kel::Ptr<MapEntry> mapEntryFactory(U32 seqno) {
   return Kel::makePtr<MapEntry>(seqno);
}

Kel::Ptr<MapEntry> Map::mapEntryIs(U32 seqno) {
   if (auto e = mapEntry_.get(seqno)) return e;
   auto e = mapEntryFactory(seqno);
   e->subRouteMapCallsIs(calls_);
   mapEntry_.set(seqno, e);
   notify(&Reactor::handleMapEntry, seqno);
   return e;
}

void Map::mapEntryDel(U32 seqno) {
   // A reactor may keep the entry alive; its call no longer counts once it left the map.
   if (const Kel::Ptr<MapEntry> e = mapEntry_.get(seqno)) e->subRouteMapCallsIs(nullptr);
   if (mapEntry_.del(seqno)) notify(&Reactor::handleMapEntry, seqno);
}

void Map::mapEntryDelAll() {
   for (const auto& [seqno, e] : mapEntry_) e->subRouteMapCallsIs(nullptr);
   mapEntry_.delAll([this](U32 seqno) { notify(&Reactor::handleMapEntry, seqno); });
}

void Map::subRouteMapCallsIs(const Kel::Ptr<SubRouteMapCalls>& calls) {
   calls_ = calls;
   for (const auto& [seqno, e] : mapEntry_) e->subRouteMapCallsIs(calls);
}

void Map::formatDerivedType(std::ostream& os) const {
   os << "Map " << name_;
}

Kel::Ptr<Map> mapFactory(Kel::Name name) {
   return Kel::makePtr<Map>(std::move(name));
}

Kel::Ptr<Map> Config::routeMapIs(const Kel::Name& name) {
   if (name.empty()) throw Kel::RangeException("a route map needs a name");
   if (auto m = routeMap_.get(name)) return m;
   auto m = mapFactory(name);
   m->subRouteMapCallsIs(calls_);
   routeMap_.set(name, m);
   notify(&Reactor::handleRouteMap, name);
   return m;
}

Config::~Config() {
   for (const auto& [name, m] : routeMap_) m->subRouteMapCallsIs(nullptr);
}

void Config::routeMapDel(const Kel::Name& name) {
   if (const Kel::Ptr<Map> m = routeMap_.get(name)) m->subRouteMapCallsIs(nullptr);
   if (routeMap_.del(name)) notify(&Reactor::handleRouteMap, name);
}

void Config::routeMapDelAll() {
   for (const auto& [name, m] : routeMap_) m->subRouteMapCallsIs(nullptr);
   routeMap_.delAll([this](const Kel::Name& name) { notify(&Reactor::handleRouteMap, name); });
}

void Config::routeMapOpModeIs(RouteMapOpModeType mode) {
   Kel::checkEnumRange("RouteMapOpModeType", static_cast<U32>(mode),
                       static_cast<U32>(RouteMapOpModeType::opModeDefault),
                       static_cast<U32>(RouteMapOpModeType::opModeAlternate));
   setAttr(routeMapOpMode_, mode, &Reactor::handleRouteMapOpMode);
}

Kel::Ptr<Config> configFactory() {
   return Kel::makePtr<Config>();
}

}  // namespace Routing::RouteMap
