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

Nx::IpGenAddr addr(U32 a) {
   return Nx::IpAddr(a);
}
Nx::IpGenAddr addr(Ip6AddrExt a) {
   return AclIp6Prefix::toIp6Addr(a);
}

// The minimal cover found by descending the whole address tree: a node inside the range is taken
// whole, a node that straddles it is split. Slow, but obviously the maximal aligned blocks.
template <unsigned Bits, class T>
void treeCover(T first, T last, Strings& out, T node = 0, unsigned len = 0) {
   const T nodeLast = node | (len == 0 ? static_cast<T>(~T{0}) : (T{1} << (Bits - len)) - 1);
   if (nodeLast < first || node > last) return;
   if (first <= node && nodeLast <= last) {
      return out.push_back(Nx::IpGenPrefix(addr(node), len).toStrep());
   }
   treeCover<Bits>(first, last, out, node, len + 1);
   treeCover<Bits>(first, last, out, static_cast<T>(node | T{1} << (Bits - len - 1)), len + 1);
}

// Every pair of points near 0, the middle, the top, the half-width boundary, random block
// boundaries and random addresses: short and huge ranges, off-by-ones at block edges, ranges
// ending at the top, and empty ones (first > last).
template <unsigned Bits, class T>
void expectMinimalCovers(void (*convert)(T, T, Nx::IpGenPrefixSet&)) {
   std::mt19937_64 rng(Bits);
   const auto random = [&] {
      T r = static_cast<T>(rng());
      if constexpr (Bits > 64) r = r << 64 | rng();
      return r;
   };
   std::vector<T> anchors = {
       T{0}, T{1} << (Bits / 2), T{1} << (Bits - 1), static_cast<T>(~T{0}), random(), random()};
   for (int i = 0; i < 4; ++i)
      anchors.push_back(random() & ~((T{1} << (1 + rng() % (Bits - 1))) - 1));
   std::vector<T> points;
   for (T anchor : anchors) {
      for (T d : {T{0}, T{1}, T{2}, static_cast<T>(rng() % 4096)}) {
         points.push_back(anchor + d);  // wraps past the top on purpose: lands near 0
         points.push_back(anchor - d);
      }
   }
   for (T first : points) {
      for (T last : points) {
         auto set = Nx::ipGenPrefixSetFactory();
         convert(first, last, *set);
         Strings got, want;
         for (const auto& p : *set) got.push_back(p.toStrep());
         treeCover<Bits>(first, last, want);
         ASSERT_EQ(got, want) << addr(first) << ".." << addr(last);
      }
   }
}

TEST(AclRangeToPrefixTest, Ip4RangesGetTheMinimalExactCover) {
   expectMinimalCovers<32>(AclPrefix::AclToPrefix::ip4RangeToPrefixes);
}

TEST(AclRangeToPrefixTest, Ip6RangesGetTheMinimalExactCover) {
   expectMinimalCovers<128>(AclIp6Prefix::AclToIp6Prefix::ip6RangeToPrefixes);
}

// Intervals as "first-last", space-separated, so that each case of the tables fits a line.
template <class Set>
std::string intervals(const Set& s) {
   std::string out;
   for (const auto& iv : s) {
      if (!out.empty()) out += ' ';
      out += addr(boost::icl::first(iv)).toStrep() + "-" + addr(boost::icl::last(iv)).toStrep();
   }
   return out;
}

constexpr auto permit = Acl::AclAction::permit;
constexpr auto deny = Acl::AclAction::deny;

Acl::IpRuleConfig ipRule(Acl::AclAction action, const char* source, const char* wildcard) {
   return Acl::IpRuleConfig(
       action, Acl::IpFilter(Nx::IpAddr::fromStrep(source), Nx::IpAddr::fromStrep(wildcard)));
}

TEST(AclIp4ConverterTest, WildcardsMatchTheseAddresses) {
   const struct {
      Acl::AclAction action;
      const char* source;
      const char* wildcard;
      bool excludeMulticast;
      const char* want;
   } cases[] = {
       // clang-format off
       {permit, "10.1.2.3", "0.0.0.0", false, "10.1.2.3-10.1.2.3"},
       {permit, "10.0.0.7", "0.0.0.3", false, "10.0.0.4-10.0.0.7"},  // don't-care source bits
       {permit, "10.0.0.0", "0.1.0.3", false, "10.0.0.0-10.0.0.3 10.1.0.0-10.1.0.3"},
       {permit, "0.0.0.1", "128.0.0.0", false, "0.0.0.1-0.0.0.1 128.0.0.1-128.0.0.1"},
       {permit, "255.255.255.0", "0.0.0.255", false, "255.255.255.0-255.255.255.255"},
       {permit, "0.0.0.0", "255.255.255.255", false, "0.0.0.0-255.255.255.255"},
       {permit, "0.0.0.0", "255.255.255.255", true,
        "0.0.0.0-223.255.255.255 240.0.0.0-255.255.255.255"},
       {deny, "224.0.0.0", "31.255.255.255", true, "240.0.0.0-255.255.255.255"},
       {Acl::AclAction::remark, "0.0.0.0", "255.255.255.255", false, ""},
       // clang-format on
   };
   for (const auto& c : cases) {
      AclPrefix::AclToPrefix conv;
      conv.handleRule(ipRule(c.action, c.source, c.wildcard), c.excludeMulticast);
      EXPECT_EQ(intervals(conv.permittedPrefixes()), c.want) << c.source << " " << c.wildcard;
   }
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
   conv.handleRule(ipRule(permit, "10.0.0.1", "0.255.255.0"), false);
   EXPECT_EQ(conv.permittedPrefixes().iterative_size(), AclPrefix::AclToPrefix::maxIntervals);
   try {
      conv.handleRule(ipRule(permit, "10.0.0.1", "1.255.255.0"), false);
      ADD_FAILURE() << "17 spread bits accepted";
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "AclToPrefix::handleRule wildcard 1.255.255.0 makes 131072 address ranges; at "
                   "most 65536 allowed");
   }
   EXPECT_TRUE(conv.permittedPrefixes().empty());
}

// Callers decide from rangeCount whether to ask for the interval set at all, so it must count
// exactly the ranges handleRule makes, and keep counting past the cap without overflowing.
TEST(AclIp4ConverterTest, RangeCountIsTheNumberOfRangesARuleMakes) {
   const struct {
      const char* wildcard;
      U64 ranges;
   } cases[] = {
       {"0.0.0.0", 1},
       {"0.0.0.255", 1},
       {"255.255.255.255", 1},
       {"0.1.0.3", 2},
       {"128.0.0.0", 2},
       {"0.0.254.255", 128},
       {"0.255.0.0", 256},
       {"0.255.1.0", 512},
       {"0.255.255.0", 65536},
       {"1.255.255.0", 131072},
       {"255.255.255.254", U64{1} << 31},
       {"254.255.255.255", 128},
       {"127.255.255.255", 1},
   };
   for (const auto& c : cases) {
      const Nx::IpAddr w = Nx::IpAddr::fromStrep(c.wildcard);
      EXPECT_EQ(AclPrefix::AclToPrefix::rangeCount(w), c.ranges) << c.wildcard;
      if (c.ranges > AclPrefix::AclToPrefix::maxIntervals) continue;
      AclPrefix::AclToPrefix conv;
      conv.handleRule(ipRule(deny, "10.0.0.0", c.wildcard), false);
      EXPECT_EQ(conv.permittedPrefixes().iterative_size(), c.ranges) << c.wildcard;
   }
}

TEST(AclIp6ConverterTest, PrefixesMatchTheseAddresses) {
   const std::string top = "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff";
   const struct {
      const char* source;
      bool excludeMulticast;
      std::string want;
   } cases[] = {
       {"::/0", false, "::-" + top},
       {"2001:db8::/32", false, "2001:db8::-2001:db8:ffff:ffff:ffff:ffff:ffff:ffff"},
       {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128", false, top + "-" + top},
       {"::/0", true, "::-feff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
   };
   for (const auto& c : cases) {
      AclIp6Prefix::AclToIp6Prefix conv;
      conv.handleRule(
          Acl::Ip6RuleConfig(permit, Acl::Ip6Filter(Nx::IpGenPrefix::fromStrep(c.source))),
          c.excludeMulticast);
      EXPECT_EQ(intervals(conv.permittedPrefixes()), c.want) << c.source;
   }
}

}  // namespace
