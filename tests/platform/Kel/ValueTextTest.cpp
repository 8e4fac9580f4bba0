#include "Kel/ValueText.h"

#include <gtest/gtest.h>

#include "Orb/MaybeU63.h"

namespace {

// A value type with the usual shape: nested value, string with awkward characters, optional.
struct Sample {
   bool flag = false;
   U32 count = 0;
   std::string label;
   Orb::MaybeU63 metric;

   bool operator==(const Sample&) const = default;

   std::string toStrep() const {
      return Kel::ValueWriter("Test::Sample")
          .field("flag", flag)
          .field("count", count)
          .field("label", label)
          .field("metric", metric)
          .str();
   }
   static Sample fromStrep(std::string_view s) {
      Kel::ValueReader r(s, "Test::Sample");
      Sample v;
      v.flag = r.field<bool>("flag");
      v.count = r.field<U32>("count");
      v.label = r.field<std::string>("label");
      v.metric = r.field<Orb::MaybeU63>("metric");
      r.finish();
      return v;
   }
};

struct Outer {
   Sample inner;
   U8 level = 0;
   bool operator==(const Outer&) const = default;
   std::string toStrep() const {
      return Kel::ValueWriter("Test::Outer").field("inner", inner).field("level", level).str();
   }
   static Outer fromStrep(std::string_view s) {
      Kel::ValueReader r(s, "Test::Outer");
      Outer o;
      o.inner = r.field<Sample>("inner");
      o.level = r.field<U8>("level");
      r.finish();
      return o;
   }
};

TEST(KelValueTextTest, WritesTheCanonicalForm) {
   Sample s{true, 42, "it's {a}, b\\c", Orb::MaybeU63(7)};
   EXPECT_EQ(s.toStrep(),
             "Value('Test::Sample', ** {'flag': True, 'count': 42, "
             "'label': 'it\\'s {a}, b\\\\c', 'metric': 7})");
   EXPECT_EQ(Sample{}.toStrep(),
             "Value('Test::Sample', ** {'flag': False, 'count': 0, 'label': '', "
             "'metric': None})");
}

TEST(KelValueTextTest, RoundTripsNestedValuesWithDelimitersInStrings) {
   const Outer values[] = {
       {},
       {{true, 4294967295u, "x", Orb::MaybeU63(0)}, 255},
       {{false, 1, "', 'count': 9})", Orb::MaybeU63(Orb::MaybeU63::max)}, 3},
   };
   for (const Outer& v : values) {
      const std::string text = v.toStrep();
      EXPECT_EQ(Outer::fromStrep(text), v) << text;
   }
}

struct BadCase {
   const char* text;
   const char* field;  // field the error must name; "" for a header or trailer error
};

TEST(KelValueTextTest, ParseErrorsNameTheFieldThatFailed) {
   const BadCase cases[] = {
       {"Value('Test::Sample', ** {'flag': Yes, 'count': 1, 'label': '', 'metric': None})",
        "flag"},
       {"Value('Test::Sample', ** {'flag': True, 'count': -1, 'label': '', 'metric': None})",
        "count"},
       {"Value('Test::Sample', ** {'flag': True, 'count': 4294967296, 'label': '', "
        "'metric': None})",
        "count"},
       {"Value('Test::Sample', ** {'flag': True, 'count': 1, 'label': abc, 'metric': None})",
        "label"},
       {"Value('Test::Sample', ** {'flag': True, 'label': '', 'count': 1, 'metric': None})",
        "count"},  // fields out of order
       {"Value('Test::Sample', ** {'flag': True, 'count': 1, 'label': ''})", "metric"},
       {"Value('Test::Sample', ** {'flag': True, 'count': 1, 'label': '', "
        "'metric': 9223372036854775808})",
        "metric"},
       {"Value('Test::Other', ** {'flag': True})", ""},
       {"Value('Test::Sample', ** {'flag': True, 'count': 1, 'label': '', 'metric': None, "
        "'extra': 1})",
        ""},
   };
   for (const auto& c : cases) {
      try {
         Sample::fromStrep(c.text);
         ADD_FAILURE() << "accepted: " << c.text;
      } catch (const Kel::ParseException& e) {
         EXPECT_EQ(e.field(), c.field) << c.text << " -> " << e.what();
         if (*c.field != '\0') {
            EXPECT_NE(std::string(e.what()).find(std::string("'") + c.field + "'"),
                      std::string::npos)
                << e.what();
         }
      }
   }
}

TEST(KelValueTextTest, NestedFieldErrorIsReportedOnTheOuterField) {
   try {
      Outer::fromStrep(
          "Value('Test::Outer', ** {'inner': Value('Test::Sample', ** {'flag': Maybe, "
          "'count': 1, 'label': '', 'metric': None}), 'level': 1})");
      FAIL() << "accepted";
   } catch (const Kel::ParseException& e) {
      EXPECT_EQ(e.field(), "inner");
      EXPECT_NE(std::string(e.what()).find("'flag'"), std::string::npos) << e.what();
   }
}

TEST(OrbMaybeU63Test, AbsentEqualsOnlyAbsent) {
   EXPECT_EQ(Orb::MaybeU63(), Orb::MaybeU63());
   EXPECT_NE(Orb::MaybeU63(), Orb::MaybeU63(0));
   EXPECT_EQ(Orb::MaybeU63(0), Orb::MaybeU63(0));
   EXPECT_THROW(Orb::MaybeU63(Orb::MaybeU63::max + 1), Kel::RangeException);
   Orb::MaybeU63 m(5);
   m.valueDel();
   EXPECT_EQ(m, Orb::MaybeU63());
}

}  // namespace
