#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/RouteText.h"

namespace {

using namespace Routing::Policy;
using namespace Routing::Policy::agent;
using Routing::RoutePreference;
using Routing::RouteProto;
using Routing::RouteTag;

// Good route lines, each with the text routeText prints back (null: the line itself).
struct GoodRoute {
   const char* text;
   const char* printed;
};

const GoodRoute kGoodRoutes[] = {
    {"10.1.2.0/24", nullptr},
    {"0.0.0.0/0", nullptr},
    {"2001:db8::/32 protocol=ospf3", nullptr},
    {"10.0.0.0/8 protocol=24", "10.0.0.0/8 protocol=bgp"},
    {"10.0.0.0/8 protocol=200", nullptr},  // numbered protocols without a name stay numbers
    {"10.0.0.0/8 tag=4294967295 metric=9223372036854775807", nullptr},
    {"10.0.0.0/8 metric=none", "10.0.0.0/8"},
    {"  10.0.0.0/8\ttag=7  ", "10.0.0.0/8 tag=7"},
    // Printed in a fixed order whatever the input order.
    {"10.0.0.0/8 match-intf=true interfaces=Vlan10,Ethernet1 router-id=1.1.1.1 nexthop=2001:db8::1 "
     "resolved-nexthop=192.0.2.9 protocol=ebgp",
     "10.0.0.0/8 protocol=ebgp nexthop=2001:db8::1 router-id=1.1.1.1 resolved-nexthop=192.0.2.9 "
     "interfaces=Ethernet1,Vlan10"},
    // Interfaces are matched unless the line says otherwise.
    {"10.0.0.0/8 match-intf=true", "10.0.0.0/8"},
    {"10.0.0.0/8 interfaces=Ethernet1 match-intf=false", nullptr},
};

TEST(RouteText, GoodRoutesReadAndPrintBack) {
   for (const auto& g : kGoodRoutes) {
      SCOPED_TRACE(g.text);
      const auto r = parseRouteText(g.text);
      ASSERT_TRUE(r.ok()) << r.error;
      const std::string printed = routeText(*r.value);
      EXPECT_EQ(printed, g.printed ? g.printed : g.text);
      // The printed form is itself a route line for the same route.
      const auto again = parseRouteText(printed);
      ASSERT_TRUE(again.ok()) << again.error;
      EXPECT_TRUE(*again.value == *r.value);
   }
}

TEST(RouteText, AttributesLandInTheirFields) {
   const auto r = parseRouteText(
       "10.1.0.0/16 protocol=static tag=300 metric=20 nexthop=192.0.2.1 router-id=10.0.0.1 "
       "interfaces=Ethernet1,Ethernet2 match-intf=true");
   ASSERT_TRUE(r.ok()) << r.error;
   const MatchInput_& m = *r.value;
   EXPECT_EQ(m.prefix(), Nx::IpGenPrefix::fromStrep("10.1.0.0/16"));
   EXPECT_EQ(m.protocol(), RouteProto::staticRoute);
   EXPECT_EQ(m.tag(), RouteTag(300));
   EXPECT_EQ(m.metric(), Orb::MaybeU63(20));
   EXPECT_EQ(m.nexthop(), Nx::IpGenAddr::fromStrep("192.0.2.1"));
   EXPECT_EQ(m.routerId(), Nx::IpAddr::fromStrep("10.0.0.1"));
   ASSERT_TRUE(m.intfIdSet());
   EXPECT_EQ(m.intfIdSet()->size(), 2u);
   EXPECT_TRUE(m.intfIdSet()->intfIdHas(Nx::IntfId("Ethernet2")));
   EXPECT_TRUE(m.matchIntf());
}

struct BadLine {
   const char* text;
   const char* error;
};

const BadLine kBadRoutes[] = {
    {"", "expected a prefix A.B.C.D/L or X:X::X/L, got end of line"},
    {"10.1.2.0", "expected a prefix A.B.C.D/L or X:X::X/L, got '10.1.2.0'"},
    {"10.1.2.0/33", "expected a prefix A.B.C.D/L or X:X::X/L, got '10.1.2.0/33'"},
    {"2001:db8::/129", "expected a prefix A.B.C.D/L or X:X::X/L, got '2001:db8::/129'"},
    {"10.1.2.3/24", "10.1.2.3/24 has host bits set; expected 10.1.2.0/24"},
    {"10.0.0.0/8 foo", "expected key=value, got 'foo'"},
    {"10.0.0.0/8 =5", "expected key=value, got '=5'"},
    {"10.0.0.0/8 color=red",
     "unknown route attribute 'color'; expected one of protocol, tag, metric, nexthop, "
     "router-id, resolved-nexthop, interfaces or match-intf"},
    {"10.0.0.0/8 tag=1 tag=2", "tag given twice"},
    {"10.0.0.0/8 tag=4294967296", "expected a tag 0-4294967295 for tag, got '4294967296'"},
    {"10.0.0.0/8 tag=-1", "expected a tag 0-4294967295 for tag, got '-1'"},
    {"10.0.0.0/8 tag=", "expected a tag 0-4294967295 for tag, got ''"},
    {"10.0.0.0/8 metric=9223372036854775808",
     "expected a metric 0-9223372036854775807 or 'none' for metric, got '9223372036854775808'"},
    {"10.0.0.0/8 nexthop=1.2.3", "expected an address A.B.C.D or X:X::X for nexthop, got '1.2.3'"},
    {"10.0.0.0/8 router-id=2001:db8::1",
     "expected an address A.B.C.D for router-id, got '2001:db8::1'"},
    {"10.0.0.0/8 interfaces=Ethernet1,,Ethernet2",
     "expected interface names separated by ',' for interfaces, got 'Ethernet1,,Ethernet2'"},
    {"10.0.0.0/8 interfaces=Eth#1",
     "expected interface names separated by ',' for interfaces, got 'Eth#1'"},
    {"10.0.0.0/8 match-intf=yes", "expected 'true' or 'false' for match-intf, got 'yes'"},
    {"10.0.0.0/8 protocol=256", nullptr},  // checked by prefix below: the list is long
    {"10.0.0.0/8 protocol=bogus", nullptr},
};

TEST(RouteText, BadRoutesNameWhatWasExpected) {
   for (const auto& b : kBadRoutes) {
      SCOPED_TRACE(b.text);
      const auto r = parseRouteText(b.text);
      ASSERT_FALSE(r.ok());
      if (b.error) {
         EXPECT_EQ(r.error, b.error);
      } else {
         EXPECT_EQ(r.error.rfind("expected a protocol (unknown, connected, kernel, static,", 0), 0u)
             << r.error;
         EXPECT_NE(r.error.find("dynamic, or 0-255) for protocol"), std::string::npos) << r.error;
      }
   }
}

TEST(RouteText, CasesReadTheirExpectation) {
   auto c = parseRouteCase("10.0.0.0/8 tag=5 => permit tag=200 preference=20 metric=none");
   ASSERT_TRUE(c.ok()) << c.error;
   EXPECT_EQ(c.value->route.tag(), RouteTag(5));
   EXPECT_TRUE(c.value->expect.permit);
   EXPECT_EQ(c.value->expect.tag, RouteTag(200));
   EXPECT_EQ(c.value->expect.preference, RoutePreference(20));
   ASSERT_TRUE(c.value->expect.metric);
   EXPECT_FALSE(c.value->expect.metric->hasValue());
   EXPECT_EQ(c.value->expect.text(), "permit tag=200 preference=20 metric=none");

   c = parseRouteCase("10.0.0.0/8=>deny");
   ASSERT_TRUE(c.ok()) << c.error;
   EXPECT_FALSE(c.value->expect.permit);
   EXPECT_EQ(c.value->expect.text(), "deny");
}

const BadLine kBadCases[] = {
    {"10.0.0.0/8 permit", "expected ROUTE => permit|deny, found no '=>'"},
    {"10.0.0.0/8 =>", "expected 'permit' or 'deny' after '=>', got end of line"},
    {"10.0.0.0/8 => accept", "expected 'permit' or 'deny' after '=>', got 'accept'"},
    {"10.0.0.0/8 => deny tag=1", "unexpected 'tag=1' after deny"},
    {"10.0.0.0/8 => permit weight=3",
     "unknown result attribute 'weight'; expected one of tag, preference or metric"},
    {"10.0.0.0/8 => permit preference=256",
     "expected a preference 0-255 for preference, got '256'"},
    {"10.0.0.0/8 => permit tag=1 tag=1", "tag given twice"},
    {"10.0.0.9/8 => deny", "10.0.0.9/8 has host bits set; expected 10.0.0.0/8"},
    {"=> deny", "expected a prefix A.B.C.D/L or X:X::X/L, got end of line"},
};

TEST(RouteText, BadCases) {
   for (const auto& b : kBadCases) {
      SCOPED_TRACE(b.text);
      const auto r = parseRouteCase(b.text);
      ASSERT_FALSE(r.ok());
      EXPECT_EQ(r.error, b.error);
   }
}

// Only the attributes a case names are compared.
TEST(RouteText, MismatchComparesOnlyWhatIsExpected) {
   Result_ result;
   result.tagIs(RouteTag(200));
   result.preferenceIs(RoutePreference(20));
   struct Row {
      const char* expect;
      bool permit;
      const char* mismatch;
   };
   const Row rows[] = {
       {"permit", true, ""},
       {"permit tag=200", true, ""},
       {"permit tag=200 preference=20 metric=none", true, ""},
       {"permit tag=100", true, "tag is 200, expected 100"},
       {"permit tag=100 metric=5", true, "tag is 200, expected 100; metric is None, expected 5"},
       {"permit preference=0", true, "preference is 20, expected 0"},
       {"permit", false, "verdict is deny, expected permit"},
       {"deny", true, "verdict is permit, expected deny"},
       {"deny", false, ""},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(row.expect);
      const auto c = parseRouteCase(std::string("10.0.0.0/8 => ") + row.expect);
      ASSERT_TRUE(c.ok()) << c.error;
      EXPECT_EQ(c.value->expect.mismatch(row.permit, result), row.mismatch);
   }
   EXPECT_EQ(verdictText(true, result), "permit tag=200 preference=20 metric=none");
   result.metricIs(Orb::MaybeU63(7));
   EXPECT_EQ(verdictText(true, result), "permit tag=200 preference=20 metric=7");
   EXPECT_EQ(verdictText(false, result), "deny");
}

TEST(RouteText, FilesReportEveryBadLineAndKeepNothing) {
   const std::string text =
       "# routes\n"
       "10.0.0.0/8\n"
       "\n"
       "! also a comment\n"
       "10.1.0.0/16 tag=x\n"
       "11.0.0.0/8\n"
       "12.0.0.0/33\n";
   const auto bad = parseRouteLines(text, "r.txt");
   ASSERT_EQ(bad.errors.size(), 2u);
   EXPECT_EQ(bad.errors[0].text(), "r.txt:5: error: expected a tag 0-4294967295 for tag, got 'x'");
   EXPECT_EQ(bad.errors[1].line, 7u);
   EXPECT_TRUE(bad.items.empty());

   const auto good = parseRouteLines("# c\n10.0.0.0/8\n\n 11.0.0.0/8 tag=1 \n", "r.txt");
   ASSERT_TRUE(good.ok());
   ASSERT_EQ(good.items.size(), 2u);
   EXPECT_EQ(good.items[0].first, 2u);
   EXPECT_EQ(good.items[1].first, 4u);
   EXPECT_EQ(good.lines[1], "11.0.0.0/8 tag=1");

   const auto cases = parseCaseLines("10.0.0.0/8 => deny\n10.0.0.0/8 => maybe\n", "c.txt");
   ASSERT_EQ(cases.errors.size(), 1u);
   EXPECT_EQ(cases.errors[0].text(),
             "c.txt:2: error: expected 'permit' or 'deny' after '=>', got 'maybe'");
}

}  // namespace
