#include "Qel/PollEventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "Qel/ActivityManager.h"
#include "support/LiveObjects.h"

namespace {

using Qel::EventWatch;
using Qel::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kLong = 10.0;

// Two connected ends of a stream.
struct Pair {
  Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0); }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;
  ~Pair() {
    closeEnd(0);
    closeEnd(1);
  }
  void closeEnd(int index) {
    if (ends[index] >= 0) close(ends[index]);
    ends[index] = -1;
  }
  void send() { EXPECT_EQ(write(ends[1], "x", 1), 1); }
  void receive() {
    char octet = 0;
    EXPECT_EQ(read(ends[0], &octet, 1), 1);
  }
  int ends[2] = {-1, -1};
};

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class PollEventLoopTest : public support::LiveObjectsTest {
 protected:
  std::function<void()> noting(const std::string& what) {
    return [this, what] { log_.push_back(what); };
  }

  Qel::PollEventLoop loop_;
  std::vector<std::string> log_;
  Pair pair_;
};

TEST_F(PollEventLoopTest, CallsAReaderAsLongAsThereIsSomethingToRead) {
  const Ptr<EventWatch> watch = loop_.readableIs(pair_.ends[0], noting("read"));
  EXPECT_EQ(loop_.runOnce(0), 0U);
  pair_.send();
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  pair_.receive();
  EXPECT_EQ(loop_.runOnce(0), 0U);
  EXPECT_THAT(log_, ElementsAre("read", "read"));
}

TEST_F(PollEventLoopTest, CallsAWriterWhileThereIsRoom) {
  const Ptr<EventWatch> watch = loop_.writableIs(pair_.ends[1], noting("write"));
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  const std::vector<char> filling(1 << 16);
  while (write(pair_.ends[1], filling.data(), filling.size()) > 0) {
  }
  EXPECT_EQ(loop_.runOnce(0), 0U);
}

TEST_F(PollEventLoopTest, TellsReaderAndWriterOfAHangUp) {
  const Ptr<EventWatch> reader = loop_.readableIs(pair_.ends[0], noting("read"));
  const Ptr<EventWatch> writer = loop_.writableIs(pair_.ends[0], noting("write"));
  pair_.closeEnd(1);
  EXPECT_EQ(loop_.runOnce(kLong), 2U);
  EXPECT_THAT(log_, ElementsAre("read", "write"));
}

TEST_F(PollEventLoopTest, DoesNotCallAWatchThatWasLetGo) {
  Ptr<EventWatch> watch = loop_.readableIs(pair_.ends[0], noting("read"));
  pair_.send();
  watch = nullptr;
  EXPECT_EQ(loop_.runOnce(0), 0U);
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(PollEventLoopTest, AWatchMayEndFromInsideItsOwnCall) {
  Ptr<EventWatch> watch;
  const std::string text = "a text that lives in the call";
  watch = loop_.readableIs(pair_.ends[0], [this, &watch, text] {
    watch = nullptr;
    log_.push_back(text);
  });
  pair_.send();
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_EQ(loop_.runOnce(0), 0U);
  EXPECT_THAT(log_, ElementsAre(text));
}

TEST_F(PollEventLoopTest, AWatchMayEndAnotherThatIsReadyAsWell) {
  Pair second;
  Ptr<EventWatch> other;
  const Ptr<EventWatch> watch = loop_.readableIs(pair_.ends[0], [&] {
    log_.emplace_back("first");
    other = nullptr;
  });
  other = loop_.readableIs(second.ends[0], noting("second"));
  pair_.send();
  second.send();
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_THAT(log_, ElementsAre("first"));
}

TEST_F(PollEventLoopTest, AWatchMadeInACallIsFirstServedByTheNextPass) {
  Ptr<EventWatch> made;
  Ptr<EventWatch> watch;
  watch = loop_.readableIs(pair_.ends[0], [&] {
    made = loop_.readableIs(pair_.ends[0], noting("new"));
    watch = nullptr;
  });
  pair_.send();
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_THAT(log_, IsEmpty());
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_THAT(log_, ElementsAre("new"));
}

TEST_F(PollEventLoopTest, CallsTimersOnceInTheOrderOfTheirTimes) {
  const Ptr<EventWatch> later = loop_.timerIs(0.02, noting("later"));
  const Ptr<EventWatch> sooner = loop_.timerIs(0.01, noting("sooner"));
  const Ptr<EventWatch> atOnce = loop_.timerIs(0, noting("at once"));
  const Ptr<EventWatch> past = loop_.timerIs(-1, noting("also at once"));
  EXPECT_THAT(log_, IsEmpty());
  while (log_.size() < 4) EXPECT_GT(loop_.runOnce(kLong), 0U);
  EXPECT_EQ(loop_.runOnce(0), 0U);
  EXPECT_THAT(log_, ElementsAre("at once", "also at once", "sooner", "later"));
}

TEST_F(PollEventLoopTest, ATimerThatWasLetGoNeverCalls) {
  Ptr<EventWatch> timer = loop_.timerIs(0, noting("timer"));
  timer = nullptr;
  EXPECT_EQ(loop_.runOnce(0), 0U);
}

TEST_F(PollEventLoopTest, ATimerMayEndItselfAndTheNextOne) {
  Ptr<EventWatch> first;
  Ptr<EventWatch> second;
  first = loop_.timerIs(0, [&] {
    second = nullptr;
    first = nullptr;
    log_.emplace_back("first");
  });
  second = loop_.timerIs(0, noting("second"));
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_EQ(loop_.runOnce(0), 0U);
  EXPECT_THAT(log_, ElementsAre("first"));
}

TEST_F(PollEventLoopTest, ATimerThatRenewsItselfDoesNotStarveThePass) {
  Ptr<EventWatch> timer;
  std::function<void()> renew = [&] {
    log_.emplace_back("timer");
    timer = loop_.timerIs(0, renew);
  };
  timer = loop_.timerIs(0, renew);
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
}

TEST_F(PollEventLoopTest, TimesWithoutMeaningAreKeptInBounds) {
  const Ptr<EventWatch> never =
      loop_.timerIs(std::numeric_limits<double>::infinity(), noting("never"));
  const Ptr<EventWatch> now =
      loop_.timerIs(std::numeric_limits<double>::quiet_NaN(), noting("nan"));
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_THAT(log_, ElementsAre("nan"));
}

TEST_F(PollEventLoopTest, WaitsNoLongerThanItIsTold) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(loop_.runOnce(0.02), 0U);
  EXPECT_GE(secondsSince(start), 0.02);
  EXPECT_LT(secondsSince(start), kLong);
}

TEST_F(PollEventLoopTest, RunsPutOffWorkWithoutWaiting) {
  const Ptr<Qel::Activity> activity = Qel::activityManager()->activityIs(noting("work"));
  EXPECT_EQ(loop_.runOnce(std::numeric_limits<double>::infinity()), 1U);
  EXPECT_THAT(log_, ElementsAre("work"));
}

TEST_F(PollEventLoopTest, LeavesWorkAloneThatIsNotItsOwn) {
  const Ptr<Qel::Activity> activity = Qel::activityManager()->activityIs(noting("work"));
  Qel::PollEventLoop within(nullptr);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(within.runOnce(0.02), 0U);
  EXPECT_GE(secondsSince(start), 0.02);
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(PollEventLoopTest, WorkThatPutsOffMoreWorkIsServedPassByPass) {
  Ptr<Qel::Activity> second;
  const Ptr<Qel::Activity> first = Qel::activityManager()->activityIs([&] {
    log_.emplace_back("first");
    second = Qel::activityManager()->activityIs(noting("second"));
  });
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_THAT(log_, ElementsAre("first"));
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_THAT(log_, ElementsAre("first", "second"));
}

TEST_F(PollEventLoopTest, RunsUntilItIsStopped) {
  int left = 3;
  Ptr<EventWatch> timer;
  std::function<void()> count = [&] {
    if (--left == 0) loop_.stop();
    timer = loop_.timerIs(0, count);
  };
  timer = loop_.timerIs(0, count);
  loop_.run();
  EXPECT_EQ(left, 0);
}

TEST_F(PollEventLoopTest, AStopBeforeTheRunEndsThatRunAlone) {
  loop_.stop();
  loop_.run();
  const Ptr<EventWatch> timer = loop_.timerIs(0, [this] {
    log_.emplace_back("timer");
    loop_.stop();
  });
  loop_.run();
  EXPECT_THAT(log_, ElementsAre("timer"));
}

Qel::PollEventLoop* loopOfTheHandler = nullptr;

TEST_F(PollEventLoopTest, ASignalHandlerMayStopALoopThatWaits) {
  loopOfTheHandler = &loop_;
  struct sigaction action = {};
  action.sa_handler = [](int) { loopOfTheHandler->stop(); };
  struct sigaction before = {};
  ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
  const auto start = std::chrono::steady_clock::now();
  ualarm(20000, 0);
  loop_.run();
  EXPECT_GE(secondsSince(start), 0.01);
  sigaction(SIGALRM, &before, nullptr);
}

TEST_F(PollEventLoopTest, AnErrorOfACallPassesThroughAndTheLoopGoesOn) {
  const Ptr<EventWatch> bad = loop_.timerIs(0, [] { throw std::runtime_error("bad call"); });
  const Ptr<EventWatch> good = loop_.timerIs(0, noting("good"));
  EXPECT_THROW(loop_.runOnce(kLong), std::runtime_error);
  EXPECT_EQ(loop_.runOnce(kLong), 1U);
  EXPECT_THAT(log_, ElementsAre("good"));
}

TEST_F(PollEventLoopTest, APassInsideACallEndsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const Ptr<EventWatch> timer = loop_.timerIs(0, [this] { loop_.runOnce(0); });
  EXPECT_DEATH(loop_.runOnce(kLong), "assertion failed: !passing_");
}

TEST_F(PollEventLoopTest, AWatchThatOutlivesTheLoopEndsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_DEATH(
      {
        Ptr<EventWatch> watch;
        Qel::PollEventLoop loop;
        watch = loop.timerIs(0, [] {});
      },
      "assertion failed: descriptors_.empty\\(\\) && timers_.empty\\(\\)");
}

TEST_F(PollEventLoopTest, ADescriptorThatIsNoneEndsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_DEATH(static_cast<void>(loop_.readableIs(-1, [] {})), "assertion failed: fd >= 0");
}

}  // namespace
