#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tools {

// What norvek-reset-cause found out about a cause, and put into the cause's detail. Its lines are
// "boot: ID", "when: TIME", "how sure: WORD", "rule: NUMBER", where it could have been something
// else "but: WHAT", and one for each piece of evidence.
struct RecordedVerdict {
  std::string boot;  // that came after the reload; empty where nobody knew
  // The window in which it was, in seconds since 1970 UTC: its begin, where anybody knows, and its
  // end. Neither where the moment is known.
  std::optional<double> since;
  std::optional<double> until;
  std::string confidence;  // certain, likely, possible, unknown
  std::string rule;
  std::string orElse;  // what it could have been as well; empty for nothing
  std::vector<std::string> evidence;
};

// The verdict that a detail holds; nothing where it is any other text.
std::optional<RecordedVerdict> verdictIn(std::string_view detail);

}  // namespace Tools
