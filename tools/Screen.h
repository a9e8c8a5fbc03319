#pragma once

#include <cstddef>

namespace Tools {

// Where output goes, as far as that matters for how it looks. By default a pipe or a file.
struct Screen {
  std::size_t columns = 80;
  bool takesColour = false;
};

// What is behind a descriptor: the width of a terminal, and whether the user wants colour there
// (TERM, NO_COLOR of the environment).
Screen screenOf(int fd);

}  // namespace Tools
