#pragma once
// Random whole configurations for properties of the agent: successive texts from one seed edit
// every clause, and lists come and go (a list left out of one configuration is deleted, and made
// again by a later one). Two lists, one access list, a route map RM that may call SUB.

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "agent/PolicyAgent.h"

namespace rp_agent_test {

using namespace Routing::Policy;

class RandomConfig {
public:
   explicit RandomConfig(unsigned seed) : rng_(seed) {}

   std::string next() {
      std::string t;
      for (const char* pl : {"PA", "PB"}) {
         if (pick(4) == 0) continue;
         for (U32 seq = 10; seq <= 40; seq += 10) {
            if (pick(3) == 0) continue;
            const U32 len = 8 + 8 * pick(3);
            t += fmt("ip prefix-list %s seq %u %s 10.%u.0.0/%u", pl, seq,
                     pick(3) ? "permit" : "deny", len == 8 ? 0 : pick(4), len);
            // Host routes (next hops, router ids) pass only entries that reach /32.
            const U32 le = pick(3);
            t += le == 0 ? "\n" : le == 1 ? " le 24\n" : " le 32\n";
         }
      }
      if (pick(4) != 0) {
         t += "ip access-list AL\n";
         for (U32 seq = 10; seq <= 30; seq += 10) {
            if (pick(2)) {
               t += fmt("   %u %s 10.%u.0.0/16\n", seq, pick(3) ? "permit" : "deny", pick(4));
            }
         }
      }
      for (const char* rm : {"SUB", "RM"}) {
         for (U32 seq = 10; seq <= 50; seq += 10) {
            if (pick(4) == 0) continue;
            t += fmt("route-map %s %s %u\n", rm, pick(4) ? "permit" : "deny", seq);
            if (pick(2)) t += fmt("   match ip address prefix-list %s\n", list());
            if (pick(6) == 0) t += "   match ip address access-list AL\n";
            if (pick(3) == 0) t += fmt("   match tag %u\n", pick(3));
            if (pick(5) == 0) t += fmt("   match metric %u\n", pick(3));
            if (pick(5) == 0) t += fmt("   match interface Ethernet%u\n", 1 + pick(2));
            if (pick(6) == 0) t += fmt("   match ip next-hop 10.%u.0.1\n", pick(4));
            if (pick(5) == 0) t += fmt("   match ip next-hop prefix-list %s\n", list());
            if (pick(6) == 0) t += fmt("   match ip resolved-next-hop prefix-list %s\n", list());
            if (pick(6) == 0) t += fmt("   match router-id prefix-list %s\n", list());
            if (pick(3) == 0) t += fmt("   set tag %u\n", 100 + pick(5));
            if (pick(3) == 0) t += fmt("   set distance %u\n", 1 + pick(200));
            if (pick(4) == 0) t += fmt("   set metric %u\n", pick(4));
            if (seq < 50 && pick(4) == 0) {
               t += pick(2) ? "   continue\n" : fmt("   continue %u\n", seq + 10 * (1 + pick(2)));
            }
            if (rm[0] == 'R' && pick(5) == 0) {
               t += pick(2) ? "   sub-route-map SUB\n" : "   sub-route-map SUB invert-result\n";
            }
         }
      }
      return t;
   }

   // Routes that differ in every attribute a clause above reads.
   std::vector<MatchInput_> routes(std::size_t n) {
      std::vector<MatchInput_> out;
      const char* const suffixes[] = {".0.0/16", ".1.0/24", ".2.128/25", ".0.0/8"};
      for (std::size_t i = 0; i < n; ++i) {
         const U32 b = pick(5);
         const char* suffix = suffixes[pick(4)];
         MatchInput_ r = routeOf(
             ("10." + std::to_string(std::string(suffix) == ".0.0/8" ? 0 : b) + suffix).c_str(),
             pick(3));
         if (pick(4)) r.metricIs(Orb::MaybeU63(pick(3)));
         auto intfs = intfIdSetFactory();
         for (const char* name : {"Ethernet1", "Ethernet2"}) {
            if (pick(2)) intfs->intfIdIs(Nx::IntfId(name));
         }
         if (pick(4)) r.intfIdSetIs(std::move(intfs));
         r.matchIntfIs(pick(5) != 0);
         auto addr = [&] { return Nx::IpAddr::fromStrep(fmt("10.%u.%u.1", pick(5), pick(2))); };
         r.nexthopIs(Nx::IpGenAddr(addr()));
         r.resolvedNexthopIs(Nx::IpGenAddr(addr()));
         r.routerIdIs(addr());
         out.push_back(std::move(r));
      }
      return out;
   }

private:
   static MatchInput_ routeOf(const char* prefix, U32 tag) {
      MatchInput_ in;
      in.prefixIs(Nx::IpGenPrefix::fromStrep(prefix));
      in.tagIs(Routing::RouteTag(tag));
      in.protocolIs(Routing::RouteProto::connected);
      return in;
   }
   U32 pick(U32 n) { return static_cast<U32>(rng_() % n); }
   const char* list() { return pick(2) ? "PA" : "PB"; }
   template <class... A>
   static std::string fmt(const char* f, A... a) {
      char buf[160];
      std::snprintf(buf, sizeof buf, f, a...);
      return buf;
   }
   std::mt19937 rng_;
};


}  // namespace rp_agent_test
