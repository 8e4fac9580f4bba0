#include "Nx/IntfId.h"

#include <gtest/gtest.h>

#include <string>

#include "Kel/Exception.h"

namespace {

TEST(NxIntfIdTest, TakesLettersDigitsAndSlashDotDashUnderscoreOnly) {
   for (const char* name : {"Ethernet1/1.100", "Port-Channel5", "mgmt_0"}) {
      EXPECT_EQ(Nx::IntfId::fromStrep(name).toStrep(), name);
   }
   for (const std::string text : {"Ethernet 1", "Ethernet1\n", "Eth:1", "Eth\xc3\xa9"}) {
      try {
         Nx::IntfId::fromStrep(text);
         ADD_FAILURE() << "accepted '" << text << "'";
      } catch (const Kel::ParseException& e) {
         EXPECT_TRUE(std::string(e.what()).ends_with(", got '" + text + "'")) << e.what();
      }
      EXPECT_THROW(Nx::IntfId{text}, Kel::RangeException);
   }
   // The constructor takes an empty name as no interface; the parser refuses it.
   EXPECT_THROW(Nx::IntfId::fromStrep(""), Kel::ParseException);
   EXPECT_EQ(Nx::IntfId(), Nx::IntfId(""));
}

TEST(NxIntfIdTest, ComparesByWholeNameCaseSensitively) {
   const Nx::IntfId e1("Ethernet1");
   EXPECT_NE(e1, Nx::IntfId("Ethernet10"));
   EXPECT_NE(e1, Nx::IntfId("ethernet1"));
   EXPECT_LT(e1, Nx::IntfId("Ethernet10"));
   EXPECT_LT(Nx::IntfId("Ethernet10"), Nx::IntfId("Ethernet2"));
}

}  // namespace
