#include "Qel/Clock.h"

#include <chrono>

namespace Qel {

double SystemClock::now() const {
  using Seconds = std::chrono::duration<double>;
  return Seconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace Qel
