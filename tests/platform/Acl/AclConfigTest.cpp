#include "Acl/AclConfig.h"

#include <gtest/gtest.h>

#include <algorithm>
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

TEST(AclRuleTest, QualifiersOutsideTheirFieldsAreRefusedAndLeaveTheOldValue) {
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

   Acl::IpRuleConfig r;
   EXPECT_EQ(r.action(), Acl::AclAction::remark);
   expectRangeError([&] { r.actionIs(static_cast<Acl::AclAction>(3)); },
                    "Acl::AclAction::value < Acl::AclAction::min or > Acl::AclAction::max not "
                    "allowed");
}

TEST(AclRuleTest, SourcesAreCanonicalSoEquivalentSpellingsAreEqual) {
   EXPECT_EQ(Acl::IpFilter(v4("10.0.0.7"), v4("0.0.0.255")),
             Acl::IpFilter(v4("10.0.0.0"), v4("0.0.0.255")));
   EXPECT_NE(Acl::IpFilter(v4("10.0.0.7"), v4("0.0.0.255")),
             Acl::IpFilter(v4("10.0.0.7"), v4("0.0.0.127")));
   EXPECT_EQ(Acl::IpFilter::prefix(Nx::IpGenPrefix::fromStrep("10.0.0.0/8")),
             Acl::IpFilter(v4("10.9.9.9"), v4("0.255.255.255")));
   EXPECT_EQ(Acl::IpFilter::prefix(Nx::IpGenPrefix::fromStrep("0.0.0.0/0")), Acl::IpFilter::any());
   expectRangeError([] { Acl::IpFilter::prefix(Nx::IpGenPrefix::fromStrep("::/0")); },
                    "IpFilter source ::/0 is not an IPv4 prefix");
   expectRangeError([] { Acl::Ip6Filter(Nx::IpGenPrefix::fromStrep("10.0.0.0/8")); },
                    "Ip6Filter source 10.0.0.0/8 is not an IPv6 prefix");
}

// One recorder per entity type; each writes "<handler>:<key>" so that a test reads the exact
// sequence of calls.
struct SubRecorder : Acl::AclSubConfig::Reactor {
   explicit SubRecorder(Log* l) : log(l) {}
   Log* log;
   void handleVersion() override { log->push_back("version"); }
   void handleRuleId(U32 s) override { log->push_back("ruleId:" + std::to_string(s)); }
   void handleIpRule(Acl::UniqueId id) override {
      log->push_back("ipRule:" + std::to_string(id.value()));
   }
   void handleIp6Rule(Acl::UniqueId id) override {
      log->push_back("ip6Rule:" + std::to_string(id.value()));
   }
};

struct AclRecorder : Acl::AclConfig::Reactor {
   explicit AclRecorder(Log* l) : log(l) {}
   Log* log;
   void handleVersion() override {
      log->push_back("version:" + std::to_string(notifier()->version()));
   }
   void handleCurrCfg() override { log->push_back("currCfg"); }
};

struct TypeRecorder : Acl::Input::AclTypeConfig::Reactor {
   explicit TypeRecorder(Log* l) : log(l) {}
   Log* log;
   void handleAcl(const Kel::Name& n) override {
      log->push_back("acl:" + n + (notifier()->aclHas(n) ? "+" : "-"));
   }
};

struct RootRecorder : Acl::Input::Config::Reactor {
   explicit RootRecorder(Log* l) : log(l) {}
   Log* log;
   void handleAclTypeConfig(Acl::AclType t) override {
      log->push_back("type:" + Acl::stringValue(t));
   }
};

class AclNotificationTest : public ::testing::Test {
protected:
   Log log;
};

TEST_F(AclNotificationTest, SubConfigHearsOnlyRealChangesPerKey) {
   auto sub = Acl::aclSubConfigFactory(Acl::AclType::ip);
   SubRecorder r(&log);
   r.notifierIs(sub);
   const Acl::UniqueId a(1), b(2);
   sub->versionIs(0);
   sub->versionIs(4);
   sub->ruleIdIs(10, a);
   sub->ruleIdIs(10, a);
   sub->ruleIdIs(10, b);
   Acl::IpRuleConfig rule(Acl::AclAction::permit, Acl::IpFilter(v4("10.0.0.1"), v4("0.0.0.255")));
   sub->ipRuleIs(a, rule);
   // The same rule spelled with other don't-care bits is no change.
   sub->ipRuleIs(a, Acl::IpRuleConfig(Acl::AclAction::permit,
                                      Acl::IpFilter(v4("10.0.0.0"), v4("0.0.0.255"))));
   rule.remarkIs("web servers");
   sub->ipRuleIs(a, rule);
   sub->ipRuleIs(b, rule);
   sub->ipRuleDel(Acl::UniqueId(9));
   sub->ipRuleDelAll();
   sub->ip6RuleIs(a, Acl::Ip6RuleConfig(Acl::AclAction::deny, Acl::Ip6Filter()));
   EXPECT_EQ(log, (Log{"version", "ruleId:10", "ruleId:10", "ipRule:1", "ipRule:1", "ipRule:2",
                       "ipRule:1", "ipRule:2", "ip6Rule:1"}));
   EXPECT_EQ(sub->ruleIds().at(10), b);
   EXPECT_TRUE(sub->ipRules().empty());
   // An absent id reads as the inert default rule, never as a permit.
   EXPECT_EQ(sub->ipRule(a).action(), Acl::AclAction::remark);
}

TEST_F(AclNotificationTest, Ip6RulesArePresentForIpv6SnapshotsEvenWhenEmpty) {
   auto v6 = Acl::aclSubConfigFactory(Acl::AclType::ipv6);
   auto v4sub = Acl::aclSubConfigFactory(Acl::AclType::ip);
   EXPECT_TRUE(v6->ip6RulesPresent());
   EXPECT_FALSE(v4sub->ip6RulesPresent());
   v4sub->ip6RuleIs(Acl::UniqueId(1), Acl::Ip6RuleConfig());
   EXPECT_TRUE(v4sub->ip6RulesPresent());
}

TEST_F(AclNotificationTest, AccessListVersionAndSnapshotNotifySeparately) {
   auto acl = Acl::aclConfigFactory("A1");
   AclRecorder r(&log);
   r.notifierIs(acl);
   Kel::Ptr<Acl::AclSubConfig const> sub = Acl::aclSubConfigFactory(Acl::AclType::ip);
   acl->currCfgIs(sub);
   acl->currCfgIs(sub);
   acl->versionIs(1);
   acl->versionIs(1);
   acl->currCfgIs(Acl::aclSubConfigFactory(Acl::AclType::ip));
   acl->versionIs(2);
   EXPECT_EQ(log, (Log{"currCfg", "version:1", "currCfg", "version:2"}));
}

TEST_F(AclNotificationTest, TypeConfigKeysListsByTheirOwnNameAndRefusesNull) {
   auto type = Acl::Input::aclTypeConfigFactory(Acl::AclType::ipv6);
   TypeRecorder r(&log);
   r.notifierIs(type);
   auto b = Acl::aclConfigFactory("B");
   type->aclIs(b);
   type->aclIs(b);
   type->aclIs(Acl::aclConfigFactory("A"));
   type->aclIs(Acl::aclConfigFactory("B"));  // a new object under an existing name
   type->aclDel("missing");
   expectRangeError([&] { type->aclIs(nullptr); },
                    "null _acl parameter to mutator for Acl::Input::AclTypeConfig::acl not "
                    "allowed\"");
   std::string order;
   for (const auto& [name, acl] : type->acls()) order += name;
   EXPECT_EQ(order, "AB");
   EXPECT_NE(type->acl("B"), b);
   type->aclDelAll();
   EXPECT_EQ(log, (Log{"acl:B+", "acl:A+", "acl:B+", "acl:A-", "acl:B-"}));
}

TEST_F(AclNotificationTest, RootKeysTypeConfigsByTypeAndDeletesOneAtATime) {
   auto root = Acl::Input::configFactory();
   RootRecorder r(&log);
   r.notifierIs(root);
   auto ip = Acl::Input::aclTypeConfigFactory(Acl::AclType::ip);
   root->aclTypeConfigIs(ip);
   root->aclTypeConfigIs(ip);
   root->aclTypeConfigIs(Acl::Input::aclTypeConfigFactory(Acl::AclType::mac));
   root->aclTypeConfigDel(Acl::AclType::ipv6);
   EXPECT_EQ(root->aclTypeConfig(Acl::AclType::ip), ip);
   expectRangeError([&] { root->aclTypeConfigIs(nullptr); },
                    "null _aclTypeConfig parameter to mutator for "
                    "Acl::Input::Config::aclTypeConfig not allowed\"");
   expectRangeError([] { Acl::Input::aclTypeConfigFactory(static_cast<Acl::AclType>(3)); },
                    "Acl::AclType::value < Acl::AclType::min or > Acl::AclType::max not allowed");
   root->aclTypeConfigDelAll();
   ASSERT_EQ(log.size(), 4u);
   EXPECT_EQ(log[0], "type:ip");
   EXPECT_EQ(log[1], "type:mac");
   // Hash order: the two deletions may come either way round, but each exactly once.
   Log deleted(log.begin() + 2, log.end());
   std::sort(deleted.begin(), deleted.end());
   EXPECT_EQ(deleted, (Log{"type:ip", "type:mac"}));
   EXPECT_TRUE(root->aclTypeConfigs().empty());
}

}  // namespace
