// Cost of evaluating a route against compiled route maps: the hot path of every agent. The
// allocation counter (AllocCounter.h) checks the paths claimed to allocate nothing.

#include <benchmark/benchmark.h>

#include "AllocCounter.h"

#include "RoutingPolicy/eval/Policy.h"

namespace {

using namespace Routing::Policy;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::SetOption;

// Sequences 10, 20, ... each matching tag i and setting tag 100 + i.
Kel::Ptr<RouteMapStatusList> tagList(U32 sequences) {
   auto rm = routeMapStatusFactory("BENCH");
   for (U32 i = 1; i <= sequences; ++i) {
      auto seq = routeMapSeqStatusFactory(10 * i);
      seq->matcherIs(MatchOption::matchTag, tagMatcherFactory(Routing::RouteTag(i)));
      seq->setterIs(SetOption::setTag, tagSetterFactory(Routing::RouteTag(100 + i)));
      rm->seqStatusIs(seq);
   }
   auto list = routeMapStatusListFactory();
   list->rmStatusIs(RmPrecedence::rmBased, rm);
   return list;
}

void evalLoop(benchmark::State& state, U32 sequences, U32 routeTag) {
   const Kel::Ptr<RouteMapStatusList const> list = tagList(sequences);
   const auto eval = policyEvalFactory();
   MatchInput_ in;
   in.tagIs(Routing::RouteTag(routeTag));
   const U64 before = bench::allocationCount();
   for (auto _ : state) {
      Result_ result;
      benchmark::DoNotOptimize(eval->eval(&in, list, &result));
      benchmark::DoNotOptimize(result);
   }
   state.counters["allocs_per_eval"] = benchmark::Counter(
       static_cast<double>(bench::allocationCount() - before), benchmark::Counter::kAvgIterations);
}

// (a) Ten sequences, the last one matches.
void BM_EvalTenSequencesLastMatches(benchmark::State& state) {
   evalLoop(state, 10, 10);
}
BENCHMARK(BM_EvalTenSequencesLastMatches);

// Ten sequences, none matches: the default-deny walk.
void BM_EvalTenSequencesNoneMatches(benchmark::State& state) {
   evalLoop(state, 10, 99);
}
BENCHMARK(BM_EvalTenSequencesNoneMatches);

// (b) One sequence that matches. (d) Its allocs_per_eval counter is the allocation check: one
// permit sequence without a log must not allocate.
void BM_EvalOneSequence(benchmark::State& state) {
   evalLoop(state, 1, 1);
}
BENCHMARK(BM_EvalOneSequence);

// (c) The debug path: a fresh log per route, filled sequence by sequence.
void BM_EvalTenSequencesWithLog(benchmark::State& state) {
   const Kel::Ptr<RouteMapStatusList const> list = tagList(10);
   const auto rm = list->rmStatus(RmPrecedence::rmBased);
   const auto eval = policyEvalFactory();
   const auto context = policyEvalContextFactory();
   eval->contextIs(context);
   MatchInput_ in;
   in.tagIs(Routing::RouteTag(10));
   const U64 before = bench::allocationCount();
   for (auto _ : state) {
      context->logIs(policyEvaluationLogFactory(rm));
      Result_ result;
      benchmark::DoNotOptimize(eval->eval(&in, list, &result));
      benchmark::DoNotOptimize(result);
   }
   state.counters["allocs_per_eval"] = benchmark::Counter(
       static_cast<double>(bench::allocationCount() - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_EvalTenSequencesWithLog);

}  // namespace

BENCHMARK_MAIN();
