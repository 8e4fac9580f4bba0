#pragma once
// One "match" clause of a route-map sequence as configured: the option and its argument. The
// argument lives in the field of its own type, so a reader never parses text to get a tag or a
// next hop; the fields an option does not use stay at their defaults, which keeps the defaulted
// equality exact.
//
// Text form (only the option's own argument is written):
//    Value('Routing::RouteMap::MatchRule', ** {'option': 'matchTag', 'tag': 5})

#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/Types.h"
#include "Nx/IntfId.h"
#include "Nx/IpAddr.h"
#include "Orb/MaybeU63.h"
#include "Routing/RouteMap/Options.h"

namespace Routing::RouteMap {

class MatchRule {
public:
   // No rule: matchInvalid. What a MapEntry hands back for an option it does not hold.
   MatchRule() = default;

   // The options that name a list: 1, 2, 6, 7, 8 and 116. The name must not be empty.
   static MatchRule forList(MatchOption option, Kel::Name listName);
   static MatchRule forTag(U32 tag);
   // Protocols 1-9; anything else is a Kel::RangeException.
   static MatchRule forProtocol(Protocol protocol);
   // Above Orb::MaybeU63::max is a Kel::RangeException.
   static MatchRule forMetric(U64 metric);
   // The interface must be named.
   static MatchRule forInterface(Nx::IntfId intf);
   static MatchRule forNexthop(Nx::IpGenAddr nexthop);

   static bool isListOption(MatchOption option);

   MatchOption option() const { return option_; }
   const Kel::Name& listName() const { return listName_; }
   U32 tag() const { return tag_; }
   Protocol protocol() const { return protocol_; }
   const Orb::MaybeU63& metric() const { return metric_; }
   const Nx::IntfId& intf() const { return intf_; }
   const Nx::IpGenAddr& nexthop() const { return nexthop_; }

   bool operator==(const MatchRule&) const = default;

   std::string toStrep() const;
   static MatchRule fromStrep(std::string_view text);

private:
   explicit MatchRule(MatchOption option) : option_(option) {}

   MatchOption option_ = MatchOption::matchInvalid;
   Kel::Name listName_;
   U32 tag_ = 0;
   Protocol protocol_ = Protocol::protocolInvalid;
   Orb::MaybeU63 metric_;
   Nx::IntfId intf_;
   Nx::IpGenAddr nexthop_;
};

std::ostream& operator<<(std::ostream& os, const MatchRule& rule);

}  // namespace Routing::RouteMap
