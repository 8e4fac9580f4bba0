#include "Kel/Exception.h"

namespace Kel {

void throwEnumRange(const char* typeName) {
   const std::string t(typeName);
   throw RangeException(t + "::value < " + t + "::min or > " + t + "::max not allowed");
}

}  // namespace Kel
