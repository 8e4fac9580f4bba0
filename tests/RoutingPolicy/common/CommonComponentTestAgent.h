#pragma once
// The agent layer's PolicyAgent, driven through its entities rather than configuration text, so
// that the tests can make every kind of edit (and start the machines on a configuration that is
// already there), with helpers that write lists and sequences the way an agent does.

#include <string>
#include <utility>
#include <vector>

#include "Kel/System.h"
#include "RoutingPolicy/eval/Policy.h"
#include "RoutingPolicy/eval/Result.h"
#include "agent/PolicyAgent.h"
#include "../RouteMapEdits.h"

namespace common_test {

using namespace rm_edit;

using namespace Routing::Policy;
using Routing::RouteMap::Config;
using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::MatchRule;
using Routing::RouteMap::PrefixListRule;
using Routing::RouteMap::Protocol;

// The real agent on the common component's profile, started when the test says so, with the
// names the tests read.
struct Agent : Routing::Policy::agent::PolicyAgent {
   Agent() : PolicyAgent(Start::deferred, Routing::Policy::agent::Profile::common) {}

   const Kel::Ptr<PolicyRoot>& root = policyRoot();
   const Kel::Ptr<Config>& config = routeMapConfig();
   const Kel::Ptr<Config>& filtered = filteredConfig();
   const Kel::Ptr<Kel::ActivityManager>& am = activityManager();
   const Kel::Ptr<Routing::RouteMap::PrefixListConfigRoot>& prefixLists = prefixListConfig();
   const Kel::Ptr<Acl::Input::Config>& acls = accessListConfig();
   const Kel::Ptr<AclConfigSm>& aclSm = aclConfigSm();
   const Kel::Ptr<RouteMapConfigSm>& routeMapSm = routeMapConfigSm();

   void run() { runUntilIdle(); }
   // A batch of route-map edits reaches the compiled route map at the map's next version.
   void commit(const Kel::Name& name) {
      if (auto m = config->routeMap(name)) m->versionIs(m->version() + 1);
   }
   Kel::Ptr<RouteMapStatus const> status(const Kel::Name& name) const {
      return routeMapStatus(name);
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

}  // namespace common_test
