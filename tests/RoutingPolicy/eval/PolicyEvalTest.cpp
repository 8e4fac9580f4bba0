#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "FlightLog/FlightLog.h"
#include "Termout/RendererV2.h"
#include "tests/RoutingPolicy/PolicyTestBuilder.h"

namespace {

using namespace policy_test;

Kel::Ptr<RouteMapStatusList> listOf(
    std::vector<std::pair<RmPrecedence, Kel::Ptr<RouteMapStatus>>> rms) {
   auto list = routeMapStatusListFactory();
   for (auto& [p, rm] : rms) list->rmStatusIs(p, rm);
   return list;
}

Kel::Ptr<RouteMapStatusList> listOf(Kel::Ptr<RouteMapStatus> rm) {
   return listOf({{RmPrecedence::rmBased, std::move(rm)}});
}

// A sub route map that appends sequence 1 (distance 1) and then denies.
Kel::Ptr<RouteMapStatus> appendsThenDenies() {
   return RmBuilder("D").seq(1).setDistance(1).cont(2).deny(2).build();
}

struct EvalCase {
   const char* name;
   std::function<Kel::Ptr<RouteMapStatusList>()> list;
   U32 routeTag;
   bool permit;
   std::vector<U32> matched;  // sequence numbers in the order their setters are applied
   U32 tag;                   // result after eval; 999 when nothing was written
   U32 distance;
};

// clang-format off
const EvalCase kEvalCases[] = {
    {"EmptyListPermitsAndSetsNothing", [] { return routeMapStatusListFactory(); }, 3, true, {},
     999, 0},
    {"AllSequencesFailIsDefaultDeny",
     [] { return listOf(RmBuilder("M").seq(10).matchTag(1).seq(20).matchTag(2).build()); }, 3,
     false, {}, 999, 0},
    {"FirstMatchingPermitEndsTheWalk",
     [] {
        return listOf(
            RmBuilder("M").seq(10).matchTag(3).setTag(11).seq(20).setTag(21).build());
     },
     3, true, {10}, 11, 0},
    {"SequenceWithoutMatchersMatchesAnyRoute",
     [] {
        return listOf(RmBuilder("M").seq(10).matchTag(1).setTag(11).seq(20).setTag(21).build());
     },
     3, true, {20}, 21, 0},
    {"DenyAfterContinuedPermitDeniesAndAppliesNothing",
     [] { return listOf(RmBuilder("M").seq(10).setTag(11).cont(20).deny(20).build()); }, 3,
     false, {10}, 999, 0},
    {"ContinuePastTheLastSequencePermits",
     [] { return listOf(RmBuilder("M").seq(10).setTag(11).cont(100).seq(20).setTag(21).build()); },
     3, true, {10}, 11, 0},
    {"ContinueIntoAGapResumesAtTheNextHigherSequence",
     [] {
        return listOf(RmBuilder("M")
                          .seq(10).setTag(11).cont(15)
                          .seq(12).setTag(12)
                          .seq(20).setTag(21).setDistance(20)
                          .build());
     },
     3, true, {10, 20}, 21, 20},
    {"ContinuedPermitStandsWhenNothingLaterMatches",
     [] {
        return listOf(RmBuilder("M").seq(10).setTag(11).cont(20).deny(20).matchTag(99).build());
     },
     3, true, {10}, 11, 0},
    {"SequenceReachedByContinueOverridesEarlierSetter",
     [] {
        return listOf(RmBuilder("M")
                          .seq(10).setTag(11).setDistance(10).cont(20)
                          .seq(20).setTag(21)
                          .build());
     },
     3, true, {10, 20}, 21, 10},
    {"PermittingSubRouteMapAppliesBeforeItsCaller",
     [] {
        auto s = RmBuilder("S").seq(1).setTag(1).setDistance(1).build();
        return listOf(RmBuilder("M").seq(10).sub(s).setTag(11).build());
     },
     3, true, {1, 10}, 11, 1},
    {"InvertedPermittingSubRouteMapFailsTheSequence",
     [] {
        auto s = RmBuilder("S").seq(1).setDistance(1).build();
        return listOf(RmBuilder("M").seq(10).sub(s, true).setTag(11).seq(20).setTag(21).build());
     },
     3, true, {20}, 21, 0},
    {"InvertedDenyingSubRouteMapMatchesWithoutItsSetters",
     [] {
        return listOf(RmBuilder("M").seq(10).sub(appendsThenDenies(), true).setTag(11).build());
     },
     3, true, {10}, 11, 0},
    {"DenyingSubRouteMapDropsWhatItAppended",
     [] {
        return listOf(
            RmBuilder("M").seq(10).sub(appendsThenDenies()).setTag(11).seq(20).setTag(21).build());
     },
     3, true, {20}, 21, 0},
    {"NestedCutBackKeepsOnlyTheOuterMatches",
     [] {
        auto inner = RmBuilder("I").seq(1).setDistance(1).build();
        auto mid = RmBuilder("S").seq(2).sub(inner, true).seq(3).setDistance(3).build();
        return listOf(RmBuilder("M").seq(10).sub(mid).setTag(11).build());
     },
     3, true, {3, 10}, 11, 3},
    {"EmptySubRouteMapMatchesEvenInverted",
     [] {
        return listOf(RmBuilder("M").seq(10).sub(RmBuilder("E").build(), true).setTag(11).build());
     },
     3, true, {10}, 11, 0},
    {"EmptySubRouteMapMatchesUninverted",
     [] { return listOf(RmBuilder("M").seq(10).sub(RmBuilder("E").build()).setTag(11).build()); },
     3, true, {10}, 11, 0},
    {"DenySequenceMatchedThroughInvertedSubDenies",
     [] {
        return listOf(RmBuilder("M").deny(10).sub(appendsThenDenies(), true).seq(20).build());
     },
     3, false, {}, 999, 0},
    {"ListAppliesRouteMapsInPrecedenceOrder",
     [] {
        // Inserted out of order on purpose.
        auto b = RmBuilder("B").seq(30).setTag(31).build();
        auto a = RmBuilder("A").seq(10).setTag(11).setDistance(5).build();
        return listOf({{RmPrecedence::ribOutStripAttributes, b}, {RmPrecedence::rmBased, a}});
     },
     3, true, {10, 30}, 31, 5},
    {"DenyInAnEarlierRouteMapStopsTheList",
     [] {
        return listOf({{RmPrecedence::rmBased, RmBuilder("A").seq(10).cont(20).deny(20).build()},
                       {RmPrecedence::nexthopSelector, RmBuilder("B").seq(30).build()}});
     },
     3, false, {10}, 999, 0},
    {"EmptyRouteMapInAListIsSkipped",
     [] {
        return listOf({{RmPrecedence::nonRmBased, RmBuilder("E").build()},
                       {RmPrecedence::rmBased, RmBuilder("A").seq(30).setTag(31).build()}});
     },
     3, true, {30}, 31, 0},
};
// clang-format on

void PrintTo(const EvalCase& c, std::ostream* os) {
   *os << c.name;
}

class PolicyEvalCaseTest : public ::testing::TestWithParam<EvalCase> {};

TEST_P(PolicyEvalCaseTest, MatchesAndSets) {
   const EvalCase& c = GetParam();
   const auto list = c.list();
   const auto eval = policyEvalFactory();
   const MatchInput_ in = routeWithTag(c.routeTag);

   MatchedRouteMapSequences matched;
   EXPECT_EQ(eval->evalPolicyMatchers(&in, list, &matched), c.permit);
   std::vector<U32> seqnos;
   for (const auto& s : matched) seqnos.push_back(s->seqno());
   EXPECT_EQ(seqnos, c.matched);

   Result_ result;
   result.tagIs(Routing::RouteTag(999));
   EXPECT_EQ(eval->eval(&in, list, &result), c.permit);
   EXPECT_EQ(result.tag().value(), c.tag);
   EXPECT_EQ(result.preference().value(), c.distance);
}

INSTANTIATE_TEST_SUITE_P(Branches, PolicyEvalCaseTest, ::testing::ValuesIn(kEvalCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- The log that an evaluation fills --------------------------------------------------------

std::string withoutAddresses(const std::string& text) {
   return std::regex_replace(text, std::regex("0x[0-9a-f]+"), "ADDR");
}

class PolicyEvalLogTest : public ::testing::Test {
protected:
   // Run with a log on `rm`, returning the log.
   Kel::Ptr<PolicyEvaluationLog> run(const Kel::Ptr<RouteMapStatus>& rm, U32 tag, bool* permit) {
      auto context = policyEvalContextFactory();
      auto log = policyEvaluationLogFactory(rm);
      context->logIs(log);
      eval_->contextIs(context);
      const MatchInput_ in = routeWithTag(tag);
      Result_ result;
      *permit = eval_->eval(&in, listOf(rm), &result);
      EXPECT_EQ(context->callStackSize(), 1u) << "sub route map calls must pop what they push";
      return log;
   }
   Kel::Ptr<PolicyEval> eval_ = policyEvalFactory();
};

TEST_F(PolicyEvalLogTest, RecordsEverySequenceVisitedAndTheSubRouteMapCall) {
   auto sub = RmBuilder("SUB").seq(1).matchTag(7).seq(2).build();
   auto rm = RmBuilder("RM1")
                 .seq(10)
                 .matchTag(99)
                 .seq(20)
                 .sub(sub)
                 .cont(40)
                 .seq(30)
                 .setTag(1)
                 .deny(40)
                 .matchTag(98)
                 .build();
   bool permit = false;
   const auto log = run(rm, 5, &permit);
   EXPECT_TRUE(permit);
   EXPECT_EQ(withoutAddresses(log->toStrep(0)),
             "ADDR\n"
             "Route Map Name: RM1\n"
             "Matcher debug key: 10\n"
             "   ADDR\n"
             "   seqno: 10\n"
             "   The following matcher failed:\n"
             "   matchTag\n"
             "Matcher debug key: 20\n"
             "   ADDR\n"
             "   seqno: 20\n"
             "   The sequence had no matchers\n"
             "   Result: called a sub route map: \n"
             "      ADDR\n"
             "      Route Map Name: SUB\n"
             "      Matcher debug key: 1\n"
             "         ADDR\n"
             "         seqno: 1\n"
             "         The following matcher failed:\n"
             "         matchTag\n"
             "      Matcher debug key: 2\n"
             "         ADDR\n"
             "         seqno: 2\n"
             "         The sequence had no matchers\n"
             "         This sequence is permit\n"
             "      result was permit\n"
             "      end SUB\n"
             "   This sequence is permit\n"
             "   Sub route map inverted\n"
             "   Continue triggered to seq 40\n"
             "Matcher debug key: 40\n"
             "   ADDR\n"
             "   seqno: 40\n"
             "   The following matcher failed:\n"
             "   matchTag\n"
             "result was permit\n"
             "end RM1\n");

   Termout::RendererV2 r;
   log->toJson(r);
   EXPECT_EQ(
       r.str(),
       R"({"rmname":"RM1","result":true,"defaultDeny":false,)"
       R"("10":{"subRouteMapInvertResult":false,"hadNoMatchers":false,"matchActionDeny":false,)"
       R"("result":false,"continue":0,"failingMatcher":"TagMatcher tag 99"},)"
       R"("20":{"subRouteMapInvertResult":true,"hadNoMatchers":true,"matchActionDeny":false,)"
       R"("result":true,"continue":40,"subRouteMap":{"rmname":"SUB","result":true,)"
       R"("defaultDeny":false,"1":{"subRouteMapInvertResult":false,"hadNoMatchers":false,)"
       R"("matchActionDeny":false,"result":false,"continue":0,)"
       R"("failingMatcher":"TagMatcher tag 7"},"2":{"subRouteMapInvertResult":false,)"
       R"("hadNoMatchers":true,"matchActionDeny":false,"result":true,"continue":0}}},)"
       R"("40":{"subRouteMapInvertResult":false,"hadNoMatchers":false,"matchActionDeny":false,)"
       R"("result":false,"continue":0,"failingMatcher":"TagMatcher tag 98"}})");
}

TEST_F(PolicyEvalLogTest, InvertedDenyingSubLogsItsResultAndStopsThere) {
   auto rm = RmBuilder("RM1").seq(10).sub(appendsThenDenies(), true).build();
   bool permit = false;
   const auto log = run(rm, 5, &permit);
   EXPECT_TRUE(permit);
   const auto seqLog = log->seq(10);
   ASSERT_TRUE(seqLog);
   EXPECT_FALSE(seqLog->subRouteMapResult());
   EXPECT_TRUE(seqLog->subRouteMapInvertResult());
   EXPECT_TRUE(seqLog->permitResult());
   const auto subLog = seqLog->subPolicyEvaluationLog();
   ASSERT_TRUE(subLog);
   EXPECT_FALSE(subLog->permitResult());
   EXPECT_FALSE(subLog->defaultDeny()) << "the sub route map denied explicitly";
   EXPECT_TRUE(subLog->seq(2)->matchActionDeny());
   // A false sub result ends the sequence's text right after the sub log.
   EXPECT_TRUE(withoutAddresses(seqLog->toStrep(0)).ends_with("   result was deny\n   end D\n"));
}

TEST_F(PolicyEvalLogTest, FallingOffTheEndIsLoggedAsDefaultDeny) {
   bool permit = true;
   const auto log = run(RmBuilder("RM1").seq(10).matchTag(1).build(), 5, &permit);
   EXPECT_FALSE(permit);
   EXPECT_TRUE(log->defaultDeny());
   EXPECT_FALSE(log->permitResult());
   EXPECT_TRUE(
       withoutAddresses(log->toStrep(0)).ends_with("result was deny\ndefault denied\nend RM1\n"));
}

TEST_F(PolicyEvalLogTest, ExplicitDenyAfterContinueClearsTheRouteMapResult) {
   bool permit = true;
   const auto log = run(RmBuilder("RM1").seq(10).cont(20).deny(20).build(), 5, &permit);
   EXPECT_FALSE(permit);
   EXPECT_FALSE(log->permitResult());
   EXPECT_FALSE(log->defaultDeny());
   EXPECT_TRUE(log->seq(10)->permitResult());
   EXPECT_TRUE(log->seq(20)->matchActionDeny());
   EXPECT_NE(log->toStrep(0).find("Explicitly denied\n"), std::string::npos);
}

TEST(PolicyEvalTraceTest, FlightLogEntriesOnlyWhenAsked) {
   auto rm = RmBuilder("TRACED").seq(10).setTag(1).build();
   const auto list = listOf(rm);
   const auto eval = policyEvalFactory();
   const MatchInput_ in = routeWithTag(1);
   Result_ result;
   FlightLog::global().clear();
   eval->eval(&in, list, &result);
   EXPECT_EQ(FlightLog::global().size(), 0u);

   auto context = policyEvalContextFactory();
   context->enableQtIs(true);
   eval->contextIs(context);
   eval->eval(&in, list, &result);
   const auto entries = FlightLog::global().entries();
   ASSERT_EQ(entries.size(), 3u);
   EXPECT_TRUE(entries[0].starts_with("PolicyEval::evalRouteMapMatchers TRACED: permit ("));
   EXPECT_TRUE(entries[1].starts_with("PolicyEval::evalPolicyMatchers 1 route maps: permit ("));
   EXPECT_TRUE(entries[2].starts_with("PolicyEval::applyPolicySetters 1 sequences ("));
}

TEST(PolicyEvalSnapshotTest, KeepsMatchedSequencesInOrderAndAppliesThemLater) {
   auto rm = RmBuilder("M")
                 .seq(10)
                 .matchTag(5)
                 .setTag(11)
                 .cont(20)
                 .seq(20)
                 .matchTag(5)
                 .setDistance(20)
                 .build();
   const auto eval = policyEvalFactory();

   EXPECT_FALSE(eval->evalRouteMapMatchersSnapshot(routeWithTag(6), rm));
   EXPECT_FALSE(eval->evalRouteMapMatchersSnapshot(routeWithTag(6), RmBuilder("E").build()));

   const auto snapshot = eval->evalRouteMapMatchersSnapshot(routeWithTag(5), rm);
   ASSERT_TRUE(snapshot);
   ASSERT_EQ(snapshot->seqStatusSize(), 2u);
   EXPECT_EQ(snapshot->seqStatus(0)->seqno(), 10u);
   EXPECT_EQ(snapshot->seqStatus(1)->seqno(), 20u);

   rm->seqStatusDelAll();  // the snapshot holds its sequences itself
   Result_ result;
   eval->applyPolicySettersSnapshot(snapshot, result);
   EXPECT_EQ(result.tag().value(), 11u);
   EXPECT_EQ(result.preference().value(), 20u);
}

}  // namespace
