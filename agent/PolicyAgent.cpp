#include "agent/PolicyAgent.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>
#include <type_traits>

#include "Kel/Machine.h"
#include "Orb/Dump.h"
#include "Routing/RouteMap/PolicySymbol.h"
#include "RoutingPolicy/common/CommonComponent.h"
#include "RoutingPolicy/status/RouteMapStatus.h"
#include "RoutingPolicy/status/RouteMapSymbol.h"
#include "Termout/RendererV2.h"
#include "agent/FullProfile.h"

namespace Routing::Policy::agent {

using Routing::RouteMap::Config;
using Routing::RouteMap::Map;
using Routing::RouteMap::MapEntry;
using Routing::RouteMap::MatchOption;
using Routing::RouteMap::MatchRule;

namespace {

// The keys of `have` for which `kept` is false, gathered before any is deleted: a collection
// must not change under its own iteration.
template <class Coll, class Kept>
auto keysToDelete(const Coll& have, Kept kept) {
   std::vector<std::remove_cvref_t<decltype(have.begin()->first)>> out;
   for (const auto& [key, value] : have) {
      if (!kept(key)) out.push_back(key);
   }
   return out;
}

// A sequence as the entity holds it, in the document's terms. Values the entity keeps behind a
// cleared flag (so that turning a clause on again restores it) are not part of the sequence.
RouteMapSeqDoc seqDocOf(const MapEntry& e) {
   RouteMapSeqDoc d;
   d.seqno = e.seqno();
   d.permit = e.permit();
   for (const auto& [option, rule] : e.matchRules()) d.matchRules.emplace(option, rule);
   const MapEntry::SetFlags flags = e.setFlags();
   if (flags & MapEntry::tagFlag) d.tag = e.tag().value();
   if ((flags & MapEntry::distanceFlag) && e.distance().value() != 0) {
      d.distance = e.distance().value();
   }
   if ((flags & MapEntry::metricFlag) && e.metric().hasValue()) d.metric = e.metric().value();
   if (flags & MapEntry::continueFlag) d.continueSeq = e.continueSeq();
   d.subRouteMap = e.subRouteMap();
   d.subRouteMapInvert = e.subRouteMapInvert();
   for (const auto& [index, text] : e.descriptions()) d.descriptions.push_back(text);
   return d;
}

// Writes the wanted sequence into the entity, attribute by attribute; each setter compares
// first, so only what differs notifies. The order is the one a sequence machine expects: a
// value before the flag that enables it (the flag's change reads the value), except the
// distance, whose value drives its setter and so comes after its flag.
void writeSeq(MapEntry& e, const RouteMapSeqDoc& d) {
   e.permitIs(d.permit);

   for (MatchOption o : keysToDelete(e.matchRules(), [&](MatchOption k) {
           return d.matchRules.count(k) != 0;
        })) {
      e.matchRuleDel(o);
   }
   for (const auto& [option, rule] : d.matchRules) {
      if (!(e.matchRule(option) == rule)) e.matchRuleIs(rule);
   }

   if (d.tag) e.tagIs(RouteTag(*d.tag));
   if (d.metric) e.metricIs(Orb::MaybeU63(*d.metric));
   if (d.continueSeq) e.continueSeqIs(*d.continueSeq);
   MapEntry::SetFlags flags = 0;
   if (d.tag) flags |= MapEntry::tagFlag;
   if (d.metric) flags |= MapEntry::metricFlag;
   if (d.continueSeq) flags |= MapEntry::continueFlag;
   if (d.distance) flags |= MapEntry::distanceFlag;
   e.setFlagsIs(flags);
   // "no set distance" also returns the value to unset: that reset is what removes the setter.
   e.distanceIs(d.distance ? RoutePreference(*d.distance) : RoutePreference());

   e.subRouteMapIs(d.subRouteMap, d.subRouteMapInvert);

   for (U32 i = 0; i < d.descriptions.size(); ++i) e.descriptionIs(i, d.descriptions[i]);
   for (U32 i : keysToDelete(e.descriptions(), [&](U32 k) { return k < d.descriptions.size(); })) {
      e.descriptionDel(i);
   }
}

Acl::AclType aclType(bool ipv6) {
   return ipv6 ? Acl::AclType::ipv6 : Acl::AclType::ip;
}

bool sameRules(const Acl::AclSubConfig* cfg, const AccessListDoc& d) {
   if (cfg == nullptr) return false;
   const std::size_t wanted = d.ipv6 ? d.ip6Rules.size() : d.ipRules.size();
   if (cfg->ruleIds().size() != wanted) return false;
   for (const auto& [seqno, id] : cfg->ruleIds()) {
      if (d.ipv6) {
         const auto it = d.ip6Rules.find(seqno);
         if (it == d.ip6Rules.end() || !cfg->ip6RuleHas(id) || !(cfg->ip6Rule(id) == it->second))
            return false;
      } else {
         const auto it = d.ipRules.find(seqno);
         if (it == d.ipRules.end() || !cfg->ipRuleHas(id) || !(cfg->ipRule(id) == it->second))
            return false;
      }
   }
   return true;
}

}  // namespace

std::string Reference::text() const {
   return fmt::format("route-map {} seq {}: {} {} is not configured", routeMap, seqno, kind, name);
}

std::string BlockedSequence::text() const {
   return fmt::format("route-map {} seq {} is blocked: its sub-route-map calls form a cycle",
                      routeMap, seqno);
}

// Keeps one status list's route maps current: each follows its route map's symbol and takes
// every status the compiler publishes there.
namespace {

// What a list holds for a route map it names that is not configured, under
// MissingRouteMap::denyAll: one sequence without clauses that denies, so that every route
// meeting the list is denied and an explanation shows why.
Kel::Ptr<RouteMapStatus const> denyAllStatus(const Kel::Name& name) {
   Kel::Ptr<RouteMapStatus> rm = routeMapStatusFactory(name);
   Kel::Ptr<RouteMapSeqStatus> seq = routeMapSeqStatusFactory(0);
   seq->matchActionIs(Acl::MatchPermit::deny);
   rm->seqStatusIs(std::move(seq));
   rm->undefinedReferencesIs(0);
   return rm;
}

}  // namespace

// Keeps the owner's list current as the route maps it names are recompiled, and publishes a
// snapshot of it at the end of each batch that changed it.
class PolicyAgent::StatusListSm {
public:
   StatusListSm(const Kel::Ptr<PolicyRoot>& root,
                const std::vector<std::pair<RmPrecedence, Kel::Name>>& routeMaps,
                MissingRouteMap missing, U64 batch)
       : list_(routeMapStatusListFactory()), missing_(missing) {
      for (const auto& [precedence, name] : routeMaps) {
         auto follower = std::make_unique<Follower>(this, precedence);
         follower->symbol = routeMapSymbolFactory(name)->dedup(root->routeMapTable());
         follower->notifierIs(follower->symbol);
         followers_.push_back(std::move(follower));
      }
      for (const auto& f : followers_) f->take();
      published_ = publishedStatusListFactory(list_->copy(), batch);
      changed_ = false;
   }
   ~StatusListSm() {
      for (const auto& f : followers_) f->notifierIs(nullptr);
   }

   const Kel::Ptr<PublishedStatusList>& published() const { return published_; }
   void publishIfChanged(U64 batch) {
      if (!changed_) {
         // Readers that moved on since the last batch left snapshots to free.
         if (published_->retiredCount() != 0) published_->reclaim();
         return;
      }
      changed_ = false;
      published_->publish(list_->copy(), batch);
   }

private:
   struct Follower : Routing::RouteMap::PolicySymbol::Reactor {
      Follower(StatusListSm* o, RmPrecedence p) : owner(o), precedence(p) {}
      void handleVersion() override { take(); }
      void take() {
         Kel::Ptr<RouteMapStatus const> status = symbol->rmStatus();
         if (!status && owner->missing_ == MissingRouteMap::denyAll) {
            status = denyAllStatus(symbol->name());
         }
         owner->list_->rmStatusIs(precedence, std::move(status));
         owner->list_->updateFeatures();
         owner->changed_ = true;
      }
      StatusListSm* owner;
      RmPrecedence precedence;
      Kel::Ptr<RouteMapSymbol> symbol;
   };

   Kel::Ptr<RouteMapStatusList> list_;  // the owner's working copy, never seen by readers
   Kel::Ptr<PublishedStatusList> published_;
   MissingRouteMap missing_;
   bool changed_ = false;
   std::vector<std::unique_ptr<Follower>> followers_;
};

// Follows every configured route map's compiled form, so that the end of a batch can tell which
// route maps it created, recompiled or deleted, and what caused each. Made when the first change
// callback is added: an agent nobody asks pays nothing.
class PolicyAgent::ChangeTracker : AllRouteMapSymbol::Reactor {
public:
   explicit ChangeTracker(PolicyAgent* agent) : agent_(agent) {
      notifierIs(agent_->symbols_);
      for (const auto& [name, symbol] : agent_->symbols_->symbols()) {
         follow(name, symbol);
         Tracked& t = tracked_[name];
         t.status = symbol->rmStatus();
         t.version = agent_->batch_;
         record(name, t);
      }
   }
   ~ChangeTracker() override { notifierIs(nullptr); }

   // The changes since the last call, as batch `version`.
   ChangeEvent collect(U64 version) {
      ChangeEvent event;
      event.version = version;
      std::set<Kel::Name> changedNames;
      for (const Kel::Name& name : dirty_) {
         const Kel::Ptr<RouteMapSymbol> symbol = agent_->symbols_->symbol(name);
         Kel::Ptr<RouteMapStatus const> now = symbol ? symbol->rmStatus() : nullptr;
         const auto it = tracked_.find(name);
         const Kel::Ptr<RouteMapStatus const> before = it != tracked_.end() ? it->second.status
                                                                            : nullptr;
         if (now == before) continue;
         RouteMapChange c;
         c.routeMap = name;
         c.oldVersion = before ? it->second.version : 0;
         c.newVersion = version;
         c.kind = !before ? RouteMapChange::Kind::created
                  : !now  ? RouteMapChange::Kind::deleted
                          : RouteMapChange::Kind::recompiled;
         event.routeMaps.push_back(std::move(c));
         changedNames.insert(name);
      }
      dirty_.clear();
      std::sort(event.routeMaps.begin(), event.routeMaps.end(),
                [](const RouteMapChange& a, const RouteMapChange& b) {
                   return a.routeMap < b.routeMap;
                });
      // Causes are read against the state before this batch, then the state is brought up to
      // date, so that a cause is told exactly once.
      for (RouteMapChange& c : event.routeMaps) {
         const auto it = tracked_.find(c.routeMap);
         if (c.kind == RouteMapChange::Kind::deleted) {
            c.causes.push_back("route-map " + c.routeMap);
            continue;
         }
         const Tracked* before = it != tracked_.end() && it->second.status ? &it->second : nullptr;
         c.causes = causes(c.routeMap, before, changedNames);
      }
      for (const RouteMapChange& c : event.routeMaps) {
         if (c.kind == RouteMapChange::Kind::deleted) {
            tracked_.erase(c.routeMap);
            continue;
         }
         Tracked& t = tracked_[c.routeMap];
         t.status = agent_->symbols_->symbol(c.routeMap)->rmStatus();
         t.version = version;
         record(c.routeMap, t);
      }
      return event;
   }

private:
   // What a route map's last compiled form was made from.
   struct Tracked {
      Kel::Ptr<RouteMapStatus const> status;
      U64 version = 0;
      U32 configVersion = 0;
      std::map<std::string, U32> lists;  // "prefix-list PL" -> the list symbol's version
   };
   struct SymbolFollower : Routing::RouteMap::PolicySymbol::Reactor {
      SymbolFollower(ChangeTracker* t, Kel::Name n) : tracker(t), name(std::move(n)) {}
      void handleVersion() override { tracker->dirty_.insert(name); }
      ChangeTracker* tracker;
      Kel::Name name;
   };

   void handleSymbol(const Kel::String& name) override {
      dirty_.insert(name);
      if (const Kel::Ptr<RouteMapSymbol> symbol = agent_->symbols_->symbol(name)) {
         follow(name, symbol);
      } else {
         followers_.erase(name);
      }
   }
   void follow(const Kel::Name& name, const Kel::Ptr<RouteMapSymbol>& symbol) {
      auto& f = followers_[name];
      if (f && f->notifier() == symbol.get()) return;
      f = std::make_unique<SymbolFollower>(this, name);
      f->notifierIs(symbol);
   }

   // Each list the route map's configuration names, keyed by its cause text, with the version
   // of its compiled symbol now.
   std::map<std::string, U32> listVersions(const Kel::Name& name) const {
      std::map<std::string, U32> out;
      const auto map = agent_->config_->routeMap(name);
      if (!map) return out;
      const PolicyRoot& root = *agent_->root_;
      for (const auto& [seqno, entry] : map->mapEntries()) {
         for (const auto& [option, rule] : entry->matchRules()) {
            const MatchClause* clause = matchClause(option);
            if (!clause || clause->list == ListKind::none || rule.listName().empty()) continue;
            U32 v = 0;
            if (clause->list == ListKind::accessList) {
               v = Routing::RouteMap::ipAccessListSymbolFactory(rule.listName())
                       ->dedup(root.ipAclListTable())
                       ->version();
            } else {
               const auto& table = clause->list == ListKind::prefixList
                                       ? root.ipv4PrefixListTable()
                                       : root.ipv6PrefixListTable();
               v = Routing::RouteMap::prefixListSymbolFactory(rule.listName())
                       ->dedup(table)
                       ->version();
            }
            out.emplace(std::string(listKindName(clause->list)) + ' ' + rule.listName(), v);
         }
      }
      return out;
   }
   void record(const Kel::Name& name, Tracked& t) const {
      const auto map = agent_->config_->routeMap(name);
      t.configVersion = map ? map->version() : 0;
      t.lists = listVersions(name);
   }
   std::vector<std::string> causes(const Kel::Name& name, const Tracked* before,
                                   const std::set<Kel::Name>& changed) const {
      std::vector<std::string> out;
      const auto map = agent_->config_->routeMap(name);
      if (!before || !map || map->version() != before->configVersion) {
         out.push_back("route-map " + name);
      }
      if (before) {
         for (const auto& [list, version] : listVersions(name)) {
            const auto was = before->lists.find(list);
            if (was == before->lists.end() || was->second != version) out.push_back(list);
         }
      }
      if (map) {
         std::set<Kel::Name> callees;
         for (const auto& [seqno, entry] : map->mapEntries()) {
            const Kel::Name& sub = entry->subRouteMap();
            if (!sub.empty() && sub != name && changed.count(sub) && callees.insert(sub).second) {
               out.push_back("route-map " + sub);
            }
         }
      }
      return out;
   }

   PolicyAgent* agent_;
   std::map<Kel::Name, Tracked> tracked_;
   std::map<Kel::Name, std::unique_ptr<SymbolFollower>> followers_;
   std::set<Kel::Name> dirty_;
};

std::string_view routeMapChangeKindName(RouteMapChange::Kind kind) {
   switch (kind) {
      case RouteMapChange::Kind::created:
         return "created";
      case RouteMapChange::Kind::recompiled:
         return "recompiled";
      case RouteMapChange::Kind::deleted:
         return "deleted";
   }
   return "?";
}

std::string RouteMapChange::text() const {
   std::string out = fmt::format("route-map {} {} (version {} -> {})", routeMap,
                                 routeMapChangeKindName(kind), oldVersion, newVersion);
   for (std::size_t i = 0; i < causes.size(); ++i) out += (i == 0 ? ": " : ", ") + causes[i];
   return out;
}

PolicyAgent::PolicyAgent(Profile profile, Start start) : PolicyAgent(start, profile) {}

PolicyAgent::PolicyAgent(Start start, Profile profile)
    : root_(policyRootFactory()),
      config_(Routing::RouteMap::configFactory()),
      filtered_(Routing::RouteMap::configFactory()),
      symbols_(allRouteMapSymbolFactory()),
      scheduler_(Orb::taskSchedulerFactory()),
      am_(Kel::activityManagerFactory()),
      prefixLists_(Routing::RouteMap::prefixListConfigRootFactory()),
      acls_(Acl::Input::configFactory()),
      aclSymbols_(Routing::RouteMap::allIpAccessListSymbolFactory()),
      profile_(profile) {
   am_->workSourceIs(scheduler_.get());
   if (start == Start::now) this->start();
}

void PolicyAgent::start() {
   if (started()) return;
   prefixListSm_ = Routing::RouteMap::prefixListCompilerSmFactory(
       prefixLists_, root_->ipv4PrefixListTable(), root_->ipv6PrefixListTable());
   aclSm_ = aclConfigSmFactory(acls_, aclSymbols_, root_->ipAclListTable(), am_);
   // Both profiles run the common component's machines; `full` widens what they translate.
   Kel::Ptr<CommonComponentSeqSmFactory const> machines;
   if (profile_ == Profile::full) machines = fullProfileSeqSmFactory();
   routeMapSm_ = routeMapConfigSmFactory(
       config_, filtered_, symbols_, root_, commonComponentRmConfigFilterSmHelperFactory(machines),
       commonComponentRmConfigSymbolSmHelperFactory(machines), scheduler_);
}

PolicyAgent::~PolicyAgent() {
   changes_.reset();
   statusLists_.clear();
   routeMapSm_ = nullptr;
   aclSm_ = nullptr;
   prefixListSm_ = nullptr;
   am_->workSourceDel(scheduler_.get());
}

void PolicyAgent::runUntilIdle() {
   am_->runUntilIdle();
   endBatch();
}

void PolicyAgent::endBatch() {
   ++batch_;
   for (const auto& sm : statusLists_) sm->publishIfChanged(batch_);
   if (!changes_) return;
   const ChangeEvent event = changes_->collect(batch_);
   if (event.routeMaps.empty()) return;
   // A copy: a callback may add or remove callbacks.
   const auto callbacks = changeCallbacks_;
   for (const auto& [handle, callback] : callbacks) callback(event);
}

U64 PolicyAgent::addChangeCallback(ChangeCallback callback) {
   if (!changes_) changes_ = std::make_unique<ChangeTracker>(this);
   changeCallbacks_.emplace_back(nextCallbackHandle_, std::move(callback));
   return nextCallbackHandle_++;
}

void PolicyAgent::removeChangeCallback(U64 handle) {
   std::erase_if(changeCallbacks_, [&](const auto& c) { return c.first == handle; });
}

ApplyResult PolicyAgent::apply(std::string_view text, const std::string& file) {
   ParseResult parsed = parseConfigText(text, file);
   ApplyResult r;
   r.errors = std::move(parsed.errors);
   r.warnings = std::move(parsed.warnings);
   // Told even when the text has errors: a reader fixing the errors wants to know at once which
   // of the clauses that did parse would have no effect.
   for (Diagnostic& d : unevaluatedClauses(parsed.document, profile_, file)) {
      r.warnings.push_back(std::move(d));
   }
   std::stable_sort(r.warnings.begin(), r.warnings.end(),
                    [](const Diagnostic& a, const Diagnostic& b) { return a.line < b.line; });
   if (!r.errors.empty()) return r;
   r.stats = apply(parsed.document);
   return r;
}

namespace {
void add(ApplyStats& to, const ApplyStats& s) {
   to.prefixListsChanged += s.prefixListsChanged;
   to.prefixListsDeleted += s.prefixListsDeleted;
   to.prefixListEntriesWritten += s.prefixListEntriesWritten;
   to.prefixListEntriesDeleted += s.prefixListEntriesDeleted;
   to.accessListsChanged += s.accessListsChanged;
   to.accessListsDeleted += s.accessListsDeleted;
   to.routeMapsChanged += s.routeMapsChanged;
   to.routeMapsDeleted += s.routeMapsDeleted;
   to.sequencesWritten += s.sequencesWritten;
   to.sequencesDeleted += s.sequencesDeleted;
}
}  // namespace

ApplyStats PolicyAgent::apply(const ConfigDocument& doc) {
   // Lists first, so that route maps compiled in the same run find them published.
   ApplyStats stats;
   add(stats, applyPrefixLists(doc));
   add(stats, applyAccessLists(doc));
   add(stats, applyRouteMaps(doc));
   document_ = doc;
   runUntilIdle();
   return stats;
}

ApplyStats PolicyAgent::applyPrefixLists(const ConfigDocument& doc) {
   ApplyStats s;
   for (const Nx::AddressFamily af : {Nx::AddressFamily::ipv4, Nx::AddressFamily::ipv6}) {
      for (const auto& name : keysToDelete(prefixLists_->prefixLists(af), [&](const Kel::Name& k) {
              return doc.prefixLists.count({af, k}) != 0;
           })) {
         prefixLists_->prefixListDel(af, name);
         ++s.prefixListsDeleted;
      }
   }
   for (const auto& wanted : doc.prefixLists) {
      const PrefixListDoc& d = wanted.second;  // named, not bound: lambdas below capture it
      bool changed = !prefixLists_->prefixListHas(d.af, d.name);
      const auto pl = prefixLists_->prefixListIs(d.af, d.name);
      for (U32 seqno : keysToDelete(pl->entries(), [&](U32 k) { return d.rules.count(k) != 0; })) {
         pl->entryDel(seqno);
         ++s.prefixListEntriesDeleted;
         changed = true;
      }
      for (const auto& [seqno, rule] : d.rules) {
         if (pl->entryHas(seqno) && pl->entry(seqno) == rule) continue;
         pl->entryIs(rule);
         ++s.prefixListEntriesWritten;
         changed = true;
      }
      if (changed) {
         pl->versionIs(pl->version() + 1);
         ++s.prefixListsChanged;
      }
   }
   return s;
}

ApplyStats PolicyAgent::applyAccessLists(const ConfigDocument& doc) {
   ApplyStats s;
   // Lists of both families publish under their names alone, so every deletion comes before any
   // creation: a name that moves from IPv6 to IPv4 must leave the IPv6 side, taking its
   // published list with it, before the IPv4 side publishes under it. The other way round, the
   // IPv6 deletion would withdraw what the new IPv4 list had just published.
   for (const bool ipv6 : {false, true}) {
      if (auto typeConfig = acls_->aclTypeConfig(aclType(ipv6))) {
         for (const auto& name : keysToDelete(typeConfig->acls(), [&](const Kel::Name& k) {
                 return doc.accessLists.count({ipv6, k}) != 0;
              })) {
            typeConfig->aclDel(name);
            ++s.accessListsDeleted;
         }
      }
   }
   for (const bool ipv6 : {false, true}) {
      const Acl::AclType type = aclType(ipv6);
      auto typeConfig = acls_->aclTypeConfig(type);
      for (const auto& [key, d] : doc.accessLists) {
         if (d.ipv6 != ipv6) continue;
         if (!typeConfig) {
            // The type's configuration stays once made; lists come and go inside it.
            acls_->aclTypeConfigIs(Acl::Input::aclTypeConfigFactory(type));
            typeConfig = acls_->aclTypeConfig(type);
         }
         const auto existing = typeConfig->acl(d.name);
         if (existing && sameRules(existing->currCfg().get(), d)) continue;
         auto cfg = Acl::aclSubConfigFactory(type);
         if (ipv6) {
            for (const auto& [seqno, rule] : d.ip6Rules) {
               const Acl::UniqueId id(++nextAclRuleId_);
               cfg->ruleIdIs(seqno, id);
               cfg->ip6RuleIs(id, rule);
            }
         } else {
            for (const auto& [seqno, rule] : d.ipRules) {
               const Acl::UniqueId id(++nextAclRuleId_);
               cfg->ruleIdIs(seqno, id);
               cfg->ipRuleIs(id, rule);
            }
         }
         if (existing) {
            existing->currCfgIs(std::move(cfg));
            existing->versionIs(existing->version() + 1);
         } else {
            auto acl = Acl::aclConfigFactory(d.name);
            acl->currCfgIs(std::move(cfg));
            acl->versionIs(1);
            typeConfig->aclIs(acl);
         }
         ++s.accessListsChanged;
      }
   }
   return s;
}

ApplyStats PolicyAgent::applyRouteMaps(const ConfigDocument& doc) {
   ApplyStats s;
   for (const auto& name : keysToDelete(config_->routeMaps(), [&](const Kel::Name& k) {
           return doc.routeMaps.count(k) != 0;
        })) {
      config_->routeMapDel(name);
      ++s.routeMapsDeleted;
   }
   for (const auto& rm : doc.routeMaps) {
      const Kel::Name& name = rm.first;
      const RouteMapDoc& d = rm.second;  // named, not bound: lambdas below capture it
      bool changed = !config_->routeMap(name);
      const auto map = config_->routeMapIs(name);
      for (U32 seqno : keysToDelete(map->mapEntries(), [&](U32 k) { return d.seqs.count(k) != 0; })) {
         map->mapEntryDel(seqno);
         ++s.sequencesDeleted;
         changed = true;
      }
      for (const auto& [seqno, seq] : d.seqs) {
         auto entry = map->mapEntry(seqno);
         if (entry && seqDocOf(*entry) == seq) continue;
         if (!entry) entry = map->mapEntryIs(seqno);
         writeSeq(*entry, seq);
         ++s.sequencesWritten;
         changed = true;
      }
      // The version marks a finished batch of edits: the compiler publishes at it.
      if (changed) {
         map->versionIs(map->version() + 1);
         ++s.routeMapsChanged;
      }
   }
   return s;
}

bool PolicyAgent::routeMapConfigured(const Kel::Name& name) const {
   return document_.routeMaps.count(name) != 0;
}

Kel::Ptr<RouteMapStatus const> PolicyAgent::routeMapStatus(const Kel::Name& name) const {
   return routeMapSymbolFactory(name)->dedup(root_->routeMapTable())->rmStatus();
}

Kel::Ptr<PublishedStatusList> PolicyAgent::statusList(
    const std::vector<std::pair<RmPrecedence, Kel::Name>>& routeMaps, MissingRouteMap missing) {
   statusLists_.push_back(std::make_unique<StatusListSm>(root_, routeMaps, missing, batch_));
   return statusLists_.back()->published();
}

void PolicyAgent::dropStatusList(const Kel::Ptr<PublishedStatusList>& list) {
   std::erase_if(statusLists_, [&](const auto& sm) { return sm->published() == list; });
}

std::vector<Reference> PolicyAgent::undefinedReferences() const {
   std::vector<Reference> out;
   for (const auto& [rmName, rm] : document_.routeMaps) {
      for (const auto& [seqno, seq] : rm.seqs) {
         for (const auto& [option, rule] : seq.matchRules) {
            const MatchClause* clause = matchClause(option);
            if (!clause || clause->list == ListKind::none) continue;
            bool defined;
            if (clause->list == ListKind::accessList) {
               defined = document_.accessLists.count({false, rule.listName()}) != 0 ||
                         document_.accessLists.count({true, rule.listName()}) != 0;
            } else {
               const auto af = clause->list == ListKind::prefixList ? Nx::AddressFamily::ipv4
                                                                    : Nx::AddressFamily::ipv6;
               defined = document_.prefixLists.count({af, rule.listName()}) != 0;
            }
            if (!defined) {
               const auto at = seq.matchLines.find(option);
               out.push_back({std::string(listKindName(clause->list)), rule.listName(), rmName,
                              seqno, at != seq.matchLines.end() ? at->second : seq.line});
            }
         }
         if (!seq.subRouteMap.empty() && document_.routeMaps.count(seq.subRouteMap) == 0) {
            out.push_back({"route-map", seq.subRouteMap, rmName, seqno,
                           seq.subRouteMapLine != 0 ? seq.subRouteMapLine : seq.line});
         }
      }
   }
   return out;
}

std::vector<BlockedSequence> PolicyAgent::blockedSequences() const {
   std::vector<BlockedSequence> out;
   for (const auto& [name, sm] : routeMapSm_->routeMapConfigFilterSms()) {
      const auto& blocked = sm->routeMapBlockedSequenceList();
      if (!blocked) continue;
      for (const auto& [seqno, isBlocked] : blocked->sequences()) {
         if (isBlocked) out.push_back({name, seqno});
      }
   }
   std::sort(out.begin(), out.end(), [](const BlockedSequence& a, const BlockedSequence& b) {
      return std::tie(a.routeMap, a.seqno) < std::tie(b.routeMap, b.seqno);
   });
   return out;
}

std::string PolicyAgent::routeMapDump(const Kel::Name& name) const {
   const auto status = routeMapStatus(name);
   if (!status) return {};
   Orb::DumpContext ctx;
   status->dumpState(ctx, 0);
   return ctx.str();
}

ConfigDocument PolicyAgent::filteredDocument() const {
   ConfigDocument doc = document_;
   doc.routeMaps.clear();
   for (const auto& [name, map] : filtered_->routeMaps()) {
      RouteMapDoc rm;
      rm.name = name;
      for (const auto& [seqno, entry] : map->mapEntries()) rm.seqs.emplace(seqno, seqDocOf(*entry));
      doc.routeMaps.emplace(name, std::move(rm));
   }
   return doc;
}

// ---- Evaluation --------------------------------------------------------------------------

PolicyEvaluator::PolicyEvaluator(Kel::Ptr<RouteMapStatusList const> fixed)
    : PolicyEvaluator(publishedStatusListFactory(std::move(fixed))) {}

PolicyEvaluator::PolicyEvaluator(Kel::Ptr<PublishedStatusList> list)
    : reader_(std::move(list)),
      eval_(policyEvalFactory()),
      explainEval_(policyEvalFactory()),
      context_(policyEvalContextFactory()) {
   explainEval_->contextIs(context_);
}

Evaluation PolicyEvaluator::evaluate(const MatchInput_& route, bool explain) const {
   Evaluation e;
   const StatusListSnapshot& snapshot = reader_.pick();
   e.version = snapshot.version();
   const Kel::Ptr<RouteMapStatusList const>& list = snapshot.list();
   if (!explain) {
      e.permit = eval_->eval(&route, list, &e.result);
      return e;
   }
   // The decision of PolicyEval::evalPolicyMatchers, one route map at a time so that each gets
   // its own log.
   MatchedRouteMapSequences matched;
   e.permit = true;
   if (list) {
      for (const auto& [precedence, rm] : list->rmStatusMap()) {
         if (rm->seqStatusMap().empty()) continue;
         auto log = policyEvaluationLogFactory(rm);
         context_->logIs(log);
         const bool permit = explainEval_->evalRouteMapMatchers(&route, rm.get(), &matched);
         e.logs.push_back(std::move(log));
         if (!permit) {
            e.permit = false;
            break;
         }
      }
   }
   context_->logIs(nullptr);
   if (e.permit) explainEval_->applyPolicySetters(&matched, &e.result);
   return e;
}

std::string explanationText(const Evaluation& e) {
   // The log's text form opens each route map and sequence with the log object's address, which
   // tells one object from another in a debugger but changes from run to run: a reader comparing
   // explanations, or a test keeping one, wants the rest.
   std::string out;
   for (const auto& log : e.logs) {
      const std::string text = log->toStrep(0);
      std::size_t pos = 0;
      while (pos < text.size()) {
         std::size_t end = text.find('\n', pos);
         end = end == std::string::npos ? text.size() : end + 1;
         const std::string_view line(text.data() + pos, end - pos);
         const std::size_t first = line.find_first_not_of(' ');
         if (first == std::string_view::npos || line.substr(first, 2) != "0x") out += line;
         pos = end;
      }
   }
   return out;
}

std::string explanationJson(const Evaluation& e) {
   Termout::RendererV2 r;
   r.startList();
   for (const auto& log : e.logs) log->toJson(r);
   r.endList();
   return r.str();
}

}  // namespace Routing::Policy::agent
