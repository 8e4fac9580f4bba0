#pragma once
// Notifying entities and the reactors that follow them.
//
// An entity type X declares a nested interface X::Reactor (deriving from Kel::ReactorFor<X>) with
// one virtual handler per attribute, `handleFoo()` or `handleFoo(key)` for a collection, each
// doing nothing by default. A machine that follows an X holds a small object deriving from
// X::Reactor that forwards to the machine's own handlers, and binds it with notifierIs(x).
//
// Notification is synchronous and re-entrant: while a handler runs, it may detach itself or any
// other reactor, attach new ones, destroy reactors, change this or other entities (which notifies
// in turn), or drop the last outside reference to the notifying entity. Reactors attached during
// a notification first hear the next one; reactors detached during it hear nothing more.

#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/Types.h"

namespace Kel {

class ReactorBase;

class Entity : public RefCounted {
public:
   Entity() = default;
   // A copy is a new object: it has no reactors of its own and notification is active.
   Entity(const Entity&) : RefCounted() {}
   Entity& operator=(const Entity&) { return *this; }
   ~Entity() override;

   // When false, attribute changes are stored but nobody is told.
   bool hasNotificationActive() const { return notificationActive_; }
   void hasNotificationActiveIs(bool v) { notificationActive_ = v; }

   std::size_t reactorCount() const;

   // The printed form used in traces and diagnostics. The default is the demangled type name.
   virtual void formatDerivedType(std::ostream& os) const;
   std::string printed() const;

protected:
   // Calls `handler` with `args` on every attached reactor that implements R and is active.
   template <class R, class... P, class... A>
   void notify(void (R::*handler)(P...), A&&... args) const;

   // Scalar attribute helper: compares first, stores and notifies only on change.
   template <class T, class V, class R>
   bool setAttr(T& slot, V&& value, void (R::*handler)()) {
      if (slot == value) return false;
      slot = std::forward<V>(value);
      notify(handler);
      return true;
   }

private:
   friend class ReactorBase;
   void attach(ReactorBase* r) const;
   void detach(ReactorBase* r) const;
   void compact() const;

   mutable std::vector<ReactorBase*> reactors_;
   mutable U32 notifyDepth_ = 0;
   mutable bool compactPending_ = false;
   bool notificationActive_ = true;
};

std::ostream& operator<<(std::ostream& os, const Entity& e);

// The untyped part of a reactor: its registration with one entity and its own activity switch.
class ReactorBase {
public:
   ReactorBase() = default;
   ReactorBase(const ReactorBase&) = delete;
   ReactorBase& operator=(const ReactorBase&) = delete;
   virtual ~ReactorBase();

   // A reactor that is not active ignores notifications but stays bound.
   bool hasNotificationActive() const { return active_; }
   void hasNotificationActiveIs(bool v) { active_ = v; }

protected:
   void attachTo(const Entity* e);

private:
   friend class Entity;
   const Entity* attached_ = nullptr;
   bool active_ = true;
};

// The base of X::Reactor: holds a counted reference to the followed entity.
template <class N>
class ReactorFor : public ReactorBase {
public:
   using Notifier = N;

   const Ptr<N const>& notifier() const { return notifier_; }

   // Binds to `n` (null unbinds), then tells the reactor through handleNotifierIs, which is where
   // a machine reads the initial state of what it follows.
   void notifierIs(Ptr<N const> n) {
      if (n == notifier_) return;
      notifier_ = std::move(n);
      attachTo(notifier_.get());
      handleNotifierIs();
   }

   virtual void handleNotifierIs() {}

   ~ReactorFor() override { attachTo(nullptr); }

private:
   Ptr<N const> notifier_;
};

template <class R, class... P, class... A>
void Entity::notify(void (R::*handler)(P...), A&&... args) const {
   if (!notificationActive_ || reactors_.empty()) return;
   // A handler may drop the last outside reference to this entity; keep it alive until the
   // notification is over. Objects not owned through Ptr (count 0) are left alone.
   const bool counted = refCount() > 0;
   if (counted) refInc();
   ++notifyDepth_;
   const std::size_t n = reactors_.size();
   for (std::size_t i = 0; i < n; ++i) {
      ReactorBase* r = reactors_[i];
      if (r == nullptr || !r->hasNotificationActive()) continue;
      if (auto* typed = dynamic_cast<R*>(r)) (typed->*handler)(args...);
   }
   if (--notifyDepth_ == 0 && compactPending_) compact();
   if (counted) refDec();
}

// A keyed collection attribute: the storage and the compare-first rules, without notification.
// The owning entity wraps it in fooIs / fooDel / fooDelAll and notifies per key. Container may be
// any map-like type (std::map, std::unordered_map, boost flat_map).
template <class K, class V, class Container = std::map<K, V>>
class Collection {
public:
   using container_type = Container;
   using const_iterator = typename Container::const_iterator;

   // The value under `k`, or a default value (a null Ptr) when absent.
   V get(const K& k) const {
      auto it = c_.find(k);
      return it == c_.end() ? V{} : it->second;
   }
   const V* find(const K& k) const {
      auto it = c_.find(k);
      return it == c_.end() ? nullptr : &it->second;
   }
   bool has(const K& k) const { return c_.find(k) != c_.end(); }

   // Inserts or replaces; false when the same value was already stored under `k`.
   template <class W>
   bool set(const K& k, W&& v) {
      auto it = c_.find(k);
      if (it == c_.end()) {
         c_.emplace(k, std::forward<W>(v));
         return true;
      }
      if (it->second == v) return false;
      it->second = std::forward<W>(v);
      return true;
   }
   bool del(const K& k) { return c_.erase(k) > 0; }
   // Removes entries one at a time and calls onDeleted(key) after each, so a reaction that adds
   // or removes entries meanwhile is still safe.
   template <class F>
   void delAll(F&& onDeleted) {
      while (!c_.empty()) {
         K k = c_.begin()->first;
         c_.erase(c_.begin());
         onDeleted(k);
      }
   }

   std::size_t size() const { return c_.size(); }
   bool empty() const { return c_.empty(); }
   const_iterator begin() const { return c_.begin(); }
   const_iterator end() const { return c_.end(); }
   const Container& container() const { return c_; }
   bool operator==(const Collection& o) const { return c_ == o.c_; }

private:
   Container c_;
};

}  // namespace Kel
