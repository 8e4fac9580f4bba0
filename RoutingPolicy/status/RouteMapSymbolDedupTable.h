#pragma once
// The dedup table of route-map symbols. It is the route-map library's symbol table made
// for route maps, so route-map symbols follow exactly the rules of every other policy symbol:
// one object per name, and a symbol leaves the table once only the table would still know it.

#include "Routing/RouteMap/PolicySymbol.h"

namespace Routing::Policy {

class RouteMapSymbol;

class RouteMapSymbolDedupTable final
    : public Routing::RouteMap::PolicySymbolDedupTable<RouteMapSymbol> {};

Kel::Ptr<RouteMapSymbolDedupTable> routeMapSymbolDedupTableFactory();

}  // namespace Routing::Policy
