#pragma once
// Content deduplication of shared objects (symbols). Every holder of "the prefix list named X"
// must share one object, so that a change published on it reaches all of them. A DedupHandle
// says what its content is (hash, compare); a DedupHashTableUnorderedSet hands back the object it
// already holds for equal content, or takes the new one in.
//
// The table does not keep its members alive: when the last holder outside the table releases an
// object, the object leaves the table by itself, and a later dedup of the same content enters a
// fresh one. Tables and members may die in either order.

#include <cstddef>
#include <unordered_map>

#include "Kel/Entity.h"

namespace Orb {

class DedupHashTableUnorderedSet;

class DedupHandle : public Kel::Entity {
public:
   DedupHandle() = default;
   // A copy has the same content but is not a member of any table.
   DedupHandle(const DedupHandle& o) : Kel::Entity(o) {}
   ~DedupHandle() override;

   virtual U32 hash() const = 0;
   // Content equality with a member of the same table.
   virtual bool compare(const DedupHandle& other) const = 0;

   const DedupHashTableUnorderedSet* dedupTable() const { return table_; }

private:
   friend class DedupHashTableUnorderedSet;
   DedupHashTableUnorderedSet* table_ = nullptr;
   // The hash at entry. A member leaves its table from its destructor, when its own hash() and
   // compare() can no longer be called.
   U32 tableHash_ = 0;
};

class DedupHashTableUnorderedSet : public Kel::Entity {
public:
   DedupHashTableUnorderedSet() = default;
   ~DedupHashTableUnorderedSet() override;

   // The member equal to `candidate`, or `candidate` itself after entering it.
   template <class T>
   Kel::Ptr<T> dedup(const Kel::Ptr<T>& candidate) {
      return Kel::Ptr<T>(static_cast<T*>(dedupRaw(candidate.get())));
   }
   // The member equal to `probe` if any, without entering anything.
   template <class T>
   Kel::Ptr<T> find(const T& probe) const {
      return Kel::Ptr<T>(static_cast<T*>(findRaw(probe)));
   }
   std::size_t size() const { return members_.size(); }

private:
   friend class DedupHandle;
   DedupHandle* dedupRaw(DedupHandle* candidate);
   DedupHandle* findRaw(const DedupHandle& probe) const;

   void remove(DedupHandle* member);

   std::unordered_multimap<U32, DedupHandle*> members_;
};

Kel::Ptr<DedupHashTableUnorderedSet> dedupHashTableUnorderedSetFactory();

}  // namespace Orb
