#include "host/Log.h"

#include <gmock/gmock.h>

namespace Host {
namespace {

TEST(Log, WritesOneLineToStandardError) {
  testing::internal::CaptureStderr();
  logLine("two\nlines");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "norvek-snmpd: two\\nlines\n");
}

}  // namespace
}  // namespace Host
