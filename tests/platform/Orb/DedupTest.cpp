#include "Orb/Dedup.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class Symbol : public Orb::DedupHandle {
public:
   static inline int live = 0;
   explicit Symbol(std::string name) : name_(std::move(name)) { ++live; }
   ~Symbol() override { --live; }
   const std::string& name() const { return name_; }
   U32 hash() const override { return Kel::stringHash(name_); }
   bool compare(const Orb::DedupHandle& o) const override {
      auto* s = dynamic_cast<const Symbol*>(&o);
      return s != nullptr && s->name_ == name_;
   }

private:
   std::string name_;
};

Kel::Ptr<Symbol> symbol(const std::string& name) { return Kel::makePtr<Symbol>(name); }

class OrbDedupTest : public ::testing::Test {
protected:
   void SetUp() override { Symbol::live = 0; }
   void TearDown() override {
      table = nullptr;
      EXPECT_EQ(Symbol::live, 0);
   }
   Kel::Ptr<Orb::DedupHashTableUnorderedSet> table = Orb::dedupHashTableUnorderedSetFactory();
};

TEST_F(OrbDedupTest, EqualContentYieldsOneObjectAndTheDuplicateIsDropped) {
   auto a = table->dedup(symbol("RM1"));
   auto b = table->dedup(symbol("RM1"));
   auto c = table->dedup(symbol("RM2"));
   EXPECT_EQ(a, b);
   EXPECT_NE(a, c);
   EXPECT_EQ(table->size(), 2u);
   EXPECT_EQ(Symbol::live, 2);  // the second "RM1" candidate is gone already
   EXPECT_EQ(table->dedup(a), a);
}

TEST_F(OrbDedupTest, LastOutsideReleaseRemovesTheMemberAndLaterDedupMakesAFreshOne) {
   auto a = table->dedup(symbol("RM1"));
   const Symbol* first = a.get();
   auto again = table->dedup(symbol("RM1"));
   a = nullptr;
   EXPECT_EQ(table->size(), 1u);  // still held by `again`
   again = nullptr;
   EXPECT_EQ(table->size(), 0u);
   EXPECT_EQ(Symbol::live, 0);
   auto fresh = table->dedup(symbol("RM1"));
   EXPECT_EQ(table->size(), 1u);
   EXPECT_TRUE(fresh);
   EXPECT_EQ(fresh->name(), "RM1");
   // The freed object's address may be reused; what matters is that the table holds exactly
   // the live one.
   EXPECT_EQ(table->find(Symbol("RM1")), fresh);
   (void)first;
}

TEST_F(OrbDedupTest, TableMayDieBeforeItsMembers) {
   auto a = table->dedup(symbol("RM1"));
   table = nullptr;
   EXPECT_EQ(a->dedupTable(), nullptr);
   a = nullptr;  // must not touch the freed table
}

TEST_F(OrbDedupTest, HashCollisionsStillCompareByContent) {
   // "ab" and "ba" differ; make both live with a table that must compare, not just hash.
   struct Colliding : Symbol {
      using Symbol::Symbol;
      U32 hash() const override { return 7; }
   };
   auto x = table->dedup(Kel::Ptr<Symbol>(new Colliding("x")));
   auto y = table->dedup(Kel::Ptr<Symbol>(new Colliding("y")));
   EXPECT_NE(x, y);
   EXPECT_EQ(table->dedup(Kel::Ptr<Symbol>(new Colliding("y"))), y);
}

}  // namespace
