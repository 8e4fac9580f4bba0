#pragma once
// The addresses one IPv4 access-list rule matches, as an interval set, and the cut of an address
// range into CIDR prefixes. This header brings in Boost.ICL, which is slow to compile: include it
// only where a rule is converted, never from another header.
//
// Intervals in the sets are discrete with dynamic bounds. Where an interval ends below the top
// address it is right-open, as [224.0.0.0, 240.0.0.0); one that ends at 255.255.255.255 cannot
// be right-open in 32 bits and is closed. Read an interval's addresses with boost::icl::first(iv)
// and boost::icl::last(iv), which hold for both; upper() - 1 loses the top address.

#include <cstddef>

#include <boost/icl/interval_set.hpp>

#include "Acl/AclRule.h"
#include "Kel/Types.h"
#include "Nx/IpGenPrefixSet.h"

namespace AclPrefix {

using Ip4IntervalSet = boost::icl::interval_set<U32>;
using Ip4Interval = Ip4IntervalSet::interval_type;

class AclToPrefix {
public:
   // A non-contiguous wildcard matches one range per combination of its wildcard bits above the
   // trailing run, so 17 such bits already mean 131072 ranges. An interval set of a rule beyond
   // this many ranges is refused rather than built: a caller that must honour any wildcard asks
   // rangeCount first and keeps a wide rule as its address and mask instead.
   static constexpr std::size_t maxIntervals = 65536;

   // How many disjoint address ranges handleRule makes of a permit or deny rule with this
   // wildcard: 1 for a contiguous mask, 2^k for k wildcard bits above the trailing run of ones.
   static U64 rangeCount(Nx::IpAddr wildcard) noexcept;

   // Starts with both multicast sets at 224.0.0.0/4 and the universe at every address.
   AclToPrefix();

   // Replaces permittedPrefixes() with the addresses the rule's source matches. A remark matches
   // nothing. With excludeMulticast, the multicast set of the rule's action (permit or deny) is
   // taken out of the result: for callers that compile filters in which a rule must never speak
   // for multicast addresses. The rule's tni, vni and vrf do not narrow the addresses.
   // A wildcard that would make more than maxIntervals ranges throws Kel::RangeException and
   // leaves the result empty.
   void handleRule(const Acl::IpRuleConfig& rule, bool excludeMulticast);

   // "AclToPrefix::PermittedPrefixes": the result of the last handleRule.
   const Ip4IntervalSet& permittedPrefixes() const noexcept { return permittedPrefixes_; }

   // The addresses excludeMulticast removes from permit rules and from deny rules. Separate, so a
   // caller can keep deny rules covering multicast while permit rules never do.
   const Ip4IntervalSet& permitMulticastPrefixes() const noexcept { return permitMulticast_; }
   void permitMulticastPrefixesIs(Ip4IntervalSet s) { permitMulticast_ = std::move(s); }
   const Ip4IntervalSet& denyMulticastPrefixes() const noexcept { return denyMulticast_; }
   void denyMulticastPrefixesIs(Ip4IntervalSet s) { denyMulticast_ = std::move(s); }

   // Every address, as the closed interval [0.0.0.0, 255.255.255.255]; what "any" matches.
   const Ip4IntervalSet& universe() const noexcept { return universe_; }

   // Adds to `out` the fewest prefixes that together hold exactly the addresses first..last
   // (inclusive). Adds nothing when first > last.
   static void ip4RangeToPrefixes(U32 first, U32 last, Nx::IpGenPrefixSet& out);

private:
   Ip4IntervalSet permittedPrefixes_;
   Ip4IntervalSet permitMulticast_;
   Ip4IntervalSet denyMulticast_;
   Ip4IntervalSet universe_;
};

}  // namespace AclPrefix
