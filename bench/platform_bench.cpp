// Costs of the framework operations that the library leans on: reference counting, notification,
// dedup lookups, task scheduling and value text.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/ValueText.h"
#include "Orb/Dedup.h"
#include "Orb/MaybeU63.h"
#include "Orb/Task.h"

namespace {

template <class Counter>
struct Obj : Kel::RefCountedBase<Counter> {
   int v = 0;
};

template <class Counter>
void BM_PtrCopyAndDrop(benchmark::State& state) {
   Kel::Ptr<Obj<Counter>> p(new Obj<Counter>);
   for (auto _ : state) {
      Kel::Ptr<Obj<Counter>> q = p;
      benchmark::DoNotOptimize(q);
   }
}
BENCHMARK_TEMPLATE(BM_PtrCopyAndDrop, Kel::AtomicRefCount);
BENCHMARK_TEMPLATE(BM_PtrCopyAndDrop, Kel::PlainRefCount);

class Counter : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Counter> {
   public:
      virtual void handleValue() {}
   };
   void valueIs(U64 v) { setAttr(value_, v, &Reactor::handleValue); }

private:
   U64 value_ = 0;
};

struct Follower : Counter::Reactor {
   U64 heard = 0;
   void handleValue() override { ++heard; }
};

// One attribute change heard by N reactors.
void BM_NotifyReactors(benchmark::State& state) {
   auto c = Kel::makePtr<Counter>();
   std::vector<Follower> followers(static_cast<std::size_t>(state.range(0)));
   for (auto& f : followers) f.notifierIs(c);
   U64 v = 0;
   for (auto _ : state) c->valueIs(++v);
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_NotifyReactors)->Arg(1)->Arg(8);

class Symbol : public Orb::DedupHandle {
public:
   explicit Symbol(std::string n) : name(std::move(n)) {}
   std::string name;
   U32 hash() const override { return Kel::stringHash(name); }
   bool compare(const Orb::DedupHandle& o) const override {
      return static_cast<const Symbol&>(o).name == name;
   }
};

// Dedup of a name already in a table of N symbols (the common case when a second route map
// refers to a prefix list): hash, probe, compare, hand back the member.
void BM_DedupHit(benchmark::State& state) {
   auto table = Orb::dedupHashTableUnorderedSetFactory();
   std::vector<Kel::Ptr<Symbol>> held;
   for (int i = 0; i < state.range(0); ++i) {
      held.push_back(table->dedup(Kel::makePtr<Symbol>("PL-" + std::to_string(i))));
   }
   const Symbol probe("PL-" + std::to_string(state.range(0) / 2));
   for (auto _ : state) benchmark::DoNotOptimize(table->find(probe));
}
BENCHMARK(BM_DedupHit)->Arg(10000);

void BM_TaskScheduleAndRun(benchmark::State& state) {
   auto sched = Orb::taskSchedulerFactory();
   U64 runs = 0;
   auto task = Orb::taskFactory(sched, "t", 2, [&] { ++runs; });
   for (auto _ : state) {
      task->schedule();
      task->schedule();  // coalesced
      sched->runOne();
   }
   benchmark::DoNotOptimize(runs);
}
BENCHMARK(BM_TaskScheduleAndRun);

struct Sample {
   bool flag = true;
   U32 count = 42;
   std::string label = "RM1";
   Orb::MaybeU63 metric{100};
};

void BM_ValueTextWriteAndParse(benchmark::State& state) {
   const Sample s;
   for (auto _ : state) {
      const std::string text = Kel::ValueWriter("Test::Sample")
                                   .field("flag", s.flag)
                                   .field("count", s.count)
                                   .field("label", s.label)
                                   .field("metric", s.metric)
                                   .str();
      Kel::ValueReader r(text, "Test::Sample");
      Sample back;
      back.flag = r.field<bool>("flag");
      back.count = r.field<U32>("count");
      back.label = r.field<std::string>("label");
      back.metric = r.field<Orb::MaybeU63>("metric");
      r.finish();
      benchmark::DoNotOptimize(back);
   }
}
BENCHMARK(BM_ValueTextWriteAndParse);

}  // namespace

BENCHMARK_MAIN();
