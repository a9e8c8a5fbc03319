#include "host/LogWriter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string>
#include <utility>

namespace Host {
namespace {

// Two ends of which one is written to and the other one is read.
class LogWriterTest : public testing::Test {
 protected:
  ~LogWriterTest() override {
    for (const int end : ends_) ::close(end);
  }
  void pipe() {
    ASSERT_EQ(::pipe(ends_), 0);
    ASSERT_GT(::fcntl(ends_[1], F_SETPIPE_SZ, 2 * PIPE_BUF), 0);
  }
  void socket(int type) { ASSERT_EQ(::socketpair(AF_UNIX, type, 0, ends_), 0); }
  void terminal() {
    termios raw{};
    ::cfmakeraw(&raw);
    ASSERT_EQ(::openpty(&ends_[0], &ends_[1], nullptr, &raw, nullptr), 0);
  }
  int writeEnd() const { return ends_[1]; }
  // What is there to be read, without waiting.
  std::string read() {
    std::string all;
    std::string piece(PIPE_BUF, '\0');
    ::fcntl(ends_[0], F_SETFL, O_NONBLOCK);
    for (ssize_t count = 0; (count = ::read(ends_[0], piece.data(), piece.size())) > 0;) {
      all.append(piece, 0, static_cast<std::size_t>(count));
    }
    return all;
  }
  // Writes numbered lines until none is taken; returns those taken.
  static std::string fill(LogWriter& writer) {
    std::string lines;
    for (int number = 0; number < 100000; ++number) {
      const std::string line = std::to_string(number) + std::string(100, '.') + "\n";
      if (!writer.write(line)) return lines;
      lines += line;
    }
    ADD_FAILURE() << "everything was taken";
    return lines;
  }

  int ends_[2] = {-1, -1};
};

TEST_F(LogWriterTest, LeavesOutWhatAFullPipeDoesNotTake) {
  pipe();
  LogWriter writer(writeEnd());
  const std::string taken = fill(writer);
  EXPECT_FALSE(writer.write("lost\n"));
  EXPECT_EQ(read(), taken);
  EXPECT_TRUE(writer.write("later\n"));
  EXPECT_EQ(read(), "later\n");
}

TEST_F(LogWriterTest, LeavesTheFlagsOfThePipeAsTheyAre) {
  pipe();
  const int before = ::fcntl(writeEnd(), F_GETFL);
  LogWriter writer(writeEnd());
  fill(writer);
  EXPECT_EQ(::fcntl(writeEnd(), F_GETFL), before);
}

TEST_F(LogWriterTest, FinishesALineThatWasTakenInPart) {
  pipe();
  LogWriter writer(writeEnd());
  const std::string line = std::string(2 * PIPE_BUF + 100, 'x') + "\n";
  EXPECT_TRUE(writer.write(line));
  EXPECT_FALSE(writer.write("next\n"));
  std::string seen = read();
  EXPECT_LT(seen.size(), line.size());
  EXPECT_TRUE(writer.write("next\n"));
  EXPECT_EQ(seen + read(), line + "next\n");
}

TEST_F(LogWriterTest, LeavesOutWhatAFullSocketDoesNotTake) {
  for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
    socket(type);
    LogWriter writer(writeEnd());
    const std::string taken = fill(writer);
    EXPECT_EQ(::fcntl(writeEnd(), F_GETFL) & O_NONBLOCK, 0);
    std::string seen = read();
    EXPECT_TRUE(writer.write("later\n"));
    EXPECT_EQ(seen + read(), taken + "later\n");
    for (const int end : ends_) ::close(end);
  }
  ASSERT_EQ(::pipe(ends_), 0);  // for the fixture to close
}

TEST_F(LogWriterTest, LeavesOutWhatAStoppedTerminalDoesNotTake) {
  terminal();
  LogWriter writer(writeEnd());
  EXPECT_TRUE(writer.write("before\n"));
  ASSERT_EQ(::tcflow(writeEnd(), TCOOFF), 0);  // as ^S does
  EXPECT_FALSE(writer.write("lost\n"));
  ASSERT_EQ(::tcflow(writeEnd(), TCOON), 0);
  EXPECT_TRUE(writer.write("after\n"));
  EXPECT_EQ(read(), "before\nafter\n");
}

TEST_F(LogWriterTest, AppendsToAFile) {
  ASSERT_EQ(::pipe(ends_), 0);
  std::FILE* file = std::tmpfile();
  std::fputs("earlier\n", file);
  std::fflush(file);
  LogWriter writer(::fileno(file));
  EXPECT_TRUE(writer.write("later\n"));
  std::rewind(file);
  char text[32] = {};
  EXPECT_EQ(std::fread(text, 1, sizeof text, file), 14U);
  EXPECT_STREQ(text, "earlier\nlater\n");
  std::fclose(file);
}

TEST_F(LogWriterTest, FollowsADescriptorThatIsPointedElsewhere) {
  pipe();
  LogWriter writer(writeEnd());
  fill(writer);
  int others[2];
  ASSERT_EQ(::pipe(others), 0);
  ASSERT_EQ(::dup2(others[1], ends_[1]), ends_[1]);
  ::close(others[1]);
  std::swap(others[0], ends_[0]);
  EXPECT_TRUE(writer.write("there\n"));
  EXPECT_EQ(read(), "there\n");
  ::close(others[0]);
}

TEST_F(LogWriterTest, OutlivesItsReader) {
  socket(SOCK_STREAM);
  LogWriter writer(writeEnd());
  ::close(std::exchange(ends_[0], -1));
  EXPECT_FALSE(writer.write("to nobody\n"));
}

}  // namespace
}  // namespace Host
