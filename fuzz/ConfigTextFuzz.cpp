// Configuration text is input from outside the process. Whatever the bytes, parsing must end in
// line-numbered errors, or in a document that prints back to itself and that the agent applies
// without an assertion or an exception.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "agent/ConfigText.h"
#include "agent/PolicyAgent.h"

using namespace Routing::Policy::agent;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   const std::string_view text(reinterpret_cast<const char*>(data), size);
   const ParseResult r = parseConfigText(text, "fuzz");
   if (!r.ok()) {
      std::size_t lines = 1;
      for (char c : text) lines += c == '\n';
      for (const Diagnostic& e : r.errors) {
         if (e.line == 0 || e.line > lines) {
            std::fprintf(stderr, "error outside the text: %s\n", e.text().c_str());
            std::abort();
         }
      }
      return 0;
   }
   if (!(parseConfigText(configText(r.document), "printed").document == r.document)) {
      std::fprintf(stderr, "document does not print back to itself:\n%s\n",
                   configText(r.document).c_str());
      std::abort();
   }
   // One agent for the whole run, as a live agent sees one configuration after another: every
   // accepted text is applied as an update to the previous one.
   static PolicyAgent* agent = new PolicyAgent();
   agent->apply(r.document);
   return 0;
}
