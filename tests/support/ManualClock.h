#pragma once

#include "Qel/Clock.h"

namespace support {

// A clock that stands still until it is told otherwise.
class ManualClock final : public Qel::Clock {
 public:
  explicit ManualClock(double now = 1700000000.0) : now_(now) {}

  double now() const override { return now_; }
  void nowIs(double now) { now_ = now; }
  void advance(double seconds) { now_ += seconds; }

 private:
  double now_;
};

}  // namespace support
