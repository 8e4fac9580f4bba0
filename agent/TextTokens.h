#pragma once
// The lexical pieces shared by the agent's line readers (configuration text, route lines, test
// cases): blanks, words, plain decimals, the start of a text, and the quoting of what a line said
// in a message.

#include <limits>
#include <string>
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

// What an editor may put before the first line. The UTF-8 mark is dropped; it sits on line 1, so
// line numbers stay those of the file.
inline constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";

// Reported for a UTF-8 mark anywhere but the start: it is invisible in most editors, so a word
// holding one would otherwise fail with a message that looks like it names a correct word.
inline constexpr std::string_view kMisplacedBom =
    "unexpected byte-order mark (bytes EF BB BF); one is allowed only at the start of the file";

inline std::string_view withoutUtf8Bom(std::string_view text) {
   if (text.substr(0, kUtf8Bom.size()) == kUtf8Bom) text.remove_prefix(kUtf8Bom.size());
   return text;
}

// Empty when the text may be UTF-8; otherwise why it is not, for a text that starts with a UTF-16
// or UTF-32 byte-order mark. Reported once for the file rather than as an error on every line.
std::string foreignEncoding(std::string_view text);

// `s` for a message: bytes a terminal would act on or not show are written as \xNN (C0 and C1
// controls, DEL, bytes that do not form UTF-8, the byte-order mark U+FEFF); everything else is
// kept as it is, backslashes included, since a message is read by a person, not parsed.
std::string printable(std::string_view s);

// A word from the text in single quotes for a message: printable(), and cut to about
// kQuotedMax characters with "..." so that one enormous word cannot bury the message.
inline constexpr std::size_t kQuotedMax = 80;
std::string quote(std::string_view word);

}  // namespace Routing::Policy::agent::text
