#include "Orb/Dedup.h"

#include "Kel/Assert.h"

namespace Orb {

DedupHandle::~DedupHandle() {
   if (table_ != nullptr) table_->remove(this);
}

DedupHashTableUnorderedSet::~DedupHashTableUnorderedSet() {
   for (auto& [hash, h] : members_) h->table_ = nullptr;
}

DedupHandle* DedupHashTableUnorderedSet::dedupRaw(DedupHandle* candidate) {
   KEL_ASSERT(candidate != nullptr);
   if (candidate->table_ == this) return candidate;
   // An object belongs to at most one table; the same content in two tables is two objects.
   KEL_ASSERT(candidate->table_ == nullptr);
   const U32 h = candidate->hash();
   auto [first, last] = members_.equal_range(h);
   for (auto it = first; it != last; ++it) {
      if (candidate->compare(*it->second)) return it->second;
   }
   members_.emplace(h, candidate);
   candidate->table_ = this;
   candidate->tableHash_ = h;
   return candidate;
}

DedupHandle* DedupHashTableUnorderedSet::findRaw(const DedupHandle& probe) const {
   auto [first, last] = members_.equal_range(probe.hash());
   for (auto it = first; it != last; ++it) {
      if (probe.compare(*it->second)) return it->second;
   }
   return nullptr;
}

void DedupHashTableUnorderedSet::remove(DedupHandle* member) {
   auto [first, last] = members_.equal_range(member->tableHash_);
   for (auto it = first; it != last; ++it) {
      if (it->second == member) {
         members_.erase(it);
         return;
      }
   }
   KEL_ASSERT(!"dedup member missing from its table");
}

Kel::Ptr<DedupHashTableUnorderedSet> dedupHashTableUnorderedSetFactory() {
   return Kel::makePtr<DedupHashTableUnorderedSet>();
}

}  // namespace Orb
