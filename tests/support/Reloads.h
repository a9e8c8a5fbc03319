#pragma once

#include <string>
#include <vector>

#include "Qel/Ptr.h"
#include "System/ResetCause.h"
#include "System/ResetInstance.h"

namespace support {

// The latest reload of a cell, with these causes in this order.
inline Qel::Ptr<System::ResetInstance> reload(const std::vector<System::ResetCause>& causes = {}) {
  auto instance = Qel::make<System::ResetInstance>(0U);
  instance->causeQIs(causes);
  return instance;
}

// A reload with that many causes, described "cause 1", "cause 2", ... at the times 1, 2, ...
inline Qel::Ptr<System::ResetInstance> reloadOf(unsigned count) {
  std::vector<System::ResetCause> causes;
  for (unsigned i = 1; i <= count; ++i)
    causes.emplace_back("cause " + std::to_string(i), double{1} * i);
  return reload(causes);
}

}  // namespace support
