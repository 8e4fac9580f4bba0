#include "Routing/RouteMap/Config.h"

#include <ostream>

#include <fmt/format.h>

#include "Kel/Exception.h"

namespace Routing::RouteMap {

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

Kel::Ptr<MapEntry> mapEntryFactory(U32 seqno) {
   return Kel::makePtr<MapEntry>(seqno);
}

Kel::Ptr<MapEntry> Map::mapEntryIs(U32 seqno) {
   if (auto e = mapEntry_.get(seqno)) return e;
   auto e = mapEntryFactory(seqno);
   mapEntry_.set(seqno, e);
   notify(&Reactor::handleMapEntry, seqno);
   return e;
}

void Map::mapEntryDel(U32 seqno) {
   if (mapEntry_.del(seqno)) notify(&Reactor::handleMapEntry, seqno);
}

void Map::mapEntryDelAll() {
   mapEntry_.delAll([this](U32 seqno) { notify(&Reactor::handleMapEntry, seqno); });
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
   routeMap_.set(name, m);
   notify(&Reactor::handleRouteMap, name);
   return m;
}

void Config::routeMapDel(const Kel::Name& name) {
   if (routeMap_.del(name)) notify(&Reactor::handleRouteMap, name);
}

void Config::routeMapDelAll() {
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
