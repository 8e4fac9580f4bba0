#pragma once
// What the tool's tests share: running a command in process with their own streams, the shipped
// examples, and a scratch directory per test for the files a test writes.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"

namespace rpolicy_test {

namespace fs = std::filesystem;

struct Outcome {
   int code;
   std::string out;
   std::string err;
};

inline int rpolicy(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                   std::ostream& err) {
   std::vector<const char*> argv{"rpolicy"};
   for (const std::string& a : args) argv.push_back(a.c_str());
   return rpolicy::runRpolicy(static_cast<int>(argv.size()), argv.data(), in, out, err);
}

inline Outcome rpolicy(const std::vector<std::string>& args, const std::string& input = "") {
   std::istringstream in(input);
   std::ostringstream out, err;
   const int code = rpolicy(args, in, out, err);
   return {code, out.str(), err.str()};
}

inline std::string example(const char* name) {
   return std::string(RP_EXAMPLES_DIR) + "/" + name;
}

inline std::vector<std::string> lines(const std::string& text) {
   std::vector<std::string> out;
   std::istringstream s(text);
   for (std::string l; std::getline(s, l);) out.push_back(l);
   return out;
}

// Files written by one test, removed with it.
class ScratchDirTest : public ::testing::Test {
protected:
   void SetUp() override {
      const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
      dir_ = fs::temp_directory_path() / ("rpolicy_tests_" + std::to_string(::getpid()) + "_" +
                                          test->test_suite_name() + "_" + test->name());
      fs::create_directories(dir_);
   }
   void TearDown() override { fs::remove_all(dir_); }

   std::string write(const std::string& name, const std::string& text) {
      const fs::path p = dir_ / name;
      std::ofstream(p, std::ios::binary) << text;
      return p.string();
   }

   fs::path dir_;
};

}  // namespace rpolicy_test
