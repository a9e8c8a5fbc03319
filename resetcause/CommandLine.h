#pragma once

#include <iosfwd>

namespace ResetCause {

// What norvek-reset-cause does with its arguments. The exit status: 0, 1 with a line on `err` where
// something failed, or 2 where it was called wrongly.
int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace ResetCause
