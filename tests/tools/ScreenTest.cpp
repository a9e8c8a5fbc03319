#include "tools/Screen.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "Kavra/FileDescriptor.h"

namespace Tools {
namespace {

// A terminal of the test's own, and an environment that says what is common.
class ScreenTest : public testing::Test {
 protected:
  ScreenTest() {
    int keyboard = -1;
    int screen = -1;
    if (::openpty(&keyboard, &screen, nullptr, nullptr, nullptr) != 0) {
      throw std::runtime_error("no terminal");
    }
    keyboard_ = Kavra::FileDescriptor(keyboard);
    terminal_ = Kavra::FileDescriptor(screen);
    ::setenv("TERM", "xterm", 1);
    ::unsetenv("NO_COLOR");
  }
  void columnsAre(unsigned short columns) const {
    const winsize size{24, columns, 0, 0};
    ASSERT_EQ(::ioctl(terminal_.fd(), TIOCSWINSZ, &size), 0);
  }
  Screen screen() const { return screenOf(terminal_.fd()); }

  Kavra::FileDescriptor keyboard_;
  Kavra::FileDescriptor terminal_;
};

TEST_F(ScreenTest, HasTheColumnsOfATerminalAsFarAsTheyAreOfUse) {
  for (const auto& [columns, used] :
       {std::pair(80, 80U), {132, 100U}, {60, 60U}, {12, 40U}, {0, 80U}}) {
    columnsAre(static_cast<unsigned short>(columns));
    EXPECT_EQ(screen().columns, used) << columns;
  }
}

TEST_F(ScreenTest, TakesColourOnATerminalUnlessTheUserWantsNone) {
  EXPECT_TRUE(screen().takesColour);
  ::setenv("NO_COLOR", "", 1);
  EXPECT_TRUE(screen().takesColour) << "an empty one says nothing";
  ::setenv("NO_COLOR", "1", 1);
  EXPECT_FALSE(screen().takesColour);
  ::unsetenv("NO_COLOR");
  ::setenv("TERM", "dumb", 1);
  EXPECT_FALSE(screen().takesColour);
  ::unsetenv("TERM");
  EXPECT_FALSE(screen().takesColour);
}

TEST_F(ScreenTest, IsPlainAndOf80ColumnsInAFile) {
  columnsAre(60);
  const Kavra::FileDescriptor file(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(screenOf(file.fd()).columns, 80U);
  EXPECT_FALSE(screenOf(file.fd()).takesColour);
}

}  // namespace
}  // namespace Tools
