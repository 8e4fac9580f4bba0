#include "agent/ConfigText.h"

#include <fmt/format.h>

#include <bit>
#include <initializer_list>
#include <limits>

#include "Kel/Exception.h"
#include "Nx/IntfId.h"
#include "Nx/IpAddr.h"
#include "Orb/MaybeU63.h"
#include "agent/Clauses.h"
#include "agent/TextTokens.h"

namespace Routing::Policy::agent {

using Routing::RouteMap::MatchOption;
using Routing::RouteMap::MatchRule;
using Routing::RouteMap::PrefixListRule;
using Routing::RouteMap::Protocol;
using Routing::RouteMap::SetOption;

std::string Diagnostic::text() const {
   // The file name and the message may carry bytes from outside (a path, a quoted word);
   // printable() keeps them from acting on the reader's terminal.
   // Line 0: about the file as a whole, or about how the command uses it.
   const std::string where =
       line == 0 ? text::printable(file) : fmt::format("{}:{}", text::printable(file), line);
   return fmt::format("{}: {}: {}", where, warning ? "warning" : "error",
                      text::printable(message));
}

namespace {

using text::isBlank;
using text::parseDecimal;
using text::quote;
using text::split;
using text::trim;

constexpr U64 kU32Max = std::numeric_limits<U32>::max();

// Sequence numbers start at 1 everywhere: 0 is what an absent prefix-list rule reads as, and
// "continue 0" already means "the next sequence", so a sequence 0 would be ambiguous in both.
constexpr U64 kMinSeq = 1;

bool parseAddress(std::string_view s, Nx::AddressFamily af, Nx::IpGenAddr& out) {
   if (af == Nx::AddressFamily::ipv4) {
      Nx::IpAddr a;
      if (!Nx::detail::parseV4(s, a)) return false;
      out = a;
   } else {
      Nx::Ip6Addr a;
      if (!Nx::detail::parseV6(s, a)) return false;
      out = a;
   }
   return true;
}

const char* prefixShape(Nx::AddressFamily af) {
   return af == Nx::AddressFamily::ipv4 ? "a prefix A.B.C.D/L" : "a prefix X:X::X/L";
}

const char* addressShape(Nx::AddressFamily af) {
   return af == Nx::AddressFamily::ipv4 ? "an address A.B.C.D" : "an address X:X::X";
}

const char* familyName(Nx::AddressFamily af) {
   return af == Nx::AddressFamily::ipv4 ? "IPv4" : "IPv6";
}

// "'a'", "'a' or 'b'", "'a', 'b' or 'c'".
std::string alternatives(std::initializer_list<std::string_view> words) {
   std::string out;
   std::size_t i = 0;
   for (std::string_view w : words) {
      if (i > 0) out += i + 1 == words.size() ? " or " : ", ";
      out += fmt::format("'{}'", w);
      ++i;
   }
   return out;
}

std::string protocolChoices() {
   std::string out;
   for (U32 p = 1; p <= 9; ++p) out += stringValue(static_cast<Protocol>(p)) + ", ";
   return out + "or 1-9";
}

// The words that introduce a match clause: the same in diagnostics and in printed text.
std::string_view clauseWords(MatchOption o) {
   const MatchClause* c = matchClause(o);
   return c ? c->words : "match";
}

// The words of one line, read left to right. The first failure is the line's one error; every
// reader returns empty (or false) once a failure is recorded, so a handler can simply stop at
// the first empty result.
class Cursor {
public:
   Cursor(std::string_view line, std::vector<std::string_view> words)
       : line_(line), words_(std::move(words)) {}

   bool failed() const { return !error_.empty(); }
   const std::string& error() const { return error_; }
   bool atEnd() const { return pos_ >= words_.size(); }
   void skip(std::size_t n) { pos_ += n; }

   void fail(std::string message) {
      if (error_.empty()) error_ = std::move(message);
   }

   std::optional<std::string_view> word(std::string_view expected) {
      if (failed()) return std::nullopt;
      if (atEnd()) {
         fail(fmt::format("expected {}, got end of line", expected));
         return std::nullopt;
      }
      return words_[pos_++];
   }

   // The next word when it is one of `words`.
   std::optional<std::string_view> keyword(std::initializer_list<std::string_view> words) {
      auto w = word(alternatives(words));
      if (!w) return std::nullopt;
      for (std::string_view k : words) {
         if (*w == k) return w;
      }
      fail(fmt::format("expected {}, got {}", alternatives(words), quote(*w)));
      return std::nullopt;
   }

   std::optional<bool> action() {
      auto w = keyword({"permit", "deny"});
      if (!w) return std::nullopt;
      return *w == "permit";
   }

   std::optional<U64> number(std::string_view what, U64 min, U64 max) {
      const std::string expected = fmt::format("{} {}-{}", what, min, max);
      auto w = word(expected);
      if (!w) return std::nullopt;
      U64 v = 0;
      if (!parseDecimal(*w, v) || v < min || v > max) {
         fail(fmt::format("expected {}, got {}", expected, quote(*w)));
         return std::nullopt;
      }
      return v;
   }

   std::optional<U32> seqno() {
      auto v = number("a sequence number", kMinSeq, kU32Max);
      if (!v) return std::nullopt;
      return static_cast<U32>(*v);
   }

   std::optional<Nx::IpGenAddr> address(Nx::AddressFamily af) {
      auto w = word(addressShape(af));
      if (!w) return std::nullopt;
      return addressFrom(*w, af);
   }

   std::optional<Nx::IpGenAddr> addressFrom(std::string_view w, Nx::AddressFamily af) {
      Nx::IpGenAddr a;
      if (!parseAddress(w, af, a)) {
         fail(fmt::format("expected {}, got {}", addressShape(af), quote(w)));
         return std::nullopt;
      }
      return a;
   }

   std::optional<Nx::IpGenPrefix> prefix(Nx::AddressFamily af) {
      auto w = word(prefixShape(af));
      if (!w) return std::nullopt;
      return prefixFrom(*w, af);
   }

   // Host bits are refused rather than cleared: in configuration they are usually a typo, and a
   // silently widened or narrowed match is worse than an error.
   std::optional<Nx::IpGenPrefix> prefixFrom(std::string_view w, Nx::AddressFamily af) {
      const auto slash = w.find('/');
      Nx::IpGenAddr a;
      U64 len = 0;
      if (slash == std::string_view::npos || !parseAddress(w.substr(0, slash), af, a) ||
          !parseDecimal(w.substr(slash + 1), len) || len > a.maxLen()) {
         fail(fmt::format("expected {}, got {}", prefixShape(af), quote(w)));
         return std::nullopt;
      }
      const Nx::IpGenPrefix p(a, static_cast<unsigned>(len));
      if (p.address() != a) {
         fail(fmt::format("{} has host bits set; expected {}", w, p.toStrep()));
         return std::nullopt;
      }
      return p;
   }

   // The rest of the line as written, for free text such as descriptions.
   std::string_view rest() {
      if (atEnd()) return {};
      const std::string_view w = words_[pos_];
      pos_ = words_.size();
      return trim(line_.substr(static_cast<std::size_t>(w.data() - line_.data())));
   }

   std::optional<std::string> text(std::string_view expected) {
      if (failed()) return std::nullopt;
      const std::string_view t = rest();
      if (t.empty()) {
         fail(fmt::format("expected {}, got end of line", expected));
         return std::nullopt;
      }
      return std::string(t);
   }

   bool end() {
      if (failed()) return false;
      if (!atEnd()) {
         fail(fmt::format("unexpected {} at end of line", quote(words_[pos_])));
         return false;
      }
      return true;
   }

private:
   std::string_view line_;
   std::vector<std::string_view> words_;
   std::size_t pos_ = 0;
   std::string error_;
};

// Which block the lines under a header belong to. A header with an error leaves a broken block:
// its body lines are skipped without further errors, since every one of them would only repeat
// that the header is wrong.
enum class Block { none, accessList, routeMap, brokenAccessList, brokenRouteMap };

class Parser {
public:
   explicit Parser(const std::string& file) : file_(file) {}

   ParseResult run(std::string_view text) {
      std::size_t start = 0;
      while (start <= text.size()) {
         std::size_t nl = text.find('\n', start);
         if (nl == std::string_view::npos) nl = text.size();
         ++lineNo_;
         line(text.substr(start, nl - start));
         start = nl + 1;
      }
      return std::move(res_);
   }

private:
   void line(std::string_view raw) {
      if (raw.find(text::kUtf8Bom) != std::string_view::npos) {
         return add(res_.errors, std::string(text::kMisplacedBom), false);
      }
      const std::string_view s = trim(raw);
      if (s.empty() || s.front() == '!' || s.front() == '#') return;
      const std::vector<std::string_view> w = split(s);
      Cursor c(s, w);
      const std::string_view second = w.size() > 1 ? w[1] : std::string_view();
      U64 ignored = 0;
      if ((w[0] == "ip" || w[0] == "ipv6") && second == "prefix-list") {
         // A top-level command ends the block above it, so a clause after it cannot silently
         // land in a route map several lines up.
         block_ = Block::none;
         prefixList(c, w[0] == "ip" ? Nx::AddressFamily::ipv4 : Nx::AddressFamily::ipv6);
      } else if ((w[0] == "ip" || w[0] == "ipv6") && second == "access-list") {
         accessListHeader(c, w[0] == "ipv6");
      } else if (w[0] == "route-map") {
         routeMapHeader(c);
      } else if (w[0] == "description" || w[0] == "match" || w[0] == "set" || w[0] == "continue" ||
                 w[0] == "sub-route-map") {
         if (block_ == Block::routeMap) {
            clause(c, w[0]);
         } else if (block_ != Block::brokenRouteMap) {
            c.fail(fmt::format("{} outside a route-map block", quote(w[0])));
         }
      } else if (parseDecimal(w[0], ignored)) {
         if (block_ == Block::accessList) {
            accessListRule(c);
         } else if (block_ != Block::brokenAccessList) {
            c.fail("access-list rule outside an access-list block");
         }
      } else {
         c.fail(fmt::format(
             "unknown command {}",
             quote(w.size() > 1 ? fmt::format("{} {}", w[0], w[1]) : std::string(w[0]))));
      }
      if (c.failed()) add(res_.errors, c.error(), false);
   }

   void add(std::vector<Diagnostic>& to, std::string message, bool warning) {
      to.push_back(Diagnostic{file_, lineNo_, std::move(message), warning});
   }

   void prefixList(Cursor& c, Nx::AddressFamily af) {
      c.skip(2);
      auto name = c.word("a prefix-list name");
      c.keyword({"seq"});
      auto seq = c.seqno();
      auto permit = c.action();
      auto pfx = c.prefix(af);
      if (!pfx) return;
      std::optional<U32> ge, le;
      while (!c.atEnd()) {
         auto k = c.keyword({"ge", "le"});
         if (!k) return;
         std::optional<U32>& bound = *k == "ge" ? ge : le;
         if (bound) return c.fail(fmt::format("{} given twice", *k));
         auto v = c.number("a prefix length", 0, kU32Max);
         if (!v) return;
         bound = static_cast<U32>(*v);
      }
      // The same checks, in the same order, as the prefix-list entity makes when the rule is
      // applied, so that a text which parses is never refused later.
      const std::string full = std::to_string(pfx->maxLen());
      const std::string len = std::to_string(pfx->len());
      if (ge && *ge > pfx->maxLen()) {
         return c.fail(fmt::format("ge {} must be at most {} for {}", *ge, full, familyName(af)));
      }
      if (le && *le > pfx->maxLen()) {
         return c.fail(fmt::format("le {} must be at most {} for {}", *le, full, familyName(af)));
      }
      if (ge && *ge < pfx->len()) {
         return c.fail(fmt::format("ge {} must be at least the prefix length {} of {}", *ge, len,
                                   pfx->toStrep()));
      }
      if (le && *le < pfx->len()) {
         return c.fail(fmt::format("le {} must be at least the prefix length {} of {}", *le, len,
                                   pfx->toStrep()));
      }
      if (ge && le && *le < *ge) {
         return c.fail(fmt::format("le {} must be at least ge {}", *le, *ge));
      }
      auto [it, fresh] = res_.document.prefixLists.try_emplace({af, std::string(*name)});
      PrefixListDoc& list = it->second;
      if (fresh) {
         list.name = std::string(*name);
         list.af = af;
         list.line = lineNo_;
      }
      if (list.rules.count(*seq)) {
         return c.fail(fmt::format("duplicate sequence {} in prefix-list {}", *seq, *name));
      }
      list.rules.emplace(*seq, PrefixListRule(*seq, *permit, *pfx, ge, le));
   }

   void accessListHeader(Cursor& c, bool ipv6) {
      block_ = Block::brokenAccessList;
      c.skip(2);
      auto name = c.word("an access-list name");
      if (!c.end()) return;
      // Route maps name an access list without its family, and the compiled lists of both
      // families are published under their names alone.
      if (res_.document.accessLists.count({!ipv6, std::string(*name)})) {
         c.fail(fmt::format("access-list {} is already an {} access-list; access lists of both "
                            "families share one name space",
                            *name, ipv6 ? "ip" : "ipv6"));
         return;
      }
      auto [it, fresh] = res_.document.accessLists.try_emplace({ipv6, std::string(*name)});
      if (fresh) {
         it->second.name = std::string(*name);
         it->second.ipv6 = ipv6;
         it->second.line = lineNo_;
      }
      acl_ = &it->second;
      block_ = Block::accessList;
   }

   void accessListRule(Cursor& c) {
      auto seq = c.seqno();
      auto kind = c.keyword({"permit", "deny", "remark"});
      if (!kind) return;
      const bool taken = acl_->ipv6 ? acl_->ip6Rules.count(*seq) : acl_->ipRules.count(*seq);
      const auto action = *kind == "permit" ? Acl::AclAction::permit
                          : *kind == "deny" ? Acl::AclAction::deny
                                            : Acl::AclAction::remark;
      std::string remark;
      Acl::IpFilter filter;
      Acl::Ip6Filter filter6;
      if (action == Acl::AclAction::remark) {
         auto t = c.text("the remark text");
         if (!t) return;
         remark = std::move(*t);
      } else if (acl_->ipv6) {
         auto f = source6(c);
         if (!f || !c.end()) return;
         filter6 = *f;
      } else {
         auto f = source4(c);
         if (!f || !c.end()) return;
         filter = *f;
      }
      if (taken) {
         return c.fail(fmt::format("duplicate sequence {} in access-list {}", *seq, acl_->name));
      }
      if (acl_->ipv6) {
         Acl::Ip6RuleConfig rule(action, filter6);
         rule.remarkIs(std::move(remark));
         acl_->ip6Rules.emplace(*seq, std::move(rule));
      } else {
         Acl::IpRuleConfig rule(action, filter);
         rule.remarkIs(std::move(remark));
         acl_->ipRules.emplace(*seq, std::move(rule));
      }
   }

   std::optional<Acl::IpFilter> source4(Cursor& c) {
      constexpr auto v4 = Nx::AddressFamily::ipv4;
      constexpr std::string_view shape =
          "a source (any, host A.B.C.D, A.B.C.D/L or A.B.C.D WILDCARD)";
      auto w = c.word(shape);
      if (!w) return std::nullopt;
      if (*w == "any") return Acl::IpFilter::any();
      if (*w == "host") {
         auto a = c.address(v4);
         if (!a) return std::nullopt;
         return Acl::IpFilter::host(a->v4());
      }
      if (w->find('/') != std::string_view::npos) {
         auto p = c.prefixFrom(*w, v4);
         if (!p) return std::nullopt;
         return Acl::IpFilter::prefix(*p);
      }
      Nx::IpGenAddr source;
      if (!parseAddress(*w, v4, source)) {
         c.fail(fmt::format("expected {}, got {}", shape, quote(*w)));
         return std::nullopt;
      }
      auto wildcard = c.word("a wildcard mask A.B.C.D");
      if (!wildcard) return std::nullopt;
      auto mask = c.addressFrom(*wildcard, v4);
      if (!mask) return std::nullopt;
      // The filter would clear address bits under the wildcard; like host bits in a prefix,
      // they are refused so that a typo does not quietly change what the rule matches.
      const Acl::IpFilter f(source.v4(), mask->v4());
      if (f.source() != source.v4()) {
         c.fail(fmt::format("{} {} has bits set under the wildcard; expected {} {}", *w, *wildcard,
                            f.source().toStrep(), *wildcard));
         return std::nullopt;
      }
      return f;
   }

   std::optional<Acl::Ip6Filter> source6(Cursor& c) {
      constexpr auto v6 = Nx::AddressFamily::ipv6;
      constexpr std::string_view shape = "a source (any, host X:X::X or X:X::X/L)";
      auto w = c.word(shape);
      if (!w) return std::nullopt;
      if (*w == "any") return Acl::Ip6Filter();
      if (*w == "host") {
         auto a = c.address(v6);
         if (!a) return std::nullopt;
         return Acl::Ip6Filter(Nx::IpGenPrefix(*a));
      }
      if (w->find('/') == std::string_view::npos) {
         c.fail(fmt::format("expected {}, got {}", shape, quote(*w)));
         return std::nullopt;
      }
      auto p = c.prefixFrom(*w, v6);
      if (!p) return std::nullopt;
      return Acl::Ip6Filter(*p);
   }

   void routeMapHeader(Cursor& c) {
      block_ = Block::brokenRouteMap;
      c.skip(1);
      auto name = c.word("a route-map name");
      auto permit = c.action();
      auto seq = c.seqno();
      if (!c.end()) return;
      auto [it, fresh] = res_.document.routeMaps.try_emplace(std::string(*name));
      if (fresh) {
         it->second.name = std::string(*name);
         it->second.line = lineNo_;
      }
      rm_ = &it->second;
      seq_ = &rm_->seqs[*seq];
      seq_->seqno = *seq;
      seq_->permit = *permit;
      seq_->line = lineNo_;
      block_ = Block::routeMap;
   }

   std::string where() const { return fmt::format("route-map {} seq {}", rm_->name, seq_->seqno); }

   void twice(Cursor& c, std::string_view words) {
      c.fail(fmt::format("{} given twice in {}", words, where()));
   }

   void clause(Cursor& c, std::string_view first) {
      c.skip(1);
      if (first == "description") {
         if (auto t = c.text("the description text")) seq_->descriptions.push_back(std::move(*t));
      } else if (first == "match") {
         match(c);
      } else if (first == "set") {
         set(c);
      } else if (first == "continue") {
         U32 target = 0;
         if (!c.atEnd()) {
            auto n = c.seqno();
            if (!n) return;
            if (*n <= seq_->seqno) {
               return c.fail(fmt::format("continue target {} must be above the sequence number {}",
                                         *n, seq_->seqno));
            }
            target = *n;
         }
         if (!c.end()) return;
         if (seq_->continueSeq) return twice(c, "continue");
         seq_->continueSeq = target;
      } else {
         auto name = c.word("a route-map name");
         bool invert = false;
         if (name && !c.atEnd()) invert = c.keyword({"invert-result"}).has_value();
         if (!c.end()) return;
         if (!seq_->subRouteMap.empty()) return twice(c, "sub-route-map");
         seq_->subRouteMap = std::string(*name);
         seq_->subRouteMapInvert = invert;
         seq_->subRouteMapLine = lineNo_;
      }
   }

   void match(Cursor& c) {
      auto kind =
          c.keyword({"ip", "ipv6", "tag", "source-protocol", "metric", "interface", "router-id"});
      if (!kind) return;
      std::optional<MatchRule> rule;
      auto list = [&c, &rule](MatchOption o) {
         if (!c.keyword({"prefix-list"})) return;
         if (auto n = c.word("a prefix-list name")) rule = MatchRule::forList(o, std::string(*n));
      };
      if (*kind == "ip") {
         auto what = c.keyword({"address", "next-hop", "resolved-next-hop"});
         if (!what) return;
         if (*what == "address") {
            auto l = c.keyword({"prefix-list", "access-list"});
            if (!l) return;
            const bool pl = *l == "prefix-list";
            auto n = c.word(pl ? "a prefix-list name" : "an access-list name");
            if (!n) return;
            rule = MatchRule::forList(
                pl ? MatchOption::matchIpAddressPrefixList : MatchOption::matchIpAddressAccessList,
                std::string(*n));
         } else if (*what == "next-hop") {
            auto w = c.word("'prefix-list' or an address A.B.C.D");
            if (!w) return;
            Nx::IpGenAddr a;
            if (*w == "prefix-list") {
               if (auto n = c.word("a prefix-list name")) {
                  rule = MatchRule::forList(MatchOption::matchIpNexthopPrefixList, std::string(*n));
               }
            } else if (parseAddress(*w, Nx::AddressFamily::ipv4, a)) {
               rule = MatchRule::forNexthop(a);
            } else {
               return c.fail(
                   fmt::format("expected 'prefix-list' or an address A.B.C.D, got {}", quote(*w)));
            }
         } else {
            list(MatchOption::matchIpResolvedNexthopPrefixList);
         }
      } else if (*kind == "ipv6") {
         if (c.keyword({"address"})) list(MatchOption::matchIpv6AddressPrefixList);
      } else if (*kind == "router-id") {
         list(MatchOption::matchRouterIdPrefixList);
      } else if (*kind == "tag") {
         if (auto t = c.number("a tag", 0, kU32Max)) rule = MatchRule::forTag(static_cast<U32>(*t));
      } else if (*kind == "metric") {
         if (auto m = c.number("a metric", 0, Orb::MaybeU63::max)) rule = MatchRule::forMetric(*m);
      } else if (*kind == "source-protocol") {
         const std::string shape = "a protocol (" + protocolChoices() + ")";
         auto w = c.word(shape);
         if (!w) return;
         auto p = Routing::RouteMap::protocolFromString(*w);
         if (!p) return c.fail(fmt::format("expected {}, got {}", shape, quote(*w)));
         rule = MatchRule::forProtocol(*p);
      } else {
         auto w = c.word("an interface name");
         if (!w) return;
         try {
            rule = MatchRule::forInterface(Nx::IntfId::fromStrep(*w));
         } catch (const Kel::ParseException&) {
            // In the platform's words, but with the word quoted as every other message quotes it
            // (escaped and cut): the exception's text carries the word whole.
            return c.fail(
                fmt::format("expected an interface name of letters, digits, '/', '.', "
                            "'-', '_' like Ethernet1, got {}",
                            quote(*w)));
         }
      }
      if (!rule || !c.end()) return;
      const MatchOption o = rule->option();
      if (seq_->matchRules.count(o)) return twice(c, clauseWords(o));
      seq_->matchRules.emplace(o, std::move(*rule));
      seq_->matchLines[o] = lineNo_;
   }

   void set(Cursor& c) {
      auto kind = c.keyword({"tag", "distance", "metric"});
      if (!kind) return;
      if (*kind == "tag") {
         auto v = c.number("a tag", 0, kU32Max);
         if (!c.end()) return;
         if (seq_->tag) return twice(c, "set tag");
         seq_->tag = static_cast<U32>(*v);
         seq_->setLines[SetOption::setTag] = lineNo_;
      } else if (*kind == "distance") {
         auto v = c.number("a distance", 1, 255);
         if (!c.end()) return;
         if (seq_->distance) return twice(c, "set distance");
         seq_->distance = static_cast<U32>(*v);
         seq_->setLines[SetOption::setDistance] = lineNo_;
      } else {
         auto v = c.number("a metric", 0, Orb::MaybeU63::max);
         if (!c.end()) return;
         if (seq_->metric) return twice(c, "set metric");
         seq_->metric = *v;
         seq_->setLines[SetOption::setMetric] = lineNo_;
      }
   }

   const std::string& file_;
   U32 lineNo_ = 0;
   ParseResult res_;
   Block block_ = Block::none;
   // Point into the document's maps, whose nodes never move.
   AccessListDoc* acl_ = nullptr;
   RouteMapDoc* rm_ = nullptr;
   RouteMapSeqDoc* seq_ = nullptr;
};

// The shortest of the four source forms that yields the same filter.
std::string sourceText(const Acl::IpFilter& f) {
   const U32 w = f.sourceWildcard().value();
   if (w == 0) return "host " + f.source().toStrep();
   if (w == ~U32{0}) return "any";
   if ((w & (w + 1)) == 0) {
      const int len = 32 - std::popcount(w);
      return fmt::format("{}/{}", f.source().toStrep(), len);
   }
   return f.source().toStrep() + " " + f.sourceWildcard().toStrep();
}

std::string sourceText(const Acl::Ip6Filter& f) {
   const Nx::IpGenPrefix& p = f.source();
   if (p.len() == 0) return "any";
   if (p.len() == p.maxLen()) return "host " + p.address().toStrep();
   return p.toStrep();
}

template <class Rule>
void printRules(std::string& out, const std::map<U32, Rule>& rules) {
   for (const auto& [seq, rule] : rules) {
      if (rule.action() == Acl::AclAction::remark) {
         out += fmt::format("   {} remark {}\n", seq, rule.remark());
      } else {
         out += fmt::format("   {} {} {}\n", seq,
                            rule.action() == Acl::AclAction::permit ? "permit" : "deny",
                            sourceText(rule.filter()));
      }
   }
}

std::string matchText(const MatchRule& r) {
   std::string arg;
   switch (r.option()) {
      case MatchOption::matchTag:
         arg = std::to_string(r.tag());
         break;
      case MatchOption::matchSourceProtocol:
         arg = stringValue(r.protocol());
         break;
      case MatchOption::matchMetric:
         arg = std::to_string(r.metric().value());
         break;
      case MatchOption::matchInterface:
         arg = r.intf().name();
         break;
      case MatchOption::matchIpNexthop:
         arg = r.nexthop().toStrep();
         break;
      default:
         arg = r.listName();
         break;
   }
   return fmt::format("{} {}", clauseWords(r.option()), arg);
}

}  // namespace

ParseResult parseConfigText(std::string_view text, const std::string& file) {
   if (std::string e = text::foreignEncoding(text); !e.empty()) {
      ParseResult r;
      r.errors.push_back(Diagnostic{file, 1, std::move(e), false});
      return r;
   }
   return Parser(file).run(text::withoutUtf8Bom(text));
}

std::string configText(const ConfigDocument& doc) {
   std::string out;
   for (const auto& [key, list] : doc.prefixLists) {
      for (const auto& [seq, rule] : list.rules) {
         out += fmt::format("{} prefix-list {} seq {} {} {}",
                            list.af == Nx::AddressFamily::ipv4 ? "ip" : "ipv6", list.name, seq,
                            rule.permit ? "permit" : "deny", rule.prefix.toStrep());
         if (rule.ge) out += fmt::format(" ge {}", *rule.ge);
         if (rule.le) out += fmt::format(" le {}", *rule.le);
         out += '\n';
      }
   }
   if (!doc.prefixLists.empty()) out += "!\n";
   for (const auto& [key, acl] : doc.accessLists) {
      out += fmt::format("{} access-list {}\n", acl.ipv6 ? "ipv6" : "ip", acl.name);
      if (acl.ipv6) {
         printRules(out, acl.ip6Rules);
      } else {
         printRules(out, acl.ipRules);
      }
      out += "!\n";
   }
   for (const auto& [name, rm] : doc.routeMaps) {
      for (const auto& [seqno, seq] : rm.seqs) {
         out += fmt::format("route-map {} {} {}\n", name, seq.permit ? "permit" : "deny", seqno);
         for (const std::string& d : seq.descriptions) out += "   description " + d + "\n";
         for (const auto& [o, rule] : seq.matchRules) out += "   " + matchText(rule) + "\n";
         if (seq.tag) out += fmt::format("   set tag {}\n", *seq.tag);
         if (seq.distance) out += fmt::format("   set distance {}\n", *seq.distance);
         if (seq.metric) out += fmt::format("   set metric {}\n", *seq.metric);
         if (seq.continueSeq) {
            out += *seq.continueSeq ? fmt::format("   continue {}\n", *seq.continueSeq)
                                    : std::string("   continue\n");
         }
         if (!seq.subRouteMap.empty()) {
            out += fmt::format("   sub-route-map {}{}\n", seq.subRouteMap,
                               seq.subRouteMapInvert ? " invert-result" : "");
         }
         out += "!\n";
      }
   }
   return out;
}

}  // namespace Routing::Policy::agent
