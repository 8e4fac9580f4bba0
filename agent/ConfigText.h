#pragma once
// Configuration text -> a plain description of the wanted configuration, and back.
//
// The text is read completely before anything is applied: a ConfigDocument holds what the text
// asks for in the platform's own value types (PrefixListRule, MatchRule, access-list rules), so
// that the agent can diff it against the live entities and touch only what changed. A text with
// any error yields no document to apply; every error is reported with its file and line.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Acl/AclRule.h"
#include "Kel/Types.h"
#include "Nx/IpGenPrefix.h"
#include "Routing/RouteMap/MatchRule.h"
#include "Routing/RouteMap/Options.h"
#include "Routing/RouteMap/PrefixListConfig.h"
#include "Routing/RouteTypes.h"

namespace Routing::Policy::agent {

// One finding about the text. `text()` is "FILE:LINE: error: MESSAGE" (or "warning:").
struct Diagnostic {
   std::string file;
   U32 line = 0;
   std::string message;
   bool warning = false;

   std::string text() const;
   bool operator==(const Diagnostic&) const = default;
};

struct PrefixListDoc {
   Kel::Name name;
   Nx::AddressFamily af = Nx::AddressFamily::ipv4;
   std::map<U32, Routing::RouteMap::PrefixListRule> rules;  // by sequence number
   U32 line = 0;                                            // first line naming the list
   bool operator==(const PrefixListDoc& o) const { return name == o.name && af == o.af && rules == o.rules; }
};

struct AccessListDoc {
   Kel::Name name;
   bool ipv6 = false;
   std::map<U32, Acl::IpRuleConfig> ipRules;    // by sequence number, IPv4 lists
   std::map<U32, Acl::Ip6RuleConfig> ip6Rules;  // by sequence number, IPv6 lists
   U32 line = 0;
   bool operator==(const AccessListDoc& o) const {
      return name == o.name && ipv6 == o.ipv6 && ipRules == o.ipRules && ip6Rules == o.ip6Rules;
   }
};

// One route-map sequence, in the fields of Routing::RouteMap::MapEntry.
struct RouteMapSeqDoc {
   U32 seqno = 0;
   bool permit = true;
   std::map<Routing::RouteMap::MatchOption, Routing::RouteMap::MatchRule> matchRules;
   std::optional<U32> tag;            // set tag
   std::optional<U32> distance;       // set distance, 1-255
   std::optional<U64> metric;         // set metric
   std::optional<U32> continueSeq;    // continue [N]; 0 is "the next sequence"
   Kel::Name subRouteMap;             // empty: none
   bool subRouteMapInvert = false;
   std::vector<std::string> descriptions;  // in text order
   U32 line = 0;                      // the (last) header line of the sequence
   // Where the text gave each match and set clause and the sub-route-map; not part of the
   // sequence's value (a document read back from entities has none).
   std::map<Routing::RouteMap::MatchOption, U32> matchLines;
   std::map<Routing::RouteMap::SetOption, U32> setLines;
   U32 subRouteMapLine = 0;
   bool operator==(const RouteMapSeqDoc& o) const {
      return seqno == o.seqno && permit == o.permit && matchRules == o.matchRules &&
             tag == o.tag && distance == o.distance && metric == o.metric &&
             continueSeq == o.continueSeq && subRouteMap == o.subRouteMap &&
             subRouteMapInvert == o.subRouteMapInvert && descriptions == o.descriptions;
   }
};

struct RouteMapDoc {
   Kel::Name name;
   std::map<U32, RouteMapSeqDoc> seqs;  // by sequence number
   U32 line = 0;
   bool operator==(const RouteMapDoc& o) const { return name == o.name && seqs == o.seqs; }
};

struct ConfigDocument {
   // Keyed by (family, name): an IPv4 and an IPv6 list may share a name.
   std::map<std::pair<Nx::AddressFamily, Kel::Name>, PrefixListDoc> prefixLists;
   // Keyed by (ipv6, name).
   std::map<std::pair<bool, Kel::Name>, AccessListDoc> accessLists;
   std::map<Kel::Name, RouteMapDoc> routeMaps;
   bool operator==(const ConfigDocument&) const = default;
};

struct ParseResult {
   ConfigDocument document;           // meaningful only when `errors` is empty
   std::vector<Diagnostic> errors;    // in line order
   // In line order. Whether a clause is acted on depends on the agent's profile, so those
   // warnings come from unevaluatedClauses (agent/Clauses.h) and PolicyAgent::apply, not from here.
   std::vector<Diagnostic> warnings;
   bool ok() const { return errors.empty(); }
};

// Parses a whole configuration. `file` names the text in diagnostics.
ParseResult parseConfigText(std::string_view text, const std::string& file);

// The document as configuration text that parses back to an equal document: prefix lists, then
// access lists, then route maps, each by name and sequence number.
std::string configText(const ConfigDocument& doc);

}  // namespace Routing::Policy::agent
