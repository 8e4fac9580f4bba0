// Value text forms are read from dumps, logs and tools. For every type with a text reader, any
// text must either be refused with the framework's own errors (Kel::ParseException or
// Kel::RangeException), or give a value that prints to text which reads back to an equal value
// and prints the same again. Anything else aborts: another exception, a crash, or a value that
// does not survive its own text.
//
// Input: the first byte picks the type (its value modulo the number of readers, in the order of
// kReaders below); the rest is the text handed to the type's reader.
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>

#include "Kel/Exception.h"
#include "Kel/ValueText.h"
#include "Nx/IntfId.h"
#include "Nx/IpAddr.h"
#include "Nx/IpGenPrefix.h"
#include "Orb/MaybeU63.h"
#include "Routing/RouteMap/MatchRule.h"
#include "Routing/RouteMap/Options.h"
#include "Routing/RouteMap/PrefixListConfig.h"
#include "Routing/RouteMap/PrefixListEntry.h"
#include "Routing/RouteTypes.h"
#include "RoutingPolicy/config/Policy.h"
#include "RoutingPolicy/config/RouteMapLoopDetect.h"
#include "RoutingPolicy/eval/IntfIdSet.h"
#include "RoutingPolicy/eval/Result.h"
#include "RoutingPolicy/function/VplTypes.h"
#include "RoutingPolicy/status/RmPrecedence.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"

using namespace Routing::Policy;

namespace {

std::string quoted(std::string_view s) {
   std::string out = "'";
   for (unsigned char c : s) {
      if (c >= 0x20 && c < 0x7f && c != '\'' && c != '\\') {
         out += static_cast<char>(c);
      } else {
         char buf[8];
         std::snprintf(buf, sizeof buf, "\\x%02x", c);
         out += buf;
      }
   }
   return out + "'";
}

[[noreturn]] void fail(const char* type, std::string_view input, const std::string& what) {
   std::fprintf(stderr, "%s: %s\n  input: %s\n", type, what.c_str(), quoted(input).c_str());
   std::abort();
}

// The reader's verdict on `text`: a value, or nothing when it refused the text with one of the
// framework's errors. Any other way out is a defect.
template <class T, class Parse>
std::optional<T> read(const char* type, std::string_view input, std::string_view text,
                      Parse parse) {
   try {
      return parse(text);
   } catch (const Kel::ParseException&) {
      return std::nullopt;
   } catch (const Kel::RangeException&) {
      return std::nullopt;
   } catch (const std::exception& e) {
      fail(type, input, "reading " + quoted(text) + " threw " + typeid(e).name() + ": " + e.what());
   } catch (...) {
      fail(type, input, "reading " + quoted(text) + " threw something that is not an exception");
   }
}

template <class T, class Parse, class Print, class Equal>
void roundTrip(const char* type, std::string_view text, Parse parse, Print print, Equal equal) {
   const std::optional<T> v = read<T>(type, text, text, parse);
   if (!v) return;
   const std::string printed = print(*v);
   const std::optional<T> again = read<T>(type, text, printed, parse);
   if (!again) fail(type, text, "printed as " + quoted(printed) + ", which does not read back");
   if (!equal(*v, *again)) {
      fail(type, text, "printed as " + quoted(printed) + ", which reads back to another value");
   }
   const std::string reprinted = print(*again);
   if (reprinted != printed) {
      fail(type, text, "printed as " + quoted(printed) + ", then as " + quoted(reprinted));
   }
}

// A type read through Kel::ValueText, as ValueReader reads a field of it.
template <class T>
void valueText(const char* type, std::string_view text) {
   roundTrip<T>(
       type, text, [](std::string_view s) { return Kel::ValueText<T>::parse(s); },
       [](const T& v) { return Kel::valueText(v); }, [](const T& a, const T& b) { return a == b; });
}

// Names read back through an optional-returning parser: a name it accepts must be the one
// stringValue prints, or print to one it accepts for the same value.
template <class T, class Parse>
void named(const char* type, std::string_view text, Parse parse) {
   roundTrip<T>(
       type, text,
       [&](std::string_view s) -> T {
          const std::optional<T> v = parse(s);
          if (!v) throw Kel::ParseException("not a name");
          return *v;
       },
       [](const T& v) { return stringValue(v); }, [](const T& a, const T& b) { return a == b; });
}

void doubleText(std::string_view text) {
   roundTrip<double>(
       "double", text, [](std::string_view s) { return Kel::ValueText<double>::parse(s); },
       [](double v) { return Kel::valueText(v); },
       [](double a, double b) {
          // Every NaN is one value for a text form; otherwise the bits, so that -0 stays -0.
          return (std::isnan(a) && std::isnan(b)) ||
                 std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
       });
}

void intfIdSetText(std::string_view text) {
   using SetPtr = Kel::Ptr<IntfIdSet const>;
   roundTrip<SetPtr>(
       "Routing::Policy::IntfIdSet", text,
       [](std::string_view s) { return SetPtr(IntfIdSet::fromStrep(s)); },
       [](const SetPtr& v) { return v->toStrep(); },
       [](const SetPtr& a, const SetPtr& b) { return *a == *b; });
}

void attrLogText(std::string_view text) {
   using Vpl::Eval::FunctionMetadata;
   roundTrip<FunctionMetadata>(
       "Vpl::Eval::FunctionMetadata attribute log", text,
       [](std::string_view s) { return FunctionMetadata::fromAttrLog(s); },
       [](const FunctionMetadata& v) { return v.toAttrLog(); },
       [](const FunctionMetadata& a, const FunctionMetadata& b) { return a == b; });
}

void exactPrefixText(std::string_view text) {
   roundTrip<Nx::IpGenPrefix>(
       "Nx::IpGenPrefix (exact)", text,
       [](std::string_view s) { return Nx::IpGenPrefix::fromStrepExact(s); },
       [](const Nx::IpGenPrefix& v) { return v.toStrep(); },
       [](const Nx::IpGenPrefix& a, const Nx::IpGenPrefix& b) { return a == b; });
}

using Reader = void (*)(std::string_view);

// Append only: the seed corpus names a reader by its position.
constexpr Reader kReaders[] = {
    [](std::string_view t) { valueText<bool>("bool", t); },
    [](std::string_view t) { valueText<U8>("U8", t); },
    [](std::string_view t) { valueText<U32>("U32", t); },
    [](std::string_view t) { valueText<U64>("U64", t); },
    [](std::string_view t) { valueText<std::int64_t>("int64", t); },
    doubleText,
    [](std::string_view t) { valueText<std::string>("string", t); },
    [](std::string_view t) { valueText<Orb::MaybeU63>("Orb::MaybeU63", t); },
    [](std::string_view t) { valueText<Nx::IpAddr>("Nx::IpAddr", t); },
    [](std::string_view t) { valueText<Nx::Ip6Addr>("Nx::Ip6Addr", t); },
    [](std::string_view t) { valueText<Nx::IpGenAddr>("Nx::IpGenAddr", t); },
    [](std::string_view t) { valueText<Nx::IpGenPrefix>("Nx::IpGenPrefix", t); },
    exactPrefixText,
    [](std::string_view t) { valueText<Nx::IntfId>("Nx::IntfId", t); },
    [](std::string_view t) { valueText<Routing::RouteTag>("Routing::RouteTag", t); },
    [](std::string_view t) { valueText<Routing::RoutePreference>("Routing::RoutePreference", t); },
    [](std::string_view t) {
       valueText<Routing::RouteMap::PrefixListRule>("Routing::RouteMap::PrefixListRule", t);
    },
    [](std::string_view t) {
       valueText<Routing::RouteMap::MatchRule>("Routing::RouteMap::MatchRule", t);
    },
    [](std::string_view t) {
       valueText<Routing::RouteMap::GenPrefixEntry>("Routing::RouteMap::GenPrefixEntry", t);
    },
    [](std::string_view t) { valueText<DescendingSeqnoKey>("DescendingSeqnoKey", t); },
    [](std::string_view t) { valueText<RouteMapLoopDetect>("RouteMapLoopDetect", t); },
    [](std::string_view t) { valueText<Vpl::Eval::EvalResult>("Vpl::Eval::EvalResult", t); },
    [](std::string_view t) {
       valueText<Vpl::Eval::TriStateBoolValue>("Vpl::Eval::TriStateBoolValue", t);
    },
    [](std::string_view t) { valueText<MatchInput_>("Routing::Policy::MatchInput_", t); },
    [](std::string_view t) { valueText<Result_>("Routing::Policy::Result_", t); },
    [](std::string_view t) { valueText<RmPrecedence>("Routing::Policy::RmPrecedence", t); },
    [](std::string_view t) { valueText<RouteMapFeatures>("Routing::Policy::RouteMapFeatures", t); },
    intfIdSetText,
    attrLogText,
    [](std::string_view t) {
       named<Routing::RouteProto>("Routing::RouteProto", t, Routing::routeProtoFromString);
    },
    [](std::string_view t) {
       named<Routing::RouteMap::MatchOption>("Routing::RouteMap::MatchOption", t,
                                             Routing::RouteMap::matchOptionFromString);
    },
    [](std::string_view t) {
       named<Routing::RouteMap::SetOption>("Routing::RouteMap::SetOption", t,
                                           Routing::RouteMap::setOptionFromString);
    },
    [](std::string_view t) {
       named<Routing::RouteMap::Protocol>("Routing::RouteMap::Protocol", t,
                                          Routing::RouteMap::protocolFromString);
    },
    [](std::string_view t) {
       roundTrip<PolicyApplicationType>(
           "Routing::Policy::PolicyApplicationType", t,
           [](std::string_view s) { return PolicyApplicationTypeInstance(s); },
           [](PolicyApplicationType v) { return stringValue(v); },
           [](PolicyApplicationType a, PolicyApplicationType b) { return a == b; });
    },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   if (size == 0) return 0;
   const Reader reader = kReaders[data[0] % std::size(kReaders)];
   reader(std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1));
   return 0;
}
