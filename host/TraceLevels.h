#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Options.h"

namespace Host {

// The levels of the trace facilities: those of the command line, and over them those of a file.
//
// The file has lines FACILITY=LEVEL, as --trace takes them; empty ones and those that begin with #
// say nothing.
class TraceLevels {
 public:
  // Sets them. Raises StartError naming the file, and the line, when it does not hold.
  explicit TraceLevels(const Options& options);
  TraceLevels(const TraceLevels&) = delete;
  TraceLevels& operator=(const TraceLevels&) = delete;
  // Puts every facility back to level 0.
  ~TraceLevels() { nothingIsTraced(); }

  // The same with the file as it is now; a facility that neither names any more is back at level 0.
  // When that raises, all levels stay.
  void readAgain();

 private:
  void nothingIsTraced();

  const std::vector<TraceOption> typed_;
  const std::optional<std::string> file_;
  std::vector<TraceOption> present_;
};

}  // namespace Host
