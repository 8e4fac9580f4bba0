#include "Routing/RouteMap/PrefixListEntry.h"

#include <gtest/gtest.h>

#include <vector>

#include "Kel/Exception.h"

namespace {

using Nx::IpGenPrefix;
using Routing::RouteMap::GenPrefixEntry;

TEST(RoutingGenPrefixEntryTest, TextFormRoundTrips) {
   const GenPrefixEntry v4{10, IpGenPrefix::fromStrep("10.0.0.0/8"), true, 16, 24, 0};
   EXPECT_EQ(v4.toStrep(),
             "Value('Routing::RouteMap::GenPrefixEntry', ** {'seqno': 10, 'prefix': 10.0.0.0/8, "
             "'permit': True, 'minLen': 16, 'maxLen': 24, 'flags': 0})");
   const GenPrefixEntry values[] = {
       v4,
       {4294967295u, IpGenPrefix::fromStrep("2001:db8::/32"), false, 32, 128, 0},
       {},
   };
   for (const GenPrefixEntry& v : values) {
      EXPECT_EQ(GenPrefixEntry::fromStrep(v.toStrep()), v) << v;
   }
}

TEST(RoutingGenPrefixEntryTest, ParseFailureNamesTheField) {
   try {
      GenPrefixEntry::fromStrep(
          "Value('Routing::RouteMap::GenPrefixEntry', ** {'seqno': 10, 'prefix': 10.0.0/8, "
          "'permit': True, 'minLen': 16, 'maxLen': 24, 'flags': 0})");
      FAIL() << "no exception";
   } catch (const Kel::ParseException& e) {
      EXPECT_EQ(e.field(), "prefix");
   }
}

// Matchers take the first entry of a node's chain that admits the route, so a node's chain must
// be in list order whatever order the compiler added the entries in.
TEST(RoutingPrefixListEntryDataTest, ChainsOnANodeInSequenceOrder) {
   const IpGenPrefix p = IpGenPrefix::fromStrep("10.0.0.0/8");
   auto trie = Routing::PatriciaTrieWithNodeDataIs("PL", Nx::AddressFamily::ipv4);
   for (U32 seq : {20u, 5u, 10u}) {
      trie->routeIs(p, Routing::RouteMap::prefixListEntryDataFactory({seq, p, seq != 5, 8, 32, 0}));
   }
   std::vector<U32> seqnos;
   trie->ancestorWalk(IpGenPrefix::fromStrep("10.1.0.0/16"), [&](const IpGenPrefix&,
                                                                 const Routing::PrefixData& head) {
      for (const Routing::PrefixData* e = &head; e != nullptr; e = e->next()) {
         seqnos.push_back(static_cast<const Routing::RouteMap::PrefixListEntryData*>(e)->seqno());
      }
   });
   EXPECT_EQ(seqnos, (std::vector<U32>{5, 10, 20}));
}

}  // namespace
