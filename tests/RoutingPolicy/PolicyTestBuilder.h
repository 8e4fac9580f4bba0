#pragma once
// Builds compiled route maps for tests in a few lines:
//
//    auto rm = RmBuilder("RM1").seq(10).matchTag(5).setTag(100).cont(20)
//                              .seq(20, Acl::MatchPermit::deny)
//                              .build();

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "RoutingPolicy/eval/Policy.h"

namespace policy_test {

using namespace Routing::Policy;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::SetOption;

class RmBuilder {
public:
   explicit RmBuilder(std::string name) : rm_(routeMapStatusFactory(std::move(name))) {}

   RmBuilder& seq(U32 no, Acl::MatchPermit action = Acl::MatchPermit::permit) {
      seqs_.push_back({routeMapSeqStatusFactory(no), std::nullopt});
      cur()->matchActionIs(action);
      return *this;
   }
   RmBuilder& deny(U32 no) { return seq(no, Acl::MatchPermit::deny); }
   RmBuilder& matchTag(U32 tag) {
      cur()->matcherIs(MatchOption::matchTag, tagMatcherFactory(Routing::RouteTag(tag)));
      return *this;
   }
   RmBuilder& matcher(MatchOption o, Kel::Ptr<Matcher const> m) {
      cur()->matcherIs(o, std::move(m));
      return *this;
   }
   RmBuilder& setTag(U32 tag) {
      cur()->setterIs(SetOption::setTag, tagSetterFactory(Routing::RouteTag(tag)));
      return *this;
   }
   RmBuilder& setDistance(U32 d) {
      cur()->setterIs(SetOption::setDistance, distanceSetterFactory(Routing::RoutePreference(d)));
      return *this;
   }
   RmBuilder& sub(Kel::Ptr<RouteMapStatus const> rm, bool invert = false) {
      cur()->subRouteMapIs(std::move(rm));
      cur()->subInvertIs(invert);
      return *this;
   }
   // Resolved at build time against the route map's own sequences; a number that no sequence
   // has gets a free-standing target, as a continue into a gap does.
   RmBuilder& cont(U32 target) {
      seqs_.back().second = target;
      return *this;
   }

   Kel::Ptr<RouteMapStatus> build() {
      for (auto& [s, target] : seqs_) {
         if (!target) continue;
         Kel::Ptr<RouteMapSeqStatus const> t;
         for (auto& [other, unused] : seqs_) {
            if (other->seqno() == *target) t = other;
         }
         s->continueSeqIs(t ? t : routeMapSeqStatusFactory(*target));
      }
      for (auto& [s, target] : seqs_) rm_->seqStatusIs(s);
      return rm_;
   }

private:
   RouteMapSeqStatus* cur() { return seqs_.back().first.get(); }

   Kel::Ptr<RouteMapStatus> rm_;
   std::vector<std::pair<Kel::Ptr<RouteMapSeqStatus>, std::optional<U32>>> seqs_;
};

inline MatchInput_ routeWithTag(U32 tag) {
   MatchInput_ in;
   in.tagIs(Routing::RouteTag(tag));
   return in;
}

}  // namespace policy_test
