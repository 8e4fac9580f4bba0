#pragma once
// Addresses as the route evaluator sees them: plain integers in host order, so that masking,
// comparing and walking a trie bit by bit are register operations. All of these types are
// trivially copyable and never allocate; only the text conversions live out of line.

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/Assert.h"
#include "Kel/Types.h"

namespace Nx {

enum class AddressFamily : U8 { ipv4, ipv6 };

namespace detail {

// Network mask of `len` leading ones. Shifting by the full width is undefined, hence the test.
constexpr U32 mask32(unsigned len) noexcept {
   return len == 0 ? 0 : ~U32{0} << (32 - len);
}
constexpr U64 mask64(unsigned len) noexcept {
   return len == 0 ? 0 : ~U64{0} << (64 - len);
}

// Addresses in one table usually differ only in a few bits, and unordered containers bucket on
// the low bits of the hash, so every bit of the input has to reach every bit of the output.
constexpr std::size_t mix(U64 x) noexcept {
   x ^= x >> 30;
   x *= 0xbf58476d1ce4e5b9ull;
   x ^= x >> 27;
   x *= 0x94d049bb133111ebull;
   x ^= x >> 31;
   return static_cast<std::size_t>(x);
}

}  // namespace detail

class IpAddr {
public:
   static constexpr unsigned kBits = 32;

   constexpr IpAddr() noexcept = default;
   constexpr explicit IpAddr(U32 value) noexcept : value_(value) {}
   constexpr IpAddr(U8 a, U8 b, U8 c, U8 d) noexcept
       : value_(U32{a} << 24 | U32{b} << 16 | U32{c} << 8 | U32{d}) {}

   constexpr U32 value() const noexcept { return value_; }
   // Bit 0 is the most significant, the order in which a trie consumes a prefix.
   constexpr bool bit(unsigned i) const noexcept {
      KEL_ASSERT(i < kBits);
      return (value_ >> (31 - i)) & 1;
   }
   constexpr IpAddr masked(unsigned len) const noexcept {
      return IpAddr(value_ & detail::mask32(len));
   }

   constexpr auto operator<=>(const IpAddr&) const noexcept = default;

   std::string toStrep() const;
   static IpAddr fromStrep(std::string_view text);

private:
   U32 value_ = 0;
};

// Two halves rather than sixteen bytes: a /64 boundary, the common case for IPv6 routes, then
// costs one word compare, and the default ordering is numeric.
class Ip6Addr {
public:
   static constexpr unsigned kBits = 128;

   constexpr Ip6Addr() noexcept = default;
   constexpr Ip6Addr(U64 hi, U64 lo) noexcept : hi_(hi), lo_(lo) {}

   constexpr U64 hi() const noexcept { return hi_; }
   constexpr U64 lo() const noexcept { return lo_; }
   // The i-th sixteen-bit group of the text form, 0 being the leftmost.
   constexpr U16 group(unsigned i) const noexcept {
      KEL_ASSERT(i < 8);
      const U64 half = i < 4 ? hi_ : lo_;
      return static_cast<U16>(half >> (48 - 16 * (i % 4)));
   }
   constexpr bool bit(unsigned i) const noexcept {
      KEL_ASSERT(i < kBits);
      return i < 64 ? (hi_ >> (63 - i)) & 1 : (lo_ >> (127 - i)) & 1;
   }
   constexpr Ip6Addr masked(unsigned len) const noexcept {
      return len <= 64 ? Ip6Addr(hi_ & detail::mask64(len), 0)
                       : Ip6Addr(hi_, lo_ & detail::mask64(len - 64));
   }

   constexpr auto operator<=>(const Ip6Addr&) const noexcept = default;

   std::string toStrep() const;
   static Ip6Addr fromStrep(std::string_view text);

private:
   U64 hi_ = 0;
   U64 lo_ = 0;
};

class IpGenPrefix;

// Either family in one value. An IPv4 address sits in the low 32 bits of lo_ with hi_ zero, so
// the generic code paths (masking, hashing, comparing) do not branch on the family more than
// they must. The family is the first member so that the defaulted ordering sorts by it first.
class IpGenAddr {
public:
   constexpr IpGenAddr() noexcept = default;
   constexpr IpGenAddr(IpAddr a) noexcept : lo_(a.value()) {}
   constexpr IpGenAddr(Ip6Addr a) noexcept : af_(AddressFamily::ipv6), hi_(a.hi()), lo_(a.lo()) {}

   constexpr AddressFamily af() const noexcept { return af_; }
   constexpr bool isV4() const noexcept { return af_ == AddressFamily::ipv4; }
   constexpr bool isV6() const noexcept { return af_ == AddressFamily::ipv6; }
   constexpr unsigned maxLen() const noexcept { return isV4() ? IpAddr::kBits : Ip6Addr::kBits; }

   // Reading the other family is a caller bug that would otherwise surface as a silent mismatch.
   constexpr IpAddr v4() const noexcept {
      KEL_ASSERT(isV4());
      return IpAddr(static_cast<U32>(lo_));
   }
   constexpr Ip6Addr v6() const noexcept {
      KEL_ASSERT(isV6());
      return Ip6Addr(hi_, lo_);
   }
   constexpr bool bit(unsigned i) const noexcept {
      KEL_ASSERT(i < maxLen());
      return isV4() ? (lo_ >> (31 - i)) & 1 : Ip6Addr(hi_, lo_).bit(i);
   }
   constexpr IpGenAddr masked(unsigned len) const noexcept {
      return isV4() ? IpGenAddr(v4().masked(len)) : IpGenAddr(v6().masked(len));
   }

   constexpr auto operator<=>(const IpGenAddr&) const noexcept = default;

   std::string toStrep() const;
   // Either family; the presence of a ':' decides which.
   static IpGenAddr fromStrep(std::string_view text);

private:
   friend class IpGenPrefix;

   AddressFamily af_ = AddressFamily::ipv4;
   U64 hi_ = 0;
   U64 lo_ = 0;
};

namespace detail {
// The non-throwing parsers under every text form, so that a caller trying one family and then
// the other, or a prefix reader, does not pay for an exception per attempt.
bool parseV4(std::string_view text, IpAddr& out) noexcept;
bool parseV6(std::string_view text, Ip6Addr& out) noexcept;
}  // namespace detail

std::ostream& operator<<(std::ostream& os, AddressFamily af);
std::ostream& operator<<(std::ostream& os, const IpAddr& a);
std::ostream& operator<<(std::ostream& os, const Ip6Addr& a);
std::ostream& operator<<(std::ostream& os, const IpGenAddr& a);

}  // namespace Nx

template <>
struct std::hash<Nx::IpAddr> {
   std::size_t operator()(const Nx::IpAddr& a) const noexcept { return Nx::detail::mix(a.value()); }
};

template <>
struct std::hash<Nx::Ip6Addr> {
   std::size_t operator()(const Nx::Ip6Addr& a) const noexcept {
      return Nx::detail::mix(a.hi() ^ Nx::detail::mix(a.lo()));
   }
};

template <>
struct std::hash<Nx::IpGenAddr> {
   std::size_t operator()(const Nx::IpGenAddr& a) const noexcept {
      const U64 h = a.isV4() ? std::hash<Nx::IpAddr>{}(a.v4()) : std::hash<Nx::Ip6Addr>{}(a.v6());
      return h ^ static_cast<std::size_t>(a.af());
   }
};
