#pragma once
// The state of one debug evaluation: the stack of logs of the route maps being evaluated
// (innermost on top) and the logs themselves, one per route map call and one per visited
// sequence. Built and thrown away within one evaluation, so nothing here notifies.

#include <string>
#include <unordered_map>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "Routing/RouteMap/Options.h"

namespace Termout {
class RendererV2;
}

namespace Routing::Policy {

class RouteMapStatus;
class RouteMapSeqStatus;
class PolicyEvaluationLog;

using CallStackMetadata = U32;

// Three blanks per level: the indentation of the log's text form.
std::string indent(U32 level);

class SeqLog : public Kel::RefCounted {
public:
   explicit SeqLog(U32 seq);

   U32 seq() const { return seq_; }
   U32 continueSeq() const { return continueSeq_; }
   void continueSeqIs(U32 v) { continueSeq_ = v; }
   RouteMap::MatchOption failedMatcher() const { return failedMatcher_; }
   void failedMatcherIs(RouteMap::MatchOption v) { failedMatcher_ = v; }
   const Kel::Ptr<PolicyEvaluationLog>& subPolicyEvaluationLog() const {
      return subPolicyEvaluationLog_;
   }
   void subPolicyEvaluationLogIs(Kel::Ptr<PolicyEvaluationLog> v);
   bool hadNoMatchers() const { return hadNoMatchers_; }
   void hadNoMatchersIs(bool v) { hadNoMatchers_ = v; }
   bool subRouteMapResult() const { return subRouteMapResult_; }
   void subRouteMapResultIs(bool v) { subRouteMapResult_ = v; }
   bool matchActionDeny() const { return matchActionDeny_; }
   void matchActionDenyIs(bool v) { matchActionDeny_ = v; }
   bool permitResult() const { return permitResult_; }
   void permitResultIs(bool v) { permitResult_ = v; }
   bool subRouteMapInvertResult() const { return subRouteMapInvertResult_; }
   void subRouteMapInvertResultIs(bool v) { subRouteMapInvertResult_ = v; }

   std::string toStrep(U32 level) const;
   // Writes this sequence as a dict keyed by its number; `seqStatus` is the sequence the entry
   // records, from which the failing matcher's text is taken.
   void toJson(Termout::RendererV2& r, const Kel::Ptr<RouteMapSeqStatus const>& seqStatus) const;

   ~SeqLog() override;

private:
   U32 seq_;
   U32 continueSeq_ = 0;
   RouteMap::MatchOption failedMatcher_ = RouteMap::MatchOption::matchInvalid;
   Kel::Ptr<PolicyEvaluationLog> subPolicyEvaluationLog_;
   bool hadNoMatchers_ = false;
   bool subRouteMapResult_ = false;
   bool matchActionDeny_ = false;
   bool permitResult_ = false;
   bool subRouteMapInvertResult_ = false;
};

Kel::Ptr<SeqLog> seqLogFactory(U32 seq);

class PolicyEvaluationLog : public Kel::RefCounted {
public:
   // By number, so that recording a visit costs the same however long the route map is.
   using SeqMap = std::unordered_map<U32, Kel::Ptr<SeqLog>>;

   explicit PolicyEvaluationLog(Kel::Ptr<RouteMapStatus const> rmStatus);

   const Kel::Ptr<RouteMapStatus const>& rmStatus() const { return rmStatus_; }

   // The entry of `seqStatus`, made on first use together with a log for its sub route map.
   const Kel::Ptr<SeqLog>& addSeq(const Kel::Ptr<RouteMapSeqStatus const>& seqStatus);

   Kel::Ptr<SeqLog> seq(U32 seqno) const;
   bool seqHas(U32 seqno) const { return seq_.find(seqno) != seq_.end(); }
   // Filed under the entry's own number; null is refused with a range error.
   void seqIs(Kel::Ptr<SeqLog> entry);
   void seqDel(U32 seqno) { seq_.erase(seqno); }
   void seqDelAll() { seq_.clear(); }
   std::size_t seqSize() const { return seq_.size(); }

   bool permitResult() const { return permitResult_; }
   void permitResultIs(bool v) { permitResult_ = v; }
   bool defaultDeny() const { return defaultDeny_; }
   void defaultDenyIs(bool v) { defaultDeny_ = v; }

   std::string toStrep(U32 level) const;
   // One JSON dict: rmname, result, defaultDeny, then the visited sequences in route-map order.
   void toJson(Termout::RendererV2& r) const;
   // The same fields into a dict the caller has opened.
   void toJsonFields(Termout::RendererV2& r) const;

   ~PolicyEvaluationLog() override;

private:
   void appendText(std::string& out, U32 level) const;
   friend class SeqLog;

   Kel::Ptr<RouteMapStatus const> rmStatus_;
   SeqMap seq_;
   bool permitResult_ = false;
   bool defaultDeny_ = false;
};

Kel::Ptr<PolicyEvaluationLog> policyEvaluationLogFactory(Kel::Ptr<RouteMapStatus const> rmStatus);

class PolicyEvalContext : public Kel::RefCounted {
public:
   // The call stack's indices are U16 and wrap; one index stays free so that a full stack and
   // an empty one are told apart.
   static constexpr U32 callStackCapacity = 0xffff;

   const Kel::Ptr<PolicyEvaluationLog>& log() const { return log_; }
   // A different log restarts the call stack from it.
   void logIs(Kel::Ptr<PolicyEvaluationLog> log);

   void callStackPush(Kel::Ptr<PolicyEvaluationLog> log);
   void callStackPop();
   // The top entry, or null when the stack is empty.
   Kel::Ptr<PolicyEvaluationLog> callStackPeek() const;
   void callStackReset(Kel::Ptr<PolicyEvaluationLog> log);
   Kel::Ptr<PolicyEvaluationLog> callStack(U16 index) const;
   void callStackIs(U16 index, Kel::Ptr<PolicyEvaluationLog> log);
   // Entries above `index` move down by one; deleting the bottom entry moves the bottom index
   // up instead, so the other entries keep their indices.
   void callStackDel(U16 index);
   void callStackDelAll();
   U32 callStackSize() const { return static_cast<U32>(callStack_.size()); }
   U16 callStackBottom() const { return bottom_; }

   CallStackMetadata callStackMetadata() const { return callStackMetadata_; }
   void callStackMetadataIs(CallStackMetadata v) { callStackMetadata_ = v; }

   bool enableQt() const { return enableQt_; }
   void enableQtIs(bool v) { enableQt_ = v; }

private:
   std::size_t offsetOf(U16 index) const;

   Kel::Ptr<PolicyEvaluationLog> log_;
   std::vector<Kel::Ptr<PolicyEvaluationLog>> callStack_;  // from the bottom entry up
   U16 bottom_ = 0;
   CallStackMetadata callStackMetadata_ = 0;
   bool enableQt_ = false;
};

Kel::Ptr<PolicyEvalContext> policyEvalContextFactory();

}  // namespace Routing::Policy
