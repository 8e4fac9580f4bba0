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
// Everything but evaluation runs on the thread that owns the agent. Evaluators read only
// published, immutable objects, so any number of threads may evaluate at once while the owner
// leaves the configuration alone; a status list must not be changed by apply() while other
// threads evaluate through it.

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
   // A list of route maps by precedence that follows their symbols: each later apply() that
   // recompiles one of them puts the new status in the list (and recomputes its features).
   // Lives as long as the agent holds it; dropped with dropStatusList or with the agent.
   Kel::Ptr<RouteMapStatusList const> statusList(
       const std::vector<std::pair<RmPrecedence, Kel::Name>>& routeMaps);
   void dropStatusList(const Kel::Ptr<RouteMapStatusList const>& list);

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
   void runUntilIdle();

private:
   class StatusListSm;

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
   Profile profile_;
   ConfigDocument document_;
   U64 nextAclRuleId_ = 0;
};

// One evaluation: the verdict, the result written by the setters (from a default Result_), and
// with explain, one log per route map evaluated, in precedence order.
struct Evaluation {
   bool permit = false;
   Result_ result;
   std::vector<Kel::Ptr<PolicyEvaluationLog>> logs;
};

// Evaluates routes against one status list. Cheap to make; one per thread.
class PolicyEvaluator {
public:
   explicit PolicyEvaluator(Kel::Ptr<RouteMapStatusList const> list);
   // Without explain: PolicyEval::eval, allocation-free. With explain: the same decision route
   // map by route map, each with its log.
   Evaluation evaluate(const MatchInput_& route, bool explain = false) const;

private:
   Kel::Ptr<RouteMapStatusList const> list_;
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
