#pragma once
// The two records that cross the evaluation boundary: what a route looks like to the matchers
// (MatchInput_) and what the setters of a permitting policy write (Result_).

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Entity.h"
#include "Nx/IpAddr.h"
#include "Nx/IpGenPrefix.h"
#include "Orb/MaybeU63.h"
#include "Routing/RouteTypes.h"
#include "RoutingPolicy/eval/IntfIdSet.h"

namespace Routing::Policy {

class Setter;

enum class PolicyApplicationType : U32 {
   bgp = 0,
   redistIgp = 1,
   defaultApplication = 2,
};

std::string stringValue(PolicyApplicationType t);
// From a number (range-checked) or from an enumerator's name.
PolicyApplicationType PolicyApplicationTypeInstance(U32 value);
PolicyApplicationType PolicyApplicationTypeInstance(std::string_view name);

// Agents derive from this to hand the evaluator their own route representation; matchers only
// ever read through the virtual getters.
class MatchInput_ {
public:
   MatchInput_() = default;
   MatchInput_(const MatchInput_&) = default;
   MatchInput_& operator=(const MatchInput_&) = default;
   virtual ~MatchInput_() = default;

   virtual Orb::MaybeU63 getMetric() const { return metric_; }
   virtual RouteProto getProtocol() const { return protocol_; }
   // A pointer, not a copy: prefix-list walks read it in place.
   virtual const Nx::IpGenPrefix* getPrefixPointer() const { return &prefix_; }
   virtual Nx::IpGenAddr getNexthop() const { return nexthop_; }
   virtual Nx::IpAddr getRouterId() const { return routerId_; }
   virtual Nx::IpGenAddr getResolvedNexthop() const { return resolvedNexthop_; }
   virtual Kel::Ptr<IntfIdSet const> getIntfIdSet() const { return intfIdSet_; }
   virtual RouteTag getTag() const { return tag_; }

   const Orb::MaybeU63& metric() const { return metric_; }
   void metricIs(const Orb::MaybeU63& v) { metric_ = v; }
   RouteProto protocol() const { return protocol_; }
   void protocolIs(RouteProto v) { protocol_ = v; }
   const Nx::IpGenPrefix& prefix() const { return prefix_; }
   void prefixIs(const Nx::IpGenPrefix& v) { prefix_ = v; }
   const Nx::IpGenAddr& nexthop() const { return nexthop_; }
   void nexthopIs(const Nx::IpGenAddr& v) { nexthop_ = v; }
   Nx::IpAddr routerId() const { return routerId_; }
   void routerIdIs(Nx::IpAddr v) { routerId_ = v; }
   const Nx::IpGenAddr& resolvedNexthop() const { return resolvedNexthop_; }
   void resolvedNexthopIs(const Nx::IpGenAddr& v) { resolvedNexthop_ = v; }
   RouteTag tag() const { return tag_; }
   void tagIs(RouteTag v) { tag_ = v; }
   const Kel::Ptr<IntfIdSet const>& intfIdSet() const { return intfIdSet_; }
   void intfIdSetIs(Kel::Ptr<IntfIdSet const> v) { intfIdSet_ = std::move(v); }
   bool matchIntf() const { return matchIntf_; }
   void matchIntfIs(bool v) { matchIntf_ = v; }

   // Interface sets compare by content; a null set equals only a null set.
   bool operator==(const MatchInput_& o) const;
   bool operator!() const;

   std::string toStrep() const;
   static MatchInput_ fromStrep(std::string_view text);

private:
   Orb::MaybeU63 metric_;
   RouteProto protocol_ = RouteProto::unknown;
   Nx::IpGenPrefix prefix_;
   Nx::IpGenAddr nexthop_;
   Nx::IpAddr routerId_;
   Nx::IpGenAddr resolvedNexthop_;
   RouteTag tag_;
   Kel::Ptr<IntfIdSet const> intfIdSet_;
   bool matchIntf_ = false;
};

// Setters that asked to run after all others. The setters belong to their sequences; the list
// only points at them, and keeps them in the order in which they asked.
class DeferredPolicySetters : public Kel::Entity {
public:
   using List = std::vector<const Setter*>;

   class Reactor : public Kel::ReactorFor<DeferredPolicySetters> {
   public:
      virtual void handleDeferredSetter() {}
   };

   bool deferredSetter(const Setter* s) const;
   void deferredSetterIs(const Setter* s);
   // Removes the first occurrence only: a setter listed twice stays listed once.
   void deferredSetterDel(const Setter* s);
   void deferredSetterDelAll();

   const List& deferredSetterList() const { return deferredSetter_; }
   std::size_t size() const { return deferredSetter_.size(); }

private:
   List deferredSetter_;
};

Kel::Ptr<DeferredPolicySetters> deferredPolicySettersFactory();

class Result_ {
public:
   Result_() = default;
   Result_(const Result_&) = default;
   Result_& operator=(const Result_&) = default;
   virtual ~Result_() = default;

   virtual PolicyApplicationType applicationType() const {
      return PolicyApplicationType::defaultApplication;
   }

   RoutePreference preference() const { return preference_; }
   void preferenceIs(RoutePreference v) { preference_ = v; }
   RouteTag tag() const { return tag_; }
   void tagIs(RouteTag v) { tag_ = v; }
   const Orb::MaybeU63& metric() const { return metric_; }
   void metricIs(const Orb::MaybeU63& v) { metric_ = v; }
   const Kel::Ptr<DeferredPolicySetters>& dps() const { return dps_; }
   void dpsIs(Kel::Ptr<DeferredPolicySetters> v) { dps_ = std::move(v); }

   const Kel::Ptr<DeferredPolicySetters>& deferredSetters() const { return dps_; }
   bool deferredSetter(const Setter* s) const { return dps_ && dps_->deferredSetter(s); }
   void deferredSetterIs(const Setter* s);
   void deferredSetterDel(const Setter* s);
   void deferredSetterDelAll();

   // dps compares by identity: two results that deferred the same setters into different lists
   // are different results.
   bool operator==(const Result_& o) const;
   bool operator!() const;

   std::string toStrep() const;
   // dps cannot be rebuilt from text (it points at compiled setters); only None reads back.
   static Result_ fromStrep(std::string_view text);

private:
   RoutePreference preference_;
   RouteTag tag_;
   Orb::MaybeU63 metric_;
   Kel::Ptr<DeferredPolicySetters> dps_;
};

}  // namespace Routing::Policy
