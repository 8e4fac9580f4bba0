#include "RoutingPolicy/status/RouteMapStatusList.h"

#include "RoutingPolicy/function/VplExternalMatchers.h"
#include "RoutingPolicy/status/RouteMapStatus.h"

namespace Routing::Policy {

namespace {

constexpr const char* kFeaturesType = "Routing::Policy::RouteMapFeatures";

const char* yesNo(bool v) {
   return v ? "yes" : "no";
}

}  // namespace

std::string RouteMapFeatures::toStrep() const {
   std::string s;
   s.reserve(200);
   s += "matchPrefixDependent=";
   s += yesNo(matchPrefixDependent);
   s += "; matchInterface=";
   s += yesNo(matchInterface);
   s += "; matchRouterId=";
   s += yesNo(matchRouterId);
   s += "; matchOriginAsValidity=";
   s += yesNo(matchOriginAsValidity);
   s += "; setMetricIgpNhCost=";
   s += yesNo(setMetricIgpNhCost);
   s += "; setOriginAsValidity=";
   s += yesNo(setOriginAsValidity);
   s += "; hasAggLinkBandwidthSetter=";
   s += yesNo(hasAggLinkBandwidthSetter);
   return s;
}

std::string RouteMapFeatures::valueToStrep() const {
   return Kel::ValueWriter(kFeaturesType)
       .field("matchPrefixDependent", matchPrefixDependent)
       .field("matchInterface", matchInterface)
       .field("matchRouterId", matchRouterId)
       .field("matchOriginAsValidity", matchOriginAsValidity)
       .field("setMetricIgpNhCost", setMetricIgpNhCost)
       .field("setOriginAsValidity", setOriginAsValidity)
       .field("hasAggLinkBandwidthSetter", hasAggLinkBandwidthSetter)
       .str();
}

RouteMapFeatures RouteMapFeatures::valueFromStrep(std::string_view text) {
   Kel::ValueReader r(text, kFeaturesType);
   RouteMapFeatures f;
   f.matchPrefixDependent = r.field<bool>("matchPrefixDependent");
   f.matchInterface = r.field<bool>("matchInterface");
   f.matchRouterId = r.field<bool>("matchRouterId");
   f.matchOriginAsValidity = r.field<bool>("matchOriginAsValidity");
   f.setMetricIgpNhCost = r.field<bool>("setMetricIgpNhCost");
   f.setOriginAsValidity = r.field<bool>("setOriginAsValidity");
   f.hasAggLinkBandwidthSetter = r.field<bool>("hasAggLinkBandwidthSetter");
   r.finish();
   return f;
}

RouteMapStatusList::RouteMapStatusList() {
   updateFeatures();
}

RouteMapStatusList::~RouteMapStatusList() = default;

Kel::Ptr<RouteMapStatus const> RouteMapStatusList::rmStatus(RmPrecedence p) const {
   return rmStatus_.get(p);
}

void RouteMapStatusList::rmStatusIs(RmPrecedence p, Kel::Ptr<RouteMapStatus const> status) {
   if (!status) return rmStatusDel(p);
   if (!rmStatus_.set(p, std::move(status))) return;
   updateFeatures();
   notify(&Reactor::handleRmStatus, p);
}

void RouteMapStatusList::rmStatusDel(RmPrecedence p) {
   if (!rmStatus_.del(p)) return;
   updateFeatures();
   notify(&Reactor::handleRmStatus, p);
}

void RouteMapStatusList::rmStatusDelAll() {
   rmStatus_.delAll([this](RmPrecedence p) {
      updateFeatures();
      notify(&Reactor::handleRmStatus, p);
   });
}

void RouteMapStatusList::updateFeatures() {
   features_ = RouteMapFeatures{};
   for (const auto& [precedence, rm] : rmStatus_) features_.updateFrom(rm->features());
   if (vplStatus_ && vplStatus_->function()) {
      features_.updateFrom(vplStatus_->function()->features());
   }
}

void RouteMapStatusList::vplStatusIs(Kel::Ptr<Vpl::FunctionStatusBase const> status) {
   if (status == vplStatus_) return;
   vplStatus_ = std::move(status);
   updateFeatures();
   notify(&Reactor::handleVplStatus);
}

Kel::Ptr<RouteMapStatusList> RouteMapStatusList::copy() const {
   Kel::Ptr<RouteMapStatusList> out = routeMapStatusListFactory();
   for (const auto& [precedence, rm] : rmStatus_) out->rmStatus_.set(precedence, rm);
   out->vplStatus_ = vplStatus_;
   out->features_ = features_;
   out->matchPrefixDependent_ = matchPrefixDependent_;
   return out;
}

void RouteMapStatusList::dumpState(Orb::DumpContext& ctx, U32 indent) const {
   Orb::objDumpPrintf(ctx, "%*cRouteMapStatusList #%u\n", static_cast<int>(indent), ' ',
                      static_cast<unsigned>(rmStatus_.size()));
   for (const auto& [precedence, rm] : rmStatus_) {
      Orb::dumpChild(ctx, indent + 2, rm.get(), "RouteMapStatus");
   }
}

Kel::Ptr<RouteMapStatusList> routeMapStatusListFactory() {
   return Kel::makePtr<RouteMapStatusList>();
}

}  // namespace Routing::Policy
