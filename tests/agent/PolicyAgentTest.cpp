#include "agent/PolicyAgent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Routing/RouteMap/Options.h"
#include "agent/RouteText.h"
#include "tests/agent/RandomConfig.h"
#include "tests/RoutingPolicy/acl/AclWildcardModel.h"

namespace {

using namespace Routing::Policy;
using namespace Routing::Policy::agent;
using rp_agent_test::RandomConfig;

MatchInput_ route(const char* prefix, U32 tag = 0,
                  Routing::RouteProto proto = Routing::RouteProto::connected) {
   MatchInput_ in;
   in.prefixIs(Nx::IpGenPrefix::fromStrep(prefix));
   in.tagIs(Routing::RouteTag(tag));
   in.protocolIs(proto);
   return in;
}

// "permit tag=T pref=P" or "deny": what a caller of the evaluator sees.
std::string verdict(const Evaluation& e) {
   if (!e.permit) return "deny";
   return "permit tag=" + std::to_string(e.result.tag().value()) +
          " pref=" + std::to_string(e.result.preference().value());
}

const char* const kEdge = R"(
ip prefix-list CUSTOMERS seq 5 deny 10.66.0.0/16 le 32
ip prefix-list CUSTOMERS seq 10 permit 10.0.0.0/8 le 24
ip prefix-list BOGONS seq 10 permit 192.168.0.0/16 le 32
ipv6 prefix-list V6 seq 10 permit 2001:db8::/32 le 64
ip access-list MGMT
   10 remark the management range
   20 permit 172.16.0.0 0.0.255.255
route-map EDGE deny 10
   match ip address prefix-list BOGONS
route-map EDGE permit 20
   description customers, tagged and checked further
   match ip address prefix-list CUSTOMERS
   set tag 100
   continue 40
route-map EDGE permit 30
   match ip address access-list MGMT
   set distance 50
route-map EDGE permit 40
   sub-route-map CHECK
   set distance 20
route-map CHECK permit 10
   match tag 7
route-map CHECK permit 20
   match source-protocol static
)";

class PolicyAgentTest : public ::testing::Test {
protected:
   void SetUp() override { ASSERT_TRUE(agent_.apply(kEdge, "edge.conf").ok()); }

   std::string eval(const MatchInput_& in) {
      if (!list_) list_ = agent_.statusList({{RmPrecedence::rmBased, "EDGE"}});
      const Evaluation quick = PolicyEvaluator(list_).evaluate(in);
      const Evaluation explained = PolicyEvaluator(list_).evaluate(in, true);
      EXPECT_EQ(verdict(quick), verdict(explained)) << "explain must not change the answer";
      return verdict(quick);
   }

   U32 mapVersion(const char* name) const {
      return agent_.routeMapConfig()->routeMap(name)->version();
   }
   U32 listVersion(const char* name) const {
      return agent_.prefixListConfig()->prefixList(Nx::AddressFamily::ipv4, name)->version();
   }

   PolicyAgent agent_;
   Kel::Ptr<PublishedStatusList> list_;
};

TEST_F(PolicyAgentTest, EvaluatesThroughListsContinueAndSubRouteMap) {
   const Routing::RouteProto stat = Routing::RouteProto::staticRoute;
   EXPECT_EQ(eval(route("192.168.1.0/24", 0, stat)), "deny");  // bogon, seq 10
   // A customer route continues to 40, which adds its distance when CHECK permits; when it
   // does not, the permit of seq 20 stands.
   EXPECT_EQ(eval(route("10.1.0.0/16", 0, stat)), "permit tag=100 pref=20");
   EXPECT_EQ(eval(route("10.1.0.0/16", 7)), "permit tag=100 pref=20");
   EXPECT_EQ(eval(route("10.1.0.0/16", 3)), "permit tag=100 pref=0");
   // The list's deny entry: seq 20 does not match, seq 40 does on its own.
   EXPECT_EQ(eval(route("10.66.1.0/24", 0, stat)), "permit tag=0 pref=20");
   EXPECT_EQ(eval(route("10.66.1.0/24", 3)), "deny");
   EXPECT_EQ(eval(route("10.1.2.128/25", 7)), "permit tag=0 pref=20");  // beyond le 24
   EXPECT_EQ(eval(route("172.16.5.0/24")), "permit tag=0 pref=50");
   EXPECT_EQ(eval(route("172.17.5.0/24")), "deny");
}

TEST_F(PolicyAgentTest, ReapplyingTheSameTextTouchesNothing) {
   const U32 edge = mapVersion("EDGE"), check = mapVersion("CHECK"),
             cust = listVersion("CUSTOMERS");
   const auto status = agent_.routeMapStatus("EDGE");
   const ApplyResult r = agent_.apply(kEdge, "edge.conf");
   ASSERT_TRUE(r.ok());
   EXPECT_TRUE(r.stats.unchanged());
   EXPECT_EQ(mapVersion("EDGE"), edge);
   EXPECT_EQ(mapVersion("CHECK"), check);
   EXPECT_EQ(listVersion("CUSTOMERS"), cust);
   EXPECT_EQ(agent_.routeMapStatus("EDGE"), status) << "no recompile";
}

TEST_F(PolicyAgentTest, OnlyWhatChangedIsTouched) {
   std::string text = kEdge;
   // One prefix-list entry changed, one sequence removed, one access-list rule changed.
   text.replace(text.find("10.66.0.0/16 le 32"), 18, "10.1.0.0/16 le 32");
   ASSERT_NE(text.find("seq 5 deny 10.1.0.0/16 le 32"), std::string::npos);
   const std::size_t seq30 = text.find("route-map EDGE permit 30");
   text.erase(seq30, text.find("route-map EDGE permit 40") - seq30);
   text.replace(text.find("172.16.0.0 0.0.255.255"), 22, "172.16.0.0 0.0.0.255");
   const U32 edge = mapVersion("EDGE"), check = mapVersion("CHECK");
   const U32 cust = listVersion("CUSTOMERS"), bogons = listVersion("BOGONS");

   const ApplyResult r = agent_.apply(text, "edge2.conf");
   ASSERT_TRUE(r.ok()) << (r.errors.empty() ? "" : r.errors[0].text());
   ApplyStats want;
   want.prefixListsChanged = 1;
   want.prefixListEntriesWritten = 1;
   want.accessListsChanged = 1;
   want.routeMapsChanged = 1;
   want.sequencesDeleted = 1;
   EXPECT_EQ(r.stats, want);
   EXPECT_EQ(listVersion("CUSTOMERS"), cust + 1);
   EXPECT_EQ(listVersion("BOGONS"), bogons);
   EXPECT_EQ(mapVersion("EDGE"), edge + 1);
   EXPECT_EQ(mapVersion("CHECK"), check);
   EXPECT_FALSE(agent_.routeMapConfig()->routeMap("EDGE")->mapEntry(30));
   // The status list made before the change follows it.
   EXPECT_EQ(eval(route("10.1.5.0/24", 7)), "permit tag=0 pref=20");
   EXPECT_EQ(eval(route("172.16.5.0/24")), "deny");
}

TEST_F(PolicyAgentTest, AFailedApplyChangesNothing) {
   const U32 edge = mapVersion("EDGE");
   const ConfigDocument before = agent_.document();
   const std::string bad = std::string(kEdge) + "route-map EDGE permit 50\n   continue 40\n" +
                           "ip prefix-list CUSTOMERS seq 30 permit 10.0.0.1/8\n";
   const ApplyResult r = agent_.apply(bad, "bad.conf");
   ASSERT_EQ(r.errors.size(), 2u);
   const auto lines = static_cast<U32>(std::count(bad.begin(), bad.end(), '\n'));
   EXPECT_EQ(r.errors[0].line, lines - 1) << r.errors[0].text();
   EXPECT_EQ(r.errors[1].line, lines) << r.errors[1].text();
   EXPECT_TRUE(r.stats.unchanged());
   EXPECT_EQ(agent_.document(), before);
   EXPECT_EQ(mapVersion("EDGE"), edge);
   EXPECT_EQ(eval(route("10.1.0.0/16", 7)), "permit tag=100 pref=20");
}

TEST_F(PolicyAgentTest, RemovedRouteMapsAndListsLeaveTheEntities) {
   ASSERT_TRUE(agent_.apply("ip prefix-list BOGONS seq 10 permit 192.168.0.0/16\n", "t").ok());
   EXPECT_TRUE(agent_.routeMapConfig()->routeMaps().empty());
   EXPECT_FALSE(agent_.prefixListConfig()->prefixListHas(Nx::AddressFamily::ipv4, "CUSTOMERS"));
   EXPECT_FALSE(agent_.routeMapStatus("EDGE"));
   EXPECT_TRUE(agent_.accessListConfig()->aclTypeConfig(Acl::AclType::ip)->acls().empty());
}

// A route map that matches on a list that is then deleted sees an undefined list, which matches
// nothing, whichever kind of list it is; defined again, the list answers again.
TEST(PolicyAgentListDeletionTest, DeletedListsMatchNothingUntilDefinedAgain) {
   const struct {
      const char* kind;
      const char* list;
   } kinds[] = {
       {"prefix-list", "ip prefix-list L seq 10 permit 10.0.0.0/8 le 32\n"},
       {"access-list", "ip access-list L\n   10 permit 10.0.0.0 0.255.255.255\n"},
   };
   for (const auto& k : kinds) {
      const std::string maps = std::string("route-map RM deny 10\n   match ip address ") + k.kind +
                               " L\nroute-map RM permit 20\n   set tag 2\n";
      PolicyAgent agent;
      const auto list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
      const auto verdictOf = [&] {
         return verdict(PolicyEvaluator(list).evaluate(route("10.1.0.0/16")));
      };
      ASSERT_TRUE(agent.apply(k.list + maps, "with").ok());
      EXPECT_EQ(verdictOf(), "deny") << k.kind;
      ASSERT_TRUE(agent.apply(maps, "without").ok());
      EXPECT_EQ(verdictOf(), "permit tag=2 pref=0") << k.kind << " deleted";
      ASSERT_TRUE(agent.apply(k.list + maps, "again").ok());
      EXPECT_EQ(verdictOf(), "deny") << k.kind << " defined again";
   }
}

// Access lists of both families share one name space, so a name can move from one family to the
// other between two configurations. The route map must then answer from the list of the new
// family, in whichever direction the name moved.
TEST(PolicyAgentListDeletionTest, AnAccessListThatChangesFamilyAnswersFromItsNewRules) {
   const std::string maps = "route-map RM permit 10\n   match ip address access-list A\n";
   const std::string v4 = "ip access-list A\n   10 permit 10.0.0.0/8\n";
   const std::string v6 = "ipv6 access-list A\n   10 permit 2001:db8::/32\n";
   const struct {
      const std::string* text;
      const char* v4Route;
      const char* v6Route;
   } steps[] = {
       {&v6, "deny", "permit tag=0 pref=0"},
       {&v4, "permit tag=0 pref=0", "deny"},
       {&v6, "deny", "permit tag=0 pref=0"},
       {&v4, "permit tag=0 pref=0", "deny"},
   };
   PolicyAgent agent;
   const auto list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
   for (const auto& step : steps) {
      ASSERT_TRUE(agent.apply(*step.text + maps, "family.conf").ok());
      const std::string family = step.text == &v4 ? "now IPv4" : "now IPv6";
      EXPECT_EQ(verdict(PolicyEvaluator(list).evaluate(route("10.1.0.0/16"))), step.v4Route)
          << family;
      EXPECT_EQ(verdict(PolicyEvaluator(list).evaluate(route("2001:db8:1::/48"))), step.v6Route)
          << family;
   }
}

// A wildcard that scatters 17 don't-care bits (131072 blocks) is decided like any other rule.
TEST(PolicyAgentWildcardTest, WideWildcardRuleDecidesInItsTurn) {
   PolicyAgent agent;
   ASSERT_TRUE(agent
                   .apply(R"(ip access-list W
   10 deny 0.0.0.0 1.255.255.0
   20 permit any
route-map RM permit 10
   match ip address access-list W
   set tag 1
route-map RM permit 20
   set tag 2
)",
                          "wide.conf")
                   .ok());
   const auto list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
   for (const auto& [prefix, want] : {std::pair{"0.5.5.0/32", "permit tag=2 pref=0"},
                                      std::pair{"1.200.3.0/32", "permit tag=2 pref=0"},
                                      std::pair{"0.5.5.1/32", "permit tag=1 pref=0"},
                                      std::pair{"2.5.5.0/32", "permit tag=1 pref=0"},
                                      std::pair{"0.5.5.0/24", "permit tag=1 pref=0"}}) {
      EXPECT_EQ(verdict(PolicyEvaluator(list).evaluate(route(prefix))), want) << prefix;
   }
}

// Random access lists of scattered wildcards, written as configuration text and applied one
// after another to one agent, answer as first match over every address of the route.
TEST(PolicyAgentWildcardTest, TextListsDecideAsFirstMatchOverEveryAddress) {
   PolicyAgent agent;
   const auto list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
   acl_model::Generator gen(7);
   for (int listNo = 0; listNo < 40; ++listNo) {
      const std::vector<acl_model::Rule> rules = gen.rules();
      const std::string text = "ip access-list W\n" + acl_model::describe(rules) +
                               "route-map RM permit 10\n   match ip address access-list W\n";
      const ApplyResult r = agent.apply(text, "random.conf");
      ASSERT_TRUE(r.ok()) << (r.errors.empty() ? "" : r.errors[0].text()) << "\n" << text;
      for (int i = 0; i < 100; ++i) {
         const acl_model::Route rt = gen.route(rules);
         const acl_model::Rule* first = acl_model::firstMatch(rules, rt);
         MatchInput_ in;
         in.prefixIs(Nx::IpGenPrefix(Nx::IpAddr(rt.address), rt.len));
         ASSERT_EQ(PolicyEvaluator(list).evaluate(in).permit, first != nullptr && first->permit)
             << in.prefix() << "\n"
             << text;
      }
   }
}

TEST(PolicyAgentCheckTest, ReportsUndefinedReferencesAndBlockedCycles) {
   PolicyAgent agent;
   const ApplyResult r = agent.apply(R"(route-map A permit 10
   match ip address prefix-list NOPE
   sub-route-map B
route-map B permit 10
   match ipv6 address prefix-list NOPE6
   sub-route-map A
route-map B permit 20
   sub-route-map GHOST invert-result
)",
                                     "c.conf");
   ASSERT_TRUE(r.ok());
   std::vector<std::string> refs;
   for (const auto& ref : agent.undefinedReferences()) {
      refs.push_back(std::to_string(ref.line) + ": " + ref.text());
   }
   // Each at the line of the clause that names it.
   EXPECT_EQ(refs, (std::vector<std::string>{
                       "2: route-map A seq 10: prefix-list NOPE is not configured",
                       "5: route-map B seq 10: ipv6 prefix-list NOPE6 is not configured",
                       "8: route-map B seq 20: route-map GHOST is not configured"}));
   const auto blocked = agent.blockedSequences();
   ASSERT_FALSE(blocked.empty());
   EXPECT_EQ(blocked[0].text(), "route-map " + blocked[0].routeMap +
                                    " seq 10 is blocked: its sub-route-map calls " +
                                    "form a cycle");
}

TEST_F(PolicyAgentTest, ThreadsEvaluatingTogetherGetTheSingleThreadedAnswers) {
   const auto list = agent_.statusList({{RmPrecedence::rmBased, "EDGE"}});
   std::vector<MatchInput_> routes;
   std::mt19937 rng(7);
   for (int i = 0; i < 400; ++i) {
      const std::string p = std::to_string(rng() % 2 ? 10 : 172) + "." +
                            std::to_string(rng() % 80) + "." + std::to_string(rng() % 256) +
                            ".0/24";
      routes.push_back(route(p.c_str(), rng() % 8));
   }
   std::vector<std::string> want;
   for (const auto& r : routes) want.push_back(verdict(PolicyEvaluator(list).evaluate(r)));
   std::vector<std::string> got[2];
   auto run = [&](int t) {
      const PolicyEvaluator ev(list);
      for (int pass = 0; pass < 50; ++pass) {
         got[t].clear();
         for (const auto& r : routes) got[t].push_back(verdict(ev.evaluate(r, pass % 10 == 0)));
      }
   };
   std::thread a(run, 0), b(run, 1);
   a.join();
   b.join();
   EXPECT_EQ(got[0], want);
   EXPECT_EQ(got[1], want);
}

// After any sequence of whole-configuration edits, the agent answers every route exactly as an
// agent that was given only the final configuration (RandomConfig: tests/agent/RandomConfig.h).
// The whole result, metric included, as the tool prints it.
std::string fullVerdict(const Evaluation& e) {
   return verdictText(e.permit, e.result);
}

// The fresh agent starts on a configuration already written (the start-up path of the
// machines), the live one hears every edit as it comes.
void incrementalAnswersAsFresh(Profile profile) {
   std::map<std::string, int> seen;  // how often each kind of answer came up
   unsigned first = 1;
   if (const char* s = std::getenv("POLICY_AGENT_SEED")) first = std::stoul(s);
   for (unsigned seed = first; seed < first + 40; ++seed) {
      RandomConfig gen(seed);
      const std::vector<MatchInput_> routes = gen.routes(150);
      PolicyAgent live(profile);
      const auto liveList = live.statusList({{RmPrecedence::rmBased, "RM"}});
      for (int step = 0; step < 8; ++step) {
         const std::string text = gen.next();
         ASSERT_TRUE(live.apply(text, "live").ok()) << text;
         PolicyAgent fresh(PolicyAgent::Start::deferred, profile);
         ASSERT_TRUE(fresh.apply(text, "fresh").ok());
         fresh.start();
         fresh.runUntilIdle();
         const auto freshList = fresh.statusList({{RmPrecedence::rmBased, "RM"}});
         for (const auto& r : routes) {
            const std::string want = fullVerdict(PolicyEvaluator(freshList).evaluate(r));
            ++seen[want == "deny"                                  ? "deny"
                   : want.find("metric=none") != std::string::npos ? "permit"
                                                                   : "permit with a metric"];
            ASSERT_EQ(fullVerdict(PolicyEvaluator(liveList).evaluate(r)), want)
                << "profile " << profileName(profile) << " seed " << seed
                << " (rerun with POLICY_AGENT_SEED) step " << step << " route " << routeText(r)
                << "\n"
                << text;
         }
      }
   }
   // Not a property of the policy, but of the test: it compares answers of every kind.
   EXPECT_GT(seen["deny"], 100);
   EXPECT_GT(seen["permit"], 100);
   if (profile == Profile::full) {
      EXPECT_GT(seen["permit with a metric"], 100);
   }
}

TEST(PolicyAgentRandomTest, IncrementalAppliesAnswerAsAFreshAgent) {
   incrementalAnswersAsFresh(Profile::full);
}

TEST(PolicyAgentRandomTest, IncrementalAppliesAnswerAsAFreshAgentUnderTheCommonProfile) {
   incrementalAnswersAsFresh(Profile::common);
}

}  // namespace
