#include <gtest/gtest.h>

#include <string>

#include "tests/RoutingPolicy/PolicyTestBuilder.h"

namespace {

using namespace policy_test;
using Routing::RouteProto;

bool matches(const Matcher& m, const MatchInput_& in) {
   return m.matchForTest(in, nullptr);
}

struct ProtoCase {
   U8 configured;
   U8 route;
   bool match;
};

class PolicySourceProtoTest : public ::testing::TestWithParam<ProtoCase> {};

TEST_P(PolicySourceProtoTest, FoldsRouteProtocolsIntoTheConfiguredFamilyOnly) {
   const auto [configured, route, expected] = GetParam();
   MatchInput_ in;
   in.protocolIs(RouteProto{route});
   EXPECT_EQ(matches(*sourceProtoMatcherFactory(RouteProto{configured}), in), expected)
       << "configured " << int(configured) << ", route " << int(route);
}

INSTANTIATE_TEST_SUITE_P(
    Folds, PolicySourceProtoTest,
    ::testing::Values(ProtoCase{31, 5, true}, ProtoCase{31, 6, true}, ProtoCase{31, 31, true},
                      ProtoCase{5, 5, false}, ProtoCase{6, 6, false}, ProtoCase{10, 20, true},
                      ProtoCase{20, 20, false}, ProtoCase{10, 10, true}, ProtoCase{24, 25, true},
                      ProtoCase{24, 30, true}, ProtoCase{25, 25, false}, ProtoCase{30, 30, false},
                      ProtoCase{31, 24, false}, ProtoCase{4, 4, true}, ProtoCase{4, 1, false}));

TEST(PolicyMatcherTest, MetricIsComparedAsAnOptionalValue) {
   MatchInput_ none, zero, seven;
   zero.metricIs(Orb::MaybeU63(0));
   seven.metricIs(Orb::MaybeU63(7));
   const auto absent = routeMetricMatcherFactory({});
   const auto m7 = routeMetricMatcherFactory(Orb::MaybeU63(7));
   EXPECT_TRUE(matches(*absent, none));
   EXPECT_FALSE(matches(*absent, zero));
   EXPECT_FALSE(matches(*m7, none));
   EXPECT_TRUE(matches(*m7, seven));
}

TEST(PolicyMatcherTest, InterfaceMatcherHonoursMatchIntf) {
   const auto m = interfaceMatcherFactory(Nx::IntfId("Ethernet1"));
   MatchInput_ in;
   EXPECT_TRUE(matches(*m, in)) << "matchIntf false passes without a set";
   in.matchIntfIs(true);
   EXPECT_FALSE(matches(*m, in)) << "a null set fails";
   auto set = intfIdSetFactory();
   set->intfIdIs(Nx::IntfId("Ethernet2"));
   in.intfIdSetIs(set);
   EXPECT_FALSE(matches(*m, in));
   set->intfIdIs(Nx::IntfId("Ethernet1"));
   EXPECT_TRUE(matches(*m, in));
   EXPECT_TRUE(m->getFeatures().matchInterface);
   EXPECT_EQ(tagMatcherFactory(Routing::RouteTag(1))->getFeatures(), RouteMapFeatures{});
}

TEST(PolicyMatcherTest, NexthopComparesFamilyAndAddress) {
   const auto m = nexthopMatcherFactory(Nx::IpGenAddr::fromStrep("0.0.0.0"));
   MatchInput_ in;
   EXPECT_TRUE(matches(*m, in));
   in.nexthopIs(Nx::IpGenAddr::fromStrep("::"));
   EXPECT_FALSE(matches(*m, in));
}

TEST(PolicyMatcherTest, GwMatcherNeverMatches) {
   const auto gw = Kel::makePtr<GwMatcher>();
   MatchInput_ in;
   EXPECT_FALSE(matches(*gw, in));
   in.matchIntfIs(true);
   EXPECT_FALSE(matches(*gw, in));
}

// Matchers must read through the getters, which an agent's own input type overrides.
TEST(PolicyMatcherTest, ReadsTheInputThroughItsVirtualGetters) {
   struct AgentRoute : MatchInput_ {
      Routing::RouteTag getTag() const override { return Routing::RouteTag(42); }
      Orb::MaybeU63 getMetric() const override { return Orb::MaybeU63(9); }
   } route;
   EXPECT_TRUE(matches(*tagMatcherFactory(Routing::RouteTag(42)), route));
   EXPECT_TRUE(matches(*routeMetricMatcherFactory(Orb::MaybeU63(9)), route));
}

TEST(PolicyClauseTextTest, EachClauseNamesItselfAndItsValue) {
   EXPECT_EQ(tagMatcherFactory(Routing::RouteTag(7))->toStrep(), "TagMatcher tag 7");
   EXPECT_EQ(routeMetricMatcherFactory({})->toStrep(), "RouteMetricMatcher metric None");
   EXPECT_EQ(sourceProtoMatcherFactory(RouteProto::ospf)->toStrep(),
             "SourceProtoMatcher protocol ospf");
   EXPECT_EQ(nexthopMatcherFactory(Nx::IpGenAddr::fromStrep("2001:db8::1"))->toStrep(),
             "NexthopMatcher next-hop 2001:db8::1");
   EXPECT_EQ(interfaceMatcherFactory(Nx::IntfId("Vlan10"))->toStrep(),
             "InterfaceMatcher interface Vlan10");
   EXPECT_EQ(Kel::makePtr<GwMatcher>()->toStrep(), "GwMatcher Not implemented yet");
   EXPECT_EQ(tagSetterFactory(Routing::RouteTag(3))->toStrep(), "TagSetter tag 3");
   EXPECT_EQ(distanceSetterFactory(Routing::RoutePreference(200))->toStrep(),
             "DistanceSetter distance 200");
   EXPECT_EQ(routeMetricSetterFactory(Orb::MaybeU63(5))->toStrep(), "RouteMetricSetter metric 5");
}

TEST(PolicySetterTest, EachSetterOverwritesItsOneAttribute) {
   Result_ r;
   r.metricIs(Orb::MaybeU63(4));
   tagSetterFactory(Routing::RouteTag(3))->testSetValue(r);
   distanceSetterFactory(Routing::RoutePreference(20))->testSetValue(r);
   EXPECT_EQ(r.tag().value(), 3u);
   EXPECT_EQ(r.preference().value(), 20u);
   EXPECT_EQ(r.metric(), Orb::MaybeU63(4));
   routeMetricSetterFactory({})->testFullSetValue(r);
   EXPECT_FALSE(r.metric().hasValue()) << "an absent metric is copied too";
   EXPECT_FALSE(r.dps()) << "no setter of this kind defers itself";
}

std::string protocolsOf(U8 last, Routing::RouteProto (*f)(U8)) {
   std::string s;
   for (unsigned t = 0; t <= last + 1u; ++t) {
      s += std::to_string(static_cast<unsigned>(f(static_cast<U8>(t)))) + ' ';
   }
   return s;
}

TEST(PolicyRouteProtoHelperTest, MapsEveryRouteTypeAndZeroOutsideTheTable) {
   const auto v4 = [](U8 t) { return RouteProtoHelper::routeProto(Routing::Fib::RouteType{t}); };
   const auto v6 = [](U8 t) { return RouteProtoHelper::routeProto6(Routing6::Fib::RouteType{t}); };
   // Types 0 and one past the last are outside the tables.
   EXPECT_EQ(protocolsOf(33, v4),
             "0 1 1 1 0 1 0 4 0 2 9 1 0 10 47 24 24 24 24 24 24 10 10 10 15 15 0 4 31 31 31 31 31 "
             "16 0 ");
   EXPECT_EQ(protocolsOf(17, v6), "0 1 1 1 4 2 9 1 0 10 47 24 10 15 15 0 4 16 0 ");
   EXPECT_EQ(v4(255), RouteProto::unknown);
}

}  // namespace
