// How the readers treat the bytes around the words: byte-order marks, and the bytes of a word
// quoted back in a message.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/ConfigText.h"
#include "agent/RouteText.h"
#include "agent/TextTokens.h"

namespace {

using namespace Routing::Policy::agent;
using text::printable;
using text::quote;

using namespace std::string_literals;

struct ShownRow {
   std::string in;
   std::string shown;
};

TEST(TextTokens, PrintableEscapesWhatATerminalWouldActOn) {
   const ShownRow rows[] = {
       {"plain ascii \\ stays", "plain ascii \\ stays"},
       {"a\0b"s, "a\\x00b"},
       {"\x1b[2J\t\r\n\x7f", "\\x1B[2J\\x09\\x0D\\x0A\\x7F"},
       {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
       {"csi \xC2\x9B", "csi \\xC2\\x9B"},  // a C1 control, encoded
       {"stray \xFF \x80 cut \xE2\x82", "stray \\xFF \\x80 cut \\xE2\\x82"},
       {"overlong \xC0\xAF surrogate \xED\xA0\x80",
        "overlong \\xC0\\xAF surrogate \\xED\\xA0\\x80"},
       {"in\xEF\xBB\xBFvisible", "in\\xEF\\xBB\\xBFvisible"},  // U+FEFF
   };
   for (const ShownRow& row : rows) EXPECT_EQ(printable(row.in), row.shown) << row.shown;
}

TEST(TextTokens, QuoteCutsLongWordsWithoutSplittingACharacter) {
   const std::string a76(76, 'a');
   const ShownRow rows[] = {
       {"", "''"},
       {std::string(80, 'x'), "'" + std::string(80, 'x') + "'"},
       {std::string(81, 'x'), "'" + std::string(77, 'x') + "...'"},
       {std::string(100000, 'x'), "'" + std::string(77, 'x') + "...'"},
       // An escape counts four columns and is never cut in half.
       {a76 + "\x01", "'" + a76 + "\\x01'"},
       {a76 + "\x01\x01", "'" + a76 + "...'"},
       // A multi-byte character counts one column and stays whole.
       {a76 + "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC",
        "'" + a76 + "\xE2\x82\xAC...'"},
   };
   for (const ShownRow& row : rows) EXPECT_EQ(quote(row.in), row.shown) << row.shown;
}

TEST(TextTokens, MessagesQuoteBadWordsEscapedAndCut) {
   const auto config = parseConfigText(
       "ip prefix-list P seq 10 permit 10.0.0.0/8 ge \x1b[2J\n"
       "route-map RM permit 10\n match interface Eth" +
           std::string(200, 'x') + "*\n",
       "c\nf");
   ASSERT_EQ(config.errors.size(), 2u);
   EXPECT_EQ(config.errors[0].text(),
             "c\\x0Af:1: error: expected a prefix length 0-4294967295, got '\\x1B[2J'");
   EXPECT_EQ(config.errors[1].text(),
             "c\\x0Af:3: error: expected an interface name of letters, digits, '/', '.', '-', '_' "
             "like Ethernet1, got 'Eth" +
                 std::string(74, 'x') + "...'");

   const auto routes =
       parseRouteLines("10.0.0.0/8 tag=\0\x1b"s + std::string(200, 'x') + "\n", "r.txt");
   ASSERT_EQ(routes.errors.size(), 1u);
   EXPECT_EQ(routes.errors[0].text(),
             "r.txt:1: error: expected a tag 0-4294967295 for tag, got '"
             "\\x00\\x1B" +
                 std::string(69, 'x') + "...'");
}

const std::string kBom = "\xEF\xBB\xBF";

TEST(TextTokens, LeadingUtf8ByteOrderMarkIsSkipped) {
   const std::string conf =
       "ip prefix-list P seq 10 permit 10.0.0.0/8\nroute-map RM permit 10\n"
       " match ip address prefix-list P\n set tag x\n";
   const auto plain = parseConfigText(conf, "c");
   const auto marked = parseConfigText(kBom + conf, "c");
   ASSERT_EQ(plain.errors.size(), 1u);
   EXPECT_EQ(marked.errors, plain.errors);  // same message, same line 4
   EXPECT_EQ(parseConfigText(kBom + "ip prefix-list P seq 10 permit 10.0.0.0/8\n", "c").document,
             parseConfigText("ip prefix-list P seq 10 permit 10.0.0.0/8\n", "c").document);

   const auto routes = parseRouteLines(kBom + "10.0.0.0/8\n11.0.0.0/8 tag=2\n", "r");
   ASSERT_TRUE(routes.ok()) << routes.errors[0].text();
   ASSERT_EQ(routes.items.size(), 2u);
   EXPECT_EQ(routes.items[1].first, 2u);
   EXPECT_EQ(parseCaseLines(kBom + "# first\n10.0.0.0/8 => deny\n", "c").items.at(0).first, 2u);
   // Only one mark is skipped: a second one is part of the first line.
   EXPECT_FALSE(parseRouteLines(kBom + kBom + "10.0.0.0/8\n", "r").ok());
}

TEST(TextTokens, ByteOrderMarksElsewhereAreErrors) {
   const std::string misplaced =
       ":3: error: unexpected byte-order mark (bytes EF BB BF); one is allowed only at the start "
       "of the file";
   // Between files joined with cat, in a comment, in a description: all invisible in an editor.
   const auto config = parseConfigText(
       "route-map RM permit 10\n description a" + kBom + "b\n" + kBom + "! joined\n", "c");
   std::vector<std::string> errors;
   for (const Diagnostic& d : config.errors) errors.push_back(d.text());
   EXPECT_EQ(errors, (std::vector<std::string>{"c:2" + misplaced.substr(2), "c" + misplaced}));

   const auto routes = parseRouteLines("10.0.0.0/8\n\n10.1.0.0/16 tag=1" + kBom + "\n", "r");
   ASSERT_EQ(routes.errors.size(), 1u);
   EXPECT_EQ(routes.errors[0].text(), "r" + misplaced);
   EXPECT_TRUE(routes.items.empty());
   EXPECT_EQ(parseCaseLines("10.0.0.0/8 => deny\n\n" + kBom + "# c\n", "k").errors.at(0).text(),
             "k" + misplaced);
}

TEST(TextTokens, OtherEncodingsAreOneError) {
   struct Row {
      std::string start;
      const char* message;
   };
   const Row rows[] = {
       {"\xFF\xFE",
        "the file is UTF-16 (it starts with the byte-order mark FF FE); expected UTF-8"},
       {"\xFE\xFF",
        "the file is UTF-16 (it starts with the byte-order mark FE FF); expected UTF-8"},
       {"\xFF\xFE\0\0"s,
        "the file is UTF-32 (it starts with the byte-order mark FF FE 00 00); expected UTF-8"},
       {"\0\0\xFE\xFF"s,
        "the file is UTF-32 (it starts with the byte-order mark 00 00 FE FF); expected UTF-8"},
   };
   // Each line of a UTF-16 text would otherwise be its own error.
   std::string body;
   for (char c : std::string("10.0.0.0/8\n11.0.0.0/8\n")) body += std::string{c, '\0'};
   for (const Row& row : rows) {
      SCOPED_TRACE(row.message);
      const Diagnostic expected{"f", 1, row.message, false};
      EXPECT_EQ(parseConfigText(row.start + body, "f").errors, std::vector<Diagnostic>{expected});
      EXPECT_EQ(parseRouteLines(row.start + body, "f").errors, std::vector<Diagnostic>{expected});
      EXPECT_EQ(parseCaseLines(row.start + body, "f").errors, std::vector<Diagnostic>{expected});
   }
}

}  // namespace
