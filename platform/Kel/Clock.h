#pragma once
// Clocks and the activity manager: the single-threaded event loop on which every reactor, task
// and clock firing of an agent runs.
//
// A Clock carries a due time. 0 means "at the next firing" (the loop lets other due work run
// first, then fires it), +infinity (kNever) means "at rest". When the loop fires a clock it first
// puts the clock to rest, then tells its reactors (handleTime); a reactor that wants to run again
// sets a new due time from its handler.

#include <cstddef>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/System.h"

namespace Kel {

class ActivityManager;

class Clock : public Entity {
public:
   class Reactor : public ReactorFor<Clock> {
   public:
      virtual void handleTime() {}
   };

   ~Clock() override;

   Seconds time() const { return due_; }
   // Sets the due time. Clocks are written by the machines that own them, so this does not
   // notify; the firing does.
   void timeIs(Seconds due) { due_ = due; }
   bool isDue(Seconds now) const { return due_ <= now; }

   const Ptr<ActivityManager>& activityManager() const { return manager_; }

private:
   friend class ActivityManager;
   explicit Clock(ActivityManager* manager);
   void fire();

   Ptr<ActivityManager> manager_;
   Seconds due_ = kNever;
};

// Something besides clocks that the loop runs: the task scheduler.
class WorkSource {
public:
   virtual ~WorkSource() = default;
   virtual bool hasWork() const = 0;
   // Runs one unit of work (one task).
   virtual void runSome() = 0;
};

class ActivityManager : public Entity {
public:
   ActivityManager() = default;
   ~ActivityManager() override;

   // A new clock of this loop, at rest.
   Ptr<Clock> clockNew();
   void workSourceIs(WorkSource* source);
   void workSourceDel(WorkSource* source);

   // One turn of the loop: fires every clock that was due when the turn started, then runs one
   // unit of work of each source. Returns false when there was nothing to do.
   bool runOnce();
   // Turns the loop until nothing is due now. Time does not advance by itself here: a clock due
   // in the future is not waited for. Returns the number of turns taken.
   std::size_t runUntilIdle(std::size_t maxTurns = static_cast<std::size_t>(-1));
   // Turns the loop, sleeping until the next due clock when idle, until stop() is called or
   // nothing at all is pending (no work and every clock at rest).
   void run();
   void stop() { stopRequested_ = true; }

   std::size_t clockCount() const { return clocks_.size(); }
   // The earliest due time of all clocks, kNever when all rest.
   Seconds nextDue() const;

private:
   friend class Clock;
   void clockDel(Clock* c);

   std::vector<Clock*> clocks_;
   std::vector<WorkSource*> sources_;
   bool stopRequested_ = false;
};

Ptr<ActivityManager> activityManagerFactory();

}  // namespace Kel
