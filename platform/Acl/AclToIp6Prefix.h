#pragma once
// The addresses one IPv6 access-list rule matches, as an interval set, and the cut of an address
// range into CIDR prefixes. Like AclToPrefix.h, this header brings in Boost.ICL: include it only
// where a rule is converted.
//
// Intervals are discrete with dynamic bounds: right-open where they end below the top address,
// closed where they end at it (ff00::/8 ends there, so the multicast sets hold a closed interval).
// Read them with boost::icl::first(iv) and boost::icl::last(iv).

#include <boost/icl/interval_set.hpp>

#include "Acl/AclRule.h"
#include "Kel/Types.h"
#include "Nx/IpAddr.h"
#include "Nx/IpGenPrefixSet.h"

namespace AclIp6Prefix {

// An IPv6 address as one 128-bit unsigned integer. ICL needs an ordered, incrementable domain
// with numeric limits, which the compiler's built-in 128-bit type already is (GCC and Clang both
// have it and provide std::numeric_limits for it); a two-word class would need every ICL trait
// written by hand. __extension__ keeps -Wpedantic builds of embedding agents quiet.
__extension__ typedef unsigned __int128 Ip6AddrExt;

constexpr Ip6AddrExt toIp6AddrExt(const Nx::Ip6Addr& a) noexcept {
   return static_cast<Ip6AddrExt>(a.hi()) << 64 | a.lo();
}
constexpr Nx::Ip6Addr toIp6Addr(Ip6AddrExt v) noexcept {
   return Nx::Ip6Addr(static_cast<U64>(v >> 64), static_cast<U64>(v));
}

using Ip6IntervalSet = boost::icl::interval_set<Ip6AddrExt>;
using Ip6Interval = Ip6IntervalSet::interval_type;

class AclToIp6Prefix {
public:
   // Starts with both multicast sets at ff00::/8 and the universe at every address.
   AclToIp6Prefix();

   // Replaces permittedPrefixes() with the addresses the rule's source prefix covers: one range,
   // since an IPv6 source is a prefix, so there is no interval cap here. A remark matches nothing.
   // With excludeMulticast, the multicast set of the rule's action is taken out of the result,
   // exactly as AclPrefix::AclToPrefix does. tni, vni and vrf do not narrow the addresses.
   void handleRule(const Acl::Ip6RuleConfig& rule, bool excludeMulticast);

   // "AclToIp6Prefix::PermittedPrefixes": the result of the last handleRule.
   const Ip6IntervalSet& permittedPrefixes() const noexcept { return permittedPrefixes_; }

   const Ip6IntervalSet& permitMulticastPrefixes() const noexcept { return permitMulticast_; }
   void permitMulticastPrefixesIs(Ip6IntervalSet s) { permitMulticast_ = std::move(s); }
   const Ip6IntervalSet& denyMulticastPrefixes() const noexcept { return denyMulticast_; }
   void denyMulticastPrefixesIs(Ip6IntervalSet s) { denyMulticast_ = std::move(s); }

   // Every address, as the closed interval [::, ffff:...:ffff]; what ::/0 matches.
   const Ip6IntervalSet& universe() const noexcept { return universe_; }

   // Adds to `out` the fewest prefixes that together hold exactly the addresses first..last
   // (inclusive). Adds nothing when first > last.
   static void ip6RangeToPrefixes(Ip6AddrExt first, Ip6AddrExt last, Nx::IpGenPrefixSet& out);

private:
   Ip6IntervalSet permittedPrefixes_;
   Ip6IntervalSet permitMulticast_;
   Ip6IntervalSet denyMulticast_;
   Ip6IntervalSet universe_;
};

}  // namespace AclIp6Prefix
