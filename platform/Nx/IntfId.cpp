#include "Nx/IntfId.h"

#include <ostream>

#include "Kel/Exception.h"

namespace Nx {

namespace {

bool validName(std::string_view s) noexcept {
   for (char c : s) {
      const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '/' || c == '.' || c == '-' || c == '_';
      if (!ok) return false;
   }
   return true;
}

}  // namespace

IntfId::IntfId(std::string_view name) : name_(name), hash_(Kel::stringHash(name)) {
   if (!validName(name)) {
      throw Kel::RangeException("interface name '" + name_ +
                                "' has characters other than letters, digits, '/', '.', '-', '_'");
   }
}

IntfId IntfId::fromStrep(std::string_view text) {
   if (text.empty() || !validName(text)) {
      throw Kel::ParseException(
          "expected an interface name of letters, digits, '/', '.', '-', '_' like Ethernet1, got "
          "'" +
          std::string(text) + "'");
   }
   return IntfId(text);
}

std::ostream& operator<<(std::ostream& os, const IntfId& id) {
   return os << id.name();
}

}  // namespace Nx
