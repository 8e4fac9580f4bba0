#pragma once
// Match clauses that look an address of the route up in a compiled prefix list or IP access list.
// Both kinds of list are prefix tries whose nodes chain PrefixListEntryData entries; a route
// matches when, among the entries on all trie nodes covering the looked-up prefix that admit its
// length (the first such entry of each node's chain), the one with the lowest sequence number is
// a permit entry. An address no entry covers is denied, as is any address while the list is
// undefined (null status) or of the other family. An access list may also hold IPv4 rules as
// source and wildcard beside its trie (RouteMap::AclMaskRule, for wildcards too scattered to
// expand): they compete with the trie's entries by sequence number, so the access-list matcher's
// answer is the lowest-numbered rule over both that covers every address of the route's prefix.
//
// The matchers walk the trie inline over the digests the trie keeps of each node's first entry,
// with the walk's state on the stack: a node whose chain holds one entry is decided without
// reading the entry. prefixListMatch takes the callback's path instead: the trie's virtual walk,
// the looked-up prefix and the best entry so far in thread-local slots of the callback class, so
// one callback object serves every walk on every thread. Neither allocates; both decide alike.

#include <iosfwd>

#include "Kel/Ptr.h"
#include "Nx/IpGenPrefix.h"
#include "Routing/PatriciaTrie.h"
#include "Routing/RouteMap/ListStatus.h"
#include "RoutingPolicy/eval/Matcher.h"

namespace Routing::Policy {

// One step of a walk: the node's candidate entry against the best so far, both kept in the
// class's thread-local slots. Called from anywhere but prefixListMatch on this thread, the step
// does nothing.
class PrefixListWalkerCb final : public PatriciaTrieWalkCb, public Kel::RefCounted {
public:
   void handlePrefixData(const Nx::IpGenPrefix& prefix,
                         const Kel::Ptr<PrefixData const>& data) override;
};

// Sees trie nodes only: an access list's mask rules are decided by IpAccessListMatcher.
class IpAccessListWalkerCb final : public PatriciaTrieWalkCb, public Kel::RefCounted {
public:
   void handlePrefixData(const Nx::IpGenPrefix& prefix,
                         const Kel::Ptr<PrefixData const>& data) override;
};

Kel::Ptr<PrefixListWalkerCb> prefixListWalkerCbFactory();
Kel::Ptr<IpAccessListWalkerCb> ipAccessListWalkerCbFactory();

bool prefixListMatch(const Kel::Ptr<RouteMap::PrefixListStatus const>& status,
                     const Nx::IpGenPrefix* prefix, const Kel::Ptr<PrefixListWalkerCb>& plWalkerCb);

// The derived classes differ only in which address of the route they look up.
class PrefixListMatcherBase : public Matcher {
public:
   PrefixListMatcherBase(Kel::String plName,
                         Kel::Ptr<RouteMap::PrefixListStatus const> prefixListStatus);

   const Kel::String& plName() const { return plName_; }
   // Null while the list is undefined.
   const Kel::Ptr<RouteMap::PrefixListStatus const>& prefixListStatus() const {
      return prefixListStatus_;
   }
   const Kel::Ptr<PrefixListWalkerCb>& plWalkerCb() const { return plWalkerCb_; }
   // A null callback is refused with the standard null-mutator range error.
   void plWalkerCbIs(Kel::Ptr<PrefixListWalkerCb> cb);

protected:
   // The inline walk over digests.
   bool matchPrefix(const Nx::IpGenPrefix* prefix) const;

private:
   const Kel::String plName_;
   const Kel::Ptr<RouteMap::PrefixListStatus const> prefixListStatus_;
   Kel::Ptr<PrefixListWalkerCb> plWalkerCb_;
};

// The route's prefix as it is.
class PrefixListMatcher : public PrefixListMatcherBase {
public:
   using PrefixListMatcherBase::PrefixListMatcherBase;
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override {
      return matchPrefix(input->getPrefixPointer());
   }
   RouteMapFeatures getFeatures() const override;
   void formatDerivedType(std::ostream& os) const override;
};

// The next hop as a host prefix of its family.
class NexthopPrefixListMatcher : public PrefixListMatcherBase {
public:
   using PrefixListMatcherBase::PrefixListMatcherBase;
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override {
      const Nx::IpGenPrefix host(input->getNexthop());
      return matchPrefix(&host);
   }
   void formatDerivedType(std::ostream& os) const override;
};

// The resolved next hop as a host prefix of its family.
class ResolvedNexthopPfxListMatcher : public PrefixListMatcherBase {
public:
   using PrefixListMatcherBase::PrefixListMatcherBase;
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override {
      const Nx::IpGenPrefix host(input->getResolvedNexthop());
      return matchPrefix(&host);
   }
   void formatDerivedType(std::ostream& os) const override;
};

// The router id as an IPv4 host prefix.
class RouterIdMatcher : public PrefixListMatcherBase {
public:
   using PrefixListMatcherBase::PrefixListMatcherBase;
   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override {
      const Nx::IpGenPrefix host{Nx::IpGenAddr(input->getRouterId())};
      return matchPrefix(&host);
   }
   RouteMapFeatures getFeatures() const override;
   void formatDerivedType(std::ostream& os) const override;
};

// The route's prefix against an access list's trie, with the access list's own callback.
class IpAccessListMatcher : public Matcher {
public:
   IpAccessListMatcher(Kel::String aclName,
                       Kel::Ptr<RouteMap::IpAccessListStatus const> ipAccessListStatus);

   const Kel::String& aclName() const { return aclName_; }
   // Null while the list is undefined.
   const Kel::Ptr<RouteMap::IpAccessListStatus const>& ipAccessListStatus() const {
      return ipAccessListStatus_;
   }
   const Kel::Ptr<IpAccessListWalkerCb>& aclWalkerCb() const { return aclWalkerCb_; }
   // A null callback is refused with the standard null-mutator range error.
   void aclWalkerCbIs(Kel::Ptr<IpAccessListWalkerCb> cb);

   bool match(const MatchInput_* input, const Kel::Ptr<PolicyEvalContext>&) const override;
   RouteMapFeatures getFeatures() const override;
   void formatDerivedType(std::ostream& os) const override;

private:
   const Kel::String aclName_;
   const Kel::Ptr<RouteMap::IpAccessListStatus const> ipAccessListStatus_;
   Kel::Ptr<IpAccessListWalkerCb> aclWalkerCb_;
};

Kel::Ptr<PrefixListMatcher> prefixListMatcherFactory(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> status);
Kel::Ptr<NexthopPrefixListMatcher> nexthopPrefixListMatcherFactory(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> status);
Kel::Ptr<ResolvedNexthopPfxListMatcher> resolvedNexthopPfxListMatcherFactory(
    Kel::String plName, Kel::Ptr<RouteMap::PrefixListStatus const> status);
Kel::Ptr<RouterIdMatcher> routerIdMatcherFactory(Kel::String plName,
                                                 Kel::Ptr<RouteMap::PrefixListStatus const> status);
Kel::Ptr<IpAccessListMatcher> ipAccessListMatcherFactory(
    Kel::String aclName, Kel::Ptr<RouteMap::IpAccessListStatus const> status);

}  // namespace Routing::Policy
