#pragma once
// The compiled form of a prefix list or an IP access list: a prefix trie whose nodes chain one
// PrefixListEntryData per list entry. A status is built completely, then published through the
// list's symbol and never changed again: matchers on other threads may be walking its trie. A
// new configuration makes a new status, so `trie` is set only before publication and nobody
// follows it.

#include <iosfwd>

#include "Kel/Entity.h"
#include "Routing/PatriciaTrie.h"

namespace Routing::RouteMap {

class ListStatus : public Kel::Entity {
public:
   const Kel::String& name() const { return name_; }
   const Kel::Ptr<PatriciaTrieWithNodeData const>& trie() const { return trie_; }
   void trieIs(Kel::Ptr<PatriciaTrieWithNodeData const> trie) { trie_ = std::move(trie); }

   void formatDerivedType(std::ostream& os) const override;

protected:
   explicit ListStatus(Kel::String name) : name_(std::move(name)) {}

private:
   const Kel::String name_;
   Kel::Ptr<PatriciaTrieWithNodeData const> trie_;
};

class PrefixListStatus final : public ListStatus {
public:
   explicit PrefixListStatus(Kel::String name) : ListStatus(std::move(name)) {}
};

class IpAccessListStatus final : public ListStatus {
public:
   explicit IpAccessListStatus(Kel::String name) : ListStatus(std::move(name)) {}
};

Kel::Ptr<PrefixListStatus> PrefixListStatusIs(Kel::String name);
Kel::Ptr<IpAccessListStatus> IpAccessListStatusIs(Kel::String name);

}  // namespace Routing::RouteMap
