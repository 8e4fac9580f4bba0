#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Kel/Exception.h"
#include "RoutingPolicy/status/PublishedStatusList.h"
#include "tests/RoutingPolicy/PolicyTestBuilder.h"

namespace {

using namespace policy_test;

struct ListRecorder : RouteMapStatusList::Reactor {
   int heard = 0;
   void handleRmStatus(RmPrecedence) override { ++heard; }
};

Kel::Ptr<RouteMapStatus> rmWith(const char* name, Kel::Ptr<Matcher const> m) {
   auto rm = RmBuilder(name).seq(10).build();
   auto s = routeMapSeqStatusFactory(20);
   s->matcherIs(MatchOption::matchInterface, std::move(m));
   rm->seqStatusIs(s);
   return rm;
}

TEST(PolicyRouteMapStatusListTest, FeaturesFollowTheRouteMapsHeld) {
   auto list = routeMapStatusListFactory();
   EXPECT_EQ(list->features(), RouteMapFeatures{});
   ListRecorder rec;
   rec.notifierIs(list);

   const auto intf = rmWith("I", interfaceMatcherFactory(Nx::IntfId("Ethernet1")));
   list->rmStatusIs(RmPrecedence::rmBased, intf);
   list->rmStatusIs(RmPrecedence::nexthopSelector, RmBuilder("P").seq(1).build());
   EXPECT_TRUE(list->features().matchInterface);
   list->rmStatusIs(RmPrecedence::rmBased, intf);
   EXPECT_EQ(rec.heard, 2) << "the same route map again is no change";

   list->rmStatusIs(RmPrecedence::rmBased, RmBuilder("Q").seq(1).build());
   EXPECT_FALSE(list->features().matchInterface) << "a replaced route map takes its features";
   list->rmStatusIs(RmPrecedence::nonRmBased, intf);
   list->rmStatusIs(RmPrecedence::nonRmBased, nullptr);
   EXPECT_FALSE(list->rmStatusHas(RmPrecedence::nonRmBased));
   EXPECT_FALSE(list->features().matchInterface);
   EXPECT_EQ(rec.heard, 5);
}

TEST(PolicyRouteMapFeaturesTest, UpdateFromOnlyAddsFlags) {
   RouteMapFeatures a, b;
   a.matchPrefixDependent = true;
   b.hasAggLinkBandwidthSetter = true;
   a.updateFrom(b);
   a.updateFrom(RouteMapFeatures{});
   EXPECT_TRUE(a.matchPrefixDependent);
   EXPECT_TRUE(a.hasAggLinkBandwidthSetter);
   EXPECT_EQ(a.toStrep(),
             "matchPrefixDependent=yes; matchInterface=no; matchRouterId=no; "
             "matchOriginAsValidity=no; setMetricIgpNhCost=no; setOriginAsValidity=no; "
             "hasAggLinkBandwidthSetter=yes");
}

TEST(PolicyRouteMapFeaturesTest, ValueFormRoundTripsAndNamesTheBadField) {
   RouteMapFeatures f;
   f.matchRouterId = true;
   f.setOriginAsValidity = true;
   const std::string text = f.valueToStrep();
   EXPECT_EQ(text,
             "Value('Routing::Policy::RouteMapFeatures', ** {'matchPrefixDependent': False, "
             "'matchInterface': False, 'matchRouterId': True, 'matchOriginAsValidity': False, "
             "'setMetricIgpNhCost': False, 'setOriginAsValidity': True, "
             "'hasAggLinkBandwidthSetter': False})");
   EXPECT_EQ(RouteMapFeatures::valueFromStrep(text), f);

   const std::pair<std::string, std::string> bad[] = {
       {"'matchRouterId': True", "'matchRouterId': yes"},
       {"'matchInterface': False, 'matchRouterId': True",
        "'matchRouterId': True, 'matchInterface': False"},
   };
   const char* fields[] = {"matchRouterId", "matchInterface"};
   for (std::size_t i = 0; i < std::size(bad); ++i) {
      std::string t = text;
      t.replace(t.find(bad[i].first), bad[i].first.size(), bad[i].second);
      try {
         RouteMapFeatures::valueFromStrep(t);
         ADD_FAILURE() << t;
      } catch (const Kel::ParseException& e) {
         EXPECT_EQ(e.field(), fields[i]) << e.what();
      }
   }
}

TEST(PolicyRmPrecedenceTest, RangeOrderAndNames) {
   EXPECT_EQ(RmPrecedence(12u), RmPrecedence::ribInSwapPathAttrsNh);
   const char* rangeText =
       "RmPrecedence::value < RmPrecedence::min or > RmPrecedence::max not allowed";
   try {
      RmPrecedence(13u);
      ADD_FAILURE();
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(), rangeText);
   }
   try {
      RmPrecedence::fromStrep("13");
      ADD_FAILURE();
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(), rangeText);
   }
   try {
      RmPrecedence::fromStrep("rmbased");
      ADD_FAILURE();
   } catch (const Kel::ParseException& e) {
      EXPECT_EQ(e.field(), "value");
   }
   EXPECT_TRUE(RmPrecedence(RmPrecedence::missingMedRmBased) < RmPrecedence::rmBased);
   EXPECT_TRUE(RmPrecedence(RmPrecedence::rmBased) < RmPrecedence::rmDefaultOriginate);
   EXPECT_EQ(stringValue(RmPrecedence::sendOriginAsValidity), "sendOriginAsValidity");
   EXPECT_EQ(RmPrecedence::fromStrep("mmodeReceiver"), RmPrecedence::mmodeReceiver);
   EXPECT_EQ(RmPrecedence::enumElemCount, 13u);
}

// A published snapshot lives exactly as long as the newest or a reader needs it: the compiled
// route map it holds is freed neither early (a reader would evaluate freed memory) nor never (a
// daemon under a steady stream of changes would grow without bound).
TEST(PolicyPublishedStatusListTest, SnapshotsLiveWhileTheNewestOrAReaderHoldsThem) {
   auto listWith = [](const Kel::Ptr<RouteMapStatus const>& rm) {
      auto l = routeMapStatusListFactory();
      l->rmStatusIs(RmPrecedence::rmBased, rm);
      return Kel::Ptr<RouteMapStatusList const>(l);
   };
   const Kel::Ptr<RouteMapStatus const> v1 = RmBuilder("RM").seq(10).build();
   const Kel::Ptr<RouteMapStatus const> v2 = RmBuilder("RM").seq(20).build();
   const Kel::Ptr<RouteMapStatus const> v3 = RmBuilder("RM").seq(30).build();
   const U32 alone = v1->refCount();
   auto published = publishedStatusListFactory(listWith(v1), 1);

   auto reader = std::make_unique<PublishedStatusList::Reader>(published);
   PublishedStatusList::Reader idle(published);  // never picks: holds nothing
   EXPECT_EQ(reader->pick().version(), 1u);
   published->publish(listWith(v2), 2);
   EXPECT_EQ(published->retiredCount(), 1u) << "the reader still evaluates version 1";
   EXPECT_GT(v1->refCount(), alone);

   EXPECT_EQ(reader->pick().version(), 2u);
   EXPECT_EQ(published->reclaim(), 0u);
   EXPECT_EQ(v1->refCount(), alone) << "version 1 is freed once the reader moved on";

   // However many versions pass, one reader holds at most one retired snapshot.
   for (U64 v = 3; v < 50; ++v) published->publish(listWith(v % 2 ? v3 : v2), v);
   EXPECT_EQ(published->retiredCount(), 1u);
   EXPECT_EQ(reader->pick().version(), 49u);
   EXPECT_EQ(published->newest().version(), 49u);
   reader.reset();
   EXPECT_EQ(published->reclaim(), 0u);
   EXPECT_EQ(published->readerCount(), 1u);
}

}  // namespace
