// Without a fuzzing engine (the usual compiler), a fuzz target is built with this driver: it
// feeds each file named on the command line, and each file of each directory named (a corpus),
// through the target once, so the tests keep the targets compiling and replay their inputs. A
// target reports a failed check by aborting, which fails the test.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replay(const std::filesystem::path& file) {
   std::ifstream f(file, std::ios::binary);
   if (!f) {
      std::fprintf(stderr, "cannot read %s\n", file.c_str());
      return false;
   }
   const std::string bytes{std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
   LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
   return true;
}

}  // namespace

int main(int argc, char** argv) {
   for (int i = 1; i < argc; ++i) {
      const std::filesystem::path arg(argv[i]);
      std::error_code ec;
      if (!std::filesystem::is_directory(arg, ec)) {
         if (!replay(arg)) return 2;
         std::printf("%s: ok\n", argv[i]);
         continue;
      }
      // Sorted, so that a failure names the same input on every run.
      std::vector<std::filesystem::path> files;
      for (const auto& entry : std::filesystem::directory_iterator(arg, ec)) {
         if (entry.is_regular_file()) files.push_back(entry.path());
      }
      if (ec) {
         std::fprintf(stderr, "cannot list %s: %s\n", argv[i], ec.message().c_str());
         return 2;
      }
      if (files.empty()) {
         // An empty corpus would replay nothing and pass; that is a broken checkout.
         std::fprintf(stderr, "no inputs in %s\n", argv[i]);
         return 2;
      }
      std::sort(files.begin(), files.end());
      for (const auto& file : files) {
         if (!replay(file)) return 2;
      }
      std::printf("%s: %zu inputs ok\n", argv[i], files.size());
   }
   return 0;
}
