// Each way down leaves what it leaves on a real machine; the next boot is to tell it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "resetcause/Machine.h"

namespace ResetCause {
namespace {

using resetcausetest::kBefore;
using resetcausetest::kDown;
using resetcausetest::kDownTime;
using resetcausetest::kThisStart;
using resetcausetest::Machine;

// Times that are not known lie in a window.
constexpr double kWindow = 0;

struct WayDown {
  const char* name;
  std::function<void(Machine&)> happens;
  const char* rules;
  const char* cause;
  double time;
};

void goesDownInOrder(Machine& machine, const std::string& target) {
  machine.initSays(kDown + 1, "Stopping user@1000.service...");
  machine.reaches(kDown + 2, target);
  machine.journalStops(kDown + 3);
  machine.wtmpHas(kDown + 2);
}

void unitFails(Machine& machine, double seconds) {
  machine.says(kBefore, seconds, "fan.service: Failed with result 'exit-code'.",
               resetcausetest::ofFailedUnit("fan.service"));
}

void powerKeyIsPressed(Machine& machine, double seconds) {
  machine.says(kBefore, seconds, "Power key pressed short.", resetcausetest::ofPowerKey());
}

void shutdownIsRehearsed(Machine& machine, double seconds) {
  machine.loginManagerSays(seconds, "power-off", "System is powering down (drill).");
  machine.says(kBefore, seconds, "Running in dry run, suppressing action.", {{"_UID", "0"}});
}

const std::vector<WayDown> kWays{
    {"systemctl reboot",
     [](Machine& machine) {
       machine.loginManagerSays(kDown, "reboot", "System is rebooting.");
       goesDownInOrder(machine, "reboot.target");
     },
     "6", "Reload requested", kDownTime},
    {"shutdown with a text",
     [](Machine& machine) {
       machine.loginManagerSays(kDown, "reboot", "System is rebooting (new (spare) fan).");
       goesDownInOrder(machine, "reboot.target");
     },
     "6", "Reload requested: new (spare) fan", kDownTime},
    {"our own request",
     [](Machine& machine) {
       machine.writes("/var/lib/norvek-reset-cause/requests/" + kBefore + ".json",
                      R"({"boot": ")" + kBefore +
                          R"(", "user": "ada", "reason": "new kernel", "time": 1700014999.5})");
       machine.loginManagerSays(kDown, "reboot", "System is rebooting.");
       goesDownInOrder(machine, "reboot.target");
     },
     "4 6", "Reload requested by ada: new kernel", 1700014999.5},
    {"hard reset or power cut", [](Machine&) {}, "11", "Power lost, hard reset or forced restart",
     kWindow},
    {"reboot -f, all dumps stored",
     [](Machine& machine) {
       machine.dumped(kDownTime, "Shutdown#1 Part1\n<6>[ 5000.1] reboot: Restarting system\n");
     },
     "3", "Immediate restart without shutdown", kDownTime},
    {"poweroff -f, all dumps stored",
     [](Machine& machine) {
       machine.dumped(kDownTime, "Shutdown#1 Part1\n<0>[ 5000.1] reboot: Power down\n");
     },
     "3", "Immediate power-off without shutdown", kDownTime},
    {"halt -f, all dumps stored",
     [](Machine& machine) {
       machine.dumped(kDownTime, "Shutdown#1 Part1\n<0>[ 5000.1] reboot: System halted\n");
     },
     "3", "Immediate halt without shutdown", kDownTime},
    {"power-off, a start later",
     [](Machine& machine) {
       machine.loginManagerSays(kDown, "power-off", "System is powering down.");
       goesDownInOrder(machine, "poweroff.target");
       machine.dumped(kDownTime + 4, "Shutdown#1 Part1\n<6>[ 5004.1] reboot: Power down\n");
     },
     "6", "Powered off by request", kDownTime},
    {"power button",
     [](Machine& machine) {
       powerKeyIsPressed(machine, kDown - 1);
       machine.loginManagerSays(kDown, "power-off", "System is powering down.");
       goesDownInOrder(machine, "poweroff.target");
     },
     "5 6", "Power button pressed", kDownTime - 1},
    {"power button, then no power",
     [](Machine& machine) {
       powerKeyIsPressed(machine, kDown - 1);
       machine.loginManagerSays(kDown, "power-off", "System is powering down.");
     },
     "5+ 6+", "Power button pressed, but reset or power lost before it finished", kWindow},
    {"panic by the keyboard",
     [](Machine& machine) {
       machine.dumped(kDownTime,
                      "Panic#1 Part1\n<6>[ 5000.0] sysrq: Trigger a crash\n"
                      "<0>[ 5000.1] Kernel panic - not syncing: sysrq triggered crash\n"
                      "<4>[ 5000.2] CPU: 0 PID: 1\n");
     },
     "1", "Kernel panic: sysrq triggered crash (forced by an operator)", kDownTime},
    {"out of memory",
     [](Machine& machine) {
       machine.dumped(kDownTime,
                      "Panic#1 Part1\n<0>[ 5000.1] Kernel panic - not syncing: Out of memory: "
                      "system-wide panic_on_oom is enabled\n");
     },
     "1", "Kernel panic: Out of memory: system-wide panic_on_oom is enabled", kDownTime},
    {"reset by the keyboard, all dumps stored",
     [](Machine& machine) {
       machine.dumped(kDownTime, "Emergency#1 Part1\n<6>[ 5000.1] sysrq: Resetting\n");
     },
     "3", "Immediate restart without shutdown", kDownTime},
    {"too hot, all dumps stored",
     [](Machine& machine) {
       machine.dumped(kDownTime,
                      "Emergency#1 Part1\n<0>[ 5000.1] thermal: critical temperature reached, "
                      "shutting down\n<6>[ 5000.2] reboot: Restarting system\n");
     },
     "3", "Over temperature: thermal: critical temperature reached, shutting down", kDownTime},
    {"too hot days before, all dumps stored",
     [](Machine& machine) {
       machine.dumped(kDownTime,
                      "Shutdown#1 Part1\n<0>[ 100.1] thermal: critical temperature reached, "
                      "shutting down\n<0>[180000.2] reboot: Restarting system\n");
     },
     "3", "Immediate restart without shutdown", kDownTime},
    {"watchdog", [](Machine& machine) { machine.hasWatchdog("watchdog1", 0x20); }, "2",
     "Watchdog expired", kWindow},
    {"init crashed, then watchdog",
     [](Machine& machine) {
       machine.initSays(kDown, "Caught <SEGV>, dumped core as pid 77.");
       machine.initSays(kDown + 1, "Freezing execution.");
       machine.hasWatchdog("watchdog0", 0x20);
     },
     "2", "Watchdog expired; init had crashed", kWindow},
    {"software watchdog",
     [](Machine& machine) {
       machine.dumped(kDownTime,
                      "Emergency#1 Part1\n<2>[ 5000.1] softdog: Initiating system reboot\n"
                      "<6>[ 5000.2] reboot: Restarting system\n");
     },
     "2", "Watchdog expired", kDownTime},
    {"kexec",
     [](Machine& machine) {
       machine.loginManagerSays(kDown, "kexec", "System is rebooting with kexec.");
       goesDownInOrder(machine, "kexec.target");
     },
     "6", "Reload requested (kexec)", kDownTime},
    {"a unit's failure",
     [](Machine& machine) {
       unitFails(machine, kDown);
       goesDownInOrder(machine, "reboot.target");
     },
     "8", "Service fan.service failed (inferred)", kDownTime},
    {"a unit's failure, by force",
     [](Machine& machine) {
       unitFails(machine, kDown);
       machine.initSays(kDown + 1, "Shutting down.");
       machine.journalStops(kDown + 2);
     },
     "8", "Service fan.service failed (inferred)", kDownTime},
    {"a unit that failed for good, then no power",
     [](Machine& machine) {
       unitFails(machine, kDown - 9);
       machine.initSays(kDown - 8.9, "Stopped fan.service - Fans.");
       unitFails(machine, kDown - 8.8);
     },
     "11", "Power lost, hard reset or forced restart", kWindow},
    {"a rehearsal of a shutdown, then no power",
     [](Machine& machine) { shutdownIsRehearsed(machine, kDown - 9); }, "11",
     "Power lost, hard reset or forced restart", kWindow},
    {"a rehearsal of a shutdown, then a request",
     [](Machine& machine) {
       shutdownIsRehearsed(machine, kDown - 9);
       machine.loginManagerSays(kDown, "reboot", "System is rebooting (in earnest).");
       goesDownInOrder(machine, "reboot.target");
     },
     "6", "Reload requested: in earnest", kDownTime},
    {"a request that nothing came of for hours, then no power",
     [](Machine& machine) {
       machine.loginManagerSays(kDown - 4000, "power-off", "System is powering down.");
       machine.says(kBefore, kDown, "an hour like any other");
     },
     "11", "Power lost, hard reset or forced restart", kWindow},
    {"power button, pressed again on the way down",
     [](Machine& machine) {
       powerKeyIsPressed(machine, kDown - 1);
       machine.loginManagerSays(kDown, "power-off", "System is powering down.");
       powerKeyIsPressed(machine, kDown + 0.5);
       goesDownInOrder(machine, "poweroff.target");
     },
     "5 6", "Power button pressed", kDownTime - 1},
    {"no login manager, a unit fails on the way down",
     [](Machine& machine) {
       machine.initSays(kDown - 60, "Started fan.service");
       goesDownInOrder(machine, "reboot.target");
       unitFails(machine, kDown + 2);
       machine.journalStops(kDown + 4);
     },
     "9", "Orderly reload, requester unknown", kDownTime + 2},
    {"no login manager", [](Machine& machine) { goesDownInOrder(machine, "reboot.target"); }, "9",
     "Orderly reload, requester unknown", kDownTime + 2},
    {"no login manager, then no power",
     [](Machine& machine) { machine.reaches(kDown + 2, "reboot.target"); }, "9+",
     "Orderly reload, requester unknown, but reset or power lost before it finished", kWindow},
    {"panic, stored in variables of the firmware",
     [](Machine& machine) {
       machine.writes("/sys/fs/pstore/dmesg-efi-170001500001001",
                      "Panic#1 Part1\n<0>[ 5000.1] Kernel panic - not syncing: Fatal exception\n");
     },
     "1", "Kernel panic: Fatal exception", kDownTime},
    {"panic on the way down",
     [](Machine& machine) {
       machine.loginManagerSays(kDown, "reboot", "System is rebooting.");
       machine.reaches(kDown + 2, "reboot.target");
       machine.dumped(kDownTime + 3,
                      "Panic#1 Part1\n<0>[ 5003.0] Kernel panic - not syncing: Fatal exception\n");
     },
     "1 6+", "Kernel panic: Fatal exception", kDownTime + 3},
    {"Ctrl-Alt-Del",
     [](Machine& machine) {
       machine.initSays(kDown, "Received SIGINT.");
       machine.initSays(kDown, "Activating special unit reboot.target...");
       goesDownInOrder(machine, "reboot.target");
     },
     "7", "Ctrl-Alt-Del on the console", kDownTime},
    {"a reload that hung",
     [](Machine& machine) {
       machine.loginManagerSays(kDown, "reboot", "System is rebooting.");
       machine.hasWatchdog("watchdog0", 0x20);
     },
     "2 6+", "Watchdog expired; the reload that was requested hung", kWindow},
    {"the hardware says it",
     [](Machine& machine) {
       machine.says(resetcausetest::kThis, 1,
                    "x86/amd: Previous system reset reason [0x00080800]: software wrote 0x6",
                    {{"_TRANSPORT", "kernel"}});
     },
     "10", "Hardware: software wrote 0x6", kWindow},
    {"heat, by the watchdog's device",
     [](Machine& machine) { machine.hasWatchdog("watchdog0", 0x01); }, "10",
     "Overheated (watchdog)", kWindow},
    {"the maker's register",
     [](Machine& machine) {
       machine.writes("/run/norvek/reset-register.json",
                      R"({"cause": "Line card pulled", "time": 1700015000})");
     },
     "2m", "Line card pulled", kDownTime}};

// What gtest tells of one.
void PrintTo(const WayDown& way, std::ostream* out) { *out << way.name; }

class WaysDownTest : public testing::TestWithParam<WayDown> {};

TEST_P(WaysDownTest, IsTold) {
  Machine machine;
  GetParam().happens(machine);
  const Judgement judgement = machine.judged();
  const Cause& cause = judgement.verdict.cause;
  EXPECT_EQ(resetcausetest::rulesOf(judgement.verdict), GetParam().rules);
  EXPECT_EQ(cause.text, GetParam().cause);
  EXPECT_THAT(judgement.problems, testing::ElementsAre());
  if (GetParam().time != kWindow) {
    ASSERT_TRUE(cause.time);
    EXPECT_NEAR(*cause.time, GetParam().time, 0.001);
  } else {
    EXPECT_FALSE(cause.time);
    ASSERT_TRUE(cause.since);
    EXPECT_GE(*cause.since, kDownTime - 10);
    EXPECT_LE(*cause.since, kThisStart);
  }
}

TEST(ReachedTargetTest, TellsWhereItLeads) {
  for (const auto& [unit, way] :
       std::vector<std::pair<std::string, std::string>>{{"reboot.target", "reboot"},
                                                        {"poweroff.target", "power-off"},
                                                        {"halt.target", "halt"},
                                                        {"kexec.target", "kexec"}}) {
    Machine machine;
    machine.reaches(kDown, unit);
    const Cause cause = machine.judged().verdict.cause;
    ASSERT_EQ(cause.evidence.size(), 1);
    EXPECT_EQ(cause.evidence.front().way, way);
  }
}

INSTANTIATE_TEST_SUITE_P(Each, WaysDownTest, testing::ValuesIn(kWays), [](const auto& way) {
  std::string name;
  for (const char c : std::string(way.param.name)) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) name += c;
  }
  return name;
});

}  // namespace
}  // namespace ResetCause
