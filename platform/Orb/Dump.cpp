#include "Orb/Dump.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

namespace Orb {

void DumpContext::append(std::string_view text) {
   out_.append(text);
   lines_ += static_cast<U32>(std::count(text.begin(), text.end(), '\n'));
}

U32 DumpContext::dumpedAt(const void* obj) const {
   auto it = dumped_.find(obj);
   return it == dumped_.end() ? 0 : it->second;
}

namespace {
void vappend(DumpContext& ctx, const char* fmt, va_list ap) {
   char small[512];
   va_list copy;
   va_copy(copy, ap);
   const int n = std::vsnprintf(small, sizeof small, fmt, copy);
   va_end(copy);
   if (n < 0) return;
   if (static_cast<std::size_t>(n) < sizeof small) {
      ctx.append(std::string_view(small, static_cast<std::size_t>(n)));
      return;
   }
   std::vector<char> big(static_cast<std::size_t>(n) + 1);
   std::vsnprintf(big.data(), big.size(), fmt, ap);
   ctx.append(std::string_view(big.data(), static_cast<std::size_t>(n)));
}
}  // namespace

void objDumpPrintf(DumpContext& ctx, const char* fmt, ...) {
   va_list ap;
   va_start(ap, fmt);
   if (std::strncmp(fmt, "%*c", 3) == 0) {
      // printf would still write the fill character at width 0; an unindented line has none.
      const int width = va_arg(ap, int);
      const int fill = va_arg(ap, int);
      if (width > 0) ctx.append(std::string(static_cast<std::size_t>(width - 1), ' ') +
                                static_cast<char>(fill));
      vappend(ctx, fmt + 3, ap);
   } else {
      vappend(ctx, fmt, ap);
   }
   va_end(ap);
}

}  // namespace Orb
