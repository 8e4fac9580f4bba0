#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "CommonComponentTestAgent.h"
#include "Kel/Trace.h"
#include "RoutingPolicy/common/CommonComponentSymbolSeqSm.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"
#include "Toggle/Toggle.h"

namespace {

using namespace common_test;
using Nx::AddressFamily;

class PolicyCommonComponentTest : public ::testing::Test {
protected:
   static void SetUpTestSuite() { Toggle::toggleStateIs("RoutingPolicyIpAclToggle", true); }
   void SetUp() override { Kel::System::timeSourceIs(time_.source()); }
   void TearDown() override { Kel::System::timeSourceIs({}); }

   void expectDecisions(const Kel::Name& rm,
                        const std::vector<std::pair<Route, Decision>>& cases) const {
      const auto status = agent_.status(rm);
      ASSERT_TRUE(status) << rm << " is not published";
      for (const auto& [route, want] : cases) {
         EXPECT_EQ(evaluate(status, route), want)
             << rm << " " << route.prefix << " tag " << route.tag;
      }
   }

   Kel::ManualTime time_;
   Agent agent_;
};

const Route r1{"10.1.0.0/16"};
const Route r2{"20.0.0.0/8"};
const Route r3{"30.0.0.0/8", 7, Protocol::bgp};
const Route r4{"2001:db8::/32"};
const Route r5{"40.0.0.0/8"};
const Route r6{"30.0.0.0/8", 7, Protocol::connected};
const Decision kDeny{};

// Every kind of clause the common component evaluates, through the real configuration entities
// and compilers, and then every kind of change that must reach the published route map.
TEST_F(PolicyCommonComponentTest, ConfigurationChangesReachEvaluation) {
   Agent& a = agent_;
   a.prefixList(AddressFamily::ipv4, "PL4",
                {PrefixListRule(10, true, Nx::IpGenPrefix::fromStrep("10.0.0.0/8"), {}, 24)});
   a.prefixList(AddressFamily::ipv6, "PL6",
                {PrefixListRule(10, true, Nx::IpGenPrefix::fromStrep("2001:db8::/32"))});
   a.accessList("ACL1", {{10, true, "20.0.0.0/8"}});

   entry(a.config, "SUB", 10, false)->matchRuleIs(MatchRule::forTag(7));
   entry(a.config, "SUB", 20);

   auto e10 = entry(a.config, "RM", 10);
   e10->matchRuleIs(MatchRule::forList(MatchOption::matchIpAddressPrefixList, "PL4"));
   setTag(e10, 100);
   setDistance(e10, 50);
   auto e20 = entry(a.config, "RM", 20);
   e20->matchRuleIs(MatchRule::forList(MatchOption::matchIpAddressAccessList, "ACL1"));
   // Not evaluable by the common component: never filtered in, never compiled.
   e20->matchRuleIs(MatchRule::forMetric(5));
   setTag(e20, 200);
   auto e30 = entry(a.config, "RM", 30);
   e30->matchRuleIs(MatchRule::forTag(7));
   e30->matchRuleIs(MatchRule::forProtocol(Protocol::bgp));
   setTag(e30, 300);
   setContinue(e30, 40);
   auto e40 = entry(a.config, "RM", 40);
   e40->subRouteMapIs("SUB", true);
   setDistance(e40, 40);
   auto e50 = entry(a.config, "RM", 50);
   e50->matchRuleIs(MatchRule::forList(MatchOption::matchIpv6AddressPrefixList, "PL6"));
   setTag(e50, 600);

   a.start();
   a.run();
   expectDecisions("RM", {{r1, {true, 100, 50}},
                          {r2, {true, 200, 0}},
                          {r3, {true, 300, 40}},
                          {r4, {true, 600, 0}},
                          {r5, kDeny},
                          {r6, {true, 0, 40}}});
   {
      const auto filtered = a.filtered->routeMap("RM");
      ASSERT_TRUE(filtered);
      EXPECT_EQ(filtered->mapEntry(30)->matchRules().size(), 2u);
      EXPECT_TRUE(filtered->mapEntry(20)->matchRuleHas(MatchOption::matchIpAddressAccessList));
      EXPECT_FALSE(filtered->mapEntry(20)->matchRuleHas(MatchOption::matchMetric));
      EXPECT_FALSE(a.status("RM")->seqStatus(20)->matcherHas(MatchOption::matchMetric));
      EXPECT_EQ(filtered->mapEntry(40)->subRouteMap(), "SUB");
      EXPECT_TRUE(filtered->mapEntry(40)->subRouteMapInvert());
   }

   // A redefined prefix list reaches the compiled matcher without a route-map change.
   a.prefixList(AddressFamily::ipv4, "PL4",
                {PrefixListRule(10, true, Nx::IpGenPrefix::fromStrep("40.0.0.0/8"))});
   a.run();
   expectDecisions("RM", {{r1, kDeny}, {r5, {true, 100, 50}}, {r2, {true, 200, 0}}});

   // An access list rebuilt in slices: the old list stays in force until the new one is whole.
   a.aclSm->ipConfigSm(Acl::AclType::ip)->ipAccessListConfigSm("ACL1")->clockQuantumIs(0);
   a.accessList("ACL1",
                {{10, false, "20.0.0.0/8"}, {20, true, "10.0.0.0/8"}, {30, true, "60.0.0.0/8"}});
   ASSERT_TRUE(a.am->runOnce());
   expectDecisions("RM", {{r1, kDeny}, {r2, {true, 200, 0}}});
   a.run();
   expectDecisions("RM", {{r1, {true, 200, 0}}, {r2, kDeny}, {r5, {true, 100, 50}}});

   // The called route map changes: tag 7 no longer makes it deny, so the inverted call fails.
   a.config->routeMap("SUB")->mapEntry(10)->matchRuleIs(MatchRule::forTag(8));
   a.commit("SUB");
   a.run();
   expectDecisions("RM", {{r3, {true, 300, 0}}, {r6, kDeny}, {r4, {true, 600, 0}}});

   // A deleted sequence and a removed "set distance".
   a.config->routeMap("RM")->mapEntryDel(30);
   clearDistance(a.config->routeMap("RM")->mapEntry(10));
   a.commit("RM");
   a.run();
   expectDecisions("RM", {{r3, kDeny}, {r5, {true, 100, 0}}, {r1, {true, 200, 0}}});

   // Deleted and created again under the same name.
   a.config->routeMapDel("RM");
   a.run();
   auto again = entry(a.config, "RM", 10);
   again->matchRuleIs(MatchRule::forList(MatchOption::matchIpAddressPrefixList, "PL4"));
   setTag(again, 111);
   a.commit("RM");
   a.run();
   expectDecisions("RM", {{r5, {true, 111, 0}}, {r1, kDeny}, {r4, kDeny}});
}

// The follower of one compiled sequence's symbols: one pending matcher per changed list and
// option (the IPv6 prefix list like the IPv4 one), nothing for unwatched or uncompiled state.
TEST_F(PolicyCommonComponentTest, SymbolChangesBecomePendingUpdates) {
   const Kel::Ptr<PolicyRoot> root = policyRootFactory();
   auto p0 = Routing::RouteMap::prefixListSymbolFactory("P0")->dedup(root->ipv4PrefixListTable());
   auto q0 = Routing::RouteMap::prefixListSymbolFactory("Q0")->dedup(root->ipv6PrefixListTable());
   auto rmSymbol = routeMapSymbolFactory("RM")->dedup(root->routeMapTable());
   auto callee = routeMapSymbolFactory("SUB")->dedup(root->routeMapTable());
   auto calleeStatus = routeMapStatusFactory("SUB");
   callee->rmStatusIs(calleeStatus);
   auto seq = routeMapSeqStatusFactory(10);
   seq->matcherIs(MatchOption::matchIpAddressPrefixList, prefixListMatcherFactory("P0", nullptr));
   seq->matcherIs(MatchOption::matchIpv6AddressPrefixList, prefixListMatcherFactory("Q0", nullptr));
   seq->subRouteMapIs(calleeStatus);
   auto compiled = routeMapStatusFactory("RM");
   compiled->seqStatusIs(seq);

   auto matchSeq = matchSymbolSeqFactory(10);
   for (const auto& [option, symbol] :
        {std::pair{MatchOption::matchIpAddressPrefixList, PolicySymbolPtr(p0)},
         std::pair{MatchOption::matchIpv6AddressPrefixList, PolicySymbolPtr(q0)}}) {
      auto list = policyMatchSymbolListFactory(option);
      list->policySymbolIs(symbol);
      matchSeq->policySymbolListIs(option, list);
   }
   auto subSeq = subRouteMapSymbolSeqFactory(10);
   subSeq->symbolIs(callee);
   auto mailbox = rmConfigSymbolReactorFactory("RM");
   auto sm = Kel::create<CommonComponentSymbolSeqSm>("RM", 10, rmSymbol, mailbox, matchSeq, subSeq,
                                                     nullptr);

   // Not compiled yet: nothing to update.
   q0->versionInc();
   EXPECT_FALSE(mailbox->pendingUpdate(10));

   rmSymbol->rmStatusIs(compiled);
   q0->versionInc();
   ASSERT_TRUE(mailbox->pendingUpdate(10));
   EXPECT_EQ(mailbox->pendingUpdate(10)->matcherChanges().size(), 1u);
   auto matcher = dynamic_cast<const PrefixListMatcher*>(
       mailbox->pendingUpdate(10)->matcherChange(MatchOption::matchIpv6AddressPrefixList).get());
   ASSERT_TRUE(matcher);
   EXPECT_EQ(matcher->plName(), "Q0");
   p0->versionInc();
   EXPECT_EQ(mailbox->pendingUpdate(10)->matcherChanges().size(), 2u);
   EXPECT_FALSE(mailbox->pendingUpdate(10)->hasSubRouteMapUpdate());

   // The option's list goes: its watcher goes with it.
   mailbox->pendingUpdateDel(10);
   matchSeq->policySymbolListDel(MatchOption::matchIpAddressPrefixList);
   EXPECT_EQ(sm->matchSymNotifierCount(MatchOption::matchIpAddressPrefixList), 0u);
   EXPECT_FALSE(sm->matchSymbolNotifierColl(MatchOption::matchIpAddressPrefixList));
   p0->versionInc();
   EXPECT_FALSE(mailbox->pendingUpdate(10));

   // The callee republished as it is compiled in: no update; a new status: one.
   callee->versionInc();
   EXPECT_FALSE(mailbox->pendingUpdate(10));
   auto newCalleeStatus = routeMapStatusFactory("SUB");
   callee->rmStatusIs(newCalleeStatus);
   callee->versionInc();
   ASSERT_TRUE(mailbox->pendingUpdate(10));
   EXPECT_TRUE(mailbox->pendingUpdate(10)->hasSubRouteMapUpdate());
   EXPECT_EQ(mailbox->pendingUpdate(10)->subRouteMapStatus(), newCalleeStatus);
}

// Collects the lines of one trace handle while it lives.
class TraceCapture {
public:
   explicit TraceCapture(const char* handle) : handle_(handle) {
      Kel::Trace::levelIs(handle_, 8);
      Kel::Trace::sinkIs([this](std::string_view line) { lines.emplace_back(line); });
   }
   ~TraceCapture() {
      Kel::Trace::sinkIs({});
      Kel::Trace::levelIs(handle_, -1);
   }
   bool has(const std::string& text) const {
      for (const auto& l : lines) {
         if (l.find(text) != std::string::npos) return true;
      }
      return false;
   }
   std::vector<std::string> lines;

private:
   const char* handle_;
};

// B calls A, then A calls B: A's call is withheld from the filtered configuration, which keeps
// A's old version, until B's call goes and the global update lets A try again.
TEST_F(PolicyCommonComponentTest, CycleIsBlockedUntilBroken) {
   Agent& a = agent_;
   setTag(entry(a.config, "A", 10), 1);
   entry(a.config, "B", 10)->subRouteMapIs("A");
   a.start();
   a.commit("A");
   a.commit("B");
   a.run();
   ASSERT_EQ(a.filtered->routeMap("B")->mapEntry(10)->subRouteMap(), "A");
   const U32 filteredVersion = a.filtered->routeMap("A")->version();
   ASSERT_EQ(filteredVersion, a.config->routeMap("A")->version());

   TraceCapture trace("CommonComponentRouteMapSeqConfigSm");
   entry(a.config, "A", 20)->subRouteMapIs("B");
   a.commit("A");
   a.run();
   const auto filterSm = a.routeMapSm->routeMapConfigFilterSm("A");
   ASSERT_TRUE(filterSm);
   EXPECT_TRUE(filterSm->routeMapBlockedSequenceList()->sequenceHas(20));
   EXPECT_TRUE(filterSm->sequenceBlocked());
   EXPECT_EQ(a.filtered->routeMap("A")->version(), filteredVersion);
   EXPECT_EQ(a.filtered->routeMap("A")->mapEntry(20)->subRouteMap(), "");
   EXPECT_TRUE(trace.has("subscribe to the global route map update"));
   EXPECT_TRUE(trace.has("marking sequence as blocking"));
   // Compiled as filtered: without the call, which would otherwise run B's stale copy of A.
   EXPECT_EQ(a.status("A")->seqStatus(20)->subRouteMapRawPtr(), nullptr);
   trace.lines.clear();

   a.config->routeMap("B")->mapEntry(10)->subRouteMapIs("");
   a.commit("B");
   a.run();
   EXPECT_TRUE(trace.has("previous sync was deferred due to cycle. Re-evaluating."));
   EXPECT_EQ(a.filtered->routeMap("A")->mapEntry(20)->subRouteMap(), "B");
   EXPECT_FALSE(filterSm->routeMapBlockedSequenceList()->sequenceHas(20));
   EXPECT_EQ(a.filtered->routeMap("A")->version(), a.config->routeMap("A")->version());
   EXPECT_EQ(a.filtered->routeMap("B")->mapEntry(10)->subRouteMap(), "");
   // A now calls B, which permits without setting anything, after A's own tag.
   expectDecisions("A", {{r1, {true, 1, 0}}});

   // Now B closes the cycle and is the one held back; dropping its call clears the mark.
   const auto bFilterSm = a.routeMapSm->routeMapConfigFilterSm("B");
   a.config->routeMap("B")->mapEntry(10)->subRouteMapIs("A");
   a.commit("B");
   a.run();
   EXPECT_TRUE(bFilterSm->routeMapBlockedSequenceList()->sequenceHas(10));
   EXPECT_NE(a.filtered->routeMap("B")->version(), a.config->routeMap("B")->version());
   a.config->routeMap("B")->mapEntry(10)->subRouteMapIs("");
   a.commit("B");
   a.run();
   EXPECT_FALSE(bFilterSm->routeMapBlockedSequenceList()->sequenceHas(10));
   EXPECT_EQ(a.filtered->routeMap("B")->version(), a.config->routeMap("B")->version());
}

// A held-back call released while its callee waits for deletion: the callee's status posted at
// the release must not outlive the deletion that follows, although the compiled sequence had no
// callee before either (the deleted callee's null status looks like "no change" to it).
TEST_F(PolicyCommonComponentTest, ACallReleasedJustBeforeItsCalleeIsDeletedCallsNothing) {
   Agent& a = agent_;
   entry(a.config, "C1", 10)->subRouteMapIs("C2");
   entry(a.config, "C1", 20, false);  // C1 denies whatever reaches it
   entry(a.config, "C2", 10)->subRouteMapIs("C1");
   a.start();
   a.run();
   ASSERT_TRUE(a.routeMapSm->routeMapConfigFilterSm("C2")->sequenceBlocked());

   // C1 stops calling C2 and is removed in the same batch; its version bump releases C2's call
   // before the delete task runs.
   const auto c1 = a.config->routeMap("C1");
   c1->mapEntryDel(10);
   a.config->routeMapDel("C1");
   c1->versionIs(c1->version() + 1);
   a.run();
   EXPECT_FALSE(a.status("C1"));
   EXPECT_FALSE(a.routeMapSm->routeMapConfigFilterSm("C2")->sequenceBlocked());
   // C2 calls a route map that is not configured, which matches.
   expectDecisions("C2", {{r1, {true, 0, 0}}});
}

// The toggle is read once per process, so the "off" case runs in a process of its own that sets
// the override before anything asks.
TEST(PolicyCommonComponentToggleTest, AccessListRulesAreLeftOutWhenTheToggleIsOff) {
   const std::string style = GTEST_FLAG_GET(death_test_style);
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
       {
          Toggle::toggleStateIs("RoutingPolicyIpAclToggle", false);
          Kel::ManualTime time;
          Kel::System::timeSourceIs(time.source());
          int failures = 0;
          {
             TraceCapture trace("CommonComponent");
             Agent a;
             a.accessList("ACL1", {{10, true, "20.0.0.0/8"}});
             auto e = entry(a.config, "RM", 10);
             e->matchRuleIs(MatchRule::forList(MatchOption::matchIpAddressAccessList, "ACL1"));
             e->matchRuleIs(MatchRule::forTag(5));
             a.start();
             a.commit("RM");
             a.run();
             const auto filtered = a.filtered->routeMap("RM")->mapEntry(10);
             if (filtered->matchRuleHas(MatchOption::matchIpAddressAccessList)) ++failures;
             if (!filtered->matchRuleHas(MatchOption::matchTag)) ++failures;
             if (!trace.has("option toggle not enabled: 1")) ++failures;
             const auto seq = a.status("RM")->seqStatus(10);
             if (!seq || seq->matcherHas(MatchOption::matchIpAddressAccessList)) ++failures;
             if (evaluate(a.status("RM"), {"20.0.0.0/8", 5}) != Decision{true, 0, 0}) ++failures;
          }
          Kel::System::timeSourceIs({});
          std::exit(failures);
       },
       ::testing::ExitedWithCode(0), "");
   GTEST_FLAG_SET(death_test_style, style);
}

}  // namespace
