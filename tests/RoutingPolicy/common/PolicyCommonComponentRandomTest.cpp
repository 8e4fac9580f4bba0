#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "CommonComponentTestAgent.h"
#include "Toggle/Toggle.h"

namespace {

using namespace common_test;
using Nx::AddressFamily;
using AclRules = std::vector<std::tuple<U32, bool, std::string>>;

const std::vector<std::string> kNames = {"R0", "R1", "R2", "R3"};
const std::vector<std::string> kV4Prefixes = {"10.0.0.0/8", "10.1.0.0/16", "20.0.0.0/8",
                                              "30.0.0.0/8"};
const std::vector<std::string> kV6Prefixes = {"2001:db8::/32", "2001:db8:1::/48"};

// The edits the incremental agent saw, replayed as one configuration into a fresh agent.
struct Lists {
   std::map<std::string, std::vector<PrefixListRule>> v4, v6;
   std::map<std::string, AclRules> acls;
};

class Editor {
public:
   Editor(Agent& a, Lists& lists, std::mt19937& rng) : a_(a), lists_(lists), rng_(rng) {}

   U32 pick(U32 n) { return static_cast<U32>(rng_() % n); }

   std::vector<PrefixListRule> prefixListRules(const std::vector<std::string>& pool) {
      std::vector<PrefixListRule> rules;
      for (U32 i = 0; i < pool.size(); ++i) {
         if (pick(2)) continue;
         const auto prefix = Nx::IpGenPrefix::fromStrep(pool[i]);
         std::optional<U32> le;
         if (pick(2)) le = prefix.maxLen();
         rules.emplace_back(10 * (i + 1), pick(3) != 0, prefix, std::nullopt, le);
      }
      return rules;
   }

   void edit() {
      const U32 rmIndex = pick(static_cast<U32>(kNames.size()));
      const std::string& rm = kNames[rmIndex];
      const U32 seqno = 10 * (1 + pick(6));
      switch (pick(13)) {
         case 0:
         case 1:
         case 2: {
            auto e = entry(a_.config, rm, seqno, pick(4) != 0);
            auto toggle = [&](MatchOption o, const MatchRule& rule) {
               if (pick(3) == 0) {
                  e->matchRuleIs(rule);
               } else if (pick(2)) {
                  e->matchRuleDel(o);
               }
            };
            toggle(
                MatchOption::matchIpAddressPrefixList,
                MatchRule::forList(MatchOption::matchIpAddressPrefixList, pick(2) ? "P0" : "P1"));
            toggle(MatchOption::matchIpv6AddressPrefixList,
                   MatchRule::forList(MatchOption::matchIpv6AddressPrefixList, "Q0"));
            toggle(MatchOption::matchIpAddressAccessList,
                   MatchRule::forList(MatchOption::matchIpAddressAccessList, "A0"));
            toggle(MatchOption::matchTag, MatchRule::forTag(pick(3)));
            toggle(MatchOption::matchSourceProtocol,
                   MatchRule::forProtocol(pick(2) ? Protocol::bgp : Protocol::connected));
            toggle(MatchOption::matchMetric, MatchRule::forMetric(pick(3)));
            if (pick(2)) {
               setTag(e, 100 + pick(50));
            } else {
               e->setFlagsIs(e->setFlags() & ~MapEntry::tagFlag);
            }
            break;
         }
         case 3:
            randomContinue(entry(a_.config, rm, seqno), [this](U32 n) { return pick(n); });
            break;
         case 4:
            randomSubRouteMap(entry(a_.config, rm, seqno), kNames, rmIndex,
                              [this](U32 n) { return pick(n); });
            break;
         case 5: {
            auto e = entry(a_.config, rm, seqno);
            if (pick(2)) {
               setDistance(e, 1 + pick(200));
            } else {
               clearDistance(e);
            }
            break;
         }
         case 6:
            if (auto m = a_.config->routeMap(rm)) m->mapEntryDel(seqno);
            break;
         case 7:
            if (pick(3) == 0) a_.config->routeMapDel(rm);
            break;
         case 8: {
            const std::string name = pick(2) ? "P0" : "P1";
            lists_.v4[name] = prefixListRules(kV4Prefixes);
            a_.prefixList(AddressFamily::ipv4, name, lists_.v4[name]);
            break;
         }
         case 9:
            lists_.v6["Q0"] = prefixListRules(kV6Prefixes);
            a_.prefixList(AddressFamily::ipv6, "Q0", lists_.v6["Q0"]);
            break;
         case 10: {
            AclRules rules;
            for (U32 i = 0; i < kV4Prefixes.size(); ++i) {
               if (pick(2)) rules.emplace_back(10 * (i + 1), pick(3) != 0, kV4Prefixes[i]);
            }
            lists_.acls["A0"] = rules;
            a_.accessList("A0", rules);
            break;
         }
         case 11:
            a_.am->runOnce();
            break;
         default:
            a_.commit(rm);
            break;
      }
   }

private:
   Agent& a_;
   Lists& lists_;
   std::mt19937& rng_;
};

std::vector<Route> routes(std::mt19937& rng) {
   std::vector<Route> out;
   for (int i = 0; i < 12; ++i) {
      Route r;
      const U32 p = static_cast<U32>(rng() % (kV4Prefixes.size() + kV6Prefixes.size()));
      r.prefix = p < kV4Prefixes.size() ? kV4Prefixes[p] : kV6Prefixes[p - kV4Prefixes.size()];
      r.tag = static_cast<U32>(rng() % 3);
      r.protocol = rng() % 2 ? Protocol::bgp : Protocol::connected;
      out.push_back(r);
   }
   return out;
}

// However route maps and the lists they name were edited, every published route map decides as
// the same final configuration loaded at once into a fresh agent.
TEST(PolicyCommonComponentRandomTest, IncrementalEditsEvaluateAsAFreshAgent) {
   Toggle::toggleStateIs("RoutingPolicyIpAclToggle", true);
   Kel::ManualTime time;
   Kel::System::timeSourceIs(time.source());
   U32 firstSeed = 1;
   if (const char* s = std::getenv("POLICY_COMMON_SEED")) firstSeed = std::stoul(s);
   for (U32 seed = firstSeed; seed < firstSeed + 200; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " (rerun with POLICY_COMMON_SEED)");
      std::mt19937 rng(seed);
      Lists lists;
      Agent incremental;
      Editor editor(incremental, lists, rng);
      for (int i = 0; i < 10; ++i) editor.edit();
      incremental.start();
      for (int i = 0; i < 120; ++i) editor.edit();
      for (const auto& name : kNames) incremental.commit(name);
      incremental.run();

      Agent fresh;
      for (const auto& [name, rules] : lists.v4) fresh.prefixList(AddressFamily::ipv4, name, rules);
      for (const auto& [name, rules] : lists.v6) fresh.prefixList(AddressFamily::ipv6, name, rules);
      for (const auto& [name, rules] : lists.acls) fresh.accessList(name, rules);
      copyRouteMaps(incremental.config, fresh.config);
      fresh.start();
      fresh.run();

      const std::vector<Route> set = routes(rng);
      for (const auto& name : kNames) {
         const auto got = incremental.status(name);
         const auto want = fresh.status(name);
         ASSERT_EQ(got == nullptr, want == nullptr) << name;
         if (!want) continue;
         for (const auto& route : set) {
            EXPECT_EQ(evaluate(got, route), evaluate(want, route))
                << name << " " << route.prefix << " tag " << route.tag;
         }
         auto filtered = incremental.filtered->routeMap(name);
         ASSERT_TRUE(filtered) << name;
         EXPECT_EQ(filtered->version(), incremental.config->routeMap(name)->version()) << name;
      }
      if (::testing::Test::HasFailure()) break;
   }
   Kel::System::timeSourceIs({});
}

}  // namespace
