// Route-map compilation: the cost of one edit of a large route map, from its version change to
// the publication of the new status, and of a burst of symbol changes folded into one rebuild.
//
// The sequence machines are the compiler tests' small agent (tag match, tag set), which is all a
// rebuild needs to be measured.

#include <benchmark/benchmark.h>

#include <chrono>

#include "tests/RoutingPolicy/config/PolicyCompilerTestHelper.h"

namespace {

using namespace compiler_test;

void buildRouteMap(World& w, U32 sequences) {
   for (U32 i = 1; i <= sequences; ++i) {
      auto e = entry(w.config, "RM", 10 * i);
      e->matchRuleIs(MatchRule::forTag(i));
      setTag(e, i);
   }
   w.start();
}

// Manual time: only the commit (version change -> compile -> publish) is measured, not the edit.
void BM_CompileOneChangedSequence(benchmark::State& state) {
   const U32 sequences = static_cast<U32>(state.range(0));
   World w;
   buildRouteMap(w, sequences);
   auto e = w.config->routeMap("RM")->mapEntry(10 * (sequences / 2));
   const auto symbol = w.symbol("RM");
   const U32 before = symbol->version();
   U32 tag = 0;
   for (auto _ : state) {
      e->matchRuleIs(MatchRule::forTag(1000000 + (++tag % 2)));
      const auto start = std::chrono::steady_clock::now();
      w.commit("RM");
      const auto end = std::chrono::steady_clock::now();
      state.SetIterationTime(std::chrono::duration<double>(end - start).count());
   }
   state.counters["publications_per_iter"] = benchmark::Counter(
       static_cast<double>(symbol->version() - before) / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_CompileOneChangedSequence)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// 1000 rebuilt matchers arrive in the mailbox of one route map of 100 sequences before its task
// runs; measured: the 1000 arrivals and the one task run.
void BM_SymbolChangeBurst(benchmark::State& state) {
   constexpr U32 kSequences = 100;
   constexpr U32 kChanges = 1000;
   World w;
   buildRouteMap(w, kSequences);
   auto mailbox = w.sm->rmConfigSymbolReactorColl()->reactor("RM");
   const auto symbol = w.symbol("RM");
   std::vector<Kel::Ptr<Matcher const>> matchers;
   for (U32 i = 0; i < kChanges; ++i) matchers.push_back(tagMatcherFactory(Routing::RouteTag(i)));
   const U32 before = symbol->version();
   for (auto _ : state) {
      for (U32 i = 0; i < kChanges; ++i) {
         mailbox->pendingUpdateIs(10 * (1 + i % kSequences))
             ->matcherChangeIs(MatchOption::matchTag, matchers[i]);
      }
      w.run();
   }
   state.counters["publications_per_iter"] = benchmark::Counter(
       static_cast<double>(symbol->version() - before) / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_SymbolChangeBurst)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
