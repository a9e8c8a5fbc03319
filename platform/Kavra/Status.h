#pragma once

#include <optional>
#include <vector>

#include "Qel/String.h"

namespace Kavra {

// A document that was refused; its path is still served as it was last seen to be good.
struct Quarantine {
  Qel::String path;
  Qel::String why;

  friend bool operator==(const Quarantine& a, const Quarantine& b) = default;
};

// How a state database stands at the moment.
struct Status {
  bool reachable = false;
  Qel::String problem;  // why not; empty when all is well
  // Changes when the database lost what it held; absent where the store has no such thing.
  std::optional<Qel::String> epoch;
  // Names the last change that was seen; absent where the store does not number them.
  std::optional<Qel::String> lastId;
  // Seconds since what is served was published; absent when nothing ever was read.
  std::optional<double> age;
  std::vector<Quarantine> quarantined;
};

}  // namespace Kavra
