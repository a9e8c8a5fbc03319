#include "host/NetSnmpEventLoop.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "Qel/Exception.h"

namespace Host {
namespace {

using Qel::EventWatch;
using Qel::Ptr;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr int kMostDescriptors = 32;

// Two connected ends, either of which can be read and written.
class Pair {
 public:
  Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends_.data()), 0); }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;
  ~Pair() {
    for (const int end : ends_) ::close(end);
  }

  int end() const { return ends_[0]; }
  void sent() const { EXPECT_EQ(::write(ends_[1], "x", 1), 1); }
  void received() const {
    char octet = 0;
    EXPECT_EQ(::read(ends_[0], &octet, 1), 1);
  }

 private:
  std::array<int, 2> ends_{-1, -1};
};

class NetSnmpEventLoopTest : public testing::Test {
 protected:
  // Runs the loop until `done` holds; the log tells what happened meanwhile.
  template <class Condition>
  void runUntil(const Condition& done) {
    const auto deadline = loop_.timerIs(10, [] { FAIL() << "nothing happened for ten seconds"; });
    std::function<void()> look;
    Ptr<EventWatch> next;
    look = [&] {
      if (done() || HasFailure()) return loop_.stop();
      next = loop_.timerIs(0.001, look);
    };
    next = loop_.timerIs(0.001, look);
    loop_.run();
  }
  void runUntilLogged(std::size_t entries) {
    runUntil([this, entries] { return log_.size() >= entries; });
  }
  std::function<void()> logs(const std::string& entry) {
    return [this, entry] { log_.push_back(entry); };
  }

  NetSnmpEventLoop loop_;
  std::vector<std::string> log_;
};

TEST_F(NetSnmpEventLoopTest, EndsEachRoundWithWhatItWasGivenTheLastOneToo) {
  NetSnmpEventLoop loop(logs("after the round"));
  const auto last = loop.timerIs(0.001, [&] {
    log_ = {"last call"};
    loop.stop();
  });
  loop.run();
  EXPECT_THAT(log_, ElementsAre("last call", "after the round"));
}

TEST_F(NetSnmpEventLoopTest, CallsAsLongAsADescriptorCanBeRead) {
  const Pair pair;
  pair.sent();
  const auto watch = loop_.readableIs(pair.end(), [&] {
    log_.emplace_back("read");
    if (log_.size() == 3) pair.received();
  });
  const auto later = loop_.timerIs(0.02, logs("later"));
  runUntilLogged(4);
  EXPECT_THAT(log_, ElementsAre("read", "read", "read", "later"));
}

TEST_F(NetSnmpEventLoopTest, CallsWhenADescriptorCanBeWritten) {
  const Pair pair;
  Ptr<EventWatch> watch = loop_.writableIs(pair.end(), [&] {
    log_.emplace_back("write");
    watch = nullptr;
  });
  runUntilLogged(1);
  EXPECT_THAT(log_, ElementsAre("write"));
}

TEST_F(NetSnmpEventLoopTest, WatchesBothDirectionsOfADescriptor) {
  const Pair pair;
  pair.sent();
  Ptr<EventWatch> write = loop_.writableIs(pair.end(), [&] {
    log_.emplace_back("write");
    write = nullptr;
  });
  Ptr<EventWatch> read = loop_.readableIs(pair.end(), [&] {
    log_.emplace_back("read");
    read = nullptr;
  });
  runUntilLogged(2);
  EXPECT_THAT(log_, testing::UnorderedElementsAre("read", "write"));
}

TEST_F(NetSnmpEventLoopTest, CallsNoWatchThatWasLetGo) {
  const Pair pair;
  pair.sent();
  Ptr<EventWatch> watch = loop_.readableIs(pair.end(), logs("read"));
  watch = nullptr;
  const auto later = loop_.timerIs(0.01, logs("later"));
  runUntilLogged(1);
  EXPECT_THAT(log_, ElementsAre("later"));
}

TEST_F(NetSnmpEventLoopTest, LetsACallReplaceItsOwnWatch) {
  const Pair pair;
  pair.sent();
  const std::string keptByTheCall(100, 'x');
  Ptr<EventWatch> watch = loop_.readableIs(pair.end(), [&, keptByTheCall] {
    watch = nullptr;
    watch = loop_.readableIs(pair.end(), [&] {
      log_.emplace_back("second");
      pair.received();
    });
    log_.push_back("first" + std::to_string(keptByTheCall.size()));
  });
  runUntilLogged(2);
  EXPECT_THAT(log_, ElementsAre("first100", "second"));
}

TEST_F(NetSnmpEventLoopTest, ServesTheOthersAfterACallEndedOneOfThem) {
  const Pair first;
  const Pair second;
  const Pair third;
  for (const Pair* pair : {&first, &second, &third}) pair->sent();
  Ptr<EventWatch> endedByFirst;
  Ptr<EventWatch> endsAnother = loop_.readableIs(first.end(), [&] {
    log_.emplace_back("first");
    first.received();
    endedByFirst = nullptr;
  });
  endedByFirst = loop_.readableIs(second.end(), logs("second"));
  const auto stays = loop_.readableIs(third.end(), [&] {
    log_.emplace_back("third");
    third.received();
  });
  runUntilLogged(2);
  EXPECT_THAT(log_, ElementsAre("first", "third"));
}

TEST_F(NetSnmpEventLoopTest, RefusesASecondWatchOfADescriptor) {
  const Pair pair;
  Ptr<EventWatch> watch = loop_.readableIs(pair.end(), [] {});
  EXPECT_THROW(static_cast<void>(loop_.readableIs(pair.end(), [] {})), Qel::RangeException);
  watch = nullptr;
  EXPECT_NO_THROW(static_cast<void>(loop_.readableIs(pair.end(), [] {})));
}

TEST_F(NetSnmpEventLoopTest, RefusesMoreDescriptorsThanNetSnmpTakes) {
  std::vector<Pair> pairs(kMostDescriptors + 1);
  std::vector<Ptr<EventWatch>> watches;
  watches.reserve(kMostDescriptors);
  for (int count = 0; count < kMostDescriptors; ++count) {
    watches.push_back(loop_.readableIs(pairs[static_cast<std::size_t>(count)].end(), [] {}));
  }
  testing::internal::CaptureStderr();  // where net-snmp, not told otherwise, complains as well
  EXPECT_THROW(static_cast<void>(loop_.readableIs(pairs.back().end(), [] {})), Qel::RangeException);
  testing::internal::GetCapturedStderr();
  watches.pop_back();
  EXPECT_NO_THROW(static_cast<void>(loop_.readableIs(pairs.back().end(), [] {})));
}

TEST_F(NetSnmpEventLoopTest, CallsTimersOnceAndInTheOrderOfTheirTimes) {
  const auto late = loop_.timerIs(0.03, logs("late"));
  const auto soon = loop_.timerIs(0.01, logs("soon"));
  const auto now = loop_.timerIs(0, logs("now"));
  const auto past = loop_.timerIs(-5, logs("past"));
  const auto end = loop_.timerIs(0.06, logs("end"));
  EXPECT_THAT(log_, ElementsAre());
  runUntilLogged(5);
  EXPECT_THAT(log_, testing::UnorderedElementsAre("now", "past", "soon", "late", "end"));
  EXPECT_THAT(std::vector(log_.begin() + 2, log_.end()), ElementsAre("soon", "late", "end"));
}

TEST_F(NetSnmpEventLoopTest, CallsNoTimerThatWasLetGo) {
  Ptr<EventWatch> timer = loop_.timerIs(0.001, logs("timer"));
  timer = nullptr;
  const auto later = loop_.timerIs(0.02, logs("later"));
  runUntilLogged(1);
  EXPECT_THAT(log_, ElementsAre("later"));
}

TEST_F(NetSnmpEventLoopTest, KeepsAFiredTimerHarmlessUntilItIsLetGo) {
  Ptr<EventWatch> fired = loop_.timerIs(0, logs("fired"));
  runUntilLogged(1);
  fired = nullptr;
  EXPECT_THAT(log_, ElementsAre("fired"));
}

TEST_F(NetSnmpEventLoopTest, TakesTimesThatNoTimerCanMeet) {
  const auto endless = loop_.timerIs(std::numeric_limits<double>::infinity(), logs("endless"));
  const auto strange = loop_.timerIs(std::numeric_limits<double>::quiet_NaN(), logs("strange"));
  runUntilLogged(1);
  EXPECT_THAT(log_, ElementsAre("strange"));
}

TEST_F(NetSnmpEventLoopTest, WaitsAsLongAsATimerSays) {
  const auto start = std::chrono::steady_clock::now();
  const auto timer = loop_.timerIs(0.05, [this] { loop_.stop(); });
  loop_.run();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(NetSnmpEventLoopTest, ABugInACallEndsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const Pair pair;
  pair.sent();
  const auto watch = loop_.readableIs(pair.end(), [] { throw std::logic_error("spilt milk"); });
  const auto survived = loop_.timerIs(1, [this] { loop_.stop(); });
  EXPECT_DEATH(loop_.run(), "spilt milk");
}

TEST_F(NetSnmpEventLoopTest, LogsAnErrorFromOutsideAndGoesOn) {
  testing::internal::CaptureStderr();
  const auto faulty = loop_.timerIs(0, [] { throw Qel::RangeException("no room"); });
  const auto later = loop_.timerIs(0.01, logs("later"));
  runUntilLogged(1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("error in an event's handler: no room\n"));
  EXPECT_THAT(log_, ElementsAre("later"));
}

TEST_F(NetSnmpEventLoopTest, RaisesWhenADescriptorWasClosedUnderItsWatch) {
  const int fd = ::dup(STDERR_FILENO);
  const auto watch = loop_.readableIs(fd, [] {});
  testing::internal::CaptureStderr();
  ::close(fd);
  EXPECT_THROW(loop_.run(), std::system_error);
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace Host
