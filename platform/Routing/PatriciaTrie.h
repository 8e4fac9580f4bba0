#pragma once
// A path-compressed binary trie of prefixes of one address family, whose nodes carry a chain of
// payload entries. Prefix lists and access lists are compiled into these tries; evaluating a
// route against a list is one ancestor walk, so the walk is the hot path of matching.
//
// Several entries for the same prefix (one per list sequence number) stay visible: they are
// chained on the node in ascending chainKey() order, so the first entry of a chain that fits is
// the node's best candidate.
//
// A trie is built on the reactor thread and then published; once published it is only read, by
// any number of threads at once.

#include <array>
#include <bit>
#include <cstddef>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "Nx/IpGenPrefix.h"

namespace Routing {

// The payload base: one entry of a node's chain.
class PrefixData : public Kel::RefCounted {
public:
   // The order of entries on one node: ascending, equal keys in insertion order.
   virtual U32 chainKey() const { return 0; }

   // What a walk may need to know of a chain's head without reading the entry: the trie copies
   // it into the node when the head changes, so a walk over one-entry chains reads only the
   // trie's own nodes. `key` is the chainKey(); `lo`, `hi` and `flag` are the payload type's to
   // define. Fixed for the life of the entry.
   struct Digest {
      U32 key = 0;
      U8 lo = 0;
      U8 hi = 0;
      bool flag = false;
   };
   virtual Digest digest() const { return {chainKey(), 0, 0, false}; }
   // The next entry of the same node, or null. A raw pointer: walks must not touch counts.
   const PrefixData* next() const { return next_.get(); }

private:
   friend class PatriciaTrieWithNodeData;
   Kel::Ptr<PrefixData> next_;
};

class PatriciaTrieWalkCb {
public:
   virtual ~PatriciaTrieWalkCb() = default;
   // One node whose prefix covers the walked prefix; `data` is the head of its chain.
   virtual void handlePrefixData(const Nx::IpGenPrefix& prefix,
                                 const Kel::Ptr<PrefixData const>& data) = 0;
};

namespace detail {

// Bit arithmetic of one family on addresses held as plain integers, bit 0 being the most
// significant, the order in which the trie consumes a prefix.
struct TrieV4 {
   using Key = U32;
   static constexpr unsigned kBits = 32;

   static Key key(const Nx::IpGenPrefix& p) noexcept { return p.address().v4().value(); }
   static Nx::IpGenPrefix prefix(Key k, unsigned len) {
      return Nx::IpGenPrefix(Nx::IpGenAddr(Nx::IpAddr(k)), len);
   }
   // Length of the common leading run; kBits when equal.
   static unsigned commonLen(Key a, Key b) noexcept {
      return static_cast<unsigned>(std::countl_zero(a ^ b));
   }
   static unsigned bit(Key k, unsigned i) noexcept { return (k >> (31 - i)) & 1; }
   // The leading n bits, 1 <= n < kBits.
   static U32 top(Key k, unsigned n) noexcept { return k >> (32 - n); }
   static Key fromTop(U32 bits, unsigned n) noexcept { return bits << (32 - n); }
};

struct TrieV6 {
   struct Key {
      U64 hi;
      U64 lo;
   };
   static constexpr unsigned kBits = 128;

   static Key key(const Nx::IpGenPrefix& p) noexcept {
      const Nx::Ip6Addr a = p.address().v6();
      return {a.hi(), a.lo()};
   }
   static Nx::IpGenPrefix prefix(const Key& k, unsigned len) {
      return Nx::IpGenPrefix(Nx::IpGenAddr(Nx::Ip6Addr(k.hi, k.lo)), len);
   }
   static unsigned commonLen(const Key& a, const Key& b) noexcept {
      return a.hi != b.hi ? static_cast<unsigned>(std::countl_zero(a.hi ^ b.hi))
                          : 64 + static_cast<unsigned>(std::countl_zero(a.lo ^ b.lo));
   }
   static unsigned bit(const Key& k, unsigned i) noexcept {
      return i < 64 ? (k.hi >> (63 - i)) & 1 : (k.lo >> (127 - i)) & 1;
   }
   static U32 top(const Key& k, unsigned n) noexcept { return static_cast<U32>(k.hi >> (64 - n)); }
   static Key fromTop(U32 bits, unsigned n) noexcept { return {U64{bits} << (64 - n), 0}; }
};

// The trie proper, one instantiation per family.
//
// Nodes live in two pools addressed by 32-bit indices; an index with kGlueTag set names a branch
// point that holds no data. Only data nodes keep their address: a walk needs it to report the
// node and to check that the node covers the walked prefix, whereas a branch point is only
// passed through, and a wrong turn there is caught at the next data node (every node below it
// extends that node's prefix). Keeping glue nodes at 12 bytes is what keeps a trie of random
// prefixes, which has almost one branch point per prefix, small.
//
// Large tries also keep a table indexed by the leading `stride` bits of an address: for each
// value, the topmost node whose prefix is at least `stride` long and begins with it, and a mask
// of the lengths below `stride` that hold data covering it (found in `shortNodes_`, a complete
// binary tree in array form, made only once such a prefix exists). A walk then starts a few levels
// above the leaves instead of at the root, which saves the cache misses of the upper levels on
// tries that do not fit in cache.
template <class Fam>
class PatriciaCore {
public:
   using Key = typename Fam::Key;
   static constexpr U32 kNil = 0xffffffffu;
   static constexpr U32 kGlueTag = 0x80000000u;

   // The head's digest is kept in the bytes that alignment leaves free beside `len` (IPv6
   // nodes stay at 40 bytes, IPv4 nodes grow from 24 to 32).
   struct DataNode {
      static constexpr U8 kHeadFlag = 1;
      static constexpr U8 kSingle = 2;  // the chain holds the head alone

      Key key;
      U32 child[2];
      U8 len;
      U8 headLo;
      U8 headHi;
      U8 headBits;
      U32 headKey;
      Kel::Ptr<PrefixData const> head;

      bool single() const { return (headBits & kSingle) != 0; }
      PrefixData::Digest headDigest() const {
         return {headKey, headLo, headHi, (headBits & kHeadFlag) != 0};
      }
      void headChanged() {
         const PrefixData::Digest d = head ? head->digest() : PrefixData::Digest{};
         headKey = d.key;
         headLo = d.lo;
         headHi = d.hi;
         headBits = static_cast<U8>((d.flag ? kHeadFlag : 0) |
                                    (head && head->next() == nullptr ? kSingle : 0));
      }
   };
   struct GlueNode {
      U32 child[2];
      U8 len;
   };

   // Calls f(const DataNode&) for each data node covering (q, qlen), shortest first.
   template <class F>
   void walk(const Key& q, unsigned qlen, F&& f) const {
      U32 i = root_;
      if (stride_ != 0 && qlen >= stride_) {
         const U32 s = Fam::top(q, stride_);
         const Slot& slot = slots_[s];
         for (U32 lens = slot.shortLens; lens != 0; lens &= lens - 1) {
            const unsigned l = static_cast<unsigned>(std::countr_zero(lens));
            f(data_[shortNodes_[(U32{1} << l) - 1 + (s >> (stride_ - l))]]);
         }
         i = slot.sub;
      }
      while (i != kNil) {
         if (i & kGlueTag) {
            const GlueNode& g = glue_[i & ~kGlueTag];
            if (g.len >= qlen) return;
            i = g.child[Fam::bit(q, g.len)];
            continue;
         }
         const DataNode& d = data_[i];
         if (d.len > qlen || Fam::commonLen(q, d.key) < d.len) return;
         f(d);
         if (d.len == qlen) return;
         i = d.child[Fam::bit(q, d.len)];
      }
   }

   // Every data node, in prefix order (a network before its subnets).
   template <class F>
   void forEach(F&& f) const {
      // Each level of the descent leaves at most one sibling pending.
      std::array<U32, Fam::kBits + 2> stack;
      std::size_t n = 0;
      if (root_ != kNil) stack[n++] = root_;
      while (n != 0) {
         const U32 i = stack[--n];
         const U32* c;
         if (i & kGlueTag) {
            c = glue_[i & ~kGlueTag].child;
         } else {
            f(data_[i]);
            c = data_[i].child;
         }
         if (c[1] != kNil) stack[n++] = c[1];
         if (c[0] != kNil) stack[n++] = c[0];
      }
   }

   // The data node of (k, len), created without data when absent. The reference stays valid
   // until the next change of the trie.
   DataNode& nodeFor(const Key& k, unsigned len);
   // The data node of (k, len), or null.
   const DataNode* find(const Key& k, unsigned len) const;
   // Removes the data node of (k, len), handing its chain to `chain`; false when absent.
   bool remove(const Key& k, unsigned len, Kel::Ptr<PrefixData const>& chain);

   std::size_t prefixes() const { return dataCount_; }
   std::size_t memoryBytes() const;

private:
   struct Slot {
      U32 sub;        // topmost node at least `stride_` long under this value, or kNil
      U32 shortLens;  // bit l: a data node of length l < stride_ covers this value
   };

   unsigned lenOf(U32 i) const { return i & kGlueTag ? glue_[i & ~kGlueTag].len : data_[i].len; }
   U32* childrenOf(U32 i) { return i & kGlueTag ? glue_[i & ~kGlueTag].child : data_[i].child; }
   const U32* childrenOf(U32 i) const {
      return i & kGlueTag ? glue_[i & ~kGlueTag].child : data_[i].child;
   }
   // The address of some data node under i: the prefix of i is its leading lenOf(i) bits.
   const Key& someKeyUnder(U32 i) const;

   U32 newData(const Key& k, unsigned len, U32 c0, U32 c1);
   U32 newGlue(unsigned len, U32 c0, U32 c1);
   void freeData(U32 i);
   void freeGlue(U32 i);
   void reserveForChange();

   void shortIs(const Key& k, unsigned len, U32 node);
   void shortDel(const Key& k, unsigned len);
   void refreshSlot(const Key& k);
   void strideCheck();
   void strideIs(unsigned stride);

   std::vector<DataNode> data_;
   std::vector<GlueNode> glue_;
   U32 root_ = kNil;
   U32 freeData_ = kNil;  // chained through child[0]
   U32 freeGlue_ = kNil;
   std::size_t dataCount_ = 0;
   unsigned stride_ = 0;
   std::vector<Slot> slots_;
   std::vector<U32> shortNodes_;
};

extern template class PatriciaCore<TrieV4>;
extern template class PatriciaCore<TrieV6>;

}  // namespace detail

// Anything but a PatriciaTrieWalkCb, which has its own overload of ancestorWalk.
template <class F>
concept PrefixWalkFn = !std::is_base_of_v<PatriciaTrieWalkCb, std::remove_cvref_t<F>>;

class PatriciaTrieWithNodeData : public Kel::RefCounted {
public:
   PatriciaTrieWithNodeData(Kel::String name, Nx::AddressFamily af);
   ~PatriciaTrieWithNodeData() override;

   const Kel::String& name() const;
   Nx::AddressFamily af() const;

   // Adds `data` to the chain of `prefix`, creating the node if needed. A prefix of the other
   // family is a programming error. An entry belongs to one chain of one trie.
   void routeIs(const Nx::IpGenPrefix& prefix, Kel::Ptr<PrefixData> data);
   // Removes the node's whole chain; false when the prefix holds nothing.
   bool routeDel(const Nx::IpGenPrefix& prefix);
   // The head of the chain stored exactly at `prefix`, or null.
   Kel::Ptr<PrefixData const> route(const Nx::IpGenPrefix& prefix) const;

   // Calls cb once for every node holding data whose prefix covers `prefix` (including `prefix`
   // itself), from the shortest prefix to the longest. A prefix of the other family visits
   // nothing.
   void ancestorWalk(const Nx::IpGenPrefix& prefix, PatriciaTrieWalkCb& cb) const;

   // The same walk for callers that can take a template: f(const Nx::IpGenPrefix& nodePrefix,
   // const PrefixData& head), inlined, without a virtual call per node.
   template <PrefixWalkFn F>
   void ancestorWalk(const Nx::IpGenPrefix& prefix, F&& f) const {
      if (prefix.af() != af_) return;
      if (af_ == Nx::AddressFamily::ipv4) {
         v4().walk(detail::TrieV4::key(prefix), prefix.len(),
                   [&](const auto& n) { f(detail::TrieV4::prefix(n.key, n.len), *n.head); });
      } else {
         v6().walk(detail::TrieV6::key(prefix), prefix.len(),
                   [&](const auto& n) { f(detail::TrieV6::prefix(n.key, n.len), *n.head); });
      }
   }

   // The walk for callers that decide from digests: f(const PrefixData::Digest& head, const
   // PrefixData* rest), where `rest` is null when the chain holds the head alone and the head
   // itself otherwise, so that the entries are read only for nodes with several.
   template <PrefixWalkFn F>
   void ancestorWalkDigests(const Nx::IpGenPrefix& prefix, F&& f) const {
      if (prefix.af() != af_) return;
      const auto step = [&](const auto& n) {
         f(n.headDigest(), n.single() ? nullptr : n.head.get());
      };
      if (af_ == Nx::AddressFamily::ipv4) {
         v4().walk(detail::TrieV4::key(prefix), prefix.len(), step);
      } else {
         v6().walk(detail::TrieV6::key(prefix), prefix.len(), step);
      }
   }

   // f(const Nx::IpGenPrefix& nodePrefix, const PrefixData& head) for every node holding data,
   // in prefix order.
   template <class F>
   void forEach(F&& f) const {
      if (af_ == Nx::AddressFamily::ipv4) {
         v4().forEach([&](const auto& n) { f(detail::TrieV4::prefix(n.key, n.len), *n.head); });
      } else {
         v6().forEach([&](const auto& n) { f(detail::TrieV6::prefix(n.key, n.len), *n.head); });
      }
   }

   std::size_t prefixes() const;  // nodes holding data
   std::size_t entries() const;   // entries on all chains
   // Bytes held by the trie's own structure (nodes and their storage), without the entries.
   std::size_t memoryBytes() const;

private:
   using Core4 = detail::PatriciaCore<detail::TrieV4>;
   using Core6 = detail::PatriciaCore<detail::TrieV6>;

   const Core4& v4() const { return *std::get_if<Core4>(&core_); }
   const Core6& v6() const { return *std::get_if<Core6>(&core_); }
   Core4& v4() { return *std::get_if<Core4>(&core_); }
   Core6& v6() { return *std::get_if<Core6>(&core_); }

   static void chainInsert(Kel::Ptr<PrefixData const>& head, Kel::Ptr<PrefixData> data);
   static std::size_t chainRelease(Kel::Ptr<PrefixData const> head);

   Kel::String name_;
   Nx::AddressFamily af_;
   std::size_t entries_ = 0;
   std::variant<Core4, Core6> core_;
};

Kel::Ptr<PatriciaTrieWithNodeData> PatriciaTrieWithNodeDataIs(Kel::String name,
                                                              Nx::AddressFamily af);

}  // namespace Routing
