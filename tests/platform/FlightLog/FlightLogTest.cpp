#include "FlightLog/FlightLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <latch>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/System.h"

// Writes part of its text, then fails, as a formatter of a broken value might.
struct Exploding {};

template <>
struct fmt::formatter<Exploding> {
   constexpr auto parse(fmt::format_parse_context& ctx) { return ctx.begin(); }
   template <class Ctx>
   auto format(const Exploding&, Ctx& ctx) const {
      fmt::format_to(ctx.out(), "XXXX");
      throw std::runtime_error("broken value");
      return ctx.out();
   }
};

namespace {

// A manual clock, so that dumped times are exact.
class FlightLogTest : public testing::Test {
protected:
   void SetUp() override { Kel::System::timeSourceIs(clock_.source()); }
   void TearDown() override { Kel::System::timeSourceIs({}); }

   static std::vector<std::string> lines(const FlightLog::Ring& ring) {
      std::ostringstream os;
      ring.dump(os);
      std::vector<std::string> out;
      std::istringstream is(os.str());
      for (std::string l; std::getline(is, l);) out.push_back(l);
      return out;
   }

   Kel::ManualTime clock_{1.5};
};

struct WrapCase {
   std::size_t capacity;
   std::size_t total;
};
void PrintTo(const WrapCase& c, std::ostream* os) {
   *os << c.total << " into " << c.capacity;
}

class FlightLogWrapTest : public FlightLogTest, public testing::WithParamInterface<WrapCase> {};

TEST_P(FlightLogWrapTest, KeepsTheNewestOldestFirst) {
   const auto [capacity, total] = GetParam();
   FlightLog::Ring ring(capacity, 16);
   for (std::size_t i = 1; i <= total; ++i) ring.addf("e{}", i);

   const std::size_t kept = std::min(capacity, total);
   std::vector<std::string> expected;
   for (std::size_t i = total - kept + 1; i <= total; ++i)
      expected.push_back("e" + std::to_string(i));
   EXPECT_EQ(ring.size(), kept);
   EXPECT_EQ(ring.entries(), expected);

   const auto dumped = lines(ring);
   ASSERT_EQ(dumped.size(), kept);
   for (std::size_t k = 0; k < kept; ++k) {
      const std::size_t seq = total - kept + 1 + k;
      EXPECT_EQ(dumped[k], std::to_string(seq) + " 1.500000 e" + std::to_string(seq));
   }
}

INSTANTIATE_TEST_SUITE_P(FlightLog, FlightLogWrapTest,
                         testing::Values(WrapCase{4, 0}, WrapCase{4, 1}, WrapCase{4, 3},
                                         WrapCase{4, 4}, WrapCase{4, 5}, WrapCase{4, 9},
                                         WrapCase{1, 3}));

TEST_F(FlightLogTest, TruncatesAtTheEntryLength) {
   FlightLog::Ring ring(4, 8);
   ring.add("12345678");
   ring.add("123456789");
   ring.addf("{}-{}", 1234, 56789);
   ring.addf("{}", "ab");
   EXPECT_EQ(ring.entries(), (std::vector<std::string>{"12345678", "12345678", "1234-567", "ab"}));
   // After wrapping, a short entry in a slot that held a longer one shows only itself.
   ring.add("");
   EXPECT_EQ(ring.entries(), (std::vector<std::string>{"12345678", "1234-567", "ab", ""}));
}

TEST_F(FlightLogTest, ThrowingFormatterAddsNothingAndGarblesNothing) {
   FlightLog::Ring ring(2, 8);
   ring.add("a");
   EXPECT_THROW(ring.addf("{}", Exploding{}), std::runtime_error);
   EXPECT_EQ(ring.entries(), std::vector<std::string>{"a"});
   ring.add("b");
   // Full: the failed entry overwrote part of "a", which must then be gone rather than shown.
   EXPECT_THROW(ring.addf("{}", Exploding{}), std::runtime_error);
   EXPECT_EQ(ring.entries(), std::vector<std::string>{"b"});
   ring.add("c");
   EXPECT_EQ(lines(ring), (std::vector<std::string>{"2 1.500000 b", "3 1.500000 c"}));
}

TEST_F(FlightLogTest, DumpWritesSequenceTimeAndOneLinePerEntry) {
   FlightLog::Ring ring(8, 32);
   ring.add("hello");
   clock_.advance(0.25);
   ring.addf("n={}", 7);
   clock_.nowIs(12.0000004);
   ring.add("two\nlines");
   std::ostringstream os;
   ring.dump(os);
   EXPECT_EQ(os.str(), "1 1.500000 hello\n2 1.750000 n=7\n3 12.000000 two lines\n");
}

TEST_F(FlightLogTest, ClearDropsEntriesButSequenceContinues) {
   FlightLog::Ring ring(3, 16);
   ring.add("a");
   ring.add("b");
   ring.add("c");
   ring.add("d");
   ring.clear();
   EXPECT_EQ(ring.size(), 0u);
   EXPECT_TRUE(ring.entries().empty());
   ring.add("e");
   EXPECT_EQ(lines(ring), std::vector<std::string>{"5 1.500000 e"});
}

TEST_F(FlightLogTest, RefusesAnEmptyRing) {
   EXPECT_THROW(FlightLog::Ring(0, 16), Kel::RangeException);
   EXPECT_THROW(FlightLog::Ring(16, 0), Kel::RangeException);
}

TEST_F(FlightLogTest, MacroWritesToTheGlobalRing) {
   auto& g = FlightLog::global();
   EXPECT_EQ(g.capacity(), 4096u);
   EXPECT_EQ(g.maxEntryLen(), 256u);
   g.clear();
   FLIGHT_LOG("route {} via {}", "10.0.0.0/8", 3);
   FLIGHT_LOG("{}", std::string(300, 'x'));
   EXPECT_EQ(g.entries(),
             (std::vector<std::string>{"route 10.0.0.0/8 via 3", std::string(256, 'x')}));
   g.clear();
}

struct ConcurrentCase {
   std::size_t capacity;
   bool formatted;  // addf, or add of a ready string: the two paths lock separately
};
void PrintTo(const ConcurrentCase& c, std::ostream* os) {
   *os << (c.formatted ? "addf" : "add") << " into " << c.capacity;
}

class FlightLogConcurrentTest : public testing::TestWithParam<ConcurrentCase> {};

TEST_P(FlightLogConcurrentTest, WritersLoseNothingAndDoNotInterleave) {
   constexpr int kThreads = 4;
   constexpr int kPerThread = 20000;
   const auto [capacity, formatted] = GetParam();
   FlightLog::Ring ring(capacity, 32);
   // Released together so that the writers really overlap.
   std::latch start(kThreads);
   std::vector<std::thread> pool;
   for (int t = 0; t < kThreads; ++t) {
      pool.emplace_back([&, t, formatted = formatted] {
         start.arrive_and_wait();
         for (int i = 0; i < kPerThread; ++i) {
            if (formatted) {
               ring.addf("t{} {}", t, i);
            } else {
               ring.add("t" + std::to_string(t) + " " + std::to_string(i));
            }
         }
      });
   }
   for (auto& th : pool) th.join();

   const std::size_t total = std::size_t{kThreads} * kPerThread;
   ASSERT_EQ(ring.size(), std::min(capacity, total));

   // Each retained entry is intact, each writer's entries are in its own order, and the sequence
   // numbers are the last ones handed out, with no gap.
   std::map<int, int> lastOf;
   U64 expectSeq = total - ring.size() + 1;
   std::ostringstream os;
   ring.dump(os);
   std::istringstream is(os.str());
   for (std::string line; std::getline(is, line); ++expectSeq) {
      unsigned long long seq = 0;
      double time = 0;
      int t = -1;
      int i = -1;
      char tail = 0;
      ASSERT_EQ(std::sscanf(line.c_str(), "%llu %lf t%d %d%c", &seq, &time, &t, &i, &tail), 4)
          << line;
      ASSERT_EQ(seq, expectSeq) << line;
      ASSERT_TRUE(t >= 0 && t < kThreads) << line;
      if (auto it = lastOf.find(t); it != lastOf.end()) {
         ASSERT_GT(i, it->second) << line;
      }
      lastOf[t] = i;
   }
   EXPECT_EQ(expectSeq, total + 1);
}

INSTANTIATE_TEST_SUITE_P(FlightLog, FlightLogConcurrentTest,
                         testing::Values(ConcurrentCase{100, true}, ConcurrentCase{100, false},
                                         ConcurrentCase{80000, true},
                                         ConcurrentCase{100000, false}));

}  // namespace
