#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/Trace.h"
#include "Routing/RouteMap/PrefixListEntry.h"
#include "RoutingPolicy/acl/RoutingPolicyAcl.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"
#include "RoutingPolicy/status/PolicyEvalContext.h"
#include "Toggle/Toggle.h"
#include "tests/RoutingPolicy/acl/AclWildcardModel.h"

namespace {

using namespace Routing::Policy;
using Acl::AclAction;
using Acl::AclType;
using Nx::IpGenPrefix;
using Routing::RouteMap::GenPrefixEntry;

using Rules = std::vector<std::pair<U32, Acl::IpRuleConfig>>;

IpGenPrefix pfx(const char* text) {
   return IpGenPrefix::fromStrep(text);
}
Acl::IpRuleConfig permit(const char* p) {
   return {AclAction::permit, Acl::IpFilter::prefix(pfx(p))};
}
Acl::IpRuleConfig deny(const char* p) {
   return {AclAction::deny, Acl::IpFilter::prefix(pfx(p))};
}
Acl::IpRuleConfig remark() {
   Acl::IpRuleConfig r;
   r.remarkIs("comment");
   return r;
}

Kel::Ptr<Acl::AclSubConfig> ipSnapshot(const Rules& rules) {
   auto cfg = Acl::aclSubConfigFactory(AclType::ip);
   U64 id = 0;
   for (const auto& [seqno, rule] : rules) {
      cfg->ruleIdIs(seqno, Acl::UniqueId(++id));
      cfg->ipRuleIs(Acl::UniqueId(id), rule);
   }
   return cfg;
}

std::vector<GenPrefixEntry> entries(const Kel::Ptr<Routing::PatriciaTrieWithNodeData const>& t) {
   std::vector<GenPrefixEntry> out;
   t->forEach([&](const IpGenPrefix&, const Routing::PrefixData& head) {
      for (const Routing::PrefixData* d = &head; d != nullptr; d = d->next()) {
         out.push_back(static_cast<const Routing::RouteMap::PrefixListEntryData*>(d)->entry());
      }
   });
   return out;
}

GenPrefixEntry entry(U32 seqno, const char* p, bool permit) {
   const IpGenPrefix prefix = pfx(p);
   return {seqno, prefix, permit, prefix.len(), prefix.maxLen(), 0};
}

// The whole tree over a real configuration, activity manager and manual time.
class PolicyAclTest : public ::testing::Test {
protected:
   static void SetUpTestSuite() { Toggle::toggleStateIs("RoutingPolicyIpAclToggle", true); }

   void SetUp() override {
      Kel::System::timeSourceIs(time_.source());
      Kel::Trace::sinkIs([this](std::string_view line) { lines_.emplace_back(line); });
   }
   void TearDown() override {
      Kel::Trace::levelIs("RoutingPolicyAcl", -1);
      Kel::Trace::sinkIs({});
      Kel::System::timeSourceIs({});
   }

   Kel::Ptr<Acl::Input::AclTypeConfig> typeConfig(AclType type) {
      if (!root_->aclTypeConfigHas(type))
         root_->aclTypeConfigIs(Acl::Input::aclTypeConfigFactory(type));
      return root_->aclTypeConfig(type);
   }
   Kel::Ptr<Acl::AclConfig> list(const char* name, Kel::Ptr<Acl::AclSubConfig const> snapshot,
                                 AclType type = AclType::ip) {
      auto acl = Acl::aclConfigFactory(name);
      acl->currCfgIs(std::move(snapshot));
      acl->versionIs(1);
      typeConfig(type)->aclIs(acl);
      return acl;
   }
   static void change(Acl::AclConfig& acl, Kel::Ptr<Acl::AclSubConfig const> snapshot) {
      acl.currCfgIs(std::move(snapshot));
      acl.versionIs(acl.version() + 1);
   }
   void start() { sm_ = aclConfigSmFactory(root_, all_, table_, am_); }
   Kel::Ptr<IpAclConfigSm> machine(const char* name, AclType type = AclType::ip) const {
      const auto typeSm = sm_->ipConfigSm(type);
      return typeSm ? typeSm->ipAccessListConfigSm(name) : nullptr;
   }
   Kel::Ptr<Routing::RouteMap::IpAccessListSymbol> symbol(const char* name) const {
      return all_->symbol(name);
   }
   bool traced(const std::string& text) const {
      for (const auto& l : lines_) {
         if (l.find(text) != std::string::npos) return true;
      }
      return false;
   }

   Kel::ManualTime time_;
   Kel::Ptr<Kel::ActivityManager> am_ = Kel::activityManagerFactory();
   Kel::Ptr<Acl::Input::Config> root_ = Acl::Input::configFactory();
   Kel::Ptr<Routing::RouteMap::AllIpAccessListSymbol> all_ =
       Routing::RouteMap::allIpAccessListSymbolFactory();
   Kel::Ptr<Routing::RouteMap::IpAccessListSymbolDedupTable> table_ =
       Routing::RouteMap::ipAccessListSymbolDedupTableFactory();
   Kel::Ptr<AclConfigSm> sm_;
   std::vector<std::string> lines_;
};

TEST_F(PolicyAclTest, SlicesPauseAndResumeFromTheBookmarkAndPublishOnlyWhenComplete) {
   Kel::Trace::levelIs("RoutingPolicyAcl", 5);
   list("A", ipSnapshot({{10, permit("10.0.0.0/8")},
                         {20, remark()},
                         {30, deny("10.1.0.0/16")},
                         {40, permit("192.0.2.0/24")}}));
   start();
   const auto sm = machine("A");
   ASSERT_TRUE(sm);
   sm->clockQuantumIs(0);  // one counted rule per slice
   const auto sym = symbol("A");
   const auto initial = sym->status();
   const U32 v0 = sym->version();
   EXPECT_TRUE(sm->initialized());
   EXPECT_TRUE(sm->newTrie());
   EXPECT_EQ(sm->clock()->time(), 0.0);

   ASSERT_TRUE(am_->runOnce());
   EXPECT_EQ(sm->bookmark(), 20u) << "paused before the remark, not after it";
   ASSERT_TRUE(am_->runOnce());
   EXPECT_EQ(sm->bookmark(), 40u) << "the remark was skipped without being counted";
   EXPECT_EQ(sym->version(), v0);
   EXPECT_EQ(sym->status(), initial);

   ASSERT_TRUE(am_->runOnce());
   EXPECT_FALSE(am_->runOnce()) << "the clock rests once the list is published";
   EXPECT_EQ(sym->version(), v0 + 1);
   EXPECT_EQ(sm->bookmark(), 0u);
   EXPECT_EQ(sm->clock()->time(), Kel::kNever);
   EXPECT_FALSE(sm->newTrie());
   EXPECT_FALSE(sm->pset());
   ASSERT_TRUE(sym->status() && sym->status() != initial);
   EXPECT_EQ(
       entries(sym->status()->trie()),
       (std::vector<GenPrefixEntry>{entry(10, "10.0.0.0/8", true), entry(30, "10.1.0.0/16", false),
                                    entry(40, "192.0.2.0/24", true)}));
   ASSERT_EQ(lines_.size(), 2u) << "level 5 shows the pauses only";
   EXPECT_TRUE(lines_[0].ends_with("IpAclConfigSm A ACL: A pausing processing at rule 20"));
   EXPECT_TRUE(lines_[1].ends_with("IpAclConfigSm A ACL: A pausing processing at rule 40"));

   // First match in rule order: rule 10 permits all of 10/8 before rule 30 can deny.
   const auto m = ipAccessListMatcherFactory("A", sym->status());
   MatchInput_ in;
   for (const auto& [route, expected] :
        {std::pair{"10.1.2.0/24", true}, std::pair{"192.0.2.128/25", true},
         std::pair{"172.16.0.0/16", false}}) {
      in.prefixIs(pfx(route));
      EXPECT_EQ(m->matchForTest(in, nullptr), expected) << route;
   }
}

struct SliceCase {
   const char* actions;  // P permit, D deny, R remark, one rule each
   std::size_t slices;
};

class PolicyAclSliceTest : public PolicyAclTest, public ::testing::WithParamInterface<SliceCase> {};

TEST_P(PolicyAclSliceTest, OnlyCountedRulesEndASlice) {
   Rules rules;
   U32 prefixes = 0;
   for (const char* a = GetParam().actions; *a != '\0'; ++a) {
      const std::string p = "10." + std::to_string(rules.size()) + ".0.0/16";
      rules.emplace_back(static_cast<U32>(10 * (rules.size() + 1)), *a == 'R'   ? remark()
                                                                    : *a == 'P' ? permit(p.c_str())
                                                                                : deny(p.c_str()));
      prefixes += *a != 'R';
   }
   list("A", ipSnapshot(rules));
   start();
   machine("A")->clockQuantumIs(0);
   const U32 v0 = symbol("A")->version();
   EXPECT_EQ(am_->runUntilIdle(), GetParam().slices);
   EXPECT_EQ(symbol("A")->version(), v0 + 1);
   EXPECT_EQ(symbol("A")->status()->trie()->entries(), prefixes);
}

INSTANTIATE_TEST_SUITE_P(PolicyAcl, PolicyAclSliceTest,
                         ::testing::Values(SliceCase{"", 1}, SliceCase{"RRRRRRRRRR", 1},
                                           SliceCase{"P", 1}, SliceCase{"PD", 2},
                                           SliceCase{"RPRRDR", 3}, SliceCase{"PPPP", 4}));

// Time moves by `step` at every reading of the clock: the slice's start, then before each rule.
struct QuantumCase {
   double step;
   U32 rulesPerSlice;
};

class PolicyAclQuantumTest : public PolicyAclTest,
                             public ::testing::WithParamInterface<QuantumCase> {};

TEST_P(PolicyAclQuantumTest, NoRuleStartsPastTheQuantumButOneAlwaysRuns) {
   Rules rules;
   for (U32 i = 1; i <= 12; ++i) {
      rules.emplace_back(10 * i, permit(("10." + std::to_string(i) + ".0.0/16").c_str()));
   }
   list("A", ipSnapshot(rules));
   start();
   const auto sm = machine("A");
   const double step = GetParam().step;
   Kel::System::timeSourceIs([this, step] {
      time_.advance(step);
      return time_.now();
   });
   const U32 perSlice = GetParam().rulesPerSlice;
   ASSERT_TRUE(am_->runOnce());
   EXPECT_EQ(sm->bookmark(), 10 * (perSlice + 1));
   EXPECT_EQ(1 + am_->runUntilIdle(), (12 + perSlice - 1) / perSlice);
   EXPECT_EQ(symbol("A")->status()->trie()->entries(), 12u);
}

INSTANTIATE_TEST_SUITE_P(PolicyAcl, PolicyAclQuantumTest,
                         ::testing::Values(QuantumCase{0.003, 3}, QuantumCase{0.004, 2},
                                           QuantumCase{0.006, 1}, QuantumCase{0.05, 1}));

TEST_F(PolicyAclTest, VersionChangeWhilePausedRestartsFromTheFirstRuleWithANewTrie) {
   const auto acl = list("A", ipSnapshot({{10, permit("10.0.0.0/8")},
                                          {20, permit("11.0.0.0/8")},
                                          {30, permit("12.0.0.0/8")}}));
   start();
   const auto sm = machine("A");
   sm->clockQuantumIs(0);
   const U32 v0 = symbol("A")->version();
   ASSERT_TRUE(am_->runOnce());
   ASSERT_EQ(sm->bookmark(), 20u);
   const auto partial = sm->newTrie();
   ASSERT_EQ(partial->entries(), 1u);

   change(*acl, ipSnapshot({{10, deny("172.16.0.0/12")}, {20, permit("192.168.0.0/16")}}));
   EXPECT_EQ(sm->bookmark(), 0u);
   ASSERT_TRUE(sm->newTrie());
   EXPECT_NE(sm->newTrie(), partial);
   EXPECT_EQ(sm->newTrie()->entries(), 0u);
   EXPECT_EQ(sm->clock()->time(), 0.0);
   EXPECT_EQ(symbol("A")->version(), v0);

   EXPECT_EQ(am_->runUntilIdle(), 2u);
   EXPECT_EQ(machine("A"), sm);
   EXPECT_EQ(symbol("A")->version(), v0 + 1) << "the abandoned build never published";
   EXPECT_EQ(entries(symbol("A")->status()->trie()),
             (std::vector<GenPrefixEntry>{entry(10, "172.16.0.0/12", false),
                                          entry(20, "192.168.0.0/16", true)}));
}

// A machine on its own, as the type machine makes it, whose list leaves the type configuration
// while nobody tears the machine down.
TEST_F(PolicyAclTest, ListGoneWhilePausedPublishesNothingAndKeepsTheBookmark) {
   auto types = Acl::Input::aclTypeConfigFactory(AclType::ip);
   auto acl = Acl::aclConfigFactory("A");
   acl->currCfgIs(ipSnapshot({{10, permit("10.0.0.0/8")}, {20, permit("11.0.0.0/8")}}));
   types->aclIs(acl);
   auto sym = Routing::RouteMap::ipAccessListSymbolFactory("A")->dedup(table_);
   all_->symbolIs(sym);
   const auto sm = ipAclConfigSmFactory("A", types, all_, table_, acl, am_);
   sm->clockQuantumIs(0);
   ASSERT_TRUE(am_->runOnce());
   ASSERT_EQ(sm->bookmark(), 20u);

   types->aclDel("A");
   ASSERT_TRUE(am_->runOnce());
   EXPECT_FALSE(am_->runOnce());
   EXPECT_EQ(sym->version(), 0u);
   EXPECT_FALSE(sym->status());
   EXPECT_EQ(sm->bookmark(), 20u);
   EXPECT_EQ(sm->newTrie()->entries(), 1u);
}

TEST_F(PolicyAclTest, RemovedListBumpsItsSymbolBeforeLeavingAndStopsItsBuild) {
   list("A", ipSnapshot({{10, permit("10.0.0.0/8")}, {20, permit("11.0.0.0/8")}}));
   list("B", ipSnapshot({}));
   start();
   machine("A")->clockQuantumIs(0);
   ASSERT_TRUE(am_->runOnce());  // A paused at 20, B published
   ASSERT_EQ(am_->clockCount(), 2u);

   struct Watch : Routing::RouteMap::PolicySymbol::Reactor {
      Routing::RouteMap::AllIpAccessListSymbol* all = nullptr;
      std::vector<std::pair<bool, bool>> seen;  // still listed, status
      void handleVersion() override {
         const auto& s = static_cast<const Routing::RouteMap::IpAccessListSymbol&>(*notifier());
         seen.emplace_back(all->symbolHas("A"), s.status() != nullptr);
      }
   } watch;
   watch.all = all_.get();
   const auto sym = symbol("A");
   watch.notifierIs(sym);
   const U32 v0 = sym->version();

   typeConfig(AclType::ip)->aclDel("A");
   EXPECT_EQ(sym->version(), v0 + 1);
   EXPECT_EQ(watch.seen, (std::vector<std::pair<bool, bool>>{{true, false}}));
   EXPECT_FALSE(all_->symbolHas("A"));
   EXPECT_FALSE(machine("A"));
   EXPECT_EQ(am_->clockCount(), 1u);
   EXPECT_EQ(am_->runUntilIdle(), 0u);
   EXPECT_EQ(sym->version(), v0 + 1);
   EXPECT_TRUE(all_->symbolHas("B"));
}

TEST_F(PolicyAclTest, Ipv6ListStartsWithAnIpv4EmptyTrieThenPublishesItsOwnFamily) {
   auto v6 = Acl::aclSubConfigFactory(AclType::ipv6);
   v6->ruleIdIs(10, Acl::UniqueId(1));
   v6->ip6RuleIs(Acl::UniqueId(1),
                 Acl::Ip6RuleConfig(AclAction::permit, Acl::Ip6Filter(pfx("2001:db8::/32"))));
   list("V6", v6, AclType::ipv6);
   list("EMPTY6", Acl::aclSubConfigFactory(AclType::ipv6), AclType::ipv6);
   start();
   for (const char* name : {"V6", "EMPTY6"}) {
      const auto trie = symbol(name)->status()->trie();
      EXPECT_EQ(trie->af(), Nx::AddressFamily::ipv4) << name;
      EXPECT_EQ(trie->prefixes(), 0u) << name;
   }
   am_->runUntilIdle();
   EXPECT_EQ(symbol("EMPTY6")->status()->trie()->af(), Nx::AddressFamily::ipv6);
   const auto trie = symbol("V6")->status()->trie();
   EXPECT_EQ(trie->af(), Nx::AddressFamily::ipv6);
   EXPECT_EQ(entries(trie), (std::vector<GenPrefixEntry>{entry(10, "2001:db8::/32", true)}));
   EXPECT_EQ(entries(trie)[0].maxLen, 128u);
}

Acl::IpRuleConfig masked(AclAction action, const char* source, const char* wildcard) {
   return {action, Acl::IpFilter(Nx::IpAddr::fromStrep(source), Nx::IpAddr::fromStrep(wildcard))};
}

TEST_F(PolicyAclTest, RulesBecomeEveryPrefixTheyCoverAndOverlapsAreKept) {
   list("A", ipSnapshot({{10, permit("10.0.0.0/8")},
                         {20, deny("10.0.0.0/8")},
                         {30, masked(AclAction::deny, "10.0.0.0", "0.1.0.3")},
                         {50, {AclAction::permit, Acl::IpFilter::any()}}}));
   start();
   am_->runUntilIdle();
   const auto status = symbol("A")->status();
   EXPECT_EQ(
       entries(status->trie()),
       (std::vector<GenPrefixEntry>{entry(50, "0.0.0.0/0", true), entry(10, "10.0.0.0/8", true),
                                    entry(20, "10.0.0.0/8", false), entry(30, "10.0.0.0/30", false),
                                    entry(30, "10.1.0.0/30", false)}));
   EXPECT_TRUE(status->maskRules().empty());
}

// Up to maxTrieRangesPerRule blocks a rule is trie entries; one wildcard bit more and it is kept
// whole as a mask rule, whatever its width, and still decides by its sequence number.
TEST_F(PolicyAclTest, WideWildcardsAreKeptAsMaskRulesAndDecideInSequence) {
   static_assert(IpAclConfigSm::maxTrieRangesPerRule == 256);
   list("A", ipSnapshot({{5, masked(AclAction::permit, "1.0.0.0", "0.255.0.0")},  // 256 hosts
                         {10, masked(AclAction::deny, "0.0.0.0", "1.255.255.0")},
                         {15, remark()},
                         {20, masked(AclAction::permit, "11.0.0.0", "0.255.1.0")},  // 512 hosts
                         {30, masked(AclAction::deny, "0.0.0.0", "255.255.255.254")},
                         {40, {AclAction::permit, Acl::IpFilter::any()}}}));
   start();
   machine("A")->clockQuantumIs(0);  // a slice per rule: mask rules gather across slices
   EXPECT_EQ(am_->runUntilIdle(), 5u);
   const auto status = symbol("A")->status();
   const std::vector<GenPrefixEntry> trieEntries = entries(status->trie());
   ASSERT_EQ(trieEntries.size(), 257u);
   EXPECT_EQ(std::count_if(trieEntries.begin(), trieEntries.end(),
                           [](const GenPrefixEntry& e) { return e.seqno == 5 && e.permit; }),
             256);
   using Routing::RouteMap::AclMaskRule;
   EXPECT_EQ(status->maskRules(), (std::vector<AclMaskRule>{{10, 0x00000000, 0x01ffff00, false},
                                                            {20, 0x0b000000, 0x00ff0100, true},
                                                            {30, 0x00000000, 0xfffffffe, false}}));

   const auto m = ipAccessListMatcherFactory("A", status);
   const struct {
      const char* route;
      bool permit;
   } cases[] = {
       {"0.5.5.0/32", false},     // mask rule 10 before trie rule 40
       {"1.200.3.0/32", false},   // rule 10: the first octet may be 0 or 1
       {"1.7.0.0/32", true},      // trie rule 5 before mask rule 10
       {"1.7.1.0/32", false},     // not rule 5's: rule 10
       {"2.5.5.0/32", false},     // not rule 10's: mask rule 30 (even addresses)
       {"11.3.1.0/32", true},     // mask rule 20 before mask rule 30
       {"11.3.2.0/32", false},    // the third octet's other bits are fixed: rule 30
       {"11.3.1.0/31", true},     // rules 20 and 30 miss 11.3.1.1: rule 40
       {"0.5.5.0/24", true},      // rule 10 wants .0 hosts only, so not the whole /24: rule 40
       {"0.0.0.0/0", true},       // rule 40 alone holds everything
       {"2001:db8::/32", false},  // the other family: no trie node, no mask rule
   };
   for (const auto& c : cases) {
      MatchInput_ in;
      in.prefixIs(pfx(c.route));
      EXPECT_EQ(m->matchForTest(in, nullptr), c.permit) << c.route;
   }
}

// Mask rules are tested eight at a time; the ninth is alone in its block beside seven unused
// lanes, which must never be taken for rules (they would permit 0.0.0.0/32).
TEST_F(PolicyAclTest, MaskRulesPastTheFirstBlockDecideAndThePaddingNeverDoes) {
   Rules rules;
   for (U32 i = 1; i <= 9; ++i) {
      // Even addresses of 10.i.0.0/16 scattered over 2^15 blocks.
      const std::string source = "10." + std::to_string(i) + ".0.0";
      rules.emplace_back(i, masked(i % 2 == 0 ? AclAction::deny : AclAction::permit, source.c_str(),
                                   "0.0.255.254"));
   }
   list("A", ipSnapshot(rules));
   start();
   am_->runUntilIdle();
   const auto status = symbol("A")->status();
   ASSERT_EQ(status->maskColumns().size(), 9u);
   const auto m = ipAccessListMatcherFactory("A", status);
   for (const auto& [route, want] :
        {std::pair{"10.9.3.4/32", true}, std::pair{"10.9.3.5/32", false},
         std::pair{"10.8.3.4/32", false}, std::pair{"10.1.0.0/31", false},
         std::pair{"10.1.0.0/32", true}, std::pair{"0.0.0.0/32", false}}) {
      MatchInput_ in;
      in.prefixIs(pfx(route));
      EXPECT_EQ(m->matchForTest(in, nullptr), want) << route;
   }
}

Rules modelRules(const std::vector<acl_model::Rule>& rules) {
   Rules out;
   for (const acl_model::Rule& r : rules) {
      // A remark under the same number would replace the rule; one below it takes a free one.
      if (r.seqno % 3 == 0 && (out.empty() || out.back().first < r.seqno - 1)) {
         out.emplace_back(r.seqno - 1, remark());
      }
      out.emplace_back(
          r.seqno, Acl::IpRuleConfig(r.permit ? AclAction::permit : AclAction::deny,
                                     Acl::IpFilter(Nx::IpAddr(r.source), Nx::IpAddr(r.wildcard))));
   }
   return out;
}

// Random lists of scattered wildcards, built slice by slice by the real machines, must answer
// every route as first match over the rules' address sets does. Each list replaces the last one
// in the same access list, after a build of another random list was started and abandoned.
TEST_F(PolicyAclTest, WildcardListsDecideAsFirstMatchOverEveryAddress) {
   const auto acl = list("W", ipSnapshot({}));
   start();
   machine("W")->clockQuantumIs(0);
   am_->runUntilIdle();
   acl_model::Generator gen(20240614);
   std::size_t byMask = 0, byTrie = 0, unmatched = 0, permits = 0, routes = 0;
   for (int listNo = 0; listNo < 150; ++listNo) {
      change(*acl, ipSnapshot(modelRules(gen.rules())));
      am_->runOnce();  // part of a build that the next change abandons
      const std::vector<acl_model::Rule> rules = gen.rules();
      change(*acl, ipSnapshot(modelRules(rules)));
      am_->runUntilIdle();
      const auto status = symbol("W")->status();
      const auto m = ipAccessListMatcherFactory("W", status);
      for (int i = 0; i < 150; ++i) {
         const acl_model::Route r = gen.route(rules);
         const acl_model::Rule* first = acl_model::firstMatch(rules, r);
         MatchInput_ in;
         in.prefixIs(IpGenPrefix(Nx::IpAddr(r.address), r.len));
         const bool want = first != nullptr && first->permit;
         ASSERT_EQ(m->matchForTest(in, nullptr), want)
             << in.prefix() << " first match "
             << (first ? std::to_string(first->seqno) : std::string("none")) << " in\n"
             << acl_model::describe(rules);
         ++routes;
         permits += want;
         if (first == nullptr) {
            ++unmatched;
         } else if (const auto& mask = status->maskColumns(); std::binary_search(
                        mask.seqno.begin(), mask.seqno.begin() + mask.size(), first->seqno)) {
            ++byMask;
         } else {
            ++byTrie;
         }
      }
   }
   // The routes must exercise every kind of answer, or the comparison proves little.
   EXPECT_GT(byMask, routes / 10);
   EXPECT_GT(byTrie, routes / 10);
   EXPECT_GT(unmatched, routes / 20);
   EXPECT_GT(permits, routes / 5);
   EXPECT_LT(permits, routes - routes / 5);
}

TEST_F(PolicyAclTest, ReservedListAndUnfollowedTypesAreIgnored) {
   Kel::Trace::levelIs("RoutingPolicyAcl", 8);
   list("default-control-plane-acl", ipSnapshot({{10, permit("10.0.0.0/8")}}));
   list("A", ipSnapshot({}));
   list("M", Acl::aclSubConfigFactory(AclType::mac), AclType::mac);
   start();
   EXPECT_TRUE(sm_->ipConfigSmHas(AclType::ip));
   EXPECT_FALSE(sm_->ipConfigSmHas(AclType::mac));
   EXPECT_FALSE(all_->symbolHas("default-control-plane-acl"));
   EXPECT_FALSE(all_->symbolHas("M"));
   EXPECT_FALSE(machine("default-control-plane-acl"));
   EXPECT_EQ(table_->size(), 1u);
   EXPECT_TRUE(traced(" ignoring ipAccess-list: default-control-plane-acl"));

   lines_.clear();
   typeConfig(AclType::ip)->aclDel("default-control-plane-acl");
   EXPECT_TRUE(traced(" ignoring ipAccess-list: default-control-plane-acl"));
   EXPECT_EQ(symbol("A")->version(), 0u);
   EXPECT_EQ(table_->size(), 1u);
}

// Lists that leave with their type's configuration are removed like lists deleted one by one:
// their symbols must not go on answering with the last trie.
TEST_F(PolicyAclTest, TypeMachinesFollowTheirConfigurationObjectAndTakeTheirListsAlong) {
   list("A", ipSnapshot({{10, permit("10.0.0.0/8")}}));
   const auto listB = list("B", ipSnapshot({{10, permit("11.0.0.0/8")}}));
   start();
   am_->runUntilIdle();
   const auto a = symbol("A");
   const auto b = symbol("B");
   const U32 va = a->version();
   const U32 vb = b->version();
   const auto bStatus = b->status();

   // A new configuration object for the type that keeps B and drops A.
   auto next = Acl::Input::aclTypeConfigFactory(AclType::ip);
   next->aclIs(listB);
   root_->aclTypeConfigIs(next);
   EXPECT_FALSE(all_->symbolHas("A"));
   EXPECT_FALSE(a->status());
   EXPECT_EQ(a->version(), va + 1);
   EXPECT_EQ(symbol("B"), b);
   EXPECT_EQ(b->status(), bStatus) << "B answers as before until its new build is published";
   EXPECT_EQ(am_->runUntilIdle(), 1u);
   EXPECT_EQ(b->version(), vb + 1);
   EXPECT_EQ(entries(b->status()->trie()),
             (std::vector<GenPrefixEntry>{entry(10, "11.0.0.0/8", true)}));

   root_->aclTypeConfigDel(AclType::ip);
   EXPECT_FALSE(sm_->ipConfigSmHas(AclType::ip));
   EXPECT_EQ(am_->clockCount(), 0u) << "the list machines went with their type machine";
   EXPECT_FALSE(all_->symbolHas("B"));
   EXPECT_FALSE(b->status());
   EXPECT_EQ(b->version(), vb + 2);
   EXPECT_EQ(a->version(), va + 1);

   list("B", ipSnapshot({{10, permit("10.0.0.0/8")}}));
   ASSERT_TRUE(sm_->ipConfigSm(AclType::ip));
   EXPECT_TRUE(machine("B"));
   EXPECT_FALSE(machine("A"));
   am_->runUntilIdle();
   EXPECT_EQ(symbol("B"), b) << "the route maps' symbol, found again through the table";
   EXPECT_EQ(entries(b->status()->trie()),
             (std::vector<GenPrefixEntry>{entry(10, "10.0.0.0/8", true)}));
}

// The in-place constructor path: the same arguments keep the machine, a different one is refused.
TEST_F(PolicyAclTest, ReinstantiatingAListMachineWithOtherArgumentsIsRefused) {
   const auto acl = list("A", ipSnapshot({}));
   start();
   const auto typeSm = sm_->ipConfigSm(AclType::ip);
   const auto sm = machine("A");
   const Kel::Ptr<Acl::Input::AclTypeConfig const> types = typeConfig(AclType::ip);
   const Kel::Ptr<Acl::AclConfig const> same = acl;
   EXPECT_EQ(typeSm->ipAccessListConfigSmIs("A", types, all_, table_, same), sm);

   const auto otherTypes = Acl::Input::aclTypeConfigFactory(AclType::ip);
   const auto otherAll = Routing::RouteMap::allIpAccessListSymbolFactory();
   const auto otherTable = Routing::RouteMap::ipAccessListSymbolDedupTableFactory();
   const auto otherAcl = Acl::aclConfigFactory("A");
   const std::string prefix =
       "Reinstantiating the pointer interface where constructor parameter attribute ";
   const std::pair<std::function<void()>, std::string> cases[] = {
       {[&] { typeSm->ipAccessListConfigSmIs("A", otherTypes, all_, table_, same); }, "_ipConfig"},
       {[&] { typeSm->ipAccessListConfigSmIs("A", types, otherAll, table_, same); },
        "_allIpAclSymbol"},
       {[&] { typeSm->ipAccessListConfigSmIs("A", types, all_, otherTable, same); },
        "_ipAclSymbolTable"},
       {[&] { typeSm->ipAccessListConfigSmIs("A", types, all_, table_, otherAcl); },
        "_ipAccessList"},
   };
   for (const auto& [call, attr] : cases) {
      try {
         call();
         ADD_FAILURE() << "no refusal for " << attr;
      } catch (const Kel::RangeException& e) {
         EXPECT_EQ(e.what(), prefix + attr + " has a different value of");
      }
   }
   EXPECT_EQ(machine("A"), sm);

   // A list object replaced under the same name is a new list, not a reinstantiation.
   auto replacement = Acl::aclConfigFactory("A");
   replacement->currCfgIs(ipSnapshot({{10, permit("10.0.0.0/8")}}));
   typeConfig(AclType::ip)->aclIs(replacement);
   ASSERT_TRUE(machine("A"));
   EXPECT_NE(machine("A"), sm);
   am_->runUntilIdle();
   EXPECT_EQ(symbol("A")->status()->trie()->entries(), 1u);
}

TEST_F(PolicyAclTest, TracesNameEachStep) {
   Kel::Trace::levelIs("RoutingPolicyAcl", 8);
   list("A", ipSnapshot({{10, permit("10.0.0.0/8")}}));
   start();
   am_->runUntilIdle();
   for (const char* text : {"AclConfigSm handleConfig ip", "IpAclTypeConfigSm ip addIpAccessList A",
                            "IpAclConfigSm A handleIpAccessPrefixEntry",
                            "IpAclConfigSm A handleIpAccessListVersion version: 1",
                            "IpAclConfigSm A Processing Acl: A",
                            "addIpAclEntryToTrie ACL: A seqno: 10 pfx 10.0.0.0/8"}) {
      EXPECT_TRUE(traced(text)) << text;
   }
}

// The toggle is read once per process: later overrides do not change what the agent follows.
TEST_F(PolicyAclTest, ToggleIsReadOnce) {
   ASSERT_TRUE(ipAclToggleEnabled());
   Toggle::toggleStateIs("RoutingPolicyIpAclToggle", false);
   EXPECT_TRUE(ipAclToggleEnabled());
   list("A", ipSnapshot({}));
   start();
   EXPECT_TRUE(all_->symbolHas("A"));
   Toggle::toggleStateIs("RoutingPolicyIpAclToggle", true);
}

// The first read of the toggle must see it off, so the check runs in a fresh process: the
// threadsafe death-test style re-executes this binary for this test alone.
TEST(PolicyAclToggleDeathTest, OffFollowsNoAccessList) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
       {
          Toggle::toggleStateIs("RoutingPolicyIpAclToggle", false);
          auto am = Kel::activityManagerFactory();
          auto root = Acl::Input::configFactory();
          auto types = Acl::Input::aclTypeConfigFactory(AclType::ip);
          types->aclIs(Acl::aclConfigFactory("A"));
          root->aclTypeConfigIs(types);
          auto all = Routing::RouteMap::allIpAccessListSymbolFactory();
          auto table = Routing::RouteMap::ipAccessListSymbolDedupTableFactory();
          auto sm = aclConfigSmFactory(root, all, table, am);
          root->aclTypeConfigIs(Acl::Input::aclTypeConfigFactory(AclType::ipv6));
          const bool followed = sm->ipConfigSmHas(AclType::ip) ||
                                sm->ipConfigSmHas(AclType::ipv6) || all->symbolHas("A") ||
                                table->size() != 0 || am->clockCount() != 0;
          std::fputs(followed ? "followed\n" : "nothing followed\n", stderr);
          std::exit(followed ? 1 : 0);
       },
       ::testing::ExitedWithCode(0), "nothing followed");
}

TEST(PolicyAclDeathTest, AddingToAMissingTrieIsFatal) {
   const Acl::MatchPermit permit = Acl::MatchPermit::permit;
   EXPECT_DEATH(addIpAclEntryToTrie(nullptr, 10, pfx("10.0.0.0/8"), permit),
                "Assertion `trie' failed");
}

}  // namespace
