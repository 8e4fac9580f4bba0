#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Machine.h"
#include "RoutingPolicy/config/RouteMapSeqConfigSmBase.h"
#include "RoutingPolicy/eval/Policy.h"

namespace {

using namespace Routing::Policy;
using Routing::RouteProto;
using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::Protocol;
using Routing::RouteMap::SetOption;

// Death-test messages are regular expressions; assertion texts are full of metacharacters.
std::string literal(const std::string& text) {
   std::string out;
   for (char c : text) {
      if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) out += '\\';
      out += c;
   }
   return out;
}

// A concrete machine the way an agent writes one: it records what its entry tells it.
class RecordingSymbolSm : public RmSeqConfigSymbolSmBase {
public:
   using RmSeqConfigSymbolSmBase::RmSeqConfigSymbolSmBase;
   std::vector<std::string> heard;
   void handlePermit() override { heard.push_back("permit"); }
   void handleMatchRule(MatchOption o) override {
      heard.push_back("match:" + std::to_string(static_cast<U32>(o)));
   }
};

class PolicyConfigSeqSmTest : public ::testing::Test {
protected:
   Kel::Ptr<RmSeqConfigSymbolSmBase> machine(Kel::Ptr<MapEntry const> entry) {
      return rmSeqConfigSymbolSmBaseFactory("RM1", std::move(entry), symbol, mailbox);
   }

   Kel::Ptr<RouteMapSymbol> symbol = routeMapSymbolFactory("RM1");
   Kel::Ptr<RmConfigSymbolReactor> mailbox = rmConfigSymbolReactorFactory("RM1");
};

TEST_F(PolicyConfigSeqSmTest, InitialisationMakesFiveRecordsOfTheEntrysNumber) {
   auto sm = machine(Routing::RouteMap::mapEntryFactory(10));
   ASSERT_TRUE(sm->sequenceChange() && sm->sequenceChangeSym() && sm->matchSymSeq() &&
               sm->setSymSeq() && sm->subRmSymSeq());
   for (U32 no :
        {sm->sequenceChange()->seqno(), sm->sequenceChangeSym()->seqno(),
         sm->matchSymSeq()->seqno(), sm->setSymSeq()->seqno(), sm->subRmSymSeq()->seqno()}) {
      EXPECT_EQ(no, 10u);
   }
   EXPECT_TRUE(sm->hasNotificationActive());
   EXPECT_FALSE(sm->matchRuleSupported(MatchOption::matchTag));

   auto orphan = machine(nullptr);
   EXPECT_FALSE(orphan->seqConfig());
   EXPECT_EQ(orphan->sequenceChange()->seqno(), 0u);
   EXPECT_EQ(orphan->subRmSymSeq()->seqno(), 0u);
}

TEST_F(PolicyConfigSeqSmTest, RecordsAreKeptForTheSameNumberAndReplacedForAnother) {
   auto entry = Routing::RouteMap::mapEntryFactory(10);
   auto sm = machine(entry);
   const auto change = sm->sequenceChange();
   const auto changeSym = sm->sequenceChangeSym();
   const auto matchSeq = sm->matchSymSeq();
   const auto setSeq = sm->setSymSeq();
   const auto subSeq = sm->subRmSymSeq();
   change->permitChangeIs(true);

   sm->seqConfigIs(Routing::RouteMap::mapEntryFactory(10));
   EXPECT_EQ(sm->sequenceChange(), change);
   EXPECT_TRUE(sm->sequenceChange()->permitChange()) << "contents survive";
   EXPECT_EQ(sm->sequenceChangeSym(), changeSym);
   EXPECT_EQ(sm->matchSymSeq(), matchSeq);
   EXPECT_EQ(sm->setSymSeq(), setSeq);
   EXPECT_EQ(sm->subRmSymSeq(), subSeq);

   sm->seqConfigIs(Routing::RouteMap::mapEntryFactory(20));
   EXPECT_NE(sm->sequenceChange(), change);
   EXPECT_NE(sm->sequenceChangeSym(), changeSym);
   EXPECT_NE(sm->matchSymSeq(), matchSeq);
   EXPECT_NE(sm->setSymSeq(), setSeq);
   EXPECT_NE(sm->subRmSymSeq(), subSeq);
   EXPECT_EQ(sm->setSymSeq()->seqno(), 20u);
   EXPECT_FALSE(sm->sequenceChange()->permitChange());

   EXPECT_EQ(sm->matchSymSeqIs(20), sm->matchSymSeq());
   sm->subRmSymSeqDel();
   EXPECT_FALSE(sm->subRmSymSeq());
   EXPECT_EQ(sm->subRmSymSeqIs(30)->seqno(), 30u);
}

struct ModifiedCase {
   const char* name;
   std::function<void(RmSeqConfigSymbolSmBase&)> change;
   bool modified;
};

class PolicyConfigIsModifiedTest : public ::testing::TestWithParam<ModifiedCase> {};

TEST_P(PolicyConfigIsModifiedTest, OnlyChangesTheCompiledStatusLacksCount) {
   auto sm = rmSeqConfigSymbolSmBaseFactory("RM1", Routing::RouteMap::mapEntryFactory(10),
                                            routeMapSymbolFactory("RM1"),
                                            rmConfigSymbolReactorFactory("RM1"));
   GetParam().change(*sm);
   EXPECT_EQ(sm->isModified(), GetParam().modified);
}

INSTANTIATE_TEST_SUITE_P(
    PolicyConfigCases, PolicyConfigIsModifiedTest,
    ::testing::Values(
        ModifiedCase{"nothing", [](RmSeqConfigSymbolSmBase&) {}, false},
        ModifiedCase{"matcher",
                     [](RmSeqConfigSymbolSmBase& sm) {
                        sm.sequenceChange()->matcherChangeIs(MatchOption::matchTag);
                     },
                     true},
        ModifiedCase{"setter",
                     [](RmSeqConfigSymbolSmBase& sm) {
                        sm.sequenceChange()->setterChangeIs(SetOption::setTag);
                     },
                     true},
        ModifiedCase{"continue",
                     [](RmSeqConfigSymbolSmBase& sm) {
                        sm.sequenceChange()->continueChangeIs(continueChangeFactory(false));
                     },
                     true},
        ModifiedCase{"permit",
                     [](RmSeqConfigSymbolSmBase& sm) { sm.sequenceChange()->permitChangeIs(true); },
                     true},
        ModifiedCase{"subRouteMap",
                     [](RmSeqConfigSymbolSmBase& sm) {
                        sm.sequenceChangeSym()->subRouteMapChangeSymbolIs(
                            subRouteMapChangeSymbolFactory(nullptr));
                     },
                     true},
        ModifiedCase{"matcherSymbolOnly",
                     [](RmSeqConfigSymbolSmBase& sm) {
                        sm.sequenceChangeSym()
                            ->matcherChangeSymbolIs(MatchOption::matchIpAddressPrefixList)
                            ->matchSymbolIs(Routing::RouteMap::prefixListSymbolFactory("PL"));
                     },
                     false},
        ModifiedCase{"setterSymbolOnly",
                     [](RmSeqConfigSymbolSmBase& sm) {
                        sm.sequenceChangeSym()->setterChangeSymbolIs(SetOption::setTag);
                     },
                     false},
        ModifiedCase{"recordsDropped",
                     [](RmSeqConfigSymbolSmBase& sm) {
                        sm.sequenceChange()->permitChangeIs(true);
                        sm.sequenceChangeDel();
                        sm.sequenceChangeSymDel();
                     },
                     false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PolicyConfigSeqSmTest, EntryNotificationsReachTheMachineWhileItListens) {
   auto entry = Routing::RouteMap::mapEntryFactory(10);
   auto sm = Kel::create<RecordingSymbolSm>("RM1", entry, symbol, mailbox);
   entry->permitIs(false);
   entry->matchRuleIs(Routing::RouteMap::MatchRule::forTag(5));
   EXPECT_EQ(sm->heard, (std::vector<std::string>{"permit", "match:115"}));

   sm->hasNotificationActiveIs(false);
   entry->permitIs(true);
   sm->hasNotificationActiveIs(true);
   sm->seqConfigDel();
   EXPECT_FALSE(sm->seqConfig());
   entry->permitIs(false);
   EXPECT_EQ(sm->heard.size(), 2u) << "silent while off and after the entry was dropped";

   sm->seqConfigIs(entry);
   entry->permitIs(true);
   EXPECT_EQ(sm->heard.size(), 3u);
}

// A filter machine the way an agent supplies it, through its helper.
class TestFilterSm : public RmSeqConfigFilterSmBase {
public:
   using RmSeqConfigFilterSmBase::RmSeqConfigFilterSmBase;
   bool matchRuleSupported(MatchOption o) const override { return o == MatchOption::matchTag; }
   int permits = 0;
   void handlePermit() override { ++permits; }
};

class TestFilterHelper : public RmConfigFilterSmHelperBase {
public:
   Kel::Ptr<RmSeqConfigFilterSmBase> createSeqConfigSm(
       const Kel::String& rmName, Kel::Ptr<MapEntry const> seqConfig,
       Kel::Ptr<MapEntry> filteredSeqConfig, Routing::RouteMap::Config* filteredRmConfig,
       Kel::Ptr<RouteMapBlockedSequenceList> blocked,
       Kel::Ptr<RouteMapUpdateNotifier const> updates) override {
      return Kel::create<TestFilterSm>(rmName, std::move(seqConfig), std::move(filteredSeqConfig),
                                       filteredRmConfig, std::move(blocked), std::move(updates));
   }
};

TEST(PolicyConfigFilterSmTest, FilterMachineFollowsItsEntryAndSharesTheRouteMapsEntities) {
   auto input = Routing::RouteMap::configFactory();
   auto entry = input->routeMapIs("RM1")->mapEntryIs(10);
   auto filtered = Routing::RouteMap::configFactory();
   auto filteredEntry = filtered->routeMapIs("RM1")->mapEntryIs(10);
   auto blocked = routeMapBlockedSequenceListFactory("RM1");
   auto updates = routeMapUpdateNotifierFactory();
   Kel::Ptr<RmConfigFilterSmHelperBase> helper = Kel::makePtr<TestFilterHelper>();

   auto sm =
       helper->createSeqConfigSm("RM1", entry, filteredEntry, filtered.get(), blocked, updates);
   EXPECT_EQ(sm->filteredSeqConfig(), filteredEntry);
   EXPECT_EQ(sm->filteredRmConfig(), filtered.get());
   EXPECT_EQ(sm->routeMapBlockedSequenceList(), blocked);
   EXPECT_EQ(sm->routeMapUpdateNotifier(), updates);
   EXPECT_TRUE(sm->matchRuleSupported(MatchOption::matchTag));

   auto* concrete = static_cast<TestFilterSm*>(sm.get());
   entry->permitIs(false);
   EXPECT_EQ(concrete->permits, 1);
   sm->seqConfigDel();
   entry->permitIs(true);
   EXPECT_EQ(concrete->permits, 1);

   // The machine holds no reference to the filtered configuration.
   const U32 before = filtered->refCount();
   sm = nullptr;
   EXPECT_EQ(filtered->refCount(), before);
   EXPECT_TRUE(filtered->routeMapHas("RM1"));
}

TEST(PolicyConfigSharedEntitiesTest, NotifyOnlyOnChange) {
   struct BlockedRecorder : RouteMapBlockedSequenceList::Reactor {
      int heard = 0;
      void handleSequence(U32) override { ++heard; }
   } blockedRec;
   struct UpdateRecorder : RouteMapUpdateNotifier::Reactor {
      int heard = 0;
      void handleVersion() override { ++heard; }
   } updateRec;
   struct ModeRecorder : RouteMapOpModeNotifier::Reactor {
      int heard = 0;
      void handleRouteMapOpMode() override { ++heard; }
   } modeRec;
   auto blocked = routeMapBlockedSequenceListFactory("RM1");
   auto updates = routeMapUpdateNotifierFactory();
   auto mode = routeMapOpModeNotifierFactory();
   blockedRec.notifierIs(blocked);
   updateRec.notifierIs(updates);
   modeRec.notifierIs(mode);

   blocked->sequenceIs(10, true);
   blocked->sequenceIs(10, true);
   blocked->sequenceDel(20);
   EXPECT_TRUE(blocked->sequence(10));
   EXPECT_EQ(blockedRec.heard, 1);

   updates->versionInc(0);
   updates->versionIs(0);
   updates->versionInc(1);
   EXPECT_EQ(updates->version(), 1u);
   EXPECT_EQ(updateRec.heard, 1);

   mode->routeMapOpModeIs(Routing::RouteMap::RouteMapOpModeType::opModeDefault);
   mode->routeMapOpModeIs(Routing::RouteMap::RouteMapOpModeType::opModeAlternate);
   EXPECT_EQ(modeRec.heard, 1);
}

TEST(PolicyConfigListSymbolTest, OneSymbolPerNameAndTable) {
   auto v4 = Routing::RouteMap::prefixListSymbolDedupTableFactory();
   auto v6 = Routing::RouteMap::prefixListSymbolDedupTableFactory();
   auto a = getPrefixListSymbol("PL1", v4);
   EXPECT_EQ(getPrefixListSymbol("PL1", v4), a);
   EXPECT_NE(getPrefixListSymbol("PL1", v6).get(), a.get());
   EXPECT_EQ(v4->size(), 1u) << "the temporary of the second call left nothing behind";
   EXPECT_EQ(a->refCount(), 1u);

   auto acls = Routing::RouteMap::ipAccessListSymbolDedupTableFactory();
   auto acl = getIpAccessListSymbol("ACL1", acls);
   EXPECT_EQ(getIpAccessListSymbol("ACL1", acls), acl);
   EXPECT_NE(getIpAccessListSymbol("ACL2", acls), acl);
}

TEST(PolicyConfigProtocolTest, EveryProtocolMapsByNumber) {
   const std::vector<std::pair<U32, U32>> table = {{1, 1}, {2, 24}, {3, 31}, {4, 10}, {5, 4},
                                                   {6, 9}, {7, 15}, {8, 49}, {9, 52}};
   for (const auto& [from, to] : table) {
      EXPECT_EQ(static_cast<U32>(routeMapProtocolToRouteProto(static_cast<Protocol>(from))), to)
          << "protocol " << from;
   }
}

TEST(PolicyConfigProtocolDeathTest, UnknownProtocolStops) {
   const std::string text =
       "routeMapProtocolToRouteProto.*" +
       literal("Assertion `0 && \"Unsupported RouteMap Protocol match option\"' failed.");
   EXPECT_DEATH(routeMapProtocolToRouteProto(Protocol::protocolInvalid), text);
   EXPECT_DEATH(routeMapProtocolToRouteProto(static_cast<Protocol>(10)), text);
}

}  // namespace
