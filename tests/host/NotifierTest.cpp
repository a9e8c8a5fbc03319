#include "host/Notifier.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/ManualEventLoop.h"
#include "support/Reloads.h"

namespace Host {
namespace {

using support::reload;
using testing::ElementsAre;
using testing::IsEmpty;

// Writes down what it is to send.
class RecordingChannel final : public NotificationChannel {
 public:
  bool isWanted() const override { return isWanted_; }
  void send(const Notification& notification) override {
    sent_.push_back(notification);
    const auto& causes = notification.causes;
    log_.push_back(causes ? fmt::format("unit {}: {} of {} causes, first {}", causes->unit,
                                        causes->first.size(), causes->count,
                                        causes->first.front().description)
                          : "coldStart");
    if (delivers_) delivered_(notification);
  }
  void deliveredIs(Delivered delivered) override { delivered_ = std::move(delivered); }

  bool isWanted_ = true;
  bool delivers_ = true;
  Delivered delivered_;
  std::vector<Notification> sent_;
  std::vector<std::string> log_;
};

// Counted while it lives.
class Following final : public Qel::PtrInterface {
 public:
  explicit Following(int& count) : count_(count) { ++count_; }
  ~Following() override { --count_; }

 private:
  int& count_;
};

class NotifierTest : public testing::Test {
 protected:
  NotifierTest() {
    std::string name = (std::filesystem::temp_directory_path() / "notifier-XXXXXX").string();
    directory_ = ::mkdtemp(name.data());
    shows(0, {{"Power loss", 1}});
    start();
  }
  ~NotifierTest() override {
    notifier_ = nullptr;
    std::filesystem::remove_all(directory_);
  }

  void start() {
    notifier_ = nullptr;
    notifier_ = std::make_unique<Notifier>(
        Notifier::Table{[this](U32 unit) { return reloads_[unit]; },
                        [this](std::function<void()> call) { return follow(std::move(call)); }},
        channel_, directory_ + "/told", loop_, [this] { return loop_.now(); });
    loop_.settle();
  }
  Qel::Ptr<Qel::PtrInterface> follow(std::function<void()> call) {
    tableChanged_ = std::move(call);
    ++follows_;
    return Qel::make<Following>(followers_);
  }
  void tableChanges() {
    if (followers_ > 0) tableChanged_();
  }
  void shows(U32 unit, const std::vector<System::ResetCause>& causes) {
    reloads_[unit] = causes.empty() ? nullptr : reload(causes);
  }
  void changes(U32 unit, const std::vector<System::ResetCause>& causes) {
    shows(unit, causes);
    tableChanges();
    loop_.settle();
  }
  // What was sent since this was asked last.
  std::vector<std::string> sent() { return std::exchange(channel_.log_, {}); }

  std::string directory_;
  std::map<U32, Qel::Ptr<System::ResetInstance>> reloads_;
  int followers_ = 0;
  int follows_ = 0;
  std::function<void()> tableChanged_;
  RecordingChannel channel_;
  support::ManualEventLoop loop_;
  std::unique_ptr<Notifier> notifier_;
};

TEST_F(NotifierTest, TellsThatTheAgentStarted) {
  notifier_->agentStarted();
  EXPECT_THAT(sent(), ElementsAre("coldStart"));
}

TEST_F(NotifierTest, TellsOfAChangeOnce) {
  EXPECT_THAT(sent(), IsEmpty());
  changes(0, {{"Fan failure", 2}, {"Too hot", 3}});
  EXPECT_THAT(sent(), ElementsAre("unit 0: 2 of 2 causes, first Fan failure"));
  tableChanges();
  loop_.advance(100);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(NotifierTest, LooksAtTheTableWhenTheChangeIsOver) {
  shows(0, {{"half of it", 1}});
  tableChanges();
  EXPECT_THAT(sent(), IsEmpty());
  changes(0, {{"Power loss", 1}});
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(NotifierTest, TellsTheLastStateOfTenSeconds) {
  changes(0, {{"a", 1}});
  sent();
  for (int number = 0; number < 10000; ++number) changes(0, {{std::to_string(number), 1}});
  EXPECT_THAT(sent(), IsEmpty());
  loop_.advance(9.9);
  EXPECT_THAT(sent(), IsEmpty());
  loop_.advance(0.1);
  EXPECT_THAT(sent(), ElementsAre("unit 0: 1 of 1 causes, first 9999"));
  loop_.advance(100);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(NotifierTest, TellsOnceOfAChangeThatComesAsTheTenSecondsEnd) {
  const auto asTheyEnd = loop_.timerIs(10, [this] {
    shows(0, {{"c", 1}});
    tableChanges();
  });
  changes(0, {{"a", 1}});
  changes(0, {{"b", 1}});
  sent();
  loop_.advance(100);
  EXPECT_THAT(sent(), ElementsAre("unit 0: 1 of 1 causes, first c"));
}

TEST_F(NotifierTest, KeepsNewsForWhoeverIsToBeToldNext) {
  changes(0, {{"a", 1}});
  changes(0, {{"b", 1}});
  sent();
  channel_.isWanted_ = false;
  notifier_->handleWanted();
  loop_.advance(100);
  EXPECT_THAT(sent(), IsEmpty());
  channel_.isWanted_ = true;
  notifier_->handleWanted();
  loop_.settle();
  EXPECT_THAT(sent(), ElementsAre("unit 0: 1 of 1 causes, first b"));
}

TEST_F(NotifierTest, RemembersOverARestartWhatWasTold) {
  changes(0, {{"a", 1}});
  sent();
  start();
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(NotifierTest, TellsOnceOfAChangeThatWasMadeWhileItWasAway) {
  shows(0, {{"a", 1}});
  start();
  EXPECT_THAT(sent(), ElementsAre("unit 0: 1 of 1 causes, first a"));
  start();
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(NotifierTest, TellsAgainAfterARestartWhatReachedNobody) {
  channel_.delivers_ = false;
  changes(0, {{"a", 1}});
  sent();
  start();
  EXPECT_THAT(sent(), ElementsAre("unit 0: 1 of 1 causes, first a"));
  channel_.delivered_(channel_.sent_.back());
  start();
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(NotifierTest, LooksAtNothingWhileNobodyIsToBeTold) {
  channel_.isWanted_ = false;
  std::filesystem::remove(directory_ + "/told");
  start();
  EXPECT_EQ(followers_, 0);
  notifier_->agentStarted();
  changes(0, {{"a", 1}});
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(directory_ + "/told"));
}

TEST_F(NotifierTest, TellsWhatChangedMeanwhileOnceSomebodyIsToBeTold) {
  channel_.isWanted_ = false;
  notifier_->handleWanted();
  EXPECT_EQ(followers_, 0);
  changes(0, {{"a", 1}});
  channel_.isWanted_ = true;
  notifier_->handleWanted();
  loop_.settle();
  EXPECT_THAT(sent(), ElementsAre("unit 0: 1 of 1 causes, first a"));
}

TEST_F(NotifierTest, FollowsTheTableOnce) {
  notifier_->handleWanted();
  notifier_->handleWanted();
  EXPECT_EQ(follows_, 1);
}

// The same reload, with other causes.
TEST_F(NotifierTest, SeesCausesThatChangeInPlace) {
  reloads_[0]->causeQPush({"Too hot", 2});
  tableChanges();
  loop_.settle();
  EXPECT_THAT(sent(), ElementsAre("unit 0: 2 of 2 causes, first Power loss"));
}

TEST_F(NotifierTest, TellsOfEachUnit) {
  changes(1, {{"own", 1}});
  changes(2, {{"peer", 1}});
  EXPECT_THAT(sent(), IsEmpty());
  changes(2, {{"peer again", 2}});
  changes(1, {{"own again", 2}});
  EXPECT_THAT(sent(), ElementsAre("unit 2: 1 of 1 causes, first peer again",
                                  "unit 1: 1 of 1 causes, first own again"));
}

}  // namespace
}  // namespace Host
