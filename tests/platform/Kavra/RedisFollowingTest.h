#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Documents.h"
#include "Kavra/RedisFeed.h"
#include "Qel/Clock.h"
#include "Qel/PollEventLoop.h"
#include "RunUntil.h"
#include "support/LiveObjects.h"
#include "support/TraceRecorder.h"

namespace kavratest {

// What tests of followers of a Redis server share: a loop, a clock and the log.
class RedisFollowingTest : public support::LiveObjectsTest {
 protected:
  Qel::Ptr<Kavra::RedisFeed> feedOf(const std::string& socket, Qel::EventLoop& loop) {
    return Qel::make<Kavra::RedisFeed>(Kavra::RedisServer{Kavra::RedisAddress::ofPath(socket), {}},
                                       loop, clock_);
  }
  bool until(const std::function<bool()>& condition) { return runUntil(loop_, condition); }

  // Somebody whom any publication of the history pleases.
  static Qel::Ptr<Kavra::Follow> followerOf(const Qel::Ptr<Kavra::RedisFeed>& feed) {
    return feed->followIs(kHistoryPath, [](const auto&, const auto*) { return Qel::String(); });
  }

  support::TraceRecorder log_;
  Qel::PollEventLoop loop_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::make<Qel::SystemClock>();
};

}  // namespace kavratest
