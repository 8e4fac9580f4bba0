#include "Orb/Task.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class OrbTaskTest : public ::testing::Test {
protected:
   void TearDown() override { Kel::System::timeSourceIs({}); }
   Kel::Ptr<Orb::Task> task(std::string name, Orb::TaskPriority p) {
      return Orb::taskFactory(sched, name, p, [this, name] { log.push_back(name); });
   }
   Kel::Ptr<Orb::TaskScheduler> sched = Orb::taskSchedulerFactory();
   std::vector<std::string> log;
};

TEST_F(OrbTaskTest, HigherPriorityFirstThenFirstComeFirstServed) {
   auto low1 = task("low1", 1), high = task("high", 5), low2 = task("low2", 1),
        mid = task("mid", 2);
   low1->schedule();
   high->schedule();
   low2->schedule();
   mid->schedule();
   low1->schedule();  // already queued: keeps its place, runs once
   EXPECT_EQ(sched->scheduledCount(), 4u);
   EXPECT_EQ(sched->runUntilIdle(), 4u);
   EXPECT_EQ(log, (std::vector<std::string>{"high", "mid", "low1", "low2"}));
   EXPECT_EQ(low1->runCount(), 1u);
}

TEST_F(OrbTaskTest, RunningTaskReschedulesItselfBehindItsPeers) {
   int left = 3;
   Kel::Ptr<Orb::Task> self;
   self = Orb::taskFactory(sched, "self", 2, [&] {
      log.push_back("self");
      EXPECT_FALSE(self->scheduled());
      if (--left > 0) self->schedule();
   });
   auto peer = task("peer", 2);
   self->schedule();
   peer->schedule();
   sched->runUntilIdle();
   EXPECT_EQ(log, (std::vector<std::string>{"self", "peer", "self", "self"}));
   self = nullptr;  // break the lambda's reference cycle-free capture before teardown
}

TEST_F(OrbTaskTest, DestroyedOrUnscheduledTasksNeverRun) {
   auto a = task("a", 1), b = task("b", 1), c = task("c", 1);
   a->schedule();
   b->schedule();
   c->schedule();
   b = nullptr;
   c->unschedule();
   sched->runUntilIdle();
   EXPECT_EQ(log, (std::vector<std::string>{"a"}));
   EXPECT_EQ(sched->scheduledCount(), 0u);
}

TEST_F(OrbTaskTest, TaskMayDropItsLastReferenceWhileRunning) {
   Kel::Ptr<Orb::Task> t;
   t = Orb::taskFactory(sched, "t", 1, [&] {
      t = nullptr;
      log.push_back("ran");
   });
   t->schedule();
   EXPECT_TRUE(sched->runOne());
   EXPECT_EQ(log.size(), 1u);
   EXPECT_FALSE(t);
}

// A long job processes items until told to yield, then continues in a later run.
TEST_F(OrbTaskTest, YieldComesFromThePerRunBudgetOrIsForced) {
   Kel::ManualTime clock(10.0);
   Kel::System::timeSourceIs(clock.source());
   sched->runBudgetIs(0.01);
   std::vector<int> runs;  // items processed per run
   int items = 10;
   Kel::Ptr<Orb::Task> job;
   job = Orb::taskFactory(sched, "job", 2, [&] {
      int done = 0;
      EXPECT_FALSE(sched->taskShouldYield() && !sched->forceYield());
      while (items > 0) {
         --items;
         ++done;
         clock.advance(0.004);  // each item costs 4 ms of (manual) time
         if (items > 0 && sched->taskShouldYield()) {
            job->schedule();
            break;
         }
      }
      runs.push_back(done);
   });
   job->schedule();
   sched->runUntilIdle();
   EXPECT_EQ(runs, (std::vector<int>{3, 3, 3, 1}));

   items = 3;
   runs.clear();
   sched->forceYieldIs(true);
   job->schedule();
   sched->runUntilIdle();
   EXPECT_EQ(runs, (std::vector<int>{1, 1, 1}));
   job = nullptr;
}

TEST_F(OrbTaskTest, NoYieldOutsideARun) {
   EXPECT_FALSE(sched->taskShouldYield());
   EXPECT_FALSE(sched->runOne());
}

}  // namespace
