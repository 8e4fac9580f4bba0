#pragma once
// Prefix-list configuration: PrefixListConfigRoot (IPv4 and IPv6 lists by name) ->
// PrefixListConfig (one list: rules by sequence number, and a version) -> PrefixListRule.
//
// Rules are checked when they enter a list, against the list's family, so the compiler can turn
// every stored rule into a trie entry without a second look. As with route maps, a list's
// `version` marks a completed batch of edits and is what the compiler rebuilds on.

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "Kel/Entity.h"
#include "Nx/IpGenPrefix.h"

namespace Routing::RouteMap {

// One "seq N permit|deny P [ge G] [le L]" line.
struct PrefixListRule {
   PrefixListRule() = default;
   PrefixListRule(U32 s, bool p, Nx::IpGenPrefix pfx, std::optional<U32> g = {},
                  std::optional<U32> l = {})
       : seqno(s), permit(p), prefix(pfx), ge(g), le(l) {}

   U32 seqno = 0;
   bool permit = true;
   Nx::IpGenPrefix prefix;
   std::optional<U32> ge;
   std::optional<U32> le;

   // The route prefix lengths the rule admits: only the prefix's own length without ge or le;
   // ge G alone reaches up to the family's full length; le L alone starts at the prefix's
   // length. Meaningful for a rule that a list has accepted.
   U32 minLen() const { return ge ? *ge : prefix.len(); }
   U32 maxLen() const { return le ? *le : ge ? prefix.maxLen() : prefix.len(); }

   bool operator==(const PrefixListRule&) const = default;

   // Value('Routing::RouteMap::PrefixListRule', ** {'seqno': 10, 'permit': True,
   //       'prefix': 10.0.0.0/8, 'ge': None, 'le': 24})
   std::string toStrep() const;
   static PrefixListRule fromStrep(std::string_view text);
};

std::ostream& operator<<(std::ostream& os, const PrefixListRule& rule);

class PrefixListConfig : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<PrefixListConfig> {
   public:
      virtual void handleEntry(U32) {}
      virtual void handleVersion() {}
   };

   using EntryColl = Kel::Collection<U32, PrefixListRule>;

   PrefixListConfig(Kel::Name name, Nx::AddressFamily af) : name_(std::move(name)), af_(af) {}

   const Kel::Name& name() const { return name_; }
   Nx::AddressFamily af() const { return af_; }

   // Ascending sequence number. An absent entry reads as a default rule.
   PrefixListRule entry(U32 seqno) const { return entry_.get(seqno); }
   bool entryHas(U32 seqno) const { return entry_.has(seqno); }
   const EntryColl& entries() const { return entry_; }
   // Keyed by the rule's seqno. Refused with a Kel::RangeException: a prefix of the other
   // family, ge or le beyond the family's full length, ge below the prefix length, le below the
   // prefix length or below ge.
   void entryIs(const PrefixListRule& rule);
   void entryDel(U32 seqno);
   void entryDelAll();

   U32 version() const { return version_; }
   void versionIs(U32 v) { setAttr(version_, v, &Reactor::handleVersion); }

   void formatDerivedType(std::ostream& os) const override;

private:
   const Kel::Name name_;
   const Nx::AddressFamily af_;
   EntryColl entry_;
   U32 version_ = 0;
};

Kel::Ptr<PrefixListConfig> prefixListConfigFactory(Kel::Name name, Nx::AddressFamily af);

class PrefixListConfigRoot : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<PrefixListConfigRoot> {
   public:
      virtual void handlePrefixList(Nx::AddressFamily, const Kel::Name&) {}
   };

   // By name, ordered, so start-up compiles lists in one order.
   using PrefixListColl = Kel::Collection<Kel::Name, Kel::Ptr<PrefixListConfig>>;

   Kel::Ptr<PrefixListConfig const> prefixList(Nx::AddressFamily af, const Kel::Name& name) const {
      return coll(af).get(name);
   }
   Kel::Ptr<PrefixListConfig> prefixList(Nx::AddressFamily af, const Kel::Name& name) {
      return coll(af).get(name);
   }
   bool prefixListHas(Nx::AddressFamily af, const Kel::Name& name) const {
      return coll(af).has(name);
   }
   const PrefixListColl& prefixLists(Nx::AddressFamily af) const { return coll(af); }
   // The list of that family and name, made (and notified) only when absent. An IPv4 and an IPv6
   // list may share a name. An empty name is refused.
   Kel::Ptr<PrefixListConfig> prefixListIs(Nx::AddressFamily af, const Kel::Name& name);
   void prefixListDel(Nx::AddressFamily af, const Kel::Name& name);
   void prefixListDelAll(Nx::AddressFamily af);

private:
   PrefixListColl& coll(Nx::AddressFamily af) { return prefixList_[static_cast<int>(af)]; }
   const PrefixListColl& coll(Nx::AddressFamily af) const {
      return prefixList_[static_cast<int>(af)];
   }

   PrefixListColl prefixList_[2];
};

Kel::Ptr<PrefixListConfigRoot> prefixListConfigRootFactory();

}  // namespace Routing::RouteMap
