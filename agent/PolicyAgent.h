#pragma once
// What a routing agent embeds: the configuration entities, their compilers and the event loop
// that drives them, fed from configuration text, and evaluation of routes against the route maps
// the compilers publish.
//
//    PolicyAgent agent;
//    auto r = agent.apply(text, "edge.conf");     // parse, diff, compile; nothing on error
//    auto list = agent.statusList({{RmPrecedence::rmBased, "EDGE-IN"}});
//    PolicyEvaluator eval(list);                   // one per thread
//    Evaluation e = eval.evaluate(route);
//
// Everything but evaluation runs on the thread that owns the agent. After each batch of changes
// the agent publishes an immutable snapshot of every status list it serves; an evaluator picks
// up the newest one at the start of each evaluation. Any number of threads may therefore
// evaluate while the owner applies new configurations: each evaluation sees one batch's version
// of every route map it reaches.

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kel/Clock.h"
#include "Kel/Ptr.h"
#include "Orb/Task.h"
#include "Routing/RouteMap/Config.h"
#include "Routing/RouteMap/PrefixListCompilerSm.h"
#include "Routing/RouteMap/PrefixListConfig.h"
#include "RoutingPolicy/acl/RoutingPolicyAcl.h"
#include "RoutingPolicy/config/RouteMapConfigSm.h"
#include "RoutingPolicy/eval/Policy.h"
#include "RoutingPolicy/eval/Result.h"
#include "RoutingPolicy/status/PolicyEvalContext.h"
#include "RoutingPolicy/status/PublishedStatusList.h"
#include "RoutingPolicy/status/RmPrecedence.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"
#include "agent/Clauses.h"
#include "agent/ConfigText.h"

namespace Routing::Policy::agent {

// What one apply() changed, counted as the entities saw it: a list or route map counts once per
// version bump, entries and sequences once per write or deletion.
struct ApplyStats {
   U32 prefixListsChanged = 0;  // created or given a new version
   U32 prefixListsDeleted = 0;
   U32 prefixListEntriesWritten = 0;
   U32 prefixListEntriesDeleted = 0;
   U32 accessListsChanged = 0;
   U32 accessListsDeleted = 0;
   U32 routeMapsChanged = 0;
   U32 routeMapsDeleted = 0;
   U32 sequencesWritten = 0;  // created or with at least one field changed
   U32 sequencesDeleted = 0;
   bool operator==(const ApplyStats&) const = default;
   bool unchanged() const { return *this == ApplyStats{}; }
};

struct ApplyResult {
   std::vector<Diagnostic> errors;  // non-empty: nothing was applied
   std::vector<Diagnostic> warnings;
   ApplyStats stats;
   bool ok() const { return errors.empty(); }
};

// A list or route map named by a route map that the configuration does not define.
struct Reference {
   std::string kind;  // "prefix-list", "ipv6 prefix-list", "access-list", "route-map"
   Kel::Name name;
   Kel::Name routeMap;
   U32 seqno = 0;
   U32 line = 0;
   // "route-map RM seq 10: prefix-list PL is not configured"
   std::string text() const;
};

// A sequence the compiler holds back because it takes part in a sub-route-map cycle.
struct BlockedSequence {
   Kel::Name routeMap;
   U32 seqno = 0;
   std::string text() const;  // "route-map RM seq 10 is blocked: its sub-route-map calls form a cycle"
};

// What a status list does with a route map it names that the configuration does not define.
enum class MissingRouteMap {
   denyAll,  // stands for a route map that denies every route: a name typed wrong leaks nothing
   skip,     // left out of the list, as if it had not been named
};

// One route map that a batch changed. Versions are batch numbers (PolicyAgent::batch()): the
// batch that made the previous compiled form (0: none) and the batch that made this change.
struct RouteMapChange {
   enum class Kind { created, recompiled, deleted };
   Kel::Name routeMap;
   Kind kind = Kind::recompiled;
   U64 oldVersion = 0;
   U64 newVersion = 0;
   // What in the batch touched it, in order: "route-map RM" (its own configuration),
   // "prefix-list PL", "ipv6 prefix-list PL", "access-list AL", and "route-map SUB" for a
   // sub-route-map it calls that changed in the same batch.
   std::vector<std::string> causes;
   // "route-map RM recompiled (version 3 -> 5): prefix-list PL"
   std::string text() const;
};
std::string_view routeMapChangeKindName(RouteMapChange::Kind kind);

// Everything one batch changed, in route-map name order.
struct ChangeEvent {
   U64 version = 0;
   std::vector<RouteMapChange> routeMaps;
};
using ChangeCallback = std::function<void(const ChangeEvent&)>;

class PolicyAgent {
public:
   enum class Start { now, deferred };

   // With Start::deferred the compilers are made only by start(): an agent that restarts with its
   // configuration already present writes the entities first, and the machines then take it up
   // as their initial state rather than as a stream of changes.
   // The profile says which clauses are evaluated (agent/Clauses.h): every one under
   // Profile::full, what the library's common component supports under Profile::common.
   explicit PolicyAgent(Start start = Start::now, Profile profile = Profile::full);
   explicit PolicyAgent(Profile profile, Start start = Start::now);
   ~PolicyAgent();
   Profile profile() const { return profile_; }
   void start();
   bool started() const { return routeMapSm_ != nullptr; }
   PolicyAgent(const PolicyAgent&) = delete;
   PolicyAgent& operator=(const PolicyAgent&) = delete;

   // Parses a full configuration and applies what differs from the current one, then runs the
   // event loop until every compiler has published. On a parse error nothing changes. The
   // warnings include every clause the profile does not evaluate (unevaluatedClauses).
   ApplyResult apply(std::string_view text, const std::string& file);
   // The same from a document that parsed cleanly.
   ApplyStats apply(const ConfigDocument& doc);

   // The configuration last applied.
   const ConfigDocument& document() const { return document_; }
   bool routeMapConfigured(const Kel::Name& name) const;

   // The route map's compiled form; null while it is not configured.
   Kel::Ptr<RouteMapStatus const> routeMapStatus(const Kel::Name& name) const;
   // A list of route maps by precedence that follows their compiled forms: each later batch
   // that recompiles, creates or deletes one of them publishes a new snapshot of the list.
   // The agent publishes it until dropStatusList or its own end; evaluators may outlive both
   // (they keep the last snapshot).
   Kel::Ptr<PublishedStatusList> statusList(
       const std::vector<std::pair<RmPrecedence, Kel::Name>>& routeMaps,
       MissingRouteMap missing = MissingRouteMap::denyAll);
   void dropStatusList(const Kel::Ptr<PublishedStatusList>& list);

   // The number of the last batch: every apply() and every runUntilIdle() ends one. Snapshots
   // and change events carry it.
   U64 batch() const { return batch_; }
   // Called on the owner thread at the end of every batch that changed a compiled route map.
   // Returns a handle for removeChangeCallback.
   U64 addChangeCallback(ChangeCallback callback);
   void removeChangeCallback(U64 handle);

   std::vector<Reference> undefinedReferences() const;
   std::vector<BlockedSequence> blockedSequences() const;

   // The route maps as the compiler's filter published them, and their compiled dumps.
   const Kel::Ptr<Routing::RouteMap::Config>& filteredConfig() const { return filtered_; }
   std::string routeMapDump(const Kel::Name& name) const;
   // The document with its route maps read back from the filtered configuration (clauses the
   // filter left out do not appear), for printing with configText().
   ConfigDocument filteredDocument() const;

   // The entities, for embedders that change configuration directly rather than through text
   // (follow each batch of edits with a version bump and runUntilIdle()).
   const Kel::Ptr<Routing::RouteMap::Config>& routeMapConfig() const { return config_; }
   const Kel::Ptr<Routing::RouteMap::PrefixListConfigRoot>& prefixListConfig() const {
      return prefixLists_;
   }
   const Kel::Ptr<Acl::Input::Config>& accessListConfig() const { return acls_; }
   const Kel::Ptr<PolicyRoot>& policyRoot() const { return root_; }
   const Kel::Ptr<Kel::ActivityManager>& activityManager() const { return am_; }
   // The machines, null until started; for agents that tune them (clock quanta) and for tests.
   const Kel::Ptr<RouteMapConfigSm>& routeMapConfigSm() const { return routeMapSm_; }
   const Kel::Ptr<AclConfigSm>& aclConfigSm() const { return aclSm_; }
   const Kel::Ptr<Routing::RouteMap::PrefixListCompilerSm>& prefixListCompilerSm() const {
      return prefixListSm_;
   }
   // Runs the event loop until every compiler has published, then ends the batch: publishes the
   // status lists that changed and tells the change callbacks.
   void runUntilIdle();

private:
   class StatusListSm;
   class ChangeTracker;

   void endBatch();

   ApplyStats applyPrefixLists(const ConfigDocument& doc);
   ApplyStats applyAccessLists(const ConfigDocument& doc);
   ApplyStats applyRouteMaps(const ConfigDocument& doc);

   Kel::Ptr<PolicyRoot> root_;
   Kel::Ptr<Routing::RouteMap::Config> config_;
   Kel::Ptr<Routing::RouteMap::Config> filtered_;
   Kel::Ptr<AllRouteMapSymbol> symbols_;
   Kel::Ptr<Orb::TaskScheduler> scheduler_;
   Kel::Ptr<Kel::ActivityManager> am_;
   Kel::Ptr<Routing::RouteMap::PrefixListConfigRoot> prefixLists_;
   Kel::Ptr<Acl::Input::Config> acls_;
   Kel::Ptr<Routing::RouteMap::AllIpAccessListSymbol> aclSymbols_;
   Kel::Ptr<Routing::RouteMap::PrefixListCompilerSm> prefixListSm_;
   Kel::Ptr<AclConfigSm> aclSm_;
   Kel::Ptr<RouteMapConfigSm> routeMapSm_;
   std::vector<std::unique_ptr<StatusListSm>> statusLists_;
   std::unique_ptr<ChangeTracker> changes_;
   std::vector<std::pair<U64, ChangeCallback>> changeCallbacks_;
   U64 nextCallbackHandle_ = 1;
   U64 batch_ = 0;
   Profile profile_;
   ConfigDocument document_;
   U64 nextAclRuleId_ = 0;
};

// One evaluation: the verdict, the result written by the setters (from a default Result_), and
// with explain, one log per route map evaluated, in precedence order.
struct Evaluation {
   bool permit = false;
   U64 version = 0;  // of the snapshot evaluated
   Result_ result;
   std::vector<Kel::Ptr<PolicyEvaluationLog>> logs;
};

// Evaluates routes against the newest snapshot of one status list, picked up at the start of
// each evaluation. Cheap to make; one per thread (it is not itself thread-safe). The snapshot of
// the last evaluation stays alive until the next one or the evaluator's end.
class PolicyEvaluator {
public:
   explicit PolicyEvaluator(Kel::Ptr<PublishedStatusList> list);
   // A list that never changes.
   explicit PolicyEvaluator(Kel::Ptr<RouteMapStatusList const> fixed);
   // Without explain: PolicyEval::eval on the snapshot, allocation-free and lock-free. With
   // explain: the same decision route map by route map, each with its log.
   Evaluation evaluate(const MatchInput_& route, bool explain = false) const;

private:
   mutable PublishedStatusList::Reader reader_;
   Kel::Ptr<PolicyEval> eval_;
   Kel::Ptr<PolicyEval> explainEval_;
   Kel::Ptr<PolicyEvalContext> context_;
};

// The logs of an evaluation as text (PolicyEvaluationLog's text form without the lines that give
// the log objects' addresses, so that the same evaluation always reads the same) and as JSON: a
// list of the logs' JSON forms.
std::string explanationText(const Evaluation& e);
std::string explanationJson(const Evaluation& e);

}  // namespace Routing::Policy::agent
