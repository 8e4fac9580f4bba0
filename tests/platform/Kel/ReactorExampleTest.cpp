// The reactor example of docs/architecture.md, kept compiling and behaving as described.

#include <gtest/gtest.h>

#include "Kel/Machine.h"
#include "Orb/BaseOutputSm.h"

namespace {

class RouteMap : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<RouteMap> {
   public:
      virtual void handleVersion() {}
   };
   U32 version() const { return version_; }
   void versionIs(U32 v) { setAttr(version_, v, &Reactor::handleVersion); }

private:
   U32 version_ = 0;
};

class Compiler : public Orb::BaseOutputSm {
public:
   explicit Compiler(Kel::Ptr<RouteMap const> rm) : rm_(std::move(rm)), reactor_(this) {}
   void handleVersion() { built.push_back(rm_->version()); }
   std::vector<U32> built;

protected:
   void handleInitialized() override {
      reactor_.notifierIs(rm_);
      handleVersion();
   }

private:
   struct Reactor : RouteMap::Reactor {
      explicit Reactor(Compiler* o) : owner(o) {}
      Compiler* owner;
      void handleVersion() override { owner->handleVersion(); }
   };
   Kel::Ptr<RouteMap const> rm_;
   Reactor reactor_;
};

TEST(KelReactorExampleTest, MachineBuildsOnceAtStartAndOncePerVersionChange) {
   auto rm = Kel::makePtr<RouteMap>();
   auto c = Kel::create<Compiler>(rm);
   rm->versionIs(1);
   rm->versionIs(1);
   rm->versionIs(2);
   EXPECT_EQ(c->built, (std::vector<U32>{0, 1, 2}));
   c = nullptr;  // the machine's reactor leaves the route map with it
   EXPECT_EQ(rm->reactorCount(), 0u);
}

}  // namespace
