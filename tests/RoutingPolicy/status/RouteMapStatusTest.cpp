#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Exception.h"
#include "tests/RoutingPolicy/PolicyTestBuilder.h"

namespace {

using namespace policy_test;

struct RmRecorder : RouteMapStatus::Reactor {
   std::vector<std::string> heard;
   void handleSeqStatus(U32 seqno) override { heard.push_back("seq:" + std::to_string(seqno)); }
   void handleUpdateFeaturesOnSeqStatusChange() override { heard.push_back("flag"); }
};

Kel::Ptr<RouteMapSeqStatus> interfaceSeq(U32 no) {
   auto s = routeMapSeqStatusFactory(no);
   s->matcherIs(MatchOption::matchInterface, interfaceMatcherFactory(Nx::IntfId("Ethernet1")));
   return s;
}

TEST(PolicyRouteMapStatusTest, SequenceChangesKeepFeaturesCurrentAndNotifyOnlyOnChange) {
   auto rm = routeMapStatusFactory("RM");
   EXPECT_EQ(rm->features(), RouteMapFeatures{});
   RmRecorder rec;
   rec.notifierIs(rm);

   auto s10 = interfaceSeq(10);
   rm->seqStatusIs(s10);
   EXPECT_TRUE(rm->features().matchInterface);
   rm->seqStatusIs(s10);
   EXPECT_EQ(rec.heard, std::vector<std::string>{"seq:10"}) << "the same object is no change";

   rm->seqStatusIs(routeMapSeqStatusFactory(10));
   EXPECT_FALSE(rm->features().matchInterface) << "replacement recomputes";

   rm->updateFeaturesOnSeqStatusChangeIs(false);
   rm->seqStatusIs(interfaceSeq(20));
   EXPECT_FALSE(rm->features().matchInterface) << "stale while bookkeeping is off";
   rm->updateFeatures();
   EXPECT_TRUE(rm->features().matchInterface);
   EXPECT_TRUE(rm->updateFeaturesOnSeqStatusChange());
   rm->seqStatusDel(20);
   EXPECT_FALSE(rm->features().matchInterface);
   EXPECT_EQ(rec.heard,
             (std::vector<std::string>{"seq:10", "seq:10", "flag", "seq:20", "flag", "seq:20"}));

   try {
      rm->seqStatusIs(nullptr);
      ADD_FAILURE();
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "null _seqStatus parameter to mutator for "
                   "Routing::Policy::RouteMapStatus::seqStatus not allowed\"");
   }
}

TEST(PolicyRouteMapStatusTest, SequenceInheritsTheFeaturesOfItsSubRouteMap) {
   auto sub = routeMapStatusFactory("SUB");
   sub->seqStatusIs(interfaceSeq(1));
   auto s = routeMapSeqStatusFactory(10);
   s->subRouteMapIs(sub);
   EXPECT_TRUE(s->getFeatures().matchInterface);
   EXPECT_EQ(s->subRouteMapRawPtr(), sub.get());

   s->matcherIs(MatchOption::matchTag, tagMatcherFactory(Routing::RouteTag(1)));
   EXPECT_TRUE(s->matcherHas(MatchOption::matchTag));
   s->matcherIs(MatchOption::matchTag, nullptr);
   EXPECT_FALSE(s->matcherHas(MatchOption::matchTag));
}

TEST(PolicyRouteMapStatusTest, NewFromSharesSequencesAndRecomputesFeatures) {
   auto src = RmBuilder("A").seq(10).build();
   src->seqStatusIs(interfaceSeq(20));
   src->undefinedReferencesIs(1);
   // Features the source claims but no sequence has must not survive the copy.
   RouteMapFeatures stale;
   stale.matchRouterId = true;
   src->featuresIs(stale);

   const auto copy = RouteMapStatus::newFrom(src, "B");
   EXPECT_EQ(copy->name(), "B");
   EXPECT_EQ(copy->seqStatus(10), src->seqStatus(10));
   EXPECT_TRUE(copy->features().matchInterface);
   EXPECT_FALSE(copy->features().matchRouterId);
   EXPECT_TRUE(copy->updateFeaturesOnSeqStatusChange());
   EXPECT_EQ(copy->undefinedReferences(), 1);

   auto s = routeMapSeqStatusFactory(10);
   s->matcherIs(MatchOption::matchTag, tagMatcherFactory(Routing::RouteTag(1)));
   s->matchActionIs(Acl::MatchPermit::deny);
   s->subInvertIs(true);
   s->continueSeqIs(src->seqStatus(20));
   const auto renumbered = RouteMapSeqStatus::newFrom(s, 15);
   EXPECT_EQ(renumbered->seqno(), 15u);
   EXPECT_EQ(renumbered->matcher(MatchOption::matchTag), s->matcher(MatchOption::matchTag));
   EXPECT_EQ(renumbered->matchAction(), Acl::MatchPermit::deny);
   EXPECT_TRUE(renumbered->subInvert());
}

TEST(PolicyRouteMapStatusTest, DeepCopyHasOwnSequencesSharedClausesAndNoContinues) {
   auto sub = RmBuilder("SUB").seq(1).build();
   auto src = RmBuilder("A").deny(10).matchTag(1).setTag(2).sub(sub, true).cont(20).seq(20).build();
   src->seqStatusIs(interfaceSeq(30));
   src->undefinedReferencesIs(0);

   const auto copy = src->deepCopy();
   ASSERT_EQ(copy->seqStatusSize(), 3u);
   const auto a = src->seqStatus(10);
   const auto b = copy->seqStatus(10);
   EXPECT_NE(a, b);
   EXPECT_EQ(b->matcher(MatchOption::matchTag), a->matcher(MatchOption::matchTag));
   EXPECT_EQ(b->setter(SetOption::setTag), a->setter(SetOption::setTag));
   EXPECT_EQ(b->subRouteMap(), sub);
   EXPECT_TRUE(b->subInvert());
   EXPECT_EQ(b->matchAction(), Acl::MatchPermit::deny);
   EXPECT_TRUE(a->continueSeq());
   EXPECT_FALSE(b->continueSeq());
   EXPECT_EQ(copy->features(), src->features());
   EXPECT_EQ(copy->undefinedReferences(), 255);

   Kel::ptrConstCast<RouteMapSeqStatus>(b)->matcherDelAll();
   EXPECT_TRUE(a->matcherHas(MatchOption::matchTag));
}

TEST(PolicyRouteMapStatusTest, DumpWritesSubRouteMapsInFullAndSharedSequencesOnce) {
   auto rm2 = RmBuilder("RM2").seq(5).matchTag(1).build();
   auto rm1 =
       RmBuilder("RM1").seq(10).sub(rm2).matchTag(7).setTag(8).cont(20).deny(20).sub(rm2).build();
   auto list = routeMapStatusListFactory();
   list->rmStatusIs(RmPrecedence::rmBased, rm1);
   list->rmStatusIs(RmPrecedence::ribOutStripAttributes, rm2);

   const std::string f = RouteMapFeatures{}.toStrep();
   Orb::DumpContext ctx;
   list->dumpState(ctx, 0);
   EXPECT_EQ(ctx.str(),
             "RouteMapStatusList #2\n"
             "  RouteMapStatus RM1 features=<" +
                 f +
                 ">\n"
                 "    RouteMapSeqStatus permit 10\n"
                 "      subRouteMap=RM2\n"
                 "        RouteMapStatus RM2 features=<" +
                 f +
                 ">\n"
                 "          RouteMapSeqStatus permit 5\n"
                 "            matchOption=matchTag TagMatcher tag 1\n"
                 "      matchOption=matchTag TagMatcher tag 7\n"
                 "      setOption=setTag TagSetter tag 8\n"
                 "      continueSeq=20\n"
                 "    RouteMapSeqStatus deny 20\n"
                 "      subRouteMap=RM2\n"
                 "        RouteMapStatus RM2 features=<" +
                 f +
                 ">\n"
                 "          RouteMapSeqStatus dumped at line 6\n"
                 "  RouteMapStatus RM2 features=<" +
                 f +
                 ">\n"
                 "    RouteMapSeqStatus dumped at line 6\n");

   Orb::DumpContext top;
   rm2->dumpState(top, 0);
   EXPECT_EQ(top.str(), "RouteMapStatus RM2 features=<" + f +
                            ">\n  RouteMapSeqStatus permit 5\n    matchOption=matchTag TagMatcher "
                            "tag 1\n");
}

}  // namespace
