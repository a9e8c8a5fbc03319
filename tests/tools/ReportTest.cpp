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

TEST(ReportTest, ShowsTheLastReloadOfEachSupervisorAndThoseBeforeAsATimeline) {
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

  The last reloads

      3 min ago  2023-11-14 22:13Z  up 11 d     Power loss (and 1 more)
       12 d ago  2023-11-02 22:16Z              Reload requested by admin:
                                                software upgrade to 4.31.2,
                                                announced well before

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
            "  The last reloads\n\n"
            "   time unknown                                 (no description) (and 1 more)\n"
            "   time unknown                                 no cause was recorded\n");
  EXPECT_EQ(shown(reportOf({reload(0, {})})),
            "Supervisor 1\n\n   time unknown  no cause was recorded\n");
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

TEST(ReportTest, ShowsTenReloadsInTheTimelineAndHowManyAreOlder) {
  std::vector<ReportedReload> reloads;
  for (U32 i = 0; i < 12; ++i) reloads.push_back(reload(i, {cause("a", kNow - i * 86400.0)}));
  const auto lines = linesOf(shown(reportOf(reloads)));
  ASSERT_EQ(lines.size(), 18U);
  EXPECT_EQ(lines[7], "       just now  2023-11-14 22:16Z  up 24 h     a");
  EXPECT_EQ(lines[16], "        9 d ago  2023-11-05 22:16Z  up 24 h     a");
  EXPECT_EQ(lines[17], "                 and 2 older");
}

TEST(ReportTest, TellsHowLongItRanOnlyWhereThatIsKnown) {
  const auto upOf = [](const std::optional<double>& before, const std::optional<double>& last,
                       U32 index = 1) {
    return upBefore({reload(0, {cause("a", last)}), reload(index, {cause("b", before)})}, 0);
  };
  EXPECT_EQ(upOf(kNow - 600, kNow), 600);
  EXPECT_EQ(upOf(kNow, kNow), 0);
  EXPECT_EQ(upOf(kNow + 1, kNow), std::nullopt) << "a clock that was set back";
  EXPECT_EQ(upOf({}, kNow), std::nullopt);
  EXPECT_EQ(upOf(kNow, {}), std::nullopt);
  EXPECT_EQ(upOf(kNow - 600, kNow, 2), std::nullopt) << "one is missing in between";
  EXPECT_EQ(upBefore({reload(0, {cause("a", kNow)})}, 0), std::nullopt);
  EXPECT_EQ(upBefore({reload(0, {cause("a", kNow)}), reload(1, {})}, 0), std::nullopt);
}

// A verdict of norvek-reset-cause.
constexpr char kWindow[] =
    "boot: 0123456789abcdef0123456789abcdef\n"
    "when: between 2023-11-14T20:00:00Z and 2023-11-14T22:13:20Z\nhow sure: possible\nrule: 11\n"
    "but: loss of power, the reset line and a forced restart leave the same traces\n";
constexpr char kBeforeStart[] =
    "boot: 0123456789abcdef0123456789abcdef\nwhen: before 2023-11-14T10:00:00Z\n"
    "how sure: likely\nrule: 9\n"
    "journal stopped: /var/log/journal, boot 1: Journal stopped (2023-11-14T09:59:00Z)\n"
    "wtmp: /var/log/wtmp\n";
ReportedCause judged(const std::string& description, double time, const std::string& detail) {
  return {description, time, {}, detail};
}
Report judgedReport() {
  return reportOf({reload(0, {judged("Power lost", kNow - 8200, kWindow)}),
                   reload(1, {judged("Orderly reload", kNow - 99999, kBeforeStart)})});
}

TEST(ReportTest, ShowsAWindowAndHowSureTheVerdictIs) {
  EXPECT_EQ(shown(judgedReport()), R"(Supervisor 1

      3 min ago  Power lost
                 between 2023-11-14T20:00:00Z and 2023-11-14T22:13:20Z
                 Sure    possible: loss of power, the reset line and a forced
                         restart leave the same traces

  The last reloads

      3 min ago  2023-11-14 20:00Z  up 10 h     Power lost, by 2023-11-14 22:13Z
       12 h ago  2023-11-14 10:00Z              Orderly reload, or before
)");
}

TEST(ReportTest, ShowsOfAWindowOverAClockThatWasSetBackItsBeginAlone) {
  const std::string setBack =
      "boot: 33\nwhen: after 2023-11-14T22:13:20Z, by the clock then\nhow sure: possible\n"
      "rule: 11\n";
  const double began = 1700000000;
  EXPECT_EQ(shown(reportOf({reload(0, {judged("Power lost", began, setBack)}),
                            reload(1, {judged("Power lost", began, setBack)}),
                            reload(2, {cause("Fan failure", began - 7200)})})),
            R"(Supervisor 1

   time unknown  Power lost
                 after 2023-11-14T22:13:20Z, by the clock then
                 Sure    possible

  The last reloads

   time unknown  2023-11-14 22:13Z              Power lost, or after
   time unknown  2023-11-14 22:13Z  up 2 h      Power lost, or after
        2 h ago  2023-11-14 20:13Z              Fan failure
)");
}

TEST(ReportTest, PutsTheTimeAboveTheCauseWhereLinesAreShort) {
  const Report report = reportOf({reload(0, {cause("Power loss", kNow - 200)}),
                                  reload(1, {cause("Fan failure", kNow - 800)}),
                                  reload(2, {cause("Watchdog expired", {})})});
  EXPECT_THAT(textOf(report, kNow, {71, false, true}), testing::EndsWith(R"(
  The last reloads

      3 min ago  2023-11-14 22:13Z, up 10 min
                 Power loss
     13 min ago  2023-11-14 22:03Z
                 Fan failure
   time unknown  Watchdog expired
)"));
}

TEST(ReportTest, ShowsTheEvidenceWhereItIsAskedFor) {
  Report report = reportOf({reload(0, {judged("Orderly reload", kNow, kBeforeStart)})});
  const ReportStyle style{80, false, true, true};
  EXPECT_EQ(textOf(report, kNow, style), R"(Supervisor 1

       12 h ago  Orderly reload
                 before 2023-11-14T10:00:00Z
                 Sure    likely
                 Rule    9
                 Found   journal stopped: /var/log/journal, boot 1: Journal
                         stopped (2023-11-14T09:59:00Z)
                         wtmp: /var/log/wtmp
                 Boot    0123456789abcdef0123456789abcdef
)");
  EXPECT_THAT(shown(report), Not(HasSubstr("wtmp")));
  EXPECT_THAT(textOf(judgedReport(), kNow, style), HasSubstr("Found   nothing that tells\n"));
  EXPECT_THAT(textOf(reportOf(cause("a", kNow)), kNow, style), HasSubstr("Found   not recorded\n"));
  EXPECT_THAT(textOf(reportOf(judged("a", kNow, "PSU 1 lost")), kNow, style),
              testing::AllOf(HasSubstr("Detail  PSU 1 lost\n"), Not(HasSubstr("Found"))));
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

TEST(ReportTest, ShowsHostileEvidenceAsText) {
  const std::string text = textOf(reportOf({reload(0, {judged(kHostile, kNow, kWindow + kHostile)}),
                                            reload(1, {judged(kHostile, 5, kHostile)})}),
                                  kNow, {80, false, true, true});
  for (const char c : text) EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~'));
  EXPECT_THAT(text, HasSubstr("\n                 Found   \\x1b[2J"));
  EXPECT_EQ(text.find("\nSupervisor 9"), std::string::npos);
}

TEST(ReportTest, FitsIntoTheColumnsThatThereAre) {
  std::string text;
  for (int i = 0; i < 40; ++i) text += kHostile + " 电源 word e\xcc\x81\xcc\x81 ";
  Report report = reportOf(ReportedCause{text, -9.0e15, text, text});
  for (const double time : {-9.0e15, kNow, 9.0e15, 0.5}) {
    const U32 index = static_cast<U32>(report.cells[0].reloads.size());
    report.cells[0].reloads.push_back(reload(index, {{text, time, text, text}}));
    report.cells[0].reloads.push_back(reload(index + 1, {judged(text, time, kWindow + text)}));
  }
  for (const std::size_t columns : {40U, 71U, 72U, 80U, 100U}) {
    const auto lines = linesOf(textOf(report, kNow, {columns, false, true, true}));
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
  EXPECT_EQ(
      Kavra::Json::write(documentOf(report, 5.0), Kavra::Json::Form::line),
      R"({"source": "file:db", "now": 5.0, "cells": [{"cell": 1, "reloads": [)"
      R"({"reload": 0, "requested": false, "causes": [{"description": "a", "time": -1.5, )"
      R"("recommendedAction": "act", "detail": "more"}]}, )"
      R"({"reload": 2, "requested": false, "causes": [{"description": "b", "time": null}, )"
      R"({"description": "c", "time": 7.0}]}, {"reload": 10, "requested": false, "causes": []}]}]})");
}

TEST(ReportTest, HasInItsDocumentWhatWasConcludedAndHowLongItRan) {
  Report report = reportOf({reload(0, {judged("Reload requested", 7, kWindow)}),
                            reload(1, {judged("b", 7, kBeforeStart)})});
  const Qel::Document document = documentOf(report, 5.0);
  const auto& cell = document.memberAs<Qel::Document::List>("cells")->front();
  const auto& reloads = *cell.memberAs<Qel::Document::List>("reloads");
  EXPECT_TRUE(*reloads[0].memberAs<bool>("requested"));
  EXPECT_EQ(*reloads[0].memberAs<double>("upBefore"), 36000);
  EXPECT_EQ(reloads[1].member("upBefore"), nullptr);
  const auto verdictOf = [](const Qel::Document& each) {
    const auto& first = each.memberAs<Qel::Document::List>("causes")->front();
    return Kavra::Json::write(*first.member("verdict"), Kavra::Json::Form::line);
  };
  EXPECT_EQ(verdictOf(reloads[0]),
            R"({"boot": "0123456789abcdef0123456789abcdef", "since": 1699992000.0, )"
            R"("until": 1700000000.0, "confidence": "possible", "rule": "11", "orElse": )"
            R"("loss of power, the reset line and a forced restart leave the same traces", )"
            R"("evidence": []})");
  EXPECT_EQ(verdictOf(reloads[1]),
            R"({"boot": "0123456789abcdef0123456789abcdef", "until": 1699956000.0, )"
            R"("confidence": "likely", "rule": "9", "evidence": ["journal stopped: )"
            "/var/log/journal, boot 1: Journal stopped (2023-11-14T09:59:00Z)\", "
            R"("wtmp: /var/log/wtmp"]})");
}

TEST(ReportTest, SaysInItsDocumentWhoAnswered) {
  const Report report{"h", {{std::nullopt, true, {}}}, {}};
  EXPECT_EQ(Kavra::Json::write(documentOf(report, 5.0), Kavra::Json::Form::line),
            R"({"source": "h", "now": 5.0, "cells": [{"cell": null, "answered": true, )"
            R"("reloads": []}]})");
}

}  // namespace
}  // namespace Tools
