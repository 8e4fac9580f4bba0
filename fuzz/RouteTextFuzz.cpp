// Route and test-case files are input from outside the process: any bytes must end in
// line-numbered errors or in routes that print back to the same routes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "agent/RouteText.h"

using namespace Routing::Policy::agent;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   const std::string_view text(reinterpret_cast<const char*>(data), size);
   const auto routes = parseRouteLines(text, "fuzz");
   if (routes.ok()) {
      for (const auto& [line, route] : routes.items) {
         const auto again = parseRouteText(routeText(route));
         if (!again.ok() || !(*again.value == route)) {
            std::fprintf(stderr, "route on line %u does not print back: %s\n", line,
                         routeText(route).c_str());
            std::abort();
         }
      }
   }
   (void)parseCaseLines(text, "fuzz");
   return 0;
}
