#include "Nx/IpGenPrefixSet.h"

namespace Nx {

Kel::Ptr<IpGenPrefixSet> ipGenPrefixSetFactory() {
   return Kel::Ptr<IpGenPrefixSet>(new IpGenPrefixSet);
}

}  // namespace Nx
