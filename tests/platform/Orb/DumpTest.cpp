#include "Orb/Dump.h"

#include <gtest/gtest.h>

#include <vector>

#include "Orb/BaseNotifyingType.h"

namespace {

struct Node {
   const char* name;
   std::vector<const Node*> children;
   void dumpState(Orb::DumpContext& ctx, U32 indent) const {
      Orb::objDumpPrintf(ctx, "%*cNode %s\n", static_cast<int>(indent), ' ', name);
      for (const Node* c : children) Orb::dumpChild(ctx, indent + 2, c, "Node");
   }
};

TEST(OrbDumpTest, SharedChildIsWrittenOnceAndReferencedByLine) {
   Node shared{"shared", {}};
   Node leaf{"leaf", {}};
   shared.children = {&leaf};
   Node a{"a", {&shared}};
   Node b{"b", {&shared, nullptr}};
   Node root{"root", {&a, &b}};
   Orb::DumpContext ctx;
   root.dumpState(ctx, 0);
   EXPECT_EQ(ctx.str(),
             "Node root\n"
             "  Node a\n"
             "    Node shared\n"
             "      Node leaf\n"
             "  Node b\n"
             "    Node dumped at line 3\n"
             "    NULL\n");
   EXPECT_EQ(ctx.line(), 8u);
}

TEST(OrbDumpTest, LongLinesAreNotTruncated) {
   Orb::DumpContext ctx;
   const std::string big(2000, 'x');
   Orb::objDumpPrintf(ctx, "%*c%s\n", 3, ' ', big.c_str());
   EXPECT_EQ(ctx.str(), "   " + big + "\n");
}

class Keyed : public Orb::BaseNotifyingType {
public:
   explicit Keyed(U32 key) : key_(key) {}
   U32 key() const { return key_; }
   int a() const { return attr_.a; }
   const std::string& b() const { return attr_.b; }
   void aIs(int v) { attr_.a = v; }
   void bIs(std::string v) { attr_.b = std::move(v); }

private:
   friend class Orb::BaseNotifyingType;
   U32 key_;
   struct {
      int a = 0;
      std::string b;
   } attr_;
};

TEST(OrbBaseNotifyingTypeTest, CloneCopiesEverythingButTheKey) {
   Keyed src(1), dst(2);
   src.aIs(5);
   src.bIs("five");
   Orb::BaseNotifyingType::clone(dst, src);
   EXPECT_EQ(dst.key(), 2u);
   EXPECT_EQ(dst.a(), 5);
   EXPECT_EQ(dst.b(), "five");
}

}  // namespace
