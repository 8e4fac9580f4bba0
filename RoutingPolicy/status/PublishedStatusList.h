#pragma once
// How one consumer's list of route maps reaches the threads that evaluate through it.
//
// The owner keeps a RouteMapStatusList current on its own thread and, after each batch of
// changes, publishes an immutable copy of it (publish). Evaluating threads each hold a Reader and
// pick up the newest copy at a route boundary (Reader::pick). The compiled route maps a copy holds
// are immutable too, sub-route-maps included, so one evaluation sees one consistent version of
// everything it reaches however the configuration changes meanwhile.
//
// Reclamation is a hazard pointer per reader, paid for only when a new copy has appeared: the
// reader announces the copy it is about to use and checks that it is still the newest; the owner,
// after swapping a new copy in, frees only retired copies that no reader announces. While nothing
// changes, a pick is one atomic load and a compare: no lock, no allocation, no reference count.
// Memory held: the newest copy plus at most one retired copy per reader.

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "RoutingPolicy/status/RouteMapStatusList.h"

namespace Routing::Policy {

// One published version of a list.
class StatusListSnapshot {
public:
   StatusListSnapshot(U64 version, Kel::Ptr<RouteMapStatusList const> list)
       : version_(version), list_(std::move(list)) {}
   // The owner's batch number at publication.
   U64 version() const { return version_; }
   const Kel::Ptr<RouteMapStatusList const>& list() const { return list_; }

private:
   const U64 version_;
   const Kel::Ptr<RouteMapStatusList const> list_;
};

class PublishedStatusList : public Kel::RefCounted {
   struct Slot {
      std::atomic<const StatusListSnapshot*> hazard{nullptr};
      bool used = false;  // under the owner's mutex
   };

public:
   // One per evaluating thread; made and dropped on any thread.
   class Reader {
   public:
      explicit Reader(Kel::Ptr<PublishedStatusList> published);
      ~Reader();
      Reader(const Reader&) = delete;
      Reader& operator=(const Reader&) = delete;

      // The newest snapshot. What it returns stays valid until the next pick() or the reader's
      // end, whatever the owner publishes meanwhile.
      const StatusListSnapshot& pick() noexcept {
         const StatusListSnapshot* s = published_->current_.load(std::memory_order_acquire);
         if (s != held_) [[unlikely]] s = announce(s);
         return *s;
      }
      const PublishedStatusList& published() const { return *published_; }

   private:
      const StatusListSnapshot* announce(const StatusListSnapshot* s) noexcept;

      Kel::Ptr<PublishedStatusList> published_;
      Slot* slot_;
      const StatusListSnapshot* held_ = nullptr;
   };

   PublishedStatusList(Kel::Ptr<RouteMapStatusList const> first, U64 version);
   ~PublishedStatusList() override;
   PublishedStatusList(const PublishedStatusList&) = delete;
   PublishedStatusList& operator=(const PublishedStatusList&) = delete;

   // Owner thread. Makes `list` the newest snapshot and frees the retired ones no reader holds.
   // The caller must not change `list` afterwards.
   void publish(Kel::Ptr<RouteMapStatusList const> list, U64 version);
   // Owner thread: the newest snapshot, without the cost of a reader.
   const StatusListSnapshot& newest() const { return *newest_; }
   // Owner thread: frees the retired snapshots no reader holds any more (publish does this too)
   // and returns how many are still held.
   std::size_t reclaim();
   std::size_t retiredCount() const;
   std::size_t readerCount() const;

private:
   // Called with mutex_ held; returns what to free once it is released.
   std::vector<std::unique_ptr<StatusListSnapshot>> unheldRetired();

   std::atomic<const StatusListSnapshot*> current_;
   std::unique_ptr<StatusListSnapshot> newest_;
   // Guards the slots' registry and the retired snapshots. Never taken by pick().
   mutable std::mutex mutex_;
   std::vector<std::unique_ptr<Slot>> slots_;
   std::vector<std::unique_ptr<StatusListSnapshot>> retired_;
};

// The first snapshot holds `first` (an empty list when null) at `version`.
Kel::Ptr<PublishedStatusList> publishedStatusListFactory(Kel::Ptr<RouteMapStatusList const> first,
                                                         U64 version = 0);

}  // namespace Routing::Policy
