#include "resetcause/Rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Random.h"

namespace ResetCause {
namespace {

using enum Kind;
using testing::ElementsAre;

constexpr double kBefore = 1700000000;  // the boot before began
constexpr double kLast = kBefore + 1000;
constexpr double kStart = kLast + 100;

const Boots kBoots{.id = std::string(32, 'b'),
                   .start = kStart,
                   .previousId = std::string(32, 'a'),
                   .previousStart = kBefore,
                   .lastSign = kLast,
                   .hasJournal = true};

Evidence found(Kind kind, std::string text = {}, std::optional<double> time = {}) {
  return {kind, "a source", "a place", std::move(text), time};
}

Evidence record(std::string way, std::string text = {}) {
  Evidence one = found(logind, std::move(text), kLast);
  one.way = std::move(way);
  return one;
}

Evidence requestBy(std::string user, std::string text, double time) {
  Evidence one = found(request, std::move(text), time);
  one.user = std::move(user);
  return one;
}

Cause causeOf(const std::vector<Evidence>& evidence) { return verdictOf(kBoots, evidence).cause; }

// Rules of the cause and of those beside it.
std::string rulesOf(const std::vector<Evidence>& evidence) {
  const Verdict verdict = verdictOf(kBoots, evidence);
  std::string rules = verdict.cause.rule;
  for (const Cause& one : verdict.beside) rules += " " + one.rule;
  return rules;
}

TEST(RulesTest, APanicIsToldByItsText) {
  const Cause cause = causeOf({found(panicDump, "Out of memory: system-wide", kLast + 5)});
  EXPECT_EQ(cause.text, "Kernel panic: Out of memory: system-wide");
  EXPECT_EQ(cause.time, kLast + 5);
  EXPECT_EQ(cause.since, std::nullopt);
  EXPECT_EQ(cause.confidence, Confidence::certain);
}

TEST(RulesTest, APanicByTheKeyboardWasForced) {
  EXPECT_EQ(causeOf({found(panicDump, "sysrq triggered crash")}).text,
            "Kernel panic: sysrq triggered crash (forced by an operator)");
}

TEST(RulesTest, OfSeveralPanicsTheFirstOfTheLastCrashIsTold) {
  EXPECT_EQ(causeOf({found(panicDump, "a", kLast - 60), found(panicDump, "b", kLast + 1),
                     found(panicDump, "a consequence", kLast + 3), found(panicDump, "timeless")})
                .text,
            "Kernel panic: b");
  EXPECT_EQ(causeOf({found(panicDump, "b"), found(panicDump, "a")}).text, "Kernel panic: a");
}

TEST(RulesTest, AWatchdogTellsNoTimeButAWindow) {
  const Cause cause = causeOf({found(watchdog)});
  EXPECT_EQ(cause.text, "Watchdog expired");
  EXPECT_EQ(cause.time, std::nullopt);
  EXPECT_EQ(cause.since, kLast);
}

TEST(RulesTest, AWatchdogTellsWhatItFound) {
  EXPECT_EQ(causeOf({found(watchdog), found(initCrashed)}).text,
            "Watchdog expired; init had crashed");
  EXPECT_EQ(causeOf({found(watchdog), found(initCrashed)}).evidence.size(), 2);
  Evidence asked = record("reboot");
  asked.time = kLast - 20;
  const Cause hung = causeOf({found(watchdog), asked});
  EXPECT_EQ(hung.text, "Watchdog expired; the reload that was requested hung");
  EXPECT_EQ(hung.since, kLast - 20);
}

TEST(RulesTest, AWatchdogOfTheControllerTellsTheTime) {
  EXPECT_EQ(causeOf({found(watchdog), found(bmcWatchdog, "", kLast + 7)}).time, kLast + 7);
}

TEST(RulesTest, AWatchdogRegisterThatAStartThroughKexecLeftIsNoReload) {
  Evidence old = found(watchdog);
  old.isOld = true;
  EXPECT_EQ(rulesOf({old, record("kexec"), found(journalStopped)}), "6");
  EXPECT_EQ(rulesOf({old, record("reboot"), found(journalStopped)}), "2 6");
  EXPECT_EQ(rulesOf({found(watchdog), record("kexec"), found(journalStopped)}), "2 6");
  EXPECT_EQ(rulesOf({old, found(bmcWatchdog), record("kexec"), found(journalStopped)}), "2 6");
}

TEST(RulesTest, AStartThroughKexecIsKnownByItsTargetToo) {
  Evidence old = found(watchdog);
  old.isOld = true;
  Evidence reached = found(target);
  reached.way = "kexec";
  EXPECT_EQ(rulesOf({old, reached, found(journalStopped)}), "9");
  reached.way = "reboot";
  EXPECT_EQ(rulesOf({old, reached, found(journalStopped)}), "2 9");
}

TEST(RulesTest, AWatchdogRegisterThatStoodBeforeIsDoubtedAfterAnEndInOrder) {
  const auto confidenceOf = [](const std::vector<Evidence>& all) {
    return causeOf(all).confidence;
  };
  Evidence old = found(watchdog);
  old.isOld = true;
  EXPECT_EQ(confidenceOf({old, record("reboot"), found(journalStopped)}), Confidence::possible);
  EXPECT_NE(causeOf({old, found(wtmpShutdown)}).elseBe, "");
  EXPECT_EQ(confidenceOf({old, record("reboot")}), Confidence::certain);
  EXPECT_EQ(confidenceOf({old, found(bmcWatchdog), found(journalStopped)}), Confidence::certain);
  EXPECT_EQ(confidenceOf({found(watchdog), found(journalStopped)}), Confidence::certain);
}

TEST(RulesTest, AMakersRegisterStandsBetweenWatchdogAndDump) {
  EXPECT_EQ(rulesOf({found(maker, "Line card pulled"), found(watchdog), found(haltDump)}),
            "2 2m 3");
  EXPECT_EQ(causeOf({found(maker, "Line card pulled")}).text, "Line card pulled");
}

TEST(RulesTest, ARestartWithoutShutdownMayHaveBeenHeat) {
  EXPECT_EQ(causeOf({found(haltDump, "reboot: Restarting system")}).text,
            "Immediate restart without shutdown");
  EXPECT_EQ(causeOf({found(haltDump, "critical temperature reached")}).text,
            "Over temperature: critical temperature reached");
}

Evidence dumpOf(std::string way, std::string text) {
  Evidence one = found(haltDump, std::move(text), kLast - 5);
  one.way = std::move(way);
  return one;
}

TEST(RulesTest, AnEndWithoutShutdownIsToldByTheWayOfItsDump) {
  EXPECT_EQ(causeOf({dumpOf("reboot", "")}).text, "Immediate restart without shutdown");
  EXPECT_EQ(causeOf({dumpOf("power-off", "")}).text, "Immediate power-off without shutdown");
  EXPECT_EQ(causeOf({dumpOf("halt", "")}).text, "Immediate halt without shutdown");
  EXPECT_EQ(causeOf({dumpOf("power-off", "")}).confidence, Confidence::certain);
  EXPECT_EQ(causeOf({dumpOf("power-off", "Temperature too high")}).text,
            "Over temperature: Temperature too high");
}

TEST(RulesTest, OfSeveralEndsWithoutShutdownTheLastIsTold) {
  Evidence earlier = found(haltDump, "", kLast - 600);
  earlier.way = "halt";
  const Cause cause = causeOf({earlier, dumpOf("power-off", "")});
  EXPECT_EQ(cause.text, "Immediate power-off without shutdown");
  EXPECT_EQ(cause.time, kLast - 5);
}

TEST(RulesTest, OfSeveralWatchdogsTheLastIsTold) {
  EXPECT_EQ(causeOf({found(bmcWatchdog, "", kLast - 600), found(bmcWatchdog, "", kLast - 5)}).time,
            kLast - 5);
  EXPECT_EQ(
      causeOf({found(bmcWatchdog, "", kLast - 600), found(softwareWatchdog, "", kLast - 5)}).time,
      kLast - 5);
}

TEST(RulesTest, ADumpThatDoesNotTellTheWayIsDoubted) {
  const Cause cause = causeOf({dumpOf("", "")});
  EXPECT_EQ(cause.text, "Immediate restart without shutdown");
  EXPECT_EQ(cause.confidence, Confidence::possible);
  EXPECT_THAT(cause.elseBe, testing::HasSubstr("power-off"));
}

TEST(RulesTest, ARequestIsToldWithWhoAndWhy) {
  const Cause cause = causeOf(
      {requestBy("ada", "new firmware", kLast - 9), record("reboot"), found(journalStopped)});
  EXPECT_EQ(cause.text, "Reload requested by ada: new firmware");
  EXPECT_EQ(cause.time, kLast - 9);
}

TEST(RulesTest, ARequestLongBeforeTheEndIsOnlyLikely) {
  const auto askedBefore = [](double seconds) {
    return causeOf({requestBy("ada", "x", kLast - seconds), record("reboot"),
                    found(journalStopped, "", kLast)});
  };
  EXPECT_EQ(askedBefore(600).confidence, Confidence::certain);
  EXPECT_EQ(askedBefore(600).elseBe, "");
  EXPECT_EQ(askedBefore(601).confidence, Confidence::likely);
  EXPECT_NE(askedBefore(601).elseBe, "");
}

TEST(RulesTest, ARequestOfWhichNothingTellsThatItWasObeyedIsOnlyLikely) {
  const Cause cause = causeOf({requestBy("ada", "x", kLast - 9)});
  EXPECT_EQ(cause.rule, "4");
  EXPECT_EQ(cause.confidence, Confidence::likely);
  EXPECT_NE(cause.elseBe, "");
}

TEST(RulesTest, ARequestThatWasObeyedAtATimeNobodyKnowsIsCertain) {
  const Cause cause = causeOf({requestBy("ada", "x", kLast - 9), found(journalStopped)});
  EXPECT_EQ(cause.confidence, Confidence::certain);
  EXPECT_EQ(cause.elseBe, "");
}

TEST(RulesTest, ARequestThatTheMachineOutlivedExplainsNothing) {
  EXPECT_EQ(rulesOf({requestBy("ada", "x", kLast - 119)}), "4");
  EXPECT_EQ(rulesOf({requestBy("ada", "x", kLast - 121)}), "11");
  EXPECT_EQ(rulesOf({requestBy("ada", "x", kLast - 900), found(wtmpShutdown)}), "4");
}

TEST(RulesTest, APowerKeyNeedsThePowerOffBehindIt) {
  EXPECT_EQ(rulesOf({found(powerKey), record("power-off"), found(journalStopped)}), "5 6");
  EXPECT_EQ(rulesOf({found(powerKey), record("reboot"), found(journalStopped)}), "6");
  EXPECT_EQ(rulesOf({found(powerKey)}), "11");
}

TEST(RulesTest, ALoginManagersRecordIsToldByItsWay) {
  const auto textOf = [](const Evidence& one) {
    return causeOf({one, found(journalStopped)}).text;
  };
  EXPECT_EQ(textOf(record("reboot")), "Reload requested");
  EXPECT_EQ(textOf(record("reboot", "new kernel")), "Reload requested: new kernel");
  EXPECT_EQ(textOf(record("kexec")), "Reload requested (kexec)");
  EXPECT_EQ(textOf(record("power-off")), "Powered off by request");
}

TEST(RulesTest, WhatHadToBeInferredIsLikely) {
  const Cause keys = causeOf({found(ctrlAltDel, "", kLast), found(journalStopped)});
  EXPECT_EQ(keys.text, "Ctrl-Alt-Del on the console");
  EXPECT_EQ(keys.confidence, Confidence::likely);
  EXPECT_NE(keys.elseBe, "");
  const Cause unit = causeOf({found(failedUnit, "fan.service", kLast), found(journalStopped)});
  EXPECT_EQ(unit.text, "Service fan.service failed (inferred)");
  EXPECT_EQ(unit.action, "Find out why fan.service failed");
  EXPECT_NE(unit.elseBe, "");
}

TEST(RulesTest, AnOrderlyEndHasTheTimeOfWhatTellsIt) {
  const Cause cause = causeOf({found(target, "", kLast - 1), found(journalStopped, "", kLast)});
  EXPECT_EQ(cause.text, "Orderly reload, requester unknown");
  EXPECT_EQ(cause.time, kLast - 1);
  EXPECT_EQ(causeOf({found(wtmpShutdown, "", kLast - 2), found(journalStopped, "", kLast)}).time,
            kLast - 2);
}

TEST(RulesTest, EachRowTellsWhatItKnowsAndHowSureThatIs) {
  struct Row {
    std::vector<Evidence> evidence;
    const char* text;
    Confidence confidence;
    const char* action = "";
  };
  const auto at = [](Kind kind, const char* text = "x") { return found(kind, text, kLast - 5); };
  Evidence asked = record("reboot");
  asked.time = kLast - 5;
  const Evidence stopped = found(journalStopped, "", kLast);
  using enum Confidence;
  for (const auto& [evidence, text, confidence, action] : std::vector<Row>{
           {{at(panicDump)}, "Kernel panic: x", certain, "Keep the dump and report it"},
           {{at(softwareWatchdog)},
            "Watchdog expired",
            certain,
            "Look at the end of the last boot's journal for what stood still"},
           {{at(maker)}, "x", certain},
           {{dumpOf("reboot", "Temperature too high")},
            "Over temperature: Temperature too high",
            certain,
            "Look at fans, filters and the air around the device"},
           {{at(powerKey), record("power-off"), stopped}, "Power button pressed", certain},
           {{asked, stopped}, "Reload requested", certain},
           {{at(ctrlAltDel), stopped}, "Ctrl-Alt-Del on the console", likely},
           {{at(failedUnit), stopped},
            "Service x failed (inferred)",
            likely,
            "Find out why x failed"},
           {{at(target), stopped}, "Orderly reload, requester unknown", likely},
           {{at(bmcRestart)}, "x", likely}}) {
    const Cause cause = causeOf(evidence);
    EXPECT_EQ(cause.text, text);
    EXPECT_EQ(cause.time, kLast - 5) << text;
    EXPECT_EQ(cause.confidence, confidence) << text;
    EXPECT_EQ(cause.action, action) << text;
  }
}

TEST(RulesTest, AnOrderlyEndDoesNotTellWhoAsked) {
  EXPECT_NE(causeOf({found(journalStopped)}).elseBe, "");
}

TEST(RulesTest, AReloadThatDidNotFinishBeginsWhereItWasAsked) {
  Evidence asked = record("power-off");
  asked.time = kLast - 30;
  EXPECT_EQ(causeOf({asked}).since, kLast - 30);
  asked.time.reset();
  EXPECT_EQ(causeOf({asked}).since, kLast);
}

TEST(RulesTest, AReloadThatDidNotFinishHasAWindow) {
  const Cause cause = causeOf({record("power-off")});
  EXPECT_EQ(cause.rule, "6+");
  EXPECT_EQ(cause.text, "Powered off by request, but reset or power lost before it finished");
  EXPECT_EQ(cause.time, std::nullopt);
  EXPECT_EQ(cause.since, kLast);
}

TEST(RulesTest, AHardwareReasonThatMayBeOldIsOnlyPossible) {
  Evidence one = found(bmcRestart, "Reset button (BMC)");
  EXPECT_EQ(causeOf({one}).confidence, Confidence::likely);
  one.isOld = true;
  EXPECT_EQ(causeOf({one}).confidence, Confidence::possible);
  EXPECT_NE(causeOf({one}).elseBe, "");
}

TEST(RulesTest, NothingIsToldAsWhatLeavesNothing) {
  const Cause cause = causeOf({});
  EXPECT_EQ(cause.rule, "11");
  EXPECT_EQ(cause.text, "Power lost, hard reset or forced restart");
  EXPECT_EQ(cause.confidence, Confidence::possible);
  EXPECT_EQ(cause.since, kLast);
  EXPECT_NE(cause.elseBe, "");
  EXPECT_EQ(causeOf({found(initCrashed)}).text,
            "Power lost, hard reset or forced restart; init had crashed");
}

TEST(RulesTest, WithoutAnEarlierBootNothingIsKnown) {
  const Cause cause = verdictOf({.id = "b", .start = kStart}, {}).cause;
  EXPECT_EQ(cause.rule, "12");
  EXPECT_EQ(cause.text, "Unknown: no record of an earlier boot");
  EXPECT_EQ(cause.confidence, Confidence::unknown);
  EXPECT_EQ(cause.time, kStart);
}

// What one kind alone is judged by. A login manager's record is of a power-off here.
const std::map<Kind, std::string> kAlone{
    {panicDump, "1"},   {haltDump, "3"},       {softwareWatchdog, "2"}, {watchdog, "2"},
    {bmcWatchdog, "2"}, {initCrashed, "11"},   {maker, "2m"},           {request, "4"},
    {powerKey, "11"},   {logind, "6+"},        {ctrlAltDel, "7"},       {failedUnit, "11"},
    {target, "9+"},     {journalStopped, "9"}, {wtmpShutdown, "9"},     {hardwareFault, "10"},
    {bmcRestart, "10"}, {kernelReason, "10"}};

// Pairs that are more, or less, than the rules of both in their order.
const std::map<std::pair<Kind, Kind>, std::string> kTogether{{{panicDump, haltDump}, "1"},
                                                             {{haltDump, logind}, "6+"},
                                                             {{haltDump, target}, "9+"},
                                                             {{haltDump, journalStopped}, "9"},
                                                             {{haltDump, wtmpShutdown}, "9"},
                                                             {{powerKey, logind}, "5+ 6+"},
                                                             {{logind, ctrlAltDel}, "6+"},
                                                             {{logind, failedUnit}, "6+"},
                                                             {{logind, target}, "6+"},
                                                             {{logind, journalStopped}, "6"},
                                                             {{logind, wtmpShutdown}, "6"},
                                                             {{ctrlAltDel, failedUnit}, "7"},
                                                             {{ctrlAltDel, target}, "7+"},
                                                             {{ctrlAltDel, journalStopped}, "7"},
                                                             {{ctrlAltDel, wtmpShutdown}, "7"},
                                                             {{failedUnit, target}, "8+"},
                                                             {{failedUnit, journalStopped}, "8"},
                                                             {{failedUnit, wtmpShutdown}, "8"},
                                                             {{request, logind}, "4+ 6+"},
                                                             {{request, target}, "4+"},
                                                             {{request, journalStopped}, "4"},
                                                             {{request, wtmpShutdown}, "4"},
                                                             {{target, journalStopped}, "9"},
                                                             {{target, wtmpShutdown}, "9"},
                                                             {{journalStopped, wtmpShutdown}, "9"}};

// Both, in the order of the page.
std::string inOrder(const std::string& one, const std::string& other) {
  const std::vector<std::string> order{"1",  "2", "2m", "3", "4",  "5",
                                       "6+", "7", "8",  "9", "9+", "10"};
  std::string text;
  for (const std::string& rule : order) {
    if (rule == one || rule == other) text += (text.empty() ? "" : " ") + rule;
  }
  return text.empty() ? "11" : text;
}

Evidence oneOf(Kind kind) { return kind == logind ? record("power-off") : found(kind, "a text"); }

TEST(RulesTest, EveryTwoKindsTogetherAreJudgedAsThePageSays) {
  for (const auto& [one, alone] : kAlone) {
    for (const auto& [other, otherAlone] : kAlone) {
      const auto exception = kTogether.find(std::minmax(one, other));
      const std::string expected =
          exception == kTogether.end() ? inOrder(alone, otherAlone) : exception->second;
      EXPECT_EQ(rulesOf({oneOf(one), oneOf(other)}), expected)
          << nameOf(one) << " and " << nameOf(other);
    }
  }
}

std::string firstMatched(const std::vector<Evidence>& evidence) {
  for (const Explanation& line : explanationsOf(kBoots, evidence)) {
    if (line.matched && line.rule != "+") return line.rule;
  }
  return "none";
}

std::string withoutPlus(std::string rule) {
  if (rule.ends_with('+')) rule.pop_back();
  return rule;
}

// All rows that hold, as a reader of the page goes through them.
std::string rowsOf(const std::vector<Evidence>& all) {
  const auto has = [&](auto... kinds) {
    return (std::ranges::any_of(all, [&](const Evidence& one) { return one.kind == kinds; }) ||
            ...);
  };
  const auto isFresh = [&](auto... kinds) {
    return std::ranges::any_of(
        all, [&](const Evidence& one) { return ((one.kind == kinds) || ...) && !one.isOld; });
  };
  const auto wayIs = [&](const char* way) {
    return std::ranges::any_of(
        all, [&](const Evidence& one) { return one.kind == logind && one.way == way; });
  };
  const auto reachedKexec = [&] {
    return std::ranges::any_of(
        all, [&](const Evidence& one) { return one.kind == target && one.way == "kexec"; });
  };
  const auto wasSoonAfter = [&] {
    const auto asked = std::ranges::find(all, request, &Evidence::kind);
    return !asked->time || kLast - *asked->time <= 120;
  };
  const bool ended = has(journalStopped, wtmpShutdown);
  const std::string plus = has(logind, target) && !ended ? "+" : "";
  std::vector<std::string> rows;
  if (has(panicDump)) rows.emplace_back("1");
  if (has(bmcWatchdog, softwareWatchdog) || isFresh(watchdog) ||
      (has(watchdog) && !wayIs("kexec") && !reachedKexec())) {
    rows.emplace_back("2");
  }
  if (has(maker)) rows.emplace_back("2m");
  if (has(haltDump) && !has(panicDump, logind, target) && !ended) rows.emplace_back("3");
  if (has(request) && (has(logind, target) || ended || wasSoonAfter())) rows.push_back("4" + plus);
  if (has(powerKey) && wayIs("power-off")) rows.push_back("5" + plus);
  if (has(logind)) rows.push_back("6" + plus);
  if (has(ctrlAltDel) && !has(logind)) rows.push_back("7" + plus);
  if (has(failedUnit) && !has(logind, ctrlAltDel) && (has(target) || ended)) {
    rows.push_back("8" + plus);
  }
  if ((has(target) || ended) && !has(request, logind, ctrlAltDel, failedUnit)) {
    rows.push_back("9" + plus);
  }
  if (has(hardwareFault, bmcRestart, kernelReason) &&
      (rows.empty() || isFresh(hardwareFault, bmcRestart, kernelReason))) {
    rows.emplace_back("10");
  }
  if (rows.empty()) rows.emplace_back("11");
  std::string text = rows.front();
  for (std::size_t i = 1; i < rows.size(); ++i) text += " " + rows[i];
  return text;
}

bool isOf(const std::vector<Evidence>& all, const Cause& cause) {
  return std::ranges::all_of(cause.evidence, [&](const Evidence& one) {
    return std::ranges::find(all, one) != all.end();
  });
}

class RandomEvidence : public testing::Test {
 protected:
  Evidence piece() {
    const std::vector<std::string> ways{"reboot", "power-off", "kexec", "halt", ""};
    Evidence one = found(static_cast<Kind>(random_.below(kKinds)),
                         std::string(random_.below(3), static_cast<char>(random_.below(256))));
    if (random_.below(2) == 0) one.time = kBefore + random_.below(1100);
    one.way = ways[random_.below(5)];
    one.isOld = random_.below(3) == 0;
    return one;
  }
  std::vector<Evidence> pieces() {
    std::vector<Evidence> some;
    for (unsigned left = random_.below(6); left > 0; --left) add(piece(), some);
    return some;
  }
  // There is but one record of the login manager's, and one request, of a boot.
  static void add(const Evidence& one, std::vector<Evidence>& some) {
    const bool isOnlyOne = one.kind == logind || one.kind == request;
    if (isOnlyOne && std::ranges::find(some, one.kind, &Evidence::kind) != some.end()) return;
    some.push_back(one);
  }
  std::vector<Evidence> shuffled(std::vector<Evidence> some) {
    for (std::size_t i = some.size(); i > 1; --i) {
      std::swap(some[i - 1], some[random_.below(static_cast<unsigned>(i))]);
    }
    return some;
  }

  support::Random random_;
};

TEST_F(RandomEvidence, IsJudgedByWhatIsThereAlone) {
  SCOPED_TRACE(random_.replay());
  for (int step = 0; step < support::randomSteps(10000); ++step) {
    SCOPED_TRACE(step);
    std::vector<Evidence> evidence = pieces();
    const Verdict verdict = verdictOf(kBoots, evidence);
    ASSERT_NE(verdict.cause.text, "");
    ASSERT_EQ(rulesOf(evidence), rowsOf(evidence));
    ASSERT_EQ(withoutPlus(verdict.cause.rule), firstMatched(evidence));
    ASSERT_EQ(verdict.cause.evidence.empty(),
              verdict.cause.rule == "11" &&
                  std::ranges::find(evidence, initCrashed, &Evidence::kind) == evidence.end());
    ASSERT_TRUE(isOf(evidence, verdict.cause));
    for (const Cause& one : verdict.beside)
      ASSERT_TRUE(!one.evidence.empty() && isOf(evidence, one));
    ASSERT_EQ(verdict, verdictOf(kBoots, shuffled(evidence)));
    // A piece more moves it to no row but one whose conditions hold now.
    add(piece(), evidence);
    ASSERT_EQ(rulesOf(evidence), rowsOf(evidence));
  }
}

TEST(ExplanationsTest, EachRowTellsWhyItMatchedOrNot) {
  std::vector<std::string> lines;
  for (const Explanation& one : explanationsOf(kBoots, {found(ctrlAltDel), found(target)})) {
    lines.push_back(one.rule + (one.matched ? " yes " : " no ") + one.reason);
  }
  EXPECT_THAT(lines,
              ElementsAre("1 no not found: panic dump",
                          "2 no not found: software watchdog, watchdog, BMC watchdog",
                          "2m no not found: maker", "3 no not found: restart dump",
                          "4 no not found: request", "5 no not found: power key",
                          "6 no not found: shutdown record", "7 yes found: Ctrl-Alt-Del",
                          "8 no not found: failed unit", "9 no against it: Ctrl-Alt-Del",
                          "+ yes not found: journal stopped, wtmp shutdown",
                          "10 no not found: hardware fault, BMC, kernel's reset reason",
                          "11 no a rule before it matched", "12 no a rule before it matched"));
}

// The line of one row, as `explain` has it.
std::string lineOf(const std::string& rule, const Boots& boots, std::vector<Evidence> evidence) {
  for (const Explanation& one : explanationsOf(boots, evidence)) {
    if (one.rule == rule) return (one.matched ? "yes " : "no ") + one.reason;
  }
  return "none";
}

TEST(ExplanationsTest, TheAdditionTellsWhatItWantsAndWhatIsAgainstIt) {
  EXPECT_EQ(lineOf("+", kBoots, {}), "no not found: shutdown record, target reached");
  EXPECT_EQ(lineOf("+", kBoots, {record("reboot"), found(wtmpShutdown)}),
            "no against it: wtmp shutdown");
}

TEST(ExplanationsTest, TheLastRowsTellWhetherAnEarlierBootIsKnown) {
  EXPECT_EQ(lineOf("11", kBoots, {}), "yes nothing tells");
  EXPECT_EQ(lineOf("12", kBoots, {}), "no an earlier boot is known");
  const Boots first{.id = "b", .start = kStart};
  EXPECT_EQ(lineOf("11", first, {}), "no no earlier boot is known");
  EXPECT_EQ(lineOf("12", first, {}), "yes no earlier boot is known");
}

TEST(BootsTest, ATimeIsCoveredBetweenTheStartsOfBoth) {
  EXPECT_FALSE(kBoots.cover(kBefore - 1));
  EXPECT_TRUE(kBoots.cover(kBefore));
  EXPECT_TRUE(kBoots.cover(kStart));
  EXPECT_FALSE(kBoots.cover(kStart + 1));
  EXPECT_FALSE((Boots{.id = "b", .start = kStart}.cover(kStart - 1)));
  EXPECT_FALSE((Boots{.start = kStart, .previousStart = 10}.cover(kStart - 1)));
  // Whatever comes behind the last sign of a boot is of its end, whenever it began.
  const Boots beaten{.start = kStart, .lastSign = kLast};
  EXPECT_FALSE(beaten.cover(kLast - 1));
  EXPECT_TRUE(beaten.cover(kLast));
  EXPECT_TRUE(beaten.cover(kStart));
  EXPECT_FALSE((Boots{.start = kStart, .lastSign = 10}.cover(kStart - 1)));
}

TEST(BootsTest, AClockThatWentBackIsTold) {
  Boots boots = kBoots;
  EXPECT_THAT(notesOf(boots), ElementsAre());
  boots.start = kLast - 500;
  EXPECT_THAT(notesOf(boots), ElementsAre(testing::HasSubstr("set back")));
  EXPECT_TRUE(boots.cover(kLast + 3));
  EXPECT_FALSE(boots.cover(kLast + 4000));
  boots.start = 12;
  EXPECT_THAT(notesOf(boots),
              ElementsAre(testing::HasSubstr("1970"), testing::HasSubstr("set back")));
}

}  // namespace
}  // namespace ResetCause
