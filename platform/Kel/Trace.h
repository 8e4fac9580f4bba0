#pragma once
// Tracing. Each source file that traces declares one handle, named after the file:
//
//    KEL_TRACE_HANDLE("RouteMapConfigSm");
//    ...
//    KTRACE(8, *this, "creating rmName:" << name);
//
// A line is written as "<file>:<line> <machine> <text>", where <machine> is the printed form of
// the object given as second argument (any type with operator<<). The text is only built when the
// handle's level admits the trace. Levels go from 0 (always worth seeing) to 9 (most detail); a
// handle at level L writes traces of level <= L, and a handle at -1 writes nothing.
//
// Levels are switched at run time, through Trace::levelIs or the environment variable
// RPOLICY_TRACE, a comma-separated list of name=level items where the name "*" stands for every
// handle (for example "RouteMapConfigSm=8,*=5"). Lines go to stderr unless a sink is installed.

#include <atomic>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

namespace Kel {

class TraceHandle {
public:
   explicit TraceHandle(const char* name);
   TraceHandle(const TraceHandle&) = delete;
   TraceHandle& operator=(const TraceHandle&) = delete;
   ~TraceHandle();

   bool enabled(int level) const noexcept {
      return level <= level_.load(std::memory_order_relaxed);
   }
   int level() const noexcept { return level_.load(std::memory_order_relaxed); }
   void levelIs(int level) noexcept { level_.store(level, std::memory_order_relaxed); }
   const char* name() const noexcept { return name_; }

   void write(const char* file, unsigned line, std::string_view machine,
              std::string_view text) const;

private:
   const char* name_;
   std::atomic<int> level_{-1};
};

class Trace {
public:
   using Sink = std::function<void(std::string_view line)>;

   // Replaces where lines go; an empty sink restores stderr.
   static void sinkIs(Sink sink);
   // Sets the level of the named handle, now and for a handle of that name made later.
   static void levelIs(std::string_view name, int level);
   // Sets every handle, present and future, to `level` and forgets per-name settings.
   static void levelAllIs(int level);
   // Applies a list in the RPOLICY_TRACE format; returns false if an item was malformed
   // (well-formed items are still applied).
   static bool configure(std::string_view levels);
   static int level(std::string_view name);
};

namespace detail {
template <class M>
std::string traceMachineText(const M& m) {
   std::ostringstream os;
   os << m;
   return os.str();
}
}  // namespace detail

}  // namespace Kel

#define KEL_TRACE_HANDLE(name) \
   [[maybe_unused]] static ::Kel::TraceHandle kelTraceHandle_(name)

#define KTRACE(level, machine, text)                                                         \
   do {                                                                                      \
      if (kelTraceHandle_.enabled(level)) [[unlikely]] {                                     \
         std::ostringstream kelTraceText_;                                                   \
         kelTraceText_ << text;                                                              \
         kelTraceHandle_.write(__FILE__, __LINE__, ::Kel::detail::traceMachineText(machine), \
                               kelTraceText_.str());                                         \
      }                                                                                      \
   } while (false)
