#include "Acl/AclToIp6Prefix.h"

#include <bit>

#include "Acl/PrefixCover.h"
#include "Nx/IpGenPrefix.h"

namespace AclIp6Prefix {

namespace {

constexpr Ip6AddrExt kTop = ~Ip6AddrExt{0};

Ip6Interval range(Ip6AddrExt first, Ip6AddrExt last) {
   return last == kTop ? Ip6Interval::closed(first, last)
                       : Ip6Interval::right_open(first, last + 1);
}

// std::countr_zero takes only the standard unsigned types.
unsigned trailingZeros(Ip6AddrExt v) noexcept {
   const U64 lo = static_cast<U64>(v);
   return lo != 0 ? std::countr_zero(lo) : 64 + std::countr_zero(static_cast<U64>(v >> 64));
}

}  // namespace

AclToIp6Prefix::AclToIp6Prefix() {
   const Ip6Interval multicast = range(Ip6AddrExt{0xff} << 120, kTop);
   permitMulticast_ += multicast;
   denyMulticast_ += multicast;
   universe_ += Ip6Interval::closed(0, kTop);
}

void AclToIp6Prefix::handleRule(const Acl::Ip6RuleConfig& rule, bool excludeMulticast) {
   permittedPrefixes_.clear();
   const Acl::AclAction action = rule.action();
   if (action != Acl::AclAction::permit && action != Acl::AclAction::deny) return;

   const Nx::IpGenPrefix& source = rule.filter().source();
   if (source.len() == 0) {
      permittedPrefixes_ = universe_;
   } else {
      const Ip6AddrExt first = toIp6AddrExt(source.address().v6());
      permittedPrefixes_ +=
          range(first, first | Acl::detail::hostMask<Ip6AddrExt, 128>(source.len()));
   }

   if (excludeMulticast) {
      permittedPrefixes_ -= action == Acl::AclAction::permit ? permitMulticast_ : denyMulticast_;
   }
}

void AclToIp6Prefix::ip6RangeToPrefixes(Ip6AddrExt first, Ip6AddrExt last,
                                        Nx::IpGenPrefixSet& out) {
   Acl::detail::rangeToPrefixes<Ip6AddrExt, 128>(
       first, last, trailingZeros, [&out](Ip6AddrExt a, unsigned len) {
          out.prefixIs(Nx::IpGenPrefix(Nx::IpGenAddr(toIp6Addr(a)), len));
       });
}

}  // namespace AclIp6Prefix
