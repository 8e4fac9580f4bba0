#include "Routing/RouteMap/PrefixListEntry.h"

#include <ostream>

#include "Kel/ValueText.h"

namespace Routing::RouteMap {

namespace {
constexpr std::string_view kTypeName = "Routing::RouteMap::GenPrefixEntry";
}

std::string GenPrefixEntry::toStrep() const {
   return Kel::ValueWriter(kTypeName)
       .field("seqno", seqno)
       .field("prefix", prefix)
       .field("permit", permit)
       .field("minLen", minLen)
       .field("maxLen", maxLen)
       .field("flags", flags)
       .str();
}

GenPrefixEntry GenPrefixEntry::fromStrep(std::string_view text) {
   Kel::ValueReader r(text, kTypeName);
   GenPrefixEntry e;
   e.seqno = r.field<U32>("seqno");
   e.prefix = r.field<Nx::IpGenPrefix>("prefix");
   e.permit = r.field<bool>("permit");
   e.minLen = r.field<U32>("minLen");
   e.maxLen = r.field<U32>("maxLen");
   e.flags = r.field<U32>("flags");
   r.finish();
   return e;
}

std::ostream& operator<<(std::ostream& os, const GenPrefixEntry& e) {
   return os << e.toStrep();
}

Kel::Ptr<PrefixListEntryData> prefixListEntryDataFactory(const GenPrefixEntry& entry) {
   return Kel::makePtr<PrefixListEntryData>(entry);
}

}  // namespace Routing::RouteMap
