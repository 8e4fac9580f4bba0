// A daemon's shape: worker threads evaluate routes without pause while the owner thread applies
// configuration changes and re-runs, on each change event, only the routes of the route maps that
// changed.
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "agent/PolicyAgent.h"

using namespace Routing::Policy;

int main() {
   agent::PolicyAgent policy;  // owned by this thread: apply() and callbacks run here
   const std::string v1 = R"(
ip prefix-list CUSTOMERS seq 10 permit 10.0.0.0/8 le 24
route-map IMPORT permit 10
   match ip address prefix-list CUSTOMERS
   set tag 100
)";
   if (!policy.apply(v1, "import.conf").ok()) return 2;

   // The daemon's soft reconfiguration: told which route maps a batch changed and why.
   policy.addChangeCallback([](const agent::ChangeEvent& event) {
      for (const agent::RouteMapChange& c : event.routeMaps) {
         std::printf("batch %llu: %s\n", static_cast<unsigned long long>(event.version),
                     c.text().c_str());
         // Here: re-evaluate the routes that c.routeMap governs.
      }
   });

   // Follows IMPORT; a name that is not configured would deny every route.
   const auto list = policy.statusList({{RmPrecedence::rmBased, "IMPORT"}});

   std::atomic<bool> stop{false};
   std::atomic<unsigned long long> evaluated{0}, permitted{0};
   std::vector<std::thread> workers;
   for (int t = 0; t < 2; ++t) {
      workers.emplace_back([&] {
         const agent::PolicyEvaluator evaluator(list);  // one per thread, made on that thread
         MatchInput_ route;
         route.prefixIs(Nx::IpGenPrefix::fromStrep("10.1.2.0/24"));
         unsigned long long n = 0, p = 0;
         while (!stop.load(std::memory_order_relaxed)) {
            // Each call picks up the newest published snapshot: one whole batch, never half.
            const agent::Evaluation e = evaluator.evaluate(route);
            ++n;
            p += e.permit;
         }
         evaluated += n;
         permitted += p;
      });
   }

   // The owner goes on applying while the workers evaluate.
   const std::string v2 = v1 + "ip prefix-list CUSTOMERS seq 5 deny 10.1.0.0/16 le 32\n";
   for (int i = 0; i < 100; ++i) {
      if (!policy.apply(i % 2 ? v1 : v2, "import.conf").ok()) return 2;
   }
   stop = true;
   for (std::thread& w : workers) w.join();
   std::printf("workers evaluated %s routes\n", evaluated > 0 ? "some" : "no");
   return evaluated > 0 && permitted <= evaluated ? 0 : 1;
}
