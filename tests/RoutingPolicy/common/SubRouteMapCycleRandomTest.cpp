// Random sub-route-map calls, cycles included (self-calls, two and three route maps, calls into
// route maps on a cycle), made and broken by random edits: after every batch, each published
// route map decides every route as a fresh compile of the filtered configuration does, and the
// filtered configuration itself holds no cycle.

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "CommonComponentTestAgent.h"

namespace {

using namespace common_test;

const std::vector<std::string> kNames = {"C0", "C1", "C2", "C3"};

class CycleEditor {
public:
   CycleEditor(Agent& a, std::mt19937& rng) : a_(a), rng_(rng) {}

   U32 pick(U32 n) { return static_cast<U32>(rng_() % n); }

   // One edit; returns the route map it touched.
   std::string edit() {
      const std::string& rm = kNames[pick(static_cast<U32>(kNames.size()))];
      const U32 seqno = 10 * (1 + pick(4));
      switch (pick(8)) {
         case 0:
         case 1:
         case 2: {
            // Any route map may be called, itself included.
            auto e = entry(a_.config, rm, seqno, pick(3) != 0);
            if (pick(4) == 0) {
               e->subRouteMapIs("");
            } else {
               e->subRouteMapIs(kNames[pick(static_cast<U32>(kNames.size()))], pick(4) == 0);
            }
            break;
         }
         case 3: {
            auto e = entry(a_.config, rm, seqno, pick(3) != 0);
            if (pick(3) == 0) {
               e->matchRuleDel(MatchOption::matchTag);
            } else {
               e->matchRuleIs(MatchRule::forTag(pick(4)));
            }
            break;
         }
         case 4:
            setTag(entry(a_.config, rm, seqno), 100 + pick(20));
            break;
         case 5:
            randomContinue(entry(a_.config, rm, seqno), [this](U32 n) { return pick(n); });
            break;
         case 6:
            if (auto m = a_.config->routeMap(rm)) m->mapEntryDel(seqno);
            break;
         default:
            if (pick(2) == 0) a_.config->routeMapDel(rm);
            break;
      }
      return rm;
   }

private:
   Agent& a_;
   std::mt19937& rng_;
};

std::vector<Route> routes() {
   std::vector<Route> out;
   for (U32 tag = 0; tag < 4; ++tag) out.push_back({"10.0.0.0/8", tag});
   return out;
}

// The filtered configuration of `live` loaded at once into a new agent.
void expectFreshCompileOfFiltered(Agent& live) {
   Agent fresh;
   copyRouteMaps(live.filtered, fresh.config);
   fresh.start();
   fresh.run();
   EXPECT_TRUE(fresh.blockedSequences().empty()) << "the filtered configuration holds a cycle";
   for (const auto& name : kNames) {
      const auto got = live.status(name);
      const auto want = fresh.status(name);
      ASSERT_EQ(got == nullptr, want == nullptr) << name;
      if (!want) continue;
      for (const auto& r : routes()) {
         ASSERT_EQ(evaluate(got, r), evaluate(want, r))
             << name << " tag " << r.tag << "\nfiltered:\n"
             << Routing::Policy::agent::configText(live.filteredDocument()) << "\nlive " << name
             << ":\n"
             << live.routeMapDump(name) << "\nfresh:\n"
             << fresh.routeMapDump(name);
      }
   }
}

TEST(SubRouteMapCycleRandomTest, EveryBatchEvaluatesAsAFreshCompileOfTheFilteredConfiguration) {
   Kel::ManualTime time;
   Kel::System::timeSourceIs(time.source());
   U32 firstSeed = 1;
   if (const char* s = std::getenv("CYCLE_SEED")) firstSeed = std::stoul(s);
   U32 blockedSeen = 0;
   for (U32 seed = firstSeed; seed < firstSeed + 60; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " (rerun with CYCLE_SEED)");
      std::mt19937 rng(seed);
      Agent live;
      CycleEditor editor(live, rng);
      // Some configuration before the machines start, then batches of edits, each closed by the
      // version bumps an agent writes.
      std::set<std::string> touched;
      for (int i = 0; i < 8; ++i) touched.insert(editor.edit());
      for (const auto& name : touched) live.commit(name);
      live.start();
      live.run();
      expectFreshCompileOfFiltered(live);
      for (int batch = 0; batch < 25 && !::testing::Test::HasFailure(); ++batch) {
         touched.clear();
         const U32 edits = 1 + editor.pick(4);
         for (U32 i = 0; i < edits; ++i) touched.insert(editor.edit());
         for (const auto& name : touched) live.commit(name);
         live.run();
         blockedSeen += static_cast<U32>(live.blockedSequences().size());
         expectFreshCompileOfFiltered(live);
      }
      if (::testing::Test::HasFailure()) break;
   }
   // The property means little unless cycles were really configured along the way.
   EXPECT_GT(blockedSeen, 100u);
   Kel::System::timeSourceIs({});
}

}  // namespace
