#include "tools/Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kavra/Json/Text.h"
#include "tools/TextLayout.h"

namespace Tools {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::Not;

constexpr double kNow = 1700000200.0;
constexpr ReportStyle kPlainStyle{80, false, true};

ReportedReload reload(U32 index, std::vector<ReportedCause> causes) {
  return {index, std::move(causes)};
}
ReportedCause cause(const std::string& description, std::optional<double> time) {
  return {description, time, {}, {}};
}
Report reportOf(std::vector<ReportedReload> reloads) {
  return {"file:db", {{1, false, std::move(reloads)}}, {}};
}
Report reportOf(ReportedCause cause) { return reportOf({reload(0, {std::move(cause)})}); }

std::string shown(const Report& report) { return textOf(report, kNow, kPlainStyle); }

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

TEST(ReportTest, ShowsTheReloadsOfEachSupervisorTheLatestFirst) {
  const Report report{
      "file:db",
      {{1,
        true,
        {reload(0, {{"Power loss", kNow - 200,
                     "Check the power feed and the fuse of slot 1 before "
                     "the next maintenance window.",
                     "PSU 1 lost\nPSU 2 absent"},
                    cause("Fan failure", kNow - 199)}),
         reload(1, {cause("Reload requested by admin: software upgrade to 4.31.2, announced well "
                          "before",
                          kNow - 12 * 86400)})}},
       {2, false, {}}},
      {}};
  EXPECT_EQ(shown(report), R"(Supervisor 1, which answered

      3 min ago  Power loss
                 2023-11-14T22:13:20Z
                 Action  Check the power feed and the fuse of slot 1 before the
                         next maintenance window.
                 Detail  PSU 1 lost
                         PSU 2 absent

           also  Fan failure
                 2023-11-14T22:13:21Z

       12 d ago  Reload requested by admin: software upgrade to 4.31.2,
                 announced well before
                 2023-11-02T22:16:40Z

Supervisor 2

  no reload is recorded
)");
}

TEST(ReportTest, TellsTheTimeOfALaterCauseOnlyWhereItIsAnotherOne) {
  EXPECT_EQ(shown(reportOf({reload(0, {cause("a", kNow - 5), cause("b", kNow - 5)})})),
            "Supervisor 1\n\n"
            "        5 s ago  a\n                 2023-11-14T22:16:35Z\n\n"
            "           also  b\n");
}

TEST(ReportTest, SaysWhatIsNotKnown) {
  EXPECT_EQ(shown(reportOf({reload(0, {cause("", {}), cause("b", kNow)}), reload(1, {})})),
            "Supervisor 1\n\n"
            "   time unknown  (no description)\n\n"
            "           also  b\n                 2023-11-14T22:16:40Z\n\n"
            "   time unknown  no cause was recorded\n");
  EXPECT_EQ(shown({"file:d\033b", {}, {}}), "No reload is recorded in file:d\\x1bb\n");
}

TEST(ReportTest, SaysOfALaterCauseThatItLiesAhead) {
  EXPECT_EQ(shown(reportOf({reload(0, {cause("a", kNow), cause("b", kNow + 3600)})})),
            "Supervisor 1\n\n"
            "       just now  a\n                 2023-11-14T22:16:40Z\n\n"
            "           also  b\n                 2023-11-14T23:16:40Z, in the future\n");
}

TEST(ReportTest, TellsHowLongAgoInWordsThatFit) {
  for (const auto& [age, words] :
       std::vector<std::pair<double, std::string>>{{0.5, "       just now  a"},
                                                   {-60, "       just now  a"},
                                                   {-61, "  in the future  a"},
                                                   {7200, "        2 h ago  a"},
                                                   {700 * 86400.0, "      700 d ago  a"},
                                                   {731 * 86400.0, "    2 years ago  a"},
                                                   {999.5 * 31556952, "  999 years ago  a"},
                                                   {1000.5 * 31556952, "       long ago  a"},
                                                   {9.0e15, "       long ago  a"}}) {
    EXPECT_THAT(shown(reportOf(cause("a", kNow - age))), HasSubstr("\n" + words + "\n"));
  }
}

TEST(ReportTest, NamesWhoAnsweredWithoutANumberAndWhoIsNoSupervisor) {
  const Report report{"h", {{std::nullopt, true, {}}, {7, false, {}}}, {}};
  EXPECT_THAT(shown(report), HasSubstr("The unit that answered\n"));
  EXPECT_THAT(shown(report), HasSubstr("\nCell 7\n"));
}

TEST(ReportTest, ColoursNothingButWhatItIsAskedTo) {
  const Report report = reportOf(ReportedCause{"Power loss", {}, "Wait", "None"});
  const std::string coloured = textOf(report, kNow, {80, true, true});
  EXPECT_EQ(coloured,
            "\033[1mSupervisor 1\033[0m\n\n"
            "  \033[33m time unknown\033[0m  \033[1mPower loss\033[0m\n"
            "                 \033[36mAction\033[0m  Wait\n"
            "                 \033[2mDetail\033[0m  None\n");
  EXPECT_THAT(shown(report), Not(HasSubstr("\033")));
}

// Texts of somebody who means ill: attributes, titles, line ends, what is no UTF-8.
const std::string kHostile =
    "\033[2J\033]0;x\007\x9b\xc2\x9b"
    "31m\r\nSupervisor 9\n\n      1 s ago  All is well\x7f\xff";

TEST(ReportTest, ShowsHostileTextsAsTextInTheirOwnColumns) {
  const std::string text = shown(reportOf(ReportedCause{kHostile, kNow, kHostile, kHostile}));
  for (const char c : text) EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~'));
  const auto lines = linesOf(text);
  EXPECT_EQ(
      lines[2],
      "       just now  \\x1b[2J\\x1b]0;x\\x07\\x9b\\xc2\\x9b31m\\x0d\\nSupervisor 9\\n\\n      1");
  // Only the lines that the report itself begins have something in front of its column of texts.
  for (std::size_t i = 3; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].substr(0, 17), std::string(std::min<std::size_t>(17, lines[i].size()), ' '));
  }
}

TEST(ReportTest, FitsIntoTheColumnsThatThereAre) {
  std::string text;
  for (int i = 0; i < 40; ++i) text += kHostile + " 电源 word e\xcc\x81\xcc\x81 ";
  const Report report = reportOf(ReportedCause{text, -9.0e15, text, text});
  for (const std::size_t columns : {40U, 80U, 100U}) {
    const auto lines = linesOf(textOf(report, kNow, {columns, false, true}));
    EXPECT_GT(lines.size(), 80U);
    for (const std::string& line : lines) EXPECT_LE(widthOf(line), columns) << line;
  }
}

TEST(ReportTest, EndsNoLineInBlanks) {
  const Report report = reportOf(ReportedCause{"a ", 0.5, "x\n\ny ", "\n\n"});
  for (const std::string& line : linesOf(shown(report))) EXPECT_FALSE(line.ends_with(' ')) << line;
}

TEST(ReportTest, ReadsAHistoryInTheOrderOfItsReloads) {
  const auto reloads = reloadsOf(Kavra::Json::read(R"({
    "type": "System::ResetCauseHistory",
    "rebootHistory": {"10": {"causeQ": []},
                      "2": {"causeQ": [{"description": "b", "time": 0},
                                       {"description": "c", "time": 7}]},
                      "0": {"causeQ": [{"description": "a", "time": -1.5,
                                        "recommendedAction": "act", "detail": "more"}]}}})"));
  const Report report = reportOf(reloads);
  EXPECT_EQ(Kavra::Json::write(documentOf(report, 5.0), Kavra::Json::Form::line),
            R"({"source": "file:db", "now": 5.0, "cells": [{"cell": 1, "reloads": [)"
            R"({"reload": 0, "causes": [{"description": "a", "time": -1.5, )"
            R"("recommendedAction": "act", "detail": "more"}]}, )"
            R"({"reload": 2, "causes": [{"description": "b", "time": null}, )"
            R"({"description": "c", "time": 7.0}]}, {"reload": 10, "causes": []}]}]})");
}

TEST(ReportTest, SaysInItsDocumentWhoAnswered) {
  const Report report{"h", {{std::nullopt, true, {}}}, {}};
  EXPECT_EQ(Kavra::Json::write(documentOf(report, 5.0), Kavra::Json::Form::line),
            R"({"source": "h", "now": 5.0, "cells": [{"cell": null, "answered": true, )"
            R"("reloads": []}]})");
}

}  // namespace
}  // namespace Tools
