#include "Kel/Exception.h"

namespace Kel {

void throwEnumRange(const char* typeName) {
   const std::string t(typeName);
   throw RangeException(t + "::value < " + t + "::min or > " + t + "::max not allowed");
}

void throwNullMutatorArg(const char* typeName, const char* attr) {
   throw RangeException(std::string("null _") + attr + " parameter to mutator for " + typeName +
                        "::" + attr + " not allowed\"");
}

}  // namespace Kel
