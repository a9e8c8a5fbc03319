#include "Redundancy/RedundancyProtocol.h"

#include <array>
#include <cstddef>

namespace Redundancy {

std::ostream& operator<<(std::ostream& out, RedundancyProtocol protocol) {
  constexpr std::array kNames{"none", "coldStandby", "warmStandby", "hotStandby"};
  const auto number = static_cast<std::size_t>(protocol);
  if (number < kNames.size()) return out << kNames[number];
  return out << "RedundancyProtocol(" << number << ')';
}

}  // namespace Redundancy
