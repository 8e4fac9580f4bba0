#include "Routing/RouteMap/MatchRule.h"

#include <ostream>

#include "Kel/Assert.h"
#include "Kel/Exception.h"
#include "Kel/ValueText.h"

namespace Routing::RouteMap {

namespace {

constexpr std::string_view kTypeName = "Routing::RouteMap::MatchRule";

// Options and protocols are written by name, quoted, so that the text survives a renumbering
// and reads the way the configuration does.
struct OptionText {
   MatchOption v;
   std::string toStrep() const { return Kel::valueText(stringValue(v)); }
   static OptionText fromStrep(std::string_view s) {
      const std::string name = Kel::ValueText<std::string>::parse(s);
      const auto o = matchOptionFromString(name);
      if (!o) throw Kel::ParseException("unknown match option '" + name + "'");
      return {*o};
   }
};

struct ProtocolText {
   Protocol v;
   std::string toStrep() const { return Kel::valueText(stringValue(v)); }
   static ProtocolText fromStrep(std::string_view s) {
      const std::string name = Kel::ValueText<std::string>::parse(s);
      const auto p = protocolFromString(name);
      if (!p) throw Kel::ParseException("unknown protocol '" + name + "', expected a name or 1-9");
      return {*p};
   }
};

[[noreturn]] void throwMissingArgument(MatchOption option, const char* what) {
   throw Kel::RangeException("match rule " + stringValue(option) + " needs " + what);
}

}  // namespace

bool MatchRule::isListOption(MatchOption option) {
   switch (option) {
      case MatchOption::matchIpAddressAccessList:
      case MatchOption::matchIpAddressPrefixList:
      case MatchOption::matchIpNexthopPrefixList:
      case MatchOption::matchIpResolvedNexthopPrefixList:
      case MatchOption::matchRouterIdPrefixList:
      case MatchOption::matchIpv6AddressPrefixList:
         return true;
      default:
         return false;
   }
}

MatchRule MatchRule::forList(MatchOption option, Kel::Name listName) {
   KEL_ASSERT(isListOption(option));
   if (listName.empty()) throwMissingArgument(option, "a list name");
   MatchRule r(option);
   r.listName_ = std::move(listName);
   return r;
}

MatchRule MatchRule::forTag(U32 tag) {
   MatchRule r(MatchOption::matchTag);
   r.tag_ = tag;
   return r;
}

MatchRule MatchRule::forProtocol(Protocol protocol) {
   Kel::checkEnumRange("Protocol", static_cast<U32>(protocol),
                       static_cast<U32>(Protocol::connected), static_cast<U32>(Protocol::dynamic));
   MatchRule r(MatchOption::matchSourceProtocol);
   r.protocol_ = protocol;
   return r;
}

MatchRule MatchRule::forMetric(U64 metric) {
   MatchRule r(MatchOption::matchMetric);
   r.metric_ = Orb::MaybeU63(metric);
   return r;
}

MatchRule MatchRule::forInterface(Nx::IntfId intf) {
   if (intf.empty()) throwMissingArgument(MatchOption::matchInterface, "an interface name");
   MatchRule r(MatchOption::matchInterface);
   r.intf_ = std::move(intf);
   return r;
}

MatchRule MatchRule::forNexthop(Nx::IpGenAddr nexthop) {
   MatchRule r(MatchOption::matchIpNexthop);
   r.nexthop_ = nexthop;
   return r;
}

std::string MatchRule::toStrep() const {
   Kel::ValueWriter w(kTypeName);
   w.field("option", OptionText{option_});
   if (isListOption(option_)) {
      w.field("listName", listName_);
   } else if (option_ == MatchOption::matchTag) {
      w.field("tag", tag_);
   } else if (option_ == MatchOption::matchSourceProtocol) {
      w.field("protocol", ProtocolText{protocol_});
   } else if (option_ == MatchOption::matchMetric) {
      w.field("metric", metric_.value());
   } else if (option_ == MatchOption::matchInterface) {
      w.field("intf", intf_);
   } else if (option_ == MatchOption::matchIpNexthop) {
      w.field("nexthop", nexthop_);
   }
   return w.str();
}

MatchRule MatchRule::fromStrep(std::string_view text) {
   Kel::ValueReader r(text, kTypeName);
   const MatchOption option = r.field<OptionText>("option").v;
   MatchRule rule;
   if (isListOption(option)) {
      rule = forList(option, r.field<std::string>("listName"));
   } else if (option == MatchOption::matchTag) {
      rule = forTag(r.field<U32>("tag"));
   } else if (option == MatchOption::matchSourceProtocol) {
      rule = forProtocol(r.field<ProtocolText>("protocol").v);
   } else if (option == MatchOption::matchMetric) {
      rule = forMetric(r.field<U64>("metric"));
   } else if (option == MatchOption::matchInterface) {
      rule = forInterface(r.field<Nx::IntfId>("intf"));
   } else if (option == MatchOption::matchIpNexthop) {
      rule = forNexthop(r.field<Nx::IpGenAddr>("nexthop"));
   }
   r.finish();
   return rule;
}

std::ostream& operator<<(std::ostream& os, const MatchRule& rule) {
   return os << rule.toStrep();
}

}  // namespace Routing::RouteMap
