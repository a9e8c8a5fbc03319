#include "host/ReloadNews.h"

#include <gmock/gmock.h>

#include <optional>

namespace Host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr ReloadNews::Digest kPowerLoss = 1;
constexpr ReloadNews::Digest kFan = 2;
constexpr ReloadNews::Digest kWatchdog = 3;

class ReloadNewsTest : public testing::Test {
 protected:
  // The unit's causes change, and what there is to tell is told.
  std::vector<U32> changed(U32 unit, std::optional<ReloadNews::Digest> causes) {
    news_.causesAre(unit, causes);
    return news_.take(now_);
  }
  std::vector<U32> after(double seconds) {
    now_ += seconds;
    return news_.take(now_);
  }

  ReloadNews news_{{}};
  double now_ = 1000;
};

TEST_F(ReloadNewsTest, TellsNobodyOfTheFirstCausesOfAUnit) {
  EXPECT_TRUE(news_.causesAre(0, kPowerLoss));
  EXPECT_THAT(news_.take(now_), IsEmpty());
  EXPECT_FALSE(news_.next());
}

TEST_F(ReloadNewsTest, TellsOnceOfAChange) {
  changed(0, kPowerLoss);
  EXPECT_FALSE(news_.causesAre(0, kFan));
  EXPECT_THAT(news_.take(now_), ElementsAre(0));
  EXPECT_THAT(after(ReloadNews::kInterval), IsEmpty());
}

TEST_F(ReloadNewsTest, TellsNobodyOfRowsThatWereWrittenAgain) {
  changed(0, kPowerLoss);
  EXPECT_THAT(changed(0, kPowerLoss), IsEmpty());
}

TEST_F(ReloadNewsTest, TellsTheLastCausesOfTenSeconds) {
  changed(0, kPowerLoss);
  changed(0, kFan);
  EXPECT_THAT(changed(0, kWatchdog), IsEmpty());
  EXPECT_EQ(news_.next(), now_ + ReloadNews::kInterval);
  EXPECT_THAT(after(ReloadNews::kInterval - 0.1), IsEmpty());
  EXPECT_THAT(after(0.1), ElementsAre(0));
}

TEST_F(ReloadNewsTest, TellsNothingWhereTheLastCausesAreThoseThatWereTold) {
  changed(0, kPowerLoss);
  changed(0, kFan);
  changed(0, kWatchdog);
  changed(0, kFan);
  EXPECT_FALSE(news_.next());
  EXPECT_THAT(after(ReloadNews::kInterval), IsEmpty());
}

TEST_F(ReloadNewsTest, TellsAtOnceAfterTenQuietSeconds) {
  changed(0, kPowerLoss);
  changed(0, kFan);
  after(ReloadNews::kInterval);
  EXPECT_THAT(changed(0, kPowerLoss), ElementsAre(0));
}

TEST_F(ReloadNewsTest, TellsNobodyOfRowsThatGoOrComeBackAsTheyWere) {
  changed(2, kPowerLoss);
  EXPECT_THAT(changed(2, std::nullopt), IsEmpty());
  EXPECT_THAT(after(ReloadNews::kInterval), IsEmpty());
  EXPECT_THAT(changed(2, kPowerLoss), IsEmpty());
  changed(2, std::nullopt);
  EXPECT_THAT(changed(2, kFan), ElementsAre(2));
}

TEST_F(ReloadNewsTest, TellsNothingOfRowsThatWentBeforeItsTurn) {
  changed(2, kPowerLoss);
  changed(2, kFan);
  changed(2, kWatchdog);
  changed(2, std::nullopt);
  EXPECT_FALSE(news_.next());
  EXPECT_THAT(after(ReloadNews::kInterval), IsEmpty());
}

TEST_F(ReloadNewsTest, HoldsUpNoUnitForAnother) {
  changed(1, kPowerLoss);
  changed(2, kPowerLoss);
  EXPECT_THAT(changed(1, kFan), ElementsAre(1));
  now_ += 3;
  EXPECT_THAT(changed(2, kFan), ElementsAre(2));
  news_.causesAre(1, kWatchdog);
  news_.causesAre(2, kWatchdog);
  EXPECT_EQ(news_.next(), now_ + ReloadNews::kInterval - 3);
  EXPECT_THAT(after(ReloadNews::kInterval - 3), ElementsAre(1));
  EXPECT_THAT(after(3), ElementsAre(2));
}

TEST_F(ReloadNewsTest, ComparesWithWhatWasToldBeforeARestart) {
  news_ = ReloadNews({{0, kPowerLoss}, {1, kPowerLoss}});
  EXPECT_FALSE(news_.causesAre(0, kPowerLoss));
  EXPECT_FALSE(news_.causesAre(1, kFan));
  EXPECT_THAT(news_.take(now_), ElementsAre(1));
}

TEST_F(ReloadNewsTest, TellsNoMoreOfAStormThanOneEachTenSeconds) {
  std::size_t told = 0;
  changed(0, kPowerLoss);
  for (ReloadNews::Digest causes = 2; causes < 10002; ++causes) {
    told += changed(0, causes).size();
    now_ += 0.01;
  }
  EXPECT_EQ(told, 10U);  // within 100 s
}

}  // namespace
}  // namespace Host
