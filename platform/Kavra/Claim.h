#pragma once

#include <set>
#include <string>

#include "Qel/String.h"

namespace Kavra {

// Who publishes, and what it answers for in a database.
struct Claim {
  // Whether a path is among what it answers for.
  bool covers(const Qel::String& path) const noexcept;
  bool overlaps(const Claim& other) const noexcept;
  // Tells publishers apart: host, boot, file and prefix. One that was started again has the name
  // that it had.
  std::string name() const;
  // Where it runs and what it publishes, for messages.
  Qel::String publisher() const;
  friend bool operator==(const Claim& a, const Claim& b) = default;

  Qel::String host;
  Qel::String
      boot;  // tells hosts of one name apart, and a host from what it was before it went down
  Qel::String file;
  // Paths, and what ends in '/' and stands for every path that begins so.
  std::set<Qel::String> places;
};

}  // namespace Kavra
