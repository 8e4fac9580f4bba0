#include "Kel/Ptr.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

// Counts live objects so that leaks and double frees show up as a wrong number.
template <class Counter>
struct Tracked : Kel::RefCountedBase<Counter> {
   static inline int live = 0;
   int value;
   explicit Tracked(int v = 0) : value(v) { ++live; }
   ~Tracked() override { --live; }
};

template <class Counter>
struct Derived : Tracked<Counter> {
   using Tracked<Counter>::Tracked;
};

template <class Counter>
class KelPtrTest : public ::testing::Test {
protected:
   using T = Tracked<Counter>;
   using D = Derived<Counter>;
   void SetUp() override { T::live = 0; }
   void TearDown() override { EXPECT_EQ(T::live, 0) << "objects leaked or freed twice"; }
};

using Counters = ::testing::Types<Kel::AtomicRefCount, Kel::PlainRefCount>;
TYPED_TEST_SUITE(KelPtrTest, Counters);

TYPED_TEST(KelPtrTest, CopiesMovesAndResetsKeepTheCountExact) {
   using T = typename TestFixture::T;
   Kel::Ptr<T> a(new T(1));
   EXPECT_EQ(a->refCount(), 1u);
   {
      Kel::Ptr<T> b = a;
      Kel::Ptr<T const> c = b;  // to const
      EXPECT_EQ(a->refCount(), 3u);
      Kel::Ptr<T> d = std::move(b);
      EXPECT_FALSE(b);
      EXPECT_EQ(a->refCount(), 3u);
      EXPECT_EQ(d, a);
      EXPECT_EQ(c, a);
   }
   EXPECT_EQ(a->refCount(), 1u);
   a = nullptr;
   EXPECT_EQ(T::live, 0);
}

TYPED_TEST(KelPtrTest, AssigningTheLastReferenceToItselfKeepsTheObject) {
   using T = typename TestFixture::T;
   Kel::Ptr<T> a(new T(7));
   auto& alias = a;
   a = alias;  // a naive release-then-take would free the object here
   ASSERT_TRUE(a);
   EXPECT_EQ(a->value, 7);
   EXPECT_EQ(a->refCount(), 1u);
   a = std::move(alias);
   ASSERT_TRUE(a);
   EXPECT_EQ(a->value, 7);
}

TYPED_TEST(KelPtrTest, ReplacingFreesTheOldObjectOnlyWhenUnshared) {
   using T = typename TestFixture::T;
   Kel::Ptr<T> a(new T(1));
   Kel::Ptr<T> keep = a;
   a = Kel::Ptr<T>(new T(2));
   EXPECT_EQ(T::live, 2);
   keep = a;
   EXPECT_EQ(T::live, 1);
   EXPECT_EQ(keep->value, 2);
}

TYPED_TEST(KelPtrTest, DerivedConvertsToBaseAndBackThroughCasts) {
   using T = typename TestFixture::T;
   using D = typename TestFixture::D;
   Kel::Ptr<D> d(new D(3));
   Kel::Ptr<T> base = d;
   EXPECT_EQ(d->refCount(), 2u);
   auto back = Kel::ptrDynamicCast<D>(base);
   ASSERT_TRUE(back);
   EXPECT_EQ(back->value, 3);
   Kel::Ptr<T const> cbase = base;
   auto mutableAgain = Kel::ptrConstCast<T>(cbase);
   EXPECT_EQ(mutableAgain, d);
   EXPECT_EQ(d->refCount(), 5u);
}

TYPED_TEST(KelPtrTest, RawPointerRoundTripsThroughAPtr) {
   using T = typename TestFixture::T;
   Kel::Ptr<T> a(new T(5));
   T* raw = a.get();
   Kel::Ptr<T> again(raw);  // intrusive: the count travels with the object
   EXPECT_EQ(raw->refCount(), 2u);
   T* released = again.release();
   EXPECT_EQ(released->refCount(), 2u);
   released->refDec();
   EXPECT_EQ(a->refCount(), 1u);
}

TEST(KelPtrAtomicTest, ConcurrentCopiesOnSeveralThreadsBalance) {
   using T = Tracked<Kel::AtomicRefCount>;
   T::live = 0;
   {
      Kel::Ptr<T> shared(new T(1));
      std::vector<std::thread> threads;
      for (int t = 0; t < 4; ++t) {
         threads.emplace_back([shared] {
            for (int i = 0; i < 100000; ++i) {
               Kel::Ptr<T> copy = shared;
               Kel::Ptr<T> moved = std::move(copy);
            }
         });
      }
      for (auto& th : threads) th.join();
      EXPECT_EQ(shared->refCount(), 1u);
   }
   EXPECT_EQ(T::live, 0);
}

}  // namespace
