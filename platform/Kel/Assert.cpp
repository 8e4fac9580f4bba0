#include "Kel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

void assertionFailed(const char* expr, const char* file, unsigned line,
                     const char* function) noexcept {
   std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, expr);
   std::fflush(stderr);
   std::abort();
}

}  // namespace Kel
