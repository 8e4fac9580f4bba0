// The incremental compiler against fresh compiles, at scale: for each seed, a stream of random
// whole configurations (tests/agent/RandomConfig.h, the whole language) is applied to one live
// agent; after every step each route map's answer to every route, verdict and result, must equal
// that of a fresh agent given only that step's text. Now and then a step carries an error: the
// live agent must refuse it whole and go on answering as before.
//
// Seeds alternate between the full and the common profile, and one seed in three runs with the
// access-list toggle off. The toggle is read once per process, so every seed runs in a process
// of its own (fork), which also keeps a crash in one seed from hiding the seeds after it.
//
// On a mismatch the seed, the step and a reduced pair of configurations (the previous text and
// the failing one, with every block and line dropped that the mismatch does not need) are
// printed, and the exit code is 1.
//
// Usage: soak (--seconds N | --seeds N) [--first-seed S] [--steps K] [--routes R]

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Toggle/Toggle.h"
#include "agent/PolicyAgent.h"
#include "agent/RouteText.h"
#include "tests/agent/RandomConfig.h"

namespace {

using namespace Routing::Policy;
using namespace Routing::Policy::agent;
using rp_agent_test::RandomConfig;
using Clock = std::chrono::steady_clock;

struct Options {
   double seconds = 0;
   unsigned seeds = 0;
   unsigned firstSeed = 1;
   unsigned steps = 50;
   unsigned routes = 150;
   // Makes the live agent skip one step's apply, so that the run must fail and reduce: how the
   // checker itself is tested.
   bool skipOneApply = false;
};

// What one seed did, sent from its process to the parent.
struct Tally {
   unsigned long long edits = 0;
   unsigned long long refused = 0;  // steps with an error, refused as they must be
   unsigned long long answers = 0;  // (route map, route) answers compared
   unsigned long long permits = 0;  // of those, permits
   unsigned long long held = 0;     // steps where the live agent held back a call on a cycle
   // Of those, steps where it held back other calls than a fresh agent, and was compared with
   // a fresh agent given the text without its held-back calls.
   unsigned long long heldOther = 0;
};

struct Setup {
   Profile profile;
   bool accessLists;  // the toggle
};

Setup setupOf(unsigned seed) {
   return {seed % 2 ? Profile::full : Profile::common, (seed / 2) % 3 != 2};
}

std::string setupText(const Setup& s) {
   return std::string("profile ") + std::string(profileName(s.profile)) + ", access lists " +
          (s.accessLists ? "on" : "off");
}

// ---- one agent's answers ------------------------------------------------------------------

class Answers {
public:
   Answers(const std::vector<std::string>& routeMaps, const std::vector<MatchInput_>& routes)
       : routeMaps_(routeMaps), routes_(routes) {}

   // Status lists made once per agent; they follow every later apply.
   std::vector<Kel::Ptr<PublishedStatusList>> listsOf(PolicyAgent& agent) const {
      std::vector<Kel::Ptr<PublishedStatusList>> out;
      for (const std::string& rm : routeMaps_) {
         out.push_back(agent.statusList({{RmPrecedence::rmBased, rm}}));
      }
      return out;
   }

   std::vector<std::string> of(const std::vector<Kel::Ptr<PublishedStatusList>>& lists) const {
      std::vector<std::string> out;
      out.reserve(lists.size() * routes_.size());
      for (const auto& list : lists) {
         const PolicyEvaluator eval(list);
         for (const MatchInput_& r : routes_) {
            const Evaluation e = eval.evaluate(r);
            out.push_back(verdictText(e.permit, e.result));
         }
      }
      return out;
   }

   // Empty when equal; else the first difference and how many there are.
   std::string difference(const std::vector<std::string>& live,
                          const std::vector<std::string>& want, const char* wantName) const {
      std::size_t count = 0, first = 0;
      for (std::size_t i = 0; i < live.size(); ++i) {
         if (live[i] == want[i]) continue;
         if (count++ == 0) first = i;
      }
      if (count == 0) return "";
      const std::size_t rm = first / routes_.size(), r = first % routes_.size();
      return "route-map " + routeMaps_[rm] + ", route " + routeText(routes_[r]) + ": live '" +
             live[first] + "', " + wantName + " '" + want[first] + "' (" + std::to_string(count) +
             " of " + std::to_string(live.size()) + " answers differ)";
   }

private:
   const std::vector<std::string>& routeMaps_;
   const std::vector<MatchInput_>& routes_;
};

std::string blockedText(const std::vector<BlockedSequence>& b) {
   std::string out;
   for (const BlockedSequence& s : b) {
      out += (out.empty() ? "" : ", ") + s.routeMap + " seq " + std::to_string(s.seqno);
   }
   return out.empty() ? "none" : out;
}

// The text without the given lines (1-based).
std::string withoutLines(const std::string& text, const std::set<U32>& drop) {
   std::string out;
   U32 n = 0;
   for (std::size_t at = 0; at < text.size();) {
      std::size_t nl = text.find('\n', at);
      if (nl == std::string::npos) nl = text.size() - 1;
      if (!drop.count(++n)) out.append(text, at, nl + 1 - at);
      at = nl + 1;
   }
   return out;
}

// Compares the live agent, which has just applied `text`, with fresh agents.
class Checker {
public:
   Checker(Profile profile, const Answers& answers) : profile_(profile), answers_(answers) {}

   // An agent that starts on the text already written: the start-up path of the machines.
   std::unique_ptr<PolicyAgent> fresh(const std::string& text) const {
      auto a = std::make_unique<PolicyAgent>(PolicyAgent::Start::deferred, profile_);
      const ApplyResult r = a->apply(text, "fresh");
      if (!r.ok()) return nullptr;
      a->start();
      a->runUntilIdle();
      return a;
   }

   // Empty when the live agent answers as it must.
   //
   // Of the calls on a sub-route-map cycle, the one applied last is held back, so the live agent
   // may hold back another call than a fresh one does, and answer differently for that reason
   // alone. The live agent is then compared with a fresh agent given the text without the calls
   // the live one holds back; that text must hold no cycle, and each call the live agent holds
   // back must close one.
   // `seen`, when given, counts what was compared.
   std::string check(PolicyAgent& live, const std::vector<Kel::Ptr<PublishedStatusList>>& lists,
                     const std::string& text, Tally* seen = nullptr) const {
      const auto reference = fresh(text);
      if (!reference) return "a fresh agent refused the text";
      const std::vector<std::string> liveAnswers = answers_.of(lists);
      const std::vector<BlockedSequence> held = live.blockedSequences();
      const std::string liveHeld = blockedText(held);
      if (seen) {
         seen->answers += liveAnswers.size();
         for (const std::string& a : liveAnswers) seen->permits += a[0] == 'p';
         seen->held += !held.empty();
      }
      if (liveHeld == blockedText(reference->blockedSequences())) {
         return answers_.difference(liveAnswers, answers_.of(answers_.listsOf(*reference)),
                                    "fresh");
      }
      if (seen) ++seen->heldOther;
      std::vector<U32> callLines;
      for (const BlockedSequence& b : held) {
         const RouteMapSeqDoc& seq = live.document().routeMaps.at(b.routeMap).seqs.at(b.seqno);
         if (seq.subRouteMapLine == 0) return "live holds back " + b.text() + " without a call";
         callLines.push_back(seq.subRouteMapLine);
      }
      const auto unblocked = fresh(withoutLines(text, {callLines.begin(), callLines.end()}));
      if (!unblocked) return "the text without the held-back calls does not parse";
      if (!unblocked->blockedSequences().empty()) {
         return "live holds back " + liveHeld + ", which leaves a cycle: without those calls a " +
                "fresh agent holds back " + blockedText(unblocked->blockedSequences());
      }
      for (std::size_t i = 0; i < held.size(); ++i) {
         std::set<U32> others(callLines.begin(), callLines.end());
         others.erase(callLines[i]);
         const auto withOne = fresh(withoutLines(text, others));
         if (withOne && withOne->blockedSequences().empty()) {
            return "live holds back " + held[i].routeMap + " seq " + std::to_string(held[i].seqno) +
                   ", whose call closes no cycle";
         }
      }
      return answers_.difference(liveAnswers, answers_.of(answers_.listsOf(*unblocked)),
                                 "fresh without the held-back calls");
   }

private:
   Profile profile_;
   const Answers& answers_;
};

// ---- reduction ------------------------------------------------------------------------------

std::vector<std::string> linesOf(const std::string& text) {
   std::vector<std::string> out;
   for (std::size_t at = 0; at < text.size();) {
      std::size_t nl = text.find('\n', at);
      if (nl == std::string::npos) nl = text.size() - 1;
      out.push_back(text.substr(at, nl + 1 - at));
      at = nl + 1;
   }
   return out;
}

// A block is a line at the left margin and the indented lines under it.
std::vector<std::string> blocksOf(const std::string& text) {
   std::vector<std::string> out;
   for (const std::string& l : linesOf(text)) {
      if (out.empty() || (l[0] != ' ' && l[0] != '\t')) {
         out.push_back(l);
      } else {
         out.back() += l;
      }
   }
   return out;
}

std::string joined(const std::vector<std::string>& units) {
   std::string out;
   for (const std::string& u : units) out += u;
   return out;
}

// Drops runs of units, halving the run length down to one, for as long as `fails` holds.
std::string reduce(const std::vector<std::string>& start,
                   const std::function<bool(const std::string&)>& fails) {
   std::vector<std::string> units = start;
   for (std::size_t chunk = std::max<std::size_t>(1, units.size() / 2);; chunk /= 2) {
      for (bool dropped = true; dropped;) {
         dropped = false;
         for (std::size_t at = 0; at < units.size();) {
            std::vector<std::string> candidate(units.begin(), units.begin() + at);
            candidate.insert(candidate.end(), units.begin() + std::min(units.size(), at + chunk),
                             units.end());
            if (fails(joined(candidate))) {
               units = std::move(candidate);
               dropped = true;
            } else {
               at += chunk;
            }
         }
      }
      if (chunk <= 1) break;
   }
   return joined(units);
}

// ---- one seed -------------------------------------------------------------------------------

// A line that makes any text it is put into an error, wherever it lands.
const char* const kBadLines[] = {
    "route-map RM permit 0",
    "ip prefix-list PA seq 10 permit 10.1.2.3/24",
    "ipv6 prefix-list P6 seq 10 permit 2001:db8::/32 le 129",
    "bogus words",
    "   set tag x",
    "route-map R1 permit 10 extra",
    "ip prefix-list PB seq 4294967296 deny 10.0.0.0/8",
    "ip prefix-list PC seq 10 permit 10.0.0.0/8 ge 7",
};

class SeedRun {
public:
   SeedRun(unsigned seed, const Options& o, Clock::time_point deadline)
       : seed_(seed),
         setup_(setupOf(seed)),
         o_(o),
         deadline_(deadline),
         gen_(seed, RandomConfig::everything()),
         driver_(seed * 7919u + 1),
         routes_(gen_.routes(o.routes)),
         answers_(gen_.routeMapNames(), routes_),
         checker_(setup_.profile, answers_) {}

   // 0 when every step agreed.
   int run(Tally& tally) {
      PolicyAgent live(setup_.profile);
      const auto lists = answers_.listsOf(live);
      std::vector<std::string> before = answers_.of(lists);
      // The step whose apply the live agent skips, with --skip-one-apply.
      const unsigned skipped = o_.skipOneApply ? 1 + static_cast<unsigned>(driver_() % 4) : ~0u;
      for (unsigned step = 0; step < o_.steps; ++step) {
         if (step > 0 && Clock::now() >= deadline_) break;
         const std::string text = gen_.next();
         if (driver_() % 20 == 0) {
            // An error anywhere refuses the whole text: nothing changes.
            std::vector<std::string> lines = linesOf(text);
            const std::string bad = std::string(kBadLines[driver_() % std::size(kBadLines)]) + "\n";
            lines.insert(lines.begin() + static_cast<long>(driver_() % (lines.size() + 1)), bad);
            const ApplyResult r = live.apply(joined(lines), "live");
            std::string problem;
            if (r.ok()) {
               problem = "a text with the line '" + bad.substr(0, bad.size() - 1) + "' was applied";
            } else {
               problem = answers_.difference(answers_.of(lists), before, "before the refused text");
            }
            if (!problem.empty()) {
               std::printf("soak: seed %u (%s), step %u: %s\n--- text ---\n%s", seed_,
                           setupText(setup_).c_str(), step, problem.c_str(), joined(lines).c_str());
               return 1;
            }
            ++tally.refused;
            ++tally.edits;
            continue;
         }
         if (step != skipped) {
            const ApplyResult r = live.apply(text, "live");
            if (!r.ok()) {
               std::printf(
                   "soak: seed %u, step %u: the generator made a text with an error: %s\n%s", seed_,
                   step, r.errors[0].text().c_str(), text.c_str());
               return 1;
            }
         }
         history_.push_back(text);
         const std::string problem = checker_.check(live, lists, text, &tally);
         if (!problem.empty()) {
            report(step, problem, step == skipped);
            return 1;
         }
         before = answers_.of(lists);
         ++tally.edits;
      }
      return 0;
   }

private:
   // The mismatch, replayed on a new live agent: `earlier` then `previous` applied, then
   // `current` (unless the live agent skipped it) and checked.
   std::string replay(const std::vector<std::string>& earlier, const std::string* previous,
                      const std::string& current, bool skipCurrent) const {
      PolicyAgent live(setup_.profile);
      const auto lists = answers_.listsOf(live);
      for (const std::string& t : earlier) {
         if (!live.apply(t, "live").ok()) return "";
      }
      if (previous && !live.apply(*previous, "live").ok()) return "";
      // A cut that breaks the text is no reduction, whether or not the live agent reads it.
      if (!parseConfigText(current, "live").ok()) return "";
      if (!skipCurrent && !live.apply(current, "live").ok()) return "";
      return checker_.check(live, lists, current);
   }

   void report(unsigned step, const std::string& problem, bool skipCurrent) const {
      std::printf("soak: seed %u (%s), step %u: %s\n", seed_, setupText(setup_).c_str(), step,
                  problem.c_str());
      std::printf("  rerun: scripts/soak --first-seed %u --seeds 1 --steps %u%s\n", seed_, step + 1,
                  o_.skipOneApply ? " --skip-one-apply" : "");
      const std::size_t n = history_.size() - 1;  // history_[n] is the failing text
      const std::string& current = history_[n];
      // The shortest run of earlier texts that still fails: none, the previous one, the three
      // before it, and so on, up to all of them.
      std::vector<std::string> earlier;
      const std::string* previous = nullptr;
      bool found = !replay({}, nullptr, current, skipCurrent).empty();
      for (std::size_t back = 1; !found && back <= n; back = std::min(n, back * 2 + 1)) {
         previous = &history_[n - 1];
         earlier.assign(history_.begin() + static_cast<long>(n - back), history_.end() - 2);
         found = !replay(earlier, previous, current, skipCurrent).empty();
         if (back == n) break;
      }
      if (!found) {
         std::printf(
             "  the mismatch does not come back when the texts are replayed; every text "
             "of the seed follows\n");
         for (std::size_t i = 0; i <= n; ++i) {
            std::printf("--- text %zu ---\n%s", i, history_[i].c_str());
         }
         return;
      }
      std::string cur = current, prev = previous ? *previous : std::string();
      auto failsWithCurrent = [&](const std::string& c) {
         return !replay(earlier, previous ? &prev : nullptr, c, skipCurrent).empty();
      };
      auto failsWithPrevious = [&](const std::string& p) {
         return !replay(earlier, &p, cur, skipCurrent).empty();
      };
      cur = reduce(blocksOf(cur), failsWithCurrent);
      cur = reduce(linesOf(cur), failsWithCurrent);
      if (previous) {
         prev = reduce(blocksOf(prev), failsWithPrevious);
         prev = reduce(linesOf(prev), failsWithPrevious);
         cur = reduce(linesOf(cur), failsWithCurrent);
      }
      const std::string still = replay(earlier, previous ? &prev : nullptr, cur, skipCurrent);
      if (!earlier.empty()) {
         std::printf(
             "  it needs the %zu texts before the previous one applied first (not "
             "reduced)\n",
             earlier.size());
         for (std::size_t i = 0; i < earlier.size(); ++i) {
            std::printf("--- earlier text %zu ---\n%s", i, earlier[i].c_str());
         }
      }
      if (previous) {
         std::printf("--- previous text, reduced (%zu of %zu lines) ---\n%s", linesOf(prev).size(),
                     linesOf(*previous).size(), prev.c_str());
      } else {
         std::printf("  (a new live agent given only this text fails too)\n");
      }
      std::printf("--- failing text, reduced (%zu of %zu lines) ---\n%s", linesOf(cur).size(),
                  linesOf(current).size(), cur.c_str());
      if (skipCurrent) std::printf("  (the live agent skipped this apply: --skip-one-apply)\n");
      std::printf("--- the reduced pair: %s\n", still.c_str());
   }

   unsigned seed_;
   Setup setup_;
   const Options& o_;
   Clock::time_point deadline_;
   RandomConfig gen_;
   std::mt19937 driver_;  // the run's own choices, so the generator's stream stays the seed's
   std::vector<MatchInput_> routes_;
   Answers answers_;
   Checker checker_;
   std::vector<std::string> history_;  // the texts applied, one per step that was not refused
};

// ---- the driver -----------------------------------------------------------------------------

constexpr const char* kUsage =
    "usage: soak (--seconds N | --seeds N) [--first-seed S] [--steps K] [--routes R]\n"
    "  --seconds N       run seeds until N seconds have passed\n"
    "  --seeds N         run N seeds\n"
    "  --first-seed S    the first seed (default 1); seeds count up from it\n"
    "  --steps K         configurations per seed (default 50)\n"
    "  --routes R        routes per seed (default 150)\n"
    "  --skip-one-apply  the live agent skips one apply, which must be caught (tests the "
    "checker)\n";

int usage(const char* why) {
   std::fprintf(stderr, "soak: %s\n%s", why, kUsage);
   return 2;
}

bool number(const char* s, double& out) {
   char* end = nullptr;
   out = std::strtod(s, &end);
   return end != s && *end == '\0' && out >= 0;
}

}  // namespace

int main(int argc, char** argv) {
   Options o;
   for (int i = 1; i < argc; ++i) {
      const std::string a = argv[i];
      if (a == "--help" || a == "-h") {
         std::fputs(kUsage, stdout);
         return 0;
      }
      if (a == "--skip-one-apply") {
         o.skipOneApply = true;
         continue;
      }
      double v = 0;
      if (i + 1 >= argc || !number(argv[i + 1], v))
         return usage(("bad or missing value for " + a).c_str());
      ++i;
      if (a == "--seconds") {
         o.seconds = v;
      } else if (a == "--seeds") {
         o.seeds = static_cast<unsigned>(v);
      } else if (a == "--first-seed") {
         o.firstSeed = static_cast<unsigned>(v);
      } else if (a == "--steps") {
         o.steps = static_cast<unsigned>(v);
      } else if (a == "--routes") {
         o.routes = static_cast<unsigned>(v);
      } else {
         return usage(("unknown option " + a).c_str());
      }
   }
   if ((o.seconds > 0) == (o.seeds > 0)) return usage("give one of --seconds N and --seeds N");
   if (o.steps == 0 || o.routes == 0) return usage("--steps and --routes must be at least 1");

   const Clock::time_point start = Clock::now();
   const Clock::time_point deadline = o.seconds > 0
                                          ? start + std::chrono::duration_cast<Clock::duration>(
                                                        std::chrono::duration<double>(o.seconds))
                                          : Clock::time_point::max();
   Tally total;
   unsigned seeds = 0;
   for (unsigned seed = o.firstSeed;; ++seed) {
      if (o.seeds > 0 ? seeds == o.seeds : Clock::now() >= deadline) break;
      int pipeFds[2];
      if (::pipe(pipeFds) != 0) {
         std::perror("soak: pipe");
         return 2;
      }
      std::fflush(stdout);
      const pid_t pid = ::fork();
      if (pid < 0) {
         std::perror("soak: fork");
         return 2;
      }
      if (pid == 0) {
         ::close(pipeFds[0]);
         Toggle::toggleStateIs("RoutingPolicyIpAclToggle", setupOf(seed).accessLists);
         Tally t;
         const int code = SeedRun(seed, o, deadline).run(t);
         std::fflush(stdout);
         if (::write(pipeFds[1], &t, sizeof t) != static_cast<ssize_t>(sizeof t)) ::_exit(2);
         ::_exit(code);
      }
      ::close(pipeFds[1]);
      Tally t;
      const bool got = ::read(pipeFds[0], &t, sizeof t) == static_cast<ssize_t>(sizeof t);
      ::close(pipeFds[0]);
      int status = 0;
      ::waitpid(pid, &status, 0);
      ++seeds;
      if (WIFSIGNALED(status)) {
         std::printf(
             "soak: seed %u (%s) died of signal %d (%s); rerun: scripts/soak "
             "--first-seed %u --seeds 1\n",
             seed, setupText(setupOf(seed)).c_str(), WTERMSIG(status), strsignal(WTERMSIG(status)),
             seed);
         return 1;
      }
      if (!got || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return 1;
      total.edits += t.edits;
      total.refused += t.refused;
      total.answers += t.answers;
      total.permits += t.permits;
      total.held += t.held;
      total.heldOther += t.heldOther;
   }
   const double secs = std::chrono::duration<double>(Clock::now() - start).count();
   const double permits =
       total.answers ? 100.0 * static_cast<double>(total.permits) / total.answers : 0.0;
   std::printf(
       "soak: %u seeds (from %u), %llu edits (%llu refused texts among them), %llu route "
       "answers compared (%.0f%% permits), %llu steps with calls held back on a cycle (%llu "
       "unlike a fresh agent's), %.1f s\n",
       seeds, o.firstSeed, total.edits, total.refused, total.answers, permits, total.held,
       total.heldOther, secs);
   return 0;
}
