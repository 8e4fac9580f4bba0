#pragma once
// The text form shared by every value type:
//
//    Value('<Ns::Type>', ** {'field': <text>, 'other': <text>})
//
// Fields appear in declaration order. Field texts follow Python conventions: True/False for bool,
// decimal integers, single-quoted strings with backslash escapes, and a value type's own text
// (possibly another Value(...) form) for anything else. ValueWriter writes the form; ValueReader
// reads it back field by field and reports a failure as a Kel::ParseException naming the field.
//
// A type takes part by specialising ValueText<T> or, more simply, by having
// `std::string toStrep() const` and `static T fromStrep(std::string_view)`.

#include <charconv>
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "Kel/Exception.h"
#include "Kel/Types.h"

namespace Kel {

template <class T, class = void>
struct ValueText;

template <class T>
concept HasStrep = requires(const T& v, std::string_view s) {
   { v.toStrep() } -> std::convertible_to<std::string>;
   { T::fromStrep(s) } -> std::convertible_to<T>;
};

template <HasStrep T>
struct ValueText<T> {
   static void print(std::string& out, const T& v) { out += v.toStrep(); }
   static T parse(std::string_view s) { return T::fromStrep(s); }
};

template <>
struct ValueText<bool> {
   static void print(std::string& out, bool v) { out += v ? "True" : "False"; }
   static bool parse(std::string_view s);
};

template <class T>
struct ValueText<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
   static void print(std::string& out, T v) { out += std::to_string(v); }
   static T parse(std::string_view s) {
      T v{};
      auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
      if (ec == std::errc::result_out_of_range) {
         throw ParseException("number out of range: '" + std::string(s) + "'");
      }
      if (ec != std::errc{} || p != s.data() + s.size()) {
         throw ParseException("expected an integer, got '" + std::string(s) + "'");
      }
      return v;
   }
};

template <>
struct ValueText<double> {
   static void print(std::string& out, double v);
   static double parse(std::string_view s);
};

template <>
struct ValueText<std::string> {
   static void print(std::string& out, const std::string& v);
   static std::string parse(std::string_view s);
};

// Text of one value as it appears in a field.
template <class T>
std::string valueText(const T& v) {
   std::string s;
   ValueText<T>::print(s, v);
   return s;
}

class ValueWriter {
public:
   explicit ValueWriter(std::string_view typeName);

   template <class T>
   ValueWriter& field(std::string_view name, const T& v) {
      beginField(name);
      ValueText<T>::print(out_, v);
      return *this;
   }
   // A field whose text the caller has already formed.
   ValueWriter& rawField(std::string_view name, std::string_view text);

   std::string str() const;

private:
   void beginField(std::string_view name);
   std::string out_;
   bool first_ = true;
};

class ValueReader {
public:
   // Checks the "Value('<typeName>', ** {" head; throws ParseException if it does not match.
   ValueReader(std::string_view text, std::string_view typeName);

   // Reads the next field, which must be called `name`, and parses its text as T.
   template <class T>
   T field(std::string_view name) {
      const std::string_view text = nextField(name);
      try {
         return ValueText<T>::parse(text);
      } catch (const ParseException& e) {
         fail(name, e.what());
      } catch (const RangeException& e) {
         fail(name, e.what());
      }
   }
   // The raw text of the next field, which must be called `name`.
   std::string_view rawField(std::string_view name) { return nextField(name); }

   // Checks that no field is left and that the form is closed by "})".
   void finish();

private:
   std::string_view nextField(std::string_view name);
   [[noreturn]] void fail(std::string_view field, std::string_view why) const;

   std::string_view text_;
   std::string_view type_;
   std::size_t pos_ = 0;
   bool first_ = true;
};

}  // namespace Kel
