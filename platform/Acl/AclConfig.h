#pragma once
// Access-list configuration as notifying entities, from the root down:
//
//    Input::Config           per-type configurations, keyed by AclType
//    Input::AclTypeConfig    the access lists of one type, by name
//    AclConfig               one access list: a version and its current sub-configuration
//    AclSubConfig            one snapshot of the list's rules
//
// A writer changes a list by building a new AclSubConfig, installing it with currCfgIs and then
// bumping the list's version. Followers rebuild on the version alone, so they never see a list
// whose rules are half written.

#include <map>
#include <string>
#include <unordered_map>

#include "Acl/AclRule.h"
#include "Kel/Entity.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"

namespace Acl {

// Only ip and ipv6 lists carry routing prefixes; other types exist in the configuration and are
// there for followers to skip.
enum class AclType : U32 {
   ip = 0,
   ipv6 = 1,
   mac = 2,
};

std::string stringValue(AclType t);

// One snapshot of a list's rules: the sequence map says in which order rules apply, the per-family
// tables hold the rules by id.
class AclSubConfig : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<AclSubConfig> {
   public:
      virtual void handleVersion() {}
      virtual void handleRuleId(U32 /*seqno*/) {}
      virtual void handleIpRule(UniqueId) {}
      virtual void handleIp6Rule(UniqueId) {}
   };

   // Refuses a value outside the enumeration with the standard enumeration range error.
   explicit AclSubConfig(AclType type);

   // The type of list this snapshot was written for.
   AclType type() const noexcept { return type_; }

   U32 version() const noexcept { return version_; }
   void versionIs(U32 v) { setAttr(version_, v, &Reactor::handleVersion); }

   // Sequence number -> rule id, in ascending sequence order.
   UniqueId ruleId(U32 seqno) const { return ruleId_.get(seqno); }
   bool ruleIdHas(U32 seqno) const { return ruleId_.has(seqno); }
   void ruleIdIs(U32 seqno, UniqueId id) {
      if (ruleId_.set(seqno, id)) notify(&Reactor::handleRuleId, seqno);
   }
   void ruleIdDel(U32 seqno) {
      if (ruleId_.del(seqno)) notify(&Reactor::handleRuleId, seqno);
   }
   void ruleIdDelAll() {
      ruleId_.delAll([this](U32 s) { notify(&Reactor::handleRuleId, s); });
   }
   const std::map<U32, UniqueId>& ruleIds() const noexcept { return ruleId_.container(); }

   // IPv4 rules by id. An absent id reads as a default rule, an inert remark.
   IpRuleConfig ipRule(UniqueId id) const { return ipRule_.get(id); }
   bool ipRuleHas(UniqueId id) const { return ipRule_.has(id); }
   void ipRuleIs(UniqueId id, const IpRuleConfig& r) {
      if (ipRule_.set(id, r)) notify(&Reactor::handleIpRule, id);
   }
   void ipRuleDel(UniqueId id) {
      if (ipRule_.del(id)) notify(&Reactor::handleIpRule, id);
   }
   void ipRuleDelAll() {
      ipRule_.delAll([this](UniqueId id) { notify(&Reactor::handleIpRule, id); });
   }
   const std::map<UniqueId, IpRuleConfig>& ipRules() const noexcept { return ipRule_.container(); }

   // IPv6 rules by id, as above.
   Ip6RuleConfig ip6Rule(UniqueId id) const { return ip6Rule_.get(id); }
   bool ip6RuleHas(UniqueId id) const { return ip6Rule_.has(id); }
   void ip6RuleIs(UniqueId id, const Ip6RuleConfig& r) {
      if (ip6Rule_.set(id, r)) notify(&Reactor::handleIp6Rule, id);
   }
   void ip6RuleDel(UniqueId id) {
      if (ip6Rule_.del(id)) notify(&Reactor::handleIp6Rule, id);
   }
   void ip6RuleDelAll() {
      ip6Rule_.delAll([this](UniqueId id) { notify(&Reactor::handleIp6Rule, id); });
   }
   const std::map<UniqueId, Ip6RuleConfig>& ip6Rules() const noexcept {
      return ip6Rule_.container();
   }

   // The IPv6 table exists in every snapshot written for an IPv6 list, rules or not, so an empty
   // IPv6 list still counts as IPv6 configuration; elsewhere it exists once it holds a rule.
   bool ip6RulesPresent() const noexcept { return type_ == AclType::ipv6 || !ip6Rule_.empty(); }

private:
   AclType type_;
   U32 version_ = 0;
   Kel::Collection<U32, UniqueId> ruleId_;
   Kel::Collection<UniqueId, IpRuleConfig> ipRule_;
   Kel::Collection<UniqueId, Ip6RuleConfig> ip6Rule_;
};

Kel::Ptr<AclSubConfig> aclSubConfigFactory(AclType type);

// One access list.
class AclConfig : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<AclConfig> {
   public:
      virtual void handleVersion() {}
      virtual void handleCurrCfg() {}
   };

   explicit AclConfig(Kel::Name name) : name_(std::move(name)) {}

   const Kel::Name& name() const noexcept { return name_; }

   // Changes whenever the list's contents change; followers rebuild on it.
   U32 version() const noexcept { return version_; }
   void versionIs(U32 v) { setAttr(version_, v, &Reactor::handleVersion); }

   const Kel::Ptr<AclSubConfig const>& currCfg() const noexcept { return currCfg_; }
   void currCfgIs(Kel::Ptr<AclSubConfig const> c) {
      setAttr(currCfg_, std::move(c), &Reactor::handleCurrCfg);
   }

private:
   Kel::Name name_;
   U32 version_ = 0;
   Kel::Ptr<AclSubConfig const> currCfg_;
};

Kel::Ptr<AclConfig> aclConfigFactory(Kel::Name name);

namespace Input {

// The access lists of one type, by name in name order.
class AclTypeConfig : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<AclTypeConfig> {
   public:
      virtual void handleAcl(const Kel::Name& /*name*/) {}
   };

   // Refuses a value outside the enumeration with the standard enumeration range error.
   explicit AclTypeConfig(AclType type);

   AclType type() const noexcept { return type_; }

   Kel::Ptr<AclConfig const> acl(const Kel::Name& name) const { return acl_.get(name); }
   Kel::Ptr<AclConfig> acl(const Kel::Name& name) { return acl_.get(name); }
   bool aclHas(const Kel::Name& name) const { return acl_.has(name); }
   // Keyed by the list's own name; a null list is refused with Kel::RangeException.
   void aclIs(Kel::Ptr<AclConfig> acl);
   void aclDel(const Kel::Name& name) {
      if (acl_.del(name)) notify(&Reactor::handleAcl, name);
   }
   void aclDelAll() {
      acl_.delAll([this](const Kel::Name& n) { notify(&Reactor::handleAcl, n); });
   }
   const std::map<Kel::Name, Kel::Ptr<AclConfig>>& acls() const noexcept {
      return acl_.container();
   }

private:
   AclType type_;
   Kel::Collection<Kel::Name, Kel::Ptr<AclConfig>> acl_;
};

Kel::Ptr<AclTypeConfig> aclTypeConfigFactory(AclType type);

// The root: one AclTypeConfig per configured type.
class Config : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Config> {
   public:
      virtual void handleAclTypeConfig(AclType) {}
   };

   using TypeConfigMap = std::unordered_map<AclType, Kel::Ptr<AclTypeConfig>>;

   Kel::Ptr<AclTypeConfig const> aclTypeConfig(AclType t) const { return aclTypeConfig_.get(t); }
   Kel::Ptr<AclTypeConfig> aclTypeConfig(AclType t) { return aclTypeConfig_.get(t); }
   bool aclTypeConfigHas(AclType t) const { return aclTypeConfig_.has(t); }
   // Keyed by the configuration's own type; a null value is refused with Kel::RangeException.
   void aclTypeConfigIs(Kel::Ptr<AclTypeConfig> c);
   void aclTypeConfigDel(AclType t) {
      if (aclTypeConfig_.del(t)) notify(&Reactor::handleAclTypeConfig, t);
   }
   void aclTypeConfigDelAll() {
      aclTypeConfig_.delAll([this](AclType t) { notify(&Reactor::handleAclTypeConfig, t); });
   }
   const TypeConfigMap& aclTypeConfigs() const noexcept { return aclTypeConfig_.container(); }

private:
   Kel::Collection<AclType, Kel::Ptr<AclTypeConfig>, TypeConfigMap> aclTypeConfig_;
};

Kel::Ptr<Config> configFactory();

}  // namespace Input

}  // namespace Acl
