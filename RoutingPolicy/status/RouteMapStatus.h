#pragma once
// One compiled route map: its sequences in evaluation order and the summary of what they need
// from a route. Immutable once published; changes make a new object (newFrom, deepCopy) that
// shares what did not change.

#include <boost/container/flat_map.hpp>

#include "Kel/Types.h"
#include "Orb/BaseNotifyingType.h"
#include "Orb/Dump.h"
#include "RoutingPolicy/status/RouteMapSeqStatus.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"

namespace Routing::Policy {

class RouteMapStatus : public Orb::BaseNotifyingType {
public:
   // A sorted vector: evaluation walks it in order for every route, and continue targets are
   // found by binary search.
   using SeqStatusMap = boost::container::flat_map<U32, Kel::Ptr<RouteMapSeqStatus const>>;

   class Reactor : public Kel::ReactorFor<RouteMapStatus> {
   public:
      virtual void handleSeqStatus(U32) {}
      virtual void handleFeatures() {}
      virtual void handleUpdateFeaturesOnSeqStatusChange() {}
      virtual void handleUndefinedReferences() {}
   };

   explicit RouteMapStatus(Kel::String name);
   ~RouteMapStatus() override;

   // A new route map of the given name holding the same sequence objects as `source`.
   static Kel::Ptr<RouteMapStatus> newFrom(const Kel::Ptr<RouteMapStatus const>& source,
                                           Kel::String name);
   // A copy with new sequence objects (clauses and sub route maps still shared). Continue
   // targets are left out: they point into the source, and the caller resolves them again
   // against the copy. undefinedReferences starts afresh.
   Kel::Ptr<RouteMapStatus> deepCopy() const;

   const Kel::String& name() const { return name_; }

   Kel::Ptr<RouteMapSeqStatus const> seqStatus(U32 seqno) const {
      return attr_.seqStatus.get(seqno);
   }
   bool seqStatusHas(U32 seqno) const { return attr_.seqStatus.has(seqno); }
   // Filed under the sequence's own number; null is refused with a range error.
   void seqStatusIs(Kel::Ptr<RouteMapSeqStatus const> seq);
   void seqStatusDel(U32 seqno);
   void seqStatusDelAll();
   const SeqStatusMap& seqStatusMap() const { return attr_.seqStatus.container(); }
   std::size_t seqStatusSize() const { return attr_.seqStatus.size(); }

   const RouteMapFeatures& features() const { return attr_.features; }
   void featuresIs(const RouteMapFeatures& f) {
      setAttr(attr_.features, f, &Reactor::handleFeatures);
   }

   bool updateFeaturesOnSeqStatusChange() const { return attr_.updateFeaturesOnSeqStatusChange; }
   void updateFeaturesOnSeqStatusChangeIs(bool v) {
      setAttr(attr_.updateFeaturesOnSeqStatusChange, v,
              &Reactor::handleUpdateFeaturesOnSeqStatusChange);
   }

   U8 undefinedReferences() const { return attr_.undefinedReferences; }
   void undefinedReferencesIs(U8 v) {
      setAttr(attr_.undefinedReferences, v, &Reactor::handleUndefinedReferences);
   }

   // Recomputes features from the sequences and turns per-change recomputation back on.
   void updateFeatures();
   void handleSeqStatus();

   void dumpState(Orb::DumpContext& ctx, U32 indent) const;

private:
   friend class Orb::BaseNotifyingType;

   Kel::String name_;
   struct {
      Kel::Collection<U32, Kel::Ptr<RouteMapSeqStatus const>, SeqStatusMap> seqStatus;
      RouteMapFeatures features;
      bool updateFeaturesOnSeqStatusChange = true;
      U8 undefinedReferences = 255;
   } attr_;
};

Kel::Ptr<RouteMapStatus> routeMapStatusFactory(Kel::String name);

}  // namespace Routing::Policy
