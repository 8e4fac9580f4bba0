#pragma once
// The two exceptions of the framework. Both carry the exact message text, which callers and
// tests compare literally.

#include <stdexcept>
#include <string>

#include "Kel/Types.h"

namespace Kel {

// A value outside what an attribute or container accepts.
class RangeException : public std::out_of_range {
public:
   explicit RangeException(const std::string& what) : std::out_of_range(what) {}
};

// Text that could not be turned into a value. `field()` names the field that failed, empty when
// the failure is not tied to one field.
class ParseException : public std::invalid_argument {
public:
   explicit ParseException(const std::string& what, std::string field = {})
       : std::invalid_argument(what), field_(std::move(field)) {}
   const std::string& field() const noexcept { return field_; }

private:
   std::string field_;
};

// Throws the range error that enumeration-like value types raise on every set and parse:
// "<Type>::value < <Type>::min or > <Type>::max not allowed".
[[noreturn]] void throwEnumRange(const char* typeName);

// Checks `value` against [min, max] and throws the enumeration range error when outside.
template <class T>
inline void checkEnumRange(const char* typeName, T value, T min, T max) {
   if (value < min || value > max) throwEnumRange(typeName);
}

// Throws the refusal of a null value given to a collection that keys entries by the value's own
// key: "null _<attr> parameter to mutator for <typeName>::<attr> not allowed" followed by one
// double quote, which belongs to the message.
[[noreturn]] void throwNullMutatorArg(const char* typeName, const char* attr);

}  // namespace Kel
