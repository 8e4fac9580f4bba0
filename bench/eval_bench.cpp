// Cost of evaluating a route against compiled route maps: the hot path of every agent. The
// allocation counter replaces the global operator new so that a path claimed to allocate nothing
// is checked, not assumed.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "RoutingPolicy/eval/Policy.h"

namespace {

std::atomic<U64> allocations{0};

// Kept out of line: once operator delete is inlined, g++ sees free() receive a pointer from
// operator new and reports a mismatched pair, although both sides are the replacements below.
[[gnu::noinline]] void release(void* p) noexcept {
   std::free(p);
}

}  // namespace

void* operator new(std::size_t n) {
   allocations.fetch_add(1, std::memory_order_relaxed);
   if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
   throw std::bad_alloc();
}
void* operator new[](std::size_t n) {
   return operator new(n);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
   allocations.fetch_add(1, std::memory_order_relaxed);
   return std::malloc(n == 0 ? 1 : n);
}
void* operator new[](std::size_t n, const std::nothrow_t& t) noexcept {
   return operator new(n, t);
}
void operator delete(void* p) noexcept {
   release(p);
}
void operator delete[](void* p) noexcept {
   release(p);
}
void operator delete(void* p, std::size_t) noexcept {
   release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
   release(p);
}

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
   const U64 before = allocations.load();
   for (auto _ : state) {
      Result_ result;
      benchmark::DoNotOptimize(eval->eval(&in, list, &result));
      benchmark::DoNotOptimize(result);
   }
   state.counters["allocs_per_eval"] = benchmark::Counter(
       static_cast<double>(allocations.load() - before), benchmark::Counter::kAvgIterations);
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
   const U64 before = allocations.load();
   for (auto _ : state) {
      context->logIs(policyEvaluationLogFactory(rm));
      Result_ result;
      benchmark::DoNotOptimize(eval->eval(&in, list, &result));
      benchmark::DoNotOptimize(result);
   }
   state.counters["allocs_per_eval"] = benchmark::Counter(
       static_cast<double>(allocations.load() - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_EvalTenSequencesWithLog);

}  // namespace

BENCHMARK_MAIN();
