#include <gtest/gtest.h>

#include <string>

#include "Kel/Exception.h"
#include "tests/RoutingPolicy/PolicyTestBuilder.h"

namespace {

using namespace policy_test;

// Death-test messages are regular expressions; assertion texts are full of their specials.
std::string literal(const std::string& text) {
   std::string out;
   for (char c : text) {
      if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) out += '\\';
      out += c;
   }
   return out;
}

MatchInput_ filledInput() {
   MatchInput_ in;
   in.metricIs(Orb::MaybeU63(20));
   in.protocolIs(Routing::RouteProto::ospfInterArea);
   in.prefixIs(Nx::IpGenPrefix::fromStrep("10.1.0.0/16"));
   in.nexthopIs(Nx::IpGenAddr::fromStrep("2001:db8::1"));
   in.routerIdIs(Nx::IpAddr::fromStrep("1.1.1.1"));
   in.resolvedNexthopIs(Nx::IpGenAddr::fromStrep("192.0.2.1"));
   in.tagIs(Routing::RouteTag(7));
   auto set = intfIdSetFactory();
   set->intfIdIs(Nx::IntfId("Vlan10"));
   set->intfIdIs(Nx::IntfId("Ethernet1"));
   in.intfIdSetIs(set);
   in.matchIntfIs(true);
   return in;
}

TEST(PolicyMatchInputTest, TextFormRoundTrips) {
   const MatchInput_ in = filledInput();
   const std::string text = in.toStrep();
   EXPECT_EQ(text,
             "Value('Routing::Policy::MatchInput_', ** {'metric': 20, 'protocol': ospfInterArea, "
             "'prefix': 10.1.0.0/16, 'nexthop': 2001:db8::1, 'routerId': 1.1.1.1, "
             "'resolvedNexthop': 192.0.2.1, 'tag': 7, 'intfIdSet': ['Ethernet1', 'Vlan10'], "
             "'matchIntf': True})");
   EXPECT_EQ(MatchInput_::fromStrep(text), in);
   EXPECT_FALSE(!in);

   const MatchInput_ empty;
   EXPECT_TRUE(!empty);
   EXPECT_FALSE(empty.getIntfIdSet());
   EXPECT_TRUE(!MatchInput_::fromStrep(empty.toStrep()));
}

TEST(PolicyMatchInputTest, ParseErrorsNameTheField) {
   const std::string good = filledInput().toStrep();
   const std::pair<std::string, std::string> cases[] = {
       {"'protocol': ospfInterArea", "'protocol': nosuch"},
       {"'prefix': 10.1.0.0/16", "'prefix': 10.1.0.0/33"},
       {"'intfIdSet': ['Ethernet1', 'Vlan10']", "'intfIdSet': ['Eth 1']"},
       {"'matchIntf': True", "'matchIntf': yes"},
   };
   const char* fields[] = {"protocol", "prefix", "intfIdSet", "matchIntf"};
   for (std::size_t i = 0; i < std::size(cases); ++i) {
      std::string bad = good;
      bad.replace(bad.find(cases[i].first), cases[i].first.size(), cases[i].second);
      try {
         MatchInput_::fromStrep(bad);
         ADD_FAILURE() << "accepted " << bad;
      } catch (const Kel::ParseException& e) {
         EXPECT_EQ(e.field(), fields[i]) << e.what();
      }
   }
}

TEST(PolicyResultTest, EqualityComparesDeferredSettersByIdentity) {
   Result_ r;
   EXPECT_TRUE(!r);
   EXPECT_EQ(r.applicationType(), PolicyApplicationType::defaultApplication);
   EXPECT_FALSE(r.deferredSetter(nullptr));
   EXPECT_FALSE(r.deferredSetters()) << "asking must not create the list";

   const auto s = tagSetterFactory(Routing::RouteTag(1));
   r.deferredSetterIs(s.get());
   EXPECT_TRUE(r.deferredSetter(s.get()));
   r.deferredSetterDelAll();
   EXPECT_FALSE(r.deferredSetter(s.get()));
   EXPECT_FALSE(!r) << "an emptied list is still a list";

   Result_ copy = r;
   EXPECT_EQ(copy, r);
   Result_ other;
   other.deferredSetterIs(s.get());
   other.deferredSetterDelAll();
   EXPECT_FALSE(other == r);
}

TEST(PolicyResultTest, TextFormAndItsParser) {
   Result_ r;
   r.preferenceIs(Routing::RoutePreference(20));
   r.tagIs(Routing::RouteTag(5));
   EXPECT_EQ(r.toStrep(),
             "Value('Routing::Policy::Result_', ** {'preference': 20, 'tag': 5, 'metric': None, "
             "'dps': None})");
   EXPECT_EQ(Result_::fromStrep(r.toStrep()), r);

   const auto s = tagSetterFactory(Routing::RouteTag(1));
   r.deferredSetterIs(s.get());
   const std::string text = r.toStrep();
   EXPECT_NE(text.find("'dps': ['TagSetter tag 1']"), std::string::npos) << text;
   try {
      Result_::fromStrep(text);
      ADD_FAILURE() << "deferred setters cannot be read back";
   } catch (const Kel::ParseException& e) {
      EXPECT_EQ(e.field(), "dps");
   }
}

TEST(PolicyResultTest, ApplicationTypeNamesAndRange) {
   EXPECT_EQ(stringValue(PolicyApplicationType::redistIgp), "redistIgp");
   EXPECT_EQ(PolicyApplicationTypeInstance("bgp"), PolicyApplicationType::bgp);
   EXPECT_EQ(PolicyApplicationTypeInstance(2u), PolicyApplicationType::defaultApplication);
   try {
      PolicyApplicationTypeInstance(3u);
      ADD_FAILURE();
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "PolicyApplicationType::value < PolicyApplicationType::min or > "
                   "PolicyApplicationType::max not allowed");
   }
}

TEST(PolicyIntfIdSetTest, HashDoesNotDependOnInsertionOrder) {
   auto a = intfIdSetFactory();
   auto b = intfIdSetFactory();
   for (const char* n : {"Ethernet1", "Ethernet2", "Vlan10"}) a->intfIdIs(Nx::IntfId(n));
   for (const char* n : {"Vlan10", "Ethernet2", "Ethernet1"}) b->intfIdIs(Nx::IntfId(n));
   EXPECT_EQ(a->hash(), b->hash());
   b->intfIdDel(Nx::IntfId("Vlan10"));
   EXPECT_NE(a->hash(), b->hash());
   b->intfIdDelAll();
   EXPECT_TRUE(b->empty());
   EXPECT_EQ(b->hash(), 0u);
}

// A setter that defers itself from setValue; `times` says how often it asks.
class DeferringSetter : public Setter {
public:
   explicit DeferringSetter(int times) : times_(times) {}
   void setValue(Result_* r) const override {
      for (int i = 0; i < times_; ++i) r->deferredSetterIs(this);
   }
   void deferredSetValue(Result_* r) const override { r->tagIs(Routing::RouteTag(77)); }
   void formatDerivedType(std::ostream& os) const override { os << "DeferringSetter"; }

private:
   int times_;
};

TEST(PolicySetterTest, FullSetValueRunsTheDeferredPartAndUnlists) {
   const auto s = Kel::makePtr<DeferringSetter>(1);
   Result_ r;
   s->testFullSetValue(r);
   EXPECT_EQ(r.tag().value(), 77u);
   ASSERT_TRUE(r.dps());
   EXPECT_EQ(r.dps()->size(), 0u);
}

TEST(PolicySetterDeathTest, ContractBreachesStopWithTheirTexts) {
   const auto plain = tagSetterFactory(Routing::RouteTag(1));
   Result_ r;
   const std::string mustOverride = literal("0 && \"Must override in derived class\"");
   EXPECT_DEATH(plain->testDeferredSetValue(r), mustOverride);
   EXPECT_DEATH(plain->createSkipIbgp(), mustOverride);

   r.deferredSetterIs(plain.get());
   EXPECT_DEATH(plain->testFullSetValue(r),
                literal("( __null == r.dps() ) || ( !r.deferredSetter( this ) )"));

   Result_ fresh;
   EXPECT_DEATH(Kel::makePtr<DeferringSetter>(2)->testFullSetValue(fresh),
                literal("!nonConstResultPtr->deferredSetter( this )"));
}

}  // namespace
