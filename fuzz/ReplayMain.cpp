// Without a fuzzing engine (the usual compiler), a fuzz target is built with this driver: it
// feeds each file named on the command line through the target once, so the tests keep the
// targets compiling and replay their seed inputs.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
   for (int i = 1; i < argc; ++i) {
      std::ifstream f(argv[i], std::ios::binary);
      if (!f) {
         std::fprintf(stderr, "cannot read %s\n", argv[i]);
         return 2;
      }
      const std::string bytes{std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      std::printf("%s: ok\n", argv[i]);
   }
   return 0;
}
