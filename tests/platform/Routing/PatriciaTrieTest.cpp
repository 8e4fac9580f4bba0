#include "Routing/PatriciaTrie.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace {

using Nx::AddressFamily;
using Nx::IpGenPrefix;

class Entry : public Routing::PrefixData {
public:
   Entry(U32 key, int id) : key_(key), id_(id) { ++alive; }
   ~Entry() override { --alive; }
   U32 chainKey() const override { return key_; }
   // The id in the digest, so a walk over digests can say which entry heads each chain.
   Digest digest() const override {
      return {key_, static_cast<U8>(id_), static_cast<U8>(id_ >> 8), (id_ & 1) != 0};
   }
   int id() const { return id_; }

   static inline int alive = 0;

private:
   U32 key_;
   int id_;
};

// One visited node: its prefix and the ids of its chain, head first.
using Visit = std::pair<IpGenPrefix, std::vector<int>>;

std::vector<int> chainIds(const Routing::PrefixData* head) {
   std::vector<int> ids;
   for (const Routing::PrefixData* e = head; e != nullptr; e = e->next()) {
      ids.push_back(static_cast<const Entry*>(e)->id());
   }
   return ids;
}

std::vector<Visit> inlineWalk(const Routing::PatriciaTrieWithNodeData& t, const IpGenPrefix& q) {
   std::vector<Visit> out;
   t.ancestorWalk(q, [&](const IpGenPrefix& p, const Routing::PrefixData& head) {
      out.emplace_back(p, chainIds(&head));
   });
   return out;
}

// The walk over digests, turned back into visits: the head's id from its digest, the rest of the
// chain only when the trie says there is more than the head. Prefixes are not reported by this
// walk, so they are taken from `want`, whose length the caller checks first.
std::vector<Visit> digestWalk(const Routing::PatriciaTrieWithNodeData& t, const IpGenPrefix& q,
                              const std::vector<Visit>& want) {
   std::vector<Visit> out;
   t.ancestorWalkDigests(q, [&](const Routing::PrefixData::Digest& head,
                                const Routing::PrefixData* rest) {
      const int id = head.lo | (head.hi << 8);
      EXPECT_EQ(head.flag, (id & 1) != 0);
      std::vector<int> ids{id};
      if (rest != nullptr) {
         ids = chainIds(rest);
         EXPECT_GT(ids.size(), 1u);
         EXPECT_EQ(ids.front() & 0xffff, id);
      }
      out.emplace_back(out.size() < want.size() ? want[out.size()].first : q, std::move(ids));
   });
   return out;
}

struct Recorder : Routing::PatriciaTrieWalkCb {
   std::vector<Visit> visits;
   void handlePrefixData(const IpGenPrefix& p,
                         const Kel::Ptr<Routing::PrefixData const>& d) override {
      visits.emplace_back(p, chainIds(d.get()));
   }
};

std::vector<Visit> virtualWalk(const Routing::PatriciaTrieWithNodeData& t, const IpGenPrefix& q) {
   Recorder r;
   t.ancestorWalk(q, r);
   return r.visits;
}

// What the trie should hold, kept the slow way.
class Model {
public:
   void add(const IpGenPrefix& p, U32 key, int id) {
      auto& chain = chains_[p];
      auto at = std::upper_bound(chain.begin(), chain.end(), key,
                                 [](U32 k, const std::pair<U32, int>& e) { return k < e.first; });
      chain.insert(at, {key, id});
      ++entries_;
   }
   void del(const IpGenPrefix& p) {
      entries_ -= chains_.at(p).size();
      chains_.erase(p);
   }
   std::vector<Visit> walk(const IpGenPrefix& q) const {
      std::vector<Visit> out;
      for (const auto& [p, chain] : chains_) {
         if (p.contains(q)) out.emplace_back(p, ids(chain));
      }
      std::sort(out.begin(), out.end(),
                [](const Visit& a, const Visit& b) { return a.first.len() < b.first.len(); });
      return out;
   }
   std::vector<Visit> all() const {
      std::vector<Visit> out;
      for (const auto& [p, chain] : chains_) out.emplace_back(p, ids(chain));
      return out;
   }
   const std::map<IpGenPrefix, std::vector<std::pair<U32, int>>>& chains() const { return chains_; }
   std::size_t entries() const { return entries_; }

private:
   static std::vector<int> ids(const std::vector<std::pair<U32, int>>& chain) {
      std::vector<int> v;
      for (const auto& e : chain) v.push_back(e.second);
      return v;
   }
   std::map<IpGenPrefix, std::vector<std::pair<U32, int>>> chains_;
   std::size_t entries_ = 0;
};

class RoutingPatriciaTrieRandomTest : public ::testing::TestWithParam<AddressFamily> {
protected:
   RoutingPatriciaTrieRandomTest()
       : af_(GetParam()),
         trie_(Routing::PatriciaTrieWithNodeDataIs("t", af_)),
         full_(af_ == AddressFamily::ipv4 ? 32 : 128) {
      for (auto& b : bases_) b = randomAddr();
   }

   unsigned uniform(unsigned lo, unsigned hi) {
      return std::uniform_int_distribution<unsigned>(lo, hi)(rng_);
   }
   Nx::IpGenAddr randomAddr() {
      if (af_ == AddressFamily::ipv4) return Nx::IpAddr(static_cast<U32>(rng_()));
      return Nx::Ip6Addr(rng_(), rng_());
   }
   // `a` with every bit from `keep` on replaced by random ones.
   Nx::IpGenAddr scramble(const Nx::IpGenAddr& a, unsigned keep) {
      const Nx::IpGenAddr r = randomAddr();
      if (af_ == AddressFamily::ipv4) {
         const U32 m = Nx::detail::mask32(keep);
         return Nx::IpAddr((a.v4().value() & m) | (r.v4().value() & ~m));
      }
      const Nx::Ip6Addr x = a.v6(), y = r.v6();
      const U64 mh = Nx::detail::mask64(std::min(keep, 64u));
      const U64 ml = Nx::detail::mask64(keep > 64 ? keep - 64 : 0);
      return Nx::Ip6Addr((x.hi() & mh) | (y.hi() & ~mh), (x.lo() & ml) | (y.lo() & ~ml));
   }
   // Prefixes around a few base addresses, so that many share long leading runs, with plenty
   // of short ones (the trie treats lengths below its table stride separately).
   IpGenPrefix randomPrefix() {
      const unsigned len = uniform(0, 3) == 0 ? uniform(0, 16) : uniform(0, full_);
      const Nx::IpGenAddr base = bases_[uniform(0, std::size(bases_) - 1)];
      return IpGenPrefix(scramble(base, uniform(0, full_)), len);
   }
   IpGenPrefix storedPrefix() {
      auto it = model_.chains().begin();
      std::advance(it, uniform(0, static_cast<unsigned>(model_.chains().size()) - 1));
      return it->first;
   }
   IpGenPrefix randomQuery() {
      switch (uniform(0, 9)) {
         case 0:
            return IpGenPrefix(randomAddr(), uniform(0, 1) ? 0 : full_);
         case 1:
         case 2:
            return randomPrefix();
         case 3:
         case 4:
            if (!model_.chains().empty()) return storedPrefix();
            [[fallthrough]];
         default: {
            if (model_.chains().empty()) return randomPrefix();
            const IpGenPrefix p = storedPrefix();
            return IpGenPrefix(scramble(p.address(), p.len()), uniform(p.len(), full_));
         }
      }
   }

   void add(const IpGenPrefix& p) {
      const U32 key = uniform(0, 5);
      trie_->routeIs(p, Kel::makePtr<Entry>(key, nextId_));
      model_.add(p, key, nextId_++);
   }
   // Moves to `target` prefixes by random additions (a quarter of them onto existing prefixes,
   // to grow chains) or removals.
   void resizeTo(std::size_t target) {
      while (model_.chains().size() != target) {
         if (model_.chains().size() < target) {
            add(uniform(0, 3) == 0 && !model_.chains().empty() ? storedPrefix() : randomPrefix());
         } else {
            const IpGenPrefix p = storedPrefix();
            ASSERT_TRUE(trie_->routeDel(p)) << p;
            model_.del(p);
         }
      }
   }

   void expectSameAsModel() {
      ASSERT_EQ(trie_->prefixes(), model_.chains().size());
      ASSERT_EQ(trie_->entries(), model_.entries());
      std::vector<Visit> all;
      trie_->forEach([&](const IpGenPrefix& p, const Routing::PrefixData& head) {
         all.emplace_back(p, chainIds(&head));
      });
      ASSERT_EQ(all, model_.all());
      for (int i = 0; i < 2000; ++i) {
         const IpGenPrefix q = randomQuery();
         const std::vector<Visit> want = model_.walk(q);
         ASSERT_EQ(inlineWalk(*trie_, q), want) << "query " << q;
         ASSERT_EQ(virtualWalk(*trie_, q), want) << "query " << q;
         std::vector<Visit> wantMasked = want;
         for (auto& [p, ids] : wantMasked) {
            if (ids.size() == 1) ids[0] &= 0xffff;
         }
         ASSERT_EQ(digestWalk(*trie_, q, want), wantMasked) << "digest query " << q;
         const auto it = model_.chains().find(q);
         ASSERT_EQ(chainIds(trie_->route(q).get()),
                   it == model_.chains().end() ? std::vector<int>{} : want.back().second)
             << "route " << q;
      }
   }

   AddressFamily af_;
   Kel::Ptr<Routing::PatriciaTrieWithNodeData> trie_;
   unsigned full_;
   std::mt19937_64 rng_{20240611};
   Nx::IpGenAddr bases_[6];
   Model model_;
   int nextId_ = 0;
};

// Sizes that build the lookup table, shrink it, drop it, and build it again on reused nodes.
TEST_P(RoutingPatriciaTrieRandomTest, WalksMatchALinearScanThroughGrowthAndRemoval) {
   for (std::size_t target : {3000u, 1200u, 100u, 2500u, 0u}) {
      SCOPED_TRACE(target);
      resizeTo(target);
      expectSameAsModel();
   }
   EXPECT_EQ(Entry::alive, 0);
}

TEST_P(RoutingPatriciaTrieRandomTest, RemovingAbsentPrefixesChangesNothing) {
   resizeTo(1500);
   for (int i = 0; i < 500; ++i) {
      const IpGenPrefix p = randomPrefix();
      if (model_.chains().count(p) == 0) {
         ASSERT_FALSE(trie_->routeDel(p)) << p;
      }
   }
   expectSameAsModel();
}

INSTANTIATE_TEST_SUITE_P(, RoutingPatriciaTrieRandomTest,
                         ::testing::Values(AddressFamily::ipv4, AddressFamily::ipv6),
                         [](const auto& info) {
                            return info.param == AddressFamily::ipv4 ? "ipv4" : "ipv6";
                         });

IpGenPrefix pfx(const char* text) {
   return IpGenPrefix::fromStrep(text);
}

TEST(RoutingPatriciaTrieTest, ChainKeepsKeyOrderAndInsertionOrderWithinAKey) {
   auto t = Routing::PatriciaTrieWithNodeDataIs("t", AddressFamily::ipv4);
   const std::pair<U32, int> adds[] = {{20, 1}, {10, 2}, {30, 3}, {10, 4}, {20, 5}, {0, 6}};
   for (auto [key, id] : adds) t->routeIs(pfx("10.0.0.0/8"), Kel::makePtr<Entry>(key, id));
   EXPECT_EQ(chainIds(t->route(pfx("10.0.0.0/8")).get()), (std::vector<int>{6, 2, 4, 1, 5, 3}));
   EXPECT_EQ(t->prefixes(), 1u);
   EXPECT_EQ(t->entries(), 6u);
}

TEST(RoutingPatriciaTrieTest, BranchPointsHoldNothingUntilGivenData) {
   auto t = Routing::PatriciaTrieWithNodeDataIs("t", AddressFamily::ipv4);
   t->routeIs(pfx("10.1.0.0/16"), Kel::makePtr<Entry>(0, 1));
   t->routeIs(pfx("10.2.0.0/16"), Kel::makePtr<Entry>(0, 2));
   // 10.0.0.0/14 is where the two part.
   EXPECT_FALSE(t->routeDel(pfx("10.0.0.0/14")));
   EXPECT_EQ(t->route(pfx("10.0.0.0/14")), nullptr);
   EXPECT_EQ(inlineWalk(*t, pfx("10.1.2.0/24")).size(), 1u);

   t->routeIs(pfx("10.0.0.0/14"), Kel::makePtr<Entry>(0, 3));
   EXPECT_EQ(inlineWalk(*t, pfx("10.2.2.2/32")),
             (std::vector<Visit>{{pfx("10.0.0.0/14"), {3}}, {pfx("10.2.0.0/16"), {2}}}));
   EXPECT_TRUE(t->routeDel(pfx("10.0.0.0/14")));
   EXPECT_EQ(inlineWalk(*t, pfx("10.2.2.2/32")), (std::vector<Visit>{{pfx("10.2.0.0/16"), {2}}}));
   EXPECT_EQ(inlineWalk(*t, pfx("10.3.0.0/16")), std::vector<Visit>{});
}

TEST(RoutingPatriciaTrieTest, OtherFamilyFindsNothing) {
   auto t = Routing::PatriciaTrieWithNodeDataIs("t", AddressFamily::ipv4);
   t->routeIs(pfx("0.0.0.0/0"), Kel::makePtr<Entry>(0, 1));
   EXPECT_EQ(inlineWalk(*t, pfx("::/0")), std::vector<Visit>{});
   EXPECT_EQ(virtualWalk(*t, pfx("::/0")), std::vector<Visit>{});
   EXPECT_EQ(t->route(pfx("::/0")), nullptr);
   EXPECT_FALSE(t->routeDel(pfx("::/0")));
   EXPECT_EQ(t->prefixes(), 1u);
}

TEST(RoutingPatriciaTrieDeathTest, AddingTheOtherFamilyIsAProgrammingError) {
   auto t = Routing::PatriciaTrieWithNodeDataIs("t", AddressFamily::ipv6);
   EXPECT_DEATH(t->routeIs(pfx("10.0.0.0/8"), Kel::makePtr<Entry>(0, 1)),
                "Assertion `prefix.af\\(\\) == af_' failed");
}

// Entries released one by one would recurse once per entry; this many would overflow the stack.
TEST(RoutingPatriciaTrieTest, LongChainsAreReleasedWithoutRecursion) {
   constexpr int kEntries = 1000000;
   auto t = Routing::PatriciaTrieWithNodeDataIs("t", AddressFamily::ipv4);
   // Descending keys put each entry at the head, which keeps the build linear.
   for (int i = kEntries; i > 0; --i) {
      t->routeIs(pfx("0.0.0.0/0"), Kel::makePtr<Entry>(static_cast<U32>(i), i));
      t->routeIs(pfx("10.0.0.0/8"), Kel::makePtr<Entry>(static_cast<U32>(i), i));
   }
   EXPECT_TRUE(t->routeDel(pfx("10.0.0.0/8")));
   EXPECT_EQ(t->entries(), static_cast<std::size_t>(kEntries));
   EXPECT_EQ(Entry::alive, kEntries);
   t = nullptr;
   EXPECT_EQ(Entry::alive, 0);
}

TEST(RoutingPatriciaTrieTest, AnEntryHeldElsewhereKeepsItsTail) {
   auto t = Routing::PatriciaTrieWithNodeDataIs("t", AddressFamily::ipv6);
   for (int i = 1; i <= 3; ++i) t->routeIs(pfx("2001:db8::/32"), Kel::makePtr<Entry>(0, i));
   Kel::Ptr<Routing::PrefixData const> held = t->route(pfx("2001:db8::/32"))->next();
   EXPECT_TRUE(t->routeDel(pfx("2001:db8::/32")));
   EXPECT_EQ(t->entries(), 0u);
   EXPECT_EQ(chainIds(held.get()), (std::vector<int>{2, 3}));
   held = nullptr;
   EXPECT_EQ(Entry::alive, 0);
}

}  // namespace
