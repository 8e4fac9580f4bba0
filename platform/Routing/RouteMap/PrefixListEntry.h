#pragma once
// One compiled prefix-list or access-list entry: the prefix it sits on in the list's trie, the
// range of route prefix lengths it admits, and permit or deny. Matchers read these on every
// covering trie node of every route they look up, so the accessors are inline.

#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "Nx/IpGenPrefix.h"
#include "Routing/PatriciaTrie.h"

namespace Routing::RouteMap {

struct GenPrefixEntry {
   U32 seqno = 0;
   Nx::IpGenPrefix prefix;
   bool permit = false;
   // The route prefix lengths the entry admits, both ends included.
   U32 minLen = 0;
   U32 maxLen = 0;
   U32 flags = 0;

   bool operator==(const GenPrefixEntry&) const = default;

   // Value('Routing::RouteMap::GenPrefixEntry', ** {'seqno': 10, 'prefix': 10.0.0.0/8,
   //       'permit': True, 'minLen': 8, 'maxLen': 24, 'flags': 0})
   std::string toStrep() const;
   static GenPrefixEntry fromStrep(std::string_view text);
};

std::ostream& operator<<(std::ostream& os, const GenPrefixEntry& e);

class PrefixListEntryData : public PrefixData {
public:
   explicit PrefixListEntryData(const GenPrefixEntry& entry) : entry_(entry) {}

   // Entries of one trie node are kept in list order, so the first one that fits decides.
   U32 chainKey() const override { return entry_.seqno; }
   // What a match decides on: the sequence number, the admitted lengths, permit or deny.
   Digest digest() const override {
      return {entry_.seqno, static_cast<U8>(entry_.minLen), static_cast<U8>(entry_.maxLen),
              entry_.permit};
   }

   U32 seqno() const { return entry_.seqno; }
   const Nx::IpGenPrefix& prefix() const { return entry_.prefix; }
   U32 minLen() const { return entry_.minLen; }
   U32 maxLen() const { return entry_.maxLen; }
   const GenPrefixEntry& entry() const { return entry_; }

   bool isPrefixEntryPermit() const { return entry_.permit; }
   bool admitsLength(U32 len) const { return entry_.minLen <= len && len <= entry_.maxLen; }

private:
   const GenPrefixEntry entry_;
};

Kel::Ptr<PrefixListEntryData> prefixListEntryDataFactory(const GenPrefixEntry& entry);

}  // namespace Routing::RouteMap
