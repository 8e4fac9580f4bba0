// Configuration text is input from outside the process, and a live agent meets it as a stream of
// changes. The input holds configuration texts separated by lines that read exactly "---" (an
// input without one is a single text). Each text must end in line-numbered errors, or in a
// document that prints back to itself. Then:
//
//    agent A applies every text in order (the incremental path; a text with errors changes
//    nothing, as in a live agent);
//    agent B applies only the last text (a fresh compile);
//
// and both must publish the same filtered configuration, and every route map the last text
// configures must decide a set of routes the same way on both: verdict, tag, preference and
// metric. Routes are a fixed set plus routes made from the last text's own prefixes, sources,
// tags, metrics, next hops and interfaces, so that its clauses can match.
//
// One exception is deliberate: which call of a sub-route-map cycle is withheld depends on the
// order the calls were configured in. When either agent blocks a sequence, each agent is held
// instead to a fresh compile of its own filtered configuration, which is what it must evaluate
// like whatever its history.
//
// Agent A also holds, from before the first text on, a status list for every route map any text
// names; after the last text each must decide as a list made then does (a route map the last
// text does not configure: deny everything), so snapshots follow creations, recompiles and
// deletions through every batch.
//
// Both profiles are run: the common component's machines and the agent's full ones.
//
// Mutated text mostly has an error somewhere, and a text with errors applies nothing. So that
// most inputs still exercise the incremental path, a text with errors is applied without the
// lines its errors name (again, up to a few times, as removing a header can expose the next
// error). A failure prints the texts as they were applied, separated by "---": that is an input
// that reproduces it as it stands.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "agent/ConfigText.h"
#include "agent/PolicyAgent.h"
#include "agent/RouteText.h"

using namespace Routing::Policy;
using namespace Routing::Policy::agent;

namespace {

constexpr std::string_view kSeparator = "---";
constexpr std::size_t kMaxRoutes = 48;

std::vector<std::string_view> split(std::string_view input) {
   std::vector<std::string_view> texts;
   std::size_t start = 0;
   std::size_t pos = 0;
   while (pos < input.size()) {
      std::size_t end = input.find('\n', pos);
      if (end == std::string_view::npos) end = input.size();
      if (input.substr(pos, end - pos) == kSeparator) {
         texts.push_back(input.substr(start, pos - start));
         start = std::min(end + 1, input.size());
      }
      pos = end + 1;
   }
   texts.push_back(input.substr(start));
   return texts;
}

std::string show(std::string_view text) {
   return "<<<\n" + std::string(text) + (text.empty() || text.back() != '\n' ? "\n" : "") + ">>>";
}

// Parses one text; aborts when an error lies outside it or an accepted document does not read
// back from its own printed form.
ParseResult parseChecked(std::string_view text) {
   ParseResult r = parseConfigText(text, "text");
   if (!r.ok()) {
      std::size_t lines = 1;
      for (char c : text) lines += c == '\n';
      for (const Diagnostic& e : r.errors) {
         if (e.line == 0 || e.line > lines) {
            std::fprintf(stderr, "error outside the text: %s\n%s\n", e.text().c_str(),
                         show(text).c_str());
            std::abort();
         }
      }
      return r;
   }
   const std::string printed = configText(r.document);
   if (!(parseConfigText(printed, "printed").document == r.document)) {
      std::fprintf(stderr, "the document does not print back to itself:\n%s\nprinted as\n%s\n",
                   show(text).c_str(), show(printed).c_str());
      std::abort();
   }
   return r;
}

// The text, or the text without the lines its errors name (repeatedly), once it parses.
struct Applied {
   std::string text;
   ParseResult parsed;
};

Applied repaired(std::string_view original) {
   Applied a{std::string(original), parseChecked(original)};
   for (int round = 0; round < 4 && !a.parsed.ok(); ++round) {
      std::set<U32> bad;
      for (const Diagnostic& e : a.parsed.errors) bad.insert(e.line);
      std::string kept;
      U32 line = 1;
      for (std::size_t pos = 0; pos < a.text.size(); ++line) {
         std::size_t end = a.text.find('\n', pos);
         end = end == std::string::npos ? a.text.size() : end + 1;
         if (!bad.count(line)) kept.append(a.text, pos, end - pos);
         pos = end;
      }
      a.text = std::move(kept);
      a.parsed = parseChecked(a.text);
   }
   return a;
}

MatchInput_ route(const char* text) {
   const auto r = parseRouteText(text);
   if (!r.ok()) {
      std::fprintf(stderr, "bad fixed route %s: %s\n", text, r.error.c_str());
      std::abort();
   }
   return *r.value;
}

const std::vector<MatchInput_>& fixedRoutes() {
   static const std::vector<MatchInput_> routes = {
       route("0.0.0.0/0"),
       route("10.0.0.0/8 protocol=ebgp tag=100 metric=10"),
       route("10.1.2.0/24 protocol=bgp tag=1 nexthop=10.0.0.1 interfaces=Ethernet1"),
       route("192.168.1.1/32 protocol=static metric=0 router-id=1.1.1.1"),
       route("198.51.100.0/24 protocol=ospf resolved-nexthop=192.0.2.1"),
       route("2001:db8::/32 protocol=ebgp tag=65001 nexthop=2001:db8::1"),
       route("::/0 protocol=connected"),
       route("172.16.0.0/12 protocol=isis tag=4294967295 metric=9223372036854775807"),
   };
   return routes;
}

// Routes that land on what the document names, each with a different protocol so that the
// source-protocol clauses see several.
std::vector<MatchInput_> routesFor(const ConfigDocument& doc) {
   static constexpr Routing::RouteProto kProtos[] = {
       Routing::RouteProto::bgp,  Routing::RouteProto::ebgp,        Routing::RouteProto::ibgp,
       Routing::RouteProto::ospf, Routing::RouteProto::staticRoute, Routing::RouteProto::connected,
       Routing::RouteProto::isis, Routing::RouteProto::rip};
   std::vector<Nx::IpGenPrefix> prefixes;
   std::vector<U32> tags;
   std::vector<Orb::MaybeU63> metrics;
   std::vector<Nx::IpGenAddr> nexthops;
   std::vector<Nx::IntfId> intfs;
   for (const auto& [key, list] : doc.prefixLists) {
      for (const auto& [seqno, rule] : list.rules) {
         prefixes.push_back(rule.prefix);
         // A longer prefix inside, so that ge/le ranges are crossed.
         const U32 longer = std::min<U32>(rule.prefix.maxLen(), rule.minLen() + 1);
         prefixes.emplace_back(rule.prefix.address(), longer);
      }
   }
   for (const auto& [key, list] : doc.accessLists) {
      for (const auto& [seqno, rule] : list.ipRules) {
         const auto& f = rule.filter();
         prefixes.emplace_back(Nx::IpGenAddr(f.source()), 32);
         prefixes.emplace_back(
             Nx::IpGenAddr(Nx::IpAddr(f.source().value() | f.sourceWildcard().value())), 32);
         prefixes.emplace_back(Nx::IpGenAddr(f.source()), 24);
      }
      for (const auto& [seqno, rule] : list.ip6Rules) prefixes.push_back(rule.filter().source());
   }
   for (const auto& [name, rm] : doc.routeMaps) {
      for (const auto& [seqno, seq] : rm.seqs) {
         for (const auto& [option, rule] : seq.matchRules) {
            switch (option) {
               case Routing::RouteMap::MatchOption::matchTag:
                  tags.push_back(rule.tag());
                  break;
               case Routing::RouteMap::MatchOption::matchMetric:
                  metrics.push_back(rule.metric());
                  break;
               case Routing::RouteMap::MatchOption::matchIpNexthop:
                  nexthops.push_back(rule.nexthop());
                  break;
               case Routing::RouteMap::MatchOption::matchInterface:
                  intfs.push_back(rule.intf());
                  break;
               default:
                  break;
            }
         }
      }
   }
   const std::size_t n = std::min(
       kMaxRoutes,
       std::max({prefixes.size(), tags.size(), metrics.size(), nexthops.size(), intfs.size()}));
   std::vector<MatchInput_> out;
   for (std::size_t i = 0; i < n; ++i) {
      MatchInput_ r;
      r.matchIntfIs(true);
      r.protocolIs(kProtos[i % std::size(kProtos)]);
      if (!prefixes.empty()) r.prefixIs(prefixes[i % prefixes.size()]);
      if (!tags.empty()) r.tagIs(Routing::RouteTag(tags[i % tags.size()]));
      if (!metrics.empty()) r.metricIs(metrics[i % metrics.size()]);
      if (!nexthops.empty()) {
         r.nexthopIs(nexthops[i % nexthops.size()]);
         r.resolvedNexthopIs(nexthops[i % nexthops.size()]);
      }
      if (!prefixes.empty() && prefixes[i % prefixes.size()].af() == Nx::AddressFamily::ipv4) {
         r.routerIdIs(prefixes[i % prefixes.size()].address().v4());
      }
      if (!intfs.empty()) {
         auto set = intfIdSetFactory();
         set->intfIdIs(intfs[i % intfs.size()]);
         r.intfIdSetIs(set);
      }
      out.push_back(std::move(r));
   }
   return out;
}

struct Verdict {
   bool permit = false;
   Result_ result;
   bool operator==(const Verdict& o) const { return permit == o.permit && result == o.result; }
};

// Evaluation of one route map through the agent's published status list, as an embedder does it.
class Decider {
public:
   Decider(PolicyAgent& agent, const Kel::Name& rm)
       : agent_(agent), list_(agent.statusList({{RmPrecedence::rmBased, rm}})), eval_(list_) {}
   ~Decider() { agent_.dropStatusList(list_); }
   Decider(const Decider&) = delete;
   Decider& operator=(const Decider&) = delete;

   Verdict operator()(const MatchInput_& r) const {
      const Evaluation e = eval_.evaluate(r);
      return {e.permit, e.result};
   }

private:
   PolicyAgent& agent_;
   Kel::Ptr<PublishedStatusList> list_;
   PolicyEvaluator eval_;
};

[[noreturn]] void differ(const char* what, Profile profile, const Kel::Name& rm,
                         const MatchInput_& r, const Verdict& va, const Verdict& vb,
                         std::string_view input, const std::string& dumpA,
                         const std::string& dumpB) {
   std::fprintf(stderr,
                "%s differ (profile %s), route map %s, route %s:\n  %s\n  %s\n"
                "texts as applied:\n%s\ncompiled:\n%s\nand\n%s\n",
                what, std::string(profileName(profile)).c_str(), rm.c_str(), routeText(r).c_str(),
                verdictText(va.permit, va.result).c_str(),
                verdictText(vb.permit, vb.result).c_str(), show(input).c_str(), dumpA.c_str(),
                dumpB.c_str());
   std::abort();
}

// The route maps of `doc` decide `routes` alike on both agents.
void compare(const char* what, PolicyAgent& a, PolicyAgent& b, const ConfigDocument& doc,
             const std::vector<MatchInput_>& routes, std::string_view input, Profile profile) {
   for (const auto& [name, rm] : doc.routeMaps) {
      const Decider da(a, name);
      const Decider db(b, name);
      for (const MatchInput_& r : routes) {
         const Verdict va = da(r);
         const Verdict vb = db(r);
         if (!(va == vb)) {
            differ(what, profile, name, r, va, vb, input, a.routeMapDump(name),
                   b.routeMapDump(name));
         }
      }
   }
}

// Status lists made before the first text, which followed every change since: each must end
// where a list made now starts, and a route map the last text does not configure denies all.
void compareFollowed(const std::map<Kel::Name, std::unique_ptr<Decider>>& followed,
                     PolicyAgent& agent, const ConfigDocument& last,
                     const std::vector<MatchInput_>& routes, std::string_view input,
                     Profile profile) {
   for (const auto& [name, decide] : followed) {
      const bool configured = last.routeMaps.count(name) != 0;
      std::unique_ptr<Decider> now;
      if (configured) now = std::make_unique<Decider>(agent, name);
      for (const MatchInput_& r : routes) {
         const Verdict got = (*decide)(r);
         const Verdict want = configured ? (*now)(r) : Verdict{};
         if (!(got == want)) {
            differ("followed and new status lists'", profile, name, r, got, want, input,
                   agent.routeMapDump(name), configured ? "(the same)" : "(not configured)");
         }
      }
   }
}

// The agent against a fresh compile of what its filter published.
void compareWithFiltered(const char* what, PolicyAgent& agent, const ConfigDocument& doc,
                         const std::vector<MatchInput_>& routes, std::string_view input,
                         Profile profile) {
   PolicyAgent fresh(profile);
   fresh.apply(agent.filteredDocument());
   if (!fresh.blockedSequences().empty()) {
      std::fprintf(stderr,
                   "%s: the filtered configuration still blocks: %s\ntexts as applied:\n%s\n", what,
                   fresh.blockedSequences().front().text().c_str(), show(input).c_str());
      std::abort();
   }
   compare(what, agent, fresh, doc, routes, input, profile);
}

void run(Profile profile, const std::vector<Applied>& texts, const std::vector<MatchInput_>& routes,
         std::string_view input) {
   const ConfigDocument& last = texts.back().parsed.document;
   PolicyAgent incremental(profile);
   std::map<Kel::Name, std::unique_ptr<Decider>> followed;
   for (const Applied& t : texts) {
      if (!t.parsed.ok()) continue;
      for (const auto& [name, rm] : t.parsed.document.routeMaps) {
         if (!followed.count(name))
            followed.emplace(name, std::make_unique<Decider>(incremental, name));
      }
   }
   for (const Applied& t : texts) {
      if (t.parsed.ok()) incremental.apply(t.parsed.document);
   }
   compareFollowed(followed, incremental, last, routes, input, profile);
   PolicyAgent fresh(profile);
   fresh.apply(last);
   if (incremental.blockedSequences().empty() && fresh.blockedSequences().empty()) {
      // What the filter published is the configuration itself, whatever the history.
      const ConfigDocument a = incremental.filteredDocument();
      const ConfigDocument b = fresh.filteredDocument();
      if (!(a == b)) {
         std::fprintf(stderr,
                      "incremental and fresh filtered configurations differ (profile %s)\n"
                      "texts as applied:\n%s\nincremental:\n%s\nfresh:\n%s\n",
                      std::string(profileName(profile)).c_str(), show(input).c_str(),
                      show(configText(a)).c_str(), show(configText(b)).c_str());
         std::abort();
      }
      compare("incremental and fresh verdicts", incremental, fresh, last, routes, input, profile);
      return;
   }
   compareWithFiltered("incremental and filtered verdicts", incremental, last, routes, input,
                       profile);
   compareWithFiltered("fresh and filtered verdicts", fresh, last, routes, input, profile);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   std::vector<Applied> texts;
   std::string applied;
   for (std::string_view text :
        split(std::string_view(reinterpret_cast<const char*>(data), size))) {
      texts.push_back(repaired(text));
      if (!texts.back().parsed.ok()) continue;
      if (!applied.empty()) applied += std::string(kSeparator) + "\n";
      applied += texts.back().text;
      if (!applied.empty() && applied.back() != '\n') applied += '\n';
   }
   if (!texts.back().parsed.ok()) return 0;
   const std::string_view input = applied;
   std::vector<MatchInput_> routes = fixedRoutes();
   for (MatchInput_& r : routesFor(texts.back().parsed.document)) routes.push_back(std::move(r));
   for (Profile profile : {Profile::full, Profile::common}) run(profile, texts, routes, input);
   return 0;
}
