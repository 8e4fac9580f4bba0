#include "Nx/IpGenPrefix.h"

#include <ostream>

#include "Kel/Exception.h"

namespace Nx {

namespace {

const char* familyName(AddressFamily af) {
   return af == AddressFamily::ipv4 ? "IPv4" : "IPv6";
}

std::string lengthRangeText(AddressFamily af, unsigned len) {
   const unsigned max = af == AddressFamily::ipv4 ? IpAddr::kBits : Ip6Addr::kBits;
   return "prefix length " + std::to_string(len) + " out of range for " + familyName(af) + " (0.." +
          std::to_string(max) + ")";
}

[[noreturn]] void throwPrefixSyntax(std::string_view text) {
   throw Kel::ParseException("expected an IPv4 or IPv6 prefix like 10.0.0.0/8, got '" +
                             std::string(text) + "'");
}

struct RawPrefix {
   IpGenAddr address;  // as written, host bits included
   unsigned len;
};

RawPrefix parseRaw(std::string_view text) {
   const auto slash = text.find('/');
   if (slash == std::string_view::npos) throwPrefixSyntax(text);
   const std::string_view addr = text.substr(0, slash);
   const std::string_view digits = text.substr(slash + 1);

   RawPrefix r{};
   if (addr.find(':') != std::string_view::npos) {
      Ip6Addr a;
      if (!detail::parseV6(addr, a)) throwPrefixSyntax(text);
      r.address = a;
   } else {
      IpAddr a;
      if (!detail::parseV4(addr, a)) throwPrefixSyntax(text);
      r.address = a;
   }
   // Same rule as octets: plain decimal, no sign, no leading zero.
   if (digits.empty() || digits.size() > 3 || (digits.size() > 1 && digits[0] == '0')) {
      throwPrefixSyntax(text);
   }
   r.len = 0;
   for (char c : digits) {
      if (c < '0' || c > '9') throwPrefixSyntax(text);
      r.len = r.len * 10 + static_cast<unsigned>(c - '0');
   }
   if (r.len > r.address.maxLen()) {
      throw Kel::ParseException(lengthRangeText(r.address.af(), r.len) + " in '" +
                                std::string(text) + "'");
   }
   return r;
}

}  // namespace

namespace detail {
void throwPrefixLength(AddressFamily af, unsigned len) {
   throw Kel::RangeException(lengthRangeText(af, len));
}
}  // namespace detail

std::string IpGenPrefix::toStrep() const {
   return address().toStrep() + '/' + std::to_string(len_);
}

IpGenPrefix IpGenPrefix::fromStrep(std::string_view text) {
   const RawPrefix r = parseRaw(text);
   return IpGenPrefix(r.address, r.len);
}

IpGenPrefix IpGenPrefix::fromStrepExact(std::string_view text) {
   const RawPrefix r = parseRaw(text);
   const IpGenPrefix p(r.address, r.len);
   if (p.address() != r.address) {
      throw Kel::ParseException("host bits set in '" + std::string(text) + "'; did you mean " +
                                p.toStrep() + "?");
   }
   return p;
}

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p) {
   return os << p.toStrep();
}

}  // namespace Nx
