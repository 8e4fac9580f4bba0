#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Routing/RouteMap/PrefixListCompilerSm.h"
#include "Routing/RouteMap/PrefixListEntry.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"
#include "RoutingPolicy/status/PolicyEvalContext.h"

namespace {

using namespace Routing::Policy;
using Nx::IpGenPrefix;
using Routing::RouteMap::PrefixListRule;
using Routing::RouteMap::PrefixListStatus;

IpGenPrefix pfx(const char* text) {
   return IpGenPrefix::fromStrep(text);
}

MatchInput_ routeTo(const char* prefix) {
   MatchInput_ in;
   in.prefixIs(pfx(prefix));
   return in;
}

// The matcher's inline walk over node digests and the callback's virtual walk must agree; the
// answer is the matcher's.
bool decide(const Kel::Ptr<PrefixListMatcher>& m, const char* route) {
   const IpGenPrefix p = pfx(route);
   const bool viaMatcher = m->matchForTest(routeTo(route), nullptr);
   EXPECT_EQ(prefixListMatch(m->prefixListStatus(), &p, m->plWalkerCb()), viaMatcher) << route;
   return viaMatcher;
}

// Prefix lists compiled by the platform's prefix-list compiler and read back from their symbols,
// as route maps get them.
class PolicyPrefixListTest : public ::testing::Test {
protected:
   Kel::Ptr<PrefixListStatus const> compile(const std::string& name,
                                            const std::vector<PrefixListRule>& rules,
                                            Nx::AddressFamily af = Nx::AddressFamily::ipv4) {
      auto list = root_->prefixListIs(af, name);
      for (const auto& rule : rules) list->entryIs(rule);
      list->versionIs(list->version() + 1);
      auto table = af == Nx::AddressFamily::ipv4 ? v4_ : v6_;
      return Routing::RouteMap::prefixListSymbolFactory(name)->dedup(table)->status();
   }

   Kel::Ptr<Routing::RouteMap::PrefixListConfigRoot> root_ =
       Routing::RouteMap::prefixListConfigRootFactory();
   Kel::Ptr<Routing::RouteMap::PrefixListSymbolDedupTable> v4_ =
       Routing::RouteMap::prefixListSymbolDedupTableFactory();
   Kel::Ptr<Routing::RouteMap::PrefixListSymbolDedupTable> v6_ =
       Routing::RouteMap::prefixListSymbolDedupTableFactory();
   Kel::Ptr<Routing::RouteMap::PrefixListCompilerSm> compiler_ =
       Routing::RouteMap::prefixListCompilerSmFactory(root_, v4_, v6_);
};

struct DecisionCase {
   const char* route;
   bool permit;
};

// Overlapping entries: seq 10 permits 10.0.0.0/8 for lengths 16-24, seq 5 denies 10.1.0.0/16
// for lengths 16-32. The lower sequence decides although its node lies deeper.
class PolicyPrefixListDecisionTest : public PolicyPrefixListTest,
                                     public ::testing::WithParamInterface<DecisionCase> {};

TEST_P(PolicyPrefixListDecisionTest, LowestSequenceOverAllCoveringNodesDecides) {
   const auto status = compile("PL", {PrefixListRule(10, true, pfx("10.0.0.0/8"), 16, 24),
                                      PrefixListRule(5, false, pfx("10.1.0.0/16"), 16, 32)});
   const auto m = prefixListMatcherFactory("PL", status);
   EXPECT_EQ(decide(m, GetParam().route), GetParam().permit) << GetParam().route;
}

INSTANTIATE_TEST_SUITE_P(
    PolicyPrefixList, PolicyPrefixListDecisionTest,
    ::testing::Values(DecisionCase{"10.1.2.0/24", false}, DecisionCase{"10.1.0.0/16", false},
                      DecisionCase{"10.1.2.3/32", false}, DecisionCase{"10.2.0.0/24", true},
                      DecisionCase{"10.2.0.0/16", true}, DecisionCase{"10.2.3.4/32", false},
                      DecisionCase{"10.0.0.0/8", false}, DecisionCase{"11.0.0.0/16", false}));

TEST_F(PolicyPrefixListTest, ShallowerNodeWithLowerSequenceBeatsLongerMatch) {
   const auto status = compile("PL", {PrefixListRule(5, false, pfx("10.0.0.0/8"), {}, 32),
                                      PrefixListRule(10, true, pfx("10.1.0.0/16"), {}, 32)});
   const auto m = prefixListMatcherFactory("PL", status);
   EXPECT_FALSE(m->matchForTest(routeTo("10.1.2.0/24"), nullptr));
}

TEST_F(PolicyPrefixListTest, EntryOfTheSameNodeOutsideItsLengthsFallsThroughTheChain) {
   const auto status = compile("PL", {PrefixListRule(10, false, pfx("10.0.0.0/8"), 24, 24),
                                      PrefixListRule(20, true, pfx("10.0.0.0/8"), {}, 32)});
   const auto m = prefixListMatcherFactory("PL", status);
   EXPECT_TRUE(decide(m, "10.1.0.0/16")) << "seq 10 skipped, seq 20";
   EXPECT_FALSE(decide(m, "10.1.1.0/24")) << "seq 10 decides";
}

TEST_F(PolicyPrefixListTest, FamilyMismatchAndUndefinedListNeverMatch) {
   const auto v4Any = compile("ANY4", {PrefixListRule(10, true, pfx("0.0.0.0/0"), {}, 32)});
   const auto v6Any =
       compile("ANY6", {PrefixListRule(10, true, pfx("::/0"), {}, 128)}, Nx::AddressFamily::ipv6);
   const auto v6Route = routeTo("2001:db8::/32");
   EXPECT_FALSE(prefixListMatcherFactory("ANY4", v4Any)->matchForTest(v6Route, nullptr));
   EXPECT_TRUE(prefixListMatcherFactory("ANY6", v6Any)->matchForTest(v6Route, nullptr));
   EXPECT_FALSE(
       prefixListMatcherFactory("ANY6", v6Any)->matchForTest(routeTo("10.0.0.0/8"), nullptr));

   MatchInput_ in = routeTo("10.0.0.0/8");
   in.nexthopIs(Nx::IpGenAddr::fromStrep("10.0.0.1"));
   in.resolvedNexthopIs(Nx::IpGenAddr::fromStrep("10.0.0.1"));
   in.routerIdIs(Nx::IpAddr(10, 0, 0, 1));
   const std::vector<Kel::Ptr<Matcher const>> undefined = {
       prefixListMatcherFactory("U", nullptr), nexthopPrefixListMatcherFactory("U", nullptr),
       resolvedNexthopPfxListMatcherFactory("U", nullptr), routerIdMatcherFactory("U", nullptr),
       ipAccessListMatcherFactory("U", nullptr)};
   for (const auto& m : undefined) EXPECT_FALSE(m->matchForTest(in, nullptr)) << m->toStrep();
}

// Next hops and router ids are looked up as host prefixes: a list that admits only /24 must not
// match them, one that admits /32 must.
TEST_F(PolicyPrefixListTest, AddressesAreLookedUpAsHostPrefixes) {
   const auto exact24 = compile("NET", {PrefixListRule(10, true, pfx("192.0.2.0/24"))});
   const auto host = compile("HOST", {PrefixListRule(10, true, pfx("192.0.2.1/32"))});
   MatchInput_ in = routeTo("192.0.2.0/24");
   in.nexthopIs(Nx::IpGenAddr::fromStrep("192.0.2.1"));
   in.resolvedNexthopIs(Nx::IpGenAddr::fromStrep("192.0.2.1"));
   in.routerIdIs(Nx::IpAddr(192, 0, 2, 1));

   using Factory = std::function<Kel::Ptr<Matcher const>(Kel::Ptr<PrefixListStatus const>)>;
   const std::vector<std::pair<const char*, Factory>> addressMatchers = {
       {"next hop", [](auto s) { return nexthopPrefixListMatcherFactory("L", s); }},
       {"resolved next hop", [](auto s) { return resolvedNexthopPfxListMatcherFactory("L", s); }},
       {"router id", [](auto s) { return routerIdMatcherFactory("L", s); }}};
   for (const auto& [what, make] : addressMatchers) {
      EXPECT_TRUE(make(host)->matchForTest(in, nullptr)) << what;
      EXPECT_FALSE(make(exact24)->matchForTest(in, nullptr)) << what;
   }
   EXPECT_TRUE(prefixListMatcherFactory("NET", exact24)->matchForTest(in, nullptr));

   in.nexthopIs(Nx::IpGenAddr::fromStrep("2001:db8::1"));
   EXPECT_FALSE(nexthopPrefixListMatcherFactory("HOST", host)->matchForTest(in, nullptr));
}

TEST(PolicyPrefixListClauseTest, TextAndFeatures) {
   RouteMapFeatures prefixDependent, routerId;
   prefixDependent.matchPrefixDependent = true;
   routerId.matchRouterId = true;
   const struct {
      Kel::Ptr<Matcher const> matcher;
      const char* text;
      RouteMapFeatures features;
   } cases[] = {
       {prefixListMatcherFactory("PL1", nullptr), "PrefixListMatcher prefix-list PL1;",
        prefixDependent},
       {nexthopPrefixListMatcherFactory("PL1", nullptr),
        "NexthopPrefixListMatcher prefix-list PL1;",
        {}},
       {resolvedNexthopPfxListMatcherFactory("PL1", nullptr),
        "ResolvedNexthopMatcher prefix-list PL1;",
        {}},
       {routerIdMatcherFactory("PL1", nullptr), "RouterIdMatcher router-id prefix-list PL1;",
        routerId},
       {ipAccessListMatcherFactory("ACL1", nullptr), "IpAccessListMatcher prefix-list ACL1;",
        prefixDependent},
   };
   for (const auto& c : cases) {
      EXPECT_EQ(c.matcher->toStrep(), c.text);
      EXPECT_EQ(c.matcher->getFeatures(), c.features) << c.text;
   }
}

// The access-list matcher reads the trie that the access-list compiler writes: one entry per
// rule prefix, admitting every longer route.
TEST(PolicyPrefixListClauseTest, AccessListMatcherTakesTheFirstCoveringRule) {
   auto trie = Routing::PatriciaTrieWithNodeDataIs("A", Nx::AddressFamily::ipv4);
   for (const auto& e : {Routing::RouteMap::GenPrefixEntry{10, pfx("10.1.0.0/16"), false, 16, 32},
                         Routing::RouteMap::GenPrefixEntry{20, pfx("10.0.0.0/8"), true, 8, 32}}) {
      trie->routeIs(e.prefix, Routing::RouteMap::prefixListEntryDataFactory(e));
   }
   auto status = Routing::RouteMap::IpAccessListStatusIs("A");
   status->trieIs(trie);
   const auto m = ipAccessListMatcherFactory("A", status);
   EXPECT_FALSE(m->matchForTest(routeTo("10.1.2.0/24"), nullptr));
   EXPECT_TRUE(m->matchForTest(routeTo("10.2.0.0/24"), nullptr));
   EXPECT_FALSE(m->matchForTest(routeTo("11.0.0.0/8"), nullptr));
   EXPECT_FALSE(m->matchForTest(routeTo("2001:db8::/32"), nullptr));
}

// Two threads share the matchers (and their callbacks) and must each see their own answers.
TEST_F(PolicyPrefixListTest, ThreadsMatchingAtOnceGetTheSingleThreadedAnswers) {
   const auto status = compile("PL", {PrefixListRule(10, true, pfx("10.0.0.0/8"), 16, 24),
                                      PrefixListRule(5, false, pfx("10.1.0.0/16"), 16, 32),
                                      PrefixListRule(30, true, pfx("10.1.2.0/24"), {}, 32)});
   // Nested entries that never decide but lengthen the walks, and with them the time in which
   // a walk shared between threads would be disturbed.
   for (unsigned len = 17; len <= 23; ++len) {
      root_->prefixList(Nx::AddressFamily::ipv4, "PL")
          ->entryIs(PrefixListRule(100 + len, true, IpGenPrefix(pfx("10.1.0.0/16").address(), len),
                                   {}, 32));
   }
   root_->prefixList(Nx::AddressFamily::ipv4, "PL")->versionIs(2);
   const auto m = prefixListMatcherFactory(
       "PL", Routing::RouteMap::prefixListSymbolFactory("PL")->dedup(v4_)->status());
   ASSERT_NE(m->prefixListStatus(), status);
   auto aclTrie = Routing::PatriciaTrieWithNodeDataIs("A", Nx::AddressFamily::ipv4);
   aclTrie->routeIs(pfx("10.1.0.0/16"), Routing::RouteMap::prefixListEntryDataFactory(
                                            {10, pfx("10.1.0.0/16"), true, 16, 32, 0}));
   auto aclStatus = Routing::RouteMap::IpAccessListStatusIs("A");
   aclStatus->trieIs(aclTrie);
   const auto acl = ipAccessListMatcherFactory("A", aclStatus);

   std::vector<MatchInput_> routes;
   for (const char* r : {"10.1.2.0/24", "10.2.0.0/24", "10.1.2.3/32", "10.0.0.0/8", "10.2.3.0/20",
                         "10.1.9.0/24", "192.0.2.0/24"}) {
      routes.push_back(routeTo(r));
   }
   std::vector<int> expected;
   for (const auto& r : routes) {
      expected.push_back(m->matchForTest(r, nullptr) * 2 + acl->matchForTest(r, nullptr));
   }
   int mismatches[2] = {0, 0};
   std::atomic<int> ready{0};
   auto run = [&](int t) {
      ++ready;
      while (ready.load() < 2) {
      }
      for (int i = 0; i < 200000; ++i) {
         const std::size_t k = (static_cast<std::size_t>(i) * (t + 1)) % routes.size();
         const int got =
             m->matchForTest(routes[k], nullptr) * 2 + acl->matchForTest(routes[k], nullptr);
         if (got != expected[k]) ++mismatches[t];
         // The callback object is shared too; its walk state is per thread.
         const bool viaCb = prefixListMatch(m->prefixListStatus(), routes[k].getPrefixPointer(),
                                            m->plWalkerCb());
         if (viaCb != (expected[k] >= 2)) ++mismatches[t];
      }
   };
   std::thread a(run, 0), b(run, 1);
   a.join();
   b.join();
   EXPECT_EQ(mismatches[0] + mismatches[1], 0);
   EXPECT_EQ(expected, (std::vector<int>{1, 2, 1, 0, 2, 1, 0}));
}

}  // namespace
