#include "host/TerminationSignals.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>

#include "host/NetSnmpEventLoop.h"

namespace Host {
namespace {

class TerminationSignalsTest : public testing::TestWithParam<int> {};

TEST_P(TerminationSignalsTest, EndTheLoopEvenWhenTheyComeBeforeItRuns) {
  TerminationSignals signals;
  NetSnmpEventLoop loop;
  ASSERT_EQ(::kill(::getpid(), GetParam()), 0);
  int calls = 0;
  const auto watch = signals.watch(loop, [&] {
    ++calls;
    loop.stop();
  });
  loop.run();
  EXPECT_EQ(calls, 1);
}

INSTANTIATE_TEST_SUITE_P(Signals, TerminationSignalsTest, testing::Values(SIGTERM, SIGINT));

TEST(TerminationSignals, AreTakenTogether) {
  TerminationSignals signals;
  NetSnmpEventLoop loop;
  ::kill(::getpid(), SIGTERM);
  ::kill(::getpid(), SIGINT);
  int calls = 0;
  const auto watch = signals.watch(loop, [&] { ++calls; });
  const auto end = loop.timerIs(0.02, [&] { loop.stop(); });
  loop.run();
  EXPECT_EQ(calls, 1);
}

TEST(TerminationSignals, LeaveTheProcessAliveWhenAReaderGoes) {
  const TerminationSignals signals;
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  EXPECT_EQ(::write(ends[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  ::close(ends[1]);
}

}  // namespace
}  // namespace Host
