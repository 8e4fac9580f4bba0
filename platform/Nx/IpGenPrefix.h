#pragma once
// A network: family, address and length, always held with its host bits cleared. Keeping the
// value canonical at construction is what lets tries, sets and hash tables treat 10.1.2.3/8 and
// 10.0.0.0/8 as the same key without every caller remembering to mask.

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Nx/IpAddr.h"

namespace Nx {

namespace detail {
// Out of line so that the inline constructor stays a compare and a branch on the hot path.
[[noreturn]] void throwPrefixLength(AddressFamily af, unsigned len);
}  // namespace detail

// The fields are laid out by hand rather than as an IpGenAddr plus a length: that keeps the value
// at 24 bytes instead of 32, which matters in the arrays that tries are built from.
class IpGenPrefix {
public:
   // 0.0.0.0/0.
   constexpr IpGenPrefix() noexcept = default;
   // Clears the host bits; a length beyond the family's width is a Kel::RangeException.
   constexpr IpGenPrefix(const IpGenAddr& a, unsigned len) : af_(a.af_), len_(0) {
      if (len > a.maxLen()) [[unlikely]]
         detail::throwPrefixLength(a.af_, len);
      len_ = static_cast<U8>(len);
      const IpGenAddr m = a.masked(len);
      hi_ = m.hi_;
      lo_ = m.lo_;
   }
   // The host prefix of an address: /32 or /128.
   constexpr explicit IpGenPrefix(const IpGenAddr& a) noexcept
       : hi_(a.hi_), lo_(a.lo_), af_(a.af_), len_(static_cast<U8>(a.maxLen())) {}

   constexpr AddressFamily af() const noexcept { return af_; }
   constexpr bool isV4() const noexcept { return af_ == AddressFamily::ipv4; }
   constexpr bool isV6() const noexcept { return af_ == AddressFamily::ipv6; }
   constexpr unsigned len() const noexcept { return len_; }
   constexpr unsigned maxLen() const noexcept { return isV4() ? IpAddr::kBits : Ip6Addr::kBits; }
   constexpr IpGenAddr address() const noexcept {
      IpGenAddr a;
      a.af_ = af_;
      a.hi_ = hi_;
      a.lo_ = lo_;
      return a;
   }

   // True when every address of `p` is in this network; never across families.
   constexpr bool contains(const IpGenPrefix& p) const noexcept {
      return af_ == p.af_ && len_ <= p.len_ && covers(p.address());
   }
   constexpr bool contains(const IpGenAddr& a) const noexcept { return af_ == a.af_ && covers(a); }

   constexpr bool operator==(const IpGenPrefix&) const noexcept = default;
   // Family, then address, then length: a sorted walk visits a network before its subnets.
   constexpr std::strong_ordering operator<=>(const IpGenPrefix& o) const noexcept {
      if (auto c = af_ <=> o.af_; c != 0) return c;
      if (auto c = hi_ <=> o.hi_; c != 0) return c;
      if (auto c = lo_ <=> o.lo_; c != 0) return c;
      return len_ <=> o.len_;
   }

   std::string toStrep() const;
   // Accepts host bits and clears them, as route tables do with what they are handed.
   static IpGenPrefix fromStrep(std::string_view text);
   // Refuses host bits: in configuration they are more often a typo than an intent.
   static IpGenPrefix fromStrepExact(std::string_view text);

private:
   constexpr bool covers(const IpGenAddr& a) const noexcept {
      const IpGenAddr m = a.masked(len_);
      return m.hi_ == hi_ && m.lo_ == lo_;
   }

   U64 hi_ = 0;
   U64 lo_ = 0;
   AddressFamily af_ = AddressFamily::ipv4;
   U8 len_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p);

}  // namespace Nx

template <>
struct std::hash<Nx::IpGenPrefix> {
   std::size_t operator()(const Nx::IpGenPrefix& p) const noexcept {
      // The length goes in too: 10.0.0.0/8 and 10.0.0.0/16 are different keys.
      return std::hash<Nx::IpGenAddr>{}(p.address()) ^ Nx::detail::mix(p.len() + 1);
   }
};
