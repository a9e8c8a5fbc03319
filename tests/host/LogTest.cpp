#include "host/Log.h"

#include <gmock/gmock.h>

namespace Host {
namespace {

TEST(Log, EscapesWhatWouldBreakALine) {
  EXPECT_EQ(printableLine("a\nb\tc\r\x7f"), "a\\nb\\tc\\x0d\\x7f");
}

TEST(Log, KeepsTextOfOtherScripts) { EXPECT_EQ(printableLine("Größe"), "Größe"); }

TEST(Log, WritesOneLineToStandardError) {
  testing::internal::CaptureStderr();
  logLine("two\nlines");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "norvek-snmpd: two\\nlines\n");
}

}  // namespace
}  // namespace Host
