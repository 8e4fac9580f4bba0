// Costs of the prefix trie that prefix lists and access lists compile into: the ancestor walk
// that every prefix-list and access-list match performs, the memory a trie takes per prefix, and
// the cost of building one.
//
// Tries hold random prefixes with the length mix of a routing table (IPv4 8-32, mostly /24;
// IPv6 16-64, mostly /48), one list entry each. Lookups are host addresses, nine in ten inside
// a stored prefix, so that most walks end on a covering entry as a route lookup does.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Routing/PatriciaTrie.h"
#include "Routing/RouteMap/PrefixListEntry.h"

namespace {

using Nx::AddressFamily;
using Nx::IpGenPrefix;

constexpr std::size_t kQueries = std::size_t{1} << 18;

// Relative weights of prefix lengths, from `first` on.
struct LengthMix {
   unsigned first;
   std::vector<unsigned> weights;
};

const LengthMix& lengthMix(AddressFamily af) {
   static const LengthMix v4{
       8, {1, 1, 1, 1, 2, 3, 5, 6, 40, 25, 40, 60, 70, 80, 180, 130, 550, 3, 3, 3, 3, 3, 4, 1, 10}};
   static const LengthMix v6 = [] {
      LengthMix m{16, std::vector<unsigned>(49, 2)};
      const std::pair<unsigned, unsigned> common[] = {{29, 30}, {32, 80}, {36, 20}, {40, 40},
                                                      {44, 50}, {46, 20}, {47, 20}, {48, 500},
                                                      {56, 60}, {64, 80}};
      for (auto [len, w] : common) m.weights[len - 16] = w;
      return m;
   }();
   return af == AddressFamily::ipv4 ? v4 : v6;
}

Nx::IpGenAddr randomAddr(AddressFamily af, std::mt19937_64& rng) {
   if (af == AddressFamily::ipv4) return Nx::IpAddr(static_cast<U32>(rng()));
   return Nx::Ip6Addr(rng(), rng());
}

// `p`'s network with random host bits.
Nx::IpGenAddr hostIn(const IpGenPrefix& p, std::mt19937_64& rng) {
   const Nx::IpGenAddr r = randomAddr(p.af(), rng);
   if (p.isV4()) {
      const U32 m = Nx::detail::mask32(p.len());
      return Nx::IpAddr(p.address().v4().value() | (r.v4().value() & ~m));
   }
   const Nx::Ip6Addr a = p.address().v6();
   const U64 mh = Nx::detail::mask64(std::min(p.len(), 64u));
   const U64 ml = Nx::detail::mask64(p.len() > 64 ? p.len() - 64 : 0);
   return Nx::Ip6Addr(a.hi() | (r.v6().hi() & ~mh), a.lo() | (r.v6().lo() & ~ml));
}

std::vector<IpGenPrefix> randomPrefixes(AddressFamily af, std::size_t n, std::mt19937_64& rng) {
   const LengthMix& mix = lengthMix(af);
   std::discrete_distribution<unsigned> len(mix.weights.begin(), mix.weights.end());
   std::unordered_set<IpGenPrefix> seen;
   std::vector<IpGenPrefix> out;
   out.reserve(n);
   while (out.size() < n) {
      const IpGenPrefix p(randomAddr(af, rng), mix.first + len(rng));
      if (seen.insert(p).second) out.push_back(p);
   }
   return out;
}

Kel::Ptr<Routing::PrefixData> entryFor(const IpGenPrefix& p, U32 seqno) {
   return Routing::RouteMap::prefixListEntryDataFactory({seqno, p, true, p.len(), p.maxLen(), 0});
}

struct Fixture {
   std::vector<IpGenPrefix> prefixes;
   Kel::Ptr<Routing::PatriciaTrieWithNodeData> trie;
   std::vector<IpGenPrefix> queries;
};

// Built once per size: a million-prefix trie takes seconds, and every repetition reuses it.
const Fixture& fixture(AddressFamily af, std::size_t n) {
   static std::map<std::pair<AddressFamily, std::size_t>, std::unique_ptr<Fixture>> cache;
   auto& f = cache[{af, n}];
   if (f) return *f;
   f = std::make_unique<Fixture>();
   std::mt19937_64 rng(n * 2 + static_cast<unsigned>(af));
   f->prefixes = randomPrefixes(af, n, rng);
   f->trie = Routing::PatriciaTrieWithNodeDataIs("bench", af);
   U32 seqno = 0;
   for (const IpGenPrefix& p : f->prefixes) f->trie->routeIs(p, entryFor(p, seqno += 10));
   f->queries.reserve(kQueries);
   std::uniform_int_distribution<std::size_t> pick(0, n - 1);
   for (std::size_t i = 0; i < kQueries; ++i) {
      const Nx::IpGenAddr a =
          rng() % 10 == 0 ? randomAddr(af, rng) : hostIn(f->prefixes[pick(rng)], rng);
      f->queries.emplace_back(a);
   }
   return *f;
}

void trieCounters(benchmark::State& state, const Fixture& f, U64 visits) {
   state.counters["bytes/prefix"] =
       static_cast<double>(f.trie->memoryBytes()) / static_cast<double>(f.trie->prefixes());
   state.counters["visits/walk"] =
       static_cast<double>(visits) / static_cast<double>(state.iterations());
}

// The inline walk, with a callback that reads nothing behind the entry pointer: the cost of the
// trie alone.
void BM_AncestorWalk(benchmark::State& state, AddressFamily af) {
   const Fixture& f = fixture(af, static_cast<std::size_t>(state.range(0)));
   const Routing::PatriciaTrieWithNodeData& trie = *f.trie;
   std::size_t i = 0;
   U64 visits = 0;
   std::uintptr_t sink = 0;
   for (auto _ : state) {
      trie.ancestorWalk(f.queries[i++ & (kQueries - 1)],
                        [&](const IpGenPrefix& p, const Routing::PrefixData& head) {
                           ++visits;
                           sink += reinterpret_cast<std::uintptr_t>(&head) + p.len();
                        });
   }
   benchmark::DoNotOptimize(sink);
   trieCounters(state, f, visits);
}

struct CountingCb : Routing::PatriciaTrieWalkCb {
   U64 visits = 0;
   std::uintptr_t sink = 0;
   void handlePrefixData(const IpGenPrefix& p,
                         const Kel::Ptr<Routing::PrefixData const>& data) override {
      ++visits;
      sink += reinterpret_cast<std::uintptr_t>(data.get()) + p.len();
   }
};

// The walk through a PatriciaTrieWalkCb, as the prefix-list and access-list matchers call it.
void BM_AncestorWalkCb(benchmark::State& state, AddressFamily af) {
   const Fixture& f = fixture(af, static_cast<std::size_t>(state.range(0)));
   const Routing::PatriciaTrieWithNodeData& trie = *f.trie;
   CountingCb cb;
   std::size_t i = 0;
   for (auto _ : state) trie.ancestorWalk(f.queries[i++ & (kQueries - 1)], cb);
   benchmark::DoNotOptimize(cb.sink);
   trieCounters(state, f, cb.visits);
}

// Building a trie, per prefix; the entries are made outside the timed part.
void BM_Build(benchmark::State& state, AddressFamily af) {
   const Fixture& f = fixture(af, static_cast<std::size_t>(state.range(0)));
   std::vector<Kel::Ptr<Routing::PrefixData>> entries;
   for (auto _ : state) {
      state.PauseTiming();
      entries.clear();
      U32 seqno = 0;
      for (const IpGenPrefix& p : f.prefixes) entries.push_back(entryFor(p, seqno += 10));
      auto trie = Routing::PatriciaTrieWithNodeDataIs("bench", af);
      state.ResumeTiming();
      for (std::size_t k = 0; k < f.prefixes.size(); ++k) {
         trie->routeIs(f.prefixes[k], std::move(entries[k]));
      }
      state.PauseTiming();
      trie = nullptr;
      state.ResumeTiming();
   }
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * f.prefixes.size()));
}

BENCHMARK_CAPTURE(BM_AncestorWalk, ipv4, AddressFamily::ipv4)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK_CAPTURE(BM_AncestorWalk, ipv6, AddressFamily::ipv6)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK_CAPTURE(BM_AncestorWalkCb, ipv4, AddressFamily::ipv4)->Arg(100000);
BENCHMARK_CAPTURE(BM_AncestorWalkCb, ipv6, AddressFamily::ipv6)->Arg(100000);
BENCHMARK_CAPTURE(BM_Build, ipv4, AddressFamily::ipv4)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Build, ipv6, AddressFamily::ipv6)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
