#include "Routing/RouteMap/ListStatus.h"

#include <ostream>

namespace Routing::RouteMap {

void ListStatus::formatDerivedType(std::ostream& os) const {
   Kel::Entity::formatDerivedType(os);
   os << ' ' << name_;
}

Kel::Ptr<PrefixListStatus> PrefixListStatusIs(Kel::String name) {
   return Kel::makePtr<PrefixListStatus>(std::move(name));
}

Kel::Ptr<IpAccessListStatus> IpAccessListStatusIs(Kel::String name) {
   return Kel::makePtr<IpAccessListStatus>(std::move(name));
}

}  // namespace Routing::RouteMap
