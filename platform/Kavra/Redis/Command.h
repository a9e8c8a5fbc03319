#pragma once

#include <string>
#include <vector>

namespace Kavra::Redis {

// A command and its arguments, any octets each.
using Command = std::vector<std::string>;

}  // namespace Kavra::Redis
