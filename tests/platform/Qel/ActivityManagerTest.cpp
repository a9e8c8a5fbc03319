#include "Qel/ActivityManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "Qel/Exception.h"
#include "support/LiveObjects.h"
#include "support/ManualClock.h"
#include "support/TraceRecorder.h"

namespace {

using Qel::Activity;
using Qel::ActivityManager;
using Qel::make;
using Qel::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

class ActivityManagerTest : public support::LiveObjectsTest {
 protected:
  Ptr<Activity> put(const std::string& what) {
    return manager_->activityIs([this, what] { log_.push_back(what); });
  }

  Ptr<ActivityManager> manager_ = make<ActivityManager>();
  std::vector<std::string> log_;
};

TEST_F(ActivityManagerTest, RunsWorkOnceInTheOrderInWhichItWasPutOff) {
  const Ptr<Activity> a = put("a");
  const Ptr<Activity> b = put("b");
  EXPECT_THAT(log_, IsEmpty());
  EXPECT_TRUE(manager_->hasWork());
  EXPECT_EQ(manager_->run(), 2U);
  EXPECT_THAT(log_, ElementsAre("a", "b"));
  EXPECT_FALSE(manager_->hasWork());
  EXPECT_EQ(manager_->run(), 0U);
}

TEST_F(ActivityManagerTest, LettingGoCancels) {
  Ptr<Activity> a = put("a");
  const Ptr<Activity> b = put("b");
  a = nullptr;
  EXPECT_EQ(manager_->run(), 1U);
  EXPECT_THAT(log_, ElementsAre("b"));
}

TEST_F(ActivityManagerTest, WorkMayCancelWorkThatWaits) {
  Ptr<Activity> b;
  const Ptr<Activity> a = manager_->activityIs([&b] { b = nullptr; });
  b = put("b");
  const Ptr<Activity> c = put("c");
  EXPECT_EQ(manager_->run(), 2U);
  EXPECT_THAT(log_, ElementsAre("c"));
}

TEST_F(ActivityManagerTest, WorkMayLetGoOfItself) {
  Ptr<Activity> a;
  const std::string text = "a text that lives in the work";
  a = manager_->activityIs([this, &a, text] {
    a = nullptr;
    log_.push_back(text);
  });
  manager_->run();
  EXPECT_THAT(log_, ElementsAre(text));
}

TEST_F(ActivityManagerTest, WhatTheWorkHoldsGoesWithItThoughTheActivityStays) {
  const auto held = make<Qel::SystemClock>();
  const Ptr<Activity> activity = manager_->activityIs([held] {});
  EXPECT_EQ(held->references(), 2U);
  manager_->run();
  EXPECT_EQ(held->references(), 1U);
}

TEST_F(ActivityManagerTest, WorkPutOffByWorkWaitsForTheNextRun) {
  Ptr<Activity> b;
  const Ptr<Activity> a = manager_->activityIs([this, &b] { b = put("b"); });
  EXPECT_EQ(manager_->run(), 1U);
  EXPECT_THAT(log_, IsEmpty());
  EXPECT_EQ(manager_->run(), 1U);
  EXPECT_THAT(log_, ElementsAre("b"));
}

TEST_F(ActivityManagerTest, ARunInsideWorkDoesNothing) {
  const Ptr<Activity> a = manager_->activityIs([this] { EXPECT_EQ(manager_->run(), 0U); });
  const Ptr<Activity> b = put("b");
  EXPECT_EQ(manager_->run(), 2U);
  EXPECT_THAT(log_, ElementsAre("b"));
}

TEST_F(ActivityManagerTest, AnErrorFromOutsideIsTracedAndGoesNoFurther) {
  support::TraceRecorder recorder;
  const Ptr<Activity> a = manager_->activityIs([] { throw Qel::RangeException("no room"); });
  const Ptr<Activity> b = manager_->activityIs([] { throw std::bad_alloc(); });
  const Ptr<Activity> c = put("c");
  EXPECT_EQ(manager_->run(), 3U);
  EXPECT_THAT(log_, ElementsAre("c"));
  EXPECT_THAT(recorder.lines(), ElementsAre("Qel 0: put-off work failed: no room",
                                            "Qel 0: put-off work failed: std::bad_alloc"));
}

TEST_F(ActivityManagerTest, ABugInWorkEndsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const Ptr<Activity> a = manager_->activityIs([] { throw std::logic_error("spilt milk"); });
  EXPECT_DEATH(manager_->run(), "spilt milk");
}

TEST_F(ActivityManagerTest, WakesTheLoopOnceUntilTheWorkIsDone) {
  manager_->wakeUpIs([this] { log_.emplace_back("wake up"); });
  EXPECT_THAT(log_, IsEmpty());
  const Ptr<Activity> a = put("a");
  const Ptr<Activity> b = put("b");
  EXPECT_THAT(log_, ElementsAre("wake up"));
  manager_->run();
  const Ptr<Activity> c = put("c");
  EXPECT_THAT(log_, ElementsAre("wake up", "a", "b", "wake up"));
}

TEST_F(ActivityManagerTest, WakesTheLoopForWorkPutOffByWork) {
  manager_->wakeUpIs([this] { log_.emplace_back("wake up"); });
  Ptr<Activity> b;
  const Ptr<Activity> a = manager_->activityIs([this, &b] {
    b = put("b");
    log_.emplace_back("a");
  });
  manager_->run();
  EXPECT_THAT(log_, ElementsAre("wake up", "a", "wake up"));
}

TEST_F(ActivityManagerTest, ALoopThatComesLateIsWokenForWhatWaits) {
  const Ptr<Activity> a = put("a");
  manager_->wakeUpIs([this] { log_.emplace_back("wake up"); });
  EXPECT_THAT(log_, ElementsAre("wake up"));
}

TEST_F(ActivityManagerTest, AnActivityMayOutliveTheManager) {
  const Ptr<Activity> a = put("a");
  manager_ = nullptr;
  EXPECT_EQ(a->references(), 1U);
}

TEST_F(ActivityManagerTest, KnowsTheTimeOfItsClock) {
  const auto clock = make<support::ManualClock>(12.5);
  manager_->clockIs(clock);
  EXPECT_EQ(manager_->clock()->now(), 12.5);
  clock->advance(1.0);
  EXPECT_EQ(manager_->clock()->now(), 13.5);
}

TEST_F(ActivityManagerTest, TheProcessHasOneWithTheSystemsClock) {
  EXPECT_EQ(Qel::activityManager(), Qel::activityManager());
  EXPECT_GT(Qel::activityManager()->clock()->now(), 1.6e9);
}

}  // namespace
