// A small agent built on the platform alone: it loads named prefix sets from a file in
// time slices on the activity loop, keeps them in a notifying entity, and a machine that follows
// the entity summarises them in one deferred task however many changes arrive. It prints the
// summary as JSON. Run with RPOLICY_TRACE=platform_demo=8 to see the machine's traces, and with
// RPOLICY_TOGGLES=DemoDetailToggle=off to leave out the per-set prefix lists.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "FlightLog/FlightLog.h"
#include "Kel/Clock.h"
#include "Kel/Entity.h"
#include "Kel/Machine.h"
#include "Kel/Trace.h"
#include "Nx/IpGenPrefixSet.h"
#include "Orb/BaseOutputSm.h"
#include "Orb/Task.h"
#include "Termout/RendererV2.h"
#include "Toggle/Toggle.h"

KEL_TRACE_HANDLE("platform_demo");

namespace {

// Prefix sets by name; a reactor hears handleSet(name) for each added, changed or removed set.
class Inventory : public Kel::Entity {
public:
   class Reactor : public Kel::ReactorFor<Inventory> {
   public:
      virtual void handleSet(const std::string&) {}
   };
   Kel::Ptr<Nx::IpGenPrefixSet const> set(const std::string& n) const { return sets_.get(n); }
   void setIs(const std::string& n, Kel::Ptr<Nx::IpGenPrefixSet const> s) {
      if (sets_.set(n, std::move(s))) notify(&Reactor::handleSet, n);
   }
   void setDel(const std::string& n) {
      if (sets_.del(n)) notify(&Reactor::handleSet, n);
   }
   const auto& sets() const { return sets_; }

private:
   Kel::Collection<std::string, Kel::Ptr<Nx::IpGenPrefixSet const>> sets_;
};

// Follows the inventory; any number of changes between two runs of the loop cost one summary.
class Summarizer : public Orb::BaseOutputSm {
public:
   Summarizer(Kel::Ptr<Inventory const> inv, Kel::Ptr<Orb::TaskScheduler> sched)
       : inv_(std::move(inv)), sched_(std::move(sched)), reactor_(this) {}
   std::string json;
   U64 runs() const { return task_->runCount(); }

   void formatDerivedType(std::ostream& os) const override { os << "Summarizer"; }

protected:
   void handleInitialized() override {
      task_ = Orb::taskFactory(sched_, "Summarize", 2, [this] { summarize(); });
      reactor_.notifierIs(inv_);
   }

private:
   struct Reactor : Inventory::Reactor {
      explicit Reactor(Summarizer* o) : owner(o) {}
      Summarizer* owner;
      void handleSet(const std::string& name) override {
         KTRACE(8, *owner, "set changed: " << name);
         owner->task_->schedule();
      }
   };

   void summarize() {
      KTRACE(8, *this, "summarizing " << inv_->sets().size() << " sets");
      FLIGHT_LOG("summarize sets={}", inv_->sets().size());
      const bool detail = Toggle::getToggleState("DemoDetailToggle", true);
      Termout::RendererV2 r;
      r.startDict();
      r.startDict("sets");
      for (const auto& [name, set] : inv_->sets()) {
         U64 v4 = 0, v6 = 0, v4Addresses = 0;
         for (const auto& p : *set) {
            if (p.isV4()) {
               ++v4;
               v4Addresses += U64{1} << (32 - p.len());
            } else {
               ++v6;
            }
         }
         r.startDict(name);
         r.addUint("ipv4", v4);
         r.addUint("ipv6", v6);
         r.addUint("ipv4Addresses", v4Addresses);
         if (detail) {
            r.startList("prefixes");
            for (const auto& p : *set) r.addString(p.toStrep());
            r.endList();
         }
         r.endDict();
      }
      r.endDict();
      r.endDict();
      json = r.str(true);
   }

   Kel::Ptr<Inventory const> inv_;
   Kel::Ptr<Orb::TaskScheduler> sched_;
   Kel::Ptr<Orb::Task> task_;
   Reactor reactor_;
};

struct Line {
   unsigned number;
   std::string text;
};

// Applies one line; returns an error text, empty when fine.
std::string apply(Inventory& inv, const std::string& text) {
   std::istringstream in(text);
   std::string name;
   in >> name;
   if (name.starts_with('-')) {
      inv.setDel(name.substr(1));
      return {};
   }
   auto set = Nx::ipGenPrefixSetFactory();
   if (auto old = inv.set(name)) {
      for (const auto& p : *old) set->prefixIs(p);
   }
   std::string word;
   unsigned added = 0;
   while (in >> word) {
      try {
         set->prefixIs(Nx::IpGenPrefix::fromStrepExact(word));
         ++added;
      } catch (const std::exception& e) {
         return e.what();
      }
   }
   if (added == 0) return "expected NAME PREFIX [PREFIX ...] or -NAME";
   inv.setIs(name, set);
   return {};
}

// Loads the lines in slices of the loop's clock, as a long configuration would be.
class Loader : public Kel::Clock::Reactor {
public:
   Loader(std::vector<Line> lines, Inventory* inv, std::string file)
       : lines_(std::move(lines)), inv_(inv), file_(std::move(file)) {}
   std::string error;
   unsigned slices = 0;

   void handleTime() override {
      ++slices;
      const Kel::Seconds end = Kel::System::currentTime() + 0.01;
      while (next_ < lines_.size()) {
         const Line& l = lines_[next_++];
         if (std::string e = apply(*inv_, l.text); !e.empty()) {
            error = file_ + ":" + std::to_string(l.number) + ": " + e;
            return;
         }
         if (Kel::System::currentTime() >= end) break;
      }
      if (next_ < lines_.size()) const_cast<Kel::Clock*>(notifier().get())->timeIs(0);
   }

private:
   std::vector<Line> lines_;
   std::size_t next_ = 0;
   Inventory* inv_;
   std::string file_;
};

}  // namespace

int main(int argc, char** argv) {
   if (argc != 2 || std::string(argv[1]) == "--help") {
      std::fprintf(stderr, "usage: %s FILE\n  Loads named prefix sets from FILE and prints a JSON "
                           "summary (see examples/platform-demo.txt).\n", argv[0]);
      return argc == 2 ? 0 : 2;
   }
   std::ifstream in(argv[1]);
   if (!in) {
      std::fprintf(stderr, "%s: cannot open\n", argv[1]);
      return 2;
   }
   std::vector<Line> lines;
   std::string text;
   for (unsigned n = 1; std::getline(in, text); ++n) {
      const auto first = text.find_first_not_of(" \t");
      if (first == std::string::npos || text[first] == '#') continue;
      lines.push_back({n, text});
   }

   auto loop = Kel::activityManagerFactory();
   auto sched = Orb::taskSchedulerFactory();
   loop->workSourceIs(sched.get());
   auto inv = Kel::makePtr<Inventory>();
   auto summarizer = Kel::create<Summarizer>(inv, sched);
   auto clock = loop->clockNew();
   Loader loader(std::move(lines), inv.get(), argv[1]);
   loader.notifierIs(clock);
   clock->timeIs(0);
   loop->runUntilIdle();
   loop->workSourceDel(sched.get());

   if (!loader.error.empty()) {
      std::fprintf(stderr, "%s\n", loader.error.c_str());
      return 2;
   }
   std::cout << summarizer->json << "\n";
   std::fprintf(stderr, "loaded in %u slice(s); summary built %llu time(s)\n", loader.slices,
                static_cast<unsigned long long>(summarizer->runs()));
   return 0;
}
