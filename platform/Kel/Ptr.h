#pragma once
// Intrusive reference counting. Every framework object that is shared derives from RefCounted and
// is held through Ptr<T>. The count lives in the object, so a Ptr is one pointer wide and a raw
// pointer can be turned back into a Ptr at any time (the hot path passes raw pointers around and
// takes a reference only where one is kept).
//
// The counter is atomic when KEL_THREADSAFE_PTR is on (the default): evaluation threads may then
// take and drop references to compiled objects while the reactor thread publishes new ones. With
// it off, the count is a plain integer for single-threaded agents. Both counters exist in every
// build (RefCountedBase<AtomicRefCount> / RefCountedBase<PlainRefCount>) so that both can be
// tested; the option only picks which one RefCounted means.

#include <atomic>
#include <cstddef>
#include <functional>
#include <ostream>
#include <type_traits>
#include <utility>

#include "Kel/Types.h"

#ifndef KEL_THREADSAFE_PTR
#define KEL_THREADSAFE_PTR 1
#endif

namespace Kel {

class AtomicRefCount {
public:
   void inc() noexcept { n_.fetch_add(1, std::memory_order_relaxed); }
   // Returns the count after the decrement. acq_rel so that the thread that frees the object sees
   // every write made by the threads that released before it.
   U32 dec() noexcept { return n_.fetch_sub(1, std::memory_order_acq_rel) - 1; }
   U32 get() const noexcept { return n_.load(std::memory_order_relaxed); }

private:
   std::atomic<U32> n_{0};
};

class PlainRefCount {
public:
   void inc() noexcept { ++n_; }
   U32 dec() noexcept { return --n_; }
   U32 get() const noexcept { return n_; }

private:
   U32 n_ = 0;
};

template <class Counter>
class RefCountedBase {
public:
   RefCountedBase() = default;
   // Copying an object never copies who holds it.
   RefCountedBase(const RefCountedBase&) noexcept {}
   RefCountedBase& operator=(const RefCountedBase&) noexcept { return *this; }
   virtual ~RefCountedBase() = default;

   void refInc() const noexcept { count_.inc(); }
   void refDec() const noexcept {
      if (count_.dec() == 0) delete this;
   }
   U32 refCount() const noexcept { return count_.get(); }

private:
   mutable Counter count_;
};

#if KEL_THREADSAFE_PTR
using RefCounted = RefCountedBase<AtomicRefCount>;
#else
using RefCounted = RefCountedBase<PlainRefCount>;
#endif

template <class T>
class Ptr {
public:
   using element_type = T;

   constexpr Ptr() noexcept = default;
   constexpr Ptr(std::nullptr_t) noexcept {}
   // Implicit on purpose: a raw pointer to a counted object becomes a shared handle wherever a
   // Ptr is expected, the way framework code passes `this` to a factory.
   Ptr(T* p) noexcept : p_(p) {
      if (p_) p_->refInc();
   }
   Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
   Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
   template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
   Ptr(const Ptr<U>& o) noexcept : Ptr(o.get()) {}
   template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
   Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
   ~Ptr() {
      if (p_) p_->refDec();
   }

   // Takes the new reference before dropping the old one, so assigning an object to a Ptr that
   // already holds it (possibly as its last reference) is safe.
   Ptr& operator=(const Ptr& o) noexcept {
      Ptr(o).swap(*this);
      return *this;
   }
   Ptr& operator=(Ptr&& o) noexcept {
      Ptr(std::move(o)).swap(*this);
      return *this;
   }
   Ptr& operator=(std::nullptr_t) noexcept {
      Ptr().swap(*this);
      return *this;
   }

   T* get() const noexcept { return p_; }
   T* operator->() const noexcept { return p_; }
   T& operator*() const noexcept { return *p_; }
   explicit operator bool() const noexcept { return p_ != nullptr; }

   void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
   // Gives up the reference without dropping it; the caller now owns one count.
   T* release() noexcept { return std::exchange(p_, nullptr); }

private:
   T* p_ = nullptr;
};

template <class T>
using PtrConst = Ptr<T const>;

template <class T, class U>
bool operator==(const Ptr<T>& a, const Ptr<U>& b) noexcept {
   return a.get() == b.get();
}
template <class T>
bool operator==(const Ptr<T>& a, std::nullptr_t) noexcept {
   return a.get() == nullptr;
}
template <class T, class U>
bool operator==(const Ptr<T>& a, U* b) noexcept {
   return a.get() == b;
}
template <class T, class U>
auto operator<=>(const Ptr<T>& a, const Ptr<U>& b) noexcept {
   return std::compare_three_way{}(a.get(), b.get());
}
template <class T>
std::ostream& operator<<(std::ostream& os, const Ptr<T>& p) {
   return os << static_cast<const void*>(p.get());
}

// Makes a new counted object. Machines go through Kel::create (Machine.h) instead, which also
// runs their initialisation.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
   return Ptr<T>(new T(std::forward<Args>(args)...));
}

template <class T, class U>
Ptr<T> ptrStaticCast(const Ptr<U>& p) noexcept {
   return Ptr<T>(static_cast<T*>(p.get()));
}
template <class T, class U>
Ptr<T> ptrDynamicCast(const Ptr<U>& p) noexcept {
   return Ptr<T>(dynamic_cast<T*>(p.get()));
}
template <class T, class U>
Ptr<T> ptrConstCast(const Ptr<U>& p) noexcept {
   return Ptr<T>(const_cast<T*>(p.get()));
}

}  // namespace Kel

template <class T>
struct std::hash<Kel::Ptr<T>> {
   std::size_t operator()(const Kel::Ptr<T>& p) const noexcept {
      return std::hash<const void*>{}(p.get());
   }
};
