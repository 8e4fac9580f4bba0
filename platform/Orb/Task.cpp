#include "Orb/Task.h"

#include <ostream>

#include "Kel/Assert.h"

namespace Orb {

Task::Task(Kel::Ptr<TaskScheduler> scheduler, std::string name, TaskPriority priority, Body body)
    : scheduler_(std::move(scheduler)),
      name_(std::move(name)),
      priority_(priority),
      body_(std::move(body)) {
   KEL_ASSERT(scheduler_);
}

Task::~Task() { unschedule(); }

void Task::schedule() {
   if (scheduled_) return;
   scheduler_->enqueue(this);
}

void Task::unschedule() {
   if (!scheduled_) return;
   scheduler_->dequeue(this);
}

void Task::formatDerivedType(std::ostream& os) const { os << "Task(" << name_ << ")"; }

Kel::Ptr<Task> taskFactory(Kel::Ptr<TaskScheduler> scheduler, std::string name,
                           TaskPriority priority, Task::Body body) {
   return Kel::Ptr<Task>(new Task(std::move(scheduler), std::move(name), priority, std::move(body)));
}

TaskScheduler::~TaskScheduler() {
   // Queued tasks hold the scheduler alive, so the queue is empty here.
   KEL_ASSERT(count_ == 0);
}

void TaskScheduler::enqueue(Task* t) {
   auto& q = queues_[t->priority_];
   t->queuePos_ = q.insert(q.end(), t);
   t->scheduled_ = true;
   ++count_;
}

void TaskScheduler::dequeue(Task* t) {
   auto it = queues_.find(t->priority_);
   KEL_ASSERT(it != queues_.end());
   it->second.erase(t->queuePos_);
   if (it->second.empty()) queues_.erase(it);
   t->scheduled_ = false;
   --count_;
}

bool TaskScheduler::runOne() {
   if (count_ == 0) return false;
   // The body may drop the last outside reference to its own task.
   Kel::Ptr<Task> task(queues_.begin()->second.front());
   dequeue(task.get());
   Task* const outer = running_;
   const Kel::Seconds outerStart = runStart_;
   running_ = task.get();
   runStart_ = Kel::System::currentTime();
   ++task->runs_;
   task->body_();
   running_ = outer;
   runStart_ = outerStart;
   return true;
}

std::size_t TaskScheduler::runUntilIdle(std::size_t maxRuns) {
   std::size_t runs = 0;
   while (runs < maxRuns && runOne()) ++runs;
   return runs;
}

bool TaskScheduler::taskShouldYield() const {
   if (forceYield_) return true;
   if (running_ == nullptr) return false;
   return Kel::System::currentTime() - runStart_ >= runBudget_;
}

Kel::Ptr<TaskScheduler> taskSchedulerFactory() { return Kel::makePtr<TaskScheduler>(); }

}  // namespace Orb
