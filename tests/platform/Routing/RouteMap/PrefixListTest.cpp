#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Kel/Exception.h"
#include "Routing/RouteMap/PrefixListCompilerSm.h"
#include "Routing/RouteMap/PrefixListEntry.h"

namespace {

using namespace Routing::RouteMap;
using Nx::AddressFamily;

Nx::IpGenPrefix P(const char* text) {
   return Nx::IpGenPrefix::fromStrep(text);
}

// The chain stored at one prefix, as "<seqno>:<minLen>-<maxLen>:<permit|deny>" in chain order.
std::vector<std::string> chainAt(const PrefixListStatus& status, const char* prefix) {
   std::vector<std::string> out;
   for (auto* d = status.trie()->route(P(prefix)).get(); d != nullptr; d = d->next()) {
      auto* e = dynamic_cast<const PrefixListEntryData*>(d);
      if (e == nullptr) return {"not a PrefixListEntryData"};
      out.push_back(std::to_string(e->seqno()) + ':' + std::to_string(e->minLen()) + '-' +
                    std::to_string(e->maxLen()) + ':' +
                    (e->isPrefixEntryPermit() ? "permit" : "deny"));
   }
   return out;
}

struct RefusalCase {
   const char* name;
   AddressFamily af;
   PrefixListRule rule;
   const char* text;
};

class RouteMapPrefixListRefusalTest : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(RouteMapPrefixListRefusalTest, RefusesWithItsTextAndKeepsNothing) {
   auto list = prefixListConfigFactory("PL", GetParam().af);
   try {
      list->entryIs(GetParam().rule);
      FAIL() << "accepted " << GetParam().rule;
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(), GetParam().text);
   }
   EXPECT_TRUE(list->entries().empty());
}

INSTANTIATE_TEST_SUITE_P(
    RouteMapPrefixList, RouteMapPrefixListRefusalTest,
    ::testing::Values(
        RefusalCase{"v6InV4",
                    AddressFamily::ipv4,
                    {10, true, P("2001:db8::/32")},
                    "prefix list 'PL' seq 10: IPv6 prefix 2001:db8::/32 in an IPv4 list"},
        RefusalCase{"v4InV6",
                    AddressFamily::ipv6,
                    {10, true, P("10.0.0.0/8"), {}, 24},
                    "prefix list 'PL' seq 10: IPv4 prefix 10.0.0.0/8 in an IPv6 list"},
        RefusalCase{"geBeyondV4",
                    AddressFamily::ipv4,
                    {5, true, P("10.0.0.0/8"), 33},
                    "prefix list 'PL' seq 5: ge 33 must be at most 32 for IPv4"},
        RefusalCase{"leBeyondV6",
                    AddressFamily::ipv6,
                    {5, false, P("2001:db8::/32"), 48, 129},
                    "prefix list 'PL' seq 5: le 129 must be at most 128 for IPv6"},
        RefusalCase{"geBelowLength",
                    AddressFamily::ipv4,
                    {7, true, P("10.0.0.0/8"), 6},
                    "prefix list 'PL' seq 7: ge 6 must be at least the prefix length 8 of "
                    "10.0.0.0/8"},
        RefusalCase{"leBelowLength",
                    AddressFamily::ipv4,
                    {7, true, P("10.0.0.0/8"), {}, 6},
                    "prefix list 'PL' seq 7: le 6 must be at least the prefix length 8 of "
                    "10.0.0.0/8"},
        RefusalCase{"leBelowGe",
                    AddressFamily::ipv4,
                    {7, true, P("10.0.0.0/8"), 24, 20},
                    "prefix list 'PL' seq 7: le 20 must be at least ge 24"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RouteMapPrefixListRuleTest, BoundsEqualToTheLengthOrEachOtherAreAccepted) {
   auto list = prefixListConfigFactory("PL", AddressFamily::ipv4);
   list->entryIs({1, true, P("10.0.0.0/8"), 8, 32});
   list->entryIs({2, true, P("10.0.0.0/8"), 24, 24});
   list->entryIs({3, true, P("0.0.0.0/0"), {}, 0});
   EXPECT_EQ(list->entries().size(), 3u);

   const PrefixListRule rule{2, false, P("2001:db8::/32"), {}, 64};
   EXPECT_EQ(rule.toStrep(),
             "Value('Routing::RouteMap::PrefixListRule', ** {'seqno': 2, 'permit': False, "
             "'prefix': 2001:db8::/32, 'ge': None, 'le': 64})");
   EXPECT_EQ(PrefixListRule::fromStrep(rule.toStrep()), rule);
}

// Follows one symbol and notes, at each version change, the version and the status it then
// carries: a publication must already show its new status when it is announced.
struct Publications : PolicySymbol::Reactor {
   struct Seen {
      U32 version;
      Kel::Ptr<PrefixListStatus const> status;
   };
   std::vector<Seen> seen;
   std::function<void()> onVersion;
   void handleVersion() override {
      const auto& s = static_cast<const PrefixListSymbol&>(*notifier());
      seen.push_back({s.version(), s.status()});
      if (onVersion) onVersion();
   }
};

class RouteMapPrefixListCompilerTest : public ::testing::Test {
protected:
   Kel::Ptr<PrefixListSymbol> symbol(AddressFamily af, const char* name) {
      return prefixListSymbolFactory(name)->dedup(af == AddressFamily::ipv4 ? v4 : v6);
   }
   Kel::Ptr<PrefixListConfigRoot> root = prefixListConfigRootFactory();
   Kel::Ptr<PrefixListSymbolDedupTable> v4 = prefixListSymbolDedupTableFactory();
   Kel::Ptr<PrefixListSymbolDedupTable> v6 = prefixListSymbolDedupTableFactory();
};

TEST_F(RouteMapPrefixListCompilerTest, PublishesOncePerChangeOnTheSymbolUsersAlreadyHold) {
   // A route map names the list before the compiler runs.
   auto user = symbol(AddressFamily::ipv4, "PL");
   Publications pubs;
   pubs.notifierIs(user);
   auto list = root->prefixListIs(AddressFamily::ipv4, "PL");
   list->entryIs({10, true, P("10.0.0.0/8")});

   auto compiler = prefixListCompilerSmFactory(root, v4, v6);
   ASSERT_EQ(pubs.seen.size(), 1u);
   const auto first = pubs.seen[0].status;
   ASSERT_TRUE(first);
   EXPECT_EQ(first->trie()->entries(), 1u);

   list->entryIs({20, false, P("10.1.0.0/16")});  // not yet a complete batch
   EXPECT_EQ(pubs.seen.size(), 1u);
   list->versionIs(1);
   list->versionIs(1);
   ASSERT_EQ(pubs.seen.size(), 2u);
   EXPECT_NE(pubs.seen[1].status, first);
   EXPECT_EQ(pubs.seen[1].status->trie()->entries(), 2u);
   EXPECT_EQ(first->trie()->entries(), 1u);  // what matchers may still be walking is untouched

   root->prefixListDel(AddressFamily::ipv4, "PL");
   ASSERT_EQ(pubs.seen.size(), 3u);
   EXPECT_EQ(pubs.seen[2].version, 3u);
   EXPECT_EQ(pubs.seen[2].status, nullptr);
   EXPECT_EQ(user->status(), nullptr);

   // The compiler let go of the removed list's symbol.
   pubs.notifierIs(nullptr);
   user = nullptr;
   EXPECT_EQ(v4->size(), 0u);
}

TEST_F(RouteMapPrefixListCompilerTest, TrieEntriesAdmitTheConfiguredLengthsPerFamily) {
   auto compiler = prefixListCompilerSmFactory(root, v4, v6);
   auto l4 = root->prefixListIs(AddressFamily::ipv4, "PL");
   l4->entryIs({20, true, P("10.0.0.0/8"), 16});
   l4->entryIs({10, true, P("10.0.0.0/8")});
   l4->entryIs({30, false, P("172.16.0.0/12"), {}, 24});
   l4->entryIs({40, true, P("192.168.0.0/16"), 20, 28});
   l4->versionIs(1);
   auto l6 = root->prefixListIs(AddressFamily::ipv6, "PL");
   l6->entryIs({5, true, P("2001:db8::/32"), 64});
   l6->versionIs(7);

   // Nobody held these symbols while they were published; the compiler kept them.
   const auto s4 = symbol(AddressFamily::ipv4, "PL")->status();
   const auto s6 = symbol(AddressFamily::ipv6, "PL")->status();
   ASSERT_TRUE(s4 && s6);
   EXPECT_EQ(s4->trie()->af(), AddressFamily::ipv4);
   EXPECT_EQ(s4->trie()->prefixes(), 3u);
   EXPECT_EQ(chainAt(*s4, "10.0.0.0/8"),
             (std::vector<std::string>{"10:8-8:permit", "20:16-32:permit"}));
   EXPECT_EQ(chainAt(*s4, "172.16.0.0/12"), std::vector<std::string>{"30:12-24:deny"});
   EXPECT_EQ(chainAt(*s4, "192.168.0.0/16"), std::vector<std::string>{"40:20-28:permit"});
   EXPECT_EQ(s6->trie()->af(), AddressFamily::ipv6);
   EXPECT_EQ(chainAt(*s6, "2001:db8::/32"), std::vector<std::string>{"5:64-128:permit"});
}

TEST_F(RouteMapPrefixListCompilerTest, ListRemovedByAHolderReactingToItsPublication) {
   auto compiler = prefixListCompilerSmFactory(root, v4, v6);
   auto list = root->prefixListIs(AddressFamily::ipv4, "PL");
   auto user = symbol(AddressFamily::ipv4, "PL");
   Publications pubs;
   pubs.notifierIs(user);
   pubs.onVersion = [&] {
      if (pubs.seen.size() == 1) root->prefixListDel(AddressFamily::ipv4, "PL");
   };
   list->entryIs({10, true, P("10.0.0.0/8")});
   list->versionIs(1);
   ASSERT_EQ(pubs.seen.size(), 2u);
   EXPECT_TRUE(pubs.seen[0].status);
   EXPECT_EQ(pubs.seen[1].status, nullptr);
   EXPECT_EQ(user->status(), nullptr);
   // The list can come back, and is compiled afresh.
   root->prefixListIs(AddressFamily::ipv4, "PL");
   ASSERT_EQ(pubs.seen.size(), 3u);
   EXPECT_EQ(pubs.seen[2].status->trie()->entries(), 0u);
}

}  // namespace
