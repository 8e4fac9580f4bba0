#include "FlightLog/FlightLog.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <latch>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/System.h"

namespace {

using Strings = std::vector<std::string>;

std::string dump(const FlightLog::Ring& ring) {
   std::ostringstream os;
   ring.dump(os);
   return os.str();
}

// A manual clock, so that dumped times are exact.
class FlightLogTest : public testing::Test {
protected:
   void SetUp() override { Kel::System::timeSourceIs(clock_.source()); }
   void TearDown() override { Kel::System::timeSourceIs({}); }
   Kel::ManualTime clock_{1.5};
};

// Empty, part full, exactly full, one past, twice round plus one, and a ring of one.
TEST_F(FlightLogTest, KeepsTheNewestOldestFirst) {
   for (const auto& [capacity, total] : std::vector<std::pair<std::size_t, std::size_t>>{
            {4, 0}, {4, 3}, {4, 4}, {4, 5}, {4, 9}, {1, 3}}) {
      SCOPED_TRACE(std::to_string(total) + " into " + std::to_string(capacity));
      FlightLog::Ring ring(capacity, 16);
      for (std::size_t i = 1; i <= total; ++i) ring.addf("e{}", i);
      std::string want;
      for (std::size_t i = total - std::min(capacity, total) + 1; i <= total; ++i) {
         want += fmt::format("{} 1.500000 e{}\n", i, i);
      }
      EXPECT_EQ(ring.size(), std::min(capacity, total));
      EXPECT_EQ(dump(ring), want);
   }
}

TEST_F(FlightLogTest, TruncatesAtTheEntryLengthAndRefusesEmptyRings) {
   EXPECT_THROW(FlightLog::Ring(0, 16), Kel::RangeException);
   EXPECT_THROW(FlightLog::Ring(16, 0), Kel::RangeException);
   FlightLog::Ring ring(4, 8);
   ring.add("12345678");
   ring.add("123456789");
   ring.addf("{}-{}", 1234, 56789);
   ring.addf("{}", "ab");
   // After wrapping, a short entry in a slot that held a longer one shows only itself.
   ring.add("");
   EXPECT_EQ(ring.entries(), (Strings{"12345678", "1234-567", "ab", ""}));
   // The global ring behind the macro cuts at 256 bytes.
   FlightLog::global().clear();
   FLIGHT_LOG("route {} via {}", "10.0.0.0/8", 3);
   FLIGHT_LOG("{}", std::string(300, 'x'));
   EXPECT_EQ(FlightLog::global().entries(),
             (Strings{"route 10.0.0.0/8 via 3", std::string(256, 'x')}));
   FlightLog::global().clear();
}

// The format fails after "XXXX" is already in the slot, as a broken value's formatter might.
TEST_F(FlightLogTest, ThrowingFormatterAddsNothingAndGarblesNothing) {
   FlightLog::Ring ring(2, 8);
   ring.add("a");
   EXPECT_THROW(ring.addf(fmt::runtime("XXXX{:d}"), "s"), fmt::format_error);
   EXPECT_EQ(ring.entries(), Strings{"a"});
   ring.add("b");
   // Full: the failed entry overwrote part of "a", which must then be gone rather than shown.
   EXPECT_THROW(ring.addf(fmt::runtime("XXXX{:d}"), "s"), fmt::format_error);
   EXPECT_EQ(ring.entries(), Strings{"b"});
   ring.add("c");
   EXPECT_EQ(dump(ring), "2 1.500000 b\n3 1.500000 c\n");
}

TEST_F(FlightLogTest, DumpWritesOneLinePerEntryAndClearKeepsCounting) {
   FlightLog::Ring ring(8, 32);
   ring.add("hello");
   clock_.advance(0.25);
   ring.addf("n={}", 7);
   clock_.nowIs(12.0000004);
   ring.add("two\nlines\r");
   EXPECT_EQ(dump(ring), "1 1.500000 hello\n2 1.750000 n=7\n3 12.000000 two lines \n");
   // Clearing drops the entries; the sequence keeps counting.
   ring.clear();
   EXPECT_EQ(ring.size(), 0u);
   ring.add("e");
   EXPECT_EQ(dump(ring), "4 12.000000 e\n");
}

// Rings that wrap and rings that keep everything, written through both paths (addf and add of a
// ready string lock separately).
TEST(FlightLogConcurrentTest, WritersLoseNothingAndDoNotInterleave) {
   constexpr int kThreads = 4;
   constexpr int kPerThread = 20000;
   constexpr std::size_t kTotal = std::size_t{kThreads} * kPerThread;
   for (const auto& [capacity, formatted] : std::vector<std::pair<std::size_t, bool>>{
            {100, true}, {100, false}, {kTotal, true}, {kTotal + 1, false}}) {
      SCOPED_TRACE((formatted ? "addf into " : "add into ") + std::to_string(capacity));
      FlightLog::Ring ring(capacity, 32);
      std::latch start(kThreads);  // released together so that the writers really overlap
      std::vector<std::thread> pool;
      for (int t = 0; t < kThreads; ++t) {
         pool.emplace_back([&, t, formatted = formatted] {
            start.arrive_and_wait();
            for (int i = 0; i < kPerThread; ++i) {
               formatted ? ring.addf("t{} {}", t, i) : ring.add(fmt::format("t{} {}", t, i));
            }
         });
      }
      for (auto& th : pool) th.join();
      ASSERT_EQ(ring.size(), std::min(capacity, kTotal));

      // Each retained entry is intact, each writer's entries are in its own order, and the
      // sequence numbers are the last ones handed out, with no gap.
      std::vector<int> lastOf(kThreads, -1);
      U64 seq = kTotal - ring.size();
      std::istringstream is(dump(ring));
      for (std::string line; std::getline(is, line);) {
         int t = -1, i = -1;
         char tail = 0;
         ASSERT_EQ(std::sscanf(line.c_str(), "%*u %*f t%d %d%c", &t, &i, &tail), 2) << line;
         ASSERT_TRUE(line.starts_with(std::to_string(++seq) + ' ')) << line;
         ASSERT_TRUE(t >= 0 && t < kThreads && i > std::exchange(lastOf[t], i)) << line;
      }
      EXPECT_EQ(seq, kTotal);
   }
}

}  // namespace
