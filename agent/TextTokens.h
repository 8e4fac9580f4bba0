#pragma once
// The lexical pieces shared by the agent's line readers (configuration text, route lines, test
// cases): blanks, words, plain decimals.

#include <limits>
#include <string_view>
#include <vector>

#include "Kel/Types.h"

namespace Routing::Policy::agent::text {

inline bool isBlank(char c) {
   return c == ' ' || c == '\t' || c == '\r';
}

inline std::string_view trim(std::string_view s) {
   while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
   while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
   return s;
}

// The words of a line, split at runs of blanks.
inline std::vector<std::string_view> split(std::string_view s) {
   std::vector<std::string_view> out;
   std::size_t i = 0;
   while (i < s.size()) {
      while (i < s.size() && isBlank(s[i])) ++i;
      const std::size_t start = i;
      while (i < s.size() && !isBlank(s[i])) ++i;
      if (i > start) out.push_back(s.substr(start, i - start));
   }
   return out;
}

// Plain decimal without sign, at most `max`; false on anything else.
inline bool parseDecimal(std::string_view s, U64 max, U64& out) {
   if (s.empty()) return false;
   U64 v = 0;
   for (char c : s) {
      if (c < '0' || c > '9') return false;
      const U64 d = static_cast<U64>(c - '0');
      if (v > (max - d) / 10) return false;
      v = v * 10 + d;
   }
   out = v;
   return true;
}

inline bool parseDecimal(std::string_view s, U64& out) {
   return parseDecimal(s, std::numeric_limits<U64>::max(), out);
}

}  // namespace Routing::Policy::agent::text
