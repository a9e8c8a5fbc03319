#pragma once

#include <iosfwd>

#include "tools/Screen.h"

namespace Tools {

// Runs the command that the arguments tell of. Returns the exit status: 0, or 1 after one line on
// `err` that says what is wrong. `screen` is what is behind `out`.
int runCommandLine(int argc, const char* const* argv, std::istream& in, std::ostream& out,
                   std::ostream& err, const Screen& screen = {});

}  // namespace Tools
