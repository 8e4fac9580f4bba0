#include "Nx/IpGenPrefix.h"
#include "Nx/IpGenPrefixSet.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <unordered_set>
#include <vector>

#include "Kel/Exception.h"

namespace {

static_assert(std::is_trivially_copyable_v<Nx::IpGenPrefix>);
static_assert(sizeof(Nx::IpGenPrefix) == 24);

Nx::IpGenPrefix pfx(const char* text) {
   return Nx::IpGenPrefix::fromStrep(text);
}

struct MaskCase {
   const char* addr;
   unsigned len;
   const char* network;
};
void PrintTo(const MaskCase& c, std::ostream* os) {
   *os << c.addr << '/' << c.len;
}

class NxPrefixMaskTest : public testing::TestWithParam<MaskCase> {};

TEST_P(NxPrefixMaskTest, HostBitsAreClearedWhicheverWayItIsBuilt) {
   const auto& c = GetParam();
   const Nx::IpGenPrefix built(Nx::IpGenAddr::fromStrep(c.addr), c.len);
   EXPECT_EQ(built.toStrep(), c.network);
   EXPECT_EQ(built.len(), c.len);

   const Nx::IpGenPrefix canonical = Nx::IpGenPrefix::fromStrepExact(c.network);
   const Nx::IpGenPrefix parsed = pfx((std::string(c.addr) + '/' + std::to_string(c.len)).c_str());
   EXPECT_EQ(built, canonical);
   EXPECT_EQ(parsed, canonical);
   EXPECT_EQ(std::hash<Nx::IpGenPrefix>{}(parsed), std::hash<Nx::IpGenPrefix>{}(canonical));
   // Masking is idempotent: rebuilding from the network address changes nothing.
   EXPECT_EQ(Nx::IpGenPrefix(canonical.address(), c.len), canonical);
}

INSTANTIATE_TEST_SUITE_P(NxV4, NxPrefixMaskTest,
                         testing::Values(MaskCase{"255.255.255.255", 0, "0.0.0.0/0"},
                                         MaskCase{"255.255.255.255", 1, "128.0.0.0/1"},
                                         MaskCase{"255.255.255.255", 31, "255.255.255.254/31"},
                                         MaskCase{"255.255.255.255", 32, "255.255.255.255/32"},
                                         MaskCase{"10.1.2.3", 8, "10.0.0.0/8"},
                                         MaskCase{"10.1.2.3", 23, "10.1.2.0/23"}));
INSTANTIATE_TEST_SUITE_P(
    NxV6, NxPrefixMaskTest,
    testing::Values(
        MaskCase{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 0, "::/0"},
        MaskCase{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 1, "8000::/1"},
        MaskCase{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 63, "ffff:ffff:ffff:fffe::/63"},
        MaskCase{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 64, "ffff:ffff:ffff:ffff::/64"},
        MaskCase{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 65, "ffff:ffff:ffff:ffff:8000::/65"},
        MaskCase{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 127,
                 "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe/127"},
        MaskCase{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128,
                 "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128"},
        MaskCase{"2001:db8:1:2:3:4:5:6", 48, "2001:db8:1::/48"}));

struct ContainsCase {
   const char* outer;
   const char* inner;
   bool expected;
};
void PrintTo(const ContainsCase& c, std::ostream* os) {
   *os << c.outer << " > " << c.inner;
}

class NxPrefixContainsTest : public testing::TestWithParam<ContainsCase> {};

TEST_P(NxPrefixContainsTest, Covers) {
   const auto& c = GetParam();
   const auto outer = pfx(c.outer);
   const auto inner = pfx(c.inner);
   EXPECT_EQ(outer.contains(inner), c.expected);
   // An address is covered exactly when its host prefix is.
   if (inner.len() == inner.maxLen()) {
      EXPECT_EQ(outer.contains(inner.address()), c.expected);
   }
}

INSTANTIATE_TEST_SUITE_P(
    Nx, NxPrefixContainsTest,
    testing::Values(
        ContainsCase{"0.0.0.0/0", "10.0.0.0/8", true}, ContainsCase{"0.0.0.0/0", "0.0.0.0/0", true},
        ContainsCase{"10.0.0.0/8", "10.0.0.0/8", true},
        ContainsCase{"10.0.0.0/8", "10.0.0.0/7", false},
        ContainsCase{"10.0.0.0/8", "11.0.0.0/8", false},
        ContainsCase{"10.0.0.0/8", "10.255.255.255/32", true},
        ContainsCase{"10.0.0.0/8", "11.0.0.0/32", false},
        ContainsCase{"10.0.0.0/31", "10.0.0.1/32", true},
        ContainsCase{"10.0.0.0/31", "10.0.0.2/32", false},
        // Both zero networks are all-zero words; only the family tells them apart.
        ContainsCase{"0.0.0.0/0", "::/0", false}, ContainsCase{"::/0", "0.0.0.0/0", false},
        ContainsCase{"::/0", "10.0.0.1/32", false}, ContainsCase{"0.0.0.0/0", "::1/128", false},
        ContainsCase{"::/0", "::1/128", true},
        ContainsCase{"2001:db8::/32", "2001:db8:ffff::/48", true},
        ContainsCase{"2001:db8::/32", "2001:db9::/48", false},
        ContainsCase{"2001:db8::/64", "2001:db8::8000:0:0:0/65", true},
        ContainsCase{"2001:db8::/65", "2001:db8::8000:0:0:0/65", false},
        ContainsCase{"2001:db8::/63", "2001:db8:0:1::/64", true},
        ContainsCase{"2001:db8::/64", "2001:db8:0:1::/64", false},
        ContainsCase{"2001:db8::/127", "2001:db8::1/128", true},
        ContainsCase{"2001:db8::/127", "2001:db8::2/128", false}));

TEST(NxPrefixTest, HostPrefixIsFullLength) {
   const Nx::IpGenPrefix v4(Nx::IpGenAddr::fromStrep("10.1.2.3"));
   const Nx::IpGenPrefix v6(Nx::IpGenAddr::fromStrep("2001:db8::1"));
   EXPECT_EQ(v4.toStrep(), "10.1.2.3/32");
   EXPECT_EQ(v6.toStrep(), "2001:db8::1/128");
   EXPECT_EQ(v6, pfx("2001:db8::1/128"));
   EXPECT_TRUE(v4.contains(Nx::IpGenAddr::fromStrep("10.1.2.3")));
   EXPECT_FALSE(v4.contains(Nx::IpGenAddr::fromStrep("10.1.2.2")));
}

TEST(NxPrefixTest, DefaultIsTheWholeIpv4Space) {
   const Nx::IpGenPrefix p;
   EXPECT_EQ(p, pfx("0.0.0.0/0"));
   EXPECT_TRUE(p.contains(Nx::IpGenAddr::fromStrep("255.255.255.255")));
}

TEST(NxPrefixTest, LengthBeyondTheFamilyIsARangeError) {
   EXPECT_NO_THROW(Nx::IpGenPrefix(Nx::IpAddr(), 32));
   EXPECT_NO_THROW(Nx::IpGenPrefix(Nx::Ip6Addr(), 128));
   try {
      Nx::IpGenPrefix(Nx::IpAddr(), 33);
      FAIL() << "accepted /33";
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(), "prefix length 33 out of range for IPv4 (0..32)");
   }
   try {
      Nx::IpGenPrefix(Nx::Ip6Addr(), 129);
      FAIL() << "accepted /129";
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(), "prefix length 129 out of range for IPv6 (0..128)");
   }
}

struct BadPrefixCase {
   const char* text;
   const char* message;  // exact text, or nullptr when only the type matters
};
void PrintTo(const BadPrefixCase& c, std::ostream* os) {
   *os << c.text;
}

class NxMalformedPrefixTest : public testing::TestWithParam<BadPrefixCase> {};

TEST_P(NxMalformedPrefixTest, IsRefused) {
   const auto& c = GetParam();
   try {
      Nx::IpGenPrefix::fromStrep(c.text);
      FAIL() << "accepted '" << c.text << "'";
   } catch (const Kel::ParseException& e) {
      if (c.message) {
         EXPECT_STREQ(e.what(), c.message);
      } else {
         EXPECT_NE(std::string(e.what()).find(std::string("'") + c.text + "'"), std::string::npos)
             << e.what();
      }
   }
}

INSTANTIATE_TEST_SUITE_P(
    Nx, NxMalformedPrefixTest,
    testing::Values(
        BadPrefixCase{"10.0.0/8",
                      "expected an IPv4 or IPv6 prefix like 10.0.0.0/8, got '10.0.0/8'"},
        BadPrefixCase{"10.0.0.0/33",
                      "prefix length 33 out of range for IPv4 (0..32) in '10.0.0.0/33'"},
        BadPrefixCase{"::/129", "prefix length 129 out of range for IPv6 (0..128) in '::/129'"},
        BadPrefixCase{"10.0.0.0", nullptr}, BadPrefixCase{"10.0.0.0/", nullptr},
        BadPrefixCase{"/8", nullptr}, BadPrefixCase{"10.0.0.0/-1", nullptr},
        BadPrefixCase{"10.0.0.0/+8", nullptr}, BadPrefixCase{"10.0.0.0/08", nullptr},
        BadPrefixCase{"10.0.0.0/8/8", nullptr}, BadPrefixCase{"10.0.0.0/ 8", nullptr},
        BadPrefixCase{"10.0.0.0/8 ", nullptr}, BadPrefixCase{"10.0.0.0/1000", nullptr},
        BadPrefixCase{"2001:db8::/3x", nullptr}, BadPrefixCase{"2001:db8:::/32", nullptr}));

TEST(NxPrefixTest, ExactParseRefusesHostBitsAndSuggestsTheNetwork) {
   const std::pair<const char*, const char*> cases[] = {
       {"10.1.2.3/8", "host bits set in '10.1.2.3/8'; did you mean 10.0.0.0/8?"},
       {"2001:db8::1/32", "host bits set in '2001:db8::1/32'; did you mean 2001:db8::/32?"},
       {"10.0.0.1/31", "host bits set in '10.0.0.1/31'; did you mean 10.0.0.0/31?"},
   };
   for (const auto& [text, message] : cases) {
      try {
         Nx::IpGenPrefix::fromStrepExact(text);
         ADD_FAILURE() << "accepted " << text;
      } catch (const Kel::ParseException& e) {
         EXPECT_STREQ(e.what(), message);
      }
   }
   EXPECT_EQ(Nx::IpGenPrefix::fromStrepExact("10.1.2.3/32"), pfx("10.1.2.3/32"));
}

TEST(NxPrefixSetTest, OrdersByFamilyAddressLengthAndMergesEqualNetworks) {
   const Kel::Ptr<Nx::IpGenPrefixSet> set = Nx::ipGenPrefixSetFactory();
   EXPECT_EQ(set->refCount(), 1u);
   EXPECT_TRUE(set->empty());
   for (const char* t : {"2001:db8::/32", "10.1.0.0/16", "::/0", "10.0.0.0/16", "10.1.2.3/8",
                         "0.0.0.0/0", "10.0.0.0/8"}) {
      set->prefixIs(pfx(t));
   }
   std::vector<std::string> order;
   for (const auto& p : *set) order.push_back(p.toStrep());
   EXPECT_EQ(order, (std::vector<std::string>{"0.0.0.0/0", "10.0.0.0/8", "10.0.0.0/16",
                                              "10.1.0.0/16", "::/0", "2001:db8::/32"}));

   EXPECT_TRUE(set->prefixHas(pfx("10.9.9.9/8")));
   EXPECT_FALSE(set->prefixHas(pfx("10.0.0.0/9")));
   set->prefixDel(pfx("10.0.0.0/8"));
   EXPECT_FALSE(set->prefixHas(pfx("10.0.0.0/8")));
   EXPECT_TRUE(set->prefixHas(pfx("10.0.0.0/16")));
   EXPECT_EQ(set->size(), 5u);
   set->prefixDelAll();
   EXPECT_TRUE(set->empty());
}

TEST(NxPrefixSetTest, HashSetKeysOnTheNetwork) {
   const std::unordered_set<Nx::IpGenPrefix> set{pfx("10.0.0.0/8"), pfx("10.1.2.3/8"),
                                                 pfx("10.0.0.0/16"), pfx("0.0.0.0/0"), pfx("::/0")};
   EXPECT_EQ(set.size(), 4u);
   EXPECT_TRUE(set.contains(pfx("10.200.0.0/8")));
}

}  // namespace
