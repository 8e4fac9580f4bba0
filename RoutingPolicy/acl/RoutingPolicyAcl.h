#pragma once
// Access lists into prefix tries. AclConfigSm follows the access-list configuration and keeps one
// IpAclTypeConfigSm per followed type (IP, IPv6); that machine keeps, per access list, the list's
// symbol and one IpAclConfigSm, which converts the list's rules into a new trie in time slices
// of the activity manager's clock and publishes the finished trie through the symbol.
//
// A trie holds one PrefixListEntryData per prefix of every permit or deny rule, under the rule's
// own sequence number, admitting every route prefix length from the prefix's own to the family's
// full length. Overlapping rules all stay in the trie; the access-list matcher picks the lowest
// sequence number among the entries that cover a route, which is first-match order. An IPv4 rule
// whose wildcard would cut its addresses into more than maxTrieRangesPerRule blocks goes into
// the status beside the trie as its source and wildcard (RouteMap::AclMaskRule) instead, and the
// matcher takes the lowest sequence number over both. No rule is ever left out.
//
// Everything runs on the agent's activity thread. Matchers on other threads only ever see
// published statuses, which are complete and never change again.

#include <map>
#include <unordered_map>
#include <vector>

#include "Acl/AclConfig.h"
#include "Acl/MatchPermit.h"
#include "Kel/Clock.h"
#include "Nx/IpGenPrefixSet.h"
#include "Orb/BaseOutputSm.h"
#include "Routing/PatriciaTrie.h"
#include "Routing/RouteMap/ListStatus.h"
#include "Routing/RouteMap/PolicySymbol.h"

namespace Routing::Policy {

// The feature toggle "RoutingPolicyIpAclToggle", read once per process (default on) and kept:
// access-list matching is either part of this agent's life or not.
bool ipAclToggleEnabled();

// Adds the entry of one rule prefix to `trie`: the rule's sequence number and sense, admitting
// the prefix's own length up to the family's full length.
void addIpAclEntryToTrie(const Kel::Ptr<PatriciaTrieWithNodeData>& trie, U32 seqno,
                         const Nx::IpGenPrefix& prefix, const Acl::MatchPermit& permit);

// One access list into one trie. A build starts from the first rule on every version change of
// the list (a paused build is dropped with its partial trie) and runs in slices: at least one
// permit or deny rule per slice, and none started once the slice's quantum is spent, so a slice
// overruns the quantum by at most one rule. Between slices the clock is due at 0, so other due
// work of the loop runs first. Only a finished trie is published.
class IpAclConfigSm : public Orb::BaseOutputSm {
public:
   // Beyond this many blocks an IPv4 rule is kept as a mask rule. Up to it, a rule costs at most
   // this many trie entries (about 25 kB) and nothing per match; past it, 16 bytes and a mask
   // test in every match that gets as far as its sequence number. 256 keeps a wildcard octet
   // (x.y.*.z, 256 blocks) in the trie.
   static constexpr U64 maxTrieRangesPerRule = 256;

   IpAclConfigSm(Kel::String name, Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig,
                 Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
                 Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
                 Kel::Ptr<Acl::AclConfig const> ipAccessList,
                 Kel::Ptr<Kel::ActivityManager> activityManager);
   ~IpAclConfigSm() override;

   const Kel::String& name() const { return name_; }
   const Kel::Ptr<Acl::Input::AclTypeConfig const>& ipConfig() const { return ipConfig_; }
   const Kel::Ptr<RouteMap::AllIpAccessListSymbol>& allIpAclSymbol() const {
      return allIpAclSymbol_;
   }
   const Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const>& ipAclSymbolTable() const {
      return ipAclSymbolTable_;
   }
   const Kel::Ptr<Acl::AclConfig const>& ipAccessList() const { return ipAccessList_; }
   const Kel::Ptr<Kel::ActivityManager>& activityManager() const { return activityManager_; }
   // Null until the machine has started.
   const Kel::Ptr<Kel::Clock const>& clock() const { return clockReactor_.notifier(); }

   U32 bookmarkSeq() const { return bookmarkSeq_; }
   // Sequence number of the rule the next slice starts at; 0 for the first rule.
   U32 bookmark() const { return bookmark_; }
   Kel::Seconds clockQuantum() const { return clockQuantum_; }
   void clockQuantumIs(Kel::Seconds q) { clockQuantum_ = q; }
   // The trie under construction; null while no build is in progress.
   const Kel::Ptr<PatriciaTrieWithNodeData>& newTrie() const { return newTrie_; }
   const Kel::Ptr<Nx::IpGenPrefixSet>& pset() const { return pset_; }
   // The mask rules of the build in progress, in sequence order; published with the trie.
   const std::vector<RouteMap::AclMaskRule>& newMaskRules() const { return newMaskRules_; }
   // True once the machine has taken its clock and looked at its list. Hides
   // Kel::Machine::initialized(), which turns true before that happens.
   bool initialized() const { return initialized_; }
   Nx::AddressFamily af() const;

   void handleIpAccessPrefixEntry();
   void handleIpAccessListVersion();
   void processClock();
   void getIpPfxFromRule(const Acl::IpRuleConfig& rule);
   void getIp6PfxFromRule(const Acl::Ip6RuleConfig& rule);

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;

private:
   struct AclReactor : Acl::AclConfig::Reactor {
      explicit AclReactor(IpAclConfigSm* o) : owner(o) {}
      IpAclConfigSm* owner;
      void handleNotifierIs() override;
      void handleVersion() override;
   };
   struct ClockReactor : Kel::Clock::Reactor {
      explicit ClockReactor(IpAclConfigSm* o) : owner(o) {}
      IpAclConfigSm* owner;
      void handleNotifierIs() override {
         if (notifier()) owner->processClock();
      }
      void handleTime() override { owner->processClock(); }
   };

   // The prefixes of pset into the new trie under the rule's sequence number and sense.
   void addPrefixes(U32 seqno, Acl::AclAction action);
   void publish(const Kel::Ptr<RouteMap::IpAccessListSymbol>& symbol);

   const Kel::String name_;
   const Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig_;
   const Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol_;
   const Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable_;
   const Kel::Ptr<Acl::AclConfig const> ipAccessList_;
   const Kel::Ptr<Kel::ActivityManager> activityManager_;
   // The clock reactor holds the clock read-only; due times are set through this one.
   Kel::Ptr<Kel::Clock> ownClock_;
   U32 bookmarkSeq_ = 0;
   U32 bookmark_ = 0;
   Kel::Seconds clockQuantum_ = 0.01;
   Kel::Ptr<PatriciaTrieWithNodeData> newTrie_;
   Kel::Ptr<Nx::IpGenPrefixSet> pset_;
   std::vector<RouteMap::AclMaskRule> newMaskRules_;
   bool initialized_ = false;
   AclReactor aclReactor_;
   ClockReactor clockReactor_;
};

Kel::Ptr<IpAclConfigSm> ipAclConfigSmFactory(
    Kel::String name, Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig,
    Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
    Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
    Kel::Ptr<Acl::AclConfig const> ipAccessList, Kel::Ptr<Kel::ActivityManager> activityManager);

// The access lists of one type: one IpAclConfigSm and one symbol per list.
class IpAclTypeConfigSm : public Orb::BaseOutputSm {
public:
   using IpAclConfigSmColl =
       Kel::Collection<Kel::String, Kel::Ptr<IpAclConfigSm>,
                       std::unordered_map<Kel::String, Kel::Ptr<IpAclConfigSm>>>;

   IpAclTypeConfigSm(Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig,
                     Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
                     Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
                     Kel::Ptr<Kel::ActivityManager> activityManager);
   ~IpAclTypeConfigSm() override;

   const Kel::Ptr<Acl::Input::AclTypeConfig const>& ipConfig() const { return ipConfig_; }
   const Kel::Ptr<RouteMap::AllIpAccessListSymbol>& allIpAclSymbol() const {
      return allIpAclSymbol_;
   }
   const Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const>& ipAclSymbolTable() const {
      return ipAclSymbolTable_;
   }

   Kel::Ptr<IpAclConfigSm> ipAccessListConfigSm(const Kel::String& name) const {
      return ipAccessListConfigSm_.get(name);
   }
   bool ipAccessListConfigSmHas(const Kel::String& name) const {
      return ipAccessListConfigSm_.has(name);
   }
   const IpAclConfigSmColl& ipAccessListConfigSms() const { return ipAccessListConfigSm_; }
   // The machine of `name`, made with these constructor arguments when absent. An existing
   // machine is kept when every argument is the one it was made with; a different argument is
   // refused with Kel::RangeException ("Reinstantiating the pointer interface where constructor
   // parameter attribute _ipConfig has a different value of", and likewise for
   // _allIpAclSymbol, _ipAclSymbolTable, _ipAccessList). The activity manager is this machine's.
   Kel::Ptr<IpAclConfigSm> ipAccessListConfigSmIs(
       const Kel::String& name, const Kel::Ptr<Acl::Input::AclTypeConfig const>& ipConfig,
       const Kel::Ptr<RouteMap::AllIpAccessListSymbol>& allIpAclSymbol,
       const Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const>& ipAclSymbolTable,
       const Kel::Ptr<Acl::AclConfig const>& ipAccessList);
   void ipAccessListConfigSmDel(const Kel::String& name);
   void ipAccessListConfigSmDelAll();

   void handleIpAccessList();
   void handleIpAccessList(const Kel::String& name);
   void addIpAccessList(const Kel::String& name, const Kel::Ptr<Acl::AclConfig const>& acl);
   // Stops following `name`: its symbol is given a null status and a version bump (so route
   // maps that match on it match nothing), then leaves allIpAclSymbol, and the list's machine
   // is destroyed.
   void removeIpAccessList(const Kel::String& name);
   // removeIpAccessList for every followed list that `next` does not hold, all of them when it
   // is null: for a type configuration that is removed or replaced.
   void removeIpAccessListsNotIn(const Acl::Input::AclTypeConfig* next);

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;

private:
   struct ConfigReactor : Acl::Input::AclTypeConfig::Reactor {
      explicit ConfigReactor(IpAclTypeConfigSm* o) : owner(o) {}
      IpAclTypeConfigSm* owner;
      void handleNotifierIs() override {
         if (notifier() && hasNotificationActive()) owner->handleIpAccessList();
      }
      void handleAcl(const Kel::Name& name) override {
         if (!name.empty()) owner->handleIpAccessList(name);
      }
   };

   const Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig_;
   const Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol_;
   const Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable_;
   const Kel::Ptr<Kel::ActivityManager> activityManager_;
   IpAclConfigSmColl ipAccessListConfigSm_;
   ConfigReactor configReactor_;
};

Kel::Ptr<IpAclTypeConfigSm> ipAclTypeConfigSmFactory(
    Kel::Ptr<Acl::Input::AclTypeConfig const> ipConfig,
    Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
    Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
    Kel::Ptr<Kel::ActivityManager> activityManager);

// The whole access-list configuration: one IpAclTypeConfigSm per followed type. Nothing is
// followed while the toggle "RoutingPolicyIpAclToggle" is off.
class AclConfigSm : public Orb::BaseOutputSm {
public:
   using IpAclTypeConfigSmColl = Kel::Collection<Acl::AclType, Kel::Ptr<IpAclTypeConfigSm>>;

   AclConfigSm(Kel::Ptr<Acl::Input::Config const> aclConfig,
               Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
               Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
               Kel::Ptr<Kel::ActivityManager> activityManager);
   ~AclConfigSm() override;

   const Kel::Ptr<Acl::Input::Config const>& aclConfig() const { return aclConfig_; }
   const Kel::Ptr<RouteMap::AllIpAccessListSymbol>& allIpAclSymbol() const {
      return allIpAclSymbol_;
   }
   const Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const>& ipAclSymbolTable() const {
      return ipAclSymbolTable_;
   }

   Kel::Ptr<IpAclTypeConfigSm> ipConfigSm(Acl::AclType type) const { return ipConfigSm_.get(type); }
   bool ipConfigSmHas(Acl::AclType type) const { return ipConfigSm_.has(type); }
   // Replaces the type's machine; a null machine removes it.
   void ipConfigSmIs(Acl::AclType type, Kel::Ptr<IpAclTypeConfigSm> sm);
   void ipConfigSmDel(Acl::AclType type);
   void ipConfigSmDelAll();

   void handleConfig();
   void handleConfig(Acl::AclType type);

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;

private:
   struct ConfigReactor : Acl::Input::Config::Reactor {
      explicit ConfigReactor(AclConfigSm* o) : owner(o) {}
      AclConfigSm* owner;
      void handleNotifierIs() override {
         if (notifier() && hasNotificationActive()) owner->handleConfig();
      }
      void handleAclTypeConfig(Acl::AclType type) override { owner->handleConfig(type); }
   };

   const Kel::Ptr<Acl::Input::Config const> aclConfig_;
   const Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol_;
   const Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable_;
   const Kel::Ptr<Kel::ActivityManager> activityManager_;
   IpAclTypeConfigSmColl ipConfigSm_;
   ConfigReactor configReactor_;
};

Kel::Ptr<AclConfigSm> aclConfigSmFactory(
    Kel::Ptr<Acl::Input::Config const> aclConfig,
    Kel::Ptr<RouteMap::AllIpAccessListSymbol> allIpAclSymbol,
    Kel::Ptr<RouteMap::IpAccessListSymbolDedupTable const> ipAclSymbolTable,
    Kel::Ptr<Kel::ActivityManager> activityManager);

}  // namespace Routing::Policy
