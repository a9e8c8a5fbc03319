#include "Kavra/Publisher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kavra/Json/Text.h"
#include "Kavra/Redis/ServerState.h"
#include "Kavra/StoreUrl.h"
#include "Qel/Clock.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "platform/Kavra/RunUntil.h"
#include "support/LiveObjects.h"
#include "support/TraceRecorder.h"

namespace Kavra {
namespace {

using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::kRedundancyPath;
using kavratest::redundancy;
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
  const Qel::Ptr<Publisher> publisher_ = Qel::make<Publisher>(
      StoreUrl(directory_.url()).feed(loop_, clock_), StoreUrl(server_.url()).store(clock_), loop_);
};

TEST_F(PublisherTest, FollowsItsSource) {
  put(*source_, kHistoryPath, history({"one"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  put(*source_, kRedundancyPath, redundancy(3, true));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}, {kRedundancyPath, redundancy(3, true)}}));
  source_->update({kHistoryPath}, [](Store::Documents& documents) { documents.clear(); });
  EXPECT_TRUE(targetIs({{kRedundancyPath, redundancy(3, true)}}));
}

TEST_F(PublisherTest, KeepsTheLastGoodDocumentWhereTheSourceHasABadOne) {
  put(*source_, kHistoryPath, history({"one"}));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
  directory_.replace(R"({"cell/2/sys/reset/history": {"type": "System::ResetCauseHistory"}})");
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !log_.lines().empty(); }));
  directory_.replace("{");
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return log_.lines().size() > 1; }));
  EXPECT_TRUE(targetIs({{kHistoryPath, history({"one"})}}));
}

TEST_F(PublisherTest, PublishesTheOthersWhereOneIsOverALimit) {
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

TEST_F(PublisherTest, PublishesAgainWhatTheServerLost) {
  put(*source_, kHistoryPath, history({"one"}));
  const Store::Documents expected{{kHistoryPath, history({"one"})}};
  EXPECT_TRUE(targetIs(expected));
  server_.command({"FLUSHALL"});
  EXPECT_THAT(target_->documents(""), IsEmpty());
  EXPECT_TRUE(targetIs(expected));
  // Once, and not at every look.
  EXPECT_EQ(server_.command({"XLEN", Redis::kLogKey}).integer, 1);
}

TEST_F(PublisherTest, WaitsForAServerThatIsAway) {
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

TEST_F(PublisherTest, TakesBackNothingWhenItEnds) {
  put(*source_, kHistoryPath, history({"one"}));
  const Qel::Ptr<Store> copy = StoreUrl("file:" + directory_.file() + ".copy").store(clock_);
  {
    const auto other =
        Qel::make<Publisher>(StoreUrl(directory_.url()).feed(loop_, clock_), copy, loop_);
    EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !copy->documents("").empty(); }));
  }
  EXPECT_EQ(copy->documents("").at(kHistoryPath), history({"one"}));
}

}  // namespace
}  // namespace Kavra
