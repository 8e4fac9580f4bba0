// The agent's own costs, end to end through agent/:
// - BM_ParseConfig/N: parseConfigText of N prefix-list lines and a route map using the list.
// - BM_ApplyOneEntryChange/N: apply() of a configuration that differs from the live one in one
//   entry of an N-entry prefix list (alternating between two such texts): parse, diff, the list's
//   recompilation, the route map's republication, until the loop is idle.
// - BM_ApplyOneNexthopEntryChange/N: the same, with the list named by
//   "match ip next-hop prefix-list": the change reaches the sequence through the full profile's
//   follower of next-hop lists.
// - BM_Evaluate: PolicyEvaluator::evaluate on a 10-sequence route map with prefix lists, tags and
//   a continue, from 1 and 2 threads (each its own evaluator over the same published objects);
//   `allocs_per_eval` from the replaced global operator new.
// - BM_EvaluatePickup/variant: the same evaluations, side by side: variant 0 calls
//   PolicyEval::eval on a list held directly (evaluation before snapshots), variant 1 goes
//   through PolicyEvaluator::evaluate, which picks up the newest snapshot for every route.
// - BM_ApplyWhileEvaluating/N/readers: BM_ApplyOneEntryChange/N while `readers` threads evaluate
//   through the list without pause. `retired_max` is the most retired snapshots alive after an
//   apply, `retired_bytes_max` what they and the lists they hold took on the heap beyond the
//   newest snapshot, `evals_per_apply` how much the readers did meanwhile.
// - BM_CompileChain/N/order: a fresh agent applies N route maps, each calling the next as its
//   sub-route-map, named so that callers come first (order 0) or callees first (order 1): the
//   entities, the filter, the compilers and every rebuild until the loop is idle (parse outside
//   the timing). `publications` counts statuses published per route map.
// - BM_EvaluateEveryClause: the same on a route map whose sequences use the clauses only the full
//   profile evaluates (metric, interface, next hop, next-hop, resolved-next-hop and router-id
//   prefix lists, set metric), routes carrying all of those attributes.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <random>
#include <string>
#include <vector>

#include "AllocCounter.h"
#include "RoutingPolicy/status/RouteMapSymbol.h"
#include "agent/PolicyAgent.h"

namespace {

using namespace Routing::Policy;
using namespace Routing::Policy::agent;

std::string listText(std::size_t n, U32 variant,
                     const char* clause = "match ip address prefix-list") {
   std::string t;
   t.reserve(n * 56);
   for (std::size_t i = 0; i < n; ++i) {
      const U32 a = static_cast<U32>(i);
      // Entry 0 flips between two prefixes: the one change between the two texts.
      const U32 second = i == 0 ? variant : (a >> 8) & 0xff;
      t += "ip prefix-list BIG seq " + std::to_string(10 * (i + 1)) + " permit 10." +
           std::to_string(second) + "." + std::to_string(a & 0xff) + ".0/24\n";
   }
   t += std::string("route-map RM permit 10\n   ") + clause + " BIG\n   set tag 7\n";
   return t;
}

void BM_ParseConfig(benchmark::State& state) {
   const std::string text = listText(static_cast<std::size_t>(state.range(0)), 0);
   for (auto _ : state) benchmark::DoNotOptimize(parseConfigText(text, "bench").ok());
   state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_ParseConfig)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_ApplyOneEntryChange(benchmark::State& state) {
   const auto n = static_cast<std::size_t>(state.range(0));
   const std::string texts[2] = {listText(n, 200), listText(n, 201)};
   PolicyAgent agent;
   if (!agent.apply(texts[0], "bench").ok()) state.SkipWithError("bad text");
   U32 written = 0;
   U32 i = 1;
   for (auto _ : state)
      written += agent.apply(texts[i++ & 1], "bench").stats.prefixListEntriesWritten;
   state.counters["entries_written"] =
       benchmark::Counter(written, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_ApplyOneEntryChange)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// N route maps in a chain of sub-route-map calls; with callersFirst the caller's name sorts
// before its callee's, which is the order in which the agent creates them.
std::string chainText(std::size_t n, bool callersFirst) {
   std::string t;
   char name[16];
   const auto nameOf = [&](std::size_t i) {
      std::snprintf(name, sizeof name, "M%06zu", callersFirst ? i : n - 1 - i);
      return std::string(name);
   };
   for (std::size_t i = 0; i < n; ++i) {
      t += "route-map " + nameOf(i) + " permit 10\n   set tag " + std::to_string(i) + "\n";
      if (i + 1 < n) t += "   sub-route-map " + nameOf(i + 1) + "\n";
   }
   return t;
}

void BM_CompileChain(benchmark::State& state) {
   const auto n = static_cast<std::size_t>(state.range(0));
   const ParseResult parsed = parseConfigText(chainText(n, state.range(1) == 0), "bench");
   if (!parsed.ok()) state.SkipWithError("bad text");
   double publications = 0;
   for (auto _ : state) {
      PolicyAgent agent;
      agent.apply(parsed.document);
      state.PauseTiming();
      for (const auto& [name, rm] : parsed.document.routeMaps) {
         publications +=
             routeMapSymbolFactory(name)->dedup(agent.policyRoot()->routeMapTable())->version();
      }
      state.ResumeTiming();
   }
   state.counters["publications"] = benchmark::Counter(publications / static_cast<double>(n),
                                                       benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_CompileChain)
    ->Args({1000, 0})
    ->Args({1000, 1})
    ->Args({10000, 0})
    ->Args({10000, 1})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
void BM_ApplyOneNexthopEntryChange(benchmark::State& state) {
   const auto n = static_cast<std::size_t>(state.range(0));
   const char* clause = "match ip next-hop prefix-list";
   const std::string texts[2] = {listText(n, 200, clause), listText(n, 201, clause)};
   PolicyAgent agent;
   if (!agent.apply(texts[0], "bench").ok()) state.SkipWithError("bad text");
   const auto before = agent.routeMapStatus("RM");
   U32 i = 1;
   for (auto _ : state) agent.apply(texts[i++ & 1], "bench");
   // The change must have reached the compiled route map, or this measured nothing.
   if (agent.routeMapStatus("RM") == before) state.SkipWithError("route map not republished");
}
BENCHMARK(BM_ApplyOneNexthopEntryChange)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

const char* const kTenSequences = R"(
ip prefix-list A seq 10 permit 10.0.0.0/8 le 24
ip prefix-list A seq 20 deny 10.66.0.0/16 le 32
ip prefix-list B seq 10 permit 172.16.0.0/12 le 32
route-map RM deny 10
   match tag 99
route-map RM permit 20
   match ip address prefix-list B
   set tag 20
route-map RM permit 30
   match tag 98
route-map RM permit 40
   match tag 97
route-map RM permit 50
   match ip address prefix-list A
   set tag 50
   continue
route-map RM permit 60
   match tag 96
route-map RM permit 70
   match tag 95
route-map RM permit 80
   match tag 94
route-map RM permit 90
   match tag 1
   set distance 90
route-map RM permit 100
   set distance 100
)";

struct EvalFixture {
   PolicyAgent agent;
   Kel::Ptr<PublishedStatusList> list;
   std::vector<MatchInput_> routes;
   EvalFixture() {
      agent.apply(kTenSequences, "bench");
      list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
      std::mt19937 rng(1);
      for (int i = 0; i < 4096; ++i) {
         MatchInput_ in;
         const U32 first = (rng() % 2) ? 10 : 172;
         const U32 addr = (first << 24) | ((rng() % 64) << 16) | ((rng() % 256) << 8);
         in.prefixIs(Nx::IpGenPrefix(Nx::IpGenAddr(Nx::IpAddr(addr)), 24));
         in.tagIs(Routing::RouteTag(rng() % 3));
         routes.push_back(in);
      }
   }
};

void BM_Evaluate(benchmark::State& state) {
   static EvalFixture* fixture = new EvalFixture();
   const PolicyEvaluator evaluator(fixture->list);
   std::size_t i = static_cast<std::size_t>(state.thread_index()) * 1000;
   U64 permits = 0;
   const U64 before = bench::allocationCount();
   for (auto _ : state) {
      permits += evaluator.evaluate(fixture->routes[i++ & 4095]).permit;
   }
   if (state.thread_index() == 0) {
      state.counters["allocs_per_eval"] =
          benchmark::Counter(static_cast<double>(bench::allocationCount() - before),
                             benchmark::Counter::kAvgIterations);
   }
   benchmark::DoNotOptimize(permits);
   state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Evaluate)->Threads(1)->Threads(2)->UseRealTime();

void BM_EvaluatePickup(benchmark::State& state) {
   static EvalFixture* fixture = new EvalFixture();
   const PolicyEvaluator evaluator(fixture->list);
   const Kel::Ptr<RouteMapStatusList const> held = fixture->list->newest().list();
   const Kel::Ptr<PolicyEval> eval = policyEvalFactory();
   const bool pickup = state.range(0) == 1;
   std::size_t i = 0;
   U64 permits = 0;
   const U64 before = bench::allocationCount();
   for (auto _ : state) {
      const MatchInput_& route = fixture->routes[i++ & 4095];
      if (pickup) {
         permits += evaluator.evaluate(route).permit;
      } else {
         // What PolicyEvaluator::evaluate did before snapshots, line for line.
         Evaluation e;
         e.permit = eval->eval(&route, held, &e.result);
         permits += e.permit;
      }
   }
   state.counters["allocs_per_eval"] = benchmark::Counter(
       static_cast<double>(bench::allocationCount() - before), benchmark::Counter::kAvgIterations);
   benchmark::DoNotOptimize(permits);
   state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EvaluatePickup)->Arg(0)->Arg(1)->Arg(0)->Arg(1);

// The pick-up alone, by the ways a reader can get at the newest of a stream of published
// objects, from 1 and 2 threads: variant 0 the hazard-slot reader used here, 1
// std::atomic<std::shared_ptr> (a load copies the pointer: a reference count written per route),
// 2 a shared_ptr behind a mutex.
void BM_SnapshotPickup(benchmark::State& state) {
   static EvalFixture* fixture = new EvalFixture();
   static std::atomic<std::shared_ptr<const int>> shared{std::make_shared<const int>(1)};
   static std::mutex mutex;
   static std::shared_ptr<const int> locked = std::make_shared<const int>(1);
   PublishedStatusList::Reader reader(fixture->list);
   U64 sum = 0;
   switch (state.range(0)) {
      case 0:
         for (auto _ : state) sum += reader.pick().version();
         break;
      case 1:
         for (auto _ : state) sum += static_cast<U64>(*shared.load(std::memory_order_acquire));
         break;
      default:
         for (auto _ : state) {
            std::shared_ptr<const int> p;
            {
               std::lock_guard lock(mutex);
               p = locked;
            }
            sum += static_cast<U64>(*p);
         }
   }
   benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_SnapshotPickup)->Arg(0)->Arg(1)->Arg(2)->Threads(1)->Threads(2)->UseRealTime();

void BM_ApplyWhileEvaluating(benchmark::State& state) {
   const auto n = static_cast<std::size_t>(state.range(0));
   const auto readers = static_cast<int>(state.range(1));
   const std::string texts[2] = {listText(n, 200), listText(n, 201)};
   PolicyAgent agent;
   agent.apply(texts[0], "bench");
   const auto list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
   std::vector<MatchInput_> routes;
   for (U32 i = 0; i < 256; ++i) {
      MatchInput_ in;
      in.prefixIs(Nx::IpGenPrefix(Nx::IpGenAddr(Nx::IpAddr(10u << 24 | i << 8)), 24));
      routes.push_back(in);
   }
   std::atomic<bool> stop{false};
   std::atomic<U64> evals{0};
   std::vector<std::thread> threads;
   for (int t = 0; t < readers; ++t) {
      threads.emplace_back([&] {
         const PolicyEvaluator evaluator(list);
         U64 mine = 0;
         while (!stop.load(std::memory_order_relaxed)) {
            benchmark::DoNotOptimize(evaluator.evaluate(routes[mine++ & 255]).permit);
         }
         evals.fetch_add(mine);
      });
   }
   std::size_t retiredMax = 0;
   std::int64_t heapFirst = -1, heapMax = 0;
   U64 flip = 0;
   for (auto _ : state) {
      agent.apply(texts[++flip & 1], "bench");
      state.PauseTiming();
      retiredMax = std::max(retiredMax, list->retiredCount());
      const std::int64_t heap = bench::heapInUse();
      if (heapFirst < 0) heapFirst = heap;
      heapMax = std::max(heapMax, heap);
      state.ResumeTiming();
   }
   stop = true;
   for (std::thread& t : threads) t.join();
   // The readers are gone; what the retired snapshots still held is what reclaim frees.
   const std::int64_t before = bench::heapInUse();
   list->reclaim();
   state.counters["retired_max"] = static_cast<double>(retiredMax);
   state.counters["retired_kb_at_end"] = static_cast<double>(before - bench::heapInUse()) / 1024;
   state.counters["heap_growth_kb"] = static_cast<double>(heapMax - heapFirst) / 1024;
   state.counters["evals_per_apply"] =
       benchmark::Counter(static_cast<double>(evals.load()), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_ApplyWhileEvaluating)
    ->Args({1000, 0})
    ->Args({1000, 2})
    ->Args({10000, 0})
    ->Args({10000, 2})
    ->Unit(benchmark::kMillisecond);

const char* const kEveryClause = R"(
ip prefix-list NH seq 10 permit 192.0.2.0/24 le 32
ip prefix-list RNH seq 10 permit 198.51.100.0/24 le 32
ip prefix-list RID seq 10 permit 10.255.0.0/16 le 32
route-map RM deny 10
   match metric 99
route-map RM permit 20
   match interface Ethernet7
   set metric 20
route-map RM permit 30
   match ip next-hop 192.0.2.9
   set tag 30
route-map RM permit 40
   match ip next-hop prefix-list NH
   match router-id prefix-list RID
   set tag 40
   continue
route-map RM permit 50
   match ip resolved-next-hop prefix-list RNH
   set metric 50
route-map RM permit 60
   match metric 1
   match interface Ethernet1
   set distance 60
)";

struct EveryClauseFixture {
   PolicyAgent agent;
   Kel::Ptr<PublishedStatusList> list;
   std::vector<MatchInput_> routes;
   EveryClauseFixture() {
      agent.apply(kEveryClause, "bench");
      list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
      std::mt19937 rng(1);
      const Kel::Ptr<IntfIdSet const> intfs[2] = {[] {
                                                     auto s = intfIdSetFactory();
                                                     s->intfIdIs(Nx::IntfId("Ethernet1"));
                                                     return s;
                                                  }(),
                                                  [] {
                                                     auto s = intfIdSetFactory();
                                                     s->intfIdIs(Nx::IntfId("Ethernet2"));
                                                     s->intfIdIs(Nx::IntfId("Ethernet7"));
                                                     return s;
                                                  }()};
      auto addr = [&](U32 a, U32 b) {
         return Nx::IpAddr((a << 24) | (b << 16) | ((rng() % 4) << 8) | (1 + rng() % 16));
      };
      for (int i = 0; i < 4096; ++i) {
         MatchInput_ in;
         in.prefixIs(
             Nx::IpGenPrefix(Nx::IpGenAddr(Nx::IpAddr(10u << 24 | (rng() % 256) << 8)), 24));
         in.metricIs(Orb::MaybeU63(rng() % 3));
         in.intfIdSetIs(intfs[rng() % 2]);
         in.matchIntfIs(rng() % 4 != 0);
         in.nexthopIs(Nx::IpGenAddr(rng() % 2 ? addr(192, 0) : addr(203, 0)));
         in.resolvedNexthopIs(Nx::IpGenAddr(rng() % 2 ? addr(198, 51) : addr(203, 0)));
         in.routerIdIs(rng() % 2 ? addr(10, 255) : addr(10, 1));
         routes.push_back(in);
      }
   }
};

void BM_EvaluateEveryClause(benchmark::State& state) {
   static EveryClauseFixture* fixture = new EveryClauseFixture();
   const PolicyEvaluator evaluator(fixture->list);
   std::size_t i = 0;
   U64 permits = 0;
   const U64 before = bench::allocationCount();
   for (auto _ : state) permits += evaluator.evaluate(fixture->routes[i++ & 4095]).permit;
   state.counters["allocs_per_eval"] = benchmark::Counter(
       static_cast<double>(bench::allocationCount() - before), benchmark::Counter::kAvgIterations);
   state.counters["permit_share"] =
       benchmark::Counter(static_cast<double>(permits), benchmark::Counter::kAvgIterations);
   state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EvaluateEveryClause);

}  // namespace

BENCHMARK_MAIN();
