// An agent's whole use of the library: configuration in, routes evaluated, a change applied.
#include <iostream>

#include "agent/PolicyAgent.h"

using namespace Routing::Policy;

int main() {
   agent::PolicyAgent policy;
   const char* config = R"(
ip prefix-list CUSTOMERS seq 10 permit 10.0.0.0/8 le 24
route-map IMPORT permit 10
   match ip address prefix-list CUSTOMERS
   set tag 100
)";
   if (auto r = policy.apply(config, "import.conf"); !r.ok()) {
      for (const auto& e : r.errors) std::cerr << e.text() << "\n";
      return 2;
   }
   // Follows IMPORT: every later apply() that recompiles it updates this list.
   const auto list = policy.statusList({{RmPrecedence::rmBased, "IMPORT"}});
   const agent::PolicyEvaluator evaluator(list);  // one per evaluating thread

   MatchInput_ route;
   route.prefixIs(Nx::IpGenPrefix::fromStrep("10.1.2.0/24"));
   agent::Evaluation e = evaluator.evaluate(route);
   std::cout << (e.permit ? "permit" : "deny") << " tag " << e.result.tag().value() << "\n";

   // A new full configuration: only the new entry and its list's version are touched.
   const std::string edited =
       std::string(config) + "ip prefix-list CUSTOMERS seq 5 deny 10.1.0.0/16 le 32\n";
   const auto stats = policy.apply(edited, "import.conf").stats;
   std::cout << stats.prefixListEntriesWritten << " entry written\n";

   e = evaluator.evaluate(route, /*explain=*/true);
   std::cout << (e.permit ? "permit" : "deny") << "\n" << agent::explanationText(e);
   return e.permit ? 1 : 0;
}
