#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "resetcause/Evidence.h"

namespace ResetCause {

// How sure a cause is.
enum class Confidence {
  unknown,   // nothing tells
  possible,  // what was found fits other causes as well; the cause says which
  likely,    // inferred from what came just before
  certain,   // somebody or something that knows said so
};

std::string_view nameOf(Confidence confidence) noexcept;

// What is known of the two boots between which the machine reloaded. Boots follow each other as the
// journal orders them; times are those of the clock then, in seconds since 1970 UTC, and may go
// back.
struct Boots {
  std::string id = {};          // of this boot, 32 hexadecimal digits; empty where nobody knows
  double start = 0;             // when its kernel started
  std::string previousId = {};  // of the one before; empty where there is none on record
  std::optional<double> previousStart = {};
  std::optional<double> lastSign = {};  // of the one before: its last journal entry or heartbeat
  bool hasJournal = false;              // of the one before

  bool hasPrevious() const noexcept { return !previousId.empty() || previousStart; }
  // Whether the clock tells that this boot started before the last sign of the one before it.
  bool wentBack() const noexcept { return lastSign && start < *lastSign; }
  // From when on times are of the one before: its start, or else its last sign.
  std::optional<double> begin() const noexcept { return previousStart ? previousStart : lastSign; }
  // Whether a time, of the clock before the reload, is one between begin() and the start of this
  // boot, in whole seconds, as dumps have them. A clock that went back since is no end: then it is
  // an hour after the last sign. Where the clock was not set at the start before, nobody knows, and
  // it is not.
  bool cover(double time) const noexcept;
};

// What is to be said of the clocks; a sentence each, none where they fit.
std::vector<std::string> notesOf(const Boots& boots);

// One cause that the evidence names.
struct Cause {
  std::string rule = {};  // the number of the rule, as docs/reset-causes.md has it
  std::string text = {};  // any octets
  Confidence confidence = Confidence::unknown;
  std::optional<double> time = {};  // absent where there is but a window, which ends with the start
  std::optional<double> since = {};  // where that begins; absent where nobody knows
  std::string elseBe = {};           // what it could have been as well; empty where nothing
  std::string action = {};           // what is recommended
  std::vector<Evidence> evidence = {};

  friend bool operator==(const Cause&, const Cause&) = default;
};

// Why the machine reloaded: the cause that the first rule names, and those of later ones.
struct Verdict {
  Cause cause;
  std::vector<Cause> beside;

  friend bool operator==(const Verdict&, const Verdict&) = default;
};

}  // namespace ResetCause
