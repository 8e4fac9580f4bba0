// Configuration text from outside the process must never reach an assertion or an uncaught
// exception: mutated versions of the shipped example either fail to parse with line-numbered
// errors, or parse into a document that applies cleanly and prints back to itself.
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "agent/ConfigText.h"
#include "agent/PolicyAgent.h"

namespace {

using namespace Routing::Policy::agent;

std::vector<std::string> exampleLines() {
   std::ifstream f(RP_EXAMPLES_DIR "/edge.conf");
   std::vector<std::string> lines;
   for (std::string line; std::getline(f, line);) lines.push_back(line);
   return lines;
}

// One edit of the kind a person makes: a token dropped, doubled or swapped with another line's,
// a digit changed, a line lost or repeated.
std::string mutate(std::vector<std::string> lines, std::mt19937& rng) {
   const auto pick = [&](std::size_t n) { return static_cast<std::size_t>(rng() % n); };
   for (int edits = 1 + static_cast<int>(pick(3)); edits > 0; --edits) {
      std::string& line = lines[pick(lines.size())];
      const std::string& other = lines[pick(lines.size())];
      switch (pick(6)) {
         case 0:
            if (!line.empty()) line.erase(pick(line.size()), 1 + pick(6));
            break;
         case 1:
            line.insert(pick(line.size() + 1), std::string(1, "0123456789./: -"[pick(15)]));
            break;
         case 2:
            if (!other.empty()) line.insert(pick(line.size() + 1), other.substr(pick(other.size())));
            break;
         case 3:
            line = other;
            break;
         case 4:
            line.clear();
            break;
         default:
            for (char& c : line) {
               if (c >= '0' && c <= '9' && pick(4) == 0) c = static_cast<char>('0' + pick(10));
            }
      }
   }
   std::string text;
   for (const auto& l : lines) text += l + "\n";
   return text;
}

TEST(ConfigTextMutationTest, MutatedTextsFailCleanlyOrApplyAndRoundTrip) {
   const std::vector<std::string> lines = exampleLines();
   ASSERT_GT(lines.size(), 40u);
   std::mt19937 rng(2026);
   int accepted = 0;
   for (int i = 0; i < 1500; ++i) {
      const std::string text = mutate(lines, rng);
      ParseResult r;
      ASSERT_NO_THROW(r = parseConfigText(text, "m.conf")) << text;
      if (!r.ok()) {
         for (const auto& e : r.errors) {
            ASSERT_GE(e.line, 1u) << e.text();
            ASSERT_LE(e.line, lines.size()) << e.text();
         }
         continue;
      }
      ++accepted;
      EXPECT_EQ(parseConfigText(configText(r.document), "p").document, r.document) << text;
      PolicyAgent agent;
      ASSERT_NO_THROW(agent.apply(r.document)) << text;
   }
   // Both outcomes must be exercised for the test to mean anything.
   EXPECT_GT(accepted, 100);
   EXPECT_LT(accepted, 1400);
}

}  // namespace
