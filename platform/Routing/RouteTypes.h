#pragma once
// Route attributes as the routing library defines them: protocols, tags, preferences and the FIB
// route types of both families. The numeric values are fixed (tables elsewhere depend on them);
// the names are this library's and are listed in docs/routing-types.md.

#include <compare>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace Routing {

// The protocol that produced a route. Any U8 value may occur; values without a name print as
// their number.
enum class RouteProto : U8 {
   unknown = 0,
   connected = 1,
   kernel = 2,
   staticRoute = 4,
   ospfIntraArea = 5,
   ospfInterArea = 6,
   rip = 9,
   isis = 10,
   ospf3 = 15,
   aggregate = 16,
   isisLevel1 = 20,
   bgp = 24,
   ibgp = 25,
   ebgp = 30,
   ospf = 31,
   vrfLeak = 47,
   attachedHost = 49,
   dynamic = 52,
};

// Name of the protocol, or its number when it has none.
std::string stringValue(RouteProto p);
// Parses a name or a number 0-255; nullopt when neither.
std::optional<RouteProto> routeProtoFromString(std::string_view s);

// A 32-bit route tag.
class RouteTag {
public:
   constexpr RouteTag() noexcept = default;
   constexpr explicit RouteTag(U32 v) noexcept : value_(v) {}
   constexpr U32 value() const noexcept { return value_; }
   constexpr auto operator<=>(const RouteTag&) const noexcept = default;
   std::string toStrep() const { return std::to_string(value_); }
   static RouteTag fromStrep(std::string_view s);

private:
   U32 value_ = 0;
};

// Administrative distance, 0-255 (0: not set).
class RoutePreference {
public:
   static constexpr U32 max = 255;
   constexpr RoutePreference() noexcept = default;
   // Throws Kel::RangeException above 255.
   explicit RoutePreference(U32 v);
   constexpr U32 value() const noexcept { return value_; }
   constexpr auto operator<=>(const RoutePreference&) const noexcept = default;
   std::string toStrep() const { return std::to_string(value_); }
   static RoutePreference fromStrep(std::string_view s);

private:
   U32 value_ = 0;
};

namespace Fib {
// IPv4 FIB route types. 0 is not a route type.
enum class RouteType : U8 {
   invalid = 0,
   connected = 1,
   local = 2,
   attached = 3,
   receive = 4,
   vrfConnected = 5,
   drop = 6,
   staticRoute = 7,
   nullRoute = 8,
   kernel = 9,
   rip = 10,
   hostConnected = 11,
   multicast = 12,
   isis = 13,
   vrfLeak = 14,
   bgp = 15,
   bgpInternal = 16,
   bgpExternal = 17,
   bgpConfed = 18,
   bgpAggregate = 19,
   bgpVpn = 20,
   isisLevel1 = 21,
   isisLevel2 = 22,
   isisSummary = 23,
   ospf3Intra = 24,
   ospf3External = 25,
   unreachable = 26,
   staticNexthopGroup = 27,
   ospfIntraArea = 28,
   ospfInterArea = 29,
   ospfExternal1 = 30,
   ospfExternal2 = 31,
   ospfNssa = 32,
   aggregate = 33,
};
std::string stringValue(RouteType t);
}  // namespace Fib

}  // namespace Routing

namespace Routing6::Fib {
// IPv6 FIB route types. 0 is not a route type.
enum class RouteType : U8 {
   invalid = 0,
   connected = 1,
   local = 2,
   attached = 3,
   staticRoute = 4,
   kernel = 5,
   ripng = 6,
   hostConnected = 7,
   receive = 8,
   isis = 9,
   vrfLeak = 10,
   bgp = 11,
   isisSummary = 12,
   ospf3Intra = 13,
   ospf3External = 14,
   drop = 15,
   staticNexthopGroup = 16,
   aggregate = 17,
};
std::string stringValue(RouteType t);
}  // namespace Routing6::Fib

template <>
struct std::hash<Routing::RouteTag> {
   std::size_t operator()(Routing::RouteTag t) const noexcept { return t.value(); }
};
