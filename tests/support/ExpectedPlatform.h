#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

// What the platform knows and what the reload-cause table must hold for it, told a second time in
// plain values, without any of the product's code. Random histories compare the two.
namespace expected {

using Number = std::uint32_t;

struct Cause {
  Number key = 0;
  std::string description;
  double time = 0.0;
};

// One reload. Two reloads are different ones even when all their causes are equal.
struct Reload {
  std::vector<Cause> causes;

  // Appends under the key that follows the last one's; 0 where there is none.
  void push(const std::string& description, double time);
  bool del(Number key);
  // Keys count from 0 again. False, with nothing changed, when all is equal already.
  bool replace(const std::vector<Cause>& replacement);
  // The cause under `key`, or an empty one.
  Cause cause(Number key) const;
};
using ReloadPtr = std::shared_ptr<Reload>;

struct History {
  std::map<Number, ReloadPtr> reloads;

  // The reload under `index`, or null.
  ReloadPtr reload(Number index) const;
};
using HistoryPtr = std::shared_ptr<History>;

struct Redundancy {
  Number protocol = 0;
  bool switchoverCapable = false;
};
using RedundancyPtr = std::shared_ptr<Redundancy>;

// What the product raises when a key is given to another object.
struct NameInUse {};

}  // namespace expected
