#include "Termout/RendererV2.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using Termout::RendererV2;

struct ExactCase {
   const char* what;
   std::function<void(RendererV2&)> build;
   const char* compact;
};

const std::vector<ExactCase>& exactCases() {
   static const std::vector<ExactCase> cases = {
       {"empty root dict",
        [](RendererV2& r) {
           r.startDict();
           r.endDict();
        },
        "{}"},
       // After a nested container closes, later keys must land in the parent again.
       {"evaluation log",
        [](RendererV2& r) {
           r.startDict();
           r.addString("routeMap", "RM-IN");
           r.startDict("sequences");
           r.startDict("20");
           r.addString("action", "permit");
           r.addBool("matched", true);
           r.startList("sets");
           r.addString("local-preference 200");
           r.endList();
           r.endDict();
           r.startDict("10");
           r.addString("action", "deny");
           r.addBool("matched", false);
           r.addNull("reason");
           r.endDict();
           r.endDict();
           r.addInt("delta", -5);
           r.addUint("med", 4294967295u);
           r.addDouble("ratio", 0.25);
           r.endDict();
        },
        R"({"routeMap":"RM-IN","sequences":{"20":{"action":"permit","matched":true,)"
        R"("sets":["local-preference 200"]},"10":{"action":"deny","matched":false,)"
        R"("reason":null}},"delta":-5,"med":4294967295,"ratio":0.25})"},
       {"list root with every item kind",
        [](RendererV2& r) {
           r.startList();
           r.addInt(1);
           r.addString("a");
           r.startDict();
           r.addNull("k");
           r.endDict();
           r.startList();
           r.addBool(false);
           r.addNull();
           r.endList();
           r.startList();
           r.endList();
           r.startDict();
           r.endDict();
           r.addUint(7);
           r.addDouble(-2.5);
           r.endList();
        },
        R"([1,"a",{"k":null},[false,null],[],{},7,-2.5])"},
       // Signed and unsigned must not pass through each other or through double.
       {"integer extremes",
        [](RendererV2& r) {
           r.startDict();
           r.addInt("min", std::numeric_limits<std::int64_t>::min());
           r.addInt("max", std::numeric_limits<std::int64_t>::max());
           r.addUint("umax", std::numeric_limits<U64>::max());
           r.startList("inList");
           r.addInt(std::numeric_limits<std::int64_t>::min());
           r.addUint(std::numeric_limits<U64>::max());
           r.endList();
           r.endDict();
        },
        R"({"min":-9223372036854775808,"max":9223372036854775807,"umax":18446744073709551615,)"
        R"("inList":[-9223372036854775808,18446744073709551615]})"},
       // A whole double keeps its fraction so readers still see a float; NaN and infinity have
       // no JSON spelling and must not come out as "nan" or "inf".
       {"doubles",
        [](RendererV2& r) {
           r.startDict();
           r.addDouble("whole", 3.0);
           r.addDouble("tenth", 0.1);
           r.addDouble("tiny", 1e-300);
           r.addDouble("nan", std::numeric_limits<double>::quiet_NaN());
           r.addDouble("inf", -std::numeric_limits<double>::infinity());
           r.endDict();
        },
        R"({"whole":3.0,"tenth":0.1,"tiny":1e-300,"nan":null,"inf":null})"},
   };
   return cases;
}

TEST(TermoutRendererV2Test, CompactOutputIsExact) {
   for (const auto& c : exactCases()) {
      SCOPED_TRACE(c.what);
      RendererV2 r;
      c.build(r);
      EXPECT_EQ(r.str(), c.compact);
      // The compact text is the only form another program could compare byte for byte, but both
      // forms must carry the same document.
      EXPECT_EQ(nlohmann::ordered_json::parse(r.str(true)).dump(), c.compact);
   }
}

TEST(TermoutRendererV2Test, PrettyOutputIsExact) {
   RendererV2 r;
   r.startDict();
   r.addString("a", "x");
   r.startList("l");
   r.addInt(1);
   r.startDict();
   r.endDict();
   r.endList();
   r.startDict("e");
   r.addBool("on", true);
   r.endDict();
   r.endDict();
   EXPECT_EQ(r.str(true),
             "{\n"
             "  \"a\": \"x\",\n"
             "  \"l\": [\n"
             "    1,\n"
             "    {}\n"
             "  ],\n"
             "  \"e\": {\n"
             "    \"on\": true\n"
             "  }\n"
             "}");
}

TEST(TermoutRendererV2Test, KeysKeepInsertionOrder) {
   // Descending sequence numbers: both a sorted and a hashed key store would reorder these.
   std::vector<std::string> keys;
   for (int seq = 1000; seq >= 10; seq -= 10) keys.push_back(std::to_string(seq));
   keys.push_back("b");
   keys.push_back("a");

   RendererV2 r;
   r.startDict();
   for (const auto& k : keys) r.addString(k, k);
   r.endDict();

   const auto parsed = nlohmann::ordered_json::parse(r.str());
   std::vector<std::string> seen;
   for (const auto& item : parsed.items()) seen.push_back(item.key());
   EXPECT_EQ(seen, keys);
}

// Each string is used as a key, a keyed value and a list item, since keys go through their own
// path in the writer.
TEST(TermoutRendererV2Test, StringsRoundTripThroughAParser) {
   const std::vector<std::string> samples = {
       "",
       "say \"hi\"",
       "C:\\path\\",
       "line1\nline2\r\n",
       "tab\there\b\f",
       std::string("nul\0byte", 8),
       "\x01\x1f\x7f",
       "</tag>",
       "caf\xc3\xa9 \xe2\x86\x92 \xf0\x9f\x98\x80",
   };
   for (const auto& s : samples) {
      SCOPED_TRACE(nlohmann::json(s).dump());
      RendererV2 r;
      r.startDict();
      r.addString(s, s);
      r.startList("items");
      r.addString(s);
      r.endList();
      r.endDict();
      const std::string out = r.str();

      for (unsigned char c : out) EXPECT_GE(c, 0x20) << "raw control character in output";
      const auto parsed = nlohmann::json::parse(out);  // throws on invalid JSON
      ASSERT_EQ(parsed.size(), 2u);
      EXPECT_EQ(parsed.at(s), s);
      EXPECT_EQ(parsed.at("items").at(0), s);
   }
}

TEST(TermoutRendererV2Test, Utf8IsWrittenRawAndInvalidBytesAreReplaced) {
   RendererV2 r;
   r.startDict();
   r.addString("name", "caf\xc3\xa9");
   r.addString("bad", "x\xffy");
   r.addString("cut", "z\xc3");
   r.endDict();
   const std::string out = r.str();
   EXPECT_NE(out.find("caf\xc3\xa9"), std::string::npos) << out;

   const auto parsed = nlohmann::json::parse(out);
   EXPECT_EQ(parsed.at("bad"), "x\xef\xbf\xbdy");
   EXPECT_EQ(parsed.at("cut"), "z\xef\xbf\xbd");
}

struct MisuseCase {
   const char* what;
   std::function<void()> misuse;
   const char* message;
};

TEST(TermoutRendererV2DeathTest, MisuseStopsTheProcess) {
   const std::vector<MisuseCase> cases = {
       {"endDict with nothing open",
        [] {
           RendererV2 r;
           r.endDict();
        },
        "closing with nothing open"},
       {"endList closing a dict",
        [] {
           RendererV2 r;
           r.startDict();
           r.endList();
        },
        "closing a different kind"},
       {"keyed item in a list",
        [] {
           RendererV2 r;
           r.startList();
           r.addInt("k", 1);
        },
        "a keyed item only goes into a dict"},
       {"unkeyed item in a dict",
        [] {
           RendererV2 r;
           r.startDict();
           r.addString("v");
        },
        "an item without a key only goes into a list"},
       {"value without any container",
        [] {
           RendererV2 r;
           r.addNull();
        },
        "a value needs an enclosing dict or list"},
       {"duplicate key",
        [] {
           RendererV2 r;
           r.startDict();
           r.addInt("10", 1);
           r.startDict("10");
        },
        "each key appears once per dict"},
       {"second root",
        [] {
           RendererV2 r;
           r.startDict();
           r.endDict();
           r.startList();
        },
        "the document already has a root"},
       {"str with the root open",
        [] {
           RendererV2 r;
           r.startDict();
           r.startDict("inner");
           r.endDict();
           (void)r.str();
        },
        "str\\(\\) needs a closed root"},
       {"str on an empty renderer",
        [] {
           RendererV2 r;
           (void)r.str();
        },
        "str\\(\\) needs a closed root"},
   };
   for (const auto& c : cases) {
      SCOPED_TRACE(c.what);
      EXPECT_DEATH(c.misuse(), c.message);
   }
}

}  // namespace
