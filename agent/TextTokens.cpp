#include "agent/TextTokens.h"

#include <fmt/format.h>

namespace Routing::Policy::agent::text {

namespace {

unsigned char byteAt(std::string_view s, std::size_t i) {
   return static_cast<unsigned char>(s[i]);
}

// The length of the well-formed UTF-8 sequence starting at s[i], or 0 when there is none (a
// stray continuation byte, an overlong form, a surrogate, a cut sequence).
std::size_t utf8Length(std::string_view s, std::size_t i) {
   const unsigned char c = byteAt(s, i);
   if (c < 0x80) return 1;
   std::size_t n = 0;
   unsigned char lo = 0x80, hi = 0xBF;  // the range of the second byte
   if (c >= 0xC2 && c <= 0xDF) {
      n = 2;
   } else if (c == 0xE0) {
      n = 3, lo = 0xA0;
   } else if ((c >= 0xE1 && c <= 0xEC) || c == 0xEE || c == 0xEF) {
      n = 3;
   } else if (c == 0xED) {
      n = 3, hi = 0x9F;
   } else if (c == 0xF0) {
      n = 4, lo = 0x90;
   } else if (c >= 0xF1 && c <= 0xF3) {
      n = 4;
   } else if (c == 0xF4) {
      n = 4, hi = 0x8F;
   } else {
      return 0;
   }
   if (s.size() - i < n || byteAt(s, i + 1) < lo || byteAt(s, i + 1) > hi) return 0;
   for (std::size_t k = 2; k < n; ++k) {
      if (byteAt(s, i + k) < 0x80 || byteAt(s, i + k) > 0xBF) return 0;
   }
   return n;
}

// Appends the character at s[i] as a message shows it and moves i past it; returns how many
// columns it takes (an escaped byte takes four).
std::size_t appendShown(std::string_view s, std::size_t& i, std::string& out) {
   const std::size_t n = utf8Length(s, i);
   const std::string_view unit = s.substr(i, n == 0 ? 1 : n);
   i += unit.size();
   const unsigned char c = byteAt(unit, 0);
   const bool control = n == 1 && (c < 0x20 || c == 0x7F);
   const bool c1Control = n == 2 && c == 0xC2 && byteAt(unit, 1) <= 0x9F;
   if (n != 0 && !control && !c1Control && unit != kUtf8Bom) {
      out += unit;
      return 1;
   }
   for (char b : unit) out += fmt::format("\\x{:02X}", static_cast<unsigned char>(b));
   return 4 * unit.size();
}

}  // namespace

std::string foreignEncoding(std::string_view text) {
   // Longest first: the UTF-32 little-endian mark starts with the UTF-16 one.
   struct Mark {
      std::string_view bytes, encoding, shown;
   };
   static constexpr Mark kMarks[] = {
       {std::string_view("\xFF\xFE\0\0", 4), "UTF-32", "FF FE 00 00"},
       {std::string_view("\0\0\xFE\xFF", 4), "UTF-32", "00 00 FE FF"},
       {"\xFF\xFE", "UTF-16", "FF FE"},
       {"\xFE\xFF", "UTF-16", "FE FF"},
   };
   for (const Mark& m : kMarks) {
      if (text.substr(0, m.bytes.size()) == m.bytes) {
         return fmt::format(
             "the file is {} (it starts with the byte-order mark {}); expected UTF-8", m.encoding,
             m.shown);
      }
   }
   return {};
}

std::string printable(std::string_view s) {
   std::string out;
   out.reserve(s.size());
   for (std::size_t i = 0; i < s.size();) appendShown(s, i, out);
   return out;
}

std::string quote(std::string_view word) {
   static_assert(kQuotedMax > 3);
   std::string out = "'";
   std::size_t width = 0;
   std::size_t cut = out.size();  // where to cut so that what is kept and "..." fit kQuotedMax
   for (std::size_t i = 0; i < word.size();) {
      width += appendShown(word, i, out);
      if (width <= kQuotedMax - 3) cut = out.size();
      if (width > kQuotedMax) {
         // Stopping here also keeps a huge word from being escaped in full only to be cut.
         out.resize(cut);
         out += "...";
         break;
      }
   }
   return out + "'";
}

}  // namespace Routing::Policy::agent::text
