#pragma once
// Policy symbols: the shared, versioned handles through which route maps refer to lists (prefix
// lists, access lists, community lists, ...) by name. Whoever defines a list and whoever uses it
// each make a symbol for the name and deduplicate it through the kind's table, so they end up
// holding one object: a new compiled list published on it (statusIs, then versionInc) reaches
// every user, and a user that arrives before the list is defined simply sees no status yet.
//
// A symbol's identity is its concrete kind and its name; the tables hold no references, so a
// symbol leaves its table as soon as nobody else holds it.

#include <iosfwd>
#include <unordered_map>

#include "Kel/Assert.h"
#include "Kel/Entity.h"
#include "Orb/Dedup.h"
#include "Routing/RouteMap/ListStatus.h"

namespace Routing::RouteMap {

class PolicySymbol : public Orb::DedupHandle {
public:
   class Reactor : public Kel::ReactorFor<PolicySymbol> {
   public:
      virtual void handleVersion() {}
   };

   const Kel::String& name() const { return name_; }

   // Bumped by the publisher after it has swapped in new content; the bump is the notification.
   U32 version() const { return version_; }
   void versionInc(U32 n = 1);

   // Mixed from Kel::stringHash of the name; the empty name hashes to 0.
   U32 hash() const override;
   // Same concrete kind and same name: a prefix list and an access list of one name are
   // different things even if they ever met in one table.
   bool compare(const Orb::DedupHandle& other) const override;

   void formatDerivedType(std::ostream& os) const override;

protected:
   explicit PolicySymbol(Kel::String name) : name_(std::move(name)) {}

private:
   const Kel::String name_;
   U32 version_ = 0;
};

// Re-tells the version changes of one symbol to its own reactors. Holders subscribe here, so the
// symbol's reactor list stays short and a holder can drop its subscription without reaching
// into a shared object.
class PolicySymbolNotifier : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<PolicySymbolNotifier> {
   public:
      virtual void handleVersion() {}
   };

   explicit PolicySymbolNotifier(Kel::Ptr<PolicySymbol const> symbol);

   const Kel::Ptr<PolicySymbol const>& symbol() const { return symbolReactor_.notifier(); }
   U32 version() const { return symbol() ? symbol()->version() : 0; }

private:
   struct SymbolReactor : PolicySymbol::Reactor {
      explicit SymbolReactor(PolicySymbolNotifier* o) : owner(o) {}
      PolicySymbolNotifier* owner;
      void handleVersion() override { owner->handleSymbolVersion(); }
   };
   void handleSymbolVersion() { notify(&Reactor::handleVersion); }

   SymbolReactor symbolReactor_;
};

Kel::Ptr<PolicySymbolNotifier> policySymbolNotifierFactory(Kel::Ptr<PolicySymbol const> symbol);

// The dedup table of one kind of symbol, created with its table.
template <class S>
class PolicySymbolDedupTable : public Kel::Entity {
public:
   // The member named like `candidate`, or `candidate` itself after entering it. Const because
   // holders get the table read-only (they must not replace it), while entering a symbol is a
   // change nobody follows.
   Kel::Ptr<S> dedup(const Kel::Ptr<S>& candidate) const { return table_->dedup(candidate); }
   std::size_t size() const { return table_->size(); }

protected:
   PolicySymbolDedupTable() : table_(Orb::dedupHashTableUnorderedSetFactory()) {}

private:
   const Kel::Ptr<Orb::DedupHashTableUnorderedSet> table_;
};

template <class Self, class Table>
class DedupPolicySymbol : public PolicySymbol {
public:
   // The canonical symbol of this kind and name. The caller keeps what is returned and drops
   // this one, which then leaves nothing behind if it was not entered.
   Kel::Ptr<Self> dedup(const Kel::Ptr<Table const>& table) {
      KEL_ASSERT(table);
      // A symbol nobody holds would be freed by the temporary reference below.
      KEL_ASSERT(refCount() > 0);
      return table->dedup(Kel::Ptr<Self>(static_cast<Self*>(this)));
   }

protected:
   using PolicySymbol::PolicySymbol;
};

class PrefixListSymbolDedupTable;
class IpAccessListSymbolDedupTable;
class CommListSymbolDedupTable;
class AsPathListSymbolDedupTable;
class DynPrefixListSymbolDedupTable;

class PrefixListSymbol final
    : public DedupPolicySymbol<PrefixListSymbol, PrefixListSymbolDedupTable> {
public:
   explicit PrefixListSymbol(Kel::String name) : DedupPolicySymbol(std::move(name)) {}
   // Null while the list is not defined. Setting it is silent: publishers follow it with
   // versionInc once the new status is in place.
   const Kel::Ptr<PrefixListStatus const>& status() const { return status_; }
   void statusIs(Kel::Ptr<PrefixListStatus const> s) { status_ = std::move(s); }

private:
   Kel::Ptr<PrefixListStatus const> status_;
};

class IpAccessListSymbol final
    : public DedupPolicySymbol<IpAccessListSymbol, IpAccessListSymbolDedupTable> {
public:
   explicit IpAccessListSymbol(Kel::String name) : DedupPolicySymbol(std::move(name)) {}
   const Kel::Ptr<IpAccessListStatus const>& status() const { return status_; }
   void statusIs(Kel::Ptr<IpAccessListStatus const> s) { status_ = std::move(s); }

private:
   Kel::Ptr<IpAccessListStatus const> status_;
};

// Kinds whose lists are compiled elsewhere; here they are names with a version.
class CommListSymbol final : public DedupPolicySymbol<CommListSymbol, CommListSymbolDedupTable> {
public:
   explicit CommListSymbol(Kel::String name) : DedupPolicySymbol(std::move(name)) {}
};

class AsPathListSymbol final
    : public DedupPolicySymbol<AsPathListSymbol, AsPathListSymbolDedupTable> {
public:
   explicit AsPathListSymbol(Kel::String name) : DedupPolicySymbol(std::move(name)) {}
};

class DynPrefixListSymbol final
    : public DedupPolicySymbol<DynPrefixListSymbol, DynPrefixListSymbolDedupTable> {
public:
   explicit DynPrefixListSymbol(Kel::String name) : DedupPolicySymbol(std::move(name)) {}
};

class PrefixListSymbolDedupTable final : public PolicySymbolDedupTable<PrefixListSymbol> {};
class IpAccessListSymbolDedupTable final : public PolicySymbolDedupTable<IpAccessListSymbol> {};
class CommListSymbolDedupTable final : public PolicySymbolDedupTable<CommListSymbol> {};
class AsPathListSymbolDedupTable final : public PolicySymbolDedupTable<AsPathListSymbol> {};
class DynPrefixListSymbolDedupTable final : public PolicySymbolDedupTable<DynPrefixListSymbol> {};

Kel::Ptr<PrefixListSymbol> prefixListSymbolFactory(Kel::String name);
Kel::Ptr<IpAccessListSymbol> ipAccessListSymbolFactory(Kel::String name);
Kel::Ptr<CommListSymbol> commListSymbolFactory(Kel::String name);
Kel::Ptr<AsPathListSymbol> asPathListSymbolFactory(Kel::String name);
Kel::Ptr<DynPrefixListSymbol> dynPrefixListSymbolFactory(Kel::String name);

Kel::Ptr<PrefixListSymbolDedupTable> prefixListSymbolDedupTableFactory();
Kel::Ptr<IpAccessListSymbolDedupTable> ipAccessListSymbolDedupTableFactory();
Kel::Ptr<CommListSymbolDedupTable> commListSymbolDedupTableFactory();
Kel::Ptr<AsPathListSymbolDedupTable> asPathListSymbolDedupTableFactory();
Kel::Ptr<DynPrefixListSymbolDedupTable> dynPrefixListSymbolDedupTableFactory();

// The access-list symbols of every defined access list, by name.
class AllIpAccessListSymbol : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<AllIpAccessListSymbol> {
   public:
      virtual void handleSymbol(const Kel::String&) {}
   };

   using SymbolColl =
       Kel::Collection<Kel::String, Kel::Ptr<IpAccessListSymbol>,
                       std::unordered_map<Kel::String, Kel::Ptr<IpAccessListSymbol>>>;

   Kel::Ptr<IpAccessListSymbol> symbol(const Kel::String& name) const { return symbol_.get(name); }
   bool symbolHas(const Kel::String& name) const { return symbol_.has(name); }
   const SymbolColl& symbols() const { return symbol_; }
   // Keyed by the symbol's own name; a null symbol is refused.
   void symbolIs(Kel::Ptr<IpAccessListSymbol> s);
   void symbolDel(const Kel::String& name);
   void symbolDelAll();

private:
   SymbolColl symbol_;
};

Kel::Ptr<AllIpAccessListSymbol> allIpAccessListSymbolFactory();

}  // namespace Routing::RouteMap
