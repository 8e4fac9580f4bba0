#pragma once
// Routes and expected verdicts as one-line text, for tools and tests that feed routes to the
// evaluator from files:
//
//    10.1.2.0/24 protocol=ebgp tag=100 nexthop=192.0.2.1 interfaces=Ethernet1,Ethernet2
//    10.1.2.0/24 protocol=ebgp => permit tag=200 preference=20
//    10.9.0.0/16 => deny
//
// Every function here reports a bad line as an error string that names what was expected; none
// throws. Callers skip blank lines and comments (skippableLine) before parsing.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Orb/MaybeU63.h"
#include "RoutingPolicy/eval/Result.h"
#include "agent/ConfigText.h"

namespace Routing::Policy::agent {

// A value or the reason there is none.
template <class T>
struct Parsed {
   std::optional<T> value;
   std::string error;  // set exactly when value is not

   static Parsed failure(std::string e) {
      Parsed p;
      p.error = std::move(e);
      return p;
   }
   bool ok() const { return value.has_value(); }
};

// Blank, or a comment starting with '#' or '!'.
bool skippableLine(std::string_view line);

// PREFIX [protocol=P] [tag=T] [metric=M|none] [nexthop=A] [router-id=A] [resolved-nexthop=A]
//        [interfaces=I1,I2] [match-intf=true|false]
// Attributes left out keep MatchInput_'s defaults (protocol unknown, tag 0, no metric, next hops
// and router id 0.0.0.0, no interfaces), except match-intf, which is true: the route's
// interfaces are the ones listed, and "match interface" clauses are decided by them.
Parsed<MatchInput_> parseRouteText(std::string_view line);

// The route in the form parseRouteText reads, with only the attributes that differ from what
// parseRouteText assumes, in the order listed above.
std::string routeText(const MatchInput_& route);

// What a test case expects. Attributes not given are not checked.
struct RouteExpectation {
   bool permit = false;
   std::optional<RouteTag> tag;
   std::optional<RoutePreference> preference;
   std::optional<Orb::MaybeU63> metric;  // holding an absent MaybeU63: expects "metric=none"

   // Empty when the verdict and result agree; otherwise what differs, e.g.
   // "tag is 200, expected 100".
   std::string mismatch(bool permit, const Result_& result) const;
   // "deny" or "permit tag=200" with the checked attributes only.
   std::string text() const;
};

struct RouteCase {
   MatchInput_ route;
   RouteExpectation expect;
};

// ROUTE => deny
// ROUTE => permit [tag=T] [preference=P] [metric=M|none]
Parsed<RouteCase> parseRouteCase(std::string_view line);

// "deny", or "permit tag=T preference=P metric=M|none" with every result attribute.
std::string verdictText(bool permit, const Result_& result);

// A whole file of route or case lines: the parsed lines with their line numbers, or every bad
// line as a diagnostic. Nothing is returned in `items` once any line is bad, so a caller can
// refuse the whole input before acting on part of it.
template <class T>
struct ParsedLines {
   std::vector<std::pair<U32, T>> items;  // (line number, value), in text order
   std::vector<std::string> lines;        // the trimmed text of each item
   std::vector<Diagnostic> errors;
   bool ok() const { return errors.empty(); }
};

ParsedLines<MatchInput_> parseRouteLines(std::string_view text, const std::string& file);
ParsedLines<RouteCase> parseCaseLines(std::string_view text, const std::string& file);

}  // namespace Routing::Policy::agent
