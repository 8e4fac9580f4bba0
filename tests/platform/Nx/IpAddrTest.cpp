#include "Nx/IpAddr.h"
#include "Nx/IpGenPrefix.h"
#include "Nx/IpGenPrefixSet.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Exception.h"

namespace {

// The hot path copies these by value and keeps them in flat arrays.
static_assert(std::is_trivially_copyable_v<Nx::IpAddr>);
static_assert(std::is_trivially_copyable_v<Nx::Ip6Addr>);
static_assert(std::is_trivially_copyable_v<Nx::IpGenAddr>);
static_assert(std::is_trivially_copyable_v<Nx::IpGenPrefix>);
static_assert(sizeof(Nx::IpGenAddr) == 24);
static_assert(sizeof(Nx::IpGenPrefix) == 24);

Nx::IpGenAddr addr(const std::string& text) {
   return Nx::IpGenAddr::fromStrep(text);
}
Nx::IpGenPrefix pfx(const std::string& text) {
   return Nx::IpGenPrefix::fromStrep(text);
}

// "a b" -> {a, b}; "a" -> {a, a}.
std::pair<std::string, std::string> split(const std::string& s) {
   const auto sp = s.find(' ');
   return sp == s.npos ? std::pair(s, s) : std::pair(s.substr(0, sp), s.substr(sp + 1));
}

// The message of the E that f throws.
template <class E, class F>
std::string errorOf(F&& f) {
   try {
      f();
   } catch (const E& e) {
      return e.what();
   }
   return "(nothing thrown)";
}

// "input canonical", or the canonical text alone. Upper case, leading zeros and the full form
// print the short way; of equal zero runs the leftmost is compressed, a longer run wins even
// when it comes second, a single zero group stays "0" wherever it is; an embedded IPv4 address
// fills the last two groups.
TEST(NxAddrTest, ParsesToCanonicalTextAndBack) {
   for (const char* c :
        {"0.10.100.255", "0:0:0:0:0:0:0:0 ::", "::1",
         "1::", "2001:0DB8:0000:0000:0000:0000:0000:0001 2001:db8::1",
         "2001:db8:0:0:1:0:0:1 2001:db8::1:0:0:1", "2001:0:0:1:0:0:0:1 2001:0:0:1::1",
         "2001:db8:0:1:1:1:1:1", "1:2:3:4:5:6:7:: 1:2:3:4:5:6:7:0",
         "::2:3:4:5:6:7:8 0:2:3:4:5:6:7:8", "::ffff:10.1.2.3 ::ffff:a01:203",
         "64:ff9b::192.0.2.33 64:ff9b::c000:221"}) {
      const auto [input, canonical] = split(c);
      const Nx::IpGenAddr a = addr(input);
      EXPECT_EQ(a.toStrep(), canonical) << input;
      EXPECT_EQ(addr(canonical), a) << input;
      // The family parsers agree with the generic one.
      EXPECT_EQ(a.isV4() ? Nx::IpGenAddr(Nx::IpAddr::fromStrep(input))
                         : Nx::IpGenAddr(Nx::Ip6Addr::fromStrep(input)),
                a)
          << input;
   }
}

// Text maps to host-order words, bit 0 being the most significant.
TEST(NxAddrTest, TextMapsToHostOrderWordsAndBits) {
   EXPECT_EQ(Nx::IpAddr::fromStrep("10.1.2.3"), Nx::IpAddr(0x0a010203u));
   EXPECT_EQ(Nx::IpAddr(10, 1, 2, 3), Nx::IpAddr(0x0a010203u));
   const auto a = Nx::Ip6Addr::fromStrep("2001:db8::7:8000:0:1");
   EXPECT_EQ(a, Nx::Ip6Addr(0x20010db800000000ull, 0x0007800000000001ull));
   EXPECT_EQ(a.group(5), 0x8000);
   // "address b": b is the only bit set.
   for (const char* c :
        {"128.0.0.0 0", "0.0.0.1 31", "8000:: 0", "0:0:0:1:: 63", "::8000:0:0:0 64", "::1 127"}) {
      const auto [text, bit] = split(c);
      const auto g = addr(text);
      for (unsigned i = 0; i < g.maxLen(); ++i) {
         EXPECT_EQ(g.bit(i), i == std::stoul(bit)) << c << ", bit " << i;
         EXPECT_EQ(g.isV4() ? g.v4().bit(i) : g.v6().bit(i), g.bit(i)) << c << ", bit " << i;
      }
   }
}

TEST(NxAddrTest, MalformedTextIsRefusedQuotingIt) {
   const auto expectRefused = [](const std::string& text) {
      const std::string error = errorOf<Kel::ParseException>([&] { addr(text); });
      EXPECT_TRUE(error.ends_with(", got '" + text + "'")) << error;
   };
   // 4294967297 wraps to 1 in 32 bits.
   for (const char* text :
        {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "4294967297.1.1.1", "1..2.3", "1.2.3.", " 1.2.3.4",
         "1.2.3.4x", "01.2.3.4", "1.2.3.+4", "1.2.3.4/32"}) {
      expectRefused(text);
   }
   for (const char* text : {":::", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1:2:3:4:5:6:7::8",
                            "1::2::3", ":1::", "1::2:", "12345::", "g::1", "fe80::1%eth0",
                            "::1.2.3", "::1.2.3.4:5", "1:2:3:4:5:6:7:1.2.3.4"}) {
      expectRefused(text);
   }
   EXPECT_THROW(Nx::IpAddr::fromStrep("::1"), Kel::ParseException);
   EXPECT_THROW(Nx::Ip6Addr::fromStrep("10.1.2.3"), Kel::ParseException);
}

// The zero addresses of both families are all-zero words; only the family tells them apart.
TEST(NxAddrTest, FamilyOrdersFirst) {
   EXPECT_EQ(Nx::IpGenAddr(), Nx::IpGenAddr(Nx::IpAddr()));
   EXPECT_NE(Nx::IpGenAddr(Nx::IpAddr()), Nx::IpGenAddr(Nx::Ip6Addr()));
   EXPECT_LT(addr("255.255.255.255"), addr("::"));
   EXPECT_LT(addr("9.255.255.255"), addr("10.0.0.0"));
   EXPECT_LT(addr("::ffff:ffff:ffff:ffff"), addr("0:0:0:1::"));
}

// Every length of both families, on the all-ones address: exactly the first len bits survive.
TEST(NxPrefixTest, MaskingKeepsExactlyTheFirstLenBits) {
   for (const char* ones : {"255.255.255.255", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}) {
      const auto a = Nx::IpGenAddr::fromStrep(ones);
      for (unsigned len = 0; len <= a.maxLen(); ++len) {
         const Nx::IpGenPrefix p(a, len);
         ASSERT_EQ(p.len(), len);
         for (unsigned i = 0; i < a.maxLen(); ++i) ASSERT_EQ(p.address().bit(i), i < len) << p;
      }
      EXPECT_EQ(Nx::IpGenPrefix(a), Nx::IpGenPrefix(a, a.maxLen()));  // the host prefix
   }
   EXPECT_EQ(Nx::IpGenPrefix(), pfx("0.0.0.0/0"));
}

// The suggestion is the masked network, printed: this pins masking and printing of both families.
TEST(NxPrefixTest, ParsingMasksAndExactParsingRefusesHostBits) {
   for (const char* c :
        {"10.1.2.3/8 10.0.0.0/8", "10.0.0.1/31 10.0.0.0/31", "2001:db8::1/32 2001:db8::/32",
         "2001:db8::8000:0:0:1/65 2001:db8:0:0:8000::/65"}) {
      const auto [text, network] = split(c);
      EXPECT_EQ(pfx(text), Nx::IpGenPrefix::fromStrepExact(network));
      EXPECT_EQ(pfx(text).toStrep(), network);
      EXPECT_EQ(errorOf<Kel::ParseException>([&, t = text] { Nx::IpGenPrefix::fromStrepExact(t); }),
                "host bits set in '" + text + "'; did you mean " + network + "?");
   }
   EXPECT_EQ(Nx::IpGenPrefix::fromStrepExact("2001:db8::1/128").toStrep(), "2001:db8::1/128");
}

// "outer inner" pairs. The zero networks of both families are all-zero words: only the family
// tells them apart.
TEST(NxPrefixTest, ContainsWithinOneFamilyOnly) {
   const auto check = [](const char* pair, bool expected) {
      const auto o = pfx(split(pair).first), i = pfx(split(pair).second);
      EXPECT_EQ(o.contains(i), expected) << pair;
      // An address is covered exactly when its host prefix is.
      if (i.len() == i.maxLen()) {
         EXPECT_EQ(o.contains(i.address()), expected) << pair;
      }
   };
   for (const char* pair :
        {"0.0.0.0/0 10.0.0.0/8", "10.0.0.0/8 10.0.0.0/8", "10.0.0.0/8 10.255.255.255/32",
         "10.0.0.0/31 10.0.0.1/32", "::/0 ::1/128", "2001:db8::/64 2001:db8::8000:0:0:0/65",
         "2001:db8::/63 2001:db8:0:1::/64", "2001:db8::/127 2001:db8::1/128"}) {
      check(pair, true);
   }
   for (const char* pair : {"10.0.0.0/8 10.0.0.0/7", "10.0.0.0/8 11.0.0.0/8",
                            "10.0.0.0/31 10.0.0.2/32", "2001:db8::/65 2001:db8::8000:0:0:0/65",
                            "2001:db8::/64 2001:db8:0:1::/64", "2001:db8::/127 2001:db8::2/128",
                            "0.0.0.0/0 ::/0", "::/0 10.0.0.1/32", "0.0.0.0/0 ::1/128"}) {
      check(pair, false);
   }
}

TEST(NxPrefixTest, MalformedTextAndLengthsBeyondTheFamilyAreRefused) {
   EXPECT_EQ(errorOf<Kel::RangeException>([] { Nx::IpGenPrefix(Nx::IpAddr(), 33); }),
             "prefix length 33 out of range for IPv4 (0..32)");
   EXPECT_EQ(errorOf<Kel::RangeException>([] { Nx::IpGenPrefix(Nx::Ip6Addr(), 129); }),
             "prefix length 129 out of range for IPv6 (0..128)");
   EXPECT_EQ(errorOf<Kel::ParseException>([] { pfx("10.0.0.0/33"); }),
             "prefix length 33 out of range for IPv4 (0..32) in '10.0.0.0/33'");
   EXPECT_EQ(errorOf<Kel::ParseException>([] { pfx("::/129"); }),
             "prefix length 129 out of range for IPv6 (0..128) in '::/129'");
   // 4294967304 wraps to 8 in 32 bits.
   for (const std::string text :
        {"10.0.0/8", "10.0.0.0", "10.0.0.0/", "/8", "10.0.0.0/+8", "10.0.0.0/08", "10.0.0.0/8/8",
         "10.0.0.0/ 8", "10.0.0.0/8 ", "10.0.0.0/4294967304", "2001:db8:::/32"}) {
      EXPECT_EQ(errorOf<Kel::ParseException>([&] { pfx(text); }),
                "expected an IPv4 or IPv6 prefix like 10.0.0.0/8, got '" + text + "'");
   }
}

// Family, then address, then length, so that a network comes before its subnets; equal networks
// spelled with host bits merge.
TEST(NxPrefixSetTest, OrdersByFamilyAddressLength) {
   const Kel::Ptr<Nx::IpGenPrefixSet> set = Nx::ipGenPrefixSetFactory();
   for (const char* t : {"2001:db8::/32", "10.1.0.0/16", "::/0", "10.0.0.0/16", "10.1.2.3/8",
                         "0.0.0.0/0", "10.0.0.0/8"}) {
      set->prefixIs(pfx(t));
   }
   std::vector<std::string> order;
   for (const auto& p : *set) order.push_back(p.toStrep());
   EXPECT_EQ(order, (std::vector<std::string>{"0.0.0.0/0", "10.0.0.0/8", "10.0.0.0/16",
                                              "10.1.0.0/16", "::/0", "2001:db8::/32"}));
}

}  // namespace
