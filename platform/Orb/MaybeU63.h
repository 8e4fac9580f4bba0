#pragma once
// An optional unsigned integer below 2^63 (metrics). An absent value equals only another absent
// value, never 0. Text form: the number, or None when absent.

#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace Orb {

class MaybeU63 {
public:
   static constexpr U64 max = (U64{1} << 63) - 1;

   constexpr MaybeU63() noexcept = default;
   // Throws Kel::RangeException for values above `max`.
   MaybeU63(U64 v);

   constexpr bool hasValue() const noexcept { return present_; }
   constexpr explicit operator bool() const noexcept { return present_; }
   // The value; 0 when absent.
   constexpr U64 value() const noexcept { return value_; }
   void valueIs(U64 v);
   void valueDel() noexcept { present_ = false, value_ = 0; }

   friend constexpr bool operator==(const MaybeU63& a, const MaybeU63& b) noexcept {
      return a.present_ == b.present_ && a.value_ == b.value_;
   }

   std::string toStrep() const;
   static MaybeU63 fromStrep(std::string_view s);

private:
   U64 value_ = 0;
   bool present_ = false;
};

}  // namespace Orb
