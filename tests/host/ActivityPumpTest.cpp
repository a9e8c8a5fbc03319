#include "host/ActivityPump.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Qel/ActivityManager.h"
#include "host/NetSnmpEventLoop.h"

namespace Host {
namespace {

TEST(ActivityPump, RunsWorkThatWasPutOffBeforeAndMeanwhile) {
  NetSnmpEventLoop loop;
  std::vector<std::string> log;
  Qel::Ptr<Qel::Activity> inner;
  const auto outer = Qel::activityManager()->activityIs([&] {
    log.emplace_back("outer");
    inner = Qel::activityManager()->activityIs([&] {
      log.emplace_back("inner");
      loop.stop();
    });
  });
  const ActivityPump pump(loop);
  loop.run();
  EXPECT_THAT(log, testing::ElementsAre("outer", "inner"));
}

TEST(ActivityPump, EndsTheProcessForABugInWork) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  NetSnmpEventLoop loop;
  const ActivityPump pump(loop);
  const auto work =
      Qel::activityManager()->activityIs([] { throw std::logic_error("spilt milk"); });
  const auto survived = loop.timerIs(1, [&] { loop.stop(); });
  EXPECT_DEATH(loop.run(), "spilt milk");
}

TEST(ActivityPump, LeavesWorkAloneAfterItsEnd) {
  NetSnmpEventLoop loop;
  bool ran = false;
  Qel::Ptr<Qel::Activity> work;
  {
    const ActivityPump pump(loop);
    work = Qel::activityManager()->activityIs([&] { ran = true; });
  }
  const auto end = loop.timerIs(0.01, [&] { loop.stop(); });
  loop.run();
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace Host
