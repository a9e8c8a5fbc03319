#pragma once

#include <ostream>
#include <string>

namespace Tools {

// Where agents have their status sockets, where nobody says otherwise.
constexpr char kStatusFolder[] = "/run/norvek/";

// Prints what the agent that listens at the Unix socket `path` serves, as JSON or as a table; with
// an empty path, at the only socket in kStatusFolder. Raises CommandError when no agent answers
// within 5 s, and, after it has printed, when not all that the agent serves is fresh.
void printAgentStatus(const std::string& path, bool asJson, std::ostream& out);

}  // namespace Tools
