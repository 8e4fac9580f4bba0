#include "Acl/AclRule.h"

#include "Kel/Exception.h"

namespace Acl {

std::string stringValue(AclAction a) {
   switch (a) {
      case AclAction::permit:
         return "permit";
      case AclAction::deny:
         return "deny";
      case AclAction::remark:
         return "remark";
   }
   return std::to_string(static_cast<U32>(a));
}

VrfName::VrfName(std::string name) : name_(std::move(name)) {
   if (name_.size() > maxLength) {
      throw Kel::RangeException("VrfName::bytes > VrfName::maxLength not allowed");
   }
}

void IpFilterBase::tniIs(U32 tni) {
   if (tni > maxTni) throw Kel::RangeException("IpFilterBase::tni < 0 or > 16777215 not allowed");
   tni_ = tni;
}

void IpFilterBase::vniIs(U32 vni) {
   if (vni > maxVni) throw Kel::RangeException("IpFilterBase::vni < 0 or > 16777215 not allowed");
   vni_ = vni;
}

IpFilter IpFilter::prefix(const Nx::IpGenPrefix& p) {
   if (!p.isV4()) {
      throw Kel::RangeException("IpFilter source " + p.toStrep() + " is not an IPv4 prefix");
   }
   const U32 hostBits = ~Nx::detail::mask32(p.len());
   return IpFilter(p.address().v4(), Nx::IpAddr(hostBits));
}

void Ip6Filter::sourceIs(const Nx::IpGenPrefix& source) {
   if (!source.isV6()) {
      throw Kel::RangeException("Ip6Filter source " + source.toStrep() + " is not an IPv6 prefix");
   }
   source_ = source;
}

}  // namespace Acl
