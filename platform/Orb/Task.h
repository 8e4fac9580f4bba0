#pragma once
// Deferred work. A Task is a named body with a priority; scheduling it queues it on its
// TaskScheduler, which the activity loop drains: higher priority first, first come first served
// within a priority. Scheduling a task that is already queued does nothing, so any number of
// changes before the task runs cost one run. A running task is no longer queued and may schedule
// itself again to continue later; long tasks ask taskShouldYield() between items.

#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <string>

#include "Kel/Clock.h"
#include "Kel/Entity.h"
#include "Kel/System.h"

namespace Orb {

using TaskPriority = int;

class TaskScheduler;

class Task : public Kel::Entity {
public:
   using Body = std::function<void()>;

   ~Task() override;

   const std::string& name() const { return name_; }
   TaskPriority priority() const { return priority_; }
   bool scheduled() const { return scheduled_; }
   U64 runCount() const { return runs_; }
   const Kel::Ptr<TaskScheduler>& scheduler() const { return scheduler_; }

   void schedule();
   void unschedule();

   void formatDerivedType(std::ostream& os) const override;

private:
   friend class TaskScheduler;
   friend Kel::Ptr<Task> taskFactory(Kel::Ptr<TaskScheduler>, std::string, TaskPriority, Body);
   Task(Kel::Ptr<TaskScheduler> scheduler, std::string name, TaskPriority priority, Body body);

   Kel::Ptr<TaskScheduler> scheduler_;
   std::string name_;
   TaskPriority priority_;
   Body body_;
   bool scheduled_ = false;
   U64 runs_ = 0;
   std::list<Task*>::iterator queuePos_;
};

Kel::Ptr<Task> taskFactory(Kel::Ptr<TaskScheduler> scheduler, std::string name,
                           TaskPriority priority, Task::Body body);

class TaskScheduler : public Kel::Entity, public Kel::WorkSource {
public:
   TaskScheduler() = default;
   ~TaskScheduler() override;

   // Runs the first task of the highest priority; false when none is queued.
   bool runOne();
   // Runs tasks until none is queued or `maxRuns` have run; returns how many ran.
   std::size_t runUntilIdle(std::size_t maxRuns = static_cast<std::size_t>(-1));

   // For a running task: true once the current run has used its time budget, or when a test
   // forces it.
   bool taskShouldYield() const;
   Kel::Seconds runBudget() const { return runBudget_; }
   void runBudgetIs(Kel::Seconds s) { runBudget_ = s; }
   bool forceYield() const { return forceYield_; }
   void forceYieldIs(bool v) { forceYield_ = v; }

   std::size_t scheduledCount() const { return count_; }
   const Task* runningTask() const { return running_; }

   bool hasWork() const override { return count_ > 0; }
   void runSome() override { runOne(); }

private:
   friend class Task;
   void enqueue(Task* t);
   void dequeue(Task* t);

   // Highest priority first.
   std::map<TaskPriority, std::list<Task*>, std::greater<>> queues_;
   std::size_t count_ = 0;
   Task* running_ = nullptr;
   Kel::Seconds runStart_ = 0;
   Kel::Seconds runBudget_ = 0.01;
   bool forceYield_ = false;
};

Kel::Ptr<TaskScheduler> taskSchedulerFactory();

}  // namespace Orb
