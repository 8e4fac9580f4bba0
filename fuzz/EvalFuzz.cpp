// Evaluation is what every route goes through: a wrong verdict leaks or drops routes silently.
// This target builds compiled route maps straight from the input with the library's status
// objects, matchers and setters (no configuration compiler in between, so shapes the compiler
// would never produce are reached too: continue into gaps or past the end, empty sub-route-maps,
// inverted calls, undefined prefix lists), and holds PolicyEval to a small evaluator written here
// from the documented semantics:
//
//    route maps in ascending precedence, each a walk of sequences in ascending number; a
//    sequence matches when all its matchers do and, if it calls a non-empty sub-route-map, when
//    that permits (denies, under invert); a matching deny ends everything with deny; a matching
//    permit is recorded and ends the route map unless it continues, in which case the walk
//    resumes at the first sequence numbered at or above the target; running off the end
//    permits when anything permitted. What a sub-route-map matched counts only when it
//    permitted uninverted. Setters run in match order (a calling sequence after its callee's
//    sequences), the last write winning. An empty route map neither permits nor denies.
//
// Verdict and result (tag, preference, metric) must agree, also through the agent's evaluator
// with and without an explanation log, which walk other code. A difference aborts with the
// route maps and the route printed.
//
// Clauses: tag, metric, source protocol, prefix list on the route's prefix, next hop, interface,
// and prefix lists on the next hop, the resolved next hop and the router id; setters of tag,
// distance and metric.
//
// Input, read front to back (an exhausted input reads as zeros): two IPv4 prefix lists and one
// IPv6 list (any may be left undefined), 1-4 route maps with 0-6 sequences each (a route map
// calls only route maps after it, so there are no cycles), which route maps the list holds, then
// up to 12 routes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "Routing/RouteMap/PolicySymbol.h"
#include "Routing/RouteMap/PrefixListCompilerSm.h"
#include "Routing/RouteMap/PrefixListConfig.h"
#include "RoutingPolicy/eval/IntfIdSet.h"
#include "RoutingPolicy/eval/Policy.h"
#include "RoutingPolicy/eval/PrefixListMatcher.h"
#include "RoutingPolicy/eval/RouteMetricSetter.h"
#include "RoutingPolicy/status/RouteMapSeqStatus.h"
#include "RoutingPolicy/status/RouteMapStatus.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"
#include "agent/PolicyAgent.h"
#include "fuzz/FuzzBytes.h"

using namespace Routing::Policy;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::PrefixListRule;
using Routing::RouteMap::SetOption;

namespace {

// ---- the model ---------------------------------------------------------------------------------

struct PrefixListModel {
   std::string name;
   Nx::AddressFamily af = Nx::AddressFamily::ipv4;
   bool defined = false;
   std::vector<PrefixListRule> rules;
};

struct SeqModel {
   U32 seqno = 0;
   bool permit = true;
   std::optional<U32> matchTag;
   std::optional<Orb::MaybeU63> matchMetric;
   std::optional<U8> matchProtocol;
   int matchList = -1;  // index into the prefix lists
   std::optional<Nx::IpGenAddr> matchNexthop;
   std::optional<Nx::IntfId> matchInterface;
   int matchNexthopList = -1;  // IPv4 lists only, as the configuration names them
   int matchResolvedList = -1;
   int matchRouterIdList = -1;
   std::optional<U32> setTag;
   std::optional<U32> setDistance;
   std::optional<Orb::MaybeU63> setMetric;
   int sub = -1;  // index of the called route map
   bool invert = false;
   std::optional<U32> continueTo;  // the target sequence number, which need not exist
};

struct RmModel {
   std::string name;
   std::vector<SeqModel> seqs;  // ascending sequence numbers
};

struct Model {
   std::vector<PrefixListModel> lists;
   std::vector<RmModel> rms;
   std::vector<int> listed;  // route maps of the status list, in precedence order
};

// The protocol folds of the source-protocol clause: the route's specific protocol counts as the
// family the configuration names, never the reverse.
bool protocolMatches(U8 route, U8 configured) {
   switch (route) {
      case 5:
      case 6:
         return configured == 31;
      case 20:
         return configured == 10;
      case 25:
      case 30:
         return configured == 24;
      default:
         return route == configured;
   }
}

// The lowest-numbered rule whose prefix covers the route and whose lengths admit it decides;
// none denies.
bool listMatches(const PrefixListModel& list, const Nx::IpGenPrefix& p) {
   if (!list.defined || p.af() != list.af) return false;
   const PrefixListRule* best = nullptr;
   for (const PrefixListRule& r : list.rules) {
      if (r.prefix.contains(p) && r.minLen() <= p.len() && p.len() <= r.maxLen() &&
          (!best || r.seqno < best->seqno)) {
         best = &r;
      }
   }
   return best && best->permit;
}

class Reference {
public:
   Reference(const Model& m, const MatchInput_& route) : m_(m), route_(route) {}

   // Verdict, and on permit the result the matched sequences' setters write.
   bool eval(Result_& result) {
      std::vector<const SeqModel*> matched;
      for (int rm : m_.listed) {
         if (m_.rms[rm].seqs.empty()) continue;
         if (!evalRm(m_.rms[rm], matched)) return false;
      }
      for (const SeqModel* s : matched) {
         if (s->setTag) result.tagIs(Routing::RouteTag(*s->setTag));
         if (s->setDistance) result.preferenceIs(Routing::RoutePreference(*s->setDistance));
         if (s->setMetric) result.metricIs(*s->setMetric);
      }
      return true;
   }

private:
   bool matches(const SeqModel& s) const {
      if (s.matchTag && route_.tag().value() != *s.matchTag) return false;
      if (s.matchMetric && !(route_.metric() == *s.matchMetric)) return false;
      if (s.matchProtocol &&
          !protocolMatches(static_cast<U8>(route_.protocol()), *s.matchProtocol)) {
         return false;
      }
      if (s.matchList >= 0 && !listMatches(m_.lists[s.matchList], route_.prefix())) return false;
      if (s.matchNexthop && !(route_.nexthop() == *s.matchNexthop)) return false;
      if (s.matchInterface && route_.matchIntf() &&
          !(route_.intfIdSet() && route_.intfIdSet()->intfIdHas(*s.matchInterface))) {
         return false;
      }
      if (s.matchNexthopList >= 0 &&
          !listMatches(m_.lists[s.matchNexthopList], Nx::IpGenPrefix(route_.nexthop()))) {
         return false;
      }
      if (s.matchResolvedList >= 0 &&
          !listMatches(m_.lists[s.matchResolvedList], Nx::IpGenPrefix(route_.resolvedNexthop()))) {
         return false;
      }
      if (s.matchRouterIdList >= 0 &&
          !listMatches(m_.lists[s.matchRouterIdList],
                       Nx::IpGenPrefix(Nx::IpGenAddr(route_.routerId())))) {
         return false;
      }
      return true;
   }

   bool evalRm(const RmModel& rm, std::vector<const SeqModel*>& matched) const {
      bool permit = false;
      std::size_t i = 0;
      while (i < rm.seqs.size()) {
         const SeqModel& s = rm.seqs[i];
         bool match = matches(s);
         if (match && s.sub >= 0 && !m_.rms[s.sub].seqs.empty()) {
            const std::size_t mark = matched.size();
            const bool sub = evalRm(m_.rms[s.sub], matched);
            if (!sub || s.invert) {
               matched.resize(mark);
               match = !sub && s.invert;
            }
         }
         if (!match) {
            ++i;
            continue;
         }
         if (!s.permit) return false;
         matched.push_back(&s);
         permit = true;
         if (!s.continueTo) return true;
         i = 0;
         while (i < rm.seqs.size() && rm.seqs[i].seqno < *s.continueTo) ++i;
      }
      return permit;
   }

   const Model& m_;
   const MatchInput_& route_;
};

// ---- reading the model from the input -------------------------------------------------------

// A few base addresses, so that rules and routes overlap often.
const Nx::IpGenAddr& base(fuzz::Bytes& in, Nx::AddressFamily af) {
   static const Nx::IpGenAddr v4[] = {
       Nx::IpGenAddr::fromStrep("10.0.0.0"), Nx::IpGenAddr::fromStrep("10.1.0.0"),
       Nx::IpGenAddr::fromStrep("10.1.2.0"), Nx::IpGenAddr::fromStrep("192.0.2.128")};
   static const Nx::IpGenAddr v6[] = {
       Nx::IpGenAddr::fromStrep("2001:db8::"), Nx::IpGenAddr::fromStrep("2001:db8:1::"),
       Nx::IpGenAddr::fromStrep("2001:db8:1:2::"), Nx::IpGenAddr::fromStrep("fe80::")};
   return af == Nx::AddressFamily::ipv4 ? v4[in.below(4)] : v6[in.below(4)];
}

Nx::IpGenPrefix prefixFrom(fuzz::Bytes& in, Nx::AddressFamily af) {
   const Nx::IpGenAddr& a = base(in, af);
   const unsigned max = a.maxLen();
   // Mostly near the bases' own lengths, sometimes anything.
   const unsigned len =
       in.flag() ? in.below(max + 1)
                 : (af == Nx::AddressFamily::ipv4 ? 8 : 32) + 8 * in.below(4) + in.below(3);
   return Nx::IpGenPrefix(a, std::min(len, max));
}

PrefixListModel listFrom(fuzz::Bytes& in, std::string name, Nx::AddressFamily af) {
   PrefixListModel l;
   l.name = std::move(name);
   l.af = af;
   l.defined = in.below(8) != 0;
   U32 seqno = 0;
   for (unsigned n = in.below(5); n > 0; --n) {
      seqno += 1 + in.below(8);
      const Nx::IpGenPrefix p = prefixFrom(in, af);
      const unsigned max = p.maxLen();
      std::optional<U32> ge, le;
      if (in.flag()) ge = p.len() + in.below(max - p.len() + 1);
      if (in.flag()) {
         const unsigned low = ge ? *ge : p.len();
         le = low + in.below(max - low + 1);
      }
      l.rules.emplace_back(seqno, in.flag(), p, ge, le);
   }
   return l;
}

// A host address near the bases, of either family.
Nx::IpGenAddr addressFrom(fuzz::Bytes& in) {
   const Nx::IpGenAddr& a =
       base(in, in.below(4) == 0 ? Nx::AddressFamily::ipv6 : Nx::AddressFamily::ipv4);
   if (a.isV4()) return Nx::IpGenAddr(Nx::IpAddr(a.v4().value() | in.byte()));
   return Nx::IpGenAddr(Nx::Ip6Addr(a.v6().hi(), a.v6().lo() | in.byte()));
}

const Nx::IntfId kIntfs[] = {Nx::IntfId("Ethernet1"), Nx::IntfId("Ethernet2")};

// Protocol values around the folds: 5, 6, 20, 25, 30 fold; 10, 24, 31 are what they fold into.
constexpr U8 kProtocols[] = {1, 4, 5, 6, 9, 10, 20, 24, 25, 30, 31, 47};

Orb::MaybeU63 metricFrom(fuzz::Bytes& in) {
   static const U64 kMetrics[] = {0, 5, 10, Orb::MaybeU63::max};
   const unsigned i = in.below(5);
   return i == 4 ? Orb::MaybeU63() : Orb::MaybeU63(kMetrics[i]);
}

Model modelFrom(fuzz::Bytes& in) {
   Model m;
   m.lists.push_back(listFrom(in, "PL0", Nx::AddressFamily::ipv4));
   m.lists.push_back(listFrom(in, "PL1", Nx::AddressFamily::ipv4));
   m.lists.push_back(listFrom(in, "PL6", Nx::AddressFamily::ipv6));
   const int rmCount = 1 + static_cast<int>(in.below(4));
   for (int i = 0; i < rmCount; ++i) {
      RmModel rm;
      rm.name = "RM" + std::to_string(i);
      U32 seqno = 0;
      for (unsigned n = in.below(7); n > 0; --n) {
         SeqModel s;
         seqno += 1 + in.below(10);
         s.seqno = seqno;
         s.permit = in.below(4) != 0;
         const U8 clauses = in.byte();
         if (clauses & 1) s.matchTag = in.below(4);
         if (clauses & 2) s.matchMetric = metricFrom(in);
         if (clauses & 4) s.matchProtocol = kProtocols[in.below(std::size(kProtocols))];
         if (clauses & 8) s.matchList = static_cast<int>(in.below(3));
         if (clauses & 16) s.setTag = 100 + in.below(100);
         if (clauses & 32) s.setDistance = in.below(256);
         if (clauses & 64) s.setMetric = metricFrom(in);
         if ((clauses & 128) && i + 1 < rmCount) {
            s.sub = i + 1 + static_cast<int>(in.below(rmCount - i - 1));
            s.invert = in.flag();
         }
         // The clauses on the route's other addresses and its interfaces, rarer.
         const U8 more = in.below(4) == 0 ? in.byte() : 0;
         if (more & 1) s.matchNexthop = addressFrom(in);
         if (more & 2) s.matchInterface = kIntfs[in.below(std::size(kIntfs))];
         if (more & 4) s.matchNexthopList = static_cast<int>(in.below(2));
         if (more & 8) s.matchResolvedList = static_cast<int>(in.below(2));
         if (more & 16) s.matchRouterIdList = static_cast<int>(in.below(2));
         rm.seqs.push_back(s);
      }
      // Continue targets after the numbers are known: bare (the next sequence), into the gap
      // before a later one or past the end, always above the sequence itself.
      for (std::size_t k = 0; k < rm.seqs.size(); ++k) {
         const U32 own = rm.seqs[k].seqno;
         switch (in.below(4)) {
            case 1:
               rm.seqs[k].continueTo = k + 1 < rm.seqs.size() ? rm.seqs[k + 1].seqno : own + 1;
               break;
            case 2:
               rm.seqs[k].continueTo = own + 1 + in.below(20);
               break;
            default:
               break;
         }
      }
      m.rms.push_back(std::move(rm));
   }
   // The status list: one to three route maps at ascending precedences; a route map may be
   // listed that others also call.
   for (unsigned n = 1 + in.below(3); n > 0; --n)
      m.listed.push_back(static_cast<int>(in.below(rmCount)));
   return m;
}

MatchInput_ routeFrom(fuzz::Bytes& in) {
   MatchInput_ r;
   r.prefixIs(prefixFrom(in, in.below(4) == 0 ? Nx::AddressFamily::ipv6 : Nx::AddressFamily::ipv4));
   r.tagIs(Routing::RouteTag(in.below(5)));
   r.metricIs(metricFrom(in));
   r.protocolIs(static_cast<Routing::RouteProto>(kProtocols[in.below(std::size(kProtocols))]));
   const U8 more = in.byte();
   if (more & 1) r.nexthopIs(addressFrom(in));
   if (more & 2) r.resolvedNexthopIs(addressFrom(in));
   if (more & 4) {
      const Nx::IpGenAddr id = addressFrom(in);
      if (id.isV4()) r.routerIdIs(id.v4());
   }
   r.matchIntfIs(more & 8);
   if (more & 16) {
      auto intfs = intfIdSetFactory();
      if (more & 32) intfs->intfIdIs(kIntfs[0]);
      if (more & 64) intfs->intfIdIs(kIntfs[1]);
      r.intfIdSetIs(intfs);
   }
   return r;
}

// ---- the library's objects ---------------------------------------------------------------------

class Compiled {
public:
   explicit Compiled(const Model& m) {
      for (const PrefixListModel& l : m.lists) {
         if (!l.defined) {
            statuses_.push_back(nullptr);
            continue;
         }
         const auto config = root_->prefixListIs(l.af, l.name);
         for (const PrefixListRule& r : l.rules) config->entryIs(r);
         config->versionIs(config->version() + 1);
         const auto& table = l.af == Nx::AddressFamily::ipv4 ? v4_ : v6_;
         statuses_.push_back(
             Routing::RouteMap::prefixListSymbolFactory(l.name)->dedup(table)->status());
      }
      // Callees first: a route map calls only those after it.
      rms_.resize(m.rms.size());
      for (std::size_t i = m.rms.size(); i-- > 0;) rms_[i] = build(m, m.rms[i]);
      list_ = routeMapStatusListFactory();
      U32 precedence = RmPrecedence::min;
      for (int i : m.listed) list_->rmStatusIs(RmPrecedence(precedence++), rms_[i]);
   }

   const Kel::Ptr<RouteMapStatusList>& list() const { return list_; }

private:
   Kel::Ptr<RouteMapStatus> build(const Model& m, const RmModel& rm) {
      auto status = routeMapStatusFactory(rm.name);
      std::vector<Kel::Ptr<RouteMapSeqStatus>> seqs;
      for (const SeqModel& s : rm.seqs) {
         auto seq = routeMapSeqStatusFactory(s.seqno);
         seq->matchActionIs(s.permit ? Acl::MatchPermit::permit : Acl::MatchPermit::deny);
         if (s.matchTag) {
            seq->matcherIs(MatchOption::matchTag,
                           tagMatcherFactory(Routing::RouteTag(*s.matchTag)));
         }
         if (s.matchMetric) {
            seq->matcherIs(MatchOption::matchMetric, routeMetricMatcherFactory(*s.matchMetric));
         }
         if (s.matchProtocol) {
            seq->matcherIs(
                MatchOption::matchSourceProtocol,
                sourceProtoMatcherFactory(static_cast<Routing::RouteProto>(*s.matchProtocol)));
         }
         if (s.matchList >= 0) {
            const PrefixListModel& l = m.lists[s.matchList];
            seq->matcherIs(l.af == Nx::AddressFamily::ipv4
                               ? MatchOption::matchIpAddressPrefixList
                               : MatchOption::matchIpv6AddressPrefixList,
                           prefixListMatcherFactory(l.name, statuses_[s.matchList]));
         }
         if (s.matchNexthop) {
            seq->matcherIs(MatchOption::matchIpNexthop, nexthopMatcherFactory(*s.matchNexthop));
         }
         if (s.matchInterface) {
            seq->matcherIs(MatchOption::matchInterface, interfaceMatcherFactory(*s.matchInterface));
         }
         if (s.matchNexthopList >= 0) {
            seq->matcherIs(MatchOption::matchIpNexthopPrefixList,
                           nexthopPrefixListMatcherFactory(m.lists[s.matchNexthopList].name,
                                                           statuses_[s.matchNexthopList]));
         }
         if (s.matchResolvedList >= 0) {
            seq->matcherIs(MatchOption::matchIpResolvedNexthopPrefixList,
                           resolvedNexthopPfxListMatcherFactory(m.lists[s.matchResolvedList].name,
                                                                statuses_[s.matchResolvedList]));
         }
         if (s.matchRouterIdList >= 0) {
            seq->matcherIs(MatchOption::matchRouterIdPrefixList,
                           routerIdMatcherFactory(m.lists[s.matchRouterIdList].name,
                                                  statuses_[s.matchRouterIdList]));
         }
         if (s.setTag)
            seq->setterIs(SetOption::setTag, tagSetterFactory(Routing::RouteTag(*s.setTag)));
         if (s.setDistance) {
            seq->setterIs(SetOption::setDistance,
                          distanceSetterFactory(Routing::RoutePreference(*s.setDistance)));
         }
         if (s.setMetric)
            seq->setterIs(SetOption::setMetric, routeMetricSetterFactory(*s.setMetric));
         if (s.sub >= 0) {
            seq->subRouteMapIs(rms_[s.sub]);
            seq->subInvertIs(s.invert);
         }
         seqs.push_back(seq);
      }
      // Continue points at the target's own object where it exists, as the compiler does, and
      // at a free-standing one for a number no sequence has.
      for (std::size_t k = 0; k < rm.seqs.size(); ++k) {
         const auto& target = rm.seqs[k].continueTo;
         if (!target) continue;
         Kel::Ptr<RouteMapSeqStatus const> t;
         for (std::size_t j = 0; j < rm.seqs.size(); ++j) {
            if (rm.seqs[j].seqno == *target) t = seqs[j];
         }
         seqs[k]->continueSeqIs(t ? t : routeMapSeqStatusFactory(*target));
      }
      for (const auto& seq : seqs) status->seqStatusIs(seq);
      return status;
   }

   Kel::Ptr<Routing::RouteMap::PrefixListConfigRoot> root_ =
       Routing::RouteMap::prefixListConfigRootFactory();
   Kel::Ptr<Routing::RouteMap::PrefixListSymbolDedupTable> v4_ =
       Routing::RouteMap::prefixListSymbolDedupTableFactory();
   Kel::Ptr<Routing::RouteMap::PrefixListSymbolDedupTable> v6_ =
       Routing::RouteMap::prefixListSymbolDedupTableFactory();
   Kel::Ptr<Routing::RouteMap::PrefixListCompilerSm> compiler_ =
       Routing::RouteMap::prefixListCompilerSmFactory(root_, v4_, v6_);
   std::vector<Kel::Ptr<Routing::RouteMap::PrefixListStatus const>> statuses_;
   std::vector<Kel::Ptr<RouteMapStatus>> rms_;
   Kel::Ptr<RouteMapStatusList> list_;
};

// ---- reporting ---------------------------------------------------------------------------------

std::string describe(const Model& m) {
   std::string s;
   for (const PrefixListModel& l : m.lists) {
      s += (l.af == Nx::AddressFamily::ipv4 ? "ip" : "ipv6") + std::string(" prefix-list ") +
           l.name + (l.defined ? "" : " (undefined)") + "\n";
      for (const PrefixListRule& r : l.rules) s += "   " + r.toStrep() + "\n";
   }
   for (const RmModel& rm : m.rms) {
      s += "route-map " + rm.name + (rm.seqs.empty() ? " (empty)" : "") + "\n";
      for (const SeqModel& q : rm.seqs) {
         s += "   " + std::to_string(q.seqno) + (q.permit ? " permit" : " deny");
         if (q.matchTag) s += " match-tag=" + std::to_string(*q.matchTag);
         if (q.matchMetric) s += " match-metric=" + q.matchMetric->toStrep();
         if (q.matchProtocol) s += " match-protocol=" + std::to_string(*q.matchProtocol);
         if (q.matchList >= 0) s += " match-list=" + m.lists[q.matchList].name;
         if (q.matchNexthop) s += " match-nexthop=" + q.matchNexthop->toStrep();
         if (q.matchInterface) s += " match-interface=" + q.matchInterface->name();
         if (q.matchNexthopList >= 0)
            s += " match-nexthop-list=" + m.lists[q.matchNexthopList].name;
         if (q.matchResolvedList >= 0) {
            s += " match-resolved-nexthop-list=" + m.lists[q.matchResolvedList].name;
         }
         if (q.matchRouterIdList >= 0) {
            s += " match-router-id-list=" + m.lists[q.matchRouterIdList].name;
         }
         if (q.sub >= 0) s += " sub=" + m.rms[q.sub].name + (q.invert ? " invert" : "");
         if (q.continueTo) s += " continue=" + std::to_string(*q.continueTo);
         if (q.setTag) s += " set-tag=" + std::to_string(*q.setTag);
         if (q.setDistance) s += " set-distance=" + std::to_string(*q.setDistance);
         if (q.setMetric) s += " set-metric=" + q.setMetric->toStrep();
         s += "\n";
      }
   }
   s += "status list:";
   for (int i : m.listed) s += " " + m.rms[i].name;
   return s + "\n";
}

std::string verdict(bool permit, const Result_& r) {
   return permit ? "permit " + r.toStrep() : "deny " + r.toStrep();
}

void check(const char* path, const Model& m, const MatchInput_& route, bool wantPermit,
           const Result_& want, bool permit, const Result_& got) {
   if (permit == wantPermit && got == want) return;
   std::fprintf(stderr,
                "%s differs from the reference\n%sroute: %s\n  expected %s\n  got      %s\n", path,
                describe(m).c_str(), route.toStrep().c_str(), verdict(wantPermit, want).c_str(),
                verdict(permit, got).c_str());
   std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   fuzz::Bytes in(data, size);
   const Model m = modelFrom(in);
   const Compiled compiled(m);
   const Kel::Ptr<RouteMapStatusList const> list = compiled.list();
   const auto eval = policyEvalFactory();
   const agent::PolicyEvaluator evaluator(list);
   for (unsigned n = 0; n < 12 && (n == 0 || !in.empty()); ++n) {
      const MatchInput_ route = routeFrom(in);
      Result_ want;
      const bool wantPermit = Reference(m, route).eval(want);

      Result_ got;
      const bool permit = eval->eval(&route, list, &got);
      check("PolicyEval::eval", m, route, wantPermit, want, permit, got);

      const agent::Evaluation plain = evaluator.evaluate(route);
      check("PolicyEvaluator::evaluate", m, route, wantPermit, want, plain.permit, plain.result);
      const agent::Evaluation explained = evaluator.evaluate(route, true);
      check("PolicyEvaluator::evaluate with explain", m, route, wantPermit, want, explained.permit,
            explained.result);
   }
   return 0;
}
