#include "Nx/IpAddr.h"

#include <charconv>
#include <ostream>

#include "Kel/Exception.h"

namespace Nx {

namespace {

// One to three decimal digits without a leading zero. Leading zeros are refused because some
// readers take "010" as octal; accepting it here would let the same text mean two addresses.
bool parseOctet(std::string_view s, U32& out) noexcept {
   if (s.empty() || s.size() > 3 || (s.size() > 1 && s[0] == '0')) return false;
   U32 v = 0;
   for (char c : s) {
      if (c < '0' || c > '9') return false;
      v = v * 10 + static_cast<U32>(c - '0');
   }
   if (v > 255) return false;
   out = v;
   return true;
}

int hexDigit(char c) noexcept {
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   return -1;
}

bool parseGroup(std::string_view s, U16& out) noexcept {
   if (s.empty() || s.size() > 4) return false;
   U32 v = 0;
   for (char c : s) {
      const int d = hexDigit(c);
      if (d < 0) return false;
      v = v << 4 | static_cast<U32>(d);
   }
   out = static_cast<U16>(v);
   return true;
}

std::string quoted(std::string_view text) {
   std::string s;
   s.reserve(text.size() + 2);
   s += '\'';
   s += text;
   s += '\'';
   return s;
}

}  // namespace

namespace detail {

bool parseV4(std::string_view s, IpAddr& out) noexcept {
   U32 v = 0;
   for (int i = 0; i < 4; ++i) {
      const auto dot = s.find('.');
      if ((i < 3) != (dot != std::string_view::npos)) return false;
      U32 octet = 0;
      if (!parseOctet(s.substr(0, dot), octet)) return false;
      v = v << 8 | octet;
      if (i < 3) s.remove_prefix(dot + 1);
   }
   out = IpAddr(v);
   return true;
}

bool parseV6(std::string_view s, Ip6Addr& out) noexcept {
   U16 g[8] = {};
   int n = 0;
   int gap = -1;  // index of the first group after "::", when there is one
   std::size_t i = 0;
   if (s.starts_with("::")) {
      gap = 0;
      i = 2;
   } else if (s.empty() || s[0] == ':') {
      return false;
   }
   while (i < s.size()) {
      std::size_t end = s.find(':', i);
      if (end == std::string_view::npos) end = s.size();
      const std::string_view tok = s.substr(i, end - i);
      if (tok.find('.') != std::string_view::npos) {
         // An embedded IPv4 address fills the last two groups and ends the text.
         IpAddr v4;
         if (end != s.size() || n > 6 || !parseV4(tok, v4)) return false;
         g[n++] = static_cast<U16>(v4.value() >> 16);
         g[n++] = static_cast<U16>(v4.value());
         break;
      }
      if (n == 8 || !parseGroup(tok, g[n])) return false;
      ++n;
      if (end == s.size()) break;
      i = end + 1;
      if (i == s.size()) return false;  // a lone trailing ':'
      if (s[i] == ':') {
         if (gap >= 0) return false;  // "::" twice
         gap = n;
         ++i;
      }
   }
   if (gap < 0) {
      if (n != 8) return false;
   } else {
      // "::" stands for at least one group.
      if (n > 7) return false;
      const int zeros = 8 - n;
      for (int k = n - 1; k >= gap; --k) {
         g[k + zeros] = g[k];
         g[k] = 0;
      }
   }
   U64 hi = 0;
   U64 lo = 0;
   for (int k = 0; k < 4; ++k) hi = hi << 16 | g[k];
   for (int k = 4; k < 8; ++k) lo = lo << 16 | g[k];
   out = Ip6Addr(hi, lo);
   return true;
}

}  // namespace detail

std::string IpAddr::toStrep() const {
   // Digits by hand: to_chars' error path (returning the buffer end) makes g++ 12 at -O3 report
   // an overflow on the dot that follows, although an octet never needs more than three digits.
   std::string out;
   out.reserve(15);
   for (int shift = 24; shift >= 0; shift -= 8) {
      const unsigned octet = (value_ >> shift) & 0xff;
      if (octet >= 100) out += static_cast<char>('0' + octet / 100);
      if (octet >= 10) out += static_cast<char>('0' + octet / 10 % 10);
      out += static_cast<char>('0' + octet % 10);
      if (shift) out += '.';
   }
   return out;
}

IpAddr IpAddr::fromStrep(std::string_view text) {
   IpAddr a;
   if (!detail::parseV4(text, a)) {
      throw Kel::ParseException("expected an IPv4 address like 10.1.2.3, got " + quoted(text));
   }
   return a;
}

std::string Ip6Addr::toStrep() const {
   // The longest run of two or more zero groups becomes "::", the leftmost one on a tie; a lone
   // zero group stays "0" so that every address has exactly one text form.
   int best = -1;
   int bestLen = 1;
   for (int k = 0; k < 8;) {
      if (group(k) != 0) {
         ++k;
         continue;
      }
      int run = k;
      while (run < 8 && group(run) == 0) ++run;
      if (run - k > bestLen) {
         best = k;
         bestLen = run - k;
      }
      k = run;
   }
   char buf[40];
   char* p = buf;
   for (int k = 0; k < 8; ++k) {
      if (best >= 0 && k >= best && k < best + bestLen) {
         if (k == best) {
            *p++ = ':';
            *p++ = ':';
         }
         continue;
      }
      if (k > 0 && k != best + bestLen) *p++ = ':';
      p = std::to_chars(p, buf + sizeof buf, group(k), 16).ptr;
   }
   return std::string(buf, p);
}

Ip6Addr Ip6Addr::fromStrep(std::string_view text) {
   Ip6Addr a;
   if (!detail::parseV6(text, a)) {
      throw Kel::ParseException("expected an IPv6 address like 2001:db8::1, got " + quoted(text));
   }
   return a;
}

std::string IpGenAddr::toStrep() const {
   return isV4() ? v4().toStrep() : v6().toStrep();
}

IpGenAddr IpGenAddr::fromStrep(std::string_view text) {
   if (text.find(':') != std::string_view::npos) {
      Ip6Addr a;
      if (detail::parseV6(text, a)) return a;
   } else {
      IpAddr a;
      if (detail::parseV4(text, a)) return a;
   }
   throw Kel::ParseException("expected an IPv4 or IPv6 address like 10.1.2.3 or 2001:db8::1, got " +
                             quoted(text));
}

std::ostream& operator<<(std::ostream& os, AddressFamily af) {
   return os << (af == AddressFamily::ipv4 ? "ipv4" : "ipv6");
}
std::ostream& operator<<(std::ostream& os, const IpAddr& a) {
   return os << a.toStrep();
}
std::ostream& operator<<(std::ostream& os, const Ip6Addr& a) {
   return os << a.toStrep();
}
std::ostream& operator<<(std::ostream& os, const IpGenAddr& a) {
   return os << a.toStrep();
}

}  // namespace Nx
