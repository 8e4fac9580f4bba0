#include "Termout/RendererV2.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

namespace {

using Termout::RendererV2;
using I64 = std::numeric_limits<std::int64_t>;
using F64 = std::numeric_limits<double>;

// Every item kind, keyed and unkeyed, in one document: containers that close must hand later keys
// back to their parent, keys stay in insertion order ("20" before "10", "all" after them),
// integers at their extremes must not pass through each other's type or through double, a whole
// double keeps its fraction, and NaN and infinity, which JSON cannot spell, become null.
TEST(TermoutRendererV2Test, CompactOutputIsExact) {
   RendererV2 r;
   r.startDict();
   r.startDict("20");
   r.addBool("matched", true);
   r.startList("sets");
   r.addString("lp 200");
   r.endList();
   r.endDict();
   r.startDict("10");
   r.addNull("reason");
   r.endDict();
   r.startList("all");
   r.addInt(I64::min());
   r.addUint(std::numeric_limits<U64>::max());
   r.addBool(false);
   r.addNull();
   r.addDouble(3.0);
   r.startDict();
   r.endDict();
   r.startList();
   r.endList();
   r.endList();
   r.addInt("max", I64::max());
   r.addUint("umax", std::numeric_limits<U64>::max());
   r.addDouble("tenth", 0.1);
   r.addDouble("nan", F64::quiet_NaN());
   r.addDouble("inf", -F64::infinity());
   r.addString("esc", "q\"b\\\n\x01");
   r.endDict();
   EXPECT_EQ(r.str(),
             R"({"20":{"matched":true,"sets":["lp 200"]},"10":{"reason":null},"all":[)"
             R"(-9223372036854775808,18446744073709551615,false,null,3.0,{},[]],)"
             R"("max":9223372036854775807,"umax":18446744073709551615,"tenth":0.1,"nan":null,)"
             R"("inf":null,"esc":"q\"b\\\n\u0001"})");
   // Both forms carry the same document.
   EXPECT_EQ(nlohmann::ordered_json::parse(r.str(true)).dump(), r.str());
}

TEST(TermoutRendererV2Test, PrettyOutputIndentsTwoSpacesPerLevel) {
   RendererV2 r;
   r.startList();
   r.startDict();
   r.addString("a", "x");
   r.startList("l");
   r.addInt(1);
   r.endList();
   r.endDict();
   r.startDict();
   r.endDict();
   r.endList();
   EXPECT_EQ(r.str(true), "[\n  {\n    \"a\": \"x\",\n    \"l\": [\n      1\n    ]\n  },\n  {}\n]");
}

// Each string is used as a key, a keyed value and a list item, since keys take their own path.
TEST(TermoutRendererV2Test, StringsRoundTripThroughAParser) {
   using namespace std::string_literals;
   for (const std::string& s :
        {""s, "say \"hi\" C:\\path\\ line1\nline2\r\n tab\t\b\f"s, "nul\0byte \x01\x1f\x7f </tag>"s,
         "caf\xc3\xa9 \xe2\x86\x92 \xf0\x9f\x98\x80"s}) {
      SCOPED_TRACE(nlohmann::json(s).dump());
      RendererV2 r;
      r.startDict();
      r.addString(s, s);
      r.startList("items");
      r.addString(s);
      r.endList();
      r.endDict();
      const auto parsed = nlohmann::json::parse(r.str());  // throws on invalid JSON
      ASSERT_EQ(parsed.size(), 2u);
      EXPECT_EQ(parsed.at(s), s);
      EXPECT_EQ(parsed.at("items").at(0), s);
   }
}

// Valid UTF-8 goes out raw, not as \u escapes; a bad or cut-off sequence becomes U+FFFD.
TEST(TermoutRendererV2Test, Utf8IsWrittenRawAndInvalidBytesAreReplaced) {
   RendererV2 r;
   r.startList();
   r.addString("caf\xc3\xa9 x\xffy z\xc3");
   r.endList();
   EXPECT_EQ(r.str(), "[\"caf\xc3\xa9 x\xef\xbf\xbdy z\xef\xbf\xbd\"]");
}

TEST(TermoutRendererV2DeathTest, MisuseStopsTheProcess) {
   using R = RendererV2;
   const struct {
      std::function<void(R&&)> misuse;
      const char* message;
   } cases[] = {
       {[](R&& r) { r.endDict(); }, "closing with nothing open"},
       {[](R&& r) { r.startDict(), r.endList(); }, "closing a different kind"},
       {[](R&& r) { r.startList(), r.addInt("k", 1); }, "a keyed item only goes into a dict"},
       {[](R&& r) { r.startDict(), r.addString("v"); },
        "an item without a key only goes into a list"},
       {[](R&& r) { r.addNull(); }, "a value needs an enclosing dict or list"},
       {[](R&& r) { r.startDict(), r.addInt("10", 1), r.startDict("10"); },
        "each key appears once"},
       {[](R&& r) { r.startDict(), r.endDict(), r.startList(); },
        "the document already has a root"},
       {[](R&& r) { r.startDict(), r.startDict("in"), r.endDict(), (void)r.str(); }, "closed root"},
       {[](R&& r) { (void)r.str(); }, "str\\(\\) needs a closed root"},
   };
   for (const auto& c : cases) {
      SCOPED_TRACE(c.message);
      EXPECT_DEATH(c.misuse(RendererV2()), c.message);
   }
}

}  // namespace
