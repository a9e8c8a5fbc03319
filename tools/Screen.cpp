#include "tools/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace Tools {

namespace {

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

Screen screenOf(int fd) {
  // Longer lines are hard to read, shorter ones leave the texts no room.
  constexpr std::size_t kLeast = 40;
  constexpr std::size_t kMost = 100;
  Screen screen;
  if (::isatty(fd) == 0) return screen;
  winsize size{};
  // A terminal that knows no width of its own says 0.
  if (::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    screen.columns = std::clamp<std::size_t>(size.ws_col, kLeast, kMost);
  }
  const std::string_view terminal = environment("TERM");
  screen.takesColour = environment("NO_COLOR").empty() && !terminal.empty() && terminal != "dumb";
  return screen;
}

}  // namespace Tools
