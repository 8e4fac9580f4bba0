#include "Routing/RouteTypes.h"

#include <array>
#include <utility>

#include "Kel/Exception.h"
#include "Kel/ValueText.h"

namespace Routing {

namespace {

constexpr std::pair<RouteProto, std::string_view> kProtoNames[] = {
    {RouteProto::unknown, "unknown"},
    {RouteProto::connected, "connected"},
    {RouteProto::kernel, "kernel"},
    {RouteProto::staticRoute, "static"},
    {RouteProto::ospfIntraArea, "ospfIntraArea"},
    {RouteProto::ospfInterArea, "ospfInterArea"},
    {RouteProto::rip, "rip"},
    {RouteProto::isis, "isis"},
    {RouteProto::ospf3, "ospf3"},
    {RouteProto::aggregate, "aggregate"},
    {RouteProto::isisLevel1, "isisLevel1"},
    {RouteProto::bgp, "bgp"},
    {RouteProto::ibgp, "ibgp"},
    {RouteProto::ebgp, "ebgp"},
    {RouteProto::ospf, "ospf"},
    {RouteProto::vrfLeak, "vrfLeak"},
    {RouteProto::attachedHost, "attachedHost"},
    {RouteProto::dynamic, "dynamic"},
};

constexpr std::string_view kFib4Names[] = {
    "invalid",       "connected",    "local",         "attached",      "receive",
    "vrfConnected",  "drop",         "static",        "null",          "kernel",
    "rip",           "hostConnected", "multicast",    "isis",          "vrfLeak",
    "bgp",           "bgpInternal",  "bgpExternal",   "bgpConfed",     "bgpAggregate",
    "bgpVpn",        "isisLevel1",   "isisLevel2",    "isisSummary",   "ospf3Intra",
    "ospf3External", "unreachable",  "staticNexthopGroup", "ospfIntraArea", "ospfInterArea",
    "ospfExternal1", "ospfExternal2", "ospfNssa",     "aggregate",
};

constexpr std::string_view kFib6Names[] = {
    "invalid", "connected",   "local",        "attached",      "static",
    "kernel",  "ripng",       "hostConnected", "receive",      "isis",
    "vrfLeak", "bgp",         "isisSummary",  "ospf3Intra",    "ospf3External",
    "drop",    "staticNexthopGroup", "aggregate",
};

template <std::size_t N>
std::string tableName(const std::string_view (&names)[N], U8 v) {
   return v < N ? std::string(names[v]) : std::to_string(v);
}

}  // namespace

std::string stringValue(RouteProto p) {
   for (const auto& [proto, name] : kProtoNames) {
      if (proto == p) return std::string(name);
   }
   return std::to_string(static_cast<unsigned>(p));
}

std::optional<RouteProto> routeProtoFromString(std::string_view s) {
   for (const auto& [proto, name] : kProtoNames) {
      if (name == s) return proto;
   }
   try {
      return static_cast<RouteProto>(Kel::ValueText<U8>::parse(s));
   } catch (const Kel::ParseException&) {
      return std::nullopt;
   }
}

RouteTag RouteTag::fromStrep(std::string_view s) { return RouteTag(Kel::ValueText<U32>::parse(s)); }

RoutePreference::RoutePreference(U32 v) : value_(v) {
   if (v > max) Kel::throwEnumRange("RoutePreference");
}

RoutePreference RoutePreference::fromStrep(std::string_view s) {
   return RoutePreference(Kel::ValueText<U32>::parse(s));
}

namespace Fib {
std::string stringValue(RouteType t) { return tableName(kFib4Names, static_cast<U8>(t)); }
}  // namespace Fib

}  // namespace Routing

namespace Routing6::Fib {
std::string stringValue(RouteType t) {
   return Routing::tableName(Routing::kFib6Names, static_cast<U8>(t));
}
}  // namespace Routing6::Fib
