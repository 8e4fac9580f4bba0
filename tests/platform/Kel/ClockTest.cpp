#include "Kel/Clock.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Orb/Task.h"

namespace {

// Fires a clock a given number of times, re-arming it at 0 from its handler the way a
// time-sliced job continues.
class Slicer : public Kel::Clock::Reactor {
public:
   Slicer(std::vector<std::string>* log, std::string name, int slices)
       : log_(log), name_(std::move(name)), left_(slices) {}
   void handleTime() override {
      log_->push_back(name_);
      if (--left_ > 0) ptrConstCast()->timeIs(0);
   }

private:
   Kel::Clock* ptrConstCast() { return const_cast<Kel::Clock*>(notifier().get()); }
   std::vector<std::string>* log_;
   std::string name_;
   int left_;
};

class KelClockTest : public ::testing::Test {
protected:
   void SetUp() override { Kel::System::timeSourceIs(time.source()); }
   void TearDown() override { Kel::System::timeSourceIs({}); }
   Kel::ManualTime time{100.0};
   Kel::Ptr<Kel::ActivityManager> loop = Kel::activityManagerFactory();
   std::vector<std::string> log;
};

TEST_F(KelClockTest, ClockDueAtZeroFiresOnceAndThenRests) {
   auto c = loop->clockNew();
   Slicer s(&log, "a", 1);
   s.notifierIs(c);
   EXPECT_EQ(c->time(), Kel::kNever);
   EXPECT_EQ(loop->runUntilIdle(), 0u);
   c->timeIs(0);
   EXPECT_EQ(loop->runUntilIdle(), 1u);
   EXPECT_EQ(c->time(), Kel::kNever);
   EXPECT_EQ(log, (std::vector<std::string>{"a"}));
}

TEST_F(KelClockTest, RearmedClocksInterleaveWithTasksTurnByTurn) {
   auto c1 = loop->clockNew();
   auto c2 = loop->clockNew();
   Slicer a(&log, "a", 3), b(&log, "b", 2);
   a.notifierIs(c1);
   b.notifierIs(c2);
   auto sched = Orb::taskSchedulerFactory();
   loop->workSourceIs(sched.get());
   auto task = Orb::taskFactory(sched, "t", 1, [&] { log.push_back("task"); });
   task->schedule();
   c1->timeIs(0);
   c2->timeIs(0);
   loop->runUntilIdle();
   // Each turn fires every due clock, then runs one task; a clock re-armed at 0 waits a turn.
   EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "task", "a", "b", "a"}));
   loop->workSourceDel(sched.get());
}

TEST_F(KelClockTest, FutureDueTimeWaitsForTheTimeSource) {
   auto c = loop->clockNew();
   Slicer s(&log, "a", 1);
   s.notifierIs(c);
   c->timeIs(105.0);
   EXPECT_EQ(loop->nextDue(), 105.0);
   EXPECT_EQ(loop->runUntilIdle(), 0u);
   time.advance(4.9);
   EXPECT_EQ(loop->runUntilIdle(), 0u);
   time.advance(0.1);
   EXPECT_EQ(loop->runUntilIdle(), 1u);
   EXPECT_EQ(log.size(), 1u);
}

TEST_F(KelClockTest, HandlerDestroyingAnotherDueClockPreventsItsFiring) {
   auto c1 = loop->clockNew();
   auto c2 = loop->clockNew();
   Slicer b(&log, "b", 1);
   b.notifierIs(c2);
   struct Killer : Kel::Clock::Reactor {
      Kel::Ptr<Kel::Clock>* victim;
      Slicer* victimReactor;
      void handleTime() override {
         victimReactor->notifierIs(nullptr);
         *victim = nullptr;
      }
   } killer;
   killer.victim = &c2;
   killer.victimReactor = &b;
   killer.notifierIs(c1);
   c1->timeIs(0);
   c2->timeIs(0);
   loop->runUntilIdle();
   EXPECT_TRUE(log.empty());
   EXPECT_EQ(loop->clockCount(), 1u);
}

}  // namespace
