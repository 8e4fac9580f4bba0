#include "RoutingPolicy/status/PublishedStatusList.h"

#include <algorithm>

namespace Routing::Policy {

PublishedStatusList::Reader::Reader(Kel::Ptr<PublishedStatusList> published)
    : published_(std::move(published)) {
   std::lock_guard lock(published_->mutex_);
   auto& slots = published_->slots_;
   const auto free = std::find_if(slots.begin(), slots.end(), [](const auto& s) { return !s->used; });
   if (free != slots.end()) {
      slot_ = free->get();
   } else {
      slots.push_back(std::make_unique<Slot>());
      slot_ = slots.back().get();
   }
   slot_->used = true;
}

PublishedStatusList::Reader::~Reader() {
   slot_->hazard.store(nullptr, std::memory_order_release);
   std::lock_guard lock(published_->mutex_);
   slot_->used = false;
}

const StatusListSnapshot* PublishedStatusList::Reader::announce(
    const StatusListSnapshot* s) noexcept {
   // Sequentially consistent on both sides: either the owner's scan, which follows its swap,
   // sees this announcement, or the check below sees the swap and tries the newer snapshot.
   for (;;) {
      slot_->hazard.store(s, std::memory_order_seq_cst);
      const StatusListSnapshot* now = published_->current_.load(std::memory_order_seq_cst);
      if (now == s) break;
      s = now;
   }
   held_ = s;
   return s;
}

PublishedStatusList::PublishedStatusList(Kel::Ptr<RouteMapStatusList const> first, U64 version)
    : newest_(std::make_unique<StatusListSnapshot>(
          version, first ? std::move(first) : Kel::Ptr<RouteMapStatusList const>(
                                                  routeMapStatusListFactory()))) {
   current_.store(newest_.get(), std::memory_order_seq_cst);
}

PublishedStatusList::~PublishedStatusList() = default;

void PublishedStatusList::publish(Kel::Ptr<RouteMapStatusList const> list, U64 version) {
   auto fresh = std::make_unique<StatusListSnapshot>(
       version, list ? std::move(list) : Kel::Ptr<RouteMapStatusList const>(
                                             routeMapStatusListFactory()));
   current_.store(fresh.get(), std::memory_order_seq_cst);
   std::vector<std::unique_ptr<StatusListSnapshot>> unheld;
   {
      std::lock_guard lock(mutex_);
      retired_.push_back(std::move(newest_));
      newest_ = std::move(fresh);
      unheld = unheldRetired();
   }
   // Freed outside the lock: dropping a snapshot may drop whole compiled route maps.
}

std::size_t PublishedStatusList::reclaim() {
   std::vector<std::unique_ptr<StatusListSnapshot>> unheld;
   std::lock_guard lock(mutex_);
   unheld = unheldRetired();
   return retired_.size();
}

std::vector<std::unique_ptr<StatusListSnapshot>> PublishedStatusList::unheldRetired() {
   std::vector<const StatusListSnapshot*> held;
   held.reserve(slots_.size());
   for (const auto& slot : slots_) {
      if (const auto* h = slot->hazard.load(std::memory_order_seq_cst)) held.push_back(h);
   }
   std::vector<std::unique_ptr<StatusListSnapshot>> out;
   std::erase_if(retired_, [&](std::unique_ptr<StatusListSnapshot>& s) {
      if (std::find(held.begin(), held.end(), s.get()) != held.end()) return false;
      out.push_back(std::move(s));
      return true;
   });
   return out;
}

std::size_t PublishedStatusList::retiredCount() const {
   std::lock_guard lock(mutex_);
   return retired_.size();
}

std::size_t PublishedStatusList::readerCount() const {
   std::lock_guard lock(mutex_);
   return static_cast<std::size_t>(
       std::count_if(slots_.begin(), slots_.end(), [](const auto& s) { return s->used; }));
}

Kel::Ptr<PublishedStatusList> publishedStatusListFactory(Kel::Ptr<RouteMapStatusList const> first,
                                                         U64 version) {
   return Kel::makePtr<PublishedStatusList>(std::move(first), version);
}

}  // namespace Routing::Policy
