#pragma once
// The base of the parameters a setter may be given. It carries nothing itself; setters that
// take parameters derive their own kinds from it.

#include "Kel/Entity.h"

namespace Routing::Policy {

class SetParams : public Kel::Entity {};

Kel::Ptr<SetParams> setParamsFactory();

}  // namespace Routing::Policy
