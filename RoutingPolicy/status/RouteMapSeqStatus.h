#pragma once
// One compiled sequence of a route map. Immutable once published: a configuration change makes
// a new sequence (newFrom) that shares its clause objects with the old one.

#include <boost/container/flat_map.hpp>

#include "Acl/MatchPermit.h"
#include "Orb/BaseNotifyingType.h"
#include "Orb/Dump.h"
#include "Routing/RouteMap/Options.h"
#include "RoutingPolicy/eval/Matcher.h"
#include "RoutingPolicy/eval/Setter.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"

namespace Routing::Policy {

class RouteMapStatus;

class RouteMapSeqStatus : public Orb::BaseNotifyingType {
public:
   // Sorted vectors: a sequence has a handful of clauses, read for every route in key order.
   using MatcherMap = boost::container::flat_map<RouteMap::MatchOption, Kel::Ptr<Matcher const>>;
   using SetterMap = boost::container::flat_map<RouteMap::SetOption, Kel::Ptr<Setter const>>;

   class Reactor : public Kel::ReactorFor<RouteMapSeqStatus> {
   public:
      virtual void handleMatcher(RouteMap::MatchOption) {}
      virtual void handleSetter(RouteMap::SetOption) {}
      virtual void handleSubRouteMap() {}
      virtual void handleSubInvert() {}
      virtual void handleMatchAction() {}
      virtual void handleContinueSeq() {}
   };

   explicit RouteMapSeqStatus(U32 seqno);
   ~RouteMapSeqStatus() override;

   // A copy of every attribute of `source` but the number.
   static Kel::Ptr<RouteMapSeqStatus> newFrom(const Kel::Ptr<RouteMapSeqStatus const>& source,
                                              U32 seqno);

   U32 seqno() const { return seqno_; }

   Kel::Ptr<Matcher const> matcher(RouteMap::MatchOption o) const { return attr_.matcher.get(o); }
   bool matcherHas(RouteMap::MatchOption o) const { return attr_.matcher.has(o); }
   // A null matcher removes the option.
   void matcherIs(RouteMap::MatchOption o, Kel::Ptr<Matcher const> m);
   void matcherDel(RouteMap::MatchOption o);
   void matcherDelAll();
   const MatcherMap& matcherMap() const { return attr_.matcher.container(); }
   std::size_t matcherSize() const { return attr_.matcher.size(); }

   Kel::Ptr<Setter const> setter(RouteMap::SetOption o) const { return attr_.setter.get(o); }
   bool setterHas(RouteMap::SetOption o) const { return attr_.setter.has(o); }
   void setterIs(RouteMap::SetOption o, Kel::Ptr<Setter const> s);
   void setterDel(RouteMap::SetOption o);
   void setterDelAll();
   const SetterMap& setterMap() const { return attr_.setter.container(); }
   std::size_t setterSize() const { return attr_.setter.size(); }

   Kel::Ptr<RouteMapStatus const> subRouteMap() const;
   // The evaluator's view: no reference taken per route.
   const RouteMapStatus* subRouteMapRawPtr() const { return attr_.subRouteMap.get(); }
   void subRouteMapIs(Kel::Ptr<RouteMapStatus const> rm);

   bool subInvert() const { return attr_.subInvert; }
   void subInvertIs(bool v) { setAttr(attr_.subInvert, v, &Reactor::handleSubInvert); }

   Acl::MatchPermit matchAction() const { return attr_.matchAction; }
   void matchActionIs(Acl::MatchPermit v) {
      setAttr(attr_.matchAction, v, &Reactor::handleMatchAction);
   }

   const Kel::Ptr<RouteMapSeqStatus const>& continueSeq() const { return attr_.continueSeq; }
   void continueSeqIs(Kel::Ptr<RouteMapSeqStatus const> target);

   // What this sequence, including the route map it calls, needs from a route.
   RouteMapFeatures getFeatures() const;

   void dumpState(Orb::DumpContext& ctx, U32 indent) const;

private:
   friend class Orb::BaseNotifyingType;

   U32 seqno_;
   struct {
      Kel::Collection<RouteMap::MatchOption, Kel::Ptr<Matcher const>, MatcherMap> matcher;
      Kel::Collection<RouteMap::SetOption, Kel::Ptr<Setter const>, SetterMap> setter;
      Kel::Ptr<RouteMapStatus const> subRouteMap;
      bool subInvert = false;
      Acl::MatchPermit matchAction = Acl::MatchPermit::permit;
      Kel::Ptr<RouteMapSeqStatus const> continueSeq;
   } attr_;
};

Kel::Ptr<RouteMapSeqStatus> routeMapSeqStatusFactory(U32 seqno);

}  // namespace Routing::Policy
