#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "agent/Clauses.h"
#include "agent/ConfigText.h"

namespace {

using namespace Routing::Policy::agent;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::MatchRule;
using Routing::RouteMap::PrefixListRule;
using Routing::RouteMap::Protocol;

constexpr auto v4 = Nx::AddressFamily::ipv4;
constexpr auto v6 = Nx::AddressFamily::ipv6;

std::vector<std::string> texts(const std::vector<Diagnostic>& ds) {
   std::vector<std::string> out;
   for (const auto& d : ds) out.push_back(d.text());
   return out;
}

Nx::IpGenPrefix pfx(const char* s) {
   return Nx::IpGenPrefix::fromStrepExact(s);
}
Nx::IpAddr ip(const char* s) {
   return Nx::IpAddr::fromStrep(s);
}

struct BadCase {
   const char* text;
   std::vector<std::string> errors;
};

const BadCase kBad[] = {
    {"ip prefix-list P seq 10 allow 10.0.0.0/8",
     {"t:1: error: expected 'permit' or 'deny', got 'allow'"}},
    {"ip prefix-list P seq 10 permit 10.1.2/33",
     {"t:1: error: expected a prefix A.B.C.D/L, got '10.1.2/33'"}},
    {"ip prefix-list P seq 10 permit 10.1.2.3/24",
     {"t:1: error: 10.1.2.3/24 has host bits set; expected 10.1.2.0/24"}},
    {"ip prefix-list P seq 10 permit 2001:db8::/32",
     {"t:1: error: expected a prefix A.B.C.D/L, got '2001:db8::/32'"}},
    {"ipv6 prefix-list P seq 10 permit 2001:db8::1/32",
     {"t:1: error: 2001:db8::1/32 has host bits set; expected 2001:db8::/32"}},
    {"ip prefix-list P seq 10 permit 10.0.0.0/8 le 33",
     {"t:1: error: le 33 must be at most 32 for IPv4"}},
    {"ip prefix-list P seq 10 permit 10.0.0.0/16 ge 8",
     {"t:1: error: ge 8 must be at least the prefix length 16 of 10.0.0.0/16"}},
    {"ip prefix-list P seq 10 permit 10.0.0.0/16 le 12",
     {"t:1: error: le 12 must be at least the prefix length 16 of 10.0.0.0/16"}},
    {"ip prefix-list P seq 10 permit 10.0.0.0/8 le 16 ge 24",
     {"t:1: error: le 16 must be at least ge 24"}},
    {"ip prefix-list P seq 10 permit 10.0.0.0/8 ge 16 ge 20", {"t:1: error: ge given twice"}},
    {"ip prefix-list P seq 10 permit 10.0.0.0/8 foo 3",
     {"t:1: error: expected 'ge' or 'le', got 'foo'"}},
    {"ip prefix-list P seq 10 permit 10.0.0.0/8\nip prefix-list P seq 10 deny 11.0.0.0/8",
     {"t:2: error: duplicate sequence 10 in prefix-list P"}},
    {"ip prefix-list P seq 0 permit 10.0.0.0/8",
     {"t:1: error: expected a sequence number 1-4294967295, got '0'"}},
    {"ip prefix-list P seq 4294967296 permit 10.0.0.0/8",
     {"t:1: error: expected a sequence number 1-4294967295, got '4294967296'"}},
    {"ip prefix-list P 10 permit 10.0.0.0/8", {"t:1: error: expected 'seq', got '10'"}},
    {"10 permit any", {"t:1: error: access-list rule outside an access-list block"}},
    {"ip access-list A\n 10 permit 10.1.2.3 0.0.0.255",
     {"t:2: error: 10.1.2.3 0.0.0.255 has bits set under the wildcard; expected 10.1.2.0 "
      "0.0.0.255"}},
    {"ip access-list A\n 10 permit 10.1.0.0/8",
     {"t:2: error: 10.1.0.0/8 has host bits set; expected 10.0.0.0/8"}},
    {"ip access-list A\n 10 permit host 2001:db8::1",
     {"t:2: error: expected an address A.B.C.D, got '2001:db8::1'"}},
    {"ip access-list A\n 10 permit 10.0.0.0",
     {"t:2: error: expected a wildcard mask A.B.C.D, got end of line"}},
    {"ipv6 access-list A\n 10 deny 10.0.0.0/8",
     {"t:2: error: expected a prefix X:X::X/L, got '10.0.0.0/8'"}},
    // Reopening a list adds to it, so its sequence numbers stay taken.
    {"ip access-list A\n 10 permit any\nip access-list A\n 10 deny any",
     {"t:4: error: duplicate sequence 10 in access-list A"}},
    {"ip access-list A\n 10 remark", {"t:2: error: expected the remark text, got end of line"}},
    {"ip access-list A\n 10 permit any\nipv6 access-list A\n 10 permit any",
     {"t:3: error: access-list A is already an ip access-list; access lists of both families "
      "share one name space"}},
    {"ip access-list A\n 10 permit any extra", {"t:2: error: unexpected 'extra' at end of line"}},
    {"match tag 5", {"t:1: error: 'match' outside a route-map block"}},
    // A broken header reports once; its body is not blamed for it.
    {"route-map RM allow 10\n match tag 5\n set tag 1",
     {"t:1: error: expected 'permit' or 'deny', got 'allow'"}},
    {"route-map RM permit 10\n match tag 5\n match tag 6",
     {"t:3: error: match tag given twice in route-map RM seq 10"}},
    {"route-map RM permit 10\n set tag 1\nroute-map RM deny 10\n set tag 2",
     {"t:4: error: set tag given twice in route-map RM seq 10"}},
    {"route-map RM permit 10\n continue 10",
     {"t:2: error: continue target 10 must be above the sequence number 10"}},
    {"route-map RM permit 10\n set distance 256",
     {"t:2: error: expected a distance 1-255, got '256'"}},
    {"route-map RM permit 10\n set distance 0", {"t:2: error: expected a distance 1-255, got '0'"}},
    {"route-map RM permit 10\n set metric 9223372036854775808",
     {"t:2: error: expected a metric 0-9223372036854775807, got '9223372036854775808'"}},
    {"route-map RM permit 10\n match tag -1",
     {"t:2: error: expected a tag 0-4294967295, got '-1'"}},
    {"route-map RM permit 10\n match source-protocol eigrp",
     {"t:2: error: expected a protocol (connected, bgp, ospf, isis, static, rip, ospf3, "
      "attached-host, dynamic, or 1-9), got 'eigrp'"}},
    {"route-map RM permit 10\n match interface Eth*1",
     {"t:2: error: expected an interface name of letters, digits, '/', '.', '-', '_' like "
      "Ethernet1, got 'Eth*1'"}},
    {"route-map RM permit 10\n match as-path X",
     {"t:2: error: expected 'ip', 'ipv6', 'tag', 'source-protocol', 'metric', 'interface' or "
      "'router-id', got 'as-path'"}},
    {"route-map RM permit 10\n match ip next-hop 300.1.1.1",
     {"t:2: error: expected 'prefix-list' or an address A.B.C.D, got '300.1.1.1'"}},
    {"route-map RM permit 10\n sub-route-map S invert",
     {"t:2: error: expected 'invert-result', got 'invert'"}},
    {"router bgp 65000", {"t:1: error: unknown command 'router bgp'"}},
    // Every bad line is reported, in order; a prefix list ends the route-map block above it.
    {"ip prefix-list P seq 10 permit 10.0.0.0/8\n"
     "route-map RM permit 10\n"
     "   set tag x\n"
     "   match tag 1\n"
     "   continue 5\n"
     "ip prefix-list P seq 10 deny 10.0.0.0/8\n"
     "   set tag 1\n"
     "route-map RM permit 20\n"
     "   set metric 5\n",
     {"t:3: error: expected a tag 0-4294967295, got 'x'",
      "t:5: error: continue target 5 must be above the sequence number 10",
      "t:6: error: duplicate sequence 10 in prefix-list P",
      "t:7: error: 'set' outside a route-map block"}},
};

TEST(ConfigTextTest, BadTextsReportExactErrors) {
   for (const BadCase& c : kBad) {
      SCOPED_TRACE(c.text);
      const ParseResult r = parseConfigText(c.text, "t");
      EXPECT_FALSE(r.ok());
      EXPECT_EQ(texts(r.errors), c.errors);
   }
}

const char* const kGood = R"(! every construct once
ip prefix-list PL seq 10 permit 10.0.0.0/8 ge 16 le 24
ip prefix-list PL seq 20 deny 0.0.0.0/0 le 32
ipv6 prefix-list PL seq 10 permit 2001:db8::/32 ge 48
# access lists
ip access-list ACL4
   10 remark branch   offices
   20 permit host 192.0.2.1
   30 deny 10.0.1.0 0.255.0.255
   40 permit 172.16.0.0/12
   50 deny any
ipv6 access-list ACL6
   10 permit host 2001:db8::1
   20 deny 2001:db8:1::/48
   30 permit any
route-map RM permit 10
   description first  line
   description second
   match router-id prefix-list RID
   match ip address prefix-list PL
   match ipv6 address prefix-list PL
   match ip address access-list ACL4
   match tag 7
   match source-protocol ospf
   match metric 100
   match interface Ethernet1/2
   match ip next-hop 192.0.2.254
   match ip next-hop prefix-list NH
   match ip resolved-next-hop prefix-list RNH
   set tag 99
   set distance 200
   set metric 5
   continue 30
   sub-route-map SUB invert-result
route-map RM deny 20
   continue
route-map SUB permit 10
   match source-protocol 5
   set tag 1

route-map RM permit 20
   description reopened
ip access-list ACL4
   60 permit any
)";

TEST(ConfigTextTest, GoodTextFillsTheDocument) {
   const ParseResult r = parseConfigText(kGood, "good.cfg");
   ASSERT_TRUE(r.ok()) << testing::PrintToString(texts(r.errors));
   const ConfigDocument& d = r.document;

   // The two lists named PL are separate, one per family, with the same sequence numbers.
   ASSERT_EQ(d.prefixLists.size(), 2u);
   const PrefixListDoc& pl4 = d.prefixLists.at({v4, "PL"});
   EXPECT_EQ(pl4.line, 2u);
   EXPECT_EQ(pl4.rules.at(10), PrefixListRule(10, true, pfx("10.0.0.0/8"), 16, 24));
   EXPECT_EQ(pl4.rules.at(20), PrefixListRule(20, false, pfx("0.0.0.0/0"), std::nullopt, 32));
   EXPECT_EQ(d.prefixLists.at({v6, "PL"}).rules.at(10),
             PrefixListRule(10, true, pfx("2001:db8::/32"), 48));

   const AccessListDoc& a4 = d.accessLists.at({false, "ACL4"});
   ASSERT_EQ(a4.ipRules.size(), 6u);  // the reopened list kept its rules and gained one
   EXPECT_EQ(a4.ipRules.at(10).action(), Acl::AclAction::remark);
   EXPECT_EQ(a4.ipRules.at(10).remark(), "branch   offices");
   EXPECT_EQ(a4.ipRules.at(20).filter(), Acl::IpFilter::host(ip("192.0.2.1")));
   EXPECT_EQ(a4.ipRules.at(30).filter().sourceWildcard(), ip("0.255.0.255"));
   EXPECT_EQ(a4.ipRules.at(30).action(), Acl::AclAction::deny);
   EXPECT_EQ(a4.ipRules.at(40).filter(), Acl::IpFilter::prefix(pfx("172.16.0.0/12")));
   EXPECT_EQ(a4.ipRules.at(60).filter(), Acl::IpFilter::any());
   const AccessListDoc& a6 = d.accessLists.at({true, "ACL6"});
   EXPECT_TRUE(a6.ipRules.empty());
   EXPECT_EQ(a6.ip6Rules.at(10).filter().source(), pfx("2001:db8::1/128"));
   EXPECT_EQ(a6.ip6Rules.at(20).filter().source(), pfx("2001:db8:1::/48"));
   EXPECT_EQ(a6.ip6Rules.at(30).filter().source(), pfx("::/0"));

   const RouteMapSeqDoc& s10 = d.routeMaps.at("RM").seqs.at(10);
   EXPECT_TRUE(s10.permit);
   EXPECT_EQ(s10.descriptions, (std::vector<std::string>{"first  line", "second"}));
   EXPECT_EQ(s10.matchRules.size(), 11u);
   EXPECT_EQ(s10.matchRules.at(MatchOption::matchIpv6AddressPrefixList),
             MatchRule::forList(MatchOption::matchIpv6AddressPrefixList, "PL"));
   EXPECT_EQ(s10.matchRules.at(MatchOption::matchSourceProtocol).protocol(), Protocol::ospf);
   EXPECT_EQ(s10.matchRules.at(MatchOption::matchInterface).intf().name(), "Ethernet1/2");
   EXPECT_EQ(s10.matchRules.at(MatchOption::matchIpNexthop).nexthop(),
             Nx::IpGenAddr(ip("192.0.2.254")));
   EXPECT_EQ(s10.matchRules.at(MatchOption::matchMetric).metric().value(), 100u);
   EXPECT_EQ(s10.tag, 99u);
   EXPECT_EQ(s10.distance, 200u);
   EXPECT_EQ(s10.metric, 5u);
   EXPECT_EQ(s10.continueSeq, 30u);
   EXPECT_EQ(s10.subRouteMap, "SUB");
   EXPECT_TRUE(s10.subRouteMapInvert);
   // Reopened with the other action: the action changes, the earlier clauses stay.
   const RouteMapSeqDoc& s20 = d.routeMaps.at("RM").seqs.at(20);
   EXPECT_TRUE(s20.permit);
   EXPECT_EQ(s20.continueSeq, 0u);
   EXPECT_EQ(s20.descriptions, std::vector<std::string>{"reopened"});
   EXPECT_EQ(s20.line, 41u);
   EXPECT_EQ(d.routeMaps.at("SUB").seqs.at(10).matchRules.at(MatchOption::matchSourceProtocol),
             MatchRule::forProtocol(Protocol::staticRoute));

   // The text alone warns about nothing: what is evaluated is the agent's profile's business.
   EXPECT_TRUE(r.warnings.empty());
   EXPECT_TRUE(unevaluatedClauses(d, Profile::full, "good.cfg").empty());
   // Under the common profile, each clause it leaves out is named at its own line.
   const std::string w = "good.cfg:";
   const std::string common = " is not evaluated under profile common";
   EXPECT_EQ(
       texts(unevaluatedClauses(d, Profile::common, "good.cfg")),
       (std::vector<std::string>{
           w + "19: warning: route-map RM seq 10: match router-id prefix-list" + common,
           w + "25: warning: route-map RM seq 10: match metric" + common,
           w + "26: warning: route-map RM seq 10: match interface" + common,
           w + "27: warning: route-map RM seq 10: match ip next-hop" + common,
           w + "28: warning: route-map RM seq 10: match ip next-hop prefix-list" + common,
           w + "29: warning: route-map RM seq 10: match ip resolved-next-hop prefix-list" + common,
           w + "32: warning: route-map RM seq 10: set metric" + common,
       }));
}

TEST(ConfigTextTest, PrintedTextIsCanonicalAndParsesBack) {
   const ParseResult r = parseConfigText(kGood, "good.cfg");
   ASSERT_TRUE(r.ok());
   const std::string text = configText(r.document);
   const ParseResult back = parseConfigText(text, "shown");
   ASSERT_TRUE(back.ok()) << text;
   EXPECT_TRUE(back.document == r.document) << text;
   EXPECT_EQ(configText(back.document), text);

   // Names, sequences and clauses come out in one order whatever order they were written in.
   const ParseResult small = parseConfigText(
       "route-map B permit 20\n set tag 4\n match tag 3\n continue\n description d\n"
       "route-map B deny 10\nroute-map A permit 5\n"
       "ipv6 prefix-list Z seq 1 deny ::/0\nip prefix-list Z seq 2 permit 1.0.0.0/8 le 9\n"
       "ip prefix-list Z seq 1 permit 2.0.0.0/8 ge 9\n"
       "ip access-list W\n 2 permit 10.0.0.0 0.0.0.255\n 1 deny 10.0.0.0 0.255.0.255\n",
       "s");
   ASSERT_TRUE(small.ok()) << testing::PrintToString(texts(small.errors));
   EXPECT_EQ(configText(small.document),
             "ip prefix-list Z seq 1 permit 2.0.0.0/8 ge 9\n"
             "ip prefix-list Z seq 2 permit 1.0.0.0/8 le 9\n"
             "ipv6 prefix-list Z seq 1 deny ::/0\n!\n"
             "ip access-list W\n   1 deny 10.0.0.0 0.255.0.255\n   2 permit 10.0.0.0/24\n!\n"
             "route-map A permit 5\n!\nroute-map B deny 10\n!\n"
             "route-map B permit 20\n   description d\n   match tag 3\n   set tag 4\n"
             "   continue\n!\n");
}

// Documents of every construct with values across their ranges, built directly so the printer
// sees values the hand-written texts do not reach (extreme numbers, every source form).
ConfigDocument randomDocument(std::mt19937_64& rng) {
   auto pick = [&rng](U64 n) { return static_cast<U32>(rng() % n); };
   auto seqno = [&] { return pick(4) == 0 ? 4294967295u - pick(3) : 1 + pick(100); };
   auto name = [&](const char* base) { return base + std::to_string(pick(3)); };
   auto address = [&](Nx::AddressFamily af) {
      return af == v4 ? Nx::IpGenAddr(Nx::IpAddr(static_cast<U32>(rng())))
                      : Nx::IpGenAddr(Nx::Ip6Addr(rng(), rng()));
   };
   auto prefix = [&](Nx::AddressFamily af) {
      const Nx::IpGenAddr a = address(af);
      return Nx::IpGenPrefix(a, pick(a.maxLen() + 1));
   };
   ConfigDocument doc;
   for (U32 n = pick(4); n > 0; --n) {
      const auto af = pick(2) ? v4 : v6;
      PrefixListDoc& l = doc.prefixLists[{af, name("PL")}];
      l.af = af;
      for (U32 r = 1 + pick(3); r > 0; --r) {
         const Nx::IpGenPrefix p = prefix(af);
         const U32 room = p.maxLen() - p.len() + 1;
         std::optional<U32> ge, le;
         if (pick(2)) ge = p.len() + pick(room);
         if (pick(2)) le = std::max(ge.value_or(p.len()), p.len() + pick(room));
         const U32 s = seqno();
         l.rules[s] = PrefixListRule(s, pick(2), p, ge, le);
      }
   }
   // The map key is the truth; align the stored name with it.
   for (auto& [key, l] : doc.prefixLists) l.name = key.second;
   for (U32 n = pick(4); n > 0; --n) {
      const bool ipv6 = pick(2);
      const std::string aclName = name("ACL");
      // One name space for both families.
      if (doc.accessLists.count({!ipv6, aclName})) continue;
      AccessListDoc& a = doc.accessLists[{ipv6, aclName}];
      a.ipv6 = ipv6;
      for (U32 r = pick(4); r > 0; --r) {
         const U32 s = seqno();
         const auto action = static_cast<Acl::AclAction>(pick(3));
         const std::string remark = action == Acl::AclAction::remark
                                        ? "note  " + std::to_string(rng()) + " !"
                                        : std::string();
         if (ipv6) {
            Acl::Ip6Filter f;
            if (action != Acl::AclAction::remark) f = Acl::Ip6Filter(prefix(v6));
            a.ip6Rules[s] = Acl::Ip6RuleConfig(action, f);
            a.ip6Rules[s].remarkIs(remark);
         } else {
            Acl::IpFilter f;
            if (action != Acl::AclAction::remark) {
               f = pick(2) ? Acl::IpFilter::prefix(prefix(v4))
                           : Acl::IpFilter(address(v4).v4(), Nx::IpAddr(static_cast<U32>(rng())));
            }
            a.ipRules[s] = Acl::IpRuleConfig(action, f);
            a.ipRules[s].remarkIs(remark);
         }
      }
   }
   for (auto& [key, a] : doc.accessLists) a.name = key.second;
   const MatchOption lists[] = {
       MatchOption::matchIpAddressAccessList, MatchOption::matchIpAddressPrefixList,
       MatchOption::matchIpNexthopPrefixList, MatchOption::matchIpResolvedNexthopPrefixList,
       MatchOption::matchRouterIdPrefixList,  MatchOption::matchIpv6AddressPrefixList};
   for (U32 n = pick(4); n > 0; --n) {
      RouteMapDoc& rm = doc.routeMaps[name("RM")];
      for (U32 k = 1 + pick(3); k > 0; --k) {  // text cannot hold a map without a sequence
         const U32 s = seqno();
         RouteMapSeqDoc& q = rm.seqs[s];
         q = RouteMapSeqDoc{};
         q.seqno = s;
         q.permit = pick(2);
         for (MatchOption o : lists) {
            if (pick(3) == 0) q.matchRules[o] = MatchRule::forList(o, name("L"));
         }
         auto maybe = [&](MatchOption o, MatchRule rule) {
            if (pick(3) == 0) q.matchRules[o] = rule;
         };
         maybe(MatchOption::matchTag, MatchRule::forTag(static_cast<U32>(rng())));
         maybe(MatchOption::matchSourceProtocol,
               MatchRule::forProtocol(static_cast<Protocol>(1 + pick(9))));
         maybe(MatchOption::matchMetric, MatchRule::forMetric(rng() >> 1));
         maybe(MatchOption::matchInterface, MatchRule::forInterface(Nx::IntfId(name("Eth1/"))));
         maybe(MatchOption::matchIpNexthop, MatchRule::forNexthop(address(v4)));
         if (pick(2)) q.tag = static_cast<U32>(rng());
         if (pick(2)) q.distance = 1 + pick(255);
         if (pick(2)) q.metric = rng() >> 1;
         if (pick(2))
            q.continueSeq = pick(2) || s == 4294967295u ? 0 : s + 1 + pick(4294967295u - s);
         if (pick(2)) {
            q.subRouteMap = name("RM");
            q.subRouteMapInvert = pick(2);
         }
         for (U32 i = pick(3); i > 0; --i) q.descriptions.push_back("says  " + name("x") + " #");
      }
   }
   for (auto& [key, rm] : doc.routeMaps) rm.name = key;
   return doc;
}

TEST(ConfigTextTest, RandomDocumentsRoundTrip) {
   std::mt19937_64 rng(20261121);
   for (int i = 0; i < 200; ++i) {
      const ConfigDocument doc = randomDocument(rng);
      const std::string text = configText(doc);
      const ParseResult r = parseConfigText(text, "gen");
      ASSERT_TRUE(r.ok()) << text << testing::PrintToString(texts(r.errors));
      ASSERT_TRUE(r.document == doc) << text;
   }
}

}  // namespace
