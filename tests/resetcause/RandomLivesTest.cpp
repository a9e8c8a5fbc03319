// A machine lives for many reloads, each in one of all ways, and tells each by what that left
// itself: never by what an earlier one did.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "resetcause/Life.h"

namespace ResetCause {
namespace {

using resetcausetest::Life;
using resetcausetest::Told;

// Of one life.
constexpr int kReloads = 60;

struct LifesWay {
  const char* name;
  std::function<void(Life&)> happens;
  Told told;
};

const std::vector<LifesWay> kLifesWays{
    {"reboot",
     [](Life& life) {
       life.isToReboot();
       life.endsInOrder();
     },
     {{"6"}, {}}},
    {"reboot with always_kmsg_dump",
     [](Life& life) {
       life.isToReboot();
       life.endsInOrder();
       life.dumps(life.down() + 4, "Shutdown#1 Part1\n<6>[ 5000.1] reboot: Restarting system\n");
     },
     {{"6"}, {}}},
    {"requested",
     [](Life& life) {
       life.isRequested(life.down() - 0.1);
       life.loginManagerSays(life.down(), "reboot", "System is rebooting.");
       life.endsInOrder();
     },
     {{"4"}, {"6"}}},
    {"requested, power cut before it was done",
     [](Life& life) {
       life.isRequested(life.down() - 0.1);
       life.losesTheLast();
       life.loginManagerSays(life.down(), "reboot", "System is rebooting.");
     },
     {{"4", "4+"}, {"6+"}}},
    {"without the login manager", [](Life& life) { life.endsInOrder(); }, {{"9"}, {}}},
    {"a unit failed",
     [](Life& life) {
       life.unitFails(life.down());
       life.endsInOrder();
     },
     {{"8"}, {}}},
    {"Ctrl-Alt-Del",
     [](Life& life) {
       life.initSays(life.down(), "Received SIGINT.");
       life.initSays(life.down(), "Activating special unit reboot.target...");
       life.endsInOrder();
     },
     {{"7"}, {}}},
    {"power button",
     [](Life& life) {
       life.powerKeyIsPressed(life.down());
       life.loginManagerSays(life.down(), "power-off", "System is powering down.");
       life.endsInOrder("poweroff.target");
     },
     {{"5"}, {"6"}}},
    {"power button, power cut before it was done",
     [](Life& life) {
       if (life.isLikely(0.5)) life.losesTheLast();
       life.powerKeyIsPressed(life.down());
       life.loginManagerSays(life.down(), "power-off", "System is powering down.");
     },
     {{"5+", "11"}, {"6+"}}},
    {"kexec",
     [](Life& life) {
       life.keepsRegisters();
       life.loginManagerSays(life.down(), "kexec", "System is rebooting with kexec.");
       life.endsInOrder("kexec.target");
     },
     {{"6"}, {}}},
    {"panic",
     [](Life& life) {
       life.losesTheLast();
       life.panics();
     },
     {{"1"}, {}}},
    {"panic on the way down",
     [](Life& life) {
       life.isToReboot();
       life.panics();
     },
     {{"1"}, {"6+"}}},
    {"forced, with always_kmsg_dump",
     [](Life& life) {
       life.losesTheLast();
       life.dumps(life.down(), "Emergency#1 Part1\n<6>[ 5000.1] sysrq: Resetting\n");
     },
     {{"3"}, {}}},
    {"power cut", [](Life& life) { life.losesTheLast(); }, {{"11"}, {}}},
    {"watchdog",
     [](Life& life) {
       life.losesTheLast();
       life.watchdogExpires();
     },
     {{"2"}, {}}},
    {"watchdog of a reload that hung",
     [](Life& life) {
       life.isToReboot();
       life.watchdogExpires();
     },
     {{"2"}, {"6+"}}},
};

// What happens to a machine that goes on.
const std::vector<std::function<void(Life&)>> kLifesEvents{
    [](Life& /*life*/) {},
    [](Life& life) { life.unitFails(life.down() - 11); },
    [](Life& life) { life.powerKeyIsPressed(life.down() / 2); },
    [](Life& life) {
      life.isRequested(life.down() / 2);
      life.requestIsTakenBack();
    },
    [](Life& life) {
      life.loginManagerSays(life.down() / 2, "power-off", "System is powering down (drill).");
      life.says(life.down() / 2, "Running in dry run, suppressing action.", {{"_UID", "0"}});
    },
    [](Life& life) {
      life.says(life.down() - 0.5, "System is rebooting (not at all).",
                {{"MESSAGE_ID", "98268866d1d54a499c4e98921d93bc40"},
                 {"SHUTDOWN", "reboot"},
                 {"_UID", "1000"}});
    },
    [](Life& life) {
      life.dumps(life.down() / 2, fmt::format("Oops#1 Part1\n<1>[{:12.6f}] BUG: unable to handle\n",
                                              life.down() / 2));
    }};

void lives(unsigned seed) {
  std::string story = fmt::format("repeat with MISCSNMP_RANDOM_SEED={}", seed);
  Life life(seed);
  for (int i = 0; i < kReloads && !testing::Test::HasFailure(); ++i) {
    const LifesWay& way = kLifesWays[life.below(kLifesWays.size())];
    const auto& event = kLifesEvents[life.below(kLifesEvents.size())];
    story += fmt::format("\n{} after {:.0f} s", way.name, life.down());
    SCOPED_TRACE(story);
    life.reloads(
        [&] {
          event(life);
          way.happens(life);
        },
        way.told);
  }
}

// The same lives each time, unless the environment names others.
TEST(RandomLivesTest, EachReloadIsToldByWhatItLeftItself) {
  const unsigned seed = support::Random::seedOr(1);
  const int number = std::max(1, support::randomSteps(5 * kReloads) / kReloads);
  for (int i = 0; i < number && !HasFailure(); ++i) lives(seed + static_cast<unsigned>(i));
}

}  // namespace
}  // namespace ResetCause
