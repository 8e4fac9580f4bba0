#pragma once
// A whole agent on the common-component machines: route-map, prefix-list and access-list
// configuration, their compilers, one activity manager driving clocks and tasks, and a policy
// evaluator over the published route maps.

#include <string>
#include <utility>
#include <vector>

#include "Kel/Clock.h"
#include "Kel/System.h"
#include "Orb/Task.h"
#include "Routing/RouteMap/Config.h"
#include "Routing/RouteMap/PrefixListCompilerSm.h"
#include "Routing/RouteMap/PrefixListConfig.h"
#include "RoutingPolicy/acl/RoutingPolicyAcl.h"
#include "RoutingPolicy/common/CommonComponent.h"
#include "RoutingPolicy/config/RouteMapConfigSm.h"
#include "RoutingPolicy/eval/Policy.h"
#include "RoutingPolicy/eval/Result.h"

namespace common_test {

using namespace Routing::Policy;
using Routing::RouteMap::Config;
using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::MatchRule;
using Routing::RouteMap::PrefixListRule;
using Routing::RouteMap::Protocol;

struct Agent {
   Kel::Ptr<PolicyRoot> root = policyRootFactory();
   Kel::Ptr<Config> config = Routing::RouteMap::configFactory();
   Kel::Ptr<Config> filtered = Routing::RouteMap::configFactory();
   Kel::Ptr<AllRouteMapSymbol> symbols = allRouteMapSymbolFactory();
   Kel::Ptr<Orb::TaskScheduler> scheduler = Orb::taskSchedulerFactory();
   Kel::Ptr<Kel::ActivityManager> am = Kel::activityManagerFactory();
   Kel::Ptr<Routing::RouteMap::PrefixListConfigRoot> prefixLists =
       Routing::RouteMap::prefixListConfigRootFactory();
   Kel::Ptr<Acl::Input::Config> acls = Acl::Input::configFactory();
   Kel::Ptr<Routing::RouteMap::AllIpAccessListSymbol> aclSymbols =
       Routing::RouteMap::allIpAccessListSymbolFactory();
   Kel::Ptr<Routing::RouteMap::PrefixListCompilerSm> prefixListSm;
   Kel::Ptr<AclConfigSm> aclSm;
   Kel::Ptr<RouteMapConfigSm> routeMapSm;

   Agent() { am->workSourceIs(scheduler.get()); }
   ~Agent() {
      routeMapSm = nullptr;
      aclSm = nullptr;
      prefixListSm = nullptr;
      am->workSourceDel(scheduler.get());
   }
   Agent(const Agent&) = delete;
   Agent& operator=(const Agent&) = delete;

   void start() {
      prefixListSm = Routing::RouteMap::prefixListCompilerSmFactory(
          prefixLists, root->ipv4PrefixListTable(), root->ipv6PrefixListTable());
      aclSm = aclConfigSmFactory(acls, aclSymbols, root->ipAclListTable(), am);
      routeMapSm = routeMapConfigSmFactory(
          config, filtered, symbols, root, commonComponentRmConfigFilterSmHelperFactory(),
          commonComponentRmConfigSymbolSmHelperFactory(), scheduler);
   }
   void run() { am->runUntilIdle(); }
   // A batch of route-map edits reaches the compiled route map at the map's next version.
   void commit(const Kel::Name& name) {
      if (auto m = config->routeMap(name)) m->versionIs(m->version() + 1);
   }
   Kel::Ptr<RouteMapStatus const> status(const Kel::Name& name) const {
      return routeMapSymbolFactory(name)->dedup(root->routeMapTable())->rmStatus();
   }

   // Replaces a prefix list's rules and publishes them.
   void prefixList(Nx::AddressFamily af, const Kel::Name& name,
                   const std::vector<PrefixListRule>& rules) {
      auto pl = prefixLists->prefixListIs(af, name);
      pl->entryDelAll();
      for (const auto& r : rules) pl->entryIs(r);
      pl->versionIs(pl->version() + 1);
   }
   // Replaces an access list's rules: (seqno, permit, prefix).
   void accessList(const Kel::Name& name,
                   const std::vector<std::tuple<U32, bool, std::string>>& rules) {
      auto cfg = Acl::aclSubConfigFactory(Acl::AclType::ip);
      U64 id = 0;
      for (const auto& [seqno, permit, prefix] : rules) {
         cfg->ruleIdIs(seqno, Acl::UniqueId(++id));
         cfg->ipRuleIs(Acl::UniqueId(id),
                       {permit ? Acl::AclAction::permit : Acl::AclAction::deny,
                        Acl::IpFilter::prefix(Nx::IpGenPrefix::fromStrep(prefix))});
      }
      if (!acls->aclTypeConfigHas(Acl::AclType::ip)) {
         acls->aclTypeConfigIs(Acl::Input::aclTypeConfigFactory(Acl::AclType::ip));
      }
      const auto type = acls->aclTypeConfig(Acl::AclType::ip);
      if (auto acl = type->acl(name)) {
         acl->currCfgIs(std::move(cfg));
         acl->versionIs(acl->version() + 1);
         return;
      }
      auto acl = Acl::aclConfigFactory(name);
      acl->currCfgIs(std::move(cfg));
      acl->versionIs(1);
      type->aclIs(acl);
   }
};

struct Route {
   std::string prefix;
   U32 tag = 0;
   Protocol protocol = Protocol::connected;
};

struct Decision {
   bool permit = false;
   U32 tag = 0;
   U32 distance = 0;
   bool operator==(const Decision&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const Decision& d) {
   return os << (d.permit ? "permit" : "deny") << " tag " << d.tag << " distance " << d.distance;
}

inline Decision evaluate(const Kel::Ptr<RouteMapStatus const>& rm, const Route& route) {
   static const Kel::Ptr<PolicyEval> eval = policyEvalFactory();
   MatchInput_ in;
   in.prefixIs(Nx::IpGenPrefix::fromStrep(route.prefix));
   in.tagIs(Routing::RouteTag(route.tag));
   in.protocolIs(routeMapProtocolToRouteProto(route.protocol));
   MatchedRouteMapSequences matched;
   Result_ result;
   if (!rm || !eval->evalRouteMapMatchers(&in, rm.get(), &matched)) return {};
   eval->applyPolicySetters(&matched, &result);
   return {true, static_cast<U32>(result.tag().value()), result.preference().value()};
}

inline Kel::Ptr<MapEntry> entry(const Kel::Ptr<Config>& config, const Kel::Name& rm, U32 seqno,
                                bool permit = true) {
   auto e = config->routeMapIs(rm)->mapEntryIs(seqno);
   e->permitIs(permit);
   return e;
}

inline void setTag(const Kel::Ptr<MapEntry>& e, U32 tag) {
   e->tagIs(Routing::RouteTag(tag));
   e->setFlagsIs(e->setFlags() | MapEntry::tagFlag);
}

// The distance flag does not drive the distance setter, the value does: "set distance" writes
// the flag first and then the value.
inline void setDistance(const Kel::Ptr<MapEntry>& e, U32 distance) {
   e->setFlagsIs(e->setFlags() | MapEntry::distanceFlag);
   e->distanceIs(Routing::RoutePreference(distance));
}

// "no set distance": the flag goes and the value returns to unset.
inline void clearDistance(const Kel::Ptr<MapEntry>& e) {
   e->setFlagsIs(e->setFlags() & ~MapEntry::distanceFlag);
   e->distanceIs(Routing::RoutePreference());
}

inline void setContinue(const Kel::Ptr<MapEntry>& e, U32 target) {
   e->continueSeqIs(target);
   e->setFlagsIs(e->setFlags() | MapEntry::continueFlag);
}

}  // namespace common_test
