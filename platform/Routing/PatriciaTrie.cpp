#include "Routing/PatriciaTrie.h"

#include <algorithm>

namespace Routing {

namespace detail {

namespace {

// Below this many prefixes a walk from the root touches few enough nodes that the table would
// cost more memory than it saves time.
constexpr std::size_t kTableMinPrefixes = 256;
// The table stops at 2^20 slots (12 MB): a larger one would miss the cache on every walk itself.
constexpr unsigned kMaxStride = 20;

// One or two prefixes per slot: the table then costs at most 12 bytes per prefix, and a walk
// finds few nodes below its slot.
unsigned strideFor(std::size_t prefixes) {
   if (prefixes < kTableMinPrefixes) return 0;
   return std::min(kMaxStride, static_cast<unsigned>(std::bit_width(prefixes)) - 1);
}

// Grows a pool by an eighth rather than doubling it: the pools are most of a trie's memory, and
// a trie is built once and then only read.
template <class V>
void reserveOneMore(V& v) {
   if (v.size() == v.capacity()) v.reserve(v.size() + std::max<std::size_t>(v.size() / 8, 4));
}

}  // namespace

template <class Fam>
const typename PatriciaCore<Fam>::Key& PatriciaCore<Fam>::someKeyUnder(U32 i) const {
   // A branch point always has two children, so the descent ends on a data node.
   while (i & kGlueTag) i = glue_[i & ~kGlueTag].child[0];
   return data_[i].key;
}

template <class Fam>
U32 PatriciaCore<Fam>::newData(const Key& k, unsigned len, U32 c0, U32 c1) {
   U32 i;
   if (freeData_ != kNil) {
      i = freeData_;
      freeData_ = data_[i].child[0];
   } else {
      KEL_ASSERT(data_.size() < kGlueTag - 1);
      i = static_cast<U32>(data_.size());
      data_.emplace_back();
   }
   DataNode& d = data_[i];
   d.key = k;
   d.len = static_cast<U8>(len);
   d.child[0] = c0;
   d.child[1] = c1;
   d.headChanged();
   ++dataCount_;
   return i;
}

template <class Fam>
U32 PatriciaCore<Fam>::newGlue(unsigned len, U32 c0, U32 c1) {
   U32 i;
   if (freeGlue_ != kNil) {
      i = freeGlue_;
      freeGlue_ = glue_[i].child[0];
   } else {
      KEL_ASSERT(glue_.size() < kGlueTag - 1);
      i = static_cast<U32>(glue_.size());
      glue_.emplace_back();
   }
   GlueNode& g = glue_[i];
   g.len = static_cast<U8>(len);
   g.child[0] = c0;
   g.child[1] = c1;
   return i | kGlueTag;
}

template <class Fam>
void PatriciaCore<Fam>::freeData(U32 i) {
   DataNode& d = data_[i];
   d.head = nullptr;
   d.child[0] = freeData_;
   d.child[1] = kNil;
   freeData_ = i;
   --dataCount_;
}

template <class Fam>
void PatriciaCore<Fam>::freeGlue(U32 i) {
   GlueNode& g = glue_[i & ~kGlueTag];
   g.child[0] = freeGlue_;
   g.child[1] = kNil;
   freeGlue_ = i & ~kGlueTag;
}

template <class Fam>
void PatriciaCore<Fam>::reserveForChange() {
   // A change takes at most one node of each kind, so growing first keeps the child links that
   // the change holds pointers to in place.
   if (freeData_ == kNil) reserveOneMore(data_);
   if (freeGlue_ == kNil) reserveOneMore(glue_);
}

template <class Fam>
typename PatriciaCore<Fam>::DataNode& PatriciaCore<Fam>::nodeFor(const Key& k, unsigned len) {
   reserveForChange();
   if (root_ == kNil) {
      root_ = newData(k, len, kNil, kNil);
      if (len < stride_) shortIs(k, len, root_);
      strideCheck();
      return data_[root_];
   }

   // Any address below the place where the new prefix would go tells how far it agrees with
   // what is already there.
   U32 x = root_;
   for (;;) {
      const unsigned xl = lenOf(x);
      if (xl >= len) break;
      const U32 c = childrenOf(x)[Fam::bit(k, xl)];
      if (c == kNil) break;
      x = c;
   }
   const Key near = someKeyUnder(x);
   const unsigned common = std::min(len, Fam::commonLen(k, near));

   // Every node above `common` on the way to k is shared by k and `near`.
   U32* link = &root_;
   while (*link != kNil && lenOf(*link) < common)
      link = &childrenOf(*link)[Fam::bit(k, lenOf(*link))];

   const U32 y = *link;
   U32 added;
   if (y == kNil) {
      added = *link = newData(k, len, kNil, kNil);
   } else if (lenOf(y) == common) {
      if (common == len) {
         if (!(y & kGlueTag)) return data_[y];
         // The prefix is an existing branch point: it becomes a data node in place.
         const GlueNode g = glue_[y & ~kGlueTag];
         added = *link = newData(k, len, g.child[0], g.child[1]);
         freeGlue(y);
      } else {
         // k leaves y on the side that `near` did not come from, which is therefore empty.
         KEL_ASSERT(!(y & kGlueTag));
         U32& side = data_[y].child[Fam::bit(k, common)];
         KEL_ASSERT(side == kNil);
         added = side = newData(k, len, kNil, kNil);
      }
   } else if (common == len) {
      // The new prefix sits above y.
      U32 c[2] = {kNil, kNil};
      c[Fam::bit(near, len)] = y;
      added = *link = newData(k, len, c[0], c[1]);
   } else {
      // k and y part at `common`: a branch point takes y's place.
      added = newData(k, len, kNil, kNil);
      U32 c[2];
      c[Fam::bit(k, common)] = added;
      c[Fam::bit(near, common)] = y;
      *link = newGlue(common, c[0], c[1]);
   }

   if (stride_ != 0) {
      if (len < stride_) {
         shortIs(k, len, added);
      } else {
         refreshSlot(k);
      }
   }
   strideCheck();
   return data_[added];
}

template <class Fam>
const typename PatriciaCore<Fam>::DataNode* PatriciaCore<Fam>::find(const Key& k,
                                                                    unsigned len) const {
   U32 i = root_;
   while (i != kNil && lenOf(i) < len) i = childrenOf(i)[Fam::bit(k, lenOf(i))];
   if (i == kNil || (i & kGlueTag)) return nullptr;
   const DataNode& d = data_[i];
   return d.len == len && Fam::commonLen(k, d.key) >= len ? &d : nullptr;
}

template <class Fam>
bool PatriciaCore<Fam>::remove(const Key& k, unsigned len, Kel::Ptr<PrefixData const>& chain) {
   reserveForChange();
   U32* parentLink = nullptr;
   U32* link = &root_;
   while (*link != kNil && lenOf(*link) < len) {
      parentLink = link;
      link = &childrenOf(*link)[Fam::bit(k, lenOf(*link))];
   }
   const U32 y = *link;
   if (y == kNil || (y & kGlueTag)) return false;
   if (data_[y].len != len || Fam::commonLen(k, data_[y].key) < len) return false;

   chain = std::move(data_[y].head);
   const U32 c0 = data_[y].child[0];
   const U32 c1 = data_[y].child[1];
   if (c0 != kNil && c1 != kNil) {
      // Still a branch point for what lies below.
      *link = newGlue(len, c0, c1);
   } else if (c0 != kNil || c1 != kNil) {
      *link = c0 != kNil ? c0 : c1;
   } else {
      *link = kNil;
      // A branch point left with one side is no longer one.
      if (parentLink != nullptr && (*parentLink & kGlueTag)) {
         const U32 p = *parentLink;
         const GlueNode& g = glue_[p & ~kGlueTag];
         *parentLink = g.child[0] != kNil ? g.child[0] : g.child[1];
         freeGlue(p);
      }
   }
   freeData(y);

   if (stride_ != 0) {
      if (len < stride_) {
         shortDel(k, len);
      } else {
         refreshSlot(k);
      }
   }
   strideCheck();
   return true;
}

template <class Fam>
void PatriciaCore<Fam>::shortIs(const Key& k, unsigned len, U32 node) {
   // Made on first use: IPv6 tables seldom hold prefixes that short.
   if (shortNodes_.empty()) shortNodes_.assign((std::size_t{1} << stride_) - 1, kNil);
   const U32 bits = Fam::top(k, stride_) >> (stride_ - len);
   shortNodes_[(U32{1} << len) - 1 + bits] = node;
   const U32 first = bits << (stride_ - len);
   const U32 last = first + (U32{1} << (stride_ - len));
   for (U32 s = first; s != last; ++s) slots_[s].shortLens |= U32{1} << len;
}

template <class Fam>
void PatriciaCore<Fam>::shortDel(const Key& k, unsigned len) {
   const U32 bits = Fam::top(k, stride_) >> (stride_ - len);
   shortNodes_[(U32{1} << len) - 1 + bits] = kNil;
   const U32 first = bits << (stride_ - len);
   const U32 last = first + (U32{1} << (stride_ - len));
   for (U32 s = first; s != last; ++s) slots_[s].shortLens &= ~(U32{1} << len);
}

template <class Fam>
void PatriciaCore<Fam>::refreshSlot(const Key& k) {
   // Only nodes under this slot value changed, so only its entry point can have moved.
   const U32 s = Fam::top(k, stride_);
   const Key sk = Fam::fromTop(s, stride_);
   U32 i = root_;
   while (i != kNil && lenOf(i) < stride_) i = childrenOf(i)[Fam::bit(sk, lenOf(i))];
   slots_[s].sub = i != kNil && Fam::top(someKeyUnder(i), stride_) == s ? i : kNil;
}

template <class Fam>
void PatriciaCore<Fam>::strideCheck() {
   const unsigned want = strideFor(dataCount_);
   // Shrinking waits until the trie is half the size that would pick a smaller table, so that a
   // trie hovering at a boundary does not rebuild on every change.
   if (want > stride_ || strideFor(2 * dataCount_) < stride_) strideIs(want);
}

template <class Fam>
void PatriciaCore<Fam>::strideIs(unsigned stride) {
   stride_ = stride;
   std::vector<Slot>().swap(slots_);
   std::vector<U32>().swap(shortNodes_);
   if (stride == 0) return;
   slots_.assign(std::size_t{1} << stride, Slot{kNil, 0});

   std::array<U32, Fam::kBits + 2> stack;
   std::size_t n = 0;
   if (root_ != kNil) stack[n++] = root_;
   while (n != 0) {
      const U32 i = stack[--n];
      if (lenOf(i) >= stride) {
         slots_[Fam::top(someKeyUnder(i), stride)].sub = i;
         continue;
      }
      if (!(i & kGlueTag)) shortIs(data_[i].key, data_[i].len, i);
      const U32* c = childrenOf(i);
      if (c[0] != kNil) stack[n++] = c[0];
      if (c[1] != kNil) stack[n++] = c[1];
   }
}

template <class Fam>
std::size_t PatriciaCore<Fam>::memoryBytes() const {
   return data_.capacity() * sizeof(DataNode) + glue_.capacity() * sizeof(GlueNode) +
          slots_.capacity() * sizeof(Slot) + shortNodes_.capacity() * sizeof(U32);
}

template class PatriciaCore<TrieV4>;
template class PatriciaCore<TrieV6>;

}  // namespace detail

PatriciaTrieWithNodeData::PatriciaTrieWithNodeData(Kel::String name, Nx::AddressFamily af)
    : name_(std::move(name)), af_(af) {
   if (af == Nx::AddressFamily::ipv6) core_.emplace<Core6>();
}

PatriciaTrieWithNodeData::~PatriciaTrieWithNodeData() {
   // Chains are released one entry at a time: an access list can pile thousands of rules on
   // one prefix, and letting each entry release the next would recurse as deep as the chain.
   auto release = [](const auto& n) {
      chainRelease(std::move(const_cast<Kel::Ptr<PrefixData const>&>(n.head)));
   };
   if (af_ == Nx::AddressFamily::ipv4) {
      v4().forEach(release);
   } else {
      v6().forEach(release);
   }
}

const Kel::String& PatriciaTrieWithNodeData::name() const {
   return name_;
}
Nx::AddressFamily PatriciaTrieWithNodeData::af() const {
   return af_;
}

void PatriciaTrieWithNodeData::chainInsert(Kel::Ptr<PrefixData const>& head,
                                           Kel::Ptr<PrefixData> data) {
   // Chains hold entries the trie was handed as mutable; they are stored const only so that
   // walks can hand them out as such.
   const U32 key = data->chainKey();
   PrefixData* prev = nullptr;
   PrefixData* cur = const_cast<PrefixData*>(head.get());
   while (cur != nullptr && cur->chainKey() <= key) {
      prev = cur;
      cur = cur->next_.get();
   }
   data->next_ = cur;
   if (prev != nullptr) {
      prev->next_ = std::move(data);
   } else {
      head = std::move(data);
   }
}

std::size_t PatriciaTrieWithNodeData::chainRelease(Kel::Ptr<PrefixData const> head) {
   std::size_t n = 0;
   for (const PrefixData* e = head.get(); e != nullptr; e = e->next()) ++n;
   Kel::Ptr<PrefixData> cur = Kel::ptrConstCast<PrefixData>(head);
   head = nullptr;
   // An entry that somebody else still holds keeps the rest of its chain alive, as it should.
   while (cur && cur->refCount() == 1) {
      Kel::Ptr<PrefixData> next = std::move(cur->next_);
      cur = std::move(next);
   }
   return n;
}

void PatriciaTrieWithNodeData::routeIs(const Nx::IpGenPrefix& prefix, Kel::Ptr<PrefixData> data) {
   KEL_ASSERT(prefix.af() == af_);
   KEL_ASSERT(data);
   if (af_ == Nx::AddressFamily::ipv4) {
      auto& node = v4().nodeFor(detail::TrieV4::key(prefix), prefix.len());
      chainInsert(node.head, std::move(data));
      node.headChanged();
   } else {
      auto& node = v6().nodeFor(detail::TrieV6::key(prefix), prefix.len());
      chainInsert(node.head, std::move(data));
      node.headChanged();
   }
   ++entries_;
}

bool PatriciaTrieWithNodeData::routeDel(const Nx::IpGenPrefix& prefix) {
   if (prefix.af() != af_) return false;
   Kel::Ptr<PrefixData const> chain;
   const bool removed = af_ == Nx::AddressFamily::ipv4
                            ? v4().remove(detail::TrieV4::key(prefix), prefix.len(), chain)
                            : v6().remove(detail::TrieV6::key(prefix), prefix.len(), chain);
   if (removed) entries_ -= chainRelease(std::move(chain));
   return removed;
}

Kel::Ptr<PrefixData const> PatriciaTrieWithNodeData::route(const Nx::IpGenPrefix& prefix) const {
   if (prefix.af() != af_) return nullptr;
   if (af_ == Nx::AddressFamily::ipv4) {
      const auto* n = v4().find(detail::TrieV4::key(prefix), prefix.len());
      return n != nullptr ? n->head : nullptr;
   }
   const auto* n = v6().find(detail::TrieV6::key(prefix), prefix.len());
   return n != nullptr ? n->head : nullptr;
}

void PatriciaTrieWithNodeData::ancestorWalk(const Nx::IpGenPrefix& prefix,
                                            PatriciaTrieWalkCb& cb) const {
   if (prefix.af() != af_) return;
   if (af_ == Nx::AddressFamily::ipv4) {
      v4().walk(detail::TrieV4::key(prefix), prefix.len(), [&](const auto& n) {
         cb.handlePrefixData(detail::TrieV4::prefix(n.key, n.len), n.head);
      });
   } else {
      v6().walk(detail::TrieV6::key(prefix), prefix.len(), [&](const auto& n) {
         cb.handlePrefixData(detail::TrieV6::prefix(n.key, n.len), n.head);
      });
   }
}

std::size_t PatriciaTrieWithNodeData::prefixes() const {
   return af_ == Nx::AddressFamily::ipv4 ? v4().prefixes() : v6().prefixes();
}

std::size_t PatriciaTrieWithNodeData::entries() const {
   return entries_;
}

std::size_t PatriciaTrieWithNodeData::memoryBytes() const {
   return sizeof(*this) +
          (af_ == Nx::AddressFamily::ipv4 ? v4().memoryBytes() : v6().memoryBytes());
}

Kel::Ptr<PatriciaTrieWithNodeData> PatriciaTrieWithNodeDataIs(Kel::String name,
                                                              Nx::AddressFamily af) {
   return Kel::makePtr<PatriciaTrieWithNodeData>(std::move(name), af);
}

}  // namespace Routing

namespace Routing::detail {
// The node sizes behind the memory figures of the benchmarks.
static_assert(sizeof(PatriciaCore<TrieV4>::DataNode) == 32);
static_assert(sizeof(PatriciaCore<TrieV6>::DataNode) == 40);
static_assert(sizeof(PatriciaCore<TrieV4>::GlueNode) == 12);
}  // namespace Routing::detail
