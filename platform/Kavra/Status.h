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
  // Changes when the database lost what it held; empty where the store has no such thing.
  Qel::String epoch;
  // Names the last change that was seen; empty where the store does not number them.
  Qel::String lastId;
  // Seconds since what is served was published; absent when nothing ever was read.
  std::optional<double> age;
  std::vector<Quarantine> quarantined;
};

}  // namespace Kavra
