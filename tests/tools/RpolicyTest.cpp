#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "RpolicyTestSupport.h"
#include "agent/ConfigText.h"

namespace {

namespace fs = std::filesystem;
using namespace rpolicy_test;
using rpolicy_test::rpolicy;  // over the namespace of the same name

using RpolicyTest = rpolicy_test::ScratchDirTest;

const std::vector<std::string> kEdgeIn = {"--route-map", "EDGE-IN"};

std::vector<std::string> evalArgs(const std::string& config, std::vector<std::string> extra = {}) {
   std::vector<std::string> a{"eval", config, example("edge-routes.txt")};
   a.insert(a.end(), kEdgeIn.begin(), kEdgeIn.end());
   a.insert(a.end(), extra.begin(), extra.end());
   return a;
}

// What EDGE-IN makes of examples/edge-routes.txt, worked out from edge.conf by hand.
const std::vector<std::string> kEdgeAnswers = {
    "198.51.100.0/24 permit tag=100 preference=30 metric=none",
    "198.51.100.64/26 permit tag=100 preference=20 metric=none",  // continue 40
    "198.51.100.32/27 permit tag=100 preference=30 metric=none",
    "198.51.100.0/24 deny",  // tag 666: CUSTOMER-CHECK denies
    "203.0.113.0/24 deny",   // ge 25
    "203.0.113.128/25 permit tag=100 preference=30 metric=none",
    "192.0.2.0/24 deny",    // static: not over BGP
    "192.0.2.192/26 deny",  // prefix-list deny entry
    "10.20.0.0/16 deny",
    "0.0.0.0/0 deny",
    "198.18.4.0/24 permit tag=300 preference=200 metric=none",
    "198.18.5.0/24 deny",  // odd /24: outside the wildcard
    "2001:db8:142::/48 permit tag=106 preference=0 metric=none",
    "2001:db8:300::/48 deny",
};

TEST_F(RpolicyTest, EvalExamplesAsText) {
   const Outcome r = rpolicy(evalArgs(example("edge.conf")));
   ASSERT_EQ(r.code, 0) << r.err;
   EXPECT_EQ(lines(r.out), kEdgeAnswers);
   EXPECT_EQ(r.err, "");  // the example is warning-free
}

TEST_F(RpolicyTest, EvalExamplesAsJson) {
   const Outcome r = rpolicy(evalArgs(example("edge.conf"), {"--json"}));
   ASSERT_EQ(r.code, 0) << r.err;
   const auto out = lines(r.out);
   ASSERT_EQ(out.size(), kEdgeAnswers.size());
   const auto second = nlohmann::json::parse(out[1]);
   EXPECT_EQ(second, nlohmann::json::parse(R"({"prefix": "198.51.100.64/26", "permit": true,
       "preference": 20, "tag": 100, "metric": null})"));
   EXPECT_EQ(nlohmann::json::parse(out[3]),
             nlohmann::json::parse(
                 R"({"prefix": "198.51.100.0/24", "permit": false, "preference": 0, "tag": 0,
                     "metric": null})"));
   // Key order is part of the line format.
   EXPECT_EQ(
       out[10],
       R"({"prefix":"198.18.4.0/24","permit":true,"preference":200,"tag":300,"metric":null})");
}

TEST_F(RpolicyTest, ExplainAddsTheLogs) {
   const Outcome text = rpolicy(evalArgs(example("edge.conf"), {"--explain"}));
   ASSERT_EQ(text.code, 0) << text.err;
   const auto out = lines(text.out);
   ASSERT_GT(out.size(), kEdgeAnswers.size());
   EXPECT_EQ(out[0], kEdgeAnswers[0]);
   EXPECT_EQ(out[1].rfind("    ", 0), 0u);
   EXPECT_NE(text.out.find("EDGE-IN"), std::string::npos);

   const Outcome json = rpolicy(evalArgs(example("edge.conf"), {"--json", "--explain"}));
   ASSERT_EQ(json.code, 0) << json.err;
   for (const std::string& l : lines(json.out)) {
      const auto j = nlohmann::json::parse(l);
      ASSERT_TRUE(j.contains("log")) << l;
      EXPECT_TRUE(j["log"].is_array()) << l;
      EXPECT_EQ(j["log"].size(), 1u) << l;  // one route map evaluated
   }
}

TEST_F(RpolicyTest, RoutesFromStdinAndApplyByPrecedence) {
   const Outcome r = rpolicy({"eval", example("edge.conf"), "-", "--apply", "rmBased=EDGE-IN"},
                             "# one route\n198.18.4.0/24 protocol=ebgp\n");
   ASSERT_EQ(r.code, 0) << r.err;
   EXPECT_EQ(r.out, kEdgeAnswers[10] + "\n");
   // The precedence by number names the same role.
   EXPECT_EQ(rpolicy({"eval", example("edge.conf"), "--apply", "3=EDGE-IN"},
                     "198.18.4.0/24 protocol=ebgp\n")
                 .out,
             r.out);
}

TEST_F(RpolicyTest, ThenGivesTheAnswersOfTheLastConfiguration) {
   const Outcome v1 = rpolicy(evalArgs(example("edge.conf")));
   const Outcome updated =
       rpolicy(evalArgs(example("edge.conf"), {"--then", example("edge-v2.conf")}));
   const Outcome v2 = rpolicy(evalArgs(example("edge-v2.conf")));
   ASSERT_EQ(updated.code, 0) << updated.err;
   ASSERT_EQ(v2.code, 0) << v2.err;
   EXPECT_EQ(updated.out, v2.out);
   // v2 must really differ, or the comparison above proves nothing: the /27 is now too long
   // and the anycast sequence is gone.
   const auto a = lines(v1.out), b = lines(v2.out);
   ASSERT_EQ(a.size(), b.size());
   EXPECT_EQ(b[2], "198.51.100.32/27 deny");
   EXPECT_EQ(b[10], "198.18.4.0/24 deny");
   // And back again: the incremental path restores what it removed.
   const Outcome back = rpolicy(evalArgs(
       example("edge.conf"), {"--then", example("edge-v2.conf"), "--then", example("edge.conf")}));
   EXPECT_EQ(back.out, v1.out);
}

// --changed tells, before the routes and for each step, what the step changed; the routes' own
// output is untouched by it.
TEST_F(RpolicyTest, ChangedPrintsEachStepsChangesBeforeTheRoutes) {
   const std::string v1 = example("edge.conf"), v2 = example("edge-v2.conf");
   const Outcome plain = rpolicy(evalArgs(v1, {"--then", v2, "--then", v2}));
   const Outcome r = rpolicy(evalArgs(v1, {"--then", v2, "--then", v2, "--changed"}));
   ASSERT_EQ(r.code, 0) << r.err;
   EXPECT_EQ(r.out, "# then " + v2 + " (version 2): 1 route map changed\n" +
                        "    route-map EDGE-IN recompiled (version 1 -> 2): route-map EDGE-IN, " +
                        "prefix-list CUSTOMERS\n" + "# then " + v2 +
                        " (version 3): no route map changed\n" + plain.out);

   const Outcome j = rpolicy(evalArgs(v1, {"--then", v2, "--changed", "--json"}));
   ASSERT_EQ(j.code, 0) << j.err;
   const auto first = nlohmann::json::parse(lines(j.out).at(0));
   EXPECT_EQ(first["then"], v2);
   EXPECT_EQ(first["changed"][0]["routeMap"], "EDGE-IN");
   EXPECT_EQ(first["changed"][0]["change"], "recompiled");
   EXPECT_EQ(first["changed"][0]["causes"][1], "prefix-list CUSTOMERS");
   EXPECT_TRUE(nlohmann::json::parse(lines(j.out).at(1)).contains("prefix"));
}

TEST_F(RpolicyTest, CheckWarnsAboutNamedRouteMapsThatAreNotConfigured) {
   const Outcome r = rpolicy(
       {"check", example("edge.conf"), "--route-map", "EDGE-OUT", "--apply", "3=EDGE-IN"});
   EXPECT_EQ(r.code, 0);
   EXPECT_EQ(r.out, example("edge.conf") +
                        ": warning: route-map EDGE-OUT is not configured: a list that names it " +
                        "denies every route\n" + example("edge.conf") + ": 0 errors, 1 warning\n");
}

TEST_F(RpolicyTest, ThreadsDoNotChangeTheOutput) {
   // Enough routes that every thread gets a mix of verdicts.
   std::string routes;
   for (int i = 0; i < 600; ++i) {
      routes += "198.51.100." + std::to_string((i % 16) * 16) +
                "/28 protocol=ebgp tag=" + std::to_string(i % 3 ? 0 : 65001) + "\n";
      routes += "198.18." + std::to_string(i % 256) + ".0/24 protocol=ebgp\n";
   }
   const std::string path = write("many.txt", routes);
   for (const std::vector<std::string>& mode :
        {std::vector<std::string>{}, {"--json", "--explain"}}) {
      std::vector<std::string> args{"eval", example("edge.conf"), path, "--route-map", "EDGE-IN"};
      args.insert(args.end(), mode.begin(), mode.end());
      const Outcome one = rpolicy(args);
      args.insert(args.end(), {"--threads", "3"});
      const Outcome three = rpolicy(args);
      ASSERT_EQ(one.code, 0) << one.err;
      ASSERT_EQ(three.code, 0) << three.err;
      EXPECT_GE(lines(one.out).size(), 1200u);
      EXPECT_EQ(one.out, three.out);
   }
}

TEST_F(RpolicyTest, TestCommandOnTheExamples) {
   const Outcome r =
       rpolicy({"test", example("edge.conf"), example("edge-cases.txt"), "--route-map", "EDGE-IN"});
   EXPECT_EQ(r.code, 0) << r.out << r.err;
   EXPECT_EQ(r.out, "18 passed, 0 failed\n");
}

TEST_F(RpolicyTest, FailingCasesAreExplained) {
   const std::string cases = write("cases.txt",
                                   "198.18.4.0/24 protocol=ebgp => permit tag=300\n"
                                   "# wrong on purpose\n"
                                   "198.51.100.0/24 protocol=ebgp => permit tag=999 preference=30\n"
                                   "10.0.0.0/8 => permit\n");
   const Outcome r = rpolicy({"test", example("edge.conf"), cases, "--route-map", "EDGE-IN"});
   EXPECT_EQ(r.code, 1);
   const auto out = lines(r.out);
   ASSERT_FALSE(out.empty());
   EXPECT_EQ(out.back(), "1 passed, 2 failed");
   EXPECT_NE(r.out.find(cases + ":3: FAIL: 198.51.100.0/24 protocol=ebgp => permit tag=999"),
             std::string::npos);
   EXPECT_NE(r.out.find("expected: permit tag=999 preference=30\n"), std::string::npos);
   EXPECT_NE(r.out.find("because:  tag is 100, expected 999\n"), std::string::npos);
   EXPECT_NE(r.out.find("because:  verdict is deny, expected permit\n"), std::string::npos);

   const std::string bad = write("bad.txt", "10.0.0.0/8 => deny\n10.0.0.0/8 => accept\n");
   const Outcome b = rpolicy({"test", example("edge.conf"), bad, "--route-map", "EDGE-IN"});
   EXPECT_EQ(b.code, 2);
   EXPECT_EQ(b.out, "");
   EXPECT_EQ(b.err, bad + ":2: error: expected 'permit' or 'deny' after '=>', got 'accept'\n");
}

struct UsageRow {
   std::vector<std::string> args;
   const char* input;
   int code;
   const char* err;  // a part of stderr
};

TEST_F(RpolicyTest, ExitCodes) {
   const std::string conf = example("edge.conf");
   const UsageRow rows[] = {
       {{}, "", 2, "give a command: check, eval, show, test or graph"},
       {{"frobnicate"}, "", 2, "frobnicate"},
       {{"eval", conf}, "", 2, "give --route-map NAME or --apply PRECEDENCE=NAME"},
       {{"eval", conf, "--route-map", "NOPE"}, "", 2, "route-map NOPE is not configured"},
       {{"eval", conf, "--apply", "rmBased"}, "", 2, "--apply expects PRECEDENCE=NAME"},
       {{"eval", conf, "--apply", "sideways=EDGE-IN"}, "", 2, "sideways"},
       {{"eval", conf, "--apply", "99=EDGE-IN"}, "", 2, "--apply 99=EDGE-IN"},
       {{"eval", conf, "--route-map", "EDGE-IN", "--apply", "rmBased=CUSTOMER-CHECK"},
        "",
        2,
        "precedence rmBased given twice"},
       {{"eval", conf, "--route-map", "EDGE-IN", "--threads", "0"}, "", 2, "--threads"},
       {{"eval", conf, "-", "--route-map", "EDGE-IN"},
        "10.0.0.0/8\n\n10.1.0.0/16 colour=red\n",
        2,
        "<stdin>:3: error: unknown route attribute 'colour'"},
       {{"eval", "/nonexistent/edge.conf", "--route-map", "EDGE-IN"},
        "",
        2,
        "cannot read /nonexistent/edge.conf: No such file or directory"},
       {{"eval", conf, "/nonexistent/routes", "--route-map", "EDGE-IN"},
        "",
        2,
        "cannot read /nonexistent/routes"},
       {{"eval", conf, "--route-map", "EDGE-IN", "--then", RP_EXAMPLES_DIR},
        "",
        2,
        "Is a directory"},
       {{"show", conf, "--route-map", "NOPE"}, "", 2, "route-map NOPE is not configured"},
       {{"test", conf}, "", 2, "CASES is required"},
       {{"check", conf, "--profile", "partial"}, "", 2, "--profile"},
       {{"check", conf}, "", 0, ""},
   };
   for (const UsageRow& row : rows) {
      SCOPED_TRACE(::testing::PrintToString(row.args));
      const Outcome r = rpolicy(row.args, row.input);
      EXPECT_EQ(r.code, row.code) << r.err;
      EXPECT_NE(r.err.find(row.err), std::string::npos) << r.err;
      // An input error prints nothing on stdout: no half-evaluated route list.
      if (row.code == 2) {
         EXPECT_EQ(r.out, "");
      }
   }
   const Outcome help = rpolicy({"eval", "--help"});
   EXPECT_EQ(help.code, 0);
   EXPECT_NE(help.out.find("--threads"), std::string::npos);
}

TEST_F(RpolicyTest, CheckCountsErrorsAndWarnings) {
   EXPECT_EQ(rpolicy({"check", example("edge.conf")}).out,
             example("edge.conf") + ": 0 errors, 0 warnings\n");

   const std::string warn = write("warn.conf",
                                  "route-map RM permit 10\n"
                                  "   match ip address prefix-list MISSING\n"
                                  "   set metric 5\n"
                                  "   sub-route-map RM2\n"
                                  "route-map RM2 permit 10\n"
                                  "   sub-route-map RM\n");
   const Outcome w = rpolicy({"check", warn});
   EXPECT_EQ(w.code, 0);
   EXPECT_NE(w.out.find(warn + ":2: warning: route-map RM seq 10: prefix-list MISSING is not"),
             std::string::npos)
       << w.out;
   EXPECT_NE(w.out.find(" is blocked: its sub-route-map calls form a cycle"), std::string::npos)
       << w.out;
   // Every clause is evaluated under the default profile; the common one says what it ignores.
   EXPECT_EQ(w.out.find("not evaluated"), std::string::npos) << w.out;
   EXPECT_EQ(lines(w.out).back(), warn + ": 0 errors, 2 warnings");
   const Outcome c = rpolicy({"check", warn, "--profile", "common"});
   EXPECT_EQ(c.code, 0);
   EXPECT_NE(c.out.find(warn + ":3: warning: route-map RM seq 10: set metric is not evaluated "
                               "under profile common"),
             std::string::npos)
       << c.out;
   EXPECT_EQ(lines(c.out).back(), warn + ": 0 errors, 3 warnings");

   const std::string bad = write("bad.conf", "route-map RM permit 10\n   set tag x\nbogus line\n");
   const Outcome b = rpolicy({"check", bad});
   EXPECT_EQ(b.code, 1);
   EXPECT_EQ(lines(b.out).back(), bad + ": 2 errors, 0 warnings");
   // The same configuration is an input error for the commands that need it to be valid.
   EXPECT_EQ(rpolicy({"eval", bad, "--route-map", "RM"}, "").code, 2);
   EXPECT_EQ(rpolicy({"graph", bad}).code, 2);
}

// A call held back because it would close a cycle changes the answers, so every command that
// applies the configuration says so, at the line of the call.
TEST_F(RpolicyTest, BlockedCallsAreReportedByEveryCommand) {
   const std::string conf = write("cycle.conf",
                                  "route-map A permit 10\n"
                                  "   sub-route-map B\n"
                                  "route-map B deny 10\n"
                                  "   match tag 5\n"
                                  "route-map B permit 20\n"
                                  "   sub-route-map A\n");
   const std::string warning =
       conf + ":6: warning: route-map B seq 20 is blocked: its sub-route-map calls form a cycle\n";
   const Outcome c = rpolicy({"check", conf});
   EXPECT_EQ(c.code, 0);
   EXPECT_NE(c.out.find(warning), std::string::npos) << c.out;
   const Outcome e = rpolicy({"eval", conf, "-", "--route-map", "A"}, "10.0.0.0/8 tag=5\n");
   EXPECT_EQ(e.code, 0) << e.err;
   EXPECT_EQ(e.err, warning);
   EXPECT_EQ(e.out, "10.0.0.0/8 deny\n") << "B denies tag 5, and A calls B as compiled";
   const Outcome sh = rpolicy({"show", conf});
   EXPECT_EQ(sh.err, warning);
}

TEST_F(RpolicyTest, ShowPrintsWhatReadsBack) {
   using Routing::Policy::agent::parseConfigText;
   const Outcome r = rpolicy({"show", example("edge.conf")});
   ASSERT_EQ(r.code, 0) << r.err;
   EXPECT_NE(r.out.find("# route-map CUSTOMER-CHECK, compiled\n"), std::string::npos);
   EXPECT_NE(r.out.find("# route-map EDGE-IN, compiled\n"), std::string::npos);
   const auto at = r.out.find("# configuration, as filtered\n");
   ASSERT_NE(at, std::string::npos);
   // Every clause of the example is evaluated, so the filter keeps all of it.
   std::ifstream f(example("edge.conf"));
   const std::string original((std::istreambuf_iterator<char>(f)), {});
   const auto shown = parseConfigText(r.out.substr(at), "show");
   ASSERT_TRUE(shown.ok());
   EXPECT_TRUE(shown.document == parseConfigText(original, "edge.conf").document);

   const Outcome one = rpolicy({"show", example("edge.conf"), "--route-map", "CUSTOMER-CHECK"});
   ASSERT_EQ(one.code, 0) << one.err;
   EXPECT_EQ(one.out.find("EDGE-IN"), std::string::npos);
   EXPECT_EQ(one.out.find("prefix-list"), std::string::npos);  // it names no list
}

// The clauses the common component does not evaluate, through every command under both
// profiles: the full profile decides by them, the common one warns and ignores them.
TEST_F(RpolicyTest, ProfilesOnEveryCommand) {
   const std::string conf = write("p.conf",
                                  "ip prefix-list NH seq 10 permit 192.0.2.0/24 le 32\n"
                                  "route-map RM permit 10\n"
                                  "   match interface Ethernet1\n"
                                  "   match ip next-hop prefix-list NH\n"
                                  "   set metric 40\n"
                                  "route-map RM permit 20\n"
                                  "   set tag 5\n");
   const std::string routes = write("r.txt",
                                    "10.0.0.0/8 nexthop=192.0.2.1 interfaces=Ethernet1\n"
                                    "10.0.0.0/8 nexthop=192.0.2.1 interfaces=Ethernet2\n"
                                    "10.0.0.0/8 nexthop=203.0.113.1 interfaces=Ethernet1\n"
                                    "10.0.0.0/8 nexthop=192.0.2.1\n"
                                    "10.0.0.0/8 nexthop=192.0.2.1 match-intf=false\n");
   auto eval = [&](const char* profile) {
      return rpolicy({"eval", conf, routes, "--route-map", "RM", "--json", "--profile", profile});
   };
   const Outcome full = eval("full");
   ASSERT_EQ(full.code, 0) << full.err;
   EXPECT_EQ(full.err, "");
   EXPECT_EQ(lines(full.out),
             (std::vector<std::string>{
                 R"({"prefix":"10.0.0.0/8","permit":true,"preference":0,"tag":0,"metric":40})",
                 R"({"prefix":"10.0.0.0/8","permit":true,"preference":0,"tag":5,"metric":null})",
                 R"({"prefix":"10.0.0.0/8","permit":true,"preference":0,"tag":5,"metric":null})",
                 R"({"prefix":"10.0.0.0/8","permit":true,"preference":0,"tag":5,"metric":null})",
                 R"({"prefix":"10.0.0.0/8","permit":true,"preference":0,"tag":0,"metric":40})",
             }));
   EXPECT_EQ(rpolicy({"eval", conf, routes, "--route-map", "RM", "--json"}).out, full.out)
       << "full is the default";
   const Outcome common = eval("common");
   ASSERT_EQ(common.code, 0) << common.err;
   for (const std::string& l : lines(common.out)) {
      EXPECT_EQ(l, R"({"prefix":"10.0.0.0/8","permit":true,"preference":0,"tag":0,"metric":null})");
   }
   const std::string warnings =
       conf +
       ":3: warning: route-map RM seq 10: match interface is not evaluated under profile "
       "common\n" +
       conf +
       ":4: warning: route-map RM seq 10: match ip next-hop prefix-list is not evaluated "
       "under profile common\n" +
       conf +
       ":5: warning: route-map RM seq 10: set metric is not evaluated under profile common\n";
   EXPECT_EQ(common.err, warnings);

   EXPECT_EQ(rpolicy({"check", conf}).out, conf + ": 0 errors, 0 warnings\n");
   EXPECT_EQ(rpolicy({"check", conf, "--profile", "common"}).out,
             warnings + conf + ": 0 errors, 3 warnings\n");

   // show keeps its sections; what the filter passes differs by profile.
   for (const char* profile : {"full", "common"}) {
      SCOPED_TRACE(profile);
      const Outcome shown = rpolicy({"show", conf, "--route-map", "RM", "--profile", profile});
      ASSERT_EQ(shown.code, 0) << shown.err;
      EXPECT_EQ(shown.out.rfind("# route-map RM, compiled\n", 0), 0u) << shown.out;
      const auto at = shown.out.find("# configuration, as filtered\n");
      ASSERT_NE(at, std::string::npos);
      const std::string filtered = shown.out.substr(at);
      const bool full = std::string(profile) == "full";
      EXPECT_EQ(filtered.find("match interface Ethernet1") != std::string::npos, full);
      EXPECT_EQ(filtered.find("set metric 40") != std::string::npos, full);
      // The next-hop list is named, so it is shown with the route map.
      EXPECT_EQ(filtered.find("ip prefix-list NH seq 10") != std::string::npos, full);
      EXPECT_EQ(shown.out.find("InterfaceMatcher interface Ethernet1") != std::string::npos, full);
      EXPECT_EQ(shown.out.find("NexthopPrefixListMatcher prefix-list NH;") != std::string::npos,
                full);
   }

   const std::string cases = write("c.txt",
                                   "10.0.0.0/8 nexthop=192.0.2.1 interfaces=Ethernet1 => permit "
                                   "metric=40\n"
                                   "10.0.0.0/8 nexthop=192.0.2.1 => permit tag=5 metric=none\n");
   EXPECT_EQ(rpolicy({"test", conf, cases, "--route-map", "RM"}).out, "2 passed, 0 failed\n");
   const Outcome commonCases =
       rpolicy({"test", conf, cases, "--route-map", "RM", "--profile", "common"});
   EXPECT_EQ(commonCases.code, 1);
   EXPECT_EQ(lines(commonCases.out).back(), "0 passed, 2 failed");

   const Outcome graph = rpolicy({"graph", conf, "--profile", "common"});
   ASSERT_EQ(graph.code, 0);
   EXPECT_EQ(graph.err, warnings);
   EXPECT_EQ(graph.out, rpolicy({"graph", conf}).out);
   EXPECT_EQ(rpolicy({"graph", conf}).err, "");
}

TEST_F(RpolicyTest, GraphDrawsCallsReferencesAndContinues) {
   const Outcome r = rpolicy({"graph", example("edge.conf")});
   ASSERT_EQ(r.code, 0) << r.err;
   for (
       const char* expected : {
           R"("route-map EDGE-IN" [shape=box, style=rounded];)",
           R"("prefix-list BOGONS" [shape=ellipse];)",
           R"("ipv6 prefix-list CUSTOMERS-V6" [shape=ellipse];)",
           R"("access-list ANYCAST-SERVICES" [shape=box];)",
           R"("route-map EDGE-IN" -> "route-map CUSTOMER-CHECK" [label="seq 20", penwidth=2];)",
           R"("route-map EDGE-IN" -> "route-map EDGE-IN" [label="seq 20 continue 40", style=dotted];)",
           R"("route-map EDGE-IN" -> "prefix-list CUSTOMERS" [label="seq 40"];)",
       }) {
      EXPECT_NE(r.out.find(expected), std::string::npos) << expected << "\n" << r.out;
   }
   const std::string conf = write("g.conf",
                                  "route-map A permit 10\n   sub-route-map B invert-result\n"
                                  "   continue\n   match ip next-hop prefix-list NH\n");
   const Outcome g = rpolicy({"graph", conf});
   ASSERT_EQ(g.code, 0) << g.err;
   EXPECT_EQ(
       g.out,
       "digraph policy {\n"
       "   rankdir=LR;\n"
       "   \"prefix-list NH\" [shape=ellipse, style=dashed, color=red, label=\"prefix-list "
       "NH\\n(not configured)\"];\n"
       "   \"route-map A\" [shape=box, style=rounded];\n"
       "   \"route-map B\" [shape=box, style=\"rounded,dashed\", color=red, label=\"route-map "
       "B\\n(not configured)\"];\n"
       "   \"route-map A\" -> \"prefix-list NH\" [label=\"seq 10 next-hop\"];\n"
       "   \"route-map A\" -> \"route-map B\" [label=\"seq 10 invert-result\", style=dashed, "
       "penwidth=2];\n"
       "   \"route-map A\" -> \"route-map A\" [label=\"seq 10 continue\", style=dotted];\n"
       "}\n");
}

}  // namespace
