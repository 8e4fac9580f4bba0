#include "RoutingPolicy/eval/Result.h"

#include <algorithm>

#include "Kel/Exception.h"
#include "Kel/ValueText.h"
#include "RoutingPolicy/eval/Setter.h"

namespace Routing::Policy {

namespace {

constexpr const char* kMatchInputType = "Routing::Policy::MatchInput_";
constexpr const char* kResultType = "Routing::Policy::Result_";

constexpr std::string_view kApplicationNames[] = {"bgp", "redistIgp", "defaultApplication"};

// Field adapters, so that the generic reader reports a bad field by name like any other.
struct ProtoText {
   RouteProto value;
   std::string toStrep() const { return stringValue(value); }
   static ProtoText fromStrep(std::string_view s) {
      const auto p = routeProtoFromString(s);
      if (!p) throw Kel::ParseException("unknown route protocol '" + std::string(s) + "'");
      return {*p};
   }
};

struct IntfIdSetText {
   Kel::Ptr<IntfIdSet const> value;
   std::string toStrep() const { return value ? value->toStrep() : "None"; }
   static IntfIdSetText fromStrep(std::string_view s) {
      if (s == "None") return {};
      return {IntfIdSet::fromStrep(s)};
   }
};

}  // namespace

std::string stringValue(PolicyApplicationType t) {
   const auto i = static_cast<U32>(t);
   return i < std::size(kApplicationNames) ? std::string(kApplicationNames[i]) : std::to_string(i);
}

PolicyApplicationType PolicyApplicationTypeInstance(U32 value) {
   Kel::checkEnumRange<U32>("PolicyApplicationType", value, 0,
                            static_cast<U32>(PolicyApplicationType::defaultApplication));
   return static_cast<PolicyApplicationType>(value);
}

PolicyApplicationType PolicyApplicationTypeInstance(std::string_view name) {
   for (U32 i = 0; i < std::size(kApplicationNames); ++i) {
      if (kApplicationNames[i] == name) return static_cast<PolicyApplicationType>(i);
   }
   throw Kel::ParseException("unknown PolicyApplicationType '" + std::string(name) + "'");
}

bool MatchInput_::operator==(const MatchInput_& o) const {
   const bool sameIntfs =
       intfIdSet_ == o.intfIdSet_ || (intfIdSet_ && o.intfIdSet_ && *intfIdSet_ == *o.intfIdSet_);
   return metric_ == o.metric_ && protocol_ == o.protocol_ && prefix_ == o.prefix_ &&
          nexthop_ == o.nexthop_ && routerId_ == o.routerId_ &&
          resolvedNexthop_ == o.resolvedNexthop_ && tag_ == o.tag_ && sameIntfs &&
          matchIntf_ == o.matchIntf_;
}

bool MatchInput_::operator!() const {
   return *this == MatchInput_();
}

std::string MatchInput_::toStrep() const {
   return Kel::ValueWriter(kMatchInputType)
       .field("metric", metric_)
       .field("protocol", ProtoText{protocol_})
       .field("prefix", prefix_)
       .field("nexthop", nexthop_)
       .field("routerId", routerId_)
       .field("resolvedNexthop", resolvedNexthop_)
       .field("tag", tag_)
       .field("intfIdSet", IntfIdSetText{intfIdSet_})
       .field("matchIntf", matchIntf_)
       .str();
}

MatchInput_ MatchInput_::fromStrep(std::string_view text) {
   Kel::ValueReader r(text, kMatchInputType);
   MatchInput_ m;
   m.metric_ = r.field<Orb::MaybeU63>("metric");
   m.protocol_ = r.field<ProtoText>("protocol").value;
   m.prefix_ = r.field<Nx::IpGenPrefix>("prefix");
   m.nexthop_ = r.field<Nx::IpGenAddr>("nexthop");
   m.routerId_ = r.field<Nx::IpAddr>("routerId");
   m.resolvedNexthop_ = r.field<Nx::IpGenAddr>("resolvedNexthop");
   m.tag_ = r.field<RouteTag>("tag");
   m.intfIdSet_ = r.field<IntfIdSetText>("intfIdSet").value;
   m.matchIntf_ = r.field<bool>("matchIntf");
   r.finish();
   return m;
}

bool DeferredPolicySetters::deferredSetter(const Setter* s) const {
   return std::find(deferredSetter_.begin(), deferredSetter_.end(), s) != deferredSetter_.end();
}

void DeferredPolicySetters::deferredSetterIs(const Setter* s) {
   deferredSetter_.push_back(s);
   notify(&Reactor::handleDeferredSetter);
}

void DeferredPolicySetters::deferredSetterDel(const Setter* s) {
   const auto it = std::find(deferredSetter_.begin(), deferredSetter_.end(), s);
   if (it == deferredSetter_.end()) return;
   deferredSetter_.erase(it);
   notify(&Reactor::handleDeferredSetter);
}

void DeferredPolicySetters::deferredSetterDelAll() {
   if (deferredSetter_.empty()) return;
   deferredSetter_.clear();
   notify(&Reactor::handleDeferredSetter);
}

Kel::Ptr<DeferredPolicySetters> deferredPolicySettersFactory() {
   return Kel::makePtr<DeferredPolicySetters>();
}

void Result_::deferredSetterIs(const Setter* s) {
   if (!dps_) dps_ = deferredPolicySettersFactory();
   dps_->deferredSetterIs(s);
}

void Result_::deferredSetterDel(const Setter* s) {
   if (dps_) dps_->deferredSetterDel(s);
}

void Result_::deferredSetterDelAll() {
   if (dps_) dps_->deferredSetterDelAll();
}

bool Result_::operator==(const Result_& o) const {
   return preference_ == o.preference_ && tag_ == o.tag_ && metric_ == o.metric_ && dps_ == o.dps_;
}

bool Result_::operator!() const {
   return *this == Result_();
}

std::string Result_::toStrep() const {
   std::string dps = "None";
   if (dps_) {
      dps = "[";
      for (const Setter* s : dps_->deferredSetterList()) {
         if (dps.size() > 1) dps += ", ";
         Kel::ValueText<std::string>::print(dps, s->toStrep());
      }
      dps += ']';
   }
   return Kel::ValueWriter(kResultType)
       .field("preference", preference_)
       .field("tag", tag_)
       .field("metric", metric_)
       .rawField("dps", dps)
       .str();
}

Result_ Result_::fromStrep(std::string_view text) {
   Kel::ValueReader r(text, kResultType);
   Result_ res;
   res.preference_ = r.field<RoutePreference>("preference");
   res.tag_ = r.field<RouteTag>("tag");
   res.metric_ = r.field<Orb::MaybeU63>("metric");
   const std::string_view dps = r.rawField("dps");
   if (dps != "None") {
      throw Kel::ParseException("cannot read field 'dps' of " + std::string(kResultType) +
                                    ": deferred setters cannot be rebuilt from text, got '" +
                                    std::string(dps) + "'",
                                "dps");
   }
   r.finish();
   return res;
}

}  // namespace Routing::Policy
