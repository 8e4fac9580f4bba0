#include "Kel/Clock.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "Kel/Assert.h"

namespace Kel {

Clock::Clock(ActivityManager* manager) : manager_(manager) {}

Clock::~Clock() {
   if (manager_) manager_->clockDel(this);
}

void Clock::fire() {
   due_ = kNever;
   notify(&Reactor::handleTime);
}

ActivityManager::~ActivityManager() {
   // Clocks hold the manager alive, so none can remain here.
   KEL_ASSERT(clocks_.empty());
}

Ptr<Clock> ActivityManager::clockNew() {
   Ptr<Clock> c(new Clock(this));
   clocks_.push_back(c.get());
   return c;
}

void ActivityManager::clockDel(Clock* c) { std::erase(clocks_, c); }

void ActivityManager::workSourceIs(WorkSource* s) {
   if (std::find(sources_.begin(), sources_.end(), s) == sources_.end()) sources_.push_back(s);
}

void ActivityManager::workSourceDel(WorkSource* s) { std::erase(sources_, s); }

Seconds ActivityManager::nextDue() const {
   Seconds next = kNever;
   for (const Clock* c : clocks_) next = std::min(next, c->time());
   return next;
}

bool ActivityManager::runOnce() {
   const Seconds now = System::currentTime();
   // Handlers create and destroy clocks; fire from a snapshot held by counted references, and
   // skip clocks that an earlier handler in this turn destroyed or rescheduled.
   std::vector<Ptr<Clock>> due;
   for (Clock* c : clocks_) {
      if (c->isDue(now) && c->refCount() > 0) due.emplace_back(c);
   }
   bool did = !due.empty();
   for (auto& c : due) {
      if (c->isDue(now)) c->fire();
   }
   const auto sources = sources_;
   for (WorkSource* s : sources) {
      if (std::find(sources_.begin(), sources_.end(), s) == sources_.end()) continue;
      if (s->hasWork()) {
         s->runSome();
         did = true;
      }
   }
   return did;
}

std::size_t ActivityManager::runUntilIdle(std::size_t maxTurns) {
   std::size_t turns = 0;
   while (turns < maxTurns && runOnce()) ++turns;
   return turns;
}

void ActivityManager::run() {
   stopRequested_ = false;
   while (!stopRequested_) {
      if (runOnce()) continue;
      const Seconds next = nextDue();
      if (next == kNever) return;
      const Seconds wait = next - System::currentTime();
      if (wait > 0) std::this_thread::sleep_for(std::chrono::duration<double>(wait));
   }
}

Ptr<ActivityManager> activityManagerFactory() { return makePtr<ActivityManager>(); }

}  // namespace Kel
