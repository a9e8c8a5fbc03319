#include "Redundancy/RedundancyStatus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Qel/Dir.h"
#include "Qel/TypeNode.h"
#include "support/LiveObjects.h"

namespace Redundancy {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Log = std::vector<std::string>;

// Logs what it is told of, with what it then sees.
class Watcher final : public RedundancyStatus::NotifieeConst {
 public:
  Watcher(const Qel::Ptr<RedundancyStatus>& status, Log& log) : log_(log) {
    notifierIs(status);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onProtocol() override { note("onProtocol"); }
  void onSwitchoverCapable() override { note("onSwitchoverCapable"); }

  std::function<void()> reaction;

 private:
  void note(const std::string& what) {
    log_.push_back(what + " " + std::to_string(static_cast<U32>(redundancyStatus()->protocol())) +
                   (redundancyStatus()->switchoverCapable() ? " capable" : " incapable"));
    if (reaction) reaction();
  }

  Log& log_;
};

class RedundancyStatusTest : public support::LiveObjectsTest {
 protected:
  Log takeLog() { return std::exchange(log_, {}); }

  Log log_;
  Qel::Ptr<RedundancyStatus> status_ = Qel::make<RedundancyStatus>("status");
  Qel::Ptr<Watcher> watcher_ = Qel::make<Watcher>(status_, log_);
};

TEST_F(RedundancyStatusTest, IsThatOfALonelySupervisorAtFirst) {
  EXPECT_EQ(status_->protocol(), RedundancyProtocol::none);
  EXPECT_FALSE(status_->switchoverCapable());
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(RedundancyStatusTest, TellsOnceOfEachChange) {
  status_->protocolIs(RedundancyProtocol::hotStandby);
  EXPECT_THAT(takeLog(), ElementsAre("onProtocol 3 incapable"));
  status_->switchoverCapableIs(true);
  EXPECT_THAT(takeLog(), ElementsAre("onSwitchoverCapable 3 capable"));
}

TEST_F(RedundancyStatusTest, IsSilentAboutEqualValues) {
  status_->statusIs(RedundancyProtocol::hotStandby, true);
  takeLog();
  status_->protocolIs(RedundancyProtocol::hotStandby);
  status_->switchoverCapableIs(true);
  status_->statusIs(RedundancyProtocol::hotStandby, true);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(RedundancyStatusTest, StoresBothBeforeItTellsOfEither) {
  status_->statusIs(RedundancyProtocol::hotStandby, true);
  EXPECT_THAT(takeLog(), ElementsAre("onProtocol 3 capable", "onSwitchoverCapable 3 capable"));
}

TEST_F(RedundancyStatusTest, TellsOfBothAlthoughAWatcherFails) {
  const char* error = "first";
  watcher_->reaction = [&error] { throw std::runtime_error(std::exchange(error, "second")); };
  EXPECT_THAT([this] { status_->statusIs(RedundancyProtocol::hotStandby, true); },
              testing::ThrowsMessage<std::runtime_error>("first"));
  EXPECT_THAT(takeLog(), ElementsAre("onProtocol 3 capable", "onSwitchoverCapable 3 capable"));
}

TEST_F(RedundancyStatusTest, MakesNoCallWhenNotificationsComeOn) {
  status_->statusIs(RedundancyProtocol::hotStandby, true);
  takeLog();
  watcher_->hasNotificationActiveIs(false);
  status_->protocolIs(RedundancyProtocol::none);
  watcher_->hasNotificationActiveIs(true);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(RedundancyStatusTest, MayLoseItsLastHolderWhileItTells) {
  watcher_->reaction = [this] {
    watcher_->notifierIs(nullptr);
    status_ = nullptr;
  };
  status_->statusIs(RedundancyProtocol::hotStandby, true);
  EXPECT_THAT(takeLog(), ElementsAre("onProtocol 3 capable"));
  EXPECT_FALSE(status_);
}

TEST_F(RedundancyStatusTest, IsWatchedOnlyByWatchersOfAStatus) {
  EXPECT_EQ(watcher_->redundancyStatus(), status_);
  watcher_->notifierIs(Qel::make<Qel::Dir>("sys"));
  EXPECT_FALSE(watcher_->notifier());
  EXPECT_FALSE(watcher_->redundancyStatus());
}

TEST_F(RedundancyStatusTest, CanBeMadeInADirectoryByName) {
  const auto dir = Qel::make<Qel::Dir>("redundancy");
  const auto entity = dir->newEntityIs("Redundancy::RedundancyStatus", "status");
  EXPECT_TRUE(Qel::ptrCast<RedundancyStatus>(entity));
}

TEST_F(RedundancyStatusTest, ShowsItsAttributesThroughTheRegistry) {
  status_->statusIs(RedundancyProtocol::hotStandby, true);
  const Qel::TypeNode* type = status_->fwkType();
  ASSERT_EQ(type, Qel::typeNode("Redundancy::RedundancyStatus"));
  EXPECT_EQ(type->attribute("name")->read(*status_).toString(), "status");
  EXPECT_EQ(type->attribute("protocol")->read(*status_).toU32(), 3U);
  EXPECT_TRUE(type->attribute("switchoverCapable")->read(*status_).toBool());
}

}  // namespace
}  // namespace Redundancy
