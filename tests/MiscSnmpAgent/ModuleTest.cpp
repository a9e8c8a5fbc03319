#include "MiscSnmpAgent/Module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Qel/TypeNode.h"

namespace MiscSnmp::Agent {

TEST(Module, RegistersItsSixTypesInOrder) {
  std::vector<std::string> names;
  for (const Qel::TypeNode* node : Qel::typeNodes()) {
    const std::string name = node->name().stdString();
    if (name.starts_with("MiscSnmp::Agent::")) names.push_back(name);
  }
  EXPECT_THAT(names, testing::ElementsAre(
                         "MiscSnmp::Agent::Agent", "MiscSnmp::Agent::CurCellResetInstanceSm",
                         "MiscSnmp::Agent::PeerCellResetInstanceSm", "MiscSnmp::Agent::Root",
                         "MiscSnmp::Agent::ResetHistorySm",
                         "MiscSnmp::Agent::PeerCellResetHistoryStatusDirMounter"));
}

TEST(Module, BuildsTheLogHandleOfAWatchdogReload) {
  const Qel::LogHandle& handle = hardwareWatchdogError();

  EXPECT_EQ(handle.name(), "HARDWARE_WATCHDOG_ERROR");
  EXPECT_EQ(handle.severity(), 4);
  EXPECT_EQ(handle.format(), "Reboot due to system watchdog");
  EXPECT_EQ(handle.explanation(), "The system rebooted due to a watchdog timeout.");
  EXPECT_EQ(handle.recommendation(),
            "Harmless if seen infrequently, but may indicate a serious hardware or software "
            "problem if seen often.");
  EXPECT_EQ(handle.rateLimitInterval(), 0.0);
  EXPECT_EQ(handle.rateLimitBurst(), 1.0);
  EXPECT_EQ(handle.flags(), 0);
}

TEST(Module, BuildsTheLogHandleOfAKernelPanic) {
  const Qel::LogHandle& handle = sysKernelPanic();

  EXPECT_EQ(handle.name(), "SYS_KERNEL_PANIC");
  EXPECT_EQ(handle.severity(), 3);
  EXPECT_EQ(handle.format(), "Reboot due to kernel panic");
  EXPECT_EQ(handle.explanation(), "The system rebooted due to a kernel panic.");
  EXPECT_EQ(handle.recommendation(),
            "This may indicate a serious hardware or software problem. Contact your customer "
            "support representative.");
  EXPECT_EQ(handle.rateLimitInterval(), 0.0);
  EXPECT_EQ(handle.rateLimitBurst(), 1.0);
  EXPECT_EQ(handle.flags(), 0);
}

}  // namespace MiscSnmp::Agent
