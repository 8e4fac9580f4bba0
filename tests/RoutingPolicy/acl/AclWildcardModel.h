#pragma once
// Random IPv4 access lists with scattered wildcards, routes that land on and around their rules,
// and the first-match answer computed the slow way: every address of the route's prefix against
// every rule's source and wildcard. Nothing here uses the library's conversion or matching, so
// it can judge them.

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "Kel/Types.h"
#include "Nx/IpAddr.h"

namespace acl_model {

struct Rule {
   U32 seqno;
   bool permit;
   U32 source;  // no bits under the wildcard
   U32 wildcard;
};

struct Route {
   U32 address;  // host bits clear
   unsigned len;
};

// The first rule, in sequence order, whose addresses include every address of the route's
// prefix; null when there is none (the list denies). `rules` ascend by sequence number.
inline const Rule* firstMatch(const std::vector<Rule>& rules, const Route& route) {
   const U64 count = U64{1} << (32 - route.len);
   for (const Rule& r : rules) {
      bool all = true;
      for (U64 i = 0; all && i < count; ++i) {
         const U32 a = route.address + static_cast<U32>(i);
         all = (a & ~r.wildcard) == r.source;
      }
      if (all) return &r;
   }
   return nullptr;
}

class Generator {
public:
   explicit Generator(U64 seed) : rng_(seed) {}

   U32 pick(U32 n) { return static_cast<U32>(rng_() % n); }

   // Wildcards of every shape: host, contiguous, any, and scattered ones of any density over
   // the whole address, usually with a low run so that routes of /24 and longer can match.
   U32 wildcard() {
      switch (pick(8)) {
         case 0:
            return 0;
         case 1:
            return ~U32{0};
         case 2: {
            const unsigned hostBits = pick(33);
            return hostBits == 32 ? ~U32{0} : (U32{1} << hostBits) - 1;
         }
         default: {
            const U32 density = pick(101);
            U32 w = 0;
            for (unsigned bit = 0; bit < 32; ++bit) {
               if (pick(100) < density) w |= U32{1} << bit;
            }
            const unsigned run = pick(3) == 0 ? 0 : pick(11);
            return w | ((U32{1} << run) - 1);
         }
      }
   }

   // 1 to 24 rules over a few base addresses, so that rules overlap and compete.
   std::vector<Rule> rules() {
      bases_.clear();
      for (U32 n = 1 + pick(3); n > 0; --n) bases_.push_back(static_cast<U32>(rng_()));
      std::vector<Rule> out;
      U32 seqno = 0;
      for (U32 n = 1 + pick(24); n > 0; --n) {
         seqno += 1 + pick(20);
         const U32 w = wildcard();
         out.push_back({seqno, pick(2) == 0, near() & ~w, w});
      }
      return out;
   }

   // Mostly inside one rule's addresses, some a bit off them, a few anywhere; /22 to /32.
   Route route(const std::vector<Rule>& rules) {
      static constexpr unsigned kLens[] = {22, 23, 24, 24, 25, 26, 27, 28, 29, 30, 31, 32, 32, 32};
      const unsigned len = kLens[pick(sizeof kLens / sizeof kLens[0])];
      U32 a;
      const U32 kind = pick(10);
      if (kind < 6) {
         const Rule& r = rules[pick(static_cast<U32>(rules.size()))];
         a = r.source | (static_cast<U32>(rng_()) & r.wildcard);
      } else if (kind < 9) {
         a = near();
      } else {
         a = static_cast<U32>(rng_());
      }
      return {a & Nx::detail::mask32(len), len};
   }

private:
   // A base address with a few bits flipped.
   U32 near() {
      U32 a = bases_[pick(static_cast<U32>(bases_.size()))];
      for (U32 n = pick(4); n > 0; --n) a ^= U32{1} << pick(32);
      return a;
   }

   std::mt19937_64 rng_;
   std::vector<U32> bases_;
};

inline std::string text(U32 a) {
   return Nx::IpAddr(a).toStrep();
}

inline std::string describe(const std::vector<Rule>& rules) {
   std::string s;
   for (const Rule& r : rules) {
      s += "   " + std::to_string(r.seqno) + (r.permit ? " permit " : " deny ") + text(r.source) +
           " " + text(r.wildcard) + "\n";
   }
   return s;
}

}  // namespace acl_model
