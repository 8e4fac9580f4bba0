#include "RoutingPolicy/eval/IntfIdSet.h"

#include <algorithm>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/ValueText.h"

namespace Routing::Policy {

void IntfIdSet::intfIdIs(const Nx::IntfId& id) {
   if (intfId_.insert(id).second) notify(&Reactor::handleIntfId, id);
}

void IntfIdSet::intfIdDel(const Nx::IntfId& id) {
   if (intfId_.erase(id) > 0) notify(&Reactor::handleIntfId, id);
}

void IntfIdSet::intfIdDelAll() {
   while (!intfId_.empty()) {
      const Nx::IntfId id = *intfId_.begin();
      intfId_.erase(intfId_.begin());
      notify(&Reactor::handleIntfId, id);
   }
}

U32 IntfIdSet::hash() const {
   // A commutative combination of well-mixed member hashes, so that iteration order (which
   // depends on the bucket count) cannot change the result.
   U32 h = 0;
   for (const Nx::IntfId& id : intfId_) {
      U32 x = id.hash() * 0x9e3779b1u;
      x ^= x >> 15;
      h += x;
   }
   return h;
}

std::string IntfIdSet::toStrep() const {
   std::vector<const Nx::IntfId*> sorted;
   sorted.reserve(intfId_.size());
   for (const Nx::IntfId& id : intfId_) sorted.push_back(&id);
   std::sort(sorted.begin(), sorted.end(),
             [](const Nx::IntfId* a, const Nx::IntfId* b) { return *a < *b; });
   std::string s = "[";
   for (const Nx::IntfId* id : sorted) {
      if (s.size() > 1) s += ", ";
      Kel::ValueText<std::string>::print(s, id->name());
   }
   s += ']';
   return s;
}

Kel::Ptr<IntfIdSet> IntfIdSet::fromStrep(std::string_view text) {
   if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
      throw Kel::ParseException("expected a list of interface names, got '" + std::string(text) +
                                "'");
   }
   Kel::Ptr<IntfIdSet> set = intfIdSetFactory();
   std::string_view rest = text.substr(1, text.size() - 2);
   while (!rest.empty()) {
      // Interface names cannot hold a comma or a quote, so the list splits on ", ".
      const std::size_t comma = rest.find(", ");
      const std::string_view item = rest.substr(0, comma);
      set->intfIdIs(Nx::IntfId::fromStrep(Kel::ValueText<std::string>::parse(item)));
      rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 2);
   }
   return set;
}

Kel::Ptr<IntfIdSet> intfIdSetFactory() {
   return Kel::makePtr<IntfIdSet>();
}

}  // namespace Routing::Policy
