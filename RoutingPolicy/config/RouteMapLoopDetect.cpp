#include "RoutingPolicy/config/RouteMapLoopDetect.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <vector>

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
   // A loop would have to come back into the caller; nothing can when nothing calls it. This
   // answers without a search for every call into a configuration built callers first or callees
   // first, where a search would walk the whole chain below the callee each time.
   if (config_->subRouteMapCallers(routeMapName) == 0) return false;
   MapSet onPath{caller.get()};
   MapSet finished;
   return _hasCycle(callee.get(), onPath, finished);
}

bool RouteMapLoopDetect::_hasCycle(const Routing::RouteMap::Map* start, MapSet& onPath,
                                   MapSet& finished) const {
   // Depth first with an explicit stack: a chain of calls may be as long as the configuration.
   struct Frame {
      const Routing::RouteMap::Map* map;
      Routing::RouteMap::Map::MapEntryColl::const_iterator next;
   };
   std::vector<Frame> stack;
   const auto enter = [&](const Routing::RouteMap::Map* map) {
      KTRACE(9, *this, "searching " << map->name());
      onPath.insert(map);
      stack.push_back({map, map->mapEntries().begin()});
   };
   if (finished.count(start) != 0) return false;
   enter(start);
   while (!stack.empty()) {
      Frame& top = stack.back();
      if (top.next == top.map->mapEntries().end()) {
         onPath.erase(top.map);
         finished.insert(top.map);
         stack.pop_back();
         continue;
      }
      const Kel::Ptr<Routing::RouteMap::MapEntry>& entry = top.next->second;
      ++top.next;
      if (entry->subRouteMap().empty()) continue;
      const Kel::Ptr<Routing::RouteMap::Map const> called = config_->routeMap(entry->subRouteMap());
      if (!called) continue;
      if (onPath.count(called.get()) != 0) {
         KTRACE(8, *this, "detected loop at " << called->name());
         return true;
      }
      if (finished.count(called.get()) == 0) enter(called.get());
   }
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
