#pragma once

#include <stdexcept>

namespace Tools {

// What a command cannot do, in one line for the one who typed it.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Tools
