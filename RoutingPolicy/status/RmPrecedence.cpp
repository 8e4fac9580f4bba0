#include "RoutingPolicy/status/RmPrecedence.h"

#include <charconv>

#include "Kel/Exception.h"

namespace Routing::Policy {

namespace {

constexpr std::string_view kNames[RmPrecedence::enumElemCount] = {
    "ribInSetDefaultLocalPref",
    "nonRmBased",
    "missingMedRmBased",
    "rmBased",
    "rmDefaultOriginate",
    "mmodeInitiator",
    "mmodeReceiver",
    "missingPolicyNonRmBased",
    "sendOriginAsValidity",
    "ribOutStripAttributes",
    "ribInSetLinkBandwidth",
    "nexthopSelector",
    "ribInSwapPathAttrsNh",
};

constexpr const char* kTypeName = "RmPrecedence";

}  // namespace

RmPrecedence::RmPrecedence(U32 v) {
   valueIs(v);
}

void RmPrecedence::valueIs(U32 v) {
   Kel::checkEnumRange(kTypeName, v, min, max);
   value_ = v;
}

std::string RmPrecedence::toStrep() const {
   return std::string(kNames[value_]);
}

RmPrecedence RmPrecedence::fromStrep(std::string_view text) {
   for (U32 i = 0; i < enumElemCount; ++i) {
      if (kNames[i] == text) return RmPrecedence(i);
   }
   U32 v = 0;
   const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
   if (ec == std::errc{} && end == text.data() + text.size()) return RmPrecedence(v);
   if (ec == std::errc::result_out_of_range) Kel::throwEnumRange(kTypeName);
   throw Kel::ParseException("unknown RmPrecedence '" + std::string(text) + "'", "value");
}

std::string stringValue(RmPrecedence p) {
   return p.toStrep();
}
std::string valueToStrep(RmPrecedence p) {
   return p.toStrep();
}

}  // namespace Routing::Policy
