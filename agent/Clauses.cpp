#include "agent/Clauses.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "RoutingPolicy/acl/RoutingPolicyAcl.h"
#include "RoutingPolicy/common/CommonComponent.h"

namespace Routing::Policy::agent {

using Routing::RouteMap::MatchOption;
using Routing::RouteMap::SetOption;

namespace {

using A = ClauseArgument;
using L = ListKind;

// In option order, which is also the order in which a sequence's clauses print and run.
constexpr std::array kMatchClauses{
    MatchClause{MatchOption::matchIpAddressAccessList, "match ip address access-list", A::listName,
                L::accessList, "", true},
    MatchClause{MatchOption::matchIpAddressPrefixList, "match ip address prefix-list", A::listName,
                L::prefixList, "", true},
    MatchClause{MatchOption::matchMetric, "match metric", A::metric, L::none, "", true},
    MatchClause{MatchOption::matchInterface, "match interface", A::interface, L::none, "", true},
    MatchClause{MatchOption::matchIpNexthop, "match ip next-hop", A::address, L::none, "", true},
    // The configuration language names next-hop, resolved-next-hop and router-id lists with
    // "ip": they live among the IPv4 prefix lists.
    MatchClause{MatchOption::matchIpNexthopPrefixList, "match ip next-hop prefix-list", A::listName,
                L::prefixList, "next-hop", true},
    MatchClause{MatchOption::matchIpResolvedNexthopPrefixList,
                "match ip resolved-next-hop prefix-list", A::listName, L::prefixList,
                "resolved-next-hop", true},
    MatchClause{MatchOption::matchRouterIdPrefixList, "match router-id prefix-list", A::listName,
                L::prefixList, "router-id", true},
    MatchClause{MatchOption::matchSourceProtocol, "match source-protocol", A::protocol, L::none, "",
                true},
    MatchClause{MatchOption::matchTag, "match tag", A::tag, L::none, "", true},
    MatchClause{MatchOption::matchIpv6AddressPrefixList, "match ipv6 address prefix-list",
                A::listName, L::ipv6PrefixList, "", true},
};

// The common component builds setters for tag and distance only (its set-flags handler follows
// no other flag), and the library offers no question to ask about set options.
constexpr std::array kSetClauses{
    SetClause{SetOption::setMetric, "set metric", A::metric, true, false},
    SetClause{SetOption::setDistance, "set distance", A::distance, true, true},
    SetClause{SetOption::setTag, "set tag", A::tag, true, true},
};

bool hasSet(const RouteMapSeqDoc& seq, SetOption option) {
   switch (option) {
      case SetOption::setMetric:
         return seq.metric.has_value();
      case SetOption::setDistance:
         return seq.distance.has_value();
      case SetOption::setTag:
         return seq.tag.has_value();
      case SetOption::setInvalid:
         break;
   }
   return false;
}

U32 lineOf(const std::map<MatchOption, U32>& lines, MatchOption o, U32 fallback) {
   const auto it = lines.find(o);
   return it != lines.end() ? it->second : fallback;
}

U32 lineOf(const std::map<SetOption, U32>& lines, SetOption o, U32 fallback) {
   const auto it = lines.find(o);
   return it != lines.end() ? it->second : fallback;
}

}  // namespace

std::string_view profileName(Profile p) {
   return p == Profile::full ? "full" : "common";
}

std::string_view listKindName(ListKind kind) {
   switch (kind) {
      case ListKind::prefixList:
         return "prefix-list";
      case ListKind::ipv6PrefixList:
         return "ipv6 prefix-list";
      case ListKind::accessList:
         return "access-list";
      case ListKind::none:
         break;
   }
   return {};
}

std::span<const MatchClause> matchClauses() {
   return kMatchClauses;
}

std::span<const SetClause> setClauses() {
   return kSetClauses;
}

const MatchClause* matchClause(MatchOption option) {
   const auto it = std::find_if(kMatchClauses.begin(), kMatchClauses.end(),
                                [&](const MatchClause& c) { return c.option == option; });
   return it != kMatchClauses.end() ? &*it : nullptr;
}

const SetClause* setClause(SetOption option) {
   const auto it = std::find_if(kSetClauses.begin(), kSetClauses.end(),
                                [&](const SetClause& c) { return c.option == option; });
   return it != kSetClauses.end() ? &*it : nullptr;
}

bool evaluates(Profile profile, MatchOption option) {
   const MatchClause* c = matchClause(option);
   if (!c) return false;
   if (profile == Profile::common) return commonComponentMatchRuleSupported(option);
   return c->full;
}

bool evaluates(Profile profile, SetOption option) {
   const SetClause* c = setClause(option);
   if (!c) return false;
   return profile == Profile::common ? c->common : c->full;
}

std::vector<Diagnostic> unevaluatedClauses(const ConfigDocument& doc, Profile profile,
                                           const std::string& file) {
   std::vector<Diagnostic> out;
   const std::string_view name = profileName(profile);
   for (const auto& [rmName, rm] : doc.routeMaps) {
      for (const auto& [seqno, seq] : rm.seqs) {
         const std::string where = fmt::format("route-map {} seq {}", rmName, seqno);
         for (const auto& [option, rule] : seq.matchRules) {
            const MatchClause* c = matchClause(option);
            if (!c) continue;
            const U32 line = lineOf(seq.matchLines, option, seq.line);
            if (c->list == ListKind::accessList && !ipAclToggleEnabled()) {
               // No access list is compiled: what each profile makes of the clause differs, and
               // neither is what the text says.
               out.push_back(Diagnostic{
                   file, line,
                   profile == Profile::common
                       ? fmt::format("{}: {} is not evaluated under profile common: access lists "
                                     "are off (RoutingPolicyIpAclToggle)",
                                     where, c->words)
                       : fmt::format("{}: {} {} matches no route: access lists are off "
                                     "(RoutingPolicyIpAclToggle)",
                                     where, c->words, rule.listName()),
                   true});
               continue;
            }
            if (!evaluates(profile, option)) {
               out.push_back(Diagnostic{
                   file, line,
                   fmt::format("{}: {} is not evaluated under profile {}", where, c->words, name),
                   true});
            }
         }
         for (const SetClause& c : kSetClauses) {
            if (!hasSet(seq, c.option) || evaluates(profile, c.option)) continue;
            out.push_back(Diagnostic{
                file, lineOf(seq.setLines, c.option, seq.line),
                fmt::format("{}: {} is not evaluated under profile {}", where, c.words, name),
                true});
         }
      }
   }
   std::stable_sort(out.begin(), out.end(),
                    [](const Diagnostic& a, const Diagnostic& b) { return a.line < b.line; });
   return out;
}

}  // namespace Routing::Policy::agent
