#pragma once
// The records that carry changes of route-map sequences from the machines that see them to the
// compiler that folds them into a new compiled route map.
//
// - Configuration changes wait per sequence in a SequenceChange until the route map's version
//   moves on; symbol-side changes (which lists and which sub-route-map a sequence names) wait in
//   a SequenceChangeSymbol.
// - Clauses rebuilt because a referenced list or sub-route-map changed wait in the route map's
//   RmConfigSymbolReactor, one PendingSymbolUpdate per sequence, until the compiler's task runs.
// - MatchSymbolSeq, SetSymbolSeq and SubRouteMapSymbolSeq say which symbols a sequence currently
//   references, for the machine that follows those symbols.
// - A rebuild collects its new sequence statuses in a ModifiedRouteMapSeqStatusList, walked from
//   the highest sequence number down so that continue targets are final before their origins.

#include <compare>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Kel/Entity.h"
#include "Kel/Exception.h"
#include "Routing/RouteMap/Options.h"
#include "Routing/RouteMap/PolicySymbol.h"
#include "RoutingPolicy/eval/Matcher.h"
#include "RoutingPolicy/eval/Setter.h"
#include "RoutingPolicy/status/RouteMapSeqStatus.h"
#include "RoutingPolicy/status/RouteMapStatus.h"
#include "RoutingPolicy/status/RouteMapSymbol.h"

namespace Routing::Policy {

using PolicySymbolPtr = Kel::Ptr<Routing::RouteMap::PolicySymbol const>;
// A set of symbols; the value only marks presence.
using PolicySymbolColl =
    Kel::Collection<PolicySymbolPtr, bool, std::unordered_map<PolicySymbolPtr, bool>>;

// ---------------------------------------------------------------------------------------------
// Configuration changes of one sequence

// The option's new matcher; null when the option left the sequence.
class MatcherChange : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<MatcherChange> {
   public:
      virtual void handleMatcher() {}
   };

   explicit MatcherChange(Routing::RouteMap::MatchOption option) : option_(option) {}

   Routing::RouteMap::MatchOption option() const { return option_; }
   const Kel::Ptr<Matcher const>& matcher() const { return matcher_; }
   void matcherIs(Kel::Ptr<Matcher const> m) {
      setAttr(matcher_, std::move(m), &Reactor::handleMatcher);
   }

private:
   const Routing::RouteMap::MatchOption option_;
   Kel::Ptr<Matcher const> matcher_;
};

Kel::Ptr<MatcherChange> matcherChangeFactory(Routing::RouteMap::MatchOption option);

// The option's new setter; null when the option left the sequence.
class SetterChange : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<SetterChange> {
   public:
      virtual void handleSetter() {}
   };

   explicit SetterChange(Routing::RouteMap::SetOption option) : option_(option) {}

   Routing::RouteMap::SetOption option() const { return option_; }
   const Kel::Ptr<Setter const>& setter() const { return setter_; }
   void setterIs(Kel::Ptr<Setter const> s) {
      setAttr(setter_, std::move(s), &Reactor::handleSetter);
   }

private:
   const Routing::RouteMap::SetOption option_;
   Kel::Ptr<Setter const> setter_;
};

Kel::Ptr<SetterChange> setterChangeFactory(Routing::RouteMap::SetOption option);

class ContinueChange : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<ContinueChange> {
   public:
      virtual void handleContinueSeq() {}
   };

   // Whether the sequence now has a continue clause at all.
   explicit ContinueChange(bool hasContinue) : hasContinue_(hasContinue) {}

   bool hasContinue() const { return hasContinue_; }
   // The configured target; 0 continues at the next sequence.
   U32 continueSeq() const { return continueSeq_; }
   void continueSeqIs(U32 target) { setAttr(continueSeq_, target, &Reactor::handleContinueSeq); }

private:
   const bool hasContinue_;
   U32 continueSeq_ = 0;
};

Kel::Ptr<ContinueChange> continueChangeFactory(bool hasContinue);

class SequenceChange : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<SequenceChange> {
   public:
      virtual void handleMatcherChange(Routing::RouteMap::MatchOption) {}
      virtual void handleSetterChange(Routing::RouteMap::SetOption) {}
      virtual void handleContinueChange() {}
      virtual void handlePermitChange() {}
   };

   // Ordered by option, the order in which the compiler applies them.
   using MatcherChangeColl =
       Kel::Collection<Routing::RouteMap::MatchOption, Kel::Ptr<MatcherChange>>;
   using SetterChangeColl = Kel::Collection<Routing::RouteMap::SetOption, Kel::Ptr<SetterChange>>;

   explicit SequenceChange(U32 seqno) : seqno_(seqno) {}

   U32 seqno() const { return seqno_; }

   Kel::Ptr<MatcherChange> matcherChange(Routing::RouteMap::MatchOption o) const {
      return matcherChange_.get(o);
   }
   const MatcherChangeColl& matcherChanges() const { return matcherChange_; }
   // The option's record, made when absent.
   Kel::Ptr<MatcherChange> matcherChangeIs(Routing::RouteMap::MatchOption o);
   void matcherChangeDel(Routing::RouteMap::MatchOption o);
   void matcherChangeDelAll();

   Kel::Ptr<SetterChange> setterChange(Routing::RouteMap::SetOption o) const {
      return setterChange_.get(o);
   }
   const SetterChangeColl& setterChanges() const { return setterChange_; }
   Kel::Ptr<SetterChange> setterChangeIs(Routing::RouteMap::SetOption o);
   void setterChangeDel(Routing::RouteMap::SetOption o);
   void setterChangeDelAll();

   // Null when the continue clause did not change.
   const Kel::Ptr<ContinueChange>& continueChange() const { return continueChange_; }
   void continueChangeIs(Kel::Ptr<ContinueChange> c) {
      setAttr(continueChange_, std::move(c), &Reactor::handleContinueChange);
   }

   bool permitChange() const { return permitChange_; }
   void permitChangeIs(bool v) { setAttr(permitChange_, v, &Reactor::handlePermitChange); }

private:
   const U32 seqno_;
   MatcherChangeColl matcherChange_;
   SetterChangeColl setterChange_;
   Kel::Ptr<ContinueChange> continueChange_;
   bool permitChange_ = false;
};

Kel::Ptr<SequenceChange> sequenceChangeFactory(U32 seqno);

// ---------------------------------------------------------------------------------------------
// Symbol-side changes of one sequence

// The symbols an option of the sequence references since its last change.
class MatcherChangeSymbol : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<MatcherChangeSymbol> {
   public:
      virtual void handleMatchSymbol(const PolicySymbolPtr&) {}
   };

   explicit MatcherChangeSymbol(Routing::RouteMap::MatchOption option) : option_(option) {}

   Routing::RouteMap::MatchOption option() const { return option_; }
   bool matchSymbolHas(const PolicySymbolPtr& s) const { return matchSymbol_.has(s); }
   const PolicySymbolColl& matchSymbols() const { return matchSymbol_; }
   // The symbol is its own key; null is refused.
   void matchSymbolIs(PolicySymbolPtr s);
   void matchSymbolDel(const PolicySymbolPtr& s);
   void matchSymbolDelAll();

private:
   const Routing::RouteMap::MatchOption option_;
   PolicySymbolColl matchSymbol_;
};

Kel::Ptr<MatcherChangeSymbol> matcherChangeSymbolFactory(Routing::RouteMap::MatchOption option);

class SetterChangeSymbol : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<SetterChangeSymbol> {
   public:
      virtual void handleSetSymbol(const PolicySymbolPtr&) {}
   };

   explicit SetterChangeSymbol(Routing::RouteMap::SetOption option) : option_(option) {}

   Routing::RouteMap::SetOption option() const { return option_; }
   bool setSymbolHas(const PolicySymbolPtr& s) const { return setSymbol_.has(s); }
   const PolicySymbolColl& setSymbols() const { return setSymbol_; }
   void setSymbolIs(PolicySymbolPtr s);
   void setSymbolDel(const PolicySymbolPtr& s);
   void setSymbolDelAll();

private:
   const Routing::RouteMap::SetOption option_;
   PolicySymbolColl setSymbol_;
};

Kel::Ptr<SetterChangeSymbol> setterChangeSymbolFactory(Routing::RouteMap::SetOption option);

// The sub-route-map the sequence calls from now on; null when it stopped calling one.
class SubRouteMapChangeSymbol : public Kel::Entity {
public:
   explicit SubRouteMapChangeSymbol(Kel::Ptr<RouteMapSymbol const> symbol)
       : symbol_(std::move(symbol)) {}

   const Kel::Ptr<RouteMapSymbol const>& symbol() const { return symbol_; }

private:
   const Kel::Ptr<RouteMapSymbol const> symbol_;
};

Kel::Ptr<SubRouteMapChangeSymbol> subRouteMapChangeSymbolFactory(
    Kel::Ptr<RouteMapSymbol const> symbol);

class SequenceChangeSymbol : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<SequenceChangeSymbol> {
   public:
      virtual void handleMatcherChangeSymbol(Routing::RouteMap::MatchOption) {}
      virtual void handleSetterChangeSymbol(Routing::RouteMap::SetOption) {}
      virtual void handleSubRouteMapChangeSymbol() {}
   };

   using MatcherChangeSymbolColl =
       Kel::Collection<Routing::RouteMap::MatchOption, Kel::Ptr<MatcherChangeSymbol>>;
   using SetterChangeSymbolColl =
       Kel::Collection<Routing::RouteMap::SetOption, Kel::Ptr<SetterChangeSymbol>>;

   explicit SequenceChangeSymbol(U32 seqno) : seqno_(seqno) {}

   U32 seqno() const { return seqno_; }

   Kel::Ptr<MatcherChangeSymbol> matcherChangeSymbol(Routing::RouteMap::MatchOption o) const {
      return matcherChangeSymbol_.get(o);
   }
   const MatcherChangeSymbolColl& matcherChangeSymbols() const { return matcherChangeSymbol_; }
   Kel::Ptr<MatcherChangeSymbol> matcherChangeSymbolIs(Routing::RouteMap::MatchOption o);
   void matcherChangeSymbolDel(Routing::RouteMap::MatchOption o);
   void matcherChangeSymbolDelAll();

   Kel::Ptr<SetterChangeSymbol> setterChangeSymbol(Routing::RouteMap::SetOption o) const {
      return setterChangeSymbol_.get(o);
   }
   const SetterChangeSymbolColl& setterChangeSymbols() const { return setterChangeSymbol_; }
   Kel::Ptr<SetterChangeSymbol> setterChangeSymbolIs(Routing::RouteMap::SetOption o);
   void setterChangeSymbolDel(Routing::RouteMap::SetOption o);
   void setterChangeSymbolDelAll();

   // Null when the sub-route-map call did not change.
   const Kel::Ptr<SubRouteMapChangeSymbol>& subRouteMapChangeSymbol() const {
      return subRouteMapChangeSymbol_;
   }
   void subRouteMapChangeSymbolIs(Kel::Ptr<SubRouteMapChangeSymbol> c) {
      setAttr(subRouteMapChangeSymbol_, std::move(c), &Reactor::handleSubRouteMapChangeSymbol);
   }

private:
   const U32 seqno_;
   MatcherChangeSymbolColl matcherChangeSymbol_;
   SetterChangeSymbolColl setterChangeSymbol_;
   Kel::Ptr<SubRouteMapChangeSymbol> subRouteMapChangeSymbol_;
};

Kel::Ptr<SequenceChangeSymbol> sequenceChangeSymbolFactory(U32 seqno);

// ---------------------------------------------------------------------------------------------
// Clauses rebuilt because a referenced symbol changed

class PendingSymbolUpdate : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<PendingSymbolUpdate> {
   public:
      virtual void handleMatcherChange(Routing::RouteMap::MatchOption) {}
      virtual void handleSetterChange(Routing::RouteMap::SetOption) {}
      virtual void handleHasSubRouteMapUpdate() {}
      virtual void handleSubRouteMapStatus() {}
   };

   using MatcherChangeColl =
       Kel::Collection<Routing::RouteMap::MatchOption, Kel::Ptr<Matcher const>>;
   using SetterChangeColl = Kel::Collection<Routing::RouteMap::SetOption, Kel::Ptr<Setter const>>;

   explicit PendingSymbolUpdate(U32 seqno) : seqno_(seqno) {}

   U32 seqno() const { return seqno_; }

   Kel::Ptr<Matcher const> matcherChange(Routing::RouteMap::MatchOption o) const {
      return matcherChange_.get(o);
   }
   bool matcherChangeHas(Routing::RouteMap::MatchOption o) const { return matcherChange_.has(o); }
   const MatcherChangeColl& matcherChanges() const { return matcherChange_; }
   // A null matcher removes the option, as in the compiled sequence.
   void matcherChangeIs(Routing::RouteMap::MatchOption o, Kel::Ptr<Matcher const> m);
   void matcherChangeDel(Routing::RouteMap::MatchOption o);
   void matcherChangeDelAll();

   Kel::Ptr<Setter const> setterChange(Routing::RouteMap::SetOption o) const {
      return setterChange_.get(o);
   }
   bool setterChangeHas(Routing::RouteMap::SetOption o) const { return setterChange_.has(o); }
   const SetterChangeColl& setterChanges() const { return setterChange_; }
   void setterChangeIs(Routing::RouteMap::SetOption o, Kel::Ptr<Setter const> s);
   void setterChangeDel(Routing::RouteMap::SetOption o);
   void setterChangeDelAll();

   // The flag is separate from the status because "the sub-route-map is gone" is a null status.
   bool hasSubRouteMapUpdate() const { return hasSubRouteMapUpdate_; }
   void hasSubRouteMapUpdateIs(bool v) {
      setAttr(hasSubRouteMapUpdate_, v, &Reactor::handleHasSubRouteMapUpdate);
   }
   const Kel::Ptr<RouteMapStatus const>& subRouteMapStatus() const { return subRouteMapStatus_; }
   void subRouteMapStatusIs(Kel::Ptr<RouteMapStatus const> s) {
      setAttr(subRouteMapStatus_, std::move(s), &Reactor::handleSubRouteMapStatus);
   }

   bool hasNoPendingChanges() const {
      return matcherChange_.empty() && setterChange_.empty() && !hasSubRouteMapUpdate_;
   }

private:
   const U32 seqno_;
   MatcherChangeColl matcherChange_;
   SetterChangeColl setterChange_;
   bool hasSubRouteMapUpdate_ = false;
   Kel::Ptr<RouteMapStatus const> subRouteMapStatus_;
};

Kel::Ptr<PendingSymbolUpdate> pendingSymbolUpdateFactory(U32 seqno);

// ---------------------------------------------------------------------------------------------
// A rebuild's new sequence statuses

// Orders backwards, so that an ordered collection keyed by it walks from the highest sequence
// number down.
class DescendingSeqnoKey {
public:
   constexpr DescendingSeqnoKey() noexcept = default;
   constexpr explicit DescendingSeqnoKey(U32 seqno) noexcept : seqno_(seqno) {}

   constexpr U32 seqno() const noexcept { return seqno_; }

   constexpr bool operator==(const DescendingSeqnoKey&) const noexcept = default;
   friend constexpr std::strong_ordering operator<=>(const DescendingSeqnoKey& a,
                                                     const DescendingSeqnoKey& b) noexcept {
      return b.seqno_ <=> a.seqno_;
   }

   std::string toStrep() const { return std::to_string(seqno_); }
   static DescendingSeqnoKey fromStrep(std::string_view s);

private:
   U32 seqno_ = 0;
};

std::ostream& operator<<(std::ostream& os, const DescendingSeqnoKey& k);

// One sequence of a rebuild: its new status (null: the sequence is deleted) and what the rebuild
// learnt about the definedness of what it references.
class ModifiedRouteMapSeqStatus {
public:
   // Bits of both masks, one per kind of reference.
   static constexpr U8 subRouteMapUndefined = 1u << 0;
   static constexpr U8 prefixListUndefined = 1u << 1;
   static constexpr U8 commListUndefined = 1u << 2;
   static constexpr U8 subRouteMapSet = subRouteMapUndefined;
   static constexpr U8 prefixListSet = prefixListUndefined;
   static constexpr U8 commListSet = commListUndefined;

   ModifiedRouteMapSeqStatus() = default;
   explicit ModifiedRouteMapSeqStatus(DescendingSeqnoKey key,
                                      Kel::Ptr<RouteMapSeqStatus> seqStatus = nullptr,
                                      U8 undefinedReferences = 0, U8 referenceUpdateMask = 0)
       : key_(key),
         seqStatus_(std::move(seqStatus)),
         undefinedReferences_(undefinedReferences),
         referenceUpdateMask_(referenceUpdateMask) {}

   const DescendingSeqnoKey& key() const { return key_; }
   void keyIs(DescendingSeqnoKey k) { key_ = k; }
   // Writable: the rebuild still resolves continue targets on it after entering it in the list.
   const Kel::Ptr<RouteMapSeqStatus>& seqStatus() const { return seqStatus_; }
   void seqStatusIs(Kel::Ptr<RouteMapSeqStatus> s) { seqStatus_ = std::move(s); }
   U8 undefinedReferences() const { return undefinedReferences_; }
   void undefinedReferencesIs(U8 v) { undefinedReferences_ = v; }
   U8 referenceUpdateMask() const { return referenceUpdateMask_; }
   void referenceUpdateMaskIs(U8 v) { referenceUpdateMask_ = v; }

   // The sub-route-map's definedness was determined anew.
   void setSubRouteMap(bool undefined);
   // Takes over what the called route map lacks, so that a caller counts as undefined for as long
   // as anything below it is.
   void setUndefinedFromSubRouteMap(const Kel::Ptr<RouteMapStatus const>& subRouteMapStatus);
   bool undefinedReferenceRequiresUpdate() const { return referenceUpdateMask_ != 0; }

   // The status by identity: two rebuilt copies with equal contents are still two rebuilds.
   bool operator==(const ModifiedRouteMapSeqStatus& o) const {
      return key_ == o.key_ && seqStatus_ == o.seqStatus_ &&
             undefinedReferences_ == o.undefinedReferences_ &&
             referenceUpdateMask_ == o.referenceUpdateMask_;
   }
   bool operator!() const { return *this == ModifiedRouteMapSeqStatus(); }

   std::string toStrep() const;

private:
   DescendingSeqnoKey key_;
   Kel::Ptr<RouteMapSeqStatus> seqStatus_;
   U8 undefinedReferences_ = 0;
   U8 referenceUpdateMask_ = 0;
};

std::ostream& operator<<(std::ostream& os, const ModifiedRouteMapSeqStatus& m);

class ModifiedRouteMapSeqStatusList : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<ModifiedRouteMapSeqStatusList> {
   public:
      virtual void handleSeqStatus(const DescendingSeqnoKey&) {}
   };

   // Highest sequence number first.
   using SeqStatusColl = Kel::Collection<DescendingSeqnoKey, ModifiedRouteMapSeqStatus>;

   // The default value when absent.
   ModifiedRouteMapSeqStatus seqStatus(const DescendingSeqnoKey& key) const {
      return seqStatus_.get(key);
   }
   bool seqStatusHas(const DescendingSeqnoKey& key) const { return seqStatus_.has(key); }
   const SeqStatusColl& seqStatuses() const { return seqStatus_; }
   std::size_t size() const { return seqStatus_.size(); }
   bool empty() const { return seqStatus_.empty(); }
   // Filed under the value's own key, replacing what is there.
   void seqStatusIs(const ModifiedRouteMapSeqStatus& value);
   void seqStatusDel(const DescendingSeqnoKey& key);
   void seqStatusDelAll();

private:
   SeqStatusColl seqStatus_;
};

Kel::Ptr<ModifiedRouteMapSeqStatusList> modifiedRouteMapSeqStatusListFactory();

// ---------------------------------------------------------------------------------------------
// The symbols a sequence references

// The symbols one option of a sequence names. Self is the concrete list, so that its reactors
// are typed to it.
template <class Self, class Option>
class PolicySymbolList : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Self> {
   public:
      virtual void handlePolicySymbol(const PolicySymbolPtr&) {}
   };

   Option option() const { return option_; }
   bool policySymbolHas(const PolicySymbolPtr& s) const { return policySymbol_.has(s); }
   // How many; a common-component option names exactly one list.
   std::size_t policySymbols() const { return policySymbol_.size(); }
   const PolicySymbolColl& policySymbolColl() const { return policySymbol_; }
   // The symbol is its own key; null is refused.
   void policySymbolIs(PolicySymbolPtr s) {
      if (!s) Kel::throwNullMutatorArg(Self::typeName, "policySymbol");
      if (policySymbol_.set(s, true)) this->notify(&Reactor::handlePolicySymbol, s);
   }
   void policySymbolDel(const PolicySymbolPtr& s) {
      if (policySymbol_.del(s)) this->notify(&Reactor::handlePolicySymbol, s);
   }
   void policySymbolDelAll() {
      policySymbol_.delAll(
          [this](const PolicySymbolPtr& s) { this->notify(&Reactor::handlePolicySymbol, s); });
   }

protected:
   explicit PolicySymbolList(Option option) : option_(option) {}

private:
   const Option option_;
   PolicySymbolColl policySymbol_;
};

class PolicyMatchSymbolList final
    : public PolicySymbolList<PolicyMatchSymbolList, Routing::RouteMap::MatchOption> {
public:
   static constexpr const char* typeName = "Routing::Policy::PolicyMatchSymbolList";
   explicit PolicyMatchSymbolList(Routing::RouteMap::MatchOption option)
       : PolicySymbolList(option) {}
};

class PolicySetSymbolList final
    : public PolicySymbolList<PolicySetSymbolList, Routing::RouteMap::SetOption> {
public:
   static constexpr const char* typeName = "Routing::Policy::PolicySetSymbolList";
   explicit PolicySetSymbolList(Routing::RouteMap::SetOption option) : PolicySymbolList(option) {}
};

Kel::Ptr<PolicyMatchSymbolList> policyMatchSymbolListFactory(Routing::RouteMap::MatchOption option);
Kel::Ptr<PolicySetSymbolList> policySetSymbolListFactory(Routing::RouteMap::SetOption option);

// Per option, the symbols a sequence names. The lists are replaced whole, never edited in place,
// so that a follower compares what it watches with what it is given.
template <class Self, class Option, class List>
class SymbolSeq : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Self> {
   public:
      virtual void handlePolicySymbolList(Option) {}
   };

   using PolicySymbolListColl = Kel::Collection<Option, Kel::Ptr<List const>,
                                                std::unordered_map<Option, Kel::Ptr<List const>>>;

   U32 seqno() const { return seqno_; }

   Kel::Ptr<List const> policySymbolList(Option o) const { return policySymbolList_.get(o); }
   bool policySymbolListHas(Option o) const { return policySymbolList_.has(o); }
   const PolicySymbolListColl& policySymbolLists() const { return policySymbolList_; }
   // A null list removes the option.
   void policySymbolListIs(Option o, Kel::Ptr<List const> list) {
      if (!list) {
         policySymbolListDel(o);
         return;
      }
      if (policySymbolList_.set(o, std::move(list))) {
         this->notify(&Reactor::handlePolicySymbolList, o);
      }
   }
   void policySymbolListDel(Option o) {
      if (policySymbolList_.del(o)) this->notify(&Reactor::handlePolicySymbolList, o);
   }
   void policySymbolListDelAll() {
      policySymbolList_.delAll(
          [this](Option o) { this->notify(&Reactor::handlePolicySymbolList, o); });
   }

protected:
   explicit SymbolSeq(U32 seqno) : seqno_(seqno) {}

private:
   const U32 seqno_;
   PolicySymbolListColl policySymbolList_;
};

class MatchSymbolSeq final
    : public SymbolSeq<MatchSymbolSeq, Routing::RouteMap::MatchOption, PolicyMatchSymbolList> {
public:
   explicit MatchSymbolSeq(U32 seqno) : SymbolSeq(seqno) {}
};

class SetSymbolSeq final
    : public SymbolSeq<SetSymbolSeq, Routing::RouteMap::SetOption, PolicySetSymbolList> {
public:
   explicit SetSymbolSeq(U32 seqno) : SymbolSeq(seqno) {}
};

Kel::Ptr<MatchSymbolSeq> matchSymbolSeqFactory(U32 seqno);
Kel::Ptr<SetSymbolSeq> setSymbolSeqFactory(U32 seqno);

// The route map a sequence calls, or null.
class SubRouteMapSymbolSeq : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<SubRouteMapSymbolSeq> {
   public:
      virtual void handleSymbol() {}
   };

   explicit SubRouteMapSymbolSeq(U32 seqno) : seqno_(seqno) {}

   U32 seqno() const { return seqno_; }
   const Kel::Ptr<RouteMapSymbol const>& symbol() const { return symbol_; }
   void symbolIs(Kel::Ptr<RouteMapSymbol const> s) {
      setAttr(symbol_, std::move(s), &Reactor::handleSymbol);
   }

private:
   const U32 seqno_;
   Kel::Ptr<RouteMapSymbol const> symbol_;
};

Kel::Ptr<SubRouteMapSymbolSeq> subRouteMapSymbolSeqFactory(U32 seqno);

// ---------------------------------------------------------------------------------------------
// The mailbox of one route map

// Where the followers of referenced symbols leave rebuilt clauses for the route map's compiler.
// The compiler follows pendingUpdate and runs one rebuild for everything left here meanwhile.
class RmConfigSymbolReactor : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<RmConfigSymbolReactor> {
   public:
      virtual void handleReevaluate() {}
      virtual void handlePendingUpdate(U32) {}
   };

   // Ordered, so that a rebuild meets the sequences in the same order every time.
   using PendingUpdateColl = Kel::Collection<U32, Kel::Ptr<PendingSymbolUpdate>>;

   explicit RmConfigSymbolReactor(Kel::String name) : name_(std::move(name)) {}

   const Kel::String& name() const { return name_; }

   // Raising it asks every follower to look at all its symbols again.
   U8 reevaluate() const { return reevaluate_; }
   void reevaluateIs(U8 v) { setAttr(reevaluate_, v, &Reactor::handleReevaluate); }
   void reevaluateInc(U8 n) { reevaluateIs(static_cast<U8>(reevaluate_ + n)); }

   Kel::Ptr<PendingSymbolUpdate> pendingUpdate(U32 seqno) const {
      return pendingUpdate_.get(seqno);
   }
   const PendingUpdateColl& pendingUpdates() const { return pendingUpdate_; }
   // The sequence's pending update, made when absent. Only the making is notified: the
   // compiler's task is then due and reads whatever the caller puts in before it runs.
   Kel::Ptr<PendingSymbolUpdate> pendingUpdateIs(U32 seqno);
   void pendingUpdateDel(U32 seqno);
   void pendingUpdateDelAll();

   // A configuration change of the option supersedes what a symbol change rebuilt for it. These
   // never make a pending update.
   void removePendingMatcherForSeq(U32 seqno, Routing::RouteMap::MatchOption o);
   void removePendingSetterForSeq(U32 seqno, Routing::RouteMap::SetOption o);

private:
   const Kel::String name_;
   U8 reevaluate_ = 0;
   PendingUpdateColl pendingUpdate_;
};

Kel::Ptr<RmConfigSymbolReactor> rmConfigSymbolReactorFactory(Kel::String name);

// One mailbox per route map name.
class RmConfigSymbolReactorColl : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<RmConfigSymbolReactorColl> {
   public:
      virtual void handleReactor(const Kel::String&) {}
   };

   using ReactorColl =
       Kel::Collection<Kel::String, Kel::Ptr<RmConfigSymbolReactor>,
                       std::unordered_map<Kel::String, Kel::Ptr<RmConfigSymbolReactor>>>;

   Kel::Ptr<RmConfigSymbolReactor> reactor(const Kel::String& name) const {
      return reactor_.get(name);
   }
   const ReactorColl& reactors() const { return reactor_; }
   // The route map's mailbox, made when absent.
   Kel::Ptr<RmConfigSymbolReactor> reactorIs(const Kel::String& name);
   void reactorDel(const Kel::String& name);
   void reactorDelAll();

private:
   ReactorColl reactor_;
};

Kel::Ptr<RmConfigSymbolReactorColl> rmConfigSymbolReactorCollFactory();

}  // namespace Routing::Policy
