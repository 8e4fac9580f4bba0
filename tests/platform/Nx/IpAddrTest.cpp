#include "Nx/IpAddr.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <unordered_set>

#include "Kel/Exception.h"

namespace {

// The hot path copies these by value and keeps them in flat arrays.
static_assert(std::is_trivially_copyable_v<Nx::IpAddr>);
static_assert(std::is_trivially_copyable_v<Nx::Ip6Addr>);
static_assert(std::is_trivially_copyable_v<Nx::IpGenAddr>);
static_assert(sizeof(Nx::IpGenAddr) == 24);

struct TextCase {
   const char* input;
   const char* canonical;
};
void PrintTo(const TextCase& c, std::ostream* os) {
   *os << c.input;
}

class NxAddrTextTest : public testing::TestWithParam<TextCase> {};

TEST_P(NxAddrTextTest, ParsesToCanonicalAndBack) {
   const auto& c = GetParam();
   const Nx::IpGenAddr a = Nx::IpGenAddr::fromStrep(c.input);
   EXPECT_EQ(a.toStrep(), c.canonical);
   EXPECT_EQ(Nx::IpGenAddr::fromStrep(a.toStrep()), a);
   // The family parsers agree with the generic one.
   if (a.isV4()) {
      EXPECT_EQ(Nx::IpAddr::fromStrep(c.input), a.v4());
   } else {
      EXPECT_EQ(Nx::Ip6Addr::fromStrep(c.input), a.v6());
   }
}

INSTANTIATE_TEST_SUITE_P(
    Nx, NxAddrTextTest,
    testing::Values(TextCase{"0.0.0.0", "0.0.0.0"}, TextCase{"255.255.255.255", "255.255.255.255"},
                    TextCase{"10.1.2.3", "10.1.2.3"}, TextCase{"::", "::"},
                    TextCase{"0:0:0:0:0:0:0:0", "::"}, TextCase{"::1", "::1"},
                    TextCase{"1::", "1::"}, TextCase{"fe80::", "fe80::"},
                    // Upper case, leading zeros and the full form all print the short way.
                    TextCase{"2001:0DB8:0000:0000:0000:0000:0000:0001", "2001:db8::1"},
                    // Equal runs: the leftmost is compressed.
                    TextCase{"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
                    // The longer run wins even when it comes second.
                    TextCase{"2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},
                    // A single zero group stays a "0".
                    TextCase{"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
                    TextCase{"1:2:3:4:5:6:7::", "1:2:3:4:5:6:7:0"},
                    TextCase{"::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8"},
                    TextCase{"1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8"},
                    TextCase{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
                             "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
                    TextCase{"::ffff:10.1.2.3", "::ffff:a01:203"},
                    TextCase{"64:ff9b::192.0.2.33", "64:ff9b::c000:221"}));

TEST(NxAddrTest, TextMapsToHostOrderWords) {
   EXPECT_EQ(Nx::IpAddr::fromStrep("10.1.2.3").value(), 0x0a010203u);
   EXPECT_EQ(Nx::IpAddr::fromStrep("10.1.2.3"), Nx::IpAddr(10, 1, 2, 3));
   const auto a = Nx::Ip6Addr::fromStrep("2001:db8::7:8000:0:1");
   EXPECT_EQ(a.hi(), 0x20010db800000000ull);
   EXPECT_EQ(a.lo(), 0x0007800000000001ull);
   EXPECT_EQ(a.group(0), 0x2001);
   EXPECT_EQ(a.group(5), 0x8000);
}

class NxMalformedAddrTest : public testing::TestWithParam<const char*> {};

TEST_P(NxMalformedAddrTest, IsRefusedQuotingTheText) {
   const std::string text = GetParam();
   try {
      Nx::IpGenAddr::fromStrep(text);
      FAIL() << "accepted '" << text << "'";
   } catch (const Kel::ParseException& e) {
      EXPECT_NE(std::string(e.what()).find("got '" + text + "'"), std::string::npos) << e.what();
   }
}

INSTANTIATE_TEST_SUITE_P(NxV4, NxMalformedAddrTest,
                         testing::Values("", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.256",
                                         "1234.1.1.1", "1..2.3", ".1.2.3", "1.2.3.", " 1.2.3.4",
                                         "1.2.3.4 ", "x1.2.3.4", "1.2.3.4x", "01.2.3.4", "1.2.3.+4",
                                         "1.2.3.-4", "1.2.3.4/32"));
INSTANTIATE_TEST_SUITE_P(NxV6, NxMalformedAddrTest,
                         testing::Values(":", ":::", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9",
                                         "1:2:3:4:5:6:7::8", "1::2::3",
                                         ":1::", "1::2:", "::1:", "12345::", "g::1", "fe80::1%eth0",
                                         "::1.2.3", "1.2.3.4::", "::1.2.3.4:5",
                                         "1:2:3:4:5:6:7:1.2.3.4", "::ffff:1.2.3.256"));

TEST(NxAddrTest, FamilyParsersRefuseTheOtherFamily) {
   EXPECT_THROW(Nx::IpAddr::fromStrep("::1"), Kel::ParseException);
   EXPECT_THROW(Nx::Ip6Addr::fromStrep("10.1.2.3"), Kel::ParseException);
}

struct BitCase {
   const char* addr;
   unsigned setBit;  // the only bit set in addr
};
void PrintTo(const BitCase& c, std::ostream* os) {
   *os << c.addr;
}

class NxAddrBitTest : public testing::TestWithParam<BitCase> {};

TEST_P(NxAddrBitTest, OnlyTheExpectedBitIsSet) {
   const auto a = Nx::IpGenAddr::fromStrep(GetParam().addr);
   for (unsigned i = 0; i < a.maxLen(); ++i) {
      EXPECT_EQ(a.bit(i), i == GetParam().setBit) << "bit " << i;
      if (a.isV6()) {
         EXPECT_EQ(a.v6().bit(i), a.bit(i));
      }
      if (a.isV4()) {
         EXPECT_EQ(a.v4().bit(i), a.bit(i));
      }
   }
}

INSTANTIATE_TEST_SUITE_P(Nx, NxAddrBitTest,
                         testing::Values(BitCase{"128.0.0.0", 0}, BitCase{"0.0.0.1", 31},
                                         BitCase{"8000::", 0}, BitCase{"0:0:0:1::", 63},
                                         BitCase{"::8000:0:0:0", 64}, BitCase{"::1", 127}));

TEST(NxAddrTest, FamilyOrdersFirstAndKeepsZeroAddressesApart) {
   const Nx::IpGenAddr v4zero = Nx::IpAddr();
   const Nx::IpGenAddr v6zero = Nx::Ip6Addr();
   EXPECT_EQ(Nx::IpGenAddr(), v4zero);
   EXPECT_NE(v4zero, v6zero);
   EXPECT_LT(Nx::IpGenAddr::fromStrep("255.255.255.255"), v6zero);
   EXPECT_LT(Nx::IpGenAddr::fromStrep("9.255.255.255"), Nx::IpGenAddr::fromStrep("10.0.0.0"));
   EXPECT_LT(Nx::IpGenAddr::fromStrep("::ffff:ffff:ffff:ffff"),
             Nx::IpGenAddr::fromStrep("0:0:0:1::"));
   const std::unordered_set<Nx::IpGenAddr> set{v4zero, v6zero, Nx::IpGenAddr::fromStrep("0.0.0.0")};
   EXPECT_EQ(set.size(), 2u);
}

}  // namespace
