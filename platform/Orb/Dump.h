#pragma once
// Diagnostic dumps. Objects write printf-style lines into a DumpContext; formats conventionally
// begin with "%*c" taking (indent, ' '). A leading "%*c" with width 0 writes nothing, so the same
// format serves the top level and nested levels.
//
// Children go through dumpChild, which keeps a shared object from being written twice in one
// dump: a null child is written "%*cNULL\n", a child already written as
// "%*c<type> dumped at line <n>\n", anything else is recorded and dumps itself.

#include <string>
#include <string_view>
#include <unordered_map>

#include "Kel/Types.h"

namespace Orb {

class DumpContext {
public:
   const std::string& str() const { return out_; }
   // The 1-based number of the line that the next write starts on.
   U32 line() const { return lines_ + 1; }

   void append(std::string_view text);
   // The line at which `obj` was first dumped, 0 if it has not been.
   U32 dumpedAt(const void* obj) const;
   void dumpedIs(const void* obj, U32 line) { dumped_.emplace(obj, line); }

private:
   std::string out_;
   U32 lines_ = 0;
   std::unordered_map<const void*, U32> dumped_;
};

void objDumpPrintf(DumpContext& ctx, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

// T must have `void dumpState(DumpContext&, U32 indent) const`.
template <class T>
void dumpChild(DumpContext& ctx, U32 indent, const T* child, const char* typeName) {
   if (child == nullptr) {
      objDumpPrintf(ctx, "%*cNULL\n", static_cast<int>(indent), ' ');
      return;
   }
   if (const U32 at = ctx.dumpedAt(child)) {
      objDumpPrintf(ctx, "%*c%s dumped at line %u\n", static_cast<int>(indent), ' ', typeName, at);
      return;
   }
   ctx.dumpedIs(child, ctx.line());
   child->dumpState(ctx, indent);
}

}  // namespace Orb
