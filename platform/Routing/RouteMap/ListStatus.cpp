#include "Routing/RouteMap/ListStatus.h"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <string>

#include "Kel/Exception.h"
#include "Routing/RouteMap/PrefixListEntry.h"

namespace Routing::RouteMap {

void ListStatus::formatDerivedType(std::ostream& os) const {
   Kel::Entity::formatDerivedType(os);
   os << ' ' << name_;
}

void IpAccessListStatus::maskRulesIs(const std::vector<AclMaskRule>& rules) {
   const auto out = std::adjacent_find(
       rules.begin(), rules.end(), [](const auto& a, const auto& b) { return a.seqno >= b.seqno; });
   if (out != rules.end()) {
      throw Kel::RangeException("IpAccessListStatus " + name() + ": mask rule " +
                                std::to_string(std::next(out)->seqno) + " out of sequence order");
   }
   AclMaskColumns m;
   m.count = rules.size();
   const std::size_t padded =
       (m.count + AclMaskColumns::kBlock - 1) / AclMaskColumns::kBlock * AclMaskColumns::kBlock;
   m.seqno.reserve(padded);
   m.source.reserve(padded);
   m.care.reserve(padded);
   m.permit.reserve(padded);
   for (const AclMaskRule& r : rules) {
      m.seqno.push_back(r.seqno);
      m.source.push_back(r.source & ~r.wildcard);
      m.care.push_back(~r.wildcard);
      m.permit.push_back(r.permit ? 1 : 0);
   }
   m.seqno.resize(padded, ~U32{0});
   m.source.resize(padded, 0);
   m.care.resize(padded, ~U32{0});
   m.permit.resize(padded, 1);
   mask_ = std::move(m);
}

std::vector<AclMaskRule> IpAccessListStatus::maskRules() const {
   std::vector<AclMaskRule> out;
   out.reserve(mask_.size());
   for (std::size_t i = 0; i < mask_.size(); ++i) {
      out.push_back({mask_.seqno[i], mask_.source[i], ~mask_.care[i], mask_.permit[i] != 0});
   }
   return out;
}

std::size_t IpAccessListStatus::memoryBytes() const {
   const std::size_t trieBytes =
       trie() ? trie()->memoryBytes() + trie()->entries() * sizeof(PrefixListEntryData) : 0;
   const std::size_t maskBytes =
       sizeof(U32) * (mask_.seqno.capacity() + mask_.source.capacity() + mask_.care.capacity()) +
       mask_.permit.capacity();
   return sizeof(*this) + trieBytes + maskBytes;
}

Kel::Ptr<PrefixListStatus> PrefixListStatusIs(Kel::String name) {
   return Kel::makePtr<PrefixListStatus>(std::move(name));
}

Kel::Ptr<IpAccessListStatus> IpAccessListStatusIs(Kel::String name) {
   return Kel::makePtr<IpAccessListStatus>(std::move(name));
}

}  // namespace Routing::RouteMap
