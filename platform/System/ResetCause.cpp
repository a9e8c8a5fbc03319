#include "System/ResetCause.h"

#include <utility>

namespace System {

ResetCause::ResetCause(Qel::String description, double time, Qel::String recommendedAction,
                       Qel::String detail)
    : description_(std::move(description)),
      time_(time),
      recommendedAction_(std::move(recommendedAction)),
      detail_(std::move(detail)) {}

}  // namespace System
