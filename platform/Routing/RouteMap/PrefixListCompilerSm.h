#pragma once
// Compiles configured prefix lists into PrefixListStatus tries and publishes them on the lists'
// symbols.
//
// Each list is rebuilt from scratch whenever its version changes (and once when it appears):
// a new trie with one PrefixListEntryData per rule goes into a new status, the symbol is pointed
// at it, and only then is the symbol's version bumped. A matcher therefore sees either the old
// trie or the complete new one. A list that disappears leaves a null status behind, bumped the
// same way. Every change is exactly one publication.
//
// The compiler holds the symbol of every defined list, so a list stays findable through its
// table even while no route map uses it; symbols of lists that users name before they are
// defined are the same objects, found through the same table.

#include <map>
#include <memory>

#include "Orb/BaseOutputSm.h"
#include "Routing/RouteMap/PolicySymbol.h"
#include "Routing/RouteMap/PrefixListConfig.h"

namespace Routing::RouteMap {

class PrefixListCompilerSm : public Orb::BaseOutputSm {
public:
   // One table per family: an IPv4 and an IPv6 list of one name are different symbols.
   PrefixListCompilerSm(Kel::Ptr<PrefixListConfigRoot const> config,
                        Kel::Ptr<PrefixListSymbolDedupTable const> ipv4Table,
                        Kel::Ptr<PrefixListSymbolDedupTable const> ipv6Table);
   ~PrefixListCompilerSm() override;

   // A list of that family and name was added to or removed from the configuration.
   void handlePrefixList(Nx::AddressFamily af, const Kel::Name& name);

protected:
   void handleInitialized() override;

private:
   class ListSm;

   static int index(Nx::AddressFamily af) { return static_cast<int>(af); }
   void publish(const ListSm& list);

   struct ConfigReactor : PrefixListConfigRoot::Reactor {
      explicit ConfigReactor(PrefixListCompilerSm* o) : owner(o) {}
      PrefixListCompilerSm* owner;
      void handlePrefixList(Nx::AddressFamily af, const Kel::Name& name) override {
         owner->handlePrefixList(af, name);
      }
   };

   const Kel::Ptr<PrefixListConfigRoot const> config_;
   const Kel::Ptr<PrefixListSymbolDedupTable const> table_[2];
   ConfigReactor configReactor_;
   std::map<Kel::Name, std::unique_ptr<ListSm>> list_[2];
};

Kel::Ptr<PrefixListCompilerSm> prefixListCompilerSmFactory(
    Kel::Ptr<PrefixListConfigRoot const> config,
    Kel::Ptr<PrefixListSymbolDedupTable const> ipv4Table,
    Kel::Ptr<PrefixListSymbolDedupTable const> ipv6Table);

}  // namespace Routing::RouteMap
