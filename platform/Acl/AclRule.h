#pragma once
// The rules of an access list as configuration values. Rules are plain copyable values: the
// access-list compiler copies one out of its table, converts it, and drops the copy, so nothing in
// here may own heap state beyond strings.

#include <compare>
#include <cstddef>
#include <string>
#include <utility>

#include "Kel/Exception.h"
#include "Kel/Types.h"
#include "Nx/IpAddr.h"
#include "Nx/IpGenPrefix.h"

namespace Acl {

// What a rule does when it matches. Remarks are comment lines kept in sequence with the rules so
// that the list reads back as written; they match nothing.
enum class AclAction : U32 {
   permit = 0,
   deny = 1,
   remark = 2,
};

std::string stringValue(AclAction a);

// Identifies a rule independently of its sequence number, so that renumbering a list moves ids
// in the sequence map without touching the rule table.
class UniqueId {
public:
   constexpr UniqueId() noexcept = default;
   constexpr explicit UniqueId(U64 value) noexcept : value_(value) {}
   constexpr U64 value() const noexcept { return value_; }
   constexpr auto operator<=>(const UniqueId&) const noexcept = default;

private:
   U64 value_ = 0;
};

// A VRF name as a rule qualifier; empty means the rule applies in every VRF.
class VrfName {
public:
   static constexpr std::size_t maxLength = 100;

   VrfName() = default;
   // Refuses more than maxLength bytes with Kel::RangeException.
   explicit VrfName(std::string name);

   const std::string& value() const noexcept { return name_; }
   bool empty() const noexcept { return name_.empty(); }
   bool operator==(const VrfName&) const = default;

private:
   std::string name_;
};

// The qualifiers both address families share. They say in which overlay or VRF a rule applies,
// not which addresses it matches, so the prefix converters do not look at them. A tni or vni of
// 0 means "not restricted".
class IpFilterBase {
public:
   // Both identifiers are 24-bit fields on the wire.
   static constexpr U32 maxTni = 16777215;
   static constexpr U32 maxVni = 16777215;

   U32 tni() const noexcept { return tni_; }
   void tniIs(U32 tni);
   U32 vni() const noexcept { return vni_; }
   void vniIs(U32 vni);
   const VrfName& vrf() const noexcept { return vrf_; }
   void vrfIs(VrfName vrf) { vrf_ = std::move(vrf); }

   bool operator==(const IpFilterBase&) const = default;

private:
   U32 tni_ = 0;
   U32 vni_ = 0;
   VrfName vrf_;
};

// An IPv4 source as address and wildcard mask: a set wildcard bit is a bit the source does not
// care about. The mask need not be contiguous. The default matches any source.
class IpFilter : public IpFilterBase {
public:
   IpFilter() = default;
   IpFilter(Nx::IpAddr source, Nx::IpAddr wildcard) { sourceIs(source, wildcard); }

   static IpFilter any() { return IpFilter(); }
   static IpFilter host(Nx::IpAddr a) { return IpFilter(a, Nx::IpAddr(0u)); }
   // The contiguous-mask form; refuses an IPv6 prefix with Kel::RangeException.
   static IpFilter prefix(const Nx::IpGenPrefix& p);

   Nx::IpAddr source() const noexcept { return source_; }
   Nx::IpAddr sourceWildcard() const noexcept { return wildcard_; }
   // The don't-care bits of `source` are cleared, so that two filters matching the same
   // addresses compare equal and re-setting a rule with an equivalent spelling is no change.
   void sourceIs(Nx::IpAddr source, Nx::IpAddr wildcard) {
      wildcard_ = wildcard;
      source_ = Nx::IpAddr(source.value() & ~wildcard.value());
   }

   bool operator==(const IpFilter&) const = default;

private:
   Nx::IpAddr source_{0u};
   Nx::IpAddr wildcard_{~U32{0}};
};

// An IPv6 source as a prefix; the default ::/0 matches any source.
class Ip6Filter : public IpFilterBase {
public:
   Ip6Filter() = default;
   explicit Ip6Filter(const Nx::IpGenPrefix& source) { sourceIs(source); }

   const Nx::IpGenPrefix& source() const noexcept { return source_; }
   // Refuses an IPv4 prefix with Kel::RangeException.
   void sourceIs(const Nx::IpGenPrefix& source);

   bool operator==(const Ip6Filter&) const = default;

private:
   Nx::IpGenPrefix source_{Nx::IpGenAddr(Nx::Ip6Addr()), 0};
};

// One rule of an access list. The default is an empty remark, so that looking up an id that a
// list does not hold yields a rule that matches nothing rather than one that permits everything.
template <class Filter>
class RuleConfig {
public:
   RuleConfig() = default;
   RuleConfig(AclAction action, Filter filter) : filter_(std::move(filter)) { actionIs(action); }

   AclAction action() const noexcept { return action_; }
   // Refuses a value outside the enumeration with the standard enumeration range error.
   void actionIs(AclAction a) {
      Kel::checkEnumRange("Acl::AclAction", static_cast<U32>(a), U32{0},
                          static_cast<U32>(AclAction::remark));
      action_ = a;
   }
   const std::string& remark() const noexcept { return remark_; }
   void remarkIs(std::string r) { remark_ = std::move(r); }
   const Filter& filter() const noexcept { return filter_; }
   void filterIs(Filter f) { filter_ = std::move(f); }

   bool operator==(const RuleConfig&) const = default;

private:
   AclAction action_ = AclAction::remark;
   std::string remark_;
   Filter filter_;
};

class IpRuleConfig : public RuleConfig<IpFilter> {
public:
   using RuleConfig::RuleConfig;
};

class Ip6RuleConfig : public RuleConfig<Ip6Filter> {
public:
   using RuleConfig::RuleConfig;
};

}  // namespace Acl
