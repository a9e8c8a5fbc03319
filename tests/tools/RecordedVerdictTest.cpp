#include "tools/RecordedVerdict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#ifdef HAS_RESETCAUSE
#include "resetcause/Report.h"
#endif

namespace Tools {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kCertain[] =
    "boot: 33\nwhen: 2023-11-15T02:23:20Z\nhow sure: certain\nrule: 6\n"
    "shutdown record: journal, boot 22: fans\n";

std::string without(const std::string& part) {
  std::string text = kCertain;
  return text.erase(text.find(part), part.size());
}

TEST(RecordedVerdictTest, KnowsAMomentFromAWindow) {
  const auto certain = verdictIn(kCertain);
  ASSERT_TRUE(certain);
  EXPECT_EQ(certain->boot, "33");
  EXPECT_EQ(certain->confidence, "certain");
  EXPECT_EQ(certain->rule, "6");
  EXPECT_EQ(certain->orElse, "");
  EXPECT_THAT(certain->evidence, ElementsAre("shutdown record: journal, boot 22: fans"));
  EXPECT_EQ(certain->since, std::nullopt);
  EXPECT_EQ(certain->until, std::nullopt);

  const auto window = verdictIn(
      "boot: \nwhen: between 2023-11-15T02:23:10Z and 2023-11-15T03:46:40Z\nhow sure: possible\n"
      "rule: 11\nbut: loss of power\n");
  ASSERT_TRUE(window);
  EXPECT_EQ(window->boot, "");
  EXPECT_EQ(window->since, 1700014990);
  EXPECT_EQ(window->until, 1700020000);
  EXPECT_EQ(window->orElse, "loss of power");
  EXPECT_THAT(window->evidence, IsEmpty());

  const auto before =
      verdictIn("boot: 1\nwhen: before 2023-11-15T03:46:40Z\nhow sure: unknown\nrule: 12");
  ASSERT_TRUE(before);
  EXPECT_EQ(before->since, std::nullopt);
  EXPECT_EQ(before->until, 1700020000);
}

TEST(RecordedVerdictTest, TakesAnyOtherTextForNone) {
  for (const std::string& line :
       {std::string("boot: 33\n"), std::string("when: 2023-11-15T02:23:20Z\n"),
        std::string("how sure: certain\n"), std::string("rule: 6\n")}) {
    EXPECT_FALSE(verdictIn(without(line))) << line;
  }
  EXPECT_FALSE(verdictIn(""));
  EXPECT_FALSE(verdictIn(without("2023-11-15T02:23:20Z")));
  EXPECT_FALSE(verdictIn(without("ertain"))) << "a word of another scale";
  EXPECT_FALSE(verdictIn("PSU 1 lost\n" + std::string(kCertain)));
  for (const char* when :
       {"before", "before noon", "between 2023-11-15T02:23:10Z",
        "between noon and 2023-11-15T02:23:10Z", "between 2023-11-15T02:23:10Z and noon",
        "after 2023-11-15T02:23:10Z", "after noon, by the clock then"}) {
    EXPECT_FALSE(
        verdictIn("boot: 1\nwhen: " + std::string(when) + "\nhow sure: unknown\nrule: 12\n"))
        << when;
  }
}

#ifdef HAS_RESETCAUSE

std::string recorded(const ResetCause::Cause& cause, const ResetCause::Boots& boots) {
  return "boot: " + boots.id + "\n" + ResetCause::detailText(cause, boots);
}

TEST(RecordedVerdictTest, ReadsWhatIsRecorded) {
  const ResetCause::Boots boots{.id = "33", .start = 1700020000};
  ResetCause::Cause cause{.rule = "4+",
                          .text = "Reload requested by admin: fans",
                          .confidence = ResetCause::Confidence::possible,
                          .since = 1700014990.7,
                          .elseBe = "something else",
                          .evidence = {{ResetCause::Kind::request, "request", "a\nfile", "fans"}}};
  const auto window = verdictIn(recorded(cause, boots));
  ASSERT_TRUE(window);
  EXPECT_EQ(window->boot, "33");
  EXPECT_EQ(window->rule, "4+");
  EXPECT_EQ(window->confidence, "possible");
  EXPECT_EQ(window->since, 1700014990);
  EXPECT_EQ(window->until, 1700020000);
  EXPECT_EQ(window->orElse, "something else");
  EXPECT_THAT(window->evidence, ElementsAre(testing::HasSubstr("a\\nfile: fans")));

  cause.since = 1700030000;  // the clock was set back
  EXPECT_EQ(verdictIn(recorded(cause, boots))->since, 1700030000);
  EXPECT_EQ(verdictIn(recorded(cause, boots))->until, std::nullopt);
  cause.since.reset();
  EXPECT_EQ(verdictIn(recorded(cause, boots))->until, 1700020000);
  cause.time = 1700014990;
  EXPECT_EQ(verdictIn(recorded(cause, boots))->until, std::nullopt);
  for (const auto confidence : {ResetCause::Confidence::unknown, ResetCause::Confidence::likely,
                                ResetCause::Confidence::certain}) {
    cause.confidence = confidence;
    EXPECT_EQ(verdictIn(recorded(cause, boots))->confidence, ResetCause::nameOf(confidence));
  }
}

#endif

}  // namespace
}  // namespace Tools
