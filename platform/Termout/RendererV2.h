#pragma once
// Builds one JSON document depth-first for the command-line tool's evaluation logs: open a dict
// or a list, add values, close it. Keys keep the order they were added in, because the log lists
// route-map sequences in evaluation order and a sorted rendering would misstate that order.
//
// Breaking the nesting is a bug in the caller and stops the process through KEL_ASSERT: closing
// what is not open, a keyed item inside a list, an unkeyed item inside a dict, the same key twice
// in one dict (the second value would otherwise silently replace the first), a second root, or
// str() before the root is closed.
//
// The JSON library stays behind the pimpl so that including this header costs nothing.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace Termout {

class RendererV2 {
public:
   RendererV2();
   ~RendererV2();
   RendererV2(RendererV2&&) noexcept;
   RendererV2& operator=(RendererV2&&) noexcept;
   RendererV2(const RendererV2&) = delete;
   RendererV2& operator=(const RendererV2&) = delete;

   // The keyed forms go inside a dict; the unkeyed forms open the root or go inside a list.
   void startDict(std::string_view key);
   void startDict();
   void endDict();
   void startList(std::string_view key);
   void startList();
   void endList();

   void addString(std::string_view key, std::string_view value);
   void addBool(std::string_view key, bool value);
   void addInt(std::string_view key, std::int64_t value);
   void addUint(std::string_view key, U64 value);
   void addDouble(std::string_view key, double value);
   void addNull(std::string_view key);

   void addString(std::string_view value);
   void addBool(bool value);
   void addInt(std::int64_t value);
   void addUint(U64 value);
   void addDouble(double value);
   void addNull();

   // A string literal converts to bool without a word from the compiler, so `addBool("key")`
   // (value forgotten) or `addBool("key", "true")` would render the wrong thing.
   void addBool(const char*) = delete;
   void addBool(std::string_view, const char*) = delete;

   // The finished document. Compact by default; `pretty` indents by two spaces per level.
   // Non-ASCII text is written as raw UTF-8; invalid UTF-8 becomes U+FFFD so the output always
   // parses. NaN and infinities have no JSON spelling and are written as null.
   std::string str(bool pretty = false) const;

private:
   struct Impl;
   std::unique_ptr<Impl> impl_;
};

}  // namespace Termout
