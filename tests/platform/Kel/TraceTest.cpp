#include "Kel/Trace.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

KEL_TRACE_HANDLE("KelTraceTest");

struct Machine {
   std::string name;
   friend std::ostream& operator<<(std::ostream& os, const Machine& m) {
      return os << "Machine(" << m.name << ")";
   }
};

class KelTraceTest : public ::testing::Test {
protected:
   void SetUp() override {
      Kel::Trace::sinkIs([this](std::string_view l) { lines.emplace_back(l); });
   }
   void TearDown() override {
      Kel::Trace::sinkIs({});
      Kel::Trace::levelAllIs(-1);
   }
   std::vector<std::string> lines;
   int built = 0;
   // Counts how often trace text is actually formed.
   int expensive() { return ++built; }
};

TEST_F(KelTraceTest, LineCarriesFileLineMachineAndText) {
   Kel::Trace::levelIs("KelTraceTest", 8);
   const Machine m{"RM1"};
   const unsigned line = __LINE__ + 1;
   KTRACE(8, m, "creating rmName:" << "RM1");
   ASSERT_EQ(lines.size(), 1u);
   EXPECT_EQ(lines[0], "TraceTest.cpp:" + std::to_string(line) + " Machine(RM1) creating rmName:RM1");
}

TEST_F(KelTraceTest, LevelsGateTracesAndTextIsNotBuiltWhenOff) {
   KTRACE(0, "m", "off by default " << expensive());
   Kel::Trace::levelIs("KelTraceTest", 5);
   KTRACE(5, "m", "five " << expensive());
   KTRACE(8, "m", "eight " << expensive());
   Kel::Trace::levelIs("KelTraceTest", 9);
   KTRACE(8, "m", "eight again " << expensive());
   EXPECT_EQ(lines.size(), 2u);
   EXPECT_EQ(built, 2);
}

TEST_F(KelTraceTest, ConfigureAppliesWildcardThenNamedItems) {
   EXPECT_TRUE(Kel::Trace::configure("*=3, KelTraceTest=7"));
   EXPECT_EQ(Kel::Trace::level("KelTraceTest"), 7);
   EXPECT_EQ(Kel::Trace::level("SomeOtherFile"), 3);
   // Bad items are reported but do not stop good ones.
   EXPECT_FALSE(Kel::Trace::configure("KelTraceTest=4,broken,Other=12,X=abc"));
   EXPECT_EQ(Kel::Trace::level("KelTraceTest"), 4);
   EXPECT_EQ(Kel::Trace::level("Other"), 3);
   // A handle made after the setting picks it up.
   Kel::Trace::levelIs("LateFile", 6);
   Kel::TraceHandle late("LateFile");
   EXPECT_TRUE(late.enabled(6));
   EXPECT_FALSE(late.enabled(7));
}

}  // namespace
