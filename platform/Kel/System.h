#pragma once
// The framework's notion of "now". Everything that reads time (clocks, the task scheduler's
// yield budget, trie-build slices) goes through currentTime(), so a test can install a manual
// source and step time deterministically.

#include <functional>
#include <limits>

namespace Kel {

// Seconds, as a double: clock due times use 0 for "at the next firing" and +infinity for "rest".
using Seconds = double;
inline constexpr Seconds kNever = std::numeric_limits<double>::infinity();

class System {
public:
   using TimeSource = std::function<Seconds()>;

   // Monotonic seconds since an arbitrary start, or what the installed source says.
   static Seconds currentTime();
   // Installs a source; an empty function restores the monotonic clock.
   static void timeSourceIs(TimeSource source);
};

// A time source that only moves when told to. Install it with System::timeSourceIs(manual.source()).
class ManualTime {
public:
   explicit ManualTime(Seconds start = 1.0) : now_(start) {}
   Seconds now() const { return now_; }
   void nowIs(Seconds t) { now_ = t; }
   void advance(Seconds d) { now_ += d; }
   System::TimeSource source() {
      return [this] { return now_; };
   }

private:
   Seconds now_;
};

}  // namespace Kel
