#pragma once
// The bases of the machines that follow one route-map sequence (one configured MapEntry):
//
// - RmSeqConfigSymbolSmBase for the machines that compile the sequence. It owns the sequence's
//   change records and symbol sequences, which the concrete machine fills and the route map's
//   compiler folds into a new compiled sequence at the next version;
// - RmSeqConfigFilterSmBase for the machines that copy the sequence into the filtered
//   configuration.
//
// Both deliver the entry's notifications to their own handlers (RmSeqConfigHandlers) through a
// nested KelSeqConfig reactor, which hears nothing while the machine's notifications are off.
// The free functions below resolve the names and values that match clauses carry.

#include <iosfwd>
#include <memory>

#include "Orb/BaseOutputSm.h"
#include "Routing/RouteMap/Config.h"
#include "Routing/RouteMap/Options.h"
#include "Routing/RouteMap/PolicySymbol.h"
#include "Routing/RouteTypes.h"
#include "RoutingPolicy/config/Policy.h"
#include "RoutingPolicy/config/RouteMapConfigSmBase.h"
#include "RoutingPolicy/status/RouteMapSymbol.h"

namespace Routing::Policy {

class RmSeqConfigSmInterface : public Orb::BaseOutputSm {
public:
   // Whether the machine can translate a match rule of this option.
   virtual bool matchRuleSupported(Routing::RouteMap::MatchOption option) const = 0;
};

// A sequence machine's reactions to its entry. Each does nothing unless a machine needs it.
class RmSeqConfigHandlers {
public:
   virtual ~RmSeqConfigHandlers() = default;

   virtual void handlePermit() {}
   virtual void handleMatchRule(Routing::RouteMap::MatchOption) {}
   virtual void handleSetFlags() {}
   virtual void handleTag() {}
   virtual void handleDistance() {}
   virtual void handleMetric() {}
   virtual void handleContinueSeq() {}
   virtual void handleSubRouteMap() {}
   virtual void handleDescription(U32) {}
};

// Forwards an entry's notifications to a machine's handlers. It asks the machine's own flag at
// every notification, so switching the machine off silences its entry as well.
class RmSeqConfigReactor : public Routing::RouteMap::MapEntry::Reactor {
public:
   RmSeqConfigReactor(const Kel::Entity& machine, RmSeqConfigHandlers& handlers)
       : machine_(machine), handlers_(handlers) {}

   void handlePermit() override;
   void handleMatchRule(Routing::RouteMap::MatchOption option) override;
   void handleSetFlags() override;
   void handleTag() override;
   void handleDistance() override;
   void handleMetric() override;
   void handleContinueSeq() override;
   void handleSubRouteMap() override;
   void handleDescription(U32 index) override;

private:
   bool machineActive() const { return machine_.hasNotificationActive(); }

   const Kel::Entity& machine_;
   RmSeqConfigHandlers& handlers_;
};

class RmSeqConfigSymbolSmBase : public RmSeqConfigSmInterface, public RmSeqConfigHandlers {
public:
   using KelSeqConfig = RmSeqConfigReactor;

   // A null seqConfig is followed by no reactor, and its records carry sequence number 0.
   RmSeqConfigSymbolSmBase(Kel::String rmName,
                           Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
                           Kel::Ptr<RouteMapSymbol> rmSymbol,
                           Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor);
   ~RmSeqConfigSymbolSmBase() override;

   // A machine that does not say otherwise translates no match rule.
   bool matchRuleSupported(Routing::RouteMap::MatchOption) const override { return false; }

   const Kel::String& rmName() const { return rmName_; }
   Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig() const;
   // Follows another entry; one of another number brings fresh records, since records are
   // keyed by the number the compiler files them under.
   virtual void seqConfigIs(Kel::Ptr<Routing::RouteMap::MapEntry const> entry);
   virtual void seqConfigDel();
   const Kel::Ptr<RouteMapSymbol>& rmSymbol() const { return rmSymbol_; }
   const Kel::Ptr<RmConfigSymbolReactor>& rmConfigSymbolReactor() const {
      return rmConfigSymbolReactor_;
   }

   // Each ...Is(seqno) keeps the present record when it carries that number and otherwise
   // replaces it with a fresh one; it returns the record.
   const Kel::Ptr<SequenceChange>& sequenceChange() const { return sequenceChange_; }
   Kel::Ptr<SequenceChange> sequenceChangeIs(U32 seqno);
   void sequenceChangeDel() { sequenceChange_ = nullptr; }

   const Kel::Ptr<SequenceChangeSymbol>& sequenceChangeSym() const { return sequenceChangeSym_; }
   Kel::Ptr<SequenceChangeSymbol> sequenceChangeSymIs(U32 seqno);
   void sequenceChangeSymDel() { sequenceChangeSym_ = nullptr; }

   const Kel::Ptr<MatchSymbolSeq>& matchSymSeq() const { return matchSymSeq_; }
   Kel::Ptr<MatchSymbolSeq> matchSymSeqIs(U32 seqno);
   void matchSymSeqDel() { matchSymSeq_ = nullptr; }

   const Kel::Ptr<SetSymbolSeq>& setSymSeq() const { return setSymSeq_; }
   Kel::Ptr<SetSymbolSeq> setSymSeqIs(U32 seqno);
   void setSymSeqDel() { setSymSeq_ = nullptr; }

   const Kel::Ptr<SubRouteMapSymbolSeq>& subRmSymSeq() const { return subRmSymSeq_; }
   Kel::Ptr<SubRouteMapSymbolSeq> subRmSymSeqIs(U32 seqno);
   void subRmSymSeqDel() { subRmSymSeq_ = nullptr; }

   // Whether the sequence has changes its compiled status does not have yet. Matcher and setter
   // symbol changes do not count: they only say which symbols to follow, and what those symbols
   // bring reaches the compiled status through the pending updates of the symbol reactor.
   bool isModified() const;

   void formatDerivedType(std::ostream& os) const override;

protected:
   void handleInitialized() override;

private:
   void recordsIs(U32 seqno);

   Kel::String rmName_;
   std::unique_ptr<KelSeqConfig> seqConfig_;
   Kel::Ptr<RouteMapSymbol> rmSymbol_;
   Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor_;
   Kel::Ptr<SequenceChange> sequenceChange_;
   Kel::Ptr<SequenceChangeSymbol> sequenceChangeSym_;
   Kel::Ptr<MatchSymbolSeq> matchSymSeq_;
   Kel::Ptr<SetSymbolSeq> setSymSeq_;
   Kel::Ptr<SubRouteMapSymbolSeq> subRmSymSeq_;
};

Kel::Ptr<RmSeqConfigSymbolSmBase> rmSeqConfigSymbolSmBaseFactory(
    Kel::String rmName, Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
    Kel::Ptr<RouteMapSymbol> rmSymbol, Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor);

class RmSeqConfigFilterSmBase : public RmSeqConfigSmInterface, public RmSeqConfigHandlers {
public:
   using KelSeqConfig = RmSeqConfigReactor;

   // filteredRmConfig is not held: the owner of the filtered configuration outlives the machine.
   RmSeqConfigFilterSmBase(Kel::String rmName,
                           Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig,
                           Kel::Ptr<Routing::RouteMap::MapEntry> filteredSeqConfig,
                           Routing::RouteMap::Config* filteredRmConfig,
                           Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
                           Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier);
   ~RmSeqConfigFilterSmBase() override;

   const Kel::String& rmName() const { return rmName_; }
   Kel::Ptr<Routing::RouteMap::MapEntry const> seqConfig() const;
   virtual void seqConfigIs(Kel::Ptr<Routing::RouteMap::MapEntry const> entry);
   virtual void seqConfigDel();
   const Kel::Ptr<Routing::RouteMap::MapEntry>& filteredSeqConfig() const {
      return filteredSeqConfig_;
   }
   Routing::RouteMap::Config* filteredRmConfig() const { return filteredRmConfig_; }
   const Kel::Ptr<RouteMapBlockedSequenceList>& routeMapBlockedSequenceList() const {
      return routeMapBlockedSequenceList_;
   }
   const Kel::Ptr<RouteMapUpdateNotifier const>& routeMapUpdateNotifier() const {
      return routeMapUpdateNotifier_;
   }

   void formatDerivedType(std::ostream& os) const override;

private:
   Kel::String rmName_;
   std::unique_ptr<KelSeqConfig> seqConfig_;
   Kel::Ptr<Routing::RouteMap::MapEntry> filteredSeqConfig_;
   Routing::RouteMap::Config* filteredRmConfig_;
   Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList_;
   Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier_;
};

// The one symbol of the list of that name in `table`, so that every clause naming the list
// follows its definition through the same object.
Kel::Ptr<Routing::RouteMap::PrefixListSymbol> getPrefixListSymbol(
    const Kel::String& name, Kel::Ptr<Routing::RouteMap::PrefixListSymbolDedupTable> table);
Kel::Ptr<Routing::RouteMap::IpAccessListSymbol> getIpAccessListSymbol(
    const Kel::String& name, Kel::Ptr<Routing::RouteMap::IpAccessListSymbolDedupTable> table);

// The route protocol a "match source-protocol" value stands for. Protocol::protocolInvalid and
// values outside the enumeration are a caller's bug and stop the process.
Routing::RouteProto routeMapProtocolToRouteProto(Routing::RouteMap::Protocol protocol);

}  // namespace Routing::Policy
