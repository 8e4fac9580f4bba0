// Evaluation on worker threads while the owner applies configurations, the events that tell a
// daemon what each batch changed, and what a list does with a route map that is not configured.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "agent/PolicyAgent.h"
#include "agent/RouteText.h"
#include "tests/agent/RandomConfig.h"

namespace {

using namespace Routing::Policy;
using namespace Routing::Policy::agent;
using rp_agent_test::RandomConfig;

// What a caller sees of one evaluation, small enough to record millions of.
struct Outcome {
   bool permit = false;
   U32 tag = 0;
   U32 preference = 0;
   U64 metric = ~U64{0};
   bool operator==(const Outcome&) const = default;
};

Outcome outcomeOf(const Evaluation& e) {
   Outcome o;
   o.permit = e.permit;
   if (!e.permit) return o;
   o.tag = e.result.tag().value();
   o.preference = e.result.preference().value();
   if (e.result.metric().hasValue()) o.metric = e.result.metric().value();
   return o;
}

std::string outcomeText(const Outcome& o) {
   if (!o.permit) return "deny";
   return "permit tag " + std::to_string(o.tag) + " pref " + std::to_string(o.preference) +
          " metric " + std::to_string(o.metric);
}

struct Record {
   U64 version;
   U32 route;
   Outcome outcome;
};

// Four threads evaluate without pause while the owner applies a stream of random whole
// configurations (lists deleted and made again, sub-route-map calls made and dropped). Every
// evaluation is recorded with the snapshot version it used; afterwards each must equal what the
// owner's own evaluation of that version answered, and some versions are checked against a fresh
// agent given only that version's text. Under ThreadSanitizer this is also the race check.
TEST(ConcurrentEvaluationTest, WorkersSeeOneWholeVersionWhileTheOwnerApplies) {
   constexpr int kEdits = 1000;
   constexpr int kThreads = 4;
   unsigned seed = 11;
   if (const char* s = std::getenv("CONCURRENT_SEED")) seed = std::stoul(s);
   RandomConfig gen(seed);
   const std::vector<MatchInput_> routes = gen.routes(48);

   PolicyAgent agent;
   const auto list = agent.statusList({{RmPrecedence::rmBased, "RM"}});
   std::map<U64, std::vector<Outcome>> expected;  // written by the owner only
   std::map<U64, std::string> texts;
   const PolicyEvaluator ownerEval(list);
   auto recordExpected = [&] {
      std::vector<Outcome> want;
      U64 version = 0;
      for (const MatchInput_& r : routes) {
         const Evaluation e = ownerEval.evaluate(r);
         version = e.version;
         want.push_back(outcomeOf(e));
      }
      expected.emplace(version, std::move(want));  // kept if the list did not change
   };
   texts[agent.batch()] = "";
   recordExpected();

   std::atomic<bool> stop{false};
   std::atomic<int> running{0};
   std::vector<std::vector<Record>> records(kThreads);
   std::vector<std::string> failures(kThreads);
   std::vector<std::thread> workers;
   for (int t = 0; t < kThreads; ++t) {
      workers.emplace_back([&, t] {
         const PolicyEvaluator eval(list);
         std::mt19937 rng(seed * 100 + static_cast<unsigned>(t));
         U64 last = 0;
         running.fetch_add(1);
         while (!stop.load(std::memory_order_relaxed)) {
            const U32 i = static_cast<U32>(rng() % routes.size());
            // Every tenth with a log: the explaining path reads the same snapshot.
            const Evaluation e = eval.evaluate(routes[i], rng() % 10 == 0);
            if (e.version < last) failures[t] = "version went back from " + std::to_string(last);
            last = e.version;
            records[t].push_back({e.version, i, outcomeOf(e)});
            // Four busy threads on a small machine would starve the owner, and with it the
            // edits the test is about.
            if (records[t].size() % 8 == 0) std::this_thread::yield();
         }
      });
   }
   while (running.load() < kThreads) std::this_thread::yield();
   for (int edit = 0; edit < kEdits; ++edit) {
      const std::string text = gen.next();
      ASSERT_TRUE(agent.apply(text, "edit").ok()) << text;
      texts[agent.batch()] = text;
      recordExpected();
   }
   stop = true;
   for (std::thread& w : workers) w.join();

   std::size_t evaluations = 0;
   std::map<U64, std::size_t> versionsSeen;
   for (int t = 0; t < kThreads; ++t) {
      EXPECT_EQ(failures[t], "") << "thread " << t;
      for (const Record& r : records[t]) {
         ++evaluations;
         ++versionsSeen[r.version];
         const auto want = expected.find(r.version);
         ASSERT_NE(want, expected.end()) << "version " << r.version << " was never published";
         ASSERT_EQ(outcomeText(r.outcome), outcomeText(want->second[r.route]))
             << "seed " << seed << " (rerun with CONCURRENT_SEED) version " << r.version
             << " route " << routeText(routes[r.route]) << "\n"
             << texts[r.version];
      }
   }
   // Not a property of the engine but of the test: the workers really ran across the edits.
   EXPECT_GT(evaluations, 10u * kThreads);
   EXPECT_GT(versionsSeen.size(), 10u);
   std::printf("%zu evaluations on %d threads saw %zu of %zu published versions\n", evaluations,
               kThreads, versionsSeen.size(), expected.size());

   // The versions map to the texts: a fresh agent given only a version's text answers alike.
   std::size_t checked = 0;
   for (const auto& [version, want] : expected) {
      if (version % 97 != 0 && version != expected.rbegin()->first) continue;
      PolicyAgent fresh;
      ASSERT_TRUE(fresh.apply(texts.at(version), "fresh").ok());
      const PolicyEvaluator freshEval(fresh.statusList({{RmPrecedence::rmBased, "RM"}}));
      for (std::size_t i = 0; i < routes.size(); ++i) {
         ASSERT_EQ(outcomeText(outcomeOf(freshEval.evaluate(routes[i]))), outcomeText(want[i]))
             << "version " << version << " route " << routeText(routes[i]);
      }
      ++checked;
   }
   EXPECT_GT(checked, 1u);

   // Only the owner's evaluator still reads: every other retired snapshot has been freed.
   agent.runUntilIdle();
   EXPECT_EQ(list->retiredCount(), 0u);
}

class ChangeEventTest : public ::testing::Test {
protected:
   void SetUp() override {
      ASSERT_TRUE(agent_.apply(kBase, "base").ok());
      agent_.addChangeCallback([this](const ChangeEvent& e) { events_.push_back(e); });
   }
   // The changes of one apply as their texts, in route-map order.
   std::vector<std::string> applied(const std::string& text) {
      events_.clear();
      EXPECT_TRUE(agent_.apply(text, "edit").ok()) << text;
      std::vector<std::string> out;
      for (const ChangeEvent& e : events_) {
         EXPECT_EQ(e.version, agent_.batch());
         for (const RouteMapChange& c : e.routeMaps) out.push_back(c.text());
      }
      return out;
   }

   static constexpr const char* kBase = R"(
ip prefix-list PL seq 10 permit 10.0.0.0/8 le 24
ip prefix-list OTHER seq 10 permit 192.168.0.0/16
route-map SUB permit 10
   match ip address prefix-list PL
route-map RM permit 10
   sub-route-map SUB
route-map LONE permit 10
   match ip address prefix-list OTHER
)";
   PolicyAgent agent_;
   std::vector<ChangeEvent> events_;
};

TEST_F(ChangeEventTest, EachBatchNamesTheRouteMapsItChangedAndWhy) {
   const std::string base = kBase;
   const U64 b = agent_.batch();
   auto v = [&](U64 n) { return std::to_string(n); };

   EXPECT_EQ(applied(base), std::vector<std::string>{}) << "the same text changes nothing";

   // A list change reaches the route map that names it and, through the call, its caller.
   std::string edited = base;
   edited.replace(edited.find("le 24"), 5, "le 32");
   EXPECT_EQ(applied(edited),
             (std::vector<std::string>{
                 "route-map RM recompiled (version " + v(b) + " -> " + v(b + 2) +
                     "): route-map SUB",
                 "route-map SUB recompiled (version " + v(b) + " -> " + v(b + 2) +
                     "): prefix-list PL",
             }));

   // A route map's own edit, a new route map, a deleted one.
   std::string next = edited;
   next.replace(next.find("route-map LONE permit 10"), 24, "route-map LONE deny 10");
   next.replace(next.find("route-map RM permit 10"), 22,
                "route-map NEW permit 5\nroute-map RM permit 10");
   next.erase(next.find("route-map SUB permit 10"),
              std::string("route-map SUB permit 10\n   match ip address prefix-list PL\n").size());
   EXPECT_EQ(applied(next),
             (std::vector<std::string>{
                 "route-map LONE recompiled (version " + v(b) + " -> " + v(b + 3) +
                     "): route-map LONE",
                 "route-map NEW created (version 0 -> " + v(b + 3) + "): route-map NEW",
                 "route-map RM recompiled (version " + v(b + 2) + " -> " + v(b + 3) +
                     "): route-map SUB",
                 "route-map SUB deleted (version " + v(b + 2) + " -> " + v(b + 3) +
                     "): route-map SUB",
             }));
}

// A list that names a route map the configuration does not define denies every route by
// default; under MissingRouteMap::skip it leaves the name out. Either way, defining the route map
// later puts it in the list, and deleting it again brings the choice back.
TEST(MissingRouteMapTest, TheListsChoiceHoldsUntilTheRouteMapIsConfigured) {
   PolicyAgent agent;
   ASSERT_TRUE(agent.apply("route-map OTHER permit 10\n", "a").ok());
   MatchInput_ route;
   route.prefixIs(Nx::IpGenPrefix::fromStrep("10.1.0.0/16"));
   const PolicyEvaluator denying(agent.statusList({{RmPrecedence::rmBased, "LATER"}}));
   const PolicyEvaluator skipping(
       agent.statusList({{RmPrecedence::rmBased, "LATER"}}, MissingRouteMap::skip));
   const PolicyEvaluator explaining(agent.statusList({{RmPrecedence::rmBased, "LATER"}}));

   EXPECT_FALSE(denying.evaluate(route).permit);
   EXPECT_TRUE(skipping.evaluate(route).permit);
   EXPECT_FALSE(explaining.evaluate(route, true).permit);

   ASSERT_TRUE(agent.apply("route-map LATER permit 10\n   set tag 7\n", "b").ok());
   for (const PolicyEvaluator* e : {&denying, &skipping}) {
      const Evaluation got = e->evaluate(route);
      EXPECT_TRUE(got.permit);
      EXPECT_EQ(got.result.tag().value(), 7u);
   }

   ASSERT_TRUE(agent.apply("route-map OTHER permit 10\n", "c").ok());
   EXPECT_FALSE(denying.evaluate(route).permit);
   EXPECT_TRUE(skipping.evaluate(route).permit);
}

// A worker may still be evaluating when the daemon tears its agent down: the last snapshot holds
// everything evaluation reaches (lists, sub-route-maps), so the worker goes on answering from it.
TEST(ConcurrentEvaluationTest, AnEvaluatorOutlivesItsAgent) {
   std::unique_ptr<PolicyEvaluator> evaluator;
   {
      PolicyAgent agent;
      ASSERT_TRUE(agent
                      .apply("ip prefix-list PL seq 10 permit 10.0.0.0/8 le 24\n"
                             "route-map SUB permit 10\n   match ip address prefix-list PL\n"
                             "route-map RM permit 10\n   sub-route-map SUB\n   set tag 3\n",
                             "a")
                      .ok());
      evaluator = std::make_unique<PolicyEvaluator>(
          agent.statusList({{RmPrecedence::rmBased, "RM"}}));
   }
   MatchInput_ in;
   in.prefixIs(Nx::IpGenPrefix::fromStrep("10.1.0.0/16"));
   const Evaluation e = evaluator->evaluate(in, true);
   EXPECT_TRUE(e.permit);
   EXPECT_EQ(e.result.tag().value(), 3u);
   in.prefixIs(Nx::IpGenPrefix::fromStrep("11.0.0.0/16"));
   EXPECT_FALSE(evaluator->evaluate(in).permit);
}

}  // namespace
