#include "host/Repetitions.h"

#include <gmock/gmock.h>
#include <syslog.h>

#include <chrono>
#include <string>
#include <vector>

namespace Host {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class RepetitionsTest : public testing::Test {
 protected:
  bool says(const std::string& text) { return says(text, text); }
  bool says(const std::string& event, const std::string& text) {
    return repetitions_.admits(event, {LOG_ERR, text}, now_);
  }
  static std::vector<std::string> textsOf(const std::vector<Repetitions::Line>& lines) {
    std::vector<std::string> texts;
    for (const auto& line : lines) texts.push_back(line.text);
    return texts;
  }
  std::vector<std::string> due() { return textsOf(repetitions_.due(now_)); }

  Repetitions repetitions_;
  Repetitions::Time now_{milliseconds(5000)};
};

TEST_F(RepetitionsTest, TellAnEventOnceASecondAndHowOftenItCame) {
  EXPECT_TRUE(says("lost"));
  EXPECT_FALSE(says("lost"));
  EXPECT_FALSE(says("lost"));
  now_ += milliseconds(999);
  EXPECT_THAT(due(), IsEmpty());
  EXPECT_TRUE(repetitions_.holdsBack());
  now_ += milliseconds(1);
  EXPECT_THAT(due(), ElementsAre("lost (2 more)"));
  EXPECT_FALSE(repetitions_.holdsBack());
}

TEST_F(RepetitionsTest, TakeTheCountForATelling) {
  says("lost");
  says("lost");
  now_ += milliseconds(1000);
  due();
  EXPECT_FALSE(says("lost"));
  now_ += milliseconds(1000);
  EXPECT_THAT(due(), ElementsAre("lost (1 more)"));
}

TEST_F(RepetitionsTest, ForgetAnEventThatStaysAway) {
  says("lost");
  now_ += milliseconds(1000);
  EXPECT_THAT(due(), IsEmpty());
  EXPECT_TRUE(says("lost"));
}

TEST_F(RepetitionsTest, LetOtherEventsPass) {
  EXPECT_TRUE(says("lost"));
  EXPECT_TRUE(says("found"));
  EXPECT_FALSE(repetitions_.holdsBack());
}

TEST_F(RepetitionsTest, TellTheLatestLineOfAnEvent) {
  EXPECT_TRUE(says("refused", "refused 1"));
  EXPECT_FALSE(says("refused", "refused 2"));
  EXPECT_FALSE(says("refused", "refused 3"));
  EXPECT_THAT(textsOf(repetitions_.all()), ElementsAre("refused 3 (2 more)"));
  EXPECT_TRUE(says("refused", "refused 4"));
}

TEST_F(RepetitionsTest, HoldNothingBackOfMoreEventsThanTheyKeep) {
  for (int number = 0; number < 5000; ++number) EXPECT_TRUE(says(std::to_string(number)));
  EXPECT_TRUE(says("4999"));
  EXPECT_FALSE(says("0"));
}

}  // namespace
}  // namespace Host
