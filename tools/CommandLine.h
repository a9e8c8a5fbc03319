#pragma once

#include <iosfwd>

namespace Tools {

// Runs the command that the arguments tell of. Returns the exit status: 0, or 1 after one line on
// `err` that says what is wrong.
int runCommandLine(int argc, const char* const* argv, std::istream& in, std::ostream& out,
                   std::ostream& err);

}  // namespace Tools
