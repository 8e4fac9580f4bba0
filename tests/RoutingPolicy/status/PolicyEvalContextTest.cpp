#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <string>

#include "Kel/Exception.h"
#include "tests/RoutingPolicy/PolicyTestBuilder.h"

namespace {

using namespace policy_test;

std::string rangeErrorOf(const std::function<void()>& f) {
   try {
      f();
   } catch (const Kel::RangeException& e) {
      return e.what();
   }
   return "no error";
}

class PolicyEvalContextTest : public ::testing::Test {
protected:
   Kel::Ptr<PolicyEvaluationLog> newLog() {
      return policyEvaluationLogFactory(RmBuilder("RM").build());
   }
   Kel::Ptr<PolicyEvalContext> ctx_ = policyEvalContextFactory();
};

TEST_F(PolicyEvalContextTest, SettingTheLogResetsTheStackOnlyWhenItChanges) {
   EXPECT_FALSE(ctx_->callStackPeek());
   ctx_->callStackPop();
   const auto a = newLog();
   const auto b = newLog();
   ctx_->logIs(a);
   ctx_->callStackPush(b);
   ctx_->logIs(a);
   EXPECT_EQ(ctx_->callStackSize(), 2u);
   EXPECT_EQ(ctx_->callStackPeek(), b);
   ctx_->logIs(b);
   EXPECT_EQ(ctx_->callStackSize(), 1u);
   EXPECT_EQ(ctx_->callStackPeek(), b);
   ctx_->callStackPop();
   EXPECT_FALSE(ctx_->callStackPeek());
}

TEST_F(PolicyEvalContextTest, IndicesOutsideTheOccupiedRangeAreRefused) {
   const auto a = newLog();
   ctx_->callStackPush(a);
   ctx_->callStackPush(a);
   EXPECT_EQ(ctx_->callStack(1), a);
   const std::string outOfRange = "linkstack index out of range";
   EXPECT_EQ(rangeErrorOf([&] { ctx_->callStack(2); }), outOfRange);
   EXPECT_EQ(rangeErrorOf([&] { ctx_->callStackIs(65535, a); }), outOfRange);
   EXPECT_EQ(rangeErrorOf([&] { ctx_->callStackDel(2); }), outOfRange);
   ctx_->callStackDel(0);
   EXPECT_EQ(rangeErrorOf([&] { ctx_->callStack(0); }), outOfRange);
   EXPECT_EQ(ctx_->callStack(1), a);
}

TEST_F(PolicyEvalContextTest, IndexSpaceFillsAndWraps) {
   const auto a = newLog();
   for (U32 i = 0; i < PolicyEvalContext::callStackCapacity; ++i) ctx_->callStackPush(a);
   EXPECT_EQ(rangeErrorOf([&] { ctx_->callStackPush(a); }), "linkstack index space full");
   // Freeing bottom slots lets the top index run past 65535 to 0.
   ctx_->callStackDel(0);
   ctx_->callStackDel(1);
   const auto last = newLog();
   const auto top = newLog();
   ctx_->callStackPush(last);
   ctx_->callStackPush(top);
   EXPECT_EQ(ctx_->callStack(65535), last);
   EXPECT_EQ(ctx_->callStack(0), top);
   EXPECT_EQ(ctx_->callStackPeek(), top);
   EXPECT_EQ(rangeErrorOf([&] { ctx_->callStackPush(a); }), "linkstack index space full");
}

std::string withoutAddresses(const std::string& text) {
   return std::regex_replace(text, std::regex("0x[0-9a-f]+"), "ADDR");
}

TEST(PolicyEvaluationLogTest, RendersInRouteMapOrderAndKeepsOneEntryPerSequence) {
   const auto sub = RmBuilder("SUB").seq(1).build();
   const auto rm = RmBuilder("RM1").seq(10).sub(sub).seq(20).matchTag(1).seq(30).build();
   const auto log = policyEvaluationLogFactory(rm);
   EXPECT_EQ(withoutAddresses(log->toStrep(1)),
             "   ADDR\n   Route Map Name: RM1\n   result was deny\n   end RM1\n");

   const auto s20 = log->addSeq(rm->seqStatus(20));
   s20->failedMatcherIs(MatchOption::matchTag);
   s20->permitResultIs(true);  // must not show: a failed matcher ends the entry
   const auto s10 = log->addSeq(rm->seqStatus(10));
   EXPECT_EQ(log->addSeq(rm->seqStatus(10)), s10);
   ASSERT_TRUE(s10->subPolicyEvaluationLog()) << "ready to be pushed for the sub call";
   EXPECT_EQ(s10->subPolicyEvaluationLog()->rmStatus(), sub);
   EXPECT_FALSE(s20->subPolicyEvaluationLog());
   s10->hadNoMatchersIs(true);
   s10->permitResultIs(true);
   s10->subRouteMapResultIs(true);
   s10->continueSeqIs(25);
   log->permitResultIs(true);

   EXPECT_EQ(withoutAddresses(log->toStrep(0)),
             "ADDR\n"
             "Route Map Name: RM1\n"
             "Matcher debug key: 10\n"
             "   ADDR\n"
             "   seqno: 10\n"
             "   The sequence had no matchers\n"
             "   Result: called a sub route map: \n"
             "      ADDR\n"
             "      Route Map Name: SUB\n"
             "      result was deny\n"
             "      end SUB\n"
             "   This sequence is permit\n"
             "   Continue triggered to seq 25\n"
             "Matcher debug key: 20\n"
             "   ADDR\n"
             "   seqno: 20\n"
             "   The following matcher failed:\n"
             "   matchTag\n"
             "result was permit\n"
             "end RM1\n");
   EXPECT_EQ(indent(2), "      ");

   EXPECT_EQ(rangeErrorOf([&] { log->seqIs(nullptr); }),
             "null _seq parameter to mutator for Routing::Policy::PolicyEvaluationLog::seq not "
             "allowed\"");
}

}  // namespace
