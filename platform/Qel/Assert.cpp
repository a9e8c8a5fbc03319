#include "Qel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Qel {

void assertionFailed(const char* expression, const char* file, int line,
                     const char* function) noexcept {
  std::fprintf(stderr, "assertion failed: %s (%s:%d, %s)\n", expression, file, line, function);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Qel
