#include "Routing/RouteMap/Config.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Kel/Exception.h"

namespace {

using namespace Routing::RouteMap;
using Log = std::vector<std::string>;

// Records every notification of the three configuration entities as "<handler>[:<key>]".
struct EntryRecorder : MapEntry::Reactor {
   explicit EntryRecorder(Log* l) : log(l) {}
   Log* log;
   void handlePermit() override { log->push_back("permit"); }
   void handleMatchRule(MatchOption o) override {
      log->push_back("matchRule:" + std::to_string(static_cast<U32>(o)));
   }
   void handleSetFlags() override { log->push_back("setFlags"); }
   void handleTag() override { log->push_back("tag"); }
   void handleDistance() override { log->push_back("distance"); }
   void handleMetric() override { log->push_back("metric"); }
   void handleContinueSeq() override { log->push_back("continueSeq"); }
   void handleSubRouteMap() override { log->push_back("subRouteMap"); }
   void handleDescription(U32 i) override { log->push_back("description:" + std::to_string(i)); }
};

struct MapRecorder : Map::Reactor {
   explicit MapRecorder(Log* l) : log(l) {}
   Log* log;
   void handleMapEntry(U32 seqno) override { log->push_back("mapEntry:" + std::to_string(seqno)); }
   void handleVersion() override { log->push_back("version"); }
};

struct ConfigRecorder : Config::Reactor {
   explicit ConfigRecorder(Log* l) : log(l) {}
   Log* log;
   void handleRouteMap(const Kel::Name& name) override { log->push_back("routeMap:" + name); }
   void handleRouteMapOpMode() override { log->push_back("opMode"); }
};

struct SetterCase {
   const char* name;
   std::function<void(MapEntry&)> set;
   const char* heard;
};

class RouteMapEntrySetterTest : public ::testing::TestWithParam<SetterCase> {};

// Each setter applied twice with the same value: one notification, on its own handler.
TEST_P(RouteMapEntrySetterTest, NotifiesOnceOnItsOwnHandler) {
   Log log;
   auto e = mapEntryFactory(10);
   EntryRecorder r(&log);
   r.notifierIs(e);
   GetParam().set(*e);
   GetParam().set(*e);
   EXPECT_EQ(log, Log{GetParam().heard});
}

INSTANTIATE_TEST_SUITE_P(
    RouteMapEntry, RouteMapEntrySetterTest,
    ::testing::Values(
        SetterCase{"permit", [](MapEntry& e) { e.permitIs(false); }, "permit"},
        SetterCase{"setFlags", [](MapEntry& e) { e.setFlagsIs(MapEntry::tagFlag); }, "setFlags"},
        SetterCase{"tag", [](MapEntry& e) { e.tagIs(Routing::RouteTag(5)); }, "tag"},
        SetterCase{"distance", [](MapEntry& e) { e.distanceIs(Routing::RoutePreference(20)); },
                   "distance"},
        SetterCase{"metric", [](MapEntry& e) { e.metricIs(Orb::MaybeU63(0)); }, "metric"},
        SetterCase{"continueSeq", [](MapEntry& e) { e.continueSeqIs(20); }, "continueSeq"},
        SetterCase{"subRouteMap", [](MapEntry& e) { e.subRouteMapIs("SUB", true); }, "subRouteMap"},
        SetterCase{"description", [](MapEntry& e) { e.descriptionIs(2, "to peers"); },
                   "description:2"},
        SetterCase{"matchRule", [](MapEntry& e) { e.matchRuleIs(MatchRule::forTag(7)); },
                   "matchRule:115"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RouteMapEntryTest, SubRouteMapNameAndInversionChangeAsOne) {
   Log log;
   auto e = mapEntryFactory(10);
   EntryRecorder r(&log);
   r.notifierIs(e);
   e->subRouteMapIs("SUB");
   e->subRouteMapIs("SUB", true);
   e->subRouteMapIs("");
   EXPECT_EQ(log, (Log{"subRouteMap", "subRouteMap", "subRouteMap"}));
   EXPECT_EQ(e->subRouteMap(), "");
   EXPECT_FALSE(e->subRouteMapInvert());
}

TEST(RouteMapEntryTest, RefusedChangeIsNeitherStoredNorTold) {
   Log log;
   auto e = mapEntryFactory(10);
   EntryRecorder r(&log);
   r.notifierIs(e);
   EXPECT_THROW(e->setFlagsIs(0x20), Kel::RangeException);
   EXPECT_THROW(e->continueSeqIs(3), Kel::RangeException);
   EXPECT_THROW(e->subRouteMapIs("", true), Kel::RangeException);
   EXPECT_EQ(e->setFlags(), 0u);
   EXPECT_EQ(e->continueSeq(), 0u);
   EXPECT_FALSE(e->subRouteMapInvert());
   EXPECT_TRUE(log.empty());
}

TEST(RouteMapEntryTest, MatchRulesAreKeyedByOptionAndNotifiedPerOption) {
   Log log;
   auto e = mapEntryFactory(10);
   EntryRecorder r(&log);
   r.notifierIs(e);
   e->matchRuleIs(MatchRule::forList(MatchOption::matchIpAddressPrefixList, "PL1"));
   e->matchRuleIs(MatchRule::forTag(7));
   // Same option, other argument: a change of that one key.
   e->matchRuleIs(MatchRule::forList(MatchOption::matchIpAddressPrefixList, "PL2"));
   e->matchRuleDel(MatchOption::matchMetric);
   EXPECT_EQ(e->matchRule(MatchOption::matchIpAddressPrefixList).listName(), "PL2");
   EXPECT_EQ(e->matchRule(MatchOption::matchMetric).option(), MatchOption::matchInvalid);
   e->matchRuleDelAll();
   EXPECT_EQ(log,
             (Log{"matchRule:2", "matchRule:115", "matchRule:2", "matchRule:2", "matchRule:115"}));
}

struct RefusalCase {
   const char* name;
   std::function<void()> act;
   const char* text;
};

class RouteMapConfigRefusalTest : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(RouteMapConfigRefusalTest, RefusesWithItsText) {
   try {
      GetParam().act();
      FAIL() << "accepted";
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(), GetParam().text);
   }
}

INSTANTIATE_TEST_SUITE_P(
    RouteMapConfig, RouteMapConfigRefusalTest,
    ::testing::Values(
        RefusalCase{"unknownSetFlag",
                    [] { mapEntryFactory(10)->setFlagsIs(MapEntry::tagFlag | 0x4); },
                    "seq 10: set flags 0x8004 hold unknown bits 0x4 (known: 0x18003)"},
        RefusalCase{"continueToItself", [] { mapEntryFactory(10)->continueSeqIs(10); },
                    "seq 10: continue target 10 must be above 10, or 0 for the next sequence"},
        RefusalCase{"continueBackwards", [] { mapEntryFactory(10)->continueSeqIs(5); },
                    "seq 10: continue target 5 must be above 10, or 0 for the next sequence"},
        RefusalCase{"invertNothing", [] { mapEntryFactory(10)->subRouteMapIs("", true); },
                    "seq 10: sub-route-map inversion needs a sub-route-map name"},
        RefusalCase{"ruleWithoutOption", [] { mapEntryFactory(10)->matchRuleIs(MatchRule()); },
                    "seq 10: a match rule needs a match option"},
        RefusalCase{"listRuleWithoutName",
                    [] { MatchRule::forList(MatchOption::matchIpNexthopPrefixList, ""); },
                    "match rule matchIpNexthopPrefixList needs a list name"},
        RefusalCase{"protocolOutOfRange", [] { MatchRule::forProtocol(static_cast<Protocol>(10)); },
                    "Protocol::value < Protocol::min or > Protocol::max not allowed"},
        RefusalCase{"interfaceWithoutName", [] { MatchRule::forInterface(Nx::IntfId()); },
                    "match rule matchInterface needs an interface name"},
        RefusalCase{"opModeOutOfRange",
                    [] { configFactory()->routeMapOpModeIs(static_cast<RouteMapOpModeType>(2)); },
                    "RouteMapOpModeType::value < RouteMapOpModeType::min or > "
                    "RouteMapOpModeType::max not allowed"},
        RefusalCase{"unnamedRouteMap", [] { configFactory()->routeMapIs(""); },
                    "a route map needs a name"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RouteMapConfigTest, RouteMapsAreMadeOnceAndNotifiedPerName) {
   Log log;
   auto c = configFactory();
   ConfigRecorder r(&log);
   r.notifierIs(c);
   auto a = c->routeMapIs("A");
   EXPECT_EQ(c->routeMapIs("A"), a);
   c->routeMapIs("B");
   c->routeMapDel("C");
   c->routeMapOpModeIs(RouteMapOpModeType::opModeAlternate);
   c->routeMapOpModeIs(RouteMapOpModeType::opModeAlternate);
   c->routeMapDelAll();
   EXPECT_EQ(log, (Log{"routeMap:A", "routeMap:B", "opMode", "routeMap:A", "routeMap:B"}));
   EXPECT_TRUE(c->routeMaps().empty());
}

TEST(RouteMapConfigTest, MapEntriesIterateInSequenceOrderAndVersionComparesFirst) {
   Log log;
   auto m = mapFactory("RM");
   MapRecorder r(&log);
   r.notifierIs(m);
   for (U32 s : {30u, 10u, 20u}) m->mapEntryIs(s)->permitIs(false);
   EXPECT_FALSE(m->mapEntryIs(10)->permit());  // kept, not remade
   std::vector<U32> order;
   for (const auto& [seqno, entry] : m->mapEntries()) order.push_back(entry->seqno());
   EXPECT_EQ(order, (std::vector<U32>{10, 20, 30}));
   m->versionIs(1);
   m->versionIs(1);
   m->mapEntryDel(20);
   m->mapEntryDel(20);
   EXPECT_EQ(log, (Log{"mapEntry:30", "mapEntry:10", "mapEntry:20", "version", "mapEntry:20"}));
}

struct RuleCase {
   const char* name;
   MatchRule rule;
};

class RouteMapMatchRuleTextTest : public ::testing::TestWithParam<RuleCase> {};

TEST_P(RouteMapMatchRuleTextTest, ReadsBackWhatItWrites) {
   const MatchRule& rule = GetParam().rule;
   EXPECT_EQ(MatchRule::fromStrep(rule.toStrep()), rule) << rule;
}

INSTANTIATE_TEST_SUITE_P(
    RouteMapMatchRule, RouteMapMatchRuleTextTest,
    ::testing::Values(
        RuleCase{"none", MatchRule()},
        RuleCase{"accessList",
                 MatchRule::forList(MatchOption::matchIpAddressAccessList, "it's \"quoted\"")},
        RuleCase{"ipv6PrefixList",
                 MatchRule::forList(MatchOption::matchIpv6AddressPrefixList, "PL6")},
        RuleCase{"tag", MatchRule::forTag(4294967295u)},
        RuleCase{"protocol", MatchRule::forProtocol(Protocol::attachedHost)},
        RuleCase{"metric", MatchRule::forMetric(Orb::MaybeU63::max)},
        RuleCase{"interface", MatchRule::forInterface(Nx::IntfId("Port-Channel5.100"))},
        RuleCase{"nexthop", MatchRule::forNexthop(Nx::IpGenAddr::fromStrep("2001:db8::1"))}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RouteMapMatchRuleTest, TextNamesTheOptionAndOnlyItsArgument) {
   EXPECT_EQ(MatchRule::forProtocol(Protocol::staticRoute).toStrep(),
             "Value('Routing::RouteMap::MatchRule', ** {'option': 'matchSourceProtocol', "
             "'protocol': 'static'})");
}

TEST(RouteMapMatchRuleTest, UnreadableTextNamesTheField) {
   try {
      MatchRule::fromStrep("Value('Routing::RouteMap::MatchRule', ** {'option': 'matchColor'})");
      FAIL() << "accepted";
   } catch (const Kel::ParseException& e) {
      EXPECT_EQ(e.field(), "option");
   }
   try {
      MatchRule::fromStrep(
          "Value('Routing::RouteMap::MatchRule', ** {'option': 'matchSourceProtocol', "
          "'protocol': '0'})");
      FAIL() << "accepted";
   } catch (const Kel::ParseException& e) {
      EXPECT_EQ(e.field(), "protocol");
   }
}

}  // namespace
