#include "Qel/LogHandle.h"

#include <gtest/gtest.h>

namespace {

TEST(LogHandleTest, KeepsWhatItWasMadeFrom) {
  const Qel::LogHandle handle("DOOR_OPEN", 4, "Door %s is open", "A door was opened.",
                              "Close the door.", 60.0, 5.0, 1);
  EXPECT_EQ(handle.name(), "DOOR_OPEN");
  EXPECT_EQ(handle.severity(), 4);
  EXPECT_EQ(handle.format(), "Door %s is open");
  EXPECT_EQ(handle.explanation(), "A door was opened.");
  EXPECT_EQ(handle.recommendation(), "Close the door.");
  EXPECT_EQ(handle.rateLimitInterval(), 60.0);
  EXPECT_EQ(handle.rateLimitBurst(), 5.0);
  EXPECT_EQ(handle.flags(), 1);
}

}  // namespace
