#include "Routing/RouteMap/Options.h"

#include <utility>

#include "Kel/ValueText.h"

namespace Routing::RouteMap {

namespace {

constexpr std::pair<MatchOption, std::string_view> kMatchNames[] = {
    {MatchOption::matchInvalid, "matchInvalid"},
    {MatchOption::matchIpAddressAccessList, "matchIpAddressAccessList"},
    {MatchOption::matchIpAddressPrefixList, "matchIpAddressPrefixList"},
    {MatchOption::matchMetric, "matchMetric"},
    {MatchOption::matchInterface, "matchInterface"},
    {MatchOption::matchIpNexthop, "matchIpNexthop"},
    {MatchOption::matchIpNexthopPrefixList, "matchIpNexthopPrefixList"},
    {MatchOption::matchIpResolvedNexthopPrefixList, "matchIpResolvedNexthopPrefixList"},
    {MatchOption::matchRouterIdPrefixList, "matchRouterIdPrefixList"},
    {MatchOption::matchSourceProtocol, "matchSourceProtocol"},
    {MatchOption::matchTag, "matchTag"},
    {MatchOption::matchIpv6AddressPrefixList, "matchIpv6AddressPrefixList"},
};

constexpr std::pair<SetOption, std::string_view> kSetNames[] = {
    {SetOption::setInvalid, "setInvalid"},
    {SetOption::setMetric, "setMetric"},
    {SetOption::setDistance, "setDistance"},
    {SetOption::setTag, "setTag"},
};

constexpr std::pair<Protocol, std::string_view> kProtocolNames[] = {
    {Protocol::protocolInvalid, "invalid"},
    {Protocol::connected, "connected"},
    {Protocol::bgp, "bgp"},
    {Protocol::ospf, "ospf"},
    {Protocol::isis, "isis"},
    {Protocol::staticRoute, "static"},
    {Protocol::rip, "rip"},
    {Protocol::ospf3, "ospf3"},
    {Protocol::attachedHost, "attached-host"},
    {Protocol::dynamic, "dynamic"},
};

constexpr std::pair<RouteMapOpModeType, std::string_view> kOpModeNames[] = {
    {RouteMapOpModeType::opModeDefault, "opModeDefault"},
    {RouteMapOpModeType::opModeAlternate, "opModeAlternate"},
};

template <class E, std::size_t N>
std::string nameOf(const std::pair<E, std::string_view> (&table)[N], E v) {
   for (const auto& [e, name] : table) {
      if (e == v) return std::string(name);
   }
   return std::to_string(static_cast<U32>(v));
}

template <class E, std::size_t N>
std::optional<E> valueOf(const std::pair<E, std::string_view> (&table)[N], std::string_view s) {
   for (const auto& [e, name] : table) {
      if (name == s) return e;
   }
   return std::nullopt;
}

}  // namespace

std::string stringValue(MatchOption o) { return nameOf(kMatchNames, o); }
std::string stringValue(SetOption o) { return nameOf(kSetNames, o); }
std::string stringValue(Protocol p) { return nameOf(kProtocolNames, p); }
std::string stringValue(RouteMapOpModeType m) { return nameOf(kOpModeNames, m); }

std::optional<MatchOption> matchOptionFromString(std::string_view s) {
   return valueOf(kMatchNames, s);
}
std::optional<SetOption> setOptionFromString(std::string_view s) { return valueOf(kSetNames, s); }

std::optional<Protocol> protocolFromString(std::string_view s) {
   if (auto p = valueOf(kProtocolNames, s); p && *p != Protocol::protocolInvalid) return p;
   try {
      const U32 v = Kel::ValueText<U32>::parse(s);
      if (v >= 1 && v <= 9) return static_cast<Protocol>(v);
   } catch (const Kel::ParseException&) {
   }
   return std::nullopt;
}

}  // namespace Routing::RouteMap
