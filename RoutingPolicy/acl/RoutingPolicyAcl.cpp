#include "RoutingPolicy/acl/RoutingPolicyAcl.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Acl/AclToIp6Prefix.h"
#include "Acl/AclToPrefix.h"
#include "Kel/Assert.h"
#include "Kel/Exception.h"
#include "Kel/Machine.h"
#include "Kel/Trace.h"
#include "Routing/RouteMap/ListStatus.h"
#include "Routing/RouteMap/PrefixListEntry.h"
#include "Toggle/Toggle.h"

KEL_TRACE_HANDLE("RoutingPolicyAcl");

namespace Routing::Policy {

namespace {

// Configured on every device for the control plane's own filtering; routing never matches on it.
const Kel::String kControlPlaneAcl = "default-control-plane-acl";

template <class T>
void refuseChangedArgument(const T& existing, const T& given, const char* attr) {
   if (existing == given) return;
   throw Kel::RangeException(
       std::string("Reinstantiating the pointer interface where constructor parameter attribute ") +
       attr + " has a different value of");
}

bool followedType(Acl::AclType type) {
   return type == Acl::AclType::ip || type == Acl::AclType::ipv6;
}

}  // namespace

bool ipAclToggleEnabled() {
   static const bool enabled = Toggle::getToggleState("RoutingPolicyIpAclToggle", true);
   return enabled;
}

void addIpAclEntryToTrie(const Kel::Ptr<PatriciaTrieWithNodeData>& trie, U32 seqno,
                         const Nx::IpGenPrefix& prefix, const Acl::MatchPermit& permit) {
   KTRACE(8, "addIpAclEntryToTrie",
          "ACL: " << (trie ? trie->name() : Kel::String()) << " seqno: " << seqno << " pfx "
                  << prefix);
   KEL_ASSERT(trie);
   const RouteMap::GenPrefixEntry entry{
       seqno, prefix, permit != Acl::MatchPermit::deny, prefix.len(), prefix.maxLen(), 0};
   trie->routeIs(prefix, RouteMap::prefixListEntryDataFactory(entry));
}

// ---- IpAclConfigSm ----------------------------------------------------------------------------

IpAclConfigSm::IpAclConfigSm(
    Kel::String name, Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig,
    Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
    Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
    Kel::Ptr<Acl::AclConfig const> ipAccessList, Kel::Ptr<Kel::ActivityManager> activityManager)
    : name_(std::move(name)),
      ipConfig_(std::move(ipConfig)),
      allIpAclSymbol_(std::move(allIpAclSymbol)),
      ipAclSymbolTable_(std::move(ipAclSymbolTable)),
      ipAccessList_(std::move(ipAccessList)),
      activityManager_(std::move(activityManager)),
      aclReactor_(this),
      clockReactor_(this) {}

IpAclConfigSm::~IpAclConfigSm() = default;

void IpAclConfigSm::handleInitialized() {
   KEL_ASSERT(activityManager_);
   aclReactor_.notifierIs(ipAccessList_);
}

Nx::AddressFamily IpAclConfigSm::af() const {
   return ipConfig_ && ipConfig_->type() != Acl::AclType::ip ? Nx::AddressFamily::ipv6
                                                             : Nx::AddressFamily::ipv4;
}

void IpAclConfigSm::AclReactor::handleNotifierIs() {
   if (!notifier()) return;
   if (hasNotificationActive()) owner->handleIpAccessPrefixEntry();
   if (hasNotificationActive()) owner->handleIpAccessListVersion();
}

void IpAclConfigSm::AclReactor::handleVersion() {
   if (hasNotificationActive()) owner->handleIpAccessPrefixEntry();
   if (hasNotificationActive()) owner->handleIpAccessListVersion();
}

void IpAclConfigSm::handleIpAccessPrefixEntry() {
   KTRACE(8, *this, "handleIpAccessPrefixEntry");
   // One clock for the machine's life: binding a new one would run a slice from inside the
   // version change that is about to restart the build.
   if (!ownClock_) ownClock_ = activityManager_->clockNew();
   ownClock_->timeIs(Kel::kNever);
   clockReactor_.notifierIs(ownClock_);
   const Kel::Ptr<Acl::AclSubConfig const>& cfg = ipAccessList_->currCfg();
   if (cfg &&
       (af() == Nx::AddressFamily::ipv4 ? !cfg->ipRules().empty() : cfg->ip6RulesPresent())) {
      handleIpAccessListVersion();
   }
   initialized_ = true;
}

void IpAclConfigSm::handleIpAccessListVersion() {
   // The list's own version: writers bump it on every change, whereas a snapshot's version is
   // whatever its writer left there.
   KTRACE(8, *this, "handleIpAccessListVersion version: " << ipAccessList_->version());
   bookmark_ = 0;
   newTrie_ = PatriciaTrieWithNodeDataIs(name_, af());
   newMaskRules_.clear();
   if (ownClock_) ownClock_->timeIs(0);
}

void IpAclConfigSm::processClock() {
   // Idle: the clock is bound at start-up, before any build exists.
   if (!newTrie_) return;
   KTRACE(8, *this, "Processing Acl: " << name_);
   const Kel::Seconds sliceEnd = Kel::System::currentTime() + clockQuantum_;
   // Publishing notifies the symbol's holders, whose reactions may remove this list and with it
   // this machine.
   const Kel::Ptr<IpAclConfigSm> self(refCount() > 0 ? this : nullptr);
   const Kel::Ptr<RouteMap::IpAccessListSymbol> symbol =
       allIpAclSymbol_ ? allIpAclSymbol_->symbol(name_) : nullptr;
   const Kel::Ptr<Acl::AclConfig const> acl = ipConfig_ ? ipConfig_->acl(name_) : nullptr;
   if (!acl) return;
   const Kel::Ptr<Acl::AclSubConfig const> cfg = acl->currCfg();
   if (cfg) {
      const bool v6 = af() == Nx::AddressFamily::ipv6;
      const auto& ruleIds = cfg->ruleIds();
      U32 processed = 0;
      for (auto it = ruleIds.lower_bound(bookmark_); it != ruleIds.end(); ++it) {
         const U32 seqno = it->first;
         const Kel::Seconds now = Kel::System::currentTime();
         if (processed != 0 && now >= sliceEnd) {
            KTRACE(5, *this, "ACL: " << name_ << " pausing processing at rule " << seqno);
            bookmark_ = seqno;
            ownClock_->timeIs(0);
            return;
         }
         // The rule is split by size before any conversion, so the converter never meets a
         // wildcard it would refuse and nothing unwinds the activity loop from here.
         if (v6) {
            const Acl::Ip6RuleConfig rule = cfg->ip6Rule(it->second);
            if (rule.action() == Acl::AclAction::remark) continue;
            getIp6PfxFromRule(rule);
            addPrefixes(seqno, rule.action());
         } else {
            const Acl::IpRuleConfig rule = cfg->ipRule(it->second);
            if (rule.action() == Acl::AclAction::remark) continue;
            const Acl::IpFilter& f = rule.filter();
            if (AclPrefix::AclToPrefix::rangeCount(f.sourceWildcard()) > maxTrieRangesPerRule) {
               KTRACE(8, *this,
                      "ACL: " << name_ << " seqno: " << seqno << " mask " << f.source() << " "
                              << f.sourceWildcard());
               newMaskRules_.push_back({seqno, f.source().value(), f.sourceWildcard().value(),
                                        rule.action() == Acl::AclAction::permit});
               pset_ = nullptr;
            } else {
               getIpPfxFromRule(rule);
               addPrefixes(seqno, rule.action());
            }
         }
         ++processed;
      }
   }
   publish(symbol);
}

void IpAclConfigSm::addPrefixes(U32 seqno, Acl::AclAction action) {
   const Acl::MatchPermit permit =
       action == Acl::AclAction::permit ? Acl::MatchPermit::permit : Acl::MatchPermit::deny;
   for (const Nx::IpGenPrefix& prefix : *pset_)
      addIpAclEntryToTrie(newTrie_, seqno, prefix, permit);
}

void IpAclConfigSm::publish(const Kel::Ptr<RouteMap::IpAccessListSymbol>& symbol) {
   bookmark_ = 0;
   ownClock_->timeIs(Kel::kNever);
   auto status = RouteMap::IpAccessListStatusIs(name_);
   status->trieIs(std::move(newTrie_));
   status->maskRulesIs(newMaskRules_);
   newMaskRules_ = {};
   pset_ = nullptr;
   // The machine is idle before anybody hears of the new status: a reaction that changes the
   // list again starts a new build, which must not be undone here afterwards.
   if (!symbol) return;
   if (symbol->status() != status) symbol->statusIs(status);
   symbol->versionInc();
}

void IpAclConfigSm::getIpPfxFromRule(const Acl::IpRuleConfig& rule) {
   pset_ = Nx::ipGenPrefixSetFactory();
   AclPrefix::AclToPrefix converter;
   converter.handleRule(rule, false);
   for (const auto& iv : converter.permittedPrefixes()) {
      // first/last, not upper - 1: an interval ending at the top address is closed.
      AclPrefix::AclToPrefix::ip4RangeToPrefixes(boost::icl::first(iv), boost::icl::last(iv),
                                                 *pset_);
   }
}

void IpAclConfigSm::getIp6PfxFromRule(const Acl::Ip6RuleConfig& rule) {
   pset_ = Nx::ipGenPrefixSetFactory();
   AclIp6Prefix::AclToIp6Prefix converter;
   converter.handleRule(rule, false);
   for (const auto& iv : converter.permittedPrefixes()) {
      AclIp6Prefix::AclToIp6Prefix::ip6RangeToPrefixes(boost::icl::first(iv), boost::icl::last(iv),
                                                       *pset_);
   }
}

void IpAclConfigSm::formatDerivedType(std::ostream& os) const {
   os << "IpAclConfigSm " << name_;
}

Kel::Ptr<IpAclConfigSm> ipAclConfigSmFactory(
    Kel::String name, Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig,
    Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
    Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
    Kel::Ptr<Acl::AclConfig const> ipAccessList, Kel::Ptr<Kel::ActivityManager> activityManager) {
   return Kel::create<IpAclConfigSm>(std::move(name), std::move(ipConfig),
                                     std::move(allIpAclSymbol), std::move(ipAclSymbolTable),
                                     std::move(ipAccessList), std::move(activityManager));
}

// ---- IpAclTypeConfigSm ------------------------------------------------------------------------

IpAclTypeConfigSm::IpAclTypeConfigSm(
    Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig,
    Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
    Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
    Kel::Ptr<Kel::ActivityManager> activityManager)
    : ipConfig_(std::move(ipConfig)),
      allIpAclSymbol_(std::move(allIpAclSymbol)),
      ipAclSymbolTable_(std::move(ipAclSymbolTable)),
      activityManager_(std::move(activityManager)),
      configReactor_(this) {}

IpAclTypeConfigSm::~IpAclTypeConfigSm() {
   ipAccessListConfigSmDelAll();
}

void IpAclTypeConfigSm::handleInitialized() {
   KEL_ASSERT(ipConfig_ && allIpAclSymbol_ && ipAclSymbolTable_ && activityManager_);
   configReactor_.notifierIs(ipConfig_);
}

void IpAclTypeConfigSm::handleIpAccessList() {
   // Following a list runs reactions elsewhere, which may edit the configuration; walk a copy.
   const std::vector<std::pair<Kel::Name, Kel::Ptr<Acl::AclConfig const>>> lists(
       ipConfig_->acls().begin(), ipConfig_->acls().end());
   for (const auto& [name, acl] : lists) addIpAccessList(name, acl);
}

void IpAclTypeConfigSm::handleIpAccessList(const Kel::String& name) {
   if (const Kel::Ptr<Acl::AclConfig const> acl = ipConfig_->acl(name)) {
      addIpAccessList(name, acl);
      return;
   }
   if (name == kControlPlaneAcl) {
      KTRACE(8, *this, " ignoring ipAccess-list: " << name);
      return;
   }
   removeIpAccessList(name);
}

void IpAclTypeConfigSm::removeIpAccessList(const Kel::String& name) {
   KTRACE(8, *this, "removeIpAccessList " << name);
   if (const Kel::Ptr<RouteMap::IpAccessListSymbol> symbol = allIpAclSymbol_->symbol(name)) {
      // Holders that react to the bump must find the list undefined, not its last trie: a
      // removed list matches nothing, as a removed prefix list does.
      symbol->statusIs(nullptr);
      symbol->versionInc();
      allIpAclSymbol_->symbolDel(name);
   }
   ipAccessListConfigSmDel(name);
}

void IpAclTypeConfigSm::removeIpAccessListsNotIn(const Acl::Input::AclTypeConfig* next) {
   std::vector<Kel::String> gone;
   for (const auto& [name, sm] : ipAccessListConfigSm_.container()) {
      if (next == nullptr || !next->aclHas(name)) gone.push_back(name);
   }
   std::sort(gone.begin(), gone.end());  // the machines are hashed; holders hear in name order
   // The bumps run reactions elsewhere; this machine stays until they are all told.
   const Kel::Ptr<IpAclTypeConfigSm> self(refCount() > 0 ? this : nullptr);
   for (const Kel::String& name : gone) removeIpAccessList(name);
}

void IpAclTypeConfigSm::addIpAccessList(const Kel::String& name,
                                        const Kel::Ptr<Acl::AclConfig const>& acl) {
   if (name == kControlPlaneAcl) {
      KTRACE(8, *this, " ignoring ipAccess-list: " << name);
      return;
   }
   KTRACE(8, *this, "addIpAccessList " << name);
   // A list object replaced under its name is a new list: its machine starts afresh rather than
   // being refused as a reinstantiation with another argument.
   if (const auto sm = ipAccessListConfigSm_.get(name); sm && sm->ipAccessList() != acl) {
      ipAccessListConfigSmDel(name);
   }
   ipAccessListConfigSmIs(name, ipConfig_, allIpAclSymbol_, ipAclSymbolTable_, acl);
   if (allIpAclSymbol_->symbolHas(name)) return;
   const Kel::Ptr<RouteMap::IpAccessListSymbol> symbol =
       RouteMap::ipAccessListSymbolFactory(name)->dedup(ipAclSymbolTable_);
   // Matchers find a defined, empty list until the first build is published with the list's
   // own family.
   auto status = RouteMap::IpAccessListStatusIs(name);
   status->trieIs(PatriciaTrieWithNodeDataIs(name, Nx::AddressFamily::ipv4));
   symbol->statusIs(std::move(status));
   allIpAclSymbol_->symbolIs(symbol);
}

Kel::Ptr<IpAclConfigSm> IpAclTypeConfigSm::ipAccessListConfigSmIs(
    const Kel::String& name, const Kel::Ptr<Acl::Input::AclTypeConfig const>& ipConfig,
    const Kel::Ptr<RouteMap::AllIpAccessListSymbol>& allIpAclSymbol,
    const Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const>& ipAclSymbolTable,
    const Kel::Ptr<Acl::AclConfig const>& ipAccessList) {
   if (Kel::Ptr<IpAclConfigSm> sm = ipAccessListConfigSm_.get(name)) {
      refuseChangedArgument(sm->ipConfig(), ipConfig, "_ipConfig");
      refuseChangedArgument(sm->allIpAclSymbol(), allIpAclSymbol, "_allIpAclSymbol");
      refuseChangedArgument(sm->ipAclSymbolTable(), ipAclSymbolTable, "_ipAclSymbolTable");
      refuseChangedArgument(sm->ipAccessList(), ipAccessList, "_ipAccessList");
      return sm;
   }
   auto sm = ipAclConfigSmFactory(name, ipConfig, allIpAclSymbol, ipAclSymbolTable, ipAccessList,
                                  activityManager_);
   ipAccessListConfigSm_.set(name, sm);
   return sm;
}

void IpAclTypeConfigSm::ipAccessListConfigSmDel(const Kel::String& name) {
   // Destroyed only once out of the collection.
   const Kel::Ptr<IpAclConfigSm> sm = ipAccessListConfigSm_.get(name);
   ipAccessListConfigSm_.del(name);
}

void IpAclTypeConfigSm::ipAccessListConfigSmDelAll() {
   ipAccessListConfigSm_.delAll([](const Kel::String&) {});
}

void IpAclTypeConfigSm::formatDerivedType(std::ostream& os) const {
   os << "IpAclTypeConfigSm " << Acl::stringValue(ipConfig_->type());
}

Kel::Ptr<IpAclTypeConfigSm> ipAclTypeConfigSmFactory(
    Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig,
    Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
    Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
    Kel::Ptr<Kel::ActivityManager> activityManager) {
   return Kel::create<IpAclTypeConfigSm>(std::move(ipConfig), std::move(allIpAclSymbol),
                                         std::move(ipAclSymbolTable), std::move(activityManager));
}

// ---- AclConfigSm ------------------------------------------------------------------------------

AclConfigSm::AclConfigSm(Kel::Ptr<Acl::Input::Config const> aclConfig,
                         Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
                         Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
                         Kel::Ptr<Kel::ActivityManager> activityManager)
    : aclConfig_(std::move(aclConfig)),
      allIpAclSymbol_(std::move(allIpAclSymbol)),
      ipAclSymbolTable_(std::move(ipAclSymbolTable)),
      activityManager_(std::move(activityManager)),
      configReactor_(this) {}

AclConfigSm::~AclConfigSm() {
   ipConfigSmDelAll();
}

void AclConfigSm::handleInitialized() {
   KEL_ASSERT(aclConfig_ && allIpAclSymbol_ && ipAclSymbolTable_ && activityManager_);
   configReactor_.notifierIs(aclConfig_);
}

void AclConfigSm::handleConfig() {
   std::vector<Acl::AclType> types;
   for (const auto& [type, config] : aclConfig_->aclTypeConfigs()) types.push_back(type);
   for (const Acl::AclType type : types) handleConfig(type);
}

void AclConfigSm::handleConfig(Acl::AclType type) {
   KTRACE(8, *this, "handleConfig " << Acl::stringValue(type));
   if (!followedType(type)) return;
   if (!ipAclToggleEnabled()) return;
   const Kel::Ptr<Acl::Input::AclTypeConfig const> config = aclConfig_->aclTypeConfig(type);
   const Kel::Ptr<IpAclTypeConfigSm> current = ipConfigSm_.get(type);
   if (current && current->ipConfig() == config) return;
   // Lists that leave with the type's configuration are removed one by one first, so their
   // symbols stop answering with the last trie. Lists the new configuration keeps hold their
   // symbol and status until their new machine publishes.
   if (current) current->removeIpAccessListsNotIn(config.get());
   if (!config) {
      ipConfigSmDel(type);
      return;
   }
   ipConfigSmIs(type, ipAclTypeConfigSmFactory(config, allIpAclSymbol_, ipAclSymbolTable_,
                                               activityManager_));
}

void AclConfigSm::ipConfigSmIs(Acl::AclType type, Kel::Ptr<IpAclTypeConfigSm> sm) {
   if (!sm) {
      ipConfigSmDel(type);
      return;
   }
   const Kel::Ptr<IpAclTypeConfigSm> old = ipConfigSm_.get(type);
   ipConfigSm_.set(type, std::move(sm));
}

void AclConfigSm::ipConfigSmDel(Acl::AclType type) {
   const Kel::Ptr<IpAclTypeConfigSm> old = ipConfigSm_.get(type);
   ipConfigSm_.del(type);
}

void AclConfigSm::ipConfigSmDelAll() {
   ipConfigSm_.delAll([](Acl::AclType) {});
}

void AclConfigSm::formatDerivedType(std::ostream& os) const {
   os << "AclConfigSm";
}

Kel::Ptr<AclConfigSm> aclConfigSmFactory(
    Kel::Ptr<Acl::Input::Config const> aclConfig,
    Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
    Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
    Kel::Ptr<Kel::ActivityManager> activityManager) {
   return Kel::create<AclConfigSm>(std::move(aclConfig), std::move(allIpAclSymbol),
                                   std::move(ipAclSymbolTable), std::move(activityManager));
}

}  // namespace Routing::Policy
