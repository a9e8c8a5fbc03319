#include "Kavra/Publisher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kavra/Json/Text.h"
#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/ServerState.h"
#include "Kavra/StoreUrl.h"
#include "Qel/Clock.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/HastyEventLoop.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "platform/Kavra/RunUntil.h"
#include "support/LiveObjects.h"
#include "support/ProblemOf.h"
#include "support/TraceRecorder.h"

namespace Kavra {
namespace {

using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::kRedundancyPath;
using kavratest::redundancy;
using support::problemOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class PublisherTest : public support::LiveObjectsTest {
 protected:
  static void put(Store& store, const Qel::String& path, const Qel::Document& document) {
    store.update({path},
                 [&](Store::Documents& documents) { documents.insert_or_assign(path, document); });
  }
  bool targetIs(const Store::Documents& expected) {
    return kavratest::runUntil(loop_, [&] { return target_->documents("") == expected; });
  }

  support::TraceRecorder log_;
  const kavratest::DatabaseDirectory directory_;
  kavratest::ServerProcess server_;
  Qel::PollEventLoop loop_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::make<Qel::SystemClock>();
  const Qel::Ptr<Store> source_ = StoreUrl(directory_.url()).store(clock_);
  const Qel::Ptr<Store> target_ = StoreUrl(server_.url()).store(clock_);
  Qel::Ptr<Publisher> publisher(const Claim& claim, const kavratest::DatabaseDirectory& source) {
    return Qel::make<Publisher>(StoreUrl(source.url()).feed(timers_, clock_),
                                StoreUrl(server_.url()).store(clock_), timers_, claim);
  }

  kavratest::HastyEventLoop timers_{loop_, 1.0};
};

// One that owns what its source has.
class FollowingPublisherTest : public PublisherTest {
 protected:
  const Qel::Ptr<Publisher> publisher_ = publisher({"host", "boot", "/one", {}}, directory_);
};

// One that owns cell 2; made by the test, after it has laid things out.
class CellPublisherTest : public PublisherTest {
 protected:
  void publish() { publisher_ = publisher({"host", "boot", "/one", {"cell/2/"}}, directory_); }

  Qel::Ptr<Publisher> publisher_;
};

TEST_F(FollowingPublisherTest, FollowsItsSource) {
  put(*source_, kHistoryPath, history({"one"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  put(*source_, kRedundancyPath, redundancy(3, true));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}, {kRedundancyPath, redundancy(3, true)}}));
  source_->update({kHistoryPath}, [](Store::Documents& documents) { documents.clear(); });
  EXPECT_TRUE(targetIs({{kRedundancyPath, redundancy(3, true)}}));
}

TEST_F(FollowingPublisherTest, KeepsTheLastGoodDocumentWhereTheSourceHasABadOne) {
  put(*source_, kHistoryPath, history({"one"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  directory_.replace(R"({"cell/2/sys/reset/history": {"type": "System::ResetCauseHistory"}})");
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !log_.lines().empty(); }));
  directory_.replace("{");
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return log_.lines().size() > 1; }));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
}

TEST_F(FollowingPublisherTest, PublishesTheOthersWhereOneIsOverALimit) {
  put(*source_, kHistoryPath, history({"one"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  directory_.replace(Json::write(
      Qel::Document::Map{{kHistoryPath, history({std::string(1025, 'x')})},
                         {"large", history(std::vector<std::string>(9000, std::string(1000, 'x')))},
                         {kRedundancyPath, redundancy(4, true)}},
      Json::Form::line));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}, {kRedundancyPath, redundancy(4, true)}}));
  EXPECT_EQ(log_.lines().size(), 2U);
}

TEST_F(FollowingPublisherTest, PublishesAgainWhatTheServerLost) {
  put(*source_, kHistoryPath, history({"one"}));
  const Store::Documents expected{{kHistoryPath, history({"one"})}};
  EXPECT_TRUE(targetIs(expected));
  server_.command({"FLUSHALL"});
  EXPECT_THAT(target_->documents(""), IsEmpty());
  EXPECT_TRUE(targetIs(expected));
  // Once, and not at every look.
  EXPECT_EQ(server_.command({"XLEN", Redis::kLogKey}).integer, 1);
}

TEST_F(FollowingPublisherTest, WaitsForAServerThatIsAway) {
  put(*source_, kHistoryPath, history({"one"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  server_.kill();
  put(*source_, kHistoryPath, history({"two"}));
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !log_.lines().empty(); }));
  server_.start();
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"two"})}}));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("cannot publish: " + server_.url()),
                                        HasSubstr("publishing again")));
}

TEST_F(FollowingPublisherTest, TakesBackNothingWhenItEnds) {
  put(*source_, kHistoryPath, history({"one"}));
  const Qel::Ptr<Store> copy = StoreUrl("file:" + directory_.file() + ".copy").store(clock_);
  {
    const auto other = Qel::make<Publisher>(StoreUrl(directory_.url()).feed(loop_, clock_), copy,
                                            loop_, Claim{"host", "boot", "/other", {}});
    EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !copy->documents("").empty(); }));
  }
  EXPECT_EQ(copy->documents("").at(kHistoryPath), history({"one"}));
}

TEST_F(FollowingPublisherTest, MendsWhatIsDeletedWithinTheEpoch) {
  put(*source_, kHistoryPath, history({"one"}));
  const Store::Documents expected{{kHistoryPath, history({"one"})}};
  EXPECT_TRUE(targetIs(expected));
  server_.command({"DEL", Redis::keyOf(kHistoryPath)});
  EXPECT_THAT(target_->documents(""), IsEmpty());
  EXPECT_TRUE(kavratest::runUntil(
      loop_, [&] { return target_->documents("") == expected; }, 2.0));
}

TEST_F(FollowingPublisherTest, MendsEvenWhatNoShortLookFinds) {
  put(*source_, kHistoryPath, history({"one"}));
  const Store::Documents expected{{kHistoryPath, history({"one"})}};
  EXPECT_TRUE(targetIs(expected));
  server_.command({"HSET", Redis::keyOf(kHistoryPath), "0:0:d", "damaged"});
  // 30 s pass in a third of a second.
  timers_.factorIs(100.0);
  EXPECT_TRUE(targetIs(expected));
}

TEST_F(FollowingPublisherTest, RingsForNobodyWhereNothingChanges) {
  put(*source_, kHistoryPath, history({"one"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  timers_.factorIs(1000.0);
  EXPECT_FALSE(kavratest::runUntil(
      loop_,
      [&] {
        return server_.command({"XLEN", Redis::kLogKey}).integer != 1;
      },
      0.5));
}

TEST_F(FollowingPublisherTest, KeepsOthersFromEditingWhatItsSourceHad) {
  put(*source_, kHistoryPath, history({"one"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  EXPECT_EQ(problemOf<OwnedException>([&] { put(*target_, kHistoryPath, history({"two"})); }),
            std::string(kHistoryPath) + " belongs to the publisher of /one on host");
  put(*target_, kRedundancyPath, redundancy(3, true));
}

TEST_F(CellPublisherTest, TakesAwayWhatItsSourceLostWhileItWasDown) {
  for (const char* path : {"cell/1/a", "cell/2/a", kHistoryPath}) {
    put(*target_, path, history({"old"}));
  }
  put(*source_, kHistoryPath, history({"new"}));
  publish();
  EXPECT_TRUE(targetIs({{"cell/1/a", history({"old"})}, {kHistoryPath, history({"new"})}}));
}

TEST_F(CellPublisherTest, TakesAwayEverythingForAnEmptySource) {
  put(*target_, "cell/2/a", history({"old"}));
  directory_.write("{}");
  publish();
  EXPECT_TRUE(targetIs({}));
}

TEST_F(CellPublisherTest, TakesNothingAwayBeforeItsSourceWasRead) {
  timers_.factorIs(100.0);
  put(*target_, "cell/2/a", history({"old"}));
  publish();
  const auto isTouched = [&] { return target_->documents("").empty(); };
  EXPECT_FALSE(kavratest::runUntil(loop_, isTouched, 0.3));
  directory_.replace("{");
  EXPECT_FALSE(kavratest::runUntil(loop_, isTouched, 0.3));
  directory_.replace("{}");
  EXPECT_TRUE(targetIs({}));
}

TEST_F(CellPublisherTest, LeavesWhatItsSourceHasInABadForm) {
  put(*target_, kHistoryPath, history({"old"}));
  put(*target_, "cell/2/a", history({"old"}));
  directory_.write(R"({"cell/2/sys/reset/history": {"type": "System::ResetCauseHistory"}})");
  publish();
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"old"})}}));
  put(*source_, kHistoryPath, history({"new"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"new"})}}));
}

TEST_F(CellPublisherTest, PublishesNothingOutsideItsClaimAndSaysSo) {
  put(*source_, kHistoryPath, history({"one"}));
  put(*source_, "cell/1/a", history({"two"}));
  publish();
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("cell/1/a: refused: not published: the publisher "
                                                  "owns cell/2/ alone")));
}

TEST_F(CellPublisherTest, WaitsForAnotherPublisherAndSaysWhichOne) {
  const kavratest::DatabaseDirectory other;
  put(*StoreUrl(other.url()).store(clock_), kHistoryPath, history({"other"}));
  put(*source_, kHistoryPath, history({"one"}));
  auto first = publisher({"host", "boot", "/first", {"cell/"}}, other);
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"other"})}}));
  publish();
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !log_.lines().empty(); }));
  EXPECT_EQ(target_->documents("").at(kHistoryPath), history({"other"}));
  first = nullptr;
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  EXPECT_THAT(log_.lines(),
              ElementsAre(HasSubstr("cannot publish: cell/2/ belongs to the publisher "
                                    "of /first on host"),
                          HasSubstr("publishing again")));
}

}  // namespace
}  // namespace Kavra
