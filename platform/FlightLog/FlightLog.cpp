#include "FlightLog/FlightLog.h"

#include <cstring>
#include <ostream>

#include <fmt/format.h>

#include "Kel/Exception.h"

namespace FlightLog {

Ring::Ring(std::size_t capacity, std::size_t maxEntryLen)
    : capacity_(capacity), maxLen_(maxEntryLen) {
   if (capacity_ == 0 || maxLen_ == 0) {
      throw Kel::RangeException(fmt::format(
          "FlightLog::Ring needs a capacity and an entry length of at least 1, got {} and {}",
          capacity_, maxLen_));
   }
   // Allocated, and touched, up front: the first entries of a trace should not pay for faults
   // on fresh pages any more than the later ones.
   text_ = std::make_unique<char[]>(capacity_ * maxLen_);
   metas_ = std::make_unique<Meta[]>(capacity_);
}

void Ring::add(std::string_view text) {
   const std::size_t len = std::min(text.size(), maxLen_);
   std::lock_guard lock(mutex_);
   std::memcpy(text_.get() + next_ * maxLen_, text.data(), len);
   commit(len);
}

void Ring::dump(std::ostream& os) const {
   std::lock_guard lock(mutex_);
   fmt::memory_buffer line;
   forEach([&](const Meta& m, std::string_view text) {
      line.clear();
      fmt::format_to(std::back_inserter(line), "{} {:.6f} ", m.seq, m.time);
      for (char c : text) line.push_back(c == '\n' || c == '\r' ? ' ' : c);
      line.push_back('\n');
      os.write(line.data(), static_cast<std::streamsize>(line.size()));
   });
}

std::vector<std::string> Ring::entries() const {
   std::lock_guard lock(mutex_);
   std::vector<std::string> out;
   out.reserve(size_);
   forEach([&](const Meta&, std::string_view text) { out.emplace_back(text); });
   return out;
}

std::size_t Ring::size() const {
   std::lock_guard lock(mutex_);
   return size_;
}

void Ring::clear() {
   std::lock_guard lock(mutex_);
   size_ = 0;
   next_ = 0;
}

Ring& global() {
   // Never destroyed: destructors of other statics may still trace on the way out.
   static Ring* const ring = new Ring(4096, 256);
   return *ring;
}

}  // namespace FlightLog
