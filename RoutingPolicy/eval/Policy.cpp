#include "RoutingPolicy/eval/Policy.h"

#include <ostream>

#include "FlightLog/FlightLog.h"
#include "Kel/System.h"

namespace Routing::Policy {

namespace {

// Clause texts are written into streams owned by callers; leave their formatting as found.
class FlagsSaver {
public:
   explicit FlagsSaver(std::ostream& os) : os_(os), flags_(os.flags()) {}
   ~FlagsSaver() { os_.flags(flags_); }
   FlagsSaver(const FlagsSaver&) = delete;
   FlagsSaver& operator=(const FlagsSaver&) = delete;

private:
   std::ostream& os_;
   std::ios_base::fmtflags flags_;
};

// Index: the FIB route type; value: the route protocol's number.
constexpr U8 kFib4ToProto[] = {
    0,  1,  1,  1,  0,  1,  0,  4,  0,  2, 9, 1,  0,  10, 47, 24, 24,
    24, 24, 24, 24, 10, 10, 10, 15, 15, 0, 4, 31, 31, 31, 31, 31, 16,
};
constexpr U8 kFib6ToProto[] = {0, 1, 1, 1, 4, 2, 9, 1, 0, 10, 47, 24, 10, 15, 15, 0, 4, 16};

// Pops the sub route map's log off the call stack however the sub evaluation ends.
class CallStackFrame {
public:
   CallStackFrame(PolicyEvalContext* context, Kel::Ptr<PolicyEvaluationLog> log)
       : context_(context) {
      context_->callStackPush(std::move(log));
   }
   ~CallStackFrame() { context_->callStackPop(); }
   CallStackFrame(const CallStackFrame&) = delete;
   CallStackFrame& operator=(const CallStackFrame&) = delete;

private:
   PolicyEvalContext* context_;
};

double elapsedMicroseconds(Kel::Seconds start) {
   return (Kel::System::currentTime() - start) * 1e6;
}

const char* verdict(bool permit) {
   return permit ? "permit" : "deny";
}

}  // namespace

// ---- Matchers ----------------------------------------------------------------------------

void TagMatcher::formatDerivedType(std::ostream& os) const {
   FlagsSaver saver(os);
   os << "TagMatcher tag " << tag_.toStrep();
}

void RouteMetricMatcher::formatDerivedType(std::ostream& os) const {
   FlagsSaver saver(os);
   os << "RouteMetricMatcher metric " << metric_.toStrep();
}

bool SourceProtoMatcher::match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const {
   const RouteProto p = input->getProtocol();
   switch (p) {
      case RouteProto::ospfIntraArea:
      case RouteProto::ospfInterArea:
         return protocol_ == RouteProto::ospf;
      case RouteProto::isisLevel1:
         return protocol_ == RouteProto::isis;
      case RouteProto::ibgp:
      case RouteProto::ebgp:
         return protocol_ == RouteProto::bgp;
      default:
         return p == protocol_;
   }
}

void SourceProtoMatcher::formatDerivedType(std::ostream& os) const {
   FlagsSaver saver(os);
   os << "SourceProtoMatcher protocol " << stringValue(protocol_);
}

void NexthopMatcher::formatDerivedType(std::ostream& os) const {
   FlagsSaver saver(os);
   os << "NexthopMatcher next-hop " << nexthop_.toStrep();
}

bool InterfaceMatcher::match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const {
   if (!input->matchIntf()) return true;
   const Kel::Ptr<IntfIdSet const> intfs = input->getIntfIdSet();
   return intfs && intfs->intfIdHas(intf_);
}

RouteMapFeatures InterfaceMatcher::getFeatures() const {
   RouteMapFeatures f;
   f.matchInterface = true;
   return f;
}

void InterfaceMatcher::formatDerivedType(std::ostream& os) const {
   FlagsSaver saver(os);
   os << "InterfaceMatcher interface " << intf_.toStrep();
}

void GwMatcher::formatDerivedType(std::ostream& os) const {
   FlagsSaver saver(os);
   os << "GwMatcher Not implemented yet";
}

Kel::Ptr<TagMatcher> tagMatcherFactory(RouteTag tag) {
   return Kel::makePtr<TagMatcher>(tag);
}

Kel::Ptr<RouteMetricMatcher> routeMetricMatcherFactory(const Orb::MaybeU63& metric) {
   return Kel::makePtr<RouteMetricMatcher>(metric);
}

Kel::Ptr<SourceProtoMatcher> sourceProtoMatcherFactory(RouteProto protocol) {
   return Kel::makePtr<SourceProtoMatcher>(protocol);
}

Kel::Ptr<NexthopMatcher> nexthopMatcherFactory(const Nx::IpGenAddr& address) {
   return Kel::makePtr<NexthopMatcher>(address);
}

Kel::Ptr<InterfaceMatcher> interfaceMatcherFactory(const Nx::IntfId& intfId) {
   return Kel::makePtr<InterfaceMatcher>(intfId);
}

// ---- Setters -----------------------------------------------------------------------------

void TagSetter::formatDerivedType(std::ostream& os) const {
   FlagsSaver saver(os);
   os << "TagSetter tag " << tag_.toStrep();
}

void DistanceSetter::formatDerivedType(std::ostream& os) const {
   FlagsSaver saver(os);
   os << "DistanceSetter distance " << distance_.toStrep();
}

Kel::Ptr<TagSetter> tagSetterFactory(RouteTag tag) {
   return Kel::makePtr<TagSetter>(tag);
}

Kel::Ptr<DistanceSetter> distanceSetterFactory(RoutePreference preference) {
   return Kel::makePtr<DistanceSetter>(preference);
}

// ---- Route types to protocols ------------------------------------------------------------

RouteProto RouteProtoHelper::routeProto(Fib::RouteType type) {
   const auto t = static_cast<std::size_t>(type);
   return t < std::size(kFib4ToProto) ? RouteProto{kFib4ToProto[t]} : RouteProto::unknown;
}

RouteProto RouteProtoHelper::routeProto6(Routing6::Fib::RouteType type) {
   const auto t = static_cast<std::size_t>(type);
   return t < std::size(kFib6ToProto) ? RouteProto{kFib6ToProto[t]} : RouteProto::unknown;
}

// ---- Evaluator ---------------------------------------------------------------------------

void MatchedRouteMapSequencesSnapshot::seqStatusIs(U32 index,
                                                   Kel::Ptr<RouteMapSeqStatus const> seq) {
   if (!seq) return seqStatusDel(index);
   if (seqStatus_.set(index, std::move(seq))) notify(&Reactor::handleSeqStatus, index);
}

void MatchedRouteMapSequencesSnapshot::seqStatusDel(U32 index) {
   if (seqStatus_.del(index)) notify(&Reactor::handleSeqStatus, index);
}

void MatchedRouteMapSequencesSnapshot::seqStatusDelAll() {
   seqStatus_.delAll([this](U32 index) { notify(&Reactor::handleSeqStatus, index); });
}

Kel::Ptr<MatchedRouteMapSequencesSnapshot> matchedRouteMapSequencesSnapshotFactory() {
   return Kel::makePtr<MatchedRouteMapSequencesSnapshot>();
}

bool PolicyEval::eval(const MatchInput_* input, const Kel::Ptr<RouteMapStatusList const>& list,
                      Result_* result) const {
   MatchedRouteMapSequences matched;
   const bool permit = evalPolicyMatchers(input, list, &matched);
   if (permit) applyPolicySetters(&matched, result);
   return permit;
}

bool PolicyEval::evalPolicyMatchers(const MatchInput_* input,
                                    const Kel::Ptr<RouteMapStatusList const>& list,
                                    MatchedRouteMapSequences* matched) const {
   const bool trace = context_ && context_->enableQt();
   const Kel::Seconds start = trace ? Kel::System::currentTime() : 0;
   bool permit = true;
   if (list) {
      for (const auto& [precedence, rm] : list->rmStatusMap()) {
         if (rm->seqStatusMap().empty()) continue;
         if (!evalRouteMapMatchers(input, rm.get(), matched)) {
            permit = false;
            break;
         }
      }
   }
   if (trace) {
      FLIGHT_LOG("PolicyEval::evalPolicyMatchers {} route maps: {} ({:.3f} us)",
                 list ? list->rmStatusSize() : 0, verdict(permit), elapsedMicroseconds(start));
   }
   return permit;
}

bool PolicyEval::evalRouteMapMatchers(const MatchInput_* input, const RouteMapStatus* rm,
                                      MatchedRouteMapSequences* matched) const {
   PolicyEvalContext* const context = context_.get();
   const bool trace = context && context->enableQt();
   const Kel::Seconds start = trace ? Kel::System::currentTime() : 0;
   // The stack holds the log for as long as this walk runs, so a raw pointer is enough.
   PolicyEvaluationLog* const rmLog =
       context && context->log() ? context->callStackPeek().get() : nullptr;

   const RouteMapStatus::SeqStatusMap& seqs = rm->seqStatusMap();
   bool permit = false;
   bool denied = false;
   auto it = seqs.begin();
   while (it != seqs.end()) {
      const Kel::Ptr<RouteMapSeqStatus const>& seqPtr = it->second;
      const RouteMapSeqStatus* const seq = seqPtr.get();

      bool matches = true;
      const RouteMapSeqStatus::MatcherMap& matchers = seq->matcherMap();
      if (matchers.empty()) {
         if (rmLog) rmLog->addSeq(seqPtr)->hadNoMatchersIs(true);
      } else {
         for (const auto& [option, matcher] : matchers) {
            if (!matcher->match(input, context_)) {
               if (rmLog) rmLog->addSeq(seqPtr)->failedMatcherIs(option);
               matches = false;
               break;
            }
         }
      }

      if (matches) {
         const RouteMapStatus* const sub = seq->subRouteMapRawPtr();
         // An absent or empty sub route map leaves the sequence matching, inverted or not.
         if (sub != nullptr && !sub->seqStatusMap().empty()) {
            const std::size_t mark = matched->size();
            const bool subResult = evalSubRouteMapMatchers(this, context_, rmLog != nullptr, input,
                                                           seqPtr, sub, matched);
            const bool invert = seq->subInvert();
            if (rmLog) {
               SeqLog* const seqLog = rmLog->addSeq(seqPtr).get();
               seqLog->subRouteMapResultIs(subResult);
               seqLog->subRouteMapInvertResultIs(subResult != invert);
            }
            if (!subResult || invert) {
               // Nothing the sub route map matched is applied unless it permitted uninverted.
               matched->erase(matched->begin() + static_cast<std::ptrdiff_t>(mark), matched->end());
               matches = !subResult && invert;
            }
         }
      }

      if (!matches) {
         ++it;
         continue;
      }

      if (seq->matchAction() == Acl::MatchPermit::deny) {
         if (rmLog) {
            SeqLog* const seqLog = rmLog->addSeq(seqPtr).get();
            seqLog->matchActionDenyIs(true);
            seqLog->permitResultIs(false);
            rmLog->permitResultIs(false);
         }
         denied = true;
         break;
      }

      matched->push_back(seq);
      permit = true;

      const RouteMapSeqStatus* const target = seq->continueSeq().get();
      if (target == nullptr) {
         if (rmLog) {
            rmLog->addSeq(seqPtr)->permitResultIs(true);
            rmLog->permitResultIs(true);
         }
         break;
      }
      if (rmLog) {
         SeqLog* const seqLog = rmLog->addSeq(seqPtr).get();
         seqLog->continueSeqIs(target->seqno());
         seqLog->permitResultIs(true);
         rmLog->permitResultIs(true);
      }
      // The target need not exist: evaluation resumes at the next sequence at or above it.
      it = seqs.lower_bound(target->seqno());
   }

   if (denied) {
      permit = false;
   } else if (!permit && rmLog) {
      rmLog->defaultDenyIs(true);
   }
   if (trace) {
      FLIGHT_LOG("PolicyEval::evalRouteMapMatchers {}: {}{} ({:.3f} us)", rm->name(),
                 verdict(permit), !permit && !denied ? " (default)" : "",
                 elapsedMicroseconds(start));
   }
   return permit;
}

bool evalSubRouteMapMatchers(const PolicyEval* policyEval,
                             const Kel::Ptr<PolicyEvalContext>& context, bool logging,
                             const MatchInput_* input,
                             const Kel::Ptr<RouteMapSeqStatus const>& callingSeq,
                             const RouteMapStatus* subRouteMap, MatchedRouteMapSequences* matched) {
   if (!logging) return policyEval->evalRouteMapMatchers(input, subRouteMap, matched);
   const Kel::Ptr<PolicyEvaluationLog> callerLog = context->callStackPeek();
   const Kel::Ptr<SeqLog>& seqLog = callerLog->addSeq(callingSeq);
   seqLog->subPolicyEvaluationLogIs(
       policyEvaluationLogFactory(Kel::Ptr<RouteMapStatus const>(subRouteMap)));
   CallStackFrame frame(context.get(), seqLog->subPolicyEvaluationLog());
   return policyEval->evalRouteMapMatchers(input, subRouteMap, matched);
}

void PolicyEval::applyPolicySetters(const MatchedRouteMapSequences* matched,
                                    Result_* result) const {
   const bool trace = context_ && context_->enableQt();
   const Kel::Seconds start = trace ? Kel::System::currentTime() : 0;
   for (const RouteMapSeqStatus* seq : *matched) {
      for (const auto& [option, setter] : seq->setterMap()) setter->setValue(result);
   }
   if (trace) {
      FLIGHT_LOG("PolicyEval::applyPolicySetters {} sequences ({:.3f} us)", matched->size(),
                 elapsedMicroseconds(start));
   }
}

Kel::Ptr<MatchedRouteMapSequencesSnapshot const> PolicyEval::evalRouteMapMatchersSnapshot(
    const MatchInput_& input, const Kel::Ptr<RouteMapStatus const>& rm) const {
   MatchedRouteMapSequences matched;
   if (!rm || !evalRouteMapMatchers(&input, rm.get(), &matched)) return nullptr;
   Kel::Ptr<MatchedRouteMapSequencesSnapshot> snapshot = matchedRouteMapSequencesSnapshotFactory();
   for (std::size_t i = 0; i < matched.size(); ++i) {
      snapshot->seqStatusIs(static_cast<U32>(i), matched[i]);
   }
   return snapshot;
}

void PolicyEval::applyPolicySettersSnapshot(
    const Kel::Ptr<MatchedRouteMapSequencesSnapshot const>& snapshot, const Result_& result) const {
   MatchedRouteMapSequences matched;
   for (const auto& [index, seq] : snapshot->seqStatusMap()) matched.push_back(seq.get());
   applyPolicySetters(&matched, const_cast<Result_*>(&result));
}

Kel::Ptr<PolicyEval> policyEvalFactory() {
   return Kel::makePtr<PolicyEval>();
}

}  // namespace Routing::Policy
