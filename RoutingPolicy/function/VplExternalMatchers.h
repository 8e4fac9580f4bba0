#pragma once
// The bridge from policy functions to the route-map side: functions name prefix lists, the
// route-map side compiles them into PrefixListMatchers, and ExternalMatchers maps one to the
// other per address family. FunctionStatusBase is what a consumer installs in its
// RouteMapStatusList to apply a function beside its route maps.

#include <unordered_map>

#include "Kel/Entity.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"
#include "RoutingPolicy/function/VplTypes.h"

namespace Vpl {

// Lets evaluation contexts hold external matchers without knowing which kind the interpreter
// uses.
class ExternalMatchersBase : public Kel::Entity {};

class ExternalMatchers : public ExternalMatchersBase {
public:
   using PrefixListMatcher = Routing::Policy::PrefixListMatcher;
   using PfxlMap = std::unordered_map<Kel::String, Kel::Ptr<PrefixListMatcher const>>;

   class Reactor : public Kel::ReactorFor<ExternalMatchers> {
   public:
      virtual void handleV4Pfxl(const Kel::String&) {}
      virtual void handleV6Pfxl(const Kel::String&) {}
   };

   // Null when no list of that name is offered.
   Kel::Ptr<PrefixListMatcher const> v4Pfxl(const Kel::String& name) const {
      return v4Pfxl_.get(name);
   }
   // For evaluation: no count is taken per lookup. The caller holds the ExternalMatchers, and
   // through it the matcher, for the evaluation.
   const PrefixListMatcher* v4PfxlRawPtr(const Kel::String& name) const {
      const auto* m = v4Pfxl_.find(name);
      return m ? m->get() : nullptr;
   }
   bool v4PfxlHas(const Kel::String& name) const { return v4Pfxl_.has(name); }
   // A null matcher deletes the entry.
   void v4PfxlIs(const Kel::String& name, Kel::Ptr<PrefixListMatcher const> matcher);
   void v4PfxlDel(const Kel::String& name);
   void v4PfxlDelAll();
   const PfxlMap& v4PfxlMap() const { return v4Pfxl_.container(); }

   Kel::Ptr<PrefixListMatcher const> v6Pfxl(const Kel::String& name) const {
      return v6Pfxl_.get(name);
   }
   const PrefixListMatcher* v6PfxlRawPtr(const Kel::String& name) const {
      const auto* m = v6Pfxl_.find(name);
      return m ? m->get() : nullptr;
   }
   bool v6PfxlHas(const Kel::String& name) const { return v6Pfxl_.has(name); }
   void v6PfxlIs(const Kel::String& name, Kel::Ptr<PrefixListMatcher const> matcher);
   void v6PfxlDel(const Kel::String& name);
   void v6PfxlDelAll();
   const PfxlMap& v6PfxlMap() const { return v6Pfxl_.container(); }

private:
   using Handler = void (Reactor::*)(const Kel::String&);
   using Table = Kel::Collection<Kel::String, Kel::Ptr<PrefixListMatcher const>, PfxlMap>;

   void pfxlIs(Table& table, Handler handler, const Kel::String& name,
               Kel::Ptr<PrefixListMatcher const> matcher);
   void pfxlDel(Table& table, Handler handler, const Kel::String& name);
   void pfxlDelAll(Table& table, Handler handler);

   Table v4Pfxl_;
   Table v6Pfxl_;
};

// One compiled function with the matchers it evaluates against. Fixed at construction: a new
// function or a new set of matchers is a new status, installed with vplStatusIs.
class FunctionStatusBase : public Kel::RefCounted {
public:
   FunctionStatusBase(Kel::String funcName, Kel::Ptr<Eval::FunctionBase const> function,
                      Kel::Ptr<ExternalMatchersBase const> externalMatchers);

   const Kel::String& funcName() const { return funcName_; }
   // Null while the function is not compiled (yet); it then contributes no features.
   const Kel::Ptr<Eval::FunctionBase const>& function() const { return function_; }
   const Kel::Ptr<ExternalMatchersBase const>& externalMatchers() const {
      return externalMatchers_;
   }

private:
   const Kel::String funcName_;
   const Kel::Ptr<Eval::FunctionBase const> function_;
   const Kel::Ptr<ExternalMatchersBase const> externalMatchers_;
};

Kel::Ptr<ExternalMatchersBase> externalMatchersBaseFactory();
Kel::Ptr<ExternalMatchers> externalMatchersFactory();
Kel::Ptr<FunctionStatusBase> functionStatusBaseFactory(
    Kel::String funcName, Kel::Ptr<Eval::FunctionBase const> function,
    Kel::Ptr<ExternalMatchersBase const> externalMatchers);

}  // namespace Vpl
