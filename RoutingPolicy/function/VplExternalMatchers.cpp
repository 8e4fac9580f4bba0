#include "RoutingPolicy/function/VplExternalMatchers.h"

namespace Vpl {

void ExternalMatchers::pfxlIs(Table& table, Handler handler, const Kel::String& name,
                              Kel::Ptr<PrefixListMatcher const> matcher) {
   if (!matcher) return pfxlDel(table, handler, name);
   if (!table.set(name, std::move(matcher))) return;
   notify(handler, name);
}

void ExternalMatchers::pfxlDel(Table& table, Handler handler, const Kel::String& name) {
   if (!table.del(name)) return;
   notify(handler, name);
}

void ExternalMatchers::pfxlDelAll(Table& table, Handler handler) {
   table.delAll([this, handler](const Kel::String& name) { notify(handler, name); });
}

void ExternalMatchers::v4PfxlIs(const Kel::String& name,
                                Kel::Ptr<PrefixListMatcher const> matcher) {
   pfxlIs(v4Pfxl_, &Reactor::handleV4Pfxl, name, std::move(matcher));
}
void ExternalMatchers::v4PfxlDel(const Kel::String& name) {
   pfxlDel(v4Pfxl_, &Reactor::handleV4Pfxl, name);
}
void ExternalMatchers::v4PfxlDelAll() {
   pfxlDelAll(v4Pfxl_, &Reactor::handleV4Pfxl);
}

void ExternalMatchers::v6PfxlIs(const Kel::String& name,
                                Kel::Ptr<PrefixListMatcher const> matcher) {
   pfxlIs(v6Pfxl_, &Reactor::handleV6Pfxl, name, std::move(matcher));
}
void ExternalMatchers::v6PfxlDel(const Kel::String& name) {
   pfxlDel(v6Pfxl_, &Reactor::handleV6Pfxl, name);
}
void ExternalMatchers::v6PfxlDelAll() {
   pfxlDelAll(v6Pfxl_, &Reactor::handleV6Pfxl);
}

FunctionStatusBase::FunctionStatusBase(Kel::String funcName,
                                       Kel::Ptr<Eval::FunctionBase const> function,
                                       Kel::Ptr<ExternalMatchersBase const> externalMatchers)
    : funcName_(std::move(funcName)),
      function_(std::move(function)),
      externalMatchers_(std::move(externalMatchers)) {}

Kel::Ptr<ExternalMatchersBase> externalMatchersBaseFactory() {
   return Kel::makePtr<ExternalMatchersBase>();
}

Kel::Ptr<ExternalMatchers> externalMatchersFactory() {
   return Kel::makePtr<ExternalMatchers>();
}

Kel::Ptr<FunctionStatusBase> functionStatusBaseFactory(
    Kel::String funcName, Kel::Ptr<Eval::FunctionBase const> function,
    Kel::Ptr<ExternalMatchersBase const> externalMatchers) {
   return Kel::makePtr<FunctionStatusBase>(std::move(funcName), std::move(function),
                                           std::move(externalMatchers));
}

}  // namespace Vpl
