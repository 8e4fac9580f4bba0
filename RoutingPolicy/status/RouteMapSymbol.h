#pragma once
// Route maps as consumers hold them: by symbol, never by status. A RouteMapSymbol is the one
// shared handle of the route map of a name; the compiler swaps the compiled status in and bumps
// the version, and every holder hears the bump. Holders of the same name share the object through
// the route-map dedup table, so a route map that is named before it is defined, or re-created
// after a deletion, reaches the same holders.
//
// PolicyRoot owns the dedup tables of every kind of policy symbol an agent uses.

#include <unordered_map>

#include "Kel/Machine.h"
#include "Routing/RouteMap/PolicySymbol.h"
#include "RoutingPolicy/status/RouteMapStatus.h"
#include "RoutingPolicy/status/RouteMapSymbolDedupTable.h"

namespace Routing::Policy {

// Hash and version come from PolicySymbol: the hash mixes Kel::stringHash of the name the same
// way for every kind of symbol, so the empty name hashes to 0 here too.
class RouteMapSymbol : public Routing::RouteMap::PolicySymbol {
public:
   explicit RouteMapSymbol(Kel::String name);
   ~RouteMapSymbol() override;

   // Null while the route map is not configured.
   const Kel::Ptr<RouteMapStatus const>& rmStatus() const { return rmStatus_; }
   // Silent on purpose: a publisher may set the status and bump the version separately, and
   // holders must only ever be told once the new status is in place.
   void rmStatusIs(Kel::Ptr<RouteMapStatus const> status) { rmStatus_ = std::move(status); }
   // Publishes: the status, then one version bump that every holder hears.
   void updateAndNotify(Kel::Ptr<RouteMapStatus const> status);

   // The canonical symbol of this name in `table`; the caller keeps what is returned and drops
   // this one.
   Kel::Ptr<RouteMapSymbol> dedup(const Kel::Ptr<RouteMapSymbolDedupTable const>& table);

   // The name alone is the identity: the status is what changes under a stable symbol.
   bool compare(const Orb::DedupHandle& other) const override;

private:
   Kel::Ptr<RouteMapStatus const> rmStatus_;
};

Kel::Ptr<RouteMapSymbol> routeMapSymbolFactory(Kel::String name);

// A symbol with the notifier that re-tells its version changes, so that a holder subscribes
// without adding reactors to the shared symbol.
class RouteMapSymbolAndNotifier : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<RouteMapSymbolAndNotifier> {
   public:
      virtual void handleRmSymbol() {}
      virtual void handleRmSymbolNotifier() {}
   };

   // Makes the notifier for `symbol`.
   explicit RouteMapSymbolAndNotifier(Kel::Ptr<RouteMapSymbol const> symbol);

   const Kel::Ptr<RouteMapSymbol const>& rmSymbol() const { return rmSymbol_; }
   // A new symbol brings its own notifier, so the pair never follows two different route maps.
   void rmSymbolIs(Kel::Ptr<RouteMapSymbol const> symbol);

   const Kel::Ptr<Routing::RouteMap::PolicySymbolNotifier const>& rmSymbolNotifier() const {
      return rmSymbolNotifier_;
   }
   void rmSymbolNotifierIs(Kel::Ptr<Routing::RouteMap::PolicySymbolNotifier const> notifier) {
      setAttr(rmSymbolNotifier_, std::move(notifier), &Reactor::handleRmSymbolNotifier);
   }

private:
   Kel::Ptr<RouteMapSymbol const> rmSymbol_;
   Kel::Ptr<Routing::RouteMap::PolicySymbolNotifier const> rmSymbolNotifier_;
};

Kel::Ptr<RouteMapSymbolAndNotifier> routeMapSymbolAndNotifierFactory(
    Kel::Ptr<RouteMapSymbol const> symbol);

// The symbols of every configured route map, by name.
class AllRouteMapSymbol : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<AllRouteMapSymbol> {
   public:
      virtual void handleSymbol(const Kel::String&) {}
   };

   using SymbolColl = Kel::Collection<Kel::String, Kel::Ptr<RouteMapSymbol>,
                                      std::unordered_map<Kel::String, Kel::Ptr<RouteMapSymbol>>>;

   Kel::Ptr<RouteMapSymbol> symbol(const Kel::String& name) const { return symbol_.get(name); }
   bool symbolHas(const Kel::String& name) const { return symbol_.has(name); }
   const SymbolColl& symbols() const { return symbol_; }
   // Keyed by the symbol's own name; a null symbol is refused.
   void symbolIs(Kel::Ptr<RouteMapSymbol> symbol);
   void symbolDel(const Kel::String& name);
   void symbolDelAll();

private:
   SymbolColl symbol_;
};

Kel::Ptr<AllRouteMapSymbol> allRouteMapSymbolFactory();

// The dedup tables of one agent, one per kind of policy object. Everything that resolves a name
// to a symbol goes through these, so definers and users in one agent meet on the same objects.
class PolicyRoot : public Kel::Machine {
public:
   using RouteMapTable = RouteMapSymbolDedupTable;
   using CommListTable = Routing::RouteMap::CommListSymbolDedupTable;
   using PrefixListTable = Routing::RouteMap::PrefixListSymbolDedupTable;
   using IpAccessListTable = Routing::RouteMap::IpAccessListSymbolDedupTable;
   using AsPathListTable = Routing::RouteMap::AsPathListSymbolDedupTable;
   using DynPrefixListTable = Routing::RouteMap::DynPrefixListSymbolDedupTable;

   // Tables are handed out writable: resolving a name enters a symbol into them.
   const Kel::Ptr<RouteMapTable>& routeMapTable() const { return routeMapTable_; }
   const Kel::Ptr<RouteMapTable>& peerFilterTable() const { return peerFilterTable_; }
   const Kel::Ptr<CommListTable>& commListTable() const { return commListTable_; }
   const Kel::Ptr<CommListTable>& extCommListTable() const { return extCommListTable_; }
   const Kel::Ptr<CommListTable>& largeCommListTable() const { return largeCommListTable_; }
   const Kel::Ptr<PrefixListTable>& ipv4PrefixListTable() const { return ipv4PrefixListTable_; }
   const Kel::Ptr<PrefixListTable>& ipv6PrefixListTable() const { return ipv6PrefixListTable_; }
   const Kel::Ptr<IpAccessListTable>& ipAclListTable() const { return ipAclListTable_; }
   const Kel::Ptr<AsPathListTable>& asPathListTable() const { return asPathListTable_; }
   const Kel::Ptr<DynPrefixListTable>& dynPrefixListTable() const { return dynPrefixListTable_; }

protected:
   void handleInitialized() override;

private:
   Kel::Ptr<RouteMapTable> routeMapTable_;
   Kel::Ptr<RouteMapTable> peerFilterTable_;
   Kel::Ptr<CommListTable> commListTable_;
   Kel::Ptr<CommListTable> extCommListTable_;
   Kel::Ptr<CommListTable> largeCommListTable_;
   Kel::Ptr<PrefixListTable> ipv4PrefixListTable_;
   Kel::Ptr<PrefixListTable> ipv6PrefixListTable_;
   Kel::Ptr<IpAccessListTable> ipAclListTable_;
   Kel::Ptr<AsPathListTable> asPathListTable_;
   Kel::Ptr<DynPrefixListTable> dynPrefixListTable_;
};

Kel::Ptr<PolicyRoot> policyRootFactory();

}  // namespace Routing::Policy
