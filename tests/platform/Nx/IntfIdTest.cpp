#include "Nx/IntfId.h"

#include <gtest/gtest.h>

#include <string>
#include <unordered_set>

#include "Kel/Exception.h"

namespace {

class NxIntfIdValidTest : public testing::TestWithParam<const char*> {};

TEST_P(NxIntfIdValidTest, RoundTripsAndMatchesTheConstructedId) {
   const Nx::IntfId id = Nx::IntfId::fromStrep(GetParam());
   EXPECT_EQ(id.toStrep(), GetParam());
   EXPECT_EQ(id, Nx::IntfId(GetParam()));
   EXPECT_EQ(id.hash(), Kel::stringHash(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Nx, NxIntfIdValidTest,
                         testing::Values("Ethernet1", "Vlan10", "Ethernet1/1.100", "Port-Channel5",
                                         "mgmt_0", "1/1"));

class NxIntfIdInvalidTest : public testing::TestWithParam<const char*> {};

TEST_P(NxIntfIdInvalidTest, IsRefusedByParserAndConstructor) {
   const std::string text = GetParam();
   try {
      Nx::IntfId::fromStrep(text);
      FAIL() << "accepted '" << text << "'";
   } catch (const Kel::ParseException& e) {
      EXPECT_NE(std::string(e.what()).find("got '" + text + "'"), std::string::npos) << e.what();
   }
   if (!text.empty()) {
      EXPECT_THROW(Nx::IntfId{text}, Kel::RangeException);
   }
}

INSTANTIATE_TEST_SUITE_P(Nx, NxIntfIdInvalidTest,
                         testing::Values("", "Ethernet 1", " Ethernet1", "Ethernet1\n", "Eth:1",
                                         "Eth,1", "Eth\xc3\xa9"));

TEST(NxIntfIdTest, DefaultIsNoInterface) {
   const Nx::IntfId none;
   EXPECT_TRUE(none.empty());
   EXPECT_EQ(none, Nx::IntfId(""));
   EXPECT_NE(none, Nx::IntfId("Ethernet1"));
}

TEST(NxIntfIdTest, ComparesByNameNotByPrefixOrHash) {
   const Nx::IntfId e1("Ethernet1");
   EXPECT_NE(e1, Nx::IntfId("Ethernet10"));
   EXPECT_NE(e1, Nx::IntfId("ethernet1"));
   EXPECT_LT(e1, Nx::IntfId("Ethernet10"));
   EXPECT_LT(Nx::IntfId("Ethernet10"), Nx::IntfId("Ethernet2"));
   const std::unordered_set<Nx::IntfId> set{e1, Nx::IntfId("Vlan10"), Nx::IntfId("Ethernet1")};
   EXPECT_EQ(set.size(), 2u);
   EXPECT_TRUE(set.contains(Nx::IntfId::fromStrep("Vlan10")));
   EXPECT_FALSE(set.contains(Nx::IntfId("Vlan1")));
}

}  // namespace
