#include "RoutingPolicy/status/RouteMapSymbol.h"

#include "Kel/Assert.h"
#include "Kel/Exception.h"

namespace Routing::Policy {

RouteMapSymbol::RouteMapSymbol(Kel::String name) : PolicySymbol(std::move(name)) {}

RouteMapSymbol::~RouteMapSymbol() = default;

void RouteMapSymbol::updateAndNotify(Kel::Ptr<RouteMapStatus const> status) {
   rmStatusIs(std::move(status));
   versionInc(1);
}

Kel::Ptr<RouteMapSymbol> RouteMapSymbol::dedup(
    const Kel::Ptr<RouteMapSymbolDedupTable const>& table) {
   KEL_ASSERT(table);
   // The temporary reference below would free a symbol that nobody holds yet.
   KEL_ASSERT(refCount() > 0);
   return table->dedup(Kel::Ptr<RouteMapSymbol>(this));
}

bool RouteMapSymbol::compare(const Orb::DedupHandle& other) const {
   const auto* o = dynamic_cast<const RouteMapSymbol*>(&other);
   return o != nullptr && o->name() == name();
}

Kel::Ptr<RouteMapSymbol> routeMapSymbolFactory(Kel::String name) {
   return Kel::makePtr<RouteMapSymbol>(std::move(name));
}

RouteMapSymbolAndNotifier::RouteMapSymbolAndNotifier(Kel::Ptr<RouteMapSymbol const> symbol) {
   rmSymbolIs(std::move(symbol));
}

void RouteMapSymbolAndNotifier::rmSymbolIs(Kel::Ptr<RouteMapSymbol const> symbol) {
   if (symbol == rmSymbol_) return;
   rmSymbol_ = std::move(symbol);
   rmSymbolNotifierIs(rmSymbol_ ? Routing::RouteMap::policySymbolNotifierFactory(rmSymbol_)
                                : nullptr);
   notify(&Reactor::handleRmSymbol);
}

Kel::Ptr<RouteMapSymbolAndNotifier> routeMapSymbolAndNotifierFactory(
    Kel::Ptr<RouteMapSymbol const> symbol) {
   return Kel::makePtr<RouteMapSymbolAndNotifier>(std::move(symbol));
}

void AllRouteMapSymbol::symbolIs(Kel::Ptr<RouteMapSymbol> symbol) {
   if (!symbol) Kel::throwNullMutatorArg("Routing::Policy::AllRouteMapSymbol", "symbol");
   const Kel::String name = symbol->name();
   if (symbol_.set(name, std::move(symbol))) notify(&Reactor::handleSymbol, name);
}

void AllRouteMapSymbol::symbolDel(const Kel::String& name) {
   if (symbol_.del(name)) notify(&Reactor::handleSymbol, name);
}

void AllRouteMapSymbol::symbolDelAll() {
   symbol_.delAll([this](const Kel::String& name) { notify(&Reactor::handleSymbol, name); });
}

Kel::Ptr<AllRouteMapSymbol> allRouteMapSymbolFactory() {
   return Kel::makePtr<AllRouteMapSymbol>();
}

namespace {

template <class Table>
Kel::Ptr<Table> activeTable(Kel::Ptr<Table> table) {
   table->hasNotificationActiveIs(true);
   return table;
}

}  // namespace

void PolicyRoot::handleInitialized() {
   routeMapTable_ = activeTable(routeMapSymbolDedupTableFactory());
   peerFilterTable_ = activeTable(routeMapSymbolDedupTableFactory());
   commListTable_ = activeTable(Routing::RouteMap::commListSymbolDedupTableFactory());
   extCommListTable_ = activeTable(Routing::RouteMap::commListSymbolDedupTableFactory());
   largeCommListTable_ = activeTable(Routing::RouteMap::commListSymbolDedupTableFactory());
   ipv4PrefixListTable_ = activeTable(Routing::RouteMap::prefixListSymbolDedupTableFactory());
   ipv6PrefixListTable_ = activeTable(Routing::RouteMap::prefixListSymbolDedupTableFactory());
   ipAclListTable_ = activeTable(Routing::RouteMap::ipAccessListSymbolDedupTableFactory());
   asPathListTable_ = activeTable(Routing::RouteMap::asPathListSymbolDedupTableFactory());
   dynPrefixListTable_ = activeTable(Routing::RouteMap::dynPrefixListSymbolDedupTableFactory());
}

Kel::Ptr<PolicyRoot> policyRootFactory() {
   return Kel::create<PolicyRoot>();
}

}  // namespace Routing::Policy
