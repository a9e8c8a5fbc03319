#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Kavra/Redis/Feed.h"
#include "Qel/Clock.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/RunUntil.h"
#include "support/LiveObjects.h"
#include "support/TraceRecorder.h"

namespace kavratest {

// What tests of followers of a Redis server share: a loop, a clock and the log.
class FollowingTest : public support::LiveObjectsTest {
 protected:
  Qel::Ptr<Kavra::Redis::Feed> feedOf(const std::string& socket, Qel::EventLoop& loop) {
    return Qel::make<Kavra::Redis::Feed>(
        Kavra::Redis::ConnectionOptions{Kavra::Redis::Address::ofPath(socket), {}}, loop, clock_);
  }
  bool until(const std::function<bool()>& condition) { return runUntil(loop_, condition); }

  // Somebody whom any publication of the history pleases.
  static Qel::Ptr<Kavra::Follow> followerOf(const Qel::Ptr<Kavra::Redis::Feed>& feed) {
    return feed->followIs(kHistoryPath, [](const auto&, const auto*) { return Qel::String(); });
  }

  support::TraceRecorder log_;
  Qel::PollEventLoop loop_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::make<Qel::SystemClock>();
};

}  // namespace kavratest
