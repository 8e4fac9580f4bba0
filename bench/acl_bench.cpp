// Costs of prefix-list and access-list matching, and of compiling an access list into its trie.
//
// Matching: PrefixListMatcher::match of a route against prefix lists of 10 to 100k entries on
// random prefixes (IPv4, lengths 8-32, mostly /24), half of them "le 32", half exact. Routes are
// taken in turn from 2^18 prepared ones: nine in ten inside a listed prefix at a length from the
// entry's own to 32, one in ten a random /24. The global operator new is replaced so that the
// claim of no allocation per match is counted, not assumed.
//
// Building: an IpAclConfigSm compiles an access list of single-prefix rules on a real activity
// manager and the monotonic clock, slice by slice, until it publishes.
//
// Wide wildcards: IpAccessListMatcher::match against access lists compiled by the real machine
// from 10k single-prefix rules plus W rules whose scattered wildcards are kept as mask rules,
// numbered before all the others so that every match tests every one of them; and the memory
// of a list holding one rule of 2^k blocks, against what the same rule costs as trie entries.

#include <benchmark/benchmark.h>

#include "AllocCounter.h"

#include <time.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <unordered_set>
#include <vector>

#include "Acl/AclToPrefix.h"
#include "Kel/Machine.h"
#include "Routing/RouteMap/PrefixListEntry.h"
#include "RoutingPolicy/acl/RoutingPolicyAcl.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"
#include "RoutingPolicy/status/PolicyEvalContext.h"

namespace {

using namespace Routing::Policy;
using Nx::IpGenPrefix;

constexpr std::size_t kQueries = std::size_t{1} << 18;

// Relative weights of IPv4 prefix lengths from /8 on: a routing table's mix, mostly /24.
const std::vector<unsigned> kLengthWeights = {1,  1,   1,   1,   2, 3, 5, 6, 40, 25, 40, 60, 70,
                                              80, 180, 130, 550, 3, 3, 3, 3, 3,  4,  1,  10};

std::vector<IpGenPrefix> randomPrefixes(std::size_t n, std::mt19937_64& rng) {
   std::discrete_distribution<unsigned> len(kLengthWeights.begin(), kLengthWeights.end());
   std::unordered_set<IpGenPrefix> seen;
   std::vector<IpGenPrefix> out;
   out.reserve(n);
   while (out.size() < n) {
      const IpGenPrefix p(Nx::IpAddr(static_cast<U32>(rng())), 8 + len(rng));
      if (seen.insert(p).second) out.push_back(p);
   }
   return out;
}

// A route inside `p`, at a length from p's own to 32.
IpGenPrefix routeIn(const IpGenPrefix& p, std::mt19937_64& rng) {
   const unsigned len = p.len() + static_cast<unsigned>(rng() % (33 - p.len()));
   const U32 hostBits = p.len() == 0 ? ~U32{0} : ~Nx::detail::mask32(p.len());
   const U32 a = p.address().v4().value() | (static_cast<U32>(rng()) & hostBits);
   return IpGenPrefix(Nx::IpAddr(a), len);
}

struct MatchFixture {
   Kel::Ptr<PrefixListMatcher const> matcher;
   std::vector<IpGenPrefix> routes;
   double coveredPerWalk = 0;
};

// Built once per size and reused by every repetition.
const MatchFixture& matchFixture(std::size_t n) {
   static std::map<std::size_t, std::unique_ptr<MatchFixture>> cache;
   auto& f = cache[n];
   if (f) return *f;
   f = std::make_unique<MatchFixture>();
   std::mt19937_64 rng(n);
   const std::vector<IpGenPrefix> prefixes = randomPrefixes(n, rng);
   auto trie = Routing::PatriciaTrieWithNodeDataIs("BENCH", Nx::AddressFamily::ipv4);
   U32 seqno = 0;
   for (const IpGenPrefix& p : prefixes) {
      seqno += 10;
      const bool le32 = seqno % 20 == 0;
      const Routing::RouteMap::GenPrefixEntry e{
          seqno, p, seqno % 30 != 0, p.len(), le32 ? 32 : p.len(), 0};
      trie->routeIs(p, Routing::RouteMap::prefixListEntryDataFactory(e));
   }
   auto status = Routing::RouteMap::PrefixListStatusIs("BENCH");
   status->trieIs(trie);
   f->matcher = prefixListMatcherFactory("BENCH", status);
   f->routes.reserve(kQueries);
   U64 covered = 0;
   for (std::size_t i = 0; i < kQueries; ++i) {
      f->routes.push_back(rng() % 10 == 0 ? IpGenPrefix(Nx::IpAddr(static_cast<U32>(rng())), 24)
                                          : routeIn(prefixes[rng() % n], rng));
      trie->ancestorWalk(f->routes.back(),
                         [&](const IpGenPrefix&, const Routing::PrefixData&) { ++covered; });
   }
   f->coveredPerWalk = static_cast<double>(covered) / kQueries;
   return *f;
}

// The timed loop of the matching benchmarks: one route after another through `m`, with the
// allocations per match and the share of routes permitted as counters.
void matchLoop(benchmark::State& state, const Matcher& m, const std::vector<IpGenPrefix>& routes) {
   const Kel::Ptr<PolicyEvalContext> noContext;
   MatchInput_ in;
   std::size_t i = 0;
   U64 permits = 0;
   const U64 before = bench::allocationCount();
   for (auto _ : state) {
      in.prefixIs(routes[i++ & (kQueries - 1)]);
      permits += m.match(&in, noContext);
   }
   state.counters["allocs_per_match"] = benchmark::Counter(
       static_cast<double>(bench::allocationCount() - before), benchmark::Counter::kAvgIterations);
   state.counters["permit_ratio"] =
       static_cast<double>(permits) / static_cast<double>(state.iterations());
}

void BM_PrefixListMatch(benchmark::State& state) {
   const MatchFixture& f = matchFixture(static_cast<std::size_t>(state.range(0)));
   matchLoop(state, *f.matcher, f.routes);
   state.counters["nodes/walk"] = f.coveredPerWalk;
}
BENCHMARK(BM_PrefixListMatch)->Arg(10)->Arg(1000)->Arg(10000)->Arg(100000);

// The same walks over the same trie and routes, touching nothing behind the chain heads: what
// the trie alone costs, so that the difference to BM_PrefixListMatch is the reading of the
// entries and the decision.
void BM_PrefixListTrieOnly(benchmark::State& state) {
   const MatchFixture& f = matchFixture(static_cast<std::size_t>(state.range(0)));
   const Routing::PatriciaTrieWithNodeData& trie = *f.matcher->prefixListStatus()->trie();
   std::size_t i = 0;
   std::uintptr_t sink = 0;
   for (auto _ : state) {
      trie.ancestorWalk(f.routes[i++ & (kQueries - 1)],
                        [&](const IpGenPrefix& p, const Routing::PrefixData& head) {
                           sink += reinterpret_cast<std::uintptr_t>(&head) + p.len();
                        });
   }
   benchmark::DoNotOptimize(sink);
}
BENCHMARK(BM_PrefixListTrieOnly)->Arg(10000)->Arg(100000);

// ---- Access-list build ----------------------------------------------------------------------

double threadCpuSeconds() {
   timespec ts;
   clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
   return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

struct AclSource {
   Kel::Ptr<Acl::Input::AclTypeConfig> types;
   Kel::Ptr<Acl::AclConfig> acl;
};

AclSource singlePrefixAcl(std::size_t n) {
   std::mt19937_64 rng(n + 1);
   auto cfg = Acl::aclSubConfigFactory(Acl::AclType::ip);
   U64 id = 0;
   for (const IpGenPrefix& p : randomPrefixes(n, rng)) {
      ++id;
      cfg->ruleIdIs(static_cast<U32>(10 * id), Acl::UniqueId(id));
      cfg->ipRuleIs(Acl::UniqueId(id),
                    Acl::IpRuleConfig(id % 3 == 0 ? Acl::AclAction::deny : Acl::AclAction::permit,
                                      Acl::IpFilter::prefix(p)));
   }
   AclSource s{Acl::Input::aclTypeConfigFactory(Acl::AclType::ip), Acl::aclConfigFactory("BENCH")};
   s.acl->currCfgIs(cfg);
   s.acl->versionIs(1);
   s.types->aclIs(s.acl);
   return s;
}

// One iteration is one build, from the machine's creation to the publication, driven by the
// activity manager on the monotonic clock. Time between slices is the loop's own and is not
// counted: the manual loop below has nothing else to run.
void BM_AclBuild(benchmark::State& state) {
   const std::size_t n = static_cast<std::size_t>(state.range(0));
   const AclSource src = singlePrefixAcl(n);
   const auto am = Kel::activityManagerFactory();
   U64 slices = 0;
   double cpu = 0;
   double wall = 0;
   double maxOverrun = 0;
   for (auto _ : state) {
      state.PauseTiming();
      auto all = Routing::RouteMap::allIpAccessListSymbolFactory();
      auto table = Routing::RouteMap::ipAccessListSymbolDedupTableFactory();
      auto symbol = Routing::RouteMap::ipAccessListSymbolFactory("BENCH")->dedup(table);
      all->symbolIs(symbol);
      state.ResumeTiming();

      const double wall0 = Kel::System::currentTime();
      const double cpu0 = threadCpuSeconds();
      auto sm = ipAclConfigSmFactory("BENCH", src.types, all, table, src.acl, am);
      while (symbol->version() == 0) {
         const double t0 = Kel::System::currentTime();
         am->runOnce();
         maxOverrun = std::max(maxOverrun, Kel::System::currentTime() - t0 - sm->clockQuantum());
         ++slices;
      }
      cpu += threadCpuSeconds() - cpu0;
      wall += Kel::System::currentTime() - wall0;

      state.PauseTiming();
      sm = nullptr;
      symbol = nullptr;
      state.ResumeTiming();
   }
   const double iters = static_cast<double>(state.iterations());
   state.counters["rules_per_cpu_s"] = static_cast<double>(n) * iters / cpu;
   state.counters["publish_ms"] = wall / iters * 1e3;
   state.counters["slices"] = static_cast<double>(slices) / iters;
   state.counters["max_overrun_ms"] = maxOverrun * 1e3;
}
BENCHMARK(BM_AclBuild)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);

// ---- Wide wildcards ---------------------------------------------------------------------------

struct BuiltAcl {
   Kel::Ptr<Routing::RouteMap::IpAccessListStatus const> status;
   double buildMs = 0;
};

// Compiles `cfg` with the real machine on a real activity manager, as an agent would.
BuiltAcl buildAcl(const Kel::Ptr<Acl::AclSubConfig>& cfg) {
   auto types = Acl::Input::aclTypeConfigFactory(Acl::AclType::ip);
   auto acl = Acl::aclConfigFactory("BENCH");
   acl->currCfgIs(cfg);
   acl->versionIs(1);
   types->aclIs(acl);
   auto am = Kel::activityManagerFactory();
   auto all = Routing::RouteMap::allIpAccessListSymbolFactory();
   auto table = Routing::RouteMap::ipAccessListSymbolDedupTableFactory();
   auto symbol = Routing::RouteMap::ipAccessListSymbolFactory("BENCH")->dedup(table);
   all->symbolIs(symbol);
   const double t0 = Kel::System::currentTime();
   auto sm = ipAclConfigSmFactory("BENCH", types, all, table, acl, am);
   while (symbol->version() == 0) am->runOnce();
   return {symbol->status(), (Kel::System::currentTime() - t0) * 1e3};
}

// A scattered wildcard of `bits` don't-care bits anywhere in the address, its lowest bit clear so
// that the rule is 2^bits single addresses.
U32 scatteredWildcard(unsigned bits, std::mt19937_64& rng) {
   U32 w = 0;
   while (static_cast<unsigned>(std::popcount(w)) < bits) w |= U32{1} << (1 + rng() % 31);
   return w;
}

struct WideFixture {
   Kel::Ptr<IpAccessListMatcher const> matcher;
   std::vector<IpGenPrefix> routes;
   std::size_t maskRules = 0;
};

const WideFixture& wideFixture(std::size_t wide) {
   static std::map<std::size_t, std::unique_ptr<WideFixture>> cache;
   auto& f = cache[wide];
   if (f) return *f;
   f = std::make_unique<WideFixture>();
   constexpr std::size_t kPrefixRules = 10000;
   std::mt19937_64 rng(kPrefixRules);
   auto cfg = Acl::aclSubConfigFactory(Acl::AclType::ip);
   U64 id = 0;
   for (std::size_t i = 0; i < wide; ++i) {
      ++id;
      const U32 w = scatteredWildcard(12 + static_cast<unsigned>(rng() % 13), rng);
      cfg->ruleIdIs(static_cast<U32>(id), Acl::UniqueId(id));
      cfg->ipRuleIs(
          Acl::UniqueId(id),
          Acl::IpRuleConfig(Acl::AclAction::deny,
                            Acl::IpFilter(Nx::IpAddr(static_cast<U32>(rng())), Nx::IpAddr(w))));
   }
   const std::vector<IpGenPrefix> prefixes = randomPrefixes(kPrefixRules, rng);
   for (const IpGenPrefix& p : prefixes) {
      ++id;
      cfg->ruleIdIs(static_cast<U32>(1000 + 10 * id), Acl::UniqueId(id));
      cfg->ipRuleIs(Acl::UniqueId(id),
                    Acl::IpRuleConfig(id % 3 == 0 ? Acl::AclAction::deny : Acl::AclAction::permit,
                                      Acl::IpFilter::prefix(p)));
   }
   const BuiltAcl built = buildAcl(cfg);
   f->maskRules = built.status->maskRules().size();
   f->matcher = ipAccessListMatcherFactory("BENCH", built.status);
   f->routes.reserve(kQueries);
   for (std::size_t i = 0; i < kQueries; ++i) {
      f->routes.push_back(rng() % 10 == 0 ? IpGenPrefix(Nx::IpAddr(static_cast<U32>(rng())), 24)
                                          : routeIn(prefixes[rng() % prefixes.size()], rng));
   }
   return *f;
}

void BM_AclMatchWide(benchmark::State& state) {
   const WideFixture& f = wideFixture(static_cast<std::size_t>(state.range(0)));
   matchLoop(state, *f.matcher, f.routes);
   state.counters["mask_rules"] = static_cast<double>(f.maskRules);
}
BENCHMARK(BM_AclMatchWide)->Arg(0)->Arg(16)->Arg(256);

// One rule of 2^k single addresses (k scattered wildcard bits) and a permit of everything after
// it. bytes: the compiled list as published (trie and mask rules). bytes_as_trie: the same rule
// expanded into trie entries, the only form it had before wide rules were kept whole; measured
// up to 2^16 blocks, the most the converter expands.
void BM_AclWideRuleMemory(benchmark::State& state) {
   const unsigned k = static_cast<unsigned>(state.range(0));
   std::mt19937_64 rng(k);
   const Acl::IpRuleConfig rule(
       Acl::AclAction::deny,
       Acl::IpFilter(Nx::IpAddr(0u),
                     Nx::IpAddr(k == 31 ? 0xfffffffeu : scatteredWildcard(k, rng))));
   auto cfg = Acl::aclSubConfigFactory(Acl::AclType::ip);
   cfg->ruleIdIs(10, Acl::UniqueId(1));
   cfg->ipRuleIs(Acl::UniqueId(1), rule);
   cfg->ruleIdIs(20, Acl::UniqueId(2));
   cfg->ipRuleIs(Acl::UniqueId(2), Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter::any()));
   BuiltAcl built;
   for (auto _ : state) built = buildAcl(cfg);
   state.counters["bytes"] = static_cast<double>(built.status->memoryBytes());
   state.counters["mask_rules"] = static_cast<double>(built.status->maskRules().size());
   state.counters["trie_entries"] = static_cast<double>(built.status->trie()->entries());
   if (AclPrefix::AclToPrefix::rangeCount(rule.filter().sourceWildcard()) <=
       AclPrefix::AclToPrefix::maxIntervals) {
      AclPrefix::AclToPrefix conv;
      conv.handleRule(rule, false);
      const auto pset = Nx::ipGenPrefixSetFactory();
      for (const auto& iv : conv.permittedPrefixes()) {
         AclPrefix::AclToPrefix::ip4RangeToPrefixes(boost::icl::first(iv), boost::icl::last(iv),
                                                    *pset);
      }
      auto trie = Routing::PatriciaTrieWithNodeDataIs("BENCH", Nx::AddressFamily::ipv4);
      for (const IpGenPrefix& p : *pset) addIpAclEntryToTrie(trie, 10, p, Acl::MatchPermit::deny);
      addIpAclEntryToTrie(trie, 20, IpGenPrefix::fromStrep("0.0.0.0/0"), Acl::MatchPermit::permit);
      state.counters["bytes_as_trie"] = static_cast<double>(
          trie->memoryBytes() + trie->entries() * sizeof(Routing::RouteMap::PrefixListEntryData));
   }
}
BENCHMARK(BM_AclWideRuleMemory)
    ->Arg(8)
    ->Arg(9)
    ->Arg(16)
    ->Arg(31)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
