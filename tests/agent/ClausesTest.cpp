#include "agent/Clauses.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "Toggle/Toggle.h"
#include "agent/ConfigText.h"
#include "agent/PolicyAgent.h"
#include "agent/RouteText.h"

namespace {

using namespace Routing::Policy;
using namespace Routing::Policy::agent;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::SetOption;

// The table's words are what the reader reads: each clause, written with its words and an
// argument of its kind, parses to a rule of its own option.
TEST(ClauseTableTest, WordsReadBackAsTheirOwnOption) {
   const std::map<ClauseArgument, std::string> sample{
       {ClauseArgument::listName, "L"},          {ClauseArgument::tag, "5"},
       {ClauseArgument::protocol, "bgp"},        {ClauseArgument::metric, "9"},
       {ClauseArgument::interface, "Ethernet1"}, {ClauseArgument::address, "192.0.2.1"},
       {ClauseArgument::distance, "20"}};
   for (const MatchClause& c : matchClauses()) {
      SCOPED_TRACE(std::string(c.words));
      const std::string text =
          "route-map RM permit 10\n   " + std::string(c.words) + " " + sample.at(c.argument) + "\n";
      const ParseResult r = parseConfigText(text, "t");
      ASSERT_TRUE(r.ok()) << r.errors[0].text();
      const auto& rules = r.document.routeMaps.at("RM").seqs.at(10).matchRules;
      ASSERT_EQ(rules.size(), 1u);
      EXPECT_EQ(rules.begin()->first, c.option);
      EXPECT_EQ(c.list != ListKind::none, Routing::RouteMap::MatchRule::isListOption(c.option));
      EXPECT_EQ(configText(r.document), text + "!\n") << "printed with the same words";
   }
   for (const SetClause& c : setClauses()) {
      SCOPED_TRACE(std::string(c.words));
      const std::string text =
          "route-map RM permit 10\n   " + std::string(c.words) + " " + sample.at(c.argument) + "\n";
      const ParseResult r = parseConfigText(text, "t");
      ASSERT_TRUE(r.ok()) << r.errors[0].text();
      EXPECT_EQ(r.document.routeMaps.at("RM").seqs.at(10).setLines.count(c.option), 1u);
   }
   EXPECT_FALSE(matchClause(MatchOption::matchInvalid));
   EXPECT_FALSE(evaluates(Profile::full, MatchOption::matchInvalid));
}

const char* const kLists = R"(ip prefix-list PL seq 10 permit 10.0.0.0/8 le 24
ipv6 prefix-list PL6 seq 10 permit 2001:db8::/32 le 64
ip access-list AL
   10 permit 172.16.0.0/12
)";

// The next-hop, resolved-next-hop and router-id lists, each by name; redefined and removed by
// the tests below.
const std::map<std::string, std::string> kAddressLists = {
    {"NH", "192.0.2.0/24 le 32"}, {"RNH", "198.51.100.0/24 le 32"}, {"RID", "10.255.0.0/16 le 32"}};

// One route map per clause, holding that clause alone; each route a line as rpolicy reads it.
struct ClauseCase {
   const char* routeMap;
   const char* clause;
   std::vector<const char*> permitted;
   std::vector<const char*> denied;
};

const std::vector<ClauseCase> kCases = {
    {"ACL", "match ip address access-list AL", {"172.16.1.0/24"}, {"10.1.0.0/16"}},
    {"PFX", "match ip address prefix-list PL", {"10.1.0.0/16"}, {"11.0.0.0/8", "10.1.2.128/25"}},
    {"METRIC", "match metric 50", {"20.0.0.0/8 metric=50"}, {"20.0.0.0/8 metric=51", "20.0.0.0/8"}},
    // A route learned on no interface, or on another one, does not match; an agent that leaves
    // interfaces out of the decision (match-intf=false) passes the clause.
    {"INTF",
     "match interface Ethernet1",
     {"20.0.0.0/8 interfaces=Ethernet2,Ethernet1",
      "20.0.0.0/8 interfaces=Ethernet2 match-intf=false"},
     {"20.0.0.0/8 interfaces=Ethernet2", "20.0.0.0/8"}},
    {"NEXTHOP",
     "match ip next-hop 192.0.2.1",
     {"20.0.0.0/8 nexthop=192.0.2.1"},
     {"20.0.0.0/8 nexthop=192.0.2.2", "20.0.0.0/8 resolved-nexthop=192.0.2.1"}},
    // Each list is asked about its own address of the route, never the route's prefix.
    {"NHPL",
     "match ip next-hop prefix-list NH",
     {"20.0.0.0/8 nexthop=192.0.2.77"},
     {"192.0.2.0/24 nexthop=203.0.113.1", "20.0.0.0/8 resolved-nexthop=192.0.2.77"}},
    {"RNHPL",
     "match ip resolved-next-hop prefix-list RNH",
     {"20.0.0.0/8 resolved-nexthop=198.51.100.9"},
     {"20.0.0.0/8 nexthop=198.51.100.9"}},
    {"RIDPL",
     "match router-id prefix-list RID",
     {"20.0.0.0/8 router-id=10.255.3.4"},
     {"20.0.0.0/8 router-id=10.254.3.4", "10.255.0.0/16"}},
    {"PROTO",
     "match source-protocol bgp",
     {"20.0.0.0/8 protocol=ebgp"},
     {"20.0.0.0/8 protocol=ospfIntraArea"}},
    {"TAG", "match tag 7", {"20.0.0.0/8 tag=7"}, {"20.0.0.0/8 tag=8"}},
    {"PFX6", "match ipv6 address prefix-list PL6", {"2001:db8:1::/48"}, {"2001:db9::/32"}},
    {"SETMETRIC", "set metric 77", {}, {}},
    {"SETDIST", "set distance 30", {}, {}},
};

std::string addressLists(const std::map<std::string, std::string>& lists) {
   std::string t;
   for (const auto& [name, entry] : lists) {
      t += "ip prefix-list " + name + " seq 10 permit " + entry + "\n";
   }
   return t;
}

std::string routeMaps() {
   std::string t;
   for (const ClauseCase& c : kCases) {
      t += std::string("route-map ") + c.routeMap + " permit 10\n   " + c.clause +
           "\n   set tag 1\n";
   }
   return t;
}

std::string config(const std::map<std::string, std::string>& lists = kAddressLists) {
   return kLists + addressLists(lists) + routeMaps();
}

MatchInput_ routeOf(const char* text) {
   auto r = parseRouteText(text);
   EXPECT_TRUE(r.ok()) << text << ": " << r.error;
   return r.ok() ? *r.value : MatchInput_();
}

std::string answer(PolicyAgent& agent, const char* routeMap, const char* route) {
   const auto list = agent.statusList({{RmPrecedence::rmBased, routeMap}});
   const Evaluation e = PolicyEvaluator(list).evaluate(routeOf(route));
   agent.dropStatusList(list);
   return verdictText(e.permit, e.result);
}

const std::string kPermitted = "permit tag=1 preference=0 metric=none";

// Every clause the language has, end to end through the agent under the default profile: the
// route maps permit exactly the routes their one clause describes.
TEST(FullProfileTest, EveryClauseDecidesAsWritten) {
   for (const MatchClause& c : matchClauses()) {
      bool covered = false;
      for (const ClauseCase& k : kCases) covered |= std::string(k.clause).rfind(c.words, 0) == 0;
      EXPECT_TRUE(covered) << c.words << " has no case here";
   }
   PolicyAgent agent;
   ASSERT_EQ(agent.profile(), Profile::full);
   const ApplyResult r = agent.apply(config(), "clauses.conf");
   ASSERT_TRUE(r.ok()) << r.errors[0].text();
   EXPECT_TRUE(r.warnings.empty()) << r.warnings[0].text();
   for (const ClauseCase& c : kCases) {
      for (const char* route : c.permitted) {
         EXPECT_EQ(answer(agent, c.routeMap, route), kPermitted) << c.clause << ": " << route;
      }
      for (const char* route : c.denied) {
         EXPECT_EQ(answer(agent, c.routeMap, route), "deny") << c.clause << ": " << route;
      }
   }
   EXPECT_EQ(answer(agent, "SETMETRIC", "20.0.0.0/8 metric=5"),
             "permit tag=1 preference=0 metric=77");
   EXPECT_EQ(answer(agent, "SETDIST", "20.0.0.0/8"), "permit tag=1 preference=30 metric=none");
   // Nothing is filtered out: the configuration as the compiler runs it is the one written.
   EXPECT_EQ(configText(agent.filteredDocument()), configText(agent.document()));
}

// A next-hop, resolved-next-hop or router-id list that is redefined, removed and defined again
// reaches the sequences that name it, without any route-map edit.
TEST(FullProfileTest, AddressListsAreFollowed) {
   struct Follow {
      const char* list;
      const char* routeMap;
      const char* route;  // denied by the list as first defined, permitted once redefined
   };
   for (const Follow& f : {Follow{"NH", "NHPL", "20.0.0.0/8 nexthop=203.0.113.1"},
                           Follow{"RNH", "RNHPL", "20.0.0.0/8 resolved-nexthop=203.0.113.1"},
                           Follow{"RID", "RIDPL", "20.0.0.0/8 router-id=203.0.113.1"}}) {
      SCOPED_TRACE(f.list);
      PolicyAgent agent;
      ASSERT_TRUE(agent.apply(config(), "a").ok());
      // Followed through the same status list all along, as an embedder would.
      const auto list = agent.statusList({{RmPrecedence::rmBased, f.routeMap}});
      auto verdict = [&] {
         const Evaluation e = PolicyEvaluator(list).evaluate(routeOf(f.route));
         return verdictText(e.permit, e.result);
      };
      const U32 version = agent.routeMapConfig()->routeMap(f.routeMap)->version();
      EXPECT_EQ(verdict(), "deny");

      auto lists = kAddressLists;
      lists[f.list] = "203.0.113.0/24 le 32";
      ApplyResult r = agent.apply(config(lists), "b");
      ASSERT_TRUE(r.ok());
      EXPECT_EQ(r.stats.routeMapsChanged, 0u);
      EXPECT_EQ(verdict(), kPermitted);

      lists.erase(f.list);
      r = agent.apply(config(lists), "c");
      ASSERT_TRUE(r.ok());
      EXPECT_EQ(verdict(), "deny") << "an undefined list matches nothing";
      bool reported = false;
      for (const Reference& ref : agent.undefinedReferences()) {
         reported |= ref.routeMap == f.routeMap &&
                     ref.text() == "route-map " + std::string(f.routeMap) +
                                       " seq 10: prefix-list " + f.list + " is not configured";
      }
      EXPECT_TRUE(reported);

      lists[f.list] = "203.0.113.0/24 le 32";
      ASSERT_TRUE(agent.apply(config(lists), "d").ok());
      EXPECT_EQ(verdict(), kPermitted);
      EXPECT_EQ(agent.routeMapConfig()->routeMap(f.routeMap)->version(), version);
   }
}

// `set metric` follows its flag and its value: changed, removed and written again.
TEST(FullProfileTest, SetMetricFollowsEdits) {
   PolicyAgent agent;
   const auto list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
   auto verdict = [&] {
      const Evaluation e = PolicyEvaluator(list).evaluate(routeOf("10.0.0.0/8 metric=3"));
      return verdictText(e.permit, e.result);
   };
   const std::string head = "route-map RM permit 10\n   set tag 1\n";
   ASSERT_TRUE(agent.apply(head + "   set metric 5\n", "a").ok());
   EXPECT_EQ(verdict(), "permit tag=1 preference=0 metric=5");
   ASSERT_TRUE(agent.apply(head + "   set metric 6\n", "b").ok());
   EXPECT_EQ(verdict(), "permit tag=1 preference=0 metric=6");
   ASSERT_TRUE(agent.apply(head, "c").ok());
   EXPECT_EQ(verdict(), "permit tag=1 preference=0 metric=none");
   ASSERT_TRUE(agent.apply(head + "   set metric 0\n", "d").ok());
   EXPECT_EQ(verdict(), "permit tag=1 preference=0 metric=0");
}

// The common profile evaluates what the library's common component supports, decides those
// clauses as the full profile does, and names every clause it leaves out.
TEST(CommonProfileTest, WarnsAboutWhatItLeavesOut) {
   PolicyAgent agent(Profile::common);
   const std::string text = config();
   const ApplyResult r = agent.apply(text, "clauses.conf");
   ASSERT_TRUE(r.ok());
   std::vector<std::string> warned;
   for (const Diagnostic& d : r.warnings) warned.push_back(d.message);
   std::vector<std::string> expected;
   for (const ClauseCase& c : kCases) {
      const RouteMapSeqDoc& seq = agent.document().routeMaps.at(c.routeMap).seqs.at(10);
      std::string_view words = "set metric";
      bool evaluated = !seq.metric || evaluates(Profile::common, SetOption::setMetric);
      if (!seq.matchRules.empty()) {
         const MatchOption o = seq.matchRules.begin()->first;
         words = matchClause(o)->words;
         evaluated = evaluates(Profile::common, o);
      }
      if (!evaluated) {
         expected.push_back("route-map " + std::string(c.routeMap) + " seq 10: " +
                            std::string(words) + " is not evaluated under profile common");
         continue;
      }
      for (const char* route : c.permitted) {
         EXPECT_EQ(answer(agent, c.routeMap, route), kPermitted) << c.clause << ": " << route;
      }
      for (const char* route : c.denied) {
         EXPECT_EQ(answer(agent, c.routeMap, route), "deny") << c.clause << ": " << route;
      }
   }
   EXPECT_EQ(warned, expected);
   EXPECT_EQ(warned.size(), 7u) << "metric, interface, next hop and its three lists, set metric";
   // What it leaves out is not in the configuration it runs.
   const std::string filtered = configText(agent.filteredDocument());
   EXPECT_EQ(filtered.find("match metric"), std::string::npos);
   EXPECT_EQ(filtered.find("set metric"), std::string::npos);
   EXPECT_NE(filtered.find("match tag 7"), std::string::npos);
}

// The toggle is read once per process, so the "off" case runs in a process of its own that sets
// the override before anything asks.
TEST(ProfileToggleTest, AccessListClausesAreNeverSilentWhenTheToggleIsOff) {
   const std::string style = GTEST_FLAG_GET(death_test_style);
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
       {
          Toggle::toggleStateIs("RoutingPolicyIpAclToggle", false);
          int failures = 0;
          const std::string text = std::string(kLists) +
                                   "route-map RM permit 10\n"
                                   "   match ip address access-list AL\n"
                                   "   set tag 1\n";
          for (Profile p : {Profile::full, Profile::common}) {
             PolicyAgent agent(p);
             const ApplyResult r = agent.apply(text, "t");
             if (r.warnings.size() != 1 || r.warnings[0].line != 6 ||
                 r.warnings[0].message.find("RoutingPolicyIpAclToggle") == std::string::npos) {
                ++failures;
             }
             // Full keeps the clause against a list that is never compiled; common leaves it out.
             const std::string want = p == Profile::full ? "deny" : kPermitted;
             if (answer(agent, "RM", "172.16.1.0/24") != want) ++failures;
             if (answer(agent, "RM", "10.0.0.0/8") != want) ++failures;
          }
          std::exit(failures);
       },
       ::testing::ExitedWithCode(0), "");
   GTEST_FLAG_SET(death_test_style, style);
}

}  // namespace
