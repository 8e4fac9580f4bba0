#include "RoutingPolicy/eval/PrefixListMatcher.h"

#include <bit>
#include <cstddef>
#include <ostream>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "Kel/Exception.h"
#include "Routing/RouteMap/PrefixListEntry.h"

namespace Routing::Policy {

namespace {

// The state of one walk: the prefix looked up and the deciding entry found so far.
struct WalkSlots {
   static constexpr U64 kNone = U64{1} << 32;  // above every sequence number

   const Nx::IpGenPrefix* prefix = nullptr;
   U64 seqno = kNone;
   bool permit = false;

   bool found() const noexcept { return seqno != kNone; }
   // An entry covering the prefix: it decides if it admits the prefix's length and its sequence
   // number is the lowest so far. The list's decision is the lowest sequence number over all
   // covering nodes, wherever the node lies in the trie. Without branches: the routes a list
   // sees are as good as random here, and a mispredicted branch on data just loaded from memory
   // stops the next lookup's loads from starting early.
   void candidate(U32 s, bool p, bool admits) noexcept {
      const bool take = admits & (s < seqno);
      seqno = take ? s : seqno;
      permit = take ? p : permit;
   }
};

// One pair per callback class, so that a prefix-list match and an access-list match never share
// state even if one ever ran inside the other.
thread_local WalkSlots plSlots;
thread_local WalkSlots aclSlots;

// The chain is in sequence order, so its first entry that admits the length is the node's
// candidate. Prefix-list and access-list tries hold nothing but list entries.
inline void visitChain(WalkSlots& slots, const PrefixData& head) noexcept {
   const unsigned len = slots.prefix->len();
   for (const PrefixData* d = &head; d != nullptr; d = d->next()) {
      const auto& entry = static_cast<const RouteMap::PrefixListEntryData&>(*d);
      if (!entry.admitsLength(len)) continue;
      slots.candidate(entry.seqno(), entry.isPrefixEntryPermit(), true);
      return;
   }
}

// The inline walk of the trie rather than the virtual one through the callback object: a
// virtual call per covering node costs as much as the walk of a small trie. A node whose chain
// holds one entry is decided from the digest the trie keeps of it, without reading the entry:
// on large lists the entries lie scattered over the heap and each read is a cache miss. The
// trie's walk visits nothing for a prefix of the other family, so a family mismatch is decided
// there.
// The walk's state lives on the stack here: reaching thread-local slots from position-independent
// code is a call into the runtime per match, a third of a match on a small list. The
// thread-local slots serve the callback objects' virtual path.
void walkTrie(const PatriciaTrieWithNodeData& trie, WalkSlots& slots) {
   const unsigned len = slots.prefix->len();
   trie.ancestorWalkDigests(
       *slots.prefix, [&slots, len](const PrefixData::Digest& head, const PrefixData* rest) {
          if (rest != nullptr) {
             visitChain(slots, *rest);
          } else {
             slots.candidate(head.key, head.flag, (head.lo <= len) & (len <= head.hi));
          }
       });
}

bool walkDecide(const RouteMap::ListStatus* status, const Nx::IpGenPrefix* prefix) {
   if (status == nullptr || status->trie() == nullptr) return false;
   WalkSlots slots{prefix};
   walkTrie(*status->trie(), slots);
   return slots.found() && slots.permit;
}

// Bit i set when mask rule i of the block covers the route prefix: its host bits all lie under
// the rule's wildcard and its other bits equal the rule's source. Eight rules at a time with
// SSE2 (part of every x86-64), which the compiler does not find by itself in this loop: per four
// rules two loads, three logical operations, a compare and a mask extraction, and one branch
// per eight. The plain loop below, over the same 256 rules, takes twice as long and more
// (docs/benchmarks.md).
inline unsigned coverBits(const U32* source, const U32* care, U32 address, U32 hostMask) noexcept {
#if defined(__SSE2__)
   const __m128i a = _mm_set1_epi32(static_cast<int>(address));
   const __m128i h = _mm_set1_epi32(static_cast<int>(hostMask));
   const __m128i zero = _mm_setzero_si128();
   const auto four = [&](std::size_t at) {
      const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + at));
      const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(care + at));
      const __m128i off = _mm_and_si128(_mm_or_si128(_mm_xor_si128(a, s), h), c);
      return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(off, zero))));
   };
   return four(0) | (four(4) << 4);
#else
   unsigned bits = 0;
   for (std::size_t i = 0; i < RouteMap::AclMaskColumns::kBlock; ++i) {
      bits |= static_cast<unsigned>((((address ^ source[i]) | hostMask) & care[i]) == 0) << i;
   }
   return bits;
#endif
}

// The trie's answer first, then the mask rules that could still beat it. They ascend by
// sequence number, so the scan stops at the first block that starts past the trie's entry, and
// the first rule that covers the route is the lowest-numbered one; it decides if it comes before
// the trie's entry. A list without mask rules pays one compare for them.
bool aclDecide(const RouteMap::IpAccessListStatus* status, const Nx::IpGenPrefix* prefix) {
   if (status == nullptr || status->trie() == nullptr) return false;
   WalkSlots slots{prefix};
   walkTrie(*status->trie(), slots);
   const RouteMap::AclMaskColumns& m = status->maskColumns();
   const std::size_t n = m.size();
   if (n != 0 && prefix->isV4()) {
      constexpr std::size_t kBlock = RouteMap::AclMaskColumns::kBlock;
      const U32 address = prefix->address().v4().value();
      const U32 hostMask = ~Nx::detail::mask32(prefix->len());
      for (std::size_t base = 0; base < n && m.seqno[base] < slots.seqno; base += kBlock) {
         unsigned bits = coverBits(&m.source[base], &m.care[base], address, hostMask);
         if (n - base < kBlock) bits &= (1u << (n - base)) - 1;  // the padding's lanes
         if (bits == 0) continue;
         const std::size_t i = base + static_cast<std::size_t>(std::countr_zero(bits));
         slots.candidate(m.seqno[i], m.permit[i] != 0, true);
         break;
      }
   }
   return slots.found() && slots.permit;
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
   // The callback's own path: the virtual walk, its step deciding in the thread-local slots.
   // The matchers take the inline walk over digests instead; both decide alike.
   if (!status || status->trie() == nullptr) return false;
   WalkSlots& slots = plSlots;
   slots = {prefix};
   status->trie()->ancestorWalk(*prefix, *plWalkerCb);
   const bool permit = slots.found() && slots.permit;
   slots = {};
   return permit;
}

// ---- Prefix-list matchers ---------------------------------------------------------------------

PrefixListMatcherBase::PrefixListMatcherBase(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> prefixListStatus)
    : plName_(std::move(plName)),
      prefixListStatus_(std::move(prefixListStatus)),
      plWalkerCb_(prefixListWalkerCbFactory()) {}

bool PrefixListMatcherBase::matchPrefix(const Nx::IpGenPrefix* prefix) const {
   return walkDecide(prefixListStatus_.get(), prefix);
}

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
   return aclDecide(ipAccessListStatus_.get(), input->getPrefixPointer());
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
