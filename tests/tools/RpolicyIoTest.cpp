// Reads and writes that fail, and how much of a flood of errors the tool prints.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <sstream>
#include <streambuf>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Commands.h"
#include "RpolicyTestSupport.h"

namespace {

namespace fs = std::filesystem;
using namespace rpolicy_test;
using rpolicy_test::rpolicy;  // over the namespace of the same name

std::string fileText(const std::string& path) {
   std::ifstream f(path, std::ios::binary);
   return std::string(std::istreambuf_iterator<char>(f), {});
}

// Hands out `data`, then fails the next read the way a file buffer reports a device error: by
// throwing, with the system's reason.
class FailingInput : public std::streambuf {
public:
   explicit FailingInput(std::string data) : data_(std::move(data)) {
      setg(data_.data(), data_.data(), data_.data() + data_.size());
   }

protected:
   int_type underflow() override {
      throw std::ios_base::failure("read", std::error_code(EIO, std::generic_category()));
   }

private:
   std::string data_;
};

// Takes `room` bytes and refuses the rest; or, with failOnFlush, takes everything and fails
// only when flushed, as a buffered stream does when its device is full.
class FailingOutput : public std::streambuf {
public:
   FailingOutput(std::size_t room, bool failOnFlush) : room_(room), failOnFlush_(failOnFlush) {}
   const std::string& taken() const { return taken_; }

protected:
   std::streamsize xsputn(const char* s, std::streamsize n) override {
      const std::size_t k = std::min(static_cast<std::size_t>(n), room_ - taken_.size());
      taken_.append(s, k);
      return static_cast<std::streamsize>(k);
   }
   int_type overflow(int_type c) override {
      if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
      const char ch = traits_type::to_char_type(c);
      return xsputn(&ch, 1) == 1 ? c : traits_type::eof();
   }
   int sync() override { return failOnFlush_ ? -1 : 0; }

private:
   std::string taken_;
   std::size_t room_;
   bool failOnFlush_;
};

using RpolicyIoTest = rpolicy_test::ScratchDirTest;

const std::string kConf = example("edge.conf");
const std::string kRoutes = example("edge-routes.txt");
const std::string kCases = example("edge-cases.txt");

TEST_F(RpolicyIoTest, ReadFailingPartWayIsAnInputError) {
   // Every file the tool reads, from standard input that fails after a part that parses: what
   // was read must not be taken for the whole input.
   struct Row {
      std::vector<std::string> args;
      std::string part;
   };
   const std::string confPart = "route-map EDGE-IN permit 10\n";
   const Row rows[] = {
       {{"check", "-"}, confPart},
       {{"graph", "-"}, confPart},
       {{"show", "-"}, confPart},
       {{"eval", "-", kRoutes, "--route-map", "EDGE-IN"}, confPart},
       {{"eval", kConf, "-", "--route-map", "EDGE-IN"}, "10.0.0.0/8\n"},
       {{"eval", kConf, kRoutes, "--route-map", "EDGE-IN", "--then", "-"}, fileText(kConf)},
       {{"test", kConf, "-", "--route-map", "EDGE-IN"}, "10.0.0.0/8 => deny\n"},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(::testing::PrintToString(row.args));
      FailingInput buf(row.part);
      std::istream in(&buf);
      std::ostringstream out, err;
      EXPECT_EQ(rpolicy(row.args, in, out, err), 2);
      EXPECT_EQ(out.str(), "");
      EXPECT_EQ(err.str(), "rpolicy: cannot read standard input: Input/output error\n");
   }
}

TEST_F(RpolicyIoTest, UnreadableFilesAreInputErrors) {
   const std::string dir = dir_.string();
   struct Row {
      std::vector<std::string> args;
      std::string err;
   };
   // A directory opens, and fails at its first read.
   std::vector<Row> rows = {
       {{"eval", kConf, dir, "--route-map", "EDGE-IN"},
        "rpolicy: cannot read " + dir + ": Is a directory\n"},
   };
   // A real device error on the file path: offset 0 of a process's memory is never mapped.
   if (fs::exists("/proc/self/mem")) {
      rows.push_back({{"check", "/proc/self/mem"},
                      "rpolicy: cannot read /proc/self/mem: Input/output error\n"});
   }
   for (const Row& row : rows) {
      SCOPED_TRACE(::testing::PrintToString(row.args));
      const Outcome r = rpolicy(row.args);
      EXPECT_EQ(r.code, 2);
      EXPECT_EQ(r.out, "");
      EXPECT_EQ(r.err, row.err);
   }
}

// Writes `text` into the FIFO at `path` once a reader has opened it, then closes it. Gives up
// when no reader comes within about ten seconds, so that a tool that never opens the FIFO fails
// the test instead of hanging it.
std::thread fifoWriter(const std::string& path, std::string text) {
   return std::thread([path, text] {
      int fd = -1;
      for (int i = 0; i < 1000 && fd < 0; ++i) {
         fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK);  // ENXIO until a reader is there
         if (fd < 0) ::usleep(10000);
      }
      if (fd < 0) return;
      ::fcntl(fd, F_SETFL, 0);
      for (std::size_t at = 0; at < text.size();) {
         const ssize_t n = ::write(fd, text.data() + at, text.size() - at);
         if (n <= 0) break;
         at += static_cast<std::size_t>(n);
      }
      ::close(fd);
   });
}

TEST_F(RpolicyIoTest, RoutesFromAFifo) {
   const std::string fifo = (dir_ / "routes.fifo").string();
   ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
   const std::vector<std::string> args{"eval", kConf, fifo, "--route-map", "EDGE-IN"};

   // Read to its end like a file: the same answers.
   std::thread whole = fifoWriter(fifo, fileText(kRoutes));
   const Outcome r = rpolicy(args);
   whole.join();
   EXPECT_EQ(r.code, 0) << r.err;
   EXPECT_EQ(r.out, rpolicy({"eval", kConf, kRoutes, "--route-map", "EDGE-IN"}).out);

   // Its writer gone mid-line: the cut line is refused, and nothing is evaluated.
   std::thread early = fifoWriter(fifo, "198.18.4.0/24 protocol=ebgp\n198.51.100.0/24 protocol=eb");
   const Outcome cut = rpolicy(args);
   early.join();
   EXPECT_EQ(cut.code, 2);
   EXPECT_EQ(cut.out, "");
   EXPECT_NE(cut.err.find(fifo + ":2: error: expected a protocol"), std::string::npos) << cut.err;
   EXPECT_NE(cut.err.find("got 'eb'"), std::string::npos) << cut.err;
}

TEST_F(RpolicyIoTest, FailedWritesExitTwo) {
   const std::vector<std::vector<std::string>> commands = {
       {"eval", kConf, kRoutes, "--route-map", "EDGE-IN"},
       {"eval", kConf, kRoutes, "--route-map", "EDGE-IN", "--json", "--threads", "2"},
       {"test", kConf, kCases, "--route-map", "EDGE-IN"},
       {"check", kConf},
       {"show", kConf},
       {"graph", kConf},
       {"--help"},
   };
   // Refused after 10 bytes, or refused only by the last flush: in both, results are lost.
   for (const bool failOnFlush : {false, true}) {
      for (const auto& args : commands) {
         SCOPED_TRACE(::testing::PrintToString(args) + (failOnFlush ? " on flush" : ""));
         FailingOutput buf(failOnFlush ? std::string::npos : 10, failOnFlush);
         std::istringstream in;
         std::ostream out(&buf);
         std::ostringstream err;
         EXPECT_EQ(rpolicy(args, in, out, err), 2);
         EXPECT_EQ(err.str(),
                   "rpolicy: cannot write to standard output; the output is incomplete\n");
      }
   }

   // A lost warning is a failure too, though every result got out...
   const std::string warn = write("warn.conf", "route-map RM permit 10\n set metric 5\n");
   FailingOutput brokenErr(0, false);
   std::ostream err(&brokenErr);
   std::istringstream in("10.0.0.0/8\n");
   std::ostringstream out;
   EXPECT_EQ(rpolicy({"eval", warn, "--route-map", "RM", "--profile", "common"}, in, out, err), 2);
   EXPECT_EQ(out.str(), "10.0.0.0/8 permit tag=0 preference=0 metric=none\n");
   // ... but a broken standard error that nothing was written to changes nothing.
   FailingOutput brokenErr2(0, false);
   std::ostream err2(&brokenErr2);
   std::istringstream in2("10.0.0.0/8\n");
   std::ostringstream out2;
   EXPECT_EQ(rpolicy({"eval", kConf, "--route-map", "EDGE-IN"}, in2, out2, err2), 0);
}

std::string manyLines(std::size_t n, const std::string& line) {
   std::string out;
   for (std::size_t i = 0; i < n; ++i) out += line + "\n";
   return out;
}

TEST_F(RpolicyIoTest, AFloodOfErrorsShowsTheFirstHundredAndCountsTheRest) {
   const Outcome routes =
       rpolicy({"eval", kConf, "-", "--route-map", "EDGE-IN"}, manyLines(250, "10.0.0.0/8 x=1"));
   EXPECT_EQ(routes.code, 2);
   EXPECT_EQ(routes.out, "");
   const auto shown = lines(routes.err);
   ASSERT_EQ(shown.size(), 101u) << routes.err;
   EXPECT_EQ(shown[99].rfind("<stdin>:100: error: unknown route attribute 'x'", 0), 0u);
   EXPECT_EQ(shown[100], "... and 150 more errors");

   const Outcome cases = rpolicy({"test", kConf, "-", "--route-map", "EDGE-IN"},
                                 manyLines(101, "10.0.0.0/8 => maybe"));
   EXPECT_EQ(cases.code, 2);
   EXPECT_EQ(lines(cases.err).back(), "... and 1 more error");

   // 300 warnings, then one error: the error is shown, and the summary counts everything.
   std::string text;
   for (int seq = 1; seq <= 300; ++seq) {
      text += "route-map RM permit " + std::to_string(seq) + "\n set metric 5\n";
   }
   const std::string conf = write("flood.conf", text + "bogus\n");
   const Outcome check = rpolicy({"check", conf, "--profile", "common"});
   EXPECT_EQ(check.code, 1);
   const auto out = lines(check.out);
   ASSERT_EQ(out.size(), 102u) << check.out;
   EXPECT_EQ(out[98], conf +
                          ":198: warning: route-map RM seq 99: set metric is not evaluated under "
                          "profile common");
   EXPECT_EQ(out[99], conf + ":601: error: unknown command 'bogus'");
   EXPECT_EQ(out[100], "... and 201 more warnings");
   EXPECT_EQ(out[101], conf + ": 1 error, 300 warnings");

   const Outcome eval =
       rpolicy({"eval", conf, "--route-map", "RM", "--profile", "common"}, "10.0.0.0/8\n");
   EXPECT_EQ(eval.code, 2);
   ASSERT_EQ(lines(eval.err).size(), 101u);
   EXPECT_EQ(lines(eval.err)[99], conf + ":601: error: unknown command 'bogus'");
}

TEST_F(RpolicyIoTest, FailedCaseLinesAreShownEscaped) {
   // A carriage return inside a line separates words, so the case is valid; its FAIL line must
   // not send the cursor back over what it printed.
   const std::string cases = write("cr.txt", "10.0.0.0/8\rprotocol=ebgp => permit\n");
   const Outcome failed = rpolicy({"test", kConf, cases, "--route-map", "EDGE-IN"});
   EXPECT_EQ(failed.code, 1);
   EXPECT_NE(failed.out.find(": FAIL: 10.0.0.0/8\\x0Dprotocol=ebgp => permit\n"), std::string::npos)
       << failed.out;
}

// The built binary, with its standard streams set up by the shell: main()'s own buffers are
// what these cover.
int shell(const std::string& command) {
   const int status = std::system(command.c_str());
   return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(RpolicyIoTest, TheBinaryReportsFailedStandardStreams) {
   if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
   const std::string bin = RP_RPOLICY_BINARY;
   const std::string errFile = (dir_ / "err").string();
   const std::string eval = bin + " eval " + kConf + " - --route-map EDGE-IN";
   struct Row {
      std::string command;
      std::string err;
   };
   const Row rows[] = {
       {eval + " < " + kRoutes + " > /dev/full",
        "rpolicy: cannot write to standard output: No space left on device; the output is "
        "incomplete\n"},
       {bin + " check " + kConf + " >&-",
        "rpolicy: cannot write to standard output: Bad file descriptor; the output is "
        "incomplete\n"},
       {eval + " < " + dir_.string() + " > /dev/null",
        "rpolicy: cannot read standard input: Is a directory\n"},
   };
   for (const Row& row : rows) {
      SCOPED_TRACE(row.command);
      EXPECT_EQ(shell(row.command + " 2> " + errFile), 2);
      EXPECT_EQ(fileText(errFile), row.err);
   }
   // Standard error broken as well: the exit code is all that is left to tell.
   EXPECT_EQ(shell(eval + " < " + kRoutes + " > /dev/full 2> /dev/full"), 2);
   EXPECT_EQ(shell(eval + " < " + kRoutes + " > /dev/null 2> /dev/full"), 0);
}

TEST_F(RpolicyIoTest, ProgressOnATerminalEndsBeforeTheWriteFailure) {
   if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
   // More routes than the progress threshold, on a pseudo-terminal as standard error.
   const std::string routes = write("many.txt", manyLines(10001, "198.18.4.0/24 protocol=ebgp"));
   const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
   ASSERT_GE(master, 0);
   ASSERT_EQ(::grantpt(master), 0);
   ASSERT_EQ(::unlockpt(master), 0);
   const int slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
   ASSERT_GE(slave, 0);
   const std::string bin = RP_RPOLICY_BINARY;
   const pid_t pid = ::fork();
   ASSERT_GE(pid, 0);
   if (pid == 0) {
      const int full = ::open("/dev/full", O_WRONLY);
      const int in = ::open(routes.c_str(), O_RDONLY);
      ::dup2(in, 0);
      ::dup2(full, 1);
      ::dup2(slave, 2);
      ::execl(bin.c_str(), bin.c_str(), "eval", kConf.c_str(), "--route-map", "EDGE-IN",
              static_cast<char*>(nullptr));
      ::_exit(127);
   }
   ::close(slave);
   std::string seen;
   char buf[4096];
   for (ssize_t n; (n = ::read(master, buf, sizeof buf)) > 0;)
      seen.append(buf, n);  // EIO at hangup
   ::close(master);
   int status = 0;
   ASSERT_EQ(::waitpid(pid, &status, 0), pid);
   ASSERT_TRUE(WIFEXITED(status));
   EXPECT_EQ(WEXITSTATUS(status), 2);
   // The terminal turns "\n" into "\r\n". The last progress line is ended, so the message that
   // follows is not drawn over it.
   EXPECT_NE(seen.find("evaluated 10001/10001 routes\r\nrpolicy: cannot write to standard output: "
                       "No space left on device; the output is incomplete\r\n"),
             std::string::npos)
       << seen;
}

}  // namespace
