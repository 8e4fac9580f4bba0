#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "PolicyCompilerTestHelper.h"

namespace {

using namespace compiler_test;

const std::vector<std::string> kNames = {"R0", "R1", "R2", "R3"};
constexpr U32 kTags = 4;

// One random edit of the kinds an agent applies between two looks of the compiler.
void randomEdit(World& w, std::mt19937& rng) {
   auto pick = [&rng](U32 n) { return static_cast<U32>(rng() % n); };
   const U32 rmIndex = pick(static_cast<U32>(kNames.size()));
   const std::string& rm = kNames[rmIndex];
   const U32 seqno = 10 * (1 + pick(8));
   switch (pick(10)) {
      case 0:
      case 1:
      case 2: {
         auto e = entry(w.config, rm, seqno, pick(4) != 0);
         if (pick(2)) {
            e->matchRuleIs(MatchRule::forTag(pick(kTags)));
         } else {
            e->matchRuleDelAll();
         }
         if (pick(2)) {
            setTag(e, 100 + pick(50));
         } else {
            e->setFlagsIs(e->setFlags() & ~MapEntry::tagFlag);
         }
         break;
      }
      case 3:
         randomContinue(entry(w.config, rm, seqno), pick);
         break;
      case 4:
         randomSubRouteMap(entry(w.config, rm, seqno), kNames, rmIndex, pick);
         break;
      case 5:
         if (auto m = w.config->routeMap(rm)) m->mapEntryDel(seqno);
         break;
      case 6:
         if (pick(3) == 0) w.config->routeMapDel(rm);
         break;
      case 7:
         w.scheduler->runOne();
         break;
      default:
         w.commit(rm);
         break;
   }
}

// Every route map, however it was edited, evaluates as the same configuration compiled at once.
TEST(PolicyCompilerRandomTest, IncrementalCompileEvaluatesAsAFreshCompile) {
   U32 firstSeed = 1;
   if (const char* s = std::getenv("POLICY_COMPILER_SEED")) firstSeed = std::stoul(s);
   for (U32 seed = firstSeed; seed < firstSeed + 200; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " (rerun with POLICY_COMPILER_SEED)");
      std::mt19937 rng(seed);
      World incremental;
      // Some route maps exist before the compiler, the rest come through edits.
      for (int i = 0; i < 10; ++i) randomEdit(incremental, rng);
      incremental.start();
      for (int i = 0; i < 150; ++i) randomEdit(incremental, rng);
      for (const auto& name : kNames) incremental.commit(name);
      incremental.run();

      World fresh;
      copyRouteMaps(incremental.config, fresh.config);
      fresh.start();
      fresh.run();

      for (const auto& name : kNames) {
         const auto got = incremental.status(name);
         const auto want = fresh.status(name);
         ASSERT_EQ(got == nullptr, want == nullptr) << name;
         if (!want) continue;
         EXPECT_EQ(got->seqStatusSize(), want->seqStatusSize()) << name;
         EXPECT_EQ(got->undefinedReferences(), want->undefinedReferences()) << name;
         EXPECT_EQ(got->features(), want->features()) << name;
         for (U32 tag = 0; tag < kTags; ++tag) {
            const Outcome a = evaluate(got, tag);
            const Outcome b = evaluate(want, tag);
            EXPECT_EQ(a.permit, b.permit) << name << " tag " << tag;
            EXPECT_EQ(a.tag, b.tag) << name << " tag " << tag;
         }
         auto filtered = incremental.filtered->routeMap(name);
         ASSERT_TRUE(filtered) << name;
         EXPECT_EQ(filtered->mapEntries().size(),
                   incremental.config->routeMap(name)->mapEntries().size())
             << name;
         EXPECT_EQ(filtered->version(), incremental.config->routeMap(name)->version()) << name;
      }
      if (HasFailure()) return;
   }
}

}  // namespace
