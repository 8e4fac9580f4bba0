#pragma once
// The one assertion of the framework: invariant breaches stop the process after printing the
// expression text. The expression goes through one level of macro expansion before it is turned
// into text, so `KEL_ASSERT(NULL == p)` reports "__null == p" exactly as the compiler sees it;
// the library's messages are written in that expanded form.

namespace Kel {
[[noreturn]] void assertionFailed(const char* expr, const char* file, unsigned line,
                                  const char* function) noexcept;
}

#define KEL_ASSERT_TEXT_(...) #__VA_ARGS__
#define KEL_ASSERT_CHECK_(cond, text)                                               \
   do {                                                                             \
      if (!(cond)) [[unlikely]] {                                                   \
         ::Kel::assertionFailed(text, __FILE__, __LINE__, __PRETTY_FUNCTION__);     \
      }                                                                             \
   } while (false)
#define KEL_ASSERT_EXPANDED_(...) KEL_ASSERT_CHECK_((__VA_ARGS__), KEL_ASSERT_TEXT_(__VA_ARGS__))
#define KEL_ASSERT(...) KEL_ASSERT_EXPANDED_(__VA_ARGS__)
