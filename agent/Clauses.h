#pragma once
// Every match and set clause of the configuration language, in one table: the words that
// introduce it, what it takes, which kind of list it names, and which profile evaluates it.
// The text reader's diagnostics, the agent's reference checks and the command-line tool's
// drawing all read this table, so a clause cannot be known to one of them and not the others.
//
// Profiles: an agent evaluates either every clause (`full`, the default) or only what the
// library's common component supports (`common`). For `common` the table does not keep a list
// of its own: it asks the library (commonComponentMatchRuleSupported), whose answer includes the
// access-list toggle.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Routing/RouteMap/Options.h"
#include "agent/ConfigText.h"

namespace Routing::Policy::agent {

enum class Profile { full, common };

std::string_view profileName(Profile p);

// What follows a clause's words.
enum class ClauseArgument { listName, tag, protocol, metric, interface, address, distance };

// The kind of list a match clause names; every list kind has a name space of its own.
enum class ListKind { none, prefixList, ipv6PrefixList, accessList };

// "prefix-list", "ipv6 prefix-list", "access-list"; empty for none.
std::string_view listKindName(ListKind kind);

struct MatchClause {
   Routing::RouteMap::MatchOption option;
   std::string_view words;  // "match ip next-hop prefix-list"
   ClauseArgument argument;
   ListKind list;
   // Which address of the route the named list is asked about, when it is not the route's own
   // prefix: "next-hop", "resolved-next-hop" or "router-id"; empty otherwise.
   std::string_view looksUp;
   bool full;  // evaluated under `full`
};

struct SetClause {
   Routing::RouteMap::SetOption option;
   std::string_view words;  // "set metric"
   ClauseArgument argument;
   bool full;    // evaluated under `full`
   bool common;  // the common component's machines build a setter for it
};

std::span<const MatchClause> matchClauses();
std::span<const SetClause> setClauses();
// Null for an option the configuration language has no clause for (matchInvalid).
const MatchClause* matchClause(Routing::RouteMap::MatchOption option);
const SetClause* setClause(Routing::RouteMap::SetOption option);

// Whether an agent of the profile acts on the clause. Access lists are compiled only while the
// toggle "RoutingPolicyIpAclToggle" is on; see unevaluatedClauses for what each profile then
// does with an access-list clause.
bool evaluates(Profile profile, Routing::RouteMap::MatchOption option);
bool evaluates(Profile profile, Routing::RouteMap::SetOption option);

// One warning, at the clause's line, for every clause of `doc` that the profile does not act on
// as written:
//    route-map RM seq 10: match interface is not evaluated under profile common
// With the access-list toggle off, `common` leaves access-list clauses out (the sequence then
// matches as if the clause were not there) and `full` keeps them against lists that are never
// compiled (the sequence then matches no route); each says so.
std::vector<Diagnostic> unevaluatedClauses(const ConfigDocument& doc, Profile profile,
                                           const std::string& file);

}  // namespace Routing::Policy::agent
