#include "agent/RouteText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <exception>
#include <limits>

#include "Nx/IntfId.h"
#include "Nx/IpAddr.h"
#include "Nx/IpGenPrefix.h"
#include "RoutingPolicy/eval/IntfIdSet.h"
#include "agent/TextTokens.h"

namespace Routing::Policy::agent {

namespace {

using text::isBlank;
using text::parseDecimal;
using text::quote;
using text::split;
using text::trim;

constexpr std::string_view kPrefixShape = "a prefix A.B.C.D/L or X:X::X/L";
constexpr std::string_view kAddressShape = "an address A.B.C.D or X:X::X";
constexpr std::string_view kRouteKeys =
    "protocol, tag, metric, nexthop, router-id, resolved-nexthop, interfaces or match-intf";
constexpr std::string_view kResultKeys = "tag, preference or metric";

// The family follows from the text, as in IpGenAddr::fromStrep, but without the exception.
bool parseAddress(std::string_view s, Nx::IpGenAddr& out) {
   if (s.find(':') != std::string_view::npos) {
      Nx::Ip6Addr a;
      if (!Nx::detail::parseV6(s, a)) return false;
      out = a;
      return true;
   }
   Nx::IpAddr a;
   if (!Nx::detail::parseV4(s, a)) return false;
   out = a;
   return true;
}

std::string protocolChoices() {
   // Every named protocol, read from the library rather than listed here, so that a protocol
   // added there shows up in the message without an edit here.
   std::string out;
   for (U32 v = 0; v <= 255; ++v) {
      const std::string name = stringValue(static_cast<RouteProto>(v));
      if (name != std::to_string(v)) out += name + ", ";
   }
   return out + "or 0-255";
}

// The reader of key=value words shared by routes and expectations. Each key may appear once:
// a repeated key is more likely a mistake than an intent to override.
class Attributes {
public:
   std::string error;

   // Splits `word` into key and value; false (with the error set) when it is not key=value.
   bool split(std::string_view word, std::string_view& key, std::string_view& value) {
      const auto eq = word.find('=');
      if (eq == std::string_view::npos || eq == 0) {
         error = fmt::format("expected key=value, got {}", quote(word));
         return false;
      }
      key = word.substr(0, eq);
      value = word.substr(eq + 1);
      if (std::find(seen_.begin(), seen_.end(), key) != seen_.end()) {
         error = fmt::format("{} given twice", key);
         return false;
      }
      seen_.push_back(key);
      return true;
   }

   bool expected(std::string_view what, std::string_view key, std::string_view value) {
      error = fmt::format("expected {} for {}, got {}", what, key, quote(value));
      return false;
   }

   bool number(std::string_view key, std::string_view value, std::string_view what, U64 max,
               U64& out) {
      if (parseDecimal(value, max, out)) return true;
      return expected(fmt::format("{} 0-{}", what, max), key, value);
   }

   bool metric(std::string_view key, std::string_view value, Orb::MaybeU63& out) {
      if (value == "none") {
         out = Orb::MaybeU63();
         return true;
      }
      U64 v = 0;
      if (!parseDecimal(value, Orb::MaybeU63::max, v)) {
         return expected(fmt::format("a metric 0-{} or 'none'", Orb::MaybeU63::max), key, value);
      }
      out = Orb::MaybeU63(v);
      return true;
   }

private:
   std::vector<std::string_view> seen_;
};

Parsed<Nx::IpGenPrefix> parsePrefix(std::string_view w) {
   const auto slash = w.find('/');
   Nx::IpGenAddr a;
   U64 len = 0;
   if (slash == std::string_view::npos || !parseAddress(w.substr(0, slash), a) ||
       !parseDecimal(w.substr(slash + 1), 255, len) || len > a.maxLen()) {
      return Parsed<Nx::IpGenPrefix>::failure(
          fmt::format("expected {}, got {}", kPrefixShape, quote(w)));
   }
   const Nx::IpGenPrefix p(a, static_cast<unsigned>(len));
   // Refused rather than cleared, as in configuration: a route written with host bits is more
   // likely a typo than a request to evaluate the covering network.
   if (p.address() != a) {
      return Parsed<Nx::IpGenPrefix>::failure(
          fmt::format("{} has host bits set; expected {}", w, p.toStrep()));
   }
   return Parsed<Nx::IpGenPrefix>{p, {}};
}

// The words of a route (prefix first); the error names the first bad word.
Parsed<MatchInput_> parseRouteWords(const std::vector<std::string_view>& words) {
   using Result = Parsed<MatchInput_>;
   if (words.empty())
      return Result::failure(fmt::format("expected {}, got end of line", kPrefixShape));
   auto prefix = parsePrefix(words[0]);
   if (!prefix.ok()) return Result::failure(std::move(prefix.error));
   MatchInput_ route;
   route.prefixIs(*prefix.value);
   // A route read from a file is learned on the interfaces it lists and on no other, so a
   // "match interface" clause is decided by them; an agent that leaves interfaces out of the
   // decision says match-intf=false.
   route.matchIntfIs(true);
   Attributes attrs;
   for (std::size_t i = 1; i < words.size(); ++i) {
      std::string_view key, value;
      if (!attrs.split(words[i], key, value)) return Result::failure(std::move(attrs.error));
      bool ok = true;
      U64 n = 0;
      Nx::IpGenAddr addr;
      if (key == "protocol") {
         const auto p = routeProtoFromString(value);
         if (p) {
            route.protocolIs(*p);
         } else {
            ok = attrs.expected(fmt::format("a protocol ({})", protocolChoices()), key, value);
         }
      } else if (key == "tag") {
         ok = attrs.number(key, value, "a tag", std::numeric_limits<U32>::max(), n);
         if (ok) route.tagIs(RouteTag(static_cast<U32>(n)));
      } else if (key == "metric") {
         Orb::MaybeU63 m;
         ok = attrs.metric(key, value, m);
         if (ok) route.metricIs(m);
      } else if (key == "nexthop" || key == "resolved-nexthop") {
         ok = parseAddress(value, addr) || attrs.expected(kAddressShape, key, value);
         if (ok) key == "nexthop" ? route.nexthopIs(addr) : route.resolvedNexthopIs(addr);
      } else if (key == "router-id") {
         Nx::IpAddr id;
         ok = Nx::detail::parseV4(value, id) || attrs.expected("an address A.B.C.D", key, value);
         if (ok) route.routerIdIs(id);
      } else if (key == "interfaces") {
         auto set = intfIdSetFactory();
         std::string_view rest = value;
         while (ok) {
            const auto comma = rest.find(',');
            const std::string_view name = rest.substr(0, comma);
            try {
               set->intfIdIs(Nx::IntfId::fromStrep(name));
            } catch (const std::exception&) {
               ok = attrs.expected("interface names separated by ','", key, value);
            }
            if (comma == std::string_view::npos) break;
            rest.remove_prefix(comma + 1);
         }
         if (ok) route.intfIdSetIs(std::move(set));
      } else if (key == "match-intf") {
         ok =
             value == "true" || value == "false" || attrs.expected("'true' or 'false'", key, value);
         if (ok) route.matchIntfIs(value == "true");
      } else {
         ok = false;
         attrs.error =
             fmt::format("unknown route attribute {}; expected one of {}", quote(key), kRouteKeys);
      }
      if (!ok) return Result::failure(std::move(attrs.error));
   }
   return Result{std::move(route), {}};
}

template <class T, class ParseLine>
ParsedLines<T> parseLines(std::string_view text, const std::string& file, ParseLine parseLine) {
   ParsedLines<T> out;
   if (std::string e = text::foreignEncoding(text); !e.empty()) {
      out.errors.push_back(Diagnostic{file, 1, std::move(e), false});
      return out;
   }
   text = text::withoutUtf8Bom(text);
   U32 lineNo = 0;
   std::size_t start = 0;
   while (start < text.size()) {
      std::size_t nl = text.find('\n', start);
      if (nl == std::string_view::npos) nl = text.size();
      ++lineNo;
      const std::string_view line = trim(text.substr(start, nl - start));
      start = nl + 1;
      if (line.find(text::kUtf8Bom) != std::string_view::npos) {
         out.errors.push_back(Diagnostic{file, lineNo, std::string(text::kMisplacedBom), false});
         continue;
      }
      if (skippableLine(line)) continue;
      Parsed<T> p = parseLine(line);
      if (!p.ok()) {
         out.errors.push_back(Diagnostic{file, lineNo, std::move(p.error), false});
      } else if (out.errors.empty()) {
         out.items.emplace_back(lineNo, std::move(*p.value));
         out.lines.emplace_back(line);
      }
   }
   if (!out.errors.empty()) {
      out.items.clear();
      out.lines.clear();
   }
   return out;
}

}  // namespace

bool skippableLine(std::string_view line) {
   line = trim(line);
   return line.empty() || line.front() == '#' || line.front() == '!';
}

Parsed<MatchInput_> parseRouteText(std::string_view line) {
   return parseRouteWords(split(line));
}

std::string routeText(const MatchInput_& route) {
   const MatchInput_ defaults;
   std::string out = route.prefix().toStrep();
   if (route.protocol() != defaults.protocol()) out += " protocol=" + stringValue(route.protocol());
   if (route.tag() != defaults.tag()) out += " tag=" + route.tag().toStrep();
   if (route.metric().hasValue()) out += " metric=" + std::to_string(route.metric().value());
   if (route.nexthop() != defaults.nexthop()) out += " nexthop=" + route.nexthop().toStrep();
   if (route.routerId() != defaults.routerId()) out += " router-id=" + route.routerId().toStrep();
   if (route.resolvedNexthop() != defaults.resolvedNexthop()) {
      out += " resolved-nexthop=" + route.resolvedNexthop().toStrep();
   }
   if (route.intfIdSet() && !route.intfIdSet()->empty()) {
      std::vector<std::string> names;
      for (const Nx::IntfId& id : *route.intfIdSet()) names.push_back(id.name());
      std::sort(names.begin(), names.end());
      out += " interfaces=" + fmt::format("{}", fmt::join(names, ","));
   }
   if (!route.matchIntf()) out += " match-intf=false";
   return out;
}

std::string RouteExpectation::mismatch(bool gotPermit, const Result_& result) const {
   if (gotPermit != permit) {
      return fmt::format("verdict is {}, expected {}", gotPermit ? "permit" : "deny",
                         permit ? "permit" : "deny");
   }
   if (!permit) return {};
   std::vector<std::string> diffs;
   if (tag && result.tag() != *tag) {
      diffs.push_back(fmt::format("tag is {}, expected {}", result.tag().value(), tag->value()));
   }
   if (preference && result.preference() != *preference) {
      diffs.push_back(fmt::format("preference is {}, expected {}", result.preference().value(),
                                  preference->value()));
   }
   if (metric && result.metric() != *metric) {
      diffs.push_back(
          fmt::format("metric is {}, expected {}", result.metric().toStrep(), metric->toStrep()));
   }
   return fmt::format("{}", fmt::join(diffs, "; "));
}

std::string RouteExpectation::text() const {
   if (!permit) return "deny";
   std::string out = "permit";
   if (tag) out += " tag=" + tag->toStrep();
   if (preference) out += " preference=" + preference->toStrep();
   if (metric) out += " metric=" + (metric->hasValue() ? std::to_string(metric->value()) : "none");
   return out;
}

std::string verdictText(bool permit, const Result_& result) {
   if (!permit) return "deny";
   return fmt::format(
       "permit tag={} preference={} metric={}", result.tag().value(), result.preference().value(),
       result.metric().hasValue() ? std::to_string(result.metric().value()) : std::string("none"));
}

Parsed<RouteCase> parseRouteCase(std::string_view line) {
   using Result = Parsed<RouteCase>;
   const auto arrow = line.find("=>");
   if (arrow == std::string_view::npos) {
      return Result::failure("expected ROUTE => permit|deny, found no '=>'");
   }
   auto route = parseRouteWords(split(line.substr(0, arrow)));
   if (!route.ok()) return Result::failure(std::move(route.error));
   const std::vector<std::string_view> words = split(line.substr(arrow + 2));
   if (words.empty())
      return Result::failure("expected 'permit' or 'deny' after '=>', got end of line");
   RouteCase c{std::move(*route.value), {}};
   if (words[0] == "deny") {
      if (words.size() > 1) {
         // A denied route has no result, so attributes after deny could only be a mistake.
         return Result::failure(fmt::format("unexpected {} after deny", quote(words[1])));
      }
      return Result{std::move(c), {}};
   }
   if (words[0] != "permit") {
      return Result::failure(
          fmt::format("expected 'permit' or 'deny' after '=>', got {}", quote(words[0])));
   }
   c.expect.permit = true;
   Attributes attrs;
   for (std::size_t i = 1; i < words.size(); ++i) {
      std::string_view key, value;
      if (!attrs.split(words[i], key, value)) return Result::failure(std::move(attrs.error));
      bool ok = true;
      U64 n = 0;
      if (key == "tag") {
         ok = attrs.number(key, value, "a tag", std::numeric_limits<U32>::max(), n);
         if (ok) c.expect.tag = RouteTag(static_cast<U32>(n));
      } else if (key == "preference") {
         ok = attrs.number(key, value, "a preference", RoutePreference::max, n);
         if (ok) c.expect.preference = RoutePreference(static_cast<U32>(n));
      } else if (key == "metric") {
         Orb::MaybeU63 m;
         ok = attrs.metric(key, value, m);
         if (ok) c.expect.metric = m;
      } else {
         ok = false;
         attrs.error = fmt::format("unknown result attribute {}; expected one of {}", quote(key),
                                   kResultKeys);
      }
      if (!ok) return Result::failure(std::move(attrs.error));
   }
   return Result{std::move(c), {}};
}

ParsedLines<MatchInput_> parseRouteLines(std::string_view text, const std::string& file) {
   return parseLines<MatchInput_>(text, file, parseRouteText);
}

ParsedLines<RouteCase> parseCaseLines(std::string_view text, const std::string& file) {
   return parseLines<RouteCase>(text, file, parseRouteCase);
}

}  // namespace Routing::Policy::agent
