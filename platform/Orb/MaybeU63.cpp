#include "Orb/MaybeU63.h"

#include "Kel/Exception.h"
#include "Kel/ValueText.h"

namespace Orb {

MaybeU63::MaybeU63(U64 v) { valueIs(v); }

void MaybeU63::valueIs(U64 v) {
   if (v > max) throw Kel::RangeException("MaybeU63::value > MaybeU63::max not allowed");
   value_ = v;
   present_ = true;
}

std::string MaybeU63::toStrep() const { return present_ ? std::to_string(value_) : "None"; }

MaybeU63 MaybeU63::fromStrep(std::string_view s) {
   if (s == "None") return {};
   const U64 v = Kel::ValueText<U64>::parse(s);
   if (v > max) throw Kel::ParseException("MaybeU63 value above 2^63-1: '" + std::string(s) + "'");
   return MaybeU63(v);
}

}  // namespace Orb
