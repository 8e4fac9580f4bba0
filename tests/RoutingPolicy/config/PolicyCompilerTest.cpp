#include <gtest/gtest.h>

#include <string>

#include "PolicyCompilerTestHelper.h"

namespace {

using namespace compiler_test;

U32 continueTarget(const Kel::Ptr<RouteMapStatus const>& rm, U32 seqno) {
   const auto seq = rm->seqStatus(seqno);
   return seq && seq->continueSeq() ? seq->continueSeq()->seqno() : 0;
}

class PolicyCompilerTest : public ::testing::Test {
protected:
   World w;
};

TEST_F(PolicyCompilerTest, VersionChangeFoldsClausesAndOnlyModifiedSequencesAreCopied) {
   auto e10 = entry(w.config, "RM1", 10);
   e10->matchRuleIs(MatchRule::forTag(5));
   setTag(e10, 100);
   entry(w.config, "RM1", 20, false);
   w.start();
   const auto first = w.status("RM1");
   ASSERT_EQ(first->seqStatusSize(), 2u);
   EXPECT_EQ(first->undefinedReferences(), 0);
   EXPECT_EQ(evaluate(first, 5), (Outcome{true, 100}));
   EXPECT_EQ(evaluate(first, 6), (Outcome{false, 0}));

   // Nothing modified: no new status, and the trace says why.
   const U32 version = w.symbol("RM1")->version();
   {
      TraceCapture trace("RouteMapConfigSm");
      w.commit("RM1");
      EXPECT_GE(trace.find("No modified sequences, skipping symbol update"), 0);
   }
   EXPECT_EQ(w.symbol("RM1")->version(), version);
   EXPECT_EQ(w.status("RM1"), first);

   // Edits wait for the version; the untouched sequence is shared with the old status.
   e10->matchRuleIs(MatchRule::forTag(6));
   EXPECT_EQ(w.status("RM1"), first);
   w.commit("RM1");
   const auto second = w.status("RM1");
   EXPECT_EQ(w.symbol("RM1")->version(), version + 1);
   EXPECT_NE(second->seqStatus(10), first->seqStatus(10));
   EXPECT_EQ(second->seqStatus(20), first->seqStatus(20));
   EXPECT_EQ(evaluate(second, 6), (Outcome{true, 100}));
   EXPECT_EQ(evaluate(first, 6), (Outcome{false, 0})) << "a published status never changes";

   // A deleted sequence that was compiled is published at once; permit flips at the version.
   w.config->routeMap("RM1")->mapEntry(20)->permitIs(true);
   w.config->routeMap("RM1")->mapEntryDel(10);
   EXPECT_FALSE(w.status("RM1")->seqStatusHas(10));
   EXPECT_EQ(evaluate(w.status("RM1"), 6), (Outcome{false, 0}));
   w.commit("RM1");
   EXPECT_EQ(evaluate(w.status("RM1"), 6), (Outcome{true, 0}));

   // A sequence deleted before it was ever compiled leaves nothing to publish.
   const U32 beforeUncompiled = w.symbol("RM1")->version();
   entry(w.config, "RM1", 30);
   w.config->routeMap("RM1")->mapEntryDel(30);
   w.commit("RM1");
   EXPECT_EQ(w.symbol("RM1")->version(), beforeUncompiled);
   EXPECT_FALSE(w.sm->routeMapConfigSymbolSm("RM1")->seqConfigSm(30));
}

TEST_F(PolicyCompilerTest, ContinueTargetsFollowTheirTargetsAcrossCreationAndDeletion) {
   setContinue(entry(w.config, "RM1", 10), 30);  // explicit
   setContinue(entry(w.config, "RM1", 40), 0);   // plain
   entry(w.config, "RM1", 30);
   entry(w.config, "RM1", 60);
   w.start();
   EXPECT_EQ(continueTarget(w.status("RM1"), 10), 30u);
   EXPECT_EQ(continueTarget(w.status("RM1"), 40), 60u);

   // The explicit target goes: the origin, untouched itself, stops continuing at once.
   auto map = w.config->routeMap("RM1");
   map->mapEntryDel(30);
   EXPECT_EQ(continueTarget(w.status("RM1"), 10), 0u);
   // It comes back: the origin points at it again once it is compiled.
   entry(w.config, "RM1", 30);
   EXPECT_EQ(continueTarget(w.status("RM1"), 10), 0u);
   w.commit("RM1");
   EXPECT_EQ(continueTarget(w.status("RM1"), 10), 30u);

   // A sequence appears between a plain continue and its target; then the target goes.
   entry(w.config, "RM1", 50);
   w.commit("RM1");
   EXPECT_EQ(continueTarget(w.status("RM1"), 40), 50u);
   map->mapEntryDel(50);
   EXPECT_EQ(continueTarget(w.status("RM1"), 40), 60u);
   // On the highest sequence a plain continue leads nowhere.
   map->mapEntryDel(60);
   EXPECT_EQ(continueTarget(w.status("RM1"), 40), 0u);

   // Both at once in one version: a new sequence above 40 and a changed explicit target.
   entry(w.config, "RM1", 45);
   setContinue(map->mapEntry(10), 40);
   w.commit("RM1");
   EXPECT_EQ(continueTarget(w.status("RM1"), 10), 40u);
   EXPECT_EQ(continueTarget(w.status("RM1"), 40), 45u);
}

TEST_F(PolicyCompilerTest, ContinuedSequencesApplyTheirSettersInEvaluation) {
   auto e10 = entry(w.config, "RM1", 10);
   setContinue(e10, 0);
   auto e20 = entry(w.config, "RM1", 20);
   e20->matchRuleIs(MatchRule::forTag(7));
   setTag(e20, 70);
   setTag(entry(w.config, "RM1", 30), 30);
   w.start();
   // 10 continues to 20, which matches tag 7 only; otherwise 30 is reached through lower_bound.
   EXPECT_EQ(evaluate(w.status("RM1"), 7), (Outcome{true, 70}));
   w.config->routeMap("RM1")->mapEntryDel(20);
   EXPECT_EQ(evaluate(w.status("RM1"), 7), (Outcome{true, 30}));
}

TEST_F(PolicyCompilerTest, PendingSymbolUpdatesAreBatchedAndAConfigurationChangeWins) {
   auto e10 = entry(w.config, "RM1", 10);
   e10->matchRuleIs(MatchRule::forTag(5));
   w.start();
   auto mailbox = w.sm->rmConfigSymbolReactorColl()->reactor("RM1");
   const U32 version = w.symbol("RM1")->version();

   // Two symbol changes before the task runs: one rebuild, holding the latest.
   mailbox->pendingUpdateIs(10)->matcherChangeIs(MatchOption::matchTag,
                                                 tagMatcherFactory(Routing::RouteTag(8)));
   mailbox->pendingUpdateIs(10)->matcherChangeIs(MatchOption::matchTag,
                                                 tagMatcherFactory(Routing::RouteTag(9)));
   w.run();
   EXPECT_EQ(w.symbol("RM1")->version(), version + 1);
   EXPECT_EQ(evaluate(w.status("RM1"), 9).permit, true);
   EXPECT_TRUE(mailbox->pendingUpdates().empty());

   // A symbol change of the option waits; the configuration changes the same option and the
   // version moves on before the task: the configuration's matcher is what stays.
   mailbox->pendingUpdateIs(10)->matcherChangeIs(MatchOption::matchTag,
                                                 tagMatcherFactory(Routing::RouteTag(11)));
   e10->matchRuleIs(MatchRule::forTag(12));
   w.commit("RM1");
   w.run();
   EXPECT_TRUE(evaluate(w.status("RM1"), 12).permit);
   EXPECT_FALSE(evaluate(w.status("RM1"), 11).permit);
   EXPECT_TRUE(mailbox->pendingUpdates().empty());
}

// Features are kept by count per sequence rather than recomputed from every sequence, so the
// last sequence that has one must take it away, and a caller must follow its callee's.
TEST_F(PolicyCompilerTest, FeaturesFollowTheSequencesThatHaveThem) {
   entry(w.config, "A", 10)->subRouteMapIs("B");
   entry(w.config, "B", 10);
   entry(w.config, "B", 20);
   w.start();
   auto mailbox = w.sm->rmConfigSymbolReactorColl()->reactor("B");
   auto intf = [] { return interfaceMatcherFactory(Nx::IntfId("Ethernet1")); };
   mailbox->pendingUpdateIs(10)->matcherChangeIs(MatchOption::matchInterface, intf());
   mailbox->pendingUpdateIs(20)->matcherChangeIs(MatchOption::matchInterface, intf());
   w.run();
   EXPECT_TRUE(w.status("B")->features().matchInterface);
   EXPECT_TRUE(w.status("A")->features().matchInterface);

   w.config->routeMap("B")->mapEntryDel(10);
   w.run();
   EXPECT_TRUE(w.status("B")->features().matchInterface);
   w.config->routeMap("B")->mapEntryDel(20);
   w.run();
   EXPECT_FALSE(w.status("B")->features().matchInterface);
   EXPECT_FALSE(w.status("A")->features().matchInterface);
}

TEST_F(PolicyCompilerTest, UndefinedReferencesFollowCalledRouteMapsAsTheyComeAndGo) {
   entry(w.config, "A", 10)->subRouteMapIs("B");
   entry(w.config, "A", 20);
   w.start();
   EXPECT_EQ(w.status("A")->undefinedReferences(), 1);
   EXPECT_EQ(w.sm->routeMapConfigSymbolSm("A")->undefinedReferenceSeq(10), 1);

   // B calls C, which does not exist: A takes over what B lacks.
   entry(w.config, "B", 10)->subRouteMapIs("C");
   w.commit("B");
   w.run();
   EXPECT_EQ(w.status("B")->undefinedReferences(), 1);
   EXPECT_EQ(w.status("A")->undefinedReferences(), 1);
   EXPECT_EQ(w.status("A")->seqStatus(10)->subRouteMap(), w.status("B"));

   setTag(entry(w.config, "C", 10), 3);
   w.commit("C");
   w.run();
   EXPECT_EQ(w.status("B")->undefinedReferences(), 0);
   EXPECT_EQ(w.status("A")->undefinedReferences(), 0);
   EXPECT_TRUE(w.sm->routeMapConfigSymbolSm("A")->undefinedReferenceSeqs().empty());
   EXPECT_EQ(evaluate(w.status("A"), 0), (Outcome{true, 3}));

   // B goes away: A's call is undefined again, and a second sequence referencing nothing keeps
   // the mask to what the first one lacks.
   w.config->routeMapDel("B");
   w.run();
   EXPECT_EQ(w.status("A")->undefinedReferences(), 1);
   EXPECT_EQ(w.status("A")->seqStatus(10)->subRouteMap(), nullptr);

   // The call itself is removed: nothing undefined is left.
   w.config->routeMap("A")->mapEntry(10)->subRouteMapIs("");
   w.commit("A");
   EXPECT_EQ(w.status("A")->undefinedReferences(), 0);
}

TEST_F(PolicyCompilerTest, RemoveAndReAddInOneBurstLeavesOneFreshCompiler) {
   setTag(entry(w.config, "RM1", 10), 1);
   w.start();
   const auto symbol = w.symbol("RM1");
   const U32 notifierVersion = w.sm->routeMapUpdateNotifier()->version();
   TraceCapture trace("RouteMapConfigSm");
   w.config->routeMapDel("RM1");
   setTag(entry(w.config, "RM1", 10), 2);
   // Nothing is torn down before the task.
   EXPECT_TRUE(w.sm->routeMapConfigSymbolSm("RM1"));
   EXPECT_EQ(evaluate(w.status("RM1"), 0), (Outcome{true, 1}));
   w.run();

   const int deferDel = trace.find("deferring deletion of rmName:RM1");
   const int deferCreate = trace.find("deferring creation of rmName:RM1", deferDel);
   const int deleting = trace.find("deleting rmName:RM1", deferCreate);
   const int created = trace.find("deferred create rmName:RM1", deleting);
   EXPECT_GE(deferDel, 0);
   EXPECT_GT(deferCreate, deferDel);
   EXPECT_GT(deleting, deferCreate);
   EXPECT_GT(created, deleting);
   EXPECT_GT(trace.find("creating rmName:RM1", created), created);

   EXPECT_EQ(w.sm->routeMapConfigSymbolSms().size(), 1u);
   EXPECT_EQ(w.sm->routeMapConfigFilterSms().size(), 1u);
   EXPECT_TRUE(w.sm->pendingDeletes().empty());
   EXPECT_TRUE(w.sm->deferredCreatesColl().empty());
   EXPECT_EQ(w.sm->routeMapConfigSymbolSm("RM1")->rmSymbol(), symbol);
   EXPECT_EQ(evaluate(w.status("RM1"), 0), (Outcome{true, 2}));
   EXPECT_EQ(w.sm->routeMapUpdateNotifier()->version(), notifierVersion + 1);
   EXPECT_TRUE(w.filtered->routeMap("RM1")->mapEntryHas(10));
}

TEST_F(PolicyCompilerTest, CreatingARouteMapWhoseSymbolStillHoldsAStatusIsABug) {
   entry(w.config, "RM1", 10);
   const auto held = w.symbol("RM1");
   held->updateAndNotify(routeMapStatusFactory("RM1"));
   EXPECT_DEATH(w.start(), "Assertion `__null == rmSymbol->rmStatus\\(\\)' failed");
}

TEST_F(PolicyCompilerTest, DeleteTaskYieldsBetweenRouteMapsAndClearsStatuses) {
   for (const char* name : {"A", "B", "C"}) entry(w.config, name, 10);
   // A stale route map in the filtered output is removed at start-up.
   w.filtered->routeMapIs("STALE");
   w.start();
   EXPECT_FALSE(w.filtered->routeMapHas("STALE"));
   const auto b = w.symbol("B");

   w.scheduler->forceYieldIs(true);
   for (const char* name : {"A", "B", "C"}) w.config->routeMapDel(name);
   EXPECT_EQ(w.sm->pendingDeletes().size(), 3u);
   // One route map per run; having yielded after the last, the task runs once more for nothing.
   for (size_t left = 3; left > 0; --left) {
      ASSERT_TRUE(w.scheduler->runOne());
      EXPECT_EQ(w.sm->pendingDeletes().size(), left - 1);
      EXPECT_EQ(w.sm->routeMapConfigSymbolSms().size(), left - 1);
   }
   w.run();
   EXPECT_TRUE(w.sm->routeMapConfigSymbolSms().empty());
   EXPECT_TRUE(w.symbols->symbols().empty());
   EXPECT_EQ(b->rmStatus(), nullptr);
   EXPECT_FALSE(w.filtered->routeMapHas("B"));
}

TEST_F(PolicyCompilerTest, FilteredVersionWaitsWhileASequenceIsBlocked) {
   entry(w.config, "RM1", 10);
   entry(w.config, "RM1", 20);
   w.config->routeMap("RM1")->versionIs(4);
   w.start();
   auto filter = w.sm->routeMapConfigFilterSm("RM1");
   auto filteredMap = w.filtered->routeMap("RM1");
   auto notifier = w.sm->routeMapUpdateNotifier();
   EXPECT_EQ(filteredMap->version(), 4u);

   auto blocked = filter->routeMapBlockedSequenceList();
   blocked->sequenceIs(10, true);
   blocked->sequenceIs(20, true);
   const U32 before = notifier->version();
   {
      TraceCapture trace("RouteMapConfigSm");
      w.commit("RM1");
      EXPECT_GE(trace.find("version update is deferred"), 0);
   }
   EXPECT_EQ(filteredMap->version(), 4u);
   // Held back, the batch still tells sequences blocked elsewhere to look again: it may have
   // removed the call that closed their cycle.
   EXPECT_EQ(notifier->version(), before + 1);
   blocked->sequenceIs(10, false);
   EXPECT_EQ(filteredMap->version(), 4u) << "20 still blocks";
   // The last blocked sequence is deleted from the input: nothing blocks any more.
   w.config->routeMap("RM1")->mapEntryDel(20);
   EXPECT_FALSE(filteredMap->mapEntryHas(20));
   EXPECT_EQ(filteredMap->version(), 5u);
   EXPECT_EQ(notifier->version(), before + 2);
   filter->handleVersion();
   EXPECT_EQ(notifier->version(), before + 2);
}

TEST_F(PolicyCompilerTest, OpModeChangeReachesTheFilteredConfigurationAndEveryCompiler) {
   entry(w.config, "A", 10);
   entry(w.config, "B", 10);
   w.start();
   const auto alternate = Routing::RouteMap::RouteMapOpModeType::opModeAlternate;
   // A pending permit change is folded by the op-mode change's re-run, without a version.
   w.config->routeMap("B")->mapEntry(10)->permitIs(false);
   TraceCapture trace("RouteMapConfigSm");
   w.config->routeMapOpModeIs(alternate);
   EXPECT_EQ(w.filtered->routeMapOpMode(), alternate);
   EXPECT_EQ(w.sm->routeMapOpModeNotifier()->routeMapOpMode(), alternate);
   EXPECT_GE(trace.find("RouteMapOpMode updated to:"), 0);
   EXPECT_GE(trace.find("RouteMapConfigSymbolSm(A) handleVersion"), 0);
   EXPECT_FALSE(evaluate(w.status("B"), 0).permit);
}

}  // namespace
