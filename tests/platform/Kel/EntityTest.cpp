#include "Kel/Entity.h"

#include <gtest/gtest.h>

#include <memory>

#include "Kel/Machine.h"
#include "tests/platform/Kel/TestEntities.h"

namespace {

using kel_test::Gadget;
using kel_test::Recorder;
using Log = std::vector<std::string>;

class KelEntityTest : public ::testing::Test {
protected:
   void SetUp() override { Gadget::live = 0; }
   void TearDown() override { EXPECT_EQ(Gadget::live, 0); }
   Log log;
};

TEST_F(KelEntityTest, CompareFirstSettersNotifyOncePerRealChange) {
   auto g = Kel::makePtr<Gadget>();
   Recorder r(&log);
   r.notifierIs(g);
   g->colorIs(3);
   g->colorIs(3);
   g->colorIs(4);
   auto p = Kel::makePtr<Gadget>("p");
   g->partIs(10, p);
   g->partIs(10, p);  // same object under the same key: nothing
   g->partIs(10, Kel::makePtr<Gadget>("q"));
   g->partIs(10, nullptr);
   g->partIs(10, nullptr);
   EXPECT_EQ(log, (Log{"bound", "color:3", "color:4", "part:10", "part:10", "part:10"}));
   EXPECT_FALSE(g->partHas(10));
}

TEST_F(KelEntityTest, DelAllNotifiesEveryKeyAndToleratesReentrantChanges) {
   auto g = Kel::makePtr<Gadget>();
   for (U32 k : {1u, 2u, 3u}) g->partIs(k, Kel::makePtr<Gadget>());
   Recorder r(&log);
   r.notifierIs(g);
   // The reaction to the first removal deletes another entry and adds a new one.
   r.onPart = [&](U32 k) {
      if (k == 1) {
         g->partDel(3);
         g->partIs(7, Kel::makePtr<Gadget>());
      }
   };
   g->partDelAll();
   EXPECT_EQ(g->parts(), 0u);
   EXPECT_EQ(log, (Log{"bound", "part:1", "part:3", "part:7", "part:2", "part:7"}));
}

TEST_F(KelEntityTest, InactiveEntityOrReactorHearsNothing) {
   auto g = Kel::makePtr<Gadget>();
   Recorder r(&log);
   r.notifierIs(g);
   g->hasNotificationActiveIs(false);
   g->colorIs(1);
   g->hasNotificationActiveIs(true);
   r.hasNotificationActiveIs(false);
   g->colorIs(2);
   r.hasNotificationActiveIs(true);
   g->colorIs(3);
   EXPECT_EQ(g->color(), 3);
   EXPECT_EQ(log, (Log{"bound", "color:3"}));
}

TEST_F(KelEntityTest, ReactorDetachingItselfDuringNotificationLetsOthersHearIt) {
   auto g = Kel::makePtr<Gadget>();
   Recorder a(&log, "a."), b(&log, "b."), c(&log, "c.");
   for (auto* r : {&a, &b, &c}) r->notifierIs(g);
   b.onColor = [&] { b.notifierIs(nullptr); };
   g->colorIs(1);
   g->colorIs(2);
   EXPECT_EQ(log, (Log{"a.bound", "b.bound", "c.bound", "a.color:1", "b.color:1", "b.bound",
                       "c.color:1", "a.color:2", "c.color:2"}));
   EXPECT_EQ(g->reactorCount(), 2u);
}

TEST_F(KelEntityTest, ReactorDestroyingALaterReactorStopsItBeingCalled) {
   auto g = Kel::makePtr<Gadget>();
   Recorder a(&log, "a.");
   auto b = std::make_unique<Recorder>(&log, "b.");
   a.notifierIs(g);
   b->notifierIs(g);
   a.onColor = [&] { b.reset(); };
   g->colorIs(1);
   EXPECT_EQ(log, (Log{"a.bound", "b.bound", "a.color:1"}));
   EXPECT_EQ(g->reactorCount(), 1u);
}

TEST_F(KelEntityTest, ReactorAttachedDuringNotificationHearsOnlyLaterChanges) {
   auto g = Kel::makePtr<Gadget>();
   Recorder a(&log, "a."), late(&log, "late.");
   a.notifierIs(g);
   a.onColor = [&] { late.notifierIs(g); };
   g->colorIs(1);
   a.onColor = nullptr;
   g->colorIs(2);
   EXPECT_EQ(log, (Log{"a.bound", "a.color:1", "late.bound", "a.color:2", "late.color:2"}));
}

TEST_F(KelEntityTest, HandlerChangingOtherEntitiesAndTheSameOneNestsCorrectly) {
   auto g = Kel::makePtr<Gadget>("g");
   auto h = Kel::makePtr<Gadget>("h");
   Recorder onG(&log, "g."), onH(&log, "h."), second(&log, "g2.");
   onG.notifierIs(g);
   second.notifierIs(g);
   onH.notifierIs(h);
   // g's first reactor forwards the change to h, and bumps g once more (a nested notification
   // of the same entity); the nested one detaches the second reactor mid-flight.
   onG.onColor = [&] {
      h->colorIs(g->color() * 10);
      if (g->color() == 1) {
         g->colorIs(2);
         second.notifierIs(nullptr);
      }
   };
   g->colorIs(1);
   EXPECT_EQ(log, (Log{"g.bound", "g2.bound", "h.bound", "g.color:1", "h.color:10", "g.color:2",
                       "h.color:20", "g2.color:2", "g2.bound"}));
   EXPECT_EQ(g->reactorCount(), 1u);
   g->colorIs(5);
   EXPECT_EQ(log.back(), "h.color:50");
}

TEST_F(KelEntityTest, EntityStaysAliveWhileItsLastHolderDropsItFromAHandler) {
   auto g = Kel::makePtr<Gadget>();
   Gadget* raw = g.get();
   auto holder = std::make_unique<Recorder>(&log, "a.");
   Recorder after(&log, "b.");
   holder->notifierIs(g);
   after.notifierIs(g);
   g = nullptr;  // the reactors now hold the only references
   holder->onColor = [&] { holder.reset(); };
   after.onColor = [&] { after.notifierIs(nullptr); };
   raw->colorIs(9);
   EXPECT_EQ(log, (Log{"a.bound", "b.bound", "a.color:9", "b.color:9", "b.bound"}));
   // TearDown checks that the entity was freed once the notification ended.
}

TEST_F(KelEntityTest, RebindingMovesTheReactorBetweenEntities) {
   auto g = Kel::makePtr<Gadget>("g");
   auto h = Kel::makePtr<Gadget>("h");
   Recorder r(&log);
   r.notifierIs(g);
   r.notifierIs(g);  // same notifier: no rebind
   r.notifierIs(h);
   g->colorIs(1);
   h->colorIs(2);
   EXPECT_EQ(log, (Log{"bound", "bound", "color:2"}));
   EXPECT_EQ(g->reactorCount(), 0u);
   EXPECT_EQ(h->reactorCount(), 1u);
}

struct Counted : Kel::Machine {
   int* inits;
   explicit Counted(int* i) : inits(i) {}
   void handleInitialized() override { ++*inits; }
};

TEST(KelMachineTest, HandleInitializedRunsExactlyOnceThroughCreate) {
   int inits = 0;
   auto m = Kel::create<Counted>(&inits);
   EXPECT_EQ(inits, 1);
   EXPECT_TRUE(m->initialized());
   m->initialize();
   EXPECT_EQ(inits, 1);
   // makePtr alone leaves initialisation to the caller.
   auto n = Kel::makePtr<Counted>(&inits);
   EXPECT_EQ(inits, 1);
   n->initialize();
   EXPECT_EQ(inits, 2);
}

TEST(KelEntityPrintTest, DefaultPrintedFormIsTheTypeName) {
   auto g = Kel::makePtr<Gadget>();
   EXPECT_EQ(g->printed(), "kel_test::Gadget");
}

}  // namespace
