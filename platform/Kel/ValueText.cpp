#include "Kel/ValueText.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace Kel {

bool ValueText<bool>::parse(std::string_view s) {
   if (s == "True") return true;
   if (s == "False") return false;
   throw ParseException("expected True or False, got '" + std::string(s) + "'");
}

void ValueText<double>::print(std::string& out, double v) {
   char buf[64];
   auto [p, ec] = std::to_chars(buf, buf + sizeof buf, v);
   out.append(buf, p);
}

double ValueText<double>::parse(std::string_view s) {
   double v = 0;
   auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
   if (ec != std::errc{} || p != s.data() + s.size()) {
      throw ParseException("expected a number, got '" + std::string(s) + "'");
   }
   return v;
}

void ValueText<std::string>::print(std::string& out, const std::string& v) {
   out += '\'';
   for (char c : v) {
      if (c == '\'' || c == '\\') out += '\\';
      out += c;
   }
   out += '\'';
}

std::string ValueText<std::string>::parse(std::string_view s) {
   if (s.size() < 2 || s.front() != '\'' || s.back() != '\'') {
      throw ParseException("expected a quoted string, got '" + std::string(s) + "'");
   }
   std::string v;
   for (std::size_t i = 1; i + 1 < s.size(); ++i) {
      char c = s[i];
      if (c == '\\') {
         if (i + 2 >= s.size()) throw ParseException("dangling escape in " + std::string(s));
         c = s[++i];
      } else if (c == '\'') {
         throw ParseException("unescaped quote in " + std::string(s));
      }
      v += c;
   }
   return v;
}

ValueWriter::ValueWriter(std::string_view typeName) {
   out_ = "Value('";
   out_.append(typeName);
   out_ += "', ** {";
}

void ValueWriter::beginField(std::string_view name) {
   if (!first_) out_ += ", ";
   first_ = false;
   out_ += '\'';
   out_.append(name);
   out_ += "': ";
}

ValueWriter& ValueWriter::rawField(std::string_view name, std::string_view text) {
   beginField(name);
   out_.append(text);
   return *this;
}

std::string ValueWriter::str() const { return out_ + "})"; }

namespace {

bool startsWith(std::string_view s, std::size_t pos, std::string_view what) {
   return s.substr(pos, what.size()) == what;
}

// The end of the field text that starts at `pos`: the first ',' or '}' outside brackets and
// quotes. Returns npos if brackets or quotes are unbalanced.
std::size_t fieldEnd(std::string_view s, std::size_t pos) {
   int depth = 0;
   bool quoted = false;
   for (std::size_t i = pos; i < s.size(); ++i) {
      const char c = s[i];
      if (quoted) {
         if (c == '\\') {
            ++i;
         } else if (c == '\'') {
            quoted = false;
         }
         continue;
      }
      switch (c) {
         case '\'': quoted = true; break;
         case '(':
         case '[':
         case '{': ++depth; break;
         case ')':
         case ']':
            if (--depth < 0) return std::string_view::npos;
            break;
         case '}':
            if (depth == 0) return i;
            --depth;
            break;
         case ',':
            if (depth == 0) return i;
            break;
         default: break;
      }
   }
   return std::string_view::npos;
}

}  // namespace

ValueReader::ValueReader(std::string_view text, std::string_view typeName)
    : text_(text), type_(typeName) {
   const std::string head = "Value('" + std::string(typeName) + "', ** {";
   if (!startsWith(text_, 0, head)) {
      throw ParseException("expected text starting with \"" + head + "\", got '" +
                           std::string(text_.substr(0, 80)) + "'");
   }
   pos_ = head.size();
}

std::string_view ValueReader::nextField(std::string_view name) {
   std::size_t p = pos_;
   if (!first_) {
      if (!startsWith(text_, p, ", ")) fail(name, "missing field");
      p += 2;
   }
   // Built by appending: g++ 12 at -O3 misreads `"'" + std::string(...)` as an overlapping copy.
   std::string key;
   key.reserve(name.size() + 4);
   key += '\'';
   key.append(name);
   key += "': ";
   if (!startsWith(text_, p, key)) fail(name, "missing field");
   p += key.size();
   const std::size_t end = fieldEnd(text_, p);
   if (end == std::string_view::npos || end == p) fail(name, "malformed value");
   first_ = false;
   pos_ = end;
   return text_.substr(p, end - p);
}

void ValueReader::finish() {
   if (text_.substr(pos_) != "})") {
      throw ParseException("unexpected text after the last field of " + std::string(type_) +
                           ": '" + std::string(text_.substr(pos_)) + "'");
   }
}

void ValueReader::fail(std::string_view field, std::string_view why) const {
   throw ParseException("cannot read field '" + std::string(field) + "' of " +
                        std::string(type_) + ": " + std::string(why),
                        std::string(field));
}

}  // namespace Kel
