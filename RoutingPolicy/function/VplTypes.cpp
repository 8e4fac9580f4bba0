#include "RoutingPolicy/function/VplTypes.h"

#include <algorithm>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Exception.h"
#include "RoutingPolicy/function/VplExternalMatchers.h"

namespace Vpl::Eval {

namespace {

constexpr std::string_view kTriStateNames[] = {"VplUnknown", "VplFalse", "VplTrue"};
constexpr const char* kEvalResultType = "Vpl::Eval::EvalResult";
constexpr const char* kMetadataType = "Vpl::Eval::FunctionMetadata";

std::vector<const Kel::String*> sortedNames(const FunctionMetadata::NameSet& set) {
   std::vector<const Kel::String*> names;
   names.reserve(set.size());
   for (const Kel::String& n : set) names.push_back(&n);
   std::sort(names.begin(), names.end(),
             [](const Kel::String* a, const Kel::String* b) { return *a < *b; });
   return names;
}

std::string setText(const FunctionMetadata::NameSet& set) {
   std::string s = "[";
   for (const Kel::String* n : sortedNames(set)) {
      if (s.size() > 1) s += ", ";
      Kel::ValueText<std::string>::print(s, *n);
   }
   s += ']';
   return s;
}

void appendEscaped(std::string& out, const Kel::String& name) {
   for (char c : name) {
      if (c == '\\') {
         out += "\\\\";
      } else if (c == '\n') {
         out += "\\n";
      } else {
         out += c;
      }
   }
}

std::string lineRef(std::size_t lineNo) {
   return "attribute log line " + std::to_string(lineNo);
}

Kel::String unescaped(std::string_view text, std::string_view set, std::size_t lineNo) {
   Kel::String name;
   name.reserve(text.size());
   for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '\\') {
         name += text[i];
         continue;
      }
      const char next = i + 1 < text.size() ? text[++i] : '\0';
      if (next == '\\') {
         name += '\\';
      } else if (next == 'n') {
         name += '\n';
      } else {
         throw Kel::ParseException("bad escape in " + lineRef(lineNo) + " of " +
                                       std::string(kMetadataType) + ": '" + std::string(text) + "'",
                                   std::string(set));
      }
   }
   return name;
}

}  // namespace

std::string stringValue(TriStateBoolValue v) {
   Kel::checkEnumRange("TriStateBoolValue", static_cast<U32>(v), static_cast<U32>(VplUnknown),
                       static_cast<U32>(VplTrue));
   return std::string(kTriStateNames[v]);
}

TriStateBoolValue triStateBoolValueFromStrep(std::string_view text) {
   for (U32 i = 0; i < std::size(kTriStateNames); ++i) {
      if (kTriStateNames[i] == text) return static_cast<TriStateBoolValue>(i);
   }
   throw Kel::ParseException("unknown TriStateBoolValue '" + std::string(text) + "'");
}

std::string EvalResult::toStrep() const {
   return Kel::ValueWriter(kEvalResultType)
       .field("retVal", retVal)
       .field("returnToCaller", returnToCaller)
       .str();
}

EvalResult EvalResult::fromStrep(std::string_view text) {
   Kel::ValueReader r(text, kEvalResultType);
   EvalResult result;
   result.retVal = r.field<TriStateBoolValue>("retVal");
   result.returnToCaller = r.field<bool>("returnToCaller");
   r.finish();
   return result;
}

const FunctionMetadata::NameSetField FunctionMetadata::kNameSetFields[6] = {
    {"attrsUsed", &FunctionMetadata::attrsUsed_},
    {"v4PrefixListsUsed", &FunctionMetadata::v4PrefixListsUsed_},
    {"v6PrefixListsUsed", &FunctionMetadata::v6PrefixListsUsed_},
    {"aspathAccessListsUsed", &FunctionMetadata::aspathAccessListsUsed_},
    {"commListsUsed", &FunctionMetadata::commListsUsed_},
    {"extCommListsUsed", &FunctionMetadata::extCommListsUsed_},
};

void FunctionMetadata::updateWith(const FunctionMetadata& other) {
   v4PrefixListsUsed_.insert(other.v4PrefixListsUsed_.begin(), other.v4PrefixListsUsed_.end());
   v6PrefixListsUsed_.insert(other.v6PrefixListsUsed_.begin(), other.v6PrefixListsUsed_.end());
}

std::string FunctionMetadata::toStrep() const {
   Kel::ValueWriter w(kMetadataType);
   for (const NameSetField& f : kNameSetFields) w.rawField(f.name, setText(this->*f.set));
   return w.str();
}

FunctionMetadata FunctionMetadata::fromStrep(std::string_view) {
   KEL_ASSERT(!"No String constructor for FunctionMetadata - has collection");
   return {};
}

std::string FunctionMetadata::toAttrLog() const {
   std::string log;
   for (const NameSetField& f : kNameSetFields) {
      for (const Kel::String* n : sortedNames(this->*f.set)) {
         log.append(f.name);
         log += '=';
         appendEscaped(log, *n);
         log += '\n';
      }
   }
   return log;
}

FunctionMetadata FunctionMetadata::fromAttrLog(std::string_view log) {
   FunctionMetadata md;
   std::size_t lineNo = 0;
   while (!log.empty()) {
      const std::size_t eol = log.find('\n');
      const std::string_view line = log.substr(0, eol);
      log = eol == std::string_view::npos ? std::string_view{} : log.substr(eol + 1);
      ++lineNo;
      // A member always has its "<set>=" head, so an empty line is only a blank between records.
      if (line.empty()) continue;
      const std::size_t eq = line.find('=');
      if (eq == std::string_view::npos) {
         throw Kel::ParseException("expected <set>=<name> in " + lineRef(lineNo) + " of " +
                                   kMetadataType + ", got '" + std::string(line) + "'");
      }
      const std::string_view set = line.substr(0, eq);
      const auto* field = std::find_if(std::begin(kNameSetFields), std::end(kNameSetFields),
                                       [&](const NameSetField& f) { return f.name == set; });
      if (field == std::end(kNameSetFields)) {
         throw Kel::ParseException("unknown set '" + std::string(set) + "' in " + lineRef(lineNo) +
                                   " of " + kMetadataType);
      }
      (md.*field->set).insert(unescaped(line.substr(eq + 1), set, lineNo));
   }
   return md;
}

EvalResult Expression::eval(const Kel::Ptr<EvalContextBase>&) const {
   KEL_ASSERT(false && "Can not call 'eval' in base class");
   return {};
}

bool Expression::compare(const Kel::Ptr<Expression const>&) const {
   KEL_ASSERT(false && "Can not call 'compare' in base class");
   return false;
}

FunctionBase::FunctionBase(Kel::String funcName, FunctionMetadata metadata)
    : funcName_(std::move(funcName)), metadata_(std::move(metadata)) {}

Routing::Policy::RouteMapFeatures FunctionBase::features() const {
   Routing::Policy::RouteMapFeatures f;
   f.matchPrefixDependent = true;
   return f;
}

EvalContextBase::EvalContextBase(Kel::Ptr<Vpl::ExternalMatchersBase const> externalMatchers)
    : externalMatchers_(std::move(externalMatchers)) {}

EvalContextBase::~EvalContextBase() = default;

Kel::Ptr<Expression> expressionFactory() {
   return Kel::makePtr<Expression>();
}

Kel::Ptr<FunctionBase> functionBaseFactory(Kel::String funcName, FunctionMetadata metadata) {
   return Kel::makePtr<FunctionBase>(std::move(funcName), std::move(metadata));
}

Kel::Ptr<EvalContextBase> evalContextBaseFactory(
    Kel::Ptr<Vpl::ExternalMatchersBase const> externalMatchers) {
   return Kel::makePtr<EvalContextBase>(std::move(externalMatchers));
}

}  // namespace Vpl::Eval
