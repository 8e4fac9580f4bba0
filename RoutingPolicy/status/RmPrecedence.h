#pragma once
// The role in which a consumer applies a route map. A status list evaluates its route maps in
// ascending order of this value, so the order of the enumerators is the order of application
// and a later role overrides what an earlier one set.

#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace Routing::Policy {

class RmPrecedence {
public:
   enum Enum : U32 {
      ribInSetDefaultLocalPref = 0,
      nonRmBased = 1,
      missingMedRmBased = 2,
      rmBased = 3,
      rmDefaultOriginate = 4,
      mmodeInitiator = 5,
      mmodeReceiver = 6,
      missingPolicyNonRmBased = 7,
      sendOriginAsValidity = 8,
      ribOutStripAttributes = 9,
      ribInSetLinkBandwidth = 10,
      nexthopSelector = 11,
      ribInSwapPathAttrsNh = 12,
   };
   static constexpr U32 min = ribInSetDefaultLocalPref;
   static constexpr U32 max = ribInSwapPathAttrsNh;
   static constexpr U32 enumElemCount = max + 1;

   constexpr RmPrecedence() noexcept = default;
   constexpr RmPrecedence(Enum e) noexcept : value_(e) {}
   // Throws Kel::RangeException above max.
   explicit RmPrecedence(U32 v);

   constexpr U32 value() const noexcept { return value_; }
   void valueIs(U32 v);

   constexpr bool operator==(const RmPrecedence&) const noexcept = default;
   constexpr bool operator<(const RmPrecedence& o) const noexcept { return value_ < o.value_; }

   // The enumerator's name.
   std::string toStrep() const;
   // By name; a number is accepted too and range-checked. Any other text is a
   // Kel::ParseException naming the field `value`.
   static RmPrecedence fromStrep(std::string_view text);

private:
   U32 value_ = ribInSetDefaultLocalPref;
};

std::string stringValue(RmPrecedence p);
std::string valueToStrep(RmPrecedence p);

}  // namespace Routing::Policy
