#include "RoutingPolicy/config/RouteMapSeqConfigSmBase.h"

#include <ostream>

#include "Kel/Assert.h"
#include "Kel/Trace.h"

KEL_TRACE_HANDLE("RouteMapSeqConfigSmBase");

namespace Routing::Policy {

using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::Protocol;

// --- RmSeqConfigReactor

void RmSeqConfigReactor::handlePermit() {
   if (machineActive()) handlers_.handlePermit();
}
void RmSeqConfigReactor::handleMatchRule(MatchOption option) {
   if (machineActive()) handlers_.handleMatchRule(option);
}
void RmSeqConfigReactor::handleSetFlags() {
   if (machineActive()) handlers_.handleSetFlags();
}
void RmSeqConfigReactor::handleTag() {
   if (machineActive()) handlers_.handleTag();
}
void RmSeqConfigReactor::handleDistance() {
   if (machineActive()) handlers_.handleDistance();
}
void RmSeqConfigReactor::handleMetric() {
   if (machineActive()) handlers_.handleMetric();
}
void RmSeqConfigReactor::handleContinueSeq() {
   if (machineActive()) handlers_.handleContinueSeq();
}
void RmSeqConfigReactor::handleSubRouteMap() {
   if (machineActive()) handlers_.handleSubRouteMap();
}
void RmSeqConfigReactor::handleDescription(U32 index) {
   if (machineActive()) handlers_.handleDescription(index);
}

namespace {

// Binds `slot` to `entry`, making the reactor on first use and dropping it for a null entry.
void followEntry(std::unique_ptr<RmSeqConfigReactor>& slot, const Kel::Entity& machine,
                 RmSeqConfigHandlers& handlers, Kel::Ptr<MapEntry const> entry) {
   if (!entry) {
      slot.reset();
      return;
   }
   if (!slot) slot = std::make_unique<RmSeqConfigReactor>(machine, handlers);
   slot->notifierIs(std::move(entry));
}

Kel::Ptr<MapEntry const> followedEntry(const std::unique_ptr<RmSeqConfigReactor>& slot) {
   return slot ? slot->notifier() : nullptr;
}

template <class Record, class Factory>
Kel::Ptr<Record> keepOrMake(Kel::Ptr<Record>& slot, U32 seqno, Factory factory) {
   if (!slot || slot->seqno() != seqno) slot = factory(seqno);
   return slot;
}

}  // namespace

// --- RmSeqConfigSymbolSmBase

RmSeqConfigSymbolSmBase::RmSeqConfigSymbolSmBase(
    Kel::String rmName, Kel::Ptr<MapEntry const> seqConfig, Kel::Ptr<RouteMapSymbol> rmSymbol,
    Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor)
    : rmName_(std::move(rmName)),
      rmSymbol_(std::move(rmSymbol)),
      rmConfigSymbolReactor_(std::move(rmConfigSymbolReactor)) {
   followEntry(seqConfig_, *this, *this, std::move(seqConfig));
}

RmSeqConfigSymbolSmBase::~RmSeqConfigSymbolSmBase() {
   // Nothing may reach a machine that is coming apart; the records go before the mailbox and the
   // symbol, whose followers may still look at what the records named.
   seqConfig_.reset();
   sequenceChange_ = nullptr;
   sequenceChangeSym_ = nullptr;
   matchSymSeq_ = nullptr;
   setSymSeq_ = nullptr;
   subRmSymSeq_ = nullptr;
   rmConfigSymbolReactor_ = nullptr;
   rmSymbol_ = nullptr;
}

Kel::Ptr<MapEntry const> RmSeqConfigSymbolSmBase::seqConfig() const {
   return followedEntry(seqConfig_);
}

void RmSeqConfigSymbolSmBase::seqConfigIs(Kel::Ptr<MapEntry const> entry) {
   followEntry(seqConfig_, *this, *this, std::move(entry));
   if (initialized() && seqConfig_) recordsIs(seqConfig_->notifier()->seqno());
}

void RmSeqConfigSymbolSmBase::seqConfigDel() {
   seqConfig_.reset();
}

void RmSeqConfigSymbolSmBase::handleInitialized() {
   const Kel::Ptr<MapEntry const> entry = seqConfig();
   const U32 seqno = entry ? entry->seqno() : 0;
   KTRACE(8, *this, "handleInitialized seqno:" << seqno);
   recordsIs(seqno);
}

void RmSeqConfigSymbolSmBase::recordsIs(U32 seqno) {
   sequenceChangeIs(seqno);
   sequenceChangeSymIs(seqno);
   matchSymSeqIs(seqno);
   setSymSeqIs(seqno);
   subRmSymSeqIs(seqno);
}

Kel::Ptr<SequenceChange> RmSeqConfigSymbolSmBase::sequenceChangeIs(U32 seqno) {
   return keepOrMake(sequenceChange_, seqno, sequenceChangeFactory);
}

Kel::Ptr<SequenceChangeSymbol> RmSeqConfigSymbolSmBase::sequenceChangeSymIs(U32 seqno) {
   return keepOrMake(sequenceChangeSym_, seqno, sequenceChangeSymbolFactory);
}

Kel::Ptr<MatchSymbolSeq> RmSeqConfigSymbolSmBase::matchSymSeqIs(U32 seqno) {
   return keepOrMake(matchSymSeq_, seqno, matchSymbolSeqFactory);
}

Kel::Ptr<SetSymbolSeq> RmSeqConfigSymbolSmBase::setSymSeqIs(U32 seqno) {
   return keepOrMake(setSymSeq_, seqno, setSymbolSeqFactory);
}

Kel::Ptr<SubRouteMapSymbolSeq> RmSeqConfigSymbolSmBase::subRmSymSeqIs(U32 seqno) {
   return keepOrMake(subRmSymSeq_, seqno, subRouteMapSymbolSeqFactory);
}

bool RmSeqConfigSymbolSmBase::isModified() const {
   if (sequenceChange_) {
      if (!sequenceChange_->matcherChanges().empty()) return true;
      if (!sequenceChange_->setterChanges().empty()) return true;
      if (sequenceChange_->continueChange()) return true;
      if (sequenceChange_->permitChange()) return true;
   }
   return sequenceChangeSym_ && sequenceChangeSym_->subRouteMapChangeSymbol();
}

void RmSeqConfigSymbolSmBase::formatDerivedType(std::ostream& os) const {
   Kel::Entity::formatDerivedType(os);
   os << ' ' << rmName_;
   if (const auto entry = seqConfig()) os << " seq " << entry->seqno();
}

Kel::Ptr<RmSeqConfigSymbolSmBase> rmSeqConfigSymbolSmBaseFactory(
    Kel::String rmName, Kel::Ptr<MapEntry const> seqConfig, Kel::Ptr<RouteMapSymbol> rmSymbol,
    Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactor) {
   Kel::Ptr<RmSeqConfigSymbolSmBase> sm =
       Kel::create<RmSeqConfigSymbolSmBase>(std::move(rmName), std::move(seqConfig),
                                            std::move(rmSymbol), std::move(rmConfigSymbolReactor));
   sm->hasNotificationActiveIs(true);
   return sm;
}

// --- RmSeqConfigFilterSmBase

RmSeqConfigFilterSmBase::RmSeqConfigFilterSmBase(
    Kel::String rmName, Kel::Ptr<MapEntry const> seqConfig, Kel::Ptr<MapEntry> filteredSeqConfig,
    Routing::RouteMap::Config* filteredRmConfig,
    Kel::Ptr<RouteMapBlockedSequenceList> routeMapBlockedSequenceList,
    Kel::Ptr<RouteMapUpdateNotifier const> routeMapUpdateNotifier)
    : rmName_(std::move(rmName)),
      filteredSeqConfig_(std::move(filteredSeqConfig)),
      filteredRmConfig_(filteredRmConfig),
      routeMapBlockedSequenceList_(std::move(routeMapBlockedSequenceList)),
      routeMapUpdateNotifier_(std::move(routeMapUpdateNotifier)) {
   followEntry(seqConfig_, *this, *this, std::move(seqConfig));
}

RmSeqConfigFilterSmBase::~RmSeqConfigFilterSmBase() {
   seqConfig_.reset();
   routeMapUpdateNotifier_ = nullptr;
   routeMapBlockedSequenceList_ = nullptr;
   filteredSeqConfig_ = nullptr;
}

Kel::Ptr<MapEntry const> RmSeqConfigFilterSmBase::seqConfig() const {
   return followedEntry(seqConfig_);
}

void RmSeqConfigFilterSmBase::seqConfigIs(Kel::Ptr<MapEntry const> entry) {
   followEntry(seqConfig_, *this, *this, std::move(entry));
}

void RmSeqConfigFilterSmBase::seqConfigDel() {
   seqConfig_.reset();
}

void RmSeqConfigFilterSmBase::formatDerivedType(std::ostream& os) const {
   Kel::Entity::formatDerivedType(os);
   os << ' ' << rmName_;
   if (const auto entry = seqConfig()) os << " seq " << entry->seqno();
}

// --- Free functions

Kel::Ptr<Routing::RouteMap::PrefixListSymbol> getPrefixListSymbol(
    const Kel::String& name, Kel::Ptr<Routing::RouteMap::PrefixListSymbolDedupTable> table) {
   return Routing::RouteMap::prefixListSymbolFactory(name)->dedup(table);
}

Kel::Ptr<Routing::RouteMap::IpAccessListSymbol> getIpAccessListSymbol(
    const Kel::String& name, Kel::Ptr<Routing::RouteMap::IpAccessListSymbolDedupTable> table) {
   return Routing::RouteMap::ipAccessListSymbolFactory(name)->dedup(table);
}

Routing::RouteProto routeMapProtocolToRouteProto(Protocol protocol) {
   switch (protocol) {
      case Protocol::connected:
         return Routing::RouteProto::connected;
      case Protocol::bgp:
         return Routing::RouteProto::bgp;
      case Protocol::ospf:
         return Routing::RouteProto::ospf;
      case Protocol::isis:
         return Routing::RouteProto::isis;
      case Protocol::staticRoute:
         return Routing::RouteProto::staticRoute;
      case Protocol::rip:
         return Routing::RouteProto::rip;
      case Protocol::ospf3:
         return Routing::RouteProto::ospf3;
      case Protocol::attachedHost:
         return Routing::RouteProto::attachedHost;
      case Protocol::dynamic:
         return Routing::RouteProto::dynamic;
      case Protocol::protocolInvalid:
         break;
   }
   KEL_ASSERT(0 && "Unsupported RouteMap Protocol match option");
   return Routing::RouteProto::unknown;
}

}  // namespace Routing::Policy
