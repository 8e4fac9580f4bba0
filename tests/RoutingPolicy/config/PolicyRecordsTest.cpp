#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Kel/Exception.h"
#include "RoutingPolicy/config/Policy.h"
#include "RoutingPolicy/eval/Policy.h"

namespace {

using namespace Routing::Policy;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::SetOption;
using Mod = ModifiedRouteMapSeqStatus;

TEST(PolicyConfigModifiedListTest, WalksFromTheHighestSequenceDown) {
   auto list = modifiedRouteMapSeqStatusListFactory();
   for (U32 no : {10u, 30u, 20u}) {
      list->seqStatusIs(Mod(DescendingSeqnoKey(no), routeMapSeqStatusFactory(no)));
   }
   std::vector<U32> order;
   for (const auto& [key, value] : list->seqStatuses()) order.push_back(key.seqno());
   EXPECT_EQ(order, (std::vector<U32>{30, 20, 10}));

   // Replacing under a key keeps one entry; an absent key reads as the default value.
   auto replacement = routeMapSeqStatusFactory(20);
   list->seqStatusIs(Mod(DescendingSeqnoKey(20), replacement));
   EXPECT_EQ(list->size(), 3u);
   EXPECT_EQ(list->seqStatus(DescendingSeqnoKey(20)).seqStatus(), replacement);
   EXPECT_TRUE(!list->seqStatus(DescendingSeqnoKey(40)));

   EXPECT_LT(DescendingSeqnoKey(30), DescendingSeqnoKey(10));
   EXPECT_EQ(DescendingSeqnoKey(30).toStrep(), "30");
   EXPECT_EQ(DescendingSeqnoKey::fromStrep("4294967295").seqno(), 4294967295u);
   EXPECT_THROW(DescendingSeqnoKey::fromStrep("-1"), Kel::ParseException);
}

struct MaskCase {
   const char* name;
   U8 undefinedBefore;
   bool subDefined;
   U8 subMask;
   U8 undefinedAfter;
   U8 updateAfter;
};

class PolicyConfigMaskTest : public ::testing::TestWithParam<MaskCase> {};

TEST_P(PolicyConfigMaskTest, SubRouteMapDecidesTheCallersMasks) {
   const MaskCase& c = GetParam();
   Kel::Ptr<RouteMapStatus> sub;
   if (c.subDefined) {
      sub = routeMapStatusFactory("SUB");
      sub->undefinedReferencesIs(c.subMask);
   }
   Mod m(DescendingSeqnoKey(10), routeMapSeqStatusFactory(10), c.undefinedBefore, 0);
   m.setUndefinedFromSubRouteMap(sub);
   EXPECT_EQ(m.undefinedReferences(), c.undefinedAfter);
   EXPECT_EQ(m.referenceUpdateMask(), c.updateAfter);
   EXPECT_TRUE(m.undefinedReferenceRequiresUpdate());
}

INSTANTIATE_TEST_SUITE_P(
    PolicyConfigMasks, PolicyConfigMaskTest,
    ::testing::Values(MaskCase{"missing", 0b000, false, 0, 0b001, 0b001},
                      MaskCase{"missingKeepsOtherBits", 0b010, false, 0, 0b011, 0b001},
                      MaskCase{"definedClearsBit0", 0b011, true, 0, 0b010, 0b001},
                      MaskCase{"undefinedBelowPropagates", 0b001, true, 0b100, 0b101, 0b100},
                      MaskCase{"undefinedBelowLeavesBit0", 0b000, true, 0b100, 0b100, 0b100},
                      // A route map not compiled yet carries every bit.
                      MaskCase{"notCompiledYet", 0b000, true, 0xff, 0xff, 0xff}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PolicyConfigModifiedTest, EqualityIsByStatusIdentity) {
   auto a = routeMapSeqStatusFactory(10);
   auto b = routeMapSeqStatusFactory(10);
   EXPECT_EQ(Mod(DescendingSeqnoKey(10), a), Mod(DescendingSeqnoKey(10), a));
   EXPECT_NE(Mod(DescendingSeqnoKey(10), a), Mod(DescendingSeqnoKey(10), b));
   EXPECT_NE(Mod(DescendingSeqnoKey(10), a, 1), Mod(DescendingSeqnoKey(10), a, 0));

   EXPECT_TRUE(!Mod());
   EXPECT_FALSE(!Mod(DescendingSeqnoKey(10)));
   Mod onlyMask;
   onlyMask.setSubRouteMap(false);
   EXPECT_FALSE(!onlyMask) << "an update bit alone is not the default";

   EXPECT_EQ(Mod().toStrep(),
             "Value('Routing::Policy::ModifiedRouteMapSeqStatus', ** {'key': 0, 'seqStatus': "
             "None, 'undefinedReferences': 0, 'referenceUpdateMask': 0})");
   std::ostringstream address;
   address << a;
   EXPECT_EQ(Mod(DescendingSeqnoKey(20), a, 5, 1).toStrep(),
             "Value('Routing::Policy::ModifiedRouteMapSeqStatus', ** {'key': 20, 'seqStatus': " +
                 address.str() + ", 'undefinedReferences': 5, 'referenceUpdateMask': 1})");
}

TEST(PolicyConfigPendingTest, SubRouteMapFlagAloneIsPending) {
   auto p = pendingSymbolUpdateFactory(10);
   EXPECT_TRUE(p->hasNoPendingChanges());
   p->hasSubRouteMapUpdateIs(true);
   EXPECT_FALSE(p->hasNoPendingChanges()) << "a null sub-route-map status is still an update";
   p->hasSubRouteMapUpdateIs(false);
   p->setterChangeIs(SetOption::setTag, tagSetterFactory(Routing::RouteTag(1)));
   EXPECT_FALSE(p->hasNoPendingChanges());
   p->setterChangeIs(SetOption::setTag, nullptr);
   EXPECT_TRUE(p->hasNoPendingChanges());
}

struct MailboxRecorder : RmConfigSymbolReactor::Reactor {
   std::vector<std::string> heard;
   void handleReevaluate() override { heard.push_back("reevaluate"); }
   void handlePendingUpdate(U32 seqno) override {
      heard.push_back("pending:" + std::to_string(seqno));
   }
};

class PolicyConfigMailboxTest : public ::testing::Test {
protected:
   void SetUp() override { rec.notifierIs(mailbox); }
   Kel::Ptr<RmConfigSymbolReactor> mailbox = rmConfigSymbolReactorFactory("RM1");
   MailboxRecorder rec;
};

TEST_F(PolicyConfigMailboxTest, ReevaluateWrapsAndNotifiesOnlyOnChange) {
   mailbox->reevaluateIs(255);
   mailbox->reevaluateInc(0);
   mailbox->reevaluateIs(255);
   EXPECT_EQ(rec.heard.size(), 1u);
   mailbox->reevaluateInc(1);
   EXPECT_EQ(mailbox->reevaluate(), 0);
   mailbox->reevaluateInc(2);
   EXPECT_EQ(mailbox->reevaluate(), 2);
   EXPECT_EQ(rec.heard, (std::vector<std::string>{"reevaluate", "reevaluate", "reevaluate"}));
}

TEST_F(PolicyConfigMailboxTest, PendingUpdatesAreMadeOnceAndSupersededPerOption) {
   auto tag = tagMatcherFactory(Routing::RouteTag(1));
   auto p = mailbox->pendingUpdateIs(10);
   EXPECT_EQ(mailbox->pendingUpdateIs(10), p);
   p->matcherChangeIs(MatchOption::matchTag, tag);
   p->matcherChangeIs(MatchOption::matchIpAddressPrefixList, tag);
   p->setterChangeIs(SetOption::setTag, tagSetterFactory(Routing::RouteTag(2)));

   mailbox->removePendingMatcherForSeq(10, MatchOption::matchTag);
   EXPECT_FALSE(p->matcherChangeHas(MatchOption::matchTag));
   EXPECT_TRUE(p->matcherChangeHas(MatchOption::matchIpAddressPrefixList));
   mailbox->removePendingSetterForSeq(10, SetOption::setTag);
   EXPECT_FALSE(p->setterChangeHas(SetOption::setTag));

   // A sequence without a pending update must not get one.
   mailbox->removePendingMatcherForSeq(20, MatchOption::matchTag);
   mailbox->removePendingSetterForSeq(20, SetOption::setTag);
   EXPECT_FALSE(mailbox->pendingUpdate(20));

   mailbox->pendingUpdateDel(10);
   mailbox->pendingUpdateDel(10);
   EXPECT_EQ(rec.heard, (std::vector<std::string>{"pending:10", "pending:10"}));
}

TEST(PolicyConfigMailboxCollTest, OneMailboxPerRouteMap) {
   auto coll = rmConfigSymbolReactorCollFactory();
   auto a = coll->reactorIs("A");
   EXPECT_EQ(coll->reactorIs("A"), a);
   EXPECT_EQ(a->name(), "A");
   EXPECT_NE(coll->reactorIs("B"), a);
   coll->reactorDel("A");
   EXPECT_FALSE(coll->reactor("A"));
   EXPECT_NE(coll->reactorIs("A").get(), nullptr);
}

TEST(PolicyConfigSymbolSeqTest, FollowersHearOnlyRealChanges) {
   struct SubRecorder : SubRouteMapSymbolSeq::Reactor {
      int heard = 0;
      void handleSymbol() override { ++heard; }
   };
   struct ListRecorder : MatchSymbolSeq::Reactor {
      std::vector<MatchOption> heard;
      void handlePolicySymbolList(MatchOption o) override { heard.push_back(o); }
   };

   auto subSeq = subRouteMapSymbolSeqFactory(10);
   SubRecorder subRec;
   subRec.notifierIs(subSeq);
   auto sym = routeMapSymbolFactory("SUB");
   subSeq->symbolIs(sym);
   subSeq->symbolIs(sym);
   EXPECT_EQ(subRec.heard, 1);
   subSeq->symbolIs(nullptr);
   EXPECT_EQ(subRec.heard, 2);

   auto matchSeq = matchSymbolSeqFactory(10);
   ListRecorder listRec;
   listRec.notifierIs(matchSeq);
   auto list = policyMatchSymbolListFactory(MatchOption::matchIpAddressPrefixList);
   list->policySymbolIs(Routing::RouteMap::prefixListSymbolFactory("PL1"));
   EXPECT_EQ(list->policySymbols(), 1u);
   matchSeq->policySymbolListIs(MatchOption::matchIpAddressPrefixList, list);
   matchSeq->policySymbolListIs(MatchOption::matchIpAddressPrefixList, list);
   matchSeq->policySymbolListIs(MatchOption::matchIpAddressPrefixList, nullptr);
   EXPECT_FALSE(matchSeq->policySymbolListHas(MatchOption::matchIpAddressPrefixList));
   EXPECT_EQ(listRec.heard, (std::vector<MatchOption>{MatchOption::matchIpAddressPrefixList,
                                                      MatchOption::matchIpAddressPrefixList}));
}

TEST(PolicyConfigSymbolSetTest, SymbolSetsRefuseNullWithTheStandardText) {
   auto expectRefusal = [](auto&& call, const std::string& text) {
      try {
         call();
         ADD_FAILURE() << "null accepted: " << text;
      } catch (const Kel::RangeException& e) {
         EXPECT_EQ(e.what(), text);
      }
   };
   expectRefusal([] { policyMatchSymbolListFactory(MatchOption::matchTag)->policySymbolIs({}); },
                 "null _policySymbol parameter to mutator for "
                 "Routing::Policy::PolicyMatchSymbolList::policySymbol not allowed\"");
   expectRefusal([] { policySetSymbolListFactory(SetOption::setTag)->policySymbolIs({}); },
                 "null _policySymbol parameter to mutator for "
                 "Routing::Policy::PolicySetSymbolList::policySymbol not allowed\"");
   expectRefusal([] { matcherChangeSymbolFactory(MatchOption::matchTag)->matchSymbolIs({}); },
                 "null _matchSymbol parameter to mutator for "
                 "Routing::Policy::MatcherChangeSymbol::matchSymbol not allowed\"");
   expectRefusal([] { setterChangeSymbolFactory(SetOption::setTag)->setSymbolIs({}); },
                 "null _setSymbol parameter to mutator for "
                 "Routing::Policy::SetterChangeSymbol::setSymbol not allowed\"");
}

}  // namespace
