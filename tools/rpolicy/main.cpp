#include <iostream>

#include "Commands.h"

int main(int argc, char** argv) {
   return rpolicy::runRpolicy(argc, argv, std::cin, std::cout, std::cerr);
}
