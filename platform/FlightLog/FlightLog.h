#pragma once
// The last few thousand things the evaluator did, kept in memory so that they can be dumped after
// something went wrong. Cheap enough to leave on: the storage is allocated once, an entry is
// formatted straight into its slot, and an entry that does not fit is cut rather than grown.

#include <algorithm>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/core.h>

#include "Kel/System.h"
#include "Kel/Types.h"

namespace FlightLog {

class Ring {
public:
   // Both must be at least 1 (Kel::RangeException otherwise).
   Ring(std::size_t capacity, std::size_t maxEntryLen);
   Ring(const Ring&) = delete;
   Ring& operator=(const Ring&) = delete;

   void add(std::string_view text);

   template <class... A>
   void addf(fmt::format_string<A...> f, A&&... a) {
      std::lock_guard lock(mutex_);
      char* slot = text_.get() + next_ * maxLen_;
      // Committed only after formatting, so that a throwing formatter adds no half entry.
      std::size_t len = 0;
      try {
         // The reported size is the untruncated one; only what fit was written.
         len = std::min(fmt::format_to_n(slot, maxLen_, f, std::forward<A>(a)...).size, maxLen_);
      } catch (...) {
         // In a full ring the slot held the oldest entry, whose text is now partly overwritten.
         if (size_ == capacity_) --size_;
         throw;
      }
      commit(len);
   }

   // Oldest first, one line each: "<seq> <seconds, 6 decimals> <text>". Line breaks inside an
   // entry are written as spaces so that one entry stays one line.
   void dump(std::ostream& os) const;
   // The texts alone, oldest first.
   std::vector<std::string> entries() const;

   std::size_t size() const;
   std::size_t capacity() const noexcept { return capacity_; }
   std::size_t maxEntryLen() const noexcept { return maxLen_; }
   // Drops the retained entries. Sequence numbers keep counting, so a later dump cannot be
   // mistaken for an earlier one.
   void clear();

private:
   struct Meta {
      U64 seq;
      Kel::Seconds time;
      std::size_t len;
   };

   // Called with mutex_ held, once the text is in slot next_.
   void commit(std::size_t len) {
      metas_[next_] = Meta{++seq_, Kel::System::currentTime(), len};
      next_ = next_ + 1 == capacity_ ? 0 : next_ + 1;
      if (size_ < capacity_) ++size_;
   }
   // Visits the retained entries oldest first, with mutex_ held.
   template <class F>
   void forEach(F&& f) const {
      const std::size_t first = (next_ + capacity_ - size_) % capacity_;
      for (std::size_t k = 0; k < size_; ++k) {
         const std::size_t i = (first + k) % capacity_;
         f(metas_[i], std::string_view(text_.get() + i * maxLen_, metas_[i].len));
      }
   }

   const std::size_t capacity_;
   const std::size_t maxLen_;
   std::unique_ptr<char[]> text_;  // capacity_ slots of maxLen_ bytes
   std::unique_ptr<Meta[]> metas_;
   std::size_t next_ = 0;  // slot the next entry goes to
   std::size_t size_ = 0;
   U64 seq_ = 0;
   mutable std::mutex mutex_;
};

// The process-wide ring: 4096 entries of 256 bytes.
Ring& global();

}  // namespace FlightLog

#define FLIGHT_LOG(...) ::FlightLog::global().addf(__VA_ARGS__)
