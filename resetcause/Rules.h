#pragma once

#include <string>
#include <vector>

#include "resetcause/Verdict.h"

namespace ResetCause {

// The line of `explain` for one rule.
struct Explanation {
  std::string rule;
  std::string name;
  bool matched;
  std::string reason;  // what was found, or what is missing or stands against it

  friend bool operator==(const Explanation&, const Explanation&) = default;
};

// Judges one reload by the rules of docs/reset-causes.md, in their order: the first that matches
// names the cause, later ones are kept beside it. The same evidence gives the same verdict,
// whatever its order; every verdict has a cause.
//
// `evidence` is of this reload alone: to leave out what is older is the sources' part.
Verdict verdictOf(const Boots& boots, const std::vector<Evidence>& evidence);

// Each rule, in order, and why it matched or not.
std::vector<Explanation> explanationsOf(const Boots& boots, const std::vector<Evidence>& evidence);

}  // namespace ResetCause
