#pragma once
// An interface named the way the system names it ("Ethernet1", "Vlan10", "Port-Channel5.100").
// Matchers compare interface ids on every route and keep them in hash sets, so the name's hash
// is computed once here and equality checks it before touching the characters.

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace Nx {

class IntfId {
public:
   // No interface.
   IntfId() = default;
   // Names outside letters, digits, '/', '.', '-' and '_' are a Kel::RangeException. An empty
   // name is the same as no interface.
   explicit IntfId(std::string_view name);

   const std::string& name() const noexcept { return name_; }
   bool empty() const noexcept { return name_.empty(); }
   U32 hash() const noexcept { return hash_; }

   bool operator==(const IntfId& o) const noexcept { return hash_ == o.hash_ && name_ == o.name_; }
   std::strong_ordering operator<=>(const IntfId& o) const noexcept { return name_ <=> o.name_; }

   std::string toStrep() const { return name_; }
   // Unlike the constructor, refuses an empty name: text that names no interface is an error.
   static IntfId fromStrep(std::string_view text);

private:
   std::string name_;
   U32 hash_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IntfId& id);

}  // namespace Nx

template <>
struct std::hash<Nx::IntfId> {
   std::size_t operator()(const Nx::IntfId& id) const noexcept { return id.hash(); }
};
