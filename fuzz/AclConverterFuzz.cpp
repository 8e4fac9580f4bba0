// Access-list rules become address sets, prefixes and, for IPv4 wildcards that scatter too many
// bits, mask rules kept beside the trie. Whatever the rule, what comes out must hold exactly the
// addresses the rule matches: all of them and no other. A wrong prefix here is a silent leak or
// a silent drop in every route map that matches on the list.
//
// Input, read front to back (an exhausted input reads as zeros):
//    byte 0: what to check, modulo 4 (for lists, the next byte's low bit builds them one rule
//    per slice):
//       0  one IPv4 rule through AclToPrefix: ranges, interval set, prefix cut, multicast
//       1  one IPv6 rule through AclToIp6Prefix, and the prefix cut of an arbitrary range
//       2  an IPv4 access list of 1-4 rules compiled by the agent: trie entries, mask rules and
//          the access-list matcher's first-match answers
//       3  the same for an IPv6 access list
//    then the rules: a shape byte and four bytes per wildcard, four bytes per address, one byte
//    per action, and so on, as the readers below take them.
//
// The answers are computed here without the library: a rule matches address a when
// (a & ~wildcard) == source; a route prefix when every address in it does. Sampled addresses
// (the rule's own, ones taken from the input, each with single bits flipped) are checked, and
// every address of the rule when its wildcard has at most 12 bits.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Acl/AclRule.h"
#include "Acl/AclToIp6Prefix.h"
#include "Acl/AclToPrefix.h"
#include "Nx/IpGenPrefixSet.h"
#include "Routing/RouteMap/ListStatus.h"
#include "Routing/RouteMap/PolicySymbol.h"
#include "Routing/RouteMap/PrefixListEntry.h"
#include "RoutingPolicy/acl/RoutingPolicyAcl.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"
#include "agent/PolicyAgent.h"
#include "fuzz/FuzzBytes.h"
#include "tests/RoutingPolicy/acl/AclWildcardModel.h"

using namespace Routing::Policy;
using AclIp6Prefix::Ip6AddrExt;

namespace {

using Ip6Block = std::pair<Ip6AddrExt, unsigned>;  // address, length

std::string text4(U32 a) {
   return Nx::IpAddr(a).toStrep();
}
std::string text6(Ip6AddrExt a) {
   return AclIp6Prefix::toIp6Addr(a).toStrep();
}

[[noreturn]] void fail(const std::string& subject, const std::string& what) {
   std::fprintf(stderr, "%s: %s\n", subject.c_str(), what.c_str());
   std::abort();
}

// ---- the model ---------------------------------------------------------------------------------

template <class T, unsigned Bits>
constexpr T hostBits(unsigned len) {
   return len == 0 ? static_cast<T>(~T{0}) : static_cast<T>((T{1} << (Bits - len)) - 1);
}

// The fewest prefixes holding exactly first..last: every block of the binary tree that lies
// inside the range while its parent does not.
template <class T, unsigned Bits>
void modelCover(T first, T last, T base, unsigned len, std::vector<std::pair<T, unsigned>>& out) {
   const T end = base | hostBits<T, Bits>(len);
   if (end < first || base > last) return;
   if (first <= base && end <= last) {
      out.emplace_back(base, len);
      return;
   }
   modelCover<T, Bits>(first, last, base, len + 1, out);
   modelCover<T, Bits>(first, last, base | (T{1} << (Bits - len - 1)), len + 1, out);
}

struct Rule4 {
   U32 seqno = 0;
   Acl::AclAction action = Acl::AclAction::permit;
   U32 source = 0;  // nothing under the wildcard
   U32 wildcard = 0;

   bool has(U32 a) const { return (a & ~wildcard) == source; }
   // Every address of a/len is one of the rule's.
   bool covers(U32 a, unsigned len) const {
      return ((a ^ source) | hostBits<U32, 32>(len)) & ~wildcard ? false : true;
   }
   std::string text() const {
      return std::to_string(seqno) + " " + Acl::stringValue(action) + " " + text4(source) + " " +
             text4(wildcard);
   }
};

struct Rule6 {
   U32 seqno = 0;
   Acl::AclAction action = Acl::AclAction::permit;
   Nx::IpGenPrefix source{Nx::IpGenAddr(Nx::Ip6Addr()), 0};

   std::string text() const {
      return std::to_string(seqno) + " " + Acl::stringValue(action) + " " + source.toStrep();
   }
};

Ip6AddrExt ext(const Nx::IpGenPrefix& p) {
   return AclIp6Prefix::toIp6AddrExt(p.address().v6());
}

// Wildcards of every shape: the mutator finds scattered bits by itself, but contiguous masks,
// hosts, "any" and low runs are where the converters take other paths.
U32 wildcardFrom(fuzz::Bytes& in) {
   switch (in.below(7)) {
      case 0:
         return in.u32();
      case 1: {
         const unsigned h = in.below(33);
         return h == 32 ? ~U32{0} : (U32{1} << h) - 1;
      }
      case 2:
         return 0;
      case 3:
         return ~U32{0};
      case 4: {
         const unsigned h = in.below(33);
         return in.u32() | (h == 32 ? ~U32{0} : (U32{1} << h) - 1);
      }
      case 5: {
         U32 w = 0;
         for (unsigned n = in.below(24); n > 0; --n) w |= U32{1} << in.below(32);
         return w;
      }
      default: {
         U32 w = ~U32{0};
         for (unsigned n = in.below(24); n > 0; --n) w &= ~(U32{1} << in.below(32));
         return w;
      }
   }
}

Acl::AclAction actionFrom(fuzz::Bytes& in) {
   // Remarks are rare in real lists but must convert to nothing.
   const unsigned b = in.below(8);
   return b < 4 ? Acl::AclAction::permit : b < 7 ? Acl::AclAction::deny : Acl::AclAction::remark;
}

Rule4 rule4From(fuzz::Bytes& in, U32 seqno) {
   Rule4 r;
   r.seqno = seqno;
   r.action = actionFrom(in);
   r.wildcard = wildcardFrom(in);
   r.source = in.u32() & ~r.wildcard;
   return r;
}

Rule6 rule6From(fuzz::Bytes& in, U32 seqno) {
   Rule6 r;
   r.seqno = seqno;
   r.action = actionFrom(in);
   const U64 hi = in.u64();
   const U64 lo = in.u64();
   r.source = Nx::IpGenPrefix(Nx::IpGenAddr(Nx::Ip6Addr(hi, lo)), in.below(129));
   return r;
}

// Addresses worth asking about: the rule's first and last, addresses from the input, and each of
// those with every single bit flipped (the boundaries of every block the rule is made of).
std::vector<U32> samples4(const std::vector<Rule4>& rules, fuzz::Bytes& in) {
   std::vector<U32> base;
   for (const Rule4& r : rules) {
      base.push_back(r.source);
      base.push_back(r.source | r.wildcard);
   }
   for (unsigned n = 0; n < 4; ++n) base.push_back(in.u32());
   std::vector<U32> out = base;
   for (U32 a : base) {
      for (unsigned bit = 0; bit < 32; ++bit) out.push_back(a ^ (U32{1} << bit));
   }
   return out;
}

// ---- one IPv4 rule through the converter --------------------------------------------------------

void checkIp4Rule(fuzz::Bytes& in) {
   const Rule4 r = rule4From(in, 10);
   const bool excludeMulticast = in.flag();
   const std::string subject = "rule " + r.text() + (excludeMulticast ? " without multicast" : "");
   const Acl::IpRuleConfig rule(r.action,
                                Acl::IpFilter(Nx::IpAddr(r.source), Nx::IpAddr(r.wildcard)));

   const int trailing = std::countr_one(r.wildcard);
   const U64 ranges = trailing == 32 ? 1 : U64{1} << (std::popcount(r.wildcard) - trailing);
   if (AclPrefix::AclToPrefix::rangeCount(Nx::IpAddr(r.wildcard)) != ranges) {
      fail(subject, "rangeCount says " +
                        std::to_string(AclPrefix::AclToPrefix::rangeCount(Nx::IpAddr(r.wildcard))) +
                        ", expected " + std::to_string(ranges));
   }

   AclPrefix::AclToPrefix converter;
   const bool converts = r.action != Acl::AclAction::remark;
   if (converts && ranges > AclPrefix::AclToPrefix::maxIntervals) {
      bool refused = false;
      try {
         converter.handleRule(rule, excludeMulticast);
      } catch (const Kel::RangeException&) {
         refused = true;
      }
      if (!refused) fail(subject, std::to_string(ranges) + " ranges were not refused");
      if (!converter.permittedPrefixes().empty()) fail(subject, "a refused rule left addresses");
      return;
   }
   converter.handleRule(rule, excludeMulticast);

   // Expected size: every address of the rule, less the multicast block when asked.
   const U64 all = converts ? U64{1} << std::popcount(r.wildcard) : 0;
   constexpr U32 kMcFirst = 0xe0000000u, kMcLast = 0xefffffffu;
   const bool mcCompatible = ((kMcFirst ^ r.source) & ~r.wildcard & 0xf0000000u) == 0;
   const U64 inMulticast = converts && excludeMulticast && mcCompatible
                               ? U64{1} << std::popcount(r.wildcard & 0x0fffffffu)
                               : 0;
   const U64 expected = all - inMulticast;
   const auto excluded = [&](U32 a) { return excludeMulticast && a >= kMcFirst && a <= kMcLast; };
   const auto member = [&](U32 a) { return converts && r.has(a) && !excluded(a); };

   // The interval set: each interval inside one block of the rule and outside what is excluded,
   // none overlapping (the set's own invariant), sizes adding up to the rule's.
   const unsigned blockBits = trailing == 32 ? 32 : static_cast<unsigned>(trailing);
   std::vector<std::pair<U32, U32>> intervals;
   U64 total = 0;
   for (const auto& iv : converter.permittedPrefixes()) {
      const U32 first = boost::icl::first(iv);
      const U32 last = boost::icl::last(iv);
      const bool oneBlock = blockBits == 32 || (first >> blockBits) == (last >> blockBits);
      if (first > last || !member(first) || !member(last) || !oneBlock ||
          (excludeMulticast && first < kMcFirst && last > kMcLast)) {
         fail(subject, "interval " + text4(first) + "-" + text4(last) + " holds other addresses");
      }
      intervals.emplace_back(first, last);
      total += U64{last} - first + 1;
   }
   if (total != expected) {
      fail(subject, "the interval set holds " + std::to_string(total) + " addresses, expected " +
                        std::to_string(expected));
   }
   if (!excludeMulticast && intervals.size() != (converts ? ranges : 0)) {
      fail(subject,
           std::to_string(intervals.size()) + " intervals, expected " + std::to_string(ranges));
   }

   // The prefix cut of each interval: the unique fewest prefixes, which the model finds by
   // descending the tree. A cut is the same shape for every block of a rule, so a wide rule is
   // compared on its first and last blocks and only counted on the rest.
   const auto cover = Nx::ipGenPrefixSetFactory();
   for (std::size_t i = 0; i < intervals.size(); ++i) {
      const auto [first, last] = intervals[i];
      const std::size_t before = cover->size();
      AclPrefix::AclToPrefix::ip4RangeToPrefixes(first, last, *cover);
      if (i >= 64 && i + 64 < intervals.size()) continue;
      std::vector<std::pair<U32, unsigned>> model;
      modelCover<U32, 32>(first, last, 0, 0, model);
      if (cover->size() - before != model.size()) {
         fail(subject, "range " + text4(first) + "-" + text4(last) + " cut into " +
                           std::to_string(cover->size() - before) + " prefixes, the fewest is " +
                           std::to_string(model.size()));
      }
      for (const auto& [a, len] : model) {
         if (!cover->prefixHas(Nx::IpGenPrefix(Nx::IpAddr(a), len))) {
            fail(subject, "range " + text4(first) + "-" + text4(last) + " lacks " + text4(a) + "/" +
                              std::to_string(len));
         }
      }
   }
   // Every prefix inside the rule, none overlapping the next, sizes adding up: exactly the
   // rule's addresses.
   U64 covered = 0;
   U64 nextFree = 0;
   std::vector<std::pair<U32, U32>> blocks;
   for (const Nx::IpGenPrefix& p : *cover) {
      const U32 a = p.address().v4().value();
      const U32 end = a | hostBits<U32, 32>(p.len());
      if (!converts || !r.covers(a, p.len()) || excluded(a) || excluded(end) ||
          (excludeMulticast && a < kMcFirst && end > kMcLast)) {
         fail(subject, "prefix " + p.toStrep() + " holds addresses the rule does not match");
      }
      if (a < nextFree) fail(subject, "prefix " + p.toStrep() + " overlaps the one before");
      nextFree = U64{end} + 1;
      covered += U64{end} - a + 1;
      blocks.emplace_back(a, end);
   }
   if (covered != expected) {
      fail(subject, "the prefixes hold " + std::to_string(covered) + " addresses, expected " +
                        std::to_string(expected));
   }

   const auto inCover = [&](U32 a) {
      auto it = std::upper_bound(blocks.begin(), blocks.end(), std::make_pair(a, ~U32{0}));
      return it != blocks.begin() && std::prev(it)->second >= a;
   };
   for (U32 a : samples4({r}, in)) {
      if (inCover(a) != member(a)) {
         fail(subject, "address " + text4(a) + (member(a) ? " is not covered" : " is covered"));
      }
   }
   if (converts && std::popcount(r.wildcard) <= 12) {
      // Every address of the rule: each subset of the wildcard bits over the source.
      U32 sub = 0;
      do {
         const U32 a = r.source | sub;
         if (inCover(a) != member(a)) {
            fail(subject, "address " + text4(a) + (member(a) ? " is not covered" : " is covered"));
         }
         sub = (sub - r.wildcard) & r.wildcard;
      } while (sub != 0);
   }
}

// ---- one IPv6 rule through the converter --------------------------------------------------------

void checkCut6(const std::string& subject, Ip6AddrExt first, Ip6AddrExt last,
               const Nx::IpGenPrefixSet& cut) {
   std::vector<Ip6Block> model;
   if (first <= last) modelCover<Ip6AddrExt, 128>(first, last, 0, 0, model);
   if (cut.size() != model.size()) {
      fail(subject, "range " + text6(first) + "-" + text6(last) + " cut into " +
                        std::to_string(cut.size()) + " prefixes, the fewest is " +
                        std::to_string(model.size()));
   }
   for (const auto& [a, len] : model) {
      const Nx::IpGenPrefix p(Nx::IpGenAddr(AclIp6Prefix::toIp6Addr(a)), len);
      if (!cut.prefixHas(p)) {
         fail(subject, "range " + text6(first) + "-" + text6(last) + " lacks " + p.toStrep());
      }
   }
}

void checkIp6Rule(fuzz::Bytes& in) {
   const Rule6 r = rule6From(in, 10);
   const bool excludeMulticast = in.flag();
   const std::string subject = "rule " + r.text() + (excludeMulticast ? " without multicast" : "");
   const bool converts = r.action != Acl::AclAction::remark;

   AclIp6Prefix::AclToIp6Prefix converter;
   converter.handleRule(Acl::Ip6RuleConfig(r.action, Acl::Ip6Filter(r.source)), excludeMulticast);

   // What the rule holds as one range, less ff00::/8 when asked: zero, one or (never for a
   // prefix) two ranges.
   const Ip6AddrExt first = ext(r.source);
   const Ip6AddrExt last = first | hostBits<Ip6AddrExt, 128>(r.source.len());
   constexpr Ip6AddrExt kMc = Ip6AddrExt{0xff} << 120;
   std::vector<std::pair<Ip6AddrExt, Ip6AddrExt>> expected;
   if (converts) {
      if (!excludeMulticast || last < kMc) {
         expected.emplace_back(first, last);
      } else if (first < kMc) {
         expected.emplace_back(first, kMc - 1);
      }
   }
   std::vector<std::pair<Ip6AddrExt, Ip6AddrExt>> got;
   for (const auto& iv : converter.permittedPrefixes()) {
      got.emplace_back(boost::icl::first(iv), boost::icl::last(iv));
   }
   if (got != expected) {
      std::string g;
      for (const auto& [a, b] : got) g += " " + text6(a) + "-" + text6(b);
      fail(subject, "interval set is" + (g.empty() ? std::string(" empty") : g));
   }
   for (const auto& [a, b] : got) {
      const auto cut = Nx::ipGenPrefixSetFactory();
      AclIp6Prefix::AclToIp6Prefix::ip6RangeToPrefixes(a, b, *cut);
      checkCut6(subject, a, b, *cut);
      if (!excludeMulticast && (cut->size() != 1 || *cut->begin() != r.source)) {
         fail(subject, "the prefix cut is not the rule's own prefix");
      }
   }

   // An arbitrary range, ends from the input in either order.
   const Ip6AddrExt x = static_cast<Ip6AddrExt>(in.u64()) << 64 | in.u64();
   const Ip6AddrExt y = static_cast<Ip6AddrExt>(in.u64()) << 64 | in.u64();
   const auto cut = Nx::ipGenPrefixSetFactory();
   AclIp6Prefix::AclToIp6Prefix::ip6RangeToPrefixes(x, y, *cut);
   checkCut6("range " + text6(x) + "-" + text6(y), x, y, *cut);
}

// ---- access lists compiled by the agent ---------------------------------------------------------

// The list as the agent compiles it. Sliced, the list's machine is first made with the list
// empty and given a zero quantum, so that the build proper takes one rule per slice and resumes
// from its bookmark every time, carrying mask rules across slices.
Kel::Ptr<Routing::RouteMap::IpAccessListStatus const> compile(const agent::AccessListDoc& list,
                                                              bool sliced) {
   agent::PolicyAgent policyAgent;
   agent::ConfigDocument doc;
   if (sliced) {
      agent::AccessListDoc empty = list;
      empty.ipRules.clear();
      empty.ip6Rules.clear();
      doc.accessLists.emplace(std::make_pair(list.ipv6, list.name), empty);
      policyAgent.apply(doc);
      const auto type =
          policyAgent.aclConfigSm()->ipConfigSm(list.ipv6 ? Acl::AclType::ipv6 : Acl::AclType::ip);
      const auto machine = type ? type->ipAccessListConfigSm(list.name) : nullptr;
      if (!machine) fail("access list " + list.name, "no machine follows the empty list");
      machine->clockQuantumIs(0);
      doc.accessLists.clear();
   }
   doc.accessLists.emplace(std::make_pair(list.ipv6, list.name), list);
   policyAgent.apply(doc);
   const auto symbol = policyAgent.aclConfigSm()->allIpAclSymbol()->symbol(list.name);
   if (!symbol || !symbol->status()) fail("access list " + list.name, "no status was published");
   return symbol->status();
}

std::string describe(const std::vector<Rule4>& rules) {
   std::string s;
   for (const Rule4& r : rules) s += "\n   " + r.text();
   return "access list" + s;
}

std::string describe(const std::vector<Rule6>& rules) {
   std::string s;
   for (const Rule6& r : rules) s += "\n   " + r.text();
   return "ipv6 access list" + s;
}

template <class Rule>
std::vector<Rule> rulesFrom(fuzz::Bytes& in, Rule (*make)(fuzz::Bytes&, U32)) {
   std::vector<Rule> rules;
   U32 seqno = 0;
   for (unsigned n = 1 + in.below(4); n > 0; --n) {
      seqno += 1 + in.below(20);
      rules.push_back(make(in, seqno));
   }
   return rules;
}

// The trie's entries by sequence number: prefix, admitted lengths, permit.
std::vector<Routing::RouteMap::GenPrefixEntry> entries(const Routing::PatriciaTrieWithNodeData& t) {
   std::vector<Routing::RouteMap::GenPrefixEntry> out;
   t.forEach([&](const Nx::IpGenPrefix&, const Routing::PrefixData& head) {
      for (const Routing::PrefixData* d = &head; d; d = d->next()) {
         out.push_back(static_cast<const Routing::RouteMap::PrefixListEntryData*>(d)->entry());
      }
   });
   return out;
}

void checkIp4List(fuzz::Bytes& in) {
   const bool sliced = in.flag();
   const std::vector<Rule4> rules = rulesFrom<Rule4>(in, rule4From);
   const std::string subject = describe(rules) + (sliced ? "\n(one rule per slice)" : "");
   agent::AccessListDoc list;
   list.name = "ACL";
   for (const Rule4& r : rules) {
      list.ipRules.emplace(
          r.seqno,
          Acl::IpRuleConfig(r.action, Acl::IpFilter(Nx::IpAddr(r.source), Nx::IpAddr(r.wildcard))));
   }
   const auto status = compile(list, sliced);

   // Each rule as trie entries (its own prefix cut) or as one mask rule, never both, never
   // neither; remarks as nothing.
   std::vector<Routing::RouteMap::GenPrefixEntry> want;
   std::vector<Routing::RouteMap::AclMaskRule> wantMasks;
   for (const Rule4& r : rules) {
      if (r.action == Acl::AclAction::remark) continue;
      const bool permit = r.action == Acl::AclAction::permit;
      if (AclPrefix::AclToPrefix::rangeCount(Nx::IpAddr(r.wildcard)) >
          IpAclConfigSm::maxTrieRangesPerRule) {
         wantMasks.push_back({r.seqno, r.source, r.wildcard, permit});
         continue;
      }
      // One block per subset of the wildcard bits above the trailing run.
      const int trailing = std::countr_one(r.wildcard);
      const U32 run = trailing == 32 ? ~U32{0} : (U32{1} << trailing) - 1;
      const U32 spread = r.wildcard & ~run;
      std::vector<std::pair<U32, unsigned>> blocks;
      U32 sub = 0;
      do {
         const U32 first = r.source | sub;
         modelCover<U32, 32>(first, first | run, 0, 0, blocks);
         sub = (sub - spread) & spread;
      } while (sub != 0);
      for (const auto& [a, len] : blocks) {
         want.push_back({r.seqno, Nx::IpGenPrefix(Nx::IpAddr(a), len), permit, len, 32, 0});
      }
   }
   std::vector<Routing::RouteMap::GenPrefixEntry> got =
       status->trie() ? entries(*status->trie()) : std::vector<Routing::RouteMap::GenPrefixEntry>{};
   const auto byKey = [](const auto& a, const auto& b) {
      return std::tie(a.seqno, a.prefix) < std::tie(b.seqno, b.prefix);
   };
   std::sort(want.begin(), want.end(), byKey);
   std::sort(got.begin(), got.end(), byKey);
   if (got != want) {
      std::string g;
      for (const auto& e : got) g += "\n   " + e.toStrep();
      fail(subject, std::to_string(got.size()) + " trie entries, expected " +
                        std::to_string(want.size()) + ":" + g);
   }
   if (status->maskRules() != wantMasks) {
      fail(subject, std::to_string(status->maskRules().size()) + " mask rules, expected " +
                        std::to_string(wantMasks.size()));
   }

   // First match over routes on and around the rules, against the matcher.
   std::vector<acl_model::Rule> model;
   for (const Rule4& r : rules) {
      if (r.action != Acl::AclAction::remark) {
         model.push_back({r.seqno, r.action == Acl::AclAction::permit, r.source, r.wildcard});
      }
   }
   const auto matcher = ipAccessListMatcherFactory("ACL", status);
   const std::vector<U32> addresses = samples4(rules, in);
   for (std::size_t i = 0; i < addresses.size(); ++i) {
      // Lengths from the input, and the full length and each rule's block length always.
      std::vector<unsigned> lens = {32, in.below(33)};
      for (const Rule4& r : rules) lens.push_back(32 - std::min(32, std::countr_one(r.wildcard)));
      for (unsigned len : lens) {
         const U32 a = addresses[i] & ~hostBits<U32, 32>(len);
         bool expected = false;
         for (const Rule4& r : rules) {
            if (r.action != Acl::AclAction::remark && r.covers(a, len)) {
               expected = r.action == Acl::AclAction::permit;
               break;
            }
         }
         if (len >= 24) {
            // The slow reference: every address of the prefix against every rule.
            const acl_model::Rule* m = acl_model::firstMatch(model, {a, len});
            if ((m && m->permit) != expected) fail(subject, "the two models disagree");
         }
         MatchInput_ route;
         route.prefixIs(Nx::IpGenPrefix(Nx::IpAddr(a), len));
         if (matcher->matchForTest(route, nullptr) != expected) {
            fail(subject, "route " + text4(a) + "/" + std::to_string(len) + " is " +
                              (expected ? "denied" : "permitted") + ", expected " +
                              (expected ? "permit" : "deny"));
         }
      }
   }
}

void checkIp6List(fuzz::Bytes& in) {
   const bool sliced = in.flag();
   const std::vector<Rule6> rules = rulesFrom<Rule6>(in, rule6From);
   const std::string subject = describe(rules) + (sliced ? "\n(one rule per slice)" : "");
   agent::AccessListDoc list;
   list.name = "ACL6";
   list.ipv6 = true;
   for (const Rule6& r : rules) {
      list.ip6Rules.emplace(r.seqno, Acl::Ip6RuleConfig(r.action, Acl::Ip6Filter(r.source)));
   }
   const auto status = compile(list, sliced);

   std::vector<Routing::RouteMap::GenPrefixEntry> want;
   for (const Rule6& r : rules) {
      if (r.action == Acl::AclAction::remark) continue;
      want.push_back(
          {r.seqno, r.source, r.action == Acl::AclAction::permit, r.source.len(), 128, 0});
   }
   std::vector<Routing::RouteMap::GenPrefixEntry> got =
       status->trie() ? entries(*status->trie()) : std::vector<Routing::RouteMap::GenPrefixEntry>{};
   const auto byKey = [](const auto& a, const auto& b) {
      return std::tie(a.seqno, a.prefix) < std::tie(b.seqno, b.prefix);
   };
   std::sort(got.begin(), got.end(), byKey);
   if (got != want)
      fail(subject,
           std::to_string(got.size()) + " trie entries, expected " + std::to_string(want.size()));
   if (!status->maskRules().empty()) fail(subject, "an IPv6 list has mask rules");

   const auto matcher = ipAccessListMatcherFactory("ACL6", status);
   std::vector<Nx::IpGenPrefix> routes;
   for (const Rule6& r : rules) {
      routes.push_back(r.source);
      const Nx::IpGenAddr a = r.source.address();
      const Ip6AddrExt e = ext(r.source);
      for (unsigned bit = 0; bit < 128; bit += 1 + in.below(16)) {
         const Ip6AddrExt flipped = e ^ (Ip6AddrExt{1} << bit);
         for (unsigned len : {128u, r.source.len(), static_cast<unsigned>(in.below(129))}) {
            routes.emplace_back(Nx::IpGenAddr(AclIp6Prefix::toIp6Addr(flipped)), len);
         }
      }
      routes.emplace_back(a, std::min(128u, r.source.len() + 1));
      if (r.source.len() > 0) routes.emplace_back(a, r.source.len() - 1);
   }
   for (const Nx::IpGenPrefix& p : routes) {
      bool expected = false;
      for (const Rule6& r : rules) {
         if (r.action != Acl::AclAction::remark && r.source.contains(p)) {
            expected = r.action == Acl::AclAction::permit;
            break;
         }
      }
      MatchInput_ route;
      route.prefixIs(p);
      if (matcher->matchForTest(route, nullptr) != expected) {
         fail(subject, "route " + p.toStrep() + " is " + (expected ? "denied" : "permitted") +
                           ", expected " + (expected ? "permit" : "deny"));
      }
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   fuzz::Bytes in(data, size);
   switch (in.below(4)) {
      case 0:
         checkIp4Rule(in);
         break;
      case 1:
         checkIp6Rule(in);
         break;
      case 2:
         checkIp4List(in);
         break;
      default:
         checkIp6List(in);
         break;
   }
   return 0;
}
