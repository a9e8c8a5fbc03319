#pragma once

namespace Qel {

// Writes "assertion failed: EXPRESSION (FILE:LINE, FUNCTION)" to standard error and aborts.
[[noreturn]] void assertionFailed(const char* expression, const char* file, int line,
                                  const char* function) noexcept;

}  // namespace Qel

// Ends the process when `expression` is false, in every build type: it guards promises whose
// breach would make the agent serve wrong answers. A macro, because it reports the text.
#define QEL_ASSERT(expression) \
  ((expression) ? void() : Qel::assertionFailed(#expression, __FILE__, __LINE__, __func__))
