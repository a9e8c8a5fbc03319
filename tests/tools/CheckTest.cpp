#include "tools/Check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tools {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr double kNow = 1700000200.0;
constexpr double kHour = 3600;

ReportedCause cause(const std::string& description, std::optional<double> time) {
  return {description, time, {}, {}};
}
// A reload of one cause, so many seconds ago.
ReportedReload reload(const std::string& description, double age, U32 index = 0) {
  return {index, {cause(description, kNow - age)}};
}
ReportedCell cell(U32 number, std::vector<ReportedReload> reloads) {
  return {number, false, std::move(reloads)};
}
Report reportOf(std::vector<ReportedReload> reloads) {
  return {"file:db", {cell(1, std::move(reloads))}, {}};
}
std::string checked(const Report& report, const CheckOptions& options = {kHour}) {
  return check(report, kNow, options).text;
}
CheckState stateOf(const Report& report, const CheckOptions& options = {kHour}) {
  return check(report, kNow, options).state;
}

TEST(CheckTest, IsCriticalOfAReloadThatNobodyAskedFor) {
  const Report report{"file:db",
                      {cell(1, {{0, {cause("Power loss", kNow - 200), cause("Fan", kNow)}}}),
                       cell(2, {reload("Reload requested: fans", 90000)})},
                      {}};
  EXPECT_EQ(stateOf(report), CheckState::critical);
  EXPECT_EQ(checked(report),
            "RELOAD CRITICAL - Supervisor 1 reloaded 3 min ago: Power loss (and 1 more) | "
            "last_reload_1=200s;;;0 causes_1=2;;;0 last_reload_2=90000s;;;0 causes_2=1;;;0\n"
            "Supervisor 1: 3 min ago, 2023-11-14T22:13:20Z: Power loss\n"
            "  also: Fan\n"
            "Supervisor 2: 25 h ago, 2023-11-13T21:16:40Z: Reload requested: fans\n");
}

TEST(CheckTest, IsOkWhereNoneReloadedLately) {
  const Report report = reportOf({reload("Power loss", kHour + 1)});
  EXPECT_EQ(stateOf(report), CheckState::ok);
  EXPECT_THAT(checked(report), StartsWith("RELOAD OK - no reload within 60 min | last_reload_1"));
  EXPECT_EQ(stateOf(reportOf({reload("Power loss", kHour)})), CheckState::critical);
  EXPECT_EQ(stateOf(report, {2 * kHour}), CheckState::critical);
}

TEST(CheckTest, WarnsOfAReloadByRequestUnlessThatIsFine) {
  for (const char* text : {"Reload requested", "Reload requested by admin: fans",
                           "Reload requested (kexec): fans", "Powered off by request: fans",
                           "Power button pressed, but reset or power lost before it finished"}) {
    const Report report = reportOf({reload(text, 60)});
    EXPECT_EQ(stateOf(report), CheckState::warning) << text;
    EXPECT_EQ(stateOf(report, {kHour, true}), CheckState::ok) << text;
  }
  EXPECT_THAT(checked(reportOf({reload("Reload requested: x", 60)}), {kHour, true}),
              StartsWith("RELOAD OK - Supervisor 1 reloaded 60 s ago: Reload requested: x |"));
  for (const char* text :
       {"", "Unknown: no record of an earlier boot", "Watchdog expired",
        "Kernel panic: Reload requested", "reload requested", "Ctrl-Alt-Del on the console",
        "Service a.service failed (inferred)", "Orderly reload, requester unknown"}) {
    EXPECT_EQ(stateOf(reportOf({reload(text, 60)}), {kHour, true}), CheckState::critical) << text;
  }
}

TEST(CheckTest, FindsACrashBehindALaterRequest) {
  const Report report =
      reportOf({reload("Reload requested", 60), reload("Kernel panic: x", 1800, 1),
                reload("Watchdog expired", 7200, 2)});
  EXPECT_EQ(stateOf(report), CheckState::critical);
  EXPECT_THAT(checked(report),
              StartsWith("RELOAD CRITICAL - Supervisor 1 reloaded 30 min ago: Kernel panic: x |"));
  EXPECT_THAT(checked(report), HasSubstr("\nSupervisor 1: 60 s ago, "));
  EXPECT_THAT(checked(report), Not(HasSubstr("Watchdog")));
}

TEST(CheckTest, TellsTheWorstOfTheSupervisorsAndAllThatAreSo) {
  const Report report{"file:db",
                      {cell(1, {reload("Watchdog expired", 10)}), cell(2, {reload("Panic", 20)}),
                       cell(3, {reload("Reload requested", 5)})},
                      {}};
  EXPECT_THAT(checked(report), StartsWith("RELOAD CRITICAL - Supervisor 1 reloaded 10 s ago: "
                                          "Watchdog expired; Supervisor 2 reloaded 20 s ago: "
                                          "Panic | "));
}

TEST(CheckTest, CountsAWindowByItsEnd) {
  const Report report =
      reportOf({{0,
                 {{"Power lost, hard reset or forced restart",
                   kNow - 90000,
                   {},
                   "boot: 1\nwhen: between 2023-11-13T21:16:40Z and 2023-11-14T22:13:20Z\n"
                   "how sure: possible\nrule: 11\n"}}}});
  EXPECT_EQ(stateOf(report), CheckState::critical);
  EXPECT_THAT(checked(report), HasSubstr("last_reload_1=200s;"));
}

TEST(CheckTest, CountsAWindowOverAClockThatWasSetBackByItsBegin) {
  const Report report = reportOf({{0,
                                   {{"Power lost, hard reset or forced restart",
                                     kNow - 200,
                                     {},
                                     "boot: 1\nwhen: after 2023-11-14T22:13:20Z, by the clock "
                                     "then\nhow sure: possible\nrule: 11\n"}}}});
  EXPECT_EQ(stateOf(report), CheckState::critical);
  EXPECT_THAT(checked(report), HasSubstr("last_reload_1=200s;"));
}

TEST(CheckTest, IsUnknownWhereItCannotBeTold) {
  const Report nothing{"file:db", {}, {}};
  EXPECT_EQ(check(nothing, kNow, {kHour}).text,
            "RELOAD UNKNOWN - no reload is recorded in file:db\n");
  const Report broken{"file:db", {cell(1, {reload("Power loss", 7200)})}, {"cell/2: broken"}};
  EXPECT_EQ(stateOf(broken), CheckState::unknown);
  EXPECT_THAT(checked(broken), StartsWith("RELOAD UNKNOWN - cell/2: broken | last_reload_1="));
  EXPECT_EQ(checked(reportOf({{0, {cause("Power loss", {})}}})),
            "RELOAD UNKNOWN - Supervisor 1 reloaded at an unknown time: Power loss | "
            "last_reload_1=U causes_1=1;;;0\nSupervisor 1: time unknown: Power loss\n");
  EXPECT_EQ(checked(reportOf({{0, {}}})),
            "RELOAD UNKNOWN - Supervisor 1 reloaded at an unknown time: no cause was recorded | "
            "last_reload_1=U causes_1=0;;;0\nSupervisor 1: no cause was recorded\n");
  EXPECT_THAT(checked(reportOf({reload("Power loss", -61)})),
              StartsWith("RELOAD UNKNOWN - Supervisor 1 reloaded in the future, so a clock was "
                         "wrong: Power loss | last_reload_1=U "));
  EXPECT_EQ(stateOf(reportOf({reload("Power loss", -59)})), CheckState::critical);
  EXPECT_EQ(uncheckable("h: no answer").state, CheckState::unknown);
  EXPECT_EQ(uncheckable("h: no | answer\n").text, "RELOAD UNKNOWN - h: no \\x7c answer\\n\n");
}

TEST(CheckTest, LooksPastOlderReloadsWhoseTimeIsUnknown) {
  const Report report = reportOf({reload("Reload requested", 60), {1, {cause("Power loss", {})}}});
  EXPECT_EQ(stateOf(report), CheckState::warning);
}

TEST(CheckTest, IsOkOfASupervisorThatNeverReloaded) {
  EXPECT_EQ(checked(reportOf({})),
            "RELOAD OK - no reload within 60 min | last_reload_1=U causes_1=0;;;0\n"
            "Supervisor 1: no reload is recorded\n");
  const Report unnumbered{"h", {{std::nullopt, true, {}}}, {}};
  EXPECT_THAT(checked(unnumbered), HasSubstr("| last_reload_0=U causes_0=0;;;0\nThe unit that"));
}

TEST(CheckTest, KeepsTextsFromBeingMoreThanText) {
  const std::string hostile = "a|b=1;2\nRELOAD OK\033[2J\x7f\xc2\x9b\xff\xe2\x80\xae";
  const Report report{hostile, {cell(1, {reload(hostile, 5)})}, {hostile}};
  const std::string text = checked(report);
  EXPECT_THAT(text, HasSubstr(R"(: a\x7cb=1;2\nRELOAD OK\x1b[2J\x7f\xc2\x9b\xff\xe2\x80\xae | )"));
  EXPECT_EQ(std::ranges::count(text, '|'), 1);
  EXPECT_EQ(std::ranges::count(text, '\n'), 2);
  for (const char c : text) EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~'));
  EXPECT_EQ(std::ranges::count(checked({hostile, {}, {}}), '|'), 0);
}

TEST(CheckTest, SaysNoMoreThanIsRead) {
  const std::string longText(1024, '\x01');
  std::vector<ReportedReload> reloads;
  for (U32 i = 0; i < 1000; ++i) reloads.push_back(reload(longText, i, i));
  reloads.front().causes.resize(10000, reloads.front().causes.front());
  const std::string text = checked(reportOf(reloads));
  EXPECT_LT(text.find('\n'), 600U);
  EXPECT_LT(text.size(), 20000U);
  EXPECT_THAT(text, HasSubstr("; and 997 more | "));
  EXPECT_THAT(text, HasSubstr("\n  and 9990 more\nSupervisor 1: "));
}

}  // namespace
}  // namespace Tools
