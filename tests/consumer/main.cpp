// A program outside the tree, built against the installed package only.
#include <Kel/Assert.h>
#include <Kel/Types.h>

#include <cstdio>

int main() {
   KEL_ASSERT(Kel::stringHash("") == 0u);
   std::puts("consumer ok");
   return 0;
}
