#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/Trace.h"
#include "RoutingPolicy/config/RouteMapLoopDetect.h"

namespace {

using namespace Routing::Policy;

class PolicyConfigLoopDetectTest : public ::testing::Test {
protected:
   void SetUp() override {
      Kel::Trace::sinkIs([this](std::string_view l) { lines.emplace_back(l); });
      Kel::Trace::levelIs("RouteMapLoopDetect", 9);
   }
   void TearDown() override {
      Kel::Trace::levelIs("RouteMapLoopDetect", -1);
      Kel::Trace::sinkIs({});
   }

   // Sequence 10, 20, ... of `from` call the given route maps in turn.
   void calls(const std::string& from, std::vector<std::string> to) {
      auto map = config->routeMapIs(from);
      U32 seqno = 10;
      for (const auto& name : to) {
         map->mapEntryIs(seqno)->subRouteMapIs(name);
         seqno += 10;
      }
   }
   bool hasLoops(const std::string& from, const std::string& to) {
      return RouteMapLoopDetect(config.get()).hasLoops(from, to);
   }
   int linesWith(const std::string& text) const {
      return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const auto& l) {
         return l.find(text) != std::string::npos;
      }));
   }

   Kel::Ptr<Routing::RouteMap::Config> config = Routing::RouteMap::configFactory();
   std::vector<std::string> lines;
};

TEST_F(PolicyConfigLoopDetectTest, CallingBackIntoTheCallerIsALoop) {
   calls("A", {"B"});
   calls("B", {});
   EXPECT_TRUE(hasLoops("B", "A"));
   EXPECT_EQ(linesWith(" detected loop at B"), 1);
   EXPECT_FALSE(hasLoops("A", "B"));
}

TEST_F(PolicyConfigLoopDetectTest, LongerChainsAndSelfCalls) {
   calls("A", {"B"});
   calls("B", {"X", "C"});  // X is not configured and is skipped
   calls("C", {});
   EXPECT_TRUE(hasLoops("C", "A"));
   EXPECT_TRUE(hasLoops("C", "C"));
   EXPECT_FALSE(hasLoops("A", "C"));
}

TEST_F(PolicyConfigLoopDetectTest, DiamondIsSearchedOnceAndHasNoLoop) {
   calls("A", {"B", "C"});
   calls("B", {"D"});
   calls("C", {"D"});
   calls("D", {});
   calls("E", {});
   calls("F", {"E"});  // something calls E, so the question needs the search
   EXPECT_FALSE(hasLoops("E", "A"));
   EXPECT_EQ(linesWith(" searching D"), 1);
   EXPECT_EQ(linesWith("detected loop"), 0);
}

TEST_F(PolicyConfigLoopDetectTest, UndefinedRouteMapsCloseNoLoop) {
   calls("A", {"B"});
   EXPECT_FALSE(hasLoops("B", "A")) << "B calls nothing until it is configured";
   EXPECT_FALSE(hasLoops("A", "B"));
   EXPECT_FALSE(hasLoops("A", "NOPE"));
   EXPECT_FALSE(RouteMapLoopDetect().hasLoops("A", "A"));
}

TEST(PolicyConfigLoopDetectValueTest, TextFormAndEqualityFollowTheConfiguration) {
   auto config = Routing::RouteMap::configFactory();
   const RouteMapLoopDetect d(config.get());
   EXPECT_EQ(RouteMapLoopDetect::fromStrep(d.toStrep()), d);
   EXPECT_NE(RouteMapLoopDetect(), d);
   EXPECT_EQ(RouteMapLoopDetect().toStrep(),
             "Value('Routing::Policy::RouteMapLoopDetect', ** {'config': 0x0})");
   try {
      RouteMapLoopDetect::fromStrep(
          "Value('Routing::Policy::RouteMapLoopDetect', ** {'config': 12})");
      ADD_FAILURE();
   } catch (const Kel::ParseException& e) {
      EXPECT_EQ(e.field(), "config");
   }
}

TEST(PolicyConfigContinueSeqMapTest, AbsentAndPlainContinueBothReadZero) {
   struct Recorder : ContinueSeqMap::Reactor {
      std::vector<U32> heard;
      void handleContinueSeq(U32 origin) override { heard.push_back(origin); }
   };
   auto map = continueSeqMapFactory("RM1");
   Recorder rec;
   rec.notifierIs(map);
   EXPECT_EQ(map->continueSeq(7), 0u);
   map->continueSeqDel(7);
   EXPECT_TRUE(rec.heard.empty());

   map->continueSeqIs(30, 0);
   map->continueSeqIs(10, 40);
   map->continueSeqIs(10, 40);
   EXPECT_TRUE(map->continueSeqHas(30));
   EXPECT_EQ(map->continueSeq(30), 0u);
   EXPECT_EQ(map->continueSeq(10), 40u);
   std::vector<std::pair<U32, U32>> entries(map->continueSeqs().begin(), map->continueSeqs().end());
   EXPECT_EQ(entries, (std::vector<std::pair<U32, U32>>{{10, 40}, {30, 0}}));
   map->continueSeqDelAll();
   EXPECT_FALSE(map->continueSeqHas(10));
   EXPECT_EQ(rec.heard, (std::vector<U32>{30, 10, 10, 30}));
}

}  // namespace
