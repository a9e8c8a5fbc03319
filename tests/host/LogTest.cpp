#include "host/Log.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <string>

#include "Qel/Trace.h"
#include "host/LogPump.h"
#include "support/ManualEventLoop.h"

namespace Host {
namespace {

using testing::HasSubstr;
using testing::Not;

struct Pipe {
  Pipe() {
    EXPECT_EQ(::pipe(ends), 0);
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    for (const int end : ends) ::close(end);
  }

  int ends[2];
};

// A log whose reader reads when the test says so, and whose clock is the test's.
class LogTest : public testing::Test {
 protected:
  std::string read() {
    std::string all;
    std::string piece(PIPE_BUF, '\0');
    for (ssize_t count = 0; (count = ::read(pipe_.ends[0], piece.data(), piece.size())) > 0;) {
      all.append(piece, 0, static_cast<std::size_t>(count));
    }
    return all;
  }
  // Details until the pipe is full and the last was left out.
  void fill() {
    while (!log_.hasMoreToTell()) log_.detail(LOG_DEBUG, std::string(1000, '.'));
  }
  std::string streamOf(int fd) const {
    struct stat facts {};
    ::fstat(fd, &facts);
    return fmt::format("{}:{}", facts.st_dev, facts.st_ino);
  }
  void pass(double time) {
    now_ += std::chrono::milliseconds(static_cast<int>(time * 1000));
    loop_.advance(time);
  }

  const Pipe pipe_;
  Repetitions::Time now_{std::chrono::seconds(100)};
  Log log_{pipe_.ends[1], "", [this] { return now_; }};
  support::ManualEventLoop loop_;
};

TEST_F(LogTest, WritesALineWhateverTheTextHolds) {
  log_.line(LOG_ERR, "two\nlines");
  EXPECT_EQ(read(), "norvek-snmpd: two\\nlines\n");
}

TEST_F(LogTest, TellsTheJournalTheLevel) {
  Log journal(pipe_.ends[1], streamOf(pipe_.ends[1]));
  journal.line(LOG_ERR, "lost");
  journal.detail(LOG_DEBUG, "more");
  EXPECT_EQ(read(), "<3>norvek-snmpd: lost\n<7>norvek-snmpd: more\n");
}

TEST_F(LogTest, TellsOthersThanTheJournalNoLevel) {
  Log terminal(pipe_.ends[1], streamOf(pipe_.ends[0]) + "1");
  terminal.line(LOG_ERR, "lost");
  EXPECT_EQ(read(), "norvek-snmpd: lost\n");
}

TEST_F(LogTest, CountsWhatAStalledReaderMissesAndTellsTheReaderThatIsBack) {
  const LogPump pump(log_, loop_);
  fill();
  log_.line(LOG_ERR, "missed");
  pass(1);
  EXPECT_THAT(read(), Not(HasSubstr("left out")));
  pass(1);
  EXPECT_EQ(read(), "norvek-snmpd: lines left out because nobody read them: 2\n");
  EXPECT_FALSE(log_.hasMoreToTell());
  EXPECT_EQ(loop_.timers(), 0U);
}

TEST_F(LogTest, TellsWhatWasMissedBeforeTheNextLine) {
  fill();
  read();
  log_.line(LOG_ERR, "seen");
  EXPECT_EQ(read(),
            "norvek-snmpd: lines left out because nobody read them: 1\nnorvek-snmpd: seen\n");
}

TEST_F(LogTest, TellsTheSameEventOnceASecond) {
  const LogPump pump(log_, loop_);
  for (int time = 0; time < 3; ++time) log_.line(LOG_ERR, "lost");
  log_.line(LOG_ERR, "found");
  EXPECT_EQ(read(), "norvek-snmpd: lost\nnorvek-snmpd: found\n");
  pass(1);
  EXPECT_EQ(read(), "norvek-snmpd: lost (2 more)\n");
  EXPECT_EQ(loop_.timers(), 0U);
}

TEST_F(LogTest, TellsWhatWasHeldBackAtTheEnd) {
  {
    const LogPump pump(log_, loop_);
    log_.line(LOG_ERR, "lost");
    log_.line(LOG_ERR, "lost");
  }
  EXPECT_EQ(read(), "norvek-snmpd: lost\nnorvek-snmpd: lost (1 more)\n");
}

TEST_F(LogTest, RepeatsDetailsThatWereAskedFor) {
  log_.detail(LOG_DEBUG, "row");
  log_.detail(LOG_DEBUG, "row");
  EXPECT_EQ(read(), "norvek-snmpd: row\nnorvek-snmpd: row\n");
}

TEST(ProcessLog, WritesToStandardError) {
  testing::internal::CaptureStderr();
  logLine("written to standard error");
  logTrace({"Kavra", 0, "", 0, "", "traced to standard error"});
  logTrace({"Kavra", 8, "", 0, "", "detail"});
  logTrace({"Kavra", 8, "", 0, "", "detail"});
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "norvek-snmpd: written to standard error\n"
            "norvek-snmpd: Kavra 0: traced to standard error\n"
            "norvek-snmpd: Kavra 8: detail\n"
            "norvek-snmpd: Kavra 8: detail\n");
}

}  // namespace
}  // namespace Host
