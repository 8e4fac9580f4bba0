#include "Routing/RouteMap/PrefixListCompilerSm.h"

#include <vector>

#include "Kel/Assert.h"
#include "Kel/Machine.h"
#include "Kel/Trace.h"
#include "Routing/RouteMap/PrefixListEntry.h"

KEL_TRACE_HANDLE("PrefixListCompilerSm");

namespace Routing::RouteMap {

// Follows one list; the symbol it holds is what keeps the list's symbol in its table.
class PrefixListCompilerSm::ListSm : public PrefixListConfig::Reactor {
public:
   ListSm(PrefixListCompilerSm* owner, Kel::Ptr<PrefixListSymbol> symbol)
       : owner_(owner), symbol_(std::move(symbol)) {}

   const Kel::Ptr<PrefixListSymbol>& symbol() const { return symbol_; }
   void handleVersion() override { owner_->publish(*this); }

private:
   PrefixListCompilerSm* owner_;
   const Kel::Ptr<PrefixListSymbol> symbol_;
};

PrefixListCompilerSm::PrefixListCompilerSm(Kel::Ptr<PrefixListConfigRoot const> config,
                                           Kel::Ptr<PrefixListSymbolDedupTable const> ipv4Table,
                                           Kel::Ptr<PrefixListSymbolDedupTable const> ipv6Table)
    : config_(std::move(config)),
      table_{std::move(ipv4Table), std::move(ipv6Table)},
      configReactor_(this) {}

PrefixListCompilerSm::~PrefixListCompilerSm() = default;

void PrefixListCompilerSm::handleInitialized() {
   KEL_ASSERT(config_ && table_[0] && table_[1]);
   // One table for both families would make an IPv4 and an IPv6 list of one name one symbol.
   KEL_ASSERT(table_[0] != table_[1]);
   KTRACE(8, *this, "handleInitialized");
   configReactor_.notifierIs(config_);
   for (const auto af : {Nx::AddressFamily::ipv4, Nx::AddressFamily::ipv6}) {
      // Publishing runs reactions elsewhere, which may edit the configuration; walk a copy.
      std::vector<Kel::Name> names;
      for (const auto& [name, list] : config_->prefixLists(af)) names.push_back(name);
      for (const auto& name : names) handlePrefixList(af, name);
   }
}

void PrefixListCompilerSm::handlePrefixList(Nx::AddressFamily af, const Kel::Name& name) {
   auto& lists = list_[index(af)];
   auto it = lists.find(name);
   if (auto config = config_->prefixList(af, name)) {
      if (it != lists.end() && it->second->notifier() == config) return;
      if (it == lists.end()) {
         KTRACE(8, *this, "creating " << af << " prefix list " << name);
         auto symbol = prefixListSymbolFactory(name)->dedup(table_[index(af)]);
         it = lists.emplace(name, std::make_unique<ListSm>(this, std::move(symbol))).first;
      }
      it->second->notifierIs(config);
      publish(*it->second);
      return;
   }
   if (it == lists.end()) return;
   KTRACE(8, *this, "deleting " << af << " prefix list " << name);
   const Kel::Ptr<PrefixListSymbol> symbol = it->second->symbol();
   lists.erase(it);
   symbol->statusIs(nullptr);
   symbol->versionInc();
}

void PrefixListCompilerSm::publish(const ListSm& list) {
   const PrefixListConfig& config = *list.notifier();
   auto trie = PatriciaTrieWithNodeDataIs(config.name(), config.af());
   for (const auto& [seqno, rule] : config.entries()) {
      const GenPrefixEntry entry{seqno, rule.prefix, rule.permit, rule.minLen(), rule.maxLen(), 0};
      trie->routeIs(rule.prefix, prefixListEntryDataFactory(entry));
   }
   auto status = PrefixListStatusIs(config.name());
   status->trieIs(std::move(trie));
   KTRACE(8, *this,
          "publishing " << config << " version " << config.version() << ", "
                        << config.entries().size() << " entries");
   // Holders react inside versionInc and may remove this very list; keep what is still needed.
   const Kel::Ptr<PrefixListSymbol> symbol = list.symbol();
   symbol->statusIs(std::move(status));
   symbol->versionInc();
}

Kel::Ptr<PrefixListCompilerSm> prefixListCompilerSmFactory(
    Kel::Ptr<PrefixListConfigRoot const> config,
    Kel::Ptr<PrefixListSymbolDedupTable const> ipv4Table,
    Kel::Ptr<PrefixListSymbolDedupTable const> ipv6Table) {
   return Kel::create<PrefixListCompilerSm>(std::move(config), std::move(ipv4Table),
                                            std::move(ipv6Table));
}

}  // namespace Routing::RouteMap
