#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "Qel/Types.h"

namespace Host {

// Decides when the causes of which unit are news.
//
// A unit is known from its first causes on, of which nobody is told; they are news whenever they
// are others than those told (or first seen) last. After news of a unit there is none of it for
// kInterval: the causes of its end count then, if they still are others. Causes that go are no
// news; those that come after them are compared with the same as before. Units share nothing.
class ReloadNews {
 public:
  using Digest = std::uint64_t;
  // Of what was told of a unit last.
  using Told = std::map<U32, Digest>;

  static constexpr double kInterval = 10;  // seconds

  explicit ReloadNews(Told told) : told_(std::move(told)) {}

  // The unit has these causes now, or none. Returns whether they are the first of an unknown unit.
  bool causesAre(U32 unit, std::optional<Digest> causes);
  // The units of which there is news at the time `now`, in seconds from any beginning. They count
  // as told from here on.
  std::vector<U32> take(double now);
  // When there will be news, at the earliest, with the causes that there are; nothing for never.
  // It may have passed.
  std::optional<double> next() const;

 private:
  struct Unit {
    std::optional<Digest> causes;
    double quietUntil = 0;
  };

  bool isNews(U32 number, const Unit& unit) const;

  Told told_;
  std::map<U32, Unit> units_;
};

}  // namespace Host
