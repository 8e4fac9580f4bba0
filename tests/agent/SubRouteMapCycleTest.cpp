// Sub-route-map calls that go round, through configuration text: the sequence that would close
// the cycle is held back and compiled without its call, every caller runs its callee's current
// compiled form, and a change travels up a chain of calls once, however the route maps are named.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "RoutingPolicy/status/RouteMapSymbol.h"
#include "agent/PolicyAgent.h"

namespace {

using namespace Routing::Policy;
using namespace Routing::Policy::agent;

MatchInput_ route(const char* prefix, U32 tag) {
   MatchInput_ in;
   in.prefixIs(Nx::IpGenPrefix::fromStrep(prefix));
   in.tagIs(Routing::RouteTag(tag));
   return in;
}

class CycleTest : public ::testing::Test {
protected:
   void apply(const std::string& text) {
      const ApplyResult r = agent_.apply(text, "c.conf");
      ASSERT_TRUE(r.ok()) << (r.errors.empty() ? "" : r.errors.front().text());
   }
   bool permits(const char* rm, const MatchInput_& in) {
      return PolicyEvaluator(agent_.statusList({{RmPrecedence::rmBased, rm}})).evaluate(in).permit;
   }
   // How many statuses the route map's symbol has published.
   U32 publications(const std::string& rm) const {
      return routeMapSymbolFactory(rm)->dedup(agent_.policyRoot()->routeMapTable())->version();
   }
   std::map<std::string, U32> publicationsOf(const std::vector<std::string>& names) const {
      std::map<std::string, U32> out;
      for (const auto& n : names) out[n] = publications(n);
      return out;
   }

   PolicyAgent agent_;
};

// B's call back into A is held back. A calls B as B is compiled now (B denies tag 5), not an
// empty copy of B taken before B was compiled; B's held-back sequence calls nothing.
TEST_F(CycleTest, TheBlockedCallIsLeftOutAndCallersSeeTheCurrentCallee) {
   apply(R"(route-map A permit 10
   sub-route-map B
route-map B deny 10
   match tag 5
route-map B permit 20
   sub-route-map A
)");
   ASSERT_EQ(agent_.blockedSequences().size(), 1u);
   EXPECT_EQ(agent_.blockedSequences()[0].routeMap, "B");
   EXPECT_FALSE(permits("A", route("10.0.0.0/8", 5)));
   EXPECT_TRUE(permits("A", route("10.0.0.0/8", 6)));
   EXPECT_FALSE(permits("B", route("10.0.0.0/8", 5)));
   EXPECT_TRUE(permits("B", route("10.0.0.0/8", 6)));
   EXPECT_EQ(agent_.routeMapStatus("B")->seqStatus(20)->subRouteMapRawPtr(), nullptr);
   EXPECT_EQ(agent_.filteredConfig()->routeMap("B")->mapEntry(20)->subRouteMap(), "");

   // A stops calling B: the cycle is gone, B's call is applied and B now runs A, which denies
   // tag 7 from here on.
   const auto before = publicationsOf({"A", "B"});
   apply(R"(route-map A deny 10
   match tag 7
route-map A permit 20
route-map B deny 10
   match tag 5
route-map B permit 20
   sub-route-map A
)");
   EXPECT_TRUE(agent_.blockedSequences().empty());
   EXPECT_EQ(agent_.filteredConfig()->routeMap("B")->mapEntry(20)->subRouteMap(), "A");
   EXPECT_FALSE(permits("B", route("10.0.0.0/8", 7)));
   EXPECT_TRUE(permits("B", route("10.0.0.0/8", 8)));
   EXPECT_FALSE(permits("B", route("10.0.0.0/8", 5)));
   // A once for its edit; B once for the released call and once more for A's new status at
   // most: never an exchange that goes on.
   EXPECT_EQ(publications("A"), before.at("A") + 1);
   EXPECT_LE(publications("B"), before.at("B") + 2);

   // Closing the cycle again from the other side blocks A's new call instead; B keeps calling A.
   apply(R"(route-map A deny 10
   match tag 7
route-map A permit 20
   sub-route-map B
route-map B deny 10
   match tag 5
route-map B permit 20
   sub-route-map A
)");
   ASSERT_EQ(agent_.blockedSequences().size(), 1u);
   EXPECT_EQ(agent_.blockedSequences()[0].routeMap, "A");
   EXPECT_TRUE(permits("A", route("10.0.0.0/8", 5))) << "A's call to B is held back";
   EXPECT_FALSE(permits("B", route("10.0.0.0/8", 7)));
}

// A route map that calls itself, and a three-route-map cycle entered from outside.
TEST_F(CycleTest, SelfCallsAndLongerCyclesAreHeldBackToo) {
   apply(R"(route-map SELF permit 10
   match tag 1
   sub-route-map SELF
route-map ENTRY permit 10
   sub-route-map X
route-map X deny 5
   match tag 9
route-map X permit 10
   sub-route-map Y
route-map Y permit 10
   sub-route-map Z
route-map Z permit 10
   sub-route-map X
)");
   std::vector<std::string> blocked;
   for (const auto& b : agent_.blockedSequences()) blocked.push_back(b.text());
   EXPECT_EQ(blocked, (std::vector<std::string>{
                          "route-map SELF seq 10 is blocked: its sub-route-map calls form a cycle",
                          "route-map Z seq 10 is blocked: its sub-route-map calls form a cycle"}));
   EXPECT_TRUE(permits("SELF", route("10.0.0.0/8", 1)));
   EXPECT_FALSE(permits("SELF", route("10.0.0.0/8", 2)));
   // ENTRY -> X -> Y -> Z, and Z's call back to X is left out.
   EXPECT_FALSE(permits("ENTRY", route("10.0.0.0/8", 9)));
   EXPECT_TRUE(permits("ENTRY", route("10.0.0.0/8", 3)));
   EXPECT_TRUE(permits("Z", route("10.0.0.0/8", 9)));
}

// A chain of route maps, each calling the next and matching one prefix list. Named so that every
// caller is compiled before its callee, the chain used to be rebuilt once per route map per
// callee below it; one change of the list now republishes each route map once.
TEST_F(CycleTest, AChangeTravelsUpAChainOnce) {
   constexpr int kLength = 40;
   const auto chain = [&](const char* prefix) {
      std::string text = fmt::format("ip prefix-list P seq 10 permit {} le 32\n", prefix);
      for (int i = 0; i < kLength; ++i) {
         text += fmt::format("route-map M{:03} permit 10\n   match ip address prefix-list P\n", i);
         if (i + 1 < kLength) text += fmt::format("   sub-route-map M{:03}\n", i + 1);
      }
      return text;
   };
   std::vector<std::string> names;
   for (int i = 0; i < kLength; ++i) names.push_back(fmt::format("M{:03}", i));

   apply(chain("10.0.0.0/8"));
   for (const auto& n : names) {
      // The empty status made with the route map, its first compile, and at most one rebuild
      // for the callee that was compiled after it.
      EXPECT_LE(publications(n), 3u) << n;
   }
   EXPECT_TRUE(permits("M000", route("10.1.0.0/16", 0)));
   EXPECT_FALSE(permits("M000", route("20.1.0.0/16", 0)));

   const auto before = publicationsOf(names);
   apply(chain("20.0.0.0/8"));
   for (const auto& n : names) EXPECT_EQ(publications(n), before.at(n) + 1) << n;
   EXPECT_FALSE(permits("M000", route("10.1.0.0/16", 0)));
   EXPECT_TRUE(permits("M000", route("20.1.0.0/16", 0)));
}

}  // namespace
