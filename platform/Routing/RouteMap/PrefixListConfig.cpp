#include "Routing/RouteMap/PrefixListConfig.h"

#include <ostream>

#include "Kel/Exception.h"
#include "Kel/ValueText.h"

namespace Routing::RouteMap {

namespace {

constexpr std::string_view kRuleTypeName = "Routing::RouteMap::PrefixListRule";

// An absent bound is written None, the framework's text for a missing number.
struct LenText {
   std::optional<U32> v;
   std::string toStrep() const { return v ? std::to_string(*v) : "None"; }
   static LenText fromStrep(std::string_view s) {
      if (s == "None") return {};
      return {Kel::ValueText<U32>::parse(s)};
   }
};

const char* familyName(Nx::AddressFamily af) {
   return af == Nx::AddressFamily::ipv4 ? "IPv4" : "IPv6";
}

}  // namespace

std::string PrefixListRule::toStrep() const {
   return Kel::ValueWriter(kRuleTypeName)
       .field("seqno", seqno)
       .field("permit", permit)
       .field("prefix", prefix)
       .field("ge", LenText{ge})
       .field("le", LenText{le})
       .str();
}

PrefixListRule PrefixListRule::fromStrep(std::string_view text) {
   Kel::ValueReader r(text, kRuleTypeName);
   PrefixListRule rule;
   rule.seqno = r.field<U32>("seqno");
   rule.permit = r.field<bool>("permit");
   rule.prefix = r.field<Nx::IpGenPrefix>("prefix");
   rule.ge = r.field<LenText>("ge").v;
   rule.le = r.field<LenText>("le").v;
   r.finish();
   return rule;
}

std::ostream& operator<<(std::ostream& os, const PrefixListRule& rule) {
   return os << rule.toStrep();
}

void PrefixListConfig::entryIs(const PrefixListRule& rule) {
   const std::string where = "prefix list '" + name_ + "' seq " + std::to_string(rule.seqno) + ": ";
   auto refuse = [&where](const std::string& why) { throw Kel::RangeException(where + why); };
   const Nx::IpGenPrefix& p = rule.prefix;
   if (p.af() != af_) {
      refuse(std::string(familyName(p.af())) + " prefix " + p.toStrep() + " in an " +
             familyName(af_) + " list");
   }
   const std::string full = std::to_string(p.maxLen());
   const std::string len = std::to_string(p.len());
   if (rule.ge && *rule.ge > p.maxLen()) {
      refuse("ge " + std::to_string(*rule.ge) + " must be at most " + full + " for " +
             familyName(af_));
   }
   if (rule.le && *rule.le > p.maxLen()) {
      refuse("le " + std::to_string(*rule.le) + " must be at most " + full + " for " +
             familyName(af_));
   }
   if (rule.ge && *rule.ge < p.len()) {
      refuse("ge " + std::to_string(*rule.ge) + " must be at least the prefix length " + len +
             " of " + p.toStrep());
   }
   if (rule.le && *rule.le < p.len()) {
      refuse("le " + std::to_string(*rule.le) + " must be at least the prefix length " + len +
             " of " + p.toStrep());
   }
   if (rule.ge && rule.le && *rule.le < *rule.ge) {
      refuse("le " + std::to_string(*rule.le) + " must be at least ge " + std::to_string(*rule.ge));
   }
   if (entry_.set(rule.seqno, rule)) notify(&Reactor::handleEntry, rule.seqno);
}

void PrefixListConfig::entryDel(U32 seqno) {
   if (entry_.del(seqno)) notify(&Reactor::handleEntry, seqno);
}

void PrefixListConfig::entryDelAll() {
   entry_.delAll([this](U32 seqno) { notify(&Reactor::handleEntry, seqno); });
}

void PrefixListConfig::formatDerivedType(std::ostream& os) const {
   os << "PrefixListConfig " << familyName(af_) << ' ' << name_;
}

Kel::Ptr<PrefixListConfig> prefixListConfigFactory(Kel::Name name, Nx::AddressFamily af) {
   return Kel::makePtr<PrefixListConfig>(std::move(name), af);
}

Kel::Ptr<PrefixListConfig> PrefixListConfigRoot::prefixListIs(Nx::AddressFamily af,
                                                              const Kel::Name& name) {
   if (name.empty()) throw Kel::RangeException("a prefix list needs a name");
   if (auto l = coll(af).get(name)) return l;
   auto l = prefixListConfigFactory(name, af);
   coll(af).set(name, l);
   notify(&Reactor::handlePrefixList, af, name);
   return l;
}

void PrefixListConfigRoot::prefixListDel(Nx::AddressFamily af, const Kel::Name& name) {
   if (coll(af).del(name)) notify(&Reactor::handlePrefixList, af, name);
}

void PrefixListConfigRoot::prefixListDelAll(Nx::AddressFamily af) {
   coll(af).delAll(
       [this, af](const Kel::Name& name) { notify(&Reactor::handlePrefixList, af, name); });
}

Kel::Ptr<PrefixListConfigRoot> prefixListConfigRootFactory() {
   return Kel::makePtr<PrefixListConfigRoot>();
}

}  // namespace Routing::RouteMap
