#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Exception.h"
#include "RoutingPolicy/status/RouteMapSymbol.h"

namespace {

using namespace Routing::Policy;

struct VersionRecorder : Routing::RouteMap::PolicySymbol::Reactor {
   int heard = 0;
   void handleVersion() override { ++heard; }
};

struct NotifierRecorder : Routing::RouteMap::PolicySymbolNotifier::Reactor {
   int heard = 0;
   void handleVersion() override { ++heard; }
};

// The mixing step written out here on purpose, so that a change to the production mix shows.
U32 expectedHash(const std::string& name) {
   const U32 h = Kel::stringHash(name);
   const U32 x = static_cast<U32>(9u * h);
   return static_cast<U32>((x ^ (x >> 11)) * 32769u);
}

class PolicySymbolHashTest : public ::testing::TestWithParam<std::string> {};

TEST_P(PolicySymbolHashTest, HashIsTheMixedStringHashOfTheName) {
   EXPECT_EQ(routeMapSymbolFactory(GetParam())->hash(), expectedHash(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(PolicySymbolNames, PolicySymbolHashTest,
                         ::testing::Values("", "RM-IN", "a", "peer-filter-with-a-long-name",
                                           std::string("nul\0byte", 8)));

TEST(PolicySymbolHashValueTest, KnownValues) {
   EXPECT_EQ(routeMapSymbolFactory("")->hash(), 0u);
   // Computed from the definition outside this code base: h("a") = 0x610098b3,
   // x = 0x69055e4b, x ^ x >> 11 = 0x69087ee0.
   EXPECT_EQ(routeMapSymbolFactory("a")->hash(), 0xa8787ee0u);
   EXPECT_EQ(routeMapSymbolFactory("RM-IN")->hash(), 0xd033e305u);
}

class PolicySymbolDedupTest : public ::testing::Test {
protected:
   Kel::Ptr<RouteMapSymbolDedupTable> table = routeMapSymbolDedupTableFactory();
};

TEST_F(PolicySymbolDedupTest, SameNameSharesOneSymbolWhateverItsStatus) {
   auto first = routeMapSymbolFactory("RM1")->dedup(table);
   first->updateAndNotify(routeMapStatusFactory("RM1"));
   auto second = routeMapSymbolFactory("RM1")->dedup(table);
   EXPECT_EQ(first.get(), second.get());
   EXPECT_TRUE(second->rmStatus());
   auto other = routeMapSymbolFactory("RM2")->dedup(table);
   EXPECT_NE(first.get(), other.get());
   EXPECT_EQ(table->size(), 2u);
}

TEST_F(PolicySymbolDedupTest, SymbolLeavesTheTableWithItsLastOutsideHolder) {
   auto held = routeMapSymbolFactory("RM1")->dedup(table);
   auto alsoHeld = routeMapSymbolFactory("RM1")->dedup(table);
   held->updateAndNotify(routeMapStatusFactory("RM1"));
   held = nullptr;
   EXPECT_EQ(table->size(), 1u) << "one holder is left";
   EXPECT_EQ(alsoHeld->version(), 1u);
   alsoHeld = nullptr;
   EXPECT_EQ(table->size(), 0u);

   // A fresh object: the old one's version and status are gone with it.
   auto fresh = routeMapSymbolFactory("RM1")->dedup(table);
   EXPECT_EQ(fresh->version(), 0u);
   EXPECT_FALSE(fresh->rmStatus());
   EXPECT_EQ(table->size(), 1u);
}

TEST_F(PolicySymbolDedupTest, RouteMapAndPrefixListOfOneNameStayApart) {
   auto rm = routeMapSymbolFactory("X");
   auto pl = Routing::RouteMap::prefixListSymbolFactory("X");
   EXPECT_EQ(rm->hash(), pl->hash());
   EXPECT_FALSE(rm->compare(*pl));
   EXPECT_TRUE(rm->compare(*routeMapSymbolFactory("X")));
}

TEST(PolicySymbolRouteMapTest, OnlyUpdateAndNotifyTellsHolders) {
   auto table = routeMapSymbolDedupTableFactory();
   auto symbol = routeMapSymbolFactory("RM1")->dedup(table);
   auto pair = routeMapSymbolAndNotifierFactory(symbol);
   VersionRecorder direct;
   direct.notifierIs(symbol);
   NotifierRecorder viaNotifier;
   viaNotifier.notifierIs(pair->rmSymbolNotifier());

   auto status = routeMapStatusFactory("RM1");
   symbol->rmStatusIs(status);
   EXPECT_EQ(symbol->rmStatus(), status);
   EXPECT_EQ(symbol->version(), 0u);
   EXPECT_EQ(direct.heard, 0);

   symbol->updateAndNotify(nullptr);
   EXPECT_FALSE(symbol->rmStatus());
   EXPECT_EQ(symbol->version(), 1u);
   EXPECT_EQ(direct.heard, 1);
   EXPECT_EQ(viaNotifier.heard, 1);

   // A new symbol comes with a notifier of its own; the old notifier keeps following the old one.
   auto other = routeMapSymbolFactory("RM2");
   pair->rmSymbolIs(other);
   ASSERT_TRUE(pair->rmSymbolNotifier());
   EXPECT_EQ(pair->rmSymbolNotifier()->symbol(), other);
}

TEST(PolicySymbolAllRouteMapTest, KeyedByNameAndRefusesNull) {
   struct Recorder : AllRouteMapSymbol::Reactor {
      std::vector<std::string> heard;
      void handleSymbol(const Kel::String& name) override { heard.push_back(name); }
   };
   auto all = allRouteMapSymbolFactory();
   Recorder rec;
   rec.notifierIs(all);
   auto s = routeMapSymbolFactory("RM1");
   all->symbolIs(s);
   all->symbolIs(s);
   EXPECT_EQ(all->symbol("RM1"), s);
   all->symbolDel("RM1");
   all->symbolDel("RM1");
   EXPECT_EQ(rec.heard, (std::vector<std::string>{"RM1", "RM1"}));

   try {
      all->symbolIs(nullptr);
      ADD_FAILURE() << "null accepted";
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "null _symbol parameter to mutator for "
                   "Routing::Policy::AllRouteMapSymbol::symbol not allowed\"");
   }
}

TEST(PolicySymbolPolicyRootTest, TablesAreSeparateAndLive) {
   auto root = policyRootFactory();
   ASSERT_TRUE(root->routeMapTable() && root->peerFilterTable() && root->commListTable() &&
               root->extCommListTable() && root->largeCommListTable() &&
               root->ipv4PrefixListTable() && root->ipv6PrefixListTable() &&
               root->ipAclListTable() && root->asPathListTable() && root->dynPrefixListTable());
   EXPECT_TRUE(root->routeMapTable()->hasNotificationActive());
   EXPECT_TRUE(root->dynPrefixListTable()->hasNotificationActive());

   // Tables of one type are still separate namespaces.
   auto rm = routeMapSymbolFactory("N")->dedup(root->routeMapTable());
   auto pf = routeMapSymbolFactory("N")->dedup(root->peerFilterTable());
   EXPECT_NE(rm.get(), pf.get());
   auto v4 = Routing::RouteMap::prefixListSymbolFactory("N")->dedup(root->ipv4PrefixListTable());
   auto v6 = Routing::RouteMap::prefixListSymbolFactory("N")->dedup(root->ipv6PrefixListTable());
   EXPECT_NE(v4.get(), v6.get());
   auto c = Routing::RouteMap::commListSymbolFactory("N");
   EXPECT_EQ(c->dedup(root->commListTable()), c);
   EXPECT_EQ(root->extCommListTable()->size(), 0u);
   EXPECT_EQ(root->largeCommListTable()->size(), 0u);
}

}  // namespace
