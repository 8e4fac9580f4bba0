#include "Orb/Dedup.h"

#include "Kel/Assert.h"

namespace Orb {

DedupHandle::~DedupHandle() {
   if (table_ != nullptr) table_->members_.erase(this);
}

DedupHashTableUnorderedSet::~DedupHashTableUnorderedSet() {
   for (DedupHandle* h : members_) h->table_ = nullptr;
}

DedupHandle* DedupHashTableUnorderedSet::dedupRaw(DedupHandle* candidate) {
   KEL_ASSERT(candidate != nullptr);
   if (candidate->table_ == this) return candidate;
   // An object belongs to at most one table; the same content in two tables is two objects.
   KEL_ASSERT(candidate->table_ == nullptr);
   auto [it, inserted] = members_.insert(candidate);
   if (inserted) candidate->table_ = this;
   return *it;
}

DedupHandle* DedupHashTableUnorderedSet::findRaw(const DedupHandle& probe) const {
   auto it = members_.find(const_cast<DedupHandle*>(&probe));
   return it == members_.end() ? nullptr : *it;
}

Kel::Ptr<DedupHashTableUnorderedSet> dedupHashTableUnorderedSetFactory() {
   return Kel::makePtr<DedupHashTableUnorderedSet>();
}

}  // namespace Orb
