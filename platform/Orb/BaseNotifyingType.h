#pragma once
// The base of the library's notifying value holders (compiled statuses and the like).
//
// Such a type keeps its key (the attribute fixed at construction) as a member of its own and
// every other attribute in one member struct named `attr_`, and declares
// `friend class Orb::BaseNotifyingType;`. clone() then copies all attributes but the key, however
// many a type has, without a hand-written copy per type. The copy is silent: it is meant for
// objects that nobody follows yet (a freshly made status being derived from an old one).

#include "Kel/Entity.h"

namespace Orb {

class BaseNotifyingType : public Kel::Entity {
public:
   template <class T>
   static void clone(T& dst, const T& src) {
      dst.attr_ = src.attr_;
   }
};

}  // namespace Orb
