// A program outside the tree, built against the installed package only: it follows an entity,
// runs a task on the activity loop, parses a prefix, and evaluates a route through the agent
// layer, which needs the installed headers, the libraries and their exported compile definitions
// to agree.
#include <Kel/Assert.h>
#include <Kel/Clock.h>
#include <Kel/Entity.h>
#include <Nx/IpGenPrefix.h>
#include <Orb/Task.h>
#include <agent/PolicyAgent.h>

#include <cstdio>

namespace {
class Version : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Version> {
   public:
      virtual void handleValue() {}
   };
   void valueIs(U32 v) { setAttr(value_, v, &Reactor::handleValue); }

private:
   U32 value_ = 0;
};
}  // namespace

int main() {
   auto loop = Kel::activityManagerFactory();
   auto sched = Orb::taskSchedulerFactory();
   loop->workSourceIs(sched.get());
   int runs = 0;
   auto task = Orb::taskFactory(sched, "rebuild", 2, [&] { ++runs; });
   struct Follower : Version::Reactor {
      Kel::Ptr<Orb::Task> task;
      void handleValue() override { task->schedule(); }
   } follower;
   follower.task = task;
   auto v = Kel::makePtr<Version>();
   follower.notifierIs(v);
   v->valueIs(1);
   v->valueIs(2);
   loop->runUntilIdle();
   loop->workSourceDel(sched.get());
   KEL_ASSERT(runs == 1);
   KEL_ASSERT(Nx::IpGenPrefix::fromStrep("10.1.2.0/24").len() == 24u);

   using namespace Routing::Policy;
   agent::PolicyAgent policy;
   const auto applied = policy.apply(
       "ip prefix-list P seq 10 permit 10.0.0.0/8 le 24\n"
       "route-map RM permit 10\n match ip address prefix-list P\n set tag 9\n",
       "consumer.conf");
   KEL_ASSERT(applied.ok());
   const agent::PolicyEvaluator evaluator(policy.statusList({{RmPrecedence::rmBased, "RM"}}));
   MatchInput_ route;
   route.prefixIs(Nx::IpGenPrefix::fromStrep("10.1.2.0/24"));
   const agent::Evaluation e = evaluator.evaluate(route);
   KEL_ASSERT(e.permit && e.result.tag().value() == 9u);
   std::puts("consumer ok");
   return 0;
}
