#include "Toggle/Toggle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <ostream>
#include <string>

namespace {

constexpr const char* kVar = "RPOLICY_TOGGLES";
constexpr const char* kName = "IpAcl";

// Every test starts with no overrides and no variable, and leaves the process as it found it.
class ToggleTest : public ::testing::Test {
protected:
   void SetUp() override {
      if (const char* v = std::getenv(kVar)) saved_ = v;
      ::unsetenv(kVar);
      Toggle::toggleStateDelAll();
   }
   void TearDown() override {
      Toggle::toggleStateDelAll();
      if (saved_) {
         ::setenv(kVar, saved_->c_str(), 1);
      } else {
         ::unsetenv(kVar);
      }
   }
   static void setToggles(const char* value) { ::setenv(kVar, value, 1); }

private:
   std::optional<std::string> saved_;
};

TEST_F(ToggleTest, OverrideBeatsEnvironmentBeatsDefault) {
   EXPECT_TRUE(Toggle::getToggleState(kName, true));
   EXPECT_FALSE(Toggle::getToggleState(kName, false));

   setToggles("IpAcl=off");
   EXPECT_FALSE(Toggle::getToggleState(kName, true));

   Toggle::toggleStateIs(kName, true);
   EXPECT_TRUE(Toggle::getToggleState(kName, false));
   Toggle::toggleStateIs(kName, false);
   EXPECT_FALSE(Toggle::getToggleState(kName, true));
   Toggle::toggleStateIs(kName, true);

   Toggle::toggleStateDel(kName);
   EXPECT_FALSE(Toggle::getToggleState(kName, true));

   // No caching inside: a changed variable is seen by the next call.
   setToggles("IpAcl=on");
   EXPECT_TRUE(Toggle::getToggleState(kName, false));
   ::unsetenv(kVar);
   EXPECT_FALSE(Toggle::getToggleState(kName, false));
}

TEST_F(ToggleTest, OverridesAreClearedOneByOneOrAllTogether) {
   Toggle::toggleStateIs("A", true);
   Toggle::toggleStateIs("B", true);
   Toggle::toggleStateIs("C", true);

   Toggle::toggleStateDel("B");
   Toggle::toggleStateDel("NeverSet");
   EXPECT_TRUE(Toggle::getToggleState("A", false));
   EXPECT_FALSE(Toggle::getToggleState("B", false));
   EXPECT_TRUE(Toggle::getToggleState("C", false));

   Toggle::toggleStateDelAll();
   EXPECT_FALSE(Toggle::getToggleState("A", false));
   EXPECT_FALSE(Toggle::getToggleState("C", false));
}

TEST_F(ToggleTest, UnknownNamesFallBackToTheDefault) {
   setToggles("Other=on,IpAclV2=off");
   Toggle::toggleStateIs("Another", false);
   for (bool def : {false, true}) {
      EXPECT_EQ(Toggle::getToggleState(kName, def), def);
      EXPECT_EQ(Toggle::getToggleState("", def), def);
   }
}

TEST_F(ToggleTest, UnparseableValueWarnsOnceNamingToggleAndValue) {
   setToggles("IpAcl = maybe ");
   testing::internal::CaptureStderr();
   EXPECT_TRUE(Toggle::getToggleState(kName, true));
   EXPECT_EQ(testing::internal::GetCapturedStderr(),
             "RPOLICY_TOGGLES: ignoring unparseable value 'maybe' for toggle IpAcl\n");

   // Somebody else's typo is not this toggle's business.
   setToggles("Other=maybe,IpAcl=on");
   testing::internal::CaptureStderr();
   EXPECT_TRUE(Toggle::getToggleState(kName, false));
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

struct ParseCase {
   const char* env;
   std::optional<bool> state;  // nullopt: the variable says nothing usable about IpAcl
   bool warns;
};

void PrintTo(const ParseCase& c, std::ostream* os) {
   *os << '"' << c.env << '"';
}

class ToggleEnvParseTest : public ToggleTest, public ::testing::WithParamInterface<ParseCase> {};

TEST_P(ToggleEnvParseTest, ReadsTheStateOfOneToggle) {
   const ParseCase& c = GetParam();
   setToggles(c.env);
   testing::internal::CaptureStderr();
   // Both defaults, so that a parsed state equal to the default cannot pass by accident.
   for (bool def : {false, true}) {
      EXPECT_EQ(Toggle::getToggleState(kName, def), c.state.value_or(def)) << "default " << def;
   }
   const std::string err = testing::internal::GetCapturedStderr();
   EXPECT_EQ(!err.empty(), c.warns) << err;
}

INSTANTIATE_TEST_SUITE_P(
    ToggleEnv, ToggleEnvParseTest,
    ::testing::Values(
        ParseCase{"IpAcl=on", true, false}, ParseCase{"IpAcl=OFF", false, false},
        ParseCase{"IpAcl=True", true, false}, ParseCase{"IpAcl=fAlSe", false, false},
        ParseCase{"IpAcl=1", true, false}, ParseCase{"IpAcl=0", false, false},
        ParseCase{"  IpAcl = on  ", true, false}, ParseCase{"\tIpAcl=off\t", false, false},
        ParseCase{"Other=on,IpAcl=off", false, false},
        ParseCase{"IpAcl=off , Other=on", false, false}, ParseCase{",,IpAcl=on,", true, false},
        // Later entries win so that appending to an existing list overrides it.
        ParseCase{"IpAcl=on,IpAcl=off", false, false}, ParseCase{"IpAcl=off,IpAcl=on", true, false},
        ParseCase{"IpAcl=off,IpAcl=maybe", false, true},
        // Names match exactly: no prefix, suffix or case folding.
        ParseCase{"IpAclX=on", std::nullopt, false}, ParseCase{"XIpAcl=on", std::nullopt, false},
        ParseCase{"ipacl=on", std::nullopt, false}, ParseCase{"", std::nullopt, false},
        ParseCase{"IpAcl", std::nullopt, true}, ParseCase{"IpAcl=", std::nullopt, true},
        ParseCase{"IpAcl=yes", std::nullopt, true}, ParseCase{"IpAcl=on off", std::nullopt, true},
        ParseCase{"IpAcl=onn", std::nullopt, true}, ParseCase{"IpAcl=10", std::nullopt, true},
        ParseCase{"IpAcl=on=off", std::nullopt, true}));

}  // namespace
