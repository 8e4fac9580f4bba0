#pragma once
// Random whole configurations for properties of the agent, and routes that differ in everything
// the clauses read. Successive texts from one seed edit every clause, and lists and route maps
// come and go (one left out of a text is deleted, and made again by a later one).
//
// Two vocabularies share one generator:
//  - small(): two IPv4 prefix lists, one access list of plain prefixes, a route map RM that may
//    call SUB. No IPv6, no sub-route-map cycle. For properties that compare answers directly.
//  - everything(): the whole language: IPv4 and IPv6 prefix lists (ge and le in either order,
//    a name shared between the families), IPv4 and IPv6 access lists (hosts, any, prefixes,
//    scattered wildcards, remarks, a header given twice, a name that changes family between
//    texts), four route maps with every match and set clause, descriptions, reopened
//    sequences, bare and targeted continues, and sub-route-map calls between any of them, with
//    and without invert-result, self-calls and cycles included, and calls to route maps and
//    lists that are not configured.

#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "agent/PolicyAgent.h"
#include "agent/RouteText.h"

namespace rp_agent_test {

using namespace Routing::Policy;

class RandomConfig {
public:
   struct Vocabulary {
      bool ipv6 = false;        // IPv6 lists and routes
      bool wildcards = false;   // access-list sources of every form, remarks, reopened headers
      bool allClauses = false;  // source-protocol, descriptions, reopened sequences, big numbers
      bool anyCalls = false;    // any route map may call any other, itself included
      std::vector<std::string> routeMaps;
   };

   static Vocabulary small() { return Vocabulary{false, false, false, false, {"SUB", "RM"}}; }
   static Vocabulary everything() {
      return Vocabulary{true, true, true, true, {"RM", "R1", "R2", "SUB"}};
   }

   explicit RandomConfig(unsigned seed, Vocabulary v = small()) : v_(std::move(v)), rng_(seed) {}

   const std::vector<std::string>& routeMapNames() const { return v_.routeMaps; }

   std::string next() {
      std::string t;
      prefixLists(t);
      accessLists(t);
      for (const std::string& rm : v_.routeMaps) routeMap(t, rm);
      return t;
   }

   // Routes that differ in every attribute a clause above reads: prefixes on, inside and around
   // the lists' prefixes, tags, metrics (or none), interfaces, next hops of both families,
   // router ids and protocols.
   std::vector<MatchInput_> routes(std::size_t n) {
      std::vector<MatchInput_> out;
      while (out.size() < n) {
         const std::string text = routeLine();
         const auto r = agent::parseRouteText(text);
         if (!r.ok()) {
            std::fprintf(stderr, "RandomConfig made a bad route '%s': %s\n", text.c_str(),
                         r.error.c_str());
            std::abort();
         }
         out.push_back(*r.value);
      }
      return out;
   }

   U32 pick(U32 n) { return static_cast<U32>(rng_() % n); }

private:
   // ---- prefix lists ----------------------------------------------------------------------

   void prefixLists(std::string& t) {
      std::vector<std::pair<const char*, bool>> lists = {{"PA", false}, {"PB", false}};
      if (v_.ipv6) lists.insert(lists.end(), {{"PC", false}, {"PA", true}, {"P6", true}});
      for (const auto& [name, v6] : lists) {
         if (pick(4) == 0) continue;
         for (U32 seq = 10; seq <= 40; seq += 10) {
            if (pick(3) == 0) continue;
            t += v6 ? "ipv6" : "ip";
            t += fmt(" prefix-list %s seq %u %s ", name, seq, pick(3) ? "permit" : "deny");
            t += v6 ? prefixListEntry6() : prefixListEntry4();
            t += "\n";
         }
      }
   }

   // Host routes (next hops, router ids) pass only entries that reach /32.
   std::string prefixListEntry4() {
      const U32 len = v_.allClauses && pick(10) == 0 ? 0 : 8 + 8 * pick(3);
      const std::string pfx =
          len == 0 ? "0.0.0.0/0"
          : len == 8
              ? "10.0.0.0/8"
              : fmt("10.%u.%s/%u", pick(4), len == 16 ? "0.0" : fmt("%u.0", pick(4)).c_str(), len);
      if (!v_.allClauses) {
         const U32 le = pick(3);
         return pfx + (le == 0 ? "" : le == 1 ? " le 24" : " le 32");
      }
      return pfx + bounds(len, 32);
   }

   std::string prefixListEntry6() {
      static const char* const kPrefixes[] = {"::/0",
                                              "2001:db8::/32",
                                              "2001:db8:1::/48",
                                              "2001:db8:2::/48",
                                              "2001:db8:1:1::/64",
                                              "2001:db8:1:1::1/128"};
      static const U32 kLens[] = {0, 32, 48, 48, 64, 128};
      const U32 i = pick(6);
      return std::string(kPrefixes[i]) + bounds(kLens[i], 128);
   }

   // Optional ge and le, in either order, each between the prefix's length and the family's
   // full length, le not below ge.
   std::string bounds(U32 len, U32 full) {
      const U32 span = full - len + 1;
      std::string ge, le;
      U32 geValue = len;
      if (pick(3) == 0) {
         geValue = len + pick(span);
         ge = fmt(" ge %u", geValue);
      }
      if (pick(2) == 0) le = fmt(" le %u", geValue + pick(full - geValue + 1));
      return pick(2) ? ge + le : le + ge;
   }

   // ---- access lists ----------------------------------------------------------------------

   void accessLists(std::string& t) {
      if (!v_.wildcards) {
         if (pick(4) == 0) return;
         t += "ip access-list AL\n";
         for (U32 seq = 10; seq <= 30; seq += 10) {
            if (pick(2)) {
               t += fmt("   %u %s 10.%u.0.0/16\n", seq, pick(3) ? "permit" : "deny", pick(4));
            }
         }
         return;
      }
      // Access lists of both families share one name space; A6 is usually an IPv6 list, and
      // sometimes an IPv4 one, so that a name changes family between texts.
      for (const char* name : {"AL", "AW", "A6"}) {
         if (pick(4) == 0) continue;
         const bool v6 = name[1] == '6' && pick(4) != 0;
         const std::string header = fmt("%s access-list %s\n", v6 ? "ipv6" : "ip", name);
         std::vector<std::string> rules;
         for (U32 seq = 10; seq <= 60; seq += 10) {
            if (pick(3) == 0) continue;
            if (pick(8) == 0) {
               rules.push_back(fmt("   %u remark rule %u of %s\n", seq, seq, name));
               continue;
            }
            rules.push_back(fmt("   %u %s ", seq, pick(3) ? "permit" : "deny") +
                            (v6 ? source6() : source4()) + "\n");
         }
         // A header given twice adds to the same list.
         const std::size_t split = pick(5) == 0 ? pick(static_cast<U32>(rules.size()) + 1) : 0;
         t += header;
         for (std::size_t i = 0; i < rules.size(); ++i) {
            if (split != 0 && i == split) t += header;
            t += rules[i];
         }
      }
   }

   std::string source4() {
      switch (pick(8)) {
         case 0:
            return "any";
         case 1:
            return "host " + address4();
         case 2:
            return fmt("10.%u.0.0/16", pick(4));
         case 3:
            return fmt("10.%u.%u.0/24", pick(4), pick(4));
         default: {
            // Wildcards of every shape over the addresses routes use: scattered bits in the
            // second and third octets (which ones of 10.0-3.0-3 match), a low run (how long a
            // route may be), sometimes the whole address.
            U32 w = 0;
            switch (pick(4)) {
               case 0:
                  w = (U32{1} << pick(25)) - 1;  // contiguous, /32 to /8
                  break;
               case 1:
                  w = pick(2) ? 0 : ~U32{0};  // host or any, written as a wildcard
                  break;
               default:
                  for (U32 bit = 8; bit < 18; ++bit) {
                     if (pick(3) == 0) w |= U32{1} << bit;
                  }
                  if (pick(8) == 0) w |= U32{1} << (18 + pick(14));  // a stray high bit
                  w |= (U32{1} << pick(9)) - 1;
            }
            const U32 a = Nx::IpAddr::fromStrep(address4()).value() & ~w;
            return Nx::IpAddr(a).toStrep() + " " + Nx::IpAddr(w).toStrep();
         }
      }
   }

   std::string source6() {
      switch (pick(4)) {
         case 0:
            return "any";
         case 1:
            return "host " + address6();
         case 2:
            return fmt("2001:db8:%u::/48", pick(3));
         default:
            return fmt("2001:db8:%u:%u::/64", pick(3), pick(3));
      }
   }

   // ---- route maps ------------------------------------------------------------------------

   void routeMap(std::string& t, const std::string& rm) {
      static const U32 kSeqs[] = {5, 10, 20, 30, 40, 50};
      for (U32 seq : kSeqs) {
         if (seq == 5 && !v_.allClauses) continue;
         if (pick(4) == 0) continue;
         sequence(t, rm, seq);
      }
      // The largest sequence number: nothing may continue past it.
      if (v_.allClauses && pick(12) == 0) sequence(t, rm, 4294967295u);
   }

   void sequence(std::string& t, const std::string& rm, U32 seq) {
      std::vector<std::string> clauses = matchClauses();
      if (pick(3) == 0) clauses.push_back(fmt("   set tag %u\n", 100 + pick(5)));
      if (pick(3) == 0) clauses.push_back(fmt("   set distance %u\n", 1 + pick(255)));
      if (pick(4) == 0) {
         clauses.push_back(v_.allClauses && pick(8) == 0 ? "   set metric 9223372036854775807\n"
                                                         : fmt("   set metric %u\n", pick(4)));
      }
      if (seq < 50 && pick(4) == 0) {
         clauses.push_back(
             pick(2) ? "   continue\n"
                     : fmt("   continue %u\n", seq + 5 * (1 + pick(v_.allClauses ? 9 : 4))));
      } else if (seq >= 50 && v_.allClauses && pick(6) == 0) {
         clauses.push_back("   continue\n");
      }
      if (const std::string call = subRouteMap(rm); !call.empty()) clauses.push_back(call);
      if (v_.allClauses && pick(5) == 0) {
         clauses.push_back(fmt("   description %s seq %u, draft %u\n", rm.c_str(), seq, pick(9)));
      }
      shuffle(clauses);
      const std::string header =
          fmt("route-map %s %s %u\n", rm.c_str(), pick(4) ? "permit" : "deny", seq);
      t += header;
      // A second header for the same sequence reopens it; its action holds.
      const std::size_t reopen =
          v_.allClauses && pick(8) == 0 ? pick(static_cast<U32>(clauses.size()) + 1) : 0;
      for (std::size_t i = 0; i < clauses.size(); ++i) {
         if (reopen != 0 && i == reopen) {
            t += fmt("route-map %s %s %u\n", rm.c_str(), pick(2) ? "permit" : "deny", seq);
         }
         t += clauses[i];
      }
   }

   std::vector<std::string> matchClauses() {
      std::vector<std::string> c;
      if (pick(2)) c.push_back(fmt("   match ip address prefix-list %s\n", list4()));
      if (pick(6) == 0) c.push_back(fmt("   match ip address access-list %s\n", accessList()));
      if (pick(3) == 0) c.push_back(fmt("   match tag %u\n", pick(3)));
      if (pick(5) == 0) c.push_back(fmt("   match metric %u\n", pick(3)));
      if (pick(5) == 0) c.push_back(fmt("   match interface Ethernet%u\n", 1 + pick(2)));
      if (pick(6) == 0) c.push_back(fmt("   match ip next-hop 10.%u.0.1\n", pick(4)));
      if (pick(5) == 0) c.push_back(fmt("   match ip next-hop prefix-list %s\n", list4()));
      if (pick(6) == 0) c.push_back(fmt("   match ip resolved-next-hop prefix-list %s\n", list4()));
      if (pick(6) == 0) c.push_back(fmt("   match router-id prefix-list %s\n", list4()));
      if (v_.ipv6 && pick(3) == 0) {
         c.push_back(fmt("   match ipv6 address prefix-list %s\n", pick(2) ? "P6" : "PA"));
      }
      if (v_.allClauses && pick(5) == 0) {
         static const char* const kProtocols[] = {"connected", "bgp", "ospf",  "isis",
                                                  "static",    "rip", "ospf3", "attached-host",
                                                  "dynamic",   "2",   "5"};
         c.push_back(std::string("   match source-protocol ") + kProtocols[pick(11)] + "\n");
      }
      return c;
   }

   std::string subRouteMap(const std::string& rm) {
      const bool invert = pick(3) == 0;
      if (!v_.anyCalls) {
         if (rm != "RM" || pick(5) != 0) return "";
         return invert ? "   sub-route-map SUB invert-result\n" : "   sub-route-map SUB\n";
      }
      if (pick(5) != 0) return "";
      // Any route map, the caller itself included, or one that is never configured.
      const U32 n = static_cast<U32>(v_.routeMaps.size());
      const U32 i = pick(n + 1);
      const std::string callee = i == n ? "GHOST" : v_.routeMaps[i];
      return "   sub-route-map " + callee + (invert ? " invert-result\n" : "\n");
   }

   // ---- routes ----------------------------------------------------------------------------

   std::string routeLine() {
      std::string r;
      const bool v6 = v_.ipv6 && pick(4) == 0;
      if (v6) {
         static const char* const kPrefixes[] = {
             "2001:db8:1::/48",     "2001:db8:2::/48", "2001:db8:1:1::/64", "2001:db8:1:2::/64",
             "2001:db8:1:1::1/128", "2001:db8::/32",   "2001:db9::/32",     "::/0"};
         r = kPrefixes[pick(8)];
      } else {
         static const char* const kSuffixes[] = {".0.0/16", ".1.0/24", ".2.128/25",
                                                 ".0.0/8",  ".3.7/32", ".1.64/26"};
         const char* suffix = kSuffixes[pick(v_.wildcards ? 6 : 4)];
         const U32 b = std::string(suffix) == ".0.0/8" ? 0 : pick(5);
         r = fmt("10.%u", b) + suffix;
         if (v_.wildcards && pick(6) == 0) r = fmt("10.%u.%u.%u/32", pick(4), pick(4), pick(256));
      }
      static const char* const kProtocols[] = {
          "connected", "kernel", "static",    "ospfIntraArea", "ospfInterArea", "rip",
          "isis",      "ospf3",  "aggregate", "isisLevel1",    "bgp",           "ibgp",
          "ebgp",      "ospf",   "vrfLeak",   "attachedHost",  "dynamic"};
      r += std::string(" protocol=") +
           (v_.allClauses ? kProtocols[pick(sizeof kProtocols / sizeof kProtocols[0])]
                          : "connected");
      r += fmt(" tag=%u", pick(3));
      if (pick(4)) r += fmt(" metric=%u", pick(3));
      std::string intfs;
      for (const char* name : {"Ethernet1", "Ethernet2"}) {
         if (pick(2)) intfs += (intfs.empty() ? "" : ",") + std::string(name);
      }
      if (!intfs.empty() && pick(4)) r += " interfaces=" + intfs;
      if (pick(5) == 0) r += " match-intf=false";
      r += " nexthop=" +
           (v_.ipv6 && pick(6) == 0 ? address6() : fmt("10.%u.%u.1", pick(5), pick(2)));
      r += " resolved-nexthop=" + fmt("10.%u.%u.1", pick(5), pick(2));
      r += " router-id=" + fmt("10.%u.%u.1", pick(5), pick(2));
      return r;
   }

   // ---- helpers ---------------------------------------------------------------------------

   std::string address4() {
      static const U32 kLast[] = {0, 1, 7, 64, 128, 255};
      return fmt("10.%u.%u.%u", pick(4), pick(4), kLast[pick(6)]);
   }
   std::string address6() { return fmt("2001:db8:%u:%u::1", pick(3), pick(3)); }

   const char* list4() {
      if (!v_.ipv6) return pick(2) ? "PA" : "PB";
      static const char* const kNames[] = {"PA", "PB", "PC", "P6", "NOPE"};
      return kNames[pick(5)];  // P6 exists only as an IPv6 list; NOPE never does
   }
   const char* accessList() {
      if (!v_.wildcards) return "AL";
      static const char* const kNames[] = {"AL", "AW", "A6", "NOACL"};
      return kNames[pick(4)];
   }

   void shuffle(std::vector<std::string>& v) {
      for (std::size_t i = v.size(); i > 1; --i) std::swap(v[i - 1], v[pick(static_cast<U32>(i))]);
   }

   template <class... A>
   static std::string fmt(const char* f, A... a) {
      char buf[200];
      std::snprintf(buf, sizeof buf, f, a...);
      return buf;
   }

   Vocabulary v_;
   std::mt19937 rng_;
};

}  // namespace rp_agent_test
