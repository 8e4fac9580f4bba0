#include "Kel/Assert.h"
#include "Kel/Exception.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace {

int* nothing() { return nullptr; }

TEST(KelAssertDeathTest, PrintsTheExpandedExpressionText) {
   // NULL reaches the message in the form the compiler expands it to.
   EXPECT_DEATH(KEL_ASSERT(NULL != nothing()), "Assertion `__null != nothing\\(\\)' failed");
   EXPECT_DEATH(KEL_ASSERT(0 && "Must override in derived class"),
                "`0 && \"Must override in derived class\"'");
}

TEST(KelExceptionTest, EnumRangeTextNamesTheType) {
   try {
      Kel::checkEnumRange<U32>("RmPrecedence", 13, 0, 12);
      FAIL() << "no exception";
   } catch (const Kel::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "RmPrecedence::value < RmPrecedence::min or > RmPrecedence::max not allowed");
   }
   EXPECT_NO_THROW(Kel::checkEnumRange<U32>("RmPrecedence", 12, 0, 12));
}

}  // namespace
