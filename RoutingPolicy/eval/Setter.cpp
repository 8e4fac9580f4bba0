#include "RoutingPolicy/eval/Setter.h"

#include <cstddef>
#include <sstream>

#include "Kel/Assert.h"

namespace Routing::Policy {

void Setter::deferredSetValue(Result_*) const {
   KEL_ASSERT(0 && "Must override in derived class");
}

Kel::Ptr<Setter const> Setter::createSkipIbgp() const {
   KEL_ASSERT(0 && "Must override in derived class");
   return {};
}

RouteMapFeatures Setter::getFeatures() const {
   return {};
}

std::string Setter::toStrep() const {
   std::ostringstream os;
   formatDerivedType(os);
   return os.str();
}

// The assertion texts are compared literally by tools that watch for them, so the spacing
// inside the expressions is kept as it is.
// clang-format off
void Setter::testFullSetValue(const Result_& r) const {
   KEL_ASSERT( ( NULL == r.dps() ) || ( !r.deferredSetter( this ) ) );
   Result_* nonConstResultPtr = const_cast<Result_*>(&r);
   setValue(nonConstResultPtr);
   if (nonConstResultPtr->deferredSetter(this)) {
      deferredSetValue(nonConstResultPtr);
      nonConstResultPtr->deferredSetterDel(this);
      KEL_ASSERT( !nonConstResultPtr->deferredSetter( this ) );
   }
}
// clang-format on

void Setter::testSetValue(const Result_& r) const {
   setValue(const_cast<Result_*>(&r));
}

void Setter::testDeferredSetValue(const Result_& r) const {
   deferredSetValue(const_cast<Result_*>(&r));
}

}  // namespace Routing::Policy
