#pragma once

#include "Qel/PtrInterface.h"

namespace Qel {

// Source of the time of day. Logic takes one as an argument, so that tests decide what time it is.
class Clock : public PtrInterface {
 public:
  // Seconds since 1970-01-01 UTC, fractions included.
  virtual double now() const = 0;
};

// The computer's own clock.
class SystemClock final : public Clock {
 public:
  double now() const override;
};

}  // namespace Qel
