#pragma once

#include <ostream>

#include "Qel/Types.h"

namespace Redundancy {

// How the two supervisors of a device back each other up. Any number may be published; only those
// below have names.
enum class RedundancyProtocol : U32 {
  none = 0,         // one supervisor works alone
  coldStandby = 1,  // the peer starts when it takes over
  warmStandby = 2,  // the peer runs, without the state of the active one
  hotStandby = 3,   // the peer follows the active one and publishes its own state
};

// The value's name, or "RedundancyProtocol(N)" for a number without one.
std::ostream& operator<<(std::ostream& out, RedundancyProtocol protocol);

}  // namespace Redundancy
