#pragma once
// What the library knows of policy functions: the base classes through which a compiled function
// is handed over and evaluated, its three-valued result, and the metadata that lists what it
// reads. The language's compiler and interpreter live outside the library and derive from these.

#include <string>
#include <string_view>
#include <unordered_set>

#include "Kel/Entity.h"
#include "Kel/Types.h"
#include "Kel/ValueText.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"

namespace Vpl {
class ExternalMatchersBase;
}

namespace Vpl::Eval {

// Unscoped so that the language's code reads `VplTrue` as it writes it.
enum TriStateBoolValue : U32 {
   VplUnknown = 0,
   VplFalse = 1,
   VplTrue = 2,
};

// The enumerator's name; a value outside the enumeration is the standard range error.
std::string stringValue(TriStateBoolValue v);
// By name only; anything else is a Kel::ParseException.
TriStateBoolValue triStateBoolValueFromStrep(std::string_view text);

struct EvalResult {
   TriStateBoolValue retVal = VplUnknown;
   // A return was executed: the enclosing function ends with retVal.
   bool returnToCaller = false;

   bool operator==(const EvalResult&) const noexcept = default;

   // Value('Vpl::Eval::EvalResult', ** {'retVal': VplTrue, 'returnToCaller': False})
   std::string toStrep() const;
   static EvalResult fromStrep(std::string_view text);
};

// The names a function reads. Consumers use it to decide which prefix lists, community lists and
// attributes a function must be offered and which of their changes call for a new evaluation.
class FunctionMetadata {
public:
   using NameSet = std::unordered_set<Kel::String>;

   // Every set has the same five operations; writing them once keeps the six alike.
#define VPL_NAME_SET_ATTR_(attr)                   \
   const NameSet& attr() const {                   \
      return attr##_;                              \
   }                                               \
   bool attr##Has(const Kel::String& name) const { \
      return attr##_.contains(name);               \
   }                                               \
   void attr##Is(const Kel::String& name) {        \
      attr##_.insert(name);                        \
   }                                               \
   void attr##Del(const Kel::String& name) {       \
      attr##_.erase(name);                         \
   }                                               \
   void attr##DelAll() {                           \
      attr##_.clear();                             \
   }

   VPL_NAME_SET_ATTR_(attrsUsed)
   VPL_NAME_SET_ATTR_(v4PrefixListsUsed)
   VPL_NAME_SET_ATTR_(v6PrefixListsUsed)
   VPL_NAME_SET_ATTR_(aspathAccessListsUsed)
   VPL_NAME_SET_ATTR_(commListsUsed)
   VPL_NAME_SET_ATTR_(extCommListsUsed)
#undef VPL_NAME_SET_ATTR_

   // Adds only the other's prefix lists: those are what the route-map side compiles and offers
   // to functions. Callers that need a union of the other sets insert those names themselves.
   void updateWith(const FunctionMetadata& other);

   bool operator==(const FunctionMetadata&) const = default;

   // Each set as "['a', 'b']", names sorted so that equal sets print alike.
   std::string toStrep() const;
   // Refused by assertion: a value holding collections is never rebuilt from this text form.
   static FunctionMetadata fromStrep(std::string_view text);

   // The attribute log: one line "<set>=<name>" per member, sets in declaration order and names
   // sorted within a set. A backslash in a name is written "\\" and a newline "\n", so any name
   // survives. Reading accepts the lines in any order and throws Kel::ParseException, naming the
   // set where one is known, for a line it cannot read.
   std::string toAttrLog() const;
   static FunctionMetadata fromAttrLog(std::string_view log);

private:
   struct NameSetField {
      std::string_view name;
      NameSet FunctionMetadata::*set;
   };
   // Declaration order, which every text form follows.
   static const NameSetField kNameSetFields[6];

   NameSet attrsUsed_;
   NameSet v4PrefixListsUsed_;
   NameSet v6PrefixListsUsed_;
   NameSet aspathAccessListsUsed_;
   NameSet commListsUsed_;
   NameSet extCommListsUsed_;
};

class EvalContextBase;

// Every evaluable node of the language. The base operations exist only so that any node can be
// held and called through this type; reaching them is a programming error.
class Expression : public Kel::Entity {
public:
   // The context by reference: nested evaluations must not take a count per node.
   virtual EvalResult eval(const Kel::Ptr<EvalContextBase>& context) const;
   // Structural equality, so that a recompiled function equal to the installed one can be kept.
   virtual bool compare(const Kel::Ptr<Expression const>& other) const;
};

class FunctionBase : public Expression {
public:
   FunctionBase(Kel::String funcName, FunctionMetadata metadata);

   const Kel::String& funcName() const { return funcName_; }
   const FunctionMetadata& metadata() const { return metadata_; }

   // Always exactly matchPrefixDependent: a function may read the prefix in any way the
   // language allows, and it sets none of the attributes that features track.
   Routing::Policy::RouteMapFeatures features() const;

private:
   const Kel::String funcName_;
   const FunctionMetadata metadata_;
};

// The language's evaluation context derives from this; the route-map side reaches it only for
// the compiled prefix lists it offers.
class EvalContextBase : public Kel::RefCounted {
public:
   explicit EvalContextBase(Kel::Ptr<Vpl::ExternalMatchersBase const> externalMatchers);
   ~EvalContextBase() override;

   const Kel::Ptr<Vpl::ExternalMatchersBase const>& externalMatchers() const {
      return externalMatchers_;
   }

private:
   const Kel::Ptr<Vpl::ExternalMatchersBase const> externalMatchers_;
};

Kel::Ptr<Expression> expressionFactory();
Kel::Ptr<FunctionBase> functionBaseFactory(Kel::String funcName, FunctionMetadata metadata);
Kel::Ptr<EvalContextBase> evalContextBaseFactory(
    Kel::Ptr<Vpl::ExternalMatchersBase const> externalMatchers);

}  // namespace Vpl::Eval

template <>
struct Kel::ValueText<Vpl::Eval::TriStateBoolValue> {
   static void print(std::string& out, Vpl::Eval::TriStateBoolValue v) {
      out += Vpl::Eval::stringValue(v);
   }
   static Vpl::Eval::TriStateBoolValue parse(std::string_view s) {
      return Vpl::Eval::triStateBoolValueFromStrep(s);
   }
};
