#include "Acl/AclToPrefix.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Acl/AclToIp6Prefix.h"
#include "Kel/Exception.h"

namespace {

using AclIp6Prefix::Ip6AddrExt;
using Strings = std::vector<std::string>;

template <class T>
struct Block {
   T addr;
   unsigned len;
   bool operator==(const Block&) const = default;
};

template <class T, unsigned Bits>
T lastOf(const Block<T>& b) {
   return b.len == 0 ? static_cast<T>(~T{0}) : b.addr | ((T{1} << (Bits - b.len)) - 1);
}

// The cover found by descending the whole address tree: a node inside the range is taken whole,
// a node that straddles it is split. Slow, but obviously the set of maximal aligned blocks.
template <class T, unsigned Bits>
void treeCover(T first, T last, Block<T> node, std::vector<Block<T>>& out) {
   const T nodeLast = lastOf<T, Bits>(node);
   if (nodeLast < first || node.addr > last) return;
   if (first <= node.addr && nodeLast <= last) {
      out.push_back(node);
      return;
   }
   treeCover<T, Bits>(first, last, {node.addr, node.len + 1}, out);
   treeCover<T, Bits>(first, last, {node.addr | T{1} << (Bits - node.len - 1), node.len + 1}, out);
}

template <class T, unsigned Bits, class ToValue>
void expectMinimalCover(T first, T last, const Nx::IpGenPrefixSet& set, ToValue toValue,
                        const std::string& what) {
   std::vector<Block<T>> got;
   for (const auto& p : set) got.push_back({toValue(p), p.len()});
   // Prefixes in set order must tile the range: no gap, no overlap, nothing outside.
   ASSERT_FALSE(got.empty()) << what;
   EXPECT_TRUE(got.front().addr == first) << what;
   for (std::size_t i = 1; i < got.size(); ++i) {
      EXPECT_TRUE((got[i].addr == lastOf<T, Bits>(got[i - 1]) + 1)) << what << " at " << i;
   }
   EXPECT_TRUE((lastOf<T, Bits>(got.back()) == last)) << what;
   std::vector<Block<T>> want;
   treeCover<T, Bits>(first, last, {T{0}, 0}, want);
   EXPECT_TRUE(got == want) << what << ": " << got.size() << " prefixes, minimal is "
                            << want.size();
}

std::string text(U32 a) {
   return Nx::IpAddr(a).toStrep();
}
std::string text(Ip6AddrExt a) {
   return AclIp6Prefix::toIp6Addr(a).toStrep();
}

void expectIp4Cover(U32 first, U32 last) {
   auto set = Nx::ipGenPrefixSetFactory();
   AclPrefix::AclToPrefix::ip4RangeToPrefixes(first, last, *set);
   expectMinimalCover<U32, 32>(
       first, last, *set, [](const Nx::IpGenPrefix& p) { return p.address().v4().value(); },
       text(first) + ".." + text(last));
}

void expectIp6Cover(Ip6AddrExt first, Ip6AddrExt last) {
   auto set = Nx::ipGenPrefixSetFactory();
   AclIp6Prefix::AclToIp6Prefix::ip6RangeToPrefixes(first, last, *set);
   expectMinimalCover<Ip6AddrExt, 128>(
       first, last, *set,
       [](const Nx::IpGenPrefix& p) { return AclIp6Prefix::toIp6AddrExt(p.address().v6()); },
       text(first) + ".." + text(last));
}

TEST(AclRangeToPrefixTest, Ip4RandomRangesGetTheMinimalExactCover) {
   std::mt19937_64 rng(0x5eed);
   for (int i = 0; i < 3000; ++i) {
      U32 a = static_cast<U32>(rng());
      U32 b = static_cast<U32>(rng());
      if (i % 3 == 1) {
         b = a + static_cast<U32>(rng() % 5000);  // short ranges, wrapping allowed
      } else if (i % 3 == 2) {
         // Near-aligned blocks: the off-by-one cases at block boundaries.
         const unsigned k = static_cast<unsigned>(rng() % 33);
         const U32 host = k == 32 ? ~U32{0} : (U32{1} << k) - 1;
         a = (a & ~host) + static_cast<U32>(rng() % 3) - 1;
         b = (a | host) + static_cast<U32>(rng() % 3) - 1;
      }
      if (a > b) std::swap(a, b);
      expectIp4Cover(a, b);
   }
   const U32 top = ~U32{0};
   for (auto [a, b] : std::vector<std::pair<U32, U32>>{
            {0, top}, {0, 0}, {top, top}, {1, top}, {0, top - 1}, {top - 1, top}}) {
      expectIp4Cover(a, b);
   }
}

TEST(AclRangeToPrefixTest, Ip6RangesAtTheEdgesOfTheSpaceGetTheMinimalExactCover) {
   const Ip6AddrExt top = ~Ip6AddrExt{0};
   const Ip6AddrExt half = Ip6AddrExt{1} << 64;
   std::vector<Ip6AddrExt> points;
   std::mt19937_64 rng(0x6eed);
   for (Ip6AddrExt anchor : {Ip6AddrExt{0}, half, Ip6AddrExt{1} << 127, top}) {
      for (Ip6AddrExt d : {Ip6AddrExt{0}, Ip6AddrExt{1}, Ip6AddrExt{2}, Ip6AddrExt{rng() % 4096}}) {
         points.push_back(anchor + d);  // wraps past the top on purpose: lands near 0
         points.push_back(anchor - d);
      }
   }
   for (Ip6AddrExt a : points) {
      for (Ip6AddrExt b : points) {
         if (a <= b) expectIp6Cover(a, b);
      }
   }
}

TEST(AclRangeToPrefixTest, EmptyRangeAddsNothing) {
   auto set = Nx::ipGenPrefixSetFactory();
   AclPrefix::AclToPrefix::ip4RangeToPrefixes(5, 4, *set);
   AclIp6Prefix::AclToIp6Prefix::ip6RangeToPrefixes(5, 4, *set);
   EXPECT_TRUE(set->empty());
}

// Intervals as "first-last", space-separated, so that each case of the tables fits a line.
template <class Set>
std::string intervals(const Set& s) {
   std::string out;
   for (const auto& iv : s) {
      if (!out.empty()) out += ' ';
      out += text(boost::icl::first(iv)) + "-" + text(boost::icl::last(iv));
   }
   return out;
}

constexpr auto permit = Acl::AclAction::permit;
constexpr auto deny = Acl::AclAction::deny;

struct Ip4RuleCase {
   const char* name;
   Acl::AclAction action;
   const char* source;
   const char* wildcard;
   bool excludeMulticast;
   const char* want;
};
void PrintTo(const Ip4RuleCase& c, std::ostream* os) {
   *os << c.name;
}

class AclIp4RuleTest : public testing::TestWithParam<Ip4RuleCase> {};

TEST_P(AclIp4RuleTest, SourceMatchesTheseAddresses) {
   const auto& c = GetParam();
   AclPrefix::AclToPrefix conv;
   conv.handleRule(Acl::IpRuleConfig(c.action, Acl::IpFilter(Nx::IpAddr::fromStrep(c.source),
                                                             Nx::IpAddr::fromStrep(c.wildcard))),
                   c.excludeMulticast);
   EXPECT_EQ(intervals(conv.permittedPrefixes()), c.want);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(AclWildcards, AclIp4RuleTest, testing::Values(
   Ip4RuleCase{"host", permit, "10.1.2.3", "0.0.0.0", false, "10.1.2.3-10.1.2.3"},
   Ip4RuleCase{"dontCareSourceBits", permit, "10.0.0.7", "0.0.0.3", false, "10.0.0.4-10.0.0.7"},
   Ip4RuleCase{"holeAboveTrailingRun", permit, "10.0.0.0", "0.1.0.3", false,
               "10.0.0.0-10.0.0.3 10.1.0.0-10.1.0.3"},
   Ip4RuleCase{"topBitSpread", permit, "0.0.0.1", "128.0.0.0", false,
               "0.0.0.1-0.0.0.1 128.0.0.1-128.0.0.1"},
   Ip4RuleCase{"blockAtTop", permit, "255.255.255.0", "0.0.0.255", false,
               "255.255.255.0-255.255.255.255"},
   Ip4RuleCase{"any", permit, "0.0.0.0", "255.255.255.255", false, "0.0.0.0-255.255.255.255"},
   Ip4RuleCase{"anyWithoutMulticast", permit, "0.0.0.0", "255.255.255.255", true,
               "0.0.0.0-223.255.255.255 240.0.0.0-255.255.255.255"},
   Ip4RuleCase{"denyWithoutMulticast", deny, "224.0.0.0", "31.255.255.255", true,
               "240.0.0.0-255.255.255.255"},
   Ip4RuleCase{"remark", Acl::AclAction::remark, "0.0.0.0", "255.255.255.255", false, ""}),
   [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST(AclIp4ConverterTest, DefaultsAreRightOpenMulticastAndClosedUniverse) {
   AclPrefix::AclToPrefix conv;
   for (const auto* s : {&conv.permitMulticastPrefixes(), &conv.denyMulticastPrefixes()}) {
      ASSERT_EQ(s->iterative_size(), 1u);
      EXPECT_EQ(*s->begin(), AclPrefix::Ip4Interval::right_open(0xe0000000u, 0xf0000000u));
   }
   ASSERT_EQ(conv.universe().iterative_size(), 1u);
   EXPECT_EQ(*conv.universe().begin(), AclPrefix::Ip4Interval::closed(0, ~U32{0}));
}

TEST(AclIp4ConverterTest, ActionSelectsWhichMulticastSetIsRemoved) {
   AclPrefix::AclToPrefix conv;
   conv.denyMulticastPrefixesIs({});
   conv.handleRule(Acl::IpRuleConfig(deny, Acl::IpFilter::any()), true);
   EXPECT_EQ(intervals(conv.permittedPrefixes()), "0.0.0.0-255.255.255.255");
   conv.handleRule(Acl::IpRuleConfig(permit, Acl::IpFilter::any()), true);
   EXPECT_EQ(conv.permittedPrefixes().iterative_size(), 2u);
}

TEST(AclIp4ConverterTest, WildcardRangesAreCappedAndARefusedRuleLeavesNothing) {
   AclPrefix::AclToPrefix conv;
   conv.handleRule(Acl::IpRuleConfig(
                       permit, Acl::IpFilter(Nx::IpAddr(10, 0, 0, 1), Nx::IpAddr(0, 255, 255, 0))),
                   false);
   EXPECT_EQ(conv.permittedPrefixes().iterative_size(), AclPrefix::AclToPrefix::maxIntervals);
   try {
      conv.handleRule(Acl::IpRuleConfig(permit, Acl::IpFilter(Nx::IpAddr(10, 0, 0, 1),
                                                              Nx::IpAddr(1, 255, 255, 0))),
                      false);
      ADD_FAILURE() << "17 spread bits accepted";
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "AclToPrefix::handleRule wildcard 1.255.255.0 makes 131072 address ranges; at "
                   "most 65536 allowed");
   }
   EXPECT_TRUE(conv.permittedPrefixes().empty());
}

// What the access-list compiler does with a rule: each interval, by its first and last address,
// into prefixes. The top interval is closed, so reading it by upper() - 1 would lose 240.0.0.0/4.
TEST(AclIp4ConverterTest, IntervalsOfARuleBecomeItsPrefixes) {
   AclPrefix::AclToPrefix conv;
   conv.handleRule(Acl::IpRuleConfig(permit, Acl::IpFilter::any()), true);
   auto set = Nx::ipGenPrefixSetFactory();
   for (const auto& iv : conv.permittedPrefixes()) {
      conv.ip4RangeToPrefixes(boost::icl::first(iv), boost::icl::last(iv), *set);
   }
   Strings got;
   for (const auto& p : *set) got.push_back(p.toStrep());
   EXPECT_EQ(got, (Strings{"0.0.0.0/1", "128.0.0.0/2", "192.0.0.0/3", "240.0.0.0/4"}));
}

struct Ip6RuleCase {
   const char* name;
   const char* source;
   bool excludeMulticast;
   const char* want;
};
void PrintTo(const Ip6RuleCase& c, std::ostream* os) {
   *os << c.name;
}

class AclIp6RuleTest : public testing::TestWithParam<Ip6RuleCase> {};

TEST_P(AclIp6RuleTest, SourceMatchesTheseAddresses) {
   const auto& c = GetParam();
   AclIp6Prefix::AclToIp6Prefix conv;
   conv.handleRule(Acl::Ip6RuleConfig(permit, Acl::Ip6Filter(Nx::IpGenPrefix::fromStrep(c.source))),
                   c.excludeMulticast);
   EXPECT_EQ(intervals(conv.permittedPrefixes()), c.want);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(AclPrefixes, AclIp6RuleTest, testing::Values(
   Ip6RuleCase{"any", "::/0", false, "::-ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
   Ip6RuleCase{"prefix", "2001:db8::/32", false,
               "2001:db8::-2001:db8:ffff:ffff:ffff:ffff:ffff:ffff"},
   Ip6RuleCase{"topHost", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128", false,
               "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff-ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
   Ip6RuleCase{"anyWithoutMulticast", "::/0", true, "::-feff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}),
   [](const auto& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
