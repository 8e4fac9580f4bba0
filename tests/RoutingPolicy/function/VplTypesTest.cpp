#include <gtest/gtest.h>

#include <string>

#include "Kel/Exception.h"
#include "RoutingPolicy/function/VplTypes.h"

namespace {

using namespace Vpl::Eval;

// Death-test messages are regular expressions; assertion texts are full of regex metacharacters.
std::string literal(const std::string& text) {
   std::string out;
   for (char c : text) {
      if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) out += '\\';
      out += c;
   }
   return out;
}

template <class F>
Kel::ParseException parseFailure(F&& parse) {
   try {
      parse();
   } catch (const Kel::ParseException& e) {
      return e;
   }
   ADD_FAILURE() << "parsed without error";
   return Kel::ParseException("");
}

TEST(PolicyVplEvalResultTest, TextFormRoundTripsAndBothFieldsCount) {
   const EvalResult returned{VplTrue, true};
   const std::string text = returned.toStrep();
   EXPECT_EQ(text,
             "Value('Vpl::Eval::EvalResult', ** {'retVal': VplTrue, 'returnToCaller': True})");
   EXPECT_EQ(EvalResult::fromStrep(text), returned);
   EXPECT_NE(returned, (EvalResult{VplTrue, false}));
   EXPECT_NE(returned, (EvalResult{VplFalse, true}));

   const std::pair<TriStateBoolValue, const char*> names[] = {
       {VplUnknown, "VplUnknown"}, {VplFalse, "VplFalse"}, {VplTrue, "VplTrue"}};
   for (const auto& [v, name] : names) {
      EXPECT_EQ(stringValue(v), name);
      EXPECT_EQ(EvalResult::fromStrep(EvalResult{v, false}.toStrep()).retVal, v) << name;
   }

   for (const char* bad : {"VplMaybe", "2", "'VplTrue'"}) {
      std::string t = text;
      t.replace(t.find("VplTrue"), 7, bad);
      EXPECT_EQ(parseFailure([&] { EvalResult::fromStrep(t); }).field(), "retVal") << bad;
   }
   try {
      stringValue(static_cast<TriStateBoolValue>(3));
      ADD_FAILURE();
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "TriStateBoolValue::value < TriStateBoolValue::min or > "
                   "TriStateBoolValue::max not allowed");
   }
}

using SetInsert = void (FunctionMetadata::*)(const Kel::String&);
struct NameSet {
   const char* name;
   SetInsert insert;
};
constexpr NameSet kSets[] = {
    {"attrsUsed", &FunctionMetadata::attrsUsedIs},
    {"v4PrefixListsUsed", &FunctionMetadata::v4PrefixListsUsedIs},
    {"v6PrefixListsUsed", &FunctionMetadata::v6PrefixListsUsedIs},
    {"aspathAccessListsUsed", &FunctionMetadata::aspathAccessListsUsedIs},
    {"commListsUsed", &FunctionMetadata::commListsUsedIs},
    {"extCommListsUsed", &FunctionMetadata::extCommListsUsedIs},
};

FunctionMetadata withOne(const NameSet& set, const Kel::String& name) {
   FunctionMetadata md;
   (md.*set.insert)(name);
   return md;
}

TEST(PolicyVplFunctionMetadataTest, UpdateWithMergesOnlyThePrefixLists) {
   FunctionMetadata md;
   md.attrsUsedIs("tag");
   md.v4PrefixListsUsedIs("SHARED");
   FunctionMetadata other;
   for (const NameSet& set : kSets) (other.*set.insert)("NEW");
   other.v4PrefixListsUsedIs("SHARED");

   md.updateWith(other);
   FunctionMetadata expected;
   expected.attrsUsedIs("tag");
   expected.v4PrefixListsUsedIs("SHARED");
   expected.v4PrefixListsUsedIs("NEW");
   expected.v6PrefixListsUsedIs("NEW");
   EXPECT_EQ(md, expected) << md.toStrep();
}

// Each set name must lead to its own set, and a name in any one set must make a difference.
TEST(PolicyVplFunctionMetadataTest, EverySetIsItsOwnFieldInEqualityAndAttrLog) {
   for (const NameSet& set : kSets) {
      const FunctionMetadata md = withOne(set, "x");
      EXPECT_EQ(md.toAttrLog(), std::string(set.name) + "=x\n");
      EXPECT_EQ(FunctionMetadata::fromAttrLog(md.toAttrLog()), md) << set.name;
      EXPECT_NE(md, FunctionMetadata{}) << set.name;
      for (const NameSet& other : kSets) {
         if (&other == &set) continue;
         EXPECT_NE(md, withOne(other, "x")) << set.name << " " << other.name;
      }
   }
}

TEST(PolicyVplFunctionMetadataTest, TextFormPrintsEverySetSorted) {
   FunctionMetadata md;
   md.attrsUsedIs("tag");
   md.attrsUsedIs("med");
   md.commListsUsedIs("it's");
   EXPECT_EQ(md.toStrep(),
             "Value('Vpl::Eval::FunctionMetadata', ** {'attrsUsed': ['med', 'tag'], "
             "'v4PrefixListsUsed': [], 'v6PrefixListsUsed': [], 'aspathAccessListsUsed': [], "
             "'commListsUsed': ['it\\'s'], 'extCommListsUsed': []})");
}

TEST(PolicyVplFunctionMetadataTest, AttrLogRoundTripsAnyName) {
   FunctionMetadata md;
   md.attrsUsedIs("");
   md.attrsUsedIs("med");
   md.v4PrefixListsUsedIs("a=b");
   md.v6PrefixListsUsedIs("two\nlines");
   md.aspathAccessListsUsedIs("back\\n");
   md.commListsUsedIs("trailing\\");
   md.extCommListsUsedIs("it's");
   const std::string log = md.toAttrLog();
   EXPECT_EQ(log,
             "attrsUsed=\nattrsUsed=med\nv4PrefixListsUsed=a=b\nv6PrefixListsUsed=two\\nlines\n"
             "aspathAccessListsUsed=back\\\\n\ncommListsUsed=trailing\\\\\n"
             "extCommListsUsed=it's\n");
   EXPECT_EQ(FunctionMetadata::fromAttrLog(log), md);
   EXPECT_EQ(FunctionMetadata::fromAttrLog("\ncommListsUsed=trailing\\\\\nattrsUsed=med"),
             FunctionMetadata::fromAttrLog("attrsUsed=med\ncommListsUsed=trailing\\\\\n"))
       << "lines in any order, blank lines and a missing last newline are accepted";
}

TEST(PolicyVplFunctionMetadataTest, AttrLogRefusesWhatItCannotRead) {
   struct Bad {
      const char* log;
      const char* field;
      const char* says;
   };
   const Bad cases[] = {
       {"attrsUsed=med\nattrsUsed", "", "line 2"},
       {"colours=red\n", "", "unknown set 'colours'"},
       {"attrsUsed=med\ncommListsUsed=a\\tb\n", "commListsUsed", "line 2"},
       {"extCommListsUsed=ends\\", "extCommListsUsed", "bad escape"},
   };
   for (const Bad& b : cases) {
      const auto e = parseFailure([&] { FunctionMetadata::fromAttrLog(b.log); });
      EXPECT_EQ(e.field(), b.field) << b.log;
      EXPECT_NE(std::string(e.what()).find(b.says), std::string::npos) << e.what();
   }
}

TEST(PolicyVplDeathTest, BaseOperationsAndConstructionFromTextStop) {
   const auto expr = expressionFactory();
   const auto fn = functionBaseFactory("F", {});
   EXPECT_DEATH(expr->eval(nullptr), literal("false && \"Can not call 'eval' in base class\""));
   EXPECT_DEATH(fn->eval(nullptr), literal("false && \"Can not call 'eval' in base class\""));
   EXPECT_DEATH(fn->compare(expr), literal("false && \"Can not call 'compare' in base class\""));
   EXPECT_DEATH(FunctionMetadata::fromStrep(FunctionMetadata{}.toStrep()),
                literal("!\"No String constructor for FunctionMetadata - has collection\""));
}

}  // namespace
