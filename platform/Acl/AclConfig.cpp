#include "Acl/AclConfig.h"

#include "Kel/Exception.h"

namespace Acl {

std::string stringValue(AclType t) {
   switch (t) {
      case AclType::ip:
         return "ip";
      case AclType::ipv6:
         return "ipv6";
      case AclType::mac:
         return "mac";
   }
   return std::to_string(static_cast<U32>(t));
}

namespace {
void checkType(AclType t) {
   Kel::checkEnumRange("Acl::AclType", static_cast<U32>(t), U32{0}, static_cast<U32>(AclType::mac));
}
}  // namespace

AclSubConfig::AclSubConfig(AclType type) : type_(type) {
   checkType(type);
}

Kel::Ptr<AclSubConfig> aclSubConfigFactory(AclType type) {
   return Kel::makePtr<AclSubConfig>(type);
}

Kel::Ptr<AclConfig> aclConfigFactory(Kel::Name name) {
   return Kel::makePtr<AclConfig>(std::move(name));
}

namespace Input {

AclTypeConfig::AclTypeConfig(AclType type) : type_(type) {
   checkType(type);
}

void AclTypeConfig::aclIs(Kel::Ptr<AclConfig> acl) {
   if (!acl) Kel::throwNullMutatorArg("Acl::Input::AclTypeConfig", "acl");
   const Kel::Name name = acl->name();
   if (acl_.set(name, std::move(acl))) notify(&Reactor::handleAcl, name);
}

Kel::Ptr<AclTypeConfig> aclTypeConfigFactory(AclType type) {
   return Kel::makePtr<AclTypeConfig>(type);
}

void Config::aclTypeConfigIs(Kel::Ptr<AclTypeConfig> c) {
   if (!c) Kel::throwNullMutatorArg("Acl::Input::Config", "aclTypeConfig");
   const AclType t = c->type();
   if (aclTypeConfig_.set(t, std::move(c))) notify(&Reactor::handleAclTypeConfig, t);
}

Kel::Ptr<Config> configFactory() {
   return Kel::makePtr<Config>();
}

}  // namespace Input

}  // namespace Acl
