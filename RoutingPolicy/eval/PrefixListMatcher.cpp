#include "RoutingPolicy/eval/PrefixListMatcher.h"

#include <ostream>
#include <utility>

#include "Kel/Exception.h"
#include "Routing/RouteMap/PrefixListEntry.h"

namespace Routing::Policy {

namespace {

// The state of one walk: the prefix looked up and the deciding entry found so far.
struct WalkSlots {
   const Nx::IpGenPrefix* prefix = nullptr;
   const RouteMap::PrefixListEntryData* best = nullptr;
};

// One pair per callback class, so that a prefix-list match and an access-list match never share
// state even if one ever ran inside the other.
thread_local WalkSlots plSlots;
thread_local WalkSlots aclSlots;

WalkSlots& slotsOf(const PrefixListWalkerCb&) noexcept {
   return plSlots;
}
WalkSlots& slotsOf(const IpAccessListWalkerCb&) noexcept {
   return aclSlots;
}

// The step of both callbacks, also taken by the inline walk below. Inlined there on purpose
// (always_inline is a GCC and Clang attribute): a call per covering node cost a tenth of a
// match on a 10-entry list.
[[gnu::always_inline]] inline void visitChain(WalkSlots& slots, const PrefixData& head) noexcept {
   const unsigned len = slots.prefix->len();
   for (const PrefixData* d = &head; d != nullptr; d = d->next()) {
      // Prefix-list and access-list tries hold nothing but list entries.
      const auto& entry = static_cast<const RouteMap::PrefixListEntryData&>(*d);
      if (!entry.admitsLength(len)) continue;
      // The chain is in sequence order, so its first fitting entry is the node's candidate; the
      // list's decision is the lowest sequence number over all covering nodes, wherever the node
      // lies in the trie.
      if (slots.best == nullptr || entry.seqno() < slots.best->seqno()) slots.best = &entry;
      return;
   }
}

// The inline walk of the trie rather than the virtual one through the callback object: a
// virtual call per covering node costs as much as the walk of a small trie. The trie's walk
// visits nothing for a prefix of the other family, so a family mismatch is decided there.
template <class Cb>
bool walkDecide(const RouteMap::ListStatus* status, const Nx::IpGenPrefix* prefix, const Cb& cb) {
   if (status == nullptr || status->trie() == nullptr) return false;
   WalkSlots& slots = slotsOf(cb);
   slots.prefix = prefix;
   slots.best = nullptr;
   status->trie()->ancestorWalk(*prefix, [&slots](const Nx::IpGenPrefix&, const PrefixData& head) {
      visitChain(slots, head);
   });
   const bool permit = slots.best != nullptr && slots.best->isPrefixEntryPermit();
   slots = {};
   return permit;
}

RouteMapFeatures prefixDependent() {
   RouteMapFeatures f;
   f.matchPrefixDependent = true;
   return f;
}

}  // namespace

// ---- Walker callbacks -------------------------------------------------------------------------

// Outside a match there is no prefix to compare lengths with, and nothing to decide.
void PrefixListWalkerCb::handlePrefixData(const Nx::IpGenPrefix&,
                                          const Kel::Ptr<PrefixData const>& data) {
   if (plSlots.prefix != nullptr) visitChain(plSlots, *data);
}

void IpAccessListWalkerCb::handlePrefixData(const Nx::IpGenPrefix&,
                                            const Kel::Ptr<PrefixData const>& data) {
   if (aclSlots.prefix != nullptr) visitChain(aclSlots, *data);
}

Kel::Ptr<PrefixListWalkerCb> prefixListWalkerCbFactory() {
   return Kel::makePtr<PrefixListWalkerCb>();
}

Kel::Ptr<IpAccessListWalkerCb> ipAccessListWalkerCbFactory() {
   return Kel::makePtr<IpAccessListWalkerCb>();
}

bool prefixListMatch(const Kel::Ptr<RouteMap::PrefixListStatus const>& status,
                     const Nx::IpGenPrefix* prefix,
                     const Kel::Ptr<PrefixListWalkerCb>& plWalkerCb) {
   return walkDecide(status.get(), prefix, *plWalkerCb);
}

// ---- Prefix-list matchers ---------------------------------------------------------------------

PrefixListMatcherBase::PrefixListMatcherBase(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> prefixListStatus)
    : plName_(std::move(plName)),
      prefixListStatus_(std::move(prefixListStatus)),
      plWalkerCb_(prefixListWalkerCbFactory()) {}

void PrefixListMatcherBase::plWalkerCbIs(Kel::Ptr<PrefixListWalkerCb> cb) {
   if (!cb) Kel::throwNullMutatorArg("Routing::Policy::PrefixListMatcherBase", "plWalkerCb");
   plWalkerCb_ = std::move(cb);
}

RouteMapFeatures PrefixListMatcher::getFeatures() const {
   return prefixDependent();
}

void PrefixListMatcher::formatDerivedType(std::ostream& os) const {
   os << "PrefixListMatcher prefix-list " << plName() << ";";
}

void NexthopPrefixListMatcher::formatDerivedType(std::ostream& os) const {
   os << "NexthopPrefixListMatcher prefix-list " << plName() << ";";
}

void ResolvedNexthopPfxListMatcher::formatDerivedType(std::ostream& os) const {
   os << "ResolvedNexthopMatcher prefix-list " << plName() << ";";
}

RouteMapFeatures RouterIdMatcher::getFeatures() const {
   RouteMapFeatures f;
   f.matchRouterId = true;
   return f;
}

void RouterIdMatcher::formatDerivedType(std::ostream& os) const {
   os << "RouterIdMatcher router-id prefix-list " << plName() << ";";
}

// ---- Access-list matcher ----------------------------------------------------------------------

IpAccessListMatcher::IpAccessListMatcher(
    Kel::String aclName, Kel::Ptr<RouteMap::IpAccessListStatus const> ipAccessListStatus)
    : aclName_(std::move(aclName)),
      ipAccessListStatus_(std::move(ipAccessListStatus)),
      aclWalkerCb_(ipAccessListWalkerCbFactory()) {}

void IpAccessListMatcher::aclWalkerCbIs(Kel::Ptr<IpAccessListWalkerCb> cb) {
   if (!cb) Kel::throwNullMutatorArg("Routing::Policy::IpAccessListMatcher", "aclWalkerCb");
   aclWalkerCb_ = std::move(cb);
}

bool IpAccessListMatcher::match(const MatchInput_* input,
                                const Kel::Ptr<PolicyEvalContext>&) const {
   return walkDecide(ipAccessListStatus_.get(), input->getPrefixPointer(), *aclWalkerCb_);
}

RouteMapFeatures IpAccessListMatcher::getFeatures() const {
   return prefixDependent();
}

void IpAccessListMatcher::formatDerivedType(std::ostream& os) const {
   // "prefix-list" for access lists as well: the text stays as it has always read.
   os << "IpAccessListMatcher prefix-list " << aclName_ << ";";
}

// ---- Factories --------------------------------------------------------------------------------

Kel::Ptr<PrefixListMatcher> prefixListMatcherFactory(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> status) {
   return Kel::makePtr<PrefixListMatcher>(std::move(plName), std::move(status));
}

Kel::Ptr<NexthopPrefixListMatcher> nexthopPrefixListMatcherFactory(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> status) {
   return Kel::makePtr<NexthopPrefixListMatcher>(std::move(plName), std::move(status));
}

Kel::Ptr<ResolvedNexthopPfxListMatcher> resolvedNexthopPfxListMatcherFactory(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> status) {
   return Kel::makePtr<ResolvedNexthopPfxListMatcher>(std::move(plName), std::move(status));
}

Kel::Ptr<RouterIdMatcher> routerIdMatcherFactory(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> status) {
   return Kel::makePtr<RouterIdMatcher>(std::move(plName), std::move(status));
}

Kel::Ptr<IpAccessListMatcher> ipAccessListMatcherFactory(
    Kel::String aclName, Kel::Ptr<RouteMap::IpAccessListStatus const> status) {
   return Kel::makePtr<IpAccessListMatcher>(std::move(aclName), std::move(status));
}

}  // namespace Routing::Policy
