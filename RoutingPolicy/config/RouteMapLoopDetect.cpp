#include "RoutingPolicy/config/RouteMapLoopDetect.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <ostream>

#include "Kel/Trace.h"
#include "Kel/ValueText.h"

KEL_TRACE_HANDLE("RouteMapLoopDetect");

namespace Routing::Policy {

void ContinueSeqMap::continueSeqIs(U32 origin, U32 target) {
   if (continueSeq_.set(origin, target)) notify(&Reactor::handleContinueSeq, origin);
}

void ContinueSeqMap::continueSeqDel(U32 origin) {
   if (continueSeq_.del(origin)) notify(&Reactor::handleContinueSeq, origin);
}

void ContinueSeqMap::continueSeqDelAll() {
   continueSeq_.delAll([this](U32 origin) { notify(&Reactor::handleContinueSeq, origin); });
}

Kel::Ptr<ContinueSeqMap> continueSeqMapFactory(Kel::Name name) {
   return Kel::makePtr<ContinueSeqMap>(std::move(name));
}

bool RouteMapLoopDetect::hasLoops(const Kel::String& routeMapName,
                                  const Kel::String& subRouteMapName) const {
   if (config_ == nullptr) return false;
   const Kel::Ptr<Routing::RouteMap::Map const> caller = config_->routeMap(routeMapName);
   const Kel::Ptr<Routing::RouteMap::Map const> callee = config_->routeMap(subRouteMapName);
   if (!caller || !callee) return false;
   // The search below only looks at the calls the callee makes, so a route map calling itself
   // would otherwise pass whenever that call is not configured yet.
   if (caller == callee) {
      KTRACE(8, *this, "detected loop at " << callee->name());
      return true;
   }
   MapSet onPath{caller.get()};
   MapSet finished;
   return _hasCycle(callee.get(), onPath, finished);
}

bool RouteMapLoopDetect::_hasCycle(const Routing::RouteMap::Map* map, MapSet& onPath,
                                   MapSet& finished) const {
   if (finished.count(map) != 0) return false;
   KTRACE(9, *this, "searching " << map->name());
   onPath.insert(map);
   for (const auto& [seqno, entry] : map->mapEntries()) {
      if (entry->subRouteMap().empty()) continue;
      const Kel::Ptr<Routing::RouteMap::Map const> called = config_->routeMap(entry->subRouteMap());
      if (!called) continue;
      if (onPath.count(called.get()) != 0) {
         KTRACE(8, *this, "detected loop at " << called->name());
         return true;
      }
      if (_hasCycle(called.get(), onPath, finished)) return true;
   }
   onPath.erase(map);
   finished.insert(map);
   return false;
}

namespace {

constexpr std::string_view kTypeName = "Routing::Policy::RouteMapLoopDetect";

// The configuration is known by its address only, written in hex as a debugger shows it.
struct ConfigAddress {
   std::uintptr_t value = 0;

   std::string toStrep() const {
      char buf[2 + 2 * sizeof(std::uintptr_t) + 1];
      std::snprintf(buf, sizeof buf, "0x%jx", static_cast<std::uintmax_t>(value));
      return buf;
   }
   static ConfigAddress fromStrep(std::string_view s) {
      ConfigAddress a;
      const char* last = s.data() + s.size();
      if (s.size() > 2 && s.substr(0, 2) == "0x") {
         const auto [end, ec] = std::from_chars(s.data() + 2, last, a.value, 16);
         if (ec == std::errc{} && end == last) return a;
      }
      throw Kel::ParseException("expected an address like 0x1f00, got '" + std::string(s) + "'");
   }
};

}  // namespace

std::string RouteMapLoopDetect::toStrep() const {
   return Kel::ValueWriter(kTypeName)
       .field("config", ConfigAddress{reinterpret_cast<std::uintptr_t>(config_)})
       .str();
}

RouteMapLoopDetect RouteMapLoopDetect::fromStrep(std::string_view s) {
   Kel::ValueReader r(s, kTypeName);
   const auto address = r.field<ConfigAddress>("config");
   r.finish();
   return RouteMapLoopDetect(reinterpret_cast<const Routing::RouteMap::Config*>(address.value));
}

std::ostream& operator<<(std::ostream& os, const RouteMapLoopDetect& d) {
   return os << d.toStrep();
}

}  // namespace Routing::Policy
