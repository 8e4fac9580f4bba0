#include "Routing/RouteMap/Options.h"

#include <gtest/gtest.h>

namespace {

using namespace Routing::RouteMap;

TEST(RouteMapOptionsTest, EveryNamedOptionReadsBackFromItsName) {
   for (U32 v : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 113u, 115u, 116u}) {
      const auto o = static_cast<MatchOption>(v);
      const std::string name = stringValue(o);
      EXPECT_EQ(matchOptionFromString(name), o) << name;
   }
   for (U32 v : {0u, 3u, 9u, 10u}) {
      const auto o = static_cast<SetOption>(v);
      EXPECT_EQ(setOptionFromString(stringValue(o)), o) << v;
   }
   EXPECT_EQ(stringValue(RouteMapOpModeType::opModeAlternate), "opModeAlternate");
}

TEST(RouteMapOptionsTest, ValuesWithoutANamePrintAsNumbersThatAreNotNames) {
   EXPECT_EQ(stringValue(static_cast<MatchOption>(114)), "114");
   EXPECT_EQ(matchOptionFromString("114"), std::nullopt);
   EXPECT_EQ(stringValue(static_cast<SetOption>(4)), "4");
   EXPECT_EQ(setOptionFromString("setTag "), std::nullopt);
}

TEST(RouteMapOptionsTest, ProtocolIsReadByKeywordOrByNumberOneToNine) {
   for (U32 v = 1; v <= 9; ++v) {
      const auto p = static_cast<Protocol>(v);
      EXPECT_EQ(protocolFromString(stringValue(p)), p) << v;
      EXPECT_EQ(protocolFromString(std::to_string(v)), p) << v;
   }
   EXPECT_EQ(protocolFromString("static"), Protocol::staticRoute);
   EXPECT_EQ(protocolFromString("attached-host"), Protocol::attachedHost);
   for (const char* bad : {"0", "10", "invalid", "", "-1", "+1", "01x", "BGP"}) {
      EXPECT_EQ(protocolFromString(bad), std::nullopt) << bad;
   }
}

}  // namespace
