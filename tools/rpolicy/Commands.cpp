#include "Commands.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "FdStream.h"
#include "agent/Clauses.h"
#include "agent/ConfigText.h"
#include "agent/PolicyAgent.h"
#include "agent/RouteText.h"
#include "agent/TextTokens.h"

namespace rpolicy {

namespace {

using namespace Routing::Policy;
using namespace Routing::Policy::agent;
using Routing::RouteMap::MatchOption;

// Ends a command with an exit code; the message, when there is one, goes to stderr. Thrown only
// inside this file: runRpolicy turns it into its return value.
struct Failure {
   int code;
   std::string message;
};

struct Io {
   std::istream& in;
   std::ostream& out;
   std::ostream& err;
   bool progress;
};

struct Options {
   std::string config;
   std::string routes = "-";
   std::string cases;
   std::string routeMap;
   std::vector<std::string> applies;
   std::vector<std::string> thens;
   bool changed = false;
   bool json = false;
   bool explain = false;
   unsigned threads = 1;
   std::string profileText = "full";
   Profile profile = Profile::full;  // from profileText, once parsed
};

// All of `s`. A read that fails part-way ends the command: the part read is a shorter input that
// may well parse, and answering for it would answer for a file the user did not give. A stream
// buffer reports a failed read by throwing (file buffers do, and so does FdInBuf); the stream
// turns that into badbit, and with badbit in its exception mask passes the buffer's exception,
// and with it the system's reason, on to here.
std::string readAll(std::istream& s, const std::string& name) {
   std::string text, reason;
   const std::ios::iostate mask = s.exceptions();
   try {
      s.exceptions(std::ios::badbit);
      std::array<char, 1 << 16> buf;
      while (s.read(buf.data(), buf.size()), s.gcount() > 0) {
         text.append(buf.data(), static_cast<std::size_t>(s.gcount()));
      }
   } catch (const std::ios_base::failure& e) {
      const std::error_code c = e.code();
      const bool fromSystem =
          c.category() == std::generic_category() || c.category() == std::system_category();
      reason = fromSystem && c.value() != 0 ? c.message() : "read error";
   } catch (const std::exception& e) {
      reason = e.what();
   }
   try {
      s.exceptions(mask);
   } catch (const std::exception&) {
      // The caller's mask throws on the state the failure left; the failure is reported below.
   }
   if (s.bad() || !reason.empty()) {
      throw Failure{kUsage,
                    "cannot read " + name + ": " + (reason.empty() ? "read error" : reason)};
   }
   return text;
}

// The whole of the file at `path`, or of standard input for "-".
std::string readInput(const std::string& path, Io& io) {
   if (path == "-") return readAll(io.in, "standard input");
   // A directory opens; its first read fails (EISDIR) and is reported like any failed read.
   std::ifstream f(path, std::ios::binary);
   if (!f.is_open()) throw Failure{kUsage, "cannot read " + path + ": " + std::strerror(errno)};
   return readAll(f, path);
}

// How many diagnostics one list prints before it only counts the rest.
constexpr std::size_t kShownDiagnostics = 100;

std::string countOf(std::size_t n, const char* what) {
   return std::to_string(n) + " more " + what + (n == 1 ? "" : "s");
}

// Prints diagnostics of one file in line order: at most kShownDiagnostics, then one line
// counting the rest, so that a file of garbage cannot bury the terminal. Errors take their
// places first and warnings fill what is left, so a flood of warnings cannot hide the error
// that stopped the command.
void printDiagnostics(std::vector<Diagnostic> found, std::ostream& os) {
   std::stable_sort(found.begin(), found.end(),
                    [](const Diagnostic& a, const Diagnostic& b) { return a.line < b.line; });
   const auto errors = static_cast<std::size_t>(
       std::count_if(found.begin(), found.end(), [](const Diagnostic& d) { return !d.warning; }));
   std::size_t errorPlaces = std::min(errors, kShownDiagnostics);
   std::size_t warningPlaces = kShownDiagnostics - errorPlaces;
   std::size_t hiddenErrors = 0, hiddenWarnings = 0;
   for (const Diagnostic& d : found) {
      std::size_t& places = d.warning ? warningPlaces : errorPlaces;
      if (places == 0) {
         ++(d.warning ? hiddenWarnings : hiddenErrors);
         continue;
      }
      --places;
      os << d.text() << '\n';
   }
   if (hiddenErrors == 0 && hiddenWarnings == 0) return;
   os << "... and ";
   if (hiddenErrors) os << countOf(hiddenErrors, "error") << (hiddenWarnings ? " and " : "");
   if (hiddenWarnings) os << countOf(hiddenWarnings, "warning");
   os << '\n';
}

// Sequences held back because their sub-route-map call would close a cycle, as warnings at the
// sequence's line: they evaluate without the call, which whoever reads the answers must know.
std::vector<Diagnostic> blockedWarnings(const PolicyAgent& agent, const std::string& path) {
   std::vector<Diagnostic> out;
   for (const BlockedSequence& b : agent.blockedSequences()) {
      U32 line = 0;
      if (auto rm = agent.document().routeMaps.find(b.routeMap);
          rm != agent.document().routeMaps.end()) {
         if (auto s = rm->second.seqs.find(b.seqno); s != rm->second.seqs.end()) {
            line = s->second.subRouteMapLine != 0 ? s->second.subRouteMapLine : s->second.line;
         }
      }
      out.push_back(Diagnostic{path, line, b.text(), true});
   }
   return out;
}

// Applies one configuration file; its warnings go to stderr, its errors end the command.
void applyConfig(PolicyAgent& agent, const std::string& path, Io& io) {
   const ApplyResult r = agent.apply(readInput(path, io), path);
   std::vector<Diagnostic> found = r.errors;
   found.insert(found.end(), r.warnings.begin(), r.warnings.end());
   if (r.ok()) {
      for (Diagnostic& d : blockedWarnings(agent, path)) found.push_back(std::move(d));
   }
   printDiagnostics(std::move(found), io.err);
   if (!r.ok()) throw Failure{kUsage, ""};
}

// --route-map NAME and --apply PRECEDENCE=NAME as a status list's members. One route map per
// precedence: two at the same precedence would leave their order to the list's internals.
std::vector<std::pair<RmPrecedence, Kel::Name>> routeMapsNamed(const Options& o) {
   std::vector<std::pair<RmPrecedence, Kel::Name>> out;
   if (!o.routeMap.empty()) out.emplace_back(RmPrecedence::rmBased, o.routeMap);
   for (const std::string& a : o.applies) {
      const auto eq = a.find('=');
      if (eq == std::string::npos || eq == 0 || eq + 1 == a.size()) {
         throw Failure{kUsage, "--apply expects PRECEDENCE=NAME, got '" + a + "'"};
      }
      RmPrecedence p;
      try {
         p = RmPrecedence::fromStrep(a.substr(0, eq));
      } catch (const std::exception& e) {
         throw Failure{kUsage, "--apply " + a + ": " + e.what()};
      }
      out.emplace_back(p, a.substr(eq + 1));
   }
   return out;
}

std::vector<std::pair<RmPrecedence, Kel::Name>> routeMapsToApply(const Options& o,
                                                                 const PolicyAgent& agent) {
   std::vector<std::pair<RmPrecedence, Kel::Name>> out = routeMapsNamed(o);
   if (out.empty()) throw Failure{kUsage, "give --route-map NAME or --apply PRECEDENCE=NAME"};
   std::set<U32> seen;
   for (const auto& [p, name] : out) {
      if (!seen.insert(p.value()).second) {
         throw Failure{kUsage, "precedence " + p.toStrep() + " given twice"};
      }
      if (!agent.routeMapConfigured(name)) {
         throw Failure{kUsage, "route-map " + name + " is not configured"};
      }
   }
   std::sort(out.begin(), out.end(),
             [](const auto& a, const auto& b) { return a.first < b.first; });
   return out;
}

std::string indented(const std::string& text, const std::string& pad) {
   std::string out;
   std::size_t start = 0;
   while (start < text.size()) {
      std::size_t nl = text.find('\n', start);
      if (nl == std::string::npos) nl = text.size();
      out += pad + text.substr(start, nl - start) + '\n';
      start = nl + 1;
   }
   return out;
}

std::string evaluationOutput(const MatchInput_& route, const Evaluation& e, const Options& o) {
   if (o.json) {
      nlohmann::ordered_json j;
      j["prefix"] = route.prefix().toStrep();
      j["permit"] = e.permit;
      // The result as evaluation left it, from a default result: a denied route reads as the
      // default, so every object has the same keys.
      j["preference"] = e.result.preference().value();
      j["tag"] = e.result.tag().value();
      if (e.result.metric().hasValue()) {
         j["metric"] = e.result.metric().value();
      } else {
         j["metric"] = nullptr;
      }
      if (o.explain) j["log"] = nlohmann::json::parse(explanationJson(e));
      return j.dump() + '\n';
   }
   std::string out = route.prefix().toStrep() + ' ' + verdictText(e.permit, e.result) + '\n';
   if (o.explain) out += indented(explanationText(e), "    ");
   return out;
}

// What one --then step changed: a heading and one line per route map, or one JSON object.
std::string changedOutput(const std::string& then, U64 batch,
                          const std::vector<ChangeEvent>& events, bool json) {
   std::vector<const RouteMapChange*> changes;
   for (const ChangeEvent& e : events) {
      for (const RouteMapChange& c : e.routeMaps) changes.push_back(&c);
   }
   if (json) {
      nlohmann::ordered_json j;
      j["then"] = then;
      j["version"] = batch;
      j["changed"] = nlohmann::json::array();
      for (const RouteMapChange* c : changes) {
         nlohmann::ordered_json o;
         o["routeMap"] = c->routeMap;
         o["change"] = routeMapChangeKindName(c->kind);
         o["oldVersion"] = c->oldVersion;
         o["newVersion"] = c->newVersion;
         o["causes"] = c->causes;
         j["changed"].push_back(std::move(o));
      }
      return j.dump() + '\n';
   }
   std::string out = "# then " + text::printable(then) + " (version " + std::to_string(batch) +
                     "): " +
                     (changes.empty() ? std::string("no route map changed")
                                      : std::to_string(changes.size()) +
                                            (changes.size() == 1 ? " route map" : " route maps") +
                                            " changed") +
                     '\n';
   for (const RouteMapChange* c : changes) out += "    " + text::printable(c->text()) + '\n';
   return out;
}

// Evaluates in `threads` contiguous chunks, each with its own evaluator, and returns the output
// of every route in input order, so that the thread count never shows in the output.
std::vector<std::string> evaluateAll(const Kel::Ptr<PublishedStatusList>& list,
                                     const std::vector<std::pair<U32, MatchInput_>>& routes,
                                     const Options& o, Io& io) {
   const std::size_t n = routes.size();
   const std::size_t threads = std::max<std::size_t>(1, std::min<std::size_t>(o.threads, n));
   std::vector<std::string> results(n);
   std::vector<std::exception_ptr> failures(threads);
   // Made on this thread: only evaluation is meant to run concurrently.
   std::vector<std::unique_ptr<PolicyEvaluator>> evaluators;
   for (std::size_t t = 0; t < threads; ++t)
      evaluators.push_back(std::make_unique<PolicyEvaluator>(list));
   std::atomic<std::size_t> done{0};
   std::atomic<std::size_t> finished{0};  // threads, whether they completed or failed
   std::vector<std::thread> workers;
   for (std::size_t t = 0; t < threads; ++t) {
      workers.emplace_back([&, t] {
         try {
            for (std::size_t i = n * t / threads; i < n * (t + 1) / threads; ++i) {
               const Evaluation e = evaluators[t]->evaluate(routes[i].second, o.explain);
               results[i] = evaluationOutput(routes[i].second, e, o);
               done.fetch_add(1, std::memory_order_relaxed);
            }
         } catch (...) {
            failures[t] = std::current_exception();
         }
         finished.fetch_add(1, std::memory_order_release);
      });
   }
   // Only worth the noise for inputs that take noticeable time.
   const bool progress = io.progress && n > 10000;
   while (progress && finished.load(std::memory_order_acquire) < threads) {
      io.err << "\revaluated " << done.load(std::memory_order_relaxed) << '/' << n << " routes"
             << std::flush;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
   }
   for (std::thread& w : workers) w.join();
   if (progress) io.err << "\revaluated " << n << '/' << n << " routes\n";
   for (const std::exception_ptr& f : failures) {
      if (f) std::rethrow_exception(f);
   }
   return results;
}

int cmdCheck(const Options& o, Io& io) {
   const std::string text = readInput(o.config, io);
   PolicyAgent agent(o.profile);
   const ApplyResult r = agent.apply(text, o.config);
   std::vector<Diagnostic> found = r.errors;
   found.insert(found.end(), r.warnings.begin(), r.warnings.end());
   if (r.ok()) {
      // Undefined references and blocked sequences are warnings: the configuration applies, and
      // a list may well be configured after the route map that names it.
      for (const Reference& ref : agent.undefinedReferences()) {
         found.push_back(Diagnostic{o.config, ref.line, ref.text(), true});
      }
      for (Diagnostic& d : blockedWarnings(agent, o.config)) found.push_back(std::move(d));
      // The route maps the daemon's lists will name: one that is not configured denies every
      // route that meets the list, which is safe but rarely what was meant.
      for (const auto& [precedence, name] : routeMapsNamed(o)) {
         if (agent.routeMapConfigured(name)) continue;
         found.push_back(Diagnostic{o.config, 0,
                                    "route-map " + name +
                                        " is not configured: a list that names it denies "
                                        "every route",
                                    true});
      }
   }
   // In line order, as a reader walks the file.
   std::stable_sort(found.begin(), found.end(),
                    [](const Diagnostic& a, const Diagnostic& b) { return a.line < b.line; });
   printDiagnostics(found, io.out);
   const std::size_t errors = r.errors.size(), warnings = found.size() - errors;
   io.out << o.config << ": " << errors << (errors == 1 ? " error, " : " errors, ") << warnings
          << (warnings == 1 ? " warning" : " warnings") << '\n';
   return r.ok() ? kOk : kFailed;
}

int cmdEval(const Options& o, Io& io) {
   PolicyAgent agent(o.profile);
   applyConfig(agent, o.config, io);
   std::vector<ChangeEvent> events;
   if (o.changed) agent.addChangeCallback([&](const ChangeEvent& e) { events.push_back(e); });
   for (const std::string& then : o.thens) {
      events.clear();
      applyConfig(agent, then, io);
      if (o.changed) io.out << changedOutput(then, agent.batch(), events, o.json);
   }
   const auto members = routeMapsToApply(o, agent);
   // Every line is read before any is evaluated, so a bad line leaves no partial output.
   const std::string name = o.routes == "-" ? std::string("<stdin>") : o.routes;
   const auto routes = parseRouteLines(readInput(o.routes, io), name);
   if (!routes.ok()) {
      printDiagnostics(routes.errors, io.err);
      return kUsage;
   }
   const auto list = agent.statusList(members);
   for (const std::string& s : evaluateAll(list, routes.items, o, io)) io.out << s;
   return kOk;
}

int cmdTest(const Options& o, Io& io) {
   PolicyAgent agent(o.profile);
   applyConfig(agent, o.config, io);
   const auto members = routeMapsToApply(o, agent);
   const auto cases = parseCaseLines(readInput(o.cases, io), o.cases);
   if (!cases.ok()) {
      printDiagnostics(cases.errors, io.err);
      return kUsage;
   }
   PolicyEvaluator eval(agent.statusList(members));
   std::size_t passed = 0, failed = 0;
   for (std::size_t i = 0; i < cases.items.size(); ++i) {
      const auto& [line, c] = cases.items[i];
      const Evaluation e = eval.evaluate(c.route, false);
      const std::string why = c.expect.mismatch(e.permit, e.result);
      if (why.empty()) {
         ++passed;
         continue;
      }
      ++failed;
      // Evaluated again with the log only for the failures, which are what a reader studies.
      const Evaluation explained = eval.evaluate(c.route, true);
      io.out << text::printable(o.cases) << ':' << line
             << ": FAIL: " << text::printable(cases.lines[i]) << '\n'
             << "    expected: " << c.expect.text() << '\n'
             << "    got:      " << verdictText(e.permit, e.result) << '\n'
             << "    because:  " << why << '\n'
             << indented(explanationText(explained), "    ");
   }
   io.out << passed << " passed, " << failed << " failed\n";
   return failed ? kFailed : kOk;
}

// The lists a route map names directly, so that `show --route-map` prints a self-contained
// configuration for that map.
ConfigDocument restrictedTo(const ConfigDocument& doc, const std::string& name) {
   ConfigDocument out;
   const auto rm = doc.routeMaps.find(name);
   if (rm == doc.routeMaps.end()) return out;
   out.routeMaps.insert(*rm);
   for (const auto& [seqno, seq] : rm->second.seqs) {
      for (const auto& [option, rule] : seq.matchRules) {
         const MatchClause* clause = matchClause(option);
         const ListKind kind = clause ? clause->list : ListKind::none;
         if (kind == ListKind::accessList) {
            for (bool v6 : {false, true}) {
               if (auto a = doc.accessLists.find({v6, rule.listName()});
                   a != doc.accessLists.end()) {
                  out.accessLists.insert(*a);
               }
            }
         } else if (kind != ListKind::none) {
            const auto af = kind == ListKind::ipv6PrefixList ? Nx::AddressFamily::ipv6
                                                             : Nx::AddressFamily::ipv4;
            if (auto p = doc.prefixLists.find({af, rule.listName()}); p != doc.prefixLists.end()) {
               out.prefixLists.insert(*p);
            }
         }
      }
   }
   return out;
}

int cmdShow(const Options& o, Io& io) {
   PolicyAgent agent(o.profile);
   applyConfig(agent, o.config, io);
   std::vector<std::string> names;
   if (!o.routeMap.empty()) {
      if (!agent.routeMapConfigured(o.routeMap)) {
         throw Failure{kUsage, "route-map " + o.routeMap + " is not configured"};
      }
      names.push_back(o.routeMap);
   } else {
      for (const auto& [name, rm] : agent.document().routeMaps) names.push_back(name);
   }
   for (const std::string& name : names) {
      std::string dump = agent.routeMapDump(name);
      if (!dump.empty() && dump.back() != '\n') dump += '\n';
      io.out << "# route-map " << name << ", compiled\n" << dump;
   }
   const ConfigDocument filtered = agent.filteredDocument();
   io.out << "# configuration, as filtered\n"
          << configText(o.routeMap.empty() ? filtered : restrictedTo(filtered, o.routeMap));
   return kOk;
}

std::string dotQuoted(const std::string& s) {
   std::string out = "\"";
   for (char c : s) {
      if (c == '"' || c == '\\') out += '\\';
      out += c;
   }
   return out + '"';
}

// The node a match clause points at, and the edge label beside the sequence number (the address
// the list is asked about, when it is not the route's prefix). Clauses without a list (tag,
// protocol, metric, ...) are not drawn.
std::optional<std::pair<std::string, std::string>> referenceOf(MatchOption option,
                                                               const std::string& list) {
   const MatchClause* clause = matchClause(option);
   if (!clause || clause->list == ListKind::none) return std::nullopt;
   return std::pair{std::string(listKindName(clause->list)) + " " + list,
                    clause->looksUp.empty() ? std::string() : " " + std::string(clause->looksUp)};
}

// One node per route map and per list, named "route-map X", "prefix-list X", "ipv6 prefix-list
// X", "access-list X". Sub-route-map calls, list references and continue jumps are edges; a
// continue is a self-loop on its route map labelled "seq 10 continue 20", which keeps one node
// per map however many sequences it has.
std::string graphText(const ConfigDocument& doc) {
   std::map<std::string, bool> nodes;  // name -> configured; sorted, so the output is stable
   std::vector<std::string> edges;
   for (const auto& [key, pl] : doc.prefixLists) {
      nodes[(pl.af == Nx::AddressFamily::ipv4 ? "prefix-list " : "ipv6 prefix-list ") + pl.name] =
          true;
   }
   for (const auto& [key, acl] : doc.accessLists) nodes["access-list " + acl.name] = true;
   for (const auto& [name, rm] : doc.routeMaps) nodes["route-map " + name] = true;
   for (const auto& [name, rm] : doc.routeMaps) {
      const std::string from = dotQuoted("route-map " + name);
      for (const auto& [seqno, seq] : rm.seqs) {
         const std::string label = "seq " + std::to_string(seqno);
         for (const auto& [option, rule] : seq.matchRules) {
            auto ref = referenceOf(option, rule.listName());
            if (!ref) continue;
            nodes.try_emplace(ref->first, false);
            edges.push_back(from + " -> " + dotQuoted(ref->first) +
                            " [label=" + dotQuoted(label + ref->second) + "];");
         }
         if (!seq.subRouteMap.empty()) {
            const std::string to = "route-map " + seq.subRouteMap;
            nodes.try_emplace(to, false);
            edges.push_back(from + " -> " + dotQuoted(to) + " [label=" +
                            dotQuoted(label + (seq.subRouteMapInvert ? " invert-result" : "")) +
                            (seq.subRouteMapInvert ? ", style=dashed" : "") + ", penwidth=2];");
         }
         if (seq.continueSeq) {
            const std::string target =
                *seq.continueSeq ? " continue " + std::to_string(*seq.continueSeq) : " continue";
            edges.push_back(from + " -> " + from + " [label=" + dotQuoted(label + target) +
                            ", style=dotted];");
         }
      }
   }
   std::string out = "digraph policy {\n   rankdir=LR;\n";
   for (const auto& [node, configured] : nodes) {
      const bool rm = node.rfind("route-map ", 0) == 0;
      const bool acl = node.rfind("access-list ", 0) == 0;
      std::string attrs = rm ? "shape=box, style=rounded" : acl ? "shape=box" : "shape=ellipse";
      if (!configured) {
         // Quoted apart from the "\n", which is DOT's line break and must stay unescaped.
         std::string label = dotQuoted(node);
         label.insert(label.size() - 1, "\\n(not configured)");
         attrs = (rm    ? "shape=box, style=\"rounded,dashed\""
                  : acl ? "shape=box, style=dashed"
                        : "shape=ellipse, style=dashed") +
                 std::string(", color=red, label=") + label;
      }
      out += "   " + dotQuoted(node) + " [" + attrs + "];\n";
   }
   for (const std::string& e : edges) out += "   " + e + '\n';
   return out + "}\n";
}

int cmdGraph(const Options& o, Io& io) {
   const ParseResult r = parseConfigText(readInput(o.config, io), o.config);
   std::vector<Diagnostic> found = r.errors;
   found.insert(found.end(), r.warnings.begin(), r.warnings.end());
   if (r.ok()) {
      // Nothing is evaluated here, but a drawn clause the profile ignores deserves the same
      // warning the other commands give.
      for (Diagnostic& d : unevaluatedClauses(r.document, o.profile, o.config)) {
         found.push_back(std::move(d));
      }
   }
   printDiagnostics(std::move(found), io.err);
   if (!r.ok()) return kUsage;
   io.out << graphText(r.document);
   return kOk;
}

void addProfileOption(CLI::App* cmd, Options& o) {
   cmd->add_option("--profile", o.profileText,
                   "Which clauses are evaluated: full (every clause, the default) or common "
                   "(what the common component supports; the others are warned about)")
       ->type_name("PROFILE")
       ->check(CLI::IsMember(
           {std::string(profileName(Profile::full)), std::string(profileName(Profile::common))}));
}

void addPolicyOptions(CLI::App* cmd, Options& o) {
   cmd->add_option("--route-map", o.routeMap, "Apply this route map at precedence rmBased");
   cmd->add_option("--apply", o.applies,
                   "Apply route map NAME at PRECEDENCE (a name such as rmBased, or a number); "
                   "repeatable")
       ->type_name("PRECEDENCE=NAME")
       ->allow_extra_args(false);
}

int runCommand(int argc, const char* const* argv, std::istream& in, std::ostream& out,
               std::ostream& err) {
   Options o;
   CLI::App app{"Check, show and evaluate routing policy configuration", "rpolicy"};
   // At most one; none is reported below, after CLI11 has named any unexpected word.
   app.require_subcommand(0, 1);
   app.footer(
       "Exit codes: 0 ok, 1 check found errors or a test failed, 2 usage, input or output error.");

   auto* check = app.add_subcommand("check", "Parse and compile a configuration; list problems");
   check->add_option("CONFIG", o.config, "Configuration file ('-': stdin)")->required();
   check->add_option("--route-map", o.routeMap,
                     "Warn when this route map, which a list will name, is not configured");
   check->add_option("--apply", o.applies, "The same for route map NAME at PRECEDENCE; repeatable")
       ->type_name("PRECEDENCE=NAME")
       ->allow_extra_args(false);

   auto* eval = app.add_subcommand("eval", "Evaluate routes against route maps");
   eval->add_option("CONFIG", o.config, "Configuration file")->required();
   eval->add_option("ROUTES", o.routes, "Route file, one route a line ('-' or absent: stdin)");
   addPolicyOptions(eval, o);
   auto* thenOption = eval->add_option("--then", o.thens,
                    "Apply this configuration after CONFIG, as an update; repeatable, in order")
       ->type_name("CONFIG")
       ->allow_extra_args(false);
   eval->add_flag("--changed", o.changed,
                  "Before the routes, print for each --then which route maps it created, "
                  "recompiled or deleted, and why")
       ->needs(thenOption);
   eval->add_flag("--json", o.json, "One JSON object per route");
   eval->add_flag("--explain", o.explain, "Show how each route map decided");
   eval->add_option("--threads", o.threads, "Evaluate on N threads")->check(CLI::Range(1u, 256u));

   auto* show = app.add_subcommand("show", "Print compiled route maps and filtered configuration");
   show->add_option("CONFIG", o.config, "Configuration file")->required();
   show->add_option("--route-map", o.routeMap, "Only this route map and the lists it names");

   auto* test = app.add_subcommand("test", "Check routes against expected verdicts");
   test->add_option("CONFIG", o.config, "Configuration file")->required();
   test->add_option("CASES", o.cases, "Case file: ROUTE => permit|deny ...")->required();
   addPolicyOptions(test, o);

   auto* graph = app.add_subcommand("graph", "Print the configuration's references as DOT");
   graph->add_option("CONFIG", o.config, "Configuration file")->required();

   for (CLI::App* cmd : {check, eval, show, test, graph}) addProfileOption(cmd, o);

   try {
      app.parse(argc, argv);
   } catch (const CLI::ParseError& e) {
      // Help and version requests exit 0; every real parse error is a usage error.
      return app.exit(e, out, err) == 0 ? kOk : kUsage;
   }

   if (app.get_subcommands().empty()) {
      err << "rpolicy: give a command: check, eval, show, test or graph\n"
          << "Run with --help for more information.\n";
      return kUsage;
   }

   o.profile = o.profileText == profileName(Profile::common) ? Profile::common : Profile::full;
   Io io{in, out, err, &err == &std::cerr && isatty(2) == 1};
   try {
      if (check->parsed()) return cmdCheck(o, io);
      if (eval->parsed()) return cmdEval(o, io);
      if (show->parsed()) return cmdShow(o, io);
      if (test->parsed()) return cmdTest(o, io);
      return cmdGraph(o, io);
   } catch (const Failure& f) {
      // Messages may name a path or a word from the command line: shown as any message is.
      if (!f.message.empty()) err << "rpolicy: " << text::printable(f.message) << '\n';
      return f.code;
   } catch (const std::exception& e) {
      err << "rpolicy: " << text::printable(e.what()) << '\n';
      return kUsage;
   }
}

// The exit code once the output is out. Results that did not all reach standard output are a
// failure whatever the command found: exit 2, with the reason on standard error. So is a message
// lost on standard error (a warning, the write failure itself), which the exit code alone can
// still tell.
int finish(int code, std::ostream& out, std::ostream& err) {
   out.flush();
   if (out.fail()) {
      std::string reason;
      if (const auto* fd = dynamic_cast<const FdOutBuf*>(out.rdbuf()); fd && fd->error() != 0) {
         reason = std::string(": ") + std::strerror(fd->error());
      }
      err << "rpolicy: cannot write to standard output" << reason << "; the output is incomplete\n";
      code = kUsage;
   }
   err.flush();
   return err.fail() ? kUsage : code;
}

}  // namespace

int runRpolicy(int argc, const char* const* argv, std::istream& in, std::ostream& out,
               std::ostream& err) {
   return finish(runCommand(argc, argv, in, out, err), out, err);
}

}  // namespace rpolicy
