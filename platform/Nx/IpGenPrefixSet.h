#pragma once
// A shared, ordered set of prefixes: the value behind a prefix-list match and the unit that a
// configuration reader hands to the compiler. Shared through Kel::Ptr so that a compiled policy
// and the configuration that produced it can hold the same set without copying it.

#include <cstddef>
#include <set>

#include "Kel/Ptr.h"
#include "Nx/IpGenPrefix.h"

namespace Nx {

class IpGenPrefixSet : public Kel::RefCounted {
public:
   using const_iterator = std::set<IpGenPrefix>::const_iterator;

   void prefixIs(const IpGenPrefix& p) { prefixes_.insert(p); }
   bool prefixHas(const IpGenPrefix& p) const { return prefixes_.contains(p); }
   void prefixDel(const IpGenPrefix& p) { prefixes_.erase(p); }
   void prefixDelAll() noexcept { prefixes_.clear(); }

   std::size_t size() const noexcept { return prefixes_.size(); }
   bool empty() const noexcept { return prefixes_.empty(); }
   // Ordered by family, address, then length (see IpGenPrefix::operator<=>).
   const_iterator begin() const noexcept { return prefixes_.begin(); }
   const_iterator end() const noexcept { return prefixes_.end(); }

private:
   friend Kel::Ptr<IpGenPrefixSet> ipGenPrefixSetFactory();
   // Only through the factory, so that every set is reference-counted from birth.
   IpGenPrefixSet() = default;

   std::set<IpGenPrefix> prefixes_;
};

Kel::Ptr<IpGenPrefixSet> ipGenPrefixSetFactory();

}  // namespace Nx
