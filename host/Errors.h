#pragma once

#include <stdexcept>

namespace Host {

// What the user typed cannot be obeyed: one line for standard error, exit status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What was asked for cannot be done here and now: one line for standard error, exit status 1.
class StartError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Host
