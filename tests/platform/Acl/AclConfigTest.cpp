#include "Acl/AclConfig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Exception.h"

namespace {

using Log = std::vector<std::string>;

Nx::IpAddr v4(const char* text) {
   return Nx::IpAddr::fromStrep(text);
}

template <class F>
void expectRangeError(F&& f, const std::string& text) {
   try {
      f();
      ADD_FAILURE() << "no exception, expected: " << text;
   } catch (const Kel::RangeException& e) {
      EXPECT_EQ(e.what(), text);
   }
}

TEST(AclRuleTest, OutOfRangeValuesAreRefusedAndLeaveTheOldValue) {
   Acl::IpFilterBase f;
   f.tniIs(16777215);
   f.vniIs(16777215);
   expectRangeError([&] { f.tniIs(16777216); }, "IpFilterBase::tni < 0 or > 16777215 not allowed");
   expectRangeError([&] { f.vniIs(0xffffffffu); },
                    "IpFilterBase::vni < 0 or > 16777215 not allowed");
   EXPECT_EQ(f.tni(), 16777215u);
   EXPECT_EQ(f.vni(), 16777215u);
   EXPECT_EQ(Acl::VrfName(std::string(100, 'v')).value().size(), 100u);
   expectRangeError([] { Acl::VrfName(std::string(101, 'v')); },
                    "VrfName::bytes > VrfName::maxLength not allowed");
   // The default rule is an inert remark; an action outside the enumeration is refused.
   Acl::IpRuleConfig r;
   EXPECT_EQ(r.action(), Acl::AclAction::remark);
   expectRangeError([&] { r.actionIs(static_cast<Acl::AclAction>(3)); },
                    "Acl::AclAction::value < Acl::AclAction::min or > Acl::AclAction::max not "
                    "allowed");
   expectRangeError([] { Acl::Input::aclTypeConfigFactory(static_cast<Acl::AclType>(3)); },
                    "Acl::AclType::value < Acl::AclType::min or > Acl::AclType::max not allowed");
   expectRangeError([] { Acl::IpFilter::prefix(Nx::IpGenPrefix::fromStrep("::/0")); },
                    "IpFilter source ::/0 is not an IPv4 prefix");
   expectRangeError([] { Acl::Ip6Filter(Nx::IpGenPrefix::fromStrep("10.0.0.0/8")); },
                    "Ip6Filter source 10.0.0.0/8 is not an IPv6 prefix");
}

TEST(AclRuleTest, PrefixSourceBecomesAddressAndWildcard) {
   EXPECT_EQ(Acl::IpFilter::prefix(Nx::IpGenPrefix::fromStrep("10.0.0.0/8")),
             Acl::IpFilter(v4("10.9.9.9"), v4("0.255.255.255")));
   EXPECT_EQ(Acl::IpFilter::prefix(Nx::IpGenPrefix::fromStrep("0.0.0.0/0")), Acl::IpFilter::any());
}

// Each recorder writes "<handler>:<key>", so that a test reads the exact sequence of calls.
template <class Reactor>
struct Recorder : Reactor {
   Log log;
   template <class... A>
   void add(const A&... a) {
      std::ostringstream os;
      (os << ... << a);
      log.push_back(os.str());
   }
};
struct SubRecorder : Recorder<Acl::AclSubConfig::Reactor> {
   void handleVersion() override { add("version"); }
   void handleRuleId(U32 s) override { add("ruleId:", s); }
   void handleIpRule(Acl::UniqueId id) override { add("ipRule:", id.value()); }
   void handleIp6Rule(Acl::UniqueId id) override { add("ip6Rule:", id.value()); }
};
struct AclRecorder : Recorder<Acl::AclConfig::Reactor> {
   void handleVersion() override { add("version:", notifier()->version()); }
   void handleCurrCfg() override { add("currCfg"); }
};
// "+" or "-": whether the list is already there, or already gone, when its reactors hear of it.
struct TypeRecorder : Recorder<Acl::Input::AclTypeConfig::Reactor> {
   void handleAcl(const Kel::Name& n) override {
      add("acl:", n, notifier()->aclHas(n) ? "+" : "-");
   }
};
struct RootRecorder : Recorder<Acl::Input::Config::Reactor> {
   void handleAclTypeConfig(Acl::AclType t) override { add("type:", Acl::stringValue(t)); }
};

// Setting what is already there, or deleting what is not, notifies nobody.
TEST(AclNotificationTest, SubConfigHearsOnlyRealChangesPerKey) {
   auto sub = Acl::aclSubConfigFactory(Acl::AclType::ip);
   SubRecorder r;
   r.notifierIs(sub);
   const Acl::UniqueId a(1), b(2);
   sub->versionIs(0);
   sub->versionIs(4);
   sub->ruleIdIs(10, a);
   sub->ruleIdIs(10, a);
   sub->ruleIdIs(10, b);
   sub->ruleIdDel(11);
   using enum Acl::AclAction;
   const Acl::IpRuleConfig rule(permit, Acl::IpFilter(v4("10.0.0.1"), v4("0.0.0.255")));
   sub->ipRuleIs(a, rule);
   // The same rule spelled with other don't-care bits is no change.
   sub->ipRuleIs(a, Acl::IpRuleConfig(permit, Acl::IpFilter(v4("10.0.0.0"), v4("0.0.0.255"))));
   sub->ipRuleIs(b, rule);
   sub->ipRuleDel(Acl::UniqueId(9));
   sub->ipRuleDelAll();
   EXPECT_FALSE(sub->ip6RulesPresent());
   sub->ip6RuleIs(a, Acl::Ip6RuleConfig(deny, Acl::Ip6Filter()));
   EXPECT_EQ(r.log, (Log{"version", "ruleId:10", "ruleId:10", "ipRule:1", "ipRule:2", "ipRule:1",
                         "ipRule:2", "ip6Rule:1"}));
   // An absent id reads as the inert default rule, never as a permit.
   EXPECT_EQ(sub->ipRule(a).action(), remark);
   // An IPv6 list's snapshot counts as IPv6 configuration even while empty; another list's once
   // it holds an IPv6 rule.
   EXPECT_TRUE(sub->ip6RulesPresent());
   EXPECT_TRUE(Acl::aclSubConfigFactory(Acl::AclType::ipv6)->ip6RulesPresent());
}

// A list's version and snapshot notify separately. Lists are keyed by their own name (a new
// object under an existing name is a change), types by their own type; a null value is refused.
TEST(AclNotificationTest, ListsTypesAndRootHearEachRealChangeOnce) {
   auto acl = Acl::aclConfigFactory("A1");
   AclRecorder l;
   l.notifierIs(acl);
   Kel::Ptr<Acl::AclSubConfig const> sub = Acl::aclSubConfigFactory(Acl::AclType::ip);
   acl->currCfgIs(sub);
   acl->currCfgIs(sub);
   acl->versionIs(1);
   acl->versionIs(1);
   acl->currCfgIs(Acl::aclSubConfigFactory(Acl::AclType::ip));
   acl->versionIs(2);
   EXPECT_EQ(l.log, (Log{"currCfg", "version:1", "currCfg", "version:2"}));

   auto type = Acl::Input::aclTypeConfigFactory(Acl::AclType::ipv6);
   TypeRecorder t;
   t.notifierIs(type);
   auto b = Acl::aclConfigFactory("B");
   type->aclIs(b);
   type->aclIs(b);
   type->aclIs(Acl::aclConfigFactory("A"));
   type->aclIs(Acl::aclConfigFactory("B"));
   type->aclDel("missing");
   expectRangeError([&] { type->aclIs(nullptr); },
                    "null _acl parameter to mutator for Acl::Input::AclTypeConfig::acl not "
                    "allowed\"");
   type->aclDelAll();
   EXPECT_EQ(t.log, (Log{"acl:B+", "acl:A+", "acl:B+", "acl:A-", "acl:B-"}));

   auto root = Acl::Input::configFactory();
   RootRecorder r;
   r.notifierIs(root);
   auto ip = Acl::Input::aclTypeConfigFactory(Acl::AclType::ip);
   root->aclTypeConfigIs(ip);
   root->aclTypeConfigIs(ip);
   root->aclTypeConfigIs(Acl::Input::aclTypeConfigFactory(Acl::AclType::mac));
   root->aclTypeConfigDel(Acl::AclType::ipv6);
   expectRangeError([&] { root->aclTypeConfigIs(nullptr); },
                    "null _aclTypeConfig parameter to mutator for "
                    "Acl::Input::Config::aclTypeConfig not allowed\"");
   root->aclTypeConfigDelAll();
   ASSERT_EQ(r.log.size(), 4u);
   // Hash order: the two deletions may come either way round, but each exactly once.
   std::sort(r.log.begin() + 2, r.log.end());
   EXPECT_EQ(r.log, (Log{"type:ip", "type:mac", "type:ip", "type:mac"}));
}

}  // namespace
