#include "RoutingPolicy/status/PolicyEvalContext.h"

#include <fmt/format.h>

#include "Kel/Exception.h"
#include "RoutingPolicy/status/RouteMapStatus.h"
#include "Termout/RendererV2.h"

namespace Routing::Policy {

namespace {

void line(std::string& out, U32 level, std::string_view text) {
   out.append(level * 3, ' ');
   out.append(text);
   out += '\n';
}

std::string addressText(const void* p) {
   return fmt::format("{}", fmt::ptr(p));
}

}  // namespace

std::string indent(U32 level) {
   return std::string(level * 3, ' ');
}

SeqLog::SeqLog(U32 seq) : seq_(seq) {}

SeqLog::~SeqLog() = default;

void SeqLog::subPolicyEvaluationLogIs(Kel::Ptr<PolicyEvaluationLog> v) {
   subPolicyEvaluationLog_ = std::move(v);
}

std::string SeqLog::toStrep(U32 level) const {
   std::string out;
   line(out, level, addressText(this));
   line(out, level, "seqno: " + std::to_string(seq_));
   if (hadNoMatchers_) {
      line(out, level, "The sequence had no matchers");
   } else if (failedMatcher_ != RouteMap::MatchOption::matchInvalid) {
      line(out, level, "The following matcher failed:");
      line(out, level, RouteMap::stringValue(failedMatcher_));
      return out;
   } else {
      line(out, level, "Seq matched ");
   }
   if (subPolicyEvaluationLog_) {
      line(out, level, "Result: called a sub route map: ");
      subPolicyEvaluationLog_->appendText(out, level + 1);
      if (!subRouteMapResult_) return out;
   }
   if (matchActionDeny_) {
      line(out, level, "Explicitly denied");
      return out;
   }
   line(out, level, permitResult_ ? "This sequence is permit" : "This sequence is deny");
   if (subRouteMapInvertResult_) line(out, level, "Sub route map inverted");
   if (continueSeq_ != 0)
      line(out, level, "Continue triggered to seq " + std::to_string(continueSeq_));
   return out;
}

void SeqLog::toJson(Termout::RendererV2& r,
                    const Kel::Ptr<RouteMapSeqStatus const>& seqStatus) const {
   r.startDict(fmt::format("{}", seq_));
   r.addBool("subRouteMapInvertResult", subRouteMapInvertResult_);
   r.addBool("hadNoMatchers", hadNoMatchers_);
   r.addBool("matchActionDeny", matchActionDeny_);
   r.addBool("result", permitResult_);
   r.addUint("continue", continueSeq_);
   if (failedMatcher_ != RouteMap::MatchOption::matchInvalid) {
      const Kel::Ptr<Matcher const> m = seqStatus ? seqStatus->matcher(failedMatcher_) : nullptr;
      r.addString("failingMatcher", m ? m->toStrep() : RouteMap::stringValue(failedMatcher_));
   }
   if (subPolicyEvaluationLog_) {
      r.startDict("subRouteMap");
      subPolicyEvaluationLog_->toJsonFields(r);
      r.endDict();
   }
   r.endDict();
}

Kel::Ptr<SeqLog> seqLogFactory(U32 seq) {
   return Kel::makePtr<SeqLog>(seq);
}

PolicyEvaluationLog::PolicyEvaluationLog(Kel::Ptr<RouteMapStatus const> rmStatus)
    : rmStatus_(std::move(rmStatus)) {}

PolicyEvaluationLog::~PolicyEvaluationLog() = default;

const Kel::Ptr<SeqLog>& PolicyEvaluationLog::addSeq(
    const Kel::Ptr<RouteMapSeqStatus const>& seqStatus) {
   const U32 seqno = seqStatus->seqno();
   if (auto it = seq_.find(seqno); it != seq_.end()) return it->second;
   Kel::Ptr<SeqLog> entry = seqLogFactory(seqno);
   if (Kel::Ptr<RouteMapStatus const> sub = seqStatus->subRouteMap()) {
      entry->subPolicyEvaluationLogIs(policyEvaluationLogFactory(std::move(sub)));
   }
   seqIs(std::move(entry));
   return seq_.find(seqno)->second;
}

Kel::Ptr<SeqLog> PolicyEvaluationLog::seq(U32 seqno) const {
   const auto it = seq_.find(seqno);
   return it == seq_.end() ? nullptr : it->second;
}

void PolicyEvaluationLog::seqIs(Kel::Ptr<SeqLog> entry) {
   if (!entry) Kel::throwNullMutatorArg("Routing::Policy::PolicyEvaluationLog", "seq");
   const U32 seqno = entry->seq();
   seq_[seqno] = std::move(entry);
}

void PolicyEvaluationLog::appendText(std::string& out, U32 level) const {
   line(out, level, addressText(this));
   line(out, level, "Route Map Name: " + rmStatus_->name());
   for (const auto& [seqno, seqStatus] : rmStatus_->seqStatusMap()) {
      const auto it = seq_.find(seqno);
      if (it == seq_.end()) continue;
      line(out, level, "Matcher debug key: " + std::to_string(seqno));
      out += it->second->toStrep(level + 1);
   }
   line(out, level, permitResult_ ? "result was permit" : "result was deny");
   if (defaultDeny_) line(out, level, "default denied");
   line(out, level, "end " + rmStatus_->name());
}

std::string PolicyEvaluationLog::toStrep(U32 level) const {
   std::string out;
   appendText(out, level);
   return out;
}

void PolicyEvaluationLog::toJson(Termout::RendererV2& r) const {
   r.startDict();
   toJsonFields(r);
   r.endDict();
}

void PolicyEvaluationLog::toJsonFields(Termout::RendererV2& r) const {
   r.addString("rmname", rmStatus_->name());
   r.addBool("result", permitResult_);
   r.addBool("defaultDeny", defaultDeny_);
   for (const auto& [seqno, seqStatus] : rmStatus_->seqStatusMap()) {
      const auto it = seq_.find(seqno);
      if (it != seq_.end()) it->second->toJson(r, seqStatus);
   }
}

Kel::Ptr<PolicyEvaluationLog> policyEvaluationLogFactory(Kel::Ptr<RouteMapStatus const> rmStatus) {
   return Kel::makePtr<PolicyEvaluationLog>(std::move(rmStatus));
}

void PolicyEvalContext::logIs(Kel::Ptr<PolicyEvaluationLog> log) {
   if (log == log_) return;
   log_ = std::move(log);
   callStackReset(log_);
}

void PolicyEvalContext::callStackPush(Kel::Ptr<PolicyEvaluationLog> log) {
   if (callStack_.size() >= callStackCapacity) {
      throw Kel::RangeException("linkstack index space full");
   }
   callStack_.push_back(std::move(log));
}

void PolicyEvalContext::callStackPop() {
   if (!callStack_.empty()) callStack_.pop_back();
}

Kel::Ptr<PolicyEvaluationLog> PolicyEvalContext::callStackPeek() const {
   return callStack_.empty() ? nullptr : callStack_.back();
}

void PolicyEvalContext::callStackReset(Kel::Ptr<PolicyEvaluationLog> log) {
   callStackDelAll();
   callStackPush(std::move(log));
}

std::size_t PolicyEvalContext::offsetOf(U16 index) const {
   const auto offset = static_cast<U16>(index - bottom_);
   if (offset >= callStack_.size()) throw Kel::RangeException("linkstack index out of range");
   return offset;
}

Kel::Ptr<PolicyEvaluationLog> PolicyEvalContext::callStack(U16 index) const {
   return callStack_[offsetOf(index)];
}

void PolicyEvalContext::callStackIs(U16 index, Kel::Ptr<PolicyEvaluationLog> log) {
   callStack_[offsetOf(index)] = std::move(log);
}

void PolicyEvalContext::callStackDel(U16 index) {
   const std::size_t offset = offsetOf(index);
   callStack_.erase(callStack_.begin() + static_cast<std::ptrdiff_t>(offset));
   if (offset == 0) bottom_ = static_cast<U16>(bottom_ + 1);
}

void PolicyEvalContext::callStackDelAll() {
   callStack_.clear();
   bottom_ = 0;
}

Kel::Ptr<PolicyEvalContext> policyEvalContextFactory() {
   return Kel::makePtr<PolicyEvalContext>();
}

}  // namespace Routing::Policy
