#pragma once
// The compiled form of a prefix list or an IP access list: a prefix trie whose nodes chain one
// PrefixListEntryData per list entry. A status is built completely, then published through the
// list's symbol and never changed again: matchers on other threads may be walking its trie. A
// new configuration makes a new status, so `trie` is set only before publication and nobody
// follows it.

#include <cstddef>
#include <iosfwd>
#include <vector>

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

// An IPv4 access-list rule held as its source and wildcard rather than as trie entries. A rule
// whose wildcard scatters k don't-care bits over the address covers 2^k separate blocks; past a
// few hundred the trie would grow by as many entries per rule, so such a rule is kept whole and
// tested by mask. A route prefix R/len matches it when every address of the prefix does: the
// prefix's host bits all lie under the wildcard and its other bits equal the source, that is
// ((R ^ source) | hostBits(len)) & ~wildcard == 0.
struct AclMaskRule {
   U32 seqno = 0;
   U32 source = 0;    // zero under the wildcard
   U32 wildcard = 0;  // set bits are the ones the rule does not care about
   bool permit = false;

   bool operator==(const AclMaskRule&) const = default;
};

// The mask rules of one list column by column, so that a matcher tests a block of them with a
// few vector instructions. The first `count` lanes hold the rules, ascending by sequence number;
// every column is padded up to a multiple of kBlock, so that a block never reads past its
// column. A padding lane matches the route 0.0.0.0/32 as a permit numbered after every rule: a
// matcher must mask the lanes past `count` off.
struct AclMaskColumns {
   static constexpr std::size_t kBlock = 8;

   std::size_t count = 0;
   std::vector<U32> seqno;
   std::vector<U32> source;
   std::vector<U32> care;  // the complement of the wildcard
   std::vector<U8> permit;

   std::size_t size() const noexcept { return count; }
};

class IpAccessListStatus final : public ListStatus {
public:
   explicit IpAccessListStatus(Kel::String name) : ListStatus(std::move(name)) {}

   // The rules kept beside the trie, ascending by sequence number (a matcher stops at the first
   // that cannot beat the trie's answer). Empty for IPv6 lists, whose rules are prefixes.
   std::vector<AclMaskRule> maskRules() const;
   // Refuses rules out of sequence order, or two of one number, with Kel::RangeException.
   void maskRulesIs(const std::vector<AclMaskRule>& rules);
   const AclMaskColumns& maskColumns() const noexcept { return mask_; }

   // What the compiled list holds: the status, the trie's nodes, its entries and the mask
   // rules, without the allocator's own overhead per entry.
   std::size_t memoryBytes() const;

private:
   AclMaskColumns mask_;
};

Kel::Ptr<PrefixListStatus> PrefixListStatusIs(Kel::String name);
Kel::Ptr<IpAccessListStatus> IpAccessListStatusIs(Kel::String name);

}  // namespace Routing::RouteMap
