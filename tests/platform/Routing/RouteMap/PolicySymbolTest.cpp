#include "Routing/RouteMap/PolicySymbol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Kel/Exception.h"
#include "Routing/RouteMap/ListStatus.h"

namespace {

using namespace Routing::RouteMap;

template <class S, class T, Kel::Ptr<S> (*makeSymbol)(Kel::String), Kel::Ptr<T> (*makeTable)()>
struct Kind {
   using Symbol = S;
   static Kel::Ptr<S> symbol(const char* name) { return makeSymbol(name); }
   static Kel::Ptr<T> table() { return makeTable(); }
};

using Kinds =
    ::testing::Types<Kind<PrefixListSymbol, PrefixListSymbolDedupTable, prefixListSymbolFactory,
                          prefixListSymbolDedupTableFactory>,
                     Kind<IpAccessListSymbol, IpAccessListSymbolDedupTable,
                          ipAccessListSymbolFactory, ipAccessListSymbolDedupTableFactory>,
                     Kind<CommListSymbol, CommListSymbolDedupTable, commListSymbolFactory,
                          commListSymbolDedupTableFactory>,
                     Kind<AsPathListSymbol, AsPathListSymbolDedupTable, asPathListSymbolFactory,
                          asPathListSymbolDedupTableFactory>,
                     Kind<DynPrefixListSymbol, DynPrefixListSymbolDedupTable,
                          dynPrefixListSymbolFactory, dynPrefixListSymbolDedupTableFactory>>;

template <class K>
class RouteMapSymbolDedupTest : public ::testing::Test {};
TYPED_TEST_SUITE(RouteMapSymbolDedupTest, Kinds);

TYPED_TEST(RouteMapSymbolDedupTest, HoldersOfOneNameShareOneSymbolUntilTheLastLetsGo) {
   auto table = TypeParam::table();
   auto first = TypeParam::symbol("L1")->dedup(table);
   auto second = TypeParam::symbol("L1")->dedup(table);
   auto other = TypeParam::symbol("L2")->dedup(table);
   EXPECT_EQ(first, second);
   EXPECT_NE(first, other);
   second->versionInc();
   EXPECT_EQ(first->version(), 1u);
   EXPECT_EQ(table->size(), 2u);

   first = nullptr;
   second = nullptr;
   EXPECT_EQ(table->size(), 1u);  // only "L2" is still held
   auto fresh = TypeParam::symbol("L1")->dedup(table);
   EXPECT_EQ(fresh->version(), 0u);
   EXPECT_EQ(table->size(), 2u);
}

TEST(RouteMapPolicySymbolTest, KindAndNameMakeTheIdentity) {
   auto pl = prefixListSymbolFactory("X");
   auto acl = ipAccessListSymbolFactory("X");
   EXPECT_EQ(pl->hash(), acl->hash());
   EXPECT_FALSE(pl->compare(*acl));
   EXPECT_FALSE(acl->compare(*pl));
   EXPECT_TRUE(pl->compare(*prefixListSymbolFactory("X")));
   EXPECT_FALSE(pl->compare(*prefixListSymbolFactory("x")));
   // The hash is shared with route-map symbols, which derive from the same base.
   EXPECT_EQ(prefixListSymbolFactory("")->hash(), 0u);
   EXPECT_EQ(commListSymbolFactory("PL1")->hash(), 1772800171u);
}

struct VersionCounter : PolicySymbolNotifier::Reactor {
   int heard = 0;
   void handleVersion() override { ++heard; }
};

TEST(RouteMapPolicySymbolTest, NotifierRetellsEveryVersionChangeToItsReactors) {
   auto symbol = ipAccessListSymbolFactory("ACL");
   auto n1 = policySymbolNotifierFactory(symbol);
   auto n2 = policySymbolNotifierFactory(symbol);
   VersionCounter a, b, c;
   a.notifierIs(n1);
   b.notifierIs(n1);
   c.notifierIs(n2);
   symbol->versionInc();
   symbol->versionInc(3);
   symbol->versionInc(0);
   EXPECT_EQ(a.heard, 2);
   EXPECT_EQ(b.heard, 2);
   EXPECT_EQ(c.heard, 2);
   EXPECT_EQ(n1->version(), 4u);

   // Subscriptions go through the notifiers: the symbol has one reactor per notifier, and a
   // notifier that is dropped stops listening.
   EXPECT_EQ(symbol->reactorCount(), 2u);
   c.notifierIs(nullptr);
   n2 = nullptr;
   EXPECT_EQ(symbol->reactorCount(), 1u);
   symbol->versionInc();
   EXPECT_EQ(a.heard, 3);
   EXPECT_EQ(c.heard, 2);
}

struct NameRecorder : AllIpAccessListSymbol::Reactor {
   std::vector<std::string> heard;
   void handleSymbol(const Kel::String& name) override { heard.push_back(name); }
};

TEST(RouteMapPolicySymbolTest, AllIpAccessListSymbolKeysByNameAndRefusesNull) {
   auto all = allIpAccessListSymbolFactory();
   NameRecorder r;
   r.notifierIs(all);
   auto a = ipAccessListSymbolFactory("A");
   all->symbolIs(a);
   all->symbolIs(a);
   all->symbolIs(ipAccessListSymbolFactory("A"));  // another object under the same name
   all->symbolIs(ipAccessListSymbolFactory("B"));
   EXPECT_NE(all->symbol("A"), a);
   try {
      all->symbolIs(nullptr);
      FAIL() << "accepted";
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "null _symbol parameter to mutator for "
                   "Routing::RouteMap::AllIpAccessListSymbol::symbol not allowed\"");
   }
   all->symbolDel("C");
   all->symbolDelAll();
   std::sort(r.heard.begin(), r.heard.end());
   EXPECT_EQ(r.heard, (std::vector<std::string>{"A", "A", "A", "B", "B"}));
   EXPECT_EQ(all->symbols().size(), 0u);
}

// Matchers stop at the first mask rule numbered past the trie's answer, so a status must never
// hold them out of order, nor the same number twice.
TEST(RouteMapPolicySymbolTest, AccessListStatusRefusesMaskRulesOutOfSequence) {
   auto status = IpAccessListStatusIs("A");
   status->trieIs(Routing::PatriciaTrieWithNodeDataIs("A", Nx::AddressFamily::ipv4));
   const std::size_t trieOnly = status->memoryBytes();
   status->maskRulesIs({{10, 0, 0x01ffff00, false}, {20, 0x0b000000, 0x00ff0100, true}});
   // Four columns padded to a block of eight lanes.
   EXPECT_GE(status->memoryBytes(), trieOnly + 8 * (3 * 4 + 1));
   EXPECT_LE(status->memoryBytes(), trieOnly + 256);
   for (const std::vector<AclMaskRule>& bad :
        {std::vector<AclMaskRule>{{20, 0, 0xff, true}, {10, 0, 0xff, true}},
         std::vector<AclMaskRule>{{10, 0, 0xff, true}, {10, 0, 0xfff, false}}}) {
      try {
         status->maskRulesIs(bad);
         ADD_FAILURE() << "accepted";
      } catch (const Kel::RangeException& e) {
         EXPECT_STREQ(e.what(), "IpAccessListStatus A: mask rule 10 out of sequence order");
      }
   }
   EXPECT_EQ(status->maskRules().size(), 2u);
}

}  // namespace
