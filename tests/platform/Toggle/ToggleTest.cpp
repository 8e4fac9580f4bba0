#include "Toggle/Toggle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
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
      saved_ ? ::setenv(kVar, saved_->c_str(), 1) : ::unsetenv(kVar);
   }
   static void setToggles(const char* value) { ::setenv(kVar, value, 1); }
   static bool get(bool def) { return Toggle::getToggleState(kName, def); }

private:
   std::optional<std::string> saved_;
};

TEST_F(ToggleTest, OverrideBeatsEnvironmentBeatsDefault) {
   EXPECT_TRUE(get(true));
   EXPECT_FALSE(get(false));
   setToggles("IpAcl=off");
   EXPECT_FALSE(get(true));
   Toggle::toggleStateIs(kName, true);
   Toggle::toggleStateIs("Other", true);
   EXPECT_TRUE(get(false));
   Toggle::toggleStateDel(kName);
   EXPECT_FALSE(get(true));
   setToggles("IpAcl=on");  // no caching: a changed variable is seen by the next call
   EXPECT_TRUE(get(false));
   Toggle::toggleStateDelAll();
   EXPECT_FALSE(Toggle::getToggleState("Other", false));
}

TEST_F(ToggleTest, ReadsTheStateOfOneToggleFromTheList) {
   const struct {
      const char* env;
      std::optional<bool> state;  // nullopt: the variable says nothing usable about IpAcl
      bool warns;
   } cases[] = {
       // Values in any case, names and values trimmed, empty items skipped.
       {" \tIpAcl = OFF\t ", false, false},
       {",,Other=off,IpAcl=True,", true, false},
       {"IpAcl=fAlSe , Other=on", false, false},
       // The last parseable entry wins, so appending to an existing list overrides it.
       {"IpAcl=1,IpAcl=0", false, false},
       {"IpAcl=0,IpAcl=on", true, false},
       {"IpAcl=off,IpAcl=maybe", false, true},
       // Names match exactly: no prefix, suffix or case folding.
       {"IpAclX=on,XIpAcl=on,ipacl=on", std::nullopt, false},
       // Each entry alone is unparseable; one wrongly accepted would set the state.
       {"IpAcl,IpAcl=,IpAcl=yes,IpAcl=on off,IpAcl=onn,IpAcl=10,IpAcl=on=off", std::nullopt, true},
   };
   for (const auto& c : cases) {
      SCOPED_TRACE(c.env);
      setToggles(c.env);
      testing::internal::CaptureStderr();
      // Both defaults, so that a parsed state equal to the default cannot pass by accident.
      for (bool def : {false, true}) EXPECT_EQ(get(def), c.state.value_or(def)) << def;
      const std::string err = testing::internal::GetCapturedStderr();
      EXPECT_EQ(!err.empty(), c.warns) << err;
   }
   // A warning names the toggle and the trimmed value; only the looked-up toggle's entries are
   // examined, so somebody else's typo is not this toggle's business.
   setToggles("Other=maybe, IpAcl = maybe ");
   testing::internal::CaptureStderr();
   EXPECT_TRUE(get(true));
   EXPECT_EQ(testing::internal::GetCapturedStderr(),
             "RPOLICY_TOGGLES: ignoring unparseable value 'maybe' for toggle IpAcl\n");
}

}  // namespace
