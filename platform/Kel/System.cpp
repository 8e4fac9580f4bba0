#include "Kel/System.h"

#include <chrono>
#include <utility>

namespace Kel {

namespace {
System::TimeSource& source() {
   static System::TimeSource s;
   return s;
}
}  // namespace

Seconds System::currentTime() {
   if (const auto& s = source()) return s();
   using namespace std::chrono;
   return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void System::timeSourceIs(TimeSource s) { source() = std::move(s); }

}  // namespace Kel
