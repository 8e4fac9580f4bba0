#include <unistd.h>

#include <iostream>

#include "Commands.h"
#include "FdStream.h"

int main(int argc, char** argv) {
   // Standard input and output on buffers that report failures (see FdStream.h). Standard error
   // stays std::cerr: its failures set badbit all the same, and progress is shown only there.
   rpolicy::FdInBuf inBuf(STDIN_FILENO);
   rpolicy::FdOutBuf outBuf(STDOUT_FILENO);
   std::istream in(&inBuf);
   std::ostream out(&outBuf);
   return rpolicy::runRpolicy(argc, argv, in, out, std::cerr);
}
