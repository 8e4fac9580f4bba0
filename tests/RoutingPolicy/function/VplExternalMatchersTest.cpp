#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "Routing/PatriciaTrie.h"
#include "Routing/RouteMap/ListStatus.h"
#include "Routing/RouteMap/PrefixListEntry.h"
#include "RoutingPolicy/function/VplExternalMatchers.h"
#include "tests/RoutingPolicy/PolicyTestBuilder.h"

namespace {

using namespace policy_test;
using namespace Vpl::Eval;
using Routing::RouteMap::GenPrefixEntry;
using Vpl::ExternalMatchers;

Nx::IpGenPrefix pfx(const char* text) {
   return Nx::IpGenPrefix::fromStrep(text);
}

// A prefix list as the route-map side compiles it: one trie of entries, in a status, behind a
// matcher.
Kel::Ptr<PrefixListMatcher const> compiledList(const char* name,
                                               const std::vector<GenPrefixEntry>& entries) {
   auto trie = Routing::PatriciaTrieWithNodeDataIs(name, entries.front().prefix.af());
   for (const auto& e : entries) {
      trie->routeIs(e.prefix, Routing::RouteMap::prefixListEntryDataFactory(e));
   }
   auto status = Routing::RouteMap::PrefixListStatusIs(name);
   status->trieIs(trie);
   return prefixListMatcherFactory(name, status);
}

// A few nodes of a policy-function language, as small as an interpreter outside the library
// could make them, to show that a function reaches compiled prefix lists through the types.

class RouteContext : public EvalContextBase {
public:
   RouteContext(Kel::Ptr<Vpl::ExternalMatchersBase const> matchers, MatchInput_ route)
       : EvalContextBase(std::move(matchers)), route_(std::move(route)) {}
   const MatchInput_& route() const { return route_; }

private:
   MatchInput_ route_;
};

// "prefix in <list>": unknown while no list of that name is offered for the route's family.
class PrefixInList : public Expression {
public:
   explicit PrefixInList(Kel::String plName) : plName_(std::move(plName)) {}

   EvalResult eval(const Kel::Ptr<EvalContextBase>& context) const override {
      const auto& ctx = static_cast<const RouteContext&>(*context);
      const auto& matchers = static_cast<const ExternalMatchers&>(*ctx.externalMatchers());
      const MatchInput_& route = ctx.route();
      const PrefixListMatcher* m = route.prefix().af() == Nx::AddressFamily::ipv4
                                       ? matchers.v4PfxlRawPtr(plName_)
                                       : matchers.v6PfxlRawPtr(plName_);
      if (m == nullptr) return {VplUnknown, false};
      return {m->match(&route, nullptr) ? VplTrue : VplFalse, false};
   }
   bool compare(const Kel::Ptr<Expression const>& other) const override {
      const auto* o = dynamic_cast<const PrefixInList*>(other.get());
      return o != nullptr && o->plName_ == plName_;
   }

private:
   const Kel::String plName_;
};

// "if <condition> return true"
class ReturnTrueIf : public Expression {
public:
   explicit ReturnTrueIf(Kel::Ptr<Expression const> condition) : condition_(std::move(condition)) {}

   EvalResult eval(const Kel::Ptr<EvalContextBase>& context) const override {
      const EvalResult r = condition_->eval(context);
      return {r.retVal, r.retVal == VplTrue};
   }
   bool compare(const Kel::Ptr<Expression const>& other) const override {
      const auto* o = dynamic_cast<const ReturnTrueIf*>(other.get());
      return o != nullptr && condition_->compare(o->condition_);
   }

private:
   const Kel::Ptr<Expression const> condition_;
};

// Statements in order until one returns; otherwise the value of the last one.
class StatementsFunction : public FunctionBase {
public:
   StatementsFunction(Kel::String name, FunctionMetadata md,
                      std::vector<Kel::Ptr<Expression const>> body)
       : FunctionBase(std::move(name), std::move(md)), body_(std::move(body)) {}

   EvalResult eval(const Kel::Ptr<EvalContextBase>& context) const override {
      EvalResult last;
      for (const auto& statement : body_) {
         last = statement->eval(context);
         if (last.returnToCaller) break;
      }
      // The return ends this function; its caller carries on.
      return {last.retVal, false};
   }
   bool compare(const Kel::Ptr<Expression const>& other) const override {
      const auto* o = dynamic_cast<const StatementsFunction*>(other.get());
      return o != nullptr && o->body_.size() == body_.size() &&
             std::equal(body_.begin(), body_.end(), o->body_.begin(),
                        [](const auto& a, const auto& b) { return a->compare(b); });
   }

private:
   const std::vector<Kel::Ptr<Expression const>> body_;
};

struct Heard : ExternalMatchers::Reactor {
   std::vector<std::string> keys;
   void handleV4Pfxl(const Kel::String& name) override { keys.push_back("v4 " + name); }
   void handleV6Pfxl(const Kel::String& name) override { keys.push_back("v6 " + name); }
};

TEST(PolicyVplExternalMatchersTest, NullDeletesAndOnlyChangesNotify) {
   const auto a = compiledList("A", {{10, pfx("10.0.0.0/8"), true, 8, 32, 0}});
   const auto b = compiledList("B", {{10, pfx("10.0.0.0/8"), false, 8, 32, 0}});
   const auto em = Vpl::externalMatchersFactory();
   Heard heard;
   heard.notifierIs(em);

   em->v4PfxlIs("A", a);
   em->v4PfxlIs("A", a);
   em->v6PfxlIs("A", b);
   em->v4PfxlIs("A", b);
   EXPECT_EQ(em->v4Pfxl("A"), b);
   EXPECT_EQ(em->v6Pfxl("A"), b);
   em->v4PfxlIs("A", nullptr);
   em->v4PfxlIs("never", nullptr);
   EXPECT_FALSE(em->v4PfxlHas("A"));
   EXPECT_EQ(em->v4Pfxl("A"), nullptr);
   EXPECT_EQ(em->v4PfxlRawPtr("A"), nullptr);
   EXPECT_EQ(em->v6Pfxl("A"), b) << "the families are separate tables";
   EXPECT_EQ(heard.keys, (std::vector<std::string>{"v4 A", "v6 A", "v4 A", "v4 A"}));

   em->v6PfxlIs("C", a);
   heard.keys.clear();
   em->v6PfxlDelAll();
   std::sort(heard.keys.begin(), heard.keys.end());
   EXPECT_EQ(heard.keys, (std::vector<std::string>{"v6 A", "v6 C"}));
   EXPECT_TRUE(em->v6PfxlMap().empty());
}

struct VplStatusHeard : RouteMapStatusList::Reactor {
   int count = 0;
   void handleVplStatus() override { ++count; }
};

TEST(PolicyVplStatusListTest, FunctionFeaturesJoinOnlyWhileAFunctionIsSet) {
   auto list = routeMapStatusListFactory();
   VplStatusHeard heard;
   heard.notifierIs(list);
   list->rmStatusIs(
       RmPrecedence::rmBased,
       RmBuilder("I")
           .seq(10)
           .matcher(MatchOption::matchInterface, interfaceMatcherFactory(Nx::IntfId("Ethernet1")))
           .build());
   RouteMapFeatures intfOnly;
   intfOnly.matchInterface = true;
   RouteMapFeatures prefixOnly;
   prefixOnly.matchPrefixDependent = true;
   RouteMapFeatures both = intfOnly;
   both.updateFrom(prefixOnly);

   const auto em = Vpl::externalMatchersBaseFactory();
   list->vplStatusIs(Vpl::functionStatusBaseFactory("F", nullptr, em));
   EXPECT_EQ(list->features(), intfOnly) << "a function not compiled yet adds nothing";

   const auto compiled = Vpl::functionStatusBaseFactory("F", functionBaseFactory("F", {}), em);
   list->vplStatusIs(compiled);
   EXPECT_EQ(list->features(), both);
   list->vplStatusIs(compiled);
   EXPECT_EQ(heard.count, 2) << "the same status again is no change";

   list->rmStatusDel(RmPrecedence::rmBased);
   EXPECT_EQ(list->features(), prefixOnly) << "route-map changes keep the function's features";
   list->vplStatusIs(nullptr);
   EXPECT_EQ(list->features(), RouteMapFeatures{});
   EXPECT_EQ(heard.count, 3);
}

// function F { if prefix in CUSTOMERS return true; prefix in PEERS }, installed in a status
// list and evaluated through what the list holds.
TEST(PolicyVplFunctionEvalTest, FunctionReachesCompiledPrefixListsByName) {
   const auto customers4 = compiledList("CUSTOMERS", {{10, pfx("10.1.0.0/16"), false, 16, 32, 0},
                                                      {20, pfx("10.0.0.0/8"), true, 8, 24, 0}});
   const auto customers6 = compiledList("CUSTOMERS", {{10, pfx("2001:db8::/32"), true, 32, 48, 0}});
   const auto peers4 = compiledList("PEERS", {{10, pfx("192.0.2.0/24"), true, 24, 24, 0}});
   const auto em = Vpl::externalMatchersFactory();
   em->v4PfxlIs("CUSTOMERS", customers4);
   em->v6PfxlIs("CUSTOMERS", customers6);

   FunctionMetadata md;
   md.v4PrefixListsUsedIs("CUSTOMERS");
   md.v4PrefixListsUsedIs("PEERS");
   md.v6PrefixListsUsedIs("CUSTOMERS");
   const auto customers = Kel::makePtr<PrefixInList>("CUSTOMERS");
   const auto fn = Kel::makePtr<StatementsFunction>(
       "F", md,
       std::vector<Kel::Ptr<Expression const>>{Kel::makePtr<ReturnTrueIf>(customers),
                                               Kel::makePtr<PrefixInList>("PEERS")});
   auto list = routeMapStatusListFactory();
   list->vplStatusIs(Vpl::functionStatusBaseFactory("F", fn, em));

   const auto evalFor = [&](const char* prefix) {
      MatchInput_ route;
      route.prefixIs(pfx(prefix));
      const auto& status = list->vplStatus();
      return status->function()->eval(
          Kel::makePtr<RouteContext>(status->externalMatchers(), route));
   };
   struct Case {
      const char* route;
      TriStateBoolValue before;
      TriStateBoolValue after;
   };
   // `after`: PEERS offered and the IPv4 CUSTOMERS list withdrawn.
   const Case cases[] = {
       {"10.2.0.0/16", VplTrue, VplFalse},        {"10.1.2.0/24", VplUnknown, VplFalse},
       {"10.2.3.0/25", VplUnknown, VplFalse},     {"192.0.2.0/24", VplUnknown, VplTrue},
       {"2001:db8:1::/48", VplTrue, VplTrue},     {"2001:db8:1::/64", VplUnknown, VplUnknown},
       {"2001:db9::/32", VplUnknown, VplUnknown},
   };
   for (const Case& c : cases)
      EXPECT_EQ(evalFor(c.route), (EvalResult{c.before, false})) << c.route;
   em->v4PfxlIs("PEERS", peers4);
   em->v4PfxlIs("CUSTOMERS", nullptr);
   for (const Case& c : cases) EXPECT_EQ(evalFor(c.route), (EvalResult{c.after, false})) << c.route;
}

}  // namespace
