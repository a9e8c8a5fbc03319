#pragma once

#include "Qel/String.h"

namespace System {

// One cause of a reload, as the platform recorded it. A plain value.
class ResetCause {
 public:
  ResetCause() = default;
  ResetCause(Qel::String description, double time, Qel::String recommendedAction = {},
             Qel::String detail = {});

  const Qel::String& description() const noexcept { return description_; }
  // Seconds since 1970-01-01 UTC, fractions included.
  double time() const noexcept { return time_; }
  const Qel::String& recommendedAction() const noexcept { return recommendedAction_; }
  const Qel::String& detail() const noexcept { return detail_; }

  friend bool operator==(const ResetCause& a, const ResetCause& b) = default;

 private:
  Qel::String description_;
  double time_ = 0.0;
  Qel::String recommendedAction_;
  Qel::String detail_;
};

}  // namespace System
