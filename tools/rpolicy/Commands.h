#pragma once
// The rpolicy command line, callable in-process: main() only forwards to runRpolicy, so tests
// drive every command through the same parser and see the same output and exit code.

#include <iosfwd>

namespace rpolicy {

// Exit codes shared by all commands.
enum ExitCode : int {
   kOk = 0,
   kFailed = 1,  // check found errors, or a test case failed
   kUsage = 2,   // bad arguments, unreadable or invalid input
};

// `in` stands for standard input where a command reads "-". Progress is shown only when `err`
// is std::cerr and that is a terminal.
int runRpolicy(int argc, const char* const* argv, std::istream& in, std::ostream& out,
               std::ostream& err);

}  // namespace rpolicy
