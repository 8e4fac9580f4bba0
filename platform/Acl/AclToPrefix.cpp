#include "Acl/AclToPrefix.h"

#include <bit>
#include <string>

#include "Acl/PrefixCover.h"
#include "Kel/Exception.h"
#include "Nx/IpGenPrefix.h"

namespace AclPrefix {

namespace {

constexpr U32 kTop = ~U32{0};

// Right-open where the type can say so, closed only for the range that ends at the top address.
Ip4Interval range(U32 first, U32 last) {
   return last == kTop ? Ip4Interval::closed(first, last)
                       : Ip4Interval::right_open(first, last + 1);
}

}  // namespace

AclToPrefix::AclToPrefix() {
   const Ip4Interval multicast = Ip4Interval::right_open(0xe0000000u, 0xf0000000u);
   permitMulticast_ += multicast;
   denyMulticast_ += multicast;
   universe_ += Ip4Interval::closed(0, kTop);
}

U64 AclToPrefix::rangeCount(Nx::IpAddr wildcard) noexcept {
   const U32 w = wildcard.value();
   const int trailing = std::countr_one(w);
   if (trailing == 32) return 1;
   return U64{1} << std::popcount(w & ~((U32{1} << trailing) - 1));
}

void AclToPrefix::handleRule(const Acl::IpRuleConfig& rule, bool excludeMulticast) {
   permittedPrefixes_.clear();
   const Acl::AclAction action = rule.action();
   if (action != Acl::AclAction::permit && action != Acl::AclAction::deny) return;

   const U32 wildcard = rule.filter().sourceWildcard().value();
   const U32 base = rule.filter().source().value();
   const int trailing = std::countr_one(wildcard);
   if (trailing == 32) {
      permittedPrefixes_ = universe_;
   } else {
      // The trailing run of wildcard bits makes each range 2^trailing addresses long; every
      // other wildcard bit doubles the number of ranges. Bit `trailing` is fixed, so no two
      // ranges touch and each is added separately.
      const U32 spread = wildcard & ~((U32{1} << trailing) - 1);
      const U64 ranges = rangeCount(rule.filter().sourceWildcard());
      if (ranges > maxIntervals) {
         throw Kel::RangeException("AclToPrefix::handleRule wildcard " +
                                   Nx::IpAddr(wildcard).toStrep() + " makes " +
                                   std::to_string(ranges) + " address ranges; at most " +
                                   std::to_string(maxIntervals) + " allowed");
      }
      const U32 blockLast = (U32{1} << trailing) - 1;
      // Walks every subset of the spread bits in ascending order, ending when it wraps to 0.
      U32 sub = 0;
      do {
         const U32 first = base | sub;
         permittedPrefixes_ += range(first, first | blockLast);
         sub = (sub - spread) & spread;
      } while (sub != 0);
   }

   if (excludeMulticast) {
      permittedPrefixes_ -= action == Acl::AclAction::permit ? permitMulticast_ : denyMulticast_;
   }
}

void AclToPrefix::ip4RangeToPrefixes(U32 first, U32 last, Nx::IpGenPrefixSet& out) {
   Acl::detail::rangeToPrefixes<U32, 32>(
       first, last, [](U32 a) { return static_cast<unsigned>(std::countr_zero(a)); },
       [&out](U32 a, unsigned len) { out.prefixIs(Nx::IpGenPrefix(Nx::IpAddr(a), len)); });
}

}  // namespace AclPrefix
