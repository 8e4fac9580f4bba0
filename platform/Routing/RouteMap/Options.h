#pragma once
// The numeric kinds of route-map clauses, as the route-map configuration library defines them.
// Compiled clauses are kept in maps ordered by these values, so the values decide the order in
// which a sequence's matchers run (ascending) and its setters apply.

#include <optional>
#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace Routing::RouteMap {

enum class MatchOption : U32 {
   matchInvalid = 0,
   matchIpAddressAccessList = 1,
   matchIpAddressPrefixList = 2,
   matchMetric = 3,
   matchInterface = 4,
   matchIpNexthop = 5,
   matchIpNexthopPrefixList = 6,
   matchIpResolvedNexthopPrefixList = 7,
   matchRouterIdPrefixList = 8,
   matchSourceProtocol = 113,
   matchTag = 115,
   matchIpv6AddressPrefixList = 116,
};

enum class SetOption : U32 {
   setInvalid = 0,
   setMetric = 3,
   setDistance = 9,
   setTag = 10,
};

// The protocols a "match source-protocol" clause names.
enum class Protocol : U32 {
   protocolInvalid = 0,
   connected = 1,
   bgp = 2,
   ospf = 3,
   isis = 4,
   staticRoute = 5,
   rip = 6,
   ospf3 = 7,
   attachedHost = 8,
   dynamic = 9,
};

// The configured operating mode of route maps. A change of mode makes every route map recompile;
// the library's own machines evaluate the same under either mode, agents may read it from the
// filtered configuration.
enum class RouteMapOpModeType : U32 {
   opModeDefault = 0,
   opModeAlternate = 1,
};

// Names, for dumps and logs; a value without a name prints as its number.
std::string stringValue(MatchOption o);
std::string stringValue(SetOption o);
std::string stringValue(Protocol p);
std::string stringValue(RouteMapOpModeType m);

std::optional<MatchOption> matchOptionFromString(std::string_view s);
std::optional<SetOption> setOptionFromString(std::string_view s);
// A protocol by name (its configuration keyword) or by number 1-9.
std::optional<Protocol> protocolFromString(std::string_view s);

}  // namespace Routing::RouteMap
