#include "Routing/RouteMap/PolicySymbol.h"

#include <ostream>
#include <typeinfo>

#include "Kel/Exception.h"

namespace Routing::RouteMap {

void PolicySymbol::versionInc(U32 n) {
   if (n == 0) return;
   version_ += n;
   notify(&Reactor::handleVersion);
}

U32 PolicySymbol::hash() const {
   // Every kind, route-map symbols included, mixes the same way, so the step lives here once.
   const U32 x = 9u * Kel::stringHash(name_);
   return (x ^ (x >> 11)) * 32769u;
}

bool PolicySymbol::compare(const Orb::DedupHandle& other) const {
   return typeid(*this) == typeid(other) && static_cast<const PolicySymbol&>(other).name_ == name_;
}

void PolicySymbol::formatDerivedType(std::ostream& os) const {
   Kel::Entity::formatDerivedType(os);
   os << ' ' << name_ << " v" << version_;
}

PolicySymbolNotifier::PolicySymbolNotifier(Kel::Ptr<PolicySymbol const> symbol)
    : symbolReactor_(this) {
   symbolReactor_.notifierIs(std::move(symbol));
}

Kel::Ptr<PolicySymbolNotifier> policySymbolNotifierFactory(Kel::Ptr<PolicySymbol const> symbol) {
   return Kel::makePtr<PolicySymbolNotifier>(std::move(symbol));
}

Kel::Ptr<PrefixListSymbol> prefixListSymbolFactory(Kel::String name) {
   return Kel::makePtr<PrefixListSymbol>(std::move(name));
}
Kel::Ptr<IpAccessListSymbol> ipAccessListSymbolFactory(Kel::String name) {
   return Kel::makePtr<IpAccessListSymbol>(std::move(name));
}
Kel::Ptr<CommListSymbol> commListSymbolFactory(Kel::String name) {
   return Kel::makePtr<CommListSymbol>(std::move(name));
}
Kel::Ptr<AsPathListSymbol> asPathListSymbolFactory(Kel::String name) {
   return Kel::makePtr<AsPathListSymbol>(std::move(name));
}
Kel::Ptr<DynPrefixListSymbol> dynPrefixListSymbolFactory(Kel::String name) {
   return Kel::makePtr<DynPrefixListSymbol>(std::move(name));
}

Kel::Ptr<PrefixListSymbolDedupTable> prefixListSymbolDedupTableFactory() {
   return Kel::makePtr<PrefixListSymbolDedupTable>();
}
Kel::Ptr<IpAccessListSymbolDedupTable> ipAccessListSymbolDedupTableFactory() {
   return Kel::makePtr<IpAccessListSymbolDedupTable>();
}
Kel::Ptr<CommListSymbolDedupTable> commListSymbolDedupTableFactory() {
   return Kel::makePtr<CommListSymbolDedupTable>();
}
Kel::Ptr<AsPathListSymbolDedupTable> asPathListSymbolDedupTableFactory() {
   return Kel::makePtr<AsPathListSymbolDedupTable>();
}
Kel::Ptr<DynPrefixListSymbolDedupTable> dynPrefixListSymbolDedupTableFactory() {
   return Kel::makePtr<DynPrefixListSymbolDedupTable>();
}

void AllIpAccessListSymbol::symbolIs(Kel::Ptr<IpAccessListSymbol> s) {
   if (!s) Kel::throwNullMutatorArg("Routing::RouteMap::AllIpAccessListSymbol", "symbol");
   const Kel::String name = s->name();
   if (symbol_.set(name, std::move(s))) notify(&Reactor::handleSymbol, name);
}

void AllIpAccessListSymbol::symbolDel(const Kel::String& name) {
   if (symbol_.del(name)) notify(&Reactor::handleSymbol, name);
}

void AllIpAccessListSymbol::symbolDelAll() {
   symbol_.delAll([this](const Kel::String& name) { notify(&Reactor::handleSymbol, name); });
}

Kel::Ptr<AllIpAccessListSymbol> allIpAccessListSymbolFactory() {
   return Kel::makePtr<AllIpAccessListSymbol>();
}

}  // namespace Routing::RouteMap
